/*
 * The CSV log, in the producer only, on the write thread alone:
 *   Text             appending at a moving end
 *   Header lines     column titles in the manner of counter paths
 *   Data lines       one per file and pass
 *   Files            opening, rotating, writing
 *   Write thread     one pass per write interval
 */
#define DKPF_TRACE_SOURCE "diskperf/src/diskperf_pflog"  // __FILE__ would trace the build machine's path
#include "diskperf.h"
#include "diskperf_counter.h"

#include <process.h>
#include <string.h>

#include <charconv>

/* ---- Text -------------------------------------------------------------------------------------------------------- */

char g_szComputerName[DKPF_COMPUTER_SIZE] = {};

/* A text under construction in a caller's buffer. What does not fit is left out; the text always ends in NUL. */
typedef struct _DKPF_TEXT {
    char* lpEnd;   // where the next byte goes; holds NUL
    char* lpLast;  // last byte of the buffer, for the NUL alone
} DKPF_TEXT;

static DKPF_TEXT _DkpfTextStart(char* lpBuffer, size_t size)
{
    lpBuffer[0] = '\0';
    return { lpBuffer, lpBuffer + size - 1 };
}

static void _DkpfTextAppend(DKPF_TEXT* lpText, const char* lpPiece)
{
    size_t       length = strlen(lpPiece);
    const size_t room = static_cast<size_t>(lpText->lpLast - lpText->lpEnd);

    if (length > room) {
        length = room;
    }
    memcpy(lpText->lpEnd, lpPiece, length);
    lpText->lpEnd += length;
    *lpText->lpEnd = '\0';
}

/* A number in decimal, padded with zeros to a width of at most 20. */
static void _DkpfTextNumber(DKPF_TEXT* lpText, ULONGLONG value, int nWidth)
{
    char                 szDigits[24] = {};
    std::to_chars_result result = std::to_chars(szDigits, szDigits + sizeof(szDigits) - 1, value);
    const int            nDigits = static_cast<int>(result.ptr - szDigits);

    for (int i = nDigits; i < nWidth; i++) {
        _DkpfTextAppend(lpText, "0");
    }
    _DkpfTextAppend(lpText, szDigits);
}

/* ---- Header lines ------------------------------------------------------------------------------------------------ */

/* Instance name of a mirror disk, or of the total for 0. FALSE where there is no such disk. Traces in the caller's
 * name. */
static BOOL _DkpfPlogInstanceName(const char* lpRoutine, int nmpIndex, char* lpName, size_t size, DWORD* lpdwErr)
{
    DKPF_TEXT text = _DkpfTextStart(lpName, size);

    if (nmpIndex < 0 || nmpIndex > static_cast<int>(DKPF_NMP_MAX)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "Invalid NMP Index(%d).", nmpIndex);
        *lpdwErr = DKPF_ERR_PARAMETER;
        return FALSE;
    }
    if (nmpIndex == 0) {
        _DkpfTextAppend(&text, g_szString[DKPF_STRING_TOTAL]);
    } else {
        _DkpfTextAppend(&text, g_szString[DKPF_STRING_NMP]);
        _DkpfTextNumber(&text, static_cast<ULONGLONG>(nmpIndex), 0);
    }
    return TRUE;
}

/* The first column's title. */
static DKPF_TEXT _DkpfPlogHeaderStart(char* lpStr)
{
    DKPF_TEXT text = _DkpfTextStart(lpStr, DKPF_LINE_SIZE);

    _DkpfTextAppend(&text, "\"");
    _DkpfTextAppend(&text, g_szString[DKPF_STRING_TIMESTAMP]);
    _DkpfTextAppend(&text, "\"");
    return text;
}

/* One column: ,"\\COMPUTER\OBJECT(INSTANCE)\TITLE" */
static void _DkpfPlogHeaderColumn(DKPF_TEXT* lpText, const char* lpInstance, DWORD dwString)
{
    _DkpfTextAppend(lpText, ",\"\\\\");
    _DkpfTextAppend(lpText, g_szComputerName);
    _DkpfTextAppend(lpText, "\\");
    _DkpfTextAppend(lpText, DKPF_OBJECT_NAME);
    _DkpfTextAppend(lpText, "(");
    _DkpfTextAppend(lpText, lpInstance);
    _DkpfTextAppend(lpText, ")\\");
    _DkpfTextAppend(lpText, g_szString[dwString]);
    _DkpfTextAppend(lpText, "\"");
}

/* Header of a display file: the columns that collectParam selects, in ascending bit order; bits 17 to 31 mean nothing.
 */
