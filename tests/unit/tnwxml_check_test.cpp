/* What xmllib_check says: settings, the first finding, unknown keys. */
#include "unit/tnwxml_fixture.h"

TEST_F(TnwXml, AGoodFileHasNoFindingAndItsName)
{
    const XMLLIB_REPORT& report = Check();
    EXPECT_EQ(report.finding.dwStatus, XMLLIB_OK);
    EXPECT_EQ(report.finding.szFile, home.PlainPath(L"etc\\cluster.xml"));
    EXPECT_EQ(report.finding.dwLine, 0u);
    EXPECT_EQ(report.finding.dwColumn, 0u);
    EXPECT_STREQ(report.finding.szKey, "");
    EXPECT_STREQ(report.finding.szValue, "");
    EXPECT_STREQ(report.finding.szReason, "");
}

TEST_F(TnwXml, SettingsSayWhetherTheyStandInTheFile)
{
    Config("<root><diskperf><parameters><perflogsize>64</perflogsize></parameters><log/></diskperf></root>");
    const XMLLIB_REPORT& report = Check();
    ASSERT_EQ(report.dwSettings, 9u);
    for (DWORD n = 0; n < 9; n++) {
        EXPECT_EQ(report.setting[n].bInFile, n == 2) << report.setting[n].szKey;
    }
    EXPECT_EQ(report.setting[2].dwValue, 64u);
    EXPECT_EQ(report.setting[2].dwDefault, 1024u);
}

TEST_F(TnwXml, AWrongNumberIsFoundWithLineColumnKeyValueRangeAndReason)
{
    const XMLLIB_FINDING& finding = Finding("<root>\r\n"
                                            "  <diskperf>\r\n"
                                            "    <log>\r\n"
                                            "      <level>\r\n"
                                            "\t seven\r\n"
                                            "      </level>\r\n"
                                            "    </log>\r\n"
                                            "  </diskperf>\r\n"
                                            "</root>\r\n");
    EXPECT_EQ(finding.dwStatus, XMLLIB_NO_NUMBER);
    EXPECT_EQ(finding.szFile, home.PlainPath(L"etc\\cluster.xml"));
    EXPECT_EQ(finding.dwLine, 5u);
    EXPECT_EQ(finding.dwColumn, 3u);
    EXPECT_STREQ(finding.szKey, "/root/diskperf/log/level");
    EXPECT_STREQ(finding.szValue, "seven");
    EXPECT_EQ(finding.dwMin, 0u);
    EXPECT_EQ(finding.dwMax, 0xFFFFu);
    EXPECT_STREQ(finding.szReason,
                 "The value \"seven\" is no 32-bit number in decimal digits, or hexadecimal digits behind 0x.");
}

TEST_F(TnwXml, AValueOutOfRangeIsFoundWithTheRangeInTheFormPeopleWrite)
{
    ConfigWith("/root/diskperf/parameters/collectinterval", "0");
    EXPECT_STREQ(Check().finding.szReason, "The value 0 is outside of the range 1 to 3600 s.");
    ConfigWith("/root/diskperf/parameters/perflogrotation", "100");
    EXPECT_STREQ(Check().finding.szReason, "The value 100 is outside of the range 1 to 99.");
    ConfigWith("/root/diskperf/parameters/collectparam", "0x20000");
    EXPECT_STREQ(Check().finding.szReason, "The value 0x20000 is outside of the range 0 to 0x1ffff.");
}

TEST_F(TnwXml, AnEmptyValueIsFoundAtItsElement)
{
    const XMLLIB_FINDING& finding = Finding("<root><diskperf><log>\n <level> </level></log></diskperf></root>");
    EXPECT_EQ(finding.dwStatus, XMLLIB_NO_NUMBER);
    EXPECT_EQ(finding.dwLine, 2u);
    EXPECT_EQ(finding.dwColumn, 3u);
    EXPECT_STREQ(finding.szValue, "");
    EXPECT_STREQ(finding.szReason, "There is no value between the tags.");
}

