/*
 * The disk agent as a service of the real service manager, and the operator's tool beside it.
 */
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <windows.h>
#include <aclapi.h>
#include <memory>
#include <stdexcept>
#include <stdlib.h>

#include "region_reader.h"
#include "support/driver.h"
#include "support/patience.h"
#include "support/product_home.h"
#include "support/program.h"

using Json = nlohmann::json;
using testing::Contains;
using testing::HasSubstr;
using testing::IsSupersetOf;

class Agent : public testing::Test {
protected:
    Agent()
    {
        RemoveService(VELCOR_SERVICE_NAME);
        home.Install(L"dkpfagent.exe");
        home.Install(L"dkpfctl.exe");
        service = std::make_unique<Service>("dkpfagent", SERVICE_WIN32_OWN_PROCESS,
                                            "\"" + home.PlainPath(L"bin\\dkpfagent.exe") + "\"");
    }

    /* An empty object where the text is none. */
    static Json Parse(const std::string& text)
    {
        const Json json = Json::parse(text, nullptr, false);
        return json.is_object() ? json : Json::object();
    }

    Json State() const
    {
        return Parse(home.Read(L"log\\agent.state"));
    }

    /* "" where the file or the field is not there. */
    std::string StateText(const char* field) const
    {
        return State().value(field, std::string());
    }

    bool StartAndAwaitRunning()
    {
        return service->Start() && Eventually([this] { return StateText("state") == "running"; });
    }

    Ran Ctl(const std::string& arguments) const
    {
        return RunToEnd(home.Path(L"bin\\dkpfctl.exe"), arguments);
    }

    Json Status() const
    {
        return Parse(Ctl("status --json").output);
    }

    std::string Log() const
    {
        return home.Read(L"log\\diskperf.log");
    }

    /* The configuration in the region; throws where it cannot be copied. */
    static DKPF_CONF Published()
    {
        const dkpf::RegionCopy copy = dkpf::ReadRegion();
        if (copy.status != dkpf::RegionStatus::Copied) {
            throw std::runtime_error(copy.words);
        }
        return copy.info->conf;
    }

    /* The code of a service that has stopped. */
    DWORD SpecificExitCode() const
    {
        const SERVICE_STATUS status = service->Status();
        return status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR ? status.dwServiceSpecificExitCode : 0;
    }

    /* Whom an event's list of access names; -1 where it has no list: everybody may open it. */
    static int EntriesOfAccess(const wchar_t* name)
    {
        PACL                 list = NULL;
        PSECURITY_DESCRIPTOR descriptor = NULL;
        const HANDLE         event = OpenEventW(READ_CONTROL, FALSE, name);
        const DWORD          error =
            GetSecurityInfo(event, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, NULL, NULL, &list, NULL, &descriptor);
        const int entries = error == ERROR_SUCCESS && list != NULL ? list->AceCount : -1;
        LocalFree(descriptor);
        CloseHandle(event);
        return entries;
    }

    static std::vector<std::string> Codes(const Json& status)
    {
        std::vector<std::string> codes;
        for (const Json& trouble : status.at("troubles")) {
            codes.push_back(trouble["code"]);
        }
        return codes;
    }

    static const Json& Setting(const Json& status, const std::string& name)
    {
        static const Json missing;
        for (const Json& setting : status.at("configuration").at("settings")) {
            if (setting["name"] == name) {
                return setting;
            }
        }
        return missing;
    }

    ProductHome              home;
    std::unique_ptr<Service> service;
};

class AgentWithDriver : public Agent {
protected:
    void FeedOneDisk()
    {
        VELCOR_FEED feed = {};
        feed.driver.entry[0].state = VELCOR_STATE_INITIALIZED;
        feed.driver.entry[0].mode = VELCOR_MODE_SYNC;
        driver.Feed(feed);
    }

    InstalledDriver driver;
};

TEST_F(Agent, WrongUsageAndAStartByHandEndWithCode2InWords)
{
    const std::wstring exe = home.Path(L"bin\\dkpfagent.exe");
    for (const char* arguments : { "--nonsense", "--console --nonsense" }) {
        const Ran ran = RunToEnd(exe, arguments);
        EXPECT_EQ(2u, ran.code) << arguments;
        EXPECT_THAT(ran.output, HasSubstr("usage: dkpfagent [--console"));
    }
    const Ran byHand = RunToEnd(exe, "");
    EXPECT_EQ(2u, byHand.code);
    EXPECT_THAT(byHand.output, HasSubstr("the service manager starts the service; in the foreground use --console"));
}

