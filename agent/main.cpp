/*
 * dkpfagent: the machine's producer of disk performance samples.
 */
#include <string_view>

#include "agent_process.h"
#include "console_out.h"

static constexpr char USAGE[] =
    "usage: dkpfagent [--console | --help | --version]\n"
    "The disk agent: collects the samples of the mirror disks, shares them and writes the CSV files. Without an option "
    "it\n"
    "runs as the service dkpfagent, started by the service manager; SERVICE_CONTROL_PARAMCHANGE reads the "
    "configuration\n"
    "again (dkpfctl config reload sends it).\n"
    "  --console   run in the foreground until Ctrl+C, Ctrl+Break or the window's close; needs an administrator\n"
    "  --version   print the version\n"
    "exit (as a service: the service-specific exit code):\n"
    "  0 stopped when told to             4 the configuration is refused: dkpfctl config check\n"
    "  1 the system refused something     5 the performance library could not be brought up\n"
    "  2 wrong usage                      6 no right to create global objects\n"
    "  3 another disk agent runs          7 did not come down within 310 s; the process was ended\n";

static bool Is(const wchar_t* argument, std::wstring_view option)
{
    return option == argument;
}

int wmain(int argc, wchar_t** argv)
{
    using namespace dkpf;
    if (argc == 1)
        return RunAsService();
    if (argc == 2 && Is(argv[1], L"--console"))
        return RunInForeground();
    if (argc == 2 && Is(argv[1], L"--version")) {
        Print("dkpfagent " DKPF_VERSION "\n");
        return AGENT_STOPPED;
    }
    if (argc == 2 && (Is(argv[1], L"--help") || Is(argv[1], L"-h"))) {
        Print(USAGE);
        return AGENT_STOPPED;
    }
    PrintError(USAGE);
    return AGENT_WRONG_USAGE;
}
