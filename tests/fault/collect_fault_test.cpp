/*
 * Every failure of every call that the collect thread makes, one at a time, in one run that goes through all its paths:
 *
 *     0 s  start
 *    10 s  sample 1, discarded
 *    20 s  sample 2, stored
 *    24 s  reload that changes nothing
 *    30 s  sample 3, stored
 *    34 s  reload that switches collection off
 *    40 s  nothing is due, collection is off
 *    44 s  terminate event
 */
#include "support/collect_fixture.h"

using Numbers = std::vector<ULONGLONG>;

/* The run without any failure. */
static const Numbers Undisturbed = { 0, 2, 2, 3, 0 };  // shown at 10, 20, 24, 30 and 34 s, each 1 ms later

struct Fault {
    const char* name;
    const char* call;
    unsigned    nth;    // of the calls of this name
    DWORD       error;  // last error, or what the filter library returns
    Strings     lines;  // errors of the thread and of the zero sample, each with its log
    Events      events;
    Numbers     shown = Undisturbed;
    Strings     leaks = {};
    Strings     waits = {};  // of the loop where they differ
};

static const char    Region[] = "locked: mutex Global\\TNW_DKPF_MUTEX_INFO";
static const Events  Quiet = {};
static const Events  Recovered = { 0x800012C1, 0x400012C2 };
static const Events  Raised = { 0x800012C1 };
static const Events  Stopped = { 0xC00012C5 };
static const Strings RestOfAFailedReload = { "10000: due at 10000", "10000: due at 20000", "10000: reload at 24000",
                                             "10000: reload at 34000", "10000: terminate at 44000" };
static const Strings RestOfAFailedSwitch = { "10000: due at 10000",    "10000: due at 20000",
                                             "10000: reload at 24000", "6000: due at 30000",
                                             "10000: reload at 34000", "10000: terminate at 44000" };

class CollectFault : public CollectTest, public testing::WithParamInterface<Fault> {
protected:
    void RunAll()
    {
        ReloadAt(24000);
        EnableAt(34000, 0);
        WatchAt({ 10001, 20001, 24001, 30001, 34001 });
        TerminateAt(44000);
        Run();
    }
};

TEST_F(CollectFault, WithoutAFailureTheRunIsQuiet)
{
    RunAll();
    EXPECT_EQ(ErrorLines(), Strings());
    EXPECT_EQ(log.Errors(), Strings());
    EXPECT_EQ(log.Events(), Events());
    EXPECT_EQ(Shown(), Undisturbed);
    EXPECT_EQ(Waits(),
              Strings({ "10000: due at 10000", "10000: due at 20000", "10000: reload at 24000", "6000: due at 30000",
                        "10000: reload at 34000", "6000: due at 40000", "10000: terminate at 44000" }));
    // The numbers in the tables below count these: locks of the region and, marked w, of the warnings.
    // start 1 | 20 s: store 2, w3 | 24 s: read 4, w5 | 30 s: store 6, w7 | 34 s: read 8, zero 9 10, w11 | end: zero 12
    // 13
    EXPECT_EQ(journal.Number("WaitForSingleObject"), 13u);
    EXPECT_EQ(journal.Number("ReleaseMutex"), 13u);
    EXPECT_EQ(journal.Number("WaitForMultipleObjects"), 7u);
    EXPECT_EQ(journal.Number("DeviceIoControl"), 3u);
    EXPECT_EQ(journal.Number("TnwDkfltrGetMirrorPerformance"), 3u);
    EXPECT_EQ(journal.Number("CreateFileA"), 1u);
    EXPECT_EQ(journal.Number("CloseHandle"), 1u);
    ExpectNothingLeft();
}

TEST_P(CollectFault, IsReportedAndLeavesNothingOpen)
{
    const Fault& fault = GetParam();
    os.Fail(fault.call, fault.nth, fault.error);
    RunAll();
    EXPECT_EQ(ErrorLines(), fault.lines);
    EXPECT_EQ(log.Events(), fault.events);
    if (!fault.shown.empty()) {
        EXPECT_EQ(Shown(), fault.shown);
    }
    if (!fault.waits.empty()) {
        EXPECT_EQ(Waits(), fault.waits);
    }
    EXPECT_EQ(os.Leaks(), fault.leaks);
    EXPECT_EQ(os.misuse, Strings());
    EXPECT_EQ(Lines().back(), "diskperf 8 EXIT");
    EXPECT_EQ(os.errorMode, 0u);
}

