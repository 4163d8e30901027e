/*
 * Every failure of every call that bringing the shared region into a process and out of it makes. The accessors make
 * two calls, lock and unlock; their failures stand with the accessors' other cases.
 */
#include <string.h>

#include <algorithm>
#include <functional>
#include <set>

#include "support/detour.h"
#include "unit/region_fixture.h"

using namespace format;

struct Plan {
    const char* call;
    unsigned    nth;
    DWORD       error;
};

/* One or more calls that fail, and all that follows. %m in a line stands for the mutex. */
struct LifeFault {
    const char*       story;
    std::vector<Plan> plans;
    bool              result;
    DWORD             code;
    Strings           errors;  // all lines of level 1, in order, behind those of the same call without a failure
    DWORD             count;   // g_dwShmInitCount afterwards
    bool              view;    // g_pShmInfo is set afterwards
    bool              map;     // g_hShmMap is set afterwards
    Strings           left;    // what is left open
};

static const char CreateFailed1A[] = "_DkpfShmInitialize:  _DkpfShmCreateMapping() failed. errcode<0xb000001a>";
static const char CreateFailed1B[] = "_DkpfShmInitialize:  _DkpfShmCreateMapping() failed. errcode<0xb000001b>";
static const char OpenFailed1A[] = "_DkpfShmInitialize:  _DkpfShmOpenMapping() failed. errcode<0xb000001a>";
static const char OpenFailed1B[] = "_DkpfShmInitialize:  _DkpfShmOpenMapping() failed. errcode<0xb000001b>";
static const char NoBlock[] = "_DkpfShmInitialize:  _MALLOC(40byte) failed.";
static const char NoDescriptor[] = "_DkpfShmInitialize:  InitializeSecurityDescriptor() failed. <W32Err=1305>";
static const char NoDacl[] = "_DkpfShmInitialize:  SetSecurityDescriptorDacl() failed. <W32Err=1338>";
static const char WaitRefused[] = "_DkpfMutexLock:  WaitForSingleObject(%m) failed.<W32Err=5>";
static const char NotLocked[] = "_DkpfShmInitialize:  _DkpfMutexLock() failed. errcode<0xb0000000>";
static const char ReleaseRefused[] = "_DkpfMutexUnlock:  ReleaseMutex(%m) failed.(W32Err=288)";
static const char NotUnlocked[] = "_DkpfShmInitialize:  _DkpfMutexUnlock() failed.";
static const char NotUnmapped[] = "_DkpfShmInitialize:  UnmapViewOfFile() failed. <W32Err=487>";
static const char NotClosed[] = "_DkpfShmInitialize:  CloseHandle() failed. <W32Err=6>";
static const char IsInitialized[] = "_DkpfShmInitialize:  Shm already initialized.(1times). Skip.";

static const Plan NoBlockPlan = { "GlobalAlloc", 1, 8 };
static const Plan NoDescriptorPlan = { "InitializeSecurityDescriptor", 1, 1305 };
static const Plan NoDaclPlan = { "SetSecurityDescriptorDacl", 1, 1338 };
static const Plan WaitPlan = { "WaitForSingleObject", 1, 5 };
static const Plan ReleasePlan = { "ReleaseMutex", 1, 288 };
static const Plan UnmapPlan = { "UnmapViewOfFile", 1, 487 };
static const Plan ClosePlan = { "CloseHandle", 1, 6 };
static const Plan FreePlan = { "GlobalFree", 1, 6 };

static const char BlockLeft[] = "heap: 40 bytes";

/* The call is refused, and the process is left without the region. */
static LifeFault Refused(const char* story, std::vector<Plan> plans, DWORD code, Strings errors, Strings left = {})
{
    return { story, std::move(plans), false, code, std::move(errors), 0, false, false, std::move(left) };
}

/* The call succeeds all the same, and nobody reads of it. */
static LifeFault Attached(const char* story, std::vector<Plan> plans, Strings left)
{
    return { story, std::move(plans), true, Success, {}, 1, true, true, std::move(left) };
}

