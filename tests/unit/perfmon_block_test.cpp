/*
 * The data block, byte for byte: definitions, instances, names, and the bytes that stay the caller's.
 */
#include "support/perfmon_fixture.h"

class PerfmonBlock : public DiskperfTest {
protected:
    DWORD     err = 1;
    DKPF_DISP values = {};

    void SetUp() override
    {
        DiskperfTest::SetUp();
        g_dwFirstCounter = 2000;
        g_dwFirstHelp = 3001;
        Names("NMP", "_Total");
        // No value twice, and some with every byte in use.
        for (ULONGLONG i = 0; i < 65; i++) {
            for (ULONGLONG j = 0; j < 17; j++) {
                values.value[i][j] = 0xF0E0D0C0B0A00000ull + i * 256 + j;
            }
        }
        values.value[64][16] = 0xFFFFFFFFFFFFFFFFull;
        values.value[0][0] = 0;
    }
    void TearDown() override
    {
        ExpectNothingLeft();
        DiskperfTest::TearDown();
    }
    static void Names(const std::string& prefix, const std::string& total)
    {
        memset(g_szString, 0, sizeof g_szString);
        ASSERT_LT(prefix.size(), sizeof g_szString[39]);
        memcpy(g_szString[39], prefix.c_str(), prefix.size() + 1);
        memcpy(g_szString[40], total.c_str(), total.size() + 1);
    }
    Strings HeaderLines(DWORD levels = 0xFFFFFFFF)
    {
        return PerfmonLines(log, "_DkpfPfmSetCollectHeader", levels);
    }
    Strings BodyLines(DWORD levels = 0xFFFFFFFF)
    {
        return PerfmonLines(log, "_DkpfPfmSetCollectBody", levels);
    }
    /* Fills a body between guard pages and gives it back. */
    std::vector<BYTE> Body(GuardedBuffer::Guard guard = GuardedBuffer::Guard::Behind)
    {
        GuardedBuffer buffer(BlockSize - HeaderSize, guard);
        void*         end = nullptr;
        EXPECT_TRUE(_DkpfPfmSetCollectBody(&values, buffer.Data(), &end, &err));
        EXPECT_EQ(err, 0xB0000000u);
        EXPECT_EQ(end, buffer.Data() + 15080);
        return buffer.Bytes();
    }
};

/* ---- Definitions ------------------------------------------------------------------------------------------------- */

TEST_F(PerfmonBlock, TheDefinitionsByteForByte)
{
    GuardedBuffer buffer(HeaderSize);
    ExpectedBlock expected(HeaderSize);
    expected.Definitions(2000, 3001);
    EXPECT_TRUE(_DkpfPfmSetCollectHeader(buffer.Data(), &err));
    EXPECT_EQ(err, 0xB0000000u);
    EXPECT_TRUE(SameBytes(buffer.Bytes(), expected.bytes))
        << "TotalByteLength, the first four bytes, is left to collect";
}

TEST_F(PerfmonBlock, TheDefinitionsTouchNothingBeforeThem)
{
    GuardedBuffer buffer(HeaderSize, GuardedBuffer::Guard::Before);
    ExpectedBlock expected(HeaderSize);
    expected.Definitions(2000, 3001);
    EXPECT_TRUE(_DkpfPfmSetCollectHeader(buffer.Data(), &err));
    EXPECT_TRUE(SameBytes(buffer.Bytes(), expected.bytes));
}

TEST_F(PerfmonBlock, EveryTitleIndexStandsOnTheTwoBases)
{
    GuardedBuffer buffer(HeaderSize);
    ExpectedBlock expected(HeaderSize);
    g_dwFirstCounter = 0xFFFFFFF0;
    g_dwFirstHelp = 7;
    expected.Definitions(0xFFFFFFF0, 7);
    EXPECT_TRUE(_DkpfPfmSetCollectHeader(buffer.Data(), &err));
    EXPECT_TRUE(SameBytes(buffer.Bytes(), expected.bytes));
}