TEST_F(TnwXml, TheWrongValueThatStandsFirstInTheFileIsTheFinding)
{
    // The policy knows parameters before log; the file does not.
    const XMLLIB_FINDING& finding = Finding("<root><diskperf><log><size>1</size><level>x</level></log>\n"
                                            "<parameters><perfenable>2</perfenable></parameters></diskperf></root>");
    EXPECT_STREQ(finding.szKey, "/root/diskperf/log/size");
    EXPECT_EQ(finding.dwLine, 1u);
    EXPECT_EQ(finding.dwMin, 64u);
    EXPECT_EQ(finding.dwMax, 1048576u);
}

TEST_F(TnwXml, AfterAFindingTheOtherSettingsAreStillRead)
{
    Config("<root><diskperf><log><level>x</level><size>100</size></log></diskperf></root>");
    const XMLLIB_REPORT& report = Check();
    EXPECT_EQ(report.finding.dwStatus, XMLLIB_NO_NUMBER);
    EXPECT_EQ(report.setting[7].dwValue, 7u);
    EXPECT_EQ(report.setting[8].dwValue, 100u);
}

TEST_F(TnwXml, AnUnreadableFileStillGivesTheSettingsWithTheirDefaults)
{
    home.Remove(L"etc\\cluster.xml");
    const XMLLIB_REPORT& report = Check();
    EXPECT_EQ(report.finding.dwStatus, XMLLIB_NO_FILE);
    EXPECT_STREQ(report.finding.szReason, "The file does not exist.");
    EXPECT_EQ(report.finding.szFile, home.PlainPath(L"etc\\cluster.xml"));
    EXPECT_EQ(report.finding.dwLine, 0u);
    ASSERT_EQ(report.dwSettings, 9u);
    EXPECT_EQ(report.setting[4].dwValue, 10u);
    EXPECT_FALSE(report.setting[4].bInFile);
}

TEST_F(TnwXml, ALongValueIsCutOffBetweenCharacters)
{
    // 62 bytes, then a letter of two bytes that would end behind the field's 63rd.
    const std::string value = std::string(62, 'a') + "\xC3\xA9" + std::string(1000, 'b');
    ConfigWith("/root/diskperf/log/level", value);
    EXPECT_EQ(Check().finding.szValue, std::string(62, 'a'));
}

TEST_F(TnwXml, LineEndsInAValueAreShownAsBlanks)
{
    ConfigWith("/root/diskperf/log/level", "1\n\t2");
    EXPECT_STREQ(Check().finding.szValue, "1  2");
}

TEST_F(TnwXml, AByteOrderMarkTakesNoColumn)
{
    const XMLLIB_FINDING& finding = Finding("\xEF\xBB\xBF<root></rood>");
    EXPECT_EQ(finding.dwLine, 1u);
    EXPECT_EQ(finding.dwColumn, 13u);
}

TEST_F(TnwXml, ColumnsCountBytes)
{
    // The end of the closing tag: the 23rd character, the letter of two bytes in front of it makes it the 24th byte.
    EXPECT_EQ(Finding("<root><!-- \xC3\xA9 --><b></c></root>").dwColumn, 24u);
}

TEST_F(TnwXml, CheckReadsAnyFileItIsGiven)
{
    XMLLIB_REPORT report = {};
    home.Write(L"perf\\new.xml", "<root><diskperf><log><level>9</level></log></diskperf></root>");
    Config("<root>");
    EXPECT_EQ(check("diskperf", home.Path(L"perf\\new.xml").c_str(), &report), XMLLIB_OK);
    EXPECT_EQ(report.finding.szFile, "\\\\?\\" + home.PlainPath(L"perf\\new.xml"));  // as it was given
    EXPECT_EQ(report.setting[7].dwValue, 9u);
    EXPECT_EQ(check("diskperf", L"", &report), XMLLIB_NO_FILE);
    EXPECT_EQ(check("diskperf", L"NUL", &report), XMLLIB_NO_FILE);
}

