// Several processes write one trace log. What a call returned for is in the files: whole, once, and in the order of its
// process.
#include "unit/tnwlog_fixture.h"
#include <map>

namespace {

class Writers : public TnwLogTest {
  protected:
    Writers() : hGo(CreateEventA(nullptr, TRUE, FALSE, "Local\\dkpf_writers_go"))
    {
        program = home.Install(L"tnwlog_writer.exe");
    }
    ~Writers() override
    {
        CloseHandle(hGo);
    }

    HANDLE Start(const std::string& arguments)
    {
        std::wstring        line = L"\"" + program + L"\" " + std::wstring(arguments.begin(), arguments.end());
        STARTUPINFOW        start = {};
        PROCESS_INFORMATION process = {};

        start.cb = sizeof start;
        EXPECT_TRUE(CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start,
                                   &process));
        CloseHandle(process.hThread);
        return process.hProcess;
    }

    static DWORD End(HANDLE hProcess)
    {
        DWORD dwCode = 0xFFFFFFFF;

        EXPECT_EQ(WaitForSingleObject(hProcess, 240000), WAIT_OBJECT_0);
        GetExitCodeProcess(hProcess, &dwCode);
        CloseHandle(hProcess);
        return dwCode;
    }

    // The numbers each writer got into the files, oldest generation first; anything that is no whole line fails the
    // test.
    std::map<std::string, std::vector<int>> Written()
    {
        std::map<std::string, std::vector<int>> written;

        for (int n = 15; n >= 0; n--) {
            const std::wstring name = n != 0 ? L"log\\diskperf." + std::to_wstring(n) + L".log" : L"log\\diskperf.log";
            for (const std::string& line : Lines(home.Read(name.c_str()))) {
                char   szTag[16] = "", szRest[2] = "";
                int    nNumber = 0;
                size_t at = line.find(" 0x0004 w(1) Writer:");
                if (at == std::string::npos || line.compare(0, 2, "20") != 0 ||
                    sscanf(line.c_str() + at + 20, "%15s %d%1s", szTag, &nNumber, szRest) != 2) {
                    ADD_FAILURE() << "torn: " << line;
                    continue;
                }
                written[szTag].push_back(nNumber);
            }
        }
        return written;
    }

    static std::vector<int> OneTo(int nLast)
    {
        std::vector<int> numbers;
        for (int n = 1; n <= nLast; n++) {
            numbers.push_back(n);
        }
        return numbers;
    }

    // Takes the lock of "diskperf" in this home and keeps it; the caller releases it. Its name is learnt from the
    // library.
    HANDLE HoldLock()
    {
        HTNWLOG hLog = nullptr;
        HANDLE  hLock = nullptr;

        Hook("kernel32.dll", "CreateMutexW", LearnName);
        EXPECT_EQ(api->log_init("diskperf", &hLog, 0, 64, 0, "key"), TNWLOG_OK);
        hLock = OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, s_lockName.c_str());
        EXPECT_EQ(WaitForSingleObject(hLock, 0), WAIT_OBJECT_0);
        api->log_term(hLog);
        return hLock;
    }

    static HANDLE WINAPI LearnName(LPSECURITY_ATTRIBUTES lpSa, BOOL bOwner, LPCWSTR lpName)
    {
        if (wcsstr(lpName, L".late") == nullptr) {
            s_lockName = lpName;
        }
        return CreateMutexW(lpSa, bOwner, lpName);
    }

    static std::wstring s_lockName;
    std::wstring        program;
    HANDLE              hGo;
};

std::wstring Writers::s_lockName;

