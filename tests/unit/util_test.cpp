/*
 * Named objects, locks, module banner and trace logs.
 */
#include <functional>
#include <thread>

#include "unit/traced_fixture.h"

static const DWORD NoneYet = 0x5A5A;  // a last-error value that no call of these cases leaves

/* ---- Mutexes and events ---- */

/* The two creating routines, the event once per reset mode. */
struct CreateKind {
    const char* story;    // name of the case
    const char* routine;  // whose lines are traced
    const char* text;     // "CreateMutex" as the lines name it
    const char* call;     // of the system
    const char* state;    // arguments between security and name: owned, or reset mode and first state
    const char* shown;    // as the double names such an object
    std::function<HANDLE(const char*)> create;
};

static const CreateKind createKinds[] = {
    { "Mutex", "_DkpfCreateMutex", "CreateMutex", "CreateMutexA", "FALSE", "mutex",
      [](const char* lpName) { return _DkpfCreateMutex(lpName); } },
    { "AutoResetEvent", "_DkpfCreateEvent", "CreateEvent", "CreateEventA", "auto, FALSE", "event",
      [](const char* lpName) { return _DkpfCreateEvent(FALSE, lpName); } },
    { "ManualResetEvent", "_DkpfCreateEvent", "CreateEvent", "CreateEventA", "manual, FALSE", "event",
      [](const char* lpName) { return _DkpfCreateEvent(TRUE, lpName); } },
};

class CreateObject : public TracedTest, public testing::WithParamInterface<CreateKind> {
protected:
    std::string Call(const std::string& security, const std::string& name) const
    {
        return std::string(GetParam().call) + "(" + security + ", " + GetParam().state + ", " + name + ")";
    }
    /* The whole story of a named object up to the creating call's end. */
    Strings NamedStory(const std::string& name, const void* handle) const
    {
        Routine T(GetParam().routine);
        return { T(32, "ENTER"),
                 "GlobalAlloc(0x40, 40)",
                 "InitializeSecurityDescriptor(1)",
                 "SetSecurityDescriptorDacl(TRUE, NULL, FALSE)",
                 T(32, " " + std::string(GetParam().text) + "(" + name + ")"),
                 Call("null DACL", name),
                 "GlobalFree(40 bytes)",
                 T(32, "EXIT<" + Alternate(handle) + ">") };
    }
};

INSTANTIATE_TEST_SUITE_P(Kinds, CreateObject, testing::ValuesIn(createKinds), StoryOf());

TEST_P(CreateObject, WithoutANameHasDefaultSecurityAndNeedsNoBlock)
{
    Routine T(GetParam().routine);
    SetLastError(NoneYet);
    HANDLE handle = GetParam().create(nullptr);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(Story(), Strings({ T(32, "ENTER"), T(32, " " + std::string(GetParam().text) + "(NULL)"),
                                 Call("no security", "NULL"), T(32, "EXIT<" + Alternate(handle) + ">") }));
}

TEST_P(CreateObject, WithAnEmptyNameIsANamedOne)
{
    HANDLE handle = GetParam().create("");
    EXPECT_EQ(Story(), NamedStory("", handle));
}

TEST_P(CreateObject, WithANameIsOpenToEveryAccountAndGivesItsBlockBack)
{
    SetLastError(NoneYet);
    HANDLE handle = GetParam().create("Global\\TNW_DKPF_EXAMPLE");
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(Story(), NamedStory("Global\\TNW_DKPF_EXAMPLE", handle));
    EXPECT_EQ(os.Leaks(), Strings({ "handle: " + std::string(GetParam().shown) + " Global\\TNW_DKPF_EXAMPLE" }));
    EXPECT_EQ(os.misuse, Strings());
}

// Edge case: the trace lines behind the creating call change the last error, which callers read.
TEST_P(CreateObject, AnExistingNameGivesAHandleAndLeavesAlreadyExistsAsTheLastError)
{
    HANDLE first = GetParam().create("Global\\TNW_DKPF_EXAMPLE");
    StartStory();
    HANDLE second = GetParam().create("Global\\TNW_DKPF_EXAMPLE");
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_ALREADY_EXISTS });
    EXPECT_NE(second, nullptr);
    EXPECT_NE(second, first);
    EXPECT_EQ(Story(), NamedStory("Global\\TNW_DKPF_EXAMPLE", second));
}

