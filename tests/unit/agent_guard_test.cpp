/*
 * One producer per machine, with real mutexes under names of the tests.
 */
#include <gmock/gmock.h>
#include <aclapi.h>
#include <sddl.h>
#include <string>
#include <thread>

#include "producer_guard.h"

using namespace dkpf;

static constexpr wchar_t NAME[] = L"Global\\TNW_DKPF_AGENT_UNDER_TEST";

/* Ownership belongs to a thread: another producer is another thread here. */
template <class Action> static void InAnotherThread(Action action)
{
    std::thread(action).join();
}

TEST(ProducerGuard, TheFirstOneIsTaken)
{
    std::string words;
    MutexGuard  guard(NAME);
    EXPECT_EQ(guard.Take(&words), GuardResult::Taken);
    EXPECT_EQ(words, "");
}

TEST(ProducerGuard, ASecondOneIsRefusedInWords)
{
    std::string words;
    MutexGuard  first(NAME);
    ASSERT_EQ(first.Take(&words), GuardResult::Taken);
    InAnotherThread([&words] {
        MutexGuard second(NAME);
        EXPECT_EQ(second.Take(&words), GuardResult::OtherAgent);
    });
    EXPECT_THAT(words, testing::HasSubstr("another disk agent runs on this machine"));
}

TEST(ProducerGuard, TheNameIsFreeAgainWhenTheFirstOneIsGone)
{
    std::string words;
    {
        MutexGuard first(NAME);
        ASSERT_EQ(first.Take(&words), GuardResult::Taken);
    }
    InAnotherThread([&words] {
        MutexGuard second(NAME);
        EXPECT_EQ(second.Take(&words), GuardResult::Taken);
    });
}

// A killed agent leaves its mutex abandoned while a tool still has it open.
TEST(ProducerGuard, AnAbandonedMutexIsTakenOver)
{
    const HANDLE tool = CreateMutexW(nullptr, FALSE, NAME);
    ASSERT_NE(tool, nullptr);
    InAnotherThread([tool] { EXPECT_EQ(WaitForSingleObject(tool, 0), WAIT_OBJECT_0); });  // ends without a release

    std::string words;
    MutexGuard  guard(NAME);
    EXPECT_EQ(guard.Take(&words), GuardResult::Taken);
    CloseHandle(tool);
}

TEST(ProducerGuard, AMutexThatIsOnlyOpenElsewhereDoesNotCount)
{
    const HANDLE tool = CreateMutexW(nullptr, FALSE, NAME);
    ASSERT_NE(tool, nullptr);
    std::string words;
    MutexGuard  guard(NAME);
    EXPECT_EQ(guard.Take(&words), GuardResult::Taken);
    CloseHandle(tool);
}

// A tool that has the mutex open keeps it alive: what is not released then stays taken.
TEST(ProducerGuard, TheNameIsFreeAgainThoughItIsOpenElsewhere)
{
    std::string  words;
    const HANDLE tool = CreateMutexW(nullptr, FALSE, NAME);
    {
        MutexGuard first(NAME);
        ASSERT_EQ(first.Take(&words), GuardResult::Taken);
    }
    InAnotherThread([&words] {
        MutexGuard second(NAME);
        EXPECT_EQ(second.Take(&words), GuardResult::Taken);
    });
    CloseHandle(tool);
}

TEST(ProducerGuard, ANameOfAnotherKindOfObjectIsAFailureInWords)
{
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, NAME);
    ASSERT_NE(event, nullptr);
    std::string words;
    MutexGuard  guard(NAME);
    EXPECT_EQ(guard.Take(&words), GuardResult::Failed);
    EXPECT_THAT(words, testing::HasSubstr("could not be created: error 6"));
    CloseHandle(event);
}

TEST(ProducerGuard, OnlyAdministratorsAndTheSystemMayOpenIt)
{
    std::string words;
    MutexGuard  guard(NAME);
    ASSERT_EQ(guard.Take(&words), GuardResult::Taken);
    const HANDLE mutex = OpenMutexW(READ_CONTROL, FALSE, NAME);
    ASSERT_NE(mutex, nullptr);

    PACL                 dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_EQ(GetSecurityInfo(mutex, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &dacl, nullptr,
                              &descriptor),
              static_cast<DWORD>(ERROR_SUCCESS));
    ASSERT_NE(dacl, nullptr);
    ASSERT_EQ(dacl->AceCount, 2);
    const WELL_KNOWN_SID_TYPE allowed[] = { WinBuiltinAdministratorsSid, WinLocalSystemSid };
    for (WORD i = 0; i < 2; i++) {
        void* entry = nullptr;
        ASSERT_TRUE(GetAce(dacl, i, &entry));
        ACCESS_ALLOWED_ACE* ace = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        EXPECT_EQ(ace->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
        EXPECT_TRUE(IsWellKnownSid(&ace->SidStart, allowed[i]));
    }
    LocalFree(descriptor);
    CloseHandle(mutex);
}

/* Security that nobody passes, as an account without the right meets it. */
class NobodyMay {
public:
    NobodyMay()
    {
        InitializeSecurityDescriptor(&m_descriptor, SECURITY_DESCRIPTOR_REVISION);
        InitializeAcl(&m_empty, sizeof(m_empty), ACL_REVISION);
        SetSecurityDescriptorDacl(&m_descriptor, TRUE, &m_empty, FALSE);
    }
    SECURITY_ATTRIBUTES* Attributes()
    {
        return &m_attributes;
    }

private:
    ACL                 m_empty{};
    SECURITY_DESCRIPTOR m_descriptor{};
    SECURITY_ATTRIBUTES m_attributes{ sizeof(m_attributes), &m_descriptor, FALSE };
};

TEST(ProducerGuard, AnAccountThatMayNotMakeNamedMemoryForAllSessionsIsRefusedInWords)
{
    NobodyMay          nobody;
    const std::wstring name = L"Global\\TNW_DKPF_AGENT_PROBE_" + std::to_wstring(GetCurrentProcessId());
    const HANDLE       taken =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nobody.Attributes(), PAGE_READWRITE, 0, 4096, name.c_str());
    ASSERT_NE(taken, nullptr);
    std::string words;
    MutexGuard  guard(NAME);
    EXPECT_EQ(guard.Take(&words), GuardResult::NoRight);
    EXPECT_THAT(words, testing::StartsWith("this account may not create named memory for all sessions (error 5"));
    EXPECT_THAT(words, testing::EndsWith("start it as an administrator"));
    EXPECT_EQ(OpenMutexW(SYNCHRONIZE, FALSE, NAME), nullptr);  // not even made
    CloseHandle(taken);
}

TEST(ProducerGuard, AMutexThatThisAccountMayNotOpenIsAMissingRight)
{
    NobodyMay    nobody;
    const HANDLE theirs = CreateMutexW(nobody.Attributes(), FALSE, NAME);
    ASSERT_NE(theirs, nullptr);
    std::string words;
    MutexGuard  guard(NAME);
    EXPECT_EQ(guard.Take(&words), GuardResult::NoRight);
    EXPECT_THAT(words, testing::HasSubstr("could not be created: error 5"));
    CloseHandle(theirs);
}

TEST(ProducerGuard, TheProbeForNamedMemoryLeavesNothingBehind)
{
    EXPECT_EQ(ProbeGlobalMemory(), static_cast<DWORD>(ERROR_SUCCESS));
    const std::wstring name = L"Global\\TNW_DKPF_AGENT_PROBE_" + std::to_wstring(GetCurrentProcessId());
    EXPECT_EQ(OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str()), nullptr);
}
