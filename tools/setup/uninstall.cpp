#include "uninstall.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "home.h"
#include "names.h"
#include "product_files.h"
#include "registration.h"
#include "search_path.h"
#include "text.h"
#include "title_range.h"
#include "win32_machine.h"

namespace dkpf {

class Removal {
public:
    Removal(Machine& machine, const UninstallOptions& options, const SayFn& say)
        : m_machine(machine), m_home(options.home), m_purge(options.purge), m_everything(options.purge), m_say(say),
          m_lock(machine)
    {
    }

    bool Run();

private:
    void StopServices();
    void ForgetNames();
    void RemovePathEntry();
    void RemoveServices();
    void RemoveKeys();
    void RemoveFiles();

    void RemoveTree(const std::wstring& key);
    void RemoveEmptyKeys(std::wstring key, const std::wstring& end);
    void RemoveOneFile(const std::wstring& path);
    void RemoveOwnFiles(const std::wstring& folder, const std::vector<std::wstring>& own);
    void RemoveEverything(const std::wstring& folder);
    void RemoveFolderIfEmpty(const std::wstring& folder);
    void RemoveService(const wchar_t* name);
    bool IsGoing(const std::wstring& path) const;
    bool OwnDriver();
    bool HoldsProduct();

    std::wstring At(const wchar_t* path) const
    {
        return m_home + L"\\" + path;
    }
    void Say(const std::string& line)
    {
        m_say(line);
    }
    void Left(const std::string& what, DWORD error)
    {
        m_left.push_back(what + ": " + SystemErrorText(error));
        m_say("NOT removed: " + m_left.back());
    }

    Machine&                  m_machine;
    const std::wstring        m_home;
    const bool                m_purge;
    bool                      m_everything;  // foreign files in the product's folders too
    const SayFn&              m_say;
    SetupLock                 m_lock;
    std::vector<std::string>  m_left;
    std::vector<std::wstring> m_going;  // whole paths: removed, or marked for the restart
    bool                      m_namesLeft = false;
};

/* ---- Services ---- */

bool Removal::OwnDriver()
{
    ServiceConfig config;
    return m_machine.ReadService(DRIVER_SERVICE, &config) && config.displayName == DRIVER_DISPLAY;
}

void Removal::StopServices()
{
    for (const wchar_t* name : { AGENT_SERVICE, FEEDER_SERVICE, DRIVER_SERVICE }) {
        if ((name == DRIVER_SERVICE && !OwnDriver()) || !m_machine.Runs(name))
            continue;
        const DWORD error = m_machine.StopAndWait(name);
        if (error == ERROR_SUCCESS)
            Say("service " + Narrow(name) + ": stopped");
        else
            Left("service " + Narrow(name) + " does not stop", error);
    }
}

void Removal::RemoveService(const wchar_t* name)
{
    ServiceConfig config;
    if (!m_machine.ReadService(name, &config))
        return;
    const DWORD error = m_machine.RemoveService(name);
    if (error == ERROR_SUCCESS)
        Say("service " + Narrow(name) + ": removed");
    else
        Left("service " + Narrow(name), error);
}

void Removal::RemoveServices()
{
    RemoveService(AGENT_SERVICE);
    RemoveService(FEEDER_SERVICE);
    if (OwnDriver()) {
        // The file first: as long as the service is there, a later run knows that the file is ours.
        const std::wstring folder = m_machine.DriverFolder();
        RemoveOwnFiles(folder, { DRIVER_NAME });
        RemoveService(DRIVER_SERVICE);
    } else {
        Say("driver: none of ours");
    }
}

/* ---- Registry ---- */

void Removal::ForgetNames()
{
    DWORD first = 0;
    if (!ReadTitleRange(m_machine, &first)) {
        RegistryValue damaged;
        if (m_machine.ReadValue(PERFORMANCE_KEY, VALUE_FIRST_COUNTER, &damaged) == ERROR_SUCCESS)
            m_machine.UnloadNames(L"tnwdiskperf");  // as much as the loader still finds
        return;
    }
    const DWORD error = m_machine.UnloadNames(L"tnwdiskperf");
    if (error == ERROR_SUCCESS)
        Say("names of the counters: taken out");
    else
        Left("names of the counters", error);
    m_namesLeft = error != ERROR_SUCCESS;
}

void Removal::RemovePathEntry()
{
    RegistryValue      path;
    const std::wstring bin = At(BIN_FOLDER);
    DWORD              error = m_machine.ReadValue(ENVIRONMENT_KEY, L"Path", &path);
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND)
        return Left("PATH", error);
    if (!HoldsFolder(path.text, bin))
        return;
    path.text = WithoutFolder(path.text, bin);
    error = path.text.empty() ? m_machine.RemoveValue(ENVIRONMENT_KEY, L"Path")
                              : m_machine.WriteValue(ENVIRONMENT_KEY, L"Path", path);
    if (error != ERROR_SUCCESS)
        return Left("PATH", error);
    Say("PATH: taken out");
    m_machine.EnvironmentChanged();
}

