/*
 * The shared region, in the order a process uses it:
 *   State            this process's hold on the region
 *   Mapping          creating and opening it
 *   Consumer table   freeing the rows of dead readers, claiming one
 *   Life cycle       first and last use in a process
 *   Accessors        copies in and out
 * g_hShmMutex guards every access. It is a leaf lock: who holds it takes no other.
 */
#define DKPF_TRACE_SOURCE "diskperf/src/diskperf_shm"  // __FILE__ would trace the build machine's path
#include "diskperf.h"

#include <string.h>

/* ---- State ------------------------------------------------------------------------------------------------------- */

HANDLE         g_hShmMutex = NULL;
HANDLE         g_hShmMap = NULL;
DKPF_SHM_INFO* g_pShmInfo = NULL;
DWORD          g_dwShmInitCount = 0;
DWORD          g_dwPMProcessID = 0;
int            g_nPMProcessIDIdx = 0;

/* ---- Mapping ----------------------------------------------------------------------------------------------------- */

/* Creates the region, zero-filled. Sets both region globals, or neither. */
BOOL _DkpfShmCreateMapping(SECURITY_ATTRIBUTES* lpAttributes, DWORD* lpdwErr)
{
    BOOL   bRet = FALSE;
    DWORD  dwW32Err = 0;
    HANDLE hMap = NULL;
    void*  lpView = NULL;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    hMap = CreateFileMappingA(INVALID_HANDLE_VALUE, lpAttributes, PAGE_READWRITE, 0, DKPF_SHM_SIZE, DKPF_SHM_NAME);
    if (hMap == NULL) {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " CreateFileMapping(%s) failed. <W32Err=%d>", DKPF_SHM_NAME, dwW32Err);
        *lpdwErr = DKPF_ERR_MAPPING;
        goto exit;
    }
    lpView = MapViewOfFile(hMap, FILE_MAP_ALL_ACCESS, 0, 0, DKPF_SHM_SIZE);
    if (lpView == NULL) {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " MapViewOfFile(TNW_DKPF_SHM_INFO) failed. <W32Err=%d>", dwW32Err);
        *lpdwErr = DKPF_ERR_MAPVIEW;
        goto exit;
    }
    // No look at ERROR_ALREADY_EXISTS: whoever creates starts from zeros. That only one process creates is the disk
    // agent's own lock.
    memset(lpView, 0, DKPF_SHM_SIZE);
    g_hShmMap = hMap;
    g_pShmInfo = static_cast<DKPF_SHM_INFO*>(lpView);
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, " Shm create mapping succeed (TNW_DKPF_SHM_INFO). Handle<0x%p> MapView<0x%p>",
               hMap, lpView);
    bRet = TRUE;

exit:
    if (!bRet && hMap != NULL && !CloseHandle(hMap)) {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " CloseHandle() failed. <W32Err=%d>", dwW32Err);
    }
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* Opens the region that the disk agent created. Sets both region globals, or neither. */
BOOL _DkpfShmOpenMapping(DWORD* lpdwErr)
{
    BOOL   bRet = FALSE;
    DWORD  dwW32Err = 0;
    HANDLE hMap = NULL;
    void*  lpView = NULL;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    hMap = OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, DKPF_SHM_NAME);
    if (hMap == NULL) {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " OpenFileMapping(%s) failed. <W32Err=%d>", DKPF_SHM_NAME, dwW32Err);
        *lpdwErr = DKPF_ERR_MAPPING;
        goto exit;
    }
    lpView = MapViewOfFile(hMap, FILE_MAP_ALL_ACCESS, 0, 0, DKPF_SHM_SIZE);
    if (lpView == NULL) {
        dwW32Err = GetLastError();
        // The text names another region. Operators search their logs for it: keep it.
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " MapViewOfFile(TNW_HDFUNC_SHM_COMMON) failed. <W32Err=%d>", dwW32Err);
        *lpdwErr = DKPF_ERR_MAPVIEW;
        goto exit;
    }
    g_hShmMap = hMap;
    g_pShmInfo = static_cast<DKPF_SHM_INFO*>(lpView);
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, " Shm open mapping succeed (TNW_DKPF_SHM_INFO). Handle<0x%p> MapView<0x%p>",
               hMap, lpView);
    bRet = TRUE;

