/*
 * Sends calls of one routine of a loaded module elsewhere for the time of a case, those from its own unit included: for
 * failures that no outside call can bring about. Works where the routine is called, not inlined; a case that depends on
 * it fails otherwise.
 */
#ifndef TESTS_SUPPORT_DETOUR_H
#define TESTS_SUPPORT_DETOUR_H

#include <windows.h>

#include <string.h>

#include <stdexcept>

class Detour {
public:
    template <class Routine> Detour(Routine* target, Routine* replacement) : m_code(Resolve(target))
    {
        // movabs rax, replacement; jmp rax
        BYTE  jump[Size] = { 0x48, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xE0 };
        void* to = reinterpret_cast<void*>(replacement);
        memcpy(jump + 2, &to, sizeof to);
        memcpy(m_saved, m_code, Size);
        Store(jump);
    }
    ~Detour()
    {
        Store(m_saved);
    }
    Detour(const Detour&) = delete;
    Detour& operator=(const Detour&) = delete;

private:
    static const size_t Size = 12;

    /* The routine itself: what a test program calls is a jump through its own import slot. */
    template <class Routine> static BYTE* Resolve(Routine* target)
    {
        BYTE* code = reinterpret_cast<BYTE*>(target);
        if (code[0] == 0xFF && code[1] == 0x25) {
            LONG distance = 0;
            memcpy(&distance, code + 2, sizeof distance);
            memcpy(&code, code + 6 + distance, sizeof code);
        }
        return code;
    }

    void Store(const BYTE* bytes)
    {
        DWORD old = 0;
        if (!VirtualProtect(m_code, Size, PAGE_EXECUTE_READWRITE, &old)) {
            throw std::runtime_error("the code of the module cannot be changed");
        }
        memcpy(m_code, bytes, Size);
        VirtualProtect(m_code, Size, old, &old);
        FlushInstructionCache(GetCurrentProcess(), m_code, Size);
    }

    BYTE* m_code;
    BYTE  m_saved[Size];
};

#endif
