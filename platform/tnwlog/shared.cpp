/*
 * A file that all processes of the machine append to.
 *
 * One named mutex per file, open to every account, makes a line one piece and a rotation one step. Who rotated need not
 * tell anybody: a file is rotated only when it has reached its bound, so a writer whose handle leads to a renamed file
 * sees a full file and looks at the path again. Where processes were given different bounds, and where somebody moved
 * the file by hand, opening it anew once a second does the same.
 *
 * Nobody waits for ever. When the lock cannot be had within its time its owner is suspended or in a debugger; the line
 * is then appended without it, nothing is rotated or mended meanwhile, and no line waits again until the lock can be
 * had.
 */
#include "tnwlog_internal.h"
#include <stdio.h>
#include <wchar.h>

/* Together at most 500 ms, the longest that a line may be held up. */
static const DWORD LOCK_MS = 400;
static const DWORD LATE_MS = 100;

static const ULONGLONG REOPEN_MS = 1000;
static const DWORD     SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/* A null DACL: readers of performance data run under any account, and all of them write traces. */
static HANDLE CreateLock(const TNW_SET* lpSet, const wchar_t* lpSuffix)
{
    SECURITY_DESCRIPTOR sd;
    SECURITY_ATTRIBUTES sa = { sizeof sa, &sd, FALSE };
    wchar_t             szName[TNWLOG_NAME_MAX + 64], szLeaf[TNWLOG_NAME_MAX + 1];
    const wchar_t*      lpLeaf = wcsrchr(lpSet->lpBase, L'\\');
    HANDLE              hLock = NULL;

    if (lpLeaf == NULL || !InitializeSecurityDescriptor(&sd, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&sd, TRUE, NULL, FALSE)) {
        return NULL;
    }
    /* File names do not know upper and lower case, object names do. */
    LCMapStringW(LOCALE_INVARIANT, LCMAP_LOWERCASE, lpLeaf + 1, -1, szLeaf, ARRAYSIZE(szLeaf));
    _snwprintf(szName, ARRAYSIZE(szName), L"Global\\TNW_LOG_%016I64x_%ls%ls", TnwHomeId(), szLeaf, lpSuffix);
    hLock = CreateMutexW(&sa, FALSE, szName);
    if (hLock == NULL && GetLastError() == ERROR_ACCESS_DENIED) {
        hLock = OpenMutexW(SYNCHRONIZE, FALSE, szName);
    }
    return hLock;
}

/* *lpfAbandoned: the lock is taken, and its last owner died with it. */
static BOOL TakeLock(HANDLE hLock, DWORD dwMs, BOOL* lpfAbandoned)
{
    DWORD dwWait = WAIT_FAILED;

    if (hLock != NULL) {
        dwWait = WaitForSingleObject(hLock, dwMs);
    }
    *lpfAbandoned = dwWait == WAIT_ABANDONED;
    return dwWait == WAIT_OBJECT_0 || dwWait == WAIT_ABANDONED;
}

DWORD TnwSharedInit(TNW_SHARED* lpShared, const char* lpName, DWORD dwSize)
{
    DWORD dwStatus = TnwSetInit(&lpShared->set, L"log", lpName, L".log", TNWLOG_TRACE_GENERATIONS);

    if (dwStatus != TNWLOG_OK) {
        return dwStatus;
    }
    lpShared->bound = static_cast<ULONGLONG>(dwSize) * 1024;
    lpShared->hFile = INVALID_HANDLE_VALUE;
    lpShared->hLock = CreateLock(&lpShared->set, L"");
    lpShared->hLate = CreateLock(&lpShared->set, L".late");
    return TNWLOG_OK;
}

void TnwSharedTerm(TNW_SHARED* lpShared)
{
    TnwFileClose(&lpShared->hFile);
    if (lpShared->hLock != NULL) {
        CloseHandle(lpShared->hLock);
    }
    if (lpShared->hLate != NULL) {
        CloseHandle(lpShared->hLate);
    }
    TnwSetTerm(&lpShared->set);
}

/* Opens what the path leads to now, and closes what was open behind it: a file that nobody has open could be taken by a
 * reader that shares nothing, and lines would be lost until it lets go. The lock is held. */
static DWORD Reopen(TNW_SHARED* lpShared)
{
    HANDLE    hFile = INVALID_HANDLE_VALUE;
    ULONGLONG size = 0;
    DWORD     dwStatus = TnwFileOpen(&lpShared->set, SHARE_ALL, &hFile);

    if (dwStatus != TNWLOG_OK && lpShared->hFile != INVALID_HANDLE_VALUE) {
        /* A deleted file keeps its name for as long as somebody has it open, perhaps nobody but us. */
        TnwFileClose(&lpShared->hFile);
        dwStatus = TnwFileOpen(&lpShared->set, SHARE_ALL, &hFile);
    }
    TnwFileClose(&lpShared->hFile);
    lpShared->hFile = hFile;
    if (dwStatus != TNWLOG_OK) {
        return dwStatus;
    }
    lpShared->opened = GetTickCount64();
    dwStatus = TnwFileTrim(lpShared->hFile, &size);
    return dwStatus == TNWLOG_OK ? TnwFileCloseLine(lpShared->hFile, size, FALSE) : dwStatus;
}

