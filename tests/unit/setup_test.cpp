// Whole runs of install and uninstall on a machine in memory: each change failing once, the program killed behind each
// change, runs over what is there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <algorithm>

#include "doubles/machine_double.h"
#include "install.h"
#include "names.h"
#include "product_files.h"
#include "registration.h"
#include "text.h"
#include "uninstall.h"

namespace dkpf {
namespace {

using testing::Contains;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::wstring SOURCE = L"C:\\unpacked";
const std::wstring HOME = L"C:\\Program Files\\TARNWELL";

/* What the folder that is installed from holds; a version's text stands in each file. */
void Unpack(FakeMachine& machine, const std::string& version)
{
    for (const wchar_t* folder : { L"", L"\\bin", L"\\etc", L"\\etc\\policy", L"\\etc\\scenarios", L"\\driver" })
        machine.state.folders[SOURCE + folder] = L"D:AI";
    for (const ProductFile& file : PRODUCT_FILES)
        machine.state.files[SOURCE + L"\\" + file.path] = version + " of " + Narrow(file.path);
}

class Setup : public testing::Test {
protected:
    static bool Run(FakeMachine& machine, bool driver = true, std::vector<std::string>* lines = nullptr)
    {
        return Install(machine, { SOURCE, HOME, driver }, [lines](std::string_view line) {
            if (lines != nullptr)
                lines->emplace_back(line);
        });
    }
    static bool Remove(FakeMachine& machine, bool purge = false, std::vector<std::string>* lines = nullptr)
    {
        return Uninstall(machine, { HOME, purge }, [lines](std::string_view line) {
            if (lines != nullptr)
                lines->emplace_back(line);
        });
    }
    static FakeMachine Clean(bool loader)
    {
        FakeMachine machine;
        machine.wine = !loader;
        machine.loaderWorks = loader;
        Unpack(machine, "one");
        return machine;
    }
    /* The first version is installed and runs; the second is unpacked. */
    static FakeMachine Older(bool loader)
    {
        FakeMachine machine = Clean(loader);
        EXPECT_TRUE(Run(machine));
        for (const wchar_t* name : { DRIVER_SERVICE, FEEDER_SERVICE, AGENT_SERVICE })
            machine.state.services.at(name).runs = true;
        machine.state.files[HOME + L"\\etc\\cluster.xml"] = "the operator's";
        machine.state.folders[HOME + L"\\log"] = L"D:AI(A;OICI;FA;;;WD)";
        machine.state.services.at(AGENT_SERVICE).config.start = SERVICE_DEMAND_START;
        machine.state.services.at(FEEDER_SERVICE).config.displayName = L"feeder of one";
        auto& settings = machine.state.services.at(AGENT_SERVICE).settings;
        settings[ServiceSetting::Description] = { L"words of one", {}, 0 };
        settings[ServiceSetting::FailureActions] = { L"", { { SC_ACTION_NONE, 0 } }, 60 };
        settings.erase(ServiceSetting::RequiredPrivileges);
        machine.calls.clear();
        Unpack(machine, "two");
        return machine;
    }
    static std::vector<FakeMachine> Beginnings()
    {
        return { Clean(false), Clean(true), Older(false), Older(true) };
    }
};

TEST_F(Setup, EverythingIsWhereItBelongs)
{
    FakeMachine              machine = Clean(true);
    std::vector<std::string> lines;
    ASSERT_TRUE(Run(machine, true, &lines));
    EXPECT_THAT(lines,
                Contains("services: not started: net start velcor, net start velcorfeed, net start dkpfagent, or "
                         "restart the machine"));
    const auto text = [&machine](const wchar_t* key, const wchar_t* name) {
        RegistryValue value;
        machine.ReadValue(key, name, &value);
        return value.text;
    };
    for (const ProductFile& file : PRODUCT_FILES)
        EXPECT_EQ(machine.state.files[HOME + L"\\" + file.path], "one of " + Narrow(file.path));
    EXPECT_EQ(machine.state.files[L"C:\\Windows\\drivers\\velcor.sys"], "one of driver\\velcor.sys");
    EXPECT_EQ(text(PERFORMANCE_KEY, L"Library"), HOME + L"\\bin\\tnwdiskperf.dll");
    EXPECT_EQ(text(PERFORMANCE_KEY, L"Open"), L"DkpfOpenForPerfmon");
    EXPECT_EQ(text(PERFORMANCE_KEY, L"Collect"), L"DkpfCollectForPerfmon");
    EXPECT_EQ(text(PERFORMANCE_KEY, L"Close"), L"DkpfCloseForPerfmon");
    EXPECT_EQ(text(PERFORMANCE_KEY, L"Object List"), L"7000");
    EXPECT_EQ(text(EVENT_SOURCE_KEY, L"EventMessageFile"), HOME + L"\\bin\\tnwmsg.dll");
    EXPECT_EQ(text(ENVIRONMENT_KEY, L"Path"), L"%SystemRoot%\\system32;C:\\tools;;" + HOME + L"\\bin");
    EXPECT_EQ(machine.state.keys.count(DEBUG_KEY), 1u);
    EXPECT_THAT(machine.state.keys[DEBUG_KEY], IsEmpty());
    EXPECT_EQ(machine.state.keys[EVENT_SOURCE_KEY][L"TypesSupported"].number, 7u);  // errors, warnings, information
    EXPECT_EQ(machine.tellings, 1);
    const FakeService& agent = machine.state.services.at(AGENT_SERVICE);
    EXPECT_EQ(agent.settings.at(ServiceSetting::RequiredPrivileges).text,
              std::wstring(L"SeChangeNotifyPrivilege\0SeCreateGlobalPrivilege\0", 48));
    EXPECT_EQ(agent.config.command, L"\"" + HOME + L"\\bin\\dkpfagent.exe\"");
    EXPECT_EQ(agent.config.start, static_cast<DWORD>(SERVICE_AUTO_START));
    EXPECT_EQ(agent.settings.size(), 3u);
    const std::vector<FailureAction> restarts = { { SC_ACTION_RESTART, 5000 },
                                                  { SC_ACTION_RESTART, 30000 },
                                                  { SC_ACTION_RESTART, 60000 } };
    EXPECT_EQ(agent.settings.at(ServiceSetting::FailureActions).actions, restarts);
    EXPECT_EQ(agent.settings.at(ServiceSetting::FailureActions).resetS, 86400u);
    EXPECT_EQ(agent.config.type, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
    EXPECT_EQ(agent.config.displayName, L"Cluster disk performance agent");
    EXPECT_EQ(
        agent.settings.at(ServiceSetting::Description).text,
        L"Collects the samples of the mirror disks, shares them with readers of performance data and writes the CSV "
        L"files.");
    const ServiceConfig& driver = machine.state.services.at(DRIVER_SERVICE).config;
    EXPECT_EQ(driver.type, static_cast<DWORD>(SERVICE_KERNEL_DRIVER));
    EXPECT_EQ(driver.start, static_cast<DWORD>(SERVICE_AUTO_START));
    EXPECT_EQ(driver.command, L"C:\\Windows\\drivers\\velcor.sys");  // no quotes: the system takes none for a driver
    const FakeService& feeder = machine.state.services.at(FEEDER_SERVICE);
    EXPECT_EQ(feeder.config.type, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
    EXPECT_EQ(feeder.config.start, static_cast<DWORD>(SERVICE_AUTO_START));
    EXPECT_EQ(feeder.config.command, L"\"" + HOME + L"\\bin\\velcorfeed.exe\" --service");
    EXPECT_EQ(feeder.settings.size(), 1u);
    EXPECT_EQ(feeder.settings.at(ServiceSetting::FailureActions).actions, restarts);
    // AI: the system's own mark that what lies below has them too.
    const std::wstring readOnly = L"D:PAI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;WD)";
    for (const wchar_t* folder : { L"\\bin", L"\\etc", L"\\perf", L"\\driver" })
        EXPECT_EQ(machine.state.folders[HOME + folder], readOnly) << Narrow(folder);
    // Everybody lists and makes files, but no folders (4), in the folders; reads and appends (4), but neither writes
    // over (2) nor deletes (10000), in the files of others.
    EXPECT_EQ(machine.state.folders[HOME + L"\\log"],
              L"D:PAI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;CI;0x1201ab;;;WD)(A;OIIO;0x12008d;;;WD)(A;OICIIO;FA;;;CO)");
}

TEST_F(Setup, ASystemWithoutALoaderGetsAFreeRange)
{
    FakeMachine machine = Clean(false);
    ASSERT_TRUE(Run(machine));
    EXPECT_EQ(machine.state.keys[PERFORMANCE_KEY][L"First Counter"].number, 2000u);
    EXPECT_EQ(machine.state.keys[PERFORMANCE_KEY][L"Last Counter"].number, 2034u);
    EXPECT_EQ(machine.state.keys[PERFORMANCE_KEY][L"First Help"].number, 2001u);
    EXPECT_EQ(machine.state.keys[PERFORMANCE_KEY][L"Last Help"].number, 2035u);
    EXPECT_EQ(machine.state.keys[PERFORMANCE_KEY][L"Object List"].text, L"2000");
}

TEST_F(Setup, WithALoaderAMissingRangeIsAFailedStepAndUndone)
{
    FakeMachine machine = Clean(false);
    machine.wine = false;
    const auto               before = Describe(machine.state);
    std::vector<std::string> lines;
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("names of the counters: FAILED: ")));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
}

TEST_F(Setup, ARangeThatDoesNotFitIsTakenOutAgain)
{
    FakeMachine machine = Clean(true);
    machine.loadedLack = 2;
    const auto               before = Describe(machine.state);
    std::vector<std::string> lines;
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("names of the counters: FAILED: ")));
    EXPECT_THAT(lines, Not(Contains(HasSubstr("NOT taken back"))));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
}

