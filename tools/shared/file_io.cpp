#include "file_io.h"

#include <algorithm>
#include <utility>
#include <vector>

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

/* Somebody has the file open, or is about to delete it: worth another try. */
static bool IsHeld(DWORD error)
{
    return error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION;
}

/* Tries until it is done, fails for another reason than a held file, or the tries are used up. */
template <class Step> static DWORD Patiently(const WaitFn& wait, Step step)
{
    DWORD error = step();
    for (int tries = 1; IsHeld(error) && tries < REPLACE_TRIES; tries++) {
        wait(REPLACE_WAIT_MS);
        error = step();
    }
    return error;
}

PendingFile::PendingFile(std::wstring path, WaitFn wait)
    : m_path(std::move(path)), m_beside(m_path + L".new"), m_wait(std::move(wait))
{
}

PendingFile::~PendingFile()
{
    if (m_file == INVALID_HANDLE_VALUE)
        return;
    // Removed before it is closed: once closed it may be somebody else's.
    if (!m_put)
        DeleteFileW(m_beside.c_str());
    CloseHandle(m_file);
}

DWORD PendingFile::Open()
{
    // Readers may look at it and this program may rename it; nobody else may open it for writing.
    return Patiently(m_wait, [this] {
        m_file = CreateFileW(m_beside.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                             CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        return m_file == INVALID_HANDLE_VALUE ? GetLastError() : ERROR_SUCCESS;
    });
}

DWORD PendingFile::Write(std::string_view content)
{
    DWORD written = 0;
    if (!WriteFile(m_file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr))
        return GetLastError();
    if (written != content.size())
        return ERROR_DISK_FULL;  // a full volume takes a part of the bytes and says that all is well
    return FlushFileBuffers(m_file) ? ERROR_SUCCESS : GetLastError();
}

/* The access list of a file as one block of bytes. */
static DWORD ReadRights(const std::wstring& path, std::vector<unsigned char>* rights)
{
    DWORD size = 0;
    GetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    const DWORD error = GetLastError();
    if (error != ERROR_INSUFFICIENT_BUFFER)
        return error;
    rights->resize(size);
    return GetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, rights->data(), size, &size) ? ERROR_SUCCESS
                                                                                                  : GetLastError();
}

DWORD PendingFile::KeepRights()
{
    std::vector<unsigned char>  rights;
    std::vector<unsigned char>  own;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD                       revision = 0;
    const DWORD                 error = ReadRights(m_path, &rights);
    if (error == ERROR_FILE_NOT_FOUND)
        return ERROR_SUCCESS;
    if (error != ERROR_SUCCESS)
        return error;
    if (ReadRights(m_beside, &own) == ERROR_SUCCESS && own == rights)
        return ERROR_SUCCESS;  // both have what the folder gives
    if (!GetSecurityDescriptorControl(rights.data(), &control, &revision))
        return GetLastError();
    // Without this request the system forgets that entries came from the folder, and they no longer follow it.
    if ((control & SE_DACL_AUTO_INHERITED) != 0)
        SetSecurityDescriptorControl(rights.data(), SE_DACL_AUTO_INHERIT_REQ, SE_DACL_AUTO_INHERIT_REQ);
    return SetFileSecurityW(m_beside.c_str(), DACL_SECURITY_INFORMATION, rights.data()) ? ERROR_SUCCESS
                                                                                        : GetLastError();
}

DWORD PendingFile::Put()
{
    const DWORD error = Patiently(m_wait, [this] {
        return MoveFileExW(m_beside.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)
                   ? ERROR_SUCCESS
                   : GetLastError();
    });
    m_put = error == ERROR_SUCCESS;
    return error;
}

DWORD ReplaceWholeFile(const std::wstring& path, std::string_view content, const WaitFn& wait)
{
    PendingFile pending(path, wait);
    DWORD       error = pending.Open();
    if (error == ERROR_SUCCESS)
        error = pending.Write(content);
    return error == ERROR_SUCCESS ? pending.Put() : error;
}

}  // namespace dkpf
