/*
 * Every failure of every call that the named objects, the locks, the module banner and the trace logs make.
 */
#include <functional>
#include <set>

#include "unit/traced_fixture.h"

/* ---- Mutexes and events ---- */

/* One failing call in a creating routine that got a name. */
struct CreateFault {
    const char* story;
    const char* call;
    DWORD       error;
    const char* line;       // error line of level 1, "" for none
    DWORD       lastError;  // what the caller reads
    bool        handle;     // the object is there all the same
    Strings     left;       // what the failing call itself left behind
    Strings     calls;      // of the system, in order
};

static const CreateFault createFaults[] = {
    { "NoMemory",
      "GlobalAlloc",
      8,
      "_MALLOC( SECURITY_DESCRIPTOR ) failed.(W32Err=8)",
      8,
      false,
      {},
      { "GlobalAlloc" } },
    { "DescriptorRefused",
      "InitializeSecurityDescriptor",
      1305,
      "InitializeSecurityDescriptor() failed.(W32Err=1305)",
      1305,
      false,
      {},
      { "GlobalAlloc", "InitializeSecurityDescriptor", "GlobalFree" } },
    { "DaclRefused",
      "SetSecurityDescriptorDacl",
      1338,
      "SetSecurityDescriptorDacl() failed.(W32Err=1338)",
      1338,
      false,
      {},
      { "GlobalAlloc", "InitializeSecurityDescriptor", "SetSecurityDescriptorDacl", "GlobalFree" } },
    { "ObjectRefused",
      "Create",
      5,
      "",
      5,
      false,
      {},
      { "GlobalAlloc", "InitializeSecurityDescriptor", "SetSecurityDescriptorDacl", "Create", "GlobalFree" } },
    { "BlockNotTaken",
      "GlobalFree",
      6,
      "",
      0,
      true,
      { "heap: 40 bytes" },
      { "GlobalAlloc", "InitializeSecurityDescriptor", "SetSecurityDescriptorDacl", "Create", "GlobalFree" } },
};

struct Creator {
    const char*                        story;
    const char*                        routine;
    const char*                        call;
    const char*                        shown;
    std::function<HANDLE(const char*)> create;
};

static const Creator creators[] = {
    { "Mutex", "_DkpfCreateMutex", "CreateMutex", "mutex",
      [](const char* lpName) { return _DkpfCreateMutex(lpName); } },
    { "AutoResetEvent", "_DkpfCreateEvent", "CreateEvent", "event",
      [](const char* lpName) { return _DkpfCreateEvent(FALSE, lpName); } },
    { "ManualResetEvent", "_DkpfCreateEvent", "CreateEvent", "event",
      [](const char* lpName) { return _DkpfCreateEvent(TRUE, lpName); } },
};

class CreateFaults : public TracedTest, public testing::WithParamInterface<std::tuple<Creator, CreateFault>> {};

INSTANTIATE_TEST_SUITE_P(Calls, CreateFaults,
                         testing::Combine(testing::ValuesIn(creators), testing::ValuesIn(createFaults)),
                         [](const auto& test) {
                             return std::string(std::get<0>(test.param).story) + std::get<1>(test.param).story;
                         });

static const char ExampleName[] = "Global\\TNW_DKPF_EXAMPLE";

