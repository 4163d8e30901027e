#include "console_out.h"

#include <windows.h>
#include <algorithm>

#include "text.h"

namespace dkpf {

std::string WithCrLf(std::string_view text)
{
    std::string lines;
    char        before = '\0';
    for (char letter : text) {
        if (letter == '\n' && before != '\r')
            lines += '\r';
        lines += letter;
        before = letter;
    }
    return lines;
}

static bool WriteBytes(HANDLE out, std::string_view bytes)
{
    while (!bytes.empty()) {
        DWORD written = 0;
        if (!WriteFile(out, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) || written == 0)
            return false;
        bytes.remove_prefix(written);
    }
    return true;
}

static bool WriteLetters(HANDLE out, std::wstring_view letters)
{
    static constexpr size_t chunk = 8000;  // older consoles refuse more than 64 KiB in one call
    while (!letters.empty()) {
        DWORD written = 0;
        if (!WriteConsoleW(out, letters.data(), static_cast<DWORD>(std::min(chunk, letters.size())), &written,
                           nullptr) ||
            written == 0)
            return false;
        letters.remove_prefix(written);
    }
    return true;
}

static bool Write(DWORD handle, std::string_view utf8)
{
    const HANDLE      out = GetStdHandle(handle);
    const std::string lines = WithCrLf(utf8);
    DWORD             mode = 0;
    return GetConsoleMode(out, &mode) ? WriteLetters(out, Wide(lines)) : WriteBytes(out, lines);
}

bool Print(std::string_view utf8)
{
    return Write(STD_OUTPUT_HANDLE, utf8);
}

bool PrintError(std::string_view utf8)
{
    return Write(STD_ERROR_HANDLE, utf8);
}

}  // namespace dkpf
