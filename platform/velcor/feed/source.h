/*
 * Where the numbers come from: the host's disks or a scenario. Both give one step after the other.
 */
#ifndef VELCORFEED_SOURCE_H
#define VELCORFEED_SOURCE_H

#include <string>
#include <vector>

#include <windows.h>
#include "velcor.h"

/* One disk of a step, as the journal tells it. The sums are those of both records together. */
struct FedDisk {
    unsigned           disk;  // 1 to 64
    std::string        host;  // the host disk's name; "-" in a scenario
    unsigned long long writeBytes;
    unsigned long long writes;
    unsigned long long writeUs;
};

/* One step, ready to be fed. */
struct Step {
    VELCOR_FEED              feed;
    std::vector<FedDisk>     disks;  // those that are initialised
    std::vector<std::string> words;  // what there is to tell the operator, a sentence each
};

class Source {
public:
    virtual ~Source() = default;
    /** @return false when there is no step any more; step is then of no use. */
    virtual bool Next(Step& step) = 0;
};

#endif
