/*
 * Open, collect and close as the Performance Library calls them.
 */
#include <algorithm>
#include <memory>

#include "support/detour.h"
#include "support/display_value_stubs.h"
#include "support/perfmon_fixture.h"

/* The provider's buffers, which no header shows. */
struct _DKPF_PERF_HEADER;
extern DKPF_PARAM*        g_lpPfmPrevParam;
extern DKPF_PARAM*        g_lpPfmCurParam;
extern DKPF_DISP*         g_lpPfmDisp;
extern _DKPF_PERF_HEADER* g_lpPfmHeader;
extern DKPF_RAWTOTAL*     g_lpPfmRawTotal;

/* In the order in which they are freed. */
static std::vector<const void*> Buffers()
{
    return { g_lpPfmRawTotal, g_lpPfmHeader, g_lpPfmDisp, g_lpPfmCurParam, g_lpPfmPrevParam };
}
static const std::vector<const void*> NoBuffers(5, nullptr);

/* All of a time stamp but the day, and the day alone. */
static const SYSTEMTIME WithoutADay = { 2026, 11, 6, 0, 10, 20, 30, 400 };
static const SYSTEMTIME TheDayAlone = { 0, 0, 0, 1, 0, 0, 0, 0 };

class PerfmonOpen : public PerfmonTest {};
class PerfmonClose : public PerfmonTest {};

class PerfmonCollect : public PerfmonTest {
protected:
    std::unique_ptr<GuardedBuffer> buffer;
    void*                          data = nullptr;
    DWORD                          size = 0;
    DWORD                          objects = 0;

    /* A buffer whose end touches a page that faults. */
    DWORD Collect(const WCHAR* query = L"Global", DWORD bytes = BlockSize)
    {
        std::wstring copy = query;
        buffer = std::make_unique<GuardedBuffer>(bytes);
        data = buffer->Data();
        size = bytes;
        objects = 99;
        return DkpfCollectForPerfmon(copy.data(), &data, &size, &objects);
    }
    void ExpectData()
    {
        EXPECT_EQ(size, 15824u);
        EXPECT_EQ(objects, 1u);
        EXPECT_EQ(data, buffer->Data() + 15824);
    }
    /* No bytes, no objects, the pointer where it was. */
    void ExpectNoData()
    {
        EXPECT_EQ(size, 0u);
        EXPECT_EQ(objects, 0u);
        EXPECT_EQ(data, buffer->Data());
    }
    void ExpectNothingWritten()
    {
        EXPECT_TRUE(SameBytes(buffer->Bytes(), std::vector<BYTE>(buffer->Size(), GuardedBuffer::Fill)));
    }
    ULONGLONG Value(size_t instance, size_t counter) const
    {
        ULONGLONG value = 0;
        memcpy(&value, buffer->Data() + HeaderSize + InstanceSize * instance + 96 + 8 * counter, sizeof value);
        return value;
    }
};

/* ---- Open -------------------------------------------------------------------------------------------------------- */

TEST_F(PerfmonOpen, AttachesAsAConsumerReadsTheIndexesAndTakesFiveBuffers)
{
    EXPECT_EQ(Open(), 0u);
    EXPECT_EQ(OpenLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 8 EXIT<0> err<0xb0000000>" }));
    EXPECT_EQ(g_dwPfmOpenCount, 1u);
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_FALSE(g_bDiskAgent);
    EXPECT_EQ(region->PMProcessID[1], 4711u);
    EXPECT_EQ(g_dwFirstCounter, 2000u);
    EXPECT_EQ(g_dwFirstHelp, 3001u);
    Strings sizes;
    for (const Call& call : journal.Of("GlobalAlloc")) {
        sizes.push_back(call.args);
    }
    ASSERT_GE(sizes.size(), 5u);
    EXPECT_EQ(Strings(sizes.end() - 5, sizes.end()),
              Strings({ "0x40, 10168", "0x40, 10168", "0x40, 8840", "0x40, 744", "0x40, 152" }));
    EXPECT_EQ(MemoryAndKeysHeld().size(), 5u);
    DkpfCloseForPerfmon();
    ExpectNothingLeft();
}

TEST_F(PerfmonOpen, TracesItsEntryOnlyOnceTheLogsAreOpen)
{
    EXPECT_EQ(Open(), 0u);
    size_t init = 0, entry = 0;
    for (size_t i = 0; i < log.lines.size(); i++) {
        init = log.lines[i].routine == "DkpfInitialize" ? i : init;
        entry = log.lines[i].routine == "DkpfOpenForPerfmon" && log.lines[i].text == "ENTER :" ? i : entry;
    }
    EXPECT_GT(entry, init);
}

TEST_F(PerfmonOpen, TheDeviceNamesAreIgnored)
{
    EXPECT_EQ(DkpfOpenForPerfmon(reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(1))), 0u);
    DkpfCloseForPerfmon();
}

TEST_F(PerfmonOpen, ASecondOpenOnlyCounts)
{
    Opened();
    EXPECT_EQ(Open(), 0u);
    EXPECT_EQ(Open(), 0u);
    EXPECT_EQ(OpenLines(), Strings({ "diskperf_trace 2  Pfmon is already initialized(1times). Skip.",
                                     "diskperf_trace 8 EXIT<0> err<0xb0000000>",
                                     "diskperf_trace 2  Pfmon is already initialized(2times). Skip.",
                                     "diskperf_trace 8 EXIT<0> err<0xb0000000>" }));
    EXPECT_EQ(g_dwPfmOpenCount, 3u);
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_EQ(journal.Number("GlobalAlloc"), 0u);
}

