// CSV log files: header first, whole lines, bounded files, and what a restart or a reader finds.
#include "tnwlog_fixture.h"
#include <algorithm>

namespace {

using testing::ElementsAre;

const char* const    HEADER = "\"(PDH-CSV 4.0)\",\"\\\\SERVER1\\a\"";
const char* const    HEADER_2 = "\"(PDH-CSV 4.0)\",\"\\\\SERVER1\\b\"";
const wchar_t* const CSV = L"perf\\nmp1.csv";
const DWORD          MAX_LINE = 13440;

DWORD g_shortWrite, g_writeError;

BOOL WINAPI WriteHook(HANDLE hFile, LPCVOID lpData, DWORD dwLength, LPDWORD lpdwWritten, LPOVERLAPPED lpAt)
{
    if (g_writeError != 0) {
        SetLastError(g_writeError);
        return FALSE;
    }
    return WriteFile(hFile, lpData, g_shortWrite != 0 && g_shortWrite < dwLength ? g_shortWrite : dwLength, lpdwWritten,
                     lpAt);
}

LPVOID WINAPI NoMemory(HANDLE, DWORD, SIZE_T)
{
    return nullptr;
}

BOOL WINAPI NoCut(HANDLE, FILE_INFO_BY_HANDLE_CLASS, LPVOID, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

class Csv : public TnwLogTest {
  protected:
    Csv()
    {
        g_shortWrite = g_writeError = 0;
    }
    void TearDown() override
    {
        if (hFile != nullptr) {
            EXPECT_EQ(api->log_util_term(hFile), TNWLOG_OK);
        }
    }

    DWORD Open(const char* lpHeader = HEADER, DWORD dwSize = 64, DWORD dwGenerations = 3)
    {
        return api->log_util_init("nmp1", &hFile, 3, 0, dwSize, dwGenerations, MAX_LINE, lpHeader, 0, 0);
    }
    void Reopen(const char* lpHeader = HEADER)
    {
        if (hFile != nullptr) {
            EXPECT_EQ(api->log_util_term(hFile), TNWLOG_OK);
        }
        Restart();
        EXPECT_EQ(Open(lpHeader), TNWLOG_OK);
    }
    DWORD Put(const std::string& line)
    {
        return api->log_util_write(hFile, "%s", line.c_str());
    }
    DWORD Rotate(const char* lpHeader)
    {
        return api->log_util_rotate(hFile, MAX_LINE, lpHeader);
    }
    std::vector<std::string> File(const wchar_t* lpFile = CSV)
    {
        return Lines(home.Read(lpFile));
    }

    HTNWCSV hFile = nullptr;
};

/* ---- Header and lines ---- */

TEST_F(Csv, AFileBeginsWithItsHeaderAndEveryLineEndsInCrLf)
{
    ASSERT_EQ(Open(), TNWLOG_OK);
    EXPECT_EQ(home.Read(CSV), std::string(HEADER) + "\r\n");
    EXPECT_EQ(Put("\"t\",\"1\""), TNWLOG_OK);
    EXPECT_EQ(home.Read(CSV), std::string(HEADER) + "\r\n\"t\",\"1\"\r\n");
}

TEST_F(Csv, ALineIsFormattedAsInTheWindowsRuntime)
{
    Open();
    EXPECT_EQ(api->log_util_write(hFile, "%I64u,%S", 18446744073709551615ULL, L"w"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "18446744073709551615,w"));
}

TEST_F(Csv, TheHeaderIsCopiedSinceTheCallerReusesItsBuffer)
{
    char szHeader[] = "title";

    Open(szHeader, 1, 3);
    strcpy(szHeader, "other");
    for (int n = 0; n < 3; n++) {
        EXPECT_EQ(Put(std::string(600, 'x')), TNWLOG_OK);
    }
    EXPECT_EQ(File()[0], "title");
    EXPECT_EQ(File(L"perf\\nmp1.1.csv")[0], "title");
}

TEST_F(Csv, TheLongestLineIsMaximumMinusTheNul)
{
    Open();
    EXPECT_EQ(Put(std::string(MAX_LINE - 1, 'x')), TNWLOG_OK);
    EXPECT_EQ(Put(std::string(MAX_LINE, 'y')), TNWLOG_LINE_TOO_LONG);
    EXPECT_EQ(Put("z"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, std::string(MAX_LINE - 1, 'x'), "z"));
}

TEST_F(Csv, TheLargestMaximumIsALineOf65535Bytes)
{
    ASSERT_EQ(api->log_util_init("nmp1", &hFile, 3, 0, 256, 3, 65536, "h", 0, 0), TNWLOG_OK);
    EXPECT_EQ(Put(std::string(65535, 'x')), TNWLOG_OK);
    EXPECT_EQ(Put(std::string(65536, 'y')), TNWLOG_LINE_TOO_LONG);
    EXPECT_EQ(File()[1].size(), 65535u);
}

TEST_F(Csv, ALineWithALineBreakIsRefused)
{
    Open();
    EXPECT_EQ(Put("one\ntwo"), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(Put("one\r"), TNWLOG_INVALID_ARGUMENT);
    EXPECT_THAT(File(), ElementsAre(HEADER));
}

TEST_F(Csv, AnEmptyLineIsALine)
{
    Open();
    EXPECT_EQ(Put(""), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, ""));
}

/* ---- Size and generations ---- */

TEST_F(Csv, ALineThatWouldPassTheBoundStartsAFileWithTheHeader)
{
    const std::string line(400, 'x');  // header 30 + 2, lines 402: two fit into 1024, three do not

    Open(HEADER, 1, 3);
    for (int n = 0; n < 3; n++) {
        EXPECT_EQ(Put(line), TNWLOG_OK);
    }
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, line, line));
    EXPECT_THAT(File(), ElementsAre(HEADER, line));
}

