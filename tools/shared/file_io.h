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

inline constexpr int   REPLACE_TRIES = 20;
inline constexpr DWORD REPLACE_WAIT_MS = 25;

/**
 * A file's new content, prepared beside it as PATH.new and put in its place in one step: a reader sees the old content
 * or the new one. The open PATH.new is a lock as well: while one program prepares it no other one can, and it is held
 * until the new content is in place. What a killed program left behind, the next one writes over.
 * Calls come in the order Open, Write, any look at Beside() by readers, KeepRights, Put. Each answers 0 or the system's
 * error number; unless Put succeeded the old content stands and the end of the object removes PATH.new.
 */
class PendingFile {
public:
    PendingFile(std::wstring path, WaitFn wait);
    ~PendingFile();
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    /* Another program that prepares the file is waited for, REPLACE_TRIES times REPLACE_WAIT_MS; then
     * ERROR_SHARING_VIOLATION. */
    DWORD Open();
    DWORD Write(std::string_view content);  // all of it, and flushed
    DWORD KeepRights();                     // gives the new file the old one's access list; none: nothing to keep
    DWORD Put();                            // a reader that holds the old file is waited for as above

    const std::wstring& Beside() const
    {
        return m_beside;
    }

private:
    std::wstring m_path;
    std::wstring m_beside;
    WaitFn       m_wait;
    HANDLE       m_file = INVALID_HANDLE_VALUE;
    bool         m_put = false;
};

/**
 * Replaces a file in one step, with the rights that a new file in its folder has. May block as PendingFile does.
 * @return 0, or the system's error number; the old content then stands
 */
DWORD ReplaceWholeFile(const std::wstring& path, std::string_view content, const WaitFn& wait);

}  // namespace dkpf

#endif