TEST_F(PerfmonOpen, NoRegionIsNotReady)
{
    os.DropMapping(DKPF_SHM_NAME);
    EXPECT_EQ(Open(), 21u);
    EXPECT_EQ(OpenLines(), Strings({ " 8 EXIT<21> err<0xb000001a>" })) << "no log is open then";
    EXPECT_EQ(g_dwPfmOpenCount, 0u);
    EXPECT_EQ(g_dwInitCount, 0u);
    ExpectNothingLeft();
}

TEST_F(PerfmonOpen, AFullTableIsNotReady)
{
    for (DWORD row = 1; row <= 32; row++) {
        region->PMProcessID[row] = 5000 + row;
        os.Process(5000 + row, STILL_ACTIVE);
    }
    EXPECT_EQ(Open(), 21u);
    EXPECT_EQ(OpenLines(), Strings({ " 8 EXIT<21> err<0xb0000003>" }));
    ExpectNothingLeft();
}

TEST_F(PerfmonOpen, CollectionSwitchedOffIsDeniedAndTheAttachmentStays)
{
    region->conf.perf_enable = 0;
    EXPECT_EQ(Open(), 5u);
    EXPECT_EQ(OpenLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  DKPF function is set disenable.",
                                     "diskperf_trace 8 EXIT<5> err<0xb0000000>" }));
    EXPECT_EQ(g_dwPfmOpenCount, 0u);
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_EQ(region->PMProcessID[1], 4711u);
    for (const Call& call : journal.Of("RegOpenKeyExA")) {
        EXPECT_EQ(call.args.find("tnwdiskperf"), std::string::npos) << "the indexes are not looked for";
    }
}

TEST_F(PerfmonOpen, NoKeyCannotBeOpened)
{
    os.RemoveKey(PerfmonKey);
    EXPECT_EQ(Open(), 1011u);
    EXPECT_EQ(OpenLines(), Strings({ "diskperf_trace 8 ENTER :",
                                     "diskperf_trace 1  _DkpfPfmGetObjectIndexFromReg() failed. errcode<0xb0000012>",
                                     "diskperf_trace 8 EXIT<1011> err<0xb0000012>" }));
    EXPECT_EQ(g_dwPfmOpenCount, 0u);
    EXPECT_EQ(MemoryAndKeysHeld(), Strings());
}

TEST_F(PerfmonOpen, NoFirstCounterCannotBeRead)
{
    os.failValue["First Counter"] = 2;
    EXPECT_EQ(Open(), 1012u);
    EXPECT_EQ(OpenLines(), Strings({ "diskperf_trace 8 ENTER :",
                                     "diskperf_trace 1  _DkpfPfmGetObjectIndexFromReg() failed. errcode<0xb0000013>",
                                     "diskperf_trace 8 EXIT<1012> err<0xb0000013>" }));
    EXPECT_EQ(MemoryAndKeysHeld(), Strings());
}

TEST_F(PerfmonOpen, NoFirstHelpCannotBeRead)
{
    os.failValue["First Help"] = 5;
    EXPECT_EQ(Open(), 1012u);
    EXPECT_EQ(MemoryAndKeysHeld(), Strings());
}

static BOOL NoIndexes(DWORD*, DWORD*, DWORD* err)
{
    *err = 0xB0000004;
    return FALSE;
}

TEST_F(PerfmonOpen, AnyOtherFailureOfTheIndexesIsOne)
{
    Detour detour(_DkpfPfmGetObjectIndexFromReg, NoIndexes);
    EXPECT_EQ(Open(), 1u);
    EXPECT_EQ(OpenLines(1),
              Strings({ "diskperf_trace 1  _DkpfPfmGetObjectIndexFromReg() failed. errcode<0xb0000004>" }));
    EXPECT_EQ(OpenLines().back(), "diskperf_trace 8 EXIT<1> err<0xb0000004>");
}

TEST_F(PerfmonOpen, NoSampleYetIsOneAndFreesWhatWasTaken)
{
    Erase();
    EXPECT_EQ(Open(), 1u);
    EXPECT_EQ(OpenLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  Previous-RAW parameter is invalid.",
                                     "diskperf_trace 8 EXIT<1> err<0xb0000000>" }));
    EXPECT_EQ(g_dwPfmOpenCount, 0u);
    EXPECT_EQ(g_dwInitCount, 1u);
    Strings sizes = Freed();
    EXPECT_EQ(Strings(sizes.end() - 2, sizes.end()), Strings({ "10168 bytes", "10168 bytes" }));
    EXPECT_EQ(MemoryAndKeysHeld(), Strings());
    EXPECT_EQ(os.misuse, Strings());
}

TEST_F(PerfmonOpen, TheDayAloneTellsWhetherThereIsASample)
{
    region->local_time = WithoutADay;
    EXPECT_EQ(Open(), 1u);
    EXPECT_EQ(OpenLines(1), Strings({ "diskperf_trace 1  Previous-RAW parameter is invalid." }));
    region->local_time = TheDayAlone;
    EXPECT_EQ(Open(), 0u);
    DkpfCloseForPerfmon();
}

TEST_F(PerfmonOpen, OnlyZeroSwitchesCollectionOff)
{
    for (DWORD enable : { 2u, 0x80000000u }) {
        region->conf.perf_enable = enable;
        EXPECT_EQ(Open(), 0u) << enable;
        DkpfCloseForPerfmon();
    }
}

