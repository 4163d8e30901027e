#include <nlohmann/json.hpp>

#include "doctor_text.h"

namespace dkpf {

using Json = nlohmann::ordered_json;

static constexpr int DOCTOR_FORMAT = 1;  // rises when a field changes its meaning or goes; new fields do not raise it

std::string DoctorJson(const DoctorFacts& facts, const Findings& findings, const std::optional<FixResult>& fix)
{
    Json json;
    json["format"] = DOCTOR_FORMAT;
    json["computer"] = facts.computer;
    json["time"] = facts.time;
    json["utc_offset_minutes"] = facts.utcOffsetMinutes;
    json["exit_code"] = static_cast<int>(DoctorExit(findings));
    json["checks"] = CheckCount();
    json["wrong"] = CountOf(findings, Level::Wrong);
    json["warnings"] = CountOf(findings, Level::Warning);
    json["notes"] = CountOf(findings, Level::Note);
    json["fix"] = fix ? Json{ { "state", FixStateText(fix->state) }, { "text", fix->text } } : Json();
    json["findings"] = Json::array();
    for (const Finding& finding : findings)
        json["findings"].push_back({ { "check", finding.check },
                                     { "code", finding.code },
                                     { "level", LevelText(finding.level) },
                                     { "text", finding.text },
                                     { "cure", finding.cure } });
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace dkpf