TEST_F(Setup, OldNamesThatDoNotComeBackAreSaid)
{
    FakeMachine              machine = Older(true);
    std::vector<std::string> lines;
    machine.loadsNothing = true;
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("NOT taken back: old names of the counters: error 13,")));
}

TEST_F(Setup, AServiceSettingThatIsRefusedEndsItUnlessTheSystemKeepsNone)
{
    FakeMachine machine = Clean(false);
    machine.settingsKept = false;
    std::vector<std::string> lines;
    EXPECT_TRUE(Run(machine, true, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("this system does not keep the list of privileges")));

    FakeMachine failing = Older(false);
    failing.settingsKept = false;
    failing.startHangs = { AGENT_SERVICE };
    lines.clear();
    EXPECT_FALSE(Run(failing, true, &lines));
    EXPECT_THAT(lines, Contains("  taken back: service dkpfagent"));
    EXPECT_THAT(lines, Not(Contains(HasSubstr("taken back: restart after a failure")))) << "it was never set";

    FakeMachine real = Clean(true);
    real.settingsKept = false;
    const auto before = Describe(real.state);
    EXPECT_FALSE(Run(real));
    EXPECT_THAT(Describe(real.state), ElementsAreArray(before));
}

TEST_F(Setup, TheSettingsOfAnAgentThatWasThereComeBack)
{
    FakeMachine beginning = Older(true);
    FakeMachine whole = beginning;
    ASSERT_TRUE(Run(whole));
    const auto settings = [](FakeMachine& machine) { return machine.state.services.at(AGENT_SERVICE).settings; };
    EXPECT_EQ(settings(whole).size(), 3u);
    EXPECT_FALSE(settings(whole) == settings(beginning));

    FakeMachine failing = beginning;
    const auto  start = std::find(whole.calls.begin(), whole.calls.end(), "start dkpfagent");  // the last step's
    failing.failAt = static_cast<size_t>(start - whole.calls.begin()) + 1;
    EXPECT_FALSE(Run(failing));
    EXPECT_TRUE(settings(failing) == settings(beginning));
}

