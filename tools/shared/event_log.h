/*
 * HOME/log/diskperf_event.log: every event entry in words, oldest first, with older generations beside it.
 */
#ifndef DKPF_TOOLS_EVENT_LOG_H
#define DKPF_TOOLS_EVENT_LOG_H

#include <windows.h>
#include <string>
#include <string_view>
#include <vector>

#include "tnwlog.h"

namespace dkpf {

struct EventEntry {
    std::string time;      // local, as in the file: "2026/03/07 14:05:09.042"
    std::string severity;  // "ERROR", "WARNING", "INFORMATION"
    DWORD       id = 0;    // with the severity bits: 0x800012C1
    std::string text;
};

struct EventHistory {
    std::vector<EventEntry> entries;     // oldest first
    size_t                  unread = 0;  // lines that are no entries
    DWORD                   error = 0;   // why the newest file could not be read; a missing one is none
};

/* One line without its line end: "2026/03/07 14:05:09.042 WARNING 0x800012C1 <text>". FALSE where it is no entry. The
 * parts lie in the line. */
struct EventParts {
    std::string_view time;
    std::string_view severity;
    DWORD            id = 0;
    std::string_view text;
};
bool SplitEventLine(std::string_view line, EventParts* parts);

/* The same into an entry of its own. */
bool ParseEventLine(std::string_view line, EventEntry* entry);

/* Entries of one file's content, appended to history. A cut-off last line counts as unread. */
void ParseEvents(std::string_view content, EventHistory* history);

/**
 * Entries not older than a moment, over as many generations as reach back to it.
 * @param path   the newest file
 * @param since  local time in the file's form
 */
EventHistory ReadEventsSince(const std::wstring& path, const std::string& since);

/* "2026/03/07 14:05:09.042", which all files of HOME/log begin their lines with, and its letters. */
bool                    IsLogTime(std::string_view text);
inline constexpr size_t LOG_TIME_LENGTH = 23;

/* Older generations that a log of HOME/log has at most. */
inline constexpr int LOG_GENERATIONS = TNWLOG_TRACE_GENERATIONS;

/* A log's current file (0) or one of its older generations: diskperf_event.log, diskperf_event.1.log (the newest), ...
 */
std::wstring GenerationPath(const std::wstring& path, int number);

/* "2026-03-07T14:05:09.042+09:00" to the file's form; empty where it is no time. */
std::string EventTimeOf(const std::string& isoTime);

}  // namespace dkpf

#endif
