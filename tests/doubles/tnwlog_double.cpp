#include "doubles/tnwlog_double.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

LogDouble* LogDouble::current = nullptr;

/* The product's message strings. 18 and 19 do not exist. */
static std::map<DWORD, std::string> ProductStrings()
{
    return {
        { 0, "Transfer Ratio %" },
        { 1, "Request Queue Bytes" },
        { 2, "Request Queue Bytes Peak" },
        { 3, "Unsynchronized Bytes" },
        { 4, "Unsynchronized Bytes Peak" },
        { 5, "Avg. us/Transfer" },
        { 6, "Max. us/Transfer" },
        { 7, "Send Queue Bytes" },
        { 8, "Send Queue Bytes Peak" },
        { 9, "History Buffer Bytes" },
        { 10, "History Buffer Bytes Peak" },
        { 11, "Write Bytes" },
        { 12, "Write Bytes/sec" },
        { 13, "Transfer Memory Bytes" },
        { 14, "Transfer Memory Bytes Peak" },
        { 15, "Avg. us/Write" },
        { 16, "Max. us/Write" },
        { 17, "Write Bytes Sum" },
        { 20, "Transfer Bytes Before Reduction Sum" },
        { 21, "Transfer Bytes Sum" },
        { 22, "Write us Sum" },
        { 23, "Max. us/Write" },
        { 24, "Writes Sum" },
        { 25, "Send Queue Bytes" },
        { 26, "Send Queue Bytes Peak" },
        { 27, "History Buffer Bytes" },
        { 28, "History Buffer Bytes Peak" },
        { 29, "Request Queue Bytes" },
        { 30, "Request Queue Bytes Peak" },
        { 31, "Transfer Memory Bytes" },
        { 32, "Transfer Memory Bytes Peak" },
        { 33, "Unsynchronized Bytes" },
        { 34, "Unsynchronized Bytes Peak" },
        { 35, "Transfer us Sum" },
        { 36, "Max. us/Transfer" },
        { 37, "Transfers Sum" },
        { 38, "(PDH-CSV 4.0)" },
        { 39, "NMP" },
        { 40, "_Total" },
    };
}

LogDouble::LogDouble(Journal& journal) : strings(ProductStrings()), m_journal(journal)
{
    current = this;
}

LogDouble::~LogDouble()
{
    current = nullptr;
}

void LogDouble::Fail(const std::string& routine, unsigned nth, DWORD status, unsigned times)
{
    m_journal.Fail(routine, nth, status, times);
}

