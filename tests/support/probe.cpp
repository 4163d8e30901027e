#include "support/probe.h"

#include <winver.h>

extern "C" void ProbeFill(Probe* probe)
{
#define FILL(name) probe->name = &::name
    FILL(CreateMutexA); FILL(CreateEventA); FILL(CloseHandle); FILL(WaitForSingleObject);
    FILL(WaitForMultipleObjects); FILL(ReleaseMutex); FILL(SetEvent); FILL(InitializeSecurityDescriptor);
    FILL(SetSecurityDescriptorDacl); FILL(GlobalAlloc); FILL(GlobalFree); FILL(CreateFileMappingA);
    FILL(OpenFileMappingA); FILL(MapViewOfFile); FILL(UnmapViewOfFile); FILL(OpenProcess);
    FILL(GetExitCodeProcess); FILL(GetCurrentProcessId); FILL(GetTickCount); FILL(GetLocalTime);
    FILL(GetComputerNameA); FILL(RegOpenKeyExA); FILL(RegQueryValueExA); FILL(RegCloseKey); FILL(CreateFileA);
    FILL(DeviceIoControl); FILL(SetErrorMode); FILL(SearchPathA); FILL(GetFileInformationByHandle);
    FILL(FileTimeToLocalFileTime); FILL(FileTimeToSystemTime); FILL(GetFileVersionInfoSizeA);
    FILL(GetFileVersionInfoA); FILL(VerQueryValueA); FILL(MultiByteToWideChar); FILL(wsprintfA);
    FILL(MessageBoxA); FILL(_beginthreadex); FILL(_endthreadex);
    FILL(log_init); FILL(log_term); FILL(log_write); FILL(TnwLoadStringTable); FILL(TnwFreeStringTable);
    FILL(TnwFormatMessage); FILL(log_util_init); FILL(log_util_term); FILL(log_util_write);
    FILL(log_util_rotate); FILL(xmllib_init); FILL(xmllib_term); FILL(xmllib_load_policy);
    FILL(xmllib_unload_policy); FILL(xmllib_load_config); FILL(xmllib_unload_config); FILL(xmllib_get_value);
    FILL(TnwDkfltrGetMirrorPerformance);
#undef FILL
}

extern "C" unsigned __stdcall ProbeThread(void* argument)
{
    auto* loop = static_cast<ProbeLoop*>(argument);
    for (;;) {
        switch (WaitForMultipleObjects(2, loop->handles, FALSE, 1000)) {
        case WAIT_OBJECT_0:
            loop->reloads++;
            break;
        case WAIT_TIMEOUT:
            loop->counter++;
            break;
        default:
            _endthreadex(7);
        }
    }
}
