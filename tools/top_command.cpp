/*
 * dkpfctl top [--seconds N] [--plain]
 */
#include "commands.h"
#include "console_out.h"
#include "home.h"
#include "reader.h"
#include "terminal.h"
#include "text.h"
#include "top_loop.h"

namespace dkpf {

static std::string ComputerName()
{
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD   size = ARRAYSIZE(name);
    return GetComputerNameW(name, &size) ? Narrow(std::wstring_view(name, size)) : "this computer";
}

ToolExit RunTop(const TopOptions& options)
{
    PerformanceReader reader(SystemReader(HomeOfThisProgram()));
    TopEnd            end;
    {
        Terminal terminal(!options.plain);
        end = TopLoop(options, ComputerName(), &reader, &terminal);
    }
    if (end.everRead)
        return TOOL_OK;
    PrintError("dkpfctl: " + end.words + "\n");
    return TOOL_WRONG;
}

}  // namespace dkpf
