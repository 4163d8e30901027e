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
    return std::string(init ? "init " : "") + (policy ? "policy " : "") + (config ? "config " : "") +
           (leftToTerm.empty() ? "" : "left to term: " + leftToTerm);
}

XMLLIB_STATUS XmlDouble::Answer(const char* routine, const std::string& args, XMLLIB_STATUS status)
{
    m_journal.Record(routine, args, Hex(status));
    return status;
}

static const char COMPONENT[] = "diskperf";

static bool BadComponent(const char* component)
{
    static const char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
    return component == nullptr || *component == '\0' || strlen(component) > 31 ||
           component[strspn(component, letters)] != '\0';
}

/* Arguments are judged before the order of calls. */
static XMLLIB_STATUS Judge(bool badArgument, bool inOrder)
{
    if (badArgument) {
        return XMLLIB_INVALID_ARGUMENT;
    }
    return inOrder ? XMLLIB_OK : XMLLIB_WRONG_ORDER;
}

/* One call of the sequence. If it is not refused it changes the flag that stands for what it opens or closes. */
XMLLIB_STATUS XmlDouble::Enter(const char* routine, const std::string& args, XMLLIB_STATUS refused, bool* flag,
                               bool set)
{
    if (auto planned = m_journal.Count(routine)) {
        return Answer(routine, args, planned->value);
    }
    if (refused == XMLLIB_OK) {
        *flag = set;
    }
    return Answer(routine, args, refused);
}

/* Releases whatever is still held. The double remembers it: the product takes everything back itself. */
XMLLIB_STATUS XmlDouble::Term()
{
    const XMLLIB_STATUS status = Enter("xmllib_term", "", Judge(false, init), &init, false);
    if (status == XMLLIB_OK && !init) {
        leftToTerm += std::string(policy ? "policy " : "") + (config ? "config " : "");
        policy = config = false;
    }
    return status;
}

XMLLIB_STATUS XmlDouble::GetValue(const char* key, DWORD type, void* value, DWORD* size)
{
    std::string args = std::string(key == nullptr ? "NULL" : key) + ", " + std::to_string(type) + ", size " +
                       (size == nullptr ? "NULL" : std::to_string(*size));
    if (auto planned = m_journal.Count("xmllib_get_value")) {
        return Answer("xmllib_get_value", args, planned->value);
    }
    const bool bad =
        key == nullptr || type != XMLLIB_TYPE_DWORD || value == nullptr || size == nullptr || *size < sizeof(DWORD);
    if (const XMLLIB_STATUS refused = Judge(bad, config); refused != XMLLIB_OK) {
        return Answer("xmllib_get_value", args, refused);
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

/* ---- The routines as callers see them ---- */

static std::string Text(const char* text)
{
    return text == nullptr ? "NULL" : text;
}

XMLLIB_STATUS xmllib_init(const char* lpComponent)
{
    XmlDouble& xml = *XmlDouble::current;
    return xml.Enter("xmllib_init", Text(lpComponent), Judge(BadComponent(lpComponent), !xml.init), &xml.init, true);
}

XMLLIB_STATUS xmllib_term(void)
{
    return XmlDouble::current->Term();
}

XMLLIB_STATUS xmllib_load_policy(const char* lpComponent)
{
    XmlDouble&    xml = *XmlDouble::current;
    XMLLIB_STATUS refused = Judge(BadComponent(lpComponent), xml.init && !xml.policy);
    if (refused == XMLLIB_OK && strcmp(lpComponent, COMPONENT) != 0) {
        refused = XMLLIB_NO_FILE;
    }
    return xml.Enter("xmllib_load_policy", Text(lpComponent), refused, &xml.policy, true);
}

XMLLIB_STATUS xmllib_unload_policy(const char* lpComponent)
{
    XmlDouble& xml = *XmlDouble::current;
    const bool bad = BadComponent(lpComponent);
    const bool inOrder = !bad && xml.policy && !xml.config && strcmp(lpComponent, COMPONENT) == 0;
    return xml.Enter("xmllib_unload_policy", Text(lpComponent), Judge(bad, inOrder), &xml.policy, false);
}

XMLLIB_STATUS xmllib_load_config(DWORD dwConfig)
{
    XmlDouble& xml = *XmlDouble::current;
    return xml.Enter("xmllib_load_config", std::to_string(dwConfig),
                     Judge(dwConfig != XMLLIB_CONFIG_CLUSTER, xml.policy && !xml.config), &xml.config, true);
}

XMLLIB_STATUS xmllib_unload_config(void)
{
    XmlDouble& xml = *XmlDouble::current;
    return xml.Enter("xmllib_unload_config", "", Judge(false, xml.config), &xml.config, false);
}

XMLLIB_STATUS xmllib_get_value(const char* lpKey, DWORD dwType, void* lpValue, DWORD* lpdwSize)
{
    return XmlDouble::current->GetValue(lpKey, dwType, lpValue, lpdwSize);
}
