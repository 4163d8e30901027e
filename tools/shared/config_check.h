/*
 * The configuration as the configuration library judges it, in the words that agent and tool show.
 */
#ifndef DKPF_TOOLS_CONFIG_CHECK_H
#define DKPF_TOOLS_CONFIG_CHECK_H

#include <string>
#include <vector>

#include "settings.h"
#include "tnwxml.h"

namespace dkpf {

struct ConfigVerdict {
    bool          accepted = false;
    SettingValues values{};  // the file's values; only where accepted
    std::string   refusal;   // file, line, column, key, value, reason, range; only where refused
    std::vector<std::string>
          unknown;       // keys that the policy does not know: "line 5, column 7: /root/diskperf/log/levle"
    DWORD logLevel = 7;  // the policy's defaults of the trace log, also where the file is refused
    DWORD logSize = 2048;
};

/* Why a file is refused, in one sentence without a closing period: file, line, column, key, value, reason, range. */
std::string RefusalText(const XMLLIB_REPORT& report);

ConfigVerdict JudgeReport(const XMLLIB_REPORT& report);

/* Reads and judges a configuration file; nullptr: HOME/etc/cluster.xml. May block 100 ms for a file that is being
 * saved. */
ConfigVerdict CheckConfiguration(const wchar_t* file);

}  // namespace dkpf

#endif
