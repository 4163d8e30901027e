// Lines of the logs taken apart, level words, moments, and which lines a filter lets through.
#include <gmock/gmock.h>

#include "logs_filter.h"
#include "logs_record.h"

using namespace dkpf;
using testing::ElementsAre;

namespace {

const char HEAD[] = "2026/03/07 14:05:09.042 1180:2044 ";

LogRecord Parsed(const std::string& line, LogKind kind = LogKind::Trace)
{
    LogRecord record;
    EXPECT_TRUE(ParseLogLine(kind, line, &record)) << line;
    return record;
}

TEST(TraceLine, ComesApart)
{
    const std::string line = HEAD + std::string("0x0001 diskperf/src/diskperf_shm(123) _DkpfShmOpenMapping: Open(a:b) "
                                                "failed. <W32Err=2>");
    const LogRecord   record = Parsed(line);
    EXPECT_EQ(record.time, "2026/03/07 14:05:09.042");
    EXPECT_EQ(record.pid, 1180u);
    EXPECT_EQ(record.tid, 2044u);
    EXPECT_EQ(record.level, 1u);
    EXPECT_EQ(record.source, "diskperf/src/diskperf_shm");
    EXPECT_EQ(record.line, 123u);
    EXPECT_EQ(record.routine, "_DkpfShmOpenMapping");
    EXPECT_EQ(record.text, " Open(a:b) failed. <W32Err=2>");
}

TEST(TraceLine, OfEveryLevelIsARecord)
{
    const struct {
        const char* text;
        DWORD       level;
    } levels[] = { { "0x0001", 1 },
                   { "0x0002", 2 },
                   { "0x0004", 4 },
                   { "0x0008", 8 },
                   { "0x0010", 16 },
                   { "0x0020", 32 },
                   { "0x8000", 0x8000 },
                   { "0x0000", 0 },
                   { "0x0003", 3 },
                   { "0xFFFF", 0xFFFF },
                   { "0x12345678", 0x12345678 } };
    for (const auto& level : levels) {
        const std::string line = std::string(HEAD) + level.text + " s(1) r:t";
        EXPECT_EQ(Parsed(line).level, level.level) << line;
    }
}

TEST(TraceLine, MayHaveEmptyParts)
{
    const std::string line = HEAD + std::string("0x0004 (0) :");
    const LogRecord   record = Parsed(line);
    EXPECT_EQ(record.source, "");
    EXPECT_EQ(record.line, 0u);
    EXPECT_EQ(record.routine, "");
    EXPECT_EQ(record.text, "");
}

TEST(TraceLine, ASourceNameMayHoldBracketsAndBlanks)
{
    const std::string line = HEAD + std::string("0x0004 C:\\Program Files (x86)\\a(b) c(4294967295) r:(7) x:y");
    const LogRecord   record = Parsed(line);
    EXPECT_EQ(record.source, "C:\\Program Files (x86)\\a(b) c");
    EXPECT_EQ(record.line, 4294967295u);
    EXPECT_EQ(record.routine, "r");
    EXPECT_EQ(record.text, "(7) x:y");
}

// The library cuts a line at 16,384 bytes, CR LF included: what is left of the text is the text.
TEST(TraceLine, CutAtItsBoundIsARecord)
{
    std::string line = HEAD + std::string("0x0020 s(1) Dump:");
    line.resize(16382, 'x');
    EXPECT_EQ(Parsed(line).text, std::string(16382 - 51, 'x'));
}

TEST(TraceLine, OtherLinesAreNoneAndLeaveTheRecordAlone)
{
    LogRecord   record;
    std::string cut = HEAD + std::string("0x0001 s(1) r:");
    record.pid = 7;
    for (size_t length = 0; length < cut.size(); length++) {
        EXPECT_FALSE(ParseLogLine(LogKind::Trace, cut.substr(0, length), &record)) << length;
    }
    for (const char* rest :
         { "0001 s(1) r:t", "0x s(1) r:t", "0xG s(1) r:t", "0x0001 s r:t", "0x0001 s(x) r:t", "0x0001 s() r:t",
           "0x0001 s(1)r:t", "0x0001 s(1) no colon", "0x123456789 s(1) r:t", "0x0001 s(99999999999) r:t" }) {
        EXPECT_FALSE(ParseLogLine(LogKind::Trace, HEAD + std::string(rest), &record)) << rest;
    }
    for (const char* line :
         { "2026-03-07 14:05:09.042 1:2 0x0001 s(1) r:t", "2026/03/07 14:05:09.042 1;2 0x0001 s(1) r:t",
           "2026/03/07 14:05:09.042 99999999999:2 0x0001 s(1) r:t", "2026/03/07 14:05:09.042 -1:2 0x0001 s(1) r:t",
           "2026/03/07 14:05:09.042  1:2 0x0001 s(1) r:t" }) {
        EXPECT_FALSE(ParseLogLine(LogKind::Trace, line, &record)) << line;
    }
    EXPECT_EQ(record.pid, 7u);
}

TEST(EventEntry, ItsSeverityIsALevel)
{
    const struct {
        const char* line;
        DWORD       event, level;
    } entries[] = { { "2026/03/07 14:05:09.042 ERROR 0xC00012C5 a", 0xC00012C5, 1 },
                    { "2026/03/07 14:05:09.042 WARNING 0x800012C1 a", 0x800012C1, 2 },
                    { "2026/03/07 14:05:09.042 INFORMATION 0x400012C2 a", 0x400012C2, 4 },
                    { "2026/03/07 14:05:09.042 SUCCESS 0x00000001 a", 1, 4 } };
    for (const auto& entry : entries) {
        const LogRecord record = Parsed(entry.line, LogKind::Events);
        EXPECT_EQ(record.event, entry.event);
        EXPECT_EQ(record.level, entry.level) << entry.line;
        EXPECT_EQ(record.text, "a");
    }
    EXPECT_EQ(Parsed(entries[0].line, LogKind::Events).severity, "ERROR");
    EXPECT_EQ(Parsed(entries[0].line, LogKind::Events).time, "2026/03/07 14:05:09.042");
}

TEST(LogNames, AreThoseOfTheCommandLineAndOfTheFiles)
{
    for (const char* name : { "trace", "diskperf_trace", "diskperf_trace.log", "trace.log" }) {
        ASSERT_NE(FindLogSource(name), nullptr) << name;
        EXPECT_STREQ(FindLogSource(name)->file, "diskperf_trace") << name;
    }
    EXPECT_STREQ(FindLogSource("diskperf")->file, "diskperf");
    EXPECT_STREQ(FindLogSource("conf")->file, "diskperf_conf");
    EXPECT_STREQ(FindLogSource("events")->file, "diskperf_event");
    for (const char* name : { "", ".log", "Trace", "trac", "diskperf.1.log", "..\\diskperf" }) {
        EXPECT_EQ(FindLogSource(name), nullptr) << name;
    }
}

TEST(Levels, AreWordsOrAMask)
{
    const struct {
        const char* text;
        DWORD       mask;
    } good[] = { { "error", 1 },        { "error,warning", 3 }, { "notice", 4 },      { "entry,detail,dump", 0x38 },
                 { "event", 0x8000 },   { "0x3", 3 },           { "0X8001", 0x8001 }, { "7", 7 },
                 { "0x10,error", 0x11 } };
    for (const auto& known : good) {
        DWORD mask = 0;
        EXPECT_TRUE(ParseLevels(known.text, &mask)) << known.text;
        EXPECT_EQ(mask, known.mask) << known.text;
    }
    for (const char* text :
         { "", "0", "0x0", "errors", "error,", ",error", "error;warning", "0x", "3x", "-1", "0x100000000", "Error" }) {
        DWORD mask = 99;
        EXPECT_FALSE(ParseLevels(text, &mask)) << text;
        EXPECT_EQ(mask, 99u) << text;
    }
    EXPECT_THAT(LevelNames(0x8021), ElementsAre("error", "dump", "event"));
}

// The clock of these cases: 2026-03-07 14:05:09.042, less the seconds asked for.
SYSTEMTIME Clock(ULONGLONG secondsAgo)
{
    SYSTEMTIME now = { 2026, 3, 6, 7, 14, 5, 9, 42 };
    FILETIME   file{};
    SystemTimeToFileTime(&now, &file);
    ULARGE_INTEGER moment;
    moment.LowPart = file.dwLowDateTime;
    moment.HighPart = file.dwHighDateTime;
    moment.QuadPart -= secondsAgo * 10000000ull;
    file = { moment.LowPart, moment.HighPart };
    FileTimeToSystemTime(&file, &now);
    return now;
}

TEST(Moments, AreTimesOfTheFiles)
{
    const struct {
        const char *text, *since, *until;
    } moments[] = {
        { "2026-03-07 14:05:09.042", "2026/03/07 14:05:09.042", "2026/03/07 14:05:09.042" },
        { "2026-03-07 14:05:09", "2026/03/07 14:05:09.000", "2026/03/07 14:05:09.999" },
        { "2026-03-07 14:05", "2026/03/07 14:05:00.000", "2026/03/07 14:05:59.999" },
        { "2026-03-07", "2026/03/07 00:00:00.000", "2026/03/07 23:59:59.999" },
        { "2026/03/07 14:05", "2026/03/07 14:05:00.000", "2026/03/07 14:05:59.999" },
        { "2026-03-07T14:05", "2026/03/07 14:05:00.000", "2026/03/07 14:05:59.999" },
        { "9s", "2026/03/07 14:05:00.042", "2026/03/07 14:05:00.042" },
        { "10m", "2026/03/07 13:55:09.042", "2026/03/07 13:55:09.042" },
        { "15h", "2026/03/06 23:05:09.042", "2026/03/06 23:05:09.042" },
        { "7d", "2026/02/28 14:05:09.042", "2026/02/28 14:05:09.042" },
        { "0s", "2026/03/07 14:05:09.042", "2026/03/07 14:05:09.042" },
    };
    for (const auto& moment : moments) {
        EXPECT_EQ(ParseMoment(moment.text, Edge::Since, Clock), moment.since) << moment.text;
        EXPECT_EQ(ParseMoment(moment.text, Edge::Until, Clock), moment.until) << moment.text;
    }
}

TEST(Moments, OtherTextsAreNone)
{
    for (const char* text : { "",
                              "now",
                              "m",
                              "10",
                              "-10m",
                              "10 m",
                              "10mm",
                              "1.5h",
                              "99999999999h",
                              "2026-3-7",
                              "2026-03-07 14",
                              "14:05",
                              "2026-03-07 14:05:0",
                              "2026-13-01",
                              "2026-02-29",
                              "2026-03-07 24:00",
                              "2026-03-07 14:60",
                              "2026-03-0x",
                              "2026T03T07",
                              "2026-03-07-14:05",
                              "2026-03-07 14-05" }) {
        EXPECT_EQ(ParseMoment(text, Edge::Since, Clock), "") << text;
    }
}

TEST(Moments, HoursBeforeGoOverDaysAndYears)
{
    EXPECT_EQ(HoursBefore("2026/03/07 14:05:09.042", 2), "2026/03/07 12:05:09.042");
    EXPECT_EQ(HoursBefore("2026/03/01 01:00:00.000", 2), "2026/02/28 23:00:00.000");
    EXPECT_EQ(HoursBefore("2028/03/01 00:00:00.000", 1), "2028/02/29 23:00:00.000");
    EXPECT_EQ(HoursBefore("2026/01/01 00:59:59.999", 1), "2025/12/31 23:59:59.999");
    EXPECT_EQ(HoursBefore("1601/01/01 01:00:00.000", 2), "");
    EXPECT_EQ(HoursBefore("2026/02/30 01:00:00.000", 2), "");
    EXPECT_EQ(HoursBefore("", 2), "");
}

bool Passes(const LogFilter& filter, const std::string& line)
{
    LogRecord record;
    return Matches(filter, line, ParseLogLine(LogKind::Trace, line, &record) ? &record : nullptr);
}

TEST(Filter, ALineHasToMatchAllThatIsAskedFor)
{
    const std::string line = HEAD + std::string("0x0002 s(1) _DkpfShmSetPerf: text <5>");
    LogFilter         right;
    EXPECT_TRUE(right.Empty());
    right.levels = 3;
    right.routine = "_DkpfShm*";
    right.process = 1180;
    right.since = right.until = "2026/03/07 14:05:09.042";
    right.text = "<5>";
    EXPECT_FALSE(right.Empty());
    EXPECT_TRUE(Passes(right, line));

    LogFilter wrong = right;
    wrong.levels = 1;
    EXPECT_FALSE(Passes(wrong, line));
    wrong = right;
    wrong.routine = "_DkpfShm";  // the whole name, without a star
    EXPECT_FALSE(Passes(wrong, line));
    wrong.routine = "_DkpfShmSetPerfZero*";
    EXPECT_FALSE(Passes(wrong, line));
    wrong = right;
    wrong.process = 118;
    EXPECT_FALSE(Passes(wrong, line));
    wrong = right;
    wrong.since = "2026/03/07 14:05:09.043";
    EXPECT_FALSE(Passes(wrong, line));
    wrong = right;
    wrong.until = "2026/03/07 14:05:09.041";
    EXPECT_FALSE(Passes(wrong, line));
    wrong = right;
    wrong.text = "<6>";
    EXPECT_FALSE(Passes(wrong, line));
}

TEST(Filter, AStarAloneIsAnyRoutineEvenNone)
{
    LogFilter filter;
    filter.routine = "*";
    EXPECT_TRUE(Passes(filter, HEAD + std::string("0x0001 s(1) :t")));
}

TEST(Filter, ALineThatIsNoRecordMatchesTextAlone)
{
    LogFilter text;
    text.text = "for";
    EXPECT_TRUE(Passes(LogFilter(), "foreign"));
    EXPECT_TRUE(Passes(text, "foreign"));
    EXPECT_FALSE(Passes(text, "odd"));
    LogFilter filters[5];
    filters[0].levels = 0xFFFF;
    filters[1].routine = "*";
    filters[2].process = 1180;
    filters[3].since = "0";
    filters[4].until = "9";
    for (const LogFilter& filter : filters) {
        EXPECT_FALSE(filter.Empty());
        EXPECT_FALSE(Passes(filter, "foreign"));
    }
}

}  // namespace
