#include "unit/region_model.h"

#include <string.h>

using namespace format;

uint32_t Get32(const uint8_t* bytes, size_t offset)
{
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value << 8 | bytes[offset + i];
    }
    return value;
}

uint64_t Get64(const uint8_t* bytes, size_t offset)
{
    return static_cast<uint64_t>(Get32(bytes, offset + 4)) << 32 | Get32(bytes, offset);
}

static uint16_t Get16(const uint8_t* bytes, size_t offset)
{
    return static_cast<uint16_t>(Get32(bytes, offset) & 0xFFFF);
}

void Put16(uint8_t* bytes, size_t offset, uint16_t value)
{
    bytes[offset] = static_cast<uint8_t>(value & 0xFF);
    bytes[offset + 1] = static_cast<uint8_t>(value >> 8);
}

void Put32(uint8_t* bytes, size_t offset, uint32_t value)
{
    Put16(bytes, offset, static_cast<uint16_t>(value & 0xFFFF));
    Put16(bytes, offset + 2, static_cast<uint16_t>(value >> 16));
}

void Put64(uint8_t* bytes, size_t offset, uint64_t value)
{
    Put32(bytes, offset, static_cast<uint32_t>(value & 0xFFFFFFFF));
    Put32(bytes, offset + 4, static_cast<uint32_t>(value >> 32));
}

/* ---- Store and read ---- */

void RegionModel::Store(const uint8_t* sample)
{
    uint8_t* region = bytes.data();
    Put32(region, RegionParamNum, Get32(sample, SampleParamNum));
    Put32(region, RegionParamMaxNum, Get32(sample, SampleParamMaxNum));
    Put32(region, RegionTick, Get32(sample, SampleTick));
    memcpy(region + RegionTime, sample + SampleTime, TimeSize);
    memcpy(region + RegionInitFlag, sample + SampleInitFlag, 4 * Disks);
    memcpy(region + RegionInstance, sample + SampleInstance, 6240);
    for (size_t r = 0; r < Rows; r++) {
        if (r != 0 && Get32(region, RegionProcess + 4 * r) == 0) {
            continue;
        }
        for (size_t k = 0; k < Peaks; k++) {
            size_t from = SampleMax + k * InstanceSize;
            Put32(region, MaxAt(r, k) + RowId, Get32(sample, from + RowId));
            for (size_t j = 0; j < Disks; j++) {
                uint64_t offered = Get64(sample, from + RowValues + 8 * j);
                size_t   at = MaxAt(r, k) + RowValues + 8 * j;
                if (offered > Get64(region, at)) {
                    Put64(region, at, offered);
                }
            }
        }
    }
}

void RegionModel::Read(size_t r, uint8_t* sample)
{
    uint8_t* region = bytes.data();
    Put32(sample, SampleParamNum, Get32(region, RegionParamNum));
    Put32(sample, SampleParamMaxNum, Get32(region, RegionParamMaxNum));
    Put32(sample, SampleTick, Get32(region, RegionTick));
    memcpy(sample + SampleTime, region + RegionTime, TimeSize);
    memcpy(sample + SampleInitFlag, region + RegionInitFlag, 4 * Disks);
    memcpy(sample + SampleInstance, region + RegionInstance, 6240);
    for (size_t k = 0; k < Peaks; k++) {
        memcpy(sample + SampleMax + k * InstanceSize, region + MaxAt(r, k), InstanceSize);
        memset(region + MaxAt(r, k), 0, InstanceSize);
    }
}

void RegionModel::GiveRow(size_t r, uint32_t owner)
{
    Put32(bytes.data(), RegionProcess + 4 * r, owner);
    memset(bytes.data() + MaxAt(r, 0), 0, 7 * 520);
}

/* ---- Dumps ---- */

/* A 32-bit field printed with %d, a 64-bit one with %I64d: what lies in the upper half comes out negative. */
static std::string Signed(uint32_t value)
{
    return value < 0x80000000u ? std::to_string(value) : "-" + std::to_string(0x100000000ull - value);
}

static std::string Signed64(uint64_t value)
{
    return value < 0x8000000000000000ull ? std::to_string(value) : "-" + std::to_string(~value + 1);
}

static std::string Padded(uint64_t value, size_t width, char fill)
{
    std::string text = std::to_string(value);
    return text.size() < width ? std::string(width - text.size(), fill) + text : text;
}