BOOL _DkpfPlogHeaderStr(int nmpIndex, DWORD collectParam, char* lpStr, DWORD* lpdwErr)
{
    BOOL      bRet = FALSE;
    char      szInstance[DKPF_STRING_SIZE + 16] = {};
    DKPF_TEXT text = {};

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    if (!_DkpfPlogInstanceName(__func__, nmpIndex, szInstance, sizeof(szInstance), lpdwErr)) {
        goto exit;
    }
    text = _DkpfPlogHeaderStart(lpStr);
    for (DWORD b = 0; b < DKPF_COUNTER_NUM; b++) {
        if ((collectParam & (1u << b)) != 0) {
            _DkpfPlogHeaderColumn(&text, szInstance, g_aColumn[b]);
        }
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DUMP, "%s", lpStr);
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(bRet));
    return bRet;
}

/* Header of a raw file: always all 19 columns, also for the total. */
BOOL _DkpfPlogHeaderStrRaw(int nmpIndex, char* lpStr, DWORD* lpdwErr)
{
    BOOL      bRet = FALSE;
    char      szInstance[DKPF_STRING_SIZE + 16] = {};
    DKPF_TEXT text = {};

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    if (!_DkpfPlogInstanceName(__func__, nmpIndex, szInstance, sizeof(szInstance), lpdwErr)) {
        goto exit;
    }
    text = _DkpfPlogHeaderStart(lpStr);
    for (const DKPF_RAWCOLUMN& column : g_aRawColumn) {
        _DkpfPlogHeaderColumn(&text, szInstance, column.string);
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DUMP, "%s", lpStr);
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(bRet));
    return bRet;
}

/* ---- Data lines -------------------------------------------------------------------------------------------------- */

/* Time stamp field: "03/07/2024 14:05:09.042". All lines of a pass carry the same time, up to 130 of them: the text is
 * kept while the 16 bytes of the time are the same. Write thread alone. */
static void _DkpfPlogTimeStamp(DKPF_TEXT* lpText, const SYSTEMTIME* lpLocalTime)
{
    static SYSTEMTIME s_time = {};
    static char       s_szStamp[64] = {};

    if (s_szStamp[0] == '\0' || memcmp(&s_time, lpLocalTime, sizeof(s_time)) != 0) {
        DKPF_TEXT text = _DkpfTextStart(s_szStamp, sizeof(s_szStamp));

        s_time = *lpLocalTime;
        _DkpfTextAppend(&text, "\"");
        _DkpfTextNumber(&text, s_time.wMonth, 2);
        _DkpfTextAppend(&text, "/");
        _DkpfTextNumber(&text, s_time.wDay, 2);
        _DkpfTextAppend(&text, "/");
        _DkpfTextNumber(&text, s_time.wYear, 4);
        _DkpfTextAppend(&text, " ");
        _DkpfTextNumber(&text, s_time.wHour, 2);
        _DkpfTextAppend(&text, ":");
        _DkpfTextNumber(&text, s_time.wMinute, 2);
        _DkpfTextAppend(&text, ":");
        _DkpfTextNumber(&text, s_time.wSecond, 2);
        _DkpfTextAppend(&text, ".");
        _DkpfTextNumber(&text, s_time.wMilliseconds, 3);
        _DkpfTextAppend(&text, "\"");
    }
    _DkpfTextAppend(lpText, s_szStamp);
}

/* Value field: ,"123" */
static void _DkpfPlogValue(DKPF_TEXT* lpText, ULONGLONG value)
{
    _DkpfTextAppend(lpText, ",\"");
    _DkpfTextNumber(lpText, value, 0);
    _DkpfTextAppend(lpText, "\"");
}

/* Line of a display file: the columns of its header. lpValues is one row of the display record. */
BOOL _DkpfPlogDataStr(DWORD collectParam, const SYSTEMTIME* lpLocalTime, const ULONGLONG* lpValues, char* lpStr,
                      DWORD* lpdwErr)
{
    DKPF_TEXT text = {};

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    text = _DkpfTextStart(lpStr, DKPF_LINE_SIZE);
    _DkpfPlogTimeStamp(&text, lpLocalTime);
    for (DWORD b = 0; b < DKPF_COUNTER_NUM; b++) {
        if ((collectParam & (1u << b)) != 0) {
            _DkpfPlogValue(&text, lpValues[g_aColumn[b]]);
        }
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DUMP, "%s", lpStr);
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(TRUE));
    return TRUE;
}

