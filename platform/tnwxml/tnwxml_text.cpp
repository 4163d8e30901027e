/*
 * Judges the bytes of a file before the parser sees them, in one pass over the text and without memory of its own.
 *
 * The parser trusts its input more than we may: it recurses once per level, skips what it does not know behind "<!",
 * and takes any byte as part of a name. A depth can only be counted by cutting the text into tags exactly as the parser
 * does; therefore names and attributes are held to the strict form here, which leaves the two no room to disagree.
 * Whether tags match, and what stands inside which, is the parser's business.
 *
 *   Findings     sentence, place
 *   Encoding     empty files, UTF-16, bytes that are no UTF-8 or no characters of a document
 *   Markup       names, references, attributes, declaration, comments, tags; where an element's tags stand
 */
#include "tnwxml_internal.h"
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

/* ---- Findings ---- */

static const std::string_view g_bom = "\xEF\xBB\xBF";

static bool StartsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

/* Bytes of the UTF-8 character at the start of the text; 0: none (cut off, overlong, a surrogate, over U+10FFFF). */
static size_t CharacterLength(std::string_view text)
{
    auto   at = [text](size_t n) { return n < text.size() ? static_cast<unsigned char>(text[n]) : 0u; };
    auto   follows = [at](size_t n) { return (at(n) & 0xC0u) == 0x80u; };
    size_t nLength = 0;

    if (at(0) < 0x80) {
        nLength = 1;
    } else if (at(0) >= 0xC2 && at(0) <= 0xDF && follows(1)) {
        nLength = 2;
    } else if (at(0) >= 0xE0 && at(0) <= 0xEF && follows(1) && follows(2)) {
        bool bOverlong = at(0) == 0xE0 && at(1) < 0xA0;
        bool bSurrogate = at(0) == 0xED && at(1) >= 0xA0;
        nLength = bOverlong || bSurrogate ? 0 : 3;
    } else if (at(0) >= 0xF0 && at(0) <= 0xF4 && follows(1) && follows(2) && follows(3)) {
        bool bOverlong = at(0) == 0xF0 && at(1) < 0x90;
        bool bBeyond = at(0) == 0xF4 && at(1) >= 0x90;
        nLength = bOverlong || bBeyond ? 0 : 4;
    }
    return nLength;
}

DWORD XmlRefuse(XMLLIB_FINDING* lpFinding, DWORD dwStatus, const char* lpFormat, ...)
{
    va_list args;

    lpFinding->dwStatus = dwStatus;
    va_start(args, lpFormat);
    vsnprintf(lpFinding->szReason, sizeof(lpFinding->szReason), lpFormat, args);
    va_end(args);
    return dwStatus;
}

void XmlPlace(std::string_view text, const char* lpPlace, DWORD* lpdwLine, DWORD* lpdwColumn)
{
    const char* lpLine = text.data() + (StartsWith(text, g_bom) ? g_bom.size() : 0);

    *lpdwLine = 1;
    for (const char* lp = lpLine; lp < lpPlace; lp++) {
        if (*lp == '\n') {
            (*lpdwLine)++;
            lpLine = lp + 1;
        }
    }
    *lpdwColumn = lpPlace < lpLine ? 1 : static_cast<DWORD>(lpPlace - lpLine) + 1;
}

void XmlCopy(char* lpField, size_t nField, std::string_view text)
{
    size_t nUsed = 0;

    while (!text.empty()) {
        size_t nLength = CharacterLength(text);
        if (nLength == 0 || nUsed + nLength >= nField) {
            break;
        }
        memcpy(lpField + nUsed, text.data(), nLength);
        if (static_cast<unsigned char>(lpField[nUsed]) < ' ') {
            lpField[nUsed] = ' ';
        }
        nUsed += nLength;
        text.remove_prefix(nLength);
    }
    lpField[nUsed] = '\0';
}

/* The text, and how far it is judged. */
struct SCAN {
    std::string_view text;
    size_t           nAt;
    unsigned         nDepth;  // open elements
    XMLLIB_FINDING*  lpFinding;
};

static bool Refuse(SCAN* lpScan, size_t nAt, const char* lpReason)
{
    XmlPlace(lpScan->text, lpScan->text.data() + nAt, &lpScan->lpFinding->dwLine, &lpScan->lpFinding->dwColumn);
    XmlRefuse(lpScan->lpFinding, XMLLIB_NOT_WELL_FORMED, "%s", lpReason);
    return false;
}

