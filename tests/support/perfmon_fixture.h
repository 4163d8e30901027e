/*
 * What the tests of the Performance Monitor provider share: a data block built a second time by offsets, and
 * PerfmonTest, a process that reads a live agent's region through the three entry points.
 */
#ifndef TESTS_SUPPORT_PERFMON_FIXTURE_H
#define TESTS_SUPPORT_PERFMON_FIXTURE_H

#include <string.h>

#include "support/fixture.h"
#include "support/guarded_buffer.h"
#include "support/trace_text.h"

constexpr DWORD BlockSize = 15824;
constexpr DWORD HeaderSize = 744;
constexpr DWORD InstanceSize = 232;

/* Bytes as they must come out; what is never written keeps the caller's. */
class ExpectedBlock {
public:
    explicit ExpectedBlock(size_t size) : bytes(size, GuardedBuffer::Fill)
    {
    }

    void Put32(size_t offset, DWORD value)
    {
        memcpy(&bytes[offset], &value, 4);
    }
    void Put64(size_t offset, ULONGLONG value)
    {
        memcpy(&bytes[offset], &value, 8);
    }

    /* The definitions at the block's start, without TotalByteLength. */
    void Definitions(DWORD firstCounter, DWORD firstHelp)
    {
        static const int scales[17] = { 0, -5, -5, -5, -5, 2, 2, -5, -5, -5, -5, -6, -6, -5, -5, 0, 0 };
        const DWORD      object[] = { 744, 64, firstCounter, 0, firstHelp, 0, 100, 17, 0, 65, 0, 0, 0, 0, 0 };
        for (size_t i = 0; i < ARRAYSIZE(object); i++) {
            Put32(4 + 4 * i, object[i]);
        }
        for (DWORD j = 0; j < 17; j++) {
            const DWORD counter[] = { 40,  firstCounter + 2 * (j + 1),
                                      0,   firstHelp + 2 * (j + 1),
                                      0,   static_cast<DWORD>(scales[j]),
                                      100, 0x00010100,
                                      8,   8 + 8 * j };
            for (size_t i = 0; i < ARRAYSIZE(counter); i++) {
                Put32(64 + 40 * j + 4 * i, counter[i]);
            }
        }
    }
    /* One instance; base is where the first one stands. */
    void Instance(size_t base, size_t i, const std::wstring& name, const ULONGLONG* values)
    {
        const size_t at = base + InstanceSize * i;
        Put32(at + 0, 88);
        Put32(at + 4, 0);
        Put32(at + 8, 0);
        Put32(at + 12, 0xFFFFFFFF);
        Put32(at + 16, 24);
        Put32(at + 20, static_cast<DWORD>(2 * (name.size() + 1)));
        memcpy(&bytes[at + 24], name.c_str(), 2 * (name.size() + 1));
        Put32(at + 88, 144);
        for (size_t j = 0; j < 17; j++) {
            Put64(at + 96 + 8 * j, values[j]);
        }
    }
    /* All 65, named "_Total" and "NMP1" to "NMP64". */
    void Instances(size_t base, const DKPF_DISP& values)
    {
        for (size_t i = 0; i < 65; i++) {
            Instance(base, i, i == 0 ? L"_Total" : L"NMP" + std::to_wstring(i), values.value[i]);
        }
    }

    std::vector<BYTE> bytes;
};

/* Where two blocks differ first, for a message that helps. */
inline testing::AssertionResult SameBytes(const std::vector<BYTE>& actual, const std::vector<BYTE>& expected)
{
    if (actual.size() != expected.size()) {
        return testing::AssertionFailure() << actual.size() << " bytes instead of " << expected.size();
    }
    for (size_t i = 0; i < actual.size(); i++) {
        if (actual[i] != expected[i]) {
            return testing::AssertionFailure()
                   << "byte " << i << " is " << int{ actual[i] } << " instead of " << int{ expected[i] };
        }
    }
    return testing::AssertionSuccess();
}

