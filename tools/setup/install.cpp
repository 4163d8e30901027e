/*
 * The steps stand in the table at the end, in their order. Whatever they change goes through Changes, which takes it
 * back when a later step fails.
 */
#include "install.h"

#include <fmt/format.h>

#include "names.h"
#include "product_files.h"
#include "registration.h"
#include "search_path.h"
#include "text.h"
#include "title_range.h"
#include "uninstall.h"

namespace dkpf {

static RegistryValue Text(std::wstring text, DWORD type = REG_SZ)
{
    return RegistryValue{ type, std::move(text), 0 };
}

static RegistryValue Number(DWORD number)
{
    return RegistryValue{ REG_DWORD, {}, number };
}

static std::string DoneOrThere(bool changed)
{
    return changed ? "done" : "is there already";
}

class Installation {
public:
    Installation(Machine& machine, const InstallOptions& options, const SayFn& say)
        : m_machine(machine), m_options(options), m_say(say), m_lock(machine), m_changes(machine)
    {
    }

    bool Run();

private:
    struct Step {
        const char* title;
        std::string (Installation::*run)();  // its result in words
    };
    static const Step STEPS[];

    std::string CheckRights();
    std::string KeepOthersOut();
    std::string CheckSource();
    std::string CheckHome();
    std::string CheckDriver();
    std::string StopRunning();
    std::string ForgetOldNames();
    std::string MakeFolders();
    std::string PlaceFiles();
    std::string MakeDebugKey();
    std::string RegisterEvents();
    std::string RegisterDriver();
    std::string RegisterFeeder();
    std::string RegisterAgent();
    std::string AddToPath();
    std::string RegisterProvider();
    std::string LoadNames();
    std::string SetObjectList();
    std::string StartAgain();
    void        SweepAside();

    std::wstring At(const wchar_t* path) const
    {
        return m_options.home + L"\\" + path;
    }
    std::wstring From(const wchar_t* path) const
    {
        return m_options.source + L"\\" + path;
    }
    std::wstring SystemDriver() const
    {
        return m_machine.DriverFolder() + L"\\" + DRIVER_NAME;
    }
    std::wstring Quoted(const wchar_t* program) const
    {
        return L"\"" + At(program) + L"\"";
    }
    bool Wanted(const ProductFile& file) const
    {
        return file.rule != FileRule::Driver || m_options.driver;
    }
    bool          WillReplace(const std::wstring& from, const std::wstring& to) const;
    ServiceConfig FeederConfig();
    std::string   SetSetting(const wchar_t* service, ServiceSetting setting, const ServiceSettingValue& wanted,
                             const char* words, bool* changed);

    std::string SetRestart(const wchar_t* service, bool* changed);

