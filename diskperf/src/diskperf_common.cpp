/*
 * Lifecycle and shared computation, in the order a process lives through them:
 *   State            the globals of this unit and who may write them
 *   Start            configuration, debug flag, message strings
 *   Warning events   raise, clear, repeat once a day
 *   Threads          ending both worker threads
 *   Entry points     DllMain, DkpfInitialize, DkpfReinitialize, DkpfTerminate
 *   Display values   two raw samples in, 65 rows of 17 values out
 */
#define DKPF_TRACE_SOURCE "diskperf/src/diskperf_common"  // __FILE__ would trace the build machine's path
#include "diskperf.h"
#include "diskperf_counter.h"
#include "tnwxml.h"

#include <errno.h>
#include <process.h>
#include <string.h>

/* ---- State ------------------------------------------------------------------------------------------------------- */

/* Written by the entry points under g_hDllInitMutex. The worker threads read the events; they have ended before anybody
 * closes them. */
HANDLE g_hDllInitMutex = NULL;
DWORD  g_dwInitCount = 0;
BOOL   g_bDiskAgent = FALSE;
HANDLE g_hInfoMutex = NULL;
HANDLE g_hReloadEvent1 = NULL;
HANDLE g_hReloadEvent2 = NULL;
HANDLE g_hTerminateEvent = NULL;
HANDLE g_hCollectThread = NULL;
HANDLE g_hWriteThread = NULL;
DWORD  g_dwThreadExitTimeout = 300;
DWORD  g_dwDebugMode = 0;

/* Written by _DkpfLoadStrings before any thread starts. */
char g_szString[DKPF_STRING_NUM][DKPF_STRING_SIZE] = {};

/* Under g_hWarnEventMutex. */
WARN_EVENT_REC g_WarnEvent[3] = {};
HANDLE         g_hWarnEventMutex = NULL;

/* ---- Start ------------------------------------------------------------------------------------------------------- */

/* Closes the configuration library after a read, in reverse order of what was opened. A failure here changes nothing:
 * the values have been read, or their own failure says so. Traces in the caller's name. */
static void _DkpfCloseConfig(const char* lpRoutine, BOOL bConfig, BOOL bPolicy)
{
    XMLLIB_STATUS status = 0;

    if (bConfig) {
        status = xmllib_unload_config();
        if (static_cast<DWORD>(status) != XMLLIB_OK) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " xmllib_unload_config() failed. (ErrCode=0x%x)",
                           static_cast<DWORD>(status));
        }
    }
    if (bPolicy) {
        status = xmllib_unload_policy("diskperf");
        if (static_cast<DWORD>(status) != XMLLIB_OK) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " xmllib_unload_policy() failed. (ErrCode=0x%x)",
                           static_cast<DWORD>(status));
        }
    }
    status = xmllib_term();
    if (static_cast<DWORD>(status) != XMLLIB_OK) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " xmllib_term() failed. (ErrCode=0x%x)",
                       static_cast<DWORD>(status));
    }
}

/* Reads the nine settings as the library gives them: defaults and ranges are the policy's business. The caller's record
 * is written only when all were read. */
BOOL _DkpfGetConfig(DKPF_CONF* lpDkpfConf, DWORD* lpdwErr)
{
    BOOL          bRet = FALSE;
    BOOL          bConfig = FALSE;
    BOOL          bPolicy = FALSE;
    BOOL          bRead = TRUE;
    XMLLIB_STATUS status = 0;
    DWORD         dwSize = 0;
    DKPF_CONF     conf = {};

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER");
    status = xmllib_init("diskperf");
    if (static_cast<DWORD>(status) != XMLLIB_OK) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " xmllib_init(DISKPERF) failed. (ErrCode=0x%x)",
                   static_cast<DWORD>(status));
        *lpdwErr = DKPF_ERR_XML_INIT;
        goto exit;
    }
    status = xmllib_load_policy("diskperf");
    if (static_cast<DWORD>(status) != XMLLIB_OK) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " xmllib_load_policy() failed. (ErrCode=0x%x)",
                   static_cast<DWORD>(status));
        *lpdwErr = DKPF_ERR_XML_LOAD;
        goto close;
    }
    bPolicy = TRUE;
    status = xmllib_load_config(XMLLIB_CONFIG_CLUSTER);
    if (static_cast<DWORD>(status) != XMLLIB_OK) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " xmllib_load_config() failed. (ErrCode=0x%x)",
                   static_cast<DWORD>(status));
        *lpdwErr = DKPF_ERR_XML_LOAD;
        goto close;
    }
    bConfig = TRUE;
    for (const DKPF_SETTING& setting : g_aSetting) {
        dwSize = sizeof(DWORD);
        status = xmllib_get_value(setting.lpKey, XMLLIB_TYPE_DWORD, &(conf.*setting.lpField), &dwSize);
        if (static_cast<DWORD>(status) != XMLLIB_OK) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " xmllib_get_value(%s) failed. (ErrCode=0x%x)", setting.lpKey,
                       static_cast<DWORD>(status));
            *lpdwErr = DKPF_ERR_XML_LOAD;
            bRead = FALSE;
            break;
        }
    }
    if (bRead) {
        *lpDkpfConf = conf;
        for (const DKPF_SETTING& setting : g_aSetting) {
            DKPF_TRACE(g_hDkpfConfLog, DKPF_LOG_NOTICE, setting.lpLogText, conf.*setting.lpField);
        }
        bRet = TRUE;
    }

