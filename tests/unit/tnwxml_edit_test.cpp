/* What xmllib_edit makes of a file's bytes. Each expected text is the old one with the change typed into it by hand. */
#include "unit/tnwxml_fixture.h"
#include "support/seed.h"

static const char LEVEL[] = "/root/diskperf/log/level";
static const char LOG_SIZE[] = "/root/diskperf/log/size";
static const char INTERVAL[] = "/root/diskperf/parameters/collectinterval";
static const char MASK[] = "/root/diskperf/parameters/collectparam";

class Edit : public TnwXml {
protected:
    // The bytes with one value put in; the status in words where it is refused.
    std::string With(std::string_view bytes, const char* key, const char* value)
    {
        std::string text;
        Config(bytes);
        const DWORD status = TnwXml::Edit({ { key, value } }, &text);
        return status == XMLLIB_OK ? text : "refused: " + std::string(edit_finding.szReason);
    }
};

struct Put {
    const char* name;
    const char* key;
    const char* value;
    const char* before;
    const char* after;
};

class PutIn : public Edit, public testing::WithParamInterface<Put> {};

INSTANTIATE_TEST_SUITE_P(
    Value, PutIn,
    testing::Values(
        Put{ "alone", LEVEL, "15", "<root><diskperf><log><level>7</level></log></diskperf></root>",
             "<root><diskperf><log><level>15</level></log></diskperf></root>" },
        Put{ "among_blanks", LEVEL, "0xf", "<root><diskperf><log><level>\n\t 7 \r\n</level></log></diskperf></root>\n",
             "<root><diskperf><log><level>\n\t 0xf \r\n</level></log></diskperf></root>\n" },
        Put{ "beside_comments", LEVEL, "3",
             "<root><diskperf><log><level><!-- a -->7<!-- b --></level></log></diskperf></root>",
             "<root><diskperf><log><level><!-- a -->3<!-- b --></level></log></diskperf></root>" },
        Put{ "in_cdata", LEVEL, "3", "<root><diskperf><log><level><![CDATA[ 7 ]]></level></log></diskperf></root>",
             "<root><diskperf><log><level><![CDATA[ 3 ]]></level></log></diskperf></root>" },
        Put{ "of_an_element_with_attributes", LEVEL, "3",
             "<root><diskperf><log><level a='>' b=\"/\">7</level ></log></diskperf></root>",
             "<root><diskperf><log><level a='>' b=\"/\">3</level ></log></diskperf></root>" },
        Put{ "behind_one_in_a_comment", LEVEL, "3",
             "<root><!-- <level>7</level> --><diskperf><log><level>7</level></log></diskperf></root>",
             "<root><!-- <level>7</level> --><diskperf><log><level>3</level></log></diskperf></root>" },
        Put{ "that_is_wrong", LEVEL, "3", "<root><diskperf><log><level>often</level></log></diskperf></root>",
             "<root><diskperf><log><level>3</level></log></diskperf></root>" },
        Put{ "that_is_empty", LEVEL, "3", "<root><diskperf><log><level></level></log></diskperf></root>",
             "<root><diskperf><log><level>3</level></log></diskperf></root>" },
        Put{ "that_is_blank", LEVEL, "3", "<root><diskperf><log><level> <!-- none --> </level></log></diskperf></root>",
             "<root><diskperf><log><level>3 <!-- none --> </level></log></diskperf></root>" },
        Put{ "of_an_empty_tag", LEVEL, "3", "<root><diskperf><log><level a='/>' /></log></diskperf></root>",
             "<root><diskperf><log><level a='/>' >3</level></log></diskperf></root>" },
        Put{ "with_unknown_keys_around", LEVEL, "3",
             "<root><x>&lt;</x><diskperf><colour>1</colour><log><levle>1</levle><level>7</level></log></diskperf></"
             "root>",
             "<root><x>&lt;</x><diskperf><colour>1</colour><log><levle>1</levle><level>3</level></log></diskperf></"
             "root>" }),
    [](const auto& param) { return std::string(param.param.name); });

