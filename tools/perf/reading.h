/*
 * One interval of our performance object, as query and top show it: values of the Performance Library together with
 * what the shared region says about the samples behind them, so that a value that is old, a disk that has just come or
 * gone, and a disk without work never look like a measured 0.
 */
#ifndef DKPF_TOOLS_READING_H
#define DKPF_TOOLS_READING_H

#include <windows.h>
#include <array>
#include <string>
#include <vector>

#include "diskperf.h"

namespace dkpf {

enum class CellKind {
    Value,      // measured
    Idle,       // ratio or average of an interval in which nothing was written or transferred
    ComeOrGone  // the disk (for the total: any disk) came or went in the interval: a difference means nothing
};

struct Cell {
    CellKind  kind = CellKind::Value;
    ULONGLONG value = 0;  // only with Value
};

struct ReadingRow {
    int                                disk = 0;  // 0: the total, 1 to 64
    std::string                        name;      // of the instance: "_Total", "NMP7"
    std::array<Cell, DKPF_COUNTER_NUM> cells{};   // in the order of the counters
};

enum class ReadingState {
    Fresh,       // rows belong to a sample that was not read before
    Stale,       // no new sample since the last reading: rows are the last ones, and old
    Unavailable  // nothing can be read: words say why and what to do
};

struct Reading {
    ReadingState            state = ReadingState::Unavailable;
    std::string             words;         // where not Fresh: one sentence without a period
    std::vector<ReadingRow> rows;          // the total first, then the disks present, by number
    SYSTEMTIME              sampleTime{};  // local time of the sample; wDay 0: none yet
    DWORD                   ageMs = 0;     // of the sample when it was read
    DWORD ageLimitMs = 0;                  // an older sample is dead: two collect intervals, and 5 s for a busy machine
    DWORD coveredMs = 0;                   // between the two samples behind rows
    DWORD peakMs = 0;                      // time the peaks cover: since this reader's read before
    DWORD collectIntervalS = 0;
    DWORD pollsMissed = 0;        // samples that are due and have not come, as of now
    DWORD pollsMissedTotal = 0;   // since this reader started
    bool  attachedAgain = false;  // the producer was started again; the first interval after it
};

/* Title, help text and default scale of one counter, from the system's tables or the installed one. */
struct CounterName {
    DWORD       index = 0;  // title index
    std::string name;       // empty where neither table has it
    std::string help;
    int         scale = 0;  // power of ten by which viewers draw the value
};

struct CounterNames {
    DWORD                    objectIndex = 0;  // title index
    std::string              object;
    std::string              objectHelp;
    std::vector<CounterName> counters;            // in the order of the counters
    bool                     fromSystem = false;  // FALSE: from HOME/etc/tnwdiskperf.ini, since the system has no names
};

/* A reader of the object; query and top hold one. A test passes its own. */
class ReadingSource {
public:
    virtual ~ReadingSource() = default;
    /* Reads once, without waiting for a new sample. May block 2 s on the region's mutex. */
    virtual Reading Next() = 0;
    /* Known after the first reading that is not Unavailable. */
    virtual const CounterNames& Names() const = 0;
};

}  // namespace dkpf

#endif