exit:
    if (!bRet && hMap != NULL && !CloseHandle(hMap)) {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " CloseHandle() failed. <W32Err=%d>", dwW32Err);
    }
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* ---- Consumer table ---------------------------------------------------------------------------------------------- */

/* Peaks of one consumer row start again. The caller holds g_hShmMutex. */
static void _DkpfShmClearRow(DKPF_SHM_INFO* lpShm, int nRow)
{
    memset(lpShm->maxinstance[nRow], 0, sizeof(DKPF_INSTANCE) * DKPF_PARAMMAX_NUM);
}

/* Frees a consumer row whose owner is known to be gone. In doubt it lives: a row too few costs a reader its peaks, a
 * row too many costs nothing. Traces in the sweep's name, whose lines operators know. */
static void _DkpfShmSweepRow(const char* lpRoutine, DKPF_SHM_INFO* lpShm, int nRow)
{
    BOOL   bGone = FALSE;
    DWORD  dwW32Err = 0;
    DWORD  dwExitCode = 0;
    HANDLE hProcess = NULL;

    hProcess = OpenProcess(PROCESS_ALL_ACCESS, FALSE, lpShm->PMProcessID[nRow]);
    if (hProcess == NULL) {
        dwW32Err = GetLastError();
        if (dwW32Err == ERROR_INVALID_PARAMETER) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DETAIL,
                           "  [Idx:%d] OpenProcess() failed, process not-exists. <W32Err=%d>", nRow, dwW32Err);
            bGone = TRUE;
        } else if (dwW32Err == ERROR_ACCESS_DENIED) {
            // It runs under an account that we may not look into.
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DETAIL,
                           "  [Idx:%d] OpenProcess() failed, process exists. <W32Err=%d>", nRow, dwW32Err);
        } else {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DETAIL,
                           "  [Idx:%d] OpenProcess() failed, process check impossible. <W32Err=%d>", nRow, dwW32Err);
        }
    } else if (!GetExitCodeProcess(hProcess, &dwExitCode)) {
        // A process object outlives its process while anybody holds it: the exit code tells.
        dwW32Err = GetLastError();
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DETAIL,
                       "  [Idx:%d] GetExitCodeProcess() failed, process check impossible. <W32Err=%d>", nRow, dwW32Err);
    } else if (dwExitCode == STILL_ACTIVE) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DETAIL, "  [Idx:%d] Process check succeeded. : ACTIVE", nRow);
    } else {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DETAIL, "  [Idx:%d] Process check succeeded. : DEACTIVE", nRow);
        bGone = TRUE;
    }
    if (bGone) {
        lpShm->PMProcessID[nRow] = 0;
        _DkpfShmClearRow(lpShm, nRow);
    }
    if (hProcess != NULL && !CloseHandle(hProcess)) {
        dwW32Err = GetLastError();
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DETAIL, "  [Idx:%d] CloseHandle() failed. <W32Err=%d>", nRow,
                       dwW32Err);
    }
}

/* Frees the rows of readers that died without leaving. lpDkpfParam points at the region's param_num. The caller holds
 * g_hShmMutex. A number that another process has got since keeps the row: only numbers are seen here. */
