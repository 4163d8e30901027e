/*
 * dkpfctl doctor for people and for programs.
 */
#ifndef DKPF_TOOLS_DOCTOR_TEXT_H
#define DKPF_TOOLS_DOCTOR_TEXT_H

#include <optional>
#include <string>

#include "commands.h"
#include "doctor_checks.h"
#include "doctor_fix.h"

namespace dkpf {

/* By the worst finding. */
ToolExit DoctorExit(const Findings& findings);

/* fix: where --fix was given. */
std::string DoctorText(const DoctorFacts& facts, const Findings& findings, const std::optional<FixResult>& fix);
std::string DoctorJson(const DoctorFacts& facts, const Findings& findings, const std::optional<FixResult>& fix);

}  // namespace dkpf

#endif
