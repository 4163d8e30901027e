/*
 * Every failing call of start, reload and stop, and the ends of the worker threads.
 *
 * Each row of a table is one failing call: which one, what the caller gets, which error lines it leaves, and every call
 * that follows it until the routine returns. The order of that clean-up is the contract.
 */
#include "support/detour.h"
#include "unit/lifecycle_fixture.h"

#include <cstring>

/* ---- Rows ---- */

/* The configuration library and waits may answer any value; all other calls fail with an error or a status. */
struct Failure {
    std::string story;
    std::string call;
    unsigned    nth;
    DWORD       error;
    DWORD       code;
    Strings     lines;  // errors and events of all logs
    Strings     after;  // calls behind the failing one
};

static std::ostream& operator<<(std::ostream& out, const Failure& failure)
{
    return out << failure.story;
}

static std::string Story(const testing::TestParamInfo<Failure>& row)
{
    return row.param.story;
}

static const char Info[] = "mutex Global\\TNW_DKPF_MUTEX_INFO";
static const char Reload1[] = "Global\\TNW_DKPF_EVENT_RELOAD1";
static const char Reload2[] = "Global\\TNW_DKPF_EVENT_RELOAD2";

static std::string Close(const std::string& object)
{
    return "CloseHandle(" + object + ")";
}

/* An error line of the module log. */
static std::string Line(const std::string& routine, const std::string& text)
{
    return "diskperf 1 " + routine + ": " + text;
}

static std::string OfInitialize(const std::string& text)
{
    return Line("DkpfInitialize", text);
}

/* Unnamed objects in the order of their creation: #1 the mutex of the warning events, #2 the terminate event, #3 the
 * collect thread. What a failed start gives back, from the last step on: */
static const Strings Unlock = { "ReleaseMutex(mutex DllInit)" };
static const Strings EndLogs = { "log_term(\"diskperf_conf\")", "log_term(\"diskperf_trace\")",
                                 "log_term(\"diskperf\")" };
static const Strings FromStrings = Unlock + EndLogs;
static const Strings FromInfoMutex = Unlock + Strings({ Close("mutex #1") }) + EndLogs;
static const Strings FromReload1 = Strings({ Close(Info) }) + FromInfoMutex;
static const Strings FromReload2 = Strings({ Close(std::string("event ") + Reload1) }) + FromReload1;
static const Strings FromTerminate =
    Strings({ Close(std::string("event ") + Reload1), Close(std::string("event ") + Reload2) }) + FromReload1;
static const Strings FromConfig =
    Strings({ Close(std::string("event ") + Reload1), Close(std::string("event ") + Reload2), Close("event #2") }) +
    FromReload1;
static const Strings LeaveRegion = {
    "WaitForSingleObject(mutex Global\\TNW_DKPF_MUTEX_INFO, INFINITE)",
    "UnmapViewOfFile(Global\\TNW_DKPF_SHM_INFO)",
    "CloseHandle(mapping Global\\TNW_DKPF_SHM_INFO)",
    "ReleaseMutex(mutex Global\\TNW_DKPF_MUTEX_INFO)",
};
static const Strings FromPublish = LeaveRegion + FromConfig;
static const Strings FromWriteThread = Strings({ "SetEvent(event #2)", "GetTickCount()",
                                                 "WaitForSingleObject(thread #3, 1000)", "CloseHandle(thread #3)" }) +
                                       FromPublish;

static const Strings Freed = { "GlobalFree(40 bytes)" };
static const Strings ReleaseRegion = { "ReleaseMutex(mutex Global\\TNW_DKPF_MUTEX_INFO)" };

static const Strings Keys = {
    "/root/diskperf/parameters/perfenable",
    "/root/diskperf/parameters/perflogsave",
    "/root/diskperf/parameters/perflogsize",
    "/root/diskperf/parameters/perflogrotation",
    "/root/diskperf/parameters/collectinterval",
    "/root/diskperf/parameters/writeinterval",
    "/root/diskperf/parameters/collectparam",
    "/root/diskperf/log/level",
    "/root/diskperf/log/size",
};

/* Failures of one read of the configuration. nth: the first or the second one of the start; log: where its lines go. */
static std::vector<Failure> ConfigRows(unsigned nth, const std::string& story, const std::string& log, DWORD initCode,
                                       DWORD loadCode, const Strings& initLines, const Strings& loadLines,
                                       const Strings& after)
{
    auto          line = [&](const std::string& text) { return Strings({ log + " 1 _DkpfGetConfig: " + text }); };
    const Strings term = { "xmllib_term()" };
    const Strings policy = Strings({ "xmllib_unload_policy(diskperf)" }) + term;
    const Strings config = Strings({ "xmllib_unload_config()" }) + policy;
    std::vector<Failure> rows = {
        { story + "LibraryInit", "xmllib_init", nth, 3, initCode,
          line(" xmllib_init(DISKPERF) failed. (ErrCode=0x3)") + initLines, after },
        { story + "Policy", "xmllib_load_policy", nth, 6, loadCode,
          line(" xmllib_load_policy() failed. (ErrCode=0x6)") + loadLines, term + after },
        { story + "Configuration", "xmllib_load_config", nth, 5, loadCode,
          line(" xmllib_load_config() failed. (ErrCode=0x5)") + loadLines, policy + after },
    };
    for (unsigned i = 0; i < 9; i++) {
        rows.push_back({ story + "Value" + std::to_string(i + 1), "xmllib_get_value", 9 * (nth - 1) + 1 + i, 9,
                         loadCode, line(" xmllib_get_value(" + Keys[i] + ") failed. (ErrCode=0x9)") + loadLines,
                         config + after });
    }
    return rows;
}

/* What producer and consumer have in common: everything up to the info mutex. */
static std::vector<Failure> CommonRows()
{
    // No log is open yet: lines go nowhere, but are handed over.
    const Strings        logInit = { "- 1 DkpfInitialize:  _DkpfLogInit() failed." };
    std::vector<Failure> rows = ConfigRows(1, "First", "-", 0xB0000028, 0xB0000028, logInit, logInit, Unlock);
    auto                 strings = [](const std::string& text, const std::string& code) {
        return Strings({ Line("_DkpfLoadStrings", text), OfInitialize(" _DkpfLoadStrings() failed.<" + code + ">") });
    };
    auto infoMutex = [](const std::string& text, DWORD error) {
        Strings lines;
        if (!text.empty()) {
            lines.push_back(Line("_DkpfCreateMutex", text));
        }
        lines.push_back(OfInitialize(
            "_DkpfCreateMutex(Global\\TNW_DKPF_MUTEX_INFO) failed. <W32Err=" + std::to_string(error) + ">"));
        return lines;
    };
    const std::vector<Failure> rest = {
        { "DllInitLock",
          "WaitForSingleObject",
          1,
          6,
          0xB0000006,
          { "- 1 _DkpfMutexLock:  WaitForSingleObject(DllInit) failed.<W32Err=6>",
            "- 1 DkpfInitialize: _DkpfMutexLock(DllInit) failed." },
          {} },
        { "ModuleLog", "log_init", 1, 2, 0xB0000028, logInit, Unlock },
        { "TraceLog", "log_init", 2, 2, 0xB0000028,
          Strings({ Line("_DkpfLogInit", "log_init(diskperf_trace) failed.<2>") }) + logInit,
          Strings({ "log_term(\"diskperf\")" }) + Unlock },
        { "ConfigurationLog", "log_init", 3, 2, 0xB0000028,
          Strings({ Line("_DkpfLogInit", "log_init(diskperf_conf) failed.<2>") }) + logInit,
          Strings({ "log_term(\"diskperf_trace\")", "log_term(\"diskperf\")" }) + Unlock },
        { "StringTable", "TnwLoadStringTable", 1, 10, 0xB0000020,
          strings(" TnwLoadStringTable() failed.(10)", "0xb0000020"), FromStrings },
        { "FirstString", "TnwFormatMessage", 1, 7, 0xB0000021,
          strings(" TnwFormatMessage(0) failed.(7), break.", "0xb0000021"),
          Strings({ "TnwFreeStringTable()" }) + FromStrings },
        { "LastString", "TnwFormatMessage", 41, 7, 0xB0000021,
          strings(" TnwFormatMessage(40) failed.(7), break.", "0xb0000021"),
          Strings({ "TnwFreeStringTable()" }) + FromStrings },
        { "WarningMutex",
          "CreateMutexA",
          1,
          8,
          0xB0000005,
          { Line("_DkpfInitWarnEventLog", "_DkpfCreateMutex(NULL) failed. <W32Err=8>"),
            OfInitialize(" _DkpfInitWarnEventLog() failed.<0xb0000005>") },
          FromStrings },
        { "InfoMutexMemory", "GlobalAlloc", 1, 8, 0xB0000005,
          infoMutex("_MALLOC( SECURITY_DESCRIPTOR ) failed.(W32Err=8)", 8), FromInfoMutex },
        { "InfoMutexDescriptor", "InitializeSecurityDescriptor", 1, 1305, 0xB0000005,
          infoMutex("InitializeSecurityDescriptor() failed.(W32Err=1305)", 1305), Freed + FromInfoMutex },
        { "InfoMutexDacl", "SetSecurityDescriptorDacl", 1, 1338, 0xB0000005,
          infoMutex("SetSecurityDescriptorDacl() failed.(W32Err=1338)", 1338), Freed + FromInfoMutex },
        { "InfoMutex", "CreateMutexA", 2, 5, 0xB0000005, infoMutex("", 5), Freed + FromInfoMutex },
    };
    rows.insert(rows.end(), rest.begin(), rest.end());
    return rows;
}

