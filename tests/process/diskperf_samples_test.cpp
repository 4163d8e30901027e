/*
 * The road of a sample with the real driver: what is fed arrives in the region and in the CSV files, to the digit.
 */
#include "process/diskperf_roles.h"

#include <gmock/gmock.h>

#include <string.h>
#include <algorithm>
#include <sstream>

#include "process/registered_provider.h"
#include "support/driver.h"

using testing::Each;

typedef unsigned long long U64;
typedef std::vector<U64>   Row;

/* Titles as operators see them: 17 display columns (11 and 12 in the order of the files), 19 raw columns. */
static const char* const DISPLAY_TITLES[] = {
    "Transfer Ratio %",
    "Request Queue Bytes",
    "Request Queue Bytes Peak",
    "Unsynchronized Bytes",
    "Unsynchronized Bytes Peak",
    "Avg. us/Transfer",
    "Max. us/Transfer",
    "Send Queue Bytes",
    "Send Queue Bytes Peak",
    "History Buffer Bytes",
    "History Buffer Bytes Peak",
    "Write Bytes/sec",
    "Write Bytes",
    "Transfer Memory Bytes",
    "Transfer Memory Bytes Peak",
    "Avg. us/Write",
    "Max. us/Write",
};
static const char* const RAW_TITLES[] = {
    "Write Bytes Sum",       "Transfer Bytes Before Reduction Sum",
    "Transfer Bytes Sum",    "Write us Sum",
    "Max. us/Write",         "Writes Sum",
    "Send Queue Bytes",      "Send Queue Bytes Peak",
    "History Buffer Bytes",  "History Buffer Bytes Peak",
    "Request Queue Bytes",   "Request Queue Bytes Peak",
    "Transfer Memory Bytes", "Transfer Memory Bytes Peak",
    "Unsynchronized Bytes",  "Unsynchronized Bytes Peak",
    "Transfer us Sum",       "Max. us/Transfer",
    "Transfers Sum",
};

/* Columns of the display files that cases look at. */
enum Display { RATIO = 0, AVG_TRANSFER = 5, HISTORY = 9, HISTORY_PEAK = 10, RATE = 11, DELTA = 12, AVG_WRITE = 15 };
/* Columns of the raw files. */
enum Raw { RAW_WRITE_BYTES = 0, RAW_HISTORY = 8, RAW_HISTORY_PEAK = 9 };
/* Where the provider's block holds the peak of the history buffer. */
static const size_t COUNTER_HISTORY_PEAK = 10;

/* The entry's numbers by their offset. */
static U64 At(const VELCOR_ENTRY& entry, size_t offset)
{
    U64 value = 0;
    memcpy(&value, reinterpret_cast<const char*>(&entry) + offset, sizeof(value));
    return value;
}

/* A number of its own at every place of both records. */
static void FillTelling(VELCOR_FEED& feed)
{
    U64 next = 1000;
    for (VELCOR_RECORD* record : { &feed.driver, &feed.filter }) {
        for (VELCOR_ENTRY& entry : record->entry) {
            for (size_t offset = 8; offset < 160; offset += 8) {
                memcpy(reinterpret_cast<char*>(&entry) + offset, &next, sizeof(next));
                next += 3;
            }
        }
    }
}

static void Present(VELCOR_FEED& feed, int disk, unsigned mode)
{
    for (VELCOR_RECORD* record : { &feed.driver, &feed.filter }) {
        record->entry[disk - 1].state = VELCOR_STATE_INITIALIZED;
        record->entry[disk - 1].mode = mode;
    }
}

static std::string Header(const std::string& instance, const char* const* titles, size_t count)
{
    char        computer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD       size = sizeof(computer);
    std::string line = "\"(PDH-CSV 4.0)\"";
    GetComputerNameA(computer, &size);
    for (size_t i = 0; i < count; i++) {
        line += std::string(",\"\\\\") + computer + "\\Cluster Disk Resource Performance(" + instance + ")\\" +
                titles[i] + "\"";
    }
    return line;
}

