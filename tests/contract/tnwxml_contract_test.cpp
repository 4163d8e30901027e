/*
 * The contract of tnwxml's sequence, ordinal by ordinal. Each case runs twice, unchanged: on the library with the files
 * that are installed, and on its double. What only files can show (places, encodings, bounds, unknown keys) stands in
 * tests/unit/tnwxml_*_test.cpp.
 */
#include "contract/tnwxml_contract.h"

#include <gtest/gtest.h>
#include <string.h>

#include <functional>

#include "contract/contract.h"

namespace {

const Documented DOCUMENTED = {
    { "xmllib_init", { 0, 1, 2 } },
    { "xmllib_term", { 0, 2 } },
    { "xmllib_load_policy", { 0, 1, 2, 3, 4, 5, 6 } },
    { "xmllib_unload_policy", { 0, 1, 2 } },
    { "xmllib_load_config", { 0, 1, 2, 3, 4, 5, 10 } },
    { "xmllib_unload_config", { 0, 2 } },
    { "xmllib_get_value", { 0, 1, 2, 7, 8, 9 } },
};

const char* const LEVEL = "/root/diskperf/log/level";

class TnwxmlContract : public testing::TestWithParam<Side<TnwxmlSide>> {
protected:
    XMLLIB_STATUS Init(const char* component = "diskperf")
    {
        return Answered(DOCUMENTED, "xmllib_init", side->xmllib_init(component));
    }
    XMLLIB_STATUS Term()
    {
        return Answered(DOCUMENTED, "xmllib_term", side->xmllib_term());
    }
    XMLLIB_STATUS LoadPolicy(const char* component = "diskperf")
    {
        return Answered(DOCUMENTED, "xmllib_load_policy", side->xmllib_load_policy(component));
    }
    XMLLIB_STATUS UnloadPolicy(const char* component = "diskperf")
    {
        return Answered(DOCUMENTED, "xmllib_unload_policy", side->xmllib_unload_policy(component));
    }
    XMLLIB_STATUS LoadConfig(DWORD config = XMLLIB_CONFIG_CLUSTER)
    {
        return Answered(DOCUMENTED, "xmllib_load_config", side->xmllib_load_config(config));
    }
    XMLLIB_STATUS UnloadConfig()
    {
        return Answered(DOCUMENTED, "xmllib_unload_config", side->xmllib_unload_config());
    }
    XMLLIB_STATUS GetValue(const char* key, DWORD type, void* value, DWORD* size)
    {
        return Answered(DOCUMENTED, "xmllib_get_value", side->xmllib_get_value(key, type, value, size));
    }

    /* The sequence up to the values. */
    void Load()
    {
        ASSERT_EQ(XMLLIB_OK, Init());
        ASSERT_EQ(XMLLIB_OK, LoadPolicy());
        ASSERT_EQ(XMLLIB_OK, LoadConfig());
    }
    /* The value of a key, which must be there. */
    DWORD Value(const std::string& key)
    {
        DWORD value = 0xDDDDDDDD, size = 4;
        EXPECT_EQ(XMLLIB_OK, GetValue(key.c_str(), XMLLIB_TYPE_DWORD, &value, &size)) << key;
        EXPECT_EQ(4u, size);
        return value;
    }
    /* The value is refused, and value and size are untouched. */
    void ExpectRefused(XMLLIB_STATUS status, const char* key, DWORD type = XMLLIB_TYPE_DWORD, DWORD size = 4)
    {
        DWORD value = 0xDDDDDDDD, given = size;
        EXPECT_EQ(status, GetValue(key, type, &value, &given));
        EXPECT_EQ(0xDDDDDDDDu, value);
        EXPECT_EQ(size, given);
    }

