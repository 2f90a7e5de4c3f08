// What keeps the only copy of a dump: runs killed at any moment, which also shows the order of
// writes and flushes.

#include "device_fixture.h"

using namespace testing;

namespace {

// Leaks cannot be looked for in a process that is traced.
const std::string kStrace =
        "ASAN_OPTIONS=$ASAN_OPTIONS:detect_leaks=0 /usr/bin/strace -o /dev/null ";

using SurvivalTest = DeviceTest;

// When a run is killed: before a system call on a path, by which of these calls it is, from 1 on.
struct Moment {
    const char* name;
    std::string call;
    std::string path;
    int number;
    size_t partition_size = 1 << 20;  // then, in bytes: an erase begins by truncating a plain file
};

void PrintTo(const Moment& moment, std::ostream* out) { *out << moment.name; }

class KilledRun : public DeviceTest, public WithParamInterface<Moment> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(At, KilledRun,
                         Values(Moment{"FlushOfTheArchive", "fsync", kArchive, 1},
                                Moment{"FlushOfTheArchivesName", "fsync", kMinidumpDir, 1},
                                Moment{"EraseOfTheHeader", "write", kPartition, 1, 0},
                                Moment{"FlushOfTheErasedHeader", "fsync", kPartition, 1, 4096},
                                Moment{"EraseOfTheDump", "write", kPartition, 2, 0},
                                Moment{"FlushOfTheErasedDump", "fsync", kPartition, 2, 159744}),
                         [](const auto& test) { return test.param.name; });

TEST_P(KilledRun, LosesNoDump) {
    const auto& [name, call, path, number, partition_size] = GetParam();
    crash();
    EXPECT_EQ(128 + SIGKILL, run(kStrace + "-P " + path + " -e inject=" + call +
                                 ":signal=KILL:when=" + std::to_string(number) + " " + tool()));
    EXPECT_EQ(partition_size, fs::file_size(kPartition));
    EXPECT_EQ(partition_size == 1 << 20 ? 0 : 11, run_tool());  // the whole job, or nothing
    EXPECT_TRUE(dump_is_in(kArchive));
}

TEST_F(SurvivalTest, ReportsACommandThatCannotBeStarted) {
    crash();
    EXPECT_EQ(0, run(kStrace + "-e inject=clone:error=EAGAIN " + tool()));
    EXPECT_THAT(log(), Contains("I Compression failed."));
}
