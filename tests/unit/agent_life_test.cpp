/*
 * The agent's life against doubles: what it does in which order, what it says and what it leaves in agent.state.
 */
#include <gmock/gmock.h>
#include <algorithm>
#include <deque>
#include <vector>

#include "agent_life.h"
#include "tnwdiskperf.h"
#include "tnwlog.h"

using namespace dkpf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const SettingValues DEFAULTS = { 1, 1, 1024, 3, 10, 60, 0x1ffff, 7, 2048 };

ConfigVerdict Accepted(const SettingValues& values)
{
    ConfigVerdict verdict;
    verdict.accepted = true;
    verdict.values = values;
    return verdict;
}

ConfigVerdict Refused(const char* why)
{
    ConfigVerdict verdict;
    verdict.refusal = why;
    return verdict;
}

/* Everything around the agent. Calls are recorded in one list, so that their order shows. */
class World : public ProducerGuard,
              public Product,
              public Configuration,
              public DriverService,
              public DriverDevice,
              public Journal,
              public StateStore,
              public Clock,
              public Supervisor {
public:
    struct Written {
        DWORD       level;
        std::string text;
    };

    std::vector<std::string> calls;
    std::vector<Written>     lines;
    std::vector<AgentState>  saved;

    GuardResult               guardResult = GuardResult::Taken;
    std::deque<ConfigVerdict> verdicts;  // the last one stays
    ServiceStart              driver{ true, "is running already" };
    bool                      initializes = true;
    std::deque<bool>          initializeResults;  // one after another, instead of initializes
    DWORD                     initializeCode = DKPF_ERR_SUCCESS;
    bool                      reinitializes = true;
    DWORD                     reinitializeCode = DKPF_ERR_SUCCESS;
    bool                      terminates = true;
    DWORD                     terminateCode = DKPF_ERR_SUCCESS;
    std::deque<bool>          holds;    // the device opens; the last one stays
    std::deque<bool>          lives;    // its handle; the last one stays
    std::deque<Signal>        signals;  // then Stop
    std::deque<int>           offsets;  // minutes; the last one stays
    std::deque<DWORD>         saveErrors;
    std::deque<WORD>          times;              // seconds of the clock; the last one stays
    DWORD                     tick = 0xFFFFF000;  // wraps 4 s behind the start
    DWORD                     reloadMs = 0;       // from one reload to the next
    bool                      stopDuringDriver = false;
    DWORD                     openedLevel = 0;
    DWORD                     openedSize = 0;
    DWORD                     driverLimit = 0;
    std::vector<DWORD>        waits;  // ms

    GuardResult Take(std::string* words) override
    {
        calls.push_back("guard");
        *words = "words of the guard";
        return guardResult;
    }
    bool Initialize(DWORD* code) override
    {
        calls.push_back("initialize");
        *code = initializeCode;
        Next(&times, WORD{ 0 });  // it takes its time
        return Next(&initializeResults, initializes);
    }
    bool Reinitialize(DWORD* code) override
    {
        calls.push_back("reinitialize");
        *code = reinitializeCode;
        return reinitializes;
    }
    bool Terminate(DWORD* code) override
    {
        calls.push_back("terminate");
        *code = terminateCode;
        return terminates;
    }
    ConfigVerdict Check() override
    {
        calls.push_back("check");
        return Next(&verdicts, Accepted(DEFAULTS));
    }
    ServiceStart EnsureRunning(DWORD limitMs, const std::function<bool()>& stopAsked) override
    {
        calls.push_back("driver");
        driverLimit = limitMs;
        if (stopDuringDriver)
            m_stop = true;
        return stopAsked() ? ServiceStart{ false, "was not waited for" } : driver;
    }
    bool Hold() override
    {
        const bool opens = Next(&holds, true);
        calls.push_back(opens ? "hold" : "hold in vain");
        return opens;
    }
    bool Lives() override
    {
        return Next(&lives, true);
    }
    void Open(DWORD level, DWORD sizeKiB) override
    {
        openedLevel = level;
        openedSize = sizeKiB;
    }
    void Line(DWORD level, const SourcePlace&, const std::string& text) override
    {
        lines.push_back({ level, text });
    }
    DWORD Save(const AgentState& state) override
    {
        saved.push_back(state);
        return Next(&saveErrors, DWORD{ ERROR_SUCCESS });
    }
    SYSTEMTIME LocalTime() override
    {
        return SYSTEMTIME{ 2026, 3, 6, 7, 14, 5, Next(&times, WORD{ 9 }), 42 };
    }
    int UtcOffsetMinutes() override
    {
        return Next(&offsets, 60);
    }
    DWORD Tick() override
    {
        return tick;
    }
    void ReportRunning() override
    {
        calls.push_back("running");
    }
    bool StopAsked() override
    {
        return m_stop;
    }
    Signal Wait(DWORD limitMs) override
    {
        waits.push_back(limitMs);
        if (signals.empty())
            return Signal::Stop;
        const Signal next = signals.front();
        signals.pop_front();
        tick += next == Signal::Reload ? reloadMs : limitMs;
        return next;
    }

    /* All lines of one level. */
    std::vector<std::string> Texts(DWORD level) const
    {
        std::vector<std::string> texts;
        for (const Written& line : lines) {
            if (line.level == level)
                texts.push_back(line.text);
        }
        return texts;
    }

private:
    template <class T> static T Next(std::deque<T>* queue, T otherwise)
    {
        if (queue->empty())
            return otherwise;
        T value = queue->front();
        if (queue->size() > 1)
            queue->pop_front();
        return value;
    }

    bool m_stop = false;
};