    std::unique_ptr<TnwxmlSide> side = GetParam().make();
};

using Sides = Side<TnwxmlSide>;
INSTANTIATE_TEST_SUITE_P(, TnwxmlContract,
                         testing::Values(Sides{ "Real", RealTnwxml }, Sides{ "Double", DoubleOfTnwxml }),
                         NameOfSide<TnwxmlSide>);

/* No names of components: 1 to 31 letters, digits, '_' or '-'. */
const std::string TOO_LONG(32, 'x');
const char* const NO_COMPONENT[] = {
    nullptr, "", "..", "a/b", "a\\b", "a.b", "C:a", "a b", "\xC3\xA4", TOO_LONG.c_str()
};

/* ---- The sequence ---- */

TEST_P(TnwxmlContract, TheWholeSequenceSucceedsTwice)
{
    for (int i = 0; i < 2; i++) {
        Load();
        EXPECT_EQ(7u, Value(LEVEL));
        EXPECT_EQ(XMLLIB_OK, UnloadConfig());
        EXPECT_EQ(XMLLIB_OK, UnloadPolicy());
        EXPECT_EQ(XMLLIB_OK, Term());
    }
}

TEST_P(TnwxmlContract, NothingWorksBeforeInit)
{
    EXPECT_EQ(XMLLIB_WRONG_ORDER, Term());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, LoadPolicy());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadPolicy());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, LoadConfig());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadConfig());
    ExpectRefused(XMLLIB_WRONG_ORDER, LEVEL);
}

TEST_P(TnwxmlContract, ConfigurationAndValuesNeedWhatComesBefore)
{
    EXPECT_EQ(XMLLIB_OK, Init());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, LoadConfig());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadPolicy());
    EXPECT_EQ(XMLLIB_OK, LoadPolicy());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadConfig());
    ExpectRefused(XMLLIB_WRONG_ORDER, LEVEL);
}

TEST_P(TnwxmlContract, EachStepIsTakenOnce)
{
    Load();
    EXPECT_EQ(XMLLIB_WRONG_ORDER, Init());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, LoadPolicy());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, LoadConfig());
    EXPECT_EQ(XMLLIB_OK, UnloadConfig());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadConfig());
    EXPECT_EQ(XMLLIB_OK, UnloadPolicy());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadPolicy());
    EXPECT_EQ(XMLLIB_OK, Term());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, Term());
}

TEST_P(TnwxmlContract, ThePolicyStaysWhileAConfigurationIsLoaded)
{
    Load();
    EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadPolicy());
    EXPECT_EQ(7u, Value(LEVEL));
}

TEST_P(TnwxmlContract, APolicyIsUnloadedUnderItsOwnNameAlone)
{
    EXPECT_EQ(XMLLIB_OK, Init());
    EXPECT_EQ(XMLLIB_OK, LoadPolicy());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadPolicy("other"));
    EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadPolicy("Diskperf"));
    EXPECT_EQ(XMLLIB_OK, UnloadPolicy());
}

TEST_P(TnwxmlContract, TermReleasesWhatIsStillHeld)
{
    Load();
    EXPECT_EQ(XMLLIB_OK, Term());
    ExpectRefused(XMLLIB_WRONG_ORDER, LEVEL);
    EXPECT_EQ(XMLLIB_OK, Init());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, LoadConfig());
    EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadPolicy());
    EXPECT_EQ(XMLLIB_OK, LoadPolicy());
    EXPECT_EQ(XMLLIB_OK, LoadConfig());
    EXPECT_EQ(7u, Value(LEVEL));
}

TEST_P(TnwxmlContract, AConfigurationIsReadAnewWhenItIsLoadedAgain)
{
    Load();
    EXPECT_EQ(XMLLIB_OK, UnloadConfig());
    side->Give(LEVEL, 39);
    EXPECT_EQ(XMLLIB_OK, LoadConfig());
    EXPECT_EQ(39u, Value(LEVEL));
}

/* ---- Arguments ---- */

TEST_P(TnwxmlContract, InitRefusesWhatIsNoComponent)
{
    for (const char* component : NO_COMPONENT) {
        EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, Init(component)) << (component == nullptr ? "NULL" : component);
    }
    EXPECT_EQ(XMLLIB_OK, Init(std::string(31, '-').c_str()));
}

TEST_P(TnwxmlContract, PoliciesRefuseWhatIsNoComponent)
{
    EXPECT_EQ(XMLLIB_OK, Init());
    for (const char* component : NO_COMPONENT) {
        EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, LoadPolicy(component)) << (component == nullptr ? "NULL" : component);
    }
    EXPECT_EQ(XMLLIB_OK, LoadPolicy());
    for (const char* component : NO_COMPONENT) {
        EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, UnloadPolicy(component)) << (component == nullptr ? "NULL" : component);
    }
}

