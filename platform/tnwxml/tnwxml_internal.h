/*
 * What the units of tnwxml.dll share.
 *
 *   tnwxml.cpp           the exports, their order, the state of the process
 *   tnwxml_policy.cpp    policies, values, what a configuration must fulfil
 *   tnwxml_edit.cpp      new values in a configuration's text
 *   tnwxml_document.cpp  files into trees; the only unit that knows the parser
 *   tnwxml_text.cpp      judges the bytes before the parser sees them; places and sentences of findings
 *
 * A routine that can refuse something returns an XMLLIB_ status and fills the finding; nothing leaves it half done.
 * Lack of memory is thrown as std::bad_alloc and caught in tnwxml.cpp.
 */
#ifndef TNWXML_INTERNAL_H
#define TNWXML_INTERNAL_H

#include "tnwxml.h"
#include <memory>
#include <string>
#include <string_view>

/* Bounds of a file. The parser recurses once per level, so the depth bounds its stack; the size bounds time and memory.
 */
constexpr size_t   XML_MAX_BYTES = XMLLIB_FILE_MAX;
constexpr unsigned XML_MAX_DEPTH = 64;
constexpr unsigned XML_MAX_ATTRIBUTES = 64;  // per element

/* A file that a person or program is just saving. */
constexpr int   XML_READ_TRIES = 3;
constexpr DWORD XML_READ_PAUSE = 50;  // ms

/* ---- tnwxml_text.cpp ---- */

/* Status and sentence (printf) of a finding; returns the status. */
DWORD XmlRefuse(XMLLIB_FINDING* lpFinding, DWORD dwStatus, const char* lpFormat, ...);
/* Line and column of lpPlace, which lies in the text. A byte order mark takes no column. */
void XmlPlace(std::string_view text, const char* lpPlace, DWORD* lpdwLine, DWORD* lpdwColumn);
/* Copies text into a field, whole characters only, line ends and tabs as blanks. */
void XmlCopy(char* lpField, size_t nField, std::string_view text);
/* XMLLIB_OK or XMLLIB_NOT_WELL_FORMED: bounds, encoding, and the form of each tag, taken alone. */
DWORD XmlCheckText(std::string_view text, XMLLIB_FINDING* lpFinding);

/* Where an element's tags stand: offsets into the text. */
struct XML_TAGS {
    size_t nOpen;     // '<' of the opening tag
    size_t nContent;  // behind the opening tag; of an empty tag (<a/>) its "/>"
    size_t nClose;    // '<' of the closing tag; of an empty tag its "/>"
    bool   bEmpty;    // there is one tag only
};

/* nOpen: '<' of an element of a text that XmlCheckText and the parser accepted. */
XML_TAGS XmlTags(std::string_view text, size_t nOpen);

/* ---- tnwxml_document.cpp ---- */

struct XML_DOCUMENT;
struct XML_DOCUMENT_RELEASE {
    void operator()(XML_DOCUMENT* lpDocument) const;
};
using XML_DOCUMENT_PTR = std::unique_ptr<XML_DOCUMENT, XML_DOCUMENT_RELEASE>;

namespace rapidxml {
template <class Ch> class xml_node;
}
using XML_ELEMENT = rapidxml::xml_node<char>;

/* What stands between the tags of an element. */
struct XML_VALUE {
    bool             bOnePiece;  // FALSE: child elements, or text in several pieces
    std::string_view text;       // without the blanks around it; lies in the document's text
};

/* Reads a file whose root element must be named lpRoot, three times at most where it may just be being saved. Sets
 * *lplpDocument on XMLLIB_OK alone; otherwise XMLLIB_NO_FILE or XMLLIB_NOT_WELL_FORMED. */
DWORD XmlReadFile(const std::wstring& file, const char* lpRoot, XML_DOCUMENT_PTR* lplpDocument,
                  XMLLIB_FINDING* lpFinding);