class Samples : public Roles {
protected:
    /* The numbers of each line below the header. A line of another form fails the case. */
    std::vector<Row> Rows(const wchar_t* file) const
    {
        std::vector<std::string> lines = home.Lines(file);
        std::vector<Row>         rows;
        for (size_t i = 1; i < lines.size(); i++) {
            int               month = 0, day = 0, year = 0, hour = 0, minute = 0, second = 0, ms = 0, end = 0;
            Row               row;
            std::stringstream rest;
            std::string       field;
            if (sscanf(lines[i].c_str(), "\"%2d/%2d/%4d %2d:%2d:%2d.%3d\"%n", &month, &day, &year, &hour, &minute,
                       &second, &ms, &end) != 7 ||
                end != 25) {
                ADD_FAILURE() << lines[i];
                continue;
            }
            rest.str(lines[i].substr(25));
            std::getline(rest, field, ',');
            while (std::getline(rest, field, ',')) {
                row.push_back(strtoull(field.c_str() + 1, nullptr, 10));
                if (field != "\"" + std::to_string(row.back()) + "\"") {
                    ADD_FAILURE() << field << " in " << lines[i];
                }
            }
            rows.push_back(row);
        }
        return rows;
    }

    bool AwaitRows(const wchar_t* file, size_t count)
    {
        return Eventually([&] { return home.Lines(file).size() > count; });
    }

    static Row Column(const std::vector<Row>& rows, size_t column)
    {
        Row values;
        for (const Row& row : rows) {
            values.push_back(row.at(column));
        }
        return values;
    }

    static long Count(const Row& values, U64 value)
    {
        return static_cast<long>(std::count(values.begin(), values.end(), value));
    }

    InstalledDriver driver;
    VELCOR_FEED     feed = {};
};

TEST_F(Samples, WhatIsFedArrivesInTheRegionInBothModes)
{
    ASSERT_TRUE(driver.service->Start());
    const auto producer = StartProducer();
    const auto reader = StartReader();  // row 1 keeps all peaks from here on
    ASSERT_TRUE(AwaitFirstSample());
    FillTelling(feed);
    Present(feed, 1, VELCOR_MODE_ASYNC);
    Present(feed, 2, VELCOR_MODE_SYNC);
    Present(feed, 64, VELCOR_MODE_ASYNC);
    // Both sources are asked one after the other: a feed in between must not tear this sum apart.
    feed.driver.entry[0].write_us_max = feed.filter.entry[1].write_us_max = feed.driver.entry[63].write_us_max = 0;
    feed.driver.entry[2].state = 7;  // there, but not initialised
    driver.Feed(feed);
    ASSERT_NO_FATAL_FAILURE(AwaitFreshSample());

    const auto region = Region();
    EXPECT_EQ(12u, region->param_num);
    EXPECT_EQ(7u, region->parammax_num);
    for (size_t slot = 0; slot < 64; slot++) {
        EXPECT_EQ(feed.driver.entry[slot].state, region->InitFlag[slot]);
    }
    for (size_t slot : { 0u, 1u, 63u }) {
        const VELCOR_ENTRY& d = feed.driver.entry[slot];
        const VELCOR_ENTRY& m = feed.filter.entry[slot];
        const VELCOR_ENTRY& s = slot == 1 ? d : m;
        const U64           current[] = { At(m, 8) + At(d, 8),
                                          At(d, 16),
                                          At(d, 24),
                                          At(m, 32) + At(d, 32),
                                          At(m, 48) + At(d, 48),
                                          At(s, 56),
                                          At(d, 72),
                                          At(s, 88),
                                          At(d, 104),
                                          At(d, 120),
                                          At(d, 136),
                                          At(d, 152) };
        const U64           peaks[] = {
                      At(m, 40) + At(d, 40), At(s, 64), At(d, 80), At(s, 96), At(d, 112), At(d, 128), At(d, 144)
        };
        for (size_t i = 0; i < 12; i++) {
            EXPECT_EQ(i, region->instance[i].rawparamID);
            EXPECT_EQ(current[i], region->instance[i].inst_sub[slot].value) << "slot " << slot << " row " << i;
        }
        for (size_t k = 0; k < 7; k++) {
            EXPECT_EQ(k, region->maxinstance[1][k].rawparamID);
            EXPECT_EQ(peaks[k], region->maxinstance[1][k].inst_sub[slot].value) << "slot " << slot << " peak " << k;
        }
    }
    for (size_t i = 0; i < 12; i++) {
        EXPECT_EQ(0u, region->instance[i].inst_sub[2].value);
    }
    EXPECT_EQ(DONE, producer->Ask("term"));
}

