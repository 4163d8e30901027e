#include "query_wait.h"

#include <fmt/format.h>

#include "region_view.h"

namespace dkpf {

static Reading Refused(Reading reading, std::string words)
{
    reading.state = ReadingState::Unavailable;
    reading.words = std::move(words);
    reading.rows.clear();
    return reading;
}

static void SayOnce(const WaitPorts& ports, DWORD since, const std::string& words, bool* said)
{
    if (!*said && ports.tick() - since > QUERY_QUIET_MS) {
        ports.say(words);
        *said = true;
    }
}

Reading ReadInterval(IntervalSource& source, DWORD intervalS, const WaitPorts& ports)
{
    const DWORD begin = ports.tick();
    bool        said = false;
    Reading     reading = source.Next();
    if (reading.state == ReadingState::Unavailable && !source.Waiting())
        return reading;

    while (intervalS != 0 && ports.tick() - begin < intervalS * 1000) {
        ports.wait(QUERY_STEP_MS);
        source.Look();
        SayOnce(ports, begin, fmt::format("reading over {} s", intervalS), &said);
    }
    const DWORD since = ports.tick();
    said = false;
    if (intervalS != 0)
        reading = source.Next();
    while (reading.state != ReadingState::Fresh) {
        if (reading.state == ReadingState::Unavailable && !source.Waiting())
            return reading;
        if (reading.ageMs > reading.ageLimitMs)
            break;
        if (ports.tick() - since > reading.ageLimitMs)
            return Refused(reading, fmt::format("no new sample came in {}", AgeText(reading.ageLimitMs)));
        SayOnce(ports, since,
                fmt::format("waiting for the next sample; one is taken every {} s", reading.collectIntervalS), &said);
        ports.wait(QUERY_STEP_MS);
        reading = source.Next();
    }
    // A Fresh one too: new to this reader may be what the agent left behind long ago.
    if (reading.ageMs > reading.ageLimitMs)
        return Refused(reading, DeadSampleWords(reading));
    return reading;
}

}  // namespace dkpf