class RegionFaults : public RegionTest, public testing::WithParamInterface<LifeFault> {
protected:
    void SetUp() override
    {
        RegionTest::SetUp();
        MakeRegionMutex();
    }
    /* Runs the call with the failures of the case and compares everything but the region's bytes. */
    void Run(const std::function<BOOL(DWORD*)>& call)
    {
        const LifeFault& fault = GetParam();
        StartStory();
        for (const Plan& plan : fault.plans) {
            os.Fail(plan.call, plan.nth, plan.error);
        }
        DWORD dwErr = NotSet;
        EXPECT_EQ(call(&dwErr), fault.result ? TRUE : FALSE);
        EXPECT_EQ(dwErr, fault.code);
        Strings errors;
        for (const TraceLine& line : log.lines) {
            if (line.level == 1) {
                errors.push_back(line.routine + ": " + line.text);
            }
        }
        Strings expected = fault.errors;
        for (std::string& text : expected) {
            if (size_t at = text.find("%m"); at != std::string::npos) {
                text.replace(at, 2, Alternate(g_hShmMutex));
            }
        }
        EXPECT_EQ(errors, expected);
        ASSERT_FALSE(log.lines.empty());
        EXPECT_EQ(log.lines.back().text, Exit(fault.result, fault.code)) << "one way out, traced";
        EXPECT_EQ(log.lines.back().level, 8u);
        EXPECT_EQ(g_dwShmInitCount, fault.count);
        EXPECT_EQ(g_pShmInfo != nullptr, fault.view);
        EXPECT_EQ(g_hShmMap != nullptr, fault.map);
        EXPECT_EQ(os.Leaks(), fault.left);
        EXPECT_EQ(os.misuse, Strings());
        journal.ResetPlans();
    }
};

/* Each name of a call made in a run without failures must stand in the table of that run. */
static void ExpectNamed(const Strings& made, const std::vector<LifeFault>& table,
                        const std::set<std::string>& cannotFail)
{
    std::set<std::string> named = cannotFail;
    for (const LifeFault& fault : table) {
        for (const Plan& plan : fault.plans) {
            named.insert(plan.call);
        }
    }
    for (const std::string& name : made) {
        EXPECT_EQ(named.count(name), 1u) << name;
    }
}

/* ---- Creating ---- */

static const std::vector<LifeFault>& CreateTable()
{
    static const char NoMapping[] =
        "_DkpfShmCreateMapping:  CreateFileMapping(Global\\TNW_DKPF_SHM_INFO) failed. <W32Err=1450>";
    static const char NoView[] = "_DkpfShmCreateMapping:  MapViewOfFile(TNW_DKPF_SHM_INFO) failed. <W32Err=8>";
    static const char StepNotClosed[] = "_DkpfShmCreateMapping:  CloseHandle() failed. <W32Err=6>";
    static const Plan NoMappingPlan = { "CreateFileMappingA", 1, 1450 };
    static const Plan NoViewPlan = { "MapViewOfFile", 1, 8 };
    static const std::vector<LifeFault> table = {
        Refused("NoMemory", { NoBlockPlan }, NoMemory, { NoBlock }),
        Refused("NoDescriptor", { NoDescriptorPlan }, SyncFailed, { NoDescriptor }),
        Refused("NoDacl", { NoDaclPlan }, SyncFailed, { NoDacl }),
        Refused("NoLock", { WaitPlan }, LockFailed, { WaitRefused, NotLocked }),
        Refused("NoMapping", { NoMappingPlan }, MappingFailed, { NoMapping, CreateFailed1A }),
        Refused("NoView", { NoViewPlan }, ViewFailed, { NoView, CreateFailed1B }),
        Refused("NoViewAndMappingNotClosed", { NoViewPlan, ClosePlan }, ViewFailed,
                { NoView, StepNotClosed, CreateFailed1B }, { MappingLeft }),
        Refused("NotUnlocked", { ReleasePlan }, SyncFailed, { ReleaseRefused, NotUnlocked }, { MutexLeft }),
        Refused("NotUnlockedNorUnmapped", { ReleasePlan, UnmapPlan }, SyncFailed,
                { ReleaseRefused, NotUnlocked, NotUnmapped }, { MutexLeft, ViewLeft }),
        Refused("NotUnlockedNorClosed", { ReleasePlan, ClosePlan }, SyncFailed,
                { ReleaseRefused, NotUnlocked, NotClosed }, { MutexLeft, MappingLeft }),
        Refused("NotUnlockedNorUnmappedNorClosed", { ReleasePlan, UnmapPlan, ClosePlan }, SyncFailed,
                { ReleaseRefused, NotUnlocked, NotUnmapped, NotClosed }, { MutexLeft, MappingLeft, ViewLeft }),
        Refused("NoMappingAndNotUnlocked", { NoMappingPlan, ReleasePlan }, MappingFailed,
                { NoMapping, CreateFailed1A, ReleaseRefused, NotUnlocked }, { MutexLeft }),
        Refused("NoViewAndNotUnlocked", { NoViewPlan, ReleasePlan }, ViewFailed,
                { NoView, CreateFailed1B, ReleaseRefused, NotUnlocked }, { MutexLeft }),
        Attached("BlockNotTaken", { FreePlan }, { MappingLeft, ViewLeft, BlockLeft }),
    };
    return table;
}

