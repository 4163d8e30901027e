/*
 * The reader of our performance object: values through the Performance Library, and from copies of the shared region
 * what the samples behind them are worth.
 */
#ifndef DKPF_TOOLS_READER_H
#define DKPF_TOOLS_READER_H

#include <bitset>
#include <functional>
#include <memory>

#include "perf_block.h"
#include "perf_names.h"
#include "perf_query.h"
#include "provider_hold.h"
#include "reading.h"
#include "region_reader.h"
#include "region_view.h"

namespace dkpf {

/* What a reader asks of the machine; a test scripts it. */
struct ReaderPorts {
    std::function<RegionCopy()>                         region;
    std::function<ProviderOpen()>                       open;    // attaches anew
    std::function<ProviderValues()>                     values;  // of the provider; after an open that succeeded
    std::function<PerfQueryResult(const std::wstring&)> query;
    std::function<NameSources()>                        names;
    std::function<bool(DWORD)>                          alive;  // whether the process with this number lives
    DWORD                                               ownPid = 0;
};

/* The machine's own; holds the provider open for as long as the ports live. */
ReaderPorts SystemReader(const Home& home);

/* Of a reading whose sample is older than its limit. */
std::string DeadSampleWords(const Reading& reading);

/* What a command that waits for an interval needs beside the readings. */
class IntervalSource : public ReadingSource {
public:
    /* Notes which disks are present, without reading values: a disk that comes and goes between two readings is then
     * seen. May block like Next(). */
    virtual void Look() = 0;
    /* After a reading that is Unavailable: all is well, and the first interval has only begun. */
    virtual bool Waiting() const = 0;
};

class PerformanceReader : public IntervalSource {
public:
    explicit PerformanceReader(ReaderPorts ports);

    Reading             Next() override;
    const CounterNames& Names() const override;
    void                Look() override;
    bool                Waiting() const override;

private:
    using DiskSet = std::bitset<DKPF_NMP_MAX>;

    /* What the readings need of one sample in the region. */
    struct Sample {
        DWORD                                     tick = 0;
        SYSTEMTIME                                time{};
        DiskSet                                   present;
        std::array<DKPF_INSTANCE, DKPF_PARAM_NUM> rows{};

        bool      Is(const Sample& other) const;
        ULONGLONG Value(size_t row, size_t slot) const;
    };

    struct LookResult {
        RegionCopy copy;
        RegionView view;
        Sample     sample;  // only where view.hasSample
    };

    LookResult  LookAtRegion();
    Reading     NewReading(const LookResult& look);
    Reading     Unavailable(const LookResult& look, std::string words);
    void        CountMissed(const LookResult& look, Reading* reading);
    bool        Attached(const RegionView& view) const;
    void        NoteRestart(const RegionView& view);
    bool        TableFull(const RegionView& view) const;
    Reading     Attach(LookResult look);
    Reading     NoNewSample(const LookResult& look);
    Reading     Collect(const LookResult& look);
    std::string FindObject(const PerfQueryResult& answer, PerfObject* object) const;
    bool        Shows(const PerfObject& object, const Sample& sample) const;
    bool        Idle(const Sample& now, size_t counter, const DiskSet& slots) const;
    ReadingRow  Row(const PerfObject& object, const Sample& now, size_t instance) const;

    ReaderPorts  m_ports;
    CounterNames m_names;
    bool         m_opened = false;    // the provider is held open
    bool         m_attached = false;  // and the baseline is known
    bool         m_waiting = false;
    bool         m_again = false;  // attached again, and no interval has been read since
    Sample       m_baseline;       // behind the provider's last read of ours
    DWORD        m_readTick = 0;   // when that was
    DiskSet      m_always;         // present in every copy since the first one of that read
    DiskSet      m_ever;           // present in any of them
    Reading      m_last;           // the last Fresh one since the attachment; without rows: none
    DWORD        m_missedTotal = 0;
    DWORD        m_missed = 0;  // of the sample that is there now, counted in the total already
    DWORD        m_missedTick = 0;
};

}  // namespace dkpf

#endif
