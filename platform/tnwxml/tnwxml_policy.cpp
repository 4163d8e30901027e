/*
 * Policies, values, and what a configuration must fulfil.
 *
 *   Numbers         the one form in which numbers stand in policies and configurations
 *   Policy          HOME/etc/policy/COMPONENT.xml into settings
 *   Configuration   no key twice, single values, all values with what is unknown
 */
#include "tnwxml_internal.h"
#include <stdio.h>
#include <string.h>

/* ---- Numbers ---- */

/* Decimal digits, or hexadecimal digits behind 0x; up to 0xffffffff; nothing around it. */
static bool ParseNumber(std::string_view text, DWORD* lpdwValue)
{
    bool               bHex = text.substr(0, 2) == "0x";
    DWORD              dwBase = bHex ? 16 : 10;
    unsigned long long ullValue = 0;

    text.remove_prefix(bHex ? 2 : 0);
    for (char c : text) {
        DWORD dwDigit = 16;
        if (c >= '0' && c <= '9') {
            dwDigit = static_cast<DWORD>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            dwDigit = static_cast<DWORD>(c - 'a') + 10;
        } else if (c >= 'A' && c <= 'F') {
            dwDigit = static_cast<DWORD>(c - 'A') + 10;
        }
        if (dwDigit >= dwBase) {
            return false;
        }
        ullValue = ullValue * dwBase + dwDigit;
        if (ullValue > 0xFFFFFFFFu) {
            return false;
        }
    }
    *lpdwValue = static_cast<DWORD>(ullValue);
    return !text.empty();
}

/* ---- Policy ---- */

static bool IsComponentCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

/* The name becomes a file name and an element's name: nothing may lead out of the folder. */
bool XmlIsComponent(const char* lpComponent)
{
    size_t nLength = 0;

    if (lpComponent == NULL) {
        return false;
    }
    while (nLength < 32 && IsComponentCharacter(lpComponent[nLength])) {
        nLength++;
    }
    return nLength > 0 && nLength < 32 && lpComponent[nLength] == '\0';
}

bool XmlCutName(std::string_view* lpPath, std::string_view* lpName)
{
    size_t nEnd = 0;

    if (lpPath->empty()) {
        return false;
    }
    *lpName = {};
    if (lpPath->front() == '/') {
        nEnd = lpPath->find('/', 1);
        *lpName = lpPath->substr(1, nEnd == std::string_view::npos ? nEnd : nEnd - 1);
    }
    lpPath->remove_prefix(nEnd < lpPath->size() && nEnd > 0 ? nEnd : lpPath->size());
    return true;
}

/* Does the inner path lie below the outer one, or is it the same? */
static bool IsWithin(std::string_view inner, std::string_view outer)
{
    return inner.substr(0, outer.size()) == outer && (inner.size() == outer.size() || inner[outer.size()] == '/');
}

static bool TakeText(char* lpField, size_t nField, std::string_view value)
{
    // References are not resolved: such a text would be shown as it stands.
    if (value.empty() || value.size() >= nField || value.find('&') != std::string_view::npos) {
        return false;
    }
    XmlCopy(lpField, nField, value);
    return true;
}

static bool TakeWord(BOOL* lpbField, std::string_view value, const char* lpFalse, const char* lpTrue)
{
    *lpbField = value == lpTrue;
    return *lpbField || value == lpFalse;
}

/* The attributes of a policy's key. The ones behind PK_REQUIRED may be left out. */
enum {
    PK_PATH,
    PK_TYPE,
    PK_MIN,
    PK_MAX,
    PK_DEFAULT,
    PK_APPLIES,
    PK_HELP,
    PK_REQUIRED,
    PK_UNIT = PK_REQUIRED,
    PK_FORMAT,
    PK_NUM
};
static const char* const g_aKeyAttribute[PK_NUM] = { "path",    "type", "min",  "max",   "default",
                                                     "applies", "help", "unit", "format" };

