/*
 * Each call that open and collect depend on fails once: answer, line and code, and no memory, key or lock left behind.
 */
#include <algorithm>

#include "support/perfmon_fixture.h"

class PerfmonFault : public PerfmonTest {
protected:
    void ExpectClosed()
    {
        EXPECT_EQ(g_dwPfmOpenCount, 0u);
        EXPECT_EQ(g_dwInitCount, 1u) << "the attachment stays";
        EXPECT_EQ(region->PMProcessID[1], 4711u);
        EXPECT_EQ(MemoryAndKeysHeld(), Strings());
        EXPECT_EQ(os.misuse, Strings());
        EXPECT_EQ(journal.Number("UnmapViewOfFile"), 0u);
    }
    /* The next open works, and the close after it gives its own attachment back. */
    void ExpectWorksAgain()
    {
        journal.ResetPlans();
        EXPECT_EQ(Open(), 0u);
        EXPECT_EQ(g_dwPfmOpenCount, 1u);
        EXPECT_EQ(MemoryAndKeysHeld().size(), 5u);
        DkpfCloseForPerfmon();
        EXPECT_EQ(MemoryAndKeysHeld(), Strings());
    }
};

/* ---- Open -------------------------------------------------------------------------------------------------------- */

struct OpenFault {
    const char* name;
    const char* call;     // the call that fails,
    const char* routine;  // counted from the first line of this routine: 1 = the next one
    unsigned    nth;
    DWORD       error;
    DWORD       answer;
    const char* line;
    const char* code;
    Strings     freed;  // the provider's own buffers, in order
};

static void PrintTo(const OpenFault& fault, std::ostream* out)
{
    *out << fault.name;
}

class PerfmonOpenFault : public PerfmonFault, public testing::WithParamInterface<OpenFault> {};

static const OpenFault OpenFaults[] = {
    { "LockForPerfenable",
      "WaitForSingleObject",
      "_DkpfShmGetPerfenable",
      1,
      6,
      21,
      " _DkpfShmGetPerfEnable() failed. errcode<0xb0000006>",
      "0xb0000006",
      {} },
    { "UnlockAfterPerfenable",
      "ReleaseMutex",
      "_DkpfShmGetPerfenable",
      1,
      288,
      21,
      " _DkpfShmGetPerfEnable() failed. errcode<0xb0000010>",
      "0xb0000010",
      {} },
    { "ServiceKey",
      "RegOpenKeyExA",
      "_DkpfPfmGetObjectIndexFromReg",
      1,
      5,
      1011,
      " _DkpfPfmGetObjectIndexFromReg() failed. errcode<0xb0000012>",
      "0xb0000012",
      {} },
    { "FirstCounter",
      "RegQueryValueExA",
      "_DkpfPfmGetObjectIndexFromReg",
      1,
      5,
      1012,
      " _DkpfPfmGetObjectIndexFromReg() failed. errcode<0xb0000013>",
      "0xb0000013",
      {} },
    { "FirstHelp",
      "RegQueryValueExA",
      "_DkpfPfmGetObjectIndexFromReg",
      2,
      5,
      1012,
      " _DkpfPfmGetObjectIndexFromReg() failed. errcode<0xb0000013>",
      "0xb0000013",
      {} },
    { "PreviousSample",
      "GlobalAlloc",
      "DkpfOpenForPerfmon",
      1,
      8,
      14,
      " _MALLOC(size=10168lbyte) failed.",
      "0xb000000b",
      {} },
    { "CurrentSample",
      "GlobalAlloc",
      "DkpfOpenForPerfmon",
      2,
      8,
      14,
      " _MALLOC(size=10168lbyte) failed.",
      "0xb000000b",
      { "10168 bytes" } },
    { "LockForTheSample",
      "WaitForSingleObject",
      "_DkpfShmGetPerf",
      1,
      6,
      1,
      " _DkpfShmGetPerf() failed. errcode<0xb0000006>",
      "0xb0000006",
      { "10168 bytes", "10168 bytes" } },
    { "UnlockAfterTheSample",
      "ReleaseMutex",
      "_DkpfShmGetPerf",
      1,
      288,
      1,
      " _DkpfShmGetPerf() failed. errcode<0xb0000010>",
      "0xb0000010",
      { "10168 bytes", "10168 bytes" } },
    { "DisplayRecord",
      "GlobalAlloc",
      "DkpfOpenForPerfmon",
      3,
      8,
      14,
      " _MALLOC(size=8840lbyte) failed.",
      "0xb000000b",
      { "10168 bytes", "10168 bytes" } },
    { "Definitions",
      "GlobalAlloc",
      "DkpfOpenForPerfmon",
      4,
      8,
      14,
      " _MALLOC(size=744lbyte) failed.",
      "0xb000000b",
      { "8840 bytes", "10168 bytes", "10168 bytes" } },
    { "RawTotalRecord",
      "GlobalAlloc",
      "DkpfOpenForPerfmon",
      5,
      8,
      14,
      " _MALLOC(size=152lbyte) failed.",
      "0xb000000b",
      { "744 bytes", "8840 bytes", "10168 bytes", "10168 bytes" } },
};
INSTANTIATE_TEST_SUITE_P(Of, PerfmonOpenFault, testing::ValuesIn(OpenFaults),
                         [](const auto& fault) { return std::string(fault.param.name); });

