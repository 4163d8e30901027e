/*
 * A machine in memory for set-up: registry, files, services and loader as plain tables. Every call that changes it
 * counts; the n-th can fail, or be the last before the program is killed.
 */
#ifndef DKPF_TESTS_MACHINE_DOUBLE_H
#define DKPF_TESTS_MACHINE_DOUBLE_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "machine.h"

namespace dkpf {

/* Thrown by the call behind which the program is killed: nothing may catch it. */
struct Killed {};

struct FakeService {
    ServiceConfig                                 config;
    std::map<ServiceSetting, ServiceSettingValue> settings;
    bool                                          runs = false;
    bool                                          stops = false;  // and still runs: a stop that takes its time
};

/* All that stays on a machine when the program ends. */
struct MachineState {
    std::map<std::wstring, std::map<std::wstring, RegistryValue>> keys;
    std::map<std::wstring, std::string>                           files;
    std::map<std::wstring, std::wstring>                          folders;  // with their access
    std::map<std::wstring, FakeService>                           services;
    std::set<std::wstring>                                        atRestart;
};

/* One line for each thing, to compare and to print. */
std::vector<std::wstring> Describe(const MachineState& state, bool running = true);

class FakeMachine : public Machine {
public:
    FakeMachine();

    MachineState             state;
    bool                     administrator = true;
    bool                     wine = true;
    bool                     loaderWorks = false;   // LoadNames gives a range
    DWORD                    loadedRange = 7000;    // the next one that it gives
    DWORD                    loadedLack = 0;        // its Last Help is so much too small
    bool                     loadsNothing = false;  // LoadNames gives none, though UnloadNames works
    bool                     settingsKept = true;   // services keep what is set beside their configuration
    std::set<std::wstring>   held;                  // can be renamed, and not deleted
    std::set<std::wstring>   locked;                // neither
    std::set<std::wstring>   loads;                 // held as soon as they stand there
    std::set<std::wstring>   unreadable;            // registry values, as KEY!NAME
    std::set<std::wstring>   lingering;             // open: once deleted they are listed until the restart, as nothing
    std::set<std::wstring>   startHangs;            // services whose start takes longer than anybody waits
    std::set<std::wstring>   stopHangs;             // likewise
    bool                     otherSetup = false;    // holds the lock
    bool                     lockTaken = false;     // by the set-up under test
    bool                     changedUnlocked = false;
    int                      tellings = 0;  // that the environment changed
    std::vector<std::string> calls;         // those that change the machine, in their order
    size_t                   failAt = 0;    // 1: the first call that changes anything fails; 0: none
    size_t                   killAt = 0;    // likewise: the program is killed behind that call

    /* What the system does at its start: removes what was marked. */
    void Restart();

    bool         IsAdministrator() override;
    bool         IsWine() override;
    std::wstring ProgramFiles() override;
    std::wstring DriverFolder() override;
    DWORD        LockSetup() override;
    void         UnlockSetup() override;
    void         EnvironmentChanged() override;
    bool         KeyExists(const std::wstring& key) override;
    DWORD        MakeKey(const std::wstring& key) override;
    DWORD        RemoveEmptyKey(const std::wstring& key) override;
    DWORD        RemoveTree(const std::wstring& key) override;
    DWORD        SubKeys(const std::wstring& key, std::vector<std::wstring>* names) override;
    DWORD        ReadValue(const std::wstring& key, const std::wstring& name, RegistryValue* value) override;
    DWORD        WriteValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value) override;
    DWORD        RemoveValue(const std::wstring& key, const std::wstring& name) override;
    PathKind     Kind(const std::wstring& path) override;
    std::vector<std::wstring> Names(const std::wstring& folder) override;
    bool                      SameFile(const std::wstring& one, const std::wstring& other) override;
    bool                      SameContent(const std::wstring& one, const std::wstring& other) override;
    DWORD                     MakeFolder(const std::wstring& path) override;
    DWORD                     RemoveFolder(const std::wstring& path) override;
    DWORD                     CopyWhole(const std::wstring& from, const std::wstring& to) override;
    DWORD                     Move(const std::wstring& from, const std::wstring& to) override;
    DWORD                     RemoveFile(const std::wstring& path) override;
    DWORD                     RemoveAtRestart(const std::wstring& path) override;
    DWORD                     ReadAccess(const std::wstring& folder, std::wstring* sddl) override;
    DWORD                     SetAccess(const std::wstring& folder, const std::wstring& sddl) override;
    bool                      ReadService(const std::wstring& name, ServiceConfig* config) override;
    DWORD                     AddService(const std::wstring& name, const ServiceConfig& config) override;
    DWORD                     ChangeService(const std::wstring& name, const ServiceConfig& config) override;
    DWORD                     RemoveService(const std::wstring& name) override;
    DWORD ReadSetting(const std::wstring& name, ServiceSetting setting, ServiceSettingValue* value) override;
    DWORD SetSetting(const std::wstring& name, ServiceSetting setting, const ServiceSettingValue& value) override;
    bool  Runs(const std::wstring& name) override;
    ServiceStart StartAndWait(const std::wstring& name) override;
    DWORD        StopAndWait(const std::wstring& name) override;
    DWORD        LoadNames(const std::wstring& iniFile) override;
    DWORD        UnloadNames(const std::wstring& driver) override;

private:
    std::set<std::wstring> m_deletedOpen;  // of lingering

    template <class Act> DWORD Change(const std::string& call, Act act);
    bool                       HoldsAnything(const std::wstring& folder) const;
};

}  // namespace dkpf

#endif
