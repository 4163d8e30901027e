/*
 * What a copy of the region says, checked: any process can write there, so nothing in it is trusted.
 */
#ifndef DKPF_TOOLS_REGION_VIEW_H
#define DKPF_TOOLS_REGION_VIEW_H

#include <array>
#include <string>
#include <vector>

#include "diskperf.h"
#include "settings.h"

namespace dkpf {

struct RegionView {
    SettingValues                    published{};      // configuration that the producer published
    DWORD                            currentRows = 0;  // rows of current values in use, at most 12
    DWORD                            peakRows = 0;     // rows of peaks in use, at most 7
    bool                             hasSample = false;
    DWORD                            sampleTick = 0;  // GetTickCount() of the sample, ms
    DWORD                            ageMs = 0;       // of the sample at the copy; only with hasSample
    SYSTEMTIME                       localTime{};     // of the sample; only with hasSample
    std::vector<int>                 disks;           // mirror disks present, 1 to 64
    std::array<DWORD, DKPF_PROC_MAX> owners{};        // process number of each consumer row, 0 = free
    std::vector<std::string>         damage;          // what no producer would have written
};

RegionView ViewRegion(const DKPF_SHM_INFO& info, DWORD tick);

/* "1 to 3, 7"; "none". */
std::string DiskListText(const std::vector<int>& disks);

/* A collect interval as the region or a file states it, in the range that a configuration may have, s. */
DWORD BoundedIntervalS(DWORD intervalS);

/* How old a sample may become before it is dead, ms: two collect intervals, and room for a busy machine. */
DWORD SampleAgeLimitMs(DWORD collectIntervalS);

/* "12.3 s" */
std::string AgeText(DWORD ageMs);

}  // namespace dkpf

#endif