TEST_F(Setup, OnlyWhatHasToStopsAndTheDriverWithTheFeederThatHoldsIt)
{
    const auto stops = [](FakeMachine& machine, const std::wstring& home, bool driver = true) {
        for (const wchar_t* name : { DRIVER_SERVICE, FEEDER_SERVICE, AGENT_SERVICE })
            machine.state.services.at(name).runs = true;
        machine.calls.clear();
        EXPECT_TRUE(Install(machine, { SOURCE, home, driver }, [](std::string_view) {}));
        std::vector<std::string> names;
        for (const std::string& call : machine.calls) {
            if (call.rfind("stop ", 0) == 0)
                names.push_back(call.substr(5));
        }
        EXPECT_TRUE(machine.Runs(AGENT_SERVICE));
        return names;
    };
    FakeMachine machine = Clean(true);
    ASSERT_TRUE(Run(machine));
    EXPECT_THAT(stops(machine, HOME), IsEmpty());
    machine.state.files[SOURCE + L"\\bin\\tnwlog.dll"] = "two";
    EXPECT_THAT(stops(machine, HOME), testing::ElementsAre("dkpfagent", "velcorfeed"));
    machine.state.files[SOURCE + L"\\driver\\velcor.sys"] = "two";
    EXPECT_THAT(stops(machine, HOME), testing::ElementsAre("dkpfagent", "velcorfeed", "velcor"));
    EXPECT_THAT(stops(machine, SOURCE), testing::ElementsAre("dkpfagent", "velcorfeed"));  // another home: no new file
    machine = Older(true);
    EXPECT_THAT(stops(machine, HOME, false), testing::ElementsAre("dkpfagent")) << "the feeder is left alone, as told";
}

TEST_F(Setup, WhatWasStartedStopsBeforeItsFilesGoBack)
{
    FakeMachine machine = Older(true);
    FakeMachine whole = machine;
    ASSERT_TRUE(Run(whole));
    const auto start = std::find(whole.calls.begin(), whole.calls.end(), "start dkpfagent");
    machine.failAt = static_cast<size_t>(start - whole.calls.begin()) + 1;
    EXPECT_FALSE(Run(machine));
    EXPECT_EQ(machine.calls[machine.failAt], "stop velcorfeed");
    EXPECT_EQ(machine.calls[machine.failAt + 1], "stop velcor");
}

TEST_F(Setup, AStartThatTakesTooLongIsStoppedBeforeItsFilesGoBack)
{
    FakeMachine              machine = Older(true);
    const auto               before = Describe(machine.state);
    std::vector<std::string> lines;
    machine.startHangs = { FEEDER_SERVICE };
    EXPECT_FALSE(Run(machine, true, &lines));
    const auto start = std::find(machine.calls.begin(), machine.calls.end(), "start velcorfeed");
    ASSERT_LT(start + 1, machine.calls.end());
    EXPECT_EQ(*(start + 1), "stop velcorfeed");
    EXPECT_THAT(lines, Contains(HasSubstr("services: FAILED: the service velcorfeed does not start: it could not be "
                                          "started: error 1053")));
    // The old one takes as long; the others are as they were.
    EXPECT_THAT(lines, Contains(HasSubstr("NOT taken back: the service velcorfeed does not start: it could not be ")));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
}

TEST_F(Setup, AServiceWhoseStopTakesTooLongIsStartedAgain)
{
    FakeMachine              machine = Older(true);
    const auto               before = Describe(machine.state);
    std::vector<std::string> lines;
    machine.stopHangs = { AGENT_SERVICE };
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_THAT(lines,
                Contains(HasSubstr("services to stop: FAILED: the service dkpfagent does not stop: error 1053")));
    EXPECT_THAT(machine.calls, testing::ElementsAre("stop dkpfagent", "start dkpfagent"));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
}

TEST_F(Setup, ANewLibraryThatAHostLoadedMeanwhileGivesWayToTheOldOne)
{
    FakeMachine        machine = Older(true);
    const std::wstring library = HOME + L"\\bin\\tnwdiskperf.dll";
    FakeMachine        whole = machine;
    ASSERT_TRUE(Run(whole));
    const auto start = std::find(whole.calls.begin(), whole.calls.end(), "start dkpfagent");
    machine.loads = { library };
    machine.failAt = static_cast<size_t>(start - whole.calls.begin()) + 1;
    std::vector<std::string> lines;
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_EQ(machine.state.files[library], "one of bin\\tnwdiskperf.dll");
    EXPECT_THAT(machine.state.atRestart, testing::ElementsAre(library + L".old-2"));
    EXPECT_THAT(lines, Not(Contains(HasSubstr("NOT taken back"))));
}

TEST_F(Setup, AFileWhereAFolderHasToBeEndsIt)
{
    FakeMachine machine = Clean(true);
    machine.state.files[HOME] = "a file";
    const auto               before = Describe(machine.state);
    std::vector<std::string> lines;
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("FAILED: a file stands where the folder C:\\Program Files\\TARNWELL has")));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
}