// Freed after a failure is what this open has allocated, whatever the pointers held before it.
TEST_F(PerfmonOpen, PointersFromBeforeAreForgottenNotFreed)
{
    static DKPF_PARAM    previous, current;
    static DKPF_DISP     values;
    static DKPF_RAWTOTAL total;
    static BYTE          definitions[HeaderSize];
    const unsigned       before = Rehearse("GlobalAlloc", "DkpfOpenForPerfmon");
    g_lpPfmPrevParam = &previous;
    g_lpPfmCurParam = &current;
    g_lpPfmDisp = &values;
    g_lpPfmHeader = reinterpret_cast<_DKPF_PERF_HEADER*>(definitions);
    g_lpPfmRawTotal = &total;
    os.Fail("GlobalAlloc", before + 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(Open(), 14u);
    EXPECT_EQ(os.misuse, Strings());
    EXPECT_EQ(Buffers(), NoBuffers);
}

TEST_F(PerfmonOpen, NoPointerOutlivesAFailure)
{
    const unsigned before = Rehearse("GlobalAlloc", "DkpfOpenForPerfmon");
    os.Fail("GlobalAlloc", before + 5, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(Open(), 14u);
    EXPECT_EQ(Buffers(), NoBuffers);
}

static BOOL NoDefinitions(void*, DWORD* err)
{
    *err = 0xB0000004;
    return FALSE;
}

TEST_F(PerfmonOpen, DefinitionsThatFailAreOneAndFreeWhatWasTaken)
{
    Detour detour(_DkpfPfmSetCollectHeader, NoDefinitions);
    EXPECT_EQ(Open(), 1u);
    EXPECT_EQ(OpenLines(), Strings({ "diskperf_trace 8 ENTER :",
                                     "diskperf_trace 1  _DkpfPfmSetCollectHeader() failed. errcode<0xb0000004>",
                                     "diskperf_trace 8 EXIT<1> err<0xb0000004>" }));
    Strings sizes = Freed();
    EXPECT_EQ(Strings(sizes.end() - 4, sizes.end()),
              Strings({ "744 bytes", "8840 bytes", "10168 bytes", "10168 bytes" }));
    EXPECT_EQ(MemoryAndKeysHeld(), Strings());
    EXPECT_EQ(g_dwPfmOpenCount, 0u);
}

TEST_F(PerfmonOpen, AnOpenThatWorksAfterOneThatFailedCountsTheAttachmentTwice)
{
    region->conf.perf_enable = 0;
    EXPECT_EQ(Open(), 5u);
    region->conf.perf_enable = 1;
    EXPECT_EQ(Open(), 0u);
    EXPECT_EQ(g_dwInitCount, 2u);
    EXPECT_EQ(g_dwPfmOpenCount, 1u);
    EXPECT_EQ(region->PMProcessID[2], 0u) << "one row all the same";
    EXPECT_EQ(OpenLines().back(), "diskperf_trace 8 EXIT<0> err<0xb0000000>");
    DkpfCloseForPerfmon();
    EXPECT_EQ(g_dwInitCount, 1u) << "the attachment of the failed open stays";
    EXPECT_EQ(region->PMProcessID[1], 4711u);
}

TEST_F(PerfmonOpen, TurnsAProducerProcessIntoAConsumer)
{
    DWORD err = 0;
    os.DropMapping(DKPF_SHM_NAME);
    ASSERT_TRUE(DkpfInitialize(TRUE, &err));
    region = HoldRegion();
    Store(100);
    EXPECT_TRUE(g_bDiskAgent);
    EXPECT_EQ(Open(), 0u);
    EXPECT_FALSE(g_bDiskAgent) << "as documented: the flag of the latest call holds";
    EXPECT_EQ(g_dwInitCount, 2u);
}

/* ---- Collect: a block -------------------------------------------------------------------------------------------- */

TEST_F(PerfmonCollect, TheFirstCollectShowsTheIntervalSinceOpen)
{
    Opened();
    os.Advance(5000);
    Store(130);
    EXPECT_EQ(Collect(), 0u);
    ExpectData();
    EXPECT_EQ(Value(1, 11), 30u);
    EXPECT_EQ(Value(0, 11), 30u);
    EXPECT_EQ(Value(1, 12), 6u) << "30 bytes in 5 s";
    EXPECT_EQ(CollectLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 8 EXIT<0> err<0xb0000000>" }));
}

/* Two samples 4 s apart; disks 1 and 64 present. Row p goes from 100 (p + 1) to 180 (p + 1); peaks 5000 + k. */
TEST_F(PerfmonCollect, TheWholeBlockByteForByte)
{
    auto fill = [this](ULONGLONG factor) {
        Store(0);
        for (int slot : { 0, 63 }) {
            for (ULONGLONG p = 0; p < 12; p++) {
                region->instance[p].inst_sub[slot].value = factor * (p + 1);
            }
            for (ULONGLONG k = 0; k < 7; k++) {
                region->maxinstance[1][k].inst_sub[slot].value = 5000 + k;
            }
        }
    };
    fill(100);
    Opened();
    os.Advance(4000);
    fill(180);
    EXPECT_EQ(Collect(), 0u);
    ExpectData();

    // By hand: a row grew by 80 (p + 1). Ratio 240 * 100 / 160; averages 880 / 960 and 320 / 400, rounded up.
    const ULONGLONG disk[17] = { 150,  1440, 5003, 1800, 5005, 1,    5006, 1080, 5001,
                                 1260, 5002, 80,   20,   1620, 5004, 1,    5000 };
    const ULONGLONG total[17] = { 150,  2880, 5003, 3600, 5005, 1,    5006, 2160, 5001,
                                  2520, 5002, 160,  40,   3240, 5004, 1,    5000 };
    const ULONGLONG unused[17] = { 100 };
    DKPF_DISP       values = {};
    for (size_t i = 0; i < 65; i++) {
        memcpy(values.value[i], i == 0 ? total : i == 1 || i == 64 ? disk : unused, sizeof disk);
    }
    ExpectedBlock expected(BlockSize);
    expected.Put32(0, BlockSize);
    expected.Definitions(2000, 3001);
    expected.Instances(HeaderSize, values);
    EXPECT_TRUE(SameBytes(buffer->Bytes(), expected.bytes));
}

TEST_F(PerfmonCollect, ExactlyEnoughRoomIsEnough)
{
    Opened();
    EXPECT_EQ(Collect(L"Global", 15824), 0u);
    ExpectData();
}

TEST_F(PerfmonCollect, NothingIsWrittenBeforeTheBuffer)
{
    Opened();
    std::wstring  query = L"Global";
    GuardedBuffer before(BlockSize, GuardedBuffer::Guard::Before);
    data = before.Data();
    size = BlockSize;
    EXPECT_EQ(DkpfCollectForPerfmon(query.data(), &data, &size, &objects), 0u);
    EXPECT_EQ(size, 15824u);
    EXPECT_EQ(data, before.Data() + 15824);
}

TEST_F(PerfmonCollect, OfALargerBufferOnlyTheBlockIsWritten)
{
    Opened();
    EXPECT_EQ(Collect(L"Global", 65536), 0u);
    ExpectData();
    EXPECT_EQ(std::vector<BYTE>(buffer->Data() + 15824, buffer->Data() + 65536),
              std::vector<BYTE>(65536 - 15824, GuardedBuffer::Fill));
}

TEST_F(PerfmonCollect, OneByteTooFewIsMoreDataWithZeroSizes)
{
    Opened();
    EXPECT_EQ(Collect(L"Global", 15823), 234u);
    ExpectNoData();
    ExpectNothingWritten();
    EXPECT_EQ(CollectLines(),
              Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  Buffer size is too small. pcbData<15823>",
                        "diskperf_trace 8 EXIT<234> err<0xb0000000>" }));
}

TEST_F(PerfmonCollect, NoRoomAtAllIsMoreData)
{
    Opened();
    std::wstring query = L"Global";
    BYTE         place = 0;
    data = &place;
    EXPECT_EQ(DkpfCollectForPerfmon(query.data(), &data, &size, &objects), 234u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(CollectLines(1), Strings({ "diskperf_trace 1  Buffer size is too small. pcbData<0>" }));
}

TEST_F(PerfmonCollect, TheSizeIsUnsigned)
{
    std::wstring query = L"Global";
    Opened();
    buffer = std::make_unique<GuardedBuffer>(BlockSize);
    data = buffer->Data();
    size = 0xFFFFFFFF;  // room enough as far as collect can know
    EXPECT_EQ(DkpfCollectForPerfmon(query.data(), &data, &size, &objects), 0u);
    ExpectData();
}

TEST_F(PerfmonCollect, TheNextCollectShowsTheIntervalSinceTheLast)
{
    Opened();
    os.Advance(5000);
    Store(130);
    Collect();
    os.Advance(5000);
    Store(131);
    EXPECT_EQ(Collect(), 0u);
    EXPECT_EQ(Value(1, 11), 1u);
    EXPECT_EQ(Value(0, 11), 1u) << "the total does not add up over collects";
}

TEST_F(PerfmonCollect, WithoutANewSampleTheIntervalIsEmpty)
{
    Opened();
    EXPECT_EQ(Collect(), 0u);
    ExpectData();
    EXPECT_EQ(Value(1, 11), 0u);
    EXPECT_EQ(Value(1, 0), 100u);
}

TEST_F(PerfmonCollect, ACollectThatReturnsNoDataDoesNotMoveTheInterval)
{
    Opened();
    os.Advance(5000);
    Store(130);
    Collect(L"Foreign");
    Collect(L"Global", 100);
    Store(150);
    EXPECT_EQ(Collect(), 0u);
    EXPECT_EQ(Value(1, 11), 50u);
}

TEST_F(PerfmonCollect, PeaksAreThisProcessesOwnAndHandedOverOnce)
{
    Opened();
    region->maxinstance[1][0].inst_sub[0].value = 77;
    region->maxinstance[0][0].inst_sub[0].value = 99;  // the agent's own
    EXPECT_EQ(Collect(), 0u);
    EXPECT_EQ(Value(1, 16), 77u);
    EXPECT_EQ(Collect(), 0u);
    EXPECT_EQ(Value(1, 16), 0u);
    EXPECT_EQ(region->maxinstance[0][0].inst_sub[0].value, 99u);
}

TEST_F(PerfmonCollect, TheTitleIndexesAreThoseOfTheOpen)
{
    Opened();
    os.SetValue(PerfmonKey, "First Counter", 5000);
    EXPECT_EQ(Collect(L"2000"), 0u);
    ExpectData();
    EXPECT_EQ(Collect(L"5000"), 0u);
    ExpectNoData();
}

/* ---- Collect: the sample ----------------------------------------------------------------------------------------- */

TEST_F(PerfmonCollect, AnInvalidCurrentSampleClearsTheBaseline)
{
    Opened();
    Erase();
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    EXPECT_EQ(CollectLines(),
              Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  Current-RAW parameter is invalid.",
                        "diskperf_trace 8 EXIT<0> err<0xb0000000>" }));
    log.ClearLines();
    Store(130);
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    EXPECT_EQ(CollectLines(),
              Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  Previous-RAW parameter is invalid.",
                        "diskperf_trace 8 EXIT<0> err<0xb0000000>" }));
    os.Advance(1000);
    Store(150);
    EXPECT_EQ(Collect(), 0u);
    ExpectData();
    EXPECT_EQ(Value(1, 11), 20u) << "since the sample that came first after the gap";
}