TEST_P(CreateObject, AnUnnamedOneKeepsTheCreatingCallsLastError)
{
    HANDLE made = os.MakeEvent(true);
    os.Return(GetParam().call, 1, reinterpret_cast<ULONG_PTR>(made), 77);
    EXPECT_EQ(GetParam().create(nullptr), made);
    EXPECT_EQ(GetLastError(), 77u);
}

TEST_P(CreateObject, ANameThatBelongsToAnotherKindOfObjectIsRefused)
{
    os.HoldMapping("Global\\TNW_DKPF_EXAMPLE", 8);
    EXPECT_EQ(GetParam().create("Global\\TNW_DKPF_EXAMPLE"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_INVALID_HANDLE });
    EXPECT_EQ(Story(), NamedStory("Global\\TNW_DKPF_EXAMPLE", nullptr));
    ExpectNothingLeft();
}

TEST_P(CreateObject, EachCallMakesAnObjectOfItsOwnWhereThereIsNoName)
{
    HANDLE first = GetParam().create(nullptr);
    HANDLE second = GetParam().create(nullptr);
    EXPECT_NE(first, second);
    if (std::string(GetParam().shown) == "event") {
        os.Signal(first);
        EXPECT_FALSE(os.Signalled(second));
    } else {
        EXPECT_TRUE(_DkpfMutexLock(first, -1));
        EXPECT_EQ(os.Locked(second), 0u);
        EXPECT_TRUE(_DkpfMutexUnlock(first));
    }
}

class CreateMutexAndEvent : public TracedTest {};

// Edge case.
TEST_F(CreateMutexAndEvent, AnotherAccountCanOpenTheInfoMutexBecauseItsDaclIsNull)
{
    _DkpfCreateMutex(DKPF_MUTEX_NAME);
    std::vector<Call> calls = journal.Of("CreateMutexA");
    ASSERT_EQ(calls.size(), 1u);
    // The double reads the descriptor that the system would have copied: revision, size 24, DACL present and NULL, and
    // the handle not inheritable.
    EXPECT_EQ(calls[0].args, "null DACL, FALSE, Global\\TNW_DKPF_MUTEX_INFO");
}

TEST_F(CreateMutexAndEvent, AMutexIsNotOwnedByItsCreator)
{
    EXPECT_EQ(os.Locked(_DkpfCreateMutex("Global\\TNW_DKPF_EXAMPLE")), 0u);
    EXPECT_EQ(os.Locked(_DkpfCreateMutex(nullptr)), 0u);
}

TEST_F(CreateMutexAndEvent, AnEventStartsNotSignalledAndResetsAsAsked)
{
    for (const char* lpName : { static_cast<const char*>(nullptr), "Global\\TNW_DKPF_EXAMPLE" }) {
        HANDLE hAuto = _DkpfCreateEvent(FALSE, lpName);
        HANDLE hManual = _DkpfCreateEvent(TRUE, lpName == nullptr ? nullptr : "Global\\TNW_DKPF_OTHER");
        EXPECT_FALSE(os.Signalled(hAuto));
        EXPECT_FALSE(os.Signalled(hManual));
        os.Signal(hAuto);
        os.Signal(hManual);
        EXPECT_TRUE(_DkpfMutexLock(hAuto, 0)) << "any object may be waited for";
        EXPECT_TRUE(_DkpfMutexLock(hManual, 0));
        EXPECT_FALSE(os.Signalled(hAuto));
        EXPECT_TRUE(os.Signalled(hManual));
    }
}

/* ---- Locks ---- */

class MutexLock : public TracedTest {
protected:
    void SetUp() override
    {
        TracedTest::SetUp();
        hMutex = os.MakeMutex("M");
        A = Alternate(hMutex);
    }
    /* A wait that does not end with the object: entry, the wait, one line of a level, exit with FALSE. */
    Strings FailedStory(const std::string& timeout, const std::string& waited, DWORD level,
                        const std::string& text) const
    {
        return { T(32, "ENTER<" + A + "><" + timeout + "msec>"), "WaitForSingleObject(mutex M, " + waited + ")",
                 T(level, text), T(32, "EXIT<" + A + "><FALSE>") };
    }
    HANDLE      hMutex = nullptr;
    std::string A;
    Routine     T{ "_DkpfMutexLock" };
};

