/*
 * dkpfctl config check [FILE] [--json]
 */
#include <windows.h>

#include "commands.h"
#include "config_check.h"
#include "config_text.h"
#include "console_out.h"
#include "home.h"
#include "text.h"

namespace dkpf {

static std::wstring WholePath(const std::wstring& path)
{
    std::wstring whole(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');
    whole.resize(GetFullPathNameW(path.c_str(), static_cast<DWORD>(whole.size()), whole.data(), nullptr));
    return whole.empty() ? path : whole;
}

ToolExit RunConfigCheck(const ConfigCheckOptions& options)
{
    const bool          own = options.file.empty();
    const std::wstring  file = own ? HomeOfThisProgram().ConfigFile() : WholePath(Wide(options.file));
    const auto          report = ReadConfiguration(own ? nullptr : file.c_str());
    const ConfigVerdict verdict = JudgeReport(*report);
    if (options.json) {
        Print(ConfigCheckJson(*report, Narrow(file)));
        return verdict.accepted ? TOOL_OK : TOOL_WRONG;
    }
    if (!verdict.accepted) {
        PrintError("refused: " + verdict.refusal + "\n");
        return TOOL_WRONG;
    }
    std::string text = Narrow(file) + " is accepted\n";
    for (size_t i = 0; i < SETTING_NUM; i++)
        text += std::string("  ") + SettingAt(i).name + " = " + SettingText(i, verdict.values[i]) + "\n";
    Print(text + UnknownKeysText(*report));
    return TOOL_OK;
}

}  // namespace dkpf
