/*
 * Warning events: raised by the first source, cleared by the last, repeated once a day.
 */
#include "unit/lifecycle_fixture.h"

#include <cstring>

/* Event numbers by kind; the kind of a stopped thread has no all-clear. */
constexpr DWORD Stopped = 0xC00012C5;
constexpr DWORD CollectFailed = 0x800012C1, CollectWell = 0x400012C2;
constexpr DWORD CsvFailed = 0x800012C3, CsvWell = 0x400012C4;
constexpr DWORD Day = 86400000;

class WarningEvent : public LinesTest {
protected:
    void SetUp() override
    {
        LinesTest::SetUp();
        ASSERT_TRUE(_DkpfInitWarnEventLog(&code));
        log.ClearLines();
        journal.Clear();
        journal.ResetPlans();
    }
    void TearDown() override
    {
        EXPECT_EQ(os.Locked(g_hWarnEventMutex), 0u);
        EXPECT_TRUE(_DkpfTermWarnEventLog(&code));
        ExpectNothingLeft();
        LinesTest::TearDown();
    }

    /* Source reports the kind, or reports it cleared; the call succeeds. */
    void Set(int kind, DWORD source)
    {
        EXPECT_TRUE(_DkpfSetWarnEventLog(kind, source, &code));
        EXPECT_EQ(code, 0xB0000000u);
    }
    void Reset(int kind, DWORD source)
    {
        EXPECT_TRUE(_DkpfResetWarnEventLog(kind, source, &code));
        EXPECT_EQ(code, 0xB0000000u);
    }

    DWORD code = 1;
};

/* ---- Raising and clearing ---- */

TEST_F(WarningEvent, TwoSetsOfOneSourceWriteOneEventAndItsResetTheAllClear)
{
    Set(1, 2);
    Set(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed }));
    EXPECT_EQ(g_WarnEvent[1].dwCount, 1u);
    Reset(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed, CollectWell }));
}

TEST_F(WarningEvent, TheLastOfTwoSourcesWritesTheAllClear)
{
    Set(2, 0);
    Set(2, 1);
    Reset(2, 0);
    EXPECT_EQ(log.Events(), Events({ CsvFailed }));
    EXPECT_EQ(g_WarnEvent[2].dwCount, 1u);
    Reset(2, 1);
    EXPECT_EQ(log.Events(), Events({ CsvFailed, CsvWell }));
}

TEST_F(WarningEvent, AResetOfASourceThatWasNeverSetChangesNothing)
{
    WARN_EVENT_REC before[3];
    Set(1, 2);
    memcpy(before, g_WarnEvent, sizeof before);
    log.ClearLines();
    Reset(1, 0);
    Reset(2, 2);
    EXPECT_EQ(memcmp(before, g_WarnEvent, sizeof before), 0);
    EXPECT_EQ(log.Events(), Events());
    EXPECT_EQ(log.Texts("", 2), Strings());
}

TEST_F(WarningEvent, EachKindAndEachSourceCountsForItself)
{
    for (int kind = 0; kind < 3; kind++) {
        for (DWORD source = 0; source < 3; source++) {
            Set(kind, source);
            EXPECT_EQ(g_WarnEvent[kind].dwCount, source + 1);
            EXPECT_EQ(g_WarnEvent[kind].dwBlockFlag[source], 1u);
        }
    }
    EXPECT_EQ(log.Events(), Events({ Stopped, CollectFailed, CsvFailed }));
    for (int kind = 1; kind < 3; kind++) {
        for (DWORD source = 0; source < 3; source++) {
            EXPECT_EQ(log.Events().size(), kind == 1 ? 3u : 4u);
            Reset(kind, source);
            EXPECT_EQ(g_WarnEvent[kind].dwCount, 2 - source);
            EXPECT_EQ(g_WarnEvent[kind].dwBlockFlag[source], 0u);
        }
    }
    EXPECT_EQ(log.Events(), Events({ Stopped, CollectFailed, CsvFailed, CollectWell, CsvWell }));
    EXPECT_EQ(g_WarnEvent[0].dwCount, 3u) << "the kind that nobody cleared";
}

