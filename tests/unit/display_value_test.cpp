/*
 * Display values: the formulas, and each counter from samples worked out by hand.
 */
#include "diskperf_counter.h"
#include "unit/lifecycle_fixture.h"

#include <algorithm>
#include <cstring>

constexpr ULONGLONG Top = 0xFFFFFFFFFFFFFFFFull;   // 2^64 - 1
constexpr ULONGLONG Half = 0x8000000000000000ull;  // 2^63

/* ---- Formulas ---- */

TEST(DisplayFormula, RatioIsThePartInPerCentTruncated)
{
    EXPECT_EQ(_DkpfRatio(0, 0, 1000, 500), 50u);
    EXPECT_EQ(_DkpfRatio(100, 50, 400, 249), 66u) << "199 of 300";
    EXPECT_EQ(_DkpfRatio(0, 0, 10, 30), 300u) << "the part may be more than the whole";
}

TEST(DisplayFormula, RatioIs100WhereEitherInputStoodStill)
{
    EXPECT_EQ(_DkpfRatio(7, 5, 7, 9), 100u);
    EXPECT_EQ(_DkpfRatio(7, 5, 9, 5), 100u);
    EXPECT_EQ(_DkpfRatio(7, 5, 7, 5), 100u);
    EXPECT_EQ(_DkpfRatio(0, 0, 0, 0), 100u);
}

TEST(DisplayFormula, RatioThatTruncatesTo0Shows1)
{
    EXPECT_EQ(_DkpfRatio(0, 0, 1000, 1), 1u);
    EXPECT_EQ(_DkpfRatio(0, 0, 101, 1), 1u) << "0.99 per cent";
    EXPECT_EQ(_DkpfRatio(0, 0, 100, 1), 1u) << "exactly one";
    EXPECT_EQ(_DkpfRatio(0, 0, 100, 2), 2u);
}

TEST(DisplayFormula, RatioOfAWholeThatWentBackShows1)
{
    EXPECT_EQ(_DkpfRatio(1000, 0, 999, 1), 1u) << "the whole's difference wraps to 2^64 - 1";
}

TEST(DisplayFormula, RatioOfAPartThatWentBackWraps)
{
    // -1 * 100 = 2^64 - 100 after the wrap; by 10
    EXPECT_EQ(_DkpfRatio(0, 1, 10, 0), (Top - 99) / 10);
    EXPECT_EQ(_DkpfRatio(10, 10, 0, 0), 1u) << "both back: 2^64 - 1000 by 2^64 - 10 is 0, shown as 1";
}

TEST(DisplayFormula, RatioMultipliesFirstAndItsProductWraps)
{
    // 2^58 * 100 = 25 * 2^60 = 2^64 + 9 * 2^60; by 2^58 that is 36, not 100.
    EXPECT_EQ(_DkpfRatio(0, 0, 1ull << 58, 1ull << 58), 36u);
    // 2^62 * 100 = 25 * 2^64, which wraps to 0 and is raised to 1.
    EXPECT_EQ(_DkpfRatio(0, 0, 1ull << 62, 1ull << 62), 1u);
}

TEST(DisplayFormula, AverageIsRoundedUp)
{
    EXPECT_EQ(_DkpfAverage(0, 0, 100, 10), 10u);
    EXPECT_EQ(_DkpfAverage(0, 0, 101, 10), 11u);
    EXPECT_EQ(_DkpfAverage(0, 0, 109, 10), 11u);
    EXPECT_EQ(_DkpfAverage(0, 0, 1, 10), 1u);
    EXPECT_EQ(_DkpfAverage(5, 0, 5, 10), 0u) << "nothing to divide";
}

TEST(DisplayFormula, AverageIs0WhereTheDivisorStoodStillOrWentBack)
{
    EXPECT_EQ(_DkpfAverage(0, 5, 100, 5), 0u);
    EXPECT_EQ(_DkpfAverage(0, 5, 100, 4), 0u);
    EXPECT_EQ(_DkpfAverage(0, Top, 100, 0), 0u) << "no wrap of the divisor";
}