close:
    _DkpfCloseConfig(__func__, bConfig, bPolicy);

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* Reads the debug switch. A value that is not there is the usual case and only a detail; the switch keeps its value. */
BOOL _DkpfReloadDebugFlag(DWORD* lpdwErr)
{
    static const char szKey[] = "Software\\OSK\\TARNWELL\\work";
    static const char szValue[] = "dkpf_debug";

    BOOL  bRet = FALSE;
    LONG  lResult = 0;
    HKEY  hKey = NULL;
    DWORD dwValue = 0;
    DWORD dwSize = sizeof(dwValue);

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DETAIL, "ENTER");
    lResult = RegOpenKeyExA(HKEY_LOCAL_MACHINE, szKey, 0, KEY_READ, &hKey);
    if (lResult != ERROR_SUCCESS) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " RegOpenKeyEx(%s) failed.<W32Err=%d>", szKey, lResult);
        *lpdwErr = DKPF_ERR_REG_OPEN;
        goto exit;
    }
    lResult = RegQueryValueExA(hKey, szValue, NULL, NULL, reinterpret_cast<BYTE*>(&dwValue), &dwSize);
    if (lResult != ERROR_SUCCESS) {
        DKPF_TRACE(g_hDkpfLog,
                   lResult == ERROR_FILE_NOT_FOUND || lResult == ERROR_PATH_NOT_FOUND ? DKPF_LOG_DETAIL
                                                                                      : DKPF_LOG_ERROR,
                   " RegQueryValueEx(%s) failed.<W32Err=%d>", szValue, lResult);
        *lpdwErr = DKPF_ERR_REG_READ;
    } else {
        g_dwDebugMode = dwValue;
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_NOTICE, " DebugMode=<%#x>", g_dwDebugMode);
        DKPF_TRACE(g_hDkpfConfLog, DKPF_LOG_NOTICE, " DebugMode=<%#x>", g_dwDebugMode);
        bRet = TRUE;
    }
    RegCloseKey(hKey);

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DETAIL, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* Loads the message strings: column titles and instance names. A text that is not there leaves an empty title. */
BOOL _DkpfLoadStrings(DWORD* lpdwErr)
{
    BOOL        bRet = TRUE;
    DWORD       dwStatus = 0;
    HTNWSTRINGS hTable = NULL;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER");
    memset(g_szString, 0, sizeof(g_szString));
    dwStatus = TnwLoadStringTable("diskperf", 0, &hTable);
    if (dwStatus != TNWLOG_OK) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " TnwLoadStringTable() failed.(%d)", dwStatus);
        *lpdwErr = DKPF_ERR_STRING_OPEN;
        bRet = FALSE;
        goto exit;
    }
    for (DWORD i = 0; i < DKPF_STRING_NUM && bRet; i++) {
        dwStatus = TnwFormatMessage(hTable, i, g_szString[i], DKPF_STRING_SIZE, 0);
        if (dwStatus == TNWLOG_OK) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "  load string[%d] = [%s]", i, g_szString[i]);
        } else if (dwStatus == TNWLOG_NO_SUCH_MESSAGE || dwStatus == TNWLOG_TEXT_TOO_LONG) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, " TnwFormatMessage(%d) failed.(%d)", i, dwStatus);
        } else {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " TnwFormatMessage(%d) failed.(%d), break.", i, dwStatus);
            *lpdwErr = DKPF_ERR_STRING_FORMAT;
            bRet = FALSE;
        }
    }
    dwStatus = TnwFreeStringTable(hTable);
    if (dwStatus != TNWLOG_OK) {
        // The text names the load although the release failed. Operators search their logs for it: keep it.
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " TnwLoadStringTable(%#p) failed.(%d)", hTable, dwStatus);
        *lpdwErr = DKPF_ERR_STRING_CLOSE;
        bRet = FALSE;
    }

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* ---- Warning events ---------------------------------------------------------------------------------------------- */

