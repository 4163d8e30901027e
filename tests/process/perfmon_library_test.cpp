/*
 * What a monitoring program gets from the system's Performance Library: the provider registered in the registry, never
 * loaded by hand, its block read by a walker that knows no object of ours.
 */
#include "process/provider_roles.h"

#include <gmock/gmock.h>

#include <winperf.h>
#include <string.h>
#include <algorithm>

using testing::Each;

typedef unsigned long long U64;

/* ---- A walker for any object ---- */

/* Nothing is read before it is known to lie in what was answered. */

struct Counter {
    DWORD name, help;
    LONG  scale;
    DWORD type, offset, size;
};
struct Instance {
    std::wstring     name;
    std::vector<U64> values;
};
struct Object {
    DWORD                 name, help, bytes;
    std::vector<Counter>  counters;
    std::vector<Instance> instances;
};

class Walker {
public:
    explicit Walker(const std::vector<BYTE>& answer) : bytes(answer)
    {
    }

    std::vector<Object> Objects() const
    {
        const auto          block = Get<PERF_DATA_BLOCK>(0, bytes.size());
        std::vector<Object> objects;
        size_t              at = block.HeaderLength;
        Demand(memcmp(block.Signature, L"PERF", 8) == 0, "signature");
        Demand(block.LittleEndian == 1 && block.Version == 1, "byte order or version");
        Demand(at >= sizeof(block) && at <= bytes.size(), "HeaderLength of the data");
        if (block.NumObjectTypes != 0 && Get<DWORD>(at, bytes.size()) == 0) {
            at += sizeof(PERF_DATA_BLOCK);  // Wine 8 leaves a gap
        }
        for (DWORD i = 0; i < block.NumObjectTypes; i++) {
            objects.push_back(OneObject(at));
            at += objects.back().bytes;
        }
        return objects;
    }

private:
    static void Demand(bool holds, const char* what)
    {
        if (!holds) {
            throw std::runtime_error(std::string("a damaged answer: ") + what);
        }
    }

    template <class Record> Record Get(size_t at, size_t end) const
    {
        Record record;
        Demand(end <= bytes.size() && at <= end && end - at >= sizeof(record), "a record reaches too far");
        memcpy(&record, &bytes[at], sizeof(record));
        return record;
    }

    Object OneObject(size_t at) const
    {
        const auto head = Get<PERF_OBJECT_TYPE>(at, bytes.size());
        Demand(head.TotalByteLength % 8 == 0 && head.TotalByteLength <= bytes.size() - at, "TotalByteLength");
        Demand(head.HeaderLength >= sizeof(head) && head.HeaderLength <= head.DefinitionLength &&
                   head.DefinitionLength <= head.TotalByteLength,
               "HeaderLength or DefinitionLength of an object");
        Object       object = { head.ObjectNameTitleIndex, head.ObjectHelpTitleIndex, head.TotalByteLength, {}, {} };
        const size_t end = at + head.TotalByteLength;
        size_t       next = at + head.HeaderLength;
        for (DWORD j = 0; j < head.NumCounters; j++) {
            const auto counter = Get<PERF_COUNTER_DEFINITION>(next, at + head.DefinitionLength);
            Demand(counter.ByteLength >= sizeof(counter) && counter.ByteLength % 8 == 0, "ByteLength of a counter");
            object.counters.push_back({ counter.CounterNameTitleIndex, counter.CounterHelpTitleIndex,
                                        counter.DefaultScale, counter.CounterType, counter.CounterOffset,
                                        counter.CounterSize });
            next += counter.ByteLength;
        }
        next = at + head.DefinitionLength;
        if (head.NumInstances == PERF_NO_INSTANCES) {
            object.instances.push_back({ L"", Values(object.counters, next, end) });
            return object;
        }
        for (LONG i = 0; i < head.NumInstances; i++) {
            const auto instance = Get<PERF_INSTANCE_DEFINITION>(next, end);
            Demand(instance.ByteLength >= sizeof(instance) && instance.ByteLength % 8 == 0 &&
                       instance.ByteLength <= end - next,
                   "ByteLength of an instance");
            Instance row = { Name(next, instance), {} };
            next += instance.ByteLength;
            row.values = Values(object.counters, next, end);
            next += Get<PERF_COUNTER_BLOCK>(next, end).ByteLength;
            object.instances.push_back(row);
        }
        return object;
    }

    /* NameLength counts the end of the name. */
    std::wstring Name(size_t at, const PERF_INSTANCE_DEFINITION& instance) const
    {
        std::wstring name(instance.NameLength / 2, L'?');
        Demand(instance.NameLength >= 2 && instance.NameLength % 2 == 0 && instance.NameOffset >= sizeof(instance) &&
                   instance.NameOffset <= instance.ByteLength &&
                   instance.NameLength <= instance.ByteLength - instance.NameOffset,
               "name of an instance");
        memcpy(&name[0], &bytes[at + instance.NameOffset], instance.NameLength);
        Demand(name.find(L'\0') == name.size() - 1, "end of a name");
        name.pop_back();
        return name;
    }

    std::vector<U64> Values(const std::vector<Counter>& counters, size_t at, size_t end) const
    {
        const auto       block = Get<PERF_COUNTER_BLOCK>(at, end);
        std::vector<U64> values;
        Demand(block.ByteLength >= sizeof(block) && block.ByteLength % 8 == 0 && block.ByteLength <= end - at,
               "ByteLength of a counter block");
        for (const Counter& counter : counters) {
            U64 value = 0;
            Demand(counter.size <= sizeof(value) && counter.offset >= sizeof(block) &&
                       counter.offset <= block.ByteLength && counter.size <= block.ByteLength - counter.offset,
                   "place of a value");
            memcpy(&value, &bytes[at + counter.offset], counter.size);
            values.push_back(value);
        }
        return values;
    }

