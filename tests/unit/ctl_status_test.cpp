/*
 * What dkpfctl status finds wrong, and how it prints it. Each trouble is a healthy machine with one thing changed.
 */
#include <gmock/gmock.h>

#include "status_device.h"
#include "status_text.h"
#include "status_troubles.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class StatusTest : public testing::Test {
protected:
    StatusTest()
    {
        facts.driver = { "velcor", { true, SERVICE_RUNNING, 0, 0 }, false };
        facts.feeder = { "velcorfeed", { true, SERVICE_RUNNING, 30, 0 }, false };
        facts.agentService = { "dkpfagent", { true, SERVICE_RUNNING, 40, 0 }, false };
        facts.agent.file = StateFile::Read;
        AgentState& state = facts.agent.state;
        state.phase = AgentPhase::Running;
        state.pid = 40;
        state.started = "2026-03-07T14:05:09.042+09:00";
        state.inForce = SettingValues{ 1, 1, 1024, 3, 10, 60, 0x1ffff, 7, 2048 };
        facts.agentAlive = true;
        facts.agentAgeMs = 3600000;
        facts.file.accepted = true;
        facts.file.values = *state.inForce;
        facts.region = RegionStatus::Copied;
        facts.view.hasSample = true;
        facts.view.ageMs = 4200;
        facts.view.localTime = SYSTEMTIME{ 2026, 3, 6, 7, 15, 0, 0, 1 };
        facts.view.disks = { 1, 2 };
        facts.consumers = { { 1, 500, ProcessLife::Alive }, { 4, 501, ProcessLife::Gone } };
        facts.places = { { "CSV files", "C:\\home\\perf" } };
    }

    std::vector<std::string> Codes() const
    {
        std::vector<std::string> codes;
        for (const Trouble& trouble : FindTroubles(facts))
            codes.push_back(trouble.code);
        return codes;
    }

    std::string First() const
    {
        return FindTroubles(facts).front().text;
    }

    void Raise(DWORD id, const char* time)
    {
        facts.events.entries.push_back({ time, "WARNING", id, "words of the event" });
    }

    StatusFacts facts;
};

}  // namespace

TEST_F(StatusTest, AHealthyMachineHasNoTroubles)
{
    EXPECT_THAT(Codes(), IsEmpty());
}

/* ---- Services and agent ---- */

TEST_F(StatusTest, ADriverThatDoesNotRun)
{
    facts.driver.info.state = SERVICE_STOPPED;
    EXPECT_THAT(Codes(), ElementsAre("driver_not_running"));
    EXPECT_EQ(First(), "the driver velcor is stopped");
    EXPECT_THAT(FindTroubles(facts).front().cure, HasSubstr("net start velcor"));
}

TEST_F(StatusTest, ADriverThatIsNotInstalledOrCannotBeAsked)
{
    facts.driver.info = ServiceInfo{};
    EXPECT_THAT(Codes(), ElementsAre("driver_not_installed"));
    facts.driver.info.error = ERROR_ACCESS_DENIED;
    EXPECT_THAT(Codes(), ElementsAre("driver_unknown"));
}

TEST_F(StatusTest, ADriverThatHangs)
{
    facts.device.hangs = true;
    EXPECT_THAT(Codes(), ElementsAre("driver_hangs"));
    facts.driver.info.state = SERVICE_STOPPED;
    EXPECT_THAT(Codes(), ElementsAre("driver_not_running"));
}

// The call never ends by itself: whatever the limit, nothing but the limit ends the wait.
TEST_F(StatusTest, ADriverThatNeverAnswersIsLeftBehind)
{
    const HANDLE answers = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE left = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const auto   ask = [answers, left] {
        WaitForSingleObject(answers, INFINITE);
        SetEvent(left);
        return DeviceFact{};
    };
    EXPECT_TRUE(LookAtDevice(ask, 10).hangs);
    SetEvent(answers);
    WaitForSingleObject(left, INFINITE);
    CloseHandle(answers);
    CloseHandle(left);
}