void Removal::RemoveTree(const std::wstring& key)
{
    if (!m_machine.KeyExists(key))
        return;
    const DWORD error = m_machine.RemoveTree(key);
    if (error == ERROR_SUCCESS)
        Say("key " + Narrow(key) + ": removed");
    else
        Left("key " + Narrow(key), error);
}

/* The key and its parents up to end, which stays, as far as they are empty. */
void Removal::RemoveEmptyKeys(std::wstring key, const std::wstring& end)
{
    for (; key.size() > end.size(); key.resize(key.find_last_of(L'\\'))) {
        if (!m_machine.KeyExists(key))
            continue;
        const DWORD error = m_machine.RemoveEmptyKey(key);
        if (error == ERROR_DIR_NOT_EMPTY)
            return Say("key " + Narrow(key) + ": stays, others use it");
        if (error != ERROR_SUCCESS)
            return Left("key " + Narrow(key), error);
        Say("key " + Narrow(key) + ": removed");
    }
}

void Removal::RemoveKeys()
{
    // The names can be taken out only as long as their range stands in the key.
    if (!m_namesLeft)
        RemoveTree(PROVIDER_KEY);
    RemoveTree(EVENT_SOURCE_KEY);
    RegistryValue     value;
    const std::string words = "value " + Narrow(DEBUG_VALUE) + " of " + Narrow(DEBUG_KEY);
    DWORD             error = m_machine.ReadValue(DEBUG_KEY, DEBUG_VALUE, &value);
    if (error == ERROR_SUCCESS)
        error = m_machine.RemoveValue(DEBUG_KEY, DEBUG_VALUE);
    if (error == ERROR_SUCCESS)
        Say(words + ": removed");
    else if (error != ERROR_FILE_NOT_FOUND)
        Left(words, error);
    RemoveEmptyKeys(DEBUG_KEY, L"Software");
}

/* ---- Files ---- */

/* Its name may still be listed: a file that was removed while a program had it open is, until the program closes it,
 * and the system calls it neither a file nor a folder meanwhile. */
bool Removal::IsGoing(const std::wstring& path) const
{
    return std::find(m_going.begin(), m_going.end(), path) != m_going.end();
}

void Removal::RemoveOneFile(const std::wstring& path)
{
    if (IsGoing(path))
        return;
    DWORD error = m_machine.RemoveFile(path);
    if (error == ERROR_SUCCESS)
        return m_going.push_back(path);
    // A program that runs or a library that is loaded can be renamed, and does not stand in the way of a new one then.
    // One that cannot be renamed is not marked: by the restart a new one might stand there.
    std::wstring held = path;
    if (path.find(HELD_SUFFIX, path.find_last_of(L'\\')) == std::wstring::npos) {
        held = FreeAside(m_machine, path);
        if (m_machine.Move(path, held) != ERROR_SUCCESS)
            return Left("file " + Narrow(path), error);
    }
    if (m_machine.RemoveAtRestart(held) != ERROR_SUCCESS)
        return Left("file " + Narrow(held), error);
    m_going.push_back(held);
    Say("file " + Narrow(held) + ": in use, goes at the next restart");
}

/* Those of own, and what was set aside of them. */
void Removal::RemoveOwnFiles(const std::wstring& folder, const std::vector<std::wstring>& own)
{
    for (const std::wstring& name : m_machine.Names(folder)) {
        const auto ours = [&name](const std::wstring& each) { return name == each || IsAsideOf(name, each); };
        if (std::any_of(own.begin(), own.end(), ours))
            RemoveOneFile(folder + L"\\" + name);
    }
}

void Removal::RemoveEverything(const std::wstring& folder)
{
    for (const std::wstring& name : m_machine.Names(folder)) {
        const std::wstring path = folder + L"\\" + name;
        if (m_machine.Kind(path) == PathKind::Folder) {
            RemoveEverything(path);
            RemoveFolderIfEmpty(path);
        } else {
            RemoveOneFile(path);
        }
    }
}

