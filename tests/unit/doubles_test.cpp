/*
 * The doubles themselves, called through the import table of probe.dll.
 */
#include "support/hooked_module.h"
#include "support/probe.h"

#include <errno.h>
#include <string.h>

class Doubles : public HookedModuleTest {
protected:
    Doubles() : HookedModuleTest("probe.dll")
    {
    }
    void SetUp() override
    {
        HookedModuleTest::SetUp();
        ProbeFill(&call);
    }
    Probe call;
};

/* ---- Hooks ---- */

TEST_F(Doubles, EveryKnownCallIsReplaced)
{
    for (const std::string& name : Os::Known()) {
        EXPECT_TRUE(os.Hooked(name)) << name;
    }
    EXPECT_FALSE(os.Hooked("NoSuchCall"));
}

TEST_F(Doubles, HooksReportWhatTheModuleImports)
{
    EXPECT_TRUE(hooks.Imports("KERNEL32.dll", "CreateMutexA"));
    EXPECT_TRUE(hooks.Imports("tnwlog.dll", WORD{ 3 }));
    EXPECT_FALSE(hooks.Imports("tnwlog.dll", WORD{ 4 }));
    EXPECT_FALSE(hooks.Imports("tnwlog.dll", "log_write")) << "bound by ordinal alone";
    EXPECT_FALSE(hooks.Replace("kernel32.dll", "NoSuchCall", nullptr));
}

TEST_F(Doubles, HooksLeaveTheTestProgramAlone)
{
    HANDLE real = CreateMutexA(nullptr, FALSE, nullptr);
    EXPECT_EQ(journal.Number("CreateMutexA"), 0u);
    EXPECT_TRUE(CloseHandle(real));
}

TEST_F(Doubles, RestoredHooksReachTheSystemAgain)
{
    hooks.RestoreAll();
    ProbeFill(&call);
    HANDLE real = call.CreateMutexA(nullptr, FALSE, nullptr);
    EXPECT_EQ(journal.Number("CreateMutexA"), 0u);
    EXPECT_TRUE(CloseHandle(real));
}

/* ---- Failures ---- */

TEST_F(Doubles, TheNthCallFailsWithItsError)
{
    os.Fail("CreateEventA", 2, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_NE(call.CreateEventA(nullptr, TRUE, FALSE, nullptr), nullptr);
    EXPECT_EQ(call.CreateEventA(nullptr, TRUE, FALSE, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_NOT_ENOUGH_MEMORY });
    EXPECT_NE(call.CreateEventA(nullptr, TRUE, FALSE, nullptr), nullptr);
    EXPECT_EQ(journal.Of("CreateEventA")[1].result, "0x0 err=8");
}

TEST_F(Doubles, PlansCountFromTheLastReset)
{
    call.GetTickCount();
    call.CreateMutexA(nullptr, FALSE, nullptr);
    journal.ResetPlans();
    os.Fail("CreateMutexA", 1, ERROR_ACCESS_DENIED, 2);
    EXPECT_EQ(call.CreateMutexA(nullptr, FALSE, nullptr), nullptr);
    EXPECT_EQ(call.CreateMutexA(nullptr, FALSE, nullptr), nullptr);
    EXPECT_NE(call.CreateMutexA(nullptr, FALSE, nullptr), nullptr);
}

TEST_F(Doubles, RegistryCallsReportByTheirResult)
{
    HKEY key = nullptr;
    os.Fail("RegOpenKeyExA", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(call.RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\OSK\\TARNWELL\\work", 0, KEY_READ, &key),
              ERROR_ACCESS_DENIED);
    EXPECT_EQ(call.RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\OSK\\TARNWELL\\work", 0, KEY_READ, &key),
              ERROR_SUCCESS);
    EXPECT_EQ(os.Leaks(), Strings({ "key: HKLM\\Software\\OSK\\TARNWELL\\work" }));
    EXPECT_EQ(call.RegCloseKey(key), ERROR_SUCCESS);
    ExpectNothingLeft();
}

/* ---- Objects and leaks ---- */

TEST_F(Doubles, WhatIsLeftOpenIsNamed)
{
    HANDLE mutex = call.CreateMutexA(nullptr, FALSE, "Global\\M");
    HANDLE mapping = call.CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 8192, "Global\\R");
    void*  view = call.MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 8192);
    void*  block = call.GlobalAlloc(GPTR, 152);
    EXPECT_EQ(call.WaitForSingleObject(mutex, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(os.Leaks(), Strings({ "handle: mutex Global\\M", "locked: mutex Global\\M", "handle: mapping Global\\R",
                                    "view: Global\\R", "heap: 152 bytes" }));
    EXPECT_TRUE(call.ReleaseMutex(mutex));
    EXPECT_TRUE(call.CloseHandle(mutex));
    EXPECT_TRUE(call.UnmapViewOfFile(view));
    EXPECT_TRUE(call.CloseHandle(mapping));
    EXPECT_EQ(call.GlobalFree(block), nullptr);
    ExpectNothingLeft();
}

TEST_F(Doubles, MisuseIsRefusedAndKept)
{
    HANDLE mutex = call.CreateMutexA(nullptr, FALSE, nullptr);
    EXPECT_FALSE(call.ReleaseMutex(mutex));
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_NOT_OWNER });
    EXPECT_TRUE(call.CloseHandle(mutex));
    EXPECT_FALSE(call.CloseHandle(mutex));
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_INVALID_HANDLE });
    EXPECT_FALSE(call.SetEvent(mutex));
    int local = 0;
    EXPECT_EQ(call.GlobalFree(&local), static_cast<HGLOBAL>(&local));
    EXPECT_FALSE(call.UnmapViewOfFile(&local));
    EXPECT_EQ(os.misuse.size(), 5u);
}

