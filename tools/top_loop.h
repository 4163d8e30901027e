/*
 * The loop of dkpfctl top: reads every second and shows what was read, on a screen or as plain lines. Its clock, its
 * waits and where it shows are a TopView, so that a test runs it without a terminal and without time.
 */
#ifndef DKPF_TOOLS_TOP_LOOP_H
#define DKPF_TOOLS_TOP_LOOP_H

#include <string>
#include <vector>

#include "commands.h"
#include "perf/reader.h"
#include "top_screen.h"

namespace dkpf {

/* What ended a wait: its time is up, or what the user wants. */
enum class TopWish { None, End, Up, Down, PageUp, PageDown, First, Last };

class TopView {
public:
    virtual ~TopView() = default;
    /* Size of the screen in letters and lines, which may change at any time; FALSE: there is none, lines are printed.
     */
    virtual bool       Size(int* width, int* height) = 0;
    virtual void       Show(const std::vector<ScreenLine>& lines) = 0;  // the whole screen
    virtual void       Say(const std::string& text) = 0;                // plain lines
    virtual ULONGLONG  NowMs() = 0;                                     // of a clock that never jumps
    virtual SYSTEMTIME LocalNow() = 0;
    /* Waits so long, or until the user wants something. */
    virtual TopWish Wait(DWORD ms) = 0;
};

struct TopEnd {
    bool        everRead = false;  // values were shown at least once
    std::string words;             // where not: why, of the last reading
};

/* Ends when the user wants to, or after options.seconds where that is not 0; reads at least once. */
TopEnd TopLoop(const TopOptions& options, const std::string& computer, IntervalSource* source, TopView* view);

}  // namespace dkpf

#endif
