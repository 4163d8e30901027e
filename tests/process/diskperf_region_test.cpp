/*
 * The shared region between real processes: who makes it, who has a row in it, who may open it, and what is left of it
 * when one of them is killed. No driver is there, so that no sample disturbs.
 */
#include "process/diskperf_roles.h"
#include "support/service.h"

#include <aclapi.h>
#include <string.h>
#include <algorithm>
#include <functional>

class SharedRegion : public Roles {
protected:
    SharedRegion()
    {
        RemoveService(VELCOR_SERVICE_NAME);
    }

    static bool RegionIsThere()
    {
        const HANDLE mapping = OpenFileMappingA(FILE_MAP_READ, FALSE, DKPF_SHM_NAME);
        if (mapping != NULL) {
            CloseHandle(mapping);
        }
        return mapping != NULL;
    }

    /* The collect thread finds no device and writes zeros over zeros on its way out; wait for it. */
    void AwaitCollectorsEnd(int count = 1)
    {
        EXPECT_TRUE(Eventually([&] { return home.Events("0xC00012C5") == count; }));
    }
};

TEST_F(SharedRegion, IsMadeByTheProducerZeroedWithTheConfigurationInIt)
{
    home.Configure({ { "parameters/perfenable", "0" },
                     { "parameters/perflogsize", "101" },
                     { "parameters/perflogrotation", "7" },
                     { "parameters/collectinterval", "31" },
                     { "parameters/writeinterval", "57" },
                     { "parameters/collectparam", "0x1234" },
                     { "log/level", "5" },
                     { "log/size", "99" } });
    EXPECT_FALSE(RegionIsThere());
    const auto producer = StartProducer();

    const HANDLE mapping = OpenFileMappingA(FILE_MAP_READ, FALSE, "Global\\TNW_DKPF_SHM_INFO");
    ASSERT_NE(static_cast<HANDLE>(NULL), mapping);
    const void* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 216784);
    ASSERT_NE(nullptr, view);
    // perfenable, perflogsave (default), perflogsize, perflogrotation, both intervals, log/level, log/size,
    // collectparam
    const DWORD                expected[] = { 0, 1, 101, 7, 31, 57, 5, 99, 0x1234 };
    std::vector<unsigned char> bytes(216784);
    memcpy(bytes.data(), view, bytes.size());
    EXPECT_EQ(0, memcmp(expected, bytes.data(), sizeof(expected)));
    EXPECT_EQ(static_cast<long>(bytes.size() - 36), std::count(bytes.begin() + 36, bytes.end(), 0));
    // The system gives whole pages: 216784 bytes are 53 of them, and there is no 54th.
    EXPECT_EQ(nullptr, MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 53 * 4096 + 1));
    UnmapViewOfFile(view);
    CloseHandle(mapping);
}

TEST_F(SharedRegion, EndsWithItsLastProcess)
{
    auto producer = StartProducer();
    EXPECT_EQ(DONE, producer->Ask("term"));
    EXPECT_EQ("0", producer->Ask("views"));
    EXPECT_FALSE(RegionIsThere());
}

TEST_F(SharedRegion, AReaderBeforeTheProducerIsRefusedAndMaySoonTryAgain)
{
    const auto reader = StartRole();
    EXPECT_EQ("0 b000001a", reader->Ask("init 0"));
    EXPECT_EQ("0", reader->Ask("views"));
    EXPECT_FALSE(RegionIsThere());
    EXPECT_EQ("0 b0000002", reader->Ask("term"));
    const auto producer = StartProducer();
    EXPECT_EQ(DONE, reader->Ask("init 0"));
    EXPECT_EQ("1", reader->Ask("views"));
    EXPECT_EQ((std::vector<DWORD>{ 0, reader->Id() }), Owners());
}

