/*
 * Role program: one process that writes numbered lines into a trace log.
 *   tnwlog_writer TAG LINES SIZE-KIB [die-in-rename N | die-behind-line N]
 * Lines read "TAG NUMBER", from 1. It stands in a home's bin and loads tnwlog.dll from there. "die" ends the process as
 * a crash does, either in place of the N-th rename, with the log's lock held, or when the call of line N has returned.
 * Starts when the event that its standard test makes, Local\dkpf_writers_go, is set. Exit code 0, or 9 when it died as
 * told.
 */
#include "support/import_hooks.h"
#include "support/tnwlog_api.h"
#include <memory>
#include <stdlib.h>
#include <string.h>

static int g_nRename, g_nDieInRename;

static BOOL WINAPI RenameHook(LPCWSTR lpFrom, LPCWSTR lpTo, DWORD dwFlags)
{
    if (++g_nRename == g_nDieInRename) {
        TerminateProcess(GetCurrentProcess(), 9);
    }
    return MoveFileExW(lpFrom, lpTo, dwFlags);
}

int main(int argc, char** argv)
{
    wchar_t                     szProgram[1024];
    HTNWLOG                     hLog = nullptr;
    HANDLE                      hGo = nullptr;
    int                         nDieBehind = 0;
    std::unique_ptr<ImportHook> hook;

    if (argc < 4) {
        return 2;
    }
    GetModuleFileNameW(NULL, szProgram, 1024);
    *wcsrchr(szProgram, L'\\') = L'\0';
    TnwLogApi api(std::wstring(szProgram) + L"\\tnwlog.dll");
    if (api.Module() == nullptr) {
        return 3;
    }
    if (argc == 6 && strcmp(argv[4], "die-in-rename") == 0) {
        g_nDieInRename = atoi(argv[5]);
        hook = std::make_unique<ImportHook>(api.Module(), "kernel32.dll", "MoveFileExW", RenameHook);
    } else if (argc == 6 && strcmp(argv[4], "die-behind-line") == 0) {
        nDieBehind = atoi(argv[5]);
    }
    if (api.log_init("diskperf", &hLog, TNWLOG_NOTICE, static_cast<DWORD>(atoi(argv[3])), 0, "key") != TNWLOG_OK) {
        return 4;
    }
    hGo = OpenEventA(SYNCHRONIZE, FALSE, "Local\\dkpf_writers_go");
    if (hGo == nullptr || WaitForSingleObject(hGo, 60000) != WAIT_OBJECT_0) {
        return 5;
    }
    for (int n = 1; n <= atoi(argv[2]); n++) {
        api.log_write(hLog, TNWLOG_NOTICE, 0, "w", 1, "Writer", "%s %d", argv[1], n);
        if (n == nDieBehind) {
            TerminateProcess(GetCurrentProcess(), 9);
        }
    }
    api.log_term(hLog);
    return 0;
}
