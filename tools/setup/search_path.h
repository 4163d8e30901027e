/*
 * Folders in a PATH value, compared as the system does: letters of either case, a closing backslash or none.
 */
#ifndef DKPF_TOOLS_SETUP_SEARCH_PATH_H
#define DKPF_TOOLS_SETUP_SEARCH_PATH_H

#include <string>

namespace dkpf {

bool HoldsFolder(const std::wstring& path, const std::wstring& folder);
/* Behind the last one. Taking it out again gives the same letters as before. */
std::wstring WithFolder(const std::wstring& path, const std::wstring& folder);
std::wstring WithoutFolder(const std::wstring& path, const std::wstring& folder);

}  // namespace dkpf

#endif
