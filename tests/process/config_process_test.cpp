/*
 * dkpfctl config on a home of its own: whole files before and after, several programs at once, and one that is killed.
 */
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <windows.h>
#include <memory>
#include <vector>

#include "support/patience.h"
#include "support/product_home.h"
#include "support/program.h"

#include "settings.h"
#include "tnwxml.h"

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

static const char COMMENTED[] = "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
                                "<!-- ours: \xE6\x97\xA5 -->\r\n"
                                "<root>\r\n"
                                "\t<server name='a'/>\r\n"
                                "\t<diskperf>\r\n"
                                "\t\t<parameters>\r\n"
                                "\t\t\t<collectinterval> 10 </collectinterval> <!-- how often -->\r\n"
                                "\t\t\t<writeinterval>60</writeinterval>\r\n"
                                "\t\t\t<colour>1</colour>\r\n"
                                "\t\t</parameters>\r\n"
                                "\t</diskperf>\r\n"
                                "</root>\r\n";

class Config : public testing::Test {
protected:
    Config()
    {
        home.Install(L"dkpfctl.exe");
        home.Write(L"etc\\cluster.xml", COMMENTED);
    }

    Ran Ctl(const std::string& arguments) const
    {
        return RunToEnd(home.Path(L"bin\\dkpfctl.exe"), "config " + arguments);
    }

    std::string File() const
    {
        return home.Read(L"etc\\cluster.xml");
    }

    static std::string Replaced(std::string text, const std::string& from, const std::string& to)
    {
        EXPECT_NE(text.find(from), std::string::npos) << from;
        return text.replace(text.find(from), from.size(), to);
    }

    /* Nothing lies beside the configuration. */
    void ExpectNothingBeside() const
    {
        EXPECT_EQ(home.List(L"etc"), (std::vector<std::wstring>{ L"cluster.xml", L"policy" }));
    }

    ProductHome home;
};

TEST_F(Config, SetChangesTheValuesAndNoOtherByte)
{
    const Ran ran = Ctl("set collectinterval 5 parameters/writeinterval 0x1e /root/diskperf/log/level 15");
    EXPECT_EQ(ran.code, 0u) << ran.output;
    EXPECT_THAT(ran.output, HasSubstr("parameters/collectinterval = 5 s (was 10 s)"));
    std::string expected = Replaced(COMMENTED, "> 10 <", "> 5 <");
    expected = Replaced(expected, ">60<", ">0x1e<");
    expected = Replaced(expected, "\t\t</parameters>\r\n",
                        "\t\t</parameters>\r\n\t\t<log>\r\n\t\t\t<level>15</level>\r\n\t\t</log>\r\n");
    EXPECT_EQ(File(), expected);
    ExpectNothingBeside();
    EXPECT_EQ(Ctl("check").code, 0u);
}

TEST_F(Config, WhatIsRefusedLeavesEveryByte)
{
    for (const char* arguments : { "set collectinterval 0", "set collectinterval 3601", "set collectinterval often",
                                   "set writeinterval 5 collectinterval 3601", "set interval 5",
                                   "set level 1 log/level 2", "set perflogsize 63" }) {
        const Ran ran = Ctl(arguments);
        EXPECT_EQ(ran.code, 1u) << arguments << "\n" << ran.output;
        EXPECT_THAT(ran.output, HasSubstr("the configuration is as it was")) << arguments;
        EXPECT_EQ(File(), COMMENTED) << arguments;
    }
    EXPECT_THAT(Ctl("set collectinterval often").output, HasSubstr(" (allowed: 1 to 3600 s)\r\n"));
    EXPECT_EQ(Ctl("set collectinterval").code, 2u);
    EXPECT_EQ(Ctl("set").code, 2u);
    EXPECT_EQ(File(), COMMENTED);
    ExpectNothingBeside();
}

TEST_F(Config, AWrongValueElsewhereRefusesUntilItIsMendedToo)
{
    const std::string wrong = Replaced(COMMENTED, ">60<", ">often<");
    home.Write(L"etc\\cluster.xml", wrong);
    EXPECT_EQ(Ctl("set collectinterval 5").code, 1u);
    EXPECT_EQ(File(), wrong);

    const Ran  ran = Ctl("check --json");
    const Json check = Json::parse(ran.output, nullptr, false);
    EXPECT_EQ(ran.code, 1u);
    ASSERT_TRUE(check.is_object()) << ran.output;
    EXPECT_EQ(check["accepted"], false);
    EXPECT_EQ(check["finding"],
              (Json{ { "status", XMLLIB_NO_NUMBER },
                     { "file", home.PlainPath(L"etc\\cluster.xml") },
                     { "line", 8 },
                     { "column", 19 },  // behind three tabs and "<writeinterval>"
                     { "key", "/root/diskperf/parameters/writeinterval" },
                     { "value", "often" },
                     { "reason", "The value \"often\" is no 32-bit number in decimal digits, or hexadecimal digits "
                                 "behind 0x." },
                     { "min", 1 },
                     { "max", 86400 } }));

    EXPECT_EQ(Ctl("set collectinterval 5 writeinterval 30").code, 0u);
    EXPECT_EQ(File(), Replaced(Replaced(COMMENTED, "> 10 <", "> 5 <"), ">60<", ">30<"));
}

