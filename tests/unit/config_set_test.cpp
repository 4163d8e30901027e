/*
 * dkpfctl config set on a file and an agent that the test plays: each step can be refused.
 */
#include <gmock/gmock.h>
#include <cstring>
#include <map>

#include "config_keys.h"
#include "config_set.h"
#include "config_text.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

XMLLIB_SETTING MakeSetting(const char* key, const char* unit, DWORD value, DWORD max, bool hex, bool restart)
{
    XMLLIB_SETTING setting{};
    strcpy(setting.szKey, key);
    strcpy(setting.szUnit, unit);
    strcpy(setting.szHelp, "What it means, in a sentence that is long enough to need a second line on the screen.");
    setting.dwValue = setting.dwDefault = value;
    setting.dwMax = max;
    setting.bInFile = TRUE;
    setting.bHex = hex;
    setting.bRestart = restart;
    return setting;
}

XMLLIB_REPORT Report()
{
    XMLLIB_REPORT report{};
    report.setting[0] = MakeSetting("/root/diskperf/parameters/perfenable", "", 1, 1, false, false);
    report.setting[1] = MakeSetting("/root/diskperf/parameters/perflogsave", "", 1, 1, false, false);
    report.setting[2] = MakeSetting("/root/diskperf/parameters/perflogsize", "KiB", 1024, 1048576, false, true);
    report.setting[3] = MakeSetting("/root/diskperf/parameters/collectinterval", "s", 10, 3600, false, true);
    report.setting[4] = MakeSetting("/root/diskperf/parameters/writeinterval", "s", 60, 86400, false, false);
    report.setting[5] = MakeSetting("/root/diskperf/parameters/collectparam", "", 0x1ffff, 0x1ffff, true, false);
    report.setting[6] = MakeSetting("/root/diskperf/log/level", "", 7, 0xffff, true, true);
    report.setting[7] = MakeSetting("/root/diskperf/log/size", "KiB", 2048, 1048576, false, true);
    report.dwSettings = 8;
    return report;
}

/* Its file is a list of the changes that went in: enough to tell an old content from a new one. */
class PlayedFile : public ConfigSetPorts {
public:
    XMLLIB_REPORT                report = Report();
    XMLLIB_FINDING               editFinding{};
    XMLLIB_FINDING               besideFinding{};
    bool                         besideDiffers = false;
    std::map<std::string, DWORD> errors;  // by step
    std::optional<AgentState>    running;
    std::string                  content = "old";
    std::string                  beside;
    std::vector<std::string>     steps;

    std::string File() override
    {
        return "C:\\home\\etc\\cluster.xml";
    }
    std::unique_ptr<XMLLIB_REPORT> Check() override
    {
        return std::make_unique<XMLLIB_REPORT>(report);
    }
    std::unique_ptr<XMLLIB_REPORT> CheckBeside() override
    {
        steps.emplace_back("check");
        auto after = std::make_unique<XMLLIB_REPORT>(report);
        after->finding = besideFinding;
        for (const ConfigChange& change : m_changes) {
            for (DWORD i = 0; i < after->dwSettings; i++) {
                if (change.key == after->setting[i].szKey && !besideDiffers) {
                    after->setting[i].dwValue = strtoul(change.value.c_str(), nullptr, 0);
                    after->setting[i].bInFile = TRUE;
                }
            }
        }
        return after;
    }
    DWORD Open() override
    {
        return Step("open");
    }
    DWORD Edit(const std::vector<ConfigChange>& changes, std::string* text, XMLLIB_FINDING* finding) override
    {
        *finding = changes.empty() ? XMLLIB_FINDING{} : editFinding;
        *text = "old";
        for (const ConfigChange& change : changes) {
            if (change.value != "same")
                *text += " " + change.key + "=" + change.value;
        }
        m_changes = changes;
        return finding->dwStatus;
    }
    DWORD Write(const std::string& text) override
    {
        beside = text;
        return Step("write");
    }
    DWORD KeepRights() override
    {
        return Step("rights");
    }
    DWORD Put() override
    {
        const DWORD error = Step("put");
        if (error == ERROR_SUCCESS)
            content = beside;
        return error;
    }
    std::optional<AgentState> RunningAgent() override
    {
        return running;
    }

