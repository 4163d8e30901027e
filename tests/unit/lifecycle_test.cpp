/*
 * Entry points: order of calls at start and stop, counting, roles, reload.
 */
#include "unit/lifecycle_fixture.h"

#include <cstring>

static const char RegionMutex[] = "WaitForSingleObject(mutex Global\\TNW_DKPF_MUTEX_INFO, INFINITE)";

/* ---- The calls of start and stop, in order ---- */

static const Strings LockAndDebugSwitch = {
    "WaitForSingleObject(mutex DllInit, INFINITE)",
    "RegOpenKeyExA(HKLM\\Software\\OSK\\TARNWELL\\work, 0, 0x20019)",
    "RegQueryValueExA(dkpf_debug, size 4)",
    "RegCloseKey(HKLM\\Software\\OSK\\TARNWELL\\work)",
};

static const Strings BannerFile = { "SearchPathA(NULL, tnwdiskperf.dll, NULL, 1024)" };

static const Strings ReadConfig = ConfigOpening + ConfigReads + ConfigClosing;

static const Strings OpenLogs = {
    "log_init(\"diskperf\", 7, 2048, 0, \"osktnw_diskperf_log\")",
    "log_init(\"diskperf_trace\", 7, 2048, 0, \"osktnw_diskperf_trace_log\")",
    "log_init(\"diskperf_conf\", 7, 2048, 0, \"osktnw_diskperf_conf_log\")",
};

static Strings LoadTexts()
{
    Strings calls = { "TnwLoadStringTable(\"diskperf\", 0)" };
    for (int i = 0; i <= 40; i++) {
        calls.push_back("TnwFormatMessage(" + std::to_string(i) + ", 128, 0)");
    }
    calls.push_back("TnwFreeStringTable()");
    return calls;
}

/* #1 is the mutex of the warning events, #2 the terminate event, #3 and #4 the two threads. */
static const Strings WarningTable = { "CreateMutexA(no security, FALSE, NULL)" };

/* A named object that every account may open. */
static Strings OpenToAll(const std::string& create)
{
    return {
        "GlobalAlloc(0x40, 40)",
        "InitializeSecurityDescriptor(1)",
        "SetSecurityDescriptorDacl(TRUE, NULL, FALSE)",
        create,
        "GlobalFree(40 bytes)",
    };
}

/* What every process begins with: logs (which need level and size), texts, warning table, info mutex. */
static const Strings CommonStart = LockAndDebugSwitch + BannerFile + ReadConfig + OpenLogs + LoadTexts() +
                                   WarningTable +
                                   OpenToAll("CreateMutexA(null DACL, FALSE, Global\\TNW_DKPF_MUTEX_INFO)");

static const Strings CreateEvents = OpenToAll("CreateEventA(null DACL, auto, FALSE, Global\\TNW_DKPF_EVENT_RELOAD1)") +
                                    OpenToAll("CreateEventA(null DACL, auto, FALSE, Global\\TNW_DKPF_EVENT_RELOAD2)") +
                                    Strings({ "CreateEventA(no security, manual, FALSE, NULL)" });

static const Strings CreateRegion = {
    "GlobalAlloc(0x40, 40)",
    "InitializeSecurityDescriptor(1)",
    "SetSecurityDescriptorDacl(TRUE, NULL, FALSE)",
    RegionMutex,
    "CreateFileMappingA(page file, null DACL, 0x4, 0, 216784, Global\\TNW_DKPF_SHM_INFO)",
    "MapViewOfFile(mapping Global\\TNW_DKPF_SHM_INFO, 0xf001f, 0, 0, 216784)",
    "ReleaseMutex(mutex Global\\TNW_DKPF_MUTEX_INFO)",
    "GlobalFree(40 bytes)",
};

static const Strings OpenRegion = {
    "GlobalAlloc(0x40, 40)",
    "InitializeSecurityDescriptor(1)",
    "SetSecurityDescriptorDacl(TRUE, NULL, FALSE)",
    RegionMutex,
    "OpenFileMappingA(0xf001f, FALSE, Global\\TNW_DKPF_SHM_INFO)",
    "MapViewOfFile(mapping Global\\TNW_DKPF_SHM_INFO, 0xf001f, 0, 0, 216784)",
    "GetCurrentProcessId()",
    "ReleaseMutex(mutex Global\\TNW_DKPF_MUTEX_INFO)",
    "GlobalFree(40 bytes)",
};

