/*
 * Display values against a model with tables and arithmetic of its own, over random samples. DKPF_TEST_SEED repeats a
 * run.
 */
#include "support/seed.h"
#include "unit/lifecycle_fixture.h"

#include <iostream>
#include <random>

namespace {

__extension__ typedef unsigned __int128 Wide;

/* ---- The model ---- */

constexpr Wide Modulus = static_cast<Wide>(1) << 64;

/* All sums, differences and products of the library are those of 64-bit unsigned numbers. */
ULONGLONG Cut(Wide value)
{
    return static_cast<ULONGLONG>(value % Modulus);
}

ULONGLONG Minus(ULONGLONG a, ULONGLONG b)
{
    return Cut(Modulus + a - b);
}

ULONGLONG RoundedUp(ULONGLONG dividend, ULONGLONG divisor)
{
    return Cut((static_cast<Wide>(dividend) + divisor - 1) / divisor);
}

/* Two numbers of one disk or of all, in the previous and in the current sample. */
struct Pair {
    ULONGLONG prev, cur;
};

ULONGLONG Ratio(Pair whole, Pair part)
{
    if (whole.prev == whole.cur || part.prev == part.cur) {
        return 100;
    }
    ULONGLONG percent = Cut(static_cast<Wide>(Minus(part.cur, part.prev)) * 100) / Minus(whole.cur, whole.prev);
    return percent == 0 ? 1 : percent;
}

ULONGLONG Average(Pair dividend, Pair divisor)
{
    if (divisor.cur < divisor.prev || divisor.cur == divisor.prev) {
        return 0;
    }
    return RoundedUp(Minus(dividend.cur, dividend.prev), divisor.cur - divisor.prev);
}

ULONGLONG Rate(Pair value, DWORD prevTick, DWORD curTick)
{
    ULONGLONG elapsed = (0x100000000ull + curTick - prevTick) % 0x100000000ull;
    if (value.cur < value.prev || elapsed == 0) {
        return 0;
    }
    return RoundedUp(Cut(static_cast<Wide>(value.cur - value.prev) * 1000), elapsed);
}

enum Kind { ratio, level, peak, average, delta, rate };
struct Column {
    Kind     kind;
    unsigned row, row2;
};
const Column columns[17] = {
    { ratio, 1, 2 },      // 0
    { level, 7, 0 },      // 1
    { peak, 3, 0 },       // 2
    { level, 9, 0 },      // 3
    { peak, 5, 0 },       // 4
    { average, 10, 11 },  // 5
    { peak, 6, 0 },       // 6
    { level, 5, 0 },      // 7
    { peak, 1, 0 },       // 8
    { level, 6, 0 },      // 9
    { peak, 2, 0 },       // 10
    { delta, 0, 0 },      // 11
    { rate, 0, 0 },       // 12
    { level, 8, 0 },      // 13
    { peak, 4, 0 },       // 14
    { average, 3, 4 },    // 15
    { peak, 0, 0 },       // 16
};

Pair OfDisk(const DKPF_PARAM& prev, const DKPF_PARAM& cur, unsigned row, unsigned slot)
{
    return { prev.instance[row].inst_sub[slot].value, cur.instance[row].inst_sub[slot].value };
}

ULONGLONG Sum(const DKPF_PARAM& sample, unsigned row)
{
    Wide sum = 0;
    for (unsigned slot = 0; slot < 64; slot++) {
        sum += sample.instance[row].inst_sub[slot].value;
    }
    return Cut(sum);
}

Pair OfAll(const DKPF_PARAM& prev, const DKPF_PARAM& cur, unsigned row)
{
    return { Sum(prev, row), Sum(cur, row) };
}

ULONGLONG Largest(const DKPF_PARAM& sample, unsigned row)
{
    ULONGLONG largest = 0;
    for (unsigned slot = 0; slot < 64; slot++) {
        largest = std::max(largest, sample.maxinstance[row].inst_sub[slot].value);
    }
    return largest;
}

/* Value of counter j: of disk slot 0 to 63, or of the total (-1). */
ULONGLONG Expected(const DKPF_PARAM& prev, const DKPF_PARAM& cur, unsigned j, int slot)
{
    const Column&  column = columns[j];
    const bool     total = slot < 0;
    const unsigned d = static_cast<unsigned>(slot);
    auto           pair = [&](unsigned row) { return total ? OfAll(prev, cur, row) : OfDisk(prev, cur, row, d); };

    switch (column.kind) {
    case ratio:
        return Ratio(pair(column.row), pair(column.row2));
    case level:
        return pair(column.row).cur;
    case peak:
        return total ? Largest(cur, column.row) : cur.maxinstance[column.row].inst_sub[d].value;
    case average:
        return Average(pair(column.row), pair(column.row2));
    case delta:
        // A sum of wrapped differences is the wrapped difference of the sums.
        return Minus(pair(column.row).cur, pair(column.row).prev);
    case rate:
        return Rate(pair(column.row), prev.sampling_time, cur.sampling_time);
    }
    return 0;
}

/* ---- Random samples ---- */

class Samples {
public:
    explicit Samples(unsigned long long seed) : m_random(seed)
    {
    }

