#include <algorithm>
#include <map>
#include <random>

#include "support.h"

// Real faults, given to whole runs: kills, failing calls, damaged partitions.
namespace {

// The times of crashes, in the tool's order, in the clock's and in the names' form.
std::string time_of(int crash, char separator = ':') {
    return std::string("09") + separator + std::to_string(10 + crash / 10) + separator +
           std::to_string(10 + crash % 10);
}

class SurvivalTest : public DeviceTest {
  protected:
    // Runs the tool after crash number `crash`, under strace with `options` if there are any.
    int run(int crash = 0, const std::string& options = "") {
        const std::string strace = "/usr/bin/strace -o " + kScratch + "/trace " + options;
        return run_tool("x " + kPlace, time_of(crash), options.empty() ? "" : strace);
    }
    // Runs the tool on a crash and returns `points` of its calls of `name` (all, when empty), as
    // strace's words for an injected `fault` at each.
    std::vector<std::string> faults(const std::string& name, const std::string& fault,
                                    size_t points) {
        crash();
        EXPECT_EQ(0, run(0, "-e trace=all"));
        return injections(kScratch + "/trace", "logdump", name, fault, points);
    }
};

}  // namespace

TEST_F(SurvivalTest, AKilledRunLosesNoDump) {
    int killed = 0, erased = 0, number = 0;
    for (const std::string& call : faults("", "signal=KILL", 45)) {
        SCOPED_TRACE(call);
        crash();
        killed += run(++number, "-e inject=" + call) == 137;
        const bool kept = untouched();
        erased += kept ? 0 : 1;
        EXPECT_EQ(kept ? 0 : 11, run(number));  // the whole job, or nothing left to do
        expect_archived(kPlace + "/minidump_2024-01-07-" + time_of(number, '-') + ".tar.gz");
        crash();
        EXPECT_EQ(0, run(++number));  // and the next crash as usual
        expect_archived(kPlace + "/minidump_2024-01-07-" + time_of(number, '-') + ".tar.gz");
        EXPECT_TRUE(count(tree(kPlace), "minidump_") <= 2 &&
                    count(tree(kPlace), "/last_kmsg") <= 2);
        EXPECT_LE(count(" " + tree(kPanicTree), " QVpanic_"),
                  5 + 3U);  // one with its directory of two
    }
    EXPECT_TRUE(killed >= 30 && erased >= 3 && erased < killed) << killed << " " << erased;
}

TEST_F(SurvivalTest, AFailingCallEndsNoRunInAnotherWay) {
    const std::pair<std::string, std::string> cases[] = {
            {"read", "EIO"}, {"write", "ENOSPC"}, {"openat", "EACCES"}};
    for (const auto& [name, error] : cases) {
        for (const std::string& call : faults(name, "error=" + error, 12)) {
            SCOPED_TRACE(call);
            SetUp();
            crash();
            const int status = run(0, "-e inject=" + call);
            EXPECT_TRUE(status == 0 || status == 134 || (status == 11 && untouched())) << status;
        }
    }
    SetUp();
    crash();
    mount_over(kPlace, "size=4k");
    write_file(kPlace + "/full", std::string(4096, 'x'));
    EXPECT_EQ(11, run());  // no room for the header copy
    EXPECT_TRUE(untouched());
}

TEST_F(SurvivalTest, ADamagedPartitionEndsARunInNoOtherWay) {
    std::mt19937 random(20240107);
    std::map<int, int> ends;
    for (int i = 0; i < 500; ++i) {
        SetUp();
        std::string image = build_image(sample_regions(), 0);
        const auto number = [&random](uint64_t below) { return random() % below; };
        if (i % 2 == 0) {  // rubbish all over the header and the table
            std::generate(image.begin(), image.begin() + 40960,
                          [&] { return static_cast<char>(random()); });
        }
        for (int flips = number(200); flips > 0; --flips) {
            image[number(40960)] = static_cast<char>(random());
        }
        // Sizes bounded, so that a run is short: or else too large for any.
        put_number(image, 36, 8, number(1 << 20));
        put_number(image, 52, 4,
                   number(20) == 0 ? random() | 0x80000000 : number(number(20) == 0 ? 700 : 60));
        for (size_t entry = 1; entry < 640; ++entry) {
            put_number(image, entry * 64 + 12, 8,
                       number(500) == 0 ? random() | 0x80000000 : number(1 << 12));
        }
        crash(image.substr(0, number(3) == 0 ? number(image.size()) : image.size()));
        ++ends[run()];
    }
    EXPECT_EQ(500, ends[0] + ends[11] + ends[134]);
    EXPECT_TRUE(ends[0] > 50 && ends[11] > 50 && ends[134] > 10)
            << ends[0] << " " << ends[11] << " " << ends[134];
}