/* Leaves hFile open on the file that takes the next line. The lock is held. */
static DWORD Prepare(TNW_SHARED* lpShared, ULONGLONG* lpSize)
{
    const BOOL bKnown = lpShared->hFile != INVALID_HANDLE_VALUE && GetTickCount64() - lpShared->opened < REOPEN_MS;
    DWORD      dwStatus = TNWLOG_OK;

    if (bKnown && TnwFileSize(lpShared->hFile, lpSize) && *lpSize < lpShared->bound) {
        return TNWLOG_OK;
    }
    dwStatus = Reopen(lpShared);
    if (dwStatus != TNWLOG_OK || (TnwFileSize(lpShared->hFile, lpSize) && *lpSize < lpShared->bound)) {
        return dwStatus;
    }
    if (TnwSetRotate(&lpShared->set) == TNWLOG_OK) {
        dwStatus = Reopen(lpShared);
    }
    /* Not rotated: a reader holds a generation. The line goes behind the bound, the next one tries again. */
    *lpSize = 0;
    return dwStatus == TNWLOG_OK && !TnwFileSize(lpShared->hFile, lpSize) ? TNWLOG_WRITE_FAILED : dwStatus;
}

/* A part of a line that cannot be taken back is ended here: others have the file open, and would write behind it. */
static DWORD AppendLines(HANDLE hFile, ULONGLONG size, const char* lpLines, DWORD dwLength)
{
    const DWORD dwStatus = TnwFileAppend(hFile, size, lpLines, dwLength);

    if (dwStatus != TNWLOG_OK && TnwFileSize(hFile, &size)) {
        TnwFileCloseLine(hFile, size, FALSE);
    }
    return dwStatus;
}

static DWORD WriteLocked(TNW_SHARED* lpShared, const char* lpLines, DWORD dwLength)
{
    ULONGLONG size = 0;
    DWORD     dwStatus = Prepare(lpShared, &size);

    if (dwStatus == TNWLOG_OK) {
        dwStatus = AppendLines(lpShared->hFile, size, lpLines, dwLength);
    }
    if (dwStatus != TNWLOG_OK) {
        TnwFileClose(&lpShared->hFile); /* the next line looks at the path and the file's end again */
    }
    return dwStatus;
}

/* hFile may be in use by the lock's owner, perhaps a thread of this process: the file is opened for this line alone. */
static DWORD WriteLate(TNW_SHARED* lpShared, const char* lpLines, DWORD dwLength)
{
    BOOL       bAbandoned = FALSE;
    const BOOL bTaken = TakeLock(lpShared->hLate, LATE_MS, &bAbandoned);
    HANDLE     hFile = INVALID_HANDLE_VALUE;
    ULONGLONG  size = 0;
    DWORD      dwStatus = TnwFileOpen(&lpShared->set, SHARE_ALL, &hFile);

    if (dwStatus == TNWLOG_OK) {
        dwStatus = TnwFileSize(hFile, &size) ? TnwFileCloseLine(hFile, size, FALSE) : TNWLOG_WRITE_FAILED;
    }
    if (dwStatus == TNWLOG_OK && !TnwFileSize(hFile, &size)) {
        dwStatus = TNWLOG_WRITE_FAILED;
    }
    if (dwStatus == TNWLOG_OK) {
        dwStatus = AppendLines(hFile, size, lpLines, dwLength);
    }
    TnwFileClose(&hFile);
    if (bTaken) {
        ReleaseMutex(lpShared->hLate);
    }
    return dwStatus;
}

DWORD TnwSharedWrite(TNW_SHARED* lpShared, const char* lpLines, DWORD dwLength, BOOL* lpfLate)
{
    DWORD dwStatus = TNWLOG_OK;
    BOOL  bAbandoned = FALSE;

    *lpfLate = !TakeLock(lpShared->hLock, lpShared->lStuck != 0 ? 0 : LOCK_MS, &bAbandoned);
    if (*lpfLate) {
        InterlockedExchange(&lpShared->lStuck, 1);
        return WriteLate(lpShared, lpLines, dwLength);
    }
    if (lpShared->lStuck != 0) {
        InterlockedExchange(&lpShared->lStuck, 0);
    }
    if (bAbandoned) {
        TnwFileClose(&lpShared->hFile); /* who died may have left a part of a line: opening the file ends it */
    }
    dwStatus = WriteLocked(lpShared, lpLines, dwLength);
    ReleaseMutex(lpShared->hLock);
    return dwStatus;
}
