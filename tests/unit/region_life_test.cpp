/*
 * The region's life in a process: creating and opening it, the sweep of the consumer table, claiming a row, counting,
 * and letting go.
 */
#include "unit/region_fixture.h"

#include <string.h>

#include <functional>

using namespace format;

class RegionLife : public RegionTest {
protected:
    void SetUp() override
    {
        RegionTest::SetUp();
        MakeRegionMutex();
    }
    static uint32_t Owner(const uint8_t* raw, size_t r)
    {
        return Get32(raw, RegionProcess + 4 * r);
    }
    static void SetOwner(uint8_t* raw, size_t r, uint32_t pid)
    {
        Put32(raw, RegionProcess + 4 * r, pid);
    }
    /* Fills all 12 slots of a row of peaks. */
    static void FillRow(uint8_t* raw, size_t r, uint8_t value)
    {
        memset(raw + MaxAt(r, 0), value, RegionMaxStride);
    }
    /* What freeing or claiming leaves of a filled row: slots 0 to 6 zero, 7 to 11 as they were. */
    static Bytes ClearedRow(uint8_t value)
    {
        Bytes row(RegionMaxStride, value);
        memset(row.data(), 0, 3640);
        return row;
    }
    static Bytes Row(const uint8_t* raw, size_t r)
    {
        return Bytes(raw + MaxAt(r, 0), raw + MaxAt(r, 0) + 6240);
    }

    Routine I{ "_DkpfShmInitialize" }, Cr{ "_DkpfShmCreateMapping" }, Op{ "_DkpfShmOpenMapping" },
        Ch{ "_DkpfShmCheckProcExist" }, Te{ "_DkpfShmTerminate" };
    DWORD dwErr = NotSet;
};

static std::string Mapped(const char* how)
{
    return std::string(" Shm ") + how + " mapping succeed (TNW_DKPF_SHM_INFO). Handle<" + Plain(g_hShmMap) +
           "> MapView<" + Plain(g_pShmInfo) + ">";
}

static const char CreateCall[] = "CreateFileMappingA(page file, null DACL, 0x4, 0, 216784, Global\\TNW_DKPF_SHM_INFO)";
static const char OpenCall[] = "OpenFileMappingA(0xf001f, FALSE, Global\\TNW_DKPF_SHM_INFO)";
static const char MapCall[] = "MapViewOfFile(mapping Global\\TNW_DKPF_SHM_INFO, 0xf001f, 0, 0, 216784)";

/* ---- Creating ---- */

class ShmCreate : public RegionLife {};

TEST_F(ShmCreate, TheWholeStory)
{
    EXPECT_EQ(_DkpfShmInitialize(TRUE, &dwErr), TRUE);
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(Story(), Joined(I(8, "ENTER : ShmCreation=TRUE"), AttributesStory(), Lock(), Cr(8, "ENTER : "),
                              std::string(CreateCall), std::string(MapCall), Cr(32, Mapped("create")),
                              Cr(8, Exit(true, Success)), Unlock(), std::string("GlobalFree(40 bytes)"),
                              I(8, Exit(true, Success))));
    EXPECT_NE(g_pShmInfo, nullptr);
    EXPECT_NE(g_hShmMap, nullptr);
    EXPECT_EQ(g_dwShmInitCount, 1u);
    EXPECT_EQ(g_nPMProcessIDIdx, 0);
    EXPECT_EQ(g_dwPMProcessID, 0u);
    EXPECT_EQ(os.Leaks(), Strings({ MappingLeft, ViewLeft }));
}

// Edge case.
TEST_F(ShmCreate, TheAgentIsNeverEnteredInTheTableAndSweepsNothing)
{
    EXPECT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    for (size_t r = 0; r < Rows; r++) {
        EXPECT_EQ(Owner(Raw(g_pShmInfo), r), 0u) << r;
    }
    EXPECT_EQ(journal.Number("OpenProcess"), 0u);
    EXPECT_EQ(journal.Number("GetCurrentProcessId"), 0u);
}

