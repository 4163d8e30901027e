/*
 * The data lines of the CSV files, and the pass that writes them.
 */
#include <stdio.h>

#include "support/csv_fixture.h"
#include "support/detour.h"
#include "support/golden.h"

static const ULONGLONG  Largest = 18446744073709551615ull;
static const SYSTEMTIME Afternoon = { 2024, 3, 4, 7, 14, 5, 9, 42 };

/* Order of the raw columns: slots of the raw total record; below 12 row of instance, from 12 on row of maxinstance. */
static const std::vector<int> RawOrder = { 0, 1, 2, 3, 12, 4, 5, 13, 6, 14, 7, 15, 8, 16, 9, 17, 10, 18, 11 };
/* Counter behind each bit of the column mask. */
static const std::vector<int> DisplayOrder = { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 11, 13, 14, 15, 16 };

static std::string Stamp(const SYSTEMTIME& time)
{
    char text[128];
    snprintf(text, sizeof text, "\"%02d/%02d/%04d %02d:%02d:%02d.%03d\"", time.wMonth, time.wDay, time.wYear,
             time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
    return text;
}

static std::string Field(ULONGLONG value)
{
    return ",\"" + std::to_string(value) + "\"";
}

class CsvLine : public CsvTest {
protected:
    std::string DisplayLine(DWORD mask, const SYSTEMTIME& time)
    {
        EXPECT_TRUE(_DkpfPlogDataStr(mask, &time, values, buffer, &error));
        EXPECT_EQ(error, 0xB0000000u);
        return buffer;
    }
    std::string RawLine(int slot)
    {
        EXPECT_TRUE(_DkpfPlogDataStrRaw(slot, &sample, buffer, &error));
        EXPECT_EQ(error, 0xB0000000u);
        return buffer;
    }
    std::string RawTotalLine(const SYSTEMTIME& time)
    {
        EXPECT_TRUE(_DkpfPlogDataStrRawTotal(&totals, &time, buffer, &error));
        EXPECT_EQ(error, 0xB0000000u);
        return buffer;
    }
    void SetRaw(int slot, int column, ULONGLONG value)
    {
        (column < 12 ? sample.instance[column] : sample.maxinstance[column - 12]).inst_sub[slot].value = value;
    }

    ULONGLONG values[17] = {
        100, 1, 4096, 0, Largest, 5, 66, 777, 8888, 99999, 1010, 1111, 1212, 1313, 1414, 1515, 1616
    };
    DKPF_PARAM    sample = {};
    DKPF_RAWTOTAL totals = {};
};

/* ---- Whole lines ------------------------------------------------------------------------------------------------- */

TEST_F(CsvLine, ADisplayLine)
{
    EXPECT_EQ(DisplayLine(0x1FFFF, Afternoon), Golden("display_line"));
    EXPECT_EQ(Traced(), TracedBy("_DkpfPlogDataStr", Golden("display_line")));
    EXPECT_EQ(journal.Names(), Strings()) << "no call but traces, nothing is allocated";
}

TEST_F(CsvLine, ARawLine)
{
    sample.local_time = Afternoon;
    for (int i = 0; i < 12; i++) {
        SetRaw(5, i, 100u + static_cast<unsigned>(i));
    }
    for (int k = 0; k < 7; k++) {
        SetRaw(5, 12 + k, 900u + static_cast<unsigned>(k));
    }
    EXPECT_EQ(RawLine(5), Golden("raw_line"));
    EXPECT_EQ(Traced(), TracedBy("_DkpfPlogDataStrRaw", Golden("raw_line")));
    EXPECT_EQ(journal.Names(), Strings());
}

TEST_F(CsvLine, ARawTotalLine)
{
    for (unsigned n = 0; n < 19; n++) {
        totals.value[n] = 50 + n;
    }
    EXPECT_EQ(RawTotalLine(SYSTEMTIME{ 2025, 12, 3, 31, 23, 59, 59, 999 }), Golden("raw_total_line"));
    EXPECT_EQ(Traced(), TracedBy("_DkpfPlogDataStrRawTotal", Golden("raw_total_line")));
    EXPECT_EQ(journal.Names(), Strings());
}

TEST_F(CsvLine, EveryFormatterWritesFromTheStartOfTheBuffer)
{
    sample.local_time = Afternoon;
    totals.value[0] = Largest;
    RawTotalLine(Afternoon);
    EXPECT_EQ(DisplayLine(0, Afternoon), "\"03/07/2024 14:05:09.042\"");
    std::string zeros;
    for (int i = 0; i < 18; i++) {
        zeros += ",\"0\"";
    }
    EXPECT_EQ(RawLine(0), "\"03/07/2024 14:05:09.042\",\"0\"" + zeros);
    EXPECT_EQ(RawTotalLine(Afternoon), "\"03/07/2024 14:05:09.042\",\"18446744073709551615\"" + zeros);
}

TEST_F(CsvLine, LinesNameTheirSource)
{
    DisplayLine(1, Afternoon);
    RawLine(0);
    RawTotalLine(Afternoon);
    for (const TraceLine& line : log.lines) {
        EXPECT_EQ(line.source, "diskperf/src/diskperf_pflog");
    }
}

/* ---- Columns ----------------------------------------------------------------------------------------------------- */

class CsvLineMask : public CsvLine, public testing::WithParamInterface<Mask> {};

TEST_P(CsvLineMask, SelectsItsValuesInBitOrder)
{
    std::string expected = "\"03/07/2024 14:05:09.042\"";
    for (int counter : GetParam().counters) {
        expected += Field(values[counter]);
    }
    EXPECT_EQ(DisplayLine(GetParam().mask, Afternoon), expected);
}
INSTANTIATE_TEST_SUITE_P(EachBit, CsvLineMask, testing::ValuesIn(EachBitAlone()), MaskName);
INSTANTIATE_TEST_SUITE_P(Several, CsvLineMask,
                         testing::Values(Mask{ 0, {} }, Mask{ 0x20000, {} }, Mask{ 0x80000000, {} },
                                         Mask{ 0xFFFE0000, {} }, Mask{ 0x1800, { 12, 11 } },
                                         Mask{ 0x1FFFF, DisplayOrder }, Mask{ 0xFFFFFFFF, DisplayOrder },
                                         Mask{ 0x15555, { 0, 2, 4, 6, 8, 10, 11, 14, 16 } },
                                         Mask{ 0x0AAAA, { 1, 3, 5, 7, 9, 12, 13, 15 } },
                                         Mask{ 0x3C00, { 10, 12, 11, 13 } }),
                         MaskName);

TEST_F(CsvLine, TheMask0x1800WritesCounter12BeforeCounter11)
{
    EXPECT_EQ(DisplayLine(0x1800, Afternoon), "\"03/07/2024 14:05:09.042\",\"1212\",\"1111\"");
}

/* Raw column, slot of the disk. */
class CsvRawColumn : public CsvLine, public testing::WithParamInterface<std::tuple<int, int>> {};

TEST_P(CsvRawColumn, CarriesItsRowOfItsDiskAlone)
{
    auto [column, slot] = GetParam();
    for (int row = 0; row < 19; row++) {
        for (int s = 0; s < 64; s++) {
            SetRaw(s, row, 7777);  // of other disks: nowhere in the line
        }
        SetRaw(slot, row, 1);
    }
    SetRaw(slot, RawOrder[static_cast<size_t>(column)], 2);
    sample.local_time = Afternoon;
    std::string expected = Stamp(Afternoon);
    for (int i = 0; i < 19; i++) {
        expected += i == column ? ",\"2\"" : ",\"1\"";
    }
    EXPECT_EQ(RawLine(slot), expected);
}
INSTANTIATE_TEST_SUITE_P(Each, CsvRawColumn, testing::Combine(testing::Range(0, 19), testing::Values(0, 40, 63)));

class CsvRawTotalColumn : public CsvLine, public testing::WithParamInterface<int> {};

TEST_P(CsvRawTotalColumn, CarriesItsSlot)
{
    totals.value[RawOrder[static_cast<size_t>(GetParam())]] = 2;
    std::string expected = Stamp(Afternoon);
    for (int i = 0; i < 19; i++) {
        expected += i == GetParam() ? ",\"2\"" : ",\"0\"";
    }
    EXPECT_EQ(RawTotalLine(Afternoon), expected);
}
INSTANTIATE_TEST_SUITE_P(Each, CsvRawTotalColumn, testing::Range(0, 19));

/* ---- Values ------------------------------------------------------------------------------------------------------ */

class CsvValue : public CsvLine, public testing::WithParamInterface<std::pair<ULONGLONG, const char*>> {};

TEST_P(CsvValue, IsPrintedInDecimalWithoutSignOrGroups)
{
    auto [value, text] = GetParam();
    std::string expected = std::string("\"03/07/2024 14:05:09.042\",\"") + text + "\"";
    values[3] = value;
    EXPECT_EQ(DisplayLine(8, Afternoon), expected);
    totals.value[0] = value;
    EXPECT_EQ(RawTotalLine(Afternoon).substr(0, expected.size()), expected);
    sample.local_time = Afternoon;
    SetRaw(63, 0, value);
    EXPECT_EQ(RawLine(63).substr(0, expected.size()), expected);
}
INSTANTIATE_TEST_SUITE_P(Each, CsvValue,
                         testing::Values(std::pair(0ull, "0"), std::pair(1ull, "1"), std::pair(9ull, "9"),
                                         std::pair(10ull, "10"), std::pair(99ull, "99"), std::pair(100ull, "100"),
                                         std::pair(4294967295ull, "4294967295"), std::pair(4294967296ull, "4294967296"),
                                         std::pair(9223372036854775807ull, "9223372036854775807"),
                                         std::pair(9223372036854775808ull, "9223372036854775808"),
                                         std::pair(9999999999999999999ull, "9999999999999999999"),
                                         std::pair(10000000000000000000ull, "10000000000000000000"),
                                         std::pair(18446744073709551615ull, "18446744073709551615")));

TEST_F(CsvLine, NineteenLargestValuesAreOneLine)
{
    std::string expected = Stamp(Afternoon);
    sample.local_time = Afternoon;
    for (int i = 0; i < 19; i++) {
        SetRaw(0, i, Largest);
        totals.value[i] = Largest;
        expected += ",\"18446744073709551615\"";
    }
    EXPECT_EQ(RawLine(0), expected);
    EXPECT_EQ(RawTotalLine(Afternoon), expected);
}

/* ---- Time stamps ------------------------------------------------------------------------------------------------- */

class CsvStamp : public CsvLine, public testing::WithParamInterface<std::pair<SYSTEMTIME, const char*>> {};

TEST_P(CsvStamp, IsMonthDayYearThenTheTimeOfDayAllPadded)
{
    auto [time, text] = GetParam();
    EXPECT_EQ(DisplayLine(0, time), text);
}
INSTANTIATE_TEST_SUITE_P(
    Each, CsvStamp,
    testing::Values(std::pair(SYSTEMTIME{ 2024, 3, 4, 7, 14, 5, 9, 42 }, "\"03/07/2024 14:05:09.042\""),
                    std::pair(SYSTEMTIME{ 2024, 1, 1, 1, 0, 0, 0, 0 }, "\"01/01/2024 00:00:00.000\""),
                    std::pair(SYSTEMTIME{ 2024, 1, 1, 2, 3, 4, 5, 6 }, "\"01/02/2024 03:04:05.006\""),
                    std::pair(SYSTEMTIME{ 2024, 10, 1, 20, 10, 10, 10, 100 }, "\"10/20/2024 10:10:10.100\""),
                    std::pair(SYSTEMTIME{ 2024, 9, 1, 9, 9, 9, 9, 99 }, "\"09/09/2024 09:09:09.099\""),
                    std::pair(SYSTEMTIME{ 1999, 12, 5, 31, 23, 59, 59, 999 }, "\"12/31/1999 23:59:59.999\""),
                    std::pair(SYSTEMTIME{ 7, 2, 5, 3, 4, 5, 6, 7 }, "\"02/03/0007 04:05:06.007\""),
                    std::pair(SYSTEMTIME{ 30827, 2, 5, 3, 4, 5, 6, 7 }, "\"02/03/30827 04:05:06.007\""),
                    // Must hold as the first stamp of a process too, which it is where ctest runs it.
                    std::pair(SYSTEMTIME{}, "\"00/00/0000 00:00:00.000\""),
                    std::pair(SYSTEMTIME{ 65535, 65535, 65535, 65535, 65535, 65535, 65535, 65535 },
                              "\"65535/65535/65535 65535:65535:65535.65535\"")));

/* Byte of the 16 that a time consists of. */
class CsvStampByte : public CsvLine, public testing::WithParamInterface<size_t> {};

// Lines of one pass share the text of the time; a change of any byte has to make a new one, and back again.
TEST_P(CsvStampByte, ChangedTheTextIsMadeAnew)
{
    for (unsigned bit = 0; bit < 8; bit++) {
        SYSTEMTIME changed = Afternoon;
        reinterpret_cast<BYTE*>(&changed)[GetParam()] ^= static_cast<BYTE>(1u << bit);
        for (const SYSTEMTIME& time : { Afternoon, changed, changed, Afternoon }) {
            EXPECT_EQ(DisplayLine(0, time), Stamp(time)) << "bit " << bit;
        }
        sample.local_time = changed;
        EXPECT_EQ(RawLine(0).substr(0, Stamp(changed).size()), Stamp(changed));
        EXPECT_EQ(RawTotalLine(Afternoon).substr(0, Stamp(Afternoon).size()), Stamp(Afternoon));
    }
}
INSTANTIATE_TEST_SUITE_P(Each, CsvStampByte, testing::Range<size_t>(0, 16));

TEST_F(CsvLine, ATimeThatIsChangedInPlaceIsSeen)
{
    SYSTEMTIME time = Afternoon;
    EXPECT_EQ(DisplayLine(0, time), "\"03/07/2024 14:05:09.042\"");
    time.wMilliseconds = 43;
    EXPECT_EQ(DisplayLine(0, time), "\"03/07/2024 14:05:09.043\"");
}

/* ---- One pass ---------------------------------------------------------------------------------------------------- */

static const char Pass[] = "_DkpfPlogWriteCSV";

class CsvPass : public CsvLine {
protected:
    void SetUp() override
    {
        CsvLine::SetUp();
        sample.local_time = Afternoon;
        for (unsigned row = 0; row < 65; row++) {
            for (unsigned j = 0; j < 17; j++) {
                display.value[row][j] = row * 100 + j;
            }
        }
        for (int s = 0; s < 64; s++) {
            for (int row = 0; row < 19; row++) {
                SetRaw(s, row, 100000u + static_cast<unsigned>(s * 100 + row));
            }
        }
        for (unsigned n = 0; n < 19; n++) {
            totals.value[n] = 9000 + n;
        }
    }
    /* Opens a file as the set-up of the pass does, and names it for the expectations below. */
    void Open(const std::string& name, HTNWCSV* handle)
    {
        ASSERT_EQ(log_util_init(name.c_str(), handle, 3, 0, 1024, 3, 13440, "header", 0, 0), TNWLOG_OK);
    }
    void OpenDisk(unsigned n)
    {
        Open("nmp" + std::to_string(n), &disp[n]);
        Open("nmp" + std::to_string(n) + "_raw", &raw[n]);
    }
    void OpenTotals()
    {
        Open("nmp_total", &disp[0]);
        Open("nmp_total_raw", &raw[0]);
    }
    BOOL Write(DWORD mask = 0x1FFFF)
    {
        journal.Clear();
        log.ClearLines();
        return _DkpfPlogWriteCSV(mask, &display, &sample, &totals, buffer, disp, raw, &error);
    }

    /* The lines that are due for a file. */
    static std::string DisplayOf(unsigned row)
    {
        std::string line = "\"03/07/2024 14:05:09.042\"";
        for (int counter : DisplayOrder) {
            line += Field(row * 100 + static_cast<unsigned>(counter));
        }
        return line;
    }
    static std::string RawOf(unsigned n)
    {
        std::string line = "\"03/07/2024 14:05:09.042\"";
        for (int column : RawOrder) {
            line += Field(100000u + (n - 1) * 100 + static_cast<unsigned>(column));
        }
        return line;
    }
    static std::string RawTotal()
    {
        std::string line = "\"03/07/2024 14:05:09.042\"";
        for (int slot : RawOrder) {
            line += Field(9000u + static_cast<unsigned>(slot));
        }
        return line;
    }
    /* Journal entry of a write. */
    static std::string Written(const std::string& name, const std::string& line, DWORD status = 0)
    {
        return "log_util_write(\"" + name + "\", \"%s\", \"" + line + "\") = " + std::to_string(status);
    }
    static std::string Failed(HTNWCSV handle, const std::string& status)
    {
        char text[128];
        snprintf(text, sizeof text, "log_util_write(0X%016llX) failed(", reinterpret_cast<ULONGLONG>(handle));
        return text + status + ",0xb0000027).";
    }
    Strings Calls()
    {
        return journal.Lines({ "log_util_write", "log_util_init", "log_util_term", "log_util_rotate" });
    }

    DKPF_DISP display = {};
    HTNWCSV   disp[65] = {}, raw[65] = {};
};

TEST_F(CsvPass, DisksInSlotOrderThenTheTotalsDisplayBeforeRaw)
{
    for (unsigned n : { 64u, 2u, 1u, 33u }) {
        OpenDisk(n);
        sample.InitFlag[n - 1] = 1;
    }
    OpenTotals();
    EXPECT_TRUE(Write());
    EXPECT_EQ(error, 0xB0000000u);
    EXPECT_EQ(Calls(),
              Strings({ Written("nmp1", DisplayOf(1)), Written("nmp1_raw", RawOf(1)), Written("nmp2", DisplayOf(2)),
                        Written("nmp2_raw", RawOf(2)), Written("nmp33", DisplayOf(33)), Written("nmp33_raw", RawOf(33)),
                        Written("nmp64", DisplayOf(64)), Written("nmp64_raw", RawOf(64)),
                        Written("nmp_total", DisplayOf(0)), Written("nmp_total_raw", RawTotal()) }));
    EXPECT_EQ(journal.Names(), Strings(10, "log_util_write")) << "nothing else is called, nothing allocated";
}

TEST_F(CsvPass, All64DisksGetTheirLines)
{
    Strings expected;
    for (unsigned n = 1; n <= 64; n++) {
        OpenDisk(n);
        sample.InitFlag[n - 1] = 1;
        expected.push_back(Written("nmp" + std::to_string(n), DisplayOf(n)));
        expected.push_back(Written("nmp" + std::to_string(n) + "_raw", RawOf(n)));
    }
    OpenTotals();
    expected.push_back(Written("nmp_total", DisplayOf(0)));
    expected.push_back(Written("nmp_total_raw", RawTotal()));
    EXPECT_TRUE(Write());
    EXPECT_EQ(Calls(), expected);
}

TEST_F(CsvPass, TracesEntryAndExitAroundThoseOfItsFormatters)
{
    OpenDisk(1);
    sample.InitFlag[0] = 1;
    EXPECT_TRUE(Write());
    Strings expected = { std::string("8 diskperf_trace ") + Pass + ": ENTER : " };
    for (const Strings& part :
         { TracedBy("_DkpfPlogDataStr", DisplayOf(1)), TracedBy("_DkpfPlogDataStrRaw", RawOf(1)) }) {
        expected.insert(expected.end(), part.begin(), part.end());
    }
    expected.push_back(std::string("8 diskperf_trace ") + Pass + ": EXIT<TRUE>");
    EXPECT_EQ(Traced(), expected);
}

TEST_F(CsvPass, ASampleWithoutAPresentDiskWritesNothingNotEvenTheTotals)
{
    for (unsigned n = 1; n <= 64; n++) {
        OpenDisk(n);
    }
    OpenTotals();
    sample.InitFlag[0] = 0;
    sample.InitFlag[1] = 2;
    sample.InitFlag[2] = 0xFFFFFFFF;
    EXPECT_TRUE(Write());
    EXPECT_EQ(error, 0xB0000000u);
    EXPECT_EQ(Calls(), Strings());
    EXPECT_EQ(Traced(), Strings({ std::string("8 diskperf_trace ") + Pass + ": ENTER : ",
                                  std::string("8 diskperf_trace ") + Pass + ": EXIT<TRUE>" }));
}

TEST_F(CsvPass, ADiskThatIsNotPresentGetsNoLineThoughItsFilesAreOpen)
{
    OpenDisk(1);
    OpenDisk(2);
    OpenTotals();
    sample.InitFlag[1] = 1;
    EXPECT_TRUE(Write());
    EXPECT_EQ(log.csv["nmp1"].lines, Strings());
    EXPECT_EQ(log.csv["nmp1_raw"].lines, Strings());
    EXPECT_EQ(log.csv["nmp2"].lines, Strings({ DisplayOf(2) }));
    EXPECT_EQ(log.csv["nmp_total"].lines, Strings({ DisplayOf(0) }));
}

TEST_F(CsvPass, IfEveryWriteOfTheDisksFailsTheTotalsAreNotWritten)
{
    OpenDisk(1);
    OpenDisk(2);
    OpenTotals();
    sample.InitFlag[0] = sample.InitFlag[1] = 1;
    log.Fail("log_util_write", 1, TNWLOG_DISK_FULL, 4);
    EXPECT_FALSE(Write());
    EXPECT_EQ(error, 0xB0000027u);
    EXPECT_EQ(Calls().size(), 4u);
    EXPECT_EQ(log.TextsOf(Pass),
              Strings({ Failed(disp[1], "5"), Failed(raw[1], "5"), Failed(disp[2], "5"), Failed(raw[2], "5") }));
}

TEST_F(CsvPass, ADiskWithItsRawFileAloneGetsTheRawLineAndTheTotalsAreWritten)
{
    Open("nmp5_raw", &raw[5]);
    OpenTotals();
    sample.InitFlag[4] = 1;
    EXPECT_TRUE(Write());
    EXPECT_EQ(Calls(), Strings({ Written("nmp5_raw", RawOf(5)), Written("nmp_total", DisplayOf(0)),
                                 Written("nmp_total_raw", RawTotal()) }));
}

TEST_F(CsvPass, TheMaskHoldsForDisksAndTotalButNotForRawFiles)
{
    OpenDisk(3);
    OpenTotals();
    sample.InitFlag[2] = 1;
    EXPECT_TRUE(Write(0x1800));
    EXPECT_EQ(log.csv["nmp3"].lines, Strings({ "\"03/07/2024 14:05:09.042\",\"312\",\"311\"" }));
    EXPECT_EQ(log.csv["nmp3_raw"].lines, Strings({ RawOf(3) }));
    EXPECT_EQ(log.csv["nmp_total"].lines, Strings({ "\"03/07/2024 14:05:09.042\",\"12\",\"11\"" }));
    EXPECT_EQ(log.csv["nmp_total_raw"].lines, Strings({ RawTotal() }));
}

TEST_F(CsvPass, AllLinesOfAPassCarryTheTimeOfTheSample)
{
    OpenDisk(1);
    OpenTotals();
    sample.InitFlag[0] = 1;
    sample.local_time = SYSTEMTIME{ 2031, 1, 6, 4, 1, 2, 3, 4 };
    EXPECT_TRUE(Write());
    for (const char* name : { "nmp1", "nmp1_raw", "nmp_total", "nmp_total_raw" }) {
        ASSERT_EQ(log.csv[name].lines.size(), 1u);
        EXPECT_EQ(log.csv[name].lines[0].substr(0, 25), "\"01/04/2031 01:02:03.004\"") << name;
    }
}

TEST_F(CsvPass, AStatusIsPrintedAsASignedNumber)
{
    OpenDisk(1);
    sample.InitFlag[0] = 1;
    log.failWrite["nmp1"] = 0xFFFFFFFF;
    EXPECT_FALSE(Write());
    EXPECT_EQ(log.TextsOf(Pass), Strings({ Failed(disp[1], "-1") }));
    EXPECT_EQ(Traced()[4], std::string("1 diskperf_trace ") + Pass + ": " + Failed(disp[1], "-1"));
    EXPECT_EQ(Traced().back(), std::string("8 diskperf_trace ") + Pass + ": EXIT<FALSE>");
}

TEST_F(CsvPass, AFailureOfOnePassIsForgottenInTheNext)
{
    OpenDisk(1);
    sample.InitFlag[0] = 1;
    log.Fail("log_util_write", 1, TNWLOG_DISK_FULL);
    EXPECT_FALSE(Write());
    EXPECT_TRUE(Write());
    EXPECT_EQ(error, 0xB0000000u);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ DisplayOf(1) }));
}

