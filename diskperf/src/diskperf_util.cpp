/*
 * Platform utilities, needed by every other unit:
 *   State            the handles of the three trace logs
 *   Named objects    mutexes and events that every account may open
 *   Locks            acquire and release, each traced
 *   Module banner    time stamp and version of the module's file
 *   Trace logs       open and close
 */
#define DKPF_TRACE_SOURCE "diskperf/src/diskperf_util"  // __FILE__ would trace the build machine's path
#include "diskperf.h"

/* ---- State ------------------------------------------------------------------------------------------------------- */

HTNWLOG g_hDkpfLog = NULL;
HTNWLOG g_hDkpfTraceLog = NULL;
HTNWLOG g_hDkpfConfLog = NULL;
DWORD   g_dwDkpfLogLevel = 0;

/* The logs in the order of opening; they close in the reverse order. */
typedef struct _DKPF_LOG {
    HTNWLOG*    lphLog;
    const char* lpName;  // base name of the files
    const char* lpKey;   // key in the product's inventory of log files
} DKPF_LOG;
static const DKPF_LOG g_aLog[] = {
    { &g_hDkpfLog, "diskperf", "osktnw_diskperf_log" },
    { &g_hDkpfTraceLog, "diskperf_trace", "osktnw_diskperf_trace_log" },
    { &g_hDkpfConfLog, "diskperf_conf", "osktnw_diskperf_conf_log" },
};

/* ---- Named objects ----------------------------------------------------------------------------------------------- */

/*
 * A security descriptor whose DACL is NULL: the processes of the product run under different accounts and must all be
 * able to open the same objects. The caller frees it with GlobalFree. NULL with the system's error on failure, traced
 * in the caller's name.
 */
static SECURITY_DESCRIPTOR* _DkpfDescriptorForAll(const char* lpRoutine, DWORD* lpdwW32Err)
{
    SECURITY_DESCRIPTOR* lpDescriptor = NULL;

    lpDescriptor = static_cast<SECURITY_DESCRIPTOR*>(GlobalAlloc(GPTR, DKPF_SD_SIZE));
    if (lpDescriptor == NULL) {
        *lpdwW32Err = GetLastError();
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_MALLOC( SECURITY_DESCRIPTOR ) failed.(W32Err=%d)",
                       *lpdwW32Err);
        return NULL;
    }
    if (!InitializeSecurityDescriptor(lpDescriptor, SECURITY_DESCRIPTOR_REVISION)) {
        *lpdwW32Err = GetLastError();
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "InitializeSecurityDescriptor() failed.(W32Err=%d)",
                       *lpdwW32Err);
        GlobalFree(lpDescriptor);
        return NULL;
    }
    if (!SetSecurityDescriptorDacl(lpDescriptor, TRUE, NULL, FALSE)) {
        *lpdwW32Err = GetLastError();
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "SetSecurityDescriptorDacl() failed.(W32Err=%d)",
                       *lpdwW32Err);
        GlobalFree(lpDescriptor);
        return NULL;
    }
    return lpDescriptor;
}

/* Creates or opens a mutex, not owned. The last-error value is the creating call's: callers report it, and tell a new
 * object from an existing one by it. */
HANDLE _DkpfCreateMutex(const char* lpName)
{
    HANDLE               hMutex = NULL;
    DWORD                dwW32Err = 0;
    SECURITY_DESCRIPTOR* lpDescriptor = NULL;
    SECURITY_ATTRIBUTES  attributes = {};

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "ENTER");
    if (lpName == NULL) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, " CreateMutex(NULL)");
        hMutex = CreateMutexA(NULL, FALSE, NULL);
        dwW32Err = GetLastError();
        goto exit;
    }
    lpDescriptor = _DkpfDescriptorForAll(__func__, &dwW32Err);
    if (lpDescriptor == NULL) {
        goto exit;
    }
    attributes.nLength = sizeof(attributes);
    attributes.lpSecurityDescriptor = lpDescriptor;
    attributes.bInheritHandle = FALSE;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, " CreateMutex(%s)", lpName);
    hMutex = CreateMutexA(&attributes, FALSE, lpName);
    dwW32Err = GetLastError();
    GlobalFree(lpDescriptor);

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "EXIT<%#p>", hMutex);
    SetLastError(dwW32Err);
    return hMutex;
}

