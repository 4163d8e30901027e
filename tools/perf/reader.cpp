#include "reader.h"

#include <fmt/format.h>
#include <algorithm>
#include <cstring>

#include "diskperf_counter.h"
#include "process_info.h"
#include "text.h"

namespace dkpf {

/* Samples are this much late on a busy machine before one counts as missed, ms. */
static constexpr DWORD MISSED_TOLERANCE_MS = 1000;
/* A sample that comes while the provider opens leaves it open which of two the baseline is. */
static constexpr int ATTACH_TRIES = 3;

static constexpr char WAITING_WORDS[] = "waiting for the first interval";

std::string DeadSampleWords(const Reading& reading)
{
    return fmt::format("the last sample is {} old, over the limit of {}: the disk agent does not collect (dkpfctl "
                       "status)",
                       AgeText(reading.ageMs), AgeText(reading.ageLimitMs));
}

ReaderPorts SystemReader(const Home& home)
{
    const auto  hold = std::make_shared<ProviderHold>();
    ReaderPorts ports;
    ports.region = [] { return ReadRegion(); };
    ports.open = [hold] { return hold->Open(); };
    ports.values = [hold] { return hold->Values(); };
    ports.query = [](const std::wstring& query) { return QueryPerformanceData(query); };
    ports.names = [home] { return ReadNameSources(home); };
    ports.alive = [](DWORD pid) { return LookAtProcess(pid, 0) == ProcessLife::Alive; };
    ports.ownPid = GetCurrentProcessId();
    return ports;
}

PerformanceReader::PerformanceReader(ReaderPorts ports) : m_ports(std::move(ports))
{
}

const CounterNames& PerformanceReader::Names() const
{
    return m_names;
}

bool PerformanceReader::Waiting() const
{
    return m_waiting;
}

bool PerformanceReader::Sample::Is(const Sample& other) const
{
    return tick == other.tick && std::memcmp(&time, &other.time, sizeof(time)) == 0;
}

ULONGLONG PerformanceReader::Sample::Value(size_t row, size_t slot) const
{
    return rows[row].inst_sub[slot].value;
}

/* ---- The region -------------------------------------------------------------------------------------------------- */

PerformanceReader::LookResult PerformanceReader::LookAtRegion()
{
    LookResult look;
    look.copy = m_ports.region();
    if (look.copy.status != RegionStatus::Copied)
        return look;
    look.view = ViewRegion(*look.copy.info, look.copy.tick);
    if (!look.view.hasSample)
        return look;
    look.sample.tick = look.view.sampleTick;
    look.sample.time = look.view.localTime;
    for (const int disk : look.view.disks)
        look.sample.present.set(static_cast<size_t>(disk) - 1);
    std::copy(std::begin(look.copy.info->instance), std::end(look.copy.info->instance), look.sample.rows.begin());
    m_always &= look.sample.present;
    m_ever |= look.sample.present;
    return look;
}

bool PerformanceReader::Attached(const RegionView& view) const
{
    return std::find(view.owners.begin() + 1, view.owners.end(), m_ports.ownPid) != view.owners.end();
}

/* An open sweeps the rows of dead readers, so only living ones fill the table. It is not tried then: each refused open
 * writes an entry of the event log. */
bool PerformanceReader::TableFull(const RegionView& view) const
{
    return std::all_of(view.owners.begin() + 1, view.owners.end(),
                       [this](DWORD pid) { return pid != 0 && pid != m_ports.ownPid && m_ports.alive(pid); });
}

void PerformanceReader::Look()
{
    const LookResult look = LookAtRegion();
    if (look.copy.status == RegionStatus::Copied)
        NoteRestart(look.view);
    m_attached = m_attached && (look.copy.status == RegionStatus::Busy || look.view.hasSample);
}

/* A producer that starts makes the table anew, and our row is lost. */
void PerformanceReader::NoteRestart(const RegionView& view)
{
    if (!m_opened || Attached(view))
        return;
    m_attached = false;
    m_again = true;
}

/* ---- Readings ---------------------------------------------------------------------------------------------------- */

/* Samples that are due and have not come. Those of one stall count once. */
void PerformanceReader::CountMissed(const LookResult& look, Reading* reading)
{
    if (look.view.hasSample) {
        const DWORD interval = reading->collectIntervalS * 1000;
        if (m_missedTick != look.sample.tick)
            m_missed = 0;
        m_missedTick = look.sample.tick;
        reading->pollsMissed = look.view.ageMs <= interval + MISSED_TOLERANCE_MS ? 0 : look.view.ageMs / interval;
        if (reading->pollsMissed > m_missed) {
            m_missedTotal += reading->pollsMissed - m_missed;
            m_missed = reading->pollsMissed;
        }
    }
    reading->pollsMissedTotal = m_missedTotal;
}

/* What the region says about its sample; the rest as of a reading that could not be taken. */
Reading PerformanceReader::NewReading(const LookResult& look)
{
    Reading reading;
    if (look.copy.status == RegionStatus::Copied) {
        reading.collectIntervalS = BoundedIntervalS(look.view.published[COLLECT_INTERVAL]);
        reading.ageLimitMs = SampleAgeLimitMs(reading.collectIntervalS);
    }
    if (look.view.hasSample) {
        reading.sampleTime = look.sample.time;
        reading.ageMs = look.view.ageMs;
    }
    CountMissed(look, &reading);
    return reading;
}

Reading PerformanceReader::Unavailable(const LookResult& look, std::string words)
{
    Reading reading = NewReading(look);
    reading.words = std::move(words);
    if (look.copy.status == RegionStatus::Absent)
        reading.words += " (net start dkpfagent)";
    return reading;
}

Reading PerformanceReader::Next()
{
    LookResult look = LookAtRegion();
    m_waiting = false;
    if (look.copy.status != RegionStatus::Copied) {
        // Somebody who holds the mutex for long takes nothing away from us.
        m_attached = m_attached && look.copy.status == RegionStatus::Busy;
        return Unavailable(look, look.copy.words);
    }
    NoteRestart(look.view);
    if (!look.view.hasSample) {
        m_attached = false;
        return Unavailable(look, look.view.published[PERF_ENABLE] == 0
                                     ? "collection is switched off: perfenable is 0 in the configuration"
                                     : "there is no sample: the disk agent has stopped or has not collected yet "
                                       "(dkpfctl status)");
    }
    if (!m_attached)
        return Attach(std::move(look));
    return look.sample.Is(m_baseline) ? NoNewSample(look) : Collect(look);
}

/* Attaches with a known baseline: the one sample that is there before and after the open. */
Reading PerformanceReader::Attach(LookResult look)
{
    m_last = Reading();
    for (int tries = ATTACH_TRIES;; tries--) {
        if (TableFull(look.view))
            return Unavailable(look,
                               "32 readers are attached already, and there are no more consumer rows (dkpfctl dump "
                               "--rows names their processes)");
        m_always = m_ever = look.sample.present;
        const ProviderOpen opened = m_ports.open();
        m_opened = opened.opened;
        if (!m_opened)
            return Unavailable(look, opened.words);
        LookResult after = LookAtRegion();
        if (after.copy.status != RegionStatus::Copied || !after.view.hasSample)
            return Unavailable(after, after.copy.status != RegionStatus::Copied ? after.copy.words
                                                                                : "the sample has just gone");
        const bool same = after.sample.Is(look.sample);
        look = std::move(after);
        if (same || tries == 1)
            break;
    }
    const ProviderValues values = m_ports.values();
    m_names = NamesOf(m_ports.names(), values.firstCounter, values.firstHelp);
    m_baseline = look.sample;
    m_readTick = look.copy.tick;
    m_attached = true;
    return NoNewSample(look);
}

Reading PerformanceReader::NoNewSample(const LookResult& look)
{
    const Reading now = NewReading(look);
    Reading       reading = m_last;
    reading.ageMs = now.ageMs;
    reading.ageLimitMs = now.ageLimitMs;
    reading.sampleTime = now.sampleTime;
    reading.collectIntervalS = now.collectIntervalS;
    reading.pollsMissed = now.pollsMissed;
    reading.pollsMissedTotal = now.pollsMissedTotal;
    m_waiting = m_last.rows.empty();
    reading.state = m_waiting ? ReadingState::Unavailable : ReadingState::Stale;
    if (now.ageMs > now.ageLimitMs) {
        reading.words = DeadSampleWords(now);
    } else if (m_waiting) {
        reading.words = m_again ? fmt::format("the disk agent was started again: {}", WAITING_WORDS) : WAITING_WORDS;
    } else {
        reading.words = fmt::format("no new sample yet, the last one is {} old", AgeText(now.ageMs));
    }
    return reading;
}

/* ---- Values ------------------------------------------------------------------------------------------------------ */

static constexpr char CURE[] = ": dkpfctl doctor says what to do";

/* Our object of the answer; otherwise the words that say why not, and what to do. */
std::string PerformanceReader::FindObject(const PerfQueryResult& answer, PerfObject* object) const
{
    if (answer.error != ERROR_SUCCESS)
        return "the Performance Library answers " + SystemErrorText(answer.error) + CURE;
    PerfBlock  block = WalkPerfBlock(answer.data.data(), answer.data.size());
    const auto found = std::find_if(block.objects.begin(), block.objects.end(), [this](const PerfObject& each) {
        return each.nameIndex == m_ports.values().firstCounter;
    });
    if (found == block.objects.end() && !block.damage.empty())
        return fmt::format("the Performance Library answers a damaged block ({}){}", block.damage, CURE);
    if (found == block.objects.end())
        return fmt::format("the Performance Library has no values of our object, since the provider refused or the "
                           "system has switched it off{}",
                           CURE);
    *object = std::move(*found);
    if (object->instances.size() != DKPF_ROW_NUM || object->counters.size() != DKPF_COUNTER_NUM)
        return fmt::format(
            "our object has {} instances and {} counters instead of {} and {}, since provider and tool are of "
            "different versions{}",
            object->instances.size(), object->counters.size(), DKPF_ROW_NUM, DKPF_COUNTER_NUM, CURE);
    return std::string();
}

/* Whether the object's values are those between the baseline and this sample. Peaks say nothing here: they are the
 * reader's own. */
bool PerformanceReader::Shows(const PerfObject& object, const Sample& sample) const
{
    for (size_t slot = 0; slot < DKPF_NMP_MAX; slot++) {
        for (size_t i = 0; i < DKPF_COUNTER_NUM; i++) {
            const DKPF_COUNTER& counter = g_aCounter[i];
            const ULONGLONG     a0 = m_baseline.Value(counter.row, slot), a1 = sample.Value(counter.row, slot);
            const ULONGLONG     b0 = m_baseline.Value(counter.row2, slot), b1 = sample.Value(counter.row2, slot);
            ULONGLONG           expected = 0;
            switch (counter.kind) {
            case DKPF_RATIO:
                expected = _DkpfRatio(a0, b0, a1, b1);
                break;
            case DKPF_LEVEL:
                expected = a1;
                break;
            case DKPF_AVERAGE:
                expected = _DkpfAverage(a0, b0, a1, b1);
                break;
            case DKPF_DELTA:
                expected = a1 - a0;
                break;
            case DKPF_RATE:
                expected = _DkpfRate(a0, m_baseline.tick, a1, sample.tick);
                break;
            case DKPF_PEAK:
                continue;
            }
            if (object.instances[1 + slot].values[i] != expected)
                return false;
        }
    }
    return true;
}

/* No disk of slots did in the interval what the counter measures. */
bool PerformanceReader::Idle(const Sample& now, size_t counter, const DiskSet& slots) const
{
    const DKPF_COUNTER& is = g_aCounter[counter];
    if (is.kind != DKPF_RATIO && is.kind != DKPF_AVERAGE)
        return false;
    bool moved = false, moved2 = false;
    for (size_t slot = 0; slot < slots.size(); slot++) {
        if (slots[slot]) {
            moved = moved || now.Value(is.row, slot) != m_baseline.Value(is.row, slot);
            moved2 = moved2 || now.Value(is.row2, slot) != m_baseline.Value(is.row2, slot);
        }
    }
    // A ratio without one of its two sides is 100 by definition, an average without pieces 0.
    return is.kind == DKPF_RATIO ? !moved || !moved2 : !moved2;
}

static bool IsDifference(DKPF_KIND kind)
{
    return kind != DKPF_LEVEL && kind != DKPF_PEAK;
}

ReadingRow PerformanceReader::Row(const PerfObject& object, const Sample& now, size_t instance) const
{
    ReadingRow row;
    DiskSet    slots = now.present;
    bool       changed = m_always != m_ever;
    if (instance != 0) {
        slots.reset();
        slots.set(instance - 1);
        changed = !m_always[instance - 1];
    }
    row.disk = static_cast<int>(instance);
    row.name = Narrow(object.instances[instance].name);
    for (size_t i = 0; i < DKPF_COUNTER_NUM; i++) {
        if (changed && IsDifference(g_aCounter[i].kind))
            row.cells[i].kind = CellKind::ComeOrGone;
        else if (Idle(now, i, slots))
            row.cells[i].kind = CellKind::Idle;
        else
            row.cells[i].value = object.instances[instance].values[i];
    }
    return row;
}

/* One query, between two copies of the region that say which sample it shows. What goes wrong here may have moved the
 * provider's baseline, so the reader then attaches anew. */
Reading PerformanceReader::Collect(const LookResult& look)
{
    PerfObject            object;
    const PerfQueryResult answer = m_ports.query(std::to_wstring(m_ports.values().firstCounter));
    const LookResult      after = LookAtRegion();
    const std::string     fault = FindObject(answer, &object);
    const std::string     regionFault = after.copy.status != RegionStatus::Copied ? after.copy.words
                                        : !after.view.hasSample                   ? "the sample has just gone"
                                                                                  : std::string();
    m_attached = false;
    if (!fault.empty() || !regionFault.empty())
        return Unavailable(regionFault.empty() ? after : look, fault.empty() ? regionFault : fault);
    if (!Attached(after.view)) {
        NoteRestart(after.view);
        return Unavailable(after, "the disk agent was started again");
    }

    // Where both fit, they differ in nothing that is shown, and the next reading shows what the other one adds. Where
    // none fits, more samples came than were seen; the newest cannot be read a second time as an interval of no time.
    const Sample now = Shows(object, look.sample) ? look.sample : after.sample;
    Reading      reading = NewReading(after);
    reading.state = ReadingState::Fresh;
    reading.sampleTime = now.time;
    reading.ageMs = after.copy.tick - now.tick;
    reading.coveredMs = now.tick - m_baseline.tick;
    reading.peakMs = after.copy.tick - m_readTick;
    reading.attachedAgain = m_again;
    for (size_t instance = 0; instance < DKPF_ROW_NUM; instance++) {
        if (instance == 0 || now.present[instance - 1])
            reading.rows.push_back(Row(object, now, instance));
    }
    for (size_t i = 0; i < DKPF_COUNTER_NUM; i++)
        m_names.counters[i].scale = static_cast<int>(object.counters[i].scale);

    m_attached = true;
    m_again = false;
    m_baseline = now;
    m_readTick = after.copy.tick;
    m_always = look.sample.present & after.sample.present;
    m_ever = look.sample.present | after.sample.present;
    m_last = reading;
    return reading;
}

}  // namespace dkpf
