/*
 * The contract of tnwlog, ordinal by ordinal. Each case runs twice, unchanged: on the library and on its double. What
 * only the library can show (files mended after a power loss, several processes, rotation of trace logs) stands in
 * tests/unit/tnwlog_*_test.cpp.
 */
#include "contract/tnwlog_contract.h"

#include <gtest/gtest.h>
#include <string.h>

#include "contract/contract.h"
#include "support/message_strings.h"

namespace {

using Strings = std::vector<std::string>;
using Files = std::vector<Strings>;

const Documented DOCUMENTED = {
    { "log_init", { 0, 1, 2 } },
    { "log_term", { 0, 1 } },
    { "TnwLoadStringTable", { 0, 1, 2, 10 } },
    { "TnwFreeStringTable", { 0, 1 } },
    { "TnwFormatMessage", { 0, 1, 2, 6, 8 } },
    { "log_util_init", { 0, 1, 2, 9 } },
    { "log_util_term", { 0, 1 } },
    { "log_util_write", { 0, 1, 3, 4, 5, 7, 9 } },
    { "log_util_rotate", { 0, 1, 2, 3, 4, 5, 7, 9 } },
};

class TnwlogContract : public testing::TestWithParam<Side<TnwlogSide>> {
protected:
    /* Something that is no handle, to see that it is replaced by NULL. */
    template <class Handle> Handle Rubbish()
    {
        return reinterpret_cast<Handle>(this);
    }

    DWORD Init(const char* name, HTNWLOG* log, DWORD level = 7, DWORD size = 64, DWORD reserved = 0,
               const char* key = "key")
    {
        return Answered(DOCUMENTED, "log_init", side->log_init(name, log, level, size, reserved, key));
    }
    DWORD Term(HTNWLOG log)
    {
        return Answered(DOCUMENTED, "log_term", side->log_term(log));
    }
    HTNWLOG Open(const char* name, DWORD level = 7)
    {
        HTNWLOG log = nullptr;
        EXPECT_EQ(TNWLOG_OK, Init(name, &log, level));
        EXPECT_NE(nullptr, log);
        return log;
    }
    /* log_init answers "invalid argument" and sets the handle to NULL. */
    void ExpectInitRefused(const char* name, DWORD size = 64, DWORD reserved = 0, const char* key = "key")
    {
        HTNWLOG log = Rubbish<HTNWLOG>();
        EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Init(name, &log, 7, size, reserved, key));
        EXPECT_EQ(nullptr, log);
    }

    DWORD Load(const char* component, DWORD reserved, HTNWSTRINGS* table)
    {
        return Answered(DOCUMENTED, "TnwLoadStringTable", side->TnwLoadStringTable(component, reserved, table));
    }
    DWORD Free(HTNWSTRINGS table)
    {
        return Answered(DOCUMENTED, "TnwFreeStringTable", side->TnwFreeStringTable(table));
    }
    DWORD Format(HTNWSTRINGS table, DWORD number, char* text, DWORD size, DWORD reserved = 0)
    {
        return Answered(DOCUMENTED, "TnwFormatMessage", side->TnwFormatMessage(table, number, text, size, reserved));
    }
    HTNWSTRINGS Table()
    {
        HTNWSTRINGS table = nullptr;
        EXPECT_EQ(TNWLOG_OK, Load("diskperf", 0, &table));
        EXPECT_NE(nullptr, table);
        return table;
    }