/* Creates or opens an event, not signalled. The last-error value is the creating call's, as for _DkpfCreateMutex. */
HANDLE _DkpfCreateEvent(BOOL bManual, const char* lpName)
{
    HANDLE               hEvent = NULL;
    DWORD                dwW32Err = 0;
    SECURITY_DESCRIPTOR* lpDescriptor = NULL;
    SECURITY_ATTRIBUTES  attributes = {};

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "ENTER");
    if (lpName == NULL) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, " CreateEvent(NULL)");
        hEvent = CreateEventA(NULL, bManual, FALSE, NULL);
        dwW32Err = GetLastError();
        goto exit;
    }
    lpDescriptor = _DkpfDescriptorForAll(__func__, &dwW32Err);
    if (lpDescriptor == NULL) {
        goto exit;
    }
    attributes.nLength = sizeof(attributes);
    attributes.lpSecurityDescriptor = lpDescriptor;
    attributes.bInheritHandle = FALSE;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, " CreateEvent(%s)", lpName);
    hEvent = CreateEventA(&attributes, bManual, FALSE, lpName);
    dwW32Err = GetLastError();
    GlobalFree(lpDescriptor);

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "EXIT<%#p>", hEvent);
    SetLastError(dwW32Err);
    return hEvent;
}

/* ---- Locks ------------------------------------------------------------------------------------------------------- */

/* Waits for a mutex or another object; nTimeout in ms, -1 = INFINITE. A mutex whose owner died is taken over as it is:
 * what it guards is checked by its readers. After FALSE the caller must not release. */
BOOL _DkpfMutexLock(HANDLE hMutex, int nTimeout)
{
    BOOL  bRet = FALSE;
    DWORD dwWait = 0;
    DWORD dwW32Err = 0;

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "ENTER<%#p><%dmsec>", hMutex, nTimeout);
    dwWait = WaitForSingleObject(hMutex, static_cast<DWORD>(nTimeout));
    if ((dwWait & ~WAIT_ABANDONED) == WAIT_OBJECT_0) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, " Lock OK.(%#p)", hMutex);
        bRet = TRUE;
    } else if (dwWait == WAIT_TIMEOUT && nTimeout == -1) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " Wait timeout(%#p) <INFINITE>", hMutex);
    } else if (dwWait == WAIT_TIMEOUT) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_WARNING, " Wait timeout(%#p) <%dmsec>", hMutex, nTimeout);
    } else {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " WaitForSingleObject(%#p) failed.<W32Err=%d>", hMutex, dwW32Err);
    }
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "EXIT<%#p><%s>", hMutex, DKPF_BOOLSTR(bRet));
    return bRet;
}

BOOL _DkpfMutexUnlock(HANDLE hMutex)
{
    BOOL  bRet = FALSE;
    DWORD dwW32Err = 0;

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "ENTER<%#p>", hMutex);
    bRet = ReleaseMutex(hMutex);
    if (!bRet) {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " ReleaseMutex(%#p) failed.(W32Err=%d)", hMutex, dwW32Err);
    }
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "EXIT<%#p><%s>", hMutex, DKPF_BOOLSTR(bRet));
    return bRet;
}

/* ---- Module banner ----------------------------------------------------------------------------------------------- */

/* Last write time of a file, local, "2024:3:5-9:7:3". Leaves lpStamp as it is where the file cannot be opened. */
static void _DkpfGetFileStamp(const char* lpPath, char* lpStamp)
{
    HANDLE                     hFile = INVALID_HANDLE_VALUE;
    UINT                       uErrorMode = 0;
    BY_HANDLE_FILE_INFORMATION info = {};
    FILETIME                   local = {};
    SYSTEMTIME                 time = {};

    // The search path may name a drive without a medium: no message box in a service.
    uErrorMode = SetErrorMode(SEM_FAILCRITICALERRORS);
    SetErrorMode(uErrorMode | SEM_FAILCRITICALERRORS);
    hFile = CreateFileA(lpPath, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                        FILE_ATTRIBUTE_NORMAL, NULL);
    SetErrorMode(uErrorMode);
    if (hFile == INVALID_HANDLE_VALUE) {
        return;
    }
    if (GetFileInformationByHandle(hFile, &info) == TRUE) {
        FileTimeToLocalFileTime(&info.ftLastWriteTime, &local);
        FileTimeToSystemTime(&local, &time);
        wsprintfA(lpStamp, "%d:%d:%d-%d:%d:%d", time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute,
                  time.wSecond);
    }
    CloseHandle(hFile);
}

