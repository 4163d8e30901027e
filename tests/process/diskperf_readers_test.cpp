/*
 * Many readers at once, started, closed and killed at random while the producer collects. DKPF_TEST_SEED repeats a
 * sequence of decisions; what the processes make of it is never twice the same.
 */
#include "process/provider_roles.h"
#include "support/seed.h"

#include <stdlib.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <thread>

/* Looks at the region's sampling time, without the region's mutex, so that it never waits for anybody. */
class SampleWatch {
public:
    SampleWatch()
    {
        mapping = OpenFileMappingA(FILE_MAP_READ, FALSE, DKPF_SHM_NAME);
        region = static_cast<const DKPF_SHM_INFO*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, DKPF_SHM_SIZE));
        if (region == nullptr) {
            throw std::runtime_error("no region to watch");
        }
        thread = std::thread([this] { Watch(); });
    }
    ~SampleWatch()
    {
        ended = true;
        thread.join();
        UnmapViewOfFile(region);
        CloseHandle(mapping);
    }
    SampleWatch(const SampleWatch&) = delete;
    SampleWatch& operator=(const SampleWatch&) = delete;

    std::atomic<unsigned> samples{ 0 };        // seen since the watch began
    std::atomic<DWORD>    longest{ 0 };        // between two samples seen one after the other, by their own ticks, ms
    std::atomic<DWORD>    longestUnseen{ 0 };  // between two looks of this thread, which does nothing but look, ms

private:
    void Watch()
    {
        const volatile DWORD& tick = region->sampling_time;
        DWORD                 last = tick;
        DWORD                 look = GetTickCount();
        while (!ended) {
            Sleep(20);
            const DWORD now = GetTickCount();
            const DWORD sample = tick;
            longestUnseen = std::max<DWORD>(longestUnseen, now - look);
            look = now;
            if (sample != last) {
                longest = std::max<DWORD>(longest, sample - last);
                last = sample;
                samples++;
            }
        }
    }

    HANDLE               mapping = NULL;
    const DKPF_SHM_INFO* region = nullptr;
    std::atomic<bool>    ended{ false };
    std::thread          thread;
};

class Readers : public ProviderRoles {
protected:
    static constexpr DWORD    INTERVAL_MS = 1000;  // between samples, as homes are configured
    static constexpr unsigned ROWS = 32;
    static constexpr unsigned READERS = ROWS + 2;  // two more, so that the full table is met too

    struct Reader {
        std::unique_ptr<Program> program;         // none: not started, or killed
        bool                     open = false;    // and so in the table
        std::string              told;            // what it has not answered yet
        bool                     doomed = false;  // is killed before it can answer
    };

    unsigned Below(unsigned n)
    {
        return random() % n;
    }

    void Tell(Reader& reader, const std::string& command)
    {
        reader.told = command;
        reader.program->Tell(command);
    }

    void Start(Reader& reader)
    {
        reader.program = std::make_unique<Program>(home.Path(L"bin\\diskperf_role.exe"));
        reader.told = "start";
        started++;
        numbersBack += dead.count(reader.program->Id());
    }

    void Kill(Reader& reader)
    {
        const DWORD id = reader.program->Id();
        reader.program->Kill();
        dead.insert(id);
        reader = Reader();  // lets go of the process, so that its number may come back
        killed++;
    }

    /* One random thing for each reader, all at the same time: of twelve, one dies, one dies in the middle of something,
     * two change sides, two rest, and the others collect. */
    void Act()
    {
        for (Reader& reader : readers) {
            if (reader.program == nullptr) {
                if (Below(2) == 0) {
                    Start(reader);
                }
                continue;
            }
            switch (Below(12)) {
            case 0:
                Kill(reader);
                break;
            case 1:
                reader.doomed = true;
                Tell(reader, !reader.open ? "open" : Below(2) == 0 ? "close" : "collect 0");
                break;
            case 2:
            case 3:
                Tell(reader, reader.open ? "close" : "open");
                break;
            case 4:
            case 5:
                break;
            default:
                Tell(reader, reader.open ? "collect 0" : "open");
            }
        }
    }

