#include "doctor_text.h"

#include <fmt/format.h>
#include <cctype>

namespace dkpf {

ToolExit DoctorExit(const Findings& findings)
{
    if (CountOf(findings, Level::Wrong) != 0)
        return TOOL_WRONG;
    return CountOf(findings, Level::Warning) != 0 ? TOOL_WARNINGS : TOOL_OK;
}

/* The column that the eye runs down: what needs somebody stands in capitals. */
static std::string LevelColumn(Level level)
{
    std::string text = LevelText(level);
    if (level >= Level::Warning) {
        for (char& letter : text)
            letter = static_cast<char>(std::toupper(letter));
    }
    return text;
}

std::string DoctorText(const DoctorFacts& facts, const Findings& findings, const std::optional<FixResult>& fix)
{
    static constexpr char CURE_INDENT[] = "        ";
    std::string           text = fmt::format("{}, {}\n", facts.computer, facts.time);
    if (fix)
        text += fmt::format("{}\n", fix->text);
    for (const Finding& finding : findings) {
        text += fmt::format("{:<8}{}: {}\n", LevelColumn(finding.level), finding.code, finding.text);
        if (!finding.cure.empty())
            text += CURE_INDENT + finding.cure + "\n";
    }
    text += fmt::format("{} checks: {} wrong, {} warnings, {} notes\n", CheckCount(), CountOf(findings, Level::Wrong),
                        CountOf(findings, Level::Warning), CountOf(findings, Level::Note));
    return text;
}

}  // namespace dkpf