TEST_F(Config, GetAndSchemaAndCheckAgree)
{
    const Json get = Json::parse(Ctl("get --json").output, nullptr, false);
    const Json schema = Json::parse(Ctl("schema --json").output, nullptr, false);
    const Json check = Json::parse(Ctl("check --json").output, nullptr, false);
    ASSERT_TRUE(get.is_object() && schema.is_object() && check.is_object());
    ASSERT_EQ(get["settings"].size(), 9u);
    ASSERT_EQ(schema["settings"].size(), 9u);
    EXPECT_TRUE(get["accepted"]);
    EXPECT_TRUE(check["accepted"]);
    for (size_t i = 0; i < 9; i++) {
        for (const char* field : { "name", "key", "type", "min", "max", "default", "unit", "new_value_after", "help" })
            EXPECT_EQ(get["settings"][i][field], schema["settings"][i][field]) << field;
        EXPECT_EQ(get["settings"][i]["in_file"], check["settings"][i]["in_file"]);
        EXPECT_TRUE(get["settings"][i]["in_force"].is_null());
    }
    EXPECT_EQ(get["settings"][4]["name"], "parameters/collectinterval");
    EXPECT_EQ(get["settings"][4]["in_file"], 10);
    EXPECT_TRUE(get["settings"][0]["in_file"].is_null());  // the key is missing
    EXPECT_EQ(check["settings"][0]["value"], 1);
    EXPECT_EQ(check["unknown"][0]["key"], "/root/diskperf/parameters/colour");
    EXPECT_THAT(Ctl("check").output,
                HasSubstr("warning: line 9, column 5: nobody reads /root/diskperf/parameters/colour"));
    EXPECT_THAT(Ctl("get collectinterval").output,
                StartsWith("parameters/collectinterval\r\n  in file          10 s\r\n"));
    EXPECT_EQ(Ctl("get interval").code, 1u);
}

// Eight programs at once, each with a key of its own and then the next value of it: all of them stand in the file.
TEST_F(Config, ChangesOfProgramsAtTheSameTimeAreAllThere)
{
    const char* const                     keys[] = { "perflogsize",   "perflogrotation", "collectinterval",
                                                     "writeinterval", "collectparam",    "level",
                                                     "size",          "perflogsave" };
    std::vector<std::unique_ptr<Program>> programs;
    for (const char* key : keys)
        programs.push_back(std::make_unique<Program>(home.Path(L"bin\\dkpfctl.exe"),
                                                     "config set " + std::string(key) +
                                                         (std::string(key) == "perflogsave" ? " 0" : " 77")));
    size_t            done = 0;
    std::vector<bool> went;
    for (const auto& program : programs) {
        const std::string said = program->Rest();
        const DWORD       code = program->End();
        went.push_back(code == 0);
        done += code == 0;
        // One that could not get through says so and has changed nothing.
        if (code != 0) {
            EXPECT_THAT(said, HasSubstr("busy: "));
        }
    }
    EXPECT_GT(done, 0u);
    const Json get = Json::parse(Ctl("get --json").output, nullptr, false);
    for (size_t i = 0; i < std::size(keys); i++) {
        for (const Json& setting : get["settings"]) {
            const std::string name = setting["name"];
            if (name.substr(name.find('/') + 1) != keys[i])
                continue;
            const bool there = setting["in_file"] == (std::string(keys[i]) == "perflogsave" ? 0 : 77);
            EXPECT_EQ(there, went[i]) << name << " " << setting["in_file"];
        }
    }
    ExpectNothingBeside();
}

// Another program holds the old file so that it cannot be replaced; the tool is killed while it waits for it.
TEST_F(Config, AKilledSetLeavesTheOldFileAndTheNextOneHeals)
{
    const HANDLE held = home.Hold(L"etc\\cluster.xml", FILE_SHARE_READ | FILE_SHARE_WRITE);
    Program      killed(home.Path(L"bin\\dkpfctl.exe"), "config set collectinterval 5");
    const bool   written = Eventually([this] { return home.Read(L"etc\\cluster.xml.new") != ""; });
    killed.Kill();
    killed.End();
    CloseHandle(held);
    ASSERT_TRUE(written);
    EXPECT_EQ(File(), COMMENTED);
    EXPECT_TRUE(home.Exists(L"etc\\cluster.xml.new"));
    EXPECT_EQ(Ctl("check").code, 0u);

    EXPECT_EQ(Ctl("set writeinterval 30").code, 0u);
    EXPECT_EQ(File(), Replaced(COMMENTED, ">60<", ">30<"));
    ExpectNothingBeside();
}

