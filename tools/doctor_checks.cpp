/*
 * One small function for each check, in groups:
 *   Services         driver, feeder, agent, their order, the driver's device
 *   Configuration    the file, and who would fail on it
 *   Region           size, lock, sample, event entries
 *   Readers          consumer rows, and the processes that hold the library
 *   Registration     what the system knows of the provider
 *   Installation     folders, space, versions
 * The table at the end names them in the order in which they are printed.
 */
#include "doctor_checks.h"

#include <fmt/format.h>
#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

#include "names.h"
#include "product_files.h"
#include "registration.h"
#include "status_troubles.h"
#include "text.h"

namespace dkpf {

static void Say(Findings* findings, const char* code, Level level, std::string text, std::string cure)
{
    findings->push_back({ "", code, level, std::move(text), std::move(cure) });
}

/* What lacks in this installation, or is of the wrong version, only the package can give back. */
static std::string InstallPackage(const DoctorFacts& facts)
{
    return "out of the package of the version that is wanted: " + InstallCommand(facts.status);
}

/* Set-up takes its files from where its program lies, and does nothing unless all are there. */
static std::string Install(const DoctorFacts& facts)
{
    return facts.whole ? InstallCommand(facts.status) : InstallPackage(facts);
}

/* For a check whose subject is not there; the check that says so stands before it. */
static void NotLookedAt(Findings* findings, const std::string& why)
{
    Say(findings, "not_looked_at", Level::Note, why, "");
}

/* Says that nothing in the region can be looked at; false where it can. */
static bool RegionIsClosed(const DoctorFacts& facts, const char* subject, Findings* findings)
{
    if (facts.status.region == RegionStatus::Copied)
        return false;
    NotLookedAt(findings, fmt::format("{} not looked at: there is no copy of the shared region", subject));
    return true;
}

/* Says that what a disk agent does cannot be looked at; false where one lives. */
static bool AgentIsGone(const DoctorFacts& facts, const char* subject, Findings* findings)
{
    if (facts.status.agentAlive)
        return false;
    NotLookedAt(findings, fmt::format("{} not looked at: no disk agent runs", subject));
    return true;
}

/* What dkpfctl status calls wrong is wrong here in the same words. */
template <void (*about)(const StatusFacts&, Troubles*)> static Findings Lift(const DoctorFacts& facts)
{
    Troubles troubles;
    about(facts.status, &troubles);
    Findings findings;
    for (const Trouble& trouble : troubles)
        findings.push_back({ "", trouble.code, Level::Wrong, trouble.text, trouble.cure });
    return findings;
}

static std::string ProcessName(const DoctorFacts& facts, DWORD pid)
{
    for (const ProcessFact& process : facts.processes) {
        if (process.pid == pid)
            return fmt::format("process {} ({})", pid, process.program);
    }
    return fmt::format("process {}", pid);
}

static std::string NamesOf(const DoctorFacts& facts, const std::set<DWORD>& pids)
{
    std::string list;
    for (DWORD pid : pids)
        list += (list.empty() ? "" : ", ") + ProcessName(facts, pid);
    return list;
}

/* ---- Services ---- */

static bool DriverRuns(const DoctorFacts& facts)
{
    const ServiceInfo& driver = facts.status.driver.info;
    return driver.installed && driver.error == ERROR_SUCCESS && driver.state == SERVICE_RUNNING;
}

static Findings CheckDevice(const DoctorFacts& facts)
{
    Findings          findings;
    const DeviceFact& device = facts.status.device;
    // A driver does not go while somebody holds its device, as the feeder does.
    const bool fed = facts.status.feeder.info.installed;
    if (facts.status.driver.info.error != ERROR_SUCCESS)
        NotLookedAt(&findings, "the driver's device was not looked at: the driver's service cannot be asked");
    else if (!DriverRuns(facts))
        NotLookedAt(&findings, "the driver's device was not looked at: the driver does not run");
    else if (device.hangs)
        NotLookedAt(&findings, "the driver's device was not looked at: the driver does not answer");
    else if (device.error == ERROR_ACCESS_DENIED)
        Say(&findings, "device_not_asked", Level::Note,
            "the driver's device may not be opened by this account: " + SystemErrorText(device.error),
            "run this as an administrator");
    else if (device.error != ERROR_SUCCESS)
        Say(&findings, "device_not_opened", Level::Wrong,
            "the driver's device cannot be opened: " + SystemErrorText(device.error),
            fmt::format("net stop dkpfagent, {}net stop velcor, net start velcor, {}net start dkpfagent",
                        fed ? "net stop velcorfeed, " : "", fed ? "net start velcorfeed, " : ""));
    return findings;
}

/* A collect thread that finds no device ends for good, with an event and without a sample. The agent stays, looks for
 * the device every 5 s, and brings the library up anew when it opens: unless the configuration is refused. */
static Findings CheckServiceOrder(const DoctorFacts& facts)
{
    static constexpr char subject[] = "the order in which driver and disk agent were started was";
    Findings              findings;
    const StatusFacts&    status = facts.status;
    const EventEntry*     stopped = nullptr;
    const std::string     broughtUp = EventTimeOf(status.agent.state.broughtUp);
    if (AgentIsGone(facts, subject, &findings) || RegionIsClosed(facts, subject, &findings))
        return findings;
    for (const EventEntry& entry : status.events.entries) {
        if (entry.id == DKPF_EVENT_STOPPED && entry.time >= broughtUp)
            stopped = &entry;
    }
    if (stopped != nullptr && Collecting(status) && DriverRuns(facts) && !status.view.hasSample)
        Say(&findings, "wrong_order", Level::Wrong,
            fmt::format("the disk agent was started before the driver: it collects nothing since {}", stopped->time),
            status.file.accepted
                ? "nothing: the disk agent takes the driver up by itself within 5 s"
                : "correct the configuration file: the disk agent then takes the driver up by itself within 5 s");
    return findings;
}

/* ---- Configuration ---- */

static Findings CheckConfiguration(const DoctorFacts& facts)
{
    Findings findings = Lift<AboutConfiguration>(facts);
    if (findings.empty() && !facts.status.agentAlive)
        Say(&findings, "configuration", Level::Ok, "the configuration is accepted; no disk agent runs that has it", "");
    return findings;
}

static Findings CheckUnknownKeys(const DoctorFacts& facts)
{
    Findings findings;
    for (const std::string& key : facts.status.file.unknown)
        Say(&findings, "unknown_key", Level::Warning, "the configuration holds a key that nobody reads, " + key,
            "correct its name or take it out, then dkpfctl config reload");
    return findings;
}

static Findings CheckOldSettings(const DoctorFacts& facts)
{
    Findings findings;
    if (!facts.status.file.accepted && facts.status.agentAlive)
        Say(&findings, "readers_fail_on_file", Level::Wrong,
            "the disk agent goes on with its old settings, but every program that starts to read fails on the file",
            "correct the file; readers that failed may have to be started again");
    return findings;
}

/* ---- Region ---- */

static Findings CheckRegion(const DoctorFacts& facts)
{
    Findings findings = Lift<AboutRegion>(facts);
    if (findings.empty())
        RegionIsClosed(facts, "damage of the shared region was", &findings);
    return findings;
}

static Findings CheckRegionSize(const DoctorFacts& facts)
{
    static constexpr ULONGLONG page = 4096;
    static constexpr ULONGLONG expected = (DKPF_SHM_SIZE + page - 1) / page * page;
    Findings                   findings;
    if (facts.regionBytes == 0)
        NotLookedAt(&findings, "the size of the shared region was not looked at: there is none that can be mapped");
    else if (facts.regionBytes != expected)
        Say(&findings, "region_size", Level::Wrong,
            fmt::format("the shared region has {} bytes in whole pages, {} are expected: another version made it",
                        facts.regionBytes, expected),
            "stop the disk agent and every reader, " + Install(facts) + ", net start dkpfagent");
    return findings;
}

/* The lock does not say who holds it; whoever does has the library. */
static Findings CheckLock(const DoctorFacts& facts)
{
    Findings        findings = Lift<AboutLock>(facts);
    std::set<DWORD> holders;
    for (const ProcessFact& process : facts.processes) {
        if (!process.libraries.empty())
            holders.insert(process.pid);
    }
    for (Finding& finding : findings) {
        if (!holders.empty())
            finding.text += "; held by one of: " + NamesOf(facts, holders);
    }
    if (findings.empty())
        RegionIsClosed(facts, "the region's lock was", &findings);
    return findings;
}

static Findings CheckSample(const DoctorFacts& facts)
{
    static constexpr char subject[] = "the last sample was";
    Findings              findings;
    if (AgentIsGone(facts, subject, &findings) || RegionIsClosed(facts, subject, &findings))
        return findings;
    return Lift<AboutSamples>(facts);
}

static Findings CheckEvents(const DoctorFacts& facts)
{
    Findings findings = Lift<AboutEvents>(facts);
    if (findings.empty())
        AgentIsGone(facts, "the event entries were", &findings);
    return findings;
}

/* ---- Readers ---- */

static constexpr char ROWS[] = "the consumer rows were";

static constexpr size_t ROW_NUM = DKPF_PROC_MAX - 1;  // row 0 is the producer's

/* The next open frees the rows of processes that are gone: they count as free. */
static size_t FreeRows(const std::vector<ConsumerFact>& consumers)
{
    const auto taken = std::count_if(consumers.begin(), consumers.end(),
                                     [](const ConsumerFact& one) { return one.life == ProcessLife::Alive; });
    return ROW_NUM - std::min(ROW_NUM, static_cast<size_t>(taken));
}

static Findings CheckFreeRows(const DoctorFacts& facts)
{
    static constexpr size_t few = 4;
    Findings                findings;
    if (RegionIsClosed(facts, ROWS, &findings))
        return findings;
    std::set<DWORD> owners;
    for (const ConsumerFact& consumer : facts.status.consumers) {
        if (consumer.life == ProcessLife::Alive)
            owners.insert(consumer.pid);
    }
    const std::string     list = NamesOf(facts, owners);
    const size_t          free = FreeRows(facts.status.consumers);
    static constexpr char cure[] = "end readers that nobody needs";
    if (free == 0)
        Say(&findings, "rows_full", Level::Wrong,
            fmt::format("all {} consumer rows are taken, no further reader can attach: {}", ROW_NUM, list), cure);
    else if (free < few)
        Say(&findings, "rows_scarce", Level::Warning,
            fmt::format("only {} of {} consumer rows are free, taken by {}", free, ROW_NUM, list), cure);
    else
        Say(&findings, "free_rows", Level::Ok,
            fmt::format("{} of {} consumer rows are free{}", free, ROW_NUM, list.empty() ? "" : "; taken by " + list),
            "");
    return findings;
}

static Findings CheckDeadRows(const DoctorFacts& facts)
{
    Findings findings;
    if (RegionIsClosed(facts, ROWS, &findings))
        return findings;
    for (const ConsumerFact& consumer : facts.status.consumers) {
        if (consumer.life == ProcessLife::Gone)
            Say(&findings, "dead_row", Level::Note,
                fmt::format("consumer row {} belongs to process {}, which is gone", consumer.row, consumer.pid),
                "nothing: the next reader that starts frees it");
    }
    return findings;
}

static Findings CheckRepeatedRows(const DoctorFacts& facts)
{
    Findings findings;
    if (RegionIsClosed(facts, ROWS, &findings))
        return findings;
    std::map<DWORD, std::vector<int>> rowsOf;  // of the living: the rows of the others are no program's any more
    for (const ConsumerFact& consumer : facts.status.consumers) {
        if (consumer.life == ProcessLife::Alive)
            rowsOf[consumer.pid].push_back(consumer.row);
    }
    for (const auto& [pid, rows] : rowsOf) {
        if (rows.size() < 2)
            continue;
        std::string list;
        for (int row : rows)
            list += (list.empty() ? "" : ", ") + std::to_string(row);
        Say(&findings, "rows_repeated", Level::Warning,
            fmt::format("{} has {} consumer rows ({}): each open that failed in it left one", ProcessName(facts, pid),
                        rows.size(), list),
            "end that program and start it again");
    }
    return findings;
}

/* "2026-03-07T14:05:09.042+09:00" in 100 ns units since 1601; 0: it is no time. */
static ULONGLONG UnitsOfIso(const std::string& text)
{
    static constexpr ULONGLONG minute = 600000000;
    unsigned                   year, month, day, hour, minutes, second, ms, offsetHours, offsetMinutes;
    char                       sign = 0;
    FILETIME                   local{};
    if (sscanf(text.c_str(), "%4u-%2u-%2uT%2u:%2u:%2u.%3u%c%2u:%2u", &year, &month, &day, &hour, &minutes, &second, &ms,
               &sign, &offsetHours, &offsetMinutes) != 10)
        return 0;
    const auto       part = [](unsigned number) { return static_cast<WORD>(number); };
    const SYSTEMTIME time = { part(year), part(month),   part(0),      part(day),
                              part(hour), part(minutes), part(second), part(ms) };
    if (!SystemTimeToFileTime(&time, &local))
        return 0;
    const ULONGLONG offset = (60ull * offsetHours + offsetMinutes) * minute;
    return sign == '-' ? UnitsOf(local) + offset : UnitsOf(local) - offset;
}

/* Each time the agent brings the library up, at its start or for a driver that came back, the table is cleared. Whoever
 * was attached before writes no row, and its peaks stay 0. */
static Findings CheckOldReaders(const DoctorFacts& facts)
{
    Findings              findings;
    static constexpr char subject[] = "readers from before the disk agent's start were";
    const StatusFacts&    status = facts.status;
    if (AgentIsGone(facts, subject, &findings) || RegionIsClosed(facts, subject, &findings))
        return findings;
    const AgentState& agent = status.agent.state;
    const ULONGLONG   since = std::max(agent.processStarted, UnitsOfIso(agent.broughtUp));
    for (const ProcessFact& process : facts.processes) {
        const bool older = process.started != 0 && process.started < since;
        const bool attached = std::any_of(status.consumers.begin(), status.consumers.end(),
                                          [&](const ConsumerFact& consumer) { return consumer.pid == process.pid; });
        if (process.pid != agent.pid && !process.libraries.empty() && older && !attached)
            Say(&findings, "old_reader", Level::Warning,
                fmt::format("{} reads since before the disk agent began to collect and has no row: its peaks are dead",
                            ProcessName(facts, process.pid)),
                "end that program and start it again");
    }
    return findings;
}

static Findings CheckOldLibraries(const DoctorFacts& facts)
{
    Findings findings;
    for (const ProcessFact& process : facts.processes) {
        for (const LoadedLibrary& library : process.libraries) {
            if (!library.current)
                Say(&findings, "old_library", Level::Warning,
                    fmt::format("{} holds another library than the one installed here: {}",
                                ProcessName(facts, process.pid), library.path),
                    "end that program and start it again");
        }
    }
    for (const AsideFact& aside : facts.aside) {
        if (aside.state == AsideState::Held)
            Say(&findings, "old_library_held", Level::Note,
                aside.path + " was replaced, but a program that started before still holds it",
                "nothing: the next dkpfctl install after that program's end deletes it");
        else if (aside.state == AsideState::NotAsked)
            Say(&findings, "old_library_not_asked", Level::Note,
                aside.path + " was replaced; whether a program still holds it could not be asked",
                facts.administrator ? "" : "run this as an administrator");
        else
            Say(&findings, "old_library_left", Level::Note, aside.path + " was replaced and nobody holds it any more",
                "del \"" + aside.path + "\"");
    }
    return findings;
}

static Findings Check32BitReaders(const DoctorFacts& facts)
{
    Findings findings;
    for (const ProcessFact& process : facts.processes) {
        if (process.is32Bit && process.readsPerformanceData)
            Say(&findings, "reader_32bit", Level::Warning,
                fmt::format("{} reads performance data as a 32-bit program: it cannot load the library and sees no "
                            "object of ours",
                            ProcessName(facts, process.pid)),
                "use the 64-bit form of that program");
    }
    return findings;
}

static Findings CheckProcesses(const DoctorFacts& facts)
{
    Findings     findings;
    const size_t refused = static_cast<size_t>(std::count_if(
        facts.processes.begin(), facts.processes.end(), [](const ProcessFact& process) { return process.refused; }));
    if (refused != 0)
        Say(&findings, "processes_not_asked", Level::Note,
            fmt::format("{} of {} processes may not be asked what they have loaded", refused, facts.processes.size()),
            facts.administrator ? "" : "run this as an administrator");
    return findings;
}

/* ---- Registration ---- */

/* Says that nothing below the performance key can be looked at; false where it can. */
static bool KeyIsClosed(const DoctorFacts& facts, const char* subject, Findings* findings)
{
    if (facts.registration.error == ERROR_SUCCESS)
        return false;
    NotLookedAt(findings, fmt::format("the {} cannot be looked at: there is no performance key to read", subject));
    return true;
}

/* Of the performance key. */
static std::string DeleteValue(const wchar_t* value)
{
    return fmt::format("reg delete HKLM\\{} /v \"{}\" /f", Narrow(PERFORMANCE_KEY), Narrow(value));
}

/* From a drive or a share on; where the value begins with a variable, that is its matter. */
static bool IsFullPath(const std::string& path)
{
    const bool drive = path.size() > 2 && path[1] == ':' && (path[2] == '\\' || path[2] == '/');
    return drive || path.rfind("\\\\", 0) == 0 || path.rfind('%', 0) == 0;
}

static Findings CheckLibraryValue(const DoctorFacts& facts)
{
    Findings                 findings;
    const RegistrationFacts& registration = facts.registration;
    const std::string        ours = facts.status.home + "\\bin\\" + Narrow(PRODUCT_DLL);
    if (registration.error == ERROR_FILE_NOT_FOUND)
        Say(&findings, "not_registered", Level::Wrong, "the provider is not registered: it has no performance key",
            Install(facts));
    else if (registration.error != ERROR_SUCCESS)
        Say(&findings, "registration_not_asked", Level::Wrong,
            "the provider's performance key cannot be read: " + SystemErrorText(registration.error),
            "run this as an administrator");
    else if (!registration.library)
        Say(&findings, "library_value_missing", Level::Wrong, "the value Library of the provider is missing",
            Install(facts));
    else if (!IsFullPath(*registration.library))
        Say(&findings, "library_no_full_path", Level::Wrong,
            "the value Library is no full path, " + *registration.library +
                ": services find it only after a restart of the machine, or find another",
            Install(facts));
    else if (registration.libraryError != ERROR_SUCCESS)
        Say(&findings, "library_file_missing", Level::Wrong,
            fmt::format("the registered library {} cannot be read: {}", *registration.library,
                        SystemErrorText(registration.libraryError)),
            Install(facts));
    else if (!registration.libraryOurs)
        Say(&findings, "library_elsewhere", Level::Wrong,
            fmt::format("the registered library is {}, this installation's is {}", *registration.library, ours),
            Install(facts));
    return findings;
}

struct ExportName {
    const wchar_t*             value;
    const wchar_t*             name;
    std::optional<std::string> RegistrationFacts::*registered;
};

static constexpr ExportName EXPORT_NAMES[] = { { VALUE_OPEN, EXPORT_OPEN, &RegistrationFacts::open },
                                               { VALUE_COLLECT, EXPORT_COLLECT, &RegistrationFacts::collect },
                                               { VALUE_CLOSE, EXPORT_CLOSE, &RegistrationFacts::close } };

static Findings CheckExportNames(const DoctorFacts& facts)
{
    Findings findings;
    if (KeyIsClosed(facts, "export names", &findings))
        return findings;
    for (const ExportName& one : EXPORT_NAMES) {
        const auto&       registered = facts.registration.*one.registered;
        const std::string name = Narrow(one.name);
        if (!registered)
            Say(&findings, "export_value_missing", Level::Wrong,
                fmt::format("the value {} of the provider is missing", Narrow(one.value)), Install(facts));
        else if (*registered != name)
            Say(&findings, "export_value_wrong", Level::Wrong,
                fmt::format("the value {} of the provider is {} and has to be {}", Narrow(one.value), *registered,
                            name),
                Install(facts));
    }
    return findings;
}

static bool HasExport(const RegistrationFacts& registration, const std::string& name)
{
    return std::find(registration.exports.begin(), registration.exports.end(), name) != registration.exports.end();
}

static Findings CheckExports(const DoctorFacts& facts)
{
    Findings                 findings;
    const RegistrationFacts& registration = facts.registration;
    if (!registration.library || registration.libraryError != ERROR_SUCCESS) {
        NotLookedAt(&findings, "the library's exports were not looked at: there is no library that can be read");
        return findings;
    }
    const std::string cure = registration.libraryOurs ? InstallPackage(facts) : Install(facts);
    if (!registration.libraryReadable) {
        Say(&findings, "library_damaged", Level::Wrong,
            "the registered library is no whole 64-bit image: " + *registration.library, cure);
        return findings;
    }
    for (const ExportName& one : EXPORT_NAMES) {
        const std::string name = Narrow(one.name);
        if (!HasExport(registration, name))
            Say(&findings, "export_missing", Level::Wrong,
                fmt::format("the registered library does not export {}", name), cure);
    }
    return findings;
}

static constexpr DWORD TITLE_SPAN = 2 * (TITLE_NUM - 1);  // from the first title index to the last

static Findings CheckIndexRange(const DoctorFacts& facts)
{
    Findings findings;
    if (KeyIsClosed(facts, "title index range", &findings))
        return findings;
    struct Range {
        const char*                 first;
        const char*                 last;
        const std::optional<DWORD>& firstValue;
        const std::optional<DWORD>& lastValue;
        DWORD                       step;  // the first number is a multiple of it
    };
    const RegistrationFacts& r = facts.registration;
    for (const Range& range : { Range{ "First Counter", "Last Counter", r.firstCounter, r.lastCounter, 2 },
                                Range{ "First Help", "Last Help", r.firstHelp, r.lastHelp, 1 } }) {
        if (!range.firstValue || !range.lastValue)
            Say(&findings, "index_missing", Level::Wrong,
                fmt::format("the value {} of the provider is missing", range.firstValue ? range.last : range.first),
                Install(facts));
        else if (*range.lastValue - *range.firstValue != TITLE_SPAN)
            Say(&findings, "index_range", Level::Wrong,
                fmt::format("{} is {} and {} is {}: {} titles need a difference of {}", range.first, *range.firstValue,
                            range.last, *range.lastValue, TITLE_NUM, TITLE_SPAN),
                Install(facts));
        else if (*range.firstValue == 0 || *range.firstValue % range.step != 0)
            Say(&findings, "index_range", Level::Wrong,
                fmt::format("{} is {}, which is no {}title index", range.first, *range.firstValue,
                            range.step == 2 ? "even " : ""),
                Install(facts));
    }
    return findings;
}

/* Whether a number stands in a list that blanks separate. */
static bool ListHas(const std::string& list, DWORD number)
{
    return (" " + list + " ").find(" " + std::to_string(number) + " ") != std::string::npos;
}

/* With it the system asks for names and texts by queries that the library does not know, and readers see no object. */
static Findings CheckMetadata(const DoctorFacts& facts)
{
    Findings    findings;
    const auto& metadata = facts.registration.metadata;
    if (KeyIsClosed(facts, "metadata switch", &findings) || !metadata || *metadata == 0)
        return findings;
    Say(&findings, "metadata_claimed", Level::Wrong,
        fmt::format("the value Collect Supports Metadata of the provider is {}: it answers no such queries", *metadata),
        DeleteValue(VALUE_METADATA));
    return findings;
}

static Findings CheckObjectList(const DoctorFacts& facts)
{
    Findings findings;
    if (KeyIsClosed(facts, "object list", &findings))
        return findings;
    const RegistrationFacts& registration = facts.registration;
    if (!registration.objectList)
        Say(&findings, "object_list_missing", Level::Warning,
            "the value Object List of the provider is missing: it is called for objects of others", Install(facts));
    else if (registration.firstCounter && !ListHas(*registration.objectList, *registration.firstCounter))
        Say(&findings, "object_list_wrong", Level::Wrong,
            fmt::format("the value Object List is \"{}\" and lacks our object, {}: queries for it never reach us",
                        *registration.objectList, *registration.firstCounter),
            Install(facts));
    return findings;
}

/* Set-up leaves a range of title indexes as it is. The system's own program takes it back with the names; where that
 * does nothing, set-up gave the range, and takes another one when it is not whole. */
static std::string NamesAnew(const DoctorFacts& facts)
{
    return (facts.wine ? DeleteValue(VALUE_FIRST_COUNTER) : "unlodctr tnwdiskperf") + ", then " + Install(facts);
}

static Findings CheckNames(const DoctorFacts& facts)
{
    Findings         findings;
    const NameFacts& names = facts.names;
    const auto&      first = facts.registration.firstCounter;
    const size_t     known = static_cast<size_t>(
        std::count_if(names.system.begin(), names.system.end(), [](const std::string& name) { return !name.empty(); }));
    if (!first) {
        NotLookedAt(&findings, "the counter names were not looked at: there is no title index range");
        return findings;
    }
    if (!names.tableRead || names.table.size() != TITLE_NUM) {
        Say(&findings, "name_table_bad", known == TITLE_NUM ? Level::Warning : Level::Wrong,
            fmt::format("the installed table {} has {} names, {} are expected", names.tablePath, names.table.size(),
                        TITLE_NUM),
            InstallPackage(facts));
        return findings;
    }
    if (known == 0) {
        const std::string text =
            fmt::format("the system's table has no names from {} on: they come from {}", *first, names.tablePath);
        if (facts.wine)
            Say(&findings, "names", Level::Ok, text, "");
        else
            Say(&findings, "names_not_in_system", Level::Wrong, text, NamesAnew(facts));
        return findings;
    }
    for (size_t i = 0; i < names.system.size(); i++) {
        if (names.system[i] != names.table[i])
            Say(&findings, "names_differ", Level::Wrong,
                fmt::format("the system's table calls title index {} \"{}\", which has to be \"{}\"", *first + 2 * i,
                            names.system[i], names.table[i]),
                NamesAnew(facts));
    }
    return findings;
}

static Findings CheckProvider(const DoctorFacts& facts)
{
    Findings    findings;
    const auto& disabled = facts.registration.disabled;
    if (KeyIsClosed(facts, "switch of the provider", &findings) || !disabled || *disabled == 0)
        return findings;
    std::string why;
    Say(&findings, "provider_disabled", Level::Wrong,
        fmt::format("the system has switched the provider off after an open that failed "
                    "(Disable Performance Counters is {})",
                    *disabled),
        ProviderCanOpen(facts, &why) ? "dkpfctl doctor --fix"
                                     : "mend what is wrong above (" + why + "), then dkpfctl doctor --fix");
    return findings;
}

static Findings CheckDebugSwitch(const DoctorFacts& facts)
{
    static constexpr DWORD stops = 1 | 2 | 4;  // open, collect, close
    Findings               findings;
    const DebugFacts&      debug = facts.debug;
    const std::string      key = "HKLM\\" + Narrow(DEBUG_KEY);
    const std::string      remove = fmt::format("reg delete {} /v {} /f", key, Narrow(DEBUG_VALUE));
    if (debug.keyError == ERROR_FILE_NOT_FOUND)
        Say(&findings, "debug_key_missing", Level::Warning,
            "the key of the debug switch is missing: each collect writes an error line", "reg add " + key + " /f");
    else if (debug.keyError != ERROR_SUCCESS)
        Say(&findings, "debug_key_not_asked", Level::Note,
            "the key of the debug switch cannot be read: " + SystemErrorText(debug.keyError),
            "run this as an administrator");
    else if (debug.value && (*debug.value & stops) != 0)
        Say(&findings, "debug_stops", Level::Wrong,
            fmt::format("the debug switch is {}: programs that read performance data stop in a message box",
                        *debug.value),
            remove);
    else if (debug.value)
        Say(&findings, "debug_value_left", Level::Note,
            fmt::format("the debug switch is {}: it stops nobody", *debug.value), remove);
    return findings;
}

static Findings CheckEventSource(const DoctorFacts& facts)
{
    Findings                findings;
    const EventSourceFacts& source = facts.eventSource;
    if (source.keyError != ERROR_SUCCESS)
        Say(&findings, "event_source_missing", Level::Warning,
            "the event source tnwdiskperf is not registered: the event log shows its entries without their texts",
            Install(facts));
    else if (source.messageFiles.empty())
        Say(&findings, "event_file_missing", Level::Warning, "the event source tnwdiskperf names no message file",
            Install(facts));
    for (const std::string& file : source.messageFilesMissing)
        Say(&findings, "event_file_missing", Level::Warning,
            "the message file of the event source is not there: " + file, Install(facts));
    return findings;
}

/* The system loads the library by its whole path, and the libraries that it needs as the host finds them. */
static Findings CheckSearchPath(const DoctorFacts& facts)
{
    Findings              findings;
    const SearchPathFact& path = facts.searchPath;
    if (path.error == ERROR_ACCESS_DENIED)
        Say(&findings, "path_not_asked", Level::Note,
            "the system's PATH cannot be read: " + SystemErrorText(path.error), "run this as an administrator");
    else if (!path.holdsBin)
        Say(&findings, "path_lacks_bin", Level::Warning,
            fmt::format("the system's PATH lacks {}\\bin: programs may not find the libraries that the provider needs",
                        facts.status.home),
            Install(facts) + "; programs see it when they are started again, services after a restart of the machine");
    return findings;
}

/* ---- Installation ---- */

static Findings CheckFolder(const DoctorFacts& facts, const FolderFact& folder, bool usersWrite)
{
    Findings findings;
    if (folder.error == ERROR_SUCCESS)
        return findings;
    if (folder.error == ERROR_PATH_NOT_FOUND || folder.error == ERROR_FILE_NOT_FOUND)
        Say(&findings, "folder_missing", Level::Wrong, "the folder is missing: " + folder.path,
            "mkdir \"" + folder.path + "\", then " + Install(facts));
    else if (folder.error == ERROR_ACCESS_DENIED && !usersWrite && !facts.administrator)
        Say(&findings, "folder_not_tried", Level::Note, "only administrators may write to " + folder.path,
            "run this as an administrator");
    else
        Say(&findings, "folder_not_writable", Level::Wrong,
            fmt::format("no file can be made in {}: {}", folder.path, SystemErrorText(folder.error)),
            folder.error == ERROR_DISK_FULL ? "free space on its volume" : Install(facts));
    return findings;
}

/* Every account that reads performance data writes traces. */
static Findings CheckLogFolder(const DoctorFacts& facts)
{
    return CheckFolder(facts, facts.log, true);
}

static Findings CheckPerfFolder(const DoctorFacts& facts)
{
    return CheckFolder(facts, facts.perf, false);
}

static Findings CheckSpace(const DoctorFacts& facts)
{
    static constexpr ULONGLONG mib = 1024 * 1024;
    Findings                   findings;
    const ULONGLONG            bound = SpaceBoundOf(facts.status);
    if (bound == 0) {
        NotLookedAt(&findings, "the free space was not looked at: no settings are known");
        return findings;
    }
    if (facts.spaceError != ERROR_SUCCESS) {
        NotLookedAt(&findings, "the free space was not looked at: " + SystemErrorText(facts.spaceError));
        return findings;
    }
    if (bound > facts.usedBytes && bound - facts.usedBytes > facts.freeBytes)
        Say(&findings, "space_short", Level::Warning,
            fmt::format("CSV files and logs may grow to {} MiB and have {} MiB; the volume has {} MiB left",
                        bound / mib, facts.usedBytes / mib, facts.freeBytes / mib),
            "free space, or lower perflogsize or perflogrotation, then restart the disk agent");
    return findings;
}

static bool IsOurs(const std::string& file)
{
    return std::any_of(std::begin(PRODUCT_FILES), std::end(PRODUCT_FILES),
                       [&](const ProductFile& ours) { return _stricmp(Narrow(ours.path).c_str(), file.c_str()) == 0; });
}

/* The operator put the one in bin that belongs to the real driver. */
static bool IsRealFilter(const DoctorFacts& facts, const BinaryFact& binary)
{
    return HasRealDriver(facts.status) && _stricmp(binary.file.c_str(), Narrow(FILTER_DLL).c_str()) == 0;
}

static Findings CheckVersions(const DoctorFacts& facts)
{
    Findings findings;
    for (const BinaryFact& binary : facts.binaries) {
        if (!binary.there)
            Say(&findings, "binary_missing", Level::Wrong, binary.file + " is missing", InstallPackage(facts));
        else if (!binary.inSystem && !IsOurs(binary.file))
            Say(&findings, "foreign_binary", Level::Warning, fmt::format("{} is no part of the product", binary.file),
                fmt::format("del \"{}\\{}\"", facts.status.home, binary.file));
        else if (binary.version != facts.version && !IsRealFilter(facts, binary))
            Say(&findings, "version_differs", Level::Wrong,
                fmt::format("{} has {}, dkpfctl has {}", binary.file,
                            binary.version.empty() ? "no version" : "version " + binary.version, facts.version),
                InstallPackage(facts));
    }
    return findings;
}

/* ---- All of them ---- */

struct Check {
    const char* name;
    const char* well;  // what is said where the check finds nothing
    Findings (*look)(const DoctorFacts& facts);
};

static constexpr Check CHECKS[] = {
    { "driver", "the driver velcor runs", Lift<AboutDriver> },
    { "device", "the driver's device can be opened", CheckDevice },
    { "feeder", "the feeder runs, or is not needed", Lift<AboutFeeder> },
    { "service_processes", "services that run have their processes", Lift<AboutServiceProcesses> },
    { "configuration", "the configuration is accepted and in force", CheckConfiguration },
    { "unknown_keys", "the configuration has no unknown keys", CheckUnknownKeys },
    { "old_settings", "no reader fails on the configuration", CheckOldSettings },
    { "agent", "the disk agent is alive", Lift<AboutAgent> },
    { "service_order", "the driver was there when the disk agent started", CheckServiceOrder },
    { "region", "the shared region can be read and is undamaged", CheckRegion },
    { "region_size", "the shared region has the right size", CheckRegionSize },
    { "lock", "the region's lock was free within 2 s", CheckLock },
    { "sample", "the last sample is not too old", CheckSample },
    { "events", "no warning is open", CheckEvents },
    { "free_rows", "there are free consumer rows", CheckFreeRows },
    { "dead_rows", "no consumer row belongs to a process that is gone", CheckDeadRows },
    { "repeated_rows", "no process has several consumer rows", CheckRepeatedRows },
    { "old_readers", "no reader was orphaned by a start of the disk agent", CheckOldReaders },
    { "old_libraries", "nobody holds an old library", CheckOldLibraries },
    { "readers_32bit", "no 32-bit program reads performance data", Check32BitReaders },
    { "processes", "all processes could be asked", CheckProcesses },
    { "library", "the registered library is the one of this installation", CheckLibraryValue },
    { "export_names", "open, collect and close are registered", CheckExportNames },
    { "exports", "the registered library exports them", CheckExports },
    { "index_range", "the title index range is whole", CheckIndexRange },
    { "metadata", "the provider is not asked for metadata", CheckMetadata },
    { "object_list", "the provider is called for its own object only", CheckObjectList },
    { "names", "counter names come from the system's table", CheckNames },
    { "provider", "the system has not switched the provider off", CheckProvider },
    { "debug_switch", "no debug switch is set", CheckDebugSwitch },
    { "event_source", "the event source is registered with its texts", CheckEventSource },
    { "search_path", "the system's PATH leads to the provider's libraries", CheckSearchPath },
    { "log_folder", "this account can write to the log folder", CheckLogFolder },
    { "perf_folder", "this account can write to the folder of the CSV files", CheckPerfFolder },
    { "space", "the volume has room for all that CSV files and logs may come to", CheckSpace },
    { "versions", "all binaries are of one version", CheckVersions },
};

const char* LevelText(Level level)
{
    switch (level) {
    case Level::Ok:
        return "ok";
    case Level::Note:
        return "note";
    case Level::Warning:
        return "warning";
    case Level::Wrong:
        break;
    }
    return "wrong";
}

size_t CheckCount()
{
    return std::size(CHECKS);
}

Findings RunChecks(const DoctorFacts& facts)
{
    Findings all;
    for (const Check& check : CHECKS) {
        Findings findings = check.look(facts);
        if (findings.empty())
            Say(&findings, check.name, Level::Ok, check.well, "");
        for (Finding& finding : findings) {
            finding.check = check.name;
            all.push_back(std::move(finding));
        }
    }
    return all;
}

size_t CountOf(const Findings& findings, Level level)
{
    return static_cast<size_t>(std::count_if(findings.begin(), findings.end(),
                                             [level](const Finding& finding) { return finding.level == level; }));
}

DoctorSummary Summarize(const Findings& findings)
{
    const size_t wrong = CountOf(findings, Level::Wrong);
    return { CheckCount(), CountOf(findings, Level::Warning) + wrong, wrong };
}

static bool ExportNamesAreRight(const RegistrationFacts& registration)
{
    return std::all_of(std::begin(EXPORT_NAMES), std::end(EXPORT_NAMES),
                       [&](const ExportName& one) { return registration.*one.registered == Narrow(one.name); });
}

static bool ExportsAreThere(const RegistrationFacts& registration)
{
    return std::all_of(std::begin(EXPORT_NAMES), std::end(EXPORT_NAMES),
                       [&](const ExportName& one) { return HasExport(registration, Narrow(one.name)); });
}

bool ProviderCanOpen(const DoctorFacts& facts, std::string* why)
{
    const StatusFacts&       status = facts.status;
    const RegistrationFacts& registration = facts.registration;
    if (status.region != RegionStatus::Copied)
        *why = status.regionWords;
    else if (!status.view.damage.empty())
        *why = "the shared region is damaged";
    else if (status.view.published[PERF_ENABLE] == 0)
        *why = "collection is switched off";
    else if (!status.view.hasSample)
        *why = "there is no sample yet";
    else if (!status.file.accepted)
        *why = "the configuration file is refused";
    else if (!registration.firstCounter || !registration.firstHelp)
        *why = "First Counter or First Help is not registered";
    else if (!registration.library || registration.libraryError != ERROR_SUCCESS)
        *why = "the registered library cannot be read";
    else if (!registration.libraryReadable)
        *why = "the registered library is damaged";
    else if (!ExportNamesAreRight(registration))
        *why = "Open, Collect or Close is not registered as it has to be";
    else if (!ExportsAreThere(registration))
        *why = "the registered library lacks an export";
    else if (FreeRows(status.consumers) == 0)
        *why = "all consumer rows are taken";
    else
        return true;
    return false;
}

}  // namespace dkpf
