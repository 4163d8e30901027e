#include "provider_hold.h"

#include <fmt/format.h>

#include "registration.h"
#include "registry_key.h"
#include "text.h"

namespace dkpf {

namespace {

using OpenFn = DWORD(APIENTRY*)(LPWSTR);
using CloseFn = DWORD(APIENTRY*)();
using TerminateFn = BOOL (*)(DWORD*);

/* An export of ours as what it is; the system knows one type for all. */
template <class Function> Function As(FARPROC address)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
}

}  // namespace

ProviderValues ReadProviderValues()
{
    const RegistryKey key(PERFORMANCE_KEY);
    ProviderValues    values;
    DWORD             error = key.ExpandedText(VALUE_LIBRARY, &values.library);
    if (error == ERROR_SUCCESS)
        error = key.ExpandedText(VALUE_OPEN, &values.open);
    if (error == ERROR_SUCCESS)
        error = key.ExpandedText(VALUE_CLOSE, &values.close);
    if (error == ERROR_SUCCESS)
        error = key.Number(VALUE_FIRST_COUNTER, &values.firstCounter);
    if (error == ERROR_SUCCESS)
        error = key.Number(VALUE_FIRST_HELP, &values.firstHelp);
    if (error != ERROR_SUCCESS)
        values = ProviderValues();
    values.error = error;
    return values;
}

ProviderPorts SystemProvider()
{
    ProviderPorts ports;
    ports.values = ReadProviderValues;
    ports.load = [](const std::wstring& path) {
        return LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    };
    ports.find = [](HMODULE module, const std::string& name) { return GetProcAddress(module, name.c_str()); };
    ports.closeQueries = [] { RegCloseKey(HKEY_PERFORMANCE_DATA); };
    return ports;
}

std::string OpenErrorText(DWORD error)
{
    switch (error) {
    case ERROR_NOT_READY:
        return "the performance library could not attach: is the disk agent running, and are consumer rows free "
               "(dkpfctl dump --rows)";
    case ERROR_ACCESS_DENIED:
        return "collection is switched off: perfenable is 0 in the configuration";
    case ERROR_CANTOPEN:
    case ERROR_CANTREAD:
        return "the provider is not registered: dkpfctl doctor says what to do";
    case ERROR_INVALID_FUNCTION:
        return "there is no sample yet: is the driver running (dkpfctl status)";
    case ERROR_OUTOFMEMORY:
        return "the performance library has no memory left";
    default:
        return "the performance library could not be opened: " + SystemErrorText(error);
    }
}

ProviderHold::ProviderHold(ProviderPorts ports) : m_ports(std::move(ports))
{
}

ProviderHold::~ProviderHold()
{
    Close();
}

/* Once; a library that is replaced while we run stays the one that we hold. */
bool ProviderHold::Load(ProviderOpen* result)
{
    if (m_module != nullptr)
        return true;
    m_values = m_ports.values();
    if (m_values.error != ERROR_SUCCESS) {
        result->words = fmt::format("the provider is not registered ({}): dkpfctl doctor says what to do",
                                    SystemErrorText(m_values.error));
        return false;
    }
    const HMODULE module = m_ports.load(m_values.library);
    if (module == nullptr) {
        result->words = fmt::format("{} could not be loaded ({}): dkpfctl doctor says what to do",
                                    Narrow(m_values.library), SystemErrorText(GetLastError()));
        return false;
    }
    m_open = m_ports.find(module, Narrow(m_values.open));
    m_close = m_ports.find(module, Narrow(m_values.close));
    if (m_open == nullptr || m_close == nullptr) {
        result->words = fmt::format("{} does not export {}: dkpfctl doctor says what to do", Narrow(m_values.library),
                                    Narrow(m_open == nullptr ? m_values.open : m_values.close));
        return false;
    }
    m_module = module;
    return true;
}

/* An open that fails behind its DkpfInitialize leaves the process attached. With one attachment too many no close would
 * ever give the row back, and after a restart of the agent no open would take a new one. */
void ProviderHold::ReleaseFailedOpen()
{
    DWORD         ignored = 0;
    const FARPROC terminate = m_ports.find(m_module, "DkpfTerminate");
    if (terminate != nullptr)
        As<TerminateFn>(terminate)(&ignored);
}

ProviderOpen ProviderHold::Open()
{
    ProviderOpen result;
    Close();
    if (!Load(&result))
        return result;
    const DWORD error = As<OpenFn>(m_open)(nullptr);
    if (error != ERROR_SUCCESS) {
        result.words = OpenErrorText(error);
        ReleaseFailedOpen();
        return result;
    }
    m_opened = result.opened = true;
    return result;
}

void ProviderHold::Close()
{
    if (!m_opened)
        return;
    m_ports.closeQueries();
    As<CloseFn>(m_close)();
    m_opened = false;
}

}  // namespace dkpf
