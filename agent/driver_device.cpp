#include "driver_device.h"

#include "velcor.h"

namespace dkpf {

/* The driver has nothing to flush and refuses; where it is gone the system answers in its place. */
static DWORD Answer(HANDLE device)
{
    return FlushFileBuffers(device) ? ERROR_SUCCESS : GetLastError();
}

ControlDevice::~ControlDevice()
{
    if (m_device != INVALID_HANDLE_VALUE)
        CloseHandle(m_device);
}

bool ControlDevice::Hold()
{
    const HANDLE device =
        CreateFileA(VELCOR_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (device == INVALID_HANDLE_VALUE)
        return false;
    if (m_device != INVALID_HANDLE_VALUE)
        CloseHandle(m_device);
    m_device = device;
    m_answer = Answer(device);
    return true;
}

bool ControlDevice::Lives()
{
    return m_device != INVALID_HANDLE_VALUE && Answer(m_device) == m_answer;
}

}  // namespace dkpf
