/*
 * The counters: what each shows, from which rows of a sample, by which formula; and in which order the columns of the
 * CSV files carry them. Nothing here traces. Everybody who shows a counter goes through these tables.
 */
#ifndef DISKPERF_COUNTER_H
#define DISKPERF_COUNTER_H

#include "diskperf.h"

/* ---- Rows of a sample -------------------------------------------------------------------------------------------- */

/* Which of the two records a row comes from. In each mode one of them holds the queues and its own write counters stand
 * still in the other, so that a sum of both is the disk's number whatever the mode was. */
typedef enum _DKPF_SOURCE {
    DKPF_FROM_DRIVER,  // the driver's record
    DKPF_FROM_BOTH,    // filter's plus driver's, wrapping
    DKPF_FROM_MODE,    // filter's in asynchronous, driver's in synchronous mode
} DKPF_SOURCE;

typedef struct _DKPF_FIELD {
    DKPF_SOURCE        source;
    unsigned long long VELCOR_ENTRY::*lpValue;  // in the source's entry
} DKPF_FIELD;

/* instance[i] is line i. */
constexpr DKPF_FIELD g_aInstanceField[] = {
    { DKPF_FROM_BOTH, &VELCOR_ENTRY::write_bytes },       // 0   bytes written, sum
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::handed_bytes },    // 1   bytes handed over for transfer, sum
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::transfer_bytes },  // 2   bytes transferred, sum
    { DKPF_FROM_BOTH, &VELCOR_ENTRY::write_us },          // 3   write response time, us, sum
    { DKPF_FROM_BOTH, &VELCOR_ENTRY::writes },            // 4   writes, sum
    { DKPF_FROM_MODE, &VELCOR_ENTRY::send_queue },        // 5   send queue, bytes
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::history },         // 6   history buffer, bytes
    { DKPF_FROM_MODE, &VELCOR_ENTRY::request_queue },     // 7   request queue, bytes
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::memory },          // 8   transfer memory, bytes
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::unsynced },        // 9   bytes not yet equal on both sides
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::transfer_us },     // 10  transfer response time, us, sum
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::transfers },       // 11  transfers, sum
};
static_assert(ARRAYSIZE(g_aInstanceField) == DKPF_PARAM_NUM, "one line per row");

/* maxinstance[k] is line k. */
constexpr DKPF_FIELD g_aMaxInstanceField[] = {
    { DKPF_FROM_BOTH, &VELCOR_ENTRY::write_us_max },        // 0  longest write response time, us
    { DKPF_FROM_MODE, &VELCOR_ENTRY::send_queue_peak },     // 1  send queue, bytes
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::history_peak },      // 2  history buffer, bytes
    { DKPF_FROM_MODE, &VELCOR_ENTRY::request_queue_peak },  // 3  request queue, bytes
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::memory_peak },       // 4  transfer memory, bytes
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::unsynced_peak },     // 5  bytes not yet equal on both sides
    { DKPF_FROM_DRIVER, &VELCOR_ENTRY::transfer_us_max },   // 6  longest transfer response time, us
};
static_assert(ARRAYSIZE(g_aMaxInstanceField) == DKPF_PARAMMAX_NUM, "one line per row");

/* ---- Display counters -------------------------------------------------------------------------------------------- */

typedef enum _DKPF_KIND {
    DKPF_RATIO,    // part of a whole since the sample before, per cent
    DKPF_LEVEL,    // gauge of the current sample; total: sum
    DKPF_PEAK,     // peak of the current sample; total: largest
    DKPF_AVERAGE,  // per piece since the sample before, rounded up
    DKPF_DELTA,    // growth since the sample before; total: sum
    DKPF_RATE,     // growth per second since the sample before, rounded up
} DKPF_KIND;

typedef struct _DKPF_COUNTER {
    DKPF_KIND   kind;
    BYTE        row;    // of instance, of maxinstance for a peak; ratio: the whole, average: the dividend
    BYTE        row2;   // of instance; ratio: the part, average: the divisor; otherwise not used
    signed char scale;  // power of ten by which viewers draw the value
} DKPF_COUNTER;

