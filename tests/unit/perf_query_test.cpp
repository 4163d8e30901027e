/*
 * dkpfctl query: how long it waits, and all that it prints.
 */
#include <gmock/gmock.h>

#include "diskperf_counter.h"
#include "query_text.h"
#include "query_wait.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/* Gives readings by the clock: from a time on the next of a list. */
class ScriptedSource : public IntervalSource {
public:
    explicit ScriptedSource(const DWORD& clock) : m_clock(clock)
    {
    }
    void At(DWORD from, ReadingState state, bool waiting, const char* words, DWORD ageMs = 100)
    {
        Reading reading;
        reading.state = state;
        reading.words = words;
        reading.ageMs = ageMs;
        reading.ageLimitMs = 7000;
        reading.collectIntervalS = 1;
        if (state != ReadingState::Unavailable)
            reading.rows.resize(1);
        m_script.push_back({ from, reading, waiting });
    }
    Reading Next() override
    {
        nexts++;
        Reading reading;
        for (const Step& step : m_script) {
            if (m_clock >= step.from) {
                reading = step.reading;
                m_waiting = step.waiting;
            }
        }
        return reading;
    }
    const CounterNames& Names() const override
    {
        return m_names;
    }
    void Look() override
    {
        looks++;
    }
    bool Waiting() const override
    {
        return m_waiting;
    }

    int nexts = 0;
    int looks = 0;

private:
    struct Step {
        DWORD   from;
        Reading reading;
        bool    waiting;
    };
    const DWORD&      m_clock;
    std::vector<Step> m_script;
    bool              m_waiting = false;
    CounterNames      m_names;
};

class QueryWaitTest : public testing::Test {
protected:
    Reading Read(DWORD intervalS)
    {
        WaitPorts ports;
        ports.tick = [this] { return clock; };
        ports.wait = [this](DWORD ms) { clock += ms; };
        ports.say = [this](const std::string& words) { said.push_back(words); };
        return ReadInterval(source, intervalS, ports);
    }

    DWORD                    clock = 0xFFFFF000;  // wraps on the way
    ScriptedSource           source{ clock };
    std::vector<std::string> said;
};

QueryFacts Facts()
{
    QueryFacts facts;
    facts.computer = "SRV1";
    facts.utcOffsetMinutes = 540;
    facts.nameTable = "C:\\home\\etc\\tnwdiskperf.ini";
    facts.names.object = "Cluster Disk Resource Performance";
    facts.names.objectIndex = 2000;
    facts.names.objectHelp = "All of it.";
    facts.names.counters.resize(17);
    facts.names.counters[0] = { 2002, "Transfer Ratio %", "Bytes sent per 100 bytes.", 0 };
    facts.names.counters[11] = { 2024, "Write \"Bytes\"", "", -6 };
    facts.counters = { 0, 5, 11 };
    Reading& reading = facts.reading;
    reading.state = ReadingState::Fresh;
    reading.sampleTime = SYSTEMTIME{ 2026, 3, 6, 7, 14, 5, 9, 42 };
    reading.ageMs = 450;
    reading.coveredMs = 10016;
    reading.peakMs = 10400;
    reading.collectIntervalS = 10;
    ReadingRow total, disk;
    total.name = "_Total";
    total.cells[0].value = 62;
    total.cells[5].value = 3;
    total.cells[11].kind = CellKind::ComeOrGone;
    disk.disk = 7;
    disk.name = "NMP7";
    disk.cells[0].kind = CellKind::Idle;
    disk.cells[5].value = 0;
    disk.cells[11].value = 18446744073709551615ull;
    reading.rows = { total, disk };
    return facts;
}

}  // namespace

TEST_F(QueryWaitTest, WaitsForTheFirstNewSample)
{
    clock = 0;
    source.At(0, ReadingState::Unavailable, true, "waiting for the first interval");
    source.At(900, ReadingState::Fresh, false, "");
    EXPECT_EQ(Read(0).state, ReadingState::Fresh);
    EXPECT_EQ(clock, 1000u);  // in steps of 200 ms
    EXPECT_THAT(said, IsEmpty());
}