static const Strings Publish = { RegionMutex, "ReleaseMutex(mutex Global\\TNW_DKPF_MUTEX_INFO)" };

static const Strings StartThreads = {
    "_beginthreadex(no security, stack 0, flags 0)",  // collect
    "_beginthreadex(no security, stack 0, flags 0)",  // write
};

static const Strings Lock = { "WaitForSingleObject(mutex DllInit, INFINITE)" };
static const Strings Unlock = { "ReleaseMutex(mutex DllInit)" };

static const Strings ProducerStart =
    CommonStart + CreateEvents + ReadConfig + CreateRegion + Publish + StartThreads + Unlock;
static const Strings ConsumerStart = CommonStart + OpenRegion + Unlock;

static const Strings EndThreads = {
    "SetEvent(event #2)",
    "GetTickCount()",
    "WaitForSingleObject(thread #3, 1000)",
    "CloseHandle(thread #3)",
    "WaitForSingleObject(thread #4, 1000)",
    "CloseHandle(thread #4)",
};

static const Strings LeaveRegion = {
    RegionMutex,
    "UnmapViewOfFile(Global\\TNW_DKPF_SHM_INFO)",
    "CloseHandle(mapping Global\\TNW_DKPF_SHM_INFO)",
    "ReleaseMutex(mutex Global\\TNW_DKPF_MUTEX_INFO)",
};

static const Strings CloseEvents = {
    "CloseHandle(event Global\\TNW_DKPF_EVENT_RELOAD1)",
    "CloseHandle(event Global\\TNW_DKPF_EVENT_RELOAD2)",
    "CloseHandle(event #2)",
};

/* Warning table, info mutex, logs. */
static const Strings CommonStop = {
    "CloseHandle(mutex #1)",       "CloseHandle(mutex Global\\TNW_DKPF_MUTEX_INFO)",
    "log_term(\"diskperf_conf\")", "log_term(\"diskperf_trace\")",
    "log_term(\"diskperf\")",
};

static const Strings ProducerStop = Lock + EndThreads + LeaveRegion + CloseEvents + CommonStop + Unlock;
static const Strings ConsumerStop = Lock + LeaveRegion + CommonStop + Unlock;

class Lifecycle : public LifecycleTest {
protected:
    /* Address of a routine inside the library, not of this program's way to it. */
    ThreadRoutine Inside(const char* name)
    {
        return reinterpret_cast<ThreadRoutine>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    }

    bool Initialize(BOOL bDiskAgent)
    {
        return DkpfInitialize(bDiskAgent, &code) != FALSE;
    }
    bool Reinitialize()
    {
        return DkpfReinitialize(&code) != FALSE;
    }
    bool Terminate()
    {
        return DkpfTerminate(&code) != FALSE;
    }

    DWORD code = 1;
};

/* ---- Order of calls ---- */

TEST_F(Lifecycle, TheProducerStartsInThisOrder)
{
    EXPECT_TRUE(Initialize(TRUE));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(Calls(), ProducerStart);
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_EQ(os.Locked(initMutex), 0u);
}