    /* The arguments of log_util_init that cases change. */
    struct CsvArguments {
        const char* name = "nmp1";
        DWORD       flags = 3, reserved1 = 0, size = 64, generations = 3, maxLine = 100;
        const char* header = "a,b";
        DWORD       reserved2 = 0, reserved3 = 0;
    };
    DWORD CsvInit(const CsvArguments& a, HTNWCSV* file)
    {
        return Answered(DOCUMENTED, "log_util_init",
                        side->log_util_init(a.name, file, a.flags, a.reserved1, a.size, a.generations, a.maxLine,
                                            a.header, a.reserved2, a.reserved3));
    }
    HTNWCSV OpenCsv(const CsvArguments& a)
    {
        HTNWCSV file = nullptr;
        EXPECT_EQ(TNWLOG_OK, CsvInit(a, &file));
        EXPECT_NE(nullptr, file);
        return file;
    }
    HTNWCSV OpenCsv(const char* name = "nmp1", const char* header = "a,b")
    {
        CsvArguments arguments;
        arguments.name = name;
        arguments.header = header;
        return OpenCsv(arguments);
    }
    /* One that rotates at 1 KiB. */
    HTNWCSV OpenSmallCsv(DWORD maxLine)
    {
        CsvArguments arguments;
        arguments.size = 1;
        arguments.maxLine = maxLine;
        return OpenCsv(arguments);
    }
    void ExpectCsvInitRefused(const CsvArguments& a, DWORD status = TNWLOG_INVALID_ARGUMENT)
    {
        HTNWCSV file = Rubbish<HTNWCSV>();
        EXPECT_EQ(status, CsvInit(a, &file));
        EXPECT_EQ(nullptr, file);
        if (a.name != nullptr) {
            EXPECT_EQ(Files(), side->Csv("nmp1")) << "no file is made";
        }
    }
    DWORD CsvTerm(HTNWCSV file)
    {
        return Answered(DOCUMENTED, "log_util_term", side->log_util_term(file));
    }
    template <class... Arguments> DWORD CsvWrite(HTNWCSV file, const char* format, Arguments... arguments)
    {
        return Answered(DOCUMENTED, "log_util_write", side->log_util_write(file, format, arguments...));
    }
    DWORD Rotate(HTNWCSV file, DWORD maxLine, const char* header)
    {
        return Answered(DOCUMENTED, "log_util_rotate", side->log_util_rotate(file, maxLine, header));
    }

    std::unique_ptr<TnwlogSide> side = GetParam().make();
};

using Sides = Side<TnwlogSide>;
INSTANTIATE_TEST_SUITE_P(, TnwlogContract,
                         testing::Values(Sides{ "Real", RealTnwlog }, Sides{ "Double", DoubleOfTnwlog }),
                         NameOfSide<TnwlogSide>);

/* ---- 1 log_init, 2 log_term ---- */

TEST_P(TnwlogContract, InitRefusesANullName)
{
    ExpectInitRefused(nullptr);
}

TEST_P(TnwlogContract, InitRefusesAnEmptyName)
{
    ExpectInitRefused("");
}

TEST_P(TnwlogContract, InitRefusesNamesThatLeadElsewhere)
{
    for (const char* name :
         { "a\\b", "a/b", "a:b", "a*", "a?", "a\"b", "a<b", "a>b", "a|b", "a.b", "..", "a\tb", "a\x01" }) {
        SCOPED_TRACE(name);
        ExpectInitRefused(name);
    }
}

TEST_P(TnwlogContract, InitTakesANameOf64CharactersAndRefusesOneOf65)
{
    HTNWLOG log = Open(std::string(64, 'n').c_str());
    EXPECT_EQ(TNWLOG_OK, Term(log));
    ExpectInitRefused(std::string(65, 'n').c_str());
}

TEST_P(TnwlogContract, InitRefusesToHaveNoPlaceForTheHandle)
{
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Init("diskperf", nullptr));
}

TEST_P(TnwlogContract, InitTakesSizesFrom1To4194303)
{
    ExpectInitRefused("diskperf", 0);
    ExpectInitRefused("diskperf", 4194304);
    ExpectInitRefused("diskperf", 0xFFFFFFFF);
    for (DWORD size : { 1ul, 4194303ul }) {
        HTNWLOG log = nullptr;
        EXPECT_EQ(TNWLOG_OK, Init("diskperf", &log, 7, size));
        EXPECT_EQ(TNWLOG_OK, Term(log));
    }
}

TEST_P(TnwlogContract, InitRefusesReservedFlags)
{
    ExpectInitRefused("diskperf", 64, 1);
    ExpectInitRefused("diskperf", 64, 0x80000000);
}

TEST_P(TnwlogContract, InitRefusesANullOrEmptyKey)
{
    ExpectInitRefused("diskperf", 64, 0, nullptr);
    ExpectInitRefused("diskperf", 64, 0, "");
}

TEST_P(TnwlogContract, InitAloneWritesNothing)
{
    Open("diskperf");
    EXPECT_EQ(Strings(), side->Trace("diskperf"));
}

TEST_P(TnwlogContract, InitCopiesTheName)
{
    char    name[] = "diskperf";
    HTNWLOG log = Open(name);
    strcpy(name, "other");
    side->log_write(log, TNWLOG_ERROR, 0, "s", 1, "R", "t");
    EXPECT_EQ(Strings({ "0x0001 s(1) R:t" }), side->Trace("diskperf"));
    EXPECT_EQ(Strings(), side->Trace("other"));
}