TEST_P(CreateFaults, GiveTheBlockBackAndLeaveTheFailingCallsError)
{
    const auto& [creator, fault] = GetParam();
    Routine T(creator.routine);
    auto callName = [&](const std::string& name) { return name == "Create" ? std::string(creator.call) + "A" : name; };
    os.Fail(callName(fault.call), 1, fault.error);

    SetLastError(0x5A5A);
    HANDLE handle = creator.create(ExampleName);
    EXPECT_EQ(GetLastError(), fault.lastError);
    EXPECT_EQ(handle != nullptr, fault.handle);

    Strings calls;
    for (const std::string& name : fault.calls) {
        calls.push_back(callName(name));
    }
    EXPECT_EQ(journal.Names(), calls);
    Strings traced = { T(32, "ENTER") };
    if (*fault.line != '\0') {
        traced.push_back(T(1, fault.line));
    } else {
        traced.push_back(T(32, " " + std::string(creator.call) + "(" + ExampleName + ")"));
    }
    traced.push_back(T(32, "EXIT<" + Alternate(handle) + ">"));
    EXPECT_EQ(TraceStory(), traced);

    Strings left = fault.left;
    if (fault.handle) {
        left.insert(left.begin(), "handle: " + std::string(creator.shown) + " " + ExampleName);
    }
    EXPECT_EQ(os.Leaks(), left);
    EXPECT_EQ(os.misuse, Strings());
    EXPECT_EQ(os.Named(ExampleName) != nullptr, fault.handle);
}

class CreateFaultTable : public TracedTest, public testing::WithParamInterface<Creator> {};

INSTANTIATE_TEST_SUITE_P(Creators, CreateFaultTable, testing::ValuesIn(creators), StoryOf());

TEST_P(CreateFaultTable, HasALineForEveryCallThatIsMade)
{
    GetParam().create(ExampleName);
    std::set<std::string> named;
    for (const CreateFault& fault : createFaults) {
        named.insert(std::string(fault.call) == "Create" ? std::string(GetParam().call) + "A" : fault.call);
    }
    for (const std::string& name : journal.Names()) {
        EXPECT_EQ(named.count(name), 1u) << name;
    }
}

TEST_P(CreateFaultTable, AFailureWithoutANameLeavesTheSystemsError)
{
    Routine T(GetParam().routine);
    os.Fail(std::string(GetParam().call) + "A", 1, ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_EQ(GetParam().create(nullptr), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_NO_SYSTEM_RESOURCES });
    EXPECT_EQ(TraceStory(), Strings({ T(32, "ENTER"), T(32, " " + std::string(GetParam().call) + "(NULL)"),
                                      T(32, "EXIT<" + Alternate(nullptr) + ">") }));
    ExpectNothingLeft();
}

TEST_P(CreateFaultTable, TheNextCallAfterAFailureSucceeds)
{
    for (const CreateFault& fault : createFaults) {
        if (!fault.handle) {
            StartStory();
            os.Fail(std::string(fault.call) == "Create" ? std::string(GetParam().call) + "A" : fault.call, 1, 8);
            EXPECT_EQ(GetParam().create(ExampleName), nullptr);
            EXPECT_NE(GetParam().create(nullptr), nullptr);
        }
    }
}

/* ---- Module banner ---- */

static const SYSTEMTIME March5 = { 2024, 3, 0, 5, 9, 7, 3, 0 };

struct BannerFault {
    const char* story;
    const char* call;
    unsigned    nth;
    const char* stamp;  // nullptr: not said, the file's time cannot be known
    const char* version;
    Strings     left;
};

static const char Stamp[] = "2024:3:5-9:7:3";
static const char StampBefore[] = "stamp before";
static const char Version[] = "1.2.3.4";

static const BannerFault bannerFaults[] = {
    { "FileNotFound", "SearchPathA", 1, StampBefore, "", {} },
    { "FileNotOpened", "CreateFileA", 1, StampBefore, Version, {} },
    { "NoFileInformation", "GetFileInformationByHandle", 1, StampBefore, Version, {} },
    { "NoLocalTime", "FileTimeToLocalFileTime", 1, nullptr, Version, {} },
    { "NoSystemTime", "FileTimeToSystemTime", 1, nullptr, Version, {} },
    { "FileNotClosed", "CloseHandle", 1, Stamp, Version, { "handle: file C:\\cluster\\bin\\tnwdiskperf.dll" } },
    { "NoVersionSize", "GetFileVersionInfoSizeA", 1, Stamp, "", {} },
    { "NoMemory", "GlobalAlloc", 1, Stamp, "", {} },
    { "NoVersionBlock", "GetFileVersionInfoA", 1, Stamp, "", {} },
    { "NoTranslation", "VerQueryValueA", 1, Stamp, "", {} },
    { "NoFileVersion", "VerQueryValueA", 2, Stamp, "", {} },
    { "BlockNotTaken", "GlobalFree", 1, Stamp, Version, { "heap: 512 bytes" } },
};