TEST_F(PerfmonCollect, WhileThereIsNoSampleTheCurrentOneIsNamedEachTime)
{
    Opened();
    Erase();
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(Collect(), 0u);
        ExpectNoData();
    }
    EXPECT_EQ(CollectLines(1), Strings(2, "diskperf_trace 1  Current-RAW parameter is invalid."));
}

TEST_F(PerfmonCollect, TheDayAloneTellsWhetherThereIsASample)
{
    Opened();
    region->local_time = WithoutADay;
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    EXPECT_EQ(CollectLines(1), Strings({ "diskperf_trace 1  Current-RAW parameter is invalid." }));
    region->local_time = TheDayAlone;
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    EXPECT_EQ(Collect(), 0u);
    ExpectData();
}

static BOOL TornSample(DKPF_PARAM* sample, DWORD* err)
{
    memset(sample, 0xEE, sizeof *sample);
    *err = 0xB0000010;
    return FALSE;
}

TEST_F(PerfmonCollect, ASampleThatCouldNotBeReadReplacesNothing)
{
    Opened();
    Collect();
    const DKPF_PARAM previous = *g_lpPfmPrevParam, current = *g_lpPfmCurParam;
    Detour           detour(_DkpfShmGetPerf, TornSample);
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    EXPECT_EQ(memcmp(g_lpPfmPrevParam, &previous, sizeof previous), 0);
    EXPECT_EQ(memcmp(g_lpPfmCurParam, &current, sizeof current), 0);
}