INSTANTIATE_TEST_SUITE_P(
    MissingKey, PutIn,
    testing::Values(
        Put{ "behind_its_neighbours", LEVEL, "3",
             "<root>\n  <diskperf>\n    <log>\n      <size>64</size> <!-- small -->\n    </log>\n  "
             "</diskperf>\n</root>\n",
             "<root>\n  <diskperf>\n    <log>\n      <size>64</size> <!-- small -->\n      <level>3</level>\n"
             "    </log>\n  </diskperf>\n</root>\n" },
        Put{ "behind_the_last_comment", LEVEL, "3",
             "<root>\n\t<diskperf>\n\t\t<log>\n\t\t\t<size>64</size>\n\t\t\t<!-- the end "
             "-->\n\t\t</log>\n\t</diskperf>\n</root>",
             "<root>\n\t<diskperf>\n\t\t<log>\n\t\t\t<size>64</size>\n\t\t\t<!-- the end -->\n\t\t\t<level>3</level>\n"
             "\t\t</log>\n\t</diskperf>\n</root>" },
        Put{ "with_cr_lf", LEVEL, "3",
             "<root>\r\n <diskperf>\r\n  <log>\r\n   <size>64</size>\r\n  </log>\r\n </diskperf>\r\n</root>\r\n",
             "<root>\r\n <diskperf>\r\n  <log>\r\n   <size>64</size>\r\n   <level>3</level>\r\n  </log>\r\n"
             " </diskperf>\r\n</root>\r\n" },
        Put{ "in_a_section_without_keys", LEVEL, "3",
             "<root>\n  <diskperf>\n    <log>\n    </log>\n  </diskperf>\n</root>\n",
             "<root>\n  <diskperf>\n    <log>\n      <level>3</level>\n    </log>\n  </diskperf>\n</root>\n" },
        Put{ "in_an_empty_section", LEVEL, "3", "<root>\n  <diskperf>\n    <log></log>\n  </diskperf>\n</root>\n",
             "<root>\n  <diskperf>\n    <log>\n      <level>3</level>\n    </log>\n  </diskperf>\n</root>\n" },
        Put{ "in_an_empty_tag", LEVEL, "3", "<root>\n  <diskperf>\n    <log/>\n  </diskperf>\n</root>\n",
             "<root>\n  <diskperf>\n    <log>\n      <level>3</level>\n    </log>\n  </diskperf>\n</root>\n" },
        Put{ "in_one_line", LEVEL, "3", "<root><diskperf><log><size>64</size></log></diskperf></root>",
             "<root><diskperf><log><size>64</size><level>3</level></log></diskperf></root>" },
        Put{ "in_an_empty_tag_in_one_line", LEVEL, "3", "<root><diskperf><log a='1' /></diskperf></root>",
             "<root><diskperf><log a='1' ><level>3</level></log></diskperf></root>" },
        Put{ "in_front_of_a_closing_tag_behind_text", LEVEL, "3",
             "<root>\n<diskperf>\n<log><size>64</size>\n<!-- a --></log></diskperf>\n</root>",
             "<root>\n<diskperf>\n<log><size>64</size>\n<!-- a --><level>3</level></log></diskperf>\n</root>" },
        Put{ "not_in_the_section_of_another", LEVEL, "3",
             "<root>\n  <other>\n    <log>\n    </log>\n  </other>\n  <diskperf>\n    <log>\n    </log>\n  "
             "</diskperf>\n</root>",
             "<root>\n  <other>\n    <log>\n    </log>\n  </other>\n  <diskperf>\n    <log>\n      <level>3</level>\n"
             "    </log>\n  </diskperf>\n</root>" },
        Put{ "not_in_a_section_in_a_comment", LEVEL, "3",
             "<root>\n  <diskperf>\n    <!-- <log>\n    </log> -->\n    <log>\n    <!--</log>-->\n    </log>\n  "
             "</diskperf>\n</root>",
             "<root>\n  <diskperf>\n    <!-- <log>\n    </log> -->\n    <log>\n    <!--</log>-->\n      "
             "<level>3</level>\n"
             "    </log>\n  </diskperf>\n</root>" }),
    [](const auto& param) { return std::string(param.param.name); });

