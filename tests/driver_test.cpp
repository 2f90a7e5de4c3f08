
#include "driver/run_values.h"
#include "driver/text_file.h"
#include "driver/timestamp.h"
#include "support.h"

using DriverTest = DeviceTest;

TEST_F(DriverTest, RunValuesStartAsOtherServicesExpectThem) {
    EXPECT_EQ("/dev/block/by-name/logdump", logdump_partition_path);
    EXPECT_EQ(0, md_region_count);
    EXPECT_EQ("/data/vendor/minidump", minidump_dir);
    EXPECT_EQ("/data/vendor/minidump/panic_log", panic_log_dir);
    EXPECT_EQ("1970-01-01-00-00-00", current_timestamp);
    EXPECT_EQ("/data/vantix/", vantix_dir);
}

TEST_F(DriverTest, AppendsLinesThatEndInCrLf) {
    for (const char* text : {"x", "", "z"}) {
        EXPECT_TRUE(writeStringToFile(text, kPlace + "/list"));
    }
    EXPECT_EQ("x\r\n\r\nz\r\n", read_file(kPlace + "/list"));

    testing::internal::CaptureStderr();
    EXPECT_FALSE(writeStringToFile("x", "/data/missing/list"));
    EXPECT_EQ("Failed to open file: /data/missing/list\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ(Lines(), log_records());
}