class BannerFaults : public TracedTest, public testing::WithParamInterface<BannerFault> {
protected:
    void SetUp() override
    {
        TracedTest::SetUp();
        os.AddModule("tnwdiskperf.dll", March5, Version);
        os.errorMode = 0x8000;
    }
};

INSTANTIATE_TEST_SUITE_P(Calls, BannerFaults, testing::ValuesIn(bannerFaults), StoryOf());

TEST_P(BannerFaults, LeaveTheOutputsAndCloseWhatWasOpened)
{
    char szStamp[DKPF_BANNER_SIZE] = "stamp before";
    char szVersion[DKPF_BANNER_SIZE] = "version before";
    os.Fail(GetParam().call, GetParam().nth, 21);
    _DkpfGetFileStampAndVersion("tnwdiskperf.dll", szStamp, szVersion);
    if (GetParam().stamp != nullptr) {
        EXPECT_STREQ(szStamp, GetParam().stamp);
    }
    EXPECT_STREQ(szVersion, GetParam().version);
    EXPECT_EQ(os.Leaks(), GetParam().left);
    EXPECT_EQ(os.misuse, Strings());
    EXPECT_EQ(os.errorMode, 0x8000u) << "the process's error mode is put back on every path";
    EXPECT_EQ(log.lines.size(), 0u);
}

// The banner is written whatever its two texts are.
TEST_P(BannerFaults, NeverKeepTheLogsFromOpening)
{
    CloseLogs();
    os.Fail(GetParam().call, GetParam().nth, 21);
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    EXPECT_EQ(log.OpenTraces(), Strings({ "diskperf", "diskperf_trace", "diskperf_conf" }));
    if (GetParam().stamp != nullptr) {
        std::string stamp = GetParam().stamp == StampBefore ? "" : GetParam().stamp;
        Strings     expected = { "===DiskPerf module initialize=T.S.<" + stamp + "> Ver<" + GetParam().version + ">=" };
        EXPECT_EQ(log.Texts("diskperf", 4), expected);
    }
}

class BannerFaultTable : public TracedTest {};

TEST_F(BannerFaultTable, HasALineForEveryCallThatMayFail)
{
    os.AddModule("tnwdiskperf.dll", March5, Version);
    char szStamp[DKPF_BANNER_SIZE], szVersion[DKPF_BANNER_SIZE];
    _DkpfGetFileStampAndVersion("tnwdiskperf.dll", szStamp, szVersion);
    std::map<std::string, unsigned> made, named;
    for (const std::string& name : journal.Names({ "SetErrorMode", "wsprintfA" })) {
        made[name]++;
    }
    for (const BannerFault& fault : bannerFaults) {
        named[fault.call]++;
    }
    EXPECT_EQ(made, named);
}

/* ---- Trace logs ---- */

static const char* const logNames[] = { "diskperf", "diskperf_trace", "diskperf_conf" };

