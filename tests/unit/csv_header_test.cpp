/*
 * The header lines of the CSV files.
 */
#include <limits.h>
#include <stdio.h>

#include "support/csv_fixture.h"
#include "support/golden.h"

static const char Display[] = "_DkpfPlogHeaderStr";
static const char Raw[] = "_DkpfPlogHeaderStrRaw";

/* String numbers of the columns behind the first. */
using Columns = std::vector<int>;
static const Columns AllDisplay = { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 11, 13, 14, 15, 16 };
static const Columns AllRaw = { 17, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37 };

class CsvHeader : public CsvTest {
protected:
    /* Strings that tell their number, so that no two columns look the same. */
    void NumberedStrings()
    {
        for (DWORD i = 0; i < 41; i++) {
            SetString(i, "s" + std::to_string(i));
        }
    }
    /* The header of numbered strings. */
    static std::string Numbered(const std::string& instance, const Columns& columns)
    {
        std::string line = "\"s38\"";
        for (int number : columns) {
            line += ",\"\\\\SERVER1\\Cluster Disk Resource Performance(" + instance + ")\\s" + std::to_string(number) +
                    "\"";
        }
        return line;
    }
};

/* ---- Whole lines ------------------------------------------------------------------------------------------------- */

TEST_F(CsvHeader, TheFullDisplayHeaderOfADisk)
{
    EXPECT_TRUE(_DkpfPlogHeaderStr(3, 0x1FFFF, buffer, &error));
    EXPECT_EQ(std::string(buffer), Golden("display_header"));
    EXPECT_EQ(error, 0xB0000000u);
    EXPECT_EQ(Traced(), TracedBy(Display, Golden("display_header")));
    EXPECT_EQ(journal.Names(), Strings()) << "no call but traces";
}

TEST_F(CsvHeader, TheFullRawHeaderOfADisk)
{
    EXPECT_TRUE(_DkpfPlogHeaderStrRaw(64, buffer, &error));
    EXPECT_EQ(std::string(buffer), Golden("raw_header"));
    EXPECT_EQ(error, 0xB0000000u);
    EXPECT_EQ(Traced(), TracedBy(Raw, Golden("raw_header")));
    EXPECT_EQ(journal.Names(), Strings());
}

// There is no third builder: the raw total file is index 0 of the raw one.
TEST_F(CsvHeader, TheRawHeaderOfTheTotal)
{
    EXPECT_TRUE(_DkpfPlogHeaderStrRaw(0, buffer, &error));
    EXPECT_EQ(std::string(buffer), Golden("raw_total_header"));
}

TEST_F(CsvHeader, LinesNameTheirSource)
{
    EXPECT_TRUE(_DkpfPlogHeaderStr(1, 1, buffer, &error));
    EXPECT_TRUE(_DkpfPlogHeaderStrRaw(1, buffer, &error));
    EXPECT_FALSE(_DkpfPlogHeaderStrRaw(65, buffer, &error));
    EXPECT_EQ(log.lines.size(), 9u);
    for (const TraceLine& line : log.lines) {
        EXPECT_EQ(line.source, "diskperf/src/diskperf_pflog");
    }
}

TEST_F(CsvHeader, TheBufferIsWrittenFromItsStart)
{
    NumberedStrings();
    EXPECT_TRUE(_DkpfPlogHeaderStrRaw(64, buffer, &error));
    EXPECT_TRUE(_DkpfPlogHeaderStr(1, 1, buffer, &error));
    EXPECT_EQ(std::string(buffer), Numbered("s391", { 0 }));
    EXPECT_TRUE(_DkpfPlogHeaderStrRaw(2, buffer, &error));
    EXPECT_EQ(std::string(buffer), Numbered("s392", AllRaw));
}

/* ---- Column masks ------------------------------------------------------------------------------------------------ */

class CsvHeaderMask : public CsvHeader, public testing::WithParamInterface<Mask> {};

TEST_P(CsvHeaderMask, SelectsItsColumnsInBitOrder)
{
    NumberedStrings();
    EXPECT_TRUE(_DkpfPlogHeaderStr(7, GetParam().mask, buffer, &error));
    EXPECT_EQ(std::string(buffer), Numbered("s397", GetParam().counters));
    EXPECT_EQ(error, 0xB0000000u);
    EXPECT_EQ(Traced(), TracedBy(Display, buffer));
}

TEST_P(CsvHeaderMask, MeansTheSameForTheTotal)
{
    NumberedStrings();
    EXPECT_TRUE(_DkpfPlogHeaderStr(0, GetParam().mask, buffer, &error));
    EXPECT_EQ(std::string(buffer), Numbered("s40", GetParam().counters));
}