/* Line of a disk's raw file; nSlot 0 to 63, which the caller answers for. */
BOOL _DkpfPlogDataStrRaw(int nSlot, const DKPF_PARAM* lpSample, char* lpStr, DWORD* lpdwErr)
{
    DKPF_TEXT text = {};

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    text = _DkpfTextStart(lpStr, DKPF_LINE_SIZE);
    _DkpfPlogTimeStamp(&text, &lpSample->local_time);
    for (const DKPF_RAWCOLUMN& column : g_aRawColumn) {
        const DKPF_INSTANCE* lpRow =
            column.bPeak ? &lpSample->maxinstance[column.row] : &lpSample->instance[column.row];

        _DkpfPlogValue(&text, lpRow->inst_sub[nSlot].value);
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DUMP, "%s", lpStr);
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(TRUE));
    return TRUE;
}

/* Line of the total raw file. */
BOOL _DkpfPlogDataStrRawTotal(const DKPF_RAWTOTAL* lpRawTotal, const SYSTEMTIME* lpLocalTime, char* lpStr,
                              DWORD* lpdwErr)
{
    DKPF_TEXT text = {};

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    text = _DkpfTextStart(lpStr, DKPF_LINE_SIZE);
    _DkpfPlogTimeStamp(&text, lpLocalTime);
    for (const DKPF_RAWCOLUMN& column : g_aRawColumn) {
        _DkpfPlogValue(&text, lpRawTotal->value[_DkpfRawTotalSlot(column)]);
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DUMP, "%s", lpStr);
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(TRUE));
    return TRUE;
}

/* ---- Files ------------------------------------------------------------------------------------------------------- */

/* Opens one file under its base name; on failure the handle stays 0 and the next pass tries again. Traces in the
 * caller's name. */
static BOOL _DkpfPlogOpen(const char* lpRoutine, const char* lpName, const DKPF_CONF* lpDkpfConf, const char* lpHeader,
                          HTNWCSV* lphFile, DWORD* lpdwErr)
{
    DWORD dwStatus = log_util_init(lpName, lphFile, 3, 0, lpDkpfConf->perf_log_size, lpDkpfConf->perf_log_rotation,
                                   DKPF_LINE_SIZE, lpHeader, 0, 0);

    if (dwStatus != TNWLOG_OK) {
        *lpdwErr = DKPF_ERR_CSV_OPEN;
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "log_util_init(%s,%#p) failed(%d,%#x).", lpName,
                       *lphFile, dwStatus, *lpdwErr);
        *lphFile = NULL;
        return FALSE;
    }
    return TRUE;
}

/* Base name of a file: "nmp3", "nmp3_raw", "nmp_total", "nmp_total_raw". */
static void _DkpfPlogName(int nmpIndex, const char* lpSuffix, char* lpName, size_t size)
{
    DKPF_TEXT text = _DkpfTextStart(lpName, size);

    _DkpfTextAppend(&text, "nmp");
    if (nmpIndex == 0) {
        _DkpfTextAppend(&text, "_total");
    } else {
        _DkpfTextNumber(&text, static_cast<ULONGLONG>(nmpIndex), 0);
    }
    _DkpfTextAppend(&text, lpSuffix);
}

/* Opens the display file of a disk, or of the total for 0, if it is not open. Traces in the caller's name. */
static BOOL _DkpfPlogOpenDisp(const char* lpRoutine, int nmpIndex, const DKPF_CONF* lpDkpfConf, char* lpStr,
                              HTNWCSV* lphFile, DWORD* lpdwErr)
{
    DWORD dwErr = DKPF_ERR_SUCCESS;
    char  szName[128] = {};

    if (*lphFile != NULL) {
        return TRUE;
    }
    _DkpfPlogName(nmpIndex, "", szName, sizeof(szName));
    if (!_DkpfPlogHeaderStr(nmpIndex, lpDkpfConf->collect_param, lpStr, &dwErr)) {
        *lpdwErr = dwErr;
        if (nmpIndex == 0) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfPlogHeaderStr() failed(%#x).", dwErr);
        } else {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfPlogHeaderStr(%d) failed(%#x).", nmpIndex,
                           dwErr);
        }
        return FALSE;
    }
    return _DkpfPlogOpen(lpRoutine, szName, lpDkpfConf, lpStr, lphFile, lpdwErr);
}

/* The same for the raw file. */
static BOOL _DkpfPlogOpenRaw(const char* lpRoutine, int nmpIndex, const DKPF_CONF* lpDkpfConf, char* lpStr,
                             HTNWCSV* lphFile, DWORD* lpdwErr)
{
    DWORD dwErr = DKPF_ERR_SUCCESS;
    char  szName[128] = {};

    if (*lphFile != NULL) {
        return TRUE;
    }
    _DkpfPlogName(nmpIndex, "_raw", szName, sizeof(szName));
    if (!_DkpfPlogHeaderStrRaw(nmpIndex, lpStr, &dwErr)) {
        *lpdwErr = dwErr;
        if (nmpIndex == 0) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfPlogHeaderStrRaw() failed(%#x).", dwErr);
        } else {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfPlogHeaderStrRaw(%d) failed(%#x).",
                           nmpIndex, dwErr);
        }
        return FALSE;
    }
    return _DkpfPlogOpen(lpRoutine, szName, lpDkpfConf, lpStr, lphFile, lpdwErr);
}

