#include "host_source.h"

#include <algorithm>
#include <utility>

static const unsigned long long SECTOR = 512;

unsigned long long HostCounter::Take(unsigned long long now)
{
    const unsigned long long before = last;

    last = now;
    if (now >= before) {
        return now - before;
    }
    if (before < 1ull << 32 && before - now > 1ull << 31) {
        wrapped += 1ull << 32;
        return now + (1ull << 32) - before;
    }
    if (before - now > 1ull << 63) {
        return now - before;  // both wrap alike, and so does the sum
    }
    wrapped = 0;
    return 0;
}

void HostCounter::Restart(unsigned long long now)
{
    if (now < last) {
        last = now;
        wrapped = 0;
    }
}

unsigned long long HostCounter::Sum() const
{
    return last + wrapped;
}

static unsigned long long MeanRoundedUp(unsigned long long sum, unsigned long long number)
{
    return number == 0 ? 0 : sum / number + (sum % number != 0);
}

HostSource::HostSource(HostFiles files, const DiskMap& map, unsigned mode)
    : m_files(std::move(files)), m_map(map), m_mode(mode)
{
    m_feed.driver.header = VELCOR_REQUEST_HEADER;
    m_feed.filter.header = VELCOR_REQUEST_HEADER;
}

void HostSource::TakeDisk(const DiskStat& stat, Disk& disk)
{
    VELCOR_ENTRY& n = disk.mirror.numbers;
    Load          load = {};

    if (!disk.seen) {
        disk.sectors.last = stat.sectors;
        disk.writes.last = stat.writes;
        disk.ms.last = stat.ms;
        StartAt(disk.mirror, stat.sectors * SECTOR, stat.writes, stat.ms * 1000, HOST_LINK);
        disk.seen = true;
    } else if (!disk.present) {
        // It was away: a counter that fell meanwhile is another disk's, or a new start's, and never a wrap.
        disk.sectors.Restart(stat.sectors);
        disk.writes.Restart(stat.writes);
        disk.ms.Restart(stat.ms);
    }
    load.writeBytes = disk.sectors.Take(stat.sectors) * SECTOR;
    load.writes = disk.writes.Take(stat.writes);
    load.writeUs = disk.ms.Take(stat.ms) * 1000;
    load.longestUs = MeanRoundedUp(load.writeUs, load.writes);
    if (load.writes != 0) {
        disk.meanBytes = load.writeBytes / load.writes;
    }
    load.requestBytes = stat.inFlight * disk.meanBytes;
    Advance(disk.mirror, load, HOST_LINK);
    // The host's own sums, not those of the steps: they differ where a counter began anew.
    n.write_bytes = disk.sectors.Sum() * SECTOR;
    n.writes = disk.writes.Sum();
    n.write_us = disk.ms.Sum() * 1000;
    n.mode = m_mode;
    n.state = VELCOR_STATE_INITIALIZED;
}

/* Once while a condition holds: key names the condition, an empty sentence says that it is over. */
void HostSource::Tell(Step& step, const std::string& key, const std::string& sentence)
{
    if (sentence.empty()) {
        m_told.erase(key);
    } else if (m_told.insert(key).second) {
        step.words.push_back(sentence);
    }
}

bool HostSource::Next(Step& step)
{
    std::string                       text;
    unsigned                          badLines = 0;
    std::vector<DiskStat>             whole;
    std::array<bool, VELCOR_DISK_MAX> present = {};

    step.disks.clear();
    step.words.clear();
    const DWORD error = m_files.readDiskStats(text);
    if (error != ERROR_SUCCESS) {
        Tell(step, "read",
             "The host's disk statistics cannot be read (error " + std::to_string(error) +
                 "); the values stand still.");
        step.feed = m_feed;
        return true;
    }
    Tell(step, "read", "");
    whole = WholeDisks(ParseDiskStats(text, badLines), m_files.listWholeDevices());
    Tell(step, "lines",
         badLines == 0 ? std::string()
                       : std::to_string(badLines) + " lines of the disk statistics are not understood and left out.");
    for (const DiskStat& stat : whole) {
        const unsigned number = AssignDisk(m_map, stat.name, m_mapUnsaved);
        Tell(step, "full " + stat.name,
             number != 0 ? std::string() : "Host disk " + stat.name + " is left out: all 64 mirror disks are taken.");
        if (number == 0 || present[number - 1]) {
            continue;
        }
        Disk& disk = m_disks[number - 1];
        if (!disk.present) {
            step.words.push_back("Host disk " + stat.name + " is mirror disk " + std::to_string(number) + ".");
        }
        present[number - 1] = true;
        TakeDisk(stat, disk);
        step.disks.push_back({ number, stat.name, disk.mirror.numbers.write_bytes, disk.mirror.numbers.writes,
                               disk.mirror.numbers.write_us });
    }
    for (unsigned slot = 0; slot < VELCOR_DISK_MAX; slot++) {
        Disk& disk = m_disks[slot];
        if (disk.present && !present[slot]) {
            step.words.push_back("Host disk " + m_map.name[slot] + " (mirror disk " + std::to_string(slot + 1) +
                                 ") is gone.");
            disk.mirror.numbers.state = 0;
        }
        disk.present = present[slot];
        if (disk.seen) {
            PutNumbers(disk.mirror.numbers, slot, m_feed);
        }
    }
    if (m_mapUnsaved) {
        const DWORD saved = m_files.writeMap(FormatDiskMap(m_map));
        m_mapUnsaved = saved != ERROR_SUCCESS;
        Tell(step, "map",
             saved == ERROR_SUCCESS ? std::string()
                                    : "disks.map cannot be written (error " + std::to_string(saved) +
                                          "); the numbers hold for this run, and it is tried again each second.");
    }
    std::sort(step.disks.begin(), step.disks.end(), [](const FedDisk& a, const FedDisk& b) { return a.disk < b.disk; });
    step.feed = m_feed;
    return true;
}

bool HostHasDisks(const HostFiles& files)
{
    std::string text;
    unsigned    badLines = 0;

    return files.readDiskStats(text) == ERROR_SUCCESS &&
           !WholeDisks(ParseDiskStats(text, badLines), files.listWholeDevices()).empty();
}