BOOL _DkpfShmCheckProcExist(void* lpDkpfParam, DWORD* lpdwErr)
{
    BOOL           bRet = FALSE;
    DKPF_SHM_INFO* lpShm = NULL;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    if (lpDkpfParam == NULL) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " lpDkpfParam is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    lpShm = reinterpret_cast<DKPF_SHM_INFO*>(static_cast<BYTE*>(lpDkpfParam) - DKPF_SHM_PERF_OFFSET);
    for (int i = 1; i < static_cast<int>(DKPF_PROC_MAX); i++) {
        if (lpShm->PMProcessID[i] == 0) {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DETAIL, "  [Idx:%d] PID Tabel is unused. Skip.", i);
            continue;
        }
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DETAIL, "  [Idx:%d] Start check the process existance. PMProcessID<%d>", i,
                   lpShm->PMProcessID[i]);
        _DkpfShmSweepRow(__func__, lpShm, i);
    }
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* Enters this process into the first free consumer row. The caller holds g_hShmMutex. Traces in the caller's name. */
static BOOL _DkpfShmClaimRow(const char* lpRoutine, DWORD* lpdwErr)
{
    int nRow = 1;

    while (nRow < static_cast<int>(DKPF_PROC_MAX) && g_pShmInfo->PMProcessID[nRow] != 0) {
        nRow++;
    }
    if (nRow == static_cast<int>(DKPF_PROC_MAX)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " PMProcessID Table has no empty !");
        DKPF_TRACE_EVENT_FOR(lpRoutine, g_hDkpfLog, DKPF_EVENT_TABLE_FULL);
        *lpdwErr = DKPF_ERR_TABLE_FULL;
        return FALSE;
    }
    g_nPMProcessIDIdx = nRow;
    g_dwPMProcessID = GetCurrentProcessId();
    g_pShmInfo->PMProcessID[nRow] = g_dwPMProcessID;
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ENTEREXIT, " PMProcessID<%d> PMProcessIDIdx<%d>", g_dwPMProcessID,
                   g_nPMProcessIDIdx);
    _DkpfShmClearRow(g_pShmInfo, nRow);
    return TRUE;
}

/* ---- Life cycle -------------------------------------------------------------------------------------------------- */

/* First use in a process: the producer creates the region (row 0 is its own, it is never entered in the table), a
 * reader opens it and claims a row. Further calls only count. */
BOOL _DkpfShmInitialize(BOOL bCreate, DWORD* lpdwErr)
{
    BOOL                 bRet = FALSE;
    BOOL                 bDone = FALSE;     // the work under the lock succeeded
    BOOL                 bCounted = FALSE;  // this call raised g_dwShmInitCount
    DWORD                dwW32Err = 0;
    SECURITY_DESCRIPTOR* lpDescriptor = NULL;
    SECURITY_ATTRIBUTES  attributes = {};

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER : ShmCreation=%s", DKPF_BOOLSTR(bCreate));
    if (!_DkpfHandleValid(g_hShmMutex)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " g_hShmMutex is NULL.");
        *lpdwErr = DKPF_ERR_REGION;
        goto exit;
    }
    lpDescriptor = static_cast<SECURITY_DESCRIPTOR*>(GlobalAlloc(GPTR, DKPF_SD_SIZE));
    if (lpDescriptor == NULL) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _MALLOC(%dbyte) failed.", DKPF_SD_SIZE);
        *lpdwErr = DKPF_ERR_MEMORY;
        goto exit;
    }
    if (!InitializeSecurityDescriptor(lpDescriptor, SECURITY_DESCRIPTOR_REVISION)) {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " InitializeSecurityDescriptor() failed. <W32Err=%d>", dwW32Err);
        *lpdwErr = DKPF_ERR_SYNC;
        goto exit;
    }
    if (!SetSecurityDescriptorDacl(lpDescriptor, TRUE, NULL, FALSE)) {
        dwW32Err = GetLastError();
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " SetSecurityDescriptorDacl() failed. <W32Err=%d>", dwW32Err);
        *lpdwErr = DKPF_ERR_SYNC;
        goto exit;
    }
    attributes.nLength = sizeof(attributes);
    attributes.lpSecurityDescriptor = lpDescriptor;
    attributes.bInheritHandle = FALSE;
    if (!_DkpfMutexLock(g_hShmMutex, -1)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfMutexLock() failed. errcode<0x%x>", *lpdwErr);
        *lpdwErr = DKPF_ERR_MUTEX_LOCK;
        goto exit;
    }

    if (g_dwShmInitCount != 0) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " Shm already initialized.(%dtimes). Skip.", g_dwShmInitCount);
        *lpdwErr = DKPF_ERR_ALREADY;
        bDone = TRUE;
    } else if (bCreate) {
        bDone = _DkpfShmCreateMapping(&attributes, lpdwErr);
        if (bDone) {
            // The producer's own row, also where an earlier attachment of this process failed half-way as a reader.
            g_nPMProcessIDIdx = 0;
        } else {
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfShmCreateMapping() failed. errcode<0x%x>", *lpdwErr);
        }
    } else if (!_DkpfShmOpenMapping(lpdwErr)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfShmOpenMapping() failed. errcode<0x%x>", *lpdwErr);
    } else if (!_DkpfShmCheckProcExist(reinterpret_cast<BYTE*>(g_pShmInfo) + DKPF_SHM_PERF_OFFSET, lpdwErr)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfShmCheckProcExist() failed. errcode<0x%x>", *lpdwErr);
    } else {
        bDone = _DkpfShmClaimRow(__func__, lpdwErr);
    }
    if (bDone) {
        g_dwShmInitCount++;
        bCounted = TRUE;
    }

    if (!_DkpfMutexUnlock(g_hShmMutex)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfMutexUnlock() failed.");
        if (bCounted) {
            g_dwShmInitCount--;
        }
        if (*lpdwErr == DKPF_ERR_SUCCESS) {
            *lpdwErr = DKPF_ERR_SYNC;
        }
        goto exit;
    }
    bRet = bDone;