TEST_F(WarningEvent, AClearedKindIsRaisedAnew)
{
    for (int i = 0; i < 3; i++) {
        Set(1, 1);
        Reset(1, 1);
    }
    EXPECT_EQ(log.Events(),
              Events({ CollectFailed, CollectWell, CollectFailed, CollectWell, CollectFailed, CollectWell }));
}

TEST_F(WarningEvent, ASecondResetOfOneSourceWritesNothing)
{
    Set(1, 1);
    Reset(1, 1);
    Reset(1, 1);
    EXPECT_EQ(log.Events(), Events({ CollectFailed, CollectWell }));
    EXPECT_EQ(g_WarnEvent[1].dwCount, 0u);
}

TEST_F(WarningEvent, TheTickOfTheLastEventIsKeptAndForgottenWithTheAllClear)
{
    os.SetTick(123456);
    Set(1, 2);
    EXPECT_EQ(g_WarnEvent[1].dwLastTick, 123456u);
    os.Advance(1000);
    Set(1, 1);
    EXPECT_EQ(g_WarnEvent[1].dwLastTick, 123456u) << "a further source is silent";
    Reset(1, 2);
    EXPECT_EQ(g_WarnEvent[1].dwLastTick, 123456u);
    Reset(1, 1);
    EXPECT_EQ(g_WarnEvent[1].dwLastTick, 0u);
}

/* ---- Lines and order ---- */

TEST_F(WarningEvent, ASetTracesTheKindIndexTheNewCountAndTheSource)
{
    Set(1, 2);
    Set(1, 0);
    Set(1, 0);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf_trace 16 _DkpfSetWarnEventLog: ENTER",
                           "diskperf_trace 2 _DkpfSetWarnEventLog:  Set Warn Event <EventID=0x1><cnt=1><BlockID=0x2>",
                           "diskperf event 0x800012c1 _DkpfSetWarnEventLog: ",
                           "diskperf_trace 16 _DkpfSetWarnEventLog: EXIT<TRUE><0xb0000000>",
                           "diskperf_trace 16 _DkpfSetWarnEventLog: ENTER",
                           "diskperf_trace 2 _DkpfSetWarnEventLog:  Set Warn Event <EventID=0x1><cnt=2><BlockID=0>",
                           "diskperf_trace 16 _DkpfSetWarnEventLog: EXIT<TRUE><0xb0000000>",
                           "diskperf_trace 16 _DkpfSetWarnEventLog: ENTER",
                           "diskperf_trace 16 _DkpfSetWarnEventLog: EXIT<TRUE><0xb0000000>",
                       }));
}

TEST_F(WarningEvent, AResetTracesTheKindIndexTheNewCountAndTheSource)
{
    Set(2, 0);
    Set(2, 1);
    log.ClearLines();
    Reset(2, 1);
    Reset(2, 0);
    Reset(2, 0);
    EXPECT_EQ(Lines(),
              Strings({
                  "diskperf_trace 16 _DkpfResetWarnEventLog: ENTER",
                  "diskperf_trace 2 _DkpfResetWarnEventLog:  Reset Warn Event <EventID=0x2><cnt=1><BlockID=0x1>",
                  "diskperf_trace 16 _DkpfResetWarnEventLog: EXIT<TRUE><0xb0000000>",
                  "diskperf_trace 16 _DkpfResetWarnEventLog: ENTER",
                  "diskperf_trace 2 _DkpfResetWarnEventLog:  Reset Warn Event <EventID=0x2><cnt=0><BlockID=0>",
                  "diskperf event 0x400012c4 _DkpfResetWarnEventLog: ",
                  "diskperf_trace 16 _DkpfResetWarnEventLog: EXIT<TRUE><0xb0000000>",
                  "diskperf_trace 16 _DkpfResetWarnEventLog: ENTER",
                  "diskperf_trace 16 _DkpfResetWarnEventLog: EXIT<TRUE><0xb0000000>",
              }));
}

TEST_F(WarningEvent, TheKindOfStoppedThreadsIsWrittenAsAnError)
{
    Set(0, 2);
    EXPECT_EQ(Lines()[1], "diskperf_trace 2 _DkpfSetWarnEventLog:  Set Warn Event <EventID=0><cnt=1><BlockID=0x2>");
    EXPECT_EQ(Lines()[2], "diskperf event 0xc00012c5 _DkpfSetWarnEventLog: ");
    Set(0, 1);
    EXPECT_EQ(log.Events(), Events({ Stopped }));
}

