/*
 * The agent's own handle of the driver's control device. It dies with the library's when the driver is stopped, and
 * says so without a request: a performance request would reset the peaks that the collect thread is about to read.
 */
#ifndef DKPF_AGENT_DRIVER_DEVICE_H
#define DKPF_AGENT_DRIVER_DEVICE_H

#include "agent_ports.h"

namespace dkpf {

class ControlDevice : public DriverDevice {
public:
    ControlDevice() = default;
    ~ControlDevice() override;
    ControlDevice(const ControlDevice&) = delete;
    ControlDevice& operator=(const ControlDevice&) = delete;

    bool Hold() override;
    bool Lives() override;

private:
    HANDLE m_device = INVALID_HANDLE_VALUE;
    DWORD  m_answer = ERROR_SUCCESS;  // to a flush when the device was opened; a dead handle answers another one
};

}  // namespace dkpf

#endif