TEST_F(PerfmonCollect, TheDefinitionsAreCopiedBeforeTheSampleIsRead)
{
    Opened();
    Erase();
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    ExpectedBlock expected(BlockSize);
    expected.Put32(0, 15824);
    expected.Definitions(2000, 3001);
    EXPECT_TRUE(SameBytes(buffer->Bytes(), expected.bytes));
}

TEST_F(PerfmonCollect, DisplayValuesThatFailGiveNoDataAndKeepTheBaseline)
{
    Opened();
    Store(130);
    {
        Detour detour(_DkpfCmnGetDisplayValue, FailingDisplayValues);
        EXPECT_EQ(Collect(), 0u);
    }
    ExpectNoData();
    EXPECT_EQ(
        CollectLines(),
        Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  _DkpfCmnGetDisplayValue() failed. errcode<0xb000ffff>",
                  "diskperf_trace 8 EXIT<0> err<0xb000ffff>" }));
    Store(140);
    EXPECT_EQ(Collect(), 0u);
    EXPECT_EQ(Value(1, 11), 40u);
}

static BOOL NoBody(const DKPF_DISP*, void*, void**, DWORD* err)
{
    *err = 0xB0000004;
    return FALSE;
}

TEST_F(PerfmonCollect, InstancesThatFailGiveNoDataAndKeepTheBaseline)
{
    Opened();
    Store(130);
    {
        Detour detour(_DkpfPfmSetCollectBody, NoBody);
        EXPECT_EQ(Collect(), 0u);
    }
    ExpectNoData();
    EXPECT_EQ(
        CollectLines(),
        Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  _DkpfPfmSetCollectBody() failed. errcode<0xb0000004>",
                  "diskperf_trace 8 EXIT<0> err<0xb0000004>" }));
    Store(140);
    EXPECT_EQ(Collect(), 0u);
    EXPECT_EQ(Value(1, 11), 40u);
}

static BOOL ShortBody(const DKPF_DISP*, void* body, void** end, DWORD* err)
{
    *end = static_cast<BYTE*>(body) + 1000;
    *err = 0xB0000000;
    return TRUE;
}

TEST_F(PerfmonCollect, EveryLengthIsTakenFromWhereTheInstancesEnd)
{
    Opened();
    Detour detour(_DkpfPfmSetCollectBody, ShortBody);
    EXPECT_EQ(Collect(), 0u);
    DWORD total = 0;
    memcpy(&total, buffer->Data(), sizeof total);
    EXPECT_EQ(total, HeaderSize + 1000);
    EXPECT_EQ(size, HeaderSize + 1000);
    EXPECT_EQ(data, buffer->Data() + HeaderSize + 1000);
}

TEST_F(PerfmonCollect, BothOutputRecordsAreZeroedBeforeEachComputation)
{
    Opened();
    Detour detour(_DkpfCmnGetDisplayValue, CountingDisplayValues);
    g_displayValueCalls = DisplayValueCalls();
    Collect();
    Collect();
    Collect();
    EXPECT_EQ(g_displayValueCalls.all, 3u);
    EXPECT_EQ(g_displayValueCalls.zeroed, 3u);
}

/* ---- Collect: the query ------------------------------------------------------------------------------------------ */

struct QueryAnswer {
    const char*  name;
    const WCHAR* query;
    const char*  line;  // empty: a block
};

static void PrintTo(const QueryAnswer& answer, std::ostream* out)
{
    *out << answer.name;
}

class PerfmonCollectQuery : public PerfmonCollect, public testing::WithParamInterface<QueryAnswer> {};

static const QueryAnswer QueryAnswers[] = {
    { "Global", L"Global", "" },
    { "GlobalAndMore", L"Global 2", "" },
    { "OurObject", L"2000", "" },
    { "OurObjectAmongOthers", L"236 2000 238", "" },
    { "OurObjectAfterASpoiledItem", L"12a 2000", "" },
    { "AnotherObject", L"236 238", " _DkpfPfmIsNumberInUnicodeList() failed. ObjectNameTitleIndex<2000> pQuery<50>" },
    { "ACounterOfOurs", L"2002", " _DkpfPfmIsNumberInUnicodeList() failed. ObjectNameTitleIndex<2000> pQuery<50>" },
    { "OurHelpText", L"3001", " _DkpfPfmIsNumberInUnicodeList() failed. ObjectNameTitleIndex<2000> pQuery<51>" },
    { "Zero", L"0", " _DkpfPfmIsNumberInUnicodeList() failed. ObjectNameTitleIndex<2000> pQuery<48>" },
    { "OurObjectSpoiled", L"2000,", " _DkpfPfmIsNumberInUnicodeList() failed. ObjectNameTitleIndex<2000> pQuery<50>" },
    { "Foreign", L"Foreign", " _DkpfPfmGetPMQueryType() failed. QueryType<2>" },
    { "ForeignWithOurObject", L"Foreign 2000", " _DkpfPfmGetPMQueryType() failed. QueryType<2>" },
    { "Costly", L"Costly", " _DkpfPfmGetPMQueryType() failed. QueryType<3>" },
    { "Unknown", L"Explain 009", " _DkpfPfmGetPMQueryType() failed. QueryType<4>" },
    { "LowerCase", L"global", " _DkpfPfmGetPMQueryType() failed. QueryType<4>" },
    { "Empty", L"", " _DkpfPfmGetPMQueryType() failed. QueryType<4>" },
};
INSTANTIATE_TEST_SUITE_P(Of, PerfmonCollectQuery, testing::ValuesIn(QueryAnswers),
                         [](const auto& answer) { return std::string(answer.param.name); });