INSTANTIATE_TEST_SUITE_P(
    MissingSection, PutIn,
    testing::Values(
        Put{
            "behind_the_other_one", LEVEL, "3",
            "<root>\n  <diskperf>\n    <parameters>\n    </parameters>\n  </diskperf>\n</root>\n",
            "<root>\n  <diskperf>\n    <parameters>\n    </parameters>\n    <log>\n      <level>3</level>\n    </log>\n"
            "  </diskperf>\n</root>\n" },
        Put{ "of_the_component", LEVEL, "3", "<root>\n  <other/>\n</root>\n",
             "<root>\n  <other/>\n  <diskperf>\n    <log>\n      <level>3</level>\n    </log>\n  "
             "</diskperf>\n</root>\n" },
        Put{ "in_the_smallest_file", LEVEL, "3", "<root/>",
             "<root>\r\n    <diskperf>\r\n        <log>\r\n            <level>3</level>\r\n        </log>\r\n"
             "    </diskperf>\r\n</root>" },
        Put{ "in_the_smallest_file_with_a_mark_and_a_line_end", LEVEL, "3", "\xEF\xBB\xBF<root></root>\n",
             "\xEF\xBB\xBF<root>\n    <diskperf>\n        <log>\n            <level>3</level>\n        </log>\n"
             "    </diskperf>\n</root>\n" },
        Put{ "in_one_line", LEVEL, "3", "<?xml version='1.0'?><root><diskperf/></root>",
             "<?xml version='1.0'?><root><diskperf><log><level>3</level></log></diskperf></root>" }),
    [](const auto& param) { return std::string(param.param.name); });

TEST_P(PutIn, LeavesAllOtherBytes)
{
    const std::string after = With(GetParam().before, GetParam().key, GetParam().value);
    EXPECT_EQ(after, GetParam().after);
    // What the library writes it reads, and once more changes nothing.
    DWORD read = 0;
    DWORD wanted = strtoul(GetParam().value, nullptr, 0);
    Config(after);
    EXPECT_EQ(LoadAndGet(GetParam().key, &read), XMLLIB_OK);
    EXPECT_EQ(read, wanted);
    EXPECT_EQ(With(after, GetParam().key, GetParam().value), after);
}

TEST_P(PutIn, KeepsAByteOrderMark)
{
    if (strncmp(GetParam().before, "\xEF\xBB\xBF", 3) != 0) {
        EXPECT_EQ(With("\xEF\xBB\xBF" + std::string(GetParam().before), GetParam().key, GetParam().value),
                  "\xEF\xBB\xBF" + std::string(GetParam().after));
    }
}

TEST_F(Edit, SeveralValuesGoInTogether)
{
    std::string text;
    Config("<root>\n <diskperf>\n  <log>\n   <level>7</level>\n  </log>\n </diskperf>\n</root>\n");
    EXPECT_EQ(TnwXml::Edit({ { LOG_SIZE, "0x80" }, { LEVEL, "1" }, { INTERVAL, "2" }, { MASK, "0x1" } }, &text),
              XMLLIB_OK);
    EXPECT_EQ(text, "<root>\n <diskperf>\n  <log>\n   <level>1</level>\n   <size>0x80</size>\n  </log>\n"
                    "  <parameters>\n   <collectinterval>2</collectinterval>\n   <collectparam>0x1</collectparam>\n"
                    "  </parameters>\n </diskperf>\n</root>\n");
}

TEST_F(Edit, OfNothingGivesTheFileAsItIs)
{
    std::string text;
    EXPECT_EQ(TnwXml::Edit({}, &text), XMLLIB_OK);
    EXPECT_EQ(text, DefaultConfiguration(home));
}

TEST_F(Edit, WritesNoFileAndKeepsNothing)
{
    const std::string before = DefaultConfiguration(home);
    std::string       text;
    EXPECT_EQ(TnwXml::Edit({ { LEVEL, "1" } }, &text), XMLLIB_OK);
    EXPECT_NE(text, before);
    EXPECT_EQ(DefaultConfiguration(home), before);
    EXPECT_EQ(home.List(L"etc"), (std::vector<std::wstring>{ L"cluster.xml", L"policy" }));
    EXPECT_EQ(term(), XMLLIB_WRONG_ORDER);
}

