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

ULONGLONG SampleAgeLimitMs(const StatusFacts& facts)
{
    static constexpr ULONGLONG busyMs = 5000;
    const SettingValues*       inForce = InForce(facts);
    const DWORD interval = inForce != nullptr ? (*inForce)[COLLECT_INTERVAL] : facts.view.published[COLLECT_INTERVAL];
    return 2000ull * interval + busyMs;
}

}  // namespace dkpf
