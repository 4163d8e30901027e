#include "event_log.h"

#include <fmt/format.h>
#include <algorithm>
#include <charconv>

#include "file_io.h"

namespace dkpf {

static constexpr size_t EVENT_FILE_BOUND = 8u << 20;  // bytes of one generation that are looked at

bool IsLogTime(std::string_view text)
{
    static constexpr std::string_view pattern = "0000/00/00 00:00:00.000";
    if (text.size() != pattern.size())
        return false;
    for (size_t i = 0; i < pattern.size(); i++) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (pattern[i] == '0' ? !digit : text[i] != pattern[i])
            return false;
    }
    return true;
}

static std::string_view NextWord(std::string_view* rest)
{
    rest->remove_prefix(std::min(rest->find_first_not_of(' '), rest->size()));
    const std::string_view word = rest->substr(0, rest->find(' '));
    rest->remove_prefix(word.size());
    return word;
}

static bool ParseEventId(std::string_view word, DWORD* id)
{
    if (word.size() < 3 || word[0] != '0' || (word[1] != 'x' && word[1] != 'X'))
        return false;
    const auto parsed = std::from_chars(word.data() + 2, word.data() + word.size(), *id, 16);
    return parsed.ec == std::errc() && parsed.ptr == word.data() + word.size();
}

bool SplitEventLine(std::string_view line, EventParts* parts)
{
    if (line.size() <= LOG_TIME_LENGTH || line[LOG_TIME_LENGTH] != ' ' || !IsLogTime(line.substr(0, LOG_TIME_LENGTH)))
        return false;
    EventParts       parsed;
    std::string_view rest = line.substr(LOG_TIME_LENGTH);
    parsed.time = line.substr(0, LOG_TIME_LENGTH);
    parsed.severity = NextWord(&rest);
    if (!ParseEventId(NextWord(&rest), &parsed.id))
        return false;
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    parsed.text = rest;
    *parts = parsed;
    return true;
}

bool ParseEventLine(std::string_view line, EventEntry* entry)
{
    EventParts parts;
    if (!SplitEventLine(line, &parts))
        return false;
    *entry = { std::string(parts.time), std::string(parts.severity), parts.id, std::string(parts.text) };
    return true;
}

void ParseEvents(std::string_view content, EventHistory* history)
{
    while (!content.empty()) {
        const size_t     end = content.find('\n');
        std::string_view line = content.substr(0, end);
        content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        EventEntry entry;
        if (end != std::string_view::npos && ParseEventLine(line, &entry))
            history->entries.push_back(std::move(entry));
        else if (!line.empty())
            history->unread++;
    }
}

std::wstring GenerationPath(const std::wstring& path, int number)
{
    const size_t dot = path.find_last_of(L'.');
    if (number == 0 || dot == std::wstring::npos)
        return path;
    return path.substr(0, dot) + L"." + std::to_wstring(number) + path.substr(dot);
}

EventHistory ReadEventsSince(const std::wstring& path, const std::string& since)
{
    EventHistory all;
    for (int number = 0; number <= LOG_GENERATIONS; number++) {
        std::string content;
        const DWORD error = ReadWholeFile(GenerationPath(path, number), EVENT_FILE_BOUND, &content);
        // A writer that died while it rotated leaves a gap in the numbers, which the next rotation fills.
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
            continue;
        if (error != ERROR_SUCCESS) {
            if (number == 0)
                all.error = error;
            break;
        }
        EventHistory older;
        ParseEvents(content, &older);
        const bool reachesBack = !older.entries.empty() && older.entries.front().time < since;
        all.unread += older.unread;
        all.entries.insert(all.entries.begin(), older.entries.begin(), older.entries.end());
        if (reachesBack)
            break;
    }
    const auto tooOld = [&since](const EventEntry& entry) { return entry.time < since; };
    all.entries.erase(std::remove_if(all.entries.begin(), all.entries.end(), tooOld), all.entries.end());
    return all;
}

std::string EventTimeOf(const std::string& isoTime)
{
    std::string time = isoTime.substr(0, LOG_TIME_LENGTH);
    for (size_t i = 0; i < time.size(); i++) {
        if (time[i] == '-')
            time[i] = '/';
        else if (time[i] == 'T')
            time[i] = ' ';
    }
    return IsLogTime(time) ? time : std::string();
}

}  // namespace dkpf
