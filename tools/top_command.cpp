/*
 * dkpfctl top [--seconds N] [--plain]
 */
#include "commands.h"
#include "console_out.h"
#include "home.h"
#include "reader.h"
#include "system_info.h"
#include "terminal.h"
#include "top_loop.h"

namespace dkpf {

ToolExit RunTop(const TopOptions& options)
{
    PerformanceReader reader(SystemReader(HomeOfThisProgram()));
    const std::string computer = ComputerName();
    TopEnd            end;
    {
        Terminal terminal(!options.plain);
        end = TopLoop(options, computer.empty() ? "this computer" : computer, &reader, &terminal);
    }
    if (end.everRead)
        return TOOL_OK;
    PrintError("dkpfctl: " + end.words + "\n");
    return TOOL_WRONG;
}

}  // namespace dkpf
