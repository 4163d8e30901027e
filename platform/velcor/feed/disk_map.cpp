#include "disk_map.h"

#include <algorithm>
#include <vector>

#include "files.h"

bool ParseDiskMap(const std::string& text, DiskMap& map, unsigned& line, std::string& reason)
{
    DiskMap found;

    line = 0;
    for (const std::string& whole : Lines(text)) {
        const std::vector<std::string> words = Words(whole.substr(0, whole.find('#')));
        unsigned long long             number = 0;
        line++;
        if (words.empty()) {
            continue;
        }
        if (words.size() != 2 || !ParseNumber(words[0], number)) {
            reason = "expected a mirror disk's number and a host disk's name";
            return false;
        }
        if (number < 1 || number > VELCOR_DISK_MAX) {
            reason = "mirror disk " + words[0] + " is none of 1 to 64";
            return false;
        }
        if (!found.name[number - 1].empty()) {
            reason = "mirror disk " + words[0] + " is already " + found.name[number - 1];
            return false;
        }
        if (std::find(found.name.begin(), found.name.end(), words[1]) != found.name.end()) {
            reason = "host disk " + words[1] + " already has a mirror disk";
            return false;
        }
        found.name[number - 1] = words[1];
    }
    map = found;
    return true;
}

std::string FormatDiskMap(const DiskMap& map)
{
    std::string text = "# Mirror disk and host disk. Kept by velcorfeed; delete a line to free its number.\r\n";

    for (unsigned disk = 0; disk < VELCOR_DISK_MAX; disk++) {
        if (!map.name[disk].empty()) {
            text += std::to_string(disk + 1) + " " + map.name[disk] + "\r\n";
        }
    }
    return text;
}

unsigned AssignDisk(DiskMap& map, const std::string& name, bool& changed)
{
    auto place = std::find(map.name.begin(), map.name.end(), name);

    if (place == map.name.end()) {
        place = std::find(map.name.begin(), map.name.end(), std::string());
        if (place == map.name.end()) {
            return 0;
        }
        *place = name;
        changed = true;
    }
    return static_cast<unsigned>(place - map.name.begin()) + 1;
}
