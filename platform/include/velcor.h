/*
 * velcor: control device of the mirror-disk driver, as the driver and everybody who talks to it see it.
 *
 * The driver and the disk filter both keep one performance record of this layout. VELCOR_GET_PERFORMANCE is the
 * production request; the private codes exist in the simulated driver alone. The header needs nothing of windows.h or
 * ntddk.h, so that driver and programs share it.
 */
#ifndef VELCOR_H
#define VELCOR_H

#include <stddef.h>

#define VELCOR_SERVICE_NAME "velcor"
#define VELCOR_DEVICE_PATH "\\\\.\\VELCOR_CTRL"
#define VELCOR_DEVICE_TYPE 0x9F8Fu
#define VELCOR_CODE(function, access) \
    ((VELCOR_DEVICE_TYPE << 16) | ((access) << 14) | ((function) << 2)) /* METHOD_BUFFERED */

/* In and out: VELCOR_EXCHANGE, both buffers at least that long. Resets the peaks of the driver's record: only the
 * collect thread sends it. Wrong words and scripted failures come back in the status word of a request that succeeds;
 * the record then is the caller's own, and no peak is reset. The request itself fails with ERROR_INSUFFICIENT_BUFFER
 * for a short buffer, ERROR_NOT_READY where VELCOR_FEED refuses it, and an error for good on a handle that is older
 * than the driver's last start. Never waits. */
#define VELCOR_GET_PERFORMANCE VELCOR_CODE(0x860u, 0u) /* 0x9F8F2180, any access */
/* In: VELCOR_FEED. Sets both records and the scripted failures. Needs a handle with write access (0x0002), or fails
 * with ERROR_ACCESS_DENIED; with ERROR_INSUFFICIENT_BUFFER where the feed is not whole. A failed feed changes nothing.
 */
#define VELCOR_PRIVATE_FEED VELCOR_CODE(0x861u, 2u)
/* In and out: VELCOR_FILTER_EXCHANGE. The filter's record, for the filter library; resets its peaks. As
 * VELCOR_GET_PERFORMANCE, but the status word of wrong words is ERROR_INVALID_PARAMETER, and it is never refused. */
#define VELCOR_PRIVATE_GET_FILTER VELCOR_CODE(0x862u, 0u)
/* Out: VELCOR_FED. When the values that stand there were fed; resets nothing, so anybody may ask. */
#define VELCOR_PRIVATE_GET_FED VELCOR_CODE(0x863u, 0u)

#define VELCOR_DISK_MAX 64u
#define VELCOR_REQUEST_HEADER 0x311u /* header word of every request */
#define VELCOR_RECORD_LENGTH 0x4008u /* length word of every request */

#define VELCOR_MODE_ASYNC 0u /* the filter holds the queues */
#define VELCOR_MODE_SYNC 1u  /* the driver holds the queues */
#define VELCOR_STATE_INITIALIZED 1u

/* Which of the two records holds the queues of a disk in that mode. A mode that is none counts as asynchronous here, so
 * that feeder and driver agree on where the numbers of such a disk go. */
#define VELCOR_DRIVER_HOLDS(mode) ((mode) == VELCOR_MODE_SYNC)

/* Status words in a reply; 0 is success. */
#define VELCOR_STATUS_BAD_HEADER 0xE9F80001u /* the header word is not VELCOR_REQUEST_HEADER */
#define VELCOR_STATUS_BAD_LENGTH 0xE9F80002u /* the length word is not VELCOR_RECORD_LENGTH */

/* One mirror disk. Sums run from the driver's start and wrap; "now" values are gauges; peaks cover the time since the
 * last request. Offsets 8, 32, 40, 48, 56, 64, 88 and 96 are counted by the filter in asynchronous and by the driver in
 * synchronous mode; all others by the driver alone. */
typedef struct VELCOR_ENTRY {
    unsigned int       mode;               /*   0  VELCOR_MODE_... */
    unsigned int       state;              /*   4  VELCOR_STATE_INITIALIZED, or the disk's values do not count */
    unsigned long long write_bytes;        /*   8  bytes written to the mirror disk, sum */
    unsigned long long handed_bytes;       /*  16  bytes handed over for transfer, sum */
    unsigned long long transfer_bytes;     /*  24  bytes really transferred, after reduction, sum */
    unsigned long long write_us;           /*  32  write response time, us, sum */
    unsigned long long write_us_max;       /*  40  longest write response time, us, peak */
    unsigned long long writes;             /*  48  number of writes, sum */
    unsigned long long send_queue;         /*  56  send queue, bytes, now */
    unsigned long long send_queue_peak;    /*  64 */
    unsigned long long history;            /*  72  history buffer, bytes, now */
    unsigned long long history_peak;       /*  80 */
    unsigned long long request_queue;      /*  88  request queue, bytes, now */
    unsigned long long request_queue_peak; /* 96 */
    unsigned long long memory;             /* 104  transfer memory in use, bytes, now */
    unsigned long long memory_peak;        /* 112 */
    unsigned long long unsynced;           /* 120  bytes not yet equal on both sides, now */
    unsigned long long unsynced_peak;      /* 128 */
    unsigned long long transfer_us;        /* 136  transfer response time, us, sum */
    unsigned long long transfer_us_max;    /* 144  longest transfer response time, us, peak */
    unsigned long long transfers;          /* 152  number of transfers, sum */
    unsigned char      unused[96];         /* 160 */
} VELCOR_ENTRY;

