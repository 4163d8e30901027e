/*
 * Watches over the agent's end: says every second that it is still under way, and gives it up when it takes too long.
 * It counts from the moment at which the stop was asked for, whatever the agent was doing then.
 */
#ifndef DKPF_AGENT_STOP_WATCH_H
#define DKPF_AGENT_STOP_WATCH_H

#include <windows.h>
#include <string>

#include "agent_ports.h"

namespace dkpf {

inline constexpr DWORD STOP_LIMIT_MS = 310000;  // the library waits 300 s for its threads
inline constexpr DWORD STOP_STEP_MS = 1000;
inline constexpr DWORD STOP_HINT_MS = 5000;  // by when the next sign of life comes, for the service manager

class StopWatchPorts {
public:
    virtual ~StopWatchPorts() = default;
    virtual DWORD Tick() = 0;                           // GetTickCount, ms
    virtual bool  WaitEnd(DWORD limitMs) = 0;           // TRUE: the agent has come to its end
    virtual void  StillStopping(DWORD checkPoint) = 0;  // 1, 2, ...
    virtual void  GiveUp() = 0;                         // ends the process
};

inline constexpr DWORD LAST_LINE_MS = 1000;  // what the last line may cost a process that is to end

/* Writes a line in a thread of its own, and goes on without it when the time is over: the log's volume may hang. FALSE:
 * not written yet, or there is no thread. The journal must live on until the line is written, or the process ends. */
bool LineWithin(Journal& journal, DWORD level, const SourcePlace& place, const std::string& text, DWORD limitMs);

/* Call when the stop is asked for. Returns when the agent has ended, or behind GiveUp. */
void WatchStop(StopWatchPorts& ports);

}  // namespace dkpf

#endif
