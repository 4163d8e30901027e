/*
 * Collection, in the producer only:
 *   Conversion       the driver's and the filter's records become one raw sample
 *   Zero sample      what readers see while nothing is collected
 *   Device           the driver's control device
 *   Collect thread   one sample per collect interval
 */
#define DKPF_TRACE_SOURCE "diskperf/src/diskperf_agent"  // __FILE__ would trace the build machine's path
#include "diskperf.h"
#include "diskperf_counter.h"
#include "tnwdiskfltr.h"

#include <process.h>
#include <string.h>

/* ---- Conversion -------------------------------------------------------------------------------------------------- */

/* One number of one disk: lpDriver and lpFilter are the disk's two entries, lpMode the one that holds the queues. */
static ULONGLONG _DkpfFieldValue(const DKPF_FIELD& field, const VELCOR_ENTRY* lpDriver, const VELCOR_ENTRY* lpFilter,
                                 const VELCOR_ENTRY* lpMode)
{
    switch (field.source) {
    case DKPF_FROM_BOTH:
        return lpFilter->*field.lpValue + lpDriver->*field.lpValue;
    case DKPF_FROM_MODE:
        return lpMode->*field.lpValue;
    case DKPF_FROM_DRIVER:
    default:
        return lpDriver->*field.lpValue;
    }
}

/* Merges both records into one sample. A disk with an unknown mirror mode spoils the sample: none of it may be stored.
 */
BOOL _DkpfConvPerfDrvToShm(const void* lpDriverRecord, const void* lpMirrorRecord, DKPF_PARAM* lpSample, DWORD* lpdwErr)
{
    BOOL                 bRet = FALSE;
    const VELCOR_RECORD* lpDriver = static_cast<const VELCOR_RECORD*>(lpDriverRecord);
    const VELCOR_RECORD* lpFilter = static_cast<const VELCOR_RECORD*>(lpMirrorRecord);

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER");
    memset(lpSample, 0, sizeof(*lpSample));
    lpSample->param_num = DKPF_PARAM_NUM;
    lpSample->parammax_num = DKPF_PARAMMAX_NUM;
    for (DWORD s = 0; s < DKPF_NMP_MAX; s++) {
        const VELCOR_ENTRY* lpD = &lpDriver->entry[s];
        const VELCOR_ENTRY* lpM = &lpFilter->entry[s];
        const VELCOR_ENTRY* lpMode = NULL;

        lpSample->InitFlag[s] = lpD->state;
        if (lpD->state != VELCOR_STATE_INITIALIZED) {
            DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DETAIL, " nmp[%d] initialize %d, skip.", s + 1, lpD->state);
            continue;
        }
        if (lpD->mode == VELCOR_MODE_ASYNC) {
            DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_NOTICE, " nmp[%d] async mode", s + 1);
            lpMode = lpM;
        } else if (lpD->mode == VELCOR_MODE_SYNC) {
            DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_NOTICE, " nmp[%d] sync mode", s + 1);
            lpMode = lpD;
        } else {
            DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " nmp[%d] mode invalid %d.", s + 1, lpD->mode);
            *lpdwErr = DKPF_ERR_MIRROR_MODE;
            goto exit;
        }
        // Row numbers are set here only: a sample without any disk carries 0 in every row.
        for (DWORD i = 0; i < DKPF_PARAM_NUM; i++) {
            lpSample->instance[i].rawparamID = i;
            lpSample->instance[i].inst_sub[s].value = _DkpfFieldValue(g_aInstanceField[i], lpD, lpM, lpMode);
        }
        for (DWORD k = 0; k < DKPF_PARAMMAX_NUM; k++) {
            lpSample->maxinstance[k].rawparamID = k;
            lpSample->maxinstance[k].inst_sub[s].value = _DkpfFieldValue(g_aMaxInstanceField[k], lpD, lpM, lpMode);
        }
    }
    lpSample->sampling_time = GetTickCount();
    GetLocalTime(&lpSample->local_time);
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* ---- Zero sample ------------------------------------------------------------------------------------------------- */