/* The same for a text that is at hand; the document takes it over. XMLLIB_OK or XMLLIB_NOT_WELL_FORMED. */
DWORD XmlReadText(std::string text, const char* lpRoot, XML_DOCUMENT_PTR* lplpDocument, XMLLIB_FINDING* lpFinding);
std::string_view   XmlText(const XML_DOCUMENT* lpDocument);
const XML_ELEMENT* XmlRoot(const XML_DOCUMENT* lpDocument);
/* First child and next sibling of that name, an empty name standing for any; NULL where there is none. */
const XML_ELEMENT* XmlChild(const XML_ELEMENT* lpElement, std::string_view name);
const XML_ELEMENT* XmlNext(const XML_ELEMENT* lpElement, std::string_view name);
/* The name lies in the document's text: its place is the element's. */
std::string_view XmlName(const XML_ELEMENT* lpElement);
XML_VALUE        XmlValue(const XML_ELEMENT* lpElement);
/* The n-th attribute; false behind the last one. */
bool XmlAttribute(const XML_ELEMENT* lpElement, unsigned n, std::string_view* lpName, std::string_view* lpValue);

/* ---- tnwxml_policy.cpp ---- */

struct XML_POLICY {
    std::string    component;
    DWORD          dwSettings;                   // entries of setting in use
    XMLLIB_SETTING setting[XMLLIB_SETTING_MAX];  // as after reading an empty configuration
};

bool XmlIsComponent(const char* lpComponent);
/* The setting of this key, NULL where the policy has none. */
const XMLLIB_SETTING* XmlSetting(const XML_POLICY* lpPolicy, std::string_view key);
/* Cuts the first name off a key path ("/root/a/b"): false at its end, an empty name for a path of another form. */
bool XmlCutName(std::string_view* lpPath, std::string_view* lpName);
/* Follows the key path from the root on as far as there are elements, of several with one name the first; *lpRest
 * receives the part of the path that is left. NULL where not even the root has its name. */
const XML_ELEMENT* XmlFollow(const XML_DOCUMENT* lpDocument, std::string_view key, std::string_view* lpRest);
/* A number as it stands in a configuration. lpSetting NULL: any of 32 bits. XMLLIB_OK, XMLLIB_NO_NUMBER or
 * XMLLIB_OUT_OF_RANGE, with the value in the finding; *lpdwValue is set on XMLLIB_OK alone. */
DWORD XmlJudgeNumber(std::string_view text, const XMLLIB_SETTING* lpSetting, DWORD* lpdwValue,
                     XMLLIB_FINDING* lpFinding);
/* XMLLIB_OK, XMLLIB_NO_FILE, XMLLIB_NOT_WELL_FORMED or XMLLIB_BAD_POLICY. */
DWORD XmlReadPolicy(const std::wstring& file, const char* lpComponent, XML_POLICY* lpPolicy, XMLLIB_FINDING* lpFinding);
/* XMLLIB_OK, XMLLIB_NO_FILE, XMLLIB_NOT_WELL_FORMED or XMLLIB_KEY_TWICE. */
DWORD XmlReadConfiguration(const std::wstring& file, const XML_POLICY* lpPolicy, XML_DOCUMENT_PTR* lplpDocument,
                           XMLLIB_FINDING* lpFinding);
/* One value. lpSetting NULL: a key without a policy, any 32-bit number. *lplpPlace is where the value stands, NULL
 * where the configuration lacks the key; then *lpdwValue is the default and, without a policy, the status
 * XMLLIB_NO_SUCH_KEY. Otherwise XMLLIB_OK, XMLLIB_NO_NUMBER or XMLLIB_OUT_OF_RANGE. */
DWORD XmlReadValue(const XML_DOCUMENT* lpDocument, const char* lpKey, const XMLLIB_SETTING* lpSetting, DWORD* lpdwValue,
                   const char** lplpPlace, XMLLIB_FINDING* lpFinding);
/* Fills settings, unknown keys and, for the wrong value that stands first in the file, the finding. */
DWORD XmlReadSettings(const XML_DOCUMENT* lpDocument, const XML_POLICY* lpPolicy, XMLLIB_REPORT* lpReport);

/* ---- tnwxml_edit.cpp ---- */

/* Puts one value into a configuration's text. The key is one of the policy's, the value a number that it allows.
 * XMLLIB_OK; otherwise XMLLIB_NOT_WELL_FORMED (also: over the bound of size) or XMLLIB_NO_NUMBER (what stands there is
 * not in one piece), and the text is as it was. */
DWORD XmlEditValue(std::string* lpText, std::string_view key, std::string_view value, XMLLIB_FINDING* lpFinding);

#endif