TEST(DisplayFormula, AverageOfADividendThatWentBackIsHuge)
{
    EXPECT_EQ(_DkpfAverage(10, 0, 9, 1), Top);
    EXPECT_EQ(_DkpfAverage(10, 0, 9, 2), Half) << "(2^64 - 1) / 2 rounded up: rounding must not overflow";
}

TEST(DisplayFormula, AverageComparesItsDivisorsUnsigned)
{
    EXPECT_EQ(_DkpfAverage(0, 1, 100, Half + 1), 1u);
    EXPECT_EQ(_DkpfAverage(0, Half, 100, 1), 0u);
}

TEST(DisplayFormula, RateIsPerSecondAndRoundedUp)
{
    EXPECT_EQ(_DkpfRate(0, 0, 10, 1000), 10u);
    EXPECT_EQ(_DkpfRate(0, 0, 10, 3000), 4u) << "3.33";
    EXPECT_EQ(_DkpfRate(0, 0, 1, 4000000), 1u);
    EXPECT_EQ(_DkpfRate(5, 0, 5, 1000), 0u);
}

TEST(DisplayFormula, RateAcrossATickWrapUsesTheTrueInterval)
{
    EXPECT_EQ(_DkpfRate(0, 0xFFFFFF00, 512, 0x00000100), 1000u) << "512 ms";
    EXPECT_EQ(_DkpfRate(0, 0xFFFFFF00, 1, 0x00000100), 2u) << "1000 / 512 rounded up";
}

TEST(DisplayFormula, RateIs0WhereTheValueWentBackOrNoTimePassed)
{
    EXPECT_EQ(_DkpfRate(10, 0, 9, 1000), 0u);
    EXPECT_EQ(_DkpfRate(Top, 0, 0, 1000), 0u) << "no wrap of the value";
    EXPECT_EQ(_DkpfRate(0, 5, 10, 5), 0u);
}

TEST(DisplayFormula, RateComparesItsValuesUnsigned)
{
    EXPECT_EQ(_DkpfRate(1, 0, Half + 1, 1000), 0u) << "2^63 * 1000 wraps to 0";
    EXPECT_EQ(_DkpfRate(Half - 1, 0, Half, 1000), 1u);
}

TEST(DisplayFormula, RateMultipliesFirstAndItsProductWraps)
{
    // 2^61 * 1000 = 125 * 2^64, wraps to 0; with one more, 1000 stay.
    EXPECT_EQ(_DkpfRate(0, 0, 1ull << 61, 1), 0u);
    EXPECT_EQ(_DkpfRate(0, 0, (1ull << 61) + 1, 1000), 1u);
}

/* ---- Samples ---- */

class DisplayValue : public LinesTest {
protected:
    void Compute()
    {
        EXPECT_TRUE(_DkpfCmnGetDisplayValue(&cur, &prev, &disp, &raw, &code));
        EXPECT_EQ(code, 0xB0000000u);
    }

    static ULONGLONG& Value(DKPF_PARAM& sample, unsigned row, unsigned slot)
    {
        return sample.instance[row].inst_sub[slot].value;
    }
    static ULONGLONG& Peak(DKPF_PARAM& sample, unsigned row, unsigned slot)
    {
        return sample.maxinstance[row].inst_sub[slot].value;
    }

    /* 12 current and 7 peak values of one disk. */
    static void Fill(DKPF_PARAM& sample, unsigned slot, const ULONGLONG (&values)[12], const ULONGLONG (&peaks)[7])
    {
        for (unsigned i = 0; i < 12; i++) {
            Value(sample, i, slot) = values[i];
        }
        for (unsigned i = 0; i < 7; i++) {
            Peak(sample, i, slot) = peaks[i];
        }
    }

