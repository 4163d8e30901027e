/*
 * What dkpfctl doctor finds, how it prints it, what it mends. Each finding is a healthy machine with one thing changed.
 */
#include <gmock/gmock.h>
#include <set>

#include "doctor_text.h"
#include "names.h"
#include "registration.h"
#include "status_text.h"
#include "text.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr ULONGLONG MIB = 1024 * 1024;

const char* const TITLES[] = { "Object", "A", "B", "C", "D", "E", "F", "G", "H",
                               "I",      "J", "K", "L", "M", "N", "O", "P", "Q" };

constexpr char INSTALL[] = "dkpfctl install --home \"C:\\home\"";
constexpr char INSTALL_PACKAGE[] =
    "out of the package of the version that is wanted: dkpfctl install --home \"C:\\home\"";

class DoctorTest : public testing::Test {
protected:
    DoctorTest()
    {
        facts.computer = "NODE1";
        facts.time = "2026-03-07T15:05:09.042+09:00";
        facts.utcOffsetMinutes = 540;
        facts.administrator = true;
        facts.status.home = "C:\\home";
        FillStatus();
        facts.regionBytes = (DKPF_SHM_SIZE + 4095) / 4096 * 4096;

        RegistrationFacts& registration = facts.registration;
        registration.library = "C:\\home\\bin\\tnwdiskperf.dll";
        registration.open = "DkpfOpenForPerfmon";
        registration.collect = "DkpfCollectForPerfmon";
        registration.close = "DkpfCloseForPerfmon";
        registration.objectList = "2000";
        registration.firstCounter = 2000;
        registration.lastCounter = 2034;  // 18 titles, 2 apart
        registration.firstHelp = 2001;
        registration.lastHelp = 2035;
        registration.libraryOurs = true;
        registration.libraryReadable = true;
        registration.exports = { "DkpfCloseForPerfmon", "DkpfCollectForPerfmon", "DkpfInitialize",
                                 "DkpfOpenForPerfmon" };

        facts.names.system.assign(std::begin(TITLES), std::end(TITLES));
        facts.names.tableRead = true;
        facts.names.table = facts.names.system;
        facts.names.tablePath = "C:\\home\\etc\\tnwdiskperf.ini";
        facts.searchPath.holdsBin = true;
        facts.eventSource.messageFiles = { "C:\\home\\bin\\tnwmsg.dll" };
        facts.processes = { Process(40, "dkpfagent.exe", 1000, true), Process(500, "reader.exe", 2000, true),
                            Process(600, "other.exe", 500, false) };
        facts.log.path = "C:\\home\\log";
        facts.perf.path = "C:\\home\\perf";
        facts.freeBytes = 648 * MIB;  // the bound of the default settings
        facts.version = "1.0.0.0";
        facts.binaries = { { "bin\\dkpfagent.exe", true, "1.0.0.0" },
                           { "bin\\tnwdiskperf.dll", true, "1.0.0.0" },
                           { "driver\\velcor.sys", true, "1.0.0.0" } };
    }

    void FillStatus()
    {
        StatusFacts& status = facts.status;
        status.driver = { "velcor", { true, SERVICE_RUNNING, 0, 0 }, false };
        status.feeder = { "velcorfeed", { true, SERVICE_RUNNING, 30, 0 }, false };
        status.agentService = { "dkpfagent", { true, SERVICE_RUNNING, 40, 0 }, false };
        status.agent.file = StateFile::Read;
        AgentState& state = status.agent.state;
        state.phase = AgentPhase::Running;
        state.pid = 40;
        state.processStarted = 1000;
        state.inForce = SettingValues{ 1, 1, 1024, 3, 10, 60, 0x1ffff, 7, 2048 };
        status.agentAlive = true;
        status.agentAgeMs = 3600000;
        status.file.accepted = true;
        status.file.values = *state.inForce;
        status.region = RegionStatus::Copied;
        status.view.published = *state.inForce;
        status.view.hasSample = true;
        status.view.ageMs = 4200;
        status.consumers = { { 1, 500, ProcessLife::Alive } };
    }

    static ProcessFact Process(DWORD pid, const char* program, ULONGLONG started, bool holdsLibrary)
    {
        ProcessFact process;
        process.pid = pid;
        process.program = program;
        process.started = started;
        if (holdsLibrary)
            process.libraries = { { "C:\\home\\bin\\tnwdiskperf.dll", true } };
        return process;
    }

    Findings Found() const
    {
        Findings found;
        for (const Finding& finding : RunChecks(facts)) {
            if (finding.level != Level::Ok)
                found.push_back(finding);
        }
        return found;
    }

    /* "code level", notes included, well ones not. */
    std::vector<std::string> Codes() const
    {
        std::vector<std::string> codes;
        for (const Finding& finding : Found())
            codes.push_back(finding.code + " " + LevelText(finding.level));
        return codes;
    }

    /* The same of one check, well or not. */
    std::vector<std::string> Said(const std::string& check) const
    {
        std::vector<std::string> codes;
        for (const Finding& finding : RunChecks(facts)) {
            if (finding.check == check)
                codes.push_back(finding.code + " " + LevelText(finding.level));
        }
        return codes;
    }

    /* That these say that their subject is missing, and no other check does. */
    void ExpectNotLookedAt(const std::set<std::string>& checks) const
    {
        std::set<std::string> silent;
        for (const Finding& finding : RunChecks(facts)) {
            if (finding.code == "not_looked_at") {
                EXPECT_EQ(finding.level, Level::Note) << finding.check;
                EXPECT_THAT(Said(finding.check), ElementsAre("not_looked_at note"));
                silent.insert(finding.check);
            }
        }
        EXPECT_EQ(silent, checks);
    }

    /* The finding with this code; an empty one where there is none. */
    Finding Of(const std::string& code) const
    {
        for (const Finding& finding : RunChecks(facts)) {
            if (finding.code == code)
                return finding;
        }
        return Finding{};
    }

    void Raise(DWORD id)
    {
        facts.status.events.entries.push_back({ "2026/03/07 15:00:00.000", "ERROR", id, "words" });
    }

    DoctorFacts facts;
};

}  // namespace

TEST_F(DoctorTest, AHealthyMachineHasOneWellLineForEachCheck)
{
    const Findings findings = RunChecks(facts);
    EXPECT_THAT(Codes(), IsEmpty());
    EXPECT_EQ(findings.size(), CheckCount());
    for (const Finding& finding : findings) {
        EXPECT_EQ(finding.code, finding.check);
        EXPECT_EQ(finding.cure, "");
        EXPECT_NE(finding.text, "");
    }
    EXPECT_EQ(DoctorExit(findings), 0);
}

/* ---- Services ---- */

