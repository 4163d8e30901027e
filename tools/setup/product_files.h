/*
 * What an installation consists of. Set-up places these files and removes these, and no others.
 */
#ifndef DKPF_TOOLS_SETUP_PRODUCT_FILES_H
#define DKPF_TOOLS_SETUP_PRODUCT_FILES_H

namespace dkpf {

inline constexpr wchar_t BIN_FOLDER[] = L"bin";
inline constexpr wchar_t ETC_FOLDER[] = L"etc";
inline constexpr wchar_t LOG_FOLDER[] = L"log";
inline constexpr wchar_t PERF_FOLDER[] = L"perf";
inline constexpr wchar_t POLICY_FOLDER[] = L"etc\\policy";
inline constexpr wchar_t SCENARIO_FOLDER[] = L"etc\\scenarios";
inline constexpr wchar_t DRIVER_FOLDER[] = L"driver";

inline constexpr wchar_t AGENT_PROGRAM[] = L"bin\\dkpfagent.exe";
inline constexpr wchar_t FEEDER_PROGRAM[] = L"bin\\velcorfeed.exe";
inline constexpr wchar_t FILTER_DLL[] = L"bin\\tnwdiskfltr.dll";
inline constexpr wchar_t MESSAGE_DLL[] = L"bin\\tnwmsg.dll";
inline constexpr wchar_t CONFIG_FILE[] = L"etc\\cluster.xml";
inline constexpr wchar_t DRIVER_FILE[] = L"driver\\velcor.sys";
inline constexpr wchar_t DRIVER_NAME[] = L"velcor.sys";

enum class FileRule {
    Replace,
    Keep,    // an operator's own from then on: placed where there is none
    Driver,  // not placed with --no-driver
};

struct ProductFile {
    const wchar_t* path;  // below the home, and below the folder that is installed from
    FileRule       rule;
};

inline constexpr ProductFile PRODUCT_FILES[] = {
    { L"bin\\tnwlog.dll", FileRule::Replace },
    { L"bin\\tnwxml.dll", FileRule::Replace },
    { FILTER_DLL, FileRule::Replace },
    { MESSAGE_DLL, FileRule::Replace },
    { L"bin\\tnwdiskperf.dll", FileRule::Replace },
    { AGENT_PROGRAM, FileRule::Replace },
    { FEEDER_PROGRAM, FileRule::Replace },
    { L"bin\\dkpfctl.exe", FileRule::Replace },
    { CONFIG_FILE, FileRule::Keep },
    { L"etc\\policy\\diskperf.xml", FileRule::Replace },
    { L"etc\\scenarios\\three-disks.scn", FileRule::Replace },
    { L"etc\\scenarios\\sixty-four-disks.scn", FileRule::Replace },
    { L"etc\\scenarios\\failing-driver.scn", FileRule::Replace },
    { L"etc\\tnwdiskperf.ini", FileRule::Replace },
    { L"etc\\tnwdiskperf_counters.h", FileRule::Replace },
    { DRIVER_FILE, FileRule::Driver },
};

/* Made by the product's own programs while it runs; removed with it. */
inline constexpr const wchar_t* MADE_FILES[] = { L"etc\\disks.map", L"etc\\disks.map.new", L"etc\\cluster.xml.new" };

/* Set aside or written beside a file: NAME.old-1, NAME.old-2, ..., NAME.place */
inline constexpr wchar_t PLACE_SUFFIX[] = L".place";

struct ProductFolder {
    const wchar_t* path;
    const wchar_t* sddl;  // nullptr: what its parent gives
};

// Protected, so that nothing is inherited from above: administrators (BA) and the system (SY) all, everybody (WD) ...
// ... reads and runs.
inline constexpr wchar_t READ_ONLY_ACCESS[] = L"D:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;WD)";
// ... may make files and append to any. The creator of a file may do all with it, rotation included. A reader of
// performance data runs under any account and writes traces.
inline constexpr wchar_t LOG_ACCESS[] =
    L"D:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;CI;0x1201ab;;;WD)(A;OIIO;0x12008d;;;WD)(A;OICIIO;FA;;;CO)";

inline constexpr ProductFolder PRODUCT_FOLDERS[] = {
    { BIN_FOLDER, READ_ONLY_ACCESS }, { ETC_FOLDER, READ_ONLY_ACCESS }, { POLICY_FOLDER, nullptr },
    { SCENARIO_FOLDER, nullptr },     { LOG_FOLDER, LOG_ACCESS },       { PERF_FOLDER, READ_ONLY_ACCESS },
};

/* Names that other programs see. The driver's tells ours from a real driver, which set-up never touches. */
inline constexpr wchar_t DRIVER_DISPLAY[] = L"Cluster mirror disk driver (simulated)";
inline constexpr wchar_t FEEDER_DISPLAY[] = L"Cluster mirror disk feeder (simulated)";
inline constexpr wchar_t AGENT_DISPLAY[] = L"Cluster disk performance agent";
inline constexpr wchar_t AGENT_DESCRIPTION[] =
    L"Collects the samples of the mirror disks, shares them with readers of performance data and writes the CSV files.";
// Agent and feeder are restarted after each failure, later each time.
inline constexpr unsigned RESTART_DELAYS_MS[] = { 5000, 30000, 60000 };
inline constexpr unsigned RESTART_RESET_S = 86400;  // so long without a failure, and the first delay counts again
// To pass through folders, and to create objects that all sessions see. Nothing else is asked of the account.
inline constexpr wchar_t AGENT_PRIVILEGES[] = L"SeChangeNotifyPrivilege\0SeCreateGlobalPrivilege\0";

}  // namespace dkpf

#endif
