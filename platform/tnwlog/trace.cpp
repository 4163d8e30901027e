/*
 * Trace logs: opening, closing, and the level test that most lines end at. A line below the level costs this test
 * alone: no allocation, no system call, no formatting. The line itself is made in line.cpp.
 */
#include "tnwlog_internal.h"

DWORD log_init(const char* lpName, HTNWLOG* phLog, DWORD dwLevel, DWORD dwSize, DWORD dwReserved, const char* lpKey)
{
    HTNWLOG hLog = NULL;
    DWORD   dwStatus = TNWLOG_OK;

    if (phLog == NULL) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    *phLog = NULL;
    if (lpName == NULL || dwSize == 0 || dwSize > TNWLOG_SIZE_MAX || dwReserved != 0 || lpKey == NULL ||
        lpKey[0] == '\0') {
        return TNWLOG_INVALID_ARGUMENT;
    }
    hLog = static_cast<HTNWLOG>(TnwAlloc(sizeof *hLog));
    if (hLog == NULL) {
        return TNWLOG_NO_MEMORY;
    }
    dwStatus = TnwSharedInit(&hLog->shared, lpName, dwSize);
    if (dwStatus != TNWLOG_OK) {
        TnwFree(hLog);
        return dwStatus;
    }
    hLog->dwLevel = dwLevel | TNWLOG_EVENT;
    hLog->dwSize = dwSize;
    TnwOpenAdd(&hLog->open, TNW_KIND_TRACE);
    *phLog = hLog;
    return TNWLOG_OK;
}

DWORD log_term(HTNWLOG hLog)
{
    if (!TnwOpenRemove(hLog, TNW_KIND_TRACE)) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    TnwSharedTerm(&hLog->shared);
    TnwFree(hLog);
    return TNWLOG_OK;
}

void log_write(HTNWLOG hLog, DWORD dwLevel, DWORD dwMessage, const char* lpSource, int nLine, const char* lpRoutine,
               const char* lpFormat, ...)
{
    TNW_PLACE place;
    va_list   args;

    if (hLog == NULL || (hLog->dwLevel & dwLevel) == 0) {
        return;
    }
    place = { lpSource, nLine, lpRoutine };
    va_start(args, lpFormat);
    TnwLineWrite(hLog, dwLevel, dwMessage, &place, lpFormat != NULL ? lpFormat : "", args);
    va_end(args);
}
