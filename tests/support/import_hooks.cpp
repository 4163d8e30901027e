#include "support/import_hooks.h"

#include <ctype.h>
#include <string.h>

#include <stdexcept>

/* One import: by name or, with name NULL, by ordinal. */
struct Import {
    const char* dll;
    const char* name;
    WORD        ordinal;
    void**      slot;
};

/* Calls visit for each import of the module until it answers true. */
static void VisitImports(HMODULE module, const std::function<bool(const Import&)>& visit)
{
    BYTE*                       base = reinterpret_cast<BYTE*>(module);
    auto*                       dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
    auto*                       nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    auto*                       entry = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);

    for (; entry->Name != 0; entry++) {
        auto* asked = reinterpret_cast<IMAGE_THUNK_DATA*>(base + entry->OriginalFirstThunk);
        auto* bound = reinterpret_cast<IMAGE_THUNK_DATA*>(base + entry->FirstThunk);
        for (; asked->u1.AddressOfData != 0; asked++, bound++) {
            Import import = { reinterpret_cast<char*>(base + entry->Name), nullptr, 0,
                              reinterpret_cast<void**>(&bound->u1.Function) };
            if (IMAGE_SNAP_BY_ORDINAL(asked->u1.Ordinal)) {
                import.ordinal = static_cast<WORD>(IMAGE_ORDINAL(asked->u1.Ordinal));
            } else {
                auto* hint = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + asked->u1.AddressOfData);
                import.name = reinterpret_cast<char*>(hint->Name);
            }
            if (visit(import)) {
                return;
            }
        }
    }
}

/* NULL where the module has no such import. */
static void** ImportSlot(HMODULE module, const char* dll, const char* name, WORD ordinal)
{
    void** slot = nullptr;

    VisitImports(module, [&](const Import& import) {
        const bool same = name != nullptr ? import.name != nullptr && strcmp(import.name, name) == 0
                                          : import.name == nullptr && import.ordinal == ordinal;
        if (same && _stricmp(import.dll, dll) == 0) {
            slot = import.slot;
        }
        return slot != nullptr;
    });
    return slot;
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

static bool IsCode(const void* address)
{
    static const DWORD EXECUTABLE = PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    MEMORY_BASIC_INFORMATION page = {};
    return VirtualQuery(address, &page, sizeof page) != 0 && (page.Protect & EXECUTABLE) != 0;
}

void ImportHooks::ReplaceEach(
    const std::function<void*(const std::string& dll, const std::string& name, void* original)>& choose)
{
    VisitImports(m_module, [&](const Import& import) {
        if (IsCode(*import.slot)) {
            std::string dll = import.dll;
            for (char& letter : dll) {
                letter = static_cast<char>(tolower(static_cast<unsigned char>(letter)));
            }
            const std::string name = import.name != nullptr ? import.name : "#" + std::to_string(import.ordinal);
            Store(import.slot, choose(dll, name, *import.slot));
        }
        return false;
    });
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
