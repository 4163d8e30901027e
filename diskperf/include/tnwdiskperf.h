/*
 * tnwdiskperf: performance figures of the cluster's mirror disks. Public header, C and C++.
 *
 * One process of a machine, the disk agent, is the producer: it polls the mirror-disk driver, shares the samples and
 * writes the CSV logs. Every other process is a consumer. Consumers usually come through the Performance Library, which
 * calls the three ...ForPerfmon routines; the three life-cycle routines are for the agent and for programs that keep
 * the library attached.
 *
 * Threads: the life-cycle routines may be called from any thread, they wait for each other. The three ...ForPerfmon
 * routines are called one at a time, as the Performance Library does.
 */
#ifndef TNWDISKPERF_H
#define TNWDISKPERF_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes, the family of all routines of the module. docs/codes.md says for each what to do. */
#define DKPF_ERR_SUCCESS 0xB0000000u         /* done */
#define DKPF_ERR_ALREADY 0xB0000001u         /* already initialised in this process; the call succeeds and counts */
#define DKPF_ERR_NOT_INITIALIZED 0xB0000002u /* not initialised in this process */
#define DKPF_ERR_TABLE_FULL 0xB0000003u      /* 32 consumers are attached already */
#define DKPF_ERR_PARAMETER 0xB0000004u       /* a required pointer is null, or a disk number is out of range */
#define DKPF_ERR_MUTEX_CREATE 0xB0000005u    /* a mutex is missing or could not be created */
#define DKPF_ERR_MUTEX_LOCK 0xB0000006u      /* a mutex could not be locked */
#define DKPF_ERR_EVENT 0xB0000008u           /* an event could not be created */
#define DKPF_ERR_THREAD 0xB0000009u          /* a worker thread could not be started */
#define DKPF_ERR_THREAD_EXIT 0xB000000Au     /* the worker threads did not end in time */
#define DKPF_ERR_MEMORY 0xB000000Bu          /* memory could not be allocated */
#define DKPF_ERR_XML_INIT 0xB000000Du        /* the configuration library could not be initialised */
#define DKPF_ERR_XML_LOAD 0xB000000Eu        /* policy, configuration or a value could not be loaded */
#define DKPF_ERR_SYNC 0xB0000010u            /* a synchronisation or handle call of the system failed */
#define DKPF_ERR_NOT_AGENT 0xB0000011u       /* only the producer may do this */
#define DKPF_ERR_REG_OPEN 0xB0000012u        /* a registry key could not be opened */
#define DKPF_ERR_REG_READ 0xB0000013u        /* a registry value could not be read */
#define DKPF_ERR_DEVICE 0xB0000015u          /* the driver's control device could not be opened */
#define DKPF_ERR_MIRROR_MODE 0xB0000017u     /* a driver record names an unknown mirror mode */
#define DKPF_ERR_REGION 0xB0000018u          /* the region mutex is missing or the region is not initialised here */
#define DKPF_ERR_MAPPING 0xB000001Au         /* the region could not be created or opened: is the disk agent running? */
#define DKPF_ERR_MAPVIEW 0xB000001Bu         /* the region's view could not be mapped */
#define DKPF_ERR_UNMAPVIEW 0xB000001Cu       /* the region's view could not be unmapped */
#define DKPF_ERR_STRING_OPEN 0xB0000020u     /* the message strings could not be opened */
#define DKPF_ERR_STRING_FORMAT 0xB0000021u   /* a message string could not be read */
#define DKPF_ERR_STRING_CLOSE 0xB0000022u    /* the message strings could not be released */
#define DKPF_ERR_COMPUTER_NAME 0xB0000024u   /* the computer name could not be read */
#define DKPF_ERR_CSV_OPEN 0xB0000025u        /* a CSV file could not be opened */
#define DKPF_ERR_CSV_ROTATE 0xB0000026u      /* a CSV file could not be rotated */
#define DKPF_ERR_CSV_WRITE 0xB0000027u       /* a CSV line could not be written */
#define DKPF_ERR_LOG 0xB0000028u             /* trace logs not opened or configuration not read: dkpfctl config check */
#define DKPF_ERR_COUNTER_KIND 0xB000FFFFu    /* a display counter of unknown kind */

// clang-format off

