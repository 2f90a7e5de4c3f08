#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iterator>

#include "support.h"

namespace fs = std::filesystem;

namespace {

const std::string kArchive = "minidump_" + kRunStamp + ".tar.gz";

class RunTest : public DeviceTest {
  protected:
    // Leaves a crash of `regions` on the partition.
    void crash(const std::vector<Region>& regions = sample_regions()) {
        set_partition(build_image(regions, 1 << 20));
    }
    void set_partition(const std::string& content) {
        write_file(kPartition, content);
        before_ = content;
    }
    // Expects zeros over the first `extent` bytes. Behind them a block device is as it was; a plain
    // file that stands for one is cut there.
    void expect_erased(size_t extent) {
        std::string expected(extent, '\0');
        if (fs::is_block_file(kPartition)) {
            expected += before_.substr(extent);
        }
        EXPECT_TRUE(expected == read_file(kPartition).substr(0, before_.size()));
    }
    // Expects the archive to hold the partition's first `extent` bytes, as they were, alone.
    void expect_archived(const std::string& archive, size_t extent) {
        fs::create_directory(kScratch + "/unpacked");
        EXPECT_EQ(0, system(("tar -xzf " + archive + " -C " + kScratch + "/unpacked").c_str()));
        EXPECT_EQ((Lines{"minidump.bin"}), tree(kScratch + "/unpacked"));
        EXPECT_TRUE(before_.substr(0, extent) == read_file(kScratch + "/unpacked/minidump.bin"));
    }