/* A reload event: its descriptor is the nth of its kind, the event itself the nth - 1. */
static std::vector<Failure> EventRows(const std::string& story, unsigned nth, const char* name, const Strings& after)
{
    auto lines = [&](const std::string& text, DWORD error) {
        Strings result;
        if (!text.empty()) {
            result.push_back(Line("_DkpfCreateEvent", text));
        }
        result.push_back(
            OfInitialize(std::string("_DkpfCreateEvent(") + name + ") failed. <W32Err=" + std::to_string(error) + ">"));
        return result;
    };
    return {
        { story + "Memory", "GlobalAlloc", nth, 8, 0xB0000008,
          lines("_MALLOC( SECURITY_DESCRIPTOR ) failed.(W32Err=8)", 8), after },
        { story + "Descriptor", "InitializeSecurityDescriptor", nth, 1305, 0xB0000008,
          lines("InitializeSecurityDescriptor() failed.(W32Err=1305)", 1305), Freed + after },
        { story + "Dacl", "SetSecurityDescriptorDacl", nth, 1338, 0xB0000008,
          lines("SetSecurityDescriptorDacl() failed.(W32Err=1338)", 1338), Freed + after },
        { story, "CreateEventA", nth - 1, 5, 0xB0000008, lines("", 5), Freed + after },
    };
}

/* Attaching to the region. nth: the descriptor's number; the second wait and the first release are the region's. */
static std::vector<Failure> RegionRows(unsigned nth, const std::string& create, const Strings& mapping,
                                       const std::string& mapCall, const Strings& mapView, const Strings& after)
{
    auto lines = [&](const Strings& own, const std::string& code) {
        return own + Strings({ OfInitialize("_DkpfShmInitialize(" + create + ") failed. <" + code + ">") });
    };
    auto shm = [](const std::string& text) { return Strings({ Line("_DkpfShmInitialize", text) }); };
    return {
        { "RegionMemory", "GlobalAlloc", nth, 8, 0xB000000B, lines(shm(" _MALLOC(40byte) failed."), "0xb000000b"),
          after },
        { "RegionDescriptor", "InitializeSecurityDescriptor", nth, 1305, 0xB0000010,
          lines(shm(" InitializeSecurityDescriptor() failed. <W32Err=1305>"), "0xb0000010"), Freed + after },
        { "RegionDacl", "SetSecurityDescriptorDacl", nth, 1338, 0xB0000010,
          lines(shm(" SetSecurityDescriptorDacl() failed. <W32Err=1338>"), "0xb0000010"), Freed + after },
        { "RegionLock", "WaitForSingleObject", 2, 6, 0xB0000006,
          lines(Strings({ Line("_DkpfMutexLock", " WaitForSingleObject(INFO) failed.<W32Err=6>") }) +
                    shm(" _DkpfMutexLock() failed. errcode<0xb0000000>"),
                "0xb0000006"),
          Freed + after },
        { "RegionMapping", mapCall, 1, 2, 0xB000001A, lines(mapping, "0xb000001a"), ReleaseRegion + Freed + after },
        { "RegionView", "MapViewOfFile", 1, 8, 0xB000001B, lines(mapView, "0xb000001b"),
          Strings({ Close("mapping Global\\TNW_DKPF_SHM_INFO") }) + ReleaseRegion + Freed + after },
        { "RegionUnlock", "ReleaseMutex", 1, 288, 0xB0000010,
          lines(Strings({ Line("_DkpfMutexUnlock", " ReleaseMutex(INFO) failed.(W32Err=288)") }) +
                    shm(" _DkpfMutexUnlock() failed."),
                "0xb0000010"),
          Strings({ "UnmapViewOfFile(Global\\TNW_DKPF_SHM_INFO)", Close("mapping Global\\TNW_DKPF_SHM_INFO") }) +
              Freed + after },
    };
}

static std::vector<Failure> ProducerRows()
{
    std::vector<Failure> rows = CommonRows();
    auto add = [&](const std::vector<Failure>& more) { rows.insert(rows.end(), more.begin(), more.end()); };
    auto publish = [](const Strings& own, const std::string& code) {
        return own + Strings({ OfInitialize("_DkpfShmSetConf() failed. <" + code + ">") });
    };

    add(EventRows("ReloadEvent1", 2, Reload1, FromReload1));
    add(EventRows("ReloadEvent2", 3, Reload2, FromReload2));
    add({ { "TerminateEvent",
            "CreateEventA",
            3,
            8,
            0xB0000008,
            { OfInitialize("_DkpfCreateEvent() failed. <W32Err=8>") },
            FromTerminate } });
    add(ConfigRows(2, "Second", "diskperf", 0xB000000D, 0xB000000E,
                   { OfInitialize("_DkpfGetConfig() failed. <0xb000000d>") },
                   { OfInitialize("_DkpfGetConfig() failed. <0xb000000e>") }, FromConfig));
    add(RegionRows(4, "TRUE",
                   { Line("_DkpfShmCreateMapping", " CreateFileMapping(Global\\TNW_DKPF_SHM_INFO) failed. <W32Err=2>"),
                     Line("_DkpfShmInitialize", " _DkpfShmCreateMapping() failed. errcode<0xb000001a>") },
                   "CreateFileMappingA",
                   { Line("_DkpfShmCreateMapping", " MapViewOfFile(TNW_DKPF_SHM_INFO) failed. <W32Err=8>"),
                     Line("_DkpfShmInitialize", " _DkpfShmCreateMapping() failed. errcode<0xb000001b>") },
                   FromConfig));
    add({
        { "PublishLock", "WaitForSingleObject", 3, 6, 0xB0000006,
          publish({ Line("_DkpfMutexLock", " WaitForSingleObject(INFO) failed.<W32Err=6>"),
                    Line("_DkpfShmSetConf", " _DkpfMutexLock() failed. errcode<0xb0000000>") },
                  "0xb0000006"),
          FromPublish },
        { "PublishUnlock", "ReleaseMutex", 2, 288, 0xB0000010,
          publish({ Line("_DkpfMutexUnlock", " ReleaseMutex(INFO) failed.(W32Err=288)"),
                    Line("_DkpfShmSetConf", " _DkpfMutexUnlock() failed.") },
                  "0xb0000010"),
          FromPublish },
        { "CollectThread",
          "_beginthreadex",
          1,
          11,
          0xB0000009,
          { OfInitialize(" _beginthreadex(_DkpfPerfCollectThread) failed, 11") },
          FromPublish },
        { "WriteThread",
          "_beginthreadex",
          2,
          12,
          0xB0000009,
          { OfInitialize(" _beginthreadex(_DkpfPlogWriteThread) failed, 12") },
          FromWriteThread },
    });
    return rows;
}

