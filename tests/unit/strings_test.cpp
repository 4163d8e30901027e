/*
 * The debug switch and the message strings.
 */
#include "unit/lifecycle_fixture.h"

#include <cstring>

static const char WorkKey[] = "HKLM\\Software\\OSK\\TARNWELL\\work";

/* ---- Debug switch ---- */

class DebugFlag : public LinesTest {
protected:
    DWORD code = 1;
};

TEST_F(DebugFlag, IsReadFromTheRegistryAndLoggedTwice)
{
    os.SetValue(WorkKey, "dkpf_debug", 0x1F);
    EXPECT_TRUE(_DkpfReloadDebugFlag(&code));
    EXPECT_EQ(code, 0xB0000000u);
    EXPECT_EQ(g_dwDebugMode, 0x1Fu);
    EXPECT_EQ(journal.Lines({ "RegOpenKeyExA", "RegQueryValueExA", "RegCloseKey" }),
              Strings({
                  "RegOpenKeyExA(HKLM\\Software\\OSK\\TARNWELL\\work, 0, 0x20019) = 0",
                  "RegQueryValueExA(dkpf_debug, size 4) = 0",
                  "RegCloseKey(HKLM\\Software\\OSK\\TARNWELL\\work) = 0",
              }));
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 16 _DkpfReloadDebugFlag: ENTER",
                           "diskperf 4 _DkpfReloadDebugFlag:  DebugMode=<0x1f>",
                           "diskperf_conf 4 _DkpfReloadDebugFlag:  DebugMode=<0x1f>",
                           "diskperf 16 _DkpfReloadDebugFlag: EXIT<TRUE><0xb0000000>",
                       }));
    ExpectNothingLeft();
}

TEST_F(DebugFlag, CanBeSwitchedOffAgain)
{
    g_dwDebugMode = 3;
    os.SetValue(WorkKey, "dkpf_debug", 0);
    EXPECT_TRUE(_DkpfReloadDebugFlag(&code));
    EXPECT_EQ(g_dwDebugMode, 0u);
    EXPECT_TRUE(log.Has(" DebugMode=<0>"));
}

TEST_F(DebugFlag, AMissingValueIsADetailAndLeavesTheModeAtZero)
{
    EXPECT_FALSE(_DkpfReloadDebugFlag(&code));
    EXPECT_EQ(code, 0xB0000013u);
    EXPECT_EQ(g_dwDebugMode, 0u);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 16 _DkpfReloadDebugFlag: ENTER",
                           "diskperf 16 _DkpfReloadDebugFlag:  RegQueryValueEx(dkpf_debug) failed.<W32Err=2>",
                           "diskperf 16 _DkpfReloadDebugFlag: EXIT<FALSE><0xb0000013>",
                       }));
    ExpectNothingLeft();
}

TEST_F(DebugFlag, APathThatIsNotThereIsADetailToo)
{
    os.failValue["dkpf_debug"] = ERROR_PATH_NOT_FOUND;
    EXPECT_FALSE(_DkpfReloadDebugFlag(&code));
    EXPECT_EQ(code, 0xB0000013u);
    EXPECT_EQ(Lines()[1], "diskperf 16 _DkpfReloadDebugFlag:  RegQueryValueEx(dkpf_debug) failed.<W32Err=3>");
}

TEST_F(DebugFlag, AnyOtherFailureOfTheReadIsAnErrorAndKeepsTheMode)
{
    g_dwDebugMode = 5;
    os.SetValue(WorkKey, "dkpf_debug", 9);
    os.failValue["dkpf_debug"] = ERROR_ACCESS_DENIED;
    EXPECT_FALSE(_DkpfReloadDebugFlag(&code));
    EXPECT_EQ(code, 0xB0000013u);
    EXPECT_EQ(g_dwDebugMode, 5u);
    EXPECT_EQ(Lines(), Strings({
                           "diskperf 16 _DkpfReloadDebugFlag: ENTER",
                           "diskperf 1 _DkpfReloadDebugFlag:  RegQueryValueEx(dkpf_debug) failed.<W32Err=5>",
                           "diskperf 16 _DkpfReloadDebugFlag: EXIT<FALSE><0xb0000013>",
                       }));
    ExpectNothingLeft();
}