/**
 * Brings the library up in this process. The first call does the work, later ones only count.
 * @param bDiskAgent  TRUE in the disk agent: creates the region (an existing one is wiped: be sure to be alone), starts
 *                    the collect and the write thread. FALSE elsewhere: opens the region and takes a consumer row.
 *                    The flag of the latest call holds for the process, also where that call only counts or fails.
 * @param lpdwErr     receives the result code; must not be NULL
 * @return TRUE with DKPF_ERR_SUCCESS, or with DKPF_ERR_ALREADY (counted: needs one DkpfTerminate more).
 *         FALSE with what this call made undone, the count as it was, and
 *         DKPF_ERR_LOG           the configuration is refused or a trace log cannot be opened. Where the configuration or the
 *                                module log is the reason, no line says so: no log is open yet
 *         DKPF_ERR_MAPPING, DKPF_ERR_MAPVIEW
 *                                no region; for a consumer: the disk agent has not started yet
 *         DKPF_ERR_TABLE_FULL    32 consumers live; the event 0xC00012C6 is written
 *         DKPF_ERR_STRING_OPEN, DKPF_ERR_STRING_FORMAT, DKPF_ERR_STRING_CLOSE
 *                                the message strings (tnwmsg.dll)
 *         DKPF_ERR_XML_INIT, DKPF_ERR_XML_LOAD
 *                                the configuration, which the producer reads a second time
 *         DKPF_ERR_MUTEX_CREATE, DKPF_ERR_MUTEX_LOCK, DKPF_ERR_EVENT, DKPF_ERR_SYNC, DKPF_ERR_THREAD, DKPF_ERR_MEMORY,
 *         DKPF_ERR_REGION        the system refused an object
 * Waits for a life-cycle call under way in another thread of the process (a DkpfTerminate may take 300 s), without bound
 * for the region's mutex, 100 ms for a configuration file that is being saved, and up to 300 s for the collect thread
 * where the write thread cannot be started. A driver that is absent is no failure here: the collect thread ends with an
 * event of its own.
 */
BOOL DkpfInitialize(BOOL bDiskAgent, DWORD* lpdwErr);

/**
 * Reads the configuration again, publishes it and wakes both worker threads. Producer only. They take over perfenable,
 * perflogsave, writeinterval and collectparam; the other settings are used when the producer starts again, and the size and
 * generations of CSV files also for each file that is opened from now on.
 * @param lpdwErr  receives the result code; must not be NULL
 * @return TRUE with DKPF_ERR_SUCCESS.
 *         TRUE with DKPF_ERR_MUTEX_LOCK or DKPF_ERR_REGION: read but not published; with DKPF_ERR_SYNC: published. In all
 *         three cases the threads are not woken.
 *         FALSE with DKPF_ERR_NOT_AGENT, DKPF_ERR_NOT_INITIALIZED, DKPF_ERR_MUTEX_CREATE, DKPF_ERR_MUTEX_LOCK, or with
 *         DKPF_ERR_XML_INIT, DKPF_ERR_XML_LOAD: the old settings hold.
 * Waits as DkpfInitialize does for other calls, for the region's mutex and for a file that is being saved.
 */
BOOL DkpfReinitialize(DWORD* lpdwErr);

/**
 * Takes one DkpfInitialize back; the last one ends the threads, leaves the region and closes the logs.
 * @param lpdwErr  receives the result code of the last step that failed; must not be NULL
 * @return TRUE, also where a step failed (DKPF_ERR_THREAD_EXIT after 300 s with threads that still run,
 *         DKPF_ERR_UNMAPVIEW, DKPF_ERR_SYNC, DKPF_ERR_MUTEX_LOCK): all other steps are done.
 *         FALSE with DKPF_ERR_NOT_INITIALIZED or DKPF_ERR_MUTEX_CREATE.
 * Waits up to 300 s for the worker threads, for other calls and for the region's mutex as DkpfInitialize does.
 */
BOOL DkpfTerminate(DWORD* lpdwErr);

/**
 * Performance Library: open. Attaches this process as a consumer; further opens only count.
 * @param lpDeviceNames  ignored
 * @return ERROR_SUCCESS
 *         ERROR_NOT_READY (21)         the library cannot be brought up (no agent, table full) or the region not be read
 *         ERROR_ACCESS_DENIED (5)      collection is switched off
 *         ERROR_CANTOPEN (1011), ERROR_CANTREAD (1012)
 *                                      the title index range is not in the registry
 *         ERROR_OUTOFMEMORY (14)
 *         ERROR_INVALID_FUNCTION (1)   no sample yet, or it cannot be read
 *         After a failure other than that of bringing the library up, the attachment stays until the process ends.
 * Waits as DkpfInitialize does.
 */
DWORD APIENTRY DkpfOpenForPerfmon(LPWSTR lpDeviceNames);

/**
 * Performance Library: collect. Writes one object of 65 instances and 17 counters, 15,824 bytes.
 * @param pQuery            query string: "Global", or a list of title indexes
 * @param pData             in: where to write; out: behind the last byte written
 * @param pcbData           in: bytes there; out: bytes written, 0 with every other result than a block
 * @param pObjectsReturned  out: 1 with a block, otherwise 0
 * @return ERROR_SUCCESS, also where there is no data for this query or moment: not opened, collection switched off, no
 *                                      sample yet, pQuery or *pData NULL. Up to 744 bytes may have been written then
 *         ERROR_MORE_DATA (234)        a buffer of less than 15,824 bytes
 *         ERROR_INVALID_PARAMETER (87) one of the last two pointers is NULL
 * Waits without bound for the region's mutex.
 */
DWORD APIENTRY DkpfCollectForPerfmon(LPWSTR pQuery, LPVOID* pData, LPDWORD pcbData, LPDWORD pObjectsReturned);

/**
 * Performance Library: close. The last close takes the open's attachment back; attachments that failed opens left stay.
 * @return ERROR_SUCCESS always
 */
DWORD APIENTRY DkpfCloseForPerfmon(void);

// clang-format on

#ifdef __cplusplus
}
#endif

#endif