TEST_F(PerfmonBlock, TheDefinitionsAreDumpedFieldByField)
{
    static const int scales[17] = { 0, -5, -5, -5, -5, 2, 2, -5, -5, -5, -5, -6, -6, -5, -5, 0, 0 };
    GuardedBuffer    buffer(HeaderSize);
    EXPECT_TRUE(_DkpfPfmSetCollectHeader(buffer.Data(), &err));
    Strings expected = {
        "  ObjectType.DefinitionLength        <744>",  "  ObjectType.HeaderLength            <64>",
        "  ObjectType.ObjectNameTitleIndex    <2000>", "  ObjectType.ObjectNameTitle         <0>",
        "  ObjectType.ObjectHelpTitleIndex    <3001>", "  ObjectType.ObjectHelpTitle         <0>",
        "  ObjectType.DetailLevel             <100>",  "  ObjectType.NumCounters             <17>",
        "  ObjectType.DefaultCounter          <0>",    "  ObjectType.NumInstances            <65>",
        "  ObjectType.CodePage                <0>",    "  ObjectType.PerfTime                <0>",
        "  ObjectType.PerfFreq                <0>",
    };
    for (int j = 0; j < 17; j++) {
        std::string counter = std::string("  CounterDef[") + (j < 10 ? " " : "") + std::to_string(j) + "].";
        expected.push_back(counter + "ByteLength            <40>");
        expected.push_back(counter + "CounterNameTitleIndex <" + std::to_string(2000 + 2 * (j + 1)) + ">");
        expected.push_back(counter + "CounterNameTitle      <0>");
        expected.push_back(counter + "CounterHelpTitleIndex <" + std::to_string(3001 + 2 * (j + 1)) + ">");
        expected.push_back(counter + "CounterHelpTitle      <0>");
        expected.push_back(counter + "DefaultScale          <" + std::to_string(scales[j]) + ">");
        expected.push_back(counter + "DetailLevel           <100>");
        expected.push_back(counter + "CounterType           <0x10100>");
        expected.push_back(counter + "CounterSize           <8>");
        expected.push_back(counter + "CounterOffset         <" + Hex(8 + 8 * static_cast<ULONGLONG>(j)) + ">");
    }
    EXPECT_EQ(log.Texts("diskperf_trace", TNWLOG_DUMP), expected);
    EXPECT_EQ(HeaderLines(~DWORD{ TNWLOG_DUMP }),
              Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 8 EXIT<TRUE> err<0xb0000000>" }));
}

TEST_F(PerfmonBlock, NoPlaceForTheDefinitions)
{
    EXPECT_FALSE(_DkpfPfmSetCollectHeader(NULL, &err));
    EXPECT_EQ(err, 0xB0000004u);
    EXPECT_EQ(HeaderLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  lpPerfHeader is NULL.",
                                       "diskperf_trace 8 EXIT<FALSE> err<0xb0000004>" }));
}

/* ---- Instances --------------------------------------------------------------------------------------------------- */

TEST_F(PerfmonBlock, TheInstancesByteForByteWithPaddingAndNameTailsLeftToTheCaller)
{
    ExpectedBlock expected(BlockSize - HeaderSize);
    expected.Instances(0, values);
    EXPECT_TRUE(SameBytes(Body(), expected.bytes));
}

TEST_F(PerfmonBlock, TheInstancesTouchNothingBeforeThem)
{
    ExpectedBlock expected(BlockSize - HeaderSize);
    expected.Instances(0, values);
    EXPECT_TRUE(SameBytes(Body(GuardedBuffer::Guard::Before), expected.bytes));
}

