/*
 * New values in a configuration's text. The tree of the parser points into the text: whatever is not the value, or the
 * element that is put in for it, stays byte for byte.
 */
#include "tnwxml_internal.h"

/* How the elements around a place are laid out. */
struct LAYOUT {
    std::string indent;  // of the elements that are put in
    std::string unit;    // one level more
    std::string lineEnd;
};

static size_t Offset(std::string_view text, const char* lpPlace)
{
    return static_cast<size_t>(lpPlace - text.data());
}

/* The '<' of an element. */
static size_t Opening(std::string_view text, const XML_ELEMENT* lpElement)
{
    return Offset(text, XmlName(lpElement).data()) - 1;
}

/* Whether nothing but blanks stands in front of a place in its line; these blanks. */
static bool BeginsLine(std::string_view text, size_t nAt, std::string_view* lpIndent)
{
    size_t nStart = nAt;

    while (nStart > 0 && (text[nStart - 1] == ' ' || text[nStart - 1] == '\t')) {
        nStart--;
    }
    *lpIndent = text.substr(nStart, nAt - nStart);
    return nStart == 0 || text[nStart - 1] == '\n' || text.substr(0, nStart) == "\xEF\xBB\xBF";
}

/* The indentation of the last child that begins its line. */
static bool ChildIndent(std::string_view text, const XML_ELEMENT* lpElement, std::string_view* lpIndent)
{
    std::string_view indent;
    bool             bFound = false;

    for (const XML_ELEMENT* lp = XmlChild(lpElement, {}); lp != NULL; lp = XmlNext(lp, {})) {
        if (BeginsLine(text, Opening(text, lp), &indent)) {
            *lpIndent = indent;
            bFound = true;
        }
    }
    return bFound;
}

/* The style of the last line end in front of a place, otherwise of the first one behind it; none at all: CR LF. */
static std::string LineEnd(std::string_view text, size_t nAt)
{
    size_t nEnd = text.substr(0, nAt).rfind('\n');

    if (nEnd == std::string_view::npos) {
        nEnd = text.find('\n', nAt);
    }
    return nEnd == std::string_view::npos || (nEnd > 0 && text[nEnd - 1] == '\r') ? "\r\n" : "\n";
}

/* The layout for children of an element, whose own indentation is given. */
static LAYOUT LayoutIn(const XML_DOCUMENT* lpDocument, const XML_ELEMENT* lpParent, std::string_view parentIndent)
{
    std::string_view text = XmlText(lpDocument);
    std::string_view indent;
    LAYOUT           layout = { {}, "    ", LineEnd(text, Opening(text, lpParent)) };

    // One level is what the children of the root are indented by.
    if (ChildIndent(text, XmlRoot(lpDocument), &indent) && !indent.empty()) {
        layout.unit = indent;
    }
    layout.indent = std::string(parentIndent) + layout.unit;
    if (ChildIndent(text, lpParent, &indent)) {
        layout.indent = indent;
    }
    return layout;
}

static std::string Element(std::string_view name, std::string_view content)
{
    return "<" + std::string(name) + ">" + std::string(content) + "</" + std::string(name) + ">";
}

/* The elements of the path around the value, one in the other, without any blank. */
static std::string InOneLine(std::string_view path, std::string_view value)
{
    std::string_view name;

    XmlCutName(&path, &name);
    return Element(name, path.empty() ? std::string(value) : InOneLine(path, value));
}

/* The same in lines of their own, the last one ended, too. */
static std::string InLines(std::string_view path, std::string_view value, const LAYOUT& layout)
{
    std::string_view name;

    XmlCutName(&path, &name);
    if (path.empty()) {
        return layout.indent + Element(name, value) + layout.lineEnd;
    }
    const LAYOUT inner = { layout.indent + layout.unit, layout.unit, layout.lineEnd };
    return layout.indent + Element(name, layout.lineEnd + InLines(path, value, inner) + layout.indent) + layout.lineEnd;
}

/* Puts content in front of an element's closing tag; an empty tag becomes two. */
static void PutIntoElement(std::string* lpText, const XML_TAGS& tags, size_t nAt, std::string_view name,
                           const std::string& content)
{
    if (tags.bEmpty) {
        lpText->replace(tags.nContent, 2, ">" + content + "</" + std::string(name) + ">");
    } else {
        lpText->insert(nAt, content);
    }
}

/* Puts the elements of the path, which are missing, into the element that is there. */
static void PutElements(std::string* lpText, const XML_DOCUMENT* lpDocument, const XML_ELEMENT* lpParent,
                        std::string_view path, std::string_view value)
{
    const std::string_view text = XmlText(lpDocument);
    const XML_TAGS         tags = XmlTags(text, Opening(text, lpParent));
    std::string_view       indent;

    if (!tags.bEmpty && BeginsLine(text, tags.nClose, &indent)) {
        const LAYOUT layout = LayoutIn(lpDocument, lpParent, indent);
        lpText->insert(tags.nClose - indent.size(), InLines(path, value, layout));
    } else if (tags.nContent == tags.nClose && BeginsLine(text, tags.nOpen, &indent)) {
        const LAYOUT layout = LayoutIn(lpDocument, lpParent, indent);
        PutIntoElement(lpText, tags, tags.nContent, XmlName(lpParent),
                       layout.lineEnd + InLines(path, value, layout) + std::string(indent));
    } else {
        PutIntoElement(lpText, tags, tags.nClose, XmlName(lpParent), InOneLine(path, value));
    }
}

DWORD XmlEditValue(std::string* lpText, std::string_view key, std::string_view value, XMLLIB_FINDING* lpFinding)
{
    XML_DOCUMENT_PTR   document;
    const XML_ELEMENT* lpElement = NULL;
    std::string        edited = *lpText;
    std::string_view   missing;
    DWORD              dwStatus = XmlReadText(*lpText, "root", &document, lpFinding);

    if (dwStatus != XMLLIB_OK) {
        return dwStatus;
    }
    const std::string_view text = XmlText(document.get());
    lpElement = XmlFollow(document.get(), key, &missing);
    if (!missing.empty()) {
        PutElements(&edited, document.get(), lpElement, missing, value);
    } else {
        const XML_VALUE old = XmlValue(lpElement);
        if (!old.bOnePiece) {
            XmlPlace(text, XmlName(lpElement).data(), &lpFinding->dwLine, &lpFinding->dwColumn);
            return XmlRefuse(lpFinding, XMLLIB_NO_NUMBER, "One number must stand between the tags, in one piece.");
        }
        if (old.text.empty()) {
            const XML_TAGS tags = XmlTags(text, Opening(text, lpElement));
            PutIntoElement(&edited, tags, tags.nContent, XmlName(lpElement), std::string(value));
        } else {
            edited.replace(Offset(text, old.text.data()), old.text.size(), value);
        }
    }
    if (edited.size() > XML_MAX_BYTES) {
        return XmlRefuse(lpFinding, XMLLIB_NOT_WELL_FORMED, "The file would become larger than %lu bytes.",
                         static_cast<DWORD>(XML_MAX_BYTES));
    }
    *lpText = std::move(edited);
    return XMLLIB_OK;
}
