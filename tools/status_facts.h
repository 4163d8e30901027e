/*
 * What dkpfctl status knows about the machine. Gathered once, then judged and printed without asking again.
 */
#ifndef DKPF_TOOLS_STATUS_FACTS_H
#define DKPF_TOOLS_STATUS_FACTS_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent_state.h"
#include "config_check.h"
#include "event_log.h"
#include "process_info.h"
#include "region_reader.h"
#include "region_view.h"
#include "service_control.h"

namespace dkpf {

struct ServiceFact {
    std::string name;
    ServiceInfo info;
    bool        processGone = false;  // the service manager names a process that is not there
};

struct ConsumerFact {
    int         row = 0;
    DWORD       pid = 0;
    ProcessLife life = ProcessLife::Gone;
};

/* The feed whose values the simulated driver hands over; a real driver is not asked. */
struct FedFact {
    bool  known = false;
    DWORD feeds = 0;  // since the driver's start
    DWORD ageMs = 0;  // of the last one; only where there was one
};

/* The driver's control device. */
struct DeviceFact {
    DWORD   error = ERROR_SUCCESS;  // of opening it
    bool    hangs = false;          // it did not answer in time: nothing else is known
    FedFact fed;
};

/* What the doctor's checks came to. */
struct DoctorSummary {
    size_t checks = 0;
    size_t findings = 0;  // warnings, and what is wrong
    size_t wrong = 0;
};

struct StatusFacts {
    std::string home;

    ServiceFact driver;
    ServiceFact feeder;
    ServiceFact agentService;
    DeviceFact  device;

    StateFileContent agent;
    bool             agentAlive = false;  // agent.state names a process that is there and has not stopped
    ULONGLONG        agentAgeMs = 0;      // since its process started; only where alive

    ConfigVerdict file;

    RegionStatus              region = RegionStatus::Absent;
    bool                      regionOpened = false;  // where Refused: not for lack of rights
    std::string               regionWords;           // where not Copied
    RegionView                view;                  // only where Copied
    std::vector<ConsumerFact> consumers;             // rows in use

    EventHistory events;  // since the agent's start; empty where it is not known

    std::vector<std::pair<std::string, std::string>> places;  // what, path

    std::optional<DoctorSummary> doctor;  // where the doctor was asked
};

/* Asks the machine. May block for 2 s on the region's mutex, and for 2 s on a driver that hangs. */
StatusFacts GatherStatus();

/* Settings in force, where an agent lives and says them. */
const SettingValues* InForce(const StatusFacts& facts);

/* Whether samples are due: collection is on, as far as it is known. */
bool Collecting(const StatusFacts& facts);

/* How old a sample may become before something is wrong, ms; by the interval in force, else by the published one. */
DWORD SampleAgeLimitMs(const StatusFacts& facts);

}  // namespace dkpf

#endif
