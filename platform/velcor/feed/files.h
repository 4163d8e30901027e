/*
 * Small files of the feeder: read whole, replaced in one step, or grown line by line up to a bound. Paths are UTF-8, of
 * any length.
 */
#ifndef VELCORFEED_FILES_H
#define VELCORFEED_FILES_H

#include <windows.h>
#include <string>
#include <vector>

/** The lines of a text, without their ends (LF or CR LF). A text that ends in one has no empty last line. */
std::vector<std::string> Lines(const std::string& text);

/** The words of a line: what blanks and tabs keep apart. */
std::vector<std::string> Words(const std::string& line);

/**
 * A decimal number of digits alone.
 * @return false for anything else, and for more than 64 bits hold; number is untouched then.
 */
bool ParseNumber(const std::string& word, unsigned long long& number);

/** The text in UTF-8, for paths above all. */
std::string Narrow(const std::wstring& wide);

/**
 * Reads a file to its end, also one whose size the system does not know before (proc files).
 * @return 0, or the Win32 error number; ERROR_FILE_TOO_LARGE beyond 4 MiB. text holds something on 0 alone.
 */
DWORD ReadWholeFile(const std::string& path, std::string& text);

/**
 * Writes path.new and puts it in the place of path, so that readers see the old text or the new one.
 * @return 0, or the Win32 error number; the old file then stands as it was.
 */
DWORD ReplaceWholeFile(const std::string& path, const std::string& text);

/** Names of the entries of a folder. @return 0, or the Win32 error number. */
DWORD ListFolder(const std::string& path, std::vector<std::string>& names);

/**
 * A text file with a header line that grows line by line and never far beyond a bound: the older generation is kept
 * beside it (name.1.ext). One writer; readers may open it at any time. Lines end in CR LF and are in the file when
 * Write returns. A line that only fits in part (disk full) is taken back.
 */
class LineFile {
public:
    LineFile(std::string path, std::string header, unsigned long long limit);
    ~LineFile();
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;

    /** @return 0, or the Win32 error number: the line is not in the file; the next call tries again. */
    DWORD Write(const std::string& line);

private:
    DWORD Open();
    void  Close();
    DWORD Rotate();
    DWORD Append(const std::string& bytes);
    bool  StartsWithHeader() const;

    std::string        m_path;
    std::string        m_header;
    unsigned long long m_limit;
    unsigned long long m_size = 0;  // bytes of whole lines in the file
    HANDLE             m_file = INVALID_HANDLE_VALUE;
};

/** The name of the older generation: a/b.journal -> a/b.1.journal. */
std::string OlderGeneration(const std::string& path);

#endif
