#include "win32_machine.h"

#include <aclapi.h>
#include <sddl.h>

#include "file_io.h"
#include "process_info.h"
#include "registration.h"
#include "registry_key.h"
#include "service_control.h"
#include "service_handle.h"
#include "system_info.h"
#include "text.h"

namespace dkpf {

namespace {

DWORD ErrorUnless(BOOL done)
{
    return done ? ERROR_SUCCESS : GetLastError();
}

/* The system's answer to a query whose length it tells first. Empty: it has none. */
template <class Query> std::vector<BYTE> Answer(Query query)
{
    DWORD             size = 0;
    std::vector<BYTE> buffer;
    query(nullptr, 0, &size);
    if (size == 0)
        return buffer;
    buffer.resize(size);
    if (!query(buffer.data(), size, &size))
        buffer.clear();
    return buffer;
}

std::wstring WithoutDevicePrefix(const std::wstring& path)
{
    static const std::wstring prefix = L"\\??\\";  // the service manager puts it before the path of a driver
    return path.compare(0, prefix.size(), prefix) == 0 ? path.substr(prefix.size()) : path;
}

DWORD WINAPI TellWindows(LPVOID)
{
    static wchar_t what[] = L"Environment";
    DWORD_PTR      result = 0;
    SendMessageTimeoutW(HWND_BROADCAST, WM_SETTINGCHANGE, 0, reinterpret_cast<LPARAM>(what), SMTO_ABORTIFHUNG, 1000,
                        &result);
    return 0;
}

class Win32Machine : public Machine {
public:
    /* ---- The system ---- */

    bool IsAdministrator() override
    {
        return dkpf::IsAdministrator();
    }

    bool IsWine() override
    {
        return dkpf::IsWine();
    }

    std::wstring ProgramFiles() override
    {
        RegistryValue folder;  // not the environment's: a program of 32 bits would hand on another one
        ReadValue(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion", L"ProgramFilesDir", &folder);
        return folder.text;
    }

    std::wstring DriverFolder() override
    {
        return DriverFolderOfSystem();
    }

    DWORD LockSetup() override
    {
        // Nobody owns it: that the name is there says it all, and it goes with the program that made it.
        const HANDLE lock = CreateMutexW(nullptr, FALSE, SETUP_LOCK);
        const DWORD  error = GetLastError();
        if (lock == nullptr)
            return error;
        if (error == ERROR_ALREADY_EXISTS) {
            CloseHandle(lock);
            return ERROR_BUSY;
        }
        m_lock = lock;
        return ERROR_SUCCESS;
    }

    void UnlockSetup() override
    {
        CloseHandle(m_lock);
        m_lock = nullptr;
    }

    void EnvironmentChanged() override
    {
        // Each window may take its second, and there may be many that hang: the whole is bounded by not waiting for it.
        const HANDLE thread = CreateThread(nullptr, 0, TellWindows, nullptr, 0, nullptr);
        if (thread == nullptr)
            return;
        WaitForSingleObject(thread, 5000);
        CloseHandle(thread);
    }

    /* ---- Registry ---- */

    bool KeyExists(const std::wstring& key) override
    {
        return RegistryKey(key, KEY_READ).Error() == ERROR_SUCCESS;
    }

    DWORD MakeKey(const std::wstring& key) override
    {
        HKEY        made = nullptr;
        const DWORD error =
            static_cast<DWORD>(RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                               KEY_READ | KEY_WOW64_64KEY, nullptr, &made, nullptr));
        if (made != nullptr)
            RegCloseKey(made);
        return error;
    }

    DWORD RemoveEmptyKey(const std::wstring& key) override
    {
        DWORD keys = 0, values = 0;
        {
            const RegistryKey open(key, KEY_READ);
            DWORD             error = open.Error();
            if (error == ERROR_SUCCESS)
                error = static_cast<DWORD>(RegQueryInfoKeyW(open.Handle(), nullptr, nullptr, nullptr, &keys, nullptr,
                                                            nullptr, &values, nullptr, nullptr, nullptr, nullptr));
            if (error != ERROR_SUCCESS)
                return error;
        }
        if (keys != 0 || values != 0)
            return ERROR_DIR_NOT_EMPTY;
        return static_cast<DWORD>(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), KEY_WOW64_64KEY, 0));
    }

