// The filter library above a device that refuses, answers short or fails: what no real driver can be brought to.
#include <gmock/gmock.h>

#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/import_hooks.h"
#include "support/test_home.h"
#include "tnwdiskfltr.h"
#include "velcor.h"

namespace {

using testing::ElementsAre;

const size_t BUFFER = 0x4010, RECORD = 0x4008;

// The device behind the hooks: what it answers, and what it was asked.
struct Device {
    DWORD              openError = 0;  // not 0: cannot be opened
    std::vector<DWORD> refusals;       // the next requests are refused with these; 0: answered
    DWORD              status = 0;     // status word of the reply
    DWORD              reply = BUFFER;
    BYTE               fill = 0x5A;  // of the record

    std::vector<std::string> calls;
    DWORD                    access = 0;
    VELCOR_FILTER_EXCHANGE   request = {};
} g_device;

HANDLE WINAPI OpenHook(LPCSTR path, DWORD access, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)
{
    g_device.calls.push_back(std::string("open ") + path);
    g_device.access = access;
    SetLastError(g_device.openError);
    return g_device.openError != 0 ? INVALID_HANDLE_VALUE : CreateEventA(nullptr, TRUE, FALSE, nullptr);
}

BOOL WINAPI CloseHook(HANDLE handle)
{
    g_device.calls.push_back("close");
    const BOOL done = CloseHandle(handle);
    SetLastError(ERROR_INVALID_HANDLE);
    return done;
}

BOOL WINAPI ControlHook(HANDLE, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned,
                        LPOVERLAPPED)
{
    EXPECT_EQ(VELCOR_PRIVATE_GET_FILTER, code);
    EXPECT_EQ(BUFFER, inSize);
    EXPECT_EQ(BUFFER, outSize);
    g_device.calls.push_back("ask");
    memcpy(&g_device.request, in, BUFFER);
    if (!g_device.refusals.empty()) {
        const DWORD refusal = g_device.refusals.front();
        g_device.refusals.erase(g_device.refusals.begin());
        if (refusal != 0) {
            SetLastError(refusal);
            return FALSE;
        }
    }
    memset(static_cast<BYTE*>(out) + 8, g_device.fill, RECORD);
    memcpy(out, &g_device.status, sizeof g_device.status);
    *returned = g_device.reply;
    return TRUE;
}

class FilterLibrary : public testing::Test {
protected:
    FilterLibrary() : m_module(LoadLibraryW(m_home.Install(L"tnwdiskfltr.dll").c_str())), m_hooks(m_module)
    {
        g_device = Device();
        Get = reinterpret_cast<decltype(Get)>(reinterpret_cast<void*>(GetProcAddress(m_module, MAKEINTRESOURCEA(5))));
        EXPECT_TRUE(m_hooks.Replace("kernel32.dll", "CreateFileA", Address(OpenHook)));
        EXPECT_TRUE(m_hooks.Replace("kernel32.dll", "DeviceIoControl", Address(ControlHook)));
        EXPECT_TRUE(m_hooks.Replace("kernel32.dll", "CloseHandle", Address(CloseHook)));
    }
    ~FilterLibrary() override
    {
        m_hooks.RestoreAll();
        FreeLibrary(m_module);
    }

    // What the caller sees: the status, and the buffer untouched unless that is 0.
    DWORD Ask()
    {
        const ULONGLONG header = VELCOR_REQUEST_HEADER;
        BYTE            before[BUFFER];

        memset(buffer, 0xDD, sizeof buffer);
        memcpy(buffer, &header, sizeof header);
        memcpy(before, buffer, sizeof before);
        const DWORD error = Get(buffer);
        EXPECT_TRUE(error == 0 || memcmp(before, buffer, BUFFER) == 0);
        EXPECT_EQ(0, memcmp(before + RECORD, buffer + RECORD, BUFFER - RECORD));
        return error;
    }

