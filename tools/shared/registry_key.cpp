#include "registry_key.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

namespace dkpf {

RegistryKey::RegistryKey(const std::wstring& path, REGSAM access)
{
    m_error = static_cast<DWORD>(RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, access | KEY_WOW64_64KEY, &m_key));
}

RegistryKey::~RegistryKey()
{
    if (m_key != nullptr)
        RegCloseKey(m_key);
}

DWORD RegistryKey::Read(const std::wstring& name, DWORD* type, std::vector<BYTE>* bytes) const
{
    // Values that others write may have grown when they are read; some of the system's tell no size before.
    static constexpr int tries = 8;
    std::vector<BYTE>    buffer(2048);
    DWORD                error = m_error != ERROR_SUCCESS ? m_error : ERROR_MORE_DATA;
    for (int i = 0; error == ERROR_MORE_DATA && i < tries; i++) {
        DWORD size = static_cast<DWORD>(buffer.size()), kind = REG_NONE;
        error = static_cast<DWORD>(RegQueryValueExW(m_key, name.c_str(), nullptr, &kind, buffer.data(), &size));
        if (error == ERROR_SUCCESS) {
            buffer.resize(size);
            *type = kind;
            *bytes = std::move(buffer);
        } else if (error == ERROR_MORE_DATA) {
            buffer.resize(std::max<size_t>(buffer.size() * 4, size));
        }
    }
    return error;
}

DWORD RegistryKey::Number(const std::wstring& name, DWORD* number) const
{
    DWORD             type = REG_NONE;
    std::vector<BYTE> bytes;
    const DWORD       error = Read(name, &type, &bytes);
    if (error != ERROR_SUCCESS)
        return error;
    if (type != REG_DWORD || bytes.size() != sizeof(*number))
        return ERROR_UNSUPPORTED_TYPE;
    std::memcpy(number, bytes.data(), sizeof(*number));
    return ERROR_SUCCESS;
}

DWORD RegistryKey::Text(const std::wstring& name, std::wstring* text, DWORD* type) const
{
    DWORD             kind = REG_NONE;
    std::vector<BYTE> bytes;
    const DWORD       error = Read(name, &kind, &bytes);
    if (error != ERROR_SUCCESS)
        return error;
    if (kind != REG_SZ && kind != REG_EXPAND_SZ)
        return ERROR_UNSUPPORTED_TYPE;
    text->assign(bytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text->data(), bytes.data(), text->size() * sizeof(wchar_t));
    text->resize(wcslen(text->c_str()));  // a text may lack its end, or have several
    if (type != nullptr)
        *type = kind;
    return ERROR_SUCCESS;
}

DWORD RegistryKey::ExpandedText(const std::wstring& name, std::wstring* text) const
{
    std::wstring raw;
    DWORD        type = REG_NONE;
    const DWORD  error = Text(name, &raw, &type);
    if (error != ERROR_SUCCESS)
        return error;
    if (type == REG_EXPAND_SZ) {
        std::wstring whole(32768, L'\0');
        const DWORD  length = ExpandEnvironmentStringsW(raw.c_str(), whole.data(), static_cast<DWORD>(whole.size()));
        if (length == 0 || length > whole.size())
            return ERROR_FILENAME_EXCED_RANGE;
        raw = whole.substr(0, length - 1);
    }
    *text = std::move(raw);
    return ERROR_SUCCESS;
}

}  // namespace dkpf
