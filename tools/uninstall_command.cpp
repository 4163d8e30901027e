#include "commands.h"
#include "console_out.h"
#include "home.h"
#include "registration.h"
#include "text.h"
#include "uninstall.h"
#include "win32_machine.h"

namespace dkpf {

/* Where the product is registered, wherever this program lies. */
static std::wstring RegisteredHome(Machine& machine)
{
    RegistryValue library;
    if (machine.ReadValue(PERFORMANCE_KEY, VALUE_LIBRARY, &library) == ERROR_SUCCESS && !library.text.empty())
        return HomeOfModulePath(library.text).root;
    return DefaultHome(machine);
}

ToolExit RunUninstall(const UninstallCommandOptions& options)
{
    Machine&               machine = ThisMachine();
    const UninstallOptions uninstall{ options.home.empty() ? RegisteredHome(machine) : WholePath(Wide(options.home)),
                                      options.purge };
    const bool done = Uninstall(machine, uninstall, [](std::string_view line) { Print(std::string(line) + "\n"); });
    return done ? TOOL_OK : TOOL_WRONG;
}

}  // namespace dkpf
