/*
 * tnwlog: trace logs, message strings, event entries and CSV log files of the cluster product.
 *
 * Every routine may be called from any thread of any process; a handle belongs to the process that got it, and is not
 * closed while another thread uses it. Processes that open the same trace log write the same files. All texts are
 * narrow strings of the ANSI code page and are copied: nothing that is passed in needs to live longer than the call. No
 * routine throws, none changes a caller's buffer unless it says so, and none promises to keep the thread's last-error
 * value: the status tells all. Arguments are judged before anything is done. A handle that is closed, or one of another
 * kind, is answered and not followed, except by log_write. Binding is by ordinal (import/tnwlog.def).
 *
 * HOME is the parent of the folder (bin) that tnwlog.dll itself lies in. HOME/log and HOME/perf are made by set-up,
 * never here: a missing one is a status or a dropped line. tnwmsg.dll lies beside tnwlog.dll.
 */
#ifndef TNWLOG_H
#define TNWLOG_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct TNWLOG_TRACE*   HTNWLOG;     /* an open trace log; NULL is a legal "no log" for log_write */
typedef struct TNWLOG_STRINGS* HTNWSTRINGS; /* an open string table */
typedef struct TNWLOG_CSV*     HTNWCSV;     /* an open CSV log file */

/* Bounds of the arguments below. No name holds \ / : * ? " < > | . or a control character. */
#define TNWLOG_NAME_MAX 64u        /* characters of a log's or file's name */
#define TNWLOG_SIZE_MAX 4194303u   /* KiB of one file */
#define TNWLOG_GENERATIONS_MAX 99u /* older generations of a CSV file */
#define TNWLOG_LINE_MAX 65536u     /* bytes of a CSV line with its NUL */

/* Status numbers. 6 and 8 come from TnwFormatMessage alone. */
#define TNWLOG_OK 0u               /* done */
#define TNWLOG_INVALID_ARGUMENT 1u /* a null pointer, a name or value out of its bounds, a dead handle */
#define TNWLOG_NO_MEMORY 2u        /* memory could not be allocated */
#define TNWLOG_NOT_OPEN 3u         /* the file could not be opened: held without sharing, or no right to it */
#define TNWLOG_NO_DIRECTORY 4u     /* the log or perf directory is missing */
#define TNWLOG_DISK_FULL 5u        /* the volume is full; a part that was written is taken back or closed */
#define TNWLOG_NO_SUCH_MESSAGE 6u  /* TnwFormatMessage: no text has this number */
#define TNWLOG_WRITE_FAILED 7u     /* the system refused the write for another reason */
#define TNWLOG_TEXT_TOO_LONG 8u    /* TnwFormatMessage: the text and its NUL do not fit */
#define TNWLOG_LINE_TOO_LONG 9u    /* the line is longer than the maximum given at open */
#define TNWLOG_NO_TABLE 10u        /* the message file could not be opened or has no table */

/* Level bits of a trace line. A log writes the lines whose bit its level has; TNWLOG_EVENT always passes. */
#define TNWLOG_ERROR 0x0001u
#define TNWLOG_WARNING 0x0002u
#define TNWLOG_NOTICE 0x0004u
#define TNWLOG_ENTEREXIT 0x0008u
#define TNWLOG_DETAIL 0x0010u
#define TNWLOG_DUMP 0x0020u
#define TNWLOG_EVENT 0x8000u /* an entry for the system event log; the message number is the event ID */

/* Files of a trace log: the current one and so many older generations. */
#define TNWLOG_TRACE_GENERATIONS 15u
/* Longest trace line with its CR LF, bytes. What is longer is cut at its end. */
#define TNWLOG_TRACE_LINE_MAX 16384u

/**
 * Ordinal 1. Opens a trace log of this process.
 * @param lpName      name of the log, 1 to 64 characters; files are HOME/log/NAME.log, NAME.1.log (newest older one) to
 *                    NAME.15.log. A log may be open several times, each handle with a level and size of its own
 * @param phLog       receives the handle; set to NULL on failure
 * @param dwLevel     level bits that are written; TNWLOG_EVENT need not be among them
 * @param dwSize      bound of one file, KiB, 1 to 4194303
 * @param dwReserved  0
 * @param lpKey       key of the log in the product's inventory of log files; not empty
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT (a null pointer, a name or size out of its bounds, a reserved argument
 * that is not 0, an empty key); TNWLOG_NO_MEMORY. A failure leaves nothing open. A file that cannot be opened is no
 *         failure: lines are dropped and counted, and each further line tries again. Opens no file, the first line
 * does, and waits for nothing.
 *
 * A file is rotated by the first line that finds it at its bound, so it passes the bound by one line at most (by more
 * only while a reader holds it, or a generation, so that it cannot be renamed, or while none but accounts write that
 * may not rename it: ordinary ones may append to a file in HOME/log, its maker and administrators may rename it). Where
 * processes give different bounds, each keeps to its own. NULs that a power loss left at the end are cut; an account
 * that may append but not write ends them with CR LF instead. After a process died in a rotation one number among the
 * generations may be missing until the next rotation: who lists them does not stop at the first gap.
 */