static std::string NameOf(const testing::TestParamInfo<Fault>& tested)
{
    return tested.param.name;
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Start, CollectFault,
    testing::Values(
        Fault{ "ConfigurationLock", "WaitForSingleObject", 1, ERROR_INVALID_HANDLE,
               { "diskperf _DkpfShmGetConf(ALL) failed.(0xb0000006)" }, Stopped, {} },
        Fault{ "ConfigurationUnlock", "ReleaseMutex", 1, ERROR_NOT_OWNER,
               { "diskperf _DkpfShmGetConf(ALL) failed.(0xb0000010)" }, Stopped, {}, { Region } },
        Fault{ "DeviceMissing", "CreateFileA", 1, ERROR_FILE_NOT_FOUND,
               { "diskperf CreateFile(VELCOR_CTRL) error. <W32Err=2>" }, Stopped, {} },
        Fault{ "DeviceRefused", "CreateFileA", 1, ERROR_ACCESS_DENIED,
               { "diskperf CreateFile(VELCOR_CTRL) error. <W32Err=5>" }, Stopped, {} },
        Fault{ "DeviceBusy", "CreateFileA", 1, ERROR_SHARING_VIOLATION,
               { "diskperf CreateFile(VELCOR_CTRL) error. <W32Err=32>" }, Stopped, {} }),
    NameOf);
// clang-format on

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Sample, CollectFault,
    testing::Values(
        Fault{ "DriverAtTheFirst", "DeviceIoControl", 1, ERROR_GEN_FAILURE,
               { "diskperf_trace  IoCtl(VELCOR_GET_PERFORMANCE) DeviceIoControl failed.<W32Err=31>" }, Recovered,
               { 0, 1, 1, 2, 0 } },
        Fault{ "DriverAtTheSecond", "DeviceIoControl", 2, ERROR_NOT_READY,
               { "diskperf_trace  IoCtl(VELCOR_GET_PERFORMANCE) DeviceIoControl failed.<W32Err=21>" }, Recovered,
               { 0, 0, 0, 2, 0 } },
        Fault{ "DriverAtTheThird", "DeviceIoControl", 3, ERROR_INVALID_FUNCTION,
               { "diskperf_trace  IoCtl(VELCOR_GET_PERFORMANCE) DeviceIoControl failed.<W32Err=1>" }, Recovered,
               { 0, 2, 2, 2, 0 } },
        Fault{ "FilterAtTheFirst", "TnwDkfltrGetMirrorPerformance", 1, ERROR_NOT_READY,
               { "diskperf_trace TnwDkfltrGetMirrorPerformance() failed.(W32Err=21)" }, Recovered },
        Fault{ "FilterAtTheSecond", "TnwDkfltrGetMirrorPerformance", 2, ERROR_ACCESS_DENIED,
               { "diskperf_trace TnwDkfltrGetMirrorPerformance() failed.(W32Err=5)" }, Recovered, { 0, 0, 0, 3, 0 } },
        Fault{ "FilterAtTheThird", "TnwDkfltrGetMirrorPerformance", 3, ERROR_FILE_NOT_FOUND,
               { "diskperf_trace TnwDkfltrGetMirrorPerformance() failed.(W32Err=2)" }, Recovered, { 0, 2, 2, 2, 0 } },
        Fault{ "StoreLock", "WaitForSingleObject", 2, ERROR_INVALID_HANDLE,
               { "diskperf_trace _DkpfShmSetPerf() failed.(0xb0000006)" }, Recovered, { 0, 0, 0, 3, 0 } },
        // The copy has taken place, the sample counts as lost all the same.
        Fault{ "StoreUnlock", "ReleaseMutex", 2, ERROR_NOT_OWNER,
               { "diskperf_trace _DkpfShmSetPerf() failed.(0xb0000010)" }, Recovered, Undisturbed, { Region } },
        Fault{ "SecondStoreLock", "WaitForSingleObject", 6, ERROR_INVALID_HANDLE,
               { "diskperf_trace _DkpfShmSetPerf() failed.(0xb0000006)" }, Recovered, { 0, 2, 2, 2, 0 } },
        Fault{ "ClearLock", "WaitForSingleObject", 3, ERROR_INVALID_HANDLE, {}, Quiet },
        Fault{ "SecondClearLock", "WaitForSingleObject", 7, ERROR_INVALID_HANDLE, {}, Quiet }),
    NameOf);
