/*
 * Message strings. They lie in the message table of tnwmsg.dll beside this library, opened as data: nothing of it runs.
 */
#include "tnwlog_internal.h"
#include <string.h>

struct TNWLOG_STRINGS {
    TNW_OPEN open;
    HMODULE  hMessages;
};

static const char* const COMPONENT = "diskperf";

HMODULE TnwMessageOpen()
{
    wchar_t szPath[TNW_PATH_MAX];
    HMODULE hMessages = NULL;

    if (!TnwHomePath(L"bin", L"tnwmsg.dll", szPath)) {
        return NULL;
    }
    hMessages = LoadLibraryExW(szPath, NULL, LOAD_LIBRARY_AS_DATAFILE);
    /* Resource type 11 is a message table; the number stands here since RT_MESSAGETABLE is a cast of another style. */
    if (hMessages != NULL && FindResourceW(hMessages, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(11)) == NULL) {
        FreeLibrary(hMessages);
        hMessages = NULL;
    }
    return hMessages;
}

/* Texts stand in the table as the event viewer wants them: '%' doubled, a line end behind. */
static void Unescape(char* lpText)
{
    const char* lpFrom = lpText;
    char*       lpTo = lpText;
    size_t      cText = strlen(lpText);

    while (cText > 0 && (lpText[cText - 1] == '\r' || lpText[cText - 1] == '\n')) {
        lpText[--cText] = '\0';
    }
    while (*lpFrom != '\0') {
        lpFrom += lpFrom[0] == '%' && lpFrom[1] == '%' ? 1 : 0;
        *lpTo++ = *lpFrom++;
    }
    *lpTo = '\0';
}

char* TnwMessageText(HMODULE hMessages, DWORD dwNumber, DWORD* lpdwStatus)
{
    const DWORD dwFlags = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_ALLOCATE_BUFFER;
    char*       lpText = NULL;

    /* With the flag above the routine wants the address of the pointer where its prototype says text. */
    if (FormatMessageA(dwFlags, hMessages, dwNumber, 0, reinterpret_cast<char*>(&lpText), 0, NULL) == 0) {
        const DWORD dwW32 = GetLastError();
        *lpdwStatus =
            dwW32 == ERROR_NOT_ENOUGH_MEMORY || dwW32 == ERROR_OUTOFMEMORY ? TNWLOG_NO_MEMORY : TNWLOG_NO_SUCH_MESSAGE;
        return NULL;
    }
    Unescape(lpText);
    *lpdwStatus = TNWLOG_OK;
    return lpText;
}

DWORD TnwLoadStringTable(const char* lpComponent, DWORD dwReserved, HTNWSTRINGS* phTable)
{
    HTNWSTRINGS hTable = NULL;

    if (phTable == NULL) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    *phTable = NULL;
    if (lpComponent == NULL || lpComponent[0] == '\0' || dwReserved != 0) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    if (strcmp(lpComponent, COMPONENT) != 0) {
        return TNWLOG_NO_TABLE;
    }
    hTable = static_cast<HTNWSTRINGS>(TnwAlloc(sizeof *hTable));
    if (hTable == NULL) {
        return TNWLOG_NO_MEMORY;
    }
    hTable->hMessages = TnwMessageOpen();
    if (hTable->hMessages == NULL) {
        TnwFree(hTable);
        return TNWLOG_NO_TABLE;
    }
    TnwOpenAdd(&hTable->open, TNW_KIND_STRINGS);
    *phTable = hTable;
    return TNWLOG_OK;
}

DWORD TnwFreeStringTable(HTNWSTRINGS hTable)
{
    if (!TnwOpenRemove(hTable, TNW_KIND_STRINGS)) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    FreeLibrary(hTable->hMessages);
    TnwFree(hTable);
    return TNWLOG_OK;
}

DWORD TnwFormatMessage(HTNWSTRINGS hTable, DWORD dwNumber, char* lpText, DWORD dwSize, DWORD dwReserved)
{
    char*  lpMessage = NULL;
    size_t cMessage = 0;
    DWORD  dwStatus = TNWLOG_OK;

    if (lpText == NULL || dwReserved != 0 || !TnwOpenFind(hTable, TNW_KIND_STRINGS)) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    lpMessage = TnwMessageText(hTable->hMessages, dwNumber, &dwStatus);
    if (lpMessage == NULL) {
        return dwStatus;
    }
    cMessage = strlen(lpMessage) + 1;
    if (cMessage <= dwSize) {
        memcpy(lpText, lpMessage, cMessage);
    } else {
        dwStatus = TNWLOG_TEXT_TOO_LONG;
    }
    LocalFree(lpMessage);
    return dwStatus;
}
