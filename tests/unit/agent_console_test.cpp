/*
 * The end of the foreground form, by each of the console's controls.
 */
#include <gtest/gtest.h>
#include <string>

#include "console_control.h"

using namespace dkpf;

namespace {

class Foreground : public Stoppable {
public:
    std::string calls;

    void AskStop() override
    {
        calls += "ask ";
    }
    void WaitEnd() override
    {
        calls += "wait ";
    }
};

}  // namespace

TEST(ConsoleControl, CtrlCAndCtrlBreakAskForTheStopAndReturnAtOnce)
{
    for (DWORD control : { DWORD{ CTRL_C_EVENT }, DWORD{ CTRL_BREAK_EVENT } }) {
        Foreground agent;
        EXPECT_TRUE(AnswerConsoleControl(control, agent));
        EXPECT_EQ(agent.calls, "ask ") << control;
    }
}

// The system ends the process when the handler of one of these returns.
TEST(ConsoleControl, TheWindowsCloseTheLogoffAndTheShutdownAreHeldUntilAllIsDown)
{
    for (DWORD control : { DWORD{ CTRL_CLOSE_EVENT }, DWORD{ CTRL_LOGOFF_EVENT }, DWORD{ CTRL_SHUTDOWN_EVENT } }) {
        Foreground agent;
        EXPECT_TRUE(AnswerConsoleControl(control, agent));
        EXPECT_EQ(agent.calls, "ask wait ") << control;
    }
}
