/* The feeder's loop, on a device, a clock and waits of the test's. */
#include <gmock/gmock.h>

#include <functional>
#include <vector>

#include "device.h"
#include "feeder.h"
#include "journal.h"
#include "support/import_hooks.h"
#include "support/temp_folder.h"

using testing::ElementsAre;

namespace {

const HANDLE DEVICE = reinterpret_cast<HANDLE>(0x1234);
const HANDLE STOP = reinterpret_cast<HANDLE>(0x5678);

/* What the loop's calls meet. */
struct World {
    std::vector<DWORD>         answers;  // to the feeds, one after the other; 0 behind the last
    std::vector<unsigned>      fed;      // driver_status of each feed that was taken, the steps' own mark
    std::vector<unsigned>      ticks;    // of the same feeds
    unsigned                   opened = 0;
    unsigned                   closed = 0;
    size_t                     asked = 0;
    ULONGLONG                  now = 1000;
    std::vector<DWORD>         waits;                                 // of the stop event, ms
    std::function<bool(DWORD)> onWait = [](DWORD) { return false; };  // true: the stop event is set
};
World* g_world;

/* The hooks replace this program's own calls, so what they pass on goes another way. */
template <class Routine> Routine* System(Routine*, const char* name)
{
    return reinterpret_cast<Routine*>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), name)));
}

HANDLE WINAPI OpenIt(LPCSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD how, DWORD flags,
                     HANDLE other)
{
    if (strcmp(name, VELCOR_DEVICE_PATH) != 0) {
        return System(CreateFileA, "CreateFileA")(name, access, share, security, how, flags, other);
    }
    g_world->opened++;
    return DEVICE;
}

BOOL WINAPI FeedIt(HANDLE device, DWORD code, void* in, DWORD inSize, void*, DWORD, DWORD*, OVERLAPPED*)
{
    const size_t n = g_world->asked++;
    EXPECT_EQ(DEVICE, device);
    EXPECT_EQ(VELCOR_PRIVATE_FEED, code);
    EXPECT_EQ(sizeof(VELCOR_FEED), inSize);
    if (n < g_world->answers.size() && g_world->answers[n] != ERROR_SUCCESS) {
        SetLastError(g_world->answers[n]);
        return FALSE;
    }
    g_world->fed.push_back(static_cast<VELCOR_FEED*>(in)->driver_status);
    g_world->ticks.push_back(static_cast<VELCOR_FEED*>(in)->tick);
    return TRUE;
}

BOOL WINAPI CloseIt(HANDLE handle)
{
    if (handle != DEVICE) {
        return System(CloseHandle, "CloseHandle")(handle);
    }
    g_world->closed++;
    return TRUE;
}

DWORD WINAPI WaitForIt(HANDLE handle, DWORD ms)
{
    if (handle != STOP) {
        return System(WaitForSingleObject, "WaitForSingleObject")(handle, ms);
    }
    g_world->waits.push_back(ms);
    g_world->now += ms;
    return g_world->onWait(ms) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

ULONGLONG WINAPI Now()
{
    return g_world->now;
}

DWORD WINAPI Tick()
{
    return static_cast<DWORD>(g_world->now + 0xFFFFFFFF);
}

/* So many steps, each with its number in the feed and one disk for the journal. */
class Steps : public Source {
public:
    explicit Steps(unsigned count) : m_count(count)
    {
    }
    bool Next(Step& step) override
    {
        step = {};
        if (m_taken == m_count) {
            step.words = { "that was all." };
            return false;
        }
        step.feed.driver_status = ++m_taken;
        step.disks = { { 7, "-", 512ull * m_taken, m_taken, 0 } };
        onStep(m_taken);
        return true;
    }
    std::function<void(unsigned)> onStep = [](unsigned) {};

private:
    unsigned m_count;
    unsigned m_taken = 0;
};

class FeederLoop : public testing::Test {
protected:
    FeederLoop()
        : log(Plain(L"said.log")), journalFile(Plain(L"feeder.journal")), open(Self(), KERNEL, "CreateFileA", OpenIt),
          feed(Self(), KERNEL, "DeviceIoControl", FeedIt), close(Self(), KERNEL, "CloseHandle", CloseIt),
          wait(Self(), KERNEL, "WaitForSingleObject", WaitForIt), clock(Self(), KERNEL, "GetTickCount64", Now),
          tick(Self(), KERNEL, "GetTickCount", Tick)
    {
        g_world = &world;
    }

    ExitCode Run(Source& source, const Pace& pace = { 1000, false })
    {
        Teller   teller(log);
        LineFile journal(journalFile, JOURNAL_HEADER, JOURNAL_LIMIT);
        return RunFeeder(source, &journal, pace, STOP, teller);
    }

    /* The sentences, without header and times. */
    std::vector<std::string> Said() const
    {
        return Behind(log, 24);
    }
    /* The lines of the journal, without header and times. */
    std::vector<std::string> Journal() const
    {
        return Behind(journalFile, 24);
    }

    World             world;
    TempFolder        home;
    const std::string log;
    const std::string journalFile;

private:
    static constexpr const char* KERNEL = "kernel32.dll";

    static HMODULE Self()
    {
        return GetModuleHandleA(NULL);
    }
    std::string Plain(const wchar_t* name)
    {
        return Narrow(home.File(name));
    }
    static std::vector<std::string> Behind(const std::string& file, size_t columns)
    {
        std::string              text;
        std::vector<std::string> lines;
        if (ReadWholeFile(file, text) == ERROR_SUCCESS) {
            lines = Lines(text);
            lines.erase(lines.begin());
            for (std::string& line : lines) {
                line.erase(0, columns);
            }
        }
        return lines;
    }

    ImportHook open;
    ImportHook feed;
    ImportHook close;
    ImportHook wait;
    ImportHook clock;
    ImportHook tick;
};

}  // namespace

