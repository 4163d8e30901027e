#include "unit/tnwxml_fixture.h"
#include <sstream>
#include <string.h>

const char* const MINIMAL_POLICY =
    "<policy component='diskperf'>"
    "<key path='/root/diskperf/log/level' type='dword' min='1' max='9' default='5' applies='reload' help='A level.'/>"
    "</policy>";

std::vector<DWORD>          TnwXml::waits;
std::function<void(size_t)> TnwXml::during_wait;

static const XMLLIB_CHANGE NO_CHANGE = { "", "" };

template <class Routine> static void Bind(HMODULE module, WORD ordinal, Routine* routine)
{
    void* address = reinterpret_cast<void*>(GetProcAddress(module, MAKEINTRESOURCEA(ordinal)));
    memcpy(routine, &address, sizeof(address));
    EXPECT_NE(address, nullptr) << "ordinal " << ordinal;
}

static std::vector<DWORD>*          g_waits;
static std::function<void(size_t)>* g_during;

static void WINAPI Wait(DWORD ms)
{
    g_waits->push_back(ms);
    if (*g_during) {
        (*g_during)(g_waits->size());
    }
}

TnwXml::TnwXml()
{
    waits.clear();
    during_wait = nullptr;
    g_waits = &waits;
    g_during = &during_wait;
    home.MakeFolder(L"etc\\policy");
    home.CopyIn(L"" XML_SOURCES "/policy/diskperf.xml", L"etc\\policy\\diskperf.xml");
    home.CopyIn(L"" XML_SOURCES "/cluster.xml", L"etc\\cluster.xml");
    home.Install(L"tnwxml.dll");
    module = LoadLibraryA(home.PlainPath(L"bin\\tnwxml.dll").c_str());
    if (module == nullptr) {
        throw std::runtime_error("tnwxml.dll does not load");
    }
    m_sleep = std::make_unique<ImportHook>(module, "kernel32.dll", "Sleep", Wait);
    Bind(module, 1, &init);
    Bind(module, 2, &term);
    Bind(module, 4, &load_policy);
    Bind(module, 5, &unload_policy);
    Bind(module, 6, &load_config);
    Bind(module, 7, &unload_config);
    Bind(module, 13, &get_value);
    Bind(module, 14, &check);
    Bind(module, 15, &edit);
}

TnwXml::~TnwXml()
{
    m_sleep.reset();
    FreeLibrary(module);
    during_wait = nullptr;
}

void TnwXml::Config(std::string_view bytes)
{
    home.Write(L"etc\\cluster.xml", std::string(bytes));
}

void TnwXml::ConfigWith(const std::string& key, const std::string& text)
{
    std::istringstream names(key.substr(1));
    std::string        opening;
    std::string        closing;

    for (std::string name; std::getline(names, name, '/');) {
        opening += "<" + name + ">";
        closing.insert(0, "</" + name + ">");
    }
    Config(opening + text + closing);
}

DWORD TnwXml::Load()
{
    XMLLIB_STATUS status = XMLLIB_OK;

    term();
    if ((status = init("diskperf")) == XMLLIB_OK && (status = load_policy("diskperf")) == XMLLIB_OK) {
        status = load_config(XMLLIB_CONFIG_CLUSTER);
    }
    return static_cast<DWORD>(status);
}

DWORD TnwXml::Get(const std::string& key, DWORD* lpdwValue)
{
    DWORD size = 4;
    return static_cast<DWORD>(get_value(key.c_str(), XMLLIB_TYPE_DWORD, lpdwValue, &size));
}

DWORD TnwXml::LoadAndGet(const std::string& key, DWORD* lpdwValue)
{
    DWORD status = Load();
    return status != XMLLIB_OK ? status : Get(key, lpdwValue);
}

const XMLLIB_REPORT& TnwXml::Check()
{
    memset(&m_report, 0xCC, sizeof(m_report));  // whatever is not set shows
    DWORD status = static_cast<DWORD>(check("diskperf", nullptr, &m_report));
    EXPECT_EQ(status, m_report.finding.dwStatus);
    return m_report;
}

const XMLLIB_FINDING& TnwXml::Finding(std::string_view bytes)
{
    Config(bytes);
    return Check().finding;
}

DWORD TnwXml::Edit(const std::vector<std::pair<std::string, std::string>>& values, std::string* lpText)
{
    std::vector<XMLLIB_CHANGE> changes;
    std::string                text(XMLLIB_FILE_MAX, '\xCC');
    DWORD                      size = XMLLIB_FILE_MAX;

    for (const auto& [key, value] : values) {
        changes.push_back({ key.c_str(), value.c_str() });
    }
    memset(&edit_finding, 0xCC, sizeof(edit_finding));
    const XMLLIB_STATUS status = edit("diskperf", nullptr, changes.empty() ? &NO_CHANGE : changes.data(),
                                      static_cast<DWORD>(changes.size()), &text[0], &size, &edit_finding);
    EXPECT_EQ(status, edit_finding.dwStatus);
    if (status == XMLLIB_OK) {
        *lpText = text.substr(0, size);
    } else {
        EXPECT_EQ(size, XMLLIB_FILE_MAX);
        EXPECT_EQ(text.find_first_not_of('\xCC'), std::string::npos) << "a refused edit wrote into the caller's buffer";
    }
    return static_cast<DWORD>(status);
}

std::string DefaultConfiguration(const TestHome& home)
{
    return home.Read(L"etc\\cluster.xml");
}
