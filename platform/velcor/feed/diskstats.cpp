#include "diskstats.h"

#include <algorithm>

#include "files.h"

std::vector<DiskStat> ParseDiskStats(const std::string& text, unsigned& badLines)
{
    std::vector<DiskStat> stats;

    badLines = 0;
    for (const std::string& line : Lines(text)) {
        const std::vector<std::string> words = Words(line);
        DiskStat                       stat = {};
        if (words.empty()) {
            continue;
        }
        if (words.size() < 12 || !ParseNumber(words[7], stat.writes) || !ParseNumber(words[9], stat.sectors) ||
            !ParseNumber(words[10], stat.ms) || !ParseNumber(words[11], stat.inFlight)) {
            badLines++;
            continue;
        }
        stat.name = words[2];
        stats.push_back(stat);
    }
    return stats;
}

static bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

/* Kinds of devices that are no disks of their own, by what stands in front of their number. */
static bool IsExcludedKind(const std::string& name)
{
    static const char* const PREFIXES[] = { "loop", "ram", "zram", "dm-", "md", "md_d", "sr", "fd" };

    for (const std::string prefix : PREFIXES) {
        if (name.size() > prefix.size() && name.compare(0, prefix.size(), prefix) == 0 &&
            IsDigit(name[prefix.size()])) {
            return true;
        }
    }
    return false;
}

/* sda1 of sda; a disk whose own name ends in a digit puts a p before the partition's number: nvme0n1p1 of nvme0n1. */
static bool IsPartitionOf(const std::string& name, const std::string& disk)
{
    size_t number = disk.size();

    if (name.size() <= disk.size() || disk.empty() || name.compare(0, disk.size(), disk) != 0) {
        return false;
    }
    if (IsDigit(disk.back())) {
        if (name[number] != 'p') {
            return false;
        }
        number++;
    }
    return number < name.size() && std::all_of(name.begin() + static_cast<std::ptrdiff_t>(number), name.end(), IsDigit);
}

static bool IsPartition(const std::string& name, const std::vector<DiskStat>& stats,
                        const std::vector<std::string>& wholeDevices)
{
    if (!wholeDevices.empty()) {
        std::string entry = name;
        std::replace(entry.begin(), entry.end(), '/', '!');
        return std::find(wholeDevices.begin(), wholeDevices.end(), entry) == wholeDevices.end();
    }
    return std::any_of(stats.begin(), stats.end(),
                       [&](const DiskStat& other) { return IsPartitionOf(name, other.name); });
}

std::vector<DiskStat> WholeDisks(const std::vector<DiskStat>& stats, const std::vector<std::string>& wholeDevices)
{
    std::vector<DiskStat> disks;

    std::copy_if(stats.begin(), stats.end(), std::back_inserter(disks), [&](const DiskStat& stat) {
        return !IsExcludedKind(stat.name) && !IsPartition(stat.name, stats, wholeDevices);
    });
    return disks;
}
