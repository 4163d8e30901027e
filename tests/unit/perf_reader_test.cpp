/*
 * The reader of the performance object against a machine that does as the script says: a region, and a provider that
 * shows what the region held when it was opened and asked.
 */
#include <gmock/gmock.h>
#include <algorithm>
#include <memory>

#include "reader.h"
#include "support/perf_block_builder.h"

using namespace dkpf;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
namespace build = perf_block_builder;

namespace {

constexpr DWORD     OWN = 4711;
constexpr DWORD     FIRST = 2000;
constexpr ULONGLONG PEAK = 77;  // each peak of each disk
constexpr char      CURE[] = ": dkpfctl doctor says what to do";

class PerfReaderTest : public testing::Test {
protected:
    PerfReaderTest()
    {
        region->conf.perf_enable = 1;
        region->conf.collect_interval = 10;
        region->param_num = 12;
        region->parammax_num = 7;
        region->PMProcessID[1] = 500;
        Present(3);
        Sample(10000);
    }

    /* A sample is taken; the clock stands there. */
    void Sample(DWORD tick)
    {
        now = tick;
        region->sampling_time = tick;
        region->local_time = SYSTEMTIME{ 2026, 3, 6, 7, 14, 5, static_cast<WORD>(tick / 1000 % 60), 0 };
    }
    void Present(int disk, DWORD state = 1)
    {
        region->InitFlag[disk - 1] = state;
    }
    ULONGLONG& Row(size_t row, int disk)
    {
        return region->instance[row].inst_sub[disk - 1].value;
    }
    /* 200 bytes in 4 writes of 25 us each; 100 bytes handed over and 50 sent in 2 transfers of 30 us; levels stand. */
    void Load(int disk)
    {
        Row(0, disk) += 200;
        Row(1, disk) += 100;
        Row(2, disk) += 50;
        Row(3, disk) += 100;
        Row(4, disk) += 4;
        Row(9, disk) = 640;
        Row(10, disk) += 60;
        Row(11, disk) += 2;
    }

    RegionCopy Copy()
    {
        if (!afterCopies.empty()) {
            const auto change = afterCopies.front();
            afterCopies.erase(afterCopies.begin());
            if (change)
                change();
        }
        RegionCopy copy;
        copy.status = status;
        copy.words = status == RegionStatus::Copied ? "" : "words of the region";
        copy.tick = now;
        if (status == RegionStatus::Copied)
            copy.info = std::make_unique<DKPF_SHM_INFO>(*region);
        return copy;
    }

    ProviderOpen Open()
    {
        opens++;
        ProviderOpen result;
        result.opened = refusal.empty();
        result.words = refusal;
        if (result.opened) {
            *baseline = *region;
            region->PMProcessID[2] = OWN;
        }
        return result;
    }

    std::vector<ULONGLONG> Display(size_t slot) const
    {
        const auto      level = [&](size_t row) { return region->instance[row].inst_sub[slot].value; };
        const auto      grown = [&](size_t row) { return level(row) - baseline->instance[row].inst_sub[slot].value; };
        const auto      up = [](ULONGLONG a, ULONGLONG b) { return b == 0 ? 0 : (a + b - 1) / b; };
        const ULONGLONG ratio = grown(1) == 0 || grown(2) == 0 ? 100 : grown(2) * 100 / grown(1);
        const ULONGLONG rate = up(grown(0) * 1000, region->sampling_time - baseline->sampling_time);
        return { ratio, level(7), PEAK, level(9), PEAK, up(grown(10), grown(11)), PEAK, level(5), PEAK, level(6),
                 PEAK,  grown(0), rate, level(8), PEAK, up(grown(3), grown(4)),   PEAK };
    }