/* Opens what is not open of the files of the disks that are present, and the total's once some disk has a file. A
 * failure costs that file alone; the code is the last one's. */
BOOL _DkpfPlogInit(const DWORD* lpInitFlag, const DKPF_CONF* lpDkpfConf, char* lpStr, HTNWCSV* lpDispHandles,
                   HTNWCSV* lpRawHandles, DWORD* lpdwErr)
{
    BOOL bRet = TRUE;
    BOOL bAnyOpen = FALSE;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    for (int n = 1; n <= static_cast<int>(DKPF_NMP_MAX); n++) {
        if (lpInitFlag[n - 1] != 1) {
            continue;
        }
        if (_DkpfPlogOpenDisp(__func__, n, lpDkpfConf, lpStr, &lpDispHandles[n], lpdwErr)) {
            bAnyOpen = TRUE;
        } else {
            bRet = FALSE;
        }
        if (_DkpfPlogOpenRaw(__func__, n, lpDkpfConf, lpStr, &lpRawHandles[n], lpdwErr)) {
            bAnyOpen = TRUE;
        } else {
            bRet = FALSE;
        }
    }
    if (bAnyOpen) {
        if (!_DkpfPlogOpenDisp(__func__, 0, lpDkpfConf, lpStr, &lpDispHandles[0], lpdwErr)) {
            bRet = FALSE;
        }
        if (!_DkpfPlogOpenRaw(__func__, 0, lpDkpfConf, lpStr, &lpRawHandles[0], lpdwErr)) {
            bRet = FALSE;
        }
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(bRet));
    return bRet;
}

/* Starts a new generation of one display file under the header that stands in lpStr. Traces in the caller's name. */
static BOOL _DkpfPlogRotateFile(const char* lpRoutine, const char* lpStr, HTNWCSV hFile, DWORD* lpdwErr)
{
    DWORD dwStatus = log_util_rotate(hFile, DKPF_LINE_SIZE, lpStr);

    if (dwStatus != TNWLOG_OK) {
        *lpdwErr = DKPF_ERR_CSV_ROTATE;
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "log_util_rotate(%#p) failed(%d,%#x).", hFile,
                       dwStatus, *lpdwErr);
        return FALSE;
    }
    return TRUE;
}

/* Starts new display files with the header of a changed column selection. Files of disks that are not present now keep
 * their header; raw files never change theirs. */
