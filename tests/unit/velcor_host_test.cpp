/* The host's disks as mirror disks: what passes unchanged, what the counters' wraps do, disks that come and go. */
#include <gmock/gmock.h>

#include "host_source.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/* A host whose statistics a test writes as it likes. */
class Host : public testing::Test {
protected:
    void SetDisk(const std::string& name, unsigned long long writes, unsigned long long sectors, unsigned long long ms,
                 unsigned long long inFlight = 0)
    {
        disks[name] = "8 0 " + name + " 0 0 0 0 " + std::to_string(writes) + " 0 " + std::to_string(sectors) + " " +
                      std::to_string(ms) + " " + std::to_string(inFlight) + " 0 0\n";
    }

    HostSource Make(unsigned mode = VELCOR_MODE_ASYNC)
    {
        HostFiles files;
        files.readDiskStats = [this](std::string& text) {
            text.clear();
            for (const auto& disk : disks) {
                text += disk.second;
            }
            return readError;
        };
        files.listWholeDevices = [] { return std::vector<std::string>(); };
        files.writeMap = [this](const std::string& text) {
            written.push_back(text);
            return writeError;
        };
        return HostSource(files, map, mode);
    }

    Step Next(HostSource& source)
    {
        Step step;
        EXPECT_TRUE(source.Next(step));
        return step;
    }

    std::map<std::string, std::string> disks;
    std::vector<std::string>           written;
    DiskMap                            map;
    DWORD                              readError = 0;
    DWORD                              writeError = 0;
};

TEST_F(Host, ItsSumsPassUnchangedFromTheFirstStepOn)
{
    SetDisk("vda", 100, 2000, 30);
    HostSource source = Make();
    Step       step = Next(source);
    EXPECT_EQ(1024000u, step.feed.filter.entry[0].write_bytes);  // 2000 * 512
    EXPECT_EQ(100u, step.feed.filter.entry[0].writes);
    EXPECT_EQ(30000u, step.feed.filter.entry[0].write_us);
    EXPECT_EQ(0u, step.feed.driver.entry[0].write_bytes);
    EXPECT_EQ(VELCOR_STATE_INITIALIZED, step.feed.driver.entry[0].state);
    EXPECT_EQ(VELCOR_MODE_ASYNC, step.feed.driver.entry[0].mode);
    EXPECT_EQ(0u, step.feed.driver.entry[1].state);
    EXPECT_EQ(VELCOR_REQUEST_HEADER, step.feed.driver.header);
    SetDisk("vda", 110, 2200, 57);
    step = Next(source);
    EXPECT_EQ(1126400u, step.feed.filter.entry[0].write_bytes);
    EXPECT_EQ(110u, step.feed.filter.entry[0].writes);
    EXPECT_EQ(57000u, step.feed.filter.entry[0].write_us);
    EXPECT_EQ(2700u, step.feed.filter.entry[0].write_us_max);  // 27 ms for 10 writes
}

TEST_F(Host, SynchronousItsSumsStandInTheDriversRecord)
{
    SetDisk("vda", 100, 2000, 30);
    HostSource source = Make(VELCOR_MODE_SYNC);
    const Step step = Next(source);
    EXPECT_EQ(1024000u, step.feed.driver.entry[0].write_bytes);
    EXPECT_EQ(0u, step.feed.filter.entry[0].write_bytes);
}

TEST_F(Host, TheFirstStepHasNoLoadButTheHistoryOfTheDisk)
{
    SetDisk("vda", 100, 2000, 30, 2);
    HostSource          source = Make();
    const VELCOR_RECORD filter = Next(source).feed.filter;
    EXPECT_EQ(0u, filter.entry[0].write_us_max);
    EXPECT_EQ(0u, filter.entry[0].send_queue_peak);
    EXPECT_EQ(8192u, filter.entry[0].request_queue);  // no write seen yet: 2 * 4096
}

TEST_F(Host, RequestsUnderWayCountWithTheMeanSizeOfAWrite)
{
    SetDisk("vda", 100, 2000, 30);
    HostSource source = Make();
    Next(source);
    SetDisk("vda", 110, 2200, 40, 3);  // 200 sectors in 10 writes: 10,240 bytes each
    EXPECT_EQ(30720u, Next(source).feed.filter.entry[0].request_queue);
    SetDisk("vda", 110, 2200, 40, 1);  // no write in this step: the last mean holds
    EXPECT_EQ(10240u, Next(source).feed.filter.entry[0].request_queue);
}

