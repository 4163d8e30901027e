/*
 * dkpfctl: the operator's tool. The command line is read here and nowhere else.
 */
#include <CLI/CLI.hpp>

#include <windows.h>
#include <charconv>
#include <functional>

#include "commands.h"
#include "console_out.h"
#include "logs_filter.h"
#include "query_text.h"
#include "text.h"

using namespace dkpf;

static constexpr char STATUS_EXIT[] =
    "exit: 0 all is well; 1 something is wrong, said first and with what to do; 2 wrong usage";
static constexpr char DOCTOR_EXIT[] =
    "exit: 0 all is well, notes apart; 1 something is wrong; 3 warnings only; 2 wrong usage";
static constexpr char DUMP_EXIT[] = "exit: 0 printed; 1 no region (is the disk agent running?); 2 wrong usage";
static constexpr char TOP_EXIT[] = "exit: 0 ended by the user or --seconds; 1 no values were read; 2 wrong usage";
static constexpr char CHECK_EXIT[] = "exit: 0 the file is accepted; 1 it is refused: file, line, column, key, value "
                                     "and reason are printed; 2 wrong usage";
static constexpr char RELOAD_EXIT[] = "exit: 0 the running agent has read the configuration; 1 the file is refused, no "
                                      "agent runs, or it did not answer; 2 "
                                      "wrong usage";
static constexpr char GET_EXIT[] = "exit: 0 printed; 1 the file is refused, or there is no such key; 2 wrong usage";
static constexpr char SET_EXIT[] = "A key is given as collectinterval, parameters/collectinterval or by its whole\n"
                                   "path, a value in decimal or behind 0x. All values go in, or none; comments and\n"
                                   "layout of the file stay. A second reload within one collect interval stops\n"
                                   "collecting until the next one: set what belongs together in one call.\n"
                                   "exit: 0 the file holds the values; 1 refused, and the file is as it was, or the\n"
                                   "agent did not reload; 2 wrong usage";
static constexpr char SCHEMA_EXIT[] = "exit: 0 printed; 1 the policy cannot be read; 2 wrong usage";
static constexpr char INSTALL_EXIT[] = "exit: 0 installed, or it was there already; 1 a step failed: the reason is "
                                       "said, the steps before are taken back; 2 wrong usage";
static constexpr char UNINSTALL_EXIT[] =
    "exit: 0 nothing of the product is left but what was to stay; 1 something could "
    "not be removed: what and why is said; 2 wrong usage";

static constexpr char QUERY_EXIT[] =
    "exit: 0 printed; 1 no data, said why (also: the disk is not present); 2 wrong usage";

static constexpr char LOGS_EXIT[] = "exit: 0 shown, also where nothing matches, or following was ended; 1 a log or a "
                                    "part of one could not be read, said which and why; 2 wrong usage";

/* Chosen by the command line; called once it is known to be right. */
struct Choice {
    StatusOptions             status;
    DoctorOptions             doctor;
    DumpOptions               dump;
    TopOptions                top;
    ConfigCheckOptions        check;
    ConfigGetOptions          get;
    ConfigSetOptions          set;
    ConfigSchemaOptions       schema;
    QueryOptions              query;
    LogsOptions               logs;
    InstallCommandOptions     install;
    UninstallCommandOptions   uninstall;
    std::function<ToolExit()> run;
};

static void DescribeStatus(CLI::App& app, Choice* choice)
{
    CLI::App* command =
        app.add_subcommand("status", "Services, agent, configuration, disks, samples, readers and warnings.");
    command->add_flag("--json", choice->status.json, "the same as one JSON object");
    command->footer(STATUS_EXIT);
    command->callback([choice] { choice->run = [choice] { return RunStatus(choice->status); }; });
}

static void DescribeDoctor(CLI::App& app, Choice* choice)
{
    CLI::App* command = app.add_subcommand("doctor", "Checks what goes wrong on real servers: one line for each check, "
                                                     "and with each finding its cure.");
    command->add_flag("--fix", choice->doctor.fix,
                      "switches the provider on again where the system has switched it off, once the shared region is "
                      "valid");
    command->add_flag("--json", choice->doctor.json, "the same as one JSON object");
    command->footer(DOCTOR_EXIT);
    command->callback([choice] { choice->run = [choice] { return RunDoctor(choice->doctor); }; });
}

static void DescribeDump(CLI::App& app, Choice* choice)
{
    CLI::App* command =
        app.add_subcommand("dump", "Prints this machine's shared region once. Takes no consumer row and "
                                   "leaves every reader's peaks as they are.");
    command->add_flag("--rows", choice->dump.rows, "the 33 consumer rows: owner, alive or gone");
    command->add_option("--disk", choice->dump.disk, "one mirror disk, 1 to 64")->check(CLI::Range(1, 64));
    command->footer(DUMP_EXIT);
    command->callback([choice] { choice->run = [choice] { return RunDump(choice->dump); }; });
}

