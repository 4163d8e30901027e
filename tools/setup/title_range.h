/*
 * The range of title indexes under which the system knows the object and its counters.
 */
#ifndef DKPF_TOOLS_SETUP_TITLE_RANGE_H
#define DKPF_TOOLS_SETUP_TITLE_RANGE_H

#include "machine.h"

namespace dkpf {

/* The service's own: TRUE where first and last numbers of titles and help texts stand and fit each other. */
bool ReadTitleRange(Machine& machine, DWORD* firstCounter);

/* An even number from 2000 on, behind which no service's titles and help texts stand, nor the system's own. */
DWORD FreeTitleRange(Machine& machine);

inline constexpr DWORD   FIRST_FREE_TITLE = 2000;
inline constexpr wchar_t SERVICES_KEY[] = L"SYSTEM\\CurrentControlSet\\Services";
inline constexpr wchar_t PERFLIB_KEY[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Perflib";

}  // namespace dkpf

#endif
