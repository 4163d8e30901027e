/*
 * Queries with a growing buffer, and where names come from.
 */
#include <gmock/gmock.h>

#include "perf_names.h"
#include "perf_query.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

/* A multi-text with its final NUL; '|' stands for each NUL. */
std::vector<BYTE> MultiText(std::wstring text)
{
    for (wchar_t& letter : text)
        letter = letter == L'|' ? L'\0' : letter;
    const BYTE* bytes = reinterpret_cast<const BYTE*>(text.data());
    return std::vector<BYTE>(bytes, bytes + text.size() * sizeof(wchar_t));
}

const char SYMBOLS[] = "/* made by the build */\n#define DKPF_OBJECT 0\r\n#define  DKPF_RATIO\t2\n#define DKPF_GUARD\n"
                       "#define DKPF_WORD two\n";
const char INI[] = "[info]\r\ndrivername=tnwdiskperf\r\nDKPF_OBJECT_009_NAME=not here\r\n[text]\r\n"
                   "DKPF_OBJECT_009_NAME=Cluster Disk Resource Performance\r\nDKPF_OBJECT_009_HELP=All of it.\r\n"
                   "DKPF_RATIO_009_NAME = Transfer Ratio % \nDKPF_RATIO_009_HELP=a=b\nDKPF_RATIO_011_NAME=other\n"
                   "DKPF_NONE_009_NAME=no symbol\n=\n_009_NAME=x\n";

PerfTexts SystemNames()
{
    PerfTexts names;
    for (DWORD i = 0; i < 18; i++)
        names[2000 + 2 * i] = "title " + std::to_string(i);
    return names;
}

}  // namespace

