#include "test_home.h"
#include <algorithm>
#include <atomic>
#include <stdexcept>

static void Check(bool fDone, const std::wstring& path)
{
    if (!fDone) {
        throw std::runtime_error("error " + std::to_string(GetLastError()) + ": " +
                                 std::string(path.begin(), path.end()));
    }
}

static void RemoveTree(const std::wstring& path)
{
    WIN32_FIND_DATAW find;
    HANDLE           hFind = FindFirstFileW((path + L"\\*").c_str(), &find);

    if (hFind != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = find.cFileName;
            if (name == L"." || name == L"..") {
                continue;
            }
            if (find.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                RemoveTree(path + L"\\" + name);
            } else {
                SetFileAttributesW((path + L"\\" + name).c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteFileW((path + L"\\" + name).c_str());
            }
        } while (FindNextFileW(hFind, &find));
        FindClose(hFind);
    }
    RemoveDirectoryW(path.c_str());
}

TestHome::TestHome(const wchar_t* lpLeaf)
{
    static std::atomic<int> s_count;
    wchar_t                 szTemp[MAX_PATH + 1];

    GetTempPathW(MAX_PATH, szTemp);
    m_root = std::wstring(L"\\\\?\\") + szTemp + L"dkpf-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
             std::to_wstring(++s_count);
    m_home = m_root + L"\\" + lpLeaf;
    RemoveTree(m_root); /* process numbers come back */
    Check(CreateDirectoryW(m_root.c_str(), NULL), m_root);
    for (size_t i = m_root.size() + 1; i <= m_home.size(); i++) {
        if (i == m_home.size() || m_home[i] == L'\\') {
            Check(CreateDirectoryW(m_home.substr(0, i).c_str(), NULL), m_home);
        }
    }
    for (const wchar_t* lpFolder : { L"bin", L"etc", L"log", L"perf" }) {
        MakeFolder(lpFolder);
    }
}

TestHome::~TestHome()
{
    RemoveTree(m_root);
}

std::wstring TestHome::Install(const wchar_t* lpBinary, const wchar_t* lpAs) const
{
    wchar_t            szProgram[MAX_PATH + 1];
    std::wstring       from;
    const std::wstring to = Path((std::wstring(L"bin\\") + (lpAs != nullptr ? lpAs : lpBinary)).c_str());

    GetModuleFileNameW(NULL, szProgram, MAX_PATH);
    from = szProgram;
    from = from.substr(0, from.rfind(L'\\'));
    from = from.substr(0, from.rfind(L'\\')) + L"\\product\\" + lpBinary;
    Check(CopyFileW(from.c_str(), to.c_str(), FALSE), from);
    return to;
}

std::wstring TestHome::Path(const wchar_t* lpRelative) const
{
    return m_home + L"\\" + lpRelative;
}

void TestHome::CopyIn(const wchar_t* lpFrom, const wchar_t* lpRelative) const
{
    Check(CopyFileW(lpFrom, Path(lpRelative).c_str(), FALSE), lpFrom);
}

std::string TestHome::PlainPath(const wchar_t* lpRelative) const
{
    const std::wstring path = Path(lpRelative).substr(4);

    return std::string(path.begin(), path.end());
}

bool TestHome::Exists(const wchar_t* lpRelative) const
{
    return GetFileAttributesW(Path(lpRelative).c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string TestHome::Read(const wchar_t* lpRelative) const
{
    std::string text;
    char        block[65536];
    DWORD       dwRead = 0;
    HANDLE      hFile = CreateFileW(Path(lpRelative).c_str(), GENERIC_READ,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, NULL, OPEN_EXISTING, 0, NULL);

    if (hFile != INVALID_HANDLE_VALUE) {
        while (ReadFile(hFile, block, sizeof block, &dwRead, NULL) && dwRead != 0) {
            text.append(block, dwRead);
        }
        CloseHandle(hFile);
    }
    return text;
}

void TestHome::Write(const wchar_t* lpRelative, const std::string& text) const
{
    DWORD  dwWritten = 0;
    HANDLE hFile = CreateFileW(Path(lpRelative).c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);

    Check(hFile != INVALID_HANDLE_VALUE, Path(lpRelative));
    Check(WriteFile(hFile, text.data(), static_cast<DWORD>(text.size()), &dwWritten, NULL), Path(lpRelative));
    CloseHandle(hFile);
}

void TestHome::Remove(const wchar_t* lpRelative) const
{
    if (GetFileAttributesW(Path(lpRelative).c_str()) & FILE_ATTRIBUTE_DIRECTORY) {
        RemoveTree(Path(lpRelative));
    } else {
        Check(DeleteFileW(Path(lpRelative).c_str()), Path(lpRelative));
    }
}

void TestHome::MakeFolder(const wchar_t* lpRelative) const
{
    Check(CreateDirectoryW(Path(lpRelative).c_str(), NULL), Path(lpRelative));
}

void TestHome::Move(const wchar_t* lpFrom, const wchar_t* lpTo) const
{
    Check(MoveFileExW(Path(lpFrom).c_str(), Path(lpTo).c_str(), 0), Path(lpFrom));
}

std::vector<std::wstring> TestHome::List(const wchar_t* lpFolder) const
{
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW          find;
    HANDLE                    hFind = FindFirstFileW((Path(lpFolder) + L"\\*").c_str(), &find);

    if (hFind != INVALID_HANDLE_VALUE) {
        do {
            if (wcscmp(find.cFileName, L".") != 0 && wcscmp(find.cFileName, L"..") != 0) {
                names.push_back(find.cFileName);
            }
        } while (FindNextFileW(hFind, &find));
        FindClose(hFind);
    }
    std::sort(names.begin(), names.end());
    return names;
}

HANDLE TestHome::Hold(const wchar_t* lpRelative, DWORD dwShare) const
{
    HANDLE hFile = CreateFileW(Path(lpRelative).c_str(), GENERIC_READ, dwShare, NULL, OPEN_EXISTING, 0, NULL);

    Check(hFile != INVALID_HANDLE_VALUE, Path(lpRelative));
    return hFile;
}
