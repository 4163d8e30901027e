/*
 * Where the library lies. The home is the parent of the folder that holds tnwlog.dll: no environment variable and no
 * registry value decides it, so that every process of one installation uses the same files.
 */
#include "tnwlog_internal.h"
#include <wchar.h>

static INIT_ONCE g_Once = INIT_ONCE_STATIC_INIT;
static wchar_t   g_szHome[TNW_PATH_MAX]; /* without a closing backslash; empty: unknown */
static ULONGLONG g_HomeId;

/* Cuts the last component. FALSE where none is left. */
static BOOL CutComponent(wchar_t* lpPath)
{
    wchar_t* lpSlash = wcsrchr(lpPath, L'\\');

    if (lpSlash == NULL || lpSlash == lpPath) {
        return FALSE;
    }
    *lpSlash = L'\0';
    return TRUE;
}

static void FindHome()
{
    static wchar_t szModule[TNW_PATH_MAX], szFull[TNW_PATH_MAX];
    HMODULE        hModule = NULL;
    DWORD          dwLength = 0;
    const wchar_t* lpPrefix = L"";
    const wchar_t* lpRest = szFull;

    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            g_szHome, &hModule)) {
        return;
    }
    dwLength = GetModuleFileNameW(hModule, szModule, TNW_PATH_MAX);
    if (dwLength == 0 || dwLength >= TNW_PATH_MAX) {
        return;
    }
    dwLength = GetFullPathNameW(szModule, TNW_PATH_MAX, szFull, NULL);
    if (dwLength == 0 || dwLength >= TNW_PATH_MAX || !CutComponent(szFull) || !CutComponent(szFull)) {
        return;
    }
    if (wcsncmp(szFull, L"\\\\", 2) != 0) {
        lpPrefix = L"\\\\?\\";
    } else if (szFull[2] != L'?' && szFull[2] != L'.') {
        lpPrefix = L"\\\\?\\UNC";
        lpRest = szFull + 1;
    }
    if (wcslen(lpPrefix) + wcslen(lpRest) >= TNW_PATH_MAX) {
        return;
    }
    wcscpy(g_szHome, lpPrefix);
    wcscat(g_szHome, lpRest);
}

/* The directory's own number, since one home has many spellings: case, drive letters, junctions. */
static ULONGLONG IdentifyHome()
{
    BY_HANDLE_FILE_INFORMATION info = {};
    ULONGLONG                  id = 0;
    HANDLE hHome = CreateFileW(g_szHome, FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                               NULL, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, NULL);

    if (hHome == INVALID_HANDLE_VALUE) {
        return 0;
    }
    if (GetFileInformationByHandle(hHome, &info)) {
        id = (static_cast<ULONGLONG>(info.nFileIndexHigh) << 32 | info.nFileIndexLow) ^
             static_cast<ULONGLONG>(info.dwVolumeSerialNumber) << 32;
    }
    CloseHandle(hHome);
    return id;
}

static BOOL CALLBACK Prepare(PINIT_ONCE, PVOID, PVOID*)
{
    FindHome();
    g_HomeId = IdentifyHome();
    return TRUE;
}

BOOL TnwHomePath(const wchar_t* lpFolder, const wchar_t* lpName, wchar_t* lpPath)
{
    int n = 0;

    InitOnceExecuteOnce(&g_Once, Prepare, NULL, NULL);
    if (g_szHome[0] == L'\0') {
        return FALSE;
    }
    n = _snwprintf(lpPath, TNW_PATH_MAX, L"%ls\\%ls\\%ls", g_szHome, lpFolder, lpName);
    return n > 0 && static_cast<DWORD>(n) < TNW_PATH_MAX;
}

ULONGLONG TnwHomeId()
{
    InitOnceExecuteOnce(&g_Once, Prepare, NULL, NULL);
    return g_HomeId;
}
