/*
 * The life of the disk agent, from its start to its end, the same as a service and in the foreground.
 */
#ifndef DKPF_AGENT_AGENT_LIFE_H
#define DKPF_AGENT_AGENT_LIFE_H

#include "agent_ports.h"
#include "exit_codes.h"

namespace dkpf {

inline constexpr DWORD DRIVER_WAIT_MS = 10000;  // for the driver's service; the agent goes on in any case
inline constexpr DWORD TICK_MS = 5000;          // how often device and UTC offset are looked at

/* What the process knows about itself. */
struct AgentIdentity {
    bool        console = false;
    DWORD       pid = 0;
    ULONGLONG   processStarted = 0;
    std::string version;
};

class AgentLife {
public:
    AgentLife(const AgentPorts& ports, const AgentIdentity& identity);

    /* Runs until the supervisor wants the end or the start fails. @return exit code */
    AgentExit Run();

private:
    AgentExit BecomeProducer();
    AgentExit CheckConfiguration();
    void      StartDriver();
    AgentExit BringUp();
    void      Serve();
    void      Reload();
    void      LookAround();
    void      LookAtDevice();
    void      BringUpAnew();
    void      LookAtClock();
    AgentExit BringDown();

    AgentExit   GiveUp(AgentExit code, const std::string& failure);
    void        Remember(const std::string& failure);
    bool        RememberHindrance(const std::string& words);
    void        Save();
    std::string Now();

    AgentPorts  m_ports;
    std::string m_version;
    AgentState  m_state;
    bool        m_up = false;          // the library
    bool        m_deviceHeld = false;  // it was there once
    bool        m_deviceGone = false;  // told; the library is brought up anew when the device is back
    bool        m_stuck = false;    // worker threads hang: only the process's end ends them, new ones would meet them
    bool        m_unsaved = false;  // the last save failed; the next tick tries again
    std::string m_hindrance;        // told: why the library did not come up anew
};

}  // namespace dkpf

#endif
