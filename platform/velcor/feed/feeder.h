/*
 * The feeder at work: one step after the other to the driver, each into the journal.
 */
#ifndef VELCORFEED_FEEDER_H
#define VELCORFEED_FEEDER_H

#include <windows.h>
#include <string>

#include "files.h"
#include "source.h"

/* Exit codes of velcorfeed; the texts of --help say the same. */
enum ExitCode {
    EXIT_DONE = 0,      // played to the end, --once done, or stopped
    EXIT_FAILED = 1,    // the system refused something that is always there
    EXIT_USAGE = 2,     // wrong usage
    EXIT_FILE = 3,      // a scenario or disks.map cannot be read or is refused
    EXIT_SECOND = 4,    // another feeder runs on this machine
    EXIT_NO_RIGHT = 5,  // only administrators may feed the driver
    EXIT_NO_STATS = 6   // the host's disk statistics cannot be read
};

/* Tells the operator: a line on standard output, or in HOME/log/velcorfeed.log as a service. */
class Teller {
public:
    /** @param logFile  empty: standard output. */
    explicit Teller(const std::string& logFile);
    void Say(const std::string& sentence);

private:
    bool     m_toFile;
    LineFile m_file;
};

struct Pace {
    DWORD stepMs;  // from one step to the next; 0: as fast as the driver takes them
    bool  once;    // one step and done
};

/**
 * Feeds until the source ends or stop is set. Waits for the driver where it is not there, and again where it was
 * stopped: the step under way is fed when it is back. A journal that cannot be written costs its lines, and is said
 * once.
 * @param journal  may be null: none is written.
 */
ExitCode RunFeeder(Source& source, LineFile* journal, const Pace& pace, HANDLE stop, Teller& teller);

#endif
