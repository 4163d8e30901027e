/*
 * Double of tnwlog: the ten routines under their own names, in memory.
 *
 * The routines work on the one LogDouble that is alive. Programs that link this library instead of the import library
 * of tnwlog.dll get the double; unit tests also put its routines into the import table of the library under test.
 *
 * What the double answers and what it keeps as written is that of the library: tests/contract runs the same cases on
 * both. It leaves out what no caller can see: the prefix of a trace line and its cut at 16 KiB, generations that the
 * library deletes in time (here all stay), files of other programs, and the texts of events by their number.
 */
#ifndef TESTS_DOUBLES_TNWLOG_DOUBLE_H
#define TESTS_DOUBLES_TNWLOG_DOUBLE_H

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "doubles/journal.h"
#include "tnwlog.h"

struct TraceLine {
    std::string log;  // name given to log_init; empty: written without a log
    DWORD       level;
    DWORD       message;  // event ID, or 0
    std::string source;
    int         line;
    std::string routine;
    std::string text;             // line breaks are blanks, as in the file
    bool        written = false;  // the log's level lets the line into its file
};

/* A CSV file: what a reader of its newest generation and its history would see. */
struct CsvFile {
    std::string              name;
    bool                     open = false;
    unsigned                 opened = 0;  // successful log_util_init calls
    DWORD                    size = 0;    // KiB
    DWORD                    generations = 0;
    DWORD                    maxLine = 0;
    std::string              header;   // in force now
    std::vector<std::string> headers;  // of each generation, oldest first
    std::vector<std::string> lines;    // of all generations, oldest first
    unsigned                 rotations = 0;

    std::vector<std::vector<std::string>> files;  // of each generation, oldest first: headers and lines as they stand
    const void*                           writer = nullptr;   // the handle whose file this is; others wait for its end
    bool                                  movedAway = false;  // the newest of them, from under its writer
};

class LogDouble {
public:
    explicit LogDouble(Journal& journal);
    ~LogDouble();
    LogDouble(const LogDouble&) = delete;
    LogDouble& operator=(const LogDouble&) = delete;

    /* Opens a trace log as log_init would, unrecorded: for cases that begin with open logs. */
    HTNWLOG OpenTrace(const std::string& name);

    /* Every log_write in order, whatever level the log was opened with. */
    std::vector<TraceLine> lines;
    /* Texts in order, of one log (empty: all logs), with one of the level bits. */
    std::vector<std::string> Texts(const std::string& log = "", DWORD levels = 0xFFFFFFFF) const;
    /* Texts of one routine, without its entry and exit lines. */
    std::vector<std::string> TextsOf(const std::string& routine, DWORD levels = 0xFFFFFFFF) const;
    std::vector<std::string> Errors() const
    {
        return Texts("", TNWLOG_ERROR);
    }
    bool Has(const std::string& text) const;
    /* Event IDs in order, of the entries that the library makes: not without a log, nor without an ID. */
    std::vector<DWORD> Events() const;
    void               ClearLines()
    {
        lines.clear();
    }

    /* Trace logs open now, by name, and what they were opened with. */
    struct Trace {
        std::string name, key;
        DWORD       level = 0, size = 0, reserved = 0;
        bool        open = true;
    };
    std::vector<std::string> OpenTraces() const;
    std::vector<Trace>       TraceHistory() const;
    void                     ForgetTraces();

    /* Message strings by number; a number that is not there answers TNWLOG_NO_SUCH_MESSAGE. Starts with the product's.
     */
    std::map<DWORD, std::string> strings;
    unsigned                     openTables = 0;

    /* CSV files by base name, and a status that all operations of one kind on one file answer. */
    std::map<std::string, CsvFile> csv;
    std::map<std::string, DWORD>   failInit, failWrite, failRotate;
    std::vector<std::string>       OpenCsv() const;

    /* The n-th call of a routine answers the status: log.Fail("log_init", 2, TNWLOG_NO_MEMORY). */
    void Fail(const std::string& routine, unsigned nth, DWORD status, unsigned times = 1);

    /* log_write leaves this as the last error, so that a GetLastError after a trace shows; 0: leave it alone. */
    DWORD spoilLastError = 0xDEAD;

    // What the routines do; called by them alone.
    DWORD Init(const char* name, HTNWLOG* log, DWORD level, DWORD size, DWORD reserved, const char* key);
    DWORD Term(HTNWLOG log);
    void  Write(HTNWLOG log, DWORD level, DWORD message, const char* source, int line, const char* routine,
                const char* format, va_list args);
    DWORD LoadStrings(const char* component, DWORD reserved, HTNWSTRINGS* table);
    DWORD FreeStrings(HTNWSTRINGS table);
    DWORD Format(HTNWSTRINGS table, DWORD number, char* text, DWORD size, DWORD reserved);
    DWORD CsvInit(const char* name, HTNWCSV* file, DWORD flags, DWORD reserved1, DWORD size, DWORD generations,
                  DWORD maxLine, const char* header, DWORD reserved2, DWORD reserved3);
    DWORD CsvTerm(HTNWCSV file);
    DWORD CsvWrite(HTNWCSV file, const char* format, va_list args);
    DWORD CsvRotate(HTNWCSV file, DWORD maxLine, const char* header);

    static LogDouble* current;

private:
    /* What stands behind one handle of a CSV file. */
    struct CsvHandle {
        CsvFile*    file;
        std::string header;
        DWORD       size, generations, maxLine;
        bool        rotateDue = false;  // a generation is to be started before the next line
        bool        headed = false;     // the last header in the file is this one
    };

    Trace*      Find(HTNWLOG log);
    CsvHandle*  Find(HTNWCSV file);
    DWORD       Prepare(HTNWCSV file, CsvHandle& handle, DWORD* rotate);
    static void StartGeneration(CsvHandle& handle);
    DWORD       Answer(const char* routine, const std::string& args, DWORD status);

    Journal&                            m_journal;
    mutable std::recursive_mutex        m_lock;
    std::vector<std::unique_ptr<Trace>> m_traces;  // never shrinks: a handle is the address
    std::set<const void*>               m_tables;
    std::vector<std::unique_ptr<char>>  m_tableHandles;
    std::map<const void*, CsvHandle>    m_csvHandles;  // open ones
    std::vector<std::unique_ptr<char>>  m_secondHandles;
};

#endif