class CreateRegionFaults : public RegionFaults {};

INSTANTIATE_TEST_SUITE_P(Calls, CreateRegionFaults, testing::ValuesIn(CreateTable()), StoryOf());

TEST_P(CreateRegionFaults, LeaveNothingBehind)
{
    Run([](DWORD* lpdwErr) { return _DkpfShmInitialize(TRUE, lpdwErr); });
}

TEST_P(CreateRegionFaults, TheNextCallSucceeds)
{
    Run([](DWORD* lpdwErr) { return _DkpfShmInitialize(TRUE, lpdwErr); });
    DWORD dwErr = NotSet;
    if (!GetParam().result) {
        EXPECT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
        EXPECT_EQ(dwErr, Success);
        EXPECT_EQ(g_dwShmInitCount, 1u);
        EXPECT_EQ(g_nPMProcessIDIdx, 0);
    }
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    ExpectDetached(0);
}

/* ---- Opening ---- */

/* Process 900 lives in row 1, so that the sweep makes its three calls; the claimed row is 2. */
static const std::vector<LifeFault>& OpenTable()
{
    static const char NoMapping[] =
        "_DkpfShmOpenMapping:  OpenFileMapping(Global\\TNW_DKPF_SHM_INFO) failed. <W32Err=5>";
    static const char NoView[] = "_DkpfShmOpenMapping:  MapViewOfFile(TNW_HDFUNC_SHM_COMMON) failed. <W32Err=8>";
    static const char StepNotClosed[] = "_DkpfShmOpenMapping:  CloseHandle() failed. <W32Err=6>";
    static const Plan NoMappingPlan = { "OpenFileMappingA", 1, 5 };
    static const Plan NoViewPlan = { "MapViewOfFile", 1, 8 };
    static const Plan CloseMappingPlan = { "CloseHandle", 2, 6 };  // the first is the sweep's
    static const std::vector<LifeFault> table = {
        Refused("NoMemory", { NoBlockPlan }, NoMemory, { NoBlock }),
        Refused("NoDescriptor", { NoDescriptorPlan }, SyncFailed, { NoDescriptor }),
        Refused("NoDacl", { NoDaclPlan }, SyncFailed, { NoDacl }),
        Refused("NoLock", { WaitPlan }, LockFailed, { WaitRefused, NotLocked }),
        Refused("NoMapping", { NoMappingPlan }, MappingFailed, { NoMapping, OpenFailed1A }),
        Refused("NoView", { NoViewPlan }, ViewFailed, { NoView, OpenFailed1B }),
        Refused("NoViewAndMappingNotClosed", { NoViewPlan, ClosePlan }, ViewFailed,
                { NoView, StepNotClosed, OpenFailed1B }, { MappingLeft }),
        Refused("NoMappingAndNotUnlocked", { NoMappingPlan, ReleasePlan }, MappingFailed,
                { NoMapping, OpenFailed1A, ReleaseRefused, NotUnlocked }, { MutexLeft }),
        Refused("NoViewAndNotUnlocked", { NoViewPlan, ReleasePlan }, ViewFailed,
                { NoView, OpenFailed1B, ReleaseRefused, NotUnlocked }, { MutexLeft }),
        // What the sweep meets is no failure and no line of level 1.
        Attached("SweepCannotOpen", { { "OpenProcess", 1, 1450 } }, { MappingLeft, ViewLeft }),
        Attached("SweepGetsNoExitCode", { { "GetExitCodeProcess", 1, 31 } }, { MappingLeft, ViewLeft }),
        Attached("SweepCannotClose", { ClosePlan }, { MappingLeft, "handle: process 900", ViewLeft }),
        Refused("NotUnlocked", { ReleasePlan }, SyncFailed, { ReleaseRefused, NotUnlocked }, { MutexLeft }),
        Refused("NotUnlockedNorUnmapped", { ReleasePlan, UnmapPlan }, SyncFailed,
                { ReleaseRefused, NotUnlocked, NotUnmapped }, { MutexLeft, ViewLeft }),
        Refused("NotUnlockedNorClosed", { ReleasePlan, CloseMappingPlan }, SyncFailed,
                { ReleaseRefused, NotUnlocked, NotClosed }, { MutexLeft, MappingLeft }),
        Attached("BlockNotTaken", { FreePlan }, { MappingLeft, ViewLeft, BlockLeft }),
    };
    return table;
}

