#include "device.h"

#include <sddl.h>

Device::~Device()
{
    if (m_handle != INVALID_HANDLE_VALUE) {
        CloseHandle(m_handle);
    }
}

DWORD Device::Open()
{
    if (m_handle != INVALID_HANDLE_VALUE) {
        return ERROR_SUCCESS;
    }
    m_handle = CreateFileA(VELCOR_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, NULL);
    return m_handle == INVALID_HANDLE_VALUE ? GetLastError() : ERROR_SUCCESS;
}

DWORD Device::Feed(VELCOR_FEED& feed)
{
    DWORD returned = 0;
    DWORD error = Open();

    feed.tick = GetTickCount();
    if (error == ERROR_SUCCESS &&
        !DeviceIoControl(m_handle, VELCOR_PRIVATE_FEED, &feed, sizeof(feed), NULL, 0, &returned, NULL)) {
        error = GetLastError();
        CloseHandle(m_handle);
        m_handle = INVALID_HANDLE_VALUE;
    }
    return error;
}

DWORD BecomeTheFeeder()
{
    SECURITY_ATTRIBUTES attributes = { sizeof(attributes), NULL, FALSE };
    HANDLE              mutex = NULL;
    DWORD               error = ERROR_SUCCESS;
    DWORD               wait = WAIT_FAILED;

    // The system and administrators: nobody else can keep a feeder from starting.
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA("D:P(A;;GA;;;SY)(A;;GA;;;BA)", SDDL_REVISION_1,
                                                              &attributes.lpSecurityDescriptor, NULL)) {
        return GetLastError();
    }
    mutex = CreateMutexA(&attributes, FALSE, "Global\\TNW_VELCOR_FEEDER");
    error = GetLastError();
    LocalFree(attributes.lpSecurityDescriptor);
    if (mutex == NULL) {
        return error;
    }
    wait = WaitForSingleObject(mutex, 0);
    if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) {
        return ERROR_SUCCESS;  // the handle stays open on purpose: the end of the process gives the mutex up
    }
    error = wait == WAIT_TIMEOUT ? ERROR_BUSY : GetLastError();
    CloseHandle(mutex);
    return error;
}
