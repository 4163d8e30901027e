/*
 * Prints what the system's Performance Library answers, taken apart: perf_objects QUERY
 *   damage WORDS                                        where the block is damaged
 *   object NAME HELP INSTANCES|bare
 *   counter NAME HELP SCALE TYPE SIZE                   title indexes, hexadecimal type
 *   instance NAME VALUE...
 * exit: 0 printed; 1 the query failed; 2 wrong usage
 */
#include <stdio.h>
#include <string>

#include "perf_block.h"
#include "perf_query.h"

int wmain(int count, wchar_t** arguments)
{
    if (count != 2)
        return 2;
    const dkpf::PerfQueryResult answer = dkpf::QueryPerformanceData(arguments[1]);
    if (answer.error != ERROR_SUCCESS) {
        printf("error %lu\n", answer.error);
        return 1;
    }
    const dkpf::PerfBlock block = dkpf::WalkPerfBlock(answer.data.data(), answer.data.size());
    if (!block.damage.empty())
        printf("damage %s\n", block.damage.c_str());
    for (const dkpf::PerfObject& object : block.objects) {
        printf("object %lu %lu ", object.nameIndex, object.helpIndex);
        if (object.hasInstances)
            printf("%u\n", static_cast<unsigned>(object.instances.size()));
        else
            printf("bare\n");
        for (const dkpf::PerfCounter& counter : object.counters)
            printf("counter %lu %lu %ld %lx %lu\n", counter.nameIndex, counter.helpIndex, counter.scale, counter.type,
                   counter.size);
        for (const dkpf::PerfInstance& instance : object.instances) {
            printf("instance %ls", instance.name.c_str());
            for (const ULONGLONG value : instance.values)
                fputs((" " + std::to_string(value)).c_str(), stdout);
            printf("\n");
        }
    }
    RegCloseKey(HKEY_PERFORMANCE_DATA);
    return 0;
}
