/*
 * What the cases about starting, stopping and warning share: trace lines and calls as texts that are compared whole.
 */
#ifndef TESTS_UNIT_LIFECYCLE_FIXTURE_H
#define TESTS_UNIT_LIFECYCLE_FIXTURE_H

#include <ctype.h>

#include <map>
#include <set>

#include "support/fixture.h"

/* Level bits for Lines. */
constexpr DWORD ErrorLines = 0x0001;
constexpr DWORD ErrorAndEventLines = 0x8001;
constexpr DWORD AllButDumps = 0xFFDF;  // locks and object creation trace at level 32

inline Strings operator+(Strings first, const Strings& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/* The calls that read the configuration. */
inline const Strings ConfigReads = {
    "xmllib_get_value(/root/diskperf/parameters/perfenable, 1, size 4)",
    "xmllib_get_value(/root/diskperf/parameters/perflogsave, 1, size 4)",
    "xmllib_get_value(/root/diskperf/parameters/perflogsize, 1, size 4)",
    "xmllib_get_value(/root/diskperf/parameters/perflogrotation, 1, size 4)",
    "xmllib_get_value(/root/diskperf/parameters/collectinterval, 1, size 4)",
    "xmllib_get_value(/root/diskperf/parameters/writeinterval, 1, size 4)",
    "xmllib_get_value(/root/diskperf/parameters/collectparam, 1, size 4)",
    "xmllib_get_value(/root/diskperf/log/level, 1, size 4)",
    "xmllib_get_value(/root/diskperf/log/size, 1, size 4)",
};
inline const Strings ConfigOpening = { "xmllib_init(diskperf)", "xmllib_load_policy(diskperf)",
                                       "xmllib_load_config(1)" };
inline const Strings ConfigClosing = { "xmllib_unload_config()", "xmllib_unload_policy(diskperf)", "xmllib_term()" };

class LinesTest : public DiskperfTest {
protected:
    /* Trace lines as "log level routine: text"; "-" stands for a line written without a log, an entry of the event log
     * shows its number in place of the level. */
    Strings Lines(DWORD levels = AllButDumps) const
    {
        Strings result;
        for (const TraceLine& line : log.lines) {
            if ((line.level & levels) != 0) {
                std::string level = line.level == 0x8000 ? "event " + Hex(line.message) : std::to_string(line.level);
                result.push_back((line.log.empty() ? "-" : line.log) + " " + level + " " + line.routine + ": " +
                                 line.text);
            }
        }
        return result;
    }

    /* A handle as "%#p" prints it in the trace logs. */
    static std::string Pointer(const void* value)
    {
        std::string digits = Hex(reinterpret_cast<ULONG_PTR>(value)).substr(2);
        for (char& digit : digits) {
            digit = static_cast<char>(toupper(digit));
        }
        return "0X" + std::string(16 - digits.size(), '0') + digits;
    }
};

/* Cases on whole processes: they begin as one that has just loaded the library, without any log. */
class LifecycleTest : public LinesTest {
protected:
    void SetUp() override
    {
        LinesTest::SetUp();
        CloseLogs();
        initMutex = g_hDllInitMutex;
    }

    /* Calls of the library as "name(arguments)", without trace lines and without those that look up the banner's file:
     * all, or from the n-th on. Objects without a name are called #1, #2, ... in the order of their creation. */
    Strings Calls() const
    {
        return Calls(m_mark);
    }
    Strings Calls(size_t first) const
    {
        static const std::set<std::string> banner = { "SetErrorMode", "CreateFileA", "GetFileVersionInfoSizeA",
                                                      "wsprintfA" };
        std::map<std::string, std::string> names{ { Hex(reinterpret_cast<ULONG_PTR>(initMutex)), "DllInit" } };
        Strings                            result;
        size_t                             index = 0;

        for (const Call& call : journal.All()) {
            size_t hex = call.result.find("0x7e");
            bool   unnamed =
                call.name == "_beginthreadex" || call.args.find("NULL", call.args.size() - 4) != std::string::npos;
            if (hex != std::string::npos && unnamed) {
                std::string name = "#" + std::to_string(names.size());
                names.emplace(call.result.substr(hex), name);
            }
            if (index++ >= first && call.name != "log_write" && banner.count(call.name) == 0) {
                result.push_back(Named(call.name + "(" + call.args + ")", names));
            }
        }
        return result;
    }

    /* From here on Calls and Lines start anew, and plans of failing calls count from 1. */
    void Mark()
    {
        m_mark = journal.All().size();
        log.ClearLines();
        journal.ResetPlans();
    }

    /* Everything as in a process that has just loaded the library. */
    void ExpectNotInitialized()
    {
        EXPECT_EQ(g_dwInitCount, 0u);
        EXPECT_EQ(g_hInfoMutex, nullptr);
        EXPECT_EQ(g_hShmMutex, nullptr);
        EXPECT_EQ(g_hReloadEvent1, nullptr);
        EXPECT_EQ(g_hReloadEvent2, nullptr);
        EXPECT_EQ(g_hTerminateEvent, nullptr);
        EXPECT_EQ(g_hCollectThread, nullptr);
        EXPECT_EQ(g_hWriteThread, nullptr);
        EXPECT_EQ(g_hWarnEventMutex, nullptr);
        EXPECT_EQ(g_hShmMap, nullptr);
        EXPECT_EQ(g_pShmInfo, nullptr);
        EXPECT_EQ(g_dwShmInitCount, 0u);
        EXPECT_EQ(g_hDkpfLog, nullptr);
        EXPECT_EQ(g_hDkpfTraceLog, nullptr);
        EXPECT_EQ(g_hDkpfConfLog, nullptr);
        EXPECT_EQ(log.OpenTraces(), Strings());
        EXPECT_EQ(os.Locked(initMutex), 0u);
    }

    /* The producer's threads never run: their routines have tests of their own. */
    void StartProducer()
    {
        DWORD code = 0;
        ASSERT_TRUE(DkpfInitialize(TRUE, &code));
        ASSERT_EQ(code, 0xB0000000u);
    }

    void StartConsumer()
    {
        DWORD code = 0;
        HoldRegion();
        ASSERT_TRUE(DkpfInitialize(FALSE, &code));
        ASSERT_EQ(code, 0xB0000000u);
    }

    HANDLE initMutex = nullptr;

private:
    size_t m_mark = 0;

    static std::string Named(std::string text, const std::map<std::string, std::string>& names)
    {
        for (const auto& [handle, name] : names) {
            for (size_t at = text.find(handle); at != std::string::npos; at = text.find(handle)) {
                text.replace(at, handle.size(), name);
            }
        }
        return text;
    }
};

#endif
