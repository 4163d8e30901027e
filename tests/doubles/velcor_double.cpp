#include "doubles/velcor_double.h"

#include <string.h>

#include <algorithm>

void DriverDouble::Stop()
{
    loaded = false;
    m_life++;
}

void DriverDouble::Start()
{
    loaded = true;
    Script({ Reply(Record()) });
}

DWORD DriverDouble::Answer(DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize, DWORD* returned)
{
    VELCOR_EXCHANGE request = {};
    memcpy(&request, in, std::min<size_t>(inSize, sizeof request));
    requests.push_back(Request{ code, inSize, outSize, request.length, request.record.header });
    if (code != VELCOR_GET_PERFORMANCE) {
        return ERROR_INVALID_FUNCTION;
    }
    if (inSize < sizeof request || outSize < sizeof request) {
        return ERROR_INSUFFICIENT_BUFFER;
    }

    const Reply& reply = m_replies[m_next];
    const bool   whole = request.record.header == VELCOR_REQUEST_HEADER && request.length == VELCOR_RECORD_LENGTH;
    // A request that is itself wrong hands nothing over: the script stays where it is, unless it refuses every request.
    if ((whole || reply.error != 0) && m_next + 1 < m_replies.size()) {
        m_next++;
    }
    if (reply.error != 0) {
        return reply.error;
    }
    VELCOR_EXCHANGE answer = request;
    if (request.record.header != VELCOR_REQUEST_HEADER) {
        answer.status = VELCOR_STATUS_BAD_HEADER;
    } else if (request.length != VELCOR_RECORD_LENGTH) {
        answer.status = VELCOR_STATUS_BAD_LENGTH;
    } else {
        answer.status = reply.status;
        if (answer.status == 0) {
            answer.record = reply.record;
        }
    }
    memcpy(out, &answer, sizeof answer);
    *returned = sizeof answer;
    return 0;
}
