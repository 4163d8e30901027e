/*
 * dkpfctl query [--disk N|total|all] [--counter NAME] [--interval S] [--format table|csv|json]
 */
#include "commands.h"
#include "console_out.h"
#include "query_text.h"
#include "query_wait.h"
#include "reader.h"
#include "registration.h"
#include "system_info.h"
#include "text.h"

namespace dkpf {

/* The counters that were asked for, all without one. FALSE: there is none of that name. */
static bool ChosenCounters(const CounterNames& names, const std::string& asked, std::vector<size_t>* counters)
{
    size_t counter = 0;
    if (!asked.empty()) {
        if (!FindCounter(names, asked, &counter))
            return false;
        counters->push_back(counter);
        return true;
    }
    for (; counter < DKPF_COUNTER_NUM; counter++)
        counters->push_back(counter);
    return true;
}

static WaitPorts SystemWait()
{
    WaitPorts ports;
    ports.tick = [] { return GetTickCount(); };
    ports.wait = [](DWORD ms) { Sleep(ms); };
    ports.say = [](const std::string& words) { PrintError("dkpfctl: " + words + "\n"); };
    return ports;
}

static std::string Formatted(const QueryFacts& facts, const std::string& format)
{
    if (format == "csv")
        return QueryCsv(facts);
    return format == "json" ? QueryJson(facts) : QueryTable(facts);
}

ToolExit RunQuery(const QueryOptions& options)
{
    const Home home = HomeOfThisProgram();
    QueryFacts facts;
    // Before anything is waited for: the names are there without the agent.
    const ProviderValues provider = ReadProviderValues();
    facts.names = NamesOf(ReadNameSources(home), provider.firstCounter, provider.firstHelp);
    if (!ChosenCounters(facts.names, options.counter, &facts.counters)) {
        PrintError("dkpfctl: there is no counter " + options.counter + "; valid are, by name or number,\n" +
                   ValidCounters(facts.names));
        return TOOL_USAGE;
    }

    PerformanceReader reader(SystemReader(home));
    facts.reading = ReadInterval(reader, options.intervalS, SystemWait());
    if (facts.reading.state != ReadingState::Fresh) {
        PrintError("dkpfctl: " + facts.reading.words + "\n");
        return TOOL_WRONG;
    }
    const std::vector<ReadingRow> rows = ChosenRows(facts.reading.rows, options.disk);
    if (rows.empty()) {
        PrintError("dkpfctl: " + NotPresentText(facts.reading.rows, options.disk) + "\n");
        return TOOL_WRONG;
    }
    facts.reading.rows = rows;
    facts.names = reader.Names();
    facts.computer = ComputerName();
    facts.utcOffsetMinutes = LocalUtcOffsetMinutes();
    facts.nameTable = Narrow(home.Etc() + L"\\" + NAME_TABLE);
    if (options.format == "csv" && !facts.names.fromSystem)
        PrintError("dkpfctl: " + NameSourceText(facts) + "\n");
    Print(Formatted(facts, options.format));
    return TOOL_OK;
}

}  // namespace dkpf
