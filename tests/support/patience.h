/*
 * Waiting for what other processes do: bounded, so that a case fails instead of hanging. The bound is generous, since
 * nothing may fail because the machine is busy.
 */
#ifndef DKPF_TESTS_PATIENCE_H
#define DKPF_TESTS_PATIENCE_H

#include <windows.h>
#include <functional>

static const DWORD PATIENCE_MS = 60000;

/* Waits until a condition holds. FALSE: it did not within twice the bound, its own time included: a condition that runs
 * a program takes most of the time itself. */
inline bool Eventually(const std::function<bool()>& condition)
{
    const ULONGLONG start = GetTickCount64();
    while (!condition()) {
        if (GetTickCount64() - start >= 2 * PATIENCE_MS) {
            return false;
        }
        Sleep(20);
    }
    return true;
}

/* Calls what creates a process, CreateProcess or StartService, until Wine does not fail at it by itself: where programs
 * lie at random addresses one in some thousand dies before its first instruction (error 1359; scripts/common.sh fixes
 * them).
 */
inline bool Created(const std::function<BOOL()>& create)
{
    for (int attempt = 0; attempt < 5; attempt++) {
        if (create()) {
            return true;
        }
        if (GetLastError() != ERROR_INTERNAL_ERROR) {
            break;
        }
    }
    return false;
}

#endif
