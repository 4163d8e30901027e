/*
 * dkpfctl dump [--rows] [--disk N]
 */
#include "commands.h"
#include "console_out.h"
#include "dump_text.h"
#include "region_reader.h"

namespace dkpf {

ToolExit RunDump(const DumpOptions& options)
{
    const RegionCopy copy = ReadRegion();
    if (copy.status != RegionStatus::Copied) {
        PrintError("dkpfctl: " + copy.words + "\n");
        return TOOL_WRONG;
    }
    Print(DumpText(*copy.info, copy.tick, options, [](DWORD pid) { return LookAtProcess(pid, 0); }));
    return TOOL_OK;
}

}  // namespace dkpf
