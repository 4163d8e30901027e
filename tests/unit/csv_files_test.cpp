/*
 * Opening and rotating the CSV files: names, arguments, which files a sample calls for, and what a failure leaves.
 */
#include "support/csv_files_fixture.h"
#include "support/detour.h"

class CsvFiles : public CsvTest {
protected:
    DWORD             flags[64] = {};
    DKPF_CONF         conf = {};
    HTNWCSV           disp[65] = {};
    HTNWCSV           raw[65] = {};
    std::vector<char> buffer = std::vector<char>(13440);
    DWORD             err = 1;

    void SetUp() override
    {
        CsvTest::SetUp();
        conf.perf_log_size = 1024;
        conf.perf_log_rotation = 3;
        conf.collect_param = 0x1;
    }
    void Present(std::initializer_list<int> disks)
    {
        memset(flags, 0, sizeof flags);
        for (int n : disks) {
            flags[n - 1] = 1;
        }
    }
    BOOL Init()
    {
        err = 1;
        return _DkpfPlogInit(flags, &conf, buffer.data(), disp, raw, &err);
    }
    BOOL Rotate()
    {
        err = 1;
        return _DkpfPlogRotate(flags, &conf, buffer.data(), disp, &err);
    }
    Strings Opens() const
    {
        return journal.Lines({ "log_util_init" });
    }
    Strings Rotations() const
    {
        return journal.Lines({ "log_util_rotate" });
    }
    std::string D(int n)
    {
        return Opened(Name(n), DisplayHeader(n, conf.collect_param));
    }
    std::string R(int n)
    {
        return Opened(Name(n) + "_raw", RawHeader(n));
    }
    HTNWCSV File(const std::string& name)
    {
        return reinterpret_cast<HTNWCSV>(&log.csv.at(name));
    }
    /* No handle but those of the disks given, 0 the total, and these are the files' own. */
    void ExpectHandles(std::initializer_list<int> display, std::initializer_list<int> rawFiles)
    {
        HTNWCSV expectedDisp[65] = {};
        HTNWCSV expectedRaw[65] = {};
        for (int n : display) {
            expectedDisp[n] = File(Name(n));
        }
        for (int n : rawFiles) {
            expectedRaw[n] = File(Name(n) + "_raw");
        }
        for (int n = 0; n < 65; n++) {
            EXPECT_EQ(disp[n], expectedDisp[n]) << n;
            EXPECT_EQ(raw[n], expectedRaw[n]) << n;
        }
    }
    void TearDown() override
    {
        EXPECT_EQ(os.Leaks(), Strings());
        EXPECT_EQ(os.misuse, Strings());
        CsvTest::TearDown();
    }
};

using CsvFilesInit = CsvFiles;
using CsvFilesRotate = CsvFiles;

/* ---- Opening ----------------------------------------------------------------------------------------------------- */

TEST_F(CsvFilesInit, ADiskGetsItsDisplayAndRawFileThenTheTotalGetsIts)
{
    Present({ 3 });
    EXPECT_TRUE(Init());
    EXPECT_EQ(err, 0xB0000000u);
    EXPECT_EQ(Opens(),
              Strings({ "log_util_init(\"nmp3\", 3, 0, 1024, 3, 13440, \"\"Time\",\"\\\\NODE1\\Cluster Disk Resource "
                        "Performance(P3)\\T0\"\", 0, 0) = 0",
                        R(3), D(0), R(0) }));
    ExpectHandles({ 3, 0 }, { 3, 0 });
}

