#include "reload_request.h"

#include <fmt/format.h>

#include "text.h"

namespace dkpf {

static bool SameAgent(const AgentState& one, const AgentState& other)
{
    return one.pid == other.pid && one.processStarted == other.processStarted;
}

static ReloadOutcome Answer(const AgentState& state)
{
    const ReloadRecord& reload = *state.lastReload;
    if (reload.result != ReloadResult::Accepted)
        return { false,
                 fmt::format("the agent did not take the configuration over, its old settings stay in force: {}\n",
                             reload.message) };
    std::string text =
        reload.takenOver.empty() ? "read; no setting changed that a reload takes over\n" : "taken over:\n";
    for (size_t index : reload.takenOver)
        text += fmt::format("  {}{}\n", SettingAt(index).name,
                            state.inForce ? " = " + SettingText(index, (*state.inForce)[index]) : "");
    if (!reload.waiting.empty())
        text += "waiting for a restart of the agent:\n";
    for (size_t index : reload.waiting)
        text += fmt::format("  {}{}\n", SettingAt(index).name,
                            state.inForce ? " (in force: " + SettingText(index, (*state.inForce)[index]) + ")" : "");
    return { true, text };
}

ReloadOutcome RequestReload(ReloadPorts& ports)
{
    const ConfigVerdict verdict = ports.CheckFile();
    if (!verdict.accepted)
        return { false, "refused: " + verdict.refusal + "\nnothing was sent to the agent\n" };

    const StateFileContent before = ports.LoadState();
    if (before.file == StateFile::Damaged)
        return { false, "agent.state cannot be read: " + before.why + "\n" };
    if (before.file == StateFile::Missing || before.state.phase == AgentPhase::Stopping ||
        before.state.phase == AgentPhase::Stopped || !ports.AgentAlive(before.state))
        return { false, "the disk agent is not running; it reads the configuration when it starts\n" };

    const DWORD error = ports.Send(before.state);
    if (error != ERROR_SUCCESS)
        return { false, "the agent could not be asked: " + SystemErrorText(error) +
                            (error == ERROR_ACCESS_DENIED ? "; run this as an administrator\n" : "\n") };

    for (int step = 0; step < RELOAD_STEPS; step++) {
        ports.Wait(RELOAD_STEP_MS);
        const StateFileContent now = ports.LoadState();
        if (now.file != StateFile::Read)
            continue;
        if (!SameAgent(before.state, now.state) || now.state.phase == AgentPhase::Stopped)
            return { false, "the agent ended before it answered; see dkpfctl status\n" };
        if (now.state.reloads != before.state.reloads && now.state.lastReload)
            return Answer(now.state);
    }
    return { false, "the agent did not answer in time; see dkpfctl status\n" };
}

}  // namespace dkpf