// Whatever status calls wrong is found in the same words; status has its own tests for each.
TEST_F(DoctorTest, WhatStatusCallsWrongIsFoundInItsWords)
{
    facts.status.feeder.info.state = SERVICE_STOPPED;
    facts.status.agentService.processGone = true;
    facts.status.agent.state.lastReload = ReloadRecord{ ReloadResult::Refused, "", "line 5", {}, {} };
    facts.status.view.damage = { "param_num is 99" };
    facts.status.view.ageMs = 60000;
    Raise(0x800012C1);
    const Findings found = Found();
    const Troubles troubles = FindTroubles(facts.status);
    ASSERT_EQ(found.size(), 6u);
    ASSERT_EQ(troubles.size(), 6u);
    for (size_t i = 0; i < found.size(); i++) {
        EXPECT_EQ(found[i].code, troubles[i].code);
        EXPECT_EQ(found[i].text, troubles[i].text);
        EXPECT_EQ(found[i].cure, troubles[i].cure);
        EXPECT_EQ(found[i].level, Level::Wrong);
    }
}

// As where nothing was ever installed.
TEST_F(DoctorTest, ChecksWhoseSubjectIsMissingAreNotWell)
{
    facts.status.agentAlive = false;
    facts.status.agent = StateFileContent{};
    facts.status.region = RegionStatus::Absent;
    facts.status.consumers.clear();
    facts.regionBytes = 0;
    EXPECT_THAT(Said("region"), ElementsAre("no_region wrong"));
    ExpectNotLookedAt({ "service_order", "region_size", "lock", "sample", "events", "free_rows", "dead_rows",
                        "repeated_rows", "old_readers" });
}

TEST_F(DoctorTest, ServicesThatCannotBeAsked)
{
    facts.status.driver.info = { false, 0, 0, ERROR_ACCESS_DENIED };
    EXPECT_THAT(Codes(), ElementsAre("driver_unknown wrong", "not_looked_at note"));
    EXPECT_EQ(Of("not_looked_at").text, "the driver's device was not looked at: the driver's service cannot be asked");
    facts.status.driver.info = { true, SERVICE_RUNNING, 0, 0 };
    facts.status.feeder.info = { false, 0, 0, ERROR_ACCESS_DENIED };
    EXPECT_THAT(Codes(), ElementsAre("feeder_unknown wrong"));
    EXPECT_THAT(Of("feeder_unknown").text, StartsWith("the feeder's service velcorfeed cannot be asked: error 5"));
    EXPECT_EQ(Of("feeder_unknown").cure, "run this as an administrator");
}

TEST_F(DoctorTest, AStoppedDriverHidesItsDevice)
{
    facts.status.driver.info.state = SERVICE_STOPPED;
    facts.status.device.error = ERROR_FILE_NOT_FOUND;
    EXPECT_THAT(Codes(), ElementsAre("driver_not_running wrong", "not_looked_at note"));
    EXPECT_EQ(Of("not_looked_at").text, "the driver's device was not looked at: the driver does not run");
}

TEST_F(DoctorTest, ADriverWhoseDeviceCannotBeOpened)
{
    facts.status.device.error = ERROR_FILE_NOT_FOUND;
    EXPECT_THAT(Codes(), ElementsAre("device_not_opened wrong"));
    EXPECT_EQ(Of("device_not_opened").cure, "net stop dkpfagent, net stop velcorfeed, net stop velcor, "
                                            "net start velcor, net start velcorfeed, net start dkpfagent");
    facts.status.feeder.info = ServiceInfo{};
    EXPECT_EQ(Of("device_not_opened").cure,
              "net stop dkpfagent, net stop velcor, net start velcor, net start dkpfagent");
    facts.status.device.error = ERROR_ACCESS_DENIED;
    EXPECT_THAT(Codes(), ElementsAre("device_not_asked note"));
}

TEST_F(DoctorTest, ADriverThatHangsHidesItsDevice)
{
    facts.status.device.hangs = true;
    EXPECT_THAT(Codes(), ElementsAre("driver_hangs wrong", "not_looked_at note"));
}

TEST_F(DoctorTest, ADeadAgentAndOneThatIsNotInstalled)
{
    facts.status.agentAlive = false;
    facts.status.view.ageMs = 3600000;  // which says nothing new
    EXPECT_THAT(Said("agent"), ElementsAre("agent_died wrong"));
    ExpectNotLookedAt({ "service_order", "sample", "events", "old_readers" });
    EXPECT_THAT(Said("configuration"), ElementsAre("configuration ok"));
    EXPECT_EQ(Of("configuration").text, "the configuration is accepted; no disk agent runs that has it");
    EXPECT_EQ(Of("agent_died").cure, "net start dkpfagent");
    facts.status.agentService.info = ServiceInfo{};
    EXPECT_EQ(Of("agent_died").cure, INSTALL);
}

TEST_F(DoctorTest, AnAgentThatWasStartedBeforeTheDriver)
{
    Raise(DKPF_EVENT_STOPPED);
    facts.status.view.hasSample = false;
    EXPECT_THAT(Codes(), ElementsAre("wrong_order wrong", "no_sample wrong", "warning_open wrong"));
    EXPECT_EQ(Of("wrong_order").text,
              "the disk agent was started before the driver: it collects nothing since 2026/03/07 15:00:00.000");
    EXPECT_EQ(Of("wrong_order").cure, "nothing: the disk agent takes the driver up by itself within 5 s");
    facts.status.view.hasSample = true;  // the thread that writes ended, or the one that had collected
    EXPECT_THAT(Codes(), ElementsAre("warning_open wrong"));
}

TEST_F(DoctorTest, AnAgentThatWasStartedBeforeTheDriverNeedsAGoodFile)
{
    Raise(DKPF_EVENT_STOPPED);
    facts.status.view.hasSample = false;
    facts.status.file.accepted = false;
    EXPECT_EQ(Of("wrong_order").cure,
              "correct the configuration file: the disk agent then takes the driver up by itself within 5 s");
}

TEST_F(DoctorTest, AnAgentThatTookUpTheDriverOrDoesNotCollectIsInNoWrongOrder)
{
    Raise(DKPF_EVENT_STOPPED);
    facts.status.view.hasSample = false;
    facts.status.agentAgeMs = 0;  // its first sample is not due yet
    facts.status.agent.state.broughtUp = "2026-03-07T15:00:00.001+09:00";
    EXPECT_THAT(Codes(), IsEmpty());
    facts.status.agent.state.broughtUp = "2026-03-07T15:00:00.000+09:00";
    EXPECT_THAT(Codes(), ElementsAre("wrong_order wrong", "warning_open wrong"));
    (*facts.status.agent.state.inForce)[PERF_ENABLE] = 0;
    EXPECT_THAT(Codes(), ElementsAre("warning_open wrong"));
    (*facts.status.agent.state.inForce)[PERF_ENABLE] = 1;
    facts.status.agentAlive = false;
    EXPECT_EQ(Of("wrong_order").code, "");
}

/* ---- Configuration ---- */

TEST_F(DoctorTest, ARefusedFileUnderALivingAgentHitsReadersOnly)
{
    facts.status.file = ConfigVerdict{};
    facts.status.file.refusal = "line 5";
    EXPECT_THAT(Codes(), ElementsAre("config_refused wrong", "readers_fail_on_file wrong"));
    facts.status.agentAlive = false;
    facts.status.agent.state.phase = AgentPhase::Stopped;
    EXPECT_THAT(Said("configuration"), ElementsAre("config_refused wrong"));
    EXPECT_THAT(Said("agent"), ElementsAre("agent_not_running wrong"));
    ExpectNotLookedAt({ "service_order", "sample", "events", "old_readers", "space" });
}

