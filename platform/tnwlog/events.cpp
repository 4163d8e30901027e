/*
 * Event entries: into the system's event log, and in words into HOME/log/diskperf_event.log. The file is what tools
 * read: it is there on every platform, it is kept with the traces, and no event viewer is needed for it.
 */
#include "tnwlog_internal.h"

static const char* const EVENT_SOURCE = "tnwdiskperf";
static const char* const EVENT_FILE = "diskperf_event";

typedef struct SEVERITY {
    WORD        wType; /* as the event log wants it */
    const char* lpWord;
} SEVERITY;

/* By the top two bits of the event number. */
static const SEVERITY g_aSeverity[] = {
    { EVENTLOG_INFORMATION_TYPE, "SUCCESS" },
    { EVENTLOG_INFORMATION_TYPE, "INFORMATION" },
    { EVENTLOG_WARNING_TYPE, "WARNING" },
    { EVENTLOG_ERROR_TYPE, "ERROR" },
};

/* A failure stays without consequence: the entry stands in our own file. */
static void Report(DWORD dwEvent)
{
    HANDLE hSource = RegisterEventSourceA(NULL, EVENT_SOURCE);

    if (hSource != NULL) {
        ReportEventA(hSource, g_aSeverity[dwEvent >> 30].wType, 0, dwEvent, NULL, 0, 0, NULL, NULL);
        DeregisterEventSource(hSource);
    }
}

static char* PutEventText(char* lp, const char* lpEnd, DWORD dwEvent)
{
    HMODULE hMessages = TnwMessageOpen();
    char*   lpText = NULL;
    DWORD   dwStatus = TNWLOG_OK;

    if (hMessages != NULL) {
        lpText = TnwMessageText(hMessages, dwEvent, &dwStatus);
        FreeLibrary(hMessages);
    }
    lp = TnwPutText(lp, lpEnd,
                    lpText != NULL ? lpText : "(no text: tnwmsg.dll is missing or does not know this number)");
    if (lpText != NULL) {
        LocalFree(lpText);
    }
    return lp;
}

/* Opens and closes the file for each entry: entries are rare, at most one a day and kind while trouble lasts. */
static BOOL WriteEntry(DWORD dwEvent, const SYSTEMTIME* lpTime, const char* lpText, DWORD dwSize)
{
    char        buffer[8192];
    const char* lpEnd = buffer + sizeof buffer - 2;
    char*       lp = buffer;
    TNW_SHARED  shared = {};
    BOOL        bLate = FALSE, bWritten = FALSE;

    if (TnwSharedInit(&shared, EVENT_FILE, dwSize) != TNWLOG_OK) {
        return FALSE;
    }
    lp = TnwPutText(TnwPutTime(lp, lpEnd, lpTime), lpEnd, " ");
    lp = TnwPutText(TnwPutText(lp, lpEnd, g_aSeverity[dwEvent >> 30].lpWord), lpEnd, " ");
    lp = TnwPutText(TnwPutHex(lp, lpEnd, dwEvent, 8), lpEnd, " ");
    lp = PutEventText(lp, lpEnd, dwEvent);
    if (lpText[0] != '\0') {
        lp = TnwPutText(TnwPutText(lp, lpEnd, " "), lpEnd, lpText);
    }
    for (char* lpBreak = buffer; lpBreak < lp; lpBreak++) {
        *lpBreak = *lpBreak == '\r' || *lpBreak == '\n' ? ' ' : *lpBreak;
    }
    *lp++ = '\r';
    *lp++ = '\n';
    bWritten = TnwSharedWrite(&shared, buffer, static_cast<DWORD>(lp - buffer), &bLate) == TNWLOG_OK;
    TnwSharedTerm(&shared);
    return bWritten;
}

BOOL TnwEventRaise(DWORD dwEvent, const SYSTEMTIME* lpTime, const char* lpText, DWORD dwSize)
{
    const BOOL bWritten = WriteEntry(dwEvent, lpTime, lpText, dwSize);

    Report(dwEvent); /* last: it runs in a service that may be slow, or the end of this process */
    return bWritten;
}