class AgentLifeTest : public testing::Test {
protected:
    AgentExit Live(bool console = false)
    {
        AgentLife life({ world, world, world, world, world, world, world, world, world },
                       { console, 4711, 133000000000000000ull, "1.2.3" });
        return life.Run();
    }

    const AgentState& Last() const
    {
        return world.saved.back();
    }

    World world;
};

}  // namespace

/* ---- Start ---- */

TEST_F(AgentLifeTest, AWholeLifeGoesThroughItsStepsInOrder)
{
    EXPECT_EQ(Live(), AGENT_STOPPED);
    EXPECT_THAT(world.calls, ElementsAre("guard", "check", "running", "driver", "hold", "initialize", "terminate"));
    EXPECT_THAT(world.Texts(TNWLOG_NOTICE),
                ElementsAre(HasSubstr(" starts as service"), " the driver's service velcor is running already",
                            " the performance library is up", " stopping", " stopped"));
}

TEST_F(AgentLifeTest, AgentStateTellsEachPhaseAndWhoTheAgentIs)
{
    Live(true);
    std::vector<AgentPhase> phases;
    for (const AgentState& state : world.saved)
        phases.push_back(state.phase);
    EXPECT_THAT(phases,
                ElementsAre(AgentPhase::Starting, AgentPhase::Running, AgentPhase::Stopping, AgentPhase::Stopped));
    EXPECT_EQ(Last().pid, 4711u);
    EXPECT_EQ(Last().processStarted, 133000000000000000ull);
    EXPECT_TRUE(Last().console);
    EXPECT_EQ(Last().started, "2026-03-07T14:05:09.042+01:00");
    EXPECT_EQ(*Last().inForce, DEFAULTS);
    EXPECT_FALSE(Last().lastFailure);
}

TEST_F(AgentLifeTest, ASecondProducerIsRefusedBeforeTheLibraryIsTouchedAndLeavesAgentStateAlone)
{
    world.guardResult = GuardResult::OtherAgent;
    EXPECT_EQ(Live(), AGENT_SECOND);
    EXPECT_THAT(world.calls, ElementsAre("guard"));
    EXPECT_THAT(world.saved, IsEmpty());
    EXPECT_THAT(world.Texts(TNWLOG_ERROR), ElementsAre(" not started: words of the guard"));
}

