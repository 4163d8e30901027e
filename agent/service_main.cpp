/*
 * The agent as a Windows service of its own process.
 */
#include <windows.h>
#include <winsvc.h>
#include <mutex>

#include "agent_process.h"
#include "console_out.h"
#include "names.h"
#include "stop_watch.h"
#include "text.h"

namespace dkpf {

namespace {

/* The state that the service manager sees. Control handler, main and watch thread report; nothing follows STOPPED. */
class ServiceFront : public Front {
public:
    void Attach(SERVICE_STATUS_HANDLE handle)
    {
        m_handle = handle;
        Report(SERVICE_START_PENDING, 0, START_HINT_MS);
    }
    bool IsConsole() const override
    {
        return false;
    }
    void Running() override
    {
        Report(SERVICE_RUNNING, 0, 0);
    }
    void Stopping()
    {
        Report(SERVICE_STOP_PENDING, 0, STOP_HINT_MS);
    }
    void StillStopping(DWORD checkPoint, DWORD hintMs) override
    {
        Report(SERVICE_STOP_PENDING, checkPoint, hintMs);
    }
    void Stopped(AgentExit code) override
    {
        m_exit = code;  // before the report, which ends the dispatcher that asks for it
        Report(SERVICE_STOPPED, 0, 0);
    }
    AgentExit ExitCode() const
    {
        return m_exit;
    }
    void Repeat()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        SetServiceStatus(m_handle, &m_status);
    }

private:
    static constexpr DWORD START_HINT_MS = 5000;

    void Report(DWORD state, DWORD checkPoint, DWORD hintMs)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_status.dwCurrentState == SERVICE_STOPPED)
            return;
        m_status.dwCurrentState = state;
        m_status.dwControlsAccepted =
            state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PARAMCHANGE : 0;
        m_status.dwCheckPoint = checkPoint;
        m_status.dwWaitHint = hintMs;
        if (state == SERVICE_STOPPED && m_exit != AGENT_STOPPED) {
            m_status.dwWin32ExitCode = ERROR_SERVICE_SPECIFIC_ERROR;
            m_status.dwServiceSpecificExitCode = static_cast<DWORD>(m_exit);
        }
        SetServiceStatus(m_handle, &m_status);
    }

    std::mutex            m_mutex;
    SERVICE_STATUS_HANDLE m_handle = nullptr;
    SERVICE_STATUS        m_status{ SERVICE_WIN32_OWN_PROCESS, SERVICE_START_PENDING, 0, NO_ERROR, 0, 0, 0 };
    AgentExit             m_exit = AGENT_SYSTEM_FAILED;  // until Stopped says otherwise
};

struct Service {
    ServiceFront front;
    AgentProcess process{ front };
};

Service* g_service;  // set before the service manager can call in; one service in this process

DWORD WINAPI OnControl(DWORD control, DWORD, LPVOID, LPVOID)
{
    switch (control) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
        g_service->front.Stopping();
        g_service->process.AskStop();
        return NO_ERROR;
    case SERVICE_CONTROL_PARAMCHANGE:
        g_service->process.AskReload();
        return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
        g_service->front.Repeat();
        return NO_ERROR;
    default:
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

VOID WINAPI ServiceMain(DWORD, LPWSTR*)
{
    const SERVICE_STATUS_HANDLE handle = RegisterServiceCtrlHandlerExW(AGENT_SERVICE, OnControl, nullptr);
    if (handle == nullptr)
        return;
    g_service->front.Attach(handle);
    g_service->process.Live();
}

}  // namespace

int RunAsService()
{
    // Never freed: the dispatcher returns as soon as STOPPED is reported, while the reporting thread is still on its
    // way out.
    Service& service = *new Service;
    wchar_t  name[ARRAYSIZE(AGENT_SERVICE)] = {};
    wcscpy_s(name, AGENT_SERVICE);
    const SERVICE_TABLE_ENTRYW table[] = { { name, ServiceMain }, { nullptr, nullptr } };

    g_service = &service;
    if (StartServiceCtrlDispatcherW(table))
        return service.front.ExitCode();
    const DWORD error = GetLastError();
    if (error == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT) {
        PrintError("dkpfagent: the service manager starts the service; in the foreground use --console (see --help)\n");
        return AGENT_WRONG_USAGE;
    }
    PrintError("dkpfagent: the service manager does not answer: " + SystemErrorText(error) + "\n");
    return AGENT_SYSTEM_FAILED;
}

}  // namespace dkpf
