/*
 * From the driver's and the filter's record to one raw sample, and the sample of zeros.
 */
#include <algorithm>
#include <random>

#include "support/conversion_model.h"
#include "support/fixture.h"

using model::Bytes;
using model::Entry;
using model::Get;
using model::Put;

static const char      Source[] = "diskperf/src/diskperf_agent";
static const ULONGLONG Largest = 18446744073709551615ull;

/* Two records of the device, written by byte offsets. */
struct Pair {
    alignas(8) BYTE driver[model::RecordSize] = {};
    alignas(8) BYTE filter[model::RecordSize] = {};

    void Disk(unsigned slot, DWORD state, DWORD mode)
    {
        Put<DWORD>(driver, Entry(slot), mode);
        Put<DWORD>(driver, Entry(slot) + 4, state);
    }
    void Value(unsigned slot, size_t offset, ULONGLONG inDriver, ULONGLONG inFilter)
    {
        Put(driver, Entry(slot) + offset, inDriver);
        Put(filter, Entry(slot) + offset, inFilter);
    }
    /* Every number of the disk different, and different in the two records. */
    void Fill(unsigned slot)
    {
        for (size_t offset = 8; offset < 160; offset += 8) {
            Value(slot, offset, 1000000ull * (slot + 1) + offset, 3000000000ull * (slot + 1) + offset);
        }
    }
};

/* "log level routine: text" of all lines, in order. */
static Strings Traced(const std::vector<TraceLine>& lines)
{
    Strings texts;
    for (const TraceLine& line : lines) {
        texts.push_back(line.log + " " + std::to_string(line.level) + " " + line.routine + ": " + line.text);
    }
    return texts;
}

class Conversion : public DiskperfTest {
protected:
    void SetUp() override
    {
        DiskperfTest::SetUp();
        memset(&sample, 0xCC, sizeof sample);
    }
    BOOL Convert()
    {
        return _DkpfConvPerfDrvToShm(pair.driver, pair.filter, &sample, &error);
    }
    /* The whole sample, byte by byte, against the model. */
    void ExpectSample(bool good = true)
    {
        model::Converted expected = model::Convert(pair.driver, pair.filter, os.Tick(), os.LocalTime());
        EXPECT_EQ(expected.good, good);
        EXPECT_EQ(model::FirstDifference(&sample, expected.sample.data(), model::SampleSize), -1);
    }
    /* Lines without those of the 64 disks that are not there. */
    Strings LinesOfPresentDisks()
    {
        Strings texts = Traced(log.lines);
        texts.erase(std::remove_if(
                        texts.begin(), texts.end(),
                        [](const std::string& text) { return text.find(" initialize 0, skip.") != std::string::npos; }),
                    texts.end());
        return texts;
    }

    Pair       pair;
    DKPF_PARAM sample;
    DWORD      error = 0xDEAD;
};

/* ---- Flags ------------------------------------------------------------------------------------------------------- */

TEST_F(Conversion, ASlotWithState0YieldsFlag0AndZeroValuesInEveryRow)
{
    pair.Disk(0, 1, 1);
    pair.Fill(0);
    pair.Disk(1, 0, 1);
    pair.Fill(1);
    EXPECT_TRUE(Convert());
    EXPECT_EQ(sample.InitFlag[0], 1u);
    EXPECT_EQ(sample.InitFlag[1], 0u);
    for (const model::Row& row : model::Rows) {
        EXPECT_NE(model::Value(&sample, row, 0), 0u) << row.offset;
        EXPECT_EQ(model::Value(&sample, row, 1), 0u) << row.offset;
    }
    ExpectSample();
}

TEST_F(Conversion, AnyStateIsKeptAsFlagAndOnly1LetsTheValuesThrough)
{
    const DWORD states[] = { 0, 1, 2, 0x100, 0x80000000, 0xFFFFFFFF };
    for (unsigned slot = 0; slot < 6; slot++) {
        pair.Disk(slot, states[slot], 0);
        pair.Fill(slot);
    }
    EXPECT_TRUE(Convert());
    for (unsigned slot = 0; slot < 6; slot++) {
        EXPECT_EQ(sample.InitFlag[slot], states[slot]);
        EXPECT_EQ(sample.instance[1].inst_sub[slot].value, slot == 1 ? 2000016u : 0u) << slot;
    }
    ExpectSample();
    Strings expected = { "ENTER",
                         " nmp[1] initialize 0, skip.",
                         " nmp[2] async mode",
                         " nmp[3] initialize 2, skip.",
                         " nmp[4] initialize 256, skip.",
                         " nmp[5] initialize -2147483648, skip.",
                         " nmp[6] initialize -1, skip." };
    Strings texts = log.Texts();
    texts.resize(expected.size());
    EXPECT_EQ(texts, expected);
}

