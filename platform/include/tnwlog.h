/*
 * tnwlog: trace logs, message strings, event entries and CSV log files of the cluster product.
 *
 * Every routine may be called from any thread of any process; a handle belongs to the process that got it. Processes
 * that open the same trace log write the same files. All texts are narrow strings of the ANSI code page and are copied:
 * nothing that is passed in needs to live longer than the call. No routine throws, and none changes a caller's buffer
 * unless it says so. Binding is by ordinal (import/tnwlog.def).
 */
#ifndef TNWLOG_H
#define TNWLOG_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct TNWLOG_TRACE* HTNWLOG;       /* an open trace log; NULL is a legal "no log" for log_write */
typedef struct TNWLOG_STRINGS* HTNWSTRINGS; /* an open string table */
typedef struct TNWLOG_CSV* HTNWCSV;         /* an open CSV log file */

/* Status numbers. 6 and 8 come from TnwFormatMessage alone. */
#define TNWLOG_OK 0u                 /* done */
#define TNWLOG_INVALID_ARGUMENT 1u   /* a null pointer, an empty name, a reserved flag with another value, a dead handle */
#define TNWLOG_NO_MEMORY 2u          /* memory could not be allocated */
#define TNWLOG_NOT_OPEN 3u           /* the file could not be opened: held without sharing, or no right to it */
#define TNWLOG_NO_DIRECTORY 4u       /* the log or perf directory is missing */
#define TNWLOG_DISK_FULL 5u          /* the volume is full; nothing or a part of the line was written, the next call mends it */
#define TNWLOG_NO_SUCH_MESSAGE 6u    /* TnwFormatMessage: no text has this number */
#define TNWLOG_WRITE_FAILED 7u       /* the system refused the write for another reason */
#define TNWLOG_TEXT_TOO_LONG 8u      /* TnwFormatMessage: the text and its NUL do not fit */
#define TNWLOG_LINE_TOO_LONG 9u      /* the line is longer than the maximum given at open */
#define TNWLOG_NO_TABLE 10u          /* the message file could not be opened or has no table */

/* Level bits of a trace line. A log writes the lines whose bit its level has; TNWLOG_EVENT always passes. */
#define TNWLOG_ERROR 0x0001u
#define TNWLOG_WARNING 0x0002u
#define TNWLOG_NOTICE 0x0004u
#define TNWLOG_ENTEREXIT 0x0008u
#define TNWLOG_DETAIL 0x0010u
#define TNWLOG_DUMP 0x0020u
#define TNWLOG_EVENT 0x8000u /* an entry for the system event log; the message number is the event ID */

/**
 * Ordinal 1. Opens a trace log of this process.
 * @param lpName      name of the log; files are HOME/log/NAME.log, NAME.1.log (newest older one) to NAME.15.log
 * @param phLog       receives the handle; set to NULL on failure
 * @param dwLevel     level bits that are written
 * @param dwSize      bound of one file, KiB, 1 to 4194303
 * @param dwReserved  0
 * @param lpKey       key of the log in the product's inventory of log files; not empty
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT; TNWLOG_NO_MEMORY. A file that cannot be opened is no failure: lines are
 *         dropped and counted, and each further line tries again.
 */
DWORD log_init(const char* lpName, HTNWLOG* phLog, DWORD dwLevel, DWORD dwSize, DWORD dwReserved, const char* lpKey);

/**
 * Ordinal 2. Closes a trace log. Every line handed over before is in the file already.
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT for NULL or a handle that is not open.
 */
DWORD log_term(HTNWLOG hLog);

/**
 * Ordinal 3. Writes one line: "2026/03/07 14:05:09.042 <pid>:<tid> <level> <source>(<line>) <routine>:<text>" CR LF.
 * @param hLog         the log; NULL writes nothing
 * @param dwLevel      one level bit
 * @param dwMessage    0, or with TNWLOG_EVENT the event ID
 * @param lpSource     source unit, for example "diskperf/src/diskperf_shm"
 * @param nLine        line in it
 * @param lpRoutine    routine's name
 * @param lpFormat     format as in the C run-time of Windows (%I64d, %S, %#p), then its arguments
 * A line is whole, and in the file when the call returns. May wait up to 500 ms for another process's line or rotation,
 * never longer. Does not promise to keep the thread's last-error value.
 */