// clang-format on

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Reload, CollectFault,
    testing::Values(
        // The next iteration begins at once, on the old configuration: what was left of the interval is not waited for.
        Fault{ "ConfigurationLock", "WaitForSingleObject", 4, ERROR_INVALID_HANDLE,
               { "diskperf_trace _DkpfShmGetConf(ALL) failed.(0xb0000006)" }, Recovered, { 0, 2, 2, 2, 0 }, {},
               RestOfAFailedReload },
        Fault{ "ConfigurationUnlock", "ReleaseMutex", 4, ERROR_NOT_OWNER,
               { "diskperf_trace _DkpfShmGetConf(ALL) failed.(0xb0000010)" }, Recovered, { 0, 2, 2, 2, 0 }, { Region },
               RestOfAFailedReload },
        Fault{ "ClearLock", "WaitForSingleObject", 5, ERROR_INVALID_HANDLE, {}, Quiet },
        // Collection stays on: the sample that is due at 44 s is anticipated by the terminate event.
        Fault{ "SwitchConfigurationLock", "WaitForSingleObject", 8, ERROR_INVALID_HANDLE,
               { "diskperf_trace _DkpfShmGetConf(ALL) failed.(0xb0000006)" }, Raised, { 0, 2, 2, 3, 3 }, {},
               RestOfAFailedSwitch },
        Fault{ "ZeroReadLock", "WaitForSingleObject", 9, ERROR_INVALID_HANDLE,
               { "diskperf _DkpfShmGetPerf() failed.(Err=0xb0000006)",
                 "diskperf_trace _DkpfSetPerfZeroToShm() failed.(0xb0000006)" }, Raised, { 0, 2, 2, 3, 3 }, {},
               RestOfAFailedSwitch },
        Fault{ "ZeroReadUnlock", "ReleaseMutex", 9, ERROR_NOT_OWNER,
               { "diskperf _DkpfShmGetPerf() failed.(Err=0xb0000010)",
                 "diskperf_trace _DkpfSetPerfZeroToShm() failed.(0xb0000010)" }, Raised, { 0, 2, 2, 3, 3 }, { Region },
               RestOfAFailedSwitch },
        Fault{ "ZeroStoreLock", "WaitForSingleObject", 10, ERROR_INVALID_HANDLE,
               { "diskperf _DkpfShmSetPerf() failed.(Err=0xb0000006)",
                 "diskperf_trace _DkpfSetPerfZeroToShm() failed.(0xb0000006)" }, Raised, { 0, 2, 2, 3, 3 }, {},
               RestOfAFailedSwitch },
        Fault{ "ZeroStoreUnlock", "ReleaseMutex", 10, ERROR_NOT_OWNER,
               { "diskperf _DkpfShmSetPerf() failed.(Err=0xb0000010)",
                 "diskperf_trace _DkpfSetPerfZeroToShm() failed.(0xb0000010)" }, Raised, Undisturbed, { Region },
               RestOfAFailedSwitch },
        Fault{ "SwitchClearLock", "WaitForSingleObject", 11, ERROR_INVALID_HANDLE, {}, Quiet }),
    NameOf);
// clang-format on

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    End, CollectFault,
    testing::Values(
        Fault{ "ZeroReadLock", "WaitForSingleObject", 12, ERROR_INVALID_HANDLE,
               { "diskperf _DkpfShmGetPerf() failed.(Err=0xb0000006)",
                 "diskperf _DkpfSetPerfZeroToShm() failed.(0xb0000006)" }, Quiet },
        Fault{ "ZeroReadUnlock", "ReleaseMutex", 12, ERROR_NOT_OWNER,
               { "diskperf _DkpfShmGetPerf() failed.(Err=0xb0000010)",
                 "diskperf _DkpfSetPerfZeroToShm() failed.(0xb0000010)" }, Quiet, Undisturbed, { Region } },
        Fault{ "ZeroStoreLock", "WaitForSingleObject", 13, ERROR_INVALID_HANDLE,
               { "diskperf _DkpfShmSetPerf() failed.(Err=0xb0000006)",
                 "diskperf _DkpfSetPerfZeroToShm() failed.(0xb0000006)" }, Quiet },
        Fault{ "ZeroStoreUnlock", "ReleaseMutex", 13, ERROR_NOT_OWNER,
               { "diskperf _DkpfShmSetPerf() failed.(Err=0xb0000010)",
                 "diskperf _DkpfSetPerfZeroToShm() failed.(0xb0000010)" }, Quiet, Undisturbed, { Region } }),
    NameOf);
