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
 * @param lpBuffer  0x4010 bytes; in: header word 0x311 at offset 0; out: a VELCOR_RECORD (velcor.h) from offset 0.
 *                  Untouched on failure.
 * @return 0; ERROR_INVALID_PARAMETER for a null pointer or another header word; otherwise the Win32 error number of the
 *         device. A device handle is opened by the first call that can and kept until the system refuses a request, which is
 *         then made once more on a new handle. Threads: any, one at a time is served. Blocks as long as the driver does.
 */
DWORD TnwDkfltrGetMirrorPerformance(void* lpBuffer);

#ifdef __cplusplus
}
#endif

#endif