TEST_P(PerfmonCollectQuery, GetsABlockOrNoDataAndAlwaysSuccess)
{
    const std::string line = GetParam().line;
    Opened();
    EXPECT_EQ(Collect(GetParam().query), 0u);
    if (line.empty()) {
        ExpectData();
        EXPECT_EQ(CollectLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 8 EXIT<0> err<0xb0000000>" }));
    } else {
        ExpectNoData();
        ExpectNothingWritten();
        EXPECT_EQ(CollectLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1 " + line,
                                            "diskperf_trace 8 EXIT<0> err<0xb0000000>" }));
    }
}

TEST_F(PerfmonCollect, AQueryThatIsNotOursDoesNotTouchTheSizeCheck)
{
    Opened();
    EXPECT_EQ(Collect(L"Foreign", 16), 0u);
    ExpectNoData();
}

/* ---- Collect: missing arguments ---------------------------------------------------------------------------------- */

struct Arguments {
    const char* name;
    bool        query, data, size, objects;
    DWORD       answer;
    const char* line;
};

static void PrintTo(const Arguments& arguments, std::ostream* out)
{
    *out << arguments.name;
}

class PerfmonCollectArguments : public PerfmonCollect, public testing::WithParamInterface<Arguments> {};

static const Arguments MissingArguments[] = {
    { "Query", false, true, true, true, 0, " pQuery is NULL." },
    { "QueryAndSize", false, true, false, true, 0, " pQuery is NULL." },
    { "QueryAndObjects", false, true, true, false, 0, " pQuery is NULL." },
    { "QueryAndAllElse", false, false, false, false, 0, " pQuery is NULL." },
    { "Buffer", true, false, true, true, 0, " *pData is NULL." },
    { "BufferAndSize", true, false, false, true, 0, " *pData is NULL." },
    { "BufferAndObjects", true, false, true, false, 0, " *pData is NULL." },
    { "Size", true, true, false, true, 87, " pcbData is NULL." },
    { "SizeAndObjects", true, true, false, false, 87, " pcbData is NULL." },
    { "Objects", true, true, true, false, 87, " pObjectsReturned is NULL." },
};
INSTANTIATE_TEST_SUITE_P(Of, PerfmonCollectArguments, testing::ValuesIn(MissingArguments),
                         [](const auto& missing) { return std::string(missing.param.name); });

TEST_P(PerfmonCollectArguments, AreAnsweredAndWhatIsThereIsCleared)
{
    const Arguments& arguments = GetParam();
    std::wstring     query = L"Global";
    Opened();
    buffer = std::make_unique<GuardedBuffer>(BlockSize);
    data = arguments.data ? buffer->Data() : nullptr;
    size = BlockSize;
    objects = 99;
    EXPECT_EQ(DkpfCollectForPerfmon(arguments.query ? query.data() : nullptr, &data, arguments.size ? &size : nullptr,
                                    arguments.objects ? &objects : nullptr),
              arguments.answer);
    EXPECT_EQ(size, arguments.size ? 0u : BlockSize);
    EXPECT_EQ(objects, arguments.objects ? 0u : 99u);
    ExpectNothingWritten();
    EXPECT_EQ(CollectLines(),
              Strings({ "diskperf_trace 8 ENTER :", std::string("diskperf_trace 1 ") + arguments.line,
                        "diskperf_trace 8 EXIT<" + std::to_string(arguments.answer) + "> err<0xb0000000>" }));
    EXPECT_EQ(journal.Number("WaitForSingleObject"), 0u) << "the region is not touched";
}

TEST_F(PerfmonCollect, NoPlaceForTheBufferPointerAtAllIsTakenAsNoBuffer)
{
    std::wstring query = L"Global";
    Opened();
    size = BlockSize;
    objects = 99;
    EXPECT_EQ(DkpfCollectForPerfmon(query.data(), nullptr, &size, &objects), 0u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(objects, 0u);
}

TEST_F(PerfmonCollect, MissingArgumentsAreLookedAtBeforeTheOpenCount)
{
    std::wstring query = L"Global";
    BYTE         place = 0;
    data = &place;
    EXPECT_EQ(DkpfCollectForPerfmon(query.data(), &data, nullptr, &objects), 87u);
    size = BlockSize;
    EXPECT_EQ(DkpfCollectForPerfmon(query.data(), &data, &size, nullptr), 87u);
    EXPECT_EQ(size, 0u);
}

/* ---- Collect: not now -------------------------------------------------------------------------------------------- */

TEST_F(PerfmonCollect, WithoutAnOpenThereIsNoData)
{
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    ExpectNothingWritten();
    EXPECT_EQ(CollectLines(),
              Strings({ " 8 ENTER :", " 1  Pfmon is not initialized(0times). Skip.", " 8 EXIT<0> err<0xb0000000>" }));
}

TEST_F(PerfmonCollect, AfterTheLastCloseThereIsNoData)
{
    Opened();
    DkpfCloseForPerfmon();
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    EXPECT_EQ(CollectLines(1), Strings({ " 1  Pfmon is not initialized(0times). Skip." }));
    ExpectNothingLeft();
}

TEST_F(PerfmonCollect, AfterAFailedOpenThereIsNoData)
{
    Erase();
    EXPECT_EQ(Open(), 1u);
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    EXPECT_EQ(CollectLines(1), Strings({ "diskperf_trace 1  Pfmon is not initialized(0times). Skip." }));
}

TEST_F(PerfmonCollect, CollectionSwitchedOffIsNoDataAndNoError)
{
    Opened();
    region->conf.perf_enable = 0;
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    ExpectNothingWritten();
    EXPECT_EQ(CollectLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 8  DKPF function is set disenable.",
                                        "diskperf_trace 8 EXIT<0> err<0xb0000000>" }));
}

