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

/* Each member calls through probe.dll's import table. */
struct Probe {
#define PROBE(name) decltype(&::name) name
    PROBE(CreateMutexA); PROBE(CreateEventA); PROBE(CloseHandle); PROBE(WaitForSingleObject);
    PROBE(WaitForMultipleObjects); PROBE(ReleaseMutex); PROBE(SetEvent); PROBE(InitializeSecurityDescriptor);
    PROBE(SetSecurityDescriptorDacl); PROBE(GlobalAlloc); PROBE(GlobalFree); PROBE(CreateFileMappingA);
    PROBE(OpenFileMappingA); PROBE(MapViewOfFile); PROBE(UnmapViewOfFile); PROBE(OpenProcess);
    PROBE(GetExitCodeProcess); PROBE(GetCurrentProcessId); PROBE(GetTickCount); PROBE(GetLocalTime);
    PROBE(GetComputerNameA); PROBE(RegOpenKeyExA); PROBE(RegQueryValueExA); PROBE(RegCloseKey); PROBE(CreateFileA);
    PROBE(DeviceIoControl); PROBE(SetErrorMode); PROBE(SearchPathA); PROBE(GetFileInformationByHandle);
    PROBE(FileTimeToLocalFileTime); PROBE(FileTimeToSystemTime); PROBE(GetFileVersionInfoSizeA);
    PROBE(GetFileVersionInfoA); PROBE(VerQueryValueA); PROBE(MultiByteToWideChar); PROBE(wsprintfA);
    PROBE(MessageBoxA); PROBE(_beginthreadex); PROBE(_endthreadex);
    PROBE(log_init); PROBE(log_term); PROBE(log_write); PROBE(TnwLoadStringTable); PROBE(TnwFreeStringTable);
    PROBE(TnwFormatMessage); PROBE(log_util_init); PROBE(log_util_term); PROBE(log_util_write);
    PROBE(log_util_rotate); PROBE(xmllib_init); PROBE(xmllib_term); PROBE(xmllib_load_policy);
    PROBE(xmllib_unload_policy); PROBE(xmllib_load_config); PROBE(xmllib_unload_config); PROBE(xmllib_get_value);
    PROBE(TnwDkfltrGetMirrorPerformance);
#undef PROBE
};

/* Fills the table from the import slots as they stand now. */
extern "C" void ProbeFill(Probe* probe);
/* A thread routine that lives in the module: waits for {reload, terminate} in its argument until the second is set, and
 * returns through _endthreadex(7). Each time-out of 1000 ms counts in counter. */
struct ProbeLoop {
    HANDLE handles[2];
    unsigned counter;
    unsigned reloads;
};
extern "C" unsigned __stdcall ProbeThread(void* argument);

#endif
