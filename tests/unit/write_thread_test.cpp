/*
 * The write thread from its start to its end: what it waits for, which samples it compares, what it writes, warns of
 * and gives back.
 */
#include <memory>

#include "support/detour.h"
#include "support/display_value_stubs.h"
#include "support/write_thread_fixture.h"

class WriteThread : public WriteThreadTest {};

/* ---- Start ------------------------------------------------------------------------------------------------------- */

TEST_F(WriteThread, TakesNameBuffersAndConfigurationInThisOrderAndGivesAllBack)
{
    Run(0);
    EXPECT_EQ(journal.Names(),
              Strings({ "GetComputerNameA", "GlobalAlloc", "GlobalAlloc", "GlobalAlloc", "GlobalAlloc", "GlobalAlloc",
                        "WaitForSingleObject", "ReleaseMutex", "GetTickCount", "WaitForMultipleObjects", "GlobalFree",
                        "GlobalFree", "GlobalFree", "GlobalFree", "GlobalFree", "_endthreadex" }));
    EXPECT_EQ(journal.Lines({ "GetComputerNameA" }), Strings({ "GetComputerNameA(16) = TRUE" }));
    Strings sizes;
    for (const Call& call : journal.Of("GlobalAlloc")) {
        sizes.push_back(call.args);
    }
    EXPECT_EQ(sizes, Strings({ "0x40, 13440", "0x40, 10168", "0x40, 10168", "0x40, 8840", "0x40, 152" }));
    EXPECT_EQ(journal.Lines({ "_endthreadex" }), Strings({ "_endthreadex(0) = " }));
    EXPECT_STREQ(g_szComputerName, "NODE1");
}

TEST_F(WriteThread, AsksForEveryFieldOfTheConfiguration)
{
    Run(0);
    EXPECT_EQ(log.Texts("diskperf", TNWLOG_ENTEREXIT),
              Strings({ "ENTER : ", "ENTER : getflag=0xffff", "EXIT<TRUE> err<0xb0000000>", "EXIT<TRUE>" }));
}

TEST_F(WriteThread, WaitsForTheTerminateEventThenTheReloadEventWhicheverComes)
{
    Run(0);
    EXPECT_EQ(journal.Lines({ "WaitForMultipleObjects" }),
              Strings({ "WaitForMultipleObjects(2, any, event " + Hex(reinterpret_cast<ULONG_PTR>(g_hTerminateEvent)) +
                        ", event Global\\TNW_DKPF_EVENT_RELOAD2, 0) = 0" }));
}

TEST_F(WriteThread, TheHeadersCarryTheComputerNameOfUpToFifteenCharacters)
{
    os.computerName = "ABCDEFGHIJKLMNO";
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    Run(15000);
    EXPECT_EQ(log.csv["nmp1"].header, "\"Time\",\"\\\\ABCDEFGHIJKLMNO\\Cluster Disk Resource Performance(P1)\\T11\"");
}

TEST_F(WriteThread, ItsArgumentIsNotUsed)
{
    os.Signal(g_hTerminateEvent);
    EXPECT_EQ(os.RunThread(_DkpfPlogWriteThread, reinterpret_cast<void*>(1)), 0u);
    ExpectNothingLeft();
}

/* ---- Passes ------------------------------------------------------------------------------------------------------ */

TEST_F(WriteThread, TheFirstPassDoesNotWaitAndItsSampleIsTheBaselineOnly)
{
    Store({ 1 }, 100);
    Run(5000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> terminate @5000" }));
    EXPECT_EQ(Calls("_DkpfShmGetPerf"), 1u);
    EXPECT_EQ(Calls("_DkpfCmnGetDisplayValue"), 0u);
    EXPECT_TRUE(log.csv.empty());
}

TEST_F(WriteThread, TheFirstLineIsWrittenOneIntervalLater)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    Run(15000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> terminate @15000" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ "\"03/07/2026 14:05:14.042\",\"30\"" }));
    EXPECT_EQ(log.csv["nmp1_raw"].lines, Strings({ Raw(5000, 130) }));
    EXPECT_EQ(log.csv["nmp_total"].lines, Strings({ Display(5000, 30) }));
    EXPECT_EQ(log.csv["nmp_total_raw"].lines, Strings({ Raw(5000, 130) }));
    EXPECT_EQ(log.csv.size(), 4u);
    EXPECT_EQ(log.Events(), Events());
}

TEST_F(WriteThread, TracesEachPassAndEachTimeoutInTheModuleLog)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    Run(15000);
    EXPECT_EQ(ThreadLines(),
              Strings({ "diskperf 8 ENTER : ", "diskperf 32  Loop (1) Start.", "diskperf 32 timeout:10sec",
                        "diskperf 32  Loop (2) Start.", "diskperf 32 timeout:10sec", "diskperf 32  Loop (3) Start.",
                        "diskperf 8 EXIT<TRUE>" }));
}

TEST_F(WriteThread, EveryPassWritesTheDifferenceToTheSampleBefore)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    StoreAt(15000, { 1 }, 170);
    StoreAt(25000, { 1 }, 171);
    Run(35000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(15000, 40), Display(25000, 1) }));
    EXPECT_EQ(log.csv["nmp_total"].lines, Strings({ Display(5000, 30), Display(15000, 40), Display(25000, 1) }));
    EXPECT_EQ(log.csv["nmp1_raw"].lines, Strings({ Raw(5000, 130), Raw(15000, 170), Raw(25000, 171) }));
    EXPECT_EQ(log.csv["nmp1"].opened, 1u);
}