TEST_F(DoctorTest, EachUnknownKeyIsNamedWithItsPlace)
{
    facts.status.file.unknown = { "line 5, column 7: /root/diskperf/log/levle" };
    EXPECT_THAT(Codes(), ElementsAre("unknown_key warning"));
    EXPECT_EQ(Of("unknown_key").text,
              "the configuration holds a key that nobody reads, line 5, column 7: /root/diskperf/log/levle");
}

/* ---- Region ---- */

TEST_F(DoctorTest, ALockThatIsNotFree)
{
    facts.status.region = RegionStatus::Busy;
    facts.status.regionWords = "held";
    EXPECT_THAT(Said("lock"), ElementsAre("region_busy wrong"));
    EXPECT_THAT(Said("region_size"), ElementsAre("region_size ok"));  // a mapping needs no lock
    ExpectNotLookedAt(
        { "service_order", "region", "sample", "free_rows", "dead_rows", "repeated_rows", "old_readers" });
    EXPECT_EQ(Of("region_busy").text, "held; held by one of: process 40 (dkpfagent.exe), process 500 (reader.exe)");
    facts.processes.clear();
    EXPECT_EQ(Of("region_busy").text, "held");
}

TEST_F(DoctorTest, ARegionThatIsRefused)
{
    facts.status.region = RegionStatus::Refused;
    facts.status.regionWords = "refused";
    EXPECT_THAT(Said("region"), ElementsAre("region_refused wrong"));
    ExpectNotLookedAt({ "service_order", "lock", "sample", "free_rows", "dead_rows", "repeated_rows", "old_readers" });
    EXPECT_EQ(Of("region_refused").cure, "run this as an administrator");
    facts.status.regionOpened = true;  // it has another size
    EXPECT_EQ(Of("region_refused").cure, "stop the disk agent and every reader, net start dkpfagent");
}

TEST_F(DoctorTest, ARegionOfAnotherSize)
{
    facts.regionBytes += 4096;
    EXPECT_THAT(Codes(), ElementsAre("region_size wrong"));
    EXPECT_EQ(Of("region_size").cure,
              std::string("stop the disk agent and every reader, ") + INSTALL + ", net start dkpfagent");
    facts.regionBytes = 0;  // there is none, which the region's own check says
    ExpectNotLookedAt({ "region_size" });
}

/* ---- Readers ---- */

TEST_F(DoctorTest, FreeRowsAreCountedAndTheirOwnersNamed)
{
    facts.status.consumers = { { 1, 500, ProcessLife::Alive }, { 2, 501, ProcessLife::Alive } };
    EXPECT_EQ(Of("free_rows").text, "30 of 32 consumer rows are free; taken by process 500 (reader.exe), process 501");
    facts.status.consumers.clear();
    EXPECT_EQ(Of("free_rows").text, "32 of 32 consumer rows are free");
}

TEST_F(DoctorTest, FewFreeRowsAndNone)
{
    facts.status.consumers.clear();
    for (DWORD i = 1; i <= 28; i++)
        facts.status.consumers.push_back({ static_cast<int>(i), 499 + i, ProcessLife::Alive });
    EXPECT_THAT(Codes(), IsEmpty());
    EXPECT_THAT(Of("free_rows").text,
                StartsWith("4 of 32 consumer rows are free; taken by process 500 (reader.exe), process 501, "));
    facts.status.consumers.push_back({ 29, 528, ProcessLife::Alive });
    EXPECT_THAT(Codes(), ElementsAre("rows_scarce warning"));
    EXPECT_THAT(Of("rows_scarce").text,
                HasSubstr("only 3 of 32 consumer rows are free, taken by process 500 (reader.exe), process 501, "));
    for (DWORD i = 30; i <= 32; i++)
        facts.status.consumers.push_back({ static_cast<int>(i), 499 + i, ProcessLife::Alive });
    EXPECT_THAT(Codes(), ElementsAre("rows_full wrong"));
    EXPECT_THAT(Of("rows_full").text, HasSubstr(", process 531"));
}

// The next open frees them.
TEST_F(DoctorTest, RowsOfProcessesThatAreGoneCountAsFree)
{
    facts.status.consumers.clear();
    for (DWORD i = 1; i <= 32; i++)
        facts.status.consumers.push_back({ static_cast<int>(i), 499 + i, ProcessLife::Alive });
    for (size_t i = 0; i < 3; i++)
        facts.status.consumers[i].life = ProcessLife::Gone;
    EXPECT_THAT(Said("free_rows"), ElementsAre("rows_scarce warning"));
    EXPECT_THAT(Of("rows_scarce").text,
                StartsWith("only 3 of 32 consumer rows are free, taken by process 503, process 504, "));
    for (ConsumerFact& consumer : facts.status.consumers)
        consumer.life = ProcessLife::Gone;
    EXPECT_THAT(Said("free_rows"), ElementsAre("free_rows ok"));
    EXPECT_EQ(Of("free_rows").text, "32 of 32 consumer rows are free");
    EXPECT_EQ(Said("dead_rows"), std::vector<std::string>(32, "dead_row note"));
}

TEST_F(DoctorTest, EachRowOfADeadProcessIsNamed)
{
    facts.status.consumers.push_back({ 4, 501, ProcessLife::Gone });
    EXPECT_THAT(Codes(), ElementsAre("dead_row note"));
    EXPECT_EQ(Of("dead_row").text, "consumer row 4 belongs to process 501, which is gone");
    EXPECT_EQ(DoctorExit(RunChecks(facts)), 0);
}

TEST_F(DoctorTest, SeveralRowsOfOneProcess)
{
    facts.status.consumers.push_back({ 4, 500, ProcessLife::Alive });
    EXPECT_THAT(Codes(), ElementsAre("rows_repeated warning"));
    EXPECT_EQ(Of("rows_repeated").text,
              "process 500 (reader.exe) has 2 consumer rows (1, 4): each open that failed in it left one");
}

// Nobody can end it any more.
TEST_F(DoctorTest, SeveralRowsOfAProcessThatIsGone)
{
    facts.status.consumers = { { 1, 500, ProcessLife::Gone }, { 4, 500, ProcessLife::Gone } };
    EXPECT_THAT(Codes(), ElementsAre("dead_row note", "dead_row note"));
}

TEST_F(DoctorTest, AReaderFromBeforeTheAgentsStartIsDeadUnlessItAttachedAgain)
{
    facts.processes[1].started = 999;
    EXPECT_THAT(Codes(), IsEmpty());  // it has a row
    facts.status.consumers.clear();
    EXPECT_THAT(Codes(), ElementsAre("old_reader warning"));
    EXPECT_THAT(Of("old_reader").text,
                HasSubstr("process 500 (reader.exe) reads since before the disk agent began to collect"));
    facts.processes[1].started = 1000;  // not before
    EXPECT_THAT(Codes(), IsEmpty());
    facts.processes[1].started = 0;  // not known
    EXPECT_THAT(Codes(), IsEmpty());
    facts.processes[1].started = 999;
    facts.status.agentAlive = false;
    EXPECT_THAT(Said("old_readers"), ElementsAre("not_looked_at note"));
}