class OpenRegionFaults : public RegionFaults {
protected:
    void SetUp() override
    {
        RegionFaults::SetUp();
        HoldRegion()->PMProcessID[1] = 900;
        os.Process(900, 259);
    }
};

INSTANTIATE_TEST_SUITE_P(Calls, OpenRegionFaults, testing::ValuesIn(OpenTable()), StoryOf());

TEST_P(OpenRegionFaults, LeaveNothingBehind)
{
    Run([](DWORD* lpdwErr) { return _DkpfShmInitialize(FALSE, lpdwErr); });
    EXPECT_EQ(HoldRegion()->PMProcessID[1], 900u) << "in doubt a row's owner lives";
}

TEST_P(OpenRegionFaults, TheNextCallSucceeds)
{
    Run([](DWORD* lpdwErr) { return _DkpfShmInitialize(FALSE, lpdwErr); });
    DWORD dwErr = NotSet;
    if (!GetParam().result) {
        EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
        EXPECT_EQ(dwErr, Success);
        EXPECT_EQ(g_dwShmInitCount, 1u);
    }
    EXPECT_EQ(HoldRegion()->PMProcessID[g_nPMProcessIDIdx], os.processId);
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    ExpectDetached(0);
}

/* ---- A full table ---- */

static const std::vector<LifeFault>& FullTable()
{
    static const char                   Full[] = "_DkpfShmInitialize:  PMProcessID Table has no empty !";
    static const std::vector<LifeFault> table = {
        Refused("NoRow", {}, TableFull, { Full }),
        Refused("NoRowAndNotUnlocked", { ReleasePlan }, TableFull, { Full, ReleaseRefused, NotUnlocked },
                { MutexLeft }),
        Refused("NoRowAndNotUnmapped", { UnmapPlan }, TableFull, { Full, NotUnmapped }, { ViewLeft }),
        Refused("NoRowAndNotClosed", { { "CloseHandle", 33, 6 } }, TableFull, { Full, NotClosed }, { MappingLeft }),
    };
    return table;
}

class FullTableFaults : public RegionFaults {};

INSTANTIATE_TEST_SUITE_P(Calls, FullTableFaults, testing::ValuesIn(FullTable()), StoryOf());

TEST_P(FullTableFaults, KeepTheirCodeAndTheTable)
{
    DKPF_SHM_INFO* region = HoldRegion();
    for (DWORD r = 1; r < 33; r++) {
        region->PMProcessID[r] = 900;
    }
    os.Process(900, 259);
    Run([](DWORD* lpdwErr) { return _DkpfShmInitialize(FALSE, lpdwErr); });
    EXPECT_EQ(log.Events(), Events({ 0xC00012C6 }));
    for (DWORD r = 1; r < 33; r++) {
        EXPECT_EQ(region->PMProcessID[r], 900u);
    }
}

/* ---- A further initialise ---- */

// Kept as it stands: any failure of a further call takes the view away, although the count says that it is there.
static const std::vector<LifeFault>& FurtherTable()
{
    static const std::vector<LifeFault> table = {
        { "NoMemory", { NoBlockPlan }, false, NoMemory, { NoBlock }, 1, false, false, {} },
        { "NoDescriptor", { NoDescriptorPlan }, false, SyncFailed, { NoDescriptor }, 1, false, false, {} },
        { "NoDacl", { NoDaclPlan }, false, SyncFailed, { NoDacl }, 1, false, false, {} },
        { "NoLock", { WaitPlan }, false, LockFailed, { WaitRefused, NotLocked }, 1, false, false, {} },
        { "NotUnlocked",
          { ReleasePlan },
          false,
          Already,
          { IsInitialized, ReleaseRefused, NotUnlocked },
          1,
          false,
          false,
          { MutexLeft } },
        { "NotUnlockedNorUnmapped",
          { ReleasePlan, UnmapPlan },
          false,
          Already,
          { IsInitialized, ReleaseRefused, NotUnlocked, NotUnmapped },
          1,
          false,
          false,
          { MutexLeft, ViewLeft } },
        { "NotUnlockedNorClosed",
          { ReleasePlan, ClosePlan },
          false,
          Already,
          { IsInitialized, ReleaseRefused, NotUnlocked, NotClosed },
          1,
          false,
          false,
          { MutexLeft, MappingLeft } },
        { "BlockNotTaken",
          { FreePlan },
          true,
          Already,
          { IsInitialized },
          2,
          true,
          true,
          { MappingLeft, ViewLeft, BlockLeft } },
    };
    return table;
}