TEST_F(QueryWaitTest, SaysOnceWhatItWaitsForBehindTwoSeconds)
{
    clock = 0;
    source.At(0, ReadingState::Unavailable, true, "waiting for the first interval");
    source.At(5000, ReadingState::Fresh, false, "");
    EXPECT_EQ(Read(0).state, ReadingState::Fresh);
    EXPECT_THAT(said, ElementsAre("waiting for the next sample; one is taken every 1 s"));
}

TEST_F(QueryWaitTest, AReasonThatNoWaitingCuresEndsItAtOnce)
{
    source.At(0, ReadingState::Unavailable, false, "there is no shared region");
    const Reading reading = Read(5);
    EXPECT_EQ(reading.words, "there is no shared region");
    EXPECT_EQ(source.nexts, 1);
    EXPECT_EQ(clock, 0xFFFFF000u);
}

TEST_F(QueryWaitTest, ADeadSampleIsNotWaitedFor)
{
    source.At(0, ReadingState::Unavailable, true, "the last sample is old", 7100);
    const Reading reading = Read(0);
    EXPECT_EQ(reading.state, ReadingState::Unavailable);
    EXPECT_EQ(
        reading.words,
        "the last sample is 7.1 s old, over the limit of 7.0 s: the disk agent does not collect (dkpfctl status)");
    EXPECT_EQ(source.nexts, 1);
}

// The agent ended in the interval that was waited for: its last sample is new to the reader, and dead all the same.
TEST_F(QueryWaitTest, ADeadSampleDoesNotComeOutThoughItIsNew)
{
    clock = 0;
    source.At(0, ReadingState::Unavailable, true, "waiting for the first interval");
    source.At(3000, ReadingState::Fresh, false, "", 7001);
    const Reading reading = Read(3);
    EXPECT_EQ(reading.state, ReadingState::Unavailable);
    EXPECT_THAT(reading.words, HasSubstr("the last sample is 7.0 s old, over the limit of 7.0 s"));
    EXPECT_THAT(reading.rows, IsEmpty());
    EXPECT_EQ(clock, 3000u);
}

TEST_F(QueryWaitTest, ASampleAsOldAsItMayBeIsShown)
{
    clock = 0;
    source.At(0, ReadingState::Unavailable, true, "waiting for the first interval");
    source.At(3000, ReadingState::Fresh, false, "", 7000);
    EXPECT_EQ(Read(3).state, ReadingState::Fresh);
}

TEST_F(QueryWaitTest, OldRowsNeverComeOutAndTheWaitHasABound)
{
    source.At(0, ReadingState::Stale, false, "no new sample yet");
    const Reading reading = Read(0);
    EXPECT_EQ(reading.state, ReadingState::Unavailable);
    EXPECT_EQ(reading.words, "no new sample came in 7.0 s");
    EXPECT_THAT(reading.rows, IsEmpty());
    EXPECT_EQ(clock - 0xFFFFF000u, 7200u);
}

TEST_F(QueryWaitTest, AnIntervalIsOneReadingBehindItAndLooksMeanwhile)
{
    clock = 0;
    source.At(0, ReadingState::Unavailable, true, "waiting for the first interval");
    source.At(1000, ReadingState::Fresh, false, "");
    EXPECT_EQ(Read(3).state, ReadingState::Fresh);
    EXPECT_EQ(clock, 3000u);
    EXPECT_EQ(source.nexts, 2);
    EXPECT_EQ(source.looks, 15);
    EXPECT_THAT(said, ElementsAre("reading over 3 s"));
}

TEST(QueryText, Table)
{
    EXPECT_EQ(QueryTable(Facts()),
              "Cluster Disk Resource Performance of SRV1\n"
              "sample of 2026/03/07 14:05:09.042, 0.4 s old; interval 10.0 s, peaks over 10.4 s\n"
              "names from C:\\home\\etc\\tnwdiskperf.ini, since the system has none\n"
              "\n"
              "                  _Total                  NMP7\n"
              "Transfer Ratio %      62                  idle\n"
              "counter 5              3                     0\n"
              "Write \"Bytes\"          -  18446744073709551615\n"
              "\n"
              "-: no value, since the disk (for the total: a disk) came or went in the interval\n");
}

