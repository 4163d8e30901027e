/*
 * Each call that the write thread depends on fails once: the line, the code, the warning, and nothing left open.
 */
#include "support/write_thread_fixture.h"

class WriteFault : public WriteThreadTest {
protected:
    /* The thread ended by itself on an error. */
    void ExpectStopped(const std::string& line)
    {
        EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 " + line }));
        EXPECT_EQ(ThreadLines().front(), "diskperf 8 ENTER : ");
        EXPECT_EQ(ThreadLines().back(), "diskperf 8 EXIT<FALSE>");
        EXPECT_EQ(log.Events(), Events({ 0xC00012C5 }));
        EXPECT_EQ(WarnChanges(), Strings({ " Set Warn Event <EventID=0><cnt=1><BlockID=0x1>" }));
        EXPECT_EQ(journal.All().back().name, "_endthreadex");
        EXPECT_EQ(journal.Lines({ "_endthreadex" }), Strings({ "_endthreadex(0) = " }));
    }
};

/* ---- Start ------------------------------------------------------------------------------------------------------- */

struct StartFault {
    const char* name;
    const char* call;
    unsigned    nth;
    DWORD       error;
    const char* line;
};

static void PrintTo(const StartFault& fault, std::ostream* out)
{
    *out << fault.name;
}

class WriteStartFault : public WriteFault, public testing::WithParamInterface<StartFault> {};

static const StartFault StartFaults[] = {
    { "ComputerName", "GetComputerNameA", 1, 1234,
      "GetComputerName() failed(W32Err=1234). retSize(16) dkpferr(0xb0000024)" },
    { "LineBuffer", "GlobalAlloc", 1, ERROR_NOT_ENOUGH_MEMORY, "lpStr _MALLOC() failed(0xb000000b)." },
    { "CurrentSample", "GlobalAlloc", 2, ERROR_NOT_ENOUGH_MEMORY, "lpCurParam _MALLOC() failed(0xb000000b)." },
    { "PreviousSample", "GlobalAlloc", 3, ERROR_NOT_ENOUGH_MEMORY, "lpPrevParam _MALLOC() failed(0xb000000b)." },
    { "DisplayRecord", "GlobalAlloc", 4, ERROR_NOT_ENOUGH_MEMORY, "lpData _MALLOC() failed(0xb000000b)." },
    { "RawTotalRecord", "GlobalAlloc", 5, ERROR_NOT_ENOUGH_MEMORY, "lpDataRawT _MALLOC() failed(0xb000000b)." },
    { "RegionLock", "WaitForSingleObject", 1, ERROR_INVALID_HANDLE, "_DkpfShmGetConf() failed(0xb0000006)." },
};
INSTANTIATE_TEST_SUITE_P(Of, WriteStartFault, testing::ValuesIn(StartFaults),
                         [](const auto& fault) { return std::string(fault.param.name); });

TEST_P(WriteStartFault, EndsTheThreadWithWarningZeroAndLeavesNothing)
{
    const StartFault& fault = GetParam();
    os.Fail(fault.call, fault.nth, fault.error);
    EXPECT_EQ(Run(), 0u);
    ExpectStopped(fault.line);
    ExpectNothingLeft();
    EXPECT_EQ(journal.Number("GlobalAlloc"), std::string(fault.call) == "GlobalAlloc"        ? fault.nth
                                             : std::string(fault.call) == "GetComputerNameA" ? 0u
                                                                                             : 5u)
        << "nothing more is tried";
    EXPECT_EQ(journal.Number("WaitForMultipleObjects"), 0u);
}

TEST_F(WriteFault, AComputerNameThatIsTooLongTellsTheSizeItNeeds)
{
    os.computerName = "ABCDEFGHIJKLMNOPQRS";
    EXPECT_EQ(Run(), 0u);
    ExpectStopped("GetComputerName() failed(W32Err=111). retSize(20) dkpferr(0xb0000024)");
    ExpectNothingLeft();
}

