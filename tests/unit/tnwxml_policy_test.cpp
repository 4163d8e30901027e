/* Policies that are wrong, and what a policy of another form gives. */
#include "unit/tnwxml_fixture.h"

class Policy : public TnwXml {
protected:
    // A policy with these elements, judged by xmllib_check and by xmllib_load_policy alike.
    const XMLLIB_REPORT& With(const std::string& elements)
    {
        home.Write(L"etc\\policy\\diskperf.xml", "<policy component=\"diskperf\">\n" + elements + "</policy>\n");
        term();
        init("diskperf");
        const DWORD          loaded = static_cast<DWORD>(load_policy("diskperf"));
        const XMLLIB_REPORT& report = Check();
        if (report.dwSettings == 0) {
            EXPECT_EQ(loaded, report.finding.dwStatus);
        } else {
            EXPECT_EQ(loaded, XMLLIB_OK);
        }
        return report;
    }

    // A good key, one attribute of which is replaced by the text given.
    static std::string Key(const std::string& attribute = "", const std::string& text = "")
    {
        std::string key = "<key";
        for (const auto& [name, value] :
             std::vector<std::pair<std::string, std::string>>{ { "path", "/root/diskperf/a" },
                                                               { "type", "dword" },
                                                               { "min", "1" },
                                                               { "max", "0x9" },
                                                               { "default", "5" },
                                                               { "applies", "reload" },
                                                               { "help", "A number." } }) {
            key += name == attribute ? " " + text : " " + name + "=\"" + value + "\"";
        }
        return key + "/>\n";
    }
};

TEST_F(Policy, OfOneKeyIsTaken)
{
    Config("<root/>");
    const XMLLIB_REPORT& report = With(Key("min", "min='1' unit='s' format='hex'"));
    EXPECT_EQ(report.finding.dwStatus, XMLLIB_OK);
    ASSERT_EQ(report.dwSettings, 1u);
    EXPECT_STREQ(report.setting[0].szKey, "/root/diskperf/a");
    EXPECT_STREQ(report.setting[0].szUnit, "s");
    EXPECT_STREQ(report.setting[0].szHelp, "A number.");
    EXPECT_EQ(report.setting[0].dwMin, 1u);
    EXPECT_EQ(report.setting[0].dwMax, 9u);
    EXPECT_EQ(report.setting[0].dwDefault, 5u);
    EXPECT_EQ(report.setting[0].dwValue, 5u);
    EXPECT_TRUE(report.setting[0].bHex);
    EXPECT_FALSE(report.setting[0].bRestart);
    EXPECT_FALSE(report.setting[0].bInFile);
}

TEST_F(Policy, EveryRequiredAttributeIsMissed)
{
    for (const char* attribute : { "path", "type", "min", "max", "default", "applies", "help" }) {
        const XMLLIB_REPORT& report = With(Key(attribute));
        EXPECT_EQ(report.finding.dwStatus, XMLLIB_BAD_POLICY) << attribute;
        EXPECT_EQ(report.finding.szReason, "The policy key has no attribute " + std::string(attribute) + ".");
        EXPECT_EQ(report.finding.dwLine, 2u);
        EXPECT_EQ(report.finding.dwColumn, 2u);
        EXPECT_EQ(report.dwSettings, 0u);
    }
}

TEST_F(Policy, UnusableAttributesAreRefused)
{
    const std::string longPath = "path='/root/diskperf/" + std::string(96 - 15, 'x') + "'";  // 96 bytes: one too many
    const std::string longHelp = "help='" + std::string(160, 'x') + "'";

    for (const auto& [attribute, text] :
         std::vector<std::pair<const char*, std::string>>{ { "type", "type='string'" },
                                                           { "min", "min='-1'" },
                                                           { "max", "max='4294967296'" },
                                                           { "default", "default=''" },
                                                           { "default", "default='five'" },
                                                           { "min", "min=' 1'" },
                                                           { "applies", "applies='now'" },
                                                           { "help", "help=''" },
                                                           { "help", longHelp },
                                                           { "help", "help='a &amp; b'" },
                                                           { "path", "path=''" },
                                                           { "path", longPath },
                                                           { "type", "type='dword' unit='sixteen bytes ..'" },
                                                           { "type", "type='dword' format='octal'" },
                                                           { "type", "type='dword' colour='red'" } }) {
        const XMLLIB_REPORT& report = With(Key(attribute, text));
        EXPECT_EQ(report.finding.dwStatus, XMLLIB_BAD_POLICY) << text;
        EXPECT_NE(report.finding.szReason[0], '\0');
    }
}