void log_write(HTNWLOG hLog, DWORD dwLevel, DWORD dwMessage, const char* lpSource, int nLine, const char* lpRoutine,
               const char* lpFormat, ...);

/**
 * Ordinal 6. Opens the message strings of a component.
 * @param lpComponent  "diskperf"
 * @param dwReserved   0
 * @param phTable      receives the table; set to NULL on failure
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT; TNWLOG_NO_MEMORY; TNWLOG_NO_TABLE.
 */
DWORD TnwLoadStringTable(const char* lpComponent, DWORD dwReserved, HTNWSTRINGS* phTable);

/** Ordinal 7. Closes a table. @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT for NULL or a table that is not open. */
DWORD TnwFreeStringTable(HTNWSTRINGS hTable);

/**
 * Ordinal 9. Copies one text with its NUL, without a line end.
 * @param dwNumber    number of the message
 * @param lpText      destination; untouched unless the result is TNWLOG_OK
 * @param dwSize      its size in bytes
 * @param dwReserved  0
 * @return TNWLOG_OK; TNWLOG_NO_SUCH_MESSAGE; TNWLOG_TEXT_TOO_LONG; TNWLOG_INVALID_ARGUMENT.
 */
DWORD TnwFormatMessage(HTNWSTRINGS hTable, DWORD dwNumber, char* lpText, DWORD dwSize, DWORD dwReserved);

/**
 * Ordinal 19. Opens a CSV log file, HOME/perf/NAME.csv, older generations NAME.1.csv (newest) to NAME.<n>.csv.
 * @param lpName         base name
 * @param phFile         receives the handle; set to NULL on failure
 * @param dwFlags        3
 * @param dwReserved1    0
 * @param dwSize         bound of one file, KiB, 1 to 4194303
 * @param dwGenerations  older generations kept, 0 to 99
 * @param dwMaxLine      longest line, bytes with the terminating NUL, 2 to 65536
 * @param lpHeader       header line without line end; copied
 * @param dwReserved2    0
 * @param dwReserved3    0
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT; TNWLOG_NO_MEMORY; TNWLOG_LINE_TOO_LONG for the header. A file that cannot be
 *         opened or headed now is no failure: each write tries again and returns the status.
 * A file that is there with the same header is continued (a half-written last line is closed, NULs at its end are cut);
 * one with another header is rotated.
 */
DWORD log_util_init(const char* lpName, HTNWCSV* phFile, DWORD dwFlags, DWORD dwReserved1, DWORD dwSize,
                    DWORD dwGenerations, DWORD dwMaxLine, const char* lpHeader, DWORD dwReserved2, DWORD dwReserved3);

/** Ordinal 20. Closes a CSV file. @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT for NULL or a handle that is not open. */
DWORD log_util_term(HTNWCSV hFile);

/**
 * Ordinal 21. Appends one line and CR LF; starts a new file with the header first where the line would pass the bound.
 * @return TNWLOG_OK; TNWLOG_LINE_TOO_LONG; TNWLOG_NOT_OPEN; TNWLOG_NO_DIRECTORY; TNWLOG_DISK_FULL; TNWLOG_WRITE_FAILED;
 *         TNWLOG_INVALID_ARGUMENT. After a failure the file is as before, or ends in a part of the line that the next call
 *         closes; the next call tries again from the start. A reader that holds the file so that it cannot be renamed
 *         delays the rotation, never the line.
 */
DWORD log_util_write(HTNWCSV hFile, const char* lpFormat, ...);

/**
 * Ordinal 22. Starts a new generation whose files begin with another header.
 * @param dwMaxLine  longest line from now on; as in log_util_init
 * @param lpHeader   the new header; copied
 * @return as log_util_write. After a failure the handle is open and the new header holds: the next write tries again.
 */
DWORD log_util_rotate(HTNWCSV hFile, DWORD dwMaxLine, const char* lpHeader);

#ifdef __cplusplus
}
#endif

#endif