TEST_F(WarningEvent, TheMutexIsHeldOverTheWholeChange)
{
    Set(1, 2);
    Reset(1, 2);
    std::string mutex = Hex(reinterpret_cast<ULONG_PTR>(g_hWarnEventMutex));
    Strings     order;
    for (const Call& call : journal.All()) {
        bool event = call.name == "log_write" && call.args.find(", 32768, ") != std::string::npos;
        if (event || call.name == "WaitForSingleObject" || call.name == "ReleaseMutex") {
            order.push_back(event ? "event" : call.name + "(" + call.args + ")");
        }
    }
    EXPECT_EQ(order,
              Strings({ "WaitForSingleObject(mutex " + mutex + ", INFINITE)", "event",
                        "ReleaseMutex(mutex " + mutex + ")", "WaitForSingleObject(mutex " + mutex + ", INFINITE)",
                        "event", "ReleaseMutex(mutex " + mutex + ")" }));
}

TEST_F(WarningEvent, AnAbandonedMutexIsTakenOver)
{
    os.Abandon(g_hWarnEventMutex);
    Set(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed }));
    EXPECT_EQ(log.Errors(), Strings());
}

TEST_F(WarningEvent, AReleaseThatFailsIsNotTheCallersBusiness)
{
    os.Fail("ReleaseMutex", 1, ERROR_NOT_OWNER, 2);
    Set(1, 2);
    Reset(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed, CollectWell }));
    while (os.Locked(g_hWarnEventMutex) != 0) {
        _DkpfMutexUnlock(g_hWarnEventMutex);
    }
}

TEST_F(WarningEvent, ASetWithoutTheLockChangesNothingAndReleasesNothing)
{
    WARN_EVENT_REC before[3];
    memcpy(before, g_WarnEvent, sizeof before);
    os.Fail("WaitForSingleObject", 1, ERROR_INVALID_HANDLE);
    EXPECT_FALSE(_DkpfSetWarnEventLog(1, 2, &code));
    EXPECT_EQ(code, 0xB0000006u);
    EXPECT_EQ(memcmp(before, g_WarnEvent, sizeof before), 0);
    EXPECT_EQ(journal.Number("ReleaseMutex"), 0u);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf_trace 16 _DkpfSetWarnEventLog: ENTER",
                           "diskperf 1 _DkpfMutexLock:  WaitForSingleObject(" + Pointer(g_hWarnEventMutex) +
                               ") failed.<W32Err=6>",
                           "diskperf 1 _DkpfSetWarnEventLog: _DkpfMutexLock() failed.",
                           "diskperf_trace 16 _DkpfSetWarnEventLog: EXIT<FALSE><0xb0000006>",
                       }));
}

TEST_F(WarningEvent, AResetWithoutTheLockChangesNothingAndReleasesNothing)
{
    Set(1, 2);
    WARN_EVENT_REC before[3];
    memcpy(before, g_WarnEvent, sizeof before);
    log.ClearLines();
    journal.Clear();
    journal.ResetPlans();
    os.Return("WaitForSingleObject", 1, WAIT_TIMEOUT);
    EXPECT_FALSE(_DkpfResetWarnEventLog(1, 2, &code));
    EXPECT_EQ(code, 0xB0000006u);
    EXPECT_EQ(memcmp(before, g_WarnEvent, sizeof before), 0);
    EXPECT_EQ(journal.Number("ReleaseMutex"), 0u);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf_trace 16 _DkpfResetWarnEventLog: ENTER",
                           "diskperf 1 _DkpfMutexLock:  Wait timeout(" + Pointer(g_hWarnEventMutex) + ") <INFINITE>",
                           "diskperf 1 _DkpfResetWarnEventLog: _DkpfMutexLock() failed.",
                           "diskperf_trace 16 _DkpfResetWarnEventLog: EXIT<FALSE><0xb0000006>",
                       }));
}

/* ---- Once a day ---- */

TEST_F(WarningEvent, AKindRaisedForExactly24HoursIsNotWrittenAgain)
{
    Set(1, 2);
    os.Advance(Day);
    Set(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed }));
}

