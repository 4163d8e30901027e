/*
 * The one thing that dkpfctl doctor mends by itself: a provider that the system has switched off.
 */
#ifndef DKPF_TOOLS_DOCTOR_FIX_H
#define DKPF_TOOLS_DOCTOR_FIX_H

#include <string>

#include "doctor_facts.h"

namespace dkpf {

class FixPort {
public:
    virtual ~FixPort() = default;
    /* Takes the value away that keeps the provider from being called. @return 0, or the system's error number */
    virtual DWORD EnableProvider() = 0;
};

/* The machine's own registry. */
FixPort& SystemFix();

enum class FixState {
    NotNeeded,
    Done,
    Refused,  // an open would fail now, and the system would switch the provider off again
    Failed    // the registry
};

struct FixResult {
    FixState    state = FixState::NotNeeded;
    std::string text;  // one sentence without a period
};

FixResult FixProvider(const DoctorFacts& facts, FixPort& port);

/* "not_needed", "done", "refused", "failed" */
const char* FixStateText(FixState state);

}  // namespace dkpf

#endif
