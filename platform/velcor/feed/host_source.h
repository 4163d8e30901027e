/*
 * The host's disks as mirror disks. What the host counts (bytes, writes, times) passes through unchanged as running
 * sums; queues and transfers come from the model.
 *
 *   write bytes     sectors written * 512
 *   writes          writes completed
 *   write us        time spent writing, ms * 1000
 *   longest write   the mean of the step's writes, rounded up: the host does not tell the longest
 *   request queue   requests under way * mean size of the last step's writes
 *
 * A host counter that goes back by more than half of 32 bits from within 32 bits is a wrap of a 32-bit counter, and
 * 2^32 is added from there on (time in ms does so every 49.7 days of writing, sectors on old kernels every 2 TiB); the
 * next start of the feeder no longer knows of it. One that goes back by more than half of 64 bits wrapped there, and
 * the sums wrap with it. Anything else is a counter that began anew: the sums begin anew with it, and the step's load
 * is 0. So is every fall of a disk that was away in the step before.
 */
#ifndef VELCORFEED_HOST_SOURCE_H
#define VELCORFEED_HOST_SOURCE_H

#include <array>
#include <functional>
#include <set>

#include "disk_map.h"
#include "diskstats.h"
#include "mirror_model.h"
#include "source.h"

const Link HOST_LINK = { 32ull << 20, 62, 300 };  // 32 MiB a second, 62 % remain, 300 us for a transfer

/* A counter of the host, run on over its wraps at 2^32. */
struct HostCounter {
    unsigned long long last = 0;     // as the host gave it
    unsigned long long wrapped = 0;  // what the wraps since the feeder's start come to

    /** @return what was added since the last value; 0 where the counter began anew. */
    unsigned long long Take(unsigned long long now);
    /** Before the first Take behind a gap: a fall is no wrap. */
    void               Restart(unsigned long long now);
    unsigned long long Sum() const;
};

/* What the source reads and keeps; the program binds these to files, tests to texts. */
struct HostFiles {
    std::function<DWORD(std::string& text)>       readDiskStats;
    std::function<std::vector<std::string>()>     listWholeDevices;  // empty: cannot be read
    std::function<DWORD(const std::string& text)> writeMap;
};

class HostSource : public Source {
public:
    /** @param mode  VELCOR_MODE_..., of every disk. */
    HostSource(HostFiles files, const DiskMap& map, unsigned mode);

    /** Never ends. Where the statistics cannot be read, the last step comes again, without disks for the journal. */
    bool Next(Step& step) override;

private:
    struct Disk {
        bool               seen = false;
        bool               present = false;
        HostCounter        sectors;
        HostCounter        writes;
        HostCounter        ms;
        unsigned long long meanBytes = 4096;  // of a write, in the last step that had any
        MirrorDisk         mirror = {};
    };

    void TakeDisk(const DiskStat& stat, Disk& disk);
    void Tell(Step& step, const std::string& key, const std::string& sentence);

    HostFiles                         m_files;
    DiskMap                           m_map;
    bool                              m_mapUnsaved = false;
    unsigned                          m_mode;
    std::array<Disk, VELCOR_DISK_MAX> m_disks;
    VELCOR_FEED                       m_feed = {};
    std::set<std::string>             m_told;  // conditions that hold and were told; told anew when they come again
};

/** @return whether the statistics show a disk that can be mapped. */
bool HostHasDisks(const HostFiles& files);

#endif