TEST_F(ShmCreate, ASecondCreatorWipesALiveRegion)
{
    uint8_t* raw = Raw(HoldRegion());
    memset(raw, 0xEE, RegionSize);
    EXPECT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    EXPECT_EQ(dwErr, Success) << "that the name exists is no matter";
    EXPECT_EQ(Raw(g_pShmInfo), raw);
    Bytes zero(RegionSize);
    EXPECT_EQ(FirstDifference(raw, zero.data(), RegionSize), "") << "configuration and consumer table included";
}

TEST_F(ShmCreate, ACreatorThatWasAReaderBeforeUsesRowZero)
{
    g_nPMProcessIDIdx = 5;  // a reader's start failed at its unlock
    EXPECT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    EXPECT_EQ(g_nPMProcessIDIdx, 0);
}

TEST_F(ShmCreate, WithoutTheMutexNothingIsTouched)
{
    for (HANDLE none : { static_cast<HANDLE>(nullptr), INVALID_HANDLE_VALUE }) {
        for (BOOL bCreate : { TRUE, FALSE }) {
            StartStory();
            g_hShmMutex = none;
            dwErr = NotSet;
            EXPECT_EQ(_DkpfShmInitialize(bCreate, &dwErr), FALSE);
            EXPECT_EQ(dwErr, NoRegion);
            EXPECT_EQ(Story(), Strings({ I(8, std::string("ENTER : ShmCreation=") + (bCreate ? "TRUE" : "FALSE")),
                                         I(1, " g_hShmMutex is NULL."), I(8, Exit(false, NoRegion)) }));
            ExpectDetached(0);
        }
    }
}

TEST_F(ShmCreate, AnAbandonedMutexIsTakenOver)
{
    os.Abandon(g_hShmMutex);
    EXPECT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    EXPECT_EQ(log.Errors(), Strings());
}

TEST_F(ShmCreate, TheMappingStepAloneSetsBothGlobals)
{
    EXPECT_EQ(_DkpfShmCreateMapping(nullptr, &dwErr), TRUE);
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(journal.Lines({ "CreateFileMappingA" })[0].substr(0, 44), "CreateFileMappingA(page file, no security, 0");
    EXPECT_EQ(os.Leaks(), Strings({ MappingLeft, ViewLeft }));
    EXPECT_EQ(g_dwShmInitCount, 0u);
}

/* ---- Opening ---- */

class ShmOpen : public RegionLife {
protected:
    void SetUp() override
    {
        RegionLife::SetUp();
        raw = Raw(HoldRegion());
    }
    static Strings UnusedRows(int first, int last)
    {
        Routine ch("_DkpfShmCheckProcExist");
        Strings lines;
        for (int i = first; i <= last; i++) {
            lines.push_back(ch(16, "  [Idx:" + std::to_string(i) + "] PID Tabel is unused. Skip."));
        }
        return lines;
    }
    /* From the entry to the sweep's own lines. */
    Strings StoryUpToTheSweep() const
    {
        return Joined(I(8, "ENTER : ShmCreation=FALSE"), AttributesStory(), Lock(), Op(8, "ENTER : "),
                      std::string(OpenCall), std::string(MapCall), Op(32, Mapped("open")), Op(8, Exit(true, Success)),
                      Ch(8, "ENTER :"));
    }
    uint8_t* raw = nullptr;
};

TEST_F(ShmOpen, TheWholeStory)
{
    EXPECT_EQ(_DkpfShmInitialize(FALSE, &dwErr), TRUE);
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(Story(), Joined(StoryUpToTheSweep(), UnusedRows(1, 32), Ch(8, Exit(true, Success)),
                              std::string("GetCurrentProcessId()"), I(8, " PMProcessID<4711> PMProcessIDIdx<1>"),
                              Unlock(), std::string("GlobalFree(40 bytes)"), I(8, Exit(true, Success))));
    EXPECT_EQ(Raw(g_pShmInfo), raw);
    EXPECT_EQ(g_dwShmInitCount, 1u);
    EXPECT_EQ(g_nPMProcessIDIdx, 1);
    EXPECT_EQ(g_dwPMProcessID, 4711u);
    EXPECT_EQ(Owner(raw, 1), 4711u);
    EXPECT_EQ(Owner(raw, 0), 0u);
    EXPECT_EQ(os.Leaks(), Strings({ MappingLeft, ViewLeft }));
}