TEST_F(Lifecycle, TheProducerStopsInThisOrder)
{
    StartProducer();
    Mark();
    EXPECT_TRUE(Terminate());
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(Calls(), ProducerStop);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(Lifecycle, AConsumerStartsInThisOrder)
{
    HoldRegion();
    EXPECT_TRUE(Initialize(FALSE));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(Calls(), ConsumerStart);
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_EQ(os.Locked(initMutex), 0u);
}

TEST_F(Lifecycle, AConsumerStopsInThisOrder)
{
    StartConsumer();
    Mark();
    EXPECT_TRUE(Terminate());
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(Calls(), ConsumerStop);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

/* ---- Lines ---- */

static Strings ConfLines(const std::string& name)
{
    Strings lines;
    for (const char* text :
         { "perfenable = 1", "perflogsave = 1", "perflogsize = 1024", "perflogrotation = 3", "collectinterval = 10",
           "writeinterval = 60", "collectparam = 0x1ffff", "loglevel = 7", "logsize = 2048" }) {
        lines.push_back(name + " 4 _DkpfGetConfig: " + text);
    }
    return lines;
}

/* Until the module log is open, lines go nowhere: the table of the configuration's first read among them. */
static Strings StartLines(const std::string& role)
{
    return Strings({
               "- 8 DkpfInitialize: ENTER<Proc=" + role + ">",
               "- 16 _DkpfReloadDebugFlag: ENTER",
               "- 16 _DkpfReloadDebugFlag:  RegQueryValueEx(dkpf_debug) failed.<W32Err=2>",
               "- 16 _DkpfReloadDebugFlag: EXIT<FALSE><0xb0000013>",
               "- 8 _DkpfLogInit: ENTER",
               "- 8 _DkpfGetConfig: ENTER",
           }) +
           ConfLines("-") +
           Strings({
               "- 8 _DkpfGetConfig: EXIT<TRUE><0xb0000000>",
               "diskperf 4 _DkpfLogInit: ===DiskPerf module initialize=T.S.<> Ver<>=",
               "diskperf_trace 4 _DkpfLogInit: ===DiskPerf module initialize=T.S.<> Ver<>=",
               "diskperf_conf 4 _DkpfLogInit: ===DiskPerf module initialize=T.S.<> Ver<>=",
               "diskperf 8 _DkpfLogInit: EXIT<TRUE>",
               "diskperf 8 _DkpfLoadStrings: ENTER",
               "diskperf 8 _DkpfLoadStrings: EXIT<TRUE><0xb0000000>",
               "diskperf 8 _DkpfInitWarnEventLog: ENTER",
               "diskperf 8 _DkpfInitWarnEventLog: EXIT<TRUE><0xb0000000>",
           });
}

TEST_F(Lifecycle, TheProducersStartIsTracedSoAndLogsTheSettingsOnce)
{
    EXPECT_TRUE(Initialize(TRUE));
    EXPECT_EQ(Lines(), StartLines("TRUE") + Strings({ "diskperf 8 _DkpfGetConfig: ENTER" }) +
                           ConfLines("diskperf_conf") +
                           Strings({
                               "diskperf 8 _DkpfGetConfig: EXIT<TRUE><0xb0000000>",
                               "diskperf 8 _DkpfShmInitialize: ENTER : ShmCreation=TRUE",
                               "diskperf 8 _DkpfShmCreateMapping: ENTER : ",
                               "diskperf 8 _DkpfShmCreateMapping: EXIT<TRUE> err<0xb0000000>",
                               "diskperf 8 _DkpfShmInitialize: EXIT<TRUE> err<0xb0000000>",
                               "diskperf 8 _DkpfShmSetConf: ENTER : setflag=0xffff",
                               "diskperf 8 _DkpfShmSetConf: EXIT<TRUE> err<0xb0000000>",
                               "diskperf 8 DkpfInitialize: EXIT<TRUE><0xb0000000>",
                           }));
}

TEST_F(Lifecycle, AConsumersStartIsTracedSoAndLogsNoSettings)
{
    HoldRegion();
    EXPECT_TRUE(Initialize(FALSE));
    EXPECT_EQ(Lines(0xFFCF),
              [] {  // without the details of the sweep
                  Strings lines;
                  for (const std::string& line : StartLines("FALSE")) {
                      if (line.find(" 16 ") == std::string::npos) {
                          lines.push_back(line);
                      }
                  }
                  return lines;
              }() +
                  Strings({
                      "diskperf 8 _DkpfShmInitialize: ENTER : ShmCreation=FALSE",
                      "diskperf 8 _DkpfShmOpenMapping: ENTER : ",
                      "diskperf 8 _DkpfShmOpenMapping: EXIT<TRUE> err<0xb0000000>",
                      "diskperf 8 _DkpfShmCheckProcExist: ENTER :",
                      "diskperf 8 _DkpfShmCheckProcExist: EXIT<TRUE> err<0xb0000000>",
                      "diskperf 8 _DkpfShmInitialize:  PMProcessID<4711> PMProcessIDIdx<1>",
                      "diskperf 8 _DkpfShmInitialize: EXIT<TRUE> err<0xb0000000>",
                      "diskperf 8 DkpfInitialize: EXIT<TRUE><0xb0000000>",
                  }));
    EXPECT_EQ(log.Texts("diskperf_conf").size(), 1u) << "the banner alone";
}

TEST_F(Lifecycle, TheProducersStopIsTracedSo)
{
    StartProducer();
    Mark();
    EXPECT_TRUE(Terminate());
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 8 DkpfTerminate: ENTER<Proc=TRUE>",
                           "diskperf 8 _DkpfExitThreads: ENTER",
                           "diskperf 4 _DkpfExitThreads:  Detect thread exit.(CollectThread)",
                           "diskperf 4 _DkpfExitThreads:  Detect thread exit.(WriteThread)",
                           "diskperf 4 _DkpfExitThreads:  Detect all thread exit.",
                           "diskperf 8 _DkpfExitThreads: EXIT<TRUE><0xb0000000>",
                           "diskperf 8 _DkpfShmTerminate: ENTER :",
                           "diskperf 8 _DkpfShmTerminate: EXIT<TRUE> err<0xb0000000>",
                           "diskperf 8 _DkpfTermWarnEventLog: ENTER",
                           "diskperf 8 _DkpfTermWarnEventLog: EXIT<TRUE><0xb0000000>",
                           "diskperf 8 _DkpfLogTerm: ENTER",
                           "- 8 _DkpfLogTerm: EXIT<TRUE>",
                           "- 8 DkpfTerminate: EXIT<TRUE><0xb0000000>",
                       }));
}