TEST_F(DebugFlag, AValueTooLongForFourBytesIsAnErrorAndKeepsTheMode)
{
    g_dwDebugMode = 5;
    os.failValue["dkpf_debug"] = ERROR_MORE_DATA;
    EXPECT_FALSE(_DkpfReloadDebugFlag(&code));
    EXPECT_EQ(g_dwDebugMode, 5u);
    EXPECT_EQ(Lines(ErrorLines),
              Strings({ "diskperf 1 _DkpfReloadDebugFlag:  RegQueryValueEx(dkpf_debug) failed.<W32Err=234>" }));
}

TEST_F(DebugFlag, AMissingKeyIsAnErrorAndNothingIsClosed)
{
    g_dwDebugMode = 5;
    os.RemoveKey(WorkKey);
    EXPECT_FALSE(_DkpfReloadDebugFlag(&code));
    EXPECT_EQ(code, 0xB0000012u);
    EXPECT_EQ(g_dwDebugMode, 5u);
    EXPECT_EQ(journal.Names(), Strings({ "RegOpenKeyExA" }));
    EXPECT_EQ(Lines(),
              Strings({
                  "diskperf 16 _DkpfReloadDebugFlag: ENTER",
                  "diskperf 1 _DkpfReloadDebugFlag:  RegOpenKeyEx(Software\\OSK\\TARNWELL\\work) failed.<W32Err=2>",
                  "diskperf 16 _DkpfReloadDebugFlag: EXIT<FALSE><0xb0000012>",
              }));
}

