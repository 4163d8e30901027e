/*
 * The copy of the region from a mapping that the test makes, and what the copy says when it is checked.
 */
#include <gmock/gmock.h>
#include <cstring>
#include <memory>
#include <thread>

#include "region_reader.h"
#include "region_view.h"

using namespace dkpf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

static constexpr char         MAPPING[] = "Global\\TNW_DKPF_REGION_UNDER_TEST";
static constexpr char         MUTEX[] = "Global\\TNW_DKPF_MUTEX_UNDER_TEST";
static constexpr RegionSource SOURCE = { MAPPING, MUTEX, 0 };  // waits for nothing

namespace {

/* A region as a producer makes it. */
class MadeRegion {
public:
    explicit MadeRegion(DWORD size = DKPF_SHM_SIZE)
    {
        mutex = CreateMutexA(nullptr, FALSE, MUTEX);
        m_mapping = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, MAPPING);
        view = static_cast<unsigned char*>(MapViewOfFile(m_mapping, FILE_MAP_ALL_ACCESS, 0, 0, size));
    }
    ~MadeRegion()
    {
        UnmapViewOfFile(view);
        CloseHandle(m_mapping);
        DropMutex();
    }
    MadeRegion(const MadeRegion&) = delete;
    MadeRegion& operator=(const MadeRegion&) = delete;

    void DropMutex()
    {
        if (mutex != nullptr)
            CloseHandle(mutex);
        mutex = nullptr;
    }

    HANDLE         mutex = nullptr;
    unsigned char* view = nullptr;

private:
    HANDLE m_mapping = nullptr;
};

}  // namespace

static bool NameExists(const char* mapping, const char* mutex)
{
    HANDLE found =
        mapping != nullptr ? OpenFileMappingA(FILE_MAP_READ, FALSE, mapping) : OpenMutexA(SYNCHRONIZE, FALSE, mutex);
    if (found != nullptr)
        CloseHandle(found);
    return found != nullptr;
}

/* ---- The copy ---- */

TEST(RegionReader, WithoutARegionItSaysSoAndCreatesNothing)
{
    const RegionCopy copy = ReadRegion(SOURCE);
    EXPECT_EQ(copy.status, RegionStatus::Absent);
    EXPECT_THAT(copy.words, HasSubstr("is the disk agent running?"));
    EXPECT_FALSE(NameExists(MAPPING, nullptr));
    EXPECT_FALSE(NameExists(nullptr, MUTEX));
}

TEST(RegionReader, WithoutAMutexItCopiesNothingAndCreatesNone)
{
    MadeRegion region;
    region.DropMutex();
    EXPECT_EQ(ReadRegion(SOURCE).status, RegionStatus::Absent);
    EXPECT_FALSE(NameExists(nullptr, MUTEX));
}

TEST(RegionReader, EveryByteIsCopiedAndNoneIsChanged)
{
    MadeRegion                 region;
    std::vector<unsigned char> before(DKPF_SHM_SIZE);
    for (size_t i = 0; i < before.size(); i++)
        before[i] = static_cast<unsigned char>(i * 31 + (i >> 8));
    std::memcpy(region.view, before.data(), before.size());

    const RegionCopy copy = ReadRegion(SOURCE);
    ASSERT_EQ(copy.status, RegionStatus::Copied);
    EXPECT_EQ(std::memcmp(copy.info.get(), before.data(), before.size()), 0);
    EXPECT_EQ(std::memcmp(region.view, before.data(), before.size()), 0);
}

TEST(RegionReader, TheMutexIsFreeAfterTheCopy)
{
    MadeRegion region;
    ASSERT_EQ(ReadRegion(SOURCE).status, RegionStatus::Copied);
    std::thread([&region] { EXPECT_EQ(WaitForSingleObject(region.mutex, 0), WAIT_OBJECT_0); }).join();
}

TEST(RegionReader, AHeldMutexIsToldAfterTheWait)
{
    MadeRegion region;
    ASSERT_EQ(WaitForSingleObject(region.mutex, 0), WAIT_OBJECT_0);
    RegionCopy copy;
    std::thread([&copy] { copy = ReadRegion(SOURCE); }).join();
    EXPECT_EQ(copy.status, RegionStatus::Busy);
    EXPECT_THAT(copy.words, HasSubstr("held for more than 0 ms"));
    EXPECT_EQ(copy.info, nullptr);
    ReleaseMutex(region.mutex);
}

TEST(RegionReader, AnAbandonedMutexCountsAsTaken)
{
    MadeRegion region;
    std::thread([&region] { EXPECT_EQ(WaitForSingleObject(region.mutex, 0), WAIT_OBJECT_0); }).join();
    EXPECT_EQ(ReadRegion(SOURCE).status, RegionStatus::Copied);
}

