/*
 * Builder of a mirror performance record, for the scripts of the driver's and the filter's double.
 *
 *   Record().Disk(3).With(3, &VELCOR_ENTRY::write_bytes, 7)      slot 3 present, asynchronous, 7 bytes written
 */
#ifndef TESTS_DOUBLES_MIRROR_RECORD_H
#define TESTS_DOUBLES_MIRROR_RECORD_H

#include <windows.h>

#include "velcor.h"

struct Record {
    VELCOR_RECORD record = {};

    Record()
    {
        record.header = VELCOR_REQUEST_HEADER;
    }
    /* The disk slot (0 to 63) is present. */
    Record& Disk(unsigned slot, unsigned mode = VELCOR_MODE_ASYNC)
    {
        record.entry[slot].state = VELCOR_STATE_INITIALIZED;
        record.entry[slot].mode = mode;
        return *this;
    }
    Record& Sync(unsigned slot)
    {
        return Disk(slot, VELCOR_MODE_SYNC);
    }
    Record& With(unsigned slot, unsigned long long VELCOR_ENTRY::*field, unsigned long long value)
    {
        record.entry[slot].*field = value;
        return *this;
    }
};

#endif
