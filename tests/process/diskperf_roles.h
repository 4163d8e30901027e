/*
 * Fixture of the cases with role programs: processes of one home, and copies of the region they share.
 */
#ifndef DKPF_TESTS_DISKPERF_ROLES_H
#define DKPF_TESTS_DISKPERF_ROLES_H

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "region_reader.h"
#include "support/patience.h"
#include "support/product_home.h"
#include "support/program.h"

class Roles : public testing::Test {
protected:
    static constexpr const char* DONE = "1 b0000000";

    Roles()
    {
        home.Install(L"diskperf_role.exe");
    }

    std::unique_ptr<Program> StartRole()
    {
        auto role = std::make_unique<Program>(home.Path(L"bin\\diskperf_role.exe"));
        EXPECT_EQ("READY", role->Line());
        return role;
    }

    std::unique_ptr<Program> StartProducer()
    {
        auto producer = StartRole();
        EXPECT_EQ(DONE, producer->Ask("init 1"));
        return producer;
    }

    std::unique_ptr<Program> StartReader()
    {
        auto reader = StartRole();
        EXPECT_EQ(DONE, reader->Ask("init 0"));
        return reader;
    }

    /* The region as a tool copies it; throws where it cannot. */
    static std::unique_ptr<DKPF_SHM_INFO> Region()
    {
        dkpf::RegionCopy copy = dkpf::ReadRegion();
        if (copy.status != dkpf::RegionStatus::Copied) {
            throw std::runtime_error(copy.words);
        }
        return std::move(copy.info);
    }

    /* The owners of the rows from 0 on, up to the last that has one. */
    static std::vector<DWORD> Owners()
    {
        const auto         region = Region();
        std::vector<DWORD> owners(region->PMProcessID, region->PMProcessID + DKPF_PROC_MAX);
        while (!owners.empty() && owners.back() == 0) {
            owners.pop_back();
        }
        return owners;
    }

    /* The tick of the sample that the region shows; 0 before the first. */
    static DWORD SampleTick()
    {
        return Region()->sampling_time;
    }

    /* Peaks that are fed before it are lost with the request that is discarded. */
    static bool AwaitFirstSample()
    {
        return Eventually([] { return SampleTick() != 0; });
    }

    /* Waits for a sample taken after this call began. */
    static void AwaitFreshSample()
    {
        for (int i = 0; i < 2; i++) {  // the first may have been under way
            const DWORD before = SampleTick();
            ASSERT_TRUE(Eventually([&] { return SampleTick() != before && SampleTick() != 0; }));
        }
    }

    ProductHome home;
};

#endif