TEST_F(AgentWithDriver, StartsTheDriversServiceItself)
{
    ASSERT_NE(static_cast<DWORD>(SERVICE_RUNNING), driver.service->State());
    ASSERT_TRUE(StartAndAwaitRunning());
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), driver.service->State());
    FeedOneDisk();
    EXPECT_TRUE(Eventually([this] { return home.Lines(L"perf\\nmp1.csv").size() > 1; }));
    EXPECT_EQ(0, home.Events("0xC00012C5"));
    EXPECT_TRUE(service->Stop());
}

// What runs is well. That set-up was never here the doctor alone finds, and it makes the whole wrong.
TEST_F(AgentWithDriver, WhatRunsWellHasNoTroubleInTheStatus)
{
    EXPECT_EQ(1u, Ctl("status").code);
    EXPECT_EQ(1u, Ctl("dump").code);
    ASSERT_TRUE(StartAndAwaitRunning());
    FeedOneDisk();
    ASSERT_TRUE(Eventually([this] { return Status()["disks"] == Json::array({ 1 }); }));
    const Ran ran = Ctl("status --json");
    EXPECT_EQ(1u, ran.code) << ran.output;
    Json status = Json::parse(ran.output);
    EXPECT_EQ(false, status["well"]);
    EXPECT_EQ(Json::array(), status["troubles"]);
    EXPECT_LT(0, status["doctor"]["wrong"]);
    EXPECT_EQ("service", status["agent"]["mode"]);
    EXPECT_EQ(Json::array(), status["consumers"]);
    EXPECT_EQ(1u, Setting(status, "parameters/writeinterval")["in_force"]);
    const Ran words = Ctl("status");
    EXPECT_EQ(1u, words.code);
    EXPECT_EQ(0u, words.output.find("WRONG: the doctor found what status does not look at")) << words.output;
    const Ran dump = Ctl("dump --disk 1 --rows");
    EXPECT_EQ(0u, dump.code) << dump.output;
    EXPECT_EQ(2u, Ctl("dump --disk 65").code);
    EXPECT_EQ(2u, Ctl("status --nonsense").code);
    EXPECT_EQ(2u, Ctl("").code);
}

TEST_F(Agent, WithoutADriverItStaysAndStatusSaysWhatIsWrong)
{
    ASSERT_TRUE(StartAndAwaitRunning());
    ASSERT_TRUE(Eventually([this] { return home.Events("0xC00012C5") == 1; }));
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), service->State());
    const Ran ran = Ctl("status --json");
    EXPECT_EQ(1u, ran.code);
    Json status = Json::parse(ran.output);
    EXPECT_EQ(false, status["well"]);
    EXPECT_THAT(Codes(status), IsSupersetOf({ "driver_not_installed", "warning_open" }));
    EXPECT_EQ("driver_not_installed", Codes(status).at(0));  // the cause before what follows from it
    const Ran words = Ctl("status");
    EXPECT_EQ(1u, words.code);
    EXPECT_THAT(words.output, HasSubstr("the driver velcor is not installed"));
    EXPECT_TRUE(service->Stop());
}

TEST_F(Agent, ASecondOneIsRefusedAndLeavesTheFirstAlone)
{
    home.Configure({ { "parameters/perflogsize", "77" } });
    ASSERT_TRUE(StartAndAwaitRunning());
    home.Configure({ { "parameters/perflogsize", "78" } });
    const Ran second = RunToEnd(home.Path(L"bin\\dkpfagent.exe"), "--console");
    EXPECT_EQ(3u, second.code);
    EXPECT_THAT(second.output, HasSubstr("another disk agent runs on this machine"));
    EXPECT_EQ(77u, Published().perf_log_size);
    EXPECT_EQ("running", StateText("state"));
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), service->State());
}