TEST_P(TnwlogContract, OneNameOpenTwiceHasTwoHandlesWithLevelsOfTheirOwn)
{
    HTNWLOG one = Open("diskperf", TNWLOG_ERROR), two = Open("diskperf", TNWLOG_ERROR | TNWLOG_DETAIL);
    EXPECT_NE(one, two);
    side->log_write(one, TNWLOG_DETAIL, 0, "s", 1, "R", "not this");
    side->log_write(two, TNWLOG_DETAIL, 0, "s", 2, "R", "this");
    EXPECT_EQ(TNWLOG_OK, Term(two));
    side->log_write(one, TNWLOG_ERROR, 0, "s", 3, "R", "and this");
    EXPECT_EQ(Strings({ "0x0010 s(2) R:this", "0x0001 s(3) R:and this" }), side->Trace("diskperf"));
    EXPECT_EQ(TNWLOG_OK, Term(one));
}

TEST_P(TnwlogContract, TermRefusesNull)
{
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Term(nullptr));
}

TEST_P(TnwlogContract, TermRefusesAHandleThatIsClosed)
{
    HTNWLOG log = Open("diskperf");
    EXPECT_EQ(TNWLOG_OK, Term(log));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Term(log));
}

TEST_P(TnwlogContract, NoRoutineTakesAHandleOfAnotherKind)
{
    HTNWLOG     log = Open("diskperf");
    HTNWSTRINGS table = Table();
    HTNWCSV     file = OpenCsv();
    char        text[64];
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Term(reinterpret_cast<HTNWLOG>(table)));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Term(reinterpret_cast<HTNWLOG>(file)));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Free(reinterpret_cast<HTNWSTRINGS>(log)));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Format(reinterpret_cast<HTNWSTRINGS>(file), 0, text, sizeof text));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, CsvTerm(reinterpret_cast<HTNWCSV>(log)));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, CsvWrite(reinterpret_cast<HTNWCSV>(table), "x"));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Rotate(reinterpret_cast<HTNWCSV>(log), 100, "c"));
    EXPECT_EQ(TNWLOG_OK, Term(log));
    EXPECT_EQ(TNWLOG_OK, Free(table));
    EXPECT_EQ(TNWLOG_OK, CsvTerm(file));
}

/* ---- 3 log_write ---- */

TEST_P(TnwlogContract, ALineHasItsLevelPlaceAndText)
{
    HTNWLOG log = Open("diskperf", 0x3F);
    side->log_write(log, TNWLOG_ERROR, 0, "diskperf/src/diskperf_shm", 17, "_Routine", " %s failed.(%d)", "It", -5);
    side->log_write(log, TNWLOG_DUMP, 0, "unit", 0, "Other", "");
    EXPECT_EQ(Strings({ "0x0001 diskperf/src/diskperf_shm(17) _Routine: It failed.(-5)", "0x0020 unit(0) Other:" }),
              side->Trace("diskperf"));
}

TEST_P(TnwlogContract, FormatsAreThoseOfTheWindowsRunTime)
{
    HTNWLOG log = Open("diskperf");
    side->log_write(log, TNWLOG_ERROR, 0, "s", 1, "R", "%#p %I64d %S %ul %#x",
                    reinterpret_cast<void*>(static_cast<ULONG_PTR>(0x12)), -5ll, L"wide", 4711u, 0xB0000021u);
    EXPECT_EQ(Strings({ "0x0001 s(1) R:0X0000000000000012 -5 wide 4711l 0xb0000021" }), side->Trace("diskperf"));
}

TEST_P(TnwlogContract, TheLevelDecidesBitByBit)
{
    HTNWLOG log = Open("diskperf", TNWLOG_ERROR | TNWLOG_NOTICE);
    for (DWORD level : { TNWLOG_ERROR, TNWLOG_WARNING, TNWLOG_NOTICE, TNWLOG_ENTEREXIT, TNWLOG_DETAIL, TNWLOG_DUMP }) {
        side->log_write(log, level, 0, "s", 1, "R", "t");
    }
    EXPECT_EQ(Strings({ "0x0001 s(1) R:t", "0x0004 s(1) R:t" }), side->Trace("diskperf"));
}

TEST_P(TnwlogContract, TheEventLevelPassesALogOfNoLevel)
{
    HTNWLOG log = Open("diskperf", 0);
    side->log_write(log, 0x3F, 0, "s", 1, "R", "not this");
    side->log_write(log, TNWLOG_EVENT, 0, "s", 2, "R", "this");
    EXPECT_EQ(Strings({ "0x8000 s(2) R:this" }), side->Trace("diskperf"));
}

