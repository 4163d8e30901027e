/*
 * Replaces import slots of one loaded module. Only calls that this module makes are affected; the test program's own
 * calls of the same routines are not.
 */
#ifndef TESTS_SUPPORT_IMPORT_HOOKS_H
#define TESTS_SUPPORT_IMPORT_HOOKS_H

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

class ImportHooks {
public:
    explicit ImportHooks(HMODULE module) : m_module(module)
    {
    }
    ~ImportHooks()
    {
        RestoreAll();
    }
    ImportHooks(const ImportHooks&) = delete;
    ImportHooks& operator=(const ImportHooks&) = delete;

    /* True if the module imports the routine. */
    bool Imports(const char* dll, const char* name) const;
    bool Imports(const char* dll, WORD ordinal) const;
    /* Puts the routine into the slot. False, and nothing changed, where the module has no such import. */
    bool Replace(const char* dll, const char* name, void* routine);
    bool Replace(const char* dll, WORD ordinal, void* routine);
    /* Offers every imported routine, but no data (the DLL's name in lower case, an ordinal as "#3"), and puts what
     * comes back into its slot. */
    void
    ReplaceEach(const std::function<void*(const std::string& dll, const std::string& name, void* original)>& choose);
    /* Puts back what stood in each replaced slot, last one first. */
    void RestoreAll();

private:
    struct Saved {
        void** slot;
        void*  original;
    };
    void Store(void** slot, void* routine);

    HMODULE            m_module;
    std::vector<Saved> m_saved;
};

/* The address of a routine as a slot holds it. */
template <class Routine> void* Address(Routine* routine)
{
    return reinterpret_cast<void*>(routine);
}

/* One slot for the life of the object. Throws where the module does not import the routine. */
class ImportHook {
public:
    template <class Routine>
    ImportHook(HMODULE module, const char* dll, const char* name, Routine* replacement) : m_hooks(module)
    {
        Replace(dll, name, Address(replacement));
    }

private:
    void Replace(const char* dll, const char* name, void* routine);

    ImportHooks m_hooks;
};

#endif
