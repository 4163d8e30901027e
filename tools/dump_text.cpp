#include "dump_text.h"

#include <fmt/format.h>

#include "region_view.h"
#include "settings.h"
#include "text.h"

namespace dkpf {

/* Names of the current values by row, as the raw CSV columns call them. */
static constexpr const char* g_currentNames[] = {
    "Write Bytes Sum",
    "Transfer Bytes Before Reduction Sum",
    "Transfer Bytes Sum",
    "Write us Sum",
    "Writes Sum",
    "Send Queue Bytes",
    "History Buffer Bytes",
    "Request Queue Bytes",
    "Transfer Memory Bytes",
    "Unsynchronized Bytes",
    "Transfer us Sum",
    "Transfers Sum",
};
static_assert(ARRAYSIZE(g_currentNames) == DKPF_PARAM_NUM, "one name per row of current values");

static std::string ConfigurationText(const RegionView& view)
{
    std::string text = "configuration as published\n";
    for (size_t i = 0; i < SETTING_NUM; i++)
        text += fmt::format("  {:<27}{}\n", SettingAt(i).name, SettingText(i, view.published[i]));
    return text;
}

static std::string SampleText(const RegionView& view)
{
    std::string text = "sample\n";
    text += fmt::format("  {:<27}{} current, {} peak\n", "rows", view.currentRows, view.peakRows);
    if (view.hasSample) {
        text += fmt::format("  {:<27}{} ms, {} ago\n", "sampling_time", view.sampleTick, AgeText(view.ageMs));
        text += fmt::format("  {:<27}{}\n", "local_time", LocalTimeText(view.localTime));
    } else {
        text += fmt::format("  {:<27}no sample\n", "local_time");
    }
    text += fmt::format("  {:<27}{}\n", "disks present", DiskListText(view.disks));
    return text;
}

static std::string RowsText(const RegionView& view, const std::function<ProcessLife(DWORD)>& life)
{
    std::string text = "consumer rows\n   0  the producer's\n";
    for (size_t row = 1; row < view.owners.size(); row++) {
        const DWORD owner = view.owners[row];
        text += owner == 0 ? fmt::format("  {:>2}  free\n", row)
                           : fmt::format("  {:>2}  process {}, {}\n", row, owner, LifeText(life(owner)));
    }
    return text;
}

static std::string DiskText(const DKPF_SHM_INFO& info, const RegionView& view, int disk)
{
    const int   slot = disk - 1;
    const DWORD state = info.InitFlag[slot];
    std::string text = fmt::format("mirror disk {}: {}\n", disk,
                                   state == 1 ? std::string("present") : fmt::format("not present (state {})", state));
    for (DWORD row = 0; row < view.currentRows; row++)
        text += fmt::format("  {:<37}{}\n", g_currentNames[row], info.instance[row].inst_sub[slot].value);
    return text;
}

std::string DumpText(const DKPF_SHM_INFO& info, DWORD tick, const DumpOptions& options,
                     const std::function<ProcessLife(DWORD)>& life)
{
    const RegionView view = ViewRegion(info, tick);
    std::string      text = fmt::format("region {}, {} bytes\n", DKPF_SHM_NAME, DKPF_SHM_SIZE);
    for (const std::string& damage : view.damage)
        text += "damaged: " + damage + "\n";
    text += ConfigurationText(view) + SampleText(view);
    if (options.rows)
        text += RowsText(view, life);
    if (options.disk != 0)
        text += DiskText(info, view, options.disk);
    return text;
}

}  // namespace dkpf
