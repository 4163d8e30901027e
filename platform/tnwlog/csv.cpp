/*
 * CSV log files. One process writes a file (others are kept from writing by the sharing mode), any number read it.
 *
 * Two facts decide what a write has to do first:
 *   fRotateDue  a new generation is to be started: asked for, or the file that was there begins with another header
 *   fHeaded     the last header in the file is the one that lines now follow
 * Everything that goes wrong closes the file, so that the next write begins by looking at what is really there.
 */
#include "tnwlog_internal.h"
#include <stdio.h>
#include <string.h>

struct TNWLOG_CSV {
    TNW_OPEN  open;
    SRWLOCK   lock; /* guards all below */
    TNW_SET   set;
    HANDLE    hFile;
    ULONGLONG bound;     /* bytes */
    DWORD     dwMaxLine; /* bytes with the NUL */
    char*     lpHeader;  /* with CR LF */
    DWORD     dwHeader;  /* bytes of it */
    BOOL      fRotateDue;
    BOOL      fHeaded;
    BOOL      fMixed; /* a header stands between lines of the file: its first line does not tell the last header */
};

/* Deletion is shared so that the file can be renamed while it is open: a reader never gets between close and reopen. */
static const DWORD SHARE_READERS = FILE_SHARE_READ | FILE_SHARE_DELETE;

static const DWORD FLAGS = 3;

enum FIRST_LINE { FIRST_NONE, FIRST_PART, FIRST_SAME, FIRST_OTHER };

/* How the file begins, seen from the header. FIRST_PART: the machine went down while the header was written. A file
 * that the account may not read has another header. */
static DWORD ReadFirstLine(const TNWLOG_CSV* lpCsv, ULONGLONG size, FIRST_LINE* lpeFirst)
{
    char        block[4096];
    const DWORD dwCompare = size < lpCsv->dwHeader ? static_cast<DWORD>(size) : lpCsv->dwHeader;
    DWORD       dwDone = 0, dwPart = 0;

    *lpeFirst = FIRST_OTHER;
    for (; dwDone < dwCompare; dwDone += dwPart) {
        dwPart = dwCompare - dwDone < sizeof block ? dwCompare - dwDone : static_cast<DWORD>(sizeof block);
        if (!TnwFileRead(lpCsv->hFile, dwDone, block, dwPart)) {
            return TnwStatusOfRead(GetLastError());
        }
        if (memcmp(block, lpCsv->lpHeader + dwDone, dwPart) != 0) {
            return TNWLOG_OK;
        }
    }
    if (size == 0) {
        *lpeFirst = FIRST_NONE;
    } else {
        *lpeFirst = size < lpCsv->dwHeader ? FIRST_PART : FIRST_SAME;
    }
    return TNWLOG_OK;
}

static DWORD AppendHeader(TNWLOG_CSV* lpCsv, ULONGLONG size)
{
    const DWORD dwStatus = TnwFileAppend(lpCsv->hFile, size, lpCsv->lpHeader, lpCsv->dwHeader);

    lpCsv->fHeaded = dwStatus == TNWLOG_OK;
    return dwStatus;
}

static DWORD StartFile(TNWLOG_CSV* lpCsv)
{
    lpCsv->fRotateDue = FALSE;
    lpCsv->fMixed = FALSE;
    return AppendHeader(lpCsv, 0);
}

/* Opens what is there and finds out whether it can be continued. */
static DWORD OpenFile(TNWLOG_CSV* lpCsv)
{
    ULONGLONG  size = 0;
    FIRST_LINE eFirst = FIRST_OTHER;
    DWORD      dwStatus = TnwFileOpen(&lpCsv->set, SHARE_READERS, &lpCsv->hFile);

    lpCsv->fHeaded = FALSE;
    if (dwStatus != TNWLOG_OK) {
        return dwStatus;
    }
    dwStatus = TnwFileTrim(lpCsv->hFile, &size);
    if (dwStatus == TNWLOG_OK) {
        dwStatus = ReadFirstLine(lpCsv, size, &eFirst);
    }
    if (dwStatus != TNWLOG_OK) {
        return dwStatus;
    }
    switch (eFirst) {
    case FIRST_PART: /* gets no line end: it would be a line of its own */
        if (!TnwFileCut(lpCsv->hFile, 0)) {
            return TNWLOG_WRITE_FAILED;
        }
        return StartFile(lpCsv);
    case FIRST_NONE:
        return StartFile(lpCsv);
    case FIRST_SAME:
        lpCsv->fHeaded = !lpCsv->fMixed;
        break;
    case FIRST_OTHER:
        lpCsv->fRotateDue = TRUE;
        break;
    }
    return TnwFileCloseLine(lpCsv->hFile, size, TRUE);
}

