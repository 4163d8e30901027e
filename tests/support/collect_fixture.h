/*
 * CollectTest: the collect thread as the producer's start leaves it, on the double's clock. Time 0 is the thread's
 * start; the interval is 10 s unless the case says otherwise.
 */
#ifndef TESTS_SUPPORT_COLLECT_FIXTURE_H
#define TESTS_SUPPORT_COLLECT_FIXTURE_H

#include <functional>
#include <map>
#include <memory>

#include "support/fixture.h"

class CollectTest : public DiskperfTest {
protected:
    using Reply = DriverDouble::Reply;
    using FilterReply = FilterDouble::Reply;

    void SetUp() override
    {
        DiskperfTest::SetUp();
        region = AttachRegion();
        region->conf = { 1, 1, 1024, 3, 10, 60, 7, 2048, 0x1FFFF };
        g_dwDkpfLogLevel = 0x1F;  // no dumps of whole regions
        g_hReloadEvent1 = os.MakeEvent(false, DKPF_RELOAD1_NAME);
        g_hTerminateEvent = os.MakeEvent(true);
        g_hWarnEventMutex = os.MakeMutex();
        const WARN_EVENT_REC kinds[3] = {
            { 0xC00012C5, 0, 0, 0, {} },
            { 0x800012C1, 0x400012C2, 0, 0, {} },
            { 0x800012C3, 0x400012C4, 0, 0, {} },
        };
        memcpy(g_WarnEvent, kinds, sizeof kinds);
        os.driver.Script(
            { Sample(1), Sample(2), Sample(3), Sample(4), Sample(5), Sample(6), Sample(7), Sample(8), Sample(9) });
    }

    /* The driver's n-th record: disk 1 present, synchronous, n bytes in its request queue. */
    static Record Sample(ULONGLONG n)
    {
        return Record().Sync(0).With(0, &VELCOR_ENTRY::request_queue, n);
    }

    /* ---- What happens when ---- */

    void TerminateAt(ULONGLONG ms)
    {
        os.SignalAt(ms, g_hTerminateEvent);
    }
    void ReloadAt(
        ULONGLONG ms, std::function<void()> change = [] {})
    {
        os.At(ms, [this, change] {
            change();
            os.Signal(g_hReloadEvent1);
        });
    }
    void EnableAt(ULONGLONG ms, DWORD value)
    {
        ReloadAt(ms, [this, value] { region->conf.perf_enable = value; });
    }
    /* Keeps the region as it is at that moment. Readable in shown[ms]. */
    void WatchAt(ULONGLONG ms)
    {
        os.At(ms, [this, ms] { shown[ms] = std::make_unique<DKPF_SHM_INFO>(*region); });
    }
    void WatchAt(std::initializer_list<ULONGLONG> moments)
    {
        for (ULONGLONG ms : moments) {
            WatchAt(ms);
        }
    }

    void Run()
    {
        EXPECT_EQ(os.RunThread(_DkpfPerfCollectThread), 0u);
        EXPECT_EQ(journal.Lines({ "_endthreadex" }), Strings({ "_endthreadex(0) = " }));
    }

    /* ---- What came of it ---- */

    /* Number of the sample that the region showed at each watched moment, in order of time; 0: none, or zeros. */
    std::vector<ULONGLONG> Shown()
    {
        std::vector<ULONGLONG> numbers;
        for (const auto& [ms, info] : shown) {
            numbers.push_back(info->instance[7].inst_sub[0].value);
        }
        return numbers;
    }
    /* The loop's waits: "time-out: result at ms since the start". */
    Strings Waits()
    {
        Strings texts;
        for (const Os::Wait& wait : os.waits) {
            if (wait.call == "WaitForMultipleObjects") {
                const char* result = wait.result == 0              ? "reload"
                                     : wait.result == 1            ? "terminate"
                                     : wait.result == WAIT_TIMEOUT ? "due"
                                                                   : "?";
                texts.push_back(std::to_string(wait.timeout) + ": " + result + " at " + std::to_string(wait.at));
            }
        }
        return texts;
    }
    /* "log level text" of the thread's own lines, in order. */
    Strings Lines(DWORD levels = 0xFFFFFFFF)
    {
        Strings texts;
        for (const TraceLine& line : log.lines) {
            if (line.routine == "_DkpfPerfCollectThread" && (line.level & levels) != 0) {
                texts.push_back(line.log + " " + std::to_string(line.level) + " " + line.text);
            }
        }
        return texts;
    }
    /* "log text" of the error lines of the thread and of the zero sample. */
    Strings ErrorLines()
    {
        Strings texts;
        for (const TraceLine& line : log.lines) {
            if ((line.routine == "_DkpfPerfCollectThread" || line.routine == "_DkpfSetPerfZeroToShm") &&
                (line.level & TNWLOG_ERROR) != 0) {
                texts.push_back(line.log + " " + line.text);
            }
        }
        return texts;
    }
    unsigned Requests()
    {
        return static_cast<unsigned>(os.driver.requests.size());
    }

    DKPF_SHM_INFO*                                      region = nullptr;
    std::map<ULONGLONG, std::unique_ptr<DKPF_SHM_INFO>> shown;
};

#endif