TEST_F(SharedRegion, ThirtyTwoReadersHaveARowAndThe33rdIsTurnedAway)
{
    auto                                  producer = StartProducer();
    std::vector<std::unique_ptr<Program>> readers;
    std::vector<DWORD>                    rows{ 0 };
    for (int row = 1; row <= 32; row++) {
        readers.push_back(StartReader());
        rows.push_back(readers.back()->Id());
        ASSERT_EQ(rows, Owners());
    }
    EXPECT_EQ(0, home.Events("0xC00012C6"));
    const auto late = StartRole();
    EXPECT_EQ("0 b0000003", late->Ask("init 0"));
    EXPECT_EQ("0", late->Ask("views"));
    EXPECT_EQ(1, home.Events("0xC00012C6"));
    EXPECT_EQ(rows, Owners());

    EXPECT_EQ(DONE, readers[16]->Ask("term"));  // row 17
    EXPECT_EQ(DONE, late->Ask("init 0"));
    rows[17] = late->Id();
    EXPECT_EQ(rows, Owners());
    EXPECT_EQ(1, home.Events("0xC00012C6"));
}

TEST_F(SharedRegion, AReaderTurnedAwayDoesNotKeepTheRegion)
{
    auto                                  producer = StartProducer();
    std::vector<std::unique_ptr<Program>> readers;
    for (int row = 1; row <= 32; row++) {
        readers.push_back(StartReader());
    }
    const auto late = StartRole();
    EXPECT_EQ("0 b0000003", late->Ask("init 0"));
    readers.clear();
    producer->Kill();
    EXPECT_TRUE(Eventually([] { return !RegionIsThere(); }));
}

TEST_F(SharedRegion, AKilledReadersRowIsFreedByTheNextStartAndUsedAgain)
{
    const auto producer = StartProducer();
    const auto first = StartReader();
    const auto killed = StartReader();
    const auto third = StartReader();
    killed->Tell("die");
    EXPECT_EQ(77u, killed->End());
    EXPECT_EQ((std::vector<DWORD>{ 0, first->Id(), killed->Id(), third->Id() }), Owners());  // nobody looks until then
    const auto next = StartReader();
    EXPECT_EQ((std::vector<DWORD>{ 0, first->Id(), next->Id(), third->Id() }), Owners());
}

TEST_F(SharedRegion, AllRowsOfKilledReadersAreFreedByOneStart)
{
    const auto                            producer = StartProducer();
    std::vector<std::unique_ptr<Program>> readers;
    for (int row = 1; row <= 4; row++) {
        readers.push_back(StartReader());
    }
    for (int i : { 0, 1, 3 }) {
        readers[static_cast<size_t>(i)]->Kill();
    }
    const auto next = StartReader();
    EXPECT_EQ((std::vector<DWORD>{ 0, next->Id(), 0, readers[2]->Id() }), Owners());
}

TEST_F(SharedRegion, TerminateFreesTheRowAtOnce)
{
    const auto producer = StartProducer();
    const auto first = StartReader();
    const auto second = StartReader();
    EXPECT_EQ(DONE, first->Ask("term"));
    EXPECT_EQ((std::vector<DWORD>{ 0, 0, second->Id() }), Owners());
    EXPECT_EQ("0", first->Ask("views"));
    EXPECT_EQ(DONE, first->Ask("init 0"));
    EXPECT_EQ((std::vector<DWORD>{ 0, first->Id(), second->Id() }), Owners());
}

TEST_F(SharedRegion, ASecondInitializeOfAReaderOnlyCounts)
{
    const auto producer = StartProducer();
    const auto reader = StartReader();
    EXPECT_EQ("1 b0000001", reader->Ask("init 0"));
    EXPECT_EQ("1", reader->Ask("views"));
    EXPECT_EQ((std::vector<DWORD>{ 0, reader->Id() }), Owners());
    EXPECT_EQ(DONE, reader->Ask("term"));
    EXPECT_EQ((std::vector<DWORD>{ 0, reader->Id() }), Owners());
    EXPECT_EQ(DONE, reader->Ask("term"));
    EXPECT_EQ(std::vector<DWORD>(), Owners());
    EXPECT_EQ("0 b0000002", reader->Ask("term"));
}

TEST_F(SharedRegion, ASecondInitializeOfTheProducerWipesNothing)
{
    const auto producer = StartProducer();
    const auto reader = StartReader();
    AwaitCollectorsEnd();
    EXPECT_EQ("1 b0000001", producer->Ask("init 1"));
    EXPECT_EQ((std::vector<DWORD>{ 0, reader->Id() }), Owners());
    EXPECT_EQ(DONE, producer->Ask("term"));
    EXPECT_EQ(DONE, producer->Ask("reinit"));  // still up
    EXPECT_EQ(DONE, producer->Ask("term"));
    EXPECT_EQ("0 b0000002", producer->Ask("reinit"));
    EXPECT_EQ(1, home.Events("0xC00012C5"));  // no second collector was started
}

