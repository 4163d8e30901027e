#include "doubles/journal.h"

#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <iterator>

void Journal::Fail(const std::string& name, unsigned nth, DWORD error, unsigned times)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    for (unsigned i = 0; i < times; i++) {
        m_plans[name][nth + i] = Planned{ 0, error, true };
    }
}

void Journal::Return(const std::string& name, unsigned nth, ULONGLONG value, DWORD error)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    m_plans[name][nth] = Planned{ value, error, false };
}

std::optional<Planned> Journal::Count(const std::string& name)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    unsigned                              n = ++m_counts[name];
    auto                                  plans = m_plans.find(name);
    if (plans == m_plans.end()) {
        return std::nullopt;
    }
    auto planned = plans->second.find(n);
    return planned == plans->second.end() ? std::nullopt : std::optional<Planned>(planned->second);
}

void Journal::ResetPlans()
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    m_counts.clear();
    m_plans.clear();
}

void Journal::Record(std::string name, std::string args, std::string result)
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    m_calls.push_back(Call{ std::move(name), std::move(args), std::move(result) });
}

void Journal::Clear()
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    m_calls.clear();
}

std::vector<Call> Journal::All() const
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    return m_calls;
}

std::vector<Call> Journal::Of(const std::string& name) const
{
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    std::vector<Call>                     found;
    std::copy_if(m_calls.begin(), m_calls.end(), std::back_inserter(found),
                 [&](const Call& call) { return call.name == name; });
    return found;
}

unsigned Journal::Number(const std::string& name) const
{
    return static_cast<unsigned>(Of(name).size());
}

std::vector<std::string> Journal::Names(std::initializer_list<std::string> hide) const
{
    std::vector<std::string> names;
    for (const Call& call : All()) {
        if (call.name != "log_write" && std::find(hide.begin(), hide.end(), call.name) == hide.end()) {
            names.push_back(call.name);
        }
    }
    return names;
}

std::vector<std::string> Journal::Lines(std::initializer_list<std::string> names) const
{
    std::vector<std::string> lines;
    for (const Call& call : All()) {
        if (std::find(names.begin(), names.end(), call.name) != names.end()) {
            lines.push_back(call.name + "(" + call.args + ") = " + call.result);
        }
    }
    return lines;
}

std::string Hex(ULONGLONG value)
{
    char text[32];
    snprintf(text, sizeof text, "0x%llx", value);
    return text;
}

std::string FormatText(const char* format, va_list args)
{
    // msvcrt's own routine on purpose: the compiler's run-time prints %#p differently.
    char text[65536];
    int  n = _vsnprintf(text, sizeof text, format, args);
    return n < 0 ? std::string("<text too long>") : std::string(text, static_cast<size_t>(n));
}
