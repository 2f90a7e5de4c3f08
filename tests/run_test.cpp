#include <sys/mount.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>

#include "support.h"

namespace fs = std::filesystem;

namespace {

const std::string kPanicTree = "/mnt/vendor/qv_log/panic_log";
const std::string kArchive = "minidump_" + kRunStamp + ".tar.gz";
const std::string kPanic = "panic_log_" + kRunStamp;
constexpr size_t kSampleExtent = 49 * 4096;  // bytes that a run takes and erases of the sample

class RunTest : public DeviceTest {
  protected:
    void set_partition(const std::string& content) {
        write_file(kPartition, content);
        before_ = content;
    }
    void crash() { set_partition(build_image(sample_regions(), 1 << 20)); }
    void expect_untouched() {
        EXPECT_TRUE(before_ == read_file(kPartition).substr(0, before_.size()));
    }
    // Expects zeros over the first `extent` bytes. Behind them a block device is as it was; a plain
    // file that stands for one is cut there.
    void expect_erased(size_t extent = kSampleExtent) {
        std::string expected(extent, '\0');
        if (fs::is_block_file(kPartition)) {
            expected += before_.substr(extent);
        }
        EXPECT_TRUE(expected == read_file(kPartition).substr(0, before_.size()));
    }
    // Expects the archive to hold the partition's first `extent` bytes, as they were, alone.
    void expect_archived(const std::string& archive, size_t extent = kSampleExtent) {
        const std::string folder = unpack(archive);
        EXPECT_EQ((Lines{"minidump.bin"}), tree(folder));
        EXPECT_TRUE(before_.substr(0, extent) == read_file(folder + "/minidump.bin"));
    }

    std::string before_;
};

Lines settings(Lines values) {
    for (std::string& value : values) {
        value.insert(0, "set vendor.");
    }
    return values;
}

// The list of regions that the run at `stamp` staged.
std::string staged_list(const std::string& stamp = kRunStamp) {
    return read_file(unpack(kPlace + "/panic_log_" + stamp + "/aop_dump.tar.gz") +
                     "/aop_dump/dump_info.txt");
}

}  // namespace

