/*
 * Performance Monitor provider, in whatever process reads performance data:
 *   State            one open provider per process
 *   Title indexes    where the system put our counter names
 *   Query            what the reader asks for
 *   Data block       definitions and instances
 *   Entry points     open, collect, close
 * The Performance Library calls the entry points one at a time: nothing here takes a lock of its own.
 */
#define DKPF_TRACE_SOURCE "diskperf/src/diskperf_pfmon"  // __FILE__ would trace the build machine's path
#include "diskperf.h"
#include "diskperf_counter.h"

#include <string.h>
#include <wchar.h>
#include <winperf.h>

/* ---- State ------------------------------------------------------------------------------------------------------- */

/* The definitions as they stand at the start of each block. */
typedef struct _DKPF_PERF_HEADER {
    PERF_OBJECT_TYPE        object;
    PERF_COUNTER_DEFINITION counter[DKPF_COUNTER_NUM];
} DKPF_PERF_HEADER;
DKPF_SIZE(PERF_OBJECT_TYPE, 64);
DKPF_SIZE(PERF_COUNTER_DEFINITION, 40);
DKPF_SIZE(DKPF_PERF_HEADER, 744);

constexpr DWORD DKPF_PERF_NAME_CHARS = 32;  // characters of an instance name with its NUL

/* One instance as it stands in the block. Bytes that have no meaning are left as the reader's buffer had them. */
typedef struct _DKPF_PERF_INSTANCE {
    PERF_INSTANCE_DEFINITION definition;
    WCHAR                    name[DKPF_PERF_NAME_CHARS];
    PERF_COUNTER_BLOCK       block;
    DWORD                    reserved;  // keeps DkpfCounterValue at 96; not written
    ULONGLONG                DkpfCounterValue[DKPF_COUNTER_NUM];
} DKPF_PERF_INSTANCE;
DKPF_SIZE(PERF_INSTANCE_DEFINITION, 24);
DKPF_SIZE(PERF_COUNTER_BLOCK, 4);
DKPF_OFFSET(DKPF_PERF_INSTANCE, name, 24);
DKPF_OFFSET(DKPF_PERF_INSTANCE, block, 88);
DKPF_OFFSET(DKPF_PERF_INSTANCE, DkpfCounterValue, 96);
DKPF_SIZE(DKPF_PERF_INSTANCE, 232);

constexpr DWORD DKPF_PERF_BLOCK_SIZE = 15824;  // whole block
static_assert(sizeof(DKPF_PERF_HEADER) + DKPF_ROW_NUM * sizeof(DKPF_PERF_INSTANCE) == DKPF_PERF_BLOCK_SIZE,
              "readers size their buffers by it");
constexpr DWORD DKPF_PERF_COUNTER_BLOCK_SIZE = 144;  // from the counter block's start to behind the last value
static_assert(sizeof(DKPF_PERF_INSTANCE) - offsetof(DKPF_PERF_INSTANCE, block) == DKPF_PERF_COUNTER_BLOCK_SIZE,
              "readers step over it");

DWORD g_dwPfmOpenCount = 0;  // opens not yet closed
DWORD g_dwFirstCounter = 0;  // title index of the object's name
DWORD g_dwFirstHelp = 0;     // title index of the object's help text

/* Buffers from the first open to the last close. */
DKPF_PARAM*       g_lpPfmPrevParam = NULL;  // baseline of the next collect; day 0: none
DKPF_PARAM*       g_lpPfmCurParam = NULL;
DKPF_DISP*        g_lpPfmDisp = NULL;
DKPF_PERF_HEADER* g_lpPfmHeader = NULL;
DKPF_RAWTOTAL*    g_lpPfmRawTotal = NULL;

/* Bits of the debug switch that stop an entry point in a message box, to attach a debugger to the host. */
constexpr DWORD DKPF_DEBUG_OPEN = 1;
constexpr DWORD DKPF_DEBUG_COLLECT = 2;
constexpr DWORD DKPF_DEBUG_CLOSE = 4;

/* ---- Title indexes ----------------------------------------------------------------------------------------------- */

