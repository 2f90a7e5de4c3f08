#include <tuple>

#include "device_fixture.h"

using namespace testing;

using ImageTest = DeviceTest;

const std::string kImage = "cd /data; TMPDIR=local /vendor/bin/minidump_image ";

TEST_F(ImageTest, ExtractsToNewFilesWithSafeNames) {
    const std::vector<Region> regions = {
            {"../up", "1"}, {"a", "2"}, {"a", "3"}, {"\x1b[2J", "4"}, {"file", "5"}};
    write_file("/data/image", build_image(regions, 0));
    write_file("/data/out/file", "kept");
    EXPECT_EQ(1, run(kImage + "extract image out"));
    EXPECT_EQ(entries_in("/data/out"),
              Lines({"file", "region_of_table_entry_1_.._up", "region_of_table_entry_2_a",
                     "region_of_table_entry_3_a", "region_of_table_entry_4_\\x1b[2J"}));
    EXPECT_EQ("3", read_file("/data/out/region_of_table_entry_3_a"));
    EXPECT_EQ("kept", read_file("/data/out/file"));
    EXPECT_FALSE(fs::exists("/data/up"));
    EXPECT_THAT(read_file(out_), Not(HasSubstr("\x1b")));
}

TEST_F(ImageTest, MakesAnImageOverAnotherOnlyWhenForced) {
    write_file("/data/image", "kept");
    write_file("/data/content", "1");
    EXPECT_EQ(1, run(kImage + "make image a=content"));
    EXPECT_EQ("kept", read_file("/data/image"));
    EXPECT_EQ(0, run(kImage + "make --force image a=content"));
    EXPECT_EQ(read_file("/data/image"), build_image({{"a", "1"}}, 1 << 20));
}

TEST_F(ImageTest, ReadsADumpArchiveAndReportsDamage) {
    write_file("/data/minidump.bin", build_image(sample_regions(), 0));
    shell("cd /data; tar -c minidump.bin | gzip >archive; head -c 1200 archive >truncated; "
          "head -c 100000 minidump.bin >short; head -c 50 /dev/zero >zeros");
    std::string damaged = read_file("/data/archive");
    damaged[damaged.size() - 8] ^= 1;  // in the checksum
    write_file("/data/damaged", damaged);
    const std::tuple<std::string, int, std::string> cases[] = {
            {"archive", 0, ""},
            {"truncated", 1, "truncated gzip input"},
            {"damaged", 1, "damaged by gzip"},
            {"short", 3,
             "inconsistent table: the dump is larger than the image\n"
             "minidump_image: inconsistent table: regions extend beyond the end of the image"}};
    for (const auto& [file, status, error] : cases) {
        EXPECT_EQ(status, run(kImage + "extract " + file + " out 1")) << file;
        EXPECT_THAT(read_file(err_), HasSubstr(error));
        EXPECT_EQ(sample_regions()[0].content, read_file("/data/out/md_KCONSOLE.BIN"));
        fs::remove_all("/data/out");
    }
    EXPECT_EQ(4, run(kImage + "show zeros"));
    EXPECT_EQ(1, run(kImage + "extract archive out load.cmm missing"));
    EXPECT_EQ(entries_in("/data/out"), Lines({"load.cmm"}));
}
