/*
 * The small things that agent and tool share: settings, refusals in words, result codes, texts, home, processes,
 * services.
 */
#include <gmock/gmock.h>
#include <cstring>
#include <deque>
#include <memory>

#include "config_check.h"
#include "console_out.h"
#include "home.h"
#include "process_info.h"
#include "result_codes.h"
#include "service_control.h"
#include "text.h"
#include "tnwdiskperf.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/* ---- Settings ---- */

TEST(Settings, FourAreTakenOverAtOnceAndFiveWait)
{
    const ReloadSplit split = SplitReload(SettingValues{}, { 1, 1, 1, 1, 1, 1, 1, 1, 1 });
    EXPECT_EQ(SettingList(split.takenOver),
              "parameters/perfenable, parameters/perflogsave, parameters/writeinterval and parameters/collectparam");
    EXPECT_EQ(SettingList(split.waiting),
              "parameters/perflogsize, parameters/perflogrotation, parameters/collectinterval, "
              "log/level and log/size");
}

TEST(Settings, EqualValuesAreInNeitherList)
{
    const SettingValues same = { 1, 2, 3, 4, 5, 6, 7, 8, 9 };
    const ReloadSplit   split = SplitReload(same, same);
    EXPECT_THAT(split.takenOver, IsEmpty());
    EXPECT_THAT(split.waiting, IsEmpty());
}

TEST(Settings, NamesLeadBackToTheirIndex)
{
    for (size_t i = 0; i < SETTING_NUM; i++)
        EXPECT_EQ(SettingByName(SettingAt(i).name), i);
    EXPECT_EQ(SettingByName("parameters/perfenabl"), SETTING_NUM);
    EXPECT_EQ(SettingByName("parameters/collectparam"), static_cast<size_t>(COLLECT_PARAM));
    EXPECT_EQ(SettingByName("log/size"), static_cast<size_t>(LOG_SIZE));
}

TEST(Settings, ValuesAreWrittenAsPeopleWriteThem)
{
    EXPECT_EQ(SettingText(WRITE_INTERVAL, 60), "60 s");
    EXPECT_EQ(SettingText(PERF_LOG_SIZE, 1024), "1024 KiB");
    EXPECT_EQ(SettingText(COLLECT_PARAM, 0x1ffff), "0x1ffff");
    EXPECT_EQ(SettingText(PERF_ENABLE, 1), "1");
    EXPECT_EQ(SettingText(COLLECT_PARAM, 0), "0");
    EXPECT_EQ(SettingText(COLLECT_PARAM, 9), "9");
    EXPECT_EQ(SettingText(COLLECT_PARAM, 10), "0xa");
    EXPECT_EQ(SettingText(LOG_LEVEL, 63), "0x3f");
    EXPECT_EQ(SettingText(LOG_SIZE, 64), "64 KiB");
}

/* ---- Configuration in words ---- */

namespace {

class ReportTest : public testing::Test {
protected:
    ReportTest()
    {
        for (size_t i = 0; i < SETTING_NUM; i++) {
            XMLLIB_SETTING& setting = report->setting[report->dwSettings++];
            strcpy(setting.szKey, (std::string(SETTING_ROOT) + SettingAt(i).name).c_str());
            strcpy(setting.szUnit, SettingAt(i).unit);
            setting.bHex = SettingAt(i).hex;
            setting.dwValue = static_cast<DWORD>(10 + i);
            setting.dwDefault = static_cast<DWORD>(20 + i);
        }
        strcpy(report->finding.szFile, "C:\\home\\etc\\cluster.xml");
    }

    void Refuse(DWORD status, const char* key, const char* value, const char* reason, DWORD min, DWORD max)
    {
        report->finding.dwStatus = status;
        report->finding.dwLine = 5;
        report->finding.dwColumn = 24;
        strcpy(report->finding.szKey, key);
        strcpy(report->finding.szValue, value);
        strcpy(report->finding.szReason, reason);
        report->finding.dwMin = min;
        report->finding.dwMax = max;
    }

    std::unique_ptr<XMLLIB_REPORT> report = std::make_unique<XMLLIB_REPORT>();
};

}  // namespace

TEST_F(ReportTest, AnAcceptedFileGivesItsNineValues)
{
    const ConfigVerdict verdict = JudgeReport(*report);
    EXPECT_TRUE(verdict.accepted);
    EXPECT_EQ(verdict.values, (SettingValues{ 10, 11, 12, 13, 14, 15, 16, 17, 18 }));
}