TEST_F(ShmOpen, LeavesEverythingButItsRowAsItIs)
{
    std::mt19937_64 random(4);
    RegionModel     model;
    model.bytes = RandomBytes(random, RegionSize);
    for (size_t r = 1; r < Rows; r++) {
        model.GiveRow(r, 0);
    }
    SetOwner(model.bytes.data(), 1, 300);
    SetOwner(model.bytes.data(), 2, 301);
    SetOwner(model.bytes.data(), 4, 302);
    FillRow(model.bytes.data(), 3, 0x77);
    memcpy(raw, model.bytes.data(), RegionSize);
    for (DWORD pid = 300; pid < 303; pid++) {
        os.Process(pid, 259);
    }
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    model.GiveRow(3, 4711);
    EXPECT_EQ(FirstDifference(raw, model.bytes.data(), RegionSize), "");
    EXPECT_EQ(Row(raw, 3), ClearedRow(0x77)) << "stale peaks must not leak; slots 7 to 11 are nobody's";
}

class ShmClaim : public ShmOpen, public testing::WithParamInterface<size_t> {};

INSTANTIATE_TEST_SUITE_P(FirstFreeRows, ShmClaim, testing::Values(1, 2, 3, 16, 31, 32));

// All rows before the first free one are taken; rows behind it are free or taken in turn.
TEST_P(ShmClaim, TakesTheFirstFreeRow)
{
    for (size_t r = 1; r < Rows; r++) {
        FillRow(raw, r, 0x55);
        if (r < GetParam() || (r > GetParam() && r % 2 == 0)) {
            SetOwner(raw, r, static_cast<uint32_t>(500 + r));
            os.Process(static_cast<DWORD>(500 + r), 259);
        }
    }
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(g_nPMProcessIDIdx, static_cast<int>(GetParam()));
    EXPECT_TRUE(log.Has(" PMProcessID<4711> PMProcessIDIdx<" + std::to_string(GetParam()) + ">"));
    for (size_t r = 1; r < Rows; r++) {
        if (r == GetParam()) {
            EXPECT_EQ(Owner(raw, r), 4711u);
            EXPECT_EQ(Row(raw, r), ClearedRow(0x55));
        } else {
            bool taken = r < GetParam() || r % 2 == 0;
            EXPECT_EQ(Owner(raw, r), taken ? 500 + r : 0u) << r;
            EXPECT_EQ(Row(raw, r), Bytes(6240, 0x55)) << r;
        }
    }
}

// Edge case.
TEST_F(ShmOpen, AReaderBeforeTheAgentFailsAtOpenFileMapping)
{
    os.DropMapping(RegionName);
    EXPECT_EQ(_DkpfShmInitialize(FALSE, &dwErr), FALSE);
    EXPECT_EQ(dwErr, MappingFailed);
    EXPECT_EQ(Story(),
              Joined(I(8, "ENTER : ShmCreation=FALSE"), AttributesStory(), Lock(), Op(8, "ENTER : "),
                     std::string(OpenCall), Op(1, " OpenFileMapping(Global\\TNW_DKPF_SHM_INFO) failed. <W32Err=2>"),
                     Op(8, Exit(false, MappingFailed)), I(1, " _DkpfShmOpenMapping() failed. errcode<0xb000001a>"),
                     Unlock(), std::string("GlobalFree(40 bytes)"), I(8, Exit(false, MappingFailed))));
    ExpectDetached(0);
    ExpectNothingLeft();
}

