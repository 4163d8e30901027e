/* Encodings, files cut off, damaged or hostile, and files that are just being saved. */
#include "unit/tnwxml_fixture.h"
#include "support/seed.h"

static const char LEVEL[] = "/root/diskperf/log/level";
static const char GOOD[] = "<root><diskperf><log><level>6</level></log></diskperf></root>";

/* ---- Encoding ---- */

TEST_F(TnwXml, Utf8WithAByteOrderMarkIsRead)
{
    DWORD read = 0;
    Config(std::string("\xEF\xBB\xBF<?xml version=\"1.0\" encoding='utf-8' standalone='yes' ?>") + GOOD);
    EXPECT_EQ(LoadAndGet(LEVEL, &read), XMLLIB_OK);
    EXPECT_EQ(read, 6u);
}

TEST_F(TnwXml, Utf16IsRefusedInWords)
{
    std::string little;
    std::string big;
    for (char c : std::string(GOOD)) {
        little += std::string{ c, '\0' };
        big += std::string{ '\0', c };
    }
    for (const std::string& bytes : { "\xFF\xFE" + little, "\xFE\xFF" + big, little, big, std::string("\xFF\xFE") }) {
        const XMLLIB_FINDING& finding = Finding(bytes);
        EXPECT_EQ(finding.dwStatus, XMLLIB_NOT_WELL_FORMED);
        EXPECT_STREQ(finding.szReason, "The file is encoded in UTF-16. Save it as UTF-8.");
        EXPECT_EQ(Load(), XMLLIB_NOT_WELL_FORMED);
    }
}

TEST_F(TnwXml, AnotherDeclaredEncodingIsRefusedInWords)
{
    for (const char* encoding : { "ISO-8859-1", "Shift_JIS", "UTF-16", "UTF-80", "" }) {
        const XMLLIB_FINDING& finding =
            Finding("<?xml version='1.0' encoding='" + std::string(encoding) + "'?><root/>");
        EXPECT_EQ(finding.dwStatus, XMLLIB_NOT_WELL_FORMED) << encoding;
        EXPECT_STREQ(finding.szReason, "The file declares another encoding than UTF-8. Save it as UTF-8.");
        EXPECT_EQ(finding.dwLine, 1u);
        EXPECT_EQ(finding.dwColumn, 21u);
    }
}

TEST_F(TnwXml, BytesThatAreNoUtf8AreRefusedWithTheirPlace)
{
    // A code page's letter, lone and missing followers, overlong forms, a surrogate, beyond the last character.
    for (const char* bytes : { "\xE9", "\x80", "\xC3", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE2\x82",
                               "\xED\xA0\x80", "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF" }) {
        const XMLLIB_FINDING& finding = Finding("<root>\n  <!-- " + std::string(bytes) + " -->\n</root>");
        EXPECT_EQ(finding.dwStatus, XMLLIB_NOT_WELL_FORMED);
        EXPECT_EQ(finding.dwLine, 2u);
        EXPECT_EQ(finding.dwColumn, 8u);
        EXPECT_NE(strstr(finding.szReason, "not in UTF-8"), nullptr) << finding.szReason;
    }
}

TEST_F(TnwXml, CharactersOfAllLengthsAreTaken)
{
    EXPECT_EQ(Finding("<root><!-- \x7F \xC2\x80 \xC3\xA9 \xE0\xA0\x80 \xE6\x97\xA5 \xEF\xBF\xBD \xF0\x9F\x98\x80 "
                      "\xF4\x8F\xBF\xBF -->"
                      "<\xC3\xA9t\xC3\xA9/></root>")
                  .dwStatus,
              XMLLIB_OK);
}

TEST_F(TnwXml, NulBytesAreRefused)
{
    for (size_t at : { size_t{ 7 }, size_t{ 30 }, sizeof(GOOD) - 1 }) {
        std::string bytes = GOOD;
        bytes.insert(at, 1, '\0');
        const XMLLIB_FINDING& finding = Finding(bytes);
        EXPECT_EQ(finding.dwStatus, XMLLIB_NOT_WELL_FORMED) << at;
        EXPECT_STREQ(finding.szReason, "The file holds a NUL byte. It is damaged, or no text.");
        EXPECT_EQ(finding.dwColumn, at + 1);
    }
}

TEST_F(TnwXml, ControlCharactersAreRefused)
{
    for (char c : { '\x01', '\x08', '\x0B', '\x1B', '\x1F' }) {
        EXPECT_EQ(Finding("<root>" + std::string(1, c) + "</root>").dwStatus, XMLLIB_NOT_WELL_FORMED)
            << static_cast<int>(c);
    }
}

