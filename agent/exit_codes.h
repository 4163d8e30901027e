/*
 * Exit codes of dkpfagent.exe; as a service, the same numbers are its service-specific exit codes. Scripts test them.
 */
#ifndef DKPF_AGENT_EXIT_CODES_H
#define DKPF_AGENT_EXIT_CODES_H

namespace dkpf {

enum AgentExit : int {
    AGENT_STOPPED = 0,         // stopped when told to
    AGENT_SYSTEM_FAILED = 1,   // the system refused something that the agent cannot do without
    AGENT_WRONG_USAGE = 2,     // unknown option, or no option while the service manager did not start it
    AGENT_SECOND = 3,          // another disk agent runs on this machine
    AGENT_CONFIG_REFUSED = 4,  // cluster.xml or its policy
    AGENT_PRODUCT_FAILED = 5,  // the performance library could not be brought up
    AGENT_NO_RIGHT = 6,        // no right to create global objects: not an administrator
    AGENT_STOP_OVERDUE = 7,    // did not come down in time; the process was ended
};

}

#endif
