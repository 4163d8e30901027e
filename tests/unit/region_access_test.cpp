/*
 * Copies into and out of the shared region: configuration, samples with each reader's own peaks, the one setting.
 */
#include "unit/region_fixture.h"

#include <string.h>

#include <algorithm>
#include <functional>
#include <thread>

using namespace format;

/* Records that accessors get: bytes to compare, a record for the call. */
static DKPF_PARAM* Sample(Bytes& bytes)
{
    return reinterpret_cast<DKPF_PARAM*>(bytes.data());
}

class RegionAccess : public RegionTest {
protected:
    void SetUp() override
    {
        RegionTest::SetUp();
        g_dwDkpfLogLevel = 7;  // no bulk dumps; the cases about them switch them on
    }
    uint8_t* Attach(int nRow = 0)
    {
        return Raw(AttachRegion(nRow));
    }
    BOOL Store(Bytes& sample)
    {
        return _DkpfShmSetPerf(Sample(sample), &dwErr);
    }
    BOOL Read(Bytes& sample)
    {
        return _DkpfShmGetPerf(Sample(sample), &dwErr);
    }
    DWORD dwErr = NotSet;
};

/* ---- The frame that all six share ---- */

/* One accessor, called with records of the case's own: 0x22 in every byte. */
struct Accessor {
    const char*              story;     // name of the case and, behind "_DkpfShm", of the routine
    const char*              enter;     // entry text
    DWORD                    level;     // of entry and exit
    const char*              log;       // of entry and exit
    const char*              nullText;  // nullptr: takes no pointer
    bool                     writes;    // into the region
    std::vector<std::string> dump;  // lines behind the copy with level-32 bulk dumps off, from bytes of 0x11 or 0x22
    std::function<BOOL(Bytes&, DWORD*)> call;
    std::function<BOOL(DWORD*)>         callWithNull;
};

// 0x11111111 is 286331153, 0x22222222 is 572662306.
static const std::vector<std::string> confDump11 = {
    "  perf_enable      <286331153>, perf_log_save     <286331153>",
    "  perf_log_size    <286331153>, perf_log_rotation <286331153>",
    "  collect_interval <286331153>, write_interval    <286331153>",
    "  log_level        <286331153>, log_size          <286331153>",
    "  collect_param    <0x11111111>",
};
static const std::vector<std::string> confDump22 = {
    "  perf_enable      <572662306>, perf_log_save     <572662306>",
    "  perf_log_size    <572662306>, perf_log_rotation <572662306>",
    "  collect_interval <572662306>, write_interval    <572662306>",
    "  log_level        <572662306>, log_size          <572662306>",
    "  collect_param    <0x22222222>",
};

static const Accessor accessors[] = {
    { "GetConf", "ENTER : getflag=0xffff", 8, "diskperf", " lpDkpfConf is NULL.", false, confDump11,
      [](Bytes& mine, DWORD* lpdwErr) {
          return _DkpfShmGetConf(0xFFFF, reinterpret_cast<DKPF_CONF*>(mine.data()), lpdwErr);
      },
      [](DWORD* lpdwErr) { return _DkpfShmGetConf(0xFFFF, nullptr, lpdwErr); } },
    { "SetConf", "ENTER : setflag=0xffff", 8, "diskperf", " lpDkpfConf is NULL.", true, confDump22,
      [](Bytes& mine, DWORD* lpdwErr) {
          return _DkpfShmSetConf(0xFFFF, reinterpret_cast<const DKPF_CONF*>(mine.data()), lpdwErr);
      },
      [](DWORD* lpdwErr) { return _DkpfShmSetConf(0xFFFF, nullptr, lpdwErr); } },
    { "GetPerf",
      "ENTER :",
      8,
      "diskperf_trace",
      " lpDkpfParam is NULL.",
      true,
      {},
      [](Bytes& mine, DWORD* lpdwErr) { return _DkpfShmGetPerf(Sample(mine), lpdwErr); },
      [](DWORD* lpdwErr) { return _DkpfShmGetPerf(nullptr, lpdwErr); } },
    { "SetPerf",
      "ENTER :",
      8,
      "diskperf_trace",
      " lpDkpfParam is NULL.",
      true,
      {},
      [](Bytes& mine, DWORD* lpdwErr) { return _DkpfShmSetPerf(Sample(mine), lpdwErr); },
      [](DWORD* lpdwErr) { return _DkpfShmSetPerf(nullptr, lpdwErr); } },
    { "GetPerfenable",
      "ENTER :",
      16,
      "diskperf",
      " lpPerfenable is NULL.",
      false,
      { "  perf_enable      <286331153>" },
      [](Bytes& mine, DWORD* lpdwErr) { return _DkpfShmGetPerfenable(reinterpret_cast<DWORD*>(mine.data()), lpdwErr); },
      [](DWORD* lpdwErr) { return _DkpfShmGetPerfenable(nullptr, lpdwErr); } },
    { "SetPerfenable",
      "ENTER :",
      8,
      "diskperf",
      nullptr,
      true,
      { "  perf_enable      <572662306>" },
      [](Bytes& mine, DWORD* lpdwErr) { return _DkpfShmSetPerfenable(Get32(mine.data(), 0), lpdwErr); },
      nullptr },
};

class ShmAccessor : public RegionAccess, public testing::WithParamInterface<Accessor> {
protected:
    void SetUp() override
    {
        RegionAccess::SetUp();
        raw = Attach();
        memset(raw, 0x11, RegionSize);
        memset(raw + RegionProcess, 0, 4 * Rows);
        mine.assign(SampleSize, 0x22);
        before.assign(raw, raw + RegionSize);
    }
    Routine Module() const
    {
        return Routine(Name());
    }
    Routine Frame() const
    {
        return Routine(Name(), GetParam().log);
    }
    std::string Name() const
    {
        return std::string("_DkpfShm") + GetParam().story;
    }
    std::string Enter() const
    {
        return Frame()(GetParam().level, GetParam().enter);
    }
    std::string Leave(bool result, DWORD code) const
    {
        return Frame()(GetParam().level, Exit(result, code));
    }
    Strings Dump() const
    {
        Strings lines;
        for (const std::string& text : GetParam().dump) {
            lines.push_back(Module()(32, text));
        }
        return lines;
    }
    void ExpectNothingCopied()
    {
        EXPECT_EQ(FirstDifference(raw, before.data(), RegionSize), "");
        EXPECT_EQ(FirstDifference(mine.data(), Bytes(SampleSize, 0x22).data(), SampleSize), "");
    }
    void ExpectCopied()
    {
        if (GetParam().writes) {
            EXPECT_NE(FirstDifference(raw, before.data(), RegionSize), "");
        } else {
            EXPECT_NE(FirstDifference(mine.data(), Bytes(SampleSize, 0x22).data(), SampleSize), "");
        }
    }
    uint8_t* raw = nullptr;
    Bytes    mine, before;
};