TEST_P(TnwxmlContract, OnlyConfigurationOneExists)
{
    EXPECT_EQ(XMLLIB_OK, Init());
    EXPECT_EQ(XMLLIB_OK, LoadPolicy());
    for (DWORD config : { 0ul, 2ul, 0xFFFFFFFFul }) {
        EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, LoadConfig(config)) << config;
    }
}

TEST_P(TnwxmlContract, ArgumentsAreJudgedBeforeTheOrder)
{
    DWORD value = 0, size = 3;
    EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, LoadPolicy(nullptr));
    EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, UnloadPolicy(nullptr));
    EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, LoadConfig(0));
    EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, GetValue(LEVEL, XMLLIB_TYPE_DWORD, &value, &size));
    EXPECT_EQ(XMLLIB_OK, Init());
    EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, Init(""));
}

TEST_P(TnwxmlContract, AComponentWithoutAPolicyHasNoFile)
{
    EXPECT_EQ(XMLLIB_OK, Init("other"));
    EXPECT_EQ(XMLLIB_NO_FILE, LoadPolicy("other"));
    EXPECT_EQ(XMLLIB_WRONG_ORDER, LoadConfig());
    EXPECT_EQ(XMLLIB_OK, LoadPolicy());
}

TEST_P(TnwxmlContract, GetValueRefusesEachWrongArgumentAndTouchesNothing)
{
    DWORD value = 0xDDDDDDDD, size = 4;
    Load();
    EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, GetValue(LEVEL, XMLLIB_TYPE_DWORD, nullptr, &size));
    EXPECT_EQ(XMLLIB_INVALID_ARGUMENT, GetValue(LEVEL, XMLLIB_TYPE_DWORD, &value, nullptr));
    EXPECT_EQ(4u, size);
    EXPECT_EQ(0xDDDDDDDDu, value);
    ExpectRefused(XMLLIB_INVALID_ARGUMENT, nullptr);
    ExpectRefused(XMLLIB_INVALID_ARGUMENT, LEVEL, 0);
    ExpectRefused(XMLLIB_INVALID_ARGUMENT, LEVEL, 2);
    ExpectRefused(XMLLIB_INVALID_ARGUMENT, LEVEL, XMLLIB_TYPE_DWORD, 0);
    ExpectRefused(XMLLIB_INVALID_ARGUMENT, LEVEL, XMLLIB_TYPE_DWORD, 3);
}

/* ---- Values ---- */

TEST_P(TnwxmlContract, TheInstalledFilesGiveNineValues)
{
    Load();
    EXPECT_EQ(1u, Value("/root/diskperf/parameters/perfenable"));
    EXPECT_EQ(1u, Value("/root/diskperf/parameters/perflogsave"));
    EXPECT_EQ(1024u, Value("/root/diskperf/parameters/perflogsize"));
    EXPECT_EQ(3u, Value("/root/diskperf/parameters/perflogrotation"));
    EXPECT_EQ(10u, Value("/root/diskperf/parameters/collectinterval"));
    EXPECT_EQ(60u, Value("/root/diskperf/parameters/writeinterval"));
    EXPECT_EQ(0x1FFFFu, Value("/root/diskperf/parameters/collectparam"));
    EXPECT_EQ(7u, Value("/root/diskperf/log/level"));
    EXPECT_EQ(2048u, Value("/root/diskperf/log/size"));
}

TEST_P(TnwxmlContract, AValueIsThatOfTheConfiguration)
{
    side->Give("/root/diskperf/parameters/writeinterval", 5);
    side->Give(LEVEL, 0xFFFF);
    Load();
    EXPECT_EQ(5u, Value("/root/diskperf/parameters/writeinterval"));
    EXPECT_EQ(0xFFFFu, Value(LEVEL));
    EXPECT_EQ(10u, Value("/root/diskperf/parameters/collectinterval"));
}

TEST_P(TnwxmlContract, AKeyThatTheConfigurationLacksHasThePolicysDefault)
{
    side->LeaveOut("/root/diskperf/parameters/collectparam");
    Load();
    EXPECT_EQ(0x1FFFFu, Value("/root/diskperf/parameters/collectparam"));
}

