#include <tuple>

#include "device_fixture.h"

using namespace testing;

using ImageTest = DeviceTest;

// Unpacks with the workstation's tar, as a user's does.
const std::string kImage =
        "cd /data; export PATH=/usr/bin:$PATH TMPDIR=${TMPDIR-local}; /vendor/bin/minidump_image ";

TEST_F(ImageTest, ExtractsToNewFilesWithSafeNames) {
    const std::vector<Region> regions = {{"../up", "1"},   {"a", "2"},    {"a", "3"},
                                         {"\x1b[2J", "4"}, {"file", "5"}, {"-b c", "6"}};
    write_file("/data/image", build_image(regions, 0));
    write_file("/data/out/file", "kept");
    EXPECT_EQ(1, run(kImage + "extract image out"));
    EXPECT_EQ(entries_in("/data/out"),
              Lines({"file", "region_of_table_entry_1_.._up", "region_of_table_entry_2_a",
                     "region_of_table_entry_3_a", "region_of_table_entry_4_\\x1b[2J",
                     "region_of_table_entry_6_-b\\x20c"}));
    EXPECT_EQ("3", read_file("/data/out/region_of_table_entry_3_a"));
    EXPECT_EQ("kept", read_file("/data/out/file"));
    EXPECT_FALSE(fs::exists("/data/up"));
    EXPECT_THAT(read_file(out_), Not(HasSubstr("\x1b")));
    EXPECT_EQ(1, run(kImage + "extract -- image named 3 '-b c' missing"));
    EXPECT_THAT(entries_in("/data/named"), SizeIs(2));
    EXPECT_THAT(read_file(err_),
                EndsWith("no region has the name or entry number missing; \"show\" lists both\n"));
}

TEST_F(ImageTest, MakesAnImageOverAnotherOnlyWhenForced) {
    write_file("/data/image", "kept");
    write_file("/data/content", "1");
    EXPECT_EQ(1, run(kImage + "make image a=content"));
    EXPECT_EQ("kept", read_file("/data/image"));
    EXPECT_EQ(0, run(kImage + "make --force image a=content"));
    EXPECT_EQ(read_file("/data/image"), build_image({{"a", "1"}}, 1 << 20));
}

TEST_F(ImageTest, ReadsADumpArchiveAndSaysWhatIsWrong) {
    std::string image = build_image(sample_regions(), 0);
    write_file("/data/minidump.bin", image);
    shell("cd /data; tar -c minidump.bin | gzip >archive; head -c 1200 archive >truncated; "
          "head -c 100000 minidump.bin >short; toybox mkfifo fifo");
    std::string damaged = read_file("/data/archive");
    damaged[damaged.size() - 8] ^= 1;  // in the checksum
    write_file("/data/damaged", damaged);
    write_file("/data/text", std::string(21, 'a'));  // bit 0 of byte 12 is set
    put_number(image, 52, 4, 0);
    write_file("/data/no_regions", image);
    const Matcher<Lines> whole = Contains("md_CODERAM.BIN");
    const Matcher<Lines> in_part = AllOf(Contains("md_CODERAM.BIN.truncated"), SizeIs(5));
    const std::string hint = "if it is packed in another way (zip, xz, ...), unpack it first\n";
    const std::tuple<std::string, int, std::string, Matcher<Lines>> cases[] = {
            // image, status, the end of standard error, extracted files
            {"archive", 0, "", whole},
            {"truncated", 1, "wrong, incomplete regions: 7; get the archive again\n", in_part},
            {"damaged", 1, "wrong, incomplete regions: 0; get the archive again\n", whole},
            {"short", 1, hint, in_part},
            {"text", 4, "text contains no dump; " + hint, IsEmpty()},
            {"no_regions", 3, hint, IsEmpty()},
            {"fifo", 1, "fifo is neither a file nor a block device\n", IsEmpty()}};
    for (const auto& [file, status, error, extracted] : cases) {
        SCOPED_TRACE(file);
        fs::create_directory("/data/of_" + file);
        EXPECT_EQ(status, run(kImage + "extract " + file + " of_" + file));
        EXPECT_THAT(read_file(err_), EndsWith(error));
        EXPECT_THAT(entries_in("/data/of_" + file), extracted);
    }
    EXPECT_EQ(sample_regions()[0].content, read_file("/data/of_archive/md_KCONSOLE.BIN"));
    run(kImage + "extract archive of_truncated");  // beside what is truncated
    EXPECT_EQ(sample_regions()[4].content, read_file("/data/of_truncated/md_CODERAM.BIN"));
    shell("cd /data; mkdir full fixed; mount -t tmpfs -o size=4k test full; "
          "mount -t tmpfs -o ro test fixed");
    EXPECT_EQ(1, run("TMPDIR=full; " + kImage + "show archive"));
    EXPECT_THAT(read_file(err_), HasSubstr("(set TMPDIR to another directory): No space left"));
    EXPECT_EQ(1, run(kImage + "extract archive fixed"));
    EXPECT_THAT(lines_of(err_), ElementsAre(HasSubstr("cannot write to the directory fixed: ")));
}