TEST_F(Conversion, WithoutAnyDiskEveryRowNumberIs0)
{
    pair.Fill(7);
    EXPECT_TRUE(Convert());
    EXPECT_EQ(error, 0xB0000000u);
    for (const model::Row& row : model::Rows) {
        EXPECT_EQ(Get<DWORD>(&sample, row.at), 0u) << row.at;
    }
    EXPECT_EQ(sample.param_num, 12u);
    EXPECT_EQ(sample.parammax_num, 7u);
    EXPECT_EQ(sample.sampling_time, os.Tick());
    ExpectSample();
}

TEST_F(Conversion, OneDiskIsEnoughForAllRowNumbers)
{
    pair.Disk(63, 1, 0);
    EXPECT_TRUE(Convert());
    for (DWORD i = 0; i < 12; i++) {
        EXPECT_EQ(sample.instance[i].rawparamID, i);
    }
    for (DWORD k = 0; k < 7; k++) {
        EXPECT_EQ(sample.maxinstance[k].rawparamID, k);
    }
    ExpectSample();
}

TEST_F(Conversion, WhatStoodInTheSampleBeforeIsForgotten)
{
    memset(&sample, 0xFF, sizeof sample);
    EXPECT_TRUE(Convert());
    ExpectSample();
}

/* ---- Modes and rows ---------------------------------------------------------------------------------------------- */

TEST_F(Conversion, AsynchronousModeTakesTheFourQueueRowsFromTheFilter)
{
    pair.Disk(4, 1, 0);
    pair.Value(4, 56, 1, 101);
    pair.Value(4, 88, 2, 102);
    pair.Value(4, 64, 3, 103);
    pair.Value(4, 96, 4, 104);
    EXPECT_TRUE(Convert());
    EXPECT_EQ(sample.instance[5].inst_sub[4].value, 101u);
    EXPECT_EQ(sample.instance[7].inst_sub[4].value, 102u);
    EXPECT_EQ(sample.maxinstance[1].inst_sub[4].value, 103u);
    EXPECT_EQ(sample.maxinstance[3].inst_sub[4].value, 104u);
}

TEST_F(Conversion, SynchronousModeTakesTheFourQueueRowsFromTheDriver)
{
    pair.Disk(4, 1, 1);
    pair.Value(4, 56, 1, 101);
    pair.Value(4, 88, 2, 102);
    pair.Value(4, 64, 3, 103);
    pair.Value(4, 96, 4, 104);
    EXPECT_TRUE(Convert());
    EXPECT_EQ(sample.instance[5].inst_sub[4].value, 1u);
    EXPECT_EQ(sample.instance[7].inst_sub[4].value, 2u);
    EXPECT_EQ(sample.maxinstance[1].inst_sub[4].value, 3u);
    EXPECT_EQ(sample.maxinstance[3].inst_sub[4].value, 4u);
}

TEST_F(Conversion, SummedRowsAreTheSameInBothModes)
{
    for (unsigned slot : { 2u, 3u }) {
        pair.Disk(slot, 1, slot - 2);
        pair.Value(slot, 8, 5, 100);
        pair.Value(slot, 32, 6, 200);
        pair.Value(slot, 48, 7, 300);
        pair.Value(slot, 40, 8, 400);
    }
    EXPECT_TRUE(Convert());
    for (unsigned slot : { 2u, 3u }) {
        EXPECT_EQ(sample.instance[0].inst_sub[slot].value, 105u);
        EXPECT_EQ(sample.instance[3].inst_sub[slot].value, 206u);
        EXPECT_EQ(sample.instance[4].inst_sub[slot].value, 307u);
        EXPECT_EQ(sample.maxinstance[0].inst_sub[slot].value, 408u);
    }
}

TEST_F(Conversion, SumsWrap)
{
    pair.Disk(0, 1, 0);
    pair.Value(0, 8, Largest, 1);
    pair.Value(0, 32, Largest, Largest);
    pair.Value(0, 48, 1ull << 63, 1ull << 63);
    pair.Value(0, 40, Largest, 43);
    EXPECT_TRUE(Convert());
    EXPECT_EQ(sample.instance[0].inst_sub[0].value, 0u);
    EXPECT_EQ(sample.instance[3].inst_sub[0].value, Largest - 1);
    EXPECT_EQ(sample.instance[4].inst_sub[0].value, 0u);
    EXPECT_EQ(sample.maxinstance[0].inst_sub[0].value, 42u);
}

