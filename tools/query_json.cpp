#include <nlohmann/json.hpp>

#include "query_text.h"
#include "text.h"

namespace dkpf {

using Json = nlohmann::ordered_json;

static constexpr int QUERY_FORMAT = 1;  // rises when a field changes its meaning or goes; new fields do not raise it

static const char* StateWord(CellKind kind)
{
    switch (kind) {
    case CellKind::Value:
        return "value";
    case CellKind::Idle:
        return "idle";
    case CellKind::ComeOrGone:
        break;
    }
    return "disk came or went";
}

static Json DiskJson(const QueryFacts& facts, const ReadingRow& row)
{
    Json counters = Json::array();
    for (const size_t counter : facts.counters) {
        const Cell& cell = row.cells[counter];
        counters.push_back({ { "number", counter },
                             { "name", CounterTitle(facts.names, counter) },
                             { "value", cell.kind == CellKind::Value ? Json(cell.value) : Json() },
                             { "state", StateWord(cell.kind) } });
    }
    return { { "disk", row.disk }, { "name", row.name }, { "counters", counters } };
}

/* What belongs to a counter whatever the disk. A table that lacks the text leaves it empty. */
static Json CountersJson(const QueryFacts& facts)
{
    Json counters = Json::array();
    for (const size_t counter : facts.counters) {
        const CounterName& name = facts.names.counters[counter];
        counters.push_back({ { "number", counter },
                             { "name", CounterTitle(facts.names, counter) },
                             { "index", name.index },
                             { "scale", name.scale },
                             { "help", name.help } });
    }
    return counters;
}

std::string QueryJson(const QueryFacts& facts)
{
    const Reading& reading = facts.reading;
    Json           disks = Json::array();
    for (const ReadingRow& row : reading.rows)
        disks.push_back(DiskJson(facts, row));
    const Json json = { { "format", QUERY_FORMAT },
                        { "computer", facts.computer },
                        { "time", IsoTime(reading.sampleTime, facts.utcOffsetMinutes) },
                        { "age_ms", reading.ageMs },
                        { "covered_ms", reading.coveredMs },
                        { "peaks_ms", reading.peakMs },
                        { "collect_interval_s", reading.collectIntervalS },
                        { "attached_again", reading.attachedAgain },
                        { "names_from", facts.names.fromSystem ? "system" : "installed table" },
                        { "object", facts.names.object },
                        { "object_index", facts.names.objectIndex },
                        { "object_help", facts.names.objectHelp },
                        { "counters", CountersJson(facts) },
                        { "disks", disks } };
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace dkpf
