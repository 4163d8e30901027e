#include "aside.h"

#include <process.h>

namespace dkpf {

static unsigned __stdcall MakeCall(void* call)
{
    const std::unique_ptr<std::function<void()>> made(static_cast<std::function<void()>*>(call));
    (*made)();
    return 0;
}

/* Not std::thread: one that is detached now and then never begins under Wine (2 of some 30,000). */
bool LeaveAside(std::function<void()> call)
{
    auto         made = std::make_unique<std::function<void()>>(std::move(call));
    const HANDLE thread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, MakeCall, made.get(), 0, nullptr));
    if (thread == nullptr)
        return false;
    static_cast<void>(made.release());  // the thread's
    CloseHandle(thread);
    return true;
}

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
    const bool left = made->done != nullptr && LeaveAside([made] {
                          made->what();
                          SetEvent(made->done);
                      });
    if (!left)
        return false;
    m_last = made;
    return made->DoneWithin(limitMs);
}

}  // namespace dkpf