/* Reads the two bases that the system gave to our names when they were registered. */
BOOL _DkpfPfmGetObjectIndexFromReg(DWORD* lpdwFirstCounter, DWORD* lpdwFirstHelp, DWORD* lpdwErr)
{
    static const char szKey[] = "SYSTEM\\CurrentControlSet\\Services\\tnwdiskperf\\performance";

    BOOL  bRet = FALSE;
    LONG  lResult = 0;
    HKEY  hKey = NULL;
    DWORD dwSize = 0;

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    if (lpdwFirstCounter == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " lpdwFirstCounter is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (lpdwFirstHelp == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " lpdwFirstHelp is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    lResult = RegOpenKeyExA(HKEY_LOCAL_MACHINE, szKey, 0, KEY_READ, &hKey);
    if (lResult != ERROR_SUCCESS) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " RegOpenKeyEx(%s) failed. (W32Err=%d)", szKey, lResult);
        *lpdwErr = DKPF_ERR_REG_OPEN;
        hKey = NULL;
        goto exit;
    }
    dwSize = sizeof(DWORD);
    lResult = RegQueryValueExA(hKey, "First Counter", NULL, NULL, reinterpret_cast<BYTE*>(lpdwFirstCounter), &dwSize);
    if (lResult != ERROR_SUCCESS) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " RegQueryValueEx(First Counter) failed. (W32Err=%d)", lResult);
        *lpdwErr = DKPF_ERR_REG_READ;
        goto exit;
    }
    dwSize = sizeof(DWORD);
    lResult = RegQueryValueExA(hKey, "First Help", NULL, NULL, reinterpret_cast<BYTE*>(lpdwFirstHelp), &dwSize);
    if (lResult != ERROR_SUCCESS) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " RegQueryValueEx(First Help) failed. (W32Err=%d)", lResult);
        *lpdwErr = DKPF_ERR_REG_READ;
        goto exit;
    }
    bRet = TRUE;

exit:
    if (hKey != NULL) {
        RegCloseKey(hKey);
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* ---- Query ------------------------------------------------------------------------------------------------------- */

/* What kind of query it is: its first word alone decides. */
DWORD _DkpfPfmGetPMQueryType(const WCHAR* lpQuery)
{
    static const struct {
        const WCHAR* lpWord;
        DWORD        dwType;
    } aWord[] = { { L"Global", DKPF_QUERY_GLOBAL },
                  { L"Foreign", DKPF_QUERY_FOREIGN },
                  { L"Costly", DKPF_QUERY_COSTLY } };

    DWORD        dwType = DKPF_QUERY_UNKNOWN;
    size_t       length = 0;
    SIZE_T       bytes = 0;
    const WCHAR* lpSpace = NULL;
    WCHAR*       lpWord = NULL;

    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    if (lpQuery == NULL || lpQuery[0] == L'\0') {
        goto exit;
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DETAIL, " [IN] Value<%S>", lpQuery);
    lpSpace = wcschr(lpQuery, L' ');
    length = lpSpace != NULL ? static_cast<size_t>(lpSpace - lpQuery) : wcslen(lpQuery);
    bytes = (length + 1) * sizeof(WCHAR);
    lpWord = static_cast<WCHAR*>(GlobalAlloc(GPTR, bytes));
    if (lpWord == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " _MALLOC(%dbyte) failed.", static_cast<DWORD>(bytes));
        goto exit;
    }
    memcpy(lpWord, lpQuery, length * sizeof(WCHAR));
    if (wcscmp(lpWord, L"0") == 0 || _wtoi(lpWord) != 0) {
        // "12a" counts as a list as well: the search in the list is the one that looks closely.
        dwType = DKPF_QUERY_ITEMS;
    } else {
        for (const auto& word : aWord) {
            if (wcscmp(lpWord, word.lpWord) == 0) {
                dwType = word.dwType;
                break;
            }
        }
    }
    GlobalFree(lpWord);

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%d>", dwType);
    return dwType;
}

/* TRUE where a number stands in a list as a whole item. Goes character by character: a strange character spoils its
 * item and no other. */