/* The file open for appending becomes generation 1. On failure it stays the current one, and open. */
static DWORD StartGeneration(TNWLOG_CSV* lpCsv)
{
    const DWORD dwStatus = TnwSetRotate(&lpCsv->set);

    if (dwStatus != TNWLOG_OK) {
        return dwStatus;
    }
    TnwFileClose(&lpCsv->hFile);
    lpCsv->fRotateDue = FALSE;
    return OpenFile(lpCsv);
}

/* Leaves the file open, and begun anew where that is due. *lpdwRotate: why a rotation that is due did not happen. */
static DWORD Prepare(TNWLOG_CSV* lpCsv, ULONGLONG* lpSize, DWORD* lpdwRotate)
{
    DWORD dwStatus = TNWLOG_OK;
    BOOL  bSized = TnwFileSize(lpCsv->hFile, lpSize);

    *lpdwRotate = TNWLOG_OK;
    if (!bSized) { /* not open, or deleted by somebody */
        TnwFileClose(&lpCsv->hFile);
        dwStatus = OpenFile(lpCsv);
    }
    if (dwStatus == TNWLOG_OK && lpCsv->fRotateDue) {
        *lpdwRotate = StartGeneration(lpCsv);
        dwStatus = lpCsv->fRotateDue ? TNWLOG_OK : *lpdwRotate;
        bSized = FALSE;
    }
    if (dwStatus == TNWLOG_OK && !bSized && !TnwFileSize(lpCsv->hFile, lpSize)) {
        dwStatus = TNWLOG_WRITE_FAILED;
    }
    return dwStatus;
}

/* lpLine ends in CR LF. */
static DWORD AppendLine(TNWLOG_CSV* lpCsv, const char* lpLine, DWORD dwLength)
{
    ULONGLONG size = 0;
    DWORD     dwRotate = TNWLOG_OK, dwStatus = Prepare(lpCsv, &size, &dwRotate);

    /* A file that holds nothing but its header takes any line: a new one would be no emptier. */
    if (dwStatus == TNWLOG_OK && size + dwLength > lpCsv->bound && size > lpCsv->dwHeader && !lpCsv->fRotateDue) {
        lpCsv->fRotateDue = TRUE;
        dwStatus = Prepare(lpCsv, &size, &dwRotate);
    }
    /* Cannot be renamed, and the header above the next line is, or may be, another one: ours goes between the lines, so
     * that no value of this handle stands under a wrong title. Who opens such a file anew sees its first line alone. */
    if (dwStatus == TNWLOG_OK && !lpCsv->fHeaded) {
        lpCsv->fMixed = TRUE;
        dwStatus = AppendHeader(lpCsv, size);
        size += lpCsv->dwHeader;
    }
    if (dwStatus == TNWLOG_OK) {
        dwStatus = TnwFileAppend(lpCsv->hFile, size, lpLine, dwLength);
    }
    if (dwStatus != TNWLOG_OK) {
        TnwFileClose(&lpCsv->hFile);
    }
    return dwStatus;
}

static BOOL IsMaxLineValid(DWORD dwMaxLine)
{
    return dwMaxLine >= 2 && dwMaxLine <= TNWLOG_LINE_MAX;
}

static DWORD CopyHeader(const char* lpHeader, DWORD dwMaxLine, char** lplpCopy, DWORD* lpdwCopy)
{
    const size_t cHeader = strlen(lpHeader);

    if (strpbrk(lpHeader, "\r\n") != NULL) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    if (cHeader >= dwMaxLine) {
        return TNWLOG_LINE_TOO_LONG;
    }
    *lplpCopy = static_cast<char*>(TnwAlloc(cHeader + 3));
    if (*lplpCopy == NULL) {
        return TNWLOG_NO_MEMORY;
    }
    memcpy(*lplpCopy, lpHeader, cHeader);
    memcpy(*lplpCopy + cHeader, "\r\n", 3);
    *lpdwCopy = static_cast<DWORD>(cHeader + 2);
    return TNWLOG_OK;
}

static void FreeCsv(HTNWCSV hFile)
{
    TnwFileClose(&hFile->hFile);
    TnwSetTerm(&hFile->set);
    TnwFree(hFile->lpHeader);
    TnwFree(hFile);
}

