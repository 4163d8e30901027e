/*
 * main of every test program. A crash ends with exit code 3 and a line, never with the debugger of the system.
 */
#include <gtest/gtest.h>
#include <windows.h>
#include <stdio.h>

static LONG WINAPI Crash(EXCEPTION_POINTERS* lpInfo)
{
    printf("CRASH: exception %#lx at %p\n", lpInfo->ExceptionRecord->ExceptionCode,
           lpInfo->ExceptionRecord->ExceptionAddress);
    fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 3);
    return EXCEPTION_EXECUTE_HANDLER;
}

int main(int argc, char** argv)
{
    SetUnhandledExceptionFilter(Crash);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
