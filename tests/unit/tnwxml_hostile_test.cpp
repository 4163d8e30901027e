/*
 * What a hostile file costs: bytes read and memory taken, counted at the library's own calls of ReadFile and of the
 * allocator. Reading is bounded by size and number of reads, memory by a multiple of the largest file. And what a call
 * leaves behind that gets no memory.
 */
#include "unit/tnwxml_fixture.h"
#include <algorithm>
#include <malloc.h>

namespace {

constexpr size_t MIB = 1048576;
constexpr size_t BESIDES = 256 * 1024;  // the policy and its document, the parser's first pool

/* The library's allocations; the library runs in one thread here. */
struct Memory {
    size_t used = 0;
    size_t peak = 0;
    size_t blocks = 0;
    size_t calls = 0;
};
Memory             g_memory;
size_t             g_starveAt;  // the n-th allocation from here on gets nothing; 0: none
size_t             g_bytesRead;
bool               g_grows;  // a file of GROWING_BYTES fills every read, as one that is written to all the time
constexpr LONGLONG GROWING_BYTES = 7;

void Taken(void* block)
{
    if (block != nullptr) {
        g_memory.used += _msize(block);
        g_memory.peak = std::max(g_memory.peak, g_memory.used);
        g_memory.blocks++;
        g_memory.calls++;
    }
}

void* __cdecl CountedMalloc(size_t size)
{
    void* block = g_starveAt != 0 && --g_starveAt == 0 ? nullptr : malloc(size);
    Taken(block);
    return block;
}

void __cdecl CountedFree(void* block)
{
    if (block != nullptr) {
        g_memory.used -= _msize(block);
        g_memory.blocks--;
    }
    free(block);
}

BOOL WINAPI CountedReadFile(HANDLE file, void* buffer, DWORD size, DWORD* read, OVERLAPPED* overlapped)
{
    LARGE_INTEGER bytes = {};
    BOOL          done = ReadFile(file, buffer, size, read, overlapped);
    if (g_grows && GetFileSizeEx(file, &bytes) && bytes.QuadPart == GROWING_BYTES && g_bytesRead < 16 * MIB) {
        memset(buffer, ' ', size);
        *read = size;
        done = TRUE;
    }
    g_bytesRead += done ? *read : 0;
    return done;
}

std::string Repeat(const std::string& text, size_t times)
{
    std::string all;
    all.reserve(text.size() * times);
    for (size_t n = 0; n < times; n++) {
        all += text;
    }
    return all;
}

}  // namespace

class Hostile : public TnwXml {
protected:
    Hostile()
        : m_malloc(module, "msvcrt.dll", "malloc", CountedMalloc), m_free(module, "msvcrt.dll", "free", CountedFree),
          m_read(module, "kernel32.dll", "ReadFile", CountedReadFile)
    {
        m_policyBytes = home.Read(L"etc\\policy\\diskperf.xml").size();
        Finding("<root/>");  // what the run-time sets up once
    }

    // The finding about the file that is there, and what it cost. Nothing of it may be left.
    const XMLLIB_FINDING& Cost()
    {
        g_memory = {};
        g_bytesRead = 0;
        const XMLLIB_FINDING& finding = Check().finding;
        EXPECT_EQ(g_memory.used, 0u);
        EXPECT_EQ(g_memory.blocks, 0u);
        EXPECT_GT(g_memory.calls, 0u) << "nothing was counted";
        EXPECT_GE(g_bytesRead, m_policyBytes);
        return finding;
    }

    const XMLLIB_FINDING& Cost(const std::string& bytes)
    {
        Config(bytes);
        return Cost();
    }

    size_t FileBytesRead() const
    {
        return g_bytesRead - m_policyBytes;
    }

private:
    size_t     m_policyBytes = 0;
    ImportHook m_malloc;
    ImportHook m_free;
    ImportHook m_read;
};

// What is refused before the parser costs no more than the text itself.
struct Bomb {
    const char* name;
    std::string bytes;
    const char* words;
};