/* One attribute into its field. */
static bool TakeAttribute(XMLLIB_SETTING* lpSetting, int nAttribute, std::string_view value)
{
    switch (nAttribute) {
    case PK_PATH:
        return TakeText(lpSetting->szKey, sizeof(lpSetting->szKey), value);
    case PK_TYPE:
        return value == "dword";
    case PK_MIN:
        return ParseNumber(value, &lpSetting->dwMin);
    case PK_MAX:
        return ParseNumber(value, &lpSetting->dwMax);
    case PK_DEFAULT:
        return ParseNumber(value, &lpSetting->dwDefault);
    case PK_APPLIES:
        return TakeWord(&lpSetting->bRestart, value, "reload", "restart");
    case PK_HELP:
        return TakeText(lpSetting->szHelp, sizeof(lpSetting->szHelp), value);
    case PK_UNIT:
        return TakeText(lpSetting->szUnit, sizeof(lpSetting->szUnit), value);
    case PK_FORMAT:
        return TakeWord(&lpSetting->bHex, value, "decimal", "hex");
    default:
        return false;
    }
}

static int AttributeNumber(std::string_view name)
{
    int n = 0;

    while (n < PK_NUM && name != g_aKeyAttribute[n]) {
        n++;
    }
    return n;
}

static DWORD TakeAttributes(const XML_ELEMENT* lpElement, XMLLIB_SETTING* lpSetting, XMLLIB_FINDING* lpFinding)
{
    bool             abTaken[PK_NUM] = {};
    std::string_view name;
    std::string_view value;

    for (unsigned n = 0; XmlAttribute(lpElement, n, &name, &value); n++) {
        int nAttribute = AttributeNumber(name);
        if (nAttribute == PK_NUM) {
            XmlCopy(lpFinding->szValue, sizeof(lpFinding->szValue), name);
            return XmlRefuse(lpFinding, XMLLIB_BAD_POLICY, "The attribute %s of a policy key is not known.",
                             lpFinding->szValue);
        }
        if (!TakeAttribute(lpSetting, nAttribute, value)) {
            XmlCopy(lpFinding->szValue, sizeof(lpFinding->szValue), value);
            return XmlRefuse(lpFinding, XMLLIB_BAD_POLICY, "The policy key's %s has no usable value.",
                             g_aKeyAttribute[nAttribute]);
        }
        abTaken[nAttribute] = true;
    }
    for (int n = 0; n < PK_REQUIRED; n++) {
        if (!abTaken[n]) {
            return XmlRefuse(lpFinding, XMLLIB_BAD_POLICY, "The policy key has no attribute %s.", g_aKeyAttribute[n]);
        }
    }
    return XMLLIB_OK;
}

/* A policy speaks of its own section alone: /root/COMPONENT/..., names not empty. */
static bool IsUsablePath(std::string_view path, const std::string& component)
{
    std::string      section = "/root/" + component;
    std::string_view name;

    if (path.size() <= section.size() || !IsWithin(path, section) || path.back() == '/') {
        return false;
    }
    while (XmlCutName(&path, &name)) {
        if (name.empty()) {
            return false;
        }
    }
    return true;
}

static DWORD CheckSetting(const XML_POLICY* lpPolicy, const XMLLIB_SETTING* lpSetting, XMLLIB_FINDING* lpFinding)
{
    if (!IsUsablePath(lpSetting->szKey, lpPolicy->component)) {
        return XmlRefuse(lpFinding, XMLLIB_BAD_POLICY, "The policy key's path must lie below /root/%s.",
                         lpPolicy->component.c_str());
    }
    if (lpSetting->dwMin > lpSetting->dwDefault || lpSetting->dwDefault > lpSetting->dwMax) {
        return XmlRefuse(lpFinding, XMLLIB_BAD_POLICY,
                         "The policy key's default does not lie between its min and max.");
    }
    for (DWORD n = 0; n < lpPolicy->dwSettings; n++) {
        const char* lpOther = lpPolicy->setting[n].szKey;
        if (IsWithin(lpSetting->szKey, lpOther) || IsWithin(lpOther, lpSetting->szKey)) {
            return XmlRefuse(lpFinding, XMLLIB_BAD_POLICY, "The policy key stands twice, or within another one.");
        }
    }
    return XMLLIB_OK;
}

