/*
 * dkpfctl config set: new values into HOME/etc/cluster.xml, all of them or none. The file's other bytes stay.
 */
#ifndef DKPF_TOOLS_CONFIG_SET_H
#define DKPF_TOOLS_CONFIG_SET_H

#include <windows.h>
#include <memory>
#include <string>
#include <vector>

#include "agent_state.h"
#include "config_check.h"

namespace dkpf {

/* A key as the user names it, and the value as it is to stand in the file. */
struct KeyValue {
    std::string key;
    std::string value;
};

/* The file and the agent. The error numbers are the system's; 0: done. */
class ConfigSetPorts {
public:
    virtual ~ConfigSetPorts() = default;
    virtual std::string                    File() = 0;         // whole path of cluster.xml
    virtual std::unique_ptr<XMLLIB_REPORT> Check() = 0;        // of cluster.xml
    virtual std::unique_ptr<XMLLIB_REPORT> CheckBeside() = 0;  // of the new file beside it

    /* In this order; Open keeps every other writer out until Put is done or the object ends. */
    virtual DWORD Open() = 0;
    virtual DWORD Edit(const std::vector<ConfigChange>& changes, std::string* text, XMLLIB_FINDING* finding) = 0;
    virtual DWORD Write(const std::string& text) = 0;
    virtual DWORD KeepRights() = 0;
    virtual DWORD Put() = 0;

    /* The running agent's state; nothing where none runs. */
    virtual std::optional<AgentState> RunningAgent() = 0;
};

struct SetOutcome {
    bool        done = false;  // the file holds the values; otherwise it is as it was
    std::string text;          // for people, with line ends
};

/* asksReload: the caller has the agent reload next, so nothing is said about how that is done. */
SetOutcome SetConfiguration(ConfigSetPorts& ports, const std::vector<KeyValue>& values, bool asksReload);

}  // namespace dkpf

#endif