// Edge case.
TEST_F(ShmOpen, A33rdReaderFindsNoRowAndLeavesNoView)
{
    for (size_t r = 1; r < Rows; r++) {
        SetOwner(raw, r, static_cast<uint32_t>(500 + r));
        os.Process(static_cast<DWORD>(500 + r), 259);
        FillRow(raw, r, 0x55);
    }
    Bytes before(raw, raw + RegionSize);
    EXPECT_EQ(_DkpfShmInitialize(FALSE, &dwErr), FALSE);
    EXPECT_EQ(dwErr, TableFull);
    EXPECT_EQ(FirstDifference(raw, before.data(), RegionSize), "");
    Strings story = Story();
    Strings tail(story.end() - 10, story.end());
    EXPECT_EQ(tail, Joined(Ch(8, Exit(true, Success)), I(1, " PMProcessID Table has no empty !"), I(0x8000, ""),
                           Unlock(), std::string("UnmapViewOfFile(Global\\TNW_DKPF_SHM_INFO)"),
                           "CloseHandle(" + std::string(MappingShown) + ")", std::string("GlobalFree(40 bytes)"),
                           I(8, Exit(false, TableFull))));
    EXPECT_EQ(log.Events(), Events({ 0xC00012C6 }));
    ExpectDetached(0);
    EXPECT_EQ(g_nPMProcessIDIdx, 0);
    EXPECT_EQ(g_dwPMProcessID, 0u);
    ExpectNothingLeft();
}

TEST_F(ShmOpen, AfterAFullTableTheReaderComesInAsSoonAsARowIsFree)
{
    for (size_t r = 1; r < Rows; r++) {
        SetOwner(raw, r, static_cast<uint32_t>(500 + r));
        os.Process(static_cast<DWORD>(500 + r), 259);
    }
    EXPECT_FALSE(_DkpfShmInitialize(FALSE, &dwErr));
    os.Process(520, 1);
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(g_nPMProcessIDIdx, 20);
}

TEST_F(ShmOpen, TheMappingStepAloneSetsBothGlobalsAndClearsNothing)
{
    memset(raw, 0xEE, RegionSize);
    EXPECT_EQ(_DkpfShmOpenMapping(&dwErr), TRUE);
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(Story(),
              Strings({ Op(8, "ENTER : "), OpenCall, MapCall, Op(32, Mapped("open")), Op(8, Exit(true, Success)) }));
    EXPECT_EQ(Bytes(raw, raw + RegionSize), Bytes(RegionSize, 0xEE));
    EXPECT_EQ(os.Leaks(), Strings({ MappingLeft, ViewLeft }));
}

/* ---- The sweep ---- */

/* What becomes of the row of process 900 and which lines tell. %i stands for the row's number. */
struct SweepCase {
    const char*              story;
    std::function<void(Os&)> prepare;
    std::vector<const char*> lines;  // behind "Start check"
    bool                     freed;
    Strings                  calls;  // behind OpenProcess
    Strings                  left;
};

static const char ExitCodeCall[] = "GetExitCodeProcess(process 900";
static const char CloseCall[] = "CloseHandle(process 900)";

