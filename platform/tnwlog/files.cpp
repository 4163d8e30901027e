/*
 * One log file and its older generations, in the order a file lives through them:
 *   Status      what a Win32 error means to the caller
 *   Names       base, extension, generation number
 *   One file    open, size, append, cut, mend
 *   Rotation    every generation one up
 */
#include "tnwlog_internal.h"
#include <stdio.h>
#include <string.h>
#include <wchar.h>

/* ---- Status ---- */

static const DWORD W32_DISK_QUOTA_EXCEEDED = 1295; /* not every system header has it */

static BOOL IsDiskFull(DWORD dwW32)
{
    return dwW32 == ERROR_DISK_FULL || dwW32 == ERROR_HANDLE_DISK_FULL || dwW32 == W32_DISK_QUOTA_EXCEEDED;
}

static DWORD StatusOfOpen(DWORD dwW32)
{
    if (IsDiskFull(dwW32)) {
        return TNWLOG_DISK_FULL;
    }
    return dwW32 == ERROR_PATH_NOT_FOUND ? TNWLOG_NO_DIRECTORY : TNWLOG_NOT_OPEN;
}

static DWORD StatusOfWrite(DWORD dwW32)
{
    return IsDiskFull(dwW32) ? TNWLOG_DISK_FULL : TNWLOG_WRITE_FAILED;
}

DWORD TnwStatusOfRead(DWORD dwW32)
{
    return dwW32 == ERROR_ACCESS_DENIED ? TNWLOG_OK : TNWLOG_WRITE_FAILED;
}

/* ---- Names ---- */

/* A dot is refused because NAME.1 would be both a log of its own and a generation of NAME. */
static BOOL IsNameValid(const wchar_t* lpName)
{
    const wchar_t* lp = NULL;

    for (lp = lpName; *lp != L'\0'; lp++) {
        if (*lp < L' ' || wcschr(L"\\/:*?\"<>|.", *lp) != NULL) {
            return FALSE;
        }
    }
    return lp != lpName;
}

DWORD TnwSetInit(TNW_SET* lpSet, const wchar_t* lpFolder, const char* lpName, const wchar_t* lpExt, DWORD dwGenerations)
{
    wchar_t szName[TNWLOG_NAME_MAX + 1], szPath[TNW_PATH_MAX];

    if (MultiByteToWideChar(CP_ACP, 0, lpName, -1, szName, ARRAYSIZE(szName)) == 0 || !IsNameValid(szName)) {
        return TNWLOG_INVALID_ARGUMENT;
    }
    if (!TnwHomePath(lpFolder, szName, szPath)) {
        szPath[0] = L'\0';
    }
    lpSet->lpBase = static_cast<wchar_t*>(TnwAlloc((wcslen(szPath) + 1) * sizeof(wchar_t)));
    if (lpSet->lpBase == NULL) {
        return TNWLOG_NO_MEMORY;
    }
    wcscpy(lpSet->lpBase, szPath);
    lpSet->lpExt = lpExt;
    lpSet->dwGenerations = dwGenerations;
    return TNWLOG_OK;
}

void TnwSetTerm(TNW_SET* lpSet)
{
    TnwFree(lpSet->lpBase);
    lpSet->lpBase = NULL;
}

/* lpTag stands between base and extension: "" the current file, ".3" a generation, ".*" all of them. */
static BOOL TagPath(const TNW_SET* lpSet, const wchar_t* lpTag, wchar_t* lpPath)
{
    int n = 0;

    if (lpSet->lpBase[0] == L'\0') {
        return FALSE;
    }
    n = _snwprintf(lpPath, TNW_PATH_MAX, L"%ls%ls%ls", lpSet->lpBase, lpTag, lpSet->lpExt);
    return n > 0 && static_cast<DWORD>(n) < TNW_PATH_MAX;
}

static BOOL GenerationPath(const TNW_SET* lpSet, DWORD dwGeneration, wchar_t* lpPath)
{
    wchar_t szTag[16] = L"";

    if (dwGeneration != 0) {
        _snwprintf(szTag, ARRAYSIZE(szTag), L".%lu", dwGeneration);
    }
    return TagPath(lpSet, szTag, lpPath);
}

/* ---- One file ---- */