/* ---- Every combination of one disk's files and the total's ------------------------------------------------------- */

enum State { Closed, Good, Refusing };

/* Display, raw, total display, total raw. */
using States = std::tuple<State, State, State, State>;
static std::string StatesName(const testing::TestParamInfo<States>& tested)
{
    static const char* const names[] = { "Closed", "Good", "Refusing" };
    auto [s1, s2, s3, s4] = tested.param;
    return std::string(names[s1]) + names[s2] + names[s3] + names[s4];
}
class CsvPassFiles : public CsvPass, public testing::WithParamInterface<States> {};

TEST_P(CsvPassFiles, EachGetsItsLineOrItsFailure)
{
    auto [s1, s2, s3, s4] = GetParam();
    struct File {
        const char* name;
        State       state;
        HTNWCSV*    handle;
        DWORD       status;  // of a refusing one
        std::string line;
    };
    const File files[] = {
        { "nmp9", s1, &disp[9], TNWLOG_DISK_FULL, DisplayOf(9) },
        { "nmp9_raw", s2, &raw[9], TNWLOG_NOT_OPEN, RawOf(9) },
        { "nmp_total", s3, &disp[0], TNWLOG_NO_DIRECTORY, DisplayOf(0) },
        { "nmp_total_raw", s4, &raw[0], TNWLOG_WRITE_FAILED, RawTotal() },
    };
    Strings open, calls, errors;
    bool    written = false;
    for (const File& file : files) {
        bool total = file.handle == &disp[0] || file.handle == &raw[0];
        if (file.state == Closed) {
            continue;
        }
        Open(file.name, file.handle);
        open.push_back(file.name);
        if (file.state == Refusing) {
            log.failWrite[file.name] = file.status;
        }
        if (total && !written) {
            continue;
        }
        DWORD status = file.state == Refusing ? file.status : 0;
        calls.push_back(Written(file.name, file.line, status));
        if (status != 0) {
            errors.push_back(Failed(*file.handle, std::to_string(status)));
        } else if (!total) {
            written = true;
        }
    }
    sample.InitFlag[8] = 1;
    EXPECT_EQ(Write() != FALSE, errors.empty());
    EXPECT_EQ(error, errors.empty() ? 0xB0000000u : 0xB0000027u);
    EXPECT_EQ(Calls(), calls);
    EXPECT_EQ(log.TextsOf(Pass), errors);
    EXPECT_EQ(log.Errors(), errors);
    EXPECT_EQ(Traced().back(),
              std::string("8 diskperf_trace ") + Pass + (errors.empty() ? ": EXIT<TRUE>" : ": EXIT<FALSE>"));
    EXPECT_EQ(log.OpenCsv(), open) << "a file that refuses stays open";
}
INSTANTIATE_TEST_SUITE_P(Every, CsvPassFiles,
                         testing::Combine(testing::Values(Closed, Good, Refusing),
                                          testing::Values(Closed, Good, Refusing),
                                          testing::Values(Closed, Good, Refusing),
                                          testing::Values(Closed, Good, Refusing)),
                         StatesName);

