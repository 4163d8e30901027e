/*
 * The nine settings: what they are called, how they are written, and when a running agent takes a new value over.
 */
#ifndef DKPF_TOOLS_SETTINGS_H
#define DKPF_TOOLS_SETTINGS_H

#include <windows.h>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace dkpf {

inline constexpr size_t      SETTING_NUM = 9;
inline constexpr const char* SETTING_ROOT = "/root/diskperf/";  // in front of each name makes the key path

struct Setting {
    const char* name;    // key path below SETTING_ROOT
    const char* unit;    // "s", "KiB" or empty
    bool        hex;     // people write it in hexadecimal
    bool        atOnce;  // a reload takes it over; the others are read when threads, logs and files are opened
};

/* One value per setting, in the table's order. */
using SettingValues = std::array<DWORD, SETTING_NUM>;

enum SettingIndex : size_t {
    PERF_ENABLE,
    PERF_LOG_SAVE,
    PERF_LOG_SIZE,
    PERF_LOG_ROTATION,
    COLLECT_INTERVAL,
    WRITE_INTERVAL,
    COLLECT_PARAM,
    LOG_LEVEL,
    LOG_SIZE
};

const Setting& SettingAt(size_t index);

/* Index of a setting by its name, or SETTING_NUM. */
size_t SettingByName(std::string_view name);

/* A number as people write it; up to 9 both forms are the same digit. */
std::string NumberText(bool hex, DWORD value);

/* The value as people write it, with its unit: "60 s", "0x1ffff". */
std::string SettingText(size_t index, DWORD value);

/* What a reload does with the differences between the values in force and those of the file. */
struct ReloadSplit {
    std::vector<size_t> takenOver;
    std::vector<size_t> waiting;  // differ, and need a restart of the agent
};

ReloadSplit SplitReload(const SettingValues& inForce, const SettingValues& inFile);

/* "a, b and c" of setting names; empty for none. */
std::string SettingList(const std::vector<size_t>& indexes);

}  // namespace dkpf

#endif
