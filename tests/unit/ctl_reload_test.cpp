/*
 * dkpfctl config reload against an agent that the test plays.
 */
#include <gmock/gmock.h>
#include <functional>

#include "reload_request.h"

using namespace dkpf;
using testing::HasSubstr;

namespace {

class PlayedAgent : public ReloadPorts {
public:
    ConfigVerdict                     verdict;
    StateFileContent                  content;
    bool                              alive = true;
    DWORD                             sendError = ERROR_SUCCESS;
    int                               sent = 0;
    int                               waits = 0;
    std::function<void(PlayedAgent&)> eachWait = [](PlayedAgent&) {};

    PlayedAgent()
    {
        verdict.accepted = true;
        content.file = StateFile::Read;
        content.state.phase = AgentPhase::Running;
        content.state.pid = 10;
        content.state.processStarted = 1000;
        content.state.reloads = 4;
        content.state.inForce = SettingValues{ 1, 1, 1024, 3, 10, 60, 0x1ffff, 7, 2048 };
        content.state.lastReload = ReloadRecord{ ReloadResult::Accepted, "", "an older answer", {}, {} };
    }

    void Answer(ReloadResult result, const std::string& message, std::vector<size_t> taken, std::vector<size_t> waiting)
    {
        content.state.reloads++;
        content.state.lastReload = ReloadRecord{ result, "", message, std::move(taken), std::move(waiting) };
    }

    ConfigVerdict CheckFile() override
    {
        return verdict;
    }
    StateFileContent LoadState() override
    {
        return content;
    }
    bool AgentAlive(const AgentState&) override
    {
        return alive;
    }
    DWORD Send(const AgentState&) override
    {
        sent++;
        return sendError;
    }
    void Wait(DWORD) override
    {
        waits++;
        eachWait(*this);
    }
};

}  // namespace

TEST(ConfigReload, SaysWhatWasTakenOverAndWhatWaits)
{
    PlayedAgent agent;
    agent.eachWait = [](PlayedAgent& played) {
        if (played.waits == 3) {
            (*played.content.state.inForce)[WRITE_INTERVAL] = 5;
            played.Answer(ReloadResult::Accepted, "", { WRITE_INTERVAL }, { COLLECT_INTERVAL, LOG_SIZE });
        }
    };
    const ReloadOutcome outcome = RequestReload(agent);
    EXPECT_TRUE(outcome.done);
    EXPECT_EQ(outcome.text, "taken over:\n"
                            "  parameters/writeinterval = 5 s\n"
                            "waiting for a restart of the agent:\n"
                            "  parameters/collectinterval (in force: 10 s)\n"
                            "  log/size (in force: 2048 KiB)\n");
    EXPECT_EQ(agent.waits, 3);
}

TEST(ConfigReload, NothingNewIsSaid)
{
    PlayedAgent agent;
    agent.eachWait = [](PlayedAgent& played) { played.Answer(ReloadResult::Accepted, "", {}, {}); };
    EXPECT_EQ(RequestReload(agent).text, "read; no setting changed that a reload takes over\n");
}

TEST(ConfigReload, ARefusedFileIsNeverSent)
{
    PlayedAgent agent;
    agent.verdict.accepted = false;
    agent.verdict.refusal = "cluster.xml, line 7: cut off";
    const ReloadOutcome outcome = RequestReload(agent);
    EXPECT_FALSE(outcome.done);
    EXPECT_EQ(outcome.text, "refused: cluster.xml, line 7: cut off\nnothing was sent to the agent\n");
    EXPECT_EQ(agent.sent, 0);
}

TEST(ConfigReload, WithoutARunningAgentNothingIsSent)
{
    for (const auto& absent : std::vector<std::function<void(PlayedAgent&)>>{
             [](PlayedAgent& agent) { agent.content.file = StateFile::Missing; },
             [](PlayedAgent& agent) { agent.content.state.phase = AgentPhase::Stopped; },
             [](PlayedAgent& agent) { agent.content.state.phase = AgentPhase::Stopping; },
             [](PlayedAgent& agent) { agent.alive = false; } }) {
        PlayedAgent agent;
        absent(agent);
        const ReloadOutcome outcome = RequestReload(agent);
        EXPECT_FALSE(outcome.done);
        EXPECT_THAT(outcome.text, HasSubstr("the disk agent is not running"));
        EXPECT_EQ(agent.sent, 0);
    }
}

TEST(ConfigReload, DamagedAgentStateIsTold)
{
    PlayedAgent agent;
    agent.content.file = StateFile::Damaged;
    agent.content.why = "cut off at byte 7";
    EXPECT_THAT(RequestReload(agent).text, HasSubstr("cut off at byte 7"));
}

TEST(ConfigReload, ARefusedCallSaysWhatToDo)
{
    PlayedAgent agent;
    agent.sendError = ERROR_ACCESS_DENIED;
    const ReloadOutcome outcome = RequestReload(agent);
    EXPECT_FALSE(outcome.done);
    EXPECT_THAT(outcome.text, HasSubstr("run this as an administrator"));
}

TEST(ConfigReload, AnAgentThatRefusesKeepsItsOldSettings)
{
    PlayedAgent agent;
    agent.eachWait = [](PlayedAgent& played) { played.Answer(ReloadResult::Refused, "line 1: empty", {}, {}); };
    const ReloadOutcome outcome = RequestReload(agent);
    EXPECT_FALSE(outcome.done);
    EXPECT_EQ(outcome.text,
              "the agent did not take the configuration over, its old settings stay in force: line 1: empty\n");
}

TEST(ConfigReload, AnAgentThatEndsOrIsReplacedHasNotAnswered)
{
    PlayedAgent replaced;
    replaced.eachWait = [](PlayedAgent& played) { played.content.state.processStarted++; };
    EXPECT_THAT(RequestReload(replaced).text, HasSubstr("ended before it answered"));
    PlayedAgent stopped;
    stopped.eachWait = [](PlayedAgent& played) { played.content.state.phase = AgentPhase::Stopped; };
    EXPECT_THAT(RequestReload(stopped).text, HasSubstr("ended before it answered"));
}

// The file is replaced by rename: a reader may find it away for a moment.
TEST(ConfigReload, AStateThatCannotBeReadForAMomentIsAskedAgain)
{
    PlayedAgent agent;
    agent.eachWait = [](PlayedAgent& played) {
        played.content.file = played.waits == 1 ? StateFile::Missing : StateFile::Read;
        if (played.waits == 2)
            played.Answer(ReloadResult::Accepted, "", { PERF_ENABLE }, {});
    };
    EXPECT_TRUE(RequestReload(agent).done);
}

TEST(ConfigReload, ASilentAgentIsWaitedForABoundedTime)
{
    PlayedAgent         agent;
    const ReloadOutcome outcome = RequestReload(agent);
    EXPECT_FALSE(outcome.done);
    EXPECT_THAT(outcome.text, HasSubstr("did not answer in time"));
    EXPECT_EQ(agent.waits, RELOAD_STEPS);
}
