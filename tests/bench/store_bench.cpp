/*
 * The region's two hot paths, a store of a sample for 32 readers and one reader's read, against the plain copy and
 * merge under the same lock: what has to be done with the lines around it left out. The region is this process's own
 * memory.
 */
#include <windows.h>

#include <stdio.h>
#include <string.h>

#include "bench/race.h"
#include "support/full_region.h"

namespace {

constexpr int STORES = 200;  // each round

DKPF_SHM_INFO g_region;
DKPF_SHM_INFO g_plain;
DKPF_PARAM    g_sample;
DKPF_PARAM    g_read;

/* What a store is at least: the current values over, each reader's peaks raised. */
void PlainStore(HANDLE lock)
{
    WaitForSingleObject(lock, INFINITE);
    g_plain.sampling_time = g_sample.sampling_time;
    g_plain.local_time = g_sample.local_time;
    memcpy(g_plain.InitFlag, g_sample.InitFlag, sizeof(g_plain.InitFlag));
    memcpy(g_plain.instance, g_sample.instance, sizeof(g_plain.instance));
    for (DWORD row = 0; row < DKPF_PROC_MAX; row++) {
        for (DWORD k = 0; k < DKPF_PARAMMAX_NUM; k++) {
            for (DWORD disk = 0; disk < DKPF_NMP_MAX; disk++) {
                const ULONGLONG value = g_sample.maxinstance[k].inst_sub[disk].value;
                if (g_plain.maxinstance[row][k].inst_sub[disk].value < value) {
                    g_plain.maxinstance[row][k].inst_sub[disk].value = value;
                }
            }
        }
    }
    ReleaseMutex(lock);
}

void PlainRead(HANDLE lock)
{
    WaitForSingleObject(lock, INFINITE);
    g_read.sampling_time = g_plain.sampling_time;
    g_read.local_time = g_plain.local_time;
    memcpy(g_read.InitFlag, g_plain.InitFlag, sizeof(g_read.InitFlag));
    memcpy(g_read.instance, g_plain.instance, sizeof(g_read.instance));
    memcpy(g_read.maxinstance, g_plain.maxinstance[1], sizeof(g_read.maxinstance));
    memset(g_plain.maxinstance[1], 0, sizeof(g_read.maxinstance));
    ReleaseMutex(lock);
}

}  // namespace

int main()
{
    const HANDLE lock = CreateMutexW(nullptr, FALSE, L"Global\\bench_region");
    if (lock == nullptr) {
        return 2;
    }
    AttachFullRegion(lock, &g_region, &g_sample);
    bool failed = false;

    Race race("Region with 64 disks and 32 readers, under a named mutex");
    race.Candidate("store", STORES, [&] {
        for (int i = 0; i < STORES; i++) {
            DWORD error = 0;
            failed = !_DkpfShmSetPerf(&g_sample, &error) || failed;
        }
    });
    race.Candidate("plain copy and merge", STORES, [&] {
        for (int i = 0; i < STORES; i++) {
            PlainStore(lock);
        }
    });
    race.Candidate("read", STORES, [&] {
        for (int i = 0; i < STORES; i++) {
            DWORD error = 0;
            failed = !_DkpfShmGetPerf(&g_read, &error) || failed;
        }
    });
    race.Candidate("plain copy and clear", STORES, [&] {
        for (int i = 0; i < STORES; i++) {
            PlainRead(lock);
        }
    });
    race.Compare("store", "plain copy and merge", 2.0);
    race.Compare("read", "plain copy and clear", 2.0);
    const bool reached = race.Run(25);
    if (failed) {
        fprintf(stderr, "a store or read failed: the figures mean nothing\n");
        return 2;
    }
    return reached ? 0 : 1;
}
