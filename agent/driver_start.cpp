#include "driver_start.h"

#include <fmt/format.h>
#include <atomic>
#include <memory>
#include <optional>

#include "aside.h"
#include "names.h"

namespace dkpf {

static constexpr DWORD POLL_MS = 20;

DriverStart::DriverStart(ServiceManager& services) : m_services(services)
{
}

ServiceStart DriverStart::EnsureRunning(DWORD limitMs, const std::function<bool()>& stopAsked)
{
    // A driver that runs needs no thread, whose stack some systems keep behind its end.
    const std::optional<ServiceStart> settled = NoStartNeeded(m_services, DRIVER_SERVICE);
    if (settled)
        return *settled;

    struct Attempt {
        std::atomic<bool> left{ false };
        std::atomic<bool> done{ false };
        ServiceStart      result;
    };
    const auto attempt = std::make_shared<Attempt>();
    const bool tried = LeaveAside([attempt, limitMs, &services = m_services] {
        attempt->result = StartAndWait(services, DRIVER_SERVICE, limitMs, [&attempt](DWORD ms) {
            Sleep(ms);
            return !attempt->left;
        });
        attempt->done = true;
    });
    if (!tried)
        return { false, "could not be started: there is no memory for a thread" };

    const DWORD start = GetTickCount();
    while (!attempt->done && GetTickCount() - start < limitMs && !stopAsked())
        Sleep(POLL_MS);
    attempt->left = true;
    if (attempt->done)
        return attempt->result;
    return { false, stopAsked() ? "was not waited for: the agent is to stop"
                                : fmt::format("did not come up within {} s", limitMs / 1000) };
}

}  // namespace dkpf
