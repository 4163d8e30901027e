/*
 * The one place that calls the configuration library: programs that only judge reports do not load it.
 */
#include <memory>

#include "config_check.h"

namespace dkpf {

ConfigVerdict CheckConfiguration(const wchar_t* file)
{
    const auto report = std::make_unique<XMLLIB_REPORT>();
    xmllib_check("diskperf", file, report.get());
    return JudgeReport(*report);
}

}  // namespace dkpf