BOOL _DkpfPfmIsNumberInUnicodeList(DWORD dwNumber, const WCHAR* lpList)
{
    BOOL  bRet = FALSE;
    BOOL  bNewItem = TRUE;
    BOOL  bValid = FALSE;
    BOOL  bEnd = FALSE;
    DWORD dwValue = 0;

    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DETAIL, " [IN] Number<%d>", dwNumber);
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DETAIL, " [IN] UnicodeList<%S>", lpList == NULL ? L"(null)" : lpList);
    bEnd = lpList == NULL;
    for (const WCHAR* lpChar = lpList; !bEnd; lpChar++) {
        if (*lpChar >= L'0' && *lpChar <= L'9') {
            const DWORD dwDigit = static_cast<DWORD>(*lpChar - L'0');

            if (bNewItem) {
                dwValue = dwDigit;
                bNewItem = FALSE;
                bValid = TRUE;
            } else if (bValid) {
                dwValue = dwValue * 10 + dwDigit;  // wraps
            }
        } else if (*lpChar == L' ' || *lpChar == L'\0') {
            bRet = bValid && dwValue == dwNumber;
            bEnd = bRet || *lpChar == L'\0';
            bValid = FALSE;
            dwValue = 0;
            bNewItem = TRUE;
        } else {
            bValid = FALSE;
        }
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s>", DKPF_BOOLSTR(bRet));
    return bRet;
}

/* ---- Data block -------------------------------------------------------------------------------------------------- */

/* Field by field; operators compare these lines with what a viewer shows. Traces in the caller's name. */
static void _DkpfPfmDumpHeader(const char* lpRoutine, const DKPF_PERF_HEADER* lpHeader)
{
    const PERF_OBJECT_TYPE* lpObject = &lpHeader->object;

    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.DefinitionLength        <%d>",
                   lpObject->DefinitionLength);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.HeaderLength            <%d>",
                   lpObject->HeaderLength);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.ObjectNameTitleIndex    <%d>",
                   lpObject->ObjectNameTitleIndex);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.ObjectNameTitle         <%d>",
                   lpObject->ObjectNameTitle);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.ObjectHelpTitleIndex    <%d>",
                   lpObject->ObjectHelpTitleIndex);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.ObjectHelpTitle         <%d>",
                   lpObject->ObjectHelpTitle);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.DetailLevel             <%d>",
                   lpObject->DetailLevel);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.NumCounters             <%d>",
                   lpObject->NumCounters);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.DefaultCounter          <%d>",
                   lpObject->DefaultCounter);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.NumInstances            <%d>",
                   lpObject->NumInstances);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.CodePage                <%d>",
                   lpObject->CodePage);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.PerfTime                <%I64d>",
                   lpObject->PerfTime.QuadPart);
    DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  ObjectType.PerfFreq                <%I64d>",
                   lpObject->PerfFreq.QuadPart);
    for (DWORD j = 0; j < DKPF_COUNTER_NUM; j++) {
        const PERF_COUNTER_DEFINITION* lpCounter = &lpHeader->counter[j];

        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  CounterDef[%2d].ByteLength            <%d>", j,
                       lpCounter->ByteLength);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  CounterDef[%2d].CounterNameTitleIndex <%d>", j,
                       lpCounter->CounterNameTitleIndex);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  CounterDef[%2d].CounterNameTitle      <%d>", j,
                       lpCounter->CounterNameTitle);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  CounterDef[%2d].CounterHelpTitleIndex <%d>", j,
                       lpCounter->CounterHelpTitleIndex);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  CounterDef[%2d].CounterHelpTitle      <%d>", j,
                       lpCounter->CounterHelpTitle);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  CounterDef[%2d].DefaultScale          <%d>", j,
                       lpCounter->DefaultScale);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  CounterDef[%2d].DetailLevel           <%d>", j,
                       lpCounter->DetailLevel);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  CounterDef[%2d].CounterType           <0x%x>", j,
                       lpCounter->CounterType);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  CounterDef[%2d].CounterSize           <%d>", j,
                       lpCounter->CounterSize);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP, "  CounterDef[%2d].CounterOffset         <0x%x>", j,
                       lpCounter->CounterOffset);
    }
}

