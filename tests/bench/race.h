/*
 * Candidates measured in turns, in one run on one machine: each round runs every candidate once, and a candidate's
 * figure is its fastest round. Absolute times depend on the machine and what else it does; ratios between candidates
 * are the result.
 */
#ifndef TESTS_BENCH_RACE_H
#define TESTS_BENCH_RACE_H

#include <functional>
#include <string>
#include <vector>

class Race {
public:
    explicit Race(std::string title) : m_title(std::move(title))
    {
    }

    /* One round of the candidate does so many pieces of work; the figure is nanoseconds per piece. */
    void Candidate(const std::string& name, int pieces, std::function<void()> round);
    /* A line of the table: a candidate over a peer or limit, and the ratio wanted (0: none, for comparison only). */
    void Compare(const std::string& name, const std::string& peer, double goal);
    /* Runs all rounds and prints the table. FALSE where a goal was missed. */
    bool Run(int rounds);

private:
    struct Runner {
        std::string           name;
        int                   pieces;
        std::function<void()> round;
        double                ns;
    };
    struct Line {
        size_t candidate;
        size_t peer;
        double goal;
    };
    size_t Find(const std::string& name) const;

    std::string         m_title;
    std::vector<Runner> m_runners;
    std::vector<Line>   m_lines;
};

#endif