/* ---- Form ---- */

TEST_F(TnwXml, AnEmptyFileIsRefused)
{
    for (const char* bytes : { "", "\xEF\xBB\xBF", " \r\n\t \n" }) {
        const XMLLIB_FINDING& finding = Finding(bytes);
        EXPECT_EQ(finding.dwStatus, XMLLIB_NOT_WELL_FORMED);
        EXPECT_STREQ(finding.szReason, "The file is empty.");
    }
}

TEST_F(TnwXml, AFileOfCommentsAloneIsRefused)
{
    EXPECT_STREQ(Finding("<?xml version='1.0'?><!-- nothing -->").szReason, "The file holds no element.");
    EXPECT_EQ(Check().finding.dwStatus, XMLLIB_NOT_WELL_FORMED);
}

struct Refused {
    const char* name;
    const char* bytes;
    DWORD       line;
    DWORD       column;
    const char* words;  // part of the sentence
};

class Form : public TnwXml, public testing::WithParamInterface<Refused> {};

INSTANTIATE_TEST_SUITE_P(
    Refused, Form,
    testing::Values(Refused{ "mismatched_tags", "<root>\n <a>\n </b>\n</root>", 3, 5, "does not match" },
                    Refused{ "crossed_tags", "<root><a><b></a></b></root>", 1, 16, "does not match" },
                    Refused{ "case_of_tags", "<root></Root>", 1, 13, "does not match" },
                    Refused{ "unclosed_element", "<root>\n<a>\n", 3, 1, "cut off" },
                    Refused{ "two_roots", "<root/>\n<root/>", 2, 2, "second root" },
                    Refused{ "root_and_another", "<root/><other/>", 1, 9, "second root" },
                    Refused{ "wrong_root", "<configuration/>", 1, 2, "must be named root" },
                    Refused{ "closing_without_opening", "<root/></root>", 1, 8, "no opening tag" },
                    Refused{ "text_before_root", "hello <root/>", 1, 1, "outside" },
                    Refused{ "text_behind_root", "<root/>\n hello", 2, 2, "outside" },
                    Refused{ "cdata_before_root", "<![CDATA[x]]><root/>", 1, 1, "CDATA" },
                    Refused{ "doctype", "<!DOCTYPE root>\n<root/>", 1, 1, "DOCTYPE" },
                    Refused{ "unknown_declaration", "<root><!ELEMENT a></root>", 1, 7, "Neither a comment" },
                    Refused{ "open_comment", "<root><!-- a</root>", 1, 7, "not closed with -->" },
                    Refused{ "dashes_in_comment", "<root><!-- a -- b --></root>", 1, 14, "--" },
                    Refused{ "open_cdata", "<root><![CDATA[ a</root>", 1, 7, "not closed with ]]>" },
                    Refused{ "lone_cdata_end", "<root>]]></root>", 1, 7, "]]>" },
                    Refused{ "open_instruction", "<root><?a </root>", 1, 7, "not closed with ?>" },
                    Refused{ "late_declaration", "\n<?xml version='1.0'?><root/>", 2, 1, "very start" },
                    Refused{ "second_declaration", "<?xml version='1.0'?><?xml version='1.0'?><root/>", 1, 22,
                             "very start" },
                    Refused{ "bare_less_than", "<root>1 < 2</root>", 1, 10, "name" },
                    Refused{ "name_with_digit_first", "<root><1/></root>", 1, 8, "name" },
                    Refused{ "bare_ampersand", "<root>a & b</root>", 1, 9, "&amp;" },
                    Refused{ "unknown_entity", "<root>&nbsp;</root>", 1, 7, "no entities" },
                    Refused{ "open_reference", "<root>&#12</root>", 1, 7, "no entities" },
                    Refused{ "empty_reference", "<root>&#;&#x;</root>", 1, 7, "no entities" },
                    Refused{ "attribute_without_value", "<root a></root>", 1, 8, "needs =" },
                    Refused{ "attribute_without_quotes", "<root a=1></root>", 1, 9, "quotes" },
                    Refused{ "open_quote", "<root a='1>", 1, 9, "not closed" },
                    Refused{ "missing_quote", "<root a='1><b c='2'/></root>", 1, 12, "quote is missing" },
                    Refused{ "dashes_at_end_of_comment", "<root><!-- a ---></root>", 1, 14, "--" },
                    Refused{ "less_than_in_attribute", "<root a='<'></root>", 1, 10, "&lt;" },
                    Refused{ "entity_in_attribute", "<root a='&x;'></root>", 1, 10, "no entities" },
                    Refused{ "attribute_twice", "<root a='1' b='2' a='3'/>", 1, 19, "twice" },
                    Refused{ "attributes_without_blank", "<root a='1'b='2'/>", 1, 12, "blank" },
                    Refused{ "quote_in_name", "<root><a\"></a\"></root>", 1, 9, "blank" },
                    Refused{ "slash_in_tag", "<root / ></root>", 1, 8, "must end with >" },
                    Refused{ "tag_cut_off", "<root", 1, 6, "cut off" }),
    [](const auto& param) { return std::string(param.param.name); });