TEST_F(ReportTest, TheOrderOfThePolicyDoesNotMatter)
{
    std::swap(report->setting[0], report->setting[8]);
    EXPECT_EQ(JudgeReport(*report).values, (SettingValues{ 10, 11, 12, 13, 14, 15, 16, 17, 18 }));
}

TEST_F(ReportTest, APolicyWithoutASettingRefusesTheFile)
{
    strcpy(report->setting[5].szKey, "/root/other/thing");
    const ConfigVerdict verdict = JudgeReport(*report);
    EXPECT_FALSE(verdict.accepted);
    EXPECT_EQ(verdict.refusal,
              "the policy of this installation does not describe /root/diskperf/parameters/writeinterval");
}

TEST_F(ReportTest, ACountOfSettingsBeyondTheTableIsNotBelieved)
{
    report->dwSettings = 0xFFFFFFFF;
    EXPECT_TRUE(JudgeReport(*report).accepted);
}

TEST_F(ReportTest, AValueThatIsNoNumberIsToldWithPlaceKeyValueReasonAndRange)
{
    Refuse(XMLLIB_NO_NUMBER, "/root/diskperf/parameters/writeinterval", "soon", "The value is no number.", 1, 86400);
    const ConfigVerdict verdict = JudgeReport(*report);
    EXPECT_FALSE(verdict.accepted);
    EXPECT_EQ(verdict.refusal,
              "C:\\home\\etc\\cluster.xml, line 5, column 24: /root/diskperf/parameters/writeinterval is "
              "\"soon\": The value is no number (allowed: 1 to 86400 s)");
}

TEST_F(ReportTest, ARangeThatTheReasonNamesIsNotToldTwice)
{
    Refuse(XMLLIB_OUT_OF_RANGE, "/root/diskperf/parameters/collectparam", "0x20000",
           "The value 0x20000 is outside of the range 0 to 0x1ffff.", 0, 0x1ffff);
    EXPECT_EQ(
        JudgeReport(*report).refusal,
        "C:\\home\\etc\\cluster.xml, line 5, column 24: /root/diskperf/parameters/collectparam is \"0x20000\": The "
        "value 0x20000 is outside of the range 0 to 0x1ffff");
}

TEST_F(ReportTest, ADamagedFileIsToldWithoutKeyAndRange)
{
    Refuse(XMLLIB_NOT_WELL_FORMED, "", "", "The element is not closed.", 0, 0);
    EXPECT_EQ(JudgeReport(*report).refusal, "C:\\home\\etc\\cluster.xml, line 5, column 24: The element is not closed");
}

TEST_F(ReportTest, ARefusedFileStillGivesThePolicysLogDefaults)
{
    Refuse(XMLLIB_NOT_WELL_FORMED, "", "", "cut off", 0, 0);
    EXPECT_EQ(JudgeReport(*report).logLevel, 27u);
    EXPECT_EQ(JudgeReport(*report).logSize, 28u);
}

TEST_F(ReportTest, WithoutAPolicyTheLogHasItsUsualLevelAndSize)
{
    Refuse(XMLLIB_NO_FILE, "", "", "The file does not exist.", 0, 0);
    report->dwSettings = 0;
    EXPECT_EQ(JudgeReport(*report).logLevel, 7u);
    EXPECT_EQ(JudgeReport(*report).logSize, 2048u);
}

/* ---- Texts ---- */

TEST(ResultCodes, KnownAndForeignCodesHaveWords)
{
    EXPECT_EQ(ResultText(DKPF_ERR_DEVICE),
              "0xb0000015: the driver's control device could not be opened: is the service velcor running?");
    EXPECT_EQ(ResultText(0xB00000FF), "0xb00000ff: not a code of this product");
}

TEST(Texts, UtcOffsetsAndTimes)
{
    EXPECT_EQ(UtcOffsetText(0), "+00:00");
    EXPECT_EQ(UtcOffsetText(-210), "-03:30");
    EXPECT_EQ(UtcOffsetText(345), "+05:45");
    EXPECT_EQ(IsoTime({ 2026, 12, 4, 31, 23, 59, 9, 7 }, -210), "2026-12-31T23:59:09.007-03:30");
}

TEST(Texts, TimesOfTheLogs)
{
    EXPECT_EQ(LocalTimeText({ 2026, 3, 6, 7, 14, 5, 9, 42 }), "2026/03/07 14:05:09.042");
}

