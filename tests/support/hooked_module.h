/*
 * Base of every fixture that puts the doubles into a module: the five doubles and the hooks, for the time of one case.
 */
#ifndef TESTS_SUPPORT_HOOKED_MODULE_H
#define TESTS_SUPPORT_HOOKED_MODULE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "doubles/os_double.h"
#include "doubles/tnwdiskfltr_double.h"
#include "doubles/tnwlog_double.h"
#include "doubles/tnwxml_double.h"
#include "support/import_hooks.h"

class HookedModuleTest : public testing::Test {
protected:
    /* The module must be loaded already: test programs link it. */
    explicit HookedModuleTest(const char* moduleName);
    void SetUp() override;
    void TearDown() override;

    /* Nothing left open, nothing misused, no string table, no CSV file, no configuration sequence open. */
    void ExpectNothingLeft();

    Journal      journal;
    LogDouble    log{ journal };
    XmlDouble    xml{ journal };
    FilterDouble filter{ journal };
    Os           os{ journal };
    HMODULE      module;
    ImportHooks  hooks;
};

/* Shorthand for whole comparisons: EXPECT_EQ(log.Events(), Events({ 0x800012C1, 0x400012C2 })). */
using Events = std::vector<DWORD>;
using Strings = std::vector<std::string>;

#endif
