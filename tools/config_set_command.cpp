/*
 * dkpfctl config set KEY VALUE [KEY VALUE ...] [--reload]
 */
#include "commands.h"

#include <fmt/format.h>

#include "config_set.h"
#include "console_out.h"
#include "installed_agent.h"
#include "text.h"

namespace dkpf {

namespace {

class InstalledConfiguration : public ConfigSetPorts {
public:
    ~InstalledConfiguration() override
    {
        Release();
    }
    std::string File() override
    {
        return Narrow(m_file);
    }
    std::unique_ptr<XMLLIB_REPORT> Check() override
    {
        return ReadConfiguration(nullptr);
    }
    std::unique_ptr<XMLLIB_REPORT> CheckBeside() override
    {
        return ReadConfiguration(m_pending.Beside().c_str());
    }
    DWORD Open() override
    {
        const DWORD error = m_pending.Open();
        if (error != ERROR_SUCCESS)
            return error;
        // While it is held no editor saves into it, so that nothing is lost between reading and replacing. A file that
        // is not there is a matter of the edit, which says so.
        m_old = CreateFileW(m_file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        return m_old == INVALID_HANDLE_VALUE && GetLastError() == ERROR_SHARING_VIOLATION ? ERROR_SHARING_VIOLATION
                                                                                          : ERROR_SUCCESS;
    }
    DWORD Edit(const std::vector<ConfigChange>& changes, std::string* text, XMLLIB_FINDING* finding) override
    {
        return EditConfiguration(changes, text, finding);
    }
    DWORD Write(const std::string& text) override
    {
        return m_pending.Write(text);
    }
    DWORD KeepRights() override
    {
        return m_pending.KeepRights();
    }
    DWORD Put() override
    {
        Release();
        return m_pending.Put();
    }
    std::optional<AgentState> RunningAgent() override
    {
        return m_agent.Running();
    }

private:
    void Release()
    {
        if (m_old != INVALID_HANDLE_VALUE)
            CloseHandle(m_old);
        m_old = INVALID_HANDLE_VALUE;
    }

    const std::wstring m_file = HomeOfThisProgram().ConfigFile();
    PendingFile        m_pending{ m_file, [](DWORD ms) { Sleep(ms); } };
    HANDLE             m_old = INVALID_HANDLE_VALUE;
    InstalledAgent     m_agent;
};

}  // namespace

/* A second reload within one collect interval stops collecting until the next one: whoever has just reloaded knows. */
static std::string NextReloadText(const std::optional<AgentState>& running)
{
    if (!running || !running->inForce)
        return "";
    return fmt::format("the next reload: not before {} have passed, one collect interval\n",
                       SettingText(COLLECT_INTERVAL, (*running->inForce)[COLLECT_INTERVAL]));
}

ToolExit RunConfigSet(const ConfigSetOptions& options)
{
    if (options.words.size() % 2 != 0) {
        PrintError("dkpfctl: no value is given for " + options.words.back() + "\n");
        return TOOL_USAGE;
    }
    std::vector<KeyValue> values;
    for (size_t i = 0; i < options.words.size(); i += 2)
        values.push_back({ options.words[i], options.words[i + 1] });

    SetOutcome outcome;
    {
        InstalledConfiguration configuration;  // gone before the agent reads the file
        outcome = SetConfiguration(configuration, values, options.reload);
    }
    (outcome.done ? Print : PrintError)(outcome.text);
    if (!outcome.done)
        return TOOL_WRONG;
    InstalledAgent agent;
    if (!options.reload || !agent.Running())
        return TOOL_OK;
    const ReloadOutcome reload = RequestReload(agent);
    (reload.done ? Print : PrintError)(reload.text);
    Print(NextReloadText(agent.Running()));
    return reload.done ? TOOL_OK : TOOL_WRONG;
}

}  // namespace dkpf
