#include "support/driver.h"

#include <stdexcept>

/* Where the build puts the binaries that homes are made of: beside the folder of this program. */
static std::string BuiltDriver()
{
    char        program[MAX_PATH + 1] = {};
    std::string path;
    GetModuleFileNameA(NULL, program, MAX_PATH);
    path = program;
    path = path.substr(0, path.rfind('\\'));
    return path.substr(0, path.rfind('\\')) + "\\product\\velcor.sys";
}

InstalledDriver::InstalledDriver()
{
    char folder[MAX_PATH] = {};
    GetSystemDirectoryA(folder, sizeof(folder));
    file = std::string(folder) + "\\drivers\\velcor.sys";
    service = std::make_unique<Service>(VELCOR_SERVICE_NAME, SERVICE_KERNEL_DRIVER, file);
    DeleteFileA(file.c_str());  // first: prefixes may share the file that lies there
    if (!CopyFileA(BuiltDriver().c_str(), file.c_str(), FALSE)) {
        throw std::runtime_error("the driver is not built");
    }
}

InstalledDriver::~InstalledDriver()
{
    service.reset();
    DeleteFileA(file.c_str());
}

void InstalledDriver::Feed(const VELCOR_FEED& feed) const
{
    VELCOR_FEED  copy = feed;
    DWORD        count = 0;
    const HANDLE device = CreateFileA(VELCOR_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING, 0, NULL);
    const BOOL   fed = DeviceIoControl(device, VELCOR_PRIVATE_FEED, &copy, sizeof(copy), NULL, 0, &count, NULL);
    CloseHandle(device);
    if (!fed) {
        throw std::runtime_error("the driver takes no feed");
    }
}
