/*
 * The double's state and engine first, then one replacement per call in the order of the table at the end.
 */
#include "doubles/os_double.h"

#include <errno.h>
#include <process.h>
#include <string.h>

#include <algorithm>
#include <type_traits>

#include "support/import_hooks.h"

Os* Os::current = nullptr;

/* Handles of the double. Real ones are far smaller, so the two never meet. */
static const ULONG_PTR FirstHandle = 0x7E000004;

static const ULONGLONG Forever = ~0ull;

namespace {
struct ThreadEnd {  // thrown by _endthreadex, caught by RunThread
    unsigned code;
};
}  // namespace

/* ---- State ---- */

/* Memory whose end touches a page that faults: the first byte written behind a block ends the test program. */
struct Os::Block {
    BYTE*  pages = nullptr;
    BYTE*  data = nullptr;
    size_t size = 0;

    explicit Block(size_t bytes) : size(bytes)
    {
        size_t usable = (bytes + 4095) / 4096 * 4096;
        DWORD  old = 0;
        usable = std::max<size_t>(usable, 4096);
        pages = static_cast<BYTE*>(VirtualAlloc(nullptr, usable + 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        if (pages == nullptr || !VirtualProtect(pages + usable, 4096, PAGE_NOACCESS, &old)) {
            throw std::bad_alloc();
        }
        data = pages + usable - (bytes + 7) / 8 * 8;
    }
    ~Block()
    {
        VirtualFree(pages, 0, MEM_RELEASE);
    }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
};

struct Os::Object {
    enum Kind { Mutex, Event, Thread, Mapping, Process, Device, File, Real } kind;
    std::string name;

    bool                   manual = false;     // event
    bool                   signalled = false;  // event, thread
    DWORD                  owner = 0;          // mutex: thread that owns it
    unsigned               depth = 0;
    bool                   other = false;  // mutex: owned by a thread that is not there
    bool                   abandoned = false;
    unsigned               acquired = 0, released = 0;
    std::shared_ptr<Block> memory;        // mapping; goes with the last handle and view
    DWORD                  exitCode = 0;  // process
    ThreadRoutine          routine = nullptr;
    void*                  argument = nullptr;
    bool                   ran = false;
    std::string            path;            // file
    unsigned               driverLife = 0;  // device: the start of the driver that it was opened in

    explicit Object(Kind k, std::string n = "") : kind(k), name(std::move(n))
    {
    }
};

Os::Os(Journal& journal) : m_journal(journal), m_nextHandle(FirstHandle)
{
    SetTick(1000000);
    SetTime(2026, 3, 7, 14, 5, 9, 42);
    AddKey("HKLM\\Software\\OSK\\TARNWELL\\work");
    Process(processId, STILL_ACTIVE);
    current = this;
}

Os::~Os()
{
    current = nullptr;
}

void Os::Fail(const std::string& name, unsigned nth, DWORD error, unsigned times)
{
    m_journal.Fail(name, nth, error, times);
}

void Os::Return(const std::string& name, unsigned nth, ULONGLONG value, DWORD error)
{
    m_journal.Return(name, nth, value, error);
}

void Os::Record(const char* name, const std::string& args, const std::string& result)
{
    m_journal.Record(name, args, result);
}

template <class T> static std::string Shown(T result, DWORD error)
{
    std::string text;
    if constexpr (std::is_pointer_v<T>) {
        text = Hex(reinterpret_cast<ULONG_PTR>(result));
    } else if constexpr (std::is_same_v<T, BOOL>) {
        text = result == TRUE ? "TRUE" : result == FALSE ? "FALSE" : std::to_string(result);
    } else {
        text = std::to_string(result);
    }
    return error == 0 ? text : text + " err=" + std::to_string(error);
}

/* Records the call and leaves its last error. 0: leaves the last error as it was, as most successful calls do. */
template <class T> T Os::Done(const char* name, const std::string& args, T result, DWORD error)
{
    Record(name, args, Shown(result, error));
    if (error != 0) {
        SetLastError(error);
    }
    return result;
}

/* Counts the call. True where an answer is planned for it: it is recorded and stands in *result. */
template <class T> bool Os::Plan(const char* name, const std::string& args, T failing, T* result)
{
    auto planned = m_journal.Count(name);
    if (!planned) {
        return false;
    }
    if (planned->fails) {
        *result = failing;
    } else if constexpr (std::is_pointer_v<T>) {
        *result = reinterpret_cast<T>(planned->value);
    } else {
        *result = static_cast<T>(planned->value);
    }
    Done(name, args, *result, planned->error);
    return true;
}

/* ---- Time ---- */

static ULONGLONG ToTicks(const SYSTEMTIME& time)
{
    FILETIME file = {};
    if (!SystemTimeToFileTime(&time, &file)) {
        throw std::invalid_argument("not a time");
    }
    return (static_cast<ULONGLONG>(file.dwHighDateTime) << 32) | file.dwLowDateTime;
}

static FILETIME ToFileTime(ULONGLONG ticks)
{
    return FILETIME{ static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32) };
}

void Os::SetTick(DWORD tick)
{
    m_tickBase = tick - static_cast<DWORD>(m_now);
}

void Os::SetTime(const SYSTEMTIME& localTime)
{
    m_timeBase = ToTicks(localTime) - m_now * 10000;
}

void Os::SetTime(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second, WORD ms)
{
    SetTime(SYSTEMTIME{ year, month, 0, day, hour, minute, second, ms });
}

DWORD Os::Tick() const
{
    return m_tickBase + static_cast<DWORD>(m_now);
}

SYSTEMTIME Os::LocalTime() const
{
    FILETIME   file = ToFileTime(m_timeBase + m_now * 10000);
    SYSTEMTIME time = {};
    FileTimeToSystemTime(&file, &time);
    return time;
}

void Os::Advance(ULONGLONG ms)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    ULONGLONG                             end = m_now + ms;
    while (!m_actions.empty() && m_actions.begin()->first <= end) {
        m_now = std::max(m_now, m_actions.begin()->first);
        RunDueActions();
    }
    m_now = end;
}

void Os::At(ULONGLONG ms, std::function<void()> action)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    m_actions.emplace(ms, std::move(action));
}

void Os::SignalAt(ULONGLONG ms, HANDLE object)
{
    At(ms, [this, object] { Signal(object); });
}

void Os::RunDueActions()
{
    while (!m_actions.empty() && m_actions.begin()->first <= m_now) {
        auto action = std::move(m_actions.begin()->second);
        m_actions.erase(m_actions.begin());
        action();
    }
}

/* ---- Objects ---- */