TEST_F(Edit, RefusesAValueThatThePolicyDoesNotAllow)
{
    std::string text;
    EXPECT_EQ(TnwXml::Edit({ { LEVEL, "1" }, { INTERVAL, "3601" } }, &text), XMLLIB_OUT_OF_RANGE);
    EXPECT_STREQ(edit_finding.szKey, INTERVAL);
    EXPECT_STREQ(edit_finding.szValue, "3601");
    EXPECT_STREQ(edit_finding.szReason, "The value 3601 is outside of the range 1 to 3600 s.");
    EXPECT_STREQ(edit_finding.szFile, "");
    EXPECT_EQ(edit_finding.dwLine, 0u);
    EXPECT_EQ(edit_finding.dwMin, 1u);
    EXPECT_EQ(edit_finding.dwMax, 3600u);
    for (const char* value :
         { "", " 1", "1 ", "-1", "+1", "0x", "1e3", "1.0", "4294967297", "</level>", "1</level><x/>" }) {
        EXPECT_EQ(TnwXml::Edit({ { LEVEL, value } }, &text), XMLLIB_NO_NUMBER) << value;
        EXPECT_STREQ(edit_finding.szValue, value);
    }
}

TEST_F(Edit, RefusesAKeyThatThePolicyDoesNotKnow)
{
    std::string text;
    Config("<root><diskperf><colour>1</colour></diskperf></root>");
    for (const char* key :
         { "/root/diskperf/colour", "/root/diskperf/log", "log/level", "", "/", "/root/diskperf/log/level/" }) {
        EXPECT_EQ(TnwXml::Edit({ { key, "1" } }, &text), XMLLIB_NO_SUCH_KEY) << key;
        EXPECT_STREQ(edit_finding.szKey, key);
    }
}

TEST_F(Edit, RefusesWhatItCannotReplaceAndSaysWhere)
{
    std::string text;
    for (const char* between : { "1<!-- a -->2", "<b>1</b>", "1<b/>" }) {
        Config("<root><diskperf><log>\n <level>" + std::string(between) + "</level></log></diskperf></root>");
        EXPECT_EQ(TnwXml::Edit({ { LEVEL, "1" } }, &text), XMLLIB_NO_NUMBER) << between;
        EXPECT_STREQ(edit_finding.szKey, LEVEL);
        EXPECT_EQ(edit_finding.szFile, home.PlainPath(L"etc\\cluster.xml"));
        EXPECT_EQ(edit_finding.dwLine, 2u);
        EXPECT_EQ(edit_finding.dwColumn, 3u);
    }
}

TEST_F(Edit, RefusesAFileThatLoadingWouldRefuse)
{
    std::string text;
    for (const char* bytes : { "", "<root>", "<!DOCTYPE root><root/>", "<other/>", "<root><a/></root>\x01" }) {
        Config(bytes);
        EXPECT_EQ(TnwXml::Edit({ { LEVEL, "1" } }, &text), XMLLIB_NOT_WELL_FORMED) << bytes;
    }
    Config("<root><diskperf/><diskperf/></root>");
    EXPECT_EQ(TnwXml::Edit({ { LEVEL, "1" } }, &text), XMLLIB_KEY_TWICE);
    home.Remove(L"etc\\cluster.xml");
    EXPECT_EQ(TnwXml::Edit({ { LEVEL, "1" } }, &text), XMLLIB_NO_FILE);
    home.Write(L"etc\\policy\\diskperf.xml", "<policy component='diskperf'/>");
    EXPECT_EQ(TnwXml::Edit({ { LEVEL, "1" } }, &text), XMLLIB_BAD_POLICY);
}

TEST_F(Edit, RefusesToMakeAFileThatNobodyWouldRead)
{
    const std::string start = "<root><diskperf><log><level>7</level></log></diskperf><!--";
    const std::string end = "--></root>";
    const std::string full = start + std::string(XMLLIB_FILE_MAX - start.size() - end.size(), 'x') + end;
    std::string       text;

    Config(full);
    EXPECT_EQ(TnwXml::Edit({ { LEVEL, "8" } }, &text), XMLLIB_OK);
    EXPECT_EQ(text.size(), XMLLIB_FILE_MAX);
    EXPECT_EQ(TnwXml::Edit({ { LEVEL, "10" } }, &text), XMLLIB_NOT_WELL_FORMED);
    EXPECT_STREQ(edit_finding.szReason, "The file would become larger than 1048576 bytes.");
}