class FurtherInitialiseFaults : public RegionFaults {
protected:
    void RunFurther(BOOL bCreate)
    {
        DWORD dwErr = NotSet;
        HoldRegion();
        ASSERT_TRUE(_DkpfShmInitialize(bCreate, &dwErr));
        Run([bCreate](DWORD* lpdwErr) { return _DkpfShmInitialize(bCreate, lpdwErr); });
    }
};

INSTANTIATE_TEST_SUITE_P(Calls, FurtherInitialiseFaults, testing::ValuesIn(FurtherTable()), StoryOf());

TEST_P(FurtherInitialiseFaults, TakeTheViewOfTheAgent)
{
    RunFurther(TRUE);
}

TEST_P(FurtherInitialiseFaults, TakeTheViewOfAReaderWhoseRowStays)
{
    RunFurther(FALSE);
    EXPECT_EQ(HoldRegion()->PMProcessID[1], os.processId);
    EXPECT_EQ(g_nPMProcessIDIdx, 1);
}

// Nobody crashes on the count without a view: accessors refuse, one more initialise only counts, the terminates count
// down.
TEST_P(FurtherInitialiseFaults, LeaveACountThatNobodyTrusts)
{
    RunFurther(TRUE);
    if (GetParam().result) {
        return;
    }
    DKPF_PARAM sample = {};
    DKPF_CONF  conf = {};
    DWORD      dwErr = NotSet, dwEnable = 0;
    EXPECT_FALSE(_DkpfShmGetPerf(&sample, &dwErr));
    EXPECT_EQ(dwErr, NoRegion);
    EXPECT_FALSE(_DkpfShmSetPerf(&sample, &dwErr));
    EXPECT_FALSE(_DkpfShmGetConf(0xFFFF, &conf, &dwErr));
    EXPECT_FALSE(_DkpfShmSetConf(0xFFFF, &conf, &dwErr));
    EXPECT_FALSE(_DkpfShmGetPerfenable(&dwEnable, &dwErr));
    EXPECT_FALSE(_DkpfShmSetPerfenable(1, &dwErr));
    EXPECT_EQ(dwErr, NoRegion);
    EXPECT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    EXPECT_EQ(dwErr, Already);
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    EXPECT_EQ(g_dwShmInitCount, 1u);
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    ExpectDetached(0);
    EXPECT_FALSE(_DkpfShmTerminate(&dwErr));
    EXPECT_EQ(dwErr, NoRegion);
    EXPECT_EQ(os.Leaks(), GetParam().left) << "nothing more than before";
    EXPECT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    EXPECT_EQ(dwErr, Success);
}

class RegionAfterFaults : public RegionTest {};

TEST_F(RegionAfterFaults, WithoutTheMutexAFurtherInitialiseTakesTheViewToo)
{
    DWORD dwErr = NotSet;
    MakeRegionMutex();
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    g_hShmMutex = nullptr;
    EXPECT_FALSE(_DkpfShmInitialize(TRUE, &dwErr));
    EXPECT_EQ(dwErr, NoRegion);
    ExpectDetached(1);
    ExpectNothingLeft();
}

// The sweep fails for a null pointer alone, which its one caller never hands over.
static BOOL FailSweep(void*, DWORD* lpdwErr)
{
    *lpdwErr = 0xB0000004;
    return FALSE;
}

TEST_F(RegionAfterFaults, AReaderWhoseSweepFailsTakesNoRowAndLetsGo)
{
    DWORD                dwErr = NotSet;
    DKPF_SHM_INFO* const region = HoldRegion();
    MakeRegionMutex();
    {
        const Detour detour(_DkpfShmCheckProcExist, FailSweep);
        EXPECT_FALSE(_DkpfShmInitialize(FALSE, &dwErr));
    }
    EXPECT_EQ(dwErr, 0xB0000004u);
    EXPECT_EQ(log.TextsOf("_DkpfShmInitialize"), Strings({ " _DkpfShmCheckProcExist() failed. errcode<0xb0000004>" }));
    EXPECT_EQ(region->PMProcessID[1], 0u);
    ExpectDetached(0);
    ExpectNothingLeft();
}