    PerfQueryResult Query(const std::wstring& query)
    {
        EXPECT_EQ(query, L"2000");
        queries++;
        if (beforeQuery)
            beforeQuery();
        PerfQueryResult result;
        result.error = queryError;
        std::vector<build::Counter>  counters;
        std::vector<build::Instance> instances = { { L"_Total", std::vector<ULONGLONG>(17, 9) } };
        for (DWORD i = 0; i < 17; i++)
            counters.push_back({ FIRST + 2 + 2 * i, FIRST + 3 + 2 * i, i == 1 ? -4 : 0, 0, 8 });
        for (size_t slot = 0; slot < instanceNum - 1; slot++)
            instances.push_back({ L"NMP" + std::to_wstring(slot + 1), Display(slot) });
        std::vector<build::Bytes> objects = foreign;
        if (!noObject)
            objects.insert(oursFirst ? objects.begin() : objects.end(),
                           build::Object(FIRST, FIRST + 1, counters, &instances));
        result.data = build::Block(objects);
        *baseline = *region;
        return result;
    }

    PerformanceReader Reader()
    {
        ReaderPorts ports;
        ports.region = [this] { return Copy(); };
        ports.open = [this] { return Open(); };
        ports.values = [] { return ProviderValues{ 0, L"x.dll", L"open", L"close", FIRST, FIRST + 1 }; };
        ports.query = [this](const std::wstring& query) { return Query(query); };
        ports.names = [] { return NameSources(); };
        ports.alive = [this](DWORD pid) { return pid != deadPid; };
        ports.ownPid = OWN;
        return PerformanceReader(std::move(ports));
    }

    /* Attached, and nothing read yet. */
    std::unique_ptr<PerformanceReader> Waiting()
    {
        auto          reader = std::make_unique<PerformanceReader>(Reader());
        const Reading first = reader->Next();
        EXPECT_EQ(first.state, ReadingState::Unavailable);
        EXPECT_EQ(first.words, "waiting for the first interval");
        EXPECT_TRUE(reader->Waiting());
        return reader;
    }

    std::unique_ptr<DKPF_SHM_INFO>     region = std::make_unique<DKPF_SHM_INFO>();
    std::unique_ptr<DKPF_SHM_INFO>     baseline = std::make_unique<DKPF_SHM_INFO>();
    RegionStatus                       status = RegionStatus::Copied;
    DWORD                              now = 0;
    std::vector<std::function<void()>> afterCopies;  // what happens in front of the next copies, one by one
    std::function<void()>              beforeQuery;
    std::string                        refusal;
    DWORD                              queryError = 0;
    DWORD                              deadPid = 0;
    size_t                             instanceNum = 65;
    bool                               noObject = false;
    std::vector<build::Bytes>          foreign;  // objects of others in the answer
    bool                               oursFirst = true;
    int                                opens = 0;
    int                                queries = 0;
};

/* The row as text: values, "idle", "-". */
std::vector<std::string> Cells(const ReadingRow& row)
{
    std::vector<std::string> texts;
    for (const Cell& cell : row.cells)
        texts.push_back(cell.kind == CellKind::Value  ? std::to_string(cell.value)
                        : cell.kind == CellKind::Idle ? "idle"
                                                      : "-");
    return texts;
}

std::vector<int> Disks(const Reading& reading)
{
    std::vector<int> disks;
    for (const ReadingRow& row : reading.rows)
        disks.push_back(row.disk);
    return disks;
}

}  // namespace

TEST_F(PerfReaderTest, TheFirstIntervalComesWithTheFirstNewSample)
{
    auto reader = Waiting();
    EXPECT_EQ(opens, 1);
    EXPECT_EQ(queries, 0);
    Load(3);
    Sample(20000);
    now = 20400;
    const Reading reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Fresh);
    EXPECT_THAT(Disks(reading), ElementsAre(0, 3));
    EXPECT_EQ(reading.rows[0].name, "_Total");
    EXPECT_EQ(reading.rows[1].name, "NMP3");
    // 50 of 100 bytes, 60 us in 2 transfers, 200 bytes in 10 s, 100 us in 4 writes.
    EXPECT_THAT(Cells(reading.rows[1]), ElementsAre("50", "0", "77", "640", "77", "30", "77", "0", "77", "0", "77",
                                                    "200", "20", "0", "77", "25", "77"));
    EXPECT_EQ(reading.coveredMs, 10000u);
    EXPECT_EQ(reading.peakMs, 10400u);
    EXPECT_EQ(reading.ageMs, 400u);
    EXPECT_EQ(reading.ageLimitMs, 25000u);
    EXPECT_EQ(reading.collectIntervalS, 10u);
    EXPECT_EQ(reading.sampleTime.wSecond, 20);
    EXPECT_FALSE(reading.attachedAgain);
    EXPECT_EQ(queries, 1);
    EXPECT_EQ(reader->Names().counters[1].index, 2004u);
    EXPECT_EQ(reader->Names().counters[1].scale, -4);  // as the provider says; the table of the product says -5
}

