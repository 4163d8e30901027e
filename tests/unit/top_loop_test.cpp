/*
 * The loop of dkpfctl top on a clock that moves in waits alone.
 */
#include <gtest/gtest.h>
#include <algorithm>
#include <deque>

#include "top_loop.h"
#include "unit/top_readings.h"

using namespace dkpf;

namespace {

const char WAITING[] = "waiting for the first interval";

class ScriptedSource : public IntervalSource {
public:
    Reading Next() override
    {
        reads++;
        const Reading reading = script.front();
        waiting = reading.words == WAITING;
        if (script.size() > 1)
            script.pop_front();  // the last one stays
        return reading;
    }
    const CounterNames& Names() const override
    {
        return names;
    }
    void Look() override
    {
    }
    bool Waiting() const override
    {
        return waiting;
    }
    void Add(const Reading& reading, int times = 1)
    {
        script.insert(script.end(), static_cast<size_t>(times), reading);
    }

    std::deque<Reading> script;
    CounterNames        names = NamesFromSystem();
    int                 reads = 0;
    bool                waiting = false;
};

/* Starts at 14:05:00. */
class ScriptedView : public TopView {
public:
    bool Size(int* width, int* height) override
    {
        if (sizes.empty())
            return false;
        *width = sizes.front().first;
        *height = sizes.front().second;
        if (sizes.size() > 1)
            sizes.pop_front();
        return true;
    }
    void Show(const std::vector<ScreenLine>& lines) override
    {
        frames.push_back(lines);
    }
    void Say(const std::string& text) override
    {
        said += text;
    }
    ULONGLONG NowMs() override
    {
        return ms;
    }
    SYSTEMTIME LocalNow() override
    {
        return SYSTEMTIME{ 2026, 3, 6, 7, 14, 5, static_cast<WORD>((ms - 5000) / 1000), 0 };
    }
    TopWish Wait(DWORD wait) override
    {
        waits.push_back(wait);
        if (waits.size() == endAfter)
            return TopWish::End;
        if (!keys.empty()) {
            const TopWish key = keys.front();
            keys.pop_front();
            ms += std::min(wait, keyMs);
            return key;
        }
        ms += wait;
        return TopWish::None;
    }

    std::deque<std::pair<int, int>>      sizes;
    std::vector<std::vector<ScreenLine>> frames;
    std::string                          said;
    std::vector<DWORD>                   waits;
    std::deque<TopWish>                  keys;  // one ends each wait, after keyMs
    DWORD                                keyMs = 100;
    ULONGLONG                            ms = 5000;
    size_t                               endAfter = 1000;
};

class TopLoopTest : public testing::Test {
protected:
    TopEnd Run(int seconds = 0)
    {
        TopOptions options;
        options.seconds = seconds;
        return TopLoop(options, "NODE1", &source, &view);
    }

    ScriptedSource source;
    ScriptedView   view;
};

Reading Stale(DWORD ageMs, DWORD missed)
{
    Reading reading = ThreeDisks();
    reading.state = ReadingState::Stale;
    reading.ageMs = ageMs;
    reading.pollsMissed = missed;
    reading.words = "the agent hangs";
    return reading;
}

/* The plain lines of ThreeDisks. */
const char ROWS[] = "14:05:09 _Total"
                    " 3.00 MiB"
                    " 30.0 MiB"
                    "  1.23 ms"
                    "   2.50 s"
                    "   1023 B"
                    " 1.00 MiB"
                    "     42 %"
                    "\n"
                    "14:05:09 NMP1  "
                    "      0 B"
                    "      0 B"
                    "     0 us"
                    "     0 us"
                    "      0 B"
                    "      0 B"
                    "    100 %"
                    "\n"
                    "14:05:09 NMP7  "
                    "      7 B"
                    "      7 B"
                    "     idle"
                    "     7 us"
                    "      7 B"
                    "      7 B"
                    "     idle"
                    "\n"
                    "14:05:09 NMP64 "
                    "        -"
                    "        -"
                    "        -"
                    "    64 us"
                    "     64 B"
                    "     64 B"
                    "        -"
                    "\n";
const char TITLES[] = "               "
                      "    write"
                      "    write"
                      "    write"
                      "    write"
                      "     send"
                      " unsynced"
                      " transfer"
                      "\n"
                      "time     disk  "
                      "    per s"
                      "    bytes"
                      "      avg"
                      "    max ^"
                      "    queue"
                      "    bytes"
                      "    ratio"
                      "\n";

}  // namespace

