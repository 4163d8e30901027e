/*
 * agent.state: written, read back, damaged, replaced while others read it.
 */
#include <gmock/gmock.h>

#include "agent_state.h"
#include "support/temp_folder.h"

using namespace dkpf;
using testing::HasSubstr;

static AgentState Full()
{
    AgentState state;
    state.phase = AgentPhase::Running;
    state.console = true;
    state.pid = 4711;
    state.processStarted = 134397291210313921ull;  // odd and above 2^53: a double would lose it
    state.started = "2026-03-07T14:05:09.042+09:00";
    state.broughtUp = "2026-03-07T14:05:11.000+09:00";
    state.utcOffsetMinutes = 540;
    state.reloads = 3;
    state.inForce = SettingValues{ 1, 0, 64, 99, 3600, 86400, 0x1ffff, 0xffff, 0xffffffff };
    state.lastReload = ReloadRecord{ ReloadResult::Refused,
                                     "2026-03-07T15:00:00.000+09:00",
                                     "line 3: \"x\"",
                                     { PERF_ENABLE },
                                     { LOG_SIZE, LOG_LEVEL } };
    state.lastFailure = FailureRecord{ "2026-03-07T14:05:10.000+09:00", "C:\\Gr\xC3\xBC\xC3\x9F"
                                                                        "e" };
    return state;
}

TEST(AgentStateJson, EveryFieldComesBack)
{
    const AgentState before = Full();
    AgentState       after;
    std::string      why;
    ASSERT_TRUE(AgentStateFromJson(AgentStateToJson(before), &after, &why)) << why;
    EXPECT_EQ(after.phase, AgentPhase::Running);
    EXPECT_TRUE(after.console);
    EXPECT_EQ(after.pid, 4711u);
    EXPECT_EQ(after.processStarted, 134397291210313921ull);
    EXPECT_EQ(after.started, before.started);
    EXPECT_EQ(after.broughtUp, before.broughtUp);
    EXPECT_EQ(after.utcOffsetMinutes, 540);
    EXPECT_EQ(after.reloads, 3u);
    EXPECT_EQ(*after.inForce, *before.inForce);
    EXPECT_EQ(after.lastReload->result, ReloadResult::Refused);
    EXPECT_EQ(after.lastReload->at, before.lastReload->at);
    EXPECT_EQ(after.lastReload->message, before.lastReload->message);
    EXPECT_EQ(after.lastReload->takenOver, before.lastReload->takenOver);
    EXPECT_EQ(after.lastReload->waiting, before.lastReload->waiting);
    EXPECT_EQ(after.lastFailure->at, before.lastFailure->at);
    EXPECT_EQ(after.lastFailure->message, before.lastFailure->message);
}

TEST(AgentStateJson, WhatIsNotThereStaysAway)
{
    AgentState state = Full();
    state.inForce.reset();
    state.lastReload.reset();
    state.lastFailure.reset();
    state.phase = AgentPhase::Stopped;
    state.exitCode = 4;
    AgentState  after = Full();
    std::string why;
    ASSERT_TRUE(AgentStateFromJson(AgentStateToJson(state), &after, &why)) << why;
    EXPECT_FALSE(after.inForce || after.lastReload || after.lastFailure);
    EXPECT_EQ(after.exitCode, 4u);
}

// Whoever reads a file that was cut off anywhere gets a reason, never a half state.
TEST(AgentStateJson, EveryCutOffTextIsRefusedAndLeavesTheStateAlone)
{
    const std::string whole = AgentStateToJson(Full());
    for (size_t length = 0; length + 2 < whole.size(); length++) {  // the last two bytes are "}" and the line end
        AgentState  state;
        std::string why;
        state.pid = 99;
        ASSERT_FALSE(AgentStateFromJson(whole.substr(0, length), &state, &why)) << length;
        ASSERT_EQ(state.pid, 99u);
        ASSERT_NE(why, "");
    }
}

