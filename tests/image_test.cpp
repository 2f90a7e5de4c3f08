#include <tuple>

#include "device_fixture.h"

using namespace testing;

// Runs minidump_image in /data, where it unpacks with the workstation's tar, as a user's does.
class ImageTest : public DeviceTest {
  protected:
    // Returns the exit status. libfaketime would open closed descriptors, so it is left out.
    int image_tool(const std::string& arguments, const std::string& tmpdir = "local") {
        return run("cd /data; unset LD_PRELOAD; export PATH=/usr/bin:$PATH TMPDIR=" + tmpdir +
                   "; /vendor/bin/minidump_image " + arguments);
    }

    // Returns what minidump_image, and not tar or gzip, wrote to standard error.
    Lines errors() {
        shell("sed -n 's/^minidump_image: //p' " + err_ + " >/data/errors");
        return lines_of("/data/errors");
    }
};

TEST_F(ImageTest, EscapesNames) {
    std::vector<Region> regions = {{"", ""}};
    for (const char* name :
         {"../up", "a", "a", "-\x1b[2J \"\xff\\", "a.damaged", "A_NAME_OF_20_LETTERS"}) {
        regions.push_back({name, std::to_string(regions.size())});
    }
    write_file("/data/image", build_image(regions, 0));
    EXPECT_EQ(0, image_tool("show image"));
    EXPECT_THAT(lines_of(out_),
                ElementsAre("image 65536 bytes, dump 65536 bytes, 7 regions",
                            "entry  name                        offset          size",
                            "    1  \"\"                           40960             0",
                            "    2  \\x2e.\\x2fup                  40960             1",
                            "    3  a                            45056             1",
                            "    4  a                            49152             1",
                            "    5  \\x2d\\x1b[2J\\x20\\x22\\xff\\x5c         53248             1",
                            "    6  a.damaged                    57344             1",
                            "    7  A_NAME_OF_20_LETTERS         61440             1"));
    EXPECT_EQ(0, image_tool("extract image all"));
    EXPECT_THAT(errors(), ElementsAre("regions of which the image contains no byte: 1"));
    EXPECT_THAT(entries_in("/data/all"),
                ElementsAre("A_NAME_OF_20_LETTERS", "\\x2d\\x1b[2J\\x20\\x22\\xff\\x5c",
                            "\\x2e.\\x2fup", "region_of_table_entry_3_a",
                            "region_of_table_entry_4_a", "region_of_table_entry_6_a.damaged"));
    EXPECT_EQ("3", read_file("/data/all/region_of_table_entry_4_a"));
    EXPECT_EQ(0, image_tool("extract image some ../up 3 3 '\\x2d\\x1b[2J\\x20\\x22\\xff\\x5c'"));
    EXPECT_THAT(entries_in("/data/some"), SizeIs(3));
    EXPECT_EQ(1, image_tool("cat image a"));
    EXPECT_THAT(errors(), ElementsAre("2 regions are called a; \"show\" lists all"));
}

TEST_F(ImageTest, WritesNewFilesOnly) {
    const std::string content = std::string(1 << 20, '1') + "2";  // more than is read at once
    write_file("/data/content", content);
    EXPECT_EQ(0, image_tool("make image a=content"));
    EXPECT_TRUE(read_file("/data/image") == build_image({{"a", content}}, 1 << 20));
    make_entries("/data", {"new/", "old/.hidden", "fixed/"});
    shell("mount -t tmpfs -o ro test /data/fixed");
    EXPECT_EQ(0, image_tool("extract image new"));
    EXPECT_TRUE(content == read_file("/data/new/a"));
    const std::tuple<int, std::string, std::string> refused[] = {
            {1, "make content", "content exists already"},
            {1, "make other a=missing", "cannot read missing: "},
            {2, "make other A_NAME_OF_21_LETTERS_=content",
             "not NAME=FILE, NAME up to 20 bytes: A"},
            {1, "extract image old", "cannot extract to old: it is not empty"},
            {1, "extract image fixed", "cannot write fixed/a.damaged: "},
            {1, "show image >&-", "cannot write standard output: "},
            {2, "show", "wrong arguments; try --help"}};
    for (const auto& [status, arguments, error] : refused) {
        EXPECT_EQ(status, image_tool(arguments));
        EXPECT_THAT(errors(), ElementsAre(StartsWith(error)));
    }
    EXPECT_TRUE(content == read_file("/data/content"));
    EXPECT_THAT(entries_in("/data/old"), ElementsAre(".hidden"));
}

