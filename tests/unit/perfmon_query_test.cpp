/*
 * Where the title indexes come from, what kind a query is, and whether a number stands in a list.
 */
#include <ctype.h>
#include <stdlib.h>
#include <wctype.h>

#include <iostream>
#include <random>

#include "support/perfmon_fixture.h"
#include "support/seed.h"

/* ---- Title indexes ----------------------------------------------------------------------------------------------- */

class PerfmonIndex : public DiskperfTest {
protected:
    DWORD counter = 11, help = 22, err = 1;

    void SetUp() override
    {
        DiskperfTest::SetUp();
        os.AddKey(PerfmonKey);
        os.SetValue(PerfmonKey, "First Counter", 2000);
        os.SetValue(PerfmonKey, "First Help", 3001);
    }
    void TearDown() override
    {
        ExpectNothingLeft();
        DiskperfTest::TearDown();
    }
    BOOL Get()
    {
        return _DkpfPfmGetObjectIndexFromReg(&counter, &help, &err);
    }
    Strings Lines()
    {
        return PerfmonLines(log, "_DkpfPfmGetObjectIndexFromReg");
    }
};

TEST_F(PerfmonIndex, BothBasesComeFromTheServicesPerformanceKey)
{
    EXPECT_TRUE(Get());
    EXPECT_EQ(counter, 2000u);
    EXPECT_EQ(help, 3001u);
    EXPECT_EQ(err, 0xB0000000u);
    EXPECT_EQ(
        journal.Lines({ "RegOpenKeyExA", "RegQueryValueExA", "RegCloseKey" }),
        Strings({ "RegOpenKeyExA(HKLM\\SYSTEM\\CurrentControlSet\\Services\\tnwdiskperf\\performance, 0, 0x20019) = 0",
                  "RegQueryValueExA(First Counter, size 4) = 0", "RegQueryValueExA(First Help, size 4) = 0",
                  "RegCloseKey(HKLM\\SYSTEM\\CurrentControlSet\\Services\\tnwdiskperf\\performance) = 0" }));
    EXPECT_EQ(Lines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 8 EXIT<TRUE> err<0xb0000000>" }));
}

TEST_F(PerfmonIndex, NoPlaceForTheCounter)
{
    EXPECT_FALSE(_DkpfPfmGetObjectIndexFromReg(NULL, &help, &err));
    EXPECT_EQ(err, 0xB0000004u);
    EXPECT_EQ(Lines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  lpdwFirstCounter is NULL.",
                                 "diskperf_trace 8 EXIT<FALSE> err<0xb0000004>" }));
    EXPECT_EQ(journal.Number("RegOpenKeyExA"), 0u);
    EXPECT_EQ(help, 22u);
}

TEST_F(PerfmonIndex, NoPlaceForTheHelp)
{
    EXPECT_FALSE(_DkpfPfmGetObjectIndexFromReg(&counter, NULL, &err));
    EXPECT_EQ(err, 0xB0000004u);
    EXPECT_EQ(Lines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  lpdwFirstHelp is NULL.",
                                 "diskperf_trace 8 EXIT<FALSE> err<0xb0000004>" }));
    EXPECT_EQ(journal.Number("RegOpenKeyExA"), 0u);
    EXPECT_EQ(counter, 11u);
}

TEST_F(PerfmonIndex, NoPlaceForEitherNamesTheCounter)
{
    EXPECT_FALSE(_DkpfPfmGetObjectIndexFromReg(NULL, NULL, &err));
    EXPECT_EQ(log.Errors(), Strings({ " lpdwFirstCounter is NULL." }));
}

TEST_F(PerfmonIndex, AMissingKey)
{
    os.RemoveKey(PerfmonKey);
    EXPECT_FALSE(Get());
    EXPECT_EQ(err, 0xB0000012u);
    EXPECT_EQ(Lines(),
              Strings({ "diskperf_trace 8 ENTER :",
                        "diskperf_trace 1  RegOpenKeyEx(SYSTEM\\CurrentControlSet\\Services\\tnwdiskperf\\performance) "
                        "failed. (W32Err=2)",
                        "diskperf_trace 8 EXIT<FALSE> err<0xb0000012>" }));
    EXPECT_EQ(journal.Number("RegCloseKey"), 0u);
}