static const SweepCase sweepCases[] = {
    { "GoneByError87",
      [](Os&) {},
      { "  [Idx:%i] OpenProcess() failed, process not-exists. <W32Err=87>" },
      true,
      {},
      {} },
    { "AnotherAccountByError5",
      [](Os& os) { os.ProcessRefused(900, 5); },
      { "  [Idx:%i] OpenProcess() failed, process exists. <W32Err=5>" },
      false,
      {},
      {} },
    { "OpenFailsOtherwise",
      [](Os& os) { os.ProcessRefused(900, 1450); },
      { "  [Idx:%i] OpenProcess() failed, process check impossible. <W32Err=1450>" },
      false,
      {},
      {} },
    { "NoExitCode",
      [](Os& os) {
          os.Process(900, 259);
          os.Fail("GetExitCodeProcess", 1, 31);
      },
      { "  [Idx:%i] GetExitCodeProcess() failed, process check impossible. <W32Err=31>" },
      false,
      { std::string(ExitCodeCall) + ")", CloseCall },
      {} },
    { "Alive",
      [](Os& os) { os.Process(900, 259); },
      { "  [Idx:%i] Process check succeeded. : ACTIVE" },
      false,
      { std::string(ExitCodeCall) + " -> 259)", CloseCall },
      {} },
    { "EndedWith0",
      [](Os& os) { os.Process(900, 0); },
      { "  [Idx:%i] Process check succeeded. : DEACTIVE" },
      true,
      { std::string(ExitCodeCall) + " -> 0)", CloseCall },
      {} },
    { "EndedWith258",
      [](Os& os) { os.Process(900, 258); },
      { "  [Idx:%i] Process check succeeded. : DEACTIVE" },
      true,
      { std::string(ExitCodeCall) + " -> 258)", CloseCall },
      {} },
    { "Crashed",
      [](Os& os) { os.Process(900, 0xC0000005); },
      { "  [Idx:%i] Process check succeeded. : DEACTIVE" },
      true,
      { std::string(ExitCodeCall) + " -> 3221225477)", CloseCall },
      {} },
    { "AliveAndNotClosed",
      [](Os& os) {
          os.Process(900, 259);
          os.Fail("CloseHandle", 1, 6);
      },
      { "  [Idx:%i] Process check succeeded. : ACTIVE", "  [Idx:%i] CloseHandle() failed. <W32Err=6>" },
      false,
      { std::string(ExitCodeCall) + " -> 259)", CloseCall },
      { "handle: process 900" } },
    { "EndedAndNotClosed",
      [](Os& os) {
          os.Process(900, 1);
          os.Fail("CloseHandle", 1, 6);
      },
      { "  [Idx:%i] Process check succeeded. : DEACTIVE", "  [Idx:%i] CloseHandle() failed. <W32Err=6>" },
      true,
      { std::string(ExitCodeCall) + " -> 1)", CloseCall },
      { "handle: process 900" } },
    { "NoExitCodeAndNotClosed",
      [](Os& os) {
          os.Process(900, 0);
          os.Fail("GetExitCodeProcess", 1, 5);
          os.Fail("CloseHandle", 1, 6);
      },
      { "  [Idx:%i] GetExitCodeProcess() failed, process check impossible. <W32Err=5>",
        "  [Idx:%i] CloseHandle() failed. <W32Err=6>" },
      false,
      { std::string(ExitCodeCall) + ")", CloseCall },
      { "handle: process 900" } },
};

class ShmSweep : public ShmOpen, public testing::WithParamInterface<SweepCase> {
protected:
    /* One row's lines. */
    Strings RowStory(int row) const
    {
        std::string number = std::to_string(row);
        Strings     lines = { Ch(16, "  [Idx:" + number + "] Start check the process existance. PMProcessID<900>") };
        for (std::string text : GetParam().lines) {
            text.replace(text.find("%i"), 2, number);
            lines.push_back(Ch(16, text));
        }
        return lines;
    }
    /* The sweep over a table whose only owner is process 900 in one row. */
    void SweepWithRow(int row)
    {
        memset(raw, 0, RegionSize);
        for (size_t r = 0; r < Rows; r++) {
            FillRow(raw, r, static_cast<uint8_t>(0x40 + r));
        }
        SetOwner(raw, 0, 77);  // never looked at
        SetOwner(raw, static_cast<size_t>(row), 900);
        Bytes expected(raw, raw + RegionSize);
        if (GetParam().freed) {
            SetOwner(expected.data(), static_cast<size_t>(row), 0);
            memset(expected.data() + MaxAt(static_cast<size_t>(row), 0), 0, 3640);
        }
        GetParam().prepare(os);
        EXPECT_EQ(_DkpfShmCheckProcExist(raw + 40, &dwErr), TRUE);
        EXPECT_EQ(dwErr, Success) << "whatever the sweep meets is no failure";
        EXPECT_EQ(TraceStory(), Joined(Ch(8, "ENTER :"), UnusedRows(1, row - 1), RowStory(row), UnusedRows(row + 1, 32),
                                       Ch(8, Exit(true, Success))));
        EXPECT_EQ(Story({ "log_write" }), Joined(std::string("OpenProcess(0x1fffff, FALSE, 900)"), GetParam().calls));
        EXPECT_EQ(FirstDifference(raw, expected.data(), RegionSize), "");
        EXPECT_EQ(os.Leaks(), GetParam().left);
        EXPECT_EQ(os.misuse, Strings());
    }
};

INSTANTIATE_TEST_SUITE_P(Outcomes, ShmSweep, testing::ValuesIn(sweepCases), StoryOf());

TEST_P(ShmSweep, OfTheFirstRow)
{
    SweepWithRow(1);
}

TEST_P(ShmSweep, OfARowInTheMiddle)
{
    SweepWithRow(17);
}

