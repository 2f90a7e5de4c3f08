// Real faults, given to whole runs: kills, damaged partitions, and the order of writes.

#include <random>

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

class RunOnDamage : public DeviceTest, public WithParamInterface<int> {};

// Returns a sample crash with damage in header and table.
std::string damaged_image(unsigned int seed) {
    std::mt19937 random(seed);
    std::string image = build_image(sample_regions(), 0);
    for (unsigned int flips = random() % 200; flips > 0; --flips) {
        image[random() % (16 * kRecord)] = static_cast<char>(random());
    }
    // Small numbers, so that a run is short.
    put_number(image, 36, 8, random() % (1 << 20));
    put_number(image, 52, 4, random() % 16);
    for (size_t entry = 1; entry < 16; ++entry) {
        put_number(image, entry * kRecord + 12, 8, random() % 4096);
    }
    return image;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(At, KilledRun,
                         Values(Moment{"openat", kPartition, 1},
                                Moment{"openat", kMinidumpDir + "/header.img", 1},
                                Moment{"openat", kMinidumpDir + "/minidump.bin", 1},
                                Moment{"write", kMinidumpDir + "/minidump.bin", 2},
                                Moment{"openat", kTmpDir + "/md_CODERAM.BIN", 1},
                                Moment{"openat", kTmpDir + "/dump_info.txt", 9},
                                Moment{"openat", kTmpDir + "/MD_RESTARTINFO.BIN", 2},
                                Moment{"openat", kTmpDir, 2}, Moment{"openat", kMinidumpDir, 1},
                                Moment{"fsync", kArchive, 1}, Moment{"fsync", kMinidumpDir, 1},
                                Moment{"write", kPartition, 1}, Moment{"fsync", kPartition, 1},
                                Moment{"write", kPartition, 2}, Moment{"write", kPartition, 3},
                                Moment{"fsync", kPartition, 2},
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

INSTANTIATE_TEST_SUITE_P(Seeds, RunOnDamage, Range(0, 50));

TEST_P(RunOnDamage, ErasesThePartitionOrLeavesItUntouched) {
    crash(damaged_image(GetParam()));
    const int status = run_tool();
    EXPECT_THAT(status, AnyOf(0, 11, 128 + SIGABRT));
    EXPECT_TRUE(status == 0 ? partition_is_erased() : partition_is_untouched());
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
