#include "stop_watch.h"

#include <algorithm>

namespace dkpf {

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