BOOL _DkpfPlogRotate(const DWORD* lpInitFlag, const DKPF_CONF* lpDkpfConf, char* lpStr, HTNWCSV* lpDispHandles,
                     DWORD* lpdwErr)
{
    BOOL  bRet = TRUE;
    BOOL  bAnyRotated = FALSE;
    DWORD dwErr = DKPF_ERR_SUCCESS;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    for (int n = 1; n <= static_cast<int>(DKPF_NMP_MAX); n++) {
        if (lpInitFlag[n - 1] != 1 || lpDispHandles[n] == NULL) {
            continue;
        }
        if (!_DkpfPlogHeaderStr(n, lpDkpfConf->collect_param, lpStr, &dwErr)) {
            *lpdwErr = dwErr;
            DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfPlogHeaderStr(%d) failed(%#x).", n, dwErr);
            bRet = FALSE;
        } else if (_DkpfPlogRotateFile(__func__, lpStr, lpDispHandles[n], lpdwErr)) {
            bAnyRotated = TRUE;
        } else {
            bRet = FALSE;
        }
    }
    if (bAnyRotated && lpDispHandles[0] != NULL) {
        if (!_DkpfPlogHeaderStr(0, lpDkpfConf->collect_param, lpStr, &dwErr)) {
            *lpdwErr = dwErr;
            DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfPlogHeaderStr() failed(%#x).", dwErr);
            bRet = FALSE;
        } else if (!_DkpfPlogRotateFile(__func__, lpStr, lpDispHandles[0], lpdwErr)) {
            bRet = FALSE;
        }
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(bRet));
    return bRet;
}

/* Writes the line that stands in lpStr. Traces in the caller's name. */
static BOOL _DkpfPlogWriteLine(const char* lpRoutine, HTNWCSV hFile, const char* lpStr, DWORD* lpdwErr)
{
    DWORD dwStatus = log_util_write(hFile, "%s", lpStr);

    if (dwStatus != TNWLOG_OK) {
        *lpdwErr = DKPF_ERR_CSV_WRITE;
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "log_util_write(%#p) failed(%d,%#x).", hFile,
                       dwStatus, *lpdwErr);
        return FALSE;
    }
    return TRUE;
}

/* Builds and writes one display line. The formatter cannot fail; its failure would cost this file its line. */
static BOOL _DkpfPlogWriteDisp(const char* lpRoutine, DWORD collectParam, const SYSTEMTIME* lpLocalTime,
                               const ULONGLONG* lpValues, char* lpStr, HTNWCSV hFile, DWORD* lpdwErr)
{
    DWORD dwErr = DKPF_ERR_SUCCESS;

    if (!_DkpfPlogDataStr(collectParam, lpLocalTime, lpValues, lpStr, &dwErr)) {
        *lpdwErr = dwErr;
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfPlogDataStr() failed(%#x).", dwErr);
        return FALSE;
    }
    return _DkpfPlogWriteLine(lpRoutine, hFile, lpStr, lpdwErr);
}

/* One line into every open file of a present disk, then the totals if any disk got its line. A failure costs that file
 * alone; the code is the last one's. */
BOOL _DkpfPlogWriteCSV(DWORD collectParam, const DKPF_DISP* lpData, const DKPF_PARAM* lpSample,
                       const DKPF_RAWTOTAL* lpRawTotal, char* lpStr, const HTNWCSV* lpDispHandles,
                       const HTNWCSV* lpRawHandles, DWORD* lpdwErr)
{
    BOOL              bRet = TRUE;
    BOOL              bAnyWritten = FALSE;
    DWORD             dwErr = DKPF_ERR_SUCCESS;
    const SYSTEMTIME* lpTime = &lpSample->local_time;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    for (int d = 0; d < static_cast<int>(DKPF_NMP_MAX); d++) {
        if (lpSample->InitFlag[d] != 1) {
            continue;
        }
        if (lpDispHandles[1 + d] != NULL) {
            if (_DkpfPlogWriteDisp(__func__, collectParam, lpTime, lpData->value[1 + d], lpStr, lpDispHandles[1 + d],
                                   lpdwErr)) {
                bAnyWritten = TRUE;
            } else {
                bRet = FALSE;
            }
        }
        if (lpRawHandles[1 + d] != NULL) {
            if (!_DkpfPlogDataStrRaw(d, lpSample, lpStr, &dwErr)) {
                *lpdwErr = dwErr;
                DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfPlogDataStrRaw(%d) failed(%#x).", d, dwErr);
                bRet = FALSE;
            } else if (_DkpfPlogWriteLine(__func__, lpRawHandles[1 + d], lpStr, lpdwErr)) {
                bAnyWritten = TRUE;
            } else {
                bRet = FALSE;
            }
        }
    }
    if (bAnyWritten && lpDispHandles[0] != NULL &&
        !_DkpfPlogWriteDisp(__func__, collectParam, lpTime, lpData->value[0], lpStr, lpDispHandles[0], lpdwErr)) {
        bRet = FALSE;
    }
    if (bAnyWritten && lpRawHandles[0] != NULL) {
        if (!_DkpfPlogDataStrRawTotal(lpRawTotal, lpTime, lpStr, &dwErr)) {
            *lpdwErr = dwErr;
            // The text names a header routine. Operators search their logs for it: keep it.
            DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, "_DkpfPlogHeaderStrRawTotal() failed(%#x).", dwErr);
            bRet = FALSE;
        } else if (!_DkpfPlogWriteLine(__func__, lpRawHandles[0], lpStr, lpdwErr)) {
            bRet = FALSE;
        }
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(bRet));
    return bRet;
}

/* ---- Write thread ------------------------------------------------------------------------------------------------ */

/* What the thread works with. Files stay open until it ends, also those of a disk that leaves. */
typedef struct _DKPF_WRITER {
    DKPF_CONF      conf;   // as last read from the region
    DKPF_CONF      saved;  // of the pass before, to see what a reload changed
    ULONGLONG      pass;   // the first after start or after a reset does not wait
    DWORD          start;  // tick at the start of the pass
    DWORD          wait;   // ms from the start of the pass to its sample
    char*          lpStr;  // header or data line, DKPF_LINE_SIZE bytes
    DKPF_PARAM*    lpCurParam;
    DKPF_PARAM*    lpPrevParam;  // baseline of the display values
    DKPF_DISP*     lpData;
    DKPF_RAWTOTAL* lpDataRawT;
    HTNWCSV        ahDisp[DKPF_ROW_NUM];  // 0 the total, 1 + d disk slot d; 0 not open
    HTNWCSV        ahRaw[DKPF_ROW_NUM];
} DKPF_WRITER;

/* What a step leaves to do. */
typedef enum _DKPF_STEP {
    DKPF_STEP_ON,      // go on within the pass
    DKPF_STEP_NEXT,    // the pass is over, begin the next
    DKPF_STEP_STOP,    // the thread ends as asked
    DKPF_STEP_FAILED,  // the thread ends on an error
} DKPF_STEP;

/* Is logging on? */
static BOOL _DkpfPlogIsOn(const DKPF_CONF* lpDkpfConf)
{
    return lpDkpfConf->perf_enable != 0 && lpDkpfConf->perf_log_save != 0;
}

/* Raises a warning of this thread; what that yields changes nothing here. */
static void _DkpfPlogWarn(int index, DWORD blockId)
{
    DWORD dwIgnored = 0;

    _DkpfSetWarnEventLog(index, blockId, &dwIgnored);
}

static BOOL _DkpfPlogAlloc(const char* lpRoutine, void** lplpBuffer, DWORD dwSize, const char* lpFailed)
{
    *lplpBuffer = GlobalAlloc(GPTR, dwSize);
    if (*lplpBuffer == NULL) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, lpFailed, DKPF_ERR_MEMORY);
        return FALSE;
    }
    return TRUE;
}