    void ExpectRow(unsigned row, const ULONGLONG (&expected)[17])
    {
        for (unsigned j = 0; j < 17; j++) {
            EXPECT_EQ(disp.value[row][j], expected[j]) << "row " << row << ", counter " << j;
        }
    }

    /* Two disks, the first and the last slot, 2500 ms between the samples. */
    void TwoDisks()
    {
        prev.sampling_time = 1000;
        cur.sampling_time = 3500;
        Fill(prev, 0, { 1000, 500, 200, 300, 10, 1, 2, 3, 4, 5, 70, 7 }, { 901, 902, 903, 904, 905, 906, 907 });
        Fill(cur, 0, { 6000, 1500, 500, 1000, 13, 11, 12, 13, 14, 15, 171, 9 }, { 21, 22, 23, 24, 25, 26, 27 });
        Fill(prev, 63, { 50, 10, 10, 40, 4, 9, 9, 9, 9, 9, 20, 2 }, { 911, 912, 913, 914, 915, 916, 917 });
        Fill(cur, 63, { 57, 30, 15, 45, 6, 101, 102, 103, 104, 105, 25, 5 }, { 31, 12, 33, 14, 35, 16, 37 });
    }

    DKPF_PARAM    prev = {}, cur = {};
    DKPF_DISP     disp = {};
    DKPF_RAWTOTAL raw = {};
    DWORD         code = 1;
};

TEST_F(DisplayValue, TwoDisksShowTheirSeventeenCounters)
{
    TwoDisks();
    Compute();
    //            30 %    1   2   3   4  51  6   7   8   9  10  delta rate 13  14  avg 16
    ExpectRow(1, { 30, 13, 24, 15, 26, 51, 27, 11, 22, 12, 23, 5000, 2000, 14, 25, 234, 21 });
    ExpectRow(64, { 25, 103, 14, 105, 16, 2, 37, 101, 12, 102, 33, 7, 3, 104, 35, 3, 31 });
}

TEST_F(DisplayValue, TheTotalAddsLevelsAndDeltasTakesTheLargestPeakAndComputesTheRestFromSums)
{
    TwoDisks();
    Compute();
    // ratio 30500 / 1020, averages 106 / 5 and 705 / 5, rate 5007000 / 2500
    ExpectRow(0, { 29, 116, 24, 120, 26, 22, 37, 112, 22, 114, 33, 5007, 2003, 118, 35, 141, 31 });
}

TEST_F(DisplayValue, RawTotalsAreTheSumsAndLargestPeaksOfTheCurrentSample)
{
    TwoDisks();
    Compute();
    const ULONGLONG expected[19] = { 6057, 1530, 515, 1045, 19, 112, 114, 116, 118, 120,
                                     196,  14,   31,  22,   33, 24,  35,  26,  37 };
    for (unsigned i = 0; i < 19; i++) {
        EXPECT_EQ(raw.value[i], expected[i]) << "raw total " << i;
    }
}

TEST_F(DisplayValue, DiskSlotsNotInUseShow100ForTheirRatioAnd0ElsewhereAndAddNothing)
{
    TwoDisks();
    Compute();
    for (unsigned row = 2; row <= 63; row++) {
        ExpectRow(row, { 100, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 });
    }
}

TEST_F(DisplayValue, EmptySamplesShow100ForTheTotalsRatioAnd0Elsewhere)
{
    Compute();
    ExpectRow(0, { 100, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 });
    EXPECT_EQ(raw.value[0], 0u);
}

TEST_F(DisplayValue, TwoIdenticalSamplesShowRatio100NoGrowthAndTheCurrentLevelsAndPeaks)
{
    TwoDisks();
    prev = cur;
    Compute();
    ExpectRow(1, { 100, 13, 24, 15, 26, 0, 27, 11, 22, 12, 23, 0, 0, 14, 25, 0, 21 });
    ExpectRow(64, { 100, 103, 14, 105, 16, 0, 37, 101, 12, 102, 33, 0, 0, 104, 35, 0, 31 });
    ExpectRow(0, { 100, 116, 24, 120, 26, 0, 37, 112, 22, 114, 33, 0, 0, 118, 35, 0, 31 });
    EXPECT_EQ(raw.value[0], 6057u);
}