TEST_F(PerfmonBlock, SomeBytesOfTheLastInstanceByHand)
{
    std::vector<BYTE> body = Body();
    const size_t      at = 232 * 64;
    EXPECT_EQ(
        std::vector<BYTE>(&body[at], &body[at] + 24),
        (std::vector<BYTE>{ 88, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 24, 0, 0, 0, 12, 0, 0, 0 }));
    EXPECT_EQ(std::vector<BYTE>(&body[at] + 24, &body[at] + 38),
              (std::vector<BYTE>{ 'N', 0, 'M', 0, 'P', 0, '6', 0, '4', 0, 0, 0, 0xA5, 0xA5 }));
    EXPECT_EQ(std::vector<BYTE>(&body[at] + 86, &body[at] + 96),
              (std::vector<BYTE>{ 0xA5, 0xA5, 144, 0, 0, 0, 0xA5, 0xA5, 0xA5, 0xA5 }));
    EXPECT_EQ(std::vector<BYTE>(&body[at] + 224, &body[at] + 232), std::vector<BYTE>(8, 0xFF));
}

TEST_F(PerfmonBlock, AllSixtyFiveInstancesAlsoForSlotsNotInUse)
{
    values = {};
    ExpectedBlock expected(BlockSize - HeaderSize);
    expected.Instances(0, values);
    EXPECT_TRUE(SameBytes(Body(), expected.bytes));
}

TEST_F(PerfmonBlock, ANameOfThirtyOneCharactersFillsItsField)
{
    Names(std::string(29, 'P'), std::string(31, 'T'));
    std::vector<BYTE> body = Body();
    ExpectedBlock     expected(BlockSize - HeaderSize);
    for (size_t i = 0; i < 65; i++) {
        expected.Instance(0, i, i == 0 ? std::wstring(31, L'T') : std::wstring(29, L'P') + std::to_wstring(i),
                          values.value[i]);
    }
    EXPECT_TRUE(SameBytes(body, expected.bytes));
}

TEST_F(PerfmonBlock, ANameThatNeedsMoreThanThirtyTwoCharactersHasLengthZeroAndStaysInItsField)
{
    Names(std::string(30, 'P'), std::string(32, 'T'));
    std::vector<BYTE> body = Body();
    ExpectedBlock     expected(BlockSize - HeaderSize);
    for (size_t i = 0; i < 65; i++) {
        const bool fits = i >= 1 && i <= 9;
        expected.Instance(0, i, fits ? std::wstring(30, L'P') + std::to_wstring(i) : L"", values.value[i]);
        if (!fits) {
            // What a failed conversion leaves in the field itself is the system's affair.
            expected.Put32(232 * i + 20, 0);
            memset(&expected.bytes[232 * i + 24], 0, 64);
            memset(&body[232 * i + 24], 0, 64);
        }
    }
    EXPECT_TRUE(SameBytes(body, expected.bytes));
    EXPECT_EQ(log.Errors(), Strings()) << "not a failure of the block";
}

TEST_F(PerfmonBlock, TheLongestMessageStringsCostTheNamesAlone)
{
    Names(std::string(127, 'P'), std::string(127, 'T'));
    std::vector<BYTE> body = Body();
    ExpectedBlock     expected(BlockSize - HeaderSize);
    expected.Instances(0, values);
    for (size_t i = 0; i < 65; i++) {
        expected.Put32(232 * i + 20, 0);
        memset(&expected.bytes[232 * i + 24], 0, 64);
        memset(&body[232 * i + 24], 0, 64);
    }
    EXPECT_TRUE(SameBytes(body, expected.bytes));
}

TEST_F(PerfmonBlock, APercentSignInAMessageStringIsACharacter)
{
    Names("N%d", "%s%n");
    std::vector<BYTE> body = Body();
    ExpectedBlock     expected(BlockSize - HeaderSize);
    for (size_t i = 0; i < 65; i++) {
        expected.Instance(0, i, i == 0 ? L"%s%n" : L"N%d" + std::to_wstring(i), values.value[i]);
    }
    EXPECT_TRUE(SameBytes(body, expected.bytes));
}

