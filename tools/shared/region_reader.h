/*
 * One copy of the shared region, for every tool that shows it. The region is opened for reading only and copied in one
 * hold of its mutex; neither is ever created, nothing is written there, no consumer row is taken.
 */
#ifndef DKPF_TOOLS_REGION_READER_H
#define DKPF_TOOLS_REGION_READER_H

#include <memory>
#include <string>

#include "diskperf.h"

namespace dkpf {

enum class RegionStatus {
    Copied,
    Absent,   // no region: no disk agent runs
    Busy,     // somebody holds the mutex for longer than the wait
    Refused,  // the system refused a call, or the region has another size
};

struct RegionCopy {
    RegionStatus                   status = RegionStatus::Absent;
    bool                           opened = false;  // the account has the rights; a refusal is one of the size
    std::string                    words;           // what is wrong, where not Copied; one sentence without a period
    std::unique_ptr<DKPF_SHM_INFO> info;            // only where Copied. Nothing in it is checked: see region_view.h
    DWORD                          tick = 0;        // GetTickCount() right behind the copy, ms
};

struct RegionSource {
    const char* mapping = DKPF_SHM_NAME;
    const char* mutex = DKPF_MUTEX_NAME;
    DWORD       waitMs = 2000;
};

/* May block for waitMs. An abandoned mutex counts as taken. */
RegionCopy ReadRegion(const RegionSource& source = RegionSource());

}  // namespace dkpf

#endif