TEST_F(Setup, NoAdministratorNoChange)
{
    FakeMachine machine = Clean(true);
    machine.administrator = false;
    EXPECT_FALSE(Run(machine));
    EXPECT_FALSE(Remove(machine));
    EXPECT_THAT(machine.calls, IsEmpty());
}

TEST_F(Setup, BesideAnotherSetupNoChange)
{
    FakeMachine machine = Clean(true);
    const char* words = "another install or uninstall runs on this machine: start it again when that has ended";
    std::vector<std::string> lines;
    machine.otherSetup = true;
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_THAT(lines, Contains(std::string("other set-up: FAILED: ") + words));
    lines.clear();
    EXPECT_FALSE(Remove(machine, true, &lines));
    EXPECT_EQ(lines.back(), words);
    EXPECT_THAT(machine.calls, IsEmpty());

    machine.otherSetup = false;
    machine.failAt = 20;
    EXPECT_FALSE(Run(machine));
    machine.failAt = 0;
    EXPECT_TRUE(Run(machine));
    EXPECT_TRUE(Remove(machine, true));
    EXPECT_FALSE(machine.lockTaken);
    EXPECT_FALSE(machine.changedUnlocked) << "held to the last change, the undo's too";
}

TEST_F(Setup, ASecondRunChangesNothing)
{
    for (FakeMachine& machine : std::vector<FakeMachine>{ Clean(false), Clean(true) }) {
        ASSERT_TRUE(Run(machine));
        machine.calls.clear();
        ASSERT_TRUE(Run(machine));
        EXPECT_THAT(machine.calls, IsEmpty());
    }
}

TEST_F(Setup, ANewVersionStopsWhatRunsKeepsTheConfigurationAndStartsAgain)
{
    FakeMachine machine = Older(true);
    ASSERT_TRUE(Run(machine));
    for (const wchar_t* name : { DRIVER_SERVICE, FEEDER_SERVICE, AGENT_SERVICE })
        EXPECT_TRUE(machine.Runs(name)) << Narrow(name);
    EXPECT_EQ(machine.calls.front(), "stop dkpfagent");
    EXPECT_EQ(machine.state.services.at(AGENT_SERVICE).config.start, static_cast<DWORD>(SERVICE_AUTO_START));
    EXPECT_EQ(machine.state.services.at(FEEDER_SERVICE).config.displayName, FEEDER_DISPLAY);
    std::vector<std::string> starts;
    for (const std::string& call : machine.calls) {
        if (call.rfind("start ", 0) == 0)
            starts.push_back(call.substr(6));
    }
    EXPECT_THAT(starts, testing::ElementsAre("velcor", "velcorfeed", "dkpfagent"));
    EXPECT_EQ(machine.state.files[HOME + L"\\etc\\cluster.xml"], "the operator's");
    EXPECT_EQ(machine.state.files[HOME + L"\\etc\\policy\\diskperf.xml"], "two of etc\\policy\\diskperf.xml");
    EXPECT_EQ(machine.state.keys[L"SYSTEM"][L"names"].text, L"two of etc\\tnwdiskperf.ini");
    EXPECT_THAT(machine.state.atRestart, IsEmpty());
    EXPECT_EQ(machine.Kind(HOME + L"\\bin\\tnwlog.dll.old-1"), PathKind::Nothing);
}

TEST_F(Setup, AHeldLibraryIsMovedAsideAndGoesAtTheNextChance)
{
    FakeMachine        machine = Older(true);
    const std::wstring library = HOME + L"\\bin\\tnwdiskperf.dll";
    machine.held = { library };
    ASSERT_TRUE(Run(machine));
    EXPECT_EQ(machine.state.files[library], "two of bin\\tnwdiskperf.dll");
    EXPECT_EQ(machine.state.files[library + L".old-1"], "one of bin\\tnwdiskperf.dll");
    EXPECT_THAT(machine.state.atRestart, testing::ElementsAre(library + L".old-1"));
    machine.held.clear();
    ASSERT_TRUE(Run(machine));
    EXPECT_EQ(machine.Kind(library + L".old-1"), PathKind::Nothing);
}

TEST_F(Setup, EveryChangeFailingOnceIsTakenBack)
{
    for (const FakeMachine& beginning : Beginnings()) {
        FakeMachine whole = beginning;
        ASSERT_TRUE(Run(whole));
        const auto before = Describe(beginning.state);
        int        undone = 0;
        for (size_t n = 1; n <= whole.calls.size(); n++) {
            FakeMachine machine = beginning;
            machine.failAt = n;
            if (Run(machine)) {
                // The removal of old files behind the last step, and where the system keeps no settings and loads no
                // names, these: the next run makes it good.
                EXPECT_THAT(whole.calls[n - 1], testing::AnyOf(HasSubstr("remove file"), HasSubstr("load names"),
                                                               HasSubstr("set service")));
                machine.failAt = 0;
                machine.Restart();
                EXPECT_TRUE(Run(machine));
                EXPECT_THAT(Describe(machine.state), ElementsAreArray(Describe(whole.state))) << whole.calls[n - 1];
                continue;
            }
            undone++;
            EXPECT_THAT(Describe(machine.state), ElementsAreArray(before)) << whole.calls[n - 1];
        }
        EXPECT_GT(undone, 30);
    }
}

