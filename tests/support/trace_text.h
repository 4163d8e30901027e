/*
 * Trace lines as the product writes them, for whole comparisons.
 */
#ifndef TESTS_SUPPORT_TRACE_TEXT_H
#define TESTS_SUPPORT_TRACE_TEXT_H

#include <stdarg.h>

#include "doubles/tnwlog_double.h"

/* A text with the formats of the trace library: pointers look different in the compiler's own run-time. */
inline std::string TextOf(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = FormatText(format, args);
    va_end(args);
    return text;
}

/* "log level text" of each line that the routine wrote on the levels, in order. The log is empty where none was open;
 * another source than the routine's unit shows. */
inline std::vector<std::string> TraceLinesOf(const LogDouble& log, const std::string& unit, const std::string& routine,
                                             DWORD levels)
{
    std::vector<std::string> texts;
    for (const TraceLine& line : log.lines) {
        if (line.routine == routine && (line.level & levels) != 0) {
            texts.push_back(line.log + " " + std::to_string(line.level) + " " + line.text +
                            (line.source == "diskperf/src/diskperf_" + unit ? "" : " from " + line.source));
        }
    }
    return texts;
}

#endif
