/*
 * probe.dll: a module that imports every call the doubles know, so that the doubles can be tested without the product.
 */
#ifndef TESTS_SUPPORT_PROBE_H
#define TESTS_SUPPORT_PROBE_H

#include <windows.h>

#include <process.h>

#include "tnwdiskfltr.h"
#include "tnwlog.h"
#include "tnwxml.h"

/* The calls, one CALL(name) for each. */
// clang-format off
#define PROBE_CALLS(CALL) \
    CALL(CreateMutexA) CALL(CreateEventA) CALL(CloseHandle) CALL(WaitForSingleObject) CALL(WaitForMultipleObjects) \
    CALL(ReleaseMutex) CALL(SetEvent) CALL(InitializeSecurityDescriptor) CALL(SetSecurityDescriptorDacl) \
    CALL(GlobalAlloc) CALL(GlobalFree) CALL(CreateFileMappingA) CALL(OpenFileMappingA) CALL(MapViewOfFile) \
    CALL(UnmapViewOfFile) CALL(OpenProcess) CALL(GetExitCodeProcess) CALL(GetCurrentProcessId) CALL(GetTickCount) \
    CALL(GetLocalTime) CALL(GetComputerNameA) CALL(RegOpenKeyExA) CALL(RegQueryValueExA) CALL(RegCloseKey) \
    CALL(CreateFileA) CALL(DeviceIoControl) CALL(SetErrorMode) CALL(SearchPathA) CALL(GetFileInformationByHandle) \
    CALL(FileTimeToLocalFileTime) CALL(FileTimeToSystemTime) CALL(GetFileVersionInfoSizeA) CALL(GetFileVersionInfoA) \
    CALL(VerQueryValueA) CALL(MultiByteToWideChar) CALL(wsprintfA) CALL(MessageBoxA) CALL(_beginthreadex) \
    CALL(_endthreadex) CALL(log_init) CALL(log_term) CALL(log_write) CALL(TnwLoadStringTable) \
    CALL(TnwFreeStringTable) CALL(TnwFormatMessage) CALL(log_util_init) CALL(log_util_term) CALL(log_util_write) \
    CALL(log_util_rotate) CALL(xmllib_init) CALL(xmllib_term) CALL(xmllib_load_policy) CALL(xmllib_unload_policy) \
    CALL(xmllib_load_config) CALL(xmllib_unload_config) CALL(xmllib_get_value) CALL(TnwDkfltrGetMirrorPerformance)
// clang-format on

/* Each member calls through probe.dll's import table. */
struct Probe {
#define PROBE_MEMBER(name) decltype(&::name) name;
    PROBE_CALLS(PROBE_MEMBER)
#undef PROBE_MEMBER
};

/* Fills the table from the import slots as they stand now. */
extern "C" void ProbeFill(Probe* probe);
/* A thread routine that lives in the module: waits for {reload, terminate} in its argument until the second is set, and
 * returns through _endthreadex(7). Each time-out of 1000 ms counts in counter. */
struct ProbeLoop {
    HANDLE   handles[2];
    unsigned counter;
    unsigned reloads;
};
extern "C" unsigned __stdcall ProbeThread(void* argument);

#endif
