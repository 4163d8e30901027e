/*
 * Reading the nine settings.
 */
#include "unit/lifecycle_fixture.h"

#include <cstring>

namespace {
/* The nine keys in the order of reading, the field each fills and its line with the value 1. */
struct Setting {
    const char* key;
    DWORD DKPF_CONF::*field;
    const char*       name;
};
const Setting settings[] = {
    { "parameters/perfenable", &DKPF_CONF::perf_enable, "perfenable" },
    { "parameters/perflogsave", &DKPF_CONF::perf_log_save, "perflogsave" },
    { "parameters/perflogsize", &DKPF_CONF::perf_log_size, "perflogsize" },
    { "parameters/perflogrotation", &DKPF_CONF::perf_log_rotation, "perflogrotation" },
    { "parameters/collectinterval", &DKPF_CONF::collect_interval, "collectinterval" },
    { "parameters/writeinterval", &DKPF_CONF::write_interval, "writeinterval" },
    { "parameters/collectparam", &DKPF_CONF::collect_param, "collectparam" },
    { "log/level", &DKPF_CONF::log_level, "loglevel" },
    { "log/size", &DKPF_CONF::log_size, "logsize" },
};

const char enter[] = "diskperf 8 _DkpfGetConfig: ENTER";
const char success[] = "diskperf 8 _DkpfGetConfig: EXIT<TRUE><0xb0000000>";
}  // namespace

class GetConfig : public LinesTest {
protected:
    void SetUp() override
    {
        LinesTest::SetUp();
        memset(&conf, 0xA5, sizeof conf);
        before = conf;
    }

    Strings Calls() const
    {
        Strings result;
        for (const Call& call : journal.All()) {
            if (call.name != "log_write") {
                result.push_back(call.name + "(" + call.args + ")");
            }
        }
        return result;
    }

    void ExpectRefused(DWORD expected)
    {
        EXPECT_FALSE(_DkpfGetConfig(&conf, &code));
        EXPECT_EQ(code, expected);
        EXPECT_EQ(memcmp(&conf, &before, sizeof conf), 0) << "the caller's record is written only as a whole";
        EXPECT_EQ(log.Texts("diskperf_conf"), Strings()) << "values are logged only when all were read";
    }

    DKPF_CONF conf, before;
    DWORD     code = 1;
};

TEST_F(GetConfig, ReadsNineKeysBetweenOpeningAndClosingInOrder)
{
    EXPECT_TRUE(_DkpfGetConfig(&conf, &code));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(Calls(), ConfigOpening + ConfigReads + ConfigClosing);
    ExpectNothingLeft();
}

TEST_F(GetConfig, EachKeyFillsItsOwnField)
{
    for (DWORD i = 0; i < 9; i++) {
        xml.Set(settings[i].key, 1001 + i);
    }
    EXPECT_TRUE(_DkpfGetConfig(&conf, &code));
    // perf_enable, perf_log_save, perf_log_size, perf_log_rotation, collect_interval, write_interval, log_level,
    // log_size, collect_param: the record's order is not that of the keys.
    const DWORD expected[9] = { 1001, 1002, 1003, 1004, 1005, 1006, 1008, 1009, 1007 };
    EXPECT_EQ(memcmp(&conf, expected, sizeof conf), 0);
    for (DWORD i = 0; i < 9; i++) {
        EXPECT_EQ(conf.*settings[i].field, 1001 + i) << settings[i].key;
    }
}

TEST_F(GetConfig, LogsTheNineValuesAsNoticesOfTheConfigurationLog)
{
    xml.Set("parameters/perfenable", 1);
    xml.Set("parameters/perflogsave", 0);
    xml.Set("parameters/perflogsize", 1024);
    xml.Set("parameters/perflogrotation", 3);
    xml.Set("parameters/collectinterval", 10);
    xml.Set("parameters/writeinterval", 60);
    xml.Set("parameters/collectparam", 0x1F0F3);
    xml.Set("log/level", 7);
    xml.Set("log/size", 2048);
    EXPECT_TRUE(_DkpfGetConfig(&conf, &code));
    EXPECT_EQ(Lines(), Strings({
                           enter,
                           "diskperf_conf 4 _DkpfGetConfig: perfenable = 1",
                           "diskperf_conf 4 _DkpfGetConfig: perflogsave = 0",
                           "diskperf_conf 4 _DkpfGetConfig: perflogsize = 1024",
                           "diskperf_conf 4 _DkpfGetConfig: perflogrotation = 3",
                           "diskperf_conf 4 _DkpfGetConfig: collectinterval = 10",
                           "diskperf_conf 4 _DkpfGetConfig: writeinterval = 60",
                           "diskperf_conf 4 _DkpfGetConfig: collectparam = 0x1f0f3",
                           "diskperf_conf 4 _DkpfGetConfig: loglevel = 7",
                           "diskperf_conf 4 _DkpfGetConfig: logsize = 2048",
                           success,
                       }));
}

