#include "support/every_import.h"

#include <string.h>

#include <stdexcept>

/* Counts, then goes on to the routine with all registers and the stack as they came. */
struct EveryImport::Stub {
    BYTE      code[16];
    ULONGLONG count;   // at 16
    void*     target;  // at 24
};

static const BYTE STUB_CODE[] = {
    0xF0, 0x48, 0xFF, 0x05, 8, 0, 0, 0,  // lock inc qword [count]
    0xFF, 0x25, 10,   0,    0, 0,        // jmp [target]
};

static bool IsCode(const void* address)
{
    static const DWORD EXECUTABLE = PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    MEMORY_BASIC_INFORMATION page = {};
    return VirtualQuery(address, &page, sizeof(page)) != 0 && (page.Protect & EXECUTABLE) != 0;
}

static void Put(void** place, void* routine)
{
    DWORD protection = 0;
    if (!VirtualProtect(place, sizeof(*place), PAGE_READWRITE, &protection)) {
        throw std::runtime_error("VirtualProtect of an import slot failed");
    }
    *place = routine;
    VirtualProtect(place, sizeof(*place), protection, &protection);
}

EveryImport::EveryImport(HMODULE module)
{
    BYTE*                       base = reinterpret_cast<BYTE*>(module);
    auto*                       dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
    auto*                       nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    auto*                       entry = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);

    for (; entry->Name != 0; entry++) {
        const std::string dll = reinterpret_cast<char*>(base + entry->Name);
        auto*             asked = reinterpret_cast<IMAGE_THUNK_DATA*>(base + entry->OriginalFirstThunk);
        auto*             bound = reinterpret_cast<IMAGE_THUNK_DATA*>(base + entry->FirstThunk);
        for (; asked->u1.AddressOfData != 0; asked++, bound++) {
            void** place = reinterpret_cast<void**>(&bound->u1.Function);
            auto*  hint = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + asked->u1.AddressOfData);
            if (!IsCode(*place)) {
                continue;
            }
            const std::string routine = IMAGE_SNAP_BY_ORDINAL(asked->u1.Ordinal)
                                            ? "#" + std::to_string(IMAGE_ORDINAL(asked->u1.Ordinal))
                                            : std::string(reinterpret_cast<char*>(hint->Name));
            m_slots.push_back({ place, *place, dll + "!" + routine });
        }
    }
    m_stubs = static_cast<Stub*>(
        VirtualAlloc(nullptr, m_slots.size() * sizeof(Stub), MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
    if (m_stubs == nullptr) {
        throw std::runtime_error("no memory for the stubs");
    }
    for (size_t i = 0; i < m_slots.size(); i++) {
        memcpy(m_stubs[i].code, STUB_CODE, sizeof(STUB_CODE));
        m_stubs[i].count = 0;
        m_stubs[i].target = m_slots[i].original;
        Put(m_slots[i].place, &m_stubs[i]);
    }
}

EveryImport::~EveryImport()
{
    for (const Slot& slot : m_slots) {
        Put(slot.place, slot.original);
    }
    VirtualFree(m_stubs, 0, MEM_RELEASE);
}

std::map<std::string, ULONGLONG> EveryImport::Calls() const
{
    std::map<std::string, ULONGLONG> calls;
    for (size_t i = 0; i < m_slots.size(); i++) {
        if (m_stubs[i].count != 0) {
            calls[m_slots[i].name] += m_stubs[i].count;
        }
    }
    return calls;
}

size_t EveryImport::Number() const
{
    return m_slots.size();
}