TEST(PerfQuery, TheBufferDoublesAndIsZeroEachTime)
{
    std::vector<DWORD> sizes;
    const auto         result = QueryPerformanceData(L"Global", [&](const std::wstring& query, BYTE* data, DWORD size) {
        EXPECT_EQ(query, L"Global");
        EXPECT_EQ(std::count(data, data + size + 88, 0), static_cast<ptrdiff_t>(size) + 88);
        memset(data, 0xA5, size + 88);  // the slack may be written too
        sizes.push_back(size);
        return sizes.size() < 3 ? ERROR_MORE_DATA : ERROR_SUCCESS;
    });
    EXPECT_THAT(sizes, ElementsAre(65536u, 131072u, 262144u));
    EXPECT_EQ(result.error, static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(result.data.size(), 262144u + 88);
}

TEST(PerfQuery, AnAnswerThatNeverFitsEndsAtTheBound)
{
    DWORD      last = 0;
    const auto result = QueryPerformanceData(L"Global", [&](const std::wstring&, BYTE*, DWORD size) {
        last = size;
        return ERROR_MORE_DATA;
    });
    EXPECT_EQ(last, 64u * 1024 * 1024);
    EXPECT_EQ(result.error, static_cast<DWORD>(ERROR_MORE_DATA));
    EXPECT_TRUE(result.data.empty());
}

TEST(PerfQuery, AnotherErrorEndsAtOnce)
{
    int        calls = 0;
    const auto result = QueryPerformanceData(L"2000", [&](const std::wstring&, BYTE*, DWORD) {
        calls++;
        return ERROR_ACCESS_DENIED;
    });
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(result.error, static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(result.data.empty());
}

TEST(PerfNames, PairsUpToTheEmptyText)
{
    EXPECT_THAT(ParsePerfTexts(MultiText(L"1|1847|2|System|4|\u00e4|||6|behind|")),
                ElementsAre(Pair(1u, "1847"), Pair(2u, "System"), Pair(4u, "\xc3\xa4")));
}

TEST(PerfNames, ACutPairCountsNotAndAnOddByteIsLeftOut)
{
    EXPECT_THAT(ParsePerfTexts(MultiText(L"2|System|4|Mem")), ElementsAre(Pair(2u, "System")));
    EXPECT_THAT(ParsePerfTexts(MultiText(L"2|System|4")), ElementsAre(Pair(2u, "System")));
    EXPECT_THAT(ParsePerfTexts(MultiText(L"2|System|four|Memory|6|x|")), ElementsAre(Pair(2u, "System")));
    EXPECT_THAT(ParsePerfTexts({}), IsEmpty());
    EXPECT_THAT(ParsePerfTexts({ 0x32 }), IsEmpty());
    std::vector<BYTE> odd = MultiText(L"2|System|");
    odd.push_back(0x34);
    EXPECT_THAT(ParsePerfTexts(odd), ElementsAre(Pair(2u, "System")));
}

TEST(PerfNames, TheInstalledTableBySymbolAndOffset)
{
    const InstalledTexts texts = ParseInstalledTexts(INI, SYMBOLS);
    EXPECT_THAT(texts.names, ElementsAre(Pair(0u, "Cluster Disk Resource Performance"), Pair(2u, "Transfer Ratio %")));
    EXPECT_THAT(texts.helps, ElementsAre(Pair(0u, "All of it."), Pair(2u, "a=b")));
}

TEST(PerfNames, EachTableIsReadFromItsOwnPlace)
{
    Home home;
    home.root = L"Z:\\no such home";
    const auto ask = [](const std::wstring& query, BYTE* data, DWORD) -> LONG {
        const auto text = MultiText(query == L"Counter 009" ? L"2000|name||" : L"2001|help||");
        EXPECT_TRUE(query == L"Counter 009" || query == L"Help 009");
        memcpy(data, text.data(), text.size());
        return ERROR_SUCCESS;
    };
    const NameSources sources = ReadNameSources(home, ask);
    EXPECT_THAT(sources.counters, ElementsAre(Pair(2000u, "name")));
    EXPECT_THAT(sources.helps, ElementsAre(Pair(2001u, "help")));
    EXPECT_THAT(sources.installed.names, IsEmpty());
    // A table that cannot be read is no table.
    const NameSources none = ReadNameSources(home, [](const std::wstring&, BYTE*, DWORD) -> LONG { return 5; });
    EXPECT_THAT(none.counters, IsEmpty());
    EXPECT_THAT(none.helps, IsEmpty());
}

TEST(PerfNames, TheSystemsNamesWhereItHasAllOfThem)
{
    NameSources sources{ SystemNames(), { { 3001, "help of the object" }, { 3035, "help of the last" } }, {} };
    const auto  names = NamesOf(sources, 2000, 3001);
    EXPECT_TRUE(names.fromSystem);
    EXPECT_EQ(names.objectIndex, 2000u);
    EXPECT_EQ(names.object, "title 0");
    EXPECT_EQ(names.objectHelp, "help of the object");
    ASSERT_EQ(names.counters.size(), 17u);
    EXPECT_EQ(names.counters[0].name, "title 1");
    EXPECT_EQ(names.counters[0].index, 2002u);
    EXPECT_EQ(names.counters[0].scale, 0);
    EXPECT_EQ(names.counters[1].scale, -5);
    EXPECT_EQ(names.counters[16].name, "title 17");
    EXPECT_EQ(names.counters[16].index, 2034u);
    EXPECT_EQ(names.counters[16].help, "help of the last");
}

TEST(PerfNames, TheInstalledOnesWhereTheSystemLacksOne)
{
    NameSources sources{ SystemNames(), {}, ParseInstalledTexts(INI, SYMBOLS) };
    sources.counters.erase(2034);
    const auto names = NamesOf(sources, 2000, 2001);
    EXPECT_FALSE(names.fromSystem);
    EXPECT_EQ(names.objectIndex, 2000u);
    EXPECT_EQ(names.objectHelp, "All of it.");
    EXPECT_EQ(names.counters[0].index, 2002u);
    EXPECT_EQ(names.object, "Cluster Disk Resource Performance");
    EXPECT_EQ(names.counters[0].name, "Transfer Ratio %");
    EXPECT_EQ(names.counters[0].help, "a=b");
    EXPECT_EQ(names.counters[1].name, "");
}
