#include "status_text.h"

#include <fmt/format.h>

#include "text.h"

namespace dkpf {

SettingNote NoteOf(size_t index, DWORD inForce, DWORD inFile)
{
    if (inForce == inFile)
        return SettingNote::Same;
    return SettingAt(index).atOnce ? SettingNote::NeedsReload : SettingNote::NeedsRestart;
}

static const char* NoteText(SettingNote note)
{
    switch (note) {
    case SettingNote::NeedsReload:
        return "dkpfctl config reload takes it over";
    case SettingNote::NeedsRestart:
        return "waits for a restart of the agent";
    case SettingNote::Same:
        break;
    }
    return "";
}

static std::string TroublesText(const StatusFacts& facts, const std::vector<Trouble>& troubles)
{
    if (AllIsWell(facts, troubles))
        return "all is well\n";
    std::string text;
    if (troubles.empty())
        text = "WRONG: the doctor found what status does not look at\n"
               "       dkpfctl doctor names it, and what to do\n";
    for (const Trouble& trouble : troubles)
        text += "WRONG: " + trouble.text + "\n       " + trouble.cure + "\n";
    return text;
}

static std::string DoctorText(const std::optional<DoctorSummary>& doctor)
{
    if (!doctor)
        return "";
    if (doctor->findings == 0)
        return fmt::format("doctor: all {} checks are well\n", doctor->checks);
    return fmt::format("doctor: {} {}, see dkpfctl doctor\n", doctor->findings,
                       doctor->findings == 1 ? "finding" : "findings");
}

static std::string ServiceText(const ServiceFact& service)
{
    const ServiceInfo& info = service.info;
    std::string        words;
    if (info.error != ERROR_SUCCESS)
        words = "cannot be asked: " + SystemErrorText(info.error);
    else if (!info.installed)
        words = "not installed";
    else
        words = ServiceStateText(info.state);
    if (info.pid != 0)
        words += fmt::format(", process {}{}", info.pid, service.processGone ? " (gone)" : "");
    return fmt::format("  {:<27}{}\n", service.name, words);
}

static std::string AgentText(const StatusFacts& facts)
{
    const AgentState& state = facts.agent.state;
    if (facts.agent.file != StateFile::Read)
        return fmt::format("  {:<27}{}\n", "state",
                           facts.agent.file == StateFile::Missing ? "never run" : "unreadable");
    std::string text =
        fmt::format("  {:<27}{}{}\n", "state", PhaseText(state.phase),
                    facts.agentAlive || state.phase == AgentPhase::Stopped ? "" : " (its process is gone)");
    text += fmt::format("  {:<27}process {}, {}, as {}\n", "process", state.pid, facts.agentAlive ? "alive" : "gone",
                        state.console ? "console program" : "service");
    text += fmt::format("  {:<27}{}\n", "started", state.started);
    if (state.lastReload) {
        text += fmt::format("  {:<27}{}, {}{}\n", "last reload", state.lastReload->at,
                            ReloadResultText(state.lastReload->result),
                            state.lastReload->message.empty() ? "" : ": " + state.lastReload->message);
    }
    text += fmt::format("  {:<27}{}\n", "last failure",
                        state.lastFailure ? state.lastFailure->at + ", " + state.lastFailure->message : "none");
    return text;
}

static std::string ConfigurationText(const StatusFacts& facts)
{
    const SettingValues* inForce = InForce(facts);
    std::string          text = fmt::format("{:<29}{:<12}{}\n", "configuration", "in force", "in file");
    for (size_t i = 0; i < SETTING_NUM; i++) {
        std::string note;
        if (inForce != nullptr && facts.file.accepted)
            note = NoteText(NoteOf(i, (*inForce)[i], facts.file.values[i]));
        std::string line = fmt::format("  {:<27}{:<12}{:<12}{}", SettingAt(i).name,
                                       inForce != nullptr ? SettingText(i, (*inForce)[i]) : "-",
                                       facts.file.accepted ? SettingText(i, facts.file.values[i]) : "refused", note);
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

static std::string SampleWords(const StatusFacts& facts)
{
    if (facts.region != RegionStatus::Copied)
        return "unknown: " + facts.regionWords;
    if (facts.view.hasSample)
        return fmt::format("{} old, taken {}", AgeText(facts.view.ageMs), LocalTimeText(facts.view.localTime));
    const SettingValues* inForce = InForce(facts);
    return inForce != nullptr && (*inForce)[PERF_ENABLE] == 0 ? "none: collection is switched off" : "none yet";
}

static std::string FedText(const FedFact& fed)
{
    if (!fed.known)
        return "";
    return fmt::format("  {:<27}{}\n", "driver fed", fed.feeds == 0 ? "not yet" : AgeText(fed.ageMs) + " ago");
}

static std::string RegionText(const StatusFacts& facts)
{
    const bool  known = facts.region == RegionStatus::Copied;
    std::string text = fmt::format("  {:<27}{}\n", "last sample", SampleWords(facts));
    text += FedText(facts.device.fed);
    text += fmt::format("  {:<27}{}\n", "disks present", known ? DiskListText(facts.view.disks) : "unknown");
    text += fmt::format("  {:<27}{}\n", "readers",
                        known ? fmt::format("{} of 32 rows", facts.consumers.size()) : "unknown");
    for (const ConsumerFact& consumer : facts.consumers)
        text += fmt::format("    row {:<23}process {}, {}\n", consumer.row, consumer.pid, LifeText(consumer.life));
    return text;
}

static std::string EventsText(const StatusFacts& facts)
{
    std::string text = facts.events.entries.empty() ? "event entries since the agent's start: none\n"
                                                    : "event entries since the agent's start\n";
    for (const EventEntry& entry : facts.events.entries)
        text += fmt::format("  {} {} {:#010x} {}\n", entry.time, entry.severity, entry.id, entry.text);
    if (facts.events.unread != 0)
        text += fmt::format("  {} lines are no entries\n", facts.events.unread);
    return text;
}

std::string StatusText(const StatusFacts& facts, const std::vector<Trouble>& troubles)
{
    std::string text = TroublesText(facts, troubles) + DoctorText(facts.doctor);
    text += "\nservices\n" + ServiceText(facts.driver) + ServiceText(facts.feeder) + ServiceText(facts.agentService);
    text += "\nagent\n" + AgentText(facts);
    text += "\n" + ConfigurationText(facts);
    text += "\nsamples\n" + RegionText(facts);
    text += "\n" + EventsText(facts);
    text += "\nplaces\n";
    for (const auto& place : facts.places)
        text += fmt::format("  {:<27}{}\n", place.first, place.second);
    return text;
}

}  // namespace dkpf
