#include <stdexcept>

#include "contract/device_contract.h"
#include "doubles/os_double.h"
#include "doubles/tnwdiskfltr_double.h"
#include "support/driver.h"
#include "support/import_hooks.h"
#include "support/probe.h"
#include "support/test_home.h"

namespace {

/* ---- The driver, and the library on it ---- */

class RunningDriver {
public:
    RunningDriver()
    {
        Start();
    }
    void Start()
    {
        if (!m_driver.service->Start()) {
            throw std::runtime_error("the driver does not start");
        }
    }
    void Stop()
    {
        if (!m_driver.service->Stop()) {
            throw std::runtime_error("the driver does not stop");
        }
    }
    void Feed()
    {
        m_driver.Feed(feed);
    }

    VELCOR_FEED feed = {};  // what Feed hands over

private:
    InstalledDriver m_driver;
};

class RealFilterSide : public FilterSide {
public:
    RealFilterSide() : m_module(LoadLibraryW(m_home.Install(L"tnwdiskfltr.dll").c_str()))
    {
        TnwDkfltrGetMirrorPerformance = reinterpret_cast<decltype(&::TnwDkfltrGetMirrorPerformance)>(
            reinterpret_cast<void*>(GetProcAddress(m_module, MAKEINTRESOURCEA(5))));
        if (TnwDkfltrGetMirrorPerformance == nullptr) {
            throw std::runtime_error("tnwdiskfltr.dll does not load");
        }
    }
    ~RealFilterSide() override
    {
        FreeLibrary(m_module);
    }

    void Give(const VELCOR_RECORD& first, const VELCOR_RECORD&) override
    {
        m_driver.feed = {};
        m_driver.feed.filter = first;
        m_driver.Feed();
    }
    void StopDriver() override
    {
        m_driver.Stop();
    }
    void StartDriver() override
    {
        m_driver.Start();
    }
    void Refuse(DWORD error) override
    {
        m_driver.feed.filter_error = error;
        m_driver.Feed();
    }

private:
    TestHome      m_home;
    HMODULE       m_module;
    RunningDriver m_driver;
};

class RealDeviceSide : public DeviceSide {
public:
    DWORD Open(HANDLE* device) override
    {
        *device = CreateFileA(VELCOR_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        return *device == INVALID_HANDLE_VALUE ? GetLastError() : 0;
    }
    DWORD Control(HANDLE device, DWORD code, void* in, DWORD inSize, void* out, DWORD outSize, DWORD* returned) override
    {
        return DeviceIoControl(device, code, in, inSize, out, outSize, returned, nullptr) ? 0 : GetLastError();
    }
    void Close(HANDLE device) override
    {
        CloseHandle(device);
    }

    void Give(const VELCOR_RECORD& first, const VELCOR_RECORD&) override
    {
        m_driver.feed = {};
        m_driver.feed.driver = first;
        m_driver.Feed();
    }
    void StopDriver() override
    {
        m_driver.Stop();
    }
    void StartDriver() override
    {
        m_driver.Start();
    }
    void AnswerStatus(DWORD status) override
    {
        m_driver.feed.driver_status = status;
        m_driver.Feed();
    }
    void Refuse() override
    {
        m_driver.feed.refuse = 1;
        m_driver.Feed();
    }

private:
    RunningDriver m_driver;
};

/* ---- The doubles ---- */

Record RecordOf(const VELCOR_RECORD& record)
{
    Record built;
    built.record = record;
    return built;
}

class DoubleFilterSide : public FilterSide {
public:
    DoubleFilterSide()
    {
        TnwDkfltrGetMirrorPerformance = ::TnwDkfltrGetMirrorPerformance;
    }
    void Give(const VELCOR_RECORD& first, const VELCOR_RECORD& later) override
    {
        m_filter.Script({ RecordOf(first), RecordOf(later) });
    }
    void StopDriver() override
    {
        m_filter.Script({ FilterDouble::Reply::Error(ERROR_FILE_NOT_FOUND) });
    }
    void StartDriver() override
    {
        m_filter.Script({ Record() });
    }
    void Refuse(DWORD error) override
    {
        m_filter.Script({ FilterDouble::Reply::Error(error) });
    }

private:
    Journal      m_journal;
    FilterDouble m_filter{ m_journal };
};

/* The driver's double answers through that of the system, as the library under test reaches it. */
class DoubleDeviceSide : public DeviceSide {
public:
    DoubleDeviceSide()
    {
        m_os.Install(m_hooks);
        ProbeFill(&m_call);
    }

    DWORD Open(HANDLE* device) override
    {
        *device =
            m_call.CreateFileA(VELCOR_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                               nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        return *device == INVALID_HANDLE_VALUE ? GetLastError() : 0;
    }
    DWORD Control(HANDLE device, DWORD code, void* in, DWORD inSize, void* out, DWORD outSize, DWORD* returned) override
    {
        return m_call.DeviceIoControl(device, code, in, inSize, out, outSize, returned, nullptr) ? 0 : GetLastError();
    }
    void Close(HANDLE device) override
    {
        m_call.CloseHandle(device);
    }

    void Give(const VELCOR_RECORD& first, const VELCOR_RECORD& later) override
    {
        m_os.driver.Script({ RecordOf(first), RecordOf(later) });
    }
    void StopDriver() override
    {
        m_os.driver.Stop();
    }
    void StartDriver() override
    {
        m_os.driver.Start();
    }
    void AnswerStatus(DWORD status) override
    {
        m_os.driver.Script({ DriverDouble::Reply::Status(status) });
    }
    void Refuse() override
    {
        m_os.driver.Script({ DriverDouble::Reply::Error(ERROR_NOT_READY) });
    }

private:
    Journal     m_journal;
    Os          m_os{ m_journal };
    ImportHooks m_hooks{ GetModuleHandleA("probe.dll") };
    Probe       m_call = {};
};

}  // namespace

std::unique_ptr<FilterSide> RealFilter()
{
    return std::make_unique<RealFilterSide>();
}

std::unique_ptr<FilterSide> DoubleOfFilter()
{
    return std::make_unique<DoubleFilterSide>();
}

std::unique_ptr<DeviceSide> RealDevice()
{
    return std::make_unique<RealDeviceSide>();
}

std::unique_ptr<DeviceSide> DoubleOfDevice()
{
    return std::make_unique<DoubleDeviceSide>();
}
