/*
 * The hold on the provider: which calls it makes, in which order, and what it says where one fails.
 */
#include <gmock/gmock.h>

#include "provider_hold.h"

using namespace dkpf;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

std::vector<std::string> g_calls;
DWORD                    g_openResult = ERROR_SUCCESS;

DWORD APIENTRY Open(LPWSTR)
{
    g_calls.push_back("open");
    return g_openResult;
}

DWORD APIENTRY Close()
{
    g_calls.push_back("close");
    return ERROR_SUCCESS;
}

BOOL Terminate(DWORD*)
{
    g_calls.push_back("terminate");
    return TRUE;
}

template <class Function> FARPROC Address(Function* function)
{
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}

class ProviderHoldTest : public testing::Test {
protected:
    ProviderHoldTest()
    {
        g_calls.clear();
        g_openResult = ERROR_SUCCESS;
        values = { 0, L"C:\\home\\bin\\tnwdiskperf.dll", L"OpenIt", L"CloseIt", 2000, 2001 };
    }

    ProviderPorts Ports()
    {
        ProviderPorts ports;
        ports.values = [this] { return values; };
        ports.load = [this](const std::wstring& path) {
            EXPECT_EQ(path, values.library);
            g_calls.push_back("load");
            SetLastError(ERROR_MOD_NOT_FOUND);
            return loads ? GetModuleHandleW(nullptr) : nullptr;
        };
        ports.find = [this](HMODULE, const std::string& name) -> FARPROC {
            return name == "OpenIt"          ? Address(Open)
                   : name == closeName       ? Address(Close)
                   : name == "DkpfTerminate" ? Address(Terminate)
                                             : nullptr;
        };
        ports.closeQueries = [] { g_calls.push_back("close queries"); };
        return ports;
    }

    ProviderValues values;
    bool           loads = true;
    std::string    closeName = "CloseIt";
};

}  // namespace

TEST_F(ProviderHoldTest, OpensOnceAndClosesBehindTheSystemsQueries)
{
    {
        ProviderHold hold(Ports());
        EXPECT_TRUE(hold.Open().opened);
        EXPECT_EQ(hold.Values().firstCounter, 2000u);
    }
    EXPECT_THAT(g_calls, ElementsAre("load", "open", "close queries", "close"));
}

TEST_F(ProviderHoldTest, ASecondOpenAttachesAnewWithTheSameLibrary)
{
    ProviderHold hold(Ports());
    hold.Open();
    EXPECT_TRUE(hold.Open().opened);
    EXPECT_THAT(g_calls, ElementsAre("load", "open", "close queries", "close", "open"));
    hold.Close();
    hold.Close();
    EXPECT_THAT(g_calls, ElementsAre("load", "open", "close queries", "close", "open", "close queries", "close"));
}

TEST_F(ProviderHoldTest, AFailedOpenGivesItsAttachmentBackAndIsNotClosed)
{
    g_openResult = ERROR_INVALID_FUNCTION;
    {
        ProviderHold       hold(Ports());
        const ProviderOpen result = hold.Open();
        EXPECT_FALSE(result.opened);
        EXPECT_THAT(result.words, HasSubstr("there is no sample yet"));
        g_openResult = ERROR_SUCCESS;
        EXPECT_TRUE(hold.Open().opened);
    }
    EXPECT_THAT(g_calls, ElementsAre("load", "open", "terminate", "open", "close queries", "close"));
}

TEST_F(ProviderHoldTest, EachResultOfAnOpenHasItsWords)
{
    EXPECT_THAT(OpenErrorText(21), HasSubstr("is the disk agent running"));
    EXPECT_THAT(OpenErrorText(5), HasSubstr("collection is switched off"));
    EXPECT_THAT(OpenErrorText(1011), HasSubstr("dkpfctl doctor"));
    EXPECT_THAT(OpenErrorText(1012), HasSubstr("dkpfctl doctor"));
    EXPECT_THAT(OpenErrorText(1), HasSubstr("no sample yet"));
    EXPECT_THAT(OpenErrorText(14), HasSubstr("memory"));
    EXPECT_THAT(OpenErrorText(87), HasSubstr("could not be opened: error 87"));
}

TEST_F(ProviderHoldTest, WhatIsNotRegisteredNotLoadedOrNotExportedIsSaid)
{
    values.error = ERROR_FILE_NOT_FOUND;
    EXPECT_THAT(ProviderHold(Ports()).Open().words, HasSubstr("the provider is not registered (error 2"));
    values.error = 0;
    loads = false;
    EXPECT_THAT(ProviderHold(Ports()).Open().words,
                AllOf(HasSubstr("C:\\home\\bin\\tnwdiskperf.dll could not be loaded (error 126"),
                      EndsWith("): dkpfctl doctor says what to do")));
    loads = true;
    closeName = "Other";
    EXPECT_THAT(ProviderHold(Ports()).Open().words, HasSubstr("does not export CloseIt"));
    EXPECT_THAT(g_calls, ElementsAre("load", "load"));
}