TEST_F(CsvFilesInit, NamesOfAllHundredAndThirtyFilesInAscendingOrder)
{
    Strings expected;
    for (int n = 1; n <= 64; n++) {
        flags[n - 1] = 1;
        expected.push_back(D(n));
        expected.push_back(R(n));
    }
    expected.push_back(D(0));
    expected.push_back(R(0));
    EXPECT_TRUE(Init());
    EXPECT_EQ(Opens(), expected);
    EXPECT_EQ(Opens().size(), 130u);
    EXPECT_EQ(log.OpenCsv().size(), 130u);
    for (const char* name : { "nmp1", "nmp1_raw", "nmp64", "nmp64_raw", "nmp_total", "nmp_total_raw" }) {
        EXPECT_EQ(log.csv.count(name), 1u) << name;
    }
    EXPECT_EQ(log.csv.count("nmp0") + log.csv.count("nmp65"), 0u);
}

TEST_F(CsvFilesInit, SizeAndGenerationsGoUnchangedFromTheConfiguration)
{
    conf.perf_log_size = 1048576;
    conf.perf_log_rotation = 99;
    Present({ 1 });
    EXPECT_TRUE(Init());
    EXPECT_EQ(Opens(),
              Strings({ Opened("nmp1", DisplayHeader(1, 1), 1048576, 99), Opened("nmp1_raw", RawHeader(1), 1048576, 99),
                        Opened("nmp_total", DisplayHeader(0, 1), 1048576, 99),
                        Opened("nmp_total_raw", RawHeader(0), 1048576, 99) }));
}

TEST_F(CsvFilesInit, ValuesTheLibraryRefusesArePassedAllTheSame)
{
    conf.perf_log_size = 0;
    conf.perf_log_rotation = 0xFFFFFFFF;
    Present({ 1 });
    EXPECT_FALSE(Init());
    EXPECT_EQ(Opens(), Strings({ Opened("nmp1", DisplayHeader(1, 1), 0, 0xFFFFFFFF, 1),
                                 Opened("nmp1_raw", RawHeader(1), 0, 0xFFFFFFFF, 1) }));
    EXPECT_EQ(err, 0xB0000025u);
}

TEST_F(CsvFilesInit, TheDisplayHeaderFollowsTheColumnMaskTheRawHeaderDoesNot)
{
    conf.collect_param = 0x11801;
    Present({ 2 });
    EXPECT_TRUE(Init());
    EXPECT_EQ(log.csv["nmp2"].header, "\"Time\"" + Column(2, 0) + Column(2, 12) + Column(2, 11) + Column(2, 16));
    EXPECT_EQ(log.csv["nmp_total"].header, "\"Time\"" + Column(0, 0) + Column(0, 12) + Column(0, 11) + Column(0, 16));
    EXPECT_EQ(log.csv["nmp2_raw"].header, RawHeader(2));
    EXPECT_EQ(log.csv["nmp_total_raw"].header, RawHeader(0));
}

TEST_F(CsvFilesInit, TheHeadersAreBuiltInTheLineBuffer)
{
    Present({ 1 });
    EXPECT_TRUE(Init());
    EXPECT_EQ(std::string(buffer.data()), RawHeader(0)) << "the last header built";
}

TEST_F(CsvFilesInit, ASampleWithNoDiskPresentOpensNoFileNotEvenTheTotals)
{
    EXPECT_TRUE(Init());
    EXPECT_EQ(err, 0xB0000000u);
    EXPECT_EQ(Opens(), Strings());
    ExpectHandles({}, {});
    EXPECT_EQ(LinesOf("_DkpfPlogInit"), Strings({ "diskperf_trace 8 ENTER : ", "diskperf_trace 8 EXIT<TRUE>" }));
}

TEST_F(CsvFilesInit, OnlyTheFlagOneMeansPresent)
{
    flags[0] = 2;
    flags[1] = 0xFFFFFFFF;
    flags[2] = 0x101;
    EXPECT_TRUE(Init());
    EXPECT_EQ(Opens(), Strings());
}

