/*
 * Trace lines against the least that such a line can cost, and against a well-known logger. Runs in HOME/bin.
 */
#include <windows.h>

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "bench/race.h"
#include "tnwlog.h"

namespace {

constexpr int   LINES = 2000;        // written, each round
constexpr int   SKIPPED = 1000000;   // below the level, each round
constexpr DWORD SIZE_KIB = 1048576;  // no rotation within a run: the peers rotate differently

/* The same line everywhere: what the product writes most. */
constexpr char SOURCE[] = "diskperf/src/diskperf_shm";
constexpr char ROUTINE[] = "_DkpfShmSetPerf";
constexpr char FORMAT[] = "EXIT<%s> err<0x%x>";

constexpr wchar_t LIMIT[] = L"..\\log\\bench_limit.log";
constexpr wchar_t OURS[] = L"..\\log\\bench_trace.log";

void WriteOurs(HTNWLOG log)
{
    log_write(log, TNWLOG_ENTEREXIT, 0, SOURCE, 642, ROUTINE, FORMAT, "TRUE", 0xb0000000u);
}

std::string Content(const wchar_t* path)
{
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/* The named mutex of the honest peer, and of the limit: what our own lock is. */
HANDLE NamedMutex(const wchar_t* name)
{
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, name);
    if (mutex == nullptr) {
        throw std::runtime_error("no mutex");
    }
    return mutex;
}

}  // namespace

int main()
{
    HTNWLOG log = nullptr;
    if (log_init("bench_trace", &log, TNWLOG_ERROR | TNWLOG_ENTEREXIT, SIZE_KIB, 0, "bench") != TNWLOG_OK) {
        fprintf(stderr, "the trace log does not open\n");
        return 2;
    }
    const auto sink =
        std::make_shared<spdlog::sinks::rotating_file_sink_mt>("..\\log\\bench_peer.log", size_t(SIZE_KIB) * 1024, 15);
    spdlog::logger peer("peer", sink);
    peer.set_pattern("%Y/%m/%d %H:%M:%S.%e %P:%t %l %v");
    peer.set_level(spdlog::level::info);
    peer.flush_on(spdlog::level::trace);
    const HANDLE peerMutex = NamedMutex(L"Global\\bench_peer");
    const HANDLE limitMutex = NamedMutex(L"Global\\bench_limit");
    const HANDLE file = CreateFileW(LIMIT, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        fprintf(stderr, "HOME\\log cannot be written\n");
        return 2;
    }
    // The limit writes the bytes that one call of ours does. All lines of a run are as long: one process, one thread.
    const std::string before = Content(OURS);
    WriteOurs(log);
    const std::string bytes = Content(OURS).substr(before.size());
    ULONGLONG         ours = before.size() + bytes.size(), limits = 0;  // what the files hold at the end
    if (bytes.size() < 2 || bytes.find("\r\n") != bytes.size() - 2) {
        fprintf(stderr, "one call did not write one line\n");
        return 2;
    }

    Race race("Trace lines");
    race.Candidate("line below the level", SKIPPED, [&] {
        for (int i = 0; i < SKIPPED; i++) {
            log_write(log, TNWLOG_DUMP, 0, SOURCE, 642, ROUTINE, FORMAT, "TRUE", 0xb0000000u);
        }
    });
    race.Candidate("spdlog below its level", SKIPPED, [&] {
        for (int i = 0; i < SKIPPED; i++) {
            peer.debug("{}({}) {}:EXIT<{}> err<{:#x}>", SOURCE, 642, ROUTINE, "TRUE", 0xb0000000u);
        }
    });
    race.Candidate("line written", LINES, [&] {
        for (int i = 0; i < LINES; i++) {
            WriteOurs(log);
        }
        ours += LINES * bytes.size();
    });
    race.Candidate("named mutex and one write of the bytes", LINES, [&] {
        for (int i = 0; i < LINES; i++) {
            DWORD written = 0;
            WaitForSingleObject(limitMutex, INFINITE);
            WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
            ReleaseMutex(limitMutex);
        }
        limits += LINES * bytes.size();
    });
    race.Candidate("spdlog rotating, flush each line", LINES, [&] {
        for (int i = 0; i < LINES; i++) {
            peer.info("{}({}) {}:EXIT<{}> err<{:#x}>", SOURCE, 642, ROUTINE, "TRUE", 0xb0000000u);
        }
    });
    race.Candidate("spdlog rotating, flush, named mutex", LINES, [&] {
        for (int i = 0; i < LINES; i++) {
            WaitForSingleObject(peerMutex, INFINITE);
            peer.info("{}({}) {}:EXIT<{}> err<{:#x}>", SOURCE, 642, ROUTINE, "TRUE", 0xb0000000u);
            ReleaseMutex(peerMutex);
        }
    });
    race.Compare("line below the level", "spdlog below its level", 2.0);
    race.Compare("line written", "named mutex and one write of the bytes", 1.3);
    race.Compare("line written", "spdlog rotating, flush each line", 0);
    race.Compare("line written", "spdlog rotating, flush, named mutex", 0);
    const bool reached = race.Run(15);
    log_term(log);
    if (std::filesystem::file_size(OURS) != ours || std::filesystem::file_size(LIMIT) != limits) {
        fprintf(stderr, "lines are missing: the figures mean nothing\n");
        return 2;
    }
    return reached ? 0 : 1;
}
