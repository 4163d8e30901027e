#include "status_troubles.h"

#include <fmt/format.h>

#include "text.h"

namespace dkpf {

bool HasRealDriver(const StatusFacts& facts)
{
    return facts.driver.info.installed && !facts.feeder.info.installed && facts.feeder.info.error == ERROR_SUCCESS;
}

std::string InstallCommand(const StatusFacts& facts)
{
    const std::string command = fmt::format("dkpfctl install --home \"{}\"", facts.home);
    return HasRealDriver(facts)
               ? command + fmt::format(" --no-driver, put the real tnwdiskfltr.dll back into \"{}\\bin\"", facts.home)
               : command;
}

void AboutDriver(const StatusFacts& facts, Troubles* troubles)
{
    const ServiceInfo& driver = facts.driver.info;
    if (driver.error != ERROR_SUCCESS)
        troubles->push_back({ "driver_unknown",
                              "the driver's service velcor cannot be asked: " + SystemErrorText(driver.error),
                              "run this as an administrator" });
    else if (!driver.installed)
        troubles->push_back({ "driver_not_installed", "the driver velcor is not installed", InstallCommand(facts) });
    else if (driver.state != SERVICE_RUNNING)
        troubles->push_back({ "driver_not_running", "the driver velcor is " + ServiceStateText(driver.state),
                              "net start velcor; a running disk agent takes it up by itself" });
    else if (facts.device.hangs)
        troubles->push_back({ "driver_hangs", "the driver velcor runs, but did not answer within 2 s",
                              "look again; a driver that never answers goes with a restart of the machine only" });
}

void AboutFeeder(const StatusFacts& facts, Troubles* troubles)
{
    const ServiceInfo& feeder = facts.feeder.info;
    if (feeder.error != ERROR_SUCCESS)
        troubles->push_back({ "feeder_unknown",
                              "the feeder's service velcorfeed cannot be asked: " + SystemErrorText(feeder.error),
                              "run this as an administrator" });
    else if (feeder.installed && feeder.state != SERVICE_RUNNING)
        troubles->push_back(
            { "feeder_not_running",
              "the feeder velcorfeed is " + ServiceStateText(feeder.state) + ": the driver's values stand still",
              "net start velcorfeed" });
}

void AboutServiceProcesses(const StatusFacts& facts, Troubles* troubles)
{
    for (const ServiceFact* service : { &facts.feeder, &facts.agentService }) {
        if (service->processGone)
            troubles->push_back({ "service_process_gone",
                                  fmt::format("the service {} counts as running, but its process {} is gone",
                                              service->name, service->info.pid),
                                  "net start " + service->name });
    }
}

static std::string StartCommand(const StatusFacts& facts)
{
    const ServiceInfo& service = facts.agentService.info;
    return service.installed || service.error != ERROR_SUCCESS ? "net start dkpfagent" : InstallCommand(facts);
}

void AboutAgent(const StatusFacts& facts, Troubles* troubles)
{
    const AgentState& state = facts.agent.state;
    const std::string startIt = StartCommand(facts);
    if (facts.agent.file == StateFile::Damaged)
        troubles->push_back({ "agent_state_damaged", "agent.state cannot be read: " + facts.agent.why,
                              "restart the disk agent: it writes the file anew" });
    else if (facts.agent.file == StateFile::Missing)
        troubles->push_back({ "agent_not_running", "the disk agent has never run here", startIt });
    else if (!facts.agentAlive && state.phase != AgentPhase::Stopped)
        troubles->push_back({ "agent_died",
                              fmt::format("the disk agent (process {}) ended without a clean stop", state.pid),
                              startIt });
    else if (!facts.agentAlive)
        troubles->push_back(
            { "agent_not_running",
              "the disk agent is not running" +
                  (state.lastFailure ? "; it ended because " + state.lastFailure->message : std::string()),
              state.lastFailure ? "remove the cause, then " + startIt : startIt });
}

void AboutConfiguration(const StatusFacts& facts, Troubles* troubles)
{
    if (!facts.file.accepted) {
        troubles->push_back({ "config_refused", "the configuration file is refused: " + facts.file.refusal,
                              "correct it, look at it with dkpfctl config check, then dkpfctl config reload" });
        return;
    }
    const auto& reload = facts.agent.state.lastReload;
    if (facts.agentAlive && reload && reload->result != ReloadResult::Accepted)
        troubles->push_back({ "reload_failed",
                              fmt::format("the last reload was {}, the old settings are in force: {}",
                                          ReloadResultText(reload->result), reload->message),
                              "dkpfctl config reload" });
}

void AboutRegion(const StatusFacts& facts, Troubles* troubles)
{
    if (facts.region == RegionStatus::Absent) {
        if (!facts.agentAlive || facts.agent.state.phase == AgentPhase::Running)
            troubles->push_back({ "no_region", facts.regionWords,
                                  facts.agentAlive ? "restart the disk agent" : "start the disk agent" });
        return;
    }
    if (facts.region == RegionStatus::Refused)
        troubles->push_back({ "region_refused", facts.regionWords,
                              facts.regionOpened ? "stop the disk agent and every reader, net start dkpfagent"
                                                 : "run this as an administrator" });
    if (facts.region != RegionStatus::Copied)
        return;
    for (const std::string& damage : facts.view.damage)
        troubles->push_back({ "region_damaged", "the shared region is damaged: " + damage, "restart the disk agent" });
}

void AboutLock(const StatusFacts& facts, Troubles* troubles)
{
    if (facts.region == RegionStatus::Busy)
        troubles->push_back({ "region_busy", facts.regionWords,
                              "end the process that hangs: one of those that dkpfctl doctor finds with the library" });
}

void AboutSamples(const StatusFacts& facts, Troubles* troubles)
{
    if (facts.region != RegionStatus::Copied || !facts.agentAlive || !Collecting(facts))
        return;
    // Several reloads within one interval may leave the collect thread in a wait that only the next one ends. An agent
    // that hangs does not come down when it is asked to, and loses nothing when it is ended.
    const std::string look = fmt::format("dkpfctl config reload; if that does not help, taskkill /f /pid {}, then {}; "
                                         "the module log may hold the cause",
                                         facts.agent.state.pid, StartCommand(facts));
    const DWORD       limit = SampleAgeLimitMs(facts);
    // The first sample only primes the counters: none is there before the second interval is over.
    if (!facts.view.hasSample && facts.agentAgeMs > limit)
        troubles->push_back({ "no_sample", "there is no sample yet", look });
    if (facts.view.hasSample && facts.view.ageMs > limit)
        troubles->push_back(
            { "sample_old",
              fmt::format("the last sample is {} old, at most {} is usual", AgeText(facts.view.ageMs), AgeText(limit)),
              look });
}

void AboutEvents(const StatusFacts& facts, Troubles* troubles)
{
    const std::string broughtUp = EventTimeOf(facts.agent.state.broughtUp);
    /* Each kind with the entry that takes it back; 0: none does but a library brought up anew. */
    struct Kind {
        DWORD raised;
        DWORD cleared;
    };
    static constexpr Kind kinds[] = { { DKPF_EVENT_STOPPED, 0 },
                                      { DKPF_EVENT_COLLECT_FAILED, DKPF_EVENT_COLLECT_OK },
                                      { DKPF_EVENT_CSVLOG_FAILED, DKPF_EVENT_CSVLOG_OK } };
    if (facts.events.error != ERROR_SUCCESS)
        troubles->push_back({ "events_unread",
                              "the event entries cannot be read: " + SystemErrorText(facts.events.error),
                              "look at the rights of the file" });
    for (const Kind& kind : kinds) {
        const EventEntry* open = nullptr;
        for (const EventEntry& entry : facts.events.entries) {
            if (entry.id == kind.raised)
                open = kind.cleared == 0 && entry.time < broughtUp ? nullptr : &entry;
            else if (kind.cleared != 0 && entry.id == kind.cleared)
                open = nullptr;
        }
        if (open != nullptr && facts.agentAlive)
            troubles->push_back({ "warning_open",
                                  fmt::format("raised at {} and not taken back: {}", open->time, open->text),
                                  kind.cleared != 0 ? "remove the cause: dkpfctl logs trace --level error tells it"
                                                    : "remove the cause, then restart the disk agent" });
    }
}

Troubles FindTroubles(const StatusFacts& facts)
{
    Troubles troubles;
    AboutDriver(facts, &troubles);
    AboutFeeder(facts, &troubles);
    AboutServiceProcesses(facts, &troubles);
    AboutConfiguration(facts, &troubles);
    AboutAgent(facts, &troubles);
    AboutRegion(facts, &troubles);
    AboutLock(facts, &troubles);
    AboutSamples(facts, &troubles);
    AboutEvents(facts, &troubles);
    return troubles;
}

bool AllIsWell(const StatusFacts& facts, const Troubles& troubles)
{
    return troubles.empty() && (!facts.doctor || facts.doctor->wrong == 0);
}

}  // namespace dkpf