TEST_F(Policy, TheDefaultMustLieInTheRange)
{
    for (const char* value : { "0", "10" }) {
        const XMLLIB_REPORT& report = With(Key("default", "default='" + std::string(value) + "'"));
        EXPECT_EQ(report.finding.dwStatus, XMLLIB_BAD_POLICY) << value;
        EXPECT_STREQ(report.finding.szKey, "/root/diskperf/a");
    }
    EXPECT_EQ(With(Key("min", "min='10'")).finding.dwStatus, XMLLIB_BAD_POLICY) << "min above max";
}

TEST_F(Policy, PathsLieBelowTheComponentsSection)
{
    for (const char* path : { "/root/other/a", "/root/diskperf", "/root/diskperf/", "/root/diskperfx/a", "/diskperf/a",
                              "root/diskperf/a", "/root/diskperf//a", "/root/diskperf/a/" }) {
        EXPECT_EQ(With(Key("path", "path='" + std::string(path) + "'")).finding.dwStatus, XMLLIB_BAD_POLICY) << path;
    }
}

TEST_F(Policy, AKeyTwiceOrWithinAnotherIsRefused)
{
    EXPECT_EQ(With(Key() + Key()).finding.dwStatus, XMLLIB_BAD_POLICY);
    EXPECT_EQ(With(Key() + Key("path", "path='/root/diskperf/a/b'")).finding.dwStatus, XMLLIB_BAD_POLICY);
    EXPECT_EQ(With(Key("path", "path='/root/diskperf/a/b'") + Key()).finding.dwStatus, XMLLIB_BAD_POLICY);
    EXPECT_EQ(Check().finding.dwLine, 3u);
    Config("<root/>");
    EXPECT_EQ(With(Key() + Key("path", "path='/root/diskperf/ab'")).finding.dwStatus, XMLLIB_OK);
}

TEST_F(Policy, ThirtyTwoKeysAreTakenAndOneMoreIsRefused)
{
    std::string keys;
    for (int n = 0; n < 32; n++) {
        keys += Key("path", "path='/root/diskperf/k" + std::to_string(n) + "'");
    }
    Config("<root><diskperf><k31>9</k31></diskperf></root>");
    const XMLLIB_REPORT& report = With(keys);
    EXPECT_EQ(report.finding.dwStatus, XMLLIB_OK);
    ASSERT_EQ(report.dwSettings, 32u);
    EXPECT_EQ(report.setting[31].dwValue, 9u);
    EXPECT_EQ(With(keys + Key()).finding.dwStatus, XMLLIB_BAD_POLICY);
}

TEST_F(Policy, WithoutKeysOrWithOtherElementsIsRefused)
{
    EXPECT_EQ(With("").finding.dwStatus, XMLLIB_BAD_POLICY);
    EXPECT_EQ(With("<setting/>").finding.dwStatus, XMLLIB_BAD_POLICY);
}

TEST_F(Policy, OfAnotherComponentIsRefused)
{
    home.Write(L"etc\\policy\\other.xml", MINIMAL_POLICY);
    init("other");
    EXPECT_EQ(load_policy("other"), XMLLIB_BAD_POLICY);
    home.Write(L"etc\\policy\\other.xml", "<policy/>");
    EXPECT_EQ(load_policy("other"), XMLLIB_BAD_POLICY);
}

TEST_F(Policy, ThatIsNoXmlIsNotWellFormed)
{
    for (const char* bytes : { "", "policy", "<policy component='diskperf'>", "<root/>" }) {
        home.Write(L"etc\\policy\\diskperf.xml", bytes);
        const XMLLIB_REPORT& report = Check();
        EXPECT_EQ(report.finding.dwStatus, XMLLIB_NOT_WELL_FORMED) << bytes;
        EXPECT_NE(strstr(report.finding.szFile, "policy\\diskperf.xml"), nullptr) << report.finding.szFile;
        EXPECT_EQ(report.dwSettings, 0u);
        EXPECT_EQ(Load(), XMLLIB_NOT_WELL_FORMED) << bytes;
    }
}

TEST_F(Policy, IsJudgedBeforeTheConfiguration)
{
    Config("<root>");
    home.Write(L"etc\\policy\\diskperf.xml", "<policy/>");
    EXPECT_EQ(Check().finding.dwStatus, XMLLIB_BAD_POLICY);
}
