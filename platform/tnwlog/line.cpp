/*
 * The trace line: one buffer, filled at a moving end, handed over in one write.
 */
#include "tnwlog_internal.h"
#include <stdio.h>
#include <string.h>

/* Room for what the library itself says in front of a line, how many were lost before it: three lines of 175. */
static const DWORD NOTICE_MAX = 525;

/* " <event 0x800012C1>": what an event's line ends in, however long its text is. */
static const DWORD EVENT_MARK = 19;

/* ---- Moving-end writers ---- */

char* TnwPutText(char* lp, const char* lpEnd, const char* lpText)
{
    while (lp < lpEnd && lpText != NULL && *lpText != '\0') {
        *lp++ = *lpText++;
    }
    return lp;
}

/* nWidth: at least so many digits. */
static char* PutDec(char* lp, const char* lpEnd, DWORD dwValue, int nWidth)
{
    char digits[10];
    int  n = 0;

    do {
        digits[n++] = static_cast<char>('0' + dwValue % 10);
        dwValue /= 10;
    } while (dwValue != 0 || n < nWidth);
    while (n > 0 && lp < lpEnd) {
        *lp++ = digits[--n];
    }
    return lp;
}

char* TnwPutHex(char* lp, const char* lpEnd, DWORD dwValue, int nDigits)
{
    lp = TnwPutText(lp, lpEnd, "0x");
    while (nDigits < 8 && dwValue >> (4 * nDigits) != 0) {
        nDigits++;
    }
    while (nDigits > 0 && lp < lpEnd) {
        *lp++ = "0123456789ABCDEF"[dwValue >> (4 * --nDigits) & 0xF];
    }
    return lp;
}

char* TnwPutTime(char* lp, const char* lpEnd, const SYSTEMTIME* lpTime)
{
    lp = TnwPutText(PutDec(lp, lpEnd, lpTime->wYear, 4), lpEnd, "/");
    lp = TnwPutText(PutDec(lp, lpEnd, lpTime->wMonth, 2), lpEnd, "/");
    lp = TnwPutText(PutDec(lp, lpEnd, lpTime->wDay, 2), lpEnd, " ");
    lp = TnwPutText(PutDec(lp, lpEnd, lpTime->wHour, 2), lpEnd, ":");
    lp = TnwPutText(PutDec(lp, lpEnd, lpTime->wMinute, 2), lpEnd, ":");
    lp = TnwPutText(PutDec(lp, lpEnd, lpTime->wSecond, 2), lpEnd, ".");
    return PutDec(lp, lpEnd, lpTime->wMilliseconds, 3);
}

/* The C run-time of Windows answers -1 both for a text that was cut, which is as wanted here, and for one that it could
 * not convert (%S). A second run over zeroed memory shows how far it came. */
char* TnwPutFormat(char* lp, char* lpEnd, const char* lpFormat, va_list args, BOOL* lpfCut)
{
    const size_t cRoom = static_cast<size_t>(lpEnd - lp);
    va_list      again;
    int          n = 0;

    va_copy(again, args);
    n = _vsnprintf(lp, cRoom, lpFormat, args);
    if (n < 0) {
        memset(lp, 0, cRoom);
        _vsnprintf(lp, cRoom, lpFormat, again);
        n = static_cast<int>(strnlen(lp, cRoom));
        *lpfCut = TRUE;
    } else {
        *lpfCut = FALSE;
    }
    va_end(again);
    return lp + n;
}

/* ---- The line ---- */

static char* PutPrefix(char* lp, const char* lpEnd, const SYSTEMTIME* lpTime, DWORD dwLevel, const TNW_PLACE* lpPlace)
{
    lp = TnwPutText(TnwPutTime(lp, lpEnd, lpTime), lpEnd, " ");
    lp = TnwPutText(PutDec(lp, lpEnd, GetCurrentProcessId(), 1), lpEnd, ":");
    lp = TnwPutText(PutDec(lp, lpEnd, GetCurrentThreadId(), 1), lpEnd, " ");
    lp = TnwPutText(TnwPutHex(lp, lpEnd, dwLevel, 4), lpEnd, " ");
    lp = TnwPutText(TnwPutText(lp, lpEnd, lpPlace->lpSource), lpEnd, "(");
    lp = TnwPutText(PutDec(lp, lpEnd, static_cast<DWORD>(lpPlace->nLine), 1), lpEnd, ") ");
    return TnwPutText(TnwPutText(lp, lpEnd, lpPlace->lpRoutine), lpEnd, ":");
}