void Removal::RemoveFolderIfEmpty(const std::wstring& folder)
{
    if (m_machine.Kind(folder) != PathKind::Folder || IsGoing(folder))
        return;
    bool pending = false;
    for (const std::wstring& name : m_machine.Names(folder)) {
        const std::wstring path = folder + L"\\" + name;
        if (!IsGoing(path))
            return Say("folder " + Narrow(folder) + ": stays, it holds " + Narrow(name));
        pending = true;
    }
    // What goes at the restart goes in the order it was named: the folder behind what it holds.
    const DWORD error = pending ? m_machine.RemoveAtRestart(folder) : m_machine.RemoveFolder(folder);
    if (error != ERROR_SUCCESS)
        return Left("folder " + Narrow(folder), error);
    m_going.push_back(folder);
    Say("folder " + Narrow(folder) + (pending ? ": goes at the next restart" : ": removed"));
}

/* Whether the folders below the home are the product's: a wrong --home could lead to those of the system. */
bool Removal::HoldsProduct()
{
    const auto stands = [this](const ProductFile& file) { return m_machine.Kind(At(file.path)) == PathKind::File; };
    if (std::any_of(std::begin(PRODUCT_FILES), std::end(PRODUCT_FILES), stands))
        return true;
    // Behind an uninstall that left them.
    for (const auto& [folder, start] : { std::pair(LOG_FOLDER, L"diskperf"), std::pair(PERF_FOLDER, L"nmp") }) {
        for (const std::wstring& name : m_machine.Names(At(folder))) {
            if (name.rfind(start, 0) == 0)
                return true;
        }
    }
    return false;
}

void Removal::RemoveFiles()
{
    static constexpr const wchar_t* OWN_FOLDERS[] = { SCENARIO_FOLDER, POLICY_FOLDER, ETC_FOLDER, DRIVER_FOLDER,
                                                      BIN_FOLDER };
    if (m_purge) {
        for (const wchar_t* folder : { LOG_FOLDER, PERF_FOLDER }) {
            if (m_everything)
                RemoveEverything(At(folder));
            RemoveFolderIfEmpty(At(folder));
        }
    }
    for (const wchar_t* folder : OWN_FOLDERS) {
        std::vector<std::wstring> own;
        const auto                add = [&own, folder](const std::wstring& path) {
            const size_t cut = path.find_last_of(L'\\');
            if (path.substr(0, cut) == folder)
                own.push_back(path.substr(cut + 1));
        };
        for (const ProductFile& file : PRODUCT_FILES)
            add(file.path);
        for (const wchar_t* path : MADE_FILES)
            add(path);
        if (m_everything)
            RemoveEverything(At(folder));
        else
            RemoveOwnFiles(At(folder), own);
        RemoveFolderIfEmpty(At(folder));
    }
    RemoveFolderIfEmpty(m_home);
}

bool Removal::Run()
{
    Say("removing the product from " + Narrow(m_home));
    if (!m_machine.IsAdministrator()) {
        Say("this account is no administrator: start it from an administrator's prompt");
        return false;
    }
    const std::string refused = m_lock.Take();
    if (!refused.empty()) {
        Say(refused);
        return false;
    }
    if (m_home.empty()) {  // bin, etc and log of whatever drive is the current one
        Say("the folder to remove from is no path: name another one with --home");
        return false;
    }
    if (m_purge && !HoldsProduct()) {
        Say("purge: foreign files stay, no file of the product stands there");
        m_everything = false;
    }
    StopServices();
    ForgetNames();
    RemovePathEntry();
    RemoveServices();
    RemoveKeys();
    RemoveFiles();
    if (m_left.empty())
        Say("removed");
    else
        Say("not all could be removed; mend what is said above and start it again");
    return m_left.empty();
}

std::wstring RegisteredHome(Machine& machine)
{
    RegistryValue library;
    if (machine.ReadValue(PERFORMANCE_KEY, VALUE_LIBRARY, &library) == ERROR_SUCCESS) {
        const Home home = HomeOfModulePath(library.text);
        // As set-up writes it. Anything else may lead anywhere.
        const bool whole = home.root.find(L':') == 1 || home.root.rfind(L"\\\\", 0) == 0;
        if (whole && library.text == home.Bin() + L"\\" + PRODUCT_DLL)
            return home.root;
    }
    return DefaultHome(machine);
}

bool Uninstall(Machine& machine, const UninstallOptions& options, const SayFn& say)
{
    return Removal(machine, options, say).Run();
}

}  // namespace dkpf
