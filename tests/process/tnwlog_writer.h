/*
 * What the writers of a trace log and the test that starts them agree on.
 */
#ifndef TESTS_PROCESS_TNWLOG_WRITER_H
#define TESTS_PROCESS_TNWLOG_WRITER_H

#include <windows.h>

static const char* const WRITERS_GO = "Local\\dkpf_writers_go";        /* event: write */
static const char* const WRITER_STANDS = "Local\\dkpf_writer_stands";  /* event: told to stop, it stands */
static const char* const WRITER_REPORT = "Local\\dkpf_writer_report_"; /* section with a WriterReport; and the tag */

/* Told without any call of the library or the system, so that it is true whenever the writer dies. */
struct WriterReport {
    volatile LONG returned;    /* number of the last line whose call has returned */
    volatile LONG longestWait; /* ms that one line was ready to wait, all its waits together */
    volatile LONG waited;      /* the same, all lines */
};

const DWORD WRITER_DIED = 9; /* exit code of a writer that died as told */

#endif