TEST_F(Host, MoreThanTheLinkTakesQueues)
{
    SetDisk("vda", 0, 0, 0);
    HostSource source = Make();
    Next(source);
    SetDisk("vda", 1, 131072, 1);  // 64 MiB; the link takes 32 MiB a step
    EXPECT_EQ(33554432u, Next(source).feed.filter.entry[0].send_queue);
    EXPECT_EQ(0u, Next(source).feed.filter.entry[0].send_queue);
}

TEST_F(Host, TheJournalsRowsTellTheSumsOfBothRecords)
{
    SetDisk("sdb", 2, 20, 3);
    SetDisk("sda", 1, 10, 2);
    map.name[0] = "sdb";
    HostSource source = Make();
    const Step step = Next(source);
    ASSERT_EQ(2u, step.disks.size());
    EXPECT_EQ(1u, step.disks[0].disk);
    EXPECT_EQ("sdb", step.disks[0].host);
    EXPECT_EQ(10240u, step.disks[0].writeBytes);
    EXPECT_EQ(2u, step.disks[0].writes);
    EXPECT_EQ(3000u, step.disks[0].writeUs);
    EXPECT_EQ(2u, step.disks[1].disk);
    EXPECT_EQ("sda", step.disks[1].host);
}

TEST_F(Host, ADiskThatDisappearsGetsStateZeroAndKeepsItsNumber)
{
    SetDisk("sda", 1, 10, 2);
    SetDisk("sdb", 2, 20, 3);
    HostSource source = Make();
    Next(source);
    disks.erase("sda");
    Step step = Next(source);
    EXPECT_EQ(0u, step.feed.driver.entry[0].state);
    EXPECT_EQ(0u, step.feed.filter.entry[0].state);
    EXPECT_EQ(5120u, step.feed.filter.entry[0].write_bytes);  // stands still
    EXPECT_EQ(1u, step.feed.driver.entry[1].state);
    ASSERT_EQ(1u, step.disks.size());
    EXPECT_THAT(step.words, ElementsAre("Host disk sda (mirror disk 1) is gone."));
    SetDisk("sdc", 5, 50, 5);
    step = Next(source);
    EXPECT_EQ(1u, step.feed.driver.entry[2].state);
    SetDisk("sda", 4, 40, 4);
    step = Next(source);
    EXPECT_EQ(1u, step.feed.driver.entry[0].state);
    EXPECT_EQ(20480u, step.feed.filter.entry[0].write_bytes);
    EXPECT_THAT(step.words, ElementsAre("Host disk sda is mirror disk 1."));
}

TEST_F(Host, TheMapIsWrittenWhenItChangesAndOnlyThen)
{
    SetDisk("sda", 1, 10, 2);
    HostSource source = Make();
    Next(source);
    Next(source);
    ASSERT_EQ(1u, written.size());
    EXPECT_THAT(written[0], HasSubstr("\r\n1 sda\r\n"));
    SetDisk("sdb", 1, 10, 2);
    Next(source);
    ASSERT_EQ(2u, written.size());
    EXPECT_THAT(written[1], HasSubstr("\r\n1 sda\r\n2 sdb\r\n"));
}

TEST_F(Host, AMapThatCannotBeWrittenIsToldOnceAndTriedAgain)
{
    SetDisk("sda", 1, 10, 2);
    writeError = 5;
    HostSource source = Make();
    EXPECT_THAT(Next(source).words, ElementsAre("Host disk sda is mirror disk 1.",
                                                "disks.map cannot be written (error 5); the numbers hold for this run, "
                                                "and it is tried again each second."));
    EXPECT_THAT(Next(source).words, IsEmpty());
    writeError = 0;
    Next(source);
    Next(source);
    EXPECT_EQ(3u, written.size());
}

TEST_F(Host, StatisticsThatCannotBeReadLeaveTheValuesAndTheJournalAlone)
{
    SetDisk("sda", 1, 10, 2);
    HostSource source = Make();
    Next(source);
    readError = 5;
    Step step = Next(source);
    EXPECT_EQ(5120u, step.feed.filter.entry[0].write_bytes);
    EXPECT_EQ(1u, step.feed.driver.entry[0].state);
    EXPECT_THAT(step.disks, IsEmpty());
    EXPECT_THAT(step.words,
                ElementsAre("The host's disk statistics cannot be read (error 5); the values stand still."));
    EXPECT_THAT(Next(source).words, IsEmpty());
    readError = 0;
    EXPECT_EQ(1u, Next(source).disks.size());
}

