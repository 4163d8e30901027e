/*
 * How dkpfctl query comes to one interval.
 */
#ifndef DKPF_TOOLS_QUERY_WAIT_H
#define DKPF_TOOLS_QUERY_WAIT_H

#include <functional>
#include <string>

#include "reader.h"

namespace dkpf {

/* A test passes its own. */
struct WaitPorts {
    std::function<DWORD()>                  tick;  // ms; may wrap
    std::function<void(DWORD)>              wait;  // ms
    std::function<void(const std::string&)> say;   // a progress line
};

inline constexpr DWORD QUERY_STEP_MS = 200;    // between two looks
inline constexpr DWORD QUERY_QUIET_MS = 2000;  // from then on a progress line says what is waited for

/**
 * One reading, Fresh, or Unavailable with the reason.
 * @param intervalS  0: the first interval that the samples give. Otherwise that many seconds are waited before, in
 * which nothing is collected, and the reading covers them. Waits for a new sample at most as long as a sample may be
 * old; a sample that is older already is dead, and nobody waits for it.
 */
Reading ReadInterval(IntervalSource& source, DWORD intervalS, const WaitPorts& ports);

}  // namespace dkpf

#endif
