#include "unit/region_fixture.h"

void RegionTest::SaveCurrent()
{
    if (m_current != nullptr) {
        m_current->hMap = g_hShmMap;
        m_current->pView = g_pShmInfo;
        m_current->dwCount = g_dwShmInitCount;
        m_current->dwListed = g_dwPMProcessID;
        m_current->nRow = g_nPMProcessIDIdx;
    }
}

void RegionTest::Enter(Process& process)
{
    SaveCurrent();
    m_current = &process;
    os.processId = process.pid;
    g_hShmMap = process.hMap;
    g_pShmInfo = process.pView;
    g_dwShmInitCount = process.dwCount;
    g_dwPMProcessID = process.dwListed;
    g_nPMProcessIDIdx = process.nRow;
}

std::string RegionTest::Exit(bool result, DWORD code)
{
    return std::string("EXIT<") + (result ? "TRUE" : "FALSE") + "> err<" + Hex(code) + ">";
}

Strings RegionTest::LockRefused(DWORD error) const
{
    Routine     T("_DkpfMutexLock");
    std::string handle = Alternate(g_hShmMutex);
    return { T(32, "ENTER<" + handle + "><-1msec>"), std::string("WaitForSingleObject(") + MutexShown + ", INFINITE)",
             T(1, " WaitForSingleObject(" + handle + ") failed.<W32Err=" + std::to_string(error) + ">"),
             T(32, "EXIT<" + handle + "><FALSE>") };
}

Strings RegionTest::UnlockRefused(DWORD error) const
{
    Routine     T("_DkpfMutexUnlock");
    std::string handle = Alternate(g_hShmMutex);
    return { T(32, "ENTER<" + handle + ">"), std::string("ReleaseMutex(") + MutexShown + ")",
             T(1, " ReleaseMutex(" + handle + ") failed.(W32Err=" + std::to_string(error) + ")"),
             T(32, "EXIT<" + handle + "><FALSE>") };
}

void RegionTest::ExpectDetached(DWORD count)
{
    EXPECT_EQ(g_pShmInfo, nullptr);
    EXPECT_EQ(g_hShmMap, nullptr);
    EXPECT_EQ(g_dwShmInitCount, count);
}
