#include "bench/race.h"

#include <windows.h>

#include <stdio.h>

#include <stdexcept>

void Race::Candidate(const std::string& name, int pieces, std::function<void()> round)
{
    m_runners.push_back({ name, pieces, std::move(round), 0 });
}

size_t Race::Find(const std::string& name) const
{
    for (size_t i = 0; i < m_runners.size(); i++) {
        if (m_runners[i].name == name) {
            return i;
        }
    }
    throw std::logic_error("no candidate " + name);
}

void Race::Compare(const std::string& name, const std::string& peer, double goal)
{
    m_lines.push_back({ Find(name), Find(peer), goal });
}

bool Race::Run(int rounds)
{
    LARGE_INTEGER frequency = {};
    QueryPerformanceFrequency(&frequency);
    for (int round = 0; round < rounds; round++) {
        for (Runner& runner : m_runners) {
            LARGE_INTEGER begin = {};
            LARGE_INTEGER end = {};
            QueryPerformanceCounter(&begin);
            runner.round();
            QueryPerformanceCounter(&end);
            const double ns = static_cast<double>(end.QuadPart - begin.QuadPart) * 1e9 /
                              static_cast<double>(frequency.QuadPart) / runner.pieces;
            if (round == 0 || ns < runner.ns) {
                runner.ns = ns;
            }
        }
    }

    bool reached = true;
    printf("\n%s (fastest of %d rounds)\n  %-44s %12s  %-44s %12s %7s %6s\n", m_title.c_str(), rounds, "ours",
           "ns each", "peer or limit", "ns each", "ratio", "goal");
    for (const Line& line : m_lines) {
        const Runner& ours = m_runners[line.candidate];
        const Runner& peer = m_runners[line.peer];
        const double  ratio = ours.ns / peer.ns;
        char          goal[32] = "";
        if (line.goal != 0) {
            snprintf(goal, sizeof(goal), "%.1f%s", line.goal, ratio <= line.goal ? "" : " MISSED");
            reached = reached && ratio <= line.goal;
        }
        printf("  %-44s %12.1f  %-44s %12.1f %7.2f %6s\n", ours.name.c_str(), ours.ns, peer.name.c_str(), peer.ns,
               ratio, goal);
    }
    fflush(stdout);
    return reached;
}
