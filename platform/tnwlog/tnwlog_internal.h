/*
 * tnwlog, inside: what trace logs, the event file and CSV files have in common.
 *
 *   home.cpp     where the library lies, and what lies beside it
 *   handles.cpp  which handles this process has open
 *   files.cpp    one file and its older generations: open, mend, append, rotate; status numbers
 *   shared.cpp   a file that all processes of the machine append to, and its lock
 *   trace.cpp    log_init, log_term, log_write: the level test
 *   line.cpp     the trace line itself
 *   events.cpp   event log entries and diskperf_event.log
 *   strings.cpp  message texts of tnwmsg.dll
 *   csv.cpp      log_util_*: files with a header, one writer each
 */
#ifndef TNWLOG_INTERNAL_H
#define TNWLOG_INTERNAL_H

#include "tnwlog.h"
#include <stdarg.h>

/* ---- home.cpp ---- */

/* Wide characters of a full path with its NUL. Behind a home that lies deeper no file opens (TNWLOG_NO_DIRECTORY). */
constexpr DWORD TNW_PATH_MAX = 1024;

/* HOME\FOLDER\NAME, absolute, in the form that has no limit of 260 characters. FALSE: no home, or too long. */
BOOL TnwHomePath(const wchar_t* lpFolder, const wchar_t* lpName, wchar_t* lpPath);

/* A number that all processes which use this home agree on, however they spell its path. */
ULONGLONG TnwHomeId();

/* ---- handles.cpp ---- */

enum TNW_KIND { TNW_KIND_TRACE, TNW_KIND_STRINGS, TNW_KIND_CSV };

/* Stands first in everything a caller holds a handle to. */
typedef struct TNW_OPEN {
    TNW_KIND  eKind;
    TNW_OPEN* lpNext;
} TNW_OPEN;

void TnwOpenAdd(TNW_OPEN* lpOpen, TNW_KIND eKind);
BOOL TnwOpenFind(const void* lpHandle, TNW_KIND eKind);   /* compares addresses, never looks into lpHandle */
BOOL TnwOpenRemove(const void* lpHandle, TNW_KIND eKind); /* FALSE: was not open */

void* TnwAlloc(SIZE_T cb); /* zeroed; NULL without memory */
void  TnwFree(void* lp);

/* ---- files.cpp ---- */

/* A log file and its older generations: BASE.ext, BASE.1.ext (newest) to BASE.<n>.ext. */
typedef struct TNW_SET {
    wchar_t*       lpBase; /* path without extension; empty where the home is unusable */
    const wchar_t* lpExt;  /* ".log" or ".csv" */
    DWORD          dwGenerations;
} TNW_SET;

/* TNWLOG_OK; TNWLOG_INVALID_ARGUMENT for a name no file can have; TNWLOG_NO_MEMORY. */
DWORD TnwSetInit(TNW_SET* lpSet, const wchar_t* lpFolder, const char* lpName, const wchar_t* lpExt,
                 DWORD dwGenerations);
void  TnwSetTerm(TNW_SET* lpSet);

/* Moves every generation one up and the current file to generation 1; the caller holds what guards the set. The current
 * file may be open in any process that shares deletion. Where it is missing nothing moves, TNWLOG_OK. A status: some
 * generation was held, nothing is lost, the next call goes on. */
DWORD TnwSetRotate(const TNW_SET* lpSet);

/* Opens the current file, or creates it. dwShare as in CreateFile. */
DWORD TnwFileOpen(const TNW_SET* lpSet, DWORD dwShare, HANDLE* lphFile);
void  TnwFileClose(HANDLE* lphFile);

/* Size in bytes, and whether the file was deleted under the handle. FALSE: the handle is of no use any more. */
BOOL TnwFileSize(HANDLE hFile, ULONGLONG* lpSize);

/* After a power loss: cut NULs off the end; close a half-written last line, with fQuotes also its open quote. What an
 * account may not read it leaves alone, and NULs that it may not cut it closes as it does a line. */
DWORD TnwFileTrim(HANDLE hFile, ULONGLONG* lpSize);
DWORD TnwFileCloseLine(HANDLE hFile, ULONGLONG size, BOOL fQuotes);

