#include "perf_names.h"

#include <charconv>
#include <cstring>

#include "diskperf_counter.h"
#include "file_io.h"
#include "registration.h"
#include "text.h"

namespace dkpf {

static constexpr size_t TABLE_BOUND = 256 * 1024;  // bytes of an installed file that are read

/* The text up to the next NUL; empty where there is none before the end or it is empty. */
static std::wstring NextText(const std::vector<wchar_t>& all, size_t* at)
{
    const size_t begin = *at;
    while (*at < all.size() && all[*at] != L'\0')
        (*at)++;
    if (*at == all.size())
        return std::wstring();
    return std::wstring(all.data() + begin, (*at)++ - begin);
}

static bool ParseNumber(std::string_view text, DWORD* number)
{
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

PerfTexts ParsePerfTexts(const std::vector<BYTE>& multiText)
{
    PerfTexts            texts;
    std::vector<wchar_t> all(multiText.size() / sizeof(wchar_t));
    std::memcpy(all.data(), multiText.data(), all.size() * sizeof(wchar_t));
    for (size_t at = 0; at < all.size();) {
        DWORD              index = 0;
        const std::wstring number = NextText(all, &at);
        const std::wstring text = NextText(all, &at);
        if (!ParseNumber(Narrow(number), &index) || text.empty())
            break;
        texts[index] = Narrow(text);
    }
    return texts;
}

static std::string_view Trimmed(std::string_view text)
{
    const size_t begin = text.find_first_not_of(" \t\r");
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

static std::string_view NextLine(std::string_view* rest)
{
    const size_t           end = rest->find('\n');
    const std::string_view line = rest->substr(0, end);
    rest->remove_prefix(end == std::string_view::npos ? rest->size() : end + 1);
    return Trimmed(line);
}

static std::map<std::string, DWORD, std::less<>> ParseSymbols(std::string_view rest)
{
    static constexpr std::string_view         DEFINE = "#define";
    std::map<std::string, DWORD, std::less<>> symbols;
    while (!rest.empty()) {
        const std::string_view line = NextLine(&rest);
        if (line.substr(0, DEFINE.size()) != DEFINE)
            continue;
        const std::string_view pair = Trimmed(line.substr(DEFINE.size()));
        const size_t           gap = pair.find_first_of(" \t");
        DWORD                  offset = 0;
        if (gap != std::string_view::npos && ParseNumber(Trimmed(pair.substr(gap)), &offset))
            symbols.emplace(pair.substr(0, gap), offset);
    }
    return symbols;
}

InstalledTexts ParseInstalledTexts(std::string_view ini, std::string_view symbols)
{
    static constexpr std::string_view NAME = "_009_NAME";
    static constexpr std::string_view HELP = "_009_HELP";
    const auto                        offsets = ParseSymbols(symbols);
    InstalledTexts                    texts;
    bool                              inText = false;
    while (!ini.empty()) {
        const std::string_view line = NextLine(&ini);
        const size_t           equals = line.find('=');
        if (!line.empty() && line.front() == '[')
            inText = line == "[text]";
        if (!inText || equals == std::string_view::npos)
            continue;
        const std::string_view key = Trimmed(line.substr(0, equals));
        const std::string_view end = key.size() < NAME.size() ? key : key.substr(key.size() - NAME.size());
        const auto             symbol = offsets.find(key.substr(0, key.size() - end.size()));
        if (symbol == offsets.end())
            continue;
        if (end == NAME)
            texts.names[symbol->second] = Trimmed(line.substr(equals + 1));
        else if (end == HELP)
            texts.helps[symbol->second] = Trimmed(line.substr(equals + 1));
    }
    return texts;
}

NameSources ReadNameSources(const Home& home, const PerfQueryFn& ask)
{
    NameSources sources;
    std::string ini, symbols;
    sources.counters = ParsePerfTexts(QueryPerformanceData(L"Counter 009", ask).data);
    sources.helps = ParsePerfTexts(QueryPerformanceData(L"Help 009", ask).data);
    if (ReadWholeFile(home.Etc() + L"\\" + NAME_TABLE, TABLE_BOUND, &ini) == ERROR_SUCCESS &&
        ReadWholeFile(home.Etc() + L"\\" + NAME_SYMBOLS, TABLE_BOUND, &symbols) == ERROR_SUCCESS)
        sources.installed = ParseInstalledTexts(ini, symbols);
    return sources;
}

static std::string TextAt(const PerfTexts& texts, DWORD index)
{
    const auto text = texts.find(index);
    return text == texts.end() ? std::string() : text->second;
}

CounterNames NamesOf(const NameSources& sources, DWORD firstCounter, DWORD firstHelp)
{
    CounterNames names;
    names.fromSystem = true;
    for (DWORD i = 0; i < TITLE_NUM; i++)
        names.fromSystem = names.fromSystem && sources.counters.count(firstCounter + 2 * i) != 0;

    const PerfTexts& texts = names.fromSystem ? sources.counters : sources.installed.names;
    const PerfTexts& helps = names.fromSystem ? sources.helps : sources.installed.helps;
    const DWORD      nameBase = names.fromSystem ? firstCounter : 0;
    const DWORD      helpBase = names.fromSystem ? firstHelp : 0;
    names.objectIndex = firstCounter;
    names.object = TextAt(texts, nameBase);
    names.objectHelp = TextAt(helps, helpBase);
    for (DWORD i = 0; i < DKPF_COUNTER_NUM; i++) {
        const DWORD offset = 2 * (i + 1);
        names.counters.push_back({ firstCounter + offset, TextAt(texts, nameBase + offset),
                                   TextAt(helps, helpBase + offset), g_aCounter[i].scale });
    }
    return names;
}

}  // namespace dkpf
