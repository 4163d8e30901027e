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
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_NOT_ENOUGH_MEMORY }) << "trace lines spoil the last error; it must be put back";
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
