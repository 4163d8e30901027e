/*
 * The real tnwxml.dll, copied into a HOME of the test and bound by ordinal. Its waits are ours: none takes time, each
 * is counted, and a test can let something happen in it.
 */
#pragma once
#include "support/import_hooks.h"
#include "support/test_home.h"
#include "tnwxml.h"
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

// A policy for tests that need no particular one.
extern const char* const MINIMAL_POLICY;

class TnwXml : public testing::Test {
protected:
    TnwXml();
    ~TnwXml() override;

    // Writes etc/cluster.xml.
    void Config(std::string_view bytes);
    // Writes a configuration that holds one key alone, the text standing between its tags as it is.
    void ConfigWith(const std::string& key, const std::string& text);
    // init, load policy, load configuration; the first status that is not XMLLIB_OK. Ends what was loaded before.
    DWORD Load();
    // Load, and one value; the first status that is not XMLLIB_OK.
    DWORD LoadAndGet(const std::string& key, DWORD* lpdwValue);
    DWORD Get(const std::string& key, DWORD* lpdwValue);
    // xmllib_check of etc/cluster.xml.
    const XMLLIB_REPORT& Check();
    // The same for a configuration that consists of these bytes.
    const XMLLIB_FINDING& Finding(std::string_view bytes);

    // xmllib_edit of etc/cluster.xml with these keys and values; *lpText is set on XMLLIB_OK alone.
    DWORD          Edit(const std::vector<std::pair<std::string, std::string>>& values, std::string* lpText);
    XMLLIB_FINDING edit_finding = {};  // of the last Edit

    decltype(&xmllib_init)          init = nullptr;
    decltype(&xmllib_term)          term = nullptr;
    decltype(&xmllib_load_policy)   load_policy = nullptr;
    decltype(&xmllib_unload_policy) unload_policy = nullptr;
    decltype(&xmllib_load_config)   load_config = nullptr;
    decltype(&xmllib_unload_config) unload_config = nullptr;
    decltype(&xmllib_get_value)     get_value = nullptr;
    decltype(&xmllib_check)         check = nullptr;
    decltype(&xmllib_edit)          edit = nullptr;

    TestHome                           home;
    HMODULE                            module = nullptr;
    static std::vector<DWORD>          waits;        // milliseconds of each wait of the DLL
    static std::function<void(size_t)> during_wait;  // called with 1 in the first wait, and so on

private:
    std::unique_ptr<ImportHook> m_sleep;  // gone before the DLL
    XMLLIB_REPORT               m_report = {};
};

// The default configuration as it is installed.
std::string DefaultConfiguration(const TestHome& home);