/* Fills the definitions, all but the block's length. Needs both title index bases. */
BOOL _DkpfPfmSetCollectHeader(void* lpPerfHeader, DWORD* lpdwErr)
{
    BOOL              bRet = FALSE;
    DKPF_PERF_HEADER* lpHeader = static_cast<DKPF_PERF_HEADER*>(lpPerfHeader);

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    if (lpPerfHeader == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " lpPerfHeader is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    lpHeader->object.DefinitionLength = sizeof(DKPF_PERF_HEADER);
    lpHeader->object.HeaderLength = sizeof(PERF_OBJECT_TYPE);
    lpHeader->object.ObjectNameTitleIndex = g_dwFirstCounter;
    lpHeader->object.ObjectNameTitle = 0;
    lpHeader->object.ObjectHelpTitleIndex = g_dwFirstHelp;
    lpHeader->object.ObjectHelpTitle = 0;
    lpHeader->object.DetailLevel = PERF_DETAIL_NOVICE;
    lpHeader->object.NumCounters = DKPF_COUNTER_NUM;
    lpHeader->object.DefaultCounter = 0;
    lpHeader->object.NumInstances = DKPF_ROW_NUM;
    lpHeader->object.CodePage = 0;
    lpHeader->object.PerfTime.QuadPart = 0;
    lpHeader->object.PerfFreq.QuadPart = 0;
    for (DWORD j = 0; j < DKPF_COUNTER_NUM; j++) {
        PERF_COUNTER_DEFINITION* lpCounter = &lpHeader->counter[j];

        lpCounter->ByteLength = sizeof(PERF_COUNTER_DEFINITION);
        lpCounter->CounterNameTitleIndex = g_dwFirstCounter + 2 * (j + 1);
        lpCounter->CounterNameTitle = 0;
        lpCounter->CounterHelpTitleIndex = g_dwFirstHelp + 2 * (j + 1);
        lpCounter->CounterHelpTitle = 0;
        lpCounter->DefaultScale = g_aCounter[j].scale;
        lpCounter->DetailLevel = PERF_DETAIL_NOVICE;
        lpCounter->CounterType = PERF_COUNTER_LARGE_RAWCOUNT;
        lpCounter->CounterSize = sizeof(ULONGLONG);
        lpCounter->CounterOffset =
            static_cast<DWORD>(offsetof(DKPF_PERF_INSTANCE, DkpfCounterValue) - offsetof(DKPF_PERF_INSTANCE, block)) +
            8 * j;
    }
    if ((g_dwDkpfLogLevel & DKPF_LOG_DUMP) != 0) {
        _DkpfPfmDumpHeader(__func__, lpHeader);
    }
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

static void _DkpfPfmDumpBody(const char* lpRoutine, const DKPF_PERF_INSTANCE* lpInstance)
{
    for (DWORD i = 0; i < DKPF_ROW_NUM; i++, lpInstance++) {
        const PERF_INSTANCE_DEFINITION* lpDefinition = &lpInstance->definition;

        // A name that could not be converted leaves the field as the reader's buffer had it: not to be read as a text.
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP,
                       "  PerfBody[%d].InstanceName                            <%S>", i,
                       lpDefinition->NameLength != 0 ? lpInstance->name : L"");
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP,
                       "  PerfBody[%d].ByteLength                              <%d>", i, lpDefinition->ByteLength);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP,
                       "  PerfBody[%d].ParentObjectTitleIndex                  <%d>", i,
                       lpDefinition->ParentObjectTitleIndex);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP,
                       "  PerfBody[%d].ParentObjectInstance                    <%d>", i,
                       lpDefinition->ParentObjectInstance);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP,
                       "  PerfBody[%d].UniqueID                                <%d>", i, lpDefinition->UniqueID);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP,
                       "  PerfBody[%d].NameOffset                              <%d>", i, lpDefinition->NameOffset);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP,
                       "  PerfBody[%d].NameLength                              <%d>", i, lpDefinition->NameLength);
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP,
                       "  PerfBody[%d].CounterBlock.ByteLength                 <%d>", i, lpInstance->block.ByteLength);
        for (DWORD j = 0; j < DKPF_COUNTER_NUM; j++) {
            DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_DUMP,
                           "  PerfBody[%d].DkpfCounterValue[%2d]                     <%I64d>", i, j,
                           lpInstance->DkpfCounterValue[j]);
        }
    }
}

