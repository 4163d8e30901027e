/* A program that does nothing: what any process costs on this machine. */
#include <windows.h>

int main()
{
    Sleep(INFINITE);
    return 0;
}