TEST_F(AgentLifeTest, AnAccountWithoutTheRightHasAnExitCodeOfItsOwn)
{
    world.guardResult = GuardResult::NoRight;
    EXPECT_EQ(Live(true), AGENT_NO_RIGHT);
    EXPECT_THAT(world.saved, IsEmpty());
}

TEST_F(AgentLifeTest, AGuardThatTheSystemRefusesIsAFailureOfTheSystem)
{
    world.guardResult = GuardResult::Failed;
    EXPECT_EQ(Live(), AGENT_SYSTEM_FAILED);
}

TEST_F(AgentLifeTest, ARefusedConfigurationStopsTheStartAndIsRemembered)
{
    world.verdicts = { Refused("cluster.xml, line 5: no number") };
    EXPECT_EQ(Live(), AGENT_CONFIG_REFUSED);
    EXPECT_THAT(world.calls, ElementsAre("guard", "check"));
    EXPECT_THAT(world.Texts(TNWLOG_ERROR),
                ElementsAre(" not started: the configuration is refused: cluster.xml, line 5: no number"));
    EXPECT_EQ(Last().phase, AgentPhase::Stopped);
    EXPECT_EQ(Last().exitCode, 4u);
    EXPECT_EQ(Last().lastFailure->message, "the configuration is refused: cluster.xml, line 5: no number");
    EXPECT_EQ(Last().lastFailure->at, "2026-03-07T14:05:09.042+01:00");
    EXPECT_FALSE(Last().inForce);
}

TEST_F(AgentLifeTest, ARefusedConfigurationIsLoggedWithThePolicysDefaults)
{
    ConfigVerdict verdict = Refused("damaged");
    verdict.logLevel = 3;
    verdict.logSize = 128;
    world.verdicts = { verdict };
    Live();
    EXPECT_EQ(world.openedLevel, 3u);
    EXPECT_EQ(world.openedSize, 128u);
}

TEST_F(AgentLifeTest, AnAcceptedConfigurationSetsTheLogsLevelAndSize)
{
    SettingValues values = DEFAULTS;
    values[LOG_LEVEL] = 0x3f;
    values[LOG_SIZE] = 4096;
    world.verdicts = { Accepted(values) };
    Live();
    EXPECT_EQ(world.openedLevel, 0x3fu);
    EXPECT_EQ(world.openedSize, 4096u);
}

TEST_F(AgentLifeTest, ADriverThatCannotBeStartedIsToldAndTheAgentGoesOn)
{
    world.driver = { false, "is not installed" };
    EXPECT_EQ(Live(), AGENT_STOPPED);
    EXPECT_THAT(world.calls, ElementsAre("guard", "check", "running", "driver", "hold", "initialize", "terminate"));
    EXPECT_THAT(world.Texts(TNWLOG_ERROR),
                ElementsAre(" the driver's service velcor is not installed; going on without it"));
    EXPECT_EQ(Last().lastFailure->message, "the driver's service velcor is not installed");
}

TEST_F(AgentLifeTest, TheDriverIsWaitedForTenSecondsAtMost)
{
    Live();
    EXPECT_EQ(world.driverLimit, 10000u);
}

TEST_F(AgentLifeTest, AStopDuringTheDriversStartNeverBringsTheLibraryUp)
{
    world.stopDuringDriver = true;
    EXPECT_EQ(Live(), AGENT_STOPPED);
    EXPECT_THAT(world.calls, ElementsAre("guard", "check", "running", "driver"));
    EXPECT_EQ(Last().phase, AgentPhase::Stopped);
}

TEST_F(AgentLifeTest, ALibraryThatDoesNotComeUpStopsTheAgentWithTheCodeInWords)
{
    world.initializes = false;
    world.initializeCode = DKPF_ERR_STRING_OPEN;
    EXPECT_EQ(Live(), AGENT_PRODUCT_FAILED);
    EXPECT_THAT(world.calls, ElementsAre("guard", "check", "running", "driver", "hold", "initialize"));
    EXPECT_THAT(Last().lastFailure->message, HasSubstr("0xb0000020: the message strings could not be opened"));
    EXPECT_EQ(Last().phase, AgentPhase::Stopped);
    EXPECT_EQ(Last().exitCode, 5u);
}