TEST_F(RunTest, DoesTheWholeJobInOrder) {
    set_partition(build_image({{"md_KCONSOLE.BIN", "console text"},
                               {"md_MSGRAM10.BIN", "ram"},
                               {"MD_RESTARTINFO.BIN", "kernel_panic"}},
                              1 << 20));
    const Outcome run = run_tool();
    EXPECT_EQ(0, run.status);
    EXPECT_EQ("", run.err);
    expect_erased(14 * 4096);
    expect_archived(kPlace + "/" + kArchive, 14 * 4096);
    EXPECT_EQ("md_KCONSOLE.BIN\r\nmd_MSGRAM10.BIN\r\nMD_RESTARTINFO.BIN\r\n", staged_list());
    EXPECT_EQ((Lines{"aop_dump/", kArchive, kPanic + "/", kPanic + "/aop_dump.tar.gz",
                     kPanic + "/last_kmsg.txt"}),
              tree(kPlace));
    const std::string log_name = "QVpanic_0_" + kRunStamp;
    const Lines members = {log_name + "/", log_name + "/aop_dump.tar.gz",
                           log_name + "/last_kmsg.txt"};
    EXPECT_EQ((Lines{log_name + ".tar.gz", members[0], members[1], members[2]}), tree(kPanicTree));
    EXPECT_EQ(members, tree(unpack(kPanicTree + "/" + log_name + ".tar.gz")));
    EXPECT_EQ("console text\n", read_file(kPanicTree + "/" + members[2]));

    const std::string place_tar = "I tar -zcvf " + kPlace + "/";
    const std::string log_path = kPanicTree + "/" + log_name;
    Lines expected = {
            "I qv_minidump_extractor start!!",
            "I minidump header magic valid success",
            "I Current Timestamp: " + kRunStamp,
            "I dump size is 53248",
            "I Temp folder already exists: " + kPlace + "/tmp",
            place_tar + kArchive + " -C " + kPlace + " minidump.bin",
            "I Compression completed successfully.",
            "I minidump save as " + kPlace + "/" + kArchive,
            "I restart_info = kernel_panic",
            "I Created folder: " + kPlace + "/" + kPanic,
            "I strings md_KCONSOLE.BIN and save as " + kPlace + "/" + kPanic + "/last_kmsg.txt",
            "I Copied file: \"dump_info.txt\"",
            "I Copied file: \"md_MSGRAM10.BIN\"",
            place_tar + kPanic + "/aop_dump.tar.gz -C " + kPlace + " aop_dump",
            "I aop_dump save as " + kPlace + "/" + kPanic + "/aop_dump.tar.gz"};
    expected = expected + repair_records();
    expected =
            expected +
            Lines{"I Preserved files: " + kArchive,
                  "I is create: " + kPanicTree + "/",
                  "E [Panic]prepare_type_log_and_dir: new_log_count: 0",
                  "I [Panic]create_type_new_qv_log_dir: new_log_path: " + log_path + "/",
                  "I is create: " + log_path + "/",
                  "I [Panic]copy_panic_log: cp " + kPlace + "/" + kPanic + "/* " + log_path + "/",
                  "I tar -zcvf " + log_path + ".tar.gz -C " + kPanicTree + " " + log_name,
                  "I ",
                  "I " + log_path + " save as " + log_path + ".tar.gz",
                  "I "};
    Lines log = log_records();
    ASSERT_FALSE(log.empty());
    int milliseconds = -1;
    std::sscanf(log.back().c_str(), "I Time taken: %d", &milliseconds);
    expected.push_back("I Time taken: " + std::to_string(milliseconds) + " ms");
    EXPECT_EQ(expected, log);
    EXPECT_EQ(settings({"minidump.cp.status=running", "qv_dump.last_dump=" + kPanic,
                        "qv_dump.exist=1", "minidump.last_file=" + kArchive,
                        "restart_reason=kernel_panic", "minidump.files=" + kArchive,
                        "qv_dump.last_panic_log=" + log_name, "minidump.cp.status=1"}),
              journal());
    // What goes to standard output directly keeps its place among what the shell commands print.
    const size_t staged = run.out.find("aop_dump/\n");
    const size_t dated = run.out.find("Extracted date and time: " + kRunStamp + "\n");
    EXPECT_TRUE(staged < dated && dated < run.out.find(members[0])) << run.out;
}

TEST_F(RunTest, KeepsEveryLimitOverSevenCrashes) {
    const auto stamp = [](int run) { return "2024-01-07-09-05-0" + std::to_string(run); };
    for (int run = 1; run <= 7; ++run) {
        crash();
        EXPECT_EQ(0,
                  run_tool({"logdump", kPlace}, "2024-01-07 09:05:0" + std::to_string(run)).status);
        expect_erased();
    }
    Lines expected = {"aop_dump/"};
    for (int run = 6; run <= 7; ++run) {
        const std::string panic = "panic_log_" + stamp(run);
        expected = expected + Lines{"minidump_" + stamp(run) + ".tar.gz", panic + "/",
                                    panic + "/aop_dump.tar.gz", panic + "/last_kmsg.txt"};
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, tree(kPlace));
    EXPECT_TRUE(has(journal(), "set vendor.minidump.files=minidump_" + stamp(6) +
                                       ".tar.gz,minidump_" + stamp(7) + ".tar.gz"));
    expected.clear();
    for (int number = 2; number <= 6; ++number) {
        expected.push_back("QVpanic_" + std::to_string(number) + "_" + stamp(number + 1) +
                           ".tar.gz");
    }
    const std::string last = "QVpanic_6_" + stamp(7) + "/";
    expected = expected + Lines{last, last + "aop_dump.tar.gz", last + "last_kmsg.txt"};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, tree(kPanicTree));
}

