/*
 * What a query of performance data answered, taken apart. The bytes come from providers of any maker: nothing in them
 * is trusted, and each step is checked against the bytes that are there before it is made.
 */
#ifndef DKPF_TOOLS_PERF_BLOCK_H
#define DKPF_TOOLS_PERF_BLOCK_H

#include <windows.h>
#include <cstddef>
#include <string>
#include <vector>

namespace dkpf {

struct PerfCounter {
    DWORD nameIndex = 0;
    DWORD helpIndex = 0;
    LONG  scale = 0;  // power of ten by which viewers draw the value
    DWORD type = 0;   // PERF_COUNTER_...
    DWORD size = 0;   // bytes of the value
};

struct PerfInstance {
    std::wstring           name;  // empty for the one instance of an object without instances
    LONG                   uniqueId = 0;
    std::vector<ULONGLONG> values;  // one per counter; 0 for one that is neither 4 nor 8 bytes long
};

struct PerfObject {
    DWORD                     nameIndex = 0;
    DWORD                     helpIndex = 0;
    bool                      hasInstances = false;
    std::vector<PerfCounter>  counters;
    std::vector<PerfInstance> instances;
};

struct PerfBlock {
    std::vector<PerfObject> objects;  // of a damaged block: those in front of the damage
    std::string             damage;   // one sentence without a period; empty: the block is whole
};

/**
 * Walks a PERF_DATA_BLOCK.
 * @param data  the block; need not be aligned
 * @param size  bytes that may be read, the slack behind the block included (perf_query.h)
 * Objects start at the block's HeaderLength. Wine leaves a gap of sizeof(PERF_DATA_BLOCK) there, which the block's
 * TotalByteLength does not count; where no object lies at HeaderLength they are looked for behind such a gap.
 */
PerfBlock WalkPerfBlock(const BYTE* data, size_t size);

}  // namespace dkpf

#endif