/* Computer name, buffers (zero-filled), first configuration. Traces in the thread's name. */
static BOOL _DkpfPlogStart(const char* lpRoutine, DKPF_WRITER* lpWriter)
{
    DWORD dwErr = DKPF_ERR_SUCCESS;
    DWORD dwW32Err = 0;
    DWORD dwSize = DKPF_COMPUTER_SIZE;
    void* lpBuffer = NULL;

    if (!GetComputerNameA(g_szComputerName, &dwSize)) {
        dwW32Err = GetLastError();
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR,
                       "GetComputerName() failed(W32Err=%d). retSize(%d) dkpferr(%#x)", dwW32Err, dwSize,
                       DKPF_ERR_COMPUTER_NAME);
        return FALSE;
    }
    if (!_DkpfPlogAlloc(lpRoutine, &lpBuffer, DKPF_LINE_SIZE, "lpStr _MALLOC() failed(%#x).")) {
        return FALSE;
    }
    lpWriter->lpStr = static_cast<char*>(lpBuffer);
    if (!_DkpfPlogAlloc(lpRoutine, &lpBuffer, sizeof(DKPF_PARAM), "lpCurParam _MALLOC() failed(%#x).")) {
        return FALSE;
    }
    lpWriter->lpCurParam = static_cast<DKPF_PARAM*>(lpBuffer);
    if (!_DkpfPlogAlloc(lpRoutine, &lpBuffer, sizeof(DKPF_PARAM), "lpPrevParam _MALLOC() failed(%#x).")) {
        return FALSE;
    }
    lpWriter->lpPrevParam = static_cast<DKPF_PARAM*>(lpBuffer);
    if (!_DkpfPlogAlloc(lpRoutine, &lpBuffer, sizeof(DKPF_DISP), "lpData _MALLOC() failed(%#x).")) {
        return FALSE;
    }
    lpWriter->lpData = static_cast<DKPF_DISP*>(lpBuffer);
    if (!_DkpfPlogAlloc(lpRoutine, &lpBuffer, sizeof(DKPF_RAWTOTAL), "lpDataRawT _MALLOC() failed(%#x).")) {
        return FALSE;
    }
    lpWriter->lpDataRawT = static_cast<DKPF_RAWTOTAL*>(lpBuffer);
    if (!_DkpfShmGetConf(DKPF_CONF_EVERY, &lpWriter->conf, &dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfShmGetConf() failed(%#x).", dwErr);
        return FALSE;
    }
    lpWriter->saved = lpWriter->conf;
    return TRUE;
}

/* Takes over a changed configuration in the middle of a pass. Traces in the thread's name. */
static DKPF_STEP _DkpfPlogReload(const char* lpRoutine, DKPF_WRITER* lpWriter)
{
    DWORD      dwErr = DKPF_ERR_SUCCESS;
    BOOL       bInterval = FALSE;
    DKPF_CONF* lpConf = &lpWriter->conf;
    DKPF_CONF* lpSaved = &lpWriter->saved;

    if (!_DkpfShmGetConf(DKPF_CONF_EVERY, lpConf, &dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfShmGetConf() failed(%#x).", dwErr);
        _DkpfPlogWarn(DKPF_WARN_COLLECT, DKPF_BLOCK_WRITE);
        return DKPF_STEP_NEXT;
    }
    if (!_DkpfPlogIsOn(lpConf)) {
        *lpSaved = *lpConf;
        return DKPF_STEP_NEXT;
    }
    if (!_DkpfPlogIsOn(lpSaved) && lpConf->perf_enable == 1 && lpConf->perf_log_save == 1) {
        // Switched on: the first line covers the time since the last sample read.
        *lpWriter->lpPrevParam = *lpWriter->lpCurParam;
    }
    if (lpConf->collect_param != lpSaved->collect_param &&
        !_DkpfPlogRotate(lpWriter->lpCurParam->InitFlag, lpConf, lpWriter->lpStr, lpWriter->ahDisp, &dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfPlogRotate() failed(%#x).", dwErr);
        _DkpfPlogWarn(DKPF_WARN_CSVLOG, DKPF_BLOCK_CSVLOG);
        *lpSaved = *lpConf;
        return DKPF_STEP_NEXT;
    }
    bInterval = lpConf->write_interval != lpSaved->write_interval;
    *lpSaved = *lpConf;
    if (bInterval) {
        memset(lpWriter->lpPrevParam, 0, sizeof(DKPF_PARAM));
        lpWriter->pass = 0;
        return DKPF_STEP_NEXT;
    }
    return DKPF_STEP_ON;
}

/* Waits until the sample of this pass is due; reloads on the way leave the rest of the time as it was. Traces in the
 * thread's name. */
static DKPF_STEP _DkpfPlogWait(const char* lpRoutine, DKPF_WRITER* lpWriter)
{
    const HANDLE ahEvent[] = { g_hTerminateEvent, g_hReloadEvent2 };
    DWORD        dwRemaining = lpWriter->wait;
    DWORD        dwElapsed = 0;
    DWORD        dwWait = 0;
    DWORD        dwW32Err = 0;
    DKPF_STEP    step = DKPF_STEP_ON;

    for (;;) {
        dwWait = WaitForMultipleObjects(ARRAYSIZE(ahEvent), ahEvent, FALSE, dwRemaining);
        if (dwWait == WAIT_OBJECT_0) {
            return DKPF_STEP_STOP;
        }
        if (dwWait == WAIT_TIMEOUT) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, "timeout:%dsec", lpWriter->conf.write_interval);
            return DKPF_STEP_ON;
        }
        if (dwWait != WAIT_OBJECT_0 + 1) {
            dwW32Err = GetLastError();
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR,
                           "WaitForMultipleObjects(%d(%#p,%#p)) error. <W32Err=%d>", 2, ahEvent[0], ahEvent[1],
                           dwW32Err);
            return DKPF_STEP_FAILED;
        }
        step = _DkpfPlogReload(lpRoutine, lpWriter);
        if (step != DKPF_STEP_ON) {
            return step;
        }
        dwElapsed = GetTickCount() - lpWriter->start;
        if (dwElapsed >= lpWriter->wait) {
            return DKPF_STEP_ON;
        }
        dwRemaining = lpWriter->wait - dwElapsed;
    }
}

/* Reads the latest sample and decides whether there is something to show. DKPF_STEP_ON with lpWriter->wait changed: no
 * new sample yet, wait again. Traces in the thread's name. */
static DKPF_STEP _DkpfPlogSample(const char* lpRoutine, DKPF_WRITER* lpWriter, BOOL* lpbNew)
{
    DWORD       dwErr = DKPF_ERR_SUCCESS;
    DKPF_PARAM* lpCur = lpWriter->lpCurParam;
    DKPF_PARAM* lpPrev = lpWriter->lpPrevParam;

    *lpbNew = FALSE;
    memset(lpCur, 0, sizeof(*lpCur));
    if (!_DkpfShmGetPerf(lpCur, &dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfShmGetPerf() failed(%#x).", dwErr);
        _DkpfPlogWarn(DKPF_WARN_COLLECT, DKPF_BLOCK_WRITE);
        return DKPF_STEP_NEXT;
    }
    if (!_DkpfPlogIsOn(&lpWriter->conf)) {
        return DKPF_STEP_NEXT;
    }
    if (lpCur->local_time.wDay == 0) {
        memset(lpPrev, 0, sizeof(*lpPrev));
        return DKPF_STEP_NEXT;
    }
    if (lpPrev->local_time.wDay == 0) {
        *lpPrev = *lpCur;
        return DKPF_STEP_NEXT;
    }
    if (lpCur->sampling_time == lpPrev->sampling_time) {
        // The collector is slower than this thread: look again every second.
        lpWriter->wait = 1000;
        return DKPF_STEP_ON;
    }
    *lpbNew = TRUE;
    return DKPF_STEP_ON;
}

/* Computes and writes the lines of a pass. Traces in the thread's name. */
static void _DkpfPlogWrite(const char* lpRoutine, DKPF_WRITER* lpWriter)
{
    BOOL        bValues = FALSE;
    DWORD       dwErr = DKPF_ERR_SUCCESS;
    DKPF_PARAM* lpCur = lpWriter->lpCurParam;

    memset(lpWriter->lpData, 0, sizeof(DKPF_DISP));
    memset(lpWriter->lpDataRawT, 0, sizeof(DKPF_RAWTOTAL));
    bValues = _DkpfCmnGetDisplayValue(lpCur, lpWriter->lpPrevParam, lpWriter->lpData, lpWriter->lpDataRawT, &dwErr);
    if (!bValues) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfCmnGetDisplayValue() failed(%#x).", dwErr);
    }
    *lpWriter->lpPrevParam = *lpCur;
    if (!bValues) {
        return;
    }
    if (!_DkpfPlogInit(lpCur->InitFlag, &lpWriter->conf, lpWriter->lpStr, lpWriter->ahDisp, lpWriter->ahRaw, &dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfPlogInit() failed(%#x).", dwErr);
        _DkpfPlogWarn(DKPF_WARN_CSVLOG, DKPF_BLOCK_CSVLOG);
        return;
    }
    if (!_DkpfPlogWriteCSV(lpWriter->conf.collect_param, lpWriter->lpData, lpCur, lpWriter->lpDataRawT, lpWriter->lpStr,
                           lpWriter->ahDisp, lpWriter->ahRaw, &dwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfPlogWriteCSV() failed(%#x).", dwErr);
        _DkpfPlogWarn(DKPF_WARN_CSVLOG, DKPF_BLOCK_CSVLOG);
        return;
    }
    _DkpfResetWarnEventLog(DKPF_WARN_COLLECT, DKPF_BLOCK_WRITE, &dwErr);
    _DkpfResetWarnEventLog(DKPF_WARN_CSVLOG, DKPF_BLOCK_CSVLOG, &dwErr);
}

/* One pass. Traces in the thread's name. */
static DKPF_STEP _DkpfPlogPass(const char* lpRoutine, DKPF_WRITER* lpWriter)
{
    BOOL      bNew = FALSE;
    DKPF_STEP step = DKPF_STEP_ON;

    lpWriter->pass++;
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfLog, DKPF_LOG_DUMP, " Loop (%I64u) Start.", lpWriter->pass);
    lpWriter->start = GetTickCount();
    lpWriter->wait = lpWriter->pass == 1 ? 0 : lpWriter->conf.write_interval * 1000;
    while (!bNew) {
        step = _DkpfPlogWait(lpRoutine, lpWriter);
        if (step != DKPF_STEP_ON) {
            return step;
        }
        step = _DkpfPlogSample(lpRoutine, lpWriter, &bNew);
        if (step != DKPF_STEP_ON) {
            return step;
        }
    }
    _DkpfPlogWrite(lpRoutine, lpWriter);
    return DKPF_STEP_NEXT;
}

static void _DkpfPlogFree(void* lpBuffer)
{
    if (lpBuffer != NULL) {
        GlobalFree(lpBuffer);
    }
}

/* Once per write interval turns the latest sample into one line per CSV file. Ends on the terminate event, or on an
 * error of its own start or wait. */
unsigned __stdcall _DkpfPlogWriteThread(void*)
{
    DWORD       dwErr = DKPF_ERR_SUCCESS;
    DKPF_STEP   step = DKPF_STEP_FAILED;
    DKPF_WRITER writer = {};

    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "ENTER : ");
    if (_DkpfPlogStart(__func__, &writer)) {
        do {
            step = _DkpfPlogPass(__func__, &writer);
        } while (step == DKPF_STEP_NEXT);
    }
    if (step == DKPF_STEP_FAILED && !_DkpfSetWarnEventLog(DKPF_WARN_STOPPED, DKPF_BLOCK_WRITE, &dwErr)) {
        DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ERROR, "_DkpfSetWarnEventLog() failed.(%#x)", dwErr);
    }
    _DkpfPlogFree(writer.lpStr);
    _DkpfPlogFree(writer.lpCurParam);
    _DkpfPlogFree(writer.lpPrevParam);
    _DkpfPlogFree(writer.lpData);
    _DkpfPlogFree(writer.lpDataRawT);
    for (DWORD i = 0; i < DKPF_ROW_NUM; i++) {
        if (writer.ahDisp[i] != NULL) {
            log_util_term(writer.ahDisp[i]);
        }
        if (writer.ahRaw[i] != NULL) {
            log_util_term(writer.ahRaw[i]);
        }
    }
    DKPF_TRACE(g_hDkpfLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(step == DKPF_STEP_STOP));
    _endthreadex(0);
    return 0;
}