TEST_F(PerfmonCollect, CollectionSwitchedOffIsSaidBeforeTheQueryIsLookedAt)
{
    Opened();
    region->conf.perf_enable = 0;
    EXPECT_EQ(Collect(L"Foreign", 16), 0u);
    ExpectNoData();
    EXPECT_EQ(CollectLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 8  DKPF function is set disenable.",
                                        "diskperf_trace 8 EXIT<0> err<0xb0000000>" }));
    EXPECT_EQ(LinesOf("_DkpfPfmGetPMQueryType"), Strings());
}

TEST_F(PerfmonCollect, OnlyZeroSwitchesCollectionOff)
{
    Opened();
    for (DWORD enable : { 2u, 0x80000000u }) {
        region->conf.perf_enable = enable;
        EXPECT_EQ(Collect(), 0u) << enable;
        ExpectData();
    }
}

TEST_F(PerfmonCollect, ARegionThatIsGoneIsNoData)
{
    Opened();
    g_dwShmInitCount = 0;
    EXPECT_EQ(Collect(), 0u);
    ExpectNoData();
    EXPECT_EQ(
        CollectLines(),
        Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  _DkpfShmGetPerfEnable() failed. errcode<0xb0000018>",
                  "diskperf_trace 8 EXIT<0> err<0xb0000018>" }));
    g_dwShmInitCount = 1;
}

/* ---- Close ------------------------------------------------------------------------------------------------------- */

TEST_F(PerfmonClose, TheLastCloseDetachesAndFreesAll)
{
    Opened();
    EXPECT_EQ(DkpfCloseForPerfmon(), 0u);
    EXPECT_EQ(CloseLines(),
              Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 8  DkpfTerminate() start ...", " 8 EXIT :" }))
        << "the logs are closed by then";
    EXPECT_EQ(Freed(), Strings({ "152 bytes", "744 bytes", "8840 bytes", "10168 bytes", "10168 bytes" }));
    EXPECT_EQ(g_dwPfmOpenCount, 0u);
    EXPECT_EQ(g_dwInitCount, 0u);
    EXPECT_EQ(region->PMProcessID[1], 0u);
    ExpectNothingLeft();
}

static std::vector<const void*> g_freed;
static HGLOBAL WINAPI           NoteFree(HGLOBAL memory)
{
    g_freed.push_back(memory);
    return NULL;
}

// The two samples have one size: only their addresses tell them apart.
TEST_F(PerfmonClose, EachBufferIsFreedInItsTurnAndItsPointerCleared)
{
    Opened();
    const std::vector<const void*> buffers = Buffers();
    g_freed.clear();
    ASSERT_TRUE(hooks.Replace("kernel32.dll", "GlobalFree", Address(NoteFree)));
    DkpfCloseForPerfmon();
    EXPECT_EQ(g_freed, buffers);
    EXPECT_EQ(Buffers(), NoBuffers);
}

TEST_F(PerfmonClose, DetachesBeforeItFrees)
{
    Opened();
    DkpfCloseForPerfmon();
    Strings names = journal.Names(
        { "WaitForSingleObject", "ReleaseMutex", "RegOpenKeyExA", "RegQueryValueExA", "RegCloseKey", "log_term" });
    ASSERT_GE(names.size(), 6u);
    EXPECT_EQ(Strings(names.end() - 5, names.end()), Strings(5, "GlobalFree"));
    EXPECT_EQ(std::count(names.begin(), names.end(), "UnmapViewOfFile"), 1);
}

static BOOL RefusingTerminate(DWORD* err)
{
    *err = 0xB0000005;
    return FALSE;
}

TEST_F(PerfmonClose, ADetachThatIsRefusedStillFreesTheBuffers)
{
    Opened();
    {
        Detour detour(DkpfTerminate, RefusingTerminate);
        EXPECT_EQ(DkpfCloseForPerfmon(), 0u);
    }
    EXPECT_EQ(CloseLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 8  DkpfTerminate() start ...",
                                      "diskperf_trace 8 EXIT :" }));
    EXPECT_EQ(Freed(), Strings({ "152 bytes", "744 bytes", "8840 bytes", "10168 bytes", "10168 bytes" }));
    EXPECT_EQ(Buffers(), NoBuffers);
    EXPECT_EQ(g_dwPfmOpenCount, 0u);
}

TEST_F(PerfmonClose, TwoOpensNeedTwoCloses)
{
    Opened();
    EXPECT_EQ(Open(), 0u);
    log.ClearLines();
    EXPECT_EQ(DkpfCloseForPerfmon(), 0u);
    EXPECT_EQ(
        CloseLines(),
        Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 2  Pfmon is not yet last-termination(2times). Skip.",
                  "diskperf_trace 8 EXIT :" }));
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_EQ(region->PMProcessID[1], 4711u) << "still attached";
    EXPECT_EQ(MemoryAndKeysHeld().size(), 5u);
    EXPECT_EQ(DkpfCloseForPerfmon(), 0u);
    EXPECT_EQ(region->PMProcessID[1], 0u);
    ExpectNothingLeft();
}

