// Several processes write one trace log. What a call returned for is in the files: whole, once, and in the order of its
// process.
#include "process/tnwlog_writer.h"
#include "support/patience.h"
#include "support/seed.h"
#include "unit/tnwlog_fixture.h"
#include <algorithm>
#include <iostream>
#include <map>
#include <numeric>
#include <random>
#include <stdlib.h>

namespace {

using Numbers = std::map<std::string, std::vector<int>>;

std::wstring FileName(int nGeneration)
{
    return nGeneration != 0 ? L"diskperf." + std::to_wstring(nGeneration) + L".log" : L"diskperf.log";
}

std::vector<int> Range(int nFirst, int nLast)
{
    std::vector<int> numbers(static_cast<size_t>(nLast - nFirst + 1));

    std::iota(numbers.begin(), numbers.end(), nFirst);
    return numbers;
}

bool IsLong()
{
    return getenv("DKPF_TEST_LONG") != nullptr;
}

// A writer's report, there before the writer starts.
class Report {
public:
    explicit Report(const std::string& tag)
        : m_hSection(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(WriterReport),
                                        (WRITER_REPORT + tag).c_str())),
          m_lpReport(static_cast<WriterReport*>(MapViewOfFile(m_hSection, FILE_MAP_READ, 0, 0, sizeof(WriterReport))))
    {
    }
    ~Report()
    {
        UnmapViewOfFile(m_lpReport);
        CloseHandle(m_hSection);
    }
    const WriterReport* operator->() const
    {
        return m_lpReport;
    }

private:
    HANDLE        m_hSection;
    WriterReport* m_lpReport;
};

class Writers : public TnwLogTest {
protected:
    Writers() : hGo(CreateEventA(nullptr, TRUE, FALSE, WRITERS_GO))
    {
        program = home.Install(L"tnwlog_writer.exe");
    }
    ~Writers() override
    {
        CloseHandle(hGo);
    }

    // Both handles are the caller's.
    PROCESS_INFORMATION StartWithThread(const std::string& arguments)
    {
        std::wstring        line = L"\"" + program + L"\" " + std::wstring(arguments.begin(), arguments.end());
        STARTUPINFOW        start = {};
        PROCESS_INFORMATION process = {};

        start.cb = sizeof start;
        EXPECT_TRUE(Created([&] {
            return CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start,
                                  &process);
        })) << GetLastError();
        return process;
    }

    HANDLE Start(const std::string& arguments)
    {
        const PROCESS_INFORMATION process = StartWithThread(arguments);

        CloseHandle(process.hThread);
        return process.hProcess;
    }

    static DWORD End(HANDLE hProcess)
    {
        DWORD dwCode = 0xFFFFFFFF;

        EXPECT_EQ(WaitForSingleObject(hProcess, 800000), WAIT_OBJECT_0);
        GetExitCodeProcess(hProcess, &dwCode);
        CloseHandle(hProcess);
        return dwCode;
    }

    // The numbers each writer got into the files, oldest generation first. torn: all that is no whole line.
    Numbers Written()
    {
        Numbers numbers;

        torn.clear();
        for (int n = 15; n >= 0; n--) {
            for (const std::string& line : Lines(home.Read((L"log\\" + FileName(n)).c_str()))) {
                char   szTag[16] = "", szRest[2] = "";
                int    nNumber = 0;
                size_t at = line.find(" 0x0004 w(1) Writer:");
                if (at == std::string::npos || line.compare(0, 2, "20") != 0 ||
                    sscanf(line.c_str() + at + 20, "%15s %d%1s", szTag, &nNumber, szRest) != 2) {
                    torn.push_back(line);
                } else {
                    numbers[szTag].push_back(nNumber);
                }
            }
        }
        return numbers;
    }

    // Each file got its last line while it was below the bound, and each older one was left only at its bound.
    void ExpectSizes(size_t bound)
    {
        for (const std::wstring& name : home.List(L"log")) {
            const std::string text = home.Read((L"log\\" + name).c_str());
            const size_t      lastLine = text.rfind("\r\n", text.size() - 3) + 2;
            EXPECT_LT(lastLine, bound) << std::string(name.begin(), name.end());
            EXPECT_TRUE(text.size() >= bound || name == L"diskperf.log") << std::string(name.begin(), name.end());
        }
    }

    void ClearLogs()
    {
        home.Remove(L"log");
        home.MakeFolder(L"log");
    }

    std::vector<std::string> torn;
    std::wstring             program;
    HANDLE                   hGo;
};

