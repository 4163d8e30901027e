/*
 * Whether a process that wrote its number somewhere is still there.
 */
#ifndef DKPF_TOOLS_PROCESS_INFO_H
#define DKPF_TOOLS_PROCESS_INFO_H

#include <windows.h>

namespace dkpf {

enum class ProcessLife { Alive, Gone };

/* A time of the system in 100 ns units since 1601. */
ULONGLONG UnitsOf(const FILETIME& time);

/* Start time of a process that may be asked, 100 ns units since 1601; 0: not known. */
ULONGLONG ProcessStart(HANDLE process);

/* Start time of the running process, 100 ns units; tells a process number from a later owner of the same number. */
ULONGLONG OwnProcessStart();

/**
 * @param pid      process number
 * @param started  its start time as OwnProcessStart gave it there; 0: any owner of the number counts
 * @return Alive also where the process runs under an account that may not be asked.
 */
ProcessLife LookAtProcess(DWORD pid, ULONGLONG started);

/* Words for both: "alive", "gone". */
const char* LifeText(ProcessLife life);

}  // namespace dkpf

#endif
