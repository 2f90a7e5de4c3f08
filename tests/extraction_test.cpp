#include <fstream>
#include <new>
#include <stdexcept>

#include "driver/run_values.h"
#include "extraction/archive_retention.h"
#include "extraction/partition_access.h"
#include "extraction/region_table.h"
#include "extraction/restart_reason.h"
#include "support.h"

namespace {

const std::string kFile = kScratch + "/file";
const std::string kCopy = kScratch + "/copy";
const std::string kHeader = kPlace + "/header.img";
const std::string kTmp = kPlace + "/tmp/";

using ExtractionTest = DeviceTest;

// Copies a file of `content` with dump_dd and returns the copy.
std::string copy(const std::string& content, int32_t block_size, int32_t count, int32_t skip) {
    write_file(kFile, content);
    write_file(kCopy, "what was there before, longer than most copies");
    dump_dd(kFile, kCopy, block_size, count, skip);
    return read_file(kCopy);
}

}  // namespace

TEST_F(ExtractionTest, DecodesHexadecimalText) {
    EXPECT_EQ(0U, unsigned_hex2dec(""));
    EXPECT_EQ(0x0f01U, unsigned_hex2dec("01f"));
    EXPECT_EQ(0xab01feffU, unsigned_hex2dec("FFfe01aB"));
    EXPECT_EQ(0x80001003U, unsigned_hex2dec("0110000002000080"));  // the high half folds
    EXPECT_EQ(4U, unsigned_hex2dec("000000000000000004"));         // and so does a ninth byte
    EXPECT_EQ(1U, unsigned_hex2dec("01zz0203"));                   // rubbish blocks the rest
}

TEST_F(ExtractionTest, ReadsFieldsAnywhereAndPadsThemPastTheEnd) {
    write_file(kFile, std::string("ab\0\x7f\x80\xff", 6));
    EXPECT_EQ("007f80ff00", read_raw(kFile, 2, 5));
    EXPECT_EQ(std::string("b\0\x7f\x80\xff\0\0", 7), byte_read_ascii_str(kFile, 1, 7));
    EXPECT_THROW(byte_read_ascii_str(kFile, 0, -1), std::length_error);
    unsigned char bytes[] = "......";
    byte_read_raw(kFile, 4, 4, bytes);
    EXPECT_STREQ("\x80\xff....", reinterpret_cast<char*>(bytes));
    EXPECT_EQ(&byte_read_raw, &byte_read_ascii);
    fs::resize_file(kFile, uintmax_t{5} << 30);
    std::ofstream(kFile, std::ios::app) << "tail";
    EXPECT_EQ("7461", read_raw(kFile, int64_t{5} << 30, 2));
    EXPECT_EQ("", log());
}

TEST_F(ExtractionTest, CopiesWholeBlocksAndRepeatsTheLastOne) {
    EXPECT_EQ("defg", copy("abcdefgh", 4, 1, 3));
    EXPECT_EQ("abcdefghfghfghf", copy("abcdefgh", 3, 5, 0));  // the short block keeps an old "f"
    EXPECT_EQ("", copy("abcdefgh", 2, 0, 0) + copy("abc", 2, -1, 0) + copy("abc", 0, 3, 0));
    // Far past every buffer on the way, with block sizes that divide none of them.
    std::string large;
    for (int i = 0; large.size() < 3000000; ++i) {
        large += std::to_string(i);
    }
    for (const auto& [size, block] :
         {std::pair(3000000, 4096), {3000000, 5000}, {3000000, 300000}, {262154, 4096}}) {
        const std::string all = large.substr(0, size);
        const std::string whole = all.substr(0, size / block * block);
        const std::string last = all.substr(whole.size()) +
                                 all.substr(all.size() - block, whole.size() + block - size);
        EXPECT_TRUE(whole + last + last == copy(all, block, size / block + 2, 0))
                << size << " " << block;
    }
    dump_dd("/data/missing", kCopy, 4096, 3, 0);
    EXPECT_TRUE(std::string(12288, '\0') == read_file(kCopy));
    EXPECT_EQ(200U, copy("abc", 100, 2, -1).size());
    EXPECT_THROW(dump_dd(kFile, kCopy, -1, 1, 0), std::bad_alloc);
    EXPECT_EQ("", read_file(kCopy) + log());
}

