#include "mirror_model.h"

#include <algorithm>
#include <stddef.h>

/* ---- The model ---- */

static unsigned long long RoundUp(unsigned long long bytes, unsigned long long unit)
{
    return (bytes / unit + (bytes % unit != 0)) * unit;
}

/* handed * ratio / 100 without leaving 64 bits; the remainder goes into the next step. */
static unsigned long long Reduce(unsigned long long handed, unsigned long long ratio, unsigned long long& carry)
{
    const unsigned long long rest = handed % 100 * ratio + carry;

    carry = rest % 100;
    return handed / 100 * ratio + rest / 100;
}

void Advance(MirrorDisk& disk, const Load& load, const Link& link)
{
    VELCOR_ENTRY&            n = disk.numbers;
    const unsigned long long waiting = n.send_queue + load.writeBytes;
    const unsigned long long handed = std::min(waiting, link.bytesPerStep);
    const unsigned long long transferred = Reduce(handed, link.ratio, disk.carry);
    const unsigned long long transfers = RoundUp(handed, TRANSFER_BLOCK) / TRANSFER_BLOCK;
    const unsigned long long lastHistory = n.history;
    const unsigned long long largest = std::min(handed, TRANSFER_BLOCK) * link.ratio / 100;

    n.write_bytes += load.writeBytes;
    n.write_us += load.writeUs;
    n.write_us_max = load.longestUs;
    n.writes += load.writes;
    n.send_queue = waiting - handed;
    n.send_queue_peak = waiting;
    n.handed_bytes += handed;
    n.transfer_bytes += transferred;
    n.history = handed;
    n.history_peak = std::max(lastHistory, handed);
    n.request_queue = load.requestBytes;
    n.request_queue_peak = load.requestBytes;
    n.memory = RoundUp(n.send_queue, TRANSFER_BLOCK);
    n.memory_peak = RoundUp(waiting, TRANSFER_BLOCK);
    n.unsynced = n.send_queue + n.history;
    n.unsynced_peak = waiting + lastHistory;
    n.transfers += transfers;
    n.transfer_us += transfers * link.transferUs + transferred / TRANSFER_BYTES_PER_US;
    n.transfer_us_max = transfers == 0 ? 0 : link.transferUs + largest / TRANSFER_BYTES_PER_US;
}

void StartAt(MirrorDisk& disk, unsigned long long writeBytes, unsigned long long writes, unsigned long long writeUs,
             const Link& link)
{
    VELCOR_ENTRY& n = disk.numbers;

    n.write_bytes = writeBytes;
    n.writes = writes;
    n.write_us = writeUs;
    n.handed_bytes = writeBytes;
    n.transfer_bytes = Reduce(writeBytes, link.ratio, disk.carry);
    n.transfers = RoundUp(writeBytes, TRANSFER_BLOCK) / TRANSFER_BLOCK;
    n.transfer_us = n.transfers * link.transferUs + n.transfer_bytes / TRANSFER_BYTES_PER_US;
}

/* ---- The records ---- */

enum class Kind {
    DriverAlone,  // counted by the driver in every mode
    Sum,          // counted by the record that holds the queues; the other keeps its share
    Gauge,        // shown by the record that holds the queues; the other keeps what it showed last
    Longest       // shown by the record that holds the queues; the other shows 0, since readers add the two
};

struct Field {
    size_t offset;
    Kind   kind;
};

static const Field g_fields[] = {
    { offsetof(VELCOR_ENTRY, write_bytes), Kind::Sum },
    { offsetof(VELCOR_ENTRY, handed_bytes), Kind::DriverAlone },
    { offsetof(VELCOR_ENTRY, transfer_bytes), Kind::DriverAlone },
    { offsetof(VELCOR_ENTRY, write_us), Kind::Sum },
    { offsetof(VELCOR_ENTRY, write_us_max), Kind::Longest },
    { offsetof(VELCOR_ENTRY, writes), Kind::Sum },
    { offsetof(VELCOR_ENTRY, send_queue), Kind::Gauge },
    { offsetof(VELCOR_ENTRY, send_queue_peak), Kind::Gauge },
    { offsetof(VELCOR_ENTRY, history), Kind::DriverAlone },
    { offsetof(VELCOR_ENTRY, history_peak), Kind::DriverAlone },
    { offsetof(VELCOR_ENTRY, request_queue), Kind::Gauge },
    { offsetof(VELCOR_ENTRY, request_queue_peak), Kind::Gauge },
    { offsetof(VELCOR_ENTRY, memory), Kind::DriverAlone },
    { offsetof(VELCOR_ENTRY, memory_peak), Kind::DriverAlone },
    { offsetof(VELCOR_ENTRY, unsynced), Kind::DriverAlone },
    { offsetof(VELCOR_ENTRY, unsynced_peak), Kind::DriverAlone },
    { offsetof(VELCOR_ENTRY, transfer_us), Kind::DriverAlone },
    { offsetof(VELCOR_ENTRY, transfer_us_max), Kind::DriverAlone },
    { offsetof(VELCOR_ENTRY, transfers), Kind::DriverAlone },
};
static_assert(sizeof(g_fields) / sizeof(g_fields[0]) == 19, "one line per number");

static unsigned long long& At(VELCOR_ENTRY& entry, size_t offset)
{
    return *reinterpret_cast<unsigned long long*>(reinterpret_cast<unsigned char*>(&entry) + offset);
}

void PutNumbers(const VELCOR_ENTRY& numbers, unsigned slot, VELCOR_FEED& feed)
{
    VELCOR_ENTRY  source = numbers;
    VELCOR_ENTRY& driver = feed.driver.entry[slot];
    VELCOR_ENTRY& filter = feed.filter.entry[slot];
    VELCOR_ENTRY& holder = VELCOR_DRIVER_HOLDS(numbers.mode) ? driver : filter;
    VELCOR_ENTRY& idle = VELCOR_DRIVER_HOLDS(numbers.mode) ? filter : driver;

    driver.mode = filter.mode = numbers.mode;
    driver.state = filter.state = numbers.state;
    for (const Field& field : g_fields) {
        const unsigned long long value = At(source, field.offset);
        switch (field.kind) {
        case Kind::DriverAlone:
            At(driver, field.offset) = value;
            break;
        case Kind::Sum:
            At(holder, field.offset) = value - At(idle, field.offset);
            break;
        case Kind::Gauge:
            At(holder, field.offset) = value;
            break;
        case Kind::Longest:
            At(holder, field.offset) = value;
            At(idle, field.offset) = 0;
            break;
        }
    }
}
