/*
 * velcorfeed: feeds the simulated mirror-disk driver. Command line, places of files, and the service's side.
 */
#include <CLI/CLI.hpp>

#include <windows.h>
#include <algorithm>
#include <memory>
#include <stdio.h>

#include "builtin_scenario.h"
#include "device.h"
#include "feeder.h"
#include "host_source.h"
#include "journal.h"
#include "scenario.h"

struct Options {
    bool        host = false;
    std::string scenario;  // all paths are UTF-8
    std::string journal;
    std::string map;
    std::string diskstats = "Z:\\proc\\diskstats";
    std::string sysblock = "Z:\\sys\\block";
    std::string mode = "async";
    uint64_t    seed = 1;
    double      speed = 1;
    bool        once = false;
    bool        service = false;
};

static char                  g_serviceName[] = "velcorfeed";
static HANDLE                g_stop;     // set by Ctrl+C and by the service manager
static Options               g_options;  // written before the first thread starts
static SERVICE_STATUS_HANDLE g_serviceStatus;

/* ---- Places ---- */

/* HOME: the parent of the folder that this program lies in. */
static std::string Home()
{
    std::wstring path(MAX_PATH, L'\0');
    DWORD        length = 0;

    // A path that does not fit is cut off without a word; 32768 is the longest there is.
    while ((length = GetModuleFileNameW(NULL, &path[0], static_cast<DWORD>(path.size()))) == path.size() &&
           path.size() < 32768) {
        path.resize(path.size() * 2);
    }
    path.resize(length);
    for (int i = 0; i < 2; i++) {
        path = path.substr(0, path.find_last_of(L"\\/"));
    }
    return Narrow(path);
}

/* ---- What is fed ---- */

static std::string At(const std::string& file, unsigned line, const std::string& reason)
{
    return file + ":" + std::to_string(line) + ": " + reason;
}

static std::unique_ptr<Source> MakeScenario(const std::string& name, const std::string& text, Teller& teller)
{
    Scenario    scenario;
    unsigned    line = 0;
    std::string reason;

    if (!ParseScenario(text, scenario, line, reason)) {
        teller.Say(At(name, line, reason));
        return nullptr;
    }
    return std::make_unique<ScenarioSource>(std::move(scenario), g_options.seed);
}

static HostFiles BindHostFiles(const std::string& mapFile)
{
    HostFiles         files;
    const std::string diskstats = g_options.diskstats;
    const std::string sysblock = g_options.sysblock;

    files.readDiskStats = [diskstats](std::string& text) { return ReadWholeFile(diskstats, text); };
    files.listWholeDevices = [sysblock]() {
        std::vector<std::string> names;
        ListFolder(sysblock, names);
        return names;
    };
    files.writeMap = [mapFile](const std::string& text) { return ReplaceWholeFile(mapFile, text); };
    return files;
}

static ExitCode MakeHost(const std::string& mapFile, Teller& teller, std::unique_ptr<Source>& source)
{
    const HostFiles files = BindHostFiles(mapFile);
    const unsigned  mode = g_options.mode == "sync" ? VELCOR_MODE_SYNC : VELCOR_MODE_ASYNC;
    DiskMap         map;
    std::string     text;
    std::string     reason;
    unsigned        line = 0;
    DWORD           error = files.readDiskStats(text);

    if (error != ERROR_SUCCESS) {
        teller.Say(g_options.diskstats + " cannot be read (error " + std::to_string(error) + ").");
        return EXIT_NO_STATS;
    }
    if (!HostHasDisks(files)) {
        teller.Say("this host shows no whole disk; a built-in scenario is played instead, for ever.");
        source = MakeScenario("built-in scenario", BUILTIN_SCENARIO, teller);
        return source ? EXIT_DONE : EXIT_FAILED;
    }
    error = ReadWholeFile(mapFile, text);
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND) {
        teller.Say(mapFile + " cannot be read (error " + std::to_string(error) + ").");
        return EXIT_FILE;
    }
    if (!ParseDiskMap(text, map, line, reason)) {
        teller.Say(At(mapFile, line, reason));
        return EXIT_FILE;
    }
    source = std::make_unique<HostSource>(files, map, mode);
    return EXIT_DONE;
}

