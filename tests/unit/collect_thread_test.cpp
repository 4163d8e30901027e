/*
 * The collect thread, from its start to its end, on a clock that only its own waits move.
 */
#include "support/collect_fixture.h"
#include "support/conversion_model.h"

using Numbers = std::vector<ULONGLONG>;

static Strings Dues(unsigned count, const std::string& timeout = "10000", unsigned step = 10000)
{
    Strings texts;
    for (unsigned i = 1; i <= count; i++) {
        texts.push_back(timeout + ": due at " + std::to_string(i * step));
    }
    return texts;
}

static Strings operator+(Strings first, const Strings& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/* ---- Start ------------------------------------------------------------------------------------------------------- */

class CollectStart : public CollectTest {};

TEST_F(CollectStart, ReadsTheConfigurationThenOpensTheDeviceThenWaits)
{
    os.Signal(g_hTerminateEvent);
    Run();
    EXPECT_EQ(journal.Names(),
              Strings({ "WaitForSingleObject", "ReleaseMutex",  // configuration
                        "SetErrorMode", "SetErrorMode", "CreateFileA", "SetErrorMode", "GetTickCount",
                        "WaitForMultipleObjects", "WaitForSingleObject", "ReleaseMutex",  // zero sample
                        "WaitForSingleObject", "ReleaseMutex", "CloseHandle", "_endthreadex" }));
    EXPECT_EQ(Lines(), Strings({ "diskperf 8 ENTER", "diskperf 8 Start Collect Loop.", "diskperf 16  Loop (1) Start.",
                                 "diskperf 4  Detect Terminate Event.", "diskperf 4  LogCollect loop end.(Cnt=1)",
                                 "diskperf 8 EXIT" }));
    for (const TraceLine& line : log.lines) {
        if (line.routine == "_DkpfPerfCollectThread") {
            EXPECT_EQ(line.source, "diskperf/src/diskperf_agent");
        }
    }
    EXPECT_EQ(log.Events(), Events());
    ExpectNothingLeft();
}

TEST_F(CollectStart, TheConfigurationIsReadWithAllItsFields)
{
    os.Signal(g_hTerminateEvent);
    Run();
    EXPECT_TRUE(log.Has("ENTER : getflag=0xffff"));
}

TEST_F(CollectStart, TheDeviceIsOpenedWithoutMessageBoxesAndTheModeIsPutBack)
{
    os.errorMode = 0x8002;
    os.Signal(g_hTerminateEvent);
    Run();
    EXPECT_EQ(journal.Of("CreateFileA")[0].args, "\\\\.\\VELCOR_CTRL, 0xc0000000, 0x3, 3, 0x80, error mode 0x8003");
    EXPECT_EQ(journal.Lines({ "SetErrorMode" }),
              Strings({ "SetErrorMode(0x1) = 32770", "SetErrorMode(0x8003) = 1", "SetErrorMode(0x8002) = 32771" }));
    EXPECT_EQ(os.errorMode, 0x8002u);
    EXPECT_EQ(journal.Number("CreateFileA"), 1u);
}

TEST_F(CollectStart, ADriverThatIsNotLoadedEndsTheThreadAtOnceWithTheErrorWarning)
{
    os.errorMode = 2;
    os.driver.loaded = false;
    region->instance[7].inst_sub[0].value = 5;
    region->sampling_time = 77;
    region->param_num = 12;
    Run();
    EXPECT_EQ(Lines(), Strings({ "diskperf 8 ENTER", "diskperf 1 CreateFile(VELCOR_CTRL) error. <W32Err=2>",
                                 "diskperf 8 EXIT" }));
    EXPECT_EQ(log.Events(), Events({ 0xC00012C5 }));
    EXPECT_EQ(g_WarnEvent[0].dwCount, 1u);
    EXPECT_EQ(g_WarnEvent[0].dwBlockFlag[2], 1u);
    EXPECT_TRUE(log.Has(" Set Warn Event <EventID=0><cnt=1><BlockID=0x2>"));
    EXPECT_EQ(region->instance[7].inst_sub[0].value, 0u);
    EXPECT_EQ(region->sampling_time, 0u);
    EXPECT_EQ(os.errorMode, 2u);
    EXPECT_EQ(journal.Number("CloseHandle"), 0u);
    EXPECT_EQ(journal.Number("WaitForMultipleObjects"), 0u);
    ExpectNothingLeft();
}

TEST_F(CollectStart, AnUnreadableConfigurationEndsTheThreadBeforeTheDeviceIsTouched)
{
    g_dwShmInitCount = 0;
    Run();
    EXPECT_EQ(Lines(), Strings({ "diskperf 8 ENTER", "diskperf 1 _DkpfShmGetConf(ALL) failed.(0xb0000018)",
                                 "diskperf 1 _DkpfSetPerfZeroToShm() failed.(0xb0000018)", "diskperf 8 EXIT" }));
    EXPECT_EQ(log.Events(), Events({ 0xC00012C5 }));
    EXPECT_EQ(journal.Number("CreateFileA") + journal.Number("SetErrorMode") + journal.Number("CloseHandle"), 0u);
    ExpectNothingLeft();
}

TEST_F(CollectStart, TheIntervalIsWaitedInMilliseconds)
{
    region->conf.collect_interval = 1;
    TerminateAt(3500);
    Run();
    EXPECT_EQ(Waits(), Dues(3, "1000", 1000) + Strings({ "1000: terminate at 3500" }));
}

TEST_F(CollectStart, AnHourLongIntervalIsWaitedWhole)
{
    region->conf.collect_interval = 3600;
    TerminateAt(7200001);
    WatchAt({ 3600001, 7200001 });
    Run();
    EXPECT_EQ(Waits(),
              Strings({ "3600000: due at 3600000", "3600000: due at 7200000", "3600000: terminate at 7200001" }));
    EXPECT_EQ(Shown(), Numbers({ 0, 2 }));
}

/* ---- Samples ----------------------------------------------------------------------------------------------------- */

class CollectLoop : public CollectTest {};

TEST_F(CollectLoop, TheFirstDueSampleIsDiscardedAndTheRegionReceivesTheSecond)
{
    WatchAt({ 10001, 20001, 30001 });
    TerminateAt(35000);
    Run();
    EXPECT_EQ(Shown(), Numbers({ 0, 2, 3 }));
    EXPECT_EQ(Requests(), 3u);
    EXPECT_EQ(filter.Calls(), 3u);
    EXPECT_EQ(Lines(), Strings({ "diskperf 8 ENTER", "diskperf 8 Start Collect Loop.", "diskperf 16  Loop (1) Start.",
                                 "diskperf_trace 16  Discard perf data.(loop cnt=1)", "diskperf 16  Loop (2) Start.",
                                 "diskperf 16  Loop (3) Start.", "diskperf 16  Loop (4) Start.",
                                 "diskperf 4  Detect Terminate Event.", "diskperf 4  LogCollect loop end.(Cnt=4)",
                                 "diskperf 8 EXIT" }));
    ExpectNothingLeft();
}

TEST_F(CollectLoop, ADiscardedSampleLeavesRegionAndWarningAlone)
{
    region->sampling_time = 77;
    region->InitFlag[9] = 1;
    WatchAt(10001);
    TerminateAt(10002);
    Run();
    EXPECT_EQ(shown[10001]->sampling_time, 77u);
    EXPECT_EQ(shown[10001]->InitFlag[9], 1u);
    EXPECT_EQ(shown[10001]->param_num, 0u);
    EXPECT_EQ(os.Acquired(g_hWarnEventMutex), 0u);
}

TEST_F(CollectLoop, TheRegionHoldsTheWholeConvertedPair)
{
    Record driver = Sample(1), mirror;
    for (unsigned slot = 0; slot < 64; slot++) {
        driver.Disk(slot, slot % 2);
        for (size_t offset = 8; offset < 160; offset += 8) {
            model::Put<ULONGLONG>(&driver.record, model::Entry(slot) + offset, slot * 1000 + offset);
            model::Put<ULONGLONG>(&mirror.record, model::Entry(slot) + offset, slot * 70000 + offset * 3);
        }
    }
    os.driver.Script({ Sample(1), driver });
    filter.Script({ Record(), mirror });
    DWORD      tick = 0;
    SYSTEMTIME time = {};
    os.At(20000, [&] {
        tick = os.Tick();
        time = os.LocalTime();
    });
    WatchAt(20001);
    TerminateAt(20002);
    Run();
    model::Converted expected = model::Convert(&driver.record, &mirror.record, tick, time);
    const BYTE*      bytes = reinterpret_cast<const BYTE*>(shown[20001].get());
    EXPECT_EQ(model::FirstDifference(bytes + 40, expected.sample.data(), 288), -1) << "counts, times, flags";
    EXPECT_EQ(model::FirstDifference(bytes + 464, expected.sample.data() + 288, 6240), -1) << "current values";
    EXPECT_EQ(model::FirstDifference(bytes + 10864, expected.sample.data() + 6528, 3640), -1) << "the producer's peaks";
}

TEST_F(CollectLoop, TheRequestIsWrittenAnewForEachSample)
{
    Record spoiled = Sample(2);
    spoiled.record.header = 0xFFFFFFFFFFFFFFFF;
    os.driver.Script({ spoiled });
    filter.Script({ spoiled });
    TerminateAt(30001);
    Run();
    ASSERT_EQ(Requests(), 3u);
    for (const DriverDouble::Request& request : os.driver.requests) {
        EXPECT_EQ(request.code, 0x9F8F2180u);
        EXPECT_EQ(request.inSize, 0x4010u);
        EXPECT_EQ(request.outSize, 0x4010u);
        EXPECT_EQ(request.length, 0x4008u);
        EXPECT_EQ(request.header, 0x311u);
    }
    EXPECT_EQ(journal.Lines({ "TnwDkfltrGetMirrorPerformance" }),
              Strings(3, "TnwDkfltrGetMirrorPerformance(header 0x311) = 0"));
    EXPECT_EQ(ErrorLines(), Strings());
}

TEST_F(CollectLoop, TheCallsOfAGoodSampleComeInTheirOrder)
{
    os.At(20000, [&] { journal.Clear(); });
    TerminateAt(20001);
    Run();
    Strings names = journal.Names();
    ASSERT_GE(names.size(), 12u);
    names.resize(12);
    EXPECT_EQ(names, Strings({ "WaitForMultipleObjects", "DeviceIoControl", "TnwDkfltrGetMirrorPerformance",
                               "GetTickCount", "GetLocalTime", "WaitForSingleObject", "ReleaseMutex",  // store
                               "WaitForSingleObject", "ReleaseMutex",  // warning cleared
                               "GetTickCount", "WaitForMultipleObjects", "WaitForSingleObject" }));
    EXPECT_EQ(os.Acquired(g_hWarnEventMutex), 1u);
    EXPECT_EQ(os.Released(g_hWarnEventMutex), 1u);
    EXPECT_EQ(log.Events(), Events()) << "nothing was raised, nothing is cleared";
}

TEST_F(CollectLoop, ThePeriodIsTheIntervalPlusTheTimeThatASampleTakes)
{
    os.At(20000, [&] { os.HoldByOther(g_hShmMutex); });
    os.At(23000, [&] { os.HoldByOther(g_hShmMutex, false); });
    TerminateAt(33001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: due at 10000", "10000: due at 20000", "10000: due at 33000",
                                 "10000: terminate at 33001" }));
}