// Eight processes; a line is some 70 bytes, so that 24,000 of them fill a file of 128 KiB about 13 times.
TEST_F(Writers, EightProcessesLoseTearAndReorderNothingOverManyRotations)
{
    const int           nLines = 3000;
    std::vector<HANDLE> writers;

    for (int n = 0; n < 8; n++) {
        writers.push_back(Start("w" + std::to_string(n) + " " + std::to_string(nLines) + " 128"));
    }
    SetEvent(hGo);
    for (HANDLE hWriter : writers) {
        EXPECT_EQ(End(hWriter), 0u);
    }
    const std::map<std::string, std::vector<int>> written = Written();
    ASSERT_EQ(written.size(), 8u);
    for (const auto& writer : written) {
        EXPECT_EQ(writer.second, OneTo(nLines)) << writer.first;
    }
    // Else the test would not have shown what it is for, or generations would have been deleted.
    EXPECT_GE(home.List(L"log").size(), 11u);
    EXPECT_LE(home.List(L"log").size(), 15u);
    for (const std::wstring& name : home.List(L"log")) {
        EXPECT_LT(home.Read((L"log\\" + name).c_str()).size(), 128u * 1024 + 100);
    }
}

TEST_F(Writers, AKilledWriterLosesNoLineWhoseCallHadReturned)
{
    HANDLE hKilled = Start("k 5000 64 die-behind-line 777"), hOther = Start("o 2000 64");

    SetEvent(hGo);
    EXPECT_EQ(End(hKilled), 9u);
    EXPECT_EQ(End(hOther), 0u);
    std::map<std::string, std::vector<int>> written = Written();
    EXPECT_EQ(written["k"], OneTo(777));
    EXPECT_EQ(written["o"], OneTo(2000));
}

class KilledInRotation : public Writers, public testing::WithParamInterface<int> {};

// Dies holding the log's lock, in place of its N-th rename; a second process takes over and heals what it left.
TEST_P(KilledInRotation, TheNextWriterHealsAndNoLineIsLost)
{
    HANDLE hKilled = nullptr;

    SetEvent(hGo);
    hKilled = Start("k 2000 4 die-in-rename " + std::to_string(GetParam()));
    EXPECT_EQ(End(hKilled), 9u);
    const size_t before = Written()["k"].size();
    EXPECT_EQ(End(Start("o 200 4")), 0u);
    std::map<std::string, std::vector<int>> written = Written();
    EXPECT_GT(before, 0u);
    EXPECT_EQ(written["k"], OneTo(static_cast<int>(before)));
    EXPECT_EQ(written["o"], OneTo(200));
}

// The n-th rotation takes n renames while generations are free: 1, then 2 and 3, then 4 to 6, ... 11 is the first of
// the fifth.
INSTANTIATE_TEST_SUITE_P(EachRename, KilledInRotation, testing::Values(1, 2, 3, 5, 11, 13, 15));

TEST_F(Writers, AReaderThatHoldsAGenerationDelaysRotationForAllAndNoLine)
{
    std::vector<HANDLE> writers;
    HANDLE              hReader = nullptr;

    home.Write(L"log\\diskperf.1.log", "");
    hReader = home.Hold(L"log\\diskperf.1.log", 0);
    for (int n = 0; n < 3; n++) {
        writers.push_back(Start("w" + std::to_string(n) + " 300 8"));
    }
    SetEvent(hGo);
    for (HANDLE hWriter : writers) {
        EXPECT_EQ(End(hWriter), 0u);
    }
    EXPECT_EQ(home.List(L"log").size(), 2u);
    CloseHandle(hReader);
    EXPECT_EQ(End(Start("last 1 8")), 0u);
    EXPECT_EQ(home.List(L"log").size(), 3u);
    std::map<std::string, std::vector<int>> written = Written();
    for (const char* lpTag : { "w0", "w1", "w2" }) {
        EXPECT_EQ(written[lpTag], OneTo(300)) << lpTag;
    }
}

// A process stopped in a debugger holds the lock: the others' lines arrive all the same.
TEST_F(Writers, AnOwnerThatDoesNotAnswerHoldsUpNobody)
{
    HANDLE hOwner = nullptr;
    HANDLE hWriter = nullptr;

    SetEvent(hGo);
    EXPECT_EQ(End(Start("first 1 64")), 0u);
    hOwner = HoldLock();
    ASSERT_NE(hOwner, nullptr);
    hWriter = Start("late 50 64");
    EXPECT_EQ(End(hWriter), 0u);
    ReleaseMutex(hOwner);
    CloseHandle(hOwner);
    std::map<std::string, std::vector<int>> written = Written();
    EXPECT_EQ(written["late"], OneTo(50));
}

}  // namespace
