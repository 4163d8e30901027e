/* The script language: each statement, each refusal with its line, and that a script plays the same for the same seed.
 */
#include <gmock/gmock.h>
#include <string.h>

#include "files.h"
#include "scenario.h"

using testing::ElementsAre;
using testing::HasSubstr;

/* The steps of a script that must be good; at most so many. */
static std::vector<Step> Play(const std::string& text, size_t most = 100, unsigned long long seed = 1)
{
    Scenario          scenario;
    unsigned          line = 0;
    std::string       reason;
    std::vector<Step> steps;

    EXPECT_TRUE(ParseScenario(text, scenario, line, reason)) << line << ": " << reason;
    ScenarioSource source(scenario, seed);
    Step           step;
    while (steps.size() < most && source.Next(step)) {
        steps.push_back(step);
    }
    return steps;
}

static const VELCOR_ENTRY& Filter(const Step& step, unsigned disk)
{
    return step.feed.filter.entry[disk - 1];
}

static const VELCOR_ENTRY& Driver(const Step& step, unsigned disk)
{
    return step.feed.driver.entry[disk - 1];
}

/* Disks whose state is 1, as a list. */
static std::vector<unsigned> DisksOn(const Step& step)
{
    std::vector<unsigned> disks;
    for (const FedDisk& disk : step.disks) {
        disks.push_back(disk.disk);
    }
    return disks;
}

TEST(Scenario, ADiskThatIsOnDoesWhatItsSettingsSay)
{
    const auto steps = Play("disk 3 on writes 10 bytes 1K latency 250 longest 900 request 77\nstep 2\n");
    ASSERT_EQ(2u, steps.size());
    EXPECT_EQ(1u, Driver(steps[0], 3).state);
    EXPECT_EQ(10240u, Filter(steps[0], 3).write_bytes);
    EXPECT_EQ(20480u, Filter(steps[1], 3).write_bytes);
    EXPECT_EQ(20u, Filter(steps[1], 3).writes);
    EXPECT_EQ(5000u, Filter(steps[1], 3).write_us);
    EXPECT_EQ(900u, Filter(steps[1], 3).write_us_max);
    EXPECT_EQ(77u, Filter(steps[1], 3).request_queue);
}

TEST(Scenario, WhatIsNotSetHasItsDefault)
{
    const auto steps = Play("disk 1 on\nstep\n");
    EXPECT_EQ(819200u, Filter(steps[0], 1).write_bytes);  // 100 writes of 8192 bytes
    EXPECT_EQ(40000u, Filter(steps[0], 1).write_us);      // of 400 us
    EXPECT_EQ(400u, Filter(steps[0], 1).write_us_max);    // no longest: the mean
    EXPECT_EQ(0u, Driver(steps[0], 1).mode);
    EXPECT_EQ(0u, Driver(steps[0], 2).state);
}

TEST(Scenario, ADiskWithoutWritesHasNoLongestTime)
{
    EXPECT_EQ(0u, Filter(Play("disk 1 on writes 0 longest 5000\nstep\n")[0], 1).write_us_max);
}

TEST(Scenario, ListsNameSingleDisksRangesAndAll)
{
    EXPECT_THAT(DisksOn(Play("disk 2,5-7,64 on\nstep\n")[0]), ElementsAre(2, 5, 6, 7, 64));
    EXPECT_EQ(64u, Play("disk all on\nstep\n")[0].disks.size());
}

TEST(Scenario, DisksComeAndGoAndStandStillMeanwhile)
{
    const auto steps = Play("disk 1 on writes 1 bytes 10\nstep\ndisk 1 off\nstep 3\ndisk 1 on\nstep\n");
    ASSERT_EQ(5u, steps.size());
    EXPECT_EQ(0u, Driver(steps[3], 1).state);
    EXPECT_EQ(10u, Filter(steps[3], 1).write_bytes);
    EXPECT_EQ(1u, Driver(steps[4], 1).state);
    EXPECT_EQ(20u, Filter(steps[4], 1).write_bytes);
}

TEST(Scenario, AnyStateCanBeSet)
{
    const auto steps = Play("disk 1 state 3\nstep\n");
    EXPECT_EQ(3u, Driver(steps[0], 1).state);
    EXPECT_TRUE(steps[0].disks.empty());  // not initialised
}

TEST(Scenario, ModesByWordAndByNumber)
{
    const auto steps = Play("disk 1 on sync\ndisk 2 on mode 1\ndisk 3 on async\ndisk 4 on mode 0x7\nstep\n");
    EXPECT_EQ(1u, Driver(steps[0], 1).mode);
    EXPECT_EQ(1u, Driver(steps[0], 2).mode);
    EXPECT_EQ(0u, Driver(steps[0], 3).mode);
    EXPECT_EQ(7u, Driver(steps[0], 4).mode);
    EXPECT_EQ(819200u, Driver(steps[0], 1).write_bytes);
    EXPECT_EQ(819200u, Filter(steps[0], 3).write_bytes);
}

