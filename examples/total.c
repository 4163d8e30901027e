/*
 * Prints what was written to all mirror disks of this machine, once per new sample, until Ctrl+C.
 *
 *   total [SAMPLES]      ends after so many samples; exit code 0 printed, 1 no data
 *
 * All it needs is the public header and tnwdiskperf.dll, on the PATH or beside it. It attaches as a consumer, as the
 * Performance Library does for tools that read performance counters: the disk agent has to run, and `dkpfctl install`
 * must have registered the counters.
 */
#include "tnwdiskperf.h"

#include <stdio.h>
#include <stdlib.h>
#include <winperf.h>

/* The counters by their number; their names stand in the system's tables. */
enum { WRITE_BYTES = 11, WRITE_RATE = 12, US_PER_WRITE = 15 };

static volatile LONG g_stop = 0;

static BOOL WINAPI OnCtrl(DWORD type)
{
    (void)type;
    InterlockedExchange(&g_stop, 1);
    return TRUE;
}

/* Value of one counter of the first instance, the total. Every step stays within the block. */
static BOOL Total(const BYTE* block, DWORD bytes, DWORD counter, ULONGLONG* value)
{
    const PERF_OBJECT_TYPE*         object = (const PERF_OBJECT_TYPE*)block;
    const PERF_COUNTER_DEFINITION*  definition;
    const PERF_INSTANCE_DEFINITION* instance;

    if (bytes < sizeof *object || object->DefinitionLength > bytes - sizeof *instance ||
        object->HeaderLength != sizeof *object || counter >= object->NumCounters ||
        object->DefinitionLength < sizeof *object + object->NumCounters * sizeof *definition) {
        return FALSE;
    }
    definition = (const PERF_COUNTER_DEFINITION*)(block + object->HeaderLength) + counter;
    instance = (const PERF_INSTANCE_DEFINITION*)(block + object->DefinitionLength);
    if (instance->ByteLength > bytes - object->DefinitionLength ||
        definition->CounterOffset > bytes - object->DefinitionLength - instance->ByteLength ||
        bytes - object->DefinitionLength - instance->ByteLength - definition->CounterOffset < sizeof *value) {
        return FALSE;
    }
    *value = *(const ULONGLONG*)((const BYTE*)instance + instance->ByteLength + definition->CounterOffset);
    return TRUE;
}

int main(int argc, char** argv)
{
    static BYTE buffer[65536];
    WCHAR       query[] = L"Global";
    long        samples = argc > 1 ? atol(argv[1]) : 0;
    long        printed = 0;
    DWORD       result = DkpfOpenForPerfmon(NULL);

    if (result != ERROR_SUCCESS) {
        fprintf(stderr, "total: the provider does not open, error %lu: %s\n", result,
                result == ERROR_NOT_READY       ? "is the disk agent running?"
                : result == ERROR_ACCESS_DENIED ? "collection is switched off"
                : result == ERROR_CANTOPEN || result == ERROR_CANTREAD
                    ? "the counters are not registered, dkpfctl install"
                    : "there is no sample yet, try again");
        return 1;
    }
    SetConsoleCtrlHandler(OnCtrl, TRUE);
    while (g_stop == 0 && (samples <= 0 || printed < samples)) {
        LPVOID    data = buffer;
        DWORD     bytes = sizeof buffer, objects = 0;
        ULONGLONG written = 0, rate = 0, us = 0;

        Sleep(1000);
        result = DkpfCollectForPerfmon(query, &data, &bytes, &objects);
        if (result != ERROR_SUCCESS || objects == 0) {
            fprintf(stderr, "total: no data (error %lu)\n", result);
        } else if (Total(buffer, bytes, WRITE_BYTES, &written) && Total(buffer, bytes, WRITE_RATE, &rate) &&
                   Total(buffer, bytes, US_PER_WRITE, &us)) {
            printf("%llu bytes written, %llu bytes/s, %llu us per write\n", written, rate, us);
            fflush(stdout);
            printed++;
        }
    }
    DkpfCloseForPerfmon();
    return printed > 0 ? 0 : 1;
}