TEST_F(Host, TheSixtyFifthDiskIsLeftOutAndToldOnce)
{
    for (unsigned i = 0; i < 65; i++) {
        SetDisk(std::string("sd") + static_cast<char>('a' + i / 26) + static_cast<char>('a' + i % 26), 1, 1, 1);
    }
    HostSource source = Make();
    const Step step = Next(source);
    EXPECT_EQ(64u, step.disks.size());
    ASSERT_EQ(65u, step.words.size());
    EXPECT_EQ("Host disk sdcm is left out: all 64 mirror disks are taken.", step.words[64]);
    EXPECT_THAT(Next(source).words, IsEmpty());
}

TEST_F(Host, ANameThatIsThereTwiceCountsOnce)
{
    disks["1"] = "8 0 sda 0 0 0 0 1 0 10 1 0 0 0\n";
    disks["2"] = "8 1 sda 0 0 0 0 9 0 90 9 0 0 0\n";
    HostSource source = Make();
    const Step step = Next(source);
    ASSERT_EQ(1u, step.disks.size());
    EXPECT_EQ(5120u, step.disks[0].writeBytes);
}

TEST_F(Host, HasDisksOnlyIfOneCanBeMapped)
{
    HostFiles files;
    files.readDiskStats = [](std::string& text) {
        text = "7 0 loop0 0 0 0 0 0 0 0 0 0 0 0\n";
        return DWORD(0);
    };
    files.listWholeDevices = [] { return std::vector<std::string>(); };
    EXPECT_FALSE(HostHasDisks(files));
    files.readDiskStats = [](std::string& text) {
        text = "8 0 sda 0 0 0 0 0 0 0 0 0 0 0\n";
        return DWORD(0);
    };
    EXPECT_TRUE(HostHasDisks(files));
    files.readDiskStats = [](std::string&) { return DWORD(2); };
    EXPECT_FALSE(HostHasDisks(files));
}

/* ---- Counters that go back ---- */

TEST(HostCounter, RunsOnOverAWrapAt32Bits)
{
    HostCounter counter;
    counter.last = 4294967290ull;  // 2^32 - 6
    EXPECT_EQ(10u, counter.Take(4));
    EXPECT_EQ(4294967300ull, counter.Sum());
    EXPECT_EQ(4294967290ull, counter.Take(4294967294ull));  // nearly around once more
    EXPECT_EQ(3u, counter.Take(1));
    EXPECT_EQ(8589934593ull, counter.Sum());  // 2 * 2^32 + 1
}

TEST(HostCounter, BeginsAnewWhereItIsNoWrap)
{
    HostCounter counter;
    counter.last = 1000000;
    EXPECT_EQ(0u, counter.Take(7));  // from the lower half of 32 bits
    EXPECT_EQ(7u, counter.Sum());
    EXPECT_EQ(3u, counter.Take(10));
    counter.last = 1ull << 40;
    EXPECT_EQ(0u, counter.Take(5));  // a counter of 64 bits
    EXPECT_EQ(5u, counter.Sum());
}

TEST(HostCounter, AWrapAt64BitsIsNoStartAnewAndTheSumWrapsToo)
{
    HostCounter counter;
    counter.last = 0xFFFFFFFFFFFFFFFEull;
    EXPECT_EQ(5u, counter.Take(3));
    EXPECT_EQ(3u, counter.Sum());
    counter.last = 0xFFFFFFFFull;
    counter.wrapped = 0xFFFFFFFF00000000ull;  // 2^32 - 1 wraps of a 32-bit counter
    EXPECT_EQ(1u, counter.Take(0));
    EXPECT_EQ(0u, counter.Sum());
}

TEST(HostCounter, TheHalfsAreTheBorderBetweenAWrapAndAStartAnew)
{
    HostCounter counter;
    counter.last = 0x80000000ull;  // falls by 2^31: no more than half
    EXPECT_EQ(0u, counter.Take(0));
    counter.last = 0x80000001ull;
    EXPECT_EQ(0x7FFFFFFFull, counter.Take(0));
    counter = HostCounter();
    counter.last = 0x100000000ull;  // beyond 32 bits it is none of 32
    EXPECT_EQ(0u, counter.Take(0));
    counter.last = 0x8000000000000000ull;
    EXPECT_EQ(0u, counter.Take(0));
    counter.last = 0x8000000000000001ull;
    EXPECT_EQ(0x7FFFFFFFFFFFFFFFull, counter.Take(0));
}

TEST(HostCounter, AStartAnewForgetsTheWrapsBefore)
{
    HostCounter counter;
    counter.last = 4294967295ull;
    counter.Take(100);
    EXPECT_EQ(4294967396ull, counter.Sum());
    EXPECT_EQ(0u, counter.Take(50));
    EXPECT_EQ(50u, counter.Sum());
}

