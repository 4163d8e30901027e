#include "agent_process.h"

#include <fmt/format.h>
#include <system_error>
#include <thread>

#include "admin_only.h"
#include "agent_life.h"
#include "aside.h"
#include "driver_device.h"
#include "driver_start.h"
#include "home.h"
#include "journal_log.h"
#include "names.h"
#include "process_info.h"
#include "process_stop_watch.h"
#include "producer_guard.h"
#include "text.h"
#include "tnwdiskperf.h"

namespace dkpf {

namespace {

class LinkedProduct : public Product {
public:
    bool Initialize(DWORD* code) override
    {
        return DkpfInitialize(TRUE, code) != FALSE;
    }
    bool Reinitialize(DWORD* code) override
    {
        return DkpfReinitialize(code) != FALSE;
    }
    bool Terminate(DWORD* code) override
    {
        return DkpfTerminate(code) != FALSE;
    }
};

class InstalledConfiguration : public Configuration {
public:
    ConfigVerdict Check() override
    {
        return CheckConfiguration(nullptr);
    }
};

class StateFileStore : public StateStore {
public:
    explicit StateFileStore(const Home& home) : m_path(home.StateFile())
    {
    }
    DWORD Save(const AgentState& state) override
    {
        return SaveAgentState(m_path, state, Sleep);
    }

private:
    std::wstring m_path;
};

class SystemClock : public Clock {
public:
    SYSTEMTIME LocalTime() override
    {
        SYSTEMTIME now{};
        GetLocalTime(&now);
        return now;
    }
    int UtcOffsetMinutes() override
    {
        return LocalUtcOffsetMinutes();
    }
    DWORD Tick() override
    {
        return GetTickCount();
    }
};

class EventSupervisor : public Supervisor {
public:
    EventSupervisor(Front& front, HANDLE stop, HANDLE reload) : m_front(front), m_stop(stop), m_reload(reload)
    {
    }
    void ReportRunning() override
    {
        m_front.Running();
    }
    bool StopAsked() override
    {
        return WaitForSingleObject(m_stop, 0) == WAIT_OBJECT_0;
    }
    Signal Wait(DWORD limitMs) override
    {
        const HANDLE events[] = { m_stop, m_reload };
        switch (WaitForMultipleObjects(ARRAYSIZE(events), events, FALSE, limitMs)) {
        case WAIT_OBJECT_0 + 1:
            return Signal::Reload;
        case WAIT_TIMEOUT:
            return Signal::Nothing;
        default:
            return Signal::Stop;  // a wait that fails would fail for ever: better no agent than one that spins
        }
    }

private:
    Front& m_front;
    HANDLE m_stop;
    HANDLE m_reload;
};

}  // namespace

AgentProcess::AgentProcess(Front& front) : m_front(front)
{
    AdminOnly security;
    m_stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    m_ended = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (security.Attributes() != nullptr)
        m_reload = CreateEventW(security.Attributes(), FALSE, FALSE, AGENT_RELOAD_EVENT);
    if (m_reload == nullptr)  // the guard says what is wrong with this account's rights
        m_reload = CreateEventW(nullptr, FALSE, FALSE, nullptr);
}

AgentProcess::~AgentProcess()
{
    for (HANDLE event : { m_stop, m_reload, m_ended }) {
        if (event != nullptr)
            CloseHandle(event);
    }
}

void AgentProcess::AskStop()
{
    const std::lock_guard<std::mutex> lock(m_watchMutex);
    SetEvent(m_stop);
    BeginWatch();
}

/* A thread beside the life, for a stop that is asked for while the library comes up is bounded too. It begins with the
 * stop: one that stood there all the time would cost its stack all the time. */
void AgentProcess::BeginWatch()
{
    if (m_watch == nullptr || m_watcher.joinable())
        return;
    try {
        m_watcher = std::thread([watch = m_watch] { WatchStop(*watch); });
    } catch (const std::system_error&) {
        // No memory for a thread: the stop goes on, with nobody to bound it.
    }
}

/* nullptr: the life is over; returns when nobody watches any more. */
void AgentProcess::AllowWatch(StopWatchPorts* watch)
{
    {
        const std::lock_guard<std::mutex> lock(m_watchMutex);
        m_watch = watch;
        if (WaitForSingleObject(m_stop, 0) == WAIT_OBJECT_0)
            BeginWatch();
    }
    if (watch == nullptr && m_watcher.joinable())
        m_watcher.join();
}

void AgentProcess::AskReload()
{
    SetEvent(m_reload);
}

void AgentProcess::WaitEnd()
{
    WaitForSingleObject(m_ended, INFINITE);
}

AgentExit AgentProcess::LiveAlone()
{
    const Home home = HomeOfThisProgram();
    JournalLog journal(m_front.IsConsole());

    ProcessStopWatch watch(m_front, journal, m_ended);
    AllowWatch(&watch);

    MutexGuard             guard;
    LinkedProduct          product;
    InstalledConfiguration configuration;
    DriverStart            driver(SystemServices());
    ControlDevice          device;
    StateFileStore         store(home);
    SystemClock            clock;
    EventSupervisor        supervisor(m_front, m_stop, m_reload);
    const AgentIdentity    identity{ m_front.IsConsole(), GetCurrentProcessId(), OwnProcessStart(), DKPF_VERSION };
    AgentLife life({ guard, product, configuration, driver, device, journal, store, clock, supervisor }, identity);

    const AgentExit code = life.Run();
    SetEvent(m_ended);
    AllowWatch(nullptr);
    if (code == AGENT_STOP_OVERDUE) {
        // Threads of the library still run: the producer's mutex must not be free before they are gone.
        if (CountsAsStop(m_front.IsConsole(), supervisor.StopAsked(), code))
            Aside().Do([this, code] { m_front.Stopped(code); }, ASIDE_MS);
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
    }
    return code;
}

AgentExit AgentProcess::Live()
{
    const AgentExit code = LiveAlone();
    // The mutex is free by now: the next agent may start the moment this one counts as stopped.
    m_front.Stopped(code);
    return code;
}

}  // namespace dkpf
