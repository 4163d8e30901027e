/*
 * A fresh home with tnwlog.dll and tnwmsg.dll in it, the library loaded from there, and hooks that take the place of
 * the system calls a test wants to see or to fail.
 */
#ifndef TNWLOG_FIXTURE_H
#define TNWLOG_FIXTURE_H

#include "support/import_hooks.h"
#include "support/test_home.h"
#include "support/tnwlog_api.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using Names = std::vector<std::wstring>;

class TnwLogTest : public testing::Test {
protected:
    explicit TnwLogTest(const wchar_t* lpLeaf = L"home") : home(lpLeaf)
    {
        home.Install(L"tnwmsg.dll");
        path = home.Install(L"tnwlog.dll");
        api = std::make_unique<TnwLogApi>(path);
    }

    /* The library as a process finds it that starts now. */
    void Restart()
    {
        hooks.clear();
        api.reset();
        api = std::make_unique<TnwLogApi>(path);
    }

    template <class F> ImportHook& Hook(const char* lpDll, const char* lpName, F* lpReplacement)
    {
        hooks.push_back(std::make_unique<ImportHook>(api->Module(), lpDll, lpName, lpReplacement));
        return *hooks.back();
    }

    TestHome                                 home;
    std::wstring                             path;
    std::unique_ptr<TnwLogApi>               api;
    std::vector<std::unique_ptr<ImportHook>> hooks; /* gone before the library they are in */
};

/* Lines without CR LF; a rest without line end comes back with "<no line end>" behind it. */
inline std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t                   at = 0, end = 0;

    while ((end = text.find("\r\n", at)) != std::string::npos) {
        lines.push_back(text.substr(at, end - at));
        at = end + 2;
    }
    if (at < text.size()) {
        lines.push_back(text.substr(at) + "<no line end>");
    }
    return lines;
}

#endif
