/*
 * What dkpfctl top shows of a reading, as text: the screen at any size, and the plain lines. Nothing here asks the
 * system; a line never holds more letters than the width given.
 */
#ifndef DKPF_TOOLS_TOP_SCREEN_H
#define DKPF_TOOLS_TOP_SCREEN_H

#include <string>
#include <vector>

#include "perf/reading.h"

namespace dkpf {

enum class Look { Plain, Bold, Loud };

struct ScreenLine {
    std::string text;  // UTF-8, without line end
    Look        look = Look::Plain;
};

/* Scaled values, at most 8 letters each, rounded to three digits: "1023 B", "1.50 MiB", "16.0 EiB"; "999 us", "1.00
 * ms", "86399 s", ">= 1 day"; "100 %". */
std::string BytesText(ULONGLONG bytes);
std::string MicrosecondsText(ULONGLONG us);
std::string PercentText(ULONGLONG percent);

/* What a reading says about its sample, worst last. */
enum class TopState {
    Live,        // its values stand
    Waiting,     // read, but there are no values yet
    Late,        // samples that are due have not come; the values are not too old yet
    Dead,        // the sample is too old for its values to be shown
    Unavailable  // nothing can be read
};
TopState StateOf(const Reading& reading);

/* "NO NEW SAMPLE for 63 s; why": one line about any state but Live, where it is empty. oldValues is put behind the age
 * of a dead sample. */
std::string StateText(const Reading& reading, const std::string& oldValues = std::string());

/* Which disks a screen with too few lines shows; the total always stays. */
struct TopScroll {
    size_t first = 0;  // disks that are left out above; TopScreen takes back what goes past the last one
    size_t page = 0;   // disks that the screen had lines for, as TopScreen found
};

/* The screen: at most height lines of at most width letters. Columns that do not fit are left out, the least important
 * first; disks that do not fit are counted. width and height are at least 1. */
std::vector<ScreenLine> TopScreen(const Reading& reading, const CounterNames& names, const std::string& computer,
                                  int width, int height, TopScroll* scroll);

/* Plain lines: the heading, and one line for each row of a reading. Each ends with LF. */
std::string TopHeading(const Reading& reading, const CounterNames& names, const std::string& computer);
std::string TopLines(const Reading& reading);

}  // namespace dkpf

#endif