TEST_F(Samples, WhatIsFedArrivesInTheRawFiles)
{
    FillTelling(feed);
    Present(feed, 1, VELCOR_MODE_ASYNC);
    Present(feed, 2, VELCOR_MODE_SYNC);
    feed.filter.entry[0].write_bytes = 18446744073709551615ull - feed.driver.entry[0].write_bytes;  // the largest sum
    ASSERT_TRUE(driver.service->Start());
    driver.Feed(feed);
    const auto producer = StartProducer();
    ASSERT_TRUE(AwaitRows(L"perf\\nmp_total_raw.csv", 2));
    EXPECT_EQ(DONE, producer->Ask("term"));

    // The discarded first request took the peaks: from then on they show the present value, longest times 0.
    std::vector<Row> expected;
    for (size_t slot : { 0u, 1u }) {
        const VELCOR_ENTRY& d = feed.driver.entry[slot];
        const VELCOR_ENTRY& m = feed.filter.entry[slot];
        const VELCOR_ENTRY& s = slot == 1 ? d : m;
        expected.push_back({ At(m, 8) + At(d, 8), At(d, 16), At(d, 24), At(m, 32) + At(d, 32), 0, At(m, 48) + At(d, 48),
                             At(s, 56), At(s, 56), At(d, 72), At(d, 72), At(s, 88), At(s, 88), At(d, 104), At(d, 104),
                             At(d, 120), At(d, 120), At(d, 136), 0, At(d, 152) });
    }
    Row total;
    for (size_t column = 0; column < 19; column++) {
        const bool peak = std::string(RAW_TITLES[column]).find("Peak") != std::string::npos;
        const U64  a = expected[0][column], b = expected[1][column];
        total.push_back(peak ? std::max(a, b) : a + b);
    }
    EXPECT_EQ(18446744073709551615ull, expected[0][RAW_WRITE_BYTES]);
    EXPECT_EQ(Header("NMP1", RAW_TITLES, 19), home.Lines(L"perf\\nmp1_raw.csv").at(0));
    EXPECT_EQ(Header("_Total", RAW_TITLES, 19), home.Lines(L"perf\\nmp_total_raw.csv").at(0));
    EXPECT_THAT(Rows(L"perf\\nmp1_raw.csv"), Each(expected[0]));
    EXPECT_THAT(Rows(L"perf\\nmp2_raw.csv"), Each(expected[1]));
    EXPECT_THAT(Rows(L"perf\\nmp_total_raw.csv"), Each(total));
    EXPECT_EQ((std::vector<std::wstring>{ L"nmp1.csv", L"nmp1_raw.csv", L"nmp2.csv", L"nmp2_raw.csv", L"nmp_total.csv",
                                          L"nmp_total_raw.csv" }),
              home.List(L"perf"));
}

TEST_F(Samples, AStepOfTheSumsShowsInOneLineOfTheDisplayFiles)
{
    VELCOR_ENTRY& sync = feed.driver.entry[4];
    Present(feed, 5, VELCOR_MODE_SYNC);
    sync.history = 77;
    ASSERT_TRUE(driver.service->Start());
    driver.Feed(feed);
    const auto producer = StartProducer();
    ASSERT_TRUE(AwaitRows(L"perf\\nmp_total.csv", 1));
    sync.write_bytes += 5000001;
    sync.writes += 3;
    sync.write_us += 1000;  // 333.3 us a write: shown rounded up
    sync.handed_bytes += 4000;
    sync.transfer_bytes += 1999;  // 49.975 %: cut off
    sync.transfer_us += 900;
    sync.transfers += 2;
    sync.history_peak = 8888;
    driver.Feed(feed);
    const size_t before = home.Lines(L"perf\\nmp_total.csv").size();
    ASSERT_TRUE(AwaitRows(L"perf\\nmp_total.csv", before + 3));
    EXPECT_EQ(DONE, producer->Ask("term"));

    EXPECT_EQ(Header("NMP5", DISPLAY_TITLES, 17), home.Lines(L"perf\\nmp5.csv").at(0));
    EXPECT_EQ(Header("_Total", DISPLAY_TITLES, 17), home.Lines(L"perf\\nmp_total.csv").at(0));
    for (const wchar_t* file : { L"perf\\nmp5.csv", L"perf\\nmp_total.csv" }) {
        const std::vector<Row> rows = Rows(file);
        const long             other = static_cast<long>(rows.size()) - 1;
        const struct {
            size_t column;
            U64    inTheStep, elsewhere;
        } expected[] = { { DELTA, 5000001, 0 },
                         { AVG_WRITE, 334, 0 },
                         { RATIO, 49, 100 },
                         { AVG_TRANSFER, 450, 0 },
                         { HISTORY_PEAK, 8888, 77 } };
        for (const auto& each : expected) {
            EXPECT_EQ(1, Count(Column(rows, each.column), each.inTheStep)) << DISPLAY_TITLES[each.column];
            EXPECT_EQ(other, Count(Column(rows, each.column), each.elsewhere)) << DISPLAY_TITLES[each.column];
        }
        EXPECT_THAT(Column(rows, HISTORY), Each(77u));
        for (const Row& row : rows) {
            EXPECT_EQ(row.at(DELTA) != 0, row.at(RATE) != 0);
            EXPECT_EQ(row.at(DELTA) != 0, row.at(AVG_WRITE) != 0);  // all of one sample in one line
        }
    }
}

