/*
 * What holds for the library alone: its exports, files that change while they are loaded, threads, and the edges of
 * xmllib_check. The order of calls and their arguments stand in tests/contract/tnwxml_contract_test.cpp.
 */
#include "unit/tnwxml_fixture.h"
#include <thread>

static const char LEVEL[] = "/root/diskperf/log/level";

TEST_F(TnwXml, ExportsNineOrdinalsAndNoNames)
{
    const WORD bound[] = { 1, 2, 4, 5, 6, 7, 13, 14, 15 };
    int        found = 0;

    for (WORD ordinal = 1; ordinal <= 40; ordinal++) {
        found += GetProcAddress(module, MAKEINTRESOURCEA(ordinal)) != nullptr;
    }
    EXPECT_EQ(found, static_cast<int>(std::size(bound)));
    EXPECT_EQ(GetProcAddress(module, "xmllib_init"), nullptr);
}

TEST_F(TnwXml, ALoadedConfigurationDoesNotFollowTheFile)
{
    DWORD value = 0;
    ASSERT_EQ(Load(), XMLLIB_OK);
    ConfigWith(LEVEL, "8");
    EXPECT_EQ(Get(LEVEL, &value), XMLLIB_OK);
    EXPECT_EQ(value, 7u);
    EXPECT_EQ(LoadAndGet(LEVEL, &value), XMLLIB_OK);
    EXPECT_EQ(value, 8u);
}

TEST_F(TnwXml, ALoadedFileCanBeReplacedAndRemoved)
{
    ASSERT_EQ(Load(), XMLLIB_OK);
    EXPECT_NE(DeleteFileW(home.Path(L"etc\\cluster.xml").c_str()), 0);
    EXPECT_NE(DeleteFileW(home.Path(L"etc\\policy\\diskperf.xml").c_str()), 0);
}

TEST_F(TnwXml, CheckRefusesItsArgumentsAndReportsThat)
{
    const std::string tooLong(32, 'x');
    auto              report = std::make_unique<XMLLIB_REPORT>();

    EXPECT_EQ(check("diskperf", nullptr, nullptr), XMLLIB_INVALID_ARGUMENT);
    for (const char* name : { static_cast<const char*>(nullptr), "", "..", "a/b", "a\\b", "a.b", "C:a", "a b",
                              "\xC3\xA4", tooLong.c_str() }) {
        memset(report.get(), 0xCC, sizeof(*report));
        EXPECT_EQ(check(name, nullptr, report.get()), XMLLIB_INVALID_ARGUMENT);
        EXPECT_EQ(report->finding.dwStatus, XMLLIB_INVALID_ARGUMENT);
        EXPECT_STREQ(report->finding.szReason, "This is no name of a component.");
        EXPECT_EQ(report->dwSettings, 0u);
        EXPECT_EQ(report->dwUnknown, 0u);
    }
    memset(report.get(), 0xCC, sizeof(*report));
    EXPECT_EQ(check("other", nullptr, report.get()), XMLLIB_NO_FILE);
    EXPECT_STREQ(report->finding.szReason, "The file does not exist.");
    EXPECT_EQ(report->dwSettings, 0u);
}

TEST_F(TnwXml, CheckRunsBesideASequenceAndOnManyThreads)
{
    std::vector<std::thread>   threads;
    std::vector<XMLLIB_REPORT> reports(4);
    DWORD                      value = 0;

    ASSERT_EQ(Load(), XMLLIB_OK);
    for (XMLLIB_REPORT& report : reports) {
        threads.emplace_back([this, &report] {
            for (int n = 0; n < 20 && report.finding.dwStatus == XMLLIB_OK; n++) {
                check("diskperf", nullptr, &report);
                DWORD ignored = 0;
                Get(LEVEL, &ignored);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const XMLLIB_REPORT& report : reports) {
        EXPECT_EQ(report.finding.dwStatus, XMLLIB_OK);
        EXPECT_EQ(report.dwSettings, 9u);
    }
    EXPECT_EQ(Get(LEVEL, &value), XMLLIB_OK);
    EXPECT_EQ(unload_config(), XMLLIB_OK);
    EXPECT_EQ(unload_policy("diskperf"), XMLLIB_OK);
    EXPECT_EQ(term(), XMLLIB_OK);
}
