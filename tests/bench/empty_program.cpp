/* A program that does nothing, with as many threads as its argument says: what any process costs on this machine. */
#include <windows.h>

#include <stdlib.h>

static DWORD WINAPI Idle(LPVOID)
{
    Sleep(INFINITE);
    return 0;
}

int main(int argc, char** argv)
{
    for (int threads = argc > 1 ? atoi(argv[1]) : 1; threads > 1; threads--) {
        CreateThread(nullptr, 0, Idle, nullptr, 0, nullptr);
    }
    return static_cast<int>(Idle(nullptr));
}
