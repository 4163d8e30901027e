/* disks.map: a disk keeps its number, a new one takes the next free. */
#include <gtest/gtest.h>

#include "disk_map.h"

struct BadMap {
    const char* text;
    unsigned    line;
    const char* reason;
};

/* The case's name in a list of tests: its text in one line. */
static void PrintTo(const BadMap& bad, std::ostream* out)
{
    for (const char* c = bad.text; *c != '\0'; c++) {
        *out << (*c == '\n' ? '|' : *c);
    }
}

class RefusedMap : public testing::TestWithParam<BadMap> {};

TEST_P(RefusedMap, NamesLineAndReason)
{
    DiskMap     map;
    unsigned    line = 0;
    std::string reason;
    map.name[4] = "kept";
    EXPECT_FALSE(ParseDiskMap(GetParam().text, map, line, reason));
    EXPECT_EQ(GetParam().line, line);
    EXPECT_EQ(GetParam().reason, reason);
    EXPECT_EQ("kept", map.name[4]);
}

INSTANTIATE_TEST_SUITE_P(
    DiskMap, RefusedMap,
    testing::Values(BadMap{ "1 sda\n0 sdb\n", 2, "mirror disk 0 is none of 1 to 64" },
                    BadMap{ "65 sda\n", 1, "mirror disk 65 is none of 1 to 64" },
                    BadMap{ "# c\n\n1\n", 3, "expected a mirror disk's number and a host disk's name" },
                    BadMap{ "1 sda sdb\n", 1, "expected a mirror disk's number and a host disk's name" },
                    BadMap{ "sda 1\n", 1, "expected a mirror disk's number and a host disk's name" },
                    BadMap{ "1 sda\n1 sdb\n", 2, "mirror disk 1 is already sda" },
                    BadMap{ "1 sda\n2 sda\n", 2, "host disk sda already has a mirror disk" }));

TEST(DiskMap, ReadsNumbersNamesAndComments)
{
    DiskMap     map;
    unsigned    line = 0;
    std::string reason;
    ASSERT_TRUE(ParseDiskMap("# comment\r\n  3  sdb # the second\r\n\r\n64 nvme0n1", map, line, reason)) << reason;
    EXPECT_EQ("sdb", map.name[2]);
    EXPECT_EQ("nvme0n1", map.name[63]);
    EXPECT_EQ("", map.name[0]);
}

TEST(DiskMap, WhatIsWrittenReadsBackTheSame)
{
    DiskMap     map;
    DiskMap     again;
    unsigned    line = 0;
    std::string reason;
    map.name[0] = "vda";
    map.name[9] = "cciss/c0d0";
    EXPECT_EQ("# Mirror disk and host disk. Kept by velcorfeed; delete a line to free its number.\r\n"
              "1 vda\r\n10 cciss/c0d0\r\n",
              FormatDiskMap(map));
    ASSERT_TRUE(ParseDiskMap(FormatDiskMap(map), again, line, reason));
    EXPECT_EQ(map.name, again.name);
}

TEST(DiskMap, AKnownDiskKeepsItsNumberAndANewOneTakesTheLowestFree)
{
    DiskMap map;
    bool    changed = false;
    map.name[0] = "sda";
    map.name[2] = "gone";  // its number is not given away
    EXPECT_EQ(1u, AssignDisk(map, "sda", changed));
    EXPECT_FALSE(changed);
    EXPECT_EQ(2u, AssignDisk(map, "sdb", changed));
    EXPECT_TRUE(changed);
    EXPECT_EQ(4u, AssignDisk(map, "sdc", changed));
    EXPECT_EQ(2u, AssignDisk(map, "sdb", changed));
}

TEST(DiskMap, TheSixtyFifthDiskHasNoPlace)
{
    DiskMap map;
    bool    changed = false;
    for (unsigned i = 1; i <= 64; i++) {
        EXPECT_EQ(i, AssignDisk(map, "d" + std::to_string(i), changed));
    }
    changed = false;
    EXPECT_EQ(0u, AssignDisk(map, "d65", changed));
    EXPECT_FALSE(changed);
    EXPECT_EQ(64u, AssignDisk(map, "d64", changed));
}