TEST_F(Lifecycle, AConsumersStopIsTracedSo)
{
    StartConsumer();
    Mark();
    EXPECT_TRUE(Terminate());
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 8 DkpfTerminate: ENTER<Proc=FALSE>",
                           "diskperf 8 _DkpfShmTerminate: ENTER :",
                           "diskperf 8 _DkpfShmTerminate: EXIT<TRUE> err<0xb0000000>",
                           "diskperf 8 _DkpfTermWarnEventLog: ENTER",
                           "diskperf 8 _DkpfTermWarnEventLog: EXIT<TRUE><0xb0000000>",
                           "diskperf 8 _DkpfLogTerm: ENTER",
                           "- 8 _DkpfLogTerm: EXIT<TRUE>",
                           "- 8 DkpfTerminate: EXIT<TRUE><0xb0000000>",
                       }));
}

/* ---- What a start leaves behind ---- */

TEST_F(Lifecycle, TheProducerPublishesItsConfigurationInAnEmptyRegion)
{
    const char* const keys[9] = { "parameters/perfenable",
                                  "parameters/perflogsave",
                                  "parameters/perflogsize",
                                  "parameters/perflogrotation",
                                  "parameters/collectinterval",
                                  "parameters/writeinterval",
                                  "log/level",
                                  "log/size",
                                  "parameters/collectparam" };  // in the order of the record
    for (DWORD i = 0; i < 9; i++) {
        xml.Set(keys[i], 101 + i);
    }
    auto* region = HoldRegion();
    memset(region, 0x77, 216784);  // an earlier producer's
    EXPECT_TRUE(Initialize(TRUE));
    DWORD words[216784 / 4];
    memcpy(words, region, sizeof words);
    for (size_t i = 0; i < 216784 / 4; i++) {
        ASSERT_EQ(words[i], i < 9 ? 101 + i : 0) << "word " << i;
    }
}