    DWORD RemoveTree(const std::wstring& key) override
    {
        return static_cast<DWORD>(RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str()));
    }

    DWORD SubKeys(const std::wstring& key, std::vector<std::wstring>* names) override
    {
        const RegistryKey open(key, KEY_READ);
        names->clear();
        if (open.Error() != ERROR_SUCCESS)
            return open.Error();
        for (DWORD i = 0;; i++) {
            wchar_t    name[256] = {};
            DWORD      length = ARRAYSIZE(name);
            const LONG error = RegEnumKeyExW(open.Handle(), i, name, &length, nullptr, nullptr, nullptr, nullptr);
            if (error != ERROR_SUCCESS)
                return error == ERROR_NO_MORE_ITEMS ? ERROR_SUCCESS : static_cast<DWORD>(error);
            names->push_back(name);
        }
    }

    DWORD ReadValue(const std::wstring& key, const std::wstring& name, RegistryValue* value) override
    {
        const RegistryKey open(key);
        RegistryValue     is;
        DWORD             error = open.Text(name, &is.text, &is.type);
        if (error == ERROR_UNSUPPORTED_TYPE) {
            is.type = REG_DWORD;
            error = open.Number(name, &is.number);
        }
        if (error == ERROR_UNSUPPORTED_TYPE)
            error = open.Read(name, &is.type, &is.bytes);
        if (error == ERROR_SUCCESS)
            *value = is;
        return error;
    }

    DWORD WriteValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value) override
    {
        const RegistryKey open(key, KEY_SET_VALUE);
        if (open.Error() != ERROR_SUCCESS)
            return open.Error();
        std::vector<BYTE> bytes = value.bytes;
        if (value.type == REG_DWORD && bytes.empty()) {
            bytes.resize(sizeof(DWORD));
            memcpy(bytes.data(), &value.number, sizeof(DWORD));
        } else if (value.type == REG_SZ || value.type == REG_EXPAND_SZ) {
            bytes.resize((value.text.size() + 1) * sizeof(wchar_t));
            memcpy(bytes.data(), value.text.c_str(), bytes.size());
        }
        return static_cast<DWORD>(
            RegSetValueExW(open.Handle(), name.c_str(), 0, value.type, bytes.data(), static_cast<DWORD>(bytes.size())));
    }

    DWORD RemoveValue(const std::wstring& key, const std::wstring& name) override
    {
        const RegistryKey open(key, KEY_SET_VALUE);
        return open.Error() != ERROR_SUCCESS ? open.Error()
                                             : static_cast<DWORD>(RegDeleteValueW(open.Handle(), name.c_str()));
    }

    /* ---- Files ---- */

    PathKind Kind(const std::wstring& path) override
    {
        const DWORD attributes = GetFileAttributesW(path.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES)
            return PathKind::Nothing;
        return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? PathKind::Folder : PathKind::File;
    }

    std::vector<std::wstring> Names(const std::wstring& folder) override
    {
        std::vector<std::wstring> names;
        const DWORD               attributes = GetFileAttributesW(folder.c_str());
        // What a link leads to is not ours to walk through.
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
            return names;
        WIN32_FIND_DATAW data{};
        const HANDLE     find = FindFirstFileW((folder + L"\\*").c_str(), &data);
        if (find == INVALID_HANDLE_VALUE)
            return names;
        do {
            const std::wstring name = data.cFileName;
            if (name != L"." && name != L"..")
                names.push_back(name);
        } while (FindNextFileW(find, &data));
        FindClose(find);
        return names;
    }

    bool SameFile(const std::wstring& one, const std::wstring& other) override
    {
        return dkpf::SameFile(one, other);
    }

    bool SameContent(const std::wstring& one, const std::wstring& other) override
    {
        const HANDLE a = OpenToRead(one);
        const HANDLE b = OpenToRead(other);
        bool         same = a != INVALID_HANDLE_VALUE && b != INVALID_HANDLE_VALUE;
        for (DWORD gotA = 1, gotB = 1; same && gotA != 0;) {
            static char blockA[65536], blockB[65536];
            same = ReadFile(a, blockA, sizeof(blockA), &gotA, nullptr) &&
                   ReadFile(b, blockB, sizeof(blockB), &gotB, nullptr) && gotA == gotB &&
                   memcmp(blockA, blockB, gotA) == 0;
        }
        for (const HANDLE file : { a, b }) {
            if (file != INVALID_HANDLE_VALUE)
                CloseHandle(file);
        }
        return same;
    }

    DWORD MakeFolder(const std::wstring& path) override
    {
        return ErrorUnless(CreateDirectoryW(path.c_str(), nullptr));
    }

    DWORD RemoveFolder(const std::wstring& path) override
    {
        return ErrorUnless(RemoveDirectoryW(path.c_str()));
    }

    DWORD CopyWhole(const std::wstring& from, const std::wstring& to) override
    {
        SetFileAttributesW(to.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (!CopyFileW(from.c_str(), to.c_str(), FALSE))
            return GetLastError();
        SetFileAttributesW(to.c_str(), FILE_ATTRIBUTE_NORMAL);  // a copy from a read-only medium
        const HANDLE file = CreateFileW(to.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            return GetLastError();
        const DWORD error = ErrorUnless(FlushFileBuffers(file));
        CloseHandle(file);
        return error;
    }

    DWORD Move(const std::wstring& from, const std::wstring& to) override
    {
        return ErrorUnless(MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_WRITE_THROUGH));
    }

    DWORD RemoveFile(const std::wstring& path) override
    {
        return ErrorUnless(DeleteFileW(path.c_str()));
    }

    DWORD RemoveAtRestart(const std::wstring& path) override
    {
        return ErrorUnless(MoveFileExW(path.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT));
    }

    DWORD ReadAccess(const std::wstring& folder, std::wstring* sddl) override
    {
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        const DWORD error = GetNamedSecurityInfoW(folder.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                                  nullptr, nullptr, nullptr, &descriptor);
        if (error != ERROR_SUCCESS)
            return error;
        LPWSTR      text = nullptr;
        const DWORD converted = ErrorUnless(ConvertSecurityDescriptorToStringSecurityDescriptorW(
            descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr));
        if (converted == ERROR_SUCCESS)
            *sddl = text;
        LocalFree(text);
        LocalFree(descriptor);
        return converted;
    }

    DWORD SetAccess(const std::wstring& folder, const std::wstring& sddl) override
    {
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, &descriptor, nullptr))
            return GetLastError();
        BOOL                        there = FALSE, defaulted = FALSE;
        PACL                        acl = nullptr;
        SECURITY_DESCRIPTOR_CONTROL control = 0;
        DWORD                       revision = 0;
        DWORD error = ErrorUnless(GetSecurityDescriptorDacl(descriptor, &there, &acl, &defaulted));
        if (error == ERROR_SUCCESS)
            error = ErrorUnless(GetSecurityDescriptorControl(descriptor, &control, &revision));
        if (error == ERROR_SUCCESS) {
            const SECURITY_INFORMATION inherit = (control & SE_DACL_PROTECTED) != 0
                                                     ? PROTECTED_DACL_SECURITY_INFORMATION
                                                     : UNPROTECTED_DACL_SECURITY_INFORMATION;
            std::wstring               path = folder;
            error = SetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | inherit, nullptr,
                                          nullptr, acl, nullptr);
        }
        LocalFree(descriptor);
        return error;
    }

    /* ---- Services ---- */

    bool ReadService(const std::wstring& name, ServiceConfig* config) override
    {
        const ServiceHandle service(name, SERVICE_QUERY_CONFIG);
        if (service.Handle() == nullptr)
            return false;
        const std::vector<BYTE> answer = Answer([&service](BYTE* buffer, DWORD size, DWORD* needed) {
            return QueryServiceConfigW(service.Handle(), reinterpret_cast<LPQUERY_SERVICE_CONFIGW>(buffer), size,
                                       needed);
        });
        if (answer.size() < sizeof(QUERY_SERVICE_CONFIGW))
            return true;  // there, and as good as unknown
        QUERY_SERVICE_CONFIGW is{};
        memcpy(&is, answer.data(), sizeof(is));
        config->type = is.dwServiceType;
        config->start = is.dwStartType;
        config->command = is.lpBinaryPathName != nullptr ? WithoutDevicePrefix(is.lpBinaryPathName) : L"";
        config->displayName = is.lpDisplayName != nullptr ? is.lpDisplayName : L"";
        return true;
    }

    DWORD AddService(const std::wstring& name, const ServiceConfig& config) override
    {
        const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE);
        if (manager == nullptr)
            return GetLastError();
        const SC_HANDLE service = CreateServiceW(manager, name.c_str(), config.displayName.c_str(),
                                                 SERVICE_QUERY_STATUS, config.type, config.start, SERVICE_ERROR_NORMAL,
                                                 config.command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
        const DWORD     error = service != nullptr ? ERROR_SUCCESS : GetLastError();
        if (service != nullptr)
            CloseServiceHandle(service);
        CloseServiceHandle(manager);
        return error;
    }

    DWORD ChangeService(const std::wstring& name, const ServiceConfig& config) override
    {
        const ServiceHandle service(name, SERVICE_CHANGE_CONFIG);
        if (service.Handle() == nullptr)
            return service.Error();
        return ErrorUnless(ChangeServiceConfigW(service.Handle(), config.type, config.start, SERVICE_NO_CHANGE,
                                                config.command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr,
                                                config.displayName.c_str()));
    }

    DWORD RemoveService(const std::wstring& name) override
    {
        const ServiceHandle service(name, DELETE);
        return service.Handle() == nullptr ? service.Error() : ErrorUnless(::DeleteService(service.Handle()));
    }

    DWORD ReadSetting(const std::wstring& name, ServiceSetting setting, ServiceSettingValue* value) override
    {
        const ServiceHandle service(name, SERVICE_QUERY_CONFIG);
        if (service.Handle() == nullptr)
            return service.Error();
        const std::vector<BYTE>           answer = Answer([&service, setting](BYTE* buffer, DWORD size, DWORD* needed) {
            return QueryServiceConfig2W(service.Handle(), Level(setting), buffer, size, needed);
        });
        ServiceSettingValue               is;
        SERVICE_DESCRIPTIONW              description{};
        SERVICE_REQUIRED_PRIVILEGES_INFOW privileges{};
        SERVICE_FAILURE_ACTIONSW          failure{};
        switch (setting) {
        case ServiceSetting::Description:
            if (!Take(answer, &description))
                return ERROR_INVALID_DATA;
            if (description.lpDescription != nullptr)
                is.text = description.lpDescription;
            break;
        case ServiceSetting::RequiredPrivileges:
            if (!Take(answer, &privileges))
                return ERROR_INVALID_DATA;
            for (const wchar_t* each = privileges.pmszRequiredPrivileges; each != nullptr && *each != L'\0';
                 each += wcslen(each) + 1)
                is.text += std::wstring(each) + L'\0';
            break;
        case ServiceSetting::FailureActions:
            if (!Take(answer, &failure))
                return ERROR_INVALID_DATA;
            is.resetS = failure.dwResetPeriod;
            for (DWORD i = 0; failure.lpsaActions != nullptr && i < failure.cActions; i++)
                is.actions.push_back({ failure.lpsaActions[i].Type, failure.lpsaActions[i].Delay });
            break;
        }
        *value = is;
        return ERROR_SUCCESS;
    }

    DWORD SetSetting(const std::wstring& name, ServiceSetting setting, const ServiceSettingValue& value) override
    {
        // SERVICE_START: a restart after a failure is a start.
        const ServiceHandle service(name, SERVICE_CHANGE_CONFIG | SERVICE_START);
        if (service.Handle() == nullptr)
            return service.Error();
        std::wstring                      copy = value.text + L'\0';
        SERVICE_DESCRIPTIONW              description{ copy.data() };
        SERVICE_REQUIRED_PRIVILEGES_INFOW privileges{ copy.data() };
        std::vector<SC_ACTION>            actions;
        for (const FailureAction& action : value.actions)
            actions.push_back({ action.type, action.delayMs });
        const DWORD count = static_cast<DWORD>(actions.size());
        actions.resize(count + 1u);  // none are taken away by a list that is there and counts 0
        SERVICE_FAILURE_ACTIONSW failure{ value.resetS, nullptr, nullptr, count, actions.data() };
        LPVOID                   info = &description;
        if (setting == ServiceSetting::RequiredPrivileges)
            info = &privileges;
        else if (setting == ServiceSetting::FailureActions)
            info = &failure;
        return ErrorUnless(ChangeServiceConfig2W(service.Handle(), Level(setting), info));
    }

    bool Runs(const std::wstring& name) override
    {
        const ServiceInfo info = SystemServices().Query(name.c_str());
        if (!info.installed || info.error != ERROR_SUCCESS || info.state == SERVICE_STOPPED)
            return false;
        // Some systems show a service as running whose process was killed.
        return info.pid == 0 || LookAtProcess(info.pid, 0) == ProcessLife::Alive;
    }

    ServiceStart StartAndWait(const std::wstring& name) override
    {
        const auto stopping = [&name, this] {
            return SystemServices().Query(name.c_str()).state == SERVICE_STOP_PENDING && Runs(name);
        };
        for (DWORD waitedMs = 0; waitedMs < STOP_LIMIT_MS && stopping(); waitedMs += START_STEP_MS)
            SleepStep(START_STEP_MS);
        return dkpf::StartAndWait(SystemServices(), name.c_str(), START_LIMIT_MS, SleepStep);
    }

    DWORD StopAndWait(const std::wstring& name) override
    {
        DWORD error = ERROR_SUCCESS;
        for (DWORD waitedMs = 0; Runs(name); waitedMs += START_STEP_MS) {
            const ServiceInfo info = SystemServices().Query(name.c_str());
            // A service that is still on its way up takes no stop; ask again when it is up.
            if (info.state == SERVICE_RUNNING)
                error = SystemServices().Control(name.c_str(), SERVICE_CONTROL_STOP);
            if (waitedMs >= STOP_LIMIT_MS)
                return error != ERROR_SUCCESS ? error : ERROR_SERVICE_REQUEST_TIMEOUT;
            if (Runs(name))
                SleepStep(START_STEP_MS);
        }
        return ERROR_SUCCESS;
    }

    /* ---- Loader of counter names ---- */

    DWORD LoadNames(const std::wstring& iniFile) override
    {
        // The loader looks for the symbols in the current folder.
        wchar_t            before[MAX_PATH] = {};
        const std::wstring folder = ParentPath(iniFile);
        GetCurrentDirectoryW(ARRAYSIZE(before), before);
        SetCurrentDirectoryW(folder.c_str());
        const DWORD error = CallLoader("LoadPerfCounterTextStringsW", L"lodctr \"" + iniFile + L"\"");
        SetCurrentDirectoryW(before);
        return error;
    }

    DWORD UnloadNames(const std::wstring& driver) override
    {
        return CallLoader("UnloadPerfCounterTextStringsW", L"unlodctr " + driver);
    }