TEST_F(CsvFilesInit, ADiskThatAppearsLaterGetsItsTwoFilesAndTheTotalsAreNotReopened)
{
    Present({ 1 });
    EXPECT_TRUE(Init());
    journal.Clear();
    Present({ 1, 5 });
    EXPECT_TRUE(Init());
    EXPECT_EQ(Opens(), Strings({ D(5), R(5) }));
    ExpectHandles({ 1, 5, 0 }, { 1, 5, 0 });
}

TEST_F(CsvFilesInit, OpenFilesAreNotOpenedAgain)
{
    Present({ 1, 64 });
    EXPECT_TRUE(Init());
    journal.Clear();
    conf.collect_param = 0x2;
    EXPECT_TRUE(Init());
    EXPECT_EQ(Opens(), Strings());
    EXPECT_EQ(log.csv["nmp1"].header, DisplayHeader(1, 1)) << "a changed mask alone changes no open file";
}

TEST_F(CsvFilesInit, ADiskThatLeftKeepsItsFilesOpen)
{
    Present({ 1, 2 });
    EXPECT_TRUE(Init());
    Present({ 2 });
    EXPECT_TRUE(Init());
    ExpectHandles({ 1, 2, 0 }, { 1, 2, 0 });
    EXPECT_EQ(journal.Number("log_util_term"), 0u);
}

TEST_F(CsvFilesInit, FilesThatAreOpenAlreadyCountForTheTotals)
{
    Present({ 1 });
    log.failInit["nmp_total"] = 4;
    log.failInit["nmp_total_raw"] = 4;
    EXPECT_FALSE(Init());
    ExpectHandles({ 1 }, { 1 });
    log.failInit.clear();
    journal.Clear();
    EXPECT_TRUE(Init());
    EXPECT_EQ(Opens(), Strings({ D(0), R(0) }));
}

TEST_F(CsvFilesInit, AnOpenDisplayFileAloneCountsForTheTotals)
{
    int library = 0;
    Present({ 1 });
    disp[1] = reinterpret_cast<HTNWCSV>(&library);
    log.failInit["nmp1_raw"] = 3;
    EXPECT_FALSE(Init());
    EXPECT_EQ(Opens(), Strings({ Opened("nmp1_raw", RawHeader(1), 1024, 3, 3), D(0), R(0) }));
    EXPECT_EQ(disp[1], reinterpret_cast<HTNWCSV>(&library));
}

TEST_F(CsvFilesInit, AnOpenRawFileAloneCountsForTheTotals)
{
    int library = 0;
    Present({ 1 });
    raw[1] = reinterpret_cast<HTNWCSV>(&library);
    log.failInit["nmp1"] = 3;
    EXPECT_FALSE(Init());
    EXPECT_EQ(Opens(), Strings({ Opened("nmp1", DisplayHeader(1, 1), 1024, 3, 3), D(0), R(0) }));
    EXPECT_EQ(raw[1], reinterpret_cast<HTNWCSV>(&library));
}

TEST_F(CsvFilesInit, OpenFilesOfADiskThatIsNotPresentDoNotCountForTheTotals)
{
    int library = 0;
    disp[1] = raw[1] = reinterpret_cast<HTNWCSV>(&library);
    EXPECT_TRUE(Init());
    EXPECT_EQ(Opens(), Strings());
}

TEST_F(CsvFilesInit, NoTotalsWhereEveryDiskFileFails)
{
    Present({ 1, 2 });
    log.failInit = { { "nmp1", 5 }, { "nmp1_raw", 5 }, { "nmp2", 7 }, { "nmp2_raw", 7 } };
    EXPECT_FALSE(Init());
    EXPECT_EQ(Opens().size(), 4u);
    ExpectHandles({}, {});
}

