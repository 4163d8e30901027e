/*
 * A pass of the write thread: a line for each of 130 CSV files, against as many bare writes of the same bytes. Runs in
 * HOME/bin.
 */
#include <windows.h>

#include <stdio.h>

#include <string>
#include <vector>

#include "bench/race.h"
#include "tnwlog.h"

namespace {

constexpr int   FILES = 130;
constexpr int   PASSES = 20;         // each round
constexpr DWORD SIZE_KIB = 1048576;  // no rotation within a run
constexpr DWORD MAX_LINE = 13440;

}  // namespace

int main()
{
    std::string line = "\"03/07/2026 14:05:09.042\"";
    std::string header = "\"(PDH-CSV 4.0)\"";
    for (int column = 0; column < 17; column++) {
        line += ",\"123456789\"";
        header += ",\"\\\\SERVER\\Cluster Disk Resource Performance(NMP1)\\Counter " + std::to_string(column) + "\"";
    }
    const std::string bytes = line + "\r\n";

    std::vector<HTNWCSV> ours(FILES);
    std::vector<HANDLE>  bare(FILES);
    for (int i = 0; i < FILES; i++) {
        const std::string name = "bench_" + std::to_string(i);
        if (log_util_init(name.c_str(), &ours[static_cast<size_t>(i)], 3, 0, SIZE_KIB, 3, MAX_LINE, header.c_str(), 0,
                          0) != TNWLOG_OK) {
            fprintf(stderr, "%s.csv does not open\n", name.c_str());
            return 2;
        }
        const std::wstring path = L"..\\perf\\bare_" + std::to_wstring(i) + L".csv";
        bare[static_cast<size_t>(i)] = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                                   nullptr, CREATE_ALWAYS, 0, nullptr);
        if (bare[static_cast<size_t>(i)] == INVALID_HANDLE_VALUE) {
            fprintf(stderr, "HOME\\perf cannot be written\n");
            return 2;
        }
    }
    bool failed = false;

    Race race("CSV files, a pass of 130 lines");
    race.Candidate("130 lines", PASSES, [&] {
        for (int pass = 0; pass < PASSES; pass++) {
            for (const HTNWCSV file : ours) {
                failed = log_util_write(file, "%s", line.c_str()) != TNWLOG_OK || failed;
            }
        }
    });
    race.Candidate("130 bare writes of the same bytes", PASSES, [&] {
        for (int pass = 0; pass < PASSES; pass++) {
            for (const HANDLE file : bare) {
                DWORD written = 0;
                failed = !WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) || failed;
            }
        }
    });
    race.Compare("130 lines", "130 bare writes of the same bytes", 0);
    race.Run(15);
    for (const HTNWCSV file : ours) {
        log_util_term(file);
    }
    if (failed) {
        fprintf(stderr, "a write failed: the figures mean nothing\n");
        return 2;
    }
    return 0;
}