    decltype(&::TnwDkfltrGetMirrorPerformance) Get = nullptr;
    BYTE                                       buffer[BUFFER];

private:
    TestHome    m_home;
    HMODULE     m_module;
    ImportHooks m_hooks;
};

TEST_F(FilterLibrary, OpensTheDeviceForReadingOnceAndKeepsIt)
{
    EXPECT_EQ(0u, Ask());
    EXPECT_EQ(0x5A, buffer[0]);
    EXPECT_EQ(0x5A, buffer[RECORD - 1]);
    g_device.fill = 0x3C;
    EXPECT_EQ(0u, Ask());
    EXPECT_EQ(0x3C, buffer[0]);
    EXPECT_THAT(g_device.calls, ElementsAre("open \\\\.\\VELCOR_CTRL", "ask", "ask"));
    EXPECT_EQ(GENERIC_READ, g_device.access);
    EXPECT_EQ(0x4008u, g_device.request.length);
    EXPECT_EQ(0x311u, g_device.request.record.header);
    EXPECT_EQ(0u, g_device.request.status);
    EXPECT_EQ(0u, g_device.request.record.entry[63].transfers) << "nothing of the reply before";
}

TEST_F(FilterLibrary, AnswersWithTheNumberThatAnOpenFailsWithAndTriesAgain)
{
    for (DWORD error : { DWORD{ ERROR_ACCESS_DENIED }, DWORD{ ERROR_FILE_NOT_FOUND } }) {
        g_device.openError = error;
        EXPECT_EQ(error, Ask());
    }
    g_device.openError = 0;
    EXPECT_EQ(0u, Ask());
    EXPECT_EQ(4u, g_device.calls.size()) << "three opens, one request";
}

TEST_F(FilterLibrary, AsksARefusedRequestOnceMoreOnANewHandle)
{
    EXPECT_EQ(0u, Ask());
    g_device.calls.clear();
    g_device.refusals = { ERROR_BAD_COMMAND };
    EXPECT_EQ(0u, Ask());
    EXPECT_THAT(g_device.calls, ElementsAre("ask", "close", "open \\\\.\\VELCOR_CTRL", "ask"));
}

TEST_F(FilterLibrary, GivesUpAtTheSecondRefusalWithItsNumber)
{
    g_device.refusals = { ERROR_BAD_COMMAND, ERROR_NOT_READY };
    EXPECT_EQ(DWORD{ ERROR_NOT_READY }, Ask());
    EXPECT_EQ(6u, g_device.calls.size()) << "open, ask, close, twice";
    EXPECT_EQ(0u, Ask());
}

TEST_F(FilterLibrary, RefusesAReplyThatIsShort)
{
    for (DWORD reply : { DWORD{ 0 }, DWORD{ 8 }, DWORD{ BUFFER - 1 } }) {
        g_device.reply = reply;
        EXPECT_EQ(DWORD{ ERROR_BAD_LENGTH }, Ask()) << reply;
    }
    g_device.reply = BUFFER;
    EXPECT_EQ(0u, Ask());
    EXPECT_EQ(1, std::count(g_device.calls.begin(), g_device.calls.end(), "open \\\\.\\VELCOR_CTRL"));
}

// It is an answer, not a dead handle.
TEST_F(FilterLibrary, HandsTheFiltersOwnNumberThroughAndAsksOnce)
{
    g_device.status = 0xE0001234;
    EXPECT_EQ(0xE0001234u, Ask());
    EXPECT_THAT(g_device.calls, ElementsAre("open \\\\.\\VELCOR_CTRL", "ask"));
}

TEST_F(FilterLibrary, JudgesArgumentsBeforeItAsksAnybody)
{
    BYTE      touched[BUFFER];
    ULONGLONG header = VELCOR_REQUEST_HEADER | 1ull << 63;

    memcpy(touched, &header, sizeof header);
    EXPECT_EQ(DWORD{ ERROR_INVALID_PARAMETER }, Get(touched));
    EXPECT_EQ(DWORD{ ERROR_INVALID_PARAMETER }, Get(nullptr));
    EXPECT_THAT(g_device.calls, testing::IsEmpty());
}

}  // namespace