// The bound leaves room for 12 and a half files, so that some digits more in a process number do not matter.
TEST_F(Writers, EightProcessesLoseTearAndReorderNothingOverManyRotations)
{
    const int           nLines = IsLong() ? 50000 : 5000;
    const size_t        lineSize = IsLong() ? 62 : 61;
    const size_t        bound = 8 * static_cast<size_t>(nLines) * lineSize * 2 / 25 / 1024;  // KiB
    std::vector<HANDLE> writers;

    for (int n = 0; n < 8; n++) {
        writers.push_back(Start("w" + std::to_string(n) + " " + std::to_string(nLines) + " " + std::to_string(bound)));
    }
    SetEvent(hGo);
    for (HANDLE hWriter : writers) {
        EXPECT_EQ(End(hWriter), 0u);
    }
    Numbers written = Written();
    EXPECT_EQ(torn, std::vector<std::string>());
    ASSERT_EQ(written.size(), 8u);
    for (const auto& writer : written) {
        EXPECT_TRUE(writer.second == Range(1, nLines)) << writer.first << ": " << writer.second.size();
    }
    ExpectSizes(bound * 1024);
    // Each rotation left one generation, and none was deleted. With fewer the case would not show what it is for.
    const size_t rotations = home.List(L"log").size() - 1;
    std::cout << "8 processes, " << nLines << " lines each, " << rotations << " rotations" << std::endl;
    EXPECT_GE(rotations, 10u);
    EXPECT_LE(rotations, 14u);
}

// Killed from outside, wherever it is just then. DKPF_TEST_SEED repeats the moments, as far as they can be.
TEST_F(Writers, AKilledWriterLosesNoLineWhoseCallHadReturned)
{
    const unsigned seed = TestSeed();
    std::mt19937   random(seed);

    SetEvent(hGo);
    for (int round = 0; round < (IsLong() ? 40 : 5); round++) {
        const LONG   lKillBehind = static_cast<LONG>(random() % 1500 + 1);
        const Report report("k");
        const HANDLE hOther = Start("o 400 64"), hKilled = Start("k 9000 64");

        EXPECT_TRUE(Eventually([&] { return report->returned >= lKillBehind; }));
        EXPECT_TRUE(TerminateProcess(hKilled, WRITER_DIED));
        EXPECT_EQ(End(hKilled), WRITER_DIED);
        EXPECT_EQ(End(hOther), 0u);
        EXPECT_EQ(End(Start("behind 10 64")), 0u);

        Numbers    written = Written();
        const LONG lReturned = report->returned, lWritten = static_cast<LONG>(written["k"].size());
        ASSERT_GE(lWritten, lReturned);
        ASSERT_LE(lWritten, lReturned + 1);  // the line whose call it died in may be there or not
        ASSERT_TRUE(written["k"] == Range(1, lWritten));
        ASSERT_EQ(written["o"], Range(1, 400));
        ASSERT_EQ(written["behind"], Range(1, 10));
        // And if a part of that line is there, it stands alone.
        ASSERT_LE(torn.size(), lWritten == lReturned ? 1u : 0u);
        ClearLogs();
    }
}

// A process dies in place of each system call of a line that rotates, in turn. Two others go on: one that was writing
// before, and one that starts afterwards.
class KilledInRotation : public Writers {
protected:
    void KillAtEachCall(int nGenerations)
    {
        int nCall = 0;

        SetEvent(hGo);
        for (DWORD dwCode = WRITER_DIED; dwCode == WRITER_DIED;) {
            Prepare(nGenerations);
            const HTNWLOG hOpen = Open();
            Put(hOpen, "before 1");  // its handle leads to the file that is to be rotated now
            dwCode = End(Start("k 2 1 die-at-call " + std::to_string(++nCall)));
            Put(hOpen, "open 1");
            const HTNWLOG hNew = Open();
            for (int n = 1; n <= 40; n++) {
                Put(hNew, "new " + std::to_string(n));
            }
            api->log_term(hOpen);
            api->log_term(hNew);
            ExpectHealed(nGenerations, nCall, dwCode);
        }
        std::cout << nCall - 1 << " system calls to die at, " << nGenerations << " generations" << std::endl;
        EXPECT_GT(nCall, nGenerations + 10);
    }

private:
    // A generation holds the line "gen <number>", the current file has room for two lines ("before 1", "k 1").
    void Prepare(int nGenerations)
    {
        ClearLogs();
        for (int n = 1; n <= nGenerations; n++) {
            home.Write((L"log\\" + FileName(n)).c_str(), Line("gen " + std::to_string(n), 1030));
        }
        home.Write(L"log\\diskperf.log", Line("full 1", 920));
    }