TEST_F(Doubles, AMutexCountsItsLocks)
{
    HANDLE mutex = os.MakeMutex("Global\\M");
    call.WaitForSingleObject(mutex, INFINITE);
    call.WaitForSingleObject(mutex, INFINITE);
    EXPECT_EQ(os.Locked(mutex), 2u);
    call.ReleaseMutex(mutex);
    call.ReleaseMutex(mutex);
    EXPECT_EQ(os.Acquired(mutex), 2u);
    EXPECT_EQ(os.Released(mutex), 2u);
    EXPECT_EQ(os.Locked(mutex), 0u);
}

TEST_F(Doubles, AnAbandonedMutexIsTakenOver)
{
    HANDLE mutex = os.MakeMutex();
    os.Abandon(mutex);
    EXPECT_EQ(call.WaitForSingleObject(mutex, INFINITE), DWORD{ WAIT_ABANDONED });
    EXPECT_EQ(os.Locked(mutex), 1u);
    EXPECT_TRUE(call.ReleaseMutex(mutex));
    EXPECT_EQ(call.WaitForSingleObject(mutex, INFINITE), WAIT_OBJECT_0);
}

TEST_F(Doubles, AMutexHeldElsewhereTimesOutOrIsAwaited)
{
    HANDLE mutex = os.MakeMutex();
    os.HoldByOther(mutex);
    EXPECT_EQ(call.WaitForSingleObject(mutex, 200), DWORD{ WAIT_TIMEOUT });
    os.At(700, [&] { os.HoldByOther(mutex, false); });
    EXPECT_EQ(call.WaitForSingleObject(mutex, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(os.Elapsed(), 700u);
}

TEST_F(Doubles, AnExistingNameIsOpenedAndSaysSo)
{
    HANDLE first = call.CreateEventA(nullptr, FALSE, FALSE, "Global\\E");
    EXPECT_EQ(GetLastError(), 0u);
    HANDLE second = call.CreateEventA(nullptr, FALSE, FALSE, "Global\\E");
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_ALREADY_EXISTS });
    EXPECT_NE(first, second);
    call.SetEvent(second);
    EXPECT_EQ(call.WaitForSingleObject(first, 0), WAIT_OBJECT_0);
    EXPECT_EQ(call.CreateMutexA(nullptr, FALSE, "Global\\E"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_INVALID_HANDLE });
    call.CloseHandle(first);
    call.CloseHandle(second);
    call.CreateEventA(nullptr, FALSE, FALSE, "Global\\E");
    EXPECT_EQ(GetLastError(), 0u) << "the name went with its last handle";
}

TEST_F(Doubles, SecurityIsShownAsItWasAsked)
{
    SECURITY_DESCRIPTOR descriptor = {};
    SECURITY_ATTRIBUTES attributes = { sizeof attributes, &descriptor, FALSE };
    EXPECT_TRUE(call.InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    call.CreateMutexA(&attributes, FALSE, "a");
    EXPECT_TRUE(call.SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE));
    call.CreateMutexA(&attributes, FALSE, "b");
    EXPECT_EQ(journal.Of("CreateMutexA")[0].args, "DACL, FALSE, a") << "the default DACL, not an open one";
    EXPECT_EQ(journal.Of("CreateMutexA")[1].args, "null DACL, FALSE, b");
}

/* ---- Memory ---- */

TEST_F(Doubles, ABlockEndsWhereWritingEnds)
{
    auto* block = static_cast<BYTE*>(call.GlobalAlloc(GPTR, 744));
    EXPECT_EQ(block[0], 0);
    EXPECT_EQ(block[743], 0);
    MEMORY_BASIC_INFORMATION behind = {};
    ASSERT_NE(VirtualQuery(block + 744, &behind, sizeof behind), 0u);
    EXPECT_EQ(behind.Protect, DWORD{ PAGE_NOACCESS });
    auto* dirty = static_cast<BYTE*>(call.GlobalAlloc(GMEM_FIXED, 16));
    EXPECT_EQ(dirty[0], 0xCD) << "not zero unless asked";
}

