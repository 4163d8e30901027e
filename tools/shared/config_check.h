/*
 * The configuration as the configuration library judges it, in the words that agent and tool show.
 */
#ifndef DKPF_TOOLS_CONFIG_CHECK_H
#define DKPF_TOOLS_CONFIG_CHECK_H

#include <memory>
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

/* The setting of a whole key path; nullptr where the policy has none. */
const XMLLIB_SETTING* SettingOf(const XMLLIB_REPORT& report, const std::string& key);

/* A number as people write this setting's: "60", "0x1ffff". */
std::string NumberText(const XMLLIB_SETTING& setting, DWORD value);

/* The same with its unit: "60 s". */
std::string ValueText(const XMLLIB_SETTING& setting, DWORD value);

/* "1 to 3600 s" */
std::string RangeText(const XMLLIB_SETTING& setting);

/* The reason of the finding without a closing period, with the range where a value is wrong: "... (allowed: 1 to 3600
 * s)". */
std::string ReasonText(const XMLLIB_REPORT& report);

/* Why a file is refused, in one sentence without a closing period: file, line, column, key, value, reason, range. */
std::string RefusalText(const XMLLIB_REPORT& report);

ConfigVerdict JudgeReport(const XMLLIB_REPORT& report);

/* Reads and judges a configuration file; nullptr: HOME/etc/cluster.xml. May block 100 ms for a file that is being
 * saved. */
ConfigVerdict CheckConfiguration(const wchar_t* file);

/* The library's whole report; otherwise the same. */
std::unique_ptr<XMLLIB_REPORT> ReadConfiguration(const wchar_t* file);

/* One new value: whole key path, and the number as it is to stand in the file. */
struct ConfigChange {
    std::string key;
    std::string value;
};

/**
 * The bytes of HOME/etc/cluster.xml with new values in them; none: as they are. Writes nothing. May block as above.
 * @return XMLLIB_OK, or the finding's status; *text is then untouched
 */
DWORD EditConfiguration(const std::vector<ConfigChange>& changes, std::string* text, XMLLIB_FINDING* finding);

}  // namespace dkpf

#endif