// 2026-03-07 06:05:09.042 UTC: 155,293 days and 21,909.042 s since 1601.
TEST_F(DoctorTest, AReaderIsDeadTooWhereTheLibraryWasBroughtUpAnewUnderALivingAgent)
{
    constexpr ULONGLONG anew = (155293ull * 86400000 + 21909042) * 10000;
    facts.status.consumers.clear();
    facts.processes[1].started = anew - 1;
    EXPECT_THAT(Codes(), IsEmpty());
    for (const char* time : { "2026-03-07T15:05:09.042+09:00", "2026-03-07T01:35:09.042-04:30" }) {
        facts.status.agent.state.broughtUp = time;
        facts.processes[1].started = anew - 1;
        EXPECT_THAT(Codes(), ElementsAre("old_reader warning")) << time;
        facts.processes[1].started = anew;
        EXPECT_THAT(Codes(), IsEmpty()) << time;
    }
    facts.processes[1].started = 1001;
    for (const char* time : { "", "2026-03-07", "2026-13-07T15:05:09.042+09:00" }) {
        facts.status.agent.state.broughtUp = time;
        EXPECT_THAT(Codes(), IsEmpty()) << time;
    }
}

TEST_F(DoctorTest, AHostThatHoldsAnotherLibrary)
{
    facts.processes[1].libraries = { { "C:\\home\\bin\\tnwdiskperf.dll.old-1", false } };
    facts.aside = { { "C:\\home\\bin\\tnwdiskperf.dll.old-1", AsideState::Held } };
    EXPECT_THAT(Codes(), ElementsAre("old_library warning", "old_library_held note"));
    EXPECT_EQ(Of("old_library").text, "process 500 (reader.exe) holds another library than the one installed here: "
                                      "C:\\home\\bin\\tnwdiskperf.dll.old-1");
    facts.processes[1].libraries.clear();
    facts.aside[0].state = AsideState::Left;
    EXPECT_THAT(Codes(), ElementsAre("old_library_left note"));
    EXPECT_EQ(Of("old_library_left").cure, "del \"C:\\home\\bin\\tnwdiskperf.dll.old-1\"");
    // Without rights nobody knows whether it is held, and nobody is told to delete it.
    facts.aside[0].state = AsideState::NotAsked;
    facts.administrator = false;
    EXPECT_THAT(Codes(), ElementsAre("old_library_not_asked note"));
    EXPECT_EQ(Of("old_library_not_asked").text, "C:\\home\\bin\\tnwdiskperf.dll.old-1 was replaced; whether a program "
                                                "still holds it could not be asked");
    EXPECT_EQ(Of("old_library_not_asked").cure, "run this as an administrator");
    facts.administrator = true;
    EXPECT_EQ(Of("old_library_not_asked").cure, "");
}

TEST_F(DoctorTest, A32BitReaderButNoOther32BitProgram)
{
    facts.processes[2].is32Bit = true;
    EXPECT_THAT(Codes(), IsEmpty());
    facts.processes[2].readsPerformanceData = true;
    EXPECT_THAT(Codes(), ElementsAre("reader_32bit warning"));
    facts.processes[2].is32Bit = false;
    EXPECT_THAT(Codes(), IsEmpty());
}

TEST_F(DoctorTest, ProcessesThatMayNotBeAskedAreCounted)
{
    facts.processes[2].refused = true;
    EXPECT_THAT(Codes(), ElementsAre("processes_not_asked note"));
    EXPECT_EQ(Of("processes_not_asked").text, "1 of 3 processes may not be asked what they have loaded");
    EXPECT_EQ(Of("processes_not_asked").cure, "");
    facts.administrator = false;
    EXPECT_EQ(Of("processes_not_asked").cure, "run this as an administrator");
}

/* ---- Registration ---- */

TEST_F(DoctorTest, AProviderThatIsNotRegistered)
{
    facts.registration = RegistrationFacts{};
    facts.registration.error = ERROR_FILE_NOT_FOUND;
    EXPECT_THAT(Codes(),
                ElementsAre("not_registered wrong", "not_looked_at note", "not_looked_at note", "not_looked_at note",
                            "not_looked_at note", "not_looked_at note", "not_looked_at note", "not_looked_at note"));
    EXPECT_EQ(Of("not_registered").cure, INSTALL);
    facts.registration.error = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Of("registration_not_asked").cure, "run this as an administrator");
}

TEST_F(DoctorTest, TheLibraryValue)
{
    facts.registration.libraryOurs = false;
    EXPECT_THAT(Codes(), ElementsAre("library_elsewhere wrong"));
    facts.registration.libraryError = ERROR_FILE_NOT_FOUND;
    EXPECT_THAT(Codes(), ElementsAre("library_file_missing wrong", "not_looked_at note"));
    facts.registration.library = "tnwdiskperf.dll";
    EXPECT_THAT(Codes(), ElementsAre("library_no_full_path wrong", "not_looked_at note"));
    facts.registration.library.reset();
    EXPECT_THAT(Codes(), ElementsAre("library_value_missing wrong", "not_looked_at note"));
}

TEST_F(DoctorTest, AFullPathBeginsWithADriveAShareOrAVariable)
{
    for (const char* path : { "C:\\bin\\x.dll", "c:/bin/x.dll", "\\\\server\\share\\x.dll", "%ProgramFiles%\\x.dll" }) {
        facts.registration.library = path;
        EXPECT_THAT(Codes(), IsEmpty()) << path;
    }
    for (const char* path : { "x.dll", "bin\\x.dll", "\\bin\\x.dll", "C:x.dll", "C:", "" }) {
        facts.registration.library = path;
        EXPECT_THAT(Codes(), ElementsAre("library_no_full_path wrong")) << path;
    }
}

TEST_F(DoctorTest, AProviderThatClaimsToAnswerMetadataQueries)
{
    facts.registration.metadata = 1;
    EXPECT_THAT(Codes(), ElementsAre("metadata_claimed wrong"));
    EXPECT_EQ(Of("metadata_claimed").cure,
              "reg delete HKLM\\SYSTEM\\CurrentControlSet\\Services\\tnwdiskperf\\Performance "
              "/v \"Collect Supports Metadata\" /f");
    facts.registration.metadata = 0;
    EXPECT_THAT(Codes(), IsEmpty());
}

TEST_F(DoctorTest, ExportNamesInTheRegistryAndInTheFile)
{
    facts.registration.collect.reset();
    facts.registration.close = "Close";
    EXPECT_THAT(Codes(), ElementsAre("export_value_missing wrong", "export_value_wrong wrong"));
    EXPECT_EQ(Of("export_value_missing").text, "the value Collect of the provider is missing");
    EXPECT_EQ(Of("export_value_wrong").text,
              "the value Close of the provider is Close and has to be DkpfCloseForPerfmon");
}

