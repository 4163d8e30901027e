#include "perf_query.h"

namespace dkpf {

LONG SystemPerfQuery(const std::wstring& query, BYTE* data, DWORD size)
{
    return RegQueryValueExW(HKEY_PERFORMANCE_DATA, query.c_str(), nullptr, nullptr, data, &size);
}

PerfQueryResult QueryPerformanceData(const std::wstring& query, const PerfQueryFn& ask)
{
    PerfQueryResult result;
    for (DWORD size = PERF_QUERY_START; size <= PERF_QUERY_BOUND; size *= 2) {
        // Zeroed each time: a gap in the answer then reads as zero.
        result.data.assign(static_cast<size_t>(size) + PERF_QUERY_SLACK, 0);
        result.error = static_cast<DWORD>(ask(query, result.data.data(), size));
        if (result.error != ERROR_MORE_DATA)
            break;
    }
    if (result.error != ERROR_SUCCESS)
        result.data.clear();
    return result;
}

}  // namespace dkpf
