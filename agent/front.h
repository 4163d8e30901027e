/*
 * How a form of the agent speaks to whoever started it.
 */
#ifndef DKPF_AGENT_FRONT_H
#define DKPF_AGENT_FRONT_H

#include <windows.h>

#include "exit_codes.h"

namespace dkpf {

/* Called from several threads; lives as long as the process. */
class Front {
public:
    virtual ~Front() = default;
    virtual bool IsConsole() const = 0;
    virtual void Running() = 0;
    virtual void StillStopping(DWORD checkPoint, DWORD hintMs) = 0;  // may hang, as Stopped
    virtual void Stopped(AgentExit code) = 0;
};

/* Whether the end counts as a stop for whoever started the agent. A service that comes to its end though nobody asked
 * for it, and cannot come down, ends without a word: that is what the service manager starts again. */
constexpr bool CountsAsStop(bool console, bool stopAsked, AgentExit code)
{
    return code != AGENT_STOP_OVERDUE || console || stopAsked;
}

}  // namespace dkpf

#endif
