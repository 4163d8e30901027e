#include "title_range.h"

#include <algorithm>

#include "registration.h"

namespace dkpf {

static constexpr DWORD TITLE_SPAN = 2 * (TITLE_NUM - 1);  // from the first title to the last

static bool ReadNumber(Machine& machine, const std::wstring& key, const wchar_t* name, DWORD* number)
{
    RegistryValue value;
    if (machine.ReadValue(key, name, &value) != ERROR_SUCCESS || value.type != REG_DWORD)
        return false;
    *number = value.number;
    return true;
}

bool ReadTitleRange(Machine& machine, DWORD* firstCounter)
{
    DWORD      lastCounter = 0, firstHelp = 0, lastHelp = 0;
    const bool there = ReadNumber(machine, PERFORMANCE_KEY, VALUE_FIRST_COUNTER, firstCounter) &&
                       ReadNumber(machine, PERFORMANCE_KEY, VALUE_LAST_COUNTER, &lastCounter) &&
                       ReadNumber(machine, PERFORMANCE_KEY, VALUE_FIRST_HELP, &firstHelp) &&
                       ReadNumber(machine, PERFORMANCE_KEY, VALUE_LAST_HELP, &lastHelp);
    // The system's loader counts titles and help texts apart: they need not lie side by side.
    return there && *firstCounter != 0 && *firstCounter % 2 == 0 && lastCounter == *firstCounter + TITLE_SPAN &&
           firstHelp != 0 && lastHelp == firstHelp + TITLE_SPAN;
}

DWORD FreeTitleRange(Machine& machine)
{
    struct Taken {
        DWORD first;
        DWORD last;
    };
    std::vector<Taken> taken;
    DWORD              number = 0;
    for (const wchar_t* name : { VALUE_LAST_COUNTER, VALUE_LAST_HELP }) {
        if (ReadNumber(machine, PERFLIB_KEY, name, &number))
            taken.push_back({ 0, number });
    }
    std::vector<std::wstring> services;
    machine.SubKeys(SERVICES_KEY, &services);
    for (const std::wstring& service : services) {
        const std::wstring key = std::wstring(SERVICES_KEY) + L"\\" + service + L"\\Performance";
        if (key == PERFORMANCE_KEY)
            continue;
        Taken titles{}, helps{};
        if (ReadNumber(machine, key, VALUE_FIRST_COUNTER, &titles.first) &&
            ReadNumber(machine, key, VALUE_LAST_COUNTER, &titles.last))
            taken.push_back(titles);
        if (ReadNumber(machine, key, VALUE_FIRST_HELP, &helps.first) &&
            ReadNumber(machine, key, VALUE_LAST_HELP, &helps.last))
            taken.push_back(helps);
    }
    std::sort(taken.begin(), taken.end(), [](const Taken& a, const Taken& b) { return a.first < b.first; });
    DWORD first = FIRST_FREE_TITLE;
    for (const Taken& range : taken) {
        // In the order of their starts: a range that starts behind our end starts behind it for good.
        if (range.first <= first + TITLE_SPAN + 1 && range.last >= first)
            first = (range.last / 2 + 1) * 2;
    }
    return first;
}

}  // namespace dkpf
