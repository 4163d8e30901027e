/*
 * Private header of tnwdiskperf: the records that cross processes, the trace wrapper, the state and the routines by
 * unit.
 */
#ifndef DISKPERF_H
#define DISKPERF_H

#include <stddef.h>

#include "tnwdiskperf.h"
#include "tnwlog.h"
#include "velcor.h"

/* ---- Records ----------------------------------------------------------------------------------------------------- */

#define DKPF_OFFSET(record, field, offset) \
    static_assert(offsetof(record, field) == (offset), #record "." #field " is part of a format")
#define DKPF_SIZE(record, size) static_assert(sizeof(record) == (size), #record " is part of a format")

#define DKPF_SHM_NAME "Global\\TNW_DKPF_SHM_INFO"
#define DKPF_MUTEX_NAME "Global\\TNW_DKPF_MUTEX_INFO"
#define DKPF_RELOAD1_NAME "Global\\TNW_DKPF_EVENT_RELOAD1"
#define DKPF_RELOAD2_NAME "Global\\TNW_DKPF_EVENT_RELOAD2"

constexpr DWORD DKPF_SHM_SIZE = 216784;    // mapping, view and zero-fill, bytes
constexpr DWORD DKPF_NMP_MAX = 64;         // mirror disk slots; slot j is mirror disk j + 1
constexpr DWORD DKPF_PARAM_NUM = 12;       // counters with a current value
constexpr DWORD DKPF_PARAMMAX_NUM = 7;     // counters with a running maximum
constexpr DWORD DKPF_PROC_MAX = 33;        // consumer rows: 0 the producer's, 1 to 32 the readers'
constexpr DWORD DKPF_INSTANCE_SIZE = 520;  // sizeof(DKPF_INSTANCE)
constexpr DWORD DKPF_PARAM_SIZE = 10168;   // sizeof(DKPF_PARAM)
constexpr DWORD DKPF_COUNTER_NUM = 17;     // display counters
constexpr DWORD DKPF_ROW_NUM = 65;         // display rows: 0 the total, 1 + d disk slot d
constexpr DWORD DKPF_RAWTOTAL_NUM = 19;    // raw totals: 12 sums, 7 peaks
constexpr DWORD DKPF_STRING_NUM = 41;      // message strings
constexpr DWORD DKPF_STRING_SIZE = 128;    // bytes of each, with the NUL
constexpr DWORD DKPF_LINE_SIZE = 13440;    // longest CSV line, bytes
constexpr DWORD DKPF_COMPUTER_SIZE = 16;   // computer name with the NUL
constexpr DWORD DKPF_SD_SIZE = 40;         // security descriptor block, bytes
constexpr DWORD DKPF_BANNER_SIZE = 256;    // time stamp and version texts of the banner, bytes each

/* Value of one counter on one disk. Unsigned wherever two are compared. */
typedef struct _DKPF_INST_SUB {
    ULONGLONG value;
} DKPF_INST_SUB;
DKPF_SIZE(DKPF_INST_SUB, 8);

/* One counter across all disk slots. */
typedef struct _DKPF_INSTANCE {
    DWORD         rawparamID;              // number of the row: 0..11 of instance, 0..6 of maxinstance
    DWORD         reserved;                // keeps inst_sub at 8
    DKPF_INST_SUB inst_sub[DKPF_NMP_MAX];  // by disk slot
} DKPF_INSTANCE;
DKPF_OFFSET(DKPF_INSTANCE, rawparamID, 0);
DKPF_OFFSET(DKPF_INSTANCE, inst_sub, 8);
DKPF_SIZE(DKPF_INSTANCE, DKPF_INSTANCE_SIZE);

/* The configuration as all processes see it. Other processes read these bytes. */
typedef struct _DKPF_CONF {
    DWORD perf_enable;        // 1 = collect
    DWORD perf_log_save;      // 1 = write CSV files
    DWORD perf_log_size;      // bound of a CSV file, KiB
    DWORD perf_log_rotation;  // older generations kept
    DWORD collect_interval;   // s
    DWORD write_interval;     // s
    DWORD log_level;          // level bits of the trace logs
    DWORD log_size;           // bound of a trace log, KiB
    DWORD collect_param;      // columns of the display files, one bit each
} DKPF_CONF;
DKPF_OFFSET(DKPF_CONF, perf_enable, 0);
DKPF_OFFSET(DKPF_CONF, perf_log_save, 4);
DKPF_OFFSET(DKPF_CONF, perf_log_size, 8);
DKPF_OFFSET(DKPF_CONF, perf_log_rotation, 12);
DKPF_OFFSET(DKPF_CONF, collect_interval, 16);
DKPF_OFFSET(DKPF_CONF, write_interval, 20);
DKPF_OFFSET(DKPF_CONF, log_level, 24);
DKPF_OFFSET(DKPF_CONF, log_size, 28);
DKPF_OFFSET(DKPF_CONF, collect_param, 32);
DKPF_SIZE(DKPF_CONF, 36);

/* Bits that select fields of DKPF_CONF. 0x40 and 0x80 stand crossed to the order of their fields: callers built earlier
 * depend on it. */
constexpr DWORD DKPF_CONF_PERF_ENABLE = 0x001;
constexpr DWORD DKPF_CONF_PERF_LOG_SAVE = 0x002;
constexpr DWORD DKPF_CONF_PERF_LOG_SIZE = 0x004;
constexpr DWORD DKPF_CONF_PERF_LOG_ROTATION = 0x008;
constexpr DWORD DKPF_CONF_COLLECT_INTERVAL = 0x010;
constexpr DWORD DKPF_CONF_WRITE_INTERVAL = 0x020;
constexpr DWORD DKPF_CONF_LOG_SIZE = 0x040;
constexpr DWORD DKPF_CONF_LOG_LEVEL = 0x080;
constexpr DWORD DKPF_CONF_COLLECT_PARAM = 0x100;
constexpr DWORD DKPF_CONF_ALL = 0x1FF;
constexpr DWORD DKPF_CONF_EVERY = 0xFFFF;  // what the module's own callers pass

/* One line per setting, in the order in which they are read and logged. */
typedef struct _DKPF_SETTING {
    const char* lpKey;            // key path in the cluster configuration
    DWORD DKPF_CONF::*lpField;    // where the value goes
    DWORD             dwBit;      // bit that selects the field
    const char*       lpLogText;  // line of the configuration log
} DKPF_SETTING;
constexpr DKPF_SETTING g_aSetting[] = {
    { "/root/diskperf/parameters/perfenable", &DKPF_CONF::perf_enable, DKPF_CONF_PERF_ENABLE, "perfenable = %d" },
    { "/root/diskperf/parameters/perflogsave", &DKPF_CONF::perf_log_save, DKPF_CONF_PERF_LOG_SAVE, "perflogsave = %d" },
    { "/root/diskperf/parameters/perflogsize", &DKPF_CONF::perf_log_size, DKPF_CONF_PERF_LOG_SIZE, "perflogsize = %d" },
    { "/root/diskperf/parameters/perflogrotation", &DKPF_CONF::perf_log_rotation, DKPF_CONF_PERF_LOG_ROTATION,
      "perflogrotation = %d" },
    { "/root/diskperf/parameters/collectinterval", &DKPF_CONF::collect_interval, DKPF_CONF_COLLECT_INTERVAL,
      "collectinterval = %d" },
    { "/root/diskperf/parameters/writeinterval", &DKPF_CONF::write_interval, DKPF_CONF_WRITE_INTERVAL,
      "writeinterval = %d" },
    { "/root/diskperf/parameters/collectparam", &DKPF_CONF::collect_param, DKPF_CONF_COLLECT_PARAM,
      "collectparam = %#x" },
    { "/root/diskperf/log/level", &DKPF_CONF::log_level, DKPF_CONF_LOG_LEVEL, "loglevel = %d" },
    { "/root/diskperf/log/size", &DKPF_CONF::log_size, DKPF_CONF_LOG_SIZE, "logsize = %d" },
};
static_assert(ARRAYSIZE(g_aSetting) * sizeof(DWORD) == sizeof(DKPF_CONF), "one line per field");

/* One raw sample, copied whole into and out of the shared region. Other processes read these bytes. */
typedef struct _DKPF_PARAM {
    DWORD         param_num;                       // rows of instance in use
    DWORD         parammax_num;                    // rows of maxinstance in use
    DWORD         sampling_time;                   // GetTickCount() at the sample, ms; wraps after 49.7 days
    DWORD         reserved;                        // keeps local_time at 16
    SYSTEMTIME    local_time;                      // wall clock of the same moment; wDay 0 = no sample yet
    DWORD         InitFlag[DKPF_NMP_MAX];          // 1 = disk present, its values count
    DKPF_INSTANCE instance[DKPF_PARAM_NUM];        // current values
    DKPF_INSTANCE maxinstance[DKPF_PARAMMAX_NUM];  // peaks since this reader's last read
} DKPF_PARAM;
DKPF_OFFSET(DKPF_PARAM, param_num, 0);
DKPF_OFFSET(DKPF_PARAM, parammax_num, 4);
DKPF_OFFSET(DKPF_PARAM, sampling_time, 8);
DKPF_OFFSET(DKPF_PARAM, local_time, 16);
DKPF_OFFSET(DKPF_PARAM, InitFlag, 32);
DKPF_OFFSET(DKPF_PARAM, instance, 288);
DKPF_OFFSET(DKPF_PARAM, maxinstance, 6528);
DKPF_SIZE(DKPF_PARAM, DKPF_PARAM_SIZE);

/* The shared region. No version word: all processes are built from this layout. */
typedef struct _DKPF_SHM_INFO {
    DKPF_CONF     conf;       // current configuration
    DWORD         reserved1;  // keeps param_num at 40
    DWORD         param_num;  // this and the next four fields as in DKPF_PARAM
    DWORD         parammax_num;
    DWORD         sampling_time;
    DWORD         reserved2;  // keeps local_time at 56
    SYSTEMTIME    local_time;
    DWORD         InitFlag[DKPF_NMP_MAX];
    DWORD         PMProcessID[DKPF_PROC_MAX];                  // owner of each consumer row, 0 = free; [0] stays 0
    DWORD         reserved3;                                   // keeps instance at 464
    DKPF_INSTANCE instance[DKPF_PARAM_NUM];                    // latest current values
    DKPF_INSTANCE reserved4[8];                                // zero from creation
    DKPF_INSTANCE maxinstance[DKPF_PROC_MAX][DKPF_PARAM_NUM];  // rows of peaks; slots 7 to 11 of each stay zero
} DKPF_SHM_INFO;
DKPF_OFFSET(DKPF_SHM_INFO, conf, 0);
DKPF_OFFSET(DKPF_SHM_INFO, param_num, 40);
DKPF_OFFSET(DKPF_SHM_INFO, parammax_num, 44);
DKPF_OFFSET(DKPF_SHM_INFO, sampling_time, 48);
DKPF_OFFSET(DKPF_SHM_INFO, local_time, 56);
DKPF_OFFSET(DKPF_SHM_INFO, InitFlag, 72);
DKPF_OFFSET(DKPF_SHM_INFO, PMProcessID, 328);
DKPF_OFFSET(DKPF_SHM_INFO, instance, 464);
DKPF_OFFSET(DKPF_SHM_INFO, reserved4, 6704);
DKPF_OFFSET(DKPF_SHM_INFO, maxinstance, 10864);
DKPF_SIZE(DKPF_SHM_INFO, DKPF_SHM_SIZE);
static_assert(sizeof(DKPF_INSTANCE) * DKPF_PARAM_NUM == 6240, "stride of a consumer row");

/* The region's part from param_num on, which the sweep of the consumer table gets. */
constexpr DWORD DKPF_SHM_PERF_OFFSET = 40;

/* Display values: row 0 the total, row 1 + d disk slot d. Both callers zero it before each computation. */
typedef struct _DKPF_DISP {
    ULONGLONG value[DKPF_ROW_NUM][DKPF_COUNTER_NUM];
} DKPF_DISP;
DKPF_SIZE(DKPF_DISP, 8840);

/* Raw totals of one sample: 0 to 11 sums of instance rows, 12 to 18 largest of maxinstance rows. */
typedef struct _DKPF_RAWTOTAL {
    ULONGLONG value[DKPF_RAWTOTAL_NUM];
} DKPF_RAWTOTAL;
DKPF_SIZE(DKPF_RAWTOTAL, 152);

/* One kind of warning event. */
typedef struct _WARN_EVENT_REC {
    DWORD dwSetEventID;    // written when the kind becomes raised, and once a day while it stays raised
    DWORD dwResetEventID;  // written when the kind becomes cleared
    DWORD dwCount;         // sources that report the kind now
    DWORD dwLastTick;      // GetTickCount() when the set event was last written, ms; 0 after clearing
    DWORD dwBlockFlag[3];  // by source: 1 = reports the kind now
} WARN_EVENT_REC;
DKPF_SIZE(WARN_EVENT_REC, 28);

/* Kinds of warning events, the index into g_WarnEvent. */
constexpr int DKPF_WARN_STOPPED = 0;  // a worker thread ended on an error; never cleared
constexpr int DKPF_WARN_COLLECT = 1;  // a sample could not be collected or read
constexpr int DKPF_WARN_CSVLOG = 2;   // CSV files could not be opened, rotated or written

/* Sources of warning events. */
constexpr DWORD DKPF_BLOCK_CSVLOG = 0;   // write thread, about its files
constexpr DWORD DKPF_BLOCK_WRITE = 1;    // write thread, about itself and its samples
constexpr DWORD DKPF_BLOCK_COLLECT = 2;  // collect thread

/* Event numbers of the system event log; the texts are in tnwmsg.dll. */
constexpr DWORD DKPF_EVENT_STOPPED = 0xC00012C5;         // error
constexpr DWORD DKPF_EVENT_COLLECT_FAILED = 0x800012C1;  // warning
constexpr DWORD DKPF_EVENT_COLLECT_OK = 0x400012C2;      // informational
constexpr DWORD DKPF_EVENT_CSVLOG_FAILED = 0x800012C3;   // warning
constexpr DWORD DKPF_EVENT_CSVLOG_OK = 0x400012C4;       // informational
constexpr DWORD DKPF_EVENT_TABLE_FULL = 0xC00012C6;      // error

/* What a query of the Performance Library asks for. */
constexpr DWORD DKPF_QUERY_ITEMS = 0;  // a list of title indexes
constexpr DWORD DKPF_QUERY_GLOBAL = 1;
constexpr DWORD DKPF_QUERY_FOREIGN = 2;  // another computer; we have nothing to say
constexpr DWORD DKPF_QUERY_COSTLY = 3;   // slow counters; we have none
constexpr DWORD DKPF_QUERY_UNKNOWN = 4;

/* ---- Trace ------------------------------------------------------------------------------------------------------- */

constexpr DWORD DKPF_LOG_ERROR = TNWLOG_ERROR;          // every failed call
constexpr DWORD DKPF_LOG_WARNING = TNWLOG_WARNING;      // finite time-outs, an empty selection
constexpr DWORD DKPF_LOG_NOTICE = TNWLOG_NOTICE;        // banner, mirror modes
constexpr DWORD DKPF_LOG_ENTEREXIT = TNWLOG_ENTEREXIT;  // entry and exit
constexpr DWORD DKPF_LOG_DETAIL = TNWLOG_DETAIL;        // sweep lines, loop passes
constexpr DWORD DKPF_LOG_DUMP = TNWLOG_DUMP;            // data dumps, locks
constexpr DWORD DKPF_LOG_EVENT = TNWLOG_EVENT;          // entry of the system event log

/* One trace line. Each unit defines DKPF_TRACE_SOURCE before it includes this header: a constant name, so that no path
 * of a build machine gets into a log. May change the thread's last-error value. */
#define DKPF_TRACE(hLog, dwLevel, ...) \
    log_write((hLog), (dwLevel), 0, DKPF_TRACE_SOURCE, __LINE__, __func__, __VA_ARGS__)
/* The same from a helper, in the name of the routine that it serves: operators look for that one. */
#define DKPF_TRACE_FOR(lpRoutine, hLog, dwLevel, ...) \
    log_write((hLog), (dwLevel), 0, DKPF_TRACE_SOURCE, __LINE__, (lpRoutine), __VA_ARGS__)
/* One entry of the system event log. */
#define DKPF_TRACE_EVENT(hLog, dwEventID) \
    log_write((hLog), DKPF_LOG_EVENT, (dwEventID), DKPF_TRACE_SOURCE, __LINE__, __func__, "")
#define DKPF_TRACE_EVENT_FOR(lpRoutine, hLog, dwEventID) \
    log_write((hLog), DKPF_LOG_EVENT, (dwEventID), DKPF_TRACE_SOURCE, __LINE__, (lpRoutine), "")

#define DKPF_BOOLSTR(b) ((b) ? "TRUE" : "FALSE")

/* ---- State ------------------------------------------------------------------------------------------------------- */

/* diskperf_common: life cycle. Written under g_hDllInitMutex by the entry points alone. */
extern HANDLE g_hDllInitMutex;    // unnamed; from process attach to detach
extern DWORD  g_dwInitCount;      // DkpfInitialize calls not yet taken back
extern BOOL   g_bDiskAgent;       // process flag of the latest DkpfInitialize; TRUE = producer
extern HANDLE g_hInfoMutex;       // owner of the region mutex's handle; g_hShmMutex borrows it
extern HANDLE g_hReloadEvent1;    // auto-reset; wakes the collect thread
extern HANDLE g_hReloadEvent2;    // auto-reset; wakes the write thread
extern HANDLE g_hTerminateEvent;  // manual-reset; ends both threads
extern HANDLE g_hCollectThread;
extern HANDLE g_hWriteThread;
extern DWORD  g_dwThreadExitTimeout;                          // s that _DkpfExitThreads waits for both threads together
extern DWORD  g_dwDebugMode;                                  // debug switch of the registry, bit set
extern char   g_szString[DKPF_STRING_NUM][DKPF_STRING_SIZE];  // message strings; written before the threads start
extern WARN_EVENT_REC g_WarnEvent[3];                         // under g_hWarnEventMutex
extern HANDLE         g_hWarnEventMutex;                      // unnamed

/* diskperf_shm: region. Written under g_hShmMutex, which itself is set and cleared with g_hInfoMutex; a start that
 * failed lets go of the view after its release. */
extern HANDLE         g_hShmMutex;  // same handle as g_hInfoMutex, set and cleared with it
extern HANDLE         g_hShmMap;
extern DKPF_SHM_INFO* g_pShmInfo;         // the view, or NULL
extern DWORD          g_dwShmInitCount;   // _DkpfShmInitialize calls not yet taken back
extern DWORD          g_dwPMProcessID;    // this process as entered in the consumer table; readers only
extern int            g_nPMProcessIDIdx;  // this process's consumer row; 0 in the producer

/* diskperf_pflog: computer name for the headers, filled by the write thread before it builds one. */
extern char g_szComputerName[DKPF_COMPUTER_SIZE];

/* diskperf_util: trace logs. */
extern HTNWLOG g_hDkpfLog;        // module log
extern HTNWLOG g_hDkpfTraceLog;   // periodic paths
extern HTNWLOG g_hDkpfConfLog;    // configuration
extern DWORD   g_dwDkpfLogLevel;  // level given at log_init; bulk dumps look at it

/* diskperf_pfmon: the open provider of this process. */
extern DWORD g_dwPfmOpenCount;  // opens not yet closed
extern DWORD g_dwFirstCounter;  // title index of the object's name; counter j has + 2 (j + 1)
extern DWORD g_dwFirstHelp;     // title index of the object's help text; likewise

/* A handle that may be closed. */
inline BOOL _DkpfHandleValid(HANDLE h)
{
    return h != NULL && h != INVALID_HANDLE_VALUE;
}

/* Closes a handle if it is valid, and forgets it. */
inline void _DkpfCloseHandle(HANDLE* lphHandle)
{
    if (_DkpfHandleValid(*lphHandle)) {
        CloseHandle(*lphHandle);
        *lphHandle = NULL;
    }
}

/* ---- Routines by unit -------------------------------------------------------------------------------------------- */

/* diskperf_util: named objects open to every account, locks, trace logs. */
HANDLE _DkpfCreateMutex(const char* lpName);
HANDLE _DkpfCreateEvent(BOOL bManual, const char* lpName);
BOOL   _DkpfMutexLock(HANDLE hMutex, int nTimeout);
BOOL   _DkpfMutexUnlock(HANDLE hMutex);
BOOL   _DkpfLogInit(void);
BOOL   _DkpfLogTerm(void);
void   _DkpfGetFileStampAndVersion(const char* lpName, char* lpStamp, char* lpVersion);

/* diskperf_shm: life of the region and copies in and out of it. Every routine locks g_hShmMutex by itself, except the
 * two mappings and the sweep, whose caller holds it. */
BOOL _DkpfShmInitialize(BOOL bCreate, DWORD* lpdwErr);
BOOL _DkpfShmTerminate(DWORD* lpdwErr);
BOOL _DkpfShmCreateMapping(SECURITY_ATTRIBUTES* lpAttributes, DWORD* lpdwErr);
BOOL _DkpfShmOpenMapping(DWORD* lpdwErr);
BOOL _DkpfShmCheckProcExist(void* lpDkpfParam, DWORD* lpdwErr);
BOOL _DkpfShmGetConf(DWORD getflag, DKPF_CONF* lpDkpfConf, DWORD* lpdwErr);
BOOL _DkpfShmSetConf(DWORD setflag, const DKPF_CONF* lpDkpfConf, DWORD* lpdwErr);
BOOL _DkpfShmGetPerf(DKPF_PARAM* lpDkpfParam, DWORD* lpdwErr);
BOOL _DkpfShmSetPerf(const DKPF_PARAM* lpDkpfParam, DWORD* lpdwErr);
BOOL _DkpfShmGetPerfenable(DWORD* lpPerfenable, DWORD* lpdwErr);
BOOL _DkpfShmSetPerfenable(DWORD dwPerfenable, DWORD* lpdwErr);

/* diskperf_common: configuration, debug flag, message strings, warning events, display values, stopping the threads. */
BOOL _DkpfGetConfig(DKPF_CONF* lpDkpfConf, DWORD* lpdwErr);
BOOL _DkpfReloadDebugFlag(DWORD* lpdwErr);
BOOL _DkpfLoadStrings(DWORD* lpdwErr);
BOOL _DkpfInitWarnEventLog(DWORD* lpdwErr);
BOOL _DkpfSetWarnEventLog(int index, DWORD blockId, DWORD* lpdwErr);
BOOL _DkpfResetWarnEventLog(int index, DWORD blockId, DWORD* lpdwErr);
BOOL _DkpfTermWarnEventLog(DWORD* lpdwErr);
BOOL _DkpfExitThreads(DWORD* lpdwErr);
BOOL _DkpfCmnGetDisplayValue(const DKPF_PARAM* lpCurrentParam, const DKPF_PARAM* lpPreviousParam,
                             DKPF_DISP* lpDispCounter, DKPF_RAWTOTAL* lpRawTotal, DWORD* lpdwErr);

/* diskperf_agent: collect thread and conversion of the driver's records. Producer only. */
unsigned __stdcall _DkpfPerfCollectThread(void* lpArg);
BOOL _DkpfConvPerfDrvToShm(const void* lpDriverRecord, const void* lpMirrorRecord, DKPF_PARAM* lpSample,
                           DWORD* lpdwErr);
BOOL _DkpfSetPerfZeroToShm(DWORD* lpdwErr);

/* diskperf_pflog: write thread and its files. All but the thread routine run on that thread. Producer only. */
unsigned __stdcall _DkpfPlogWriteThread(void* lpArg);
BOOL _DkpfPlogInit(const DWORD* lpInitFlag, const DKPF_CONF* lpDkpfConf, char* lpStr, HTNWCSV* lpDispHandles,
                   HTNWCSV* lpRawHandles, DWORD* lpdwErr);
BOOL _DkpfPlogRotate(const DWORD* lpInitFlag, const DKPF_CONF* lpDkpfConf, char* lpStr, HTNWCSV* lpDispHandles,
                     DWORD* lpdwErr);
BOOL _DkpfPlogHeaderStr(int nmpIndex, DWORD collectParam, char* lpStr, DWORD* lpdwErr);
BOOL _DkpfPlogHeaderStrRaw(int nmpIndex, char* lpStr, DWORD* lpdwErr);
BOOL _DkpfPlogDataStr(DWORD collectParam, const SYSTEMTIME* lpLocalTime, const ULONGLONG* lpValues, char* lpStr,
                      DWORD* lpdwErr);
BOOL _DkpfPlogDataStrRaw(int nSlot, const DKPF_PARAM* lpSample, char* lpStr, DWORD* lpdwErr);
BOOL _DkpfPlogDataStrRawTotal(const DKPF_RAWTOTAL* lpRawTotal, const SYSTEMTIME* lpLocalTime, char* lpStr,
                              DWORD* lpdwErr);
BOOL _DkpfPlogWriteCSV(DWORD collectParam, const DKPF_DISP* lpData, const DKPF_PARAM* lpSample,
                       const DKPF_RAWTOTAL* lpRawTotal, char* lpStr, const HTNWCSV* lpDispHandles,
                       const HTNWCSV* lpRawHandles, DWORD* lpdwErr);

/* diskperf_pfmon: Performance Monitor provider. */
BOOL  _DkpfPfmGetObjectIndexFromReg(DWORD* lpdwFirstCounter, DWORD* lpdwFirstHelp, DWORD* lpdwErr);
DWORD _DkpfPfmGetPMQueryType(const WCHAR* lpQuery);
BOOL  _DkpfPfmIsNumberInUnicodeList(DWORD dwNumber, const WCHAR* lpList);
BOOL  _DkpfPfmSetCollectHeader(void* lpPerfHeader, DWORD* lpdwErr);
BOOL  _DkpfPfmSetCollectBody(const DKPF_DISP* lpDispCounter, void* lpPerfBody, void** lpRetAddr, DWORD* lpdwErr);

#endif
