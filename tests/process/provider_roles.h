/*
 * Fixture of the cases on the provider of performance data: registered, with a producer that collects every second from
 * the real driver.
 */
#ifndef DKPF_TESTS_PROVIDER_ROLES_H
#define DKPF_TESTS_PROVIDER_ROLES_H

#include "process/diskperf_roles.h"
#include "process/registered_provider.h"
#include "support/driver.h"

class ProviderRoles : public Roles {
protected:
    /* The producer, after its first sample: an open before it would be refused. */
    std::unique_ptr<Program> StartCollecting()
    {
        EXPECT_TRUE(driver.service->Start());
        driver.Feed(feed);
        auto producer = StartProducer();
        EXPECT_TRUE(AwaitFirstSample());
        return producer;
    }

    RegisteredProvider registration{ home };
    InstalledDriver    driver;
    VELCOR_FEED        feed = {};
};

#endif
