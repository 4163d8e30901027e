#include "top_screen.h"

#include <fmt/format.h>
#include <algorithm>
#include <string_view>

namespace dkpf {

/* ---- Values ------------------------------------------------------------------------------------------------------ */

/* Three digits: 1.50, 15.0, 150. */
static std::string ThreeDigits(double value)
{
    if (value < 9.995)
        return fmt::format("{:.2f}", value);
    if (value < 99.95)
        return fmt::format("{:.1f}", value);
    return fmt::format("{:.0f}", value);
}

std::string BytesText(ULONGLONG bytes)
{
    static constexpr const char* units[] = { "KiB", "MiB", "GiB", "TiB", "PiB", "EiB" };
    if (bytes < 1024)
        return fmt::format("{} B", bytes);
    double value = static_cast<double>(bytes) / 1024.0;
    size_t unit = 0;
    for (; value >= 1023.5 && unit + 1 < ARRAYSIZE(units); unit++)  // what would be rounded to 1024
        value /= 1024.0;
    return ThreeDigits(value) + " " + units[unit];
}

std::string MicrosecondsText(ULONGLONG us)
{
    static constexpr ULONGLONG day = 86400ull * 1000000ull;
    if (us < 1000)
        return fmt::format("{} us", us);
    if (us < 999500)
        return ThreeDigits(static_cast<double>(us) / 1e3) + " ms";
    if (us < day)
        return ThreeDigits(static_cast<double>(us) / 1e6) + " s";
    return ">= 1 day";
}

std::string PercentText(ULONGLONG percent)
{
    return percent > 9999 ? ">9999 %" : fmt::format("{} %", percent);
}

/* ---- Columns ----------------------------------------------------------------------------------------------------- */

enum class Unit { Bytes, Microseconds, Percent };

struct Column {
    size_t      counter;
    int         rank;  // 0 is the last to be left out
    Unit        unit;
    const char* title1;  // ^ marks a peak
    const char* title2;
};

/* As they stand from left to right. */
static constexpr Column g_columns[] = {
    { 12, 0, Unit::Bytes, "write", "per s" },
    { 11, 1, Unit::Bytes, "write", "bytes" },
    { 15, 2, Unit::Microseconds, "write", "avg" },
    { 16, 3, Unit::Microseconds, "write", "max ^" },
    { 7, 4, Unit::Bytes, "send", "queue" },
    { 8, 7, Unit::Bytes, "send", "peak ^" },
    { 3, 5, Unit::Bytes, "unsynced", "bytes" },
    { 4, 8, Unit::Bytes, "unsynced", "peak ^" },
    { 0, 6, Unit::Percent, "transfer", "ratio" },
    { 5, 9, Unit::Microseconds, "transfer", "avg" },
    { 6, 10, Unit::Microseconds, "transfer", "max ^" },
    { 1, 11, Unit::Bytes, "request", "queue" },
    { 2, 12, Unit::Bytes, "request", "peak ^" },
    { 9, 13, Unit::Bytes, "history", "buffer" },
    { 10, 14, Unit::Bytes, "history", "peak ^" },
    { 13, 15, Unit::Bytes, "memory", "in use" },
    { 14, 16, Unit::Bytes, "memory", "peak ^" },
};
static_assert(ARRAYSIZE(g_columns) == DKPF_COUNTER_NUM, "one column per counter");

static constexpr int NAME_WIDTH = 6;   // "_Total"
static constexpr int VALUE_WIDTH = 8;  // the widest scaled value
static constexpr int SCREEN_GAP = 2;
static constexpr int PLAIN_GAP = 1;
static constexpr int PLAIN_COLUMNS = 7;  // with the time in front 78 letters

static std::string ValueText(Unit unit, ULONGLONG value)
{
    switch (unit) {
    case Unit::Percent:
        return PercentText(value);
    case Unit::Microseconds:
        return MicrosecondsText(value);
    case Unit::Bytes:
        break;
    }
    return BytesText(value);
}

static std::string CellText(Unit unit, const Cell& cell, bool old)
{
    if (old)
        return "old";
    switch (cell.kind) {
    case CellKind::Idle:
        return "idle";
    case CellKind::ComeOrGone:
        return "-";
    case CellKind::Value:
        break;
    }
    return ValueText(unit, cell.value);
}

/* ---- Lines ------------------------------------------------------------------------------------------------------- */

/* The first letters of a UTF-8 text. */
static std::string Cut(std::string_view text, size_t letters)
{
    size_t end = 0;
    for (; end < text.size(); end++) {
        const bool begins = (static_cast<unsigned char>(text[end]) & 0xC0) != 0x80;
        if (begins && letters-- == 0)
            break;
    }
    return std::string(text.substr(0, end));
}

static std::string TitleLine(const char* Column::*title, int columns, int gap, const char* first)
{
    std::string line = fmt::format("{:<{}}", first, NAME_WIDTH);
    for (const Column& column : g_columns)
        if (column.rank < columns)
            line += fmt::format("{:>{}}", column.*title, gap + VALUE_WIDTH);
    return line;
}

static std::string RowLine(const ReadingRow& row, int columns, int gap, bool old)
{
    std::string line = fmt::format("{:<{}}", Cut(row.name, NAME_WIDTH), NAME_WIDTH);
    for (const Column& column : g_columns)
        if (column.rank < columns)
            line += fmt::format("{:>{}}", CellText(column.unit, row.cells[column.counter], old), gap + VALUE_WIDTH);
    return line;
}

/* "0.4 s", and from a minute on "63 s" */
static std::string SecondsText(DWORD ms)
{
    return ms < 60000 ? fmt::format("{}.{} s", ms / 1000, ms / 100 % 10) : fmt::format("{} s", ms / 1000);
}

static std::string ClockText(const SYSTEMTIME& local)
{
    return fmt::format("{:02}:{:02}:{:02}", local.wHour, local.wMinute, local.wSecond);
}

static std::string DisksText(const Reading& reading)
{
    const auto disks =
        std::count_if(reading.rows.begin(), reading.rows.end(), [](const ReadingRow& row) { return row.disk != 0; });
    return fmt::format("{} {}", disks, disks == 1 ? "disk" : "disks");
}

static std::string TitleText(const CounterNames& names, const std::string& computer)
{
    return computer + ": " + (names.object.empty() ? std::string("performance of the mirror disks") : names.object);
}

static std::string SampleText(const Reading& reading)
{
    const SYSTEMTIME& time = reading.sampleTime;
    std::string       text = "no sample yet";
    if (time.wDay != 0)
        text = fmt::format("sample {:04}-{:02}-{:02} {}, {} old", time.wYear, time.wMonth, time.wDay, ClockText(time),
                           SecondsText(reading.ageMs));
    return text + fmt::format(" | polls missed {} now, {} since start", reading.pollsMissed, reading.pollsMissedTotal);
}

static std::string IntervalText(const Reading& reading)
{
    return fmt::format("collected every {} s | values cover {} | ^ peaks cover {}", reading.collectIntervalS,
                       SecondsText(reading.coveredMs), SecondsText(reading.peakMs));
}

/* "; words" */
static std::string Behind(const std::string& words)
{
    return words.empty() ? std::string() : "; " + words;
}

TopState StateOf(const Reading& reading)
{
    if (reading.state == ReadingState::Unavailable)
        return TopState::Unavailable;
    if (reading.sampleTime.wDay != 0 && reading.ageMs > reading.ageLimitMs)
        return TopState::Dead;
    if (reading.sampleTime.wDay == 0 || reading.rows.empty())
        return TopState::Waiting;
    return reading.state == ReadingState::Stale && reading.pollsMissed > 0 ? TopState::Late : TopState::Live;
}

std::string StateText(const Reading& reading, const std::string& oldValues)
{
    switch (StateOf(reading)) {
    case TopState::Unavailable:
        return "NO VALUES: " + reading.words + "; trying again every second";
    case TopState::Dead:
        return "NO NEW SAMPLE for " + SecondsText(reading.ageMs) + oldValues + Behind(reading.words);
    case TopState::Late:
        return fmt::format("no new sample for {}, {} missed", SecondsText(reading.ageMs),
                           reading.pollsMissed == 1 ? "1 poll" : fmt::format("{} polls", reading.pollsMissed)) +
               Behind(reading.words);
    case TopState::Waiting:
        return "no values yet" + Behind(reading.words);
    case TopState::Live:
        break;
    }
    return std::string();
}

/* ---- Screen ------------------------------------------------------------------------------------------------------ */

/* Breaks a text at its spaces, so that no part of an instruction is cut off. */
static std::vector<std::string> Wrapped(std::string_view text, size_t width)
{
    std::vector<std::string> lines;
    while (Cut(text, width).size() < text.size()) {
        const size_t fits = Cut(text, width).size();
        size_t       end = text.rfind(' ', fits);
        if (end == std::string_view::npos || end == 0)
            end = fits;
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end);
        while (!text.empty() && text.front() == ' ')
            text.remove_prefix(1);
    }
    lines.emplace_back(text);
    return lines;
}

