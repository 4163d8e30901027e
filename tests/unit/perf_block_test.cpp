/*
 * The walker of performance data: blocks of several shapes, cut at each length and damaged at random.
 */
#include <gmock/gmock.h>
#include <random>

#include "perf_block.h"
#include "support/guarded_buffer.h"
#include "support/perf_block_builder.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::HasSubstr;
namespace build = perf_block_builder;

namespace {

const std::vector<build::Counter> COUNTERS = { { 2002, 2003, -5, PERF_COUNTER_LARGE_RAWCOUNT, 8 },
                                               { 2004, 2005, 2, PERF_COUNTER_RAWCOUNT, 4 } };

build::Bytes WithInstances()
{
    const std::vector<build::Instance> instances = { { L"_Total", { 0xFFFFFFFFFFFFFFFFull, 7 } },
                                                     { L"NMP1", { 12, 0xFFFFFFFFull } } };
    return build::Object(2000, 2001, COUNTERS, &instances);
}

build::Bytes WithoutInstances()
{
    return build::Object(300, 301, COUNTERS, nullptr, { 5, 6 });
}

build::Bytes Both(size_t gap = 0)
{
    return build::Block({ WithoutInstances(), WithInstances() }, gap);
}

/* Reads with a page behind, and one before, that faults. */
PerfBlock Walk(const build::Bytes& bytes)
{
    GuardedBuffer before(bytes.size(), GuardedBuffer::Guard::Before);
    GuardedBuffer behind(bytes.size(), GuardedBuffer::Guard::Behind);
    memcpy(before.Data(), bytes.data(), bytes.size());
    memcpy(behind.Data(), bytes.data(), bytes.size());
    const PerfBlock block = WalkPerfBlock(behind.Data(), bytes.size());
    EXPECT_EQ(WalkPerfBlock(before.Data(), bytes.size()).damage, block.damage);
    return block;
}

/* What WithInstances() holds. */
void ExpectInstances(const PerfObject& ours)
{
    EXPECT_EQ(ours.nameIndex, 2000u);
    EXPECT_EQ(ours.helpIndex, 2001u);
    EXPECT_TRUE(ours.hasInstances);
    ASSERT_EQ(ours.counters.size(), 2u);
    EXPECT_EQ(ours.counters[0].nameIndex, 2002u);
    EXPECT_EQ(ours.counters[0].helpIndex, 2003u);
    EXPECT_EQ(ours.counters[0].scale, -5);
    EXPECT_EQ(ours.counters[0].type, static_cast<DWORD>(PERF_COUNTER_LARGE_RAWCOUNT));
    EXPECT_EQ(ours.counters[0].size, 8u);
    EXPECT_EQ(ours.counters[1].scale, 2);
    ASSERT_EQ(ours.instances.size(), 2u);
    EXPECT_EQ(ours.instances[0].name, L"_Total");
    EXPECT_EQ(ours.instances[0].uniqueId, PERF_NO_UNIQUE_ID);
    EXPECT_THAT(ours.instances[0].values, ElementsAre(0xFFFFFFFFFFFFFFFFull, 7u));
    EXPECT_EQ(ours.instances[1].name, L"NMP1");
    EXPECT_THAT(ours.instances[1].values, ElementsAre(12u, 0xFFFFFFFFull));
}

void ExpectBoth(const PerfBlock& block)
{
    EXPECT_EQ(block.damage, "");
    ASSERT_EQ(block.objects.size(), 2u);
    const PerfObject& bare = block.objects[0];
    EXPECT_EQ(bare.nameIndex, 300u);
    EXPECT_FALSE(bare.hasInstances);
    ASSERT_EQ(bare.instances.size(), 1u);
    EXPECT_EQ(bare.instances[0].name, L"");
    EXPECT_THAT(bare.instances[0].values, ElementsAre(5u, 6u));
    ExpectInstances(block.objects[1]);
}

/* The block with one DWORD changed. */
build::Bytes Changed(build::Bytes bytes, size_t offset, DWORD value)
{
    memcpy(bytes.data() + offset, &value, sizeof(value));
    return bytes;
}

constexpr size_t OBJECT = sizeof(PERF_DATA_BLOCK);
constexpr size_t COUNTER = OBJECT + sizeof(PERF_OBJECT_TYPE);
constexpr size_t INSTANCE = COUNTER + 2 * sizeof(PERF_COUNTER_DEFINITION);
constexpr size_t VALUES =
    INSTANCE + sizeof(PERF_INSTANCE_DEFINITION) + 16;  // "_Total" and its NUL, made a multiple of 8

build::Bytes One()
{
    return build::Block({ WithInstances() });
}

}  // namespace

TEST(PerfBlock, ObjectsWithAndWithoutInstancesAndCountersOfBothSizes)
{
    ExpectBoth(Walk(Both()));
}

