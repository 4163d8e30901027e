/* The host's disk statistics: which columns count, and which devices are whole disks. */
#include <gmock/gmock.h>

#include "diskstats.h"
#include "files.h"

using testing::ElementsAre;
using testing::IsEmpty;

static std::vector<std::string> Names(const std::vector<DiskStat>& stats)
{
    std::vector<std::string> names;
    for (const DiskStat& stat : stats) {
        names.push_back(stat.name);
    }
    return names;
}

static std::vector<DiskStat> Devices(const std::vector<std::string>& names)
{
    std::vector<DiskStat> stats;
    for (const std::string& name : names) {
        stats.push_back({ name, 0, 0, 0, 0 });
    }
    return stats;
}

TEST(DiskStats, TakesTheWriteColumnsOfALineOfTwenty)
{
    unsigned   bad = 9;
    const auto stats = ParseDiskStats("   8       0 sda 11 12 13 14 21 22 23 24 31 32 33 41 42 43 44 51 52\n", bad);
    ASSERT_EQ(1u, stats.size());
    EXPECT_EQ("sda", stats[0].name);
    EXPECT_EQ(21u, stats[0].writes);
    EXPECT_EQ(23u, stats[0].sectors);
    EXPECT_EQ(24u, stats[0].ms);
    EXPECT_EQ(31u, stats[0].inFlight);
    EXPECT_EQ(0u, bad);
}

TEST(DiskStats, TakesALineOfAnOldKernelWithFourteenColumns)
{
    unsigned bad = 0;
    EXPECT_THAT(Names(ParseDiskStats("3 0 hda 1 2 3 4 5 6 7 8 9 10 11\n", bad)), ElementsAre("hda"));
    EXPECT_EQ(0u, bad);
}

TEST(DiskStats, ReadsSumsUpTo64Bits)
{
    unsigned   bad = 0;
    const auto stats = ParseDiskStats("8 0 sda 0 0 0 0 18446744073709551615 0 18446744073709551614 7 0 0 0", bad);
    ASSERT_EQ(1u, stats.size());
    EXPECT_EQ(18446744073709551615ull, stats[0].writes);
    EXPECT_EQ(18446744073709551614ull, stats[0].sectors);
}

TEST(DiskStats, LeavesOutAndCountsLinesItDoesNotUnderstand)
{
    unsigned   bad = 0;
    const auto stats = ParseDiskStats("8 1 sda1 1 2 3 4\n"
                                      "8 0 sda 1 2 3 4 x 6 7 8 9 10 11\n"
                                      "8 0 sdb 1 2 3 4 5 6 18446744073709551616 8 9 10 11\n"
                                      "\n"
                                      "8 0 sdc 1 2 3 4 -5 6 7 8 9 10 11\n"
                                      "8 0 sdd 1 2 3 4 5 6 7 8 9 10 11\n",
                                      bad);
    EXPECT_THAT(Names(stats), ElementsAre("sdd"));
    EXPECT_EQ(4u, bad);
}

TEST(DiskStats, AnEmptyTextHasNoDisks)
{
    unsigned bad = 9;
    EXPECT_THAT(ParseDiskStats("", bad), IsEmpty());
    EXPECT_EQ(0u, bad);
}

TEST(WholeDisks, LeavesOutDevicesThatAreNoDisks)
{
    const auto stats = Devices({ "loop0", "ram15", "zram0", "dm-0", "md127", "md_d0", "sr0", "fd0", "vda" });
    EXPECT_THAT(Names(WholeDisks(stats, {})), ElementsAre("vda"));
}

TEST(WholeDisks, ANameThatOnlyBeginsAlikeStays)
{
    EXPECT_THAT(Names(WholeDisks(Devices({ "sda", "srv", "ramdisk", "mdisk" }), {})),
                ElementsAre("sda", "srv", "ramdisk", "mdisk"));
}

TEST(WholeDisks, GoesByTheListOfWholeDevices)
{
    const auto stats = Devices({ "sda", "sda1", "sdb", "nvme0n1", "nvme0n1p1", "cciss/c0d0", "cciss/c0d0p1" });
    EXPECT_THAT(Names(WholeDisks(stats, { "sda", "sdb", "nvme0n1", "cciss!c0d0", "loop0" })),
                ElementsAre("sda", "sdb", "nvme0n1", "cciss/c0d0"));
}

TEST(WholeDisks, TheListDoesNotBringBackMapperDevices)
{
    EXPECT_THAT(Names(WholeDisks(Devices({ "dm-0", "sda" }), { "dm-0", "sda" })), ElementsAre("sda"));
}

TEST(WholeDisks, WithoutTheListPartitionsGoByName)
{
    const auto stats =
        Devices({ "sda", "sda1", "sda12", "sdaa", "sdaa1", "nvme0n1", "nvme0n1p1", "nvme0n2", "mmcblk0", "mmcblk0p1" });
    EXPECT_THAT(Names(WholeDisks(stats, {})), ElementsAre("sda", "sdaa", "nvme0n1", "nvme0n2", "mmcblk0"));
}

TEST(WholeDisks, ADiskWithoutItsPartitionsParentStays)
{
    EXPECT_THAT(Names(WholeDisks(Devices({ "xvda1" }), {})), ElementsAre("xvda1"));
}

TEST(ParseNumber, TakesDigitsAlone)
{
    unsigned long long number = 7;
    for (const char* word : { "", "-1", "+1", "1 ", "0x1", "1.0", "18446744073709551616", "99999999999999999999" }) {
        EXPECT_FALSE(ParseNumber(word, number)) << word;
    }
    EXPECT_EQ(7u, number);
    EXPECT_TRUE(ParseNumber("0018446744073709551615", number));
    EXPECT_EQ(18446744073709551615ull, number);
}
