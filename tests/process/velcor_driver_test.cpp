/*
 * The real driver, loaded through the service manager, and those who talk to it: the filter library and the feeder.
 * What their contracts say as well stands in tests/contract alone. Each case brings its own driver up and takes it
 * down, and bears what a case that was killed left behind.
 */
#include <gmock/gmock.h>

#include <windows.h>
#include <aclapi.h>
#include <algorithm>
#include <memory>
#include <stdlib.h>
#include <string.h>
#include <thread>
#include <vector>

#include "driver_device.h"
#include "files.h"
#include "support/driver.h"
#include "support/patience.h"
#include "support/test_home.h"
#include "tnwdiskfltr.h"
#include "velcor.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/* ---- The driver ---- */

static HANDLE OpenDevice(DWORD access = GENERIC_READ | GENERIC_WRITE)
{
    return CreateFileA(VELCOR_DEVICE_PATH, access, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, NULL);
}

static DWORD Control(HANDLE device, DWORD code, void* in, DWORD inSize, void* out, DWORD outSize,
                     DWORD* returned = nullptr)
{
    DWORD count = 0;
    DWORD error =
        DeviceIoControl(device, code, in, inSize, out, outSize, &count, NULL) ? ERROR_SUCCESS : GetLastError();
    if (returned != nullptr) {
        *returned = count;
    }
    return error;
}

/* A request as the collect thread sends it. */
static VELCOR_EXCHANGE Request()
{
    VELCOR_EXCHANGE exchange = {};
    exchange.length = VELCOR_RECORD_LENGTH;
    exchange.record.header = VELCOR_REQUEST_HEADER;
    return exchange;
}

class Driver : public testing::Test {
protected:
    void SetUp() override
    {
        installed = std::make_unique<InstalledDriver>();
        service = installed->service.get();
        if (startsDriver) {
            ASSERT_TRUE(service->Start()) << GetLastError();
            ASSERT_NO_FATAL_FAILURE(Reopen());
        }
    }

    void TearDown() override
    {
        Close();
        installed.reset();
    }

    void Close()
    {
        if (device != INVALID_HANDLE_VALUE) {
            CloseHandle(device);
            device = INVALID_HANDLE_VALUE;
        }
    }

    void Reopen()
    {
        Close();
        device = OpenDevice();
        ASSERT_NE(INVALID_HANDLE_VALUE, device) << GetLastError();
    }

    /* One request, by the handle of the case. */
    DWORD Exchange(DWORD code, VELCOR_EXCHANGE& exchange)
    {
        return Control(device, code, &exchange, sizeof(exchange), &exchange, sizeof(exchange));
    }

    VELCOR_EXCHANGE Get(DWORD code = VELCOR_GET_PERFORMANCE)
    {
        VELCOR_EXCHANGE exchange = Request();
        EXPECT_EQ(0u, Exchange(code, exchange));
        return exchange;
    }

    VELCOR_ENTRY DriversDisk(unsigned disk)
    {
        const VELCOR_EXCHANGE reply = Get();
        EXPECT_EQ(0u, reply.status);
        return reply.record.entry[disk - 1];
    }

    VELCOR_ENTRY FiltersDisk(unsigned disk)
    {
        const VELCOR_EXCHANGE reply = Get(VELCOR_PRIVATE_GET_FILTER);
        EXPECT_EQ(0u, reply.status);
        return reply.record.entry[disk - 1];
    }

    DWORD FeedIt(VELCOR_FEED& fed)
    {
        return Control(device, VELCOR_PRIVATE_FEED, &fed, sizeof(fed), NULL, 0);
    }

    std::unique_ptr<InstalledDriver> installed;
    Service*                         service = nullptr;  // the driver's
    HANDLE                           device = INVALID_HANDLE_VALUE;
    VELCOR_FEED                      feed = {};  // what the cases change and feed
    bool                             startsDriver = true;
};

class DriverNotStarted : public Driver {
protected:
    DriverNotStarted()
    {
        startsDriver = false;
    }
};

/* Both records with a different number at every place. */
static void FillTelling(VELCOR_FEED& feed)
{
    unsigned long long next = 1;
    for (VELCOR_RECORD* record : { &feed.driver, &feed.filter }) {
        record->header = VELCOR_REQUEST_HEADER;
        for (VELCOR_ENTRY& entry : record->entry) {
            for (unsigned offset = 8; offset < 160; offset += 8) {
                memcpy(reinterpret_cast<unsigned char*>(&entry) + offset, &next, sizeof(next));
                next++;
            }
            entry.mode = static_cast<unsigned>(next % 2);
            entry.state = VELCOR_STATE_INITIALIZED;
        }
    }
}

TEST_F(Driver, StartsWithoutDisks)
{
    const VELCOR_EXCHANGE reply = Get();
    const VELCOR_EXCHANGE empty = Request();
    EXPECT_EQ(0, memcmp(&empty, &reply, sizeof(reply)));
}

TEST_F(Driver, HandsOverBothRecordsAsTheyWereFed)
{
    FillTelling(feed);
    ASSERT_EQ(0u, FeedIt(feed));
    const VELCOR_EXCHANGE driver = Get();
    const VELCOR_EXCHANGE filter = Get(VELCOR_PRIVATE_GET_FILTER);
    EXPECT_EQ(0u, driver.status);
    EXPECT_EQ(VELCOR_RECORD_LENGTH, driver.length);
    EXPECT_EQ(0, memcmp(&feed.driver, &driver.record, sizeof(driver.record)));
    EXPECT_EQ(0u, filter.status);
    EXPECT_EQ(0, memcmp(&feed.filter, &filter.record, sizeof(filter.record)));
}

TEST_F(Driver, TheFiltersRequestIsRefusedWithAWin32Number)
{
    VELCOR_EXCHANGE exchange = Request();
    exchange.record.header = 1;
    EXPECT_EQ(0u, Exchange(VELCOR_PRIVATE_GET_FILTER, exchange));
    EXPECT_EQ(static_cast<unsigned>(ERROR_INVALID_PARAMETER), exchange.status);
    exchange = Request();
    exchange.length = 1;
    EXPECT_EQ(0u, Exchange(VELCOR_PRIVATE_GET_FILTER, exchange));
    EXPECT_EQ(static_cast<unsigned>(ERROR_INVALID_PARAMETER), exchange.status);
}