// A machine's bad hour, one reading a second: everything that happens is said once, what stays every ten seconds.
TEST_F(TopLoopTest, PlainLinesTellTheWholeStory)
{
    Reading waiting = SampleOf();
    waiting.state = ReadingState::Unavailable;  // as a reader calls it that waits for its first interval
    waiting.words = WAITING;
    Reading again = ThreeDisks();
    again.attachedAgain = true;
    source.Add(UnavailableBecause("no region"), 11);  // 0 to 10
    source.Add(waiting);                              // 11
    source.Add(ThreeDisks());                         // 12
    source.Add(Stale(1000, 0));                       // 13
    source.Add(again);                                // 14
    source.Add(Stale(9000, 0));                       // 15
    source.Add(Stale(11000, 1));                      // 16
    source.Add(Stale(12000, 1));                      // 17
    for (DWORD second = 18; second <= 28; second++)
        source.Add(Stale((second + 12) * 1000, 2));
    source.Add(ThreeDisks());  // 29
    view.endAfter = 30;
    source.names = NamesFromTable();

    const TopEnd end = Run();
    EXPECT_EQ(view.said, std::string("14:05:00 NO VALUES: no region; trying again every second\n"
                                     "14:05:10 NO VALUES: no region; trying again every second\n"
                                     "14:05:11 no values yet; waiting for the first interval\n"
                                     "NODE1: Cluster Disk Resource Performance, collected every 10 s\n"
                                     "counter names from the installed table, since the system has none\n"
                                     "^ peaks cover the time since the lines before\n") +
                             TITLES + ROWS + "14:05:14 the disk agent was started again: attached to it anew\n" + ROWS +
                             "14:05:16 no new sample for 11.0 s, 1 poll missed; the agent hangs\n"
                             "14:05:18 NO NEW SAMPLE for 30.0 s; the agent hangs\n"
                             "14:05:28 NO NEW SAMPLE for 40.0 s; the agent hangs\n" +
                             ROWS);
    EXPECT_TRUE(end.everRead);
    EXPECT_EQ(source.reads, 30);
}

TEST_F(TopLoopTest, AnotherReasonIsSaidAtOnce)
{
    source.Add(UnavailableBecause("no region"), 2);
    source.Add(UnavailableBecause("no right"));
    view.endAfter = 3;
    Run();
    EXPECT_EQ(view.said, "14:05:00 NO VALUES: no region; trying again every second\n"
                         "14:05:02 NO VALUES: no right; trying again every second\n");
}

// The words of a sample that ages hold its age, and so change with each reading.
TEST_F(TopLoopTest, AnAgeThatGrowsIsNoOtherReason)
{
    Reading later = Stale(12000, 1);
    later.words = "it hangs still";
    source.Add(Stale(11000, 1));
    source.Add(later);
    view.endAfter = 2;
    Run();
    EXPECT_EQ(view.said, "14:05:00 no new sample for 11.0 s, 1 poll missed; the agent hangs\n");
}

// The first reading finds the region of an agent that is long gone.
TEST_F(TopLoopTest, OldValuesAreNeverPrintedAndCountAsNoReading)
{
    Reading old = ThreeDisks();
    old.ageMs = 3600000;
    source.Add(old);
    view.endAfter = 2;
    const TopEnd end = Run();
    EXPECT_EQ(view.said, "14:05:00 NO NEW SAMPLE for 3600 s\n");
    EXPECT_FALSE(end.everRead);
    EXPECT_EQ(end.words, "NO NEW SAMPLE for 3600 s");
}

TEST_F(TopLoopTest, WithoutAReadingTheEndSaysWhy)
{
    source.Add(UnavailableBecause("no region"));
    const TopEnd end = Run(2);
    EXPECT_FALSE(end.everRead);
    EXPECT_EQ(end.words, "no region");
}

TEST_F(TopLoopTest, SecondsEndItWithALastReading)
{
    source.Add(ThreeDisks());
    EXPECT_TRUE(Run(3).everRead);
    EXPECT_EQ(view.waits, (std::vector<DWORD>{ 1000, 1000, 1000 }));
    EXPECT_EQ(source.reads, 4);
}

// Readings that take 2.5 s each: the next comes at once, and none is made up for.
TEST_F(TopLoopTest, ASlowReadingDelaysTheNextOnly)
{
    class SlowSource : public ScriptedSource {
    public:
        Reading Next() override
        {
            view->ms += reads < 2 ? 2500 : 0;
            return ScriptedSource::Next();
        }
        ScriptedView* view = nullptr;
    } slow;
    slow.view = &view;
    slow.Add(ThreeDisks());
    view.endAfter = 4;
    TopLoop({}, "NODE1", &slow, &view);
    EXPECT_EQ(view.waits, (std::vector<DWORD>{ 0, 0, 1000, 1000 }));
}

