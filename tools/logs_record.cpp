#include "logs_record.h"

#include <algorithm>
#include <charconv>

#include "event_log.h"

namespace dkpf {

/* ---- Logs ---- */

const std::vector<LogSource>& LogSources()
{
    static const std::vector<LogSource> sources = {
        { "diskperf", "diskperf", LogKind::Trace },
        { "trace", "diskperf_trace", LogKind::Trace },
        { "conf", "diskperf_conf", LogKind::Trace },
        { "events", "diskperf_event", LogKind::Events },
    };
    return sources;
}

const LogSource* FindLogSource(std::string_view name)
{
    static constexpr std::string_view extension = ".log";
    if (name.size() > extension.size() && name.substr(name.size() - extension.size()) == extension)
        name.remove_suffix(extension.size());
    for (const LogSource& source : LogSources()) {
        if (name == source.name || name == source.file)
            return &source;
    }
    return nullptr;
}

/* ---- Lines ---- */

/* Takes letters off the front of a line, piece by piece. Each answers FALSE where the piece is not there. */
class LineFront {
public:
    explicit LineFront(std::string_view line) : m_rest(line)
    {
    }
    bool Skip(std::string_view piece)
    {
        if (m_rest.substr(0, piece.size()) != piece)
            return false;
        m_rest.remove_prefix(piece.size());
        return true;
    }
    bool Number(int base, DWORD* value)
    {
        const auto parsed = std::from_chars(m_rest.data(), m_rest.data() + m_rest.size(), *value, base);
        if (parsed.ec != std::errc())
            return false;
        m_rest.remove_prefix(static_cast<size_t>(parsed.ptr - m_rest.data()));
        return true;
    }
    bool Upto(size_t at, std::string_view* piece)
    {
        if (at == std::string_view::npos)
            return false;
        *piece = m_rest.substr(0, at);
        m_rest.remove_prefix(at);
        return true;
    }
    std::string_view Rest() const
    {
        return m_rest;
    }

private:
    std::string_view m_rest;
};

/* Where the "(123) " behind a source name begins; a source name may itself hold brackets. */
static size_t FindLineNumber(std::string_view text)
{
    for (size_t at = text.find('('); at != std::string_view::npos; at = text.find('(', at + 1)) {
        size_t end = at + 1;
        while (end < text.size() && text[end] >= '0' && text[end] <= '9')
            end++;
        if (end > at + 1 && text.substr(end, 2) == ") ")
            return at;
    }
    return std::string_view::npos;
}

/* 2026/03/07 14:05:09.042 1180:2044 0x0001 diskperf/src/diskperf_shm(123) _DkpfShmOpenMapping: text */
static bool ParseTraceLine(std::string_view line, LogRecord* record)
{
    LogRecord parsed;
    parsed.time = line.substr(0, LOG_TIME_LENGTH);
    if (!IsLogTime(parsed.time))
        return false;
    LineFront  front(line.substr(LOG_TIME_LENGTH));
    const bool head = front.Skip(" ") && front.Number(10, &parsed.pid) && front.Skip(":") &&
                      front.Number(10, &parsed.tid) && front.Skip(" 0x") && front.Number(16, &parsed.level) &&
                      front.Skip(" ");
    if (!head || !front.Upto(FindLineNumber(front.Rest()), &parsed.source))
        return false;
    const bool place = front.Skip("(") && front.Number(10, &parsed.line) && front.Skip(") ") &&
                       front.Upto(front.Rest().find(':'), &parsed.routine) && front.Skip(":");
    if (!place)
        return false;
    parsed.text = front.Rest();
    *record = parsed;
    return true;
}

/* Top two bits of an event number to the level bit that says the same. */
static DWORD LevelOfEvent(DWORD event)
{
    static constexpr DWORD levels[] = { 4, 4, 2, 1 };
    return levels[event >> 30];
}

static bool ParseEventRecord(std::string_view line, LogRecord* record)
{
    EventParts parts;
    if (!SplitEventLine(line, &parts))
        return false;
    *record = LogRecord();
    record->time = parts.time;
    record->level = LevelOfEvent(parts.id);
    record->text = parts.text;
    record->severity = parts.severity;
    record->event = parts.id;
    return true;
}

bool ParseLogLine(LogKind kind, std::string_view line, LogRecord* record)
{
    return kind == LogKind::Events ? ParseEventRecord(line, record) : ParseTraceLine(line, record);
}

/* ---- Levels ---- */

struct LevelName {
    const char* name;
    DWORD       bit;
};

static constexpr LevelName LEVELS[] = { { "error", 0x0001 }, { "warning", 0x0002 }, { "notice", 0x0004 },
                                        { "entry", 0x0008 }, { "detail", 0x0010 },  { "dump", 0x0020 },
                                        { "event", 0x8000 } };

std::vector<std::string> LevelNames(DWORD level)
{
    std::vector<std::string> names;
    for (const LevelName& known : LEVELS) {
        if ((level & known.bit) != 0)
            names.push_back(known.name);
    }
    return names;
}

static bool ParseLevel(std::string_view word, DWORD* bits)
{
    for (const LevelName& known : LEVELS) {
        if (word == known.name) {
            *bits = known.bit;
            return true;
        }
    }
    LineFront  front(word);
    const bool hex = front.Skip("0x") || front.Skip("0X");
    return front.Number(hex ? 16 : 10, bits) && front.Rest().empty();
}

bool ParseLevels(std::string_view text, DWORD* mask)
{
    DWORD all = 0;
    for (;;) {
        const size_t comma = text.find(',');
        DWORD        bits = 0;
        if (!ParseLevel(text.substr(0, comma), &bits))
            return false;
        all |= bits;
        if (comma == std::string_view::npos)
            break;
        text.remove_prefix(comma + 1);
    }
    if (all == 0)
        return false;
    *mask = all;
    return true;
}

}  // namespace dkpf
