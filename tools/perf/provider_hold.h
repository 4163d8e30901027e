/*
 * Our provider, loaded and opened by the reader itself. Wine loads, opens, closes and unloads a provider for each
 * query, so that its intervals would always be those of no time; while the reader holds one open, the system's opens
 * and closes only count.
 */
#ifndef DKPF_TOOLS_PROVIDER_HOLD_H
#define DKPF_TOOLS_PROVIDER_HOLD_H

#include <windows.h>
#include <functional>
#include <string>

namespace dkpf {

/* What set-up registered. */
struct ProviderValues {
    DWORD        error = ERROR_SUCCESS;  // why the values could not be read; they are then empty
    std::wstring library;                // with its environment strings expanded
    std::wstring open;                   // names of the exports
    std::wstring close;
    DWORD        firstCounter = 0;  // title index of the object
    DWORD        firstHelp = 0;
};

/* Reads PERFORMANCE_KEY (registration.h). */
ProviderValues ReadProviderValues();

/* The calls that a hold makes; a test passes its own. */
struct ProviderPorts {
    std::function<ProviderValues()>                     values;
    std::function<HMODULE(const std::wstring& path)>    load;  // sets the last error
    std::function<FARPROC(HMODULE, const std::string&)> find;
    std::function<void()>                               closeQueries;  // ends what the system holds for our queries
};

ProviderPorts SystemProvider();

struct ProviderOpen {
    bool        opened = false;
    std::string words;  // why not and what to do; one sentence without a period
};

/* What an open's error number means: DkpfOpenForPerfmon answers so, and so do the docs. */
std::string OpenErrorText(DWORD error);

/* One thread. The library stays loaded after the hold is gone: unloading it after a failed open would leave its
 * consumer row taken until the process ends. */
class ProviderHold {
public:
    explicit ProviderHold(ProviderPorts ports = SystemProvider());
    ~ProviderHold();
    ProviderHold(const ProviderHold&) = delete;
    ProviderHold& operator=(const ProviderHold&) = delete;

    /* Attaches to the region as it is now; lets go of an attachment that is there. Waits for the region's mutex. */
    ProviderOpen Open();
    /* Ends the attachment, and the system's queries with it. Nothing where there is none. */
    void Close();
    /* As of the last open. */
    const ProviderValues& Values() const
    {
        return m_values;
    }

private:
    bool Load(ProviderOpen* result);
    void ReleaseFailedOpen();

    ProviderPorts  m_ports;
    ProviderValues m_values;
    HMODULE        m_module = nullptr;
    FARPROC        m_open = nullptr;
    FARPROC        m_close = nullptr;
    bool           m_opened = false;
};

}  // namespace dkpf

#endif