static std::vector<Failure> ConsumerRows()
{
    std::vector<Failure> rows = CommonRows();
    const auto           region =
        RegionRows(2, "FALSE",
                   { Line("_DkpfShmOpenMapping", " OpenFileMapping(Global\\TNW_DKPF_SHM_INFO) failed. <W32Err=2>"),
                     Line("_DkpfShmInitialize", " _DkpfShmOpenMapping() failed. errcode<0xb000001a>") },
                   "OpenFileMappingA",
                   { Line("_DkpfShmOpenMapping", " MapViewOfFile(TNW_HDFUNC_SHM_COMMON) failed. <W32Err=8>"),
                     Line("_DkpfShmInitialize", " _DkpfShmOpenMapping() failed. errcode<0xb000001b>") },
                   FromReload1);
    rows.insert(rows.end(), region.begin(), region.end());
    return rows;
}

/* ---- Walking the tables ---- */

class FaultTest : public LifecycleTest {
protected:
    void Plan(const std::string& call, unsigned nth, DWORD error)
    {
        if (call.rfind("xmllib_", 0) == 0) {
            journal.Return(call, nth, error);
        } else {
            journal.Fail(call, nth, error);
        }
    }

    /* Lines with the two mutexes that have handles in their texts under their names. */
    Strings NamedLines(HANDLE info) const
    {
        Strings result;
        for (std::string line : Lines(ErrorAndEventLines)) {
            for (const auto& [handle, name] : { std::pair{ initMutex, "DllInit" }, std::pair{ info, "INFO" } }) {
                size_t at = handle == nullptr ? std::string::npos : line.find(Pointer(handle));
                if (at != std::string::npos) {
                    line.replace(at, Pointer(handle).size(), name);
                }
            }
            result.push_back(line);
        }
        return result;
    }

    /* The handle that the library got for the info mutex, from the record of its creation. */
    HANDLE InfoHandle() const
    {
        HANDLE handle = nullptr;
        for (const Call& call : journal.Of("CreateMutexA")) {
            if (call.args.find("MUTEX_INFO") != std::string::npos) {
                handle = reinterpret_cast<HANDLE>(strtoull(call.result.c_str(), nullptr, 16));
            }
        }
        return handle;
    }

    /* Calls behind the nth of a name since the last Mark. */
    Strings CallsAfter(const std::string& name, unsigned nth) const
    {
        size_t   index = 0;
        unsigned seen = 0;
        for (const Call& call : journal.All()) {
            index++;
            if (call.name == name && ++seen == nth) {
                return Calls(index);
            }
        }
        return { name + " was not called " + std::to_string(nth) + " times" };
    }
};

class FailedStart : public FaultTest, public testing::WithParamInterface<Failure> {
protected:
    void Walk(BOOL bDiskAgent)
    {
        const Failure& row = GetParam();
        DWORD          code = 0;

        Plan(row.call, row.nth, row.error);
        EXPECT_FALSE(DkpfInitialize(bDiskAgent, &code));
        EXPECT_EQ(code, row.code);
        EXPECT_EQ(NamedLines(InfoHandle()), row.lines);
        EXPECT_EQ(CallsAfter(row.call, row.nth), row.after);
        ExpectNotInitialized();
        ExpectNothingLeft();
        EXPECT_EQ(log.lines.front().text, std::string("ENTER<Proc=") + (bDiskAgent ? "TRUE" : "FALSE") + ">");
        EXPECT_EQ(log.lines.back().routine, "DkpfInitialize");
        EXPECT_EQ(log.lines.back().text, "EXIT<FALSE><" + Hex(row.code) + ">");
        EXPECT_EQ(log.lines.back().level, 8u);

        // What failed once does no harm to the next attempt.
        journal.ResetPlans();
        EXPECT_TRUE(DkpfInitialize(bDiskAgent, &code));
        EXPECT_EQ(code, 0xB0000000u);
        EXPECT_TRUE(DkpfTerminate(&code));
        EXPECT_EQ(code, 0xB0000000u);
        ExpectNotInitialized();
        ExpectNothingLeft();
    }
};

class ProducerStart : public FailedStart {};
TEST_P(ProducerStart, FailsWithCodeLinesAndCleanUpInOrder)
{
    Walk(TRUE);
}
INSTANTIATE_TEST_SUITE_P(At, ProducerStart, testing::ValuesIn(ProducerRows()), Story);

class ConsumerStart : public FailedStart {};
TEST_P(ConsumerStart, FailsWithCodeLinesAndCleanUpInOrder)
{
    HoldRegion();
    Walk(FALSE);
}
INSTANTIATE_TEST_SUITE_P(At, ConsumerStart, testing::ValuesIn(ConsumerRows()), Story);

/* Calls whose failure a start does not notice. */
class IgnoredAtStart : public FaultTest, public testing::WithParamInterface<Failure> {};
TEST_P(IgnoredAtStart, TheProducerComesUpAllTheSame)
{
    const Failure& row = GetParam();
    DWORD          code = 0;
    Plan(row.call, row.nth, row.error);
    EXPECT_TRUE(DkpfInitialize(TRUE, &code));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_EQ(NamedLines(nullptr), row.lines);
    EXPECT_EQ(os.started.size(), 2u);
}
INSTANTIATE_TEST_SUITE_P(
    At, IgnoredAtStart,
    testing::Values(
        Failure{ "DebugKey",
                 "RegOpenKeyExA",
                 1,
                 5,
                 0,
                 { "- 1 _DkpfReloadDebugFlag:  RegOpenKeyEx(Software\\OSK\\TARNWELL\\work) failed.<W32Err=5>" },
                 {} },
        Failure{ "DebugValue",
                 "RegQueryValueExA",
                 1,
                 5,
                 0,
                 { "- 1 _DkpfReloadDebugFlag:  RegQueryValueEx(dkpf_debug) failed.<W32Err=5>" },
                 {} },
        Failure{ "UnloadConfig",
                 "xmllib_unload_config",
                 2,
                 3,
                 0,
                 { Line("_DkpfGetConfig", " xmllib_unload_config() failed. (ErrCode=0x3)"),
                   // tried all the same; the library refuses while the configuration is loaded
                   Line("_DkpfGetConfig", " xmllib_unload_policy() failed. (ErrCode=0x2)") },
                 {} },
        Failure{ "UnloadPolicy",
                 "xmllib_unload_policy",
                 2,
                 3,
                 0,
                 { Line("_DkpfGetConfig", " xmllib_unload_policy() failed. (ErrCode=0x3)") },
                 {} },
        Failure{ "TermLibrary",
                 "xmllib_term",
                 2,
                 3,
                 0,
                 { Line("_DkpfGetConfig", " xmllib_term() failed. (ErrCode=0x3)") },
                 {} },
        Failure{ "MissingText", "TnwFormatMessage", 18, 6, 0, {}, {} },
        Failure{ "DllInitUnlock",
                 "ReleaseMutex",
                 3,
                 288,
                 0,
                 { Line("_DkpfMutexUnlock", " ReleaseMutex(DllInit) failed.(W32Err=288)") },
                 {} }),
    Story);