TEST_F(AgentLifeTest, TheStartLineNamesVersionFormProcessAndUtcOffset)
{
    world.offsets = { -150 };
    Live(true);
    EXPECT_EQ(world.Texts(TNWLOG_NOTICE).front(),
              " dkpfagent 1.2.3 starts as console program, process 4711, UTC offset -02:30");
}

/* ---- Device ---- */

TEST_F(AgentLifeTest, ADeadHandleIsToldOnceAndTheLibraryComesUpAnewWhenTheDeviceIsBack)
{
    world.lives = { true, false };
    world.holds = { true, false, false, true };  // at the start; twice in vain
    world.signals = { Signal::Nothing, Signal::Nothing, Signal::Nothing, Signal::Nothing };
    Live();
    EXPECT_THAT(world.calls,
                ElementsAre("guard", "check", "running", "driver", "hold", "initialize", "hold in vain", "hold in vain",
                            "hold", "check", "reinitialize", "terminate", "initialize", "terminate"));
    EXPECT_THAT(world.Texts(TNWLOG_WARNING), ElementsAre(" the driver's device is gone; waiting until it opens again"));
    EXPECT_EQ(world.Texts(TNWLOG_NOTICE)[3],
              " the driver's device is there, the performance library was brought up anew");
    EXPECT_EQ(Last().lastFailure->message, "the driver's device is gone");
    EXPECT_EQ(world.saved.size(), 6u);  // starting, running, gone, up anew, stopping, stopped
    EXPECT_EQ(world.saved[2].lastFailure->message, "the driver's device is gone");
}

TEST_F(AgentLifeTest, ADriverThatCameLateAndGoesAgainIsGoneAndNotAbsent)
{
    world.holds = { false, true };
    world.lives = { false, false, true };
    world.signals = { Signal::Nothing, Signal::Nothing };
    world.reinitializeCode = DKPF_ERR_MUTEX_LOCK;
    Live();
    const std::string failed = " DkpfReinitialize ended with 0xb0000006: ";
    EXPECT_THAT(world.Texts(TNWLOG_WARNING),
                ElementsAre(" the driver's device is not there; waiting until it opens again", HasSubstr(failed),
                            " the driver's device is gone; waiting until it opens again", HasSubstr(failed)));
}

TEST_F(AgentLifeTest, ADriverThatWasAbsentAtTheStartIsTakenUpWhenItComes)
{
    world.lives = { false, true };
    world.holds = { false, true };
    world.signals = { Signal::Nothing, Signal::Nothing };
    Live();
    EXPECT_THAT(world.calls, ElementsAre("guard", "check", "running", "driver", "hold in vain", "initialize", "hold",
                                         "check", "reinitialize", "terminate", "initialize", "terminate"));
    EXPECT_THAT(world.Texts(TNWLOG_WARNING),
                ElementsAre(" the driver's device is not there; waiting until it opens again"));
    EXPECT_THAT(world.Texts(TNWLOG_NOTICE),
                Contains(" the driver's device is there, the performance library was brought up anew"));
}

// Readers of agent.state take an event of a stopped thread for settled where it is older than this.
TEST_F(AgentLifeTest, AgentStateTellsWhenTheLibraryWasLastBroughtUp)
{
    world.lives = { false, true };
    world.signals = { Signal::Nothing };
    world.times = { 5, 6, 7, 8, 9, 10, 11 };
    Live();
    EXPECT_EQ(world.saved[0].broughtUp, "");
    EXPECT_EQ(world.saved[1].phase, AgentPhase::Running);
    EXPECT_EQ(world.saved[1].broughtUp, "2026-03-07T14:05:06.042+01:00");
    EXPECT_EQ(Last().broughtUp, "2026-03-07T14:05:09.042+01:00");  // up at 7, gone at 8
}