/* Stores a sample of zeros that keeps the row numbers and the disks' flags: readers still see which disks exist. Reads
 * first, and so takes the producer's own peaks out of the region. */
BOOL _DkpfSetPerfZeroToShm(DWORD* lpdwErr)
{
    BOOL       bRet = FALSE;
    DKPF_PARAM sample = {};

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER");
    if (!_DkpfShmGetPerf(&sample, lpdwErr)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfShmGetPerf() failed.(Err=%#x)", *lpdwErr);
        goto exit;
    }
    // The counts come from memory that every account can write.
    for (DWORD i = 0; i < sample.param_num && i < DKPF_PARAM_NUM; i++) {
        memset(sample.instance[i].inst_sub, 0, sizeof(sample.instance[i].inst_sub));
    }
    for (DWORD k = 0; k < sample.parammax_num && k < DKPF_PARAMMAX_NUM; k++) {
        memset(sample.maxinstance[k].inst_sub, 0, sizeof(sample.maxinstance[k].inst_sub));
    }
    sample.sampling_time = 0;
    memset(&sample.local_time, 0, sizeof(sample.local_time));
    if (!_DkpfShmSetPerf(&sample, lpdwErr)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfShmSetPerf() failed.(Err=%#x)", *lpdwErr);
        goto exit;
    }
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s><%#x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* ---- Device ------------------------------------------------------------------------------------------------------ */

/* The filter library's buffer: its record, and the room that its contract asks for behind it. */
typedef struct _DKPF_MIRROR {
    VELCOR_RECORD record;
    BYTE          unused[8];
} DKPF_MIRROR;
DKPF_SIZE(DKPF_MIRROR, 0x4010);

/* Opens the control device, without a message box where a driver misbehaves. INVALID_HANDLE_VALUE with the error. */
static HANDLE _DkpfOpenDevice(DWORD* lpdwW32Err)
{
    HANDLE hDevice = INVALID_HANDLE_VALUE;
    UINT   uErrorMode = 0;

    uErrorMode = SetErrorMode(SEM_FAILCRITICALERRORS);
    SetErrorMode(uErrorMode | SEM_FAILCRITICALERRORS);
    hDevice = CreateFileA(VELCOR_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL,
                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, NULL);
    *lpdwW32Err = GetLastError();
    SetErrorMode(uErrorMode);
    return hDevice;
}

/* Reads one pair of records. Traces the failure in the caller's name; the caller raises the warning. */
static BOOL _DkpfReadRecords(const char* lpRoutine, HANDLE hDevice, VELCOR_EXCHANGE* lpExchange, DKPF_MIRROR* lpMirror)
{
    BOOL  bIoControl = FALSE;
    DWORD dwReturned = 0;
    DWORD dwW32Err = 0;

    lpExchange->length = VELCOR_RECORD_LENGTH;
    lpExchange->record.header = VELCOR_REQUEST_HEADER;
    bIoControl = DeviceIoControl(hDevice, VELCOR_GET_PERFORMANCE, lpExchange, sizeof(*lpExchange), lpExchange,
                                 sizeof(*lpExchange), &dwReturned, NULL);
    if (bIoControl != TRUE) {
        dwW32Err = GetLastError();
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR,
                       " IoCtl(VELCOR_GET_PERFORMANCE) DeviceIoControl failed.<W32Err=%d>", dwW32Err);
        return FALSE;
    }
    if (lpExchange->status != 0) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, " IoCtl(VELCOR_GET_PERFORMANCE) Driver failed.<%#x>",
                       lpExchange->status);
        return FALSE;
    }
    lpMirror->record.header = VELCOR_REQUEST_HEADER;
    dwW32Err = TnwDkfltrGetMirrorPerformance(lpMirror);
    if (dwW32Err != 0) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "TnwDkfltrGetMirrorPerformance() failed.(W32Err=%d)",
                       dwW32Err);
        return FALSE;
    }
    return TRUE;
}

