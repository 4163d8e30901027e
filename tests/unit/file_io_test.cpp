/*
 * A file's new content beside the old one: who may look, who waits, what is left where a step fails, and whose rights
 * the new file has.
 */
#include <gmock/gmock.h>

#include <aclapi.h>
#include <memory>
#include <vector>

#include "file_io.h"
#include "support/import_hooks.h"
#include "support/temp_folder.h"

using namespace dkpf;
using testing::Each;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Bytes = std::vector<unsigned char>;

class Pending : public testing::Test {
protected:
    Pending()
    {
        folder.Write(L"file", "old");
    }

    std::string Content(const wchar_t* name) const
    {
        std::string content;
        EXPECT_EQ(ReadWholeFile(folder.File(name), 1000, &content), DWORD{ ERROR_SUCCESS });
        return content;
    }

    HANDLE Hold(const wchar_t* name, DWORD share) const
    {
        return CreateFileW(folder.File(name).c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr);
    }

    /* The access list; empty where it cannot be read. */
    Bytes Rights(const wchar_t* name) const
    {
        DWORD size = 0;
        GetFileSecurityW(folder.File(name).c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
        Bytes rights(size);
        if (!GetFileSecurityW(folder.File(name).c_str(), DACL_SECURITY_INFORMATION, rights.data(), size, &size))
            rights.clear();
        return rights;
    }

    /* Leaves the account of this process as the only one with rights, which no folder gives. */
    void TakeRightsOfOthers(const wchar_t* name) const
    {
        std::wstring         path = folder.File(name);
        PSID                 owner = nullptr;
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ASSERT_EQ(GetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr,
                                        nullptr, nullptr, &descriptor),
                  DWORD{ ERROR_SUCCESS });
        Bytes list(256);
        ACL*  acl = reinterpret_cast<ACL*>(list.data());
        ASSERT_TRUE(InitializeAcl(acl, static_cast<DWORD>(list.size()), ACL_REVISION));
        ASSERT_TRUE(AddAccessAllowedAce(acl, ACL_REVISION, FILE_ALL_ACCESS, owner));
        SECURITY_DESCRIPTOR own{};
        ASSERT_TRUE(InitializeSecurityDescriptor(&own, SECURITY_DESCRIPTOR_REVISION));
        ASSERT_TRUE(SetSecurityDescriptorDacl(&own, TRUE, acl, FALSE));
        ASSERT_TRUE(SetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, &own));
        LocalFree(descriptor);
    }

    TempFolder         folder;
    std::vector<DWORD> waits;
    PendingFile        pending{ folder.File(L"file"), [this](DWORD ms) {
                            waits.push_back(ms);
                            if (onWait)
                                onWait();
                        } };

    std::function<void()> onWait;
};

TEST_F(Pending, UntilItIsPutReadersSeeTheOldContentAndBehindItTheNew)
{
    ASSERT_EQ(pending.Open(), 0u);
    ASSERT_EQ(pending.Write("the new one"), 0u);
    EXPECT_EQ(Content(L"file"), "old");
    EXPECT_EQ(Content(L"file.new"), "the new one");
    ASSERT_EQ(pending.Put(), 0u);
    EXPECT_EQ(Content(L"file"), "the new one");
    EXPECT_FALSE(folder.Has(L"file.new"));
    EXPECT_THAT(waits, IsEmpty());
}

TEST_F(Pending, WhatIsNotPutIsGoneWithTheObject)
{
    {
        PendingFile other(folder.File(L"file"), [](DWORD) {});
        ASSERT_EQ(other.Open(), 0u);
        ASSERT_EQ(other.Write("the new one"), 0u);
    }
    EXPECT_FALSE(folder.Has(L"file.new"));
    EXPECT_EQ(Content(L"file"), "old");
}

TEST_F(Pending, WhatAKilledProgramLeftIsWrittenOver)
{
    folder.Write(L"file.new", "left behind, and longer than what comes");
    ASSERT_EQ(pending.Open(), 0u);
    ASSERT_EQ(pending.Write("new"), 0u);
    ASSERT_EQ(pending.Put(), 0u);
    EXPECT_EQ(Content(L"file"), "new");
}

TEST_F(Pending, TheSecondOneWaitsHalfASecondAndRemovesNothing)
{
    PendingFile first(folder.File(L"file"), [](DWORD) {});
    ASSERT_EQ(first.Open(), 0u);
    ASSERT_EQ(first.Write("of the first"), 0u);
    {
        PendingFile second(folder.File(L"file"), [this](DWORD ms) { waits.push_back(ms); });
        EXPECT_EQ(second.Open(), DWORD{ ERROR_SHARING_VIOLATION });
    }
    EXPECT_THAT(waits, SizeIs(19));
    EXPECT_THAT(waits, Each(25u));
    EXPECT_EQ(Content(L"file.new"), "of the first");
    EXPECT_EQ(first.Put(), 0u);
    EXPECT_EQ(Content(L"file"), "of the first");
}

