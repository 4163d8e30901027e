/*
 * What the cases about utilities and region have in common: all that happened as a list of lines, trace lines and calls
 * of the system in the order in which they came, and the same list as a case expects it.
 */
#ifndef TESTS_UNIT_TRACED_FIXTURE_H
#define TESTS_UNIT_TRACED_FIXTURE_H

#include <ostream>
#include <string>
#include <vector>

#include "support/fixture.h"

/* Trace lines that one routine is expected to write: Routine T("_DkpfMutexLock"); T(32, "ENTER"). */
class Routine {
public:
    explicit Routine(std::string name, std::string log = "diskperf") : m_name(std::move(name)), m_log(std::move(log))
    {
    }
    std::string operator()(DWORD level, const std::string& text) const;

private:
    std::string m_name, m_log;
};

/* Names the cases of a table after the story each of its lines tells. */
struct StoryOf {
    template <class Case> std::string operator()(const testing::TestParamInfo<Case>& test) const
    {
        return test.param.story;
    }
};

/* A failing case of a table says its story, not its bytes. */
template <class Case> auto operator<<(std::ostream& out, const Case& shown) -> decltype(out << shown.story)
{
    return out << shown.story;
}

/* Lines and lists of lines, one behind the other. */
inline void AppendTo(Strings& all, const std::string& line)
{
    all.push_back(line);
}

inline void AppendTo(Strings& all, const Strings& lines)
{
    all.insert(all.end(), lines.begin(), lines.end());
}

template <class... Parts> Strings Joined(const Parts&... parts)
{
    Strings all;
    (AppendTo(all, parts), ...);
    return all;
}

/* A handle as %#p prints it, and as 0x%p does. */
std::string Alternate(const void* handle);
std::string Plain(const void* handle);

/* What locking and unlocking a mutex writes and calls where all goes well. shown: "mutex Global\\NAME". */
Strings LockStory(HANDLE mutex, const std::string& shown);
Strings UnlockStory(HANDLE mutex, const std::string& shown);

class TracedTest : public DiskperfTest {
protected:
    /* Every trace line of the case must name the unit that its routine lies in, a line there, and no event number. */
    void TearDown() override;

    /* "CreateMutexA(null DACL, FALSE, Global\\X)", "diskperf 32 _DkpfCreateMutex: ENTER", ... without the names in
     * hide. */
    Strings Story(std::initializer_list<std::string> hide = {}) const;
    /* The trace lines alone; those of some levels. */
    Strings TraceStory(DWORD levels = 0xFFFFFFFF) const;
    /* The story starts here: what came before belongs to the preparation of the case. */
    void StartStory();
};

#endif
