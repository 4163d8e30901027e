/*
 * hold_file PATH: opens the file with no sharing, says "held", and holds it until its input ends.
 * hold_file --load PATH: loads the library instead, as a host of the product does.
 */
#include <windows.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char** argv)
{
    HANDLE  file = INVALID_HANDLE_VALUE;
    HMODULE library = NULL;

    if (argc == 3 && strcmp(argv[1], "--load") == 0) {
        library = LoadLibraryExA(argv[2], NULL, LOAD_WITH_ALTERED_SEARCH_PATH);
    } else if (argc == 2) {
        file = CreateFileA(argv[1], GENERIC_READ, 0, NULL, OPEN_EXISTING, 0, NULL);
    }
    if (file == INVALID_HANDLE_VALUE && library == NULL) {
        printf("not held: error %lu\n", GetLastError());
        return 1;
    }
    puts("held");
    fflush(stdout);
    while (getchar() != EOF) {
    }
    if (file != INVALID_HANDLE_VALUE) {
        CloseHandle(file);
    }
    return 0;
}
