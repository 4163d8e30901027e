/*
 * The small model of a mirrored disk: from what was written in one step to the 19 numbers of both records.
 *
 * A step is one second. What is written in it joins the send queue; the link hands over up to its rate, in transfers of
 * at most 64 KiB, and reduces the bytes on the way; the other side acknowledges them one step later.
 *
 *   number           now, or sum                                          peak of the step
 *   send queue       what the link did not get to                         all writes of the step before any left
 *   handed           + bytes that left the send queue
 *   transferred      + handed * ratio / 100, the remainder carried on
 *   history buffer   handed in this step, not acknowledged yet            the larger of this and the last step's
 *   request queue    as the load says                                     the same
 *   memory           send queue in whole blocks of 64 KiB                 the send queue's peak in whole blocks
 *   unsynchronised   send queue + history buffer                          send queue's peak + last step's history
 *   transfers        + handed / 64 KiB, rounded up
 *   transfer us      + transfers * base time + 1 us for each 128 bytes    base time + that of the largest transfer
 *                      transferred
 *
 * All sums wrap at 2^64.
 */
#ifndef VELCORFEED_MIRROR_MODEL_H
#define VELCORFEED_MIRROR_MODEL_H

#include <windows.h>
#include "velcor.h"

const unsigned long long TRANSFER_BLOCK = 64 * 1024;  // largest transfer, and the unit of transfer memory, bytes
const unsigned long long TRANSFER_BYTES_PER_US = 128;

/* What a disk did in one step. */
struct Load {
    unsigned long long writeBytes;
    unsigned long long writes;
    unsigned long long writeUs;       // response times of these writes, added up
    unsigned long long longestUs;     // the longest of them
    unsigned long long requestBytes;  // request queue at the end of the step
};

/* The way to the other side. */
struct Link {
    unsigned long long bytesPerStep;  // handed over in a step at most
    unsigned long long ratio;         // percent that remain after reduction
    unsigned long long transferUs;    // base time of one transfer
};

/* A mirrored disk between two steps. numbers holds mode, state and the 19 numbers as they are, whoever counts them. */
struct MirrorDisk {
    VELCOR_ENTRY       numbers;
    unsigned long long carry;  // of the reduction, hundredths of a byte
};

/** Takes the disk one step on. Mode and state are left alone. */
void Advance(MirrorDisk& disk, const Load& load, const Link& link);

/**
 * Sets the sums of a disk that has already written, as if all of it had been handed over with empty queues, so that a
 * feeder that starts again goes on near the sums that stood there before.
 */
void StartAt(MirrorDisk& disk, unsigned long long writeBytes, unsigned long long writes, unsigned long long writeUs,
             const Link& link);

/**
 * Puts a disk's numbers into the two records, each into the one that counts it in the disk's mode. The sums of both
 * together are the disk's sums: the record that does not count stands still, so a change of mode moves no sum.
 * @param slot  0 to 63.
 */
void PutNumbers(const VELCOR_ENTRY& numbers, unsigned slot, VELCOR_FEED& feed);

#endif
