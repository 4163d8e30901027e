/*
 * The provider's registration for one case: the service's performance key as set-up writes it, leading to the DLL of
 * one home. Bears what a killed case left there, and is gone with the object.
 */
#ifndef DKPF_TESTS_REGISTERED_PROVIDER_H
#define DKPF_TESTS_REGISTERED_PROVIDER_H

#include <stdexcept>
#include <string>

#include "registration.h"
#include "support/product_home.h"

class RegisteredProvider {
public:
    static constexpr DWORD FIRST_COUNTER = 2000;  // the object's number
    static constexpr DWORD FIRST_HELP = 2001;

    explicit RegisteredProvider(const ProductHome& home)
    {
        HKEY              key = NULL;
        const std::string library = home.PlainPath(L"bin\\tnwdiskperf.dll");
        Remove();
        if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, dkpf::PERFORMANCE_KEY, 0, NULL, 0, KEY_ALL_ACCESS, NULL, &key, NULL) !=
            ERROR_SUCCESS) {
            throw std::runtime_error("the performance key cannot be made");
        }
        Set(key, dkpf::VALUE_LIBRARY, std::wstring(library.begin(), library.end()));
        Set(key, dkpf::VALUE_OPEN, dkpf::EXPORT_OPEN);
        Set(key, dkpf::VALUE_COLLECT, dkpf::EXPORT_COLLECT);
        Set(key, dkpf::VALUE_CLOSE, dkpf::EXPORT_CLOSE);
        Set(key, dkpf::VALUE_OBJECT_LIST, std::to_wstring(FIRST_COUNTER));
        Set(key, dkpf::VALUE_FIRST_COUNTER, FIRST_COUNTER);
        Set(key, dkpf::VALUE_LAST_COUNTER, FIRST_COUNTER + 2 * (dkpf::TITLE_NUM - 1));
        Set(key, dkpf::VALUE_FIRST_HELP, FIRST_HELP);
        Set(key, dkpf::VALUE_LAST_HELP, FIRST_HELP + 2 * (dkpf::TITLE_NUM - 1));
        RegCloseKey(key);
    }
    ~RegisteredProvider()
    {
        Remove();
    }
    RegisteredProvider(const RegisteredProvider&) = delete;
    RegisteredProvider& operator=(const RegisteredProvider&) = delete;

private:
    static void Set(HKEY key, const wchar_t* name, const std::wstring& text)
    {
        RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                       static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }
    static void Set(HKEY key, const wchar_t* name, DWORD number)
    {
        RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number));
    }

    /* The service's own key goes too where nothing else is in it. */
    static void Remove()
    {
        HKEY  service = NULL;
        DWORD keys = 1, values = 1;
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, dkpf::PERFORMANCE_KEY);
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, dkpf::PROVIDER_KEY, 0, KEY_READ, &service) == ERROR_SUCCESS) {
            RegQueryInfoKeyW(service, NULL, NULL, NULL, &keys, NULL, NULL, &values, NULL, NULL, NULL, NULL);
            RegCloseKey(service);
            if (keys == 0 && values == 0) {
                RegDeleteKeyW(HKEY_LOCAL_MACHINE, dkpf::PROVIDER_KEY);
            }
        }
    }
};

#endif