TEST_F(CsvFilesInit, AFailedOpenDoesNotStopTheLoopAndTheNextCallTriesThatFileAlone)
{
    Present({ 1, 2 });
    log.failInit["nmp1"] = 5;
    EXPECT_FALSE(Init());
    EXPECT_EQ(err, 0xB0000025u);
    EXPECT_EQ(Opens(), Strings({ Opened("nmp1", DisplayHeader(1, 1), 1024, 3, 5), R(1), D(2), R(2), D(0), R(0) }));
    ExpectHandles({ 2, 0 }, { 1, 2, 0 });

    log.failInit.clear();
    journal.Clear();
    log.ClearLines();
    EXPECT_TRUE(Init());
    EXPECT_EQ(err, 0xB0000000u);
    EXPECT_EQ(Opens(), Strings({ D(1) }));
    ExpectHandles({ 1, 2, 0 }, { 1, 2, 0 });
    EXPECT_EQ(LinesOf("_DkpfPlogInit"), Strings({ "diskperf_trace 8 ENTER : ", "diskperf_trace 8 EXIT<TRUE>" }));
}

TEST_F(CsvFilesInit, AFailedTotalDisplayFileDoesNotStopTheTotalRawFile)
{
    Present({ 1 });
    log.failInit["nmp_total"] = 4;
    EXPECT_FALSE(Init());
    EXPECT_EQ(err, 0xB0000025u) << "kept, although the next file opened";
    ExpectHandles({ 1 }, { 1, 0 });
}

TEST_F(CsvFilesInit, EachFailedOpenIsTracedWithNameHandleStatusAndCode)
{
    Present({ 1, 2 });
    log.failInit = { { "nmp1", 5 }, { "nmp2_raw", 2 }, { "nmp_total", 4 }, { "nmp_total_raw", 0x80000001 } };
    EXPECT_FALSE(Init());
    auto line = [](const char* name, int status) {
        return "diskperf_trace 1 " +
               TextOf("log_util_init(%s,%#p) failed(%d,0xb0000025).", name, static_cast<void*>(nullptr), status);
    };
    EXPECT_EQ(LinesOf("_DkpfPlogInit"),
              Strings({ "diskperf_trace 8 ENTER : ", line("nmp1", 5), line("nmp2_raw", 2), line("nmp_total", 4),
                        line("nmp_total_raw", -2147483647), "diskperf_trace 8 EXIT<FALSE>" }));
}

/* A logging library that fails and leaves something in the handle. */
static DWORD FailWithRubbish(const char*, HTNWCSV* file, DWORD, DWORD, DWORD, DWORD, DWORD, const char*, DWORD, DWORD)
{
    *file = reinterpret_cast<HTNWCSV>(static_cast<ULONG_PTR>(0x12345678));
    return 7;
}

TEST_F(CsvFilesInit, WhateverTheLibraryLeftInTheHandleIsTracedAndForgotten)
{
    ASSERT_TRUE(hooks.Replace("tnwlog.dll", WORD{ 19 }, Address(FailWithRubbish)));
    Present({ 1 });
    EXPECT_FALSE(Init());
    ExpectHandles({}, {});
    EXPECT_EQ(LinesOf("_DkpfPlogInit", 1),
              Strings({ "diskperf_trace 1 " + TextOf("log_util_init(nmp1,%#p) failed(7,0xb0000025).",
                                                     reinterpret_cast<void*>(0x12345678)),
                        "diskperf_trace 1 " + TextOf("log_util_init(nmp1_raw,%#p) failed(7,0xb0000025).",
                                                     reinterpret_cast<void*>(0x12345678)) }));
}

/* ---- Headers that cannot be built -------------------------------------------------------------------------------- */

static int g_nFailingIndex;

static BOOL HeaderFails(int nmpIndex, DWORD, char* text, DWORD* code)
{
    *code = nmpIndex == g_nFailingIndex ? 0xB0000004 : 0xB0000000;
    snprintf(text, 100, "display header %d", nmpIndex);
    return nmpIndex != g_nFailingIndex;
}

static BOOL RawHeaderFails(int nmpIndex, char* text, DWORD* code)
{
    *code = nmpIndex == g_nFailingIndex ? 0xB0000004 : 0xB0000000;
    snprintf(text, 100, "raw header %d", nmpIndex);
    return nmpIndex != g_nFailingIndex;
}

