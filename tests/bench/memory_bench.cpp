/*
 * Memory of the disk agent with 64 disks and 32 readers, against a program that does nothing, linked as ours. Runs in
 * HOME/bin, with a configuration that collects and writes every second, in a prefix where no driver is registered. The
 * driver runs before the agent does: an agent that starts it does so in a thread, and Wine keeps the stack of the last
 * thread that ended.
 */
#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>
#include <stdio.h>

#include <memory>
#include <string>
#include <vector>

#include "support/driver.h"
#include "support/patience.h"
#include "support/program.h"
#include "tnwdiskperf.h"

namespace {

constexpr int  READERS = 32;
constexpr int  PASSES = 4;              // lines of the last disk's file before anything is measured
constexpr long GOAL = 4 * 1024 * 1024;  // bytes above the empty program
constexpr char ATTACHED[] = "attached";

/* One of the readers: takes a consumer row and keeps it until it is ended. */
int Reader()
{
    DWORD error = 0;
    if (!DkpfInitialize(FALSE, &error)) {
        printf("refused with %#lx\n", error);
        return 2;
    }
    printf("%s\n", ATTACHED);
    fflush(stdout);
    Sleep(INFINITE);
    return 0;
}

std::wstring Folder()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, ARRAYSIZE(path));
    const std::wstring whole = path;
    return whole.substr(0, whole.rfind(L'\\') + 1);
}

/* All 64 disks present and busy. */
void FeedAll(const InstalledDriver& driver, unsigned long long step)
{
    VELCOR_FEED feed = {};
    for (VELCOR_ENTRY& disk : feed.driver.entry) {
        disk.state = VELCOR_STATE_INITIALIZED;
        disk.mode = VELCOR_MODE_SYNC;
        disk.write_bytes = step * 123456789;
        disk.writes = step * 1000;
        disk.write_us = step * 54321;
        disk.send_queue = disk.send_queue_peak = 987654321;
    }
    driver.Feed(feed);
}

/* Line ends in a file; 0 where it is not there. */
int LinesIn(const std::wstring& path)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
    char         block[4096];
    DWORD        count = 0;
    int          lines = 0;
    if (file == INVALID_HANDLE_VALUE) {
        return 0;
    }
    while (ReadFile(file, block, sizeof(block), &count, nullptr) && count != 0) {
        for (DWORD i = 0; i < count; i++) {
            lines += block[i] == '\n';
        }
    }
    CloseHandle(file);
    return lines;
}

struct Memory {
    long privateBytes;
    long workingSet;
};

bool Measure(DWORD pid, Memory* memory)
{
    PROCESS_MEMORY_COUNTERS_EX counters = {};
    const HANDLE               process = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, pid);
    const bool                 known =
        GetProcessMemoryInfo(process, reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof(counters)) != FALSE;
    CloseHandle(process);
    // The same number where the system knows both; Wine fills in the first one alone.
    memory->privateBytes = static_cast<long>(counters.PagefileUsage);
    memory->workingSet = static_cast<long>(counters.WorkingSetSize);
    return known && counters.PagefileUsage != 0 && counters.WorkingSetSize != 0;
}

int ThreadsOf(DWORD pid)
{
    const HANDLE  all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread = {};
    int           number = 0;
    thread.dwSize = sizeof(thread);
    for (BOOL more = Thread32First(all, &thread); more; more = Thread32Next(all, &thread)) {
        number += thread.th32OwnerProcessID == pid;
    }
    CloseHandle(all);
    return number;
}

void Print(const char* what, long ours, const std::string& peer, long empty, const char* goal)
{
    printf("  %-44s %12ld  %-44s %12ld %12ld  %s\n", what, ours, peer.c_str(), empty, ours - empty, goal);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::string(argv[1]) == "reader") {
        return Reader();
    }
    const std::wstring folder = Folder();
    const std::wstring lastFile = folder + L"..\\perf\\nmp64_raw.csv";
    InstalledDriver    driver;
    unsigned long long step = 0;
    if (!driver.service->Start()) {
        fprintf(stderr, "the driver does not start: error %lu\n", GetLastError());
        return 2;
    }
    FeedAll(driver, ++step);

    Program empty(folder + L"empty_program.exe");
    Program agent(folder + L"dkpfagent.exe", "--console");
    while (agent.Line().find("the performance library is up") == std::string::npos) {
    }
    std::vector<std::unique_ptr<Program>> readers;
    for (int i = 0; i < READERS; i++) {
        readers.push_back(std::make_unique<Program>(folder + L"memory_bench.exe", "reader"));
        const std::string word = readers.back()->Line();
        if (word != ATTACHED) {
            fprintf(stderr, "reader %d: %s\n", i + 1, word.c_str());
            return 2;
        }
    }
    const int before = LinesIn(lastFile);
    if (!Eventually([&] {
            FeedAll(driver, ++step);
            return LinesIn(lastFile) >= before + PASSES;
        })) {
        fprintf(stderr, "the agent writes no lines\n");
        return 2;
    }

    Memory ours = {};
    Memory nothing = {};
    Memory idle = {};
    // What a thread costs is the system's: Wine holds about 1 MB of private memory for each.
    const std::string threads = std::to_string(ThreadsOf(agent.Id()));
    Program           idleThreads(folder + L"empty_program.exe", threads);
    Sleep(2000);
    if (!Measure(agent.Id(), &ours) || !Measure(empty.Id(), &nothing) || !Measure(idleThreads.Id(), &idle)) {
        fprintf(stderr, "the system does not tell what a process uses: private %ld and %ld, working set %ld and %ld\n",
                ours.privateBytes, nothing.privateBytes, ours.workingSet, nothing.workingSet);
        return 2;
    }
    const bool reached = ours.privateBytes - nothing.privateBytes < GOAL;
    char       goal[48];
    snprintf(goal, sizeof(goal), "%ld%s", GOAL, reached ? "" : " MISSED");
    printf("\nMemory, bytes: the agent with 64 disks, 130 files and %d readers\n", READERS);
    printf("  %-44s %12s  %-44s %12s %12s  %s\n", "ours", "bytes", "peer", "bytes", "above it", "goal, under");
    const std::string peer = "an empty program";
    Print("dkpfagent.exe, private bytes", ours.privateBytes, peer, nothing.privateBytes, goal);
    Print("the same", ours.privateBytes, peer + " with " + threads + " threads", idle.privateBytes, "");
    Print("dkpfagent.exe, working set", ours.workingSet, peer, nothing.workingSet, "");
    return reached ? 0 : 1;
}