    void Run(SettingValues inForce)
    {
        running = AgentState{};
        running->inForce = inForce;
    }

private:
    DWORD Step(const char* step)
    {
        steps.emplace_back(step);
        return errors[step];
    }

    std::vector<ConfigChange> m_changes;
};

constexpr SettingValues IN_FORCE = { 1, 1, 1024, 3, 10, 60, 0x1ffff, 7, 2048 };

}  // namespace

class ConfigSet : public testing::Test {
protected:
    SetOutcome Set(const std::vector<KeyValue>& values, bool reload = false)
    {
        return SetConfiguration(file, values, reload);
    }

    PlayedFile file;
};

TEST_F(ConfigSet, ChecksTheNewFileBeforeItTakesTheOldOnesPlace)
{
    const SetOutcome outcome = Set({ { "writeinterval", "30" }, { "log/level", "0xf" } });
    EXPECT_TRUE(outcome.done);
    EXPECT_THAT(file.steps, ElementsAre("open", "write", "check", "rights", "put"));
    EXPECT_EQ(file.content, "old /root/diskperf/parameters/writeinterval=30 /root/diskperf/log/level=0xf");
    EXPECT_EQ(outcome.text, "set in C:\\home\\etc\\cluster.xml\n"
                            "  parameters/writeinterval = 30 s (was 60 s)\n"
                            "  log/level = 0xf (was 7)\n"
                            "the disk agent is not running; it reads the configuration when it starts\n");
}

TEST_F(ConfigSet, SaysWhatAReloadTakesOverAndWhatWaitsForARestart)
{
    file.Run(IN_FORCE);
    const std::vector<KeyValue> values = { { "writeinterval", "30" },
                                           { "collectinterval", "5" },
                                           { "perflogsize", "1024" } };
    EXPECT_THAT(Set(values).text, HasSubstr("in force already:\n  parameters/perflogsize\n"
                                            "taken over by dkpfctl config reload:\n  parameters/writeinterval\n"
                                            "waiting for a restart of the agent:\n  parameters/collectinterval\n"));
    // Who has the agent reload hears it from the agent.
    EXPECT_THAT(Set(values, true).text, Not(HasSubstr("reload")));
}

TEST_F(ConfigSet, AMissingKeyIsPutIn)
{
    file.report.setting[4].bInFile = FALSE;
    EXPECT_THAT(Set({ { "writeinterval", "60" } }).text,
                HasSubstr("writeinterval = 60 s (was missing, default 60 s)\n"));
}

TEST_F(ConfigSet, WithoutAChangeNothingIsWritten)
{
    const SetOutcome outcome = Set({ { "writeinterval", "same" } });
    EXPECT_TRUE(outcome.done);
    EXPECT_THAT(outcome.text, StartsWith("nothing to change"));
    EXPECT_THAT(file.steps, ElementsAre("open"));
}

TEST_F(ConfigSet, EachStepThatIsRefusedLeavesTheFile)
{
    for (const char* step : { "open", "write", "rights", "put" }) {
        for (DWORD error :
             { DWORD{ ERROR_ACCESS_DENIED }, DWORD{ ERROR_DISK_FULL }, DWORD{ ERROR_SHARING_VIOLATION } }) {
            PlayedFile played;
            played.errors[step] = error;
            const SetOutcome outcome = SetConfiguration(played, { { "writeinterval", "30" } }, false);
            EXPECT_FALSE(outcome.done) << step;
            EXPECT_EQ(played.content, "old") << step;
            EXPECT_EQ(played.steps.back(), step);
            EXPECT_THAT(outcome.text, HasSubstr("\nthe configuration is as it was\n"));
            EXPECT_EQ(outcome.text.find("run this as an administrator") != std::string::npos,
                      error == ERROR_ACCESS_DENIED && step != std::string("put"))
                << step << ": " << outcome.text;
        }
    }
}