TEST_P(TnwlogContract, NoLogWritesNothing)
{
    Open("diskperf");
    side->log_write(nullptr, TNWLOG_ERROR, 0, "s", 1, "R", "%s", "t");
    EXPECT_EQ(Strings(), side->Trace("diskperf"));
}

TEST_P(TnwlogContract, AMissingPlaceOrFormatIsEmpty)
{
    HTNWLOG log = Open("diskperf");
    side->log_write(log, TNWLOG_ERROR, 0, nullptr, 1, nullptr, nullptr);
    EXPECT_EQ(Strings({ "0x0001 (1) :" }), side->Trace("diskperf"));
}

TEST_P(TnwlogContract, LineBreaksInATextBecomeBlanks)
{
    HTNWLOG log = Open("diskperf");
    side->log_write(log, TNWLOG_ERROR, 0, "s", 1, "R", "a%sb%cc", "\r\n", '\n');
    EXPECT_EQ(Strings({ "0x0001 s(1) R:a  b c" }), side->Trace("diskperf"));
}

TEST_P(TnwlogContract, ATextOfTheLongestCsvLineIsWhole)
{
    HTNWLOG           log = Open("diskperf");
    const std::string text(13440, 'x');
    side->log_write(log, TNWLOG_ERROR, 0, "s", 1, "R", "%s", text.c_str());
    EXPECT_EQ(Strings({ "0x0001 s(1) R:" + text }), side->Trace("diskperf"));
}

TEST_P(TnwlogContract, LogsOfTwoNamesDoNotMixAndKeepTheirOrder)
{
    HTNWLOG one = Open("diskperf"), two = Open("diskperf_trace");
    for (int i = 1; i <= 3; i++) {
        side->log_write(one, TNWLOG_ERROR, 0, "s", i, "R", "one");
        side->log_write(two, TNWLOG_ERROR, 0, "s", i, "R", "two");
    }
    EXPECT_EQ(Strings({ "0x0001 s(1) R:one", "0x0001 s(2) R:one", "0x0001 s(3) R:one" }), side->Trace("diskperf"));
    EXPECT_EQ(Strings({ "0x0001 s(1) R:two", "0x0001 s(2) R:two", "0x0001 s(3) R:two" }),
              side->Trace("diskperf_trace"));
}

TEST_P(TnwlogContract, ALineIsThereWhenItsLogIsClosed)
{
    HTNWLOG log = Open("diskperf");
    side->log_write(log, TNWLOG_ERROR, 0, "s", 1, "R", "t");
    EXPECT_EQ(TNWLOG_OK, Term(log));
    EXPECT_EQ(Strings({ "0x0001 s(1) R:t" }), side->Trace("diskperf"));
}

TEST_P(TnwlogContract, AnEventIsALineAndAnEntry)
{
    HTNWLOG log = Open("diskperf", 0);
    side->log_write(log, TNWLOG_EVENT, 0x800012C1, "s", 1, "R", "%s", "why");
    side->log_write(log, TNWLOG_EVENT, 0x400012C2, "s", 2, "R", "");
    EXPECT_EQ(Strings({ "0x8000 s(1) R:why <event 0x800012C1>", "0x8000 s(2) R: <event 0x400012C2>" }),
              side->Trace("diskperf"));
    EXPECT_EQ(std::vector<DWORD>({ 0x800012C1, 0x400012C2 }), side->Events());
}

TEST_P(TnwlogContract, OnlyTheEventLevelWithANumberIsAnEvent)
{
    HTNWLOG log = Open("diskperf");
    side->log_write(log, TNWLOG_EVENT, 0, "s", 1, "R", "no number");
    side->log_write(log, TNWLOG_ERROR, 0x800012C1, "s", 2, "R", "no event");
    side->log_write(nullptr, TNWLOG_EVENT, 0x800012C1, "s", 3, "R", "no log");
    EXPECT_EQ(Strings({ "0x8000 s(1) R:no number", "0x0001 s(2) R:no event" }), side->Trace("diskperf"));
    EXPECT_EQ(std::vector<DWORD>(), side->Events());
}

/* ---- 6 TnwLoadStringTable, 7 TnwFreeStringTable, 9 TnwFormatMessage ---- */

TEST_P(TnwlogContract, LoadRefusesANullOrEmptyComponent)
{
    for (const char* component : { static_cast<const char*>(nullptr), "" }) {
        HTNWSTRINGS table = Rubbish<HTNWSTRINGS>();
        EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Load(component, 0, &table));
        EXPECT_EQ(nullptr, table);
    }
}

TEST_P(TnwlogContract, LoadRefusesReservedFlags)
{
    HTNWSTRINGS table = Rubbish<HTNWSTRINGS>();
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Load("diskperf", 1, &table));
    EXPECT_EQ(nullptr, table);
}

