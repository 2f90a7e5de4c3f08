#include <sys/mount.h>

#include <algorithm>
#include <cstdio>
#include <functional>

#include "support.h"

namespace {

using RunTest = DeviceTest;

const std::string kArchive = kPlace + "/minidump_" + kStamp + ".tar.gz";
const std::string kBegin =
        "minidump.cp.status=running; qv_dump.last_dump=panic_log_T; qv_dump.exist=1; ";
const std::string kPanicFolder =
        "panic_log_T/ panic_log_T/aop_dump.tar.gz panic_log_T/last_kmsg.txt";

int time_taken(const std::string& log) {
    int milliseconds = -1;
    std::sscanf(log.c_str() + log.find("I Time taken: "), "I Time taken: %d ms; ", &milliseconds);
    return milliseconds;
}

// The list of regions that the run staged.
std::string staged_list() {
    return read_file(unpack(kPlace + "/panic_log_" + kStamp + "/aop_dump.tar.gz") +
                     "/aop_dump/dump_info.txt");
}

}  // namespace

TEST_F(RunTest, DoesTheWholeJobInOrder) {
    crash(build_image(
            {{"md_KCONSOLE.BIN", "console"}, {"load.cmm", "load"}, {"MD_RESTARTINFO.BIN", "panic"}},
            1 << 20));
    EXPECT_EQ(0, run_tool());
    expect_erased();
    expect_archived(kArchive);
    EXPECT_EQ("aop_dump/ minidump_T.tar.gz " + kPanicFolder, files(kPlace));
    EXPECT_EQ("md_KCONSOLE.BIN\r\nload.cmm\r\nMD_RESTARTINFO.BIN\r\n", staged_list());
    const std::string filed = "QVpanic_0_T/ QVpanic_0_T/aop_dump.tar.gz QVpanic_0_T/last_kmsg.txt";
    EXPECT_EQ("QVpanic_0_T.tar.gz " + filed, files(kPanicTree));
    EXPECT_EQ(filed, files(unpack(kPanicTree + "/QVpanic_0_" + kStamp + ".tar.gz")));
    EXPECT_EQ("console\n", read_file(kPanicTree + "/QVpanic_0_" + kStamp + "/last_kmsg.txt"));
    std::string records = log();
    replace_all(records, std::to_string(time_taken(records)) + " ms; ", "N ms; ");
    EXPECT_EQ(expected("whole_run.txt"), records);
    EXPECT_EQ(expected("whole_run_properties.txt"), journal());
    // What goes to standard output directly keeps its place among what the shell commands print.
    EXPECT_TRUE(has(read_file(kOut), "\nExtracted date and time: " + kStamp + "\nQVpanic_0_"));
}

TEST_F(RunTest, KeepsEveryLimitOverSevenCrashes) {
    for (const char* second : {"1", "2", "3", "4", "5", "6", "7"}) {
        crash();
        EXPECT_EQ(0, run_tool("x " + kPlace, std::string("09:05:0") + second));
    }
    std::string left = files(kPlace) + " " + files(kPanicTree) + " " + journal();
    replace_all(left, "T", kStamp);
    replace_all(left, kStamp.substr(0, kStamp.size() - 1), "");
    replace_all(left, " ", "; ");
    EXPECT_EQ(expected("seven_runs.txt"), left.substr(0, left.find("minidump.cp.status")));
    EXPECT_TRUE(has(left, "minidump.files=minidump_6.tar.gz,minidump_7.tar.gz;"));
}

TEST_F(RunTest, EndsWithoutArgumentsOrWithoutADump) {
    crash();
    EXPECT_EQ(22, run_tool(""));
    EXPECT_EQ("I qv_minidump_extractor start!!; I Invalid arguments.; ", log());
    image_[12] = '\xfe';
    image_[11] = image_[13] = image_[14] = image_[15] = '\xff';
    for (const size_t size : {image_.size(), size_t{0}}) {
        crash(image_.substr(0, size));
        EXPECT_EQ(11, run_tool());
        EXPECT_EQ(log(), "I qv_minidump_extractor start!!; I minidump region header is not set.; ");
        EXPECT_TRUE(untouched());
        EXPECT_EQ("aop_dump/ tmp/", files(kPlace) + files("/mnt/vendor") + journal());
    }
}