exit:
    // Also after a failed unlock of a call that only counted: the view goes although the count stands. Every accessor
    // therefore looks at both.
    if (!bRet && g_pShmInfo != NULL) {
        if (!UnmapViewOfFile(g_pShmInfo)) {
            dwW32Err = GetLastError();
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " UnmapViewOfFile() failed. <W32Err=%d>", dwW32Err);
        }
        g_pShmInfo = NULL;
    }
    if (!bRet && g_hShmMap != NULL) {
        if (!CloseHandle(g_hShmMap)) {
            dwW32Err = GetLastError();
            DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " CloseHandle() failed. <W32Err=%d>", dwW32Err);
        }
        g_hShmMap = NULL;
    }
    if (lpDescriptor != NULL) {
        GlobalFree(lpDescriptor);
    }
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* Gives this process's row back and lets the region go. The caller holds g_hShmMutex. Stops where the system refuses,
 * so that the next call tries the rest again; that call then clears row 0, because the own row is given back by now.
 * Traces in the caller's name. */
static BOOL _DkpfShmRelease(const char* lpRoutine, DWORD* lpdwErr)
{
    DWORD dwW32Err = 0;

    if (g_pShmInfo != NULL) {
        _DkpfShmClearRow(g_pShmInfo, g_nPMProcessIDIdx);
        g_pShmInfo->PMProcessID[g_nPMProcessIDIdx] = 0;
    }
    g_nPMProcessIDIdx = 0;
    g_dwPMProcessID = 0;
    if (g_pShmInfo != NULL) {
        if (!UnmapViewOfFile(g_pShmInfo)) {
            dwW32Err = GetLastError();
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " UnmapViewOfFile() failed. <W32Err=%d>", dwW32Err);
            *lpdwErr = DKPF_ERR_UNMAPVIEW;
            return FALSE;
        }
        g_pShmInfo = NULL;
    }
    if (g_hShmMap != NULL) {
        if (!CloseHandle(g_hShmMap)) {
            dwW32Err = GetLastError();
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " CloseHandle() failed. <W32Err=%d>", dwW32Err);
            *lpdwErr = DKPF_ERR_SYNC;
            return FALSE;
        }
        g_hShmMap = NULL;
    }
    return TRUE;
}

/* Takes one _DkpfShmInitialize back; the last one releases the row and unmaps. */
BOOL _DkpfShmTerminate(DWORD* lpdwErr)
{
    BOOL bRet = FALSE;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    if (!_DkpfMutexLock(g_hShmMutex, -1)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfMutexLock() failed. errcode<0x%x>", *lpdwErr);
        *lpdwErr = DKPF_ERR_MUTEX_LOCK;
        goto exit;
    }
    if (g_dwShmInitCount == 0) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " Shm is not initialized.(%dtimes). Skip.", g_dwShmInitCount);
        *lpdwErr = DKPF_ERR_REGION;
    } else if (g_dwShmInitCount >= 2) {
        // Level 1 although nothing is wrong: so it stands in the logs that operators compare.
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " Shm is not yet last-termination.(%dtimes). Skip.", g_dwShmInitCount);
        g_dwShmInitCount--;
        bRet = TRUE;
    } else if (_DkpfShmRelease(__func__, lpdwErr)) {
        g_dwShmInitCount--;
        bRet = TRUE;
    }
    if (!_DkpfMutexUnlock(g_hShmMutex)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfMutexUnlock() failed.");
        if (*lpdwErr == DKPF_ERR_SUCCESS) {
            *lpdwErr = DKPF_ERR_SYNC;
        }
        bRet = FALSE;
    }

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* ---- Accessors --------------------------------------------------------------------------------------------------- */