/* Time after which a kind that is still raised is written once more, ms. */
static const DWORD g_dwWarnRepeat = 24u * 60 * 60 * 1000;

BOOL _DkpfInitWarnEventLog(DWORD* lpdwErr)
{
    static const WARN_EVENT_REC aInitial[ARRAYSIZE(g_WarnEvent)] = {
        { DKPF_EVENT_STOPPED, 0, 0, 0, {} },  // a thread that ended does not come back: never cleared
        { DKPF_EVENT_COLLECT_FAILED, DKPF_EVENT_COLLECT_OK, 0, 0, {} },
        { DKPF_EVENT_CSVLOG_FAILED, DKPF_EVENT_CSVLOG_OK, 0, 0, {} },
    };

    BOOL  bRet = FALSE;
    DWORD dwW32Err = 0;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER");
    g_hWarnEventMutex = _DkpfCreateMutex(NULL);
    if (g_hWarnEventMutex == NULL) {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfCreateMutex(NULL) failed. <W32Err=%d>", dwW32Err);
        *lpdwErr = DKPF_ERR_MUTEX_CREATE;
        goto exit;
    }
    memcpy(g_WarnEvent, aInitial, sizeof(g_WarnEvent));
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* Source blockId reports kind index. The first source raises the event; a kind that stays raised is written again after
 * a day by whichever source reports next. */
BOOL _DkpfSetWarnEventLog(int index, DWORD blockId, DWORD* lpdwErr)
{
    BOOL            bRet = FALSE;
    WARN_EVENT_REC* lpWarn = &g_WarnEvent[index];

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DETAIL, "ENTER");
    if (!_DkpfMutexLock(g_hWarnEventMutex, -1)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfMutexLock() failed.");
        *lpdwErr = DKPF_ERR_MUTEX_LOCK;
        goto exit;
    }
    if (lpWarn->dwBlockFlag[blockId] == 0) {
        lpWarn->dwCount++;
        lpWarn->dwBlockFlag[blockId] = 1;
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_WARNING, " Set Warn Event <EventID=%#x><cnt=%d><BlockID=%#x>", index,
                   lpWarn->dwCount, blockId);
        if (lpWarn->dwCount == 1) {
            DKPF_TRACE_EVENT(g_hDkpfLog, lpWarn->dwSetEventID);
            lpWarn->dwLastTick = GetTickCount();
        }
    }
    if (lpWarn->dwCount != 0 && GetTickCount() - lpWarn->dwLastTick > g_dwWarnRepeat) {
        DKPF_TRACE_EVENT(g_hDkpfLog, lpWarn->dwSetEventID);
        lpWarn->dwLastTick = GetTickCount();
    }
    _DkpfMutexUnlock(g_hWarnEventMutex);
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DETAIL, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* Source blockId reports kind index cleared. The last source to clear writes the all-clear. */
BOOL _DkpfResetWarnEventLog(int index, DWORD blockId, DWORD* lpdwErr)
{
    BOOL            bRet = FALSE;
    WARN_EVENT_REC* lpWarn = &g_WarnEvent[index];

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DETAIL, "ENTER");
    if (!_DkpfMutexLock(g_hWarnEventMutex, -1)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfMutexLock() failed.");
        *lpdwErr = DKPF_ERR_MUTEX_LOCK;
        goto exit;
    }
    if (lpWarn->dwBlockFlag[blockId] == 1) {
        lpWarn->dwBlockFlag[blockId] = 0;
        lpWarn->dwCount--;
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_WARNING, " Reset Warn Event <EventID=%#x><cnt=%d><BlockID=%#x>", index,
                   lpWarn->dwCount, blockId);
        if (lpWarn->dwCount == 0) {
            DKPF_TRACE_EVENT(g_hDkpfLog, lpWarn->dwResetEventID);
            lpWarn->dwLastTick = 0;
        }
    }
    _DkpfMutexUnlock(g_hWarnEventMutex);
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DETAIL, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