static void DescribeTop(CLI::App& app, Choice* choice)
{
    static constexpr int secondsMax = 9999999;
    CLI::App*            command =
        app.add_subcommand("top", "The counters of all disks, read every second through the Performance Library. On a "
                                  "terminal a screen, until q or Ctrl+C (Up, Down, PgUp, PgDn, Home and End scroll the "
                                  "disks); otherwise lines, for each new sample.");
    command->add_option("--seconds", choice->top.seconds, "end by itself after so many seconds")
        ->check(CLI::Range(1, secondsMax));
    command->add_flag("--plain", choice->top.plain, "lines on a terminal too");
    command->footer(TOP_EXIT);
    command->callback([choice] { choice->run = [choice] { return RunTop(choice->top); }; });
}

static void DescribeConfig(CLI::App& app, Choice* choice)
{
    CLI::App* config = app.add_subcommand("config", "The configuration.");
    config->require_subcommand(1);

    CLI::App* check = config->add_subcommand("check", "Checks a configuration file as the agent would.");
    check->add_option("FILE", choice->check.file, "file to check; without it the installation's etc\\cluster.xml")
        ->type_name("");
    check->add_flag("--json", choice->check.json, "finding, unknown keys and values as one JSON object");
    check->footer(CHECK_EXIT);
    check->callback([choice] { choice->run = [choice] { return RunConfigCheck(choice->check); }; });

    CLI::App* reload = config->add_subcommand("reload", "Has the running agent read its configuration again, and says "
                                                        "what it took over and what waits for its restart.");
    reload->footer(RELOAD_EXIT);
    reload->callback([choice] { choice->run = [] { return RunConfigReload(); }; });

    CLI::App* get = config->add_subcommand("get", "Shows settings: in the file, in force, default.");
    get->add_option("KEY", choice->get.key, "one key; without it all")->type_name("");
    get->add_flag("--json", choice->get.json, "the same with range and help as one JSON object");
    get->footer(GET_EXIT);
    get->callback([choice] { choice->run = [choice] { return RunConfigGet(choice->get); }; });

    CLI::App* set = config->add_subcommand("set", "Puts values into the configuration file, checked and in one step.");
    set->add_option("KEY VALUE", choice->set.words, "keys, each with its value behind it")->required()->type_name("");
    set->add_flag("--reload", choice->set.reload, "then has the running agent read the file, once");
    set->footer(SET_EXIT);
    set->callback([choice] { choice->run = [choice] { return RunConfigSet(choice->set); }; });

    CLI::App* schema = config->add_subcommand("schema", "Lists the keys: type, range, default, unit and meaning.");
    schema->add_flag("--json", choice->schema.json, "the same as one JSON object");
    schema->footer(SCHEMA_EXIT);
    schema->callback([choice] { choice->run = [choice] { return RunConfigSchema(choice->schema); }; });
}

static void DescribeQuery(CLI::App& app, Choice* choice)
{
    QueryOptions& options = choice->query;
    CLI::App* command = app.add_subcommand("query", "Values of one interval, read through the Performance Library.");
    command->add_option("--disk", options.disk, "mirror disk 1 to 64, total, or all (default)")
        ->check([](const std::string& text) {
            return IsDiskChoice(text) ? std::string() : "neither a disk from 1 to 64, nor total, nor all";
        });
    command->add_option("--counter", options.counter, "one counter, by its name or its number, 0 to 16");
    command
        ->add_option("--interval", options.intervalS,
                     "one interval of so many seconds; without it the first one that the samples give")
        ->check(CLI::Range(1, 86400));
    command->add_option("--format", options.format, "table (default), csv or json")
        ->check(CLI::IsMember({ "table", "csv", "json" }));
    command->footer(QUERY_EXIT);
    command->callback([choice] { choice->run = [choice] { return RunQuery(choice->query); }; });
}

static std::string WordsUnless(bool right, const char* words)
{
    return right ? std::string() : words;
}

static std::string CheckMoment(const std::string& text)
{
    const LocalClock anyTime = [](ULONGLONG) { return SYSTEMTIME{ 2026, 1, 4, 1, 0, 0, 0, 0 }; };
    return WordsUnless(!ParseMoment(text, Edge::Since, anyTime).empty(),
                       "neither a local time (2026-03-07 14:05:09, from the right as short as 2026-03-07) nor a time "
                       "back from now (90s, 10m, 2h, 7d)");
}

static std::string CheckLines(const std::string& text)
{
    const bool number = !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == std::string::npos;
    return WordsUnless(number || text == "all", "neither a number of lines nor all");
}

static std::string CheckProcess(const std::string& text)
{
    DWORD      process = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), process);
    return WordsUnless(parsed.ec == std::errc() && parsed.ptr == text.data() + text.size() && process != 0,
                       "no process number");
}