class LogFaults : public TracedTest {
protected:
    void SetUp() override
    {
        TracedTest::SetUp();
        CloseLogs();
        os.AddModule("tnwdiskperf.dll", March5, Version);
    }
    /* Calls of the logging library, with the lines of _DkpfLogInit and _DkpfLogTerm. */
    Strings LogStory() const
    {
        Strings story;
        auto    line = log.lines.begin();
        for (const Call& call : journal.All()) {
            if (call.name == "log_init") {
                story.push_back("log_init " + call.args.substr(1, call.args.find('"', 1) - 1));
            } else if (call.name == "log_term") {
                story.push_back("log_term " + call.args.substr(1, call.args.find('"', 1) - 1));
            } else if (call.name == "log_write") {
                if (line->routine == "_DkpfLogInit" || line->routine == "_DkpfLogTerm") {
                    story.push_back(Routine(line->routine, line->log)(line->level, line->text));
                }
                ++line;
            }
        }
        return story;
    }
    void ExpectNoLog()
    {
        EXPECT_EQ(g_hDkpfLog, nullptr);
        EXPECT_EQ(g_hDkpfTraceLog, nullptr);
        EXPECT_EQ(g_hDkpfConfLog, nullptr);
        EXPECT_EQ(log.OpenTraces(), Strings());
        ExpectNothingLeft();
    }
    static Routine Init(const char* name)
    {
        return Routine("_DkpfLogInit", name);
    }
    static Routine Term(const char* name)
    {
        return Routine("_DkpfLogTerm", name);
    }
    const std::string banner = "===DiskPerf module initialize=T.S.<2024:3:5-9:7:3> Ver<1.2.3.4>=";
};

struct XmlFault {
    const char* story;
    const char* call;
    unsigned    nth;
};

class LogInitXmlFaults : public LogFaults, public testing::WithParamInterface<XmlFault> {};

INSTANTIATE_TEST_SUITE_P(Calls, LogInitXmlFaults,
                         testing::Values(XmlFault{ "Library", "xmllib_init", 1 },
                                         XmlFault{ "Policy", "xmllib_load_policy", 1 },
                                         XmlFault{ "Configuration", "xmllib_load_config", 1 },
                                         XmlFault{ "FirstValue", "xmllib_get_value", 1 },
                                         XmlFault{ "LogLevel", "xmllib_get_value", 8 },
                                         XmlFault{ "LastValue", "xmllib_get_value", 9 }),
                         StoryOf());

TEST_P(LogInitXmlFaults, AConfigurationThatCannotBeReadOpensNoLog)
{
    xml.Fail(GetParam().call, GetParam().nth, 7);
    EXPECT_EQ(_DkpfLogInit(), FALSE);
    EXPECT_EQ(LogStory(), Strings({ Init("")(8, "ENTER"), Init("")(8, "EXIT<FALSE>") }));
    ExpectNoLog();
}

// The logs of an earlier call stay: only a log that cannot be opened closes them.
TEST_P(LogInitXmlFaults, LeaveLogsThatAreOpenAlone)
{
    ASSERT_EQ(_DkpfLogInit(), TRUE);
    StartStory();
    xml.Fail(GetParam().call, GetParam().nth, 7);
    EXPECT_EQ(_DkpfLogInit(), FALSE);
    EXPECT_EQ(LogStory(), Strings({ Init("diskperf")(8, "ENTER"), Init("diskperf")(8, "EXIT<FALSE>") }));
    EXPECT_EQ(log.OpenTraces(), Strings({ "diskperf", "diskperf_trace", "diskperf_conf" }));
}

TEST_F(LogFaults, ModuleLogNotOpened)
{
    log.Fail("log_init", 1, 5);
    EXPECT_EQ(_DkpfLogInit(), FALSE);
    EXPECT_EQ(LogStory(), Strings({ Init("")(8, "ENTER"), "log_init diskperf", Term("")(8, "ENTER"),
                                    Term("")(8, "EXIT<TRUE>"), Init("")(8, "EXIT<FALSE>") }))
        << "no log is there to take a message";
    ExpectNoLog();
}

