// Real faults, given to whole runs: kills, failing calls, damaged partitions.

#include <random>

#include "device_fixture.h"

using namespace testing;

namespace {

// Traces a program to kTrace. Leaks cannot be looked for in a process that is traced.
const std::string kTrace = "/data/local/trace";
const std::string kStrace =
        "ASAN_OPTIONS=$ASAN_OPTIONS:detect_leaks=0 /usr/bin/strace -o " + kTrace + " ";

class SurvivalTest : public DeviceTest {};
class KilledRun : public DeviceTest, public WithParamInterface<std::tuple<const char*, int>> {};
class RunOnDamage : public DeviceTest, public WithParamInterface<int> {};

// Returns a sample crash with damage in header and table.
std::string damaged_image(unsigned int seed) {
    std::mt19937 random(seed);
    std::string image = build_image(sample_regions(), 0);
    for (unsigned int flips = random() % 200; flips > 0; --flips) {
        image[random() % (16 * kRecord)] = static_cast<char>(random());
    }
    // Small numbers, so that a run is short, and at times a size that is too large for any.
    put_number(image, 36, 8, random() % (1 << 20));
    put_number(image, 52, 4, random() % 16);
    for (size_t entry = 1; entry < 16; ++entry) {
        put_number(image, entry * kRecord + 12, 8, entry == seed ? 0x80000000 : random() % 4096);
    }
    return image;
}

}  // namespace

// The system call, and at which call of it.
INSTANTIATE_TEST_SUITE_P(AtOpening, KilledRun, Combine(Values("openat"), Range(20, 220, 10)));
INSTANTIATE_TEST_SUITE_P(AtWriting, KilledRun, Combine(Values("write"), Range(2, 76, 6)));
INSTANTIATE_TEST_SUITE_P(AtWaiting, KilledRun, Combine(Values("wait4"), Range(1, 25, 4)));

TEST_P(KilledRun, LosesNoDump) {
    const auto& [call, number] = GetParam();
    crash();
    EXPECT_EQ(128 + SIGKILL, run(kStrace + "-e inject=" + call +
                                 ":signal=KILL:when=" + std::to_string(number) + " " + tool()));
    const bool freed = !partition_is_untouched();
    EXPECT_EQ(freed ? 11 : 0, run_tool());  // nothing left to do, or the whole job
    EXPECT_TRUE(dump_is_in(kArchive));
}

INSTANTIATE_TEST_SUITE_P(Seeds, RunOnDamage, Range(0, 200));

TEST_P(RunOnDamage, ErasesThePartitionOrLeavesItUntouched) {
    crash(damaged_image(GetParam()));
    const int status = run_tool();
    EXPECT_THAT(status, AnyOf(0, 11, 134));
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