// The end is not put off by a reading that took 1.5 s and moved the next ones.
TEST_F(TopLoopTest, SecondsHoldBehindASlowReadingToo)
{
    class SlowSource : public ScriptedSource {
    public:
        Reading Next() override
        {
            view->ms += reads == 0 ? 1500 : 0;
            return ScriptedSource::Next();
        }
        ScriptedView* view = nullptr;
    } slow;
    slow.view = &view;
    slow.Add(ThreeDisks());
    TopOptions options;
    options.seconds = 2;
    TopLoop(options, "NODE1", &slow, &view);
    EXPECT_EQ(view.waits, (std::vector<DWORD>{ 0, 500 }));
    EXPECT_EQ(slow.reads, 3);
}

// A console that is being made smaller may have nothing left for a moment.
TEST_F(TopLoopTest, AScreenWithoutALetterIsNoTrouble)
{
    view.sizes = { { 0, 0 }, { 80, 24 } };
    source.Add(AllDisks());
    view.endAfter = 2;
    Run();
    ASSERT_EQ(view.frames.size(), 2u);
    EXPECT_EQ(view.frames[0].size(), 1u);
    EXPECT_EQ(view.frames[1].size(), 24u);
}

TEST_F(TopLoopTest, EachFrameHasTheSizeOfItsMoment)
{
    view.sizes = { { 80, 24 }, { 200, 50 }, { 40, 6 } };
    source.Add(AllDisks());
    view.endAfter = 3;
    Run();
    ASSERT_EQ(view.frames.size(), 3u);
    EXPECT_EQ(view.said, "");
    EXPECT_EQ(view.frames[0].size(), 24u);
    EXPECT_EQ(view.frames[0][6].text.size(), 76u);  // 7 columns
    EXPECT_EQ(view.frames[1].size(), 50u);
    EXPECT_EQ(view.frames[1][6].text.size(), 176u);  // all 17
    EXPECT_EQ(view.frames[2].size(), 6u);
    EXPECT_EQ(view.frames[2][3].text.size(), 36u);  // 3 columns
}

/* First disk on a frame of AllDisks, of at least 12 lines. */
static std::string FirstDisk(const std::vector<ScreenLine>& frame)
{
    return frame[7].text.substr(0, frame[7].text.find(' '));
}

// 24 lines hold 15 of the 64 disks. A step, a page, both ends, and nothing beyond them.
TEST_F(TopLoopTest, KeysScrollTheDisks)
{
    view.sizes = { { 80, 24 } };
    view.keyMs = 1;
    view.keys = { TopWish::Down,   TopWish::Down, TopWish::Up,   TopWish::PageDown, TopWish::PageUp, TopWish::PageUp,
                  TopWish::PageUp, TopWish::Up,   TopWish::Last, TopWish::Down,     TopWish::Up,     TopWish::First };
    source.Add(AllDisks());
    view.endAfter = 13;
    Run();
    std::vector<std::string> first;
    for (const auto& frame : view.frames) {
        EXPECT_EQ(frame[6].text.substr(0, 6), "_Total");
        first.push_back(FirstDisk(frame));
    }
    EXPECT_EQ(first, (std::vector<std::string>{ "NMP1", "NMP2", "NMP3", "NMP2", "NMP17", "NMP2", "NMP1", "NMP1", "NMP1",
                                                "NMP50", "NMP50", "NMP49", "NMP1" }));
    EXPECT_EQ(source.reads, 1);
}

// A key held down: 100 ms each, for 3 s. The readings come when they are due, and the place stays over them.
TEST_F(TopLoopTest, KeysPutOffNoReading)
{
    view.sizes = { { 80, 24 } };
    view.keys.assign(30, TopWish::Down);
    source.Add(AllDisks());
    Run(4);
    EXPECT_EQ(source.reads, 5);
    EXPECT_EQ(view.ms, 9000u);
    EXPECT_EQ(FirstDisk(view.frames.back()), "NMP31");
}

// Five lines hold the total and the count alone: a page is a step there.
TEST_F(TopLoopTest, APageOfAFlatWindowIsOneDisk)
{
    view.sizes = { { 80, 5 } };
    view.keyMs = 1;
    view.keys = { TopWish::PageDown, TopWish::PageDown, TopWish::PageUp };
    source.Add(AllDisks());
    view.endAfter = 4;
    Run();
    ASSERT_EQ(view.frames.size(), 4u);
    EXPECT_EQ(view.frames[0][4].text, "64 more disks");
    EXPECT_EQ(view.frames[1][4].text, "1 disk above, 63 below");
    EXPECT_EQ(view.frames[2][4].text, "2 disks above, 62 below");
    EXPECT_EQ(view.frames[3][4].text, "1 disk above, 63 below");
}

TEST_F(TopLoopTest, KeysMeanNothingToPlainLines)
{
    view.keys = { TopWish::Down, TopWish::Last };
    source.Add(ThreeDisks());
    EXPECT_TRUE(Run(2).everRead);
    EXPECT_EQ(source.reads, 3);
    EXPECT_TRUE(view.frames.empty());
}
