#include "stop_watch.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <future>
#include <thread>

namespace dkpf {

bool LineWithin(Journal& journal, DWORD level, const SourcePlace& place, const std::string& text, DWORD limitMs)
{
    try {
        std::packaged_task<void()> line([&journal, level, place, text] { journal.Line(level, place, text); });
        const std::future<void>    written = line.get_future();
        std::thread(std::move(line)).detach();
        return written.wait_for(std::chrono::milliseconds(limitMs)) == std::future_status::ready;
    } catch (const std::exception&) {
        return false;  // no memory for a thread
    }
}

void WatchStop(StopWatchPorts& ports)
{
    const DWORD start = ports.Tick();
    DWORD       elapsed = 0;
    for (DWORD checkPoint = 1; elapsed < STOP_LIMIT_MS; checkPoint++) {
        if (ports.WaitEnd(std::min(STOP_STEP_MS, STOP_LIMIT_MS - elapsed)))
            return;
        elapsed = ports.Tick() - start;
        ports.StillStopping(checkPoint);
    }
    ports.GiveUp();
}

}  // namespace dkpf
