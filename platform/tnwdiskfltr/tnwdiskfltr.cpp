/*
 * tnwdiskfltr: hands the filter's record over, as the driver keeps it for the filter. One routine, by ordinal.
 */
#include <windows.h>
#include <string.h>

#include "tnwdiskfltr.h"
#include "velcor.h"

static SRWLOCK g_lock = SRWLOCK_INIT;             // guards the two below; held while the driver answers
static HANDLE  g_hDevice = INVALID_HANDLE_VALUE;  // opened by the first call that can, kept while it answers
static VELCOR_FILTER_EXCHANGE g_exchange;  // the reply lands here first, so that a failure leaves the caller's buffer

/* Opens the device at the first call; reading is all that the request needs. Lock held. */
static DWORD OpenDevice()
{
    if (g_hDevice != INVALID_HANDLE_VALUE) {
        return ERROR_SUCCESS;
    }
    g_hDevice = CreateFileA(VELCOR_DEVICE_PATH, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, NULL);
    return g_hDevice == INVALID_HANDLE_VALUE ? GetLastError() : ERROR_SUCCESS;
}

/* One exchange into g_exchange; *lpbRefused: the system refused it. Lock held. */
static DWORD RequestRecord(bool* lpbRefused)
{
    DWORD dwReturned = 0;

    ZeroMemory(&g_exchange, sizeof(g_exchange));
    g_exchange.length = VELCOR_RECORD_LENGTH;
    g_exchange.record.header = VELCOR_REQUEST_HEADER;
    *lpbRefused = !DeviceIoControl(g_hDevice, VELCOR_PRIVATE_GET_FILTER, &g_exchange, sizeof(g_exchange), &g_exchange,
                                   sizeof(g_exchange), &dwReturned, NULL);
    if (*lpbRefused) {
        return GetLastError();
    }
    if (dwReturned != sizeof(g_exchange)) {
        return ERROR_BAD_LENGTH;
    }
    return g_exchange.status;
}

/* A handle is dead for good once the driver was stopped, and nobody unloads this library: a refused request is made
 * once more on a handle of its own. Lock held. */
static DWORD GetRecord()
{
    DWORD dwErr = ERROR_SUCCESS;
    bool  bRefused = false;

    for (int i = 0; i < 2; i++) {
        dwErr = OpenDevice();
        if (dwErr != ERROR_SUCCESS) {
            return dwErr;
        }
        dwErr = RequestRecord(&bRefused);
        if (!bRefused) {
            return dwErr;
        }
        CloseHandle(g_hDevice);
        g_hDevice = INVALID_HANDLE_VALUE;
    }
    return dwErr;
}

DWORD TnwDkfltrGetMirrorPerformance(void* lpBuffer)
{
    DWORD              dwErr = ERROR_SUCCESS;
    unsigned long long header = 0;

    if (lpBuffer == NULL) {
        return ERROR_INVALID_PARAMETER;
    }
    memcpy(&header, lpBuffer, sizeof(header));
    if (header != VELCOR_REQUEST_HEADER) {
        return ERROR_INVALID_PARAMETER;
    }
    AcquireSRWLockExclusive(&g_lock);
    dwErr = GetRecord();
    if (dwErr == ERROR_SUCCESS) {
        memcpy(lpBuffer, &g_exchange.record, sizeof(g_exchange.record));
    }
    ReleaseSRWLockExclusive(&g_lock);
    return dwErr;
}