TEST_F(PerfmonIndex, AKeyThatMayNotBeRead)
{
    os.Fail("RegOpenKeyExA", 1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Get());
    EXPECT_EQ(err, 0xB0000012u);
    EXPECT_EQ(
        log.Errors(),
        Strings({ " RegOpenKeyEx(SYSTEM\\CurrentControlSet\\Services\\tnwdiskperf\\performance) failed. (W32Err=5)" }));
}

static LSTATUS WINAPI FailsAndLeavesAHandle(HKEY, LPCSTR, DWORD, REGSAM, PHKEY key)
{
    *key = reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x4444));
    return ERROR_BADKEY;
}

TEST_F(PerfmonIndex, WhatAFailedOpenLeavesInTheHandleIsNotClosed)
{
    ASSERT_TRUE(hooks.Replace("advapi32.dll", "RegOpenKeyExA", Address(FailsAndLeavesAHandle)));
    EXPECT_FALSE(Get());
    EXPECT_EQ(err, 0xB0000012u);
    EXPECT_EQ(journal.Number("RegCloseKey"), 0u);
}

TEST_F(PerfmonIndex, AMissingFirstCounter)
{
    os.failValue["First Counter"] = 2;
    EXPECT_FALSE(Get());
    EXPECT_EQ(err, 0xB0000013u);
    EXPECT_EQ(
        Lines(),
        Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  RegQueryValueEx(First Counter) failed. (W32Err=2)",
                  "diskperf_trace 8 EXIT<FALSE> err<0xb0000013>" }));
    EXPECT_EQ(journal.Number("RegQueryValueExA"), 1u);
    EXPECT_EQ(journal.Number("RegCloseKey"), 1u);
}

TEST_F(PerfmonIndex, AMissingFirstHelpLeavesTheCounterReadStraightIntoItsPlace)
{
    os.failValue["First Help"] = 234;
    EXPECT_FALSE(Get());
    EXPECT_EQ(err, 0xB0000013u);
    EXPECT_EQ(
        Lines(),
        Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  RegQueryValueEx(First Help) failed. (W32Err=234)",
                  "diskperf_trace 8 EXIT<FALSE> err<0xb0000013>" }));
    EXPECT_EQ(counter, 2000u);
    EXPECT_EQ(help, 22u);
    EXPECT_EQ(journal.Number("RegCloseKey"), 1u);
}

/* A value of two bytes and another type, as no loader writes it. */
static Strings        g_asked;
static LSTATUS WINAPI TwoBytes(HKEY, LPCSTR name, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size)
{
    const WORD value = 2000;
    g_asked.push_back(std::string(name) + ", size " + std::to_string(*size));
    if (type != nullptr) {
        *type = REG_BINARY;
    }
    memcpy(data, &value, sizeof value);
    *size = sizeof value;
    return ERROR_SUCCESS;
}

TEST_F(PerfmonIndex, NeitherTypeNorLengthIsTestedAndEachValueHasFourBytesOfRoom)
{
    counter = 0x00010000;
    help = 0x00020000;
    g_asked.clear();
    ASSERT_TRUE(hooks.Replace("advapi32.dll", "RegQueryValueExA", Address(TwoBytes)));
    EXPECT_TRUE(Get());
    EXPECT_EQ(err, 0xB0000000u);
    EXPECT_EQ(g_asked, Strings({ "First Counter, size 4", "First Help, size 4" }));
    EXPECT_EQ(counter, 0x000107D0u);
    EXPECT_EQ(help, 0x000207D0u);
}

/* ---- Query type -------------------------------------------------------------------------------------------------- */

struct QueryCase {
    const char*  name;
    const WCHAR* query;
    DWORD        type;
};

static void PrintTo(const QueryCase& query, std::ostream* out)
{
    *out << query.name;
}

class PerfmonQueryType : public DiskperfTest, public testing::WithParamInterface<QueryCase> {};