TEST_F(WriteThread, TheSampleItReadsIsTheLatestNotTheOnesBetween)
{
    Store({ 1 }, 100);
    StoreAt(2000, { 1 }, 110);
    StoreAt(4000, { 1 }, 180);
    StoreAt(9000, { 1 }, 200);
    Run(15000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(9000, 100) }));
}

/* instance[p] = 100 (p + 1), then 150 (p + 1); maxinstance[k] = 1000 + k; disks 1 and 3 alike; 5 s between both. */
TEST_F(WriteThread, AllColumnsOfALineAreThoseOfTheTwoSamples)
{
    auto fill = [this](ULONGLONG factor) {
        Store({ 1, 3 }, 0);
        for (int slot : { 0, 2 }) {
            for (ULONGLONG p = 0; p < 12; p++) {
                region->instance[p].inst_sub[slot].value = factor * (p + 1);
            }
            for (ULONGLONG k = 0; k < 7; k++) {
                region->maxinstance[0][k].inst_sub[slot].value = 1000 + k;
            }
        }
    };
    region->conf.collect_param = 0x1FFFF;
    fill(100);
    os.At(5000, [&] { fill(150); });
    Run(15000);
    EXPECT_EQ(
        log.csv["nmp1"].lines,
        Strings({ Stamp(5000) +
                  ",\"150\",\"1200\",\"1003\",\"1500\",\"1005\",\"1\",\"1006\",\"900\",\"1001\",\"1050\",\"1002\","
                  "\"10\",\"50\",\"1350\",\"1004\",\"1\",\"1000\"" }));
    EXPECT_EQ(log.csv["nmp3"].lines, log.csv["nmp1"].lines);
    EXPECT_EQ(
        log.csv["nmp_total"].lines,
        Strings({ Stamp(5000) +
                  ",\"150\",\"2400\",\"1003\",\"3000\",\"1005\",\"1\",\"1006\",\"1800\",\"1001\",\"2100\",\"1002\","
                  "\"20\",\"100\",\"2700\",\"1004\",\"1\",\"1000\"" }));
    EXPECT_EQ(
        log.csv["nmp1_raw"].lines,
        Strings(
            { Stamp(5000) +
              ",\"150\",\"300\",\"450\",\"600\",\"1000\",\"750\",\"900\",\"1001\",\"1050\",\"1002\",\"1200\",\"1003\","
              "\"1350\",\"1004\",\"1500\",\"1005\",\"1650\",\"1006\",\"1800\"" }));
    EXPECT_EQ(log.csv["nmp_total_raw"].lines,
              Strings({ Stamp(5000) + ",\"300\",\"600\",\"900\",\"1200\",\"1000\",\"1500\",\"1800\",\"1001\",\"2100\","
                                      "\"1002\",\"2400\",\"1003\","
                                      "\"2700\",\"1004\",\"3000\",\"1005\",\"3300\",\"1006\",\"3600\"" }));
}

TEST_F(WriteThread, PeaksAreThoseSinceThePassBefore)
{
    region->conf.collect_param = 0x10000;  // counter 16, the peak of row 0
    auto peak = [this](ULONGLONG value) {
        Store({ 1 }, 0);
        region->maxinstance[0][0].inst_sub[0].value = value;
    };
    peak(900);
    os.At(5000, [&] { peak(7); });
    os.At(15000, [&] { Store({ 1 }, 0); });
    Run(25000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 7), Display(15000, 0) }))
        << "each read hands the peaks over and clears them";
}

TEST_F(WriteThread, NoSampleYetWritesNothingAndReadsAgainEachInterval)
{
    Run(25000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> timeout @20000",
                                 "10000 -> terminate @25000" }));
    EXPECT_EQ(Calls("_DkpfShmGetPerf"), 3u);
    EXPECT_TRUE(log.csv.empty());
    EXPECT_EQ(log.Events(), Events()) << "that the collect thread has nothing is its own to warn of";
}

TEST_F(WriteThread, TheFirstSampleAfterNoneIsTheBaseline)
{
    StoreAt(5000, { 1 }, 130);
    StoreAt(15000, { 1 }, 170);
    Run(25000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> timeout @20000",
                                 "10000 -> terminate @25000" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(15000, 40) }));
}

TEST_F(WriteThread, ASampleOfZerosForgetsTheBaseline)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    EraseAt(15000);
    StoreAt(25000, { 1 }, 170);
    StoreAt(35000, { 1 }, 175);
    Run(45000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(35000, 5) }))
        << "170 became the new baseline";
}

TEST_F(WriteThread, ASlowCollectorIsLookedAtEverySecondWithinTheSamePass)
{
    Store({ 1 }, 100);
    StoreAt(12500, { 1 }, 130);
    Run(15000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "1000 -> timeout @11000",
                                 "1000 -> timeout @12000", "1000 -> timeout @13000", "10000 -> terminate @15000" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(12500, 30) }));
    EXPECT_EQ(ThreadLines(),
              Strings({ "diskperf 8 ENTER : ", "diskperf 32  Loop (1) Start.", "diskperf 32 timeout:10sec",
                        "diskperf 32  Loop (2) Start.", "diskperf 32 timeout:10sec", "diskperf 32 timeout:10sec",
                        "diskperf 32 timeout:10sec", "diskperf 32 timeout:10sec", "diskperf 32  Loop (3) Start.",
                        "diskperf 8 EXIT<TRUE>" }));
}