TEST_F(AgentLifeTest, AHandleThatLivesIsLeftAlone)
{
    world.signals = { Signal::Nothing, Signal::Nothing, Signal::Nothing };
    Live();
    EXPECT_THAT(world.calls, ElementsAre("guard", "check", "running", "driver", "hold", "initialize", "terminate"));
}

TEST_F(AgentLifeTest, WhileCollectionIsOffNobodyLooksAtTheDevice)
{
    SettingValues off = DEFAULTS;
    off[PERF_ENABLE] = 0;
    world.verdicts = { Accepted(off) };
    world.lives = { false };
    world.signals = { Signal::Nothing };
    Live();
    EXPECT_THAT(world.calls, ElementsAre("guard", "check", "running", "driver", "hold", "initialize", "terminate"));
    EXPECT_THAT(world.Texts(TNWLOG_WARNING), IsEmpty());
}

TEST_F(AgentLifeTest, ARefusedConfigurationKeepsTheLibraryUpAndIsLookedAtAgain)
{
    world.verdicts = { Accepted(DEFAULTS), Refused("cut off"), Accepted(DEFAULTS) };
    world.lives = { false, true };  // the agent's new handle lives, the library's does not
    world.signals = { Signal::Nothing, Signal::Nothing };
    Live();
    EXPECT_THAT(world.calls, ElementsAre("guard", "check", "running", "driver", "hold", "initialize", "hold", "check",
                                         "hold", "check", "reinitialize", "terminate", "initialize", "terminate"));
    EXPECT_THAT(world.Texts(TNWLOG_ERROR),
                ElementsAre(" the device is back, but the configuration is refused: cut off"));
    EXPECT_EQ(Last().lastFailure->message, "the device is back, but the configuration is refused: cut off");
}

// A line at each look would push older history out of the log.
TEST_F(AgentLifeTest, WhatKeepsTheLibraryFromComingUpAnewIsToldAndSavedOncePerReason)
{
    world.verdicts = { Accepted(DEFAULTS), Refused("cut off"), Refused("cut off"),   Refused("no number"),
                       Accepted(DEFAULTS), Accepted(DEFAULTS), Refused("no number"), Accepted(DEFAULTS) };
    world.initializeResults = { true, false, false, true };
    world.initializeCode = DKPF_ERR_MAPPING;
    world.lives = { false };
    world.signals.assign(7, Signal::Nothing);
    Live();
    const std::string refused = " the device is back, but the configuration is refused: ";
    EXPECT_THAT(world.Texts(TNWLOG_ERROR),
                ElementsAre(refused + "cut off", refused + "no number",
                            HasSubstr("DkpfInitialize failed with 0xb000001a"), refused + "no number"));
    EXPECT_EQ(Last().lastFailure->message, "the device is back, but the configuration is refused: no number");
    std::vector<std::string> failures;
    for (const AgentState& state : world.saved) {
        if (state.lastFailure && (failures.empty() || failures.back() != state.lastFailure->message))
            failures.push_back(state.lastFailure->message);
    }
    EXPECT_THAT(failures, ElementsAre("the driver's device is gone", HasSubstr("cut off"), HasSubstr("no number"),
                                      HasSubstr("DkpfInitialize"), HasSubstr("no number")));
}

// The next time it is news again.
TEST_F(AgentLifeTest, TheSameHindranceIsToldAgainOnceTheLibraryCameUpInBetween)
{
    world.verdicts = { Accepted(DEFAULTS), Refused("cut off"), Accepted(DEFAULTS), Refused("cut off") };
    world.lives = { false };
    world.signals.assign(3, Signal::Nothing);
    Live();
    EXPECT_EQ(world.Texts(TNWLOG_ERROR).size(), 2u);
    EXPECT_EQ(world.Texts(TNWLOG_WARNING).size(), 2u);
}