TEST_F(Conversion, TheFiltersModeAndStateAreNotLookedAt)
{
    pair.Disk(0, 1, 1);
    pair.Fill(0);
    Put<DWORD>(pair.filter, Entry(0), 7);
    Put<DWORD>(pair.filter, Entry(0) + 4, 0);
    Put<DWORD>(pair.filter, Entry(1) + 4, 1);
    EXPECT_TRUE(Convert());
    EXPECT_EQ(sample.InitFlag[1], 0u);
    ExpectSample();
}

TEST_F(Conversion, HeaderWordsAndTheEndOfAnEntryAreNotRead)
{
    pair.Disk(0, 1, 0);
    pair.Disk(63, 1, 1);
    for (BYTE* record : { pair.driver, pair.filter }) {
        memset(record, 0xEE, 8);
        for (unsigned slot = 0; slot < 64; slot++) {
            memset(record + Entry(slot) + 160, 0xEE, 96);
        }
    }
    EXPECT_TRUE(Convert());
    for (const model::Row& row : model::Rows) {
        for (unsigned slot = 0; slot < 64; slot++) {
            EXPECT_EQ(model::Value(&sample, row, slot), 0u) << row.at << " slot " << slot;
        }
    }
}

/* Row, mode of the disk, slot. */
class ConversionRow : public Conversion, public testing::WithParamInterface<std::tuple<int, DWORD, unsigned>> {};

// One number of one disk stands in both records, everything else is 0: it may show up in one row and one slot alone.
TEST_P(ConversionRow, ANumberArrivesInItsRowAndNowhereElse)
{
    auto [index, mode, slot] = GetParam();
    const model::Row& own = model::Rows[index];
    pair.Disk(slot, 1, mode);
    pair.Value(slot, own.offset, 0x0123456789ABCDEFull, 0x1000000000000001ull);
    EXPECT_TRUE(Convert());
    ULONGLONG expected = own.from == model::Driver ? 0x0123456789ABCDEFull
                         : own.from == model::Both ? 0x1123456789ABCDF0ull
                         : mode == 0               ? 0x1000000000000001ull
                                                   : 0x0123456789ABCDEFull;
    for (const model::Row& row : model::Rows) {
        for (unsigned s = 0; s < 64; s++) {
            EXPECT_EQ(model::Value(&sample, row, s), row.at == own.at && s == slot ? expected : 0u)
                << "row at " << row.at << ", slot " << s;
        }
    }
}
INSTANTIATE_TEST_SUITE_P(All, ConversionRow,
                         testing::Combine(testing::Range(0, 19), testing::Values(0u, 1u),
                                          testing::Values(0u, 31u, 63u)));

/* ---- Unknown modes ----------------------------------------------------------------------------------------------- */

TEST_F(Conversion, AModeOf2InSlot5EndsItAfterSlots0To4HaveBeenFilled)
{
    for (unsigned slot = 0; slot < 10; slot++) {
        pair.Disk(slot, 1, slot == 5 ? 2 : slot % 2);
        pair.Fill(slot);
    }
    EXPECT_FALSE(Convert());
    EXPECT_EQ(error, 0xB0000017u);
    for (unsigned slot = 0; slot < 64; slot++) {
        EXPECT_EQ(sample.InitFlag[slot], slot <= 5 ? 1u : 0u) << slot;
        EXPECT_EQ(sample.instance[1].inst_sub[slot].value, slot < 5 ? 1000000u * (slot + 1) + 16 : 0u) << slot;
    }
    EXPECT_EQ(sample.sampling_time, 0u);
    EXPECT_EQ(sample.local_time.wDay, 0u);
    EXPECT_EQ(journal.Names(), Strings()) << "no time is taken for a sample that nobody may store";
    ExpectSample(false);
    const std::string name = "diskperf_trace ", routine = " _DkpfConvPerfDrvToShm:";
    EXPECT_EQ(Traced(log.lines),
              Strings({ name + "8" + routine + " ENTER", name + "4" + routine + "  nmp[1] async mode",
                        name + "4" + routine + "  nmp[2] sync mode", name + "4" + routine + "  nmp[3] async mode",
                        name + "4" + routine + "  nmp[4] sync mode", name + "4" + routine + "  nmp[5] async mode",
                        name + "1" + routine + "  nmp[6] mode invalid 2.",
                        name + "8" + routine + " EXIT<FALSE><0xb0000017>" }));
}

