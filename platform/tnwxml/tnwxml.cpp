/*
 * The exports of tnwxml.dll: arguments, order of calls, the state of the process. Nothing is thrown across them.
 */
#include "tnwxml_internal.h"
#include <exception>
#include <string.h>

/* ---- State ---- */

/* What the sequence from init to term holds. Under g_lock. */
struct XML_STATE {
    bool                        bInit;
    std::unique_ptr<XML_POLICY> policy;
    XML_DOCUMENT_PTR            configuration;  // only while there is a policy
};

static SRWLOCK   g_lock = SRWLOCK_INIT;
static XML_STATE g_state;

namespace {
/* Holds the lock for a block, exceptions included. */
struct LOCKED {
    LOCKED()
    {
        AcquireSRWLockExclusive(&g_lock);
    }
    ~LOCKED()
    {
        ReleaseSRWLockExclusive(&g_lock);
    }
    LOCKED(const LOCKED&) = delete;
    LOCKED& operator=(const LOCKED&) = delete;
};
}  // namespace

/* Runs the body of a routine that allocates. Lack of memory is all that can be thrown here. */
template <class Body> static XMLLIB_STATUS Guarded(Body body)
{
    try {
        return body();
    } catch (const std::exception&) {
        return XMLLIB_NO_MEMORY;
    }
}

/* ---- Places ---- */

/* Full path of a file below HOME, the parent of the folder that this module lies in; empty if Windows does not tell. */
static std::wstring HomeFile(const wchar_t* lpwcBelow)
{
    HMODULE      hModule = NULL;
    std::wstring path(MAX_PATH, L'\0');
    DWORD        dwLength = 0;

    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(&g_state), &hModule)) {
        return {};
    }
    // A path that does not fit is cut off without a word; 32768 is the longest there is.
    while ((dwLength = GetModuleFileNameW(hModule, &path[0], static_cast<DWORD>(path.size()))) == path.size() &&
           path.size() < 32768) {
        path.resize(path.size() * 2);
    }
    path.resize(dwLength);
    for (int n = 0; n < 2; n++) {
        size_t nEnd = path.find_last_of(L"\\/");
        if (nEnd == std::wstring::npos) {
            return {};
        }
        path.resize(nEnd);
    }
    return path + lpwcBelow;
}

static std::wstring ConfigurationFile()
{
    return HomeFile(L"\\etc\\cluster.xml");
}

static std::wstring PolicyFile(const char* lpComponent)
{
    std::string component = lpComponent;

    return HomeFile((L"\\etc\\policy\\" + std::wstring(component.begin(), component.end()) + L".xml").c_str());
}

/* ---- Exports ---- */

XMLLIB_STATUS xmllib_init(const char* lpComponent)
{
    LOCKED locked;

    if (!XmlIsComponent(lpComponent)) {
        return XMLLIB_INVALID_ARGUMENT;
    }
    if (g_state.bInit) {
        return XMLLIB_WRONG_ORDER;
    }
    g_state.bInit = true;
    return XMLLIB_OK;
}

XMLLIB_STATUS xmllib_term(void)
{
    LOCKED locked;

    if (!g_state.bInit) {
        return XMLLIB_WRONG_ORDER;
    }
    g_state.configuration.reset();
    g_state.policy.reset();
    g_state.bInit = false;
    return XMLLIB_OK;
}

XMLLIB_STATUS xmllib_load_policy(const char* lpComponent)
{
    return Guarded([lpComponent]() -> XMLLIB_STATUS {
        LOCKED         locked;
        XMLLIB_FINDING finding = {};
        DWORD          dwStatus = XMLLIB_OK;

        if (!XmlIsComponent(lpComponent)) {
            return XMLLIB_INVALID_ARGUMENT;
        }
        if (!g_state.bInit || g_state.policy != nullptr) {
            return XMLLIB_WRONG_ORDER;
        }
        auto policy = std::make_unique<XML_POLICY>();
        dwStatus = XmlReadPolicy(PolicyFile(lpComponent), lpComponent, policy.get(), &finding);
        if (dwStatus == XMLLIB_OK) {
            g_state.policy = std::move(policy);
        }
        return dwStatus;
    });
}

