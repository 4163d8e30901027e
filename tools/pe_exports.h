/*
 * What a DLL exports, read from its file: nothing of it runs.
 */
#ifndef DKPF_TOOLS_PE_EXPORTS_H
#define DKPF_TOOLS_PE_EXPORTS_H

#include <string>
#include <string_view>
#include <vector>

namespace dkpf {

/**
 * Names in the export table of a 64-bit image.
 * @param file   the whole file; nothing in it is trusted
 * @param names  receives the names, in the table's order; empty where there is no table
 * @return FALSE where the file is cut off, damaged, or no 64-bit image
 */
bool ReadExports(std::string_view file, std::vector<std::string>* names);

}  // namespace dkpf

#endif
