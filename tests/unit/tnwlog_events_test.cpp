// Event entries: what the system's event log is given, and the same in words in diskperf_event.log.
#include "tnwlog_fixture.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const wchar_t* const EVENT_LOG = L"log\\diskperf_event.log";

struct Reported {
    std::string source;
    WORD        wType;
    DWORD       dwEvent;
    WORD        wStrings;
    bool        isInFile;  // the entry stands in our own file already
};

std::vector<Reported> g_reported;
std::string           g_source;
bool                  g_noSource;
const TestHome*       g_home;
int                   g_handles;  // of the event log, open now

// No handle of the system's: what is reported to another one fails.
const HANDLE SOURCE = reinterpret_cast<HANDLE>(INT_PTR{ 4711 });

HANDLE WINAPI RegisterHook(LPCSTR, LPCSTR lpSource)
{
    g_source = lpSource;
    g_handles += g_noSource ? 0 : 1;
    return g_noSource ? nullptr : SOURCE;
}

BOOL WINAPI DeregisterHook(HANDLE hSource)
{
    EXPECT_EQ(SOURCE, hSource);
    g_handles--;
    return TRUE;
}

BOOL WINAPI ReportHook(HANDLE hSource, WORD wType, WORD, DWORD dwEvent, PSID, WORD wStrings, DWORD, LPCSTR*, LPVOID)
{
    char szNumber[16];

    EXPECT_EQ(SOURCE, hSource);
    snprintf(szNumber, sizeof szNumber, " 0x%08lX ", dwEvent);
    g_reported.push_back({ g_source, wType, dwEvent, wStrings,
                           g_home->Read(L"log\\diskperf_event.log").find(szNumber) != std::string::npos });
    return TRUE;
}

void WINAPI TimeHook(LPSYSTEMTIME lpTime)
{
    *lpTime = { 2026, 12, 4, 31, 23, 59, 59, 7 };
}

class EventLog : public TnwLogTest {
protected:
    void SetUp() override
    {
        g_reported.clear();
        g_noSource = false;
        g_home = &home;
        g_handles = 0;
        Hook("advapi32.dll", "RegisterEventSourceA", RegisterHook);
        Hook("advapi32.dll", "ReportEventA", ReportHook);
        Hook("advapi32.dll", "DeregisterEventSource", DeregisterHook);
        Hook("kernel32.dll", "GetLocalTime", TimeHook);
        ASSERT_EQ(api->log_init("diskperf", &hLog, 0, 1, 0, "key"), TNWLOG_OK);
    }
    void TearDown() override
    {
        api->log_term(hLog);
        EXPECT_EQ(g_handles, 0);
    }

    void Raise(DWORD dwEvent, const char* lpText = "")
    {
        api->log_write(hLog, TNWLOG_EVENT, dwEvent, "src/unit", 7, "Routine", "%s", lpText);
    }

    std::string Entry()
    {
        const std::vector<std::string> lines = Lines(home.Read(EVENT_LOG));
        return lines.size() == 1 ? lines[0] : std::to_string(lines.size()) + " lines";
    }

    HTNWLOG hLog = nullptr;
};

struct Event {
    DWORD       dwEvent;
    WORD        wType;
    const char* lpEntry;
};

void PrintTo(const Event& event, std::ostream* lpOut)
{
    *lpOut << std::hex << event.dwEvent;
}

class EachEvent : public EventLog, public testing::WithParamInterface<Event> {};

TEST_P(EachEvent, IsReportedAndStandsInTheFileInWords)
{
    Raise(GetParam().dwEvent);
    ASSERT_EQ(g_reported.size(), 1u);
    EXPECT_EQ(g_reported[0].source, "tnwdiskperf");
    EXPECT_EQ(g_reported[0].wType, GetParam().wType);
    EXPECT_EQ(g_reported[0].dwEvent, GetParam().dwEvent);
    EXPECT_EQ(g_reported[0].wStrings, 0);
    EXPECT_TRUE(g_reported[0].isInFile) << "whatever the event log then does";
    EXPECT_THAT(Entry(), StartsWith(std::string("2026/12/31 23:59:59.007 ") + GetParam().lpEntry));
    EXPECT_THAT(Entry(), EndsWith("."));  // whole sentences, no line end of the table left
    EXPECT_THAT(Entry(), Not(HasSubstr("%")));
}