TEST_F(ExtractionTest, ExtractsRegionsUnderTheNamesInTheDump) {
    std::string image =
            build_image({{"b", "0123456789"}, {"md_A_NAME_OF_20_CHAR", "20"}, {"a", "alpha"}}, 0);
    image.replace(3 * 64 + 38, 3, "zzz");  // behind the zero byte that ends the name
    const auto extract = [&image](int32_t entry) {
        write_file(kPartition, image);
        write_file(kHeader, image.substr(0, 40960));
        fs::resize_file(kHeader, uintmax_t{64} * 40000000);  // up to a record beyond 2 GiB
        std::ofstream(kHeader, std::ios::binary | std::ios::app) << image.substr(64, 64);
        get_md_by_section_num(entry, kPlace, "ignored");
        return entry == 600 ? "" : files(kTmp) + " " + read_file(kTmp + "b");
    };
    EXPECT_EQ("", extract(600));  // a record without a name makes no file
    EXPECT_EQ("b 0123456789", extract(40000000));
    fs::remove(kTmp + "b");
    extract(1), extract(2);
    EXPECT_EQ("a b md_A_NAME_OF_20_CHAR 0123456789", extract(3));
    EXPECT_EQ("20alpha", read_file(kTmp + "md_A_NAME_OF_20_CHAR") + read_file(kTmp + "a"));
    put_number(image, 64 + 8, 4, 3);  // the offset's high half
    put_number(image, 64 + 12, 8, (uint64_t{1} << 32) | 4);
    EXPECT_EQ("a b md_A_NAME_OF_20_CHAR 34567", extract(1));
    put_number(image, 64 + 12, 8, 0x80000000);
    EXPECT_THROW(extract(1), std::bad_alloc);
    EXPECT_EQ("", log());
    fs::remove(kHeader);
    get_md_by_section_num(1, kPlace, "");
    const std::string failed = " Failed to open file: @/header.img; ";
    EXPECT_EQ("I" + failed + "I" + failed + "E" + failed, log());
}

TEST_F(ExtractionTest, PublishesTheRestartReason) {
    const std::string text(91, 'r');
    for (const std::string& record :
         {std::string("panic\0rest", 10), text, text + "r", std::string(101, 'x')}) {
        write_file(kTmp + "MD_RESTARTINFO.BIN", record);
        get_restart_info();
        const std::string reason = record.substr(0, 100).c_str();
        EXPECT_EQ("I restart_info = " + reason + "; ", log());
        EXPECT_EQ(journal(),
                  (reason.size() > 91 ? "refused " : "") + ("restart_reason=" + reason) + "; ");
    }
}

TEST_F(ExtractionTest, KeepsTheTwoArchivesWhoseNamesSortLast) {
    const std::string repair = "I chmod -R 0771 @; I chown -R root:system @; I Preserved files: ";
    const std::vector<std::string> cases[] = {
            // made, removed, left, published
            {"", "", "", ""},
            {" minidump_1", "", " minidump_1", "minidump_1"},
            {" minidump_8 minidump_10 minidump_9", "I Removing file: @/minidump_10; ",
             " minidump_8 minidump_9", "minidump_8,minidump_9"}};
    for (const auto& c : cases) {
        SetUp();
        make(kPlace, "header.img minidump.bin minidump_a/ old_minidump_1" + c[0]);
        check_minidump_num(kPlace);
        EXPECT_EQ(c[1] + repair + c[3] + "; ", log());
        EXPECT_EQ("minidump.files=" + c[3] + "; ", journal());
        EXPECT_EQ(files(kPlace),
                  "aop_dump/ header.img minidump.bin" + c[2] + " minidump_a/ old_minidump_1 tmp/");
        EXPECT_EQ(fs::perms(0771), fs::status(kTmp).permissions());
    }
    make("/data/other", "minidump_1 minidump_2 minidump_3");
    replace_tool("chmod", "exit 3");
    check_minidump_num("/data/other");
    EXPECT_EQ("minidump_2 minidump_3", files("/data/other"));
    EXPECT_TRUE(has(log(), "I chmod -R 0771 @; I Error: chmod -R 0771 @ failed; I chown "));
    EXPECT_THROW(check_minidump_num("/data/missing"), fs::filesystem_error);
    EXPECT_EQ("", log());
}
