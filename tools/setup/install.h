/*
 * Puts the product in place and registers it.
 */
#ifndef DKPF_TOOLS_SETUP_INSTALL_H
#define DKPF_TOOLS_SETUP_INSTALL_H

#include "changes.h"

namespace dkpf {

struct InstallOptions {
    std::wstring source;         // folder that holds bin, etc and driver
    std::wstring home;           // whole path, no closing backslash; may be the source
    bool         driver = true;  // FALSE: a real driver feeds the agent; driver and feeder are left alone
};

/**
 * Goes through all steps and says each with its result. What is there already stays untouched, so that a run after a
 * killed one completes it and a second run changes nothing. Where a step fails, all steps before are taken back.
 * @return TRUE: installed. FALSE: the reason was said, and what could not be taken back
 * May block for 370 s, where an agent takes its time to stop, and as long again where that is taken back.
 */
bool Install(Machine& machine, const InstallOptions& options, const SayFn& say);

}  // namespace dkpf

#endif
