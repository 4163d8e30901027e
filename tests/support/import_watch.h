/*
 * Sees every call that one loaded module makes through its import table, whatever its arguments, and may answer it in
 * the routine's place: "does nothing at all here", "dies at the n-th call", "the n-th call fails". Slots that hold data
 * are left alone.
 */
#ifndef TESTS_SUPPORT_IMPORT_WATCH_H
#define TESTS_SUPPORT_IMPORT_WATCH_H

#include "support/import_hooks.h"

#include <memory>

class ImportWatch {
public:
    struct Call {
        std::string dll;  /* lower case, with ".dll" */
        std::string name; /* "#3" for an ordinal */
    };

    /* Comes before each call. True: the call is not made and fails, with the system's sign of failure for that routine
     * and Error as last error. Calls that the callback itself causes come to it again. */
    using Before = std::function<bool(const Call& call)>;

    ImportWatch(HMODULE module, Before before);
    ~ImportWatch();
    ImportWatch(const ImportWatch&) = delete;
    ImportWatch& operator=(const ImportWatch&) = delete;

    /* A call that can fail in the world outside, and is known here with its sign of failure. */
    static bool CanFail(const Call& call);
    size_t      Number() const; /* of imports that are watched */

    DWORD Error = ERROR_IO_DEVICE;

private:
    struct Entry {
        ImportWatch* watch;
        Call         call;
        void*        original;
    };
    static void* Arrive(Entry* entry);
    void*        MakeStub(Entry* entry);

    Before                              m_before;
    BYTE*                               m_code; /* the stubs */
    std::vector<std::unique_ptr<Entry>> m_entries;
    ImportHooks                         m_hooks;
};

#endif