/* Takes g_hShmMutex and makes sure that the region is there. After FALSE the mutex is not held. Traces in the
 * accessor's name. */
static BOOL _DkpfShmEnter(const char* lpRoutine, DWORD* lpdwErr)
{
    if (!_DkpfMutexLock(g_hShmMutex, -1)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfMutexLock() failed. errcode<0x%x>", *lpdwErr);
        *lpdwErr = DKPF_ERR_MUTEX_LOCK;
        return FALSE;
    }
    if (g_dwShmInitCount == 0 || g_pShmInfo == NULL) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " Shm is not initialized.(%dtimes). Skip.",
                       g_dwShmInitCount);
        _DkpfMutexUnlock(g_hShmMutex);
        *lpdwErr = DKPF_ERR_REGION;
        return FALSE;
    }
    return TRUE;
}

/* Releases g_hShmMutex; a failure comes after the copy, which has taken place. */
static BOOL _DkpfShmLeave(const char* lpRoutine, DWORD* lpdwErr)
{
    if (!_DkpfMutexUnlock(g_hShmMutex)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, " _DkpfMutexUnlock() failed.");
        *lpdwErr = DKPF_ERR_SYNC;
        return FALSE;
    }
    return TRUE;
}

/* Copies the selected fields and dumps the whole record that received them. The caller holds g_hShmMutex. */
static void _DkpfShmCopyConf(const char* lpRoutine, DWORD dwFlag, const DKPF_CONF* lpFrom, DKPF_CONF* lpTo)
{
    for (const DKPF_SETTING& setting : g_aSetting) {
        if ((dwFlag & setting.dwBit) != 0) {
            lpTo->*setting.lpField = lpFrom->*setting.lpField;
        }
    }
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  perf_enable      <%d>, perf_log_save     <%d>",
                   lpTo->perf_enable, lpTo->perf_log_save);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  perf_log_size    <%d>, perf_log_rotation <%d>",
                   lpTo->perf_log_size, lpTo->perf_log_rotation);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  collect_interval <%d>, write_interval    <%d>",
                   lpTo->collect_interval, lpTo->write_interval);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  log_level        <%d>, log_size          <%d>",
                   lpTo->log_level, lpTo->log_size);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  collect_param    <0x%x>", lpTo->collect_param);
}

/* Region to caller; fields whose bit is clear keep the caller's values. */
BOOL _DkpfShmGetConf(DWORD getflag, DKPF_CONF* lpDkpfConf, DWORD* lpdwErr)
{
    BOOL bRet = FALSE;

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER : getflag=0x%x", getflag);
    *lpdwErr = DKPF_ERR_SUCCESS;
    if (lpDkpfConf == NULL) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " lpDkpfConf is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (getflag == 0) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_WARNING, " getflag is 0. Skip.");
        bRet = TRUE;
        goto exit;
    }
    if (!_DkpfShmEnter(__func__, lpdwErr)) {
        goto exit;
    }
    _DkpfShmCopyConf(__func__, getflag, &g_pShmInfo->conf, lpDkpfConf);
    bRet = _DkpfShmLeave(__func__, lpdwErr);

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* Caller to region; fields whose bit is clear keep the region's values. */
BOOL _DkpfShmSetConf(DWORD setflag, const DKPF_CONF* lpDkpfConf, DWORD* lpdwErr)
{
    BOOL bRet = FALSE;

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER : setflag=0x%x", setflag);
    *lpdwErr = DKPF_ERR_SUCCESS;
    if (lpDkpfConf == NULL) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " lpDkpfConf is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (setflag == 0) {
        // The get routine's text, as operators know it.
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_WARNING, " getflag is 0. Skip.");
        bRet = TRUE;
        goto exit;
    }
    if (!_DkpfShmEnter(__func__, lpdwErr)) {
        goto exit;
    }
    _DkpfShmCopyConf(__func__, setflag, lpDkpfConf, &g_pShmInfo->conf);
    bRet = _DkpfShmLeave(__func__, lpdwErr);

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* The region and a caller's sample have the same header fields at different offsets: one dump serves both records. */
template <class RECORD> static void _DkpfShmDumpHeader(const char* lpRoutine, const RECORD* lpRecord)
{
    const SYSTEMTIME& time = lpRecord->local_time;

    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  param_num        <%d>", lpRecord->param_num);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  parammax_num     <%d>", lpRecord->parammax_num);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  sampling_time    <%lu>", lpRecord->sampling_time);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  local_time       <%d/%02d/%02d(%d) %02d:%02d:%02d.%03d>",
                   time.wYear, time.wMonth, time.wDay, time.wDayOfWeek, time.wHour, time.wMinute, time.wSecond,
                   time.wMilliseconds);
}

