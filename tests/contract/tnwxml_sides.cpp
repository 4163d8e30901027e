#include <string.h>

#include <stdexcept>

#include "contract/tnwxml_contract.h"
#include "doubles/tnwxml_double.h"
#include "support/import_hooks.h"
#include "support/test_home.h"

namespace {

/* ---- The library ---- */

/* The pauses between two readings of a file that may just be being saved: nobody saves it here. */
void WINAPI NoWait(DWORD)
{
}

class RealSide : public TnwxmlSide {
public:
    RealSide()
    {
        m_home.MakeFolder(L"etc\\policy");
        Mend();
        m_home.Install(L"tnwxml.dll");
        m_module = LoadLibraryA(m_home.PlainPath(L"bin\\tnwxml.dll").c_str());
        if (m_module == nullptr) {
            throw std::runtime_error("tnwxml.dll does not load");
        }
        m_sleep = std::make_unique<ImportHook>(m_module, "kernel32.dll", "Sleep", NoWait);
        Bind(xmllib_init, 1);
        Bind(xmllib_term, 2);
        Bind(xmllib_load_policy, 4);
        Bind(xmllib_unload_policy, 5);
        Bind(xmllib_load_config, 6);
        Bind(xmllib_unload_config, 7);
        Bind(xmllib_get_value, 13);
    }
    ~RealSide() override
    {
        m_sleep.reset();
        FreeLibrary(m_module);
    }

    void Give(const std::string& key, DWORD value) override
    {
        SetText(key, std::to_string(value));
    }
    void GiveNoNumber(const std::string& key) override
    {
        SetText(key, "many");
    }
    void GiveOutOfRange(const std::string& key) override
    {
        SetText(key, "4294967295");
    }
    void LeaveOut(const std::string& key) override
    {
        Edit(key, "");
    }

    void Break(Wrong wrong) override
    {
        switch (wrong) {
        case Wrong::PolicyMissing:
            m_home.Remove(POLICY);
            break;
        case Wrong::PolicyCut:
            m_home.Write(POLICY, m_home.Read(POLICY).substr(0, 1000));
            break;
        case Wrong::PolicyBad:
            m_home.Write(POLICY, "<policy component=\"diskperf\"><key path=\"/root/diskperf/a\"/></policy>");
            break;
        case Wrong::ConfigurationMissing:
            m_home.Remove(CONFIGURATION);
            break;
        case Wrong::ConfigurationCut:
            m_home.Write(CONFIGURATION, m_home.Read(CONFIGURATION).substr(0, 300));
            break;
        case Wrong::KeyTwice:
            SetText("/root/diskperf/log/level", "7</level><level>7");
            break;
        }
    }
    void Mend() override
    {
        m_home.CopyIn(L"" XML_SOURCES "/policy/diskperf.xml", POLICY);
        m_home.CopyIn(L"" XML_SOURCES "/cluster.xml", CONFIGURATION);
    }

private:
    static constexpr const wchar_t* POLICY = L"etc\\policy\\diskperf.xml";
    static constexpr const wchar_t* CONFIGURATION = L"etc\\cluster.xml";

    template <class Routine> void Bind(Routine& routine, WORD ordinal)
    {
        routine =
            reinterpret_cast<Routine>(reinterpret_cast<void*>(GetProcAddress(m_module, MAKEINTRESOURCEA(ordinal))));
        if (routine == nullptr) {
            throw std::runtime_error("tnwxml.dll has no ordinal " + std::to_string(ordinal));
        }
    }

    void SetText(const std::string& key, const std::string& text)
    {
        const std::string name = key.substr(key.rfind('/') + 1);
        Edit(key, "<" + name + ">" + text + "</" + name + ">");
    }

    /* Puts the element in the place of the key's own; the names of the keys differ. */
    void Edit(const std::string& key, const std::string& element)
    {
        const std::string name = key.substr(key.rfind('/') + 1), closing = "</" + name + ">";
        std::string       text = m_home.Read(CONFIGURATION);
        const size_t      from = text.find("<" + name + ">"), to = text.find(closing);
        if (from == std::string::npos || to == std::string::npos) {
            throw std::runtime_error("the configuration has no " + key);
        }
        m_home.Write(CONFIGURATION, text.replace(from, to + closing.size() - from, element));
    }

    TestHome                    m_home;
    HMODULE                     m_module = nullptr;
    std::unique_ptr<ImportHook> m_sleep;
};

/* ---- The double ---- */

class DoubleSide : public TnwxmlSide {
public:
    DoubleSide()
    {
        xmllib_init = ::xmllib_init;
        xmllib_term = ::xmllib_term;
        xmllib_load_policy = ::xmllib_load_policy;
        xmllib_unload_policy = ::xmllib_unload_policy;
        xmllib_load_config = ::xmllib_load_config;
        xmllib_unload_config = ::xmllib_unload_config;
        xmllib_get_value = ::xmllib_get_value;
    }

    void Give(const std::string& key, DWORD value) override
    {
        m_xml.values[key] = value;
    }
    void GiveNoNumber(const std::string& key) override
    {
        m_xml.failKey[key] = XMLLIB_NO_NUMBER;
    }
    void GiveOutOfRange(const std::string& key) override
    {
        m_xml.failKey[key] = XMLLIB_OUT_OF_RANGE;
    }
    void LeaveOut(const std::string&) override
    {
        // The double starts with what the policy gives.
    }

    void Break(Wrong wrong) override
    {
        switch (wrong) {
        case Wrong::PolicyMissing:
            return Fail("xmllib_load_policy", XMLLIB_NO_FILE);
        case Wrong::PolicyCut:
            return Fail("xmllib_load_policy", XMLLIB_NOT_WELL_FORMED);
        case Wrong::PolicyBad:
            return Fail("xmllib_load_policy", XMLLIB_BAD_POLICY);
        case Wrong::ConfigurationMissing:
            return Fail("xmllib_load_config", XMLLIB_NO_FILE);
        case Wrong::ConfigurationCut:
            return Fail("xmllib_load_config", XMLLIB_NOT_WELL_FORMED);
        case Wrong::KeyTwice:
            return Fail("xmllib_load_config", XMLLIB_KEY_TWICE);
        }
    }
    void Mend() override
    {
        // What Fail plans is over after one call.
    }

private:
    /* The next call of the routine. */
    void Fail(const char* routine, XMLLIB_STATUS status)
    {
        m_xml.Fail(routine, m_journal.Number(routine) + 1, status);
    }

    Journal   m_journal;
    XmlDouble m_xml{ m_journal };
};

}  // namespace

std::unique_ptr<TnwxmlSide> RealTnwxml()
{
    return std::make_unique<RealSide>();
}

std::unique_ptr<TnwxmlSide> DoubleOfTnwxml()
{
    return std::make_unique<DoubleSide>();
}
