/*
 * What kind of machine and account this is.
 */
#ifndef DKPF_TOOLS_SYSTEM_INFO_H
#define DKPF_TOOLS_SYSTEM_INFO_H

#include <string>

namespace dkpf {

/* Empty where the system does not say it. */
std::string ComputerName();

/* Whether this process acts with the rights of the administrators' group, which a filtered token has not. */
bool IsAdministrator();

/* A system whose loader of counter names is a stub, and that keeps some settings of services to itself. */
bool IsWine();

/* Where the system loads its drivers from; no backslash at the end. */
std::wstring DriverFolderOfSystem();

}  // namespace dkpf

#endif
