/*
 * The machine that dkpfctl runs on.
 */
#ifndef DKPF_TOOLS_SETUP_WIN32_MACHINE_H
#define DKPF_TOOLS_SETUP_WIN32_MACHINE_H

#include "machine.h"

namespace dkpf {

Machine& ThisMachine();

/* The product's folder below the system's program files. */
std::wstring DefaultHome(Machine& machine);

/* Absolute, without a closing backslash. Empty where the path cannot be read. */
std::wstring WholePath(const std::wstring& path);

}  // namespace dkpf

#endif
