/*
 * Files into trees. The only unit that knows the parser (rapidxml), and the only one that catches what it throws.
 *
 * The parser runs in the form that leaves the text as it is: names and values of the tree lie in the file's own bytes,
 * so that each has a place, a line and a column, and a value can be replaced without touching what stands around it.
 */
#include "tnwxml_internal.h"
#include <rapidxml/rapidxml.hpp>
#include <string.h>

struct XML_DOCUMENT {
    std::string                  text;  // the file as read; the tree points into it
    rapidxml::xml_document<char> tree;
};

void XML_DOCUMENT_RELEASE::operator()(XML_DOCUMENT* lpDocument) const
{
    delete lpDocument;
}

/* ---- Reading ---- */

static DWORD RefuseFile(XMLLIB_FINDING* lpFinding, const char* lpWhat)
{
    DWORD dwError = GetLastError();

    if (dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND) {
        return XmlRefuse(lpFinding, XMLLIB_NO_FILE, "The file does not exist.");
    }
    if (dwError == ERROR_SHARING_VIOLATION || dwError == ERROR_LOCK_VIOLATION) {
        return XmlRefuse(lpFinding, XMLLIB_NO_FILE, "The file cannot be %s: another program holds it.", lpWhat);
    }
    if (dwError == ERROR_ACCESS_DENIED) {
        return XmlRefuse(lpFinding, XMLLIB_NO_FILE, "The file cannot be %s: access is denied.", lpWhat);
    }
    return XmlRefuse(lpFinding, XMLLIB_NO_FILE, "The file cannot be %s (Windows error %lu).", lpWhat, dwError);
}

static DWORD RefuseSize(XMLLIB_FINDING* lpFinding)
{
    return XmlRefuse(lpFinding, XMLLIB_NOT_WELL_FORMED, "The file is larger than %lu bytes.",
                     static_cast<DWORD>(XML_MAX_BYTES));
}

static DWORD ReadBytes(HANDLE hFile, std::string* lpText, XMLLIB_FINDING* lpFinding)
{
    LARGE_INTEGER size = {};
    DWORD         dwRead = 0;
    size_t        nUsed = 0;

    if (GetFileType(hFile) != FILE_TYPE_DISK) {
        return XmlRefuse(lpFinding, XMLLIB_NO_FILE, "The name leads to a device or a pipe, not to a file.");
    }
    if (!GetFileSizeEx(hFile, &size)) {
        return RefuseFile(lpFinding, "read");
    }
    if (size.QuadPart > static_cast<LONGLONG>(XML_MAX_BYTES)) {
        return RefuseSize(lpFinding);
    }
    // One byte more than the size said, so that a file that grows meanwhile is noticed, and read on.
    lpText->resize(static_cast<size_t>(size.QuadPart) + 1);
    do {
        if (nUsed == lpText->size()) {
            lpText->resize(nUsed + 4096);
        }
        if (!ReadFile(hFile, &(*lpText)[nUsed], static_cast<DWORD>(lpText->size() - nUsed), &dwRead, NULL)) {
            return RefuseFile(lpFinding, "read");
        }
        nUsed += dwRead;
        if (nUsed > XML_MAX_BYTES) {
            return RefuseSize(lpFinding);
        }
    } while (dwRead != 0);
    lpText->resize(nUsed);
    return XMLLIB_OK;
}

static DWORD ReadText(const std::wstring& file, std::string* lpText, XMLLIB_FINDING* lpFinding)
{
    // Shares everything: nobody who saves the file is disturbed by us.
    HANDLE hFile = CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, NULL,
                               OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, NULL);

    if (hFile == INVALID_HANDLE_VALUE) {
        return RefuseFile(lpFinding, "opened");
    }
    std::unique_ptr<void, decltype(&CloseHandle)> close(hFile, CloseHandle);
    return ReadBytes(hFile, lpText, lpFinding);
}

/* ---- Parsing ---- */

/* What the parser can still find after XmlCheckText, in its words and in ours. */
static const char* Sentence(const char* lpParserWord)
{
    static const struct {
        const char* lpParserWord;
        const char* lpSentence;
    } aSentence[] = {
        { "invalid closing tag name", "The closing tag here does not match the element that is open." },
        { "unexpected end of data", "The file ends before all its elements are closed. It is cut off." },
        { "expected <", "Text stands outside of the root element." },
    };

    for (const auto& entry : aSentence) {
        if (strcmp(entry.lpParserWord, lpParserWord) == 0) {
            return entry.lpSentence;
        }
    }
    return "The XML is not well-formed here.";
}

/* The one element on top must be there, alone, and have the right name. */
static DWORD CheckRoot(const XML_DOCUMENT* lpDocument, const char* lpRoot, XMLLIB_FINDING* lpFinding)
{
    const XML_ELEMENT* lpFirst = lpDocument->tree.first_node();
    const char*        lpPlace = lpDocument->text.data();

    if (lpFirst == NULL) {
        XmlRefuse(lpFinding, XMLLIB_NOT_WELL_FORMED, "The file holds no element.");
    } else if (XmlName(lpFirst) != lpRoot) {
        XmlRefuse(lpFinding, XMLLIB_NOT_WELL_FORMED, "The root element must be named %s.", lpRoot);
        lpPlace = lpFirst->name();
    } else if (lpFirst->next_sibling() != NULL) {
        XmlRefuse(lpFinding, XMLLIB_NOT_WELL_FORMED, "There is a second root element.");
        lpPlace = lpFirst->next_sibling()->name();
    } else {
        return XMLLIB_OK;
    }
    XmlPlace(lpDocument->text, lpPlace, &lpFinding->dwLine, &lpFinding->dwColumn);
    return XMLLIB_NOT_WELL_FORMED;
}

