#include <nlohmann/json.hpp>

#include "config_check.h"
#include "config_keys.h"
#include "config_text.h"

namespace dkpf {

using Json = nlohmann::ordered_json;

static constexpr int CONFIG_FORMAT = 1;  // rises when a field changes its meaning or goes; new fields do not raise it

static std::string Dump(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

static Json PolicyJson(const XMLLIB_SETTING& setting)
{
    return { { "name", KeyName(setting.szKey) },
             { "key", setting.szKey },
             { "type", "dword" },
             { "min", setting.dwMin },
             { "max", setting.dwMax },
             { "default", setting.dwDefault },
             { "unit", setting.szUnit },
             { "new_value_after", setting.bRestart ? "restart" : "reload" },
             { "help", setting.szHelp } };
}

/* Numbers of a refused file say nothing: a wrong one shows the default. */
static Json InFileJson(const XMLLIB_REPORT& report, const XMLLIB_SETTING& setting)
{
    return report.finding.dwStatus == XMLLIB_OK && setting.bInFile ? Json(setting.dwValue) : Json();
}

std::string ConfigGetJson(const ConfigFacts& facts)
{
    const XMLLIB_REPORT& report = *facts.report;
    const bool           accepted = report.finding.dwStatus == XMLLIB_OK;
    Json                 settings = Json::array();
    for (const XMLLIB_SETTING* setting : SettingsOf(report)) {
        if (facts.only != nullptr && facts.only != setting)
            continue;
        const std::optional<DWORD> inForce = InForceOf(*setting, facts.running);
        Json                       json = PolicyJson(*setting);
        json["in_file"] = InFileJson(report, *setting);
        json["in_force"] = inForce ? Json(*inForce) : Json();
        settings.push_back(json);
    }
    return Dump({ { "format", CONFIG_FORMAT },
                  { "file", facts.file },
                  { "accepted", accepted },
                  { "refusal", accepted ? "" : RefusalText(report) },
                  { "agent_pid", facts.running != nullptr ? Json(facts.running->pid) : Json() },
                  { "settings", settings } });
}

std::string ConfigSchemaJson(const XMLLIB_REPORT& report)
{
    Json settings = Json::array();
    for (const XMLLIB_SETTING* setting : SettingsOf(report))
        settings.push_back(PolicyJson(*setting));
    return Dump({ { "format", CONFIG_FORMAT }, { "settings", settings } });
}

std::string ConfigCheckJson(const XMLLIB_REPORT& report, const std::string& file)
{
    const XMLLIB_FINDING& finding = report.finding;
    const bool            accepted = finding.dwStatus == XMLLIB_OK;
    const bool            aboutValue = finding.dwMax != 0;
    Json                  unknown = Json::array();
    for (DWORD i = 0; i < report.dwUnknown && i < XMLLIB_UNKNOWN_MAX; i++) {
        unknown.push_back({ { "key", report.unknown[i].szKey },
                            { "line", report.unknown[i].dwLine },
                            { "column", report.unknown[i].dwColumn } });
    }
    Json settings = Json::array();
    for (const XMLLIB_SETTING* setting : SettingsOf(report))
        settings.push_back({ { "name", KeyName(setting->szKey) },
                             { "in_file", InFileJson(report, *setting) },
                             { "value", accepted ? Json(setting->dwValue) : Json() } });
    Json json = { { "format", CONFIG_FORMAT }, { "file", file }, { "accepted", accepted } };
    json["finding"] = Json();
    if (!accepted) {
        json["finding"] = { { "status", finding.dwStatus },
                            { "file", finding.szFile },
                            { "line", finding.dwLine },
                            { "column", finding.dwColumn },
                            { "key", finding.szKey },
                            { "value", finding.szValue },
                            { "reason", finding.szReason },
                            { "min", aboutValue ? Json(finding.dwMin) : Json() },
                            { "max", aboutValue ? Json(finding.dwMax) : Json() } };
    }
    json["unknown_count"] = report.dwUnknown;
    json["unknown"] = unknown;
    json["settings"] = settings;
    return Dump(json);
}

}  // namespace dkpf