TEST_F(AgentLifeTest, ALibraryThatDoesNotComeUpAnewIsTriedAgainWithoutTerminatingItTwice)
{
    world.lives = { false };
    world.signals = { Signal::Nothing, Signal::Nothing };
    world.initializeResults = { true, false, true };
    world.initializeCode = DKPF_ERR_MAPPING;
    Live();
    EXPECT_THAT(world.calls,
                ElementsAre("guard", "check", "running", "driver", "hold", "initialize", "hold", "check",
                            "reinitialize", "terminate", "initialize", "hold", "check", "initialize", "terminate"));
    EXPECT_THAT(Last().lastFailure->message, HasSubstr("DkpfInitialize failed with 0xb000001a"));
}

// Its threads would go on beside those of a library brought up anew, on the same handles.
TEST_F(AgentLifeTest, ThreadsThatHangWhileTheLibraryIsBroughtUpAnewEndTheProcess)
{
    world.lives = { false };
    world.signals = { Signal::Nothing, Signal::Nothing };
    world.terminateCode = DKPF_ERR_THREAD_EXIT;
    EXPECT_EQ(Live(), AGENT_STOP_OVERDUE);
    EXPECT_THAT(world.calls, ElementsAre("guard", "check", "running", "driver", "hold", "initialize", "hold", "check",
                                         "reinitialize", "terminate"));
    EXPECT_EQ(Last().phase, AgentPhase::Stopped);
    EXPECT_EQ(Last().exitCode, 7u);
    EXPECT_THAT(Last().lastFailure->message, HasSubstr("0xb000000a"));
}

TEST_F(AgentLifeTest, ALesserFailureOfTheEndDoesNotKeepTheLibraryFromComingUpAnew)
{
    world.lives = { false, true };
    world.signals = { Signal::Nothing };
    world.terminateCode = DKPF_ERR_UNMAPVIEW;
    EXPECT_EQ(Live(), AGENT_STOPPED);
    EXPECT_EQ(world.calls[world.calls.size() - 2], "initialize");
}

TEST_F(AgentLifeTest, ABroughtUpLibraryHasAllSettingsOfTheFileInForce)
{
    SettingValues changed = DEFAULTS;
    changed[COLLECT_INTERVAL] = 2;
    world.verdicts = { Accepted(DEFAULTS), Accepted(changed) };
    world.lives = { false, true };
    world.signals = { Signal::Nothing };
    Live();
    EXPECT_EQ(*Last().inForce, changed);
}

// Reloads 2 s apart: of six, the third and the sixth come when five seconds have passed.
TEST_F(AgentLifeTest, ReloadsDoNotPutTheLookAtTheDeviceOff)
{
    world.lives = { false };
    world.holds = { true, false };
    world.reloadMs = 2000;
    world.signals.assign(6, Signal::Reload);
    Live();
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "hold in vain"), 2);
    EXPECT_THAT(world.waits, ElementsAre(5000, 3000, 1000, 5000, 3000, 1000, 5000));
}

/* ---- Reload ---- */

TEST_F(AgentLifeTest, AReloadTakesOverFourSettingsAndLetsFiveWait)
{
    const SettingValues all = { 0, 0, 64, 9, 1, 5, 0xf, 1, 100 };
    world.verdicts = { Accepted(DEFAULTS), Accepted(all) };
    world.signals = { Signal::Reload };
    Live();

    const AgentState& after = Last();
    EXPECT_EQ(after.lastReload->result, ReloadResult::Accepted);
    EXPECT_EQ(after.lastReload->at, "2026-03-07T14:05:09.042+01:00");
    EXPECT_THAT(after.lastReload->takenOver, ElementsAre(PERF_ENABLE, PERF_LOG_SAVE, WRITE_INTERVAL, COLLECT_PARAM));
    EXPECT_THAT(after.lastReload->waiting,
                ElementsAre(PERF_LOG_SIZE, PERF_LOG_ROTATION, COLLECT_INTERVAL, LOG_LEVEL, LOG_SIZE));
    EXPECT_EQ(*after.inForce, (SettingValues{ 0, 0, 1024, 3, 10, 5, 0xf, 7, 2048 }));
    EXPECT_EQ(after.reloads, 1u);
    EXPECT_THAT(world.Texts(TNWLOG_NOTICE),
                testing::Contains(" reload: taken over: parameters/perfenable, parameters/perflogsave, "
                                  "parameters/writeinterval and parameters/collectparam"));
    EXPECT_THAT(
        world.Texts(TNWLOG_WARNING),
        ElementsAre(" reload: waits for a restart of the agent: parameters/perflogsize, parameters/perflogrotation, "
                    "parameters/collectinterval, log/level and log/size"));
}

