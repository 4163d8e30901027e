/*
 * dkpfctl logs [LOG...] [--all] [--lines N] [--level ...] [--routine NAME] [--process PID] [--since T] [--until T]
 *              [--text T] [--follow] [--json]
 */
#include <algorithm>
#include <charconv>
#include <optional>

#include "commands.h"
#include "console_out.h"
#include "home.h"
#include "logs_folder.h"
#include "logs_show.h"
#include "terminal.h"
#include "text.h"

namespace dkpf {

namespace {

class ConsoleView : public LogsView {
public:
    /* follow: Ctrl+C is the wish to end. Otherwise it keeps its usual meaning. */
    explicit ConsoleView(bool follow)
    {
        if (follow)
            m_terminal.emplace(false);
    }
    bool Say(const std::string& lines) override
    {
        return Print(lines);
    }
    void Note(const std::string& words) override
    {
        PrintError("dkpfctl: " + words + "\n");
    }
    bool Wait(DWORD ms) override
    {
        return !m_terminal || m_terminal->Wait(ms) == TopWish::End;
    }

private:
    std::optional<Terminal> m_terminal;
};

}  // namespace

static SYSTEMTIME LocalTimeBack(ULONGLONG secondsAgo)
{
    static constexpr ULONGLONG second = 10000000;  // in FILETIME
    FILETIME                   file{};
    SYSTEMTIME                 utc{}, local{};
    GetSystemTimeAsFileTime(&file);
    ULARGE_INTEGER moment;
    moment.LowPart = file.dwLowDateTime;
    moment.HighPart = file.dwHighDateTime;
    moment.QuadPart -= secondsAgo * second;
    file = { moment.LowPart, moment.HighPart };
    FileTimeToSystemTime(&file, &utc);
    SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local);
    return local;
}

/* Empty, or what is wrong with the options as a whole; each by itself was checked as it was read. */
static std::string MakeRequest(const LogsOptions& options, LogsRequest* request)
{
    for (const LogSource& source : LogSources()) {
        const auto named = [&source](const std::string& name) { return FindLogSource(name) == &source; };
        const bool all = options.all && source.kind == LogKind::Trace;
        const bool usual = options.logs.empty() && !options.all && &source == &LogSources().front();
        if (all || usual || std::any_of(options.logs.begin(), options.logs.end(), named))
            request->logs.push_back(&source);
    }
    const bool events = request->logs.back()->kind == LogKind::Events;
    if (events && request->logs.size() > 1)
        return "events are shown alone: dkpfctl logs events";
    if (events && (!options.routine.empty() || options.process != 0))
        return "an event entry has neither routine nor process: --routine and --process go with trace logs";
    if (options.lines != "all") {
        size_t lines = 0;
        std::from_chars(options.lines.data(), options.lines.data() + options.lines.size(), lines);
        request->lines = lines;
    }
    LogFilter& filter = request->filter;
    if (!options.level.empty())
        ParseLevels(options.level, &filter.levels);
    filter.routine = options.routine;
    filter.process = options.process;
    filter.text = options.text;
    if (!options.since.empty())
        filter.since = ParseMoment(options.since, Edge::Since, LocalTimeBack);
    if (!options.until.empty())
        filter.until = ParseMoment(options.until, Edge::Until, LocalTimeBack);
    if (!filter.since.empty() && !filter.until.empty() && filter.until < filter.since)
        return "--since lies behind --until: nothing is in between";
    request->follow = options.follow;
    request->json = options.json;
    return std::string();
}

ToolExit RunLogs(const LogsOptions& options)
{
    LogsRequest       request;
    const std::string wrong = MakeRequest(options, &request);
    if (!wrong.empty()) {
        PrintError("dkpfctl: " + wrong + "\n");
        return TOOL_USAGE;
    }
    const std::wstring folder = HomeOfThisProgram().Log();
    InstalledLogs      logs(folder);
    ConsoleView        view(options.follow);
    return ShowLogs(request, Narrow(folder), &logs, &view) ? TOOL_OK : TOOL_WRONG;
}

}  // namespace dkpf