TEST_F(PerfmonBlock, ANameThatCannotBeConvertedIsNotReadForTheDump)
{
    os.Fail("MultiByteToWideChar", 3, ERROR_NO_UNICODE_TRANSLATION);
    std::vector<BYTE> body = Body();
    ExpectedBlock     expected(BlockSize - HeaderSize);
    expected.Instances(0, values);
    expected.Put32(232 * 2 + 20, 0);
    memset(&expected.bytes[232 * 2 + 24], GuardedBuffer::Fill, 64);
    EXPECT_TRUE(SameBytes(body, expected.bytes));
    EXPECT_EQ(BodyLines(TNWLOG_DUMP)[25 * 2],
              "diskperf_trace 32   PerfBody[2].InstanceName                            <>");
    EXPECT_EQ(BodyLines(TNWLOG_DUMP)[25 * 2 + 6],
              "diskperf_trace 32   PerfBody[2].NameLength                              <0>");
}

TEST_F(PerfmonBlock, EmptyMessageStringsGiveANumberAloneAndAnEmptyName)
{
    Names("", "");
    std::vector<BYTE> body = Body();
    ExpectedBlock     expected(BlockSize - HeaderSize);
    for (size_t i = 0; i < 65; i++) {
        expected.Instance(0, i, i == 0 ? L"" : std::to_wstring(i), values.value[i]);
    }
    EXPECT_TRUE(SameBytes(body, expected.bytes));
}

TEST_F(PerfmonBlock, NamesAreConvertedFromTheAnsiCodePage)
{
    Names("D\xE4", "Summe");
    std::vector<BYTE> body = Body();
    EXPECT_EQ(std::vector<BYTE>(&body[232 + 24], &body[232 + 32]),
              (std::vector<BYTE>{ 'D', 0, 0xE4, 0, '1', 0, 0, 0 }));
}

TEST_F(PerfmonBlock, EachNameIsConvertedOnceIntoThirtyTwoCharacters)
{
    Body();
    Strings expected = { "MultiByteToWideChar(0, _Total, 32) = 7" };
    for (int i = 1; i <= 64; i++) {
        expected.push_back("MultiByteToWideChar(0, NMP" + std::to_string(i) + ", 32) = " + (i < 10 ? "5" : "6"));
    }
    EXPECT_EQ(journal.Lines({ "MultiByteToWideChar" }), expected);
}

static DWORD      g_dwFlagsSeen;
static int        g_nBytesSeen;
static int WINAPI LookAtConversion(UINT codePage, DWORD flags, LPCCH text, int bytes, LPWSTR wide, int size)
{
    g_dwFlagsSeen = flags;
    g_nBytesSeen = bytes;
    return MultiByteToWideChar(codePage, flags, text, bytes, wide, size);
}

TEST_F(PerfmonBlock, TheConversionIsPrecomposedOfATextThatEndsInNul)
{
    ASSERT_TRUE(hooks.Replace("kernel32.dll", "MultiByteToWideChar", Address(LookAtConversion)));
    Body();
    EXPECT_EQ(g_dwFlagsSeen, DWORD{ MB_PRECOMPOSED });
    EXPECT_EQ(g_nBytesSeen, -1);
}

