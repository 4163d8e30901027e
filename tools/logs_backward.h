/*
 * The lines of an open file from its end to its beginning.
 */
#ifndef DKPF_TOOLS_LOGS_BACKWARD_H
#define DKPF_TOOLS_LOGS_BACKWARD_H

#include <string>

#include "logs_reader.h"

namespace dkpf {

class LinesBackward {
public:
    /* What lies behind end is left out. */
    LinesBackward(LogFile* file, ULONGLONG end);

    /* The line in front of the last one given. FALSE: there is none, or Error says why it cannot be read. */
    bool  Previous();
    DWORD Error() const;  // ERROR_SUCCESS, or the system's number

    const std::string& Text() const;     // with its line end; of a long line LOG_LINE_BOUND bytes
    ULONGLONG          At() const;       // where it begins; before the first Previous the end
    bool               IsWhole() const;  // it has its line end

private:
    bool Read(ULONGLONG at, char* to, DWORD size);
    bool ReadFront();

    LogFile*    m_file;
    ULONGLONG   m_from;  // where m_data begins in the file
    std::string m_data;  // what is not given yet; of a long line that is being read its front and its last byte
    bool        m_long = false;
    std::string m_text;
    ULONGLONG   m_at;
    bool        m_whole = true;
    DWORD       m_error = 0;
};

}  // namespace dkpf

#endif
