/*
 * The subcommands of dkpfctl, one source file each. main.cpp reads the command line and calls one of them.
 */
#ifndef DKPF_TOOLS_COMMANDS_H
#define DKPF_TOOLS_COMMANDS_H

#include <windows.h>
#include <string>
#include <vector>

namespace dkpf {

/* Exit codes of every subcommand; each --help says what they mean there. */
enum ToolExit : int {
    TOOL_OK = 0,
    TOOL_WRONG = 1,
    TOOL_USAGE = 2,
    TOOL_WARNINGS = 3,  // of the doctor: nothing is wrong, but something will be
};

struct StatusOptions {
    bool json = false;
};

struct DoctorOptions {
    bool fix = false;
    bool json = false;
};

struct DumpOptions {
    bool rows = false;
    int  disk = 0;  // 1 to 64; 0: none
};

struct ConfigCheckOptions {
    std::string file;  // empty: the installation's own
    bool        json = false;
};

struct ConfigGetOptions {
    std::string key;  // empty: all
    bool        json = false;
};

struct ConfigSetOptions {
    std::vector<std::string> words;  // key, value, key, value
    bool                     reload = false;
};

struct ConfigSchemaOptions {
    bool json = false;
};

struct TopOptions {
    int  seconds = 0;  // 0: until the user ends it
    bool plain = false;
};

struct QueryOptions {
    std::string disk = "all";   // "total", "all", or 1 to 64
    std::string counter;        // name or number; empty: all
    DWORD       intervalS = 0;  // 0: the first interval that the samples give
    std::string format = "table";
};

struct LogsOptions {
    std::vector<std::string> logs;  // names; empty: the module log
    bool                     all = false;
    std::string              lines = "50";  // a number, or "all"
    std::string              level;         // "error,warning" or a mask
    std::string              routine;
    DWORD                    process = 0;
    std::string              since, until;
    std::string              text;
    bool                     follow = false;
    bool                     json = false;
};

struct InstallCommandOptions {
    std::string home;  // empty: the product's folder below the system's program files
    bool        noDriver = false;
};

struct UninstallCommandOptions {
    std::string home;  // empty: where the product is registered
    bool        purge = false;
};

ToolExit RunStatus(const StatusOptions& options);
ToolExit RunDoctor(const DoctorOptions& options);
ToolExit RunDump(const DumpOptions& options);
ToolExit RunTop(const TopOptions& options);
ToolExit RunConfigCheck(const ConfigCheckOptions& options);
ToolExit RunConfigReload();
ToolExit RunConfigGet(const ConfigGetOptions& options);
ToolExit RunConfigSet(const ConfigSetOptions& options);
ToolExit RunConfigSchema(const ConfigSchemaOptions& options);
ToolExit RunQuery(const QueryOptions& options);
ToolExit RunLogs(const LogsOptions& options);
ToolExit RunInstall(const InstallCommandOptions& options);
ToolExit RunUninstall(const UninstallCommandOptions& options);

}  // namespace dkpf

#endif
