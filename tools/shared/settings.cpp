#include "settings.h"

#include <fmt/format.h>

namespace dkpf {

static constexpr std::array<Setting, SETTING_NUM> g_settings = { {
    { "parameters/perfenable", "", false, true },
    { "parameters/perflogsave", "", false, true },
    { "parameters/perflogsize", "KiB", false, false },
    { "parameters/perflogrotation", "", false, false },
    { "parameters/collectinterval", "s", false, false },
    { "parameters/writeinterval", "s", false, true },
    { "parameters/collectparam", "", true, true },
    { "log/level", "", true, false },
    { "log/size", "KiB", false, false },
} };

const Setting& SettingAt(size_t index)
{
    return g_settings[index];
}

size_t SettingByName(std::string_view name)
{
    size_t index = 0;
    while (index < SETTING_NUM && name != g_settings[index].name)
        index++;
    return index;
}

std::string NumberText(bool hex, DWORD value)
{
    return fmt::format(hex && value > 9 ? "{:#x}" : "{}", value);
}

std::string SettingText(size_t index, DWORD value)
{
    const Setting& setting = g_settings[index];
    std::string    text = NumberText(setting.hex, value);
    if (setting.unit[0] != '\0')
        text += std::string(" ") + setting.unit;
    return text;
}

ReloadSplit SplitReload(const SettingValues& inForce, const SettingValues& inFile)
{
    ReloadSplit split;
    for (size_t i = 0; i < SETTING_NUM; i++) {
        if (inForce[i] != inFile[i])
            (g_settings[i].atOnce ? split.takenOver : split.waiting).push_back(i);
    }
    return split;
}

std::string SettingList(const std::vector<size_t>& indexes)
{
    std::string list;
    for (size_t i = 0; i < indexes.size(); i++) {
        if (i > 0)
            list += i + 1 == indexes.size() ? " and " : ", ";
        list += g_settings[indexes[i]].name;
    }
    return list;
}

}  // namespace dkpf
