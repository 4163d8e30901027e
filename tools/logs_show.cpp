#include "logs_show.h"

#include <fmt/format.h>
#include <algorithm>
#include <memory>

#include "text.h"

namespace dkpf {

static constexpr size_t OUTPUT_BLOCK = 64 * 1024;  // bytes handed over at once

using Readers = std::vector<std::unique_ptr<LogReader>>;

std::string LogLineText(const LogSource& source, const LogLine& line, bool several)
{
    return several ? fmt::format("{:<8} {}\n", source.name, line.text) : line.text + "\n";
}

/* The reader whose next line is the oldest; of equal ones the first. nullptr: no line lies ahead. A line that is no
 * record stays behind the one in front of it. */
static LogReader* Oldest(const Readers& readers)
{
    LogReader*     oldest = nullptr;
    const LogLine* oldestLine = nullptr;
    for (const std::unique_ptr<LogReader>& reader : readers) {
        const LogLine* line = reader->Head();
        if (line != nullptr && (oldestLine == nullptr || line->time < oldestLine->time)) {
            oldest = reader.get();
            oldestLine = line;
        }
    }
    return oldest;
}

/* All that lies ahead, without the first so many. FALSE: nobody reads it. */
static bool ShowAhead(const LogsRequest& request, const Readers& readers, size_t skip, LogsView* view)
{
    std::string output;
    while (LogReader* reader = Oldest(readers)) {
        const LogLine& line = *reader->Head();
        if (skip > 0)
            skip--;
        else if (request.json)
            output += LogLineJson(reader->Source(), line);
        else
            output += LogLineText(reader->Source(), line, readers.size() > 1);
        reader->Advance();
        if (output.size() >= OUTPUT_BLOCK) {
            if (!view->Say(output))
                return false;
            output.clear();
        }
    }
    return output.empty() || view->Say(output);
}

/* FALSE: there will be nothing to show either. */
static bool SayMissing(const LogReader& reader, const std::string& where, bool follow, LogsView* view)
{
    const std::string file = fmt::format("{}\\{}.log", where, reader.Source().file);
    if (reader.Error() == ERROR_PATH_NOT_FOUND) {
        view->Note(fmt::format("there is no folder {}: dkpfctl install makes it", where));
        return false;
    }
    if (reader.Error() != ERROR_FILE_NOT_FOUND && reader.Error() != ERROR_SUCCESS)
        return false;  // said by the reader
    if (reader.Source().kind == LogKind::Events) {
        view->Note(fmt::format("no event entry was written yet: there is no {}", file));
        return true;
    }
    view->Note(fmt::format("there is no {}: {}", file,
                           follow ? "waiting until something is written to it"
                                  : "no program that uses the library has written to it. Does the disk agent run "
                                    "(dkpfctl status)?"));
    return follow;
}

/* What is there at the start, and where the last lines begin. FALSE: some log cannot be shown. */
static bool LookFirst(const LogsRequest& request, const std::string& where, const Readers& readers, LogsView* view)
{
    bool good = true;
    for (const std::unique_ptr<LogReader>& reader : readers) {
        reader->Look();
        if (!reader->Found() && !SayMissing(*reader, where, request.follow, view))
            good = false;
    }
    return good;
}

static void SayUnread(const Readers& readers, LogsView* view)
{
    for (const std::unique_ptr<LogReader>& reader : readers) {
        if (reader->Unread() != 0)
            view->Note(fmt::format("{}.log: {} {}", reader->Source().file, reader->Unread(),
                                   reader->Unread() == 1 ? "line is no record" : "lines are no records"));
    }
}

bool ShowLogs(const LogsRequest& request, const std::string& where, LogFolder* folder, LogsView* view)
{
    Readers       readers;
    const LogNote note = [view](const std::string& words) { view->Note(words); };
    for (const LogSource* source : request.logs)
        readers.push_back(std::make_unique<LogReader>(*source, request.filter, request.follow, folder, note));

    bool   good = LookFirst(request, where, readers, view);
    size_t ahead = 0, skip = 0;
    if (request.lines) {
        for (const std::unique_ptr<LogReader>& reader : readers)
            ahead += reader->GoToLast(*request.lines);
        skip = ahead - std::min(ahead, *request.lines);
    }
    const bool any = good || std::any_of(readers.begin(), readers.end(),
                                         [](const std::unique_ptr<LogReader>& reader) { return reader->Found(); });
    bool       read = ShowAhead(request, readers, skip, view);
    while (request.follow && any && read && !view->Wait(LOGS_FOLLOW_MS)) {
        for (const std::unique_ptr<LogReader>& reader : readers)
            reader->Look();
        read = ShowAhead(request, readers, 0, view);
    }
    SayUnread(readers, view);
    for (const std::unique_ptr<LogReader>& reader : readers)
        good = good && !reader->Failed();
    return good;
}

}  // namespace dkpf