TEST_F(CsvFilesInit, ADisksDisplayHeaderThatFailsCostsThatFileAlone)
{
    Detour detour(_DkpfPlogHeaderStr, HeaderFails);
    g_nFailingIndex = 1;
    Present({ 1, 2 });
    EXPECT_FALSE(Init());
    EXPECT_EQ(err, 0xB0000004u);
    ExpectHandles({ 2, 0 }, { 1, 2, 0 });
    EXPECT_EQ(LinesOf("_DkpfPlogInit"),
              Strings({ "diskperf_trace 8 ENTER : ", "diskperf_trace 1 _DkpfPlogHeaderStr(1) failed(0xb0000004).",
                        "diskperf_trace 8 EXIT<FALSE>" }));
}

TEST_F(CsvFilesInit, ADisksRawHeaderThatFailsCostsThatFileAlone)
{
    Detour detour(_DkpfPlogHeaderStrRaw, RawHeaderFails);
    g_nFailingIndex = 2;
    Present({ 1, 2 });
    EXPECT_FALSE(Init());
    EXPECT_EQ(err, 0xB0000004u);
    ExpectHandles({ 1, 2, 0 }, { 1, 0 });
    EXPECT_EQ(LinesOf("_DkpfPlogInit"),
              Strings({ "diskperf_trace 8 ENTER : ", "diskperf_trace 1 _DkpfPlogHeaderStrRaw(2) failed(0xb0000004).",
                        "diskperf_trace 8 EXIT<FALSE>" }));
}

TEST_F(CsvFilesInit, ATotalDisplayHeaderThatFailsIsTracedWithoutANumber)
{
    Detour detour(_DkpfPlogHeaderStr, HeaderFails);
    g_nFailingIndex = 0;
    Present({ 1 });
    EXPECT_FALSE(Init());
    EXPECT_EQ(err, 0xB0000004u);
    ExpectHandles({ 1 }, { 1, 0 });
    EXPECT_EQ(LinesOf("_DkpfPlogInit", 1), Strings({ "diskperf_trace 1 _DkpfPlogHeaderStr() failed(0xb0000004)." }));
}

TEST_F(CsvFilesInit, ATotalRawHeaderThatFailsIsTracedWithoutANumber)
{
    Detour detour(_DkpfPlogHeaderStrRaw, RawHeaderFails);
    g_nFailingIndex = 0;
    Present({ 1 });
    EXPECT_FALSE(Init());
    EXPECT_EQ(err, 0xB0000004u);
    ExpectHandles({ 1, 0 }, { 1 });
    EXPECT_EQ(LinesOf("_DkpfPlogInit", 1), Strings({ "diskperf_trace 1 _DkpfPlogHeaderStrRaw() failed(0xb0000004)." }));
}

TEST_F(CsvFilesInit, TheCodeIsTheLastFailuresWhereAFileFailsAfterAHeader)
{
    Detour detour(_DkpfPlogHeaderStr, HeaderFails);
    g_nFailingIndex = 1;
    Present({ 1, 2 });
    log.failInit["nmp2"] = 5;
    EXPECT_FALSE(Init());
    EXPECT_EQ(err, 0xB0000025u);
}

TEST_F(CsvFilesInit, TheCodeIsTheLastFailuresWhereAHeaderFailsAfterAFile)
{
    Detour detour(_DkpfPlogHeaderStr, HeaderFails);
    g_nFailingIndex = 0;
    Present({ 1, 2 });
    log.failInit["nmp2"] = 5;
    EXPECT_FALSE(Init());
    EXPECT_EQ(err, 0xB0000004u);
}

/* ---- Rotating ---------------------------------------------------------------------------------------------------- */

