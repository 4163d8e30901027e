/*
 * The host's disk statistics, one line for each block device. The columns used: 3 name, 8 writes completed, 10 sectors
 * written (512 bytes, whatever the disk's own sector is), 11 time spent writing in ms, 12 requests under way.
 */
#ifndef VELCORFEED_DISKSTATS_H
#define VELCORFEED_DISKSTATS_H

#include <string>
#include <vector>

struct DiskStat {
    std::string        name;
    unsigned long long writes;    // completed, sum
    unsigned long long sectors;   // written, 512 bytes each, sum
    unsigned long long ms;        // spent writing, sum
    unsigned long long inFlight;  // requests under way now, reads included
};

/**
 * Reads every line that has at least twelve columns, numbers where numbers belong.
 * @param badLines  receives the number of lines that are not understood (empty lines are no lines).
 */
std::vector<DiskStat> ParseDiskStats(const std::string& text, unsigned& badLines);

/**
 * The whole disks among them, in their order: no loop, ram, zram, mapper (dm-), RAID (md), optical (sr) or floppy (fd)
 * device and no partition.
 * @param wholeDevices  names below the host's /sys/block, where partitions have no entry ('!' stands for '/'). Empty
 * where that cannot be read: then a device whose name is another one's with a number behind it (sda1, nvme0n1p1) counts
 * as a partition.
 */
std::vector<DiskStat> WholeDisks(const std::vector<DiskStat>& stats, const std::vector<std::string>& wholeDevices);

#endif