HANDLE Os::NewHandle(std::shared_ptr<Object> object, bool own)
{
    HANDLE handle = reinterpret_cast<HANDLE>(m_nextHandle);
    m_nextHandle += 4;
    m_handles[handle] = Opened{ std::move(object), own };
    return handle;
}

std::shared_ptr<Os::Object> Os::Find(HANDLE handle) const
{
    auto found = m_handles.find(handle);
    return found == m_handles.end() ? nullptr : found->second.object;
}

std::shared_ptr<Os::Object> Os::FindNamed(const std::string& name) const
{
    auto found = m_names.find(name);
    return name.empty() || found == m_names.end() ? nullptr : found->second.lock();
}

std::string Os::Show(HANDLE handle) const
{
    static const char* const kinds[] = { "mutex", "event", "thread", "mapping", "process", "device", "file", "real" };
    auto                     object = Find(handle);
    if (object == nullptr) {
        return Hex(reinterpret_cast<ULONG_PTR>(handle));
    }
    std::string label = object->name.empty() ? Hex(reinterpret_cast<ULONG_PTR>(handle)) : object->name;
    return std::string(kinds[object->kind]) + " " + label;
}

HANDLE Os::CreateNamed(const char* call, const std::string& args, std::shared_ptr<Object> object)
{
    std::shared_ptr<Object> existing = FindNamed(object->name);
    if (existing != nullptr && existing->kind != object->kind) {
        return Done<HANDLE>(call, args, nullptr, ERROR_INVALID_HANDLE);
    }
    DWORD error = existing == nullptr ? 0 : ERROR_ALREADY_EXISTS;
    if (existing == nullptr) {
        existing = object;
        if (!object->name.empty()) {
            m_names[object->name] = existing;
        }
    }
    HANDLE handle = NewHandle(existing, false);
    Record(call, args, Shown(handle, error));
    SetLastError(error);  // creating calls say 0 when the object is new
    return handle;
}

HANDLE Os::MakeMutex(const std::string& name)
{
    auto object = FindNamed(name) != nullptr ? FindNamed(name) : std::make_shared<Object>(Object::Mutex, name);
    if (!name.empty()) {
        m_names[name] = object;
    }
    return NewHandle(object, true);
}

HANDLE Os::MakeEvent(bool manual, const std::string& name)
{
    auto object = FindNamed(name) != nullptr ? FindNamed(name) : std::make_shared<Object>(Object::Event, name);
    object->manual = manual;
    if (!name.empty()) {
        m_names[name] = object;
    }
    return NewHandle(object, true);
}

HANDLE Os::MakeThread()
{
    return NewHandle(std::make_shared<Object>(Object::Thread), true);
}

HANDLE Os::Named(const std::string& name)
{
    auto object = FindNamed(name);
    return object == nullptr ? nullptr : NewHandle(object, true);
}

static const char NotAnObject[] = "no such object of the double";

void Os::Signal(HANDLE handle)
{
    auto object = Find(handle);
    if (object == nullptr) {
        throw std::invalid_argument(NotAnObject);
    }
    object->signalled = true;
}

bool Os::Signalled(HANDLE handle) const
{
    auto object = Find(handle);
    return object != nullptr && object->signalled;
}

void Os::HoldByOther(HANDLE handle, bool held)
{
    auto object = Find(handle);
    if (object == nullptr) {
        throw std::invalid_argument(NotAnObject);
    }
    object->other = held;
}

void Os::Abandon(HANDLE handle)
{
    auto object = Find(handle);
    if (object == nullptr) {
        throw std::invalid_argument(NotAnObject);
    }
    object->other = false;
    object->depth = 0;
    object->abandoned = true;
}

unsigned Os::Locked(HANDLE handle) const
{
    auto object = Find(handle);
    return object == nullptr ? 0 : object->depth;
}

unsigned Os::Acquired(HANDLE handle) const
{
    auto object = Find(handle);
    return object == nullptr ? 0 : object->acquired;
}

unsigned Os::Released(HANDLE handle) const
{
    auto object = Find(handle);
    return object == nullptr ? 0 : object->released;
}

void* Os::HoldMapping(const std::string& name, size_t size)
{
    auto object = FindNamed(name);
    if (object == nullptr) {
        object = std::make_shared<Object>(Object::Mapping, name);
        object->memory = std::make_shared<Block>(size);
        m_names[name] = object;
    }
    NewHandle(object, true);
    return object->memory->data;
}

void Os::DropMapping(const std::string& name)
{
    for (auto entry = m_handles.begin(); entry != m_handles.end();) {
        bool mine =
            entry->second.own && entry->second.object->kind == Object::Mapping && entry->second.object->name == name;
        entry = mine ? m_handles.erase(entry) : std::next(entry);
    }
}

HANDLE Os::AttachMapping(const std::string& name, void** view)
{
    auto object = FindNamed(name);
    if (object == nullptr || object->kind != Object::Mapping) {
        throw std::invalid_argument(NotAnObject);
    }
    *view = object->memory->data;
    m_views.push_back(View{ *view, object, true });
    return NewHandle(object, true);
}

std::string Os::Private(const char* name) const
{
    std::string text = name;
    std::replace(text.begin(), text.end(), '\\', '_');
    return "Local\\test-" + std::to_string(GetCurrentProcessId()) + "-" + text;
}

/* ---- Waiting ---- */

bool Os::Ready(Object& object)
{
    switch (object.kind) {
    case Object::Mutex:
        return !object.other && (object.depth == 0 || object.owner == GetCurrentThreadId());
    case Object::Thread:
        if (!object.signalled && threads == Threads::EndWhenAwaited) {
            object.signalled = true;
        } else if (!object.signalled && threads == Threads::RunWhenAwaited && object.routine != nullptr &&
                   !object.ran) {
            object.ran = true;
            RunThread(object.routine, object.argument);
            object.signalled = true;
        }
        return object.signalled;
    default:
        return object.signalled;
    }
}

void Os::Take(Object& object)
{
    if (object.kind == Object::Mutex) {
        object.owner = GetCurrentThreadId();
        object.depth++;
        object.acquired++;
        object.abandoned = false;
    } else if (object.kind == Object::Event && !object.manual) {
        object.signalled = false;
    }
}

