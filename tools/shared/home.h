/*
 * The home directory of an installation: the parent of bin, found from the running program's own path. No environment
 * variable and no registry value is asked, so that two installations on one machine cannot be mixed up.
 */
#ifndef DKPF_TOOLS_HOME_H
#define DKPF_TOOLS_HOME_H

#include <string>

namespace dkpf {

struct Home {
    std::wstring root;  // without a closing backslash

    std::wstring Bin() const;
    std::wstring Etc() const;
    std::wstring Log() const;
    std::wstring Perf() const;
    std::wstring ConfigFile() const;
    std::wstring StateFile() const;
    std::wstring EventLog() const;
    std::wstring ModuleLog() const;
};

/* Home of a program whose whole path is given: two path elements are cut off. Empty root where there are not that many.
 */
Home HomeOfModulePath(const std::wstring& modulePath);

/* Home of the running program. */
Home HomeOfThisProgram();

}  // namespace dkpf

#endif