TEST_F(StatusTest, ADriverThatAnswersIsWaitedFor)
{
    const DeviceFact fact = LookAtDevice(
        [] {
            return DeviceFact{ ERROR_ACCESS_DENIED, false, { true, 7, 42 } };
        },
        600000);
    EXPECT_EQ(fact.error, static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_FALSE(fact.hangs);
    EXPECT_EQ(fact.fed.ageMs, 42u);
}

TEST_F(StatusTest, AFeederThatDoesNotRunButNotOneThatIsNotInstalled)
{
    facts.feeder.info.state = SERVICE_STOPPED;
    EXPECT_THAT(Codes(), ElementsAre("feeder_not_running"));
    facts.feeder.info = ServiceInfo{};
    EXPECT_THAT(Codes(), IsEmpty());
    facts.feeder.info.error = ERROR_ACCESS_DENIED;
    EXPECT_THAT(Codes(), ElementsAre("feeder_unknown"));
}

TEST_F(StatusTest, AServiceWhoseProcessIsGone)
{
    facts.feeder.processGone = true;
    EXPECT_THAT(Codes(), ElementsAre("service_process_gone"));
    EXPECT_EQ(First(), "the service velcorfeed counts as running, but its process 30 is gone");
}

TEST_F(StatusTest, AnAgentThatNeverRan)
{
    facts.agent = StateFileContent{};
    facts.agentAlive = false;
    EXPECT_THAT(Codes(), ElementsAre("agent_not_running"));
    EXPECT_EQ(First(), "the disk agent has never run here");
}

TEST_F(StatusTest, AnAgentThatEndedForAReasonSaysIt)
{
    facts.agent.state.phase = AgentPhase::Stopped;
    facts.agent.state.lastFailure = FailureRecord{ "", "the configuration is refused: line 5" };
    facts.agentAlive = false;
    EXPECT_THAT(Codes(), ElementsAre("agent_not_running"));
    EXPECT_EQ(First(), "the disk agent is not running; it ended because the configuration is refused: line 5");
}

TEST_F(StatusTest, AnAgentThatWasKilled)
{
    facts.agentAlive = false;
    EXPECT_THAT(Codes(), ElementsAre("agent_died"));
    EXPECT_EQ(First(), "the disk agent (process 40) ended without a clean stop");
}

TEST_F(StatusTest, DamagedAgentState)
{
    facts.agent = StateFileContent{ StateFile::Damaged, {}, "cut off" };
    facts.agentAlive = false;
    EXPECT_THAT(Codes(), ElementsAre("agent_state_damaged"));
}

/* ---- Configuration ---- */

TEST_F(StatusTest, ARefusedFileHidesTheReloadThatFailedBecauseOfIt)
{
    facts.file = ConfigVerdict{};
    facts.file.refusal = "cluster.xml, line 5: no number";
    facts.agent.state.lastReload = ReloadRecord{ ReloadResult::Refused, "", "line 5", {}, {} };
    EXPECT_THAT(Codes(), ElementsAre("config_refused"));
    EXPECT_THAT(First(), HasSubstr("cluster.xml, line 5: no number"));
}

TEST_F(StatusTest, AFileThatIsGoodAgainAfterARefusedReload)
{
    facts.agent.state.lastReload = ReloadRecord{ ReloadResult::Refused, "", "line 5", {}, {} };
    EXPECT_THAT(Codes(), ElementsAre("reload_failed"));
    EXPECT_EQ(FindTroubles(facts).front().cure, "dkpfctl config reload");
}

TEST_F(StatusTest, SettingsThatWaitAreNoTrouble)
{
    facts.file.values[COLLECT_INTERVAL] = 1;
    facts.file.values[WRITE_INTERVAL] = 5;
    EXPECT_THAT(Codes(), IsEmpty());
}

/* ---- Region and samples ---- */

TEST_F(StatusTest, NoRegionUnderARunningAgent)
{
    facts.region = RegionStatus::Absent;
    facts.regionWords = "there is no shared region: is the disk agent running?";
    EXPECT_THAT(Codes(), ElementsAre("no_region"));
    EXPECT_EQ(FindTroubles(facts).front().cure, "restart the disk agent");
    facts.agentAlive = false;
    EXPECT_EQ(FindTroubles(facts).back().cure, "start the disk agent");
}

TEST_F(StatusTest, NoRegionIsUsualWhileTheAgentStarts)
{
    facts.region = RegionStatus::Absent;
    facts.agent.state.phase = AgentPhase::Starting;
    EXPECT_THAT(Codes(), IsEmpty());
}

TEST_F(StatusTest, ABusyOrRefusedOrDamagedRegion)
{
    facts.view.damage = { "param_num is 99" };
    EXPECT_THAT(Codes(), ElementsAre("region_damaged"));
    facts.region = RegionStatus::Busy;
    EXPECT_THAT(Codes(), ElementsAre("region_busy"));
    facts.region = RegionStatus::Refused;
    EXPECT_THAT(Codes(), ElementsAre("region_refused"));
}

// Two intervals of 10 s and 5 s of patience.
TEST_F(StatusTest, ASampleIsTooOldAfterTwoIntervalsAndFiveSeconds)
{
    facts.view.ageMs = 25000;
    EXPECT_THAT(Codes(), IsEmpty());
    facts.view.ageMs = 25001;
    EXPECT_THAT(Codes(), ElementsAre("sample_old"));
    EXPECT_EQ(First(), "the last sample is 25.0 s old, at most 25.0 s is usual");
    EXPECT_EQ(FindTroubles(facts).front().cure,
              "dkpfctl config reload; if that does not help, taskkill /f /pid 40, then "
              "net start dkpfagent; the module log may hold the cause");
}

TEST_F(StatusTest, WithoutAnAgentNeitherItsSampleNorItsReloadNorItsWarningIsATroubleOfItsOwn)
{
    facts.agentAlive = false;
    facts.view.ageMs = 60000;
    facts.agent.state.lastReload = ReloadRecord{ ReloadResult::Refused, "", "line 5", {}, {} };
    Raise(0x800012C1, "2026/03/07 15:00:00.000");
    EXPECT_THAT(Codes(), ElementsAre("agent_died"));
}

// An agent that does not say its settings counts as one that collects: silence is no reason to call old values well.
TEST_F(StatusTest, SettingsThatAreNotKnownHideNoOldSample)
{
    facts.agent.state.inForce.reset();
    facts.view.published = SettingValues{ 1, 1, 1024, 3, 10, 60, 0x1ffff, 7, 2048 };
    facts.view.ageMs = 25001;
    EXPECT_THAT(Codes(), ElementsAre("sample_old"));
}

// Any process can write the published one: none of 0 makes every sample old, none of ages hides a dead one.
TEST_F(StatusTest, AnIntervalThatNobodyMayPublishIsBounded)
{
    facts.agent.state.inForce.reset();
    facts.view.published = SettingValues{ 1, 1, 1024, 3, 0, 60, 0x1ffff, 7, 2048 };
    EXPECT_EQ(SampleAgeLimitMs(facts), 7000u);  // as with 1 s
    facts.view.published[COLLECT_INTERVAL] = 0xFFFFFFFF;
    EXPECT_EQ(SampleAgeLimitMs(facts), 7205000u);  // as with 3600 s
}

TEST_F(StatusTest, TheIntervalInForceCountsNotTheOneInTheFile)
{
    facts.file.values[COLLECT_INTERVAL] = 3600;
    facts.view.ageMs = 60000;
    EXPECT_THAT(Codes(), ElementsAre("sample_old"));
}

TEST_F(StatusTest, NoSampleIsTroubleOnlyWhenTheFirstOneIsOverdue)
{
    facts.view.hasSample = false;
    facts.agentAgeMs = 25000;
    EXPECT_THAT(Codes(), IsEmpty());
    facts.agentAgeMs = 25001;
    EXPECT_THAT(Codes(), ElementsAre("no_sample"));
}

TEST_F(StatusTest, WithCollectionSwitchedOffNoSampleIsMissed)
{
    (*facts.agent.state.inForce)[PERF_ENABLE] = 0;
    facts.view.hasSample = false;
    EXPECT_THAT(Codes(), IsEmpty());
    EXPECT_THAT(StatusText(facts, {}), HasSubstr("last sample                none: collection is switched off\n"));
}

/* ---- Event entries ---- */

TEST_F(StatusTest, AWarningIsOpenUntilItsAllClear)
{
    Raise(0x800012C1, "2026/03/07 15:00:00.000");
    EXPECT_THAT(Codes(), ElementsAre("warning_open"));
    EXPECT_EQ(First(), "raised at 2026/03/07 15:00:00.000 and not taken back: words of the event");
    EXPECT_EQ(FindTroubles(facts).front().cure, "remove the cause: dkpfctl logs trace --level error tells it");
    Raise(0x400012C4, "2026/03/07 15:01:00.000");  // of the other kind
    EXPECT_THAT(Codes(), ElementsAre("warning_open"));
    Raise(0x400012C2, "2026/03/07 15:02:00.000");
    EXPECT_THAT(Codes(), IsEmpty());
}

TEST_F(StatusTest, AWarningThatCameBackIsOpenAgain)
{
    Raise(0x800012C3, "2026/03/07 15:00:00.000");
    Raise(0x400012C4, "2026/03/07 15:01:00.000");
    Raise(0x800012C3, "2026/03/07 15:02:00.000");
    EXPECT_EQ(First(), "raised at 2026/03/07 15:02:00.000 and not taken back: words of the event");
}

TEST_F(StatusTest, EventEntriesThatCannotBeReadAreNotTakenForNone)
{
    facts.events.error = ERROR_ACCESS_DENIED;
    EXPECT_THAT(Codes(), ElementsAre("events_unread"));
    EXPECT_THAT(First(), StartsWith("the event entries cannot be read: "));
    EXPECT_EQ(FindTroubles(facts).front().cure, "look at the rights of the file");
}

TEST_F(StatusTest, AStoppedThreadIsNeverTakenBack)
{
    Raise(0xC00012C5, "2026/03/07 15:00:00.000");
    Raise(0x400012C2, "2026/03/07 15:01:00.000");
    EXPECT_THAT(FindTroubles(facts).front().cure, HasSubstr("restart the disk agent"));
}

TEST_F(StatusTest, AStoppedThreadIsSettledByALibraryBroughtUpAfterwards)
{
    Raise(0xC00012C5, "2026/03/07 15:00:00.000");
    facts.agent.state.broughtUp = "2026-03-07T15:00:00.000+09:00";  // the same moment: the new threads' own
    EXPECT_THAT(Codes(), ElementsAre("warning_open"));
    facts.agent.state.broughtUp = "2026-03-07T15:00:00.001+09:00";
    EXPECT_THAT(Codes(), IsEmpty());
    Raise(0xC00012C5, "2026/03/07 15:00:00.500");
    EXPECT_THAT(Codes(), ElementsAre("warning_open"));
}

TEST_F(StatusTest, AWarningWithAnAllClearOfItsOwnIsNotSettledByTheLibrary)
{
    Raise(0x800012C1, "2026/03/07 15:00:00.000");
    facts.agent.state.broughtUp = "2026-03-07T16:00:00.000+09:00";
    EXPECT_THAT(Codes(), ElementsAre("warning_open"));
}

// A feeder that was killed: the samples stay young, what was fed grows old.
TEST_F(StatusTest, TheAgeOfTheFedValuesStandsBesideThatOfTheSample)
{
    EXPECT_THAT(StatusText(facts, {}), Not(HasSubstr("driver fed")));  // a driver that knows nothing of feeds
    facts.device.fed = { true, 0, 5000 };
    EXPECT_THAT(StatusText(facts, {}), HasSubstr("  driver fed                 not yet\n"));
    facts.device.fed = { true, 7, 93210 };
    EXPECT_THAT(StatusText(facts, {}),
                HasSubstr("  last sample                4.2 s old, taken 2026/03/07 15:00:00.001\n"
                          "  driver fed                 93.2 s ago\n"));
    EXPECT_THAT(StatusJson(facts, {}), HasSubstr("\"fed\": {\n    \"feeds\": 7,\n    \"age_s\": 93.21\n  }"));
}

TEST_F(StatusTest, CausesStandBeforeTheirEffects)
{
    facts.driver.info.state = SERVICE_STOPPED;
    facts.view.hasSample = false;
    Raise(0xC00012C5, "2026/03/07 15:00:00.000");
    EXPECT_THAT(Codes(), ElementsAre("driver_not_running", "no_sample", "warning_open"));
}

/* ---- Printing ---- */

TEST_F(StatusTest, TheWholeTextOfAMachineWithOneTroubleAndWaitingSettings)
{
    facts.driver.info.state = SERVICE_STOPPED;
    facts.file.values[COLLECT_INTERVAL] = 1;
    facts.file.values[WRITE_INTERVAL] = 5;
    Raise(0x400012C2, "2026/03/07 15:02:00.000");
    EXPECT_EQ(StatusText(facts, FindTroubles(facts)),
              "WRONG: the driver velcor is stopped\n"
              "       net start velcor; a running disk agent takes it up by itself\n"
              "\n"
              "services\n"
              "  velcor                     stopped\n"
              "  velcorfeed                 running, process 30\n"
              "  dkpfagent                  running, process 40\n"
              "\n"
              "agent\n"
              "  state                      running\n"
              "  process                    process 40, alive, as service\n"
              "  started                    2026-03-07T14:05:09.042+09:00\n"
              "  last failure               none\n"
              "\n"
              "configuration                in force    in file\n"
              "  parameters/perfenable      1           1\n"
              "  parameters/perflogsave     1           1\n"
              "  parameters/perflogsize     1024 KiB    1024 KiB\n"
              "  parameters/perflogrotation 3           3\n"
              "  parameters/collectinterval 10 s        1 s         waits for a restart of the agent\n"
              "  parameters/writeinterval   60 s        5 s         dkpfctl config reload takes it over\n"
              "  parameters/collectparam    0x1ffff     0x1ffff\n"
              "  log/level                  7           7\n"
              "  log/size                   2048 KiB    2048 KiB\n"
              "\n"
              "samples\n"
              "  last sample                4.2 s old, taken 2026/03/07 15:00:00.001\n"
              "  disks present              1 to 2\n"
              "  readers                    2 of 32 rows\n"
              "    row 1                      process 500, alive\n"
              "    row 4                      process 501, gone\n"
              "\n"
              "event entries since the agent's start\n"
              "  2026/03/07 15:02:00.000 WARNING 0x400012c2 words of the event\n"
              "\n"
              "places\n"
              "  CSV files                  C:\\home\\perf\n");
}

TEST_F(StatusTest, AllIsWellIsSaidFirst)
{
    EXPECT_EQ(StatusText(facts, {}).find("all is well\n"), 0u);
}

TEST_F(StatusTest, ARefusedFileShowsNoValues)
{
    facts.file = ConfigVerdict{};
    const std::string text = StatusText(facts, {});
    EXPECT_THAT(text, HasSubstr("  parameters/perfenable      1           refused\n"));
    EXPECT_THAT(text, Not(HasSubstr("waits for a restart")));
}

TEST_F(StatusTest, JsonSaysTheSameToPrograms)
{
    facts.driver.info.state = SERVICE_STOPPED;
    facts.file.values[COLLECT_INTERVAL] = 1;
    const std::string json = StatusJson(facts, FindTroubles(facts));
    EXPECT_EQ(json.find("{\n  \"format\": 1,\n  \"well\": false,\n  \"troubles\": [\n    {\n      \"code\": "
                        "\"driver_not_running\",\n"),
              0u);
    EXPECT_THAT(json,
                HasSubstr("\"name\": \"parameters/collectinterval\",\n        \"unit\": \"s\",\n        \"in_force\": "
                          "10,\n        \"in_file\": 1,\n        \"needs\": \"restart\"\n"));
    EXPECT_THAT(json, HasSubstr("\"age_s\": 4.2,\n    \"limit_s\": 25.0,\n"));
    EXPECT_THAT(json, HasSubstr("\"disks\": [\n    1,\n    2\n  ]"));
}

TEST_F(StatusTest, JsonHasNullWhereNothingIsKnown)
{
    facts.agent = StateFileContent{};
    facts.agentAlive = false;
    facts.region = RegionStatus::Absent;
    facts.file = ConfigVerdict{};
    const std::string json = StatusJson(facts, {});
    EXPECT_THAT(json, HasSubstr("\"well\": true"));
    for (const char* field : { "\"agent\": null", "\"sample\": null", "\"disks\": null", "\"consumers\": null",
                               "\"in_force\": null", "\"in_file\": null" })
        EXPECT_THAT(json, HasSubstr(field));
}