struct BadMode {
    unsigned    slot;
    DWORD       mode;
    const char* line;
};
class ConversionBadMode : public Conversion, public testing::WithParamInterface<BadMode> {};

TEST_P(ConversionBadMode, SpoilsTheSample)
{
    const BadMode& bad = GetParam();
    pair.Disk(bad.slot, 1, bad.mode);
    EXPECT_FALSE(Convert());
    EXPECT_EQ(error, 0xB0000017u);
    EXPECT_EQ(log.Errors(), Strings({ bad.line }));
    ExpectSample(false);
}
INSTANTIATE_TEST_SUITE_P(Modes, ConversionBadMode,
                         testing::Values(BadMode{ 0, 2, " nmp[1] mode invalid 2." },
                                         BadMode{ 63, 2, " nmp[64] mode invalid 2." },
                                         BadMode{ 8, 0x100, " nmp[9] mode invalid 256." },
                                         BadMode{ 1, 0x80000000, " nmp[2] mode invalid -2147483648." },
                                         BadMode{ 2, 0xFFFFFFFF, " nmp[3] mode invalid -1." }));

TEST_F(Conversion, AModeIsLookedAtOnlyWhereTheDiskIsPresent)
{
    pair.Disk(0, 0, 2);
    pair.Disk(1, 2, 0xFFFFFFFF);
    pair.Disk(2, 1, 1);
    EXPECT_TRUE(Convert());
    EXPECT_EQ(log.Errors(), Strings());
    ExpectSample();
}

/* ---- Time and traces --------------------------------------------------------------------------------------------- */

TEST_F(Conversion, TheTimesAreTakenLastTickFirst)
{
    os.SetTick(0xFFFFFFF0);
    os.SetTime(2024, 2, 29, 23, 59, 58, 7);
    EXPECT_TRUE(Convert());
    EXPECT_EQ(sample.sampling_time, 0xFFFFFFF0u);
    EXPECT_EQ(sample.local_time.wYear, 2024);
    EXPECT_EQ(sample.local_time.wMonth, 2);
    EXPECT_EQ(sample.local_time.wDayOfWeek, 4);
    EXPECT_EQ(sample.local_time.wDay, 29);
    EXPECT_EQ(sample.local_time.wHour, 23);
    EXPECT_EQ(sample.local_time.wMinute, 59);
    EXPECT_EQ(sample.local_time.wSecond, 58);
    EXPECT_EQ(sample.local_time.wMilliseconds, 7);
    EXPECT_EQ(journal.Names(), Strings({ "GetTickCount", "GetLocalTime" }));
    EXPECT_EQ(journal.All().back().name, "log_write") << "the exit line";
    EXPECT_EQ(journal.Of("log_write").size(), 66u);
}

TEST_F(Conversion, OneLinePerDiskBetweenEntryAndExit)
{
    pair.Disk(0, 1, 0);
    pair.Disk(63, 1, 1);
    EXPECT_TRUE(Convert());
    const std::string routine = " _DkpfConvPerfDrvToShm: ";
    Strings expected = { "diskperf_trace 8" + routine + "ENTER", "diskperf_trace 4" + routine + " nmp[1] async mode" };
    for (int n = 2; n <= 63; n++) {
        expected.push_back("diskperf_trace 16" + routine + " nmp[" + std::to_string(n) + "] initialize 0, skip.");
    }
    expected.push_back("diskperf_trace 4" + routine + " nmp[64] sync mode");
    expected.push_back("diskperf_trace 8" + routine + "EXIT<TRUE><0xb0000000>");
    EXPECT_EQ(Traced(log.lines), expected);
    for (const TraceLine& line : log.lines) {
        EXPECT_EQ(line.source, Source);
        EXPECT_EQ(line.message, 0u);
    }
}

TEST_F(Conversion, ModeLinesComeInEverySampleNotOnlyWhenTheModeChanges)
{
    pair.Disk(2, 1, 1);
    EXPECT_TRUE(Convert());
    EXPECT_TRUE(Convert());
    EXPECT_EQ(log.Texts("diskperf_trace", TNWLOG_NOTICE), Strings({ " nmp[3] sync mode", " nmp[3] sync mode" }));
}

/* ---- Random records ---------------------------------------------------------------------------------------------- */

class ConversionRandom : public Conversion, public testing::WithParamInterface<unsigned> {};