/* Where the title indexes are registered. */
constexpr char PerfmonKey[] = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\tnwdiskperf\\performance";

inline Strings PerfmonLines(const LogDouble& log, const std::string& routine, DWORD levels = 0xFFFFFFFF)
{
    return TraceLinesOf(log, "pfmon", routine, levels);
}

class PerfmonTest : public DiskperfTest {
protected:
    DKPF_SHM_INFO* region = nullptr;

    /* The agent runs and has stored a sample; the counters are registered from 2000 on, the help texts from 3001. */
    void SetUp() override
    {
        DiskperfTest::SetUp();
        CloseLogs();
        g_dwPfmOpenCount = 0;
        g_dwFirstCounter = 0;
        g_dwFirstHelp = 0;
        region = HoldRegion();
        region->conf = DKPF_CONF{ 1, 1, 1024, 3, 10, 60, 7, 2048, 0x1FFFF };
        os.AddKey(PerfmonKey);
        os.SetValue(PerfmonKey, "First Counter", 2000);
        os.SetValue(PerfmonKey, "First Help", 3001);
        Store(100);
    }

    /* The agent stores a sample: disk 1 has written so many bytes. */
    void Store(ULONGLONG written)
    {
        region->sampling_time = os.Tick();
        region->local_time = os.LocalTime();
        region->InitFlag[0] = 1;
        region->instance[0].inst_sub[0].value = written;
    }
    void Erase()
    {
        region->sampling_time = os.Tick();
        region->local_time = SYSTEMTIME{};
    }

    DWORD Open()
    {
        return DkpfOpenForPerfmon(nullptr);
    }
    /* An open that must work; what it traced and called is forgotten. */
    void Opened()
    {
        ASSERT_EQ(Open(), 0u);
        log.ClearLines();
        journal.Clear();
        journal.ResetPlans();
    }
    /* Calls of the name before the first line that the routine traced: where plans of failures begin to count. */
    unsigned CallsBefore(const std::string& call, const std::string& routine)
    {
        unsigned n = 0;
        for (const Call& entry : journal.All()) {
            if (entry.name == "log_write" && entry.args.find(" " + routine + ":") != std::string::npos) {
                return n;
            }
            n += entry.name == call ? 1u : 0u;
        }
        ADD_FAILURE() << routine << " was never called";
        return n;
    }
    /* An open and its close, to count by; then all is as at the start. */
    unsigned Rehearse(const std::string& call, const std::string& routine)
    {
        EXPECT_EQ(Open(), 0u);
        unsigned n = CallsBefore(call, routine);
        DkpfCloseForPerfmon();
        log.ClearLines();
        journal.Clear();
        journal.ResetPlans();
        return n;
    }

    Strings LinesOf(const std::string& routine, DWORD levels = 0xFFFFFFFF)
    {
        return PerfmonLines(log, routine, levels);
    }
    Strings OpenLines(DWORD levels = 0xFFFFFFFF)
    {
        return LinesOf("DkpfOpenForPerfmon", levels);
    }
    Strings CollectLines(DWORD levels = 0xFFFFFFFF)
    {
        return LinesOf("DkpfCollectForPerfmon", levels);
    }
    Strings CloseLines(DWORD levels = 0xFFFFFFFF)
    {
        return LinesOf("DkpfCloseForPerfmon", levels);
    }

    /* Sizes of the blocks given back, and blocks and keys still held. */
    Strings Freed() const
    {
        Strings sizes;
        for (const Call& call : journal.Of("GlobalFree")) {
            sizes.push_back(call.args);
        }
        return sizes;
    }
    Strings MemoryAndKeysHeld() const
    {
        Strings held;
        for (const std::string& leak : os.Leaks()) {
            if (leak.rfind("heap", 0) == 0 || leak.rfind("key", 0) == 0) {
                held.push_back(leak);
            }
        }
        return held;
    }
};

#endif