TEST_F(GetConfig, TheValuesAreLoggedBeforeTheConfigurationIsUnloaded)
{
    EXPECT_TRUE(_DkpfGetConfig(&conf, &code));
    Strings order;
    for (const Call& call : journal.All()) {
        if (call.name == "xmllib_unload_config" || call.args.find(": logsize = ") != std::string::npos) {
            order.push_back(call.name);
        }
    }
    EXPECT_EQ(order, Strings({ "log_write", "xmllib_unload_config" }));
}

TEST_F(GetConfig, LinesNameTheUnitNotAPathOfTheBuildMachine)
{
    EXPECT_TRUE(_DkpfGetConfig(&conf, &code));
    for (const TraceLine& line : log.lines) {
        EXPECT_EQ(line.source, "diskperf/src/diskperf_common");
        EXPECT_GT(line.line, 0);
        EXPECT_EQ(line.message, 0u);
    }
}

TEST_F(GetConfig, AMissingCollectparamFailsTheWholeReadAndKeepsTheCallersRecord)
{
    xml.Remove("parameters/collectparam");
    ExpectRefused(0xB000000E);
    EXPECT_EQ(Calls(), ConfigOpening + Strings(ConfigReads.begin(), ConfigReads.begin() + 7) + ConfigClosing);
    EXPECT_EQ(Lines(),
              Strings({
                  enter,
                  "diskperf 1 _DkpfGetConfig:  xmllib_get_value(/root/diskperf/parameters/collectparam) failed. "
                  "(ErrCode=0x7)",
                  "diskperf 8 _DkpfGetConfig: EXIT<FALSE><0xb000000e>",
              }));
    ExpectNothingLeft();
}

TEST_F(GetConfig, EachKeyThatFailsEndsTheReadingThere)
{
    for (size_t i = 0; i < 9; i++) {
        std::string key = std::string("/root/diskperf/") + settings[i].key;
        journal.Clear();
        log.ClearLines();
        xml.failKey = { { key, XMLLIB_OUT_OF_RANGE } };
        ExpectRefused(0xB000000E);
        EXPECT_EQ(Calls(), ConfigOpening +
                               Strings(ConfigReads.begin(), ConfigReads.begin() + static_cast<ptrdiff_t>(i) + 1) +
                               ConfigClosing);
        EXPECT_EQ(Lines(ErrorLines),
                  Strings({ "diskperf 1 _DkpfGetConfig:  xmllib_get_value(" + key + ") failed. (ErrCode=0x9)" }));
        ExpectNothingLeft();
    }
}

TEST_F(GetConfig, ZeroIntervalsAndNegativeNumbersArePassedOnUnchanged)
{
    xml.Set("parameters/collectinterval", 0);
    xml.Set("parameters/writeinterval", static_cast<DWORD>(-5));
    xml.Set("parameters/perfenable", 77);
    xml.Set("parameters/collectparam", 0xFFFFFFFF);
    xml.Set("log/level", 0x80000000);
    EXPECT_TRUE(_DkpfGetConfig(&conf, &code));
    EXPECT_EQ(conf.collect_interval, 0u);
    EXPECT_EQ(conf.write_interval, 0xFFFFFFFBu);
    EXPECT_EQ(conf.perf_enable, 77u);
    EXPECT_EQ(conf.collect_param, 0xFFFFFFFFu);
    EXPECT_EQ(conf.log_level, 0x80000000u);
    EXPECT_EQ(log.Texts("diskperf_conf"),
              Strings({ "perfenable = 77", "perflogsave = 1", "perflogsize = 1024", "perflogrotation = 3",
                        "collectinterval = 0", "writeinterval = -5", "collectparam = 0xffffffff",
                        "loglevel = -2147483648", "logsize = 2048" }));
}

TEST_F(GetConfig, ALibraryThatCannotBeInitialisedIsNotTerminated)
{
    xml.Fail("xmllib_init", 1, XMLLIB_NO_MEMORY);
    ExpectRefused(0xB000000D);
    EXPECT_EQ(Calls(), Strings({ "xmllib_init(diskperf)" }));
    EXPECT_EQ(Lines(), Strings({
                           enter,
                           "diskperf 1 _DkpfGetConfig:  xmllib_init(DISKPERF) failed. (ErrCode=0x3)",
                           "diskperf 8 _DkpfGetConfig: EXIT<FALSE><0xb000000d>",
                       }));
}

TEST_F(GetConfig, AMissingPolicyUnloadsNothing)
{
    xml.Fail("xmllib_load_policy", 1, XMLLIB_NO_FILE);
    ExpectRefused(0xB000000E);
    EXPECT_EQ(Calls(), Strings({ "xmllib_init(diskperf)", "xmllib_load_policy(diskperf)", "xmllib_term()" }));
    EXPECT_EQ(Lines(), Strings({
                           enter,
                           "diskperf 1 _DkpfGetConfig:  xmllib_load_policy() failed. (ErrCode=0x4)",
                           "diskperf 8 _DkpfGetConfig: EXIT<FALSE><0xb000000e>",
                       }));
    ExpectNothingLeft();
}

