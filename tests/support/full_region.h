/*
 * The library's state where it costs most: attached, 64 disks present, 32 readers in the consumer table. For what links
 * or loads the library under test; the region is the caller's memory, the lock a mutex of its own.
 */
#ifndef TESTS_SUPPORT_FULL_REGION_H
#define TESTS_SUPPORT_FULL_REGION_H

#include "diskperf.h"

/* All readers are this process, in row 1 of its own; the trace logs take errors and warnings. */
inline void AttachFullRegion(HANDLE lock, DKPF_SHM_INFO* region, DKPF_PARAM* sample)
{
    g_hShmMutex = lock;
    g_pShmInfo = region;
    g_dwShmInitCount = 1;
    g_nPMProcessIDIdx = 1;
    g_dwDkpfLogLevel = 3;
    for (DWORD row = 1; row < DKPF_PROC_MAX; row++) {
        region->PMProcessID[row] = GetCurrentProcessId();
    }
    sample->param_num = DKPF_PARAM_NUM;
    sample->parammax_num = DKPF_PARAMMAX_NUM;
    for (DWORD disk = 0; disk < DKPF_NMP_MAX; disk++) {
        sample->InitFlag[disk] = 1;
        for (DWORD k = 0; k < DKPF_PARAMMAX_NUM; k++) {
            sample->maxinstance[k].inst_sub[disk].value = 1000 * k + disk;
        }
    }
}

#endif
