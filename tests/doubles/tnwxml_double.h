/*
 * Double of tnwxml: the eight routines under their own names, over a map of values. Refuses a wrong order of calls as
 * the library does.
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

    /* Values by key path; starts with the product's nine defaults. A key that is not there answers XMLLIB_NO_SUCH_KEY.
     */
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

    /* What xmllib_check answers. */
    XMLLIB_REPORT report = {};

    /* What still stands: "init", "policy", "config". Empty when all was taken back. */
    std::string Open() const;

    // What the routines do; called by them alone.
    XMLLIB_STATUS Enter(const char* routine, const std::string& args, bool inOrder, bool* flag, bool set);
    XMLLIB_STATUS GetValue(const char* key, DWORD type, void* value, DWORD* size);
    XMLLIB_STATUS Check(const char* component, const WCHAR* file, XMLLIB_REPORT* result);
    bool          init = false, policy = false, config = false;

    static XmlDouble* current;

  private:
    XMLLIB_STATUS Answer(const char* routine, const std::string& args, XMLLIB_STATUS status);
    Journal&      m_journal;
};

#endif