BOOL _DkpfTermWarnEventLog(DWORD* lpdwErr)
{
    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER");
    _DkpfCloseHandle(&g_hWarnEventMutex);
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(TRUE), *lpdwErr);
    return TRUE;
}

/* ---- Threads ----------------------------------------------------------------------------------------------------- */

typedef struct _DKPF_WORKER {
    HANDLE*     lphThread;
    const char* lpEnded;
    const char* lpRunning;
    const char* lpFailed;  // arguments: handle, result, error
} DKPF_WORKER;
static const DKPF_WORKER g_aWorker[] = {
    { &g_hCollectThread, " Detect thread exit.(CollectThread)", " Wait(CollectThread) timeout (1sec).",
      " WaitForSingleObject(CollectThread(%#p)) returned %#x.<W32Err=%d>" },
    { &g_hWriteThread, " Detect thread exit.(WriteThread)", " Wait(WriteThread) timeout (1sec).",
      " WaitForSingleObject(WriteThread(%#p)) returned %#x.<W32Err=%d>" },
};

/* Waits one second for each worker thread that still runs and counts those that do. Traces in the caller's name. */
static BOOL _DkpfAwaitThreads(const char* lpRoutine, DWORD* lpdwRunning, DWORD* lpdwErr)
{
    DWORD dwWait = 0;
    DWORD dwW32Err = 0;

    *lpdwRunning = 0;
    for (const DKPF_WORKER& worker : g_aWorker) {
        if (*worker.lphThread == NULL) {
            continue;
        }
        dwWait = WaitForSingleObject(*worker.lphThread, 1000);
        if (dwWait == WAIT_OBJECT_0) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_NOTICE, worker.lpEnded);
            _DkpfCloseHandle(worker.lphThread);
        } else if (dwWait == WAIT_TIMEOUT) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DETAIL, worker.lpRunning);
            (*lpdwRunning)++;
        } else {
            dwW32Err = GetLastError();
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, worker.lpFailed, *worker.lphThread, dwWait, dwW32Err);
            *lpdwErr = DKPF_ERR_SYNC;
            return FALSE;
        }
    }
    return TRUE;
}

/* Ends both worker threads and waits for them, g_dwThreadExitTimeout seconds in all. Threads that still run then keep
 * their handles. */
BOOL _DkpfExitThreads(DWORD* lpdwErr)
{
    BOOL        bRet = FALSE;
    DWORD       dwW32Err = 0;
    DWORD       dwRunning = 0;
    DWORD       dwStart = 0;
    const DWORD dwTimeout = g_dwThreadExitTimeout * 1000;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER");
    if (g_hCollectThread == NULL && g_hWriteThread == NULL) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_NOTICE, " thread not exist. Skip.");
        bRet = TRUE;
        goto exit;
    }
    if (!SetEvent(g_hTerminateEvent)) {
        dwW32Err = GetLastError();
        // A notice, on purpose: the caller reports the failure as an error.
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_NOTICE, " SetEvent() failed.<W32Err=%d>", dwW32Err);
        *lpdwErr = DKPF_ERR_SYNC;
        goto exit;
    }
    dwStart = GetTickCount();
    if (dwTimeout == 0) {
        bRet = TRUE;
        goto exit;
    }
    for (;;) {
        if (!_DkpfAwaitThreads(__func__, &dwRunning, lpdwErr)) {
            goto exit;
        }
        if (dwRunning == 0) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_NOTICE, " Detect all thread exit.");
            bRet = TRUE;
            goto exit;
        }
        if (GetTickCount() - dwStart >= dwTimeout) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_WARNING, " thread exit not completed.<cnt=%d>", dwRunning);
            *lpdwErr = DKPF_ERR_THREAD_EXIT;
            goto exit;
        }
    }

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* ---- Entry points ------------------------------------------------------------------------------------------------ */

/* Thread notices are wanted by the statically linked run-time: they are not switched off. */
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD dwReason, LPVOID)
{
    if (dwReason == DLL_PROCESS_ATTACH) {
        // A failure shows as DKPF_ERR_MUTEX_CREATE in the entry points: no log is open here.
        g_hDllInitMutex = CreateMutexA(NULL, FALSE, NULL);
    } else if (dwReason == DLL_PROCESS_DETACH) {
        _DkpfCloseHandle(&g_hDllInitMutex);
    }
    return TRUE;
}

