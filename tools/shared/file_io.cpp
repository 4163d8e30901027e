#include "file_io.h"

#include <algorithm>

namespace dkpf {

DWORD ReadWholeFile(const std::wstring& path, size_t bound, std::string* content)
{
    content->clear();
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError();

    DWORD error = ERROR_SUCCESS;
    char  block[16384];
    while (content->size() < bound) {
        DWORD       got = 0;
        const DWORD want = static_cast<DWORD>(std::min(sizeof(block), bound - content->size()));
        if (!ReadFile(file, block, want, &got, nullptr)) {
            error = GetLastError();
            break;
        }
        if (got == 0)
            break;
        content->append(block, got);
    }
    CloseHandle(file);
    return error;
}

bool SameFile(const std::wstring& one, const std::wstring& other)
{
    BY_HANDLE_FILE_INFORMATION info[2] = {};
    const std::wstring*        paths[2] = { &one, &other };
    for (int i = 0; i < 2; i++) {
        const HANDLE file = CreateFileW(paths[i]->c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            return false;
        const BOOL known = GetFileInformationByHandle(file, &info[i]);
        CloseHandle(file);
        if (!known)
            return false;
    }
    return info[0].dwVolumeSerialNumber == info[1].dwVolumeSerialNumber &&
           info[0].nFileIndexHigh == info[1].nFileIndexHigh && info[0].nFileIndexLow == info[1].nFileIndexLow;
}

static DWORD WriteNewFile(const std::wstring& path, std::string_view content)
{
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError();

    DWORD error = ERROR_SUCCESS;
    DWORD written = 0;
    if (!WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr))
        error = GetLastError();
    else if (written != content.size())
        error = ERROR_DISK_FULL;  // a full volume takes a part of the bytes and says that all is well
    else if (!FlushFileBuffers(file))
        error = GetLastError();
    CloseHandle(file);
    return error;
}

DWORD ReplaceWholeFile(const std::wstring& path, std::string_view content, const WaitFn& wait)
{
    const std::wstring beside = path + L".new";
    DWORD              error = WriteNewFile(beside, content);
    for (int tries = 1; error == ERROR_SUCCESS; tries++) {
        if (MoveFileExW(beside.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            return ERROR_SUCCESS;
        const DWORD moved = GetLastError();
        const bool  held = moved == ERROR_ACCESS_DENIED || moved == ERROR_SHARING_VIOLATION;
        if (!held || tries == REPLACE_TRIES)
            error = moved;
        else
            wait(REPLACE_WAIT_MS);
    }
    DeleteFileW(beside.c_str());
    return error;
}

}  // namespace dkpf