// clang-format on

/* ---- The wait itself --------------------------------------------------------------------------------------------- */

struct WaitFault {
    const char* name;
    unsigned    nth;
    DWORD       result;
    DWORD       error;
    const char* end;  // of the line
};

class CollectWaitFault : public CollectTest, public testing::WithParamInterface<WaitFault> {};

TEST_P(CollectWaitFault, EndsTheThreadWithTheErrorWarning)
{
    const WaitFault& fault = GetParam();
    os.Return("WaitForMultipleObjects", fault.nth, fault.result, fault.error);
    ReloadAt(34000);
    Run();
    char handles[64];
    snprintf(handles, sizeof handles, "(0X%016llX,0X%016llX)", reinterpret_cast<ULONGLONG>(g_hReloadEvent1),
             reinterpret_cast<ULONGLONG>(g_hTerminateEvent));
    EXPECT_EQ(ErrorLines(),
              Strings({ std::string("diskperf  WaitForMultipleObjects(2") + handles + ") error. " + fault.end }));
    EXPECT_EQ(log.Events(), Events({ 0xC00012C5 }));
    EXPECT_EQ(g_WarnEvent[0].dwBlockFlag[2], 1u);
    EXPECT_EQ(region->instance[7].inst_sub[0].value, 0u);
    EXPECT_EQ(region->sampling_time, 0u);
    EXPECT_EQ(journal.Number("CloseHandle"), 1u);
    EXPECT_EQ(Lines().back(), "diskperf 8 EXIT");
    ExpectNothingLeft();
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Waits, CollectWaitFault,
    testing::Values(WaitFault{ "TheFirst", 1, WAIT_FAILED, ERROR_INVALID_HANDLE, "<ret=-1><W32Err=6>" },
                    WaitFault{ "AfterASample", 3, WAIT_FAILED, ERROR_ACCESS_DENIED, "<ret=-1><W32Err=5>" },
                    WaitFault{ "AfterAReload", 5, WAIT_FAILED, ERROR_INVALID_HANDLE, "<ret=-1><W32Err=6>" },
                    WaitFault{ "Abandoned", 1, WAIT_ABANDONED_0, 87, "<ret=128><W32Err=87>" },
                    WaitFault{ "AbandonedSecond", 2, WAIT_ABANDONED_0 + 1, 87, "<ret=129><W32Err=87>" },
                    WaitFault{ "Interrupted", 1, WAIT_IO_COMPLETION, 1, "<ret=192><W32Err=1>" }),
    [](const testing::TestParamInfo<WaitFault>& tested) { return tested.param.name; });
// clang-format on

/* ---- Failures that no error of a call stands for ----------------------------------------------------------------- */

class CollectBadReply : public CollectTest {};

TEST_F(CollectBadReply, ARequestThatAnswersNeitherTrueNorFalseFailed)
{
    os.Return("DeviceIoControl", 2, 2, ERROR_MORE_DATA);
    WatchAt({ 20001, 30001 });
    TerminateAt(30002);
    Run();
    EXPECT_EQ(ErrorLines(),
              Strings({ "diskperf_trace  IoCtl(VELCOR_GET_PERFORMANCE) DeviceIoControl failed.<W32Err=234>" }));
    EXPECT_EQ(Shown(), Numbers({ 0, 2 }));
    EXPECT_EQ(log.Events(), Recovered);
}

TEST_F(CollectBadReply, TheFilterIsNotAskedWhereTheDriverFailed)
{
    os.driver.Script({ Reply::Error(ERROR_GEN_FAILURE), Reply::Status(1), Sample(3) });
    TerminateAt(30001);
    Run();
    EXPECT_EQ(filter.Calls(), 1u);
    EXPECT_EQ(ErrorLines(),
              Strings({ "diskperf_trace  IoCtl(VELCOR_GET_PERFORMANCE) DeviceIoControl failed.<W32Err=31>",
                        "diskperf_trace  IoCtl(VELCOR_GET_PERFORMANCE) Driver failed.<0x1>" }));
    EXPECT_EQ(log.Events(), Recovered);
}

// Also the pair that would be discarded must have been read.
TEST_F(CollectBadReply, AStatusWordInTheFirstReplyIsAFailedSample)
{
    os.driver.Script({ Reply::Status(0xE9F80002), Sample(2) });
    TerminateAt(10001);
    Run();
    EXPECT_EQ(ErrorLines(), Strings({ "diskperf_trace  IoCtl(VELCOR_GET_PERFORMANCE) Driver failed.<0xe9f80002>" }));
    EXPECT_EQ(log.Events(), Raised);
    EXPECT_FALSE(log.Has(" Discard perf data.(loop cnt=1)"));
}