/* Creates the reload events and the terminate event. What was created before a failure is the caller's to close. Traces
 * in the caller's name. */
static BOOL _DkpfCreateEvents(const char* lpRoutine, DWORD* lpdwErr)
{
    DWORD dwW32Err = 0;

    g_hReloadEvent1 = _DkpfCreateEvent(FALSE, DKPF_RELOAD1_NAME);
    if (g_hReloadEvent1 == NULL) {
        dwW32Err = GetLastError();
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfCreateEvent(%s) failed. <W32Err=%d>",
                       DKPF_RELOAD1_NAME, dwW32Err);
        *lpdwErr = DKPF_ERR_EVENT;
        return FALSE;
    }
    g_hReloadEvent2 = _DkpfCreateEvent(FALSE, DKPF_RELOAD2_NAME);
    if (g_hReloadEvent2 == NULL) {
        dwW32Err = GetLastError();
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfCreateEvent(%s) failed. <W32Err=%d>",
                       DKPF_RELOAD2_NAME, dwW32Err);
        *lpdwErr = DKPF_ERR_EVENT;
        return FALSE;
    }
    g_hTerminateEvent = _DkpfCreateEvent(TRUE, NULL);
    if (g_hTerminateEvent == NULL) {
        dwW32Err = GetLastError();
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfCreateEvent() failed. <W32Err=%d>", dwW32Err);
        *lpdwErr = DKPF_ERR_EVENT;
        return FALSE;
    }
    return TRUE;
}

/* Starts both worker threads; both read the configuration from the region, which is there by now. Traces in the
 * caller's name. */
static BOOL _DkpfStartThreads(const char* lpRoutine, DWORD* lpdwErr)
{
    int nErrno = 0;

    g_hCollectThread = reinterpret_cast<HANDLE>(_beginthreadex(NULL, 0, _DkpfPerfCollectThread, NULL, 0, NULL));
    if (g_hCollectThread == NULL) {
        nErrno = errno;
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " _beginthreadex(_DkpfPerfCollectThread) failed, %d",
                       nErrno);
        *lpdwErr = DKPF_ERR_THREAD;
        return FALSE;
    }
    g_hWriteThread = reinterpret_cast<HANDLE>(_beginthreadex(NULL, 0, _DkpfPlogWriteThread, NULL, 0, NULL));
    if (g_hWriteThread == NULL) {
        nErrno = errno;
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " _beginthreadex(_DkpfPlogWriteThread) failed, %d",
                       nErrno);
        *lpdwErr = DKPF_ERR_THREAD;
        return FALSE;
    }
    return TRUE;
}

static void _DkpfCloseEvents(void)
{
    _DkpfCloseHandle(&g_hReloadEvent1);
    _DkpfCloseHandle(&g_hReloadEvent2);
    _DkpfCloseHandle(&g_hTerminateEvent);
}

/* The region's mutex handle is the info mutex's, borrowed: both go together. */
static void _DkpfCloseInfoMutex(void)
{
    g_hShmMutex = NULL;
    _DkpfCloseHandle(&g_hInfoMutex);
}