TEST_F(RunTest, EndsWithoutArgumentsOrWithoutADump) {
    const std::string start = "I qv_minidump_extractor start!!";
    crash();
    EXPECT_EQ(22, run_tool({}).status);
    EXPECT_EQ((Lines{start, "I Invalid arguments."}), log_records());
    expect_untouched();

    SetUp();
    std::string image = build_image(sample_regions(), 1 << 20);
    image[12] = 2;
    set_partition(image);
    EXPECT_EQ(11, run_tool().status);
    EXPECT_EQ((Lines{start, "I minidump region header is not set."}), log_records());
    expect_untouched();
    EXPECT_EQ(Lines(), journal());
    EXPECT_EQ((Lines{"aop_dump/", "tmp/"}), tree(kPlace));
    EXPECT_EQ(Lines(), tree("/mnt/vendor"));
}

TEST_F(RunTest, TakesSizesAndCountsAsTheHeaderSays) {
    const struct {
        uint64_t dump_size, region_count;
        size_t blocks;
        std::ptrdiff_t listed;
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
        EXPECT_EQ(c.listed == 0, has(log_records(), "I dump_info.txt copy failed"));
        const std::string list = c.listed == 0 ? "" : staged_list();
        EXPECT_EQ(c.listed, std::count(list.begin(), list.end(), '\n'));
    }
}

TEST_F(RunTest, WorksInAnyDirectoryWithRegionsInTheFixedOne) {
    for (const Lines& arguments : {Lines{"logdump"}, Lines{"logdump", "/data/other", "more"}}) {
        SetUp();
        crash();
        const bool here = arguments.size() == 1;
        const std::string work = here ? "." : "/data/other";
        fs::create_directory("/data/other");
        fs::current_path(here ? "/data/other" : "/data");
        EXPECT_EQ(0, run_tool(arguments).status);
        EXPECT_EQ((Lines{"header.img", "minidump.bin", kArchive, "tmp/"}), tree("/data/other"));
        EXPECT_EQ((Lines{"aop_dump/", kPanic + "/", kPanic + "/aop_dump.tar.gz",
                         kPanic + "/last_kmsg.txt"}),
                  tree(kPlace));
        const Lines log = log_records();
        for (const std::string& line :
             {"Created temp folder: " + work + "/tmp",
              "Failed to open file: " + kPlace + "/header.img",  // the regions' header copy
              "tar -zcvf " + work + "/" + kArchive + " -C " + work + " minidump.bin",
              std::string("strings md_KCONSOLE.BIN save failed"),
              std::string("dump_info.txt copy failed"),  // it lies in the fixed folder
              "tar -zcvf " + kPlace + "/" + kPanic + "/aop_dump.tar.gz -C " + work + " aop_dump",
              std::string("aop_dump save failed")}) {
            EXPECT_TRUE(has(log, "I " + line)) << line;
        }
        expect_archived("/data/other/" + kArchive);
        expect_erased();
        EXPECT_TRUE(has(journal(), "set vendor.minidump.last_file=" + kArchive));
    }
}