TEST_P(Form, IsRefusedWithPlaceAndWords)
{
    const XMLLIB_FINDING& finding = Finding(GetParam().bytes);
    EXPECT_EQ(finding.dwStatus, XMLLIB_NOT_WELL_FORMED);
    EXPECT_EQ(finding.dwLine, GetParam().line);
    EXPECT_EQ(finding.dwColumn, GetParam().column);
    EXPECT_NE(strstr(finding.szReason, GetParam().words), nullptr) << finding.szReason;
    EXPECT_EQ(Load(), XMLLIB_NOT_WELL_FORMED);
}

TEST_F(TnwXml, TheDefaultFileCutOffAnywhereIsRefusedOrEqual)
{
    const std::string   whole = DefaultConfiguration(home);
    const size_t        end = whole.rfind("</root>") + strlen("</root>");
    const XMLLIB_REPORT expected = Check();

    ASSERT_GT(end, 300u);
    for (size_t size = 0; size <= whole.size(); size++) {
        Config(std::string_view(whole).substr(0, size));
        const XMLLIB_REPORT& report = Check();
        if (size < end) {
            ASSERT_EQ(report.finding.dwStatus, XMLLIB_NOT_WELL_FORMED) << size;
            ASSERT_EQ(Load(), XMLLIB_NOT_WELL_FORMED) << size;
        } else {
            ASSERT_EQ(memcmp(&report, &expected, sizeof(report)), 0) << size;
            ASSERT_EQ(Load(), XMLLIB_OK) << size;
        }
    }
}

// Whatever is done to the file: no crash, a documented status, and an accepted file gives values within their ranges.
TEST_F(TnwXml, DamagedFilesNeverGiveAValueOutsideItsRange)
{
    static const char* const PIECES[] = { "<",       ">",   "</",        "/>",  "\"",     "'",  "&",
                                          "<!--",    "-->", "<![CDATA[", "]]>", "<?xml ", "?>", "<root>",
                                          "</root>", "0",   "x",         "-",   " ",      "\n" };
    const std::string        whole = DefaultConfiguration(home);
    std::mt19937             random(TestSeed());
    int                      accepted = 0;

    for (int n = 0; n < 3000; n++) {
        std::string bytes = whole;
        for (unsigned change = random() % 3 + 1; change > 0; change--) {
            const size_t at = random() % bytes.size();
            switch (random() % 4) {
            case 0:
                bytes[at] = static_cast<char>(random() & 0xFF);
                break;
            case 1:
                bytes.erase(at, random() % 20 + 1);
                break;
            case 2:
                bytes.insert(at, PIECES[random() % std::size(PIECES)]);
                break;
            default:
                bytes.insert(at, bytes.substr(random() % bytes.size(), random() % 40));
            }
        }
        Config(bytes);
        const XMLLIB_REPORT& report = Check();
        const DWORD          status = report.finding.dwStatus;
        ASSERT_TRUE(status == XMLLIB_OK || status == XMLLIB_NOT_WELL_FORMED || status == XMLLIB_NO_NUMBER ||
                    status == XMLLIB_OUT_OF_RANGE || status == XMLLIB_KEY_TWICE)
            << status << "\n"
            << bytes;
        ASSERT_EQ(status == XMLLIB_OK, report.finding.szReason[0] == '\0');
        accepted += status == XMLLIB_OK;
        for (DWORD setting = 0; setting < report.dwSettings; setting++) {
            ASSERT_GE(report.setting[setting].dwValue, report.setting[setting].dwMin) << bytes;
            ASSERT_LE(report.setting[setting].dwValue, report.setting[setting].dwMax) << bytes;
        }
    }
    EXPECT_GT(accepted, 100) << "the changes left hardly a file whole";
    EXPECT_LT(accepted, 2000) << "the changes hardly damaged a file";
}