TEST_F(CollectLoop, NothingIsAllocated)
{
    ReloadAt(14000);
    TerminateAt(50000);
    Run();
    EXPECT_EQ(journal.Number("GlobalAlloc"), 0u);
}

TEST_F(CollectLoop, TheDeviceStaysOpenUntilTheEnd)
{
    TerminateAt(60001);
    Run();
    EXPECT_EQ(Requests(), 6u);
    EXPECT_EQ(journal.Number("CreateFileA"), 1u);
    EXPECT_EQ(journal.Number("CloseHandle"), 1u);
}

TEST_F(CollectLoop, WaitsForReloadFirstAndTerminateSecond)
{
    std::string handle = Hex(reinterpret_cast<ULONG_PTR>(g_hTerminateEvent));
    TerminateAt(5);
    Run();
    EXPECT_EQ(journal.Lines({ "WaitForMultipleObjects" }),
              Strings({ "WaitForMultipleObjects(2, any, event Global\\TNW_DKPF_EVENT_RELOAD1, event " + handle +
                        ", 10000) = 1" }));
}

TEST_F(CollectLoop, TheTickCounterMayWrapWithinAnIteration)
{
    os.SetTick(0xFFFFFFFF - 13000);
    ReloadAt(14000);
    WatchAt({ 20001, 30001 });
    TerminateAt(30002);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: due at 10000", "10000: reload at 14000", "6000: due at 20000",
                                 "10000: due at 30000", "10000: terminate at 30002" }));
    EXPECT_EQ(Shown(), Numbers({ 2, 3 }));
    EXPECT_EQ(shown[20001]->sampling_time, 6999u) << "20000 ms behind 13001 ms before the wrap";
}

