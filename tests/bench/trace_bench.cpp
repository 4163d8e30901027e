/*
 * Trace lines against the least that such a line can cost, and against a well-known logger. Runs in HOME/bin.
 */
#include <windows.h>

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

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

/* As long as a line of ours with its prefix. */
std::string LikeOurs()
{
    return "2026/03/07 14:05:09.042 1234:5678 0x0008 diskperf/src/diskperf_shm(642) _DkpfShmSetPerf:EXIT<TRUE> "
           "err<0xb0000000>\r\n";
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
    const HANDLE file =
        CreateFileW(L"..\\log\\bench_limit.log", FILE_APPEND_DATA,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        fprintf(stderr, "HOME\\log cannot be written\n");
        return 2;
    }
    const std::string bytes = LikeOurs();

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
            log_write(log, TNWLOG_ENTEREXIT, 0, SOURCE, 642, ROUTINE, FORMAT, "TRUE", 0xb0000000u);
        }
    });
    race.Candidate("named mutex and one write of the bytes", LINES, [&] {
        for (int i = 0; i < LINES; i++) {
            DWORD written = 0;
            WaitForSingleObject(limitMutex, INFINITE);
            WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
            ReleaseMutex(limitMutex);
        }
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
    return reached ? 0 : 1;
}