typedef struct VELCOR_RECORD {
    unsigned long long header; /* VELCOR_REQUEST_HEADER, set by the caller before each request */
    VELCOR_ENTRY       entry[VELCOR_DISK_MAX];
} VELCOR_RECORD;

typedef struct VELCOR_EXCHANGE {
    unsigned int  status; /* out: 0, or the driver's error word */
    unsigned int  length; /* in: VELCOR_RECORD_LENGTH */
    VELCOR_RECORD record;
} VELCOR_EXCHANGE;

/* The filter library's exchange: the same form, where the status is a Win32 error number. */
typedef VELCOR_EXCHANGE VELCOR_FILTER_EXCHANGE;

/* What the feeder hands over, once a second or step. Peaks in the records are those of the fed interval: the driver
 * keeps the larger of them and what stands there since the last request. A peak that follows the mode (offsets 40, 64,
 * 96) is compared with that of the record which held the queues before. A disk that is not, or was not, initialised
 * keeps none. */
typedef struct VELCOR_FEED {
    unsigned int  driver_status; /* status word of the next replies, without a record; 0 as usual */
    unsigned int  refuse;        /* not 0: VELCOR_GET_PERFORMANCE itself is refused (STATUS_DEVICE_NOT_READY) */
    unsigned int  filter_error;  /* not 0: Win32 error number that the filter library answers */
    unsigned int  tick;          /* GetTickCount() at the feed, ms; for VELCOR_PRIVATE_GET_FED */
    VELCOR_RECORD driver;
    VELCOR_RECORD filter;
} VELCOR_FEED;

/* About the last feed. Its age is the difference of ticks, 32 bits wide: right for 49.7 days. */
typedef struct VELCOR_FED {
    unsigned int feeds; /* since the driver's start; 0: none yet */
    unsigned int tick;  /* that of the last one */
} VELCOR_FED;

/* Driver, feeder and collect thread are built apart: each length and place is the same in all, or nothing builds. */
#ifdef __cplusplus
#define VELCOR_ASSERT(condition) static_assert(condition, "device format")
#else
#define VELCOR_ASSERT(condition) _Static_assert(condition, "device format")
#endif
#define VELCOR_AT(record, field, offset) VELCOR_ASSERT(offsetof(record, field) == (offset))

VELCOR_ASSERT(VELCOR_GET_PERFORMANCE == 0x9F8F2180u);
VELCOR_ASSERT(VELCOR_PRIVATE_FEED == 0x9F8FA184u);
VELCOR_ASSERT(VELCOR_PRIVATE_GET_FILTER == 0x9F8F2188u);
VELCOR_ASSERT(VELCOR_PRIVATE_GET_FED == 0x9F8F218Cu);
VELCOR_ASSERT(sizeof(VELCOR_ENTRY) == 256);
VELCOR_AT(VELCOR_ENTRY, mode, 0);
VELCOR_AT(VELCOR_ENTRY, state, 4);
VELCOR_AT(VELCOR_ENTRY, write_bytes, 8);
VELCOR_AT(VELCOR_ENTRY, handed_bytes, 16);
VELCOR_AT(VELCOR_ENTRY, transfer_bytes, 24);
VELCOR_AT(VELCOR_ENTRY, write_us, 32);
VELCOR_AT(VELCOR_ENTRY, write_us_max, 40);
VELCOR_AT(VELCOR_ENTRY, writes, 48);
VELCOR_AT(VELCOR_ENTRY, send_queue, 56);
VELCOR_AT(VELCOR_ENTRY, send_queue_peak, 64);
VELCOR_AT(VELCOR_ENTRY, history, 72);
VELCOR_AT(VELCOR_ENTRY, history_peak, 80);
VELCOR_AT(VELCOR_ENTRY, request_queue, 88);
VELCOR_AT(VELCOR_ENTRY, request_queue_peak, 96);
VELCOR_AT(VELCOR_ENTRY, memory, 104);
VELCOR_AT(VELCOR_ENTRY, memory_peak, 112);
VELCOR_AT(VELCOR_ENTRY, unsynced, 120);
VELCOR_AT(VELCOR_ENTRY, unsynced_peak, 128);
VELCOR_AT(VELCOR_ENTRY, transfer_us, 136);
VELCOR_AT(VELCOR_ENTRY, transfer_us_max, 144);
VELCOR_AT(VELCOR_ENTRY, transfers, 152);
VELCOR_ASSERT(sizeof(VELCOR_RECORD) == VELCOR_RECORD_LENGTH);
VELCOR_AT(VELCOR_RECORD, entry, 8);
VELCOR_ASSERT(sizeof(VELCOR_EXCHANGE) == 0x4010);
VELCOR_AT(VELCOR_EXCHANGE, length, 4);
VELCOR_AT(VELCOR_EXCHANGE, record, 8);
VELCOR_ASSERT(sizeof(VELCOR_FEED) == 0x8020);
VELCOR_AT(VELCOR_FEED, driver, 16);
VELCOR_AT(VELCOR_FEED, filter, 16 + 0x4008);
VELCOR_ASSERT(sizeof(VELCOR_FED) == 8);

#endif
