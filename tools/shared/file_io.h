/*
 * Whole files, read and replaced.
 */
#ifndef DKPF_TOOLS_FILE_IO_H
#define DKPF_TOOLS_FILE_IO_H

#include <windows.h>
#include <functional>
#include <string>
#include <string_view>

namespace dkpf {

/* Sleeps so many milliseconds; tests pass their own. */
using WaitFn = std::function<void(DWORD)>;

/**
 * Reads a file that others may write, rename or delete meanwhile.
 * @param bound  bytes read at most; what lies behind is left out
 * @return 0, or the system's error number
 */
DWORD ReadWholeFile(const std::wstring& path, size_t bound, std::string* content);

/* Whether two paths lead to one file, whatever drives, short names and links they go through. FALSE also where one of
 * them cannot be opened. */
bool SameFile(const std::wstring& one, const std::wstring& other);

/**
 * Replaces a file in one step: written beside it as PATH.new, flushed, then renamed over it. A reader sees the old
 * content or the new one. A reader that holds the file delays the rename; it is tried REPLACE_TRIES times,
 * REPLACE_WAIT_MS apart.
 * @return 0, or the system's error number; the old content then stands
 */
DWORD ReplaceWholeFile(const std::wstring& path, std::string_view content, const WaitFn& wait);

inline constexpr int   REPLACE_TRIES = 20;
inline constexpr DWORD REPLACE_WAIT_MS = 25;

}  // namespace dkpf

#endif