static ULONGLONG RandomValue(std::mt19937_64& random)
{
    switch (random() % 6) {
    case 0:
        return 0;
    case 1:
        return Largest - random() % 3;
    case 2:
        return random() % 1000;
    default:
        return random();
    }
}

// 40 pairs per seed. Seed 0 stands for a fresh one, printed, to be put into the list below if it finds something.
TEST_P(ConversionRandom, RecordsAgreeWithTheModel)
{
    unsigned seed = GetParam() != 0 ? GetParam() : std::random_device()();
    printf("seed %u\n", seed);
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 random(seed);
    unsigned        good = 0, wrapped = 0;
    for (int round = 0; round < 40; round++) {
        for (BYTE* record : { pair.driver, pair.filter }) {
            for (size_t at = 0; at < model::RecordSize; at += 8) {
                Put(record, at, RandomValue(random));
            }
        }
        for (unsigned slot = 0; slot < 64; slot++) {
            DWORD mode = random() % 400 == 0 ? static_cast<DWORD>(random()) : static_cast<DWORD>(random() % 2);
            pair.Disk(slot, random() % 4 == 0 ? static_cast<DWORD>(random() % 4) : 1, mode);
            wrapped += Get<ULONGLONG>(pair.driver, Entry(slot) + 8) + Get<ULONGLONG>(pair.filter, Entry(slot) + 8) <
                               Get<ULONGLONG>(pair.driver, Entry(slot) + 8)
                           ? 1u
                           : 0u;
        }
        os.Advance(random() % 100000);
        memset(&sample, static_cast<int>(random() % 256), sizeof sample);
        model::Converted expected = model::Convert(pair.driver, pair.filter, os.Tick(), os.LocalTime());
        EXPECT_EQ(Convert() != FALSE, expected.good);
        EXPECT_EQ(error, expected.good ? 0xB0000000u : 0xB0000017u);
        ASSERT_EQ(model::FirstDifference(&sample, expected.sample.data(), model::SampleSize), -1) << "round " << round;
        good += expected.good ? 1u : 0u;
    }
    EXPECT_GT(good, 0u);
    EXPECT_GT(wrapped, 0u);
}
INSTANTIATE_TEST_SUITE_P(Seeds, ConversionRandom, testing::Values(0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u));

/* ---- Zero sample ------------------------------------------------------------------------------------------------- */

class ZeroSample : public DiskperfTest {
protected:
    void SetUp() override
    {
        DiskperfTest::SetUp();
        region = AttachRegion();
        g_dwDkpfLogLevel = 0x1F;  // no dumps of whole regions
        region->param_num = 12;
        region->parammax_num = 7;
        region->sampling_time = 5000;
        region->local_time = SYSTEMTIME{ 2026, 3, 6, 7, 14, 5, 9, 42 };
        for (DWORD j = 0; j < 64; j++) {
            region->InitFlag[j] = j % 3;
        }
        for (DWORD i = 0; i < 12; i++) {
            region->instance[i].rawparamID = i;
            FillRow(region->instance[i], 100 * (i + 1));
        }
        for (DWORD k = 0; k < 7; k++) {
            region->maxinstance[0][k].rawparamID = k;
            FillRow(region->maxinstance[0][k], 7000 * (k + 1));
        }
    }
    static void FillRow(DKPF_INSTANCE& row, ULONGLONG first)
    {
        for (DWORD j = 0; j < 64; j++) {
            row.inst_sub[j].value = first + j;
        }
    }
    /* All 64 values of the row. */
    static void ExpectRow(const DKPF_INSTANCE& row, DWORD number, ULONGLONG first, bool zero)
    {
        EXPECT_EQ(row.rawparamID, number);
        for (DWORD j = 0; j < 64; j++) {
            EXPECT_EQ(row.inst_sub[j].value, zero ? 0 : first + j) << "slot " << j;
        }
    }

    DKPF_SHM_INFO* region = nullptr;
    DWORD          error = 0xDEAD;
};

TEST_F(ZeroSample, KeepsRowNumbersAndFlagsSoThatReadersStillSeeWhichDisksExist)
{
    EXPECT_TRUE(_DkpfSetPerfZeroToShm(&error));
    EXPECT_EQ(error, 0xB0000000u);
    for (DWORD j = 0; j < 64; j++) {
        EXPECT_EQ(region->InitFlag[j], j % 3);
    }
    for (DWORD i = 0; i < 12; i++) {
        ExpectRow(region->instance[i], i, 0, true);
    }
    for (DWORD k = 0; k < 7; k++) {
        ExpectRow(region->maxinstance[0][k], k, 0, true);
    }
    EXPECT_EQ(region->param_num, 12u);
    EXPECT_EQ(region->parammax_num, 7u);
    ExpectNothingLeft();
}

