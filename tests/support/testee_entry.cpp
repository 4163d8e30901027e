/*
 * Part of the library under test: the linker exports everything but DllMain itself.
 */
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID lpReserved);

BOOL TesteeDllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID lpReserved);

BOOL TesteeDllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID lpReserved)
{
    return DllMain(hInstance, dwReason, lpReserved);
}