TEST_F(Driver, ARefusedRequestLeavesThePeaks)
{
    FillTelling(feed);
    ASSERT_EQ(0u, FeedIt(feed));
    for (DWORD code : { DWORD(VELCOR_GET_PERFORMANCE), DWORD(VELCOR_PRIVATE_GET_FILTER) }) {
        VELCOR_EXCHANGE exchange = Request();
        exchange.record.header = 0;
        EXPECT_EQ(0u, Exchange(code, exchange));
        exchange = Request();
        exchange.length = 0;
        EXPECT_EQ(0u, Exchange(code, exchange));
    }
    EXPECT_EQ(feed.driver.entry[2].history_peak, DriversDisk(3).history_peak);
    EXPECT_EQ(feed.filter.entry[2].send_queue_peak, FiltersDisk(3).send_queue_peak);
}

/* What a control code needs of the two buffers, bytes. */
struct Need {
    DWORD code;
    DWORD in;
    DWORD out;
};
static const Need NEEDS[] = {
    { VELCOR_GET_PERFORMANCE, 0x4010, 0x4010 },
    { VELCOR_PRIVATE_GET_FILTER, 0x4010, 0x4010 },
    { VELCOR_PRIVATE_FEED, 0x8020, 0 },
    { VELCOR_PRIVATE_GET_FED, 0, 8 },
};

/* Every length from 0 to 8 beyond need, all of them in the long form; otherwise each 61st, and those around 0, need and
 * the record's own length. */
static std::vector<DWORD> LengthsTo(DWORD need)
{
    const bool         all = getenv("DKPF_TEST_LONG") != nullptr;
    std::vector<DWORD> lengths;
    for (DWORD length = 0; length <= need + 8; length++) {
        const bool telling = length <= 24 || (length >= 0x4000 && length <= 0x4020) || length + 8 >= need;
        if (all || telling || length % 61 == 0) {
            lengths.push_back(length);
        }
    }
    return lengths;
}

TEST_F(Driver, EveryBufferLengthHasItsAnswerOnEitherSide)
{
    static const DWORD         LARGEST = 0x8020 + 8;
    const VELCOR_EXCHANGE      request = Request();
    std::vector<unsigned char> inBuffer(LARGEST + 1);
    std::vector<unsigned char> outBuffer(LARGEST + 17);
    unsigned char*             in = inBuffer.data() + 1;  // at odd addresses, as a careless caller's may be
    unsigned char*             out = outBuffer.data() + 1;

    const auto ask = [&](const Need& need, DWORD inLength, DWORD outLength) {
        const bool whole = inLength >= need.in && outLength >= need.out;
        DWORD      returned = 99;
        memset(out, 0xEE, LARGEST + 16);
        const DWORD error = Control(device, need.code, inLength == 0 ? NULL : in, inLength, outLength == 0 ? NULL : out,
                                    outLength, &returned);
        ASSERT_EQ(error, whole ? 0u : DWORD{ ERROR_INSUFFICIENT_BUFFER })
            << std::hex << need.code << " in " << inLength << " out " << outLength;
        ASSERT_EQ(returned, whole ? need.out : 0u);
        // Not a byte behind what was answered.
        ASSERT_EQ(std::count(out + returned, out + LARGEST + 16, 0xEE), static_cast<long>(LARGEST + 16 - returned))
            << std::hex << need.code << " in " << inLength << " out " << outLength;
    };
    for (const Need& need : NEEDS) {
        if (need.in == sizeof(request)) {
            memcpy(in, &request, sizeof(request));
        } else {
            memset(in, 0, LARGEST);  // an empty feed
        }
        for (const DWORD length : LengthsTo(need.in)) {
            ASSERT_NO_FATAL_FAILURE(ask(need, length, need.out));
        }
        for (const DWORD length : LengthsTo(need.out)) {
            ASSERT_NO_FATAL_FAILURE(ask(need, need.in, length));
        }
    }
    EXPECT_EQ(0u, Get().status);
}

TEST_F(Driver, ALengthWithoutABufferReachesNobody)
{
    for (const Need& need : NEEDS) {
        if (need.in != 0) {
            EXPECT_NE(0u, Control(device, need.code, NULL, need.in, NULL, 0)) << need.code;
        }
    }
    EXPECT_EQ(0u, Get().status);
}

TEST_F(Driver, NoBuffersAtAllAreRefused)
{
    for (const Need& need : NEEDS) {
        EXPECT_EQ(static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER), Control(device, need.code, NULL, 0, NULL, 0));
    }
    EXPECT_EQ(0u, Get().status);
}

TEST_F(Driver, UnknownCodesAreNoBugCheck)
{
    std::vector<unsigned char> buffer(0x8020);
    // Neighbours of the known functions, other devices, and the known functions with other ways to hand buffers over.
    for (DWORD code : { 0ul, 0x9F8F217Cul, 0x9F8F2190ul, 0x9F8F2180ul | 0xC000ul, 0x9F8E2180ul, 0xFFFFFFFCul,
                        0x9F8F2181ul, 0x9F8F2182ul, 0x9F8F2183ul, 0x9F8FA185ul, 0x9F8FA187ul, 0x9F8F2184ul }) {
        for (DWORD length : { 0ul, 1ul, 8ul, 0x4010ul, 0x8020ul }) {
            const DWORD error = Control(device, code, length == 0 ? NULL : buffer.data(), length,
                                        length == 0 ? NULL : buffer.data(), length);
            EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_FUNCTION), error) << std::hex << code << " length " << length;
        }
    }
    EXPECT_EQ(0u, Get().status);
}

TEST_F(Driver, TellsWhenItWasFedAndResetsNothingByThat)
{
    VELCOR_FED fed = { 77, 77 };
    EXPECT_EQ(0u, Control(device, VELCOR_PRIVATE_GET_FED, NULL, 0, &fed, sizeof(fed)));
    EXPECT_EQ(0u, fed.feeds);
    FillTelling(feed);
    feed.tick = 0xFFFFFFF0;
    ASSERT_EQ(0u, FeedIt(feed));
    ASSERT_EQ(0u, FeedIt(feed));
    HANDLE reader = OpenDevice(GENERIC_READ);
    EXPECT_EQ(0u, Control(reader, VELCOR_PRIVATE_GET_FED, NULL, 0, &fed, sizeof(fed)));
    EXPECT_EQ(2u, fed.feeds);
    EXPECT_EQ(0xFFFFFFF0u, fed.tick);
    CloseHandle(reader);
    EXPECT_EQ(feed.driver.entry[0].history_peak, DriversDisk(1).history_peak);
    EXPECT_EQ(feed.filter.entry[0].send_queue_peak, FiltersDisk(1).send_queue_peak);
}