TEST_P(ShmSweep, OfTheLastRow)
{
    SweepWithRow(32);
}

// The freed row is the first free one and is claimed at once, with its peaks at zero; a kept one is passed over.
TEST_P(ShmSweep, AtTheNextReadersStart)
{
    SetOwner(raw, 1, 900);
    FillRow(raw, 1, 0x66);
    FillRow(raw, 2, 0x66);
    GetParam().prepare(os);
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    int row = GetParam().freed ? 1 : 2;
    EXPECT_EQ(g_nPMProcessIDIdx, row);
    EXPECT_EQ(Owner(raw, 1), GetParam().freed ? 4711u : 900u);
    EXPECT_EQ(Row(raw, static_cast<size_t>(row)), ClearedRow(0x66));
}

// Part of a full table is dead, the rest alive: exactly the dead rows go, in one sweep.
TEST_F(ShmOpen, AFullTableLosesItsDeadOwnersAndKeepsTheOthers)
{
    for (size_t r = 1; r < Rows; r++) {
        SetOwner(raw, r, static_cast<uint32_t>(600 + r));
        if (r % 3 == 0) {
            os.Process(static_cast<DWORD>(600 + r), 259);
        } else if (r % 3 == 1) {
            os.Process(static_cast<DWORD>(600 + r), 3);
        }  // every third is not there at all
    }
    EXPECT_TRUE(_DkpfShmCheckProcExist(raw + 40, &dwErr));
    for (size_t r = 1; r < Rows; r++) {
        EXPECT_EQ(Owner(raw, r), r % 3 == 0 ? 600 + r : 0u) << r;
    }
    ExpectNothingLeft();
}

// Edge case: the sweep sees numbers only.
TEST_F(ShmOpen, ARecycledNumberOfALiveProcessKeepsTheOldRow)
{
    SetOwner(raw, 1, 900);
    FillRow(raw, 1, 0x66);
    os.Process(900, 0);    // the reader that died...
    os.Process(900, 259);  // ...and what has its number now
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(Owner(raw, 1), 900u);
    EXPECT_EQ(Row(raw, 1), Bytes(6240, 0x66));
    EXPECT_EQ(g_nPMProcessIDIdx, 2);
}

TEST_F(ShmOpen, AProcessMayOwnSeveralRows)
{
    SetOwner(raw, 1, 4711);
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(g_nPMProcessIDIdx, 2);
    EXPECT_EQ(Owner(raw, 1), 4711u) << "its own number is alive";
}

TEST_F(ShmOpen, NumbersAreTracedAsSignedDecimals)
{
    SetOwner(raw, 1, 0xFFFFFFFC);
    os.processId = 0x80000000;
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_TRUE(log.Has("  [Idx:1] Start check the process existance. PMProcessID<-4>"));
    EXPECT_TRUE(log.Has(" PMProcessID<-2147483648> PMProcessIDIdx<1>"));
    EXPECT_EQ(journal.Of("OpenProcess")[0].args, "0x1fffff, FALSE, 4294967292");
}

TEST_F(RegionLife, ASweepOfNothingIsRefused)
{
    EXPECT_EQ(_DkpfShmCheckProcExist(nullptr, &dwErr), FALSE);
    EXPECT_EQ(dwErr, BadPointer);
    EXPECT_EQ(Story(), Strings({ Ch(8, "ENTER :"), Ch(1, " lpDkpfParam is NULL."), Ch(8, Exit(false, BadPointer)) }));
}

/* ---- Counting and letting go ---- */

class ShmNesting : public ShmOpen, public testing::WithParamInterface<BOOL> {
protected:
    /* As the row's owner the library stands at: none in the agent. */
    size_t OwnRow() const
    {
        return GetParam() ? 0 : 1;
    }
};

INSTANTIATE_TEST_SUITE_P(AgentAndReader, ShmNesting, testing::Values(TRUE, FALSE),
                         [](const auto& test) { return std::string(test.param ? "Agent" : "Reader"); });