TEST_F(WarningEvent, AKindRaisedForMoreThan24HoursIsWrittenAgainByTheNextSet)
{
    Set(1, 2);
    os.Advance(Day + 1);
    log.ClearLines();
    Set(1, 2);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf_trace 16 _DkpfSetWarnEventLog: ENTER",
                           "diskperf event 0x800012c1 _DkpfSetWarnEventLog: ",
                           "diskperf_trace 16 _DkpfSetWarnEventLog: EXIT<TRUE><0xb0000000>",
                       }));
    EXPECT_EQ(g_WarnEvent[1].dwCount, 1u);
    EXPECT_EQ(g_WarnEvent[1].dwLastTick, os.Tick());
}

TEST_F(WarningEvent, ThenOncePerFurther24Hours)
{
    Set(1, 2);
    for (int hour = 1; hour <= 100; hour++) {  // 100 hours: over 24 at hour 25, 50, 75 and 100
        os.Advance(Day / 24);
        Set(1, 2);
    }
    EXPECT_EQ(log.Events(), Events(5, CollectFailed));
}

TEST_F(WarningEvent, AnySourceOfTheKindTriggersTheRepeat)
{
    Set(2, 0);
    Set(2, 1);
    os.Advance(Day + 1);
    Set(2, 1);
    EXPECT_EQ(log.Events(), Events({ CsvFailed, CsvFailed }));
    os.Advance(Day + 1);
    Set(2, 2);
    EXPECT_EQ(log.Events(), Events({ CsvFailed, CsvFailed, CsvFailed })) << "a source that joins only now";
    EXPECT_EQ(g_WarnEvent[2].dwCount, 3u);
}

TEST_F(WarningEvent, TheRepeatOfOneKindIsNotThatOfAnother)
{
    Set(1, 2);
    os.Advance(Day);
    Set(2, 0);
    os.Advance(1);
    Set(2, 0);
    EXPECT_EQ(log.Events(), Events({ CollectFailed, CsvFailed }));
    Set(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed, CsvFailed, CollectFailed }));
}

TEST_F(WarningEvent, SourcesThatFallSilentRepeatNothing)
{
    Set(1, 2);
    Set(1, 1);
    os.Advance(10ull * Day);
    Reset(1, 1);
    EXPECT_EQ(log.Events(), Events({ CollectFailed }));
    Reset(1, 0);
    EXPECT_EQ(log.Events(), Events({ CollectFailed }));
}

TEST_F(WarningEvent, TheWrapOfTheTickCountNeitherHidesNorHastensTheRepeat)
{
    os.SetTick(0xFFFFFFFF - 1000);
    Set(1, 2);
    os.Advance(2000);
    ASSERT_LT(os.Tick(), 2000u);
    Set(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed }));
    os.Advance(Day - 2000);
    Set(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed }));
    os.Advance(1);
    Set(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed, CollectFailed }));
}

TEST_F(WarningEvent, AFirstRaiseLongAfterTheMachinesStartIsWrittenOnce)
{
    os.SetTick(0xF0000000);  // the difference to the last tick 0 of the table is far over a day
    Set(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed }));
}

TEST_F(WarningEvent, ARaiseAtTickZeroIsWrittenOnce)
{
    os.SetTick(0);
    Set(1, 2);
    Set(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed }));
}

TEST_F(WarningEvent, ANewRaiseStartsItsDayAnew)
{
    Set(1, 2);
    os.Advance(Day);
    Reset(1, 2);
    Set(1, 2);
    os.Advance(1);
    Set(1, 2);
    EXPECT_EQ(log.Events(), Events({ CollectFailed, CollectWell, CollectFailed }));
}

/* ---- Begin and end ---- */

class WarningEventTable : public LinesTest {
protected:
    DWORD code = 1;
};