TEST_F(WriteThread, NewnessIsTheSamplingTimeAloneNotTheValues)
{
    Store({ 1 }, 100);
    os.At(5000, [this] {
        DWORD before = region->sampling_time;
        Store({ 1 }, 999);
        region->sampling_time = before;
    });
    StoreAt(10500, { 1 }, 100);
    Run(15000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(10500, 0) }));
}

TEST_F(WriteThread, ARestartedTickCountIsANewSampleToo)
{
    Store({ 1 }, 100);
    os.At(5000, [this] {
        Store({ 1 }, 130);
        region->sampling_time = 3;
    });
    Run(15000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30) }));
}

TEST_F(WriteThread, ASampleOfZerosDuringTheLookEverySecondEndsThePass)
{
    Store({ 1 }, 100);
    EraseAt(10500);
    Run(15000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "1000 -> timeout @11000",
                                 "10000 -> terminate @15000" }));
}

TEST_F(WriteThread, BothOutputRecordsAreZeroedBeforeEachComputation)
{
    Detour detour(_DkpfCmnGetDisplayValue, CountingDisplayValues);
    g_displayValueCalls = DisplayValueCalls();
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    StoreAt(15000, { 1 }, 140);
    StoreAt(25000, { 1 }, 150);
    Run(35000);
    EXPECT_EQ(g_displayValueCalls.all, 3u);
    EXPECT_EQ(g_displayValueCalls.zeroed, 3u);
}

/* ---- Files over time --------------------------------------------------------------------------------------------- */

TEST_F(WriteThread, ADiskThatAppearsGetsItsFilesInThatPass)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    StoreAt(15000, { 1, 2 }, 140);
    Run(25000);
    EXPECT_EQ(journal.Lines({ "log_util_init" }),
              Strings({ Opened("nmp1", DisplayHeader(1, DeltaColumn)), Opened("nmp1_raw", RawHeader(1)),
                        Opened("nmp_total", DisplayHeader(0, DeltaColumn)), Opened("nmp_total_raw", RawHeader(0)),
                        Opened("nmp2", DisplayHeader(2, DeltaColumn)), Opened("nmp2_raw", RawHeader(2)) }));
    EXPECT_EQ(log.csv["nmp2"].lines, Strings({ Display(15000, 140) })) << "its whole running sum";
    EXPECT_EQ(log.csv["nmp1"].lines.size(), 2u);
}

TEST_F(WriteThread, TheFilesOfADiskThatLeavesStayOpenUntilTheThreadEnds)
{
    Store({ 1, 2 }, 100);
    StoreAt(5000, { 1, 2 }, 130);
    StoreAt(15000, { 1 }, 140);
    StoreAt(25000, { 1, 2 }, 150);
    os.At(24000, [this] {
        EXPECT_EQ(log.OpenCsv(), Strings({ "nmp1", "nmp1_raw", "nmp2", "nmp2_raw", "nmp_total", "nmp_total_raw" }));
    });
    Run(35000);
    EXPECT_EQ(log.csv["nmp2_raw"].lines, Strings({ Raw(5000, 130), Raw(25000, 150) }));
    EXPECT_EQ(log.csv["nmp2"].opened, 1u);
    EXPECT_EQ(journal.Number("log_util_term"), 6u);
}

TEST_F(WriteThread, WithNoDiskPresentNoFileIsOpenedAndThePassSucceeds)
{
    Store({}, 0);
    StoreAt(5000, {}, 0);
    g_WarnEvent[1].dwCount = g_WarnEvent[1].dwBlockFlag[1] = 1;
    Run(15000);
    EXPECT_TRUE(log.csv.empty());
    EXPECT_EQ(log.Events(), Events({ 0x400012C2 })) << "a pass without a failure clears";
}

TEST_F(WriteThread, FilesOpenedAfterAReloadTakeTheNewSizeAndGenerations)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(12000, [](DKPF_CONF& conf) {
        conf.perf_log_size = 64;
        conf.perf_log_rotation = 9;
    });
    StoreAt(15000, { 1, 2 }, 140);
    Run(25000);
    EXPECT_EQ(log.csv["nmp1"].size, 1024u);
    EXPECT_EQ(log.csv["nmp2"].size, 64u);
    EXPECT_EQ(log.csv["nmp2"].generations, 9u);
    EXPECT_EQ(journal.Number("log_util_rotate"), 0u);
}

/* ---- Reload: time ------------------------------------------------------------------------------------------------ */

TEST_F(WriteThread, AReloadInMidIntervalDoesNotShortenIt)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(3000);
    Run(15000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> reload @3000", "7000 -> timeout @10000",
                                 "10000 -> terminate @15000" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30) }));
    EXPECT_EQ(journal.Number("log_util_rotate"), 0u);
}

TEST_F(WriteThread, TheRemainderIsCountedFromTheStartOfThePassAfterEveryReload)
{
    ReloadAt(3000);
    ReloadAt(5000);
    ReloadAt(9999);
    Run(15000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> reload @3000", "7000 -> reload @5000",
                                 "5000 -> reload @9999", "1 -> timeout @10000", "10000 -> terminate @15000" }));
}

TEST_F(WriteThread, AReloadAtTheEndOfTheIntervalGoesOnAtOnce)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(10000);
    Run(15000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> reload @10000", "10000 -> terminate @15000" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30) }));
}

TEST_F(WriteThread, AReloadSeenOnlyAfterTheIntervalGoesOnAtOnce)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(9000);
    os.At(9000, [this] { os.Advance(4000); });  // the machine slept
    Run(15000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> reload @13000", "10000 -> terminate @15000" }));
    EXPECT_EQ(log.csv["nmp1"].lines.size(), 1u);
}

