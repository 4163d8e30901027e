#include "text.h"

#include <fmt/format.h>
#include <algorithm>
#include <cstdlib>

namespace dkpf {

static std::wstring FromCodePage(UINT codePage, std::string_view narrow)
{
    const int    length = static_cast<int>(narrow.size());
    std::wstring wide(static_cast<size_t>(MultiByteToWideChar(codePage, 0, narrow.data(), length, nullptr, 0)), L'\0');
    MultiByteToWideChar(codePage, 0, narrow.data(), length, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

std::wstring Wide(std::string_view utf8)
{
    return FromCodePage(CP_UTF8, utf8);
}

static std::string ToCodePage(UINT codePage, std::wstring_view wide)
{
    const int   length = static_cast<int>(wide.size());
    std::string narrow(
        static_cast<size_t>(WideCharToMultiByte(codePage, 0, wide.data(), length, nullptr, 0, nullptr, nullptr)), '\0');
    WideCharToMultiByte(codePage, 0, wide.data(), length, narrow.data(), static_cast<int>(narrow.size()), nullptr,
                        nullptr);
    return narrow;
}

std::string Narrow(std::wstring_view wide)
{
    return ToCodePage(CP_UTF8, wide);
}

std::string ToAnsi(std::string_view utf8)
{
    return ToCodePage(CP_ACP, Wide(utf8));
}

std::string FromAnsi(std::string_view ansi)
{
    return Narrow(FromCodePage(CP_ACP, ansi));
}

std::wstring ParentPath(const std::wstring& path)
{
    const size_t cut = path.find_last_of(L"\\/");
    return cut == std::wstring::npos ? std::wstring() : path.substr(0, cut);
}

std::string SystemErrorText(DWORD error)
{
    wchar_t     words[512] = {};
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
                                        words, ARRAYSIZE(words), nullptr);
    std::wstring_view text(words, length);
    while (!text.empty() && (text.back() <= L' ' || text.back() == L'.'))
        text.remove_suffix(1);
    return text.empty() ? fmt::format("error {}", error) : fmt::format("error {}, {}", error, Narrow(text));
}

static constexpr size_t WIDTH = 79;  // the last column of a line stays free: a console would add an empty line

std::string Wrapped(std::string_view words, size_t indent)
{
    std::string text;
    while (!words.empty()) {
        size_t length = words.size();
        if (indent + length > WIDTH) {
            length = words.rfind(' ', WIDTH - indent);
            if (length == std::string_view::npos)
                length = std::min(words.find(' '), words.size());
        }
        text += std::string(indent, ' ') + std::string(words.substr(0, length)) + "\n";
        words.remove_prefix(std::min(length + 1, words.size()));
    }
    return text;
}

std::string WrappedLines(std::string_view lines, size_t column)
{
    std::string text;
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find('\n'));
        const bool             indented = line.size() > column && line[0] == ' ' && line[column - 1] == ' ';
        lines.remove_prefix(std::min(line.size() + 1, lines.size()));
        if (line.size() <= WIDTH)
            text += std::string(line) + "\n";
        else if (indented)
            text += std::string(line.substr(0, column)) + Wrapped(line.substr(column), column).substr(column);
        else
            text += Wrapped(line, 0);
    }
    return text;
}

int LocalUtcOffsetMinutes()
{
    TIME_ZONE_INFORMATION zone{};
    switch (GetTimeZoneInformation(&zone)) {
    case TIME_ZONE_ID_DAYLIGHT:
        return -static_cast<int>(zone.Bias + zone.DaylightBias);
    case TIME_ZONE_ID_STANDARD:
        return -static_cast<int>(zone.Bias + zone.StandardBias);
    default:
        return -static_cast<int>(zone.Bias);
    }
}

std::string UtcOffsetText(int minutes)
{
    const int size = std::abs(minutes);
    return fmt::format("{}{:02}:{:02}", minutes < 0 ? '-' : '+', size / 60, size % 60);
}

std::string LocalTimeText(const SYSTEMTIME& time)
{
    return fmt::format("{:04}/{:02}/{:02} {:02}:{:02}:{:02}.{:03}", time.wYear, time.wMonth, time.wDay, time.wHour,
                       time.wMinute, time.wSecond, time.wMilliseconds);
}

std::string IsoTime(const SYSTEMTIME& local, int utcOffsetMinutes)
{
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}{}", local.wYear, local.wMonth, local.wDay,
                       local.wHour, local.wMinute, local.wSecond, local.wMilliseconds, UtcOffsetText(utcOffsetMinutes));
}

}  // namespace dkpf