/* Formulas: level and peak show the row; ratio, average and rate are the routines below over both samples. */
constexpr DKPF_COUNTER g_aCounter[] = {
    //  kind      row row2 scale
    { DKPF_RATIO, 1, 2, 0 },      // 0   Transfer Ratio %
    { DKPF_LEVEL, 7, 0, -5 },     // 1   Request Queue Bytes
    { DKPF_PEAK, 3, 0, -5 },      // 2   Request Queue Bytes Peak
    { DKPF_LEVEL, 9, 0, -5 },     // 3   Unsynchronized Bytes
    { DKPF_PEAK, 5, 0, -5 },      // 4   Unsynchronized Bytes Peak
    { DKPF_AVERAGE, 10, 11, 2 },  // 5   Avg. us/Transfer
    { DKPF_PEAK, 6, 0, 2 },       // 6   Max. us/Transfer
    { DKPF_LEVEL, 5, 0, -5 },     // 7   Send Queue Bytes
    { DKPF_PEAK, 1, 0, -5 },      // 8   Send Queue Bytes Peak
    { DKPF_LEVEL, 6, 0, -5 },     // 9   History Buffer Bytes
    { DKPF_PEAK, 2, 0, -5 },      // 10  History Buffer Bytes Peak
    { DKPF_DELTA, 0, 0, -6 },     // 11  Write Bytes
    { DKPF_RATE, 0, 0, -6 },      // 12  Write Bytes/sec
    { DKPF_LEVEL, 8, 0, -5 },     // 13  Transfer Memory Bytes
    { DKPF_PEAK, 4, 0, -5 },      // 14  Transfer Memory Bytes Peak
    { DKPF_AVERAGE, 3, 4, 0 },    // 15  Avg. us/Write
    { DKPF_PEAK, 0, 0, 0 },       // 16  Max. us/Write
};
static_assert(ARRAYSIZE(g_aCounter) == DKPF_COUNTER_NUM, "one line per counter");

/* Bit b of collect_param shows counter g_aColumn[b]. Bits 11 and 12 are crossed for good: titles and values both go
 * through this table, so a column never pairs one counter's title with another's value. */
constexpr BYTE g_aColumn[] = { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 11, 13, 14, 15, 16 };
static_assert(ARRAYSIZE(g_aColumn) == DKPF_COUNTER_NUM, "one column per counter");

/* ---- Raw columns ------------------------------------------------------------------------------------------------- */

typedef struct _DKPF_RAWCOLUMN {
    BYTE string;  // message string of the title
    bool bPeak;   // row of maxinstance, otherwise of instance
    BYTE row;
} DKPF_RAWCOLUMN;

/* Columns of the raw files in their order. */
constexpr DKPF_RAWCOLUMN g_aRawColumn[] = {
    { 17, false, 0 }, { 20, false, 1 },  { 21, false, 2 }, { 22, false, 3 },  { 23, true, 0 },
    { 24, false, 4 }, { 25, false, 5 },  { 26, true, 1 },  { 27, false, 6 },  { 28, true, 2 },
    { 29, false, 7 }, { 30, true, 3 },   { 31, false, 8 }, { 32, true, 4 },   { 33, false, 9 },
    { 34, true, 5 },  { 35, false, 10 }, { 36, true, 6 },  { 37, false, 11 },
};
static_assert(ARRAYSIZE(g_aRawColumn) == DKPF_RAWTOTAL_NUM, "one line per raw column");

/* Slot of the raw total record that belongs to a raw column: sums first, then peaks. */
constexpr DWORD _DkpfRawTotalSlot(const DKPF_RAWCOLUMN& column)
{
    return column.bPeak ? DKPF_PARAM_NUM + column.row : column.row;
}

/* Message strings that are no counter's title. */
constexpr DWORD DKPF_STRING_TIMESTAMP = 38;  // title of the first column
constexpr DWORD DKPF_STRING_NMP = 39;        // instance name of a mirror disk, before its number
constexpr DWORD DKPF_STRING_TOTAL = 40;      // instance name of the total

constexpr char DKPF_OBJECT_NAME[] = "Cluster Disk Resource Performance";

/* ---- Formulas ---------------------------------------------------------------------------------------------------- */

/* Quotient rounded up. */
inline ULONGLONG _DkpfCeilDiv(ULONGLONG dividend, ULONGLONG divisor)
{
    return dividend / divisor + (dividend % divisor != 0 ? 1 : 0);
}

/* Part (b) of a whole (a) between two samples, per cent: 100 where either did not move, never 0. Differences and the
 * product wrap; nobody tests that the values grew. */
inline ULONGLONG _DkpfRatio(ULONGLONG a0, ULONGLONG b0, ULONGLONG a1, ULONGLONG b1)
{
    ULONGLONG percent = 0;

    if (a1 == a0 || b1 == b0) {
        return 100;
    }
    percent = ((b1 - b0) * 100) / (a1 - a0);
    return percent == 0 ? 1 : percent;
}

/* Growth of a per piece of b between two samples, rounded up; 0 where b stood still or went back. A dividend that went
 * back wraps. */
inline ULONGLONG _DkpfAverage(ULONGLONG a0, ULONGLONG b0, ULONGLONG a1, ULONGLONG b1)
{
    if (b1 <= b0) {
        return 0;
    }
    return _DkpfCeilDiv(a1 - a0, b1 - b0);
}

/* Growth of a per second between two samples, rounded up; t in ms of the tick count, whose wrap does no harm. 0 where a
 * went back or no time passed. The product may wrap. */
inline ULONGLONG _DkpfRate(ULONGLONG a0, DWORD t0, ULONGLONG a1, DWORD t1)
{
    DWORD elapsed = t1 - t0;

    if (a1 < a0 || elapsed == 0) {
        return 0;
    }
    return _DkpfCeilDiv((a1 - a0) * 1000, elapsed);
}

#endif
