/* The model of a mirrored disk, and which record holds which number in which mode. Expected values are worked out by
 * hand. */
#include <gtest/gtest.h>
#include <string.h>

#include "mirror_model.h"

static const Link SLOW = { 100000, 50, 300 };  // 100,000 bytes a step, half of them remain

/* Two and a half transfer blocks in 20 writes. */
static const Load BURST = { 163840, 20, 8000, 900, 4096 };

static MirrorDisk AfterBurst()
{
    MirrorDisk disk = {};
    Advance(disk, BURST, SLOW);
    return disk;
}

TEST(Model, WritesAreCountedAsTheyCome)
{
    const VELCOR_ENTRY n = AfterBurst().numbers;
    EXPECT_EQ(163840u, n.write_bytes);
    EXPECT_EQ(20u, n.writes);
    EXPECT_EQ(8000u, n.write_us);
    EXPECT_EQ(900u, n.write_us_max);
    EXPECT_EQ(4096u, n.request_queue);
    EXPECT_EQ(4096u, n.request_queue_peak);
}

TEST(Model, WhatTheLinkDoesNotTakeQueues)
{
    const VELCOR_ENTRY n = AfterBurst().numbers;
    EXPECT_EQ(63840u, n.send_queue);        // 163,840 - 100,000
    EXPECT_EQ(163840u, n.send_queue_peak);  // all of it before any left
    EXPECT_EQ(100000u, n.handed_bytes);
    EXPECT_EQ(50000u, n.transfer_bytes);
    EXPECT_EQ(65536u, n.memory);        // one block
    EXPECT_EQ(196608u, n.memory_peak);  // three blocks
}

TEST(Model, TransfersTakeTheirBaseTimeAndTheirBytes)
{
    const VELCOR_ENTRY n = AfterBurst().numbers;
    EXPECT_EQ(2u, n.transfers);          // 64 KiB and the rest of 100,000
    EXPECT_EQ(990u, n.transfer_us);      // 2 * 300 + 50,000 / 128
    EXPECT_EQ(556u, n.transfer_us_max);  // 300 + half of 64 KiB / 128
}

TEST(Model, TheOtherSideAcknowledgesAStepLater)
{
    MirrorDisk disk = AfterBurst();
    EXPECT_EQ(100000u, disk.numbers.history);
    EXPECT_EQ(163840u, disk.numbers.unsynced);  // 63,840 queued + 100,000 on their way
    EXPECT_EQ(163840u, disk.numbers.unsynced_peak);
    Advance(disk, {}, SLOW);
    EXPECT_EQ(63840u, disk.numbers.history);
    EXPECT_EQ(100000u, disk.numbers.history_peak);
    EXPECT_EQ(63840u, disk.numbers.unsynced);
    EXPECT_EQ(163840u, disk.numbers.unsynced_peak);
    Advance(disk, {}, SLOW);
    EXPECT_EQ(0u, disk.numbers.history);
    EXPECT_EQ(63840u, disk.numbers.history_peak);
    EXPECT_EQ(0u, disk.numbers.unsynced);
    EXPECT_EQ(63840u, disk.numbers.unsynced_peak);
}

TEST(Model, TheQueueDrainsAndTheSumsRunOn)
{
    MirrorDisk disk = AfterBurst();
    Advance(disk, {}, SLOW);
    const VELCOR_ENTRY& n = disk.numbers;
    EXPECT_EQ(0u, n.send_queue);
    EXPECT_EQ(63840u, n.send_queue_peak);
    EXPECT_EQ(163840u, n.handed_bytes);
    EXPECT_EQ(81920u, n.transfer_bytes);
    EXPECT_EQ(0u, n.memory);
    EXPECT_EQ(65536u, n.memory_peak);
    EXPECT_EQ(3u, n.transfers);
    EXPECT_EQ(1539u, n.transfer_us);     // 990 + 300 + 31,920 / 128
    EXPECT_EQ(549u, n.transfer_us_max);  // 300 + 31,920 / 128
    EXPECT_EQ(163840u, n.write_bytes);
    EXPECT_EQ(0u, n.write_us_max);
}

