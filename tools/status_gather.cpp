#include "status_facts.h"

#include "home.h"
#include "names.h"
#include "status_device.h"
#include "text.h"

namespace dkpf {

static ServiceFact LookAtService(const wchar_t* name)
{
    ServiceFact fact;
    fact.name = Narrow(name);
    fact.info = SystemServices().Query(name);
    fact.processGone = fact.info.state == SERVICE_RUNNING && fact.info.pid != 0 &&
                       LookAtProcess(fact.info.pid, 0) == ProcessLife::Gone;
    return fact;
}

/* Both in 100 ns units since 1601. */
static ULONGLONG MsSince(ULONGLONG started)
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return UnitsOf(now) > started ? (UnitsOf(now) - started) / 10000 : 0;
}

StatusFacts GatherStatus()
{
    const Home  home = HomeOfThisProgram();
    StatusFacts facts;
    facts.home = Narrow(home.root);
    facts.driver = LookAtService(DRIVER_SERVICE);
    facts.feeder = LookAtService(FEEDER_SERVICE);
    facts.agentService = LookAtService(AGENT_SERVICE);
    // A real driver, which has no feeder, gets no request at all.
    const bool asksFed = facts.feeder.info.installed;
    facts.device = LookAtDevice([asksFed] { return AskDevice(asksFed); });

    facts.agent = LoadAgentState(home.StateFile());
    const AgentState& state = facts.agent.state;
    facts.agentAlive = facts.agent.file == StateFile::Read && state.phase != AgentPhase::Stopped &&
                       LookAtProcess(state.pid, state.processStarted) == ProcessLife::Alive;
    if (facts.agentAlive)
        facts.agentAgeMs = MsSince(state.processStarted);

    facts.file = CheckConfiguration(nullptr);

    RegionCopy copy = ReadRegion();
    facts.region = copy.status;
    facts.regionOpened = copy.opened;
    facts.regionWords = copy.words;
    if (copy.status == RegionStatus::Copied) {
        facts.view = ViewRegion(*copy.info, copy.tick);
        for (size_t row = 1; row < facts.view.owners.size(); row++) {
            const DWORD owner = facts.view.owners[row];
            if (owner != 0)
                facts.consumers.push_back({ static_cast<int>(row), owner, LookAtProcess(owner, 0) });
        }
    }

    const std::string since = EventTimeOf(state.started);
    if (!since.empty())
        facts.events = ReadEventsSince(home.EventLog(), since);

    facts.places = { { "configuration", Narrow(home.ConfigFile()) },
                     { "CSV files", Narrow(home.Perf()) },
                     { "module log", Narrow(home.ModuleLog()) },
                     { "event entries", Narrow(home.EventLog()) },
                     { "agent state", Narrow(home.StateFile()) } };
    return facts;
}

}  // namespace dkpf