TEST_F(WriteThread, AReloadInTheFirstPassGoesOnAtOnce)
{
    Store({ 1 }, 100);
    ReloadAt(0);
    Run(5000);
    EXPECT_EQ(Waits(), Strings({ "0 -> reload @0", "10000 -> terminate @5000" }));
    EXPECT_EQ(Calls("_DkpfShmGetPerf"), 1u);
}

TEST_F(WriteThread, AReloadDuringTheLookEverySecondGoesOnAtOnce)
{
    Store({ 1 }, 100);
    StoreAt(10200, { 1 }, 130);
    ReloadAt(10300);
    Run(15000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "1000 -> reload @10300",
                                 "10000 -> terminate @15000" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(10200, 30) }));
}

TEST_F(WriteThread, TheRemainderIsRightAcrossTheWrapOfTheTickCount)
{
    os.SetTick(0xFFFFFFFF - 12000);
    ReloadAt(13000);  // tick 999
    Run(25000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> reload @13000",
                                 "7000 -> timeout @20000", "10000 -> terminate @25000" }));
}

TEST_F(WriteThread, TheTimeoutLineNamesTheIntervalInForce)
{
    region->conf.write_interval = 86400;
    Run(1000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "86400000 -> terminate @1000" }));
    EXPECT_EQ(ThreadLines(32), Strings({ "diskperf 32  Loop (1) Start.", "diskperf 32 timeout:86400sec",
                                         "diskperf 32  Loop (2) Start." }));
}

/* ---- Reload: logging off and on ---------------------------------------------------------------------------------- */

class WriteThreadSwitch : public WriteThreadTest, public testing::WithParamInterface<DWORD DKPF_CONF::*> {
protected:
    std::function<void(DKPF_CONF&)> Switch(DWORD value)
    {
        return [value](DKPF_CONF& conf) { conf.*GetParam() = value; };
    }
};
INSTANTIATE_TEST_SUITE_P(By, WriteThreadSwitch, testing::Values(&DKPF_CONF::perf_enable, &DKPF_CONF::perf_log_save),
                         [](const auto& by) {
                             return by.param == &DKPF_CONF::perf_enable ? "perf_enable" : "perf_log_save";
                         });

TEST_P(WriteThreadSwitch, OffBeginsANewPassAndSamplesAreStillReadAtEachInterval)
{
    ReloadAt(2000, Switch(0));
    Store({ 1 }, 100);
    for (ULONGLONG t = 5000; t <= 40000; t += 5000) {
        StoreAt(t, { 1 }, 100 + t);
    }
    Run(45000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> reload @2000", "10000 -> timeout @12000",
                                 "10000 -> timeout @22000", "10000 -> timeout @32000", "10000 -> timeout @42000",
                                 "10000 -> terminate @45000" }));
    EXPECT_EQ(Calls("_DkpfShmGetPerf"), 5u);
    EXPECT_EQ(Calls("_DkpfCmnGetDisplayValue"), 0u);
    EXPECT_TRUE(log.csv.empty());
    EXPECT_EQ(log.Events(), Events());
}

TEST_P(WriteThreadSwitch, OffFromTheStartReadsAndWritesNothing)
{
    region->conf.*GetParam() = 0;
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    Run(15000);
    EXPECT_EQ(Calls("_DkpfShmGetPerf"), 2u);
    EXPECT_TRUE(log.csv.empty());
}

TEST_P(WriteThreadSwitch, FilesStayOpenWhileLoggingIsOff)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(12000, Switch(0));
    StoreAt(15000, { 1 }, 140);
    os.At(30000, [this] { EXPECT_EQ(log.OpenCsv(), Strings({ "nmp1", "nmp1_raw", "nmp_total", "nmp_total_raw" })); });
    Run(45000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30) }));
}

TEST_P(WriteThreadSwitch, OnMakesTheLastSampleReadTheBaseline)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(12000, Switch(0));
    StoreAt(15000, { 1 }, 200);  // read at 22000
    ReloadAt(25000, Switch(1));
    StoreAt(30000, { 1 }, 260);
    Run(35000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> reload @12000",
                                 "10000 -> timeout @22000", "10000 -> reload @25000", "7000 -> timeout @32000",
                                 "10000 -> terminate @35000" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(30000, 60) }));
    EXPECT_EQ(log.csv["nmp1"].opened, 1u);
    EXPECT_EQ(journal.Number("log_util_rotate"), 0u);
}

TEST_P(WriteThreadSwitch, OnAfterAStartWithLoggingOffComparesWithTheSampleReadMeanwhile)
{
    region->conf.*GetParam() = 0;
    Store({ 1 }, 100);
    ReloadAt(4000, Switch(1));
    StoreAt(5000, { 1 }, 130);
    Run(15000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30) }));
}

TEST_P(WriteThreadSwitch, OnWithNoSampleReadBeforeBeginsWithABaseline)
{
    region->conf.*GetParam() = 0;
    StoreAt(3000, { 1 }, 100);
    ReloadAt(4000, Switch(1));
    StoreAt(15000, { 1 }, 130);
    Run(25000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(15000, 30) }));
}

TEST_P(WriteThreadSwitch, OnWithoutANewSampleLooksEverySecond)
{
    region->conf.*GetParam() = 0;
    Store({ 1 }, 100);
    ReloadAt(4000, Switch(1));
    Run(11500);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> reload @4000", "6000 -> timeout @10000",
                                 "1000 -> timeout @11000", "1000 -> terminate @11500" }));
}