TEST_P(TnwxmlContract, AKeyThatNobodyKnowsIsRefused)
{
    Load();
    for (const char* key : { "", "/", "/root/diskperf/log/nosuch", "/root/diskperf/log/Level",
                             "root/diskperf/log/level", "/root/diskperf/log/level/", "/root//diskperf/log/level" }) {
        SCOPED_TRACE(key);
        ExpectRefused(XMLLIB_NO_SUCH_KEY, key);
    }
    EXPECT_EQ(7u, Value(LEVEL)) << "the next key is read all the same";
}

TEST_P(TnwxmlContract, AValueThatIsNoNumberIsRefusedUnderItsKey)
{
    side->GiveNoNumber(LEVEL);
    Load();
    ExpectRefused(XMLLIB_NO_NUMBER, LEVEL);
    EXPECT_EQ(2048u, Value("/root/diskperf/log/size"));
}

TEST_P(TnwxmlContract, AValueOutOfItsRangeIsRefusedUnderItsKey)
{
    side->GiveOutOfRange(LEVEL);
    Load();
    ExpectRefused(XMLLIB_OUT_OF_RANGE, LEVEL);
    EXPECT_EQ(2048u, Value("/root/diskperf/log/size"));
}

TEST_P(TnwxmlContract, ALargerDestinationGetsFourBytes)
{
    Load();
    BYTE  buffer[9];
    DWORD size = 8, value = 0;
    memset(buffer, 0xDD, sizeof buffer);
    EXPECT_EQ(XMLLIB_OK, GetValue(LEVEL, XMLLIB_TYPE_DWORD, buffer + 1, &size)) << "nor need it be aligned";
    EXPECT_EQ(4u, size);
    memcpy(&value, buffer + 1, sizeof value);
    EXPECT_EQ(7u, value);
    EXPECT_EQ(0xDD, buffer[0]);
    EXPECT_EQ(0xDD, buffer[5]);
}

/* ---- Refused files ---- */

struct Refusal {
    Wrong         wrong;
    XMLLIB_STATUS status;
};

TEST_P(TnwxmlContract, ARefusedPolicyIsNotLoadedAndTheNextCallReadsAnew)
{
    EXPECT_EQ(XMLLIB_OK, Init());
    for (const Refusal& refusal :
         { Refusal{ Wrong::PolicyMissing, XMLLIB_NO_FILE }, Refusal{ Wrong::PolicyCut, XMLLIB_NOT_WELL_FORMED },
           Refusal{ Wrong::PolicyBad, XMLLIB_BAD_POLICY } }) {
        side->Break(refusal.wrong);
        EXPECT_EQ(refusal.status, LoadPolicy());
        side->Mend();
        EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadPolicy()) << "none is loaded";
        EXPECT_EQ(XMLLIB_WRONG_ORDER, LoadConfig());
        EXPECT_EQ(XMLLIB_OK, LoadPolicy());
        EXPECT_EQ(XMLLIB_OK, UnloadPolicy());
    }
    EXPECT_EQ(XMLLIB_OK, Term());
}

TEST_P(TnwxmlContract, ARefusedConfigurationIsNotLoadedAndLeavesThePolicy)
{
    EXPECT_EQ(XMLLIB_OK, Init());
    EXPECT_EQ(XMLLIB_OK, LoadPolicy());
    for (const Refusal& refusal :
         { Refusal{ Wrong::ConfigurationMissing, XMLLIB_NO_FILE },
           Refusal{ Wrong::ConfigurationCut, XMLLIB_NOT_WELL_FORMED }, Refusal{ Wrong::KeyTwice, XMLLIB_KEY_TWICE } }) {
        side->Break(refusal.wrong);
        EXPECT_EQ(refusal.status, LoadConfig());
        side->Mend();
        EXPECT_EQ(XMLLIB_WRONG_ORDER, UnloadConfig()) << "none is loaded";
        ExpectRefused(XMLLIB_WRONG_ORDER, LEVEL);
        EXPECT_EQ(XMLLIB_OK, LoadConfig());
        EXPECT_EQ(7u, Value(LEVEL));
        EXPECT_EQ(XMLLIB_OK, UnloadConfig());
    }
    EXPECT_EQ(XMLLIB_OK, UnloadPolicy());
    EXPECT_EQ(XMLLIB_OK, Term());
}

}  // namespace
