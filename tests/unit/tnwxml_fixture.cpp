#include "unit/tnwxml_fixture.h"
#include <fstream>
#include <sstream>
#include <string.h>

const char* const MINIMAL_POLICY =
    "<policy component='diskperf'>"
    "<key path='/root/diskperf/log/level' type='dword' min='1' max='9' default='5' applies='reload' help='A level.'/>"
    "</policy>";

std::vector<DWORD> TnwXml::waits;
std::function<void(size_t)> TnwXml::during_wait;

// The DLL's slot of an imported routine of KERNEL32.
static void** ImportSlot(HMODULE module, const char* name)
{
    BYTE* base = reinterpret_cast<BYTE*>(module);
    auto nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    auto library = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(
        base + nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress);

    for (; library->Name != 0; library++) {
        auto from = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library->OriginalFirstThunk);
        auto to = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library->FirstThunk);
        for (; from->u1.AddressOfData != 0; from++, to++) {
            if (!IMAGE_SNAP_BY_ORDINAL(from->u1.Ordinal) &&
                strcmp(reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + from->u1.AddressOfData)->Name, name) == 0) {
                return reinterpret_cast<void**>(&to->u1.Function);
            }
        }
    }
    return nullptr;
}

template <class Routine> static void Bind(HMODULE module, WORD ordinal, Routine* routine)
{
    void* address = reinterpret_cast<void*>(GetProcAddress(module, MAKEINTRESOURCEA(ordinal)));
    memcpy(routine, &address, sizeof(address));
    EXPECT_NE(address, nullptr) << "ordinal " << ordinal;
}

static std::vector<DWORD>* g_waits;
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
    void (WINAPI *replacement)(DWORD) = Wait;
    void** slot = nullptr;
    DWORD protection = 0;

    waits.clear();
    during_wait = nullptr;
    g_waits = &waits;
    g_during = &during_wait;
    home.Copy("etc/policy/diskperf.xml");
    home.Copy("etc/cluster.xml");
    module = LoadLibraryW(home.Copy("bin/tnwxml.dll").c_str());
    if (module == nullptr || (slot = ImportSlot(module, "Sleep")) == nullptr) {
        throw std::runtime_error("tnwxml.dll does not load, or imports no Sleep");
    }
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
    memcpy(slot, &replacement, sizeof(replacement));
    VirtualProtect(slot, sizeof(*slot), protection, &protection);
    Bind(module, 1, &init);
    Bind(module, 2, &term);
    Bind(module, 4, &load_policy);
    Bind(module, 5, &unload_policy);
    Bind(module, 6, &load_config);
    Bind(module, 7, &unload_config);
    Bind(module, 13, &get_value);
    Bind(module, 14, &check);
}

TnwXml::~TnwXml()
{
    FreeLibrary(module);
    during_wait = nullptr;
}

void TnwXml::Config(std::string_view bytes)
{
    home.Write("etc/cluster.xml", bytes);
}

void TnwXml::ConfigWith(const std::string& key, const std::string& text)
{
    std::istringstream names(key.substr(1));
    std::string opening;
    std::string closing;

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
    memset(&m_report, 0xCC, sizeof(m_report)); // whatever is not set shows
    DWORD status = static_cast<DWORD>(check("diskperf", nullptr, &m_report));
    EXPECT_EQ(status, m_report.finding.dwStatus);
    return m_report;
}

const XMLLIB_FINDING& TnwXml::Finding(std::string_view bytes)
{
    Config(bytes);
    return Check().finding;
}

std::string DefaultConfiguration(StageHome& home)
{
    std::ifstream in(home.etc() / "cluster.xml", std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}
