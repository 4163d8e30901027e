/*
 * Waiting for what other processes do: bounded, so that a case fails instead of hanging. The bound is generous, since
 * nothing may fail because the machine is busy.
 */
#ifndef DKPF_TESTS_PATIENCE_H
#define DKPF_TESTS_PATIENCE_H

#include <windows.h>
#include <functional>

static const DWORD PATIENCE_MS = 60000;

/* Waits until a condition holds. FALSE: it did not within the bound. */
inline bool Eventually(const std::function<bool()>& condition)
{
    for (DWORD waited = 0; waited < PATIENCE_MS; waited += 20) {
        if (condition()) {
            return true;
        }
        Sleep(20);
    }
    return false;
}

#endif