INSTANTIATE_TEST_SUITE_P(Six, ShmAccessor, testing::ValuesIn(accessors), StoryOf());

// Between lock and unlock nothing is asked of the system, and with the bulk dumps off nothing is formatted but the
// dumps of a configuration.
TEST_P(ShmAccessor, TheWholeStory)
{
    EXPECT_EQ(GetParam().call(mine, &dwErr), TRUE);
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(Story(), Joined(Enter(), Lock(), Dump(), Unlock(), Leave(true, Success)));
    ExpectCopied();
    ExpectNothingLeft();
}

TEST_P(ShmAccessor, RefusesANullPointerWithoutALock)
{
    if (GetParam().nullText == nullptr) {
        // This one takes a value: every value is good.
        for (DWORD value : { 0u, 1u, 0xFFFFFFFFu }) {
            EXPECT_TRUE(_DkpfShmSetPerfenable(value, &dwErr));
            EXPECT_EQ(Get32(raw, 0), value);
        }
        return;
    }
    EXPECT_EQ(GetParam().callWithNull(&dwErr), FALSE);
    EXPECT_EQ(dwErr, BadPointer);
    EXPECT_EQ(Story(), Strings({ Enter(), Module()(1, GetParam().nullText), Leave(false, BadPointer) }));
    ExpectNothingCopied();
}

TEST_P(ShmAccessor, WhereTheLockFailsNothingIsCopied)
{
    os.Fail("WaitForSingleObject", 1, 5);
    EXPECT_EQ(GetParam().call(mine, &dwErr), FALSE);
    EXPECT_EQ(dwErr, LockFailed);
    EXPECT_EQ(Story(), Joined(Enter(), LockRefused(5), Module()(1, " _DkpfMutexLock() failed. errcode<0xb0000000>"),
                              Leave(false, LockFailed)));
    ExpectNothingCopied();
    ExpectNothingLeft();
}

// Edge case.
TEST_P(ShmAccessor, WithoutTheMutexTheLockFails)
{
    g_hShmMutex = nullptr;
    EXPECT_EQ(GetParam().call(mine, &dwErr), FALSE);
    EXPECT_EQ(dwErr, LockFailed);
    EXPECT_EQ(log.Texts("", 1), Strings({ " WaitForSingleObject(" + Alternate(nullptr) + ") failed.<W32Err=6>",
                                          " _DkpfMutexLock() failed. errcode<0xb0000000>" }));
    ExpectNothingCopied();
}

TEST_P(ShmAccessor, AWaitThatTimesOutIsAFailedLock)
{
    os.Return("WaitForSingleObject", 1, WAIT_TIMEOUT);
    EXPECT_EQ(GetParam().call(mine, &dwErr), FALSE);
    EXPECT_EQ(dwErr, LockFailed);
    EXPECT_EQ(journal.Number("ReleaseMutex"), 0u) << "what was not taken must not be released";
    ExpectNothingCopied();
}

TEST_P(ShmAccessor, WithoutAnInitialiseIsRefusedAndTheMutexGivenBack)
{
    g_dwShmInitCount = 0;
    EXPECT_EQ(GetParam().call(mine, &dwErr), FALSE);
    EXPECT_EQ(dwErr, NoRegion);
    EXPECT_EQ(Story(), Joined(Enter(), Lock(), Module()(1, " Shm is not initialized.(0times). Skip."), Unlock(),
                              Leave(false, NoRegion)));
    ExpectNothingCopied();
    ExpectNothingLeft();
}

TEST_P(ShmAccessor, WithoutAnInitialiseTheResultOfTheUnlockDoesNotMatter)
{
    g_dwShmInitCount = 0;
    os.Fail("ReleaseMutex", 1, 288);
    EXPECT_EQ(GetParam().call(mine, &dwErr), FALSE);
    EXPECT_EQ(dwErr, NoRegion);
    EXPECT_EQ(Story(), Joined(Enter(), Lock(), Module()(1, " Shm is not initialized.(0times). Skip."),
                              UnlockRefused(288), Leave(false, NoRegion)));
}

// A failed unlock of a further initialise leaves a count without a view.
TEST_P(ShmAccessor, ACountWithoutAViewIsNotInitialised)
{
    g_dwShmInitCount = 2;
    g_pShmInfo = nullptr;
    EXPECT_EQ(GetParam().call(mine, &dwErr), FALSE);
    EXPECT_EQ(dwErr, NoRegion);
    EXPECT_EQ(Story(), Joined(Enter(), Lock(), Module()(1, " Shm is not initialized.(2times). Skip."), Unlock(),
                              Leave(false, NoRegion)));
    ExpectNothingCopied();
    ExpectNothingLeft();
}

TEST_P(ShmAccessor, WhereTheUnlockFailsTheCopyHasTakenPlace)
{
    os.Fail("ReleaseMutex", 1, 288);
    EXPECT_EQ(GetParam().call(mine, &dwErr), FALSE);
    EXPECT_EQ(dwErr, SyncFailed);
    EXPECT_EQ(Story(), Joined(Enter(), Lock(), Dump(), UnlockRefused(288), Module()(1, " _DkpfMutexUnlock() failed."),
                              Leave(false, SyncFailed)));
    ExpectCopied();
    EXPECT_EQ(os.Leaks(), Strings({ MutexLeft }));
}

TEST_P(ShmAccessor, AMutexWhoseOwnerDiedIsTakenOverAsItIs)
{
    os.Abandon(g_hShmMutex);
    EXPECT_EQ(GetParam().call(mine, &dwErr), TRUE);
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(Story(), Joined(Enter(), Lock(), Dump(), Unlock(), Leave(true, Success)));
    ExpectCopied();
}