static const QueryCase QueryCases[] = {
    { "NoQuery", nullptr, 4 },
    { "EmptyString", L"", 4 },
    { "Global", L"Global", 1 },
    { "GlobalWithANumberBehind", L"Global 236", 1 },
    { "GlobalWithABlankBehind", L"Global ", 1 },
    { "GlobalInLowerCaseIsUnknown", L"global", 4 },
    { "GlobalInUpperCaseIsUnknown", L"GLOBAL", 4 },
    { "APartOfGlobalIsUnknown", L"Globa", 4 },
    { "MoreThanGlobalIsUnknown", L"Globals", 4 },
    { "GlobalAndATabIsUnknown", L"Global\t236", 4 },
    { "ABlankBeforeGlobalIsUnknown", L" Global", 4 },
    { "Foreign", L"Foreign", 2 },
    { "ForeignWithAComputer", L"Foreign \\\\NODE2", 2 },
    { "ForeignInLowerCaseIsUnknown", L"foreign", 4 },
    { "Costly", L"Costly", 3 },
    { "CostlyWithANumberBehind", L"Costly 2", 3 },
    { "CostlyInLowerCaseIsUnknown", L"costly", 4 },
    { "AnotherWordIsUnknown", L"Explain", 4 },
    { "TwoNumbers", L"236 238", 0 },
    { "OneNumber", L"2000", 0 },
    { "ExactlyZero", L"0", 0 },
    { "ZeroThenMore", L"0 236", 0 },
    { "TwoZerosAreUnknown", L"00", 4 },
    { "ZeroAndALetterIsUnknown", L"0a", 4 },
    { "ANumberAndALetterIsAList", L"12a", 0 },
    { "ALetterAndANumberIsUnknown", L"a12", 4 },
    { "ALeadingZeroIsAList", L"0236", 0 },
    { "ANegativeNumberIsAList", L"-5", 0 },
    { "APositiveSignIsAList", L"+5", 0 },
    { "ASignAloneIsUnknown", L"-", 4 },
    { "NegativeZeroIsUnknown", L"-0", 4 },
    { "ABlankFirstIsUnknown", L" 236", 4 },
    { "ABlankAloneIsUnknown", L" ", 4 },
    { "HexadecimalIsUnknown", L"0x10", 4 },
    { "ACommaBehindIsAList", L"5,", 0 },
};
INSTANTIATE_TEST_SUITE_P(Of, PerfmonQueryType, testing::ValuesIn(QueryCases),
                         [](const auto& query) { return std::string(query.param.name); });

TEST_P(PerfmonQueryType, IsDecidedByTheFirstWord)
{
    const QueryCase& query = GetParam();
    EXPECT_EQ(_DkpfPfmGetPMQueryType(query.query), query.type);
    Strings expected;
    if (query.query != nullptr && query.query[0] != L'\0') {
        std::wstring wide = query.query;
        expected.push_back("diskperf_trace 16  [IN] Value<" + std::string(wide.begin(), wide.end()) + ">");
    }
    expected.push_back("diskperf_trace 8 EXIT<" + std::to_string(query.type) + ">");
    Strings lines = PerfmonLines(log, "_DkpfPfmGetPMQueryType");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "diskperf_trace 8 ENTER :");
    EXPECT_EQ(Strings(lines.begin() + 1, lines.end()), expected);
    ExpectNothingLeft();
}

class PerfmonQuery : public DiskperfTest {};

TEST_F(PerfmonQuery, TheFirstWordIsCopiedIntoAZeroedBufferOfItsLengthPlusOne)
{
    EXPECT_EQ(_DkpfPfmGetPMQueryType(L"Global 236"), 1u);
    ASSERT_EQ(journal.Of("GlobalAlloc").size(), 1u);
    EXPECT_EQ(journal.Of("GlobalAlloc")[0].args, "0x40, 14");
    EXPECT_EQ(journal.Of("GlobalFree").size(), 1u);
    ExpectNothingLeft();
}

TEST_F(PerfmonQuery, NoBufferForNoQuery)
{
    _DkpfPfmGetPMQueryType(NULL);
    _DkpfPfmGetPMQueryType(L"");
    EXPECT_EQ(journal.Number("GlobalAlloc"), 0u);
}

