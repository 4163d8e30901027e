/*
 * The text of dkpfctl dump.
 */
#ifndef DKPF_TOOLS_DUMP_TEXT_H
#define DKPF_TOOLS_DUMP_TEXT_H

#include <functional>
#include <string>

#include "commands.h"
#include "diskperf.h"
#include "process_info.h"

namespace dkpf {

/**
 * @param info  a copy of the region; nothing in it is trusted
 * @param tick  GetTickCount() of the copy, ms
 * @param life  whether the owner of a consumer row is there
 */
std::string DumpText(const DKPF_SHM_INFO& info, DWORD tick, const DumpOptions& options,
                     const std::function<ProcessLife(DWORD)>& life);

}  // namespace dkpf

#endif
