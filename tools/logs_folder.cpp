#include "logs_folder.h"

#include "event_log.h"
#include "text.h"

namespace dkpf {

namespace {

class OpenLogFile : public LogFile {
public:
    OpenLogFile(HANDLE file, LogFileId id) : m_file(file), m_id(id)
    {
    }
    ~OpenLogFile() override
    {
        CloseHandle(m_file);
    }
    LogFileId Id() const override
    {
        return m_id;
    }
    ULONGLONG Size() override
    {
        LARGE_INTEGER size{};
        return GetFileSizeEx(m_file, &size) ? static_cast<ULONGLONG>(size.QuadPart) : 0;
    }
    DWORD Read(ULONGLONG at, char* to, DWORD size, DWORD* got) override
    {
        OVERLAPPED from{};
        from.Offset = static_cast<DWORD>(at);
        from.OffsetHigh = static_cast<DWORD>(at >> 32);
        *got = 0;
        if (ReadFile(m_file, to, size, got, &from))
            return ERROR_SUCCESS;
        const DWORD error = GetLastError();
        return error == ERROR_HANDLE_EOF ? ERROR_SUCCESS : error;
    }

private:
    HANDLE    m_file;
    LogFileId m_id;
};

}  // namespace

InstalledLogs::InstalledLogs(const std::wstring& folder) : m_folder(folder)
{
}

DWORD InstalledLogs::Open(const std::string& log, int generation, std::unique_ptr<LogFile>* file)
{
    const std::wstring path = GenerationPath(m_folder + L"\\" + Wide(log) + L".log", generation);
    const HANDLE       handle =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return GetLastError();
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(handle, &info)) {
        const DWORD error = GetLastError();
        CloseHandle(handle);
        return error;
    }
    const LogFileId id = static_cast<ULONGLONG>(info.nFileIndexHigh) << 32 | info.nFileIndexLow;
    *file = std::make_unique<OpenLogFile>(handle, id);
    return ERROR_SUCCESS;
}

}  // namespace dkpf
