/*
 * Counts every call that a loaded module makes through its import table, whichever routine it is. Slots that hold data
 * are left alone. For one thread at a time where the difference between two moments is to mean something.
 */
#ifndef TESTS_SUPPORT_EVERY_IMPORT_H
#define TESTS_SUPPORT_EVERY_IMPORT_H

#include <windows.h>

#include <map>
#include <string>
#include <vector>

class EveryImport {
public:
    explicit EveryImport(HMODULE module);
    ~EveryImport();  // puts back what stood in the slots
    EveryImport(const EveryImport&) = delete;
    EveryImport& operator=(const EveryImport&) = delete;

    /* Calls so far by routine, those that were not called left out: "KERNEL32.dll!SetEvent", "tnwlog.dll!#3". */
    std::map<std::string, ULONGLONG> Calls() const;
    size_t                           Number() const;  // of slots that are counted

private:
    struct Stub;
    struct Slot {
        void**      place;
        void*       original;
        std::string name;
    };

    Stub*             m_stubs = nullptr;
    std::vector<Slot> m_slots;
};

#endif