/* ---- Collection switched off ------------------------------------------------------------------------------------- */

TEST_F(CollectLoop, WhileSwitchedOffNothingIsReadAndNoWarningCallIsMade)
{
    region->conf.perf_enable = 0;
    TerminateAt(30001);
    Run();
    EXPECT_EQ(Requests(), 0u);
    EXPECT_EQ(filter.Calls(), 0u);
    EXPECT_EQ(os.Acquired(g_hWarnEventMutex), 0u);
    EXPECT_EQ(Waits(), Dues(3) + Strings({ "10000: terminate at 30001" }));
    EXPECT_EQ(Lines(TNWLOG_DETAIL),
              Strings({ "diskperf 16  Loop (1) Start.", "diskperf_trace 16  Config(perfenable) == 0, Collect Skip.",
                        "diskperf 16  Loop (2) Start.", "diskperf_trace 16  Config(perfenable) == 0, Collect Skip.",
                        "diskperf 16  Loop (3) Start.", "diskperf_trace 16  Config(perfenable) == 0, Collect Skip.",
                        "diskperf 16  Loop (4) Start." }));
}

TEST_F(CollectLoop, SwitchingOffZeroesTheRegionAtOnce)
{
    WatchAt({ 20001, 24001 });
    EnableAt(24000, 0);
    TerminateAt(40001);
    Run();
    EXPECT_EQ(Shown(), Numbers({ 2, 0 }));
    EXPECT_EQ(shown[24001]->InitFlag[0], 1u) << "the disk is still seen";
    EXPECT_EQ(shown[24001]->instance[7].rawparamID, 7u);
    EXPECT_EQ(shown[24001]->sampling_time, 0u);
    EXPECT_EQ(shown[24001]->local_time.wDay, 0u);
    EXPECT_EQ(Requests(), 2u);
}