TEST_F(Lifecycle, TheProducerStartsTheTwoThreadsAndHandsThemTheEvents)
{
    EXPECT_TRUE(Initialize(TRUE));
    ASSERT_EQ(os.started.size(), 2u);
    ASSERT_NE(Inside("_Z22_DkpfPerfCollectThreadPv"), nullptr);
    ASSERT_NE(Inside("_Z20_DkpfPlogWriteThreadPv"), nullptr);
    EXPECT_EQ(os.started[0].routine, Inside("_Z22_DkpfPerfCollectThreadPv"));
    EXPECT_EQ(os.started[1].routine, Inside("_Z20_DkpfPlogWriteThreadPv"));
    EXPECT_EQ(os.started[0].handle, g_hCollectThread);
    EXPECT_EQ(os.started[1].handle, g_hWriteThread);
    EXPECT_EQ(os.started[0].argument, nullptr);
    EXPECT_EQ(os.started[1].argument, nullptr);
    EXPECT_EQ(g_hShmMutex, g_hInfoMutex);
    EXPECT_FALSE(os.Signalled(g_hTerminateEvent));
    os.Signal(g_hReloadEvent1);
    EXPECT_TRUE(os.Signalled(os.Named("Global\\TNW_DKPF_EVENT_RELOAD1")));
    EXPECT_FALSE(os.Signalled(os.Named("Global\\TNW_DKPF_EVENT_RELOAD2")));
    os.Signal(g_hReloadEvent2);
    EXPECT_TRUE(os.Signalled(os.Named("Global\\TNW_DKPF_EVENT_RELOAD2")));
}

TEST_F(Lifecycle, AConsumerHasNoEventsAndNoThreads)
{
    StartConsumer();
    EXPECT_EQ(g_hReloadEvent1, nullptr);
    EXPECT_EQ(g_hReloadEvent2, nullptr);
    EXPECT_EQ(g_hTerminateEvent, nullptr);
    EXPECT_EQ(g_hCollectThread, nullptr);
    EXPECT_EQ(g_hWriteThread, nullptr);
    EXPECT_EQ(g_hShmMutex, g_hInfoMutex);
    EXPECT_EQ(os.Named("Global\\TNW_DKPF_EVENT_RELOAD1"), nullptr);
    EXPECT_EQ(os.Named("Global\\TNW_DKPF_EVENT_RELOAD2"), nullptr);
    EXPECT_TRUE(os.started.empty());
}

TEST_F(Lifecycle, ObjectsThatAnotherProcessMadeAreShared)
{
    HANDLE mutex = os.MakeMutex("Global\\TNW_DKPF_MUTEX_INFO");
    HANDLE reload = os.MakeEvent(false, "Global\\TNW_DKPF_EVENT_RELOAD1");
    EXPECT_TRUE(Initialize(TRUE)) << "an object that exists already is no failure";
    EXPECT_EQ(os.Acquired(mutex), 2u) << "creating the region, publishing the configuration";
    EXPECT_TRUE(Reinitialize());
    EXPECT_TRUE(os.Signalled(reload));
    EXPECT_TRUE(Terminate());
    ExpectNothingLeft();
}

TEST_F(Lifecycle, TheThreadExitTimeoutIs300Seconds)
{
    EXPECT_EQ(g_dwThreadExitTimeout, 300u);
}

TEST_F(Lifecycle, NeitherStartNorStopTouchesTheDebugSwitchOtherThanByReadingIt)
{
    os.SetValue("HKLM\\Software\\OSK\\TARNWELL\\work", "dkpf_debug", 0x21);
    StartProducer();
    EXPECT_EQ(g_dwDebugMode, 0x21u);
    EXPECT_TRUE(Terminate());
    EXPECT_EQ(g_dwDebugMode, 0x21u);
}

TEST_F(Lifecycle, ADebugSwitchThatIsNotThereStopsNothing)
{
    for (bool key : { true, false }) {
        if (!key) {
            os.RemoveKey("HKLM\\Software\\OSK\\TARNWELL\\work");
        }
        EXPECT_TRUE(Initialize(TRUE));
        EXPECT_EQ(code, 0xB0000000u);
        EXPECT_EQ(g_dwDebugMode, 0u);
        EXPECT_TRUE(Terminate());
    }
    ExpectNothingLeft();
}

