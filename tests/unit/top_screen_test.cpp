/*
 * The screen of dkpfctl top: whole screens, its values, and what holds at every size.
 */
#include <gtest/gtest.h>
#include <cmath>
#include <random>

#include "top_screen.h"
#include "unit/top_readings.h"

using namespace dkpf;

namespace {

using Lines = std::vector<std::string>;

std::vector<ScreenLine> Screen(const Reading& reading, int width, int height,
                               const CounterNames& names = NamesFromSystem())
{
    TopScroll scroll;
    return TopScreen(reading, names, "NODE1", width, height, &scroll);
}

std::vector<ScreenLine> ScreenOf(const std::string& computer, const Reading& reading, const CounterNames& names,
                                 int width, int height)
{
    TopScroll scroll;
    return TopScreen(reading, names, computer, width, height, &scroll);
}

Lines Texts(const std::vector<ScreenLine>& screen)
{
    Lines lines;
    for (const ScreenLine& line : screen)
        lines.push_back(line.text);
    return lines;
}

bool Shows(const Lines& lines, const std::string& words)
{
    for (const std::string& line : lines)
        if (line.find(words) != std::string::npos)
            return true;
    return false;
}

const char SAMPLE[] = "sample 2026-03-07 14:05:09, 0.4 s old | polls missed 0 now, 3 since start";
const char INTERVAL[] = "collected every 10 s | values cover 10.0 s | ^ peaks cover 10.0 s";

// Each cell takes ten letters; the first column six.
const char TITLE1_80[] = "      "
                         "     write"
                         "     write"
                         "     write"
                         "     write"
                         "      send"
                         "  unsynced"
                         "  transfer";
const char TITLE2_80[] = "disk  "
                         "     per s"
                         "     bytes"
                         "       avg"
                         "     max ^"
                         "     queue"
                         "     bytes"
                         "     ratio";
const char TITLE1_200[] = "      "
                          "     write"
                          "     write"
                          "     write"
                          "     write"
                          "      send"
                          "      send"
                          "  unsynced"
                          "  unsynced"
                          "  transfer"
                          "  transfer"
                          "  transfer"
                          "   request"
                          "   request"
                          "   history"
                          "   history"
                          "    memory"
                          "    memory";
const char TITLE2_200[] = "disk  "
                          "     per s"
                          "     bytes"
                          "       avg"
                          "     max ^"
                          "     queue"
                          "    peak ^"
                          "     bytes"
                          "    peak ^"
                          "     ratio"
                          "       avg"
                          "     max ^"
                          "     queue"
                          "    peak ^"
                          "    buffer"
                          "    peak ^"
                          "    in use"
                          "    peak ^";

}  // namespace

// ---- Values

TEST(TopValues, BytesTakeTheirUnit)
{
    EXPECT_EQ(BytesText(0), "0 B");
    EXPECT_EQ(BytesText(1), "1 B");
    EXPECT_EQ(BytesText(1023), "1023 B");
    EXPECT_EQ(BytesText(1024), "1.00 KiB");
    EXPECT_EQ(BytesText(1536), "1.50 KiB");
    EXPECT_EQ(BytesText(10239), "10.0 KiB");  // 9.999: two decimals would need five letters
    EXPECT_EQ(BytesText(102400), "100 KiB");
    EXPECT_EQ(BytesText(1047552), "1023 KiB");  // 1023 * 1024
    EXPECT_EQ(BytesText(1048575), "1.00 MiB");  // 1023.999 KiB, rounded
    EXPECT_EQ(BytesText(1048576), "1.00 MiB");
    EXPECT_EQ(BytesText(1073741824), "1.00 GiB");
    EXPECT_EQ(BytesText(1099511627776), "1.00 TiB");
    EXPECT_EQ(BytesText(1125899906842624), "1.00 PiB");
    EXPECT_EQ(BytesText(18446744073709551615u), "16.0 EiB");
}

