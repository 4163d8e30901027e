/*
 * Names that the agent and the tool share with the service manager and with each other.
 */
#ifndef DKPF_TOOLS_NAMES_H
#define DKPF_TOOLS_NAMES_H

namespace dkpf {

inline constexpr wchar_t DRIVER_SERVICE[] = L"velcor";
inline constexpr wchar_t FEEDER_SERVICE[] = L"velcorfeed";
inline constexpr wchar_t AGENT_SERVICE[] = L"dkpfagent";

/* Owned by the one producer of the machine for its lifetime. Administrators and SYSTEM only. */
inline constexpr wchar_t AGENT_MUTEX[] = L"Global\\TNW_DKPF_AGENT";
/* Auto-reset; tells the agent to read its configuration again. Administrators and SYSTEM only. */
inline constexpr wchar_t AGENT_RELOAD_EVENT[] = L"Global\\TNW_DKPF_AGENT_RELOAD";

inline constexpr wchar_t AGENT_STATE_FILE[] = L"agent.state";

}  // namespace dkpf

#endif
