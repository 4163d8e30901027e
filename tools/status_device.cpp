#include "status_device.h"

#include <memory>
#include <utility>

#include "aside.h"
#include "velcor.h"

namespace dkpf {

/* The samples stay young when the feeder ends, since the driver goes on answering: this is what grows old then. */
static FedFact AskFed(HANDLE device)
{
    VELCOR_FED answer{};
    DWORD      returned = 0;
    FedFact    fact;
    fact.known =
        DeviceIoControl(device, VELCOR_PRIVATE_GET_FED, nullptr, 0, &answer, sizeof(answer), &returned, nullptr) &&
        returned == sizeof(answer);
    fact.feeds = answer.feeds;
    fact.ageMs = GetTickCount() - answer.tick;
    return fact;
}

DeviceFact AskDevice(bool fed)
{
    DeviceFact   fact;
    const HANDLE device = CreateFileA(VELCOR_DEVICE_PATH, 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (device == INVALID_HANDLE_VALUE) {
        fact.error = GetLastError();
        return fact;
    }
    if (fed)
        fact.fed = AskFed(device);
    CloseHandle(device);
    return fact;
}

DeviceFact LookAtDevice(std::function<DeviceFact()> ask, DWORD limitMs)
{
    const auto answer = std::make_shared<DeviceFact>();  // the thread's too, which may outlive this call
    if (Aside().Do([answer, ask = std::move(ask)] { *answer = ask(); }, limitMs))
        return *answer;
    DeviceFact fact;
    fact.hangs = true;
    return fact;
}

}  // namespace dkpf