TEST_P(PerfmonOpenFault, IsAnsweredTracedAndUndone)
{
    const OpenFault& fault = GetParam();
    os.Fail(fault.call, Rehearse(fault.call, fault.routine) + fault.nth, fault.error);
    EXPECT_EQ(Open(), fault.answer);
    EXPECT_EQ(OpenLines(),
              Strings({ "diskperf_trace 8 ENTER :", std::string("diskperf_trace 1 ") + fault.line,
                        "diskperf_trace 8 EXIT<" + std::to_string(fault.answer) + "> err<" + fault.code + ">" }));
    ExpectClosed();
    Strings freed = Freed();
    freed.erase(std::remove_if(freed.begin(), freed.end(),
                               [](const std::string& size) {
                                   return size != "10168 bytes" && size != "8840 bytes" && size != "744 bytes" &&
                                          size != "152 bytes";
                               }),
                freed.end());
    EXPECT_EQ(freed, fault.freed);
    if (std::string(fault.call) != "ReleaseMutex") {
        ExpectWorksAgain();
    }
}

TEST_F(PerfmonFault, EveryCallOfTheInitialisationThatFailsIsNotReadyAndUndone)
{
    // Those that a consumer's start cannot do without; the life cycle's own tests look at each.
    const struct {
        const char* call;
        unsigned    nth;
        const char* code;
    } faults[] = {
        { "WaitForSingleObject", 1, "0xb0000006" },  // the lock of the life cycle
        { "log_init", 1, "0xb0000028" },
        { "TnwLoadStringTable", 1, "0xb0000020" },
        { "CreateMutexA", 1, "0xb0000005" },
        { "CreateMutexA", 2, "0xb0000005" },
        { "OpenFileMappingA", 1, "0xb000001a" },
        { "MapViewOfFile", 1, "0xb000001b" },
    };
    for (const auto& fault : faults) {
        journal.ResetPlans();
        log.ClearLines();
        journal.Fail(fault.call, fault.nth, 5);
        EXPECT_EQ(Open(), 21u) << fault.call;
        EXPECT_EQ(OpenLines(), Strings({ std::string(" 8 EXIT<21> err<") + fault.code + ">" })) << fault.call;
        EXPECT_EQ(g_dwPfmOpenCount, 0u);
        EXPECT_EQ(g_dwInitCount, 0u);
        ExpectNothingLeft();
    }
    journal.ResetPlans();
    EXPECT_EQ(Open(), 0u);
    DkpfCloseForPerfmon();
    ExpectNothingLeft();
}

TEST_F(PerfmonFault, AFailedOpenFreesNothingTwice)
{
    Erase();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(Open(), 1u);
    }
    EXPECT_EQ(MemoryAndKeysHeld(), Strings());
    EXPECT_EQ(os.misuse, Strings());
    EXPECT_EQ(g_dwInitCount, 3u) << "each failed open keeps its attachment";
    EXPECT_EQ(region->PMProcessID[2], 0u);
    EXPECT_EQ(DkpfCloseForPerfmon(), 0u) << "a close that no open belongs to takes none of them back";
    EXPECT_EQ(g_dwInitCount, 3u);
}

/* ---- Collect ----------------------------------------------------------------------------------------------------- */

struct CollectFault {
    const char* name;
    const char* call;
    unsigned    nth;  // from the start of collect
    DWORD       error;
    const char* line;
    const char* code;
};

static void PrintTo(const CollectFault& fault, std::ostream* out)
{
    *out << fault.name;
}

