/*
 * The watch over the agent's end, with a clock that moves when somebody waits, and its last line, with a journal that
 * waits for the test.
 */
#include <gtest/gtest.h>
#include <algorithm>
#include <vector>

#include "stop_watch.h"

using namespace dkpf;

namespace {

class Watch : public StopWatchPorts {
public:
    DWORD              now = 0;
    DWORD              endsAtMs = 0;  // since the start; 0: never
    DWORD              lateMs = 0;    // by so much each wait takes longer than asked for
    std::vector<DWORD> checkPoints;
    int                givenUp = 0;
    DWORD              start = 0;

    DWORD Tick() override
    {
        return now;
    }
    bool WaitEnd(DWORD limitMs) override
    {
        EXPECT_LE(limitMs, 1000u);
        if (endsAtMs != 0 && now - start + limitMs >= endsAtMs)
            return true;
        now += limitMs + lateMs;
        return false;
    }
    void StillStopping(DWORD checkPoint) override
    {
        checkPoints.push_back(checkPoint);
    }
    void GiveUp() override
    {
        givenUp++;
    }
};

// A line of which the test says when it comes to its end.
class SlowJournal : public Journal {
public:
    ~SlowJournal() override
    {
        SetEvent(goOn);
        WaitForSingleObject(ended, INFINITE);
        CloseHandle(goOn);
        CloseHandle(ended);
    }
    void Open(DWORD, DWORD) override
    {
    }
    void Line(DWORD lineLevel, const SourcePlace& place, const std::string& lineText) override
    {
        WaitForSingleObject(goOn, INFINITE);
        level = lineLevel;
        line = place.line;
        text = lineText;
        thread = GetCurrentThreadId();
        SetEvent(ended);
    }

    HANDLE      goOn = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE      ended = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD       level = 0, thread = 0;
    int         line = 0;
    std::string text;
};

}  // namespace

TEST(LastLine, IsWaitedForWhileThereIsTime)
{
    SlowJournal journal;
    SetEvent(journal.goOn);
    EXPECT_TRUE(LineWithin(journal, 1, { "unit", 7, "Routine" }, " the last", 600000));
    EXPECT_EQ(journal.level, 1u);
    EXPECT_EQ(journal.line, 7);
    EXPECT_EQ(journal.text, " the last");
    EXPECT_NE(journal.thread, GetCurrentThreadId());
}

// As on a volume that hangs: the caller goes on, and what it handed over is still good when the line is written.
TEST(LastLine, ThatDoesNotComeToItsEndIsLeftAlone)
{
    SlowJournal journal;
    EXPECT_FALSE(LineWithin(journal, 1, { "unit", 7, "Routine" }, std::string(100, 'x'), 1));
    EXPECT_EQ(WaitForSingleObject(journal.ended, 0), DWORD{ WAIT_TIMEOUT });
    SetEvent(journal.goOn);
    WaitForSingleObject(journal.ended, INFINITE);
    EXPECT_EQ(journal.text, std::string(100, 'x'));
}

TEST(StopWatch, AQuickEndNeedsNoSignOfLife)
{
    Watch watch;
    watch.endsAtMs = 300;
    WatchStop(watch);
    EXPECT_TRUE(watch.checkPoints.empty());
    EXPECT_EQ(watch.givenUp, 0);
}

TEST(StopWatch, CheckPointsRiseEverySecondUntilTheEnd)
{
    Watch watch;
    watch.endsAtMs = 4500;
    WatchStop(watch);
    EXPECT_EQ(watch.checkPoints, (std::vector<DWORD>{ 1, 2, 3, 4 }));
    EXPECT_EQ(watch.givenUp, 0);
}

TEST(StopWatch, TheLibrarysWholeTimeOutIsWaitedFor)
{
    Watch watch;
    watch.endsAtMs = 301000;
    WatchStop(watch);
    EXPECT_EQ(watch.givenUp, 0);
    EXPECT_EQ(watch.checkPoints.size(), 300u);
}

// What the service manager is promised has to be kept even where each wait comes back late.
TEST(StopWatch, TheNextSignOfLifeComesWithinTheHintAndEveryCheckPointIsAboveTheLast)
{
    Watch watch;
    watch.lateMs = 3900;
    WatchStop(watch);
    EXPECT_GT(STOP_HINT_MS, STOP_STEP_MS + watch.lateMs);
    ASSERT_FALSE(watch.checkPoints.empty());
    for (size_t i = 0; i < watch.checkPoints.size(); i++)
        EXPECT_EQ(watch.checkPoints[i], i + 1);
    EXPECT_EQ(watch.givenUp, 1);
}

TEST(StopWatch, AnEndThatNeverComesIsGivenUpAfter310Seconds)
{
    Watch watch;
    WatchStop(watch);
    EXPECT_EQ(watch.givenUp, 1);
    EXPECT_EQ(watch.now, 310000u);
    EXPECT_EQ(watch.checkPoints.back(), 310u);
}

// Waits come back late on a busy machine; the limit is one of time, not of their number.
TEST(StopWatch, LateWaitsDoNotMoveTheLimitByMoreThanOneOfThem)
{
    Watch watch;
    watch.lateMs = 16;
    WatchStop(watch);
    EXPECT_EQ(watch.givenUp, 1);
    EXPECT_LE(watch.now, 310016u);
}

TEST(StopWatch, TheTickCountersWrapIsHarmless)
{
    Watch watch;
    watch.now = watch.start = 0xFFFFFFFF - 5000;
    watch.endsAtMs = 20000;
    WatchStop(watch);
    EXPECT_EQ(watch.givenUp, 0);
    EXPECT_EQ(watch.checkPoints.size(), 19u);
}
