/* Numbers, ranges and defaults. The table is the one that operators are given; it is typed here, not read from the
 * policy. */
#include "unit/tnwxml_fixture.h"

struct Setting {
    const char* key;
    DWORD       value;  // default
    DWORD       min;
    DWORD       max;
    const char* unit;
    BOOL        hex;
    BOOL        restart;
};

static const Setting SETTINGS[] = {
    { "/root/diskperf/parameters/perfenable", 1, 0, 1, "", FALSE, FALSE },
    { "/root/diskperf/parameters/perflogsave", 1, 0, 1, "", FALSE, FALSE },
    { "/root/diskperf/parameters/perflogsize", 1024, 64, 1048576, "KiB", FALSE, TRUE },
    { "/root/diskperf/parameters/perflogrotation", 3, 1, 99, "", FALSE, TRUE },
    { "/root/diskperf/parameters/collectinterval", 10, 1, 3600, "s", FALSE, TRUE },
    { "/root/diskperf/parameters/writeinterval", 60, 1, 86400, "s", FALSE, FALSE },
    { "/root/diskperf/parameters/collectparam", 131071, 0, 131071, "", TRUE, FALSE },
    { "/root/diskperf/log/level", 7, 0, 65535, "", TRUE, TRUE },
    { "/root/diskperf/log/size", 2048, 64, 1048576, "KiB", FALSE, TRUE },
};

class EachSetting : public TnwXml, public testing::WithParamInterface<Setting> {};

INSTANTIATE_TEST_SUITE_P(Keys, EachSetting, testing::ValuesIn(SETTINGS), [](const auto& param) {
    std::string key = param.param.key;
    return key.substr(key.rfind('/') + 1) + (key.find("/log/") != std::string::npos ? "_of_log" : "");
});

TEST_P(EachSetting, TakesBothEndsOfItsRange)
{
    for (DWORD value : { GetParam().min, GetParam().max }) {
        DWORD read = ~value;
        ConfigWith(GetParam().key, std::to_string(value));
        EXPECT_EQ(LoadAndGet(GetParam().key, &read), XMLLIB_OK) << value;
        EXPECT_EQ(read, value);
        EXPECT_EQ(Check().finding.dwStatus, XMLLIB_OK) << value;
    }
}

TEST_P(EachSetting, RefusesWhatLiesJustOutside)
{
    std::vector<DWORD> outside = { GetParam().max + 1, 0xFFFFFFFF };
    if (GetParam().min > 0) {
        outside.push_back(GetParam().min - 1);
    }
    for (DWORD value : outside) {
        DWORD read = 12345;
        ConfigWith(GetParam().key, std::to_string(value));
        EXPECT_EQ(Load(), XMLLIB_OK) << "the file as such is good";
        EXPECT_EQ(Get(GetParam().key, &read), XMLLIB_OUT_OF_RANGE) << value;
        EXPECT_EQ(read, 12345u);
        const XMLLIB_FINDING& finding = Check().finding;
        EXPECT_EQ(finding.dwStatus, XMLLIB_OUT_OF_RANGE) << value;
        EXPECT_STREQ(finding.szKey, GetParam().key);
        EXPECT_EQ(finding.szValue, std::to_string(value));
        EXPECT_EQ(finding.dwMin, GetParam().min);
        EXPECT_EQ(finding.dwMax, GetParam().max);
    }
}

TEST_P(EachSetting, HasItsDefaultWhenMissing)
{
    DWORD read = ~GetParam().value;
    Config("<root/>");
    EXPECT_EQ(LoadAndGet(GetParam().key, &read), XMLLIB_OK);
    EXPECT_EQ(read, GetParam().value);
}

