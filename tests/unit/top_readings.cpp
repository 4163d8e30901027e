#include "unit/top_readings.h"

using namespace dkpf;

static ReadingRow Row(int disk, ULONGLONG value)
{
    ReadingRow row;
    row.disk = disk;
    row.name = disk == 0 ? "_Total" : "NMP" + std::to_string(disk);
    row.cells.fill({ CellKind::Value, value });
    return row;
}

Reading SampleOf()
{
    Reading reading;
    reading.state = ReadingState::Fresh;
    reading.sampleTime = SYSTEMTIME{ 2026, 3, 6, 7, 14, 5, 9, 42 };
    reading.ageMs = 480;
    reading.ageLimitMs = 25000;
    reading.coveredMs = 10016;
    reading.peakMs = 10000;
    reading.collectIntervalS = 10;
    reading.pollsMissedTotal = 3;
    return reading;
}

Reading ThreeDisks()
{
    Reading         reading = SampleOf();
    ReadingRow      total = Row(0, 0);
    const ULONGLONG values[] = { 42,
                                 0,
                                 512,
                                 1048575,
                                 10737418240,
                                 999,
                                 1000,
                                 1023,
                                 1024,
                                 153600,
                                 1099511627776,
                                 31457280,
                                 3145728,
                                 65536,
                                 18446744073709551615u,
                                 1234,
                                 2500000 };
    for (size_t i = 0; i < DKPF_COUNTER_NUM; i++)
        total.cells[i].value = values[i];
    ReadingRow zero = Row(1, 0);
    zero.cells[0].value = 100;
    ReadingRow idle = Row(7, 7);
    for (size_t i : { 0u, 5u, 15u })
        idle.cells[i].kind = CellKind::Idle;
    ReadingRow come = Row(64, 64);
    for (size_t i : { 0u, 5u, 11u, 12u, 15u })
        come.cells[i].kind = CellKind::ComeOrGone;
    reading.rows = { total, zero, idle, come };
    return reading;
}

Reading AllDisks()
{
    Reading reading = SampleOf();
    for (int disk = 0; disk <= 64; disk++) {
        reading.rows.push_back(Row(disk, 0));
        for (size_t i = 0; i < DKPF_COUNTER_NUM; i++)
            reading.rows.back().cells[i].value = static_cast<ULONGLONG>(1000 * disk) + i;
    }
    return reading;
}

Reading UnavailableBecause(const std::string& words)
{
    Reading reading;
    reading.words = words;
    return reading;
}

CounterNames NamesFromSystem()
{
    CounterNames names;
    names.object = "Cluster Disk Resource Performance";
    names.fromSystem = true;
    return names;
}

CounterNames NamesFromTable()
{
    CounterNames names = NamesFromSystem();
    names.fromSystem = false;
    return names;
}
