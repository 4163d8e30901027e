#include "config_set.h"

#include <fmt/format.h>

#include "config_keys.h"
#include "text.h"

namespace dkpf {

static SetOutcome Failed(const std::string& words)
{
    return { false, words + "\nthe configuration is as it was\n" };
}

static SetOutcome Refused(const std::string& words)
{
    return Failed("refused: " + words);
}

/* The words of a step that the system refused. */
static SetOutcome StepFailed(const std::string& step, DWORD error)
{
    std::string words = step + ": " + SystemErrorText(error);
    if (error == ERROR_ACCESS_DENIED)
        words += "; run this as an administrator";
    return Failed(words);
}

/* What the edit finds: wrong values of the command line, or what stands in the file. */
static SetOutcome EditRefused(XMLLIB_REPORT* report, const XMLLIB_FINDING& finding)
{
    report->finding = finding;
    if (finding.szFile[0] == '\0')
        return Refused(std::string(KeyName(finding.szKey)) + ": " + ReasonText(*report));
    return Refused(RefusalText(*report));
}

/* Keys by their whole path. Empty, with the reason: a key that is not there, or that is named twice. */
static std::vector<ConfigChange> ChangesOf(const XMLLIB_REPORT& report, const std::vector<KeyValue>& values,
                                           std::string* why)
{
    std::vector<ConfigChange> changes;
    for (const KeyValue& wanted : values) {
        const KeyChoice choice = ChooseKey(report, wanted.key);
        if (choice.setting == nullptr) {
            *why = choice.words;
            return {};
        }
        for (const ConfigChange& change : changes) {
            if (change.key == choice.setting->szKey) {
                *why = std::string(KeyName(change.key)) + " is given twice";
                return {};
            }
        }
        changes.push_back({ choice.setting->szKey, wanted.value });
    }
    return changes;
}

/* The new file as it will be read: accepted, and with the values that were asked for. */
static bool IsAsWanted(const XMLLIB_REPORT& report, const std::vector<ConfigChange>& changes)
{
    for (const ConfigChange& change : changes) {
        const XMLLIB_SETTING* setting = SettingOf(report, change.key);
        const bool            hex = change.value.compare(0, 2, "0x") == 0;
        if (setting == nullptr || !setting->bInFile ||
            setting->dwValue != strtoul(change.value.c_str(), nullptr, hex ? 16 : 10))
            return false;
    }
    return true;
}

static std::string NamesText(const char* words, const std::vector<std::string>& names)
{
    std::string text = names.empty() ? "" : words;
    for (const std::string& name : names)
        text += "  " + name + "\n";
    return text;
}

/* What the running agent does with the new values. */
static std::string WhenText(const XMLLIB_REPORT& after, const std::vector<ConfigChange>& changes,
                            const std::optional<AgentState>& running, bool asksReload)
{
    std::vector<std::string> reload;
    std::vector<std::string> restart;
    std::vector<std::string> inForce;
    if (!running)
        return "the disk agent is not running; it reads the configuration when it starts\n";
    for (const ConfigChange& change : changes) {
        const XMLLIB_SETTING&      setting = *SettingOf(after, change.key);
        const std::optional<DWORD> now = InForceOf(setting, &*running);
        (now == setting.dwValue ? inForce : setting.bRestart ? restart : reload).emplace_back(KeyName(setting.szKey));
    }
    std::string text = NamesText("in force already:\n", inForce);
    if (!asksReload) {
        text += NamesText("taken over by dkpfctl config reload:\n", reload);
        text += NamesText("waiting for a restart of the agent:\n", restart);
    }
    return text;
}

static DWORD ValueOf(const XMLLIB_REPORT& report, size_t index)
{
    const XMLLIB_SETTING* setting = SettingOf(report, std::string(SETTING_ROOT) + SettingAt(index).name);
    return setting != nullptr ? setting->dwValue : 0;
}

/* The performance library takes a new mask over without new files where it writes none at that moment. */
static std::string MaskText(const XMLLIB_REPORT& before, const XMLLIB_REPORT& after)
{
    const bool writes = ValueOf(after, PERF_ENABLE) == 1 && ValueOf(after, PERF_LOG_SAVE) == 1;
    if (writes || ValueOf(before, COLLECT_PARAM) == ValueOf(after, COLLECT_PARAM))
        return "";
    return fmt::format("note: {} is 0. A reload now takes the columns over without\n"
                       "  new CSV files: those that are open go on under their old header when they are\n"
                       "  written again. Set it to 1 before the next reload, or restart the agent.\n",
                       SettingAt(ValueOf(after, PERF_LOG_SAVE) == 1 ? PERF_ENABLE : PERF_LOG_SAVE).name);
}

static std::string DoneText(const std::string& file, const XMLLIB_REPORT& before, const XMLLIB_REPORT& after,
                            const std::vector<ConfigChange>& changes)
{
    std::string text = "set in " + file + "\n";
    for (const ConfigChange& change : changes) {
        const XMLLIB_SETTING& old = *SettingOf(before, change.key);
        const XMLLIB_SETTING& now = *SettingOf(after, change.key);
        // The number of a refused file may be the default that stands for a wrong one.
        std::string was = old.bInFile ? "was " + ValueText(old, old.dwValue)
                                      : "was missing, default " + ValueText(old, old.dwDefault);
        if (before.finding.dwStatus != XMLLIB_OK)
            was = "the file was refused";
        text += fmt::format("  {} = {} ({})\n", KeyName(now.szKey), ValueText(now, now.dwValue), was);
    }
    return text;
}

SetOutcome SetConfiguration(ConfigSetPorts& ports, const std::vector<KeyValue>& values, bool asksReload)
{
    // The policy is needed for the names. Whether the old file is accepted does not matter: setting may mend it.
    std::unique_ptr<XMLLIB_REPORT> before = ports.Check();
    if (before->dwSettings == 0)
        return Refused(RefusalText(*before));
    std::string                     why;
    const std::vector<ConfigChange> changes = ChangesOf(*before, values, &why);
    if (changes.empty())
        return Failed(why);

    DWORD error = ports.Open();
    if (error == ERROR_SHARING_VIOLATION)
        return Failed("busy: another program is just changing the configuration, or holds " + ports.File() +
                      "; try again");
    if (error != ERROR_SUCCESS)
        return StepFailed("the new file cannot be made beside " + ports.File(), error);

    // From here on nobody else changes the file: this is what the new values go into.
    before = ports.Check();
    std::string    old;
    std::string    text;
    XMLLIB_FINDING finding{};
    if (ports.Edit({}, &old, &finding) != XMLLIB_OK || ports.Edit(changes, &text, &finding) != XMLLIB_OK)
        return EditRefused(before.get(), finding);
    if (text == old && before->finding.dwStatus == XMLLIB_OK)
        return { true, "nothing to change: " + ports.File() + " holds these values\n" +
                           WhenText(*before, changes, ports.RunningAgent(), asksReload) };

    error = ports.Write(text);
    if (error != ERROR_SUCCESS)
        return StepFailed("the new file cannot be written beside " + ports.File(), error);
    const std::unique_ptr<XMLLIB_REPORT> after = ports.CheckBeside();
    if (after->finding.dwStatus != XMLLIB_OK)
        return Refused("with these values the file would be refused: " + RefusalText(*after));
    if (!IsAsWanted(*after, changes))
        return Refused("the new file does not give these values when it is read");
    error = ports.KeepRights();
    if (error != ERROR_SUCCESS)
        return StepFailed("the new file cannot be given the rights of " + ports.File(), error);
    error = ports.Put();
    // The folder could be written to, so a denied access is the old file's: it is held by a reader, or read-only.
    if (error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED)
        return Failed(ports.File() + " cannot be replaced: another program holds it, or it is read-only (" +
                      SystemErrorText(error) + ")");
    if (error != ERROR_SUCCESS)
        return StepFailed(ports.File() + " cannot be replaced", error);

    const std::optional<AgentState> running = ports.RunningAgent();
    return { true, DoneText(ports.File(), *before, *after, changes) + WhenText(*after, changes, running, asksReload) +
                       (running ? MaskText(*before, *after) : "") };
}

}  // namespace dkpf
