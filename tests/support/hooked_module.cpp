#include "support/hooked_module.h"

#include "support/platform_hooks.h"

HookedModuleTest::HookedModuleTest(const char* moduleName) : module(GetModuleHandleA(moduleName)), hooks(module)
{
    if (module == nullptr) {
        throw std::runtime_error(std::string(moduleName) + " is not loaded: does the test program link it?");
    }
}

void HookedModuleTest::SetUp()
{
    InstallPlatformDoubles(hooks);
    os.Install(hooks);
}

void HookedModuleTest::TearDown()
{
    hooks.RestoreAll();
}

void HookedModuleTest::ExpectNothingLeft()
{
    EXPECT_EQ(os.Leaks(), Strings());
    EXPECT_EQ(os.misuse, Strings());
    EXPECT_EQ(log.openTables, 0u);
    EXPECT_EQ(log.OpenCsv(), Strings());
    EXPECT_EQ(xml.Open(), "");
}
