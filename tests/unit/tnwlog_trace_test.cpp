// Trace logs: the line, the levels, the files, and what happens when a file, a lock or a disk does not do as it should.
#include "support/import_watch.h"
#include "tnwlog_fixture.h"
#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <stdio.h>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

// What the hooks below answer and count. Reset before each test.
struct Calls {
    int                   waits = 0, releases = 0, times = 0, opens = 0, moves = 0;
    DWORD                 waitResult = WAIT_OBJECT_0;
    DWORD                 failMoveAt = 0;  // the n-th rename from now fails as if the file were held
    DWORD                 shortWrite = 0;  // not 0: WriteFile writes so many bytes less of what is longer, and succeeds
    DWORD                 writeError = 0;  // not 0: WriteFile fails with it
    DWORD                 openError = 0;   // not 0: CreateFileW fails with it
    bool                  refuseRead = false;
    bool                  mutexRefused = false;
    bool                  reopened = false;
    bool                  deletePending = false, noLinks = false;  // the next look at an open file finds it so
    DWORD                 mutexError = ERROR_INVALID_HANDLE;       // of a mutex that is refused
    int                   mutexOpens = 0;
    ULONGLONG             ticks = 1000000;
    std::function<void()> otherWriter;  // runs in front of the next WriteFile, or behind it
    bool                  otherIsLater = false;
    std::vector<DWORD>    waitTimes;
    std::vector<std::string> mutexNames;
    int                      nullDacls = 0;
} g_calls;

DWORD WINAPI WaitHook(HANDLE hObject, DWORD dwMs)
{
    g_calls.waits++;
    g_calls.waitTimes.push_back(dwMs);
    return g_calls.waitResult == WAIT_OBJECT_0 ? WaitForSingleObject(hObject, dwMs) : g_calls.waitResult;
}

BOOL WINAPI ReleaseHook(HANDLE hMutex)
{
    g_calls.releases++;
    return ReleaseMutex(hMutex);
}

BOOL WINAPI WriteHook(HANDLE hFile, LPCVOID lpData, DWORD dwLength, LPDWORD lpdwWritten, LPOVERLAPPED lpAt)
{
    if (g_calls.writeError != 0) {
        SetLastError(g_calls.writeError);
        return FALSE;
    }
    const DWORD dwLess = dwLength > g_calls.shortWrite ? g_calls.shortWrite : 0;
    const auto  otherWriter = std::exchange(g_calls.otherWriter, nullptr);
    if (otherWriter && !g_calls.otherIsLater) {
        otherWriter();
    }
    const BOOL bDone = WriteFile(hFile, lpData, dwLength - dwLess, lpdwWritten, lpAt);
    if (otherWriter && g_calls.otherIsLater) {
        otherWriter();
    }
    return bDone;
}

BOOL WINAPI NoCut(HANDLE, FILE_INFO_BY_HANDLE_CLASS, LPVOID, DWORD)
{
    SetLastError(ERROR_IO_DEVICE);
    return FALSE;
}

// As of a handle that may append alone, not write.
BOOL WINAPI CutNeedsWriteAccess(HANDLE hFile, FILE_INFO_BY_HANDLE_CLASS eClass, LPVOID lpInfo, DWORD dwSize)
{
    if (!g_calls.reopened) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    return SetFileInformationByHandle(hFile, eClass, lpInfo, dwSize);
}

