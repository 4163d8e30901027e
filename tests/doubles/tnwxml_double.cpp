#include "doubles/tnwxml_double.h"

#include <string.h>

XmlDouble* XmlDouble::current = nullptr;

XmlDouble::XmlDouble(Journal& journal) : m_journal(journal)
{
    Set("parameters/perfenable", 1);
    Set("parameters/perflogsave", 1);
    Set("parameters/perflogsize", 1024);
    Set("parameters/perflogrotation", 3);
    Set("parameters/collectinterval", 10);
    Set("parameters/writeinterval", 60);
    Set("parameters/collectparam", 0x1ffff);
    Set("log/level", 7);
    Set("log/size", 2048);
    current = this;
}

XmlDouble::~XmlDouble()
{
    current = nullptr;
}

void XmlDouble::Fail(const std::string& routine, unsigned nth, XMLLIB_STATUS status)
{
    m_journal.Return(routine, nth, status);
}

std::string XmlDouble::Open() const
{
    return std::string(init ? "init " : "") + (policy ? "policy " : "") + (config ? "config " : "");
}

XMLLIB_STATUS XmlDouble::Answer(const char* routine, const std::string& args, XMLLIB_STATUS status)
{
    m_journal.Record(routine, args, Hex(status));
    return status;
}

/* One call of the sequence. It succeeds only in order, and then changes the flag that stands for what it opens or
 * closes. */
XMLLIB_STATUS XmlDouble::Enter(const char* routine, const std::string& args, bool inOrder, bool* flag, bool set)
{
    if (auto planned = m_journal.Count(routine)) {
        return Answer(routine, args, planned->value);
    }
    if (!inOrder) {
        return Answer(routine, args, XMLLIB_WRONG_ORDER);
    }
    *flag = set;
    return Answer(routine, args, XMLLIB_OK);
}

XMLLIB_STATUS XmlDouble::GetValue(const char* key, DWORD type, void* value, DWORD* size)
{
    std::string args = std::string(key == nullptr ? "NULL" : key) + ", " + std::to_string(type) + ", size " +
                       (size == nullptr ? "NULL" : std::to_string(*size));
    if (auto planned = m_journal.Count("xmllib_get_value")) {
        return Answer("xmllib_get_value", args, planned->value);
    }
    if (!config) {
        return Answer("xmllib_get_value", args, XMLLIB_WRONG_ORDER);
    }
    if (key == nullptr || type != XMLLIB_TYPE_DWORD || value == nullptr || size == nullptr || *size < sizeof(DWORD)) {
        return Answer("xmllib_get_value", args, XMLLIB_INVALID_ARGUMENT);
    }
    if (auto failing = failKey.find(key); failing != failKey.end()) {
        return Answer("xmllib_get_value", args, failing->second);
    }
    auto found = values.find(key);
    if (found == values.end()) {
        return Answer("xmllib_get_value", args, XMLLIB_NO_SUCH_KEY);
    }
    memcpy(value, &found->second, sizeof(DWORD));
    *size = sizeof(DWORD);
    return Answer("xmllib_get_value", args, XMLLIB_OK);
}

XMLLIB_STATUS XmlDouble::Check(const char* component, const WCHAR* file, XMLLIB_REPORT* result)
{
    std::string args = std::string(component == nullptr ? "NULL" : component) + (file == nullptr ? ", NULL" : ", file");
    if (auto planned = m_journal.Count("xmllib_check")) {
        return Answer("xmllib_check", args, planned->value);
    }
    if (component == nullptr || result == nullptr) {
        return Answer("xmllib_check", args, XMLLIB_INVALID_ARGUMENT);
    }
    *result = report;
    return Answer("xmllib_check", args, report.finding.dwStatus);
}

/* ---- The routines as callers see them ---- */

static std::string Text(const char* text)
{
    return text == nullptr ? "NULL" : text;
}

XMLLIB_STATUS xmllib_init(const char* lpComponent)
{
    XmlDouble& xml = *XmlDouble::current;
    return xml.Enter("xmllib_init", Text(lpComponent), !xml.init, &xml.init, true);
}

XMLLIB_STATUS xmllib_term(void)
{
    XmlDouble& xml = *XmlDouble::current;
    return xml.Enter("xmllib_term", "", xml.init, &xml.init, false);
}

XMLLIB_STATUS xmllib_load_policy(const char* lpComponent)
{
    XmlDouble& xml = *XmlDouble::current;
    return xml.Enter("xmllib_load_policy", Text(lpComponent), xml.init && !xml.policy, &xml.policy, true);
}

XMLLIB_STATUS xmllib_unload_policy(const char* lpComponent)
{
    XmlDouble& xml = *XmlDouble::current;
    return xml.Enter("xmllib_unload_policy", Text(lpComponent), xml.policy && !xml.config, &xml.policy, false);
}

XMLLIB_STATUS xmllib_load_config(DWORD dwConfig)
{
    XmlDouble& xml = *XmlDouble::current;
    return xml.Enter("xmllib_load_config", std::to_string(dwConfig), xml.policy && !xml.config, &xml.config, true);
}

XMLLIB_STATUS xmllib_unload_config(void)
{
    XmlDouble& xml = *XmlDouble::current;
    return xml.Enter("xmllib_unload_config", "", xml.config, &xml.config, false);
}

XMLLIB_STATUS xmllib_get_value(const char* lpKey, DWORD dwType, void* lpValue, DWORD* lpdwSize)
{
    return XmlDouble::current->GetValue(lpKey, dwType, lpValue, lpdwSize);
}

XMLLIB_STATUS xmllib_check(const char* lpComponent, const WCHAR* lpwcFile, XMLLIB_REPORT* lpReport)
{
    return XmlDouble::current->Check(lpComponent, lpwcFile, lpReport);
}
