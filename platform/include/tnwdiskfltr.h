/*
 * tnwdiskfltr: the disk filter's mirror performance record. Binding is by ordinal (import/tnwdiskfltr.def).
 */
#ifndef TNWDISKFLTR_H
#define TNWDISKFLTR_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Ordinal 5. Reads the filter's record and resets its peaks: nobody but the collect thread calls it.
 * @param lpBuffer  0x4010 bytes; in: header word 0x311, 64 bits, at offset 0; out: a VELCOR_RECORD (velcor.h), 0x4008
 *                  bytes, from offset 0. The 8 bytes behind it are never touched; nothing is on failure.
 * @return 0; ERROR_INVALID_PARAMETER for a null pointer or another header word, whether there is a driver or not;
 *         ERROR_FILE_NOT_FOUND while the driver does not run; ERROR_ACCESS_DENIED where this account may not open the
 *         device; ERROR_BAD_LENGTH if the driver answers less than a record; otherwise the Win32 error number with
 * which the system or the filter refuses the request. A failure resets no peak, and the next call tries again.
 *
 * A device handle is opened by the first call that can and kept until the system refuses a request, which is then made
 * once more on a new handle: a driver that was stopped and started is found again. The handle is not closed when the
 * library is unloaded. Threads: any, one at a time is served. Blocks as long as the driver does. Does not promise to
 * keep the thread's last-error value.
 */
DWORD TnwDkfltrGetMirrorPerformance(void* lpBuffer);

#ifdef __cplusplus
}
#endif

#endif
