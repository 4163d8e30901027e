/*
 * DiskperfTest: one case on the library under test with every call out of it answered by a double.
 *
 *   class RegionMutex : public DiskperfTest {};
 *   TEST_F(RegionMutex, IsCreatedOpenToAll)
 *   {
 *       HANDLE hMutex = _DkpfCreateMutex(DKPF_MUTEX_NAME);
 *       EXPECT_EQ(journal.Of("CreateMutexA")[0].args, "null DACL, FALSE, Global\\TNW_DKPF_MUTEX_INFO");
 *       EXPECT_EQ(os.Leaks(), Strings({ "handle: mutex Global\\TNW_DKPF_MUTEX_INFO" }));
 *   }
 *
 * A case starts with the globals as the library is loaded, except that the DllInit mutex is the double's and the three
 * trace logs are open at every level, so that all lines can be compared. They are put back
 * before and after each case. State of a unit that no header shows stays: a case runs after any other of its program.
 */
#ifndef TESTS_SUPPORT_FIXTURE_H
#define TESTS_SUPPORT_FIXTURE_H

#include "diskperf.h"
#include "support/hooked_module.h"

/* DllMain of the library under test. Exported by the test build alone. */
BOOL TesteeDllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID lpReserved);

class DiskperfTest : public HookedModuleTest {
protected:
    DiskperfTest();
    void SetUp() override;
    void TearDown() override;

    /* For cases about the logs themselves: none is open, as in a process that has just loaded the library. */
    void CloseLogs();

    /* The region as another process made it, zeroed; stays when the library lets go of it. */
    DKPF_SHM_INFO* HoldRegion();
    /* g_hInfoMutex and g_hShmMutex, as DkpfInitialize leaves them. */
    HANDLE MakeRegionMutex();
    /* Region mutex and region attached once, the reader's row entered in the table (0: the producer's). */
    DKPF_SHM_INFO* AttachRegion(int nRow = 0);

private:
    struct Variable;
    static std::vector<Variable>& Variables();
    void                          RestoreVariables();
    template <class T> void       Set(const char* name, T value);
};

#endif