INSTANTIATE_TEST_SUITE_P(
    All, EachEvent,
    testing::Values(Event{ 0xC00012C5, EVENTLOG_ERROR_TYPE,
                           "ERROR 0xC00012C5 A worker thread of the disk performance library stopped on an error." },
                    Event{ 0x800012C1, EVENTLOG_WARNING_TYPE,
                           "WARNING 0x800012C1 The performance figures of the mirror disks cannot be collected" },
                    Event{ 0x400012C2, EVENTLOG_INFORMATION_TYPE,
                           "INFORMATION 0x400012C2 The performance figures of the mirror disks are collected again." },
                    Event{ 0x800012C3, EVENTLOG_WARNING_TYPE,
                           "WARNING 0x800012C3 Performance CSV logs cannot be written." },
                    Event{ 0x400012C4, EVENTLOG_INFORMATION_TYPE,
                           "INFORMATION 0x400012C4 All performance CSV logs are written again." },
                    Event{ 0xC00012C6, EVENTLOG_ERROR_TYPE,
                           "ERROR 0xC00012C6 No further program can read the performance counters" }));

TEST_F(EventLog, TheTraceLogHasALineOfItToo)
{
    Raise(0x800012C1);
    EXPECT_THAT(home.Read(L"log\\diskperf.log"), EndsWith(" 0x8000 src/unit(7) Routine: <event 0x800012C1>\r\n"));
}

TEST_F(EventLog, TheCallersOwnTextFollowsTheText)
{
    Raise(0x400012C4, "disk 3");
    EXPECT_THAT(Entry(), EndsWith("No action is needed. disk 3"));
    EXPECT_THAT(home.Read(L"log\\diskperf.log"), EndsWith("Routine:disk 3 <event 0x400012C4>\r\n"));
}

TEST_F(EventLog, ALongTextOfTheCallerIsCutAndTheEntryEnds)
{
    Raise(0x400012C4, std::string(5000, 'x').c_str());
    EXPECT_THAT(Entry(), EndsWith(" " + std::string(1024, 'x')));
    EXPECT_THAT(Entry(), Not(HasSubstr(std::string(1025, 'x'))));
}

TEST_F(EventLog, TheTraceLineEndsInTheEventHoweverLongTheTextIs)
{
    Raise(0x400012C4, std::string(20000, 'x').c_str());
    const std::string line = home.Read(L"log\\diskperf.log");
    EXPECT_EQ(line.size(), TNWLOG_TRACE_LINE_MAX);
    EXPECT_THAT(line.substr(line.size() - 30), EndsWith("xxx <event 0x400012C4>\r\n"));
}

TEST_F(EventLog, AnEntryIsOneLineWhateverTheCallersTextHolds)
{
    Raise(0x400012C4, "a\r\nb");
    EXPECT_THAT(Entry(), EndsWith("a  b"));
}

TEST_F(EventLog, WithoutANumberThereIsATraceLineAndNoEntry)
{
    Raise(0, "text");
    EXPECT_TRUE(g_reported.empty());
    EXPECT_FALSE(home.Exists(EVENT_LOG));
    EXPECT_THAT(home.Read(L"log\\diskperf.log"), EndsWith("Routine:text\r\n"));
}

TEST_F(EventLog, ANumberAtAnotherLevelIsNoEvent)
{
    api->log_write(hLog, TNWLOG_ERROR, 0xC00012C5, "s", 1, "r", "");
    EXPECT_TRUE(g_reported.empty());
    EXPECT_FALSE(home.Exists(EVENT_LOG));
}

TEST_F(EventLog, ANumberWithoutTextIsStillAnEntry)
{
    Raise(0xC0001FFF);
    EXPECT_THAT(Entry(), EndsWith(" ERROR 0xC0001FFF (no text: tnwmsg.dll is missing or does not know this number)"));
}