TEST_F(Samples, TheFirstLineComesWithTheSecondSample)
{
    home.Configure({ { "parameters/collectinterval", "4" } });
    Present(feed, 1, VELCOR_MODE_SYNC);
    feed.driver.entry[0].write_bytes = 10;
    ASSERT_TRUE(driver.service->Start());
    driver.Feed(feed);
    const auto producer = StartProducer();
    ASSERT_TRUE(AwaitFirstSample());
    feed.driver_status = 9;  // no second sample for now
    driver.Feed(feed);
    const DWORD first = SampleTick();
    ASSERT_TRUE(Eventually([this] { return home.Events("0x800012C1") == 1; }));
    ASSERT_EQ(first, SampleTick());           // refused samples leave the last one
    EXPECT_TRUE(home.List(L"perf").empty());  // four write intervals have passed
    feed.driver_status = 0;
    feed.driver.entry[0].write_bytes = 25;
    driver.Feed(feed);
    ASSERT_TRUE(AwaitRows(L"perf\\nmp1.csv", 1));
    EXPECT_EQ(15u, Rows(L"perf\\nmp1.csv").at(0).at(DELTA));
    EXPECT_TRUE(Eventually([this] { return home.Events("0x400012C2") == 1; }));
    EXPECT_EQ(1, home.Events("0x800012C1"));
}

TEST_F(Samples, EachReaderGetsThePeaksSinceItsOwnLastRead)
{
    const RegisteredProvider registration(home);

    VELCOR_ENTRY& disk = feed.driver.entry[6];
    Present(feed, 7, VELCOR_MODE_SYNC);
    disk.history = disk.history_peak = 10;
    ASSERT_TRUE(driver.service->Start());
    driver.Feed(feed);
    const auto producer = StartProducer();
    ASSERT_TRUE(AwaitFirstSample());
    const auto often = StartRole();
    const auto seldom = StartRole();
    ASSERT_EQ("0", often->Ask("open"));
    ASSERT_EQ("0", seldom->Ask("open"));

    const auto peak = [](Program& reader) {
        std::stringstream answer(reader.Ask("collect 7"));
        U64               result = 99, size = 0, value = 0;
        answer >> result >> size;
        EXPECT_EQ(0u, result);
        EXPECT_EQ(15824u, size);
        for (size_t j = 0; j <= COUNTER_HISTORY_PEAK; j++) {
            answer >> value;
        }
        return value;
    };
    const auto feedPeak = [&](U64 value) {
        disk.history_peak = value;
        driver.Feed(feed);
        AwaitFreshSample();
    };
    feedPeak(900);
    EXPECT_EQ(900u, peak(*often));
    feedPeak(500);
    EXPECT_EQ(500u, peak(*often));
    feedPeak(300);
    EXPECT_EQ(900u, peak(*seldom));  // the largest of all three
    EXPECT_EQ(300u, peak(*often));
    AwaitFreshSample();
    EXPECT_EQ(10u, peak(*seldom));
    const auto late = StartReader();
    AwaitFreshSample();
    EXPECT_EQ(10u, Region()->maxinstance[3][2].inst_sub[6].value);  // a new row knows nothing of the past
    EXPECT_EQ("0", often->Ask("close"));
    EXPECT_EQ("0", seldom->Ask("close"));
    EXPECT_EQ((std::vector<DWORD>{ 0, 0, 0, late->Id() }), Owners());
}