/* Fills the 65 instances behind the definitions; *lpRetAddr receives the address behind the last one. The caller has
 * looked at the size of the reader's buffer. */
BOOL _DkpfPfmSetCollectBody(const DKPF_DISP* lpDispCounter, void* lpPerfBody, void** lpRetAddr, DWORD* lpdwErr)
{
    BOOL                bRet = FALSE;
    int                 nChars = 0;
    char                szName[DKPF_STRING_SIZE + 16] = {};
    DKPF_PERF_INSTANCE* lpInstance = static_cast<DKPF_PERF_INSTANCE*>(lpPerfBody);

    *lpdwErr = DKPF_ERR_SUCCESS;
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    if (lpDispCounter == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " lpDispCounter is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (lpPerfBody == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " lpPerfBody is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    if (lpRetAddr == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " lpRetAddr is NULL.");
        *lpdwErr = DKPF_ERR_PARAMETER;
        goto exit;
    }
    for (DWORD i = 0; i < DKPF_ROW_NUM; i++, lpInstance++) {
        if (i == 0) {
            wsprintfA(szName, "%s", g_szString[DKPF_STRING_TOTAL]);
        } else {
            wsprintfA(szName, "%s%d", g_szString[DKPF_STRING_NMP], static_cast<int>(i));
        }
        nChars = MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, szName, -1, lpInstance->name, DKPF_PERF_NAME_CHARS);
        lpInstance->definition.ByteLength = static_cast<DWORD>(offsetof(DKPF_PERF_INSTANCE, block));
        lpInstance->definition.ParentObjectTitleIndex = 0;
        lpInstance->definition.ParentObjectInstance = 0;
        lpInstance->definition.UniqueID = PERF_NO_UNIQUE_ID;
        lpInstance->definition.NameOffset = static_cast<DWORD>(offsetof(DKPF_PERF_INSTANCE, name));
        lpInstance->definition.NameLength = static_cast<DWORD>(nChars) * static_cast<DWORD>(sizeof(WCHAR));
        lpInstance->block.ByteLength = DKPF_PERF_COUNTER_BLOCK_SIZE;
        memcpy(lpInstance->DkpfCounterValue, lpDispCounter->value[i], sizeof(lpInstance->DkpfCounterValue));
    }
    *lpRetAddr = lpInstance;
    if ((g_dwDkpfLogLevel & DKPF_LOG_DUMP) != 0) {
        _DkpfPfmDumpBody(__func__, static_cast<const DKPF_PERF_INSTANCE*>(lpPerfBody));
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_DUMP, "  lpRetAddr<0x%p>", *lpRetAddr);
    bRet = TRUE;

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%s> err<0x%x>", DKPF_BOOLSTR(bRet), *lpdwErr);
    return bRet;
}

/* ---- Entry points ------------------------------------------------------------------------------------------------ */

/* Stops the host in a message box where the debug switch asks for it: MessageBoxA alone, nothing else may wait here. */
static void _DkpfPfmDebugStop(DWORD dwBit, const char* lpText, const char* lpCaption)
{
    DWORD dwIgnored = 0;
    char  szText[256] = {};

    if (_DkpfReloadDebugFlag(&dwIgnored) && (g_dwDebugMode & dwBit) != 0) {
        wsprintfA(szText, lpText, GetCurrentProcessId());
        MessageBoxA(NULL, szText, lpCaption, 0);
    }
}

template <class T> static void _DkpfPfmFree(T** lplpBuffer)
{
    if (*lplpBuffer != NULL) {
        GlobalFree(*lplpBuffer);
        *lplpBuffer = NULL;
    }
}

/* Frees the five buffers, in the reverse order of their allocation. */
static void _DkpfPfmFreeBuffers(void)
{
    _DkpfPfmFree(&g_lpPfmRawTotal);
    _DkpfPfmFree(&g_lpPfmHeader);
    _DkpfPfmFree(&g_lpPfmDisp);
    _DkpfPfmFree(&g_lpPfmCurParam);
    _DkpfPfmFree(&g_lpPfmPrevParam);
}