class PerfmonCollectFault : public PerfmonFault, public testing::WithParamInterface<CollectFault> {
protected:
    GuardedBuffer buffer{ BlockSize };
    void*         data = nullptr;
    DWORD         size = 0, objects = 99;

    DWORD Collect()
    {
        WCHAR query[] = L"2000";
        data = buffer.Data();
        size = BlockSize;
        return DkpfCollectForPerfmon(query, &data, &size, &objects);
    }
};

static const CollectFault CollectFaults[] = {
    { "LockForPerfenable", "WaitForSingleObject", 1, 6, " _DkpfShmGetPerfEnable() failed. errcode<0xb0000006>",
      "0xb0000006" },
    { "UnlockAfterPerfenable", "ReleaseMutex", 1, 288, " _DkpfShmGetPerfEnable() failed. errcode<0xb0000010>",
      "0xb0000010" },
    { "FirstWordOfTheQuery", "GlobalAlloc", 1, 8, " _DkpfPfmGetPMQueryType() failed. QueryType<4>", "0xb0000000" },
    { "LockForTheSample", "WaitForSingleObject", 2, 6, " _DkpfShmGetPerf() failed. errcode<0xb0000006>", "0xb0000006" },
    { "UnlockAfterTheSample", "ReleaseMutex", 2, 288, " _DkpfShmGetPerf() failed. errcode<0xb0000010>", "0xb0000010" },
};
INSTANTIATE_TEST_SUITE_P(Of, PerfmonCollectFault, testing::ValuesIn(CollectFaults),
                         [](const auto& fault) { return std::string(fault.param.name); });

TEST_P(PerfmonCollectFault, IsNoDataForTheCallerAndTheNextCollectCoversTheWholeInterval)
{
    const CollectFault& fault = GetParam();
    Opened();
    os.Advance(1000);
    Store(130);
    os.Fail(fault.call, fault.nth, fault.error);
    EXPECT_EQ(Collect(), 0u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(objects, 0u);
    EXPECT_EQ(data, buffer.Data());
    EXPECT_EQ(CollectLines(), Strings({ "diskperf_trace 8 ENTER :", std::string("diskperf_trace 1 ") + fault.line,
                                        std::string("diskperf_trace 8 EXIT<0> err<") + fault.code + ">" }));
    EXPECT_EQ(MemoryAndKeysHeld().size(), 5u) << "the provider's own buffers";
    EXPECT_EQ(os.misuse, Strings());

    journal.ResetPlans();
    Store(150);
    EXPECT_EQ(Collect(), 0u);
    EXPECT_EQ(size, 15824u);
    ULONGLONG written = 0;
    memcpy(&written, buffer.Data() + HeaderSize + InstanceSize + 96 + 8 * 11, sizeof written);
    EXPECT_EQ(written, 50u);
}

class PerfmonNameFault : public PerfmonFault, public testing::WithParamInterface<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Nth, PerfmonNameFault, testing::Values(1u, 2u, 64u, 65u));

TEST_P(PerfmonNameFault, ANameThatCannotBeConvertedCostsThatNameAlone)
{
    WCHAR         query[] = L"Global";
    GuardedBuffer buffer(BlockSize);
    void*         data = buffer.Data();
    DWORD         size = BlockSize, objects = 0;
    Opened();
    os.Fail("MultiByteToWideChar", GetParam(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(DkpfCollectForPerfmon(query, &data, &size, &objects), 0u);
    EXPECT_EQ(size, 15824u);
    EXPECT_EQ(objects, 1u);
    for (unsigned i = 0; i < 65; i++) {
        DWORD length = 0;
        memcpy(&length, buffer.Data() + HeaderSize + InstanceSize * i + 20, sizeof length);
        EXPECT_EQ(length, i == GetParam() - 1 ? 0u : i == 0 ? 14u : i < 10 ? 10u : 12u) << i;
    }
    EXPECT_EQ(log.Errors(), Strings());
}

/* ---- Close ------------------------------------------------------------------------------------------------------- */

TEST_F(PerfmonFault, ADetachThatFailsStillFreesTheBuffersAndAnswersZero)
{
    Opened();
    os.Fail("UnmapViewOfFile", 1, 5);
    EXPECT_EQ(DkpfCloseForPerfmon(), 0u);
    EXPECT_EQ(g_dwPfmOpenCount, 0u);
    EXPECT_EQ(Freed(), Strings({ "152 bytes", "744 bytes", "8840 bytes", "10168 bytes", "10168 bytes" }));
    EXPECT_EQ(MemoryAndKeysHeld(), Strings());
}