TEST_F(Driver, SumsThatWrapAt64BitsPassAsTheyAre)
{
    feed.driver.entry[0].state = VELCOR_STATE_INITIALIZED;
    for (unsigned long long sum : { 0xFFFFFFFFFFFFFFFFull, 4ull, 0xFFFFFFFFull, 0x100000000ull }) {
        feed.driver.entry[0].write_bytes = sum;
        ASSERT_EQ(0u, FeedIt(feed));
        EXPECT_EQ(sum, DriversDisk(1).write_bytes);
    }
}

TEST_F(Driver, FeedingNeedsAHandleThatMayWrite)
{
    HANDLE          reader = OpenDevice(GENERIC_READ);
    VELCOR_EXCHANGE exchange = Request();
    ASSERT_NE(INVALID_HANDLE_VALUE, reader);
    FillTelling(feed);
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED),
              Control(reader, VELCOR_PRIVATE_FEED, &feed, sizeof(feed), NULL, 0));
    EXPECT_EQ(0u, Control(reader, VELCOR_GET_PERFORMANCE, &exchange, sizeof(exchange), &exchange, sizeof(exchange)));
    EXPECT_EQ(0u, exchange.record.entry[0].state);  // nothing was fed
    CloseHandle(reader);
}

/* ---- Peaks ---- */

class Peaks : public Driver {
protected:
    VELCOR_ENTRY& driver = feed.driver.entry[3];
    VELCOR_ENTRY& filter = feed.filter.entry[3];

    void SetUp() override
    {
        Driver::SetUp();
        driver.state = filter.state = VELCOR_STATE_INITIALIZED;
    }
};

TEST_F(Peaks, ARequestPutsThemToThePresentValueAndLongestTimesToZero)
{
    FillTelling(feed);
    ASSERT_EQ(0u, FeedIt(feed));
    Get();
    Get(VELCOR_PRIVATE_GET_FILTER);
    for (VELCOR_RECORD* record : { &feed.driver, &feed.filter }) {
        for (VELCOR_ENTRY& entry : record->entry) {
            entry.write_us_max = 0;
            entry.send_queue_peak = entry.send_queue;
            entry.history_peak = entry.history;
            entry.request_queue_peak = entry.request_queue;
            entry.memory_peak = entry.memory;
            entry.unsynced_peak = entry.unsynced;
            entry.transfer_us_max = 0;
        }
    }
    const VELCOR_EXCHANGE driverReply = Get();
    const VELCOR_EXCHANGE filterReply = Get(VELCOR_PRIVATE_GET_FILTER);
    EXPECT_EQ(0, memcmp(&feed.driver, &driverReply.record, sizeof(feed.driver)));
    EXPECT_EQ(0, memcmp(&feed.filter, &filterReply.record, sizeof(feed.filter)));
}

TEST_F(Peaks, EachRequestResetsItsOwnRecordAlone)
{
    driver.history_peak = 5;
    filter.send_queue_peak = 6;
    ASSERT_EQ(0u, FeedIt(feed));
    Get();
    EXPECT_EQ(6u, FiltersDisk(4).send_queue_peak);
    ASSERT_EQ(0u, FeedIt(feed));
    FiltersDisk(4);
    EXPECT_EQ(5u, DriversDisk(4).history_peak);
}

/* In either mode: which of the two records holds the queues. */
class PeaksInMode : public Peaks, public testing::WithParamInterface<unsigned> {
protected:
    /* The record's entry that holds the queues from the next feed on. */
    VELCOR_ENTRY& HeldBy(unsigned mode)
    {
        driver.mode = filter.mode = mode;
        return mode == VELCOR_MODE_SYNC ? driver : filter;
    }
    VELCOR_ENTRY Held(unsigned mode)
    {
        return mode == VELCOR_MODE_SYNC ? DriversDisk(4) : FiltersDisk(4);
    }
};

/* A mode that is none counts as asynchronous. */
INSTANTIATE_TEST_SUITE_P(Mode, PeaksInMode, testing::Values(VELCOR_MODE_ASYNC, VELCOR_MODE_SYNC, 7u),
                         [](const auto& mode) {
                             return mode.param == VELCOR_MODE_SYNC ? "Sync" : mode.param == 7 ? "None" : "Async";
                         });

TEST_P(PeaksInMode, TheLargestOfAllFeedsSinceTheLastRequestStands)
{
    VELCOR_ENTRY& holder = HeldBy(GetParam());
    for (unsigned long long value : { 3ull, 9ull, 4ull }) {
        driver.history_peak = value;
        driver.memory_peak = 2 * value;
        driver.unsynced_peak = 3 * value;
        driver.transfer_us_max = 10 * value;
        holder.write_us_max = 100 * value;
        holder.send_queue_peak = 200 * value;
        holder.request_queue_peak = 1000 * value;
        holder.request_queue = value;
        ASSERT_EQ(0u, FeedIt(feed));
    }
    const VELCOR_ENTRY fromDriver = DriversDisk(4);
    const VELCOR_ENTRY fromHolder = GetParam() == VELCOR_MODE_SYNC ? fromDriver : FiltersDisk(4);
    EXPECT_EQ(9u, fromDriver.history_peak);
    EXPECT_EQ(18u, fromDriver.memory_peak);
    EXPECT_EQ(27u, fromDriver.unsynced_peak);
    EXPECT_EQ(90u, fromDriver.transfer_us_max);
    EXPECT_EQ(900u, fromHolder.write_us_max);
    EXPECT_EQ(1800u, fromHolder.send_queue_peak);
    EXPECT_EQ(9000u, fromHolder.request_queue_peak);
    EXPECT_EQ(4u, fromHolder.request_queue);  // a gauge shows the last
}