    void KillTheDoomed()
    {
        for (Reader& reader : readers) {
            if (reader.doomed) {
                Sleep(Below(4));  // anywhere in what it does
                midway++;
                Kill(reader);
            }
        }
    }

    /* Takes all answers. TRUE: at least one reader came past the sweep of the table. */
    bool HearAnswers()
    {
        bool swept = false;
        for (Reader& reader : readers) {
            if (reader.told.empty()) {
                continue;
            }
            const std::string answer = reader.program->Line();
            if (reader.told == "start") {
                EXPECT_EQ("READY", answer);
            } else if (reader.told == "open") {
                swept = true;
                reader.open = answer == "0";
                if (answer == "21") {
                    refused[reader.program->Id()]++;
                } else {
                    EXPECT_EQ("0", answer) << "an open failed for another reason than a full table";
                }
            } else if (reader.told == "close") {
                EXPECT_EQ("0", answer);
                reader.open = false;
            } else {
                EXPECT_EQ("0 15824 ", answer.substr(0, 8));
                collects++;
            }
            reader.told.clear();
        }
        return swept;
    }

    std::set<DWORD> Living() const
    {
        std::set<DWORD> ids;
        for (const Reader& reader : readers) {
            if (reader.program != nullptr) {
                ids.insert(reader.program->Id());
            }
        }
        return ids;
    }

    /* A process of that number runs, whoever it is. */
    static bool Runs(DWORD id)
    {
        DWORD        code = 0;
        const HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id);
        const bool   runs = process != NULL && GetExitCodeProcess(process, &code) && code == STILL_ACTIVE;
        if (process != NULL) {
            CloseHandle(process);
        }
        return runs;
    }

    /* Owners of rows, a number as often as it stands there. The wait for the mutex is bounded by patience alone. */
    static std::map<DWORD, unsigned> Rows()
    {
        const dkpf::RegionCopy    copy = dkpf::ReadRegion({ DKPF_SHM_NAME, DKPF_MUTEX_NAME, PATIENCE_MS });
        std::map<DWORD, unsigned> rows;
        if (copy.status != dkpf::RegionStatus::Copied) {
            throw std::runtime_error(copy.words);
        }
        for (DWORD row = 1; row < DKPF_PROC_MAX; row++) {
            if (copy.info->PMProcessID[row] != 0) {
                rows[copy.info->PMProcessID[row]]++;
            }
        }
        return rows;
    }

    /* deadBefore: killed before any open of this round; living: all that lived at some time of it. */
    void CheckRows(bool swept, const std::set<DWORD>& deadBefore, const std::set<DWORD>& living)
    {
        const auto                rows = Rows();
        std::map<DWORD, unsigned> own;
        for (const Reader& reader : readers) {
            if (reader.open) {
                own[reader.program->Id()] = 1;
                EXPECT_NE(0u, rows.count(reader.program->Id())) << "a living reader has lost its row";
            }
        }
        unsigned keptNow = 0;
        for (const auto& row : rows) {
            const DWORD id = row.first;
            if (deadBefore.count(id) != 0 && living.count(id) == 0) {
                EXPECT_TRUE(!swept || Runs(id)) << "process " << id << " is dead and has " << row.second << " rows";
            } else if (deadBefore.count(id) != 0) {
                keptNow += row.second - std::min(row.second, own.count(id) != 0 ? 1u : 0u);
            }
        }
        rowsKept = std::max(rowsKept, keptNow);
    }

    /* An open answers 21 for any failed start. The module log tells which: a line with the process's number. */
    void CheckRefusals() const
    {
        std::map<DWORD, unsigned> full;
        for (const std::wstring& file : home.List(L"log")) {
            if (file.compare(0, 9, L"diskperf.") != 0) {
                continue;  // the module log alone, with its older generations
            }
            for (const std::string& line : home.Lines((L"log\\" + file).c_str())) {
                unsigned long id = 0;
                if (line.find(" PMProcessID Table has no empty !") != std::string::npos &&
                    sscanf(line.c_str(), "%*s %*s %lu:", &id) == 1) {
                    full[id]++;
                }
            }
        }
        for (const auto& each : refused) {
            EXPECT_GE(full[each.first], each.second) << "process " << each.first;
        }
    }

    unsigned Refusals() const
    {
        unsigned count = 0;
        for (const auto& each : refused) {
            count += each.second;
        }
        return count;
    }

    void Round()
    {
        const std::set<DWORD> deadBefore = dead;
        const unsigned        refusedBefore = Refusals();
        std::set<DWORD>       living = Living();
        unsigned              mayHaveARow = rowsKept;
        for (const Reader& reader : readers) {
            mayHaveARow += reader.open;
        }
        Act();
        const std::set<DWORD> alsoLiving = Living();
        living.insert(alsoLiving.begin(), alsoLiving.end());
        for (const Reader& reader : readers) {
            mayHaveARow += reader.told == "open";
        }
        KillTheDoomed();
        const bool swept = HearAnswers();
        CheckRows(swept, deadBefore, living);
        // Whoever is turned away is one of them; the others must fill the table.
        if (Refusals() != refusedBefore) {
            EXPECT_GE(mayHaveARow, ROWS + 1) << "turned away although there were free rows";
        }
    }

    std::mt19937                random;
    std::array<Reader, READERS> readers;
    std::set<DWORD>             dead;     // numbers of killed readers
    std::map<DWORD, unsigned>   refused;  // opens answered by 21, by process
    size_t                      numbersBack = 0;
    unsigned                    started = 0, killed = 0, midway = 0, collects = 0;
    unsigned                    rowsKept = 0;  // of a dead reader whose number lives again, most at one time
};