TEST(Model, AnIdleDiskStandsStill)
{
    MirrorDisk disk = {};
    Advance(disk, {}, SLOW);
    const MirrorDisk untouched = {};
    EXPECT_EQ(0, memcmp(&untouched.numbers, &disk.numbers, sizeof(disk.numbers)));
}

TEST(Model, TheReductionsRemainderIsCarriedOn)
{
    MirrorDisk disk = {};
    for (int i = 0; i < 100; i++) {
        Advance(disk, { 1, 1, 1, 1, 0 }, { 1000, 62, 0 });
    }
    EXPECT_EQ(100u, disk.numbers.handed_bytes);
    EXPECT_EQ(62u, disk.numbers.transfer_bytes);
}

TEST(Model, SumsWrapAt64Bits)
{
    MirrorDisk disk = {};
    disk.numbers.write_bytes = ~0ull - 99;  // 2^64 - 100
    disk.numbers.writes = ~0ull;
    Advance(disk, { 300, 3, 30, 10, 0 }, SLOW);
    EXPECT_EQ(200u, disk.numbers.write_bytes);
    EXPECT_EQ(2u, disk.numbers.writes);
}

TEST(Model, ALinkOfNothingHandsNothingOver)
{
    MirrorDisk disk = {};
    Advance(disk, BURST, { 0, 50, 300 });
    EXPECT_EQ(163840u, disk.numbers.send_queue);
    EXPECT_EQ(0u, disk.numbers.handed_bytes);
    EXPECT_EQ(0u, disk.numbers.transfers);
    EXPECT_EQ(0u, disk.numbers.transfer_us_max);
}

TEST(Model, ADiskThatHasAlreadyWrittenStartsWithEmptyQueues)
{
    MirrorDisk disk = {};
    StartAt(disk, 200000, 40, 5000, SLOW);
    const VELCOR_ENTRY& n = disk.numbers;
    EXPECT_EQ(200000u, n.write_bytes);
    EXPECT_EQ(40u, n.writes);
    EXPECT_EQ(5000u, n.write_us);
    EXPECT_EQ(200000u, n.handed_bytes);
    EXPECT_EQ(100000u, n.transfer_bytes);
    EXPECT_EQ(4u, n.transfers);       // 200,000 / 65,536 = 3.05
    EXPECT_EQ(1981u, n.transfer_us);  // 4 * 300 + 100,000 / 128
    EXPECT_EQ(0u, n.send_queue);
    EXPECT_EQ(0u, n.unsynced);
}

/* ---- Which record ---- */

static const unsigned FOLLOW_THE_MODE[] = { 8, 32, 40, 48, 56, 64, 88, 96 };
static const unsigned DRIVER_ALONE[] = { 16, 24, 72, 80, 104, 112, 120, 128, 136, 144, 152 };

static unsigned long long ValueAt(const VELCOR_ENTRY& entry, unsigned offset)
{
    unsigned long long value = 0;
    memcpy(&value, reinterpret_cast<const unsigned char*>(&entry) + offset, sizeof(value));
    return value;
}

/* Every number says its own offset, in thousands. */
static VELCOR_ENTRY Telling(unsigned mode, unsigned long long factor = 1000)
{
    VELCOR_ENTRY entry = {};
    entry.mode = mode;
    entry.state = VELCOR_STATE_INITIALIZED;
    for (unsigned offset = 8; offset <= 152; offset += 8) {
        const unsigned long long value = offset * factor;
        memcpy(reinterpret_cast<unsigned char*>(&entry) + offset, &value, sizeof(value));
    }
    return entry;
}

class Records : public testing::Test {
protected:
    VELCOR_FEED         feed = {};
    const VELCOR_ENTRY& driver = feed.driver.entry[5];
    const VELCOR_ENTRY& filter = feed.filter.entry[5];
};