// The sample behind the baseline was 0.7 s old when we attached; peaks began there.
TEST_F(PerfReaderTest, PeaksCoverTheTimeSinceTheReadBefore)
{
    now = 10700;
    auto reader = Waiting();
    Sample(20000);
    now = 20400;
    EXPECT_EQ(reader->Next().peakMs, 9700u);
    Sample(30000);
    now = 30100;
    const Reading reading = reader->Next();
    EXPECT_EQ(reading.peakMs, 9700u);
    EXPECT_EQ(reading.coveredMs, 10000u);
}

TEST_F(PerfReaderTest, WithoutANewSampleTheOldRowsAreStaleAndNothingIsCollected)
{
    auto reader = Waiting();
    Load(3);
    Sample(20000);
    reader->Next();
    now = 24000;
    const Reading reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Stale);
    EXPECT_EQ(reading.words, "no new sample yet, the last one is 4.0 s old");
    EXPECT_EQ(Cells(reading.rows[1])[11], "200");
    EXPECT_EQ(reading.ageMs, 4000u);
    EXPECT_EQ(reading.pollsMissed, 0u);
    EXPECT_FALSE(reader->Waiting());
    EXPECT_EQ(queries, 1);
}

TEST_F(PerfReaderTest, ADeadSampleIsSaidAndItsMissedPollsCountOnce)
{
    auto reader = Waiting();
    Sample(20000);
    reader->Next();
    now = 31000;  // an interval and the tolerance
    EXPECT_EQ(reader->Next().pollsMissed, 0u);
    now = 31001;
    EXPECT_EQ(reader->Next().pollsMissed, 1u);
    now = 45100;
    Reading reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Stale);
    EXPECT_EQ(reading.pollsMissed, 2u);
    EXPECT_EQ(reading.pollsMissedTotal, 2u);
    EXPECT_THAT(reading.words, HasSubstr("the last sample is 25.1 s old, over the limit of 25.0 s"));
    Sample(50000);
    reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Fresh);
    EXPECT_EQ(reading.pollsMissed, 0u);
    EXPECT_EQ(reading.pollsMissedTotal, 2u);
    EXPECT_EQ(reading.coveredMs, 30000u);
}

TEST_F(PerfReaderTest, EachStallCountsItsOwnMissedPolls)
{
    auto reader = Waiting();
    now = 31001;  // 21 s behind the sample: two intervals
    EXPECT_EQ(reader->Next().pollsMissedTotal, 2u);
    Sample(40000);
    EXPECT_EQ(reader->Next().pollsMissedTotal, 2u);
    now = 51001;
    const Reading reading = reader->Next();
    EXPECT_EQ(reading.pollsMissed, 1u);
    EXPECT_EQ(reading.pollsMissedTotal, 3u);
}

