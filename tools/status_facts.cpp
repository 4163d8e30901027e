#include "status_facts.h"

namespace dkpf {

const SettingValues* InForce(const StatusFacts& facts)
{
    return facts.agentAlive && facts.agent.state.inForce ? &*facts.agent.state.inForce : nullptr;
}

bool Collecting(const StatusFacts& facts)
{
    const SettingValues* inForce = InForce(facts);
    return inForce == nullptr || (*inForce)[PERF_ENABLE] != 0;
}

DWORD SampleAgeLimitMs(const StatusFacts& facts)
{
    const SettingValues* inForce = InForce(facts);
    return SampleAgeLimitMs(inForce != nullptr ? (*inForce)[COLLECT_INTERVAL] : facts.view.published[COLLECT_INTERVAL]);
}

}  // namespace dkpf
