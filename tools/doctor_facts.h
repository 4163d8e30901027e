/*
 * What dkpfctl doctor knows about the machine. Gathered once, then judged and printed without asking again.
 */
#ifndef DKPF_TOOLS_DOCTOR_FACTS_H
#define DKPF_TOOLS_DOCTOR_FACTS_H

#include <windows.h>
#include <optional>
#include <string>
#include <vector>

#include "status_facts.h"

namespace dkpf {

/* The provider's performance key. A value that is not there, or of another type, has none. */
struct RegistrationFacts {
    DWORD                      error = ERROR_SUCCESS;  // of opening the key
    std::optional<std::string> library;                // as it stands
    std::optional<std::string> open;
    std::optional<std::string> collect;
    std::optional<std::string> close;
    std::optional<std::string> objectList;
    std::optional<DWORD>       firstCounter;
    std::optional<DWORD>       lastCounter;
    std::optional<DWORD>       firstHelp;
    std::optional<DWORD>       lastHelp;
    std::optional<DWORD>       disabled;
    std::optional<DWORD>       metadata;  // "Collect Supports Metadata", which set-up never writes

    DWORD                    libraryError = ERROR_SUCCESS;  // of reading the file
    bool                     libraryOurs = false;           // it is the one of this installation
    bool                     libraryReadable = false;       // its export table could be walked
    std::vector<std::string> exports;
};

struct NameFacts {
    std::vector<std::string> system;  // of each title index of ours, in order; empty where the system has none
    bool                     tableRead = false;
    std::vector<std::string> table;  // of the installed table, in the same order
    std::string              tablePath;
};

struct DebugFacts {
    DWORD keyError = ERROR_SUCCESS;
    /* As the library takes it: up to 4 bytes of any type. */
    std::optional<DWORD> value;
};

struct EventSourceFacts {
    DWORD                    keyError = ERROR_SUCCESS;
    std::vector<std::string> messageFiles;         // whole paths, variables expanded
    std::vector<std::string> messageFilesMissing;  // those that are not there
};

/* The folders in which each program of the machine looks for libraries, as the registry has them. */
struct SearchPathFact {
    DWORD error = ERROR_SUCCESS;  // of reading the value
    bool  holdsBin = false;
};

/* The library as one process holds it. */
struct LoadedLibrary {
    std::string path;
    bool        current = false;  // the file that lies in this installation now
};

struct ProcessFact {
    DWORD                      pid = 0;
    std::string                program;          // file name
    ULONGLONG                  started = 0;      // 100 ns units; 0: not known
    bool                       refused = false;  // may not be asked: nothing below is known
    bool                       is32Bit = false;
    bool                       readsPerformanceData = false;  // has the system's reader of performance data loaded
    std::vector<LoadedLibrary> libraries;
};

enum class AsideState {
    Left,      // nobody holds it
    Held,      // by a program that started before
    NotAsked,  // this account may not open it
};

/* A library that was put aside for a new one. */
struct AsideFact {
    std::string path;
    AsideState  state = AsideState::Left;
};

struct FolderFact {
    std::string path;
    DWORD       error = ERROR_SUCCESS;  // of making a file there
};

struct BinaryFact {
    std::string file;  // below the home; the whole path where inSystem
    bool        there = true;
    std::string version;           // "0.3.0.0"; empty: it has none
    bool        inSystem = false;  // in the system's driver folder
};

struct DoctorFacts {
    std::string computer;
    std::string time;  // local, with its UTC offset
    int         utcOffsetMinutes = 0;
    bool        administrator = false;
    bool        wine = false;
    StatusFacts status;

    ULONGLONG regionBytes = 0;  // as the system maps it, whole pages; 0: not known

    RegistrationFacts        registration;
    NameFacts                names;
    DebugFacts               debug;
    EventSourceFacts         eventSource;
    SearchPathFact           searchPath;
    std::vector<ProcessFact> processes;
    std::vector<AsideFact>   aside;
    FolderFact               log;
    FolderFact               perf;
    DWORD                    spaceError = ERROR_SUCCESS;
    ULONGLONG                freeBytes = 0;  // of the volume with the CSV files, for this account
    ULONGLONG                usedBytes = 0;  // by the CSV files and logs that are there
    bool                     whole = true;   // all files of the product are in this installation
    std::vector<BinaryFact>  binaries;       // ours, the simulated driver where it is used, and what else lies in bin
    std::string              version;        // of this program, in the same form
};

/**
 * Asks the machine. Opens the driver's device and asks the simulated one when it was fed, which resets nothing; loads
 * no library as code, and leaves behind nothing: the files that try the folders are deleted again. May block as
 * GatherStatus does.
 */
DoctorFacts GatherDoctor();

/* By the names of their files, older generations included. The folders are open to other programs too. */
bool IsCsvFile(const std::wstring& name);
bool IsTraceLog(const std::wstring& name);

/* Bytes that CSV files and trace logs may come to with these settings. */
ULONGLONG SpaceBound(const SettingValues& settings);

/* The same with the settings of the file and with those in force, which an agent has until its restart: the larger of
 * both. 0: neither is known. */
ULONGLONG SpaceBoundOf(const StatusFacts& facts);

}  // namespace dkpf

#endif