TEST_F(DisplayValue, ARatioThatTruncatesTo0Shows1InItsRowAndInTheTotal)
{
    Value(cur, 1, 5) = 1000;
    Value(cur, 2, 5) = 1;
    Compute();
    EXPECT_EQ(disp.value[6][0], 1u);
    EXPECT_EQ(disp.value[0][0], 1u);
}

TEST_F(DisplayValue, ARatioWhoseWholeWentBackWhileThePartGrewALittleShows1)
{
    Value(prev, 1, 5) = 1000;
    Value(cur, 1, 5) = 10;
    Value(cur, 2, 5) = 3;
    Compute();
    EXPECT_EQ(disp.value[6][0], 1u);
}

TEST_F(DisplayValue, AnAverageWhoseDivisorWentBackShows0)
{
    for (auto [dividend, divisor, counter] : { std::tuple{ 10u, 11u, 5u }, std::tuple{ 3u, 4u, 15u } }) {
        Value(cur, dividend, 5) = 500;
        Value(prev, divisor, 5) = 5;
        Value(cur, divisor, 5) = 4;
        Compute();
        EXPECT_EQ(disp.value[6][counter], 0u);
        EXPECT_EQ(disp.value[0][counter], 0u);
    }
}

TEST_F(DisplayValue, AnAverageWhoseDividendWentBackButDivisorGrewShowsAHugeValue)
{
    for (auto [dividend, divisor, counter] : { std::tuple{ 10u, 11u, 5u }, std::tuple{ 3u, 4u, 15u } }) {
        Value(prev, dividend, 5) = 7;
        Value(cur, dividend, 5) = 4;
        Value(cur, divisor, 5) = 1;
        Compute();
        EXPECT_EQ(disp.value[6][counter], Top - 2);
    }
}

TEST_F(DisplayValue, ARateAcrossATickWrapUsesAnIntervalOf512Ms)
{
    prev.sampling_time = 0xFFFFFF00;
    cur.sampling_time = 0x00000100;
    Value(prev, 0, 5) = 1000;
    Value(cur, 0, 5) = 1512;
    Compute();
    EXPECT_EQ(disp.value[6][12], 1000u);
    EXPECT_EQ(disp.value[0][12], 1000u);
}

TEST_F(DisplayValue, ARateWhoseValueDecreasedShows0)
{
    cur.sampling_time = 1000;
    Value(prev, 0, 5) = 1000;
    Value(cur, 0, 5) = 999;
    Compute();
    EXPECT_EQ(disp.value[6][12], 0u);
    EXPECT_EQ(disp.value[0][12], 0u);
}

TEST_F(DisplayValue, ADiskThatLeavesWrapsItsDeltaAndThatOfTheTotal)
{
    cur.sampling_time = 1000;
    Value(prev, 0, 5) = 1000;
    Value(prev, 0, 6) = 100;
    Value(cur, 0, 6) = 110;
    Compute();
    EXPECT_EQ(disp.value[6][11], Top - 999);
    EXPECT_EQ(disp.value[7][11], 10u);
    EXPECT_EQ(disp.value[0][11], Top - 989);
    EXPECT_EQ(disp.value[0][12], 0u) << "the sum went back";
}

TEST_F(DisplayValue, ADiskThatAppearsShowsItsWholeRunningSum)
{
    cur.sampling_time = 1000;
    Value(cur, 0, 5) = 123456;
    Compute();
    EXPECT_EQ(disp.value[6][11], 123456u);
    EXPECT_EQ(disp.value[6][12], 123456u);
}

