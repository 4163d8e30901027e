/*
 * dkpfctl config reload
 */
#include <windows.h>

#include "commands.h"
#include "console_out.h"
#include "home.h"
#include "names.h"
#include "process_info.h"
#include "reload_request.h"
#include "service_control.h"

namespace dkpf {

namespace {

class InstalledAgent : public ReloadPorts {
  public:
    ConfigVerdict CheckFile() override
    {
        return CheckConfiguration(nullptr);
    }
    StateFileContent LoadState() override
    {
        return LoadAgentState(m_home.StateFile());
    }
    bool AgentAlive(const AgentState& state) override
    {
        return LookAtProcess(state.pid, state.processStarted) == ProcessLife::Alive;
    }
    DWORD Send(const AgentState& state) override
    {
        if (!state.console)
            return SystemServices().Control(AGENT_SERVICE, SERVICE_CONTROL_PARAMCHANGE);
        const HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE, AGENT_RELOAD_EVENT);
        if (event == nullptr)
            return GetLastError();
        const DWORD error = SetEvent(event) ? ERROR_SUCCESS : GetLastError();
        CloseHandle(event);
        return error;
    }
    void Wait(DWORD ms) override
    {
        Sleep(ms);
    }

  private:
    Home m_home = HomeOfThisProgram();
};

}  // namespace

ToolExit RunConfigReload()
{
    InstalledAgent      agent;
    const ReloadOutcome outcome = RequestReload(agent);
    (outcome.done ? Print : PrintError)(outcome.text);
    return outcome.done ? TOOL_OK : TOOL_WRONG;
}

}  // namespace dkpf