TEST(HostCounter, AnUnmovedCounterAddsNothing)
{
    HostCounter counter;
    counter.last = 42;
    EXPECT_EQ(0u, counter.Take(42));
    EXPECT_EQ(42u, counter.Sum());
}

TEST_F(Host, AWrapOfTheWriteTimeIsNoGap)
{
    SetDisk("sda", 10, 100, 4294967295ull);
    HostSource source = Make();
    Next(source);
    SetDisk("sda", 14, 108, 19);  // 20 ms for 4 writes
    const VELCOR_RECORD filter = Next(source).feed.filter;
    EXPECT_EQ(4294967315000ull, filter.entry[0].write_us);  // (2^32 + 19) * 1000
    EXPECT_EQ(5000u, filter.entry[0].write_us_max);
}

TEST_F(Host, ADiskThatBeginsAnewBeginsItsSumsAnewWithoutALoad)
{
    SetDisk("sda", 1000, 100000, 5000);
    HostSource source = Make();
    Next(source);
    const unsigned long long handed = Next(source).feed.driver.entry[0].handed_bytes;
    SetDisk("sda", 3, 16, 1);
    const VELCOR_FEED feed = Next(source).feed;
    EXPECT_EQ(8192u, feed.filter.entry[0].write_bytes);
    EXPECT_EQ(3u, feed.filter.entry[0].writes);
    EXPECT_EQ(0u, feed.filter.entry[0].send_queue_peak);
    EXPECT_EQ(handed, feed.driver.entry[0].handed_bytes);  // what was handed over stays handed over
}

// 2^55 sectors are 2^64 bytes.
TEST_F(Host, BytesThatWrapAt64BitsGoOnWithTheRightLoad)
{
    SetDisk("sda", 10, (1ull << 55) - 4, 5);
    HostSource source = Make();
    EXPECT_EQ(0xFFFFFFFFFFFFF800ull, Next(source).feed.filter.entry[0].write_bytes);
    SetDisk("sda", 12, (1ull << 55) + 4, 6);
    const VELCOR_FEED feed = Next(source).feed;
    EXPECT_EQ(2048u, feed.filter.entry[0].write_bytes);
    EXPECT_EQ(4096u, feed.filter.entry[0].send_queue_peak);  // 8 sectors were written
}

// Another disk under the old name: 3,000,000,000 sectors would look like a wrap.
TEST_F(Host, ADiskThatWasAwayAndComesBackWithSmallerCountersHasNotWrapped)
{
    SetDisk("sda", 4000000000ull, 3000000000ull, 4200000000ull);
    HostSource source = Make();
    Next(source);
    disks.clear();
    Next(source);
    SetDisk("sda", 2, 16, 3);
    VELCOR_FEED feed = Next(source).feed;
    EXPECT_EQ(VELCOR_STATE_INITIALIZED, feed.driver.entry[0].state);
    EXPECT_EQ(8192u, feed.filter.entry[0].write_bytes);
    EXPECT_EQ(2u, feed.filter.entry[0].writes);
    EXPECT_EQ(3000u, feed.filter.entry[0].write_us);
    EXPECT_EQ(0u, feed.filter.entry[0].send_queue_peak);
    SetDisk("sda", 3, 24, 4);
    feed = Next(source).feed;
    EXPECT_EQ(4096u, feed.filter.entry[0].send_queue_peak);
}

TEST_F(Host, ADiskThatComesBackWithSmallerCountersForgetsTheWrapsOfBefore)
{
    SetDisk("sda", 1, 8, 4294967295ull);
    HostSource source = Make();
    Next(source);
    SetDisk("sda", 1, 8, 9);
    EXPECT_EQ(4294967305000ull, Next(source).feed.filter.entry[0].write_us);  // (2^32 + 9) ms
    disks.clear();
    Next(source);
    SetDisk("sda", 1, 8, 3);
    EXPECT_EQ(3000u, Next(source).feed.filter.entry[0].write_us);
}

// What a disk wrote while it was away from our sight is its load when it comes back: its sums stay the host's.
TEST_F(Host, ADiskThatComesBackWithLargerCountersGoesOnWithThem)
{
    SetDisk("sda", 1, 16, 1);
    HostSource source = Make();
    Next(source);
    disks.clear();
    Next(source);
    SetDisk("sda", 2, 32, 2);
    const VELCOR_FEED feed = Next(source).feed;
    EXPECT_EQ(16384u, feed.filter.entry[0].write_bytes);
    EXPECT_EQ(8192u, feed.filter.entry[0].send_queue_peak);
}
