/*
 * The watch over the agent's end, with a clock that moves when somebody waits, and with a journal and a front that hang
 * until the test lets them go.
 */
#include <gtest/gtest.h>
#include <atomic>
#include <string>
#include <vector>

#include "aside.h"
#include "front.h"
#include "process_stop_watch.h"
#include "stop_watch.h"
#include "tnwlog.h"

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

// Calls that hang until the test lets them go.
class Hanging {
public:
    ~Hanging()
    {
        CloseHandle(m_goOn);
    }
    void Hang()
    {
        WaitForSingleObject(m_goOn, INFINITE);
    }
    void End()  // the last thing that a call does
    {
        m_ended++;
    }
    void LetGo()
    {
        SetEvent(m_goOn);
    }
    /* What a call refers to must live on until then. */
    void AwaitEnded(int count)
    {
        for (int i = 0; m_ended < count && i < 60000; i++)
            Sleep(1);
        EXPECT_GE(m_ended, count);
    }

private:
    HANDLE           m_goOn = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<int> m_ended{ 0 };
};

class HangingFront : public Front {
public:
    explicit HangingFront(Hanging& calls) : m_calls(calls)
    {
    }
    bool IsConsole() const override
    {
        return true;
    }
    void Running() override
    {
    }
    void StillStopping(DWORD checkPoint, DWORD hintMs) override
    {
        last = checkPoint;
        hint = hintMs;
        signs++;
        m_calls.Hang();
        m_calls.End();
    }
    void Stopped(AgentExit code) override
    {
        stopped = code;
        m_calls.Hang();
        m_calls.End();
    }

    std::atomic<DWORD> last{ 0 }, hint{ 0 };
    std::atomic<int>   signs{ 0 }, stopped{ -1 };

private:
    Hanging& m_calls;
};

class HangingJournal : public Journal {
public:
    explicit HangingJournal(Hanging& calls) : m_calls(calls)
    {
    }
    void Open(DWORD, DWORD) override
    {
    }
    void Line(DWORD lineLevel, const SourcePlace&, const std::string& lineText) override
    {
        m_calls.Hang();
        level = lineLevel;
        text = lineText;
        m_calls.End();
    }

    DWORD       level = 0;
    std::string text;

private:
    Hanging& m_calls;
};

// The watch of a real process; the clock moves when somebody waits, and the process stays.
class WatchThatStays : public ProcessStopWatch {
public:
    using ProcessStopWatch::ProcessStopWatch;

    DWORD Tick() override
    {
        return now;
    }
    bool WaitEnd(DWORD limitMs) override
    {
        now += limitMs;
        return false;
    }

    DWORD            now = 0;
    std::vector<int> ends;

protected:
    void EndProcess(AgentExit code) override
    {
        ends.push_back(code);
    }
};

constexpr DWORD PATIENT_MS = 600000;

}  // namespace

TEST(Aside, ACallIsWaitedForAndIsMadeInAThreadOfItsOwn)
{
    DWORD thread = 0;
    Aside aside;
    EXPECT_TRUE(aside.Do([&thread] { thread = GetCurrentThreadId(); }, PATIENT_MS));
    EXPECT_NE(thread, 0u);
    EXPECT_NE(thread, GetCurrentThreadId());
}

// As on a volume that hangs: the caller goes on, and what it handed over is still good when the call goes on.
TEST(Aside, ACallThatDoesNotComeToItsEndIsLeftAlone)
{
    Hanging        calls;
    HangingJournal journal(calls);
    {
        Aside aside;
        EXPECT_FALSE(aside.Do([&journal, text = std::string(100, 'x')] { journal.Line(1, {}, text); }, 1));
    }
    calls.LetGo();
    calls.AwaitEnded(1);
    EXPECT_EQ(journal.text, std::string(100, 'x'));
}

TEST(Aside, NoSecondCallIsMadeWhileTheFirstIsOut)
{
    Hanging calls;
    bool    second = false;
    Aside   aside;
    EXPECT_FALSE(aside.Do(
        [&calls] {
            calls.Hang();
            calls.End();
        },
        1));
    EXPECT_FALSE(aside.Do([&second] { second = true; }, PATIENT_MS));
    EXPECT_FALSE(second);
    calls.LetGo();
    calls.AwaitEnded(1);
}

TEST(Aside, TheNextCallIsMadeWhenTheLastOneIsDone)
{
    int   made = 0;
    Aside aside;
    EXPECT_TRUE(aside.Do([&made] { made++; }, PATIENT_MS));
    EXPECT_TRUE(aside.Do([&made] { made++; }, PATIENT_MS));
    EXPECT_EQ(made, 2);
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

/* ---- Of a real process ---- */

TEST(ProcessStopWatch, TellsJournalAndFrontAndEndsTheProcess)
{
    Hanging        calls;
    HangingFront   front(calls);
    HangingJournal journal(calls);
    calls.LetGo();
    WatchThatStays watch(front, journal, nullptr, PATIENT_MS);
    WatchStop(watch);
    EXPECT_EQ(front.signs, 310);
    EXPECT_EQ(front.last, 310u);
    EXPECT_EQ(front.hint, 5000u);
    EXPECT_EQ(journal.level, DWORD{ TNWLOG_ERROR });
    EXPECT_EQ(journal.text, " not down after 310 s: the process ends now");
    EXPECT_EQ(front.stopped, 7);
    EXPECT_EQ(watch.ends, (std::vector<int>{ 7 }));
}

// As with a pipe that nobody reads, and a console that is held by a selection.
TEST(ProcessStopWatch, NeitherFrontNorJournalCanKeepIt)
{
    Hanging        calls;
    HangingFront   front(calls);
    HangingJournal journal(calls);
    WatchThatStays watch(front, journal, nullptr, 1);
    WatchStop(watch);
    EXPECT_EQ(watch.ends, (std::vector<int>{ 7 }));
    EXPECT_EQ(watch.now, 310000u);
    calls.LetGo();
    calls.AwaitEnded(3);
    EXPECT_EQ(front.signs, 1);  // no second one while it was out
    EXPECT_EQ(front.stopped, 7);
}

TEST(CountsAsStop, OnlyAServiceThatNobodyAskedToStopAndThatCannotComeDownDoesNot)
{
    for (bool console : { false, true }) {
        for (bool asked : { false, true }) {
            for (int code = AGENT_STOPPED; code < AGENT_STOP_OVERDUE; code++)
                EXPECT_TRUE(CountsAsStop(console, asked, static_cast<AgentExit>(code))) << code;
        }
    }
    EXPECT_FALSE(CountsAsStop(false, false, AGENT_STOP_OVERDUE));
    EXPECT_TRUE(CountsAsStop(false, true, AGENT_STOP_OVERDUE));
    EXPECT_TRUE(CountsAsStop(true, false, AGENT_STOP_OVERDUE));
    EXPECT_TRUE(CountsAsStop(true, true, AGENT_STOP_OVERDUE));
}
