/*
 * The agent's life in a real process: what the service and the foreground form have in common.
 */
#ifndef DKPF_AGENT_AGENT_PROCESS_H
#define DKPF_AGENT_AGENT_PROCESS_H

#include <windows.h>
#include <mutex>
#include <thread>

#include "console_control.h"
#include "exit_codes.h"
#include "front.h"
#include "stop_watch.h"

namespace dkpf {

class AgentProcess : public Stoppable {
public:
    explicit AgentProcess(Front& front);
    ~AgentProcess() override;
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;

    void AskStop() override;  // any thread
    void AskReload();         // any thread
    void WaitEnd() override;  // any thread; returns when Live is done

    /* Lives until the end is asked for or the start fails; has called front.Stopped then. Does not return where the
     * library did not come down: ends the process. */
    AgentExit Live();

private:
    AgentExit LiveAlone();
    void      BeginWatch();  // m_watchMutex held
    void      AllowWatch(StopWatchPorts* watch);

    Front& m_front;
    HANDLE m_stop = nullptr;    // manual-reset
    HANDLE m_reload = nullptr;  // auto-reset; dkpfctl sets it for an agent in the foreground
    HANDLE m_ended = nullptr;   // manual-reset

    std::mutex      m_watchMutex;       // guards the two below
    StopWatchPorts* m_watch = nullptr;  // while there is a life to watch over
    std::thread     m_watcher;          // runs from the moment a stop is asked for
};

/* The two forms. Each returns the process's exit code. */
int RunAsService();
int RunInForeground();

}  // namespace dkpf

#endif
