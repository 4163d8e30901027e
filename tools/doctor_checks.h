/*
 * The doctor's checks: what goes wrong on real servers, in words, and what to do about it.
 */
#ifndef DKPF_TOOLS_DOCTOR_CHECKS_H
#define DKPF_TOOLS_DOCTOR_CHECKS_H

#include <string>
#include <vector>

#include "doctor_facts.h"

namespace dkpf {

enum class Level {
    Ok,
    Note,     // worth knowing, nothing to do now
    Warning,  // will go wrong, or goes wrong for some
    Wrong
};

/* "ok", "note", "warning", "wrong" */
const char* LevelText(Level level);

/* What one check says. A check may say several things. */
struct Finding {
    std::string check;  // the check's name
    std::string code;   // for programs; never changes its meaning. The check's name where all is well
    Level       level = Level::Ok;
    std::string text;  // one sentence without a period
    std::string cure;  // what to do; empty where nothing is
};

using Findings = std::vector<Finding>;

/* Runs all checks; each says at least one thing. Causes stand before their effects. */
Findings RunChecks(const DoctorFacts& facts);

/* How many checks there are. */
size_t CheckCount();

size_t CountOf(const Findings& findings, Level level);

/* What dkpfctl status says and judges of them. */
DoctorSummary Summarize(const Findings& findings);

/* Whether an open of the provider would succeed now; if not, why holds the reason. The system switches a provider off
 * again whose open fails. */
bool ProviderCanOpen(const DoctorFacts& facts, std::string* why);

}  // namespace dkpf

#endif
