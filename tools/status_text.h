/*
 * dkpfctl status for people and for programs.
 */
#ifndef DKPF_TOOLS_STATUS_TEXT_H
#define DKPF_TOOLS_STATUS_TEXT_H

#include <string>
#include <vector>

#include "status_facts.h"
#include "status_troubles.h"

namespace dkpf {

std::string StatusText(const StatusFacts& facts, const std::vector<Trouble>& troubles);
std::string StatusJson(const StatusFacts& facts, const std::vector<Trouble>& troubles);

/* What becomes of a setting whose value in the file is not the one in force. */
enum class SettingNote { Same, NeedsReload, NeedsRestart };

SettingNote NoteOf(size_t index, DWORD inForce, DWORD inFile);

}  // namespace dkpf

#endif