TEST_F(Csv, AFileMayReachItsBoundToTheByte)
{
    const size_t cHeader = strlen(HEADER) + 2;

    Open(HEADER, 1, 3);
    EXPECT_EQ(Put("short"), TNWLOG_OK);
    EXPECT_EQ(Put(std::string(1024 - cHeader - 7 - 2, 'x')), TNWLOG_OK);
    EXPECT_EQ(home.Read(CSV).size(), 1024u);
    EXPECT_EQ(Put(""), TNWLOG_OK);
    EXPECT_TRUE(home.Exists(L"perf\\nmp1.1.csv"));
}

TEST_F(Csv, ALineLongerThanTheBoundGetsAFileOfItsOwn)
{
    Open(HEADER, 1, 3);
    EXPECT_EQ(Put(std::string(3000, 'a')), TNWLOG_OK);
    EXPECT_EQ(Put(std::string(3000, 'b')), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, std::string(3000, 'a')));
    EXPECT_THAT(File(), ElementsAre(HEADER, std::string(3000, 'b')));
}

TEST_F(Csv, TheNumberOfOlderGenerationsIsKept)
{
    Open(HEADER, 1, 2);
    for (const char* lpMark : { "a", "b", "c", "d" }) {
        EXPECT_EQ(Put(lpMark + std::string(900, '.')), TNWLOG_OK);
    }
    EXPECT_EQ(home.List(L"perf"), (Names{ L"nmp1.1.csv", L"nmp1.2.csv", L"nmp1.csv" }));
    EXPECT_EQ(File(L"perf\\nmp1.2.csv")[1][0], 'b');
    EXPECT_EQ(File(L"perf\\nmp1.1.csv")[1][0], 'c');
    EXPECT_EQ(File()[1][0], 'd');
}

TEST_F(Csv, WithNoGenerationKeptTheFullFileGoes)
{
    Open(HEADER, 1, 0);
    Put(std::string(900, 'a'));
    Put(std::string(900, 'b'));
    EXPECT_EQ(home.List(L"perf"), Names{ L"nmp1.csv" });
    EXPECT_THAT(File(), ElementsAre(HEADER, std::string(900, 'b')));
}

TEST_F(Csv, GenerationsBeyondALoweredNumberGoWithTheNextRotation)
{
    for (const wchar_t* lpName : { L"perf\\nmp1.1.csv", L"perf\\nmp1.2.csv", L"perf\\nmp1.7.csv" }) {
        home.Write(lpName, "x\r\n");
    }
    Open(HEADER, 64, 2);
    EXPECT_EQ(Rotate(HEADER), TNWLOG_OK);
    EXPECT_EQ(home.List(L"perf"), (Names{ L"nmp1.1.csv", L"nmp1.2.csv", L"nmp1.csv" }));
}

TEST_F(Csv, FilesOfOtherDisksAreNoGenerations)
{
    for (const wchar_t* lpName :
         { L"perf\\nmp1_raw.csv", L"perf\\nmp10.csv", L"perf\\nmp1.9.txt", L"perf\\nmp1.09.csv" }) {
        home.Write(lpName, "x\r\n");
    }
    Open(HEADER, 64, 0);
    EXPECT_EQ(Rotate(HEADER), TNWLOG_OK);
    EXPECT_EQ(home.List(L"perf").size(), 5u);
}

