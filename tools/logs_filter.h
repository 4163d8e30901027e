/*
 * Which lines dkpfctl logs shows.
 */
#ifndef DKPF_TOOLS_LOGS_FILTER_H
#define DKPF_TOOLS_LOGS_FILTER_H

#include <windows.h>
#include <functional>
#include <string>
#include <string_view>

#include "logs_record.h"

namespace dkpf {

/* What is empty or 0 asks for nothing. A line has to match all that is asked for. */
struct LogFilter {
    DWORD       levels = 0;  // any of these bits
    std::string routine;     // whole name, or with a closing * its beginning
    DWORD       process = 0;
    std::string since, until;  // in the files' form; both moments themselves belong to it
    std::string text;          // anywhere in the line

    bool Empty() const;
};

/* record: nullptr for a line that is no record; it matches nothing that asks for a part of a record. */
bool Matches(const LogFilter& filter, std::string_view line, const LogRecord* record);

/* Local time so many seconds ago, 0: now. */
using LocalClock = std::function<SYSTEMTIME(ULONGLONG secondsAgo)>;

enum class Edge { Since, Until };

/**
 * A moment as a user writes it, to the form of the files.
 * @param text  "2026-03-07 14:05:09.042", from the right as short as "2026-03-07", also with / or T; or a time back
 * from now, a number with s, m, h or d
 * @param edge  which end of what was left out is meant: "14:05" is 14:05:00.000 for Since and 14:05:59.999 for Until
 * @return empty where it is no moment
 */
std::string ParseMoment(std::string_view text, Edge edge, const LocalClock& clock);

/* A moment so many hours before another one, both in the files' form; empty where there is none. */
std::string HoursBefore(const std::string& time, unsigned hours);

}  // namespace dkpf

#endif
