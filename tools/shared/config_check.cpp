#include "config_check.h"

#include <fmt/format.h>

namespace dkpf {

const XMLLIB_SETTING* SettingOf(const XMLLIB_REPORT& report, const std::string& key)
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

std::string NumberText(const XMLLIB_SETTING& setting, DWORD value)
{
    return NumberText(setting.bHex != FALSE, value);
}

static std::string WithUnit(const XMLLIB_SETTING& setting, const std::string& text)
{
    return setting.szUnit[0] == '\0' ? text : text + " " + setting.szUnit;
}

std::string ValueText(const XMLLIB_SETTING& setting, DWORD value)
{
    return WithUnit(setting, NumberText(setting, value));
}

std::string RangeText(const XMLLIB_SETTING& setting)
{
    return WithUnit(setting, NumberText(setting, setting.dwMin) + " to " + NumberText(setting, setting.dwMax));
}

static bool IsAboutValue(const XMLLIB_FINDING& finding)
{
    return finding.dwStatus == XMLLIB_NO_NUMBER || finding.dwStatus == XMLLIB_OUT_OF_RANGE;
}

std::string ReasonText(const XMLLIB_REPORT& report)
{
    const XMLLIB_FINDING& finding = report.finding;
    std::string           text = finding.szReason;
    while (!text.empty() && text.back() == '.')
        text.pop_back();
    if (text.empty())
        text = fmt::format("status {} of the configuration library", finding.dwStatus);

    if (IsAboutValue(finding) && finding.dwMax != 0) {
        XMLLIB_SETTING allowed{};
        if (const XMLLIB_SETTING* setting = SettingOf(report, finding.szKey))
            allowed = *setting;
        allowed.dwMin = finding.dwMin;
        allowed.dwMax = finding.dwMax;
        if (text.find(RangeText(allowed)) == std::string::npos)  // some reasons name it already
            text += " (allowed: " + RangeText(allowed) + ")";
    }
    return text;
}

std::string RefusalText(const XMLLIB_REPORT& report)
{
    const XMLLIB_FINDING& finding = report.finding;
    std::string           text = finding.szFile[0] != '\0' ? finding.szFile : "the configuration";
    if (finding.dwLine != 0)
        text += fmt::format(", line {}", finding.dwLine);
    if (finding.dwColumn != 0)
        text += fmt::format(", column {}", finding.dwColumn);

    if (finding.szKey[0] != '\0')
        text += std::string(": ") + finding.szKey;
    if (IsAboutValue(finding))
        text += fmt::format(" is \"{}\"", finding.szValue);

    return text + ": " + ReasonText(report);
}

ConfigVerdict JudgeReport(const XMLLIB_REPORT& report)
{
    ConfigVerdict verdict;
    if (const XMLLIB_SETTING* level = SettingOf(report, KeyOf(LOG_LEVEL)))
        verdict.logLevel = level->dwDefault;
    if (const XMLLIB_SETTING* size = SettingOf(report, KeyOf(LOG_SIZE)))
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
        const XMLLIB_SETTING* setting = SettingOf(report, KeyOf(i));
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
