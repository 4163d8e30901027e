/*
 * The agent in the foreground: for trying it out, and for machines where it is not installed as a service.
 */
#include <windows.h>
#include <fmt/format.h>

#include "agent_process.h"
#include "console_out.h"

namespace dkpf {

namespace {

class ConsoleFront : public Front {
public:
    bool IsConsole() const override
    {
        return true;
    }
    void Running() override
    {
        Print("dkpfagent: running in the foreground; Ctrl+C stops it\n");
    }
    void StillStopping(DWORD checkPoint, DWORD) override
    {
        if (checkPoint % PRINT_EACH == 0)
            Print(fmt::format("dkpfagent: still stopping, {} s\n", checkPoint));
    }
    void Stopped(AgentExit code) override
    {
        if (code == AGENT_STOP_OVERDUE)
            PrintError("dkpfagent: did not come down in time: the process is ended\n");
    }

private:
    static constexpr DWORD PRINT_EACH = 5;  // s
};

AgentProcess* g_process;  // set before the handler is

BOOL WINAPI OnConsoleControl(DWORD control)
{
    return AnswerConsoleControl(control, *g_process);
}

}  // namespace

int RunInForeground()
{
    static ConsoleFront front;  // a sign of life may hang in it beyond the agent's end
    AgentProcess        process(front);
    g_process = &process;
    SetConsoleCtrlHandler(OnConsoleControl, TRUE);
    const AgentExit code = process.Live();
    SetConsoleCtrlHandler(OnConsoleControl, FALSE);
    return code;
}

}  // namespace dkpf