static std::string CheckLevel(const std::string& text)
{
    DWORD mask = 0;
    return WordsUnless(ParseLevels(text, &mask),
                       "neither of error, warning, notice, entry, detail, dump, event nor a mask such as 0x3");
}

static std::string CheckLog(const std::string& text)
{
    return WordsUnless(FindLogSource(text) != nullptr, "none of diskperf, trace, conf, events");
}

static void DescribeLogs(CLI::App& app, Choice* choice)
{
    LogsOptions& options = choice->logs;
    CLI::App*    command =
        app.add_subcommand("logs", "Lines of the trace logs, or the event entries, over all generations, oldest first; "
                                   "several logs in the order of their times.");
    command->add_option("LOG", options.logs, "diskperf (default), trace, conf; or events")
        ->check(CheckLog)
        ->type_name("");
    command->add_flag("--all", options.all, "all three trace logs");
    command->add_option("--lines", options.lines, "the last so many that match, or all [50]")
        ->check(CheckLines)
        ->type_name("N");
    command
        ->add_option("--level", options.level,
                     "error, warning, notice, entry, detail, dump, event, several with commas between them, or a mask "
                     "such as 0x3; of an event entry's severity the first three")
        ->check(CheckLevel)
        ->type_name("LEVELS");
    command->add_option("--routine", options.routine, "a routine, or with * at the end all that begin so")
        ->type_name("NAME");
    command->add_option("--process", options.process, "lines of one process")->check(CheckProcess)->type_name("PID");
    command
        ->add_option("--since", options.since,
                     "not before: local time, 2026-03-07 14:05:09 or shorter, or back from now, 90s, 10m, 2h, 7d")
        ->check(CheckMoment)
        ->type_name("TIME");
    command->add_option("--until", options.until, "not after: the same, up to the end of what is left out")
        ->check(CheckMoment)
        ->type_name("TIME");
    command->add_option("--text", options.text, "lines with this text");
    command->add_flag("--follow", options.follow, "go on with what is written, until Ctrl+C");
    command->add_flag("--json", options.json, "one JSON object a line");
    command->footer(LOGS_EXIT);
    command->callback([choice] { choice->run = [choice] { return RunLogs(choice->logs); }; });
}

static void DescribeSetup(CLI::App& app, Choice* choice)
{
    CLI::App* install = app.add_subcommand("install", "Puts the product that this program belongs to in place and "
                                                      "registers it: files, services, performance provider.");
    install->add_option("--home", choice->install.home,
                        "folder to install into [%ProgramFiles%\\TARNWELL, wherever this program lies]");
    install->add_flag("--no-driver", choice->install.noDriver,
                      "a real mirror disk driver is there: the simulated driver and its feeder are not installed");
    install->footer(INSTALL_EXIT);
    install->callback([choice] { choice->run = [choice] { return RunInstall(choice->install); }; });

    CLI::App* uninstall =
        app.add_subcommand("uninstall", "Takes the product off this machine. Logs and CSV files stay.");
    uninstall->add_option("--home", choice->uninstall.home, "folder it was installed into [where it is registered]");
    uninstall->add_flag("--purge", choice->uninstall.purge,
                        "logs, CSV files and foreign files in the product's folders go too");
    uninstall->footer(UNINSTALL_EXIT);
    uninstall->callback([choice] { choice->run = [choice] { return RunUninstall(choice->uninstall); }; });
}

/* Of the subcommand that was named. */
static std::string Help(const CLI::App& app)
{
    static constexpr size_t descriptions = 30;  // the parser's column for what an option or subcommand is
    return WrappedLines(app.help(), descriptions);
}

int wmain(int argc, wchar_t** argv)
{
    CLI::App app{ "dkpfctl: looks at and directs the disk performance of this machine.", "dkpfctl" };
    Choice   choice;
    app.set_version_flag("--version", "dkpfctl " DKPF_VERSION);
    app.require_subcommand(1);
    app.allow_windows_style_options(false);  // a key path begins with '/'; the subcommands inherit this
    DescribeStatus(app, &choice);
    DescribeDoctor(app, &choice);
    DescribeDump(app, &choice);
    DescribeTop(app, &choice);
    DescribeConfig(app, &choice);
    DescribeQuery(app, &choice);
    DescribeLogs(app, &choice);
    DescribeSetup(app, &choice);

    std::vector<std::string> arguments;  // last first, as the parser takes them
    for (int i = argc - 1; i > 0; i--)
        arguments.push_back(Narrow(argv[i]));
    try {
        app.parse(arguments);
    } catch (const CLI::CallForHelp&) {
        Print(Help(app));
        return TOOL_OK;
    } catch (const CLI::CallForVersion& version) {
        Print(std::string(version.what()) + "\n");
        return TOOL_OK;
    } catch (const CLI::ParseError& error) {
        PrintError(std::string("dkpfctl: ") + error.what() + "\n" + Help(app));
        return TOOL_USAGE;
    }
    return choice.run();
}
