/*
 * Which handles are open in this process. A handle that is not in the list is answered with a status instead of being
 * followed. log_write alone does without: it runs too often, and its callers hold their handles for the life of the
 * module.
 */
#include "tnwlog_internal.h"

static SRWLOCK   g_Lock = SRWLOCK_INIT;
static TNW_OPEN* g_lpFirst = NULL;

void TnwOpenAdd(TNW_OPEN* lpOpen, TNW_KIND eKind)
{
    lpOpen->eKind = eKind;
    AcquireSRWLockExclusive(&g_Lock);
    lpOpen->lpNext = g_lpFirst;
    g_lpFirst = lpOpen;
    ReleaseSRWLockExclusive(&g_Lock);
}

BOOL TnwOpenFind(const void* lpHandle, TNW_KIND eKind)
{
    const TNW_OPEN* lpOpen = NULL;

    AcquireSRWLockShared(&g_Lock);
    for (lpOpen = g_lpFirst; lpOpen != NULL && (lpOpen != lpHandle || lpOpen->eKind != eKind);
         lpOpen = lpOpen->lpNext) {
    }
    ReleaseSRWLockShared(&g_Lock);
    return lpOpen != NULL;
}

BOOL TnwOpenRemove(const void* lpHandle, TNW_KIND eKind)
{
    TNW_OPEN** lplpOpen = NULL;
    BOOL       bFound = FALSE;

    AcquireSRWLockExclusive(&g_Lock);
    for (lplpOpen = &g_lpFirst; *lplpOpen != NULL && !bFound;) {
        if (*lplpOpen == lpHandle && (*lplpOpen)->eKind == eKind) {
            *lplpOpen = (*lplpOpen)->lpNext;
            bFound = TRUE;
        } else {
            lplpOpen = &(*lplpOpen)->lpNext;
        }
    }
    ReleaseSRWLockExclusive(&g_Lock);
    return bFound;
}

void* TnwAlloc(SIZE_T cb)
{
    return HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, cb);
}

void TnwFree(void* lp)
{
    if (lp != NULL) {
        HeapFree(GetProcessHeap(), 0, lp);
    }
}