TEST(PerfBlock, ObjectsBehindTheGapThatTheLengthDoesNotCount)
{
    ExpectBoth(Walk(Both(sizeof(PERF_DATA_BLOCK))));
}

// The computer's name follows the block's header, and a later system may make every record longer than it is today.
TEST(PerfBlock, EachStepTakesTheLengthThatTheBlockGives)
{
    build::Bytes bytes = One();
    const auto   longer = [&](size_t at, size_t extra, const std::vector<size_t>& lengths) {
        bytes.insert(bytes.begin() + static_cast<ptrdiff_t>(at), extra, 0xA5);
        for (const size_t length : lengths) {
            DWORD value = 0;
            memcpy(&value, bytes.data() + length, sizeof(value));
            bytes = Changed(bytes, length, value + static_cast<DWORD>(extra));
        }
    };
    const size_t all = offsetof(PERF_DATA_BLOCK, TotalByteLength);
    const size_t object = OBJECT + offsetof(PERF_OBJECT_TYPE, TotalByteLength);
    const size_t definitions = OBJECT + offsetof(PERF_OBJECT_TYPE, DefinitionLength);
    // From the back, so that what lies in front stays in its place.
    longer(VALUES + 24, 8, { VALUES, object, all });
    longer(INSTANCE + sizeof(PERF_INSTANCE_DEFINITION), 8,
           { INSTANCE + offsetof(PERF_INSTANCE_DEFINITION, NameOffset), INSTANCE, object, all });
    longer(INSTANCE, 8, { COUNTER + sizeof(PERF_COUNTER_DEFINITION), definitions, object, all });
    longer(COUNTER + sizeof(PERF_COUNTER_DEFINITION), 16, { COUNTER, definitions, object, all });
    longer(COUNTER, 8, { OBJECT + offsetof(PERF_OBJECT_TYPE, HeaderLength), definitions, object, all });
    longer(OBJECT, 24, { offsetof(PERF_DATA_BLOCK, HeaderLength), all });
    const PerfBlock block = Walk(bytes);
    EXPECT_EQ(block.damage, "");
    ASSERT_EQ(block.objects.size(), 1u);
    ExpectInstances(block.objects[0]);
}

TEST(PerfBlock, WhatLiesInFrontOfADamageIsKeptBehindAGapToo)
{
    for (const size_t gap : { size_t{ 0 }, sizeof(PERF_DATA_BLOCK) }) {
        const PerfBlock block = Walk(Changed(Both(gap), offsetof(PERF_DATA_BLOCK, NumObjectTypes), 3));
        EXPECT_EQ(block.damage, "object 2 of 3: it does not fit the block") << gap;
        EXPECT_EQ(block.objects.size(), 2u) << gap;
    }
}

TEST(PerfBlock, SlackBehindTheBlockIsNoPartOfIt)
{
    build::Bytes bytes = Both();
    bytes.resize(bytes.size() + 1000, 0xA5);
    ExpectBoth(Walk(bytes));
}

TEST(PerfBlock, ABlockWithoutObjectsIsWhole)
{
    const PerfBlock block = Walk(build::Block({}));
    EXPECT_EQ(block.damage, "");
    EXPECT_TRUE(block.objects.empty());
}

TEST(PerfBlock, CutAtEachLengthItIsDamagedAndNothingBehindIsRead)
{
    for (const size_t gap : { size_t{ 0 }, sizeof(PERF_DATA_BLOCK) }) {
        const build::Bytes whole = Both(gap);
        for (size_t length = 0; length < whole.size(); length++) {
            build::Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
            EXPECT_NE(Walk(cut).damage, "") << length;
            // The same with lengths that agree with what is there.
            if (length >= sizeof(PERF_DATA_BLOCK) + gap) {
                cut = Changed(cut, offsetof(PERF_DATA_BLOCK, TotalByteLength), static_cast<DWORD>(length - gap));
                EXPECT_NE(Walk(cut).damage, "") << length << " with its length";
            }
        }
    }
}