TEST_F(WarningEventTable, StartsWithThreeClearedKindsUnderAMutexOfItsOwn)
{
    // Seven words each: set event, reset event, count, last tick, three flags.
    const DWORD initial[21] = {
        0xC00012C5, 0,          0, 0, 0, 0, 0,  //
        0x800012C1, 0x400012C2, 0, 0, 0, 0, 0,  //
        0x800012C3, 0x400012C4, 0, 0, 0, 0, 0,
    };
    ASSERT_EQ(sizeof g_WarnEvent, sizeof initial);
    memset(g_WarnEvent, 0xEE, sizeof g_WarnEvent);
    EXPECT_TRUE(_DkpfInitWarnEventLog(&code));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(memcmp(g_WarnEvent, initial, sizeof initial), 0);
    EXPECT_NE(g_hWarnEventMutex, nullptr);
    EXPECT_EQ(journal.Of("CreateMutexA").size(), 1u);
    EXPECT_EQ(journal.Of("CreateMutexA")[0].args, "no security, FALSE, NULL");
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 8 _DkpfInitWarnEventLog: ENTER",
                           "diskperf 8 _DkpfInitWarnEventLog: EXIT<TRUE><0xb0000000>",
                       }));
}

TEST_F(WarningEventTable, ARaisedKindIsForgottenByTheNextInit)
{
    EXPECT_TRUE(_DkpfInitWarnEventLog(&code));
    EXPECT_TRUE(_DkpfSetWarnEventLog(1, 2, &code));
    EXPECT_TRUE(_DkpfTermWarnEventLog(&code));
    EXPECT_TRUE(_DkpfInitWarnEventLog(&code));
    EXPECT_TRUE(_DkpfSetWarnEventLog(1, 2, &code));
    EXPECT_EQ(log.Events(), Events({ CollectFailed, CollectFailed }));
    EXPECT_TRUE(_DkpfTermWarnEventLog(&code));
    ExpectNothingLeft();
}

TEST_F(WarningEventTable, WithoutTheMutexTheTableStaysAsItIs)
{
    WARN_EVENT_REC before[3];
    memset(g_WarnEvent, 0xEE, sizeof g_WarnEvent);
    memcpy(before, g_WarnEvent, sizeof before);
    os.Fail("CreateMutexA", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(_DkpfInitWarnEventLog(&code));
    EXPECT_EQ(code, 0xB0000005u);
    EXPECT_EQ(g_hWarnEventMutex, nullptr);
    EXPECT_EQ(memcmp(g_WarnEvent, before, sizeof before), 0);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 8 _DkpfInitWarnEventLog: ENTER",
                           "diskperf 1 _DkpfInitWarnEventLog: _DkpfCreateMutex(NULL) failed. <W32Err=8>",
                           "diskperf 8 _DkpfInitWarnEventLog: EXIT<FALSE><0xb0000005>",
                       }));
}

TEST_F(WarningEventTable, EndsByClosingTheMutex)
{
    EXPECT_TRUE(_DkpfInitWarnEventLog(&code));
    log.ClearLines();
    code = 1;
    EXPECT_TRUE(_DkpfTermWarnEventLog(&code));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(g_hWarnEventMutex, nullptr);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 8 _DkpfTermWarnEventLog: ENTER",
                           "diskperf 8 _DkpfTermWarnEventLog: EXIT<TRUE><0xb0000000>",
                       }));
    ExpectNothingLeft();
}

TEST_F(WarningEventTable, EndsOnlyWhatIsThere)
{
    for (HANDLE none : { static_cast<HANDLE>(nullptr), INVALID_HANDLE_VALUE }) {
        g_hWarnEventMutex = none;
        EXPECT_TRUE(_DkpfTermWarnEventLog(&code));
        EXPECT_EQ(code, 0xB0000000u);
    }
    EXPECT_EQ(journal.Number("CloseHandle"), 0u);
    g_hWarnEventMutex = nullptr;
}

TEST_F(WarningEventTable, EndsAlsoWhereTheMutexCannotBeClosed)
{
    EXPECT_TRUE(_DkpfInitWarnEventLog(&code));
    os.Fail("CloseHandle", 1, ERROR_INVALID_HANDLE);
    EXPECT_TRUE(_DkpfTermWarnEventLog(&code));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(g_hWarnEventMutex, nullptr);
}

TEST_F(WarningEventTable, SetAndResetWithoutInitFailAtTheLock)
{
    os.Fail("WaitForSingleObject", 1, ERROR_INVALID_HANDLE, 2);
    EXPECT_FALSE(_DkpfSetWarnEventLog(1, 2, &code));
    EXPECT_EQ(code, 0xB0000006u);
    EXPECT_FALSE(_DkpfResetWarnEventLog(1, 2, &code));
    EXPECT_EQ(code, 0xB0000006u);
    EXPECT_EQ(log.Events(), Events());
}
