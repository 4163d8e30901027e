/*
 * hold_file PATH: opens the file with no sharing, says "held", and holds it until its input ends.
 */
#include <windows.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    const HANDLE file =
        argc == 2 ? CreateFileA(argv[1], GENERIC_READ, 0, NULL, OPEN_EXISTING, 0, NULL) : INVALID_HANDLE_VALUE;

    if (file == INVALID_HANDLE_VALUE) {
        printf("not held: error %lu\n", GetLastError());
        return 1;
    }
    puts("held");
    fflush(stdout);
    while (getchar() != EOF) {
    }
    CloseHandle(file);
    return 0;
}