TEST(PerfBlock, EachDamageIsSaidInWords)
{
    struct {
        size_t      offset;
        DWORD       value;
        const char* words;
    } const cases[] = {
        { 0, 0, "does not start with PERF" },
        { offsetof(PERF_DATA_BLOCK, HeaderLength), 87, "the block's lengths contradict each other (header 87," },
        { offsetof(PERF_DATA_BLOCK, HeaderLength), 0xFFFFFFFF, "contradict" },
        { offsetof(PERF_DATA_BLOCK, TotalByteLength), 0xFFFFFFFF, "contradict" },
        { offsetof(PERF_DATA_BLOCK, NumObjectTypes), 0xFFFFFFFF, "object 1 of 4294967295: it does not fit the block" },
        { OBJECT + offsetof(PERF_OBJECT_TYPE, TotalByteLength), 0xFFFFFFFF,
          "object 0 of 1: it does not fit the block" },
        { OBJECT + offsetof(PERF_OBJECT_TYPE, TotalByteLength), 0, "its lengths contradict" },
        { OBJECT + offsetof(PERF_OBJECT_TYPE, HeaderLength), 0, "its lengths contradict" },
        { OBJECT + offsetof(PERF_OBJECT_TYPE, DefinitionLength), 8, "its lengths contradict" },
        { OBJECT + offsetof(PERF_OBJECT_TYPE, NumInstances), 0xFFFFFFFE, "it says it has -2 instances" },
        { OBJECT + offsetof(PERF_OBJECT_TYPE, NumInstances), 0x7FFFFFFF, "instance 2 of 2147483647 does not fit" },
        { OBJECT + offsetof(PERF_OBJECT_TYPE, NumCounters), 0xFFFFFFFF, "counter definition 2 of 4294967295 does not" },
        { COUNTER + offsetof(PERF_COUNTER_DEFINITION, ByteLength), 0, "counter definition 0 of 2 does not fit" },
        { COUNTER + offsetof(PERF_COUNTER_DEFINITION, ByteLength), 0xFFFFFFF8, "counter definition 0 of 2 does not" },
        { COUNTER + offsetof(PERF_COUNTER_DEFINITION, CounterOffset), 0xFFFFFFFC, "counter 0 of instance 0 lies" },
        { COUNTER + offsetof(PERF_COUNTER_DEFINITION, CounterOffset), 24, "counter 0 of instance 0 lies outside" },
        { COUNTER + offsetof(PERF_COUNTER_DEFINITION, CounterSize), 0xFFFFFFFF, "counter 0 of instance 0 lies" },
        { INSTANCE + offsetof(PERF_INSTANCE_DEFINITION, ByteLength), 0, "instance 0 of 2 does not fit" },
        { INSTANCE + offsetof(PERF_INSTANCE_DEFINITION, ByteLength), 0xFFFFFFF8, "instance 0 of 2 does not fit" },
        { INSTANCE + offsetof(PERF_INSTANCE_DEFINITION, NameOffset), 0xFFFFFFFF, "the name of instance 0 lies" },
        { INSTANCE + offsetof(PERF_INSTANCE_DEFINITION, NameLength), 18, "the name of instance 0 lies outside" },
        { INSTANCE + offsetof(PERF_INSTANCE_DEFINITION, NameLength), 13, "the name of instance 0 lies outside" },
        { VALUES, 0, "the counter block of instance 0 does not fit" },
        { VALUES, 0x10000, "the counter block of instance 0 does not fit" },
    };
    for (const auto& each : cases)
        EXPECT_THAT(Walk(Changed(One(), each.offset, each.value)).damage, HasSubstr(each.words));
}

TEST(PerfBlock, ACounterOfAnotherSizeCountsAsZeroAndMovesNothing)
{
    const std::vector<build::Counter> counters = { { 2, 3, 0, PERF_SIZE_ZERO, 0 },
                                                   { 4, 5, 0, PERF_SIZE_VARIABLE_LEN, 2 },
                                                   { 6, 7, 0, PERF_COUNTER_LARGE_RAWCOUNT, 8 } };
    const PerfBlock block = Walk(build::Block({ build::Object(10, 11, counters, nullptr, { 9, 7, 8 }) }));
    ASSERT_EQ(block.objects.size(), 1u);
    EXPECT_THAT(block.objects[0].instances[0].values, ElementsAre(0u, 0u, 8u));
}

TEST(PerfBlock, RandomDamageIsNeverReadOutside)
{
    const unsigned seed = 20260307;
    std::mt19937   random(seed);
    size_t         damaged = 0;
    for (int round = 0; round < 4000; round++) {
        build::Bytes bytes = Both(round % 2 == 0 ? 0 : sizeof(PERF_DATA_BLOCK));
        for (unsigned changes = 1 + random() % 4; changes != 0; changes--) {
            static const DWORD ODD[] = { 0, 1, 8, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFFFFF8 };
            const DWORD        value = random() % 2 == 0 ? ODD[random() % ARRAYSIZE(ODD)] : random() % 512;
            bytes = Changed(bytes, random() % (bytes.size() / 4) * 4, value);
        }
        damaged += Walk(bytes).damage.empty() ? 0u : 1u;
    }
    // Most fields are lengths, counts and indexes; a walker that accepts nearly all checks nothing.
    EXPECT_GT(damaged, 1000u) << "seed " << seed;
    EXPECT_LT(damaged, 4000u) << "seed " << seed;
}
