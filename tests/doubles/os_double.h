/*
 * Double of the operating system: every Win32 call that the product makes, put into the import table of the module
 * under test. Objects, mappings, memory, registry, files, processes and time are the double's own: nothing leaves the
 * test, and no case waits for anything. Each call is recorded, may be made to fail, and what is left open can be asked
 * for.
 */
#ifndef TESTS_DOUBLES_OS_DOUBLE_H
#define TESTS_DOUBLES_OS_DOUBLE_H

#include <windows.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "doubles/journal.h"
#include "doubles/velcor_double.h"

class ImportHooks;

using ThreadRoutine = unsigned(__stdcall*)(void*);

/* A wait that nothing planned will ever end, or a loop without an end. Fails the case. */
struct EndlessWait : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Os {
public:
    explicit Os(Journal& journal);
    ~Os();
    Os(const Os&) = delete;
    Os& operator=(const Os&) = delete;

    /* Replaces those of the known calls that the module imports. */
    void Install(ImportHooks& hooks);
    /* True if the module imports the call, and so has it replaced. */
    bool Hooked(const std::string& name) const
    {
        return m_hooked.count(name) != 0;
    }
    /* All calls that the double knows. */
    static std::vector<std::string> Known();

    /* ---- Failures: the n-th call of a name, counted from 1 at the start of the case or the last ResetPlans ---- */

    void Fail(const std::string& name, unsigned nth, DWORD error, unsigned times = 1);
    void Return(const std::string& name, unsigned nth, ULONGLONG value, DWORD error = 0);

    /* ---- Time ---- */

    void       SetTick(DWORD tick);                   // GetTickCount() now; to come close to the wrap
    void       SetTime(const SYSTEMTIME& localTime);  // GetLocalTime() now
    void       SetTime(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second, WORD ms = 0);
    void       Advance(ULONGLONG ms);
    DWORD      Tick() const;
    SYSTEMTIME LocalTime() const;
    ULONGLONG  Elapsed() const
    {
        return m_now;
    }                   // ms since the case started
    int utcOffset = 0;  // minutes that local time is ahead of UTC, for file times

    /* Runs the action when Elapsed() reaches ms: inside the wait that spans the moment. Same moment: in order of
     * planning. */
    void At(ULONGLONG ms, std::function<void()> action);
    void SignalAt(ULONGLONG ms, HANDLE object);

    /* ---- Objects. Those made here belong to the test and never count as leaks. ---- */

    HANDLE MakeMutex(const std::string& name = "");
    HANDLE MakeEvent(bool manual, const std::string& name = "");
    HANDLE MakeThread();
    void   Signal(HANDLE object);
    bool   Signalled(HANDLE object) const;
    /* The mutex belongs to another thread until it is given back. */
    void HoldByOther(HANDLE mutex, bool held = true);
    /* The owner died: the next wait answers WAIT_ABANDONED and owns it. */
    void     Abandon(HANDLE mutex);
    unsigned Locked(HANDLE mutex) const;    // depth of ownership now
    unsigned Acquired(HANDLE mutex) const;  // successful waits ever
    unsigned Released(HANDLE mutex) const;  // successful releases ever
    /* A handle of the test's own to the named object, or NULL: "did the code create it?" */
    HANDLE Named(const std::string& name);

    /* Named mapping as another process would hold it: stays when the code under test unmaps it. Bytes start as zero. */
    void* HoldMapping(const std::string& name, size_t size);
    void  DropMapping(const std::string& name);
    /* A handle and a view of a held mapping, for a case that begins attached. The code may give both back. */
    HANDLE AttachMapping(const std::string& name, void** view);

    /* Waits made so far: time-out asked, answer given, and the moment of the answer. */
    struct Wait {
        std::string call;
        DWORD       timeout;
        DWORD       result;
        ULONGLONG   at;
    };
    std::vector<Wait> waits;
    unsigned          maxWaits = 200000;  // more waits than this in one case are taken as a loop without an end

    /* ---- Threads ---- */

