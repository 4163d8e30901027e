#include "process_stop_watch.h"

#include <fmt/format.h>

#include "tnwlog.h"

namespace dkpf {

ProcessStopWatch::ProcessStopWatch(Front& front, Journal& journal, HANDLE ended, DWORD asideMs)
    : m_front(front), m_journal(journal), m_ended(ended), m_asideMs(asideMs)
{
}

DWORD ProcessStopWatch::Tick()
{
    return GetTickCount();
}

bool ProcessStopWatch::WaitEnd(DWORD limitMs)
{
    return WaitForSingleObject(m_ended, limitMs) != WAIT_TIMEOUT;
}

void ProcessStopWatch::StillStopping(DWORD checkPoint)
{
    // The front alone: this object is gone when the agent has come to its end, and the call may still hang then.
    m_signs.Do([&front = m_front, checkPoint] { front.StillStopping(checkPoint, STOP_HINT_MS); }, m_asideMs);
}

void ProcessStopWatch::GiveUp()
{
    const SourcePlace place = { "agent/process_stop_watch", __LINE__, __func__ };
    Aside().Do(
        [this, place] {
            m_journal.Line(TNWLOG_ERROR, place,
                           fmt::format(" not down after {} s: the process ends now", STOP_LIMIT_MS / 1000));
        },
        m_asideMs);
    Aside().Do([this] { m_front.Stopped(AGENT_STOP_OVERDUE); }, m_asideMs);
    EndProcess(AGENT_STOP_OVERDUE);
}

void ProcessStopWatch::EndProcess(AgentExit code)
{
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
}

}  // namespace dkpf
