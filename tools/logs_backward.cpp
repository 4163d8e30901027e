#include "logs_backward.h"

#include <algorithm>

namespace dkpf {

LinesBackward::LinesBackward(LogFile* file, ULONGLONG end) : m_file(file), m_from(end), m_at(end)
{
}

const std::string& LinesBackward::Text() const
{
    return m_text;
}

ULONGLONG LinesBackward::At() const
{
    return m_at;
}

bool LinesBackward::IsWhole() const
{
    return m_whole;
}

DWORD LinesBackward::Error() const
{
    return m_error;
}

/* All of it, or FALSE. */
bool LinesBackward::Read(ULONGLONG at, char* to, DWORD size)
{
    DWORD got = 0;
    m_error = m_file->Read(at, to, size, &got);
    if (m_error == ERROR_SUCCESS && got != size)
        m_error = ERROR_HANDLE_EOF;  // cut short by hand meanwhile
    return m_error == ERROR_SUCCESS;
}

bool LinesBackward::ReadFront()
{
    if (m_data.size() > LOG_LINE_BOUND) {
        m_data.erase(0, m_data.size() - 1);
        m_long = true;
    }
    const DWORD size = static_cast<DWORD>(std::min<ULONGLONG>(LOG_BLOCK, m_from));
    std::string block(size, '\0');
    if (!Read(m_from - size, block.data(), size))
        return false;
    m_from -= size;
    m_data.insert(0, block);
    return true;
}

bool LinesBackward::Previous()
{
    size_t before = std::string::npos;  // the line end of the line in front
    m_long = false;
    for (;;) {
        if (m_data.size() > 1)
            before = m_data.rfind('\n', m_data.size() - 2);
        if (before != std::string::npos || m_from == 0)
            break;
        if (!ReadFront())
            return false;
    }
    if (m_data.empty())
        return false;
    const size_t begin = before == std::string::npos ? 0 : before + 1;
    m_at = m_from + begin;
    m_whole = m_data.back() == '\n';
    m_text = m_data.substr(begin);
    m_data.resize(begin);
    if (m_long || m_text.size() > LOG_LINE_BOUND) {
        m_text.resize(LOG_LINE_BOUND);
        if (!Read(m_at, m_text.data(), static_cast<DWORD>(LOG_LINE_BOUND)))
            return false;
    }
    return true;
}

}  // namespace dkpf
