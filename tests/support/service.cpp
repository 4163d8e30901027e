#include "support/service.h"

#include "support/patience.h"

static SERVICE_STATUS StatusOf(SC_HANDLE service)
{
    SERVICE_STATUS status = {};
    QueryServiceStatus(service, &status);
    return status;
}

static bool StopIt(SC_HANDLE service)
{
    SERVICE_STATUS status = {};
    ControlService(service, SERVICE_CONTROL_STOP, &status);
    return Eventually([service] { return StatusOf(service).dwCurrentState == SERVICE_STOPPED; });
}

void RemoveService(const char* serviceName)
{
    const SC_HANDLE manager = OpenSCManagerA(NULL, NULL, SC_MANAGER_ALL_ACCESS);
    const SC_HANDLE left = OpenServiceA(manager, serviceName, SERVICE_ALL_ACCESS);
    if (left != NULL) {
        if (StatusOf(left).dwCurrentState != SERVICE_STOPPED) {
            StopIt(left);
        }
        DeleteService(left);
        CloseServiceHandle(left);
    }
    CloseServiceHandle(manager);
}

Service::Service(const char* serviceName, DWORD serviceType, const std::string& commandLine)
    : name(serviceName), manager(OpenSCManagerA(NULL, NULL, SC_MANAGER_ALL_ACCESS))
{
    RemoveService(name);
    Eventually([&] {
        handle = CreateServiceA(manager, name, name, SERVICE_ALL_ACCESS, serviceType, SERVICE_DEMAND_START,
                                SERVICE_ERROR_NORMAL, commandLine.c_str(), NULL, NULL, NULL, NULL, NULL);
        return handle != NULL;
    });
}

Service::~Service()
{
    CloseServiceHandle(handle);
    RemoveService(name);
    CloseServiceHandle(manager);
}

bool Service::Launch()
{
    return Created([this] { return StartServiceA(handle, 0, NULL); });
}

bool Service::Start()
{
    return Launch() && Eventually([this] { return State() == SERVICE_RUNNING; });
}

bool Service::Stop()
{
    return StopIt(handle);
}

bool Service::Control(DWORD control)
{
    SERVICE_STATUS status = {};
    return ControlService(handle, control, &status) != FALSE;
}

DWORD Service::State() const
{
    return Status().dwCurrentState;
}

SERVICE_STATUS Service::Status() const
{
    return StatusOf(handle);
}
