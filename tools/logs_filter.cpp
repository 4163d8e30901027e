#include "logs_filter.h"

#include <charconv>

#include "event_log.h"
#include "text.h"

namespace dkpf {

bool LogFilter::Empty() const
{
    return levels == 0 && routine.empty() && process == 0 && since.empty() && until.empty() && text.empty();
}

static bool IsRoutine(std::string_view wanted, std::string_view routine)
{
    if (!wanted.empty() && wanted.back() == '*') {
        wanted.remove_suffix(1);
        routine = routine.substr(0, wanted.size());
    }
    return routine == wanted;
}

bool Matches(const LogFilter& filter, std::string_view line, const LogRecord* record)
{
    if (!filter.text.empty() && line.find(filter.text) == std::string_view::npos)
        return false;
    if (record == nullptr)
        return filter.levels == 0 && filter.routine.empty() && filter.process == 0 && filter.since.empty() &&
               filter.until.empty();
    return (filter.levels == 0 || (record->level & filter.levels) != 0) &&
           (filter.routine.empty() || IsRoutine(filter.routine, record->routine)) &&
           (filter.process == 0 || record->pid == filter.process) &&
           (filter.since.empty() || record->time >= filter.since) &&
           (filter.until.empty() || record->time <= filter.until);
}

/* "90s", "10m", "2h", "7d" in seconds. */
static bool ParseBack(std::string_view text, ULONGLONG* seconds)
{
    static constexpr DWORD most = 100000000;  // three years in seconds; the calculation stays far from its limits
    DWORD                  count = 0;
    const auto             parsed = std::from_chars(text.data(), text.data() + text.size(), count);
    if (parsed.ec != std::errc() || parsed.ptr + 1 != text.data() + text.size() || count > most)
        return false;
    switch (*parsed.ptr) {
    case 's':
        *seconds = count;
        return true;
    case 'm':
        *seconds = count * 60ull;
        return true;
    case 'h':
        *seconds = count * 3600ull;
        return true;
    case 'd':
        *seconds = count * 86400ull;
        return *seconds <= most * 60ull;
    default:
        return false;
    }
}

/* A time of the files as one number, in units of 100 ns. FALSE: there is no such day or time of day. */
static bool CountOf(const std::string& time, ULONGLONG* count)
{
    const auto number = [&time](size_t at, size_t size) {
        WORD value = 0;
        std::from_chars(time.data() + at, time.data() + at + size, value);
        return value;
    };
    const SYSTEMTIME parts = { number(0, 4),  number(5, 2), 0, number(8, 2), number(11, 2), number(14, 2),
                               number(17, 2), number(20, 3) };
    SYSTEMTIME       back{};
    FILETIME         file{};
    // Some systems take a day too many for the first of the next month.
    if (!IsLogTime(time) || !SystemTimeToFileTime(&parts, &file) || !FileTimeToSystemTime(&file, &back) ||
        back.wDay != parts.wDay)
        return false;
    *count = static_cast<ULONGLONG>(file.dwHighDateTime) << 32 | file.dwLowDateTime;
    return true;
}

std::string HoursBefore(const std::string& time, unsigned hours)
{
    const ULONGLONG back = hours * 36000000000ull;
    ULONGLONG       count = 0;
    SYSTEMTIME      parts{};
    if (!CountOf(time, &count) || count < back)
        return std::string();
    count -= back;
    const FILETIME file = { static_cast<DWORD>(count), static_cast<DWORD>(count >> 32) };
    return FileTimeToSystemTime(&file, &parts) ? LocalTimeText(parts) : std::string();
}

std::string ParseMoment(std::string_view text, Edge edge, const LocalClock& clock)
{
    ULONGLONG seconds = 0;
    if (ParseBack(text, &seconds))
        return LocalTimeText(clock(seconds));

    static constexpr size_t lengths[] = { 10, 16, 19, LOG_TIME_LENGTH };  // day, minute, second, millisecond
    bool                    known = false;
    for (size_t length : lengths)
        known = known || text.size() == length;
    if (!known)
        return std::string();
    std::string time = edge == Edge::Since ? "0000/00/00 00:00:00.000" : "0000/00/00 23:59:59.999";
    for (size_t i = 0; i < text.size(); i++) {
        const bool dash = text[i] == '-' && time[i] == '/';
        const bool letter = text[i] == 'T' && time[i] == ' ';
        if (!dash && !letter)
            time[i] = text[i];
    }
    ULONGLONG count = 0;
    return CountOf(time, &count) ? time : std::string();
}

}  // namespace dkpf
