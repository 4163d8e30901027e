#include "machine_double.h"

#include <fmt/format.h>
#include <algorithm>

#include "registration.h"
#include "text.h"

namespace dkpf {

FakeMachine::FakeMachine()
{
    for (const wchar_t* folder : { L"C:", L"C:\\Program Files", L"C:\\Windows", L"C:\\Windows\\drivers" })
        state.folders[folder] = L"D:AI";
    for (const wchar_t* key :
         { L"SYSTEM", L"SYSTEM\\CurrentControlSet", L"SYSTEM\\CurrentControlSet\\Services",
           L"SYSTEM\\CurrentControlSet\\Services\\EventLog",
           L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application", L"Software", ENVIRONMENT_KEY })
        state.keys[key];
    state.keys[ENVIRONMENT_KEY][L"Path"] = { REG_EXPAND_SZ, L"%SystemRoot%\\system32;C:\\tools;", 0 };
}

std::vector<std::wstring> Describe(const MachineState& state, bool running)
{
    std::vector<std::wstring> lines;
    for (const auto& [key, values] : state.keys) {
        lines.push_back(L"key " + key);
        for (const auto& [name, value] : values)
            lines.push_back(key + L"!" + name + L" = " + std::to_wstring(value.type) + L" " + value.text + L" " +
                            std::to_wstring(value.number) + L" " + std::to_wstring(value.bytes.size()));
    }
    for (const auto& [path, content] : state.files)
        lines.push_back(L"file " + path + L" = " + Wide(content));
    for (const auto& [path, access] : state.folders)
        lines.push_back(L"folder " + path + L" " + access);
    for (const auto& [name, service] : state.services) {
        lines.push_back(L"service " + name + L" " + std::to_wstring(service.config.type) + L" " +
                        std::to_wstring(service.config.start) + L" " + service.config.command + L" " +
                        service.config.displayName +
                        (running && service.runs ? service.stops ? L" stops" : L" runs" : L""));
        for (const auto& [setting, value] : service.settings) {
            std::wstring words = value.text.c_str();
            for (const FailureAction& action : value.actions)
                words += std::to_wstring(action.type) + L" after " + std::to_wstring(action.delayMs) + L", ";
            lines.push_back(name + L" has " + std::to_wstring(static_cast<int>(setting)) + L" " + words +
                            std::to_wstring(value.resetS));
        }
    }
    for (const std::wstring& path : state.atRestart)
        lines.push_back(L"at restart " + path);
    return lines;
}

/* The call fails without having changed anything, or is made and may be the last. */
template <class Act> DWORD FakeMachine::Change(const std::string& call, Act act)
{
    calls.push_back(call);
    changedUnlocked = changedUnlocked || !lockTaken;
    if (calls.size() == failAt)
        return ERROR_WRITE_FAULT;
    const DWORD error = act();
    if (calls.size() == killAt)
        throw Killed();
    return error;
}

static bool Below(const std::wstring& path, const std::wstring& folder)
{
    return path.size() > folder.size() + 1 && path.compare(0, folder.size() + 1, folder + L"\\") == 0;
}

void FakeMachine::Restart()
{
    held.clear();
    m_deletedOpen.clear();
    const std::set<std::wstring> marked = std::move(state.atRestart);
    state.atRestart.clear();
    for (const std::wstring& path : marked)
        state.files.erase(path);
    for (auto path = marked.rbegin(); path != marked.rend(); ++path) {
        if (!HoldsAnything(*path))
            state.folders.erase(*path);
    }
}

bool FakeMachine::HoldsAnything(const std::wstring& folder) const
{
    const auto below = [&folder](const auto& entry) { return Below(entry.first, folder); };
    const auto open = [&folder](const std::wstring& path) { return Below(path, folder); };
    return std::any_of(m_deletedOpen.begin(), m_deletedOpen.end(), open) ||
           std::any_of(state.files.begin(), state.files.end(), below) ||
           std::any_of(state.folders.begin(), state.folders.end(), below);
}

/* ---- The system ---- */

bool FakeMachine::IsAdministrator()
{
    return administrator;
}

bool FakeMachine::IsWine()
{
    return wine;
}

std::wstring FakeMachine::ProgramFiles()
{
    return L"C:\\Program Files";
}

std::wstring FakeMachine::DriverFolder()
{
    return L"C:\\Windows\\drivers";
}

DWORD FakeMachine::LockSetup()
{
    if (otherSetup || lockTaken)
        return ERROR_BUSY;
    lockTaken = true;
    return ERROR_SUCCESS;
}

void FakeMachine::UnlockSetup()
{
    lockTaken = false;
}

void FakeMachine::EnvironmentChanged()
{
    tellings++;
}

/* ---- Registry ---- */

bool FakeMachine::KeyExists(const std::wstring& key)
{
    return state.keys.count(key) != 0;
}

DWORD FakeMachine::MakeKey(const std::wstring& key)
{
    return Change("make key " + Narrow(key), [&]() -> DWORD {
        if (ParentPath(key) != L"" && !KeyExists(ParentPath(key)))
            return ERROR_FILE_NOT_FOUND;
        state.keys[key];
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::RemoveEmptyKey(const std::wstring& key)
{
    const auto below = [&key](const auto& entry) { return Below(entry.first, key); };
    if (!KeyExists(key))
        return ERROR_FILE_NOT_FOUND;
    if (!state.keys[key].empty() || std::any_of(state.keys.begin(), state.keys.end(), below))
        return ERROR_DIR_NOT_EMPTY;
    return Change("remove key " + Narrow(key), [&]() -> DWORD {
        state.keys.erase(key);
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::RemoveTree(const std::wstring& key)
{
    return Change("remove tree " + Narrow(key), [&]() -> DWORD {
        for (auto each = state.keys.begin(); each != state.keys.end();)
            each = each->first == key || Below(each->first, key) ? state.keys.erase(each) : std::next(each);
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::SubKeys(const std::wstring& key, std::vector<std::wstring>* names)
{
    for (const auto& [each, values] : state.keys) {
        if (ParentPath(each) == key)
            names->push_back(each.substr(key.size() + 1));
    }
    return ERROR_SUCCESS;
}

DWORD FakeMachine::ReadValue(const std::wstring& key, const std::wstring& name, RegistryValue* value)
{
    if (!KeyExists(key) || state.keys[key].count(name) == 0)
        return ERROR_FILE_NOT_FOUND;
    if (unreadable.count(key + L"!" + name) != 0)
        return ERROR_ACCESS_DENIED;
    *value = state.keys[key][name];
    return ERROR_SUCCESS;
}

DWORD FakeMachine::WriteValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value)
{
    return Change("write " + Narrow(key + L"!" + name), [&]() -> DWORD {
        if (!KeyExists(key))
            return ERROR_FILE_NOT_FOUND;
        state.keys[key][name] = value;
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::RemoveValue(const std::wstring& key, const std::wstring& name)
{
    return Change("remove " + Narrow(key + L"!" + name), [&]() -> DWORD {
        return KeyExists(key) && state.keys[key].erase(name) != 0 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    });
}

/* ---- Files ---- */

PathKind FakeMachine::Kind(const std::wstring& path)
{
    if (state.files.count(path) != 0)
        return PathKind::File;
    return state.folders.count(path) != 0 ? PathKind::Folder : PathKind::Nothing;
}

std::vector<std::wstring> FakeMachine::Names(const std::wstring& folder)
{
    std::vector<std::wstring> names;
    for (const auto& [path, content] : state.files) {
        if (ParentPath(path) == folder)
            names.push_back(path.substr(folder.size() + 1));
    }
    for (const auto& [path, access] : state.folders) {
        if (ParentPath(path) == folder)
            names.push_back(path.substr(folder.size() + 1));
    }
    for (const std::wstring& path : m_deletedOpen) {
        if (ParentPath(path) == folder)
            names.push_back(path.substr(folder.size() + 1));
    }
    return names;
}

bool FakeMachine::SameFile(const std::wstring& one, const std::wstring& other)
{
    return one == other;
}

bool FakeMachine::SameContent(const std::wstring& one, const std::wstring& other)
{
    return Kind(one) == PathKind::File && Kind(other) == PathKind::File && state.files[one] == state.files[other];
}

DWORD FakeMachine::MakeFolder(const std::wstring& path)
{
    return Change("make folder " + Narrow(path), [&]() -> DWORD {
        if (Kind(ParentPath(path)) != PathKind::Folder)
            return ERROR_PATH_NOT_FOUND;
        state.folders[path] = L"D:AI";
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::RemoveFolder(const std::wstring& path)
{
    return Change("remove folder " + Narrow(path), [&]() -> DWORD {
        if (HoldsAnything(path))
            return ERROR_DIR_NOT_EMPTY;
        return state.folders.erase(path) != 0 ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
    });
}

DWORD FakeMachine::CopyWhole(const std::wstring& from, const std::wstring& to)
{
    return Change("copy " + Narrow(to), [&]() -> DWORD {
        if (Kind(from) != PathKind::File || Kind(ParentPath(to)) != PathKind::Folder)
            return ERROR_PATH_NOT_FOUND;
        state.files[to] = state.files[from];
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::Move(const std::wstring& from, const std::wstring& to)
{
    return Change("move " + Narrow(from), [&]() -> DWORD {
        if (Kind(from) != PathKind::File)
            return ERROR_FILE_NOT_FOUND;
        if (locked.count(from) != 0)
            return ERROR_SHARING_VIOLATION;
        if (Kind(to) != PathKind::Nothing)
            return ERROR_ALREADY_EXISTS;
        state.files[to] = state.files[from];
        state.files.erase(from);
        if (loads.count(to) != 0)
            held.insert(to);
        if (held.erase(from) != 0)
            held.insert(to);
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::RemoveFile(const std::wstring& path)
{
    return Change("remove file " + Narrow(path), [&]() -> DWORD {
        if (held.count(path) != 0 || locked.count(path) != 0)
            return ERROR_ACCESS_DENIED;
        if (lingering.count(path) != 0 && state.files.count(path) != 0)
            m_deletedOpen.insert(path);
        return state.files.erase(path) != 0 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    });
}

DWORD FakeMachine::RemoveAtRestart(const std::wstring& path)
{
    return Change("remove at restart " + Narrow(path), [&]() -> DWORD {
        state.atRestart.insert(path);
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::ReadAccess(const std::wstring& folder, std::wstring* sddl)
{
    if (Kind(folder) != PathKind::Folder)
        return ERROR_PATH_NOT_FOUND;
    *sddl = state.folders[folder];
    return ERROR_SUCCESS;
}

DWORD FakeMachine::SetAccess(const std::wstring& folder, const std::wstring& sddl)
{
    return Change("access " + Narrow(folder), [&]() -> DWORD {
        if (Kind(folder) != PathKind::Folder)
            return ERROR_PATH_NOT_FOUND;
        state.folders[folder] = sddl;
        if (sddl.find(L"AI") == std::wstring::npos)  // as the system keeps them
            state.folders[folder].insert(sddl.find(L'('), L"AI");
        return ERROR_SUCCESS;
    });
}

/* ---- Services ---- */

bool FakeMachine::ReadService(const std::wstring& name, ServiceConfig* config)
{
    const auto found = state.services.find(name);
    if (found == state.services.end())
        return false;
    *config = found->second.config;
    return true;
}

DWORD FakeMachine::AddService(const std::wstring& name, const ServiceConfig& config)
{
    return Change("add service " + Narrow(name), [&]() -> DWORD {
        if (state.services.count(name) != 0)
            return ERROR_SERVICE_EXISTS;
        state.services[name].config = config;
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::ChangeService(const std::wstring& name, const ServiceConfig& config)
{
    return Change("change service " + Narrow(name), [&]() -> DWORD {
        state.services.at(name).config = config;
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::RemoveService(const std::wstring& name)
{
    return Change("remove service " + Narrow(name), [&]() -> DWORD {
        return state.services.erase(name) != 0 ? ERROR_SUCCESS : ERROR_SERVICE_DOES_NOT_EXIST;
    });
}

DWORD FakeMachine::ReadSetting(const std::wstring& name, ServiceSetting setting, ServiceSettingValue* value)
{
    const auto& settings = state.services.at(name).settings;
    const auto  found = settings.find(setting);
    *value = found != settings.end() ? found->second : ServiceSettingValue();
    return ERROR_SUCCESS;
}

DWORD FakeMachine::SetSetting(const std::wstring& name, ServiceSetting setting, const ServiceSettingValue& value)
{
    return Change("set service " + Narrow(name), [&]() -> DWORD {
        auto& settings = state.services.at(name).settings;
        if (settingsKept && value == ServiceSettingValue())
            settings.erase(setting);
        else if (settingsKept)
            settings[setting] = value;
        return ERROR_SUCCESS;
    });
}

bool FakeMachine::Runs(const std::wstring& name)
{
    const auto found = state.services.find(name);
    return found != state.services.end() && found->second.runs;
}

ServiceStart FakeMachine::StartAndWait(const std::wstring& name)
{
    const DWORD error = Change("start " + Narrow(name), [&]() -> DWORD {
        state.services.at(name).runs = true;
        state.services.at(name).stops = false;
        return startHangs.count(name) != 0 ? ERROR_SERVICE_REQUEST_TIMEOUT : ERROR_SUCCESS;
    });
    return error == ERROR_SUCCESS ? ServiceStart{ true, "was started" }
                                  : ServiceStart{ false, "could not be started: " + SystemErrorText(error) };
}

DWORD FakeMachine::StopAndWait(const std::wstring& name)
{
    return Change("stop " + Narrow(name), [&]() -> DWORD {
        FakeService& service = state.services.at(name);
        service.stops = stopHangs.count(name) != 0;
        service.runs = service.stops;
        return service.stops ? ERROR_SERVICE_REQUEST_TIMEOUT : ERROR_SUCCESS;
    });
}

/* ---- Loader of counter names ---- */

DWORD FakeMachine::LoadNames(const std::wstring& iniFile)
{
    return Change("load names " + Narrow(iniFile), [&]() -> DWORD {
        if (!loaderWorks || loadsNothing || Kind(iniFile) != PathKind::File)
            return ERROR_SUCCESS;  // as a stub answers
        auto& values = state.keys[PERFORMANCE_KEY];
        if (values.count(VALUE_FIRST_COUNTER) != 0)
            return ERROR_ALREADY_EXISTS;
        values[VALUE_FIRST_COUNTER] = { REG_DWORD, {}, loadedRange };
        values[VALUE_LAST_COUNTER] = { REG_DWORD, {}, loadedRange + 34 };
        values[VALUE_FIRST_HELP] = { REG_DWORD, {}, loadedRange + 1 };
        values[VALUE_LAST_HELP] = { REG_DWORD, {}, loadedRange + 35 - loadedLack };
        // What stands in the system's tables from now on.
        state.keys[L"SYSTEM"][L"names"] = { REG_SZ, Wide(state.files[iniFile]), 0 };
        return ERROR_SUCCESS;
    });
}

DWORD FakeMachine::UnloadNames(const std::wstring& driver)
{
    return Change("unload names " + Narrow(driver), [&]() -> DWORD {
        if (!loaderWorks)
            return ERROR_SUCCESS;
        auto& values = state.keys[PERFORMANCE_KEY];
        for (const wchar_t* name : { VALUE_FIRST_COUNTER, VALUE_LAST_COUNTER, VALUE_FIRST_HELP, VALUE_LAST_HELP })
            values.erase(name);
        state.keys[L"SYSTEM"].erase(L"names");
        return ERROR_SUCCESS;
    });
}

}  // namespace dkpf