TEST(TopValues, TimesTakeTheirUnit)
{
    EXPECT_EQ(MicrosecondsText(0), "0 us");
    EXPECT_EQ(MicrosecondsText(999), "999 us");
    EXPECT_EQ(MicrosecondsText(1000), "1.00 ms");
    EXPECT_EQ(MicrosecondsText(12340), "12.3 ms");
    EXPECT_EQ(MicrosecondsText(999499), "999 ms");
    EXPECT_EQ(MicrosecondsText(999500), "1.00 s");
    EXPECT_EQ(MicrosecondsText(1000000), "1.00 s");
    EXPECT_EQ(MicrosecondsText(3600000000), "3600 s");
    EXPECT_EQ(MicrosecondsText(86399000000), "86399 s");
    EXPECT_EQ(MicrosecondsText(86400000000), ">= 1 day");
    EXPECT_EQ(MicrosecondsText(18446744073709551615u), ">= 1 day");
}

TEST(TopValues, PerCentIsNeverScaled)
{
    EXPECT_EQ(PercentText(0), "0 %");
    EXPECT_EQ(PercentText(100), "100 %");
    EXPECT_EQ(PercentText(9999), "9999 %");
    EXPECT_EQ(PercentText(10000), ">9999 %");
    EXPECT_EQ(PercentText(18446744073709551615u), ">9999 %");
}

// Read back by its own unit, each text is the value to within half of its last digit, and fits its column.
TEST(TopValues, ReadBackTheyAreTheValue)
{
    const std::vector<std::pair<std::string, long double>> byteUnits = {
        { "B", 1.0L },      { "KiB", 0x1p10L }, { "MiB", 0x1p20L }, { "GiB", 0x1p30L },
        { "TiB", 0x1p40L }, { "PiB", 0x1p50L }, { "EiB", 0x1p60L },
    };
    const std::vector<std::pair<std::string, long double>> timeUnits = { { "us", 1.0L },
                                                                         { "ms", 1e3L },
                                                                         { "s", 1e6L } };
    const auto check = [](const std::string& text, ULONGLONG value, const auto& units) {
        ASSERT_LE(text.size(), 8u) << text;
        const size_t space = text.find(' ');
        ASSERT_NE(space, std::string::npos) << text;
        const std::string number = text.substr(0, space);
        const size_t      point = number.find('.');
        const int         decimals = point == std::string::npos ? 0 : static_cast<int>(number.size() - point - 1);
        for (const auto& [name, factor] : units)
            if (text.substr(space + 1) == name) {
                const long double shown = std::stold(number) * factor;
                const long double step = std::pow(10.0L, -decimals) * factor;
                EXPECT_LE(std::fabs(shown - static_cast<long double>(value)), step * 0.5001L) << value << " " << text;
                return;
            }
        FAIL() << "no such unit: " << text;
    };
    std::mt19937_64 random(20260307);
    for (int i = 0; i < 20000; i++) {
        const ULONGLONG value = random() >> (random() % 64);
        check(BytesText(value), value, byteUnits);
        if (value < 86400000000)
            check(MicrosecondsText(value), value, timeUnits);
    }
}

// ---- Whole screens

TEST(TopScreen, ThreeDisksAt80Columns)
{
    const Lines expected = {
        "NODE1: Cluster Disk Resource Performance, 3 disks",
        SAMPLE,
        INTERVAL,
        "",
        TITLE1_80,
        TITLE2_80,
        "_Total"
        "  3.00 MiB"
        "  30.0 MiB"
        "   1.23 ms"
        "    2.50 s"
        "    1023 B"
        "  1.00 MiB"
        "      42 %",
        "NMP1  "
        "       0 B"
        "       0 B"
        "      0 us"
        "      0 us"
        "       0 B"
        "       0 B"
        "     100 %",
        "NMP7  "
        "       7 B"
        "       7 B"
        "      idle"
        "      7 us"
        "       7 B"
        "       7 B"
        "      idle",
        "NMP64 "
        "         -"
        "         -"
        "         -"
        "     64 us"
        "      64 B"
        "      64 B"
        "         -",
        "q or Ctrl+C ends",
    };
    EXPECT_EQ(Texts(Screen(ThreeDisks(), 80, 24)), expected);
}

