/*
 * Role program: one process that writes numbered lines into a trace log.
 *   tnwlog_writer TAG LINES SIZE-KIB [die-at-call N | stand-in-write | bounded]
 * Lines read "TAG NUMBER", from 1. It stands in a home's bin and loads tnwlog.dll from there. Starts when WRITERS_GO is
 * set. Exit code 0, or WRITER_DIED.
 *   die-at-call N   ends as a crash does, in place of the N-th system call of the last line
 *   stand-in-write  stops in the write of the last line, with the log's lock held, until its thread is resumed
 *   bounded         waits for the log's lock as long as the library says. The others wait until they have it: how busy
 *                   the machine is must not decide which way a line goes
 */
#include "process/tnwlog_writer.h"
#include "support/import_watch.h"
#include "support/patience.h"
#include "support/tnwlog_api.h"
#include <memory>
#include <stdlib.h>
#include <string.h>

static LONG g_lineWaits; /* ms, of the line being written */

static DWORD WINAPI PatientWait(HANDLE hObject, DWORD)
{
    return WaitForSingleObject(hObject, PATIENCE_MS);
}

static DWORD WINAPI BoundedWait(HANDLE hObject, DWORD dwMs)
{
    g_lineWaits += static_cast<LONG>(dwMs);
    return WaitForSingleObject(hObject, dwMs);
}

static BOOL WINAPI StandingWrite(HANDLE hFile, LPCVOID lpData, DWORD dwLength, LPDWORD lpdwWritten, LPOVERLAPPED lpAt)
{
    const HANDLE hStands = OpenEventA(EVENT_MODIFY_STATE, FALSE, WRITER_STANDS);

    SetEvent(hStands);
    CloseHandle(hStands);
    SuspendThread(GetCurrentThread());
    return WriteFile(hFile, lpData, dwLength, lpdwWritten, lpAt);
}

static WriterReport* OpenReport(const char* lpTag)
{
    static WriterReport nobodyAsks;
    const HANDLE        hReport = OpenFileMappingA(FILE_MAP_WRITE, FALSE, (std::string(WRITER_REPORT) + lpTag).c_str());
    void* lpReport = hReport != nullptr ? MapViewOfFile(hReport, FILE_MAP_WRITE, 0, 0, sizeof(WriterReport)) : nullptr;

    return lpReport != nullptr ? static_cast<WriterReport*>(lpReport) : &nobodyAsks;
}

int main(int argc, char** argv)
{
    wchar_t szProgram[1024];
    HTNWLOG hLog = nullptr;
    HANDLE  hGo = nullptr;
    int     nCalls = 0;

    if (argc < 4) {
        return 2;
    }
    const int         nLines = atoi(argv[2]), nDieAtCall = argc == 6 ? atoi(argv[5]) : 0;
    const std::string mode = argc > 4 ? argv[4] : "";
    GetModuleFileNameW(NULL, szProgram, 1024);
    *wcsrchr(szProgram, L'\\') = L'\0';
    TnwLogApi api(std::wstring(szProgram) + L"\\tnwlog.dll");
    if (api.Module() == nullptr) {
        return 3;
    }
    std::unique_ptr<ImportHook>  wait, write; /* gone before the library they are in */
    std::unique_ptr<ImportWatch> watch;
    wait = std::make_unique<ImportHook>(api.Module(), "kernel32.dll", "WaitForSingleObject",
                                        mode == "bounded" ? BoundedWait : PatientWait);
    if (api.log_init("diskperf", &hLog, TNWLOG_NOTICE, static_cast<DWORD>(atoi(argv[3])), 0, "key") != TNWLOG_OK) {
        return 4;
    }
    WriterReport* lpReport = OpenReport(argv[1]);
    hGo = OpenEventA(SYNCHRONIZE, FALSE, WRITERS_GO);
    if (hGo == nullptr || WaitForSingleObject(hGo, PATIENCE_MS) != WAIT_OBJECT_0) {
        return 5;
    }
    for (int n = 1; n <= nLines; n++) {
        g_lineWaits = 0;
        if (n == nLines && mode == "stand-in-write") {
            write = std::make_unique<ImportHook>(api.Module(), "kernel32.dll", "WriteFile", StandingWrite);
        } else if (n == nLines && mode == "die-at-call") {
            watch = std::make_unique<ImportWatch>(api.Module(), [&](const ImportWatch::Call& call) {
                if (call.dll == "kernel32.dll" && ++nCalls == nDieAtCall) {
                    TerminateProcess(GetCurrentProcess(), WRITER_DIED);
                }
                return false;
            });
        }
        api.log_write(hLog, TNWLOG_NOTICE, 0, "w", 1, "Writer", "%s %d", argv[1], n);
        lpReport->returned = n;
        lpReport->longestWait = g_lineWaits > lpReport->longestWait ? g_lineWaits : lpReport->longestWait;
        lpReport->waited += g_lineWaits;
    }
    watch.reset();
    write.reset();
    api.log_term(hLog);
    return 0;
}
