/*
 * What the foreground form does when the console wants its end.
 */
#ifndef DKPF_AGENT_CONSOLE_CONTROL_H
#define DKPF_AGENT_CONSOLE_CONTROL_H

#include <windows.h>

namespace dkpf {

/* Called from a thread that the system makes for each control. */
class Stoppable {
public:
    virtual ~Stoppable() = default;
    virtual void AskStop() = 0;
    virtual void WaitEnd() = 0;
};

/**
 * @param control  CTRL_..._EVENT. Each of them stops the agent; those behind which the system ends the process are
 *                 answered when the agent is down.
 * @return TRUE: no other handler has to see it
 */
BOOL AnswerConsoleControl(DWORD control, Stoppable& agent);

}  // namespace dkpf

#endif