TEST_F(ConfigSet, AnotherWriterIsSaidToBeBusy)
{
    file.errors["open"] = ERROR_SHARING_VIOLATION;
    EXPECT_THAT(Set({ { "writeinterval", "30" } }).text, StartsWith("busy: "));
}

TEST_F(ConfigSet, AValueThatTheEditRefusesIsRefusedInItsWords)
{
    file.editFinding.dwStatus = XMLLIB_OUT_OF_RANGE;
    strcpy(file.editFinding.szKey, "/root/diskperf/parameters/collectinterval");
    strcpy(file.editFinding.szValue, "3601");
    strcpy(file.editFinding.szReason, "The value 3601 is outside of the range 0 to 3600 s.");
    file.editFinding.dwMax = 3600;
    const SetOutcome outcome = Set({ { "collectinterval", "3601" } });
    EXPECT_FALSE(outcome.done);
    EXPECT_EQ(outcome.text, "refused: parameters/collectinterval: The value 3601 is outside of the range 0 to 3600 s\n"
                            "the configuration is as it was\n");
    EXPECT_THAT(file.steps, ElementsAre("open"));
}

TEST_F(ConfigSet, ARefusedValueWhoseReasonNamesNoRangeIsToldIt)
{
    file.editFinding.dwStatus = XMLLIB_NO_NUMBER;
    strcpy(file.editFinding.szKey, "/root/diskperf/parameters/collectinterval");
    strcpy(file.editFinding.szValue, "often");
    strcpy(file.editFinding.szReason, "The value \"often\" is no number.");
    file.editFinding.dwMin = 1;
    file.editFinding.dwMax = 3600;
    EXPECT_EQ(Set({ { "collectinterval", "often" } }).text,
              "refused: parameters/collectinterval: The value \"often\" is no number (allowed: 1 to 3600 s)\n"
              "the configuration is as it was\n");
}

TEST_F(ConfigSet, ANewFileThatWouldBeRefusedIsNotPut)
{
    file.besideFinding.dwStatus = XMLLIB_NO_NUMBER;
    strcpy(file.besideFinding.szReason, "There is no value between the tags.");
    EXPECT_FALSE(Set({ { "writeinterval", "30" } }).done);
    EXPECT_EQ(file.content, "old");
    EXPECT_THAT(file.steps, ElementsAre("open", "write", "check"));
}

TEST_F(ConfigSet, ANewFileThatGivesOtherValuesIsNotPut)
{
    file.besideDiffers = true;
    EXPECT_FALSE(Set({ { "writeinterval", "30" } }).done);
    EXPECT_EQ(file.content, "old");
}

TEST_F(ConfigSet, ANewFileThatLacksTheKeyIsNotPutAlthoughTheDefaultIsTheSame)
{
    file.report.setting[4].bInFile = FALSE;
    file.besideDiffers = true;
    EXPECT_FALSE(Set({ { "writeinterval", "60" } }).done);
    EXPECT_EQ(file.content, "old");
}

TEST_F(ConfigSet, AWrongFileThatStaysAsItIsIsNotSaidToBeDone)
{
    file.report.finding.dwStatus = file.besideFinding.dwStatus = XMLLIB_NO_NUMBER;
    EXPECT_FALSE(Set({ { "writeinterval", "same" } }).done);
    EXPECT_THAT(file.steps, ElementsAre("open", "write", "check"));
}