TEST_F(PerfmonClose, WithoutAnOpenSaysSoAndChangesNothing)
{
    EXPECT_EQ(DkpfCloseForPerfmon(), 0u);
    EXPECT_EQ(CloseLines(),
              Strings({ " 8 ENTER :", " 2  Pfmon is not yet last-termination(0times). Skip.", " 8 EXIT :" }));
    EXPECT_EQ(g_dwPfmOpenCount, 0u);
    EXPECT_EQ(journal.Number("GlobalFree"), 0u);
    ExpectNothingLeft();
}

TEST_F(PerfmonClose, AnOpenAfterTheLastCloseBeginsAnew)
{
    Opened();
    DkpfCloseForPerfmon();
    EXPECT_EQ(Open(), 0u);
    EXPECT_EQ(g_dwPfmOpenCount, 1u);
    EXPECT_EQ(region->PMProcessID[1], 4711u);
    DkpfCloseForPerfmon();
    ExpectNothingLeft();
}

/* ---- Debug stop -------------------------------------------------------------------------------------------------- */

/* The registry value as a bit set: which of the three entry points stop. */
class PerfmonDebugStop : public PerfmonCollect, public testing::WithParamInterface<DWORD> {};
INSTANTIATE_TEST_SUITE_P(Bits, PerfmonDebugStop, testing::Values(0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 0xFFFFFFFFu));

TEST_P(PerfmonDebugStop, TheEntryPointsWhoseBitsAreSetStopInAMessageBox)
{
    using Box = std::pair<std::string, std::string>;
    os.SetValue("HKLM\\Software\\OSK\\TARNWELL\\work", "dkpf_debug", GetParam());
    EXPECT_EQ(Open(), 0u);
    EXPECT_EQ(Collect(), 0u);
    ExpectData();
    EXPECT_EQ(DkpfCloseForPerfmon(), 0u);
    std::vector<Box> expected;
    if ((GetParam() & 1) != 0) {
        expected.push_back(Box("open", "DkpfOpenForPerfmon() is Debug Mode. ProcessID=4711l"));
    }
    if ((GetParam() & 2) != 0) {
        expected.push_back(Box("collect", "DkpfCollectForPerfmon() is Debug Mode. ProcessID=4711l"));
    }
    if ((GetParam() & 4) != 0) {
        expected.push_back(Box("close", "DkpfCloseForPerfmon() is Debug Mode. ProcessID=4711l"));
    }
    EXPECT_EQ(os.messageBoxes, expected);
    ExpectNothingLeft();
}

TEST_F(PerfmonCollect, TheDebugStopIsTheFirstStep)
{
    os.SetValue("HKLM\\Software\\OSK\\TARNWELL\\work", "dkpf_debug", 7);
    Open();
    EXPECT_EQ(
        journal.Names({ "RegOpenKeyExA", "RegQueryValueExA", "RegCloseKey", "GetCurrentProcessId", "wsprintfA" })[0],
        "MessageBoxA");
    EXPECT_EQ(journal.Of("MessageBoxA")[0].args, "open, DkpfOpenForPerfmon() is Debug Mode. ProcessID=4711l, 0");
    journal.Clear();
    log.ClearLines();
    DkpfCollectForPerfmon(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(journal.Number("MessageBoxA"), 1u) << "before any argument is looked at";
    journal.Clear();
    Open();
    EXPECT_EQ(journal.Number("MessageBoxA"), 1u) << "also in an open that only counts";
}

TEST_F(PerfmonCollect, TheDebugStopComesBeforeTheFirstLine)
{
    Opened();
    os.SetValue("HKLM\\Software\\OSK\\TARNWELL\\work", "dkpf_debug", 7);
    Open();
    EXPECT_EQ(CallsBefore("MessageBoxA", "DkpfOpenForPerfmon"), 1u);
    journal.Clear();
    Collect();
    EXPECT_EQ(CallsBefore("MessageBoxA", "DkpfCollectForPerfmon"), 1u);
    journal.Clear();
    DkpfCloseForPerfmon();
    EXPECT_EQ(CallsBefore("MessageBoxA", "DkpfCloseForPerfmon"), 1u);
}

static std::vector<HWND> g_owners;
static int WINAPI        NoteOwner(HWND owner, LPCSTR, LPCSTR, UINT)
{
    g_owners.push_back(owner);
    return IDOK;
}

TEST_F(PerfmonCollect, TheMessageBoxesHaveNoOwner)
{
    os.SetValue("HKLM\\Software\\OSK\\TARNWELL\\work", "dkpf_debug", 7);
    g_owners.clear();
    ASSERT_TRUE(hooks.Replace("user32.dll", "MessageBoxA", Address(NoteOwner)));
    Open();
    Collect();
    DkpfCloseForPerfmon();
    EXPECT_EQ(g_owners, std::vector<HWND>(3, nullptr));
}

TEST_F(PerfmonCollect, ASwitchThatCannotBeReadStopsNobody)
{
    g_dwDebugMode = 7;  // as read before; the value has been removed since
    Open();
    Collect();
    DkpfCloseForPerfmon();
    EXPECT_TRUE(os.messageBoxes.empty());
}

TEST_F(PerfmonCollect, TheSwitchIsReadAnewInEachCall)
{
    Opened();
    os.SetValue("HKLM\\Software\\OSK\\TARNWELL\\work", "dkpf_debug", 2);
    Collect();
    os.SetValue("HKLM\\Software\\OSK\\TARNWELL\\work", "dkpf_debug", 0);
    Collect();
    EXPECT_EQ(os.messageBoxes.size(), 1u);
}