TEST_P(ShmAccessor, WaitsAsLongAsAnotherProcessHoldsTheMutex)
{
    os.HoldByOther(g_hShmMutex);
    os.At(3600000, [this] { os.HoldByOther(g_hShmMutex, false); });
    EXPECT_EQ(GetParam().call(mine, &dwErr), TRUE);
    EXPECT_EQ(os.Elapsed(), 3600000u);
    ExpectCopied();
}

// Edge case.
TEST_P(ShmAccessor, BeforeInitialiseAndAfterTheLastTerminateIsRefused)
{
    ASSERT_TRUE(_DkpfShmTerminate(&dwErr));
    EXPECT_FALSE(GetParam().call(mine, &dwErr));
    EXPECT_EQ(dwErr, NoRegion);
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    EXPECT_TRUE(GetParam().call(mine, &dwErr));
    EXPECT_EQ(dwErr, Success);
    ASSERT_TRUE(_DkpfShmTerminate(&dwErr));
    EXPECT_FALSE(GetParam().call(mine, &dwErr));
    EXPECT_EQ(dwErr, NoRegion);
    ExpectNothingLeft();
}

TEST_P(ShmAccessor, WithClosedLogsWorksTheSame)
{
    CloseLogs();
    EXPECT_EQ(GetParam().call(mine, &dwErr), TRUE);
    EXPECT_EQ(dwErr, Success);
    ExpectCopied();
}

/* ---- Configuration ---- */

class ShmConf : public RegionAccess {
protected:
    /* Bit and offset of each field, in the order of the offsets. */
    static constexpr std::pair<DWORD, size_t> fields[] = { { 0x001, 0 },  { 0x002, 4 },  { 0x004, 8 },
                                                           { 0x008, 12 }, { 0x010, 16 }, { 0x020, 20 },
                                                           { 0x080, 24 }, { 0x040, 28 }, { 0x100, 32 } };
    static void                               CopyFields(DWORD dwMask, const uint8_t* from, uint8_t* to)
    {
        for (const auto& [bit, offset] : fields) {
            if ((dwMask & bit) != 0) {
                memcpy(to + offset, from + offset, 4);
            }
        }
    }
};

// Edge case.
TEST_F(ShmConf, AZeroMaskTakesNoLockAndSucceedsWithTheGetTextInBoth)
{
    uint8_t*  raw = Attach();
    DKPF_CONF conf = {};
    memset(raw, 0x11, ConfSize);
    Routine G("_DkpfShmGetConf"), S("_DkpfShmSetConf");
    EXPECT_EQ(_DkpfShmGetConf(0, &conf, &dwErr), TRUE);
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(Story(),
              Strings({ G(8, "ENTER : getflag=0x0"), G(2, " getflag is 0. Skip."), G(8, Exit(true, Success)) }));
    EXPECT_EQ(conf.perf_enable, 0u);
    StartStory();
    dwErr = NotSet;
    EXPECT_EQ(_DkpfShmSetConf(0, &conf, &dwErr), TRUE);
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(Story(),
              Strings({ S(8, "ENTER : setflag=0x0"), S(2, " getflag is 0. Skip."), S(8, Exit(true, Success)) }));
    EXPECT_EQ(Bytes(raw, raw + ConfSize), Bytes(ConfSize, 0x11));
}

TEST_F(ShmConf, AZeroMaskSucceedsWithoutMutexAndRegion)
{
    DKPF_CONF conf = {};
    EXPECT_TRUE(_DkpfShmGetConf(0, &conf, &dwErr));
    EXPECT_TRUE(_DkpfShmSetConf(0, &conf, &dwErr));
    EXPECT_EQ(dwErr, Success);
    EXPECT_EQ(journal.Number("WaitForSingleObject"), 0u);
}

TEST_F(ShmConf, ANullPointerComesBeforeTheZeroMask)
{
    EXPECT_FALSE(_DkpfShmGetConf(0, nullptr, &dwErr));
    EXPECT_EQ(dwErr, BadPointer);
    EXPECT_FALSE(_DkpfShmSetConf(0, nullptr, &dwErr));
    EXPECT_EQ(dwErr, BadPointer);
}

// Bits above 0x100 select nothing; they are not a zero mask either.
TEST_F(ShmConf, UnknownBitsAloneCopyNothingAndDumpTheRecord)
{
    uint8_t*  raw = Attach();
    DKPF_CONF conf = { 1, 2, 3, 4, 5, 6, 7, 8, 9 };
    memset(raw, 0x11, ConfSize);
    Routine G("_DkpfShmGetConf");
    EXPECT_EQ(_DkpfShmGetConf(0xFFFFFE00, &conf, &dwErr), TRUE);
    EXPECT_EQ(Story(), Joined(G(8, "ENTER : getflag=0xfffffe00"), Lock(),
                              Strings{ G(32, "  perf_enable      <1>, perf_log_save     <2>"),
                                       G(32, "  perf_log_size    <3>, perf_log_rotation <4>"),
                                       G(32, "  collect_interval <5>, write_interval    <6>"),
                                       G(32, "  log_level        <7>, log_size          <8>"),
                                       G(32, "  collect_param    <0x9>") },
                              Unlock(), G(8, Exit(true, Success))));
    DKPF_CONF mine = { 1, 2, 3, 4, 5, 6, 7, 8, 9 };
    EXPECT_EQ(memcmp(&conf, &mine, sizeof conf), 0);
    EXPECT_TRUE(_DkpfShmSetConf(0xFFFFFE00, &conf, &dwErr));
    EXPECT_EQ(Bytes(raw, raw + ConfSize), Bytes(ConfSize, 0x11));
}

TEST_F(ShmConf, TheDumpOfASetShowsTheRegionAfterwardsWhateverTheMask)
{
    AttachRegion()->conf = { 1, 0, 1024, 3, 10, 60, 7, 2048, 0x1ffff };
    DKPF_CONF conf = { 0xFFFFFFFF, 77, 77, 77, 77, 77, 77, 0x80000000, 77 };
    EXPECT_TRUE(_DkpfShmSetConf(0x041, &conf, &dwErr));
    EXPECT_EQ(
        log.TextsOf("_DkpfShmSetConf"),
        Strings({ "  perf_enable      <-1>, perf_log_save     <0>", "  perf_log_size    <1024>, perf_log_rotation <3>",
                  "  collect_interval <10>, write_interval    <60>",
                  "  log_level        <7>, log_size          <-2147483648>", "  collect_param    <0x1ffff>" }));
}

