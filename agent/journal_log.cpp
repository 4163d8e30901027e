#include "journal_log.h"

#include "console_out.h"
#include "text.h"

namespace dkpf {

JournalLog::JournalLog(bool console) : m_console(console)
{
}

JournalLog::~JournalLog()
{
    if (m_log != nullptr)
        log_term(m_log);
}

void JournalLog::Open(DWORD level, DWORD sizeKiB)
{
    log_init("diskperf", &m_log, level, sizeKiB, 0, "osktnw_diskperf_log");
}

void JournalLog::Line(DWORD level, const SourcePlace& place, const std::string& text)
{
    log_write(m_log, level, 0, place.source, place.line, place.routine, "%s", ToAnsi(text).c_str());
    if (!m_console)
        return;
    const size_t start = text.find_first_not_of(' ');
    const bool   wrong = (level & (TNWLOG_ERROR | TNWLOG_WARNING)) != 0;
    (wrong ? PrintError : Print)("dkpfagent: " + text.substr(start == std::string::npos ? 0 : start) + "\n");
}

}  // namespace dkpf
