/*
 * Role program: one process that loads the tnwdiskperf.dll beside it, or the one whose path is given, and does what
 * standard input says, a command a line. Each command is answered by one line; the first line is READY.
 *
 *   init 0|1          DkpfInitialize as reader or producer      answer "<BOOL> <code>"
 *   reinit, term      DkpfReinitialize, DkpfTerminate           likewise
 *   views             views of the region in this process       answer "<number>"
 *   hold              takes the region's mutex and keeps it     answer "held"
 *   lock FILE         opens a file without any sharing          answer "locked" or the error number
 *   unlock            closes it                                 answer "unlocked"
 *   open, close       the provider's entry points               answer "<result>"
 *   collect ROW       one collect                               answer "<result> <bytes> v0 .. v16" of that row
 *   query WORDS       asks the system's Performance Library  answer "<result> <what it wrote, in hex>"
 *   die               ends the process as a crash would, no answer
 * It ends with its input.
 */
#include <windows.h>
#include <winperf.h>
#include <stdio.h>
#include <string.h>
#include <string>
#include <vector>

#include "diskperf.h"

static struct {
    decltype(&::DkpfInitialize)        initialize;
    decltype(&::DkpfReinitialize)      reinitialize;
    decltype(&::DkpfTerminate)         terminate;
    decltype(&::DkpfOpenForPerfmon)    open;
    decltype(&::DkpfCollectForPerfmon) collect;
    decltype(&::DkpfCloseForPerfmon)   close;
} g_library;

template <class Routine> static bool Bind(HMODULE library, const char* name, Routine& routine)
{
    void* address = reinterpret_cast<void*>(GetProcAddress(library, name));
    memcpy(&routine, &address, sizeof(routine));
    return address != nullptr;
}

static bool Load(const char* given)
{
    wchar_t path[1024] = {};
    if (given != nullptr) {
        MultiByteToWideChar(CP_ACP, 0, given, -1, path, 1023);
    } else {
        GetModuleFileNameW(NULL, path, 1023);
        wcscpy(wcsrchr(path, L'\\') + 1, L"tnwdiskperf.dll");
    }
    HMODULE library = LoadLibraryExW(path, NULL, LOAD_WITH_ALTERED_SEARCH_PATH);
    return library != NULL && Bind(library, "DkpfInitialize", g_library.initialize) &&
           Bind(library, "DkpfReinitialize", g_library.reinitialize) &&
           Bind(library, "DkpfTerminate", g_library.terminate) && Bind(library, "DkpfOpenForPerfmon", g_library.open) &&
           Bind(library, "DkpfCollectForPerfmon", g_library.collect) &&
           Bind(library, "DkpfCloseForPerfmon", g_library.close);
}

/* Mapped views as large as the region, in whole pages. Nothing else that this program maps has that size. */
static int CountViews()
{
    const SIZE_T             size = (DKPF_SHM_SIZE + 4095) / 4096 * 4096;
    MEMORY_BASIC_INFORMATION info = {};
    int                      count = 0;
    for (char* at = nullptr; VirtualQuery(at, &info, sizeof(info)) != 0;
         at = static_cast<char*>(info.BaseAddress) + info.RegionSize) {
        count += info.Type == MEM_MAPPED && info.RegionSize == size;
    }
    return count;
}

static void Collect(int row)
{
    const size_t      values = 744 + 232 * static_cast<size_t>(row) + 96;
    wchar_t           query[] = L"Global";
    std::vector<BYTE> buffer(65536);
    void*             data = buffer.data();
    DWORD             size = static_cast<DWORD>(buffer.size());
    DWORD             objects = 0;
    const DWORD       result = g_library.collect(query, &data, &size, &objects);
    printf("%lu %lu", result, size);
    for (size_t j = 0; j < 17 && size != 0; j++) {
        unsigned long long value = 0;
        memcpy(&value, buffer.data() + values + 8 * j, sizeof(value));
        printf(" %s", std::to_string(value).c_str());
    }
    printf("\n");
}

/* One query with room for all; the system loads the provider that is registered. */
static void Query(const char* words)
{
    const size_t      slack = sizeof(PERF_DATA_BLOCK);  // Wine 8 writes so far behind the size it is given
    std::vector<BYTE> data;
    DWORD             size = 0;
    LONG              result = ERROR_MORE_DATA;
    for (DWORD room = 65536; result == ERROR_MORE_DATA && room <= 16777216; room *= 2) {
        data.assign(room + slack, 0);
        size = room;
        result = RegQueryValueExA(HKEY_PERFORMANCE_DATA, words, NULL, NULL, data.data(), &size);
    }
    RegCloseKey(HKEY_PERFORMANCE_DATA);
    printf("%ld ", result);
    for (size_t i = 0; result == ERROR_SUCCESS && i < size + slack; i++) {
        printf("%02x", data[i]);
    }
    printf("\n");
}

static void Answer(BOOL result, DWORD code)
{
    printf("%d %08lx\n", result, code);
}

int main(int argc, char** argv)
{
    char   line[1200];
    HANDLE locked = INVALID_HANDLE_VALUE;
    if (!Load(argc > 1 ? argv[1] : nullptr)) {
        printf("NOT LOADED %lu\n", GetLastError());
        return 1;
    }
    printf("READY\n");
    fflush(stdout);
    while (fgets(line, sizeof(line), stdin) != nullptr) {
        line[strcspn(line, "\r\n")] = '\0';
        const std::string command(line, strcspn(line, " "));
        const char*       argument = line + command.size() + (line[command.size()] == ' ');
        DWORD             code = 0;
        if (command == "init") {
            const BOOL result = g_library.initialize(argument[0] == '1', &code);
            Answer(result, code);
        } else if (command == "reinit") {
            const BOOL result = g_library.reinitialize(&code);
            Answer(result, code);
        } else if (command == "term") {
            const BOOL result = g_library.terminate(&code);
            Answer(result, code);
        } else if (command == "views") {
            printf("%d\n", CountViews());
        } else if (command == "hold") {
            HANDLE mutex = OpenMutexA(SYNCHRONIZE, FALSE, DKPF_MUTEX_NAME);
            printf(WaitForSingleObject(mutex, INFINITE) == WAIT_OBJECT_0 ? "held\n" : "not held\n");
        } else if (command == "lock") {
            locked = CreateFileA(argument, GENERIC_READ, 0, NULL, OPEN_EXISTING, 0, NULL);
            if (locked != INVALID_HANDLE_VALUE) {
                printf("locked\n");
            } else {
                printf("%lu\n", GetLastError());
            }
        } else if (command == "unlock") {
            CloseHandle(locked);
            printf("unlocked\n");
        } else if (command == "open") {
            printf("%lu\n", g_library.open(NULL));
        } else if (command == "close") {
            printf("%lu\n", g_library.close());
        } else if (command == "collect") {
            Collect(atoi(argument));
        } else if (command == "query") {
            Query(argument);
        } else if (command == "die") {
            TerminateProcess(GetCurrentProcess(), 77);
        } else {
            printf("what is %s?\n", line);
        }
        fflush(stdout);
    }
    TerminateProcess(GetCurrentProcess(), 0);  // whatever the library still runs
    return 0;
}
