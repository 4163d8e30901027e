/*
 * dkpfctl status [--json]
 */
#include "commands.h"
#include "console_out.h"
#include "status_facts.h"
#include "status_text.h"
#include "status_troubles.h"

namespace dkpf {

ToolExit RunStatus(const StatusOptions& options)
{
    const StatusFacts          facts = GatherStatus();
    const std::vector<Trouble> troubles = FindTroubles(facts);
    Print((options.json ? StatusJson : StatusText)(facts, troubles));
    return troubles.empty() ? TOOL_OK : TOOL_WRONG;
}

}  // namespace dkpf
