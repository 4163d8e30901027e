#include <nlohmann/json.hpp>

#include "status_text.h"
#include "text.h"

namespace dkpf {

using Json = nlohmann::ordered_json;

static constexpr int STATUS_FORMAT = 1;  // rises when a field changes its meaning or goes; new fields do not raise it

static Json ServiceJson(const ServiceFact& service)
{
    const ServiceInfo& info = service.info;
    const bool         known = info.installed && info.error == ERROR_SUCCESS;
    return { { "name", service.name },
             { "installed", info.installed },
             { "state", known ? Json(ServiceStateText(info.state)) : Json() },
             { "pid", info.pid != 0 ? Json(info.pid) : Json() },
             { "process_gone", service.processGone },
             { "error", info.error } };
}

static Json NamesJson(const std::vector<size_t>& indexes)
{
    Json names = Json::array();
    for (size_t index : indexes)
        names.push_back(SettingAt(index).name);
    return names;
}

static Json ReloadJson(const ReloadRecord& reload)
{
    return { { "at", reload.at },
             { "result", ReloadResultText(reload.result) },
             { "message", reload.message },
             { "taken_over", NamesJson(reload.takenOver) },
             { "waiting", NamesJson(reload.waiting) } };
}

static Json AgentJson(const StatusFacts& facts)
{
    const AgentState& state = facts.agent.state;
    if (facts.agent.file != StateFile::Read)
        return Json();
    Json json = { { "alive", facts.agentAlive },
                  { "state", PhaseText(state.phase) },
                  { "mode", state.console ? "console" : "service" },
                  { "pid", state.pid },
                  { "started", state.started },
                  { "utc_offset_minutes", state.utcOffsetMinutes },
                  { "exit_code", state.phase == AgentPhase::Stopped ? Json(state.exitCode) : Json() },
                  { "last_reload", Json() },
                  { "last_failure", Json() } };
    if (state.lastReload)
        json["last_reload"] = ReloadJson(*state.lastReload);
    if (state.lastFailure)
        json["last_failure"] = { { "at", state.lastFailure->at }, { "message", state.lastFailure->message } };
    return json;
}

static Json ConfigurationJson(const StatusFacts& facts)
{
    const SettingValues* inForce = InForce(facts);
    Json                 settings = Json::array();
    for (size_t i = 0; i < SETTING_NUM; i++) {
        Json setting = { { "name", SettingAt(i).name },
                         { "unit", SettingAt(i).unit },
                         { "in_force", inForce != nullptr ? Json((*inForce)[i]) : Json() },
                         { "in_file", facts.file.accepted ? Json(facts.file.values[i]) : Json() },
                         { "needs", Json() } };
        if (inForce != nullptr && facts.file.accepted) {
            const SettingNote note = NoteOf(i, (*inForce)[i], facts.file.values[i]);
            if (note != SettingNote::Same)
                setting["needs"] = note == SettingNote::NeedsReload ? "reload" : "restart";
        }
        settings.push_back(setting);
    }
    return { { "file_accepted", facts.file.accepted }, { "refusal", facts.file.refusal }, { "settings", settings } };
}

static Json SampleJson(const StatusFacts& facts)
{
    if (facts.region != RegionStatus::Copied || !facts.view.hasSample)
        return Json();
    return { { "age_s", facts.view.ageMs / 1000.0 },
             { "limit_s", SampleAgeLimitMs(facts) / 1000.0 },
             { "local_time", LocalTimeText(facts.view.localTime) } };
}

static Json FedJson(const FedFact& fed)
{
    if (!fed.known)
        return Json();
    return { { "feeds", fed.feeds }, { "age_s", fed.feeds != 0 ? Json(fed.ageMs / 1000.0) : Json() } };
}

static Json ConsumersJson(const StatusFacts& facts)
{
    Json consumers = Json::array();
    for (const ConsumerFact& consumer : facts.consumers)
        consumers.push_back({ { "row", consumer.row }, { "pid", consumer.pid }, { "life", LifeText(consumer.life) } });
    return consumers;
}

static Json EventsJson(const StatusFacts& facts)
{
    Json entries = Json::array();
    for (const EventEntry& entry : facts.events.entries)
        entries.push_back(
            { { "time", entry.time }, { "severity", entry.severity }, { "id", entry.id }, { "text", entry.text } });
    return { { "since", facts.agent.state.started }, { "entries", entries }, { "unread_lines", facts.events.unread } };
}

static Json TroublesJson(const std::vector<Trouble>& troubles)
{
    Json json = Json::array();
    for (const Trouble& trouble : troubles)
        json.push_back({ { "code", trouble.code }, { "text", trouble.text }, { "cure", trouble.cure } });
    return json;
}

std::string StatusJson(const StatusFacts& facts, const std::vector<Trouble>& troubles)
{
    const bool known = facts.region == RegionStatus::Copied;
    Json       json;
    json["format"] = STATUS_FORMAT;
    json["well"] = AllIsWell(facts, troubles);
    json["troubles"] = TroublesJson(troubles);
    json["doctor"] = facts.doctor ? Json{ { "checks", facts.doctor->checks },
                                          { "findings", facts.doctor->findings },
                                          { "wrong", facts.doctor->wrong } }
                                  : Json();
    json["services"] = { ServiceJson(facts.driver), ServiceJson(facts.feeder), ServiceJson(facts.agentService) };
    json["agent"] = AgentJson(facts);
    json["configuration"] = ConfigurationJson(facts);
    json["sample"] = SampleJson(facts);
    json["fed"] = FedJson(facts.device.fed);
    json["disks"] = known ? Json(facts.view.disks) : Json();
    json["consumers"] = known ? ConsumersJson(facts) : Json();
    json["events"] = EventsJson(facts);
    json["places"] = Json::object();
    for (const auto& place : facts.places)
        json["places"][place.first] = place.second;
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace dkpf
