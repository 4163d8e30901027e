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

/* The library's memory: which request fails, and how many pieces it holds. */
struct Memory {
    inline static int failAt = 0, requests = 0, held = 0;

    static LPVOID WINAPI Alloc(HANDLE hHeap, DWORD dwFlags, SIZE_T cb)
    {
        if (++requests == failAt) {
            return nullptr;
        }
        held++;
        return HeapAlloc(hHeap, dwFlags, cb);
    }
    static BOOL WINAPI Free(HANDLE hHeap, DWORD dwFlags, LPVOID lp)
    {
        held--;
        return HeapFree(hHeap, dwFlags, lp);
    }
};

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

    /* From now on the n-th request for memory fails; 0: none does. */
    void FailMemoryAt(int n)
    {
        if (hooks.empty()) {
            Hook("kernel32.dll", "HeapAlloc", Memory::Alloc);
            Hook("kernel32.dll", "HeapFree", Memory::Free);
            Memory::held = 0;
        }
        Memory::failAt = n;
        Memory::requests = 0;
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