TEST_F(Lifecycle, StartedAgainTheProducerDoesEverythingAnew)
{
    StartProducer();
    EXPECT_TRUE(Terminate());
    Mark();
    StartProducer();
    EXPECT_EQ(os.started.size(), 4u);
    EXPECT_EQ(Calls().size(), ProducerStart.size());
    EXPECT_TRUE(Terminate());
    ExpectNotInitialized();
    ExpectNothingLeft();
}

/* ---- Counting ---- */

TEST_F(Lifecycle, ASecondInitializeOnlyCounts)
{
    StartProducer();
    Mark();
    EXPECT_TRUE(Initialize(TRUE));
    EXPECT_EQ(code, 0xB0000001u);
    EXPECT_EQ(g_dwInitCount, 2u);
    EXPECT_EQ(os.started.size(), 2u) << "threads are not started again";
    EXPECT_EQ(Calls(), Lock + Unlock);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 8 DkpfInitialize: ENTER<Proc=TRUE>",
                           "diskperf 1 DkpfInitialize:  already initialized(cnt=1). Skip.",
                           "diskperf 8 DkpfInitialize: EXIT<TRUE><0xb0000001>",
                       }));
    log.ClearLines();
    EXPECT_TRUE(Initialize(TRUE));
    EXPECT_EQ(code, 0xB0000001u);
    EXPECT_EQ(g_dwInitCount, 3u);
    EXPECT_EQ(log.Errors(), Strings({ " already initialized(cnt=2). Skip." }));
}

