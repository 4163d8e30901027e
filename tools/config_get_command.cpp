/*
 * dkpfctl config get [KEY] [--json]
 */
#include "commands.h"
#include "config_check.h"
#include "config_keys.h"
#include "config_text.h"
#include "console_out.h"
#include "installed_agent.h"
#include "text.h"

namespace dkpf {

ToolExit RunConfigGet(const ConfigGetOptions& options)
{
    InstalledAgent                  agent;
    const auto                      report = ReadConfiguration(nullptr);
    const bool                      accepted = report->finding.dwStatus == XMLLIB_OK;
    const std::optional<AgentState> running = agent.Running();
    ConfigFacts                     facts;
    facts.report = report.get();
    facts.running = running ? &*running : nullptr;
    facts.file = Narrow(HomeOfThisProgram().ConfigFile());
    if (!options.key.empty() && report->dwSettings != 0) {
        const KeyChoice choice = ChooseKey(*report, options.key);
        if (choice.setting == nullptr) {
            PrintError(choice.words + "\n");
            return TOOL_WRONG;
        }
        facts.only = choice.setting;
    }
    if (options.json)
        Print(ConfigGetJson(facts));
    else if (accepted)
        Print(ConfigGetText(facts));
    else
        PrintError("refused: " + RefusalText(*report) + "\n");
    return accepted ? TOOL_OK : TOOL_WRONG;
}

}  // namespace dkpf
