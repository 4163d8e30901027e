/*
 * The seed of a case that draws lots: printed, so that a failure can be repeated, and taken from DKPF_TEST_SEED where
 * that is set.
 */
#ifndef DKPF_TESTS_SEED_H
#define DKPF_TESTS_SEED_H

#include <stdlib.h>

#include <iostream>
#include <random>

inline unsigned TestSeed()
{
    const char*    given = getenv("DKPF_TEST_SEED");
    const unsigned seed =
        given != nullptr ? static_cast<unsigned>(strtoul(given, nullptr, 10)) : std::random_device()();
    std::cout << "seed " << seed << " (DKPF_TEST_SEED=" << seed << " repeats it)" << std::endl;
    return seed;
}

#endif
