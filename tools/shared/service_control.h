/*
 * The service manager: look at, start and notify one service by name.
 */
#ifndef DKPF_TOOLS_SERVICE_CONTROL_H
#define DKPF_TOOLS_SERVICE_CONTROL_H

#include <windows.h>
#include <functional>
#include <optional>
#include <string>

namespace dkpf {

struct ServiceInfo {
    bool  installed = false;
    DWORD state = 0;  // SERVICE_STOPPED, SERVICE_RUNNING, ...; only where installed and error is 0
    DWORD pid = 0;    // 0 for a driver
    DWORD error = 0;  // why it could not be asked, where it is neither installed nor absent
};

class ServiceManager {
public:
    virtual ~ServiceManager() = default;
    virtual ServiceInfo Query(const wchar_t* name) = 0;
    virtual DWORD       Start(const wchar_t* name) = 0;                   // 0, or the system's error number
    virtual DWORD       Control(const wchar_t* name, DWORD control) = 0;  // likewise
};

/* The machine's own. Each call opens and closes what it needs; any thread may call. */
ServiceManager& SystemServices();

/* "running", "stopped", "start pending", ... */
std::string ServiceStateText(DWORD state);

struct ServiceStart {
    bool        running = false;
    std::string words;  // "is running already", "was started", or why it does not run
};

/* What StartAndWait answers without a start, for whoever cannot afford the start call to hang: the service runs, is not
 * installed, or cannot be asked for. Nothing where it has to be started. */
std::optional<ServiceStart> NoStartNeeded(ServiceManager& services, const wchar_t* name);

/**
 * Starts a service unless it runs, and waits until it does.
 * @param limitMs  waits so long at most, in steps of START_STEP_MS
 * @param wait     sleeps one step; FALSE ends the waiting
 */
ServiceStart StartAndWait(ServiceManager& services, const wchar_t* name, DWORD limitMs,
                          const std::function<bool(DWORD)>& wait);

inline constexpr DWORD START_STEP_MS = 100;

}  // namespace dkpf

#endif