// As of an account that may append alone.
BOOL WINAPI CutRefused(HANDLE, FILE_INFO_BY_HANDLE_CLASS, LPVOID, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

HANDLE WINAPI ReOpenRefused(HANDLE, DWORD, DWORD, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
}

HANDLE WINAPI ReOpenHook(HANDLE hFile, DWORD dwAccess, DWORD dwShare, DWORD dwFlags)
{
    g_calls.reopened = (dwAccess & FILE_WRITE_DATA) != 0;
    return ReOpenFile(hFile, dwAccess, dwShare, dwFlags);
}

BOOL WINAPI InfoHook(HANDLE hFile, FILE_INFO_BY_HANDLE_CLASS eClass, LPVOID lpInfo, DWORD dwSize)
{
    const BOOL bDone = GetFileInformationByHandleEx(hFile, eClass, lpInfo, dwSize);
    auto*      lpStandard = static_cast<FILE_STANDARD_INFO*>(lpInfo);

    if (std::exchange(g_calls.deletePending, false)) {
        lpStandard->DeletePending = TRUE;
    }
    if (std::exchange(g_calls.noLinks, false)) {
        lpStandard->NumberOfLinks = 0;
    }
    return bDone;
}

void WINAPI TimeHook(LPSYSTEMTIME lpTime)
{
    g_calls.times++;
    *lpTime = { 2026, 3, 6, 7, 14, 5, 9, 42 };
}

ULONGLONG WINAPI TickHook()
{
    return g_calls.ticks;
}

HANDLE WINAPI OpenHook(LPCWSTR lpPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES lpSa, DWORD dwHow,
                       DWORD dwFlags, HANDLE hTemplate)
{
    g_calls.opens++;
    if (g_calls.openError != 0) {
        SetLastError(g_calls.openError);
        return INVALID_HANDLE_VALUE;
    }
    if (g_calls.refuseRead && (dwAccess & FILE_READ_DATA) != 0) {
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    return CreateFileW(lpPath, dwAccess, dwShare, lpSa, dwHow, dwFlags, hTemplate);
}

BOOL WINAPI MoveHook(LPCWSTR lpFrom, LPCWSTR lpTo, DWORD dwFlags)
{
    g_calls.moves++;
    if (g_calls.failMoveAt != 0 && --g_calls.failMoveAt == 0) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return FALSE;
    }
    return MoveFileExW(lpFrom, lpTo, dwFlags);
}

BOOL WINAPI NoRename(LPCWSTR, LPCWSTR, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

HANDLE WINAPI MutexHook(LPSECURITY_ATTRIBUTES lpSa, BOOL bOwner, LPCWSTR lpName)
{
    const std::wstring name = lpName;
    PACL               lpDacl = nullptr;
    BOOL               bPresent = FALSE, bDefault = FALSE;

    g_calls.mutexNames.push_back(std::string(name.begin(), name.end()));
    if (lpSa != nullptr && GetSecurityDescriptorDacl(lpSa->lpSecurityDescriptor, &bPresent, &lpDacl, &bDefault) &&
        bPresent && lpDacl == nullptr) {
        g_calls.nullDacls++;
    }
    if (g_calls.mutexRefused) {
        SetLastError(g_calls.mutexError);
        return nullptr;
    }
    return CreateMutexW(lpSa, bOwner, lpName);
}

HANDLE WINAPI OpenMutexHook(DWORD dwAccess, BOOL, LPCWSTR lpName)
{
    EXPECT_EQ(DWORD{ SYNCHRONIZE }, dwAccess);
    g_calls.mutexOpens++;
    return CreateMutexW(nullptr, FALSE, lpName);
}

// Acts on the current file when the library closes a handle. Somebody who shares nothing waits for the moment at which
// nobody has the current file open, and keeps it then.
struct Taker {
    std::wstring path;
    int          tries = 0;
    HANDLE       hFile = INVALID_HANDLE_VALUE;
} g_taker;

BOOL WINAPI CloseAndTake(HANDLE hObject)
{
    const BOOL bDone = CloseHandle(hObject);

    if (g_taker.hFile == INVALID_HANDLE_VALUE) {
        g_taker.tries++;
        g_taker.hFile =
            CreateFileW(g_taker.path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    return bDone;
}

// The last handle of a deleted file: now its name is free.
BOOL WINAPI CloseDeletes(HANDLE hObject)
{
    const BOOL bDone = CloseHandle(hObject);

    if (std::exchange(g_calls.openError, 0) != 0) {
        EXPECT_TRUE(DeleteFileW(g_taker.path.c_str()));
    }
    return bDone;
}

// The lock has an owner that does not answer; who writes without it gets the second one.
DWORD WINAPI WaitForTheSecond(HANDLE hObject, DWORD dwMs)
{
    return ++g_calls.waits % 2 != 0 ? WAIT_TIMEOUT : WaitForSingleObject(hObject, dwMs);
}

class Trace : public TnwLogTest {
protected:
    explicit Trace(const wchar_t* lpLeaf = L"home") : TnwLogTest(lpLeaf)
    {
        g_calls = Calls();
    }

    HTNWLOG Open(DWORD dwLevel = 0x3F, DWORD dwSize = 64, const char* lpName = "diskperf")
    {
        HTNWLOG hLog = nullptr;
        EXPECT_EQ(api->log_init(lpName, &hLog, dwLevel, dwSize, 0, "key"), TNWLOG_OK);
        return hLog;
    }

    void Put(HTNWLOG hLog, const std::string& text, DWORD dwLevel = TNWLOG_NOTICE)
    {
        api->log_write(hLog, dwLevel, 0, "src/unit", 7, "Routine", "%s", text.c_str());
    }

    // Text of each line behind "Routine:", or the whole line where it is another one.
    std::vector<std::string> Texts(const wchar_t* lpFile = L"log\\diskperf.log")
    {
        std::vector<std::string> texts = Lines(home.Read(lpFile));
        for (std::string& line : texts) {
            const size_t at = line.find("Routine:");
            line = at == std::string::npos ? line : line.substr(at + 8);
        }
        return texts;
    }

    // All generations, oldest line first.
    std::vector<std::string> AllTexts()
    {
        std::vector<std::string> all;
        for (int n = 15; n >= 0; n--) {
            const std::wstring name = n != 0 ? L"log\\diskperf." + std::to_wstring(n) + L".log" : L"log\\diskperf.log";
            for (std::string& text : Texts(name.c_str())) {
                all.push_back(std::move(text));
            }
        }
        return all;
    }

    // A line that makes a file of 1 KiB full: the next line starts a new one.
    static std::string Big(const std::string& mark)
    {
        return mark + std::string(1100, '.');
    }
};

/* ---- The line ---- */

TEST_F(Trace, ALineHasTimeProcessThreadLevelPlaceAndText)
{
    HTNWLOG hLog = Open();

    Hook("kernel32.dll", "GetLocalTime", TimeHook);
    api->log_write(hLog, TNWLOG_ERROR, 0, "diskperf/src/diskperf_shm", 123, "_DkpfShmOpenMapping",
                   " failed. <W32Err=%d>", 5);
    EXPECT_EQ(home.Read(L"log\\diskperf.log"), "2026/03/07 14:05:09.042 " + std::to_string(GetCurrentProcessId()) +
                                                   ":" + std::to_string(GetCurrentThreadId()) +
                                                   " 0x0001 diskperf/src/diskperf_shm(123) _DkpfShmOpenMapping:"
                                                   " failed. <W32Err=5>\r\n");
    api->log_term(hLog);
}

TEST_F(Trace, FormatsAreThoseOfTheWindowsRuntime)
{
    HTNWLOG hLog = Open();

    api->log_write(hLog, TNWLOG_DETAIL, 0, "s", 1, "Routine", "%I64d|%I64u|%S|%#p|%#x|%ul|%05d|%c|%%", -5LL,
                   18446744073709551615ULL, L"wide", reinterpret_cast<void*>(0x12), 0xB0000028u, 7u, 42, 'c');
    EXPECT_THAT(Texts(), ElementsAre("-5|18446744073709551615|wide|0X0000000000000012|0xb0000028|7l|00042|c|%"));
    api->log_term(hLog);
}

TEST_F(Trace, AnEmptyTextIsALine)
{
    HTNWLOG hLog = Open();

    Put(hLog, "");
    EXPECT_THAT(Texts(), ElementsAre(""));
    api->log_term(hLog);
}

TEST_F(Trace, ADumpOfTheLongestCsvLineIsWhole)
{
    HTNWLOG           hLog = Open();
    const std::string dump = std::string(13438, 'x') + "y";

    Put(hLog, dump, TNWLOG_DUMP);
    EXPECT_THAT(Texts(), ElementsAre(dump));
    api->log_term(hLog);
}

TEST_F(Trace, ATextBeyondTheLongestLineIsCutAndTheLineEnds)
{
    HTNWLOG     hLog = Open();
    std::string text;

    Put(hLog, std::string(20000, 'x'));
    Put(hLog, "next");
    text = home.Read(L"log\\diskperf.log");
    EXPECT_EQ(text.find("\r\n"), 16382u);  // 16,384 with the line end
    EXPECT_THAT(text, EndsWith("Routine:next\r\n"));
    api->log_term(hLog);
}

TEST_F(Trace, LineBreaksInATextBecomeBlanks)
{
    HTNWLOG hLog = Open();

    Put(hLog, "one\r\ntwo\nthree");
    EXPECT_THAT(Texts(), ElementsAre("one  two three"));
    api->log_term(hLog);
}

TEST_F(Trace, MissingPlaceAndFormatAreEmpty)
{
    HTNWLOG hLog = Open();

    api->log_write(hLog, TNWLOG_ERROR, 0, nullptr, 0, nullptr, nullptr);
    EXPECT_THAT(home.Read(L"log\\diskperf.log"), EndsWith(" 0x0001 (0) :\r\n"));
    api->log_term(hLog);
}

/* ---- Levels ---- */

TEST_F(Trace, ALogWritesTheLevelsOfItsMaskAlone)
{
    for (DWORD dwMask : { 0x01u, 0x02u, 0x04u, 0x08u, 0x10u, 0x20u }) {
        HTNWLOG hLog = Open(dwMask);
        for (DWORD dwLevel : { 0x01u, 0x02u, 0x04u, 0x08u, 0x10u, 0x20u }) {
            Put(hLog, std::to_string(dwLevel), dwLevel);
        }
        EXPECT_THAT(Texts(), ElementsAre(std::to_string(dwMask)));
        api->log_term(hLog);
        home.Remove(L"log\\diskperf.log");
    }
}

TEST_F(Trace, TheEventLevelPassesEveryMask)
{
    HTNWLOG hLog = Open(0);

    Put(hLog, "quiet", TNWLOG_ERROR);
    Put(hLog, "loud", TNWLOG_EVENT);
    EXPECT_THAT(Texts(), ElementsAre("loud"));
    api->log_term(hLog);
}

TEST_F(Trace, NoLogWritesNothing)
{
    Put(nullptr, "nowhere", TNWLOG_ERROR);
    api->log_write(nullptr, TNWLOG_EVENT, 0xC00012C5, "s", 1, "r", "");
    EXPECT_TRUE(home.List(L"log").empty());
}

// No call of anything at all: what allocates, formats or asks the system goes through the import table.
TEST_F(Trace, ALineBelowTheLevelFormatsAllocatesAndCallsNothing)
{
    HTNWLOG                  hLog = Open(TNWLOG_ERROR);
    std::vector<std::string> called;

    Put(hLog, "first", TNWLOG_ERROR);
    ImportWatch watch(api->Module(), [&](const ImportWatch::Call& call) {
        called.push_back(call.name);
        return false;
    });
    for (DWORD dwLevel : { TNWLOG_WARNING, TNWLOG_NOTICE, TNWLOG_ENTEREXIT, TNWLOG_DETAIL, TNWLOG_DUMP }) {
        Put(hLog, "below", dwLevel);
    }
    Put(nullptr, "no log", TNWLOG_ERROR);
    EXPECT_THAT(called, testing::IsEmpty());
    Put(hLog, "second", TNWLOG_ERROR);
    EXPECT_THAT(called, testing::IsSupersetOf({ "WriteFile", "_vsnprintf" }));  // it does see
    api->log_term(hLog);
}

// The whole of what a line asks of the system. Nothing is opened, rotated or allocated, and nothing is asked twice.
TEST_F(Trace, AWrittenLineTakesOneLockOneFormatAndOneWriteAndAllocatesNothing)
{
    HTNWLOG                    hLog = Open();
    std::map<std::string, int> called;
    int                        formats = 0, allocations = 0;

    Hook("kernel32.dll", "GetTickCount64", TickHook);  // stands still: the file was opened just now
    Put(hLog, "opens the file");
    {
        ImportWatch watch(api->Module(), [&](const ImportWatch::Call& call) {
            if (call.dll == "kernel32.dll") {
                called[call.name]++;
            }
            formats += call.name == "_vsnprintf";
            allocations += call.name == "malloc" || call.name == "calloc" || call.name == "realloc";
            return false;
        });
        Put(hLog, "second");
    }
    EXPECT_EQ(called, (std::map<std::string, int>{ { "GetLocalTime", 1 },
                                                   { "GetCurrentProcessId", 1 },
                                                   { "GetCurrentThreadId", 1 },
                                                   { "WaitForSingleObject", 1 },
                                                   { "GetTickCount64", 1 },
                                                   { "GetFileInformationByHandleEx", 1 },
                                                   { "SetFilePointerEx", 1 },
                                                   { "WriteFile", 1 },
                                                   { "ReleaseMutex", 1 } }));
    EXPECT_EQ(formats, 1);
    EXPECT_EQ(allocations, 0);  // and no HeapAlloc above
    api->log_term(hLog);
}

/* ---- Size and generations ---- */

TEST_F(Trace, AFileNeverPassesItsBoundByMoreThanOneLine)
{
    HTNWLOG           hLog = Open(0x3F, 2);
    const std::string line(100, 'x');
    size_t            longest = 0;

    Put(hLog, line);
    longest = home.Read(L"log\\diskperf.log").size();
    for (int n = 1; n < 200; n++) {
        Put(hLog, line);
    }
    for (const std::wstring& name : home.List(L"log")) {
        const size_t size = home.Read((L"log\\" + name).c_str()).size();
        EXPECT_LT(size, 2048 + longest);
        EXPECT_TRUE(size >= 2048 || name == L"diskperf.log");
    }
    EXPECT_GT(home.List(L"log").size(), 5u);
    EXPECT_EQ(AllTexts().size(), 200u);
    api->log_term(hLog);
}

TEST_F(Trace, AFileExactlyAtItsBoundIsFull)
{
    HTNWLOG hLog = Open(0x3F, 1);

    home.Write(L"log\\diskperf.log", std::string(1022, 'a') + "\r\n");
    Put(hLog, "");  // finds it so at the opening
    EXPECT_EQ(home.Read(L"log\\diskperf.1.log").size(), 1024u);
    const size_t prefix = home.Read(L"log\\diskperf.log").size();
    Hook("kernel32.dll", "GetTickCount64", TickHook);  // stands still: the file stays open
    Put(hLog, "");
    home.Remove(L"log\\diskperf.1.log");
    Put(hLog, std::string(1024 - 3 * prefix, 'b'));
    EXPECT_EQ(home.Read(L"log\\diskperf.log").size(), 1024u);
    Put(hLog, "next");
    EXPECT_THAT(Texts(), ElementsAre("next"));
    EXPECT_EQ(home.Read(L"log\\diskperf.1.log").size(), 1024u);
    api->log_term(hLog);
}

TEST_F(Trace, FifteenOlderGenerationsAreKeptNewestFirst)
{
    HTNWLOG hLog = Open(0x3F, 1);

    for (int n = 0; n < 20; n++) {
        Put(hLog, Big(std::to_string(n)));
    }
    EXPECT_EQ(home.List(L"log").size(), 16u);
    EXPECT_THAT(Texts(L"log\\diskperf.log"), ElementsAre(Big("19")));
    EXPECT_THAT(Texts(L"log\\diskperf.1.log"), ElementsAre(Big("18")));
    EXPECT_THAT(Texts(L"log\\diskperf.15.log"), ElementsAre(Big("4")));
    api->log_term(hLog);
}

TEST_F(Trace, AFileThatIsThereIsContinued)
{
    HTNWLOG hLog = Open();

    Put(hLog, "before");
    api->log_term(hLog);
    Restart();
    hLog = Open();
    Put(hLog, "after");
    EXPECT_THAT(Texts(), ElementsAre("before", "after"));
    api->log_term(hLog);
}

TEST_F(Trace, LogsOfDifferentNamesDoNotMix)
{
    HTNWLOG hLog = Open(), hTrace = Open(0x3F, 64, "diskperf_trace");

    Put(hLog, "a");
    Put(hTrace, "b");
    EXPECT_THAT(Texts(L"log\\diskperf.log"), ElementsAre("a"));
    EXPECT_THAT(Texts(L"log\\diskperf_trace.log"), ElementsAre("b"));
    api->log_term(hLog);
    api->log_term(hTrace);
}

TEST_F(Trace, AWriterNoticesThatAnotherOneRotated)
{
    HTNWLOG hOne = Open(0x3F, 1), hTwo = Open(0x3F, 1);  // as in two processes: each with a handle of its own

    Put(hOne, "one");
    Put(hTwo, Big("two"));
    Put(hTwo, "two again");  // rotates; the first one's handle now leads to generation 1
    Put(hOne, "one again");
    EXPECT_THAT(Texts(L"log\\diskperf.1.log"), ElementsAre("one", Big("two")));
    EXPECT_THAT(Texts(L"log\\diskperf.log"), ElementsAre("two again", "one again"));
    api->log_term(hOne);
    api->log_term(hTwo);
}

TEST_F(Trace, AnIdleWriterHoldsUpNoRotationHoweverOldItsFileIs)
{
    HTNWLOG hIdle = Open(0x3F, 1), hBusy = Open(0x3F, 1);

    Put(hIdle, Big("oldest"));  // stays open in this handle through all that follows
    for (int n = 0; n < 18; n++) {
        Put(hBusy, Big(std::to_string(n)));
    }
    Put(hIdle, "back");
    EXPECT_THAT(AllTexts(), testing::SizeIs(16));
    EXPECT_THAT(Texts(), ElementsAre("back"));
    EXPECT_THAT(Texts(L"log\\diskperf.1.log"), ElementsAre(Big("17")));
    api->log_term(hIdle);
    api->log_term(hBusy);
}

TEST_F(Trace, ALargerBoundInOneProcessEndsWithinASecond)
{
    HTNWLOG hSmall = Open(0x3F, 1), hLarge = Open(0x3F, 64);

    Hook("kernel32.dll", "GetTickCount64", TickHook);
    Put(hLarge, "large");
    Put(hSmall, Big("small"));
    Put(hSmall, "small again");  // rotated; for the other the renamed file is not full
    Put(hLarge, "late");
    g_calls.ticks += 1000;
    Put(hLarge, "in time");
    EXPECT_THAT(Texts(L"log\\diskperf.1.log"), ElementsAre("large", Big("small"), "late"));
    EXPECT_THAT(Texts(), ElementsAre("small again", "in time"));
    api->log_term(hSmall);
    api->log_term(hLarge);
}

TEST_F(Trace, AFileMovedAwayByHandIsStartedAnew)
{
    HTNWLOG hLog = Open();

    Hook("kernel32.dll", "GetTickCount64", TickHook);
    Put(hLog, "moved");
    home.Move(L"log\\diskperf.log", L"log\\evidence.txt");
    g_calls.ticks += 1000;
    Put(hLog, "new");
    EXPECT_THAT(Texts(L"log\\evidence.txt"), ElementsAre("moved"));
    EXPECT_THAT(Texts(), ElementsAre("new"));
    api->log_term(hLog);
}

// Looked for each second, and once rotated: there is no moment at which nobody has the file open.
TEST_F(Trace, WhoSharesNothingCannotTakeTheFileFromItsOnlyWriter)
{
    HTNWLOG hLog = Open(0x3F, 1);

    Hook("kernel32.dll", "GetTickCount64", TickHook);
    Hook("kernel32.dll", "CloseHandle", CloseAndTake);
    g_taker = Taker();
    g_taker.path = home.Path(L"log\\diskperf.log");
    for (const std::string& text : { std::string("a"), std::string("b"), Big("c"), std::string("d") }) {
        Put(hLog, text);
        g_calls.ticks += 1000;
    }
    EXPECT_EQ(g_taker.tries, 4);  // one for each look behind the first, and one for the rotation
    EXPECT_EQ(g_taker.hFile, INVALID_HANDLE_VALUE);
    if (g_taker.hFile != INVALID_HANDLE_VALUE) {
        CloseHandle(g_taker.hFile);
    }
    hooks.clear();
    EXPECT_THAT(AllTexts(), ElementsAre("a", "b", Big("c"), "d"));
    EXPECT_THAT(Texts(), ElementsAre("d"));
    api->log_term(hLog);
}

// It keeps its name, which nobody can open any more, until the writer itself has let go.
TEST_F(Trace, AFileThatWaitsForItsWriterToBeDeletedIsMadeAnewWithinASecond)
{
    HTNWLOG hLog = Open();

    Hook("kernel32.dll", "GetTickCount64", TickHook);
    Hook("kernel32.dll", "CreateFileW", OpenHook);
    Hook("kernel32.dll", "CloseHandle", CloseDeletes);
    g_taker = Taker();
    g_taker.path = home.Path(L"log\\diskperf.log");
    Put(hLog, "deleted");
    g_calls.openError = ERROR_ACCESS_DENIED;
    g_calls.ticks += 1000;
    Put(hLog, "new");
    EXPECT_EQ(g_calls.openError, 0u);
    EXPECT_THAT(Texts(), ElementsAre("new"));
    hooks.clear();
    api->log_term(hLog);
}

// The system says so in one of two ways, and the name leads to a new file.
TEST_F(Trace, AFileDeletedUnderItsWriterIsOpenedAnewAtOnce)
{
    HTNWLOG hLog = Open();

    Hook("kernel32.dll", "GetTickCount64", TickHook);  // stands still: not because the file is looked for each second
    Hook("kernel32.dll", "GetFileInformationByHandleEx", InfoHook);
    Hook("kernel32.dll", "CreateFileW", OpenHook);
    Put(hLog, "a");
    for (const bool bPending : { true, false }) {
        g_calls.opens = 0;
        (bPending ? g_calls.deletePending : g_calls.noLinks) = true;
        Put(hLog, "b");
        EXPECT_EQ(g_calls.opens, 1);
        Put(hLog, "c");
        EXPECT_EQ(g_calls.opens, 1);
    }
    EXPECT_THAT(Texts(), ElementsAre("a", "b", "c", "b", "c"));
    api->log_term(hLog);
}

/* ---- Rotations that do not come to their end ---- */

TEST_F(Trace, AGapLeftByAKilledRotationIsFilledAndNothingIsLost)
{
    HTNWLOG hLog = nullptr;

    // Fifteen generations were there, the oldest was put aside, and the process died having renamed 14 to 4: gap at 4.
    for (int n = 1; n <= 15; n++) {
        if (n != 4) {
            home.Write((L"log\\diskperf." + std::to_wstring(n) + L".log").c_str(), std::to_string(n) + "\r\n");
        }
    }
    home.Write(L"log\\diskperf.log", Big("current") + "\r\n");
    hLog = Open(0x3F, 1);
    Put(hLog, "new");
    EXPECT_EQ(home.Read(L"log\\diskperf.15.log"), "15\r\n");  // above the gap nothing moves
    EXPECT_EQ(home.Read(L"log\\diskperf.5.log"), "5\r\n");
    EXPECT_EQ(home.Read(L"log\\diskperf.4.log"), "3\r\n");
    EXPECT_EQ(home.Read(L"log\\diskperf.2.log"), "1\r\n");
    EXPECT_EQ(home.Read(L"log\\diskperf.1.log"), Big("current") + "\r\n");
    EXPECT_THAT(Texts(), ElementsAre("new"));
    api->log_term(hLog);
}

TEST_F(Trace, AMissingCurrentFileAfterAKilledRotationIsMadeAnew)
{
    HTNWLOG hLog = nullptr;

    home.Write(L"log\\diskperf.1.log", "older\r\n");  // killed between the last rename and the creation
    hLog = Open(0x3F, 1);
    Put(hLog, "new");
    EXPECT_EQ(home.Read(L"log\\diskperf.1.log"), "older\r\n");
    EXPECT_THAT(Texts(), ElementsAre("new"));
    api->log_term(hLog);
}

TEST_F(Trace, WhatAKilledRotationPutAsideIsDeletedByTheNext)
{
    HTNWLOG hLog = Open(0x3F, 1);

    home.Write(L"log\\diskperf.del-12-345.log", "thrown away\r\n");
    home.Write(L"log\\diskperf.notes.log", "not ours\r\n");
    Put(hLog, Big("a"));
    Put(hLog, "b");
    EXPECT_EQ(home.List(L"log"), (Names{ L"diskperf.1.log", L"diskperf.log", L"diskperf.notes.log" }));
    api->log_term(hLog);
}

TEST_F(Trace, AHeldGenerationDelaysTheRotationAndNoLine)
{
    HTNWLOG hLog = Open(0x3F, 1);
    HANDLE  hReader = nullptr;

    for (const char* lpMark : { "a", "b", "c" }) {
        Put(hLog, Big(lpMark));
    }
    hReader = home.Hold(L"log\\diskperf.1.log", 0);
    Put(hLog, "d");
    Put(hLog, "e");
    EXPECT_THAT(Texts(), ElementsAre(Big("c"), "d", "e"));
    CloseHandle(hReader);
    Put(hLog, "f");
    EXPECT_THAT(Texts(), ElementsAre("f"));
    EXPECT_THAT(AllTexts(), ElementsAre(Big("a"), Big("b"), Big("c"), "d", "e", "f"));
    api->log_term(hLog);
}

TEST_F(Trace, AReaderOfTheCurrentFileDelaysTheRotationAndNoLine)
{
    HTNWLOG hLog = Open(0x3F, 1);
    HANDLE  hReader = nullptr;

    Put(hLog, Big("a"));
    hReader = home.Hold(L"log\\diskperf.log", FILE_SHARE_READ | FILE_SHARE_WRITE);  // as most programs open files
    Put(hLog, "b");
    EXPECT_THAT(Texts(), ElementsAre(Big("a"), "b"));
    CloseHandle(hReader);
    Put(hLog, "c");
    EXPECT_THAT(Texts(), ElementsAre("c"));
    api->log_term(hLog);
}

class FailingRename : public Trace, public testing::WithParamInterface<int> {};

TEST_P(FailingRename, LosesNoLineAndTheNextRotationGoesOn)
{
    HTNWLOG                  hLog = Open(0x3F, 1);
    std::vector<std::string> expected;

    for (const char* lpMark : { "a", "b", "c", "d", "e" }) {
        Put(hLog, Big(lpMark));
        expected.push_back(Big(lpMark));
    }
    // Four generations and the current file: five renames.
    Hook("kernel32.dll", "MoveFileExW", MoveHook);
    g_calls.failMoveAt = static_cast<DWORD>(GetParam());
    for (const char* lpMark : { "f", "g" }) {
        Put(hLog, lpMark);
        expected.push_back(lpMark);
    }
    EXPECT_EQ(AllTexts(), expected);
    EXPECT_THAT(Texts(), ElementsAre("g"));
    api->log_term(hLog);
}

INSTANTIATE_TEST_SUITE_P(EachStep, FailingRename, testing::Range(1, 6));

/* ---- Files that cannot be opened or written ---- */

TEST_F(Trace, AMissingFolderCostsLinesNeverAStart)
{
    HTNWLOG hLog = nullptr;

    home.Remove(L"log");
    hLog = Open();
    ASSERT_NE(hLog, nullptr);
    Put(hLog, "lost");
    Put(hLog, "lost too");
    EXPECT_FALSE(home.Exists(L"log"));  // set-up makes it, with the right access
    home.MakeFolder(L"log");
    Put(hLog, "here");
    ASSERT_EQ(Texts().size(), 2u);
    EXPECT_THAT(Texts()[0], HasSubstr(" 0x0002 platform/tnwlog/line("));
    EXPECT_THAT(Texts()[0], EndsWith(") log_write: 2 lines were dropped, the file could not be written."));
    EXPECT_EQ(Texts()[1], "here");
    Put(hLog, "once told");
    EXPECT_EQ(Texts().size(), 3u);
    api->log_term(hLog);
}

// No right to make the file, or to write the one that is there: readers of performance data start all the same.
TEST_F(Trace, AFolderWithoutWriteRightsCostsLinesNeverAStart)
{
    HTNWLOG hLog = nullptr;

    for (DWORD dwW32 : { 5u, 19u, 3u, 32u, 112u }) {  // refused, write-protected, no path, held, full
        Hook("kernel32.dll", "CreateFileW", OpenHook);
        g_calls.openError = dwW32;
        hLog = Open();
        ASSERT_NE(hLog, nullptr);
        Put(hLog, "lost");
        api->log_write(hLog, TNWLOG_EVENT, 0x800012C1, "s", 1, "r", "lost too");
        EXPECT_TRUE(home.List(L"log").empty());
        hooks.clear();
        Put(hLog, "here");
        EXPECT_THAT(Texts(), ElementsAre(HasSubstr(": 2 lines were dropped"),
                                         HasSubstr(": 1 event entries were dropped"), "here"));
        api->log_term(hLog);
        home.Remove(L"log\\diskperf.log");
    }
}

// The file may be written, but nothing in the folder renamed: it grows.
TEST_F(Trace, AFolderInWhichNothingMayBeRenamedCostsNoLine)
{
    HTNWLOG hLog = Open(0x3F, 1);

    Hook("kernel32.dll", "MoveFileExW", NoRename);
    for (const char* lpMark : { "a", "b", "c" }) {
        Put(hLog, Big(lpMark));
    }
    EXPECT_THAT(Texts(), ElementsAre(Big("a"), Big("b"), Big("c")));
    EXPECT_EQ(home.List(L"log"), Names{ L"diskperf.log" });
    api->log_term(hLog);
}

TEST_F(Trace, AFileHeldWithoutSharingDropsLinesUntilItIsFree)
{
    HTNWLOG hLog = Open();
    HANDLE  hReader = nullptr;

    home.Write(L"log\\diskperf.log", "");
    hReader = home.Hold(L"log\\diskperf.log", 0);
    Put(hLog, "lost");
    CloseHandle(hReader);
    Put(hLog, "here");
    ASSERT_EQ(Texts().size(), 2u);
    EXPECT_THAT(Texts()[0], HasSubstr(": 1 lines were dropped"));
    api->log_term(hLog);
}

TEST_F(Trace, AnAccountThatMayOnlyAppendAppends)
{
    HTNWLOG hLog = Open();

    home.Write(L"log\\diskperf.log", "old\r\n");
    Hook("kernel32.dll", "CreateFileW", OpenHook);
    g_calls.refuseRead = true;
    Put(hLog, "new");
    EXPECT_THAT(Texts(), ElementsAre("old", "new"));
    api->log_term(hLog);
}

TEST_F(Trace, AShortWriteOfAFullDiskLeavesNoPartOfTheLine)
{
    HTNWLOG hLog = Open();

    Put(hLog, "before");
    Hook("kernel32.dll", "WriteFile", WriteHook);
    g_calls.shortWrite = 10;
    Put(hLog, "does not fit");
    EXPECT_THAT(Texts(), ElementsAre("before"));
    g_calls.shortWrite = 0;
    Put(hLog, "after");
    ASSERT_EQ(Texts().size(), 3u);
    EXPECT_THAT(Texts()[1], HasSubstr(": 1 lines were dropped"));
    EXPECT_EQ(Texts()[2], "after");
    api->log_term(hLog);
}

TEST_F(Trace, AShortWriteIsTakenBackThoughTheHandleMayAppendAlone)
{
    HTNWLOG hLog = Open();

    Put(hLog, "before");
    Hook("kernel32.dll", "WriteFile", WriteHook);
    Hook("kernel32.dll", "SetFileInformationByHandle", CutNeedsWriteAccess);
    Hook("kernel32.dll", "ReOpenFile", ReOpenHook);
    g_calls.shortWrite = 10;
    Put(hLog, "does not fit");
    EXPECT_THAT(Texts(), ElementsAre("before"));
    EXPECT_TRUE(g_calls.reopened);
    api->log_term(hLog);
}

// A line that did not get the lock may land right in front of a part of one that did, or behind it. It stays.
TEST_F(Trace, AShortWriteTakesNoLineOfAnotherWriterAway)
{
    for (const bool bLater : { false, true }) {
        HTNWLOG hOwner = Open(), hLate = Open();

        Put(hOwner, "before");
        Hook("kernel32.dll", "WriteFile", WriteHook);
        Hook("kernel32.dll", "WaitForSingleObject", WaitHook);
        g_calls.shortWrite = 10;
        g_calls.otherIsLater = bLater;
        g_calls.otherWriter = [&] {
            const DWORD dwShort = std::exchange(g_calls.shortWrite, 0);
            g_calls.waitResult = WAIT_TIMEOUT;
            Put(hLate, "late");
            g_calls.waitResult = WAIT_OBJECT_0;
            g_calls.shortWrite = bLater ? 0 : dwShort;
        };
        Put(hOwner, "owner, cut off");
        hooks.clear();
        Put(hLate, "next");
        const std::vector<std::string> texts = Texts();
        if (bLater) {
            EXPECT_THAT(texts, ElementsAre("before", "owner,", "late", "next"));
        } else {
            EXPECT_THAT(texts, ElementsAre("before", "late", "owner,", "next"));
        }
        api->log_term(hOwner);
        api->log_term(hLate);
        home.Remove(L"log\\diskperf.log");
    }
}

// Another writer has the file open and does not look at its end.
TEST_F(Trace, APartThatCannotBeTakenBackIsClosedBeforeAnotherWritersLine)
{
    HTNWLOG hLog = Open(), hOther = Open();

    Hook("kernel32.dll", "GetTickCount64", TickHook);  // stands still: both have just opened the file
    Put(hLog, "before");
    Put(hOther, "other");
    {
        ImportHook write(api->Module(), "kernel32.dll", "WriteFile", WriteHook);
        ImportHook cut(api->Module(), "kernel32.dll", "SetFileInformationByHandle", NoCut);
        g_calls.shortWrite = 10;
        Put(hLog, "owner, cut off");
    }
    Put(hOther, "next");
    EXPECT_THAT(Texts(), ElementsAre("before", "other", "owner,", "next"));
    api->log_term(hLog);
    api->log_term(hOther);
}

TEST_F(Trace, ARefusedWriteIsCountedAndTheNextLineTriesAgain)
{
    HTNWLOG hLog = Open();

    Hook("kernel32.dll", "WriteFile", WriteHook);
    for (DWORD dwW32 : { 112u, 5u, 21u }) {  // full, refused, not ready
        g_calls.writeError = dwW32;
        Put(hLog, "lost");
    }
    g_calls.writeError = 0;
    Put(hLog, "here");
    ASSERT_EQ(Texts().size(), 2u);
    EXPECT_THAT(Texts()[0], HasSubstr(": 3 lines were dropped"));
    api->log_term(hLog);
}

TEST_F(Trace, AHalfWrittenLastLineIsClosed)
{
    HTNWLOG hLog = Open();

    home.Write(L"log\\diskperf.log", "whole\r\nhal");
    Put(hLog, "next");
    EXPECT_THAT(Texts(), ElementsAre("whole", "hal", "next"));
    api->log_term(hLog);
}

TEST_F(Trace, AHalfLineEndIsCompleted)
{
    HTNWLOG hLog = Open();

    home.Write(L"log\\diskperf.log", "whole\r");
    Put(hLog, "next");
    EXPECT_THAT(Texts(), ElementsAre("whole", "next"));
    api->log_term(hLog);
}

TEST_F(Trace, NulsThatAPowerLossLeftAreCut)
{
    HTNWLOG hLog = Open();

    home.Write(L"log\\diskperf.log", "whole\r\nhal" + std::string(9000, '\0'));
    Put(hLog, "next");
    EXPECT_THAT(Texts(), ElementsAre("whole", "hal", "next"));
    api->log_term(hLog);
}

TEST_F(Trace, NulsThatTheAccountMayNotCutAreEndedAsALineAndCostNone)
{
    const std::string left = "hal" + std::string(90, '\0');
    HTNWLOG           hLog = Open();

    home.Write(L"log\\diskperf.log", "whole\r\n" + left);
    Hook("kernel32.dll", "SetFileInformationByHandle", CutRefused);
    Hook("kernel32.dll", "ReOpenFile", ReOpenRefused);
    Hook("kernel32.dll", "GetTickCount64", TickHook);
    Put(hLog, "next");
    g_calls.ticks += 1000;  // looked at again
    Put(hLog, "and one");
    EXPECT_THAT(Texts(), ElementsAre("whole", left, "next", "and one"));
    api->log_term(hLog);
}

// The machine went down: whatever arrived of the last two lines, with or without NULs behind it, the log goes on with
// whole lines, and the torn one stands alone.
TEST_F(Trace, CutAtAnyByteTheFileGoesOnWithWholeLines)
{
    const std::string one = "first line\r\n", two = "second line\r\n", whole = one + two;

    for (size_t cut = 0; cut <= whole.size(); cut++) {
        for (size_t nuls : { 0u, 1u, 511u, 4096u, 9000u }) {
            const std::string        left = whole.substr(0, cut);
            std::vector<std::string> expected = Lines(left + (left.empty() || left.back() == '\n' ? "" : "\r\n"));
            // Half a line end is completed.
            if (!left.empty() && left.back() == '\r') {
                expected.back().pop_back();
            }
            expected.push_back("third");

            home.Write(L"log\\diskperf.log", left + std::string(nuls, '\0'));
            HTNWLOG hLog = Open();
            Put(hLog, "third");
            api->log_term(hLog);
            ASSERT_EQ(Texts(), expected) << cut << " + " << nuls;
        }
    }
}

/* ---- Every call in turn ---- */

// Calls of the library itself, in an order that is the same in every run.
class EachCall : public Trace {
protected:
    // A generation, and a current file that is whole or has what a power loss left: half a line, and NULs.
    void MakeFiles(bool bPowerLoss = true)
    {
        home.Remove(L"log");
        home.MakeFolder(L"log");
        home.Write(L"log\\diskperf.1.log", "Routine:older\r\n");
        home.Write(L"log\\diskperf.log",
                   "Routine:whole\r\nRoutine:hal" + (bPowerLoss ? std::string(100, '\0') : "\r\n"));
    }

    static std::string Text(int n)
    {
        return "line " + std::to_string(n) + std::string(300, '.');
    }
};

// The n-th call that can fail does, alone or with those behind it. What was not dropped is there, once and in order;
// what was dropped is counted; the first line that finds the cause gone is written.
TEST_F(EachCall, ThatFailsCostsLinesThatAreCountedAndNoOther)
{
    const int nLines = 10;
    int       nRuns = 0, nDropped = 0;

    struct {
        DWORD dwError;
        int   nWidth;
    } const aTrouble[] = {
        { ERROR_ACCESS_DENIED, 1 }, { ERROR_IO_DEVICE, 1 }, { ERROR_IO_DEVICE, 4 }, { ERROR_DISK_FULL, 1000 }
    };

    for (const auto& trouble : aTrouble) {
        const DWORD dwError = trouble.dwError;
        const int   nWidth = trouble.nWidth;
        int         nCalls = 0;
        for (int nFirst = 1; nFirst <= nCalls + 1; nFirst++, nRuns++) {
            // Who is refused to read, but may append, does not see what a power loss left.
            MakeFiles(dwError != ERROR_ACCESS_DENIED);
            HTNWLOG hLog = Open(0x3F, 1);
            {
                ImportWatch watch(api->Module(), [&](const ImportWatch::Call& call) {
                    return ImportWatch::CanFail(call) && ++nCalls >= nFirst && nCalls < nFirst + nWidth;
                });
                watch.Error = dwError;
                nCalls = 0;
                for (int n = 1; n <= nLines; n++) {
                    Put(hLog, Text(n));
                }
            }
            Put(hLog, "last");
            Put(hLog, "and one");  // tells of lines that went without the lock
            api->log_term(hLog);

            std::vector<std::string>       expected = { "older", "whole", "hal" }, found;
            const std::vector<std::string> all = AllTexts();
            int                            nLost = 0, nTold = 0;
            for (const std::string& text : all) {
                const size_t at = text.find(" log_write: ");
                if (at == std::string::npos) {
                    // Cut off by the owner of the lock alone.
                    found.push_back(text.substr(0, text.find('\0')));
                } else if (text.find("dropped") != std::string::npos) {
                    nTold += atoi(text.c_str() + at + 12);
                }
            }
            for (int n = 1; n <= nLines; n++) {
                if (std::find(found.begin(), found.end(), Text(n)) != found.end()) {
                    expected.push_back(Text(n));
                } else {
                    nLost++;
                }
            }
            expected.push_back("last");
            expected.push_back("and one");
            ASSERT_EQ(found, expected) << "call " << nFirst << " to " << nFirst + nWidth << ", error " << dwError;
            ASSERT_EQ(nTold, nLost) << "call " << nFirst << " to " << nFirst + nWidth << ", error " << dwError;
            nDropped += nLost;
        }
        EXPECT_GT(nCalls, 40);
    }
    EXPECT_GT(nDropped, 0);
    std::cout << nRuns << " runs, " << nDropped << " lines dropped and counted" << std::endl;
}

// The owner of the lock stands still in front of any of the calls of a rotation; another process, tired of waiting,
// writes without the lock. Then the owner goes on. So it does after a power loss, which the owner has to mend first.
class StandingOwner : public EachCall, public testing::WithParamInterface<bool> {};

TEST_P(StandingOwner, TakesNoLineAwayThatCameWithoutTheLock)
{
    int nCalls = 0, nFirst = 0, nStands = 0;

    for (nFirst = 1; nFirst <= nCalls + 1; nFirst++) {
        MakeFiles();
        HTNWLOG hOwner = Open(0x3F, 1), hLate = Open(0x3F, 1);
        if (GetParam()) {
            home.Write(L"log\\diskperf.log", "Routine:" + Big("full") + "\r\nRoutine:hal" + std::string(5000, '\0'));
        } else {
            Put(hLate, Big("full"));
        }
        bool late = false, stood = false;
        {
            ImportWatch watch(api->Module(), [&](const ImportWatch::Call& call) {
                if (late) {
                    return call.name == "WaitForSingleObject";  // as for one who does not get the lock
                }
                // Between the last look at the file's end and the cut there is nothing that could be done.
                if (call.dll == "kernel32.dll" && ++nCalls == nFirst && call.name != "SetFileInformationByHandle") {
                    late = stood = true;
                    Put(hLate, "late");
                    late = false;
                }
                return false;
            });
            nCalls = 0;
            Put(hOwner, "owner");
        }
        Put(hLate, "last");
        Put(hOwner, "last");
        api->log_term(hOwner);
        api->log_term(hLate);

        std::vector<std::string> found = AllTexts();
        // Empty: both closed the half line.
        found.erase(std::remove_if(found.begin(), found.end(),
                                   [](const std::string& text) {
                                       return text.empty() || text.find("without the lock") < text.size();
                                   }),
                    found.end());
        for (std::string& text : found) {
            text = text.substr(0, text.find('\0'));  // NULs that a late line stands behind
        }
        // The two lines are in the order in which they were written; that of the owner is its last but a few calls.
        if (stood) {
            nStands++;
            auto at = std::find(found.begin(), found.end(), "late");
            ASSERT_NE(at, found.end()) << nFirst;
            found.erase(at);
        }
        std::vector<std::string> expected = { "older", "whole", "hal", Big("full"), "owner", "last", "last" };
        if (GetParam()) {
            expected = { "older", Big("full"), "hal", "owner", "last", "last" };
        }
        ASSERT_EQ(found, expected) << nFirst;
    }
    EXPECT_GT(nStands, 20);
    std::cout << nStands << " calls to stand still at" << std::endl;
}

INSTANTIATE_TEST_SUITE_P(, StandingOwner, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "AfterAPowerLoss" : "InARotation"; });

/* ---- The lock ---- */

TEST_F(Trace, TheLocksAreOpenToEveryAccountAndNamedByHomeAndLog)
{
    HTNWLOG hLog = nullptr;

    Hook("kernel32.dll", "CreateMutexW", MutexHook);
    hLog = Open();
    ASSERT_EQ(g_calls.mutexNames.size(), 2u);
    EXPECT_EQ(g_calls.nullDacls, 2);
    EXPECT_THAT(g_calls.mutexNames[0], testing::MatchesRegex("Global.TNW_LOG_\\w+_diskperf"));
    EXPECT_EQ(g_calls.mutexNames[1], g_calls.mutexNames[0] + ".late");
    api->log_term(hLog);
}

TEST_F(Trace, TheLockDoesNotDependOnHowANameIsSpelled)
{
    HTNWLOG hLog = nullptr, hUpper = nullptr;

    Hook("kernel32.dll", "CreateMutexW", MutexHook);
    hLog = Open();
    hUpper = Open(0x3F, 64, "DISKPERF");
    ASSERT_EQ(g_calls.mutexNames.size(), 4u);
    EXPECT_EQ(g_calls.mutexNames[0], g_calls.mutexNames[2]);
    api->log_term(hLog);
    api->log_term(hUpper);
}

// Two processes are two copies of the library, each with the spelling that it was loaded by.
TEST_F(Trace, TheLockDependsOnTheHomeAndNotOnHowItsPathIsSpelled)
{
    std::wstring upper = path;
    TestHome     other(L"other");

    std::transform(upper.begin(), upper.end(), upper.begin(), towupper);
    ASSERT_NE(upper, path);
    const std::wstring spellings[] = { path, upper, upper.substr(4) /* without \\?\ */, other.Install(L"tnwlog.dll") };
    for (const std::wstring& spelling : spellings) {
        path = spelling;
        Restart();
        ASSERT_NE(api->Module(), nullptr);
        Hook("kernel32.dll", "CreateMutexW", MutexHook);
        api->log_term(Open());
    }
    ASSERT_EQ(g_calls.mutexNames.size(), 8u);
    EXPECT_EQ(g_calls.mutexNames[0], g_calls.mutexNames[2]);
    EXPECT_EQ(g_calls.mutexNames[0], g_calls.mutexNames[4]);
    EXPECT_NE(g_calls.mutexNames[0], g_calls.mutexNames[6]);
}

TEST_F(Trace, ASuspendedOwnerDelaysAProcessOnceAndAtMostHalfASecond)
{
    HTNWLOG hLog = Open();

    Hook("kernel32.dll", "WaitForSingleObject", WaitHook);
    g_calls.waitResult = WAIT_TIMEOUT;
    Put(hLog, "first");
    ASSERT_EQ(g_calls.waitTimes.size(), 2u);
    EXPECT_LE(g_calls.waitTimes[0] + g_calls.waitTimes[1], 500u);
    EXPECT_GT(g_calls.waitTimes[0], 0u);
    g_calls.waitTimes.clear();
    Put(hLog, "second");
    EXPECT_EQ(g_calls.waitTimes[0], 0u);
    EXPECT_THAT(Texts(), ElementsAre("first", "second"));
    api->log_term(hLog);
}

TEST_F(Trace, LinesWithoutTheLockAreCountedAndToldWhenItAnswersAgain)
{
    HTNWLOG hLog = Open();

    Hook("kernel32.dll", "WaitForSingleObject", WaitHook);
    g_calls.waitResult = WAIT_TIMEOUT;
    Put(hLog, "a");
    Put(hLog, "b");
    g_calls.waitResult = WAIT_OBJECT_0;
    Put(hLog, "c");
    Put(hLog, "d");
    ASSERT_EQ(Texts().size(), 5u);
    EXPECT_EQ(Texts()[2], "c");  // whether the lock answers shows only when this line has it
    EXPECT_THAT(Texts()[3], HasSubstr(": 2 lines were written without the lock"));
    EXPECT_EQ(Texts()[4], "d");
    api->log_term(hLog);
}

TEST_F(Trace, ACountThatCouldNotBeToldIsToldLater)
{
    HTNWLOG hLog = Open();

    Hook("kernel32.dll", "WaitForSingleObject", WaitHook);
    Hook("kernel32.dll", "WriteFile", WriteHook);
    g_calls.waitResult = WAIT_TIMEOUT;
    Put(hLog, "late");
    g_calls.waitResult = WAIT_OBJECT_0;
    Put(hLog, "has the lock");
    g_calls.writeError = ERROR_DISK_FULL;
    Put(hLog, "lost with the count");
    g_calls.writeError = 0;
    Put(hLog, "here");
    ASSERT_EQ(Texts().size(), 5u);
    EXPECT_THAT(Texts()[2], HasSubstr(": 1 lines were dropped"));
    EXPECT_THAT(Texts()[3], HasSubstr(": 1 lines were written without the lock"));
    EXPECT_EQ(Texts()[4], "here");
    api->log_term(hLog);
}

TEST_F(Trace, WhoWritesWithoutTheLockGivesTheSecondOneBack)
{
    HTNWLOG hLog = Open();

    Hook("kernel32.dll", "WaitForSingleObject", WaitForTheSecond);
    Hook("kernel32.dll", "ReleaseMutex", ReleaseHook);
    Put(hLog, "a");
    Put(hLog, "b");
    EXPECT_EQ(g_calls.waits, 4);
    EXPECT_EQ(g_calls.releases, 2);
    EXPECT_THAT(Texts(), ElementsAre("a", "b"));
    api->log_term(hLog);
}

TEST_F(Trace, NothingIsRotatedWithoutTheLock)
{
    HTNWLOG hLog = Open(0x3F, 1);

    Put(hLog, Big("full"));
    Hook("kernel32.dll", "WaitForSingleObject", WaitHook);
    g_calls.waitResult = WAIT_TIMEOUT;
    Put(hLog, "behind the bound");
    EXPECT_EQ(home.List(L"log"), Names{ L"diskperf.log" });
    EXPECT_THAT(Texts(), ElementsAre(Big("full"), "behind the bound"));
    api->log_term(hLog);
}

TEST_F(Trace, ALockWhoseOwnerWasKilledIsTaken)
{
    HTNWLOG hLog = Open(0x3F, 1);

    Put(hLog, Big("full"));
    Hook("kernel32.dll", "WaitForSingleObject", WaitHook);
    g_calls.waitResult = WAIT_ABANDONED;
    Put(hLog, "new");
    EXPECT_THAT(Texts(), ElementsAre("new"));  // rotated: that is for the lock's owner alone
    api->log_term(hLog);
}

TEST_F(Trace, APartOfALineThatAKilledOwnerLeftIsClosedAlsoBehindAnOpenHandle)
{
    HTNWLOG hLog = Open();
    HANDLE  hFile = INVALID_HANDLE_VALUE;
    DWORD   dwWritten = 0;

    Put(hLog, "before");
    hFile = CreateFileW(home.Path(L"log\\diskperf.log").c_str(), FILE_APPEND_DATA,
                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_TRUE(WriteFile(hFile, "hal", 3, &dwWritten, nullptr));
    CloseHandle(hFile);
    Hook("kernel32.dll", "WaitForSingleObject", WaitHook);
    g_calls.waitResult = WAIT_ABANDONED;
    Put(hLog, "next");
    EXPECT_THAT(Texts(), ElementsAre("before", "hal", "next"));
    api->log_term(hLog);
}

TEST_F(Trace, ALockThatCannotBeHadDoesNotStopTheLog)
{
    HTNWLOG hLog = nullptr;

    Hook("kernel32.dll", "CreateMutexW", MutexHook);
    g_calls.mutexRefused = true;
    hLog = Open();
    ASSERT_NE(hLog, nullptr);
    Put(hLog, "line");
    EXPECT_THAT(Texts(), ElementsAre("line"));
    api->log_term(hLog);
}

// Made by an account that kept it to itself but for waiting.
TEST_F(Trace, ALockThatMayNotBeMadeIsOpened)
{
    HTNWLOG hLog = nullptr;

    Hook("kernel32.dll", "CreateMutexW", MutexHook);
    Hook("kernel32.dll", "OpenMutexW", OpenMutexHook);
    g_calls.mutexRefused = true;
    g_calls.mutexError = ERROR_ACCESS_DENIED;
    hLog = Open();
    EXPECT_EQ(g_calls.mutexOpens, 2);
    Put(hLog, "one");
    Put(hLog, "two");
    EXPECT_THAT(Texts(), ElementsAre("one", "two"));  // no count of lines without the lock
    api->log_term(hLog);
}

/* ---- Memory ---- */

TEST_F(Trace, WithoutMemoryNoLogOpensAndNothingStaysBehind)
{
    HTNWLOG hLog = nullptr;

    for (int n = 1; n <= 2; n++) {
        hLog = reinterpret_cast<HTNWLOG>(this);
        FailMemoryAt(n);
        EXPECT_EQ(api->log_init("diskperf", &hLog, 1, 64, 0, "k"), TNWLOG_NO_MEMORY) << n;
        EXPECT_EQ(hLog, nullptr) << n;
        EXPECT_EQ(Memory::held, 0) << n;
    }
    FailMemoryAt(3);
    hLog = Open();  // takes two pieces
    api->log_term(hLog);
    EXPECT_EQ(Memory::held, 0);
}

/* ---- The home ---- */

class OtherLetters : public Trace {
protected:
    OtherLetters() : Trace(L"H\u00E4user \u6771\u4EAC")
    {
    }
};

TEST_F(OtherLetters, AHomeWithOtherLettersIsAHome)
{
    HTNWLOG hLog = Open();

    Put(hLog, "line");
    EXPECT_THAT(Texts(), ElementsAre("line"));
    api->log_term(hLog);
}

class DeepHome : public Trace {
protected:
    DeepHome() : Trace((std::wstring(120, L'a') + L"\\" + std::wstring(120, L'b')).c_str())
    {
    }
};

TEST_F(DeepHome, APathOfMoreThan260CharactersIsNoLimit)
{
    HTNWLOG hLog = Open();

    ASSERT_GT(home.Path(L"log\\diskperf.log").size(), 260u);
    Put(hLog, "line");
    EXPECT_THAT(Texts(), ElementsAre("line"));
    api->log_term(hLog);
}

}  // namespace
