/*
 * The banner line that opens every trace log.
 */
#include "support/fixture.h"
#include "support/golden.h"

class Banner : public DiskperfTest {};

// Written at 8:07:03 UTC, an hour ahead here: no part is padded.
TEST_F(Banner, StandsInEachOfTheThreeLogs)
{
    CloseLogs();
    os.utcOffset = 60;
    os.AddModule("tnwdiskperf.dll", SYSTEMTIME{ 2024, 3, 0, 5, 8, 7, 3, 0 }, "1.2.3.4");
    ASSERT_TRUE(_DkpfLogInit());
    const Strings banner = { Golden("banner") };
    EXPECT_EQ(log.Texts("diskperf", TNWLOG_NOTICE), banner);
    EXPECT_EQ(log.Texts("diskperf_trace", TNWLOG_NOTICE), banner);
    EXPECT_EQ(log.Texts("diskperf_conf", TNWLOG_NOTICE), banner);
    EXPECT_TRUE(_DkpfLogTerm());
    ExpectNothingLeft();
}
