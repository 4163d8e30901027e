/*
 * The life of the disk agent, in the order in which it is lived:
 *   Start      alone on the machine, configuration, driver, library
 *   Running    reload, device, clock
 *   End        library down
 *   Records    agent.state and the log
 */
#include "agent_life.h"

#include <fmt/format.h>

#include "result_codes.h"
#include "text.h"
#include "tnwdiskperf.h"
#include "tnwlog.h"

namespace dkpf {

#define AGENT_LINE(level, text) m_ports.journal.Line((level), { "agent/agent_life", __LINE__, __func__ }, (text))

AgentLife::AgentLife(const AgentPorts& ports, const AgentIdentity& identity) : m_ports(ports)
{
    m_state.console = identity.console;
    m_state.pid = identity.pid;
    m_state.processStarted = identity.processStarted;
    m_version = identity.version;
}

AgentExit AgentLife::Run()
{
    AgentExit code = BecomeProducer();
    if (code == AGENT_STOPPED)
        code = CheckConfiguration();
    if (code != AGENT_STOPPED)
        return code;

    // From here on the service manager holds no lock for us: it may be asked to start another service.
    m_ports.supervisor.ReportRunning();
    StartDriver();
    if (!m_ports.supervisor.StopAsked()) {
        code = BringUp();
        if (code != AGENT_STOPPED)
            return code;
        Serve();
    }
    return BringDown();
}

/* ---- Start ---- */

AgentExit AgentLife::BecomeProducer()
{
    std::string       words;
    const GuardResult taken = m_ports.guard.Take(&words);
    if (taken == GuardResult::Taken)
        return AGENT_STOPPED;

    // No word in agent.state: it belongs to the agent that runs.
    const ConfigVerdict defaults;
    m_ports.journal.Open(defaults.logLevel, defaults.logSize);
    AGENT_LINE(TNWLOG_ERROR, " not started: " + words);
    switch (taken) {
    case GuardResult::OtherAgent:
        return AGENT_SECOND;
    case GuardResult::NoRight:
        return AGENT_NO_RIGHT;
    default:
        return AGENT_SYSTEM_FAILED;
    }
}

AgentExit AgentLife::CheckConfiguration()
{
    const ConfigVerdict verdict = m_ports.configuration.Check();
    m_state.utcOffsetMinutes = m_ports.clock.UtcOffsetMinutes();
    m_state.started = Now();
    if (!verdict.accepted) {
        m_ports.journal.Open(verdict.logLevel, verdict.logSize);
        const std::string words = "the configuration is refused: " + verdict.refusal;
        AGENT_LINE(TNWLOG_ERROR, " not started: " + words);
        return GiveUp(AGENT_CONFIG_REFUSED, words);
    }
    m_ports.journal.Open(verdict.values[LOG_LEVEL], verdict.values[LOG_SIZE]);
    // The library reads the file again by itself. Whoever changes it in between sends a reload, which sets this right.
    m_state.inForce = verdict.values;
    AGENT_LINE(TNWLOG_NOTICE, fmt::format(" dkpfagent {} starts as {}, process {}, UTC offset {}", m_version,
                                          m_state.console ? "console program" : "service", m_state.pid,
                                          UtcOffsetText(m_state.utcOffsetMinutes)));
    Save();
    return AGENT_STOPPED;
}

void AgentLife::StartDriver()
{
    const ServiceStart driver =
        m_ports.driver.EnsureRunning(DRIVER_WAIT_MS, [this] { return m_ports.supervisor.StopAsked(); });
    const std::string words = "the driver's service velcor " + driver.words;
    if (driver.running) {
        AGENT_LINE(TNWLOG_NOTICE, " " + words);
        return;
    }
    // The library raises its own event when it finds no device. The agent stays, so that status can say what is wrong.
    AGENT_LINE(TNWLOG_ERROR, " " + words + "; going on without it");
    Remember(words);
}

AgentExit AgentLife::BringUp()
{
    DWORD code = 0;
    // Before the library opens it: a handle that lives longer than the library's would hide its end.
    m_deviceHeld = m_ports.device.Hold();
    m_state.broughtUp = Now();  // before its threads are there to raise an event
    m_up = m_ports.product.Initialize(&code);
    if (!m_up) {
        const std::string words = "DkpfInitialize failed with " + ResultText(code);
        AGENT_LINE(TNWLOG_ERROR, " not started: " + words);
        return GiveUp(AGENT_PRODUCT_FAILED, words);
    }
    AGENT_LINE(TNWLOG_NOTICE, " the performance library is up");
    m_state.phase = AgentPhase::Running;
    Save();
    return AGENT_STOPPED;
}

/* ---- Running ---- */

void AgentLife::Serve()
{
    DWORD looked = m_ports.clock.Tick();
    DWORD passed = 0;
    while (!m_stuck) {
        const Signal signal = m_ports.supervisor.Wait(TICK_MS - passed);
        if (signal == Signal::Stop)
            return;
        if (signal == Signal::Reload)
            Reload();
        // Reloads that follow each other closely must not put the look off.
        passed = m_ports.clock.Tick() - looked;
        if (signal == Signal::Nothing || passed >= TICK_MS) {
            LookAround();
            looked = m_ports.clock.Tick();
            passed = 0;
        }
    }
}

void AgentLife::LookAround()
{
    LookAtDevice();
    if (m_stuck)
        return;
    LookAtClock();
    if (m_unsaved)
        Save();
}

void AgentLife::Reload()
{
    const ConfigVerdict verdict = m_ports.configuration.Check();
    ReloadRecord        record;
    DWORD               code = 0;

    if (!verdict.accepted) {
        record.result = ReloadResult::Refused;
        record.message = verdict.refusal;
        AGENT_LINE(TNWLOG_ERROR,
                   " reload: the configuration is refused, the old settings stay in force: " + verdict.refusal);
    } else if (!m_ports.product.Reinitialize(&code) || code != DKPF_ERR_SUCCESS) {
        // TRUE with another code: read, but not published; the worker threads know nothing of it.
        record.result = ReloadResult::Failed;
        record.message = "DkpfReinitialize failed with " + ResultText(code);
        AGENT_LINE(TNWLOG_ERROR, " reload: " + record.message + "; the old settings stay in force");
        Remember(record.message);
    } else {
        const ReloadSplit split = SplitReload(*m_state.inForce, verdict.values);
        record.takenOver = split.takenOver;
        record.waiting = split.waiting;
        for (size_t index : split.takenOver)
            (*m_state.inForce)[index] = verdict.values[index];
        AGENT_LINE(TNWLOG_NOTICE,
                   " reload: taken over: " + (split.takenOver.empty() ? "nothing new" : SettingList(split.takenOver)));
        if (!split.waiting.empty())
            AGENT_LINE(TNWLOG_WARNING, " reload: waits for a restart of the agent: " + SettingList(split.waiting));
    }
    record.at = Now();
    m_state.lastReload = record;
    m_state.reloads++;
    Save();
}

/* The library keeps its handle of the driver's device for good, and that handle is dead for good when the driver was
 * stopped; where the driver was absent at the start the collect thread has ended. Both need a library brought up anew.
 * No other failure does: readers lose their rows by it. */
void AgentLife::LookAtDevice()
{
    if ((*m_state.inForce)[PERF_ENABLE] == 0 || (!m_deviceGone && m_ports.device.Lives()))
        return;
    if (!m_deviceGone) {
        const std::string words = m_deviceHeld ? "the driver's device is gone" : "the driver's device is not there";
        AGENT_LINE(TNWLOG_WARNING, " " + words + "; waiting until it opens again");
        Remember(words);
        Save();
        m_deviceGone = true;
    }
    if (m_ports.device.Hold()) {
        m_deviceHeld = true;
        BringUpAnew();
    }
}

/* Leaves m_deviceGone set where it has to be tried again. */
void AgentLife::BringUpAnew()
{
    const ConfigVerdict verdict = m_ports.configuration.Check();
    DWORD               code = DKPF_ERR_SUCCESS;

    if (!verdict.accepted) {  // the library would go down and not come up
        const std::string words = "the device is back, but the configuration is refused: " + verdict.refusal;
        if (RememberHindrance(words)) {
            AGENT_LINE(TNWLOG_ERROR, " " + words);
            Save();
        }
        return;
    }
    if (m_up) {
        // The threads see the reload before their end, and the collect thread takes its warning back by it.
        if (!m_ports.product.Reinitialize(&code) || code != DKPF_ERR_SUCCESS)
            AGENT_LINE(TNWLOG_WARNING, " DkpfReinitialize ended with " + ResultText(code));
        if (!m_ports.product.Terminate(&code) || code != DKPF_ERR_SUCCESS) {
            const std::string words = "DkpfTerminate ended with " + ResultText(code);
            AGENT_LINE(TNWLOG_ERROR, " " + words);
            Remember(words);
        }
        m_up = false;
        m_stuck = code == DKPF_ERR_THREAD_EXIT;
        if (m_stuck)
            return;
    }
    m_state.broughtUp = Now();
    m_up = m_ports.product.Initialize(&code);
    if (!m_up) {
        const std::string words = "DkpfInitialize failed with " + ResultText(code);
        if (RememberHindrance(words))
            AGENT_LINE(TNWLOG_ERROR, " " + words + "; trying again");
    } else {
        // The one all-clear where a worker thread had stopped on an error: that event has none.
        AGENT_LINE(TNWLOG_NOTICE, " the driver's device is there, the performance library was brought up anew");
        m_state.inForce = verdict.values;
        m_deviceGone = false;
        m_hindrance.clear();
    }
    Save();
}

void AgentLife::LookAtClock()
{
    const int offset = m_ports.clock.UtcOffsetMinutes();
    if (offset == m_state.utcOffsetMinutes)
        return;
    // CSV files and logs carry local time without a zone: this line is what dates them across the change.
    AGENT_LINE(TNWLOG_NOTICE, fmt::format(" UTC offset changes from {} to {}", UtcOffsetText(m_state.utcOffsetMinutes),
                                          UtcOffsetText(offset)));
    m_state.utcOffsetMinutes = offset;
    Save();
}

/* ---- End ---- */

AgentExit AgentLife::BringDown()
{
    AgentExit code = m_stuck ? AGENT_STOP_OVERDUE : AGENT_STOPPED;

    AGENT_LINE(TNWLOG_NOTICE, " stopping");
    m_state.phase = AgentPhase::Stopping;
    Save();
    DWORD result = DKPF_ERR_SUCCESS;
    if (m_up && (!m_ports.product.Terminate(&result) || result != DKPF_ERR_SUCCESS)) {
        const std::string words = "DkpfTerminate ended with " + ResultText(result);
        AGENT_LINE(TNWLOG_ERROR, " " + words);
        Remember(words);
        code = result == DKPF_ERR_THREAD_EXIT ? AGENT_STOP_OVERDUE : AGENT_STOPPED;
    }
    if (code == AGENT_STOPPED)
        AGENT_LINE(TNWLOG_NOTICE, " stopped");
    else
        AGENT_LINE(TNWLOG_ERROR, " not down: threads of the library still run; the process ends now");
    m_state.phase = AgentPhase::Stopped;
    m_state.exitCode = static_cast<DWORD>(code);
    Save();
    return code;
}

/* ---- Records ---- */

AgentExit AgentLife::GiveUp(AgentExit code, const std::string& failure)
{
    Remember(failure);
    m_state.phase = AgentPhase::Stopped;
    m_state.exitCode = static_cast<DWORD>(code);
    Save();
    return code;
}

void AgentLife::Remember(const std::string& failure)
{
    m_state.lastFailure = FailureRecord{ Now(), failure };
}

/* FALSE: told already. Each look meets the same one again until somebody mends it: a line for each would push older
 * history out of the log. */
bool AgentLife::RememberHindrance(const std::string& words)
{
    if (words == m_hindrance)
        return false;
    m_hindrance = words;
    Remember(words);
    return true;
}

void AgentLife::Save()
{
    const DWORD error = m_ports.store.Save(m_state);
    if (error != ERROR_SUCCESS && !m_unsaved)
        AGENT_LINE(TNWLOG_WARNING, " agent.state could not be written: " + SystemErrorText(error));
    m_unsaved = error != ERROR_SUCCESS;
}

std::string AgentLife::Now()
{
    return IsoTime(m_ports.clock.LocalTime(), m_state.utcOffsetMinutes);
}

}  // namespace dkpf
