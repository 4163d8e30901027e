#include "doubles/tnwlog_double.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "support/message_strings.h"

LogDouble* LogDouble::current = nullptr;

LogDouble::LogDouble(Journal& journal) : strings(MESSAGE_STRINGS), m_journal(journal)
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
        if ((line.level & TNWLOG_EVENT) != 0 && line.message != 0 && line.written) {
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
    for (const auto& open : m_csvHandles) {
        names.push_back(open.second.file->name);
    }
    std::sort(names.begin(), names.end());
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

LogDouble::CsvHandle* LogDouble::Find(HTNWCSV file)
{
    auto found = m_csvHandles.find(file);
    return found == m_csvHandles.end() ? nullptr : &found->second;
}

DWORD LogDouble::Answer(const char* routine, const std::string& args, DWORD status)
{
    m_journal.Record(routine, args, std::to_string(status));
    return status;
}

/* Of a log or file, as the library takes it: a name that leads nowhere else and is no generation's. */
static bool BadName(const char* name)
{
    if (name == nullptr || *name == '\0' || strlen(name) > TNWLOG_NAME_MAX) {
        return true;
    }
    return std::any_of(name, name + strlen(name), [](char c) {
        return static_cast<unsigned char>(c) < ' ' || strchr("\\/:*?\"<>|.", c) != nullptr;
    });
}

static bool HasLineBreak(const std::string& text)
{
    return text.find_first_of("\r\n") != std::string::npos;
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
    if (BadName(name) || log == nullptr || size == 0 || size > TNWLOG_SIZE_MAX || reserved != 0 || key == nullptr ||
        *key == '\0') {
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
                     source == nullptr ? "" : source,
                     line,
                     routine == nullptr ? "" : routine,
                     format == nullptr ? "" : FormatText(format, args) };
    for (char& c : entry.text) {
        c = c == '\r' || c == '\n' || c == '\0' ? ' ' : c;
    }
    entry.written = trace != nullptr && (level & (trace->level | TNWLOG_EVENT)) != 0;
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
    if (strcmp(component, "diskperf") != 0) {
        return Answer("TnwLoadStringTable", args, TNWLOG_NO_TABLE);
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
    return maxLine < 2 || maxLine > TNWLOG_LINE_MAX;
}

/* Bytes of a file whose lines these are. */
static size_t FileSize(const std::vector<std::string>& lines)
{
    size_t size = 0;
    for (const std::string& line : lines) {
        size += line.size() + 2;
    }
    return size;
}

/* What was moved away is no generation any more. */
static void ForgetMoved(CsvFile& file)
{
    if (file.movedAway) {
        file.files.pop_back();
        file.headers.pop_back();
        file.movedAway = false;
    }
}

void LogDouble::StartGeneration(CsvHandle& handle)
{
    ForgetMoved(*handle.file);
    handle.file->files.push_back({ handle.header });
    handle.file->headers.push_back(handle.header);
    handle.rotateDue = false;
    handle.headed = true;
}

/* Makes the handle the file's writer, if nobody else is, and begins a generation where one is due. *rotate: why it was
 * not begun; lines then follow in the old one. */
DWORD LogDouble::Prepare(HTNWCSV file, CsvHandle& handle, DWORD* rotate)
{
    CsvFile& entry = *handle.file;
    *rotate = TNWLOG_OK;
    if (entry.writer != nullptr && entry.writer != file) {
        return TNWLOG_NOT_OPEN;
    }
    if (entry.writer == nullptr) {
        ForgetMoved(entry);
        entry.writer = file;
        entry.open = true;
        entry.size = handle.size;
        entry.generations = handle.generations;
        handle.headed = !entry.files.empty() && entry.files.back()[0] == handle.header;
        handle.rotateDue = handle.rotateDue || !handle.headed;
    }
    entry.maxLine = handle.maxLine;
    entry.header = handle.header;
    if (handle.rotateDue && entry.files.empty()) {
        StartGeneration(handle);
    }
    if (handle.rotateDue) {
        if (auto failing = failRotate.find(entry.name); failing != failRotate.end()) {
            *rotate = failing->second;
        } else {
            StartGeneration(handle);
        }
    }
    return TNWLOG_OK;
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
    if (BadName(name) || file == nullptr || flags != 3 || reserved1 != 0 || size == 0 || size > TNWLOG_SIZE_MAX ||
        generations > TNWLOG_GENERATIONS_MAX || BadLineLimit(maxLine) || header == nullptr || HasLineBreak(header) ||
        reserved2 != 0 || reserved3 != 0) {
        return Answer("log_util_init", args, TNWLOG_INVALID_ARGUMENT);
    }
    if (auto failing = failInit.find(name); failing != failInit.end()) {
        return Answer("log_util_init", args, failing->second);
    }
    if (strlen(header) + 1 > maxLine) {
        return Answer("log_util_init", args, TNWLOG_LINE_TOO_LONG);
    }
    CsvFile&    entry = csv[name];
    const void* handle = &entry;
    if (Find(reinterpret_cast<HTNWCSV>(&entry)) != nullptr) {
        m_secondHandles.push_back(std::make_unique<char>('c'));
        handle = m_secondHandles.back().get();
    }
    entry.name = name;
    entry.opened++;
    *file = reinterpret_cast<HTNWCSV>(const_cast<void*>(handle));
    auto  added = m_csvHandles.emplace(handle, CsvHandle{ &entry, header, size, generations, maxLine });
    DWORD rotate = TNWLOG_OK;
    Prepare(*file, added.first->second, &rotate);  // what does not work now is tried again by each write
    return Answer("log_util_init", args, TNWLOG_OK);
}

DWORD LogDouble::CsvTerm(HTNWCSV file)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    CsvHandle*                            handle = Find(file);
    std::string                           args = handle == nullptr ? "?" : Quoted(handle->file->name.c_str());
    if (auto planned = m_journal.Count("log_util_term")) {
        return Answer("log_util_term", args, planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (handle == nullptr) {
        return Answer("log_util_term", args, TNWLOG_INVALID_ARGUMENT);
    }
    if (handle->file->writer == file) {
        handle->file->writer = nullptr;
        handle->file->open = false;
    }
    m_csvHandles.erase(file);
    return Answer("log_util_term", args, TNWLOG_OK);
}

DWORD LogDouble::CsvWrite(HTNWCSV file, const char* format, va_list args)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    CsvHandle*                            handle = Find(file);
    va_list                               again;
    va_copy(again, args);
    const int   length = format == nullptr ? 0 : _vscprintf(format, again);  // -1: cannot be converted
    std::string text = format == nullptr ? "" : FormatText(format, args);
    va_end(again);
    std::string shown = (handle == nullptr ? std::string("?") : Quoted(handle->file->name.c_str())) + ", " +
                        Quoted(format) + ", " + Quoted(text.c_str());
    if (auto planned = m_journal.Count("log_util_write")) {
        return Answer("log_util_write", shown, planned->fails ? planned->error : static_cast<DWORD>(planned->value));
    }
    if (handle == nullptr || format == nullptr) {
        return Answer("log_util_write", shown, TNWLOG_INVALID_ARGUMENT);
    }
    CsvFile& entry = *handle->file;
    if (auto failing = failWrite.find(entry.name); failing != failWrite.end()) {
        return Answer("log_util_write", shown, failing->second);
    }
    if (length < 0 || static_cast<DWORD>(length) + 1 > handle->maxLine) {
        return Answer("log_util_write", shown, TNWLOG_LINE_TOO_LONG);
    }
    if (HasLineBreak(text)) {
        return Answer("log_util_write", shown, TNWLOG_INVALID_ARGUMENT);
    }
    DWORD rotate = TNWLOG_OK, status = Prepare(file, *handle, &rotate);
    if (status != TNWLOG_OK) {
        return Answer("log_util_write", shown, status);
    }
    // A file that holds nothing but its header takes any line.
    if (entry.files.back().size() > 1 && !handle->rotateDue &&
        FileSize(entry.files.back()) + text.size() + 2 > entry.size * size_t{ 1024 }) {
        handle->rotateDue = true;
        Prepare(file, *handle, &rotate);
    }
    if (!handle->headed) {
        entry.files.back().push_back(handle->header);
        handle->headed = true;
    }
    entry.files.back().push_back(text);
    entry.lines.push_back(text);
    return Answer("log_util_write", shown, TNWLOG_OK);
}

DWORD LogDouble::CsvRotate(HTNWCSV file, DWORD maxLine, const char* header)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    CsvHandle*                            handle = Find(file);
    std::string args = (handle == nullptr ? std::string("?") : Quoted(handle->file->name.c_str())) + ", " +
                       std::to_string(maxLine) + ", " + Quoted(header);
    auto planned = m_journal.Count("log_util_rotate");
    if (!planned && (handle == nullptr || header == nullptr || BadLineLimit(maxLine) || HasLineBreak(header))) {
        return Answer("log_util_rotate", args, TNWLOG_INVALID_ARGUMENT);
    }
    if (!planned && strlen(header) + 1 > maxLine) {
        return Answer("log_util_rotate", args, TNWLOG_LINE_TOO_LONG);
    }
    DWORD status = !planned ? TNWLOG_OK : planned->fails ? planned->error : static_cast<DWORD>(planned->value);
    if (status == TNWLOG_INVALID_ARGUMENT || status == TNWLOG_NO_MEMORY || status == TNWLOG_LINE_TOO_LONG) {
        return Answer("log_util_rotate", args, status);
    }
    // The new header holds even where the file itself could not be started anew: the next write tries again.
    if (handle != nullptr && header != nullptr) {
        handle->headed = handle->headed && handle->header == header;
        handle->header = header;
        handle->maxLine = maxLine;
        handle->rotateDue = true;
    }
    if (planned) {
        return Answer("log_util_rotate", args, status);
    }
    DWORD rotate = TNWLOG_OK;
    status = Prepare(file, *handle, &rotate);
    status = status != TNWLOG_OK ? status : rotate;
    handle->file->rotations += status == TNWLOG_OK ? 1u : 0u;
    return Answer("log_util_rotate", args, status);
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