TEST_F(CollectLoop, SwitchingOnWithTimeLeftStoresTheNextSampleAndDiscardsTheOneBehindIt)
{
    region->conf.perf_enable = 0;
    EnableAt(4000, 1);
    WatchAt({ 10001, 20001, 30001 });
    TerminateAt(30002);
    Run();
    EXPECT_EQ(Shown(), Numbers({ 1, 1, 3 }));
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 4000", "6000: due at 10000", "10000: due at 20000",
                                 "10000: due at 30000", "10000: terminate at 30002" }));
    EXPECT_EQ(Lines(TNWLOG_DETAIL | TNWLOG_NOTICE),
              Strings({ "diskperf 16  Loop (1) Start.", "diskperf 16  Loop (1) Start.",
                        "diskperf_trace 16  Discard perf data.(loop cnt=1)", "diskperf 16  Loop (2) Start.",
                        "diskperf 16  Loop (3) Start.", "diskperf 4  Detect Terminate Event.",
                        "diskperf 4  LogCollect loop end.(Cnt=3)" }));
}

TEST_F(CollectLoop, SwitchingOnWhenTheTimeIsOverDiscardsTheNextSample)
{
    region->conf.perf_enable = 0;
    EnableAt(10000, 1);
    WatchAt({ 10001, 20001, 30001 });
    TerminateAt(30002);
    Run();
    EXPECT_EQ(Shown(), Numbers({ 0, 0, 2 }));
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 10000", "10000: due at 20000", "10000: due at 30000",
                                 "10000: terminate at 30002" }));
}

TEST_F(CollectLoop, TerminatedRightAfterSwitchingOnTheCounterReads0)
{
    region->conf.perf_enable = 0;
    EnableAt(14000, 1);
    TerminateAt(15000);
    Run();
    EXPECT_EQ(Lines(TNWLOG_NOTICE),
              Strings({ "diskperf 4  Detect Terminate Event.", "diskperf 4  LogCollect loop end.(Cnt=0)" }));
}

TEST_F(CollectLoop, OffAndOnWithinOneIterationZeroesAndThenStoresTheSampleAtItsEnd)
{
    EnableAt(22000, 0);
    EnableAt(23000, 1);
    WatchAt({ 20001, 22001, 27001, 37001, 47001 });
    TerminateAt(47002);
    Run();
    // 8000 ms are left at 22 s; at 23 s another 3000 are taken off, counted from the start of the iteration.
    EXPECT_EQ(Waits(),
              Strings({ "10000: due at 10000", "10000: due at 20000", "10000: reload at 22000", "8000: reload at 23000",
                        "5000: due at 28000", "10000: due at 38000", "10000: terminate at 47002" }));
    EXPECT_EQ(Shown(), Numbers({ 2, 0, 0, 3, 3 }));
}