TEST_F(FeederLoop, FeedsEachStepWritesItDownAndTellsTheLastWords)
{
    Steps steps(3);
    EXPECT_EQ(EXIT_DONE, Run(steps));
    EXPECT_THAT(world.fed, ElementsAre(1, 2, 3));
    EXPECT_THAT(Journal(), ElementsAre("7,-,512,1,0", "7,-,1024,2,0", "7,-,1536,3,0"));
    EXPECT_THAT(Said(), ElementsAre("that was all."));
    EXPECT_THAT(world.ticks, ElementsAre(999, 1999, 2999));  // that of each feed, for who asks how old it is
    EXPECT_EQ(1u, world.opened);
    EXPECT_EQ(1u, world.closed);
}

TEST_F(FeederLoop, AnAccessThatIsDeniedBeforeTheFirstStepIsAMissingRight)
{
    Steps steps(3);
    world.answers = { ERROR_ACCESS_DENIED };
    EXPECT_EQ(EXIT_NO_RIGHT, Run(steps));
    EXPECT_THAT(Said(), ElementsAre("the driver refuses to be fed: only administrators may do that."));
    EXPECT_TRUE(world.fed.empty());
    EXPECT_TRUE(Journal().empty());
}

TEST_F(FeederLoop, AnAccessThatIsDeniedLaterIsADriverGoingDown)
{
    Steps steps(3);
    world.answers = { 0, ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, 0 };
    EXPECT_EQ(EXIT_DONE, Run(steps));
    EXPECT_THAT(world.fed, ElementsAre(1, 2, 3));  // the step under way is fed when the driver is back
    EXPECT_THAT(Said(),
                ElementsAre("the driver is gone (error 5); waiting for it.", "the driver is there.", "that was all."));
    EXPECT_EQ(3u, world.opened) << "a handle that failed is opened anew";
}

TEST_F(FeederLoop, ADriverThatIsNotThereIsToldOnceHoweverLongItTakes)
{
    Steps steps(1);
    world.answers = { ERROR_FILE_NOT_FOUND, ERROR_FILE_NOT_FOUND, ERROR_NOT_READY, ERROR_FILE_NOT_FOUND };
    EXPECT_EQ(EXIT_DONE, Run(steps));
    EXPECT_THAT(Said(), ElementsAre("the driver is not there (error 2); waiting for it.", "the driver is there.",
                                    "that was all."));
    EXPECT_THAT(Journal(), ElementsAre("7,-,512,1,0"));
}

TEST_F(FeederLoop, AStopEndsTheWaitForTheDriver)
{
    Steps steps(3);
    world.answers.assign(100, ERROR_FILE_NOT_FOUND);
    world.onWait = [this](DWORD) { return world.waits.size() == 4; };
    EXPECT_EQ(EXIT_DONE, Run(steps));
    EXPECT_EQ(4u, world.waits.size());
    EXPECT_TRUE(world.fed.empty());
    EXPECT_TRUE(Journal().empty());
}

TEST_F(FeederLoop, AStopBetweenTwoStepsEndsIt)
{
    Steps steps(9);
    world.onWait = [this](DWORD) { return world.waits.size() == 2; };
    EXPECT_EQ(EXIT_DONE, Run(steps));
    EXPECT_THAT(world.fed, ElementsAre(1, 2));
}

TEST_F(FeederLoop, OnceIsOneStepWithoutAWait)
{
    Steps steps(9);
    EXPECT_EQ(EXIT_DONE, Run(steps, { 1000, true }));
    EXPECT_THAT(world.fed, ElementsAre(1));
    EXPECT_TRUE(world.waits.empty());
}

TEST_F(FeederLoop, StepsKeepToTheirGridAndAMissedOneIsNotMadeUpFor)
{
    Steps steps(5);
    steps.onStep = [this](unsigned step) { world.now += step == 3 ? 2500 : 100; };
    EXPECT_EQ(EXIT_DONE, Run(steps));
    // Due at 2000 and 3000; the third step ends at 5500, so the fourth is due at once and the fifth a second later.
    EXPECT_THAT(world.waits, ElementsAre(900, 900, 0, 900, 900));
}

TEST_F(FeederLoop, AJournalThatCannotBeWrittenCostsItsLinesAndIsSaidOnce)
{
    HANDLE held = CreateFileA(journalFile.c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
    Steps  steps(6);
    ASSERT_NE(INVALID_HANDLE_VALUE, held);
    steps.onStep = [held](unsigned step) {
        if (step == 4) {
            CloseHandle(held);
        }
    };
    EXPECT_EQ(EXIT_DONE, Run(steps));
    EXPECT_THAT(world.fed, ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(Said(), ElementsAre("the journal cannot be written (error 32); its lines are lost.",
                                    "the journal is written again.", "that was all."));
    EXPECT_THAT(Journal(), ElementsAre("7,-,2048,4,0", "7,-,2560,5,0", "7,-,3072,6,0"));
}

TEST_F(FeederLoop, NoJournalIsWrittenWhereNoneIsGiven)
{
    Steps  steps(2);
    Teller teller(log);
    EXPECT_EQ(EXIT_DONE, RunFeeder(steps, nullptr, { 0, false }, STOP, teller));
    EXPECT_THAT(world.fed, ElementsAre(1, 2));
    EXPECT_THAT(world.waits, ElementsAre(0, 0));
}
