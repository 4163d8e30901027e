/*
 * The product's result codes in words.
 */
#ifndef DKPF_TOOLS_RESULT_CODES_H
#define DKPF_TOOLS_RESULT_CODES_H

#include <windows.h>
#include <string>

namespace dkpf {

/* "0xb000001a: the region could not be created or opened; ..." what it means and what to do. */
std::string ResultText(DWORD code);

}  // namespace dkpf

#endif