BOOL DkpfInitialize(BOOL bDiskAgent, DWORD* lpdwErr)
{
    BOOL      bRet = FALSE;
    BOOL      bLocked = FALSE;
    BOOL      bLog = FALSE;
    BOOL      bWarn = FALSE;
    BOOL      bShm = FALSE;
    DWORD     dwIgnored = 0;
    DWORD     dwW32Err = 0;
    DKPF_CONF conf = {};

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER<Proc=%s>", DKPF_BOOLSTR(bDiskAgent));
    if (g_hDllInitMutex == NULL) {
        *lpdwErr = DKPF_ERR_MUTEX_CREATE;
        goto exit;
    }
    bLocked = _DkpfMutexLock(g_hDllInitMutex, -1);
    if (!bLocked) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfMutexLock(DllInit) failed.");
        *lpdwErr = DKPF_ERR_MUTEX_LOCK;
        goto cleanup;
    }
    // Before the count is looked at: a consumer call in the producer's process turns it into a consumer. Kept, callers
    // depend on it.
    g_bDiskAgent = bDiskAgent;
    if (g_dwInitCount != 0) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " already initialized(cnt=%d). Skip.", g_dwInitCount);
        *lpdwErr = DKPF_ERR_ALREADY;
        g_dwInitCount++;
        _DkpfMutexUnlock(g_hDllInitMutex);
        bRet = TRUE;
        goto exit;
    }

    _DkpfReloadDebugFlag(&dwIgnored);
    bLog = _DkpfLogInit();
    if (!bLog) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfLogInit() failed.");
        *lpdwErr = DKPF_ERR_LOG;
        goto cleanup;
    }
    if (!_DkpfLoadStrings(lpdwErr)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfLoadStrings() failed.<%#x>", *lpdwErr);
        goto cleanup;
    }
    bWarn = _DkpfInitWarnEventLog(lpdwErr);
    if (!bWarn) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfInitWarnEventLog() failed.<%#x>", *lpdwErr);
        goto cleanup;
    }
    g_hInfoMutex = _DkpfCreateMutex(DKPF_MUTEX_NAME);
    if (g_hInfoMutex == NULL) {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfCreateMutex(%s) failed. <W32Err=%d>", DKPF_MUTEX_NAME, dwW32Err);
        *lpdwErr = DKPF_ERR_MUTEX_CREATE;
        goto cleanup;
    }
    g_hShmMutex = g_hInfoMutex;

    if (!bDiskAgent) {
        bShm = _DkpfShmInitialize(FALSE, lpdwErr);
        if (!bShm) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfShmInitialize(FALSE) failed. <%#x>", *lpdwErr);
            goto cleanup;
        }
    } else {
        if (!_DkpfCreateEvents(__func__, lpdwErr)) {
            goto cleanup;
        }
        if (!_DkpfGetConfig(&conf, lpdwErr)) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfGetConfig() failed. <%#x>", *lpdwErr);
            goto cleanup;
        }
        bShm = _DkpfShmInitialize(TRUE, lpdwErr);
        if (!bShm) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfShmInitialize(TRUE) failed. <%#x>", *lpdwErr);
            goto cleanup;
        }
        if (!_DkpfShmSetConf(DKPF_CONF_EVERY, &conf, lpdwErr)) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfShmSetConf() failed. <%#x>", *lpdwErr);
            goto cleanup;
        }
        if (!_DkpfStartThreads(__func__, lpdwErr)) {
            goto cleanup;
        }
    }
    g_dwInitCount++;
    _DkpfMutexUnlock(g_hDllInitMutex);
    bRet = TRUE;
    goto exit;

cleanup:
    // Results are ignored: the caller gets the code of the step that failed. With a count above 0 the objects belong to
    // an initialisation that stands.
    if (g_dwInitCount == 0) {
        if (g_hCollectThread != NULL || g_hWriteThread != NULL) {
            _DkpfExitThreads(&dwIgnored);
        }
        if (bShm) {
            _DkpfShmTerminate(&dwIgnored);
        }
        _DkpfCloseEvents();
        _DkpfCloseInfoMutex();
    }
    if (bLocked) {
        _DkpfMutexUnlock(g_hDllInitMutex);
    }
    if (bWarn) {
        _DkpfTermWarnEventLog(&dwIgnored);
    }
    if (bLog) {
        _DkpfLogTerm();
    }

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

BOOL DkpfReinitialize(DWORD* lpdwErr)
{
    BOOL      bRet = FALSE;
    DKPF_CONF conf = {};

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER");
    if (g_hDllInitMutex == NULL) {
        *lpdwErr = DKPF_ERR_MUTEX_CREATE;
        goto exit;
    }
    if (!_DkpfMutexLock(g_hDllInitMutex, -1)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfMutexLock(DllInit) failed.");
        *lpdwErr = DKPF_ERR_MUTEX_LOCK;
        goto exit;
    }
    if (!g_bDiskAgent) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " process is not diskagent. Skip.");
        *lpdwErr = DKPF_ERR_NOT_AGENT;
    } else if (g_dwInitCount == 0) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " Dll not initialized? (count=0). Skip.");
        *lpdwErr = DKPF_ERR_NOT_INITIALIZED;
    } else if (!_DkpfGetConfig(&conf, lpdwErr)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfGetConfig() failed. <%#x>", *lpdwErr);
    } else {
        // TRUE also where publishing fails: the code alone tells. Kept, callers depend on it.
        bRet = TRUE;
        if (_DkpfShmSetConf(DKPF_CONF_EVERY, &conf, lpdwErr)) {
            SetEvent(g_hReloadEvent1);
            SetEvent(g_hReloadEvent2);
        } else {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfShmSetConf() failed. <%#x>", *lpdwErr);
        }
    }
    _DkpfMutexUnlock(g_hDllInitMutex);

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* The last DkpfTerminate of a process: every step runs, whatever the one before did; the last failure's code stays.
 * Traces in the caller's name. */