TEST_F(Doubles, AMappingLivesWhileAnybodyHoldsIt)
{
    auto*  held = static_cast<char*>(os.HoldMapping("Global\\R", 216784));
    HANDLE mapping = call.OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, "Global\\R");
    auto*  view = static_cast<char*>(call.MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 216784));
    view[216783] = 'x';
    EXPECT_EQ(call.MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 216785), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_ACCESS_DENIED });
    call.UnmapViewOfFile(view);
    call.CloseHandle(mapping);
    EXPECT_EQ(held[216783], 'x');
    os.DropMapping("Global\\R");
    EXPECT_EQ(call.OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, "Global\\R"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_FILE_NOT_FOUND });
    ExpectNothingLeft();
}

/* ---- Time and waits ---- */

TEST_F(Doubles, TheClockStandsStillUntilItIsMovedAndWraps)
{
    SYSTEMTIME time = {};
    os.SetTick(0xFFFFFFF0);
    os.SetTime(2026, 12, 31, 23, 59, 59, 990);
    EXPECT_EQ(call.GetTickCount(), 0xFFFFFFF0u);
    EXPECT_EQ(call.GetTickCount(), 0xFFFFFFF0u);
    os.Advance(20);
    EXPECT_EQ(call.GetTickCount(), 4u);
    call.GetLocalTime(&time);
    EXPECT_EQ(time.wYear, 2027);
    EXPECT_EQ(time.wMonth, 1);
    EXPECT_EQ(time.wDay, 1);
    EXPECT_EQ(time.wMilliseconds, 10);
    EXPECT_EQ(time.wDayOfWeek, 5) << "1 January 2027 is a Friday";
}

TEST_F(Doubles, ASignalInsideAWaitEndsItAtItsMoment)
{
    HANDLE handles[2] = { os.MakeEvent(false, "reload"), os.MakeEvent(true, "terminate") };
    DWORD  start = call.GetTickCount();
    os.SignalAt(3000, handles[0]);
    EXPECT_EQ(call.WaitForMultipleObjects(2, handles, FALSE, 10000), WAIT_OBJECT_0);
    EXPECT_EQ(call.GetTickCount() - start, 3000u);
    EXPECT_EQ(call.WaitForMultipleObjects(2, handles, FALSE, 7000), DWORD{ WAIT_TIMEOUT }) << "auto-reset: taken once";
    EXPECT_EQ(call.GetTickCount() - start, 10000u);
    os.SignalAt(20000, handles[1]);
    EXPECT_EQ(call.WaitForMultipleObjects(2, handles, FALSE, INFINITE), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(call.WaitForMultipleObjects(2, handles, FALSE, 0), WAIT_OBJECT_0 + 1) << "manual-reset: stays";
    EXPECT_EQ(os.waits.back().at, 20000u);
    EXPECT_EQ(journal.Of("WaitForMultipleObjects")[0].args, "2, any, event reload, event terminate, 10000");
}

TEST_F(Doubles, OddWaitResultsArePlanned)
{
    HANDLE event = os.MakeEvent(false);
    os.Return("WaitForSingleObject", 1, 0x777, 42);
    os.Fail("WaitForSingleObject", 2, ERROR_INVALID_HANDLE);
    EXPECT_EQ(call.WaitForSingleObject(event, 1000), 0x777u);
    EXPECT_EQ(GetLastError(), 42u);
    EXPECT_EQ(call.WaitForSingleObject(event, 1000), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_INVALID_HANDLE });
    EXPECT_EQ(os.Elapsed(), 0u);
}

TEST_F(Doubles, AnEndlessWaitFailsTheCaseInsteadOfHanging)
{
    HANDLE event = os.MakeEvent(false);
    EXPECT_THROW(call.WaitForSingleObject(event, INFINITE), EndlessWait);
}

TEST_F(Doubles, ALoopWithoutAnEndFailsTheCase)
{
    ProbeLoop loop = { { os.MakeEvent(false), os.MakeEvent(true) }, 0, 0 };
    os.maxWaits = 500;
    EXPECT_THROW(os.RunThread(ProbeThread, &loop), EndlessWait);
    EXPECT_EQ(loop.counter, 500u);
}

