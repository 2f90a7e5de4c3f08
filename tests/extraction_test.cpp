#include "device_fixture.h"
#include "extraction/archive_retention.h"
#include "extraction/partition_access.h"

using namespace testing;

using ExtractionTest = DeviceTest;

TEST_F(ExtractionTest, ReadsZerosPastTheEndAndReportsAMissingFile) {
    write_file("/data/file", std::string("ab\0\x7f\x80\xff", 6));
    EXPECT_EQ("007f80ff00", read_raw("/data/file", 2, 5));
    EXPECT_EQ(std::string("b\0\x7f\x80\xff\0\0", 7), byte_read_ascii_str("/data/file", 1, 7));
    EXPECT_EQ("", read_raw("/data/missing", 0, 2));
    EXPECT_THAT(log(), ElementsAre("I Failed to open file: /data/missing"));
}

TEST_F(ExtractionTest, ReadsEachBlockOverTheOneBeforeAndWritesItWhole) {
    const std::string two_zeros(2, '\0');
    const std::string large = std::string(100000, 'a') + std::string(100000, 'b') + "c";
    // source, block size, count, skip, expected copy
    const std::tuple<std::string, int, int, int, std::string> copies[] = {
            {"abcdefgh", 3, 4, 0, "abcdefghfghf"},
            {"a", 3, 2, 0, "a" + two_zeros + "a" + two_zeros},
            {"abcdef", 2, 2, 1, "bcde"},
            {"abc", 2, 1, 4, two_zeros},
            {large, 100000, 3, 0, large + std::string(99999, 'b')}};
    for (const auto& [source, block_size, count, skip, expected] : copies) {
        write_file("/data/source", source);
        dump_dd("/data/source", "/data/copy", block_size, count, skip);
        EXPECT_EQ(expected, read_file("/data/copy"));
    }
}

TEST_F(ExtractionTest, KeepsTheTwoArchivesWhoseNamesSortLast) {
    make_entries(kMinidumpDir, {"minidump_8", "minidump_10", "minidump_9", "minidump_a/",
                                "minidump.bin", "old_minidump_1"});
    fs::create_symlink("minidump.bin", kMinidumpDir + "/minidump_1");  // counts as a file
    check_minidump_num(kMinidumpDir);
    EXPECT_THAT(entries_in(kMinidumpDir),
                ElementsAre("aop_dump/", "minidump.bin", "minidump_8", "minidump_9", "minidump_a/",
                            "old_minidump_1", "tmp/"));
    EXPECT_THAT(log(), Contains("I Removing file: /data/vendor/minidump/minidump_10"));
}

TEST_F(ExtractionTest, ThrowsWhenAnArchiveCannotBeDeleted) {
    make_entries(kMinidumpDir, {"minidump_1", "minidump_2", "minidump_3"});
    shell("cd " + kMinidumpDir + "; mount -o bind minidump_1 minidump_1");
    EXPECT_THROW(check_minidump_num(kMinidumpDir), fs::filesystem_error);
}