TEST_F(WriteFault, FirstConfigurationWithoutARegionEndsTheThread)
{
    g_dwShmInitCount = 0;
    EXPECT_EQ(Run(), 0u);
    ExpectStopped("_DkpfShmGetConf() failed(0xb0000018).");
    ExpectNothingLeft();
}

TEST_F(WriteFault, FirstConfigurationWhoseUnlockFailsEndsTheThread)
{
    os.Fail("ReleaseMutex", 1, ERROR_NOT_OWNER);
    EXPECT_EQ(Run(), 0u);
    ExpectStopped("_DkpfShmGetConf() failed(0xb0000010).");
    EXPECT_EQ(os.Leaks(), Strings({ "locked: mutex Global\\TNW_DKPF_MUTEX_INFO" }))
        << "what the double was told to refuse";
}

TEST_F(WriteFault, WarningZeroThatFailsIsTracedWithItsCode)
{
    g_hWarnEventMutex = NULL;
    os.Fail("GlobalAlloc", 3, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(ThreadLines(),
              Strings({ "diskperf 8 ENTER : ", "diskperf 1 lpPrevParam _MALLOC() failed(0xb000000b).",
                        "diskperf 1 _DkpfSetWarnEventLog() failed.(0xb0000006)", "diskperf 8 EXIT<FALSE>" }));
    EXPECT_EQ(log.Events(), Events());
    ExpectNothingLeft();
}

/* ---- Waiting ----------------------------------------------------------------------------------------------------- */

class WriteWaitFault : public WriteFault, public testing::WithParamInterface<DWORD> {
protected:
    std::string Line(DWORD error)
    {
        return TextOf("WaitForMultipleObjects(%d(%#p,%#p)) error. <W32Err=%d>", 2, g_hTerminateEvent, g_hReloadEvent2,
                      error);
    }
};
INSTANTIATE_TEST_SUITE_P(Result, WriteWaitFault,
                         testing::Values(WAIT_FAILED, WAIT_ABANDONED_0, WAIT_ABANDONED_0 + 1, 2u, WAIT_IO_COMPLETION),
                         [](const auto& result) { return Hex(result.param); });

TEST_P(WriteWaitFault, InTheFirstPassEndsTheThread)
{
    os.Return("WaitForMultipleObjects", 1, GetParam(), 77);
    EXPECT_EQ(Run(), 0u);
    ExpectStopped(Line(77));
    ExpectNothingLeft();
}

TEST_P(WriteWaitFault, WithFilesOpenClosesThemAll)
{
    Store({ 1, 2 }, 100);
    StoreAt(5000, { 1, 2 }, 130);
    os.Return("WaitForMultipleObjects", 3, GetParam(), 6);
    EXPECT_EQ(Run(), 0u);
    ExpectStopped(Line(6));
    EXPECT_EQ(journal.Number("log_util_term"), 6u);
    EXPECT_EQ(log.csv["nmp2"].lines, Strings({ Display(5000, 30) }));
    ExpectNothingLeft();
}

TEST_P(WriteWaitFault, AfterAReloadEndsTheThread)
{
    ReloadAt(3000);
    os.Return("WaitForMultipleObjects", 3, GetParam(), 6);
    EXPECT_EQ(Run(), 0u);
    ExpectStopped(Line(6));
    ExpectNothingLeft();
}

/* ---- Region ------------------------------------------------------------------------------------------------------ */

/* The calls of region and warning mutex in the order of a run with lines: configuration, sample of pass 1, sample of
 * pass 2, both warnings cleared. */
struct RegionFault {
    const char* name;
    const char* call;
    DWORD       error;
    const char* code;
};

static void PrintTo(const RegionFault& fault, std::ostream* out)
{
    *out << fault.name;
}

class WriteRegionFault : public WriteFault, public testing::WithParamInterface<RegionFault> {
protected:
    /* The thread goes on, and whatever the double refused to release is all that is left. */
    void RunOn(ULONGLONG stop)
    {
        os.SignalAt(stop, g_hTerminateEvent);
        EXPECT_EQ(Run(), 0u);
        EXPECT_EQ(ThreadLines().back(), "diskperf 8 EXIT<TRUE>");
        EXPECT_EQ(os.Leaks(), std::string(GetParam().call) == "ReleaseMutex"
                                  ? Strings({ "locked: mutex Global\\TNW_DKPF_MUTEX_INFO" })
                                  : Strings());
        EXPECT_EQ(log.OpenCsv(), Strings());
    }
};
static const RegionFault RegionFaults[] = {
    { "Lock", "WaitForSingleObject", ERROR_INVALID_HANDLE, "0xb0000006" },
    { "Unlock", "ReleaseMutex", ERROR_NOT_OWNER, "0xb0000010" },
};
INSTANTIATE_TEST_SUITE_P(By, WriteRegionFault, testing::ValuesIn(RegionFaults),
                         [](const auto& fault) { return std::string(fault.param.name); });

TEST_P(WriteRegionFault, TheFirstSampleIsTriedAgainInTheNextPass)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    StoreAt(15000, { 1 }, 200);
    os.Fail(GetParam().call, 2, GetParam().error);
    RunOn(25000);
    EXPECT_EQ(ThreadLines(1),
              Strings({ std::string("diskperf 1 _DkpfShmGetPerf() failed(") + GetParam().code + ")." }));
    EXPECT_EQ(log.Events(), Events({ 0x800012C1, 0x400012C2 }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(15000, 70) }))
        << "the baseline is the sample of the second pass";
}

