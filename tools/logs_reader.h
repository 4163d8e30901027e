/*
 * One log over all its generations, read while others write and rotate it. Reads in blocks, so that its size does not
 * matter, and knows each file by its id, so that a rename does not matter.
 *
 * A rotation moves each file to the next higher number, in an order that leaves gaps, and never moves one down. So a
 * look at the numbers from 0 upward sees every file at least once, whatever is renamed meanwhile, but those made since.
 * What it sees twice has the same id, and in the order in which the files were seen for the last time they stand newest
 * first. The files stay open as long as they have a name: an id can thus not be given to another file.
 */
#ifndef DKPF_TOOLS_LOGS_READER_H
#define DKPF_TOOLS_LOGS_READER_H

#include <windows.h>
#include <array>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "event_log.h"
#include "logs_filter.h"
#include "logs_record.h"

namespace dkpf {

/* Unique in the folder for as long as the file is held open or has a name. Without the volume: it is the same for all,
 * and asking for it while the file is being renamed may fail. */
using LogFileId = ULONGLONG;

/* An open file. Stays the same one, whatever it is renamed to. */
class LogFile {
public:
    virtual ~LogFile() = default;
    virtual LogFileId Id() const = 0;
    virtual ULONGLONG Size() = 0;  // bytes, now
    /* 0 or the system's error number; *got is less than size at the end alone. */
    virtual DWORD Read(ULONGLONG at, char* to, DWORD size, DWORD* got) = 0;
};

/* HOME/log, or a test's picture of it. */
class LogFolder {
public:
    virtual ~LogFolder() = default;
    /* generation 0 is the current file. 0 or the system's error number. */
    virtual DWORD Open(const std::string& log, int generation, std::unique_ptr<LogFile>* file) = 0;
};

inline constexpr unsigned LOG_CLOCK_BACK_H = 2;  // a clock set back by up to so many hours hides no line

inline constexpr size_t LOG_LINE_BOUND = 64 * 1024;  // of a longer line, which is none of ours, this much is shown
inline constexpr size_t LOG_BLOCK = 64 * 1024;       // bytes of one read

/* Says in words what could not be read. */
using LogNote = std::function<void(const std::string&)>;

/* A line that was read. Its record lies in its text: not to be copied. */
struct LogLine {
    LogLine() = default;
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    std::string text;  // UTF-8, no line end
    bool        isRecord = false;
    LogRecord   record;
    std::string time;  // its own, or that of the record in front of it
};

class LogReader {
public:
    /* follow: a last line without its end is left until it has one. folder outlives the reader. */
    LogReader(const LogSource& source, const LogFilter& filter, bool follow, LogFolder* folder, LogNote note);
    ~LogReader();
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;

    /* What the writers did since the last look. Until the next one the log ends where it ends now. */
    void Look();

    /* At most so many of the last lines that match lie ahead then; returns how many do. Right behind the first Look. */
    size_t GoToLast(size_t count);

    /* The next line that matches. nullptr: none up to the end. Stays until Advance or Look. */
    const LogLine* Head();
    void           Advance();

    const LogSource& Source() const;
    bool             Found() const;   // any file was there, ever
    DWORD            Error() const;   // of the last look: why no file was there
    bool             Failed() const;  // something could not be read, a note said what
    size_t           Unread() const;  // lines so far that are no records

private:
    struct Generation;

    std::vector<std::unique_ptr<Generation>> OpenNewer(bool first);
    bool                                     Holds(LogFileId id) const;
    void                                     DropNameless();
    void                                     DropTooOld();
    void                                     SeeEnd(Generation* generation);
    bool                                     NextText(std::string* text);
    bool                                     NextTextOf(Generation* generation, std::string* text);
    bool                                     Fill(Generation* generation);
    void                                     Take(Generation* generation, size_t size);
    size_t                                   GoBackIn(Generation* generation, size_t count);
    bool                                     MatchesText(const std::string& text) const;
    void                                     Fail(const std::string& words);
    void                                     FailRead(Generation* generation, DWORD error);
    std::string                              FileName(int generation) const;

    const LogSource&                         m_source;
    const LogFilter                          m_filter;
    const bool                               m_follow;
    LogFolder*                               m_folder;
    LogNote                                  m_note;
    std::vector<std::unique_ptr<Generation>> m_generations;  // oldest first
    std::string                              m_block;        // read from m_blockOf
    const Generation*                        m_blockOf = nullptr;
    size_t                                   m_used = 0;  // bytes of m_block in front of its m_at
    LogLine                                  m_head;
    bool                                     m_hasHead = false;
    bool                                     m_found = false;
    bool                                     m_failed = false;
    std::array<bool, LOG_GENERATIONS + 1>    m_saidHeld{};  // by number: a note said so, and it is not over
    DWORD                                    m_error = 0;
    size_t                                   m_unread = 0;
};

}  // namespace dkpf

#endif