TEST_F(Edit, RefusesArgumentsThatAreMissing)
{
    const XMLLIB_CHANGE change = { LEVEL, "1" };
    const XMLLIB_CHANGE noKey = { nullptr, "1" };
    const XMLLIB_CHANGE noValue = { LEVEL, nullptr };
    std::string         text(XMLLIB_FILE_MAX, '\0');
    DWORD               size = XMLLIB_FILE_MAX;
    DWORD               small = XMLLIB_FILE_MAX - 1;
    XMLLIB_FINDING      finding = {};

    EXPECT_EQ(edit("diskperf", nullptr, &change, 1, &text[0], &size, nullptr), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(edit(nullptr, nullptr, &change, 1, &text[0], &size, &finding), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(edit("..", nullptr, &change, 1, &text[0], &size, &finding), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(edit("diskperf", nullptr, nullptr, 1, &text[0], &size, &finding), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(edit("diskperf", nullptr, &noKey, 1, &text[0], &size, &finding), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(edit("diskperf", nullptr, &noValue, 1, &text[0], &size, &finding), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(edit("diskperf", nullptr, &change, 1, nullptr, &size, &finding), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(edit("diskperf", nullptr, &change, 1, &text[0], nullptr, &finding), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(edit("diskperf", nullptr, &change, 1, &text[0], &small, &finding), XMLLIB_INVALID_ARGUMENT);
    EXPECT_EQ(finding.dwStatus, XMLLIB_INVALID_ARGUMENT);
}

// Files that people have changed in all sorts of ways: what is edited is accepted, gives the value that was put in and
// all others as before, and differs from the old file in one place alone.
TEST_F(Edit, OfFilesChangedByHandTouchesOneValueAlone)
{
    static const char* const PIECES[] = { "<!-- c -->", "\n", "\r\n", "\t", "  ", "<x/>", "<?p q?>", "<x>1</x>" };
    const std::string        whole = DefaultConfiguration(home);
    std::mt19937             random(TestSeed());
    int                      edited = 0;
    int                      inserted = 0;

    for (int n = 0; n < 1500; n++) {
        SCOPED_TRACE("file " + std::to_string(n));
        std::string bytes = whole;
        for (unsigned change = random() % 4; change > 0; change--) {
            // A whole line, which is a key or half a section, goes; or something comes between two tags.
            const size_t line = bytes.find('\n', random() % bytes.size());
            if (random() % 2 == 0 && line != std::string::npos) {
                bytes.erase(line + 1, bytes.find('\n', line + 1) - line);
            } else {
                const size_t tag = bytes.find('<', random() % bytes.size());
                bytes.insert(tag == std::string::npos ? 0 : tag, PIECES[random() % std::size(PIECES)]);
            }
        }
        Config(bytes);
        const XMLLIB_REPORT before = Check();
        if (before.finding.dwStatus != XMLLIB_OK) {
            continue;
        }
        const XMLLIB_SETTING& setting = before.setting[random() % before.dwSettings];
        const DWORD           value = setting.dwMin + random() % (setting.dwMax - setting.dwMin + 1);
        std::string           text;
        ASSERT_EQ(TnwXml::Edit({ { setting.szKey, std::to_string(value) } }, &text), XMLLIB_OK)
            << edit_finding.szReason << "\n"
            << bytes;
        Config(text);
        const XMLLIB_REPORT after = Check();
        ASSERT_EQ(after.finding.dwStatus, XMLLIB_OK) << after.finding.szReason << "\n" << text;
        for (DWORD other = 0; other < after.dwSettings; other++) {
            const bool itself = strcmp(after.setting[other].szKey, setting.szKey) == 0;
            ASSERT_EQ(after.setting[other].dwValue, itself ? value : before.setting[other].dwValue) << text;
            ASSERT_EQ(after.setting[other].bInFile, itself || before.setting[other].bInFile) << text;
        }
        ASSERT_EQ(after.dwUnknown, before.dwUnknown);
        // One place: what is equal in front and what is equal behind leave nothing but the old value.
        size_t front = 0;
        while (front < bytes.size() && front < text.size() && bytes[front] == text[front]) {
            front++;
        }
        size_t back = 0;
        while (back < bytes.size() - front && back < text.size() - front &&
               bytes[bytes.size() - 1 - back] == text[text.size() - 1 - back]) {
            back++;
        }
        const std::string gone = bytes.substr(front, bytes.size() - front - back);
        if (setting.bInFile) {
            ASSERT_EQ(gone.find_first_not_of("0123456789xf"), std::string::npos) << gone << "\n" << text;
            edited++;
        } else {
            ASSERT_EQ(gone, "") << text;
            inserted++;
        }
    }
    EXPECT_GT(edited, 300);
    EXPECT_GT(inserted, 30);
}