TEST_F(Agent, BesideOneInTheForegroundServiceAndForegroundAreRefused)
{
    const std::wstring exe = home.Path(L"bin\\dkpfagent.exe");
    Program            first(exe, "--console");
    ASSERT_TRUE(Eventually([this] { return StateText("state") == "running"; }));
    const Ran second = RunToEnd(exe, "--console");
    EXPECT_EQ(3u, second.code);
    EXPECT_THAT(second.output, HasSubstr("not started: another disk agent runs on this machine: end it first"));
    service->Launch();
    EXPECT_TRUE(Eventually([this] { return service->State() == SERVICE_STOPPED && SpecificExitCode() == 3; }));
    EXPECT_EQ(first.Id(), State()["pid"]);
    EXPECT_EQ("running", StateText("state"));
    const std::string log = Log();
    const std::string words = "not started: another disk agent runs on this machine";
    EXPECT_NE(log.find(words), log.rfind(words));  // both said so
}

// An account without the right to create global objects gets error 5, as here: the name is taken, and open to nobody.
TEST_F(Agent, WithoutTheRightToCreateGlobalObjectsItIsRefusedInWords)
{
    const std::wstring  exe = home.Path(L"bin\\dkpfagent.exe");
    std::wstring        command = L"\"" + exe + L"\" --console";
    STARTUPINFOW        startup = {};
    PROCESS_INFORMATION process = {};
    SECURITY_DESCRIPTOR descriptor = {};
    ACL                 empty = {};
    SECURITY_ATTRIBUTES nobody = { sizeof(nobody), &descriptor, FALSE };
    DWORD               code = 0;
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    InitializeAcl(&empty, sizeof(empty), ACL_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, &empty, FALSE);
    startup.cb = sizeof(startup);
    ASSERT_TRUE(Created([&] {
        return CreateProcessW(exe.c_str(), &command[0], NULL, NULL, FALSE, CREATE_SUSPENDED, NULL, NULL, &startup,
                              &process);
    }));
    const std::wstring name = L"Global\\TNW_DKPF_AGENT_PROBE_" + std::to_wstring(process.dwProcessId);
    const HANDLE       taken = CreateFileMappingW(INVALID_HANDLE_VALUE, &nobody, PAGE_READWRITE, 0, 4096, name.c_str());
    EXPECT_NE(static_cast<HANDLE>(NULL), taken);
    ResumeThread(process.hThread);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process.hProcess, PATIENCE_MS));
    GetExitCodeProcess(process.hProcess, &code);
    EXPECT_EQ(6u, code);
    EXPECT_THAT(Log(), HasSubstr("not started: this account may not create named memory for all sessions (error 5"));
    EXPECT_EQ("", home.Read(L"log\\agent.state"));
    EXPECT_EQ(dkpf::RegionStatus::Absent, dkpf::ReadRegion().status);
    for (HANDLE handle : { taken, process.hThread, process.hProcess }) {
        CloseHandle(handle);
    }
}

// A process that holds the region's mutex keeps the library from coming down. In the long form it never lets go.
TEST_F(Agent, AStopThatHangsShowsRisingCheckPointsAndIsGivenUpAfter310Seconds)
{
    const bool forGood = getenv("DKPF_TEST_LONG") != nullptr;
    ASSERT_TRUE(StartAndAwaitRunning());
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, State()["pid"]);
    ASSERT_NE(static_cast<HANDLE>(NULL), process);
    const HANDLE region = OpenMutexA(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, "Global\\TNW_DKPF_MUTEX_INFO");
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(region, PATIENCE_MS));
    ASSERT_TRUE(service->Control(SERVICE_CONTROL_STOP));
    DWORD last = 0;
    ASSERT_TRUE(Eventually([&] {
        const SERVICE_STATUS status = service->Status();
        EXPECT_EQ(static_cast<DWORD>(SERVICE_STOP_PENDING), status.dwCurrentState);
        EXPECT_EQ(5000u, status.dwWaitHint);
        EXPECT_EQ(0u, status.dwControlsAccepted);
        EXPECT_GE(status.dwCheckPoint, last);
        last = status.dwCheckPoint;
        return last >= 3;
    }));
    EXPECT_EQ("stopping", StateText("state"));
    if (forGood) {
        for (int minute = 0; minute < 6 && service->State() != SERVICE_STOPPED; minute++) {
            Eventually([this] { return service->State() == SERVICE_STOPPED; });
        }
        EXPECT_EQ(7u, SpecificExitCode());
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, PATIENCE_MS));
        EXPECT_THAT(Log(), HasSubstr(" not down after 310 s: the process ends now"));
    }
    ReleaseMutex(region);
    CloseHandle(region);
    CloseHandle(process);
    EXPECT_TRUE(Eventually([this] { return service->State() == SERVICE_STOPPED; }));
    EXPECT_EQ(forGood ? 7u : 0u, SpecificExitCode());
    ASSERT_TRUE(service->Start());  // and again
    EXPECT_TRUE(Eventually([this] { return StateText("state") == "running"; }));
}

