/*
 * Double of tnwxml: the seven routines that the product calls, under their own names, over a map of values. It judges
 * arguments and order of calls as the library does: tests/contract runs the same cases on both. There is one policy,
 * that of the component diskperf. Files and ranges are left out: what a file would give stands in values, what it would
 * be refused for is scripted by failKey and Fail. So are xmllib_check and xmllib_edit, which the tool alone calls.
 */
#ifndef TESTS_DOUBLES_TNWXML_DOUBLE_H
#define TESTS_DOUBLES_TNWXML_DOUBLE_H

#include <map>
#include <string>

#include "doubles/journal.h"
#include "tnwxml.h"

class XmlDouble {
public:
    explicit XmlDouble(Journal& journal);
    ~XmlDouble();
    XmlDouble(const XmlDouble&) = delete;
    XmlDouble& operator=(const XmlDouble&) = delete;

    /* What configuration and policy give together, by key path; starts with the policy's nine defaults. A key that is
     * not there is in neither of the two: XMLLIB_NO_SUCH_KEY. */
    std::map<std::string, DWORD> values;
    /* Shorthand: Set("parameters/perfenable", 0) for "/root/diskperf/parameters/perfenable". */
    void Set(const std::string& key, DWORD value)
    {
        values["/root/diskperf/" + key] = value;
    }
    void Remove(const std::string& key)
    {
        values.erase("/root/diskperf/" + key);
    }
    /* A status that every read of one key answers. */
    std::map<std::string, XMLLIB_STATUS> failKey;
    /* The n-th call of a routine answers the status, all 64 bits of it. */
    void Fail(const std::string& routine, unsigned nth, XMLLIB_STATUS status);

    /* What still stands, "init", "policy", "config", or was left for xmllib_term to release. Empty when all was taken
     * back by its own routine. */
    std::string Open() const;

    // What the routines do; called by them alone.
    XMLLIB_STATUS Enter(const char* routine, const std::string& args, XMLLIB_STATUS refused, bool* flag, bool set);
    XMLLIB_STATUS Term();
    XMLLIB_STATUS GetValue(const char* key, DWORD type, void* value, DWORD* size);
    bool          init = false, policy = false, config = false;
    std::string   leftToTerm;

    static XmlDouble* current;

private:
    XMLLIB_STATUS Answer(const char* routine, const std::string& args, XMLLIB_STATUS status);
    Journal&      m_journal;
};

#endif
