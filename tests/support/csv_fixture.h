/*
 * CsvTest: the CSV text routines with their message strings, their computer name and a line buffer that tells when it
 * is overrun.
 */
#ifndef TESTS_SUPPORT_CSV_FIXTURE_H
#define TESTS_SUPPORT_CSV_FIXTURE_H

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

#endif