    const std::vector<BYTE>& bytes;
};

/* ---- Cases ---- */

/* Counters that cases look at. */
enum { HISTORY = 9, DELTA = 11, RATE = 12 };

class PerformanceLibrary : public ProviderRoles {
protected:
    /* The objects of our number in the answer that another process gets. */
    static std::vector<Object> Ours(Program& program, const std::string& query)
    {
        const std::string   answer = program.Ask("query " + query);
        const size_t        blank = answer.find(' ');
        std::vector<BYTE>   bytes;
        std::vector<Object> ours;
        EXPECT_EQ("0", answer.substr(0, blank)) << query;
        for (size_t i = blank + 1; i + 1 < answer.size(); i += 2) {
            bytes.push_back(static_cast<BYTE>(std::stoul(answer.substr(i, 2), nullptr, 16)));
        }
        for (const Object& object : Walker(bytes).Objects()) {
            if (object.name == RegisteredProvider::FIRST_COUNTER) {
                ours.push_back(object);
            }
        }
        return ours;
    }

    /* Feeds so many bytes written to disk 5 since the start, and waits for the sample. */
    void Written(U64 bytes)
    {
        feed.driver.entry[4].write_bytes = bytes;
        driver.Feed(feed);
        AwaitFreshSample();
    }

    PerformanceLibrary()
    {
        feed.driver.entry[4].state = feed.filter.entry[4].state = VELCOR_STATE_INITIALIZED;
        feed.driver.entry[4].mode = feed.filter.entry[4].mode = VELCOR_MODE_SYNC;
        feed.driver.entry[4].history = 77;
    }
};

TEST_F(PerformanceLibrary, GlobalAndTheObjectsNumberReturnTheBlock)
{
    static const LONG scales[17] = { 0, -5, -5, -5, -5, 2, 2, -5, -5, -5, -5, -6, -6, -5, -5, 0, 0 };
    const auto        producer = StartCollecting();
    const auto        reader = StartRole();
    for (const char* query : { "Global", "2000", "236 2000" }) {
        const auto objects = Ours(*reader, query);
        ASSERT_EQ(1u, objects.size()) << query;
        const Object& object = objects[0];
        EXPECT_EQ(15824u, object.bytes);
        EXPECT_EQ(2001u, object.help);
        ASSERT_EQ(17u, object.counters.size());
        for (DWORD j = 0; j < 17; j++) {
            EXPECT_EQ(2000 + 2 * (j + 1), object.counters[j].name);
            EXPECT_EQ(2001 + 2 * (j + 1), object.counters[j].help);
            EXPECT_EQ(scales[j], object.counters[j].scale) << j;
            EXPECT_EQ(0x00010100u, object.counters[j].type);
            EXPECT_EQ(8u, object.counters[j].size);
        }
        ASSERT_EQ(65u, object.instances.size());
        for (size_t i = 0; i < 65; i++) {
            EXPECT_EQ(i == 0 ? L"_Total" : L"NMP" + std::to_wstring(i), object.instances[i].name);
            EXPECT_EQ(i == 0 || i == 5 ? 77u : 0u, object.instances[i].values[HISTORY]) << i;
        }
        EXPECT_EQ(std::vector<DWORD>(), Owners()) << "the system closes what it opened";
    }
}

TEST_F(PerformanceLibrary, OtherQueriesReturnNothingOfOurs)
{
    const auto producer = StartCollecting();
    const auto reader = StartRole();
    for (const char* query : { "Foreign", "Foreign 2000", "Costly", "236", "2002", "global" }) {
        EXPECT_EQ(0u, Ours(*reader, query).size()) << query;
    }
    ASSERT_EQ("0", reader->Ask("open"));  // nor where the provider stays open
    EXPECT_EQ(0u, Ours(*reader, "Foreign").size());
    EXPECT_EQ(0u, Ours(*reader, "Costly").size());
    EXPECT_EQ(1u, Ours(*reader, "Global").size());
    EXPECT_EQ("0", reader->Ask("close"));
}

// The system opens and closes for each query, so only a reader that holds the provider open has an interval.
TEST_F(PerformanceLibrary, AReaderThatHoldsTheProviderOpenSeesIntervals)
{
    const auto producer = StartCollecting();
    const auto holder = StartRole();
    const auto passer = StartRole();
    Written(1000000);
    ASSERT_EQ("0", holder->Ask("open"));
    for (const U64 step : { 5000000u, 4000001u, 0u }) {
        ASSERT_NO_FATAL_FAILURE(Written(feed.driver.entry[4].write_bytes + step));
        const auto held = Ours(*holder, "2000");
        const auto passed = Ours(*passer, "2000");
        ASSERT_EQ(1u, held.size());
        ASSERT_EQ(1u, passed.size());
        for (size_t row : { 0u, 5u }) {
            EXPECT_EQ(step, held[0].instances[row].values[DELTA]) << row;
            EXPECT_EQ(step != 0, held[0].instances[row].values[RATE] != 0) << row;
            EXPECT_EQ(0u, passed[0].instances[row].values[DELTA]) << row;
        }
        EXPECT_EQ(0u, held[0].instances[4].values[DELTA]);
        EXPECT_EQ((std::vector<DWORD>{ 0, holder->Id() }), Owners());
    }
    EXPECT_EQ("0", holder->Ask("close"));
    EXPECT_EQ(std::vector<DWORD>(), Owners());
}

TEST_F(PerformanceLibrary, WithoutAProducerTheQueryGoesOnWithoutUs)
{
    const auto reader = StartRole();
    EXPECT_EQ(0u, Ours(*reader, "Global").size());
    EXPECT_EQ(0u, Ours(*reader, "2000").size());
}