/* ---- Restart ---- */

TEST_F(Csv, AfterARestartTheSameHeaderContinuesTheFile)
{
    Open();
    Put("1");
    Reopen();
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "1", "2"));
    EXPECT_EQ(home.List(L"perf"), Names{ L"nmp1.csv" });
}

TEST_F(Csv, AfterARestartAnotherHeaderStartsAGeneration)
{
    Open();
    Put("1");
    Reopen(HEADER_2);
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, "1"));
    EXPECT_THAT(File(), ElementsAre(HEADER_2, "2"));
}

TEST_F(Csv, AHeaderThatIsLongerThanTheOneThereIsAnotherHeader)
{
    home.Write(CSV, "abc\r\n1\r\n");
    ASSERT_EQ(Open("abcd"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre("abc", "1"));
    EXPECT_THAT(File(), ElementsAre("abcd"));
}

TEST_F(Csv, AHeaderThatIsTheBeginningOfTheOneThereIsAnotherHeader)
{
    home.Write(CSV, "abcd\r\n1\r\n");
    ASSERT_EQ(Open("abc"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre("abcd", "1"));
    EXPECT_THAT(File(), ElementsAre("abc"));
}

TEST_F(Csv, AnEmptyFileGetsItsHeader)
{
    home.Write(CSV, "");
    Open();
    EXPECT_THAT(File(), ElementsAre(HEADER));
}

TEST_F(Csv, AHalfWrittenLastLineIsClosedBeforeTheNext)
{
    home.Write(CSV, std::string(HEADER) + "\r\n\"t\",\"1\"\r\n\"t\",\"2\"");
    Open();
    EXPECT_EQ(Put("\"t\",\"3\""), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "\"t\",\"1\"", "\"t\",\"2\"", "\"t\",\"3\""));
}

TEST_F(Csv, AnOpenQuoteOfAHalfWrittenLineIsClosedToo)
{
    home.Write(CSV, std::string(HEADER) + "\r\n\"t\",\"12");
    Open();
    EXPECT_EQ(Put("\"t\",\"3\""), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "\"t\",\"12\"", "\"t\",\"3\""));
}

TEST_F(Csv, NulsThatAPowerLossLeftAreCut)
{
    home.Write(CSV, std::string(HEADER) + "\r\n\"t\",\"1\"\r\n" + std::string(10000, '\0'));
    Open();
    EXPECT_EQ(Put("\"t\",\"2\""), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "\"t\",\"1\"", "\"t\",\"2\""));
}

TEST_F(Csv, AFileOfNulsAloneIsAnEmptyFile)
{
    home.Write(CSV, std::string(4096, '\0'));
    Open();
    EXPECT_THAT(File(), ElementsAre(HEADER));
    EXPECT_EQ(home.List(L"perf"), Names{ L"nmp1.csv" });
}

// The machine went down while the last two lines were on their way to the disk: whatever of them arrived, with or
// without NULs behind it, the file goes on without a line made of two.
TEST_F(Csv, CutAtAnyByteTheFileGoesOnWithWholeLines)
{
    const std::string header = std::string(HEADER) + "\r\n", one = "\"01\",\"123\"\r\n", two = "\"02\",\"456\"\r\n";
    const std::string whole = header + one + two;

    for (size_t cut = 0; cut <= whole.size(); cut++) {
        for (size_t nuls : { 0u, 700u }) {
            home.Write(CSV, whole.substr(0, cut) + std::string(nuls, '\0'));
            ASSERT_EQ(Open(), TNWLOG_OK);
            ASSERT_EQ(Put("\"03\",\"789\""), TNWLOG_OK);
            ASSERT_EQ(api->log_util_term(hFile), TNWLOG_OK);
            hFile = nullptr;

            const std::vector<std::string> lines = File();
            ASSERT_EQ(home.List(L"perf"), Names{ L"nmp1.csv" }) << cut;
            ASSERT_EQ(lines.front(), HEADER) << cut;
            ASSERT_EQ(lines.back(), "\"03\",\"789\"") << cut;
            // A line that was whole is there as it was; of the torn one no more than a beginning, its quotes in pairs.
            const size_t done = cut < header.size() ? 0 : (cut - header.size()) / one.size();
            ASSERT_GE(lines.size(), done + 2) << cut;
            ASSERT_LE(lines.size(), done + 3) << cut;
            for (const std::string& line : lines) {
                ASSERT_EQ(std::count(line.begin(), line.end(), '"') % 2, 0) << cut;
            }
        }
    }
}

