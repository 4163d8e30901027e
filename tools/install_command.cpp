#include "commands.h"
#include "console_out.h"
#include "home.h"
#include "install.h"
#include "text.h"
#include "win32_machine.h"

namespace dkpf {

ToolExit RunInstall(const InstallCommandOptions& options)
{
    Machine&             machine = ThisMachine();
    const InstallOptions install{ HomeOfThisProgram().root,
                                  options.home.empty() ? DefaultHome(machine) : WholePath(Wide(options.home)),
                                  !options.noDriver };
    const bool done = Install(machine, install, [](std::string_view line) { Print(std::string(line) + "\n"); });
    return done ? TOOL_OK : TOOL_WRONG;
}

}  // namespace dkpf