TEST(TopScreen, ThreeDisksAt200ColumnsShowAllCounters)
{
    const Lines expected = {
        "NODE1: Cluster Disk Resource Performance, 3 disks",
        SAMPLE,
        INTERVAL,
        "",
        TITLE1_200,
        TITLE2_200,
        "_Total"
        "  3.00 MiB"
        "  30.0 MiB"
        "   1.23 ms"
        "    2.50 s"
        "    1023 B"
        "  1.00 KiB"
        "  1.00 MiB"
        "  10.0 GiB"
        "      42 %"
        "    999 us"
        "   1.00 ms"
        "       0 B"
        "     512 B"
        "   150 KiB"
        "  1.00 TiB"
        "  64.0 KiB"
        "  16.0 EiB",
        "NMP1  "
        "       0 B"
        "       0 B"
        "      0 us"
        "      0 us"
        "       0 B"
        "       0 B"
        "       0 B"
        "       0 B"
        "     100 %"
        "      0 us"
        "      0 us"
        "       0 B"
        "       0 B"
        "       0 B"
        "       0 B"
        "       0 B"
        "       0 B",
        "NMP7  "
        "       7 B"
        "       7 B"
        "      idle"
        "      7 us"
        "       7 B"
        "       7 B"
        "       7 B"
        "       7 B"
        "      idle"
        "      idle"
        "      7 us"
        "       7 B"
        "       7 B"
        "       7 B"
        "       7 B"
        "       7 B"
        "       7 B",
        "NMP64 "
        "         -"
        "         -"
        "         -"
        "     64 us"
        "      64 B"
        "      64 B"
        "      64 B"
        "      64 B"
        "         -"
        "         -"
        "     64 us"
        "      64 B"
        "      64 B"
        "      64 B"
        "      64 B"
        "      64 B"
        "      64 B",
        "q or Ctrl+C ends | names from the installed table",
    };
    EXPECT_EQ(Texts(Screen(ThreeDisks(), 200, 50, NamesFromTable())), expected);
}

// 24 lines less four of the head, two titles and the foot leave 17: the total, 15 disks, and the count of the rest.
TEST(TopScreen, SixtyFourDisksAt80By24)
{
    const Lines lines = Texts(Screen(AllDisks(), 80, 24));
    ASSERT_EQ(lines.size(), 24u);
    EXPECT_EQ(lines[0], "NODE1: Cluster Disk Resource Performance, 64 disks");
    EXPECT_EQ(lines[4], TITLE1_80);
    // Of the total's counter c the value is c.
    EXPECT_EQ(lines[6], "_Total"
                        "      12 B"
                        "      11 B"
                        "     15 us"
                        "     16 us"
                        "       7 B"
                        "       3 B"
                        "       0 %");
    // Of disk 1 it is 1000 + c: 1012 B, 1011 B, 1015 us, 1016 us, 1007 B, 1003 B, 1000 %.
    EXPECT_EQ(lines[7], "NMP1  "
                        "    1012 B"
                        "    1011 B"
                        "   1.01 ms"
                        "   1.02 ms"
                        "    1007 B"
                        "    1003 B"
                        "    1000 %");
    // Of disk 15 it is 15000 + c: 15012 / 1024 = 14.660, 15011 / 1024 = 14.659, 15007 / 1024 = 14.655, 15003 / 1024
    // = 14.651.
    EXPECT_EQ(lines[21], "NMP15 "
                         "  14.7 KiB"
                         "  14.7 KiB"
                         "   15.0 ms"
                         "   15.0 ms"
                         "  14.7 KiB"
                         "  14.7 KiB"
                         "   >9999 %");
    EXPECT_EQ(lines[22], "49 more disks");
    EXPECT_EQ(lines[23], "q or Ctrl+C ends | Up Down PgUp PgDn scroll");
    EXPECT_EQ(Texts(Screen(AllDisks(), 80, 24, NamesFromTable()))[23],
              "q or Ctrl+C ends | Up Down PgUp PgDn scroll | names from the installed table");
}