TEST_F(Pending, TheSecondOneGoesOnAsSoonAsTheFirstIsDone)
{
    auto first = std::make_unique<PendingFile>(folder.File(L"file"), [](DWORD) {});
    ASSERT_EQ(first->Open(), 0u);
    onWait = [&] {
        if (waits.size() == 3)
            first.reset();
    };
    EXPECT_EQ(pending.Open(), 0u);
    EXPECT_THAT(waits, SizeIs(3));
}

// It stands already, in the old one's place, but its writer still has it: nobody else may begin.
TEST_F(Pending, UntilTheObjectEndsNobodyElseBegins)
{
    ASSERT_EQ(pending.Open(), 0u);
    PendingFile second(folder.File(L"file"), [](DWORD) {});
    EXPECT_EQ(second.Open(), DWORD{ ERROR_SHARING_VIOLATION });
}

TEST_F(Pending, AHeldOldFileIsWaitedFor)
{
    HANDLE held = Hold(L"file", FILE_SHARE_READ);
    ASSERT_EQ(pending.Open(), 0u);
    ASSERT_EQ(pending.Write("new"), 0u);
    EXPECT_NE(pending.Put(), 0u);
    EXPECT_THAT(waits, SizeIs(19));
    EXPECT_EQ(Content(L"file"), "old");
    onWait = [&] { CloseHandle(held); };
    EXPECT_EQ(pending.Put(), 0u);
    EXPECT_THAT(waits, SizeIs(20));
    EXPECT_EQ(Content(L"file"), "new");
}

TEST_F(Pending, WhatCouldNotBePutIsGoneWithTheObject)
{
    const HANDLE held = Hold(L"file", FILE_SHARE_READ);
    EXPECT_NE(ReplaceWholeFile(folder.File(L"file"), "new", [](DWORD) {}), 0u);
    CloseHandle(held);
    EXPECT_FALSE(folder.Has(L"file.new"));
    EXPECT_EQ(Content(L"file"), "old");
}

BOOL WINAPI HalfAWrite(HANDLE file, const void* from, DWORD size, DWORD* written, OVERLAPPED* at)
{
    // Not by its name: that leads back here.
    const FARPROC real = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "WriteFile");
    return reinterpret_cast<decltype(&WriteFile)>(reinterpret_cast<void*>(real))(file, from, size / 2, written, at);
}

BOOL WINAPI RefusedFlush(HANDLE)
{
    SetLastError(ERROR_IO_DEVICE);
    return FALSE;
}

TEST_F(Pending, APartOfTheBytesIsNotTakenForAll)
{
    const ImportHook half(GetModuleHandleW(nullptr), "kernel32.dll", "WriteFile", HalfAWrite);
    EXPECT_EQ(ReplaceWholeFile(folder.File(L"file"), "the new one", [](DWORD) {}), DWORD{ ERROR_DISK_FULL });
    EXPECT_EQ(Content(L"file"), "old");
}

TEST_F(Pending, BytesThatDidNotReachTheDiskAreNotPut)
{
    const ImportHook refused(GetModuleHandleW(nullptr), "kernel32.dll", "FlushFileBuffers", RefusedFlush);
    EXPECT_EQ(ReplaceWholeFile(folder.File(L"file"), "the new one", [](DWORD) {}), DWORD{ ERROR_IO_DEVICE });
    EXPECT_EQ(Content(L"file"), "old");
    EXPECT_FALSE(folder.Has(L"file.new"));
}

TEST_F(Pending, AMissingFolderIsNotWaitedFor)
{
    PendingFile lost(folder.File(L"nowhere\\file"), [this](DWORD ms) { waits.push_back(ms); });
    EXPECT_EQ(lost.Open(), DWORD{ ERROR_PATH_NOT_FOUND });
    EXPECT_THAT(waits, IsEmpty());
}

/* ---- Rights ---- */

TEST_F(Pending, AnAccessListOfTheOldFilesOwnIsKept)
{
    TakeRightsOfOthers(L"file");
    const Bytes rights = Rights(L"file");
    ASSERT_EQ(pending.Open(), 0u);
    ASSERT_EQ(pending.Write("new"), 0u);
    ASSERT_NE(Rights(L"file.new"), rights) << "a new file has what the folder gives";
    ASSERT_EQ(pending.KeepRights(), 0u);
    EXPECT_EQ(Rights(L"file.new"), rights) << "before it is in the place of the old one";
    ASSERT_EQ(pending.Put(), 0u);
    EXPECT_EQ(Rights(L"file"), rights);
}

TEST_F(Pending, ReplacingAWholeFileGivesWhatTheFolderGives)
{
    const Bytes rights = Rights(L"file");
    TakeRightsOfOthers(L"file");
    ASSERT_NE(Rights(L"file"), rights);
    ASSERT_EQ(ReplaceWholeFile(folder.File(L"file"), "new", [](DWORD) {}), 0u);
    EXPECT_EQ(Rights(L"file"), rights);
    EXPECT_EQ(Content(L"file"), "new");
}