TEST(Texts, WordsAreWrappedBeforeTheEightiethColumn)
{
    const std::string word(38, 'x');
    EXPECT_EQ(Wrapped(word + " " + word + "xx", 0), word + " " + word + "xx\n");  // 79 letters
    EXPECT_EQ(Wrapped(word + " " + word + "xxx", 0), word + "\n" + word + "xxx\n");
    EXPECT_EQ(Wrapped(word + " " + word + "xxx y", 2), "  " + word + "\n  " + word + "xxx y\n");
    EXPECT_EQ(Wrapped(std::string(100, 'x') + " y", 4), "    " + std::string(100, 'x') + "\n    y\n");
    EXPECT_EQ(Wrapped("", 4), "");
}

TEST(Texts, LongLinesGoOnBelowTheirOwnColumn)
{
    const std::string words = std::string(40, 'a') + " " + std::string(40, 'b') + " c";
    EXPECT_EQ(WrappedLines("  --x   " + words + "\n\n" + words + "\nshort\n", 8),
              "  --x   " + std::string(40, 'a') + "\n        " + std::string(40, 'b') + " c\n\n" +
                  std::string(40, 'a') + "\n" + std::string(40, 'b') + " c\nshort\n");
}

TEST(Texts, Utf8GoesThereAndBack)
{
    const std::string text = "Gr\xC3\xB6\xC3\x9F"
                             "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x92\xBE";
    EXPECT_EQ(Narrow(Wide(text)), text);
    EXPECT_EQ(Wide("\xC3\xB6").size(), 1u);
    EXPECT_EQ(Wide("").size(), 0u);
}

TEST(Texts, SystemErrorsHaveNumberAndWords)
{
    EXPECT_THAT(SystemErrorText(ERROR_ACCESS_DENIED), testing::StartsWith("error 5, "));
    EXPECT_EQ(SystemErrorText(0x20001234), "error 536875572");
}

TEST(Texts, EachLineEndsInCrLfOnce)
{
    EXPECT_EQ(WithCrLf("a\nb\r\n\nc"), "a\r\nb\r\n\r\nc");
}

TEST(HomeDirectory, IsTheParentOfTheProgramsFolder)
{
    const Home home = HomeOfModulePath(L"C:\\Program Files\\TARNWELL\\bin\\dkpfctl.exe");
    EXPECT_EQ(home.root, L"C:\\Program Files\\TARNWELL");
    EXPECT_EQ(home.ConfigFile(), L"C:\\Program Files\\TARNWELL\\etc\\cluster.xml");
    EXPECT_EQ(home.StateFile(), L"C:\\Program Files\\TARNWELL\\log\\agent.state");
    EXPECT_EQ(HomeOfModulePath(L"dkpfctl.exe").root, L"");
}

/* ---- Processes ---- */

TEST(Processes, ThisOneIsAliveUnderItsOwnStartTimeOnly)
{
    const DWORD pid = GetCurrentProcessId();
    EXPECT_EQ(LookAtProcess(pid, 0), ProcessLife::Alive);
    EXPECT_EQ(LookAtProcess(pid, OwnProcessStart()), ProcessLife::Alive);
    EXPECT_EQ(LookAtProcess(pid, OwnProcessStart() - 1), ProcessLife::Gone)
        << "the number belongs to another process now";
}