std::vector<std::string> LogDouble::Texts(const std::string& log, DWORD levels) const
{
    std::vector<std::string> texts;
    for (const TraceLine& line : lines) {
        if ((log.empty() || line.log == log) && (line.level & levels) != 0) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

std::vector<std::string> LogDouble::TextsOf(const std::string& routine, DWORD levels) const
{
    std::vector<std::string> texts;
    for (const TraceLine& line : lines) {
        if (line.routine == routine && (line.level & levels) != 0 && line.text.rfind("ENTER", 0) != 0 &&
            line.text.rfind("EXIT", 0) != 0) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

bool LogDouble::Has(const std::string& text) const
{
    return std::any_of(lines.begin(), lines.end(), [&](const TraceLine& line) { return line.text == text; });
}

std::vector<DWORD> LogDouble::Events() const
{
    std::vector<DWORD> events;
    for (const TraceLine& line : lines) {
        if ((line.level & TNWLOG_EVENT) != 0) {
            events.push_back(line.message);
        }
    }
    return events;
}

std::vector<std::string> LogDouble::OpenTraces() const
{
    std::vector<std::string> names;
    for (const auto& trace : m_traces) {
        if (trace->open) {
            names.push_back(trace->name);
        }
    }
    return names;
}

std::vector<LogDouble::Trace> LogDouble::TraceHistory() const
{
    std::vector<Trace> history;
    for (const auto& trace : m_traces) {
        history.push_back(*trace);
    }
    return history;
}

void LogDouble::ForgetTraces()
{
    m_traces.clear();
}

std::vector<std::string> LogDouble::OpenCsv() const
{
    std::vector<std::string> names;
    for (const auto& [name, file] : csv) {
        if (file.open) {
            names.push_back(name);
        }
    }
    return names;
}

HTNWLOG LogDouble::OpenTrace(const std::string& name)
{
    m_traces.push_back(std::make_unique<Trace>());
    m_traces.back()->name = name;
    m_traces.back()->level = 0xFFFF;
    return reinterpret_cast<HTNWLOG>(m_traces.back().get());
}

LogDouble::Trace* LogDouble::Find(HTNWLOG log)
{
    for (const auto& trace : m_traces) {
        if (trace->open && static_cast<const void*>(trace.get()) == static_cast<const void*>(log)) {
            return trace.get();
        }
    }
    return nullptr;
}

CsvFile* LogDouble::Find(HTNWCSV file)
{
    for (auto& [name, entry] : csv) {
        if (entry.open && static_cast<const void*>(&entry) == static_cast<const void*>(file)) {
            return &entry;
        }
    }
    return nullptr;
}

DWORD LogDouble::Answer(const char* routine, const std::string& args, DWORD status)
{
    m_journal.Record(routine, args, std::to_string(status));
    return status;
}

static std::string Quoted(const char* text)
{
    return text == nullptr ? "NULL" : "\"" + std::string(text) + "\"";
}

DWORD LogDouble::Init(const char* name, HTNWLOG* log, DWORD level, DWORD size, DWORD reserved, const char* key)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    std::string args = Quoted(name) + ", " + std::to_string(level) + ", " + std::to_string(size) + ", " +
                       std::to_string(reserved) + ", " + Quoted(key);
    auto planned = m_journal.Count("log_init");
    if (log != nullptr) {
        *log = nullptr;
    }
    if (planned) {
        return Answer("log_init", args, planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (name == nullptr || *name == '\0' || log == nullptr || size == 0 || size > 4194303 || reserved != 0 ||
        key == nullptr || *key == '\0') {
        return Answer("log_init", args, TNWLOG_INVALID_ARGUMENT);
    }
    *log = OpenTrace(name);
    Trace* trace = Find(*log);
    trace->key = key;
    trace->level = level;
    trace->size = size;
    trace->reserved = reserved;
    return Answer("log_init", args, TNWLOG_OK);
}

DWORD LogDouble::Term(HTNWLOG log)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    Trace*                                trace = Find(log);
    std::string                           args = trace == nullptr ? "?" : Quoted(trace->name.c_str());
    if (auto planned = m_journal.Count("log_term")) {
        return Answer("log_term", args, planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (trace == nullptr) {
        return Answer("log_term", args, TNWLOG_INVALID_ARGUMENT);
    }
    trace->open = false;
    return Answer("log_term", args, TNWLOG_OK);
}

void LogDouble::Write(HTNWLOG log, DWORD level, DWORD message, const char* source, int line, const char* routine,
                      const char* format, va_list args)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    Trace*                                trace = Find(log);
    TraceLine entry{ trace == nullptr ? (log == nullptr ? "" : "<closed log>") : trace->name,
                     level,
                     message,
                     source,
                     line,
                     routine,
                     FormatText(format, args) };
    m_journal.Record("log_write", entry.log + ", " + std::to_string(level) + ", " + entry.routine + ": " + entry.text,
                     "");
    lines.push_back(std::move(entry));
    if (spoilLastError != 0) {
        SetLastError(spoilLastError);
    }
}

DWORD LogDouble::LoadStrings(const char* component, DWORD reserved, HTNWSTRINGS* table)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    std::string                           args = Quoted(component) + ", " + std::to_string(reserved);
    auto                                  planned = m_journal.Count("TnwLoadStringTable");
    if (table != nullptr) {
        *table = nullptr;
    }
    if (planned) {
        return Answer("TnwLoadStringTable", args, planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (component == nullptr || *component == '\0' || reserved != 0 || table == nullptr) {
        return Answer("TnwLoadStringTable", args, TNWLOG_INVALID_ARGUMENT);
    }
    m_tableHandles.push_back(std::make_unique<char>('t'));
    m_tables.insert(m_tableHandles.back().get());
    *table = reinterpret_cast<HTNWSTRINGS>(m_tableHandles.back().get());
    openTables++;
    return Answer("TnwLoadStringTable", args, TNWLOG_OK);
}

DWORD LogDouble::FreeStrings(HTNWSTRINGS table)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    if (auto planned = m_journal.Count("TnwFreeStringTable")) {
        return Answer("TnwFreeStringTable", "", planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (m_tables.erase(table) == 0) {
        return Answer("TnwFreeStringTable", "?", TNWLOG_INVALID_ARGUMENT);
    }
    openTables--;
    return Answer("TnwFreeStringTable", "", TNWLOG_OK);
}

DWORD LogDouble::Format(HTNWSTRINGS table, DWORD number, char* text, DWORD size, DWORD reserved)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    std::string args = std::to_string(number) + ", " + std::to_string(size) + ", " + std::to_string(reserved);
    if (auto planned = m_journal.Count("TnwFormatMessage")) {
        return Answer("TnwFormatMessage", args, planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (m_tables.count(table) == 0 || text == nullptr || reserved != 0) {
        return Answer("TnwFormatMessage", args, TNWLOG_INVALID_ARGUMENT);
    }
    auto found = strings.find(number);
    if (found == strings.end()) {
        return Answer("TnwFormatMessage", args, TNWLOG_NO_SUCH_MESSAGE);
    }
    if (found->second.size() + 1 > size) {
        return Answer("TnwFormatMessage", args, TNWLOG_TEXT_TOO_LONG);
    }
    memcpy(text, found->second.c_str(), found->second.size() + 1);
    return Answer("TnwFormatMessage", args, TNWLOG_OK);
}

static bool BadLineLimit(DWORD maxLine)
{
    return maxLine < 2 || maxLine > 65536;
}

DWORD LogDouble::CsvInit(const char* name, HTNWCSV* file, DWORD flags, DWORD reserved1, DWORD size, DWORD generations,
                         DWORD maxLine, const char* header, DWORD reserved2, DWORD reserved3)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    std::string args = Quoted(name) + ", " + std::to_string(flags) + ", " + std::to_string(reserved1) + ", " +
                       std::to_string(size) + ", " + std::to_string(generations) + ", " + std::to_string(maxLine) +
                       ", " + Quoted(header) + ", " + std::to_string(reserved2) + ", " + std::to_string(reserved3);
    auto planned = m_journal.Count("log_util_init");
    if (file != nullptr) {
        *file = nullptr;
    }
    if (planned) {
        return Answer("log_util_init", args, planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (name == nullptr || *name == '\0' || file == nullptr || flags != 3 || reserved1 != 0 || size == 0 ||
        size > 4194303 || generations > 99 || BadLineLimit(maxLine) || header == nullptr || reserved2 != 0 ||
        reserved3 != 0) {
        return Answer("log_util_init", args, TNWLOG_INVALID_ARGUMENT);
    }
    if (auto failing = failInit.find(name); failing != failInit.end()) {
        return Answer("log_util_init", args, failing->second);
    }
    if (strlen(header) + 1 > maxLine) {
        return Answer("log_util_init", args, TNWLOG_LINE_TOO_LONG);
    }
    CsvFile& entry = csv[name];
    if (entry.header != header || entry.headers.empty()) {
        entry.headers.push_back(header);
    }
    entry.name = name;
    entry.open = true;
    entry.opened++;
    entry.size = size;
    entry.generations = generations;
    entry.maxLine = maxLine;
    entry.header = header;
    *file = reinterpret_cast<HTNWCSV>(&entry);
    return Answer("log_util_init", args, TNWLOG_OK);
}

DWORD LogDouble::CsvTerm(HTNWCSV file)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    CsvFile*                              entry = Find(file);
    std::string                           args = entry == nullptr ? "?" : Quoted(entry->name.c_str());
    if (auto planned = m_journal.Count("log_util_term")) {
        return Answer("log_util_term", args, planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (entry == nullptr) {
        return Answer("log_util_term", args, TNWLOG_INVALID_ARGUMENT);
    }
    entry->open = false;
    return Answer("log_util_term", args, TNWLOG_OK);
}

DWORD LogDouble::CsvWrite(HTNWCSV file, const char* format, va_list args)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    CsvFile*                              entry = Find(file);
    std::string                           text = format == nullptr ? "" : FormatText(format, args);
    std::string shown = (entry == nullptr ? std::string("?") : Quoted(entry->name.c_str())) + ", " + Quoted(format) +
                        ", " + Quoted(text.c_str());
    if (auto planned = m_journal.Count("log_util_write")) {
        return Answer("log_util_write", shown, planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (entry == nullptr || format == nullptr) {
        return Answer("log_util_write", shown, TNWLOG_INVALID_ARGUMENT);
    }
    if (auto failing = failWrite.find(entry->name); failing != failWrite.end()) {
        return Answer("log_util_write", shown, failing->second);
    }
    if (text.size() + 1 > entry->maxLine) {
        return Answer("log_util_write", shown, TNWLOG_LINE_TOO_LONG);
    }
    entry->lines.push_back(text);
    return Answer("log_util_write", shown, TNWLOG_OK);
}

DWORD LogDouble::CsvRotate(HTNWCSV file, DWORD maxLine, const char* header)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    CsvFile*                              entry = Find(file);
    std::string args = (entry == nullptr ? std::string("?") : Quoted(entry->name.c_str())) + ", " +
                       std::to_string(maxLine) + ", " + Quoted(header);
    if (auto planned = m_journal.Count("log_util_rotate")) {
        return Answer("log_util_rotate", args, planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (entry == nullptr || header == nullptr || BadLineLimit(maxLine)) {
        return Answer("log_util_rotate", args, TNWLOG_INVALID_ARGUMENT);
    }
    if (strlen(header) + 1 > maxLine) {
        return Answer("log_util_rotate", args, TNWLOG_LINE_TOO_LONG);
    }
    // The new header holds even where the file itself could not be started anew.
    entry->maxLine = maxLine;
    entry->header = header;
    if (auto failing = failRotate.find(entry->name); failing != failRotate.end()) {
        return Answer("log_util_rotate", args, failing->second);
    }
    entry->headers.push_back(header);
    entry->rotations++;
    return Answer("log_util_rotate", args, TNWLOG_OK);
}

/* ---- The routines as callers see them ---- */

DWORD log_init(const char* lpName, HTNWLOG* phLog, DWORD dwLevel, DWORD dwSize, DWORD dwReserved, const char* lpKey)
{
    return LogDouble::current->Init(lpName, phLog, dwLevel, dwSize, dwReserved, lpKey);
}

DWORD log_term(HTNWLOG hLog)
{
    return LogDouble::current->Term(hLog);
}

void log_write(HTNWLOG hLog, DWORD dwLevel, DWORD dwMessage, const char* lpSource, int nLine, const char* lpRoutine,
               const char* lpFormat, ...)
{
    va_list args;
    va_start(args, lpFormat);
    LogDouble::current->Write(hLog, dwLevel, dwMessage, lpSource, nLine, lpRoutine, lpFormat, args);
    va_end(args);
}

DWORD TnwLoadStringTable(const char* lpComponent, DWORD dwReserved, HTNWSTRINGS* phTable)
{
    return LogDouble::current->LoadStrings(lpComponent, dwReserved, phTable);
}

DWORD TnwFreeStringTable(HTNWSTRINGS hTable)
{
    return LogDouble::current->FreeStrings(hTable);
}

DWORD TnwFormatMessage(HTNWSTRINGS hTable, DWORD dwNumber, char* lpText, DWORD dwSize, DWORD dwReserved)
{
    return LogDouble::current->Format(hTable, dwNumber, lpText, dwSize, dwReserved);
}

DWORD log_util_init(const char* lpName, HTNWCSV* phFile, DWORD dwFlags, DWORD dwReserved1, DWORD dwSize,
                    DWORD dwGenerations, DWORD dwMaxLine, const char* lpHeader, DWORD dwReserved2, DWORD dwReserved3)
{
    return LogDouble::current->CsvInit(lpName, phFile, dwFlags, dwReserved1, dwSize, dwGenerations, dwMaxLine, lpHeader,
                                       dwReserved2, dwReserved3);
}

DWORD log_util_term(HTNWCSV hFile)
{
    return LogDouble::current->CsvTerm(hFile);
}

DWORD log_util_write(HTNWCSV hFile, const char* lpFormat, ...)
{
    va_list args;
    va_start(args, lpFormat);
    DWORD status = LogDouble::current->CsvWrite(hFile, lpFormat, args);
    va_end(args);
    return status;
}

DWORD log_util_rotate(HTNWCSV hFile, DWORD dwMaxLine, const char* lpHeader)
{
    return LogDouble::current->CsvRotate(hFile, dwMaxLine, lpHeader);
}