TEST_F(CollectLoop, OnAndOffWithinOneIterationTakesNoSample)
{
    region->conf.perf_enable = 0;
    EnableAt(2000, 1);
    EnableAt(4000, 0);
    TerminateAt(20001);
    Run();
    EXPECT_EQ(Requests(), 0u);
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 2000", "8000: reload at 4000", "4000: due at 8000",
                                 "10000: due at 18000", "10000: terminate at 20001" }));
}

/* ---- Reloads ----------------------------------------------------------------------------------------------------- */

/* The reload comes in the second iteration (10 s to 20 s), with time left (14 s) or at its very end (20 s). */
struct Switch {
    const char* name;
    DWORD       before, after;
    ULONGLONG   at;
    Numbers     shown;        // samples in the region at 14, 20, 30 and 40 s, each 1 ms later
    unsigned    requests;     // until 40 s
    unsigned    regionLocks;  // configuration, stores, zero samples, until the end
    DWORD       lastLoop;     // counter of the iteration that begins at 40 s
};

class CollectSwitch : public CollectTest, public testing::WithParamInterface<Switch> {};

TEST_P(CollectSwitch, LeavesTheRegionAndTheCounterAsItShould)
{
    const Switch& c = GetParam();
    region->conf.perf_enable = c.before;
    EnableAt(c.at, c.after);
    WatchAt({ 14001, 20001, 30001, 40001 });
    TerminateAt(40002);
    Run();
    EXPECT_EQ(Shown(), c.shown);
    EXPECT_EQ(Requests(), c.requests);
    EXPECT_EQ(os.Acquired(g_hShmMutex), c.regionLocks);
    EXPECT_EQ(Lines(TNWLOG_NOTICE).back(), "diskperf 4  LogCollect loop end.(Cnt=" + std::to_string(c.lastLoop) + ")");
    Strings waits = { "10000: due at 10000" };
    if (c.at == 14000) {
        waits = waits + Strings({ "10000: reload at 14000", "6000: due at 20000" });
    } else {
        waits = waits + Strings({ "10000: reload at 20000" });
    }
    waits = waits + Strings({ "10000: due at 30000", "10000: due at 40000", "10000: terminate at 40002" });
    EXPECT_EQ(Waits(), waits);
    EXPECT_EQ(log.Events(), Events());
    ExpectNothingLeft();
}
// Region locks: 2 for both reads of the configuration, 2 for the zero sample at the end, 1 per stored sample, 2 for the
// zero sample of switching off.
INSTANTIATE_TEST_SUITE_P(Every, CollectSwitch,
                         testing::Values(Switch{ "OnOnLeft", 1, 1, 14000, { 0, 2, 3, 4 }, 4, 4 + 3, 5 },
                                         Switch{ "OnOnOver", 1, 1, 20000, { 0, 0, 2, 3 }, 3, 4 + 2, 5 },
                                         Switch{ "OnOffLeft", 1, 0, 14000, { 0, 0, 0, 0 }, 1, 4 + 2, 5 },
                                         Switch{ "OnOffOver", 1, 0, 20000, { 0, 0, 0, 0 }, 1, 4 + 2, 5 },
                                         Switch{ "OffOnLeft", 0, 1, 14000, { 0, 1, 1, 3 }, 3, 4 + 2, 3 },
                                         Switch{ "OffOnOver", 0, 1, 20000, { 0, 0, 0, 2 }, 2, 4 + 1, 3 },
                                         Switch{ "OffOffLeft", 0, 0, 14000, { 0, 0, 0, 0 }, 0, 4, 5 },
                                         Switch{ "OffOffOver", 0, 0, 20000, { 0, 0, 0, 0 }, 0, 4, 5 },
                                         // Only 1 to 0 and 0 to 1 are switches; any value but 0 collects.
                                         Switch{ "OnTwoLeft", 1, 2, 14000, { 0, 2, 3, 4 }, 4, 4 + 3, 5 },
                                         Switch{ "TwoOffLeft", 2, 0, 14000, { 0, 0, 0, 0 }, 1, 4, 5 },
                                         Switch{ "OffTwoLeft", 0, 2, 14000, { 0, 1, 2, 3 }, 3, 4 + 3, 5 }),
                         [](const testing::TestParamInfo<Switch>& tested) { return tested.param.name; });