TEST(Scenario, LinkRatioAndTransferShapeTheTransfer)
{
    const auto steps = Play("disk 1 on writes 1 bytes 1000 link 600 ratio 50 transfer 20\nstep\n");
    EXPECT_EQ(600u, Driver(steps[0], 1).handed_bytes);
    EXPECT_EQ(300u, Driver(steps[0], 1).transfer_bytes);
    EXPECT_EQ(400u, Filter(steps[0], 1).send_queue);
    EXPECT_EQ(22u, Driver(steps[0], 1).transfer_us);  // 20 + 300 / 128
}

TEST(Scenario, AQueueIsPutThereOnce)
{
    const auto steps = Play("disk 1 on writes 0 link 100 queue 1000\nstep 2\n");
    EXPECT_EQ(900u, Filter(steps[0], 1).send_queue);
    EXPECT_EQ(800u, Filter(steps[1], 1).send_queue);
}

TEST(Scenario, ASumIsPutThereOnceAndWrapsAt64Bits)
{
    const auto steps = Play("disk 1 on writes 1 bytes 10 sum 0xFFFFFFFFFFFFFFFB\nstep 2\n");
    EXPECT_EQ(5u, Filter(steps[0], 1).write_bytes);  // 2^64 - 5 + 10
    EXPECT_EQ(15u, Filter(steps[1], 1).write_bytes);
}

TEST(Scenario, TheDriversStatusWordStaysUntilItIsSetBack)
{
    const auto steps = Play("driver status 0xE9F80010\nstep 2\ndriver status 0\nstep\n");
    EXPECT_EQ(0xE9F80010u, steps[0].feed.driver_status);
    EXPECT_EQ(0xE9F80010u, steps[1].feed.driver_status);
    EXPECT_EQ(0u, steps[2].feed.driver_status);
}

TEST(Scenario, TheDriverRefusesAndTakesRequestsAgain)
{
    const auto steps = Play("driver refuse on\nstep\ndriver refuse off\nstep\n");
    EXPECT_NE(0u, steps[0].feed.refuse);
    EXPECT_EQ(0u, steps[1].feed.refuse);
}

TEST(Scenario, TheFiltersErrorNumber)
{
    const auto steps = Play("filter error 1117\nstep\nfilter error 0\nstep\n");
    EXPECT_EQ(1117u, steps[0].feed.filter_error);
    EXPECT_EQ(0u, steps[1].feed.filter_error);
}

TEST(Scenario, RepeatsNest)
{
    EXPECT_EQ(14u, Play("repeat 2\n step\n repeat 3\n  step 2\n end\nend\n").size());  // 2 * (1 + 3 * 2)
}

TEST(Scenario, ARepeatSetsAgainWhatItSet)
{
    const auto steps =
        Play("disk 1 on writes 1 bytes 1\nrepeat 2\n disk 1 bytes 5\n step\n disk 1 bytes 7\n step\nend\n");
    ASSERT_EQ(4u, steps.size());
    EXPECT_EQ(24u, Filter(steps[3], 1).write_bytes);  // 5 + 7 + 5 + 7
}

TEST(Scenario, ForeverDoesNotEnd)
{
    EXPECT_EQ(5000u, Play("repeat forever\n step 3\nend\n", 5000).size());
}

TEST(Scenario, SaysItsWordsWithTheStepBehindThem)
{
    const auto steps = Play("step\nsay two  words # not this\nsay and more\nstep\n");
    EXPECT_TRUE(steps[0].words.empty());
    EXPECT_THAT(steps[1].words, ElementsAre("two words", "and more"));
}

TEST(Scenario, CommentsBlanksTabsAndBothLineEndsDoNotMatter)
{
    EXPECT_EQ(2u, Play("\r\n# all\r\n\t disk\t1   on# now\r\n  step 2").size());
}

TEST(Scenario, NumbersScale)
{
    const auto steps =
        Play("disk 1 on writes 1 bytes 2K\ndisk 2 on writes 1 bytes 3M\ndisk 3 on writes 1 bytes 1G\nstep\n");
    EXPECT_EQ(2048u, Filter(steps[0], 1).write_bytes);
    EXPECT_EQ(3145728u, Filter(steps[0], 2).write_bytes);
    EXPECT_EQ(1073741824u, Filter(steps[0], 3).write_bytes);
}

