/*
 * Routines of a library that must be loaded but never be called.
 */
#include <stdio.h>
#include <stdlib.h>

#define EMPTY_ROUTINE(library, routine) \
    void routine(void); \
    void routine(void) \
    { \
        fputs(library "." #routine " was called for real: its import slot was not replaced\n", stdout); \
        fflush(stdout); \
        abort(); \
    }