TEST_F(PerfmonBlock, EveryInstanceIsDumpedAfterAllAreFilled)
{
    GuardedBuffer buffer(BlockSize - HeaderSize);
    void*         end = nullptr;
    EXPECT_TRUE(_DkpfPfmSetCollectBody(&values, buffer.Data(), &end, &err));
    Strings expected;
    for (int i = 0; i < 65; i++) {
        std::string instance = "  PerfBody[" + std::to_string(i) + "].";
        std::string name = i == 0 ? "_Total" : "NMP" + std::to_string(i);
        expected.push_back(instance + "InstanceName                            <" + name + ">");
        expected.push_back(instance + "ByteLength                              <88>");
        expected.push_back(instance + "ParentObjectTitleIndex                  <0>");
        expected.push_back(instance + "ParentObjectInstance                    <0>");
        expected.push_back(instance + "UniqueID                                <-1>");
        expected.push_back(instance + "NameOffset                              <24>");
        expected.push_back(instance + "NameLength                              <" +
                           std::to_string(2 * (name.size() + 1)) + ">");
        expected.push_back(instance + "CounterBlock.ByteLength                 <144>");
        for (int j = 0; j < 17; j++) {
            expected.push_back(instance + "DkpfCounterValue[" + (j < 10 ? " " : "") + std::to_string(j) +
                               "]                     <" + std::to_string(static_cast<LONGLONG>(values.value[i][j])) +
                               ">");
        }
    }
    expected.push_back(TextOf("  lpRetAddr<0x%p>", end));
    EXPECT_EQ(log.Texts("diskperf_trace", TNWLOG_DUMP), expected);
    EXPECT_EQ(BodyLines(~DWORD{ TNWLOG_DUMP }),
              Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 8 EXIT<TRUE> err<0xb0000000>" }));
}

TEST_F(PerfmonBlock, WithoutTheDumpLevelNothingIsFormattedPerInstance)
{
    g_dwDkpfLogLevel = 0xFFFF & ~DWORD{ TNWLOG_DUMP };
    Body();
    GuardedBuffer buffer(HeaderSize);
    EXPECT_TRUE(_DkpfPfmSetCollectHeader(buffer.Data(), &err));
    EXPECT_LE(log.Texts("", TNWLOG_DUMP).size(), 1u);
}

/* ---- Missing arguments ------------------------------------------------------------------------------------------- */

TEST_F(PerfmonBlock, NoValues)
{
    BYTE  body[1] = { 1 };
    void* end = body;
    EXPECT_FALSE(_DkpfPfmSetCollectBody(NULL, body, &end, &err));
    EXPECT_EQ(err, 0xB0000004u);
    EXPECT_EQ(end, body);
    EXPECT_EQ(BodyLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  lpDispCounter is NULL.",
                                     "diskperf_trace 8 EXIT<FALSE> err<0xb0000004>" }));
}

TEST_F(PerfmonBlock, NoPlaceForTheInstances)
{
    void* end = this;
    EXPECT_FALSE(_DkpfPfmSetCollectBody(&values, NULL, &end, &err));
    EXPECT_EQ(err, 0xB0000004u);
    EXPECT_EQ(end, this);
    EXPECT_EQ(BodyLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  lpPerfBody is NULL.",
                                     "diskperf_trace 8 EXIT<FALSE> err<0xb0000004>" }));
}

TEST_F(PerfmonBlock, TheFirstMissingOneIsNamed)
{
    void* end = nullptr;
    BYTE  body[1] = { 1 };
    EXPECT_FALSE(_DkpfPfmSetCollectBody(NULL, NULL, NULL, &err));
    EXPECT_FALSE(_DkpfPfmSetCollectBody(NULL, NULL, &end, &err));
    EXPECT_FALSE(_DkpfPfmSetCollectBody(NULL, body, NULL, &err));
    EXPECT_FALSE(_DkpfPfmSetCollectBody(&values, NULL, NULL, &err));
    EXPECT_EQ(log.Errors(), Strings({ " lpDispCounter is NULL.", " lpDispCounter is NULL.", " lpDispCounter is NULL.",
                                      " lpPerfBody is NULL." }));
}

TEST_F(PerfmonBlock, NoPlaceForTheEndAddress)
{
    GuardedBuffer buffer(BlockSize - HeaderSize);
    EXPECT_FALSE(_DkpfPfmSetCollectBody(&values, buffer.Data(), NULL, &err));
    EXPECT_EQ(err, 0xB0000004u);
    EXPECT_EQ(BodyLines(), Strings({ "diskperf_trace 8 ENTER :", "diskperf_trace 1  lpRetAddr is NULL.",
                                     "diskperf_trace 8 EXIT<FALSE> err<0xb0000004>" }));
    EXPECT_TRUE(SameBytes(buffer.Bytes(), std::vector<BYTE>(BlockSize - HeaderSize, GuardedBuffer::Fill)));
}