TEST_F(ZeroSample, ItsTimesAreZero)
{
    EXPECT_TRUE(_DkpfSetPerfZeroToShm(&error));
    SYSTEMTIME none = {};
    EXPECT_EQ(region->sampling_time, 0u);
    EXPECT_EQ(memcmp(&region->local_time, &none, sizeof none), 0);
    EXPECT_EQ(journal.Number("GetTickCount") + journal.Number("GetLocalTime"), 0u);
}

TEST_F(ZeroSample, TheReadersKeepTheirPeaks)
{
    region->PMProcessID[3] = 1234;
    for (DWORD k = 0; k < 7; k++) {
        region->maxinstance[3][k].rawparamID = 60 + k;
        FillRow(region->maxinstance[3][k], 50 * (k + 1));
        region->maxinstance[4][k].rawparamID = 80 + k;  // nobody's row
        FillRow(region->maxinstance[4][k], 60 * (k + 1));
    }
    EXPECT_TRUE(_DkpfSetPerfZeroToShm(&error));
    for (DWORD k = 0; k < 7; k++) {
        ExpectRow(region->maxinstance[3][k], k, 50 * (k + 1), false);
        ExpectRow(region->maxinstance[4][k], 80 + k, 60 * (k + 1), false);
    }
    EXPECT_EQ(region->PMProcessID[3], 1234u);
}

// The read takes the row numbers out of row 0; the store has to bring them back.
TEST_F(ZeroSample, ASecondOneFindsTheRowNumbersThatTheFirstOneStored)
{
    EXPECT_TRUE(_DkpfSetPerfZeroToShm(&error));
    EXPECT_TRUE(_DkpfSetPerfZeroToShm(&error));
    for (DWORD i = 0; i < 12; i++) {
        EXPECT_EQ(region->instance[i].rawparamID, i);
    }
    for (DWORD k = 0; k < 7; k++) {
        EXPECT_EQ(region->maxinstance[0][k].rawparamID, k);
    }
}

TEST_F(ZeroSample, OnlyTheRowsInUseAreZeroed)
{
    region->param_num = 5;
    region->parammax_num = 2;
    EXPECT_TRUE(_DkpfSetPerfZeroToShm(&error));
    for (DWORD i = 0; i < 12; i++) {
        ExpectRow(region->instance[i], i, 100 * (i + 1), i < 5);
    }
    for (DWORD k = 0; k < 7; k++) {
        ExpectRow(region->maxinstance[0][k], k, 7000 * (k + 1), k < 2);
    }
    EXPECT_EQ(region->param_num, 5u);
    EXPECT_EQ(region->parammax_num, 2u);
}

TEST_F(ZeroSample, CountsOfADamagedRegionReachNoFurtherThanTheRows)
{
    region->param_num = 0xFFFFFFFF;
    region->parammax_num = 13;
    EXPECT_TRUE(_DkpfSetPerfZeroToShm(&error));
    for (DWORD i = 0; i < 12; i++) {
        ExpectRow(region->instance[i], i, 0, true);
    }
    EXPECT_EQ(region->sampling_time, 0u);
    EXPECT_EQ(region->InitFlag[62], 2u);
}

TEST_F(ZeroSample, ReadsThenStoresEachUnderTheRegionsMutex)
{
    EXPECT_TRUE(_DkpfSetPerfZeroToShm(&error));
    EXPECT_EQ(journal.Names(),
              Strings({ "WaitForSingleObject", "ReleaseMutex", "WaitForSingleObject", "ReleaseMutex" }));
    EXPECT_EQ(Traced(log.lines).front(), "diskperf_trace 8 _DkpfSetPerfZeroToShm: ENTER");
    EXPECT_EQ(Traced(log.lines).back(), "diskperf_trace 8 _DkpfSetPerfZeroToShm: EXIT<TRUE><0xb0000000>");
    Strings entries;
    for (const TraceLine& line : log.lines) {
        if (line.log == "diskperf_trace" && line.text == "ENTER :") {
            entries.push_back(line.routine);
        }
    }
    EXPECT_EQ(entries, Strings({ "_DkpfShmGetPerf", "_DkpfShmSetPerf" }));
}
