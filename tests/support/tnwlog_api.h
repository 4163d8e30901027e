/*
 * tnwlog.dll of a test's own home, bound by ordinal as the product binds it, but at run time: each test loads a fresh
 * copy.
 */
#ifndef TNWLOG_API_H
#define TNWLOG_API_H

#include "test_home.h"
#include "tnwlog.h"

class TnwLogApi {
public:
    explicit TnwLogApi(const std::wstring& path) : m_hModule(LoadLibraryW(path.c_str()))
    {
        Bind(log_init, 1);
        Bind(log_term, 2);
        Bind(log_write, 3);
        Bind(TnwLoadStringTable, 6);
        Bind(TnwFreeStringTable, 7);
        Bind(TnwFormatMessage, 9);
        Bind(log_util_init, 19);
        Bind(log_util_term, 20);
        Bind(log_util_write, 21);
        Bind(log_util_rotate, 22);
    }
    ~TnwLogApi()
    {
        FreeLibrary(m_hModule);
    }
    TnwLogApi(const TnwLogApi&) = delete;
    TnwLogApi& operator=(const TnwLogApi&) = delete;

    HMODULE Module() const
    {
        return m_hModule;
    } /* NULL: not loaded */

    decltype(&::log_init)           log_init = nullptr;
    decltype(&::log_term)           log_term = nullptr;
    decltype(&::log_write)          log_write = nullptr;
    decltype(&::TnwLoadStringTable) TnwLoadStringTable = nullptr;
    decltype(&::TnwFreeStringTable) TnwFreeStringTable = nullptr;
    decltype(&::TnwFormatMessage)   TnwFormatMessage = nullptr;
    decltype(&::log_util_init)      log_util_init = nullptr;
    decltype(&::log_util_term)      log_util_term = nullptr;
    decltype(&::log_util_write)     log_util_write = nullptr;
    decltype(&::log_util_rotate)    log_util_rotate = nullptr;

private:
    template <class F> void Bind(F& lpRoutine, WORD wOrdinal)
    {
        lpRoutine = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(m_hModule, MAKEINTRESOURCEA(wOrdinal))));
    }

    HMODULE m_hModule;
};

#endif
