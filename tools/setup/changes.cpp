#include "changes.h"

#include "registration.h"
#include "product_files.h"
#include "text.h"

namespace dkpf {

void Must(DWORD error, const std::string& what)
{
    if (error != ERROR_SUCCESS)
        throw SetupError(what + ": " + SystemErrorText(error));
}

SetupLock::SetupLock(Machine& machine) : m_machine(machine)
{
}

SetupLock::~SetupLock()
{
    if (m_held)
        m_machine.UnlockSetup();
}

std::string SetupLock::Take()
{
    const DWORD error = m_machine.LockSetup();
    m_held = error == ERROR_SUCCESS;
    if (error == ERROR_BUSY)
        return "another install or uninstall runs on this machine: start it again when that has ended";
    return m_held ? std::string()
                  : "whether another install or uninstall runs cannot be told: " + SystemErrorText(error);
}

std::wstring FreeAside(Machine& machine, const std::wstring& path)
{
    for (unsigned n = 1;; n++) {
        std::wstring aside = path + HELD_SUFFIX + std::to_wstring(n);
        if (machine.Kind(aside) == PathKind::Nothing)
            return aside;
    }
}

bool IsAsideOf(const std::wstring& name, const std::wstring& own)
{
    if (name == own + PLACE_SUFFIX)
        return true;
    const std::wstring start = own + HELD_SUFFIX;
    return name.size() > start.size() && name.compare(0, start.size(), start) == 0 &&
           name.find_first_not_of(L"0123456789", start.size()) == std::wstring::npos;
}

Changes::Changes(Machine& machine) : m_machine(machine)
{
}

void Changes::Remember(std::string words, std::function<DWORD()> undo)
{
    m_steps.push_back({ std::move(words), std::move(undo) });
}

bool Changes::MakeKey(const std::wstring& key)
{
    if (key.empty() || m_machine.KeyExists(key))
        return false;
    MakeKey(ParentPath(key));
    Must(m_machine.MakeKey(key), "the key " + Narrow(key) + " cannot be made");
    Remember("key " + Narrow(key), [this, key] { return m_machine.RemoveEmptyKey(key); });
    return true;
}

bool Changes::SetValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value)
{
    const bool        made = MakeKey(key);
    const std::string words = "value " + Narrow(name) + " of " + Narrow(key);
    RegistryValue     before;
    const DWORD       error = m_machine.ReadValue(key, name, &before);
    if (error == ERROR_SUCCESS && before == value)
        return made;
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND)
        Must(error, words + " cannot be read");
    Must(m_machine.WriteValue(key, name, value), words + " cannot be written");
    if (error == ERROR_SUCCESS)
        Remember(words, [this, key, name, before] { return m_machine.WriteValue(key, name, before); });
    else
        Remember(words, [this, key, name] { return m_machine.RemoveValue(key, name); });
    return true;
}

bool Changes::RemoveValue(const std::wstring& key, const std::wstring& name)
{
    const std::string words = "value " + Narrow(name) + " of " + Narrow(key);
    RegistryValue     before;
    const DWORD       error = m_machine.ReadValue(key, name, &before);
    if (error == ERROR_FILE_NOT_FOUND)
        return false;
    Must(error, words + " cannot be read");
    Must(m_machine.RemoveValue(key, name), words + " cannot be removed");
    Remember(words, [this, key, name, before] { return m_machine.WriteValue(key, name, before); });
    return true;
}

bool Changes::MakeFolder(const std::wstring& path)
{
    const PathKind kind = m_machine.Kind(path);
    if (kind == PathKind::Folder)
        return false;
    if (kind == PathKind::File)
        throw SetupError("a file stands where the folder " + Narrow(path) + " has to be");
    const std::wstring parent = ParentPath(path);
    if (parent.size() > 2)  // behind "C:" nothing can be made
        MakeFolder(parent);
    Must(m_machine.MakeFolder(path), "the folder " + Narrow(path) + " cannot be made");
    Remember("folder " + Narrow(path), [this, path] { return m_machine.RemoveFolder(path); });
    return true;
}

/* The system marks rights that it has passed on to what lies below (AI), which nobody asked for. */
static std::wstring WithoutPassedOn(std::wstring sddl)
{
    const size_t mark = sddl.find(L"AI");
    if (mark < sddl.find(L'('))
        sddl.erase(mark, 2);
    return sddl;
}

bool Changes::SetAccess(const std::wstring& folder, const std::wstring& sddl)
{
    const std::string words = "access rights of " + Narrow(folder);
    std::wstring      before;
    Must(m_machine.ReadAccess(folder, &before), words + " cannot be read");
    if (WithoutPassedOn(before) == WithoutPassedOn(sddl))
        return false;
    Must(m_machine.SetAccess(folder, sddl), words + " cannot be set");
    Remember(words, [this, folder, before] { return m_machine.SetAccess(folder, before); });
    return true;
}