// Killed at one moment after the other, from where the new file comes into being until behind the end: whenever it was,
// the file is the old one or the new one, and the next call goes through.
TEST_F(Config, ASetKilledAtAnyMomentLeavesTheOldFileOrTheNewOne)
{
    const std::string changed = Replaced(COMMENTED, "> 10 <", "> 5 <");
    for (DWORD behind = 0; behind < 16; behind++) {
        home.Write(L"etc\\cluster.xml", COMMENTED);
        Program     killed(home.Path(L"bin\\dkpfctl.exe"), "config set collectinterval 5");
        const DWORD start = GetTickCount();
        while (!home.Exists(L"etc\\cluster.xml.new") && File() == COMMENTED && GetTickCount() - start < PATIENCE_MS) {
        }
        Sleep(behind);
        killed.Kill();
        killed.End();
        const std::string left = File();
        EXPECT_TRUE(left == COMMENTED || left == changed) << left;
        const Ran next = Ctl("set writeinterval 30");
        EXPECT_EQ(next.code, 0u) << next.output;
        EXPECT_EQ(File(), Replaced(left, ">60<", ">30<"));
        ExpectNothingBeside();
    }
}

// A value reads the same wherever it is shown.
TEST_F(Config, EveryCommandWritesANumberAsThePolicySays)
{
    const Ran set = Ctl("set level 15 collectparam 9 perflogsize 64");
    EXPECT_EQ(set.code, 0u) << set.output;
    for (const std::string& output : { set.output, Ctl("check").output }) {
        EXPECT_THAT(output, HasSubstr("  log/level = 0xf"));
        EXPECT_THAT(output, HasSubstr("  parameters/collectparam = 9"));
        EXPECT_THAT(output, HasSubstr("  parameters/perflogsize = 64 KiB"));
    }
    EXPECT_THAT(Ctl("get level").output, HasSubstr("  in file          0xf\r\n"));
    EXPECT_THAT(Ctl("get collectparam").output, HasSubstr("  in file          9\r\n"));
}

// What this program knows of the nine settings without asking anybody is what the installed policy says.
TEST_F(Config, TheSettingsThatAreBuiltInAreThoseOfThePolicy)
{
    const Json schema = Json::parse(Ctl("schema --json").output, nullptr, false);
    ASSERT_TRUE(schema.is_object());
    ASSERT_EQ(schema["settings"].size(), dkpf::SETTING_NUM);
    for (size_t i = 0; i < dkpf::SETTING_NUM; i++) {
        const dkpf::Setting& setting = dkpf::SettingAt(i);
        EXPECT_EQ(schema["settings"][i]["name"], setting.name);
        EXPECT_EQ(schema["settings"][i]["unit"], setting.unit);
        EXPECT_EQ(schema["settings"][i]["new_value_after"], setting.atOnce ? "reload" : "restart");
    }
}

TEST_F(Config, AHeldFileIsSaidAndStays)
{
    const HANDLE held = home.Hold(L"etc\\cluster.xml", FILE_SHARE_READ | FILE_SHARE_WRITE);
    const Ran    ran = Ctl("set collectinterval 5");
    CloseHandle(held);
    EXPECT_EQ(ran.code, 1u);
    EXPECT_THAT(ran.output, HasSubstr("another program holds it"));
    EXPECT_EQ(File(), COMMENTED);
    ExpectNothingBeside();
}

TEST_F(Config, AnotherWriterIsSaidToBeBusy)
{
    home.Write(L"etc\\cluster.xml.new", "of another program");
    const HANDLE held = home.Hold(L"etc\\cluster.xml.new", FILE_SHARE_READ);
    const Ran    ran = Ctl("set collectinterval 5");
    CloseHandle(held);
    EXPECT_EQ(ran.code, 1u);
    EXPECT_THAT(ran.output, StartsWith("busy: "));
    EXPECT_EQ(File(), COMMENTED);
    EXPECT_EQ(home.Read(L"etc\\cluster.xml.new"), "of another program");
}

TEST_F(Config, WithoutTheRightToWriteItIsRefusedInWords)
{
    home.MakeFolder(L"etc\\cluster.xml.new");  // what no account may open for writing
    const Ran ran = Ctl("set collectinterval 5");
    EXPECT_EQ(ran.code, 1u);
    EXPECT_THAT(ran.output, HasSubstr("run this as an administrator"));
    EXPECT_EQ(File(), COMMENTED);
}
