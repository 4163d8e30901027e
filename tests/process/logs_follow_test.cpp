// dkpfctl logs beside real writers: the files are renamed while it reads, and each line is shown once and in order.
#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/patience.h"
#include "support/program.h"
#include "support/test_home.h"

namespace {

class LogsBesideWriters : public testing::Test {
protected:
    LogsBesideWriters() : go(CreateEventA(nullptr, TRUE, TRUE, "Local\\dkpf_writers_go"))
    {
        home.Install(L"tnwmsg.dll");
        home.Install(L"tnwlog.dll");
        home.Install(L"tnwxml.dll");
        control = home.Install(L"dkpfctl.exe");
        writer = home.Install(L"tnwlog_writer.exe");
    }
    ~LogsBesideWriters() override
    {
        CloseHandle(go);
    }

    /* The text of a writer's line, "TAG NUMBER". */
    static std::string Written(const std::string& line)
    {
        static const std::string mark = " 0x0004 w(1) Writer:";
        const size_t             at = line.find(mark);
        return at != std::string::npos ? line.substr(at + mark.size()) : "no record: " + line;
    }

    TestHome     home;
    std::wstring control, writer;
    HANDLE       go;
};

// A line takes some 70 bytes and the bound is 8 KiB: five rotations for 600 lines, so that none of a round is deleted
// before it was shown, and more than 30 in all, so that the oldest are deleted all the time.
TEST_F(LogsBesideWriters, FollowLosesAndRepeatsNothingOverManyRotations)
{
    const int                rounds = 6, lines = 600;
    std::unique_ptr<Program> follower;
    EXPECT_EQ(0u, RunToEnd(writer, "first 1 8").code);
    follower = std::make_unique<Program>(control, "logs --follow");
    ASSERT_EQ("first 1", Written(follower->Line()));
    for (int round = 0; round < rounds; round++) {
        const std::string tag = "r" + std::to_string(round);
        Program           running(writer, tag + " " + std::to_string(lines) + " 8");
        for (int n = 1; n <= lines; n++) {
            ASSERT_EQ(tag + " " + std::to_string(n), Written(follower->Line()));
        }
        EXPECT_EQ(0u, running.End());
    }
    EXPECT_TRUE(home.Exists(L"log\\diskperf.15.log"));  // else too little was rotated to show anything
}

// Two writers at once: each one's lines are in their order.
TEST_F(LogsBesideWriters, FollowShowsEachOfTwoWritersInItsOrder)
{
    const int         lines = 300;
    const std::string tags[] = { "a", "b" };
    int               next[] = { 1, 1 };
    EXPECT_EQ(0u, RunToEnd(writer, "first 1 8").code);
    Program follower(control, "logs --follow");
    ASSERT_EQ("first 1", Written(follower.Line()));
    ResetEvent(go);
    Program one(writer, "a 300 8"), other(writer, "b 300 8");
    SetEvent(go);
    for (int shown = 0; shown < 2 * lines; shown++) {
        const std::string text = Written(follower.Line());
        const int         which = text.compare(0, 2, "b ") == 0;
        ASSERT_EQ(tags[which] + " " + std::to_string(next[which]), text);
        next[which]++;
    }
    EXPECT_EQ(0u, one.End());
    EXPECT_EQ(0u, other.End());
}

// Read again and again while it is rotated: what is shown is always a run without a hole.
TEST_F(LogsBesideWriters, AllLinesReadInTheMiddleOfRotationsHaveNoHole)
{
    const int lines = 900;  // some 64 KiB, with 8 KiB a file: nothing is deleted
    Program   running(writer, "w " + std::to_string(lines) + " 8");
    for (int shown = 0; shown < lines;) {
        const Ran ran = RunToEnd(control, "logs --lines all");
        size_t    from = 0;
        int       n = 0;
        if (ran.code != 0 && ran.output.find("there is no ") != std::string::npos) {
            continue;  // not even the first line yet
        }
        ASSERT_EQ(0u, ran.code) << ran.output;
        for (size_t end = 0; (end = ran.output.find("\r\n", from)) != std::string::npos; from = end + 2) {
            ASSERT_EQ("w " + std::to_string(++n), Written(ran.output.substr(from, end - from)));
        }
        ASSERT_GE(n, shown);
        shown = n;
    }
    EXPECT_EQ(0u, running.End());
}

// Each option in the real program, over several generations and logs.
TEST_F(LogsBesideWriters, EachOptionTakesWhatItNamesOutOfAllGenerations)
{
    using Texts = std::vector<std::string>;
    Texts all;
    for (int n = 1; n <= 300; n++) {
        all.push_back("w " + std::to_string(n));
    }
    Program     running(writer, "w 300 8");
    const DWORD pid = running.Id();
    EXPECT_EQ(0u, running.End());
    ASSERT_TRUE(home.Exists(L"log\\diskperf.2.log"));
    home.Write(L"log\\diskperf_trace.log", "2001/01/01 10:00:00.000 1:2 0x0001 w(1) Writer:t 1\r\n");
    home.Write(L"log\\diskperf_conf.log", "2001/01/01 11:00:00.000 1:2 0x0002 w(1) Writer:c 1\r\n");

    const auto output = [this](const std::string& arguments) {
        const Ran ran = RunToEnd(control, "logs " + arguments);
        Texts     lines;
        size_t    from = 0;
        EXPECT_EQ(0u, ran.code) << arguments << "\n" << ran.output;
        for (size_t end = 0; (end = ran.output.find("\r\n", from)) != std::string::npos; from = end + 2) {
            lines.push_back(ran.output.substr(from, end - from));
        }
        return lines;
    };
    const auto shown = [output](const std::string& arguments) {
        Texts texts = output(arguments);
        for (std::string& line : texts) {
            const size_t at = line.find("w(1) Writer:");
            line = at != std::string::npos ? line.substr(at + 12) : "no record: " + line;
        }
        return texts;
    };
    const auto with = [](Texts before, const Texts& behind) {
        before.insert(before.end(), behind.begin(), behind.end());
        return before;
    };

    for (const std::string& options :
         { std::string("--routine Writer"), std::string("--routine \"Wri*\""), std::string("--since 2000-01-01"),
           std::string("--since 1h"), "--process " + std::to_string(pid), std::string("--level notice"),
           std::string("--level 0x4") }) {
        EXPECT_EQ(all, shown("--lines all " + options)) << options;
    }
    for (const char* options : { "--routine Nobody", "--until 2000-01-01", "--process 1", "--level error" }) {
        EXPECT_EQ(Texts(), shown(std::string("--lines all ") + options)) << options;
    }
    EXPECT_EQ(Texts({ "w 298", "w 299", "w 300" }), shown("--lines 3"));
    EXPECT_EQ(Texts(all.end() - 50, all.end()), shown(""));
    EXPECT_EQ(Texts({ "w 7", "w 70", "w 71", "w 72", "w 73", "w 74", "w 75", "w 76", "w 77", "w 78", "w 79" }),
              shown("--lines all --text \"w 7\""));
    // A day as the end is meant with all its hours.
    const std::string current = home.Read(L"log\\diskperf.log");
    const std::string day = current.substr(current.rfind('\n', current.size() - 2) + 1, 10);
    EXPECT_EQ(all, shown("--lines all --until " + day));

    EXPECT_EQ(Texts({ "t 1" }), shown("trace"));
    EXPECT_EQ(Texts({ "c 1" }), shown("conf --lines all"));
    EXPECT_EQ(Texts({ "t 1", "c 1" }), shown("conf trace"));
    EXPECT_EQ(with({ "t 1" }, all), shown("diskperf trace --lines all"));
    EXPECT_EQ(with({ "t 1", "c 1" }, all), shown("--all --lines all"));
    EXPECT_EQ(Texts({ "t 1" }), shown("--all --level error"));
    EXPECT_EQ(Texts({ "t 1", "c 1" }), shown("--all --until 2001-01-01"));

    const Texts objects = output("trace --json");
    ASSERT_EQ(1u, objects.size());
    const auto object = nlohmann::json::parse(objects[0]);
    EXPECT_EQ("trace", object["log"]);
    EXPECT_EQ("t 1", object["text"]);
}

// As of "logs --follow | find ..." whose right side ends: the next line finds nobody, which is no failure.
TEST_F(LogsBesideWriters, AFollowerWhoseReaderIsGoneEndsWithTheNextLine)
{
    EXPECT_EQ(0u, RunToEnd(writer, "first 1 8").code);
    Program follower(control, "logs --follow");
    EXPECT_EQ("first 1", Written(follower.Line()));
    follower.CloseOutput();
    EXPECT_EQ(0u, RunToEnd(writer, "next 1 8").code);
    EXPECT_EQ(0u, follower.End());
}

TEST_F(LogsBesideWriters, CtrlCEndsAFollowerWell)
{
    EXPECT_EQ(0u, RunToEnd(writer, "first 1 8").code);
    Program follower(control, "logs --follow", CREATE_NO_WINDOW);
    EXPECT_EQ("first 1", Written(follower.Line()));
    EXPECT_TRUE(follower.CtrlC()) << GetLastError();
    EXPECT_EQ("", follower.Rest());
    EXPECT_EQ(0u, follower.End());
}

TEST_F(LogsBesideWriters, AReaderThatIsGoneEndsALongListingToo)
{
    EXPECT_EQ(0u, RunToEnd(writer, "w 9000 2048").code);  // more than a pipe and a block of output take
    Program list(control, "logs --lines all");
    EXPECT_EQ("w 1", Written(list.Line()));
    list.CloseOutput();
    EXPECT_EQ(0u, list.End());
}

// What a reader holds open, the writers rename all the same.
TEST_F(LogsBesideWriters, AFollowerHoldsUpNoRotation)
{
    EXPECT_EQ(0u, RunToEnd(writer, "first 1 8").code);
    Program follower(control, "logs --follow");
    EXPECT_EQ("first 1", Written(follower.Line()));
    EXPECT_EQ(0u, RunToEnd(writer, "w 900 8").code);
    for (const std::wstring& name : home.List(L"log")) {
        EXPECT_LT(home.Read((L"log\\" + name).c_str()).size(), 8u * 1024 + 100);
    }
}

}  // namespace