TEST_F(PerfReaderTest, IdleIsNoMeasuredHundredAndNoMeasuredZero)
{
    auto reader = Waiting();
    Sample(20000);
    const Reading idle = reader->Next();
    const auto    cells = Cells(idle.rows[1]);
    EXPECT_EQ(cells[0], "idle");
    EXPECT_EQ(cells[5], "idle");
    EXPECT_EQ(cells[15], "idle");
    EXPECT_EQ(cells[11], "0");
    EXPECT_EQ(cells[12], "0");
    EXPECT_EQ(Cells(idle.rows[0])[0], "idle");
    EXPECT_EQ(Cells(idle.rows[0])[1], "9");

    // Handed over and nothing sent yet: still no ratio.
    Row(1, 3) += 100;
    Sample(25000);
    EXPECT_EQ(Cells(reader->Next().rows[1])[0], "idle");

    // All that was handed over was sent, each piece in no time: measured.
    Row(1, 3) += 100;
    Row(2, 3) += 100;
    Row(11, 3) += 2;
    Row(4, 3) += 1;
    Sample(30000);
    const Reading measured = reader->Next();
    EXPECT_EQ(Cells(measured.rows[1])[0], "100");
    EXPECT_EQ(Cells(measured.rows[1])[5], "0");
    EXPECT_EQ(Cells(measured.rows[1])[15], "0");
    EXPECT_EQ(Cells(measured.rows[0])[0], "9");
}

TEST_F(PerfReaderTest, ADiskThatComesOrGoesHasNoDifferencesAndNeitherHasTheTotal)
{
    auto reader = Waiting();
    Sample(20000);
    reader->Next();
    Present(7);
    Load(7);
    Load(3);
    Sample(30000);
    const Reading come = reader->Next();
    EXPECT_THAT(Disks(come), ElementsAre(0, 3, 7));
    EXPECT_THAT(Cells(come.rows[2]), ElementsAre("-", "0", "77", "640", "77", "-", "77", "0", "77", "0", "77", "-", "-",
                                                 "0", "77", "-", "77"));
    EXPECT_THAT(Cells(come.rows[0]),
                ElementsAre("-", "9", "9", "9", "9", "-", "9", "9", "9", "9", "9", "-", "-", "9", "9", "-", "9"));
    EXPECT_EQ(Cells(come.rows[1])[11], "200");

    Load(7);
    Sample(40000);
    EXPECT_EQ(Cells(reader->Next().rows[2])[11], "200");

    Present(7, 0);
    Sample(50000);
    const Reading gone = reader->Next();
    EXPECT_THAT(Disks(gone), ElementsAre(0, 3));
    EXPECT_EQ(Cells(gone.rows[0])[11], "-");
    EXPECT_EQ(Cells(gone.rows[1])[11], "0");
    Sample(60000);
    EXPECT_EQ(Cells(reader->Next().rows[0])[11], "9");
}

TEST_F(PerfReaderTest, ADiskThatWasGoneBetweenTwoReadingsIsSeenByALook)
{
    auto reader = Waiting();
    Present(3, 0);
    Sample(20000);
    reader->Look();
    Present(3);
    Load(3);
    Sample(30000);
    const Reading reading = reader->Next();
    EXPECT_EQ(Cells(reading.rows[1])[11], "-");
    EXPECT_EQ(reading.coveredMs, 20000u);
}

TEST_F(PerfReaderTest, ASampleBetweenCopyAndQueryIsKnownByItsValues)
{
    auto reader = Waiting();
    Load(3);
    Sample(20000);
    // Between the first copy and the query: the newer one is shown.
    beforeQuery = [&] {
        Load(3);
        Load(3);
        Sample(25000);
    };
    Reading reading = reader->Next();
    beforeQuery = nullptr;
    EXPECT_EQ(reading.coveredMs, 15000u);
    EXPECT_EQ(reading.sampleTime.wSecond, 25);
    EXPECT_EQ(Cells(reading.rows[1])[11], "600");
    EXPECT_EQ(reader->Next().state, ReadingState::Stale);

    Load(3);
    Sample(30000);
    // Between the query and the second copy: the older one is shown.
    afterCopies = { nullptr, [&] {
                       Load(3);
                       Sample(40000);
                   } };
    reading = reader->Next();
    EXPECT_EQ(reading.coveredMs, 5000u);
    EXPECT_EQ(reading.ageMs, 10000u);
    EXPECT_EQ(reading.sampleTime.wSecond, 30);
    EXPECT_EQ(Cells(reading.rows[1])[11], "200");
    reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Fresh);
    EXPECT_EQ(reading.coveredMs, 10000u);
    EXPECT_EQ(reading.sampleTime.wSecond, 40);
    EXPECT_EQ(Cells(reading.rows[1])[11], "200");
}

