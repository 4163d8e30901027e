/*
 * The watch over the end of a real process. Nothing that it says can keep it: journal and front are spoken to aside.
 */
#ifndef DKPF_AGENT_PROCESS_STOP_WATCH_H
#define DKPF_AGENT_PROCESS_STOP_WATCH_H

#include "agent_ports.h"
#include "aside.h"
#include "front.h"
#include "stop_watch.h"

namespace dkpf {

inline constexpr DWORD ASIDE_MS = 1000;  // what a word may cost a process that is to end

class ProcessStopWatch : public StopWatchPorts {
public:
    /* @param ended    set when the agent has come to its end
     * @param asideMs  what each word may cost */
    ProcessStopWatch(Front& front, Journal& journal, HANDLE ended, DWORD asideMs = ASIDE_MS);

    DWORD Tick() override;
    bool  WaitEnd(DWORD limitMs) override;
    void  StillStopping(DWORD checkPoint) override;
    void  GiveUp() override;

protected:
    virtual void EndProcess(AgentExit code);  // a double in the tests

private:
    Front&   m_front;
    Journal& m_journal;
    HANDLE   m_ended;
    DWORD    m_asideMs;
    Aside    m_signs;  // of life
};

}  // namespace dkpf

#endif
