/*
 * The console as a screen of its own, and the user's wish to end. The screen is a second buffer of the console: the
 * system switches back to the one that was there as soon as no process holds ours, so that even a process that is ended
 * from outside leaves the console as it was. One Terminal per process.
 */
#ifndef DKPF_TOOLS_TERMINAL_H
#define DKPF_TOOLS_TERMINAL_H

#include "top_loop.h"

namespace dkpf {

class Terminal : public TopView {
public:
    /* From here on Ctrl+C, Ctrl+Break and q are wishes to end. The screen is there where one is wanted and standard
     * output is a console; otherwise Size() says that there is none. */
    explicit Terminal(bool wantScreen);
    ~Terminal() override;  // the console is as it was
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    bool       Size(int* width, int* height) override;
    void       Show(const std::vector<ScreenLine>& lines) override;
    void       Say(const std::string& text) override;
    ULONGLONG  NowMs() override;
    SYSTEMTIME LocalNow() override;
    TopWish    Wait(DWORD ms) override;

private:
    TopWish WishInInput();  // takes what was typed, up to the first key that means something

    HANDLE m_screen = nullptr;
    HANDLE m_input = nullptr;  // of a console, otherwise nullptr
    WORD   m_colours = 0;
};

}  // namespace dkpf

#endif
