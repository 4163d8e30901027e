/*
 * The shared region written a second time: its bytes by offsets typed from the format, what a store and a read do to
 * them, and the lines that both dump. Knows nothing of the product's records or tables.
 */
#ifndef TESTS_UNIT_REGION_MODEL_H
#define TESTS_UNIT_REGION_MODEL_H

#include <stddef.h>
#include <stdint.h>

#include <random>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

/* The format, in bytes. */
namespace format {
constexpr size_t Disks = 64, Counters = 12, Peaks = 7, Rows = 33;

constexpr size_t InstanceSize = 520;
constexpr size_t RowId = 0, RowValues = 8;  // of an instance

constexpr size_t ConfSize = 36;

constexpr size_t SampleSize = 10168;
constexpr size_t SampleParamNum = 0, SampleParamMaxNum = 4, SampleTick = 8, SampleTime = 16, SampleInitFlag = 32;
constexpr size_t SampleInstance = 288, SampleMax = 6528;

constexpr size_t RegionSize = 216784;
constexpr size_t RegionConf = 0, RegionParamNum = 40, RegionParamMaxNum = 44, RegionTick = 48, RegionTime = 56;
constexpr size_t RegionInitFlag = 72, RegionProcess = 328, RegionInstance = 464, RegionReserved = 6704;
constexpr size_t RegionReservedSize = 4160, RegionMax = 10864, RegionMaxStride = 6240;

constexpr size_t TimeSize = 16;

/* Row of peaks r, slot k. */
constexpr size_t MaxAt(size_t r, size_t k)
{
    return RegionMax + r * RegionMaxStride + k * InstanceSize;
}
}  // namespace format

uint32_t Get32(const uint8_t* bytes, size_t offset);
uint64_t Get64(const uint8_t* bytes, size_t offset);
void     Put16(uint8_t* bytes, size_t offset, uint16_t value);
void     Put32(uint8_t* bytes, size_t offset, uint32_t value);
void     Put64(uint8_t* bytes, size_t offset, uint64_t value);

class RegionModel {
public:
    Bytes bytes = Bytes(format::RegionSize);

    /* A store of a sample: current values replaced, peaks raised in row 0 and in every row with an owner. */
    void Store(const uint8_t* sample);
    /* A read with row r into a caller's record: header, current values and the row, which starts again from zero. */
    void Read(size_t r, uint8_t* sample);
    /* A new owner takes row r, or the row is freed (owner 0): its peaks start from zero. */
    void GiveRow(size_t r, uint32_t owner);
};

/* The lines of a store's dump (4 + 64 x 487) and of a read's dump (4 + 64 x 39). */
std::vector<std::string> DumpOfRegion(const uint8_t* region);
std::vector<std::string> DumpOfSample(const uint8_t* sample);

/* Random bytes; and a random sample whose peaks are often near 0, 2^63 and 2^64, so that each comparison is met. */
Bytes RandomBytes(std::mt19937_64& random, size_t size);
Bytes RandomSample(std::mt19937_64& random);

/* "" where both are equal, else what differs first: far shorter than gtest's own words for 200 KB. */
std::string FirstDifference(const void* actual, const void* expected, size_t size);
std::string FirstDifference(const std::vector<std::string>& actual, const std::vector<std::string>& expected);

#endif
