#include "query_text.h"

#include <fmt/format.h>
#include <algorithm>
#include <charconv>

#include "region_view.h"
#include "text.h"

namespace dkpf {

static constexpr size_t TABLE_WIDTH = 100;
static constexpr size_t COLUMN_GAP = 2;

std::string CounterTitle(const CounterNames& names, size_t counter)
{
    const bool known = counter < names.counters.size() && !names.counters[counter].name.empty();
    return known ? names.counters[counter].name : fmt::format("counter {}", counter);
}

/* Titles are ASCII; another letter compares as it is. */
static std::string Lower(std::string text)
{
    for (char& letter : text) {
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    }
    return text;
}

static bool IsNumber(const std::string& text, size_t least, size_t most, size_t* number)
{
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && *number >= least && *number <= most;
}

bool FindCounter(const CounterNames& names, const std::string& text, size_t* counter)
{
    if (IsNumber(text, 0, DKPF_COUNTER_NUM - 1, counter))
        return true;
    for (*counter = 0; *counter < DKPF_COUNTER_NUM; (*counter)++) {
        if (Lower(CounterTitle(names, *counter)) == Lower(text))
            return true;
    }
    return false;
}

std::string ValidCounters(const CounterNames& names)
{
    std::string text;
    for (size_t i = 0; i < DKPF_COUNTER_NUM; i++)
        text += fmt::format("  {:>2}  {}\n", i, CounterTitle(names, i));
    return text;
}

bool IsDiskChoice(const std::string& text)
{
    size_t number = 0;
    return text == "total" || text == "all" || IsNumber(text, 1, DKPF_NMP_MAX, &number);
}

std::vector<ReadingRow> ChosenRows(const std::vector<ReadingRow>& rows, const std::string& disk)
{
    if (disk == "all")
        return rows;
    const std::string       number = disk == "total" ? "0" : disk;
    std::vector<ReadingRow> chosen;
    for (const ReadingRow& row : rows) {
        if (std::to_string(row.disk) == number)
            chosen.push_back(row);
    }
    return chosen;
}

std::string NotPresentText(const std::vector<ReadingRow>& rows, const std::string& disk)
{
    std::string present;
    for (const ReadingRow& row : rows) {
        if (row.disk != 0)
            present += (present.empty() ? "" : ", ") + std::to_string(row.disk);
    }
    return fmt::format("mirror disk {} is not present; present: {}", disk, present.empty() ? "none" : present);
}

static std::string CellText(const Cell& cell)
{
    switch (cell.kind) {
    case CellKind::Value:
        return std::to_string(cell.value);
    case CellKind::Idle:
        return "idle";
    case CellKind::ComeOrGone:
        break;
    }
    return "-";
}

std::string NameSourceText(const QueryFacts& facts)
{
    return facts.names.fromSystem ? "names from the system's tables"
                                  : fmt::format("names from {}, since the system has none", facts.nameTable);
}

static std::string HeadText(const QueryFacts& facts)
{
    const Reading& reading = facts.reading;
    std::string    text = fmt::format("{} of {}\nsample of {}, {} old; interval {}, peaks over {}\n",
                                   facts.names.object.empty() ? "performance object" : facts.names.object,
                                      facts.computer, LocalTimeText(reading.sampleTime), AgeText(reading.ageMs),
                                      AgeText(reading.coveredMs), AgeText(reading.peakMs));
    text += NameSourceText(facts) + "\n";
    if (reading.attachedAgain)
        text += "the disk agent was started again: first interval after it\n";
    return text;
}

/* Disks [first, last) side by side. */
static std::string ColumnsText(const QueryFacts& facts, size_t first, size_t last, size_t titleWidth,
                               const std::vector<size_t>& widths)
{
    std::string text = fmt::format("\n{:<{}}", "", titleWidth);
    for (size_t i = first; i < last; i++)
        text += fmt::format("{:>{}}", facts.reading.rows[i].name, widths[i]);
    text += "\n";
    for (const size_t counter : facts.counters) {
        text += fmt::format("{:<{}}", CounterTitle(facts.names, counter), titleWidth);
        for (size_t i = first; i < last; i++)
            text += fmt::format("{:>{}}", CellText(facts.reading.rows[i].cells[counter]), widths[i]);
        text += "\n";
    }
    return text;
}

std::string QueryTable(const QueryFacts& facts)
{
    size_t              titleWidth = 0;
    bool                changed = false;
    std::vector<size_t> widths;
    for (const size_t counter : facts.counters)
        titleWidth = std::max(titleWidth, CounterTitle(facts.names, counter).size());
    for (const ReadingRow& row : facts.reading.rows) {
        size_t width = row.name.size();
        for (const size_t counter : facts.counters) {
            width = std::max(width, CellText(row.cells[counter]).size());
            changed = changed || row.cells[counter].kind == CellKind::ComeOrGone;
        }
        widths.push_back(width + COLUMN_GAP);
    }

    std::string text = HeadText(facts);
    for (size_t first = 0; first < widths.size();) {
        size_t last = first + 1;
        for (size_t width = titleWidth + widths[first]; last < widths.size() && width + widths[last] <= TABLE_WIDTH;
             last++)
            width += widths[last];
        text += ColumnsText(facts, first, last, titleWidth, widths);
        first = last;
    }
    if (changed)
        text += "\n-: no value, since the disk (for the total: a disk) came or went in the interval\n";
    return text;
}

static std::string Quoted(const std::string& text)
{
    std::string quoted = "\"";
    for (const char letter : text)
        quoted += letter == '"' ? std::string("\"\"") : std::string(1, letter);
    return quoted + "\"";
}

std::string QueryCsv(const QueryFacts& facts)
{
    const Reading& reading = facts.reading;
    std::string    text = "\"time\",\"computer\",\"age ms\",\"covered ms\",\"peaks ms\",\"disk\",\"name\"";
    for (const size_t counter : facts.counters)
        text += "," + Quoted(CounterTitle(facts.names, counter));
    text += "\n";
    for (const ReadingRow& row : reading.rows) {
        text += fmt::format("{},{},{},{},{},{},{}", Quoted(LocalTimeText(reading.sampleTime)), Quoted(facts.computer),
                            reading.ageMs, reading.coveredMs, reading.peakMs, row.disk, Quoted(row.name));
        for (const size_t counter : facts.counters) {
            const Cell& cell = row.cells[counter];
            text += cell.kind == CellKind::Value ? fmt::format(",{}", cell.value) : std::string(",");
        }
        text += "\n";
    }
    return text;
}

}  // namespace dkpf