/* A record is one line, whatever its arguments brought along. */
static void FlattenText(char* lp, const char* lpEnd)
{
    for (; lp < lpEnd; lp++) {
        if (*lp == '\r' || *lp == '\n' || *lp == '\0') {
            *lp = ' ';
        }
    }
}

static char* PutCount(char* lp, const char* lpEnd, const SYSTEMTIME* lpTime, LONG lCount, const char* lpText)
{
    const TNW_PLACE place = { "platform/tnwlog/line", __LINE__, "log_write" };

    if (lCount == 0) {
        return lp;
    }
    lp = TnwPutText(PutPrefix(lp, lpEnd, lpTime, TNWLOG_WARNING, &place), lpEnd, " ");
    lp = TnwPutText(PutDec(lp, lpEnd, static_cast<DWORD>(lCount), 1), lpEnd, lpText);
    return TnwPutText(lp, lpEnd, "\r\n");
}

void TnwLineWrite(HTNWLOG hLog, DWORD dwLevel, DWORD dwMessage, const TNW_PLACE* lpPlace, const char* lpFormat,
                  va_list args)
{
    const BOOL bEvent = (dwLevel & TNWLOG_EVENT) != 0 && dwMessage != 0;
    char       buffer[NOTICE_MAX + TNW_LINE_MAX], szText[TNW_EVENT_TEXT_MAX + 1];
    char *     lp = buffer, *lpLineEnd = NULL, *lpTextEnd = NULL, *lpText = NULL;
    SYSTEMTIME time;
    LONG       lDropped = 0, lLate = 0, lEntries = 0;
    BOOL       bLate = FALSE, bCut = FALSE;

    GetLocalTime(&time);
    /* What was lost or late is told in front of the first line that goes its usual way again. */
    if (hLog->lDropped != 0 || hLog->lLate != 0 || hLog->lEntries != 0) {
        lDropped = InterlockedExchange(&hLog->lDropped, 0);
        lEntries = InterlockedExchange(&hLog->lEntries, 0);
        lLate = hLog->shared.lStuck != 0 ? 0 : InterlockedExchange(&hLog->lLate, 0);
        lp = PutCount(lp, buffer + NOTICE_MAX, &time, lDropped, " lines were dropped, the file could not be written.");
        lp = PutCount(lp, buffer + NOTICE_MAX, &time, lEntries,
                      " event entries were dropped, diskperf_event.log could not be written.");
        lp = PutCount(lp, buffer + NOTICE_MAX, &time, lLate,
                      " lines were written without the lock, its owner did not answer.");
    }
    lpLineEnd = lp + TNW_LINE_MAX - 2;
    lpTextEnd = lpLineEnd - (bEvent ? EVENT_MARK : 0);
    lp = PutPrefix(lp, lpTextEnd, &time, dwLevel, lpPlace);
    lpText = lp;
    lp = TnwPutFormat(lp, lpTextEnd, lpFormat, args, &bCut);
    FlattenText(lpText, lp);
    if (bEvent) {
        *lp = '\0';
        *TnwPutText(szText, szText + TNW_EVENT_TEXT_MAX, lpText) = '\0';
        lp = TnwPutText(lp, lpLineEnd, " <event ");
        lp = TnwPutText(TnwPutHex(lp, lpLineEnd, dwMessage, 8), lpLineEnd, ">");
    }
    *lp++ = '\r';
    *lp++ = '\n';
    if (TnwSharedWrite(&hLog->shared, buffer, static_cast<DWORD>(lp - buffer), &bLate) != TNWLOG_OK) {
        InterlockedExchangeAdd(&hLog->lDropped, lDropped + 1);
        InterlockedExchangeAdd(&hLog->lLate, lLate);
        InterlockedExchangeAdd(&hLog->lEntries, lEntries);
    } else if (bLate) {
        InterlockedIncrement(&hLog->lLate);
    }
    if (bEvent && !TnwEventRaise(dwMessage, &time, szText, hLog->dwSize)) {
        InterlockedIncrement(&hLog->lEntries);
    }
}