TEST_F(Samples, AKilledReadersPeaksAreNotItsSuccessors)
{
    Present(feed, 7, VELCOR_MODE_SYNC);
    feed.driver.entry[6].memory = 4;
    feed.driver.entry[6].memory_peak = 4444;
    ASSERT_TRUE(driver.service->Start());
    const auto producer = StartProducer();
    const auto killed = StartReader();
    ASSERT_TRUE(AwaitFirstSample());
    driver.Feed(feed);
    ASSERT_TRUE(Eventually([] { return Region()->maxinstance[1][4].inst_sub[6].value == 4444; }));
    killed->Kill();
    const auto next = StartReader();
    EXPECT_EQ((std::vector<DWORD>{ 0, next->Id() }), Owners());
    AwaitFreshSample();
    EXPECT_EQ(4u, Region()->maxinstance[1][4].inst_sub[6].value);
}

TEST_F(Samples, AFileHeldByAnotherProgramCostsItsOwnLinesAlone)
{
    for (int disk : { 1, 2, 3 }) {
        Present(feed, disk, VELCOR_MODE_ASYNC);
    }
    home.Write(L"perf\\nmp2.csv", "");
    const auto holder = StartRole();
    ASSERT_EQ("locked", holder->Ask("lock " + home.PlainPath(L"perf\\nmp2.csv")));
    ASSERT_TRUE(driver.service->Start());
    driver.Feed(feed);
    const auto producer = StartProducer();
    ASSERT_TRUE(AwaitRows(L"perf\\nmp_total_raw.csv", 3));
    for (const wchar_t* file : { L"perf\\nmp1.csv", L"perf\\nmp1_raw.csv", L"perf\\nmp2_raw.csv", L"perf\\nmp3.csv",
                                 L"perf\\nmp3_raw.csv", L"perf\\nmp_total.csv" }) {
        EXPECT_GE(Rows(file).size(), 3u);
    }
    EXPECT_EQ("", home.Read(L"perf\\nmp2.csv"));
    EXPECT_EQ(1, home.Events("0x800012C3"));
    EXPECT_EQ(0, home.Events("0x400012C4"));

    EXPECT_EQ("unlocked", holder->Ask("unlock"));
    ASSERT_TRUE(AwaitRows(L"perf\\nmp2.csv", 2));
    EXPECT_EQ(DONE, producer->Ask("term"));
    EXPECT_EQ(Header("NMP2", DISPLAY_TITLES, 17), home.Lines(L"perf\\nmp2.csv").at(0));
    EXPECT_GT(Rows(L"perf\\nmp1.csv").size(), Rows(L"perf\\nmp2.csv").size());
    EXPECT_EQ(1, home.Events("0x800012C3"));
    EXPECT_EQ(1, home.Events("0x400012C4"));
}

TEST_F(Samples, TheProducersEndShowsZerosToItsReaders)
{
    Present(feed, 1, VELCOR_MODE_SYNC);
    feed.driver.entry[0].history = 123;
    ASSERT_TRUE(driver.service->Start());
    driver.Feed(feed);
    const auto producer = StartProducer();
    const auto reader = StartReader();
    ASSERT_TRUE(Eventually([] { return Region()->instance[6].inst_sub[0].value == 123; }));
    EXPECT_EQ(DONE, producer->Ask("term"));
    const auto region = Region();
    EXPECT_EQ(0u, region->instance[6].inst_sub[0].value);
    EXPECT_EQ(0u, region->sampling_time);
    EXPECT_EQ(0u, region->local_time.wDay);
    EXPECT_EQ(1u, region->InitFlag[0]);
}

TEST_F(Samples, AFailingDriverWarnsOnceAndTheRegionKeepsTheLastSample)
{
    Present(feed, 1, VELCOR_MODE_SYNC);
    feed.driver.entry[0].history = 123;
    ASSERT_TRUE(driver.service->Start());
    driver.Feed(feed);
    const auto producer = StartProducer();
    ASSERT_TRUE(AwaitFirstSample());
    for (int kind = 0; kind < 3; kind++) {
        VELCOR_FEED failing = feed;
        failing.driver_status = kind == 0 ? 5 : 0;
        failing.refuse = kind == 1;
        failing.filter_error = kind == 2 ? ERROR_GEN_FAILURE : 0;
        failing.driver.entry[0].history = 999;
        driver.Feed(failing);
        ASSERT_TRUE(Eventually([&] { return home.Events("0x800012C1") == kind + 1; })) << kind;
        EXPECT_EQ(123u, Region()->instance[6].inst_sub[0].value);
        driver.Feed(feed);
        ASSERT_TRUE(Eventually([&] { return home.Events("0x400012C2") == kind + 1; })) << kind;
        EXPECT_EQ(kind + 1, home.Events("0x800012C1"));
    }
}