TEST_F(ImageTest, SaysWhatIsWrongAndNamesDamagedFiles) {
    const std::string sound = build_image(sample_regions(), 0);
    const auto write_changed = [](const std::string& name, std::string image, size_t offset,
                                  uint64_t value) {
        put_number(image, offset, 4, value);
        write_file("/data/" + name, image);
    };
    write_file("/data/minidump.bin", sound);
    write_changed("few", sound.substr(0, 4 * kRecord), 36, 0);
    write_changed("beyond", sound, kRecord + 16, 1);
    write_changed("many", sound, 52, 640);
    write_file("/data/flag", std::string(12, '\0') + "\1");
    write_file("/data/text", std::string(64, 'b'));
    write_file("/data/zeros", std::string(64, '\0'));
    shell("cd /data; tar -c minidump.bin | gzip >sound:1; tar -c local | gzip >other; "
          "head -c 600 sound:1 >cut; head -c 99 cut >head; head -c 100000 minidump.bin >short; "
          "toybox mkfifo fifo");
    std::string archive = read_file("/data/sound:1");
    archive[archive.size() - 8] ^= 1;
    write_file("/data/wrong_sum", archive);
    const std::string beyond = "the table is damaged: regions extend beyond the end of the image";
    const std::tuple<std::string, int, int, size_t, size_t, std::string> cases[] = {
            // image, statuses of show and extract, whole and damaged files, what is the matter
            {"sound:1", 0, 0, 8, 0, ""},
            {"wrong_sum", 1, 1, 0, 8, "wrong_sum is damaged: get it again"},
            {"cut", 1, 1, 0, 2, "cut is damaged: get it again"},
            {"head", 1, 1, 0, 0, "head is damaged: get it again"},
            {"other", 1, 1, 0, 0,
             "other is no dump archive: unpack it by hand (a panic log's with tar)"},
            {"short", 3, 1, 3, 1,
             "the image has 100000 of the dump's 155648 bytes: was it copied whole?"},
            {"few", 3, 1, 0, 0, beyond},
            {"beyond", 3, 1, 7, 1, beyond},
            {"many", 3, 3, 8, 0, "the table cannot contain 640 regions (packed? unpack it first)"},
            {"flag", 3, 3, 0, 0, "the table is set, but contains no regions"},
            {"text", 4, 4, 0, 0, "text contains no dump (packed? unpack it first)"},
            {"zeros", 4, 4, 0, 0, "zeros contains no dump"},
            {"fifo", 1, 1, 0, 0, "cannot read fifo: Illegal seek"}};
    for (const auto& [file, shown, extracted, whole, damaged, error] : cases) {
        SCOPED_TRACE(file);
        EXPECT_EQ(shown, image_tool("show " + file));
        EXPECT_EQ(errors(), error.empty() ? Lines() : Lines{error});
        fs::create_directory("/data/of_" + file);
        EXPECT_EQ(extracted, image_tool("extract " + file + " of_" + file));
        EXPECT_EQ(error, errors().empty() ? "" : errors().back());
        EXPECT_THAT(entries_in("/data/of_" + file),
                    AllOf(SizeIs(whole + damaged), Contains(EndsWith(".damaged")).Times(damaged)));
    }
    EXPECT_EQ(1, image_tool("extract short lines"));
    EXPECT_THAT(errors(), ElementsAre("md_CODERAM.BIN: 30368 of 65536 bytes",
                                      "regions of which the image contains no byte: 4", _));
    EXPECT_EQ(1, image_tool("extract short closed md_CODERAM.BIN <&- 2>&-"));
    EXPECT_EQ(30368, fs::file_size("/data/closed/md_CODERAM.BIN.damaged"));  // and no message in it
    EXPECT_EQ(1, image_tool("cat wrong_sum 1"));
    EXPECT_EQ(sample_regions()[0].content, read_file(out_));
    shell("cd /data; mkdir full; mount -t tmpfs -o size=4k test full");
    EXPECT_EQ(1, image_tool("show sound:1", "full"));
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("(set TMPDIR to another directory): No space")));
}
