/*
 * A program that shows a screen as dkpfctl top does, waits for q, and then ends in a way that nobody wanted.
 *   broken_screen crash | exception
 */
#include <stdexcept>
#include <string>
#include <vector>

#include "terminal.h"

int main(int argc, char** argv)
{
    dkpf::Terminal terminal(true);
    int            width = 0, height = 0;
    if (argc != 2 || !terminal.Size(&width, &height))
        return 2;
    std::vector<dkpf::ScreenLine> lines(static_cast<size_t>(height));
    lines[6].text = "_Total";
    terminal.Show(lines);
    while (terminal.Wait(1000) != dkpf::TopWish::End) {
    }
    if (std::string(argv[1]) == "exception")
        throw std::runtime_error("nobody catches this");
    *static_cast<volatile int*>(nullptr) = 0;
    return 0;
}