TEST_F(Agent, AKilledOneIsFollowedByTheNext)
{
    Program killed(home.Path(L"bin\\dkpfagent.exe"), "--console");
    ASSERT_TRUE(Eventually([this] { return StateText("state") == "running"; }));
    killed.Kill();
    EXPECT_THAT(Codes(Status()), Contains("agent_died"));
    ASSERT_TRUE(service->Start());
    EXPECT_TRUE(Eventually([&] { return State()["pid"] != killed.Id() && StateText("state") == "running"; }));
}

TEST_F(Agent, RefusesABrokenConfigurationWithFileLineAndReason)
{
    home.BreakConfiguration();
    service->Launch();
    ASSERT_TRUE(Eventually([this] { return service->State() == SERVICE_STOPPED && SpecificExitCode() != 0; }));
    EXPECT_EQ(4u, SpecificExitCode());
    EXPECT_THAT(Log(), HasSubstr("not started: the configuration is refused: "));
    EXPECT_THAT(Log(), HasSubstr("cluster.xml, line 4"));
    EXPECT_EQ("stopped", StateText("state"));
    EXPECT_EQ(4u, State()["exit_code"]);
    EXPECT_EQ(dkpf::RegionStatus::Absent, dkpf::ReadRegion().status);
    EXPECT_THAT(Codes(Status()), IsSupersetOf({ "config_refused", "agent_not_running" }));
}

TEST_F(Agent, AReloadOfABrokenFileKeepsTheSettingsAndSaysSo)
{
    home.Configure({ { "parameters/writeinterval", "33" } });
    ASSERT_TRUE(StartAndAwaitRunning());
    home.BreakConfiguration();
    const Ran asked = Ctl("config reload");
    EXPECT_EQ(1u, asked.code);
    EXPECT_THAT(asked.output, HasSubstr("cluster.xml, line 4"));
    EXPECT_THAT(asked.output, HasSubstr("nothing was sent to the agent"));
    EXPECT_EQ(0u, State()["reloads"]);

    ASSERT_TRUE(service->Control(SERVICE_CONTROL_PARAMCHANGE));  // by another tool
    ASSERT_TRUE(Eventually([this] { return State()["reloads"] == 1; }));
    EXPECT_THAT(Log(), HasSubstr("reload: the configuration is refused, the old settings stay in force: "));
    Json status = Status();
    EXPECT_EQ("refused", status["agent"]["last_reload"]["result"]);
    EXPECT_THAT(status["agent"]["last_reload"]["message"].get<std::string>(), HasSubstr("cluster.xml, line 4"));
    EXPECT_EQ(33u, Setting(status, "parameters/writeinterval")["in_force"]);
    EXPECT_THAT(Codes(status), Contains("config_refused"));
    EXPECT_EQ(33u, Published().write_interval);
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), service->State());
}

TEST_F(AgentWithDriver, AReloadTakesOverTheWriteIntervalAtOnceAndNamesWhatWaits)
{
    home.Configure({ { "parameters/writeinterval", "86400" } });
    ASSERT_TRUE(StartAndAwaitRunning());
    FeedOneDisk();
    ASSERT_TRUE(Eventually([this] { return Status()["disks"] == Json::array({ 1 }); }));
    EXPECT_TRUE(home.List(L"perf").empty());
    home.Configure(
        { { "parameters/writeinterval", "1" }, { "parameters/perflogrotation", "8" }, { "log/level", "15" } });
    const Json before = Status();
    EXPECT_EQ("reload", Setting(before, "parameters/writeinterval")["needs"]);
    EXPECT_EQ("restart", Setting(before, "parameters/perflogrotation")["needs"]);
    const Ran asked = Ctl("config reload");
    EXPECT_EQ(0u, asked.code);
    EXPECT_EQ("taken over:\r\n  parameters/writeinterval = 1 s\r\nwaiting for a restart of the agent:\r\n"
              "  parameters/perflogrotation (in force: 3)\r\n  log/level (in force: 7)\r\n",
              asked.output);
    EXPECT_TRUE(Eventually([this] { return home.Lines(L"perf\\nmp1.csv").size() > 2; }));
    Json status = Status();
    EXPECT_EQ(1u, Setting(status, "parameters/writeinterval")["in_force"]);
    EXPECT_EQ(3u, Setting(status, "parameters/perflogrotation")["in_force"]);
    EXPECT_EQ(8u, Setting(status, "parameters/perflogrotation")["in_file"]);
    EXPECT_EQ(Json::array({ "parameters/writeinterval" }), status["agent"]["last_reload"]["taken_over"]);
    EXPECT_EQ(Json::array({ "parameters/perflogrotation", "log/level" }), status["agent"]["last_reload"]["waiting"]);
}

