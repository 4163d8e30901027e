// dkpfctl logs beside real writers: the files are renamed while it reads, and each line is shown once and in order.
#include <gtest/gtest.h>

#include <memory>
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

// Each option in the real program, over several generations: all lines, or none.
TEST_F(LogsBesideWriters, EachFilterTakesWhatItNamesOutOfAllGenerations)
{
    std::vector<std::string> all;
    for (int n = 1; n <= 300; n++) {
        all.push_back("w " + std::to_string(n));
    }
    Program     running(writer, "w 300 8");
    const DWORD pid = running.Id();
    EXPECT_EQ(0u, running.End());
    ASSERT_TRUE(home.Exists(L"log\\diskperf.2.log"));
    const auto shown = [this](const std::string& options) {
        const Ran                ran = RunToEnd(control, "logs --lines all " + options);
        std::vector<std::string> texts;
        size_t                   from = 0;
        EXPECT_EQ(0u, ran.code) << options << "\n" << ran.output;
        for (size_t end = 0; (end = ran.output.find("\r\n", from)) != std::string::npos; from = end + 2) {
            texts.push_back(Written(ran.output.substr(from, end - from)));
        }
        return texts;
    };
    for (const std::string& options :
         { std::string("--routine Writer"), std::string("--routine \"Wri*\""), std::string("--since 2000-01-01"),
           std::string("--since 1h"), "--process " + std::to_string(pid) }) {
        EXPECT_EQ(all, shown(options)) << options;
    }
    for (const char* options : { "--routine Nobody", "--until 2000-01-01", "--process 1" }) {
        EXPECT_EQ(std::vector<std::string>(), shown(options)) << options;
    }
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
