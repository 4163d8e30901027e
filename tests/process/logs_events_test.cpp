// The six events, raised by the real library for real reasons: each stands in diskperf_event.log and in dkpfctl logs
// events with its number, severity and whole text, and the message file that the event viewer reads has the same text.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "process/diskperf_roles.h"
#include "support/driver.h"

using Json = nlohmann::json;
using testing::Each;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

struct Entry {
    DWORD       id;
    const char* severity;
    const char* number;
    const char* text;
};

const Entry COLLECT_FAILS = {
    0x800012C1, "WARNING", "0x800012C1",
    "The performance figures of the mirror disks cannot be collected: the mirror driver or the disk filter refuses "
    "them. Counters and CSV logs stand still until this ends; mirroring itself is not affected. Check with 'dkpfctl "
    "status' that the services of the driver and of the disk agent run; the trace logs diskperf.log and "
    "diskperf_trace.log tell the error number."
};
const Entry COLLECT_WORKS = { 0x400012C2, "INFORMATION", "0x400012C2",
                              "The performance figures of the mirror disks are collected again. Counters and CSV logs "
                              "go on; the time in between is missing in them. No action is needed." };
const Entry WRITE_FAILS = {
    0x800012C3, "WARNING", "0x800012C3",
    "Performance CSV logs cannot be written. The figures of this time will be missing in the files; the live counters "
    "are not affected. Check the free space and the access rights of the perf folder, and whether another program "
    "holds a file there; the trace log diskperf_trace.log tells the reason by its number."
};
const Entry WRITE_WORKS = { 0x400012C4, "INFORMATION", "0x400012C4",
                            "All performance CSV logs are written again. The lines of the time in between are missing "
                            "in them. No action is needed." };
const Entry THREAD_STOPPED = {
    0xC00012C5, "ERROR", "0xC00012C5",
    "A worker thread of the disk performance library stopped on an error. Collecting the figures or writing the CSV "
    "logs has ended in this disk agent and does not start again by itself; mirroring itself is not affected. Read the "
    "trace log diskperf.log for the cause, then restart the disk agent service."
};
const Entry TABLE_FULL = {
    0xC00012C6, "ERROR", "0xC00012C6",
    "No further program can read the performance counters of the mirror disks: all 32 places for readers are taken. "
    "Programs that read already are not affected. End programs that are no longer needed; 'dkpfctl dump --rows' shows "
    "which hold a place."
};

class RaisedEvents : public Roles {
protected:
    RaisedEvents()
    {
        home.Install(L"dkpfctl.exe");
    }

    Ran Logs(const std::string& arguments) const
    {
        return RunToEnd(home.Path(L"bin\\dkpfctl.exe"), "logs events " + arguments);
    }

    bool Raised(const Entry& entry) const
    {
        return Eventually([&] { return home.Events(entry.number) != 0; });
    }

    /* File, text form and JSON form, all three whole. */
    void ExpectEntries(const std::vector<Entry>& entries) const
    {
        const std::vector<std::string> lines = home.Lines(L"log\\diskperf_event.log");
        const Ran                      json = Logs("--json");
        std::string                    text, rest = json.output;
        ASSERT_EQ(lines.size(), entries.size()) << home.Read(L"log\\diskperf_event.log");
        for (size_t i = 0; i < entries.size(); i++) {
            const Entry& entry = entries[i];
            ASSERT_GT(lines[i].size(), 24u);
            EXPECT_THAT(lines[i].substr(0, 24),
                        MatchesRegex("\\d\\d\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d.\\d\\d\\d "));
            EXPECT_EQ(lines[i].substr(24), std::string(entry.severity) + " " + entry.number + " " + entry.text);
            text += lines[i] + "\r\n";
            const size_t end = rest.find('\n');
            ASSERT_NE(end, std::string::npos) << json.output;
            EXPECT_EQ(Json::parse(rest.substr(0, end)), Json({ { "format", 1 },
                                                               { "log", "events" },
                                                               { "time", lines[i].substr(0, 23) },
                                                               { "severity", entry.severity },
                                                               { "id", entry.id },
                                                               { "number", entry.number },
                                                               { "text", entry.text } }));
            rest.erase(0, end + 1);
        }
        EXPECT_EQ(rest, "");
        const Ran plain = Logs("");
        EXPECT_EQ(plain.output, text);
        EXPECT_EQ(plain.code, 0u);
        EXPECT_EQ(json.code, 0u);
    }