/* ---- Collect thread ---------------------------------------------------------------------------------------------- */

/* What the thread works with, all of it on its own stack (some 43,000 bytes): the loop takes no memory. */
typedef struct _DKPF_COLLECT {
    DKPF_CONF       conf;      // as last read from the region
    DWORD           interval;  // s, read once: a reload never changes it
    HANDLE          hDevice;
    LONGLONG        loop;   // iterations; the sample of the first only primes the counters
    DWORD           start;  // tick at the start of the iteration
    VELCOR_EXCHANGE exchange;
    DKPF_MIRROR     mirror;
    DKPF_PARAM      sample;
} DKPF_COLLECT;

/* A sample was lost. The thread carries on: drivers come back. */
static void _DkpfCollectFailed(void)
{
    DWORD dwIgnored = 0;

    _DkpfSetWarnEventLog(DKPF_WARN_COLLECT, DKPF_BLOCK_COLLECT, &dwIgnored);
}

/* Reads one sample and stores it. Traces in the thread's name. */
static void _DkpfCollectSample(const char* lpRoutine, DKPF_COLLECT* lpCollect)
{
    DWORD dwErr = DKPF_ERR_SUCCESS;

    if (lpCollect->conf.perf_enable == 0) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DETAIL, " Config(perfenable) == 0, Collect Skip.");
        return;
    }
    if (!_DkpfReadRecords(lpRoutine, lpCollect->hDevice, &lpCollect->exchange, &lpCollect->mirror)) {
        _DkpfCollectFailed();
        return;
    }
    if (lpCollect->loop == 1) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DETAIL, " Discard perf data.(loop cnt=1)");
        return;
    }
    if (!_DkpfConvPerfDrvToShm(&lpCollect->exchange.record, &lpCollect->mirror.record, &lpCollect->sample, &dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfConvPerfDrvToShm() failed.(%#x)", dwErr);
        _DkpfCollectFailed();
        return;
    }
    if (!_DkpfShmSetPerf(&lpCollect->sample, &dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfShmSetPerf() failed.(%#x)", dwErr);
        _DkpfCollectFailed();
        return;
    }
    _DkpfResetWarnEventLog(DKPF_WARN_COLLECT, DKPF_BLOCK_COLLECT, &dwErr);
}

/* Takes over a changed configuration. FALSE: it could not be, and the iteration is over. Traces in the thread's name.
 */
static BOOL _DkpfCollectReload(const char* lpRoutine, DKPF_COLLECT* lpCollect)
{
    DWORD       dwErr = DKPF_ERR_SUCCESS;
    const DWORD dwOld = lpCollect->conf.perf_enable;

    if (!_DkpfShmGetConf(DKPF_CONF_EVERY, &lpCollect->conf, &dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfShmGetConf(ALL) failed.(%#x)", dwErr);
        _DkpfCollectFailed();
        return FALSE;
    }
    if (dwOld == 1 && lpCollect->conf.perf_enable == 0) {
        if (!_DkpfSetPerfZeroToShm(&dwErr)) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfSetPerfZeroToShm() failed.(%#x)", dwErr);
            _DkpfCollectFailed();
            return FALSE;
        }
    } else if (dwOld == 0 && lpCollect->conf.perf_enable == 1) {
        lpCollect->loop = 0;
    }
    _DkpfResetWarnEventLog(DKPF_WARN_COLLECT, DKPF_BLOCK_COLLECT, &dwErr);
    return TRUE;
}

/* One iteration: waits for the interval and takes the sample that is due. FALSE when the thread has to end, with
 * DKPF_ERR_SUCCESS on the terminate event. Traces in the thread's name. */
static BOOL _DkpfCollectIteration(const char* lpRoutine, DKPF_COLLECT* lpCollect, DWORD* lpdwErr)
{
    const HANDLE ahEvent[] = { g_hReloadEvent1, g_hTerminateEvent };
    const DWORD  dwInterval = lpCollect->interval * 1000;
    DWORD        dwRemaining = dwInterval;
    DWORD        dwElapsed = 0;
    DWORD        dwWait = 0;
    DWORD        dwW32Err = 0;

    lpCollect->loop++;
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DETAIL, " Loop (%I64d) Start.", lpCollect->loop);
    lpCollect->start = GetTickCount();
    for (;;) {
        dwWait = WaitForMultipleObjects(ARRAYSIZE(ahEvent), ahEvent, FALSE, dwRemaining);
        if (dwWait != WAIT_OBJECT_0) {
            break;
        }
        if (!_DkpfCollectReload(lpRoutine, lpCollect)) {
            return TRUE;
        }
        dwElapsed = GetTickCount() - lpCollect->start;
        if (dwElapsed >= dwInterval) {
            return TRUE;
        }
        // Always from the start of the iteration: several reloads in one iteration take the time off more than once,
        // and the rest may wrap to a very long wait. Kept as it is.
        dwRemaining -= dwElapsed;
    }
    if (dwWait == WAIT_TIMEOUT) {
        _DkpfCollectSample(lpRoutine, lpCollect);
        return TRUE;
    }
    if (dwWait == WAIT_OBJECT_0 + 1) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_NOTICE, " Detect Terminate Event.");
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_NOTICE, " LogCollect loop end.(Cnt=%I64d)", lpCollect->loop);
        return FALSE;
    }
    dwW32Err = GetLastError();
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR,
                   " WaitForMultipleObjects(%d(%#p,%#p)) error. <ret=%d><W32Err=%d>", 2, ahEvent[0], ahEvent[1], dwWait,
                   dwW32Err);
    *lpdwErr = DKPF_ERR_SYNC;
    return FALSE;
}

