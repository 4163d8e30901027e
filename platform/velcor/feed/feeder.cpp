#include "feeder.h"

#include <stdio.h>

#include "device.h"
#include "journal.h"

static const DWORD              RETRY_MS = 500;
static const unsigned long long LOG_LIMIT = 1ull << 20;

Teller::Teller(const std::string& logFile) : m_toFile(!logFile.empty()), m_file(logFile, "time sentence", LOG_LIMIT)
{
}

void Teller::Say(const std::string& sentence)
{
    if (m_toFile) {
        SYSTEMTIME now;
        GetLocalTime(&now);
        m_file.Write(TimeText(now) + " " + sentence);  // nowhere left to tell that this failed
    } else {
        printf("velcorfeed: %s\n", sentence.c_str());
        fflush(stdout);
    }
}

static bool Stopped(HANDLE stop, DWORD ms)
{
    return WaitForSingleObject(stop, ms) != WAIT_TIMEOUT;
}

/*
 * Feeds one step, however long the driver is away.
 * @param fedBefore  whether the driver has taken a step of this process: after that an access that is denied is a
 * driver going down, before it it is a missing right.
 */
static ExitCode FeedStep(Device& device, Step& step, bool fedBefore, HANDLE stop, Teller& teller, bool& stopped)
{
    bool  said = false;
    DWORD error = device.Feed(step.feed);

    stopped = false;
    while (error != ERROR_SUCCESS) {
        if (error == ERROR_ACCESS_DENIED && !fedBefore) {
            teller.Say("the driver refuses to be fed: only administrators may do that.");
            return EXIT_NO_RIGHT;
        }
        if (!said) {
            teller.Say(std::string(fedBefore ? "the driver is gone" : "the driver is not there") + " (error " +
                       std::to_string(error) + "); waiting for it.");
            said = true;
        }
        if (Stopped(stop, RETRY_MS)) {
            stopped = true;
            return EXIT_DONE;
        }
        error = device.Feed(step.feed);
    }
    if (said) {
        teller.Say("the driver is there.");
    }
    return EXIT_DONE;
}

/* Every line is in the file before the next step begins. Returns the first error. */
static DWORD WriteJournal(LineFile& journal, const Step& step)
{
    SYSTEMTIME now;
    DWORD      first = ERROR_SUCCESS;

    GetLocalTime(&now);
    for (const FedDisk& disk : step.disks) {
        const DWORD error = journal.Write(JournalLine(now, disk));
        first = first == ERROR_SUCCESS ? error : first;
    }
    return first;
}

/* Waits for the next step's time. Steps keep to their grid; one that is missed is not made up for. */
static bool WaitForStep(ULONGLONG& due, DWORD stepMs, HANDLE stop)
{
    const ULONGLONG now = GetTickCount64();

    due = due + stepMs < now ? now : due + stepMs;
    return !Stopped(stop, static_cast<DWORD>(due - now));
}

ExitCode RunFeeder(Source& source, LineFile* journal, const Pace& pace, HANDLE stop, Teller& teller)
{
    Device    device;
    Step      step = {};
    bool      fedBefore = false;
    bool      stopped = false;
    bool      journalSaid = false;
    ULONGLONG due = GetTickCount64();

    while (source.Next(step)) {
        for (const std::string& sentence : step.words) {
            teller.Say(sentence);
        }
        const ExitCode fed = FeedStep(device, step, fedBefore, stop, teller, stopped);
        if (fed != EXIT_DONE || stopped) {
            return fed;
        }
        fedBefore = true;
        if (journal != nullptr) {
            const DWORD error = WriteJournal(*journal, step);
            if (error != ERROR_SUCCESS && !journalSaid) {
                teller.Say("the journal cannot be written (error " + std::to_string(error) + "); its lines are lost.");
            } else if (error == ERROR_SUCCESS && journalSaid) {
                teller.Say("the journal is written again.");
            }
            journalSaid = error != ERROR_SUCCESS;
        }
        if (pace.once || !WaitForStep(due, pace.stepMs, stop)) {
            return EXIT_DONE;
        }
    }
    for (const std::string& sentence : step.words) {
        teller.Say(sentence);  // those behind the last step
    }
    return EXIT_DONE;
}