TEST_F(CsvFilesRotate, OpenDisplayFilesOfPresentDisksAndTheTotalStartAnewWithTheNewHeader)
{
    Present({ 1, 64 });
    EXPECT_TRUE(Init());
    conf.collect_param = 0x1800;
    EXPECT_TRUE(Rotate());
    EXPECT_EQ(err, 0xB0000000u);
    EXPECT_EQ(Rotations(), Strings({ Rotated("nmp1", "\"Time\"" + Column(1, 12) + Column(1, 11)),
                                     Rotated("nmp64", "\"Time\"" + Column(64, 12) + Column(64, 11)),
                                     Rotated("nmp_total", "\"Time\"" + Column(0, 12) + Column(0, 11)) }));
    EXPECT_EQ(LinesOf("_DkpfPlogRotate"), Strings({ "diskperf_trace 8 ENTER : ", "diskperf_trace 8 EXIT<TRUE>" }));
    EXPECT_EQ(std::string(buffer.data()), DisplayHeader(0, 0x1800)) << "built in the line buffer";
}

TEST_F(CsvFilesRotate, RawFilesKeepTheirFileAndHeader)
{
    Present({ 1 });
    EXPECT_TRUE(Init());
    conf.collect_param = 0x2;
    EXPECT_TRUE(Rotate());
    EXPECT_EQ(log.csv["nmp1_raw"].rotations + log.csv["nmp_total_raw"].rotations, 0u);
    EXPECT_EQ(log.csv["nmp1"].headers, Strings({ DisplayHeader(1, 1), DisplayHeader(1, 2) }));
}

TEST_F(CsvFilesRotate, WithNoFileOpenDoesNothingAndReturnsTrue)
{
    Present({ 1, 2 });
    EXPECT_TRUE(Rotate());
    EXPECT_EQ(err, 0xB0000000u);
    EXPECT_EQ(Rotations(), Strings());
    EXPECT_EQ(Opens(), Strings());
    EXPECT_EQ(LinesOf("_DkpfPlogRotate"), Strings({ "diskperf_trace 8 ENTER : ", "diskperf_trace 8 EXIT<TRUE>" }));
}

TEST_F(CsvFilesRotate, FilesOfDisksThatAreNotPresentKeepTheirHeader)
{
    Present({ 1, 2, 3 });
    EXPECT_TRUE(Init());
    Present({ 2 });
    flags[2] = 2;  // a state of its own, but not present
    conf.collect_param = 0x4;
    EXPECT_TRUE(Rotate());
    EXPECT_EQ(Rotations(),
              Strings({ Rotated("nmp2", DisplayHeader(2, 4)), Rotated("nmp_total", DisplayHeader(0, 4)) }));
    EXPECT_EQ(log.csv["nmp1"].header, DisplayHeader(1, 1));
    EXPECT_EQ(log.csv["nmp3"].header, DisplayHeader(3, 1));
}

TEST_F(CsvFilesRotate, TheTotalStaysWhereNoPresentDiskHasAnOpenFile)
{
    Present({ 1 });
    EXPECT_TRUE(Init());
    Present({ 2 });
    EXPECT_TRUE(Rotate());
    EXPECT_EQ(Rotations(), Strings());
}

TEST_F(CsvFilesRotate, ATotalThatIsNotOpenIsLeftOut)
{
    Present({ 1 });
    log.failInit["nmp_total"] = 4;
    EXPECT_FALSE(Init());
    EXPECT_TRUE(Rotate());
    EXPECT_EQ(Rotations(), Strings({ Rotated("nmp1", DisplayHeader(1, 1)) }));
}