TEST_F(RunTest, GoesOnAfterAFailureToTheEnd) {
    std::unique_ptr<Mount> mounted;
    const struct {
        std::string record;
        std::function<void()> fault;
    } cases[] = {
            {"I Compression failed.", [] { fs::create_directory(kPlace + "/" + kArchive); }},
            // A full file system: the shell's tar does not see that gzip could not write.
            {"I Compression completed successfully.",
             [&] { mounted = std::make_unique<Mount>(kPlace, "size=96k"); }},
            {"I Failed to create temp folder: " + kPlace + "/tmp",
             [] {
                 fs::remove(kPlace + "/tmp");
                 write_file(kPlace + "/tmp");
             }},
            {"E Failed to open file: " + kPlace + "/tmp/MD_RESTARTINFO.BIN",
             [this] { set_partition(build_image({}, 1 << 20)); }},
            {"I aop_dump save failed", [] { fs::remove(kPlace + "/aop_dump"); }},
            {"I Failed create_panic_folder(), stop copy_upload_files()",
             [] { write_file(kPlace + "/" + kPanic); }},
            {"I Failed: rm -rf " + kPlace + "/header.img", [] { replace_tool("rm", "exit 1"); }},
            {"I is create: " + kPanicTree + "/",  // there is no /mnt/vendor at all
             [&] { mounted = std::make_unique<Mount>("/mnt"); }},
            {"E [Panic]copy_to_qv_log: prepare_type_log_dir failed, result: -1",
             [&] { mounted = std::make_unique<Mount>("/mnt/vendor", "", MS_RDONLY); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.record);
        SetUp();
        crash();
        c.fault();
        EXPECT_EQ(0, run_tool().status);
        const Lines log = log_records();
        EXPECT_TRUE(has(log, c.record));
        EXPECT_EQ(0U, log.back().find("I Time taken: "));
        const bool failed = c.record == "I Compression failed.";
        EXPECT_EQ(failed, !has(journal(), "set vendor.minidump.last_file=" + kArchive));
        EXPECT_EQ(failed, !has(log, "I Compression completed successfully."));
        EXPECT_EQ("set vendor.minidump.cp.status=1", journal().back());
        expect_erased(get_number(before_, 36, 8) + 4096);
        mounted.reset();
    }
}

TEST_F(RunTest, ASecondRunInTheSameSecondTakesTheSameNames) {
    for (int run = 0; run < 2; ++run) {
        crash();
        EXPECT_EQ(0, run_tool().status);
        expect_archived(kPlace + "/" + kArchive);
    }
    EXPECT_TRUE(has(log_records(), "I Folder already exists: " + kPlace + "/" + kPanic));
    EXPECT_EQ((Lines{"aop_dump/", kArchive, kPanic + "/", kPanic + "/aop_dump.tar.gz",
                     kPanic + "/last_kmsg.txt"}),
              tree(kPlace));
    EXPECT_TRUE(fs::exists(kPanicTree + "/QVpanic_0_" + kRunStamp + ".tar.gz"));
    EXPECT_TRUE(fs::exists(kPanicTree + "/QVpanic_1_" + kRunStamp + "/last_kmsg.txt"));
}

TEST_F(RunTest, EndsByAnErrorThatNothingCatches) {
    std::string image = build_image(sample_regions(), 1 << 20);
    put_number(image, 64 + 12, 8, 0x80000000);  // a region of 2 GiB
    set_partition(image);
    Outcome run = run_tool();
    EXPECT_EQ(-SIGABRT, run.status);
    EXPECT_NE(std::string::npos, run.err.find("std::bad_alloc"));
    EXPECT_EQ(settings({"minidump.cp.status=running", "qv_dump.last_dump=" + kPanic,
                        "qv_dump.exist=1"}),
              journal());
    expect_untouched();

    SetUp();
    crash();
    fs::create_directories(kPanicTree + "/QVpanic__t");  // a number without a digit
    run = run_tool();
    EXPECT_EQ(-SIGABRT, run.status);
    EXPECT_NE(std::string::npos, run.err.find("std::invalid_argument"));
    EXPECT_EQ("set vendor.minidump.files=" + kArchive, journal().back());
    expect_archived(kPlace + "/" + kArchive);
    expect_erased();
}

TEST_F(RunTest, TheTimeTakenLeavesOutTheLogTree) {
    crash();
    replace_tool("strings", "toybox sleep 0.2");
    replace_tool("cp", "toybox sleep 2");
    EXPECT_EQ(0, run_tool().status);
    int milliseconds = 0;
    std::sscanf(log_records().back().c_str(), "I Time taken: %d ms", &milliseconds);
    EXPECT_GE(milliseconds, 200);
    EXPECT_LT(milliseconds, 2000);
}
