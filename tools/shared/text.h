/*
 * Texts at the border to the system. Inside agent and tool every text is UTF-8.
 */
#ifndef DKPF_TOOLS_TEXT_H
#define DKPF_TOOLS_TEXT_H

#include <windows.h>
#include <string>
#include <string_view>

namespace dkpf {

std::wstring Wide(std::string_view utf8);
std::string  Narrow(std::wstring_view wide);

/* UTF-8 to the ANSI code page, which the logging library takes; letters that it lacks become '?'. */
std::string ToAnsi(std::string_view utf8);

/* The way back, of what the logging library wrote. */
std::string FromAnsi(std::string_view ansi);

/* What stands before the last \ or /, of a file, a folder or a registry key. Empty: there is none. */
std::wstring ParentPath(const std::wstring& path);

/* Words in lines that fit into 80 columns, each behind so many blanks and with LF. */
std::string Wrapped(std::string_view words, size_t indent);

/* Lines made by others, brought into 80 columns: what does not fit goes on below the text that begins at that column.
 */
std::string WrappedLines(std::string_view lines, size_t column);

/* "error 5, Access is denied": the system's words for an error number, without line end. */
std::string SystemErrorText(DWORD error);

/* "2026/03/07 14:05:09.042", as the logs write it */
std::string LocalTimeText(const SYSTEMTIME& time);

/* "2026-03-07T14:05:09.042+09:00" */
std::string IsoTime(const SYSTEMTIME& local, int utcOffsetMinutes);

/* Local time minus UTC, now. */
int LocalUtcOffsetMinutes();

/* "+09:00" */
std::string UtcOffsetText(int minutes);

}  // namespace dkpf

#endif