TEST_F(DisplayValue, RawTotalSlot0IsTheSumOfTheCurrentValuesNotOfTheDeltas)
{
    for (unsigned d = 0; d < 64; d++) {
        Value(prev, 0, d) = 1000 * (d + 1);
        Value(cur, 0, d) = 1000 * (d + 1) + 1;
    }
    Compute();
    EXPECT_EQ(disp.value[0][11], 64u);
    EXPECT_EQ(raw.value[0], 2080064u) << "1000 * (1 + ... + 64) + 64";
}

TEST_F(DisplayValue, All64SlotsCountWhateverTheFlagsAndTheNumbersOfRowsSay)
{
    cur.param_num = 0;
    cur.parammax_num = 0;
    for (unsigned d = 0; d < 64; d++) {
        cur.InitFlag[d] = 0;
        Value(cur, 7, d) = 1ull << d;
        Peak(cur, 3, d) = d + 1;
    }
    Compute();
    for (unsigned d = 0; d < 64; d++) {
        EXPECT_EQ(disp.value[1 + d][1], 1ull << d);
        EXPECT_EQ(disp.value[1 + d][2], d + 1);
    }
    EXPECT_EQ(disp.value[0][1], Top) << "each slot once";
    EXPECT_EQ(disp.value[0][2], 64u);
}

TEST_F(DisplayValue, PeaksAreComparedUnsigned)
{
    Peak(cur, 6, 3) = 5;
    Peak(cur, 6, 4) = Half + 1;
    Peak(cur, 6, 5) = 7;
    Compute();
    EXPECT_EQ(disp.value[0][6], Half + 1);
    EXPECT_EQ(raw.value[12 + 6], Half + 1);
}

TEST_F(DisplayValue, SumsOfLevelsWrap)
{
    Value(cur, 9, 0) = Top;
    Value(cur, 9, 1) = 5;
    Compute();
    EXPECT_EQ(disp.value[0][3], 4u);
    EXPECT_EQ(raw.value[9], 4u);
}

TEST_F(DisplayValue, OutputsThatWereNotZeroedAccumulate)
{
    TwoDisks();
    std::fill(&disp.value[0][0], &disp.value[0][0] + 65 * 17, 30);
    std::fill(raw.value, raw.value + 19, 30);
    Compute();
    // Levels and delta start from 30, peaks where 30 is larger keep it; ratio, averages and rate are computed anew.
    ExpectRow(0, { 29, 146, 30, 150, 30, 22, 37, 142, 30, 144, 33, 5037, 2003, 148, 35, 141, 31 });
    ExpectRow(1, { 30, 13, 24, 15, 26, 51, 27, 11, 22, 12, 23, 5000, 2000, 14, 25, 234, 21 });
    // Sums of levels start from 30; those of the seven rows behind ratio, averages and rate are set; peaks follow the
    // total.
    const ULONGLONG expected[19] = { 6057, 1530, 515, 1045, 19, 142, 144, 146, 148, 150,
                                     196,  14,   31,  30,   33, 30,  35,  30,  37 };
    for (unsigned i = 0; i < 19; i++) {
        EXPECT_EQ(raw.value[i], expected[i]) << "raw total " << i;
    }
}

TEST_F(DisplayValue, TheSamplesAreOnlyRead)
{
    TwoDisks();
    DKPF_PARAM prevBefore = prev, curBefore = cur;
    Compute();
    EXPECT_EQ(memcmp(&prev, &prevBefore, sizeof prev), 0);
    EXPECT_EQ(memcmp(&cur, &curBefore, sizeof cur), 0);
}

TEST_F(DisplayValue, TakesNoLockAndNoMemoryAndTracesEntryAndExitAlone)
{
    TwoDisks();
    Compute();
    EXPECT_EQ(journal.Names(), Strings());
    EXPECT_EQ(Lines(0xFFFFFFFF), Strings({
                                     "diskperf_trace 8 _DkpfCmnGetDisplayValue: ENTER",
                                     "diskperf_trace 8 _DkpfCmnGetDisplayValue: EXIT<TRUE><0xb0000000>",
                                 }));
}