DWORD Os::WaitFor(const char* call, std::string args, DWORD count, const HANDLE* handles, bool all, DWORD timeout)
{
    std::unique_lock<std::recursive_mutex> lock(m_lock);
    std::vector<std::shared_ptr<Object>>   objects;
    bool                                   real = false;
    for (DWORD i = 0; i < count; i++) {
        args += Show(handles[i]) + ", ";
        objects.push_back(Find(handles[i]));
        real = real || objects[i] == nullptr || objects[i]->kind == Object::Real;
    }
    args += timeout == INFINITE ? "INFINITE" : std::to_string(timeout);
    auto finish = [&](DWORD result, DWORD error) {
        waits.push_back(Wait{ call, timeout, result, m_now });
        return Done<DWORD>(call, args, result, error);
    };

    if (waits.size() >= maxWaits) {
        throw EndlessWait(std::string(call) + ": more waits than maxWaits in one case, does the loop ever end?");
    }
    if (auto planned = m_journal.Count(call)) {
        DWORD result = planned->fails ? WAIT_FAILED : static_cast<DWORD>(planned->value);
        DWORD index = result & ~WAIT_ABANDONED_0;
        if (index < count && objects[index] != nullptr) {
            Take(*objects[index]);
        }
        return finish(result, planned->error);
    }
    if (real) {
        for (DWORD i = 0; i < count; i++) {
            if (objects[i] == nullptr && reinterpret_cast<ULONG_PTR>(handles[i]) >= FirstHandle) {
                misuse.push_back(std::string(call) + " on a closed or unknown handle " + Show(handles[i]));
                return finish(WAIT_FAILED, ERROR_INVALID_HANDLE);
            }
        }
        lock.unlock();
        DWORD result = WaitForMultipleObjects(count, handles, all ? TRUE : FALSE, timeout);
        DWORD error = result == WAIT_FAILED ? GetLastError() : 0;
        lock.lock();
        return finish(result, error);
    }

    ULONGLONG deadline = timeout == INFINITE ? Forever : m_now + timeout;
    for (;;) {
        RunDueActions();
        DWORD ready = 0;
        for (DWORD i = 0; i < count; i++) {
            if (!Ready(*objects[i])) {
                continue;
            }
            ready++;
            if (!all) {
                DWORD base = objects[i]->abandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0;
                Take(*objects[i]);
                return finish(base + i, 0);
            }
        }
        if (all && ready == count) {
            std::for_each(objects.begin(), objects.end(), [this](const auto& object) { Take(*object); });
            return finish(WAIT_OBJECT_0, 0);
        }
        ULONGLONG next = m_actions.empty() ? Forever : m_actions.begin()->first;
        if (next <= deadline && next != Forever) {
            m_now = std::max(m_now, next);
        } else if (deadline != Forever) {
            m_now = std::max(m_now, deadline);
            return finish(WAIT_TIMEOUT, 0);
        } else {
            throw EndlessWait(std::string(call) + "(" + args + "): nothing planned will ever end this wait");
        }
    }
}

unsigned Os::RunThread(ThreadRoutine routine, void* argument)
{
    try {
        return routine(argument);
    } catch (const ThreadEnd& end) {
        return end.code;
    }
}

/* ---- Processes, registry, files ---- */

void Os::Process(DWORD pid, DWORD exitCode)
{
    m_processes[pid] = { 0, exitCode };
}

void Os::ProcessRefused(DWORD pid, DWORD error)
{
    m_processes[pid] = { error, 0 };
}

static std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return text;
}

void Os::AddKey(const std::string& path)
{
    m_keys[Lower(path)];
}

void Os::RemoveKey(const std::string& path)
{
    m_keys.erase(Lower(path));
}

void Os::SetValue(const std::string& path, const std::string& name, DWORD value)
{
    m_keys[Lower(path)][Lower(name)] = value;
}

void Os::AddModule(const std::string& name, const SYSTEMTIME& writtenUtc, const std::string& version)
{
    modules[Lower(name)] = Module{ "C:\\cluster\\bin\\" + name, ToFileTime(ToTicks(writtenUtc)), version };
}

std::vector<std::string> Os::Leaks() const
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    std::vector<std::string>              leaks;
    std::set<const Object*>               seen;
    for (const auto& [handle, opened] : m_handles) {
        if (!opened.own) {
            leaks.push_back("handle: " + Show(handle));
        }
        if (opened.object->depth != 0 && seen.insert(opened.object.get()).second) {
            leaks.push_back("locked: " + Show(handle));
        }
    }
    for (const View& view : m_views) {
        if (!view.own) {
            leaks.push_back("view: " + view.object->name);
        }
    }
    for (const auto& block : m_heap) {
        leaks.push_back("heap: " + std::to_string(block.second->size) + " bytes");
    }
    for (const auto& key : m_openKeys) {
        leaks.push_back("key: " + key.second);
    }
    return leaks;
}

/* ---- The calls ---- */

static std::string Text(const char* text)
{
    return text == nullptr ? "NULL" : text;
}

static std::string Bool(BOOL value)
{
    return value ? "TRUE" : "FALSE";
}

static std::string Number(DWORD value)
{
    return std::to_string(value);
}

struct OsHooks {
    static Os& os()
    {
        return *Os::current;
    }
    using Guard = std::lock_guard<std::recursive_mutex>;
    using Object = Os::Object;

