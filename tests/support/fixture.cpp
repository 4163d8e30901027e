#include "support/fixture.h"

#include <string.h>

/* A global of the library, found by name, and its bytes as the library was loaded. */
struct DiskperfTest::Variable {
    const char*       name;
    size_t            size;
    BYTE*             address;
    std::vector<BYTE> loaded;
};

std::vector<DiskperfTest::Variable>& DiskperfTest::Variables()
{
#define VARIABLE(name) \
    { \
#name, sizeof(name), nullptr, \
        { \
        } \
    }
    static std::vector<Variable> variables = {
        VARIABLE(g_hDllInitMutex),   VARIABLE(g_dwInitCount),
        VARIABLE(g_bDiskAgent),      VARIABLE(g_hInfoMutex),
        VARIABLE(g_hReloadEvent1),   VARIABLE(g_hReloadEvent2),
        VARIABLE(g_hTerminateEvent), VARIABLE(g_hCollectThread),
        VARIABLE(g_hWriteThread),    VARIABLE(g_dwThreadExitTimeout),
        VARIABLE(g_dwDebugMode),     VARIABLE(g_szString),
        VARIABLE(g_WarnEvent),       VARIABLE(g_hWarnEventMutex),
        VARIABLE(g_hShmMutex),       VARIABLE(g_hShmMap),
        VARIABLE(g_pShmInfo),        VARIABLE(g_dwShmInitCount),
        VARIABLE(g_dwPMProcessID),   VARIABLE(g_nPMProcessIDIdx),
        VARIABLE(g_szComputerName),  VARIABLE(g_hDkpfLog),
        VARIABLE(g_hDkpfTraceLog),   VARIABLE(g_hDkpfConfLog),
        VARIABLE(g_dwDkpfLogLevel),
    };
#undef VARIABLE
    return variables;
}

static const char TesteeName[] = "diskperf_testee.dll";

DiskperfTest::DiskperfTest() : HookedModuleTest(TesteeName)
{
    for (Variable& variable : Variables()) {
        if (variable.address == nullptr) {
            variable.address = static_cast<BYTE*>(reinterpret_cast<void*>(GetProcAddress(module, variable.name)));
            if (variable.address != nullptr) {
                variable.loaded.assign(variable.address, variable.address + variable.size);
            }
        }
    }
}

void DiskperfTest::RestoreVariables()
{
    for (Variable& variable : Variables()) {
        if (variable.address != nullptr) {
            memcpy(variable.address, variable.loaded.data(), variable.size);
        }
    }
}

template <class T> void DiskperfTest::Set(const char* name, T value)
{
    for (Variable& variable : Variables()) {
        if (strcmp(variable.name, name) == 0) {
            ASSERT_EQ(variable.size, sizeof value) << name;
            ASSERT_NE(variable.address, nullptr) << name << " is not in " << TesteeName;
            memcpy(variable.address, &value, sizeof value);
            return;
        }
    }
    FAIL() << name << " is not in the fixture's table of globals";
}

void DiskperfTest::SetUp()
{
    HookedModuleTest::SetUp();
    RestoreVariables();
    if (GetProcAddress(module, "g_hDllInitMutex") != nullptr) {
        Set("g_hDllInitMutex", os.MakeMutex());
    }
    Set("g_hDkpfLog", log.OpenTrace("diskperf"));
    Set("g_hDkpfTraceLog", log.OpenTrace("diskperf_trace"));
    Set("g_hDkpfConfLog", log.OpenTrace("diskperf_conf"));
    Set<DWORD>("g_dwDkpfLogLevel", 0xFFFF);
}

void DiskperfTest::TearDown()
{
    HookedModuleTest::TearDown();
    RestoreVariables();  // the DllInit mutex made at load belongs to the library again, which closes it
}

void DiskperfTest::CloseLogs()
{
    Set<HTNWLOG>("g_hDkpfLog", NULL);
    Set<HTNWLOG>("g_hDkpfTraceLog", NULL);
    Set<HTNWLOG>("g_hDkpfConfLog", NULL);
    Set<DWORD>("g_dwDkpfLogLevel", 0);
    log.ForgetTraces();
}

DKPF_SHM_INFO* DiskperfTest::HoldRegion()
{
    return static_cast<DKPF_SHM_INFO*>(os.HoldMapping(DKPF_SHM_NAME, DKPF_SHM_SIZE));
}

HANDLE DiskperfTest::MakeRegionMutex()
{
    HANDLE hMutex = os.MakeMutex(DKPF_MUTEX_NAME);
    Set("g_hInfoMutex", hMutex);
    Set("g_hShmMutex", hMutex);
    return hMutex;
}

DKPF_SHM_INFO* DiskperfTest::AttachRegion(int nRow)
{
    void* lpView = nullptr;

    HoldRegion();
    MakeRegionMutex();
    Set("g_hShmMap", os.AttachMapping(DKPF_SHM_NAME, &lpView));
    auto* lpRegion = static_cast<DKPF_SHM_INFO*>(lpView);
    Set("g_pShmInfo", lpRegion);
    Set<DWORD>("g_dwShmInitCount", 1);
    Set("g_nPMProcessIDIdx", nRow);
    if (nRow != 0) {
        lpRegion->PMProcessID[nRow] = os.processId;
        Set("g_dwPMProcessID", os.processId);
    }
    return lpRegion;
}