XMLLIB_STATUS xmllib_unload_policy(const char* lpComponent)
{
    LOCKED locked;

    if (!XmlIsComponent(lpComponent)) {
        return XMLLIB_INVALID_ARGUMENT;
    }
    if (g_state.policy == nullptr || g_state.policy->component != lpComponent || g_state.configuration != nullptr) {
        return XMLLIB_WRONG_ORDER;
    }
    g_state.policy.reset();
    return XMLLIB_OK;
}

XMLLIB_STATUS xmllib_load_config(DWORD dwConfig)
{
    return Guarded([dwConfig]() -> XMLLIB_STATUS {
        LOCKED         locked;
        XMLLIB_FINDING finding = {};

        if (dwConfig != XMLLIB_CONFIG_CLUSTER) {
            return XMLLIB_INVALID_ARGUMENT;
        }
        if (g_state.policy == nullptr || g_state.configuration != nullptr) {
            return XMLLIB_WRONG_ORDER;
        }
        return XmlReadConfiguration(ConfigurationFile(), g_state.policy.get(), &g_state.configuration, &finding);
    });
}

XMLLIB_STATUS xmllib_unload_config(void)
{
    LOCKED locked;

    if (g_state.configuration == nullptr) {
        return XMLLIB_WRONG_ORDER;
    }
    g_state.configuration.reset();
    return XMLLIB_OK;
}

XMLLIB_STATUS xmllib_get_value(const char* lpKey, DWORD dwType, void* lpValue, DWORD* lpdwSize)
{
    LOCKED         locked;
    XMLLIB_FINDING finding = {};
    const char*    lpPlace = NULL;
    DWORD          dwValue = 0;
    DWORD          dwStatus = XMLLIB_OK;

    if (lpKey == NULL || lpValue == NULL || lpdwSize == NULL || dwType != XMLLIB_TYPE_DWORD ||
        *lpdwSize < sizeof(dwValue)) {
        return XMLLIB_INVALID_ARGUMENT;
    }
    if (g_state.configuration == nullptr) {
        return XMLLIB_WRONG_ORDER;
    }
    dwStatus = XmlReadValue(g_state.configuration.get(), lpKey, XmlSetting(g_state.policy.get(), lpKey), &dwValue,
                            &lpPlace, &finding);
    if (dwStatus == XMLLIB_OK) {
        memcpy(lpValue, &dwValue, sizeof(dwValue));  // nobody promised that the destination is aligned
        *lpdwSize = sizeof(dwValue);
    }
    return dwStatus;
}

/* The body of xmllib_check; leaves settings and finding in the report. */
static DWORD Check(const char* lpComponent, const WCHAR* lpwcFile, XMLLIB_REPORT* lpReport)
{
    auto             policy = std::make_unique<XML_POLICY>();
    XML_DOCUMENT_PTR configuration;
    std::wstring     file = lpwcFile == NULL ? ConfigurationFile() : lpwcFile;
    DWORD            dwStatus = XmlReadPolicy(PolicyFile(lpComponent), lpComponent, policy.get(), &lpReport->finding);

    if (dwStatus != XMLLIB_OK) {
        return dwStatus;
    }
    lpReport->dwSettings = policy->dwSettings;
    memcpy(lpReport->setting, policy->setting, sizeof(lpReport->setting));
    dwStatus = XmlReadConfiguration(file, policy.get(), &configuration, &lpReport->finding);
    if (dwStatus != XMLLIB_OK) {
        return dwStatus;
    }
    return XmlReadSettings(configuration.get(), policy.get(), lpReport);
}

XMLLIB_STATUS xmllib_check(const char* lpComponent, const WCHAR* lpwcFile, XMLLIB_REPORT* lpReport)
{
    XMLLIB_STATUS status = XMLLIB_OK;

    if (lpReport == NULL) {
        return XMLLIB_INVALID_ARGUMENT;
    }
    *lpReport = {};
    if (!XmlIsComponent(lpComponent)) {
        return XmlRefuse(&lpReport->finding, XMLLIB_INVALID_ARGUMENT, "This is no name of a component.");
    }
    status = Guarded([=]() -> XMLLIB_STATUS { return Check(lpComponent, lpwcFile, lpReport); });
    if (status == XMLLIB_NO_MEMORY) {
        *lpReport = {};
        XmlRefuse(&lpReport->finding, XMLLIB_NO_MEMORY, "There is not enough memory to read the files.");
    }
    return status;
}