TEST_P(WriteThreadSwitch, AMaskChangedWhileOffIsTakenWithoutARotation)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(12000, Switch(0));
    ReloadAt(14000, [](DKPF_CONF& conf) { conf.collect_param = RateColumn; });
    ReloadAt(16000, Switch(1));
    StoreAt(20000, { 1 }, 200);
    Run(25000);
    EXPECT_EQ(journal.Number("log_util_rotate"), 0u);
    EXPECT_EQ(log.csv["nmp1"].headers, Strings({ DisplayHeader(1, DeltaColumn) }));
    // 70 bytes in 15 s since the sample read last, rounded up: the new column under the old header.
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(20000, 5) }));
}

TEST_P(WriteThreadSwitch, AMaskChangedWithTheSwitchOnRotates)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(12000, Switch(0));
    ReloadAt(16000, [](DKPF_CONF& conf) {
        conf.*GetParam() = 1;
        conf.collect_param = RateColumn;
    });
    StoreAt(20000, { 1 }, 200);
    Run(25000);
    EXPECT_EQ(journal.Lines({ "log_util_rotate" }), Strings({ Rotated("nmp1", DisplayHeader(1, RateColumn)),
                                                              Rotated("nmp_total", DisplayHeader(0, RateColumn)) }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(20000, 5) }));
}

TEST_P(WriteThreadSwitch, AnIntervalChangedWhileOffHoldsWithoutAReset)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(12000, Switch(0));
    ReloadAt(14000, [](DKPF_CONF& conf) { conf.write_interval = 20; });
    ReloadAt(16000, Switch(1));
    Run(36000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> reload @12000",
                                 "10000 -> reload @14000", "20000 -> reload @16000", "18000 -> timeout @34000",
                                 "1000 -> timeout @35000", "1000 -> terminate @36000" }));
}

TEST_P(WriteThreadSwitch, OffDuringTheLookEverySecondEndsThePass)
{
    Store({ 1 }, 100);
    ReloadAt(10300, Switch(0));
    Run(15000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "1000 -> reload @10300",
                                 "10000 -> terminate @15000" }));
}

TEST_F(WriteThread, OneSwitchOfTwoIsNotOn)
{
    region->conf.perf_enable = 0;
    region->conf.perf_log_save = 0;
    Store({ 1 }, 100);
    ReloadAt(4000, [](DKPF_CONF& conf) { conf.perf_log_save = 1; });
    StoreAt(5000, { 1 }, 130);
    ReloadAt(16000, [](DKPF_CONF& conf) { conf.perf_enable = 1; });
    StoreAt(20000, { 1 }, 150);
    Run(25000);
    // The sample of 5000 was read at 14000, while still off.
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(20000, 20) }));
}

/* ---- Reload: columns and interval -------------------------------------------------------------------------------- */

TEST_F(WriteThread, AChangedMaskRotatesTheDisplayFilesBeforeTheNextLine)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(12000, [](DKPF_CONF& conf) { conf.collect_param = RateColumn; });
    StoreAt(15000, { 1 }, 230);
    Run(25000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> reload @12000",
                                 "8000 -> timeout @20000", "10000 -> terminate @25000" }));
    EXPECT_EQ(journal.Names({ "WaitForSingleObject", "ReleaseMutex", "GlobalAlloc", "GlobalFree", "GetTickCount",
                              "GetComputerNameA", "log_util_init", "log_util_term", "_endthreadex" }),
              Strings({ "WaitForMultipleObjects", "WaitForMultipleObjects", "log_util_write", "log_util_write",
                        "log_util_write", "log_util_write", "WaitForMultipleObjects", "log_util_rotate",
                        "log_util_rotate", "WaitForMultipleObjects", "log_util_write", "log_util_write",
                        "log_util_write", "log_util_write", "WaitForMultipleObjects" }));
    EXPECT_EQ(log.csv["nmp1"].headers, Strings({ DisplayHeader(1, DeltaColumn), DisplayHeader(1, RateColumn) }));
    EXPECT_EQ(log.csv["nmp_total"].headers, Strings({ DisplayHeader(0, DeltaColumn), DisplayHeader(0, RateColumn) }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(15000, 10) }));
    EXPECT_EQ(log.csv["nmp1_raw"].headers, Strings({ RawHeader(1) }));
    EXPECT_EQ(log.csv["nmp1_raw"].rotations + log.csv["nmp_total_raw"].rotations, 0u);
    EXPECT_EQ(log.csv["nmp1_raw"].lines, Strings({ Raw(5000, 130), Raw(15000, 230) }));
}

TEST_F(WriteThread, AChangedMaskBeforeAnyFileIsOpenRotatesNothing)
{
    Store({ 1 }, 100);
    ReloadAt(3000, [](DKPF_CONF& conf) { conf.collect_param = RateColumn; });
    StoreAt(5000, { 1 }, 200);
    Run(15000);
    EXPECT_EQ(journal.Number("log_util_rotate"), 0u);
    EXPECT_EQ(log.csv["nmp1"].headers, Strings({ DisplayHeader(1, RateColumn) }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 20) }));
    EXPECT_EQ(log.Events(), Events());
}