TEST(Processes, AnEndedOneIsGoneWhileSomebodyStillHoldsIt)
{
    STARTUPINFOW        start{};
    PROCESS_INFORMATION process{};
    wchar_t             command[MAX_PATH + 2] = {};
    start.cb = sizeof(start);
    GetModuleFileNameW(nullptr, command, MAX_PATH);
    ASSERT_TRUE(CreateProcessW(command, nullptr, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr, &start,
                               &process));
    EXPECT_EQ(LookAtProcess(process.dwProcessId, 0), ProcessLife::Alive);
    TerminateProcess(process.hProcess, 5);
    ASSERT_EQ(WaitForSingleObject(process.hProcess, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(LookAtProcess(process.dwProcessId, 0), ProcessLife::Gone);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
}

TEST(Processes, NumberZeroIsNobody)
{
    EXPECT_EQ(LookAtProcess(0, 0), ProcessLife::Gone);
}

/* ---- Starting a service ---- */

namespace {

class ScriptedServices : public ServiceManager {
public:
    std::deque<ServiceInfo> answers;  // the last one stays
    DWORD                   startError = ERROR_SUCCESS;
    int                     starts = 0;

    ServiceInfo Query(const wchar_t*) override
    {
        const ServiceInfo info = answers.front();
        if (answers.size() > 1)
            answers.pop_front();
        return info;
    }
    DWORD Start(const wchar_t*) override
    {
        starts++;
        return startError;
    }
    DWORD Control(const wchar_t*, DWORD) override
    {
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
};

ServiceInfo In(DWORD state)
{
    return { true, state, 0, 0 };
}

class ServiceStartTest : public testing::Test {
protected:
    ServiceStart Start(DWORD limitMs = 10000, int waitsAllowed = 1000)
    {
        return StartAndWait(services, L"velcor", limitMs, [this, waitsAllowed](DWORD ms) {
            waitedMs += ms;
            return ++waits < waitsAllowed;
        });
    }

    ScriptedServices services;
    DWORD            waitedMs = 0;
    int              waits = 0;
};

}  // namespace

TEST_F(ServiceStartTest, ARunningOneIsLeftAlone)
{
    services.answers = { In(SERVICE_RUNNING) };
    EXPECT_TRUE(Start().running);
    EXPECT_EQ(services.starts, 0);
}

TEST_F(ServiceStartTest, AStoppedOneIsStartedAndWaitedFor)
{
    services.answers = { In(SERVICE_STOPPED), In(SERVICE_START_PENDING), In(SERVICE_START_PENDING),
                         In(SERVICE_RUNNING) };
    const ServiceStart start = Start();
    EXPECT_TRUE(start.running);
    EXPECT_EQ(start.words, "was started");
    EXPECT_EQ(services.starts, 1);
    EXPECT_EQ(waitedMs, 200u);
}

TEST_F(ServiceStartTest, OneThatNeverComesUpIsGivenUpAtTheLimit)
{
    services.answers = { In(SERVICE_STOPPED), In(SERVICE_START_PENDING) };
    const ServiceStart start = Start();
    EXPECT_FALSE(start.running);
    EXPECT_EQ(start.words, "is start pending after 10 s");
    EXPECT_EQ(waitedMs, 10000u);
}

TEST_F(ServiceStartTest, OneThatStopsAgainIsNotWaitedFor)
{
    services.answers = { In(SERVICE_STOPPED), In(SERVICE_START_PENDING), In(SERVICE_STOPPED) };
    EXPECT_EQ(Start().words, "was started and stopped again");
}

TEST_F(ServiceStartTest, OneThatIsNotInstalledIsNotStarted)
{
    services.answers = { ServiceInfo{} };
    EXPECT_EQ(Start().words, "is not installed");
    EXPECT_EQ(services.starts, 0);
}

TEST_F(ServiceStartTest, OneThatCannotBeAskedForIsNotStarted)
{
    ServiceInfo refused;
    refused.error = ERROR_ACCESS_DENIED;
    services.answers = { refused };
    EXPECT_THAT(Start().words, HasSubstr("could not be asked for: error 5"));
    EXPECT_EQ(services.starts, 0);
}

TEST_F(ServiceStartTest, OneThatStandsOrComesUpIsLeftToStartAndWait)
{
    services.answers = { In(SERVICE_RUNNING), ServiceInfo{}, In(SERVICE_STOPPED), In(SERVICE_START_PENDING) };
    EXPECT_TRUE(NoStartNeeded(services, L"velcor")->running);
    EXPECT_EQ(NoStartNeeded(services, L"velcor")->words, "is not installed");
    EXPECT_FALSE(NoStartNeeded(services, L"velcor"));
    EXPECT_FALSE(NoStartNeeded(services, L"velcor"));
    EXPECT_EQ(services.starts, 0);
}

TEST_F(ServiceStartTest, ARefusedStartSaysTheSystemsReason)
{
    services.answers = { In(SERVICE_STOPPED) };
    services.startError = ERROR_FILE_NOT_FOUND;
    EXPECT_THAT(Start().words, HasSubstr("could not be started: error 2"));
    EXPECT_EQ(waitedMs, 0u);
}

TEST_F(ServiceStartTest, SomebodyElseStartedItMeanwhile)
{
    services.answers = { In(SERVICE_STOPPED), In(SERVICE_RUNNING) };
    services.startError = ERROR_SERVICE_ALREADY_RUNNING;
    EXPECT_TRUE(Start().running);
}

TEST_F(ServiceStartTest, TheWaitCanBeEnded)
{
    services.answers = { In(SERVICE_STOPPED), In(SERVICE_START_PENDING) };
    EXPECT_EQ(Start(10000, 3).words, "is start pending; the wait for it was ended");
    EXPECT_EQ(waitedMs, 300u);
}