TEST_F(ConfigSet, AWrongFileCanBeMended)
{
    file.report.finding.dwStatus = XMLLIB_NO_NUMBER;
    const SetOutcome outcome = Set({ { "writeinterval", "30" } });
    EXPECT_TRUE(outcome.done);
    EXPECT_THAT(outcome.text, HasSubstr("writeinterval = 30 s (the file was refused)\n"));
}

TEST_F(ConfigSet, WithoutAPolicyNothingIsTouched)
{
    file.report = XMLLIB_REPORT{};
    file.report.finding.dwStatus = XMLLIB_BAD_POLICY;
    strcpy(file.report.finding.szReason, "The policy holds no key.");
    EXPECT_THAT(Set({ { "writeinterval", "30" } }).text, HasSubstr("The policy holds no key"));
    EXPECT_TRUE(file.steps.empty());
}

TEST_F(ConfigSet, KeysThatAreWrongOrTwiceTouchNothing)
{
    EXPECT_THAT(Set({ { "writeinterva", "30" } }).text,
                StartsWith("there is no key writeinterva; did you mean parameters/writeinterval?\n"));
    EXPECT_THAT(Set({ { "level", "1" }, { "/root/diskperf/log/level", "2" } }).text,
                StartsWith("log/level is given twice\n"));
    EXPECT_TRUE(file.steps.empty());
}

TEST_F(ConfigSet, OldHeadersUnderANewMaskAreSaid)
{
    // Without an agent nothing is open: it looks at the headers when it starts.
    EXPECT_THAT(Set({ { "collectparam", "0xff" }, { "perflogsave", "0" } }).text, Not(HasSubstr("header")));
    file.Run(IN_FORCE);
    EXPECT_THAT(Set({ { "collectparam", "0xff" } }).text, Not(HasSubstr("header")));
    EXPECT_THAT(Set({ { "collectparam", "0xff" }, { "perflogsave", "0" } }).text,
                HasSubstr("note: parameters/perflogsave is 0. A reload now takes the columns over"));
    EXPECT_THAT(Set({ { "collectparam", "0xff" }, { "perfenable", "0" } }).text,
                HasSubstr("note: parameters/perfenable is 0"));
    file.report.setting[1].dwValue = 0;
    EXPECT_THAT(Set({ { "collectparam", "0xff" } }).text, HasSubstr("header"));
    EXPECT_THAT(Set({ { "collectparam", "0xff" }, { "perflogsave", "1" } }).text, Not(HasSubstr("header")));
    EXPECT_THAT(Set({ { "writeinterval", "5" } }).text, Not(HasSubstr("header")));
}

/* ---- Keys ---- */

TEST(ConfigKeys, AreFoundByThreeKindsOfName)
{
    const XMLLIB_REPORT report = Report();
    for (const char* word :
         { "collectinterval", "parameters/collectinterval", "/root/diskperf/parameters/collectinterval" })
        EXPECT_EQ(ChooseKey(report, word).setting, &report.setting[3]) << word;
    for (const char* word :
         { "", "parameters", "/collectinterval", "interval", "LEVEL", "log/level/", "diskperf/log/level" })
        EXPECT_EQ(ChooseKey(report, word).setting, nullptr) << word;
}

TEST(ConfigKeys, AShortNameOfTwoKeysIsNone)
{
    XMLLIB_REPORT report = Report();
    report.setting[8] = MakeSetting("/root/diskperf/other/size", "", 1, 1, false, false);
    report.dwSettings = 9;
    EXPECT_EQ(ChooseKey(report, "size").setting, nullptr);
    EXPECT_EQ(ChooseKey(report, "size").words, "size is not one key: log/size or other/size");
    EXPECT_EQ(ChooseKey(report, "log/size").setting, &report.setting[7]);
}

