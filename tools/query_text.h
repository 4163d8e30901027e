/*
 * What dkpfctl query prints.
 */
#ifndef DKPF_TOOLS_QUERY_TEXT_H
#define DKPF_TOOLS_QUERY_TEXT_H

#include <string>
#include <vector>

#include "reading.h"

namespace dkpf {

struct QueryFacts {
    std::string         computer;
    int                 utcOffsetMinutes = 0;
    Reading             reading;  // Fresh; its rows are those to print
    CounterNames        names;
    std::string         nameTable;  // path of the installed name table
    std::vector<size_t> counters;   // to print, in their order
};

/* Where the names come from; without a period. */
std::string NameSourceText(const QueryFacts& facts);

/* Counters below each other, as many disks side by side as fit 100 columns. */
std::string QueryTable(const QueryFacts& facts);

/* A header, and a line for each disk. A field without a value is empty. Has no room for where the names come from. */
std::string QueryCsv(const QueryFacts& facts);

/* One object; "format" rises when a field changes its meaning or goes. */
std::string QueryJson(const QueryFacts& facts);

/* The counter's title, or "counter 5" where no table has it. */
std::string CounterTitle(const CounterNames& names, size_t counter);

/**
 * @param text  a title, in any case, or a number
 * @return FALSE where there is no such counter
 */
bool FindCounter(const CounterNames& names, const std::string& text, size_t* counter);

/* One line for each valid name, with its number. */
std::string ValidCounters(const CounterNames& names);

/* "total", "all" or 1 to 64. */
bool IsDiskChoice(const std::string& text);

/* Leaves the rows that were asked for. Empty: the disk is not present. */
std::vector<ReadingRow> ChosenRows(const std::vector<ReadingRow>& rows, const std::string& disk);

/* Says so, and which disks are; without a period. */
std::string NotPresentText(const std::vector<ReadingRow>& rows, const std::string& disk);

}  // namespace dkpf

#endif