TEST_F(Agent, AnAgentInTheForegroundIsReloadedTooAndStopsByCtrlC)
{
    Program agent(home.Path(L"bin\\dkpfagent.exe"), "--console", CREATE_NO_WINDOW);
    ASSERT_TRUE(Eventually([this] { return StateText("state") == "running"; }));
    home.Configure({ { "parameters/writeinterval", "9" } });
    const Ran asked = Ctl("config reload");
    EXPECT_EQ(0u, asked.code) << asked.output;
    EXPECT_EQ(9u, Published().write_interval);
    EXPECT_EQ("console", Status()["agent"]["mode"]);
    EXPECT_EQ(2, EntriesOfAccess(L"Global\\TNW_DKPF_AGENT_RELOAD"));  // administrators and the system account
    EXPECT_TRUE(agent.CtrlC()) << GetLastError();
    EXPECT_THAT(agent.Rest(), HasSubstr("dkpfagent: stopped"));
    EXPECT_EQ(0u, agent.End());
}

TEST_F(AgentWithDriver, AStopEndsItAndItsRegion)
{
    home.Configure({ { "parameters/collectinterval", "3600" }, { "parameters/writeinterval", "86400" } });
    ASSERT_TRUE(StartAndAwaitRunning());
    EXPECT_EQ(DWORD{ SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PARAMCHANGE },
              service->Status().dwControlsAccepted);
    EXPECT_TRUE(service->Stop());  // within the patience of one case, whatever the intervals
    EXPECT_EQ("stopped", StateText("state"));
    EXPECT_EQ(0u, State()["exit_code"]);
    EXPECT_EQ(static_cast<DWORD>(NO_ERROR), service->Status().dwWin32ExitCode);
    EXPECT_TRUE(Eventually([] { return dkpf::ReadRegion().status == dkpf::RegionStatus::Absent; }));
    EXPECT_EQ(1u, Ctl("config reload").code);
    EXPECT_THAT(Codes(Status()), Contains("agent_not_running"));
    ASSERT_TRUE(service->Start());  // and again
    EXPECT_TRUE(Eventually([this] { return StateText("state") == "running"; }));
}

TEST_F(Agent, OneCsvFileHeldCostsTheOthersNothingWith64Disks)
{
    InstalledDriver driver;
    VELCOR_FEED     feed = {};
    for (VELCOR_ENTRY& entry : feed.driver.entry) {
        entry.state = VELCOR_STATE_INITIALIZED;
    }
    home.Write(L"perf\\nmp33_raw.csv", "");
    const HANDLE held = home.Hold(L"perf\\nmp33_raw.csv", 0);
    ASSERT_TRUE(StartAndAwaitRunning());
    driver.Feed(feed);
    ASSERT_TRUE(Eventually([this] { return home.Lines(L"perf\\nmp_total_raw.csv").size() > 2; }));
    const std::vector<std::wstring> files = home.List(L"perf");
    EXPECT_EQ(130u, files.size());
    for (const std::wstring& file : files) {
        if (file != L"nmp33_raw.csv") {
            EXPECT_GE(home.Lines((L"perf\\" + file).c_str()).size(), 3u) << std::string(file.begin(), file.end());
        }
    }
    EXPECT_EQ(1, home.Events("0x800012C3"));
    CloseHandle(held);
    EXPECT_TRUE(Eventually([this] { return home.Events("0x400012C4") == 1; }));
    EXPECT_TRUE(Eventually([this] { return home.Lines(L"perf\\nmp33_raw.csv").size() > 1; }));
    EXPECT_EQ(1, home.Events("0x800012C3"));
    EXPECT_TRUE(service->Stop());
    driver.service->Stop();
}
