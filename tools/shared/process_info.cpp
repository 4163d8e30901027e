#include "process_info.h"

namespace dkpf {

ULONGLONG UnitsOf(const FILETIME& time)
{
    return (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

ULONGLONG ProcessStart(HANDLE process)
{
    FILETIME created{}, exited{}, kernel{}, user{};
    if (!GetProcessTimes(process, &created, &exited, &kernel, &user))
        return 0;
    return UnitsOf(created);
}

ULONGLONG OwnProcessStart()
{
    return ProcessStart(GetCurrentProcess());
}

ProcessLife LookAtProcess(DWORD pid, ULONGLONG started)
{
    const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
    if (process == nullptr)
        return GetLastError() == ERROR_ACCESS_DENIED ? ProcessLife::Alive : ProcessLife::Gone;

    // A process that has ended can be opened as long as somebody holds it: its exit code decides.
    DWORD           exitCode = 0;
    const bool      ended = GetExitCodeProcess(process, &exitCode) && exitCode != STILL_ACTIVE;
    const ULONGLONG start = started == 0 ? 0 : ProcessStart(process);
    CloseHandle(process);
    const bool otherOwner = start != 0 && start != started;
    return ended || otherOwner ? ProcessLife::Gone : ProcessLife::Alive;
}

const char* LifeText(ProcessLife life)
{
    return life == ProcessLife::Alive ? "alive" : "gone";
}

}  // namespace dkpf
