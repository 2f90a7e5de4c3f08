#include "device_fixture.h"

using namespace testing;

class ImageTest : public DeviceTest {};

const std::string kImage = "cd /data; /vendor/bin/minidump_image ";

TEST_F(ImageTest, ExtractsUnsafeAndDoubledNamesUnderSafeOnes) {
    write_file("/data/image",
               build_image({{"../up", "1"}, {"a", "2"}, {"a", "3"}, {"\x1b[2J", "4"}}, 0));
    EXPECT_EQ(0, run(kImage + "extract image out"));
    EXPECT_THAT(read_file(out_), HasSubstr("../up: 1 bytes to out/region_of_table_entry_1_.._up"));
    EXPECT_THAT(read_file(out_),
                HasSubstr("\\x1b[2J: 1 bytes to out/region_of_table_entry_4__[2J"));
    EXPECT_EQ("3", read_file("/data/out/region_of_table_entry_3_a"));
    EXPECT_FALSE(fs::exists("/data/up"));
}

TEST_F(ImageTest, OverwritesNothingOnExtracting) {
    write_file("/data/image", build_image({{"file", "1"}, {"link", "2"}, {"new", "3"}}, 0));
    write_file("/data/out/file", "kept");
    fs::create_symlink("../target", "/data/out/link");
    EXPECT_EQ(1, run(kImage + "extract image out"));
    EXPECT_EQ("kept", read_file("/data/out/file"));
    EXPECT_FALSE(fs::exists("/data/target"));
    EXPECT_EQ("3", read_file("/data/out/new"));
}

TEST_F(ImageTest, OverwritesAnImageOnlyWithForceAndContent) {
    write_file("/data/image", "kept");
    write_file("/data/content", "1");
    EXPECT_EQ(1, run(kImage + "make image a=content"));
    EXPECT_EQ(1, run(kImage + "make --force image a=missing"));
    EXPECT_EQ("kept", read_file("/data/image"));
    EXPECT_EQ(0, run(kImage + "make --force image a=content"));
    EXPECT_NE("kept", read_file("/data/image"));
}
