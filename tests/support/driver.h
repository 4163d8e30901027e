/*
 * The simulated driver as a service of the prefix, for one case: its file put in place, gone with the object. It runs
 * only when it is started.
 */
#ifndef DKPF_TESTS_DRIVER_H
#define DKPF_TESTS_DRIVER_H

#include <memory>

#include "support/service.h"
#include "velcor.h"

class InstalledDriver {
public:
    InstalledDriver();
    ~InstalledDriver();
    InstalledDriver(const InstalledDriver&) = delete;
    InstalledDriver& operator=(const InstalledDriver&) = delete;

    /* Hands both records over, as the feeder does. Throws where the driver refuses. */
    void Feed(const VELCOR_FEED& feed) const;

    std::unique_ptr<Service> service;

private:
    std::string file;
};

#endif