/* A zero-filled buffer; NULL with the code, traced in the caller's name. */
static void* _DkpfPfmAlloc(const char* lpRoutine, DWORD dwSize, DWORD* lpdwErr)
{
    void* lpBuffer = GlobalAlloc(GPTR, dwSize);

    if (lpBuffer == NULL) {
        *lpdwErr = DKPF_ERR_MEMORY;
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, " _MALLOC(size=%ulbyte) failed.", dwSize);
    }
    return lpBuffer;
}

/* A region that was never written has an all-zero time. */
static BOOL _DkpfPfmIsValid(const DKPF_PARAM* lpParam)
{
    return lpParam->local_time.wDay != 0;
}

/* Buffers, baseline and definitions of a first open. The caller frees what is there after a failure. Traces in the
 * caller's name. */
static DWORD _DkpfPfmPrepare(const char* lpRoutine, DWORD* lpdwErr)
{
    DKPF_PARAM sample = {};

    g_lpPfmPrevParam = static_cast<DKPF_PARAM*>(_DkpfPfmAlloc(lpRoutine, sizeof(DKPF_PARAM), lpdwErr));
    if (g_lpPfmPrevParam == NULL) {
        return ERROR_OUTOFMEMORY;
    }
    g_lpPfmCurParam = static_cast<DKPF_PARAM*>(_DkpfPfmAlloc(lpRoutine, sizeof(DKPF_PARAM), lpdwErr));
    if (g_lpPfmCurParam == NULL) {
        return ERROR_OUTOFMEMORY;
    }
    if (!_DkpfShmGetPerf(&sample, lpdwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, " _DkpfShmGetPerf() failed. errcode<0x%x>",
                       *lpdwErr);
        return ERROR_INVALID_FUNCTION;
    }
    *g_lpPfmPrevParam = sample;
    if (!_DkpfPfmIsValid(g_lpPfmPrevParam)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, " Previous-RAW parameter is invalid.");
        return ERROR_INVALID_FUNCTION;
    }
    g_lpPfmDisp = static_cast<DKPF_DISP*>(_DkpfPfmAlloc(lpRoutine, sizeof(DKPF_DISP), lpdwErr));
    if (g_lpPfmDisp == NULL) {
        return ERROR_OUTOFMEMORY;
    }
    g_lpPfmHeader = static_cast<DKPF_PERF_HEADER*>(_DkpfPfmAlloc(lpRoutine, sizeof(DKPF_PERF_HEADER), lpdwErr));
    if (g_lpPfmHeader == NULL) {
        return ERROR_OUTOFMEMORY;
    }
    if (!_DkpfPfmSetCollectHeader(g_lpPfmHeader, lpdwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, " _DkpfPfmSetCollectHeader() failed. errcode<0x%x>",
                       *lpdwErr);
        return ERROR_INVALID_FUNCTION;
    }
    g_lpPfmHeader->object.TotalByteLength = DKPF_PERF_BLOCK_SIZE;
    g_lpPfmRawTotal = static_cast<DKPF_RAWTOTAL*>(_DkpfPfmAlloc(lpRoutine, sizeof(DKPF_RAWTOTAL), lpdwErr));
    if (g_lpPfmRawTotal == NULL) {
        return ERROR_OUTOFMEMORY;
    }
    return ERROR_SUCCESS;
}

/* Frees nothing: what the pointers held before this open is no buffer of its own. */
static void _DkpfPfmClearBuffers(void)
{
    g_lpPfmPrevParam = NULL;
    g_lpPfmCurParam = NULL;
    g_lpPfmDisp = NULL;
    g_lpPfmHeader = NULL;
    g_lpPfmRawTotal = NULL;
}