/* ---- A new header while open ---- */

TEST_F(Csv, RotateStartsAGenerationWithTheNewHeader)
{
    Open();
    Put("1");
    EXPECT_EQ(Rotate(HEADER_2), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER_2));
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, "1"));
    EXPECT_THAT(File(), ElementsAre(HEADER_2, "2"));
}

TEST_F(Csv, RotateWithTheSameHeaderStartsAGenerationToo)
{
    Open();
    Put("1");
    EXPECT_EQ(Rotate(HEADER), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, "1"));
    EXPECT_THAT(File(), ElementsAre(HEADER));
}

TEST_F(Csv, RotateSetsTheMaximumOfTheLinesThatFollow)
{
    Open();
    EXPECT_EQ(api->log_util_rotate(hFile, 10, "h"), TNWLOG_OK);
    EXPECT_EQ(Put("123456789"), TNWLOG_OK);
    EXPECT_EQ(Put("1234567890"), TNWLOG_LINE_TOO_LONG);
}

TEST_F(Csv, ARefusedRotateLeavesHeaderAndFileAsTheyWere)
{
    Open();
    EXPECT_EQ(api->log_util_rotate(hFile, 4, "long"), TNWLOG_LINE_TOO_LONG);
    EXPECT_EQ(api->log_util_rotate(hFile, 1, ""), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->log_util_rotate(hFile, 65537, "h"), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->log_util_rotate(hFile, 100, nullptr), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->log_util_rotate(hFile, 100, "a\nb"), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(Put("1"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "1"));
}

/* ---- Readers ---- */

TEST_F(Csv, AReaderSeesEveryLineAndCopiesTheOpenFile)
{
    HANDLE hReader = nullptr;

    Open();
    hReader = home.Hold(CSV, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(Put("1"), TNWLOG_OK);
    EXPECT_TRUE(CopyFileW(home.Path(CSV).c_str(), home.Path(L"perf\\copy.txt").c_str(), TRUE));
    EXPECT_THAT(File(L"perf\\copy.txt"), ElementsAre(HEADER, "1"));
    CloseHandle(hReader);
}

TEST_F(Csv, AHeldFileThatCannotBeRenamedTakesTheLineBehindItsBound)
{
    const std::string line(600, 'x');
    HANDLE            hReader = nullptr;

    Open(HEADER, 1, 3);
    Put(line);
    hReader = home.Hold(CSV, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(Put(line), TNWLOG_OK);
    EXPECT_EQ(Put(line), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, line, line, line));
    CloseHandle(hReader);
    EXPECT_EQ(Put("free"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, line, line, line));
    EXPECT_THAT(File(), ElementsAre(HEADER, "free"));
}

TEST_F(Csv, ARotateOfAHeldFileFailsAndTheNextWriteMakesUpForIt)
{
    HANDLE hReader = nullptr;

    Open();
    Put("1");
    hReader = home.Hold(CSV, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(Rotate(HEADER_2), TNWLOG_NOT_OPEN);
    CloseHandle(hReader);
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, "1"));
    EXPECT_THAT(File(), ElementsAre(HEADER_2, "2"));
}

TEST_F(Csv, UnderANewHeaderAHeldFileGetsThatHeaderOnceBeforeItsLines)
{
    HANDLE hReader = nullptr;

    Open();
    Put("1");
    hReader = home.Hold(CSV, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(Rotate(HEADER_2), TNWLOG_NOT_OPEN);
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    EXPECT_EQ(Put("3"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "1", HEADER_2, "2", "3"));
    CloseHandle(hReader);
    EXPECT_EQ(Put("4"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER_2, "4"));
}

TEST_F(Csv, AFileHeldWithoutSharingCostsItsLinesAndNoOpen)
{
    HANDLE hReader = nullptr;

    home.Write(CSV, std::string(HEADER) + "\r\n");
    hReader = home.Hold(CSV, 0);
    ASSERT_EQ(Open(), TNWLOG_OK);
    ASSERT_NE(hFile, nullptr);
    EXPECT_EQ(Put("lost"), TNWLOG_NOT_OPEN);
    CloseHandle(hReader);
    EXPECT_EQ(Put("here"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "here"));
}

TEST_F(Csv, ASecondWriterIsKeptOut)
{
    HTNWCSV hSecond = nullptr;

    Open();
    ASSERT_EQ(api->log_util_init("nmp1", &hSecond, 3, 0, 64, 3, MAX_LINE, HEADER, 0, 0), TNWLOG_OK);
    EXPECT_EQ(api->log_util_write(hSecond, "x"), TNWLOG_NOT_OPEN);
    EXPECT_EQ(Put("1"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "1"));
    EXPECT_EQ(api->log_util_term(hSecond), TNWLOG_OK);
}

TEST_F(Csv, AHeldGenerationDelaysTheRotationAndNoLine)
{
    HANDLE hReader = nullptr;

    Open(HEADER, 1, 3);
    for (const char* lpMark : { "a", "b" }) {
        Put(lpMark + std::string(900, '.'));
    }
    hReader = home.Hold(L"perf\\nmp1.1.csv", 0);
    EXPECT_EQ(Put(std::string(900, 'c')), TNWLOG_OK);
    EXPECT_EQ(File().size(), 3u);
    CloseHandle(hReader);
    EXPECT_EQ(Put("d"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "d"));
    EXPECT_EQ(home.List(L"perf").size(), 3u);
}

/* ---- Disks and folders ---- */

TEST_F(Csv, AMissingFolderIsAStatusAndTheFirstWriteAfterItsReturnSucceeds)
{
    home.Remove(L"perf");
    ASSERT_EQ(Open(), TNWLOG_OK);
    EXPECT_EQ(Put("lost"), TNWLOG_NO_DIRECTORY);
    home.MakeFolder(L"perf");
    EXPECT_EQ(Put("here"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "here"));
}

TEST_F(Csv, AFolderInTheFilesPlaceIsAStatus)
{
    home.MakeFolder(CSV);
    ASSERT_EQ(Open(), TNWLOG_OK);
    EXPECT_EQ(Put("lost"), TNWLOG_NOT_OPEN);
}

TEST_F(Csv, AShortWriteOfAFullDiskLeavesTheFileAsItWas)
{
    Open();
    Put("1");
    Hook("kernel32.dll", "WriteFile", WriteHook);
    for (g_shortWrite = 1; g_shortWrite < 8; g_shortWrite++) {
        EXPECT_EQ(Put("\"t\",\"2\""), TNWLOG_DISK_FULL);
        EXPECT_THAT(File(), ElementsAre(HEADER, "1"));
    }
    g_shortWrite = 0;
    EXPECT_EQ(Put("3"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "1", "3"));
}

TEST_F(Csv, APartOfALineThatCannotBeCutOffIsClosedByTheNextWrite)
{
    Open();
    Put("1");
    {
        ImportHook write(api->Module(), "kernel32.dll", "WriteFile", WriteHook);
        ImportHook cut(api->Module(), "kernel32.dll", "SetFileInformationByHandle", NoCut);
        g_shortWrite = 4;
        EXPECT_EQ(Put("\"t\",\"2\""), TNWLOG_DISK_FULL);
    }
    EXPECT_EQ(Put("3"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "1", "\"t\",", "3"));
}

TEST_F(Csv, AHeaderThatDidNotFitIsWrittenWhenThereIsRoom)
{
    Hook("kernel32.dll", "WriteFile", WriteHook);
    g_shortWrite = 5;
    ASSERT_EQ(Open(), TNWLOG_OK);
    EXPECT_EQ(Put("lost"), TNWLOG_DISK_FULL);
    g_shortWrite = 0;
    EXPECT_EQ(Put("here"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "here"));
}

TEST_F(Csv, ADiskThatFillsUpInARotationGetsTheHeaderLater)
{
    Open();
    Put("1");
    Hook("kernel32.dll", "WriteFile", WriteHook);
    g_writeError = ERROR_DISK_FULL;
    EXPECT_EQ(Rotate(HEADER_2), TNWLOG_DISK_FULL);
    EXPECT_EQ(Put("lost"), TNWLOG_DISK_FULL);
    g_writeError = 0;
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, "1"));
    EXPECT_THAT(File(), ElementsAre(HEADER_2, "2"));
    EXPECT_EQ(home.List(L"perf").size(), 2u);
}

