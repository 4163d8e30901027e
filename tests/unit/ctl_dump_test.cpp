/*
 * The text of dkpfctl dump, as a whole.
 */
#include <gtest/gtest.h>
#include <memory>

#include "dump_text.h"

using namespace dkpf;

namespace {

class DumpTest : public testing::Test {
protected:
    DumpTest()
    {
        info->conf = DKPF_CONF{ 1, 0, 1024, 3, 10, 60, 7, 2048, 0x1ffff };
        info->param_num = 12;
        info->parammax_num = 7;
        info->sampling_time = 5000;
        info->local_time = SYSTEMTIME{ 2026, 3, 6, 7, 14, 5, 9, 42 };
        info->InitFlag[0] = info->InitFlag[1] = info->InitFlag[2] = info->InitFlag[63] = 1;
        info->InitFlag[9] = 3;
        for (DWORD row = 0; row < DKPF_PARAM_NUM; row++)
            info->instance[row].inst_sub[2].value = 100 + row;
    }

    std::string Dump(const DumpOptions& options)
    {
        return DumpText(*info, 6250, options,
                        [](DWORD pid) { return pid == 500 ? ProcessLife::Alive : ProcessLife::Gone; });
    }

    std::unique_ptr<DKPF_SHM_INFO> info = std::make_unique<DKPF_SHM_INFO>();
};

const char HEAD[] = "region Global\\TNW_DKPF_SHM_INFO, 216784 bytes\n";

const char BODY[] = "configuration as published\n"
                    "  parameters/perfenable      1\n"
                    "  parameters/perflogsave     0\n"
                    "  parameters/perflogsize     1024 KiB\n"
                    "  parameters/perflogrotation 3\n"
                    "  parameters/collectinterval 10 s\n"
                    "  parameters/writeinterval   60 s\n"
                    "  parameters/collectparam    0x1ffff\n"
                    "  log/level                  7\n"
                    "  log/size                   2048 KiB\n"
                    "sample\n"
                    "  rows                       12 current, 7 peak\n"
                    "  sampling_time              5000 ms, 1.2 s ago\n"
                    "  local_time                 2026/03/07 14:05:09.042\n"
                    "  disks present              1 to 3, 64\n";

}  // namespace

TEST_F(DumpTest, WithoutOptionsConfigurationAndSample)
{
    EXPECT_EQ(Dump({}), std::string(HEAD) + BODY);
}

TEST_F(DumpTest, RowsNameOwnersAliveAndGone)
{
    info->PMProcessID[1] = 500;
    info->PMProcessID[32] = 501;
    std::string rows = "consumer rows\n   0  the producer's\n   1  process 500, alive\n";
    for (int row = 2; row < 32; row++)
        rows += (row < 10 ? "   " : "  ") + std::to_string(row) + "  free\n";
    rows += "  32  process 501, gone\n";
    EXPECT_EQ(Dump({ true, 0 }), std::string(HEAD) + BODY + rows);
}

TEST_F(DumpTest, OneDisksTwelveValuesByName)
{
    info->instance[0].inst_sub[2].value = 0xFFFFFFFFFFFFFFFFull;
    EXPECT_EQ(Dump({ false, 3 }), std::string(HEAD) + BODY +
                                      "mirror disk 3: present\n"
                                      "  Write Bytes Sum                      18446744073709551615\n"
                                      "  Transfer Bytes Before Reduction Sum  101\n"
                                      "  Transfer Bytes Sum                   102\n"
                                      "  Write us Sum                         103\n"
                                      "  Writes Sum                           104\n"
                                      "  Send Queue Bytes                     105\n"
                                      "  History Buffer Bytes                 106\n"
                                      "  Request Queue Bytes                  107\n"
                                      "  Transfer Memory Bytes                108\n"
                                      "  Unsynchronized Bytes                 109\n"
                                      "  Transfer us Sum                      110\n"
                                      "  Transfers Sum                        111\n");
}

TEST_F(DumpTest, ADiskThatIsNotPresentSaysItsState)
{
    EXPECT_NE(Dump({ false, 10 }).find("mirror disk 10: not present (state 3)\n"), std::string::npos);
}

TEST_F(DumpTest, DamageStandsOnTopAndOnlyRealRowsAreRead)
{
    info->param_num = 4000000000u;
    const std::string text = Dump({ false, 3 });
    EXPECT_EQ(text.find(std::string(HEAD) + "damaged: param_num is 4000000000, at most 12 is possible: 12 assumed\n"),
              0u);
    EXPECT_NE(text.find("Transfers Sum                        111\n"), std::string::npos);
}

TEST_F(DumpTest, NoSampleIsSaid)
{
    info->local_time = SYSTEMTIME{};
    const std::string text = Dump({});
    EXPECT_NE(text.find("  local_time                 no sample\n"), std::string::npos);
    EXPECT_EQ(text.find("sampling_time"), std::string::npos);
}
