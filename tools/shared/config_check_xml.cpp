/*
 * The one place that calls the configuration library: programs that only judge reports do not load it.
 */
#include <memory>

#include "config_check.h"

namespace dkpf {

static constexpr char COMPONENT[] = "diskperf";

std::unique_ptr<XMLLIB_REPORT> ReadConfiguration(const wchar_t* file)
{
    auto report = std::make_unique<XMLLIB_REPORT>();
    xmllib_check(COMPONENT, file, report.get());
    return report;
}

ConfigVerdict CheckConfiguration(const wchar_t* file)
{
    return JudgeReport(*ReadConfiguration(file));
}

DWORD EditConfiguration(const std::vector<ConfigChange>& changes, std::string* text, XMLLIB_FINDING* finding)
{
    std::vector<XMLLIB_CHANGE> list;
    for (const ConfigChange& change : changes)
        list.push_back({ change.key.c_str(), change.value.c_str() });
    list.push_back({});  // so that there is a list where there is no change

    std::string bytes(XMLLIB_FILE_MAX, '\0');
    DWORD       size = XMLLIB_FILE_MAX;
    if (xmllib_edit(COMPONENT, nullptr, list.data(), static_cast<DWORD>(changes.size()), bytes.data(), &size,
                    finding) == XMLLIB_OK)
        *text = bytes.substr(0, size);
    return finding->dwStatus;
}

}  // namespace dkpf