TEST_F(CollectBadReply, AStatusWordLeavesThePreviousSampleInTheRegion)
{
    os.driver.Script({ Sample(1), Sample(2), Reply::Status(0xC0000001), Sample(4) });
    WatchAt({ 20001, 30001, 40001 });
    TerminateAt(40002);
    Run();
    EXPECT_EQ(Shown(), Numbers({ 2, 2, 4 }));
    EXPECT_EQ(memcmp(shown[20001].get(), shown[30001].get(), sizeof(DKPF_SHM_INFO)), 0);
}

TEST_F(CollectBadReply, AnUnknownModeIsAFailedSampleAndNothingOfItIsStored)
{
    os.driver.Script({ Sample(1), Sample(2), Sample(3).Disk(7, 2), Sample(4) });
    WatchAt({ 20001, 30001, 40001 });
    TerminateAt(40002);
    Run();
    EXPECT_EQ(ErrorLines(), Strings({ "diskperf_trace _DkpfConvPerfDrvToShm() failed.(0xb0000017)" }));
    EXPECT_EQ(Shown(), Numbers({ 2, 2, 4 }));
    EXPECT_EQ(memcmp(shown[20001].get(), shown[30001].get(), sizeof(DKPF_SHM_INFO)), 0);
    EXPECT_EQ(log.Events(), Recovered);
}

TEST_F(CollectBadReply, AnUnknownModeInTheDiscardedPairDoesNotMatter)
{
    os.driver.Script({ Sample(1).Disk(7, 2), Sample(2) });
    TerminateAt(20001);
    Run();
    EXPECT_EQ(ErrorLines(), Strings());
    EXPECT_EQ(log.Events(), Events());
}

TEST_F(CollectBadReply, ARegionThatIsLetGoMeanwhileCostsSamplesNotTheThread)
{
    os.At(15000, [] { g_dwShmInitCount = 0; });
    os.At(25000, [] { g_dwShmInitCount = 1; });
    WatchAt(30001);
    TerminateAt(30002);
    Run();
    EXPECT_EQ(ErrorLines(), Strings({ "diskperf_trace _DkpfShmSetPerf() failed.(0xb0000018)" }));
    EXPECT_EQ(Shown(), Numbers({ 3 }));
    EXPECT_EQ(log.Events(), Recovered);
    ExpectNothingLeft();
}

/* ---- The warnings' own lock -------------------------------------------------------------------------------------- */

TEST_F(CollectBadReply, AWarningThatCannotBeRaisedIsIgnoredInTheLoop)
{
    os.driver.Script({ Reply::Error(ERROR_GEN_FAILURE), Sample(2) });
    os.Fail("WaitForSingleObject", 2, ERROR_INVALID_HANDLE);  // behind that of the configuration
    TerminateAt(20001);
    Run();
    EXPECT_EQ(ErrorLines(),
              Strings({ "diskperf_trace  IoCtl(VELCOR_GET_PERFORMANCE) DeviceIoControl failed.<W32Err=31>" }));
    EXPECT_TRUE(log.Has("_DkpfMutexLock() failed.")) << "the warning routine's own line";
    EXPECT_EQ(log.Events(), Events());
    ExpectNothingLeft();
}

TEST_F(CollectBadReply, AWarningThatCannotBeRaisedAtTheEndIsLogged)
{
    os.driver.loaded = false;
    os.Fail("WaitForSingleObject", 2, ERROR_INVALID_HANDLE);
    Run();
    EXPECT_EQ(ErrorLines(), Strings({ "diskperf CreateFile(VELCOR_CTRL) error. <W32Err=2>",
                                      "diskperf _DkpfSetWarnEventLog() failed.(0xb0000006)" }));
    EXPECT_EQ(log.Events(), Events());
    EXPECT_EQ(journal.Number("WaitForSingleObject"), 4u) << "the zero sample is stored all the same";
    ExpectNothingLeft();
}