TEST_F(PerfmonQuery, NoMemoryMakesTheQueryUnknown)
{
    os.Fail("GlobalAlloc", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(_DkpfPfmGetPMQueryType(L"Foreign NODE2"), 4u);
    EXPECT_EQ(PerfmonLines(log, "_DkpfPfmGetPMQueryType"),
              Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 16  [IN] Value<Foreign NODE2>",
                        "diskperf_trace 1  _MALLOC(16byte) failed.", "diskperf_trace 8 EXIT<4>" }));
    EXPECT_EQ(journal.Number("GlobalFree"), 0u);
    ExpectNothingLeft();
}

/* ---- Number in a list -------------------------------------------------------------------------------------------- */

struct ListCase {
    const char*  name;
    DWORD        number;
    const WCHAR* list;
    BOOL         found;
};

static void PrintTo(const ListCase& list, std::ostream* out)
{
    *out << list.name;
}

class PerfmonList : public DiskperfTest, public testing::WithParamInterface<ListCase> {};

static const ListCase ListCases[] = {
    { "NoList", 5, nullptr, FALSE },
    { "EmptyList", 0, L"", FALSE },
    { "BlanksAlone", 0, L"   ", FALSE },
    { "TheOnlyItem", 5, L"5", TRUE },
    { "ALeadingZero", 5, L"05", TRUE },
    { "ACommaSpoilsTheItem", 5, L"5,", FALSE },
    { "ALetterSpoilsItsItem", 12, L"12a 34", FALSE },
    { "ButNotTheNext", 34, L"12a 34", TRUE },
    { "TheFirst", 236, L"236 238 240", TRUE },
    { "TheMiddle", 238, L"236 238 240", TRUE },
    { "TheLast", 240, L"236 238 240", TRUE },
    { "NotThere", 242, L"236 238 240", FALSE },
    { "NotAsAPrefix", 23, L"236", FALSE },
    { "NotAsASuffix", 36, L"236", FALSE },
    { "NotAsTheNumbersTogether", 236238, L"236 238", FALSE },
    { "BlanksBefore", 5, L"  5", TRUE },
    { "BlanksBehind", 5, L"5  ", TRUE },
    { "BlanksBetween", 6, L"5   6", TRUE },
    { "Zero", 0, L"0", TRUE },
    { "ZeroNotBetweenBlanks", 0, L"5  6", FALSE },
    { "DigitsBehindASpoiledItemAreIgnored", 5, L"12a5", FALSE },
    { "EvenAsOneNumber", 125, L"12a5", FALSE },
    { "ALetterBeforeTheDigitsSpoilsNothing", 5, L"a5", TRUE },
    { "AMinusBeforeTheDigitsSpoilsNothing", 5, L"-5", TRUE },
    { "ALetterBeforeAndOneBehind", 5, L"a5b", FALSE },
    { "ATabIsNoSeparator", 5, L"5\t6", FALSE },
    { "ATabBeforeTheDigitsSpoilsNothing", 6, L"5 \t6", TRUE },
    { "TheWordGlobalIsNoNumber", 0, L"Global", FALSE },
    { "TheLargestNumber", 4294967295u, L"4294967295", TRUE },
    { "ANumberTooLargeWraps", 0, L"4294967296", TRUE },
    { "AndIsFoundAsWhatItWrapsTo", 5, L"1 4294967301", TRUE },
};
INSTANTIATE_TEST_SUITE_P(Of, PerfmonList, testing::ValuesIn(ListCases),
                         [](const auto& list) { return std::string(list.param.name); });

TEST_P(PerfmonList, FindsANumberAsAWholeItem)
{
    const ListCase& list = GetParam();
    EXPECT_EQ(_DkpfPfmIsNumberInUnicodeList(list.number, list.list), list.found);
    Strings lines = PerfmonLines(log, "_DkpfPfmIsNumberInUnicodeList");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "diskperf_trace 16  [IN] Number<" + std::to_string(static_cast<LONG>(list.number)) + ">");
    EXPECT_EQ(lines[1].substr(0, 36), "diskperf_trace 16  [IN] UnicodeList<");
    EXPECT_EQ(lines[2], list.found ? "diskperf_trace 8 EXIT<TRUE>" : "diskperf_trace 8 EXIT<FALSE>");
    ExpectNothingLeft();
}

