/*
 * The contract of the control device \\.\VELCOR_CTRL, as far as the product talks to it. Each case runs twice,
 * unchanged: on the driver, started as a service, and on its double behind the double of the system. The private codes
 * and the peaks have cases of their own in tests/process/velcor_driver_test.cpp.
 */
#include <gtest/gtest.h>
#include <string.h>

#include "contract/contract.h"
#include "contract/device_contract.h"

namespace {

class VelcorContract : public testing::TestWithParam<Side<DeviceSide>> {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0u, side->Open(&device));
        Prepare();
    }
    void TearDown() override
    {
        side->Close(device);
    }

    /* A request as the collect thread sends it, the rest filled so that what is touched shows. */
    void Prepare(unsigned length = VELCOR_RECORD_LENGTH, unsigned long long header = VELCOR_REQUEST_HEADER)
    {
        memset(&exchange, 0xDD, sizeof exchange);
        exchange.length = length;
        exchange.record.header = header;
        before = exchange;
    }
    DWORD Ask(DWORD code = VELCOR_GET_PERFORMANCE, DWORD inSize = sizeof(VELCOR_EXCHANGE),
              DWORD outSize = sizeof(VELCOR_EXCHANGE))
    {
        returned = 0;
        return side->Control(device, code, &exchange, inSize, &exchange, outSize, &returned);
    }
    bool Untouched() const
    {
        return memcmp(&exchange, &before, sizeof exchange) == 0;
    }
    /* The request succeeds with this status word, and all else is the caller's own. */
    void ExpectStatusAlone(unsigned status)
    {
        EXPECT_EQ(0u, Ask());
        EXPECT_EQ(sizeof exchange, returned);
        before.status = status;
        EXPECT_TRUE(Untouched());
    }
    void ExpectRecord(const VELCOR_RECORD& expected)
    {
        Prepare();
        EXPECT_EQ(0u, Ask());
        EXPECT_EQ(0x4010u, returned);
        EXPECT_EQ(0u, exchange.status);
        EXPECT_EQ(VELCOR_RECORD_LENGTH, exchange.length);
        EXPECT_EQ(0, memcmp(&expected, &exchange.record, sizeof expected));
    }

    std::unique_ptr<DeviceSide> side = GetParam().make();
    HANDLE                      device = INVALID_HANDLE_VALUE;
    VELCOR_EXCHANGE             exchange, before;
    DWORD                       returned = 0;
};

using Sides = Side<DeviceSide>;
INSTANTIATE_TEST_SUITE_P(, VelcorContract,
                         testing::Values(Sides{ "Real", RealDevice }, Sides{ "Double", DoubleOfDevice }),
                         NameOfSide<DeviceSide>);

VELCOR_RECORD Disk(unsigned long long peak)
{
    return Record()
        .Sync(3)
        .With(3, &VELCOR_ENTRY::write_bytes, 7)
        .With(3, &VELCOR_ENTRY::history, 2)
        .With(3, &VELCOR_ENTRY::history_peak, peak)
        .record;
}
const VELCOR_RECORD FIRST = Disk(9), LATER = Disk(2);

TEST_P(VelcorContract, ARequestHandsTheRecordAndItsPeaksOver)
{
    side->Give(FIRST, LATER);
    ExpectRecord(FIRST);
    ExpectRecord(LATER);
    ExpectRecord(LATER);
}

TEST_P(VelcorContract, WithoutDisksTheRecordIsEmpty)
{
    ExpectRecord(Record().record);
}

TEST_P(VelcorContract, AnotherHeaderWordIsAStatusWordAndHandsNothingOver)
{
    side->Give(FIRST, LATER);
    for (unsigned long long header : { 0ull, 0x310ull, 0x100000311ull, ~0ull }) {
        Prepare(VELCOR_RECORD_LENGTH, header);
        ExpectStatusAlone(VELCOR_STATUS_BAD_HEADER);
    }
    ExpectRecord(FIRST);
}