/* Flag and current values of disk slot j. */
template <class RECORD> static void _DkpfShmDumpSlot(const char* lpRoutine, const RECORD* lpRecord, DWORD j)
{
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  InitFlag[%d]  <%d>", j, lpRecord->InitFlag[j]);
    for (DWORD i = 0; i < DKPF_PARAM_NUM; i++) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  instance[%2d]   : rawparamID <%d> ", i,
                       lpRecord->instance[i].rawparamID);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "                   inst_sub[%d].value <%I64d> ", j,
                       lpRecord->instance[i].inst_sub[j].value);
    }
}

/* The whole region after a store: 4 + 64 x 487 lines. The caller holds g_hShmMutex. */
static void _DkpfShmDumpRegion(const char* lpRoutine)
{
    _DkpfShmDumpHeader(lpRoutine, g_pShmInfo);
    for (DWORD j = 0; j < DKPF_NMP_MAX; j++) {
        _DkpfShmDumpSlot(lpRoutine, g_pShmInfo, j);
        for (DWORD r = 0; r < DKPF_PROC_MAX; r++) {
            for (DWORD k = 0; k < DKPF_PARAMMAX_NUM; k++) {
                DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  maxinstance[%2d][%d]: rawparamID <%d> ", r, k,
                               g_pShmInfo->maxinstance[r][k].rawparamID);
                DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP,
                               "                      inst_sub[%d].value <%I64d> ", j,
                               g_pShmInfo->maxinstance[r][k].inst_sub[j].value);
            }
        }
    }
}

/* A reader's sample after a read: 4 + 64 x 39 lines. */
static void _DkpfShmDumpParam(const char* lpRoutine, const DKPF_PARAM* lpDkpfParam)
{
    _DkpfShmDumpHeader(lpRoutine, lpDkpfParam);
    for (DWORD j = 0; j < DKPF_NMP_MAX; j++) {
        _DkpfShmDumpSlot(lpRoutine, lpDkpfParam, j);
        for (DWORD k = 0; k < DKPF_PARAMMAX_NUM; k++) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "  maxinstance[%d] : rawparamID <%d> ", k,
                           lpDkpfParam->maxinstance[k].rawparamID);
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "                   inst_sub[%d].value <%I64d> ", j,
                           lpDkpfParam->maxinstance[k].inst_sub[j].value);
        }
    }
}

/* Reads the latest sample with this process's own peaks. The hand-over of the peaks and their reset are one step under
 * the mutex, so that no peak is lost or counted twice for this reader. */