TEST_F(LogFaults, TraceLogNotOpened)
{
    log.Fail("log_init", 2, 5);
    EXPECT_EQ(_DkpfLogInit(), FALSE);
    EXPECT_EQ(
        LogStory(),
        Strings({ Init("")(8, "ENTER"), "log_init diskperf", Init("diskperf")(4, banner), "log_init diskperf_trace",
                  Init("diskperf")(1, "log_init(diskperf_trace) failed.<5>"), Term("diskperf")(8, "ENTER"),
                  "log_term diskperf", Term("")(8, "EXIT<TRUE>"), Init("")(8, "EXIT<FALSE>") }));
    ExpectNoLog();
}

TEST_F(LogFaults, ConfigurationLogNotOpened)
{
    log.Fail("log_init", 3, 14);
    EXPECT_EQ(_DkpfLogInit(), FALSE);
    EXPECT_EQ(LogStory(),
              Strings({ Init("")(8, "ENTER"), "log_init diskperf", Init("diskperf")(4, banner),
                        "log_init diskperf_trace", Init("diskperf_trace")(4, banner), "log_init diskperf_conf",
                        Init("diskperf")(1, "log_init(diskperf_conf) failed.<14>"), Term("diskperf")(8, "ENTER"),
                        "log_term diskperf_trace", "log_term diskperf", Term("")(8, "EXIT<TRUE>"),
                        Init("")(8, "EXIT<FALSE>") }));
    ExpectNoLog();
}

// What was open before the call is closed too.
TEST_F(LogFaults, AFailureClosesTheLogsOfAnEarlierCall)
{
    g_hDkpfLog = log.OpenTrace("diskperf");
    g_hDkpfConfLog = log.OpenTrace("diskperf_conf");
    log.Fail("log_init", 1, 5);
    EXPECT_EQ(_DkpfLogInit(), FALSE);
    EXPECT_EQ(LogStory(),
              Strings({ Init("diskperf")(8, "ENTER"), Init("diskperf")(4, banner), "log_init diskperf_trace",
                        Init("diskperf")(1, "log_init(diskperf_trace) failed.<5>"), Term("diskperf")(8, "ENTER"),
                        "log_term diskperf_conf", "log_term diskperf", Term("")(8, "EXIT<TRUE>"),
                        Init("")(8, "EXIT<FALSE>") }));
    ExpectNoLog();
}

TEST_F(LogFaults, AFailedOpenAndAFailedClose)
{
    log.Fail("log_init", 2, 5);
    log.Fail("log_term", 1, 9);
    EXPECT_EQ(_DkpfLogInit(), FALSE);
    EXPECT_EQ(
        LogStory(),
        Strings({ Init("")(8, "ENTER"), "log_init diskperf", Init("diskperf")(4, banner), "log_init diskperf_trace",
                  Init("diskperf")(1, "log_init(diskperf_trace) failed.<5>"), Term("diskperf")(8, "ENTER"),
                  "log_term diskperf", Term("diskperf")(1, "log_term(diskperf) failed.<9>"),
                  Term("diskperf")(8, "EXIT<FALSE>"), Init("diskperf")(8, "EXIT<FALSE>") }));
    EXPECT_NE(g_hDkpfLog, nullptr) << "kept for the next try";
    EXPECT_EQ(g_hDkpfTraceLog, nullptr);

    StartStory();
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    EXPECT_EQ(LogStory(),
              Strings({ Init("diskperf")(8, "ENTER"), Init("diskperf")(4, banner), "log_init diskperf_trace",
                        Init("diskperf_trace")(4, banner), "log_init diskperf_conf", Init("diskperf_conf")(4, banner),
                        Init("diskperf")(8, "EXIT<TRUE>") }));
}

/* log_init of a library that writes a handle even where it fails. */
static DWORD LogInitWithGarbage(const char* lpName, HTNWLOG* phLog, DWORD dwLevel, DWORD dwSize, DWORD dwReserved,
                                const char* lpKey)
{
    DWORD dwStatus = log_init(lpName, phLog, dwLevel, dwSize, dwReserved, lpKey);
    if (dwStatus != 0) {
        *phLog = reinterpret_cast<HTNWLOG>(0xBAD0);
    }
    return dwStatus;
}

