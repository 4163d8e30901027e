/*
 * The start of the driver's service, with a service manager that keeps the start call until the test lets it go.
 */
#include <gtest/gtest.h>
#include <atomic>

#include "driver_start.h"

using namespace dkpf;

namespace {

class Services : public ServiceManager {
public:
    explicit Services(DWORD stateAtFirst) : m_state(stateAtFirst)
    {
    }
    ~Services() override
    {
        CloseHandle(m_goOn);
    }
    ServiceInfo Query(const wchar_t*) override
    {
        ServiceInfo info;
        info.installed = true;
        info.state = m_state;
        return info;
    }
    DWORD Start(const wchar_t* name) override
    {
        EXPECT_STREQ(name, L"velcor");
        starts++;
        WaitForSingleObject(m_goOn, INFINITE);
        m_state = SERVICE_RUNNING;
        return ERROR_SUCCESS;
    }
    DWORD Control(const wchar_t*, DWORD) override
    {
        return ERROR_INVALID_SERVICE_CONTROL;
    }
    void LetGo()
    {
        SetEvent(m_goOn);
    }

    std::atomic<int> starts{ 0 };

private:
    HANDLE             m_goOn = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<DWORD> m_state;
};

constexpr DWORD PATIENT_MS = 600000;

/* Never freed where a call stays out: the thread that made it goes on with it. */
Services& Lasting()
{
    return *new Services(SERVICE_STOPPED);
}

}  // namespace

TEST(DriverStart, ADriverThatRunsIsNotStarted)
{
    Services     services(SERVICE_RUNNING);
    ServiceStart start = DriverStart(services).EnsureRunning(PATIENT_MS, [] { return false; });
    EXPECT_TRUE(start.running);
    EXPECT_EQ(start.words, "is running already");
    EXPECT_EQ(services.starts, 0);
}

TEST(DriverStart, ADriverThatComesUpInTimeWasStarted)
{
    Services& services = Lasting();
    services.LetGo();
    ServiceStart start = DriverStart(services).EnsureRunning(PATIENT_MS, [] { return false; });
    EXPECT_TRUE(start.running);
    EXPECT_EQ(start.words, "was started");
    EXPECT_EQ(services.starts, 1);
}

TEST(DriverStart, AStopEndsTheWaitWhileTheCallIsOut)
{
    ServiceStart start = DriverStart(Lasting()).EnsureRunning(PATIENT_MS, [] { return true; });
    EXPECT_FALSE(start.running);
    EXPECT_EQ(start.words, "was not waited for: the agent is to stop");
}

TEST(DriverStart, ACallThatStaysOutIsLeftAloneWhenTheTimeIsOver)
{
    ServiceStart start = DriverStart(Lasting()).EnsureRunning(1, [] { return false; });
    EXPECT_FALSE(start.running);
    EXPECT_EQ(start.words, "did not come up within 0 s");
}
