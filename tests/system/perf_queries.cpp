/*
 * perf_queries NUMBER: reads all performance data of the machine so many times, says "read", and stays until its input
 * ends.
 */
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <vector>

int main(int argc, char** argv)
{
    static const DWORD behind = 4096;  // the system here writes a little behind the size that it is given
    const int          queries = argc == 2 ? atoi(argv[1]) : 0;
    std::vector<BYTE>  block(1024 * 1024 + behind);

    for (int i = 0; i < queries; i++) {
        DWORD size = 1024 * 1024;
        RegQueryValueExA(HKEY_PERFORMANCE_DATA, "Global", NULL, NULL, block.data(), &size);
    }
    puts("read");
    fflush(stdout);
    while (getchar() != EOF) {
    }
    return 0;
}
