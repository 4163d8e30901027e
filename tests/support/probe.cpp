#include "support/probe.h"

#include <winver.h>

extern "C" void ProbeFill(Probe* probe)
{
#define FILL(name) probe->name = &::name;
    PROBE_CALLS(FILL)
#undef FILL
}

extern "C" unsigned __stdcall ProbeThread(void* argument)
{
    auto* loop = static_cast<ProbeLoop*>(argument);
    for (;;) {
        switch (WaitForMultipleObjects(2, loop->handles, FALSE, 1000)) {
        case WAIT_OBJECT_0:
            loop->reloads++;
            break;
        case WAIT_TIMEOUT:
            loop->counter++;
            break;
        default:
            _endthreadex(7);
        }
    }
}
