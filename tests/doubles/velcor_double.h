/*
 * Double of the mirror-disk driver behind the control device: answers the performance request from a script and keeps
 * what it was asked. It answers through Os, which owns CreateFileA and DeviceIoControl.
 *
 * It judges requests as the driver does: tests/contract runs the same cases on both. The private codes are left out,
 * and so are the peaks that a request resets: a script says what each reply holds.
 */
#ifndef TESTS_DOUBLES_VELCOR_DOUBLE_H
#define TESTS_DOUBLES_VELCOR_DOUBLE_H

#include <vector>

#include "doubles/mirror_record.h"

class DriverDouble {
public:
    struct Reply {
        DWORD         error = 0;   // not 0: the request itself fails with this Win32 error, nothing is written
        DWORD         status = 0;  // status word of the reply; not 0: the record stays the caller's own
        VELCOR_RECORD record = {};
        Reply(const Record& r) : record(r.record)
        {
        }
        static Reply Error(DWORD error)
        {
            Reply reply{ Record() };
            reply.error = error;
            return reply;
        }
        static Reply Status(DWORD status)
        {
            Reply reply{ Record() };
            reply.status = status;
            return reply;
        }
    };
    struct Request {
        DWORD     code;
        DWORD     inSize;
        DWORD     outSize;
        DWORD     length;  // length word of the request
        ULONGLONG header;  // header word of the request
    };

    /* Replies in order; the last one is repeated for ever. Without a script every request is answered by an empty
     * record. */
    void Script(std::vector<Reply> replies)
    {
        m_replies = std::move(replies);
        m_next = 0;
    }
    /* False: the driver is not loaded, the device cannot be opened (error 2). */
    bool loaded = true;
    /* As by the service manager. A stop makes the handles that are open then dead for good, a start begins with empty
     * records. */
    void Stop();
    void Start();
    /* Which start the driver runs since: a handle remembers that of its opening. */
    unsigned Life() const
    {
        return m_life;
    }

    std::vector<Request> requests;

    /* Answers one request; returns 0 or the Win32 error. */
    DWORD Answer(DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize, DWORD* returned);

private:
    std::vector<Reply> m_replies{ Reply(Record()) };
    size_t             m_next = 0;
    unsigned           m_life = 1;
};

#endif