    /* The moods take turns by disk and row, so that one pair holds all of them. */
    void Next(DKPF_PARAM& prev, DKPF_PARAM& cur)
    {
        prev = {};
        cur = {};
        prev.sampling_time = static_cast<DWORD>(m_random());
        switch (Below(4)) {
        case 0:  // across the wrap of the tick count
            prev.sampling_time = 0xFFFFFFFFu - static_cast<DWORD>(Below(60000));
            cur.sampling_time = static_cast<DWORD>(Below(60000));
            break;
        case 1:  // no time at all
            cur.sampling_time = prev.sampling_time;
            break;
        default:
            cur.sampling_time = prev.sampling_time + static_cast<DWORD>(1 + Below(3600000));
            break;
        }
        const unsigned disksInUse = static_cast<unsigned>(Below(65));
        const bool     identical = Below(10) == 0;
        const bool     calm = Below(3) == 0;  // small numbers only, so that totals do not wrap
        for (unsigned d = 0; d < disksInUse; d++) {
            if (Below(8) == 0) {
                continue;  // a slot not in use among others
            }
            for (auto& row : prev.instance) {
                row.inst_sub[d].value = calm ? Below(1000000) : Number();
            }
            for (unsigned i = 0; i < 12; i++) {
                cur.instance[i].inst_sub[d].value = After(prev.instance[i].inst_sub[d].value, calm);
            }
            for (unsigned k = 0; k < 7; k++) {
                prev.maxinstance[k].inst_sub[d].value = Number();
                cur.maxinstance[k].inst_sub[d].value = calm ? Below(1000000) : Number();
            }
        }
        if (identical) {
            const DWORD tick = cur.sampling_time;
            cur = prev;
            cur.sampling_time = tick;
        }
    }

private:
    ULONGLONG Below(ULONGLONG bound)
    {
        return m_random() % bound;
    }

    ULONGLONG Number()
    {
        switch (Below(6)) {
        case 0:
            return 0;
        case 1:
            return Below(100);
        case 2:
            return 0x8000000000000000ull + Below(1000);  // just above 2^63
        case 3:
            return 0xFFFFFFFFFFFFFFFFull - Below(1000);  // about to wrap
        case 4:
            return m_random() >> Below(64);
        default:
            return m_random();
        }
    }

    ULONGLONG After(ULONGLONG before, bool calm)
    {
        switch (Below(calm ? 4 : 7)) {
        case 0:
            return before;
        case 1:
            return before + 1 + Below(10);
        case 2:
        case 3:
            return before + Below(1000000);  // wraps where it was about to
        case 4:
            return before - 1 - Below(1000);  // went back
        case 5:
            return 0;
        default:
            return Number();
        }
    }

    std::mt19937_64 m_random;
};

}  // namespace

class DisplayModel : public LinesTest {
protected:
    void ExpectAsTheModel(const DKPF_PARAM& prev, const DKPF_PARAM& cur)
    {
        DKPF_DISP     disp = {};
        DKPF_RAWTOTAL raw = {};
        DWORD         code = 0;

        ASSERT_TRUE(_DkpfCmnGetDisplayValue(&cur, &prev, &disp, &raw, &code));
        for (unsigned j = 0; j < 17; j++) {
            ASSERT_EQ(disp.value[0][j], Expected(prev, cur, j, -1)) << "total, counter " << j;
            for (int d = 0; d < 64; d++) {
                ASSERT_EQ(disp.value[1 + d][j], Expected(prev, cur, j, d)) << "slot " << d << ", counter " << j;
            }
        }
        for (unsigned p = 0; p < 12; p++) {
            ASSERT_EQ(raw.value[p], Sum(cur, p)) << "raw sum " << p;
        }
        for (unsigned p = 0; p < 7; p++) {
            ASSERT_EQ(raw.value[12 + p], Largest(cur, p)) << "raw peak " << p;
        }
        log.ClearLines();
        journal.Clear();
    }
};

TEST_F(DisplayModel, ThreeThousandRandomPairsShowWhatTheModelShows)
{
    const unsigned seed = TestSeed();
    RecordProperty("seed", std::to_string(seed));
    Samples    samples(seed);
    DKPF_PARAM prev, cur;

    for (int pair = 0; pair < 3000; pair++) {
        SCOPED_TRACE("pair " + std::to_string(pair) + " of seed " + std::to_string(seed));
        samples.Next(prev, cur);
        ExpectAsTheModel(prev, cur);
        if (HasFatalFailure()) {
            return;
        }
    }
}

/* Every combination of edges in one slot: what random numbers rarely meet. */
TEST_F(DisplayModel, AllEdgesOfOneDiskShowWhatTheModelShows)
{
    const ULONGLONG edges[] = { 0, 1, 100, 0x7FFFFFFFFFFFFFFFull, 0x8000000000000000ull, 0xFFFFFFFFFFFFFFFFull };
    const DWORD     ticks[][2] = { { 0, 0 }, { 0, 1 }, { 0, 0xFFFFFFFF }, { 0xFFFFFF00, 0x100 }, { 1, 0 } };
    DKPF_PARAM      prev = {}, cur = {};

    for (const auto& tick : ticks) {
        prev.sampling_time = tick[0];
        cur.sampling_time = tick[1];
        for (ULONGLONG a0 : edges) {
            for (ULONGLONG a1 : edges) {
                for (ULONGLONG b0 : edges) {
                    for (ULONGLONG b1 : edges) {
                        // Dividends and parts in turn: the rows that a formula pairs get different numbers.
                        for (unsigned row = 0; row < 12; row++) {
                            const bool second = row == 2 || row == 4 || row == 11;
                            prev.instance[row].inst_sub[17].value = second ? b0 : a0;
                            cur.instance[row].inst_sub[17].value = second ? b1 : a1;
                        }
                        ExpectAsTheModel(prev, cur);
                        if (HasFatalFailure()) {
                            return;
                        }
                    }
                }
            }
        }
    }
}