TEST_F(LogFaults, AHandleThatAFailedOpenWroteIsForgotten)
{
    ASSERT_TRUE(hooks.Replace("tnwlog.dll", WORD{ 1 }, Address(LogInitWithGarbage)));
    for (unsigned failing = 1; failing <= 3; failing++) {
        StartStory();
        log.Fail("log_init", failing, 5);
        EXPECT_EQ(_DkpfLogInit(), FALSE);
        EXPECT_EQ(journal.Number("log_term"), failing - 1) << "only what was opened is closed";
        ExpectNoLog();
    }
}

TEST_F(LogFaults, AfterAnyFailedOpenTheNextCallOpensAll)
{
    for (unsigned failing = 1; failing <= 3; failing++) {
        StartStory();
        log.Fail("log_init", failing, 5);
        EXPECT_EQ(_DkpfLogInit(), FALSE);
        ExpectNoLog();
        EXPECT_EQ(_DkpfLogInit(), TRUE);
        EXPECT_EQ(log.OpenTraces(), Strings({ "diskperf", "diskperf_trace", "diskperf_conf" }));
        EXPECT_EQ(_DkpfLogTerm(), TRUE);
        ExpectNoLog();
    }
}

class LogTermFaults : public LogFaults, public testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(Combinations, LogTermFaults, testing::Range(0u, 8u));

// Bit i of the case: log i of the three does not close, with status 20 + i. The others do, whatever happens before
// them.
TEST_P(LogTermFaults, KeepTheHandleOfALogThatDoesNotClose)
{
    ASSERT_EQ(_DkpfLogInit(), TRUE);
    StartStory();
    Strings expected = { Term("diskperf")(8, "ENTER") };
    Strings open;
    bool    moduleLogStays = (GetParam() & 1) != 0;
    for (unsigned nth = 1; nth <= 3; nth++) {
        unsigned    i = 3 - nth;
        std::string name = logNames[i];
        expected.push_back("log_term " + name);
        if ((GetParam() & (1u << i)) != 0) {
            log.Fail("log_term", nth, 20 + i);
            expected.push_back(Term("diskperf")(1, "log_term(" + name + ") failed.<" + std::to_string(20 + i) + ">"));
            open.insert(open.begin(), name);
        }
    }
    expected.push_back(Term(moduleLogStays ? "diskperf" : "")(8, GetParam() == 0 ? "EXIT<TRUE>" : "EXIT<FALSE>"));

    EXPECT_EQ(_DkpfLogTerm(), GetParam() == 0 ? TRUE : FALSE);
    EXPECT_EQ(LogStory(), expected);
    EXPECT_EQ(log.OpenTraces(), open);
    EXPECT_EQ(g_hDkpfLog != nullptr, (GetParam() & 1) != 0);
    EXPECT_EQ(g_hDkpfTraceLog != nullptr, (GetParam() & 2) != 0);
    EXPECT_EQ(g_hDkpfConfLog != nullptr, (GetParam() & 4) != 0);

    StartStory();
    EXPECT_EQ(_DkpfLogTerm(), TRUE) << "the next call tries what is left";
    EXPECT_EQ(journal.Number("log_term"), open.size());
    ExpectNoLog();
}

TEST_F(LogFaults, AMessageAboutALogThatDoesNotCloseNeedsTheModuleLog)
{
    g_hDkpfTraceLog = log.OpenTrace("diskperf_trace");
    log.Fail("log_term", 1, 3);
    EXPECT_EQ(_DkpfLogTerm(), FALSE);
    EXPECT_EQ(LogStory(), Strings({ Term("")(8, "ENTER"), "log_term diskperf_trace",
                                    Term("")(1, "log_term(diskperf_trace) failed.<3>"), Term("")(8, "EXIT<FALSE>") }));
    EXPECT_NE(g_hDkpfTraceLog, nullptr);
}