TEST_F(Setup, KilledBehindEachChangeAndRunAgainItEndsTheSame)
{
    for (const FakeMachine& beginning : Beginnings()) {
        FakeMachine whole = beginning;
        ASSERT_TRUE(Run(whole));
        for (size_t n = 1; n <= whole.calls.size(); n++) {
            FakeMachine machine = beginning;
            machine.killAt = n;
            EXPECT_THROW(Run(machine), Killed);
            machine.killAt = 0;
            std::vector<std::string> lines;
            EXPECT_TRUE(Run(machine, true, &lines));
            // Who ran before is not known to the second run.
            if (whole.calls[n - 1] == "stop velcorfeed") {
                EXPECT_THAT(lines, Contains("services: what ran before runs again; not started: net start velcorfeed, "
                                            "net start dkpfagent, or restart the machine"));
            }
            EXPECT_THAT(Describe(machine.state, false), ElementsAreArray(Describe(whole.state, false)))
                << whole.calls[n - 1];
        }
    }
}

TEST_F(Setup, UninstallLeavesTheMachineAsItWas)
{
    for (bool loader : { false, true }) {
        FakeMachine machine = Clean(loader);
        const auto  before = Describe(machine.state);
        ASSERT_TRUE(Run(machine));
        machine.state.services.at(AGENT_SERVICE).runs = true;
        machine.state.files[HOME + L"\\log\\diskperf.log"] = "lines";
        machine.state.files[HOME + L"\\etc\\disks.map"] = "1 sda";
        FakeMachine kept = machine;
        ASSERT_TRUE(Remove(machine, true));
        EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
        machine.calls.clear();
        EXPECT_TRUE(Remove(machine, true));
        EXPECT_THAT(machine.calls, IsEmpty());

        ASSERT_TRUE(Remove(kept));
        EXPECT_EQ(kept.state.files.count(HOME + L"\\log\\diskperf.log"), 1u);
        EXPECT_EQ(kept.Kind(HOME + L"\\bin"), PathKind::Nothing);
        EXPECT_EQ(kept.Kind(HOME + L"\\etc"), PathKind::Nothing);
    }
}

TEST_F(Setup, UninstallAfterAKilledInstallAndAfterAKilledUninstall)
{
    for (bool loader : { false, true }) {
        const FakeMachine clean = Clean(loader);
        const auto        before = Describe(clean.state);
        FakeMachine       whole = clean;
        ASSERT_TRUE(Run(whole));
        for (size_t n = 1; n <= whole.calls.size(); n++) {
            FakeMachine machine = clean;
            machine.killAt = n;
            EXPECT_THROW(Run(machine), Killed);
            machine.killAt = 0;
            EXPECT_TRUE(Remove(machine, true));
            EXPECT_THAT(Describe(machine.state), ElementsAreArray(before))
                << "install killed behind " << whole.calls[n - 1];
        }
        FakeMachine installed = whole;
        installed.calls.clear();
        FakeMachine gone = installed;
        ASSERT_TRUE(Remove(gone, true));
        for (size_t n = 1; n <= gone.calls.size(); n++) {
            FakeMachine machine = installed;
            machine.killAt = n;
            EXPECT_THROW(Remove(machine, true), Killed);
            machine.killAt = 0;
            EXPECT_TRUE(Remove(machine, true));
            EXPECT_THAT(Describe(machine.state), ElementsAreArray(before)) << "killed behind " << gone.calls[n - 1];
        }
    }
}

TEST_F(Setup, WhatCannotBeRemovedIsSaidAndTheNextRunRemovesIt)
{
    FakeMachine installed = Clean(true);
    const auto  before = Describe(installed.state);
    ASSERT_TRUE(Run(installed));
    installed.calls.clear();
    FakeMachine whole = installed;
    ASSERT_TRUE(Remove(whole, true));
    for (size_t n = 1; n <= whole.calls.size(); n++) {
        FakeMachine              machine = installed;
        std::vector<std::string> lines;
        machine.failAt = n;
        const bool held = whole.calls[n - 1].rfind("remove file", 0) == 0;  // taken for one in use
        EXPECT_EQ(Remove(machine, true, &lines), held) << whole.calls[n - 1];
        if (!held) {
            EXPECT_THAT(lines, Contains(HasSubstr("NOT removed: "))) << whole.calls[n - 1];
        }
        machine.failAt = 0;
        EXPECT_TRUE(Remove(machine, true));
        machine.Restart();
        EXPECT_THAT(Describe(machine.state), ElementsAreArray(before)) << whole.calls[n - 1];
    }
}

TEST_F(Setup, UninstallOfARunningProgramEndsAtTheRestart)
{
    FakeMachine machine = Clean(true);
    const auto  before = Describe(machine.state);
    ASSERT_TRUE(Run(machine));
    machine.held = { HOME + L"\\bin\\dkpfctl.exe" };
    EXPECT_TRUE(Remove(machine));
    EXPECT_EQ(machine.Kind(HOME + L"\\bin\\dkpfctl.exe"), PathKind::Nothing);
    machine.Restart();
    EXPECT_EQ(machine.Kind(HOME + L"\\bin"), PathKind::Nothing);
}

TEST_F(Setup, PurgeBesideAReaderEndsAtTheRestart)
{
    FakeMachine        machine = Clean(true);
    const auto         before = Describe(machine.state);
    const std::wstring trace = HOME + L"\\log\\diskperf_trace.log";
    const std::wstring scenario = HOME + L"\\etc\\scenarios\\three-disks.scn";
    ASSERT_TRUE(Run(machine));
    machine.state.files[trace] = "lines";
    machine.lingering = { trace, scenario };
    std::vector<std::string> lines;
    EXPECT_TRUE(Remove(machine, true, &lines));
    EXPECT_THAT(lines, Contains("folder C:\\Program Files\\TARNWELL\\log: goes at the next restart"));
    EXPECT_THAT(machine.state.atRestart,
                testing::ElementsAre(HOME, HOME + L"\\etc", HOME + L"\\etc\\scenarios", HOME + L"\\log"));
    machine.Restart();
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
}

