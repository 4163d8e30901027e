/*
 * Scenarios: a small language of one statement a line, and its player. ScenarioHelp() is the language's reference; the
 * settings' table in scenario.cpp is what both the parser and the help go by.
 */
#ifndef VELCORFEED_SCENARIO_H
#define VELCORFEED_SCENARIO_H

#include <array>
#include <bitset>
#include <random>
#include <string>
#include <vector>

#include "mirror_model.h"
#include "source.h"

/* A number as a script gives it: drawn anew from low..high at each step where they differ. */
struct Range {
    unsigned long long low;
    unsigned long long high;
};

/* What can be set for a disk; the order of the table in scenario.cpp, and of the draws within a step. */
enum Setting {
    SETTING_STATE,
    SETTING_MODE,
    SETTING_WRITES,
    SETTING_BYTES,
    SETTING_LATENCY,
    SETTING_LONGEST,
    SETTING_REQUEST,
    SETTING_LINK,
    SETTING_RATIO,
    SETTING_TRANSFER,
    SETTING_QUEUE,
    SETTING_SUM,
    SETTING_NUM
};

enum class Verb {
    Disk,          // setting of disks = value
    DriverStatus,  // value
    Refuse,        // value 0 or 1
    FilterError,   // value
    Seed,          // value
    Say,           // text
    Step,          // value: how many steps
    Repeat,        // value: how often, 0 for ever; partner: its end
    End            // partner: its repeat
};

struct Statement {
    Verb                         verb;
    unsigned                     line;  // of the script
    std::bitset<VELCOR_DISK_MAX> disks;
    Setting                      setting;
    Range                        value;
    size_t                       partner;
    std::string                  text;
};

typedef std::vector<Statement> Scenario;

/**
 * @param line    receives the number of the line that is refused.
 * @param reason  receives what is wrong with it.
 * @return false if a line is refused; scenario is then untouched.
 */
bool ParseScenario(const std::string& text, Scenario& scenario, unsigned& line, std::string& reason);

/** The language, for --help. */
std::string ScenarioHelp();

/** Plays a scenario: the same steps for the same scenario and seed, on every machine. */
class ScenarioSource : public Source {
public:
    /** @param seed  holds until the scenario sets one of its own. */
    ScenarioSource(Scenario scenario, unsigned long long seed);
    bool Next(Step& step) override;

private:
    struct Disk {
        std::array<Range, SETTING_NUM> setting;
        std::bitset<SETTING_NUM>       fresh;  // set since the last step, for settings that count once
        MirrorDisk                     mirror = {};
    };

    void               SetDisks(const Statement& statement);
    unsigned long long Draw(const Range& range);
    void               Play(Disk& disk);
    void               Fill(Step& step);

    Scenario                          m_scenario;
    size_t                            m_next = 0;
    unsigned long long                m_stepsLeft = 0;
    std::vector<unsigned long long>   m_rounds;  // of the repeats around m_next, innermost last; 0: for ever
    std::mt19937_64                   m_random;
    std::array<Disk, VELCOR_DISK_MAX> m_disks;
    VELCOR_FEED                       m_feed = {};
};

#endif
