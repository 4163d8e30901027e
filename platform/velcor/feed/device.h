/*
 * The driver's control device as the feeder uses it, and the one-feeder rule of the machine.
 */
#ifndef VELCORFEED_DEVICE_H
#define VELCORFEED_DEVICE_H

#include <windows.h>
#include "velcor.h"

/* A handle that opens when the driver is there, dies when it is stopped, and is opened anew when it is back. One
 * thread. */
class Device {
public:
    Device() = default;
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /** Opens the device unless it is open. @return 0, or the Win32 error number (2, 3: the driver does not run). */
    DWORD Open();

    /** Hands a feed over, with the time of now. @return 0, or the Win32 error number; the device is then closed. */
    DWORD Feed(VELCOR_FEED& feed);

private:
    HANDLE m_handle = INVALID_HANDLE_VALUE;
};

/**
 * Takes the mutex that one feeder of the machine holds (Global\TNW_VELCOR_FEEDER, administrators only). It is held by
 * the calling thread until its process ends; one that was killed lets go of it.
 * @return 0; ERROR_BUSY: another feeder holds it; ERROR_ACCESS_DENIED: no administrator; otherwise the Win32 error
 * number.
 */
DWORD BecomeTheFeeder();

#endif
