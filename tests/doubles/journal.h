/*
 * What the doubles have in common: one ordered record of all calls, and the plan of calls that are to fail.
 *
 * One Journal serves all doubles of a case, so that the order between a lock, a store and an unlock can be compared as
 * a whole. Any thread may record.
 */
#ifndef TESTS_DOUBLES_JOURNAL_H
#define TESTS_DOUBLES_JOURNAL_H

#include <windows.h>

#include <initializer_list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct Call {
    std::string name;    // "MapViewOfFile"
    std::string args;    // main arguments as text: names, sizes, time-outs; handles by their number
    std::string result;  // "TRUE", a handle, a status; with " err=5" where the call failed
};

/* A planned answer in place of the double's own. */
struct Planned {
    ULONGLONG value;  // what the call returns; calls that can only fail in one way ignore it
    DWORD     error;  // last error, registry status or errno, whichever the call reports by
    bool      fails;  // true: the call answers its own failing value with the error
};

class Journal {
public:
    /* From the n-th call of the name on (1 = the next one ever made), times calls fail with the error. */
    void Fail(const std::string& name, unsigned nth, DWORD error, unsigned times = 1);
    /* The n-th call of the name answers the value and sets the last error, whatever else would have happened. */
    void Return(const std::string& name, unsigned nth, ULONGLONG value, DWORD error = 0);
    /* Counts one call of the name and says what is planned for it. Doubles ask this first. */
    std::optional<Planned> Count(const std::string& name);
    /* Forgets the counts, so that the "n-th" of later plans starts at 1 again. Plans not yet used up are dropped. */
    void ResetPlans();

    void Record(std::string name, std::string args, std::string result);
    void Clear();

    /* Everything, in order. */
    std::vector<Call> All() const;
    /* The calls of one name. */
    std::vector<Call> Of(const std::string& name) const;
    unsigned          Number(const std::string& name) const;
    /* Names alone, in order, without trace lines and without the names in hide. */
    std::vector<std::string> Names(std::initializer_list<std::string> hide = {}) const;
    /* "name(args) = result" of the given names only, in order. */
    std::vector<std::string> Lines(std::initializer_list<std::string> names) const;

private:
    mutable std::recursive_mutex                       m_lock;
    std::vector<Call>                                  m_calls;
    std::map<std::string, unsigned>                    m_counts;
    std::map<std::string, std::map<unsigned, Planned>> m_plans;
};

/* A handle, pointer or status as the journal shows it. */
std::string Hex(ULONGLONG value);
/* Formats as msvcrt does, which is how the platform's libraries format. */
std::string FormatText(const char* format, va_list args);

#endif