INSTANTIATE_TEST_SUITE_P(EachBit, CsvHeaderMask, testing::ValuesIn(EachBitAlone()), MaskName);
INSTANTIATE_TEST_SUITE_P(BitsThatMeanNothing, CsvHeaderMask,
                         testing::Values(Mask{ 0x20000, {} }, Mask{ 0x40000, {} }, Mask{ 0x80000, {} },
                                         Mask{ 0x100000, {} }, Mask{ 0x200000, {} }, Mask{ 0x400000, {} },
                                         Mask{ 0x800000, {} }, Mask{ 0x1000000, {} }, Mask{ 0x2000000, {} },
                                         Mask{ 0x4000000, {} }, Mask{ 0x8000000, {} }, Mask{ 0x10000000, {} },
                                         Mask{ 0x20000000, {} }, Mask{ 0x40000000, {} }, Mask{ 0x80000000, {} }),
                         MaskName);
INSTANTIATE_TEST_SUITE_P(Several, CsvHeaderMask,
                         testing::Values(Mask{ 0, {} }, Mask{ 0x1800, { 12, 11 } }, Mask{ 0xFFFE0000, {} },
                                         Mask{ 0x1FFFF, AllDisplay }, Mask{ 0xFFFFFFFF, AllDisplay },
                                         Mask{ 0x15555, { 0, 2, 4, 6, 8, 10, 11, 14, 16 } },
                                         Mask{ 0x0AAAA, { 1, 3, 5, 7, 9, 12, 13, 15 } }, Mask{ 0x10001, { 0, 16 } },
                                         Mask{ 0x3C00, { 10, 12, 11, 13 } }),
                         MaskName);

TEST_F(CsvHeader, TheMask0x1800TitlesString12FirstThenString11)
{
    EXPECT_TRUE(_DkpfPlogHeaderStr(1, 0x1800, buffer, &error));
    EXPECT_STREQ(buffer, "\"(PDH-CSV 4.0)\""
                         ",\"\\\\SERVER1\\Cluster Disk Resource Performance(NMP1)\\Write Bytes/sec\""
                         ",\"\\\\SERVER1\\Cluster Disk Resource Performance(NMP1)\\Write Bytes\"");
}

TEST_F(CsvHeader, TheMask0xFFFE0000GivesTheTimeStampColumnOnly)
{
    EXPECT_TRUE(_DkpfPlogHeaderStr(1, 0xFFFE0000, buffer, &error));
    EXPECT_STREQ(buffer, "\"(PDH-CSV 4.0)\"");
}

/* ---- Instances --------------------------------------------------------------------------------------------------- */

class CsvHeaderIndex : public CsvHeader, public testing::WithParamInterface<std::pair<int, const char*>> {};

TEST_P(CsvHeaderIndex, NamesTheInstance)
{
    auto [index, instance] = GetParam();
    NumberedStrings();
    SetString(39, "NMP");
    SetString(40, "_Total");
    EXPECT_TRUE(_DkpfPlogHeaderStr(index, 5, buffer, &error));
    EXPECT_EQ(std::string(buffer), Numbered(instance, { 0, 2 }));
    EXPECT_TRUE(_DkpfPlogHeaderStrRaw(index, buffer, &error));
    EXPECT_EQ(std::string(buffer), Numbered(instance, AllRaw));
}
INSTANTIATE_TEST_SUITE_P(Good, CsvHeaderIndex,
                         testing::Values(std::pair(0, "_Total"), std::pair(1, "NMP1"), std::pair(9, "NMP9"),
                                         std::pair(10, "NMP10"), std::pair(32, "NMP32"), std::pair(63, "NMP63"),
                                         std::pair(64, "NMP64")));

class CsvHeaderBadIndex : public CsvHeader, public testing::WithParamInterface<std::pair<int, const char*>> {
protected:
    void ExpectRefused(BOOL result, const std::string& routine)
    {
        EXPECT_FALSE(result);
        EXPECT_EQ(error, 0xB0000004u);
        EXPECT_EQ(Traced(), Strings({ "8 diskperf_trace " + routine + ": ENTER : ",
                                      "1 diskperf_trace " + routine + ": " + GetParam().second,
                                      "8 diskperf_trace " + routine + ": EXIT<FALSE>" }));
        for (size_t i = 0; i < Size; i++) {
            ASSERT_EQ(buffer[i], '#') << "the buffer stays untouched, byte " << i;
        }
    }
};

TEST_P(CsvHeaderBadIndex, IsRefusedByTheDisplayHeader)
{
    ExpectRefused(_DkpfPlogHeaderStr(GetParam().first, 0x1FFFF, buffer, &error), Display);
}

