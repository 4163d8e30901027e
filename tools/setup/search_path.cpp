#include "search_path.h"

#include <windows.h>
#include <vector>

namespace dkpf {

static std::vector<std::wstring> Entries(const std::wstring& path)
{
    std::vector<std::wstring> entries(1);
    for (wchar_t letter : path) {
        if (letter == L';')
            entries.emplace_back();
        else
            entries.back() += letter;
    }
    return entries;
}

static std::wstring Bare(std::wstring entry)
{
    while (!entry.empty() && entry.back() == L'\\')
        entry.pop_back();
    return entry;
}

static bool Same(const std::wstring& entry, const std::wstring& folder)
{
    return CompareStringOrdinal(Bare(entry).c_str(), -1, Bare(folder).c_str(), -1, TRUE) == CSTR_EQUAL;
}

bool HoldsFolder(const std::wstring& path, const std::wstring& folder)
{
    for (const std::wstring& entry : Entries(path)) {
        if (Same(entry, folder))
            return true;
    }
    return false;
}

std::wstring WithFolder(const std::wstring& path, const std::wstring& folder)
{
    return path.empty() ? folder : path + L";" + folder;
}

std::wstring WithoutFolder(const std::wstring& path, const std::wstring& folder)
{
    std::wstring kept;
    bool         first = true;
    for (const std::wstring& entry : Entries(path)) {
        if (Same(entry, folder))
            continue;
        if (!first)
            kept += L';';
        kept += entry;
        first = false;
    }
    return kept;
}

}  // namespace dkpf
