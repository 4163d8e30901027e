#include "console_control.h"

namespace dkpf {

BOOL AnswerConsoleControl(DWORD control, Stoppable& agent)
{
    agent.AskStop();
    if (control == CTRL_CLOSE_EVENT || control == CTRL_LOGOFF_EVENT || control == CTRL_SHUTDOWN_EVENT)
        agent.WaitEnd();
    return TRUE;
}

}  // namespace dkpf
