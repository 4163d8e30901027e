#include "doctor_facts.h"

#include <algorithm>

namespace dkpf {

static bool BeginsAndEnds(const std::wstring& name, const std::wstring& head, const std::wstring& tail)
{
    return name.size() >= head.size() + tail.size() && _wcsnicmp(name.c_str(), head.c_str(), head.size()) == 0 &&
           _wcsicmp(name.c_str() + name.size() - tail.size(), tail.c_str()) == 0;
}

bool IsCsvFile(const std::wstring& name)
{
    return BeginsAndEnds(name, L"nmp", L".csv");
}

bool IsTraceLog(const std::wstring& name)
{
    return BeginsAndEnds(name, L"diskperf", L".log");
}

ULONGLONG SpaceBound(const SettingValues& settings)
{
    static constexpr ULONGLONG csvFiles = 130;         // 64 disks and the total, each with its raw file
    static constexpr ULONGLONG traceLogs = 4;          // module, trace, configuration, events
    static constexpr ULONGLONG traceGenerations = 16;  // the newest and 15 older
    static constexpr ULONGLONG kib = 1024;
    return csvFiles * settings[PERF_LOG_SIZE] * kib * (settings[PERF_LOG_ROTATION] + 1ull) +
           traceLogs * traceGenerations * settings[LOG_SIZE] * kib;
}

ULONGLONG SpaceBoundOf(const StatusFacts& facts)
{
    const SettingValues* inForce = InForce(facts);
    return std::max(facts.file.accepted ? SpaceBound(facts.file.values) : 0,
                    inForce != nullptr ? SpaceBound(*inForce) : 0);
}

}  // namespace dkpf
