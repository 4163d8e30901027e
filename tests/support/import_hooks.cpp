#include "support/import_hooks.h"

#include <string.h>

#include <stdexcept>

/* The slot of one import, by name or, with name NULL, by ordinal. */
static void** ImportSlot(HMODULE module, const char* dll, const char* name, WORD ordinal)
{
    BYTE*                       base = reinterpret_cast<BYTE*>(module);
    auto*                       dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
    auto*                       nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    auto*                       entry = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);

    for (; entry->Name != 0; entry++) {
        if (_stricmp(reinterpret_cast<char*>(base + entry->Name), dll) != 0) {
            continue;
        }
        auto* asked = reinterpret_cast<IMAGE_THUNK_DATA*>(base + entry->OriginalFirstThunk);
        auto* bound = reinterpret_cast<IMAGE_THUNK_DATA*>(base + entry->FirstThunk);
        for (; asked->u1.AddressOfData != 0; asked++, bound++) {
            if (IMAGE_SNAP_BY_ORDINAL(asked->u1.Ordinal)) {
                if (name == nullptr && IMAGE_ORDINAL(asked->u1.Ordinal) == ordinal) {
                    return reinterpret_cast<void**>(&bound->u1.Function);
                }
            } else if (name != nullptr) {
                auto* hint = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + asked->u1.AddressOfData);
                if (strcmp(reinterpret_cast<char*>(hint->Name), name) == 0) {
                    return reinterpret_cast<void**>(&bound->u1.Function);
                }
            }
        }
    }
    return nullptr;
}

static void Put(void** slot, void* routine)
{
    DWORD protection = 0;
    if (!VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection)) {
        throw std::runtime_error("VirtualProtect of an import slot failed");
    }
    *slot = routine;
    VirtualProtect(slot, sizeof *slot, protection, &protection);
}

bool ImportHooks::Imports(const char* dll, const char* name) const
{
    return ImportSlot(m_module, dll, name, 0) != nullptr;
}

bool ImportHooks::Imports(const char* dll, WORD ordinal) const
{
    return ImportSlot(m_module, dll, nullptr, ordinal) != nullptr;
}

void ImportHooks::Store(void** slot, void* routine)
{
    m_saved.push_back(Saved{ slot, *slot });
    Put(slot, routine);
}

bool ImportHooks::Replace(const char* dll, const char* name, void* routine)
{
    void** slot = ImportSlot(m_module, dll, name, 0);
    if (slot != nullptr) {
        Store(slot, routine);
    }
    return slot != nullptr;
}

bool ImportHooks::Replace(const char* dll, WORD ordinal, void* routine)
{
    void** slot = ImportSlot(m_module, dll, nullptr, ordinal);
    if (slot != nullptr) {
        Store(slot, routine);
    }
    return slot != nullptr;
}

void ImportHooks::RestoreAll()
{
    while (!m_saved.empty()) {
        Put(m_saved.back().slot, m_saved.back().original);
        m_saved.pop_back();
    }
}

void ImportHook::Replace(const char* dll, const char* name, void* routine)
{
    if (!m_hooks.Replace(dll, name, routine)) {
        throw std::runtime_error(std::string("not imported: ") + name);
    }
}
