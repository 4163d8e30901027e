#include "installed_agent.h"

#include "names.h"
#include "process_info.h"
#include "service_control.h"

namespace dkpf {

ConfigVerdict InstalledAgent::CheckFile()
{
    return CheckConfiguration(nullptr);
}

StateFileContent InstalledAgent::LoadState()
{
    return LoadAgentState(m_home.StateFile());
}

bool InstalledAgent::AgentAlive(const AgentState& state)
{
    return LookAtProcess(state.pid, state.processStarted) == ProcessLife::Alive;
}

DWORD InstalledAgent::Send(const AgentState& state)
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

void InstalledAgent::Wait(DWORD ms)
{
    Sleep(ms);
}

std::optional<AgentState> InstalledAgent::Running()
{
    const StateFileContent content = LoadState();
    if (content.file != StateFile::Read || content.state.phase == AgentPhase::Stopping ||
        content.state.phase == AgentPhase::Stopped || !AgentAlive(content.state))
        return {};
    return content.state;
}

}  // namespace dkpf