/* ---- Letting go ---- */

static const char LastNotLocked[] = "_DkpfShmTerminate:  _DkpfMutexLock() failed. errcode<0xb0000000>";
static const char LastNotUnlocked[] = "_DkpfShmTerminate:  _DkpfMutexUnlock() failed.";
static const char LastNotUnmapped[] = "_DkpfShmTerminate:  UnmapViewOfFile() failed. <W32Err=487>";
static const char LastNotClosed[] = "_DkpfShmTerminate:  CloseHandle() failed. <W32Err=6>";

static const std::vector<LifeFault>& LastTable()
{
    static const std::vector<LifeFault> table = {
        { "NoLock",
          { WaitPlan },
          false,
          LockFailed,
          { WaitRefused, LastNotLocked },
          1,
          true,
          true,
          { MappingLeft, ViewLeft } },
        { "NotUnmapped",
          { UnmapPlan },
          false,
          UnmapFailed,
          { LastNotUnmapped },
          1,
          true,
          true,
          { MappingLeft, ViewLeft } },
        { "NotClosed", { ClosePlan }, false, SyncFailed, { LastNotClosed }, 1, false, true, { MappingLeft } },
        Refused("NotUnlocked", { ReleasePlan }, SyncFailed, { ReleaseRefused, LastNotUnlocked }, { MutexLeft }),
        { "NotUnmappedNorUnlocked",
          { UnmapPlan, ReleasePlan },
          false,
          UnmapFailed,
          { LastNotUnmapped, ReleaseRefused, LastNotUnlocked },
          1,
          true,
          true,
          { MutexLeft, MappingLeft, ViewLeft } },
        { "NotClosedNorUnlocked",
          { ClosePlan, ReleasePlan },
          false,
          SyncFailed,
          { LastNotClosed, ReleaseRefused, LastNotUnlocked },
          1,
          false,
          true,
          { MutexLeft, MappingLeft } },
    };
    return table;
}

class LastTerminateFaults : public RegionFaults {
protected:
    bool Fails(const char* call) const
    {
        const auto& plans = GetParam().plans;
        return std::any_of(plans.begin(), plans.end(), [&](const Plan& plan) { return strcmp(plan.call, call) == 0; });
    }
};

INSTANTIATE_TEST_SUITE_P(Calls, LastTerminateFaults, testing::ValuesIn(LastTable()), StoryOf());

TEST_P(LastTerminateFaults, OfAReader)
{
    DWORD          dwErr = NotSet;
    DKPF_SHM_INFO* region = HoldRegion();
    ASSERT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    region->maxinstance[1][6].inst_sub[63].value = 5;
    Run([](DWORD* lpdwErr) { return _DkpfShmTerminate(lpdwErr); });

    // Only without the lock everything stays; otherwise the row was given back before anything could fail.
    bool given = !Fails("WaitForSingleObject");
    EXPECT_EQ(region->PMProcessID[1], given ? 0 : os.processId);
    EXPECT_EQ(region->maxinstance[1][6].inst_sub[63].value, given ? 0u : 5u);
    EXPECT_EQ(g_nPMProcessIDIdx, given ? 0 : 1);
    EXPECT_EQ(g_dwPMProcessID, given ? 0 : os.processId);
    EXPECT_EQ(journal.Number("CloseHandle"), given && !Fails("UnmapViewOfFile") ? 1u : 0u);
    EXPECT_EQ(journal.Number("ReleaseMutex"), given ? 1u : 0u) << "the unlock runs whatever failed before it";
}

// The next call does what is left and counts down.
TEST_P(LastTerminateFaults, TheNextCallEndsIt)
{
    for (BOOL bCreate : { TRUE, FALSE }) {
        DWORD dwErr = NotSet;
        HoldRegion();
        journal.ResetPlans();
        ASSERT_TRUE(_DkpfShmInitialize(bCreate, &dwErr));
        journal.ResetPlans();
        for (const Plan& plan : GetParam().plans) {
            os.Fail(plan.call, plan.nth, plan.error);
        }
        EXPECT_FALSE(_DkpfShmTerminate(&dwErr));
        bool ended = GetParam().count == 0;
        EXPECT_EQ(_DkpfShmTerminate(&dwErr), ended ? FALSE : TRUE);
        EXPECT_EQ(dwErr, ended ? NoRegion : Success);
        ExpectDetached(0);
    }
    EXPECT_EQ(os.misuse, Strings());
}