TEST_F(PerfReaderTest, ARestartedProducerIsAttachedToAgain)
{
    auto reader = Waiting();
    Load(3);
    Sample(20000);
    reader->Next();
    EXPECT_EQ(opens, 1);
    // The agent starts again: the table is wiped, and so is the sample until the first one.
    std::fill(std::begin(region->PMProcessID), std::end(region->PMProcessID), 0u);
    region->local_time = SYSTEMTIME{};
    now = 25000;
    Reading reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Unavailable);
    EXPECT_THAT(reading.words, HasSubstr("there is no sample"));
    EXPECT_THAT(reading.rows, IsEmpty());
    EXPECT_FALSE(reader->Waiting());
    EXPECT_EQ(opens, 1);

    Sample(30000);
    reading = reader->Next();
    EXPECT_EQ(reading.words, "the disk agent was started again: waiting for the first interval");
    EXPECT_TRUE(reader->Waiting());
    EXPECT_EQ(opens, 2);
    Sample(40000);
    reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Fresh);
    EXPECT_TRUE(reading.attachedAgain);
    EXPECT_EQ(reading.coveredMs, 10000u);
    Sample(50000);
    EXPECT_FALSE(reader->Next().attachedAgain);
    EXPECT_EQ(opens, 2);
}

TEST_F(PerfReaderTest, ARestartDuringTheQueryGivesNoValues)
{
    auto reader = Waiting();
    Sample(20000);
    afterCopies = { nullptr, [&] { region->PMProcessID[2] = 0; } };
    EXPECT_EQ(reader->Next().words, "the disk agent was started again");
    EXPECT_EQ(reader->Next().words, "the disk agent was started again: waiting for the first interval");
    EXPECT_EQ(opens, 2);
}

TEST_F(PerfReaderTest, CollectionSwitchedOffIsNoZero)
{
    auto reader = Waiting();
    region->conf.perf_enable = 0;
    region->local_time = SYSTEMTIME{};
    const Reading reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Unavailable);
    EXPECT_THAT(reading.words, HasSubstr("collection is switched off"));
    EXPECT_EQ(queries, 0);
}

// Our row is still there, and the provider's baseline is of before: an interval over the gap would mean nothing.
TEST_F(PerfReaderTest, CollectionThatWasOffBeginsANewInterval)
{
    for (const bool seenByLook : { false, true }) {
        Sample(10000);
        auto      reader = Waiting();
        const int before = opens;
        region->local_time = SYSTEMTIME{};
        if (seenByLook)
            reader->Look();
        else
            EXPECT_EQ(reader->Next().state, ReadingState::Unavailable);
        Sample(40000);
        EXPECT_EQ(reader->Next().words, "waiting for the first interval");
        EXPECT_EQ(opens, before + 1);
        Sample(50000);
        EXPECT_EQ(reader->Next().coveredMs, 10000u);
    }
}

TEST_F(PerfReaderTest, OurNumberInTheProducersRowIsNoRowOfOurs)
{
    auto reader = Waiting();
    region->PMProcessID[2] = 0;
    region->PMProcessID[0] = OWN;
    Sample(20000);
    EXPECT_EQ(reader->Next().words, "the disk agent was started again: waiting for the first interval");
}

TEST_F(PerfReaderTest, AFullTableIsNotTriedUnlessAReaderInItIsDead)
{
    std::fill(std::begin(region->PMProcessID) + 1, std::end(region->PMProcessID), 600u);
    region->PMProcessID[30] = 601;
    PerformanceReader reader = Reader();
    EXPECT_THAT(reader.Next().words, HasSubstr("32 readers are attached already"));
    EXPECT_FALSE(reader.Waiting());
    EXPECT_EQ(opens, 0);
    deadPid = 601;
    EXPECT_EQ(reader.Next().words, "waiting for the first interval");
    EXPECT_EQ(opens, 1);
}