static void DumpHeader(std::vector<std::string>& lines, const uint8_t* header)
{
    // Offsets of a sample; those of the region are the same from its param_num on.
    lines.push_back("  param_num        <" + Signed(Get32(header, SampleParamNum)) + ">");
    lines.push_back("  parammax_num     <" + Signed(Get32(header, SampleParamMaxNum)) + ">");
    lines.push_back("  sampling_time    <" + std::to_string(Get32(header, SampleTick)) + ">");
    // year, month, day of week, day, hour, minute, second, milliseconds
    uint16_t time[8];
    for (size_t i = 0; i < 8; i++) {
        time[i] = Get16(header, SampleTime + 2 * i);
    }
    lines.push_back("  local_time       <" + std::to_string(time[0]) + "/" + Padded(time[1], 2, '0') + "/" +
                    Padded(time[3], 2, '0') + "(" + std::to_string(time[2]) + ") " + Padded(time[4], 2, '0') + ":" +
                    Padded(time[5], 2, '0') + ":" + Padded(time[6], 2, '0') + "." + Padded(time[7], 3, '0') + ">");
}

static void DumpDisk(std::vector<std::string>& lines, const uint8_t* flags, const uint8_t* instances, size_t j)
{
    lines.push_back("  InitFlag[" + std::to_string(j) + "]  <" + Signed(Get32(flags, 4 * j)) + ">");
    for (size_t i = 0; i < Counters; i++) {
        const uint8_t* row = instances + i * InstanceSize;
        lines.push_back("  instance[" + Padded(i, 2, ' ') + "]   : rawparamID <" + Signed(Get32(row, RowId)) + "> ");
        lines.push_back("                   inst_sub[" + std::to_string(j) + "].value <" +
                        Signed64(Get64(row, RowValues + 8 * j)) + "> ");
    }
}

std::vector<std::string> DumpOfRegion(const uint8_t* region)
{
    std::vector<std::string> lines;
    DumpHeader(lines, region + RegionParamNum);
    for (size_t j = 0; j < Disks; j++) {
        DumpDisk(lines, region + RegionInitFlag, region + RegionInstance, j);
        for (size_t r = 0; r < Rows; r++) {
            for (size_t k = 0; k < Peaks; k++) {
                const uint8_t* row = region + MaxAt(r, k);
                lines.push_back("  maxinstance[" + Padded(r, 2, ' ') + "][" + std::to_string(k) + "]: rawparamID <" +
                                Signed(Get32(row, RowId)) + "> ");
                lines.push_back("                      inst_sub[" + std::to_string(j) + "].value <" +
                                Signed64(Get64(row, RowValues + 8 * j)) + "> ");
            }
        }
    }
    return lines;
}

std::vector<std::string> DumpOfSample(const uint8_t* sample)
{
    std::vector<std::string> lines;
    DumpHeader(lines, sample);
    for (size_t j = 0; j < Disks; j++) {
        DumpDisk(lines, sample + SampleInitFlag, sample + SampleInstance, j);
        for (size_t k = 0; k < Peaks; k++) {
            const uint8_t* row = sample + SampleMax + k * InstanceSize;
            lines.push_back("  maxinstance[" + std::to_string(k) + "] : rawparamID <" + Signed(Get32(row, RowId)) +
                            "> ");
            lines.push_back("                   inst_sub[" + std::to_string(j) + "].value <" +
                            Signed64(Get64(row, RowValues + 8 * j)) + "> ");
        }
    }
    return lines;
}

/* ---- Random data ---- */

Bytes RandomBytes(std::mt19937_64& random, size_t size)
{
    Bytes bytes(size);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(random() & 0xFF);
    }
    return bytes;
}

Bytes RandomSample(std::mt19937_64& random)
{
    Bytes sample = RandomBytes(random, SampleSize);
    for (size_t k = 0; k < Peaks; k++) {
        for (size_t j = 0; j < Disks; j++) {
            uint64_t value = random(), small = random() % 5;
            switch (random() % 6) {
            case 0:
                value = small;
                break;
            case 1:
                value = 0x8000000000000000ull - 2 + small;
                break;
            case 2:
                value = 0xFFFFFFFFFFFFFFFFull - small;
                break;
            default:
                break;
            }
            Put64(sample.data(), SampleMax + k * InstanceSize + RowValues + 8 * j, value);
        }
    }
    return sample;
}

/* ---- Comparing ---- */

std::string FirstDifference(const void* actual, const void* expected, size_t size)
{
    const uint8_t* a = static_cast<const uint8_t*>(actual);
    const uint8_t* e = static_cast<const uint8_t*>(expected);
    for (size_t i = 0; i < size; i++) {
        if (a[i] != e[i]) {
            return "byte " + std::to_string(i) + " is " + std::to_string(a[i]) + " instead of " + std::to_string(e[i]);
        }
    }
    return "";
}

std::string FirstDifference(const std::vector<std::string>& actual, const std::vector<std::string>& expected)
{
    for (size_t i = 0; i < actual.size() && i < expected.size(); i++) {
        if (actual[i] != expected[i]) {
            return "line " + std::to_string(i) + " is \"" + actual[i] + "\" instead of \"" + expected[i] + "\"";
        }
    }
    return actual.size() == expected.size()
               ? ""
               : std::to_string(actual.size()) + " lines instead of " + std::to_string(expected.size());
}
