/*
 * The format of the shared region and of the two records that are copied in and out of it, byte by byte.
 */
#include "unit/region_fixture.h"

#include <string.h>

using namespace format;

class RegionLayout : public RegionTest {
protected:
    /* The region's bytes, all zero, attached as the owner of a row. */
    uint8_t* Attach(int nRow = 0)
    {
        uint8_t* raw = Raw(AttachRegion(nRow));
        log.ClearLines();
        return raw;
    }
    static DKPF_PARAM* Record(Bytes& sample)
    {
        return reinterpret_cast<DKPF_PARAM*>(sample.data());
    }
};

/* ---- Sizes and offsets ---- */

TEST_F(RegionLayout, SizesAndCounts)
{
    EXPECT_EQ(DKPF_SHM_SIZE, 0x34ED0u);
    EXPECT_EQ(DKPF_SHM_SIZE, 216784u);
    EXPECT_EQ(DKPF_NMP_MAX, 64u);
    EXPECT_EQ(DKPF_PARAM_NUM, 12u);
    EXPECT_EQ(DKPF_PARAMMAX_NUM, 7u);
    EXPECT_EQ(DKPF_PROC_MAX, 33u);
    EXPECT_EQ(DKPF_INSTANCE_SIZE, 520u);
    EXPECT_EQ(DKPF_PARAM_SIZE, 10168u);
    EXPECT_EQ(sizeof(DKPF_INST_SUB), 8u);
    EXPECT_EQ(sizeof(DKPF_INSTANCE), 520u);
    EXPECT_EQ(sizeof(DKPF_CONF), 36u);
    EXPECT_EQ(sizeof(DKPF_PARAM), 10168u);
    EXPECT_EQ(sizeof(DKPF_SHM_INFO), 216784u);
    EXPECT_STREQ(DKPF_SHM_NAME, "Global\\TNW_DKPF_SHM_INFO");
    EXPECT_STREQ(DKPF_MUTEX_NAME, "Global\\TNW_DKPF_MUTEX_INFO");
}

TEST_F(RegionLayout, OffsetsOfAnInstance)
{
    EXPECT_EQ(offsetof(DKPF_INSTANCE, rawparamID), 0u);
    EXPECT_EQ(offsetof(DKPF_INSTANCE, inst_sub), 8u);
    EXPECT_EQ(offsetof(DKPF_INSTANCE, inst_sub[63]), 8u + 63 * 8);
    EXPECT_EQ(offsetof(DKPF_INST_SUB, value), 0u);
}

TEST_F(RegionLayout, OffsetsOfTheConfiguration)
{
    EXPECT_EQ(offsetof(DKPF_CONF, perf_enable), 0u);
    EXPECT_EQ(offsetof(DKPF_CONF, perf_log_save), 4u);
    EXPECT_EQ(offsetof(DKPF_CONF, perf_log_size), 8u);
    EXPECT_EQ(offsetof(DKPF_CONF, perf_log_rotation), 12u);
    EXPECT_EQ(offsetof(DKPF_CONF, collect_interval), 16u);
    EXPECT_EQ(offsetof(DKPF_CONF, write_interval), 20u);
    EXPECT_EQ(offsetof(DKPF_CONF, log_level), 24u);
    EXPECT_EQ(offsetof(DKPF_CONF, log_size), 28u);
    EXPECT_EQ(offsetof(DKPF_CONF, collect_param), 32u);
}

TEST_F(RegionLayout, BitsOfTheConfigurationCrossAtTheEnd)
{
    EXPECT_EQ(DKPF_CONF_PERF_ENABLE, 0x001u);
    EXPECT_EQ(DKPF_CONF_PERF_LOG_SAVE, 0x002u);
    EXPECT_EQ(DKPF_CONF_PERF_LOG_SIZE, 0x004u);
    EXPECT_EQ(DKPF_CONF_PERF_LOG_ROTATION, 0x008u);
    EXPECT_EQ(DKPF_CONF_COLLECT_INTERVAL, 0x010u);
    EXPECT_EQ(DKPF_CONF_WRITE_INTERVAL, 0x020u);
    EXPECT_EQ(DKPF_CONF_LOG_SIZE, 0x040u);
    EXPECT_EQ(DKPF_CONF_LOG_LEVEL, 0x080u);
    EXPECT_EQ(DKPF_CONF_COLLECT_PARAM, 0x100u);
    EXPECT_EQ(DKPF_CONF_ALL, 0x1FFu);
}

TEST_F(RegionLayout, OffsetsOfASample)
{
    EXPECT_EQ(offsetof(DKPF_PARAM, param_num), SampleParamNum);
    EXPECT_EQ(offsetof(DKPF_PARAM, parammax_num), SampleParamMaxNum);
    EXPECT_EQ(offsetof(DKPF_PARAM, sampling_time), SampleTick);
    EXPECT_EQ(offsetof(DKPF_PARAM, local_time), SampleTime);
    EXPECT_EQ(offsetof(DKPF_PARAM, InitFlag), SampleInitFlag);
    EXPECT_EQ(offsetof(DKPF_PARAM, instance), SampleInstance);
    EXPECT_EQ(offsetof(DKPF_PARAM, maxinstance), SampleMax);
}

