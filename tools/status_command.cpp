/*
 * dkpfctl status [--json]
 */
#include "commands.h"
#include "console_out.h"
#include "doctor_checks.h"
#include "status_text.h"
#include "status_troubles.h"

namespace dkpf {

ToolExit RunStatus(const StatusOptions& options)
{
    DoctorFacts doctor = GatherDoctor();
    doctor.status.doctor = Summarize(RunChecks(doctor));
    const StatusFacts& facts = doctor.status;
    const Troubles     troubles = FindTroubles(facts);
    Print((options.json ? StatusJson : StatusText)(facts, troubles));
    return AllIsWell(facts, troubles) ? TOOL_OK : TOOL_WRONG;
}

}  // namespace dkpf