static void Append(std::vector<ScreenLine>* lines, const std::string& text, size_t width, Look look)
{
    for (std::string& line : Wrapped(text, width))
        lines->push_back({ std::move(line), look });
}

static std::vector<ScreenLine> StatusLines(const Reading& reading, size_t width)
{
    std::vector<ScreenLine> lines;
    const TopState          state = StateOf(reading);
    if (state != TopState::Live)
        Append(&lines, StateText(reading, reading.rows.empty() ? "" : ": values below are old"), width,
               state == TopState::Dead || state == TopState::Unavailable ? Look::Loud : Look::Bold);
    if (reading.attachedAgain)
        Append(&lines, "the disk agent was started again: attached to it anew", width, Look::Bold);
    return lines;
}

static std::string LeftOutText(size_t above, size_t below)
{
    if (above == 0)
        return fmt::format("{} more disks", below);  // with their line, at least two
    const std::string text = fmt::format("{} {} above", above, above == 1 ? "disk" : "disks");
    return below == 0 ? text : text + fmt::format(", {} below", below);
}

/* The total, the disks from scroll->first on, and how many are left out. room: lines for all of it, at least 1. */
static std::vector<ScreenLine> RowLines(const std::vector<ReadingRow>& rows, size_t room, int columns, bool old,
                                        TopScroll* scroll)
{
    const bool              whole = rows.size() <= room;
    const size_t            disks = rows.size() - 1;
    std::vector<ScreenLine> lines = { { RowLine(rows[0], columns, SCREEN_GAP, old), Look::Bold } };
    scroll->page = whole ? disks : room - std::min<size_t>(room, 2);
    scroll->first = std::min(scroll->first, disks - scroll->page);
    for (size_t i = 0; i < scroll->page; i++)
        lines.push_back({ RowLine(rows[1 + scroll->first + i], columns, SCREEN_GAP, old) });
    if (!whole && room > 1)
        lines.push_back({ LeftOutText(scroll->first, disks - scroll->page - scroll->first) });
    return lines;
}

