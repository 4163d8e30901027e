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

#endif