TEST_F(Setup, ForeignFilesStayAndAreNamed)
{
    FakeMachine machine = Clean(true);
    ASSERT_TRUE(Run(machine));
    machine.state.files[HOME + L"\\etc\\notes.txt"] = "not ours";
    machine.state.files[HOME + L"\\bin\\tnwlog.dll.old-notes"] = "not ours";
    std::vector<std::string> lines;
    EXPECT_TRUE(Remove(machine, false, &lines));
    EXPECT_THAT(lines, Contains("folder C:\\Program Files\\TARNWELL\\etc: stays, it holds notes.txt"));
    EXPECT_EQ(machine.Kind(HOME + L"\\etc\\notes.txt"), PathKind::File);
    EXPECT_EQ(machine.Kind(HOME + L"\\bin\\tnwlog.dll.old-notes"), PathKind::File);
}

TEST_F(Setup, ARealDriverIsLeftAlone)
{
    FakeMachine machine = Clean(true);
    machine.state.services[DRIVER_SERVICE].config = { SERVICE_KERNEL_DRIVER, SERVICE_SYSTEM_START,
                                                      L"C:\\Windows\\drivers\\velcor.sys", L"velcor" };
    machine.state.services[DRIVER_SERVICE].runs = true;
    machine.state.files[L"C:\\Windows\\drivers\\velcor.sys"] = "the real one";
    const auto               before = Describe(machine.state);
    std::vector<std::string> lines;
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("install with --no-driver")));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));

    ASSERT_TRUE(Run(machine, false));
    EXPECT_THAT(machine.calls, Not(Contains("stop velcor")));
    EXPECT_EQ(machine.state.services.count(FEEDER_SERVICE), 0u);
    EXPECT_EQ(machine.state.files[L"C:\\Windows\\drivers\\velcor.sys"], "the real one");
    ASSERT_TRUE(Remove(machine, true));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
}

TEST_F(Setup, WhereItIsUnpackedItCanStay)
{
    FakeMachine machine = Clean(true);
    ASSERT_TRUE(Install(machine, { SOURCE, SOURCE, true }, [](std::string_view) {}));
    EXPECT_EQ(machine.state.files[SOURCE + L"\\bin\\tnwlog.dll"], "one of bin\\tnwlog.dll");
    EXPECT_EQ(machine.state.services.at(AGENT_SERVICE).config.command, L"\"" + SOURCE + L"\\bin\\dkpfagent.exe\"");
}

// The library takes the four bytes of any type.
TEST_F(Setup, ADebugSwitchThatWasLeftOnGoes)
{
    for (const RegistryValue& value :
         { RegistryValue{ REG_DWORD, {}, 1 }, RegistryValue{ REG_BINARY, {}, 0, { 1, 0, 0, 0 } } }) {
        FakeMachine machine = Older(true);
        machine.state.keys[DEBUG_KEY][DEBUG_VALUE] = value;
        ASSERT_TRUE(Run(machine));
        EXPECT_THAT(machine.state.keys[DEBUG_KEY], IsEmpty());
        machine.state.keys[DEBUG_KEY][DEBUG_VALUE] = value;
        std::vector<std::string> lines;
        ASSERT_TRUE(Remove(machine, false, &lines));
        EXPECT_THAT(lines, Contains("value dkpf_debug of Software\\OSK\\TARNWELL\\work: removed"));
        EXPECT_EQ(machine.state.keys.count(L"Software\\OSK"), 0u);
    }
}

TEST_F(Setup, OldNamesThatComeBackUnderAnotherRangeAreTheOnesTheSystemCallsFor)
{
    FakeMachine machine = Older(true);
    machine.loadedRange = 8000;
    FakeMachine whole = machine;
    ASSERT_TRUE(Run(whole));
    EXPECT_EQ(whole.state.keys[PERFORMANCE_KEY][L"Object List"].text, L"8000");
    const auto start = std::find(whole.calls.begin(), whole.calls.end(), "start dkpfagent");
    machine.failAt = static_cast<size_t>(start - whole.calls.begin()) + 1;
    EXPECT_FALSE(Run(machine));
    EXPECT_EQ(machine.state.keys[PERFORMANCE_KEY][L"First Counter"].number, 8000u);
    EXPECT_EQ(machine.state.keys[PERFORMANCE_KEY][L"Object List"].text, L"8000");
    EXPECT_EQ(machine.state.keys[L"SYSTEM"][L"names"].text, L"one of etc\\tnwdiskperf.ini");
}

TEST_F(Setup, ADamagedRangeIsMadeAnewAndLeavesNothingBehind)
{
    for (bool loader : { false, true }) {
        FakeMachine machine = Clean(loader);
        const auto  before = Describe(machine.state);
        ASSERT_TRUE(Run(machine));
        machine.state.keys[PERFORMANCE_KEY][L"Last Help"].number++;
        FakeMachine removed = machine;
        ASSERT_TRUE(Run(machine));
        EXPECT_EQ(machine.state.keys[PERFORMANCE_KEY][L"Last Help"].number, loader ? 7035u : 2035u);
        ASSERT_TRUE(Remove(removed, true));
        EXPECT_THAT(Describe(removed.state), ElementsAreArray(before));
    }
}

