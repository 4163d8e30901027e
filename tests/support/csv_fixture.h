/*
 * CsvTest: the CSV text routines with their message strings, their computer name and a line buffer that tells when it
 * is overrun.
 */
#ifndef TESTS_SUPPORT_CSV_FIXTURE_H
#define TESTS_SUPPORT_CSV_FIXTURE_H

#include <string>
#include <vector>

#include "support/fixture.h"

class CsvTest : public DiskperfTest {
protected:
    void SetUp() override
    {
        DiskperfTest::SetUp();
        for (const auto& [number, text] : log.strings) {
            SetString(number, text);
        }
        SetComputer("SERVER1");
        memset(buffer, '#', sizeof buffer);
    }
    void TearDown() override
    {
        for (size_t i = Size; i < sizeof buffer; i++) {
            ASSERT_EQ(buffer[i], '#') << "written behind the line buffer, byte " << i - Size;
        }
        DiskperfTest::TearDown();
    }

    static void SetString(DWORD number, const std::string& text)
    {
        ASSERT_LT(text.size(), sizeof g_szString[number]);
        memcpy(g_szString[number], text.c_str(), text.size() + 1);
    }
    static void SetComputer(const std::string& name)
    {
        ASSERT_LT(name.size(), sizeof g_szComputerName);
        memcpy(g_szComputerName, name.c_str(), name.size() + 1);
    }
    /* "level log routine: text" of every line. */
    Strings Traced() const
    {
        Strings texts;
        for (const TraceLine& line : log.lines) {
            texts.push_back(std::to_string(line.level) + " " + line.log + " " + line.routine + ": " + line.text);
        }
        return texts;
    }
    /* What a formatter that succeeded traces. */
    static Strings TracedBy(const std::string& routine, const std::string& text)
    {
        return { "8 diskperf_trace " + routine + ": ENTER : ", "32 diskperf_trace " + routine + ": " + text,
                 "8 diskperf_trace " + routine + ": EXIT<TRUE>" };
    }

    static constexpr size_t Size = 13440;
    char                    buffer[Size + 256];
    DWORD                   error = 0xDEAD;
};

/* A column mask, and the counters that it selects in the order of a line. */
struct Mask {
    DWORD            mask;
    std::vector<int> counters;
};

inline std::string MaskName(const testing::TestParamInfo<Mask>& tested)
{
    char text[16];
    snprintf(text, sizeof text, "0x%lX", tested.param.mask);
    return text;
}

/* Bits 11 and 12 stand for counters 12 and 11. */
inline std::vector<Mask> EachBitAlone()
{
    return { { 0x1, { 0 } },     { 0x2, { 1 } },     { 0x4, { 2 } },     { 0x8, { 3 } },     { 0x10, { 4 } },
             { 0x20, { 5 } },    { 0x40, { 6 } },    { 0x80, { 7 } },    { 0x100, { 8 } },   { 0x200, { 9 } },
             { 0x400, { 10 } },  { 0x800, { 12 } },  { 0x1000, { 11 } }, { 0x2000, { 13 } }, { 0x4000, { 14 } },
             { 0x8000, { 15 } }, { 0x10000, { 16 } } };
}

#endif
