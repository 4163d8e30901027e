#include "config_text.h"

#include <fmt/format.h>

#include "config_check.h"
#include "config_keys.h"
#include "text.h"

namespace dkpf {

static const char* HoldsAfter(const XMLLIB_SETTING& setting)
{
    return setting.bRestart ? "restart" : "reload";
}

static std::string OneText(const ConfigFacts& facts)
{
    const XMLLIB_SETTING&      setting = *facts.only;
    const std::optional<DWORD> inForce = InForceOf(setting, facts.running);
    const auto                 line = [](const char* what, const std::string& words) {
        return fmt::format("  {:<17}{}\n", what, words);
    };
    std::string text = std::string(KeyName(setting.szKey)) + "\n";
    text += line("in file", setting.bInFile ? ValueText(setting, setting.dwValue) : "missing: the default holds");
    text += line("in force", inForce                    ? ValueText(setting, *inForce)
                             : facts.running == nullptr ? "no agent is running"
                                                        : "the agent does not say");
    text += line("default", ValueText(setting, setting.dwDefault));
    text += line("range", RangeText(setting));
    text += line("new value after", setting.bRestart ? "a restart of the agent" : "a reload");
    return text + Wrapped(setting.szHelp, 2);
}

std::string ConfigGetText(const ConfigFacts& facts)
{
    if (facts.only != nullptr)
        return OneText(facts);
    constexpr char shape[] = "{:<27}{:>9}{:>10}{:>9}  {:<6}{}\n";
    std::string    text = facts.file + "\n";
    text += fmt::format(shape, "key", "in file", "in force", "default", "unit", "new value after");
    for (const XMLLIB_SETTING* setting : SettingsOf(*facts.report)) {
        const std::optional<DWORD> inForce = InForceOf(*setting, facts.running);
        text +=
            fmt::format(shape, KeyName(setting->szKey), setting->bInFile ? NumberText(*setting, setting->dwValue) : "-",
                        inForce ? NumberText(*setting, *inForce) : "-", NumberText(*setting, setting->dwDefault),
                        setting->szUnit, HoldsAfter(*setting));
    }
    if (facts.running == nullptr)
        text += "in force: no agent is running\n";
    return text;
}

std::string ConfigSchemaText(const XMLLIB_REPORT& report)
{
    std::string text;
    for (const XMLLIB_SETTING* setting : SettingsOf(report)) {
        text += fmt::format("{}\n    dword, {}, default {}, new value after a {}\n", setting->szKey,
                            RangeText(*setting), ValueText(*setting, setting->dwDefault), HoldsAfter(*setting));
        text += Wrapped(setting->szHelp, 4);
    }
    return text;
}

std::string UnknownKeysText(const XMLLIB_REPORT& report)
{
    std::string text;
    for (DWORD i = 0; i < report.dwUnknown && i < XMLLIB_UNKNOWN_MAX; i++) {
        const XMLLIB_UNKNOWN& unknown = report.unknown[i];
        const std::string     nearest = NearestKeys(report, unknown.szKey);
        text += fmt::format("warning: line {}, column {}: nobody reads {}{}\n", unknown.dwLine, unknown.dwColumn,
                            unknown.szKey, nearest.empty() ? "" : "; did you mean " + nearest + "?");
    }
    if (report.dwUnknown > XMLLIB_UNKNOWN_MAX)
        text += fmt::format("warning: {} more keys that nobody reads\n", report.dwUnknown - XMLLIB_UNKNOWN_MAX);
    return text;
}

}  // namespace dkpf
