/*
 * A key of the machine's registry, open for the life of the object.
 */
#ifndef DKPF_TOOLS_REGISTRY_KEY_H
#define DKPF_TOOLS_REGISTRY_KEY_H

#include <windows.h>
#include <string>
#include <vector>

namespace dkpf {

class RegistryKey {
public:
    /* Below HKEY_LOCAL_MACHINE, in the view of 64-bit programs. */
    explicit RegistryKey(const std::wstring& path, REGSAM access = KEY_QUERY_VALUE);
    ~RegistryKey();
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    HKEY Handle() const
    {
        return m_key;
    }
    /* Of opening it: 0, or the system's number. */
    DWORD Error() const
    {
        return m_error;
    }

    /* Each returns 0, the error of opening the key, or the system's number, ERROR_UNSUPPORTED_TYPE for another type.
     * What it gives is whole, or as it was before. */
    DWORD Read(const std::wstring& name, DWORD* type, std::vector<BYTE>* bytes) const;
    DWORD Number(const std::wstring& name, DWORD* number) const;
    /* Up to its first NUL, variables as they stand. */
    DWORD Text(const std::wstring& name, std::wstring* text, DWORD* type = nullptr) const;
    /* With the variables expanded, where the value is of the type that has any. */
    DWORD ExpandedText(const std::wstring& name, std::wstring* text) const;

private:
    HKEY  m_key = nullptr;
    DWORD m_error = ERROR_SUCCESS;
};

}  // namespace dkpf

#endif