TEST_F(DoctorTest, ALibraryThatLacksAnExportOrIsNoLibrary)
{
    facts.registration.exports = { "DkpfCollectForPerfmon", "DkpfCloseForPerfmon" };
    EXPECT_THAT(Codes(), ElementsAre("export_missing wrong"));
    EXPECT_EQ(Of("export_missing").text, "the registered library does not export DkpfOpenForPerfmon");
    EXPECT_EQ(Of("export_missing").cure, INSTALL_PACKAGE);  // it is the file of this installation
    facts.registration.libraryReadable = false;
    EXPECT_THAT(Codes(), ElementsAre("library_damaged wrong"));
    EXPECT_EQ(Of("library_damaged").cure, INSTALL_PACKAGE);
    facts.registration.libraryOurs = false;
    EXPECT_EQ(Of("library_damaged").cure, INSTALL);
}

TEST_F(DoctorTest, TheTitleIndexRange)
{
    facts.registration.lastCounter = 2032;
    facts.registration.lastHelp.reset();
    EXPECT_THAT(Codes(), ElementsAre("index_range wrong", "index_missing wrong"));
    EXPECT_EQ(Of("index_range").text,
              "First Counter is 2000 and Last Counter is 2032: 18 titles need a difference of 34");
    EXPECT_EQ(Of("index_missing").text, "the value Last Help of the provider is missing");
    facts.registration.firstCounter.reset();
    EXPECT_EQ(Of("index_missing").text, "the value First Counter of the provider is missing");
}

// What set-up takes for no range, and replaces.
TEST_F(DoctorTest, ATitleIndexRangeBeginsWithAnEvenNumberAndHelpWithOne)
{
    facts.registration.firstCounter = 0;
    facts.registration.lastCounter = 34;
    EXPECT_THAT(Said("index_range"), ElementsAre("index_range wrong"));
    EXPECT_EQ(Of("index_range").text, "First Counter is 0, which is no even title index");
    facts.registration.firstCounter = 2001;
    facts.registration.lastCounter = 2035;
    EXPECT_THAT(Said("index_range"), ElementsAre("index_range wrong"));
    EXPECT_EQ(Of("index_range").text, "First Counter is 2001, which is no even title index");
    facts.registration.firstCounter = 2000;
    facts.registration.lastCounter = 2034;
    facts.registration.firstHelp = 0;
    facts.registration.lastHelp = 34;
    EXPECT_THAT(Said("index_range"), ElementsAre("index_range wrong"));
    EXPECT_EQ(Of("index_range").text, "First Help is 0, which is no title index");
    facts.registration.firstHelp = 2036;
    facts.registration.lastHelp = 2070;
    EXPECT_THAT(Said("index_range"), ElementsAre("index_range ok"));
}

TEST_F(DoctorTest, TheObjectList)
{
    for (const char* list : { "200 20000", "12000", "12000 6", "" }) {
        facts.registration.objectList = list;
        EXPECT_THAT(Codes(), ElementsAre("object_list_wrong wrong")) << list;
    }
    facts.registration.objectList = "4 2000 6";
    EXPECT_THAT(Codes(), IsEmpty());
    facts.registration.objectList.reset();
    EXPECT_THAT(Codes(), ElementsAre("object_list_missing warning"));
}

TEST_F(DoctorTest, NamesThatTheSystemDoesNotHaveComeFromTheInstalledTableUnderWineOnly)
{
    facts.names.system.clear();
    EXPECT_THAT(Codes(), ElementsAre("names_not_in_system wrong"));
    EXPECT_EQ(Of("names_not_in_system").cure, std::string("unlodctr tnwdiskperf, then ") + INSTALL);
    facts.wine = true;
    EXPECT_THAT(Codes(), IsEmpty());
    EXPECT_EQ(Of("names").text,
              "the system's table has no names from 2000 on: they come from C:\\home\\etc\\tnwdiskperf.ini");
}

TEST_F(DoctorTest, NamesOfTheSystemThatAreNotOurs)
{
    facts.names.system[2] = "Somebody else";
    EXPECT_THAT(Codes(), ElementsAre("names_differ wrong"));
    EXPECT_EQ(Of("names_differ").cure, std::string("unlodctr tnwdiskperf, then ") + INSTALL);
    EXPECT_EQ(Of("names_differ").text,
              "the system's table calls title index 2004 \"Somebody else\", which has to be \"B\"");
    facts.wine = true;  // unlodctr does nothing there
    EXPECT_EQ(Of("names_differ").cure,
              std::string("reg delete HKLM\\SYSTEM\\CurrentControlSet\\Services\\tnwdiskperf\\Performance "
                          "/v \"First Counter\" /f, then ") +
                  INSTALL);
    facts.names.system[2].clear();  // the system has some of our names, and this one not
    EXPECT_THAT(Codes(), ElementsAre("names_differ wrong"));
    facts.names.system[2] = "C";  // ours, but of the next counter
    EXPECT_THAT(Codes(), ElementsAre("names_differ wrong"));
}

TEST_F(DoctorTest, AnInstalledTableThatIsMissingOrCutOff)
{
    facts.names.table.pop_back();
    EXPECT_THAT(Codes(), ElementsAre("name_table_bad warning"));
    EXPECT_EQ(Of("name_table_bad").cure, INSTALL_PACKAGE);
    facts.names.system.clear();
    facts.names.tableRead = false;
    EXPECT_THAT(Codes(), ElementsAre("name_table_bad wrong"));
}

TEST_F(DoctorTest, AProviderThatTheSystemSwitchedOff)
{
    facts.registration.disabled = 0;
    EXPECT_THAT(Codes(), IsEmpty());
    facts.registration.disabled = 1;
    EXPECT_THAT(Codes(), ElementsAre("provider_disabled wrong"));
    EXPECT_EQ(Of("provider_disabled").cure, "dkpfctl doctor --fix");
    facts.status.view.published[PERF_ENABLE] = 0;
    EXPECT_EQ(Of("provider_disabled").cure,
              "mend what is wrong above (collection is switched off), then dkpfctl doctor --fix");
}

TEST_F(DoctorTest, TheDebugSwitch)
{
    for (DWORD value : { 1u, 2u, 4u, 12u }) {
        facts.debug.value = value;
        EXPECT_THAT(Codes(), ElementsAre("debug_stops wrong")) << value;
    }
    EXPECT_EQ(Of("debug_stops").cure, "reg delete HKLM\\Software\\OSK\\TARNWELL\\work /v dkpf_debug /f");
    for (DWORD value : { 0u, 8u }) {
        facts.debug.value = value;
        EXPECT_THAT(Codes(), ElementsAre("debug_value_left note")) << value;
    }
    facts.debug.value.reset();
    facts.debug.keyError = ERROR_FILE_NOT_FOUND;
    EXPECT_THAT(Codes(), ElementsAre("debug_key_missing warning"));
    EXPECT_EQ(Of("debug_key_missing").cure, "reg add HKLM\\Software\\OSK\\TARNWELL\\work /f");
    facts.debug.keyError = ERROR_ACCESS_DENIED;
    EXPECT_THAT(Codes(), ElementsAre("debug_key_not_asked note"));
}