TEST_P(PeaksInMode, FollowTheQueuesThroughAChangeOfMode)
{
    const unsigned later = GetParam() == VELCOR_MODE_SYNC ? VELCOR_MODE_ASYNC : VELCOR_MODE_SYNC;
    VELCOR_ENTRY&  before = HeldBy(GetParam());
    before.write_us_max = 500;
    before.send_queue_peak = 70;
    before.request_queue_peak = 8;
    ASSERT_EQ(0u, FeedIt(feed));
    VELCOR_ENTRY& now = HeldBy(later);
    before.write_us_max = before.send_queue_peak = before.request_queue_peak = 0;  // it stands still, and counts none
    now.write_us_max = 300;
    now.send_queue_peak = 60;
    now.request_queue_peak = 9;
    ASSERT_EQ(0u, FeedIt(feed));
    const VELCOR_ENTRY moved = Held(later);
    const VELCOR_ENTRY left = Held(GetParam());
    EXPECT_EQ(500u, moved.write_us_max);
    EXPECT_EQ(70u, moved.send_queue_peak);
    EXPECT_EQ(9u, moved.request_queue_peak);
    EXPECT_EQ(0u, left.write_us_max);  // readers add both: 500 shows once
    EXPECT_EQ(0u, left.send_queue_peak);
    EXPECT_EQ(0u, left.request_queue_peak);
}

TEST_P(PeaksInMode, ThoseOfTheDriverAloneStayThroughAChangeOfMode)
{
    HeldBy(GetParam());
    driver.history_peak = 5;
    driver.memory_peak = 6;
    driver.unsynced_peak = 7;
    driver.transfer_us_max = 8;
    ASSERT_EQ(0u, FeedIt(feed));
    HeldBy(GetParam() == VELCOR_MODE_SYNC ? VELCOR_MODE_ASYNC : VELCOR_MODE_SYNC);
    driver.history_peak = driver.memory_peak = driver.unsynced_peak = driver.transfer_us_max = 1;
    ASSERT_EQ(0u, FeedIt(feed));
    const VELCOR_ENTRY fromDriver = DriversDisk(4);
    const VELCOR_ENTRY fromFilter = FiltersDisk(4);
    EXPECT_EQ(5u, fromDriver.history_peak);
    EXPECT_EQ(6u, fromDriver.memory_peak);
    EXPECT_EQ(7u, fromDriver.unsynced_peak);
    EXPECT_EQ(8u, fromDriver.transfer_us_max);
    EXPECT_EQ(0u, fromFilter.history_peak);
    EXPECT_EQ(0u, fromFilter.transfer_us_max);
}

TEST_F(Peaks, EachDiskKeepsItsOwn)
{
    for (unsigned slot = 0; slot < VELCOR_DISK_MAX; slot++) {
        feed.driver.entry[slot].state = feed.filter.entry[slot].state = VELCOR_STATE_INITIALIZED;
        feed.driver.entry[slot].history_peak = 100 + slot;
    }
    ASSERT_EQ(0u, FeedIt(feed));
    for (VELCOR_ENTRY& entry : feed.driver.entry) {
        entry.history_peak = 1;
    }
    ASSERT_EQ(0u, FeedIt(feed));
    const VELCOR_EXCHANGE reply = Get();
    for (unsigned slot = 0; slot < VELCOR_DISK_MAX; slot++) {
        EXPECT_EQ(100 + slot, reply.record.entry[slot].history_peak);
    }
}

TEST_F(Peaks, ADiskThatGoesKeepsNone)
{
    driver.history_peak = 99;
    ASSERT_EQ(0u, FeedIt(feed));
    driver.state = filter.state = 0;
    driver.history_peak = 1;
    ASSERT_EQ(0u, FeedIt(feed));
    EXPECT_EQ(1u, DriversDisk(4).history_peak);
}

TEST_F(Peaks, ADiskThatComesBackBeginsWithoutThoseOfBefore)
{
    driver.state = filter.state = 0;
    driver.history_peak = 99;
    ASSERT_EQ(0u, FeedIt(feed));
    driver.state = filter.state = VELCOR_STATE_INITIALIZED;
    driver.history_peak = 2;
    ASSERT_EQ(0u, FeedIt(feed));
    EXPECT_EQ(2u, DriversDisk(4).history_peak);
}

/* ---- Scripted failures ---- */

TEST_F(Driver, AScriptedStatusWordHandsNothingOverAndLosesNoPeak)
{
    FillTelling(feed);
    feed.driver_status = 0xC0000001;
    ASSERT_EQ(0u, FeedIt(feed));
    VELCOR_EXCHANGE expected = Request();
    expected.status = 0xC0000001;
    const VELCOR_EXCHANGE reply = Get();
    EXPECT_EQ(0, memcmp(&expected, &reply, sizeof(reply)));
    EXPECT_EQ(0u, Get(VELCOR_PRIVATE_GET_FILTER).status);  // the filter has its own
    const unsigned long long peak = feed.driver.entry[0].history_peak;
    feed.driver_status = 0;
    feed.driver.entry[0].history_peak = 0;
    ASSERT_EQ(0u, FeedIt(feed));
    EXPECT_EQ(peak, DriversDisk(1).history_peak);
}

TEST_F(Driver, EachRequestHasItsOwnScriptedFailures)
{
    VELCOR_EXCHANGE exchange = Request();
    feed.refuse = 1;
    ASSERT_EQ(0u, FeedIt(feed));
    EXPECT_EQ(static_cast<DWORD>(ERROR_NOT_READY), Exchange(VELCOR_GET_PERFORMANCE, exchange));
    EXPECT_EQ(0u, Get(VELCOR_PRIVATE_GET_FILTER).status);
    feed.refuse = 0;
    feed.filter_error = 1117;
    ASSERT_EQ(0u, FeedIt(feed));
    EXPECT_EQ(0u, Get().status);
    EXPECT_EQ(1117u, Get(VELCOR_PRIVATE_GET_FILTER).status);
}

/* ---- Load and life ---- */

