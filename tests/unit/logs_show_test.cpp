// What dkpfctl logs shows of logs that stand still: generations, last lines, filters, several logs, JSON, what is
// missing.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "unit/logs_folder_double.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Json = nlohmann::json;

namespace {

class LogsShow : public testing::Test {
protected:
    LogsShow()
    {
        request.logs = { FindLogSource("diskperf") };
    }

    // What is shown, without CR, since the picture's lines stand with it.
    std::string Shown()
    {
        view.said.clear();
        good = ShowLogs(request, "C:\\HOME\\log", &logs, &view);
        return view.said;
    }

    // Lines numbered from first to last.
    static std::string Numbered(int first, int last)
    {
        std::string text;
        for (int n = first; n <= last; n++) {
            text += TraceLine("14:05:09.042", " " + std::to_string(n));
        }
        return text;
    }

    PictureLogs logs;
    PictureView view;
    LogsRequest request;
    bool        good = false;
};

TEST_F(LogsShow, AllGenerationsStandOldestFirstAndGapsAreBorne)
{
    logs.Write("diskperf", Numbered(1, 2), 15);
    logs.Write("diskperf", Numbered(3, 3), 7);
    logs.Write("diskperf", Numbered(4, 5), 3);
    logs.Write("diskperf", Numbered(6, 6), 0);
    EXPECT_EQ(Shown(), WithoutCr(Numbered(1, 6)));
    EXPECT_TRUE(good);
    EXPECT_THAT(view.notes, IsEmpty());
}

// The writers rotate while the generations are being opened: what is shown begins with the oldest and has no hole.
TEST_F(LogsShow, RotationsWhileTheFilesAreOpenedLeaveNoHole)
{
    for (int at = 0; at <= 5; at++) {
        for (int times = 1; times <= 5; times++) {
            int next = 1;
            logs.files.clear();
            const auto write = [&] {
                logs.Rotate("diskperf");
                logs.Write("diskperf", Numbered(next, next));
                next++;
            };
            for (int n = 0; n < 5; n++) {
                write();
            }
            logs.beforeOpen = [&](int generation) {
                for (int n = 0; n < times && generation == at; n++) {
                    write();
                }
            };
            const std::string shown = Shown();
            const int         lines = static_cast<int>(std::count(shown.begin(), shown.end(), '\n'));
            EXPECT_GE(lines, at == 0 ? 5 + times : 5);
            EXPECT_EQ(shown, WithoutCr(Numbered(1, lines))) << at << " " << times;
        }
    }
}

TEST_F(LogsShow, WithoutACurrentFileTheOlderOnesAreShown)
{
    logs.Write("diskperf", Numbered(1, 2), 2);
    EXPECT_EQ(Shown(), WithoutCr(Numbered(1, 2)));
    EXPECT_TRUE(good);
}

TEST_F(LogsShow, TheLastLinesReachBackOverGenerations)
{
    logs.Write("diskperf", Numbered(1, 4), 2);
    logs.Write("diskperf", Numbered(5, 7), 1);
    logs.Write("diskperf", Numbered(8, 9), 0);
    for (int count = 0; count <= 11; count++) {
        request.lines = static_cast<size_t>(count);
        EXPECT_EQ(Shown(), WithoutCr(Numbered(std::max(1, 10 - count), 9))) << count;
    }
}

// A first line of each length moves all others through the blocks in which a file is read from its end.
TEST_F(LogsShow, TheLastLinesAreRightAtEveryPlaceOfABlock)
{
    const int         lines = 1500;  // of 79 to 82 bytes, so that the file takes more than one block
    const std::string rest = Numbered(1, lines);
    ASSERT_GT(rest.size(), LOG_BLOCK + 1000);
    for (size_t length = 0; length < 90; length++) {
        logs.files.clear();
        logs.Write("diskperf", std::string(length, 'x') + "\r\n" + rest);
        for (int count : { 1, 799, 800, 801, 1500 }) {
            request.lines = static_cast<size_t>(count);
            ASSERT_EQ(Shown(), WithoutCr(Numbered(lines - count + 1, lines))) << length << " " << count;
        }
        request.lines = 1501;
        ASSERT_EQ(Shown(), std::string(length, 'x') + "\n" + WithoutCr(rest)) << length;
    }
}

TEST_F(LogsShow, TheLastLinesOfAGiantAreReadFromItsEndAlone)
{
    PictureFile& giant = logs.Write("diskperf", Numbered(1, 40000));  // some 3 MiB
    logs.Write("diskperf", Numbered(1, 1), 1).readError = ERROR_READ_FAULT;
    request.lines = 5;
    EXPECT_EQ(Shown(), WithoutCr(Numbered(39996, 40000)));
    EXPECT_TRUE(good);
    EXPECT_LE(giant.read, 2 * LOG_BLOCK);
}

TEST_F(LogsShow, OfAFilterTheLastLinesThatMatchAreShown)
{
    std::string text;
    for (int n = 1; n <= 5000; n++) {
        text += TraceLine("14:05:09.042", " " + std::to_string(n), n % 1000 == 0 ? "0x0001" : "0x0008");
    }
    logs.Write("diskperf", text, 1);
    logs.Write("diskperf", TraceLine("14:05:10.000", " 5001", "0x0008"));
    request.filter.levels = 1;
    request.lines = 3;
    EXPECT_EQ(Shown(), WithoutCr(TraceLine("14:05:09.042", " 3000") + TraceLine("14:05:09.042", " 4000") +
                                 TraceLine("14:05:09.042", " 5000")));
}

// Sixteen files, each of more than one block, one for each hour from 0 to 15: what was asked for lies in the last two.
TEST_F(LogsShow, AMomentIsLookedForInTheFilesThatMayHoldIt)
{
    std::string expected;
    for (int hour = 0; hour <= LOG_GENERATIONS; hour++) {
        const std::string clock = (hour < 10 ? "0" : "") + std::to_string(hour);
        std::string       text;
        for (int n = 0; n < 1000; n++) {
            text += TraceLine(clock + (n < 500 ? ":10:00.000" : ":50:00.000"), " " + std::to_string(n));
        }
        logs.Write("diskperf", text, LOG_GENERATIONS - hour);
        if (hour == 14) {
            expected += text.substr(text.find(":50:00.000") - 13);
        } else if (hour == 15) {
            expected += text;
        }
    }
    request.filter.since = "2026/03/07 14:30:00.000";
    for (bool lastLines : { false, true }) {
        request.lines.reset();
        if (lastLines)
            request.lines = 1000000;
        EXPECT_EQ(Shown().size(), WithoutCr(expected).size());
        EXPECT_EQ(view.said, WithoutCr(expected));
        EXPECT_TRUE(good);
        EXPECT_THAT(view.notes, IsEmpty());
    }
    // 12:10 is the first beginning that lies two hours back: of the files before not more than their beginnings is
    // read.
    for (int number = 4; number <= LOG_GENERATIONS; number++) {
        EXPECT_EQ((logs.files[{ "diskperf", number }]->read), 0u) << number;
    }
    EXPECT_GT((logs.files[{ "diskperf", 3 }]->read), LOG_BLOCK);
}

// The clock was set back from 16:00 to 14:00 in the middle of a file: what was written before that is shown as well.
TEST_F(LogsShow, AClockThatWasSetBackHidesNothing)
{
    logs.Write("diskperf", TraceLine("13:59:00.000", " 1"), 3);
    logs.Write("diskperf", TraceLine("15:00:00.000", " 2") + TraceLine("15:59:59.999", " 3"), 2);
    logs.Write("diskperf", TraceLine("14:00:00.000", " 4"), 1);
    logs.Write("diskperf", TraceLine("16:00:00.000", " 5"));
    request.filter.since = "2026/03/07 15:30:00.000";
    EXPECT_EQ(Shown(), WithoutCr(TraceLine("15:59:59.999", " 3") + TraceLine("16:00:00.000", " 5")));
}

// What begins with somebody else's line says nothing about its time.
TEST_F(LogsShow, AFileWithoutATimeAtItsBeginningEndsNoSearch)
{
    logs.Write("diskperf", TraceLine("15:00:00.000", " 1"), 3);
    logs.Write("diskperf", "0000: foreign, long enough to hold a time\r\n", 2);
    logs.Write("diskperf", "short\r\n", 1);
    logs.Write("diskperf", TraceLine("15:10:00.000", " 2"));
    request.filter.since = "2026/03/07 15:00:00.000";
    EXPECT_EQ(Shown(), WithoutCr(TraceLine("15:00:00.000", " 1") + TraceLine("15:10:00.000", " 2")));
    // The newest stays, however old it is: following goes on there.
    request.filter.since = "2026/03/09 15:00:00.000";
    EXPECT_EQ(Shown(), "");
    EXPECT_TRUE(good);
}

TEST_F(LogsShow, OneLineMayBeAsLongAsTheLibraryMakesThem)
{
    const std::string prefix = TraceLine("14:05:09.042", "");
    const std::string longest = TraceLine("14:05:09.042", std::string(16384 - prefix.size(), 'x'), "0x0020");
    ASSERT_EQ(longest.size(), 16384u);
    logs.Write("diskperf", longest + longest + Numbered(1, 1) + longest + longest + longest + longest);
    EXPECT_EQ(Shown(), WithoutCr(longest + longest + Numbered(1, 1) + longest + longest + longest + longest));
    EXPECT_THAT(view.notes, IsEmpty());
    request.lines = 5;
    EXPECT_EQ(Shown(), WithoutCr(Numbered(1, 1) + longest + longest + longest + longest));
}

TEST_F(LogsShow, WhatIsNoRecordIsShownAsItIsAndCounted)
{
    logs.Write("diskperf", Numbered(1, 1) + "who wrote this?\n\r\n" + Numbered(2, 2) + "2026/03/07 14:05:09.0", 1);
    logs.Write("diskperf", std::string("a\0b", 3) + "\r\n" + Numbered(3, 3));
    EXPECT_EQ(Shown(), WithoutCr(Numbered(1, 1)) + "who wrote this?\n\n" + WithoutCr(Numbered(2, 2)) +
                           "2026/03/07 14:05:09.0\n" + std::string("a\0b", 3) + "\n" + WithoutCr(Numbered(3, 3)));
    EXPECT_THAT(view.notes, ElementsAre("diskperf.log: 4 lines are no records"));
    EXPECT_TRUE(good);
}

TEST_F(LogsShow, OfALineWithoutEndItsBeginningIsShownAndTheRestIsPassedOver)
{
    for (size_t size : { LOG_LINE_BOUND - 1, LOG_LINE_BOUND, LOG_LINE_BOUND + 1, 2 * LOG_LINE_BOUND,
                         3 * LOG_LINE_BOUND + 5, 10 * LOG_LINE_BOUND }) {
        const std::string begin(std::min(size, LOG_LINE_BOUND), 'x');
        logs.files.clear();
        logs.Write("diskperf", Numbered(1, 1) + std::string(size, 'x') + "\r\n" + Numbered(2, 2));
        request.lines.reset();
        EXPECT_EQ(Shown(), WithoutCr(Numbered(1, 1)) + begin + "\n" + WithoutCr(Numbered(2, 2))) << size;
        request.lines = 2;
        EXPECT_EQ(Shown(), begin + "\n" + WithoutCr(Numbered(2, 2))) << size;
        request.lines = 1;
        EXPECT_EQ(Shown(), WithoutCr(Numbered(2, 2))) << size;
        request.lines = 3;
        EXPECT_EQ(Shown(), WithoutCr(Numbered(1, 1)) + begin + "\n" + WithoutCr(Numbered(2, 2))) << size;
    }
}

TEST_F(LogsShow, SeveralLogsStandInTheOrderOfTheirTimesEqualOnesInTheirOwn)
{
    request.logs = { FindLogSource("diskperf"), FindLogSource("trace"), FindLogSource("conf") };
    logs.Write("diskperf", TraceLine("10:00:00.000", " a1") + TraceLine("10:00:00.002", " a2"), 1);
    logs.Write("diskperf", TraceLine("10:00:00.002", " a3") + TraceLine("10:00:00.004", " a4"));
    logs.Write("diskperf_trace", TraceLine("10:00:00.001", " b1") + "torn\r\n" + TraceLine("10:00:00.002", " b2") +
                                     TraceLine("10:00:00.002", " b3"));
    logs.Write("diskperf_conf", TraceLine("10:00:00.000", " c1") + TraceLine("10:00:00.003", " c2"));
    const auto line = [](const char* name, const std::string& time, const std::string& text) {
        return name + WithoutCr(TraceLine(time, text));
    };
    const std::string merged = line("diskperf ", "10:00:00.000", " a1") + line("conf     ", "10:00:00.000", " c1") +
                               line("trace    ", "10:00:00.001", " b1") + "trace    torn\n" +
                               line("diskperf ", "10:00:00.002", " a2") + line("diskperf ", "10:00:00.002", " a3") +
                               line("trace    ", "10:00:00.002", " b2") + line("trace    ", "10:00:00.002", " b3") +
                               line("conf     ", "10:00:00.003", " c2") + line("diskperf ", "10:00:00.004", " a4");
    EXPECT_EQ(Shown(), merged);
    // The last so many of all logs together.
    size_t begin = merged.size();
    for (size_t count = 1; count <= 10; count++) {
        begin = merged.rfind('\n', begin - 2);
        begin = begin == std::string::npos ? 0 : begin + 1;
        request.lines = count;
        EXPECT_EQ(Shown(), merged.substr(begin)) << count;
    }
}

TEST_F(LogsShow, JsonIsOneObjectALine)
{
    request.json = true;
    logs.Write("diskperf", TraceLine("14:05:09.042", " \"a\\b\" <5>", "0x0003") + "torn \x01\r\n");
    const std::string shown = Shown();
    ASSERT_EQ(std::count(shown.begin(), shown.end(), '\n'), 2);
    EXPECT_EQ(Json::parse(shown.substr(0, shown.find('\n'))), Json({ { "format", 1 },
                                                                     { "log", "diskperf" },
                                                                     { "time", "2026/03/07 14:05:09.042" },
                                                                     { "pid", 1180 },
                                                                     { "tid", 2044 },
                                                                     { "level", 3 },
                                                                     { "levels", { "error", "warning" } },
                                                                     { "source", "diskperf/src/diskperf_shm" },
                                                                     { "line", 123 },
                                                                     { "routine", "Routine" },
                                                                     { "text", " \"a\\b\" <5>" } }));
    EXPECT_EQ(Json::parse(shown.substr(shown.find('\n'))),
              Json({ { "format", 1 }, { "log", "diskperf" }, { "unread", "torn \x01" } }));
}

TEST_F(LogsShow, EventEntriesHaveNumberSeverityAndText)
{
    request.logs = { FindLogSource("events") };
    logs.Write("diskperf_event", "2026/03/07 10:00:00.000 WARNING 0x800012C1 It fails.\r\n", 1);
    logs.Write("diskperf_event", "2026/03/07 11:00:00.000 INFORMATION 0x400012C2 It works.\r\n");
    EXPECT_EQ(Shown(), "2026/03/07 10:00:00.000 WARNING 0x800012C1 It fails.\n"
                       "2026/03/07 11:00:00.000 INFORMATION 0x400012C2 It works.\n");
    request.json = true;
    request.filter.levels = 2;
    EXPECT_EQ(Json::parse(Shown()), Json({ { "format", 1 },
                                           { "log", "events" },
                                           { "time", "2026/03/07 10:00:00.000" },
                                           { "severity", "WARNING" },
                                           { "id", 0x800012C1 },
                                           { "number", "0x800012C1" },
                                           { "text", "It fails." } }));
}

/* ---- What is missing or held ---- */

TEST_F(LogsShow, AMissingFolderIsSaidWithItsCure)
{
    logs.missing = ERROR_PATH_NOT_FOUND;
    EXPECT_EQ(Shown(), "");
    EXPECT_FALSE(good);
    EXPECT_THAT(view.notes, ElementsAre("there is no folder C:\\HOME\\log: dkpfctl install makes it"));
}

TEST_F(LogsShow, AMissingLogIsSaid)
{
    EXPECT_EQ(Shown(), "");
    EXPECT_FALSE(good);
    EXPECT_THAT(view.notes, ElementsAre(HasSubstr("there is no C:\\HOME\\log\\diskperf.log: ")));
}

TEST_F(LogsShow, OneOfSeveralMissingLogsIsSaidAndTheOthersAreShown)
{
    request.logs = { FindLogSource("diskperf"), FindLogSource("trace") };
    logs.Write("diskperf_trace", Numbered(1, 1));
    EXPECT_EQ(Shown(), "trace    " + WithoutCr(Numbered(1, 1)));
    EXPECT_FALSE(good);
    EXPECT_THAT(view.notes, ElementsAre(HasSubstr("there is no C:\\HOME\\log\\diskperf.log: ")));
}

TEST_F(LogsShow, NoEventEntryYetIsWell)
{
    request.logs = { FindLogSource("events") };
    EXPECT_EQ(Shown(), "");
    EXPECT_TRUE(good);
    EXPECT_THAT(view.notes,
                ElementsAre("no event entry was written yet: there is no C:\\HOME\\log\\diskperf_event.log"));
}

TEST_F(LogsShow, AHeldGenerationIsSaidAndTheOthersAreShown)
{
    logs.Write("diskperf", Numbered(1, 1), 3);
    logs.Write("diskperf", Numbered(2, 2), 2);
    logs.Write("diskperf", Numbered(3, 3), 1);
    logs.openErrors[{ "diskperf", 2 }] = ERROR_SHARING_VIOLATION;
    EXPECT_EQ(Shown(), WithoutCr(Numbered(1, 1) + Numbered(3, 3)));
    EXPECT_FALSE(good);
    EXPECT_THAT(view.notes, ElementsAre(HasSubstr("diskperf.2.log could not be opened: error 32")));
}

TEST_F(LogsShow, APartThatCannotBeReadIsSaidAndTheRestIsShown)
{
    logs.Write("diskperf", Numbered(1, 1), 1).readError = ERROR_CRC;
    logs.Write("diskperf", Numbered(2, 2));
    for (const bool lastLines : { false, true }) {
        request.lines.reset();
        if (lastLines)
            request.lines = 50;
        view.notes.clear();
        EXPECT_EQ(Shown(), WithoutCr(Numbered(2, 2)));
        EXPECT_FALSE(good);
        EXPECT_THAT(view.notes, ElementsAre(HasSubstr("a part of diskperf.1.log could not be read: error 23")));
    }
}

// The lines behind the damage were found already. What is shown of them is said to be a part.
TEST_F(LogsShow, OfAFileDamagedInItsMiddleTheLinesBehindItAreShown)
{
    const std::string whole = Numbered(1, 4000);
    ASSERT_GT(whole.size(), 2 * LOG_BLOCK);
    logs.Write("diskperf", Numbered(5000, 5000), 1);
    PictureFile& damaged = logs.Write("diskperf", whole);
    damaged.readError = ERROR_CRC;
    damaged.errorBelow = LOG_BLOCK;
    request.lines = 5000;
    const std::string shown = Shown();
    EXPECT_FALSE(good);
    EXPECT_THAT(view.notes, ElementsAre(HasSubstr("a part of diskperf.log could not be read: error 23")));
    // Blocks are read from the end: what lies behind the last one that could be, from its first whole line on.
    const size_t      from = whole.size() - (whole.size() - LOG_BLOCK) / LOG_BLOCK * LOG_BLOCK;
    const std::string rest = whole.substr(whole.find('\n', from - 1) + 1);
    EXPECT_EQ(shown, WithoutCr(Numbered(5000, 5000) + rest));
}

TEST_F(LogsShow, EndsWhereNobodyReadsAnyMore)
{
    logs.Write("diskperf", Numbered(1, 40000));
    view.failingSay = 2;
    Shown();
    EXPECT_EQ(view.says, 2);
    EXPECT_TRUE(good);
}

}  // namespace
