/* The order of calls, and what each call refuses. */
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

TEST_F(TnwXml, TheWholeSequenceSucceedsTwiceInOneProcess)
{
    for (int n = 0; n < 2; n++) {
        DWORD value = 0;
        EXPECT_EQ(init("diskperf"), XMLLIB_OK);
        EXPECT_EQ(load_policy("diskperf"), XMLLIB_OK);
        EXPECT_EQ(load_config(1), XMLLIB_OK);
        EXPECT_EQ(Get(LEVEL, &value), XMLLIB_OK);
        EXPECT_EQ(value, 7u);
        EXPECT_EQ(unload_config(), XMLLIB_OK);
        EXPECT_EQ(unload_policy("diskperf"), XMLLIB_OK);
        EXPECT_EQ(term(), XMLLIB_OK);
    }
    EXPECT_TRUE(waits.empty());
}

TEST_F(TnwXml, NothingWorksBeforeInit)
{
    DWORD value = 0;
    EXPECT_EQ(term(), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(load_policy("diskperf"), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(unload_policy("diskperf"), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(load_config(1), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(unload_config(), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(Get(LEVEL, &value), XMLLIB_WRONG_ORDER);
}

TEST_F(TnwXml, TheConfigurationNeedsThePolicyFirst)
{
    init("diskperf");
    EXPECT_EQ(load_config(1), XMLLIB_WRONG_ORDER);
}

TEST_F(TnwXml, ValuesNeedTheConfigurationFirst)
{
    DWORD value = 0;
    init("diskperf");
    load_policy("diskperf");
    EXPECT_EQ(Get(LEVEL, &value), XMLLIB_WRONG_ORDER);
}

TEST_F(TnwXml, EachStepCanBeTakenOnce)
{
    ASSERT_EQ(Load(), XMLLIB_OK);
    EXPECT_EQ(init("diskperf"), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(load_policy("diskperf"), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(load_config(1), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(unload_config(), XMLLIB_OK);
    EXPECT_EQ(unload_config(), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(unload_policy("diskperf"), XMLLIB_OK);
    EXPECT_EQ(unload_policy("diskperf"), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(term(), XMLLIB_OK);
    EXPECT_EQ(term(), XMLLIB_WRONG_ORDER);
}

TEST_F(TnwXml, ThePolicyStaysWhileAConfigurationIsLoaded)
{
    DWORD value = 0;
    ASSERT_EQ(Load(), XMLLIB_OK);
    EXPECT_EQ(unload_policy("diskperf"), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(Get(LEVEL, &value), XMLLIB_OK);
}

TEST_F(TnwXml, ThePolicyIsUnloadedUnderItsOwnNameOnly)
{
    init("diskperf");
    load_policy("diskperf");
    EXPECT_EQ(unload_policy("other"), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(unload_policy("diskperf"), XMLLIB_OK);
}

TEST_F(TnwXml, TermReleasesWhatIsStillHeld)
{
    DWORD value = 0;
    ASSERT_EQ(Load(), XMLLIB_OK);
    EXPECT_EQ(term(), XMLLIB_OK);
    EXPECT_EQ(Get(LEVEL, &value), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(init("diskperf"), XMLLIB_OK);
    EXPECT_EQ(load_config(1), XMLLIB_WRONG_ORDER);
}

TEST_F(TnwXml, ARefusedConfigurationLeavesThePolicyAndCanBeLoadedAgain)
{
    Config("<root>");
    EXPECT_EQ(Load(), XMLLIB_NOT_WELL_FORMED);
    EXPECT_EQ(unload_config(), XMLLIB_WRONG_ORDER);
    Config("<root/>");
    EXPECT_EQ(load_config(1), XMLLIB_OK);
    EXPECT_EQ(unload_config(), XMLLIB_OK);
    EXPECT_EQ(unload_policy("diskperf"), XMLLIB_OK);
}

TEST_F(TnwXml, NamesOfComponentsCannotLeaveTheFolder)
{
    XMLLIB_REPORT     report = {};
    const std::string longest(31, 'x');
    const std::string tooLong(32, 'x');

    for (const char* name : { "", "..", "a/b", "a\\b", "a.b", "C:a", "a b", "\xC3\xA4", tooLong.c_str() }) {
        EXPECT_EQ(init(name), XMLLIB_INVALID_ARGUMENT) << name;
        EXPECT_EQ(load_policy(name), XMLLIB_INVALID_ARGUMENT) << name;
        EXPECT_EQ(unload_policy(name), XMLLIB_INVALID_ARGUMENT) << name;
        EXPECT_EQ(check(name, nullptr, &report), XMLLIB_INVALID_ARGUMENT) << name;
        EXPECT_EQ(report.finding.dwStatus, XMLLIB_INVALID_ARGUMENT) << name;
    }
    EXPECT_EQ(init(nullptr), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(load_policy(nullptr), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(unload_policy(nullptr), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(check(nullptr, nullptr, &report), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(check("diskperf", nullptr, nullptr), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(init(longest.c_str()), XMLLIB_OK);
}

TEST_F(TnwXml, OnlyConfigurationOneExists)
{
    init("diskperf");
    load_policy("diskperf");
    for (DWORD number : { 0u, 2u, 0xFFFFFFFFu }) {
        EXPECT_EQ(load_config(number), XMLLIB_INVALID_ARGUMENT) << number;
    }
}

TEST_F(TnwXml, GetValueRefusesBadArgumentsAndTouchesNothing)
{
    DWORD value = 99;
    DWORD size = 4;

    ASSERT_EQ(Load(), XMLLIB_OK);
    EXPECT_EQ(get_value(nullptr, 1, &value, &size), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(get_value(LEVEL, 1, nullptr, &size), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(get_value(LEVEL, 1, &value, nullptr), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(get_value(LEVEL, 0, &value, &size), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(get_value(LEVEL, 2, &value, &size), XMLLIB_INVALID_ARGUMENT);
    size = 3;
    EXPECT_EQ(get_value(LEVEL, 1, &value, &size), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(value, 99u);
}

TEST_F(TnwXml, GetValueWritesFourBytesIntoALargerDestination)
{
    BYTE       bytes[9] = { 1, 1, 1, 1, 1, 1, 1, 1, 1 };
    const BYTE expected[9] = { 1, 7, 0, 0, 0, 1, 1, 1, 1 };
    DWORD      size = 8;

    ASSERT_EQ(Load(), XMLLIB_OK);
    EXPECT_EQ(get_value(LEVEL, 1, bytes + 1, &size), XMLLIB_OK);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(memcmp(bytes, expected, sizeof(bytes)), 0);
}

TEST_F(TnwXml, AMissingConfigurationIsNoFile)
{
    home.Remove(L"etc\\cluster.xml");
    EXPECT_EQ(Load(), XMLLIB_NO_FILE);
}

TEST_F(TnwXml, AMissingPolicyIsNoFile)
{
    home.Remove(L"etc\\policy\\diskperf.xml");
    init("diskperf");
    EXPECT_EQ(load_policy("diskperf"), XMLLIB_NO_FILE);
    EXPECT_EQ(load_config(1), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(term(), XMLLIB_OK);
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
}