static void _DkpfTearDown(const char* lpRoutine, DWORD* lpdwErr)
{
    DWORD dwErr = DKPF_ERR_SUCCESS;

    if (g_bDiskAgent && !_DkpfExitThreads(&dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfExitThreads() failed. <%#x>", dwErr);
        *lpdwErr = dwErr;
    }
    if (!_DkpfShmTerminate(&dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfShmTerminate() failed. <%#x>", dwErr);
        *lpdwErr = dwErr;
    }
    if (g_bDiskAgent) {
        _DkpfCloseEvents();
    }
    if (!_DkpfTermWarnEventLog(&dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfTermWarnEventLog() failed. <%#x>", dwErr);
        *lpdwErr = dwErr;
    }
    _DkpfCloseInfoMutex();
    _DkpfLogTerm();
}

BOOL DkpfTerminate(DWORD* lpdwErr)
{
    BOOL bRet = FALSE;
    BOOL bLocked = FALSE;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER<Proc=%s>", DKPF_BOOLSTR(g_bDiskAgent));
    if (g_hDllInitMutex == NULL) {
        *lpdwErr = DKPF_ERR_MUTEX_CREATE;
        goto exit;
    }
    bLocked = _DkpfMutexLock(g_hDllInitMutex, -1);
    if (!bLocked) {
        // A process that ends must leave the region in any case.
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfMutexLock(DllInit) failed.");
        *lpdwErr = DKPF_ERR_MUTEX_LOCK;
    }
    if (g_dwInitCount == 0) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " Dll not initialized? (count=0). Skip.");
        *lpdwErr = DKPF_ERR_NOT_INITIALIZED;
    } else if (g_dwInitCount >= 2) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " initialized cnt = %d. Skip.", g_dwInitCount);
        g_dwInitCount--;
        bRet = TRUE;
    } else {
        _DkpfTearDown(__func__, lpdwErr);
        g_dwInitCount--;
        bRet = TRUE;
    }
    if (bLocked) {
        _DkpfMutexUnlock(g_hDllInitMutex);
    }

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* ---- Display values ---------------------------------------------------------------------------------------------- */

/* Sums of one sample's current values over the disk slots seen so far; the rows that a total's ratio, average or rate
 * needs are filled. */
typedef struct _DKPF_SUMS {
    ULONGLONG value[DKPF_PARAM_NUM];
} DKPF_SUMS;

/* Value of one current row on one disk slot. */
static ULONGLONG _DkpfCmnRow(const DKPF_PARAM* lpParam, DWORD dwRow, DWORD dwSlot)
{
    return lpParam->instance[dwRow].inst_sub[dwSlot].value;
}

/* Adds a row of one disk slot to the running sums of both samples. */
static void _DkpfCmnAddRow(DKPF_SUMS* lpPrev, DKPF_SUMS* lpCur, const DKPF_PARAM* lpPreviousParam,
                           const DKPF_PARAM* lpCurrentParam, DWORD dwRow, DWORD dwSlot)
{
    lpPrev->value[dwRow] += _DkpfCmnRow(lpPreviousParam, dwRow, dwSlot);
    lpCur->value[dwRow] += _DkpfCmnRow(lpCurrentParam, dwRow, dwSlot);
}

/*
 * Works out what all viewers show from two samples: row 0 of the display record is the total, row 1 + d disk slot d.
 * Levels, deltas and peaks of row 0 and the raw totals start from what stands there: the caller zeroes both records. No
 * lock, no memory, no state.
 */