TEST_F(DebugFlag, AKeyThatMayNotBeOpenedIsReportedWithItsError)
{
    os.Fail("RegOpenKeyExA", 1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(_DkpfReloadDebugFlag(&code));
    EXPECT_EQ(code, 0xB0000012u);
    EXPECT_EQ(log.Errors(), Strings({ " RegOpenKeyEx(Software\\OSK\\TARNWELL\\work) failed.<W32Err=5>" }));
}

/* ---- Message strings ---- */

class LoadStrings : public LinesTest {
protected:
    void SetUp() override
    {
        LinesTest::SetUp();
        memset(g_szString, 'x', sizeof g_szString);
    }

    /* Entry i is the text, with nothing but zeros behind it. */
    static void ExpectEntry(size_t i, const std::string& text)
    {
        char expected[128] = {};
        memcpy(expected, text.c_str(), text.size());
        EXPECT_EQ(memcmp(g_szString[i], expected, sizeof expected), 0) << i << ": " << g_szString[i];
    }

    static std::string Loaded(int i, const std::string& text)
    {
        return "diskperf 32 _DkpfLoadStrings:   load string[" + std::to_string(i) + "] = [" + text + "]";
    }

    DWORD code = 1;
};

TEST_F(LoadStrings, LoadsFortyOneTextsOfTheComponentAndReleasesTheTable)
{
    log.strings.clear();
    for (DWORD i = 0; i <= 41; i++) {
        log.strings[i] = "text " + std::to_string(i);
    }
    EXPECT_TRUE(_DkpfLoadStrings(&code));
    EXPECT_EQ(code, 0xB0000000u);

    Strings calls = { "TnwLoadStringTable(\"diskperf\", 0) = 0" };
    Strings lines = { "diskperf 8 _DkpfLoadStrings: ENTER" };
    for (int i = 0; i <= 40; i++) {
        calls.push_back("TnwFormatMessage(" + std::to_string(i) + ", 128, 0) = 0");
        lines.push_back(Loaded(i, "text " + std::to_string(i)));
        ExpectEntry(static_cast<size_t>(i), "text " + std::to_string(i));
    }
    calls.push_back("TnwFreeStringTable() = 0");
    lines.push_back("diskperf 8 _DkpfLoadStrings: EXIT<TRUE><0xb0000000>");
    EXPECT_EQ(journal.Lines({ "TnwLoadStringTable", "TnwFormatMessage", "TnwFreeStringTable" }), calls);
    EXPECT_EQ(Lines(0xFFFFFFFF), lines);
    ExpectNothingLeft();
}

TEST_F(LoadStrings, TheTableIsFortyOneEntriesOf128Bytes)
{
    EXPECT_EQ(sizeof g_szString, 5248u);
    EXPECT_EQ(sizeof g_szString[0], 128u);
}

TEST_F(LoadStrings, ATextOf127CharactersFitsWithItsNul)
{
    log.strings[16] = std::string(127, 'w');
    EXPECT_TRUE(_DkpfLoadStrings(&code));
    ExpectEntry(16, std::string(127, 'w'));
    ExpectEntry(17, "Write Bytes Sum");
}

TEST_F(LoadStrings, AMissingTextLeavesAnEmptyTitleAndDoesNotFailTheLoad)
{
    log.strings.erase(0);
    log.strings.erase(40);
    EXPECT_TRUE(_DkpfLoadStrings(&code));
    EXPECT_EQ(code, 0xB0000000u);
    for (size_t i : { 0u, 18u, 19u, 40u }) {  // 18 and 19 are never there
        ExpectEntry(i, "");
        EXPECT_EQ(log.TextsOf("_DkpfLoadStrings", 32)[i], " TnwFormatMessage(" + std::to_string(i) + ") failed.(6)");
    }
    ExpectEntry(1, "Request Queue Bytes");
    ExpectEntry(39, "NMP");
    EXPECT_EQ(log.Errors(), Strings());
    ExpectNothingLeft();
}

TEST_F(LoadStrings, ATextTooLongLeavesAnEmptyTitleAndDoesNotFailTheLoad)
{
    log.strings[7] = std::string(128, 'w');
    EXPECT_TRUE(_DkpfLoadStrings(&code));
    ExpectEntry(7, "");
    ExpectEntry(8, "Send Queue Bytes Peak");
    EXPECT_EQ(log.TextsOf("_DkpfLoadStrings", 32)[7], " TnwFormatMessage(7) failed.(8)");
    EXPECT_EQ(log.Errors(), Strings());
}

TEST_F(LoadStrings, TextsAreTracedAsTheyStandPercentSignsIncluded)
{
    log.strings[0] = "100 %s %n %d";
    EXPECT_TRUE(_DkpfLoadStrings(&code));
    EXPECT_EQ(Lines(32)[0], Loaded(0, "100 %s %n %d"));
}

TEST_F(LoadStrings, ATableThatCannotBeOpenedEmptiesTheTextsAndReleasesNothing)
{
    log.Fail("TnwLoadStringTable", 1, TNWLOG_NO_TABLE);
    EXPECT_FALSE(_DkpfLoadStrings(&code));
    EXPECT_EQ(code, 0xB0000020u);
    EXPECT_EQ(journal.Names(), Strings({ "TnwLoadStringTable" }));
    EXPECT_EQ(Lines(0xFFFFFFFF), Strings({
                                     "diskperf 8 _DkpfLoadStrings: ENTER",
                                     "diskperf 1 _DkpfLoadStrings:  TnwLoadStringTable() failed.(10)",
                                     "diskperf 8 _DkpfLoadStrings: EXIT<FALSE><0xb0000020>",
                                 }));
    for (size_t i = 0; i <= 40; i++) {
        ExpectEntry(i, "");
    }
}

TEST_F(LoadStrings, AnyOtherStatusStopsThereAndReleasesTheTable)
{
    log.Fail("TnwFormatMessage", 3, 7);
    EXPECT_FALSE(_DkpfLoadStrings(&code));
    EXPECT_EQ(code, 0xB0000021u);
    EXPECT_EQ(journal.Names(), Strings({ "TnwLoadStringTable", "TnwFormatMessage", "TnwFormatMessage",
                                         "TnwFormatMessage", "TnwFreeStringTable" }));
    EXPECT_EQ(Lines(0xFFFFFFFF), Strings({
                                     "diskperf 8 _DkpfLoadStrings: ENTER",
                                     Loaded(0, "Transfer Ratio %"),
                                     Loaded(1, "Request Queue Bytes"),
                                     "diskperf 1 _DkpfLoadStrings:  TnwFormatMessage(2) failed.(7), break.",
                                     "diskperf 8 _DkpfLoadStrings: EXIT<FALSE><0xb0000021>",
                                 }));
    ExpectEntry(1, "Request Queue Bytes");
    for (size_t i = 2; i <= 40; i++) {
        ExpectEntry(i, "");
    }
    ExpectNothingLeft();
}

TEST_F(LoadStrings, OfTheSmallStatusesOnly6And8AreForgiven)
{
    for (DWORD status : { 1u, 2u, 3u, 4u, 5u, 7u, 9u, 10u, 0xFFFFFFFFu }) {
        journal.ResetPlans();
        log.ClearLines();
        log.Fail("TnwFormatMessage", 41, status);
        EXPECT_FALSE(_DkpfLoadStrings(&code)) << status;
        EXPECT_EQ(code, 0xB0000021u);
        EXPECT_EQ(log.Errors(), Strings({ " TnwFormatMessage(40) failed.(" + std::to_string(static_cast<int>(status)) +
                                          "), break." }));
    }
    ExpectNothingLeft();
}

/* The handle that the table was opened under, for the line of a failed release. */
static HTNWSTRINGS g_hSeenTable;
static DWORD       LoadTableSeen(const char* lpComponent, DWORD dwReserved, HTNWSTRINGS* phTable)
{
    DWORD status = LogDouble::current->LoadStrings(lpComponent, dwReserved, phTable);
    g_hSeenTable = *phTable;
    return status;
}

TEST_F(LoadStrings, AReleaseThatFailsNamesTheLoadWithHandleAndStatus)
{
    ASSERT_TRUE(hooks.Replace("tnwlog.dll", WORD{ 6 }, Address(LoadTableSeen)));
    log.Fail("TnwFreeStringTable", 1, 2);
    EXPECT_FALSE(_DkpfLoadStrings(&code));
    EXPECT_EQ(code, 0xB0000022u);
    EXPECT_EQ(Lines(ErrorLines), Strings({ "diskperf 1 _DkpfLoadStrings:  TnwLoadStringTable(" + Pointer(g_hSeenTable) +
                                           ") failed.(2)" }));
    EXPECT_EQ(Lines(8).back(), "diskperf 8 _DkpfLoadStrings: EXIT<FALSE><0xb0000022>");
    ExpectEntry(40, "_Total");
}

TEST_F(LoadStrings, StoppedEarlyAndNotReleasedAnswersTheRelease)
{
    log.Fail("TnwFormatMessage", 1, 7);
    log.Fail("TnwFreeStringTable", 1, 2);
    EXPECT_FALSE(_DkpfLoadStrings(&code));
    EXPECT_EQ(code, 0xB0000022u);
    EXPECT_EQ(log.Errors().size(), 2u);
    EXPECT_EQ(log.Errors()[0], " TnwFormatMessage(0) failed.(7), break.");
}

TEST_F(LoadStrings, LoadedAgainOldTextsDoNotShineThrough)
{
    EXPECT_TRUE(_DkpfLoadStrings(&code));
    log.strings = { { 3, "short" } };
    EXPECT_TRUE(_DkpfLoadStrings(&code));
    ExpectEntry(3, "short");
    ExpectEntry(4, "");
}
