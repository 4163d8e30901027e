/*
 * The watch over the agent's end, with a clock that moves when somebody waits.
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

}  // namespace

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
