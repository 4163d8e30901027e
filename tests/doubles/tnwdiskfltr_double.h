/*
 * Double of tnwdiskfltr: its one routine under its own name, answering from a script. It judges the request as the
 * library does: tests/contract runs the same cases on both. Peaks are the script's, no call resets them.
 */
#ifndef TESTS_DOUBLES_TNWDISKFLTR_DOUBLE_H
#define TESTS_DOUBLES_TNWDISKFLTR_DOUBLE_H

#include <vector>

#include "doubles/journal.h"
#include "doubles/mirror_record.h"
#include "tnwdiskfltr.h"

class FilterDouble {
public:
    explicit FilterDouble(Journal& journal);
    ~FilterDouble();
    FilterDouble(const FilterDouble&) = delete;
    FilterDouble& operator=(const FilterDouble&) = delete;

    struct Reply {
        DWORD         error = 0;  // Win32 error number; the buffer then stays untouched
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
    };

    /* Replies in order; the last one is repeated for ever. Without a script every call answers an empty record. */
    void     Script(std::vector<Reply> replies);
    unsigned Calls() const
    {
        return m_calls;
    }

    DWORD                Answer(void* buffer);
    static FilterDouble* current;

private:
    Journal&           m_journal;
    std::vector<Reply> m_replies;
    size_t             m_next = 0;
    unsigned           m_calls = 0;
};

#endif