TEST_F(CollectBadReply, AfterAFailedWaitTheWarningMayFailToo)
{
    os.Fail("WaitForMultipleObjects", 1, ERROR_INVALID_HANDLE);
    os.Fail("WaitForSingleObject", 2, ERROR_INVALID_HANDLE);
    os.Fail("WaitForSingleObject", 3, ERROR_INVALID_HANDLE);
    Run();
    Strings lines = ErrorLines();
    ASSERT_EQ(lines.size(), 4u);
    lines.erase(lines.begin());
    EXPECT_EQ(lines, Strings({ "diskperf _DkpfSetWarnEventLog() failed.(0xb0000006)",
                               "diskperf _DkpfShmGetPerf() failed.(Err=0xb0000006)",
                               "diskperf _DkpfSetPerfZeroToShm() failed.(0xb0000006)" }));
    EXPECT_EQ(journal.Number("CloseHandle"), 1u);
    ExpectNothingLeft();
}

/* ---- Zero sample on its own -------------------------------------------------------------------------------------- */

struct ZeroFault {
    const char* name;
    const char* call;
    unsigned    nth;
    DWORD       code;
    const char* line;
    const char* exit;
    unsigned    locks;   // tries to lock
    bool        stored;  // the zeros arrived
    Strings     leaks;
};

class ZeroSampleFault : public DiskperfTest, public testing::WithParamInterface<ZeroFault> {};

TEST_P(ZeroSampleFault, AnswersTheAccessorsCode)
{
    const ZeroFault& fault = GetParam();
    DWORD            error = 0xDEAD;
    DKPF_SHM_INFO*   region = AttachRegion();
    g_dwDkpfLogLevel = 0x1F;
    region->sampling_time = 4711;
    os.Fail(fault.call, fault.nth, ERROR_INVALID_HANDLE);
    EXPECT_FALSE(_DkpfSetPerfZeroToShm(&error));
    EXPECT_EQ(error, fault.code);
    EXPECT_EQ(log.TextsOf("_DkpfSetPerfZeroToShm"), Strings({ fault.line }));
    EXPECT_EQ(log.lines.back().text, fault.exit);
    EXPECT_EQ(log.lines.back().log, "diskperf_trace");
    EXPECT_EQ(log.lines.back().level, 8u);
    EXPECT_EQ(journal.Number("WaitForSingleObject"), fault.locks);
    EXPECT_EQ(region->sampling_time, fault.stored ? 0u : 4711u);
    EXPECT_EQ(os.Leaks(), fault.leaks);
    EXPECT_EQ(os.misuse, Strings());
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Calls, ZeroSampleFault,
    testing::Values(ZeroFault{ "ReadLock", "WaitForSingleObject", 1, 0xB0000006, "_DkpfShmGetPerf() failed.(Err=0xb0000006)",
                               "EXIT<FALSE><0xb0000006>", 1, false, {} },
                    ZeroFault{ "ReadUnlock", "ReleaseMutex", 1, 0xB0000010, "_DkpfShmGetPerf() failed.(Err=0xb0000010)",
                               "EXIT<FALSE><0xb0000010>", 1, false, { Region } },
                    ZeroFault{ "StoreLock", "WaitForSingleObject", 2, 0xB0000006,
                               "_DkpfShmSetPerf() failed.(Err=0xb0000006)", "EXIT<FALSE><0xb0000006>", 2, false, {} },
                    ZeroFault{ "StoreUnlock", "ReleaseMutex", 2, 0xB0000010, "_DkpfShmSetPerf() failed.(Err=0xb0000010)",
                               "EXIT<FALSE><0xb0000010>", 2, true, { Region } }),
    [](const testing::TestParamInfo<ZeroFault>& tested) { return tested.param.name; });
// clang-format on

TEST_F(CollectBadReply, AZeroSampleWithoutARegionAnswersNotInitialised)
{
    DWORD error = 0;
    g_dwShmInitCount = 0;
    EXPECT_FALSE(_DkpfSetPerfZeroToShm(&error));
    EXPECT_EQ(error, 0xB0000018u);
    EXPECT_EQ(ErrorLines(), Strings({ "diskperf _DkpfShmGetPerf() failed.(Err=0xb0000018)" }));
    ExpectNothingLeft();
}

TEST_F(CollectBadReply, AZeroSampleWithoutTheMutexCannotLock)
{
    DWORD error = 0;
    g_hShmMutex = NULL;
    os.Fail("WaitForSingleObject", 1, ERROR_INVALID_HANDLE);
    EXPECT_FALSE(_DkpfSetPerfZeroToShm(&error));
    EXPECT_EQ(error, 0xB0000006u);
    ExpectNothingLeft();
}