// A close that failed: the count stands without a view, and the accessors say so.
TEST_F(RegionAfterFaults, AfterAFailedCloseTheAccessorsRefuse)
{
    DWORD dwErr = NotSet, dwEnable = 0;
    MakeRegionMutex();
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    os.Fail("CloseHandle", 1, 6);
    EXPECT_FALSE(_DkpfShmTerminate(&dwErr));
    EXPECT_FALSE(_DkpfShmGetPerfenable(&dwEnable, &dwErr));
    EXPECT_EQ(dwErr, NoRegion);
    EXPECT_TRUE(log.Has(" Shm is not initialized.(1times). Skip."));
}

// An unmapping that failed: pointer, handle and count stand, so the accessors still work.
TEST_F(RegionAfterFaults, AfterAFailedUnmappingTheAccessorsStillWork)
{
    DWORD dwErr = NotSet, dwEnable = 0;
    MakeRegionMutex();
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    EXPECT_TRUE(_DkpfShmSetPerfenable(1, &dwErr));
    os.Fail("UnmapViewOfFile", 1, 487);
    EXPECT_FALSE(_DkpfShmTerminate(&dwErr));
    EXPECT_TRUE(_DkpfShmGetPerfenable(&dwEnable, &dwErr));
    EXPECT_EQ(dwEnable, 1u);
}

static const std::vector<LifeFault>& CountedTable()
{
    static const char NotLast[] = "_DkpfShmTerminate:  Shm is not yet last-termination.(2times). Skip.";
    static const std::vector<LifeFault> table = {
        { "NoLock",
          { WaitPlan },
          false,
          LockFailed,
          { WaitRefused, LastNotLocked },
          2,
          true,
          true,
          { MappingLeft, ViewLeft } },
        { "NotUnlocked",
          { ReleasePlan },
          false,
          SyncFailed,
          { NotLast, ReleaseRefused, LastNotUnlocked },
          1,
          true,
          true,
          { MutexLeft, MappingLeft, ViewLeft } },
    };
    return table;
}

class CountedTerminateFaults : public RegionFaults {};

INSTANTIATE_TEST_SUITE_P(Calls, CountedTerminateFaults, testing::ValuesIn(CountedTable()), StoryOf());

TEST_P(CountedTerminateFaults, LeaveTheView)
{
    DWORD dwErr = NotSet;
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    Run([](DWORD* lpdwErr) { return _DkpfShmTerminate(lpdwErr); });
}

static const std::vector<LifeFault>& UnknownTable()
{
    static const char                   NotInitialized[] = "_DkpfShmTerminate:  Shm is not initialized.(0times). Skip.";
    static const std::vector<LifeFault> table = {
        Refused("NoLock", { WaitPlan }, LockFailed, { WaitRefused, LastNotLocked }),
        Refused("NotUnlocked", { ReleasePlan }, NoRegion, { NotInitialized, ReleaseRefused, LastNotUnlocked },
                { MutexLeft }),
    };
    return table;
}

class UnknownTerminateFaults : public RegionFaults {};

INSTANTIATE_TEST_SUITE_P(Calls, UnknownTerminateFaults, testing::ValuesIn(UnknownTable()), StoryOf());

TEST_P(UnknownTerminateFaults, KeepTheFirstCode)
{
    Run([](DWORD* lpdwErr) { return _DkpfShmTerminate(lpdwErr); });
}

/* ---- The mapping steps alone ---- */

struct StepFault {
    const char*       story;
    bool              create;
    std::vector<Plan> plans;
    DWORD             code;
    Strings           errors;
    Strings           left;
};

class MappingStepFaults : public RegionTest, public testing::WithParamInterface<StepFault> {};