TEST(QueryText, TheTableOfManyDisksStaysInItsWidth)
{
    QueryFacts facts = Facts();
    facts.names.fromSystem = true;
    facts.reading.attachedAgain = true;
    facts.counters = { 0 };
    facts.reading.rows.resize(1);
    for (int disk = 1; disk <= 64; disk++) {
        ReadingRow row;
        row.disk = disk;
        row.name = "NMP" + std::to_string(disk);
        row.cells[0].value = 100;
        facts.reading.rows.push_back(row);
    }
    const std::string text = QueryTable(facts);
    EXPECT_THAT(text, HasSubstr("names from the system's tables\nthe disk agent was started again: first interval "
                                "after it\n\n"));
    size_t lines = 0, values = 0;
    for (size_t at = 0; at < text.size(); lines++) {
        const size_t end = text.find('\n', at);
        EXPECT_LE(end - at, 100u);
        at = end + 1;
    }
    for (size_t at = text.find("  100"); at != std::string::npos; at = text.find("  100", at + 1))
        values++;
    EXPECT_EQ(values, 64u);
    // 16 for the title, 8 for the total, 6 for a disk up to 9, 7 for one from 10 on: 12 disks beside the total, then 12
    // in each group, 4 in the last. A group is an empty line, the names and one counter.
    EXPECT_EQ(lines, 4u + 6 * 3);
    EXPECT_EQ(text.find("no value"), std::string::npos);
}

// The line below the table explains the "-" alone.
TEST(QueryText, IdleNeedsNoExplanation)
{
    QueryFacts facts = Facts();
    facts.counters = { 0 };
    const std::string text = QueryTable(facts);
    EXPECT_THAT(text, HasSubstr("Transfer Ratio %      62  idle\n"));
    EXPECT_EQ(text.find("no value"), std::string::npos);
}

// 16 letters of the title and 7 for each disk: the 12th ends in column 100, the 13th begins a group of its own.
TEST(QueryText, ALineMayBeExactlyAsWideAsTheTable)
{
    QueryFacts facts = Facts();
    facts.counters = { 0 };
    facts.reading.rows.clear();
    for (int disk = 10; disk <= 22; disk++) {
        ReadingRow row;
        row.disk = disk;
        row.name = "NMP" + std::to_string(disk);
        facts.reading.rows.push_back(row);
    }
    const std::string text = QueryTable(facts);
    EXPECT_THAT(text, HasSubstr("  NMP21\nTransfer Ratio %"));
    EXPECT_THAT(text, HasSubstr("\n\n                  NMP22\nTransfer Ratio %"));
}

TEST(QueryText, WhereTheNamesComeFrom)
{
    QueryFacts facts = Facts();
    EXPECT_EQ(NameSourceText(facts), "names from C:\\home\\etc\\tnwdiskperf.ini, since the system has none");
    facts.names.fromSystem = true;
    EXPECT_EQ(NameSourceText(facts), "names from the system's tables");
}

TEST(QueryText, Csv)
{
    EXPECT_EQ(QueryCsv(Facts()),
              "\"time\",\"computer\",\"age ms\",\"covered ms\",\"peaks ms\",\"disk\",\"name\",\"Transfer Ratio "
              "%\",\"counter 5\",\"Write \"\"Bytes\"\"\"\n"
              "\"2026/03/07 14:05:09.042\",\"SRV1\",450,10016,10400,0,\"_Total\",62,3,\n"
              "\"2026/03/07 14:05:09.042\",\"SRV1\",450,10016,10400,7,\"NMP7\",,0,18446744073709551615\n");
}