TEST_F(PerfmonQuery, TheListIsTracedWhole)
{
    _DkpfPfmIsNumberInUnicodeList(34, L"12a 34");
    EXPECT_EQ(PerfmonLines(log, "_DkpfPfmIsNumberInUnicodeList"),
              Strings({ "diskperf_trace 16  [IN] Number<34>", "diskperf_trace 16  [IN] UnicodeList<12a 34>",
                        "diskperf_trace 8 EXIT<TRUE>" }));
}

TEST_F(PerfmonQuery, NoListIsTracedAsTheFormatPrintsNone)
{
    _DkpfPfmIsNumberInUnicodeList(34, NULL);
    EXPECT_EQ(PerfmonLines(log, "_DkpfPfmIsNumberInUnicodeList"),
              Strings({ "diskperf_trace 16  [IN] Number<34>", "diskperf_trace 16  [IN] UnicodeList<(null)>",
                        "diskperf_trace 8 EXIT<FALSE>" }));
}

TEST_F(PerfmonQuery, AWideDigitIsNoDigit)
{
    EXPECT_FALSE(_DkpfPfmIsNumberInUnicodeList(5, L"\xFF15"));
    EXPECT_FALSE(_DkpfPfmIsNumberInUnicodeList(5, L"5\xFF15"));
}

/* ---- Random queries against a model ------------------------------------------------------------------------------ */

/* What might be taken for a separator, and halves of surrogate pairs in either order. */
static const std::vector<std::wstring> Strange = {
    L"\t",     L"\n",     L"\v",     L"\f",     L"\r",     L",",      L";",      L":",
    L".",      L"/",      L"|",      L"\x0085", L"\x00A0", L"\x2003", L"\x2028", L"\x200B",
    L"\x3000", L"\xFEFF", L"\xFFFF", L"\x0001", L"\xD800", L"\xDBFF", L"\xDC00", L"\xDFFF",
};

/* The type, from the words alone: a number is optional white space, an optional sign and digits. Blanks end the word.
 */
static DWORD ModelType(const std::wstring& query)
{
    std::wstring word = query.substr(0, query.find(L' '));
    if (query.empty()) {
        return 4;
    }
    size_t at = 0;
    while (at < word.size() && iswspace(word[at])) {
        at++;
    }
    if (at < word.size() && (word[at] == L'-' || word[at] == L'+')) {
        at++;
    }
    bool nonZero = false;
    for (; at < word.size() && word[at] >= L'0' && word[at] <= L'9'; at++) {
        nonZero = nonZero || word[at] != L'0';
    }
    if (word == L"0" || nonZero) {
        return 0;
    }
    return word == L"Global" ? 1u : word == L"Foreign" ? 2u : word == L"Costly" ? 3u : 4u;
}

/* What is left of a number in 32 bits. */
static DWORD Remainder(const std::wstring& digits)
{
    ULONGLONG value = 0;
    for (WCHAR digit : digits) {
        value = (value * 10 + static_cast<ULONGLONG>(digit - L'0')) % 0x100000000ull;
    }
    return static_cast<DWORD>(value);
}

/* Is the number an item? Items stand between blanks; one that counts is any text without a digit, then digits to its
 * end. */
static bool ModelFinds(DWORD number, const std::wstring& list)
{
    const std::wstring digits = L"0123456789";
    for (size_t begin = 0; begin <= list.size();) {
        size_t       end = std::min(list.find(L' ', begin), list.size());
        std::wstring item = list.substr(begin, end - begin);
        size_t       first = item.find_first_of(digits);
        if (first != std::wstring::npos && item.find_first_not_of(digits, first) == std::wstring::npos) {
            if (Remainder(item.substr(first)) == number) {
                return true;
            }
        }
        begin = end + 1;
    }
    return false;
}

class PerfmonQueryFuzz : public DiskperfTest {
protected:
    std::mt19937 random;
    unsigned     seed = 0;

