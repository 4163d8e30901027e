/*
 * Changes to a machine, each remembered with what takes it back. A change that is there already is not made again, so
 * that a second run of the same steps changes nothing.
 */
#ifndef DKPF_TOOLS_SETUP_CHANGES_H
#define DKPF_TOOLS_SETUP_CHANGES_H

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "machine.h"

namespace dkpf {

using SayFn = std::function<void(std::string_view)>;  // one line, without its end

/* A step cannot go on; the words say what failed and why. */
class SetupError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/* Throws "WHAT: error 5, Access is denied" unless error is 0. */
void Must(DWORD error, const std::string& what);

/* Keeps other set-ups of the machine out for the life of the object. */
class SetupLock {
public:
    explicit SetupLock(Machine& machine);
    ~SetupLock();
    SetupLock(const SetupLock&) = delete;
    SetupLock& operator=(const SetupLock&) = delete;

    /* Why it cannot be had, in words. Empty: it is held. */
    std::string Take();

private:
    Machine& m_machine;
    bool     m_held = false;
};

/* "NAME.old-1" for NAME: the first that is not there. */
std::wstring FreeAside(Machine& machine, const std::wstring& path);

/* Whether name is what a file called own was moved aside to, or a copy that was not placed. */
bool IsAsideOf(const std::wstring& name, const std::wstring& own);

class Changes {
public:
    explicit Changes(Machine& machine);

    /* Each returns whether anything changed, and throws SetupError. Missing parents are made. */
    bool MakeKey(const std::wstring& key);
    bool SetValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value);
    bool RemoveValue(const std::wstring& key, const std::wstring& name);
    bool MakeFolder(const std::wstring& path);
    bool SetAccess(const std::wstring& folder, const std::wstring& sddl);
    /* A copy of from stands at to. What stood there is moved aside, since a host may hold it. */
    bool PlaceFile(const std::wstring& from, const std::wstring& to);
    bool SetService(const std::wstring& name, const ServiceConfig& config);
    bool StopIfRunning(const std::wstring& name);
    bool StartUnlessRunning(const std::wstring& name);

    /* How to take back what the caller did itself. words: "names of the counters". undo answers the system's number, or
     * throws SetupError. */
    void Remember(std::string words, std::function<DWORD()> undo);

    /* All is done: what was moved aside goes, at the next restart where it is still held. Says which. */
    void Keep(const SayFn& say);
    /* Takes everything back, the last change first. Goes on behind what cannot be taken back and says it. */
    void Undo(const SayFn& say);

private:
    struct Step {
        std::string            words;
        std::function<DWORD()> undo;
    };

    void Start(const std::wstring& name);

    Machine&                  m_machine;
    std::vector<Step>         m_steps;
    std::vector<std::wstring> m_aside;
};

}  // namespace dkpf

#endif