TEST_F(Lifecycle, OnlyTheTerminateThatFindsCount1TearsDown)
{
    StartProducer();
    EXPECT_TRUE(Initialize(TRUE));
    Mark();
    EXPECT_TRUE(Terminate());
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(g_dwInitCount, 1u);
    EXPECT_EQ(Calls(), Lock + Unlock);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 8 DkpfTerminate: ENTER<Proc=TRUE>",
                           "diskperf 1 DkpfTerminate:  initialized cnt = 2. Skip.",
                           "diskperf 8 DkpfTerminate: EXIT<TRUE><0xb0000000>",
                       }));
    Mark();
    EXPECT_TRUE(Terminate());
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(Calls(), ProducerStop);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(Lifecycle, AConsumerCountsToo)
{
    StartConsumer();
    EXPECT_TRUE(Initialize(FALSE));
    EXPECT_EQ(code, 0xB0000001u);
    EXPECT_EQ(g_dwShmInitCount, 1u) << "the region is taken once per process";
    EXPECT_TRUE(Terminate());
    EXPECT_NE(g_pShmInfo, nullptr);
    EXPECT_TRUE(Terminate());
    EXPECT_FALSE(Terminate());
    EXPECT_EQ(code, 0xB0000002u);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(Lifecycle, TerminateWithCount0IsRefused)
{
    EXPECT_FALSE(Terminate());
    EXPECT_EQ(code, 0xB0000002u);
    EXPECT_EQ(g_dwInitCount, 0u);
    EXPECT_EQ(Calls(), Lock + Unlock);
    EXPECT_EQ(Lines(), Strings({
                           "- 8 DkpfTerminate: ENTER<Proc=FALSE>",
                           "- 1 DkpfTerminate:  Dll not initialized? (count=0). Skip.",
                           "- 8 DkpfTerminate: EXIT<FALSE><0xb0000002>",
                       }));
}

TEST_F(Lifecycle, ACallWaitsForTheOneUnderWayInAnotherThread)
{
    StartProducer();
    for (int call = 0; call < 3; call++) {
        ULONGLONG start = os.Elapsed();
        os.HoldByOther(initMutex);
        os.At(start + 250000, [this] { os.HoldByOther(initMutex, false); });
        EXPECT_TRUE(call == 0 ? Initialize(TRUE) : call == 1 ? Reinitialize() : Terminate());
        EXPECT_EQ(os.Elapsed() - start, 250000u);
    }
}

TEST_F(Lifecycle, ADllInitMutexWhoseOwnerDiedIsTakenOver)
{
    os.Abandon(initMutex);
    EXPECT_TRUE(Initialize(TRUE));
    EXPECT_EQ(code, 0xB0000000u);
    os.Abandon(initMutex);
    EXPECT_TRUE(Terminate());
    EXPECT_EQ(code, 0xB0000000u);
}

/* ---- Roles ---- */

TEST_F(Lifecycle, AConsumerCallInTheProducerTurnsItIntoAConsumer)
{
    StartProducer();
    EXPECT_TRUE(Initialize(FALSE));
    EXPECT_EQ(code, 0xB0000001u);
    EXPECT_FALSE(g_bDiskAgent);
    EXPECT_FALSE(Reinitialize());
    EXPECT_EQ(code, 0xB0000011u);
    EXPECT_TRUE(Terminate());
    Mark();
    EXPECT_TRUE(Terminate());
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(Calls(), ConsumerStop) << "threads are not stopped, events not closed";
    EXPECT_NE(g_hCollectThread, nullptr);
    EXPECT_NE(g_hWriteThread, nullptr);
    EXPECT_EQ(os.Leaks().size(), 5u) << "three events and two threads";
}

TEST_F(Lifecycle, AProducerCallInAConsumerTurnsTheFlagAndStopsWithoutThreads)
{
    StartConsumer();
    EXPECT_TRUE(Initialize(TRUE));
    EXPECT_EQ(code, 0xB0000001u);
    EXPECT_TRUE(g_bDiskAgent);
    EXPECT_TRUE(Terminate());
    Mark();
    EXPECT_TRUE(Terminate());
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(log.TextsOf("_DkpfExitThreads"), Strings({ " thread not exist. Skip." }));
    EXPECT_EQ(Calls(), ConsumerStop);
    ExpectNotInitialized();
    ExpectNothingLeft();
}

TEST_F(Lifecycle, TheFlagIsThatOfTheLatestCallAlsoWhereItFails)
{
    xml.Remove("log/size");
    EXPECT_FALSE(Initialize(TRUE));
    EXPECT_TRUE(g_bDiskAgent);
    EXPECT_FALSE(Initialize(FALSE));
    EXPECT_FALSE(g_bDiskAgent);
}

/* ---- Reload ---- */

TEST_F(Lifecycle, ReinitializeReadsPublishesAndWakesBothThreads)
{
    StartProducer();
    xml.Set("parameters/perfenable", 0);
    xml.Set("parameters/writeinterval", 5);
    xml.Set("parameters/collectparam", 0x11);
    Mark();
    EXPECT_TRUE(Reinitialize());
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(g_pShmInfo->conf.perf_enable, 0u);
    EXPECT_EQ(g_pShmInfo->conf.write_interval, 5u);
    EXPECT_EQ(g_pShmInfo->conf.collect_param, 0x11u);
    EXPECT_EQ(g_pShmInfo->conf.log_size, 2048u);
    EXPECT_EQ(Calls(), Lock + ReadConfig +
                           Strings({
                               RegionMutex,
                               "ReleaseMutex(mutex Global\\TNW_DKPF_MUTEX_INFO)",
                               "SetEvent(event Global\\TNW_DKPF_EVENT_RELOAD1)",
                               "SetEvent(event Global\\TNW_DKPF_EVENT_RELOAD2)",
                               "ReleaseMutex(mutex DllInit)",
                           }));
    EXPECT_EQ(log.Texts("diskperf_conf"), Strings({ "perfenable = 0", "perflogsave = 1", "perflogsize = 1024",
                                                    "perflogrotation = 3", "collectinterval = 10", "writeinterval = 5",
                                                    "collectparam = 0x11", "loglevel = 7", "logsize = 2048" }));
    EXPECT_EQ(log.TextsOf("DkpfReinitialize"), Strings());
    EXPECT_EQ(Lines(8).front(), "diskperf 8 DkpfReinitialize: ENTER");
    EXPECT_EQ(Lines(8).back(), "diskperf 8 DkpfReinitialize: EXIT<TRUE><0xb0000000>");
    EXPECT_FALSE(os.Signalled(g_hTerminateEvent));
}

TEST_F(Lifecycle, ReinitializeInAConsumerIsRefused)
{
    StartConsumer();
    Mark();
    EXPECT_FALSE(Reinitialize());
    EXPECT_EQ(code, 0xB0000011u);
    EXPECT_EQ(Calls(), Lock + Unlock);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 8 DkpfReinitialize: ENTER",
                           "diskperf 1 DkpfReinitialize:  process is not diskagent. Skip.",
                           "diskperf 8 DkpfReinitialize: EXIT<FALSE><0xb0000011>",
                       }));
}