/* Appends all or nothing: a short write is cut off again, as far as the system lets it and nobody wrote meanwhile.
 * size: the file's, just before. */
DWORD TnwFileAppend(HANDLE hFile, ULONGLONG size, const char* lpData, DWORD dwLength);
BOOL  TnwFileCut(HANDLE hFile, ULONGLONG size);
BOOL  TnwFileRead(HANDLE hFile, ULONGLONG offset, void* lpData, DWORD dwLength); /* FALSE unless all of it */

/* Of a read that failed: an account that may append but not read takes the file as it is, TNWLOG_OK. Any other refusal
 * could hide half a line. */
DWORD TnwStatusOfRead(DWORD dwW32);

/* ---- shared.cpp ---- */

/* A file that every process of the machine may append to. hFile and opened belong to the holder of hLock. */
typedef struct TNW_SHARED {
    TNW_SET       set;
    ULONGLONG     bound; /* bytes */
    HANDLE        hLock; /* named mutex, open to every account; NULL: could not be had */
    HANDLE        hLate; /* second one, for those who got tired of waiting for the first */
    HANDLE        hFile;
    ULONGLONG     opened; /* GetTickCount64() when hFile was opened */
    volatile LONG lStuck; /* 1: the last wait for hLock was in vain, do not wait again until it can be had */
} TNW_SHARED;

DWORD TnwSharedInit(TNW_SHARED* lpShared, const char* lpName, DWORD dwSize);
void  TnwSharedTerm(TNW_SHARED* lpShared);

/* Appends whole lines. *lpfLate: written without the lock. */
DWORD TnwSharedWrite(TNW_SHARED* lpShared, const char* lpLines, DWORD dwLength, BOOL* lpfLate);

/* ---- trace.cpp, line.cpp ---- */

struct TNWLOG_TRACE {
    TNW_OPEN      open;
    DWORD         dwLevel;  /* bits that pass, TNWLOG_EVENT always among them */
    DWORD         dwSize;   /* KiB */
    volatile LONG lDropped; /* lines lost since the last line that told of them */
    volatile LONG lLate;    /* lines written without the lock, since the same */
    volatile LONG lEntries; /* event entries lost, since the same */
    TNW_SHARED    shared;
};

/* Longest trace line with its CR LF, bytes. A dump of a longest CSV line (13,440) fits; what is longer is cut. */
constexpr DWORD TNW_LINE_MAX = TNWLOG_TRACE_LINE_MAX;

/* What a caller may add to an event's own text, bytes; what is longer is cut. */
constexpr DWORD TNW_EVENT_TEXT_MAX = 1024;

typedef struct TNW_PLACE {
    const char* lpSource;
    int         nLine;
    const char* lpRoutine;
} TNW_PLACE;

/* In a unit of its own, so that its large frame never becomes part of log_write. */
void TnwLineWrite(HTNWLOG hLog, DWORD dwLevel, DWORD dwMessage, const TNW_PLACE* lpPlace, const char* lpFormat,
                  va_list args);

/* Moving-end writers; none writes at or behind lpEnd. */
char* TnwPutText(char* lp, const char* lpEnd, const char* lpText);
char* TnwPutTime(char* lp, const char* lpEnd, const SYSTEMTIME* lpTime);  /* 2026/03/07 14:05:09.042 */
char* TnwPutHex(char* lp, const char* lpEnd, DWORD dwValue, int nDigits); /* 0x and the digits */
char* TnwPutFormat(char* lp, char* lpEnd, const char* lpFormat, va_list args, BOOL* lpfCut);

/* ---- events.cpp, strings.cpp ---- */

/* Writes the event's line into diskperf_event.log (bound dwSize KiB) and hands it to the system's event log. FALSE: the
 * line could not be written. */
BOOL TnwEventRaise(DWORD dwEvent, const SYSTEMTIME* lpTime, const char* lpText, DWORD dwSize);

/* Text of a message, single '%', no line end; LocalFree it. NULL: none (dwStatus says why). */
char*   TnwMessageText(HMODULE hMessages, DWORD dwNumber, DWORD* lpdwStatus);
HMODULE TnwMessageOpen(); /* NULL: not there, or without a table */

#endif