static ExitCode MakeSource(const std::string& home, Teller& teller, std::unique_ptr<Source>& source)
{
    std::string text;
    DWORD       error = ERROR_SUCCESS;

    if (g_options.scenario.empty()) {
        return MakeHost(g_options.map.empty() ? home + "\\etc\\disks.map" : g_options.map, teller, source);
    }
    error = ReadWholeFile(g_options.scenario, text);
    if (error != ERROR_SUCCESS) {
        teller.Say(g_options.scenario + " cannot be read (error " + std::to_string(error) + ").");
        return EXIT_FILE;
    }
    source = MakeScenario(g_options.scenario, text, teller);
    return source ? EXIT_DONE : EXIT_FILE;
}

/* An hour a step is slow enough. */
static DWORD StepMs(double speed)
{
    return speed > 0 ? static_cast<DWORD>(std::min(1000 / speed, 3600000.0)) : 0;
}

static ExitCode Run(Teller& teller)
{
    const std::string       home = Home();
    std::unique_ptr<Source> source;
    const Pace              pace = { StepMs(g_options.speed), g_options.once };
    LineFile journal(g_options.journal.empty() ? home + "\\log\\velcorfeed.journal" : g_options.journal, JOURNAL_HEADER,
                     JOURNAL_LIMIT);
    ExitCode made = MakeSource(home, teller, source);

    if (made != EXIT_DONE) {
        return made;
    }
    switch (const DWORD error = BecomeTheFeeder()) {
    case ERROR_SUCCESS:
        return RunFeeder(*source, &journal, pace, g_stop, teller);
    case ERROR_BUSY:
        teller.Say("another velcorfeed feeds the driver of this machine; stop it first.");
        return EXIT_SECOND;
    case ERROR_ACCESS_DENIED:
        teller.Say("only administrators may feed the driver.");
        return EXIT_NO_RIGHT;
    default:
        teller.Say("the feeders' mutex cannot be made (error " + std::to_string(error) + ").");
        return EXIT_FAILED;
    }
}

/* ---- The service ---- */

static void Report(DWORD state, DWORD exitCode)
{
    SERVICE_STATUS status = {};

    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
    status.dwWin32ExitCode = exitCode == EXIT_DONE ? NO_ERROR : ERROR_SERVICE_SPECIFIC_ERROR;
    status.dwServiceSpecificExitCode = exitCode;
    status.dwWaitHint = 5000;
    SetServiceStatus(g_serviceStatus, &status);
}

static DWORD WINAPI OnControl(DWORD control, DWORD, LPVOID, LPVOID)
{
    switch (control) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
        Report(SERVICE_STOP_PENDING, EXIT_DONE);
        SetEvent(g_stop);
        return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
        return NO_ERROR;
    default:
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

static VOID WINAPI ServiceMain(DWORD, LPSTR*)
{
    Teller   teller(Home() + "\\log\\velcorfeed.log");
    ExitCode code = EXIT_DONE;

    g_serviceStatus = RegisterServiceCtrlHandlerExA(g_serviceName, OnControl, NULL);
    Report(SERVICE_RUNNING, EXIT_DONE);  // a driver that is not there yet is waited for, that is no part of the start
    teller.Say("started as a service.");
    code = Run(teller);
    teller.Say("ended with exit code " + std::to_string(code) + ".");
    Report(SERVICE_STOPPED, static_cast<DWORD>(code));
}

static ExitCode RunService()
{
    SERVICE_TABLE_ENTRYA table[] = { { g_serviceName, ServiceMain }, { NULL, NULL } };

    if (!StartServiceCtrlDispatcherA(table)) {
        fprintf(stderr, "velcorfeed: --service is for the service manager (error %lu); leave it out to run by hand.\n",
                GetLastError());
        return EXIT_USAGE;
    }
    return EXIT_DONE;
}

static BOOL WINAPI OnConsole(DWORD)
{
    SetEvent(g_stop);
    return TRUE;
}

/* ---- The command line ---- */

static const char HELP_HEAD[] = R"help(
One feeder feeds the driver of a machine. It waits for the driver where that is not there, and feeds it again when it
was stopped and started. What was fed last stands in the driver until it is stopped.

--host: each whole disk of the host (no loop, ram, zram, partition, mapper, md, sr, fd device) is one mirror disk.
Bytes (sectors * 512), writes and write times (ms * 1000) are the host's own sums, passed on unchanged; a counter that
wraps at 2^32 runs on by 2^32 until the feeder is started anew, one that begins anew begins the sum anew. The rest is
modelled, step by step of a second: what is written joins the send queue; the link hands over up to 32 MiB, in
transfers of at most 64 KiB that take 300 us and 1 us for each 128 bytes transferred; 62 % of the bytes remain after
reduction; the other side acknowledges a step later (history buffer, unsynchronised bytes); transfer memory is the
send queue in blocks of 64 KiB; the request queue is the host's requests under way times the mean size of a write; the
longest write of a step is its mean, as the host does not tell it. Asynchronous disks count in the filter's record what
belongs to the queues, synchronous ones in the driver's. A disk that disappears gets state 0. Without any such disk a
built-in scenario is played.

)help";