TEST_F(Driver, CallersAtOnceNeverSeeHalfAFeed)
{
    std::vector<std::thread> readers;
    std::vector<int>         torn(3, 0);
    for (int& each : torn) {
        readers.emplace_back([&each] {
            HANDLE own = OpenDevice(GENERIC_READ);
            for (int i = 0; i < 50; i++) {
                VELCOR_EXCHANGE exchange = Request();
                Control(own, VELCOR_GET_PERFORMANCE, &exchange, sizeof(exchange), &exchange, sizeof(exchange));
                for (const VELCOR_ENTRY& entry : exchange.record.entry) {
                    each += entry.writes != exchange.record.entry[0].writes;
                }
            }
            CloseHandle(own);
        });
    }
    for (unsigned long long i = 1; i <= 50; i++) {
        for (VELCOR_ENTRY& entry : feed.driver.entry) {
            entry.writes = i;
        }
        EXPECT_EQ(0u, FeedIt(feed));
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(std::vector<int>(3, 0), torn);
    EXPECT_EQ(50u, DriversDisk(64).writes);
}

TEST_F(Driver, StartsAndStopsAgainAndAgain)
{
    for (int i = 0; i < 3; i++) {
        Close();
        ASSERT_TRUE(service->Stop());
        EXPECT_EQ(INVALID_HANDLE_VALUE, OpenDevice());
        ASSERT_TRUE(service->Start());
        ASSERT_NO_FATAL_FAILURE(Reopen());
        EXPECT_EQ(0u, Get().status);
    }
}

/* ---- The agent's handle ---- */

TEST_F(Driver, TheAgentsHandleLivesThroughFailuresTakesNoPeakAndDiesWithTheDriver)
{
    struct {
        unsigned VELCOR_FEED::*failure;
        unsigned               value;
    } const cases[] = { { &VELCOR_FEED::refuse, 1 },
                        { &VELCOR_FEED::driver_status, 5 },
                        { &VELCOR_FEED::filter_error, ERROR_IO_DEVICE } };
    dkpf::ControlDevice agents;
    EXPECT_FALSE(agents.Lives());  // none is held
    ASSERT_TRUE(agents.Hold());
    EXPECT_TRUE(agents.Lives());

    feed.driver.entry[0].state = feed.filter.entry[0].state = VELCOR_STATE_INITIALIZED;
    feed.driver.entry[0].history_peak = 5;
    feed.filter.entry[0].send_queue_peak = 6;
    ASSERT_EQ(0u, FeedIt(feed));
    EXPECT_TRUE(agents.Lives());
    feed.driver.entry[0].history_peak = feed.filter.entry[0].send_queue_peak = 0;
    for (const auto& tested : cases) {
        feed.*tested.failure = tested.value;
        ASSERT_EQ(0u, FeedIt(feed));
        EXPECT_TRUE(agents.Lives()) << tested.value;
        feed.*tested.failure = 0;
    }
    ASSERT_EQ(0u, FeedIt(feed));
    EXPECT_TRUE(agents.Lives());
    EXPECT_EQ(5u, DriversDisk(1).history_peak);
    EXPECT_EQ(6u, FiltersDisk(1).send_queue_peak);

    ASSERT_TRUE(service->Stop());
    EXPECT_FALSE(agents.Lives());
    EXPECT_FALSE(agents.Hold());
    ASSERT_TRUE(service->Start());
    EXPECT_FALSE(agents.Lives());  // opened on the driver of before
    EXPECT_TRUE(agents.Hold());
    EXPECT_TRUE(agents.Lives());
}

/* ---- The filter library ---- */

typedef DWORD (*GET_MIRROR_PERFORMANCE)(void*);

/* The library, loaded anew for each case and bound by ordinal, as the product binds it. */
class Library {
public:
    Library()
        : module(LoadLibraryA(FILTER_LIBRARY)), get(reinterpret_cast<GET_MIRROR_PERFORMANCE>(reinterpret_cast<void*>(
                                                    GetProcAddress(module, MAKEINTRESOURCEA(5)))))
    {
    }
    ~Library()
    {
        FreeLibrary(module);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    HMODULE                module;
    GET_MIRROR_PERFORMANCE get;
};

/* 0x4010 bytes with a known filling behind the header word. */
struct MirrorBuffer {
    unsigned long long header = VELCOR_REQUEST_HEADER;
    unsigned char      rest[0x4008];

    MirrorBuffer()
    {
        memset(rest, 0xA5, sizeof(rest));
    }
};
static_assert(sizeof(MirrorBuffer) == 0x4010, "what callers hand over");

TEST_F(DriverNotStarted, TheFilterLibraryExportsOneOrdinalAndNoName)
{
    Library library;
    EXPECT_EQ(nullptr, reinterpret_cast<void*>(GetProcAddress(library.module, "TnwDkfltrGetMirrorPerformance")));
    EXPECT_EQ(nullptr, reinterpret_cast<void*>(GetProcAddress(library.module, MAKEINTRESOURCEA(1))));
    EXPECT_EQ(nullptr, reinterpret_cast<void*>(GetProcAddress(library.module, MAKEINTRESOURCEA(6))));
}

TEST_F(DriverNotStarted, TheFilterLibraryFindsADriverThatComesLater)
{
    Library            library;
    MirrorBuffer       buffer;
    const MirrorBuffer before;
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), library.get(&buffer));
    EXPECT_EQ(0, memcmp(&before, &buffer, sizeof(buffer)));
    ASSERT_TRUE(service->Start());
    EXPECT_EQ(0u, library.get(&buffer));
}