// Thirty-two rows, thirty-four readers: none fails but for a full table, none loses its row, the dead keep none, and
// the producer collects on.
TEST_F(Readers, ComeGoAndDieAtRandom)
{
    const unsigned seed = TestSeed();
    const unsigned samples = getenv("DKPF_TEST_LONG") != nullptr ? 120 : 12;
    RecordProperty("seed", std::to_string(seed));
    random.seed(seed);

    const auto producer = StartCollecting();
    for (Reader& reader : readers) {
        Start(reader);
    }
    HearAnswers();
    for (Reader& reader : readers) {
        Tell(reader, "open");
    }
    HearAnswers();
    ASSERT_EQ(READERS - ROWS, Refusals());
    ASSERT_NO_FATAL_FAILURE(CheckRefusals());

    SampleWatch watch;
    unsigned    rounds = 0;
    unsigned    seen = 0;
    DWORD       lastNews = GetTickCount();
    while (seen < samples && !HasFailure()) {
        Round();
        rounds++;
        if (watch.samples != seen) {
            seen = watch.samples;
            lastNews = GetTickCount();
        }
        ASSERT_LT(GetTickCount() - lastNews, PATIENCE_MS) << "the producer stores nothing any more";
    }
    CheckRefusals();

    // All go; whoever comes then finds the table empty, but for numbers that live again.
    for (Reader& reader : readers) {
        if (reader.program != nullptr) {
            Kill(reader);
        }
    }
    const auto last = StartRole();
    EXPECT_EQ("0", last->Ask("open"));
    for (const auto& row : Rows()) {
        EXPECT_TRUE(row.first == last->Id() || Runs(row.first)) << row.first;
    }

    std::cout << rounds << " rounds, " << seen << " samples, " << started << " readers started, " << killed
              << " killed (" << midway << " of them midway), " << collects << " collects, " << Refusals()
              << " turned away, " << numbersBack << " process numbers came back, at most " << rowsKept
              << " rows kept by such a number; longest between samples " << watch.longest
              << " ms, longest that an idle thread waited for its turn " << watch.longestUnseen << " ms" << std::endl;
    // What the machine takes from everybody is not the readers' doing.
    EXPECT_LE(watch.longest, 3 * INTERVAL_MS + watch.longestUnseen);
    EXPECT_EQ(0, home.Events("0x800012C1"));
    EXPECT_EQ(0, home.Events("0xC00012C5"));
    EXPECT_EQ(DONE, producer->Ask("term"));
}
