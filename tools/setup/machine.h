/*
 * What set-up needs of a machine: its registry, files, services and the loader of counter names. The real one calls the
 * system; a test brings one of its own. Every call is one step that a kill can fall behind, never into.
 *
 * Registry keys lie below HKEY_LOCAL_MACHINE. Errors are the system's numbers, 0 is success. One thread calls.
 */
#ifndef DKPF_TOOLS_SETUP_MACHINE_H
#define DKPF_TOOLS_SETUP_MACHINE_H

#include <windows.h>
#include <winsvc.h>
#include <string>
#include <vector>

#include "service_control.h"

namespace dkpf {

struct RegistryValue {
    DWORD             type = REG_NONE;
    std::wstring      text;        // REG_SZ, REG_EXPAND_SZ
    DWORD             number = 0;  // REG_DWORD
    std::vector<BYTE> bytes = {};  // what is none of these, as it stands

    bool operator==(const RegistryValue& other) const
    {
        return type == other.type && text == other.text && number == other.number && bytes == other.bytes;
    }
};

enum class PathKind { Nothing, File, Folder };

struct ServiceConfig {
    DWORD        type = SERVICE_WIN32_OWN_PROCESS;
    DWORD        start = SERVICE_AUTO_START;
    std::wstring command;
    std::wstring displayName;
};

/* What a service has beside its configuration. Not every system keeps each of them. */
enum class ServiceSetting { Description, FailureActions, RequiredPrivileges };

struct FailureAction {
    SC_ACTION_TYPE type = SC_ACTION_NONE;
    DWORD          delayMs = 0;

    bool operator==(const FailureAction& other) const
    {
        return type == other.type && delayMs == other.delayMs;
    }
};

/* As the system gives it and takes it back. Empty: the service has none. */
struct ServiceSettingValue {
    std::wstring               text;        // Description; RequiredPrivileges: names, each ended by a NUL
    std::vector<FailureAction> actions;     // FailureActions: of the first failure, the second, and so on
    DWORD                      resetS = 0;  // FailureActions: so long without a failure, and the first counts again

    bool operator==(const ServiceSettingValue& other) const
    {
        return text == other.text && actions == other.actions && resetS == other.resetS;
    }
};

class Machine {
public:
    virtual ~Machine() = default;

    /* ---- The system ---- */
    virtual bool         IsAdministrator() = 0;
    virtual bool         IsWine() = 0;  // a system without a real loader of counter names
    virtual std::wstring ProgramFiles() = 0;
    virtual std::wstring DriverFolder() = 0;
    /* One set-up at a time: held until it is given back, or this program ends. ERROR_BUSY: another one holds it. */
    virtual DWORD LockSetup() = 0;
    virtual void  UnlockSetup() = 0;
    /* Tells running programs that the environment changed. Waits 5 s for them at most. */
    virtual void EnvironmentChanged() = 0;

    /* ---- Registry ---- */
    virtual bool  KeyExists(const std::wstring& key) = 0;
    virtual DWORD MakeKey(const std::wstring& key) = 0;         // its parent is there
    virtual DWORD RemoveEmptyKey(const std::wstring& key) = 0;  // ERROR_DIR_NOT_EMPTY where it holds anything
    virtual DWORD RemoveTree(const std::wstring& key) = 0;
    virtual DWORD SubKeys(const std::wstring& key, std::vector<std::wstring>* names) = 0;
    virtual DWORD ReadValue(const std::wstring& key, const std::wstring& name, RegistryValue* value) = 0;
    virtual DWORD WriteValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value) = 0;
    virtual DWORD RemoveValue(const std::wstring& key, const std::wstring& name) = 0;

    /* ---- Files ---- */
    virtual PathKind                  Kind(const std::wstring& path) = 0;
    virtual std::vector<std::wstring> Names(const std::wstring& folder) = 0;  // of files and folders in it
    virtual bool                      SameFile(const std::wstring& one, const std::wstring& other) = 0;
    virtual bool                      SameContent(const std::wstring& one, const std::wstring& other) = 0;
    virtual DWORD                     MakeFolder(const std::wstring& path) = 0;
    virtual DWORD                     RemoveFolder(const std::wstring& path) = 0;   // empty ones only
    virtual DWORD CopyWhole(const std::wstring& from, const std::wstring& to) = 0;  // replaces, flushed
    virtual DWORD Move(const std::wstring& from, const std::wstring& to) = 0;       // never replaces; held files too
    virtual DWORD RemoveFile(const std::wstring& path) = 0;
    virtual DWORD RemoveAtRestart(const std::wstring& path) = 0;  // a file, or a folder that is empty by then
    virtual DWORD ReadAccess(const std::wstring& folder, std::wstring* sddl) = 0;
    virtual DWORD SetAccess(const std::wstring& folder, const std::wstring& sddl) = 0;

    /* ---- Services ---- */
    virtual bool  ReadService(const std::wstring& name, ServiceConfig* config) = 0;  // FALSE: not there
    virtual DWORD AddService(const std::wstring& name, const ServiceConfig& config) = 0;
    virtual DWORD ChangeService(const std::wstring& name, const ServiceConfig& config) = 0;
    virtual DWORD RemoveService(const std::wstring& name) = 0;
    virtual DWORD ReadSetting(const std::wstring& name, ServiceSetting setting, ServiceSettingValue* value) = 0;
    virtual DWORD SetSetting(const std::wstring& name, ServiceSetting setting, const ServiceSettingValue& value) = 0;
    virtual bool  Runs(const std::wstring& name) = 0;  // or is about to
    /* Both wait for the state: 60 s for a start, 310 s for a stop, which an agent may take. What the limit cuts off may
     * still happen later. A start waits for the end of a stop that is under way first, 310 s more. */
    virtual ServiceStart StartAndWait(const std::wstring& name) = 0;
    virtual DWORD        StopAndWait(const std::wstring& name) = 0;

    /* ---- Loader of counter names ---- */
    virtual DWORD LoadNames(const std::wstring& iniFile) = 0;
    virtual DWORD UnloadNames(const std::wstring& driver) = 0;
};

}  // namespace dkpf

#endif