DWORD APIENTRY DkpfOpenForPerfmon(LPWSTR)
{
    DWORD dwRet = ERROR_SUCCESS;
    DWORD dwErr = DKPF_ERR_SUCCESS;
    DWORD dwEnable = 0;

    _DkpfPfmDebugStop(DKPF_DEBUG_OPEN, "DkpfOpenForPerfmon() is Debug Mode. ProcessID=%ul", "open");
    if (g_dwPfmOpenCount != 0) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_WARNING, " Pfmon is already initialized(%dtimes). Skip.",
                   g_dwPfmOpenCount);
        g_dwPfmOpenCount++;
        goto exit;
    }
    _DkpfPfmClearBuffers();
    if (!DkpfInitialize(FALSE, &dwErr)) {
        dwRet = ERROR_NOT_READY;
        goto exit;
    }
    // From here on a failure leaves this process attached: hosts try again and again, and an attachment costs one row.
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    if (!_DkpfShmGetPerfenable(&dwEnable, &dwErr)) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " _DkpfShmGetPerfEnable() failed. errcode<0x%x>", dwErr);
        dwRet = ERROR_NOT_READY;
        goto exit;
    }
    if (dwEnable == 0) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " DKPF function is set disenable.");
        dwRet = ERROR_ACCESS_DENIED;
        goto exit;
    }
    if (!_DkpfPfmGetObjectIndexFromReg(&g_dwFirstCounter, &g_dwFirstHelp, &dwErr)) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " _DkpfPfmGetObjectIndexFromReg() failed. errcode<0x%x>", dwErr);
        dwRet = dwErr == DKPF_ERR_REG_OPEN   ? ERROR_CANTOPEN
                : dwErr == DKPF_ERR_REG_READ ? ERROR_CANTREAD
                                             : ERROR_INVALID_FUNCTION;
        goto exit;
    }
    dwRet = _DkpfPfmPrepare(__func__, &dwErr);
    if (dwRet != ERROR_SUCCESS) {
        _DkpfPfmFreeBuffers();
        goto exit;
    }
    g_dwPfmOpenCount++;

exit:
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%d> err<0x%x>", dwRet, dwErr);
    return dwRet;
}

/* TRUE where the query is for our object. Traces in the caller's name. */
static BOOL _DkpfPfmIsOurQuery(const char* lpRoutine, const WCHAR* lpQuery)
{
    const DWORD dwType = _DkpfPfmGetPMQueryType(lpQuery);

    if (dwType == DKPF_QUERY_GLOBAL) {
        return TRUE;
    }
    if (dwType != DKPF_QUERY_ITEMS) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, " _DkpfPfmGetPMQueryType() failed. QueryType<%d>",
                       dwType);
        return FALSE;
    }
    if (!_DkpfPfmIsNumberInUnicodeList(g_dwFirstCounter, lpQuery)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR,
                       " _DkpfPfmIsNumberInUnicodeList() failed. ObjectNameTitleIndex<%d> pQuery<%d>", g_dwFirstCounter,
                       lpQuery[0]);
        return FALSE;
    }
    return TRUE;
}

/* Reads the region and works out the display values; the sample read stays in the current buffer. FALSE: no data this
 * time. Traces in the caller's name. */
static BOOL _DkpfPfmReadSample(const char* lpRoutine, DWORD* lpdwErr)
{
    DKPF_PARAM sample = {};

    if (!_DkpfShmGetPerf(&sample, lpdwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, " _DkpfShmGetPerf() failed. errcode<0x%x>",
                       *lpdwErr);
        return FALSE;
    }
    *g_lpPfmCurParam = sample;
    if (!_DkpfPfmIsValid(g_lpPfmCurParam)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, " Current-RAW parameter is invalid.");
        memset(g_lpPfmPrevParam, 0, sizeof(*g_lpPfmPrevParam));
        return FALSE;
    }
    if (!_DkpfPfmIsValid(g_lpPfmPrevParam)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, " Previous-RAW parameter is invalid.");
        *g_lpPfmPrevParam = *g_lpPfmCurParam;
        return FALSE;
    }
    memset(g_lpPfmDisp, 0, sizeof(*g_lpPfmDisp));
    memset(g_lpPfmRawTotal, 0, sizeof(*g_lpPfmRawTotal));
    if (!_DkpfCmnGetDisplayValue(g_lpPfmCurParam, g_lpPfmPrevParam, g_lpPfmDisp, g_lpPfmRawTotal, lpdwErr)) {
        DKPF_TRACE_FOR(lpRoutine, g_hDkpfTraceLog, DKPF_LOG_ERROR, " _DkpfCmnGetDisplayValue() failed. errcode<0x%x>",
                       *lpdwErr);
        return FALSE;
    }
    return TRUE;
}