TEST_F(WriteThread, ARotationLooksAtTheDisksOfTheLastSampleRead)
{
    Store({ 1, 2 }, 100);
    StoreAt(5000, { 1, 2 }, 130);
    StoreAt(15000, { 1 }, 140);     // read at 20000
    StoreAt(21000, { 1, 2 }, 150);  // not read yet
    ReloadAt(22000, [](DKPF_CONF& conf) { conf.collect_param = RateColumn; });
    Run(25000);
    EXPECT_EQ(journal.Lines({ "log_util_rotate" }), Strings({ Rotated("nmp1", DisplayHeader(1, RateColumn)),
                                                              Rotated("nmp_total", DisplayHeader(0, RateColumn)) }));
}

TEST_F(WriteThread, TheSameMaskAgainDoesNotRotate)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(12000, [](DKPF_CONF& conf) { conf.collect_param = RateColumn; });
    ReloadAt(13000);
    Run(15000);
    EXPECT_EQ(journal.Number("log_util_rotate"), 2u);
}

TEST_F(WriteThread, AChangedIntervalForgetsTheBaselineAndStartsFromPassOne)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    StoreAt(11000, { 1 }, 170);
    ReloadAt(12000, [](DKPF_CONF& conf) { conf.write_interval = 20; });
    StoreAt(25000, { 1 }, 200);
    Run(40000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> reload @12000",
                                 "0 -> timeout @12000", "20000 -> timeout @32000", "20000 -> terminate @40000" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(25000, 30) })) << "170 was the new baseline";
    EXPECT_EQ(ThreadLines(32),
              Strings({ "diskperf 32  Loop (1) Start.", "diskperf 32 timeout:10sec", "diskperf 32  Loop (2) Start.",
                        "diskperf 32 timeout:10sec", "diskperf 32  Loop (3) Start.", "diskperf 32  Loop (1) Start.",
                        "diskperf 32 timeout:20sec", "diskperf 32  Loop (2) Start.", "diskperf 32 timeout:20sec",
                        "diskperf 32  Loop (3) Start." }));
    EXPECT_EQ(journal.Number("log_util_rotate"), 0u);
    EXPECT_EQ(log.csv["nmp1"].opened, 1u);
}

TEST_F(WriteThread, AChangedIntervalMakesEvenTheSampleOfTheLastLineABaseline)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(12000, [](DKPF_CONF& conf) { conf.write_interval = 20; });
    StoreAt(25000, { 1 }, 200);
    Run(40000);
    EXPECT_EQ(Waits()[3], "0 -> timeout @12000");
    EXPECT_EQ(Waits()[4], "20000 -> timeout @32000") << "not every second: the baseline was forgotten";
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(25000, 70) }));
}

TEST_F(WriteThread, AnIntervalOfOneSecond)
{
    region->conf.write_interval = 1;
    Store({ 1 }, 100);
    StoreAt(500, { 1 }, 130);
    StoreAt(1500, { 1 }, 131);
    Run(2500);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "1000 -> timeout @1000", "1000 -> timeout @2000",
                                 "1000 -> terminate @2500" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(500, 30), Display(1500, 1) }));
}

TEST_F(WriteThread, MaskAndIntervalChangedAtOnceRotateThenStartOver)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    ReloadAt(12000, [](DKPF_CONF& conf) {
        conf.collect_param = RateColumn;
        conf.write_interval = 20;
    });
    StoreAt(25000, { 1 }, 330);
    Run(40000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> reload @12000",
                                 "0 -> timeout @12000", "20000 -> timeout @32000", "20000 -> terminate @40000" }));
    EXPECT_EQ(journal.Lines({ "log_util_rotate" }), Strings({ Rotated("nmp1", DisplayHeader(1, RateColumn)),
                                                              Rotated("nmp_total", DisplayHeader(0, RateColumn)) }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(25000, 10) }))
        << "200 bytes in the 20 s between both samples";
}

/* ---- Trouble and warnings ---------------------------------------------------------------------------------------- */

TEST_F(WriteThread, ASampleThatCannotBeReadRaisesWarningOneAndTheNextLineClearsIt)
{
    Store({ 1 }, 100);
    NoRegion(9000, 11000);
    StoreAt(12000, { 1 }, 130);
    Run(25000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> timeout @20000",
                                 "10000 -> terminate @25000" }));
    EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 _DkpfShmGetPerf() failed(0xb0000018)." }));
    EXPECT_EQ(log.Events(), Events({ 0x800012C1, 0x400012C2 }));
    EXPECT_EQ(WarnChanges(), Strings({ " Set Warn Event <EventID=0x1><cnt=1><BlockID=0x1>",
                                       " Reset Warn Event <EventID=0x1><cnt=0><BlockID=0x1>" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(12000, 30) })) << "the baseline was kept";
}

TEST_F(WriteThread, ABaselineAloneDoesNotClearAWarning)
{
    Store({ 1 }, 100);
    EraseAt(5000);
    NoRegion(9000, 11000);
    StoreAt(25000, { 1 }, 130);  // read at 30000: a new baseline after the sample of zeros read at 20000
    Run(35000);
    EXPECT_EQ(log.Events(), Events({ 0x800012C1 }));
    EXPECT_EQ(Calls("_DkpfShmGetPerf"), 4u);
    EXPECT_TRUE(log.csv.empty());
}

TEST_F(WriteThread, AfterAFailedReadTheCurrentSampleIsEmpty)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    NoRegion(19000, 21000);  // the read at 20000 fails
    ReloadAt(22000, [](DKPF_CONF& conf) { conf.collect_param = RateColumn; });
    Run(25000);
    EXPECT_EQ(journal.Number("log_util_rotate"), 0u) << "no disk is present in it";
}

