/*
 * A service of the machine with the manager it was opened at, open for the life of the object.
 */
#ifndef DKPF_TOOLS_SERVICE_HANDLE_H
#define DKPF_TOOLS_SERVICE_HANDLE_H

#include <windows.h>
#include <winsvc.h>
#include <string>

namespace dkpf {

class ServiceHandle {
public:
    ServiceHandle(const std::wstring& name, DWORD access)
    {
        m_manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
        if (m_manager != nullptr)
            m_service = OpenServiceW(m_manager, name.c_str(), access);
        if (m_service == nullptr)
            m_error = GetLastError();
    }
    ~ServiceHandle()
    {
        if (m_service != nullptr)
            CloseServiceHandle(m_service);
        if (m_manager != nullptr)
            CloseServiceHandle(m_manager);
    }
    ServiceHandle(const ServiceHandle&) = delete;
    ServiceHandle& operator=(const ServiceHandle&) = delete;

    /* nullptr where it could not be opened; Error() then says why. */
    SC_HANDLE Handle() const
    {
        return m_service;
    }
    DWORD Error() const
    {
        return m_error;
    }

private:
    SC_HANDLE m_manager = nullptr;
    SC_HANDLE m_service = nullptr;
    DWORD     m_error = ERROR_SUCCESS;
};

}  // namespace dkpf

#endif