TEST(ConfigKeys, TheNearestAreNamed)
{
    const XMLLIB_REPORT report = Report();
    EXPECT_EQ(NearestKeys(report, "levle"), "log/level");
    EXPECT_EQ(NearestKeys(report, "LEVEL"), "log/level");
    EXPECT_EQ(NearestKeys(report, "sze"), "log/size");
    EXPECT_EQ(NearestKeys(report, "/root/diskperf/log/levle"), "log/level");
    EXPECT_EQ(NearestKeys(report, "parameters/size"), "log/size");
    EXPECT_EQ(NearestKeys(report, "interval"), "parameters/collectinterval or parameters/writeinterval");
    EXPECT_EQ(NearestKeys(report, "intervall"), "parameters/collectinterval or parameters/writeinterval");
    EXPECT_EQ(NearestKeys(report, "colour"), "");
    EXPECT_EQ(ChooseKey(report, "colour").words, "there is no key colour; dkpfctl config schema lists them all");
}

/* ---- What is shown ---- */

static void ExpectEightyColumns(const std::string& text)
{
    for (size_t start = 0; start < text.size();) {
        const size_t end = text.find('\n', start);
        EXPECT_LE(end - start, 79u) << text.substr(start, end - start);
        start = end + 1;
    }
}

TEST(ConfigText, ShowsFileForceAndDefaultInEightyColumns)
{
    XMLLIB_REPORT report = Report();
    AgentState    running;
    ConfigFacts   facts;
    running.inForce = IN_FORCE;
    report.setting[3].dwValue = 5;
    report.setting[7].bInFile = FALSE;
    facts.report = &report;
    facts.running = &running;
    facts.file = "C:\\cluster.xml";
    const std::string text = ConfigGetText(facts);
    ExpectEightyColumns(text);
    EXPECT_THAT(text, HasSubstr("\nparameters/collectinterval         5        10       10  s     restart\n"));
    EXPECT_THAT(text, HasSubstr("\nparameters/collectparam      0x1ffff   0x1ffff  0x1ffff        reload\n"));
    EXPECT_THAT(text, HasSubstr("\nlog/size                           -      2048     2048  KiB   restart\n"));
    facts.running = nullptr;
    EXPECT_THAT(ConfigGetText(facts), HasSubstr("\nin force: no agent is running\n"));
}

TEST(ConfigText, ShowsOneKeyWithRangeAndHelpInEightyColumns)
{
    const XMLLIB_REPORT report = Report();
    ConfigFacts         facts;
    facts.report = &report;
    facts.only = &report.setting[4];
    ExpectEightyColumns(ConfigGetText(facts));
    EXPECT_EQ(ConfigGetText(facts), "parameters/writeinterval\n"
                                    "  in file          60 s\n"
                                    "  in force         no agent is running\n"
                                    "  default          60 s\n"
                                    "  range            0 to 86400 s\n"
                                    "  new value after  a reload\n"
                                    "  What it means, in a sentence that is long enough to need a second line on the\n"
                                    "  screen.\n");
}

TEST(ConfigText, TheSchemaFitsIntoEightyColumns)
{
    const std::string text = ConfigSchemaText(Report());
    ExpectEightyColumns(text);
    EXPECT_THAT(
        text,
        HasSubstr(
            "/root/diskperf/log/size\n    dword, 0 to 1048576 KiB, default 2048 KiB, new value after a restart\n"));
}

TEST(ConfigText, UnknownKeysAreWarnedOfWithWhatWasMeant)
{
    XMLLIB_REPORT report = Report();
    strcpy(report.unknown[0].szKey, "/root/diskperf/log/levle");
    report.unknown[0].dwLine = 5;
    report.unknown[0].dwColumn = 7;
    report.dwUnknown = 1;
    EXPECT_EQ(UnknownKeysText(report),
              "warning: line 5, column 7: nobody reads /root/diskperf/log/levle; did you mean log/level?\n");
    report.dwUnknown = XMLLIB_UNKNOWN_MAX + 3;
    EXPECT_THAT(UnknownKeysText(report), HasSubstr("warning: 3 more keys that nobody reads\n"));
}
