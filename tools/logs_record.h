/*
 * What a line of HOME/log says: a trace record or an event entry, taken apart.
 */
#ifndef DKPF_TOOLS_LOGS_RECORD_H
#define DKPF_TOOLS_LOGS_RECORD_H

#include <windows.h>
#include <string>
#include <string_view>
#include <vector>

namespace dkpf {

enum class LogKind { Trace, Events };

/* One of the logs that dkpfctl logs shows. */
struct LogSource {
    const char* name;  // on the command line
    const char* file;  // in HOME/log, without extension
    LogKind     kind;
};

const std::vector<LogSource>& LogSources();  // diskperf, trace, conf, events

/* By name or file name, with or without ".log"; nullptr: there is none of that name. */
const LogSource* FindLogSource(std::string_view name);

/* The parts lie in the line. */
struct LogRecord {
    std::string_view time;       // local, as in the file: "2026/03/07 14:05:09.042"
    DWORD            level = 0;  // bits; of an event entry: 1 error, 2 warning, 4 information
    std::string_view text;

    // Trace records
    DWORD            pid = 0;
    DWORD            tid = 0;
    std::string_view source;
    DWORD            line = 0;
    std::string_view routine;

    // Event entries
    std::string_view severity;
    DWORD            event = 0;  // with the severity bits: 0x800012C1
};

/* One line without its line end. FALSE where it is no record of that kind; the record is then left alone. */
bool ParseLogLine(LogKind kind, std::string_view line, LogRecord* record);

/* Names of the bits: "error", "warning", "notice", "entry", "detail", "dump", "event". */
std::vector<std::string> LevelNames(DWORD level);

/* "error,warning", "0x3" or "3" to a mask. FALSE: a word that is neither a level nor a number, or no bit at all. */
bool ParseLevels(std::string_view text, DWORD* mask);

}  // namespace dkpf

#endif