TEST_P(TnwlogContract, LoadRefusesToHaveNoPlaceForTheHandle)
{
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Load("diskperf", 0, nullptr));
}

TEST_P(TnwlogContract, AnotherComponentHasNoTable)
{
    for (const char* component : { "other", "Diskperf", "diskperf2" }) {
        HTNWSTRINGS table = Rubbish<HTNWSTRINGS>();
        EXPECT_EQ(TNWLOG_NO_TABLE, Load(component, 0, &table)) << component;
        EXPECT_EQ(nullptr, table);
    }
}

TEST_P(TnwlogContract, TheStringsAreThoseOfTheProduct)
{
    HTNWSTRINGS table = Table();
    for (DWORD number = 0; number <= 40; number++) {
        const auto expected = MESSAGE_STRINGS.find(number);
        const bool there = expected != MESSAGE_STRINGS.end();
        EXPECT_EQ(number != 18 && number != 19, there) << number;
        char text[128] = "untouched";
        EXPECT_EQ(there ? TNWLOG_OK : TNWLOG_NO_SUCH_MESSAGE, Format(table, number, text, sizeof text)) << number;
        EXPECT_STREQ(there ? expected->second.c_str() : "untouched", text) << number;
    }
    EXPECT_EQ(TNWLOG_OK, Free(table));
}

TEST_P(TnwlogContract, ANumberBeyondTheStringsHasNoText)
{
    HTNWSTRINGS table = Table();
    char        text[16] = "untouched";
    for (DWORD number : { 41ul, 1000ul, 0xFFFFFFFFul }) {
        EXPECT_EQ(TNWLOG_NO_SUCH_MESSAGE, Format(table, number, text, sizeof text)) << number;
    }
    EXPECT_STREQ("untouched", text);
}

TEST_P(TnwlogContract, ATextThatDoesNotFitWithItsNulIsRefusedAndLeavesTheBuffer)
{
    HTNWSTRINGS table = Table();
    char        text[8] = "1234567";
    for (DWORD size : { 0ul, 1ul, 6ul }) {
        EXPECT_EQ(TNWLOG_TEXT_TOO_LONG, Format(table, 40, text, size)) << size;
        EXPECT_STREQ("1234567", text);
    }
    EXPECT_EQ(TNWLOG_OK, Format(table, 40, text, 7));
    EXPECT_STREQ("_Total", text);
}

TEST_P(TnwlogContract, FormatRefusesNullReservedAndNoTable)
{
    HTNWSTRINGS table = Table();
    char        text[64] = "untouched";
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Format(table, 0, nullptr, 64));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Format(table, 0, text, sizeof text, 1));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Format(nullptr, 0, text, sizeof text));
    EXPECT_EQ(TNWLOG_OK, Free(table));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Format(table, 0, text, sizeof text));
    EXPECT_STREQ("untouched", text);
}

TEST_P(TnwlogContract, FreeRefusesNullAndATableThatIsClosed)
{
    HTNWSTRINGS table = Table();
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Free(nullptr));
    EXPECT_EQ(TNWLOG_OK, Free(table));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Free(table));
}

TEST_P(TnwlogContract, ATableOutlivesAnotherOne)
{
    HTNWSTRINGS one = Table(), two = Table();
    char        text[64] = "";
    EXPECT_NE(one, two);
    EXPECT_EQ(TNWLOG_OK, Free(one));
    EXPECT_EQ(TNWLOG_OK, Format(two, 39, text, sizeof text));
    EXPECT_STREQ("NMP", text);
    EXPECT_EQ(TNWLOG_OK, Free(two));
}

/* ---- 19 log_util_init, 20 log_util_term ---- */

TEST_P(TnwlogContract, CsvInitRefusesNames)
{
    const std::string long65(65, 'n');
    for (const char* name : { static_cast<const char*>(nullptr), "", "a\\b", "a/b", "a:b", "a*", "a?", "a\"", "a<",
                              "a>", "a|", "nmp1.1", "a\nb", long65.c_str() }) {
        CsvArguments arguments;
        arguments.name = name;
        ExpectCsvInitRefused(arguments);
    }
}

TEST_P(TnwlogContract, CsvInitRefusesToHaveNoPlaceForTheHandle)
{
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, CsvInit(CsvArguments(), nullptr));
    EXPECT_EQ(Files(), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, CsvInitRefusesOtherFlagsThan3)
{
    for (DWORD flags : { 0ul, 1ul, 2ul, 4ul, 7ul }) {
        CsvArguments arguments;
        arguments.flags = flags;
        ExpectCsvInitRefused(arguments);
    }
}

