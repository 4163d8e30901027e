/*
 * What dkpfctl logs does: picks the lines, brings several logs into the order of their times, and follows. Where it
 * shows and how it waits is a LogsView, so that a test runs it without files and without time.
 */
#ifndef DKPF_TOOLS_LOGS_SHOW_H
#define DKPF_TOOLS_LOGS_SHOW_H

#include <optional>
#include <string>
#include <vector>

#include "logs_filter.h"
#include "logs_reader.h"

namespace dkpf {

struct LogsRequest {
    std::vector<const LogSource*> logs;
    LogFilter                     filter;
    std::optional<size_t>         lines;  // the last so many of those that match; without: all
    bool                          follow = false;
    bool                          json = false;
};

class LogsView {
public:
    virtual ~LogsView() = default;
    virtual bool Say(const std::string& lines) = 0;  // FALSE: nobody reads them any more
    virtual void Note(const std::string& words) = 0;
    virtual bool Wait(DWORD ms) = 0;  // TRUE: the user wants to end
};

inline constexpr DWORD LOGS_FOLLOW_MS = 250;  // between two looks

/**
 * Shows what is there; with follow also what comes, until the user wants to end or nobody reads any more.
 * @param where  HOME/log, for the words
 * @return FALSE: a log or a part of one could not be read, notes said which, why and what to do
 */
bool ShowLogs(const LogsRequest& request, const std::string& where, LogFolder* folder, LogsView* view);

/* One line as it is shown, with LF. Of several logs the log's name stands in front. */
std::string LogLineText(const LogSource& source, const LogLine& line, bool several);

/* The same as one JSON object, with LF; "format" rises when a field changes its meaning or goes. */
std::string LogLineJson(const LogSource& source, const LogLine& line);

}  // namespace dkpf

#endif