/* ---- Encoding ---- */

static bool IsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

static bool CheckEncoding(SCAN* lpScan)
{
    std::string_view text = lpScan->text;
    // Marks of UTF-16, and the '<' of a document in UTF-16 without a mark.
    static const std::string_view aUtf16[] = { "\xFF\xFE", "\xFE\xFF", { "<\0", 2 }, { "\0<", 2 } };

    for (std::string_view start : aUtf16) {
        if (StartsWith(text, start)) {
            return Refuse(lpScan, 0, "The file is encoded in UTF-16. Save it as UTF-8.");
        }
    }
    lpScan->nAt = StartsWith(text, g_bom) ? g_bom.size() : 0;
    if (text.find_first_not_of(" \t\r\n", lpScan->nAt) == std::string_view::npos) {
        return Refuse(lpScan, lpScan->nAt, "The file is empty.");
    }
    for (size_t n = lpScan->nAt; n < text.size();) {
        size_t nLength = CharacterLength(text.substr(n));
        if (nLength == 0) {
            return Refuse(lpScan, n,
                          "The file is not in UTF-8: the byte here belongs to no character. Save it as UTF-8.");
        }
        if (text[n] == '\0') {
            return Refuse(lpScan, n, "The file holds a NUL byte. It is damaged, or no text.");
        }
        if (static_cast<unsigned char>(text[n]) < ' ' && !IsBlank(text[n])) {
            return Refuse(lpScan, n, "The file holds a control character that XML does not allow.");
        }
        n += nLength;
    }
    return true;
}

/* ---- Markup ---- */

static_assert(XML_MAX_DEPTH == 64 && XML_MAX_ATTRIBUTES == 64, "two sentences below name these bounds");

static bool IsNameStart(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':' ||
           static_cast<unsigned char>(c) >= 0x80;
}