/* Reads the configuration and opens the device, which stays open until the thread ends. Traces in the thread's name. */
static BOOL _DkpfCollectStart(const char* lpRoutine, DKPF_COLLECT* lpCollect, DWORD* lpdwErr)
{
    DWORD dwW32Err = 0;

    if (!_DkpfShmGetConf(DKPF_CONF_EVERY, &lpCollect->conf, lpdwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfShmGetConf(ALL) failed.(%#x)", *lpdwErr);
        return FALSE;
    }
    lpCollect->interval = lpCollect->conf.collect_interval;
    lpCollect->hDevice = _DkpfOpenDevice(&dwW32Err);
    if (lpCollect->hDevice == INVALID_HANDLE_VALUE) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "CreateFile(VELCOR_CTRL) error. <W32Err=%d>", dwW32Err);
        *lpdwErr = DKPF_ERR_DEVICE;
        return FALSE;
    }
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ENTEREXIT, "Start Collect Loop.");
    return TRUE;
}

/* Polls driver and filter once per collect interval and keeps the region current. Ends on the terminate event, or on an
 * error of its own start or wait; zeros stay in the region, so that nobody takes an old sample for a live one. */
unsigned __stdcall _DkpfPerfCollectThread(void*)
{
    DWORD        dwErr = DKPF_ERR_SUCCESS;
    DKPF_COLLECT collect = {};

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER");
    if (_DkpfCollectStart(__func__, &collect, &dwErr)) {
        while (_DkpfCollectIteration(__func__, &collect, &dwErr)) {
        }
    }
    if (dwErr != DKPF_ERR_SUCCESS && !_DkpfSetWarnEventLog(DKPF_WARN_STOPPED, DKPF_BLOCK_COLLECT, &dwErr)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfSetWarnEventLog() failed.(%#x)", dwErr);
    }
    if (!_DkpfSetPerfZeroToShm(&dwErr)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfSetPerfZeroToShm() failed.(%#x)", dwErr);
    }
    _DkpfCloseHandle(&collect.hDevice);
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT");
    _endthreadex(0);
    return 0;
}