TEST_P(WriteRegionFault, ALaterSampleIsTriedAgainInTheNextPass)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    StoreAt(15000, { 1 }, 200);
    os.Fail(GetParam().call, 3, GetParam().error);
    RunOn(25000);
    EXPECT_EQ(ThreadLines(1),
              Strings({ std::string("diskperf 1 _DkpfShmGetPerf() failed(") + GetParam().code + ")." }));
    EXPECT_EQ(log.Events(), Events({ 0x800012C1, 0x400012C2 }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(15000, 100) })) << "the baseline stayed";
}

TEST_P(WriteRegionFault, AConfigurationReadAgainBeginsANewPass)
{
    Store({ 1 }, 100);
    ReloadAt(3000);
    StoreAt(5000, { 1 }, 130);
    os.Fail(GetParam().call, 3, GetParam().error);
    RunOn(20000);
    EXPECT_EQ(ThreadLines(1),
              Strings({ std::string("diskperf 1 _DkpfShmGetConf() failed(") + GetParam().code + ")." }));
    EXPECT_EQ(log.Events(), Events({ 0x800012C1, 0x400012C2 }));
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> reload @3000", "10000 -> timeout @13000",
                                 "10000 -> terminate @20000" }));
}

/* ---- Files ------------------------------------------------------------------------------------------------------- */

/* Disks 1 and 3 present: six files, in the order in which they are opened and written. */
static const char* const Files[] = { "nmp1", "nmp1_raw", "nmp3", "nmp3_raw", "nmp_total", "nmp_total_raw" };

class WriteFileFault : public WriteFault, public testing::WithParamInterface<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Nth, WriteFileFault, testing::Range(1u, 7u),
                         [](const auto& nth) { return std::string(Files[nth.param - 1]); });

TEST_P(WriteFileFault, ALineThatFailsCostsThatFileAlone)
{
    Store({ 1, 3 }, 100);
    StoreAt(5000, { 1, 3 }, 130);
    StoreAt(15000, { 1, 3 }, 200);
    log.Fail("log_util_write", GetParam(), TNWLOG_DISK_FULL);
    Run(25000);
    for (const char* file : Files) {
        EXPECT_EQ(log.csv[file].lines.size(), file == Files[GetParam() - 1] ? 1u : 2u) << file;
        EXPECT_EQ(log.csv[file].opened, 1u) << file;
    }
    EXPECT_EQ(log.csv["nmp1"].lines.back(), Display(15000, 70));
    EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 _DkpfPlogWriteCSV() failed(0xb0000027)." }));
    EXPECT_EQ(log.Events(), Events({ 0x800012C3, 0x400012C4 }));
}

