/*
 * Names and help texts of our object, from the system's tables, or where it has none for us from the table that set-up
 * hands to the system's loader.
 */
#ifndef DKPF_TOOLS_PERF_NAMES_H
#define DKPF_TOOLS_PERF_NAMES_H

#include <windows.h>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "home.h"
#include "perf_query.h"
#include "reading.h"

namespace dkpf {

/* Texts by title index. */
using PerfTexts = std::map<DWORD, std::string>;

/* Pairs of number and text, each closed by a NUL, as "Counter 009" gives them. A pair without a number, or one that is
 * cut off, ends the table. */
PerfTexts ParsePerfTexts(const std::vector<BYTE>& multiText);

/* The loader's table: names and help texts by offset to the first title index. */
struct InstalledTexts {
    PerfTexts names;
    PerfTexts helps;
};

/**
 * @param ini      lines SYMBOL_009_NAME=text and SYMBOL_009_HELP=text in the section [text]
 * @param symbols  lines #define SYMBOL offset
 * A line that is none of these, and a symbol without an offset, are left out.
 */
InstalledTexts ParseInstalledTexts(std::string_view ini, std::string_view symbols);

/* Everything names can come from. */
struct NameSources {
    PerfTexts      counters;   // "Counter 009"
    PerfTexts      helps;      // "Help 009"
    InstalledTexts installed;  // HOME/etc
};

/* May take as long as a query. What cannot be read is empty. */
NameSources ReadNameSources(const Home& home, const PerfQueryFn& ask = SystemPerfQuery);

/* The system's names where it has all 18 of them, otherwise the installed ones. The scales are those of the product. */
CounterNames NamesOf(const NameSources& sources, DWORD firstCounter, DWORD firstHelp);

}  // namespace dkpf

#endif