std::vector<ScreenLine> TopScreen(const Reading& reading, const CounterNames& names, const std::string& computer,
                                  int width, int height, TopScroll* scroll)
{
    static constexpr int roomyHeight = 12;  // below, the head shrinks to what nobody can do without
    const bool           roomy = height >= roomyHeight;
    const bool           table = reading.state != ReadingState::Unavailable && !reading.rows.empty();
    const bool           old = StateOf(reading) == TopState::Dead;
    const size_t         letters = static_cast<size_t>(width);
    const size_t         heightLines = static_cast<size_t>(height);

    std::vector<ScreenLine> lines;
    if (roomy)
        lines.push_back({ TitleText(names, computer) + (table ? ", " + DisksText(reading) : ""), Look::Bold });
    if (reading.state != ReadingState::Unavailable) {
        lines.push_back({ SampleText(reading) });
        if (roomy)
            lines.push_back({ IntervalText(reading) });
    }
    std::vector<ScreenLine> status = StatusLines(reading, letters);
    if (status.empty() && roomy)
        status.emplace_back();  // kept free, so that the table does not jump
    lines.insert(lines.end(), status.begin(), status.end());

    const size_t footLines = roomy ? 1 : 0;
    bool         scrolls = false;
    if (table) {
        const int columns =
            std::clamp((width - NAME_WIDTH) / (SCREEN_GAP + VALUE_WIDTH), 0, static_cast<int>(DKPF_COUNTER_NUM));
        lines.push_back({ TitleLine(&Column::title1, columns, SCREEN_GAP, ""), Look::Bold });
        lines.push_back({ TitleLine(&Column::title2, columns, SCREEN_GAP, "disk"), Look::Bold });
        const size_t                  used = lines.size() + footLines;
        const size_t                  room = used < heightLines ? heightLines - used : 1;
        const std::vector<ScreenLine> rows = RowLines(reading.rows, room, columns, old, scroll);
        lines.insert(lines.end(), rows.begin(), rows.end());
        scrolls = scroll->page + 1 < reading.rows.size();
    }
    if (roomy) {
        lines.push_back({ "q or Ctrl+C ends" });
        if (scrolls)
            lines.back().text += " | Up Down PgUp PgDn scroll";
        if (!names.object.empty() && !names.fromSystem)
            lines.back().text += " | names from the installed table";
    }

    if (lines.size() > heightLines)
        lines.resize(heightLines);
    for (ScreenLine& line : lines)
        line.text = Cut(line.text, letters);
    return lines;
}

/* ---- Plain lines ------------------------------------------------------------------------------------------------- */

std::string TopHeading(const Reading& reading, const CounterNames& names, const std::string& computer)
{
    static constexpr char timeColumn[] = "time     ";
    std::string text = fmt::format("{}, collected every {} s\n", TitleText(names, computer), reading.collectIntervalS);
    if (!names.object.empty() && !names.fromSystem)
        text += "counter names from the installed table, since the system has none\n";
    text += "^ peaks cover the time since the lines before\n";
    text += std::string(sizeof timeColumn - 1, ' ') + TitleLine(&Column::title1, PLAIN_COLUMNS, PLAIN_GAP, "") + "\n";
    return text + timeColumn + TitleLine(&Column::title2, PLAIN_COLUMNS, PLAIN_GAP, "disk") + "\n";
}

std::string TopLines(const Reading& reading)
{
    std::string text;
    for (const ReadingRow& row : reading.rows)
        text += ClockText(reading.sampleTime) + " " +
                RowLine(row, PLAIN_COLUMNS, PLAIN_GAP, StateOf(reading) == TopState::Dead) + "\n";
    return text;
}

}  // namespace dkpf