TEST(AgentStateJson, AnotherFormatAnUnknownPhaseAndAWrongTypeAreRefused)
{
    const std::string whole = AgentStateToJson(Full());
    const auto        with = [&whole](const std::string& from, const std::string& to) {
        std::string text = whole;
        text.replace(text.find(from), from.size(), to);
        return text;
    };
    AgentState  state;
    std::string why;
    EXPECT_FALSE(AgentStateFromJson(with("\"format\": 1", "\"format\": 2"), &state, &why));
    EXPECT_THAT(why, HasSubstr("format"));
    EXPECT_FALSE(AgentStateFromJson(with("\"running\"", "\"walking\""), &state, &why));
    EXPECT_THAT(why, HasSubstr("walking"));
    EXPECT_FALSE(AgentStateFromJson(with("4711", "\"many\""), &state, &why));
    EXPECT_FALSE(AgentStateFromJson("[1, 2, 3]", &state, &why));
}

TEST(AgentStateFile, AMissingFileIsMissing)
{
    TempFolder folder;
    EXPECT_EQ(LoadAgentState(folder.File(L"agent.state")).file, StateFile::Missing);
}

TEST(AgentStateFile, ADamagedFileSaysWhy)
{
    TempFolder folder;
    folder.Write(L"agent.state", std::string(4096, '\0'));
    const StateFileContent content = LoadAgentState(folder.File(L"agent.state"));
    EXPECT_EQ(content.file, StateFile::Damaged);
    EXPECT_NE(content.why, "");
}

TEST(AgentStateFile, SavedOverAnOlderOneNothingIsLeftBeside)
{
    TempFolder folder;
    folder.Write(L"agent.state", "old");
    EXPECT_EQ(SaveAgentState(folder.File(L"agent.state"), Full(), [](DWORD) { FAIL() << "nobody holds it"; }), 0u);
    EXPECT_EQ(LoadAgentState(folder.File(L"agent.state")).state.pid, 4711u);
    EXPECT_FALSE(folder.Has(L"agent.state.new"));
}

// A reader without sharing delays the replacement; the third try finds the file free.
TEST(AgentStateFile, AReaderThatHoldsTheFileDelaysTheReplacement)
{
    TempFolder folder;
    folder.Write(L"agent.state", "old");
    HANDLE reader =
        CreateFileW(folder.File(L"agent.state").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    int waits = 0;
    EXPECT_EQ(SaveAgentState(folder.File(L"agent.state"), Full(),
                             [&](DWORD) {
                                 if (++waits == 2)
                                     CloseHandle(reader);
                             }),
              0u);
    EXPECT_EQ(waits, 2);
    EXPECT_EQ(LoadAgentState(folder.File(L"agent.state")).file, StateFile::Read);
}

TEST(AgentStateFile, AReaderThatNeverLetsGoLeavesTheOldFileAndNothingBeside)
{
    TempFolder folder;
    folder.Write(L"agent.state", "old");
    HANDLE reader = CreateFileW(folder.File(L"agent.state").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    int    waits = 0;
    EXPECT_NE(SaveAgentState(folder.File(L"agent.state"), Full(), [&waits](DWORD) { waits++; }), 0u);
    CloseHandle(reader);
    EXPECT_EQ(waits, REPLACE_TRIES - 1);
    std::string content;
    ReadWholeFile(folder.File(L"agent.state"), 100, &content);
    EXPECT_EQ(content, "old");
    EXPECT_FALSE(folder.Has(L"agent.state.new"));
}

TEST(AgentStateFile, AMissingFolderIsAnErrorAtOnce)
{
    TempFolder folder;
    EXPECT_EQ(SaveAgentState(folder.File(L"gone\\agent.state"), Full(), [](DWORD) { FAIL() << "no use in waiting"; }),
              static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
}

TEST(WholeFile, TheBoundCutsOff)
{
    TempFolder  folder;
    std::string content;
    folder.Write(L"file", "0123456789");
    EXPECT_EQ(ReadWholeFile(folder.File(L"file"), 4, &content), 0u);
    EXPECT_EQ(content, "0123");
}