TEST_P(WriteFileFault, AFileThatCannotBeOpenedCostsThePassAndIsTriedAgain)
{
    Store({ 1, 3 }, 100);
    StoreAt(5000, { 1, 3 }, 130);
    StoreAt(15000, { 1, 3 }, 200);
    log.Fail("log_util_init", GetParam(), TNWLOG_NO_MEMORY);
    Run(25000);
    for (const char* file : Files) {
        EXPECT_EQ(log.csv[file].lines.size(), 1u) << file;
    }
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(15000, 70) }));
    EXPECT_EQ(journal.Number("log_util_init"), 7u);
    EXPECT_EQ(journal.Of("log_util_init").back().args.substr(0, strlen(Files[GetParam() - 1]) + 3),
              "\"" + std::string(Files[GetParam() - 1]) + "\",");
    EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 _DkpfPlogInit() failed(0xb0000025)." }));
    EXPECT_EQ(log.Events(), Events({ 0x800012C3, 0x400012C4 }));
}

TEST_P(WriteFileFault, AFileThatCannotBeClosedDoesNotStopTheEnd)
{
    Store({ 1, 3 }, 100);
    StoreAt(5000, { 1, 3 }, 130);
    log.Fail("log_util_term", GetParam(), TNWLOG_INVALID_ARGUMENT);
    os.SignalAt(15000, g_hTerminateEvent);
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(journal.Number("log_util_term"), 6u);
    EXPECT_EQ(log.OpenCsv().size(), 1u);
    EXPECT_EQ(os.Leaks(), Strings());
    EXPECT_EQ(ThreadLines().back(), "diskperf 8 EXIT<TRUE>");
}

TEST_F(WriteFault, WhereEveryDiskLineFailsTheTotalsGetNone)
{
    Store({ 1, 3 }, 100);
    StoreAt(5000, { 1, 3 }, 130);
    log.Fail("log_util_write", 1, TNWLOG_DISK_FULL, 4);
    Run(15000);
    EXPECT_EQ(journal.Number("log_util_write"), 4u);
    EXPECT_TRUE(log.csv["nmp_total"].lines.empty());
    EXPECT_EQ(log.Events(), Events({ 0x800012C3 }));
}

class WriteRotateFault : public WriteFault, public testing::WithParamInterface<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Nth, WriteRotateFault, testing::Range(1u, 4u), [](const auto& nth) {
    return std::string(nth.param == 1 ? "nmp1" : nth.param == 2 ? "nmp3" : "nmp_total");
});

TEST_P(WriteRotateFault, BeginsANewPassAndTheNextLineClears)
{
    Store({ 1, 3 }, 100);
    StoreAt(5000, { 1, 3 }, 130);
    log.Fail("log_util_rotate", GetParam(), TNWLOG_WRITE_FAILED);
    ReloadAt(12000, [](DKPF_CONF& conf) { conf.collect_param = RateColumn; });
    StoreAt(15000, { 1, 3 }, 230);
    Run(25000);
    EXPECT_EQ(journal.Number("log_util_rotate"), 3u) << "the others are rotated all the same";
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> reload @12000",
                                 "10000 -> timeout @22000", "10000 -> terminate @25000" }));
    EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 _DkpfPlogRotate() failed(0xb0000026)." }));
    EXPECT_EQ(log.Events(), Events({ 0x800012C3, 0x400012C4 }));
    EXPECT_EQ(log.csv["nmp3"].lines, Strings({ Display(5000, 30), Display(15000, 10) }));
}
