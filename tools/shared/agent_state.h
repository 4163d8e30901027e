/*
 * HOME/log/agent.state: what the disk agent says about itself to whoever asks. JSON, replaced in one step. The agent
 * alone writes it; settings in force stand nowhere else, since the shared region holds the file's values after a
 * reload.
 */
#ifndef DKPF_TOOLS_AGENT_STATE_H
#define DKPF_TOOLS_AGENT_STATE_H

#include <windows.h>
#include <optional>
#include <string>
#include <vector>

#include "file_io.h"
#include "settings.h"

namespace dkpf {

enum class AgentPhase { Starting, Running, Stopping, Stopped };

enum class ReloadResult {
    Accepted,
    Refused,  // the file: the old settings hold
    Failed    // the product: message says what
};

struct ReloadRecord {
    ReloadResult        result = ReloadResult::Accepted;
    std::string         at;         // local time with UTC offset
    std::string         message;    // reason where not accepted
    std::vector<size_t> takenOver;  // setting indexes
    std::vector<size_t> waiting;    // differ from the settings in force until a restart
};

struct FailureRecord {
    std::string at;
    std::string message;
};

struct AgentState {
    AgentPhase                   phase = AgentPhase::Starting;
    bool                         console = false;
    DWORD                        pid = 0;
    ULONGLONG                    processStarted = 0;  // OwnProcessStart() of the agent
    std::string                  started;             // local time with UTC offset
    std::string                  broughtUp;           // the library, last; empty: not yet
    int                          utcOffsetMinutes = 0;
    DWORD                        exitCode = 0;  // of a stopped agent
    DWORD                        reloads = 0;   // reloads answered since the start, whatever their result
    std::optional<SettingValues> inForce;
    std::optional<ReloadRecord>  lastReload;
    std::optional<FailureRecord> lastFailure;
};

/* Words of the file and of the tool's output. */
const char* PhaseText(AgentPhase phase);
const char* ReloadResultText(ReloadResult result);

std::string AgentStateToJson(const AgentState& state);

/* FALSE with the reason where the text is cut off or damaged; *state is then untouched. Unknown fields are ignored. */
bool AgentStateFromJson(const std::string& text, AgentState* state, std::string* why);

enum class StateFile { Read, Missing, Damaged };

struct StateFileContent {
    StateFile   file = StateFile::Missing;
    AgentState  state;  // only where Read
    std::string why;    // only where Damaged
};

StateFileContent LoadAgentState(const std::wstring& path);

/* @return 0, or the system's error number; the old file then stands. May block 0.5 s where a reader holds the file. */
DWORD SaveAgentState(const std::wstring& path, const AgentState& state, const WaitFn& wait);

}  // namespace dkpf

#endif