TEST_F(Setup, PurgeLeavesForeignFilesWhereNothingOfTheProductStands)
{
    FakeMachine machine = Clean(true);
    for (const wchar_t* folder : { L"", L"\\bin", L"\\log" })
        machine.state.folders[HOME + folder] = L"D:AI";
    machine.state.files[HOME + L"\\bin\\sh"] = "the system's";
    machine.state.files[HOME + L"\\log\\boot.log"] = "the system's";
    std::vector<std::string> lines;
    EXPECT_TRUE(Remove(machine, true, &lines));
    EXPECT_THAT(lines, Contains("purge: foreign files stay, no file of the product stands there"));
    EXPECT_EQ(machine.Kind(HOME + L"\\bin\\sh"), PathKind::File);
    EXPECT_EQ(machine.Kind(HOME + L"\\log\\boot.log"), PathKind::File);
    // Behind an uninstall that left them.
    machine.state.files[HOME + L"\\log\\diskperf_event.log"] = "ours";
    machine.state.folders[HOME + L"\\perf"] = L"D:AI";
    machine.state.files.erase(HOME + L"\\bin\\sh");
    FakeMachine perf = machine;
    EXPECT_TRUE(Remove(machine, true));
    EXPECT_EQ(machine.Kind(HOME), PathKind::Nothing);
    perf.state.files.erase(HOME + L"\\log\\diskperf_event.log");
    perf.state.files[HOME + L"\\perf\\nmp1.csv"] = "ours";
    EXPECT_TRUE(Remove(perf, true));
    EXPECT_EQ(perf.Kind(HOME), PathKind::Nothing);
}

TEST_F(Setup, TheRegisteredHomeIsAWholePathAsSetUpWritesIt)
{
    FakeMachine machine;
    EXPECT_EQ(RegisteredHome(machine), HOME);
    const auto home = [&machine](const wchar_t* library) {
        machine.state.keys[PERFORMANCE_KEY][L"Library"] = { REG_SZ, library, 0 };
        return RegisteredHome(machine);
    };
    EXPECT_EQ(home(L"D:\\mine\\bin\\tnwdiskperf.dll"), L"D:\\mine");
    EXPECT_EQ(home(L"\\\\server\\share\\mine\\bin\\tnwdiskperf.dll"), L"\\\\server\\share\\mine");
    for (const wchar_t* other : { L"", L"tnwdiskperf.dll", L"mine\\bin\\tnwdiskperf.dll", L"D:\\mine\\tnwdiskperf.dll",
                                  L"D:\\mine\\bin\\other.dll" })
        EXPECT_EQ(home(other), HOME) << Narrow(other);
}

TEST_F(Setup, AFileThatCannotBeRenamedIsSaidAndNotMarked)
{
    FakeMachine              machine = Clean(true);
    const std::wstring       library = HOME + L"\\bin\\tnwlog.dll";
    std::vector<std::string> lines;
    ASSERT_TRUE(Run(machine));
    machine.locked = { library };
    EXPECT_FALSE(Remove(machine, false, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("NOT removed: file C:\\Program Files\\TARNWELL\\bin\\tnwlog.dll: ")));
    EXPECT_THAT(machine.state.atRestart, IsEmpty());
    machine.locked.clear();
    EXPECT_TRUE(Remove(machine));
    EXPECT_EQ(machine.Kind(HOME + L"\\bin"), PathKind::Nothing);
}

TEST_F(Setup, AHomeThatIsNamedLikeAnOldFileIsAHomeAsAnyOther)
{
    FakeMachine        machine = Clean(true);
    const std::wstring home = L"C:\\x.old-1";
    const auto         quiet = [](std::string_view) {};
    ASSERT_TRUE(Install(machine, { SOURCE, home, true }, quiet));
    machine.held = { home + L"\\bin\\dkpfctl.exe" };
    EXPECT_TRUE(Uninstall(machine, { home, false }, quiet));
    EXPECT_EQ(machine.Kind(home + L"\\bin\\dkpfctl.exe"), PathKind::Nothing);
    EXPECT_EQ(machine.state.atRestart.count(home + L"\\bin\\dkpfctl.exe.old-1"), 1u);
}

TEST_F(Setup, APathThatWasNotThereIsMadeAndGoes)
{
    FakeMachine machine = Clean(true);
    machine.state.keys[ENVIRONMENT_KEY].erase(L"Path");
    const auto before = Describe(machine.state);
    ASSERT_TRUE(Run(machine));
    EXPECT_EQ(machine.state.keys[ENVIRONMENT_KEY][L"Path"], (RegistryValue{ REG_EXPAND_SZ, HOME + L"\\bin", 0 }));
    ASSERT_TRUE(Remove(machine, true));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
    EXPECT_EQ(machine.tellings, 2);
}

TEST_F(Setup, APathThatCannotBeReadStaysAsItIs)
{
    FakeMachine              machine = Clean(true);
    const std::wstring       name = std::wstring(ENVIRONMENT_KEY) + L"!Path";
    const auto               before = Describe(machine.state);
    std::vector<std::string> lines;
    machine.unreadable = { name };
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("PATH: FAILED: the system's PATH cannot be read: error 5, ")));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));

    machine.unreadable.clear();
    ASSERT_TRUE(Run(machine));
    const RegistryValue path = machine.state.keys[ENVIRONMENT_KEY][L"Path"];
    machine.unreadable = { name };
    lines.clear();
    EXPECT_FALSE(Remove(machine, false, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("NOT removed: PATH: error 5, ")));
    EXPECT_EQ(machine.state.keys[ENVIRONMENT_KEY][L"Path"], path);
}