    Machine&                    m_machine;
    const InstallOptions&       m_options;
    const SayFn&                m_say;
    SetupLock                   m_lock;
    Changes                     m_changes;
    std::vector<const wchar_t*> m_stopped;  // in the order of stopping
};

bool Installation::WillReplace(const std::wstring& from, const std::wstring& to) const
{
    return m_machine.Kind(to) != PathKind::File || (!m_machine.SameFile(from, to) && !m_machine.SameContent(from, to));
}

/* ---- Looking ---- */

std::string Installation::CheckRights()
{
    if (!m_machine.IsAdministrator())
        throw SetupError("this account is no administrator: start it from an administrator's prompt");
    return "yes";
}

std::string Installation::KeepOthersOut()
{
    const std::string refused = m_lock.Take();
    if (!refused.empty())
        throw SetupError(refused);
    return "none runs";
}

std::string Installation::CheckSource()
{
    for (const ProductFile& file : PRODUCT_FILES) {
        if (Wanted(file) && m_machine.Kind(From(file.path)) != PathKind::File)
            throw SetupError(Narrow(From(file.path)) + " is missing: unpack the product again, and start its dkpfctl");
    }
    return Narrow(m_options.source);
}

std::string Installation::CheckHome()
{
    if (m_options.home.empty())  // bin, etc and log of whatever drive is the current one
        throw SetupError("the folder to install into is no path: name another one with --home");
    // On PATH it would be two folders, neither of them ours.
    if (m_options.home.find(L';') != std::wstring::npos)
        throw SetupError("the path of " + Narrow(m_options.home) +
                         " holds a ';', which PATH cannot hold: name another folder with --home");
    return Narrow(m_options.home);
}

std::string Installation::CheckDriver()
{
    ServiceConfig config;
    if (!m_options.driver)
        return "left alone, as told";
    if (m_machine.ReadService(DRIVER_SERVICE, &config) && config.displayName != DRIVER_DISPLAY)
        throw SetupError(
            "the service velcor is another driver than ours: install with --no-driver, which leaves it alone");
    return "the simulated one";
}

/* ---- Files ---- */

std::string Installation::StopRunning()
{
    ServiceConfig agent;
    bool          programs = m_machine.ReadService(AGENT_SERVICE, &agent) && agent.command != Quoted(AGENT_PROGRAM);
    for (const ProductFile& file : PRODUCT_FILES)
        programs = programs || (file.rule == FileRule::Replace && WillReplace(From(file.path), At(file.path)));
    const bool driver = m_options.driver && WillReplace(From(DRIVER_FILE), SystemDriver());

    if (programs || driver) {
        // The feeder holds the driver's device, and a driver that is held does not go.
        for (const wchar_t* name : { AGENT_SERVICE, FEEDER_SERVICE }) {
            if ((m_options.driver || name == AGENT_SERVICE) && m_changes.StopIfRunning(name))
                m_stopped.push_back(name);
        }
        if (driver && m_changes.StopIfRunning(DRIVER_SERVICE))
            m_stopped.push_back(DRIVER_SERVICE);
    }
    std::string words;
    for (const wchar_t* name : m_stopped)
        words += (words.empty() ? "" : ", ") + Narrow(name);
    return words.empty() ? "nothing has to" : words;
}

std::string Installation::ForgetOldNames()
{
    DWORD              first = 0;
    const std::wstring table = At(ETC_FOLDER) + L"\\" + NAME_TABLE;
    if (m_machine.IsWine() || !ReadTitleRange(m_machine, &first) ||
        !WillReplace(From(ETC_FOLDER) + L"\\" + NAME_TABLE, table))
        return "nothing to do";
    Must(m_machine.UnloadNames(L"tnwdiskperf"), "the old names cannot be taken out of the system's tables");
    m_changes.Remember("old names of the counters", [this, table, first]() -> DWORD {
        const DWORD error = m_machine.LoadNames(table);
        DWORD       now = 0;
        if (error == ERROR_SUCCESS && !ReadTitleRange(m_machine, &now))
            return ERROR_INVALID_DATA;
        // The loader may give another range than before.
        if (error != ERROR_SUCCESS || now == first)
            return error;
        return m_machine.WriteValue(PERFORMANCE_KEY, VALUE_OBJECT_LIST, Text(std::to_wstring(now)));
    });
    return "taken out of the system's tables";
}

std::string Installation::MakeFolders()
{
    bool changed = false;
    for (const ProductFolder& folder : PRODUCT_FOLDERS) {
        changed = m_changes.MakeFolder(At(folder.path)) || changed;
        if (folder.sddl != nullptr)
            changed = m_changes.SetAccess(At(folder.path), folder.sddl) || changed;
    }
    if (m_options.driver) {
        changed = m_changes.MakeFolder(At(DRIVER_FOLDER)) || changed;
        // An installation from the home itself takes the driver from there.
        changed = m_changes.SetAccess(At(DRIVER_FOLDER), READ_ONLY_ACCESS) || changed;
    }
    return DoneOrThere(changed);
}

std::string Installation::PlaceFiles()
{
    int placed = 0, kept = 0;
    for (const ProductFile& file : PRODUCT_FILES) {
        if (!Wanted(file))
            continue;
        const bool keep = file.rule == FileRule::Keep && m_machine.Kind(At(file.path)) == PathKind::File;
        const bool changed = !keep && m_changes.PlaceFile(From(file.path), At(file.path));
        ++(changed ? placed : kept);
    }
    return fmt::format("{} placed, {} kept", placed, kept);
}

/* What earlier runs moved aside, or were killed over, goes now where nobody holds it any more. */
void Installation::SweepAside()
{
    const auto sweep = [this](const std::wstring& path) {
        const size_t       cut = path.find_last_of(L'\\');
        const std::wstring folder = path.substr(0, cut);
        for (const std::wstring& name : m_machine.Names(folder)) {
            if (IsAsideOf(name, path.substr(cut + 1)))
                m_machine.RemoveFile(folder + L"\\" + name);
        }
    };
    for (const ProductFile& file : PRODUCT_FILES)
        sweep(At(file.path));
    if (m_options.driver)
        sweep(SystemDriver());
}

/* ---- Registry and services ---- */

std::string Installation::MakeDebugKey()
{
    const bool made = m_changes.MakeKey(DEBUG_KEY);
    // A switch that was left on would stop each host of the library in a message box.
    return DoneOrThere(m_changes.RemoveValue(DEBUG_KEY, DEBUG_VALUE) || made);
}

std::string Installation::RegisterEvents()
{
    static constexpr DWORD types = EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;
    const bool             messages =
        m_changes.SetValue(EVENT_SOURCE_KEY, L"EventMessageFile", Text(At(MESSAGE_DLL), REG_EXPAND_SZ));
    return DoneOrThere(m_changes.SetValue(EVENT_SOURCE_KEY, L"TypesSupported", Number(types)) || messages);
}

std::string Installation::RegisterDriver()
{
    if (!m_options.driver)
        return "left alone, as told";
    // The service first: its display name says that the file is ours.
    const bool made = m_changes.SetService(
        DRIVER_SERVICE, { SERVICE_KERNEL_DRIVER, SERVICE_AUTO_START, SystemDriver(), DRIVER_DISPLAY });
    return DoneOrThere(m_changes.PlaceFile(From(DRIVER_FILE), SystemDriver()) || made);
}

ServiceConfig Installation::FeederConfig()
{
    ServiceConfig wanted{ SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, Quoted(FEEDER_PROGRAM) + L" --service",
                          FEEDER_DISPLAY };
    ServiceConfig there;
    // What it is to feed stands behind the program, and is the operator's choice.
    if (m_machine.ReadService(FEEDER_SERVICE, &there) && there.command.rfind(wanted.command, 0) == 0)
        wanted.command = there.command;
    return wanted;
}

std::string Installation::RegisterFeeder()
{
    if (!m_options.driver)
        return "left alone, as told";
    bool              changed = m_changes.SetService(FEEDER_SERVICE, FeederConfig());
    const std::string refused = SetRestart(FEEDER_SERVICE, &changed);
    return DoneOrThere(changed) + refused;
}

std::string Installation::SetSetting(const wchar_t* service, ServiceSetting setting, const ServiceSettingValue& wanted,
                                     const char* words, bool* changed)
{
    ServiceSettingValue before, now;
    m_machine.ReadSetting(service, setting, &before);  // what cannot be read counts as not set
    if (before == wanted)
        return {};
    DWORD error = m_machine.SetSetting(service, setting, wanted);
    if (error == ERROR_SUCCESS)
        m_machine.ReadSetting(service, setting, &now);
    if (!(now == wanted) && m_machine.IsWine())
        return std::string("; this system does not keep the ") + words;
    if (error == ERROR_SUCCESS) {
        const std::wstring name = service;
        m_changes.Remember(std::string(words) + " of " + Narrow(name),
                           [this, name, setting, before] { return m_machine.SetSetting(name, setting, before); });
        if (!(now == wanted))
            error = ERROR_INVALID_DATA;
    }
    Must(error, std::string(words) + " cannot be set");
    *changed = true;
    return {};
}

std::string Installation::SetRestart(const wchar_t* service, bool* changed)
{
    ServiceSettingValue restart;
    restart.resetS = RESTART_RESET_S;
    for (DWORD delayMs : RESTART_DELAYS_MS)
        restart.actions.push_back({ SC_ACTION_RESTART, delayMs });
    return SetSetting(service, ServiceSetting::FailureActions, restart, "restart after a failure", changed);
}

std::string Installation::RegisterAgent()
{
    ServiceSettingValue description, privileges;
    description.text = AGENT_DESCRIPTION;
    privileges.text.assign(AGENT_PRIVILEGES, ARRAYSIZE(AGENT_PRIVILEGES) - 1);
    bool changed = m_changes.SetService(
        AGENT_SERVICE, { SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, Quoted(AGENT_PROGRAM), AGENT_DISPLAY });
    std::string refused = SetSetting(AGENT_SERVICE, ServiceSetting::Description, description, "description", &changed);
    refused += SetRestart(AGENT_SERVICE, &changed);
    refused +=
        SetSetting(AGENT_SERVICE, ServiceSetting::RequiredPrivileges, privileges, "list of privileges", &changed);
    return DoneOrThere(changed) + refused;
}

std::string Installation::AddToPath()
{
    RegistryValue path;
    const DWORD   error = m_machine.ReadValue(ENVIRONMENT_KEY, L"Path", &path);
    if (error == ERROR_FILE_NOT_FOUND)
        path.type = REG_EXPAND_SZ;
    else
        Must(error, "the system's PATH cannot be read");
    const std::wstring bin = At(BIN_FOLDER);
    const std::wstring registered = RegisteredHome(m_machine) + L"\\" + BIN_FOLDER;
    const bool         moves = !HoldsFolder(bin, registered) && HoldsFolder(path.text, registered);
    if (HoldsFolder(path.text, bin) && !moves)
        return "is there already";
    // In front of ours the libraries of the home that is left would go on being found.
    if (moves)
        path.text = WithoutFolder(path.text, registered);
    if (!HoldsFolder(path.text, bin))
        path.text = WithFolder(path.text, bin);
    m_changes.SetValue(ENVIRONMENT_KEY, L"Path", path);
    m_machine.EnvironmentChanged();
    return "done" + (moves ? ", instead of " + Narrow(registered) : std::string()) +
           "; services see it after a restart of the machine";
}

/* ---- Performance provider ---- */

std::string Installation::RegisterProvider()
{
    bool changed = m_changes.SetValue(PERFORMANCE_KEY, VALUE_LIBRARY, Text(At(BIN_FOLDER) + L"\\" + PRODUCT_DLL));
    changed = m_changes.SetValue(PERFORMANCE_KEY, VALUE_OPEN, Text(EXPORT_OPEN)) || changed;
    changed = m_changes.SetValue(PERFORMANCE_KEY, VALUE_COLLECT, Text(EXPORT_COLLECT)) || changed;
    changed = m_changes.SetValue(PERFORMANCE_KEY, VALUE_CLOSE, Text(EXPORT_CLOSE)) || changed;
    return DoneOrThere(changed);
}

std::string Installation::LoadNames()
{
    DWORD first = 0;
    if (ReadTitleRange(m_machine, &first))
        return fmt::format("title indexes {} to {} are there already", first, first + 2 * TITLE_NUM - 1);
    RegistryValue part;
    if (m_machine.ReadValue(PERFORMANCE_KEY, VALUE_FIRST_COUNTER, &part) == ERROR_SUCCESS) {
        // The loader would take the names for loaded. What it finds of them goes, whatever it answers.
        m_machine.UnloadNames(L"tnwdiskperf");
        for (const wchar_t* name : { VALUE_FIRST_COUNTER, VALUE_LAST_COUNTER, VALUE_FIRST_HELP, VALUE_LAST_HELP })
            m_changes.RemoveValue(PERFORMANCE_KEY, name);
    }
    const std::wstring table = At(ETC_FOLDER) + L"\\" + NAME_TABLE;
    const DWORD        error = m_machine.LoadNames(table);
    // A range that does not fit is taken out as well.
    if (m_machine.ReadValue(PERFORMANCE_KEY, VALUE_FIRST_COUNTER, &part) == ERROR_SUCCESS)
        m_changes.Remember("names of the counters", [this] { return m_machine.UnloadNames(L"tnwdiskperf"); });
    if (ReadTitleRange(m_machine, &first))
        return fmt::format("title indexes {} to {} from the system", first, first + 2 * TITLE_NUM - 1);
    if (!m_machine.IsWine()) {
        Must(error, "the system's loader refused " + Narrow(table));
        throw SetupError("the system's loader gave no range of title indexes for " + Narrow(table));
    }
    first = FreeTitleRange(m_machine);
    const DWORD last = 2 * (TITLE_NUM - 1);
    m_changes.SetValue(PERFORMANCE_KEY, VALUE_FIRST_COUNTER, Number(first));
    m_changes.SetValue(PERFORMANCE_KEY, VALUE_LAST_COUNTER, Number(first + last));
    m_changes.SetValue(PERFORMANCE_KEY, VALUE_FIRST_HELP, Number(first + 1));
    m_changes.SetValue(PERFORMANCE_KEY, VALUE_LAST_HELP, Number(first + 1 + last));
    return fmt::format("this system has no loader of names: title indexes {} to {} taken by set-up, names come from {}",
                       first, first + last + 1, Narrow(table));
}

std::string Installation::SetObjectList()
{
    DWORD first = 0;
    if (!ReadTitleRange(m_machine, &first))
        throw SetupError("the range of title indexes is gone");
    return DoneOrThere(m_changes.SetValue(PERFORMANCE_KEY, VALUE_OBJECT_LIST, Text(std::to_wstring(first))));
}

std::string Installation::StartAgain()
{
    for (auto name = m_stopped.rbegin(); name != m_stopped.rend(); ++name)
        m_changes.StartUnlessRunning(*name);
    std::string words = m_stopped.empty() ? "" : "what ran before runs again";
    // A run that was killed stopped others, perhaps, and nobody knows which.
    std::string asleep;
    for (const wchar_t* name : { DRIVER_SERVICE, FEEDER_SERVICE, AGENT_SERVICE }) {
        if ((m_options.driver || name == AGENT_SERVICE) && !m_machine.Runs(name))
            asleep += (asleep.empty() ? "net start " : ", net start ") + Narrow(name);
    }
    if (!asleep.empty())
        words += (words.empty() ? "" : "; ") + ("not started: " + asleep + ", or restart the machine");
    return words.empty() ? "all run" : words;
}

/* ---- The steps ---- */

// Names before files: the undo of the names needs the old table, and files are put back before. PATH before the
// provider, whose key still says which home was registered. The provider before its names: the loader writes into its
// key. The object list at last: it is the number that came.
const Installation::Step Installation::STEPS[] = {
    { "administrator", &Installation::CheckRights },
    { "other set-up", &Installation::KeepOthersOut },
    { "from", &Installation::CheckSource },
    { "to", &Installation::CheckHome },
    { "driver", &Installation::CheckDriver },
    { "services to stop", &Installation::StopRunning },
    { "names of an older version", &Installation::ForgetOldNames },
    { "folders and their access rights", &Installation::MakeFolders },
    { "files", &Installation::PlaceFiles },
    { "registry key of the product", &Installation::MakeDebugKey },
    { "event source", &Installation::RegisterEvents },
    { "driver's service velcor", &Installation::RegisterDriver },
    { "feeder's service velcorfeed", &Installation::RegisterFeeder },
    { "agent's service dkpfagent", &Installation::RegisterAgent },
    { "PATH", &Installation::AddToPath },
    { "performance provider", &Installation::RegisterProvider },
    { "names of the counters", &Installation::LoadNames },
    { "object list", &Installation::SetObjectList },
    { "services", &Installation::StartAgain },
};

bool Installation::Run()
{
    m_say("installing into " + Narrow(m_options.home));
    for (const Step& step : STEPS) {
        try {
            m_say(std::string(step.title) + ": " + (this->*step.run)());
        } catch (const SetupError& error) {
            m_say(std::string(step.title) + ": FAILED: " + error.what());
            m_changes.Undo(m_say);
            m_say("not installed; the machine is as it was, apart from what is said above");
            return false;
        }
    }
    m_changes.Keep(m_say);
    SweepAside();
    m_say("installed");
    return true;
}

bool Install(Machine& machine, const InstallOptions& options, const SayFn& say)
{
    return Installation(machine, options, say).Run();
}

}  // namespace dkpf