TEST_F(AgentLifeTest, AReloadOfAnUnchangedFileStillReadsItAndSaysThatNothingIsNew)
{
    world.signals = { Signal::Reload };
    Live();
    EXPECT_THAT(world.calls, ElementsAre("guard", "check", "running", "driver", "hold", "initialize", "check",
                                         "reinitialize", "terminate"));
    EXPECT_THAT(world.Texts(TNWLOG_NOTICE), testing::Contains(" reload: taken over: nothing new"));
    EXPECT_THAT(world.Texts(TNWLOG_WARNING), IsEmpty());
    EXPECT_THAT(Last().lastReload->takenOver, IsEmpty());
}

TEST_F(AgentLifeTest, ARefusedFileNeverReachesTheLibraryAndTheOldSettingsStay)
{
    world.verdicts = { Accepted(DEFAULTS), Refused("line 3: cut off") };
    world.signals = { Signal::Reload };
    EXPECT_EQ(Live(), AGENT_STOPPED);
    EXPECT_THAT(world.calls,
                ElementsAre("guard", "check", "running", "driver", "hold", "initialize", "check", "terminate"));
    EXPECT_EQ(*Last().inForce, DEFAULTS);
    EXPECT_EQ(Last().lastReload->result, ReloadResult::Refused);
    EXPECT_EQ(Last().lastReload->message, "line 3: cut off");
    EXPECT_EQ(Last().reloads, 1u);
    EXPECT_THAT(world.Texts(TNWLOG_ERROR),
                ElementsAre(" reload: the configuration is refused, the old settings stay in force: line 3: cut off"));
}

TEST_F(AgentLifeTest, AReloadThatTheLibraryRefusesKeepsTheOldSettings)
{
    SettingValues changed = DEFAULTS;
    changed[WRITE_INTERVAL] = 5;
    world.verdicts = { Accepted(DEFAULTS), Accepted(changed) };
    world.signals = { Signal::Reload };
    world.reinitializes = false;
    world.reinitializeCode = DKPF_ERR_XML_LOAD;
    Live();
    EXPECT_EQ(*Last().inForce, DEFAULTS);
    EXPECT_EQ(Last().lastReload->result, ReloadResult::Failed);
    EXPECT_THAT(Last().lastReload->message, HasSubstr("0xb000000e"));
    EXPECT_THAT(Last().lastFailure->message, HasSubstr("DkpfReinitialize failed with 0xb000000e"));
}

// DkpfReinitialize answers TRUE with a code where it read the file and could not publish it.
TEST_F(AgentLifeTest, AReloadThatWasReadButNotPublishedCountsAsFailed)
{
    SettingValues changed = DEFAULTS;
    changed[PERF_ENABLE] = 0;
    world.verdicts = { Accepted(DEFAULTS), Accepted(changed) };
    world.signals = { Signal::Reload };
    world.reinitializeCode = DKPF_ERR_MUTEX_LOCK;
    Live();
    EXPECT_EQ(*Last().inForce, DEFAULTS);
    EXPECT_EQ(Last().lastReload->result, ReloadResult::Failed);
}