TEST_F(DoctorTest, TheEventSource)
{
    facts.eventSource.messageFilesMissing = { "C:\\home\\bin\\tnwmsg.dll" };
    EXPECT_THAT(Codes(), ElementsAre("event_file_missing warning"));
    EXPECT_EQ(Of("event_file_missing").text,
              "the message file of the event source is not there: C:\\home\\bin\\tnwmsg.dll");
    facts.eventSource = EventSourceFacts{};
    EXPECT_THAT(Codes(), ElementsAre("event_file_missing warning"));
    EXPECT_EQ(Of("event_file_missing").text, "the event source tnwdiskperf names no message file");
    facts.eventSource.keyError = ERROR_FILE_NOT_FOUND;
    EXPECT_THAT(Codes(), ElementsAre("event_source_missing warning"));
}

TEST_F(DoctorTest, ASearchPathWithoutOurFolder)
{
    facts.searchPath.holdsBin = false;
    EXPECT_THAT(Codes(), ElementsAre("path_lacks_bin warning"));
    EXPECT_EQ(Of("path_lacks_bin").text,
              "the system's PATH lacks C:\\home\\bin: programs may not find the libraries that the provider needs");
    EXPECT_THAT(Of("path_lacks_bin").cure, StartsWith(INSTALL));
    facts.searchPath.error = ERROR_FILE_NOT_FOUND;  // no PATH at all
    EXPECT_THAT(Codes(), ElementsAre("path_lacks_bin warning"));
    facts.searchPath.error = ERROR_ACCESS_DENIED;
    EXPECT_THAT(Codes(), ElementsAre("path_not_asked note"));
}

/* ---- Installation ---- */

TEST_F(DoctorTest, FoldersThatCannotBeWrittenTo)
{
    facts.log.error = ERROR_PATH_NOT_FOUND;
    EXPECT_THAT(Codes(), ElementsAre("folder_missing wrong"));
    EXPECT_THAT(Of("folder_missing").cure, HasSubstr("mkdir \"C:\\home\\log\""));
    facts.log.error = ERROR_ACCESS_DENIED;
    EXPECT_THAT(Codes(), ElementsAre("folder_not_writable wrong"));
    EXPECT_EQ(Of("folder_not_writable").cure, INSTALL);
    facts.log.error = ERROR_DISK_FULL;
    EXPECT_EQ(Of("folder_not_writable").cure, "free space on its volume");
}

// Anybody's traces go to log, so it is wrong there for users too.
TEST_F(DoctorTest, AUserMayNotWriteToPerfAndHasToToLog)
{
    facts.perf.error = ERROR_ACCESS_DENIED;
    EXPECT_THAT(Codes(), ElementsAre("folder_not_writable wrong"));
    facts.administrator = false;
    EXPECT_THAT(Codes(), ElementsAre("folder_not_tried note"));
    facts.perf.error = ERROR_SUCCESS;
    facts.log.error = ERROR_ACCESS_DENIED;
    EXPECT_THAT(Codes(), ElementsAre("folder_not_writable wrong"));
}

// Defaults: 130 files x 1024 KiB x 4 = 520 MiB, and 4 logs x 16 x 2048 KiB = 128 MiB.
TEST_F(DoctorTest, TheBoundOfTheSpace)
{
    EXPECT_EQ(SpaceBound({ 1, 1, 1024, 3, 10, 60, 0x1ffff, 7, 2048 }), 648 * MIB);
    // 130 x 1 GiB x 100 + 64 x 1 GiB
    EXPECT_EQ(SpaceBound({ 1, 1, 1048576, 99, 10, 60, 0x1ffff, 7, 1048576 }), 13064ull * 1024 * MIB);
}

TEST_F(DoctorTest, OnlyOurFilesCountTowardsTheSpaceThatIsUsed)
{
    for (const wchar_t* name : { L"nmp1.csv", L"nmp64_raw.csv", L"nmp_total.csv", L"nmp_total_raw.3.csv", L"NMP2.CSV" })
        EXPECT_TRUE(IsCsvFile(name)) << Narrow(name);
    for (const wchar_t* name : { L"filler", L"nmp1.csv.zip", L"my_nmp1.csv", L"nmp1.csvx", L"nmp.cs", L".csv", L"" })
        EXPECT_FALSE(IsCsvFile(name)) << Narrow(name);
    for (const wchar_t* name :
         { L"diskperf.log", L"diskperf_trace.15.log", L"diskperf_conf.log", L"diskperf_event.log" })
        EXPECT_TRUE(IsTraceLog(name)) << Narrow(name);
    for (const wchar_t* name : { L"agent.state", L"velcorfeed.log", L"diskperf.dmp", L"diskperf.lo", L"nmp1.csv" })
        EXPECT_FALSE(IsTraceLog(name)) << Narrow(name);
}

TEST_F(DoctorTest, TooLittleSpaceForWhatMayStillCome)
{
    facts.freeBytes = 648 * MIB - 1;
    EXPECT_THAT(Codes(), ElementsAre("space_short warning"));
    EXPECT_EQ(Of("space_short").text,
              "CSV files and logs may grow to 648 MiB and have 0 MiB; the volume has 647 MiB left");
    EXPECT_EQ(Of("space_short").cure,
              "free space, or lower perflogsize or perflogrotation, then restart the disk agent");
    facts.usedBytes = 1;
    EXPECT_THAT(Codes(), IsEmpty());
    facts.freeBytes = 0;
    facts.usedBytes = 700 * MIB;  // more than it may come to, as after a smaller setting
    EXPECT_THAT(Codes(), IsEmpty());
    facts.usedBytes = 0;
    facts.spaceError = ERROR_PATH_NOT_FOUND;
    EXPECT_THAT(Codes(), ElementsAre("not_looked_at note"));
}

// A running agent has its sizes until it is started again; the file's come after that.
TEST_F(DoctorTest, TheLargerOfTheSizesInForceAndInTheFileCount)
{
    SettingValues small = facts.status.file.values;
    SettingValues large = small;
    large[PERF_LOG_SIZE] = 2048;  // 1040 MiB instead of 520
    facts.freeBytes = 1168 * MIB - 1;
    facts.status.agent.state.inForce = large;
    EXPECT_THAT(Codes(), ElementsAre("space_short warning"));
    EXPECT_THAT(Of("space_short").text, StartsWith("CSV files and logs may grow to 1168 MiB and have 0 MiB"));
    facts.status.agent.state.inForce = small;
    facts.status.file.values = large;
    EXPECT_THAT(Codes(), ElementsAre("space_short warning"));
    facts.status.file.values = small;
    EXPECT_THAT(Codes(), IsEmpty());
    facts.status.file.accepted = false;
    facts.status.agent.state.inForce = large;
    EXPECT_THAT(Said("space"), ElementsAre("space_short warning"));
}

