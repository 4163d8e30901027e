/*
 * The contract of tnwdiskfltr's one routine. Each case runs twice, unchanged: on the library above the driver, and on
 * its double.
 */
#include <gtest/gtest.h>
#include <string.h>

#include "contract/contract.h"
#include "contract/device_contract.h"

namespace {

class TnwdiskfltrContract : public testing::TestWithParam<Side<FilterSide>> {
protected:
    static constexpr size_t BUFFER = 0x4010, RECORD = 0x4008;

    TnwdiskfltrContract()
    {
        Prepare();
    }

    /* The buffer as a caller hands it over, the rest filled so that what is touched shows. */
    void Prepare(ULONGLONG header = VELCOR_REQUEST_HEADER)
    {
        memset(buffer, 0xDD, sizeof buffer);
        memcpy(buffer, &header, sizeof header);
        memcpy(before, buffer, sizeof before);
    }
    DWORD Ask()
    {
        return side->TnwDkfltrGetMirrorPerformance(buffer);
    }
    bool Untouched() const
    {
        return memcmp(buffer, before, sizeof buffer) == 0;
    }
    /* The call succeeds with this record from offset 0, and nothing behind it. */
    void ExpectRecord(const VELCOR_RECORD& expected)
    {
        Prepare();
        EXPECT_EQ(0u, Ask());
        EXPECT_EQ(0, memcmp(&expected, buffer, RECORD));
        EXPECT_EQ(0, memcmp(before + RECORD, buffer + RECORD, BUFFER - RECORD));
    }

    std::unique_ptr<FilterSide> side = GetParam().make();
    alignas(8) BYTE buffer[BUFFER];
    BYTE before[BUFFER];
};

using Sides = Side<FilterSide>;
INSTANTIATE_TEST_SUITE_P(, TnwdiskfltrContract,
                         testing::Values(Sides{ "Real", RealFilter }, Sides{ "Double", DoubleOfFilter }),
                         NameOfSide<FilterSide>);

/* A disk with a number at every place; its peaks stand above the gauges, or have fallen to them. */
VELCOR_RECORD Telling(bool fallen)
{
    Record record;
    record.Disk(0).Sync(63);
    for (unsigned slot : { 0u, 63u }) {
        VELCOR_ENTRY& entry = record.record.entry[slot];
        entry.write_bytes = 1 + slot;
        entry.writes = 0xFFFFFFFFFFFFFFFFull - slot;
        entry.send_queue = 10;
        entry.send_queue_peak = fallen ? 10 : 99;
        entry.request_queue_peak = fallen ? 0 : 7;
        entry.write_us_max = fallen ? 0 : 5;
    }
    return record.record;
}

TEST_P(TnwdiskfltrContract, ANullPointerIsRefused)
{
    EXPECT_EQ(DWORD{ ERROR_INVALID_PARAMETER }, side->TnwDkfltrGetMirrorPerformance(nullptr));
}

TEST_P(TnwdiskfltrContract, AnotherHeaderWordIsRefusedAndTheBufferUntouched)
{
    for (ULONGLONG header : { 0ull, 0x310ull, 0x312ull, 0x100000311ull, ~0ull }) {
        Prepare(header);
        EXPECT_EQ(DWORD{ ERROR_INVALID_PARAMETER }, Ask()) << header;
        EXPECT_TRUE(Untouched()) << header;
    }
}

TEST_P(TnwdiskfltrContract, TheRecordStandsFromOffset0)
{
    side->Give(Telling(false), Telling(true));
    ExpectRecord(Telling(false));
}

TEST_P(TnwdiskfltrContract, WithoutDisksTheRecordIsEmpty)
{
    ExpectRecord(Record().record);
}

TEST_P(TnwdiskfltrContract, ACallHandsThePeaksOver)
{
    side->Give(Telling(false), Telling(true));
    ExpectRecord(Telling(false));
    ExpectRecord(Telling(true));
    ExpectRecord(Telling(true));
}

TEST_P(TnwdiskfltrContract, ARefusedArgumentHandsNothingOver)
{
    side->Give(Telling(false), Telling(true));
    Prepare(0);
    EXPECT_EQ(DWORD{ ERROR_INVALID_PARAMETER }, Ask());
    EXPECT_EQ(DWORD{ ERROR_INVALID_PARAMETER }, side->TnwDkfltrGetMirrorPerformance(nullptr));
    ExpectRecord(Telling(false));
}

TEST_P(TnwdiskfltrContract, TheDevicesNumberIsTheAnswerAndTheBufferUntouched)
{
    for (DWORD error : { DWORD{ ERROR_NOT_READY }, DWORD{ ERROR_IO_DEVICE }, DWORD{ 0xE0001234 } }) {
        side->Refuse(error);
        Prepare();
        EXPECT_EQ(error, Ask());
        EXPECT_TRUE(Untouched());
    }
    side->Give(Telling(false), Telling(true));
    ExpectRecord(Telling(false));
}

TEST_P(TnwdiskfltrContract, WithoutADriverTheFileIsNotFound)
{
    side->StopDriver();
    Prepare();
    EXPECT_EQ(DWORD{ ERROR_FILE_NOT_FOUND }, Ask());
    EXPECT_TRUE(Untouched());
    EXPECT_EQ(DWORD{ ERROR_INVALID_PARAMETER }, side->TnwDkfltrGetMirrorPerformance(nullptr))
        << "arguments are judged first";
    Prepare(0);
    EXPECT_EQ(DWORD{ ERROR_INVALID_PARAMETER }, Ask());
    side->StartDriver();
    ExpectRecord(Record().record);
}

TEST_P(TnwdiskfltrContract, ADriverThatWasStoppedIsFoundAgain)
{
    side->Give(Telling(false), Telling(true));
    ExpectRecord(Telling(false));
    side->StopDriver();
    Prepare();
    EXPECT_EQ(DWORD{ ERROR_FILE_NOT_FOUND }, Ask());
    EXPECT_TRUE(Untouched());
    side->StartDriver();
    ExpectRecord(Record().record);
}

}  // namespace