    enum class Threads {
        EndWhenAwaited,  // started threads never run; a wait for one finds it ended
        NeverEnd,        // started threads never run; a wait for one times out
        RunWhenAwaited,  // the first wait for one runs its routine to the end, on the waiting thread
    };
    Threads threads = Threads::EndWhenAwaited;
    struct Started {
        ThreadRoutine routine;
        void*         argument;
        HANDLE        handle;
    };
    std::vector<Started> started;
    /* Runs a thread routine here and now; _endthreadex inside comes back as the result. */
    unsigned RunThread(ThreadRoutine routine, void* argument = nullptr);

    /* From now on mutexes, events, mappings and threads are real ones, with names private to this process; waits take
     * real time. For cases about true concurrency only. Clock, files, registry and memory stay the double's. */
    void UseRealObjects()
    {
        m_real = true;
    }

    /* ---- Processes, machine, registry, files ---- */

    DWORD       processId = 4711;
    std::string computerName = "NODE1";
    UINT        errorMode = 0;
    void        Process(DWORD pid, DWORD exitCode);      // can be opened; 259 = alive
    void        ProcessRefused(DWORD pid, DWORD error);  // OpenProcess answers the error
    /* Any other pid: error 87, as of a process that is gone. */

    void                         AddKey(const std::string& path);  // "HKLM\\Software\\..."; case does not matter
    void                         RemoveKey(const std::string& path);
    void                         SetValue(const std::string& path, const std::string& name, DWORD value);
    std::map<std::string, DWORD> failValue;  // by value name: status of every read

    DriverDouble driver;  // behind VELCOR_DEVICE_PATH

    /* A file on the search path. No version: the file has no version resource. */
    struct Module {
        std::string path;
        FILETIME    written;  // UTC
        std::string version;
        WORD        language = 0x409, codePage = 1200;
    };
    void AddModule(const std::string& name, const SYSTEMTIME& writtenUtc, const std::string& version);
    std::map<std::string, Module>                    modules;
    std::vector<std::pair<std::string, std::string>> messageBoxes;  // caption, text

    /* ---- What is left ---- */

    /* Handles, views, heap blocks and registry keys that the code opened and did not give back; mutexes still owned. */
    std::vector<std::string> Leaks() const;
    /* What the system would have refused or suffered: a handle closed twice, a foreign pointer freed, a mutex released
     * by somebody who does not own it. */
    std::vector<std::string> misuse;

    static Os* current;

private:
    friend struct OsHooks;
    struct Object;
    struct Block;

    template <class T> bool Plan(const char* name, const std::string& args, T failing, T* result);
    void                    Record(const char* name, const std::string& args, const std::string& result);
    template <class T> T    Done(const char* name, const std::string& args, T result, DWORD error = 0);

    HANDLE                  NewHandle(std::shared_ptr<Object> object, bool own);
    std::shared_ptr<Object> Find(HANDLE handle) const;
    std::shared_ptr<Object> FindNamed(const std::string& name) const;
    std::string             Show(HANDLE handle) const;
    HANDLE                  CreateNamed(const char* call, const std::string& args, std::shared_ptr<Object> object);
    bool                    Ready(Object& object);
    void                    Take(Object& object);
    DWORD WaitFor(const char* call, std::string args, DWORD count, const HANDLE* handles, bool all, DWORD timeout);
    void  RunDueActions();
    std::string Private(const char* name) const;

    Journal&                     m_journal;
    mutable std::recursive_mutex m_lock;
    std::set<std::string>        m_hooked;
    bool                         m_real = false;

    ULONGLONG                                       m_now = 0;
    DWORD                                           m_tickBase = 0;
    ULONGLONG                                       m_timeBase = 0;  // local time at m_now 0, 100 ns
    std::multimap<ULONGLONG, std::function<void()>> m_actions;

    ULONG_PTR m_nextHandle;
    struct Opened {
        std::shared_ptr<Object> object;
        bool                    own;  // made by the test
    };
    std::map<HANDLE, Opened>                     m_handles;
    std::map<std::string, std::weak_ptr<Object>> m_names;
    struct View {
        const void*             address;
        std::shared_ptr<Object> object;
        bool                    own;
    };
    std::vector<View>                                   m_views;
    std::map<const void*, std::shared_ptr<Block>>       m_heap;
    std::map<HKEY, std::string>                         m_openKeys;
    std::map<std::string, std::map<std::string, DWORD>> m_keys;
    std::map<DWORD, std::pair<DWORD, DWORD>>            m_processes;  // pid -> error, exit code
};

#endif
