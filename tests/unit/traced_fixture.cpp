#include "unit/traced_fixture.h"

#include <stdio.h>

#include <algorithm>

std::string Routine::operator()(DWORD level, const std::string& text) const
{
    return m_log + " " + std::to_string(level) + " " + m_name + ": " + text;
}

static std::string Printed(const char* format, const void* handle)
{
    char text[64];
    // msvcrt's own routine: the logging library formats with it.
    int n = _snprintf(text, sizeof text, format, handle);
    return std::string(text, static_cast<size_t>(n));
}

std::string Alternate(const void* handle)
{
    return Printed("%#p", handle);
}

std::string Plain(const void* handle)
{
    return Printed("0x%p", handle);
}

Strings LockStory(HANDLE mutex, const std::string& shown)
{
    Routine T("_DkpfMutexLock");
    return { T(32, "ENTER<" + Alternate(mutex) + "><-1msec>"), "WaitForSingleObject(" + shown + ", INFINITE)",
             T(32, " Lock OK.(" + Alternate(mutex) + ")"), T(32, "EXIT<" + Alternate(mutex) + "><TRUE>") };
}

Strings UnlockStory(HANDLE mutex, const std::string& shown)
{
    Routine T("_DkpfMutexUnlock");
    return { T(32, "ENTER<" + Alternate(mutex) + ">"), "ReleaseMutex(" + shown + ")",
             T(32, "EXIT<" + Alternate(mutex) + "><TRUE>") };
}

static std::string UnitOf(const std::string& routine)
{
    if (routine.rfind("_DkpfShm", 0) == 0) {
        return "diskperf/src/diskperf_shm";
    }
    return routine == "_DkpfGetConfig" ? "diskperf/src/diskperf_common" : "diskperf/src/diskperf_util";
}

void TracedTest::TearDown()
{
    for (const TraceLine& line : log.lines) {
        ASSERT_EQ(line.source, UnitOf(line.routine)) << line.text;
        ASSERT_GT(line.line, 0) << line.text;
        ASSERT_EQ(line.message != 0, line.level == 0x8000) << line.text;
    }
    DiskperfTest::TearDown();
}

Strings TracedTest::Story(std::initializer_list<std::string> hide) const
{
    Strings story;
    auto    line = log.lines.begin();
    for (const Call& call : journal.All()) {
        bool hidden = std::find(hide.begin(), hide.end(), call.name) != hide.end();
        if (call.name == "log_write") {
            if (!hidden) {
                story.push_back(Routine(line->routine, line->log)(line->level, line->text));
            }
            ++line;
        } else if (!hidden) {
            story.push_back(call.name + "(" + call.args + ")");
        }
    }
    return story;
}

Strings TracedTest::TraceStory(DWORD levels) const
{
    Strings story;
    for (const TraceLine& line : log.lines) {
        if ((line.level & levels) != 0) {
            story.push_back(Routine(line.routine, line.log)(line.level, line.text));
        }
    }
    return story;
}

void TracedTest::StartStory()
{
    journal.Clear();
    journal.ResetPlans();
    log.ClearLines();
}
