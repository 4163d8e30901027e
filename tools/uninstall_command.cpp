#include "commands.h"
#include "console_out.h"
#include "text.h"
#include "uninstall.h"
#include "win32_machine.h"

namespace dkpf {

ToolExit RunUninstall(const UninstallCommandOptions& options)
{
    Machine&               machine = ThisMachine();
    const UninstallOptions uninstall{ options.home.empty() ? RegisteredHome(machine) : WholePath(Wide(options.home)),
                                      options.purge };
    const bool done = Uninstall(machine, uninstall, [](std::string_view line) { Print(std::string(line) + "\n"); });
    return done ? TOOL_OK : TOOL_WRONG;
}

}  // namespace dkpf