bool Changes::PlaceFile(const std::wstring& from, const std::wstring& to)
{
    const bool there = m_machine.Kind(to) == PathKind::File;
    if (there && (m_machine.SameFile(from, to) || m_machine.SameContent(from, to)))
        return false;
    const std::wstring beside = to + PLACE_SUFFIX;
    const auto         removeBeside = [this, beside] {
        return m_machine.Kind(beside) == PathKind::Nothing ? ERROR_SUCCESS : m_machine.RemoveFile(beside);
    };
    // The long part first: between the two moves nothing stands at the name, and that has to be short.
    const DWORD copied = m_machine.CopyWhole(from, beside);
    if (copied != ERROR_SUCCESS) {
        removeBeside();
        Must(copied, "the file " + Narrow(to) + " cannot be written");
    }
    Remember("copy " + Narrow(beside), removeBeside);
    if (there) {
        const std::wstring aside = FreeAside(m_machine, to);
        Must(m_machine.Move(to, aside), "the old file " + Narrow(to) + " cannot be moved aside");
        Remember("old file " + Narrow(to), [this, to, aside] { return m_machine.Move(aside, to); });
        m_aside.push_back(aside);
    }
    Must(m_machine.Move(beside, to), "the file " + Narrow(to) + " cannot be placed");
    Remember("file " + Narrow(to), [this, to] {
        DWORD error = m_machine.RemoveFile(to);
        if (error == ERROR_SUCCESS)
            return error;
        // A host has loaded it meanwhile.
        const std::wstring aside = FreeAside(m_machine, to);
        error = m_machine.Move(to, aside);
        return error == ERROR_SUCCESS ? m_machine.RemoveAtRestart(aside) : error;
    });
    return true;
}

bool Changes::SetService(const std::wstring& name, const ServiceConfig& config)
{
    const std::string words = "service " + Narrow(name);
    ServiceConfig     before;
    if (!m_machine.ReadService(name, &before)) {
        Must(m_machine.AddService(name, config), "the " + words + " cannot be created");
        Remember(words, [this, name] { return m_machine.RemoveService(name); });
        return true;
    }
    if (before.type == config.type && before.start == config.start && before.command == config.command &&
        before.displayName == config.displayName)
        return false;
    Must(m_machine.ChangeService(name, config), "the " + words + " cannot be changed");
    Remember(words, [this, name, before] { return m_machine.ChangeService(name, before); });
    return true;
}

bool Changes::StopIfRunning(const std::wstring& name)
{
    if (!m_machine.Runs(name))
        return false;
    // Before the stop: one that takes too long still happens later.
    Remember("stop of " + Narrow(name), [this, name]() -> DWORD {
        Start(name);
        return ERROR_SUCCESS;
    });
    Must(m_machine.StopAndWait(name), "the service " + Narrow(name) + " does not stop");
    return true;
}

bool Changes::StartUnlessRunning(const std::wstring& name)
{
    if (m_machine.Runs(name))
        return false;
    // Before the start: one that takes too long may still come up, over files that go back by then.
    Remember("start of " + Narrow(name),
             [this, name] { return m_machine.Runs(name) ? m_machine.StopAndWait(name) : ERROR_SUCCESS; });
    Start(name);
    return true;
}

void Changes::Start(const std::wstring& name)
{
    const ServiceStart start = m_machine.StartAndWait(name);
    if (!start.running)
        throw SetupError("the service " + Narrow(name) + " does not start: it " + start.words);
}

void Changes::Keep(const SayFn& say)
{
    m_steps.clear();
    for (const std::wstring& aside : m_aside) {
        if (m_machine.RemoveFile(aside) == ERROR_SUCCESS)
            continue;
        const DWORD error = m_machine.RemoveAtRestart(aside);
        say("  held: " + Narrow(aside) + ", an old file that a program still uses" +
            (error == ERROR_SUCCESS ? "; it goes at the next restart"
                                    : "; it goes with the next install or uninstall (" + SystemErrorText(error) + ")"));
    }
    m_aside.clear();
}

void Changes::Undo(const SayFn& say)
{
    for (; !m_steps.empty(); m_steps.pop_back()) {
        const Step& step = m_steps.back();
        try {
            Must(step.undo(), step.words);
            say("  taken back: " + step.words);
        } catch (const SetupError& error) {
            say(std::string("  NOT taken back: ") + error.what());
        }
    }
    m_aside.clear();
}

}  // namespace dkpf
