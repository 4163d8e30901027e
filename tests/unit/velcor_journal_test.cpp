/* The journal's line, and the file it grows in. */
#include <gmock/gmock.h>

#include "files.h"
#include "journal.h"
#include "support/import_hooks.h"
#include "support/temp_folder.h"

TEST(Journal, ALineSaysWhenWhichDiskAndItsSums)
{
    const SYSTEMTIME time = { 2026, 3, 6, 7, 14, 5, 9, 42 };
    EXPECT_EQ("2026/03/07 14:05:09.042,3,nvme0n1,18446744073709551615,7,8000",
              JournalLine(time, { 3, "nvme0n1", 18446744073709551615ull, 7, 8000 }));
}

TEST(Journal, TheHeaderHasAColumnForEachValueOfALine)
{
    const SYSTEMTIME  time = {};
    const std::string header = JOURNAL_HEADER;
    const std::string line = JournalLine(time, { 1, "-", 0, 0, 0 });
    EXPECT_EQ(std::count(header.begin(), header.end(), ','), std::count(line.begin(), line.end(), ','));
}

TEST(Journal, TheOlderGenerationsNumberStandsBeforeTheExtension)
{
    EXPECT_EQ("C:\\a.b\\velcorfeed.1.journal", OlderGeneration("C:\\a.b\\velcorfeed.journal"));
    EXPECT_EQ("C:\\a.b\\plain.1", OlderGeneration("C:\\a.b\\plain"));
}

class GrowingFile : public testing::Test {
protected:
    std::string Text(const std::string& file)
    {
        std::string text;
        return ReadWholeFile(file, text) == 0 ? text : "(none)";
    }

    void Put(const std::string& text)
    {
        ASSERT_EQ(0u, ReplaceWholeFile(path, text));
    }

    TempFolder         home;
    const std::wstring wide = home.File(L"velcor.journal");
    const std::string  path{ wide.begin(), wide.end() };  // no letter beyond ASCII in it
};

TEST_F(GrowingFile, StartsWithItsHeaderAndShowsEachLineAtOnce)
{
    LineFile file(path, "head", 1000);
    EXPECT_EQ(0u, file.Write("one"));
    EXPECT_EQ("head\r\none\r\n", Text(path));
    EXPECT_EQ(0u, file.Write("two"));
    EXPECT_EQ("head\r\none\r\ntwo\r\n", Text(path));
}

TEST_F(GrowingFile, IsContinuedAfterARestart)
{
    LineFile(path, "head", 1000).Write("one");
    LineFile(path, "head", 1000).Write("two");
    EXPECT_EQ("head\r\none\r\ntwo\r\n", Text(path));
}

TEST_F(GrowingFile, AHalfLineOfACrashIsClosedFirst)
{
    Put("head\r\none\r\ntw");
    LineFile(path, "head", 1000).Write("three");
    EXPECT_EQ("head\r\none\r\ntw\r\nthree\r\n", Text(path));
}

TEST_F(GrowingFile, AnotherHeaderBeginsANewGeneration)
{
    Put("other\r\none\r\n");
    LineFile(path, "head", 1000).Write("two");
    EXPECT_EQ("head\r\ntwo\r\n", Text(path));
    EXPECT_EQ("other\r\none\r\n", Text(OlderGeneration(path)));
}

TEST_F(GrowingFile, StaysWithinItsBoundAndKeepsOneOlderGeneration)
{
    LineFile file(path, "head", 16);  // the header's 6 bytes and two lines of 5
    for (const char* line : { "aaa", "bbb", "ccc", "ddd", "eee" }) {
        EXPECT_EQ(0u, file.Write(line));
    }
    EXPECT_EQ("head\r\neee\r\n", Text(path));
    EXPECT_EQ("head\r\nccc\r\nddd\r\n", Text(OlderGeneration(path)));
}

