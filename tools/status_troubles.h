/*
 * What is wrong on this machine, in words, and what to do about it.
 */
#ifndef DKPF_TOOLS_STATUS_TROUBLES_H
#define DKPF_TOOLS_STATUS_TROUBLES_H

#include <string>
#include <vector>

#include "status_facts.h"

namespace dkpf {

struct Trouble {
    std::string code;  // for programs; never changes its meaning
    std::string text;  // one sentence without a period
    std::string cure;  // what to do
};

using Troubles = std::vector<Trouble>;

/* Whether the driver is a real one: set-up left it alone, as it was told, and installed no feeder. */
bool HasRealDriver(const StatusFacts& facts);

/* The command that mends this installation, wherever it lies: set-up without --home takes its default folder. It leaves
 * a real driver alone, and says what has to be put back then. */
std::string InstallCommand(const StatusFacts& facts);

/* One area each; the doctor's checks are made of the same. They append what they find. */
void AboutDriver(const StatusFacts& facts, Troubles* troubles);
void AboutFeeder(const StatusFacts& facts, Troubles* troubles);
void AboutServiceProcesses(const StatusFacts& facts, Troubles* troubles);
void AboutConfiguration(const StatusFacts& facts, Troubles* troubles);
void AboutAgent(const StatusFacts& facts, Troubles* troubles);
void AboutRegion(const StatusFacts& facts, Troubles* troubles);
void AboutLock(const StatusFacts& facts, Troubles* troubles);
void AboutSamples(const StatusFacts& facts, Troubles* troubles);
void AboutEvents(const StatusFacts& facts, Troubles* troubles);

/* Causes stand before their effects. */
Troubles FindTroubles(const StatusFacts& facts);

/* No trouble, and nothing that the doctor calls wrong. Its warnings do not count. */
bool AllIsWell(const StatusFacts& facts, const Troubles& troubles);

}  // namespace dkpf

#endif