TEST_F(SharedRegion, AKilledOwnersMutexIsTakenOverByTheProducer)
{
    const auto producer = StartProducer();
    const auto owner = StartReader();
    AwaitCollectorsEnd();
    ASSERT_EQ("held", owner->Ask("hold"));
    owner->Tell("die");
    EXPECT_EQ(77u, owner->End());
    home.Configure({ { "parameters/writeinterval", "44" } });
    EXPECT_EQ(DONE, producer->Ask("reinit"));
    EXPECT_EQ(44u, Region()->conf.write_interval);
}

TEST_F(SharedRegion, AKilledOwnersMutexIsTakenOverByAReaderThatStarts)
{
    const auto producer = StartProducer();
    const auto owner = StartReader();
    AwaitCollectorsEnd();
    ASSERT_EQ("held", owner->Ask("hold"));
    owner->Tell("die");
    EXPECT_EQ(77u, owner->End());
    const auto next = StartReader();
    EXPECT_EQ((std::vector<DWORD>{ 0, next->Id() }), Owners());
}

TEST_F(SharedRegion, AKilledOwnersMutexIsTakenOverByAReaderThatEnds)
{
    const auto producer = StartProducer();
    const auto reader = StartReader();
    const auto owner = StartReader();
    AwaitCollectorsEnd();
    ASSERT_EQ("held", owner->Ask("hold"));
    owner->Tell("die");
    EXPECT_EQ(77u, owner->End());
    EXPECT_EQ(DONE, reader->Ask("term"));
    EXPECT_EQ((std::vector<DWORD>{ 0, 0, owner->Id() }), Owners());
}

TEST_F(SharedRegion, AMutexHeldByALivingProcessIsWaitedFor)
{
    const auto producer = StartProducer();
    const auto owner = StartReader();
    const auto waiting = StartRole();
    ASSERT_EQ("held", owner->Ask("hold"));
    waiting->Tell("init 0");
    EXPECT_EQ(dkpf::RegionStatus::Busy, dkpf::ReadRegion({ DKPF_SHM_NAME, DKPF_MUTEX_NAME, 300 }).status);
    owner->Tell("die");
    EXPECT_EQ(DONE, waiting->Line());
}

TEST_F(SharedRegion, OutlivesAKilledProducerAndIsWipedByTheNext)
{
    home.Configure({ { "parameters/writeinterval", "21" } });
    const auto killed = StartProducer();
    const auto reader = StartReader();
    AwaitCollectorsEnd();
    const auto before = Region();
    ASSERT_EQ("held", killed->Ask("hold"));  // the worst moment
    killed->Tell("die");
    EXPECT_EQ(77u, killed->End());
    const auto after = Region();
    EXPECT_EQ(0, memcmp(before.get(), after.get(), DKPF_SHM_SIZE));
    EXPECT_EQ(reader->Id(), after->PMProcessID[1]);
    EXPECT_EQ(21u, after->conf.write_interval);

    home.Configure({ { "parameters/writeinterval", "22" } });
    const auto next = StartProducer();
    EXPECT_EQ(std::vector<DWORD>(), Owners());  // the reader's too: it has to attach again
    EXPECT_EQ(22u, Region()->conf.write_interval);
    EXPECT_EQ(DONE, reader->Ask("term"));
    EXPECT_EQ(DONE, reader->Ask("init 0"));
    EXPECT_EQ((std::vector<DWORD>{ 0, reader->Id() }), Owners());
}

TEST_F(SharedRegion, AToolReadsItReadOnlyWithoutARow)
{
    const auto producer = StartProducer();
    AwaitCollectorsEnd();
    const auto before = Region();
    const auto after = Region();
    EXPECT_EQ(0, memcmp(before.get(), after.get(), DKPF_SHM_SIZE));
    EXPECT_EQ(std::vector<DWORD>(), Owners());
    const auto reader = StartReader();
    EXPECT_EQ((std::vector<DWORD>{ 0, reader->Id() }), Owners());  // row 1: nobody took it
}