DWORD APIENTRY DkpfCollectForPerfmon(LPWSTR pQuery, LPVOID* pData, LPDWORD pcbData, LPDWORD pObjectsReturned)
{
    BOOL  bData = FALSE;
    DWORD dwRet = ERROR_SUCCESS;
    DWORD dwErr = DKPF_ERR_SUCCESS;
    DWORD dwEnable = 0;
    DWORD dwBytes = 0;
    BYTE* lpBlock = NULL;
    void* lpEnd = NULL;

    _DkpfPfmDebugStop(DKPF_DEBUG_COLLECT, "DkpfCollectForPerfmon() is Debug Mode. ProcessID=%ul", "collect");
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    if (pQuery == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " pQuery is NULL.");
        goto exit;
    }
    if (pData == NULL || *pData == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " *pData is NULL.");
        goto exit;
    }
    if (pcbData == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " pcbData is NULL.");
        dwRet = ERROR_INVALID_PARAMETER;
        goto exit;
    }
    if (pObjectsReturned == NULL) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " pObjectsReturned is NULL.");
        dwRet = ERROR_INVALID_PARAMETER;
        goto exit;
    }
    if (g_dwPfmOpenCount == 0) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " Pfmon is not initialized(%dtimes). Skip.", g_dwPfmOpenCount);
        goto exit;
    }
    if (!_DkpfShmGetPerfenable(&dwEnable, &dwErr)) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " _DkpfShmGetPerfEnable() failed. errcode<0x%x>", dwErr);
        goto exit;
    }
    if (dwEnable == 0) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, " DKPF function is set disenable.");
        goto exit;
    }
    if (!_DkpfPfmIsOurQuery(__func__, pQuery)) {
        goto exit;
    }
    if (*pcbData < DKPF_PERF_BLOCK_SIZE) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " Buffer size is too small. pcbData<%d>", *pcbData);
        dwRet = ERROR_MORE_DATA;
        goto exit;
    }
    lpBlock = static_cast<BYTE*>(*pData);
    memcpy(lpBlock, g_lpPfmHeader, sizeof(*g_lpPfmHeader));
    if (!_DkpfPfmReadSample(__func__, &dwErr)) {
        goto exit;
    }
    if (!_DkpfPfmSetCollectBody(g_lpPfmDisp, lpBlock + g_lpPfmHeader->object.DefinitionLength, &lpEnd, &dwErr)) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ERROR, " _DkpfPfmSetCollectBody() failed. errcode<0x%x>", dwErr);
        goto exit;
    }
    dwBytes = static_cast<DWORD>(static_cast<BYTE*>(lpEnd) - lpBlock);
    reinterpret_cast<PERF_OBJECT_TYPE*>(lpBlock)->TotalByteLength = dwBytes;
    *pData = lpEnd;
    *g_lpPfmPrevParam = *g_lpPfmCurParam;
    bData = TRUE;

exit:
    if (pcbData != NULL) {
        *pcbData = bData ? dwBytes : 0;
    }
    if (pObjectsReturned != NULL) {
        *pObjectsReturned = bData ? 1 : 0;
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT<%d> err<0x%x>", dwRet, dwErr);
    return dwRet;
}

DWORD APIENTRY DkpfCloseForPerfmon(void)
{
    DWORD dwIgnored = 0;

    _DkpfPfmDebugStop(DKPF_DEBUG_CLOSE, "DkpfCloseForPerfmon() is Debug Mode. ProcessID=%ul", "close");
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "ENTER :");
    if (g_dwPfmOpenCount == 1) {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, " DkpfTerminate() start ...");
        DkpfTerminate(&dwIgnored);
        _DkpfPfmFreeBuffers();
    } else {
        DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_WARNING, " Pfmon is not yet last-termination(%dtimes). Skip.",
                   g_dwPfmOpenCount);
    }
    if (g_dwPfmOpenCount != 0) {
        g_dwPfmOpenCount--;
    }
    DKPF_TRACE(g_hDkpfTraceLog, DKPF_LOG_ENTEREXIT, "EXIT :");
    return ERROR_SUCCESS;
}
