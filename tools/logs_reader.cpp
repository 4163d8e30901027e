#include "logs_reader.h"

#include <fmt/format.h>
#include <algorithm>
#include <map>
#include <utility>

#include "logs_backward.h"
#include "text.h"

namespace dkpf {

struct LogReader::Generation {
    std::unique_ptr<LogFile> file;
    LogFileId                id = 0;
    ULONGLONG                at = 0;             // where the next line begins
    ULONGLONG                end = 0;            // at the last look
    bool                     skipping = false;   // at lies in a long line of which enough was shown
    int                      number = 0;         // of its name as it was last seen
    bool                     saidError = false;  // what is wrong with it was said; until a read succeeds
};

LogReader::LogReader(const LogSource& source, const LogFilter& filter, bool follow, LogFolder* folder, LogNote note)
    : m_source(source), m_filter(filter), m_follow(follow), m_folder(folder), m_note(std::move(note))
{
}

LogReader::~LogReader() = default;

const LogSource& LogReader::Source() const
{
    return m_source;
}

bool LogReader::Found() const
{
    return m_found;
}

DWORD LogReader::Error() const
{
    return m_error;
}

bool LogReader::Failed() const
{
    return m_failed;
}

size_t LogReader::Unread() const
{
    return m_unread;
}

void LogReader::Fail(const std::string& words)
{
    m_failed = true;
    m_note(words);
}

void LogReader::FailRead(Generation* generation, DWORD error)
{
    if (!generation->saidError)
        Fail(fmt::format("a part of {} could not be read: {}", FileName(generation->number), SystemErrorText(error)));
    generation->saidError = true;
}

std::string LogReader::FileName(int generation) const
{
    return generation == 0 ? fmt::format("{}.log", m_source.file) : fmt::format("{}.{}.log", m_source.file, generation);
}

/* ---- Generations ---- */

static bool IsMissing(DWORD error)
{
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

bool LogReader::Holds(LogFileId id) const
{
    return std::any_of(m_generations.begin(), m_generations.end(),
                       [id](const std::unique_ptr<Generation>& held) { return held->id == id; });
}

/* Files that are newer than those that are held, oldest first; at the first look all there are. */
std::vector<std::unique_ptr<LogReader::Generation>> LogReader::OpenNewer(bool first)
{
    std::vector<std::unique_ptr<Generation>> newer;  // newest first
    bool                                     reached = false;
    m_error = ERROR_SUCCESS;
    for (int number = 0; number <= LOG_GENERATIONS; number++) {
        auto        opened = std::make_unique<Generation>();
        const DWORD error = m_folder->Open(m_source.file, number, &opened->file);
        if (number == 0)
            m_error = error;
        bool& said = m_saidHeld[static_cast<size_t>(number)];
        if (error == ERROR_SUCCESS || IsMissing(error))
            said = false;
        if (IsMissing(error))
            continue;  // a gap, or the current file is not made yet
        if (error != ERROR_SUCCESS) {
            const bool follows = !first || (m_follow && newer.empty());  // the next look comes by it again
            if (!said)
                Fail(fmt::format("{} could not be opened: {}; {}", FileName(number), SystemErrorText(error),
                                 follows ? "its lines follow as soon as it can be."
                                         : "its lines are missing here. Does a program hold it?"));
            said = true;
            if (!first)
                newer.clear();  // they come behind it
            continue;
        }
        opened->id = opened->file->Id();
        opened->number = number;
        reached = Holds(opened->id);
        if (reached)
            break;
        const auto seen = std::find_if(newer.begin(), newer.end(), [&opened](const std::unique_ptr<Generation>& one) {
            return one->id == opened->id;
        });
        if (seen != newer.end())
            newer.erase(seen);  // what was seen since is newer than it
        newer.push_back(std::move(opened));
    }
    if (!newer.empty() && !reached && !m_generations.empty())
        m_note(fmt::format("{}: the file read last is gone, by hand or because it was rotated more than {} times "
                           "since; lines may be missing",
                           FileName(0), LOG_GENERATIONS));
    std::reverse(newer.begin(), newer.end());
    return newer;
}

/* Behind a rotation: sees by which numbers the files go now, and lets go of what was deleted, so that its space comes
 * free. The newest two stay: one is where writers are, and one that waited long may still be writing to the other. */
void LogReader::DropNameless()
{
    std::map<LogFileId, int> named;
    for (int number = 0; number <= LOG_GENERATIONS; number++) {
        std::unique_ptr<LogFile> file;
        if (m_folder->Open(m_source.file, number, &file) == ERROR_SUCCESS)
            named[file->Id()] = number;
    }
    for (const std::unique_ptr<Generation>& held : m_generations) {
        if (const auto name = named.find(held->id); name != named.end())
            held->number = name->second;
    }
    for (size_t i = 0; i + 2 < m_generations.size();) {
        const Generation& held = *m_generations[i];
        if (named.count(held.id) != 0 || held.at < held.end)
            i++;
        else
            m_generations.erase(m_generations.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

/* Leaves out files in front of one that begins before the moment asked for: what they hold is older, unless the clock
 * was set back by more than LOG_CLOCK_BACK_H. Only the newest such file is read. */
void LogReader::DropTooOld()
{
    const std::string surely = HoursBefore(m_filter.since, LOG_CLOCK_BACK_H);
    const auto        beginsBefore = [&surely](const Generation& generation) {
        std::string time(LOG_TIME_LENGTH, '\0');
        DWORD       got = 0;
        return generation.file->Read(0, time.data(), LOG_TIME_LENGTH, &got) == ERROR_SUCCESS &&
               got == LOG_TIME_LENGTH && IsLogTime(time) && time < surely;
    };
    size_t first = m_generations.size();
    while (first > 1 && !beginsBefore(*m_generations[first - 1]))
        first--;
    if (first > 1)
        m_generations.erase(m_generations.begin(), m_generations.begin() + static_cast<std::ptrdiff_t>(first - 1));
}

void LogReader::SeeEnd(Generation* generation)
{
    generation->end = generation->file->Size();
    if (generation->end < generation->at) {
        m_note(fmt::format("{} was cut short by hand; it is read from its beginning", FileName(0)));
        generation->at = 0;
        generation->skipping = false;
    }
}

void LogReader::Look()
{
    const bool first = !m_found;
    auto       newer = OpenNewer(first);
    m_found = m_found || !newer.empty();
    m_block.clear();
    m_blockOf = nullptr;
    const size_t held = m_generations.size();
    const bool   rotated = held != 0 && !newer.empty();
    for (std::unique_ptr<Generation>& generation : newer)
        m_generations.push_back(std::move(generation));
    if (first && !m_filter.since.empty())
        DropTooOld();
    for (size_t i = held > 2 ? held - 2 : 0; i < m_generations.size(); i++)
        SeeEnd(m_generations[i].get());
    if (rotated)
        DropNameless();
}

/* ---- Forward ---- */

/* More of the file behind what is in the block. FALSE: its end. */
bool LogReader::Fill(Generation* generation)
{
    m_block.erase(0, m_used);
    m_used = 0;
    const size_t    known = m_block.size();
    const ULONGLONG from = generation->at + known;
    const DWORD     size = static_cast<DWORD>(std::min<ULONGLONG>(LOG_BLOCK, generation->end - from));
    DWORD           got = 0;
    if (size == 0)
        return false;
    m_block.resize(known + size);
    const DWORD error = generation->file->Read(from, m_block.data() + known, size, &got);
    if (error != ERROR_SUCCESS) {
        FailRead(generation, error);
        got = 0;
    } else {
        generation->saidError = false;
    }
    m_block.resize(known + got);
    if (got == 0)
        generation->end = from;
    return got != 0;
}

void LogReader::Take(Generation* generation, size_t size)
{
    m_used += size;
    generation->at += size;
}

static std::string WithoutLineEnd(std::string_view line)
{
    if (!line.empty() && line.back() == '\n')
        line.remove_suffix(1);
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return std::string(line.substr(0, LOG_LINE_BOUND));
}

bool LogReader::NextTextOf(Generation* generation, std::string* text)
{
    if (m_blockOf != generation) {
        m_block.clear();
        m_used = 0;
        m_blockOf = generation;
    }
    std::string_view ahead;
    do {
        ahead = std::string_view(m_block).substr(m_used);
        const size_t end = ahead.find('\n');
        if (end != std::string_view::npos) {
            const bool shown = std::exchange(generation->skipping, false);
            *text = WithoutLineEnd(ahead.substr(0, end + 1));
            Take(generation, end + 1);
            if (!shown)
                return true;
            ahead.remove_prefix(end + 1);
        } else if (generation->skipping) {
            Take(generation, ahead.size());
        } else if (ahead.size() > LOG_LINE_BOUND) {
            *text = ahead.substr(0, LOG_LINE_BOUND);
            generation->skipping = true;
            Take(generation, ahead.size());
            return true;
        }
    } while (m_block.find('\n', m_used) != std::string::npos || Fill(generation));

    ahead = std::string_view(m_block).substr(m_used);
    const bool mayGrow = m_follow && generation == m_generations.back().get();
    if (ahead.empty() || mayGrow)
        return false;
    *text = WithoutLineEnd(ahead);
    Take(generation, ahead.size());
    return true;
}

bool LogReader::NextText(std::string* text)
{
    for (const std::unique_ptr<Generation>& generation : m_generations) {
        if (generation->at < generation->end && NextTextOf(generation.get(), text))
            return true;
    }
    return false;
}

/* The library writes in the system's ANSI code page. */
static bool IsAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char letter) { return static_cast<signed char>(letter) >= 0; });
}

const LogLine* LogReader::Head()
{
    std::string text;
    while (!m_hasHead && NextText(&text)) {
        m_head.text = IsAscii(text) ? std::move(text) : FromAnsi(text);
        m_head.isRecord = ParseLogLine(m_source.kind, m_head.text, &m_head.record);
        if (m_head.isRecord)
            m_head.time = m_head.record.time;
        else
            m_unread++;
        m_hasHead = Matches(m_filter, m_head.text, m_head.isRecord ? &m_head.record : nullptr);
    }
    return m_hasHead ? &m_head : nullptr;
}

void LogReader::Advance()
{
    m_hasHead = false;
}

/* ---- Backward ---- */

bool LogReader::MatchesText(const std::string& text) const
{
    LogRecord         record;
    const std::string line = IsAscii(text) ? text : FromAnsi(text);
    return Matches(m_filter, line, ParseLogLine(m_source.kind, line, &record) ? &record : nullptr);
}

/* Places one file so that at most so many matching lines of it lie ahead; returns how many do. */
size_t LogReader::GoBackIn(Generation* generation, size_t count)
{
    LinesBackward lines(generation->file.get(), generation->end);
    const bool    mayGrow = m_follow && generation == m_generations.back().get();
    size_t        found = 0;
    generation->at = generation->end;
    while ((found < count || (mayGrow && generation->at == generation->end)) && lines.Previous()) {
        if (mayGrow && !lines.IsWhole())
            generation->at = lines.At();  // ahead in any case
        else if (found < count && (m_filter.Empty() || MatchesText(WithoutLineEnd(lines.Text())))) {
            found++;
            generation->at = lines.At();
        } else if (found == count)
            break;
    }
    if (lines.Error() != ERROR_SUCCESS)
        FailRead(generation, lines.Error());
    return found;
}

size_t LogReader::GoToLast(size_t count)
{
    size_t found = 0;
    for (auto generation = m_generations.rbegin(); generation != m_generations.rend(); ++generation)
        found += GoBackIn(generation->get(), count - found);
    return found;
}

}  // namespace dkpf