TEST_F(Driver, TheFilterLibraryServesThreadsOneAtATime)
{
    Library                  library;
    std::vector<std::thread> threads;
    std::vector<DWORD>       failures(4, 0);
    for (DWORD& each : failures) {
        threads.emplace_back([&each, &library] {
            for (int i = 0; i < 50; i++) {
                MirrorBuffer buffer;
                each += library.get(&buffer) != 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::vector<DWORD>(4, 0), failures);
}

/* ---- The feeder ---- */

/* velcorfeed in a folder of its own, so that its HOME is the case's. */
class Feeder {
public:
    Feeder()
    {
        char folder[MAX_PATH];
        GetTempPathA(sizeof(folder), folder);
        home =
            std::string(folder) + "velcorfeed" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++made);
        Clean();
        for (const char* part : { "", "\\bin", "\\etc", "\\log" }) {
            CreateDirectoryA((home + part).c_str(), NULL);
        }
        CopyFileA(FEEDER, Exe().c_str(), FALSE);
    }

    ~Feeder()
    {
        Kill();
        Clean();
    }

    std::string Exe() const
    {
        return home + "\\bin\\velcorfeed.exe";
    }

    void Start(const std::string& arguments)
    {
        SECURITY_ATTRIBUTES inherit = { sizeof(inherit), NULL, TRUE };
        STARTUPINFOA        startup = {};
        std::string         command = "\"" + Exe() + "\" " + arguments;
        HANDLE out = CreateFileA((home + "\\out").c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                                 CREATE_ALWAYS, 0, NULL);
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = out;
        startup.hStdError = out;
        ASSERT_TRUE(Created([&] {
            return CreateProcessA(NULL, &command[0], NULL, NULL, TRUE, 0, NULL, NULL, &startup, &process);
        })) << GetLastError();
        CloseHandle(out);
    }

    /* The exit code; 999 if it does not end. */
    DWORD End()
    {
        DWORD code = 999;
        if (WaitForSingleObject(process.hProcess, PATIENCE_MS) == WAIT_OBJECT_0) {
            GetExitCodeProcess(process.hProcess, &code);
        }
        return code;
    }

    DWORD Run(const std::string& arguments)
    {
        Start(arguments);
        return End();
    }

    void Kill()
    {
        if (process.hProcess != NULL) {
            TerminateProcess(process.hProcess, 77);
            WaitForSingleObject(process.hProcess, PATIENCE_MS);
            CloseHandle(process.hProcess);
            CloseHandle(process.hThread);
            process = {};
        }
    }

    std::string File(const std::string& name) const
    {
        std::string text;
        return ReadWholeFile(home + "\\" + name, text) == 0 ? text : std::string();
    }

    std::string Put(const std::string& name, const std::string& text) const
    {
        EXPECT_EQ(0u, ReplaceWholeFile(home + "\\" + name, text));
        return "\"" + home + "\\" + name + "\"";
    }

    std::string home;

private:
    void Clean()
    {
        for (const char* folder : { "\\bin", "\\etc", "\\log", "" }) {
            std::vector<std::string> names;
            ListFolder(home + folder, names);
            for (const std::string& name : names) {
                DeleteFileA((home + folder + "\\" + name).c_str());
            }
            RemoveDirectoryA((home + folder).c_str());
        }
    }

    static int          made;  // each of a case has its own folder
    PROCESS_INFORMATION process = {};
};

int Feeder::made = 0;

static const char ENDLESS[] = "disk 7 on writes 1 bytes 512\nrepeat forever\n step\nend\n";

TEST_F(Driver, TheFeederPassesTheHostsNumbersAndItsJournalSaysSo)
{
    Feeder            feeder;
    const std::string stats =
        feeder.Put("stats", "254 0 vda 1 2 3 4 5 6 70 8 0 0 0\n254 1 vda1 1 2 3 4 5 6 7 8 0 0 0\n");
    EXPECT_EQ(0u, feeder.Run("--host --once --diskstats " + stats + " --sysblock nowhere")) << feeder.File("out");
    const VELCOR_ENTRY filter = FiltersDisk(1);
    EXPECT_EQ(1u, DriversDisk(1).state);
    EXPECT_EQ(0u, DriversDisk(2).state);
    EXPECT_EQ(35840u, filter.write_bytes);  // 70 * 512
    EXPECT_EQ(5u, filter.writes);
    EXPECT_EQ(8000u, filter.write_us);
    const auto lines = Lines(feeder.File("log\\velcorfeed.journal"));
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("time,disk,host,write_bytes,writes,write_us", lines[0]);
    EXPECT_THAT(lines[1], EndsWith(",1,vda,35840,5,8000"));
    EXPECT_THAT(feeder.File("etc\\disks.map"), EndsWith("\r\n1 vda\r\n"));
}

TEST_F(Driver, TheFeederTakesFilesAndModeWhereItIsToldTo)
{
    Feeder            feeder;
    const std::string stats =
        feeder.Put("stats", "254 0 vda 1 2 3 4 5 6 70 8 0 0 0\n254 16 vdb 1 2 3 4 9 6 7 8 0 0 0\n");
    const std::string map = feeder.Put("own.map", "5 vdb\n");
    EXPECT_EQ(0u, feeder.Run("--host --once --mode sync --sysblock nowhere --diskstats " + stats + " --map " + map +
                             " --journal \"" + feeder.home + "\\own.journal\""))
        << feeder.File("out");
    EXPECT_EQ(35840u, DriversDisk(1).write_bytes);  // the driver's record counts what a synchronous disk writes
    EXPECT_EQ(9u, DriversDisk(5).writes);
    EXPECT_EQ(0u, FiltersDisk(1).write_bytes);
    EXPECT_THAT(feeder.File("own.map"), EndsWith("\r\n1 vda\r\n5 vdb\r\n"));
    EXPECT_EQ(3u, Lines(feeder.File("own.journal")).size());
    EXPECT_EQ("", feeder.File("etc\\disks.map"));
    EXPECT_EQ("", feeder.File("log\\velcorfeed.journal"));
}

TEST_F(Driver, TheSeedDecidesOnTheNumbersOfAScript)
{
    Feeder                   feeder;
    const std::string        script = feeder.Put("s.scn", "disk 1 on writes 1~1000000 bytes 1\nstep\n");
    std::vector<std::string> lines;
    for (const char* seed : { "--seed 1", "", "--seed 2" }) {
        EXPECT_EQ(0u, feeder.Run("--once " + std::string(seed) + " --scenario " + script)) << feeder.File("out");
        const auto all = Lines(feeder.File("log\\velcorfeed.journal"));
        lines.push_back(all.back().substr(all.back().find(',')));
    }
    EXPECT_EQ(lines[0], lines[1]);  // 1 where none is given
    EXPECT_NE(lines[0], lines[2]);
}

TEST_F(Driver, TheFeederReadsThisHostsOwnStatistics)
{
    Feeder feeder;
    EXPECT_EQ(0u, feeder.Run("--host --once")) << feeder.File("out");
    EXPECT_EQ(1u, DriversDisk(1).state) << feeder.File("out");  // a disk of the host, or the built-in scenario's first
}

TEST_F(Driver, AHostWithoutDisksPlaysTheBuiltInScenario)
{
    Feeder            feeder;
    const std::string stats = feeder.Put("stats", "7 0 loop0 0 0 0 0 0 0 0 0 0 0 0\n");
    EXPECT_EQ(0u, feeder.Run("--host --once --diskstats " + stats));
    EXPECT_THAT(feeder.File("out"), HasSubstr("this host shows no whole disk; a built-in scenario is played instead"));
    EXPECT_EQ(1u, DriversDisk(3).state);
    EXPECT_EQ("", feeder.File("etc\\disks.map"));
}

TEST_F(Driver, AScenarioPlaysToItsEnd)
{
    Feeder            feeder;
    const std::string script = feeder.Put("s.scn", "disk 2 on writes 3 bytes 100\nstep 4\ndriver status 9\nstep\n");
    EXPECT_EQ(0u, feeder.Run("--speed 0 --scenario " + script)) << feeder.File("out");
    EXPECT_EQ(9u, Get().status);
    EXPECT_EQ(1500u, FiltersDisk(2).write_bytes);
    EXPECT_EQ(6u, Lines(feeder.File("log\\velcorfeed.journal")).size());  // the header and five steps
}

TEST_F(Driver, ASecondFeederIsRefusedInWords)
{
    Feeder            feeder;
    const std::string script = feeder.Put("s.scn", ENDLESS);
    feeder.Start("--speed 20 --scenario " + script);
    ASSERT_TRUE(Eventually([this] { return DriversDisk(7).state == 1; }));
    Feeder second;
    EXPECT_EQ(4u, second.Run("--host --once"));
    EXPECT_THAT(second.File("out"), HasSubstr("another velcorfeed feeds the driver of this machine"));
    Service asService("velcorfeed", SERVICE_WIN32_OWN_PROCESS, "\"" + second.Exe() + "\" --service --host");
    asService.Launch();
    EXPECT_TRUE(Eventually([&] {
        const SERVICE_STATUS status = asService.Status();
        return status.dwCurrentState == SERVICE_STOPPED && status.dwServiceSpecificExitCode == 4;
    }));
    EXPECT_THAT(second.File("log\\velcorfeed.log"),
                HasSubstr("another velcorfeed feeds the driver of this machine; stop it first."));
    EXPECT_EQ(1u, DriversDisk(7).state);  // the first one's
}

TEST_F(Driver, AfterAKilledFeederTheNextOneMayFeed)
{
    Feeder            feeder;
    const std::string script = feeder.Put("s.scn", ENDLESS);
    feeder.Start("--speed 20 --scenario " + script);
    ASSERT_TRUE(Eventually([this] { return DriversDisk(7).state == 1; }));
    // Who looks at the mutex keeps it alive: the next feeder takes it over from the one that is gone.
    const HANDLE looked = OpenMutexA(SYNCHRONIZE, FALSE, "Global\\TNW_VELCOR_FEEDER");
    ASSERT_NE(nullptr, looked);
    feeder.Kill();
    EXPECT_NE(0u, FiltersDisk(7).write_bytes);  // what was fed last stands
    EXPECT_EQ(0u, feeder.Run("--once --scenario " + script)) << feeder.File("out");
    EXPECT_EQ(512u, FiltersDisk(7).write_bytes);
    CloseHandle(looked);
}

TEST_F(DriverNotStarted, TheFeederWaitsForTheDriverAndSaysSoOnce)
{
    Feeder            feeder;
    const std::string script = feeder.Put("s.scn", "disk 7 on\nstep\n");
    feeder.Start("--scenario " + script);
    ASSERT_TRUE(Eventually([&] { return !feeder.File("out").empty(); }));
    ASSERT_TRUE(service->Start());
    EXPECT_EQ(0u, feeder.End());
    EXPECT_EQ("velcorfeed: the driver is not there (error 2); waiting for it.\r\nvelcorfeed: the driver is there.\r\n",
              feeder.File("out"));
    Reopen();
    EXPECT_EQ(1u, DriversDisk(7).state);
}

TEST_F(Driver, TheFeederGoesOnAfterTheDriverWasStoppedAndStarted)
{
    Feeder            feeder;
    const std::string script = feeder.Put("s.scn", ENDLESS);
    feeder.Start("--speed 20 --scenario " + script);
    ASSERT_TRUE(Eventually([this] { return FiltersDisk(7).write_bytes != 0; }));
    const unsigned long long before = FiltersDisk(7).write_bytes;
    Close();
    ASSERT_TRUE(service->Stop());
    ASSERT_TRUE(Eventually([&] { return feeder.File("out").find("the driver is gone") != std::string::npos; }));
    ASSERT_TRUE(service->Start());
    ASSERT_NO_FATAL_FAILURE(Reopen());
    EXPECT_TRUE(Eventually([&] { return FiltersDisk(7).write_bytes > before; }));  // the sums run on
}

TEST_F(DriverNotStarted, WrongUsageAndRefusedFilesHaveTheirOwnExitCodes)
{
    Feeder            feeder;
    const std::string script = feeder.Put("bad.scn", "disk 1 on\nstep 0\n");
    const std::string stats = feeder.Put("stats", "254 0 vda 1 2 3 4 5 6 7 8 0 0 0\n");
    EXPECT_EQ(2u, feeder.Run(""));
    EXPECT_EQ(2u, feeder.Run("--nonsense"));
    EXPECT_EQ(2u, feeder.Run("--host --scenario x"));
    EXPECT_EQ(0u, feeder.Run("--help"));
    EXPECT_THAT(feeder.File("out"), HasSubstr("The script language of --scenario"));
    EXPECT_EQ(3u, feeder.Run("--scenario " + script));
    EXPECT_THAT(feeder.File("out"), HasSubstr("bad.scn:2: step 0 is not in 1 to 1000000"));
    EXPECT_EQ(3u, feeder.Run("--scenario nowhere.scn"));
    EXPECT_EQ(6u, feeder.Run("--host --diskstats nowhere"));
    feeder.Put("etc\\disks.map", "1 vda\n1 vdb\n");
    EXPECT_EQ(3u, feeder.Run("--host --diskstats " + stats));
    EXPECT_THAT(feeder.File("out"), HasSubstr("disks.map:2: mirror disk 1 is already vda"));
    EXPECT_THAT(feeder.File("etc\\disks.map"), StartsWith("1 vda\n1 vdb\n"));  // a refused map is not overwritten
}

/* The longest path that a program is started from; the journal's is longer, and outside of the code page. */
TEST_F(Driver, TheFeederFindsItsHomeBelowALongPathOfAnyLetters)
{
    const size_t        shortest = TestHome(L"x").PlainPath(L"bin\\velcorfeed.exe").size();
    const std::wstring  leaf = L"\x65E5\x672C\x8A9E" + std::wstring(MAX_PATH - 1 - 2 - shortest, L'x');
    const TestHome      home(leaf.c_str());
    STARTUPINFOW        startup = {};
    PROCESS_INFORMATION process = {};
    DWORD               code = 999;
    home.CopyIn(L"" FEEDER, L"bin\\velcorfeed.exe");
    home.Write(L"s.scn", "disk 7 on writes 3 bytes 100\nstep\n");
    const std::wstring program = home.Path(L"bin\\velcorfeed.exe");
    std::wstring       command = L"velcorfeed --once --scenario \"" + home.Path(L"s.scn") + L"\"";
    ASSERT_GT(home.Path(L"log\\velcorfeed.journal").size() - strlen("\\\\?\\"), size_t{ MAX_PATH });
    startup.cb = sizeof(startup);
    ASSERT_TRUE(Created([&] {
        return CreateProcessW(program.c_str() + strlen("\\\\?\\"), &command[0], NULL, NULL, FALSE, 0, NULL, NULL,
                              &startup, &process);
    })) << GetLastError();
    EXPECT_EQ(DWORD{ WAIT_OBJECT_0 }, WaitForSingleObject(process.hProcess, PATIENCE_MS));
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    EXPECT_EQ(0u, code);
    EXPECT_EQ(1u, DriversDisk(7).state);
    EXPECT_THAT(home.Read(L"log\\velcorfeed.journal"), HasSubstr(",7,-,300,3,"));
}

TEST_F(Driver, TheFeedersMutexIsForTheSystemAndAdministratorsAlone)
{
    static const WELL_KNOWN_SID_TYPE ALLOWED[] = { WinLocalSystemSid, WinBuiltinAdministratorsSid };
    Feeder                           feeder;
    PACL                             dacl = NULL;
    PSECURITY_DESCRIPTOR             descriptor = NULL;
    feeder.Start("--speed 20 --scenario " + feeder.Put("s.scn", ENDLESS));
    ASSERT_TRUE(Eventually([this] { return DriversDisk(7).state == 1; }));
    const HANDLE mutex = OpenMutexA(READ_CONTROL, FALSE, "Global\\TNW_VELCOR_FEEDER");
    ASSERT_NE(nullptr, mutex);
    ASSERT_EQ(
        0u, GetSecurityInfo(mutex, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, NULL, NULL, &dacl, NULL, &descriptor));
    ASSERT_NE(nullptr, dacl);
    ASSERT_EQ(std::size(ALLOWED), dacl->AceCount);
    for (DWORD i = 0; i < std::size(ALLOWED); i++) {
        void* entry = NULL;
        ASSERT_TRUE(GetAce(dacl, i, &entry));
        EXPECT_EQ(ACCESS_ALLOWED_ACE_TYPE, static_cast<ACCESS_ALLOWED_ACE*>(entry)->Header.AceType);
        EXPECT_TRUE(IsWellKnownSid(&static_cast<ACCESS_ALLOWED_ACE*>(entry)->SidStart, ALLOWED[i]));
    }
    LocalFree(descriptor);
    CloseHandle(mutex);
}

TEST_F(Driver, AnAccountThatMayNotBecomeTheFeederIsToldSo)
{
    Feeder              feeder;
    const std::string   script = feeder.Put("s.scn", ENDLESS);
    ACL                 nobody = {};
    SECURITY_DESCRIPTOR descriptor = {};
    SECURITY_ATTRIBUTES attributes = { sizeof(attributes), &descriptor, FALSE };
    InitializeAcl(&nobody, sizeof(nobody), ACL_REVISION);
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, &nobody, FALSE);
    const HANDLE theirs = CreateMutexA(&attributes, FALSE, "Global\\TNW_VELCOR_FEEDER");
    ASSERT_NE(nullptr, theirs);
    EXPECT_EQ(5u, feeder.Run("--once --scenario " + script));
    EXPECT_EQ("velcorfeed: only administrators may feed the driver.\r\n", feeder.File("out"));
    EXPECT_EQ(0u, DriversDisk(7).state);
    CloseHandle(theirs);
}

TEST_F(DriverNotStarted, AsAServiceTheFeederComesUpBeforeTheDriverAndStops)
{
    Feeder            feeder;
    const std::string script = feeder.Put("s.scn", ENDLESS);
    Service           feederService("velcorfeed", SERVICE_WIN32_OWN_PROCESS,
                                    "\"" + feeder.Exe() + "\" --service --speed 20 --scenario " + script);
    ASSERT_TRUE(feederService.Start()) << GetLastError();
    ASSERT_TRUE(service->Start());
    Reopen();
    EXPECT_TRUE(Eventually([this] { return DriversDisk(7).state == 1; }));
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), feederService.State());
    EXPECT_TRUE(feederService.Stop());
    EXPECT_TRUE(Eventually(
        [&] { return feeder.File("log\\velcorfeed.log").find("ended with exit code 0.") != std::string::npos; }));
}