TEST_F(SharedRegion, NamedObjectsAreOpenToEveryAccount)
{
    const auto producer = StartProducer();
    struct {
        const char*             name;
        std::function<HANDLE()> open;
    } objects[] = {
        { "mutex", [] { return OpenMutexA(READ_CONTROL, FALSE, "Global\\TNW_DKPF_MUTEX_INFO"); } },
        { "event 1", [] { return OpenEventA(READ_CONTROL, FALSE, "Global\\TNW_DKPF_EVENT_RELOAD1"); } },
        { "event 2", [] { return OpenEventA(READ_CONTROL, FALSE, "Global\\TNW_DKPF_EVENT_RELOAD2"); } },
        { "region", [] { return OpenFileMappingA(READ_CONTROL, FALSE, "Global\\TNW_DKPF_SHM_INFO"); } },
    };
    for (const auto& object : objects) {
        const HANDLE handle = object.open();
        ASSERT_NE(static_cast<HANDLE>(NULL), handle) << object.name;
        std::vector<unsigned char> descriptor(4096);
        DWORD                      needed = 0;
        ASSERT_TRUE(GetKernelObjectSecurity(handle, DACL_SECURITY_INFORMATION, descriptor.data(), 4096, &needed));
        BOOL present = FALSE, defaulted = FALSE;
        ACL* dacl = reinterpret_cast<ACL*>(1);
        ASSERT_TRUE(GetSecurityDescriptorDacl(descriptor.data(), &present, &dacl, &defaulted));
        EXPECT_TRUE(present) << object.name;
        EXPECT_EQ(nullptr, dacl) << object.name;
        CloseHandle(handle);
    }
}

TEST_F(SharedRegion, ReinitializePublishesWhatTheFileSaysNow)
{
    const auto producer = StartProducer();
    const auto reader = StartReader();
    home.Configure({ { "parameters/collectparam", "0x5" }, { "parameters/perflogsave", "0" } });
    EXPECT_EQ("0 b0000011", reader->Ask("reinit"));
    EXPECT_EQ(0x1ffffu, Region()->conf.collect_param);
    EXPECT_EQ(DONE, producer->Ask("reinit"));
    EXPECT_EQ(5u, Region()->conf.collect_param);
    EXPECT_EQ(0u, Region()->conf.perf_log_save);
    EXPECT_EQ((std::vector<DWORD>{ 0, reader->Id() }), Owners());
    home.BreakConfiguration();
    EXPECT_EQ("0 b000000e", producer->Ask("reinit"));
    EXPECT_EQ(5u, Region()->conf.collect_param);
}

TEST_F(SharedRegion, StartsWithoutALogFolder)
{
    home.Remove(L"log");
    const auto producer = StartProducer();
    const auto reader = StartReader();
    EXPECT_EQ((std::vector<DWORD>{ 0, reader->Id() }), Owners());
    EXPECT_EQ(DONE, producer->Ask("term"));
}

TEST_F(SharedRegion, DoesNotStartWithABrokenConfigurationAndLeavesNothing)
{
    home.BreakConfiguration();
    const auto producer = StartRole();
    EXPECT_EQ("0 b0000028", producer->Ask("init 1"));
    EXPECT_EQ("0", producer->Ask("views"));
    EXPECT_FALSE(RegionIsThere());
    home.Configure();
    EXPECT_EQ(DONE, producer->Ask("init 1"));
}

TEST_F(SharedRegion, WithoutADriverTheProducerStaysRaisesTheEventOnceAndShowsZeros)
{
    const auto producer = StartProducer();
    AwaitCollectorsEnd();
    EXPECT_EQ(DONE, producer->Ask("reinit"));
    const auto region = Region();
    const auto bytes = reinterpret_cast<const unsigned char*>(region.get());
    EXPECT_EQ(DKPF_SHM_SIZE - 36, static_cast<DWORD>(std::count(bytes + 36, bytes + DKPF_SHM_SIZE, 0)));
    EXPECT_EQ(DONE, producer->Ask("term"));
    EXPECT_EQ(1, home.Events("0xC00012C5"));
    EXPECT_TRUE(home.List(L"perf").empty());
}