TEST_F(Doubles, AThreadRoutineRunsThroughHoursAtOnce)
{
    ProbeLoop loop = { { os.MakeEvent(false), os.MakeEvent(true) }, 0, 0 };
    os.SignalAt(1500, loop.handles[0]);
    os.SignalAt(24 * 3600 * 1000, loop.handles[1]);
    EXPECT_EQ(os.RunThread(ProbeThread, &loop), 7u) << "_endthreadex comes back as the result";
    EXPECT_EQ(loop.reloads, 1u);
    EXPECT_EQ(loop.counter, 86399u) << "one second each, one of them cut short by the reload and begun anew";
    EXPECT_EQ(os.Elapsed(), 24u * 3600 * 1000);
}

/* ---- Threads ---- */

TEST_F(Doubles, AThreadIsRecordedAndNotRun)
{
    ProbeLoop loop = {};
    auto      handle = reinterpret_cast<HANDLE>(call._beginthreadex(nullptr, 0, ProbeThread, &loop, 0, nullptr));
    ASSERT_EQ(os.started.size(), 1u);
    EXPECT_EQ(os.started[0].routine, ProbeThread);
    EXPECT_EQ(os.started[0].argument, &loop);
    EXPECT_EQ(call.WaitForSingleObject(handle, 1000), WAIT_OBJECT_0);
    EXPECT_EQ(journal.Number("WaitForMultipleObjects"), 0u);
    call.CloseHandle(handle);
    ExpectNothingLeft();
}

TEST_F(Doubles, AThreadThatNeverEndsTimesOut)
{
    os.threads = Os::Threads::NeverEnd;
    auto handle = reinterpret_cast<HANDLE>(call._beginthreadex(nullptr, 0, ProbeThread, nullptr, 0, nullptr));
    EXPECT_EQ(call.WaitForSingleObject(handle, 1000), DWORD{ WAIT_TIMEOUT });
    EXPECT_EQ(os.Elapsed(), 1000u);
    os.SignalAt(1400, handle);
    EXPECT_EQ(call.WaitForSingleObject(handle, 1000), WAIT_OBJECT_0);
    EXPECT_EQ(os.Elapsed(), 1400u);
}

TEST_F(Doubles, AThreadRunsWhenItIsAwaited)
{
    ProbeLoop loop = { { os.MakeEvent(false), os.MakeEvent(true) }, 0, 0 };
    os.threads = Os::Threads::RunWhenAwaited;
    auto handle = reinterpret_cast<HANDLE>(call._beginthreadex(nullptr, 0, ProbeThread, &loop, 0, nullptr));
    EXPECT_EQ(journal.Number("WaitForMultipleObjects"), 0u);
    os.SignalAt(2500, loop.handles[1]);
    EXPECT_EQ(call.WaitForSingleObject(handle, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(loop.counter, 2u);
}

TEST_F(Doubles, AThreadThatCannotStartSetsErrno)
{
    errno = 0;
    os.Fail("_beginthreadex", 1, EAGAIN);
    EXPECT_EQ(call._beginthreadex(nullptr, 0, ProbeThread, nullptr, 0, nullptr), 0u);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_TRUE(os.started.empty());
}

TEST_F(Doubles, RealObjectsAndThreadsOnDemand)
{
    os.UseRealObjects();
    HANDLE    terminate = call.CreateEventA(nullptr, TRUE, FALSE, "Global\\T");
    HANDLE    reload = call.CreateEventA(nullptr, FALSE, FALSE, nullptr);
    ProbeLoop loop = { { reload, terminate }, 0, 0 };
    auto      thread = reinterpret_cast<HANDLE>(call._beginthreadex(nullptr, 0, ProbeThread, &loop, 0, nullptr));
    EXPECT_TRUE(call.SetEvent(terminate));
    EXPECT_EQ(call.WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 7u);
    EXPECT_EQ(os.Leaks().size(), 3u);
    for (HANDLE handle : { terminate, reload, thread }) {
        EXPECT_TRUE(call.CloseHandle(handle));
    }
    ExpectNothingLeft();
}

/* ---- Processes, registry, files, device ---- */

TEST_F(Doubles, ProcessesAreAliveEndedGoneOrRefused)
{
    DWORD code = 0;
    os.Process(100, STILL_ACTIVE);
    os.Process(101, 1);
    os.ProcessRefused(102, ERROR_ACCESS_DENIED);
    HANDLE alive = call.OpenProcess(PROCESS_ALL_ACCESS, FALSE, 100);
    EXPECT_TRUE(call.GetExitCodeProcess(alive, &code));
    EXPECT_EQ(code, DWORD{ STILL_ACTIVE });
    HANDLE ended = call.OpenProcess(PROCESS_ALL_ACCESS, FALSE, 101);
    EXPECT_TRUE(call.GetExitCodeProcess(ended, &code));
    EXPECT_EQ(code, 1u);
    EXPECT_EQ(call.OpenProcess(PROCESS_ALL_ACCESS, FALSE, 102), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_ACCESS_DENIED });
    EXPECT_EQ(call.OpenProcess(PROCESS_ALL_ACCESS, FALSE, 103), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_INVALID_PARAMETER });
    EXPECT_EQ(call.GetCurrentProcessId(), 4711u);
    EXPECT_EQ(os.Leaks(), Strings({ "handle: process 100", "handle: process 101" }));
}

