/*
 * Calls that may hang: a log's volume, a pipe that nobody reads, a console that is held by a selection, a
 * driver that does not answer.
 */
#ifndef DKPF_TOOLS_ASIDE_H
#define DKPF_TOOLS_ASIDE_H

#include <windows.h>
#include <functional>
#include <memory>

namespace dkpf {

/**
 * Makes the call in a thread of its own and goes on at once. What the call refers to must live on until it is done, or
 * the process ends.
 * @param call  must not throw
 * @return FALSE: not made, there is no memory for a thread
 */
bool LeaveAside(std::function<void()> call);

/* The same for one call at a time, with a wait. Do belongs to one thread. */
class Aside {
public:
    /**
     * Waits for the call and goes on without it when the time is over. What the call refers to must live on until it is
     * done, or the process ends; it is not stopped by the end of this object.
     * @param call  must not throw
     * @return FALSE: not done yet; or not made, because the last one is not done or there is no memory for a thread
     */
    bool Do(std::function<void()> call, DWORD limitMs);

private:
    struct Call;
    std::shared_ptr<Call> m_last;  // its thread's too
};

}  // namespace dkpf

#endif