BOOL _DkpfCmnGetDisplayValue(const DKPF_PARAM* lpCurrentParam, const DKPF_PARAM* lpPreviousParam,
                             DKPF_DISP* lpDispCounter, DKPF_RAWTOTAL* lpRawTotal, DWORD* lpdwErr)
{
    BOOL       bRet = FALSE;
    DKPF_SUMS  prev = {};
    DKPF_SUMS  cur = {};
    ULONGLONG* lpTotal = NULL;
    ULONGLONG* lpRaw = NULL;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER");
    if (lpCurrentParam == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " Invalid Parameter(lpCurrentParam==NULL).");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (lpPreviousParam == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " Invalid Parameter(lpPreviousParam==NULL).");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (lpDispCounter == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " Invalid Parameter(lpDispCounter==NULL).");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (lpRawTotal == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " Invalid Parameter(lpRawTotal==NULL).");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }

    lpTotal = lpDispCounter->value[0];
    lpRaw = lpRawTotal->value;
    for (DWORD d = 0; d < DKPF_NMP_MAX; d++) {
        ULONGLONG* lpDisk = lpDispCounter->value[1 + d];

        for (DWORD j = 0; j < DKPF_COUNTER_NUM; j++) {
            const DWORD p = g_aCounter[j].row;
            const DWORD p2 = g_aCounter[j].row2;

            switch (g_aCounter[j].kind) {
            case DKPF_RATIO:
                lpDisk[j] = _DkpfRatio(_DkpfCmnRow(lpPreviousParam, p, d), _DkpfCmnRow(lpPreviousParam, p2, d),
                                       _DkpfCmnRow(lpCurrentParam, p, d), _DkpfCmnRow(lpCurrentParam, p2, d));
                _DkpfCmnAddRow(&prev, &cur, lpPreviousParam, lpCurrentParam, p, d);
                _DkpfCmnAddRow(&prev, &cur, lpPreviousParam, lpCurrentParam, p2, d);
                lpRaw[p] = cur.value[p];
                lpRaw[p2] = cur.value[p2];
                break;
            case DKPF_LEVEL:
                lpDisk[j] = _DkpfCmnRow(lpCurrentParam, p, d);
                lpTotal[j] += lpDisk[j];
                lpRaw[p] += lpDisk[j];
                break;
            case DKPF_PEAK:
                lpDisk[j] = lpCurrentParam->maxinstance[p].inst_sub[d].value;
                if (lpTotal[j] < lpDisk[j]) {
                    lpTotal[j] = lpDisk[j];
                }
                lpRaw[DKPF_PARAM_NUM + p] = lpTotal[j];
                break;
            case DKPF_AVERAGE:
                lpDisk[j] = _DkpfAverage(_DkpfCmnRow(lpPreviousParam, p, d), _DkpfCmnRow(lpPreviousParam, p2, d),
                                         _DkpfCmnRow(lpCurrentParam, p, d), _DkpfCmnRow(lpCurrentParam, p2, d));
                _DkpfCmnAddRow(&prev, &cur, lpPreviousParam, lpCurrentParam, p, d);
                _DkpfCmnAddRow(&prev, &cur, lpPreviousParam, lpCurrentParam, p2, d);
                lpRaw[p] = cur.value[p];
                lpRaw[p2] = cur.value[p2];
                break;
            case DKPF_DELTA:
                lpDisk[j] = _DkpfCmnRow(lpCurrentParam, p, d) - _DkpfCmnRow(lpPreviousParam, p, d);
                lpTotal[j] += lpDisk[j];
                lpRaw[p] += lpDisk[j];
                break;
            case DKPF_RATE:
                lpDisk[j] = _DkpfRate(_DkpfCmnRow(lpPreviousParam, p, d), lpPreviousParam->sampling_time,
                                      _DkpfCmnRow(lpCurrentParam, p, d), lpCurrentParam->sampling_time);
                _DkpfCmnAddRow(&prev, &cur, lpPreviousParam, lpCurrentParam, p, d);
                // Replaces what the delta counter left there: the raw total of row 0 is the plain sum.
                lpRaw[p] = cur.value[p];
                break;
            default:
                DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " Invalid disp value.(%d)", j);
                *lpdwErr = DKPF_ERR_COUNTER_KIND;
                goto exit;
            }
        }
    }

    for (DWORD j = 0; j < DKPF_COUNTER_NUM; j++) {
        const DWORD p = g_aCounter[j].row;
        const DWORD p2 = g_aCounter[j].row2;

        if (g_aCounter[j].kind == DKPF_RATIO) {
            lpTotal[j] = _DkpfRatio(prev.value[p], prev.value[p2], cur.value[p], cur.value[p2]);
        } else if (g_aCounter[j].kind == DKPF_AVERAGE) {
            lpTotal[j] = _DkpfAverage(prev.value[p], prev.value[p2], cur.value[p], cur.value[p2]);
        } else if (g_aCounter[j].kind == DKPF_RATE) {
            lpTotal[j] =
                _DkpfRate(prev.value[p], lpPreviousParam->sampling_time, cur.value[p], lpCurrentParam->sampling_time);
        }
    }
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}
