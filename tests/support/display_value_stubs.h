/*
 * Stand-ins for the computation of the display values, to be put in its place with a Detour.
 */
#ifndef TESTS_SUPPORT_DISPLAY_VALUE_STUBS_H
#define TESTS_SUPPORT_DISPLAY_VALUE_STUBS_H

#include <string.h>

#include "diskperf.h"

/* Fails as for a counter of unknown kind. */
inline BOOL FailingDisplayValues(const DKPF_PARAM*, const DKPF_PARAM*, DKPF_DISP*, DKPF_RAWTOTAL*, DWORD* err)
{
    *err = 0xB000FFFF;
    return FALSE;
}

/* Counts the calls and those that got both output records zeroed; leaves rubbish in both. */
struct DisplayValueCalls {
    unsigned all = 0, zeroed = 0;
};
inline DisplayValueCalls g_displayValueCalls;
inline BOOL CountingDisplayValues(const DKPF_PARAM*, const DKPF_PARAM*, DKPF_DISP* disp, DKPF_RAWTOTAL* total,
                                  DWORD* err)
{
    static const DKPF_DISP     zeroDisp = {};
    static const DKPF_RAWTOTAL zeroTotal = {};
    const bool zero = memcmp(disp, &zeroDisp, sizeof zeroDisp) == 0 && memcmp(total, &zeroTotal, sizeof zeroTotal) == 0;
    g_displayValueCalls.all++;
    g_displayValueCalls.zeroed += zero ? 1u : 0u;
    memset(disp, 0xEE, sizeof *disp);
    memset(total, 0xEE, sizeof *total);
    *err = 0xB0000000;
    return TRUE;
}

#endif