TEST_F(MutexLock, AFreeMutexIsTaken)
{
    EXPECT_EQ(_DkpfMutexLock(hMutex, -1), TRUE);
    EXPECT_EQ(Story(), LockStory(hMutex, "mutex M"));
    EXPECT_EQ(os.Locked(hMutex), 1u);
}

TEST_F(MutexLock, AFiniteTimeoutIsHandedOnInMilliseconds)
{
    EXPECT_EQ(_DkpfMutexLock(hMutex, 250), TRUE);
    EXPECT_EQ(Story(), Strings({ T(32, "ENTER<" + A + "><250msec>"), "WaitForSingleObject(mutex M, 250)",
                                 T(32, " Lock OK.(" + A + ")"), T(32, "EXIT<" + A + "><TRUE>") }));
}

// Edge case.
TEST_F(MutexLock, AMutexWhoseOwnerEndedWithoutReleasingIsTakenAndTracedAsLockOk)
{
    os.Abandon(hMutex);
    EXPECT_EQ(_DkpfMutexLock(hMutex, -1), TRUE);
    ASSERT_EQ(os.waits.size(), 1u);
    EXPECT_EQ(os.waits[0].result, 0x80u);
    EXPECT_EQ(Story(), LockStory(hMutex, "mutex M")) << "no message about the owner that died";
    EXPECT_EQ(os.Locked(hMutex), 1u);
}

TEST_F(MutexLock, AMutexThatItsOwnerGivesBackLaterIsTakenThen)
{
    os.HoldByOther(hMutex);
    os.At(4000, [this] { os.HoldByOther(hMutex, false); });
    EXPECT_EQ(_DkpfMutexLock(hMutex, -1), TRUE);
    EXPECT_EQ(os.Elapsed(), 4000u);
    EXPECT_EQ(Story(), LockStory(hMutex, "mutex M"));
}

TEST_F(MutexLock, AFiniteWaitThatTimesOutIsAWarning)
{
    os.HoldByOther(hMutex);
    EXPECT_EQ(_DkpfMutexLock(hMutex, 1500), FALSE);
    EXPECT_EQ(Story(), FailedStory("1500", "1500", 2, " Wait timeout(" + A + ") <1500msec>"));
    EXPECT_EQ(os.Locked(hMutex), 0u);
}

TEST_F(MutexLock, ATimeoutOfZeroAsksOnce)
{
    os.HoldByOther(hMutex);
    EXPECT_EQ(_DkpfMutexLock(hMutex, 0), FALSE);
    EXPECT_EQ(os.Elapsed(), 0u);
    EXPECT_EQ(Story(), FailedStory("0", "0", 2, " Wait timeout(" + A + ") <0msec>"));
}

TEST_F(MutexLock, OnlyMinusOneIsInfinite)
{
    os.Return("WaitForSingleObject", 1, WAIT_TIMEOUT);
    EXPECT_EQ(_DkpfMutexLock(hMutex, -2), FALSE);
    EXPECT_EQ(Story(), FailedStory("-2", "4294967294", 2, " Wait timeout(" + A + ") <-2msec>"));
}

TEST_F(MutexLock, AnInfiniteWaitThatTimesOutIsAnError)
{
    os.Return("WaitForSingleObject", 1, WAIT_TIMEOUT);
    EXPECT_EQ(_DkpfMutexLock(hMutex, -1), FALSE);
    EXPECT_EQ(Story(), FailedStory("-1", "INFINITE", 1, " Wait timeout(" + A + ") <INFINITE>"));
}

