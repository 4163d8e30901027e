// What dkpfctl says of itself fits on a screen of 80 columns, and names its own options.
#include <gmock/gmock.h>

#include "support/program.h"
#include "support/test_home.h"

using testing::HasSubstr;
using testing::StartsWith;

TEST(Help, OfEveryCommandFitsIntoEightyColumns)
{
    TestHome           home;
    const std::wstring control = home.Install(L"dkpfctl.exe");
    home.Install(L"tnwxml.dll");
    for (const char* command :
         { "", "status", "doctor", "dump", "top", "config", "config get", "config set", "config check", "config reload",
           "config schema", "query", "logs", "install", "uninstall" }) {
        const Ran ran = RunToEnd(control, std::string(command) + " --help");
        EXPECT_EQ(0u, ran.code) << command;
        EXPECT_THAT(ran.output, HasSubstr("Usage: dkpfctl")) << command;
        for (size_t from = 0, end = 0; (end = ran.output.find("\r\n", from)) != std::string::npos; from = end + 2) {
            EXPECT_LE(end - from, 79u) << command << ": " << ran.output.substr(from, end - from);
        }
    }
}

TEST(Help, OfAWrongWordFollowsTheSentenceThatSaysWhatIsWrong)
{
    TestHome           home;
    const std::wstring control = home.Install(L"dkpfctl.exe");
    home.Install(L"tnwxml.dll");
    const struct {
        const char *arguments, *sentence;
    } wrongs[] = {
        { "logs --process 0", "dkpfctl: --process: no process number\r\n" },
        { "logs --process x", "dkpfctl: --process: no process number\r\n" },
        { "logs --process 4294967296", "dkpfctl: --process: no process number\r\n" },
        { "logs --lines few", "dkpfctl: --lines: neither a number of lines nor all\r\n" },
        { "logs --since 2026-03-08 --until 2026-03-07",
          "dkpfctl: --since lies behind --until: nothing is in between\r\n" },
        { "logs events trace", "dkpfctl: events are shown alone: dkpfctl logs events\r\n" },
        { "logs events --process 4", "dkpfctl: an event entry has neither routine nor process: " },
        { "logs events --routine x", "dkpfctl: an event entry has neither routine nor process: " },
        { "config", "dkpfctl: A subcommand is required\r\n" },
        { "config set collectinterval", "dkpfctl: no value is given for collectinterval\r\n" },
    };
    for (const auto& wrong : wrongs) {
        const Ran ran = RunToEnd(control, wrong.arguments);
        EXPECT_EQ(2u, ran.code) << wrong.arguments;
        EXPECT_THAT(ran.output, StartsWith(wrong.sentence)) << wrong.arguments;
    }
}