TEST_F(GrowingFile, ALineLongerThanTheBoundIsWrittenAllTheSame)
{
    LineFile file(path, "head", 8);
    EXPECT_EQ(0u, file.Write("much longer than that"));
    EXPECT_EQ("head\r\nmuch longer than that\r\n", Text(path));
}

TEST_F(GrowingFile, AReaderThatForbidsRenamingDelaysTheRotationAndNoLine)
{
    LineFile file(path, "head", 16);
    file.Write("aaa");
    file.Write("bbb");
    HANDLE held =
        CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING, 0, NULL);
    ASSERT_NE(INVALID_HANDLE_VALUE, held);
    EXPECT_EQ(0u, file.Write("ccc"));
    EXPECT_EQ("head\r\naaa\r\nbbb\r\nccc\r\n", Text(path));
    CloseHandle(held);
    EXPECT_EQ(0u, file.Write("ddd"));
    EXPECT_EQ("head\r\nddd\r\n", Text(path));
    EXPECT_EQ("head\r\naaa\r\nbbb\r\nccc\r\n", Text(OlderGeneration(path)));
}

TEST_F(GrowingFile, AFolderThatIsMissingIsAnErrorUntilItIsThere)
{
    const std::string folder = path.substr(0, path.rfind('\\'));
    LineFile          file(path, "head", 100);
    ASSERT_TRUE(RemoveDirectoryA(folder.c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), file.Write("one"));
    ASSERT_TRUE(CreateDirectoryA(folder.c_str(), NULL));
    EXPECT_EQ(0u, file.Write("two"));
    EXPECT_EQ("head\r\ntwo\r\n", Text(path));
}

TEST_F(GrowingFile, ReplacingLeavesNoTraceOfTheNewFilesName)
{
    Put("one");
    Put("two");
    EXPECT_EQ("two", Text(path));
    EXPECT_EQ("(none)", Text(path + ".new"));
}

/* A disk that takes half of what it is given. */
static bool g_full;

static BOOL WINAPI WriteToFullDisk(HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped)
{
    // The hook stands in this program's own slot: what is passed on goes another way.
    static const auto write = reinterpret_cast<decltype(&WriteFile)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "WriteFile")));
    return write(file, bytes, g_full ? size / 2 : size, written, overlapped);
}

class FullDisk : public GrowingFile {
protected:
    FullDisk() : m_write(GetModuleHandleA(NULL), "kernel32.dll", "WriteFile", WriteToFullDisk)
    {
    }
    ~FullDisk() override
    {
        g_full = false;
    }

private:
    ImportHook m_write;
};

TEST_F(FullDisk, ALineThatFitsInPartIsTakenBack)
{
    LineFile file(path, "head", 1000);
    EXPECT_EQ(0u, file.Write("one"));
    g_full = true;
    EXPECT_EQ(DWORD{ ERROR_DISK_FULL }, file.Write("a longer line"));
    EXPECT_EQ("head\r\none\r\n", Text(path));
    g_full = false;
    EXPECT_EQ(0u, file.Write("two"));
    EXPECT_EQ("head\r\none\r\ntwo\r\n", Text(path));
}

TEST_F(FullDisk, AFileThatCannotBeReplacedStandsAsItWas)
{
    Put("old");
    g_full = true;
    EXPECT_EQ(DWORD{ ERROR_DISK_FULL }, ReplaceWholeFile(path, "new"));
    EXPECT_EQ("old", Text(path));
    EXPECT_EQ("(none)", Text(path + ".new"));
}

TEST_F(GrowingFile, AFileBeyondFourMebibytesIsNotRead)
{
    std::string text;
    Put(std::string(4u << 20, 'x'));
    EXPECT_EQ(0u, ReadWholeFile(path, text));
    EXPECT_EQ(4u << 20, text.size());
    Put(std::string((4u << 20) + 1, 'x'));
    EXPECT_EQ(DWORD{ ERROR_FILE_TOO_LARGE }, ReadWholeFile(path, text));
    EXPECT_EQ("", text);
}