DWORD log_util_init(const char* lpName, HTNWCSV* phFile, DWORD dwFlags, DWORD dwReserved1, DWORD dwSize,
                    DWORD dwGenerations, DWORD dwMaxLine, const char* lpHeader, DWORD dwReserved2, DWORD dwReserved3)
{
    HTNWCSV   hFile = NULL;
    ULONGLONG size = 0;
    DWORD     dwStatus = TNWLOG_OK, dwRotate = TNWLOG_OK;

    if (phFile == NULL) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    *phFile = NULL;
    if (lpName == NULL || dwFlags != FLAGS || dwReserved1 != 0 || dwSize == 0 || dwSize > TNWLOG_SIZE_MAX ||
        dwGenerations > TNWLOG_GENERATIONS_MAX || !IsMaxLineValid(dwMaxLine) || lpHeader == NULL || dwReserved2 != 0 ||
        dwReserved3 != 0) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    hFile = static_cast<HTNWCSV>(TnwAlloc(sizeof *hFile));
    if (hFile == NULL) {
        return TNWLOG_NO_MEMORY;
    }
    InitializeSRWLock(&hFile->lock);
    hFile->hFile = INVALID_HANDLE_VALUE;
    hFile->bound = static_cast<ULONGLONG>(dwSize) * 1024;
    hFile->dwMaxLine = dwMaxLine;
    dwStatus = CopyHeader(lpHeader, dwMaxLine, &hFile->lpHeader, &hFile->dwHeader);
    if (dwStatus == TNWLOG_OK) {
        dwStatus = TnwSetInit(&hFile->set, L"perf", lpName, L".csv", dwGenerations);
    }
    if (dwStatus != TNWLOG_OK) {
        FreeCsv(hFile);
        return dwStatus;
    }
    /* What does not work now is tried again, and answered, by each write. */
    if (Prepare(hFile, &size, &dwRotate) != TNWLOG_OK) {
        TnwFileClose(&hFile->hFile);
    }
    TnwOpenAdd(&hFile->open, TNW_KIND_CSV);
    *phFile = hFile;
    return TNWLOG_OK;
}

DWORD log_util_term(HTNWCSV hFile)
{
    if (!TnwOpenRemove(hFile, TNW_KIND_CSV)) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    FreeCsv(hFile);
    return TNWLOG_OK;
}

DWORD log_util_write(HTNWCSV hFile, const char* lpFormat, ...)
{
    char    szLine[TNWLOG_LINE_MAX + 2];
    char*   lpEnd = NULL;
    DWORD   dwStatus = TNWLOG_OK;
    BOOL    bCut = FALSE;
    va_list args;

    if (lpFormat == NULL || !TnwOpenFind(hFile, TNW_KIND_CSV)) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    AcquireSRWLockExclusive(&hFile->lock);
    va_start(args, lpFormat);
    lpEnd = TnwPutFormat(szLine, szLine + hFile->dwMaxLine - 1, lpFormat, args, &bCut);
    va_end(args);
    if (bCut) {
        dwStatus = TNWLOG_LINE_TOO_LONG;
    } else if (memchr(szLine, '\n', static_cast<size_t>(lpEnd - szLine)) != NULL ||
               memchr(szLine, '\r', static_cast<size_t>(lpEnd - szLine)) != NULL) {
        dwStatus = TNWLOG_INVALID_ARGUMENT;
    } else {
        memcpy(lpEnd, "\r\n", 2);
        dwStatus = AppendLine(hFile, szLine, static_cast<DWORD>(lpEnd - szLine) + 2);
    }
    ReleaseSRWLockExclusive(&hFile->lock);
    return dwStatus;
}

DWORD log_util_rotate(HTNWCSV hFile, DWORD dwMaxLine, const char* lpHeader)
{
    char*     lpCopy = NULL;
    ULONGLONG size = 0;
    DWORD     dwCopy = 0, dwStatus = TNWLOG_OK, dwRotate = TNWLOG_OK;

    if (lpHeader == NULL || !IsMaxLineValid(dwMaxLine) || !TnwOpenFind(hFile, TNW_KIND_CSV)) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    dwStatus = CopyHeader(lpHeader, dwMaxLine, &lpCopy, &dwCopy);
    if (dwStatus != TNWLOG_OK) {
        return dwStatus;
    }
    AcquireSRWLockExclusive(&hFile->lock);
    if (strcmp(hFile->lpHeader, lpCopy) != 0) {
        hFile->fHeaded = FALSE;
    }
    TnwFree(hFile->lpHeader);
    hFile->lpHeader = lpCopy;
    hFile->dwHeader = dwCopy;
    hFile->dwMaxLine = dwMaxLine;
    hFile->fRotateDue = TRUE;
    dwStatus = Prepare(hFile, &size, &dwRotate);
    if (dwStatus != TNWLOG_OK) {
        TnwFileClose(&hFile->hFile);
    }
    ReleaseSRWLockExclusive(&hFile->lock);
    return dwStatus != TNWLOG_OK ? dwStatus : dwRotate;
}
