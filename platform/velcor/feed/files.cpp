#include "files.h"

#include <utility>

static const DWORD READ_LIMIT = 4u << 20;

static std::wstring Wide(const std::string& text)
{
    const int    size = static_cast<int>(text.size());
    std::wstring wide(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), size, NULL, 0)), L'\0');

    MultiByteToWideChar(CP_UTF8, 0, text.data(), size, &wide[0], static_cast<int>(wide.size()));
    return wide;
}

std::string Narrow(const std::wstring& wide)
{
    const int   size = static_cast<int>(wide.size());
    std::string text(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, NULL, 0, NULL, NULL)),
                     '\0');

    WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, &text[0], static_cast<int>(text.size()), NULL, NULL);
    return text;
}

/* The path as the system takes it: on a drive, one of MAX_PATH characters and more needs the form without a bound. */
static std::wstring Native(const std::string& path)
{
    const std::wstring wide = Wide(path);

    return wide.size() >= MAX_PATH && wide[1] == L':' ? L"\\\\?\\" + wide : wide;
}

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t                   start = 0;

    while (start < text.size()) {
        size_t      end = text.find('\n', start);
        std::string line = text.substr(start, end == std::string::npos ? end : end - start);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
        start = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

std::vector<std::string> Words(const std::string& line)
{
    std::vector<std::string> words;
    size_t                   start = line.find_first_not_of(" \t");

    while (start != std::string::npos) {
        size_t end = line.find_first_of(" \t", start);
        words.push_back(line.substr(start, end == std::string::npos ? end : end - start));
        start = line.find_first_not_of(" \t", end);
    }
    return words;
}

bool ParseNumber(const std::string& word, unsigned long long& number)
{
    unsigned long long value = 0;

    if (word.empty()) {
        return false;
    }
    for (char c : word) {
        if (c < '0' || c > '9') {
            return false;
        }
        const unsigned long long digit = static_cast<unsigned long long>(c - '0');
        if (value > (~0ull - digit) / 10) {
            return false;
        }
        value = value * 10 + digit;
    }
    number = value;
    return true;
}

DWORD ReadWholeFile(const std::string& path, std::string& text)
{
    HANDLE file =
        CreateFileW(Native(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, NULL,
                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, NULL);
    std::string all;
    char        piece[16384];
    DWORD       read = 0;
    DWORD       error = ERROR_SUCCESS;

    text.clear();
    if (file == INVALID_HANDLE_VALUE) {
        return GetLastError();
    }
    do {
        if (!ReadFile(file, piece, sizeof(piece), &read, NULL)) {
            error = GetLastError();
        } else if (all.size() + read > READ_LIMIT) {
            error = ERROR_FILE_TOO_LARGE;
        } else {
            all.append(piece, read);
        }
    } while (error == ERROR_SUCCESS && read != 0);
    CloseHandle(file);
    if (error == ERROR_SUCCESS) {
        text.swap(all);
    }
    return error;
}

/* A short write without an error is a full disk. */
static DWORD WriteAll(HANDLE file, const std::string& bytes)
{
    DWORD written = 0;

    if (!WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, NULL)) {
        return GetLastError();
    }
    return written == bytes.size() ? ERROR_SUCCESS : ERROR_DISK_FULL;
}

DWORD ReplaceWholeFile(const std::string& path, const std::string& text)
{
    const std::string fresh = path + ".new";
    HANDLE            file =
        CreateFileW(Native(fresh).c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
    DWORD error = ERROR_SUCCESS;

    if (file == INVALID_HANDLE_VALUE) {
        return GetLastError();
    }
    error = WriteAll(file, text);
    if (error == ERROR_SUCCESS && !FlushFileBuffers(file)) {
        error = GetLastError();
    }
    CloseHandle(file);
    if (error == ERROR_SUCCESS &&
        !MoveFileExW(Native(fresh).c_str(), Native(path).c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        error = GetLastError();
    }
    if (error != ERROR_SUCCESS) {
        DeleteFileW(Native(fresh).c_str());
    }
    return error;
}

DWORD ListFolder(const std::string& path, std::vector<std::string>& names)
{
    WIN32_FIND_DATAW entry;
    HANDLE           find = FindFirstFileW(Native(path + "\\*").c_str(), &entry);

    names.clear();
    if (find == INVALID_HANDLE_VALUE) {
        return GetLastError();
    }
    do {
        const std::string name = Narrow(entry.cFileName);
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    } while (FindNextFileW(find, &entry));
    FindClose(find);
    return ERROR_SUCCESS;
}

std::string OlderGeneration(const std::string& path)
{
    const size_t leaf = path.find_last_of("\\/");
    const size_t dot = path.find_last_of('.');

    if (dot == std::string::npos || (leaf != std::string::npos && dot < leaf)) {
        return path + ".1";
    }
    return path.substr(0, dot) + ".1" + path.substr(dot);
}

LineFile::LineFile(std::string path, std::string header, unsigned long long limit)
    : m_path(std::move(path)), m_header(std::move(header) + "\r\n"), m_limit(limit)
{
}

LineFile::~LineFile()
{
    Close();
}

void LineFile::Close()
{
    if (m_file != INVALID_HANDLE_VALUE) {
        CloseHandle(m_file);
        m_file = INVALID_HANDLE_VALUE;
    }
}

bool LineFile::StartsWithHeader() const
{
    std::string start(m_header.size(), '\0');
    DWORD       read = 0;

    return SetFilePointer(m_file, 0, NULL, FILE_BEGIN) == 0 &&
           ReadFile(m_file, &start[0], static_cast<DWORD>(start.size()), &read, NULL) && read == start.size() &&
           start == m_header;
}

/* Bytes at the end of the file; the file is cut back to its whole lines if they do not fit. */
DWORD LineFile::Append(const std::string& bytes)
{
    LARGE_INTEGER end;
    DWORD         error = ERROR_SUCCESS;

    end.QuadPart = static_cast<LONGLONG>(m_size);
    if (!SetFilePointerEx(m_file, end, NULL, FILE_BEGIN)) {
        return GetLastError();
    }
    error = WriteAll(m_file, bytes);
    if (error != ERROR_SUCCESS) {
        SetFilePointerEx(m_file, end, NULL, FILE_BEGIN);
        SetEndOfFile(m_file);
        return error;
    }
    m_size += bytes.size();
    return ERROR_SUCCESS;
}

/* Opens the file, heads a new one, and closes the half line that a crash left with a line end. */
DWORD LineFile::Open()
{
    LARGE_INTEGER size;
    LARGE_INTEGER last;
    char          end = '\n';
    DWORD         read = 0;
    DWORD         error = ERROR_SUCCESS;

    if (m_file != INVALID_HANDLE_VALUE) {
        return ERROR_SUCCESS;
    }
    m_file = CreateFileW(Native(m_path).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                         NULL, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
    if (m_file == INVALID_HANDLE_VALUE) {
        return GetLastError();
    }
    if (!GetFileSizeEx(m_file, &size)) {
        error = GetLastError();
        Close();
        return error;
    }
    m_size = static_cast<unsigned long long>(size.QuadPart);
    if (m_size == 0) {
        error = Append(m_header);
    } else {
        last.QuadPart = size.QuadPart - 1;
        if (SetFilePointerEx(m_file, last, NULL, FILE_BEGIN) && ReadFile(m_file, &end, 1, &read, NULL) && end != '\n') {
            error = Append("\r\n");
        }
    }
    if (error != ERROR_SUCCESS) {
        Close();
    }
    return error;
}

/* A file that somebody holds cannot be renamed: it grows on, and the next line tries again. */
DWORD LineFile::Rotate()
{
    Close();
    MoveFileExW(Native(m_path).c_str(), Native(OlderGeneration(m_path)).c_str(), MOVEFILE_REPLACE_EXISTING);
    return Open();
}

DWORD LineFile::Write(const std::string& line)
{
    const bool        first = m_file == INVALID_HANDLE_VALUE;
    const std::string bytes = line + "\r\n";
    DWORD             error = Open();

    if (error == ERROR_SUCCESS &&
        ((first && !StartsWithHeader()) || (m_size > m_header.size() && m_size + bytes.size() > m_limit))) {
        error = Rotate();
    }
    return error == ERROR_SUCCESS ? Append(bytes) : error;
}