TEST_F(Lifecycle, ReinitializeInAProcessThatNeverInitialisedAsksForTheFlagFirst)
{
    EXPECT_FALSE(Reinitialize());
    EXPECT_EQ(code, 0xB0000011u);
    EXPECT_EQ(log.Errors(), Strings({ " process is not diskagent. Skip." }));
}

TEST_F(Lifecycle, ReinitializeWithCount0IsRefusedAfterTheProducersLastTerminate)
{
    StartProducer();
    EXPECT_TRUE(Terminate());
    Mark();
    EXPECT_FALSE(Reinitialize());
    EXPECT_EQ(code, 0xB0000002u);
    EXPECT_EQ(Calls(), Lock + Unlock);
    EXPECT_EQ(Lines(), Strings({
                           "- 8 DkpfReinitialize: ENTER",
                           "- 1 DkpfReinitialize:  Dll not initialized? (count=0). Skip.",
                           "- 8 DkpfReinitialize: EXIT<FALSE><0xb0000002>",
                       }));
}

/* ---- Process attach and detach ---- */

class ProcessAttach : public LifecycleTest {
protected:
    BOOL Notify(DWORD reason)
    {
        return TesteeDllMain(module, reason, nullptr);
    }
};

TEST_F(ProcessAttach, CreatesTheDllInitMutexAndDetachClosesIt)
{
    g_hDllInitMutex = nullptr;
    EXPECT_TRUE(Notify(DLL_PROCESS_ATTACH));
    EXPECT_NE(g_hDllInitMutex, nullptr);
    EXPECT_EQ(journal.Names(), Strings({ "CreateMutexA" }));
    EXPECT_EQ(journal.Of("CreateMutexA")[0].args, "no security, FALSE, NULL");
    EXPECT_TRUE(Notify(DLL_PROCESS_DETACH));
    EXPECT_EQ(g_hDllInitMutex, nullptr);
    EXPECT_EQ(journal.Names(), Strings({ "CreateMutexA", "CloseHandle" }));
    EXPECT_EQ(log.lines.size(), 0u) << "no log is open in these moments";
    ExpectNothingLeft();
}

TEST_F(ProcessAttach, AMutexThatCannotBeCreatedShowsLater)
{
    DWORD code = 0;
    g_hDllInitMutex = nullptr;
    os.Fail("CreateMutexA", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_TRUE(Notify(DLL_PROCESS_ATTACH));
    EXPECT_EQ(g_hDllInitMutex, nullptr);
    EXPECT_FALSE(DkpfInitialize(TRUE, &code));
    EXPECT_EQ(code, 0xB0000005u);
    EXPECT_TRUE(Notify(DLL_PROCESS_DETACH));
    EXPECT_EQ(journal.Number("CloseHandle"), 0u);
}

TEST_F(ProcessAttach, DetachClosesOnlyAValidHandle)
{
    for (HANDLE none : { static_cast<HANDLE>(nullptr), INVALID_HANDLE_VALUE }) {
        g_hDllInitMutex = none;
        EXPECT_TRUE(Notify(DLL_PROCESS_DETACH));
    }
    EXPECT_EQ(journal.Names(), Strings());
}

TEST_F(ProcessAttach, ThreadsAreNothingToIt)
{
    EXPECT_TRUE(Notify(DLL_THREAD_ATTACH));
    EXPECT_TRUE(Notify(DLL_THREAD_DETACH));
    EXPECT_EQ(g_hDllInitMutex, initMutex);
    EXPECT_EQ(journal.Names(), Strings());
    EXPECT_FALSE(hooks.Imports("kernel32.dll", "DisableThreadLibraryCalls")) << "the static run-time wants the notices";
}
