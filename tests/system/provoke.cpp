/*
 * Makes what the doctor is to find:
 *   provoke hold larger|smaller  holds a region of another size under the product's name until its input ends
 *   provoke damage               writes into the product's region what no producer writes there
 *   provoke reload               tells the agent to read its configuration, whatever the file holds
 *   provoke suspend PID          stops all threads of a process
 *   provoke unlink               takes the name away under which the driver's device is opened
 * Says "done", or why not.
 */
#include <windows.h>
#include <winternl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "diskperf.h"
#include "names.h"

static const DWORD PAGE = 4096;

static BOOL Hold(const char* size)
{
    const DWORD bytes = strcmp(size, "larger") == 0 ? DKPF_SHM_SIZE + PAGE : PAGE;

    // A reader looks for the mutex before it maps the region.
    return CreateMutexA(NULL, FALSE, DKPF_MUTEX_NAME) != NULL &&
           CreateFileMappingA(INVALID_HANDLE_VALUE, NULL, PAGE_READWRITE, 0, bytes, DKPF_SHM_NAME) != NULL;
}

static BOOL Damage()
{
    const HANDLE   mapping = OpenFileMappingA(FILE_MAP_WRITE, FALSE, DKPF_SHM_NAME);
    DKPF_SHM_INFO* region = NULL;

    if (mapping != NULL) {
        region = static_cast<DKPF_SHM_INFO*>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, DKPF_SHM_SIZE));
    }
    if (region != NULL) {
        region->PMProcessID[0] = 4711;
    }
    return region != NULL;
}

static BOOL Reload()
{
    const HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE, dkpf::AGENT_RELOAD_EVENT);

    return event != NULL && SetEvent(event);
}

/* A routine of ntdll that no import library has. */
template <class Routine> static Routine Native(const char* name)
{
    const FARPROC address = GetProcAddress(GetModuleHandleA("ntdll.dll"), name);
    Routine       routine = NULL;

    memcpy(&routine, &address, sizeof(routine));
    return routine;
}

typedef LONG(WINAPI* HANDLE_ROUTINE)(HANDLE);
typedef LONG(WINAPI* OPEN_LINK)(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*);

static BOOL Suspend(const char* pid)
{
    const HANDLE_ROUTINE suspend = Native<HANDLE_ROUTINE>("NtSuspendProcess");
    const HANDLE         process = OpenProcess(PROCESS_SUSPEND_RESUME, FALSE, static_cast<DWORD>(atoi(pid)));

    return process != NULL && suspend != NULL && suspend(process) == 0;
}

/* Names of drivers are permanent until somebody makes them temporary: they then go with their last handle. */
static BOOL Unlink()
{
    const OPEN_LINK      open = Native<OPEN_LINK>("NtOpenSymbolicLinkObject");
    const HANDLE_ROUTINE forget = Native<HANDLE_ROUTINE>("NtMakeTemporaryObject");
    static WCHAR         path[] = L"\\DosDevices\\VELCOR_CTRL";
    UNICODE_STRING       name = { sizeof(path) - sizeof(WCHAR), sizeof(path), path };
    OBJECT_ATTRIBUTES    attributes = {};
    HANDLE               link = NULL;

    InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE, NULL, NULL);
    return open != NULL && forget != NULL && open(&link, DELETE, &attributes) == 0 && forget(link) == 0 &&
           CloseHandle(link);
}

int main(int argc, char** argv)
{
    BOOL done = FALSE;

    SetLastError(ERROR_INVALID_PARAMETER);
    if (argc == 3 && strcmp(argv[1], "hold") == 0) {
        done = Hold(argv[2]);
    } else if (argc == 2 && strcmp(argv[1], "damage") == 0) {
        done = Damage();
    } else if (argc == 2 && strcmp(argv[1], "reload") == 0) {
        done = Reload();
    } else if (argc == 3 && strcmp(argv[1], "suspend") == 0) {
        done = Suspend(argv[2]);
    } else if (argc == 2 && strcmp(argv[1], "unlink") == 0) {
        done = Unlink();
    }
    if (!done) {
        printf("not done: error %lu\n", GetLastError());
        return 1;
    }
    puts("done");
    fflush(stdout);
    while (getchar() != EOF) {
    }
    return 0;
}