TEST_F(CsvFilesRotate, AFailureLeavesTheHandleOpenAndTheOthersGoOn)
{
    Present({ 1, 2 });
    EXPECT_TRUE(Init());
    log.failRotate["nmp1"] = 3;
    conf.collect_param = 0x8;
    EXPECT_FALSE(Rotate());
    EXPECT_EQ(err, 0xB0000026u);
    EXPECT_EQ(Rotations(), Strings({ Rotated("nmp1", DisplayHeader(1, 8), 3), Rotated("nmp2", DisplayHeader(2, 8)),
                                     Rotated("nmp_total", DisplayHeader(0, 8)) }));
    EXPECT_EQ(LinesOf("_DkpfPlogRotate"),
              Strings({ "diskperf_trace 8 ENTER : ",
                        "diskperf_trace 1 " + TextOf("log_util_rotate(%#p) failed(3,0xb0000026).", File("nmp1")),
                        "diskperf_trace 8 EXIT<FALSE>" }));
    ExpectHandles({ 1, 2, 0 }, { 1, 2, 0 });
    EXPECT_EQ(journal.Number("log_util_term"), 0u);
}

TEST_F(CsvFilesRotate, TheTotalStaysWhereEveryDiskFailed)
{
    Present({ 1, 2 });
    EXPECT_TRUE(Init());
    log.failRotate = { { "nmp1", 5 }, { "nmp2", 5 } };
    EXPECT_FALSE(Rotate());
    EXPECT_EQ(journal.Number("log_util_rotate"), 2u);
}

TEST_F(CsvFilesRotate, AFailingTotalIsTraced)
{
    Present({ 1 });
    EXPECT_TRUE(Init());
    log.failRotate["nmp_total"] = 7;
    EXPECT_FALSE(Rotate());
    EXPECT_EQ(err, 0xB0000026u);
    EXPECT_EQ(
        LinesOf("_DkpfPlogRotate", 1),
        Strings({ "diskperf_trace 1 " + TextOf("log_util_rotate(%#p) failed(7,0xb0000026).", File("nmp_total")) }));
    ExpectHandles({ 1, 0 }, { 1, 0 });
}

TEST_F(CsvFilesRotate, ADisksHeaderThatFailsLeavesThatFileUnrotated)
{
    Present({ 1, 2 });
    EXPECT_TRUE(Init());
    Detour detour(_DkpfPlogHeaderStr, HeaderFails);
    g_nFailingIndex = 1;
    log.ClearLines();
    EXPECT_FALSE(Rotate());
    EXPECT_EQ(err, 0xB0000004u);
    EXPECT_EQ(Rotations(), Strings({ Rotated("nmp2", "display header 2"), Rotated("nmp_total", "display header 0") }));
    EXPECT_EQ(LinesOf("_DkpfPlogRotate"),
              Strings({ "diskperf_trace 8 ENTER : ", "diskperf_trace 1 _DkpfPlogHeaderStr(1) failed(0xb0000004).",
                        "diskperf_trace 8 EXIT<FALSE>" }));
}

TEST_F(CsvFilesRotate, ATotalHeaderThatFailsLeavesTheTotalUnrotated)
{
    Present({ 1 });
    EXPECT_TRUE(Init());
    Detour detour(_DkpfPlogHeaderStr, HeaderFails);
    g_nFailingIndex = 0;
    EXPECT_FALSE(Rotate());
    EXPECT_EQ(err, 0xB0000004u);
    EXPECT_EQ(Rotations(), Strings({ Rotated("nmp1", "display header 1") }));
    EXPECT_EQ(LinesOf("_DkpfPlogRotate", 1), Strings({ "diskperf_trace 1 _DkpfPlogHeaderStr() failed(0xb0000004)." }));
}

TEST_F(CsvFilesRotate, TheCodeIsTheLastFailures)
{
    Present({ 1 });
    EXPECT_TRUE(Init());
    Detour detour(_DkpfPlogHeaderStr, HeaderFails);
    Present({ 1, 2 });
    disp[2] = disp[0];
    log.failRotate["nmp_total"] = 5;
    g_nFailingIndex = 1;
    EXPECT_FALSE(Rotate());
    EXPECT_EQ(err, 0xB0000026u) << "the header of disk 1 failed before";
}