TEST_P(ShmNesting, ASecondInitialiseOnlyCounts)
{
    ASSERT_TRUE(_DkpfShmInitialize(GetParam(), &dwErr));
    Bytes  before(raw, raw + RegionSize);
    void*  view = g_pShmInfo;
    HANDLE hMap = g_hShmMap;
    int    nRow = g_nPMProcessIDIdx;
    for (DWORD count = 1; count < 4; count++) {
        // The flag of a further call does not matter.
        BOOL bCreate = count % 2 == 0;
        StartStory();
        dwErr = NotSet;
        EXPECT_EQ(_DkpfShmInitialize(bCreate, &dwErr), TRUE);
        EXPECT_EQ(dwErr, Already);
        EXPECT_EQ(Story(),
                  Joined(I(8, std::string("ENTER : ShmCreation=") + (bCreate ? "TRUE" : "FALSE")), AttributesStory(),
                         Lock(), I(1, " Shm already initialized.(" + std::to_string(count) + "times). Skip."), Unlock(),
                         std::string("GlobalFree(40 bytes)"), I(8, Exit(true, Already))));
        EXPECT_EQ(g_dwShmInitCount, count + 1);
    }
    EXPECT_EQ(g_pShmInfo, view);
    EXPECT_EQ(g_hShmMap, hMap);
    EXPECT_EQ(g_nPMProcessIDIdx, nRow);
    EXPECT_EQ(FirstDifference(raw, before.data(), RegionSize), "");
}

TEST_P(ShmNesting, ATerminateThatIsNotTheLastOnlyCountsAndSaysSoAtLevel1)
{
    ASSERT_TRUE(_DkpfShmInitialize(GetParam(), &dwErr));
    g_dwShmInitCount = 3;
    Bytes before(raw, raw + RegionSize);
    for (DWORD count = 3; count > 1; count--) {
        StartStory();
        dwErr = NotSet;
        EXPECT_EQ(_DkpfShmTerminate(&dwErr), TRUE);
        EXPECT_EQ(dwErr, Success);
        EXPECT_EQ(Story(), Joined(Te(8, "ENTER :"), Lock(),
                                  Te(1, " Shm is not yet last-termination.(" + std::to_string(count) + "times). Skip."),
                                  Unlock(), Te(8, Exit(true, Success))));
        EXPECT_EQ(g_dwShmInitCount, count - 1);
        EXPECT_NE(g_pShmInfo, nullptr);
    }
    EXPECT_EQ(FirstDifference(raw, before.data(), RegionSize), "");
}

TEST_P(ShmNesting, TheLastTerminateClearsItsRowAndLetsGo)
{
    ASSERT_TRUE(_DkpfShmInitialize(GetParam(), &dwErr));
    memset(raw, 0x33, RegionSize);
    Bytes expected(raw, raw + RegionSize);
    Put32(expected.data(), RegionProcess + 4 * OwnRow(), 0);
    memset(expected.data() + MaxAt(OwnRow(), 0), 0, 3640);
    StartStory();
    dwErr = NotSet;
    EXPECT_EQ(_DkpfShmTerminate(&dwErr), TRUE);
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(Story(), Joined(Te(8, "ENTER :"), Lock(), std::string("UnmapViewOfFile(Global\\TNW_DKPF_SHM_INFO)"),
                              "CloseHandle(" + std::string(MappingShown) + ")", Unlock(), Te(8, Exit(true, Success))));
    EXPECT_EQ(FirstDifference(raw, expected.data(), RegionSize), "");
    ExpectDetached(0);
    EXPECT_EQ(g_nPMProcessIDIdx, 0);
    EXPECT_EQ(g_dwPMProcessID, 0u);
    ExpectNothingLeft();
}

// Edge case.
TEST_P(ShmNesting, TwoInitialisesNeedTwoTerminatesAndAThirdIsRefused)
{
    EXPECT_TRUE(_DkpfShmInitialize(GetParam(), &dwErr));
    EXPECT_TRUE(_DkpfShmInitialize(GetParam(), &dwErr));
    EXPECT_EQ(dwErr, Already);
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    EXPECT_NE(g_pShmInfo, nullptr) << "the first keeps the view";
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    ExpectDetached(0);
    EXPECT_FALSE(_DkpfShmTerminate(&dwErr));
    EXPECT_EQ(dwErr, NoRegion);
    ExpectDetached(0);
    ExpectNothingLeft();
}

