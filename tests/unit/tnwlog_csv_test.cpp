// CSV log files: header first, whole lines, bounded files, and what a restart or a reader finds.
#include "support/import_watch.h"
#include "support/seed.h"
#include "tnwlog_fixture.h"
#include <algorithm>
#include <iostream>
#include <random>
#include <stdlib.h>

namespace {

using testing::ElementsAre;

const char* const    HEADER = "\"(PDH-CSV 4.0)\",\"\\\\SERVER1\\a\"";
const char* const    HEADER_2 = "\"(PDH-CSV 4.0)\",\"\\\\SERVER1\\b\"";
const wchar_t* const CSV = L"perf\\nmp1.csv";
const DWORD          MAX_LINE = 13440;

DWORD g_shortWrite, g_writeError, g_openError, g_moveError, g_reads;

BOOL WINAPI WriteHook(HANDLE hFile, LPCVOID lpData, DWORD dwLength, LPDWORD lpdwWritten, LPOVERLAPPED lpAt)
{
    if (g_writeError != 0) {
        SetLastError(g_writeError);
        return FALSE;
    }
    return WriteFile(hFile, lpData, g_shortWrite != 0 && g_shortWrite < dwLength ? g_shortWrite : dwLength, lpdwWritten,
                     lpAt);
}

HANDLE WINAPI OpenHook(LPCWSTR lpPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES lpSa, DWORD dwHow,
                       DWORD dwFlags, HANDLE hTemplate)
{
    if (g_openError != 0) {
        SetLastError(g_openError);
        return INVALID_HANDLE_VALUE;
    }
    return CreateFileW(lpPath, dwAccess, dwShare, lpSa, dwHow, dwFlags, hTemplate);
}

// The first read looks at the file's end, the second one at its header.
BOOL WINAPI NoHeaderRead(HANDLE hFile, LPVOID lpData, DWORD dwLength, LPDWORD lpdwRead, LPOVERLAPPED lpAt)
{
    if (++g_reads % 2 == 0) {
        SetLastError(ERROR_IO_DEVICE);
        return FALSE;
    }
    return ReadFile(hFile, lpData, dwLength, lpdwRead, lpAt);
}

BOOL WINAPI MoveHook(LPCWSTR lpFrom, LPCWSTR lpTo, DWORD dwFlags)
{
    if (g_moveError != 0) {
        SetLastError(g_moveError);
        return FALSE;
    }
    return MoveFileExW(lpFrom, lpTo, dwFlags);
}

BOOL WINAPI NoCut(HANDLE, FILE_INFO_BY_HANDLE_CLASS, LPVOID, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

class Csv : public TnwLogTest {
protected:
    explicit Csv(const wchar_t* lpLeaf = L"home") : TnwLogTest(lpLeaf)
    {
        g_shortWrite = g_writeError = g_openError = g_moveError = g_reads = 0;
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
    for (const wchar_t* lpName : { L"perf\\nmp1_raw.csv", L"perf\\nmp10.csv", L"perf\\nmp1.9.txt", L"perf\\nmp1.09.csv",
                                   L"perf\\nmp1.1234567890.csv" }) {
        home.Write(lpName, "x\r\n");
    }
    Open(HEADER, 64, 0);
    EXPECT_EQ(Rotate(HEADER), TNWLOG_OK);
    EXPECT_EQ(home.List(L"perf").size(), 6u);
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

class PowerLoss : public Csv {
protected:
    // What the file has to be, worked out from what is left of it: NULs go; a header cut short is written anew; a last
    // line cut short ends where it stops, its open quote closed.
    static std::string Mended(const std::string& left, const std::string& header)
    {
        const size_t      end = left.rfind("\r\n") == std::string::npos ? 0 : left.rfind("\r\n") + 2;
        const std::string rest = left.substr(end);

        if (left.size() < header.size()) {
            return header;
        }
        if (rest.empty()) {
            return left;
        }
        if (std::count(rest.begin(), rest.end(), '"') % 2 != 0) {
            return left + "\"\r\n";
        }
        return left + (rest.back() == '\r' ? "\n" : "\r\n");
    }

    // The machine starts again with this much of the file, and NULs behind it.
    void Lose(const std::string& whole, size_t cut, size_t nuls)
    {
        const std::string header = std::string(HEADER) + "\r\n";

        home.Write(CSV, whole.substr(0, cut) + std::string(nuls, '\0'));
        ASSERT_EQ(Open(), TNWLOG_OK);
        ASSERT_EQ(Put("\"08\",\"111\""), TNWLOG_OK);
        ASSERT_EQ(Put("\"09\",\"222\""), TNWLOG_OK);
        ASSERT_EQ(api->log_util_term(hFile), TNWLOG_OK);
        hFile = nullptr;
        ASSERT_EQ(home.Read(CSV), Mended(whole.substr(0, cut), header) + "\"08\",\"111\"\r\n\"09\",\"222\"\r\n")
            << "cut at " << cut << ", " << nuls << " NULs";
        ASSERT_EQ(home.List(L"perf"), Names{ L"nmp1.csv" }) << "cut at " << cut << ", " << nuls << " NULs";
    }

    static std::string Line(int n)
    {
        return "\"03/07/2026 14:05:" + std::to_string(n) + "\",\"" + std::to_string(n * 7919) + "\"\r\n";
    }
};

// The machine went down while the last two lines were on their way to the disk, or the header itself.
TEST_F(PowerLoss, CutAtAnyByteOfItsLastTwoLinesTheFileGoesOnWithWholeLines)
{
    const std::string header = std::string(HEADER) + "\r\n", whole = header + Line(1) + Line(2);

    for (size_t cut = 0; cut <= whole.size(); cut++) {
        for (size_t nuls : { 0u, 1u, 512u, 4096u, 9000u }) {
            Lose(whole, cut, nuls);
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

TEST_F(PowerLoss, CutAnywhereElseTheFileGoesOnWithWholeLines)
{
    const unsigned seed = TestSeed();
    std::mt19937   random(seed);
    std::string    whole = std::string(HEADER) + "\r\n";

    for (int n = 0; whole.size() < 60000; n++) {
        whole += Line(n);
    }
    for (int n = 0; n < 500; n++) {
        const size_t cut = random() % (whole.size() - 80);  // in front of the last two lines
        // Half of them end in NULs, and half of those at the end of a sector or page.
        const size_t nuls = random() % 2 == 0 ? 0 : (random() % 2 == 0 ? random() % 5000 + 1 : 4096 - cut % 4096);
        Lose(whole, cut, nuls);
        if (HasFatalFailure()) {
            return;
        }
    }
}

TEST_F(PowerLoss, AHeaderOfAnotherChoiceCutShortBecomesAGeneration)
{
    home.Write(CSV, std::string(HEADER_2).substr(0, 25));
    ASSERT_EQ(Open("\"t\",\"x\""), TNWLOG_OK);
    EXPECT_EQ(Put("1"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(std::string(HEADER_2).substr(0, 25) + "\""));
    EXPECT_THAT(File(), ElementsAre("\"t\",\"x\"", "1"));
}

/* ---- A new header while open ---- */

TEST_F(Csv, RotateWithTheSameHeaderStartsAGenerationToo)
{
    Open();
    Put("1");
    EXPECT_EQ(Rotate(HEADER), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, "1"));
    EXPECT_THAT(File(), ElementsAre(HEADER));
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

// The columns are chosen back while the file is still held, and it had to be opened anew in between.
TEST_F(Csv, AHeaderChosenBackStandsAboveItsLinesAgain)
{
    HANDLE hReader = nullptr;

    Open();
    Put("1");
    hReader = home.Hold(CSV, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(Rotate(HEADER_2), TNWLOG_NOT_OPEN);
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    {
        ImportHook write(api->Module(), "kernel32.dll", "WriteFile", WriteHook);
        g_writeError = ERROR_DISK_FULL;
        EXPECT_EQ(Put("lost"), TNWLOG_DISK_FULL);
        g_writeError = 0;
    }
    EXPECT_EQ(Rotate(HEADER), TNWLOG_NOT_OPEN);
    EXPECT_EQ(Put("3"), TNWLOG_OK);
    EXPECT_EQ(Put("4"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "1", HEADER_2, "2", HEADER, "3", "4"));
    CloseHandle(hReader);
    EXPECT_EQ(Put("5"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "5"));
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

// By whom and to where it was moved nobody tells: its writer finds out when it starts the next file.
TEST_F(Csv, AFileMovedAwayByHandIsStartedAnewAtItsBound)
{
    for (const DWORD dwGenerations : { 3u, 0u }) {
        const std::string line(600, 'x');

        home.Write(L"perf\\nmp1.1.csv", "kept\r\n");
        ASSERT_EQ(Open(HEADER, 1, dwGenerations), TNWLOG_OK);
        EXPECT_EQ(Put(line), TNWLOG_OK);
        home.Move(CSV, L"perf\\evidence.txt");
        EXPECT_EQ(Put("behind it"), TNWLOG_OK) << "it is not full yet";
        EXPECT_EQ(Put(line), TNWLOG_OK);
        EXPECT_THAT(File(L"perf\\evidence.txt"), ElementsAre(HEADER, line, "behind it"));
        EXPECT_THAT(File(), ElementsAre(HEADER, line));
        EXPECT_EQ(home.Exists(L"perf\\nmp1.1.csv"), dwGenerations != 0) << "the others stay where they are";
        EXPECT_FALSE(home.Exists(L"perf\\nmp1.2.csv"));
        EXPECT_EQ(api->log_util_term(hFile), TNWLOG_OK);
        hFile = nullptr;
        home.Remove(CSV);
        home.Remove(L"perf\\evidence.txt");
    }
}

TEST_F(Csv, AFileMovedAwayByHandIsStartedAnewByRotate)
{
    Open();
    Put("1");
    home.Move(CSV, L"perf\\evidence.txt");
    EXPECT_EQ(Rotate(HEADER_2), TNWLOG_OK);
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\evidence.txt"), ElementsAre(HEADER, "1"));
    EXPECT_THAT(File(), ElementsAre(HEADER_2, "2"));
    EXPECT_FALSE(home.Exists(L"perf\\nmp1.1.csv"));
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

TEST_F(Csv, APartOfAHeaderThatCannotBeCutOffIsNotGoneOnBehind)
{
    Open();
    Put("1");
    {
        ImportHook write(api->Module(), "kernel32.dll", "WriteFile", WriteHook);
        ImportHook cut(api->Module(), "kernel32.dll", "SetFileInformationByHandle", NoCut);
        g_shortWrite = 4;
        EXPECT_EQ(Rotate(HEADER_2), TNWLOG_DISK_FULL);
        g_shortWrite = 0;
        EXPECT_EQ(Put("lost"), TNWLOG_WRITE_FAILED);
    }
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, "1"));
    EXPECT_THAT(File(), ElementsAre(HEADER_2, "2"));
    EXPECT_EQ(home.List(L"perf").size(), 2u);
}

// The new file was begun before: by a process that went down in the same change of columns.
TEST_F(Csv, ARotateThatFindsAPartOfItsHeaderStartsNoSecondGeneration)
{
    HANDLE hReader = nullptr;

    home.Write(CSV, std::string(HEADER_2).substr(0, 25));
    hReader = home.Hold(CSV, 0);
    Open();
    EXPECT_EQ(Rotate(HEADER_2), TNWLOG_NOT_OPEN);
    CloseHandle(hReader);
    EXPECT_EQ(Put("1"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER_2, "1"));
    EXPECT_EQ(home.List(L"perf"), Names{ L"nmp1.csv" });
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

// Write-protected, no right, gone: whatever it was, the first line that finds it over is written.
TEST_F(Csv, EachRefusalToOpenHasItsStatus)
{
    struct {
        DWORD dwW32, dwStatus;
    } const aCase[] = { { 2, TNWLOG_NOT_OPEN },   { 3, TNWLOG_NO_DIRECTORY }, { 5, TNWLOG_NOT_OPEN },
                        { 19, TNWLOG_NOT_OPEN },  { 21, TNWLOG_NOT_OPEN },    { 32, TNWLOG_NOT_OPEN },
                        { 39, TNWLOG_DISK_FULL }, { 112, TNWLOG_DISK_FULL },  { 1295, TNWLOG_DISK_FULL } };

    for (const auto& c : aCase) {
        Hook("kernel32.dll", "CreateFileW", OpenHook);
        g_openError = c.dwW32;
        ASSERT_EQ(Open(), TNWLOG_OK);
        EXPECT_EQ(Put("lost"), c.dwStatus) << c.dwW32;
        EXPECT_EQ(Rotate(HEADER_2), c.dwStatus) << c.dwW32;
        g_openError = 0;
        EXPECT_EQ(Put("here"), TNWLOG_OK);
        EXPECT_THAT(File(), ElementsAre(HEADER_2, "here"));
        EXPECT_EQ(home.List(L"perf"), Names{ L"nmp1.csv" }) << "a new file is generation enough";
        EXPECT_EQ(api->log_util_term(hFile), TNWLOG_OK);
        hFile = nullptr;
        home.Remove(CSV);
    }
}

TEST_F(Csv, ANewGenerationThatCannotBeOpenedSaysWhyAndTheNextWriteOpensIt)
{
    Open();
    Put("1");
    Hook("kernel32.dll", "CreateFileW", OpenHook);
    g_openError = ERROR_SHARING_VIOLATION;
    EXPECT_EQ(Rotate(HEADER_2), TNWLOG_NOT_OPEN);
    EXPECT_EQ(Put("lost"), TNWLOG_NOT_OPEN);
    g_openError = 0;
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, "1"));
    EXPECT_THAT(File(), ElementsAre(HEADER_2, "2"));
}

TEST_F(Csv, AFileThatCannotBeReadIsNotTakenForOneWithAnotherHeader)
{
    home.Write(CSV, std::string(HEADER) + "\r\n1\r\n");
    {
        ImportHook read(api->Module(), "kernel32.dll", "ReadFile", NoHeaderRead);
        ASSERT_EQ(Open(), TNWLOG_OK);
        EXPECT_EQ(Put("lost"), TNWLOG_WRITE_FAILED);
    }
    EXPECT_EQ(Put("2"), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "1", "2"));
    EXPECT_EQ(home.List(L"perf"), Names{ L"nmp1.csv" });
}

TEST_F(Csv, AFolderInWhichNothingMayBeRenamedCostsNoLine)
{
    Open(HEADER, 1, 3);
    Hook("kernel32.dll", "MoveFileExW", MoveHook);
    g_moveError = ERROR_ACCESS_DENIED;
    for (const char* lpMark : { "a", "b", "c" }) {
        EXPECT_EQ(Put(lpMark + std::string(600, '.')), TNWLOG_OK);
    }
    EXPECT_EQ(Rotate(HEADER), TNWLOG_NOT_OPEN);
    EXPECT_EQ(Put("under the same header"), TNWLOG_OK);
    EXPECT_EQ(File().size(), 5u) << "which is there and not repeated";
    g_moveError = 0;
    EXPECT_EQ(Put("d"), TNWLOG_OK);
    EXPECT_EQ(File(L"perf\\nmp1.1.csv").size(), 5u);
    EXPECT_THAT(File(), ElementsAre(HEADER, "d"));
}

// The n-th call that can fail does, alone or with those behind it, from the opening of a file that a power loss left to
// a change of columns. Each answer is one of the list; a line is in the files if and only if its call said so; each
// line stands under its own header; the first call that finds the cause gone succeeds.
TEST_F(Csv, WhateverCallFailsTheAnswerIsTrueAndOfTheList)
{
    struct {
        DWORD dwError;
        int   nWidth;
    } const aTrouble[] = {
        { ERROR_ACCESS_DENIED, 1 }, { ERROR_IO_DEVICE, 1 }, { ERROR_DISK_FULL, 3 }, { ERROR_DISK_FULL, 1000 }
    };
    int nRuns = 0, nFailed = 0;

    for (const auto& trouble : aTrouble) {
        int nCalls = 0;
        for (int nFirst = 1; nFirst <= nCalls + 1; nFirst++, nRuns++) {
            SCOPED_TRACE("calls " + std::to_string(nFirst) + " and on, error " + std::to_string(trouble.dwError) +
                         ", width " + std::to_string(trouble.nWidth));
            std::vector<std::string> expected = { "1-old", "1-half" };
            auto                     Write = [&](const std::string& text) {
                const DWORD dwStatus = Put(text + "," + std::string(250, '.'));
                if (dwStatus == TNWLOG_OK) {
                    expected.push_back(text);
                }
                return dwStatus;
            };
            auto IsListed = [&](DWORD dwStatus) {
                nFailed += dwStatus != TNWLOG_OK ? 1 : 0;
                return dwStatus == TNWLOG_OK || dwStatus == TNWLOG_NOT_OPEN || dwStatus == TNWLOG_DISK_FULL ||
                       dwStatus == TNWLOG_WRITE_FAILED;
            };

            home.Remove(L"perf");
            home.MakeFolder(L"perf");
            // Who is refused to read, but may append, does not see what a power loss left.
            home.Write(CSV, "head1\r\n1-old,\r\n1-half," +
                                (trouble.dwError != ERROR_ACCESS_DENIED ? std::string(100, '\0') : "\r\n"));
            {
                ImportWatch watch(api->Module(), [&](const ImportWatch::Call& call) {
                    return ImportWatch::CanFail(call) && call.name != "HeapAlloc" && ++nCalls >= nFirst &&
                           nCalls < nFirst + trouble.nWidth;
                });
                watch.Error = trouble.dwError;
                nCalls = 0;
                ASSERT_EQ(Open("head1", 1, 20), TNWLOG_OK);
                for (int n = 1; n <= 6; n++) {
                    ASSERT_TRUE(IsListed(Write("1-" + std::to_string(n))));
                }
                ASSERT_TRUE(IsListed(Rotate("head2")));
                for (int n = 1; n <= 6; n++) {
                    ASSERT_TRUE(IsListed(Write("2-" + std::to_string(n))));
                }
            }
            ASSERT_EQ(Write("2-last"), TNWLOG_OK);
            ASSERT_EQ(api->log_util_term(hFile), TNWLOG_OK);
            hFile = nullptr;

            std::vector<std::string> found;
            for (int n = 20; n >= 0; n--) {
                const std::wstring tag = n != 0 ? L"." + std::to_wstring(n) : L"";
                std::string        head;
                for (const std::string& line : File((L"perf\\nmp1" + tag + L".csv").c_str())) {
                    if (line.compare(0, 4, "head") == 0) {
                        head = line;
                    } else {
                        ASSERT_EQ(head, "head" + line.substr(0, 1)) << line;
                        found.push_back(line.substr(0, line.find(',')));
                    }
                }
            }
            ASSERT_EQ(found, expected);
        }
        EXPECT_GT(nCalls, 60);
    }
    std::cout << nRuns << " runs, " << nFailed << " calls that failed" << std::endl;
}

/* ---- Names and homes ---- */

// A name comes in the ANSI code page and has its letters on the disk, also among the generations.
TEST_F(Csv, ANameWithOtherLettersIsAName)
{
    const wchar_t* const lpWide = L"Pl\u00E4tze";
    char                 szName[32];
    BOOL                 bLost = FALSE;

    ASSERT_NE(WideCharToMultiByte(CP_ACP, 0, lpWide, -1, szName, sizeof szName, nullptr, &bLost), 0);
    ASSERT_FALSE(bLost);
    for (const char* lpHeader : { HEADER, HEADER_2 }) {
        ASSERT_EQ(api->log_util_init(szName, &hFile, 3, 0, 64, 2, MAX_LINE, lpHeader, 0, 0), TNWLOG_OK);
        EXPECT_EQ(Put("1"), TNWLOG_OK);
        EXPECT_EQ(api->log_util_term(hFile), TNWLOG_OK);
        hFile = nullptr;
    }
    EXPECT_EQ(home.List(L"perf"), (Names{ L"Pl\u00E4tze.1.csv", L"Pl\u00E4tze.csv" }));
    EXPECT_THAT(File(L"perf\\Pl\u00E4tze.1.csv"), ElementsAre(HEADER, "1"));
    EXPECT_THAT(File(L"perf\\Pl\u00E4tze.csv"), ElementsAre(HEADER_2, "1"));
}

// Homes whose path has other letters, or more than 260 characters.
class CsvHome : public Csv {
protected:
    explicit CsvHome(const wchar_t* lpLeaf) : Csv(lpLeaf)
    {
    }
    void WriteAndRotate()
    {
        Open();
        EXPECT_EQ(Put("1"), TNWLOG_OK);
        EXPECT_EQ(Rotate(HEADER_2), TNWLOG_OK);
        Reopen(HEADER_2);
        EXPECT_EQ(Put("2"), TNWLOG_OK);
        EXPECT_THAT(File(L"perf\\nmp1.1.csv"), ElementsAre(HEADER, "1"));
        EXPECT_THAT(File(), ElementsAre(HEADER_2, "2"));
    }
};

class CsvHomeOfOtherLetters : public CsvHome {
protected:
    CsvHomeOfOtherLetters() : CsvHome(L"H\u00E4user \u6771\u4EAC")
    {
    }
};

TEST_F(CsvHomeOfOtherLetters, IsAHome)
{
    WriteAndRotate();
}

class CsvDeepHome : public CsvHome {
protected:
    CsvDeepHome() : CsvHome((std::wstring(120, L'a') + L"\\" + std::wstring(120, L'b')).c_str())
    {
    }
};

TEST_F(CsvDeepHome, IsAHome)
{
    ASSERT_GT(home.Path(CSV).size(), 260u);
    WriteAndRotate();
}

/* ---- Memory, and many files ---- */

TEST_F(Csv, WithoutMemoryNoFileOpensAndNoneIsMade)
{
    for (int n = 1; n <= 3; n++) {
        hFile = reinterpret_cast<HTNWCSV>(this);
        FailMemoryAt(n);
        EXPECT_EQ(Open(), TNWLOG_NO_MEMORY) << n;
        EXPECT_EQ(hFile, nullptr) << n;
        EXPECT_EQ(Memory::held, 0) << n;
    }
    EXPECT_TRUE(home.List(L"perf").empty());
    FailMemoryAt(4);
    EXPECT_EQ(Open(), TNWLOG_OK) << "a file takes three pieces";
}

TEST_F(Csv, ARotateWithoutMemoryLeavesFileHeaderAndMaximum)
{
    Open();
    Put("1");
    FailMemoryAt(1);
    EXPECT_EQ(api->log_util_rotate(hFile, 10, HEADER_2), TNWLOG_LINE_TOO_LONG) << "takes none";
    EXPECT_EQ(api->log_util_rotate(hFile, 31, HEADER_2), TNWLOG_NO_MEMORY);
    EXPECT_EQ(Memory::held, 0);
    EXPECT_EQ(Put(std::string(40, 'x')), TNWLOG_OK);
    EXPECT_THAT(File(), ElementsAre(HEADER, "1", std::string(40, 'x')));
    EXPECT_EQ(home.List(L"perf"), Names{ L"nmp1.csv" });
    Reopen();  // with the old header
    EXPECT_EQ(home.List(L"perf"), Names{ L"nmp1.csv" });
}

class ManyFiles : public Csv {
protected:
    void OpenAll(const char* lpHeader)
    {
        for (size_t n = 0; n < files.size(); n++) {
            ASSERT_EQ(api->log_util_init(("file" + std::to_string(n)).c_str(), &files[n], 3, 0, 64, 3, MAX_LINE,
                                         lpHeader, 0, 0),
                      TNWLOG_OK);
        }
    }
    void PutAll(const std::string& mark)
    {
        for (size_t n = 0; n < files.size(); n++) {
            EXPECT_EQ(api->log_util_write(files[n], "%s%d", mark.c_str(), static_cast<int>(n)), TNWLOG_OK);
        }
    }
    void CloseAll()
    {
        for (HTNWCSV& hOne : files) {
            EXPECT_EQ(api->log_util_term(hOne), TNWLOG_OK);
        }
    }
    std::vector<std::string> FileOf(size_t n, const wchar_t* lpGeneration = L"")
    {
        return File((L"perf\\file" + std::to_wstring(n) + lpGeneration + L".csv").c_str());
    }

    std::vector<HTNWCSV> files = std::vector<HTNWCSV>(130);
};

TEST_F(ManyFiles, OneHundredAndThirtyAreOpenAtOnceGoOnAfterARestartAndChangeTheirHeader)
{
    OpenAll(HEADER);
    PutAll("a");
    CloseAll();
    Restart();
    OpenAll(HEADER);
    PutAll("b");
    for (HTNWCSV hOne : files) {
        EXPECT_EQ(api->log_util_rotate(hOne, MAX_LINE, HEADER_2), TNWLOG_OK);
    }
    PutAll("c");
    CloseAll();
    for (size_t n = 0; n < files.size(); n++) {
        const std::string number = std::to_string(n);
        EXPECT_THAT(FileOf(n, L".1"), ElementsAre(HEADER, "a" + number, "b" + number));
        EXPECT_THAT(FileOf(n), ElementsAre(HEADER_2, "c" + number));
    }
    EXPECT_EQ(home.List(L"perf").size(), 260u);
}

TEST_F(ManyFiles, OneThatIsHeldCostsItsOwnLinesAlone)
{
    home.Write(L"perf\\file7.csv", "");
    const HANDLE hReader = home.Hold(L"perf\\file7.csv", 0);

    OpenAll(HEADER);
    for (size_t n = 0; n < files.size(); n++) {
        EXPECT_EQ(api->log_util_write(files[n], "a"), n == 7 ? TNWLOG_NOT_OPEN : TNWLOG_OK);
    }
    CloseHandle(hReader);
    PutAll("b");
    CloseAll();
    EXPECT_THAT(FileOf(7), ElementsAre(HEADER, "b7"));
    EXPECT_THAT(FileOf(8), ElementsAre(HEADER, "a", "b8"));
}

}  // namespace
