/*
 * What a contract case needs of tnwlog: its ten routines, a look at what they wrote, and a hand on the files. One side
 * is the library of a home of its own, bound by ordinal, the other the double.
 */
#ifndef TESTS_CONTRACT_TNWLOG_CONTRACT_H
#define TESTS_CONTRACT_TNWLOG_CONTRACT_H

#include <memory>
#include <string>
#include <vector>

#include "tnwlog.h"

class TnwlogSide {
public:
    virtual ~TnwlogSide() = default;

    decltype(&::log_init)           log_init = nullptr;            // ordinal 1
    decltype(&::log_term)           log_term = nullptr;            // 2
    decltype(&::log_write)          log_write = nullptr;           // 3
    decltype(&::TnwLoadStringTable) TnwLoadStringTable = nullptr;  // 6
    decltype(&::TnwFreeStringTable) TnwFreeStringTable = nullptr;  // 7
    decltype(&::TnwFormatMessage)   TnwFormatMessage = nullptr;    // 9
    decltype(&::log_util_init)      log_util_init = nullptr;       // 19
    decltype(&::log_util_term)      log_util_term = nullptr;       // 20
    decltype(&::log_util_write)     log_util_write = nullptr;      // 21
    decltype(&::log_util_rotate)    log_util_rotate = nullptr;     // 22

    /* Lines of a trace log in order, from the level on: "0x0001 source(17) Routine:text". */
    virtual std::vector<std::string> Trace(const char* log) = 0;
    /* Numbers of the event entries in order. */
    virtual std::vector<DWORD> Events() = 0;
    /* A CSV file's generations, oldest first, each with the lines it holds. */
    virtual std::vector<std::vector<std::string>> Csv(const char* file) = 0;

    /* A reader holds the file so that it cannot be renamed, or so that nobody can open it. */
    virtual void HoldName(const char* file) = 0;
    virtual void HoldAlone(const char* file) = 0;
    virtual void LetGo(const char* file) = 0;
    /* Somebody moves a CSV file out of the folder, from under its writer. */
    virtual void MoveAway(const char* file) = 0;
};

std::unique_ptr<TnwlogSide> RealTnwlog();
std::unique_ptr<TnwlogSide> DoubleOfTnwlog();

#endif