static std::vector<Bomb> Bombs()
{
    std::string entities = "<!DOCTYPE root [<!ENTITY a0 'ha'>";
    for (int n = 1; n < 30; n++) {
        entities += "<!ENTITY a" + std::to_string(n) + " '" + Repeat("&a" + std::to_string(n - 1) + ";", 10) + "'>";
    }
    std::string attributes;
    for (int n = 0; n < 65536; n++) {
        attributes += " a" + std::to_string(n) + "='1'";
    }
    return { { "entity_bomb", entities + "]><root>&a29;</root>", "DOCTYPE" },
             { "references_without_end", "<root>" + Repeat("&lol;", 200000) + "</root>", "no entities" },
             { "ten_thousand_levels", "<root>" + Repeat("<a>", 10000) + Repeat("</a>", 10000) + "</root>",
               "64 levels" },
             { "tags_that_are_never_closed", Repeat("<a>", 300000), "64 levels" },
             { "sixty_four_thousand_attributes", "<root" + attributes + "/>", "64 attributes" },
             { "nul_bytes", "<root>" + std::string(MIB - 20, '\0') + "</root>", "NUL" },
             { "overlong_utf8", "<root><!--" + Repeat("\xC0\xBC", 500000) + "--></root>", "not in UTF-8" },
             { "comments_that_do_not_end", "<root>" + Repeat("<!-- ", 200000), "-- before its end" },
             { "quotes_that_do_not_end", "<root a=\"" + std::string(MIB - 20, 'x'), "not closed" },
             { "a_tag_that_does_not_end", "<" + std::string(MIB - 20, 'r'), "cut off" } };
}

class BombTest : public Hostile, public testing::WithParamInterface<size_t> {};

INSTANTIATE_TEST_SUITE_P(File, BombTest, testing::Range(size_t{ 0 }, Bombs().size()),
                         [](const auto& param) { return std::string(Bombs()[param.param].name); });

TEST_P(BombTest, IsRefusedAtTheCostOfItsText)
{
    const Bomb            bomb = Bombs()[GetParam()];
    const XMLLIB_FINDING& finding = Cost(bomb.bytes);
    EXPECT_EQ(finding.dwStatus, XMLLIB_NOT_WELL_FORMED);
    EXPECT_NE(strstr(finding.szReason, bomb.words), nullptr) << finding.szReason;
    EXPECT_EQ(FileBytesRead(), 3 * bomb.bytes.size());  // it might just be being saved
    EXPECT_LE(g_memory.peak, bomb.bytes.size() + BESIDES);
}