TEST_F(ShmConf, WhatIsSetIsWhatIsGot)
{
    Attach();
    DKPF_CONF set = { 1, 0, 4096, 9, 30, 120, 39, 512, 0x1abcd }, got = {};
    EXPECT_TRUE(_DkpfShmSetConf(0xFFFF, &set, &dwErr));
    EXPECT_TRUE(_DkpfShmGetConf(DKPF_CONF_ALL, &got, &dwErr));
    EXPECT_EQ(memcmp(&set, &got, sizeof set), 0);
}

class ShmConfMask : public ShmConf, public testing::WithParamInterface<DWORD> {};

INSTANTIATE_TEST_SUITE_P(Seeds, ShmConfMask, testing::Range<DWORD>(1, 7));

TEST_P(ShmConfMask, RandomMasksAndRecordsAgainstTheModel)
{
    std::mt19937_64 random(GetParam());
    uint8_t*        raw = Attach();
    Bytes           region = RandomBytes(random, ConfSize);
    memcpy(raw, region.data(), ConfSize);
    for (int i = 0; i < 200; i++) {
        DWORD dwMask = static_cast<DWORD>(random() & (i % 2 == 0 ? 0x1FF : 0xFFFFFFFF)) | (i % 3 == 0 ? 0x200u : 0u);
        Bytes mine = RandomBytes(random, ConfSize), expected = mine;
        if (random() % 2 == 0) {
            CopyFields(dwMask, region.data(), expected.data());
            EXPECT_TRUE(_DkpfShmGetConf(dwMask, reinterpret_cast<DKPF_CONF*>(mine.data()), &dwErr));
        } else {
            CopyFields(dwMask, mine.data(), region.data());
            EXPECT_TRUE(_DkpfShmSetConf(dwMask, reinterpret_cast<const DKPF_CONF*>(mine.data()), &dwErr));
        }
        ASSERT_EQ(mine, expected) << std::hex << dwMask;
        ASSERT_EQ(Bytes(raw, raw + ConfSize), region) << std::hex << dwMask;
    }
}

class ShmPerfenable : public RegionAccess {};

TEST_F(ShmPerfenable, IsTheFirstFieldOfTheConfigurationAndNothingElse)
{
    uint8_t* raw = Attach();
    Bytes    expected(RegionSize);
    DWORD    dwValue = 77;
    EXPECT_TRUE(_DkpfShmSetPerfenable(0xFFFFFFFF, &dwErr));
    memset(expected.data(), 0xFF, 4);
    EXPECT_EQ(FirstDifference(raw, expected.data(), RegionSize), "");
    EXPECT_TRUE(_DkpfShmGetPerfenable(&dwValue, &dwErr));
    EXPECT_EQ(dwValue, 0xFFFFFFFFu);
    EXPECT_EQ(log.TextsOf("_DkpfShmGetPerfenable"), Strings({ "  perf_enable      <-1>" }));
    EXPECT_EQ(log.TextsOf("_DkpfShmSetPerfenable"), Strings({ "  perf_enable      <-1>" }));
}

/* ---- Samples: peaks ---- */

class ShmMerge : public RegionAccess {
protected:
    void SetUp() override
    {
        RegionAccess::SetUp();
        raw = Attach();
    }
    static size_t PeakAt(size_t k, size_t j)
    {
        return SampleMax + k * InstanceSize + RowValues + 8 * j;
    }
    uint64_t Peak(size_t r, size_t k, size_t j) const
    {
        return Get64(raw, MaxAt(r, k) + RowValues + 8 * j);
    }
    void StorePeak(size_t k, size_t j, uint64_t value)
    {
        Bytes sample(SampleSize);
        Put64(sample.data(), PeakAt(k, j), value);
        ASSERT_TRUE(Store(sample));
    }
    uint8_t* raw = nullptr;
};

