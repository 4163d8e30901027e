/*
 * Watches over the agent's end: says every second that it is still under way, and gives it up when it takes too long.
 * It counts from the moment at which the stop was asked for, whatever the agent was doing then.
 */
#ifndef DKPF_AGENT_STOP_WATCH_H
#define DKPF_AGENT_STOP_WATCH_H

#include <windows.h>

namespace dkpf {

inline constexpr DWORD STOP_LIMIT_MS = 310000;  // the library waits 300 s for its threads
inline constexpr DWORD STOP_STEP_MS = 1000;
inline constexpr DWORD STOP_HINT_MS = 5000;  // by when the next sign of life comes, for the service manager

class StopWatchPorts {
public:
    virtual ~StopWatchPorts() = default;
    virtual DWORD Tick() = 0;                           // GetTickCount, ms
    virtual bool  WaitEnd(DWORD limitMs) = 0;           // TRUE: the agent has come to its end
    virtual void  StillStopping(DWORD checkPoint) = 0;  // 1, 2, ...; returns within a second or so
    virtual void  GiveUp() = 0;                         // ends the process, within seconds
};

/* Call when the stop is asked for. Returns when the agent has ended, or behind GiveUp. */
void WatchStop(StopWatchPorts& ports);

}  // namespace dkpf

#endif
