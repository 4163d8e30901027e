/*
 * Asking the running agent to read its configuration again, and waiting for its answer in agent.state.
 */
#ifndef DKPF_TOOLS_RELOAD_REQUEST_H
#define DKPF_TOOLS_RELOAD_REQUEST_H

#include <windows.h>
#include <string>

#include "agent_state.h"
#include "config_check.h"

namespace dkpf {

inline constexpr DWORD RELOAD_STEP_MS = 100;
inline constexpr int   RELOAD_STEPS = 100;  // asked so often for the answer: 10 s and the time of the looks

class ReloadPorts {
public:
    virtual ~ReloadPorts() = default;
    virtual ConfigVerdict    CheckFile() = 0;
    virtual StateFileContent LoadState() = 0;
    virtual bool             AgentAlive(const AgentState& state) = 0;
    virtual DWORD            Send(const AgentState& state) = 0;  // 0, or the system's error number
    virtual void             Wait(DWORD ms) = 0;
};

struct ReloadOutcome {
    bool        done = false;
    std::string text;  // for people, with line ends
};

ReloadOutcome RequestReload(ReloadPorts& ports);

}  // namespace dkpf

#endif
