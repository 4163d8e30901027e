/*
 * The product's message strings by number: what tnwmsg.dll holds and the double answers. Typed by hand. 18 and 19 do
 * not exist.
 */
#ifndef TESTS_SUPPORT_MESSAGE_STRINGS_H
#define TESTS_SUPPORT_MESSAGE_STRINGS_H

#include <windows.h>

#include <map>
#include <string>

inline const std::map<DWORD, std::string> MESSAGE_STRINGS = {
    { 0, "Transfer Ratio %" },
    { 1, "Request Queue Bytes" },
    { 2, "Request Queue Bytes Peak" },
    { 3, "Unsynchronized Bytes" },
    { 4, "Unsynchronized Bytes Peak" },
    { 5, "Avg. us/Transfer" },
    { 6, "Max. us/Transfer" },
    { 7, "Send Queue Bytes" },
    { 8, "Send Queue Bytes Peak" },
    { 9, "History Buffer Bytes" },
    { 10, "History Buffer Bytes Peak" },
    { 11, "Write Bytes" },
    { 12, "Write Bytes/sec" },
    { 13, "Transfer Memory Bytes" },
    { 14, "Transfer Memory Bytes Peak" },
    { 15, "Avg. us/Write" },
    { 16, "Max. us/Write" },
    { 17, "Write Bytes Sum" },
    { 20, "Transfer Bytes Before Reduction Sum" },
    { 21, "Transfer Bytes Sum" },
    { 22, "Write us Sum" },
    { 23, "Max. us/Write" },
    { 24, "Writes Sum" },
    { 25, "Send Queue Bytes" },
    { 26, "Send Queue Bytes Peak" },
    { 27, "History Buffer Bytes" },
    { 28, "History Buffer Bytes Peak" },
    { 29, "Request Queue Bytes" },
    { 30, "Request Queue Bytes Peak" },
    { 31, "Transfer Memory Bytes" },
    { 32, "Transfer Memory Bytes Peak" },
    { 33, "Unsynchronized Bytes" },
    { 34, "Unsynchronized Bytes Peak" },
    { 35, "Transfer us Sum" },
    { 36, "Max. us/Transfer" },
    { 37, "Transfers Sum" },
    { 38, "(PDH-CSV 4.0)" },
    { 39, "NMP" },
    { 40, "_Total" },
};

#endif