DWORD TnwFileOpen(const TNW_SET* lpSet, DWORD dwShare, HANDLE* lphFile)
{
    /* Not GENERIC_WRITE: an account that may only append has no right to the attributes that it includes. Without
     * FILE_WRITE_DATA the system appends whatever the position, which is what writers beside us need; the only writer
     * of a file takes that right too, since nobody could grant it to him later. */
    const DWORD dwWrite = (dwShare & FILE_SHARE_WRITE) != 0 ? 0 : FILE_WRITE_DATA;
    const DWORD dwAppend = FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE;
    wchar_t     szPath[TNW_PATH_MAX];

    *lphFile = INVALID_HANDLE_VALUE;
    if (!GenerationPath(lpSet, 0, szPath)) {
        return TNWLOG_NO_DIRECTORY;
    }
    *lphFile = CreateFileW(szPath, dwAppend | dwWrite | FILE_READ_DATA, dwShare, NULL, OPEN_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, NULL);
    if (*lphFile == INVALID_HANDLE_VALUE && GetLastError() == ERROR_ACCESS_DENIED) {
        *lphFile = CreateFileW(szPath, dwAppend, dwShare, NULL, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
    }
    return *lphFile != INVALID_HANDLE_VALUE ? TNWLOG_OK : StatusOfOpen(GetLastError());
}

void TnwFileClose(HANDLE* lphFile)
{
    if (*lphFile != INVALID_HANDLE_VALUE) {
        CloseHandle(*lphFile);
        *lphFile = INVALID_HANDLE_VALUE;
    }
}

BOOL TnwFileSize(HANDLE hFile, ULONGLONG* lpSize)
{
    FILE_STANDARD_INFO info = {};

    if (hFile == INVALID_HANDLE_VALUE || !GetFileInformationByHandleEx(hFile, FileStandardInfo, &info, sizeof info) ||
        info.NumberOfLinks == 0 || info.DeletePending) {
        return FALSE;
    }
    *lpSize = static_cast<ULONGLONG>(info.EndOfFile.QuadPart);
    return TRUE;
}

BOOL TnwFileCut(HANDLE hFile, ULONGLONG size)
{
    FILE_END_OF_FILE_INFO info = {};
    HANDLE                hWrite = INVALID_HANDLE_VALUE;
    BOOL                  bRet = FALSE;

    info.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    bRet = SetFileInformationByHandle(hFile, FileEndOfFileInfo, &info, sizeof info);
    if (!bRet && GetLastError() == ERROR_ACCESS_DENIED) { /* a handle that appends */
        hWrite =
            ReOpenFile(hFile, FILE_WRITE_DATA | SYNCHRONIZE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, 0);
        bRet =
            hWrite != INVALID_HANDLE_VALUE && SetFileInformationByHandle(hWrite, FileEndOfFileInfo, &info, sizeof info);
        TnwFileClose(&hWrite);
    }
    return bRet;
}

BOOL TnwFileRead(HANDLE hFile, ULONGLONG offset, void* lpData, DWORD dwLength)
{
    OVERLAPPED at = {};
    DWORD      dwRead = 0;

    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    if (!ReadFile(hFile, lpData, dwLength, &dwRead, &at)) {
        return FALSE;
    }
    SetLastError(ERROR_HANDLE_EOF); /* what a part of it means to the caller */
    return dwRead == dwLength;
}

/* Takes back a part of a line, as far as it alone stands behind size: somebody who did not get a shared file's lock may
 * have put a whole line there. */
static void TakeBack(HANDLE hFile, ULONGLONG size, DWORD dwWritten)
{
    ULONGLONG end = 0;

    if (dwWritten != 0 && TnwFileSize(hFile, &end) && end == size + dwWritten) {
        TnwFileCut(hFile, size);
    }
}

DWORD TnwFileAppend(HANDLE hFile, ULONGLONG size, const char* lpData, DWORD dwLength)
{
    const LARGE_INTEGER zero = {};
    DWORD               dwWritten = 0, dwStatus = TNWLOG_OK;

    /* For the only writer; a shared file's handle appends without it. A write with an OVERLAPPED that says "at the end"
     * does both, and takes five times as long on one of our platforms. */
    if (!SetFilePointerEx(hFile, zero, NULL, FILE_END) || !WriteFile(hFile, lpData, dwLength, &dwWritten, NULL)) {
        dwStatus = StatusOfWrite(GetLastError());
    } else if (dwWritten != dwLength) {
        dwStatus = TNWLOG_DISK_FULL; /* the last write that fits a full volume is a short one, and succeeds */
    }
    if (dwStatus != TNWLOG_OK) {
        TakeBack(hFile, size, dwWritten);
    }
    return dwStatus;
}

/* End of the text in front of closing NULs; the file's end where this account may not read. */
static DWORD FindTextEnd(HANDLE hFile, ULONGLONG size, ULONGLONG* lpEnd)
{
    char  block[4096];
    DWORD dwPart = 0;

    *lpEnd = size;
    for (; size > 0; size -= dwPart) {
        dwPart = static_cast<DWORD>(size < sizeof block ? size : sizeof block);
        if (!TnwFileRead(hFile, size - dwPart, block, dwPart)) {
            return TnwStatusOfRead(GetLastError());
        }
        for (DWORD dw = dwPart; dw > 0; dw--, (*lpEnd)--) {
            if (block[dw - 1] != '\0') {
                return TNWLOG_OK;
            }
        }
    }
    return TNWLOG_OK;
}

/* Whether the last line has an odd number of quotes: what follows would then be read as a part of its last field. */
static DWORD IsQuoteOpen(HANDLE hFile, ULONGLONG end, BOOL* lpfOpen)
{
    const ULONGLONG longest = 1024 * 1024; /* more than any line of ours; ends the search in a foreign file */
    const ULONGLONG stop = end > longest ? end - longest : 0;
    char            block[4096];
    DWORD           dwPart = 0;

    *lpfOpen = FALSE;
    while (end > stop) {
        dwPart = static_cast<DWORD>(end - stop < sizeof block ? end - stop : sizeof block);
        if (!TnwFileRead(hFile, end - dwPart, block, dwPart)) {
            return TnwStatusOfRead(GetLastError());
        }
        for (; dwPart > 0; dwPart--, end--) {
            if (block[dwPart - 1] == '\n') {
                return TNWLOG_OK;
            }
            *lpfOpen ^= block[dwPart - 1] == '"' ? TRUE : FALSE;
        }
    }
    return TNWLOG_OK;
}

DWORD TnwFileTrim(HANDLE hFile, ULONGLONG* lpSize)
{
    ULONGLONG end = 0, now = 0;
    DWORD     dwStatus = TNWLOG_OK;

    if (!TnwFileSize(hFile, lpSize)) {
        return TNWLOG_WRITE_FAILED;
    }
    dwStatus = FindTextEnd(hFile, *lpSize, &end);
    if (dwStatus != TNWLOG_OK || end == *lpSize) {
        return dwStatus;
    }
    if (TnwFileSize(hFile, &now) && now != *lpSize) { /* a line without the lock came behind them: they stay */
        *lpSize = now;
        return TNWLOG_OK;
    }
    if (!TnwFileCut(hFile, end)) { /* who may append alone leaves them: closing the line ends them */
        return GetLastError() == ERROR_ACCESS_DENIED ? TNWLOG_OK : StatusOfWrite(GetLastError());
    }
    *lpSize = end;
    return TNWLOG_OK;
}

DWORD TnwFileCloseLine(HANDLE hFile, ULONGLONG size, BOOL fQuotes)
{
    char  last = '\n';
    DWORD dwStatus = TNWLOG_OK;
    BOOL  bOpen = FALSE;

    if (size == 0) {
        return TNWLOG_OK;
    }
    if (!TnwFileRead(hFile, size - 1, &last, 1)) {
        return TnwStatusOfRead(GetLastError());
    }
    if (last == '\n') {
        return TNWLOG_OK;
    }
    if (fQuotes) {
        dwStatus = IsQuoteOpen(hFile, size, &bOpen);
    }
    if (dwStatus != TNWLOG_OK) {
        return dwStatus;
    }
    if (bOpen) {
        return TnwFileAppend(hFile, size, "\"\r\n", 3);
    }
    return last == '\r' ? TnwFileAppend(hFile, size, "\n", 1) : TnwFileAppend(hFile, size, "\r\n", 2);
}

/* ---- Rotation ---- */

/* What stands between base and extension of a file name, with its dot. FALSE: not of this set. */
static BOOL ReadTag(const TNW_SET* lpSet, const wchar_t* lpFile, wchar_t* lpTag)
{
    const wchar_t* lpLeaf = wcsrchr(lpSet->lpBase, L'\\') + 1;
    const size_t   cLeaf = wcslen(lpLeaf), cExt = wcslen(lpSet->lpExt), cFile = wcslen(lpFile);

    if (cFile <= cLeaf + cExt || cFile - cLeaf - cExt >= MAX_PATH || lpFile[cLeaf] != L'.' ||
        _wcsicmp(lpFile + cFile - cExt, lpSet->lpExt) != 0) {
        return FALSE;
    }
    wcsncpy(lpTag, lpFile + cLeaf, cFile - cLeaf - cExt);
    lpTag[cFile - cLeaf - cExt] = L'\0';
    return TRUE;
}

/* The number of a generation's tag, ".3". 0: another file. */
static DWORD GenerationOf(const wchar_t* lpTag)
{
    const size_t cDigits = wcsspn(lpTag + 1, L"0123456789");

    if (lpTag[cDigits + 1] != L'\0' || cDigits == 0 || cDigits > 9 || lpTag[1] == L'0') {
        return 0;
    }
    return wcstoul(lpTag + 1, NULL, 10);
}

/* Marks the generations that are there, and deletes what has no place any more: generations beyond the number kept, and
 * files that a rotation put aside but did not live to delete. */
static DWORD ListGenerations(const TNW_SET* lpSet, BOOL* lpThere)
{
    WIN32_FIND_DATAW find;
    wchar_t          szPath[TNW_PATH_MAX], szTag[MAX_PATH];
    HANDLE           hFind = INVALID_HANDLE_VALUE;
    DWORD            dwGeneration = 0;

    if (!TagPath(lpSet, L".*", szPath)) {
        return TNWLOG_NO_DIRECTORY;
    }
    hFind = FindFirstFileW(szPath, &find);
    if (hFind == INVALID_HANDLE_VALUE) {
        return GetLastError() == ERROR_FILE_NOT_FOUND ? TNWLOG_OK : StatusOfOpen(GetLastError());
    }
    do {
        if (!ReadTag(lpSet, find.cFileName, szTag)) {
            continue;
        }
        dwGeneration = GenerationOf(szTag);
        if (dwGeneration != 0 && dwGeneration <= lpSet->dwGenerations) {
            lpThere[dwGeneration] = TRUE;
        } else if ((dwGeneration != 0 || wcsncmp(szTag, L".del-", 5) == 0) && TagPath(lpSet, szTag, szPath)) {
            DeleteFileW(szPath);
        }
    } while (FindNextFileW(hFind, &find));
    FindClose(hFind);
    return TNWLOG_OK;
}

/* Nothing is ever replaced: a target that is there is a mistake, and the file stays where it is. */
static DWORD Move(const TNW_SET* lpSet, DWORD dwFrom, DWORD dwTo)
{
    wchar_t szFrom[TNW_PATH_MAX], szTo[TNW_PATH_MAX];

    if (!GenerationPath(lpSet, dwFrom, szFrom) || !GenerationPath(lpSet, dwTo, szTo)) {
        return TNWLOG_NO_DIRECTORY;
    }
    return MoveFileExW(szFrom, szTo, 0) ? TNWLOG_OK : StatusOfOpen(GetLastError());
}

/* Renames first: a deleted file keeps its name for as long as some idle process has it open. */
static DWORD Discard(const TNW_SET* lpSet, DWORD dwGeneration)
{
    wchar_t szFrom[TNW_PATH_MAX], szAside[TNW_PATH_MAX], szTag[48];

    _snwprintf(szTag, ARRAYSIZE(szTag), L".del-%lu-%I64u", GetCurrentProcessId(), GetTickCount64());
    if (!GenerationPath(lpSet, dwGeneration, szFrom) || !TagPath(lpSet, szTag, szAside)) {
        return TNWLOG_NO_DIRECTORY;
    }
    if (!MoveFileExW(szFrom, szAside, 0)) {
        return StatusOfOpen(GetLastError());
    }
    DeleteFileW(szAside);
    return TNWLOG_OK;
}

/* A current file that somebody took away by hand leaves nothing to move: whoever still has it open writes elsewhere. */
static BOOL IsCurrentMissing(const TNW_SET* lpSet)
{
    wchar_t szPath[TNW_PATH_MAX];

    return GenerationPath(lpSet, 0, szPath) && GetFileAttributesW(szPath) == INVALID_FILE_ATTRIBUTES &&
           GetLastError() == ERROR_FILE_NOT_FOUND;
}

/*
 * Fills the lowest gap from below. A process killed between two renames leaves exactly one more gap, so the next
 * rotation goes on where that one stopped and no generation is lost.
 */
DWORD TnwSetRotate(const TNW_SET* lpSet)
{
    BOOL  aThere[TNWLOG_GENERATIONS_MAX + 1] = {};
    DWORD dwGap = 0, dwStatus = TNWLOG_OK;

    dwStatus = ListGenerations(lpSet, aThere);
    if (dwStatus != TNWLOG_OK || IsCurrentMissing(lpSet)) {
        return dwStatus;
    }
    for (dwGap = 1; dwGap <= lpSet->dwGenerations && aThere[dwGap]; dwGap++) {
    }
    if (dwGap > lpSet->dwGenerations) {
        dwGap = lpSet->dwGenerations;
        dwStatus = Discard(lpSet, dwGap); /* with no generations kept this is the current file itself */
    }
    for (; dwGap > 0 && dwStatus == TNWLOG_OK; dwGap--) {
        dwStatus = Move(lpSet, dwGap - 1, dwGap);
    }
    return dwStatus;
}
