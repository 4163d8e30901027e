/*
 * What a contract case needs of tnwxml: its seven routines and a hand on what the files give. One side is the library
 * of a home of its own, with the policy and configuration that are installed, the other the double.
 */
#ifndef TESTS_CONTRACT_TNWXML_CONTRACT_H
#define TESTS_CONTRACT_TNWXML_CONTRACT_H

#include <memory>
#include <string>

#include "tnwxml.h"

/* What is wrong with a file. */
enum class Wrong { PolicyMissing, PolicyCut, PolicyBad, ConfigurationMissing, ConfigurationCut, KeyTwice };

class TnwxmlSide {
public:
    virtual ~TnwxmlSide() = default;

    decltype(&::xmllib_init)          xmllib_init = nullptr;           // ordinal 1
    decltype(&::xmllib_term)          xmllib_term = nullptr;           // 2
    decltype(&::xmllib_load_policy)   xmllib_load_policy = nullptr;    // 4
    decltype(&::xmllib_unload_policy) xmllib_unload_policy = nullptr;  // 5
    decltype(&::xmllib_load_config)   xmllib_load_config = nullptr;    // 6
    decltype(&::xmllib_unload_config) xmllib_unload_config = nullptr;  // 7
    decltype(&::xmllib_get_value)     xmllib_get_value = nullptr;      // 13

    /* The configuration is to hold a number, something else, or nothing for one of the policy's keys. Before it is
     * loaded. */
    virtual void Give(const std::string& key, DWORD value) = 0;
    virtual void GiveNoNumber(const std::string& key) = 0;
    virtual void GiveOutOfRange(const std::string& key) = 0;
    virtual void LeaveOut(const std::string& key) = 0;
    /* Breaks a file for the next read of it alone. */
    virtual void Break(Wrong wrong) = 0;
    virtual void Mend() = 0;
};

std::unique_ptr<TnwxmlSide> RealTnwxml();
std::unique_ptr<TnwxmlSide> DoubleOfTnwxml();

#endif
