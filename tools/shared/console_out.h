/*
 * Text to the standard handles. A console gets UTF-16, since its code page may be any; a pipe or a file gets the UTF-8
 * bytes. Lines end CR LF in both.
 */
#ifndef DKPF_TOOLS_CONSOLE_OUT_H
#define DKPF_TOOLS_CONSOLE_OUT_H

#include <string>
#include <string_view>

namespace dkpf {

/* Standard output, standard error. FALSE: it could not be written, since the reader of a pipe is gone or the disk is
 * full. */
bool Print(std::string_view utf8);
bool PrintError(std::string_view utf8);

/* Each LF that has no CR in front of it gets one. */
std::string WithCrLf(std::string_view text);

}  // namespace dkpf

#endif