/* ---- Hostile files ---- */

static std::string Repeat(const char* text, size_t times)
{
    std::string all;
    for (size_t n = 0; n < times; n++) {
        all += text;
    }
    return all;
}

TEST_F(TnwXml, SixtyFourLevelsAreTakenAndOneMoreIsRefused)
{
    EXPECT_EQ(Finding("<root>" + Repeat("<a>", 63) + Repeat("</a>", 63) + "</root>").dwStatus, XMLLIB_OK);
    const XMLLIB_FINDING& finding = Finding("<root>" + Repeat("<a>", 64) + Repeat("</a>", 64) + "</root>");
    EXPECT_EQ(finding.dwStatus, XMLLIB_NOT_WELL_FORMED);
    EXPECT_STREQ(finding.szReason, "The elements are nested more than 64 levels deep.");
    EXPECT_EQ(finding.dwColumn, 6u + 63 * 3 + 1);
}

// Each of these makes the text look flat to one who takes quotes or ends of tags for something else than the parser
// does.
TEST_F(TnwXml, DepthCannotBeHiddenFromTheCount)
{
    const std::string deep = Repeat("<a>", 200000);
    for (const std::string& bytes : { "<root><a\">" + deep + "\"></root>", "<root><a b\">" + deep + "\"></root>",
                                      "<root><a b=\"\"\">" + deep + "\"></root>", "<?xml a=\"?>" + deep + "\"?><root/>",
                                      "<?p a=\"?>" + deep + "\"?><root/>", "<root><a b=\"" + deep + "\"/></root>",
                                      "<root></a\">" + deep + "\"></root>", "<root><!-->" + deep + "--></root>",
                                      "<root><!--->" + deep + "--></root>", "<root><![CDATA>" + deep + "]]></root>",
                                      "<root><![cdata[>" + deep + "]]></root>", "<!x \"" + deep + "\"><root/>",
                                      "<root><!x '>" + deep + "'></root>", "<root><a='>" + deep + "'></root>",
                                      "<root><a/b='>" + deep + "'/></root>" }) {
        // A comment or an instruction that swallows all of it is flat indeed; everything else must be refused.
        const DWORD status = Finding(bytes).dwStatus;
        const bool  flat = bytes.rfind("<root><!--", 0) == 0;
        EXPECT_EQ(status, flat ? XMLLIB_OK : XMLLIB_NOT_WELL_FORMED) << bytes.substr(0, 30);
    }
}

TEST_F(TnwXml, ExternalEntitiesAreRefused)
{
    EXPECT_EQ(Finding("<!DOCTYPE root SYSTEM 'file:///c:/windows/win.ini'><root/>").dwStatus, XMLLIB_NOT_WELL_FORMED);
}

TEST_F(TnwXml, OneMebibyteIsTakenAndOneByteMoreIsRefused)
{
    const std::string start = "<root><!--";
    const std::string end = "--></root>";
    const std::string filled = start + std::string(1048576 - start.size() - end.size(), 'x') + end;

    EXPECT_EQ(Finding(filled).dwStatus, XMLLIB_OK);
    EXPECT_EQ(Finding(filled + "\n").dwStatus, XMLLIB_NOT_WELL_FORMED);
    EXPECT_STREQ(Finding(filled + "\n").szReason, "The file is larger than 1048576 bytes.");
}

TEST_F(TnwXml, AMebibyteOfTheSmallestElementsIsReadAndCounted)
{
    const size_t elements = (1048576 - 40) / 4;
    Config("<root><diskperf>" + Repeat("<a/>", elements) + "</diskperf></root>");
    const XMLLIB_REPORT& report = Check();
    EXPECT_EQ(report.finding.dwStatus, XMLLIB_OK);
    EXPECT_EQ(report.dwUnknown, elements);
}

TEST_F(TnwXml, SixtyFourAttributesAreTakenAndOneMoreIsRefused)
{
    std::string attributes;
    for (int n = 0; n < 64; n++) {
        attributes += " a" + std::to_string(n) + "='1'";
    }
    EXPECT_EQ(Finding("<root" + attributes + "/>").dwStatus, XMLLIB_OK);
    EXPECT_EQ(Finding("<root" + attributes + " b='1'/>").dwStatus, XMLLIB_NOT_WELL_FORMED);
}