    static std::string Line(const std::string& text, size_t size)
    {
        std::string line = "2026/03/07 14:05:09.042 1:1 0x0004 w(1) Writer:" + text;
        line.resize(size - 2, ' ');
        return line + "\r\n";
    }

    HTNWLOG Open()
    {
        HTNWLOG hLog = nullptr;
        EXPECT_EQ(api->log_init("diskperf", &hLog, TNWLOG_NOTICE, 1, 0, "key"), TNWLOG_OK);
        return hLog;
    }

    void Put(HTNWLOG hLog, const std::string& text)
    {
        api->log_write(hLog, TNWLOG_NOTICE, 0, "w", 1, "Writer", "%s", text.c_str());
    }

    void ExpectHealed(int nGenerations, int nCall, DWORD dwCode)
    {
        const Names      files = home.List(L"log");
        Numbers          written = Written();
        std::vector<int> generations = Range(1, nGenerations);

        std::reverse(generations.begin(), generations.end());
        // Three rotations since: that of the line it died in, whoever did it, and two of "new".
        while (static_cast<int>(generations.size()) > 15 - 3) {
            generations.erase(generations.begin());
        }
        EXPECT_EQ(torn, std::vector<std::string>()) << nCall;
        EXPECT_EQ(written["gen"], generations) << nCall;
        EXPECT_EQ(written["full"], Range(1, 1)) << nCall;
        EXPECT_EQ(written["before"], Range(1, 1)) << nCall;
        EXPECT_EQ(written["open"], Range(1, 1)) << nCall;
        EXPECT_EQ(written["new"], Range(1, 40)) << nCall;
        ASSERT_GE(written["k"].size(), 1u) << nCall;
        EXPECT_EQ(written["k"], Range(1, static_cast<int>(written["k"].size()))) << nCall;
        EXPECT_TRUE(dwCode == WRITER_DIED || written["k"].size() == 2) << nCall;
        // No gap, nothing put aside, nothing beyond the fifteen.
        Names expected;
        for (size_t n = 0; n < files.size(); n++) {
            expected.push_back(FileName(static_cast<int>(n)));
        }
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(files, expected) << nCall;
        EXPECT_LE(files.size(), 16u) << nCall;
        ExpectSizes(1024);
    }
};

TEST_F(KilledInRotation, TheNextWriterHealsWhereverItDied)
{
    KillAtEachCall(3);
}

// The oldest has to go.
TEST_F(KilledInRotation, TheNextWriterHealsWhereverItDiedWithAllGenerationsThere)
{
    KillAtEachCall(15);
}

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
    Numbers written = Written();
    EXPECT_EQ(torn, std::vector<std::string>());
    for (const char* lpTag : { "w0", "w1", "w2" }) {
        EXPECT_EQ(written[lpTag], Range(1, 300)) << lpTag;
    }
    EXPECT_EQ(written["last"], Range(1, 1));
}

// As in a debugger: the process that has the lock stands still in the middle of its line. Others wait for it once, half
// a second at most, and their lines arrive; so does its own when it goes on.
TEST_F(Writers, ASuspendedOwnerOfTheLockDelaysAWriterOnceAndAtMostHalfASecond)
{
    const HANDLE hStands = CreateEventA(nullptr, TRUE, FALSE, WRITER_STANDS);
    const Report report("late");

    SetEvent(hGo);
    const PROCESS_INFORMATION owner = StartWithThread("owner 3 64 stand-in-write");
    ASSERT_EQ(WaitForSingleObject(hStands, PATIENCE_MS), WAIT_OBJECT_0);
    EXPECT_EQ(End(Start("late 50 64 bounded")), 0u);
    Numbers written = Written();
    EXPECT_EQ(written["late"], Range(1, 50));
    EXPECT_EQ(written["owner"], Range(1, 2));
    EXPECT_GT(report->longestWait, 0);
    EXPECT_LE(report->longestWait, 500);
    EXPECT_LE(report->waited,
              500 + 49 * 100);  // behind the first line at most the others without the lock are waited for

    // It says that it stands just before it does.
    EXPECT_TRUE(Eventually([&] { return ResumeThread(owner.hThread) > 0; }));
    EXPECT_EQ(End(owner.hProcess), 0u);
    EXPECT_EQ(End(Start("behind 1 64")), 0u);
    written = Written();
    EXPECT_EQ(torn, std::vector<std::string>());
    EXPECT_EQ(written["late"], Range(1, 50));
    EXPECT_EQ(written["owner"], Range(1, 3));
    EXPECT_EQ(written["behind"], Range(1, 1));
    CloseHandle(owner.hThread);
    CloseHandle(hStands);
}

}  // namespace