TEST_F(AgentLifeTest, AGoodFileAfterARefusedOneIsTakenOver)
{
    SettingValues changed = DEFAULTS;
    changed[WRITE_INTERVAL] = 30;
    world.verdicts = { Accepted(DEFAULTS), Refused("half saved"), Accepted(changed) };
    world.signals = { Signal::Reload, Signal::Reload };
    Live();
    EXPECT_EQ(Last().reloads, 2u);
    EXPECT_EQ(Last().lastReload->result, ReloadResult::Accepted);
    EXPECT_EQ((*Last().inForce)[WRITE_INTERVAL], 30u);
}

TEST_F(AgentLifeTest, ASettingThatWaitsIsNamedAgainByTheNextReload)
{
    SettingValues changed = DEFAULTS;
    changed[COLLECT_INTERVAL] = 1;
    world.verdicts = { Accepted(DEFAULTS), Accepted(changed) };
    world.signals = { Signal::Reload, Signal::Reload };
    Live();
    EXPECT_THAT(Last().lastReload->waiting, ElementsAre(COLLECT_INTERVAL));
    EXPECT_EQ((*Last().inForce)[COLLECT_INTERVAL], 10u);
}

/* ---- Clock ---- */

TEST_F(AgentLifeTest, AChangedUtcOffsetIsLoggedOnceAndSaved)
{
    world.offsets = { 60, 60, 120, 120 };
    world.signals = { Signal::Nothing, Signal::Nothing, Signal::Nothing };
    Live();
    EXPECT_THAT(world.Texts(TNWLOG_NOTICE), testing::Contains(" UTC offset changes from +01:00 to +02:00").Times(1));
    EXPECT_EQ(world.saved.size(), 5u);  // starting, running, changed, stopping, stopped
    EXPECT_EQ(world.saved[2].utcOffsetMinutes, 120);
}

TEST_F(AgentLifeTest, AnUnchangedUtcOffsetWritesNothing)
{
    world.signals = { Signal::Nothing, Signal::Nothing };
    Live();
    EXPECT_EQ(world.saved.size(), 4u);  // starting, running, stopping, stopped
    EXPECT_THAT(world.waits, ElementsAre(5000, 5000, 5000));
}

/* ---- End and records ---- */

TEST_F(AgentLifeTest, ThreadsThatDoNotEndMakeTheStopOverdue)
{
    world.terminateCode = DKPF_ERR_THREAD_EXIT;
    EXPECT_EQ(Live(), AGENT_STOP_OVERDUE);
    EXPECT_EQ(Last().exitCode, 7u);
    EXPECT_THAT(Last().lastFailure->message, HasSubstr("0xb000000a"));
    EXPECT_THAT(world.Texts(TNWLOG_NOTICE), testing::Not(Contains(" stopped")));
    EXPECT_EQ(world.Texts(TNWLOG_ERROR).back(), " not down: threads of the library still run; the process ends now");
}

TEST_F(AgentLifeTest, ALesserFailureOfTheStopIsRememberedButIsACleanEnd)
{
    world.terminateCode = DKPF_ERR_UNMAPVIEW;
    EXPECT_EQ(Live(), AGENT_STOPPED);
    EXPECT_EQ(Last().phase, AgentPhase::Stopped);
    EXPECT_THAT(Last().lastFailure->message, HasSubstr("0xb000001c"));
}

TEST_F(AgentLifeTest, AgentStateThatCouldNotBeWrittenIsToldOnceAndTriedAgain)
{
    world.saveErrors = { ERROR_DISK_FULL, ERROR_DISK_FULL, ERROR_DISK_FULL, ERROR_SUCCESS };
    world.signals = { Signal::Nothing, Signal::Nothing, Signal::Nothing };
    EXPECT_EQ(Live(), AGENT_STOPPED);
    EXPECT_EQ(world.Texts(TNWLOG_WARNING).size(), 1u);
    EXPECT_THAT(world.Texts(TNWLOG_WARNING).front(), HasSubstr("agent.state could not be written: error 112"));
    // Starting and running fail; the first tick fails, the second succeeds, the third has nothing to do; then the end's
    // two.
    EXPECT_EQ(world.saved.size(), 6u);
}
