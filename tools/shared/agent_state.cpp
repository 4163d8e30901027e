#include "agent_state.h"

#include <fmt/format.h>
#include <charconv>
#include <nlohmann/json.hpp>

#include "text.h"

namespace dkpf {

using Json = nlohmann::ordered_json;

static constexpr size_t STATE_FILE_BOUND = 65536;  // bytes; ours has about 2,000
static constexpr int    STATE_FORMAT = 1;

static constexpr AgentPhase   g_phases[] = { AgentPhase::Starting, AgentPhase::Running, AgentPhase::Stopping,
                                             AgentPhase::Stopped };
static constexpr ReloadResult g_results[] = { ReloadResult::Accepted, ReloadResult::Refused, ReloadResult::Failed };

const char* PhaseText(AgentPhase phase)
{
    switch (phase) {
    case AgentPhase::Starting:
        return "starting";
    case AgentPhase::Running:
        return "running";
    case AgentPhase::Stopping:
        return "stopping";
    case AgentPhase::Stopped:
        break;
    }
    return "stopped";
}

const char* ReloadResultText(ReloadResult result)
{
    switch (result) {
    case ReloadResult::Accepted:
        return "accepted";
    case ReloadResult::Refused:
        return "refused";
    case ReloadResult::Failed:
        break;
    }
    return "failed";
}

/* ---- Writing ---- */

static Json NamesOf(const std::vector<size_t>& indexes)
{
    Json names = Json::array();
    for (size_t index : indexes)
        names.push_back(SettingAt(index).name);
    return names;
}

std::string AgentStateToJson(const AgentState& state)
{
    Json json;
    json["format"] = STATE_FORMAT;
    json["state"] = PhaseText(state.phase);
    json["mode"] = state.console ? "console" : "service";
    json["pid"] = state.pid;
    json["process_started"] = fmt::format("{}", state.processStarted);  // a text: larger than what readers keep exact
    json["started"] = state.started;
    json["brought_up"] = state.broughtUp;
    json["utc_offset_minutes"] = state.utcOffsetMinutes;
    json["exit_code"] = state.exitCode;
    json["reloads"] = state.reloads;
    if (state.inForce) {
        for (size_t i = 0; i < SETTING_NUM; i++)
            json["in_force"][SettingAt(i).name] = (*state.inForce)[i];
    }
    if (state.lastReload) {
        json["last_reload"]["result"] = ReloadResultText(state.lastReload->result);
        json["last_reload"]["at"] = state.lastReload->at;
        json["last_reload"]["message"] = state.lastReload->message;
        json["last_reload"]["taken_over"] = NamesOf(state.lastReload->takenOver);
        json["last_reload"]["waiting"] = NamesOf(state.lastReload->waiting);
    }
    if (state.lastFailure) {
        json["last_failure"]["at"] = state.lastFailure->at;
        json["last_failure"]["message"] = state.lastFailure->message;
    }
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

/* ---- Reading ---- */

static std::vector<size_t> IndexesOf(const Json& names)
{
    std::vector<size_t> indexes;
    for (const Json& name : names) {
        const size_t index = SettingByName(name.get<std::string>());
        if (index < SETTING_NUM)
            indexes.push_back(index);
    }
    return indexes;
}

static AgentPhase PhaseOf(const std::string& text)
{
    for (AgentPhase phase : g_phases) {
        if (text == PhaseText(phase))
            return phase;
    }
    throw std::runtime_error("unknown state \"" + text + "\"");
}

static ReloadResult ResultOf(const std::string& text)
{
    for (ReloadResult result : g_results) {
        if (text == ReloadResultText(result))
            return result;
    }
    throw std::runtime_error("unknown reload result \"" + text + "\"");
}

static AgentState StateOf(const Json& json)
{
    if (json.at("format").get<int>() != STATE_FORMAT)
        throw std::runtime_error("a format that this program does not know");

    AgentState        state;
    const std::string processStarted = json.at("process_started").get<std::string>();
    state.phase = PhaseOf(json.at("state").get<std::string>());
    state.console = json.at("mode").get<std::string>() == "console";
    state.pid = json.at("pid").get<DWORD>();
    std::from_chars(processStarted.data(), processStarted.data() + processStarted.size(), state.processStarted);
    state.started = json.at("started").get<std::string>();
    state.broughtUp = json.value("brought_up", std::string());
    state.utcOffsetMinutes = json.at("utc_offset_minutes").get<int>();
    state.exitCode = json.at("exit_code").get<DWORD>();
    state.reloads = json.at("reloads").get<DWORD>();
    if (json.contains("in_force")) {
        state.inForce.emplace();
        for (size_t i = 0; i < SETTING_NUM; i++)
            (*state.inForce)[i] = json["in_force"].at(SettingAt(i).name).get<DWORD>();
    }
    if (json.contains("last_reload")) {
        const Json& reload = json["last_reload"];
        state.lastReload = ReloadRecord{ ResultOf(reload.at("result").get<std::string>()),
                                         reload.at("at").get<std::string>(), reload.at("message").get<std::string>(),
                                         IndexesOf(reload.at("taken_over")), IndexesOf(reload.at("waiting")) };
    }
    if (json.contains("last_failure")) {
        const Json& failure = json["last_failure"];
        state.lastFailure =
            FailureRecord{ failure.at("at").get<std::string>(), failure.at("message").get<std::string>() };
    }
    return state;
}

bool AgentStateFromJson(const std::string& text, AgentState* state, std::string* why)
{
    try {
        *state = StateOf(Json::parse(text));
        return true;
    } catch (const std::exception& failure) {
        *why = failure.what();
        return false;
    }
}

StateFileContent LoadAgentState(const std::wstring& path)
{
    StateFileContent content;
    std::string      text;
    const DWORD      error = ReadWholeFile(path, STATE_FILE_BOUND, &text);
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return content;
    if (error != ERROR_SUCCESS) {
        content.file = StateFile::Damaged;
        content.why = "it could not be read: " + SystemErrorText(error);
        return content;
    }
    content.file = AgentStateFromJson(text, &content.state, &content.why) ? StateFile::Read : StateFile::Damaged;
    return content;
}

DWORD SaveAgentState(const std::wstring& path, const AgentState& state, const WaitFn& wait)
{
    return ReplaceWholeFile(path, AgentStateToJson(state), wait);
}

}  // namespace dkpf