/* Two disks with all files open: bit 0 to 5 set = the n-th write of the pass would be refused. */
class CsvPassRefusals : public CsvPass, public testing::WithParamInterface<unsigned> {};

TEST_P(CsvPassRefusals, CostTheirOwnLineAlone)
{
    OpenDisk(1);
    OpenDisk(64);
    OpenTotals();
    sample.InitFlag[0] = sample.InitFlag[63] = 1;
    const char*       names[] = { "nmp1", "nmp1_raw", "nmp64", "nmp64_raw", "nmp_total", "nmp_total_raw" };
    const std::string lines[] = { DisplayOf(1), RawOf(1), DisplayOf(64), RawOf(64), DisplayOf(0), RawTotal() };
    bool              totals_due = (GetParam() & 0xF) != 0xF;
    Strings           calls;
    bool              good = true;
    for (unsigned i = 0; i < 6; i++) {
        bool refused = (GetParam() >> i & 1) != 0;
        if (refused) {
            log.failWrite[names[i]] = TNWLOG_WRITE_FAILED;
        }
        if (i < 4 || totals_due) {
            calls.push_back(Written(names[i], lines[i], refused ? 7 : 0));
            good = good && !refused;
        }
    }
    EXPECT_EQ(Write() != FALSE, good);
    EXPECT_EQ(error, good ? 0xB0000000u : 0xB0000027u);
    EXPECT_EQ(Calls(), calls);
    EXPECT_EQ(log.OpenCsv().size(), 6u);
}
INSTANTIATE_TEST_SUITE_P(Every, CsvPassRefusals, testing::Range(0u, 64u));