TEST_F(RegionLayout, OffsetsOfTheRegion)
{
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, conf), RegionConf);
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, param_num), RegionParamNum);
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, parammax_num), RegionParamMaxNum);
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, sampling_time), RegionTick);
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, local_time), RegionTime);
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, InitFlag), RegionInitFlag);
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, PMProcessID), RegionProcess);
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, instance), RegionInstance);
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, maxinstance), RegionMax);
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, maxinstance[1]), RegionMax + RegionMaxStride);
    EXPECT_EQ(offsetof(DKPF_SHM_INFO, maxinstance[32][11]) + 520, RegionSize);
    EXPECT_EQ(RegionInstance + 12 * InstanceSize, RegionReserved);
    EXPECT_EQ(RegionReserved + RegionReservedSize, RegionMax);
}

/* ---- The bytes that the routines really touch ---- */

TEST_F(RegionLayout, AStoreWritesTheBytesOfTheFormatAndNoOthers)
{
    std::mt19937_64 random(1);
    uint8_t*        raw = Attach();
    RegionModel     model;
    model.bytes = RandomBytes(random, RegionSize);
    memcpy(raw, model.bytes.data(), RegionSize);
    Bytes sample = RandomSample(random), before = sample;
    DWORD dwErr = NotSet;
    g_dwDkpfLogLevel = 7;
    EXPECT_TRUE(_DkpfShmSetPerf(Record(sample), &dwErr));
    model.Store(sample.data());
    EXPECT_EQ(FirstDifference(raw, model.bytes.data(), RegionSize), "");
    EXPECT_EQ(FirstDifference(sample.data(), before.data(), SampleSize), "") << "the caller's record is only read";
}

TEST_F(RegionLayout, AReadWritesTheBytesOfTheFormatAndNoOthers)
{
    std::mt19937_64 random(2);
    uint8_t*        raw = Attach(32);
    RegionModel     model;
    model.bytes = RandomBytes(random, RegionSize);
    memcpy(raw, model.bytes.data(), RegionSize);
    Bytes sample = RandomBytes(random, SampleSize), expected = sample;
    DWORD dwErr = NotSet;
    g_dwDkpfLogLevel = 7;
    EXPECT_TRUE(_DkpfShmGetPerf(Record(sample), &dwErr));
    model.Read(32, expected.data());
    EXPECT_EQ(FirstDifference(sample.data(), expected.data(), SampleSize), "");
    EXPECT_EQ(FirstDifference(raw, model.bytes.data(), RegionSize), "");
}

TEST_F(RegionLayout, TheHeaderOfTheRegionIsThatOfASample)
{
    uint8_t* raw = Attach();
    Bytes    sample(SampleSize);
    for (size_t i = 0; i < SampleInstance; i++) {
        sample[i] = static_cast<uint8_t>(i % 251 + 1);
    }
    memset(sample.data() + 12, 0, 4);  // padding is nobody's
    DWORD dwErr = NotSet;
    g_dwDkpfLogLevel = 7;
    EXPECT_TRUE(_DkpfShmSetPerf(Record(sample), &dwErr));
    EXPECT_EQ(FirstDifference(raw + 40, sample.data(), 288), "") << "offsets 40 to 328";
    EXPECT_EQ(Get32(raw, 328), 0u);
}

/* One field of the configuration: which bit selects which bytes. */
struct ConfField {
    const char* story;
    DWORD       bit;
    size_t      offset;
};

static const ConfField confFields[] = {
    { "PerfEnable", 0x001, 0 },       { "PerfLogSave", 0x002, 4 },      { "PerfLogSize", 0x004, 8 },
    { "PerfLogRotation", 0x008, 12 }, { "CollectInterval", 0x010, 16 }, { "WriteInterval", 0x020, 20 },
    { "LogSizeBy0x40", 0x040, 28 },   { "LogLevelBy0x80", 0x080, 24 },  { "CollectParam", 0x100, 32 },
};

class ConfBit : public RegionLayout, public testing::WithParamInterface<ConfField> {
protected:
    void SetUp() override
    {
        RegionLayout::SetUp();
        raw = Attach();
        memset(raw, 0x11, ConfSize);
        memset(mine.data(), 0x22, ConfSize);
    }
    uint8_t* raw = nullptr;
    Bytes    mine = Bytes(ConfSize);
    DWORD    dwErr = NotSet;
};

INSTANTIATE_TEST_SUITE_P(Fields, ConfBit, testing::ValuesIn(confFields), StoryOf());

