// What keeps the only copy of a dump: runs killed where it counts, which also shows the order of
// writes and flushes.

#include <tuple>

#include "device_fixture.h"

using namespace testing;

using SurvivalTest = DeviceTest;

// Leaks cannot be looked for in a process that is traced.
const std::string kStrace =
        "ASAN_OPTIONS=$ASAN_OPTIONS:detect_leaks=0 /usr/bin/strace -o /dev/null ";

TEST_F(SurvivalTest, LosesNoDumpWhenKilledAroundTheErase) {
    const std::tuple<std::string, std::string, int, size_t> moments[] = {
            // before this call on this path, the first or second one; the partition's size then
            {"fsync", kArchive, 1, 1 << 20}, {"fsync", kMinidumpDir, 1, 1 << 20},
            {"write", kPartition, 1, 0},  // an erase begins by truncating a plain file
            {"fsync", kPartition, 1, 4096},  {"write", kPartition, 2, 0},
            {"fsync", kPartition, 2, 159744}};
    for (const auto& [call, path, number, partition_size] : moments) {
        SCOPED_TRACE(call + " " + path + " " + std::to_string(number));
        SetUp();
        crash();
        EXPECT_EQ(128 + SIGKILL, run(kStrace + "-P " + path + " -e inject=" + call +
                                     ":signal=KILL:when=" + std::to_string(number) + " " + tool()));
        EXPECT_EQ(partition_size, fs::file_size(kPartition));
        EXPECT_EQ(partition_size == 1 << 20 ? 0 : 11, run_tool());  // the whole job, or nothing
        EXPECT_TRUE(dump_is_in(kArchive));
    }
}

TEST_F(SurvivalTest, ReportsACommandThatCannotBeStarted) {
    crash();
    EXPECT_EQ(0, run(kStrace + "-e inject=clone:error=EAGAIN " + tool()));
    EXPECT_THAT(log(), Contains("I Compression failed."));
}