/* The keys and values of an edit, before any file is read but the policy. */
static DWORD JudgeChanges(const XML_POLICY* lpPolicy, const XMLLIB_CHANGE* lpChanges, DWORD dwChanges,
                          XMLLIB_FINDING* lpFinding)
{
    for (DWORD n = 0; n < dwChanges; n++) {
        const XMLLIB_SETTING* lpSetting = XmlSetting(lpPolicy, lpChanges[n].lpKey);
        DWORD                 dwValue = 0;
        DWORD                 dwStatus = XMLLIB_OK;

        if (lpSetting == NULL) {
            dwStatus = XmlRefuse(lpFinding, XMLLIB_NO_SUCH_KEY, "The policy does not know this key.");
        } else {
            dwStatus = XmlJudgeNumber(lpChanges[n].lpValue, lpSetting, &dwValue, lpFinding);
        }
        if (dwStatus != XMLLIB_OK) {
            XmlCopy(lpFinding->szKey, sizeof(lpFinding->szKey), lpChanges[n].lpKey);
            lpFinding->dwMin = lpSetting == NULL ? 0 : lpSetting->dwMin;
            lpFinding->dwMax = lpSetting == NULL ? 0 : lpSetting->dwMax;
            return dwStatus;
        }
    }
    return XMLLIB_OK;
}

/* The body of xmllib_edit. */
static DWORD Edit(const char* lpComponent, const WCHAR* lpwcFile, const XMLLIB_CHANGE* lpChanges, DWORD dwChanges,
                  char* lpText, DWORD* lpdwSize, XMLLIB_FINDING* lpFinding)
{
    auto             policy = std::make_unique<XML_POLICY>();
    XML_DOCUMENT_PTR configuration;
    std::string      text;
    DWORD            dwStatus = XmlReadPolicy(PolicyFile(lpComponent), lpComponent, policy.get(), lpFinding);

    if (dwStatus == XMLLIB_OK) {
        *lpFinding = {};
        dwStatus = JudgeChanges(policy.get(), lpChanges, dwChanges, lpFinding);
    }
    if (dwStatus == XMLLIB_OK) {
        dwStatus = XmlReadConfiguration(lpwcFile == NULL ? ConfigurationFile() : lpwcFile, policy.get(), &configuration,
                                        lpFinding);
    }
    if (dwStatus != XMLLIB_OK) {
        return dwStatus;
    }
    text = XmlText(configuration.get());
    configuration.reset();
    for (DWORD n = 0; n < dwChanges; n++) {
        dwStatus = XmlEditValue(&text, lpChanges[n].lpKey, lpChanges[n].lpValue, lpFinding);
        if (dwStatus != XMLLIB_OK) {
            XmlCopy(lpFinding->szKey, sizeof(lpFinding->szKey), lpChanges[n].lpKey);
            return dwStatus;
        }
    }
    memcpy(lpText, text.data(), text.size());
    *lpdwSize = static_cast<DWORD>(text.size());
    return XMLLIB_OK;
}

XMLLIB_STATUS xmllib_edit(const char* lpComponent, const WCHAR* lpwcFile, const XMLLIB_CHANGE* lpChanges,
                          DWORD dwChanges, char* lpText, DWORD* lpdwSize, XMLLIB_FINDING* lpFinding)
{
    XMLLIB_STATUS status = XMLLIB_OK;

    if (lpFinding == NULL) {
        return XMLLIB_INVALID_ARGUMENT;
    }
    *lpFinding = {};
    if (!XmlIsComponent(lpComponent) || lpChanges == NULL || lpText == NULL || lpdwSize == NULL ||
        *lpdwSize < XMLLIB_FILE_MAX) {
        return XmlRefuse(lpFinding, XMLLIB_INVALID_ARGUMENT, "An argument is missing or too small.");
    }
    for (DWORD n = 0; n < dwChanges; n++) {
        if (lpChanges[n].lpKey == NULL || lpChanges[n].lpValue == NULL) {
            return XmlRefuse(lpFinding, XMLLIB_INVALID_ARGUMENT, "A change has no key or no value.");
        }
    }
    status = Guarded([=]() -> XMLLIB_STATUS {
        return Edit(lpComponent, lpwcFile, lpChanges, dwChanges, lpText, lpdwSize, lpFinding);
    });
    if (status == XMLLIB_NO_MEMORY) {
        *lpFinding = {};
        XmlRefuse(lpFinding, XMLLIB_NO_MEMORY, "There is not enough memory to read the files.");
    }
    return status;
}
