/*
 * What happens while the region's mutex is held: nothing that goes to the system, and nothing that is formatted. Every
 * import of the library is watched, whichever routine it is, on the real mutex.
 */
#include <gmock/gmock.h>

#include <map>
#include <set>

#include "support/full_region.h"
#include "support/import_watch.h"
#include "tnwlog.h"

using Calls = std::map<std::string, int>;  // by routine: "kernel32.dll!SetEvent", "tnwlog.dll!#3"
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Pair;
using testing::UnorderedElementsAre;

/* What the hooks see; one thread. */
static struct {
    HANDLE          mutex;
    bool            held;
    Calls           within;       // calls between lock and unlock
    Calls           outside;      // all others
    std::set<DWORD> traceLevels;  // of the lines handed over between lock and unlock
    int             holds;
} g_watch;

static DWORD WINAPI WatchedWait(HANDLE handle, DWORD limit)
{
    const DWORD result = WaitForSingleObject(handle, limit);
    if (handle == g_watch.mutex) {
        g_watch.held = true;
        g_watch.holds++;
    }
    return result;
}

static BOOL WINAPI WatchedRelease(HANDLE handle)
{
    if (handle == g_watch.mutex) {
        g_watch.held = false;
    }
    return ReleaseMutex(handle);
}

static void WatchedLogWrite(HTNWLOG, DWORD level, DWORD, const char*, int, const char*, const char*, ...)
{
    if (g_watch.held) {
        g_watch.traceLevels.insert(level);
    }
}

static DKPF_SHM_INFO g_region;
static DKPF_PARAM    g_sample;

/* The region of a producer with 64 disks and 32 readers. */
class LockHold : public testing::Test {
protected:
    void SetUp() override
    {
        const HMODULE module = GetModuleHandleA("diskperf_testee.dll");
        g_watch = {};
        g_watch.mutex = CreateMutexA(NULL, FALSE, "Global\\TNW_DKPF_MUTEX_UNDER_TEST");
        ASSERT_NE(static_cast<HANDLE>(NULL), g_watch.mutex);
        // These three are replaced: they are not among the calls that the watch counts.
        imports = std::make_unique<ImportWatch>(module, [](const ImportWatch::Call& call) {
            (g_watch.held ? g_watch.within : g_watch.outside)[call.dll + "!" + call.name]++;
            return false;
        });
        hooks = std::make_unique<ImportHooks>(module);
        ASSERT_TRUE(hooks->Replace("KERNEL32.dll", "WaitForSingleObject", Address(&WatchedWait)));
        ASSERT_TRUE(hooks->Replace("KERNEL32.dll", "ReleaseMutex", Address(&WatchedRelease)));
        ASSERT_TRUE(hooks->Replace("tnwlog.dll", 3, Address(&WatchedLogWrite)));

        AttachFullRegion(g_watch.mutex, &g_region, &g_sample);
    }

    void TearDown() override
    {
        hooks.reset();
        imports.reset();
        CloseHandle(g_watch.mutex);
    }

    /* Plain copies of the C run-time apart. */
    static Calls SystemCalls()
    {
        Calls calls = g_watch.within;
        for (const char* copy : { "msvcrt.dll!memcpy", "msvcrt.dll!memset", "msvcrt.dll!memmove" }) {
            calls.erase(copy);
        }
        return calls;
    }

    /* One hold, nothing but plain copies in it; lines that log/level 3 drops unread do not count. */
    static void ExpectAQuietHold()
    {
        EXPECT_EQ(1, g_watch.holds);
        EXPECT_THAT(SystemCalls(), IsEmpty());
        for (DWORD level : g_watch.traceLevels) {
            EXPECT_EQ(0u, level & (3 | TNWLOG_EVENT)) << "a line of level " << level << " under the lock";
        }
    }

    std::unique_ptr<ImportWatch> imports;
    std::unique_ptr<ImportHooks> hooks;
    DWORD                        error = 0;
};

// The watch itself: it sees what is called, so that an empty list means that nothing was.
TEST_F(LockHold, ACallUnderTheLockIsSeen)
{
    EXPECT_GT(imports->Number(), 60u);
    HANDLE event = _DkpfCreateEvent(TRUE, NULL);
    EXPECT_EQ(1u, g_watch.outside.count("kernel32.dll!CreateEventA"));
    WatchedWait(g_watch.mutex, INFINITE);
    const HANDLE second = _DkpfCreateEvent(TRUE, NULL);
    WatchedRelease(g_watch.mutex);
    EXPECT_EQ(1u, SystemCalls().count("kernel32.dll!CreateEventA"));
    CloseHandle(event);
    CloseHandle(second);
}

TEST_F(LockHold, AStoreFor32ReadersCallsNothing)
{
    EXPECT_TRUE(_DkpfShmSetPerf(&g_sample, &error));
    EXPECT_EQ(1063u, g_region.maxinstance[32][1].inst_sub[63].value);  // it was one
    ExpectAQuietHold();
}

TEST_F(LockHold, AReadCallsNothing)
{
    DKPF_PARAM read = {};
    EXPECT_TRUE(_DkpfShmSetPerf(&g_sample, &error));
    g_watch.holds = 0;
    EXPECT_TRUE(_DkpfShmGetPerf(&read, &error));
    EXPECT_EQ(1063u, read.maxinstance[1].inst_sub[63].value);
    ExpectAQuietHold();
}

TEST_F(LockHold, TheConfigurationIsPublishedAndReadWithoutACall)
{
    DKPF_CONF conf = {};
    EXPECT_TRUE(_DkpfShmSetConf(0xFFFF, &conf, &error));
    EXPECT_TRUE(_DkpfShmGetConf(0xFFFF, &conf, &error));
    g_watch.holds = 1;
    ExpectAQuietHold();
}
