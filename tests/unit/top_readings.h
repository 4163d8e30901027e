/*
 * Readings as the cases about top need them.
 */
#ifndef DKPF_TESTS_UNIT_TOP_READINGS_H
#define DKPF_TESTS_UNIT_TOP_READINGS_H

#include "perf/reading.h"

/* A fresh sample of 14:05:09, 0.4 s old, of an interval of 10 s, without rows. It is dead after 25 s. */
dkpf::Reading SampleOf();

/* The total with one value of each magnitude; disk 1 with a measured 0 everywhere and a ratio of 100; disk 7 idle, its
 * other values 7; disk 64 just come, its other values 64. */
dkpf::Reading ThreeDisks();

/* The total and disks 1 to 64; counter c of disk d is 1000 * d + c. */
dkpf::Reading AllDisks();

dkpf::Reading UnavailableBecause(const std::string& words);

dkpf::CounterNames NamesFromSystem();
dkpf::CounterNames NamesFromTable();

#endif
