/*
 * Event entries: lines of the file, cut-off and foreign ones, and how far back the generations are read.
 */
#include <gmock/gmock.h>

#include "event_log.h"
#include "support/temp_folder.h"

using namespace dkpf;
using testing::IsEmpty;

static std::string Line(const char* time, const char* rest = "WARNING 0x800012C1 collecting failed")
{
    return std::string("2026/03/07 ") + time + " " + rest + "\r\n";
}

TEST(EventLine, AnEntryComesApart)
{
    EventEntry entry;
    ASSERT_TRUE(ParseEventLine("2026/03/07 14:05:09.042 ERROR 0xC00012C5 A worker thread ended.", &entry));
    EXPECT_EQ(entry.time, "2026/03/07 14:05:09.042");
    EXPECT_EQ(entry.severity, "ERROR");
    EXPECT_EQ(entry.id, 0xC00012C5u);
    EXPECT_EQ(entry.text, "A worker thread ended.");
}

TEST(EventLine, OtherLinesAreRefusedAndLeaveTheEntryAlone)
{
    EventEntry entry;
    entry.text = "kept";
    for (const char* line : { "", "no entry", "2026/03/07 14:05:09.042", "2026/03/07 14:05:09.042 ERROR",
                              "2026-03-07 14:05:09.042 ERROR 0x1 t", "2026/03/07 14:05:09.042 ERROR 1234 t",
                              "2026/03/07 14:05:09.042 ERROR 0x t", "2026/03/07 14:05:09.042 ERROR 0x12G t",
                              "2026/03/07 14:05:09.042 ERROR 0x1C00012C5 t", "x026/03/07 14:05:09.042 ERROR 0x1 t" })
        EXPECT_FALSE(ParseEventLine(line, &entry)) << line;
    EXPECT_EQ(entry.text, "kept");
}

TEST(EventLog, ForeignLinesAndACutOffLastLineAreCountedNotShown)
{
    EventHistory history;
    ParseEvents(Line("10:00:00.000") + "what is this\r\n" + Line("11:00:00.000") +
                    "2026/03/07 12:00:00.000 WARNING 0x800012C1 half",
                &history);
    EXPECT_EQ(history.entries.size(), 2u);
    EXPECT_EQ(history.unread, 2u);
}

TEST(EventLog, OnlyEntriesSinceTheMomentCount)
{
    TempFolder folder;
    folder.Write(L"diskperf_event.log", Line("10:00:00.000") + Line("11:00:00.000") + Line("11:00:00.001"));
    const EventHistory history = ReadEventsSince(folder.File(L"diskperf_event.log"), "2026/03/07 11:00:00.000");
    ASSERT_EQ(history.entries.size(), 2u);
    EXPECT_EQ(history.entries[0].time, "2026/03/07 11:00:00.000");
}

TEST(EventLog, OlderGenerationsAreReadAsFarBackAsNeededAndStandInFront)
{
    TempFolder folder;
    folder.Write(L"diskperf_event.log", Line("12:00:00.000"));
    folder.Write(L"diskperf_event.1.log", Line("11:00:00.000"));
    folder.Write(L"diskperf_event.2.log", Line("09:00:00.000") + Line("10:00:00.000"));
    folder.Write(L"diskperf_event.3.log", "never reached\r\n");
    const EventHistory history = ReadEventsSince(folder.File(L"diskperf_event.log"), "2026/03/07 09:30:00.000");
    ASSERT_EQ(history.entries.size(), 3u);
    EXPECT_EQ(history.entries[0].time, "2026/03/07 10:00:00.000");
    EXPECT_EQ(history.entries[2].time, "2026/03/07 12:00:00.000");
    EXPECT_EQ(history.unread, 0u);
}

TEST(EventLog, AGapThatAKilledWriterLeftInTheGenerationsIsPassedOver)
{
    TempFolder folder;
    folder.Write(L"diskperf_event.1.log", Line("11:00:00.000"));
    folder.Write(L"diskperf_event.3.log", Line("10:00:00.000"));
    const EventHistory history = ReadEventsSince(folder.File(L"diskperf_event.log"), "2026/03/07 00:00:00.000");
    ASSERT_EQ(history.entries.size(), 2u);
    EXPECT_EQ(history.entries[0].time, "2026/03/07 10:00:00.000");
    EXPECT_EQ(history.entries[1].time, "2026/03/07 11:00:00.000");
    EXPECT_EQ(history.error, 0u);
}

TEST(EventLog, AMissingFileIsNoErrorAHeldOneIs)
{
    TempFolder folder;
    EXPECT_EQ(ReadEventsSince(folder.File(L"diskperf_event.log"), "2026/03/07 00:00:00.000").error, 0u);

    folder.Write(L"diskperf_event.log", Line("12:00:00.000"));
    const HANDLE holder =
        CreateFileW(folder.File(L"diskperf_event.log").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    const EventHistory history = ReadEventsSince(folder.File(L"diskperf_event.log"), "2026/03/07 00:00:00.000");
    CloseHandle(holder);
    EXPECT_EQ(history.error, static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_THAT(history.entries, IsEmpty());
}

TEST(EventLog, AnAgentsStartTimeBecomesTheFilesForm)
{
    EXPECT_EQ(EventTimeOf("2026-03-07T14:05:09.042+09:00"), "2026/03/07 14:05:09.042");
    EXPECT_EQ(EventTimeOf("2026-03-07T14:05:09.042-09:00"), "2026/03/07 14:05:09.042");
    EXPECT_EQ(EventTimeOf(""), "");
    EXPECT_EQ(EventTimeOf("yesterday"), "");
}