BOOL _DkpfShmGetPerf(DKPF_PARAM* lpDkpfParam, DWORD* lpdwErr)
{
    BOOL           bRet = FALSE;
    DKPF_INSTANCE* lpRow = NULL;

    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    *lpdwErr = DKPF_ERR_SUCCESS;
    if (lpDkpfParam == NULL) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " lpDkpfParam is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (!_DkpfShmEnter(__func__, lpdwErr)) {
        goto exit;
    }
    lpDkpfParam->param_num = g_pShmInfo->param_num;
    lpDkpfParam->parammax_num = g_pShmInfo->parammax_num;
    lpDkpfParam->sampling_time = g_pShmInfo->sampling_time;
    lpDkpfParam->local_time = g_pShmInfo->local_time;
    memcpy(lpDkpfParam->InitFlag, g_pShmInfo->InitFlag, sizeof(lpDkpfParam->InitFlag));
    memcpy(lpDkpfParam->instance, g_pShmInfo->instance, sizeof(lpDkpfParam->instance));
    lpRow = g_pShmInfo->maxinstance[g_nPMProcessIDIdx];
    memcpy(lpDkpfParam->maxinstance, lpRow, sizeof(lpDkpfParam->maxinstance));
    _DkpfShmClearRow(g_pShmInfo, g_nPMProcessIDIdx);
    if ((g_dwDkpfLogLevel & DKPF_LOG_DUMP) != 0) {
        _DkpfShmDumpParam(__func__, lpDkpfParam);
    }
    bRet = _DkpfShmLeave(__func__, lpdwErr);

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* Raises the peaks of one consumer row to those of a sample; unsigned, so that values above 2^63 win. */
static void _DkpfShmMergeRow(DKPF_INSTANCE* lpRow, const DKPF_INSTANCE* lpSample)
{
    for (DWORD k = 0; k < DKPF_PARAMMAX_NUM; k++) {
        lpRow[k].rawparamID = lpSample[k].rawparamID;
        for (DWORD j = 0; j < DKPF_NMP_MAX; j++) {
            if (lpRow[k].inst_sub[j].value < lpSample[k].inst_sub[j].value) {
                lpRow[k].inst_sub[j].value = lpSample[k].inst_sub[j].value;
            }
        }
    }
}

/* Stores a sample for all readers: current values are replaced, the peaks of the producer's row and of every row in use
 * are raised. */
BOOL _DkpfShmSetPerf(const DKPF_PARAM* lpDkpfParam, DWORD* lpdwErr)
{
    BOOL bRet = FALSE;

    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    *lpdwErr = DKPF_ERR_SUCCESS;
    if (lpDkpfParam == NULL) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " lpDkpfParam is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (!_DkpfShmEnter(__func__, lpdwErr)) {
        goto exit;
    }
    g_pShmInfo->param_num = lpDkpfParam->param_num;
    g_pShmInfo->parammax_num = lpDkpfParam->parammax_num;
    g_pShmInfo->sampling_time = lpDkpfParam->sampling_time;
    g_pShmInfo->local_time = lpDkpfParam->local_time;
    memcpy(g_pShmInfo->InitFlag, lpDkpfParam->InitFlag, sizeof(g_pShmInfo->InitFlag));
    memcpy(g_pShmInfo->instance, lpDkpfParam->instance, sizeof(g_pShmInfo->instance));
    for (DWORD r = 0; r < DKPF_PROC_MAX; r++) {
        if (r == 0 || g_pShmInfo->PMProcessID[r] != 0) {
            _DkpfShmMergeRow(g_pShmInfo->maxinstance[r], lpDkpfParam->maxinstance);
        }
    }
    if ((g_dwDkpfLogLevel & DKPF_LOG_DUMP) != 0) {
        _DkpfShmDumpRegion(__func__);
    }
    bRet = _DkpfShmLeave(__func__, lpdwErr);

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* The one setting that every reader looks at before each read. */
BOOL _DkpfShmGetPerfenable(DWORD* lpPerfenable, DWORD* lpdwErr)
{
    BOOL bRet = FALSE;

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DETAIL, "ENTER :");
    *lpdwErr = DKPF_ERR_SUCCESS;
    if (lpPerfenable == NULL) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, " lpPerfenable is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (!_DkpfShmEnter(__func__, lpdwErr)) {
        goto exit;
    }
    *lpPerfenable = g_pShmInfo->conf.perf_enable;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "  perf_enable      <%d>", *lpPerfenable);
    bRet = _DkpfShmLeave(__func__, lpdwErr);

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DETAIL, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* Part of the region's interface; the module itself publishes whole configurations. */
BOOL _DkpfShmSetPerfenable(DWORD dwPerfenable, DWORD* lpdwErr)
{
    BOOL bRet = FALSE;

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    *lpdwErr = DKPF_ERR_SUCCESS;
    if (!_DkpfShmEnter(__func__, lpdwErr)) {
        goto exit;
    }
    g_pShmInfo->conf.perf_enable = dwPerfenable;
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_DUMP, "  perf_enable      <%d>", g_pShmInfo->conf.perf_enable);
    bRet = _DkpfShmLeave(__func__, lpdwErr);

exit:
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}
