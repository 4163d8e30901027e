/*
 * Queries of the Performance Library.
 */
#ifndef DKPF_TOOLS_PERF_QUERY_H
#define DKPF_TOOLS_PERF_QUERY_H

#include <windows.h>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace dkpf {

inline constexpr DWORD PERF_QUERY_START = 64 * 1024;         // first size of the buffer, bytes; it doubles
inline constexpr DWORD PERF_QUERY_BOUND = 64 * 1024 * 1024;  // its largest
inline constexpr DWORD PERF_QUERY_SLACK = 88;                // Wine writes so far behind the size that it is given

struct PerfQueryResult {
    DWORD             error = ERROR_SUCCESS;  // ERROR_MORE_DATA: the answer is over the bound
    std::vector<BYTE> data;  // buffer with its slack, zero where nothing was written; only without error
};

/* Asks for a value of HKEY_PERFORMANCE_DATA with a buffer of so many bytes; returns a system error number. */
using PerfQueryFn = std::function<LONG(const std::wstring& query, BYTE* data, DWORD size)>;

/* The system's own. Loads, opens and asks every registered provider, and waits for each of them. */
LONG SystemPerfQuery(const std::wstring& query, BYTE* data, DWORD size);

/**
 * @param query  "Global", title indexes of objects separated by spaces, "Counter 009", "Help 009"
 * @param ask    called again with a buffer of twice the size as long as it answers ERROR_MORE_DATA; the size that comes
 *               back with it means nothing there
 */
PerfQueryResult QueryPerformanceData(const std::wstring& query, const PerfQueryFn& ask = SystemPerfQuery);

}  // namespace dkpf

#endif
