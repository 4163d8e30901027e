#include "system_info.h"

#include <windows.h>

#include "text.h"

namespace dkpf {

std::string ComputerName()
{
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD   size = ARRAYSIZE(name);
    return GetComputerNameW(name, &size) ? Narrow(name) : std::string();
}

bool IsAdministrator()
{
    BYTE  sid[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof(sid);
    BOOL  member = FALSE;
    return CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &size) &&
           CheckTokenMembership(nullptr, sid, &member) && member;
}

bool IsWine()
{
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

std::wstring DriverFolderOfSystem()
{
    wchar_t folder[MAX_PATH] = {};
    GetSystemDirectoryW(folder, ARRAYSIZE(folder));
    return std::wstring(folder) + L"\\drivers";
}

}  // namespace dkpf
