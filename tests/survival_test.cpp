// What keeps the only copy of a dump: runs killed at any moment, and the order of flushes.

#include "device_fixture.h"

using namespace testing;

namespace {

// Traces a program to kTrace. Leaks cannot be looked for in a process that is traced.
const std::string kTrace = "/data/local/trace";
const std::string kStrace =
        "ASAN_OPTIONS=$ASAN_OPTIONS:detect_leaks=0 /usr/bin/strace -o " + kTrace + " ";

using SurvivalTest = DeviceTest;

// A system call on a path, and which of these calls it is, from 1 on.
using Moment = std::tuple<std::string, std::string, int>;
class KilledRun : public DeviceTest, public WithParamInterface<Moment> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(At, KilledRun,
                         Values(Moment{"openat", kMinidumpDir + "/minidump.bin", 1},
                                Moment{"write", kMinidumpDir + "/minidump.bin", 2},
                                Moment{"openat", kTmpDir + "/dump_info.txt", 9},
                                Moment{"fsync", kArchive, 1}, Moment{"write", kPartition, 1},
                                Moment{"fsync", kPartition, 1}, Moment{"write", kPartition, 3},
                                Moment{"openat", kLogTree + "/", 2}));

TEST_P(KilledRun, LosesNoDump) {
    const auto& [call, path, number] = GetParam();
    crash();
    EXPECT_EQ(128 + SIGKILL, run(kStrace + "-P " + path + " -e inject=" + call +
                                 ":signal=KILL:when=" + std::to_string(number) + " " + tool()));
    const bool freed = !partition_is_untouched();
    EXPECT_EQ(freed ? 11 : 0, run_tool());  // nothing left to do, or the whole job
    EXPECT_TRUE(dump_is_in(kArchive));
}

TEST_F(SurvivalTest, ReportsACommandThatCannotBeStarted) {
    crash();
    EXPECT_EQ(0, run(kStrace + "-e inject=clone:error=EAGAIN " + tool()));
    EXPECT_THAT(log(), Contains("I Compression failed."));
}

TEST_F(SurvivalTest, FlushesTheArchiveThenTheErasedHeaderThenTheErasedDump) {
    crash(build_image({}, 1 << 20));
    EXPECT_EQ(0, run(kStrace + "-y -e trace=fsync,write " + tool()));
    shell("grep -E '^fsync|^write.*logdump' " + kTrace + " >/data/steps");
    EXPECT_THAT(lines_of("/data/steps"),
                ElementsAre(ContainsRegex("^fsync.*<" + kArchive + ">\\) += 0$"),
                            ContainsRegex("^fsync.*<" + kMinidumpDir + ">\\) += 0$"),
                            ContainsRegex("^write.* 4096\\) += 4096$"),
                            ContainsRegex("^fsync.*<" + kPartition + ">\\) += 0$"),
                            ContainsRegex("^write.* 45056\\) += 45056$"),
                            ContainsRegex("^fsync.*<" + kPartition + ">\\) += 0$")));
}