TEST_F(RunTest, TakesSizesAndCountsAsTheHeaderSays) {
    for (const auto& [dump_size, region_count, listed] :
         {std::tuple<uint64_t, uint64_t, int>(0, 0, 0),
          {4096, 2, 2},
          {8192, 0x80000000, 0},
          {(uint64_t{1} << 32) + 0x2000, 700, 700}}) {  // a folded size, a count past the table
        SetUp();
        std::string image = build_image({{"a", "1"}, {"b", "2"}}, 1 << 20);
        put_number(image, 36, 8, dump_size);
        put_number(image, 52, 4, region_count);
        put_number(image, 0, 8, region_count);  // any magic text is good
        image[12] = '\x81';
        crash(image);
        EXPECT_EQ(0, run_tool());
        expect_erased();
        expect_archived(kArchive);
        const std::string list = has(log(), "I dump_info.txt copy failed; ") ? "" : staged_list();
        EXPECT_EQ(listed, std::count(list.begin(), list.end(), '\n'));
    }
}

TEST_F(RunTest, WorksInAnyDirectoryWithRegionsInTheFixedOne) {
    for (const std::string work : {".", "/data/other"}) {
        SetUp();
        crash();
        fs::create_directory("/data/other");
        fs::current_path(work == "." ? "/data/other" : "/data");
        EXPECT_EQ(0, run_tool(work == "." ? "x" : "x " + work + " more"));
        EXPECT_EQ("header.img minidump.bin minidump_T.tar.gz tmp/", files("/data/other"));
        EXPECT_EQ("aop_dump/ " + kPanicFolder, files(kPlace));
        const std::string records = log();
        EXPECT_TRUE(has(records, "I Created temp folder: " + work +
                                         "/tmp; I Failed to open file: @/header.img; "));
        EXPECT_TRUE(has(records,
                        "I strings md_KCONSOLE.BIN save failed; I dump_info.txt copy failed; "
                        "I tar -zcvf @/panic_log_T/aop_dump.tar.gz -C " +
                                work + " aop_dump; I aop_dump save failed; "));
        expect_archived("/data/other/minidump_" + kStamp + ".tar.gz");
        expect_erased();
    }
}

TEST_F(RunTest, GoesOnAfterAFailureToTheEnd) {
    const std::pair<std::string, std::function<void()>> cases[] = {
            {"I Compression failed.", [] { fs::create_directory(kArchive); }},
            {"I Compression failed.", [] { replace_tool("tar"); }},
            // A full file system: the device's tar does not see that its gzip could not write.
            {"I Compression completed successfully.", [] { mount_over(kPlace, "size=96k"); }},
            {"I Failed to create temp folder: @/tmp",
             [] { fs::remove(kPlace + "/tmp"), make(kPlace, "tmp"); }},
            {"E Failed to open file: @/tmp/MD_RESTARTINFO.BIN",
             [this] { crash(build_image({}, 1 << 20)); }},
            {"I aop_dump save failed", [] { fs::remove(kPlace + "/aop_dump"); }},
            {"I strings md_KCONSOLE.BIN save failed", [] { replace_tool("strings"); }},
            {"I Failed to create folder: @/panic_log_T",
             [] { make(kPlace, "panic_log_" + kStamp); }},
            {"I Failed: rm -rf @/header.img", [] { replace_tool("rm"); }},
            {"I [Panic]copy_panic_log: cp @/panic_log_T/* %/QVpanic_0_T/",
             [] { replace_tool("cp"); }},
            {"I is create: %/", [] { mount_over("/mnt"); }},  // there is no /mnt/vendor at all
            {"E [Panic]copy_to_qv_log: prepare_type_log_dir failed, result: -1",
             [] { mount_over("/mnt/vendor", "", MS_RDONLY); }}};
    for (const auto& [record, fault] : cases) {
        SCOPED_TRACE(record);
        SetUp();
        crash();
        fault();
        EXPECT_EQ(0, run_tool());
        const std::string records = log();
        EXPECT_TRUE(has(records, "; " + record + "; ")) << records;
        const bool packed = record != "I Compression failed.";
        EXPECT_EQ(packed, has(records, "I Compression completed successfully.; "));
        const std::string settings = journal();
        EXPECT_EQ(packed, has(settings, "; minidump.last_file=minidump_T.tar.gz; "));
        EXPECT_TRUE(has(settings, "; minidump.cp.status=1; "));
        EXPECT_TRUE(record != "I aop_dump save failed" || has(records, "; I Filesystem error: "));
        EXPECT_EQ(record == "I Failed to create temp folder: @/tmp",
                  has(read_file(kErr), "Failed to open file: " + kPlace + "/tmp/dump_info.txt\n"));
        expect_erased();
    }
}

