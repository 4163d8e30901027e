#include "service_control.h"

#include <fmt/format.h>

#include "service_handle.h"
#include "text.h"

namespace dkpf {

namespace {

class Win32Services : public ServiceManager {
public:
    ServiceInfo Query(const wchar_t* name) override
    {
        ServiceInfo         info;
        const ServiceHandle service(name, SERVICE_QUERY_STATUS);
        if (service.Handle() == nullptr) {
            info.error = service.Error() == ERROR_SERVICE_DOES_NOT_EXIST ? ERROR_SUCCESS : service.Error();
            return info;
        }
        SERVICE_STATUS_PROCESS status{};
        DWORD                  needed = 0;
        BYTE                   buffer[sizeof(status)] = {};
        info.installed = true;
        if (!QueryServiceStatusEx(service.Handle(), SC_STATUS_PROCESS_INFO, buffer, sizeof(buffer), &needed)) {
            info.error = GetLastError();
            return info;
        }
        memcpy(&status, buffer, sizeof(status));
        info.state = status.dwCurrentState;
        info.pid = status.dwProcessId;
        return info;
    }

    DWORD Start(const wchar_t* name) override
    {
        const ServiceHandle service(name, SERVICE_START);
        if (service.Handle() == nullptr)
            return service.Error();
        return StartServiceW(service.Handle(), 0, nullptr) ? ERROR_SUCCESS : GetLastError();
    }

    DWORD Control(const wchar_t* name, DWORD control) override
    {
        const DWORD         access = control == SERVICE_CONTROL_STOP ? SERVICE_STOP : SERVICE_PAUSE_CONTINUE;
        const ServiceHandle service(name, access);
        if (service.Handle() == nullptr)
            return service.Error();
        SERVICE_STATUS status{};
        return ControlService(service.Handle(), control, &status) ? ERROR_SUCCESS : GetLastError();
    }
};

}  // namespace

ServiceManager& SystemServices()
{
    static Win32Services services;
    return services;
}

std::string ServiceStateText(DWORD state)
{
    switch (state) {
    case SERVICE_STOPPED:
        return "stopped";
    case SERVICE_START_PENDING:
        return "start pending";
    case SERVICE_STOP_PENDING:
        return "stop pending";
    case SERVICE_RUNNING:
        return "running";
    case SERVICE_CONTINUE_PENDING:
        return "continue pending";
    case SERVICE_PAUSE_PENDING:
        return "pause pending";
    case SERVICE_PAUSED:
        return "paused";
    default:
        return fmt::format("in the unknown state {}", state);
    }
}

std::optional<ServiceStart> NoStartNeeded(ServiceManager& services, const wchar_t* name)
{
    const ServiceInfo info = services.Query(name);
    if (info.error != ERROR_SUCCESS)
        return ServiceStart{ false, "could not be asked for: " + SystemErrorText(info.error) };
    if (!info.installed)
        return ServiceStart{ false, "is not installed" };
    if (info.state == SERVICE_RUNNING)
        return ServiceStart{ true, "is running already" };
    return std::nullopt;
}

ServiceStart StartAndWait(ServiceManager& services, const wchar_t* name, DWORD limitMs,
                          const std::function<bool(DWORD)>& wait)
{
    const std::optional<ServiceStart> settled = NoStartNeeded(services, name);
    if (settled)
        return *settled;

    const DWORD error = services.Start(name);
    if (error != ERROR_SUCCESS && error != ERROR_SERVICE_ALREADY_RUNNING)
        return { false, "could not be started: " + SystemErrorText(error) };

    for (DWORD waitedMs = 0;; waitedMs += START_STEP_MS) {
        const ServiceInfo info = services.Query(name);
        if (info.state == SERVICE_RUNNING)
            return { true, "was started" };
        if (info.state == SERVICE_STOPPED)
            return { false, "was started and stopped again" };
        if (waitedMs >= limitMs)
            return { false, fmt::format("is {} after {} s", ServiceStateText(info.state), limitMs / 1000) };
        if (!wait(START_STEP_MS))
            return { false, fmt::format("is {}; the wait for it was ended", ServiceStateText(info.state)) };
    }
}

}  // namespace dkpf