TEST_F(WriteThread, AReloadThatSwitchesNothingOnKeepsTheBaseline)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    NoRegion(9000, 11000);
    ReloadAt(12000);  // the current sample is empty, the baseline is that of the first pass
    Run(25000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30) }));
}

TEST_F(WriteThread, AConfigurationThatCannotBeReadAgainRaisesWarningOneAndBeginsANewPass)
{
    Store({ 1 }, 100);
    NoRegion(2000, 4000);
    ReloadAt(3000, [](DKPF_CONF& conf) { conf.write_interval = 20; });
    StoreAt(5000, { 1 }, 130);
    Run(20000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> reload @3000", "10000 -> timeout @13000",
                                 "10000 -> terminate @20000" }));
    EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 _DkpfShmGetConf() failed(0xb0000018)." }));
    EXPECT_EQ(log.Events(), Events({ 0x800012C1, 0x400012C2 }));
    EXPECT_EQ(WarnChanges(), Strings({ " Set Warn Event <EventID=0x1><cnt=1><BlockID=0x1>",
                                       " Reset Warn Event <EventID=0x1><cnt=0><BlockID=0x1>" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30) }));
}

TEST_F(WriteThread, AFailedRotationRaisesWarningTwoSavesTheConfigurationAndBeginsANewPass)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    log.failRotate["nmp1"] = 5;
    ReloadAt(12000, [](DKPF_CONF& conf) { conf.collect_param = RateColumn; });
    ReloadAt(13000);  // the saved mask is the new one: no second rotation
    StoreAt(15000, { 1 }, 230);
    Run(25000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> reload @12000",
                                 "10000 -> reload @13000", "9000 -> timeout @22000", "10000 -> terminate @25000" }));
    EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 _DkpfPlogRotate() failed(0xb0000026)." }));
    EXPECT_EQ(journal.Number("log_util_rotate"), 1u);
    EXPECT_EQ(log.Events(), Events({ 0x800012C3, 0x400012C4 }));
    EXPECT_EQ(WarnChanges(), Strings({ " Set Warn Event <EventID=0x2><cnt=1><BlockID=0>",
                                       " Reset Warn Event <EventID=0x2><cnt=0><BlockID=0>" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(15000, 10) }));
}

TEST_F(WriteThread, AFailedRotationKeepsTheBaselineEvenWhereTheIntervalChangedToo)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    log.failRotate["nmp1"] = 5;
    ReloadAt(12000, [](DKPF_CONF& conf) {
        conf.collect_param = RateColumn;
        conf.write_interval = 20;
    });
    StoreAt(25000, { 1 }, 330);
    Run(40000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> reload @12000",
                                 "20000 -> timeout @32000", "20000 -> terminate @40000" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(25000, 10) }))
        << "200 bytes in 20 s since the sample before";
    EXPECT_EQ(ThreadLines(32)[5], "diskperf 32  Loop (4) Start.") << "no reset";
}

TEST_F(WriteThread, AFailedSetUpWritesNothingRaisesWarningTwoAndIsTriedAgain)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    log.failInit["nmp1"] = 4;
    StoreAt(15000, { 1 }, 200);
    os.At(15000, [this] {
        EXPECT_EQ(journal.Number("log_util_write"), 0u);
        log.failInit.clear();
    });
    Run(25000);
    EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 _DkpfPlogInit() failed(0xb0000025)." }));
    EXPECT_EQ(log.Events(), Events({ 0x800012C3, 0x400012C4 }));
    EXPECT_EQ(WarnChanges(), Strings({ " Set Warn Event <EventID=0x2><cnt=1><BlockID=0>",
                                       " Reset Warn Event <EventID=0x2><cnt=0><BlockID=0>" }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(15000, 70) }))
        << "the baseline moved on in the pass that wrote nothing";
    EXPECT_EQ(log.csv["nmp1_raw"].lines, Strings({ Raw(15000, 200) }));
    EXPECT_EQ(log.csv["nmp1_raw"].opened, 1u);
}

TEST_F(WriteThread, AFailedLineRaisesWarningTwoAndTheNextGoodPassClears)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    log.failWrite["nmp1_raw"] = 5;
    StoreAt(15000, { 1 }, 200);
    os.At(15000, [this] { log.failWrite.clear(); });
    Run(25000);
    EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 _DkpfPlogWriteCSV() failed(0xb0000027)." }));
    EXPECT_EQ(log.Events(), Events({ 0x800012C3, 0x400012C4 }));
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30), Display(15000, 70) }))
        << "the other files got their lines";
    EXPECT_EQ(log.csv["nmp_total_raw"].lines, Strings({ Raw(5000, 130), Raw(15000, 200) }));
}

TEST_F(WriteThread, ATroubleThatLastsIsRaisedOnce)
{
    Store({ 1 }, 100);
    log.failWrite["nmp1"] = 5;
    for (ULONGLONG t = 5000; t < 65000; t += 10000) {
        StoreAt(t, { 1 }, 100 + t);
    }
    Run(65000);
    EXPECT_EQ(log.Events(), Events({ 0x800012C3 }));
    EXPECT_EQ(ThreadLines(1).size(), 6u) << "the line is traced every time";
}