TEST_F(Csv, EachRefusalOfTheSystemHasItsStatus)
{
    Open();
    Hook("kernel32.dll", "WriteFile", WriteHook);
    for (DWORD dwFull : { 112u, 39u, 1295u }) {
        g_writeError = dwFull;
        EXPECT_EQ(Put("lost"), TNWLOG_DISK_FULL) << dwFull;
    }
    for (DWORD dwOther : { 5u, 21u, 1117u }) {
        g_writeError = dwOther;
        EXPECT_EQ(Put("lost"), TNWLOG_WRITE_FAILED) << dwOther;
    }
    g_writeError = 0;
    EXPECT_EQ(Put("here"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "here"));
}

/* ---- Arguments and handles ---- */

TEST_F(Csv, WrongArgumentsAreRefusedAndSetNoHandle)
{
    struct {
        const char* lpName;
        DWORD       dwFlags, dwReserved1, dwSize, dwGenerations, dwMaxLine;
        const char* lpHeader;
        DWORD       dwReserved2, dwReserved3, dwStatus;
    } const aCase[] = {
        { nullptr, 3, 0, 64, 3, 100, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "", 3, 0, 64, 3, 100, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "a\\b", 3, 0, 64, 3, 100, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1.1", 3, 0, 64, 3, 100, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 2, 0, 64, 3, 100, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 1, 64, 3, 100, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 0, 0, 3, 100, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 0, 4194304, 3, 100, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 0, 64, 100, 100, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 0, 64, 3, 1, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 0, 64, 3, 65537, "h", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 0, 64, 3, 100, nullptr, 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 0, 64, 3, 100, "h\r\n", 0, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 0, 64, 3, 100, "h", 1, 0, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 0, 64, 3, 100, "h", 0, 1, TNWLOG_INVALID_ARGUMENT },
        { "nmp1", 3, 0, 64, 3, 4, "long", 0, 0, TNWLOG_LINE_TOO_LONG },
    };

    for (const auto& c : aCase) {
        HTNWCSV hNone = reinterpret_cast<HTNWCSV>(this);
        EXPECT_EQ(api->log_util_init(c.lpName, &hNone, c.dwFlags, c.dwReserved1, c.dwSize, c.dwGenerations, c.dwMaxLine,
                                     c.lpHeader, c.dwReserved2, c.dwReserved3),
                  c.dwStatus)
            << &c - aCase;
        EXPECT_EQ(hNone, nullptr);
    }
    EXPECT_EQ(api->log_util_init("nmp1", nullptr, 3, 0, 64, 3, 100, "h", 0, 0), TNWLOG_INVALID_ARGUMENT);
    EXPECT_TRUE(home.List(L"perf").empty());
}

TEST_F(Csv, AClosedHandleIsAnsweredNotFollowed)
{
    HTNWCSV hClosed = nullptr;

    Open();
    hClosed = hFile;
    hFile = nullptr;
    EXPECT_EQ(api->log_util_term(hClosed), TNWLOG_OK);
    EXPECT_EQ(api->log_util_term(hClosed), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->log_util_write(hClosed, "x"), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->log_util_rotate(hClosed, 100, "h"), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->log_util_term(nullptr), TNWLOG_INVALID_ARGUMENT);
    EXPECT_EQ(api->log_util_write(nullptr, "x"), TNWLOG_INVALID_ARGUMENT);
}

TEST_F(Csv, AMissingFormatIsRefused)
{
    Open();
    EXPECT_EQ(api->log_util_write(hFile, nullptr), TNWLOG_INVALID_ARGUMENT);
}

TEST_F(Csv, WithoutMemoryNoFileOpensAndNoneIsMade)
{
    Hook("kernel32.dll", "HeapAlloc", NoMemory);
    EXPECT_EQ(Open(), TNWLOG_NO_MEMORY);
    EXPECT_EQ(hFile, nullptr);
    EXPECT_TRUE(home.List(L"perf").empty());
}

TEST_F(Csv, OneHundredAndThirtyFilesAreOpenAtOnce)
{
    std::vector<HTNWCSV> files(130);

    for (size_t n = 0; n < files.size(); n++) {
        ASSERT_EQ(
            api->log_util_init(("file" + std::to_string(n)).c_str(), &files[n], 3, 0, 64, 3, MAX_LINE, HEADER, 0, 0),
            TNWLOG_OK);
    }
    for (size_t n = 0; n < files.size(); n++) {
        EXPECT_EQ(api->log_util_write(files[n], "%d", static_cast<int>(n)), TNWLOG_OK);
    }
    for (size_t n = 0; n < files.size(); n++) {
        EXPECT_THAT(File((L"perf\\file" + std::to_wstring(n) + L".csv").c_str()),
                    ElementsAre(HEADER, std::to_string(n)));
        EXPECT_EQ(api->log_util_term(files[n]), TNWLOG_OK);
    }
}

}  // namespace