    static void FeedOneDisk(const InstalledDriver& driver, DWORD status)
    {
        VELCOR_FEED feed = {};
        feed.driver_status = status;
        feed.driver.entry[0].state = VELCOR_STATE_INITIALIZED;
        feed.driver.entry[0].mode = VELCOR_MODE_SYNC;
        driver.Feed(feed);
    }
};

TEST_F(RaisedEvents, CollectingFailsAndWorksAgain)
{
    InstalledDriver driver;
    ASSERT_TRUE(driver.service->Start());
    FeedOneDisk(driver, 0xE9F80010);
    const auto producer = StartProducer();
    ASSERT_TRUE(Raised(COLLECT_FAILS));
    FeedOneDisk(driver, 0);
    ASSERT_TRUE(Raised(COLLECT_WORKS));
    EXPECT_EQ(DONE, producer->Ask("term"));
    ExpectEntries({ COLLECT_FAILS, COLLECT_WORKS });
    EXPECT_EQ(Logs("--level warning").output, home.Lines(L"log\\diskperf_event.log")[0] + "\r\n");
    EXPECT_EQ(Logs("--level notice --text collected").output, home.Lines(L"log\\diskperf_event.log")[1] + "\r\n");
    EXPECT_EQ(Logs("--level error").output, "");
}

TEST_F(RaisedEvents, WritingFailsAndWorksAgain)
{
    InstalledDriver driver;
    ASSERT_TRUE(driver.service->Start());
    FeedOneDisk(driver, 0);
    home.Move(L"perf", L"elsewhere");
    const auto producer = StartProducer();
    ASSERT_TRUE(Raised(WRITE_FAILS));
    home.Move(L"elsewhere", L"perf");
    ASSERT_TRUE(Raised(WRITE_WORKS));
    EXPECT_EQ(DONE, producer->Ask("term"));
    ExpectEntries({ WRITE_FAILS, WRITE_WORKS });
}

TEST_F(RaisedEvents, WithoutADriverTheCollectThreadStops)
{
    const auto producer = StartProducer();
    ASSERT_TRUE(Raised(THREAD_STOPPED));
    EXPECT_EQ(DONE, producer->Ask("term"));
    ExpectEntries({ THREAD_STOPPED });
}

TEST_F(RaisedEvents, TheThirtyThirdReaderFindsNoPlace)
{
    InstalledDriver driver;
    ASSERT_TRUE(driver.service->Start());
    FeedOneDisk(driver, 0);
    const auto                            producer = StartProducer();
    std::vector<std::unique_ptr<Program>> readers;
    for (int n = 0; n < 32; n++) {
        readers.push_back(StartReader());
    }
    EXPECT_EQ("0 b0000003", StartRole()->Ask("init 0"));
    ExpectEntries({ TABLE_FULL });
}

// The event viewer takes its texts from the registered message file: this DLL.
TEST_F(RaisedEvents, TheMessageFileHasTheSameTexts)
{
    const HMODULE messages = LoadLibraryExW(home.Path(L"bin\\tnwmsg.dll").c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(messages, nullptr);
    for (const Entry& entry : { COLLECT_FAILS, COLLECT_WORKS, WRITE_FAILS, WRITE_WORKS, THREAD_STOPPED, TABLE_FULL }) {
        char        text[2048] = "";
        const DWORD length =
            FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE, messages, entry.id, 0, text, sizeof(text), nullptr);
        EXPECT_EQ(std::string(text, length), entry.text + std::string("\r\n")) << entry.number;
    }
    FreeLibrary(messages);
}

}  // namespace
