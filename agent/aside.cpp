#include "aside.h"

#include <system_error>
#include <thread>

namespace dkpf {

/* An event of the system: the waits of std::future miss a call's end now and then where calls are short and many. */
struct Aside::Call {
    explicit Call(std::function<void()> call) : what(std::move(call))
    {
    }
    ~Call()
    {
        if (done != nullptr)
            CloseHandle(done);
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    bool  DoneWithin(DWORD limitMs) const
    {
        return WaitForSingleObject(done, limitMs) == WAIT_OBJECT_0;
    }

    std::function<void()> what;
    HANDLE                done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

bool Aside::Do(std::function<void()> call, DWORD limitMs)
{
    if (m_last != nullptr && !m_last->DoneWithin(0))
        return false;
    const auto made = std::make_shared<Call>(std::move(call));
    if (made->done == nullptr)
        return false;
    try {
        std::thread([made] {
            made->what();
            SetEvent(made->done);
        }).detach();
    } catch (const std::system_error&) {
        return false;
    }
    m_last = made;
    return made->DoneWithin(limitMs);
}

}  // namespace dkpf
