#include "producer_guard.h"

#include <fmt/format.h>

#include "admin_only.h"
#include "text.h"

namespace dkpf {

MutexGuard::MutexGuard(const wchar_t* name) : m_name(name)
{
}

MutexGuard::~MutexGuard()
{
    if (m_mutex != nullptr) {
        ReleaseMutex(m_mutex);
        CloseHandle(m_mutex);
    }
}

DWORD ProbeGlobalMemory()
{
    const std::wstring name = L"Global\\TNW_DKPF_AGENT_PROBE_" + std::to_wstring(GetCurrentProcessId());
    const HANDLE       probe = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name.c_str());
    if (probe == nullptr)
        return GetLastError();
    CloseHandle(probe);
    return ERROR_SUCCESS;
}

static GuardResult NotTaken(GuardResult result, std::string text, std::string* words)
{
    *words = std::move(text);
    return result;
}

GuardResult MutexGuard::Take(std::string* words)
{
    const DWORD probed = ProbeGlobalMemory();
    if (probed != ERROR_SUCCESS)
        return NotTaken(GuardResult::NoRight,
                        "this account may not create named memory for all sessions (" + SystemErrorText(probed) +
                            "): start it as an administrator",
                        words);

    AdminOnly            security;
    SECURITY_ATTRIBUTES* attributes = security.Attributes();
    const HANDLE         mutex = attributes != nullptr ? CreateMutexW(attributes, FALSE, m_name) : nullptr;
    if (mutex == nullptr) {
        const DWORD error = GetLastError();
        return NotTaken(error == ERROR_ACCESS_DENIED ? GuardResult::NoRight : GuardResult::Failed,
                        fmt::format("the mutex {} could not be created: {}", Narrow(m_name), SystemErrorText(error)),
                        words);
    }
    // Ownership counts, not existence: a tool may have the mutex open. Abandoned: the agent before us was killed.
    const DWORD waited = WaitForSingleObject(mutex, 0);
    if (waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED) {
        m_mutex = mutex;
        return GuardResult::Taken;
    }
    const DWORD error = GetLastError();
    CloseHandle(mutex);
    if (waited == WAIT_TIMEOUT)
        return NotTaken(
            GuardResult::OtherAgent,
            "another disk agent runs on this machine: end it first (dkpfctl status says which process it is)", words);
    return NotTaken(GuardResult::Failed,
                    fmt::format("the mutex {} could not be taken: {}", Narrow(m_name), SystemErrorText(error)), words);
}

}  // namespace dkpf