TEST_F(Records, AsynchronousTheFilterHoldsTheQueues)
{
    PutNumbers(Telling(VELCOR_MODE_ASYNC), 5, feed);
    for (unsigned offset : FOLLOW_THE_MODE) {
        EXPECT_EQ(offset * 1000, ValueAt(filter, offset)) << offset;
        EXPECT_EQ(0u, ValueAt(driver, offset)) << offset;
    }
    for (unsigned offset : DRIVER_ALONE) {
        EXPECT_EQ(offset * 1000, ValueAt(driver, offset)) << offset;
        EXPECT_EQ(0u, ValueAt(filter, offset)) << offset;
    }
}

TEST_F(Records, SynchronousTheDriverHoldsAll)
{
    PutNumbers(Telling(VELCOR_MODE_SYNC), 5, feed);
    for (unsigned offset = 8; offset <= 152; offset += 8) {
        EXPECT_EQ(offset * 1000, ValueAt(driver, offset)) << offset;
        EXPECT_EQ(0u, ValueAt(filter, offset)) << offset;
    }
}

TEST_F(Records, ModeAndStateStandInBoth)
{
    PutNumbers(Telling(VELCOR_MODE_SYNC), 5, feed);
    EXPECT_EQ(1u, driver.mode);
    EXPECT_EQ(1u, filter.mode);
    EXPECT_EQ(1u, driver.state);
    EXPECT_EQ(1u, filter.state);
}

TEST_F(Records, AnInvalidModeIsPassedOnAndItsNumbersGoToTheFilter)
{
    PutNumbers(Telling(7), 5, feed);
    EXPECT_EQ(7u, driver.mode);
    EXPECT_EQ(8000u, filter.write_bytes);
    EXPECT_EQ(0u, driver.write_bytes);
}

TEST_F(Records, NeighboursAndHeadersAreLeftAlone)
{
    VELCOR_FEED expected = {};
    PutNumbers(Telling(VELCOR_MODE_SYNC), 5, feed);
    expected.driver.entry[5] = driver;
    expected.filter.entry[5] = filter;
    EXPECT_EQ(0, memcmp(&expected, &feed, sizeof(feed)));
}

TEST_F(Records, AChangeOfModeMovesNoSum)
{
    VELCOR_ENTRY n = Telling(VELCOR_MODE_ASYNC);
    for (unsigned mode : { 0u, 1u, 1u, 0u, 1u }) {
        n.mode = mode;
        n.write_bytes += 512;
        n.write_us += 70;
        n.writes += 3;
        PutNumbers(n, 5, feed);
        EXPECT_EQ(n.write_bytes, driver.write_bytes + filter.write_bytes);
        EXPECT_EQ(n.write_us, driver.write_us + filter.write_us);
        EXPECT_EQ(n.writes, driver.writes + filter.writes);
    }
    // Five steps of 512 behind 8,000: the filter counted the first and the fourth, the driver the others.
    EXPECT_EQ(9024u, filter.write_bytes);
    EXPECT_EQ(1536u, driver.write_bytes);
}

TEST_F(Records, AfterAChangeOfModeTheOtherStandsStillWithItsLongestTimeAtZero)
{
    PutNumbers(Telling(VELCOR_MODE_ASYNC, 1000), 5, feed);
    PutNumbers(Telling(VELCOR_MODE_SYNC, 2000), 5, feed);
    EXPECT_EQ(0u, filter.write_us_max);
    EXPECT_EQ(80000u, driver.write_us_max);
    for (unsigned offset : { 8u, 32u, 48u, 56u, 64u, 88u, 96u }) {
        EXPECT_EQ(offset * 1000, ValueAt(filter, offset)) << offset;
    }
    EXPECT_EQ(112000u, driver.send_queue);
}

TEST_F(Records, TheSumOfBothWrapsAt64Bits)
{
    VELCOR_ENTRY n = Telling(VELCOR_MODE_ASYNC);
    n.write_bytes = ~0ull - 99;
    PutNumbers(n, 5, feed);
    n.mode = VELCOR_MODE_SYNC;
    n.write_bytes += 300;
    PutNumbers(n, 5, feed);
    EXPECT_EQ(~0ull - 99, filter.write_bytes);
    EXPECT_EQ(300u, driver.write_bytes);
    EXPECT_EQ(200u, driver.write_bytes + filter.write_bytes);
}