static const char HELP_TAIL[] = R"help(
Journal: a header (time,disk,host,write_bytes,writes,write_us) and a line for each disk and step fed, written after the
driver took it; at most 8 MiB and one older generation (.1.journal). As a service what is said goes to
HOME\log\velcorfeed.log. HOME is the parent of the folder that velcorfeed.exe lies in.
exit: 0 played to its end, fed once, or stopped; 1 the system refused something; 2 wrong usage; 3 scenario or disks.map
unreadable or refused (file, line and reason are printed); 4 another feeder runs; 5 no administrator; 6 the host's disk
statistics cannot be read
)help";

int wmain(int argc, wchar_t** argv)
{
    CLI::App     app("Feeds the simulated mirror-disk driver: with the disks of this host, or from a script.",
                     "velcorfeed");
    CLI::Option* host =
        app.add_flag("--host", g_options.host, "Feed the real disk activity of this host, once a second");
    CLI::Option* scenario = app.add_option("--scenario", g_options.scenario, "Play this script (language below)");

    scenario->excludes(host);
    app.add_option("--seed", g_options.seed, "Random numbers of the script, until it sets its own")
        ->capture_default_str();
    app.add_option("--speed", g_options.speed, "Steps a second; 0: as fast as the driver takes them")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1000.0));
    app.add_flag("--once", g_options.once, "Feed one step and end");
    app.add_option("--journal", g_options.journal, "Journal file [HOME\\log\\velcorfeed.journal]");
    app.add_option("--map", g_options.map, "Which host disk is which mirror disk [HOME\\etc\\disks.map]");
    app.add_option("--mode", g_options.mode, "Mirror mode of the host's disks")
        ->capture_default_str()
        ->check(CLI::IsMember({ "async", "sync" }));
    app.add_option("--diskstats", g_options.diskstats, "The host's disk statistics")->capture_default_str();
    app.add_option("--sysblock", g_options.sysblock, "Folder with an entry for each whole device")
        ->capture_default_str();
    app.add_flag("--service", g_options.service,
                 "Run under the service manager, as service velcorfeed (without --scenario: --host)");
    app.footer(HELP_HEAD + ScenarioHelp() + HELP_TAIL);
    std::vector<std::string> arguments;  // last first, as the parser takes them
    for (int i = argc - 1; i > 0; i--) {
        arguments.push_back(Narrow(argv[i]));
    }
    try {
        app.parse(arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    if (!g_options.host && g_options.scenario.empty() && !g_options.service) {
        fprintf(stderr, "velcorfeed: --host or --scenario FILE? See --help.\n");
        return EXIT_USAGE;
    }
    g_stop = CreateEventA(NULL, TRUE, FALSE, NULL);
    if (g_stop == NULL) {
        return EXIT_FAILED;
    }
    if (g_options.service) {
        return RunService();
    }
    SetConsoleCtrlHandler(OnConsole, TRUE);
    Teller teller("");
    return Run(teller);
}