TEST(TopScreen, TheDisksScrollBelowTheTotal)
{
    const auto lines = [](size_t first, int height, size_t firstThen, size_t page) {
        TopScroll   scroll = { first, 0 };
        const Lines texts = Texts(TopScreen(AllDisks(), NamesFromSystem(), "NODE1", 80, height, &scroll));
        EXPECT_EQ(scroll.first, firstThen);
        EXPECT_EQ(scroll.page, page);
        return texts;
    };
    const Lines middle = lines(15, 24, 15, 15);
    EXPECT_EQ(middle[6].substr(0, 6), "_Total");
    EXPECT_EQ(middle[7].substr(0, 6), "NMP16 ");
    EXPECT_EQ(middle[21].substr(0, 6), "NMP30 ");
    EXPECT_EQ(middle[22], "15 disks above, 34 below");
    EXPECT_EQ(lines(1, 24, 1, 15)[22], "1 disk above, 48 below");

    const Lines last = lines(64, 24, 49, 15);
    EXPECT_EQ(last[7].substr(0, 6), "NMP50 ");
    EXPECT_EQ(last[21].substr(0, 6), "NMP64 ");
    EXPECT_EQ(last[22], "49 disks above");
    EXPECT_EQ(last[23], "q or Ctrl+C ends | Up Down PgUp PgDn scroll");

    // In a window that holds all of them nothing is left out.
    EXPECT_EQ(lines(49, 72, 0, 64)[7].substr(0, 6), "NMP1  ");
    EXPECT_EQ(lines(49, 72, 0, 64)[71], "q or Ctrl+C ends");
    // Two lines behind sample and titles: the total and the count.
    EXPECT_EQ(lines(0, 5, 0, 0)[4], "64 more disks");
}

TEST(TopScreen, SixtyFourDisksAt200ColumnsFillTheWindowWhateverItsHeight)
{
    const Lines cut = Texts(Screen(AllDisks(), 200, 50));
    ASSERT_EQ(cut.size(), 50u);
    EXPECT_EQ(cut[5], TITLE2_200);
    EXPECT_EQ(cut[47].substr(0, 6), "NMP41 ");
    EXPECT_EQ(cut[48], "23 more disks");

    const Lines whole = Texts(Screen(AllDisks(), 200, 72));  // 65 rows and 7 other lines
    ASSERT_EQ(whole.size(), 72u);
    // 64000 + c: 64012 / 1024 = 62.51, 64015 us = 64.0 ms.
    EXPECT_EQ(whole[70], "NMP64 "
                         "  62.5 KiB"
                         "  62.5 KiB"
                         "   64.0 ms"
                         "   64.0 ms"
                         "  62.5 KiB"
                         "  62.5 KiB"
                         "  62.5 KiB"
                         "  62.5 KiB"
                         "   >9999 %"
                         "   64.0 ms"
                         "   64.0 ms"
                         "  62.5 KiB"
                         "  62.5 KiB"
                         "  62.5 KiB"
                         "  62.5 KiB"
                         "  62.5 KiB"
                         "  62.5 KiB");
    EXPECT_EQ(Texts(Screen(AllDisks(), 200, 71))[69], "2 more disks");
}

// ---- Sizes

TEST(TopScreen, NoSizeBreaksIt)
{
    const std::string why =
        "there is no shared region, and here is a word that never ends: "
        "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
    Reading dead = AllDisks();
    dead.ageMs = 63000;
    dead.attachedAgain = true;
    for (const Reading& reading : { ThreeDisks(), AllDisks(), dead, UnavailableBecause(why), SampleOf() })
        for (int width = 1; width <= 210; width += width < 20 ? 1 : 7)
            for (int height = 1; height <= 90; height += height < 20 ? 1 : 7) {
                const Lines lines = Texts(Screen(reading, width, height, NamesFromTable()));
                ASSERT_GE(lines.size(), 1u);
                ASSERT_LE(lines.size(), static_cast<size_t>(height)) << width;
                for (const std::string& line : lines)
                    ASSERT_LE(line.size(), static_cast<size_t>(width)) << height << line;
            }
}

// One more column for each ten letters, in the order of importance; what is shown keeps its place.
TEST(TopScreen, ColumnsLeaveOneByOne)
{
    const auto titles = [](int width) { return Texts(Screen(ThreeDisks(), width, 24))[4]; };
    EXPECT_EQ(titles(79), TITLE1_80);
    EXPECT_EQ(titles(76), TITLE1_80);
    EXPECT_EQ(titles(75), std::string(TITLE1_80, 66));  // without the ratio
    EXPECT_EQ(titles(16), "           write");
    EXPECT_EQ(titles(15), "      ");
    EXPECT_EQ(titles(86), "      "
                          "     write"
                          "     write"
                          "     write"
                          "     write"
                          "      send"
                          "      send"
                          "  unsynced"
                          "  transfer");
    EXPECT_EQ(titles(176), TITLE1_200);
    EXPECT_EQ(titles(175), std::string(TITLE1_200, 166));
}