TEST_F(WriteThread, BothWarningsAreClearedOneBeforeTwo)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    log.failWrite["nmp1"] = 5;
    NoRegion(19000, 21000);
    StoreAt(25000, { 1 }, 200);
    os.At(25000, [this] { log.failWrite.clear(); });
    Run(35000);
    EXPECT_EQ(log.Events(), Events({ 0x800012C3, 0x800012C1, 0x400012C2, 0x400012C4 }));
    EXPECT_EQ(WarnChanges(), Strings({ " Set Warn Event <EventID=0x2><cnt=1><BlockID=0>",
                                       " Set Warn Event <EventID=0x1><cnt=1><BlockID=0x1>",
                                       " Reset Warn Event <EventID=0x1><cnt=0><BlockID=0x1>",
                                       " Reset Warn Event <EventID=0x2><cnt=0><BlockID=0>" }));
}

TEST_F(WriteThread, WarningOneStaysRaisedForTheCollectThread)
{
    g_WarnEvent[1] = WARN_EVENT_REC{ 0x800012C1, 0x400012C2, 2, os.Tick(), { 0, 1, 1 } };
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    Run(15000);
    EXPECT_EQ(log.Events(), Events());
    EXPECT_EQ(g_WarnEvent[1].dwCount, 1u);
    EXPECT_EQ(g_WarnEvent[1].dwBlockFlag[1], 0u);
    EXPECT_EQ(g_WarnEvent[1].dwBlockFlag[2], 1u);
}

TEST_F(WriteThread, WhatTheWarningCallsYieldChangesNothing)
{
    g_hWarnEventMutex = NULL;  // both calls fail
    Store({ 1 }, 100);
    NoRegion(9000, 11000);
    StoreAt(12000, { 1 }, 130);
    StoreAt(22000, { 1 }, 140);
    Run(35000);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(12000, 30), Display(22000, 10) }));
    EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 _DkpfShmGetPerf() failed(0xb0000018)." }));
}

TEST_F(WriteThread, DisplayValuesThatFailMoveTheBaselineOnAndRaiseNoWarning)
{
    std::unique_ptr<Detour> failing;
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    os.At(9000, [&] { failing = std::make_unique<Detour>(_DkpfCmnGetDisplayValue, FailingDisplayValues); });
    os.At(11000, [&] {
        failing.reset();
        EXPECT_TRUE(log.csv.empty()) << "no file is opened in such a pass";
    });
    StoreAt(15000, { 1 }, 200);
    Run(25000);
    EXPECT_EQ(ThreadLines(1), Strings({ "diskperf 1 _DkpfCmnGetDisplayValue() failed(0xb000ffff)." }));
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "10000 -> timeout @20000",
                                 "10000 -> terminate @25000" }));
    EXPECT_EQ(log.Events(), Events());
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(15000, 70) }));
}

/* ---- End --------------------------------------------------------------------------------------------------------- */

TEST_F(WriteThread, TerminateWinsOverAReloadOfTheSameMoment)
{
    ReloadAt(5000);
    Run(5000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> terminate @5000" }));
}

TEST_F(WriteThread, TerminateEndsTheFirstWait)
{
    Store({ 1 }, 100);
    Run(0);
    EXPECT_EQ(Waits(), Strings({ "0 -> terminate @0" }));
    EXPECT_EQ(Calls("_DkpfShmGetPerf"), 0u);
}

TEST_F(WriteThread, TerminateEndsTheRestOfAWait)
{
    ReloadAt(3000);
    Run(6000);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> reload @3000", "7000 -> terminate @6000" }));
}

TEST_F(WriteThread, TerminateEndsTheLookEverySecond)
{
    Store({ 1 }, 100);
    Run(11500);
    EXPECT_EQ(Waits(), Strings({ "0 -> timeout @0", "10000 -> timeout @10000", "1000 -> timeout @11000",
                                 "1000 -> terminate @11500" }));
}

TEST_F(WriteThread, AnOrderlyEndRaisesNoWarning)
{
    Store({ 1 }, 100);
    StoreAt(5000, { 1 }, 130);
    Run(15000);
    EXPECT_EQ(log.Events(), Events());
    EXPECT_EQ(WarnChanges(), Strings());
}

TEST_F(WriteThread, TheEndFreesTheBuffersThenClosesAllFilesThenTracesThenEnds)
{
    Store({ 1, 64 }, 100);
    StoreAt(5000, { 1, 64 }, 130);
    Run(15000);
    Strings last;
    for (const Call& call : journal.All()) {
        last.push_back(call.name + "(" + call.args + ")");
    }
    last.erase(last.begin(), last.end() - 13);
    EXPECT_EQ(last, Strings({ "GlobalFree(13440 bytes)", "GlobalFree(10168 bytes)", "GlobalFree(10168 bytes)",
                              "GlobalFree(8840 bytes)", "GlobalFree(152 bytes)", "log_util_term(\"nmp_total\")",
                              "log_util_term(\"nmp_total_raw\")", "log_util_term(\"nmp1\")",
                              "log_util_term(\"nmp1_raw\")", "log_util_term(\"nmp64\")", "log_util_term(\"nmp64_raw\")",
                              "log_write(diskperf, 8, _DkpfPlogWriteThread: EXIT<TRUE>)", "_endthreadex(0)" }));
}

TEST_F(WriteThread, HundredAndThirtyFilesAreAllClosed)
{
    std::vector<int> all;
    for (int n = 1; n <= 64; n++) {
        all.push_back(n);
    }
    Store(all, 100);
    StoreAt(5000, all, 130);
    Run(15000);
    EXPECT_EQ(journal.Number("log_util_term"), 130u);
    EXPECT_EQ(log.csv["nmp_total"].lines, Strings({ Display(5000, 64 * 30) }));
    EXPECT_EQ(log.csv["nmp64_raw"].lines, Strings({ Raw(5000, 130) }));
}