TEST(QueryText, Json)
{
    QueryFacts facts = Facts();
    facts.counters = { 0, 11 };
    EXPECT_EQ(QueryJson(facts), R"({
  "format": 1,
  "computer": "SRV1",
  "time": "2026-03-07T14:05:09.042+09:00",
  "age_ms": 450,
  "covered_ms": 10016,
  "peaks_ms": 10400,
  "collect_interval_s": 10,
  "attached_again": false,
  "names_from": "installed table",
  "object": "Cluster Disk Resource Performance",
  "object_index": 2000,
  "object_help": "All of it.",
  "counters": [
    {
      "number": 0,
      "name": "Transfer Ratio %",
      "index": 2002,
      "scale": 0,
      "help": "Bytes sent per 100 bytes."
    },
    {
      "number": 11,
      "name": "Write \"Bytes\"",
      "index": 2024,
      "scale": -6,
      "help": ""
    }
  ],
  "disks": [
    {
      "disk": 0,
      "name": "_Total",
      "counters": [
        {
          "number": 0,
          "name": "Transfer Ratio %",
          "value": 62,
          "state": "value"
        },
        {
          "number": 11,
          "name": "Write \"Bytes\"",
          "value": null,
          "state": "disk came or went"
        }
      ]
    },
    {
      "disk": 7,
      "name": "NMP7",
      "counters": [
        {
          "number": 0,
          "name": "Transfer Ratio %",
          "value": null,
          "state": "idle"
        },
        {
          "number": 11,
          "name": "Write \"Bytes\"",
          "value": 18446744073709551615,
          "state": "value"
        }
      ]
    }
  ]
}
)");
}

// A table that was edited by hand may hold anything; whoever reads the output still gets JSON.
TEST(QueryText, JsonOfATextThatIsNoUtf8)
{
    QueryFacts facts = Facts();
    facts.names.object = "Pl\xE4tte";
    EXPECT_THAT(QueryJson(facts), HasSubstr("\"object\": \"Pl\xEF\xBF\xBDtte\","));
}

TEST(QueryText, SystemNamesAndARestartInTheJson)
{
    QueryFacts facts = Facts();
    facts.names.fromSystem = true;
    facts.reading.attachedAgain = true;
    EXPECT_THAT(QueryJson(facts), HasSubstr("\"attached_again\": true,\n  \"names_from\": \"system\","));
}

TEST(QueryText, ATableWithoutNamesHasAHeadAllTheSame)
{
    QueryFacts facts = Facts();
    facts.names.object.clear();
    EXPECT_EQ(QueryTable(facts).substr(0, 27), "performance object of SRV1\n");
}

TEST(QueryText, CountersByNameInAnyCaseOrByNumber)
{
    CounterNames names = Facts().names;
    size_t       counter = 99;
    names.counters[15].name = "Avg. us/Write Z";
    EXPECT_TRUE(FindCounter(names, "avg. US/wRITE z", &counter));
    EXPECT_EQ(counter, 15u);
    EXPECT_TRUE(FindCounter(names, "transfer ratio %", &counter));
    EXPECT_EQ(counter, 0u);
    EXPECT_TRUE(FindCounter(names, "16", &counter));
    EXPECT_EQ(counter, 16u);
    EXPECT_TRUE(FindCounter(names, "Counter 5", &counter));
    EXPECT_EQ(counter, 5u);
    for (const char* wrong : { "", "17", "-1", "1x", "Transfer Ratio", "99999999999999999999999" })
        EXPECT_FALSE(FindCounter(names, wrong, &counter)) << wrong;
    EXPECT_THAT(ValidCounters(names), HasSubstr("   0  Transfer Ratio %\n   1  counter 1\n"));
}

TEST(QueryText, DisksByNumberTotalOrAll)
{
    for (const char* right : { "total", "all", "1", "64" })
        EXPECT_TRUE(IsDiskChoice(right)) << right;
    for (const char* wrong : { "", "0", "65", "7a", "Total ", "-1" })
        EXPECT_FALSE(IsDiskChoice(wrong)) << wrong;
    const auto rows = Facts().reading.rows;
    EXPECT_EQ(ChosenRows(rows, "all").size(), 2u);
    ASSERT_EQ(ChosenRows(rows, "total").size(), 1u);
    EXPECT_EQ(ChosenRows(rows, "total")[0].disk, 0);
    ASSERT_EQ(ChosenRows(rows, "7").size(), 1u);
    EXPECT_EQ(ChosenRows(rows, "7")[0].disk, 7);
    EXPECT_THAT(ChosenRows(rows, "8"), IsEmpty());
    EXPECT_EQ(NotPresentText(rows, "8"), "mirror disk 8 is not present; present: 7");
    EXPECT_EQ(NotPresentText({ rows[0] }, "8"), "mirror disk 8 is not present; present: none");
    EXPECT_EQ(NotPresentText({ rows[0], rows[1], rows[1] }, "8"), "mirror disk 8 is not present; present: 7, 7");
}