TEST_F(DriverNotStarted, AsAServiceTheFeederStopsWhileItWaits)
{
    Feeder            feeder;
    const std::string script = feeder.Put("s.scn", ENDLESS);
    Service           feederService("velcorfeed", SERVICE_WIN32_OWN_PROCESS,
                                    "\"" + feeder.Exe() + "\" --service --scenario " + script);
    ASSERT_TRUE(feederService.Start()) << GetLastError();
    ASSERT_TRUE(
        Eventually([&] { return feeder.File("log\\velcorfeed.log").find("waiting for it.") != std::string::npos; }));
    EXPECT_TRUE(feederService.Stop());
}

/* ---- What stands in the files ---- */

class Version : public testing::TestWithParam<const char*> {};

TEST_P(Version, IsThatOfTheProduct)
{
    DWORD                      ignored = 0;
    std::vector<unsigned char> block(GetFileVersionInfoSizeA(GetParam(), &ignored));
    void*                      text = NULL;
    UINT                       length = 0;
    ASSERT_FALSE(block.empty());
    ASSERT_TRUE(GetFileVersionInfoA(GetParam(), 0, static_cast<DWORD>(block.size()), block.data()));
    ASSERT_TRUE(VerQueryValueA(block.data(), "\\StringFileInfo\\040904b0\\FileVersion", &text, &length));
    EXPECT_STREQ(PRODUCT_VERSION, static_cast<const char*>(text));
}

INSTANTIATE_TEST_SUITE_P(Velcor, Version, testing::Values(DRIVER_FILE, FILTER_LIBRARY, FEEDER));
