/*
 * Replaces one import of a loaded DLL for the life of the object: so a test records a system call, fails it, or gives
 * the DLL a clock of its own. By name, or where lpName is nullptr by ordinal.
 */
#ifndef IMPORT_HOOK_H
#define IMPORT_HOOK_H

#include <windows.h>

class ImportHook {
  public:
    template <class F>
    ImportHook(HMODULE hModule, const char* lpDll, const char* lpName, F* lpReplacement, WORD wOrdinal = 0)
    {
        m_lpSlot = Find(hModule, lpDll, lpName, wOrdinal);
        Set(reinterpret_cast<void*>(lpReplacement));
    }
    ~ImportHook();
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;

    /* What stood there before. */
    template <class F> F* Original() const
    {
        return reinterpret_cast<F*>(m_lpOriginal);
    }

  private:
    static void** Find(HMODULE hModule, const char* lpDll, const char* lpName,
                       WORD wOrdinal); /* throws if not imported */
    void          Set(void* lpValue);

    void** m_lpSlot = nullptr;
    void*  m_lpOriginal = nullptr;
};

#endif
