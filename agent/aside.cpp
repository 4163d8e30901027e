#include "aside.h"

#include <chrono>
#include <exception>
#include <thread>

namespace dkpf {

static bool DoneWithin(const std::future<void>& call, DWORD limitMs)
{
    return call.wait_for(std::chrono::milliseconds(limitMs)) == std::future_status::ready;
}

bool Aside::Do(std::function<void()> call, DWORD limitMs)
{
    if (m_last.valid() && !DoneWithin(m_last, 0))
        return false;
    try {
        std::packaged_task<void()> task(std::move(call));
        std::future<void>          done = task.get_future();
        std::thread(std::move(task)).detach();
        m_last = std::move(done);
        return DoneWithin(m_last, limitMs);
    } catch (const std::exception&) {
        return false;  // no memory for a thread
    }
}

}  // namespace dkpf