TEST_F(Setup, ADebugSwitchThatCannotBeReadIsNoneThatIsMissing)
{
    FakeMachine              machine = Older(true);
    std::vector<std::string> lines;
    machine.state.keys[DEBUG_KEY][DEBUG_VALUE] = { REG_DWORD, {}, 1 };
    machine.unreadable = { std::wstring(DEBUG_KEY) + L"!" + DEBUG_VALUE };
    const auto before = Describe(machine.state);
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("registry key of the product: FAILED: value dkpf_debug of ")));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
    lines.clear();
    EXPECT_FALSE(Remove(machine, false, &lines));
    EXPECT_THAT(lines,
                Contains(HasSubstr("NOT removed: value dkpf_debug of Software\\OSK\\TARNWELL\\work: error 5, ")));
}

// A value that stands there and is not the one wanted would be deleted by the undo, were it taken for a missing one.
TEST_F(Setup, AValueThatCannotBeReadIsNotWrittenOver)
{
    FakeMachine              machine = Older(true);
    std::vector<std::string> lines;
    machine.state.keys[PERFORMANCE_KEY][VALUE_OPEN] = { REG_SZ, L"another", 0 };
    machine.unreadable = { std::wstring(PERFORMANCE_KEY) + L"!" + VALUE_OPEN };
    const auto before = Describe(machine.state);
    EXPECT_FALSE(Run(machine, true, &lines));
    EXPECT_THAT(lines, Contains(HasSubstr("performance provider: FAILED: value Open of ")));
    EXPECT_THAT(Describe(machine.state), ElementsAreArray(before));
}

TEST_F(Setup, AnotherHomeTakesThePlaceOfTheRegisteredOneOnThePath)
{
    FakeMachine        machine = Clean(true);
    const std::wstring other = L"C:\\other";
    const auto         path = [&machine] { return machine.state.keys[ENVIRONMENT_KEY][L"Path"].text; };
    const auto         into = [&machine](const std::wstring& home) {
        return Install(machine, { SOURCE, home, true }, [](std::string_view) {});
    };
    ASSERT_TRUE(into(HOME));
    machine.state.keys[ENVIRONMENT_KEY][L"Path"].text += L";C:\\behind";
    FakeMachine beginning = machine;
    ASSERT_TRUE(into(other));
    EXPECT_EQ(path(), L"%SystemRoot%\\system32;C:\\tools;;C:\\behind;C:\\other\\bin");
    ASSERT_TRUE(into(L"C:\\OTHER"));  // the same folder
    EXPECT_EQ(path(), L"%SystemRoot%\\system32;C:\\tools;;C:\\behind;C:\\other\\bin");

    // Where the other one stands behind already, the registered one still goes.
    machine = beginning;
    machine.state.keys[ENVIRONMENT_KEY][L"Path"].text += L";C:\\other\\bin";
    ASSERT_TRUE(into(other));
    EXPECT_EQ(path(), L"%SystemRoot%\\system32;C:\\tools;;C:\\behind;C:\\other\\bin");
}

TEST_F(Setup, AHomeThatPathCannotHoldIsRefused)
{
    FakeMachine              machine = Clean(true);
    std::vector<std::string> lines;
    EXPECT_FALSE(
        Install(machine, { SOURCE, L"C:\\a;b", true }, [&lines](std::string_view line) { lines.emplace_back(line); }));
    EXPECT_THAT(lines, Contains(HasSubstr("to: FAILED: the path of C:\\a;b holds a ';'")));
    EXPECT_THAT(machine.calls, IsEmpty());
}

TEST_F(Setup, AHomeThatIsNoPathIsRefused)
{
    FakeMachine              machine = Clean(true);
    std::vector<std::string> lines;
    const auto               say = [&lines](std::string_view line) { lines.emplace_back(line); };
    EXPECT_FALSE(Install(machine, { SOURCE, L"", true }, say));
    EXPECT_THAT(lines, Contains("to: FAILED: the folder to install into is no path: name another one with --home"));
    EXPECT_FALSE(Uninstall(machine, { L"", true }, say));
    EXPECT_EQ(lines.back(), "the folder to remove from is no path: name another one with --home");
    EXPECT_THAT(machine.calls, IsEmpty());
}

TEST_F(Setup, KeysThatOthersUseStay)
{
    FakeMachine machine = Clean(true);
    ASSERT_TRUE(Run(machine));
    machine.state.keys[L"Software\\OSK\\other"];
    std::vector<std::string> lines;
    EXPECT_TRUE(Remove(machine, false, &lines));
    EXPECT_THAT(lines, Contains("key Software\\OSK: stays, others use it"));
    EXPECT_EQ(machine.state.keys.count(L"Software\\OSK\\TARNWELL"), 0u);
    EXPECT_EQ(machine.state.keys.count(L"Software\\OSK\\other"), 1u);
}

TEST_F(Setup, AFeederOfAnotherHomeIsNoChoiceOfTheOperator)
{
    FakeMachine machine = Older(true);
    auto&       command = machine.state.services.at(FEEDER_SERVICE).config.command;
    command = L"\"C:\\else\\velcorfeed.exe\" --service";
    ASSERT_TRUE(Run(machine));
    EXPECT_EQ(machine.state.services.at(FEEDER_SERVICE).config.command,
              L"\"" + HOME + L"\\bin\\velcorfeed.exe\" --service");
}

TEST_F(Setup, WhatTheFeederIsToFeedStays)
{
    FakeMachine machine = Older(true);
    auto&       command = machine.state.services.at(FEEDER_SERVICE).config.command;
    command += L" --scenario \"C:\\play.scn\"";
    const std::wstring wanted = command;
    ASSERT_TRUE(Run(machine));
    EXPECT_EQ(machine.state.services.at(FEEDER_SERVICE).config.command, wanted);
}

}  // namespace
}  // namespace dkpf