// A place in the order that two columns shared would make a line too long, or leave a column out at all widths.
TEST(TopScreen, EachTenLettersAddOneColumn)
{
    for (int columns = 0; columns <= 17; columns++)
        EXPECT_EQ(Texts(Screen(ThreeDisks(), 15 + 10 * columns, 24))[6].size(),
                  6u + 10u * static_cast<size_t>(columns));
}

TEST(TopScreen, TwelveLinesHaveTheWholeHead)
{
    const Lines roomy = Texts(Screen(AllDisks(), 80, 12));
    EXPECT_EQ(roomy[0], "NODE1: Cluster Disk Resource Performance, 64 disks");
    EXPECT_EQ(roomy[7].substr(0, 6), "NMP1  ");
    EXPECT_EQ(roomy[10], "61 more disks");
    EXPECT_EQ(roomy[11], "q or Ctrl+C ends | Up Down PgUp PgDn scroll");
    const Lines flat = Texts(Screen(AllDisks(), 80, 11));
    EXPECT_EQ(flat[0], SAMPLE);
    EXPECT_EQ(flat[10], "58 more disks");
}

TEST(TopScreen, HeadTitlesAndTotalStandOut)
{
    const auto screen = Screen(ThreeDisks(), 80, 24);
    for (const size_t bold : { 0u, 4u, 5u, 6u })
        EXPECT_EQ(screen[bold].look, Look::Bold) << bold;
    for (const size_t plain : { 1u, 2u, 3u, 7u, 8u, 9u, 10u })
        EXPECT_EQ(screen[plain].look, Look::Plain) << plain;
}

TEST(TopScreen, AFlatWindowKeepsSampleTitlesAndRows)
{
    const Lines lines = Texts(Screen(AllDisks(), 80, 8));
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_EQ(lines[0], SAMPLE);
    EXPECT_EQ(lines[1], TITLE1_80);
    EXPECT_EQ(lines[2], TITLE2_80);
    EXPECT_EQ(lines[3].substr(0, 6), "_Total");
    EXPECT_EQ(lines[6].substr(0, 6), "NMP3  ");
    EXPECT_EQ(lines[7], "61 more disks");
}

TEST(TopScreen, LettersAreCountedNotBytes)
{
    const auto lines = ScreenOf("\xC3\x84\xC3\x96\xC3\x9C", ThreeDisks(), NamesFromSystem(), 3, 24);
    EXPECT_EQ(lines[0].text, "\xC3\x84\xC3\x96\xC3\x9C");
    EXPECT_EQ(ScreenOf("\xC3\x84\xC3\x96\xC3\x9C", ThreeDisks(), NamesFromSystem(), 2, 24)[0].text, "\xC3\x84\xC3\x96");
}

// ---- States

TEST(TopScreen, AStaleSampleKeepsItsValuesWhileItsAgeCounts)
{
    Reading reading = ThreeDisks();
    reading.state = ReadingState::Stale;
    reading.ageMs = 9400;
    Lines       lines = Texts(Screen(reading, 80, 24));
    const Lines fresh = Texts(Screen(ThreeDisks(), 80, 24));
    EXPECT_EQ(lines[1], "sample 2026-03-07 14:05:09, 9.4 s old | polls missed 0 now, 3 since start");
    lines[1] = fresh[1];
    EXPECT_EQ(lines, fresh);
}

TEST(TopScreen, MissedPollsAreSaidAndValuesStay)
{
    Reading reading = ThreeDisks();
    reading.state = ReadingState::Stale;
    reading.ageMs = 25000;  // the limit itself is not too old
    reading.pollsMissed = 1;
    reading.words = "the agent does not collect";
    const auto screen = Screen(reading, 80, 24);
    EXPECT_EQ(screen[3].text, "no new sample for 25.0 s, 1 poll missed; the agent does not collect");
    EXPECT_EQ(screen[3].look, Look::Bold);
    EXPECT_EQ(screen[7].text, "NMP1  "
                              "       0 B"
                              "       0 B"
                              "      0 us"
                              "      0 us"
                              "       0 B"
                              "       0 B"
                              "     100 %");
}