    std::string before_;
};

Lines property_lines(const Lines& values) {
    Lines lines;
    std::transform(values.begin(), values.end(), std::back_inserter(lines),
                   [](const std::string& value) { return "set vendor." + value; });
    return lines;
}

bool has(const Lines& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

}  // namespace

TEST_F(RunTest, TakesAPartitionToFilesPropertiesAndLog) {
    crash({{"md_KCONSOLE.BIN", "console text"}, {"MD_RESTARTINFO.BIN", "kernel_panic"}});
    EXPECT_EQ(0, run_tool().status);
    expect_erased(13 * 4096);
    expect_archived(kPlace + "/" + kArchive, 13 * 4096);
    const std::string tar =
            "tar -zcvf " + kPlace + "/" + kArchive + " -C " + kPlace + " minidump.bin";
    Lines log = log_records();
    ASSERT_FALSE(log.empty());
    int milliseconds = -1;
    std::sscanf(log.back().c_str(), "I Time taken: %d", &milliseconds);
    EXPECT_EQ((Lines{"I qv_minidump_extractor start!!", "I minidump header magic valid success",
                     "I Current Timestamp: " + kRunStamp, "I dump size is 49152",
                     "I Temp folder already exists: " + kPlace + "/tmp", "I " + tar,
                     "I Compression completed successfully.",
                     "I minidump save as " + kPlace + "/" + kArchive,
                     "I restart_info = kernel_panic"} +
               repair_records() +
               Lines{"I Preserved files: " + kArchive,
                     "I Time taken: " + std::to_string(milliseconds) + " ms"}),
              log);
    EXPECT_EQ(property_lines({"minidump.cp.status=running",
                              "qv_dump.last_dump=panic_log_" + kRunStamp, "qv_dump.exist=1",
                              "minidump.last_file=" + kArchive, "restart_reason=kernel_panic",
                              "minidump.files=" + kArchive, "minidump.cp.status=1"}),
              journal());
    EXPECT_EQ("md_KCONSOLE.BIN\r\nMD_RESTARTINFO.BIN\r\n",
              read_file(kPlace + "/tmp/dump_info.txt"));
}

TEST_F(RunTest, EndsWithStatus22WithoutArguments) {
    crash();
    EXPECT_EQ(22, run_tool({}).status);
    EXPECT_EQ((Lines{"I qv_minidump_extractor start!!", "I Invalid arguments."}), log_records());
    EXPECT_EQ(Lines(), journal());
    EXPECT_EQ((Lines{"aop_dump/", "tmp/"}), tree(kPlace));
    EXPECT_TRUE(before_ == read_file(kPartition).substr(0, before_.size()));
}

TEST_F(RunTest, EndsWithStatus11WithoutADump) {
    std::string image = build_image(sample_regions(), 1 << 20);
    image[12] = 2;
    set_partition(image);
    EXPECT_EQ(11, run_tool().status);
    EXPECT_EQ((Lines{"I qv_minidump_extractor start!!", "I minidump region header is not set."}),
              log_records());
    EXPECT_EQ(Lines(), journal());
    EXPECT_EQ((Lines{"aop_dump/", "tmp/"}), tree(kPlace));
    EXPECT_TRUE(before_ == read_file(kPartition).substr(0, before_.size()));
}

TEST_F(RunTest, SizesAndCountsAreTakenAsTheHeaderSays) {
    const struct {
        uint64_t dump_size, region_count;
        size_t blocks, listed;
    } cases[] = {
            {0, 0, 1, 0},
            {4095, 1, 1, 1},
            {4096, 2, 2, 2},
            {8192, 0x80000000, 3, 0},                     // a negative count
            {(uint64_t{1} << 32) + 0x2000, 700, 3, 700},  // a folded size, a count past the table
    };
    for (const auto& c : cases) {
        SetUp();
        std::string image = build_image({{"a", "1"}, {"b", "2"}}, 1 << 20);
        put_number(image, 36, 8, c.dump_size);
        put_number(image, 52, 4, c.region_count);
        set_partition(image);
        EXPECT_EQ(0, run_tool().status);
        expect_erased(c.blocks * 4096);
        expect_archived(kPlace + "/" + kArchive, c.blocks * 4096);
        const std::string list = kPlace + "/tmp/dump_info.txt";
        const std::string text = fs::exists(list) ? read_file(list) : "";
        EXPECT_EQ(c.listed, static_cast<size_t>(std::count(text.begin(), text.end(), '\n')));
    }
}

TEST_F(RunTest, ExtractsRegionsToTheFixedFolderFromAnyWorkingDirectory) {
    for (const Lines& arguments : {Lines{"logdump"}, Lines{"logdump", "/data/other", "more"}}) {
        SetUp();
        crash();
        const bool here = arguments.size() == 1;
        const std::string work = here ? "." : "/data/other";
        fs::create_directory("/data/other");
        fs::current_path(here ? "/data/other" : "/data");
        EXPECT_EQ(0, run_tool(arguments).status);
        EXPECT_EQ((Lines{"header.img", "minidump.bin", kArchive, "tmp/"}), tree("/data/other"));
        // The fixed folder has no header copy, so the names are known but no data is found.
        EXPECT_EQ((Lines{"aop_dump/", "tmp/", "tmp/dump_info.txt"}), tree(kPlace));
        EXPECT_EQ(0U, read_file(kPlace + "/tmp/dump_info.txt").find("md_KCONSOLE.BIN\r\n"));
        const Lines log = log_records();
        EXPECT_TRUE(has(log, "I Created temp folder: " + work + "/tmp"));
        EXPECT_TRUE(has(log, "I Failed to open file: " + kPlace + "/header.img"));
        EXPECT_TRUE(
                has(log, "I tar -zcvf " + work + "/" + kArchive + " -C " + work + " minidump.bin"));
        expect_archived("/data/other/" + kArchive, 49 * 4096);
        EXPECT_TRUE(has(journal(), "set vendor.minidump.last_file=" + kArchive));
    }
}

TEST_F(RunTest, GoesOnAfterAFailedArchive) {
    crash();
    fs::create_directory(kPlace + "/" + kArchive);  // where tar cannot write a file
    EXPECT_EQ(0, run_tool().status);
    const Lines log = log_records();
    EXPECT_TRUE(has(log, "I Compression failed."));
    EXPECT_FALSE(has(log, "I Compression completed successfully."));
    expect_erased(49 * 4096);
    EXPECT_EQ(property_lines({"minidump.cp.status=running",
                              "qv_dump.last_dump=panic_log_" + kRunStamp, "qv_dump.exist=1",
                              "restart_reason=kernel_panic",
                              "minidump.files=", "minidump.cp.status=1"}),
              journal());
}

TEST_F(RunTest, GoesOnWithoutATempFolder) {
    crash();
    fs::remove(kPlace + "/tmp");
    write_file(kPlace + "/tmp", "a plain file");
    const Outcome run = run_tool();
    EXPECT_EQ(0, run.status);
    EXPECT_TRUE(has(log_records(), "I Failed to create temp folder: " + kPlace + "/tmp"));
    EXPECT_NE(std::string::npos,
              run.err.find("Failed to open file: " + kPlace + "/tmp/dump_info.txt\n"));
    expect_erased(49 * 4096);
    expect_archived(kPlace + "/" + kArchive, 49 * 4096);
}

TEST_F(RunTest, ARegionOfTwoGibibytesEndsTheRunAndLosesNothing) {
    std::string image = build_image(sample_regions(), 1 << 20);
    put_number(image, 64 + 12, 8, 0x80000000);
    set_partition(image);
    const Outcome run = run_tool();
    EXPECT_EQ(-SIGABRT, run.status);
    EXPECT_NE(std::string::npos, run.err.find("std::bad_a"));
    EXPECT_EQ("set vendor.minidump.cp.status=running", journal().front());
    EXPECT_FALSE(has(journal(), "set vendor.minidump.cp.status=1"));
    EXPECT_TRUE(before_ == read_file(kPartition).substr(0, before_.size()));
}