TEST_F(CollectLoop, AReloadLeavesTheRestOfTheInterval)
{
    ReloadAt(1);
    TerminateAt(10001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 1", "9999: due at 10000", "10000: terminate at 10001" }));
}

TEST_F(CollectLoop, AReloadAtTheStartTakesNothingOff)
{
    os.Signal(g_hReloadEvent1);
    TerminateAt(10001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 0", "10000: due at 10000", "10000: terminate at 10001" }));
}

TEST_F(CollectLoop, OneMillisecondBeforeTheEndOneMillisecondIsLeft)
{
    ReloadAt(9999);
    TerminateAt(10001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 9999", "1: due at 10000", "10000: terminate at 10001" }));
}

TEST_F(CollectLoop, AReloadAtTheVeryEndCostsTheSample)
{
    ReloadAt(10000);
    TerminateAt(20001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 10000", "10000: due at 20000", "10000: terminate at 20001" }));
    EXPECT_EQ(Lines(TNWLOG_DETAIL), Strings({ "diskperf 16  Loop (1) Start.", "diskperf 16  Loop (2) Start.",
                                              "diskperf 16  Loop (3) Start." }));
    EXPECT_EQ(Requests(), 1u);
}

TEST_F(CollectLoop, TimeThatTheReloadItselfTakesCountsToo)
{
    ReloadAt(4000, [&] { os.HoldByOther(g_hShmMutex); });
    os.At(11000, [&] { os.HoldByOther(g_hShmMutex, false); });
    TerminateAt(21001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 4000", "10000: due at 21000", "10000: terminate at 21001" }));
}

// 6000 are left at 4 s. At 5 s the 5000 since the start of the iteration are taken off once more: due at 6 s.
TEST_F(CollectLoop, TwoReloadsInOneIterationTakeTheElapsedTimeOffTwice)
{
    ReloadAt(4000);
    ReloadAt(5000);
    TerminateAt(16001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 4000", "6000: reload at 5000", "1000: due at 6000",
                                 "10000: due at 16000", "10000: terminate at 16001" }));
}

TEST_F(CollectLoop, ThreeReloadsMayLeaveNothing)
{
    ReloadAt(2000);
    ReloadAt(3000);
    ReloadAt(5000);
    TerminateAt(15001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 2000", "8000: reload at 3000", "5000: reload at 5000",
                                 "0: due at 5000", "10000: due at 15000", "10000: terminate at 15001" }));
}

// 6000 - 7000 is 2^32 - 1000: some 49 days.
TEST_F(CollectLoop, TheDoubleSubtractionMayWrapToAVeryLongWaitThatTheNextReloadEnds)
{
    ReloadAt(4000);
    ReloadAt(7000);
    ReloadAt(100000);
    TerminateAt(110001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 4000", "6000: reload at 7000", "4294966296: reload at 100000",
                                 "10000: due at 110000", "10000: terminate at 110001" }));
    EXPECT_EQ(Requests(), 1u);
}

TEST_F(CollectLoop, TheVeryLongWaitIsEndedByTheTerminateEventToo)
{
    ReloadAt(4000);
    ReloadAt(7000);
    TerminateAt(100000);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 4000", "6000: reload at 7000", "4294966296: terminate at 100000" }));
}

// One millisecond more than what is left wraps to 0xFFFFFFFF, which waits for ever.
TEST_F(CollectLoop, TheWrapMayHitInfinite)
{
    ReloadAt(4000);
    ReloadAt(6001);
    ReloadAt(4000000000);
    TerminateAt(4000000001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 4000", "6000: reload at 6001", "4294967295: reload at 4000000000",
                                 "10000: terminate at 4000000001" }));
}

// Once the wrapped rest has been waited in part, a reload within the interval takes off from it again.
TEST_F(CollectLoop, AReloadWithinTheIntervalShortensTheWrappedWait)
{
    ReloadAt(4000);
    ReloadAt(7000);
    ReloadAt(8000);
    TerminateAt(20000);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 4000", "6000: reload at 7000", "4294966296: reload at 8000",
                                 "4294958296: terminate at 20000" }));
}

TEST_F(CollectLoop, AChangedIntervalDoesNotChangeThePeriodOfARunningThread)
{
    ReloadAt(14000, [&] { region->conf.collect_interval = 1; });
    TerminateAt(30001);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: due at 10000", "10000: reload at 14000", "6000: due at 20000",
                                 "10000: due at 30000", "10000: terminate at 30001" }));
}