TEST_P(ShmNesting, AfterTheLastTerminateItBeginsAnew)
{
    for (int i = 0; i < 3; i++) {
        EXPECT_TRUE(_DkpfShmInitialize(GetParam(), &dwErr));
        EXPECT_EQ(dwErr, Success);
        EXPECT_EQ(Owner(raw, 1), GetParam() ? 0u : 4711u);
        EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
        EXPECT_EQ(Owner(raw, 1), 0u);
    }
    ExpectNothingLeft();
}

class ShmTerminate : public RegionLife {};

TEST_F(ShmTerminate, WithoutAnInitialiseIsRefused)
{
    EXPECT_EQ(_DkpfShmTerminate(&dwErr), FALSE);
    EXPECT_EQ(dwErr, NoRegion);
    EXPECT_EQ(Story(), Joined(Te(8, "ENTER :"), Lock(), Te(1, " Shm is not initialized.(0times). Skip."), Unlock(),
                              Te(8, Exit(false, NoRegion))));
    EXPECT_EQ(g_dwShmInitCount, 0u);
    ExpectNothingLeft();
}

TEST_F(ShmTerminate, WithoutTheMutexFailsAtTheLock)
{
    g_hShmMutex = nullptr;
    EXPECT_EQ(_DkpfShmTerminate(&dwErr), FALSE);
    EXPECT_EQ(dwErr, LockFailed);
    EXPECT_EQ(log.TextsOf("_DkpfShmTerminate"), Strings({ " _DkpfMutexLock() failed. errcode<0xb0000000>" }));
}

TEST_F(ShmTerminate, TheRegionLivesAsLongAsAnybodyHoldsIt)
{
    Process agent(100), reader(200);
    os.Process(100, 259);
    Enter(agent);
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    memset(g_pShmInfo, 0x44, 36);
    Enter(reader);
    ASSERT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    Enter(agent);
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    Enter(reader);
    EXPECT_EQ(Bytes(Raw(g_pShmInfo), Raw(g_pShmInfo) + 36), Bytes(36, 0x44))
        << "the agent's leaving clears row 0 alone";
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));

    Process late(300);
    Enter(late);
    EXPECT_FALSE(_DkpfShmInitialize(FALSE, &dwErr)) << "the last one took the region along";
    EXPECT_EQ(dwErr, MappingFailed);
    Enter(agent);
    EXPECT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    Bytes zero(RegionSize);
    EXPECT_EQ(FirstDifference(g_pShmInfo, zero.data(), RegionSize), "") << "the next creator starts from zeros";
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    ExpectNothingLeft();
}

// 32 readers through the routines themselves, each in a process of its own; the 33rd waits for one to leave or die.
TEST_F(ShmTerminate, ThirtyTwoReadersComeAndGo)
{
    Process              agent(100);
    std::vector<Process> readers;
    Enter(agent);
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    for (DWORD i = 0; i < 33; i++) {
        readers.emplace_back(1000 + i);
        os.Process(1000 + i, 259);
    }
    for (DWORD i = 0; i < 32; i++) {
        Enter(readers[i]);
        EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
        EXPECT_EQ(g_nPMProcessIDIdx, static_cast<int>(i + 1));
    }
    Enter(readers[32]);
    EXPECT_FALSE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(dwErr, TableFull);
    ExpectDetached(0);

    Enter(readers[8]);
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    Enter(readers[32]);
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(g_nPMProcessIDIdx, 9);

    os.Process(1020, 0xC0000005);  // killed, and never cleaned up after itself
    Enter(readers[8]);
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(g_nPMProcessIDIdx, 21);

    for (DWORD i = 0; i < 33; i++) {
        if (i != 20) {
            Enter(readers[i]);
            EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
        }
    }
    Enter(agent);
    for (size_t r = 0; r < Rows; r++) {
        EXPECT_EQ(Owner(Raw(g_pShmInfo), r), 0u) << r;
    }
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    EXPECT_EQ(os.Leaks(), Strings({ MappingLeft, ViewLeft })) << "those of the reader that died";
}