INSTANTIATE_TEST_SUITE_P(
    Calls, MappingStepFaults,
    testing::Values(
        StepFault{ "CreateNoMapping",
                   true,
                   { { "CreateFileMappingA", 1, 5 } },
                   MappingFailed,
                   { " CreateFileMapping(Global\\TNW_DKPF_SHM_INFO) failed. <W32Err=5>" },
                   {} },
        StepFault{ "CreateNoView",
                   true,
                   { { "MapViewOfFile", 1, 8 } },
                   ViewFailed,
                   { " MapViewOfFile(TNW_DKPF_SHM_INFO) failed. <W32Err=8>" },
                   {} },
        StepFault{ "CreateNoViewNotClosed",
                   true,
                   { { "MapViewOfFile", 1, 8 }, { "CloseHandle", 1, 6 } },
                   ViewFailed,
                   { " MapViewOfFile(TNW_DKPF_SHM_INFO) failed. <W32Err=8>", " CloseHandle() failed. <W32Err=6>" },
                   { MappingLeft } },
        StepFault{ "OpenNoMapping",
                   false,
                   { { "OpenFileMappingA", 1, 5 } },
                   MappingFailed,
                   { " OpenFileMapping(Global\\TNW_DKPF_SHM_INFO) failed. <W32Err=5>" },
                   {} },
        StepFault{ "OpenNoView",
                   false,
                   { { "MapViewOfFile", 1, 8 } },
                   ViewFailed,
                   { " MapViewOfFile(TNW_HDFUNC_SHM_COMMON) failed. <W32Err=8>" },
                   {} },
        StepFault{ "OpenNoViewNotClosed",
                   false,
                   { { "MapViewOfFile", 1, 8 }, { "CloseHandle", 1, 6 } },
                   ViewFailed,
                   { " MapViewOfFile(TNW_HDFUNC_SHM_COMMON) failed. <W32Err=8>", " CloseHandle() failed. <W32Err=6>" },
                   { MappingLeft } }),
    StoryOf());

TEST_P(MappingStepFaults, SetNeitherGlobal)
{
    Routine        T(GetParam().create ? "_DkpfShmCreateMapping" : "_DkpfShmOpenMapping");
    DKPF_SHM_INFO* region = HoldRegion();
    memset(static_cast<void*>(region), 0xEE, RegionSize);
    for (const Plan& plan : GetParam().plans) {
        os.Fail(plan.call, plan.nth, plan.error);
    }
    DWORD dwErr = NotSet;
    EXPECT_EQ(GetParam().create ? _DkpfShmCreateMapping(nullptr, &dwErr) : _DkpfShmOpenMapping(&dwErr), FALSE);
    EXPECT_EQ(dwErr, GetParam().code);
    Strings expected = { T(8, "ENTER : ") };
    for (const std::string& text : GetParam().errors) {
        expected.push_back(T(1, text));
    }
    expected.push_back(T(8, Exit(false, GetParam().code)));
    EXPECT_EQ(TraceStory(), expected);
    ExpectDetached(0);
    EXPECT_EQ(os.Leaks(), GetParam().left);
    EXPECT_EQ(Bytes(Raw(region), Raw(region) + RegionSize), Bytes(RegionSize, 0xEE))
        << "a failed creator wipes nothing";
}

/* ---- The tables are whole ---- */

class RegionFaultTables : public RegionTest {
protected:
    void SetUp() override
    {
        RegionTest::SetUp();
        MakeRegionMutex();
        HoldRegion()->PMProcessID[1] = 900;
        os.Process(900, 259);
    }
    Strings Made(const std::function<BOOL(DWORD*)>& call)
    {
        DWORD dwErr = NotSet;
        StartStory();
        EXPECT_TRUE(call(&dwErr));
        return journal.Names();
    }
};

TEST_F(RegionFaultTables, OfCreatingNameEveryCall)
{
    ExpectNamed(Made([](DWORD* lpdwErr) { return _DkpfShmInitialize(TRUE, lpdwErr); }), CreateTable(), {});
    ExpectNamed(Made([](DWORD* lpdwErr) { return _DkpfShmInitialize(TRUE, lpdwErr); }), FurtherTable(), {});
    ExpectNamed(Made([](DWORD* lpdwErr) { return _DkpfShmTerminate(lpdwErr); }), CountedTable(), {});
    ExpectNamed(Made([](DWORD* lpdwErr) { return _DkpfShmTerminate(lpdwErr); }), LastTable(), {});
}

TEST_F(RegionFaultTables, OfOpeningNameEveryCall)
{
    ExpectNamed(Made([](DWORD* lpdwErr) { return _DkpfShmInitialize(FALSE, lpdwErr); }), OpenTable(),
                { "GetCurrentProcessId" });
    ExpectNamed(Made([](DWORD* lpdwErr) { return _DkpfShmTerminate(lpdwErr); }), LastTable(), {});
}
