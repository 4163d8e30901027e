/*
 * CsvTest: the CSV log with short titles, so that whole lines stay readable: message string i is "T<i>", the time
 * stamp's title "Time", a mirror disk "P<n>", the total "All", the computer "NODE1".
 */
#ifndef TESTS_SUPPORT_CSV_FILES_FIXTURE_H
#define TESTS_SUPPORT_CSV_FILES_FIXTURE_H

#include <stdio.h>
#include <string.h>

#include "support/fixture.h"
#include "support/trace_text.h"

class CsvTest : public DiskperfTest {
protected:
    void SetUp() override
    {
        DiskperfTest::SetUp();
        for (int i = 0; i < 38; i++) {
            snprintf(g_szString[i], DKPF_STRING_SIZE, "T%d", i);
        }
        strcpy(g_szString[38], "Time");
        strcpy(g_szString[39], "P");
        strcpy(g_szString[40], "All");
        strcpy(g_szComputerName, "NODE1");
    }

    /* ---- What the headers and names must be, built here a second time ---- */

    static std::string Column(int n, int title)
    {
        return ",\"\\\\NODE1\\Cluster Disk Resource Performance(" + (n == 0 ? "All" : "P" + std::to_string(n)) +
               ")\\T" + std::to_string(title) + "\"";
    }
    static std::string DisplayHeader(int n, DWORD mask)
    {
        static const int titles[17] = { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 11, 13, 14, 15, 16 };
        std::string      line = "\"Time\"";
        for (int bit = 0; bit < 17; bit++) {
            if ((mask >> bit & 1) != 0) {
                line += Column(n, titles[bit]);
            }
        }
        return line;
    }
    static std::string RawHeader(int n)
    {
        std::string line = "\"Time\"" + Column(n, 17);
        for (int title = 20; title <= 37; title++) {
            line += Column(n, title);
        }
        return line;
    }
    static std::string Name(int n)
    {
        return n == 0 ? "nmp_total" : "nmp" + std::to_string(n);
    }

    /* The calls as the journal shows them. */
    static std::string Opened(const std::string& name, const std::string& header, DWORD size = 1024,
                              DWORD generations = 3, DWORD status = 0)
    {
        return "log_util_init(\"" + name + "\", 3, 0, " + std::to_string(size) + ", " + std::to_string(generations) +
               ", 13440, \"" + header + "\", 0, 0) = " + std::to_string(status);
    }
    static std::string Rotated(const std::string& name, const std::string& header, DWORD status = 0)
    {
        return "log_util_rotate(\"" + name + "\", 13440, \"" + header + "\") = " + std::to_string(status);
    }

    Strings LinesOf(const std::string& routine, DWORD levels = 0xFFFFFFFF)
    {
        return TraceLinesOf(log, "pflog", routine, levels);
    }
};

#endif