TEST_F(TnwXml, CheckKeepsNothing)
{
    DWORD read = 0;
    EXPECT_EQ(Check().finding.dwStatus, XMLLIB_OK);
    EXPECT_EQ(term(), XMLLIB_WRONG_ORDER);
    EXPECT_EQ(Get("/root/diskperf/log/level", &read), XMLLIB_WRONG_ORDER);
}

/* ---- Keys that stand twice ---- */

struct Twice {
    const char* name;
    const char* bytes;
    const char* key;
    DWORD       line;
    DWORD       column;
};

class StandsTwice : public TnwXml, public testing::WithParamInterface<Twice> {};

INSTANTIATE_TEST_SUITE_P(
    Check, StandsTwice,
    testing::Values(Twice{ "key", "<root><diskperf><log>\n<level>1</level>\n<level>1</level></log></diskperf></root>",
                           "/root/diskperf/log/level", 3, 2 },
                    Twice{ "section", "<root><diskperf><log/>\n<parameters/><log/></diskperf></root>",
                           "/root/diskperf/log", 2, 15 },
                    Twice{ "component", "<root><diskperf/>\n\n <diskperf/></root>", "/root/diskperf", 3, 3 }),
    [](const auto& param) { return std::string(param.param.name); });

TEST_P(StandsTwice, RefusesTheFile)
{
    const XMLLIB_FINDING& finding = Finding(GetParam().bytes);
    EXPECT_EQ(finding.dwStatus, XMLLIB_KEY_TWICE);
    EXPECT_STREQ(finding.szKey, GetParam().key);
    EXPECT_EQ(finding.dwLine, GetParam().line);
    EXPECT_EQ(finding.dwColumn, GetParam().column);
    EXPECT_EQ(Load(), XMLLIB_KEY_TWICE);
    EXPECT_TRUE(waits.empty());
}

TEST_F(TnwXml, OtherElementsMayStandTwice)
{
    EXPECT_EQ(Finding("<root><server/><server/><diskperf><x/><x/></diskperf></root>").dwStatus, XMLLIB_OK);
    EXPECT_EQ(Load(), XMLLIB_OK);
}

/* ---- Unknown keys ---- */

TEST_F(TnwXml, UnknownKeysOfTheSectionAreReportedAndRefuseNothing)
{
    Config("<root>\n"
           "<other><x/></other>\n"
           "<diskperf>\n"
           "  <colour>1</colour>\n"
           "  <log><Level>3</Level><level>4</level></log>\n"
           "  <extra><level/><deep/></extra>\n"
           "</diskperf>\n"
           "</root>");
    const XMLLIB_REPORT& report = Check();
    EXPECT_EQ(report.finding.dwStatus, XMLLIB_OK);
    EXPECT_EQ(report.setting[7].dwValue, 4u);
    ASSERT_EQ(report.dwUnknown, 3u);
    EXPECT_STREQ(report.unknown[0].szKey, "/root/diskperf/colour");
    EXPECT_EQ(report.unknown[0].dwLine, 4u);
    EXPECT_EQ(report.unknown[0].dwColumn, 4u);
    EXPECT_STREQ(report.unknown[1].szKey, "/root/diskperf/log/Level");
    EXPECT_EQ(report.unknown[1].dwLine, 5u);
    EXPECT_EQ(report.unknown[1].dwColumn, 9u);
    EXPECT_STREQ(report.unknown[2].szKey, "/root/diskperf/extra");
    EXPECT_EQ(Load(), XMLLIB_OK);
}

TEST_F(TnwXml, MoreUnknownKeysThanFitAreCounted)
{
    std::string keys;
    for (int n = 0; n < 20; n++) {
        keys += "<k" + std::to_string(n) + "/>";
    }
    Config("<root><diskperf>" + keys + "</diskperf></root>");
    const XMLLIB_REPORT& report = Check();
    EXPECT_EQ(report.dwUnknown, 20u);
    EXPECT_STREQ(report.unknown[15].szKey, "/root/diskperf/k15");
}
