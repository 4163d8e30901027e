/*
 * HOME/log of an installation, for reading beside its writers.
 */
#ifndef DKPF_TOOLS_LOGS_FOLDER_H
#define DKPF_TOOLS_LOGS_FOLDER_H

#include "logs_reader.h"

namespace dkpf {

/* Opens for reading alone and shares everything, deletion included: writers and their rotations never notice. */
class InstalledLogs : public LogFolder {
public:
    explicit InstalledLogs(const std::wstring& folder);
    DWORD Open(const std::string& log, int generation, std::unique_ptr<LogFile>* file) override;

private:
    std::wstring m_folder;
};

}  // namespace dkpf

#endif