TEST_F(Pending, WithoutAnOldFileThereAreNoRightsToKeep)
{
    DeleteFileW(folder.File(L"file").c_str());
    ASSERT_EQ(pending.Open(), 0u);
    EXPECT_EQ(pending.KeepRights(), 0u);
}

/* ---- Rights, of a system that the test plays ---- */

/* Access lists by path, as descriptors without any entry: they differ in their control bits alone. */
struct PlayedRights {
    SECURITY_DESCRIPTOR_CONTROL old = 0, beside = 0;
    DWORD                       readError = 0, setError = 0;
    int                         sets = 0;
    SECURITY_DESCRIPTOR_CONTROL set = 0;
    std::wstring                setPath;
};
PlayedRights* g_played;

bool IsBeside(const wchar_t* path)
{
    const std::wstring text = path;
    return text.size() > 4 && text.substr(text.size() - 4) == L".new";
}

BOOL WINAPI PlayedGetFileSecurity(LPCWSTR path, SECURITY_INFORMATION wanted, PSECURITY_DESCRIPTOR to, DWORD size,
                                  DWORD* needed)
{
    EXPECT_EQ(wanted, SECURITY_INFORMATION{ DACL_SECURITY_INFORMATION });
    if (g_played->readError != 0) {
        SetLastError(g_played->readError);
        return FALSE;
    }
    *needed = sizeof(SECURITY_DESCRIPTOR_RELATIVE);
    if (size < *needed) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    SECURITY_DESCRIPTOR_RELATIVE rights{};
    rights.Revision = SECURITY_DESCRIPTOR_REVISION;
    rights.Control = static_cast<SECURITY_DESCRIPTOR_CONTROL>((IsBeside(path) ? g_played->beside : g_played->old) |
                                                              SE_SELF_RELATIVE);
    memcpy(to, &rights, sizeof(rights));
    return TRUE;
}

BOOL WINAPI PlayedSetFileSecurity(LPCWSTR path, SECURITY_INFORMATION wanted, PSECURITY_DESCRIPTOR from)
{
    EXPECT_EQ(wanted, SECURITY_INFORMATION{ DACL_SECURITY_INFORMATION });
    g_played->sets++;
    g_played->setPath = path;
    g_played->set = static_cast<SECURITY_DESCRIPTOR_RELATIVE*>(from)->Control;
    SetLastError(g_played->setError);
    return g_played->setError == 0;
}

class PendingRights : public Pending {
protected:
    PendingRights()
    {
        g_played = &played;
        EXPECT_EQ(pending.Open(), 0u);
    }

    PlayedRights played;
    ImportHook   get{ GetModuleHandleW(nullptr), "advapi32.dll", "GetFileSecurityW", PlayedGetFileSecurity };
    ImportHook   set{ GetModuleHandleW(nullptr), "advapi32.dll", "SetFileSecurityW", PlayedSetFileSecurity };
};

// Setting an access list, even the same one, cuts a file off from its folder.
TEST_F(PendingRights, WhatTheFolderGivesIsNotSet)
{
    played.old = played.beside = SE_DACL_PRESENT | SE_DACL_AUTO_INHERITED;
    EXPECT_EQ(pending.KeepRights(), 0u);
    EXPECT_EQ(played.sets, 0);
}

TEST_F(PendingRights, EntriesThatFollowTheFolderGoOnDoingSo)
{
    played.old = SE_DACL_PRESENT | SE_DACL_AUTO_INHERITED;
    EXPECT_EQ(pending.KeepRights(), 0u);
    EXPECT_EQ(played.setPath, pending.Beside());
    EXPECT_EQ(played.set, SE_SELF_RELATIVE | SE_DACL_PRESENT | SE_DACL_AUTO_INHERITED | SE_DACL_AUTO_INHERIT_REQ);
}

TEST_F(PendingRights, ThoseThatDoNotAreSetAsTheyAre)
{
    played.old = SE_DACL_PRESENT | SE_DACL_PROTECTED;
    EXPECT_EQ(pending.KeepRights(), 0u);
    EXPECT_EQ(played.sets, 1);
    EXPECT_EQ(played.set, SE_SELF_RELATIVE | SE_DACL_PRESENT | SE_DACL_PROTECTED);
}

TEST_F(PendingRights, WhatCannotBeReadOrSetIsAnError)
{
    played.old = SE_DACL_PRESENT;
    played.setError = ERROR_NOT_SUPPORTED;
    EXPECT_EQ(pending.KeepRights(), DWORD{ ERROR_NOT_SUPPORTED });
    played.readError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(pending.KeepRights(), DWORD{ ERROR_ACCESS_DENIED });
    played.readError = ERROR_FILE_NOT_FOUND;
    EXPECT_EQ(pending.KeepRights(), 0u);
    EXPECT_EQ(played.sets, 1);
}

}  // namespace