TEST_P(TnwlogContract, CsvInitRefusesEachReservedArgument)
{
    for (DWORD CsvArguments::*reserved :
         { &CsvArguments::reserved1, &CsvArguments::reserved2, &CsvArguments::reserved3 }) {
        CsvArguments arguments;
        arguments.*reserved = 1;
        ExpectCsvInitRefused(arguments);
    }
}

TEST_P(TnwlogContract, CsvInitTakesNumbersWithinTheirBoundsAlone)
{
    struct Bound {
        DWORD CsvArguments::*field;
        DWORD                value;
        bool                 taken;
    };
    // First those that are refused: no file is there yet.
    const Bound bounds[] = {
        { &CsvArguments::size, 0, false },        { &CsvArguments::size, 4194304, false },
        { &CsvArguments::maxLine, 0, false },     { &CsvArguments::maxLine, 1, false },
        { &CsvArguments::maxLine, 65537, false }, { &CsvArguments::generations, 100, false },
        { &CsvArguments::size, 1, true },         { &CsvArguments::size, 4194303, true },
        { &CsvArguments::generations, 0, true },  { &CsvArguments::generations, 99, true },
        { &CsvArguments::maxLine, 2, true },      { &CsvArguments::maxLine, 65536, true },
    };
    for (const Bound& bound : bounds) {
        SCOPED_TRACE(bound.value);
        CsvArguments arguments;
        arguments.header = "h";
        arguments.*bound.field = bound.value;
        if (bound.taken) {
            EXPECT_EQ(TNWLOG_OK, CsvTerm(OpenCsv(arguments)));
        } else {
            ExpectCsvInitRefused(arguments);
        }
    }
}

TEST_P(TnwlogContract, CsvInitRefusesANullHeaderAndOneWithALineBreak)
{
    for (const char* header : { static_cast<const char*>(nullptr), "a\r\nb", "a\n", "\ra" }) {
        CsvArguments arguments;
        arguments.header = header;
        ExpectCsvInitRefused(arguments);
    }
}

