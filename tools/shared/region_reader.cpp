#include "region_reader.h"

#include <fmt/format.h>
#include <cstring>

#include "text.h"

namespace dkpf {

static RegionCopy Failure(RegionStatus status, std::string words)
{
    RegionCopy copy;
    copy.status = status;
    copy.words = std::move(words);
    return copy;
}

static RegionCopy OpenFailure(const char* what, DWORD error)
{
    if (error == ERROR_FILE_NOT_FOUND)
        return Failure(RegionStatus::Absent, "there is no shared region: is the disk agent running?");
    return Failure(RegionStatus::Refused, fmt::format("{} could not be opened: {}", what, SystemErrorText(error)));
}

/* Takes the mutex for the time of the copy and no longer. */
static RegionCopy CopyUnderMutex(const void* view, HANDLE mutex, DWORD waitMs)
{
    RegionCopy copy;
    copy.info = std::make_unique<DKPF_SHM_INFO>();
    const DWORD waited = WaitForSingleObject(mutex, waitMs);
    if (waited == WAIT_TIMEOUT)
        return Failure(
            RegionStatus::Busy,
            fmt::format("the region's mutex was held for more than {} ms: a process that uses it hangs or is "
                        "suspended",
                        waitMs));
    if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED)
        return Failure(RegionStatus::Refused,
                       "the region's mutex could not be taken: " + SystemErrorText(GetLastError()));
    std::memcpy(copy.info.get(), view, DKPF_SHM_SIZE);
    ReleaseMutex(mutex);
    copy.tick = GetTickCount();
    copy.status = RegionStatus::Copied;
    return copy;
}

RegionCopy ReadRegion(const RegionSource& source)
{
    const HANDLE mapping = OpenFileMappingA(FILE_MAP_READ, FALSE, source.mapping);
    if (mapping == nullptr)
        return OpenFailure("the shared region", GetLastError());

    RegionCopy   copy;
    const HANDLE mutex = OpenMutexA(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, source.mutex);
    if (mutex == nullptr) {
        copy = OpenFailure("the region's mutex", GetLastError());
    } else {
        const void* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, DKPF_SHM_SIZE);
        if (view == nullptr) {
            copy = Failure(RegionStatus::Refused, fmt::format("the shared region could not be mapped as {} bytes: {}",
                                                              DKPF_SHM_SIZE, SystemErrorText(GetLastError())));
        } else {
            copy = CopyUnderMutex(view, mutex, source.waitMs);
            UnmapViewOfFile(view);
        }
        copy.opened = true;
        CloseHandle(mutex);
    }
    CloseHandle(mapping);
    return copy;
}

}  // namespace dkpf
