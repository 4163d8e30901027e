#include "doubles/tnwdiskfltr_double.h"

#include <string.h>

FilterDouble* FilterDouble::current = nullptr;

FilterDouble::FilterDouble(Journal& journal) : m_journal(journal), m_replies{ Reply(Record()) }
{
    current = this;
}

FilterDouble::~FilterDouble()
{
    current = nullptr;
}

void FilterDouble::Script(std::vector<Reply> replies)
{
    m_replies = std::move(replies);
    m_next = 0;
}

DWORD FilterDouble::Answer(void* buffer)
{
    static const char name[] = "TnwDkfltrGetMirrorPerformance";
    ULONGLONG         header = 0;
    m_calls++;
    if (buffer != nullptr) {
        memcpy(&header, buffer, sizeof header);
    }
    std::string args = buffer == nullptr ? "NULL" : "header " + Hex(header);
    if (auto planned = m_journal.Count(name)) {
        DWORD error = planned->fails ? planned->error : static_cast<DWORD>(planned->value);
        m_journal.Record(name, args, std::to_string(error));
        return error;
    }
    if (buffer == nullptr || header != VELCOR_REQUEST_HEADER) {
        m_journal.Record(name, args, std::to_string(ERROR_INVALID_PARAMETER));
        return ERROR_INVALID_PARAMETER;
    }
    const Reply& reply = m_replies[m_next];
    if (m_next + 1 < m_replies.size()) {
        m_next++;
    }
    if (reply.error == 0) {
        memcpy(buffer, &reply.record, sizeof reply.record);
    }
    m_journal.Record(name, args, std::to_string(reply.error));
    return reply.error;
}

DWORD TnwDkfltrGetMirrorPerformance(void* lpBuffer)
{
    return FilterDouble::current->Answer(lpBuffer);
}