// Edge case.
TEST_F(ShmMerge, AValueAbove2To63WinsAgainstSmallerOnesThoughTheDumpPrintsItNegative)
{
    g_dwDkpfLogLevel = 39;
    StorePeak(3, 5, 1000);
    StorePeak(3, 5, 0x8000000000000001ull);
    EXPECT_EQ(Peak(0, 3, 5), 0x8000000000000001ull);
    EXPECT_TRUE(log.Has("                      inst_sub[5].value <-9223372036854775807> "));
    StorePeak(3, 5, 0x7FFFFFFFFFFFFFFFull);
    EXPECT_EQ(Peak(0, 3, 5), 0x8000000000000001ull) << "the largest signed number is smaller";
    StorePeak(3, 5, 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(Peak(0, 3, 5), 0xFFFFFFFFFFFFFFFFull);
}

TEST_F(ShmMerge, TheLargerOfTwoStaysInEachOrder)
{
    static const uint64_t values[] = {
        0, 1, 2, 0xFFFFFFFF, 0x100000000, 0x7FFFFFFFFFFFFFFF, 0x8000000000000000, 0xFFFFFFFFFFFFFFFE, 0xFFFFFFFFFFFFFFFF
    };
    for (uint64_t first : values) {
        for (uint64_t second : values) {
            Bytes sample(SampleSize);
            ASSERT_TRUE(Read(sample));  // starts the row anew
            StorePeak(6, 63, first);
            StorePeak(6, 63, second);
            EXPECT_EQ(Peak(0, 6, 63), std::max(first, second));
        }
    }
}

TEST_F(ShmMerge, RowZeroIsAlwaysRaisedOthersOnlyWithAnOwner)
{
    Put32(raw, RegionProcess + 4 * 1, 900);
    Put32(raw, RegionProcess + 4 * 32, 0xFFFFFFFF);
    Bytes sample(SampleSize);
    memset(sample.data() + SampleMax, 0x0A, 7 * InstanceSize);
    EXPECT_TRUE(Store(sample));
    for (size_t r = 0; r < Rows; r++) {
        uint64_t expected = r == 0 || r == 1 || r == 32 ? 0x0A0A0A0A0A0A0A0Aull : 0;
        for (size_t k = 0; k < Peaks; k++) {
            EXPECT_EQ(Get32(raw, MaxAt(r, k)), expected & 0xFFFFFFFF) << r;
            for (size_t j = 0; j < Disks; j++) {
                ASSERT_EQ(Peak(r, k, j), expected) << r << " " << k << " " << j;
            }
        }
    }
}

TEST_F(ShmMerge, TheNumberOfTheRowIsTakenOverEvenWhereNoValueWins)
{
    StorePeak(2, 0, 100);
    Bytes sample(SampleSize);
    Put32(sample.data(), SampleMax + 2 * InstanceSize, 2);
    EXPECT_TRUE(Store(sample));
    EXPECT_EQ(Get32(raw, MaxAt(0, 2)), 2u);
    EXPECT_EQ(Peak(0, 2, 0), 100u);
}

TEST_F(ShmMerge, CurrentValuesAreReplacedNotRaised)
{
    Bytes sample(SampleSize);
    memset(sample.data() + SampleInstance, 0xFF, 12 * InstanceSize);
    EXPECT_TRUE(Store(sample));
    memset(sample.data() + SampleInstance, 0x01, 12 * InstanceSize);
    EXPECT_TRUE(Store(sample));
    EXPECT_EQ(Bytes(raw + RegionInstance, raw + RegionReserved), Bytes(6240, 0x01));
}

TEST_F(ShmMerge, NoCountOfTheSampleLimitsTheCopy)
{
    Bytes sample(SampleSize, 0x03);
    Put32(sample.data(), SampleParamNum, 0);
    Put32(sample.data(), SampleParamMaxNum, 0xFFFFFFFF);
    EXPECT_TRUE(Store(sample));
    EXPECT_EQ(Bytes(raw + RegionInstance, raw + RegionReserved), Bytes(6240, 0x03));
    EXPECT_EQ(Peak(0, 6, 63), 0x0303030303030303ull);
}

/* ---- Samples: reading ---- */

class ShmHandOver : public RegionAccess, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(OwnRows, ShmHandOver, testing::Values(0, 1, 2, 17, 32));

TEST_P(ShmHandOver, AReadHandsItsOwnRowOverAndZeroesIt)
{
    std::mt19937_64 random(50);
    uint8_t*        raw = Attach(GetParam());
    RegionModel     model;
    model.bytes = RandomBytes(random, RegionSize);
    memcpy(raw, model.bytes.data(), RegionSize);
    Bytes sample(SampleSize), expected(SampleSize);
    EXPECT_TRUE(Read(sample));
    model.Read(static_cast<size_t>(GetParam()), expected.data());
    EXPECT_EQ(FirstDifference(sample.data(), expected.data(), SampleSize), "");
    EXPECT_EQ(FirstDifference(raw, model.bytes.data(), RegionSize), "") << "no other row is touched";
}

// Edge case.
TEST_P(ShmHandOver, ASecondReadWithoutAStoreBetweenHasZeroPeaksAndTheSameSample)
{
    std::mt19937_64 random(51);
    Attach(GetParam());
    Bytes stored = RandomSample(random), first(SampleSize), second(SampleSize, 0x99);
    ASSERT_TRUE(Store(stored));
    EXPECT_TRUE(Read(first));
    EXPECT_TRUE(Read(second));
    EXPECT_EQ(Bytes(second.begin() + SampleMax, second.end()), Bytes(7 * InstanceSize)) << "rawparamID included";
    Bytes header(first.begin() + SampleTime, first.begin() + SampleMax);
    EXPECT_EQ(Bytes(second.begin() + SampleTime, second.begin() + SampleMax), header);
    EXPECT_EQ(Get32(second.data(), SampleParamNum), Get32(stored.data(), SampleParamNum));
    EXPECT_EQ(Get32(second.data(), SampleTick), Get32(stored.data(), SampleTick));
    EXPECT_NE(Bytes(first.begin() + SampleMax, first.end()), Bytes(7 * InstanceSize));
}

class ShmPeaks : public RegionAccess {
protected:
    static uint64_t PeakOf(const Bytes& sample)
    {
        return Get64(sample.data(), SampleMax + RowValues);
    }
    void StoreValue(uint64_t value)
    {
        Bytes sample(SampleSize);
        Put64(sample.data(), SampleMax + RowValues, value);
        ASSERT_TRUE(Store(sample));
    }
    uint64_t ReadValue()
    {
        Bytes sample(SampleSize);
        EXPECT_TRUE(Read(sample));
        return PeakOf(sample);
    }
};

// Edge case.
TEST_F(ShmPeaks, ARowClaimedAfterASampleStartsFromZeroAndCollectsOnlyLaterOnes)
{
    Process agent(100), early(200), late(300);
    os.Process(200, 259);
    os.Process(300, 259);
    MakeRegionMutex();
    Enter(agent);
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    Enter(early);
    ASSERT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    Enter(agent);
    StoreValue(500);
    Enter(late);
    ASSERT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(ReadValue(), 0u);
    Enter(agent);
    StoreValue(40);
    StoreValue(30);
    Enter(late);
    EXPECT_EQ(ReadValue(), 40u);
    Enter(early);
    EXPECT_EQ(ReadValue(), 500u) << "each reader sees each peak once, at its own pace";
    EXPECT_EQ(ReadValue(), 0u);
    Enter(agent);
    EXPECT_EQ(ReadValue(), 500u) << "the agent's own row, untouched by its readers";
}

TEST_F(ShmPeaks, AReaderThatComesBackDoesNotSeeThePeaksOfItsFirstStay)
{
    Process agent(100), reader(200);
    MakeRegionMutex();
    Enter(agent);
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    Enter(reader);
    ASSERT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    Enter(agent);
    StoreValue(500);
    Enter(reader);
    ASSERT_TRUE(_DkpfShmTerminate(&dwErr));
    Enter(agent);
    StoreValue(700);
    Enter(reader);
    ASSERT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(ReadValue(), 0u);
}

// An agent that starts again clears the table: a reader of before reads samples, and no peaks, until it attaches anew.
TEST_F(ShmPeaks, AfterANewAgentsStartTheReadersOfBeforeGetNoPeaks)
{
    Process agent(100), reader(200), again(101);
    MakeRegionMutex();
    Enter(agent);
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    Enter(reader);
    ASSERT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    Enter(again);
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    StoreValue(900);
    Enter(reader);
    EXPECT_EQ(ReadValue(), 0u);
    ASSERT_TRUE(_DkpfShmTerminate(&dwErr));
    ASSERT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    Enter(again);
    StoreValue(800);
    Enter(reader);
    EXPECT_EQ(ReadValue(), 800u);
}

// Threads of one process store and read at the same time: no peak is lost, none is seen twice.
TEST_F(ShmPeaks, NoPeakIsLostOrSeenTwiceBetweenThreads)
{
    static const uint64_t Last = 300;
    os.UseRealObjects();
    g_hShmMutex = _DkpfCreateMutex(DKPF_MUTEX_NAME);
    ASSERT_TRUE(_DkpfShmInitialize(TRUE, &dwErr));
    // Store k has its peak, k, in disk slot k % 64 alone.
    std::thread           writer([] {
        for (uint64_t value = 1; value <= Last; value++) {
            Bytes sample(SampleSize);
            DWORD dwStoreErr = NotSet;
            Put64(sample.data(), SampleMax + RowValues + 8 * (value % Disks), value);
            EXPECT_TRUE(_DkpfShmSetPerf(Sample(sample), &dwStoreErr));
        }
    });
    std::vector<uint64_t> largest(Disks);
    auto                  readOnce = [&] {
        Bytes sample(SampleSize);
        ASSERT_TRUE(Read(sample));
        for (size_t j = 0; j < Disks; j++) {
            uint64_t peak = Get64(sample.data(), SampleMax + RowValues + 8 * j);
            if (peak != 0) {
                EXPECT_GT(peak, largest[j]) << "seen before";
                EXPECT_EQ(peak % Disks, j);
                largest[j] = peak;
            }
        }
    };
    for (int i = 0; i < 100; i++) {
        readOnce();
    }
    writer.join();
    readOnce();
    std::vector<uint64_t> expected(Disks);
    for (uint64_t value = 1; value <= Last; value++) {
        expected[value % Disks] = value;
    }
    EXPECT_EQ(largest, expected);
    Bytes sample(SampleSize);
    EXPECT_TRUE(Read(sample));
    EXPECT_EQ(Bytes(sample.begin() + SampleMax, sample.end()), Bytes(7 * InstanceSize));
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
}

/* ---- Samples: against the model ---- */

class ShmModel : public RegionAccess, public testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(Seeds, ShmModel, testing::Range(1u, 13u));

// Random samples, readers that come, read and go in random order, rows of live and of foreign owners: after each step
// the whole region and the whole record that was read are those of the model.
TEST_P(ShmModel, RandomStoresReadsAndRows)
{
    std::mt19937_64 random(GetParam());
    uint8_t*        raw = Attach();
    RegionModel     model;
    for (int step = 0; step < 60; step++) {
        size_t row = random() % Rows;
        switch (random() % 4) {
        case 0: {  // a row changes hands
            uint32_t owner = random() % 3 == 0 ? 0 : static_cast<uint32_t>(random() | 1);
            row = row == 0 ? 1 : row;
            model.GiveRow(row, owner);
            Put32(raw, RegionProcess + 4 * row, owner);
            memset(raw + MaxAt(row, 0), 0, 3640);
            break;
        }
        case 1: {  // the owner of some row reads
            Bytes sample = RandomBytes(random, SampleSize), expected = sample;
            g_nPMProcessIDIdx = static_cast<int>(row);
            ASSERT_TRUE(Read(sample));
            model.Read(row, expected.data());
            ASSERT_EQ(FirstDifference(sample.data(), expected.data(), SampleSize), "") << "step " << step;
            break;
        }
        default: {
            Bytes sample = RandomSample(random);
            ASSERT_TRUE(Store(sample));
            model.Store(sample.data());
        }
        }
        ASSERT_EQ(FirstDifference(raw, model.bytes.data(), RegionSize), "") << "step " << step;
    }
}

// The same region, but it starts as a crash may have left it.
TEST_P(ShmModel, ADamagedRegionIsReadAndStoredAsItStands)
{
    std::mt19937_64 random(1000 + GetParam());
    uint8_t*        raw = Attach(static_cast<int>(random() % Rows));
    size_t          row = static_cast<size_t>(g_nPMProcessIDIdx);
    RegionModel     model;
    for (int round = 0; round < 6; round++) {
        model.bytes = round == 0 ? Bytes(RegionSize, 0xFF) : RandomBytes(random, RegionSize);
        memcpy(raw, model.bytes.data(), RegionSize);
        Bytes sample = RandomSample(random), got(SampleSize), expected(SampleSize);
        ASSERT_TRUE(Store(sample));
        model.Store(sample.data());
        ASSERT_EQ(FirstDifference(raw, model.bytes.data(), RegionSize), "");
        ASSERT_TRUE(Read(got));
        model.Read(row, expected.data());
        ASSERT_EQ(FirstDifference(got.data(), expected.data(), SampleSize), "");
        ASSERT_EQ(FirstDifference(raw, model.bytes.data(), RegionSize), "");
    }
}

class ShmDamage : public RegionAccess, public testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(Seeds, ShmDamage, testing::Range(1u, 7u));

// A whole reader's life on a region of garbage: dumps on, every field out of its range. The region ends at a page that
// faults, so an index that is believed ends the program.
TEST_P(ShmDamage, NeverCrashesAReader)
{
    std::mt19937_64 random(GetParam());
    MakeRegionMutex();
    uint8_t* raw = Raw(HoldRegion());
    Bytes    garbage = GetParam() == 1 ? Bytes(RegionSize, 0xFF) : RandomBytes(random, RegionSize);
    memcpy(raw, garbage.data(), RegionSize);
    DKPF_CONF conf = {};
    DWORD     dwEnable = 0;
    Bytes     sample(SampleSize);
    g_dwDkpfLogLevel = 0xFFFF;
    // All numbers in the table are of processes that are not there: the sweep frees them and row 1 is ours.
    EXPECT_TRUE(_DkpfShmInitialize(FALSE, &dwErr));
    EXPECT_EQ(g_nPMProcessIDIdx, 1);
    EXPECT_TRUE(_DkpfShmGetConf(0xFFFF, &conf, &dwErr));
    EXPECT_EQ(memcmp(&conf, garbage.data(), sizeof conf), 0);
    EXPECT_TRUE(_DkpfShmGetPerfenable(&dwEnable, &dwErr));
    EXPECT_TRUE(Read(sample));
    EXPECT_EQ(Bytes(sample.begin() + SampleMax, sample.end()), Bytes(7 * InstanceSize));
    EXPECT_TRUE(Store(sample));
    EXPECT_TRUE(_DkpfShmTerminate(&dwErr));
    ExpectNothingLeft();
}

/* ---- Dumps ---- */

class ShmDump : public RegionAccess {
protected:
    /* The dump lines as the module log got them: all of level 32 of one routine. */
    Strings Dumped(const char* routine) const
    {
        Strings lines;
        for (const TraceLine& line : log.lines) {
            if (line.routine == routine && line.level == 32 && line.log == "diskperf") {
                lines.push_back(line.text);
            }
        }
        return lines;
    }
    static constexpr SYSTEMTIME March7 = { 2026, 3, 6, 7, 14, 5, 9, 42 };
};

TEST_F(ShmDump, TheFirstLinesOfAStoreByHand)
{
    DKPF_SHM_INFO* region = AttachRegion(2);
    DKPF_PARAM     sample = {};
    sample.param_num = 12;
    sample.parammax_num = 7;
    sample.sampling_time = 0xFFFFFFF0;
    sample.local_time = March7;
    sample.InitFlag[0] = 1;
    for (DWORD i = 0; i < 12; i++) {
        sample.instance[i].rawparamID = i;
        sample.instance[i].inst_sub[0].value = 100 + i;
    }
    for (DWORD k = 0; k < 7; k++) {
        sample.maxinstance[k].rawparamID = k;
        sample.maxinstance[k].inst_sub[0].value = 900 + k;
    }
    region->maxinstance[1][0].inst_sub[0].value = 5;  // a free row is dumped too
    g_dwDkpfLogLevel = 32;
    EXPECT_TRUE(_DkpfShmSetPerf(&sample, &dwErr));
    Strings lines = Dumped("_DkpfShmSetPerf");
    ASSERT_EQ(lines.size(), 31172u);
    Strings first(lines.begin(), lines.begin() + 61);
    EXPECT_EQ(first, Strings({ "  param_num        <12>",
                               "  parammax_num     <7>",
                               "  sampling_time    <4294967280>",
                               "  local_time       <2026/03/07(6) 14:05:09.042>",
                               "  InitFlag[0]  <1>",
                               "  instance[ 0]   : rawparamID <0> ",
                               "                   inst_sub[0].value <100> ",
                               "  instance[ 1]   : rawparamID <1> ",
                               "                   inst_sub[0].value <101> ",
                               "  instance[ 2]   : rawparamID <2> ",
                               "                   inst_sub[0].value <102> ",
                               "  instance[ 3]   : rawparamID <3> ",
                               "                   inst_sub[0].value <103> ",
                               "  instance[ 4]   : rawparamID <4> ",
                               "                   inst_sub[0].value <104> ",
                               "  instance[ 5]   : rawparamID <5> ",
                               "                   inst_sub[0].value <105> ",
                               "  instance[ 6]   : rawparamID <6> ",
                               "                   inst_sub[0].value <106> ",
                               "  instance[ 7]   : rawparamID <7> ",
                               "                   inst_sub[0].value <107> ",
                               "  instance[ 8]   : rawparamID <8> ",
                               "                   inst_sub[0].value <108> ",
                               "  instance[ 9]   : rawparamID <9> ",
                               "                   inst_sub[0].value <109> ",
                               "  instance[10]   : rawparamID <10> ",
                               "                   inst_sub[0].value <110> ",
                               "  instance[11]   : rawparamID <11> ",
                               "                   inst_sub[0].value <111> ",
                               "  maxinstance[ 0][0]: rawparamID <0> ",
                               "                      inst_sub[0].value <900> ",
                               "  maxinstance[ 0][1]: rawparamID <1> ",
                               "                      inst_sub[0].value <901> ",
                               "  maxinstance[ 0][2]: rawparamID <2> ",
                               "                      inst_sub[0].value <902> ",
                               "  maxinstance[ 0][3]: rawparamID <3> ",
                               "                      inst_sub[0].value <903> ",
                               "  maxinstance[ 0][4]: rawparamID <4> ",
                               "                      inst_sub[0].value <904> ",
                               "  maxinstance[ 0][5]: rawparamID <5> ",
                               "                      inst_sub[0].value <905> ",
                               "  maxinstance[ 0][6]: rawparamID <6> ",
                               "                      inst_sub[0].value <906> ",
                               "  maxinstance[ 1][0]: rawparamID <0> ",
                               "                      inst_sub[0].value <5> ",
                               "  maxinstance[ 1][1]: rawparamID <0> ",
                               "                      inst_sub[0].value <0> ",
                               "  maxinstance[ 1][2]: rawparamID <0> ",
                               "                      inst_sub[0].value <0> ",
                               "  maxinstance[ 1][3]: rawparamID <0> ",
                               "                      inst_sub[0].value <0> ",
                               "  maxinstance[ 1][4]: rawparamID <0> ",
                               "                      inst_sub[0].value <0> ",
                               "  maxinstance[ 1][5]: rawparamID <0> ",
                               "                      inst_sub[0].value <0> ",
                               "  maxinstance[ 1][6]: rawparamID <0> ",
                               "                      inst_sub[0].value <0> ",
                               "  maxinstance[ 2][0]: rawparamID <0> ",
                               "                      inst_sub[0].value <900> ",
                               "  maxinstance[ 2][1]: rawparamID <1> ",
                               "                      inst_sub[0].value <901> " }));
    // The second disk begins behind 487 lines, the last one ends with the last row.
    EXPECT_EQ(lines[4 + 487], "  InitFlag[1]  <0>");
    EXPECT_EQ(lines[4 + 63 * 487], "  InitFlag[63]  <0>");
    EXPECT_EQ(lines[31170], "  maxinstance[32][6]: rawparamID <0> ");
    EXPECT_EQ(lines[31171], "                      inst_sub[63].value <0> ");
}

TEST_F(ShmDump, TheFirstLinesOfAReadByHand)
{
    DKPF_SHM_INFO* region = AttachRegion(32);
    region->param_num = 12;
    region->parammax_num = 7;
    region->sampling_time = 1000000;
    region->local_time = March7;
    region->InitFlag[0] = 0xFFFFFFFF;
    region->instance[10].rawparamID = 10;
    region->instance[10].inst_sub[0].value = 0xFFFFFFFFFFFFFFFF;
    for (DWORD k = 0; k < 7; k++) {
        region->maxinstance[32][k].rawparamID = k;
        region->maxinstance[32][k].inst_sub[0].value = 900 + k;
    }
    DKPF_PARAM sample = {};
    g_dwDkpfLogLevel = 32;
    EXPECT_TRUE(_DkpfShmGetPerf(&sample, &dwErr));
    Strings lines = Dumped("_DkpfShmGetPerf");
    ASSERT_EQ(lines.size(), 2500u);
    EXPECT_EQ(Strings(lines.begin(), lines.begin() + 5),
              Strings({ "  param_num        <12>", "  parammax_num     <7>", "  sampling_time    <1000000>",
                        "  local_time       <2026/03/07(6) 14:05:09.042>", "  InitFlag[0]  <-1>" }));
    EXPECT_EQ(Strings(lines.begin() + 23, lines.begin() + 44), Strings({ "  instance[ 9]   : rawparamID <0> ",
                                                                         "                   inst_sub[0].value <0> ",
                                                                         "  instance[10]   : rawparamID <10> ",
                                                                         "                   inst_sub[0].value <-1> ",
                                                                         "  instance[11]   : rawparamID <0> ",
                                                                         "                   inst_sub[0].value <0> ",
                                                                         "  maxinstance[0] : rawparamID <0> ",
                                                                         "                   inst_sub[0].value <900> ",
                                                                         "  maxinstance[1] : rawparamID <1> ",
                                                                         "                   inst_sub[0].value <901> ",
                                                                         "  maxinstance[2] : rawparamID <2> ",
                                                                         "                   inst_sub[0].value <902> ",
                                                                         "  maxinstance[3] : rawparamID <3> ",
                                                                         "                   inst_sub[0].value <903> ",
                                                                         "  maxinstance[4] : rawparamID <4> ",
                                                                         "                   inst_sub[0].value <904> ",
                                                                         "  maxinstance[5] : rawparamID <5> ",
                                                                         "                   inst_sub[0].value <905> ",
                                                                         "  maxinstance[6] : rawparamID <6> ",
                                                                         "                   inst_sub[0].value <906> ",
                                                                         "  InitFlag[1]  <0>" }));
}

class ShmDumpModel : public ShmDump, public testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(Seeds, ShmDumpModel, testing::Range(1u, 4u));

TEST_P(ShmDumpModel, AStoreDumpsTheRegionAsTheGeneratorWritesIt)
{
    std::mt19937_64 random(GetParam());
    uint8_t*        raw = Attach();
    Bytes           garbage = RandomBytes(random, RegionSize), sample = RandomSample(random);
    memcpy(raw, garbage.data(), RegionSize);
    g_dwDkpfLogLevel = 0xFFFF;
    EXPECT_TRUE(Store(sample));
    Strings expected = DumpOfRegion(raw);
    EXPECT_EQ(expected.size(), 4u + 64 * 487);
    EXPECT_EQ(FirstDifference(Dumped("_DkpfShmSetPerf"), expected), "");
}

TEST_P(ShmDumpModel, AReadDumpsTheCallersRecordAsTheGeneratorWritesIt)
{
    std::mt19937_64 random(GetParam());
    uint8_t*        raw = Attach(static_cast<int>(GetParam()));
    Bytes           garbage = RandomBytes(random, RegionSize), sample(SampleSize);
    memcpy(raw, garbage.data(), RegionSize);
    g_dwDkpfLogLevel = 0xFFFF;
    EXPECT_TRUE(Read(sample));
    Strings expected = DumpOfSample(sample.data());
    EXPECT_EQ(expected.size(), 4u + 64 * 39);
    EXPECT_EQ(FirstDifference(Dumped("_DkpfShmGetPerf"), expected), "");
}

TEST_F(ShmDump, IsWrittenWhileTheMutexIsHeld)
{
    Attach();
    Bytes sample(SampleSize);
    g_dwDkpfLogLevel = 32;
    for (bool store : { true, false }) {
        StartStory();
        EXPECT_TRUE(store ? Store(sample) : Read(sample));
        Routine F(store ? "_DkpfShmSetPerf" : "_DkpfShmGetPerf", "diskperf_trace");
        Strings story = Story(), lock = Lock(), unlock = Unlock();
        size_t  dump = store ? 31172u : 2500u;
        ASSERT_EQ(story.size(), 1 + lock.size() + dump + unlock.size() + 1);
        EXPECT_EQ(Strings(story.begin(), story.begin() + 5), Joined(F(8, "ENTER :"), lock));
        EXPECT_EQ(Strings(story.end() - 4, story.end()), Joined(unlock, F(8, Exit(true, Success))));
    }
}

TEST_F(ShmDump, IsWrittenBeforeAFailedUnlock)
{
    Attach();
    Bytes sample(SampleSize);
    g_dwDkpfLogLevel = 32;
    os.Fail("ReleaseMutex", 1, 288);
    EXPECT_FALSE(Read(sample));
    EXPECT_EQ(Dumped("_DkpfShmGetPerf").size(), 2500u);
}

class ShmDumpLevel : public ShmDump, public testing::WithParamInterface<DWORD> {};

INSTANTIATE_TEST_SUITE_P(Levels, ShmDumpLevel, testing::Values(0u, 7u, 31u, 32u, 39u, 0x8000u, 0xFFDFu, 0xFFFFu));

// The bulk dumps alone look at the level: all other lines are handed over, the logging library decides.
TEST_P(ShmDumpLevel, BulkDumpsAreSkippedWithoutBit32AndNothingElseIs)
{
    Attach();
    Bytes     sample(SampleSize);
    DKPF_CONF conf = {};
    g_dwDkpfLogLevel = GetParam();
    bool on = GetParam() == 32 || GetParam() == 39 || GetParam() == 0xFFFF;
    EXPECT_TRUE(Store(sample));
    EXPECT_EQ(Dumped("_DkpfShmSetPerf").size(), on ? 31172u : 0u);
    EXPECT_TRUE(Read(sample));
    EXPECT_EQ(Dumped("_DkpfShmGetPerf").size(), on ? 2500u : 0u);
    EXPECT_TRUE(_DkpfShmGetConf(0xFFFF, &conf, &dwErr));
    EXPECT_EQ(Dumped("_DkpfShmGetConf").size(), 5u);
    EXPECT_EQ(log.Texts("diskperf_trace", 8),
              Strings({ "ENTER :", Exit(true, Success), "ENTER :", Exit(true, Success) }));
    EXPECT_EQ(Dumped("_DkpfMutexLock").size(), 9u);
}