TEST(TopScreen, SeveralMissedPollsAreCountedAndAFreshSampleHasNone)
{
    Reading reading = ThreeDisks();
    reading.pollsMissed = 2;
    EXPECT_EQ(StateOf(reading), TopState::Live);  // missed in front of it
    reading.state = ReadingState::Stale;
    reading.ageMs = 25000;
    EXPECT_EQ(StateText(reading), "no new sample for 25.0 s, 2 polls missed");
}

// A dead sample shows no value of any kind, whatever the reading calls it.
TEST(TopScreen, ADeadSampleShowsNoValue)
{
    for (ReadingState state : { ReadingState::Stale, ReadingState::Fresh }) {
        Reading reading = ThreeDisks();
        reading.state = state;
        reading.ageMs = 63999;
        const auto screen = Screen(reading, 80, 24);
        EXPECT_EQ(screen[3].text, "NO NEW SAMPLE for 63 s: values below are old");
        EXPECT_EQ(screen[3].look, Look::Loud);
        const std::string old = "       old";
        const char* const names[] = { "_Total", "NMP1  ", "NMP7  ", "NMP64 " };
        for (size_t i = 0; i < 4; i++)
            EXPECT_EQ(screen[6 + i].text, names[i] + old + old + old + old + old + old + old);
    }
    Reading justOver = ThreeDisks();
    justOver.ageMs = 25001;
    EXPECT_EQ(Screen(justOver, 80, 24)[3].text, "NO NEW SAMPLE for 25.0 s: values below are old");
    // Where there are none, nothing points at them.
    justOver.rows.clear();
    justOver.ageMs = 60000;
    EXPECT_EQ(Screen(justOver, 80, 24)[3].text, "NO NEW SAMPLE for 60 s");
}

TEST(TopScreen, NothingToReadSaysWhyAndShowsNoTable)
{
    const Reading reading =
        UnavailableBecause("there is no shared region: the disk agent does not run; start it with net start dkpfagent");
    const auto  screen = Screen(reading, 80, 24, CounterNames());
    const Lines expected = {
        "NODE1: performance of the mirror disks",
        "NO VALUES: there is no shared region: the disk agent does not run; start it with",
        "net start dkpfagent; trying again every second",
        "q or Ctrl+C ends",
    };
    EXPECT_EQ(Texts(screen), expected);
    EXPECT_EQ(screen[1].look, Look::Loud);
    EXPECT_EQ(screen[2].look, Look::Loud);
    EXPECT_TRUE(Shows(Texts(Screen(reading, 80, 3, CounterNames())), "NO VALUES: there is no"));
}

TEST(TopScreen, WithoutASampleItWaits)
{
    Reading reading = SampleOf();
    reading.state = ReadingState::Stale;
    reading.sampleTime = SYSTEMTIME{};
    reading.words = "the agent has just started";
    reading.ageMs = 0xFFFFFFFF;  // of nothing
    const Lines expected = {
        "NODE1: Cluster Disk Resource Performance",
        "no sample yet | polls missed 0 now, 3 since start",
        INTERVAL,
        "no values yet; the agent has just started",
        "q or Ctrl+C ends",
    };
    EXPECT_EQ(Texts(Screen(reading, 80, 24)), expected);
    reading.rows = ThreeDisks().rows;  // of no sample
    EXPECT_EQ(StateOf(reading), TopState::Waiting);
}

TEST(TopScreen, ARestartOfTheProducerIsSaid)
{
    Reading reading = ThreeDisks();
    reading.attachedAgain = true;
    EXPECT_EQ(Screen(reading, 80, 24)[3].text, "the disk agent was started again: attached to it anew");
}

TEST(TopScreen, OneDiskIsNoDisks)
{
    Reading reading = ThreeDisks();
    reading.rows.resize(2);
    EXPECT_EQ(Screen(reading, 80, 24)[0].text, "NODE1: Cluster Disk Resource Performance, 1 disk");
    reading.rows.resize(1);
    EXPECT_EQ(Screen(reading, 80, 24)[0].text, "NODE1: Cluster Disk Resource Performance, 0 disks");
}
