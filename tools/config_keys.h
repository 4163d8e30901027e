/*
 * Which setting of the policy a word on the command line means.
 */
#ifndef DKPF_TOOLS_CONFIG_KEYS_H
#define DKPF_TOOLS_CONFIG_KEYS_H

#include <string>
#include <string_view>
#include <vector>

#include "agent_state.h"
#include "tnwxml.h"

namespace dkpf {

/* The settings of a report, as a range. */
std::vector<const XMLLIB_SETTING*> SettingsOf(const XMLLIB_REPORT& report);

/* A key path without the root that all have in front: "parameters/collectinterval". */
std::string_view KeyName(std::string_view key);

struct KeyChoice {
    const XMLLIB_SETTING* setting = nullptr;  // nullptr: none, or several
    std::string           words;              // then why, in one sentence without a closing period
};

/* By short name (collectinterval), by name (parameters/collectinterval) or by whole key path. */
KeyChoice ChooseKey(const XMLLIB_REPORT& report, std::string_view word);

/* Names of settings that somebody may have meant: "log/level", "a or b"; empty where none is near. */
std::string NearestKeys(const XMLLIB_REPORT& report, std::string_view word);

/* The value that a running agent works with; nothing where the state is none or does not say. */
std::optional<DWORD> InForceOf(const XMLLIB_SETTING& setting, const AgentState* running);

}  // namespace dkpf

#endif