TEST_F(Doubles, RegistryValuesComeFromTheMap)
{
    HKEY  key = nullptr;
    DWORD value = 0, size = sizeof value;
    os.SetValue("HKLM\\Software\\OSK\\TARNWELL\\work", "dkpf_debug", 5);
    os.failValue["broken"] = ERROR_ACCESS_DENIED;
    EXPECT_EQ(call.RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\osk\\TARNWELL\\work", 0, KEY_READ, &key),
              ERROR_SUCCESS);
    EXPECT_EQ(call.RegQueryValueExA(key, "dkpf_debug", nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(value, 5u);
    EXPECT_EQ(call.RegQueryValueExA(key, "other", nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(call.RegQueryValueExA(key, "broken", nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size),
              ERROR_ACCESS_DENIED);
    EXPECT_EQ(call.RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\none", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
}

TEST_F(Doubles, TheDriverAnswersItsScriptAndRepeatsTheLastReply)
{
    VELCOR_EXCHANGE exchange = {};
    DWORD           returned = 0;
    os.driver.Script({ DriverDouble::Reply::Error(ERROR_GEN_FAILURE), DriverDouble::Reply::Status(0xC0000001),
                       Record().Sync(3).With(3, &VELCOR_ENTRY::write_bytes, 7) });
    auto ask = [&] {
        exchange.length = VELCOR_RECORD_LENGTH;
        exchange.record.header = VELCOR_REQUEST_HEADER;
        return call.DeviceIoControl(os.Named(""), 0, nullptr, 0, nullptr, 0, &returned, nullptr);
    };
    EXPECT_FALSE(ask()) << "no device";
    os.misuse.clear();
    HANDLE device =
        call.CreateFileA(VELCOR_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE, 3, nullptr, OPEN_EXISTING, 0, nullptr);
    auto request = [&] {
        exchange.length = VELCOR_RECORD_LENGTH;
        exchange.record.header = VELCOR_REQUEST_HEADER;
        return call.DeviceIoControl(device, VELCOR_GET_PERFORMANCE, &exchange, sizeof exchange, &exchange,
                                    sizeof exchange, &returned, nullptr);
    };
    EXPECT_FALSE(request());
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_GEN_FAILURE });
    EXPECT_TRUE(request());
    EXPECT_EQ(exchange.status, 0xC0000001u);
    for (int i = 0; i < 2; i++) {
        EXPECT_TRUE(request());
        EXPECT_EQ(exchange.status, 0u);
        EXPECT_EQ(returned, 0x4010u);
        EXPECT_EQ(exchange.record.entry[3].mode, VELCOR_MODE_SYNC);
        EXPECT_EQ(exchange.record.entry[3].write_bytes, 7u);
    }
    EXPECT_EQ(os.driver.requests.size(), 4u);
    EXPECT_EQ(os.driver.requests[0].length, VELCOR_RECORD_LENGTH);
    exchange.record.header = 1;
    EXPECT_TRUE(call.DeviceIoControl(device, VELCOR_GET_PERFORMANCE, &exchange, sizeof exchange, &exchange,
                                     sizeof exchange, &returned, nullptr));
    EXPECT_EQ(exchange.status, VELCOR_STATUS_BAD_HEADER);
    EXPECT_TRUE(call.CloseHandle(device));
    os.driver.loaded = false;
    EXPECT_EQ(call.CreateFileA(VELCOR_DEVICE_PATH, 0, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_FILE_NOT_FOUND });
    ExpectNothingLeft();
}

TEST_F(Doubles, AModuleFileHasAPathATimeAndAVersion)
{
    char path[1024] = "", *part = nullptr;
    os.AddModule("tnwdiskperf.dll", SYSTEMTIME{ 2024, 3, 0, 5, 8, 7, 3, 0 }, "1.2.3");
    os.utcOffset = 60;
    DWORD found = call.SearchPathA(nullptr, "tnwdiskperf.dll", nullptr, sizeof path, path, &part);
    EXPECT_EQ(found, strlen(path));
    EXPECT_STREQ(part, "tnwdiskperf.dll");
    EXPECT_EQ(call.SearchPathA(nullptr, "other.dll", nullptr, sizeof path, path, &part), 0u);

    HANDLE file = call.CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    BY_HANDLE_FILE_INFORMATION information = {};
    FILETIME                   local = {};
    SYSTEMTIME                 time = {};
    EXPECT_TRUE(call.GetFileInformationByHandle(file, &information));
    EXPECT_TRUE(call.FileTimeToLocalFileTime(&information.ftLastWriteTime, &local));
    EXPECT_TRUE(call.FileTimeToSystemTime(&local, &time));
    EXPECT_EQ(time.wDay, 5);
    EXPECT_EQ(time.wHour, 9);
    EXPECT_EQ(time.wSecond, 3);
    EXPECT_TRUE(call.CloseHandle(file));

    DWORD             size = call.GetFileVersionInfoSizeA(path, nullptr);
    std::vector<BYTE> block(size);
    void*             value = nullptr;
    UINT              length = 0;
    ASSERT_TRUE(call.GetFileVersionInfoA(path, 0, size, block.data()));
    ASSERT_TRUE(call.VerQueryValueA(block.data(), "\\VarFileInfo\\Translation", &value, &length));
    EXPECT_EQ(static_cast<WORD*>(value)[0], 0x409);
    EXPECT_EQ(static_cast<WORD*>(value)[1], 1200);
    ASSERT_TRUE(call.VerQueryValueA(block.data(), "\\StringFileInfo\\040904b0\\FileVersion", &value, &length));
    EXPECT_STREQ(static_cast<char*>(value), "1.2.3");
    EXPECT_FALSE(call.VerQueryValueA(block.data(), "\\StringFileInfo\\041104b0\\FileVersion", &value, &length));
    ExpectNothingLeft();
}

TEST_F(Doubles, TheComputerNameNeedsItsRoom)
{
    char  name[16] = "";
    DWORD size = 5;
    EXPECT_FALSE(call.GetComputerNameA(name, &size));
    EXPECT_EQ(GetLastError(), DWORD{ ERROR_BUFFER_OVERFLOW });
    EXPECT_EQ(size, 6u);
    EXPECT_TRUE(call.GetComputerNameA(name, &size));
    EXPECT_STREQ(name, "NODE1");
    EXPECT_EQ(size, 5u);
}

TEST_F(Doubles, TextsAndBoxesAreKept)
{
    char    text[256] = "";
    wchar_t wide[8] = L"";
    EXPECT_EQ(call.wsprintfA(text, "ProcessID=%ul", 4711u), 15);
    EXPECT_STREQ(text, "ProcessID=4711l");
    EXPECT_EQ(call.MessageBoxA(nullptr, text, "open", 0), IDOK);
    EXPECT_EQ(os.messageBoxes[0].first, "open");
    EXPECT_EQ(os.messageBoxes[0].second, "ProcessID=4711l");
    EXPECT_EQ(call.MultiByteToWideChar(CP_ACP, 0, "NMP", -1, wide, 8), 4);
    EXPECT_STREQ(wide, L"NMP");
    EXPECT_EQ(call.SetErrorMode(SEM_FAILCRITICALERRORS), 0u);
    EXPECT_EQ(call.SetErrorMode(0), UINT{ SEM_FAILCRITICALERRORS });
}

/* ---- Platform libraries ---- */

TEST_F(Doubles, TraceLinesAreFormattedAsTheLibraryDoesAndSpoilTheLastError)
{
    HTNWLOG trace = nullptr;
    EXPECT_EQ(call.log_init("diskperf", &trace, 7, 2048, 0, "key"), TNWLOG_OK);
    SetLastError(5);
    call.log_write(trace, 1, 0, "diskperf/src/diskperf_shm", 17, "Routine", " %#p %I64d %S",
                   reinterpret_cast<void*>(0x12), -5ll, L"wide");
    EXPECT_EQ(GetLastError(), 0xDEADu);
    EXPECT_EQ(log.lines[0].text, " 0X0000000000000012 -5 wide");
    EXPECT_EQ(log.lines[0].log, "diskperf");
    EXPECT_EQ(log.lines[0].line, 17);
    call.log_write(nullptr, 8, 0, "s", 1, "Routine", "nobody hears");
    EXPECT_EQ(log.lines[1].log, "");
    call.log_write(trace, TNWLOG_EVENT, 0xC00012C6, "s", 1, "Routine", "");
    EXPECT_EQ(log.Events(), Events({ 0xC00012C6 }));
    EXPECT_EQ(log.Errors(), Strings({ " 0X0000000000000012 -5 wide" }));
    EXPECT_EQ(call.log_term(trace), TNWLOG_OK);
    EXPECT_EQ(call.log_term(trace), TNWLOG_INVALID_ARGUMENT);
}

TEST_F(Doubles, AFailingLogAnswersItsStatus)
{
    HTNWLOG trace = nullptr;
    log.Fail("log_init", 2, TNWLOG_NO_MEMORY);
    EXPECT_EQ(call.log_init("a", &trace, 7, 1, 0, "k"), TNWLOG_OK);
    EXPECT_EQ(call.log_init("b", &trace, 7, 1, 0, "k"), TNWLOG_NO_MEMORY);
    EXPECT_EQ(trace, nullptr);
    EXPECT_EQ(log.OpenTraces(), Strings({ "a" }));
}

TEST_F(Doubles, StringsHaveTheirTwoGaps)
{
    HTNWSTRINGS table = nullptr;
    unsigned    found = 0;
    char        text[128];
    ASSERT_EQ(call.TnwLoadStringTable("diskperf", 0, &table), TNWLOG_OK);
    for (DWORD i = 0; i < 41; i++) {
        DWORD status = call.TnwFormatMessage(table, i, text, sizeof text, 0);
        EXPECT_EQ(status, i == 18 || i == 19 ? TNWLOG_NO_SUCH_MESSAGE : TNWLOG_OK) << i;
        found += status == TNWLOG_OK ? 1u : 0u;
    }
    EXPECT_EQ(found, 39u);
    EXPECT_STREQ(text, "_Total");
    EXPECT_EQ(call.TnwFormatMessage(table, 40, text, 6, 0), TNWLOG_TEXT_TOO_LONG);
    EXPECT_EQ(call.TnwFormatMessage(table, 40, text, 7, 0), TNWLOG_OK);
    EXPECT_EQ(log.openTables, 1u);
    EXPECT_EQ(call.TnwFreeStringTable(table), TNWLOG_OK);
    EXPECT_EQ(call.TnwFreeStringTable(table), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(log.openTables, 0u);
}

TEST_F(Doubles, CsvFilesKeepHeadersAndLines)
{
    HTNWCSV one = nullptr, two = nullptr;
    log.failInit["nmp2"] = TNWLOG_NO_MEMORY;
    EXPECT_EQ(call.log_util_init("nmp1", &one, 3, 0, 1024, 3, 12, "a,b", 0, 0), TNWLOG_OK);
    EXPECT_EQ(call.log_util_init("nmp2", &two, 3, 0, 1024, 3, 12, "a,b", 0, 0), TNWLOG_NO_MEMORY);
    EXPECT_EQ(call.log_util_init("nmp3", &two, 2, 0, 1024, 3, 12, "a,b", 0, 0), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(call.log_util_write(one, "%s", "12345678901"), TNWLOG_OK);
    EXPECT_EQ(call.log_util_write(one, "%s", "123456789012"), TNWLOG_LINE_TOO_LONG);
    log.Fail("log_util_write", 3, TNWLOG_DISK_FULL);
    EXPECT_EQ(call.log_util_write(one, "%s", "x"), TNWLOG_DISK_FULL);
    EXPECT_EQ(call.log_util_rotate(one, 20, "c,d"), TNWLOG_OK);
    EXPECT_EQ(log.csv["nmp1"].lines, Strings({ "12345678901" }));
    EXPECT_EQ(log.csv["nmp1"].headers, Strings({ "a,b", "c,d" }));
    EXPECT_EQ(log.csv["nmp1"].maxLine, 20u);
    EXPECT_EQ(log.OpenCsv(), Strings({ "nmp1" }));
    EXPECT_EQ(call.log_util_term(one), TNWLOG_OK);
    EXPECT_EQ(call.log_util_write(one, "%s", "x"), TNWLOG_INVALID_ARGUMENT);
}

TEST_F(Doubles, AScriptedFailureOfARotateLeavesWhatTheLibraryLeaves)
{
    HTNWCSV file = nullptr;
    EXPECT_EQ(call.log_util_init("nmp1", &file, 3, 0, 1024, 3, 12, "a,b", 0, 0), TNWLOG_OK);
    log.Fail("log_util_rotate", 1, TNWLOG_NO_MEMORY);
    EXPECT_EQ(call.log_util_rotate(file, 20, "c,d"), TNWLOG_NO_MEMORY);
    EXPECT_EQ(call.log_util_write(file, "1"), TNWLOG_OK);
    EXPECT_EQ(log.csv["nmp1"].header, "a,b") << "nothing changed";
    log.Fail("log_util_rotate", 2, TNWLOG_DISK_FULL);
    EXPECT_EQ(call.log_util_rotate(file, 20, "c,d"), TNWLOG_DISK_FULL);
    EXPECT_EQ(call.log_util_write(file, "2"), TNWLOG_OK);
    EXPECT_EQ(log.csv["nmp1"].headers, Strings({ "a,b", "c,d" })) << "the next write makes up for it";
    EXPECT_EQ(log.csv["nmp1"].files[1], Strings({ "c,d", "2" }));
    EXPECT_EQ(log.csv["nmp1"].rotations, 0u) << "no call of the caller did it";
}

TEST_F(Doubles, WhatIsLeftForTermToReleaseIsRemembered)
{
    EXPECT_EQ(call.xmllib_init("diskperf"), XMLLIB_OK);
    EXPECT_EQ(call.xmllib_load_policy("diskperf"), XMLLIB_OK);
    EXPECT_EQ(call.xmllib_load_config(1), XMLLIB_OK);
    EXPECT_EQ(call.xmllib_term(), XMLLIB_OK);
    EXPECT_EQ(xml.Open(), "left to term: policy config ");
}

TEST_F(Doubles, AnEventIsOneThatTheLibraryRaises)
{
    HTNWLOG trace = nullptr;
    EXPECT_EQ(call.log_init("diskperf", &trace, 0, 2048, 0, "key"), TNWLOG_OK);
    call.log_write(nullptr, TNWLOG_EVENT, 0x800012C1, "s", 1, "Routine", "no log");
    call.log_write(trace, TNWLOG_EVENT, 0, "s", 1, "Routine", "no number");
    call.log_write(trace, TNWLOG_EVENT, 0x800012C3, "s", 1, "Routine", "");
    EXPECT_EQ(log.Events(), Events({ 0x800012C3 }));
    EXPECT_EQ(log.lines.size(), 3u) << "all are recorded";
}

TEST_F(Doubles, TheConfigurationKeepsItsOrder)
{
    DWORD value = 0, size = 4;
    EXPECT_EQ(call.xmllib_load_config(1), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(call.xmllib_init("diskperf"), XMLLIB_OK);
    EXPECT_EQ(call.xmllib_load_policy("diskperf"), XMLLIB_OK);
    EXPECT_EQ(call.xmllib_get_value("/root/diskperf/log/level", 1, &value, &size), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(call.xmllib_load_config(1), XMLLIB_OK);
    EXPECT_EQ(call.xmllib_get_value("/root/diskperf/log/level", 1, &value, &size), XMLLIB_OK);
    EXPECT_EQ(value, 7u);
    xml.Remove("log/level");
    EXPECT_EQ(call.xmllib_get_value("/root/diskperf/log/level", 1, &value, &size), XMLLIB_NO_SUCH_KEY);
    EXPECT_EQ(value, 7u) << "untouched";
    EXPECT_EQ(xml.Open(), "init policy config ");
    xml.Fail("xmllib_unload_config", 1, 0x1234567800000005ull);
    EXPECT_EQ(call.xmllib_unload_config(), 0x1234567800000005ull);
    EXPECT_EQ(call.xmllib_unload_config(), XMLLIB_OK);
    EXPECT_EQ(call.xmllib_unload_policy("diskperf"), XMLLIB_OK);
    EXPECT_EQ(call.xmllib_term(), XMLLIB_OK);
    ExpectNothingLeft();
}

TEST_F(Doubles, TheFilterChecksItsRequest)
{
    alignas(8) BYTE buffer[0x4010] = {};
    auto*           record = reinterpret_cast<VELCOR_RECORD*>(buffer);
    filter.Script({ FilterDouble::Reply::Error(ERROR_NOT_READY), Record().Disk(0).With(0, &VELCOR_ENTRY::writes, 9) });
    EXPECT_EQ(call.TnwDkfltrGetMirrorPerformance(nullptr), DWORD{ ERROR_INVALID_PARAMETER });
    EXPECT_EQ(call.TnwDkfltrGetMirrorPerformance(buffer), DWORD{ ERROR_INVALID_PARAMETER }) << "header word is not set";
    record->header = VELCOR_REQUEST_HEADER;
    EXPECT_EQ(call.TnwDkfltrGetMirrorPerformance(buffer), DWORD{ ERROR_NOT_READY });
    EXPECT_EQ(call.TnwDkfltrGetMirrorPerformance(buffer), 0u);
    EXPECT_EQ(record->entry[0].writes, 9u);
}

/* ---- Journal ---- */

TEST_F(Doubles, OneJournalOrdersTheCallsOfAllDoubles)
{
    HANDLE mutex = os.MakeMutex("Global\\M");
    call.WaitForSingleObject(mutex, INFINITE);
    call.log_write(nullptr, 8, 0, "s", 1, "r", "text");
    call.xmllib_init("diskperf");
    call.GetTickCount();
    call.ReleaseMutex(mutex);
    EXPECT_EQ(journal.Names({ "GetTickCount" }), Strings({ "WaitForSingleObject", "xmllib_init", "ReleaseMutex" }));
    EXPECT_EQ(journal.Lines({ "ReleaseMutex" }), Strings({ "ReleaseMutex(mutex Global\\M) = TRUE" }));
    EXPECT_EQ(journal.All().size(), 5u);
}
