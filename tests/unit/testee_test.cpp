/*
 * The library under test as the fixture offers it: its calls go to the doubles, its globals are readable and reset.
 */
#include "support/fixture.h"

class Testee : public DiskperfTest {};

TEST_F(Testee, CallsOfTheLibraryReachTheDoubles)
{
    HANDLE hMutex = _DkpfCreateMutex("Global\\EXAMPLE");
    EXPECT_EQ(journal.Lines({ "CreateMutexA" })[0].substr(0, 56),
              "CreateMutexA(null DACL, FALSE, Global\\EXAMPLE) = 0x7e000");
    EXPECT_TRUE(_DkpfMutexLock(hMutex, -1));
    EXPECT_EQ(os.Locked(hMutex), 1u);
    EXPECT_TRUE(_DkpfMutexUnlock(hMutex));
    EXPECT_EQ(os.Leaks(), Strings({ "handle: mutex Global\\EXAMPLE" }));
    EXPECT_FALSE(log.lines.empty());
    EXPECT_EQ(log.lines.front().log, "diskperf");
}

TEST_F(Testee, AFailingCallInsideTheLibraryIsPlannedByItsNumber)
{
    os.Fail("CreateMutexA", 2, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_NE(_DkpfCreateMutex("Global\\FIRST"), nullptr);
    EXPECT_EQ(_DkpfCreateMutex("Global\\SECOND"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_NOT_ENOUGH_MEMORY })
        << "trace lines spoil the last error; it must be put back";
}

// The two cases write one global. Whichever runs first, the other one finds it as the library was loaded.
TEST_F(Testee, GlobalsAreWritableAndStartAsLoadedPartOne)
{
    EXPECT_EQ(g_dwDkpfLogLevel, 0xFFFFu);
    EXPECT_EQ(log.OpenTraces(), Strings({ "diskperf", "diskperf_trace", "diskperf_conf" }));
    g_dwDkpfLogLevel = 5;
}

TEST_F(Testee, GlobalsAreWritableAndStartAsLoadedPartTwo)
{
    EXPECT_EQ(g_dwDkpfLogLevel, 0xFFFFu);
    CloseLogs();
    EXPECT_EQ(g_dwDkpfLogLevel, 0u);
    EXPECT_EQ(g_hDkpfLog, nullptr);
    g_dwDkpfLogLevel = 6;
}

// The driver refuses its second request and recovers. Interval 10 s: samples at 10 (primes), 20 (refused), 30 and 40 s.
TEST_F(Testee, AThreadOfTheLibraryRunsOnTheTestsClock)
{
    DWORD          dwErr = 0;
    DKPF_SHM_INFO* lpRegion = AttachRegion();
    lpRegion->conf.perf_enable = 1;
    lpRegion->conf.collect_interval = 10;
    g_hReloadEvent1 = os.MakeEvent(false);
    g_hTerminateEvent = os.MakeEvent(true);
    ASSERT_TRUE(_DkpfInitWarnEventLog(&dwErr));
    os.driver.Script({ Record(), DriverDouble::Reply::Error(ERROR_GEN_FAILURE), Record().Sync(3) });
    os.At(41000, [&] { EXPECT_EQ(lpRegion->InitFlag[3], 1u) << "stored by the good samples"; });
    os.SignalAt(45000, g_hTerminateEvent);

    EXPECT_EQ(os.RunThread(_DkpfPerfCollectThread), 0u);

    EXPECT_EQ(log.Events(), Events({ DKPF_EVENT_COLLECT_FAILED, DKPF_EVENT_COLLECT_OK }));
    EXPECT_EQ(os.driver.requests.size(), 4u);
    EXPECT_EQ(os.Elapsed(), 45000u);
    EXPECT_EQ(journal.All().back().name, "_endthreadex");
    EXPECT_TRUE(_DkpfTermWarnEventLog(&dwErr));
    ExpectNothingLeft();
}

TEST_F(Testee, DllMainIsWithinReach)
{
    journal.Clear();
    EXPECT_TRUE(TesteeDllMain(NULL, DLL_PROCESS_ATTACH, NULL));
    EXPECT_EQ(journal.Of("CreateMutexA")[0].args, "no security, FALSE, NULL");
    EXPECT_TRUE(TesteeDllMain(NULL, DLL_PROCESS_DETACH, NULL));
    EXPECT_EQ(g_hDllInitMutex, nullptr);
    ExpectNothingLeft();
}