TEST_P(CsvHeaderBadIndex, IsRefusedByTheRawHeader)
{
    ExpectRefused(_DkpfPlogHeaderStrRaw(GetParam().first, buffer, &error), Raw);
}
INSTANTIATE_TEST_SUITE_P(Bad, CsvHeaderBadIndex,
                         testing::Values(std::pair(-1, "Invalid NMP Index(-1)."),
                                         std::pair(65, "Invalid NMP Index(65)."),
                                         std::pair(66, "Invalid NMP Index(66)."),
                                         std::pair(256, "Invalid NMP Index(256)."),
                                         std::pair(INT_MAX, "Invalid NMP Index(2147483647)."),
                                         std::pair(INT_MIN, "Invalid NMP Index(-2147483648).")));

/* ---- Titles ------------------------------------------------------------------------------------------------------ */

TEST_F(CsvHeader, AnEmptyTitleStillHasItsColumn)
{
    SetString(0, "");
    SetString(12, "");
    EXPECT_TRUE(_DkpfPlogHeaderStr(2, 0x803, buffer, &error));
    EXPECT_STREQ(buffer, "\"(PDH-CSV 4.0)\""
                         ",\"\\\\SERVER1\\Cluster Disk Resource Performance(NMP2)\\\""
                         ",\"\\\\SERVER1\\Cluster Disk Resource Performance(NMP2)\\Request Queue Bytes\""
                         ",\"\\\\SERVER1\\Cluster Disk Resource Performance(NMP2)\\\"");
}

TEST_F(CsvHeader, WithoutAnyStringTheColumnsAreStillCounted)
{
    for (DWORD i = 0; i < 41; i++) {
        SetString(i, "");
    }
    SetComputer("");
    std::string display = "\"\"", raw = "\"\"";
    for (int i = 0; i < 17; i++) {
        display += ",\"\\\\\\Cluster Disk Resource Performance(64)\\\"";
    }
    for (int i = 0; i < 19; i++) {
        raw += ",\"\\\\\\Cluster Disk Resource Performance()\\\"";
    }
    EXPECT_TRUE(_DkpfPlogHeaderStr(64, 0x1FFFF, buffer, &error));
    EXPECT_EQ(std::string(buffer), display);
    EXPECT_TRUE(_DkpfPlogHeaderStrRaw(0, buffer, &error));
    EXPECT_EQ(std::string(buffer), raw);
}

TEST_F(CsvHeader, TheLongestTitlesAndNamesAreWholeAndFitTheBuffer)
{
    auto longest = [](DWORD i) { return std::string(124, static_cast<char>('a' + i % 26)) + std::to_string(100 + i); };
    for (DWORD i = 0; i < 41; i++) {
        SetString(i, longest(i));
    }
    SetComputer("SERVER789012345");
    std::string       display = "\"" + longest(38) + "\"", raw = display;
    const std::string start = ",\"\\\\SERVER789012345\\Cluster Disk Resource Performance(";
    for (int number : AllDisplay) {
        display += start + longest(39) + "64)\\" + longest(static_cast<DWORD>(number)) + "\"";
    }
    for (int number : AllRaw) {
        raw += start + longest(40) + ")\\" + longest(static_cast<DWORD>(number)) + "\"";
    }
    EXPECT_TRUE(_DkpfPlogHeaderStr(64, 0x1FFFF, buffer, &error));
    EXPECT_EQ(std::string(buffer), display);
    EXPECT_TRUE(_DkpfPlogHeaderStrRaw(0, buffer, &error));
    EXPECT_EQ(std::string(buffer), raw);
}

// Texts are data, never formats.
TEST_F(CsvHeader, PercentSignsInTitlesAndNamesAreKept)
{
    SetString(0, "100 %s %d %%");
    SetString(39, "%n");
    EXPECT_TRUE(_DkpfPlogHeaderStr(4, 1, buffer, &error));
    EXPECT_STREQ(buffer, "\"(PDH-CSV 4.0)\",\"\\\\SERVER1\\Cluster Disk Resource Performance(%n4)\\100 %s %d %%\"");
    EXPECT_EQ(Traced(), TracedBy(Display, buffer));
}

TEST_F(CsvHeader, TheRawHeaderHas20ColumnsWhateverTheTotalOrDisk)
{
    for (int index = 0; index <= 64; index++) {
        EXPECT_TRUE(_DkpfPlogHeaderStrRaw(index, buffer, &error));
        std::string line = buffer;
        size_t      columns = 1;
        for (size_t at = line.find("\",\""); at != std::string::npos; at = line.find("\",\"", at + 1)) {
            columns++;
        }
        EXPECT_EQ(columns, 20u) << index;
    }
}