TEST_F(DoctorTest, BinariesOfAnotherVersionMissingOrForeign)
{
    facts.binaries[1].version = "0.9.0.0";
    EXPECT_THAT(Codes(), ElementsAre("version_differs wrong"));
    EXPECT_EQ(Of("version_differs").text, "bin\\tnwdiskperf.dll has version 0.9.0.0, dkpfctl has 1.0.0.0");
    facts.binaries[1].version = "";
    EXPECT_EQ(Of("version_differs").text, "bin\\tnwdiskperf.dll has no version, dkpfctl has 1.0.0.0");
    facts.binaries[1].there = false;
    EXPECT_THAT(Codes(), ElementsAre("binary_missing wrong"));
    facts.binaries[1] = { "bin\\stranger.dll", true, "1.0.0.0" };
    EXPECT_THAT(Codes(), ElementsAre("foreign_binary warning"));
    EXPECT_EQ(Of("foreign_binary").cure, "del \"C:\\home\\bin\\stranger.dll\"");
}

TEST_F(DoctorTest, TheSimulatedDriverIsOfTheSameVersion)
{
    facts.binaries[2].version = "0.9.0.0";
    EXPECT_THAT(Codes(), ElementsAre("version_differs wrong"));
    EXPECT_EQ(Of("version_differs").text, "driver\\velcor.sys has version 0.9.0.0, dkpfctl has 1.0.0.0");
    facts.binaries[2].there = false;
    EXPECT_THAT(Codes(), ElementsAre("binary_missing wrong"));
    EXPECT_EQ(Of("binary_missing").text, "driver\\velcor.sys is missing");
}

TEST_F(DoctorTest, TheDriverThatTheSystemLoadsIsOfTheSameVersion)
{
    facts.binaries.push_back({ "C:\\windows\\system32\\drivers\\velcor.sys", true, "1.0.0.0", true });
    EXPECT_THAT(Codes(), IsEmpty());
    facts.binaries.back().version = "0.9.0.0";
    EXPECT_THAT(Codes(), ElementsAre("version_differs wrong"));
    EXPECT_EQ(Of("version_differs").text,
              "C:\\windows\\system32\\drivers\\velcor.sys has version 0.9.0.0, dkpfctl has 1.0.0.0");
    facts.binaries.back().there = false;
    EXPECT_THAT(Codes(), ElementsAre("binary_missing wrong"));
}

TEST_F(DoctorTest, ARealDriverHasAFilterOfItsOwn)
{
    facts.binaries.push_back({ "bin\\tnwdiskfltr.dll", true, "7.1.0.0" });
    EXPECT_THAT(Codes(), ElementsAre("version_differs wrong"));
    facts.status.feeder.info = ServiceInfo{};
    EXPECT_THAT(Codes(), IsEmpty());
    facts.binaries.back().there = false;
    EXPECT_THAT(Codes(), ElementsAre("binary_missing wrong"));
    facts.binaries.back() = { "bin\\tnwlog.dll", true, "7.1.0.0" };
    EXPECT_THAT(Codes(), ElementsAre("version_differs wrong"));
}

// Set-up installs the files beside its program, and does nothing where one is missing.
TEST_F(DoctorTest, AnInstallationThatIsNotWholeIsMendedOutOfThePackage)
{
    facts.registration.objectList.reset();
    EXPECT_EQ(Of("object_list_missing").cure, INSTALL);
    facts.whole = false;
    EXPECT_EQ(Of("object_list_missing").cure, INSTALL_PACKAGE);
}

TEST_F(DoctorTest, ADriverWithoutAFeederIsARealOneThatSetUpLeavesAlone)
{
    facts.registration.objectList.reset();
    facts.status.feeder.info = ServiceInfo{};
    EXPECT_EQ(Of("object_list_missing").cure,
              std::string(INSTALL) + " --no-driver, put the real tnwdiskfltr.dll back into \"C:\\home\\bin\"");
    facts.status.feeder.info.error = ERROR_ACCESS_DENIED;  // whether there is a feeder is not known
    EXPECT_EQ(Of("object_list_missing").cure, INSTALL);
    facts.status.feeder.info.error = ERROR_SUCCESS;
    facts.status.driver.info = ServiceInfo{};
    EXPECT_EQ(Of("object_list_missing").cure, INSTALL);
    EXPECT_EQ(Of("driver_not_installed").cure, INSTALL);
}

/* ---- Exit code and printing ---- */

TEST_F(DoctorTest, TheWorstFindingDecidesTheExitCode)
{
    const Finding note{ "", "", Level::Note, "", "" };
    const Finding warning{ "", "", Level::Warning, "", "" };
    const Finding wrong{ "", "", Level::Wrong, "", "" };
    EXPECT_EQ(DoctorExit({}), 0);
    EXPECT_EQ(DoctorExit({ note }), 0);
    EXPECT_EQ(DoctorExit({ warning, note }), 3);
    EXPECT_EQ(DoctorExit({ note, wrong, warning }), 1);
}

TEST_F(DoctorTest, TheWholeText)
{
    const Findings findings = {
        { "driver", "driver", Level::Ok, "the driver velcor runs", "" },
        { "dead_rows", "dead_row", Level::Note, "row 4 is dead", "nothing" },
        { "space", "space_short", Level::Warning, "the volume is small", "free space" },
        { "provider", "provider_disabled", Level::Wrong, "it is off", "dkpfctl doctor --fix" },
    };
    EXPECT_EQ(DoctorText(facts, findings, FixResult{ FixState::Refused, "it stays off" }),
              "NODE1, 2026-03-07T15:05:09.042+09:00\n"
              "it stays off\n"
              "ok      driver: the driver velcor runs\n"
              "note    dead_row: row 4 is dead\n"
              "        nothing\n"
              "WARNING space_short: the volume is small\n"
              "        free space\n"
              "WRONG   provider_disabled: it is off\n"
              "        dkpfctl doctor --fix\n" +
                  std::to_string(CheckCount()) + " checks: 1 wrong, 1 warnings, 1 notes\n");
}

TEST_F(DoctorTest, TheWholeJson)
{
    const Findings findings = { { "driver", "driver", Level::Ok, "it runs", "" },
                                { "space", "space_short", Level::Warning, "C:\\ is small", "free space" } };
    EXPECT_EQ(DoctorJson(facts, findings, std::nullopt), "{\n"
                                                         "  \"format\": 1,\n"
                                                         "  \"computer\": \"NODE1\",\n"
                                                         "  \"time\": \"2026-03-07T15:05:09.042+09:00\",\n"
                                                         "  \"utc_offset_minutes\": 540,\n"
                                                         "  \"exit_code\": 3,\n"
                                                         "  \"checks\": " +
                                                             std::to_string(CheckCount()) +
                                                             ",\n"
                                                             "  \"wrong\": 0,\n"
                                                             "  \"warnings\": 1,\n"
                                                             "  \"notes\": 0,\n"
                                                             "  \"fix\": null,\n"
                                                             "  \"findings\": [\n"
                                                             "    {\n"
                                                             "      \"check\": \"driver\",\n"
                                                             "      \"code\": \"driver\",\n"
                                                             "      \"level\": \"ok\",\n"
                                                             "      \"text\": \"it runs\",\n"
                                                             "      \"cure\": \"\"\n"
                                                             "    },\n"
                                                             "    {\n"
                                                             "      \"check\": \"space\",\n"
                                                             "      \"code\": \"space_short\",\n"
                                                             "      \"level\": \"warning\",\n"
                                                             "      \"text\": \"C:\\\\ is small\",\n"
                                                             "      \"cure\": \"free space\"\n"
                                                             "    }\n"
                                                             "  ]\n"
                                                             "}\n");
    EXPECT_THAT(DoctorJson(facts, findings, FixResult{ FixState::Done, "on again" }),
                HasSubstr("\"fix\": {\n    \"state\": \"done\",\n    \"text\": \"on again\"\n  },\n"));
}