/* ---- Formatters that fail -----------------------------------------------------------------------------------------
 */

/* The formatters cannot fail by themselves. If one did, its file would get no line and all others theirs. */
static BOOL FailDisplay(DWORD, const SYSTEMTIME*, const ULONGLONG*, char*, DWORD* code)
{
    *code = 0xB000000B;
    return FALSE;
}
static BOOL FailRaw(int, const DKPF_PARAM*, char*, DWORD* code)
{
    *code = 0xB0000004;
    return FALSE;
}
static BOOL FailRawTotal(const DKPF_RAWTOTAL*, const SYSTEMTIME*, char*, DWORD* code)
{
    *code = 0xB0000018;
    return FALSE;
}

class CsvPassFormatter : public CsvPass {
protected:
    void SetUp() override
    {
        CsvPass::SetUp();
        for (unsigned n : { 1u, 7u }) {
            OpenDisk(n);
            sample.InitFlag[n - 1] = 1;
        }
        OpenTotals();
    }
    Strings Errors() const
    {
        Strings texts;
        for (const TraceLine& line : log.lines) {
            if (line.level == 1) {
                texts.push_back(line.log + " " + line.routine + ": " + line.text);
            }
        }
        return texts;
    }
};

TEST_F(CsvPassFormatter, ADisplayFormatterThatFailsCostsTheDisplayFilesTheirLines)
{
    const Detour detour(_DkpfPlogDataStr, FailDisplay);
    EXPECT_FALSE(Write());
    EXPECT_EQ(error, 0xB000000Bu);
    EXPECT_EQ(Errors(), Strings(3, "diskperf_trace _DkpfPlogWriteCSV: _DkpfPlogDataStr() failed(0xb000000b)."));
    EXPECT_EQ(Calls(), Strings({ Written("nmp1_raw", RawOf(1)), Written("nmp7_raw", RawOf(7)),
                                 Written("nmp_total_raw", RawTotal()) }));
}

