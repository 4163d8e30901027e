#include "config_check.h"

#include <fmt/format.h>

namespace dkpf {

static const XMLLIB_SETTING* Find(const XMLLIB_REPORT& report, const std::string& key)
{
    for (DWORD i = 0; i < report.dwSettings && i < XMLLIB_SETTING_MAX; i++) {
        if (key == report.setting[i].szKey)
            return &report.setting[i];
    }
    return nullptr;
}

static std::string KeyOf(size_t index)
{
    return std::string(SETTING_ROOT) + SettingAt(index).name;
}

/* "1 to 3600", "0 to 0x1ffff": as the library writes a range in its own sentences. */
static std::string RangeText(const XMLLIB_FINDING& finding, bool hex)
{
    const auto number = [hex](DWORD value) { return fmt::format(hex && value != 0 ? "{:#x}" : "{}", value); };
    return number(finding.dwMin) + " to " + number(finding.dwMax);
}

std::string RefusalText(const XMLLIB_REPORT& report)
{
    const XMLLIB_FINDING& finding = report.finding;
    std::string           text = finding.szFile[0] != '\0' ? finding.szFile : "the configuration";
    if (finding.dwLine != 0)
        text += fmt::format(", line {}", finding.dwLine);
    if (finding.dwColumn != 0)
        text += fmt::format(", column {}", finding.dwColumn);

    const bool aboutValue = finding.dwStatus == XMLLIB_NO_NUMBER || finding.dwStatus == XMLLIB_OUT_OF_RANGE;
    if (finding.szKey[0] != '\0')
        text += std::string(": ") + finding.szKey;
    if (aboutValue)
        text += fmt::format(" is \"{}\"", finding.szValue);

    std::string reason = finding.szReason;
    while (!reason.empty() && reason.back() == '.')
        reason.pop_back();
    text += ": " + (reason.empty() ? fmt::format("status {} of the configuration library", finding.dwStatus) : reason);

    if (aboutValue && finding.dwMax != 0) {
        const XMLLIB_SETTING* setting = Find(report, finding.szKey);
        const std::string     range = RangeText(finding, setting != nullptr && setting->bHex);
        const std::string     unit =
            setting != nullptr && setting->szUnit[0] != '\0' ? " " + std::string(setting->szUnit) : "";
        if (reason.find(range) == std::string::npos)  // some reasons name it already
            text += " (allowed: " + range + unit + ")";
    }
    return text;
}

ConfigVerdict JudgeReport(const XMLLIB_REPORT& report)
{
    ConfigVerdict verdict;
    if (const XMLLIB_SETTING* level = Find(report, KeyOf(LOG_LEVEL)))
        verdict.logLevel = level->dwDefault;
    if (const XMLLIB_SETTING* size = Find(report, KeyOf(LOG_SIZE)))
        verdict.logSize = size->dwDefault;
    for (DWORD i = 0; i < report.dwUnknown && i < XMLLIB_UNKNOWN_MAX; i++) {
        const XMLLIB_UNKNOWN& unknown = report.unknown[i];
        verdict.unknown.push_back(
            fmt::format("line {}, column {}: {}", unknown.dwLine, unknown.dwColumn, unknown.szKey));
    }

    if (report.finding.dwStatus != XMLLIB_OK) {
        verdict.refusal = RefusalText(report);
        return verdict;
    }
    for (size_t i = 0; i < SETTING_NUM; i++) {
        const XMLLIB_SETTING* setting = Find(report, KeyOf(i));
        if (setting == nullptr) {
            verdict.refusal = "the policy of this installation does not describe " + KeyOf(i);
            return verdict;
        }
        verdict.values[i] = setting->dwValue;
    }
    verdict.accepted = true;
    return verdict;
}

}  // namespace dkpf
