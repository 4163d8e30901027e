/*
 * What dkpfctl config get, schema and check print, for people in 80 columns and as JSON.
 */
#ifndef DKPF_TOOLS_CONFIG_TEXT_H
#define DKPF_TOOLS_CONFIG_TEXT_H

#include <string>

#include "agent_state.h"
#include "tnwxml.h"

namespace dkpf {

/* What config get knows. The file is accepted where a text is made of it; JSON says whether it is. */
struct ConfigFacts {
    const XMLLIB_REPORT*  report = nullptr;
    const AgentState*     running = nullptr;  // nullptr: no agent runs
    const XMLLIB_SETTING* only = nullptr;     // one of the report's; nullptr: all
    std::string           file;               // whole path
};

std::string ConfigGetText(const ConfigFacts& facts);
std::string ConfigGetJson(const ConfigFacts& facts);

/* The policy. Its report has settings. */
std::string ConfigSchemaText(const XMLLIB_REPORT& report);
std::string ConfigSchemaJson(const XMLLIB_REPORT& report);

/* One line for each key that nobody reads; empty: none. */
std::string UnknownKeysText(const XMLLIB_REPORT& report);
std::string ConfigCheckJson(const XMLLIB_REPORT& report, const std::string& file);

}  // namespace dkpf

#endif
