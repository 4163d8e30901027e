#include "import_hook.h"
#include <stdexcept>
#include <string>
#include <string.h>

template <class T> static T* At(HMODULE hModule, DWORD offset)
{
    return reinterpret_cast<T*>(reinterpret_cast<BYTE*>(hModule) + offset);
}

void** ImportHook::Find(HMODULE hModule, const char* lpDll, const char* lpName, WORD wOrdinal)
{
    const IMAGE_DOS_HEADER*  lpDos = At<IMAGE_DOS_HEADER>(hModule, 0);
    const IMAGE_NT_HEADERS*  lpNt = At<IMAGE_NT_HEADERS>(hModule, static_cast<DWORD>(lpDos->e_lfanew));
    IMAGE_IMPORT_DESCRIPTOR* lpImport = At<IMAGE_IMPORT_DESCRIPTOR>(
        hModule, lpNt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress);

    for (; lpImport->Name != 0; lpImport++) {
        const IMAGE_THUNK_DATA* lpWhat = At<IMAGE_THUNK_DATA>(hModule, lpImport->OriginalFirstThunk);
        IMAGE_THUNK_DATA*       lpWhere = At<IMAGE_THUNK_DATA>(hModule, lpImport->FirstThunk);

        if (_stricmp(At<char>(hModule, lpImport->Name), lpDll) != 0) {
            continue;
        }
        for (; lpWhat->u1.AddressOfData != 0; lpWhat++, lpWhere++) {
            const bool fOrdinal = IMAGE_SNAP_BY_ORDINAL(lpWhat->u1.Ordinal);
            if (fOrdinal
                    ? lpName == nullptr && IMAGE_ORDINAL(lpWhat->u1.Ordinal) == wOrdinal
                    : lpName != nullptr &&
                          strcmp(At<IMAGE_IMPORT_BY_NAME>(hModule, static_cast<DWORD>(lpWhat->u1.AddressOfData))->Name,
                                 lpName) == 0) {
                return reinterpret_cast<void**>(&lpWhere->u1.Function);
            }
        }
    }
    throw std::runtime_error(std::string("not imported: ") + (lpName != nullptr ? lpName : "an ordinal"));
}

void ImportHook::Set(void* lpValue)
{
    DWORD dwOld = 0;

    VirtualProtect(m_lpSlot, sizeof(void*), PAGE_READWRITE, &dwOld);
    m_lpOriginal = *m_lpSlot;
    *m_lpSlot = lpValue;
    VirtualProtect(m_lpSlot, sizeof(void*), dwOld, &dwOld);
}

ImportHook::~ImportHook()
{
    Set(m_lpOriginal);
}