TEST_F(RunTest, EachStepFindsWhatTheOnesBeforeLeft) {
    crash();
    make(kPlace, "panic_log_1/ panic_log_2/ minidump_0 minidump_1");
    fs::last_write_time(kPlace + "/panic_log_1", fs::file_time_type::min());
    for (const std::string tool : {"tar", "strings", "chmod", "rm", "cp"}) {
        const std::string names = " $(toybox ls " + kPlace + ") ";
        replace_tool(tool, "echo " + tool + " $(toybox head -c 8 " + kPartition + ")" + names +
                                   ">>" + kOut + "2");
    }
    EXPECT_EQ(0, run_tool());
    std::string seen = abbreviated(read_file(kOut + "2"));
    replace_all(seen, "\n", "; ");
    EXPECT_EQ(expected("steps.txt"), seen);
}

TEST_F(RunTest, ASecondRunInTheSameSecondTakesTheSameNames) {
    for (const char* log_dir : {"QVpanic_0_T/last_kmsg.txt", "QVpanic_1_T/last_kmsg.txt"}) {
        crash();
        EXPECT_EQ(0, run_tool());
        expect_archived(kArchive);
        EXPECT_TRUE(has(files(kPanicTree), log_dir));
    }
    EXPECT_EQ("aop_dump/ minidump_T.tar.gz " + kPanicFolder, files(kPlace));
}

TEST_F(RunTest, EndsByAnErrorThatNothingCatches) {
    std::string image = build_image(sample_regions(), 1 << 20);
    put_number(image, 64 + 12, 8, 0x80000000);  // a region of 2 GiB
    crash(image);
    EXPECT_EQ(134, run_tool());
    EXPECT_TRUE(has(read_file(kErr), "std::bad_alloc"));
    EXPECT_EQ(kBegin, journal());
    EXPECT_TRUE(untouched());
    make(kPlace, "panic_log_" + kStamp + "/folder/file");  // a folder that is not empty
    crash();
    EXPECT_EQ(134, run_tool());
    EXPECT_TRUE(untouched());
    EXPECT_EQ("folder/ folder/file", files(kPlace + "/panic_log_" + kStamp));
    fs::remove_all(kPlace + "/panic_log_" + kStamp);
    make(kPanicTree, "QVpanic__t/");  // a number without a digit
    EXPECT_EQ(134, run_tool());
    EXPECT_TRUE(has(read_file(kErr), "std::invalid_argument"));
    EXPECT_FALSE(has(journal(), "minidump.cp.status=1"));
    expect_archived(kArchive);
    expect_erased();
}

TEST_F(RunTest, TheTimeTakenLeavesOutTheLogTree) {
    crash();
    replace_tool("strings", "toybox sleep 0.2");
    replace_tool("cp", "toybox sleep 2");
    EXPECT_EQ(0, run_tool());
    const int milliseconds = time_taken(log());
    EXPECT_TRUE(milliseconds >= 200 && milliseconds < 2000) << milliseconds;
}