DWORD log_init(const char* lpName, HTNWLOG* phLog, DWORD dwLevel, DWORD dwSize, DWORD dwReserved, const char* lpKey);

/**
 * Ordinal 2. Closes a trace log. Every line handed over before is in the file already; other handles of the same log
 * stay open.
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT for NULL, a handle that is closed, or one of another kind. Waits for
 * nothing.
 */
DWORD log_term(HTNWLOG hLog);

/**
 * Ordinal 3. Writes one line: "2026/03/07 14:05:09.042 <pid>:<tid> <level> <source>(<line>) <routine>:<text>" CR LF.
 * Time is local and without a zone, pid and tid decimal, the level hexadecimal with four digits ("0x0001"). Line breaks
 * in the text become blanks.
 * @param hLog         the log, open (a closed one is not noticed: too many lines pass here); NULL writes nothing, nor
 *                     does it raise an event
 * @param dwLevel      one level bit
 * @param dwMessage    with TNWLOG_EVENT the event ID, or 0 for a line alone; no meaning at other levels
 * @param lpSource     source unit, for example "diskperf/src/diskperf_shm"; NULL as ""
 * @param nLine        line in it
 * @param lpRoutine    routine's name; NULL as ""
 * @param lpFormat     format as in the C run-time of Windows (%I64d, %S, %#p), then its arguments; NULL as ""
 *
 * A line is whole, and in the file when the call returns, also if the process dies the next moment. May wait up to
 * 500 ms for another process's line or rotation, with an event, whose file has a lock of its own, up to 1 s, never
 * longer, but for the time that the system's event log takes to accept an event: a line that does not get the log's
 * lock is appended without it and counted. Lines that could not be written are dropped and counted, event entries too;
 * the next line of this log that can be written is preceded by one that tells the count. Below the level: one test, no
 * system call. Does not promise to keep the thread's last-error value.
 *
 * With TNWLOG_EVENT and an event ID the line ends in " <event 0x800012C1>", the event goes in words, one line, to
 * HOME/log/diskperf_event.log, which rotates like the log that the event came from, and then to the system's event log
 * (source "tnwdiskperf", text from tnwmsg.dll, severity from the top two bits). The line in the file:
 *
 *     2026/03/07 14:05:09.042 WARNING 0x800012C1 <text of the event>[ <text of the caller>]
 *
 * Time as above; SUCCESS, INFORMATION, WARNING or ERROR; the ID with eight upper-case digits; each followed by one
 * blank; then text to the line's end. An ID without a text, or a missing tnwmsg.dll, has "(no text: ...)" there.
 */
void log_write(HTNWLOG hLog, DWORD dwLevel, DWORD dwMessage, const char* lpSource, int nLine, const char* lpRoutine,
               const char* lpFormat, ...);

/**
 * Ordinal 6. Opens the message strings of a component.
 * @param lpComponent  "diskperf", in this spelling
 * @param dwReserved   0
 * @param phTable      receives the table; set to NULL on failure
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT (a null pointer, an empty component, a reserved argument that is not 0);
 *         TNWLOG_NO_MEMORY; TNWLOG_NO_TABLE (another component; tnwmsg.dll is missing or has no table). A failure
 * leaves nothing open. Blocks as long as the loader does; not from DllMain.
 */
DWORD TnwLoadStringTable(const char* lpComponent, DWORD dwReserved, HTNWSTRINGS* phTable);

/**
 * Ordinal 7. Closes a table. Texts that were copied stay, other tables too.
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT for NULL, a table that is closed, or a handle of another kind.
 */
DWORD TnwFreeStringTable(HTNWSTRINGS hTable);