TEST_P(VelcorContract, AnotherLengthWordIsAStatusWordAndHandsNothingOver)
{
    side->Give(FIRST, LATER);
    for (unsigned length : { 0u, 0x4007u, 0x4009u, 0x4010u, 0xFFFFFFFFu }) {
        Prepare(length);
        ExpectStatusAlone(VELCOR_STATUS_BAD_LENGTH);
    }
    ExpectRecord(FIRST);
}

TEST_P(VelcorContract, TheHeaderWordIsLookedAtFirst)
{
    side->AnswerStatus(0xC0000001);
    Prepare(0, 0);
    ExpectStatusAlone(VELCOR_STATUS_BAD_HEADER);
    Prepare(0);
    ExpectStatusAlone(VELCOR_STATUS_BAD_LENGTH);
    Prepare();
    ExpectStatusAlone(0xC0000001);
}

TEST_P(VelcorContract, AStatusWordComesWithoutARecord)
{
    side->AnswerStatus(0xC0000001);
    ExpectStatusAlone(0xC0000001);
    side->Give(FIRST, LATER);
    ExpectRecord(FIRST);
}

TEST_P(VelcorContract, ARefusedRequestWritesNothing)
{
    side->Refuse();
    EXPECT_EQ(DWORD{ ERROR_NOT_READY }, Ask());
    EXPECT_EQ(0u, returned);
    EXPECT_TRUE(Untouched());
    side->Give(FIRST, LATER);
    ExpectRecord(FIRST);
}

TEST_P(VelcorContract, ABufferTooSmallOnEitherSideIsRefusedAndHandsNothingOver)
{
    side->Give(FIRST, LATER);
    for (DWORD small : { 0ul, 1ul, 8ul, 0x4008ul, 0x400Ful }) {
        EXPECT_EQ(DWORD{ ERROR_INSUFFICIENT_BUFFER }, Ask(VELCOR_GET_PERFORMANCE, small, 0x4010)) << small;
        EXPECT_EQ(DWORD{ ERROR_INSUFFICIENT_BUFFER }, Ask(VELCOR_GET_PERFORMANCE, 0x4010, small)) << small;
        EXPECT_TRUE(Untouched());
    }
    ExpectRecord(FIRST);
}

TEST_P(VelcorContract, ALargerBufferGetsTheExchangeAlone)
{
    struct Larger {
        VELCOR_EXCHANGE exchange;
        BYTE            behind[64];
    } larger;
    side->Give(FIRST, LATER);
    memset(&larger, 0xEE, sizeof larger);
    larger.exchange = exchange;
    EXPECT_EQ(0u,
              side->Control(device, VELCOR_GET_PERFORMANCE, &larger, sizeof larger, &larger, sizeof larger, &returned));
    EXPECT_EQ(0x4010u, returned);
    EXPECT_EQ(0, memcmp(&FIRST, &larger.exchange.record, sizeof FIRST));
    EXPECT_EQ(0xEE, larger.behind[0]);
}

TEST_P(VelcorContract, AnUnknownCodeIsNoFunctionOfTheDevice)
{
    side->Give(FIRST, LATER);
    EXPECT_EQ(DWORD{ ERROR_INVALID_FUNCTION }, Ask(0x9F8F2190));
    EXPECT_TRUE(Untouched());
    ExpectRecord(FIRST);
}

TEST_P(VelcorContract, WithoutADriverTheDeviceIsNotThere)
{
    HANDLE other = nullptr;
    side->StopDriver();
    EXPECT_EQ(DWORD{ ERROR_FILE_NOT_FOUND }, side->Open(&other));
}

TEST_P(VelcorContract, AHandleIsDeadForGoodOnceTheDriverWasStopped)
{
    HANDLE dead = device;
    side->Give(FIRST, LATER);
    side->StopDriver();
    EXPECT_NE(0u, Ask());
    EXPECT_TRUE(Untouched());
    side->StartDriver();
    EXPECT_NE(0u, Ask());
    EXPECT_TRUE(Untouched());
    ASSERT_EQ(0u, side->Open(&device));
    ExpectRecord(Record().record);
    side->Close(dead);
}

}  // namespace