DWORD XmlReadText(std::string content, const char* lpRoot, XML_DOCUMENT_PTR* lplpDocument, XMLLIB_FINDING* lpFinding)
{
    DWORD dwStatus = XmlCheckText(content, lpFinding);

    if (dwStatus != XMLLIB_OK) {
        return dwStatus;
    }
    XML_DOCUMENT_PTR document(new XML_DOCUMENT);
    std::string&     text = document->text;
    text = std::move(content);
    try {
        document->tree.parse<rapidxml::parse_non_destructive | rapidxml::parse_validate_closing_tags>(&text[0]);
    } catch (const rapidxml::parse_error& error) {
        XmlPlace(text, error.where<char>(), &lpFinding->dwLine, &lpFinding->dwColumn);
        return XmlRefuse(lpFinding, XMLLIB_NOT_WELL_FORMED, "%s", Sentence(error.what()));
    }
    dwStatus = CheckRoot(document.get(), lpRoot, lpFinding);
    if (dwStatus == XMLLIB_OK) {
        *lplpDocument = std::move(document);
    }
    return dwStatus;
}

static DWORD ReadOnce(const std::wstring& file, const char* lpRoot, XML_DOCUMENT_PTR* lplpDocument,
                      XMLLIB_FINDING* lpFinding)
{
    std::string text;
    DWORD       dwStatus = ReadText(file, &text, lpFinding);

    return dwStatus == XMLLIB_OK ? XmlReadText(std::move(text), lpRoot, lplpDocument, lpFinding) : dwStatus;
}

DWORD XmlReadFile(const std::wstring& file, const char* lpRoot, XML_DOCUMENT_PTR* lplpDocument,
                  XMLLIB_FINDING* lpFinding)
{
    DWORD dwStatus = XMLLIB_NO_FILE;

    // Some programs save by deleting and writing anew: a missing file is worth a second look, too.
    for (int nTry = 1; nTry <= XML_READ_TRIES; nTry++) {
        if (nTry > 1) {
            Sleep(XML_READ_PAUSE);
        }
        *lpFinding = {};
        dwStatus = ReadOnce(file, lpRoot, lplpDocument, lpFinding);
        if (dwStatus != XMLLIB_NO_FILE && dwStatus != XMLLIB_NOT_WELL_FORMED) {
            break;
        }
    }
    WideCharToMultiByte(CP_UTF8, 0, file.c_str(), -1, lpFinding->szFile, sizeof(lpFinding->szFile), NULL, NULL);
    lpFinding->szFile[sizeof(lpFinding->szFile) - 1] = '\0';
    return dwStatus;
}

/* ---- The tree ---- */

static bool IsElement(const XML_ELEMENT* lpNode)
{
    return lpNode->type() == rapidxml::node_element;
}

static const XML_ELEMENT* FirstFrom(const XML_ELEMENT* lpNode, std::string_view name)
{
    while (lpNode != NULL && (!IsElement(lpNode) || (!name.empty() && XmlName(lpNode) != name))) {
        lpNode = lpNode->next_sibling();
    }
    return lpNode;
}

std::string_view XmlText(const XML_DOCUMENT* lpDocument)
{
    return lpDocument->text;
}

const XML_ELEMENT* XmlRoot(const XML_DOCUMENT* lpDocument)
{
    return lpDocument->tree.first_node();
}

const XML_ELEMENT* XmlChild(const XML_ELEMENT* lpElement, std::string_view name)
{
    return FirstFrom(lpElement->first_node(), name);
}

const XML_ELEMENT* XmlNext(const XML_ELEMENT* lpElement, std::string_view name)
{
    return FirstFrom(lpElement->next_sibling(), name);
}

std::string_view XmlName(const XML_ELEMENT* lpElement)
{
    return { lpElement->name(), lpElement->name_size() };
}

XML_VALUE XmlValue(const XML_ELEMENT* lpElement)
{
    static const char acBlanks[] = " \t\r\n";
    XML_VALUE         value = { true, XmlName(lpElement).substr(0, 0) };
    bool              bFound = false;

    for (const XML_ELEMENT* lp = lpElement->first_node(); lp != NULL; lp = lp->next_sibling()) {
        std::string_view piece(lp->value(), lp->value_size());
        size_t           nFirst = piece.find_first_not_of(acBlanks);

        if (!IsElement(lp) && nFirst == std::string_view::npos) {
            continue;
        }
        if (IsElement(lp) || bFound) {
            value.bOnePiece = false;
            return value;
        }
        bFound = true;
        value.text = piece.substr(nFirst, piece.find_last_not_of(acBlanks) + 1 - nFirst);
    }
    return value;
}

bool XmlAttribute(const XML_ELEMENT* lpElement, unsigned n, std::string_view* lpName, std::string_view* lpValue)
{
    const rapidxml::xml_attribute<char>* lpAttribute = lpElement->first_attribute();

    while (lpAttribute != NULL && n-- > 0) {
        lpAttribute = lpAttribute->next_attribute();
    }
    if (lpAttribute == NULL) {
        return false;
    }
    *lpName = { lpAttribute->name(), lpAttribute->name_size() };
    *lpValue = { lpAttribute->value(), lpAttribute->value_size() };
    return true;
}