TEST_F(PerfReaderTest, ARefusedOpenIsSaidAndTriedAgain)
{
    refusal = "words of the provider";
    PerformanceReader reader = Reader();
    EXPECT_EQ(reader.Next().words, "words of the provider");
    EXPECT_FALSE(reader.Waiting());
    refusal.clear();
    EXPECT_EQ(reader.Next().words, "waiting for the first interval");
    EXPECT_EQ(opens, 2);
}

TEST_F(PerfReaderTest, WithoutARegionItSaysSoAndABusyOneTakesNothingAway)
{
    auto reader = Waiting();
    Sample(20000);
    status = RegionStatus::Busy;
    EXPECT_EQ(reader->Next().words, "words of the region");
    status = RegionStatus::Copied;
    EXPECT_EQ(reader->Next().state, ReadingState::Fresh);
    status = RegionStatus::Absent;
    const Reading reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Unavailable);
    EXPECT_EQ(reading.words, "words of the region (net start dkpfagent)");
    EXPECT_EQ(opens, 1);
}

TEST_F(PerfReaderTest, AnAnswerWithoutOurObjectIsSaidAndTheBaselineTakenAnew)
{
    auto reader = Waiting();
    Sample(20000);
    noObject = true;
    EXPECT_THAT(reader->Next().words, AllOf(HasSubstr("has no values of our object"), EndsWith(CURE)));
    noObject = false;
    EXPECT_EQ(reader->Next().words, "waiting for the first interval");
    EXPECT_EQ(opens, 2);
    Sample(30000);
    queryError = ERROR_ACCESS_DENIED;
    EXPECT_THAT(reader->Next().words, AllOf(HasSubstr("the Performance Library answers error 5"), EndsWith(CURE)));
    queryError = 0;
    reader->Next();
    Sample(40000);
    instanceNum = 64;
    EXPECT_THAT(reader->Next().words,
                AllOf(HasSubstr("our object has 64 instances and 17 counters instead of 65 and 17"), EndsWith(CURE)));
}

// An object of another provider ends too early: what lies behind it cannot be found.
TEST_F(PerfReaderTest, ADamageInFrontOfOurObjectIsSaidAndTheBaselineTakenAnew)
{
    auto reader = Waiting();
    Load(3);
    Sample(20000);
    foreign = { build::Bytes(16) };
    oursFirst = false;
    const Reading reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Unavailable);
    EXPECT_THAT(reading.words,
                AllOf(HasSubstr("the Performance Library answers a damaged block (object 0 of 2: "), EndsWith(CURE)));
    foreign.clear();
    EXPECT_EQ(reader->Next().words, "waiting for the first interval");
    EXPECT_EQ(opens, 2);
}

TEST_F(PerfReaderTest, OurObjectInFrontOfADamageCounts)
{
    auto reader = Waiting();
    Load(3);
    Sample(20000);
    foreign = { build::Bytes(16) };
    const Reading reading = reader->Next();
    EXPECT_EQ(reading.state, ReadingState::Fresh);
    EXPECT_EQ(Cells(reading.rows[1])[11], "200");
    EXPECT_EQ(opens, 1);
}

TEST_F(PerfReaderTest, ASampleThatComesWhileTheProviderOpensMakesItOpenOnceMore)
{
    afterCopies = { nullptr, [&] { Sample(20000); } };
    auto reader = Waiting();
    EXPECT_EQ(opens, 2);
    Sample(30000);
    EXPECT_EQ(reader->Next().coveredMs, 10000u);
}

TEST_F(PerfReaderTest, AnIntervalThatNobodyMayPublishIsBounded)
{
    auto reader = Waiting();
    region->conf.collect_interval = 0;
    Sample(20000);
    EXPECT_EQ(reader->Next().ageLimitMs, 7000u);
    region->conf.collect_interval = 0xFFFFFFFF;
    Sample(30000);
    EXPECT_EQ(reader->Next().ageLimitMs, 7205000u);
}
