/*
 * The driver's control device, asked without waiting for ever: whoever looks for a driver that hangs must not hang too.
 */
#ifndef DKPF_TOOLS_STATUS_DEVICE_H
#define DKPF_TOOLS_STATUS_DEVICE_H

#include <functional>

#include "status_facts.h"

namespace dkpf {

inline constexpr DWORD DEVICE_LIMIT_MS = 2000;

/**
 * Opens the device. No performance request is sent: it would reset the peaks of the sample under way.
 * @param fed  also ask when the driver was fed; that resets nothing, but only the simulated driver knows it
 * Comes back when the driver does.
 */
DeviceFact AskDevice(bool fed);

/* Calls ask in a thread of its own and waits for it no longer than the limit. Behind the limit the thread is left to
 * the process's end, and with it whatever ask refers to. */
DeviceFact LookAtDevice(std::function<DeviceFact()> ask, DWORD limitMs = DEVICE_LIMIT_MS);

}  // namespace dkpf

#endif