TEST_F(EventLog, ANumberWithoutSeverityIsASuccess)
{
    Raise(0x00001FFF);
    ASSERT_EQ(g_reported.size(), 1u);
    EXPECT_EQ(g_reported[0].wType, EVENTLOG_INFORMATION_TYPE);
    EXPECT_THAT(Entry(), HasSubstr(" SUCCESS 0x00001FFF (no text"));
}

TEST_F(EventLog, AMissingMessageFileStillMakesAnEntry)
{
    home.Remove(L"bin\\tnwmsg.dll");
    Raise(0x800012C1);
    EXPECT_THAT(Entry(), HasSubstr(" WARNING 0x800012C1 (no text"));
}

TEST_F(EventLog, AnEventLogThatCannotBeReachedStillMakesAnEntry)
{
    g_noSource = true;
    Raise(0x800012C1);
    EXPECT_TRUE(g_reported.empty());
    EXPECT_THAT(Entry(), HasSubstr(" WARNING 0x800012C1 "));
}

TEST_F(EventLog, AMissingFolderStillReports)
{
    home.Remove(L"log");
    Raise(0x800012C1);
    EXPECT_EQ(g_reported.size(), 1u);
}

// Somebody looks at it with a program that shares nothing.
TEST_F(EventLog, AHeldEventFileCostsTheEntryAndItIsTold)
{
    home.Write(EVENT_LOG, "");
    const HANDLE hReader = home.Hold(EVENT_LOG, 0);

    Raise(0x800012C1, "first");
    Raise(0x400012C2, "second");
    CloseHandle(hReader);
    EXPECT_EQ(g_reported.size(), 2u);
    Raise(0xC00012C5);
    EXPECT_THAT(Entry(), HasSubstr(" ERROR 0xC00012C5 "));
    EXPECT_THAT(
        Lines(home.Read(L"log\\diskperf.log")),
        ElementsAre(EndsWith("first <event 0x800012C1>"),
                    EndsWith(") log_write: 1 event entries were dropped, diskperf_event.log could not be written."),
                    EndsWith("second <event 0x400012C2>"),
                    EndsWith(") log_write: 1 event entries were dropped, diskperf_event.log could not be written."),
                    EndsWith(" <event 0xC00012C5>")));
}

// As above, and the trace log cannot be written either when the loss is to be told.
TEST_F(EventLog, ALossThatCouldNotBeToldIsToldLater)
{
    home.Remove(L"log");
    Raise(0x800012C1);
    Raise(0x400012C2);
    home.MakeFolder(L"log");
    Raise(0xC00012C5);
    EXPECT_THAT(Lines(home.Read(L"log\\diskperf.log")),
                ElementsAre(HasSubstr(": 2 lines were dropped"), HasSubstr(": 2 event entries were dropped"),
                            EndsWith(" <event 0xC00012C5>")));
}

TEST_F(EventLog, TheFileRotatesLikeTheOthers)
{
    for (int n = 0; n < 12; n++) {
        Raise(0x400012C4, std::string(500, 'x').c_str());  // bound 1 KiB: two entries fill a file
    }
    EXPECT_TRUE(home.Exists(L"log\\diskperf_event.1.log"));
    EXPECT_TRUE(home.Exists(L"log\\diskperf_event.5.log"));
    EXPECT_EQ(Lines(home.Read(L"log\\diskperf_event.5.log")).size(), 2u);
}

TEST_F(EventLog, EntriesOfSeveralLogsShareOneFileInOrder)
{
    HTNWLOG hOther = nullptr;

    ASSERT_EQ(api->log_init("agent", &hOther, 0, 64, 0, "key"), TNWLOG_OK);
    Raise(0x400012C2);
    api->log_write(hOther, TNWLOG_EVENT, 0x400012C4, "s", 1, "r", "");
    EXPECT_THAT(Lines(home.Read(EVENT_LOG)), ElementsAre(HasSubstr(" 0x400012C2 "), HasSubstr(" 0x400012C4 ")));
    api->log_term(hOther);
}

}  // namespace
