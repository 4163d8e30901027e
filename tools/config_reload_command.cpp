/*
 * dkpfctl config reload
 */
#include "commands.h"
#include "console_out.h"
#include "installed_agent.h"

namespace dkpf {

ToolExit RunConfigReload()
{
    InstalledAgent      agent;
    const ReloadOutcome outcome = RequestReload(agent);
    (outcome.done ? Print : PrintError)(outcome.text);
    return outcome.done ? TOOL_OK : TOOL_WRONG;
}

}  // namespace dkpf