static DWORD TakeSetting(XML_POLICY* lpPolicy, const XML_ELEMENT* lpElement, XMLLIB_FINDING* lpFinding)
{
    XMLLIB_SETTING setting = {};
    DWORD          dwStatus = XMLLIB_OK;

    if (XmlName(lpElement) != "key") {
        return XmlRefuse(lpFinding, XMLLIB_BAD_POLICY, "A policy may hold elements named key only.");
    }
    if (lpPolicy->dwSettings == XMLLIB_SETTING_MAX) {
        return XmlRefuse(lpFinding, XMLLIB_BAD_POLICY, "A policy may hold %d keys at most.", XMLLIB_SETTING_MAX);
    }
    dwStatus = TakeAttributes(lpElement, &setting, lpFinding);
    if (dwStatus == XMLLIB_OK) {
        dwStatus = CheckSetting(lpPolicy, &setting, lpFinding);
    }
    if (dwStatus != XMLLIB_OK) {
        memcpy(lpFinding->szKey, setting.szKey, sizeof(lpFinding->szKey));
        return dwStatus;
    }
    setting.dwValue = setting.dwDefault;
    lpPolicy->setting[lpPolicy->dwSettings++] = setting;
    return XMLLIB_OK;
}

const XMLLIB_SETTING* XmlSetting(const XML_POLICY* lpPolicy, std::string_view key)
{
    for (DWORD n = 0; n < lpPolicy->dwSettings; n++) {
        if (key == lpPolicy->setting[n].szKey) {
            return &lpPolicy->setting[n];
        }
    }
    return NULL;
}

DWORD XmlReadPolicy(const std::wstring& file, const char* lpComponent, XML_POLICY* lpPolicy, XMLLIB_FINDING* lpFinding)
{
    XML_DOCUMENT_PTR   document;
    const XML_ELEMENT* lpElement = NULL;
    std::string_view   name;
    std::string_view   value;
    DWORD              dwStatus = XmlReadFile(file, "policy", &document, lpFinding);

    if (dwStatus != XMLLIB_OK) {
        return dwStatus;
    }
    *lpPolicy = {};
    lpPolicy->component = lpComponent;
    lpElement = XmlRoot(document.get());
    if (!XmlAttribute(lpElement, 0, &name, &value) || name != "component" || value != lpComponent) {
        dwStatus =
            XmlRefuse(lpFinding, XMLLIB_BAD_POLICY, "The policy is not the one of the component %s.", lpComponent);
    } else {
        for (const XML_ELEMENT* lp = XmlChild(lpElement, {}); lp != NULL && dwStatus == XMLLIB_OK;
             lp = XmlNext(lp, {})) {
            lpElement = lp;
            dwStatus = TakeSetting(lpPolicy, lp, lpFinding);
        }
        if (dwStatus == XMLLIB_OK && lpPolicy->dwSettings == 0) {
            dwStatus = XmlRefuse(lpFinding, XMLLIB_BAD_POLICY, "The policy holds no key.");
        }
    }
    if (dwStatus != XMLLIB_OK) {
        XmlPlace(XmlText(document.get()), XmlName(lpElement).data(), &lpFinding->dwLine, &lpFinding->dwColumn);
    }
    return dwStatus;
}

/* ---- Configuration ---- */

const XML_ELEMENT* XmlFollow(const XML_DOCUMENT* lpDocument, std::string_view key, std::string_view* lpRest)
{
    const XML_ELEMENT* lpElement = XmlRoot(lpDocument);
    const XML_ELEMENT* lpNext = lpElement;
    std::string_view   name;

    if (!XmlCutName(&key, &name) || name != XmlName(lpElement)) {
        return NULL;
    }
    for (*lpRest = key; lpNext != NULL && XmlCutName(&key, &name);) {
        lpNext = name.empty() ? NULL : XmlChild(lpElement, name);
        if (lpNext != NULL) {
            lpElement = lpNext;
            *lpRest = key;
        }
    }
    return lpElement;
}

/* The element of a key path; NULL: not there. */
static const XML_ELEMENT* Find(const XML_DOCUMENT* lpDocument, std::string_view key)
{
    std::string_view   rest;
    const XML_ELEMENT* lpElement = XmlFollow(lpDocument, key, &rest);

    return rest.empty() ? lpElement : NULL;
}