TEST_F(CollectLoop, AThreadStartedAgainTakesTheNewInterval)
{
    ReloadAt(4000, [&] { region->conf.collect_interval = 2; });
    TerminateAt(5000);
    Run();
    journal.Clear();
    os.waits.clear();
    g_hTerminateEvent = os.MakeEvent(true);
    TerminateAt(10000);
    Run();
    EXPECT_EQ(Waits(), Strings({ "2000: due at 7000", "2000: due at 9000", "2000: terminate at 10000" }));
}

TEST_F(CollectLoop, AReloadReadsTheWholeConfigurationAndReportsTheWarningCleared)
{
    ReloadAt(4000);
    os.At(4000, [&] { journal.Clear(); });
    TerminateAt(5000);
    Run();
    Strings names = journal.Names();
    names.resize(7);
    EXPECT_EQ(names, Strings({ "WaitForMultipleObjects", "WaitForSingleObject", "ReleaseMutex",  // configuration
                               "WaitForSingleObject", "ReleaseMutex",                            // warning cleared
                               "GetTickCount", "WaitForMultipleObjects" }));
    EXPECT_EQ(os.Acquired(g_hWarnEventMutex), 1u);
    EXPECT_EQ(log.Events(), Events());
}

TEST_F(CollectLoop, OfReloadAndTerminateTheReloadIsServedFirst)
{
    ReloadAt(4000);
    TerminateAt(4000);
    Run();
    EXPECT_EQ(Waits(), Strings({ "10000: reload at 4000", "6000: terminate at 4000" }));
}

/* ---- Warnings ---------------------------------------------------------------------------------------------------- */

class CollectWarning : public CollectTest {};

// The driver refuses two samples and recovers: one warning, one all-clear.
TEST_F(CollectWarning, ARefusingDriverWarnsOnceAndTheNextGoodSampleClears)
{
    os.driver.Script({ Sample(1), Sample(2), Reply::Status(0xC0000001), Reply::Status(0xC0000001), Sample(5) });
    WatchAt({ 20001, 30001, 40001, 50001 });
    TerminateAt(60001);
    Run();
    EXPECT_EQ(log.Events(), Events({ 0x800012C1, 0x400012C2 }));
    EXPECT_EQ(Shown(), Numbers({ 2, 2, 2, 5 })) << "the region keeps the previous sample";
    EXPECT_EQ(ErrorLines(), Strings(2, "diskperf_trace  IoCtl(VELCOR_GET_PERFORMANCE) Driver failed.<0xc0000001>"));
    EXPECT_EQ(log.Texts("diskperf_trace", TNWLOG_WARNING),
              Strings({ " Set Warn Event <EventID=0x1><cnt=1><BlockID=0x2>",
                        " Reset Warn Event <EventID=0x1><cnt=0><BlockID=0x2>" }));
    EXPECT_EQ(Waits(), Dues(6) + Strings({ "10000: terminate at 60001" }));
}

TEST_F(CollectWarning, AReloadClearsItToo)
{
    os.driver.Script({ Reply::Error(ERROR_GEN_FAILURE) });
    ReloadAt(14000);
    TerminateAt(15000);
    Run();
    EXPECT_EQ(log.Events(), Events({ 0x800012C1, 0x400012C2 }));
}

TEST_F(CollectWarning, AReloadThatChangesNothingIsFollowedByTheNextWarning)
{
    os.driver.Script({ Reply::Error(ERROR_GEN_FAILURE) });
    ReloadAt(14000);
    TerminateAt(20001);
    Run();
    EXPECT_EQ(log.Events(), Events({ 0x800012C1, 0x400012C2, 0x800012C1 }));
    EXPECT_EQ(g_WarnEvent[1].dwCount, 1u);
    EXPECT_EQ(g_WarnEvent[1].dwBlockFlag[2], 1u);
}

TEST_F(CollectWarning, ADiscardedSampleDoesNotClearIt)
{
    region->conf.perf_enable = 0;
    EnableAt(10000, 1);
    os.driver.Script({ Sample(1) });
    DWORD error = 0;
    os.At(10001, [&] { _DkpfSetWarnEventLog(1, 2, &error); });
    TerminateAt(20001);
    Run();
    EXPECT_EQ(Lines(TNWLOG_DETAIL).back(), "diskperf 16  Loop (2) Start.");
    EXPECT_TRUE(log.Has(" Discard perf data.(loop cnt=1)"));
    EXPECT_EQ(log.Events(), Events({ 0x800012C1 }));
}

