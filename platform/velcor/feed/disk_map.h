/*
 * Which host disk is which mirror disk: HOME/etc/disks.map, a line "number name" for each, so that a disk keeps its
 * number over restarts. A disk that is gone keeps its line; who wants the number back deletes the line.
 */
#ifndef VELCORFEED_DISK_MAP_H
#define VELCORFEED_DISK_MAP_H

#include <array>
#include <string>

#include <windows.h>
#include "velcor.h"

struct DiskMap {
    std::array<std::string, VELCOR_DISK_MAX> name;  // of mirror disk 1, 2, ...; empty: free
};

/**
 * @param reason  receives the line number and what is wrong with that line.
 * @return false for a line that is no "number name", a number that is none of 1 to 64, a number or name that is there
 * twice.
 */
bool ParseDiskMap(const std::string& text, DiskMap& map, unsigned& line, std::string& reason);

/** The file's text: a comment that says what it is, and one line for each mirror disk in use. */
std::string FormatDiskMap(const DiskMap& map);

/**
 * The mirror disk of a host disk, 1 to 64: its own, else the lowest free one.
 * @param changed  set to true where the map got a new line; otherwise left alone.
 * @return 0 if all 64 are taken.
 */
unsigned AssignDisk(DiskMap& map, const std::string& name, bool& changed);

#endif
