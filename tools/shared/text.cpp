#include "text.h"

#include <fmt/format.h>
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

std::string IsoTime(const SYSTEMTIME& local, int utcOffsetMinutes)
{
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}{}", local.wYear, local.wMonth, local.wDay,
                       local.wHour, local.wMinute, local.wSecond, local.wMilliseconds, UtcOffsetText(utcOffsetMinutes));
}

}  // namespace dkpf