    /* Another seed in every run; DKPF_TEST_SEED repeats one. */
    void SetUp() override
    {
        DiskperfTest::SetUp();
        seed = TestSeed();
        RecordProperty("seed", std::to_string(seed));
        random.seed(seed);
    }
    unsigned Below(unsigned n)
    {
        return random() % n;
    }
    std::wstring Pick(const std::vector<std::wstring>& pieces, unsigned most)
    {
        std::wstring text;
        for (unsigned n = Below(most + 1); n > 0; n--) {
            text += pieces[Below(static_cast<unsigned>(pieces.size()))];
        }
        return text;
    }
    /* Digits without end, now and then. The last one is odd, so that the number is not 0 in 32 bits either. */
    std::wstring LongNumber()
    {
        std::wstring digits;
        for (unsigned n = 65536; n > 0; n--) {
            digits += static_cast<WCHAR>(L'0' + Below(10));
        }
        digits.back() = L'7';
        return digits;
    }
    static std::string Shown(const std::wstring& text)
    {
        std::string shown;
        for (WCHAR c : text.substr(0, 200)) {
            shown += c >= 32 && c < 127 ? std::string(1, static_cast<char>(c)) : "\\x" + Hex(c).substr(2);
        }
        return "\"" + shown + "\"";
    }
    void Forget(unsigned i)
    {
        if (i % 200 == 0) {
            journal.Clear();
            log.ClearLines();
        }
    }
};

TEST_F(PerfmonQueryFuzz, TheTypeIsTheModels)
{
    std::vector<std::wstring> pieces = Strange;
    for (int often = 0; often < 3; often++) {
        pieces.insert(pieces.end(), { L"0", L"1", L"9", L"0", L" ", L"-", L"+", L"a", L"Global", L"Foreign", L"Costly",
                                      L"G", L"lobal", L"\x00E4", L"\x4E2D" });
    }
    unsigned seen[5] = {};
    for (unsigned i = 0; i < 30000; i++) {
        // Few enough digits that no number leaves 32 bits; the endless ones do.
        std::wstring query = Pick(pieces, 6);
        if (i % 1000 == 0) {
            query = Pick(pieces, 1) + LongNumber() + Pick(pieces, 3);
        } else if (i % 1000 == 500) {
            query = std::wstring(65536, L'0') + Pick(pieces, 3);
        }
        DWORD type = ModelType(query);
        seen[type]++;
        ASSERT_EQ(_DkpfPfmGetPMQueryType(query.c_str()), type) << Shown(query) << " seed " << seed;
        Forget(i);
    }
    for (unsigned type = 0; type < 5; type++) {
        EXPECT_GT(seen[type], 100u) << "the pieces hardly ever make a query of type " << type;
    }
    ExpectNothingLeft();
}

TEST_F(PerfmonQueryFuzz, TheNumbersFoundAreTheModels)
{
    std::vector<std::wstring> pieces = Strange;
    for (int often = 0; often < 3; often++) {
        pieces.insert(pieces.end(), { L"0", L"1", L"2", L"3", L"5", L" ", L" ", L" ", L" ", L"12", L"2000",
                                      L"4294967296", L"9999999999", L"a", L"-", L"\x00B2", L"\xFF11" });
    }
    unsigned found = 0, missed = 0, longFound = 0;
    for (unsigned i = 0; i < 30000; i++) {
        static const DWORD numbers[] = { 0, 1, 2, 3, 5, 12, 2000, 2012 };
        std::wstring       list = Pick(pieces, 12);
        DWORD              number = numbers[Below(ARRAYSIZE(numbers))];
        if (i % 1000 == 0) {
            const std::wstring digits = LongNumber();
            const bool         searched = i % 2000 == 0;  // on its own; the other half joins what stands beside it
            number = searched ? Remainder(digits) : number;
            list += (searched ? L" " : L"") + digits + (searched ? L" " : L"") + Pick(pieces, 3);
            longFound += searched && ModelFinds(number, list);
        }
        bool expected = ModelFinds(number, list);
        (expected ? found : missed)++;
        ASSERT_EQ(_DkpfPfmIsNumberInUnicodeList(number, list.c_str()), expected ? TRUE : FALSE)
            << number << " in " << Shown(list) << " seed " << seed;
        Forget(i);
    }
    EXPECT_GT(found, 300u) << "the pieces hardly ever make a list with the number";
    EXPECT_GT(missed, 300u);
    EXPECT_EQ(longFound, 15u);
}
