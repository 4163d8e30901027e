/*
 * One disk agent per machine, by a named mutex that lives as long as its owner.
 */
#ifndef DKPF_AGENT_PRODUCER_GUARD_H
#define DKPF_AGENT_PRODUCER_GUARD_H

#include "agent_ports.h"
#include "names.h"

namespace dkpf {

/* Take and destruction belong to one thread: it owns the mutex. */
class MutexGuard : public ProducerGuard {
public:
    explicit MutexGuard(const wchar_t* name = AGENT_MUTEX);
    ~MutexGuard() override;
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

    GuardResult Take(std::string* words) override;

private:
    const wchar_t* m_name;
    HANDLE         m_mutex = nullptr;
};

/* Whether this account may create named memory for all sessions. 0, or the system's error number. */
DWORD ProbeGlobalMemory();

}  // namespace dkpf

#endif
