/*
 * Takes the product off the machine.
 */
#ifndef DKPF_TOOLS_SETUP_UNINSTALL_H
#define DKPF_TOOLS_SETUP_UNINSTALL_H

#include "changes.h"

namespace dkpf {

struct UninstallOptions {
    std::wstring home;           // whole path, no closing backslash
    bool         purge = false;  // logs, CSV files and whatever else stands in the product's folders go too
};

/* Where the product is registered, wherever this program lies; else the folder that install takes by itself. */
std::wstring RegisteredHome(Machine& machine);

/**
 * Takes back by name all that set-up and the running product make, in the reverse order, and says each step. Goes on
 * behind what is gone already and behind what cannot be removed. A file that a program still uses, dkpfctl's own among
 * them, is moved aside and goes at the next restart, and so does a folder that is not empty before. Where no file of
 * the product stands in home, purge leaves foreign files.
 * @return TRUE: nothing is left, apart from what goes at the restart. FALSE: what is left was said, with the reason
 * May block for 370 s, where an agent takes its time to stop.
 */
bool Uninstall(Machine& machine, const UninstallOptions& options, const SayFn& say);

}  // namespace dkpf

#endif