TEST_F(DoctorTest, StatusShowsTheShortOfIt)
{
    const std::string checks = std::to_string(CheckCount());
    const auto        summarize = [this] { facts.status.doctor = Summarize(RunChecks(facts)); };
    const auto        json = [&](int findings, int wrong) {
        return "\"doctor\": {\n    \"checks\": " + checks + ",\n    \"findings\": " + std::to_string(findings) +
               ",\n    \"wrong\": " + std::to_string(wrong) + "\n  },\n";
    };
    summarize();
    EXPECT_EQ(StatusText(facts.status, {}).find("all is well\ndoctor: all " + checks + " checks are well\n"), 0u);
    EXPECT_THAT(StatusJson(facts.status, {}), HasSubstr(json(0, 0)));

    // Warnings do not make it wrong, and a note is no finding.
    facts.status.file.unknown = { "line 5" };
    facts.status.consumers.push_back({ 4, 501, ProcessLife::Gone });
    summarize();
    EXPECT_TRUE(AllIsWell(facts.status, {}));
    EXPECT_EQ(StatusText(facts.status, {}).find("all is well\ndoctor: 1 finding, see dkpfctl doctor\n"), 0u);

    // What the doctor alone calls wrong does: text, "well" and the exit code say so.
    facts.debug.value = 1;
    summarize();
    EXPECT_FALSE(AllIsWell(facts.status, {}));
    EXPECT_EQ(StatusText(facts.status, {})
                  .find("WRONG: the doctor found what status does not look at\n"
                        "       dkpfctl doctor names it, and what to do\n"
                        "doctor: 2 findings, see dkpfctl doctor\n"),
              0u);
    EXPECT_THAT(StatusJson(facts.status, {}), testing::AllOf(HasSubstr("\"well\": false,"), HasSubstr(json(2, 1))));

    // A trouble of its own needs no such line.
    const Troubles troubles = { { "code", "text", "cure" } };
    EXPECT_FALSE(AllIsWell(facts.status, troubles));
    EXPECT_EQ(StatusText(facts.status, troubles).find("WRONG: text\n       cure\ndoctor: "), 0u);
    facts.status.doctor.reset();
    EXPECT_FALSE(AllIsWell(facts.status, troubles));
    EXPECT_TRUE(AllIsWell(facts.status, {}));
}

/* ---- Mending ---- */

namespace {

class RecordingFix : public FixPort {
public:
    DWORD EnableProvider() override
    {
        calls++;
        return error;
    }
    int   calls = 0;
    DWORD error = ERROR_SUCCESS;
};

}  // namespace

TEST_F(DoctorTest, AProviderThatIsOnNeedsNoFix)
{
    RecordingFix port;
    EXPECT_EQ(FixProvider(facts, port).state, FixState::NotNeeded);
    facts.registration.disabled = 0;
    EXPECT_EQ(FixProvider(facts, port).state, FixState::NotNeeded);
    EXPECT_EQ(port.calls, 0);
}

TEST_F(DoctorTest, AProviderThatIsOffIsSwitchedOn)
{
    RecordingFix port;
    facts.registration.disabled = 1;
    EXPECT_EQ(FixProvider(facts, port).state, FixState::Done);
    EXPECT_EQ(port.calls, 1);
    port.error = ERROR_ACCESS_DENIED;
    const FixResult failed = FixProvider(facts, port);
    EXPECT_EQ(failed.state, FixState::Failed);
    EXPECT_THAT(failed.text, HasSubstr("could not be switched on again: error 5"));
}

TEST_F(DoctorTest, ADeadReadersRowAndTheLastFreeOneLetTheNextOpenIn)
{
    std::string why;
    facts.status.consumers.assign(31, { 1, 500, ProcessLife::Alive });
    EXPECT_TRUE(ProviderCanOpen(facts, &why));
    facts.status.consumers.push_back({ 32, 501, ProcessLife::Gone });
    EXPECT_TRUE(ProviderCanOpen(facts, &why));
}

// The next open would fail, and the system would switch it off again.
TEST_F(DoctorTest, AProviderWhoseOpenWouldFailStaysOff)
{
    facts.registration.disabled = 1;
    const DoctorFacts healthy = facts;
    struct Reason {
        void (*break_)(DoctorFacts&);
        const char* why;
    };
    static constexpr Reason reasons[] = {
        { [](DoctorFacts& broken) {
             broken.status.region = RegionStatus::Absent;
             broken.status.regionWords = "no region";
         },
          "no region" },
        { [](DoctorFacts& broken) { broken.status.view.damage = { "param_num is 99" }; },
          "the shared region is damaged" },
        { [](DoctorFacts& broken) { broken.status.view.published[PERF_ENABLE] = 0; }, "collection is switched off" },
        { [](DoctorFacts& broken) { broken.status.view.hasSample = false; }, "there is no sample yet" },
        { [](DoctorFacts& broken) { broken.status.file.accepted = false; }, "the configuration file is refused" },
        { [](DoctorFacts& broken) {
             broken.status.consumers.assign(32, { 1, 500, ProcessLife::Alive });
         },
          "all consumer rows are taken" },
        { [](DoctorFacts& broken) { broken.registration.firstCounter.reset(); },
          "First Counter or First Help is not registered" },
        { [](DoctorFacts& broken) { broken.registration.firstHelp.reset(); },
          "First Counter or First Help is not registered" },
        { [](DoctorFacts& broken) { broken.registration.library.reset(); }, "the registered library cannot be read" },
        { [](DoctorFacts& broken) { broken.registration.libraryError = ERROR_FILE_NOT_FOUND; },
          "the registered library cannot be read" },
        { [](DoctorFacts& broken) { broken.registration.libraryReadable = false; },
          "the registered library is damaged" },
        { [](DoctorFacts& broken) { broken.registration.open.reset(); },
          "Open, Collect or Close is not registered as it has to be" },
        { [](DoctorFacts& broken) { broken.registration.close = "Close"; },
          "Open, Collect or Close is not registered as it has to be" },
        { [](DoctorFacts& broken) { broken.registration.exports.pop_back(); },
          "the registered library lacks an export" },
    };
    for (const Reason& reason : reasons) {
        RecordingFix port;
        facts = healthy;
        reason.break_(facts);
        const FixResult result = FixProvider(facts, port);
        EXPECT_EQ(result.state, FixState::Refused) << reason.why;
        EXPECT_EQ(result.text,
                  std::string("the provider stays switched off, since its next open would fail: ") + reason.why);
        EXPECT_EQ(port.calls, 0) << reason.why;
    }
}
