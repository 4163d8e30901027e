/*
 * What the agent's life needs from its surroundings. Each is a thin piece of Win32 in the program and a double in the
 * tests.
 */
#ifndef DKPF_AGENT_AGENT_PORTS_H
#define DKPF_AGENT_AGENT_PORTS_H

#include <windows.h>
#include <functional>
#include <string>

#include "agent_state.h"
#include "config_check.h"
#include "service_control.h"

namespace dkpf {

enum class GuardResult { Taken, OtherAgent, NoRight, Failed };

/* Makes sure that this process is the machine's one producer: a second one would wipe the live region. */
class ProducerGuard {
public:
    virtual ~ProducerGuard() = default;
    /* @param words  receives the reason where not Taken; one sentence without a period. Released by the process's end.
     */
    virtual GuardResult Take(std::string* words) = 0;
};

class Product {
public:
    virtual ~Product() = default;
    virtual bool Initialize(DWORD* code) = 0;
    virtual bool Reinitialize(DWORD* code) = 0;
    virtual bool Terminate(DWORD* code) = 0;  // may take 300 s
};

class Configuration {
public:
    virtual ~Configuration() = default;
    virtual ConfigVerdict Check() = 0;
};

/* The driver's service. */
class DriverService {
public:
    virtual ~DriverService() = default;
    /* @param stopAsked  asked now and then; TRUE ends the wait. Returns after limitMs at the latest. */
    virtual ServiceStart EnsureRunning(DWORD limitMs, const std::function<bool()>& stopAsked) = 0;
};

/* The driver's control device, through a handle of the agent's own. No request is ever sent. */
class DriverDevice {
public:
    virtual ~DriverDevice() = default;
    virtual bool Hold() = 0;   // opens it anew; FALSE where it does not open, the handle held before then stays
    virtual bool Lives() = 0;  // the handle held leads to the driver that it was opened on; FALSE where none is held
};

/* Where a line comes from, as the log shows it. The source is a constant name, so that no path of a build machine gets
 * in. */
struct SourcePlace {
    const char* source;
    int         line;
    const char* routine;
};

/* Lines of the agent's own life: in the module log, in the foreground also on the console. */
class Journal {
public:
    virtual ~Journal() = default;
    virtual void Open(DWORD level, DWORD sizeKiB) = 0;
    virtual void Line(DWORD level, const SourcePlace& place, const std::string& text) = 0;
};

class StateStore {
public:
    virtual ~StateStore() = default;
    virtual DWORD Save(const AgentState& state) = 0;  // 0, or the system's error number
};

class Clock {
public:
    virtual ~Clock() = default;
    virtual SYSTEMTIME LocalTime() = 0;
    virtual int        UtcOffsetMinutes() = 0;
    virtual DWORD      Tick() = 0;  // GetTickCount, ms
};

enum class Signal { Stop, Reload, Nothing };

/* Whoever started the agent: the service manager, or a person at a console. */
class Supervisor {
public:
    virtual ~Supervisor() = default;
    virtual void   ReportRunning() = 0;
    virtual bool   StopAsked() = 0;
    virtual Signal Wait(DWORD limitMs) = 0;  // Nothing: the time is over
};

struct AgentPorts {
    ProducerGuard& guard;
    Product&       product;
    Configuration& configuration;
    DriverService& driver;
    DriverDevice&  device;
    Journal&       journal;
    StateStore&    store;
    Clock&         clock;
    Supervisor&    supervisor;
};

}  // namespace dkpf

#endif
