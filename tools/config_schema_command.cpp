/*
 * dkpfctl config schema [--json]
 */
#include "commands.h"
#include "config_check.h"
#include "config_text.h"
#include "console_out.h"

namespace dkpf {

ToolExit RunConfigSchema(const ConfigSchemaOptions& options)
{
    const auto report = ReadConfiguration(nullptr);
    if (report->dwSettings == 0) {  // the policy; what the configuration holds does not matter here
        PrintError("refused: " + RefusalText(*report) + "\n");
        return TOOL_WRONG;
    }
    Print(options.json ? ConfigSchemaJson(*report) : ConfigSchemaText(*report));
    return TOOL_OK;
}

}  // namespace dkpf