/* FileVersion of the first language of a file's version resource; empty where there is none. */
static void _DkpfGetFileVersion(const char* lpPath, char* lpVersion)
{
    DWORD dwIgnored = 0;
    DWORD dwSize = 0;
    UINT  uLength = 0;
    void* lpBlock = NULL;
    WORD* lpTranslation = NULL;
    char* lpText = NULL;
    char  szQuery[64] = {};

    lpVersion[0] = '\0';
    dwSize = GetFileVersionInfoSizeA(lpPath, &dwIgnored);
    if (dwSize == 0) {
        return;
    }
    lpBlock = GlobalAlloc(GPTR, dwSize);
    if (lpBlock == NULL) {
        return;
    }
    if (GetFileVersionInfoA(lpPath, 0, dwSize, lpBlock) == TRUE &&
        VerQueryValueA(lpBlock, "\\VarFileInfo\\Translation", reinterpret_cast<void**>(&lpTranslation), &uLength) ==
            TRUE &&
        uLength >= 2 * sizeof(WORD)) {
        wsprintfA(szQuery, "\\StringFileInfo\\%04x%04x\\FileVersion", lpTranslation[0], lpTranslation[1]);
        if (VerQueryValueA(lpBlock, szQuery, reinterpret_cast<void**>(&lpText), &uLength)) {
            lstrcpynA(lpVersion, lpText, DKPF_BANNER_SIZE);
        }
    }
    GlobalFree(lpBlock);
}

/* Time stamp and version of a file on the standard search path; both buffers hold DKPF_BANNER_SIZE bytes. What cannot
 * be found out stays as it was: a banner without it is still a banner. */
void _DkpfGetFileStampAndVersion(const char* lpName, char* lpStamp, char* lpVersion)
{
    char szPath[1024] = {};

    SearchPathA(NULL, lpName, NULL, sizeof(szPath), szPath, NULL);
    _DkpfGetFileStamp(szPath, lpStamp);
    _DkpfGetFileVersion(szPath, lpVersion);
}

/* ---- Trace logs -------------------------------------------------------------------------------------------------- */

/* Opens the three trace logs, or none of them, and writes one banner into each. Reads the configuration for level and
 * size; in a producer the configuration is read once more when it is published. */
BOOL _DkpfLogInit(void)
{
    BOOL      bRet = FALSE;
    DWORD     dwErr = DKPF_ERR_SUCCESS;
    DWORD     dwStatus = 0;
    char      szStamp[DKPF_BANNER_SIZE] = {};
    char      szVersion[DKPF_BANNER_SIZE] = {};
    DKPF_CONF conf = {};

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER");
    _DkpfGetFileStampAndVersion("tnwdiskperf.dll", szStamp, szVersion);
    if (!_DkpfGetConfig(&conf, &dwErr)) {
        goto exit;
    }
    for (const DKPF_LOG& log : g_aLog) {
        if (*log.lphLog == NULL) {
            dwStatus = log_init(log.lpName, log.lphLog, conf.log_level, conf.log_size, 0, log.lpKey);
            if (dwStatus != 0) {
                *log.lphLog = NULL;
                if (log.lphLog != &g_hDkpfLog) {
                    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "log_init(%s) failed.<%d>", log.lpName, dwStatus);
                }
                _DkpfLogTerm();
                goto exit;
            }
            if (log.lphLog == &g_hDkpfLog) {
                g_dwDkpfLogLevel = conf.log_level;
            }
        }
        DKPF_TRACE(*log.lphLog, DKPF_LOG_NOTICE, "===DiskPerf module initialize=T.S.<%s> Ver<%s>=", szStamp, szVersion);
    }
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(bRet));
    return bRet;
}

/* Closes what is open of the three trace logs. A log that does not close keeps its handle, so that the next call tries
 * again. */
BOOL _DkpfLogTerm(void)
{
    BOOL  bRet = TRUE;
    DWORD dwStatus = 0;

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER");
    for (size_t i = ARRAYSIZE(g_aLog); i-- > 0;) {
        const DKPF_LOG& log = g_aLog[i];

        if (*log.lphLog == NULL) {
            continue;
        }
        dwStatus = log_term(*log.lphLog);
        if (dwStatus != 0) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "log_term(%s) failed.<%d>", log.lpName, dwStatus);
            bRet = FALSE;
        } else {
            *log.lphLog = NULL;
        }
    }
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(bRet));
    return bRet;
}