static bool IsName(char c)
{
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

/* The character at the place judged so far; NUL at the end of the text, which holds none itself. */
static char Peek(const SCAN* lpScan)
{
    return lpScan->nAt < lpScan->text.size() ? lpScan->text[lpScan->nAt] : '\0';
}

static void SkipBlanks(SCAN* lpScan)
{
    while (IsBlank(Peek(lpScan))) {
        lpScan->nAt++;
    }
}

static bool ScanName(SCAN* lpScan, std::string_view* lpName)
{
    size_t nStart = lpScan->nAt;

    if (!IsNameStart(Peek(lpScan))) {
        return Refuse(lpScan, nStart, "A name must stand here, beginning with a letter.");
    }
    while (IsName(Peek(lpScan))) {
        lpScan->nAt++;
    }
    *lpName = lpScan->text.substr(nStart, lpScan->nAt - nStart);
    return true;
}

/* Moves behind the end mark of what began at nStart. */
static bool SkipBehind(SCAN* lpScan, size_t nStart, std::string_view end, const char* lpReason)
{
    size_t nEnd = lpScan->text.find(end, lpScan->nAt);

    if (nEnd == std::string_view::npos) {
        return Refuse(lpScan, nStart, lpReason);
    }
    lpScan->nAt = nEnd + end.size();
    return true;
}

/* "&lt;", "&#60;", "&#x3c;": the only references there are without a DOCTYPE. */
static bool ScanReference(SCAN* lpScan)
{
    static const std::string_view aKnown[] = { "&amp;", "&lt;", "&gt;", "&apos;", "&quot;" };
    std::string_view              rest = lpScan->text.substr(lpScan->nAt);

    for (std::string_view known : aKnown) {
        if (StartsWith(rest, known)) {
            lpScan->nAt += known.size();
            return true;
        }
    }
    if (StartsWith(rest, "&#")) {
        bool   bHex = StartsWith(rest, "&#x");
        size_t nStart = bHex ? 3 : 2;
        size_t nEnd = rest.find_first_not_of(bHex ? "0123456789abcdefABCDEF" : "0123456789", nStart);
        if (nEnd != std::string_view::npos && nEnd > nStart && rest[nEnd] == ';') {
            lpScan->nAt += nEnd + 1;
            return true;
        }
    }
    return Refuse(lpScan, lpScan->nAt, "The character & must be written as &amp; here: no entities are known.");
}

/* name = "value", behind a blank. */
static bool ScanAttribute(SCAN* lpScan, std::string_view* lpName, std::string_view* lpValue)
{
    char   cQuote = '\0';
    size_t nStart = 0;

    if (!ScanName(lpScan, lpName)) {
        return false;
    }
    SkipBlanks(lpScan);
    if (Peek(lpScan) != '=') {
        return Refuse(lpScan, lpScan->nAt, "An attribute needs = and a value in quotes behind its name.");
    }
    lpScan->nAt++;
    SkipBlanks(lpScan);
    cQuote = Peek(lpScan);
    if (cQuote != '"' && cQuote != '\'') {
        return Refuse(lpScan, lpScan->nAt, "The value of an attribute must stand in quotes.");
    }
    nStart = ++lpScan->nAt;
    while (Peek(lpScan) != cQuote) {
        switch (Peek(lpScan)) {
        case '\0':
            return Refuse(lpScan, nStart - 1, "The quote that begins here is not closed.");
        case '<':
            return Refuse(
                lpScan, lpScan->nAt,
                "The character < stands in an attribute: a quote is missing before it, or it must be written as &lt;.");
        case '&':
            if (!ScanReference(lpScan)) {
                return false;
            }
            break;
        default:
            lpScan->nAt++;
        }
    }
    *lpValue = lpScan->text.substr(nStart, lpScan->nAt - nStart);
    lpScan->nAt++;
    return true;
}

/* All attributes up to the end of the tag, which the caller takes. */
static bool ScanAttributes(SCAN* lpScan)
{
    std::string_view aName[XML_MAX_ATTRIBUTES];
    unsigned         nNames = 0;

    for (;;) {
        size_t           nBlank = lpScan->nAt;
        std::string_view value;

        SkipBlanks(lpScan);
        if (Peek(lpScan) == '>' || Peek(lpScan) == '/' || Peek(lpScan) == '?') {
            return true;
        }
        if (Peek(lpScan) == '\0') {
            return Refuse(lpScan, lpScan->nAt, "The file ends within a tag. It is cut off.");
        }
        if (lpScan->nAt == nBlank) {
            return Refuse(lpScan, nBlank, "A blank must stand in front of each attribute.");
        }
        if (nNames == XML_MAX_ATTRIBUTES) {
            return Refuse(lpScan, lpScan->nAt, "An element has more than 64 attributes.");
        }
        nBlank = lpScan->nAt;
        if (!ScanAttribute(lpScan, &aName[nNames], &value)) {
            return false;
        }
        for (unsigned n = 0; n < nNames; n++) {
            if (aName[n] == aName[nNames]) {
                return Refuse(lpScan, nBlank, "An attribute stands twice in one element.");
            }
        }
        nNames++;
    }
}

/* <?xml version="1.0" encoding="UTF-8"?> at the very start; other instructions (<?name ...?>) are skipped. */
static bool ScanInstruction(SCAN* lpScan)
{
    size_t           nStart = lpScan->nAt;
    size_t           nFirst = StartsWith(lpScan->text, g_bom) ? g_bom.size() : 0;
    std::string_view name;
    std::string_view value;
    SCAN             declaration;

    lpScan->nAt += 2;
    if (!ScanName(lpScan, &name)) {
        return false;
    }
    declaration = *lpScan;
    if (!SkipBehind(lpScan, nStart, "?>", "The instruction that begins here is not closed with ?>.")) {
        return false;
    }
    if (name.size() != 3 || _strnicmp(name.data(), "xml", 3) != 0) {
        return true;
    }
    if (nStart != nFirst || name != "xml") {
        return Refuse(lpScan, nStart, "The declaration <?xml ...?> may stand at the very start of the file only.");
    }
    // The end was looked for first, as the parser does: a quote in the declaration cannot hide it.
    declaration.text = declaration.text.substr(0, lpScan->nAt - 2);
    for (SkipBlanks(&declaration); declaration.nAt < declaration.text.size(); SkipBlanks(&declaration)) {
        size_t nAttribute = declaration.nAt;
        if (!ScanAttribute(&declaration, &name, &value)) {
            return false;
        }
        if (name == "encoding" && (value.size() != 5 || _strnicmp(value.data(), "UTF-8", 5) != 0)) {
            return Refuse(lpScan, nAttribute, "The file declares another encoding than UTF-8. Save it as UTF-8.");
        }
    }
    return true;
}

/* Everything that begins with "<!". */
static bool ScanDeclaration(SCAN* lpScan)
{
    std::string_view rest = lpScan->text.substr(lpScan->nAt);
    size_t           nStart = lpScan->nAt;

    if (StartsWith(rest, "<!--")) {
        lpScan->nAt += 4;
        if (!SkipBehind(lpScan, nStart, "--", "The comment that begins here is not closed with -->.")) {
            return false;
        }
        if (Peek(lpScan) != '>') {
            return Refuse(lpScan, lpScan->nAt - 2, "A comment must not contain -- before its end.");
        }
        lpScan->nAt++;
        return true;
    }
    if (StartsWith(rest, "<![CDATA[") && lpScan->nDepth > 0) {
        return SkipBehind(lpScan, nStart, "]]>", "The CDATA section that begins here is not closed with ]]>.");
    }
    if (StartsWith(rest, "<!DOCTYPE")) {
        return Refuse(lpScan, nStart, "A document type (DOCTYPE) is not allowed.");
    }
    return Refuse(lpScan, nStart, "Neither a comment nor a CDATA section inside an element begins here.");
}

static bool ScanTag(SCAN* lpScan)
{
    size_t           nStart = lpScan->nAt;
    bool             bClosing = StartsWith(lpScan->text.substr(nStart), "</");
    bool             bEmpty = false;
    std::string_view name;

    lpScan->nAt += bClosing ? 2 : 1;
    if (!ScanName(lpScan, &name)) {
        return false;
    }
    if (bClosing) {
        SkipBlanks(lpScan);
    } else if (!ScanAttributes(lpScan)) {
        return false;
    } else if (Peek(lpScan) == '/') {
        bEmpty = true;
        lpScan->nAt++;
    }
    if (Peek(lpScan) != '>') {
        return Refuse(lpScan, lpScan->nAt, "The tag must end with > here.");
    }
    lpScan->nAt++;
    if (bClosing && lpScan->nDepth == 0) {
        return Refuse(lpScan, nStart, "The closing tag has no opening tag.");
    }
    if (!bClosing && lpScan->nDepth == XML_MAX_DEPTH) {
        return Refuse(lpScan, nStart, "The elements are nested more than 64 levels deep.");
    }
    if (bClosing) {
        lpScan->nDepth--;
    } else if (!bEmpty) {
        lpScan->nDepth++;
    }
    return true;
}

/* One piece of markup, or one character of text. There is one: the end of the text is not reached. */
static bool ScanPiece(SCAN* lpScan)
{
    std::string_view rest = lpScan->text.substr(lpScan->nAt);

    if (rest[0] == '&') {
        return ScanReference(lpScan);
    }
    if (StartsWith(rest, "]]>")) {
        return Refuse(lpScan, lpScan->nAt, "The characters ]]> may only close a CDATA section.");
    }
    if (rest[0] != '<') {
        lpScan->nAt++;
        return true;
    }
    if (StartsWith(rest, "<?")) {
        return ScanInstruction(lpScan);
    }
    return StartsWith(rest, "<!") ? ScanDeclaration(lpScan) : ScanTag(lpScan);
}

static bool CheckMarkup(SCAN* lpScan)
{
    while (lpScan->nAt < lpScan->text.size()) {
        if (!ScanPiece(lpScan)) {
            return false;
        }
    }
    return true;
}

DWORD XmlCheckText(std::string_view text, XMLLIB_FINDING* lpFinding)
{
    SCAN scan = { text, 0, 0, lpFinding };

    return CheckEncoding(&scan) && CheckMarkup(&scan) ? XMLLIB_OK : XMLLIB_NOT_WELL_FORMED;
}

XML_TAGS XmlTags(std::string_view text, size_t nOpen)
{
    XMLLIB_FINDING finding = {};
    SCAN           scan = { text, nOpen, 0, &finding };
    XML_TAGS       tags = {};

    ScanTag(&scan);
    tags.nOpen = nOpen;
    tags.bEmpty = scan.nDepth == 0;
    tags.nContent = tags.bEmpty ? scan.nAt - 2 : scan.nAt;
    tags.nClose = tags.nContent;
    while (scan.nDepth > 0) {
        tags.nClose = scan.nAt;
        ScanPiece(&scan);
    }
    return tags;
}
