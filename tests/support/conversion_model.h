/*
 * What one pair of device records must become, by byte offsets: an independent second telling of the record formats,
 * which shares neither names nor tables with the code under test.
 */
#ifndef TESTS_SUPPORT_CONVERSION_MODEL_H
#define TESTS_SUPPORT_CONVERSION_MODEL_H

#include <windows.h>
#include <string.h>

#include <vector>

namespace model {

using Bytes = std::vector<BYTE>;

constexpr size_t RecordSize = 0x4008;  // header word of 8 bytes, 64 entries
constexpr size_t EntrySize = 256;
constexpr size_t SampleSize = 10168;

enum From { Driver, Both, ByMode };

/* Line of the row table: where the row starts in the sample, its number, whose value, and at which offset of the entry.
 */
struct Row {
    size_t at;
    DWORD  number;
    From   from;
    size_t offset;
};
constexpr Row Rows[] = {
    { 288, 0, Both, 8 },  // current values: 520 bytes each
    { 808, 1, Driver, 16 },   { 1328, 2, Driver, 24 },   { 1848, 3, Both, 32 },     { 2368, 4, Both, 48 },
    { 2888, 5, ByMode, 56 },  { 3408, 6, Driver, 72 },   { 3928, 7, ByMode, 88 },   { 4448, 8, Driver, 104 },
    { 4968, 9, Driver, 120 }, { 5488, 10, Driver, 136 }, { 6008, 11, Driver, 152 }, { 6528, 0, Both, 40 },  // peaks
    { 7048, 1, ByMode, 64 },  { 7568, 2, Driver, 80 },   { 8088, 3, ByMode, 96 },   { 8608, 4, Driver, 112 },
    { 9128, 5, Driver, 128 }, { 9648, 6, Driver, 144 },
};

template <class T> T Get(const void* bytes, size_t at)
{
    T value;
    memcpy(&value, static_cast<const BYTE*>(bytes) + at, sizeof value);
    return value;
}

template <class T> void Put(void* bytes, size_t at, T value)
{
    memcpy(static_cast<BYTE*>(bytes) + at, &value, sizeof value);
}

/* Start of the entry of a disk slot in a record. */
constexpr size_t Entry(unsigned slot)
{
    return 8 + EntrySize * slot;
}

/* Value of a row for a disk slot in a sample. */
inline ULONGLONG Value(const void* sample, const Row& row, unsigned slot)
{
    return Get<ULONGLONG>(sample, row.at + 8 + 8 * slot);
}

/* First byte at which two records differ, or -1. */
inline long FirstDifference(const void* a, const void* b, size_t size)
{
    for (size_t i = 0; i < size; i++) {
        if (static_cast<const BYTE*>(a)[i] != static_cast<const BYTE*>(b)[i]) {
            return static_cast<long>(i);
        }
    }
    return -1;
}

struct Converted {
    bool  good = true;  // false: some disk that is present has an unknown mode; the sample ends there
    Bytes sample = Bytes(SampleSize, 0);
};

inline Converted Convert(const void* driver, const void* filter, DWORD tick, const SYSTEMTIME& time)
{
    Converted result;
    BYTE*     sample = result.sample.data();
    Put<DWORD>(sample, 0, 12);
    Put<DWORD>(sample, 4, 7);
    for (unsigned slot = 0; slot < 64; slot++) {
        DWORD mode = Get<DWORD>(driver, Entry(slot));
        DWORD state = Get<DWORD>(driver, Entry(slot) + 4);
        Put<DWORD>(sample, 32 + 4 * slot, state);
        if (state != 1) {
            continue;
        }
        if (mode > 1) {
            result.good = false;
            return result;
        }
        for (const Row& row : Rows) {
            ULONGLONG d = Get<ULONGLONG>(driver, Entry(slot) + row.offset);
            ULONGLONG f = Get<ULONGLONG>(filter, Entry(slot) + row.offset);
            ULONGLONG value = row.from == Driver ? d : row.from == Both ? d + f : mode == 0 ? f : d;
            Put<DWORD>(sample, row.at, row.number);
            Put<ULONGLONG>(sample, row.at + 8 + 8 * slot, value);
        }
    }
    Put<DWORD>(sample, 8, tick);
    memcpy(sample + 16, &time, 16);
    return result;
}

}  // namespace model

#endif