TEST_F(TnwXml, AVeryLongNameIsCutOffInTheReport)
{
    Config("<root><diskperf><log><" + std::string(500000, 'n') + "/></log></diskperf></root>");
    const XMLLIB_REPORT& report = Check();
    EXPECT_EQ(report.finding.dwStatus, XMLLIB_OK);
    ASSERT_EQ(report.dwUnknown, 1u);
    EXPECT_EQ(report.unknown[0].szKey, "/root/diskperf/log/" + std::string(95 - 19, 'n'));
}

/* ---- Files that are just being saved ---- */

TEST_F(TnwXml, AHalfSavedFileIsReadAgain)
{
    DWORD read = 0;
    Config(std::string(GOOD).substr(0, 40));
    during_wait = [this](size_t wait) {
        if (wait == 2) {
            Config(GOOD);
        }
    };
    EXPECT_EQ(LoadAndGet(LEVEL, &read), XMLLIB_OK);
    EXPECT_EQ(read, 6u);
    EXPECT_EQ(waits, (std::vector<DWORD>{ 50, 50 }));
}

TEST_F(TnwXml, AFileThatWasJustEmptiedIsReadAgain)
{
    Config("");
    during_wait = [this](size_t) { Config(GOOD); };
    EXPECT_EQ(Check().finding.dwStatus, XMLLIB_OK);
    EXPECT_EQ(waits, (std::vector<DWORD>{ 50 }));
}

TEST_F(TnwXml, AFileThatIsReplacedByDeletingItFirstIsReadAgain)
{
    home.Remove(L"etc\\cluster.xml");
    during_wait = [this](size_t) { Config(GOOD); };
    EXPECT_EQ(Load(), XMLLIB_OK);
    EXPECT_EQ(waits, (std::vector<DWORD>{ 50 }));
}

TEST_F(TnwXml, AFileThatIsHeldIsReadAgain)
{
    HANDLE held =
        CreateFileW(home.Path(L"etc\\cluster.xml").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    during_wait = [&held](size_t) {
        CloseHandle(held);
        held = nullptr;
    };
    EXPECT_EQ(Load(), XMLLIB_OK);
    EXPECT_EQ(waits, (std::vector<DWORD>{ 50 }));
    EXPECT_EQ(held, nullptr);
}

TEST_F(TnwXml, AFileThatStaysHeldIsRefusedAfterThreeReads)
{
    const HANDLE held =
        CreateFileW(home.Path(L"etc\\cluster.xml").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_STREQ(Check().finding.szReason, "The file cannot be opened: another program holds it.");
    EXPECT_EQ(waits, (std::vector<DWORD>{ 50, 50 }));
    EXPECT_EQ(Load(), XMLLIB_NO_FILE);
    CloseHandle(held);
}

TEST_F(TnwXml, AFileThatStaysBrokenIsRefusedAfterThreeReads)
{
    Config("<root>");
    EXPECT_EQ(Load(), XMLLIB_NOT_WELL_FORMED);
    EXPECT_EQ(waits, (std::vector<DWORD>{ 50, 50 }));
}

TEST_F(TnwXml, APolicyThatIsJustBeingInstalledIsReadAgain)
{
    home.Write(L"etc\\policy\\diskperf.xml", "<policy component='diskperf'>");
    during_wait = [this](size_t) { home.Write(L"etc\\policy\\diskperf.xml", MINIMAL_POLICY); };
    EXPECT_EQ(Load(), XMLLIB_OK);
    EXPECT_EQ(waits, (std::vector<DWORD>{ 50 }));
}

TEST_F(TnwXml, AWrongValueIsNoReasonToReadAgain)
{
    ConfigWith(LEVEL, "x");
    EXPECT_EQ(Check().finding.dwStatus, XMLLIB_NO_NUMBER);
    EXPECT_TRUE(waits.empty());
}

TEST_F(TnwXml, AProgramThatKeepsTheFileOpenForWritingDoesNotHinder)
{
    const HANDLE held = CreateFileW(home.Path(L"etc\\cluster.xml").c_str(), GENERIC_READ | GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Load(), XMLLIB_OK);
    EXPECT_TRUE(waits.empty());
    CloseHandle(held);
}

TEST_F(TnwXml, AFolderInTheFilesPlaceIsNoFile)
{
    home.Remove(L"etc\\cluster.xml");
    home.MakeFolder(L"etc\\cluster.xml");
    EXPECT_EQ(Load(), XMLLIB_NO_FILE);
    EXPECT_STREQ(Check().finding.szReason, "The file cannot be opened: access is denied.");
}
