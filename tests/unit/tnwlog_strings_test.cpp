// The message strings: what only the library can show of them, missing files and memory. The rest is its contract.
#include "tnwlog_fixture.h"

namespace {

class Strings : public TnwLogTest {
protected:
    void SetUp() override
    {
        ASSERT_EQ(api->TnwLoadStringTable("diskperf", 0, &hTable), TNWLOG_OK);
    }
    void TearDown() override
    {
        if (hTable != nullptr) {
            EXPECT_EQ(api->TnwFreeStringTable(hTable), TNWLOG_OK);
        }
    }

    HTNWSTRINGS hTable = nullptr;
    char        szText[128] = "untouched";
};

TEST_F(Strings, NoTitleHoldsACharacterThatMeansSomethingInACounterPath)
{
    for (DWORD dwNumber = 0; dwNumber <= 40; dwNumber++) {
        if (dwNumber != 38 && api->TnwFormatMessage(hTable, dwNumber, szText, sizeof szText, 0) == TNWLOG_OK) {
            EXPECT_EQ(strpbrk(szText, "\\()*#\""), nullptr) << szText;
        }
    }
}

DWORD g_formatError;

DWORD WINAPI FormatHook(DWORD, LPCVOID, DWORD, DWORD, LPSTR, DWORD, va_list*)
{
    SetLastError(g_formatError);
    return 0;
}

TEST_F(Strings, WithoutMemoryThereIsNoTextAndNoTable)
{
    HTNWSTRINGS hOther = hTable;

    {
        ImportHook format(api->Module(), "kernel32.dll", "FormatMessageA", FormatHook);
        for (const DWORD dwW32 : { 8u, 14u }) {  // not enough memory, out of memory
            g_formatError = dwW32;
            EXPECT_EQ(api->TnwFormatMessage(hTable, 39, szText, sizeof szText, 0), TNWLOG_NO_MEMORY);
        }
        EXPECT_STREQ(szText, "untouched");
    }
    FailMemoryAt(1);
    EXPECT_EQ(api->TnwLoadStringTable("diskperf", 0, &hOther), TNWLOG_NO_MEMORY);
    EXPECT_EQ(hOther, nullptr);
    FailMemoryAt(2);
    EXPECT_EQ(api->TnwLoadStringTable("diskperf", 0, &hOther), TNWLOG_OK) << "takes one piece";
    EXPECT_EQ(api->TnwFreeStringTable(hOther), TNWLOG_OK);
    EXPECT_EQ(Memory::held, 0);
}

TEST_F(TnwLogTest, AHomeWithoutTheMessageFileHasNoTable)
{
    HTNWSTRINGS hTable = nullptr;

    home.Remove(L"bin\\tnwmsg.dll");
    EXPECT_EQ(api->TnwLoadStringTable("diskperf", 0, &hTable), TNWLOG_NO_TABLE);
    EXPECT_EQ(hTable, nullptr);
}

TEST_F(TnwLogTest, AMessageFileWithoutMessagesIsNoTable)
{
    HTNWSTRINGS hTable = nullptr;

    home.Install(L"tnwlog.dll", L"tnwmsg.dll");
    EXPECT_EQ(api->TnwLoadStringTable("diskperf", 0, &hTable), TNWLOG_NO_TABLE);
    home.Write(L"bin\\tnwmsg.dll", "no DLL at all");
    EXPECT_EQ(api->TnwLoadStringTable("diskperf", 0, &hTable), TNWLOG_NO_TABLE);
}

TEST_F(TnwLogTest, ExportsByOrdinalAlone)
{
    EXPECT_EQ(GetProcAddress(api->Module(), "log_init"), nullptr);
    EXPECT_NE(GetProcAddress(api->Module(), MAKEINTRESOURCEA(1)), nullptr);
    EXPECT_EQ(GetProcAddress(api->Module(), MAKEINTRESOURCEA(4)), nullptr);
    EXPECT_EQ(GetProcAddress(api->Module(), MAKEINTRESOURCEA(23)), nullptr);
}

}  // namespace