    /* Security attributes as a test wants to see them: none, a null DACL open to all, or a real DACL. */
    static std::string Security(const SECURITY_ATTRIBUTES* attributes)
    {
        BOOL present = FALSE, defaulted = FALSE;
        ACL* acl = nullptr;
        if (attributes == nullptr || attributes->lpSecurityDescriptor == nullptr) {
            return "no security";
        }
        if (attributes->nLength != sizeof *attributes ||
            !GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &present, &acl, &defaulted)) {
            return "bad security";
        }
        std::string dacl = present && acl == nullptr ? "null DACL" : "DACL";
        return attributes->bInheritHandle ? "inheritable " + dacl : dacl;
    }

    static HANDLE WINAPI HookCreateMutexA(LPSECURITY_ATTRIBUTES attributes, BOOL owned, LPCSTR name)
    {
        Guard       lock(os().m_lock);
        HANDLE      handle = nullptr;
        std::string args = Security(attributes) + ", " + Bool(owned) + ", " + Text(name);
        if (os().Plan<HANDLE>("CreateMutexA", args, nullptr, &handle)) {
            return handle;
        }
        if (os().m_real) {
            return Real("CreateMutexA", args,
                        CreateMutexA(attributes, owned, name == nullptr ? nullptr : os().Private(name).c_str()), name);
        }
        handle = os().CreateNamed("CreateMutexA", args,
                                  std::make_shared<Object>(Object::Mutex, name == nullptr ? "" : name));
        if (owned && handle != nullptr && GetLastError() == 0) {
            os().Take(*os().Find(handle));
        }
        return handle;
    }

    static HANDLE WINAPI HookCreateEventA(LPSECURITY_ATTRIBUTES attributes, BOOL manual, BOOL initial, LPCSTR name)
    {
        Guard       lock(os().m_lock);
        HANDLE      handle = nullptr;
        std::string args =
            Security(attributes) + ", " + (manual ? "manual" : "auto") + ", " + Bool(initial) + ", " + Text(name);
        if (os().Plan<HANDLE>("CreateEventA", args, nullptr, &handle)) {
            return handle;
        }
        if (os().m_real) {
            return Real(
                "CreateEventA", args,
                CreateEventA(attributes, manual, initial, name == nullptr ? nullptr : os().Private(name).c_str()),
                name);
        }
        auto object = std::make_shared<Object>(Object::Event, name == nullptr ? "" : name);
        object->manual = manual != FALSE;
        object->signalled = initial != FALSE;
        return os().CreateNamed("CreateEventA", args, object);
    }

    /* A real object that the code created: kept in the table, so that leaks show. */
    static HANDLE Real(const char* call, const std::string& args, HANDLE handle, const char* name)
    {
        DWORD error = GetLastError();
        if (handle != nullptr) {
            os().m_handles[handle] =
                Os::Opened{ std::make_shared<Object>(Object::Real, name == nullptr ? "" : name), false };
        }
        os().Record(call, args, Shown(handle, error));
        SetLastError(error);
        return handle;
    }

    static BOOL WINAPI HookCloseHandle(HANDLE handle)
    {
        Guard       lock(os().m_lock);
        BOOL        result = FALSE;
        std::string args = os().Show(handle);
        if (os().Plan("CloseHandle", args, FALSE, &result)) {
            return result;
        }
        auto found = os().m_handles.find(handle);
        if (found == os().m_handles.end()) {
            if (reinterpret_cast<ULONG_PTR>(handle) < FirstHandle && CloseHandle(handle)) {
                return os().Done("CloseHandle", args, TRUE);  // made before the double was there
            }
            os().misuse.push_back("CloseHandle of a closed or unknown handle " + args);
            return os().Done("CloseHandle", args, FALSE, ERROR_INVALID_HANDLE);
        }
        if (found->second.object->kind == Object::Real) {
            CloseHandle(handle);
        }
        os().m_handles.erase(found);
        return os().Done("CloseHandle", args, TRUE);
    }

    static DWORD WINAPI HookWaitForSingleObject(HANDLE handle, DWORD timeout)
    {
        return os().WaitFor("WaitForSingleObject", "", 1, &handle, false, timeout);
    }

    static DWORD WINAPI HookWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD timeout)
    {
        return os().WaitFor("WaitForMultipleObjects", Number(count) + (all ? ", all, " : ", any, "), count, handles,
                            all != FALSE, timeout);
    }

    static BOOL WINAPI HookReleaseMutex(HANDLE handle)
    {
        Guard       lock(os().m_lock);
        BOOL        result = FALSE;
        std::string args = os().Show(handle);
        if (os().Plan("ReleaseMutex", args, FALSE, &result)) {
            return result;
        }
        auto object = os().Find(handle);
        if (object != nullptr && object->kind == Object::Real) {
            result = ReleaseMutex(handle);
            return os().Done("ReleaseMutex", args, result, result ? 0 : GetLastError());
        }
        if (object == nullptr || object->kind != Object::Mutex) {
            os().misuse.push_back("ReleaseMutex of no mutex: " + args);
            return os().Done("ReleaseMutex", args, FALSE, ERROR_INVALID_HANDLE);
        }
        if (object->depth == 0 || object->owner != GetCurrentThreadId()) {
            os().misuse.push_back("ReleaseMutex by somebody who does not own it: " + args);
            return os().Done("ReleaseMutex", args, FALSE, ERROR_NOT_OWNER);
        }
        object->depth--;
        object->released++;
        return os().Done("ReleaseMutex", args, TRUE);
    }

    static BOOL WINAPI HookSetEvent(HANDLE handle)
    {
        Guard       lock(os().m_lock);
        BOOL        result = FALSE;
        std::string args = os().Show(handle);
        if (os().Plan("SetEvent", args, FALSE, &result)) {
            return result;
        }
        auto object = os().Find(handle);
        if (object != nullptr && object->kind == Object::Real) {
            result = SetEvent(handle);
            return os().Done("SetEvent", args, result, result ? 0 : GetLastError());
        }
        if (object == nullptr || object->kind != Object::Event) {
            os().misuse.push_back("SetEvent of no event: " + args);
            return os().Done("SetEvent", args, FALSE, ERROR_INVALID_HANDLE);
        }
        object->signalled = true;
        return os().Done("SetEvent", args, TRUE);
    }

    static BOOL WINAPI HookInitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision)
    {
        BOOL result = FALSE;
        if (os().Plan("InitializeSecurityDescriptor", Number(revision), FALSE, &result)) {
            return result;
        }
        result = InitializeSecurityDescriptor(descriptor, revision);
        return os().Done("InitializeSecurityDescriptor", Number(revision), result, result ? 0 : GetLastError());
    }

    static BOOL WINAPI HookSetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL acl,
                                                     BOOL defaulted)
    {
        BOOL        result = FALSE;
        std::string args = Bool(present) + ", " + (acl == nullptr ? "NULL" : "DACL") + ", " + Bool(defaulted);
        if (os().Plan("SetSecurityDescriptorDacl", args, FALSE, &result)) {
            return result;
        }
        result = SetSecurityDescriptorDacl(descriptor, present, acl, defaulted);
        return os().Done("SetSecurityDescriptorDacl", args, result, result ? 0 : GetLastError());
    }

    static HGLOBAL WINAPI HookGlobalAlloc(UINT flags, SIZE_T size)
    {
        Guard       lock(os().m_lock);
        HGLOBAL     result = nullptr;
        std::string args = Hex(flags) + ", " + std::to_string(size);
        if (os().Plan<HGLOBAL>("GlobalAlloc", args, nullptr, &result)) {
            return result;
        }
        auto block = std::make_shared<Os::Block>(size);
        // Memory that nobody asked to be zero is not zero.
        memset(block->data, (flags & GMEM_ZEROINIT) != 0 ? 0 : 0xCD, size);
        os().m_heap[block->data] = block;
        return os().Done<HGLOBAL>("GlobalAlloc", args, block->data);
    }

    static HGLOBAL WINAPI HookGlobalFree(HGLOBAL memory)
    {
        Guard       lock(os().m_lock);
        HGLOBAL     result = nullptr;
        auto        found = os().m_heap.find(memory);
        std::string args = found == os().m_heap.end() ? Hex(reinterpret_cast<ULONG_PTR>(memory))
                                                      : std::to_string(found->second->size) + " bytes";
        if (os().Plan<HGLOBAL>("GlobalFree", args, memory, &result)) {
            return result;
        }
        if (memory == nullptr) {
            return os().Done<HGLOBAL>("GlobalFree", args, nullptr);
        }
        if (found == os().m_heap.end()) {
            os().misuse.push_back("GlobalFree of a freed or unknown block " + args);
            return os().Done<HGLOBAL>("GlobalFree", args, memory, ERROR_INVALID_HANDLE);
        }
        os().m_heap.erase(found);
        return os().Done<HGLOBAL>("GlobalFree", args, nullptr);
    }

    static HANDLE WINAPI HookCreateFileMappingA(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protection,
                                                DWORD high, DWORD low, LPCSTR name)
    {
        Guard       lock(os().m_lock);
        HANDLE      handle = nullptr;
        std::string args = std::string(file == INVALID_HANDLE_VALUE ? "page file" : "file") + ", " +
                           Security(attributes) + ", " + Hex(protection) + ", " + Number(high) + ", " + Number(low) +
                           ", " + Text(name);
        if (os().Plan<HANDLE>("CreateFileMappingA", args, nullptr, &handle)) {
            return handle;
        }
        if (os().m_real) {
            return Real("CreateFileMappingA", args,
                        CreateFileMappingA(file, attributes, protection, high, low,
                                           name == nullptr ? nullptr : os().Private(name).c_str()),
                        name);
        }
        size_t size = (static_cast<size_t>(high) << 32) | low;
        if (size == 0) {
            return os().Done<HANDLE>("CreateFileMappingA", args, nullptr, ERROR_INVALID_PARAMETER);
        }
        auto object = std::make_shared<Object>(Object::Mapping, name == nullptr ? "" : name);
        if (os().FindNamed(object->name) == nullptr) {
            object->memory = std::make_shared<Os::Block>(size);
        }
        return os().CreateNamed("CreateFileMappingA", args, object);
    }

    static HANDLE WINAPI HookOpenFileMappingA(DWORD access, BOOL inherit, LPCSTR name)
    {
        Guard       lock(os().m_lock);
        HANDLE      handle = nullptr;
        std::string args = Hex(access) + ", " + Bool(inherit) + ", " + Text(name);
        if (os().Plan<HANDLE>("OpenFileMappingA", args, nullptr, &handle)) {
            return handle;
        }
        if (os().m_real) {
            return Real("OpenFileMappingA", args, OpenFileMappingA(access, inherit, os().Private(name).c_str()), name);
        }
        auto object = os().FindNamed(name == nullptr ? "" : name);
        if (object == nullptr) {
            return os().Done<HANDLE>("OpenFileMappingA", args, nullptr, ERROR_FILE_NOT_FOUND);
        }
        if (object->kind != Object::Mapping) {
            return os().Done<HANDLE>("OpenFileMappingA", args, nullptr, ERROR_INVALID_HANDLE);
        }
        return os().Done("OpenFileMappingA", args, os().NewHandle(object, false));
    }

    static LPVOID WINAPI HookMapViewOfFile(HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size)
    {
        Guard       lock(os().m_lock);
        LPVOID      view = nullptr;
        std::string args = os().Show(mapping) + ", " + Hex(access) + ", " + Number(high) + ", " + Number(low) + ", " +
                           std::to_string(size);
        if (os().Plan<LPVOID>("MapViewOfFile", args, nullptr, &view)) {
            return view;
        }
        auto object = os().Find(mapping);
        if (object != nullptr && object->kind == Object::Real) {
            view = MapViewOfFile(mapping, access, high, low, size);
            DWORD error = view == nullptr ? GetLastError() : 0;
            if (view != nullptr) {
                os().m_views.push_back(Os::View{ view, object, false });
            }
            return os().Done("MapViewOfFile", args, view, error);
        }
        if (object == nullptr || object->kind != Object::Mapping) {
            os().misuse.push_back("MapViewOfFile of no mapping: " + args);
            return os().Done<LPVOID>("MapViewOfFile", args, nullptr, ERROR_INVALID_HANDLE);
        }
        if (high != 0 || low != 0 || size > object->memory->size) {
            return os().Done<LPVOID>("MapViewOfFile", args, nullptr, ERROR_ACCESS_DENIED);
        }
        os().m_views.push_back(Os::View{ object->memory->data, object, false });
        return os().Done<LPVOID>("MapViewOfFile", args, object->memory->data);
    }

    static BOOL WINAPI HookUnmapViewOfFile(LPCVOID view)
    {
        Guard       lock(os().m_lock);
        BOOL        result = FALSE;
        auto        found = std::find_if(os().m_views.begin(), os().m_views.end(),
                                         [&](const Os::View& entry) { return entry.address == view; });
        std::string args = found == os().m_views.end() ? Hex(reinterpret_cast<ULONG_PTR>(view)) : found->object->name;
        if (os().Plan("UnmapViewOfFile", args, FALSE, &result)) {
            return result;
        }
        if (found == os().m_views.end()) {
            os().misuse.push_back("UnmapViewOfFile of no view: " + args);
            return os().Done("UnmapViewOfFile", args, FALSE, ERROR_INVALID_ADDRESS);
        }
        if (found->object->kind == Object::Real) {
            UnmapViewOfFile(view);
        }
        os().m_views.erase(found);
        return os().Done("UnmapViewOfFile", args, TRUE);
    }

    static HANDLE WINAPI HookOpenProcess(DWORD access, BOOL inherit, DWORD pid)
    {
        Guard       lock(os().m_lock);
        HANDLE      handle = nullptr;
        std::string args = Hex(access) + ", " + Bool(inherit) + ", " + Number(pid);
        if (os().Plan<HANDLE>("OpenProcess", args, nullptr, &handle)) {
            return handle;
        }
        auto  found = os().m_processes.find(pid);
        DWORD error = found == os().m_processes.end() ? ERROR_INVALID_PARAMETER : found->second.first;
        if (error != 0) {
            return os().Done<HANDLE>("OpenProcess", args, nullptr, error);
        }
        auto object = std::make_shared<Object>(Object::Process, Number(pid));
        object->exitCode = found->second.second;
        return os().Done("OpenProcess", args, os().NewHandle(object, false));
    }

    static BOOL WINAPI HookGetExitCodeProcess(HANDLE process, LPDWORD code)
    {
        Guard       lock(os().m_lock);
        BOOL        result = FALSE;
        std::string args = os().Show(process);
        if (os().Plan("GetExitCodeProcess", args, FALSE, &result)) {
            return result;
        }
        auto object = os().Find(process);
        if (object == nullptr || object->kind != Object::Process) {
            os().misuse.push_back("GetExitCodeProcess of no process: " + args);
            return os().Done("GetExitCodeProcess", args, FALSE, ERROR_INVALID_HANDLE);
        }
        *code = object->exitCode;
        return os().Done("GetExitCodeProcess", args + " -> " + Number(*code), TRUE);
    }

    static DWORD WINAPI HookGetCurrentProcessId()
    {
        return os().Done("GetCurrentProcessId", "", os().processId);
    }

    static DWORD WINAPI HookGetTickCount()
    {
        return os().Done("GetTickCount", "", os().Tick());
    }

    static void WINAPI HookGetLocalTime(LPSYSTEMTIME time)
    {
        *time = os().LocalTime();
        os().Record("GetLocalTime", "", "");
    }

    static BOOL WINAPI HookGetComputerNameA(LPSTR buffer, LPDWORD size)
    {
        BOOL        result = FALSE;
        std::string args = Number(*size);
        if (os().Plan("GetComputerNameA", args, FALSE, &result)) {
            return result;
        }
        const std::string& name = os().computerName;
        if (*size < name.size() + 1) {
            *size = static_cast<DWORD>(name.size() + 1);
            return os().Done("GetComputerNameA", args, FALSE, ERROR_BUFFER_OVERFLOW);
        }
        memcpy(buffer, name.c_str(), name.size() + 1);
        *size = static_cast<DWORD>(name.size());
        return os().Done("GetComputerNameA", args, TRUE);
    }

    /* Registry calls report by their result, not by the last error. */
    static LSTATUS Status(const char* call, const std::string& args, LSTATUS status)
    {
        os().Record(call, args, std::to_string(status));
        return status;
    }

    static bool PlannedStatus(const char* call, const std::string& args, LSTATUS* status)
    {
        auto planned = os().m_journal.Count(call);
        if (planned) {
            *status = Status(call, args, static_cast<LSTATUS>(planned->fails ? planned->error : planned->value));
        }
        return planned.has_value();
    }

    static LSTATUS WINAPI HookRegOpenKeyExA(HKEY root, LPCSTR path, DWORD options, REGSAM access, PHKEY key)
    {
        Guard       lock(os().m_lock);
        LSTATUS     status = ERROR_SUCCESS;
        std::string full = (root == HKEY_LOCAL_MACHINE ? "HKLM\\" : "?\\") + Text(path);
        std::string args = full + ", " + Number(options) + ", " + Hex(access);
        if (PlannedStatus("RegOpenKeyExA", args, &status)) {
            return status;
        }
        if (os().m_keys.count(Lower(full)) == 0) {
            return Status("RegOpenKeyExA", args, ERROR_FILE_NOT_FOUND);
        }
        *key = reinterpret_cast<HKEY>(os().m_nextHandle);
        os().m_nextHandle += 4;
        os().m_openKeys[*key] = full;
        return Status("RegOpenKeyExA", args, ERROR_SUCCESS);
    }

    static LSTATUS WINAPI HookRegQueryValueExA(HKEY key, LPCSTR name, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size)
    {
        Guard       lock(os().m_lock);
        LSTATUS     status = ERROR_SUCCESS;
        std::string args = Text(name) + ", size " + (size == nullptr ? "NULL" : Number(*size));
        if (PlannedStatus("RegQueryValueExA", args, &status)) {
            return status;
        }
        auto opened = os().m_openKeys.find(key);
        if (opened == os().m_openKeys.end()) {
            os().misuse.push_back("RegQueryValueExA of no open key: " + args);
            return Status("RegQueryValueExA", args, ERROR_INVALID_HANDLE);
        }
        if (auto failing = os().failValue.find(name); failing != os().failValue.end()) {
            return Status("RegQueryValueExA", args, static_cast<LSTATUS>(failing->second));
        }
        const auto& values = os().m_keys[Lower(opened->second)];
        auto        found = values.find(Lower(name));
        if (found == values.end()) {
            return Status("RegQueryValueExA", args, ERROR_FILE_NOT_FOUND);
        }
        if (type != nullptr) {
            *type = REG_DWORD;
        }
        if (data != nullptr && *size < sizeof(DWORD)) {
            *size = sizeof(DWORD);
            return Status("RegQueryValueExA", args, ERROR_MORE_DATA);
        }
        if (data != nullptr) {
            memcpy(data, &found->second, sizeof(DWORD));
        }
        if (size != nullptr) {
            *size = sizeof(DWORD);
        }
        return Status("RegQueryValueExA", args, ERROR_SUCCESS);
    }

    static LSTATUS WINAPI HookRegCloseKey(HKEY key)
    {
        Guard       lock(os().m_lock);
        LSTATUS     status = ERROR_SUCCESS;
        auto        opened = os().m_openKeys.find(key);
        std::string args = opened == os().m_openKeys.end() ? "?" : opened->second;
        if (PlannedStatus("RegCloseKey", args, &status)) {
            return status;
        }
        if (opened == os().m_openKeys.end()) {
            os().misuse.push_back("RegCloseKey of no open key");
            return Status("RegCloseKey", args, ERROR_INVALID_HANDLE);
        }
        os().m_openKeys.erase(opened);
        return Status("RegCloseKey", args, ERROR_SUCCESS);
    }

    /* The module whose file lies at the path, or the end of the table. */
    static std::map<std::string, Os::Module>::iterator ModuleAt(const std::string& path)
    {
        return std::find_if(os().modules.begin(), os().modules.end(),
                            [&](const auto& entry) { return entry.second.path == path; });
    }

    static HANDLE WINAPI HookCreateFileA(LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES,
                                         DWORD disposition, DWORD flags, HANDLE)
    {
        Guard       lock(os().m_lock);
        HANDLE      handle = INVALID_HANDLE_VALUE;
        std::string args = Text(path) + ", " + Hex(access) + ", " + Hex(share) + ", " + Number(disposition) + ", " +
                           Hex(flags) + ", error mode " + Hex(os().errorMode);
        if (os().Plan<HANDLE>("CreateFileA", args, INVALID_HANDLE_VALUE, &handle)) {
            return handle;
        }
        auto object = std::make_shared<Object>(Object::File, Text(path));
        object->path = Text(path);
        if (object->path == VELCOR_DEVICE_PATH && os().driver.loaded) {
            object->kind = Object::Device;
            object->driverLife = os().driver.Life();
        } else if (ModuleAt(object->path) == os().modules.end()) {
            return os().Done<HANDLE>("CreateFileA", args, INVALID_HANDLE_VALUE, ERROR_FILE_NOT_FOUND);
        }
        return os().Done("CreateFileA", args, os().NewHandle(object, false));
    }

    static BOOL WINAPI HookDeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out,
                                           DWORD outSize, LPDWORD returned, LPOVERLAPPED)
    {
        Guard       lock(os().m_lock);
        BOOL        result = FALSE;
        std::string args = os().Show(device) + ", " + Hex(code) + ", " + Hex(inSize) + ", " + Hex(outSize);
        if (os().Plan("DeviceIoControl", args, FALSE, &result)) {
            return result;
        }
        auto object = os().Find(device);
        if (object == nullptr || object->kind != Object::Device) {
            os().misuse.push_back("DeviceIoControl of no device: " + args);
            return os().Done("DeviceIoControl", args, FALSE, ERROR_INVALID_HANDLE);
        }
        if (object->driverLife != os().driver.Life()) {
            return os().Done("DeviceIoControl", args, FALSE, ERROR_DEV_NOT_EXIST);
        }
        DWORD error = os().driver.Answer(code, in, inSize, out, outSize, returned);
        return os().Done("DeviceIoControl", args, error == 0 ? TRUE : FALSE, error);
    }

    static UINT WINAPI HookSetErrorMode(UINT mode)
    {
        UINT old = os().errorMode;
        os().errorMode = mode;
        return os().Done("SetErrorMode", Hex(mode), old);
    }

    static DWORD WINAPI HookSearchPathA(LPCSTR path, LPCSTR file, LPCSTR extension, DWORD size, LPSTR buffer,
                                        LPSTR* part)
    {
        DWORD       result = 0;
        std::string args = Text(path) + ", " + Text(file) + ", " + Text(extension) + ", " + Number(size);
        if (os().Plan<DWORD>("SearchPathA", args, 0, &result)) {
            return result;
        }
        auto found = os().modules.find(Lower(Text(file)));
        if (found == os().modules.end()) {
            return os().Done<DWORD>("SearchPathA", args, 0, ERROR_FILE_NOT_FOUND);
        }
        const std::string& full = found->second.path;
        if (size < full.size() + 1) {
            return os().Done("SearchPathA", args, static_cast<DWORD>(full.size() + 1));
        }
        memcpy(buffer, full.c_str(), full.size() + 1);
        if (part != nullptr) {
            *part = buffer + full.rfind('\\') + 1;
        }
        return os().Done("SearchPathA", args, static_cast<DWORD>(full.size()));
    }

    static BOOL WINAPI HookGetFileInformationByHandle(HANDLE file, LPBY_HANDLE_FILE_INFORMATION information)
    {
        Guard       lock(os().m_lock);
        BOOL        result = FALSE;
        std::string args = os().Show(file);
        if (os().Plan("GetFileInformationByHandle", args, FALSE, &result)) {
            return result;
        }
        auto object = os().Find(file);
        auto module = object == nullptr ? os().modules.end() : ModuleAt(object->path);
        if (module == os().modules.end()) {
            os().misuse.push_back("GetFileInformationByHandle of no file: " + args);
            return os().Done("GetFileInformationByHandle", args, FALSE, ERROR_INVALID_HANDLE);
        }
        *information = {};
        information->ftLastWriteTime = module->second.written;
        return os().Done("GetFileInformationByHandle", args, TRUE);
    }

    static BOOL WINAPI HookFileTimeToLocalFileTime(const FILETIME* time, LPFILETIME local)
    {
        BOOL result = FALSE;
        if (os().Plan("FileTimeToLocalFileTime", "", FALSE, &result)) {
            return result;
        }
        ULONGLONG ticks = (static_cast<ULONGLONG>(time->dwHighDateTime) << 32) | time->dwLowDateTime;
        LONGLONG  offset = static_cast<LONGLONG>(os().utcOffset) * 60 * 10000000;
        *local = ToFileTime(ticks + static_cast<ULONGLONG>(offset));
        return os().Done("FileTimeToLocalFileTime", "", TRUE);
    }

    static BOOL WINAPI HookFileTimeToSystemTime(const FILETIME* time, LPSYSTEMTIME system)
    {
        BOOL result = FALSE;
        if (os().Plan("FileTimeToSystemTime", "", FALSE, &result)) {
            return result;
        }
        result = FileTimeToSystemTime(time, system);
        return os().Done("FileTimeToSystemTime", "", result, result ? 0 : GetLastError());
    }

    /* The double's version block: the translation, then the version text. Nothing else is ever read from one. */
    static const DWORD VersionBlockSize = 512;
    static const DWORD VersionTextOffset = 16;

    static DWORD WINAPI HookGetFileVersionInfoSizeA(LPCSTR path, LPDWORD zero)
    {
        DWORD       result = 0;
        std::string args = Text(path);
        if (os().Plan<DWORD>("GetFileVersionInfoSizeA", args, 0, &result)) {
            return result;
        }
        if (zero != nullptr) {
            *zero = 0;
        }
        auto module = ModuleAt(args);
        if (module == os().modules.end() || module->second.version.empty()) {
            return os().Done<DWORD>("GetFileVersionInfoSizeA", args, 0,
                                    module == os().modules.end() ? ERROR_FILE_NOT_FOUND
                                                                 : ERROR_RESOURCE_DATA_NOT_FOUND);
        }
        return os().Done<DWORD>("GetFileVersionInfoSizeA", args, VersionBlockSize);
    }

    static BOOL WINAPI HookGetFileVersionInfoA(LPCSTR path, DWORD, DWORD size, LPVOID block)
    {
        BOOL        result = FALSE;
        std::string args = Text(path) + ", " + Number(size);
        if (os().Plan("GetFileVersionInfoA", args, FALSE, &result)) {
            return result;
        }
        auto module = ModuleAt(Text(path));
        if (module == os().modules.end() || size < VersionBlockSize) {
            return os().Done("GetFileVersionInfoA", args, FALSE, ERROR_INSUFFICIENT_BUFFER);
        }
        const Os::Module& source = module->second;
        BYTE*             bytes = static_cast<BYTE*>(block);
        memset(bytes, 0, size);
        memcpy(bytes, &source.language, sizeof(WORD));
        memcpy(bytes + sizeof(WORD), &source.codePage, sizeof(WORD));
        memcpy(bytes + VersionTextOffset, source.version.c_str(), source.version.size() + 1);
        return os().Done("GetFileVersionInfoA", args, TRUE);
    }

    static BOOL WINAPI HookVerQueryValueA(LPCVOID block, LPCSTR path, LPVOID* value, PUINT size)
    {
        BOOL        result = FALSE;
        std::string args = Text(path);
        if (os().Plan("VerQueryValueA", args, FALSE, &result)) {
            return result;
        }
        // The block is the caller's own memory; the interface hands out pointers into it that may be written.
        BYTE* bytes = static_cast<BYTE*>(const_cast<void*>(block));
        WORD  language = 0, codePage = 0;
        char  translated[64];
        memcpy(&language, bytes, sizeof language);
        memcpy(&codePage, bytes + sizeof language, sizeof codePage);
        _snprintf(translated, sizeof translated, "\\StringFileInfo\\%04x%04x\\FileVersion", language, codePage);
        if (args == "\\VarFileInfo\\Translation") {
            *value = bytes;
            *size = 4;
        } else if (args == translated) {
            *value = bytes + VersionTextOffset;
            *size = static_cast<UINT>(strlen(reinterpret_cast<char*>(bytes + VersionTextOffset)) + 1);
        } else {
            return os().Done("VerQueryValueA", args, FALSE, ERROR_RESOURCE_TYPE_NOT_FOUND);
        }
        return os().Done("VerQueryValueA", args, TRUE);
    }

    static int WINAPI HookMultiByteToWideChar(UINT codePage, DWORD flags, LPCCH text, int bytes, LPWSTR wide, int size)
    {
        int         result = 0;
        std::string args = Number(codePage) + ", " + Text(text) + ", " + std::to_string(size);
        if (os().Plan("MultiByteToWideChar", args, 0, &result)) {
            return result;
        }
        result = MultiByteToWideChar(codePage, flags, text, bytes, wide, size);
        return os().Done("MultiByteToWideChar", args, result, result != 0 ? 0 : GetLastError());
    }

    static int WINAPIV HookWsprintfA(LPSTR buffer, LPCSTR format, ...)
    {
        va_list list;
        va_start(list, format);
        int result = wvsprintfA(buffer, format, list);
        va_end(list);
        return os().Done("wsprintfA", std::string(format) + ", " + buffer, result);
    }

    static int WINAPI HookMessageBoxA(HWND, LPCSTR text, LPCSTR caption, UINT style)
    {
        int         result = 0;
        std::string args = Text(caption) + ", " + Text(text) + ", " + Number(style);
        os().messageBoxes.emplace_back(Text(caption), Text(text));
        return os().Plan("MessageBoxA", args, 0, &result) ? result : os().Done("MessageBoxA", args, IDOK);
    }

    static uintptr_t HookBeginThreadEx(void* security, unsigned stack, ThreadRoutine routine, void* argument,
                                       unsigned flags, unsigned* id)
    {
        Guard       lock(os().m_lock);
        std::string args = std::string(security == nullptr ? "no security" : "security") + ", stack " + Number(stack) +
                           ", flags " + Number(flags);
        if (auto planned = os().m_journal.Count("_beginthreadex")) {
            os().Record("_beginthreadex", args, "0 errno=" + Number(planned->error));
            errno = static_cast<int>(planned->error);  // one errno for all modules of the process: msvcrt's
            return 0;
        }
        HANDLE handle = nullptr;
        if (os().m_real) {
            auto* start = new std::pair<ThreadRoutine, void*>(routine, argument);
            handle =
                Real("_beginthreadex", args,
                     reinterpret_cast<HANDLE>(_beginthreadex(nullptr, stack, RealThread, start, flags, id)), nullptr);
        } else {
            auto object = std::make_shared<Object>(Object::Thread);
            object->routine = routine;
            object->argument = argument;
            handle = os().NewHandle(object, false);
            os().Record("_beginthreadex", args, os().Show(handle));
        }
        os().started.push_back(Os::Started{ routine, argument, handle });
        return reinterpret_cast<uintptr_t>(handle);
    }

    static unsigned __stdcall RealThread(void* argument)
    {
        auto* start = static_cast<std::pair<ThreadRoutine, void*>*>(argument);
        auto [routine, value] = *start;
        delete start;
        return os().RunThread(routine, value);
    }

    static void HookEndThreadEx(unsigned code)
    {
        os().Record("_endthreadex", Number(code), "");
        throw ThreadEnd{ code };  // the call never comes back to its caller; RunThread takes it from here
    }
};