TEST_F(GetConfig, ABrokenConfigurationUnloadsThePolicyAlone)
{
    xml.Fail("xmllib_load_config", 1, XMLLIB_NOT_WELL_FORMED);
    ExpectRefused(0xB000000E);
    EXPECT_EQ(Calls(), ConfigOpening + Strings({ "xmllib_unload_policy(diskperf)", "xmllib_term()" }));
    EXPECT_EQ(Lines(), Strings({
                           enter,
                           "diskperf 1 _DkpfGetConfig:  xmllib_load_config() failed. (ErrCode=0x5)",
                           "diskperf 8 _DkpfGetConfig: EXIT<FALSE><0xb000000e>",
                       }));
    ExpectNothingLeft();
}

TEST_F(GetConfig, OnlyTheLow32BitsOfAStatusCount)
{
    const XMLLIB_STATUS warning = static_cast<XMLLIB_STATUS>(1) << 32;
    for (const char* routine : { "xmllib_unload_config", "xmllib_unload_policy", "xmllib_term" }) {
        xml.Fail(routine, 1, warning);
    }
    xml.Fail("xmllib_init", 1, warning);
    xml.Fail("xmllib_load_policy", 1, warning);
    xml.Fail("xmllib_load_config", 1, warning);
    for (unsigned i = 1; i <= 9; i++) {
        xml.Fail("xmllib_get_value", i, warning);
    }
    EXPECT_TRUE(_DkpfGetConfig(&conf, &code));
    EXPECT_EQ(Calls(), ConfigOpening + ConfigReads + ConfigClosing);
    EXPECT_EQ(log.Errors(), Strings());
}

TEST_F(GetConfig, AFailureIsPrintedWithTheLow32BitsOfItsStatus)
{
    xml.Fail("xmllib_load_config", 1, (static_cast<XMLLIB_STATUS>(0x12) << 32) | 0x80070005);
    ExpectRefused(0xB000000E);
    EXPECT_EQ(log.Errors(), Strings({ " xmllib_load_config() failed. (ErrCode=0x80070005)" }));
}

TEST_F(GetConfig, FailuresOfClosingAreLoggedAndChangeNothingElse)
{
    xml.Fail("xmllib_unload_config", 1, 0x21);
    xml.Fail("xmllib_unload_policy", 1, 0x22);
    xml.Fail("xmllib_term", 1, 0x23);
    EXPECT_TRUE(_DkpfGetConfig(&conf, &code));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(conf.perf_log_size, 1024u);
    EXPECT_EQ(Calls(), ConfigOpening + ConfigReads + ConfigClosing)
        << "one failure does not keep the others from closing";
    EXPECT_EQ(Lines(ErrorLines), Strings({
                                     "diskperf 1 _DkpfGetConfig:  xmllib_unload_config() failed. (ErrCode=0x21)",
                                     "diskperf 1 _DkpfGetConfig:  xmllib_unload_policy() failed. (ErrCode=0x22)",
                                     "diskperf 1 _DkpfGetConfig:  xmllib_term() failed. (ErrCode=0x23)",
                                 }));
    EXPECT_EQ(Lines(8), Strings({ enter, success }));
}

TEST_F(GetConfig, AFailedReadKeepsItsCodeWhenClosingFailsToo)
{
    xml.Remove("log/size");
    xml.Fail("xmllib_unload_config", 1, 0x21);
    xml.Fail("xmllib_unload_policy", 1, 0x22);
    xml.Fail("xmllib_term", 1, 0x23);
    ExpectRefused(0xB000000E);
    EXPECT_EQ(Calls(), ConfigOpening + ConfigReads + ConfigClosing);
    EXPECT_EQ(log.Errors(), Strings({
                                " xmllib_get_value(/root/diskperf/log/size) failed. (ErrCode=0x7)",
                                " xmllib_unload_config() failed. (ErrCode=0x21)",
                                " xmllib_unload_policy() failed. (ErrCode=0x22)",
                                " xmllib_term() failed. (ErrCode=0x23)",
                            }));
}

/* A library may use the size as an output: the next read must not inherit it. */
static XMLLIB_STATUS GetValueSpoilingSize(const char* lpKey, DWORD dwType, void* lpValue, DWORD* lpdwSize)
{
    XMLLIB_STATUS status = XmlDouble::current->GetValue(lpKey, dwType, lpValue, lpdwSize);
    *lpdwSize = 1;
    return status;
}

TEST_F(GetConfig, TheSizeIsSetBeforeEachRead)
{
    ASSERT_TRUE(hooks.Replace("tnwxml.dll", WORD{ 13 }, Address(GetValueSpoilingSize)));
    EXPECT_TRUE(_DkpfGetConfig(&conf, &code));
    EXPECT_EQ(Calls(), ConfigOpening + ConfigReads + ConfigClosing);
}

TEST_F(GetConfig, WithoutLogsItReadsAllTheSame)
{
    CloseLogs();
    EXPECT_TRUE(_DkpfGetConfig(&conf, &code));
    EXPECT_EQ(conf.collect_param, 0x1FFFFu);
    for (const std::string& line : Lines()) {
        EXPECT_EQ(line[0], '-');
    }
}