TEST_P(TnwlogContract, CsvInitRefusesAHeaderLongerThanALineMayBe)
{
    CsvArguments arguments;
    arguments.maxLine = 10;
    arguments.header = "1234567890";
    ExpectCsvInitRefused(arguments, TNWLOG_LINE_TOO_LONG);
    arguments.header = "123456789";
    OpenCsv(arguments);
    EXPECT_EQ(Files({ { "123456789" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, CsvTermRefusesNullAndAHandleThatIsClosed)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, CsvTerm(nullptr));
    EXPECT_EQ(TNWLOG_OK, CsvTerm(file));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, CsvTerm(file));
}

TEST_P(TnwlogContract, TheSameHeaderContinuesAFile)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "1"));
    EXPECT_EQ(TNWLOG_OK, CsvTerm(file));
    file = OpenCsv();
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "2"));
    EXPECT_EQ(Files({ { "a,b", "1", "2" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, AnotherHeaderStartsAGenerationAtOpen)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "1"));
    EXPECT_EQ(TNWLOG_OK, CsvTerm(file));
    file = OpenCsv("nmp1", "a,b,c");
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "2"));
    EXPECT_EQ(Files({ { "a,b", "1" }, { "a,b,c", "2" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, TheHeaderIsCopiedAtOpenAndAtRotate)
{
    char    header[16] = "a,b";
    HTNWCSV file = OpenCsv("nmp1", header);
    strcpy(header, "x");
    EXPECT_EQ(TNWLOG_OK, CsvTerm(file));
    file = OpenCsv("nmp1", "a,b");
    strcpy(header, "c,d");
    EXPECT_EQ(TNWLOG_OK, Rotate(file, 100, header));
    strcpy(header, "y");
    EXPECT_EQ(TNWLOG_OK, CsvTerm(file));
    file = OpenCsv("nmp1", "c,d");
    EXPECT_EQ(Files({ { "a,b" }, { "c,d" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, AFileThatCannotBeOpenedCostsItsLinesAndNoOpen)
{
    side->HoldAlone("nmp1");
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_NOT_OPEN, CsvWrite(file, "lost"));
    EXPECT_EQ(TNWLOG_NOT_OPEN, CsvWrite(file, "lost too"));
    side->LetGo("nmp1");
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "1"));
    EXPECT_EQ(Files({ { "a,b", "1" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, AFileHasOneWriter)
{
    HTNWCSV one = OpenCsv(), two = OpenCsv();
    EXPECT_NE(one, two);
    EXPECT_EQ(TNWLOG_OK, CsvWrite(one, "1"));
    EXPECT_EQ(TNWLOG_NOT_OPEN, CsvWrite(two, "lost"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(one, "2"));
    EXPECT_EQ(TNWLOG_OK, CsvTerm(one));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(two, "3"));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, CsvWrite(one, "of a closed handle"));
    EXPECT_EQ(TNWLOG_OK, CsvTerm(two));
    EXPECT_EQ(Files({ { "a,b", "1", "2", "3" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, OneHundredAndThirtyFilesAreOpenAtOnce)
{
    std::vector<HTNWCSV> files;
    for (int i = 0; i < 130; i++) {
        files.push_back(OpenCsv(("nmp" + std::to_string(i)).c_str()));
    }
    for (int i = 0; i < 130; i++) {
        EXPECT_EQ(TNWLOG_OK, CsvWrite(files[static_cast<size_t>(i)], "%d", i));
    }
    EXPECT_EQ(Files({ { "a,b", "0" } }), side->Csv("nmp0"));
    EXPECT_EQ(Files({ { "a,b", "129" } }), side->Csv("nmp129"));
    for (HTNWCSV file : files) {
        EXPECT_EQ(TNWLOG_OK, CsvTerm(file));
    }
}

/* ---- 21 log_util_write ---- */

TEST_P(TnwlogContract, AFileBeginsWithItsHeaderAndHoldsItsLinesInOrder)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(Files({ { "a,b" } }), side->Csv("nmp1"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", "1,2"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%I64u,%S,100%%", 18446744073709551615ull, L"w"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", ""));
    EXPECT_EQ(Files({ { "a,b", "1,2", "18446744073709551615,w,100%", "" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, ALineMayFillItsMaximumWithTheNul)
{
    CsvArguments arguments;
    arguments.maxLine = 12;
    HTNWCSV file = OpenCsv(arguments);
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", "12345678901"));
    EXPECT_EQ(TNWLOG_LINE_TOO_LONG, CsvWrite(file, "%s", "123456789012"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", "x"));
    EXPECT_EQ(Files({ { "a,b", "12345678901", "x" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, TheLongestLineOfAllHas65535Bytes)
{
    CsvArguments      arguments;
    const std::string longest(65535, 'x');
    arguments.maxLine = 65536;
    arguments.size = 1024;
    HTNWCSV file = OpenCsv(arguments);
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", longest.c_str()));
    EXPECT_EQ(TNWLOG_LINE_TOO_LONG, CsvWrite(file, "%sx", longest.c_str()));
    EXPECT_EQ(TNWLOG_LINE_TOO_LONG, CsvWrite(file, "%s%s", longest.c_str(), longest.c_str()));
    EXPECT_EQ(Files({ { "a,b", longest } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, ALineThatCannotBeConvertedIsRefusedAsTooLong)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_LINE_TOO_LONG, CsvWrite(file, "1,%S,2", L"\u6771"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "1,%S,2", L"w"));
    EXPECT_EQ(Files({ { "a,b", "1,w,2" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, ALineWithALineBreakIsRefused)
{
    HTNWCSV file = OpenCsv();
    for (const char* line : { "1\r\n", "\n", "1\r2" }) {
        EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, CsvWrite(file, "%s", line));
    }
    EXPECT_EQ(Files({ { "a,b" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, CsvWriteRefusesNullAndAHandleThatIsClosed)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, CsvWrite(file, nullptr));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, CsvWrite(nullptr, "x"));
    EXPECT_EQ(TNWLOG_OK, CsvTerm(file));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, CsvWrite(file, "x"));
    EXPECT_EQ(Files({ { "a,b" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, ALineThatWouldPassTheBoundStartsAGeneration)
{
    HTNWCSV           file = OpenSmallCsv(1024);
    const std::string fills(1024 - 5 - 2, 'x');  // behind header and line ends the file has 1024 bytes
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", fills.c_str()));
    EXPECT_EQ(Files({ { "a,b", fills } }), side->Csv("nmp1")) << "to the byte";
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", ""));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%sx", fills.c_str()));
    EXPECT_EQ(Files({ { "a,b", fills }, { "a,b", "" }, { "a,b", fills + "x" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, ALineLongerThanTheBoundGetsAFileOfItsOwn)
{
    HTNWCSV           file = OpenSmallCsv(4096);
    const std::string large(3000, 'x');
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", large.c_str())) << "a file with its header alone is empty enough";
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "1"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", large.c_str()));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "2"));
    EXPECT_EQ(Files({ { "a,b", large }, { "a,b", "1" }, { "a,b", large }, { "a,b", "2" } }), side->Csv("nmp1"));
}

/* ---- 22 log_util_rotate ---- */

TEST_P(TnwlogContract, RotateStartsAGenerationWithTheNewHeader)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "1"));
    EXPECT_EQ(TNWLOG_OK, Rotate(file, 100, "c,d"));
    EXPECT_EQ(Files({ { "a,b", "1" }, { "c,d" } }), side->Csv("nmp1"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "2"));
    EXPECT_EQ(TNWLOG_OK, Rotate(file, 100, "c,d"));
    EXPECT_EQ(Files({ { "a,b", "1" }, { "c,d", "2" }, { "c,d" } }), side->Csv("nmp1")) << "the same header too";
}

TEST_P(TnwlogContract, RotateSetsTheMaximumOfTheLinesThatFollow)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_OK, Rotate(file, 5, "c,d"));
    EXPECT_EQ(TNWLOG_LINE_TOO_LONG, CsvWrite(file, "12345"));
    EXPECT_EQ(TNWLOG_OK, Rotate(file, 6, "c,d"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "12345"));
}

TEST_P(TnwlogContract, ARefusedRotateLeavesFileHeaderAndMaximum)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Rotate(file, 100, nullptr));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Rotate(file, 100, "c\nd"));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Rotate(file, 1, "c"));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Rotate(file, 65537, "c,d"));
    EXPECT_EQ(TNWLOG_LINE_TOO_LONG, Rotate(file, 3, "c,d"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", std::string(99, 'x').c_str()));
    EXPECT_EQ(Files({ { "a,b", std::string(99, 'x') } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, RotateRefusesNullAndAHandleThatIsClosed)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Rotate(nullptr, 100, "c,d"));
    EXPECT_EQ(TNWLOG_OK, CsvTerm(file));
    EXPECT_EQ(TNWLOG_INVALID_ARGUMENT, Rotate(file, 100, "c,d"));
    EXPECT_EQ(Files({ { "a,b" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, AFailedRotateIsMadeUpForByTheNextWriteThatCan)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "1"));
    side->HoldName("nmp1");
    EXPECT_EQ(TNWLOG_NOT_OPEN, Rotate(file, 100, "c,d"));
    side->LetGo("nmp1");
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "2"));
    EXPECT_EQ(Files({ { "a,b", "1" }, { "c,d", "2" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, LinesOfAFileThatCannotBeRotatedStandUnderTheNewHeaderOnce)
{
    HTNWCSV file = OpenCsv();
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "1"));
    side->HoldName("nmp1");
    EXPECT_EQ(TNWLOG_NOT_OPEN, Rotate(file, 6, "c,d"));
    EXPECT_EQ(TNWLOG_LINE_TOO_LONG, CsvWrite(file, "123456")) << "the new maximum holds";
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "2"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "3"));
    side->LetGo("nmp1");
    EXPECT_EQ(Files({ { "a,b", "1", "c,d", "2", "3" } }), side->Csv("nmp1"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "4"));
    EXPECT_EQ(Files({ { "a,b", "1", "c,d", "2", "3" }, { "c,d", "4" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, AFileThatWasMovedAwayIsStartedAnewAtItsBoundAndByRotate)
{
    HTNWCSV           file = OpenSmallCsv(1024);
    const std::string line(600, 'x');
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", line.c_str()));
    side->MoveAway("nmp1");
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "goes with it"));
    EXPECT_EQ(Files(), side->Csv("nmp1"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", line.c_str()));
    EXPECT_EQ(Files({ { "a,b", line } }), side->Csv("nmp1"));
    side->MoveAway("nmp1");
    EXPECT_EQ(TNWLOG_OK, Rotate(file, 100, "c,d"));
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "1"));
    EXPECT_EQ(Files({ { "c,d", "1" } }), side->Csv("nmp1"));
}

TEST_P(TnwlogContract, AFileBeyondItsBoundThatCannotBeRenamedStillTakesItsLines)
{
    HTNWCSV           file = OpenSmallCsv(1024);
    const std::string line(600, 'x');
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", line.c_str()));
    side->HoldName("nmp1");
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "%s", line.c_str()));
    side->LetGo("nmp1");
    EXPECT_EQ(TNWLOG_OK, CsvWrite(file, "2"));
    EXPECT_EQ(Files({ { "a,b", line, line }, { "a,b", "2" } }), side->Csv("nmp1"));
}

}  // namespace