TEST_F(TnwXml, TheInstalledFileHoldsEveryKeyWithItsDefault)
{
    const XMLLIB_REPORT& report = Check();

    EXPECT_EQ(report.finding.dwStatus, XMLLIB_OK);
    EXPECT_EQ(report.dwUnknown, 0u);
    ASSERT_EQ(report.dwSettings, std::size(SETTINGS));
    for (size_t n = 0; n < std::size(SETTINGS); n++) {
        EXPECT_STREQ(report.setting[n].szKey, SETTINGS[n].key);
        EXPECT_STREQ(report.setting[n].szUnit, SETTINGS[n].unit) << SETTINGS[n].key;
        EXPECT_EQ(report.setting[n].dwValue, SETTINGS[n].value) << SETTINGS[n].key;
        EXPECT_EQ(report.setting[n].dwDefault, SETTINGS[n].value) << SETTINGS[n].key;
        EXPECT_EQ(report.setting[n].dwMin, SETTINGS[n].min) << SETTINGS[n].key;
        EXPECT_EQ(report.setting[n].dwMax, SETTINGS[n].max) << SETTINGS[n].key;
        EXPECT_EQ(report.setting[n].bHex, SETTINGS[n].hex) << SETTINGS[n].key;
        EXPECT_EQ(report.setting[n].bRestart, SETTINGS[n].restart) << SETTINGS[n].key;
        EXPECT_TRUE(report.setting[n].bInFile) << SETTINGS[n].key;
        const std::string help = report.setting[n].szHelp;
        ASSERT_GT(help.size(), 20u) << SETTINGS[n].key;
        EXPECT_EQ(help.back(), '.') << "a sentence: " << help;
    }
}

/* ---- The form of a number ---- */

static const char FREE[] = "/root/other/number";  // no policy: any 32-bit number

struct Text {
    const char* name;
    const char* text;
    DWORD       value;
};

class Number : public TnwXml, public testing::WithParamInterface<Text> {};

INSTANTIATE_TEST_SUITE_P(
    Form, Number,
    testing::Values(Text{ "zero", "0", 0 }, Text{ "decimal", "4711", 4711 }, Text{ "leading_zeros", "0010", 10 },
                    Text{ "many_zeros", "00000000000000000000000000000000000000000000000000000000000000000000000009",
                          9 },
                    Text{ "largest_decimal", "4294967295", 4294967295u }, Text{ "hex", "0x1f", 31 },
                    Text{ "hex_upper_digits", "0xABCDEF", 11259375 }, Text{ "hex_lower_digits", "0xabcdef", 11259375 },
                    Text{ "largest_hex", "0xffffffff", 4294967295u }, Text{ "blanks_around", "  42\t", 42 },
                    Text{ "on_a_line_of_its_own", "\r\n    42\r\n  ", 42 },
                    Text{ "comment_in_front", "<!-- x -->42", 42 }, Text{ "comment_behind", " 42 <!-- x -->", 42 },
                    Text{ "comments_around", "<!--a--> 42 <!--b-->", 42 }, Text{ "cdata", "<![CDATA[42]]>", 42 },
                    Text{ "cdata_with_blanks", " <![CDATA[ 42 ]]> ", 42 },
                    Text{ "instruction_beside", "<?editor fold?>42", 42 }),
    [](const auto& param) { return std::string(param.param.name); });

TEST_P(Number, IsRead)
{
    DWORD read = ~GetParam().value;
    ConfigWith(FREE, GetParam().text);
    EXPECT_EQ(LoadAndGet(FREE, &read), XMLLIB_OK);
    EXPECT_EQ(read, GetParam().value);
}

class NoNumber : public TnwXml, public testing::WithParamInterface<Text> {};

INSTANTIATE_TEST_SUITE_P(
    Form, NoNumber,
    testing::Values(Text{ "empty", "", 0 }, Text{ "blanks_only", "  \n ", 0 }, Text{ "word", "many", 0 },
                    Text{ "one_too_large", "4294967296", 0 }, Text{ "wraps_64_bits", "18446744073709551617", 0 },
                    Text{ "hex_too_large", "0x100000000", 0 }, Text{ "hex_wraps_64_bits", "0x10000000000000001", 0 },
                    Text{ "negative", "-1", 0 }, Text{ "negative_zero", "-0", 0 }, Text{ "plus", "+1", 0 },
                    Text{ "hex_without_digits", "0x", 0 }, Text{ "hex_upper_x", "0X10", 0 },
                    Text{ "hex_without_0x", "1f", 0 }, Text{ "hex_bad_digit", "0x1g", 0 }, Text{ "fraction", "1.0", 0 },
                    Text{ "exponent", "1e3", 0 }, Text{ "thousands", "1,024", 0 }, Text{ "unit_behind", "10 s", 0 },
                    Text{ "two_numbers", "1 2", 0 }, Text{ "octal_word", "0o17", 0 },
                    Text{ "digits_of_another_script", "\xD9\xA3", 0 },
                    Text{ "wide_blank",
                          "\xE3\x80\x80"
                          "5",
                          0 },
                    Text{ "reference", "&#49;", 0 }, Text{ "comment_in_the_middle", "1<!-- x -->0", 0 },
                    Text{ "child_element", "<x/>10", 0 }, Text{ "child_only", "<x>10</x>", 0 },
                    Text{ "text_and_cdata", "1<![CDATA[0]]>", 0 }),
    [](const auto& param) { return std::string(param.param.name); });

