// The message strings: what a header line is made of, read as the library reads them.
#include "support/message_strings.h"
#include "tnwlog_fixture.h"

namespace {

using Title = std::pair<const DWORD, std::string>;

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

class EachString : public Strings, public testing::WithParamInterface<Title> {};

TEST_P(EachString, ReadsBackWithoutLineEndAndWithSinglePercentSigns)
{
    ASSERT_EQ(api->TnwFormatMessage(hTable, GetParam().first, szText, sizeof szText, 0), TNWLOG_OK);
    EXPECT_STREQ(szText, GetParam().second.c_str());
}

INSTANTIATE_TEST_SUITE_P(All, EachString, testing::ValuesIn(MESSAGE_STRINGS),
                         [](const auto& title) { return "Number" + std::to_string(title.param.first); });

TEST_F(Strings, EveryNumberFrom0To40IsThereExcept18And19)
{
    for (DWORD dwNumber = 0; dwNumber <= 40; dwNumber++) {
        const bool fThere = dwNumber != 18 && dwNumber != 19;
        EXPECT_EQ(api->TnwFormatMessage(hTable, dwNumber, szText, sizeof szText, 0),
                  fThere ? TNWLOG_OK : TNWLOG_NO_SUCH_MESSAGE)
            << dwNumber;
    }
}

TEST_F(Strings, ANumberThatIsNotThereLeavesTheTextUntouched)
{
    EXPECT_EQ(api->TnwFormatMessage(hTable, 41, szText, sizeof szText, 0), TNWLOG_NO_SUCH_MESSAGE);
    EXPECT_EQ(api->TnwFormatMessage(hTable, 0xFFFFFFFF, szText, sizeof szText, 0), TNWLOG_NO_SUCH_MESSAGE);
    EXPECT_STREQ(szText, "untouched");
}

TEST_F(Strings, ATextThatDoesNotFitWithItsNulLeavesTheBufferUntouched)
{
    EXPECT_EQ(api->TnwFormatMessage(hTable, 39, szText, 3, 0), TNWLOG_TEXT_TOO_LONG);  // NMP needs 4
    EXPECT_EQ(api->TnwFormatMessage(hTable, 39, szText, 0, 0), TNWLOG_TEXT_TOO_LONG);
    EXPECT_STREQ(szText, "untouched");
    EXPECT_EQ(api->TnwFormatMessage(hTable, 39, szText, 4, 0), TNWLOG_OK);
    EXPECT_STREQ(szText, "NMP");
}

TEST_F(Strings, NoTitleHoldsACharacterThatMeansSomethingInACounterPath)
{
    for (DWORD dwNumber = 0; dwNumber <= 40; dwNumber++) {
        if (dwNumber != 38 && api->TnwFormatMessage(hTable, dwNumber, szText, sizeof szText, 0) == TNWLOG_OK) {
            EXPECT_EQ(strpbrk(szText, "\\()*#\""), nullptr) << szText;
        }
    }
}

TEST_F(Strings, WrongArgumentsAreRefused)
{
    HTNWSTRINGS hOther = hTable;

    EXPECT_EQ(api->TnwFormatMessage(hTable, 0, nullptr, 128, 0), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->TnwFormatMessage(hTable, 0, szText, sizeof szText, 1), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->TnwFormatMessage(nullptr, 0, szText, sizeof szText, 0), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->TnwLoadStringTable("diskperf", 0, nullptr), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->TnwLoadStringTable(nullptr, 0, &hOther), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(hOther, nullptr);
    EXPECT_EQ(api->TnwLoadStringTable("", 0, &hOther), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->TnwLoadStringTable("diskperf", 1, &hOther), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->TnwFreeStringTable(nullptr), TNWLOG_INVALID_ARGUMENT);
}

TEST_F(Strings, AComponentWithoutTextsHasNoTable)
{
    HTNWSTRINGS hOther = hTable;

    EXPECT_EQ(api->TnwLoadStringTable("spooler", 0, &hOther), TNWLOG_NO_TABLE);
    EXPECT_EQ(hOther, nullptr);
}

TEST_F(Strings, AClosedTableIsAnsweredNotFollowed)
{
    HTNWSTRINGS hSecond = nullptr;

    ASSERT_EQ(api->TnwLoadStringTable("diskperf", 0, &hSecond), TNWLOG_OK);
    EXPECT_EQ(api->TnwFreeStringTable(hSecond), TNWLOG_OK);
    EXPECT_EQ(api->TnwFormatMessage(hSecond, 0, szText, sizeof szText, 0), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->TnwFreeStringTable(hSecond), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->TnwFormatMessage(hTable, 0, szText, sizeof szText, 0), TNWLOG_OK);
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
