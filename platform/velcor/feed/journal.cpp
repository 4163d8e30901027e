#include "journal.h"

#include <stdio.h>

std::string TimeText(const SYSTEMTIME& time)
{
    char text[64];

    snprintf(text, sizeof(text), "%04u/%02u/%02u %02u:%02u:%02u.%03u", time.wYear, time.wMonth, time.wDay, time.wHour,
             time.wMinute, time.wSecond, time.wMilliseconds);
    return text;
}

std::string JournalLine(const SYSTEMTIME& time, const FedDisk& disk)
{
    return TimeText(time) + "," + std::to_string(disk.disk) + "," + disk.host + "," + std::to_string(disk.writeBytes) +
           "," + std::to_string(disk.writes) + "," + std::to_string(disk.writeUs);
}
