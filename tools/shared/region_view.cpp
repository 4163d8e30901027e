#include "region_view.h"

#include <fmt/format.h>
#include <algorithm>

namespace dkpf {

static constexpr DWORD AGE_TOLERANCE_MS = 5000;
static constexpr DWORD INTERVAL_MAX_S = 3600;

static bool IsDate(const SYSTEMTIME& time)
{
    return time.wMonth >= 1 && time.wMonth <= 12 && time.wDay >= 1 && time.wDay <= 31 && time.wHour <= 23 &&
           time.wMinute <= 59 && time.wSecond <= 59 && time.wMilliseconds <= 999;
}

static DWORD Clamped(DWORD value, DWORD bound, const char* name, RegionView* view)
{
    if (value <= bound)
        return value;
    view->damage.push_back(fmt::format("{} is {}, at most {} is possible: {} assumed", name, value, bound, bound));
    return bound;
}

static SettingValues PublishedBy(const DKPF_CONF& conf)
{
    SettingValues values{};
    values[PERF_ENABLE] = conf.perf_enable;
    values[PERF_LOG_SAVE] = conf.perf_log_save;
    values[PERF_LOG_SIZE] = conf.perf_log_size;
    values[PERF_LOG_ROTATION] = conf.perf_log_rotation;
    values[COLLECT_INTERVAL] = conf.collect_interval;
    values[WRITE_INTERVAL] = conf.write_interval;
    values[COLLECT_PARAM] = conf.collect_param;
    values[LOG_LEVEL] = conf.log_level;
    values[LOG_SIZE] = conf.log_size;
    return values;
}

RegionView ViewRegion(const DKPF_SHM_INFO& info, DWORD tick)
{
    RegionView view;
    view.published = PublishedBy(info.conf);
    view.currentRows = Clamped(info.param_num, DKPF_PARAM_NUM, "param_num", &view);
    view.peakRows = Clamped(info.parammax_num, DKPF_PARAMMAX_NUM, "parammax_num", &view);

    // Day 0: never written since the region was made, or zeroed because collection stopped.
    view.hasSample = info.local_time.wDay != 0;
    if (view.hasSample && !IsDate(info.local_time)) {
        view.damage.push_back("local_time is no date: the sample does not count");
        view.hasSample = false;
    }
    if (view.hasSample) {
        view.sampleTick = info.sampling_time;
        view.ageMs = tick - info.sampling_time;  // both wrap after 49.7 days; the difference does not care
        view.localTime = info.local_time;
    }

    for (DWORD slot = 0; slot < DKPF_NMP_MAX; slot++) {
        if (info.InitFlag[slot] == 1)
            view.disks.push_back(static_cast<int>(slot) + 1);
    }
    std::copy(std::begin(info.PMProcessID), std::end(info.PMProcessID), view.owners.begin());
    if (view.owners[0] != 0)
        view.damage.push_back(fmt::format("PMProcessID[0] is {}: the producer enters none", view.owners[0]));
    return view;
}

std::string DiskListText(const std::vector<int>& disks)
{
    std::string text;
    for (size_t i = 0; i < disks.size();) {
        size_t last = i;
        while (last + 1 < disks.size() && disks[last + 1] == disks[last] + 1)
            last++;
        if (!text.empty())
            text += ", ";
        text += last == i ? fmt::format("{}", disks[i]) : fmt::format("{} to {}", disks[i], disks[last]);
        i = last + 1;
    }
    return text.empty() ? "none" : text;
}

DWORD BoundedIntervalS(DWORD intervalS)
{
    return std::clamp<DWORD>(intervalS, 1, INTERVAL_MAX_S);
}

DWORD SampleAgeLimitMs(DWORD collectIntervalS)
{
    return 2 * BoundedIntervalS(collectIntervalS) * 1000 + AGE_TOLERANCE_MS;
}

std::string AgeText(DWORD ageMs)
{
    return fmt::format("{}.{} s", ageMs / 1000, ageMs % 1000 / 100);
}

}  // namespace dkpf
