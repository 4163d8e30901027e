/*
 * What is wrong on this machine, in words, and what to do about it.
 */
#ifndef DKPF_TOOLS_STATUS_TROUBLES_H
#define DKPF_TOOLS_STATUS_TROUBLES_H

#include <string>
#include <vector>

#include "status_facts.h"

namespace dkpf {

struct Trouble {
    std::string code;  // for programs; never changes its meaning
    std::string text;  // one sentence without a period
    std::string cure;  // what to do
};

/* Causes stand before their effects. Empty: all is well. */
std::vector<Trouble> FindTroubles(const StatusFacts& facts);

}  // namespace dkpf

#endif
