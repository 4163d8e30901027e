#include "home.h"

#include <windows.h>

#include "names.h"
#include "text.h"

namespace dkpf {

std::wstring Home::Bin() const
{
    return root + L"\\bin";
}

std::wstring Home::Etc() const
{
    return root + L"\\etc";
}

std::wstring Home::Log() const
{
    return root + L"\\log";
}

std::wstring Home::Perf() const
{
    return root + L"\\perf";
}

std::wstring Home::ConfigFile() const
{
    return Etc() + L"\\cluster.xml";
}

std::wstring Home::StateFile() const
{
    return Log() + L"\\" + AGENT_STATE_FILE;
}

std::wstring Home::EventLog() const
{
    return Log() + L"\\diskperf_event.log";
}

std::wstring Home::ModuleLog() const
{
    return Log() + L"\\diskperf.log";
}

Home HomeOfModulePath(const std::wstring& modulePath)
{
    return Home{ ParentPath(ParentPath(modulePath)) };
}

Home HomeOfThisProgram()
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return HomeOfModulePath(path);
        }
        path.resize(path.size() * 2);
    }
}

}  // namespace dkpf
