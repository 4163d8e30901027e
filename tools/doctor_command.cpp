/*
 * dkpfctl doctor [--fix] [--json]
 */
#include "commands.h"
#include "console_out.h"
#include "doctor_text.h"

namespace dkpf {

ToolExit RunDoctor(const DoctorOptions& options)
{
    DoctorFacts              facts = GatherDoctor();
    std::optional<FixResult> fix;
    if (options.fix) {
        fix = FixProvider(facts, SystemFix());
        if (fix->state == FixState::Done)
            facts = GatherDoctor();
    }
    const Findings findings = RunChecks(facts);
    Print((options.json ? DoctorJson : DoctorText)(facts, findings, fix));
    return DoctorExit(findings);
}

}  // namespace dkpf