/* The second of two elements that stand for the same part of a policy's key; *lpPart receives that part. NULL: none. */
static const XML_ELEMENT* FindSecond(const XML_DOCUMENT* lpDocument, std::string_view key, std::string_view* lpPart)
{
    const XML_ELEMENT* lpElement = XmlRoot(lpDocument);
    std::string_view   rest = key;
    std::string_view   name;

    XmlCutName(&rest, &name);
    while (lpElement != NULL && XmlCutName(&rest, &name)) {
        const XML_ELEMENT* lpSecond = NULL;

        lpElement = XmlChild(lpElement, name);
        lpSecond = lpElement == NULL ? NULL : XmlNext(lpElement, name);
        if (lpSecond != NULL) {
            *lpPart = key.substr(0, key.size() - rest.size());
            return lpSecond;
        }
    }
    return NULL;
}

DWORD XmlReadConfiguration(const std::wstring& file, const XML_POLICY* lpPolicy, XML_DOCUMENT_PTR* lplpDocument,
                           XMLLIB_FINDING* lpFinding)
{
    XML_DOCUMENT_PTR document;
    DWORD            dwStatus = XmlReadFile(file, "root", &document, lpFinding);

    for (DWORD n = 0; n < lpPolicy->dwSettings && dwStatus == XMLLIB_OK; n++) {
        std::string_view   part;
        const XML_ELEMENT* lpSecond = FindSecond(document.get(), lpPolicy->setting[n].szKey, &part);

        if (lpSecond != NULL) {
            XmlCopy(lpFinding->szKey, sizeof(lpFinding->szKey), part);
            XmlPlace(XmlText(document.get()), XmlName(lpSecond).data(), &lpFinding->dwLine, &lpFinding->dwColumn);
            dwStatus =
                XmlRefuse(lpFinding, XMLLIB_KEY_TWICE, "The element stands twice; which of the two holds is unclear.");
        }
    }
    if (dwStatus == XMLLIB_OK) {
        *lplpDocument = std::move(document);
    }
    return dwStatus;
}

static DWORD RefuseRange(const XMLLIB_SETTING* lpSetting, XMLLIB_FINDING* lpFinding)
{
    static const char g_acHex[] = "The value %s is outside of the range %#lx to %#lx%s%s.";
    static const char g_acDecimal[] = "The value %s is outside of the range %lu to %lu%s%s.";

    return XmlRefuse(lpFinding, XMLLIB_OUT_OF_RANGE, lpSetting->bHex ? g_acHex : g_acDecimal, lpFinding->szValue,
                     lpSetting->dwMin, lpSetting->dwMax, lpSetting->szUnit[0] == '\0' ? "" : " ", lpSetting->szUnit);
}

DWORD XmlJudgeNumber(std::string_view text, const XMLLIB_SETTING* lpSetting, DWORD* lpdwValue,
                     XMLLIB_FINDING* lpFinding)
{
    DWORD dwValue = 0;
    DWORD dwStatus = XMLLIB_OK;

    XmlCopy(lpFinding->szValue, sizeof(lpFinding->szValue), text);
    if (!ParseNumber(text, &dwValue)) {
        dwStatus = XmlRefuse(lpFinding, XMLLIB_NO_NUMBER,
                             "The value \"%s\" is no 32-bit number in decimal digits, or hexadecimal digits behind 0x.",
                             lpFinding->szValue);
    } else if (lpSetting != NULL && (dwValue < lpSetting->dwMin || dwValue > lpSetting->dwMax)) {
        dwStatus = RefuseRange(lpSetting, lpFinding);
    } else {
        lpFinding->szValue[0] = '\0';
        *lpdwValue = dwValue;
    }
    return dwStatus;
}