TEST_F(MutexLock, AFailedWaitNamesTheSystemsError)
{
    os.Fail("WaitForSingleObject", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(_DkpfMutexLock(hMutex, -1), FALSE);
    EXPECT_EQ(Story(), FailedStory("-1", "INFINITE", 1, " WaitForSingleObject(" + A + ") failed.<W32Err=5>"));
}

TEST_F(MutexLock, AnyOtherResultIsAFailure)
{
    for (DWORD result : { 0x1u, 0x81u, 0xC0u, 0x101u, 0xFFFFFF7Fu }) {
        StartStory();
        os.Return("WaitForSingleObject", 1, result, 997);
        EXPECT_EQ(_DkpfMutexLock(hMutex, 10), FALSE) << std::hex << result;
        EXPECT_EQ(Story(), FailedStory("10", "10", 1, " WaitForSingleObject(" + A + ") failed.<W32Err=997>"));
    }
}

TEST_F(MutexLock, NoHandleIsAFailedWait)
{
    std::string none = Alternate(nullptr);
    EXPECT_EQ(_DkpfMutexLock(nullptr, -1), FALSE);
    EXPECT_EQ(TraceStory(), Strings({ T(32, "ENTER<" + none + "><-1msec>"),
                                      T(1, " WaitForSingleObject(" + none + ") failed.<W32Err=6>"),
                                      T(32, "EXIT<" + none + "><FALSE>") }));
}

TEST_F(MutexLock, TheModuleLogNeedsNotBeOpen)
{
    CloseLogs();
    EXPECT_EQ(_DkpfMutexLock(hMutex, -1), TRUE);
    EXPECT_EQ(_DkpfMutexUnlock(hMutex), TRUE);
    EXPECT_EQ(log.Texts("diskperf"), Strings());
}

class MutexUnlock : public MutexLock {
protected:
    Routine U{ "_DkpfMutexUnlock" };
};

TEST_F(MutexUnlock, AnOwnedMutexIsReleased)
{
    EXPECT_EQ(_DkpfMutexLock(hMutex, -1), TRUE);
    StartStory();
    EXPECT_EQ(_DkpfMutexUnlock(hMutex), TRUE);
    EXPECT_EQ(Story(), UnlockStory(hMutex, "mutex M"));
    EXPECT_EQ(os.Locked(hMutex), 0u);
}

TEST_F(MutexUnlock, ARefusedReleaseNamesTheSystemsError)
{
    EXPECT_EQ(_DkpfMutexUnlock(hMutex), FALSE);
    EXPECT_EQ(Story(),
              Strings({ U(32, "ENTER<" + A + ">"), "ReleaseMutex(mutex M)",
                        U(1, " ReleaseMutex(" + A + ") failed.(W32Err=288)"), U(32, "EXIT<" + A + "><FALSE>") }));
}

TEST_F(MutexUnlock, LocksNestAndEachNeedsItsUnlock)
{
    EXPECT_TRUE(_DkpfMutexLock(hMutex, -1));
    EXPECT_TRUE(_DkpfMutexLock(hMutex, -1));
    EXPECT_TRUE(_DkpfMutexUnlock(hMutex));
    EXPECT_EQ(os.Locked(hMutex), 1u);
    EXPECT_TRUE(_DkpfMutexUnlock(hMutex));
    EXPECT_EQ(os.Locked(hMutex), 0u);
}

TEST_F(MutexUnlock, AnyThreadMayLockAndTheCountIsRight)
{
    static const int         Threads = 4, Rounds = 50;
    int                      counted = 0;
    std::vector<std::thread> threads;
    os.UseRealObjects();
    HANDLE hReal = _DkpfCreateMutex("Global\\TNW_DKPF_EXAMPLE");
    for (int t = 0; t < Threads; t++) {
        threads.emplace_back([&] {
            for (int i = 0; i < Rounds; i++) {
                EXPECT_TRUE(_DkpfMutexLock(hReal, -1));
                counted++;  // guarded by the mutex alone
                EXPECT_TRUE(_DkpfMutexUnlock(hReal));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counted, Threads * Rounds);
    EXPECT_EQ(os.misuse, Strings());
    CloseHandle(hReal);
}

/* ---- Module banner ---- */

static const SYSTEMTIME March5 = { 2024, 3, 0, 5, 9, 7, 3, 0 };

class FileStampAndVersion : public TracedTest {
protected:
    void Ask(const char* lpName = "tnwdiskperf.dll")
    {
        _DkpfGetFileStampAndVersion(lpName, szStamp, szVersion);
    }
    // What the callers clear; here filled, to see what is left alone.
    char szStamp[DKPF_BANNER_SIZE] = "stamp before";
    char szVersion[DKPF_BANNER_SIZE] = "version before";
};

TEST_F(FileStampAndVersion, CallsInOrder)
{
    os.AddModule("tnwdiskperf.dll", March5, "1.2.3.4");
    os.errorMode = 0x8002;
    Ask();
    EXPECT_EQ(
        Story(),
        Strings({ "SearchPathA(NULL, tnwdiskperf.dll, NULL, 1024)", "SetErrorMode(0x1)", "SetErrorMode(0x8003)",
                  "CreateFileA(C:\\cluster\\bin\\tnwdiskperf.dll, 0x80000000, 0x3, 3, 0x80, error mode 0x8003)",
                  "SetErrorMode(0x8002)", "GetFileInformationByHandle(file C:\\cluster\\bin\\tnwdiskperf.dll)",
                  "FileTimeToLocalFileTime()", "FileTimeToSystemTime()", "wsprintfA(%d:%d:%d-%d:%d:%d, 2024:3:5-9:7:3)",
                  "CloseHandle(file C:\\cluster\\bin\\tnwdiskperf.dll)",
                  "GetFileVersionInfoSizeA(C:\\cluster\\bin\\tnwdiskperf.dll)", "GlobalAlloc(0x40, 512)",
                  "GetFileVersionInfoA(C:\\cluster\\bin\\tnwdiskperf.dll, 512)",
                  "VerQueryValueA(\\VarFileInfo\\Translation)",
                  "wsprintfA(\\StringFileInfo\\%04x%04x\\FileVersion, \\StringFileInfo\\040904b0\\FileVersion)",
                  "VerQueryValueA(\\StringFileInfo\\040904b0\\FileVersion)", "GlobalFree(512 bytes)" }));
    EXPECT_STREQ(szStamp, "2024:3:5-9:7:3");
    EXPECT_STREQ(szVersion, "1.2.3.4");
    EXPECT_EQ(log.lines.size(), 0u) << "this routine traces nothing";
    ExpectNothingLeft();
}

// Edge case: 00:07:03 UTC is 09:07:03 nine hours further east.
TEST_F(FileStampAndVersion, AFileWrittenOn5March2024At090703LocalTime)
{
    os.AddModule("tnwdiskperf.dll", SYSTEMTIME{ 2024, 3, 0, 5, 0, 7, 3, 0 }, "1.2.3.4");
    os.utcOffset = 540;
    Ask();
    EXPECT_STREQ(szStamp, "2024:3:5-9:7:3");
}

struct StampCase {
    const char* story;
    SYSTEMTIME  written;
    int         utcOffset;
    const char* stamp;
};

class FileStamp : public FileStampAndVersion, public testing::WithParamInterface<StampCase> {
public:
    FileStamp()
    {
    }
};

TEST_P(FileStamp, IsLocalAndHasNoPadding)
{
    os.AddModule("tnwdiskperf.dll", GetParam().written, "");
    os.utcOffset = GetParam().utcOffset;
    Ask();
    EXPECT_STREQ(szStamp, GetParam().stamp);
}

INSTANTIATE_TEST_SUITE_P(
    Times, FileStamp,
    testing::Values(StampCase{ "TwoDigitsEach", { 2026, 12, 0, 31, 23, 59, 58, 999 }, 0, "2026:12:31-23:59:58" },
                    StampCase{ "Midnight", { 2026, 1, 0, 1, 0, 0, 0, 0 }, 0, "2026:1:1-0:0:0" },
                    StampCase{ "OverTheNewYear", { 2025, 12, 0, 31, 23, 30, 0, 0 }, 60, "2026:1:1-0:30:0" },
                    StampCase{ "WestOfUtc", { 2026, 3, 0, 1, 1, 5, 9, 0 }, -120, "2026:2:28-23:5:9" },
                    StampCase{ "LeapDay", { 2024, 2, 0, 29, 12, 0, 0, 0 }, 0, "2024:2:29-12:0:0" }),
    StoryOf());

TEST_F(FileStampAndVersion, AnotherFileThanTheModuleMayBeAskedFor)
{
    os.AddModule("tnwdiskperf.dll", March5, "1.2.3.4");
    os.AddModule("tnwlog.dll", SYSTEMTIME{ 2023, 11, 0, 12, 10, 11, 12, 0 }, "9.8");
    Ask("tnwlog.dll");
    EXPECT_STREQ(szStamp, "2023:11:12-10:11:12");
    EXPECT_STREQ(szVersion, "9.8");
}

TEST_F(FileStampAndVersion, AMissingFileLeavesTheStampAndEmptiesTheVersion)
{
    os.errorMode = 4;
    Ask();
    EXPECT_STREQ(szStamp, "stamp before");
    EXPECT_STREQ(szVersion, "");
    EXPECT_EQ(os.errorMode, 4u);
    EXPECT_EQ(Story(), Strings({ "SearchPathA(NULL, tnwdiskperf.dll, NULL, 1024)", "SetErrorMode(0x1)",
                                 "SetErrorMode(0x5)", "CreateFileA(, 0x80000000, 0x3, 3, 0x80, error mode 0x5)",
                                 "SetErrorMode(0x4)", "GetFileVersionInfoSizeA()" }));
    ExpectNothingLeft();
}

TEST_F(FileStampAndVersion, AFileWithoutAVersionResourceHasAStampOnly)
{
    os.AddModule("tnwdiskperf.dll", March5, "");
    Ask();
    EXPECT_STREQ(szStamp, "2024:3:5-9:7:3");
    EXPECT_STREQ(szVersion, "");
    EXPECT_EQ(journal.Number("GlobalAlloc"), 0u);
    ExpectNothingLeft();
}

TEST_F(FileStampAndVersion, ThePathMayHave1023CharactersAndNotMore)
{
    // "C:\cluster\bin\" is 15 characters long.
    std::string fits(1023 - 15, 'a'), tooLong(1024 - 15, 'b');
    os.AddModule(fits, March5, "1.2.3.4");
    os.AddModule(tooLong, March5, "1.2.3.4");
    Ask(fits.c_str());
    EXPECT_STREQ(szStamp, "2024:3:5-9:7:3");
    EXPECT_STREQ(szVersion, "1.2.3.4");
    strcpy(szStamp, "stamp before");
    Ask(tooLong.c_str());
    EXPECT_STREQ(szStamp, "stamp before");
    EXPECT_STREQ(szVersion, "");
}

TEST_F(FileStampAndVersion, LanguageAndCodePageAreLowerCaseHexWithFourDigits)
{
    os.AddModule("tnwdiskperf.dll", March5, "5.6");
    os.modules["tnwdiskperf.dll"].language = 0x0C0A;
    os.modules["tnwdiskperf.dll"].codePage = 0x00E4;
    Ask();
    std::vector<Call> calls = journal.Of("VerQueryValueA");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].args, "\\StringFileInfo\\0c0a00e4\\FileVersion");
    EXPECT_STREQ(szVersion, "5.6");
}

TEST_F(FileStampAndVersion, AVersionAsLongAsItsBufferStaysInIt)
{
    os.AddModule("tnwdiskperf.dll", March5, std::string(255, '7'));
    Ask();
    EXPECT_EQ(szVersion, std::string(255, '7'));
    os.modules["tnwdiskperf.dll"].version = std::string(400, '8');
    Ask();
    EXPECT_EQ(szVersion, std::string(255, '8'));
    EXPECT_STREQ(szStamp, "2024:3:5-9:7:3");
}

TEST_F(FileStampAndVersion, AResourceWithAnEmptyTranslationHasNoVersion)
{
    os.AddModule("tnwdiskperf.dll", March5, "1.2.3.4");
    os.Return("VerQueryValueA", 1, TRUE);  // TRUE, and no bytes
    Ask();
    EXPECT_STREQ(szVersion, "");
    ExpectNothingLeft();
}

/* ---- Trace logs ---- */

class TraceLogs : public TracedTest {
protected:
    void SetUp() override
    {
        TracedTest::SetUp();
        CloseLogs();
        os.AddModule("tnwdiskperf.dll", March5, "1.2.3.4");
    }
    /* The calls of the logging library and the lines of one routine. */
    Strings LogStory(const std::string& routine) const
    {
        Strings story;
        auto    line = log.lines.begin();
        for (const Call& call : journal.All()) {
            if (call.name == "log_init" || call.name == "log_term") {
                story.push_back(call.name + "(" + call.args + ")");
            } else if (call.name == "log_write") {
                if (line->routine == routine) {
                    story.push_back(Routine(line->routine, line->log)(line->level, line->text));
                }
                ++line;
            }
        }
        return story;
    }
    /* The banners in one log. */
    Strings Banners(const std::string& name) const
    {
        Strings banners;
        for (const TraceLine& line : log.lines) {
            if (line.log == name && line.level == 4 && line.routine == "_DkpfLogInit") {
                banners.push_back(line.text);
            }
        }
        return banners;
    }
    const std::string banner = "===DiskPerf module initialize=T.S.<2024:3:5-9:7:3> Ver<1.2.3.4>=";
};

class LogInit : public TraceLogs {
protected:
    Routine N{ "_DkpfLogInit", "" }, M{ "_DkpfLogInit", "diskperf" }, T{ "_DkpfLogInit", "diskperf_trace" },
        C{ "_DkpfLogInit", "diskperf_conf" };
};

TEST_F(LogInit, OpensTheThreeLogsInOrderEachWithItsBanner)
{
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    EXPECT_EQ(LogStory("_DkpfLogInit"),
              Strings({ N(8, "ENTER"), "log_init(\"diskperf\", 7, 2048, 0, \"osktnw_diskperf_log\")", M(4, banner),
                        "log_init(\"diskperf_trace\", 7, 2048, 0, \"osktnw_diskperf_trace_log\")", T(4, banner),
                        "log_init(\"diskperf_conf\", 7, 2048, 0, \"osktnw_diskperf_conf_log\")", C(4, banner),
                        M(8, "EXIT<TRUE>") }));
    EXPECT_EQ(log.OpenTraces(), Strings({ "diskperf", "diskperf_trace", "diskperf_conf" }));
    EXPECT_NE(g_hDkpfLog, nullptr);
    EXPECT_NE(g_hDkpfTraceLog, nullptr);
    EXPECT_NE(g_hDkpfConfLog, nullptr);
    ExpectNothingLeft();
}

TEST_F(LogInit, LooksAtTheModulesFileThenReadsTheConfigurationThenOpens)
{
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    Strings names = journal.Names({ "SetErrorMode", "wsprintfA", "xmllib_load_policy", "xmllib_load_config",
                                    "xmllib_get_value", "xmllib_unload_config", "xmllib_unload_policy" });
    EXPECT_EQ(names, Strings({ "SearchPathA", "CreateFileA", "GetFileInformationByHandle", "FileTimeToLocalFileTime",
                               "FileTimeToSystemTime", "CloseHandle", "GetFileVersionInfoSizeA", "GlobalAlloc",
                               "GetFileVersionInfoA", "VerQueryValueA", "VerQueryValueA", "GlobalFree", "xmllib_init",
                               "xmllib_term", "log_init", "log_init", "log_init" }));
    EXPECT_EQ(journal.Of("SearchPathA")[0].args, "NULL, tnwdiskperf.dll, NULL, 1024");
}

TEST_F(LogInit, LevelAndSizeComeFromTheConfiguration)
{
    xml.Set("log/level", 39);
    xml.Set("log/size", 512);
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    std::vector<LogDouble::Trace> traces = log.TraceHistory();
    ASSERT_EQ(traces.size(), 3u);
    for (const LogDouble::Trace& trace : traces) {
        EXPECT_EQ(trace.level, 39u) << trace.name;
        EXPECT_EQ(trace.size, 512u) << trace.name;
    }
    EXPECT_EQ(g_dwDkpfLogLevel, 39u) << "bulk dumps look at the level that the module log was opened with";
}

// Edge case.
TEST_F(LogInit, WithTheModuleFileNotOnTheSearchPathBothFieldsAreEmpty)
{
    os.modules.clear();
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    Strings empty = { "===DiskPerf module initialize=T.S.<> Ver<>=" };
    for (const char* name : { "diskperf", "diskperf_trace", "diskperf_conf" }) {
        EXPECT_EQ(Banners(name), empty) << name;
    }
}

TEST_F(LogInit, WithoutAVersionResourceOnlyThatFieldIsEmpty)
{
    os.AddModule("tnwdiskperf.dll", March5, "");
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    EXPECT_EQ(Banners("diskperf"), Strings({ "===DiskPerf module initialize=T.S.<2024:3:5-9:7:3> Ver<>=" }));
}

// Edge case.
TEST_F(LogInit, CalledTwiceOpensEachLogOnceAndWritesTwoBannersIntoEach)
{
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    HTNWLOG hLog = g_hDkpfLog, hTraceLog = g_hDkpfTraceLog, hConfLog = g_hDkpfConfLog;
    xml.Set("log/level", 63);
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    EXPECT_EQ(journal.Number("log_init"), 3u);
    EXPECT_EQ(g_hDkpfLog, hLog);
    EXPECT_EQ(g_hDkpfTraceLog, hTraceLog);
    EXPECT_EQ(g_hDkpfConfLog, hConfLog);
    for (const char* name : { "diskperf", "diskperf_trace", "diskperf_conf" }) {
        EXPECT_EQ(Banners(name), Strings({ banner, banner })) << name;
    }
    EXPECT_EQ(g_dwDkpfLogLevel, 7u) << "the open log keeps the level it was opened with";
}

TEST_F(LogInit, TheSecondBannerSpeaksOfTheFileAsItIsThen)
{
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    os.AddModule("tnwdiskperf.dll", SYSTEMTIME{ 2025, 1, 0, 2, 3, 4, 5, 0 }, "2.0");
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    EXPECT_EQ(Banners("diskperf_conf"),
              Strings({ banner, "===DiskPerf module initialize=T.S.<2025:1:2-3:4:5> Ver<2.0>=" }));
}

class LogInitKeeps : public LogInit, public testing::WithParamInterface<unsigned> {};

// Each combination of logs that are open already: those are kept, the others opened, all get the banner.
TEST_P(LogInitKeeps, WhatIsOpen)
{
    static const char* const names[] = { "diskperf", "diskperf_trace", "diskperf_conf" };
    HTNWLOG* const           handles[] = { &g_hDkpfLog, &g_hDkpfTraceLog, &g_hDkpfConfLog };
    HTNWLOG                  before[3] = {};
    Strings                  expected;
    for (unsigned i = 0; i < 3; i++) {
        if ((GetParam() & (1u << i)) != 0) {
            before[i] = *handles[i] = log.OpenTrace(names[i]);
        } else {
            expected.push_back(names[i]);
        }
    }
    EXPECT_EQ(_DkpfLogInit(), TRUE);
    Strings opened;
    for (const Call& call : journal.Of("log_init")) {
        opened.push_back(call.args.substr(1, call.args.find('"', 1) - 1));
    }
    EXPECT_EQ(opened, expected);
    for (unsigned i = 0; i < 3; i++) {
        EXPECT_NE(*handles[i], nullptr);
        EXPECT_TRUE(before[i] == nullptr || *handles[i] == before[i]) << names[i];
        EXPECT_EQ(Banners(names[i]), Strings({ banner })) << names[i];
    }
}

INSTANTIATE_TEST_SUITE_P(Combinations, LogInitKeeps, testing::Range(0u, 8u));

class LogTerm : public TraceLogs {
protected:
    Routine N{ "_DkpfLogTerm", "" }, M{ "_DkpfLogTerm", "diskperf" };
};

TEST_F(LogTerm, ClosesInTheReverseOrderAndTracesItsExitToNoLog)
{
    ASSERT_EQ(_DkpfLogInit(), TRUE);
    StartStory();
    EXPECT_EQ(_DkpfLogTerm(), TRUE);
    EXPECT_EQ(Story(), Strings({ M(8, "ENTER"), "log_term(\"diskperf_conf\")", "log_term(\"diskperf_trace\")",
                                 "log_term(\"diskperf\")", N(8, "EXIT<TRUE>") }));
    EXPECT_EQ(g_hDkpfLog, nullptr);
    EXPECT_EQ(g_hDkpfTraceLog, nullptr);
    EXPECT_EQ(g_hDkpfConfLog, nullptr);
    EXPECT_EQ(log.OpenTraces(), Strings());
}

TEST_F(LogTerm, WithNoLogOpenClosesNone)
{
    EXPECT_EQ(_DkpfLogTerm(), TRUE);
    EXPECT_EQ(Story(), Strings({ N(8, "ENTER"), N(8, "EXIT<TRUE>") }));
}

TEST_F(LogTerm, ClosesOnlyWhatIsOpen)
{
    g_hDkpfTraceLog = log.OpenTrace("diskperf_trace");
    EXPECT_EQ(_DkpfLogTerm(), TRUE);
    EXPECT_EQ(Story(), Strings({ N(8, "ENTER"), "log_term(\"diskperf_trace\")", N(8, "EXIT<TRUE>") }));
}

TEST_F(LogTerm, OpenAndCloseAgainGivesNewLogsWithOneBannerEach)
{
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(_DkpfLogInit(), TRUE);
        EXPECT_EQ(_DkpfLogTerm(), TRUE);
    }
    EXPECT_EQ(journal.Number("log_init"), 9u);
    EXPECT_EQ(journal.Number("log_term"), 9u);
    EXPECT_EQ(Banners("diskperf_trace"), Strings({ banner, banner, banner }));
    EXPECT_EQ(log.OpenTraces(), Strings());
}
