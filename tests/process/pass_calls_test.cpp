/*
 * What one pass of each worker thread asks of the system, counted at the import tables of the shipped libraries: 64
 * disks, 130 files, log/level 3. Times are noise on a busy machine; these numbers are not.
 */
#include <gmock/gmock.h>

#include <map>
#include <mutex>
#include <stdexcept>

#include "support/driver.h"
#include "support/import_watch.h"
#include "support/patience.h"
#include "support/product_home.h"

using Calls = std::map<std::string, int>;
using testing::Pair;
using testing::UnorderedElementsAre;

namespace {

constexpr DWORD COLLECT_S = 100;  // tells the two threads' waits apart; neither is ever waited for
constexpr int   FILES = 130;

/* A worker thread, held in its wait until the case lets it go through one pass. */
struct Worker {
    HANDLE atWait = CreateEventA(NULL, FALSE, FALSE, NULL);  // auto-reset, as the next
    HANDLE go = CreateEventA(NULL, FALSE, FALSE, NULL);
};

struct Stage {
    Worker collect;
    Worker write;
};
Stage* g_stage;

DWORD WINAPI HeldWait(DWORD number, const HANDLE* handles, BOOL all, DWORD limit)
{
    Worker& worker = limit == COLLECT_S * 1000 ? g_stage->collect : g_stage->write;
    HANDLE  either[] = { worker.go, handles[0], handles[1] };
    SetEvent(worker.atWait);
    // Both wait for two events; the terminate event is among them.
    const DWORD answer = WaitForMultipleObjects(ARRAYSIZE(either), either, FALSE, INFINITE);
    return answer == WAIT_OBJECT_0 ? WAIT_TIMEOUT : WaitForMultipleObjects(number, handles, all, 0);
}

/* What stays in the process: counters, locks without a contender, memory, text. */
const char* const INSIDE[] = {
    "kernel32.dll!GetTickCount",
    "kernel32.dll!AcquireSRWLockExclusive",
    "kernel32.dll!ReleaseSRWLockExclusive",
    "kernel32.dll!AcquireSRWLockShared",
    "kernel32.dll!ReleaseSRWLockShared",
    "msvcrt.dll!memcpy",
    "msvcrt.dll!memmove",
    "msvcrt.dll!memset",
    "msvcrt.dll!memchr",
    "msvcrt.dll!strlen",
    "msvcrt.dll!_vsnprintf",
    "tnwlog.dll!#3",  // what these three call is counted in their own library
    "tnwlog.dll!#21",
    "tnwdiskfltr.dll!#5",
};

class PassCalls : public testing::Test {
protected:
    PassCalls()
    {
        g_stage = &stage;
        home.Configure({ { "parameters/collectinterval", std::to_string(COLLECT_S) },
                         { "parameters/writeinterval", "86400" },
                         { "log/level", "3" } });
        product = Load();
        for (const char* library : { "tnwdiskperf.dll", "tnwlog.dll", "tnwdiskfltr.dll" }) {
            watches.push_back(
                std::make_unique<ImportWatch>(GetModuleHandleA(library), [this](const ImportWatch::Call& call) {
                    const std::lock_guard<std::mutex> lock(mutex);
                    calls[call.dll + "!" + call.name]++;
                    return false;
                }));
        }
        hooks = std::make_unique<ImportHooks>(product);
        if (!hooks->Replace("KERNEL32.dll", "WaitForMultipleObjects", Address(&HeldWait)) || !driver.service->Start()) {
            throw std::runtime_error("the stage could not be set");
        }
        Feed();
        Call<BOOL(BOOL, DWORD*)>("DkpfInitialize", TRUE);
        Await(stage.collect);
        Await(stage.write);
    }

    ~PassCalls() override
    {
        Call<BOOL(DWORD*)>("DkpfTerminate");
        hooks.reset();
        watches.clear();
        FreeLibrary(product);
        driver.service->Stop();
    }

    HMODULE Load()
    {
        const HMODULE module =
            LoadLibraryExA(home.PlainPath(L"bin\\tnwdiskperf.dll").c_str(), NULL, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (module == NULL) {
            throw std::runtime_error("the product does not load");
        }
        return module;
    }

    template <class F, class... Arguments> void Call(const char* name, Arguments... arguments)
    {
        DWORD error = 0;
        void* routine = reinterpret_cast<void*>(GetProcAddress(product, name));
        if (!reinterpret_cast<F*>(routine)(arguments..., &error)) {
            throw std::runtime_error(name + std::string(" failed"));
        }
    }

    /* All 64 disks present, with other numbers each time. */
    void Feed()
    {
        VELCOR_FEED feed = {};
        step++;
        for (VELCOR_ENTRY& disk : feed.driver.entry) {
            disk.state = VELCOR_STATE_INITIALIZED;
            disk.mode = VELCOR_MODE_SYNC;
            disk.write_bytes = step * 123456789;
        }
        driver.Feed(feed);
    }

    static void Await(Worker& worker)
    {
        if (WaitForSingleObject(worker.atWait, PATIENCE_MS) != WAIT_OBJECT_0) {
            throw std::runtime_error("a worker thread does not come to its wait");
        }
    }

    /* One pass; what the three libraries called meanwhile. Both threads stand in their waits before and after. */
    Calls Pass(Worker& worker)
    {
        calls.clear();
        SetEvent(worker.go);
        Await(worker);
        const std::lock_guard<std::mutex> lock(mutex);
        for (const char* inside : INSIDE) {
            calls.erase(inside);
        }
        return calls;
    }

    /* A sample that the write thread has not seen. */
    Calls Collect()
    {
        Feed();
        Sleep(50);  // the tick count tells samples apart
        return Pass(stage.collect);
    }

    ProductHome                               home;
    InstalledDriver                           driver;
    Stage                                     stage;
    std::mutex                                mutex;
    Calls                                     calls;
    std::vector<std::unique_ptr<ImportWatch>> watches;
    std::unique_ptr<ImportHooks>              hooks;
    HMODULE                                   product = NULL;
    unsigned long long                        step = 0;
};

}  // namespace

// The driver's record and the filter's, the time, the region's mutex, and that of the warnings: five questions.
TEST_F(PassCalls, ACollectPassAsksForTwoRecordsAndTakesTwoMutexes)
{
    Collect();  // primes
    Collect();
    EXPECT_THAT(Collect(), UnorderedElementsAre(
                               Pair("kernel32.dll!DeviceIoControl", 2), Pair("kernel32.dll!GetLocalTime", 1),
                               Pair("kernel32.dll!WaitForSingleObject", 2), Pair("kernel32.dll!ReleaseMutex", 2)));
}

// One write for each line, behind a look at the file (deleted, grown, rotated?) and a seek to its end. The mutexes: the
// region's for the sample, that of the warnings for each of two kinds.
TEST_F(PassCalls, APassOf130FilesWritesEachLineOnce)
{
    Collect();  // primes
    for (int sample = 0; sample < 3; sample++) {
        Collect();
        Pass(stage.write);  // the first has nothing to compare with, the second opens the files
    }
    Collect();
    EXPECT_THAT(Pass(stage.write), UnorderedElementsAre(Pair("kernel32.dll!WriteFile", FILES),
                                                        Pair("kernel32.dll!SetFilePointerEx", FILES),
                                                        Pair("kernel32.dll!GetFileInformationByHandleEx", FILES),
                                                        Pair("kernel32.dll!WaitForSingleObject", 3),
                                                        Pair("kernel32.dll!ReleaseMutex", 3)));
    EXPECT_EQ(4u, home.Lines(L"perf\\nmp64_raw.csv").size());
}
