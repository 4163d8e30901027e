/*
 * The disk agent of this installation, as the subcommands of config see it and ask it.
 */
#ifndef DKPF_TOOLS_INSTALLED_AGENT_H
#define DKPF_TOOLS_INSTALLED_AGENT_H

#include "home.h"
#include "reload_request.h"

namespace dkpf {

class InstalledAgent : public ReloadPorts {
public:
    ConfigVerdict    CheckFile() override;
    StateFileContent LoadState() override;
    bool             AgentAlive(const AgentState& state) override;
    DWORD            Send(const AgentState& state) override;
    void             Wait(DWORD ms) override;

    /* The state of an agent that runs and has not begun to stop; otherwise nothing. */
    std::optional<AgentState> Running();

private:
    Home m_home = HomeOfThisProgram();
};

}  // namespace dkpf

#endif
