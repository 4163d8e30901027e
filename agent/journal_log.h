/*
 * The agent's lines in the product's module log and, in the foreground, on the console.
 */
#ifndef DKPF_AGENT_JOURNAL_LOG_H
#define DKPF_AGENT_JOURNAL_LOG_H

#include "agent_ports.h"
#include "tnwlog.h"

namespace dkpf {

/* Line may be called from any thread once Open is done. */
class JournalLog : public Journal {
public:
    explicit JournalLog(bool console);
    ~JournalLog() override;
    JournalLog(const JournalLog&) = delete;
    JournalLog& operator=(const JournalLog&) = delete;

    void Open(DWORD level, DWORD sizeKiB) override;
    void Line(DWORD level, const SourcePlace& place, const std::string& text) override;

private:
    bool    m_console;
    HTNWLOG m_log = nullptr;
};

}  // namespace dkpf

#endif