// Edge case for 0x40 and 0x80: the one changes only log_size, the other only log_level.
TEST_P(ConfBit, GetChangesItsFieldOfTheCallerAlone)
{
    Bytes expected = mine;
    memset(expected.data() + GetParam().offset, 0x11, 4);
    EXPECT_TRUE(_DkpfShmGetConf(GetParam().bit, reinterpret_cast<DKPF_CONF*>(mine.data()), &dwErr));
    EXPECT_EQ(mine, expected);
    EXPECT_EQ(Bytes(raw, raw + ConfSize), Bytes(ConfSize, 0x11));
}

TEST_P(ConfBit, SetChangesItsFieldOfTheRegionAlone)
{
    Bytes expected(raw, raw + RegionSize);
    memset(expected.data() + GetParam().offset, 0x22, 4);
    EXPECT_TRUE(_DkpfShmSetConf(GetParam().bit, reinterpret_cast<const DKPF_CONF*>(mine.data()), &dwErr));
    EXPECT_EQ(FirstDifference(raw, expected.data(), RegionSize), "");
    EXPECT_EQ(mine, Bytes(ConfSize, 0x22));
}

TEST_P(ConfBit, AllOthersTogetherLeaveIt)
{
    Bytes expected(ConfSize, 0x11);
    memset(expected.data() + GetParam().offset, 0x22, 4);
    EXPECT_TRUE(_DkpfShmGetConf(0x1FF & ~GetParam().bit, reinterpret_cast<DKPF_CONF*>(mine.data()), &dwErr));
    EXPECT_EQ(mine, expected);
}

/* ---- The whole life of the bytes ---- */

TEST_F(RegionLayout, AProcessStartsWithNothingOfTheRegion)
{
    EXPECT_EQ(g_hShmMutex, nullptr);
    EXPECT_EQ(g_hShmMap, nullptr);
    EXPECT_EQ(g_pShmInfo, nullptr);
    EXPECT_EQ(g_dwShmInitCount, 0u);
    EXPECT_EQ(g_dwPMProcessID, 0u);
    EXPECT_EQ(g_nPMProcessIDIdx, 0);
}

TEST_F(RegionLayout, ANewRegionIsZeroThroughout)
{
    DWORD dwErr = NotSet;
    MakeRegionMutex();
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    Bytes zero(RegionSize);
    EXPECT_EQ(FirstDifference(g_pShmInfo, zero.data(), RegionSize), "") << "no version, no magic number";
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
}

// Edge case.
TEST_F(RegionLayout, AProcessThatOpensTheRegionMapsExactly216784Bytes)
{
    DWORD dwErr = NotSet;
    MakeRegionMutex();
    os.HoldMapping(RegionName, 300000);
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(journal.Of("MapViewOfFile")[0].args, std::string(MappingShown) + ", 0xf001f, 0, 0, 216784");
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
}

TEST_F(RegionLayout, ARegionThatIsOneByteTooSmallIsNotMapped)
{
    DWORD dwErr = NotSet;
    MakeRegionMutex();
    os.HoldMapping(RegionName, 216783);
    EXPECT_FALSE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(dwErr, ViewFailed);
    ExpectDetached(0);
    ExpectNothingLeft();
}

// Edge case.
TEST_F(RegionLayout, Slots7To11OfEveryRowAndTheReservedBytesStayZeroForTheLifeOfTheRegion)
{
    std::mt19937_64      random(3);
    Process              agent(100);
    std::vector<Process> readers;
    DWORD                dwErr = NotSet;
    g_dwDkpfLogLevel = 7;
    MakeRegionMutex();
    Enter(agent);
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    uint8_t* raw = Raw(g_pShmInfo);
    auto     expectZero = [&](const char* when) {
        Bytes zero(5 * InstanceSize);
        Bytes reserved(RegionReservedSize);
        EXPECT_EQ(FirstDifference(raw + RegionReserved, reserved.data(), RegionReservedSize), "") << when;
        for (size_t r = 0; r < Rows; r++) {
            EXPECT_EQ(FirstDifference(raw + MaxAt(r, 7), zero.data(), zero.size()), "") << when << ", row " << r;
        }
    };
    auto store = [&] {
        Bytes sample = RandomSample(random);
        EXPECT_TRUE(_DkpfShmSetPerf(Record(sample), &dwErr));
    };
    store();
    for (DWORD pid = 1; pid <= 32; pid++) {
        readers.emplace_back(1000 + pid);
        os.Process(1000 + pid, 259);
    }
    for (Process& reader : readers) {
        Enter(reader);
        ASSERT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    }
    Enter(agent);
    store();
    expectZero("after a store into all rows");
    Bytes sample(SampleSize);
    for (Process& reader : readers) {
        Enter(reader);
        EXPECT_TRUE(_DkpfShmGetPerf(Record(sample), &dwErr));
    }
    expectZero("after a read of all rows");
    Enter(agent);
    store();
    for (Process& reader : readers) {
        Enter(reader);
        EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    }
    expectZero("after all readers left");
    Enter(agent);
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    ExpectNothingLeft();
}