TEST(RegionReader, ARegionOfAnotherSizeIsRefusedInWords)
{
    MadeRegion       region(4096);
    const RegionCopy copy = ReadRegion(SOURCE);
    EXPECT_EQ(copy.status, RegionStatus::Refused);
    EXPECT_TRUE(copy.opened);
    EXPECT_THAT(copy.words, HasSubstr("216784 bytes"));
}

TEST(RegionReader, TheDefaultsAreTheProductsNamesAndTwoSeconds)
{
    const RegionSource source;
    EXPECT_STREQ(source.mapping, "Global\\TNW_DKPF_SHM_INFO");
    EXPECT_STREQ(source.mutex, "Global\\TNW_DKPF_MUTEX_INFO");
    EXPECT_EQ(source.waitMs, 2000u);
}

/* ---- What it says ---- */

namespace {

class RegionViewTest : public testing::Test {
protected:
    RegionViewTest()
    {
        info->param_num = 12;
        info->parammax_num = 7;
        info->sampling_time = 1000;
        info->local_time = SYSTEMTIME{ 2026, 3, 6, 7, 14, 5, 9, 42 };
    }

    std::unique_ptr<DKPF_SHM_INFO> info = std::make_unique<DKPF_SHM_INFO>();
};

}  // namespace

TEST_F(RegionViewTest, ASoundRegionShowsNoDamage)
{
    info->InitFlag[0] = info->InitFlag[63] = 1;
    info->InitFlag[5] = 2;
    const RegionView view = ViewRegion(*info, 3500);
    EXPECT_THAT(view.damage, IsEmpty());
    EXPECT_THAT(view.disks, ElementsAre(1, 64));
    EXPECT_TRUE(view.hasSample);
    EXPECT_EQ(view.ageMs, 2500u);
}

TEST_F(RegionViewTest, TheAgeSurvivesTheWrapOfTheTickCounter)
{
    info->sampling_time = 0xFFFFFF00;
    EXPECT_EQ(ViewRegion(*info, 0x100).ageMs, 0x200u);
}

TEST_F(RegionViewTest, DayZeroIsNoSample)
{
    info->local_time = SYSTEMTIME{};
    const RegionView view = ViewRegion(*info, 5000);
    EXPECT_FALSE(view.hasSample);
    EXPECT_THAT(view.damage, IsEmpty());
}

TEST_F(RegionViewTest, CountsBeyondTheRowsAreClampedAndTold)
{
    info->param_num = 0xFFFFFFFF;
    info->parammax_num = 8;
    const RegionView view = ViewRegion(*info, 1000);
    EXPECT_EQ(view.currentRows, 12u);
    EXPECT_EQ(view.peakRows, 7u);
    EXPECT_THAT(view.damage, ElementsAre("param_num is 4294967295, at most 12 is possible: 12 assumed",
                                         "parammax_num is 8, at most 7 is possible: 7 assumed"));
}

TEST_F(RegionViewTest, ADateThatIsNoneIsToldAndDoesNotCount)
{
    info->local_time.wMonth = 13;
    const RegionView view = ViewRegion(*info, 1000);
    EXPECT_FALSE(view.hasSample);
    EXPECT_THAT(view.damage, ElementsAre("local_time is no date: the sample does not count"));
}

TEST_F(RegionViewTest, AnOwnerInRowZeroIsDamage)
{
    info->PMProcessID[0] = 77;
    EXPECT_THAT(ViewRegion(*info, 1000).damage, ElementsAre("PMProcessID[0] is 77: the producer enters none"));
}

// In the record log_level stands in front of log_size, perf_log_size behind perf_log_save, and so on.
TEST_F(RegionViewTest, EachPublishedSettingComesFromItsOwnField)
{
    info->conf = DKPF_CONF{ 1, 2, 3, 4, 5, 6, 7, 8, 9 };
    EXPECT_EQ(ViewRegion(*info, 1000).published, (SettingValues{ 1, 2, 3, 4, 5, 6, 9, 7, 8 }));
}

TEST_F(RegionViewTest, NoiseInEveryByteNeverLeavesTheBounds)
{
    std::memset(info.get(), 0xFF, sizeof(*info));
    const RegionView view = ViewRegion(*info, 1000);
    EXPECT_LE(view.currentRows, 12u);
    EXPECT_THAT(view.disks, IsEmpty());
    EXPECT_FALSE(view.hasSample);
}

TEST(DiskList, RunsAreDrawnTogether)
{
    EXPECT_EQ(DiskListText({}), "none");
    EXPECT_EQ(DiskListText({ 7 }), "7");
    EXPECT_EQ(DiskListText({ 1, 2, 3, 5, 7, 8 }), "1 to 3, 5, 7 to 8");
}
