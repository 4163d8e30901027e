/*
 * The feeder's journal: what the driver was fed and when, one line for each disk and second. Readers compare the
 * numbers of the collected samples with it to the byte.
 */
#ifndef VELCORFEED_JOURNAL_H
#define VELCORFEED_JOURNAL_H

#include <windows.h>
#include <string>

#include "source.h"

#define JOURNAL_HEADER "time,disk,host,write_bytes,writes,write_us"
const unsigned long long JOURNAL_LIMIT = 8ull << 20;  // bytes; one older generation is kept

/** Local time as in every log of the product: 2026/03/07 14:05:09.042 */
std::string TimeText(const SYSTEMTIME& time);

/** One line, without its end. time is that of the driver's acceptance. */
std::string JournalLine(const SYSTEMTIME& time, const FedDisk& disk);

#endif