DWORD XmlReadValue(const XML_DOCUMENT* lpDocument, const char* lpKey, const XMLLIB_SETTING* lpSetting, DWORD* lpdwValue,
                   const char** lplpPlace, XMLLIB_FINDING* lpFinding)
{
    const XML_ELEMENT* lpElement = Find(lpDocument, lpKey);
    XML_VALUE          value = {};
    DWORD              dwValue = 0;
    DWORD              dwStatus = XMLLIB_OK;

    *lplpPlace = NULL;
    if (lpElement == NULL) {
        if (lpSetting == NULL) {
            return XmlRefuse(lpFinding, XMLLIB_NO_SUCH_KEY, "Neither the configuration nor the policy knows this key.");
        }
        *lpdwValue = lpSetting->dwDefault;
        return XMLLIB_OK;
    }
    lpFinding->szValue[0] = '\0';
    value = XmlValue(lpElement);
    *lplpPlace = value.text.empty() ? XmlName(lpElement).data() : value.text.data();
    if (!value.bOnePiece) {
        *lplpPlace = XmlName(lpElement).data();
        dwStatus = XmlRefuse(lpFinding, XMLLIB_NO_NUMBER, "One number must stand between the tags, in one piece.");
    } else if (value.text.empty()) {
        dwStatus = XmlRefuse(lpFinding, XMLLIB_NO_NUMBER, "There is no value between the tags.");
    } else {
        dwStatus = XmlJudgeNumber(value.text, lpSetting, &dwValue, lpFinding);
    }
    if (dwStatus == XMLLIB_OK) {
        *lpdwValue = dwValue;
    }
    return dwStatus;
}

/* Reports what stands in a section of the component without being a key of the policy or a section around one. Goes
 * down into known sections only, so the policy bounds the recursion. */
static void ReportUnknown(const XML_DOCUMENT* lpDocument, const XML_POLICY* lpPolicy, const XML_ELEMENT* lpSection,
                          const std::string& path, XMLLIB_REPORT* lpReport)
{
    for (const XML_ELEMENT* lp = XmlChild(lpSection, {}); lp != NULL; lp = XmlNext(lp, {})) {
        // Longer than any known key: the rest of a name that long changes nothing.
        std::string key = path + "/" + std::string(XmlName(lp).substr(0, XMLLIB_KEY_SIZE));
        bool        bKey = false;
        bool        bSection = false;

        for (DWORD n = 0; n < lpPolicy->dwSettings; n++) {
            bKey = bKey || key == lpPolicy->setting[n].szKey;
            bSection = bSection || IsWithin(lpPolicy->setting[n].szKey, key);
        }
        if (!bSection) {
            if (lpReport->dwUnknown < XMLLIB_UNKNOWN_MAX) {
                XMLLIB_UNKNOWN* lpUnknown = &lpReport->unknown[lpReport->dwUnknown];
                XmlCopy(lpUnknown->szKey, sizeof(lpUnknown->szKey), key);
                XmlPlace(XmlText(lpDocument), XmlName(lp).data(), &lpUnknown->dwLine, &lpUnknown->dwColumn);
            }
            lpReport->dwUnknown++;
        } else if (!bKey) {
            ReportUnknown(lpDocument, lpPolicy, lp, key, lpReport);
        }
    }
}

DWORD XmlReadSettings(const XML_DOCUMENT* lpDocument, const XML_POLICY* lpPolicy, XMLLIB_REPORT* lpReport)
{
    std::string        path = "/root/" + lpPolicy->component;
    const XML_ELEMENT* lpSection = Find(lpDocument, path);
    const char*        lpFirst = NULL;

    for (DWORD n = 0; n < lpReport->dwSettings; n++) {
        XMLLIB_SETTING* lpSetting = &lpReport->setting[n];
        XMLLIB_FINDING  finding = lpReport->finding;
        const char*     lpPlace = NULL;
        DWORD dwStatus = XmlReadValue(lpDocument, lpSetting->szKey, lpSetting, &lpSetting->dwValue, &lpPlace, &finding);

        lpSetting->bInFile = lpPlace != NULL;
        if (dwStatus != XMLLIB_OK && (lpFirst == NULL || lpPlace < lpFirst)) {
            lpFirst = lpPlace;
            XmlCopy(finding.szKey, sizeof(finding.szKey), lpSetting->szKey);
            XmlPlace(XmlText(lpDocument), lpPlace, &finding.dwLine, &finding.dwColumn);
            finding.dwMin = lpSetting->dwMin;
            finding.dwMax = lpSetting->dwMax;
            lpReport->finding = finding;
        }
    }
    if (lpSection != NULL) {
        ReportUnknown(lpDocument, lpPolicy, lpSection, path, lpReport);
    }
    return lpReport->finding.dwStatus;
}