/* ---- Starts that fail in other ways ---- */

class FailedInitialize : public FaultTest {
protected:
    DWORD code = 1;
};

TEST_F(FailedInitialize, WithoutTheDllInitMutexNothingHappensAtAll)
{
    g_hDllInitMutex = nullptr;
    g_bDiskAgent = FALSE;
    EXPECT_FALSE(DkpfInitialize(TRUE, &code));
    EXPECT_EQ(code, 0xB0000005u);
    EXPECT_FALSE(g_bDiskAgent);
    EXPECT_EQ(journal.Names(), Strings());
    EXPECT_EQ(Lines(0xFFFFFFFF), Strings({
                                     "- 8 DkpfInitialize: ENTER<Proc=TRUE>",
                                     "- 8 DkpfInitialize: EXIT<FALSE><0xb0000005>",
                                 }));
}

TEST_F(FailedInitialize, AnInfiniteWaitThatTimesOutIsAFailedLock)
{
    os.Return("WaitForSingleObject", 1, WAIT_TIMEOUT);
    EXPECT_FALSE(DkpfInitialize(TRUE, &code));
    EXPECT_EQ(code, 0xB0000006u);
    EXPECT_FALSE(g_bDiskAgent) << "the flag is stored under the lock";
    EXPECT_EQ(NamedLines(nullptr), Strings({
                                       "- 1 _DkpfMutexLock:  Wait timeout(DllInit) <INFINITE>",
                                       "- 1 DkpfInitialize: _DkpfMutexLock(DllInit) failed.",
                                   }));
    EXPECT_EQ(journal.Number("ReleaseMutex"), 0u);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(FailedInitialize, WithoutTheLockAnInitialisationThatStandsIsLeftAlone)
{
    StartProducer();
    Mark();
    os.Fail("WaitForSingleObject", 1, ERROR_INVALID_HANDLE);
    EXPECT_FALSE(DkpfInitialize(FALSE, &code));
    EXPECT_EQ(code, 0xB0000006u);
    EXPECT_EQ(Calls(), Strings({ "WaitForSingleObject(mutex DllInit, INFINITE)" })) << "no clean-up, no release";
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_TRUE(g_bDiskAgent);
    EXPECT_NE(g_pShmInfo, nullptr);
    EXPECT_EQ(log.OpenTraces(), Strings({ "diskperf", "diskperf_trace", "diskperf_conf" }));
    EXPECT_TRUE(DkpfTerminate(&code));
    EXPECT_EQ(code, 0xB0000000u);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(FailedInitialize, AStringTableThatIsNotReleasedFailsTheStart)
{
    log.Fail("TnwFreeStringTable", 1, 2);
    EXPECT_FALSE(DkpfInitialize(TRUE, &code));
    EXPECT_EQ(code, 0xB0000022u);
    EXPECT_EQ(log.TextsOf("DkpfInitialize"), Strings({ " _DkpfLoadStrings() failed.<0xb0000022>" }));
    EXPECT_EQ(CallsAfter("TnwFreeStringTable", 1), FromStrings);
    ExpectNotInitialized();
    EXPECT_EQ(os.Leaks(), Strings());
}

TEST_F(FailedInitialize, AConsumerBeforeTheProducerFindsNoRegion)
{
    EXPECT_FALSE(DkpfInitialize(FALSE, &code));
    EXPECT_EQ(code, 0xB000001Au);
    EXPECT_EQ(NamedLines(nullptr),
              Strings({
                  Line("_DkpfShmOpenMapping", " OpenFileMapping(Global\\TNW_DKPF_SHM_INFO) failed. <W32Err=2>"),
                  Line("_DkpfShmInitialize", " _DkpfShmOpenMapping() failed. errcode<0xb000001a>"),
                  OfInitialize("_DkpfShmInitialize(FALSE) failed. <0xb000001a>"),
              }));
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(FailedInitialize, The33rdReaderFindsNoRowAndLeavesNothing)
{
    auto* region = HoldRegion();
    for (DWORD row = 1; row <= 32; row++) {
        region->PMProcessID[row] = 1000 + row;
        os.Process(1000 + row, STILL_ACTIVE);
    }
    EXPECT_FALSE(DkpfInitialize(FALSE, &code));
    EXPECT_EQ(code, 0xB0000003u);
    EXPECT_EQ(NamedLines(nullptr), Strings({
                                       Line("_DkpfShmInitialize", " PMProcessID Table has no empty !"),
                                       "diskperf event 0xc00012c6 _DkpfShmInitialize: ",
                                       OfInitialize("_DkpfShmInitialize(FALSE) failed. <0xb0000003>"),
                                   }));
    EXPECT_EQ(CallsAfter("CloseHandle", 32), ReleaseRegion +
                                                 Strings({ "UnmapViewOfFile(Global\\TNW_DKPF_SHM_INFO)",
                                                           Close("mapping Global\\TNW_DKPF_SHM_INFO") }) +
                                                 Freed + FromReload1);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

/* The write thread cannot be started: the collect thread is under way already. */
class FailedWriteThread : public FailedInitialize {
protected:
    void SetUp() override
    {
        FailedInitialize::SetUp();
        os.Fail("_beginthreadex", 2, EAGAIN);
    }
    void ExpectCodeOfTheFailedStep()
    {
        EXPECT_FALSE(DkpfInitialize(TRUE, &code));
        EXPECT_EQ(code, 0xB0000009u) << "results of the clean-up are ignored";
        EXPECT_EQ(log.lines.back().text, "EXIT<FALSE><0xb0000009>");
        EXPECT_EQ(g_dwInitCount, 0u);
    }
};

TEST_F(FailedWriteThread, TheCollectThreadIsStoppedBeforeTheRegionIsReleased)
{
    bool mapped = false, told = false;
    os.threads = Os::Threads::NeverEnd;
    os.At(2500, [&] {
        mapped = g_pShmInfo != nullptr;
        told = os.Signalled(g_hTerminateEvent);
        os.Signal(g_hCollectThread);
    });
    ExpectCodeOfTheFailedStep();
    EXPECT_TRUE(mapped) << "the thread still works on the region";
    EXPECT_TRUE(told);
    EXPECT_EQ(os.Elapsed(), 2500u);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(FailedWriteThread, ACollectThreadThatDoesNotEndIsGivenUpAfter300Seconds)
{
    os.threads = Os::Threads::NeverEnd;
    ExpectCodeOfTheFailedStep();
    EXPECT_EQ(os.Elapsed(), 300000u);
    EXPECT_EQ(log.Texts("", 2), Strings({ " thread exit not completed.<cnt=1>" }));
    EXPECT_EQ(os.Leaks().size(), 1u) << "the thread's own handle";
    EXPECT_NE(g_hCollectThread, nullptr);
    EXPECT_EQ(g_pShmInfo, nullptr);
    EXPECT_EQ(g_hTerminateEvent, nullptr);
    EXPECT_EQ(g_hInfoMutex, nullptr);
    EXPECT_EQ(log.OpenTraces(), Strings());
}

TEST_F(FailedWriteThread, ATerminateEventThatCannotBeSetDoesNotStopTheCleanUp)
{
    os.Fail("SetEvent", 1, ERROR_INVALID_HANDLE);
    ExpectCodeOfTheFailedStep();
    EXPECT_EQ(CallsAfter("SetEvent", 1), FromPublish);
}

TEST_F(FailedWriteThread, AFailedReleaseOfTheRegionDoesNotStopTheCleanUp)
{
    os.Fail("UnmapViewOfFile", 1, ERROR_INVALID_ADDRESS);
    ExpectCodeOfTheFailedStep();
    EXPECT_EQ(CallsAfter("UnmapViewOfFile", 1), ReleaseRegion + FromConfig);
}

TEST_F(FailedWriteThread, ALogThatDoesNotCloseKeepsItsHandleAndTheOthersClose)
{
    log.Fail("log_term", 1, 7);
    ExpectCodeOfTheFailedStep();
    EXPECT_EQ(log.OpenTraces(), Strings({ "diskperf_conf" }));
    EXPECT_NE(g_hDkpfConfLog, nullptr);
    EXPECT_EQ(g_hDkpfTraceLog, nullptr);
    EXPECT_EQ(g_hDkpfLog, nullptr);
    EXPECT_TRUE(log.Has("log_term(diskperf_conf) failed.<7>"));
}

TEST_F(FailedWriteThread, HandlesThatCannotBeClosedAreForgotten)
{
    os.Fail("CloseHandle", 1, ERROR_INVALID_HANDLE, 8);
    ExpectCodeOfTheFailedStep();
    EXPECT_EQ(g_hReloadEvent1, nullptr);
    EXPECT_EQ(g_hReloadEvent2, nullptr);
    EXPECT_EQ(g_hTerminateEvent, nullptr);
    EXPECT_EQ(g_hInfoMutex, nullptr);
    EXPECT_EQ(g_hWarnEventMutex, nullptr);
}

/* ---- Reload ---- */

static std::vector<Failure> ReloadRows()
{
    auto config = [](const std::string& code) {
        return Strings({ Line("DkpfReinitialize", "_DkpfGetConfig() failed. <" + code + ">") });
    };
    std::vector<Failure> rows = {
        { "DllInitLock",
          "WaitForSingleObject",
          1,
          6,
          0xB0000006,
          { Line("_DkpfMutexLock", " WaitForSingleObject(DllInit) failed.<W32Err=6>"),
            Line("DkpfReinitialize", "_DkpfMutexLock(DllInit) failed.") },
          {} },
    };
    const auto reading =
        ConfigRows(1, "", "diskperf", 0xB000000D, 0xB000000E, config("0xb000000d"), config("0xb000000e"), Unlock);
    rows.insert(rows.end(), reading.begin(), reading.end());
    return rows;
}

class ReloadTest : public FaultTest {
protected:
    void SetUp() override
    {
        FaultTest::SetUp();
        StartProducer();
        region = *g_pShmInfo;
        xml.Set("parameters/writeinterval", 5);
        Mark();
    }

    /* Calls behind the nth of a name since the start. */
    Strings CallsAfterStart(const std::string& name, unsigned nth) const
    {
        unsigned       before = 0;
        const unsigned all = journal.Number(name);
        for (const std::string& call : Calls()) {
            before += call.rfind(name + "(", 0) == 0 ? 1u : 0u;
        }
        return CallsAfter(name, all - before + nth);
    }

    DKPF_SHM_INFO region = {};
    DWORD         code = 1;
};

class Reload : public ReloadTest, public testing::WithParamInterface<Failure> {};
TEST_P(Reload, ThatCannotReadTouchesNothing)
{
    const Failure& row = GetParam();
    Plan(row.call, row.nth, row.error);
    EXPECT_FALSE(DkpfReinitialize(&code));
    EXPECT_EQ(code, row.code);
    EXPECT_EQ(NamedLines(g_hInfoMutex), row.lines);
    EXPECT_EQ(CallsAfterStart(row.call, row.nth), row.after);
    EXPECT_EQ(Lines(8).back(), "diskperf 8 DkpfReinitialize: EXIT<FALSE><" + Hex(row.code) + ">");
    EXPECT_EQ(memcmp(g_pShmInfo, &region, sizeof region), 0);
    EXPECT_FALSE(os.Signalled(g_hReloadEvent1));
    EXPECT_FALSE(os.Signalled(g_hReloadEvent2));
    EXPECT_EQ(os.Locked(initMutex), 0u);
    EXPECT_EQ(log.Texts("diskperf_conf"), Strings());
    EXPECT_EQ(xml.Open(), "");

    journal.ResetPlans();
    EXPECT_TRUE(DkpfReinitialize(&code));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(g_pShmInfo->conf.write_interval, 5u);
}
INSTANTIATE_TEST_SUITE_P(At, Reload, testing::ValuesIn(ReloadRows()), Story);

class FailedPublish : public ReloadTest {};

TEST_F(FailedPublish, WithoutTheRegionsLockAnswersTrueWithItsCodeAndWakesNobody)
{
    os.Fail("WaitForSingleObject", 2, ERROR_INVALID_HANDLE);
    EXPECT_TRUE(DkpfReinitialize(&code));
    EXPECT_EQ(code, 0xB0000006u);
    EXPECT_EQ(NamedLines(g_hInfoMutex), Strings({
                                            Line("_DkpfMutexLock", " WaitForSingleObject(INFO) failed.<W32Err=6>"),
                                            Line("_DkpfShmSetConf", " _DkpfMutexLock() failed. errcode<0xb0000000>"),
                                            Line("DkpfReinitialize", "_DkpfShmSetConf() failed. <0xb0000006>"),
                                        }));
    EXPECT_EQ(Lines(8).back(), "diskperf 8 DkpfReinitialize: EXIT<TRUE><0xb0000006>");
    EXPECT_EQ(memcmp(g_pShmInfo, &region, sizeof region), 0);
    EXPECT_EQ(journal.Number("SetEvent"), 0u);
    EXPECT_EQ(os.Locked(initMutex), 0u);
}

TEST_F(FailedPublish, WithoutARegionAnswersTrueWithItsCodeAndWakesNobody)
{
    g_dwShmInitCount = 0;
    EXPECT_TRUE(DkpfReinitialize(&code));
    EXPECT_EQ(code, 0xB0000018u);
    EXPECT_EQ(log.TextsOf("DkpfReinitialize"), Strings({ "_DkpfShmSetConf() failed. <0xb0000018>" }));
    EXPECT_EQ(journal.Number("SetEvent"), 0u);
    EXPECT_EQ(os.Locked(initMutex), 0u);
}

TEST_F(FailedPublish, AFailedReleaseComesAfterTheCopyAndStillWakesNobody)
{
    os.Fail("ReleaseMutex", 1, ERROR_NOT_OWNER);
    EXPECT_TRUE(DkpfReinitialize(&code));
    EXPECT_EQ(code, 0xB0000010u);
    EXPECT_EQ(log.TextsOf("DkpfReinitialize"), Strings({ "_DkpfShmSetConf() failed. <0xb0000010>" }));
    EXPECT_EQ(g_pShmInfo->conf.write_interval, 5u);
    EXPECT_EQ(journal.Number("SetEvent"), 0u);
}

TEST_F(FailedPublish, EventsThatCannotBeSetAreNotNoticed)
{
    os.Fail("SetEvent", 1, ERROR_INVALID_HANDLE, 2);
    EXPECT_TRUE(DkpfReinitialize(&code));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(journal.Number("SetEvent"), 2u) << "the second one is tried all the same";
    EXPECT_EQ(log.Errors(), Strings());
}

TEST_F(FailedPublish, AFailedReleaseOfTheDllInitMutexIsNotNoticed)
{
    os.Fail("ReleaseMutex", 2, ERROR_NOT_OWNER);
    EXPECT_TRUE(DkpfReinitialize(&code));
    EXPECT_EQ(code, 0xB0000000u);
}

TEST_F(FailedPublish, WithoutTheDllInitMutexNothingHappensAtAll)
{
    g_hDllInitMutex = nullptr;
    EXPECT_FALSE(DkpfReinitialize(&code));
    EXPECT_EQ(code, 0xB0000005u);
    EXPECT_EQ(Calls(), Strings());
    EXPECT_EQ(Lines(0xFFFFFFFF), Strings({
                                     "diskperf 8 DkpfReinitialize: ENTER",
                                     "diskperf 8 DkpfReinitialize: EXIT<FALSE><0xb0000005>",
                                 }));
}

/* ---- Stop ---- */

/* Every step of a stop is made, whatever the one before did. */
class FailedStop : public FaultTest {
protected:
    void Terminate(DWORD expected)
    {
        EXPECT_TRUE(DkpfTerminate(&code));
        EXPECT_EQ(code, expected);
        EXPECT_EQ(log.lines.back().routine, "DkpfTerminate");
        EXPECT_EQ(log.lines.back().text, "EXIT<TRUE><" + Hex(expected) + ">");
        EXPECT_EQ(g_dwInitCount, 0u);
    }
    void Start()
    {
        StartProducer();
        info = g_hInfoMutex;
        Mark();
    }

    HANDLE        info = nullptr;
    DWORD         code = 1;
    const Strings lock = { "WaitForSingleObject(mutex DllInit, INFINITE)" };
    const Strings endThreads = { "SetEvent(event #2)",
                                 "GetTickCount()",
                                 "WaitForSingleObject(thread #3, 1000)",
                                 "CloseHandle(thread #3)",
                                 "WaitForSingleObject(thread #4, 1000)",
                                 "CloseHandle(thread #4)" };
    const Strings closeEvents = { Close(std::string("event ") + Reload1), Close(std::string("event ") + Reload2),
                                  Close("event #2") };
    const Strings end = Strings({ Close("mutex #1"), Close(Info) }) + EndLogs;
};

TEST_F(FailedStop, WithoutTheDllInitMutexNothingHappensAtAll)
{
    Start();
    g_hDllInitMutex = nullptr;
    EXPECT_FALSE(DkpfTerminate(&code));
    EXPECT_EQ(code, 0xB0000005u);
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_EQ(Calls(), Strings());
    EXPECT_EQ(Lines(0xFFFFFFFF), Strings({
                                     "diskperf 8 DkpfTerminate: ENTER<Proc=TRUE>",
                                     "diskperf 8 DkpfTerminate: EXIT<FALSE><0xb0000005>",
                                 }));
}

TEST_F(FailedStop, WithoutTheLockItIsDoneAllTheSameAndNothingIsReleased)
{
    Start();
    os.Fail("WaitForSingleObject", 1, ERROR_INVALID_HANDLE);
    Terminate(0xB0000006);
    EXPECT_EQ(Calls(), lock + endThreads + LeaveRegion + closeEvents + end);
    EXPECT_EQ(NamedLines(info), Strings({
                                    Line("_DkpfMutexLock", " WaitForSingleObject(DllInit) failed.<W32Err=6>"),
                                    Line("DkpfTerminate", "_DkpfMutexLock(DllInit) failed."),
                                }));
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(FailedStop, WithoutTheLockAConsumerLeavesTheRegionAllTheSame)
{
    StartConsumer();
    Mark();
    os.Return("WaitForSingleObject", 1, WAIT_TIMEOUT);
    Terminate(0xB0000006);
    EXPECT_EQ(Calls(), lock + LeaveRegion + end);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(FailedStop, WithoutTheLockCount0IsStillRefused)
{
    os.Fail("WaitForSingleObject", 1, ERROR_INVALID_HANDLE);
    EXPECT_FALSE(DkpfTerminate(&code));
    EXPECT_EQ(code, 0xB0000002u);
    EXPECT_EQ(log.TextsOf("DkpfTerminate"),
              Strings({ "_DkpfMutexLock(DllInit) failed.", " Dll not initialized? (count=0). Skip." }));
    EXPECT_EQ(Calls(), lock);
}

TEST_F(FailedStop, WithoutTheLockAHigherCountIsLowered)
{
    Start();
    EXPECT_TRUE(DkpfInitialize(TRUE, &code));
    Mark();
    os.Fail("WaitForSingleObject", 1, ERROR_INVALID_HANDLE);
    EXPECT_TRUE(DkpfTerminate(&code));
    EXPECT_EQ(code, 0xB0000006u);
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_EQ(Calls(), lock);
}

TEST_F(FailedStop, ATerminateEventThatCannotBeSetLeavesTheThreadsAndTheRestIsDone)
{
    Start();
    os.Fail("SetEvent", 1, ERROR_INVALID_HANDLE);
    Terminate(0xB0000010);
    EXPECT_EQ(Calls(), lock + Strings({ "SetEvent(event #2)" }) + LeaveRegion + closeEvents + end + Unlock);
    EXPECT_EQ(log.TextsOf("DkpfTerminate"), Strings({ " _DkpfExitThreads() failed. <0xb0000010>" }));
    EXPECT_EQ(os.Leaks().size(), 2u) << "the two threads";
}

TEST_F(FailedStop, AThreadThatDoesNotEndIsGivenUpAfter300SecondsAndTheRestIsDone)
{
    os.threads = Os::Threads::NeverEnd;
    Start();
    os.Signal(g_hWriteThread);
    Terminate(0xB000000A);
    EXPECT_EQ(os.Elapsed(), 300000u);
    EXPECT_EQ(log.TextsOf("DkpfTerminate"), Strings({ " _DkpfExitThreads() failed. <0xb000000a>" }));
    EXPECT_EQ(CallsAfter("UnmapViewOfFile", 1),
              Strings({ Close("mapping Global\\TNW_DKPF_SHM_INFO") }) + ReleaseRegion + closeEvents + end + Unlock);
    EXPECT_EQ(g_pShmInfo, nullptr);
    EXPECT_NE(g_hCollectThread, nullptr);
    EXPECT_EQ(os.Leaks().size(), 1u) << "the collect thread";
    EXPECT_EQ(log.OpenTraces(), Strings());
}

// Ending the warning events cannot fail by itself; what a failure would do is fixed all the same.
static BOOL FailTermWarn(DWORD* lpdwErr)
{
    *lpdwErr = 0xB0000010;
    return FALSE;
}

TEST_F(FailedStop, WarningEventsThatDoNotEndAreReportedAndTheRestIsDone)
{
    Start();
    {
        const Detour detour(_DkpfTermWarnEventLog, FailTermWarn);
        Terminate(0xB0000010);
    }
    EXPECT_EQ(log.TextsOf("DkpfTerminate"), Strings({ " _DkpfTermWarnEventLog() failed. <0xb0000010>" }));
    EXPECT_EQ(g_hInfoMutex, nullptr);
    EXPECT_EQ(log.OpenTraces(), Strings());
    EXPECT_EQ(os.Leaks().size(), 1u) << "the mutex of the warning events";
}

TEST_F(FailedStop, ARegionThatCannotBeLockedIsLeftAndTheRestIsDone)
{
    Start();
    os.Fail("WaitForSingleObject", 4, ERROR_INVALID_HANDLE);  // DllInit, two threads, region
    Terminate(0xB0000006);
    EXPECT_EQ(CallsAfter("CloseHandle", 2), Strings({ LeaveRegion[0] }) + closeEvents + end + Unlock);
    EXPECT_EQ(NamedLines(info), Strings({
                                    Line("_DkpfMutexLock", " WaitForSingleObject(INFO) failed.<W32Err=6>"),
                                    Line("_DkpfShmTerminate", " _DkpfMutexLock() failed. errcode<0xb0000000>"),
                                    Line("DkpfTerminate", " _DkpfShmTerminate() failed. <0xb0000006>"),
                                }));
}

TEST_F(FailedStop, AViewThatCannotBeUnmappedIsReportedAndTheRestIsDone)
{
    Start();
    os.Fail("UnmapViewOfFile", 1, ERROR_INVALID_ADDRESS);
    Terminate(0xB000001C);
    EXPECT_EQ(CallsAfter("UnmapViewOfFile", 1), ReleaseRegion + closeEvents + end + Unlock);
    EXPECT_EQ(log.TextsOf("DkpfTerminate"), Strings({ " _DkpfShmTerminate() failed. <0xb000001c>" }));
}

TEST_F(FailedStop, AMappingThatCannotBeClosedIsReportedAndTheRestIsDone)
{
    Start();
    os.Fail("CloseHandle", 3, ERROR_INVALID_HANDLE);  // two threads, mapping
    Terminate(0xB0000010);
    EXPECT_EQ(CallsAfter("UnmapViewOfFile", 1),
              Strings({ Close("mapping Global\\TNW_DKPF_SHM_INFO") }) + ReleaseRegion + closeEvents + end + Unlock);
    EXPECT_EQ(log.TextsOf("DkpfTerminate"), Strings({ " _DkpfShmTerminate() failed. <0xb0000010>" }));
}

TEST_F(FailedStop, ARegionThatCannotBeUnlockedIsReportedAndTheRestIsDone)
{
    Start();
    os.Fail("ReleaseMutex", 1, ERROR_NOT_OWNER);
    Terminate(0xB0000010);
    EXPECT_EQ(Calls(), lock + endThreads + LeaveRegion + closeEvents + end + Unlock);
    EXPECT_EQ(log.TextsOf("DkpfTerminate"), Strings({ " _DkpfShmTerminate() failed. <0xb0000010>" }));
}

TEST_F(FailedStop, OfTwoFailuresTheLastOnesCodeIsAnswered)
{
    Start();
    os.Fail("SetEvent", 1, ERROR_INVALID_HANDLE);
    os.Fail("UnmapViewOfFile", 1, ERROR_INVALID_ADDRESS);
    Terminate(0xB000001C);
    EXPECT_EQ(log.TextsOf("DkpfTerminate"),
              Strings({ " _DkpfExitThreads() failed. <0xb0000010>", " _DkpfShmTerminate() failed. <0xb000001c>" }));
}

TEST_F(FailedStop, AFailedLockIsOverwrittenByALaterFailureOnly)
{
    Start();
    os.Fail("WaitForSingleObject", 1, ERROR_INVALID_HANDLE);
    os.Fail("UnmapViewOfFile", 1, ERROR_INVALID_ADDRESS);
    Terminate(0xB000001C);
}

TEST_F(FailedStop, AConsumersFailureIsReportedInTheSameWords)
{
    StartConsumer();
    Mark();
    os.Fail("UnmapViewOfFile", 1, ERROR_INVALID_ADDRESS);
    Terminate(0xB000001C);
    EXPECT_EQ(CallsAfter("UnmapViewOfFile", 1), ReleaseRegion + end + Unlock);
    EXPECT_EQ(log.TextsOf("DkpfTerminate"), Strings({ " _DkpfShmTerminate() failed. <0xb000001c>" }));
}

TEST_F(FailedStop, ALogThatDoesNotCloseIsTracedAndNotAnswered)
{
    Start();
    log.Fail("log_term", 2, 7);
    Terminate(0xB0000000);
    EXPECT_TRUE(log.Has("log_term(diskperf_trace) failed.<7>"));
    EXPECT_EQ(log.OpenTraces(), Strings({ "diskperf_trace" }));
    EXPECT_NE(g_hDkpfTraceLog, nullptr) << "kept, so that the next stop tries again";
    Mark();
    StartProducer();
    EXPECT_EQ(journal.Number("log_init"), 5u) << "three, and the two that were closed";
    Terminate(0xB0000000);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(FailedStop, HandlesThatCannotBeClosedAreForgottenAndNotAnswered)
{
    Start();
    os.Fail("CloseHandle", 4, ERROR_INVALID_HANDLE, 5);  // three events and two mutexes
    Terminate(0xB0000000);
    ExpectNotInitialized();
    EXPECT_EQ(Calls(), lock + endThreads + LeaveRegion + closeEvents + end + Unlock);
    EXPECT_EQ(log.Errors(), Strings());
}

TEST_F(FailedStop, AFailedReleaseOfTheDllInitMutexIsNotAnswered)
{
    Start();
    os.Fail("ReleaseMutex", 2, ERROR_NOT_OWNER);
    Terminate(0xB0000000);
}

/* ---- Ending the threads ---- */

class ExitThreads : public FaultTest {
protected:
    void SetUp() override
    {
        FaultTest::SetUp();
        g_hDkpfLog = log.OpenTrace("diskperf");
        os.threads = Os::Threads::NeverEnd;
        g_hTerminateEvent = os.MakeEvent(true);
    }
    void Threads(bool collect, bool write)
    {
        g_hCollectThread = collect ? os.MakeThread() : nullptr;
        g_hWriteThread = write ? os.MakeThread() : nullptr;
    }
    void Exit(BOOL expected, DWORD expectedCode)
    {
        EXPECT_EQ(_DkpfExitThreads(&code), expected);
        EXPECT_EQ(code, expectedCode);
        EXPECT_EQ(Lines().front(), "diskperf 8 _DkpfExitThreads: ENTER");
        EXPECT_EQ(Lines().back(), std::string("diskperf 8 _DkpfExitThreads: EXIT<") + (expected ? "TRUE" : "FALSE") +
                                      "><" + Hex(code) + ">");
    }
    /* Lines between entry and exit. */
    Strings Body() const
    {
        Strings lines = Lines();
        return Strings(lines.begin() + 1, lines.end() - 1);
    }
    static std::string At(int level, const std::string& text)
    {
        return "diskperf " + std::to_string(level) + " _DkpfExitThreads: " + text;
    }

    DWORD code = 1;
};

TEST_F(ExitThreads, WithoutThreadsNothingIsSetOrAwaited)
{
    Threads(false, false);
    Exit(TRUE, 0xB0000000);
    EXPECT_EQ(Body(), Strings({ At(4, " thread not exist. Skip.") }));
    EXPECT_EQ(journal.Names(), Strings());
}

TEST_F(ExitThreads, BothThreadsEndAfterTheEvent)
{
    Threads(true, true);
    os.Signal(g_hCollectThread);
    os.Signal(g_hWriteThread);
    Exit(TRUE, 0xB0000000);
    EXPECT_TRUE(os.Signalled(g_hTerminateEvent));
    EXPECT_EQ(journal.Names(), Strings({ "SetEvent", "GetTickCount", "WaitForSingleObject", "CloseHandle",
                                         "WaitForSingleObject", "CloseHandle" }));
    EXPECT_EQ(Body(), Strings({
                          At(4, " Detect thread exit.(CollectThread)"),
                          At(4, " Detect thread exit.(WriteThread)"),
                          At(4, " Detect all thread exit."),
                      }));
    EXPECT_EQ(g_hCollectThread, nullptr);
    EXPECT_EQ(g_hWriteThread, nullptr);
}

TEST_F(ExitThreads, OnlyTheThreadThatIsThereIsAwaited)
{
    for (bool collect : { true, false }) {
        log.ClearLines();
        os.waits.clear();
        Threads(collect, !collect);
        os.Signal(collect ? g_hCollectThread : g_hWriteThread);
        Exit(TRUE, 0xB0000000);
        EXPECT_EQ(os.waits.size(), 1u);
        EXPECT_EQ(Body(),
                  Strings({
                      At(4, collect ? " Detect thread exit.(CollectThread)" : " Detect thread exit.(WriteThread)"),
                      At(4, " Detect all thread exit."),
                  }));
    }
}

TEST_F(ExitThreads, AnEventThatCannotBeSetIsANoticeAndNothingIsAwaited)
{
    Threads(true, true);
    os.Fail("SetEvent", 1, ERROR_INVALID_HANDLE);
    Exit(FALSE, 0xB0000010);
    EXPECT_EQ(Body(), Strings({ At(4, " SetEvent() failed.<W32Err=6>") }));
    EXPECT_EQ(journal.Names(), Strings({ "SetEvent" }));
    EXPECT_NE(g_hCollectThread, nullptr);
    EXPECT_NE(g_hWriteThread, nullptr);
}

TEST_F(ExitThreads, WithATimeoutOf0NothingIsAwaited)
{
    Threads(true, true);
    g_dwThreadExitTimeout = 0;
    Exit(TRUE, 0xB0000000);
    EXPECT_TRUE(os.Signalled(g_hTerminateEvent));
    EXPECT_EQ(journal.Names(), Strings({ "SetEvent", "GetTickCount" }));
    EXPECT_EQ(Body(), Strings());
    EXPECT_NE(g_hCollectThread, nullptr);
    EXPECT_NE(g_hWriteThread, nullptr);
}

TEST_F(ExitThreads, ThreadsThatTakeTheirTimeAreAwaitedInSecondsInTurn)
{
    Threads(true, true);
    os.SignalAt(2500, g_hCollectThread);  // in its second wait
    os.SignalAt(3000, g_hWriteThread);
    Exit(TRUE, 0xB0000000);
    EXPECT_EQ(Body(), Strings({
                          At(16, " Wait(CollectThread) timeout (1sec)."),
                          At(16, " Wait(WriteThread) timeout (1sec)."),
                          At(4, " Detect thread exit.(CollectThread)"),
                          At(4, " Detect thread exit.(WriteThread)"),
                          At(4, " Detect all thread exit."),
                      }));
    EXPECT_EQ(os.Elapsed(), 3000u);
    ASSERT_EQ(os.waits.size(), 4u);
    for (const Os::Wait& wait : os.waits) {
        EXPECT_EQ(wait.timeout, 1000u);
    }
}

TEST_F(ExitThreads, AThreadThatEndedIsNotAwaitedAgain)
{
    Threads(true, true);
    os.Signal(g_hCollectThread);
    os.SignalAt(2500, g_hWriteThread);
    Exit(TRUE, 0xB0000000);
    EXPECT_EQ(Body(), Strings({
                          At(4, " Detect thread exit.(CollectThread)"),
                          At(16, " Wait(WriteThread) timeout (1sec)."),
                          At(16, " Wait(WriteThread) timeout (1sec)."),
                          At(4, " Detect thread exit.(WriteThread)"),
                          At(4, " Detect all thread exit."),
                      }));
    EXPECT_EQ(os.waits.size(), 4u);
}

TEST_F(ExitThreads, TwoThreadsThatDoNotEndAreGivenUpAfter300Seconds)
{
    Threads(true, true);
    Exit(FALSE, 0xB000000A);
    EXPECT_EQ(os.Elapsed(), 300000u);
    EXPECT_EQ(os.waits.size(), 300u);
    EXPECT_EQ(Lines(2), Strings({ At(2, " thread exit not completed.<cnt=2>") }));
    EXPECT_EQ(log.Errors(), Strings()) << "a warning, no error";
    EXPECT_NE(g_hCollectThread, nullptr);
    EXPECT_NE(g_hWriteThread, nullptr);
    EXPECT_EQ(journal.Number("CloseHandle"), 0u);
}

TEST_F(ExitThreads, OneThreadThatDoesNotEndIsGivenUpAfter300SecondsToo)
{
    Threads(true, true);
    os.SignalAt(5000, g_hCollectThread);
    Exit(FALSE, 0xB000000A);
    EXPECT_EQ(os.Elapsed(), 300000u);
    EXPECT_EQ(Lines(2), Strings({ At(2, " thread exit not completed.<cnt=1>") }));
    EXPECT_EQ(g_hCollectThread, nullptr);
    EXPECT_NE(g_hWriteThread, nullptr);
}

TEST_F(ExitThreads, AThreadThatEndsInTheLastMomentIsInTime)
{
    Threads(true, false);
    os.SignalAt(300000, g_hCollectThread);
    Exit(TRUE, 0xB0000000);
    EXPECT_EQ(os.waits.size(), 300u);
    EXPECT_EQ(g_hCollectThread, nullptr);
}

TEST_F(ExitThreads, TheTimeIsLookedAtAfterBothWaits)
{
    Threads(true, true);
    g_dwThreadExitTimeout = 3;  // over after the second round, at 4 s
    Exit(FALSE, 0xB000000A);
    EXPECT_EQ(os.Elapsed(), 4000u);
    EXPECT_EQ(os.waits.size(), 4u);
}

TEST_F(ExitThreads, TheWrapOfTheTickCountChangesNothing)
{
    for (DWORD before : { 1u, 1000u, 149999u, 299999u, 300000u }) {
        Threads(true, true);
        os.waits.clear();
        log.ClearLines();
        os.SetTick(0u - before);
        ULONGLONG start = os.Elapsed();
        Exit(FALSE, 0xB000000A);
        EXPECT_EQ(os.Elapsed() - start, 300000u) << before << " ms before the wrap";
    }
}

TEST_F(ExitThreads, AThreadGivenUpCanBeAwaitedAgain)
{
    Threads(true, false);
    Exit(FALSE, 0xB000000A);
    os.Signal(g_hCollectThread);
    log.ClearLines();
    Exit(TRUE, 0xB0000000);
    EXPECT_EQ(g_hCollectThread, nullptr);
}

/* Every other answer of a wait. */
struct Answer {
    const char* story;
    bool        collect;
    DWORD       result;
    const char* shown;
};
static std::ostream& operator<<(std::ostream& out, const Answer& answer)
{
    return out << answer.story;
}

class ExitThreadsAnswer : public ExitThreads, public testing::WithParamInterface<Answer> {};
TEST_P(ExitThreadsAnswer, EndsTheWaitingWithTheHandleTheResultAndTheError)
{
    const Answer& answer = GetParam();
    Threads(true, true);
    os.Return("WaitForSingleObject", answer.collect ? 1 : 2, answer.result, ERROR_INVALID_HANDLE);
    Exit(FALSE, 0xB0000010);

    const std::string handle = Pointer(answer.collect ? g_hCollectThread : g_hWriteThread);
    const std::string thread = answer.collect ? "CollectThread" : "WriteThread";
    Strings           expected;
    if (!answer.collect) {
        expected.push_back(At(16, " Wait(CollectThread) timeout (1sec)."));
    }
    expected.push_back(
        At(1, " WaitForSingleObject(" + thread + "(" + handle + ")) returned " + answer.shown + ".<W32Err=6>"));
    EXPECT_EQ(Body(), expected);
    EXPECT_EQ(os.waits.size(), answer.collect ? 1u : 2u) << "nothing is awaited any more";
    EXPECT_NE(g_hCollectThread, nullptr);
    EXPECT_NE(g_hWriteThread, nullptr);
    EXPECT_EQ(journal.Number("CloseHandle"), 0u);
}
INSTANTIATE_TEST_SUITE_P(Of, ExitThreadsAnswer,
                         testing::Values(Answer{ "CollectFailed", true, WAIT_FAILED, "0xffffffff" },
                                         Answer{ "CollectAbandoned", true, WAIT_ABANDONED, "0x80" },
                                         Answer{ "CollectInterrupted", true, WAIT_IO_COMPLETION, "0xc0" },
                                         Answer{ "CollectSecondObject", true, 1, "0x1" },
                                         Answer{ "WriteFailed", false, WAIT_FAILED, "0xffffffff" },
                                         Answer{ "WriteAbandoned", false, WAIT_ABANDONED, "0x80" },
                                         Answer{ "WriteInterrupted", false, WAIT_IO_COMPLETION, "0xc0" },
                                         Answer{ "WriteSecondObject", false, 1, "0x1" }),
                         [](const auto& row) { return row.param.story; });
