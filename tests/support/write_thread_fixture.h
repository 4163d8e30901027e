/*
 * WriteThreadTest: the write thread on the double's clock. A case plans what the collect thread and the operator do at
 * which moment, runs the thread from its start to the terminate event and compares files, waits and lines.
 *
 *   Store({ 1 }, 100);                 at once: a sample in which disk 1 has written 100 bytes
 *   StoreAt(5000, { 1 }, 130);
 *   Run(15000);                        the terminate event comes after 15 s
 *   EXPECT_EQ(log.csv["nmp1"].lines, Strings({ Display(5000, 30) }));
 *
 * The write interval is 10 s. The display files have one column, the bytes written between two samples.
 */
#ifndef TESTS_SUPPORT_WRITE_THREAD_FIXTURE_H
#define TESTS_SUPPORT_WRITE_THREAD_FIXTURE_H

#include "support/csv_files_fixture.h"

class WriteThreadTest : public CsvTest {
protected:
    static const DWORD DeltaColumn = 0x1000;  // bit 12 shows counter 11
    static const DWORD RateColumn = 0x800;    // bit 11 shows counter 12

    DKPF_SHM_INFO* region = nullptr;

    void SetUp() override
    {
        CsvTest::SetUp();
        region = AttachRegion();
        region->conf = DKPF_CONF{ 1, 1, 1024, 3, 5, 10, 0xFFFF, 2048, DeltaColumn };
        g_bDiskAgent = TRUE;
        g_hTerminateEvent = os.MakeEvent(true);
        g_hReloadEvent2 = os.MakeEvent(false, "Global\\TNW_DKPF_EVENT_RELOAD2");
        g_hWarnEventMutex = os.MakeMutex();
        g_WarnEvent[0] = WARN_EVENT_REC{ 0xC00012C5, 0, 0, 0, { 0, 0, 0 } };
        g_WarnEvent[1] = WARN_EVENT_REC{ 0x800012C1, 0x400012C2, 0, 0, { 0, 0, 0 } };
        g_WarnEvent[2] = WARN_EVENT_REC{ 0x800012C3, 0x400012C4, 0, 0, { 0, 0, 0 } };
        memset(g_szComputerName, 0, sizeof g_szComputerName);  // the thread's own step
    }

    /* ---- What happens, and when (ms from the start) ---- */

    void Store(const std::vector<int>& disks, ULONGLONG written)
    {
        region->sampling_time = os.Tick();
        region->local_time = os.LocalTime();
        memset(region->InitFlag, 0, sizeof region->InitFlag);
        memset(region->instance[0].inst_sub, 0, sizeof region->instance[0].inst_sub);
        for (int n : disks) {
            region->InitFlag[n - 1] = 1;
            region->instance[0].inst_sub[n - 1].value = written;
        }
    }
    void StoreAt(ULONGLONG ms, std::vector<int> disks, ULONGLONG written)
    {
        os.At(ms, [this, disks, written] { Store(disks, written); });
    }
    /* Collection was switched off: a sample of zeros, its time included. */
    void EraseAt(ULONGLONG ms)
    {
        os.At(ms, [this] {
            Store({}, 0);
            region->local_time = SYSTEMTIME{};
        });
    }
    /* The configuration was read again, and perhaps has changed. */
    void ReloadAt(ULONGLONG ms, std::function<void(DKPF_CONF&)> change = nullptr)
    {
        os.At(ms, [this, change] {
            if (change) {
                change(region->conf);
            }
            os.Signal(g_hReloadEvent2);
        });
    }
    /* From one moment to another the region cannot be read: 0xB0000018. */
    void NoRegion(ULONGLONG from, ULONGLONG to)
    {
        os.At(from, [] { g_dwShmInitCount = 0; });
        os.At(to, [] { g_dwShmInitCount = 1; });
    }

    unsigned Run()
    {
        return os.RunThread(_DkpfPlogWriteThread);
    }
    /* Runs until the terminate event. Whatever the case did: the thread leaves nothing and ends as asked. */
    void Run(ULONGLONG stop)
    {
        os.SignalAt(stop, g_hTerminateEvent);
        EXPECT_EQ(Run(), 0u);
        ExpectNothingLeft();
        EXPECT_EQ(ThreadLines().back(), "diskperf 8 EXIT<TRUE>");
    }

    /* ---- What came of it ---- */

    /* Time stamp field of a sample stored at the moment; the double's clock starts at 14:05:09.042 on 7 March 2026. */
    static std::string Stamp(ULONGLONG ms)
    {
        ULONGLONG day = ((14 * 60 + 5) * 60 + 9) * 1000 + 42 + ms;
        char      text[64];
        snprintf(text, sizeof text, "\"03/07/2026 %02d:%02d:%02d.%03d\"", static_cast<int>(day / 3600000),
                 static_cast<int>(day / 60000 % 60), static_cast<int>(day / 1000 % 60), static_cast<int>(day % 1000));
        return text;
    }
    static std::string Display(ULONGLONG ms, ULONGLONG value)
    {
        return Stamp(ms) + ",\"" + std::to_string(value) + "\"";
    }
    /* A raw line in which nothing but the bytes written counts. */
    static std::string Raw(ULONGLONG ms, ULONGLONG written)
    {
        std::string line = Display(ms, written);
        for (int i = 1; i < 19; i++) {
            line += ",\"0\"";
        }
        return line;
    }
    /* "time-out -> result @moment" of each wait for the two events. */
    Strings Waits() const
    {
        Strings texts;
        for (const Os::Wait& wait : os.waits) {
            if (wait.call == "WaitForMultipleObjects") {
                std::string result = wait.result == 0              ? "terminate"
                                     : wait.result == 1            ? "reload"
                                     : wait.result == WAIT_TIMEOUT ? "timeout"
                                                                   : Hex(wait.result);
                texts.push_back(std::to_string(wait.timeout) + " -> " + result + " @" + std::to_string(wait.at));
            }
        }
        return texts;
    }
    Strings ThreadLines(DWORD levels = 0xFFFFFFFF)
    {
        return LinesOf("_DkpfPlogWriteThread", levels);
    }
    /* How often the thread called the routine. */
    size_t Calls(const std::string& routine)
    {
        size_t n = 0;
        for (const TraceLine& line : log.lines) {
            n += line.routine == routine && line.text.rfind("ENTER", 0) == 0 ? 1u : 0u;
        }
        return n;
    }
    /* What _DkpfSetWarnEventLog and _DkpfResetWarnEventLog wrote about changes, in order. */
    Strings WarnChanges()
    {
        Strings texts;
        for (const TraceLine& line : log.lines) {
            if (line.level == TNWLOG_WARNING && line.text.find("Warn Event") != std::string::npos) {
                texts.push_back(line.text);
            }
        }
        return texts;
    }
};

#endif
