/*
 * What the cases about the shared region have in common: the region as bytes, several processes in one test program,
 * and the lines that routines write at each call.
 */
#ifndef TESTS_UNIT_REGION_FIXTURE_H
#define TESTS_UNIT_REGION_FIXTURE_H

#include "unit/region_model.h"
#include "unit/traced_fixture.h"

/* Result codes, typed from their list. */
constexpr DWORD Success = 0xB0000000, Already = 0xB0000001, TableFull = 0xB0000003, BadPointer = 0xB0000004;
constexpr DWORD LockFailed = 0xB0000006, NoMemory = 0xB000000B, SyncFailed = 0xB0000010, NoRegion = 0xB0000018;
constexpr DWORD MappingFailed = 0xB000001A, ViewFailed = 0xB000001B, UnmapFailed = 0xB000001C;
constexpr DWORD NotSet = 0x12345678;

constexpr char RegionName[] = "Global\\TNW_DKPF_SHM_INFO";
constexpr char MutexShown[] = "mutex Global\\TNW_DKPF_MUTEX_INFO";
constexpr char MappingShown[] = "mapping Global\\TNW_DKPF_SHM_INFO";
constexpr char ViewLeft[] = "view: Global\\TNW_DKPF_SHM_INFO";
constexpr char MappingLeft[] = "handle: mapping Global\\TNW_DKPF_SHM_INFO";
constexpr char MutexLeft[] = "locked: mutex Global\\TNW_DKPF_MUTEX_INFO";

/* What a process has of its own: its number and the library's globals about the region. */
struct Process {
    DWORD          pid;
    HANDLE         hMap = nullptr;
    DKPF_SHM_INFO* pView = nullptr;
    DWORD          dwCount = 0;
    DWORD          dwListed = 0;
    int            nRow = 0;
    explicit Process(DWORD p) : pid(p)
    {
    }
};

class RegionTest : public TracedTest {
protected:
    /* From now on the library runs in that process; what the one before had is kept in it. */
    void Enter(Process& process);
    void SaveCurrent();

    /* The region's bytes; only where a process or the test holds it. */
    static uint8_t* Raw(DKPF_SHM_INFO* region)
    {
        return reinterpret_cast<uint8_t*>(region);
    }

    /* "EXIT<TRUE> err<0xb0000000>" */
    static std::string Exit(bool result, DWORD code);
    Strings            Lock() const
    {
        return LockStory(g_hShmMutex, MutexShown);
    }
    Strings Unlock() const
    {
        return UnlockStory(g_hShmMutex, MutexShown);
    }
    /* The lines of a lock or an unlock that the system refuses with an error. */
    Strings LockRefused(DWORD error) const;
    Strings UnlockRefused(DWORD error) const;
    /* Up to the lock: the attributes with a NULL DACL. */
    static Strings AttributesStory()
    {
        return { "GlobalAlloc(0x40, 40)", "InitializeSecurityDescriptor(1)",
                 "SetSecurityDescriptorDacl(TRUE, NULL, FALSE)" };
    }

    /* The library holds nothing of the region. */
    void ExpectDetached(DWORD count);

private:
    Process* m_current = nullptr;
};

#endif