TEST_F(Hostile, AHundredMebibytesAreNotRead)
{
    Config("<root/>");
    const HANDLE file =
        CreateFileW(home.Path(L"etc\\cluster.xml").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    LARGE_INTEGER size = {};
    size.QuadPart = 100 * MIB;
    ASSERT_NE(SetFilePointerEx(file, size, nullptr, FILE_BEGIN), 0);
    ASSERT_NE(SetEndOfFile(file), 0);
    CloseHandle(file);
    EXPECT_STREQ(Cost().szReason, "The file is larger than 1048576 bytes.");
    EXPECT_EQ(FileBytesRead(), 0u);
    EXPECT_LE(g_memory.peak, BESIDES);
}

TEST_F(Hostile, AFileThatGrowsWhileItIsReadIsReadToTheBoundAlone)
{
    const std::string small = "<root/>";
    ASSERT_EQ(small.size(), static_cast<size_t>(GROWING_BYTES));
    g_grows = true;
    const XMLLIB_FINDING& finding = Cost(small);
    g_grows = false;
    EXPECT_EQ(finding.dwStatus, XMLLIB_NOT_WELL_FORMED);
    EXPECT_STREQ(finding.szReason, "The file is larger than 1048576 bytes.");
    EXPECT_GT(FileBytesRead(), 3 * MIB);
    EXPECT_LE(FileBytesRead(), 3 * (MIB + 4096 + 8));  // three reads, each with the piece that passes the bound
    EXPECT_LE(g_memory.peak, 4 * MIB + BESIDES);       // a text that doubles, and its copy
}

// The largest trees that a file may make: the parser takes 96 bytes for an element and 64 for an attribute. A mebibyte
// of the smallest elements is 262,000 of them, one of the smallest attributes less.
TEST_F(Hostile, TheLargestTreesStayBelowFortyTimesTheFile)
{
    const std::string elements = "<root>" + Repeat("<a/>", (MIB - 13) / 4) + "</root>";
    std::string       attributed = "<a";
    for (int n = 0; n < 26; n++) {
        attributed += std::string(" ") + static_cast<char>('a' + n) + "=''";
    }
    const std::string attributes =
        "<root>" + Repeat(attributed + "/>", (MIB - 13) / (attributed.size() + 2)) + "</root>";
    const std::string texts = "<root>" + Repeat("<a>1</a>", (MIB - 13) / 8) + "</root>";

    for (const std::string& bytes : { elements, attributes, texts }) {
        ASSERT_LE(bytes.size(), MIB);
        EXPECT_EQ(Cost(bytes).dwStatus, XMLLIB_OK);
        EXPECT_EQ(FileBytesRead(), bytes.size());
        EXPECT_LE(g_memory.peak, 40 * MIB);
        EXPECT_GT(g_memory.peak, 4 * MIB) << "no tree was counted";
        EXPECT_TRUE(waits.empty());
    }
}

TEST_F(Hostile, AHugeAttributeCostsItsText)
{
    const std::string bytes = "<root a='" + std::string(MIB - 20, 'x') + "'/>";
    EXPECT_EQ(Cost(bytes).dwStatus, XMLLIB_OK);
    EXPECT_LE(g_memory.peak, bytes.size() + BESIDES);
}

TEST_F(Hostile, AnEditIsHeldToTheSameBounds)
{
    std::string text;
    Config("<root>" + Repeat("<a/>", (MIB - 100) / 4) + "</root>");
    g_memory = {};
    EXPECT_EQ(Edit({ { "/root/diskperf/log/level", "1" }, { "/root/diskperf/log/size", "64" } }, &text), XMLLIB_OK);
    EXPECT_EQ(g_memory.used, 0u);
    EXPECT_LE(g_memory.peak, 44 * MIB);  // tree, its text, the old text and the new one
    const std::string end = "<a/><diskperf><log><level>1</level><size>64</size></log></diskperf></root>";
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
}

/* ---- No memory ---- */

class Starved : public Hostile {
protected:
    Starved()
    {
        g_starveAt = 1;
        Check();  // what the run-time sets up at the first exception
    }

    // The call, once for each of its allocations, with nothing for that one: the status that says so, nothing left
    // behind, and the same call succeeds then. undo takes back what a call that succeeds leaves.
    void ExpectWhole(
        const std::function<DWORD()>& call, const std::function<void()>& undo = [] {})
    {
        for (size_t n = 1;; n++) {
            ASSERT_LT(n, 1000u);
            const size_t blocks = g_memory.blocks;
            g_starveAt = n;
            const DWORD status = call();
            const bool  starved = g_starveAt == 0;
            g_starveAt = 0;
            if (!starved) {
                EXPECT_EQ(status, XMLLIB_OK);
                EXPECT_GT(n, 3u) << "hardly anything was taken";
                undo();
                return;
            }
            ASSERT_EQ(status, XMLLIB_NO_MEMORY) << n;
            ASSERT_EQ(g_memory.blocks, blocks) << n;
            ASSERT_EQ(call(), XMLLIB_OK) << n;
            undo();
        }
    }
};

static const char NO_MEMORY[] = "There is not enough memory to read the files.";

TEST_F(Starved, APolicyIsLoadedWholeOrNotAtAll)
{
    ASSERT_EQ(init("diskperf"), XMLLIB_OK);
    ExpectWhole(
        [this] {
            const XMLLIB_STATUS status = load_policy("diskperf");
            EXPECT_TRUE(status == XMLLIB_OK || unload_policy("diskperf") == XMLLIB_WRONG_ORDER);
            return static_cast<DWORD>(status);
        },
        [this] { EXPECT_EQ(unload_policy("diskperf"), XMLLIB_OK); });
}

TEST_F(Starved, AConfigurationIsLoadedWholeOrNotAtAll)
{
    ASSERT_EQ(init("diskperf"), XMLLIB_OK);
    ASSERT_EQ(load_policy("diskperf"), XMLLIB_OK);
    ExpectWhole(
        [this] {
            const XMLLIB_STATUS status = load_config(XMLLIB_CONFIG_CLUSTER);
            EXPECT_TRUE(status == XMLLIB_OK || unload_config() == XMLLIB_WRONG_ORDER);
            return static_cast<DWORD>(status);
        },
        [this] { EXPECT_EQ(unload_config(), XMLLIB_OK); });
}

TEST_F(Starved, ACheckSaysSoAndReportsNothingElse)
{
    ExpectWhole([this] {
        const XMLLIB_REPORT& report = Check();
        if (report.finding.dwStatus != XMLLIB_OK) {
            XMLLIB_REPORT expected = {};
            expected.finding.dwStatus = XMLLIB_NO_MEMORY;
            strcpy(expected.finding.szReason, NO_MEMORY);
            EXPECT_EQ(memcmp(&report, &expected, sizeof(expected)), 0) << report.finding.szReason;
        }
        return report.finding.dwStatus;
    });
}

TEST_F(Starved, AnEditSaysSoAndWritesNothing)
{
    Config("<root><diskperf><log><level>7</level></log></diskperf></root>");
    ExpectWhole([this] {
        std::string text;
        const DWORD status = Edit({ { "/root/diskperf/log/level", "1" }, { "/root/diskperf/log/size", "64" } }, &text);
        EXPECT_STREQ(edit_finding.szReason, status == XMLLIB_OK ? "" : NO_MEMORY);
        EXPECT_STREQ(edit_finding.szKey, "");
        return status;
    });
}