TEST(Scenario, RandomNumbersStayInTheirRangeAndVary)
{
    const auto steps = Play("disk 1 on writes 1 bytes 10~13\nstep 400\n", 400);
    unsigned   seen[14] = {};
    for (size_t i = 1; i < steps.size(); i++) {
        const unsigned long long bytes = Filter(steps[i], 1).write_bytes - Filter(steps[i - 1], 1).write_bytes;
        ASSERT_GE(bytes, 10u);
        ASSERT_LE(bytes, 13u);
        seen[bytes]++;
    }
    for (unsigned bytes = 10; bytes <= 13; bytes++) {
        EXPECT_GT(seen[bytes], 0u) << bytes;
    }
}

static const char RANDOM[] = "disk all on writes 1~1000 bytes 1~64K latency 1~9000\nstep 20\n";

static bool Same(const std::vector<Step>& a, const std::vector<Step>& b)
{
    for (size_t i = 0; i < a.size(); i++) {
        if (memcmp(&a[i].feed, &b[i].feed, sizeof(VELCOR_FEED)) != 0) {
            return false;
        }
    }
    return a.size() == b.size();
}

TEST(Scenario, TheSameSeedPlaysTheSame)
{
    EXPECT_TRUE(Same(Play(RANDOM, 100, 7), Play(RANDOM, 100, 7)));
    EXPECT_FALSE(Same(Play(RANDOM, 100, 7), Play(RANDOM, 100, 8)));
}

TEST(Scenario, ASeedOfItsOwnOverridesTheCallers)
{
    const std::string text = std::string("seed 5\n") + RANDOM;
    EXPECT_TRUE(Same(Play(text, 100, 1), Play(text, 100, 2)));
    EXPECT_TRUE(Same(Play(text, 100, 1), Play(RANDOM, 100, 5)));
}

TEST(Scenario, JournalRowsCarryTheDisksSums)
{
    const auto steps = Play("disk 2 on writes 3 bytes 100 latency 7\nstep\ndisk 2 sync\nstep\n");
    ASSERT_EQ(1u, steps[1].disks.size());
    EXPECT_EQ(2u, steps[1].disks[0].disk);
    EXPECT_EQ("-", steps[1].disks[0].host);
    EXPECT_EQ(600u, steps[1].disks[0].writeBytes);
    EXPECT_EQ(6u, steps[1].disks[0].writes);
    EXPECT_EQ(42u, steps[1].disks[0].writeUs);
    EXPECT_EQ(300u, Filter(steps[1], 2).write_bytes);
    EXPECT_EQ(300u, Driver(steps[1], 2).write_bytes);
}

/* ---- Refusals ---- */

struct BadScript {
    const char* text;
    unsigned    line;
    const char* reason;
};

/* The case's name in a list of tests: its text in one line. */
static void PrintTo(const BadScript& bad, std::ostream* out)
{
    for (const char* c = bad.text; *c != '\0'; c++) {
        *out << (*c == '\n' ? '|' : *c);
    }
}

class RefusedScript : public testing::TestWithParam<BadScript> {};

TEST_P(RefusedScript, NamesLineAndReason)
{
    Scenario    scenario(1);
    unsigned    line = 0;
    std::string reason;
    EXPECT_FALSE(ParseScenario(GetParam().text, scenario, line, reason));
    EXPECT_EQ(GetParam().line, line);
    EXPECT_EQ(GetParam().reason, reason);
    EXPECT_EQ(1u, scenario.size());
}