// The counter counts iterations, not good samples.
TEST_F(CollectWarning, AFirstSampleThatFailsIsNotMadeUpFor)
{
    os.driver.Script({ Reply::Error(ERROR_GEN_FAILURE), Sample(2) });
    WatchAt({ 10001, 20001 });
    TerminateAt(20002);
    Run();
    EXPECT_EQ(Shown(), Numbers({ 0, 2 }));
    EXPECT_FALSE(log.Has(" Discard perf data.(loop cnt=1)"));
}

TEST_F(CollectWarning, ItIsWrittenAgainOnceADayWhileTheDriverRefuses)
{
    region->conf.collect_interval = 3600;
    os.driver.Script({ Reply::Error(ERROR_GEN_FAILURE) });
    TerminateAt(26 * 3600000ull + 1);
    Run();
    // Raised at 1 h. At 25 h exactly 24 h have passed, which is not more than 24 h: written again at 26 h.
    EXPECT_EQ(log.Events(), Events({ 0x800012C1, 0x800012C1 }));
    EXPECT_EQ(Requests(), 26u);
}

TEST_F(CollectWarning, AnotherSourceKeepsTheKindRaised)
{
    g_WarnEvent[1].dwCount = 1;
    g_WarnEvent[1].dwBlockFlag[1] = 1;
    g_WarnEvent[1].dwLastTick = os.Tick();
    os.driver.Script({ Reply::Status(5), Sample(2) });
    TerminateAt(20001);
    Run();
    EXPECT_EQ(log.Events(), Events());
    EXPECT_EQ(g_WarnEvent[1].dwCount, 1u);
}

TEST_F(CollectWarning, TheThreadNeverGivesUp)
{
    os.driver.Script({ Reply::Error(ERROR_GEN_FAILURE) });
    TerminateAt(1000 * 10000ull + 1);
    Run();
    EXPECT_EQ(Requests(), 1000u);
    EXPECT_EQ(ErrorLines(),
              Strings(1000, "diskperf_trace  IoCtl(VELCOR_GET_PERFORMANCE) DeviceIoControl failed.<W32Err=31>"));
    EXPECT_EQ(log.Events(), Events({ 0x800012C1 }));
}

/* ---- End --------------------------------------------------------------------------------------------------------- */

class CollectEnd : public CollectTest {};

TEST_F(CollectEnd, TheTerminateEventEndsItWithZerosInTheRegionAndTheDeviceClosed)
{
    WatchAt(30001);
    TerminateAt(35000);
    Run();
    EXPECT_EQ(shown[30001]->instance[7].inst_sub[0].value, 3u);
    EXPECT_EQ(region->instance[7].inst_sub[0].value, 0u);
    EXPECT_EQ(region->instance[7].rawparamID, 7u);
    EXPECT_EQ(region->InitFlag[0], 1u);
    EXPECT_EQ(region->sampling_time, 0u);
    EXPECT_EQ(region->local_time.wDay, 0u);
    EXPECT_EQ(journal.Lines({ "CloseHandle" }).size(), 1u);
    EXPECT_EQ(log.Events(), Events());
    EXPECT_TRUE(os.Signalled(g_hTerminateEvent)) << "the other thread needs it too";
    ExpectNothingLeft();
}

TEST_F(CollectEnd, TheLastLineComesAfterTheDeviceIsClosed)
{
    os.Signal(g_hTerminateEvent);
    Run();
    std::vector<Call> calls = journal.All();
    ASSERT_GE(calls.size(), 3u);
    EXPECT_EQ(calls[calls.size() - 3].name, "CloseHandle");
    EXPECT_EQ(calls[calls.size() - 2].args, "diskperf, 8, _DkpfPerfCollectThread: EXIT");
    EXPECT_EQ(calls[calls.size() - 1].name, "_endthreadex");
}

TEST_F(CollectEnd, APeakThatAReaderHasNotFetchedSurvives)
{
    region->PMProcessID[5] = 77;
    os.driver.Script({ Sample(1), Sample(2).With(0, &VELCOR_ENTRY::request_queue_peak, 900) });
    TerminateAt(20001);
    Run();
    EXPECT_EQ(region->maxinstance[5][3].inst_sub[0].value, 900u);
    EXPECT_EQ(region->maxinstance[0][3].inst_sub[0].value, 0u);
}
