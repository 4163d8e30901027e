/*
 * What the units of tnwxml.dll share.
 *
 *   tnwxml.cpp           the exports, their order, the state of the process
 *   tnwxml_policy.cpp    policies, values, what a configuration must fulfil
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
constexpr size_t   XML_MAX_BYTES = 1048576;
constexpr unsigned XML_MAX_DEPTH = 64;
constexpr unsigned XML_MAX_ATTRIBUTES = 64; // per element

/* A file that a person or program is just saving. */
constexpr int   XML_READ_TRIES = 3;
constexpr DWORD XML_READ_PAUSE = 50; // ms

/* ---- tnwxml_text.cpp ---- */

/* Status and sentence (printf) of a finding; returns the status. */
DWORD XmlRefuse(XMLLIB_FINDING* lpFinding, DWORD dwStatus, const char* lpFormat, ...);
/* Line and column of lpPlace, which lies in the text. A byte order mark takes no column. */
void XmlPlace(std::string_view text, const char* lpPlace, DWORD* lpdwLine, DWORD* lpdwColumn);
/* Copies text into a field, whole characters only, line ends and tabs as blanks. */
void XmlCopy(char* lpField, size_t nField, std::string_view text);
/* XMLLIB_OK or XMLLIB_NOT_WELL_FORMED: bounds, encoding, and the form of each tag, taken alone. */
DWORD XmlCheckText(std::string_view text, XMLLIB_FINDING* lpFinding);

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
    bool             bOnePiece; // FALSE: child elements, or text in several pieces
    std::string_view text;      // without the blanks around it; lies in the document's text
};

/* Reads a file whose root element must be named lpRoot, three times at most where it may just be being saved. Sets
 * *lplpDocument on XMLLIB_OK alone; otherwise XMLLIB_NO_FILE or XMLLIB_NOT_WELL_FORMED. */
DWORD              XmlReadFile(const std::wstring& file, const char* lpRoot, XML_DOCUMENT_PTR* lplpDocument,
                               XMLLIB_FINDING* lpFinding);
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
    DWORD          dwSettings;                  // entries of setting in use
    XMLLIB_SETTING setting[XMLLIB_SETTING_MAX]; // as after reading an empty configuration
};

bool XmlIsComponent(const char* lpComponent);
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

#endif