/* ---- Sources of levels and peaks ---- */

/* A counter that shows one row of the current sample. */
struct Source {
    unsigned counter;
    bool     peak;
    unsigned row;
};
static std::ostream& operator<<(std::ostream& out, const Source& source)
{
    return out << "counter " << source.counter;
}

class DisplaySource : public DisplayValue, public testing::WithParamInterface<Source> {};

TEST_P(DisplaySource, ShowsItsRowOfTheCurrentSampleAndNoOther)
{
    const Source& source = GetParam();
    for (unsigned d = 0; d < 64; d++) {
        for (unsigned i = 0; i < 12; i++) {
            Value(prev, i, d) = 7;
            Value(cur, i, d) = 7;
        }
        for (unsigned k = 0; k < 7; k++) {
            Peak(prev, k, d) = 9;
            Peak(cur, k, d) = 9;
        }
        (source.peak ? Peak(cur, source.row, d) : Value(cur, source.row, d)) = 1000 + d;
    }
    Compute();
    const unsigned  rawSlot = source.peak ? 12 + source.row : source.row;
    const ULONGLONG total = source.peak ? 1063 : 66016;  // 64 * 1000 + (0 + ... + 63)
    for (unsigned d = 0; d < 64; d++) {
        EXPECT_EQ(disp.value[1 + d][source.counter], 1000 + d);
    }
    EXPECT_EQ(disp.value[0][source.counter], total);
    EXPECT_EQ(raw.value[rawSlot], total);
}

INSTANTIATE_TEST_SUITE_P(Counters, DisplaySource,
                         testing::Values(Source{ 1, false, 7 }, Source{ 2, true, 3 }, Source{ 3, false, 9 },
                                         Source{ 4, true, 5 }, Source{ 6, true, 6 }, Source{ 7, false, 5 },
                                         Source{ 8, true, 1 }, Source{ 9, false, 6 }, Source{ 10, true, 2 },
                                         Source{ 13, false, 8 }, Source{ 14, true, 4 }, Source{ 16, true, 0 }),
                         [](const auto& source) { return "Counter" + std::to_string(source.param.counter); });

/* ---- Refused arguments ---- */

class DisplayArguments : public DisplayValue {
protected:
    void ExpectRefused(const DKPF_PARAM* lpCur, const DKPF_PARAM* lpPrev, DKPF_DISP* lpDisp, DKPF_RAWTOTAL* lpRaw,
                       const std::string& name)
    {
        TwoDisks();
        EXPECT_FALSE(_DkpfCmnGetDisplayValue(lpCur, lpPrev, lpDisp, lpRaw, &code));
        EXPECT_EQ(code, 0xB0000004u);
        EXPECT_EQ(Lines(0xFFFFFFFF),
                  Strings({
                      "diskperf_trace 8 _DkpfCmnGetDisplayValue: ENTER",
                      "diskperf_trace 1 _DkpfCmnGetDisplayValue:  Invalid Parameter(" + name + "==NULL).",
                      "diskperf_trace 8 _DkpfCmnGetDisplayValue: EXIT<FALSE><0xb0000004>",
                  }));
        const DKPF_DISP     noValues = {};
        const DKPF_RAWTOTAL noTotals = {};
        EXPECT_EQ(memcmp(&disp, &noValues, sizeof disp), 0) << "nothing is written";
        EXPECT_EQ(memcmp(&raw, &noTotals, sizeof raw), 0) << "nothing is written";
    }
};

TEST_F(DisplayArguments, NoCurrentSampleIsRefused)
{
    ExpectRefused(nullptr, &prev, &disp, &raw, "lpCurrentParam");
}

