// The range of title indexes and the folders of PATH.
#include <gtest/gtest.h>

#include "doubles/machine_double.h"
#include "registration.h"
#include "search_path.h"
#include "title_range.h"

namespace dkpf {
namespace {

void Provider(FakeMachine& machine, const std::wstring& name, DWORD first, DWORD last)
{
    auto& values = machine.state.keys[std::wstring(SERVICES_KEY) + L"\\" + name + L"\\Performance"];
    machine.state.keys[std::wstring(SERVICES_KEY) + L"\\" + name];
    values[VALUE_FIRST_COUNTER] = { REG_DWORD, {}, first };
    values[VALUE_LAST_COUNTER] = { REG_DWORD, {}, last };
    values[VALUE_FIRST_HELP] = { REG_DWORD, {}, first + 1 };
    values[VALUE_LAST_HELP] = { REG_DWORD, {}, last + 1 };
}

// The object and 17 counters take 2000 to 2034, their help texts 2001 to 2035.
TEST(TitleRange, IsFreeOfEveryOther)
{
    FakeMachine machine;
    EXPECT_EQ(FreeTitleRange(machine), 2000u);
    Provider(machine, L"tnwdiskperf", 2000, 2040);  // ours is no other's
    EXPECT_EQ(FreeTitleRange(machine), 2000u);
    Provider(machine, L"behind", 2036, 2040);
    EXPECT_EQ(FreeTitleRange(machine), 2000u);
    Provider(machine, L"last", 2034, 2034);
    EXPECT_EQ(FreeTitleRange(machine), 2042u);  // 2036 to 2041 are taken as well
    Provider(machine, L"around", 1000, 2050);
    EXPECT_EQ(FreeTitleRange(machine), 2052u);
    machine.state.keys[PERFLIB_KEY][L"Last Help"] = { REG_DWORD, {}, 9001 };
    EXPECT_EQ(FreeTitleRange(machine), 9002u);
    machine.state.keys[PERFLIB_KEY][L"Last Help"] = { REG_DWORD, {}, 9002 };
    EXPECT_EQ(FreeTitleRange(machine), 9004u);
}

TEST(TitleRange, IsReadOnlyWhereItFits)
{
    FakeMachine machine;
    DWORD       first = 0;
    EXPECT_FALSE(ReadTitleRange(machine, &first));
    Provider(machine, L"tnwdiskperf", 4000, 4034);
    EXPECT_TRUE(ReadTitleRange(machine, &first));
    EXPECT_EQ(first, 4000u);
    Provider(machine, L"tnwdiskperf", 4000, 4036);
    EXPECT_FALSE(ReadTitleRange(machine, &first));
    Provider(machine, L"tnwdiskperf", 4001, 4035);
    EXPECT_FALSE(ReadTitleRange(machine, &first));
    Provider(machine, L"tnwdiskperf", 0, 34);
    EXPECT_FALSE(ReadTitleRange(machine, &first));
    Provider(machine, L"tnwdiskperf", 4000, 4034);
    for (const wchar_t* name : { VALUE_FIRST_HELP, VALUE_LAST_HELP })
        machine.state.keys[PERFORMANCE_KEY][name].number += 6;
    EXPECT_TRUE(ReadTitleRange(machine, &first)) << "a loader that had texts without titles before";
    EXPECT_EQ(first, 4000u);
    machine.state.keys[PERFORMANCE_KEY][VALUE_LAST_HELP].number++;
    EXPECT_FALSE(ReadTitleRange(machine, &first));
    machine.state.keys[PERFORMANCE_KEY][VALUE_FIRST_HELP].number = 0;
    machine.state.keys[PERFORMANCE_KEY][VALUE_LAST_HELP].number = 34;
    EXPECT_FALSE(ReadTitleRange(machine, &first));
}

TEST(FoldersOfPath, GoesInOnceAndOutWithoutATrace)
{
    for (const wchar_t* path : { L"C:\\a;D:\\b", L"C:\\a;", L"C:\\a;;D:\\b;;" }) {
        EXPECT_FALSE(HoldsFolder(path, L"C:\\home\\bin"));
        const std::wstring with = WithFolder(path, L"C:\\home\\bin");
        EXPECT_TRUE(HoldsFolder(with, L"c:\\HOME\\bin\\"));
        EXPECT_EQ(WithoutFolder(with, L"C:\\home\\bin"), path);
    }
    EXPECT_EQ(WithoutFolder(WithFolder(L"", L"C:\\home\\bin"), L"C:\\home\\bin"), L"");
    EXPECT_EQ(WithoutFolder(L"C:\\Home\\Bin\\;C:\\home\\binary", L"C:\\home\\bin"), L"C:\\home\\binary");
}

}  // namespace
}  // namespace dkpf