private:
    static constexpr wchar_t SETUP_LOCK[] = L"Global\\dkpfctl_setup";
    static constexpr DWORD   START_LIMIT_MS = 60000;
    static constexpr DWORD   STOP_LIMIT_MS = 310000;  // so long an agent may take

    static bool SleepStep(DWORD ms)
    {
        Sleep(ms);
        return true;
    }

    static DWORD Level(ServiceSetting setting)
    {
        switch (setting) {
        case ServiceSetting::FailureActions:
            return SERVICE_CONFIG_FAILURE_ACTIONS;
        case ServiceSetting::RequiredPrivileges:
            return SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO;
        case ServiceSetting::Description:
            break;
        }
        return SERVICE_CONFIG_DESCRIPTION;
    }

    template <class Record> static bool Take(const std::vector<BYTE>& answer, Record* record)
    {
        if (answer.size() < sizeof(Record))
            return false;
        memcpy(record, answer.data(), sizeof(Record));
        return true;
    }

    static HANDLE OpenToRead(const std::wstring& path)
    {
        return CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_EXISTING, 0, nullptr);
    }

    /* Found at run time: a system without it has no names to load either, and dkpfctl still starts. */
    static DWORD CallLoader(const char* routine, const std::wstring& command)
    {
        using Loader = DWORD(WINAPI*)(LPWSTR, BOOL);
        const HMODULE library = LoadLibraryExW(L"loadperf.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        if (library == nullptr)
            return GetLastError();
        const FARPROC found = GetProcAddress(library, routine);
        Loader        load = nullptr;
        memcpy(&load, &found, sizeof(load));
        std::wstring copy = command;
        const DWORD  error = load != nullptr ? load(copy.data(), TRUE) : ERROR_PROC_NOT_FOUND;
        FreeLibrary(library);
        return error;
    }

    HANDLE m_lock = nullptr;
};

}  // namespace

Machine& ThisMachine()
{
    static Win32Machine machine;
    return machine;
}

std::wstring DefaultHome(Machine& machine)
{
    return machine.ProgramFiles() + L"\\TARNWELL";
}

std::wstring WholePath(const std::wstring& path)
{
    wchar_t     whole[32768] = {};
    const DWORD length = GetFullPathNameW(path.c_str(), ARRAYSIZE(whole), whole, nullptr);
    if (length == 0 || length >= ARRAYSIZE(whole))
        return {};
    std::wstring result = whole;
    while (result.size() > 1 && (result.back() == L'\\' || result.back() == L'/'))
        result.pop_back();
    return result;
}

}  // namespace dkpf