TEST_F(CsvPassFormatter, ARawFormatterThatFailsCostsTheRawFilesTheirLinesAndNamesTheSlot)
{
    const Detour detour(_DkpfPlogDataStrRaw, FailRaw);
    EXPECT_FALSE(Write());
    EXPECT_EQ(error, 0xB0000004u);
    EXPECT_EQ(Errors(), Strings({ "diskperf_trace _DkpfPlogWriteCSV: _DkpfPlogDataStrRaw(0) failed(0xb0000004).",
                                  "diskperf_trace _DkpfPlogWriteCSV: _DkpfPlogDataStrRaw(6) failed(0xb0000004)." }));
    EXPECT_EQ(Calls(), Strings({ Written("nmp1", DisplayOf(1)), Written("nmp7", DisplayOf(7)),
                                 Written("nmp_total", DisplayOf(0)), Written("nmp_total_raw", RawTotal()) }));
}

TEST_F(CsvPassFormatter, ARawTotalFormatterThatFailsIsReportedUnderAHeaderRoutinesName)
{
    const Detour detour(_DkpfPlogDataStrRawTotal, FailRawTotal);
    EXPECT_FALSE(Write());
    EXPECT_EQ(error, 0xB0000018u);
    EXPECT_EQ(Errors(),
              Strings({ "diskperf_trace _DkpfPlogWriteCSV: _DkpfPlogHeaderStrRawTotal() failed(0xb0000018)." }));
    EXPECT_EQ(Calls(),
              Strings({ Written("nmp1", DisplayOf(1)), Written("nmp1_raw", RawOf(1)), Written("nmp7", DisplayOf(7)),
                        Written("nmp7_raw", RawOf(7)), Written("nmp_total", DisplayOf(0)) }));
}

TEST_F(CsvPassFormatter, WhereNoDiskGotALineTheTotalsGetNone)
{
    const Detour display_detour(_DkpfPlogDataStr, FailDisplay);
    const Detour raw_detour(_DkpfPlogDataStrRaw, FailRaw);
    EXPECT_FALSE(Write());
    EXPECT_EQ(Calls(), Strings());
}
