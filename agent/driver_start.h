/*
 * The start of the driver's service. The service manager may keep a start call for as long as it likes: a thread of its
 * own makes it, and is left alone when the time is over or the agent is to stop.
 */
#ifndef DKPF_AGENT_DRIVER_START_H
#define DKPF_AGENT_DRIVER_START_H

#include "agent_ports.h"
#include "service_control.h"

namespace dkpf {

class DriverStart : public DriverService {
public:
    /* @param services  lives as long as the process: a call may still be out when this object is gone */
    explicit DriverStart(ServiceManager& services);
    ServiceStart EnsureRunning(DWORD limitMs, const std::function<bool()>& stopAsked) override;

private:
    ServiceManager& m_services;
};

}  // namespace dkpf

#endif