INSTANTIATE_TEST_SUITE_P(
    Scenario, RefusedScript,
    testing::Values(
        BadScript{ "step\nstop\n", 2, "'stop' is no statement" }, BadScript{ "", 0, "no step in the whole script" },
        BadScript{ "disk 1 on\n# end\n", 2, "no step in the whole script" },
        BadScript{ "disk\n", 1, "which disks? A list is missing behind 'disk'" },
        BadScript{ "disk 1\n", 1, "no setting for the disks" },
        BadScript{ "disk 0 on\n", 1, "'0' is not within the disks 1 to 64" },
        BadScript{ "disk 65 on\n", 1, "'65' is not within the disks 1 to 64" },
        BadScript{ "disk 1,3-70 on\n", 1, "'3-70' is not within the disks 1 to 64" },
        BadScript{ "disk 9-3 on\n", 1, "'9-3' is not within the disks 1 to 64" },
        BadScript{ "disk x on\n", 1, "'x' is no list of disks" },
        BadScript{ "disk 1, on\n", 1, "'1,' is no list of disks" },
        BadScript{ "disk 1-2-3 on\n", 1, "'1-2-3' is no list of disks" },
        BadScript{ "disk 1 up\n", 1, "'up' is no setting of a disk" },
        BadScript{ "disk 1 writes\n", 1, "a number is missing behind 'writes'" },
        BadScript{ "disk 1 writes ten\n", 1, "'ten' is no number" },
        BadScript{ "disk 1 bytes 1T\n", 1, "'1T' is no number" },
        BadScript{ "disk 1 bytes 0x\n", 1, "'0x' is no number" },
        BadScript{ "disk 1 sum 0x1FFFFFFFFFFFFFFFF\n", 1, "'0x1FFFFFFFFFFFFFFFF' is no number" },
        BadScript{ "disk 1 sum 18446744073709551615K\n", 1, "'18446744073709551615K' is no number" },
        BadScript{ "disk 1 writes 10000001\n", 1, "writes 10000001 is not in 0 to 10000000" },
        BadScript{ "disk 1 ratio 0\n", 1, "ratio 0 is not in 1 to 1000" },
        BadScript{ "disk 1 writes 9~3\n", 1, "'9~3' runs backwards" },
        BadScript{ "disk 1 writes 9~\n", 1, "'' is no number" },
        BadScript{ "disk 1 writes ~9\n", 1, "'' is no number" },
        BadScript{ "disk 1 ratio 5~2000\n", 1, "ratio 2000 is not in 1 to 1000" },
        BadScript{ "driver\n", 1, "'driver' takes status or refuse" },
        BadScript{ "driver status\n", 1, "a number is missing behind 'status'" },
        BadScript{ "driver status 0x100000000\n", 1, "status 0x100000000 is not in 0 to 4294967295" },
        BadScript{ "driver refuse\n", 1, "'driver refuse' takes on or off" },
        BadScript{ "driver refuse maybe\n", 1, "'driver refuse' takes on or off" },
        BadScript{ "driver refuse on now\n", 1, "'now' is one word too many" },
        BadScript{ "filter 5\n", 1, "'filter' takes error" },
        BadScript{ "filter error\n", 1, "a number is missing behind 'error'" },
        BadScript{ "step 0\n", 1, "step 0 is not in 1 to 1000000" },
        BadScript{ "step 1 2\n", 1, "'2' is one word too many" }, BadScript{ "step 1~2\n", 1, "'1~2' is no number" },
        BadScript{ "seed\n", 1, "a number is missing behind 'seed'" },
        BadScript{ "repeat\n", 1, "a number is missing behind 'repeat'" },
        BadScript{ "repeat 0\n", 1, "repeat 0 is not in 1 to 1000000" },
        BadScript{ "repeat forever 2\n", 1, "'2' is one word too many" },
        BadScript{ "step\nrepeat 2\nstep\n", 2, "this repeat has no end" },
        BadScript{ "step\nend\n", 2, "'end' without a repeat" },
        BadScript{ "step\nrepeat 2\ndisk 1 on\nend\n", 4, "no step in the repeat of line 2" },
        BadScript{ "repeat 1\nstep\nend 1\n", 3, "'1' is one word too many" },
        BadScript{ "repeat 1\nrepeat 1\nrepeat 1\nrepeat 1\nrepeat 1\nrepeat 1\nrepeat 1\nrepeat 1\nrepeat 1\n", 9,
                   "repeats are nested more than 8 deep" }));

/* ---- What is shipped ---- */

class Shipped : public testing::TestWithParam<const char*> {};

TEST_P(Shipped, PlaysAMinute)
{
    std::string text;
    ASSERT_EQ(0u, ReadWholeFile(std::string(SCENARIO_FOLDER "/") + GetParam(), text));
    EXPECT_GE(Play(text, 60).size(), 60u);
}

INSTANTIATE_TEST_SUITE_P(Scenario, Shipped,
                         testing::Values("three-disks.scn", "sixty-four-disks.scn", "failing-driver.scn"));

TEST(Scenario, TheHelpsOwnExampleIsAGoodScript)
{
    const std::string help = ScenarioHelp();
    const size_t      start = help.find("Example:\n");
    ASSERT_NE(std::string::npos, start);
    EXPECT_EQ(82u, Play(help.substr(start + strlen("Example:\n"))).size());  // 10 * (5 + 3) + 2
}

TEST(Scenario, TheHelpNamesEveryStatementAndSetting)
{
    const std::string help = ScenarioHelp();
    for (const char* word :
         { "disk LIST", "driver status", "driver refuse", "filter error", "step",   "repeat", "forever", "end",
           "seed",      "say",           "state",         "mode",         "writes", "bytes",  "latency", "longest",
           "request",   "link",          "ratio",         "transfer",     "queue",  "sum",    "on",      "off",
           "async",     "sync" }) {
        EXPECT_THAT(help, HasSubstr(std::string(" ") + word));
    }
}