TEST_P(NoNumber, IsRefusedByGetValueAndByCheck)
{
    const char LEVEL[] = "/root/diskperf/log/level";
    DWORD      read = 12345;

    ConfigWith(LEVEL, GetParam().text);
    EXPECT_EQ(Load(), XMLLIB_OK) << "the file as such is good";
    EXPECT_EQ(Get(LEVEL, &read), XMLLIB_NO_NUMBER);
    EXPECT_EQ(read, 12345u);
    const XMLLIB_REPORT& report = Check();
    EXPECT_EQ(report.finding.dwStatus, XMLLIB_NO_NUMBER);
    EXPECT_STREQ(report.finding.szKey, LEVEL);
    EXPECT_EQ(report.setting[7].dwValue, 7u) << "the default stands in for a wrong value";
    EXPECT_TRUE(report.setting[7].bInFile);
}

TEST_F(TnwXml, AnElementThatClosesItselfHoldsNoNumber)
{
    DWORD read = 0;
    Config("<root><diskperf><log><level value='5'/></log></diskperf></root>");
    EXPECT_EQ(LoadAndGet("/root/diskperf/log/level", &read), XMLLIB_NO_NUMBER);
}

/* ---- Keys ---- */

TEST_F(TnwXml, AKeyThatNeitherFileKnowsIsRefused)
{
    DWORD read = 12345;
    ASSERT_EQ(Load(), XMLLIB_OK);
    for (const char* key : { "/root/diskperf/log/colour", "/root/diskperf/nothing/level",
                             "/root/diskperf/log/level/more", "/root/diskperf/log/Level", "/other/diskperf/log/level",
                             "/root/diskperf/log/level/", "//root/diskperf/log/level", "/root//diskperf/log/level",
                             "root/diskperf/log/level", "diskperf/log/level", "level", "/", "" }) {
        EXPECT_EQ(Get(key, &read), XMLLIB_NO_SUCH_KEY) << key;
    }
    EXPECT_EQ(Get("/root/" + std::string(100000, 'x'), &read), XMLLIB_NO_SUCH_KEY);
    EXPECT_EQ(read, 12345u);
}

TEST_F(TnwXml, ASectionIsNoNumber)
{
    DWORD read = 0;
    ASSERT_EQ(Load(), XMLLIB_OK);
    for (const char* key : { "/root/diskperf/log", "/root/diskperf", "/root" }) {
        EXPECT_EQ(Get(key, &read), XMLLIB_NO_NUMBER) << key;
    }
}

TEST_F(TnwXml, AKeyWithoutAPolicyIsReadWithoutARange)
{
    DWORD read = 0;
    Config("<root><diskperf><log><colour>4294967295</colour></log></diskperf><other><x>3</x><x>4</x></other></root>");
    EXPECT_EQ(LoadAndGet("/root/diskperf/log/colour", &read), XMLLIB_OK);
    EXPECT_EQ(read, 4294967295u);
    EXPECT_EQ(Get("/root/other/x", &read), XMLLIB_OK) << "the first of several";
    EXPECT_EQ(read, 3u);
}

TEST_F(TnwXml, OneWrongValueDoesNotHideTheOthers)
{
    DWORD read = 0;
    Config("<root><diskperf><log><level>x</level><size>100</size></log></diskperf></root>");
    EXPECT_EQ(LoadAndGet("/root/diskperf/log/level", &read), XMLLIB_NO_NUMBER);
    EXPECT_EQ(Get("/root/diskperf/log/size", &read), XMLLIB_OK);
    EXPECT_EQ(read, 100u);
}

TEST_F(TnwXml, AKeyIsFoundBehindOtherSectionsAndComments)
{
    DWORD read = 0;
    Config("<?xml version='1.0'?><!-- a --><root a='1' b=\"2\">text<!-- b --><other><log><level>1</level></log></other>"
           "<diskperf x='>'><!-- <log><level>2</level></log> --><![CDATA[<log><level>3</level></log>]]>"
           "<log\n><level\t a='1' >6</level\n></log ></diskperf></root><!-- c -->\n");
    EXPECT_EQ(LoadAndGet("/root/diskperf/log/level", &read), XMLLIB_OK);
    EXPECT_EQ(read, 6u);
}
