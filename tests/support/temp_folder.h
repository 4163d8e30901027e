/*
 * A folder of its own for a test, gone with it.
 */
#ifndef DKPF_TESTS_TEMP_FOLDER_H
#define DKPF_TESTS_TEMP_FOLDER_H

#include <windows.h>
#include <string>

class TempFolder {
public:
    TempFolder()
    {
        wchar_t base[MAX_PATH] = {};
        GetTempPathW(MAX_PATH, base);
        static int number = 0;
        // A killed program leaves its folders behind, and its process number lives again.
        do {
            m_path = std::wstring(base) + L"dkpf" + std::to_wstring(GetCurrentProcessId()) + L"_" +
                     std::to_wstring(number++);
        } while (!CreateDirectoryW(m_path.c_str(), nullptr) && GetLastError() == ERROR_ALREADY_EXISTS);
    }
    ~TempFolder()
    {
        WIN32_FIND_DATAW found{};
        const HANDLE     search = FindFirstFileW((m_path + L"\\*").c_str(), &found);
        if (search != INVALID_HANDLE_VALUE) {
            do {
                DeleteFileW((m_path + L"\\" + found.cFileName).c_str());
            } while (FindNextFileW(search, &found));
            FindClose(search);
        }
        RemoveDirectoryW(m_path.c_str());
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::wstring File(const wchar_t* name) const
    {
        return m_path + L"\\" + name;
    }

    void Write(const wchar_t* name, const std::string& content) const
    {
        const HANDLE file = CreateFileW(File(name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        DWORD        written = 0;
        WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr);
        CloseHandle(file);
    }

    bool Has(const wchar_t* name) const
    {
        return GetFileAttributesW(File(name).c_str()) != INVALID_FILE_ATTRIBUTES;
    }

private:
    std::wstring m_path;
};

#endif