struct Slot {
    const char* dll;
    const char* name;
    void*       routine;
};

static const std::vector<Slot>& Slots()
{
#define SLOT(dll, name) \
    { \
        dll, #name, Address(OsHooks::Hook##name) \
    }
    static const std::vector<Slot> slots = {
        SLOT("kernel32.dll", CreateMutexA),
        SLOT("kernel32.dll", CreateEventA),
        SLOT("kernel32.dll", CloseHandle),
        SLOT("kernel32.dll", WaitForSingleObject),
        SLOT("kernel32.dll", WaitForMultipleObjects),
        SLOT("kernel32.dll", ReleaseMutex),
        SLOT("kernel32.dll", SetEvent),
        SLOT("advapi32.dll", InitializeSecurityDescriptor),
        SLOT("advapi32.dll", SetSecurityDescriptorDacl),
        SLOT("kernel32.dll", GlobalAlloc),
        SLOT("kernel32.dll", GlobalFree),
        SLOT("kernel32.dll", CreateFileMappingA),
        SLOT("kernel32.dll", OpenFileMappingA),
        SLOT("kernel32.dll", MapViewOfFile),
        SLOT("kernel32.dll", UnmapViewOfFile),
        SLOT("kernel32.dll", OpenProcess),
        SLOT("kernel32.dll", GetExitCodeProcess),
        SLOT("kernel32.dll", GetCurrentProcessId),
        SLOT("kernel32.dll", GetTickCount),
        SLOT("kernel32.dll", GetLocalTime),
        SLOT("kernel32.dll", GetComputerNameA),
        SLOT("advapi32.dll", RegOpenKeyExA),
        SLOT("advapi32.dll", RegQueryValueExA),
        SLOT("advapi32.dll", RegCloseKey),
        SLOT("kernel32.dll", CreateFileA),
        SLOT("kernel32.dll", DeviceIoControl),
        SLOT("kernel32.dll", SetErrorMode),
        SLOT("kernel32.dll", SearchPathA),
        SLOT("kernel32.dll", GetFileInformationByHandle),
        SLOT("kernel32.dll", FileTimeToLocalFileTime),
        SLOT("kernel32.dll", FileTimeToSystemTime),
        SLOT("version.dll", GetFileVersionInfoSizeA),
        SLOT("version.dll", GetFileVersionInfoA),
        SLOT("version.dll", VerQueryValueA),
        SLOT("kernel32.dll", MultiByteToWideChar),
        { "user32.dll", "wsprintfA", Address(OsHooks::HookWsprintfA) },
        SLOT("user32.dll", MessageBoxA),
        { "msvcrt.dll", "_beginthreadex", Address(OsHooks::HookBeginThreadEx) },
        { "msvcrt.dll", "_endthreadex", Address(OsHooks::HookEndThreadEx) },
    };
#undef SLOT
    return slots;
}

void Os::Install(ImportHooks& hooks)
{
    for (const Slot& slot : Slots()) {
        if (hooks.Replace(slot.dll, slot.name, slot.routine)) {
            m_hooked.insert(slot.name);
        }
    }
}

std::vector<std::string> Os::Known()
{
    std::vector<std::string> names;
    for (const Slot& slot : Slots()) {
        names.push_back(slot.name);
    }
    return names;
}
