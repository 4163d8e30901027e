/*
 * What contract cases need of the two that hand mirror records over: the filter library's routine, and the control
 * device. One side of each is the real one, on the driver installed and started, the other the double.
 */
#ifndef TESTS_CONTRACT_DEVICE_CONTRACT_H
#define TESTS_CONTRACT_DEVICE_CONTRACT_H

#include <windows.h>

#include <memory>

#include "doubles/mirror_record.h"
#include "tnwdiskfltr.h"

/* What stands behind both. The driver runs, and its records are empty. */
class RecordKeeper {
public:
    virtual ~RecordKeeper() = default;

    /* The next request hands over the first record; later ones, if nothing else happens, the second: that is the first
     * with its peaks fallen. */
    virtual void Give(const VELCOR_RECORD& first, const VELCOR_RECORD& later) = 0;
    virtual void StopDriver() = 0;
    virtual void StartDriver() = 0;
};

class FilterSide : public RecordKeeper {
public:
    decltype(&::TnwDkfltrGetMirrorPerformance) TnwDkfltrGetMirrorPerformance = nullptr;  // ordinal 5

    /* The filter refuses requests with this Win32 error number, until Give. */
    virtual void Refuse(DWORD error) = 0;
};

class DeviceSide : public RecordKeeper {
public:
    /* CreateFile and DeviceIoControl; 0 or the Win32 error number. */
    virtual DWORD Open(HANDLE* device) = 0;
    virtual DWORD Control(HANDLE device, DWORD code, void* in, DWORD inSize, void* out, DWORD outSize,
                          DWORD* returned) = 0;
    virtual void  Close(HANDLE device) = 0;

    /* Requests get this status word, or are refused as by a device that is not ready, until Give. */
    virtual void AnswerStatus(DWORD status) = 0;
    virtual void Refuse() = 0;
};

std::unique_ptr<FilterSide> RealFilter();
std::unique_ptr<FilterSide> DoubleOfFilter();
std::unique_ptr<DeviceSide> RealDevice();
std::unique_ptr<DeviceSide> DoubleOfDevice();

#endif
