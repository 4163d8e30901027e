/*
 * What all contracts have in common: the two sides that each case runs on, and the statuses that are documented.
 */
#ifndef TESTS_CONTRACT_CONTRACT_H
#define TESTS_CONTRACT_CONTRACT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

/* The parameter of a contract's cases: the library itself or its double. */
template <class Library> struct Side {
    const char* name;
    std::unique_ptr<Library> (*make)();
};

template <class Library> void PrintTo(const Side<Library>& side, std::ostream* out)
{
    *out << side.name;
}

/* Cases are named TnwlogContract.InitRefusesANullName/Real. */
template <class Library> std::string NameOfSide(const testing::TestParamInfo<Side<Library>>& tested)
{
    return tested.param.name;
}

/* The statuses that each routine's header documents. */
using Documented = std::map<std::string, std::vector<unsigned long long>>;

/* Hands the status of a call through. Neither a library nor its double answers what a caller was not told of. */
template <class Status> Status Answered(const Documented& documented, const char* routine, Status status)
{
    const auto& statuses = documented.at(routine);
    EXPECT_TRUE(std::find(statuses.begin(), statuses.end(), status) != statuses.end())
        << routine << " answered " << status << ", which its header does not document";
    return status;
}

#endif