TEST_F(DisplayArguments, NoPreviousSampleIsRefused)
{
    ExpectRefused(&cur, nullptr, &disp, &raw, "lpPreviousParam");
}

TEST_F(DisplayArguments, NoDisplayRecordIsRefused)
{
    ExpectRefused(&cur, &prev, nullptr, &raw, "lpDispCounter");
}

TEST_F(DisplayArguments, NoRawTotalRecordIsRefused)
{
    ExpectRefused(&cur, &prev, &disp, nullptr, "lpRawTotal");
}

TEST_F(DisplayArguments, TheFirstMissingOneIsNamed)
{
    ExpectRefused(nullptr, nullptr, nullptr, nullptr, "lpCurrentParam");
    log.ClearLines();
    ExpectRefused(&cur, nullptr, nullptr, nullptr, "lpPreviousParam");
    log.ClearLines();
    ExpectRefused(&cur, &prev, nullptr, nullptr, "lpDispCounter");
}

/* ---- The guard ----------------------------------------------------------------------------------------------------
 */

/* Puts another kind into counter j of the library's table for the time of a case: no call from outside can. Finds the
 * table by its bytes; each unit of the library that uses it has a copy. */
class OtherKind {
public:
    OtherKind(HMODULE module, DWORD j, int kind)
    {
        BYTE* const base = reinterpret_cast<BYTE*>(module);
        const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
        const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
        const auto* section = reinterpret_cast<const IMAGE_SECTION_HEADER*>(
            reinterpret_cast<const BYTE*>(&nt->OptionalHeader) + nt->FileHeader.SizeOfOptionalHeader);
        for (WORD i = 0; i < nt->FileHeader.NumberOfSections; i++) {
            if (memcmp(section[i].Name, ".rdata", 7) != 0) {
                continue;
            }
            BYTE* const start = base + section[i].VirtualAddress;
            for (DWORD at = 0; at + sizeof g_aCounter <= section[i].Misc.VirtualSize; at += 4) {
                if (memcmp(start + at, g_aCounter, sizeof g_aCounter) == 0) {
                    m_kinds.push_back(start + at + j * sizeof g_aCounter[0]);
                }
            }
        }
        m_old = g_aCounter[j].kind;
        Store(kind);
    }
    ~OtherKind()
    {
        Store(m_old);
    }
    OtherKind(const OtherKind&) = delete;
    OtherKind& operator=(const OtherKind&) = delete;

    size_t Copies() const
    {
        return m_kinds.size();
    }

private:
    void Store(int kind)
    {
        for (BYTE* place : m_kinds) {
            DWORD old = 0;
            VirtualProtect(place, sizeof kind, PAGE_READWRITE, &old);
            memcpy(place, &kind, sizeof kind);
            VirtualProtect(place, sizeof kind, old, &old);
        }
    }

    std::vector<BYTE*> m_kinds;
    int                m_old = 0;
};

class DisplayGuard : public DiskperfTest {};

TEST_F(DisplayGuard, ACounterOfUnknownKindIsRefusedWithItsIndex)
{
    const OtherKind other(GetModuleHandleA("diskperf_testee.dll"), 3, 99);
    ASSERT_GE(other.Copies(), 1u);
    static const DKPF_PARAM before = {}, now = {};
    static DKPF_DISP        display;
    static DKPF_RAWTOTAL    total;
    DWORD                   code = 0;
    EXPECT_FALSE(_DkpfCmnGetDisplayValue(&now, &before, &display, &total, &code));
    EXPECT_EQ(code, 0xB000FFFFu);
    ASSERT_EQ(log.lines.size(), 3u);
    EXPECT_EQ(log.lines[1].level, 1u);
    EXPECT_EQ(log.lines[1].log, "diskperf_trace");
    EXPECT_EQ(log.lines[1].text, " Invalid disp value.(3)");
    EXPECT_EQ(log.lines[2].text, "EXIT<FALSE><0xb000ffff>");
}