/**
 * Ordinal 9. Copies one text with its NUL, without a line end.
 * @param hTable      the table, open
 * @param dwNumber    number of the message, 0 to 40 without 18 and 19; an event's number has the event's text
 * @param lpText      destination; untouched unless the result is TNWLOG_OK
 * @param dwSize      its size in bytes
 * @param dwReserved  0
 * @return TNWLOG_OK; TNWLOG_NO_SUCH_MESSAGE (no text has this number); TNWLOG_TEXT_TOO_LONG (text and NUL do not fit);
 *         TNWLOG_INVALID_ARGUMENT (no open table, a null pointer, a reserved argument that is not 0); TNWLOG_NO_MEMORY.
 *         Waits for nothing.
 */
DWORD TnwFormatMessage(HTNWSTRINGS hTable, DWORD dwNumber, char* lpText, DWORD dwSize, DWORD dwReserved);

/**
 * Ordinal 19. Opens a CSV log file, HOME/perf/NAME.csv, older generations NAME.1.csv (newest) to NAME.<n>.csv.
 * @param lpName         base name, 1 to 64 characters
 * @param phFile         receives the handle; set to NULL on failure
 * @param dwFlags        3, nothing else
 * @param dwReserved1    0
 * @param dwSize         bound of one file, KiB, 1 to 4194303
 * @param dwGenerations  older generations kept, 0 to 99
 * @param dwMaxLine      longest line, bytes with the terminating NUL, 2 to 65536
 * @param lpHeader       header line without line end (one in it is an invalid argument); copied
 * @param dwReserved2    0
 * @param dwReserved3    0
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT; TNWLOG_NO_MEMORY; TNWLOG_LINE_TOO_LONG for the header. A failure leaves
 *         nothing open and makes no file. A file that cannot be opened or headed now is no failure: each write tries
 *         again and returns the status. Waits for the disk alone.
 *
 * A file that is there with the same header is continued; one with another header is rotated. NULs that a power loss
 * left at its end are cut; a half-written last line is closed with CR LF, and before it with a quote where its last
 * field lacks one; a half-written header is written anew. A file has one writer: a second handle, of this process or
 * another, gets TNWLOG_NOT_OPEN from its writes until the first is closed. Readers are free to open, copy and hold it.
 */
DWORD log_util_init(const char* lpName, HTNWCSV* phFile, DWORD dwFlags, DWORD dwReserved1, DWORD dwSize,
                    DWORD dwGenerations, DWORD dwMaxLine, const char* lpHeader, DWORD dwReserved2, DWORD dwReserved3);

/**
 * Ordinal 20. Closes a CSV file. Every line whose write was answered with TNWLOG_OK is in it.
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT for NULL, a handle that is closed, or one of another kind.
 */
DWORD log_util_term(HTNWCSV hFile);

/**
 * Ordinal 21. Appends one line and CR LF; starts a new file with the header first where the line would pass the bound
 * (a line that alone passes it gets a file of its own). Formats as in log_write; a line break in the line is an invalid
 * argument. Waits for nothing but another thread's call on this handle, and the disk.
 * @return TNWLOG_OK; TNWLOG_LINE_TOO_LONG (also: a %S that cannot be converted); TNWLOG_NOT_OPEN;
 *         TNWLOG_NO_DIRECTORY; TNWLOG_DISK_FULL; TNWLOG_WRITE_FAILED; TNWLOG_INVALID_ARGUMENT
 *
 * After a failure the file is as before, or ends in a part of the line that the next call closes; the next call tries
 * again from the start. A reader that holds the file so that it cannot be renamed delays the rotation, never the line;
 * if a new header is due then, it is written in front of the next line, and again where the file had to be opened anew
 * meanwhile. A log_util_init that meets such a file compares its header with the first line: equal to it, lines follow
 * under the header that stands last. A file that somebody moves away takes lines where it lies until its rotation is
 * due; then the next one is made.
 */
DWORD log_util_write(HTNWCSV hFile, const char* lpFormat, ...);

/**
 * Ordinal 22. Starts a new generation whose files begin with another header.
 * @param dwMaxLine  longest line from now on; as in log_util_init
 * @param lpHeader   the new header; copied
 * @return TNWLOG_OK; TNWLOG_INVALID_ARGUMENT, TNWLOG_LINE_TOO_LONG (the header) or TNWLOG_NO_MEMORY: file, header and
 *         maximum are as before; TNWLOG_NOT_OPEN (also: a reader holds the file so that it cannot be renamed),
 *         TNWLOG_NO_DIRECTORY, TNWLOG_DISK_FULL or TNWLOG_WRITE_FAILED: the new header and maximum hold, and the next
 *         write tries again. The handle stays open. Waits as log_util_write.
 */
DWORD log_util_rotate(HTNWCSV hFile, DWORD dwMaxLine, const char* lpHeader);

#ifdef __cplusplus
}
#endif

#endif
