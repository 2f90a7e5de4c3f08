#include <algorithm>
#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>

#include "driver/run_values.h"
#include "extraction/archive_retention.h"
#include "extraction/partition_access.h"
#include "extraction/region_table.h"
#include "extraction/restart_reason.h"
#include "support.h"

namespace fs = std::filesystem;
using ExtractionTest = DeviceTest;

namespace {

const std::string kFile = kPlace + "/file";
const std::string kHeader = kPlace + "/header.img";
constexpr int64_t kFar = (int64_t{5} << 30) + 7;  // bytes: no 32-bit position reaches it

// Puts the head of `image` where region extraction finds it, and all of it on the partition.
void crash_with(const std::string& image) {
    write_file(kPartition, image);
    write_file(kHeader, image.substr(0, 40960));
}

}  // namespace

TEST_F(ExtractionTest, DecodesHexadecimalText) {
    const std::pair<std::string, uint32_t> cases[] = {
            {"", 0},
            {"ff", 255},
            {"f", 15},
            {"00010000", 256},
            {"0010000000000000", 4096},
            {"FFfe01aB", 0xab01feff},
            {"0100000001000000", 1},  // the high half folds onto the low one
            {"0110000002000080", 0x80001003},
            {"000000000000000004", 4},  // and so does a ninth byte
            {"01zz0203", 1},            // rubbish blocks all that follows it
            {"1g0203", 1},
    };
    for (const auto& [text, value] : cases) {
        EXPECT_EQ(value, unsigned_hex2dec(text)) << text;
    }
}

TEST_F(ExtractionTest, ReadsFieldsAndPadsThemPastTheEnd) {
    write_file(kFile, std::string("ab\0\x7f\x80\xff", 6));
    EXPECT_EQ("007f80ff00", read_raw(kFile, 2, 5));
    EXPECT_EQ("00000000", read_raw(kFile, 100, 4));
    EXPECT_EQ(std::string("b\0\x7f\x80\xff\0\0", 7), byte_read_ascii_str(kFile, 1, 7));
    EXPECT_THROW(byte_read_ascii_str(kFile, 0, -1), std::length_error);

    unsigned char bytes[] = "......";
    byte_read_raw(kFile, 4, 4, bytes);
    EXPECT_EQ(std::string("\x80\xff....", 6), reinterpret_cast<char*>(bytes));
    byte_read_raw("/data/missing", 0, 4, bytes);
    EXPECT_EQ(0x80, bytes[0]);
    EXPECT_EQ(&byte_read_raw, &byte_read_ascii);

    fs::resize_file(kFile, static_cast<uintmax_t>(kFar));
    std::ofstream(kFile, std::ios::app) << "tail";
    EXPECT_EQ("7461", read_raw(kFile, kFar, 2));
    EXPECT_EQ("il", byte_read_ascii_str(kFile, kFar + 2, 2));
    EXPECT_EQ(Lines(), log_records());
}

TEST_F(ExtractionTest, ReportsAFileThatCannotBeOpenedAtTwoSeverities) {
    EXPECT_EQ("", read_raw("/data/missing", 0, 4));
    EXPECT_EQ("", byte_read_ascii_str("/data/missing", 0, 4));
    EXPECT_EQ(
            (Lines{"I Failed to open file: /data/missing", "E Failed to open file: /data/missing"}),
            log_records());
}

TEST_F(ExtractionTest, CopiesWholeBlocksAndRepeatsTheLastOne) {
    const struct {
        std::string source;
        int32_t block_size, count, skip;
        std::string copy;
    } cases[] = {
            {"abcdefgh", 4, 2, 0, "abcdefgh"},
            {"abcdefgh", 4, 1, 3, "defg"},
            {"abcdefgh", 3, 5, 0, "abcdefghfghfghf"},  // the short block keeps the "f" before it
            {"abcdefgh", 3, 3, 2, "cdefghfgh"},
            {"abcdefgh", 2, 0, 0, ""},
            {"abcdefgh", 2, -1, 0, ""},
            {"abcdefgh", 0, 3, 0, ""},
    };
    for (const auto& c : cases) {
        write_file(kFile, c.source);
        write_file(kPlace + "/copy", "what was there before, longer than any copy");
        dump_dd(kFile, kPlace + "/copy", c.block_size, c.count, c.skip);
        EXPECT_EQ(c.copy, read_file(kPlace + "/copy")) << c.block_size << "*" << c.count;
    }
    // Far past every buffer on the way, with a block size that divides none of them.
    std::string large;
    for (int i = 0; large.size() < 3000000; ++i) {
        large += std::to_string(i);
    }
    write_file(kFile, large);
    for (const int32_t block_size : {4096, 5000, 300000}) {
        const auto block = static_cast<size_t>(block_size);
        const size_t whole = large.size() / block * block;
        std::string last = large.substr(whole);
        last += large.substr(whole - block + last.size(), block - last.size());
        dump_dd(kFile, kPlace + "/copy", block_size, static_cast<int32_t>(whole / block) + 3, 0);
        EXPECT_TRUE(large.substr(0, whole) + last + last + last == read_file(kPlace + "/copy"))
                << block_size;
    }
}

TEST_F(ExtractionTest, CopiesBlocksOfAnySourceAndReportsNothing) {
    dump_dd("/data/missing", kPlace + "/copy", 4096, 3, 0);
    EXPECT_EQ(12288U, fs::file_size(kPlace + "/copy"));
    write_file(kFile, "abc");
    dump_dd(kFile, kPlace + "/copy", 100, 2, -1);
    EXPECT_EQ(200U, fs::file_size(kPlace + "/copy"));
    dump_dd(kFile, kPlace, 100, 1, 0);
    dump_dd(kFile, kPlace + "/missing/copy", 100, 1, 0);
    EXPECT_EQ((Lines{"aop_dump/", "copy", "file", "tmp/"}), tree(kPlace));
    EXPECT_EQ(Lines(), log_records());

    EXPECT_THROW(dump_dd(kFile, kPlace + "/copy", -1, 1, 0), std::bad_alloc);
    EXPECT_EQ(0U, fs::file_size(kPlace + "/copy"));
}

TEST_F(ExtractionTest, AcceptsAnyHeaderWhoseTableIsSet) {
    for (const char flags : {'\x01', '\x81', '\xff'}) {
        for (const std::string magic : {"MINIDUMP", "\xff\xfe", ""}) {
            std::string header = magic;
            header.resize(12);
            write_file(kHeader, header + flags);
            validate(kHeader);
            EXPECT_EQ("I minidump header magic valid success", log_records().back());
            EXPECT_TRUE(fs::exists(kHeader));
        }
    }
    EXPECT_EQ(9U, log_records().size());
}

TEST_F(ExtractionTest, EndsTheRunWhenTheTableIsNotSet) {
    std::string valid = build_image({}, 0);
    std::string neighbours = valid;
    neighbours[11] = neighbours[13] = neighbours[14] = neighbours[15] = '\xff';
    neighbours[12] = '\xfe';
    for (const std::string& header : {neighbours, valid.substr(0, 12), std::string()}) {
        write_file(kHeader, header);
        EXPECT_EXIT(validate(kHeader), testing::ExitedWithCode(11), "");
        EXPECT_EQ((Lines{"aop_dump/", "tmp/"}), tree(kPlace));
        EXPECT_EQ("I minidump region header is not set.", log_records().back());
    }
    EXPECT_EXIT(validate("/data/missing"), testing::ExitedWithCode(11), "");
    EXPECT_EQ(4U, log_records().size());
}

TEST_F(ExtractionTest, ExtractsRegionsUnderTheNamesInTheDump) {
    const std::string long_name = "md_A_NAME_OF_20_CHAR";
    std::string image = build_image(
            {{"md_ONE.BIN", "one"}, {long_name, std::string(9000, 'x')}, {"a", "alpha"}}, 0);
    image.replace(3 * 64 + 38, 3, "zzz");  // behind the zero byte that ends the name
    crash_with(image);
    for (const int32_t entry : {1, 2, 3}) {
        get_md_by_section_num(entry, kPlace, "ignored");
    }
    EXPECT_EQ("one", read_file(kPlace + "/tmp/md_ONE.BIN"));
    EXPECT_EQ(std::string(9000, 'x'), read_file(kPlace + "/tmp/" + long_name));
    EXPECT_EQ("alpha", read_file(kPlace + "/tmp/a"));
    // An entry behind the table is zeros, or nothing at all: no name, so no file.
    get_md_by_section_num(600, kPlace, "");
    get_md_by_section_num(1000, kPlace, "");
    EXPECT_EQ((Lines{"a", long_name, "md_ONE.BIN"}), tree(kPlace + "/tmp"));
    EXPECT_EQ(Lines(), log_records());
}

TEST_F(ExtractionTest, FoldsEightByteFieldsOntoFour) {
    std::string image = build_image({{"md_ONE.BIN", "0123456789"}}, 0);
    const uint64_t offset = get_number(image, 64 + 4, 8);
    put_number(image, 64 + 4, 8, (uint64_t{3} << 32) | offset);
    put_number(image, 64 + 12, 8, (uint64_t{1} << 32) | 4);
    crash_with(image);
    get_md_by_section_num(1, kPlace, "");
    EXPECT_EQ("34567", read_file(kPlace + "/tmp/md_ONE.BIN"));

    put_number(image, 64 + 12, 8, 0x80000000);
    crash_with(image);
    EXPECT_THROW(get_md_by_section_num(1, kPlace, ""), std::bad_alloc);
}

TEST_F(ExtractionTest, FindsAnEntryBeyondTwoGibibytes) {
    const int32_t far_entry = 40000000;
    const std::string image = build_image({{"md_FAR.BIN", "far"}}, 0);
    write_file(kPartition, image);
    write_file(kHeader);
    fs::resize_file(kHeader, 64 * uintmax_t{far_entry});
    std::ofstream(kHeader, std::ios::binary | std::ios::app) << image.substr(64, 64);
    get_md_by_section_num(far_entry, kPlace, "");
    EXPECT_EQ("far", read_file(kPlace + "/tmp/md_FAR.BIN"));
}

TEST_F(ExtractionTest, WritesNoRegionWithoutAHeaderCopy) {
    get_md_by_section_num(1, kPlace, "");
    EXPECT_EQ((Lines{"aop_dump/", "tmp/"}), tree(kPlace));
    EXPECT_EQ((Lines{"I Failed to open file: " + kHeader, "I Failed to open file: " + kHeader,
                     "E Failed to open file: " + kHeader}),
              log_records());
}

TEST_F(ExtractionTest, PublishesTheRestartReason) {
    const std::string record = kPlace + "/tmp/MD_RESTARTINFO.BIN";
    get_restart_info();
    const std::string text91(91, 'r');
    for (const std::string& content :
         {std::string("kernel_panic\0rest", 17), text91, text91 + "r", std::string(200, 'x')}) {
        write_file(record, content);
        get_restart_info();
    }
    EXPECT_EQ((Lines{"E Failed to open file: " + record,
                     "I restart_info = ", "I restart_info = kernel_panic",
                     "I restart_info = " + text91, "I restart_info = " + text91 + "r",
                     "I restart_info = " + std::string(100, 'x')}),
              log_records());
    const std::string key = " vendor.restart_reason=";
    EXPECT_EQ((Lines{"set" + key, "set" + key + "kernel_panic", "set" + key + text91,
                     "refused" + key + text91 + "r", "refused" + key + std::string(100, 'x')}),
              journal());
    EXPECT_EQ(text91, read_file("/dev/__properties__/vendor.restart_reason"));
}

TEST_F(ExtractionTest, KeepsTheTwoArchivesWhoseNamesSortLast) {
    const struct {
        Lines files, removed, kept;
    } cases[] = {
            {{}, {}, {}},
            {{"minidump_1"}, {}, {"minidump_1"}},
            {{"minidump_3", "minidump_1", "minidump_2"},
             {"minidump_1"},
             {"minidump_2", "minidump_3"}},
            {{"minidump_9", "minidump_10", "minidump_8", "minidump_11"},
             {"minidump_10", "minidump_11"},
             {"minidump_8", "minidump_9"}},
    };
    const Lines others = {"header.img", "minidump.bin", "old_minidump_1.tar.gz"};
    for (const auto& c : cases) {
        SetUp();
        fs::create_directory(kPlace + "/minidump_a");
        for (const Lines& files : {others, c.files}) {
            for (const std::string& file : files) {
                write_file(kPlace + "/" + file);
            }
        }
        check_minidump_num(kPlace);

        Lines log;
        for (const std::string& name : c.removed) {
            log.push_back("I Removing file: " + kPlace + "/" + name);
        }
        std::string value;
        Lines left = others;
        left.insert(left.end(), {"aop_dump/", "minidump_a/", "tmp/"});
        for (const std::string& name : c.kept) {
            value += (value.empty() ? "" : ",") + name;
            left.push_back(name);
        }
        std::sort(left.begin(), left.end());
        EXPECT_EQ(log + repair_records() + Lines{"I Preserved files: " + value}, log_records());
        EXPECT_EQ(left, tree(kPlace));
        EXPECT_EQ((Lines{"set vendor.minidump.files=" + value}), journal());
        EXPECT_EQ(0771U, mode(kPlace + "/tmp"));
    }
}

TEST_F(ExtractionTest, PrunesTheDirectoryItIsGivenButRepairsTheFixedOne) {
    for (const char* name : {"minidump_1", "minidump_2", "minidump_3"}) {
        write_file(std::string("/data/elsewhere/") + name);
        write_file(kPlace + "/" + name);
    }
    fs::permissions("/data/elsewhere", fs::perms(0700));
    check_minidump_num("/data/elsewhere");
    EXPECT_EQ((Lines{"minidump_2", "minidump_3"}), tree("/data/elsewhere"));
    EXPECT_EQ(0700U, mode("/data/elsewhere"));
    EXPECT_EQ(0771U, mode(kPlace));

    const size_t records = log_records().size();
    EXPECT_THROW(check_minidump_num("/data/missing"), fs::filesystem_error);
    EXPECT_EQ(records, log_records().size());

    fs::remove_all(kPlace);
    check_minidump_num("/data/elsewhere");
    const Lines log = log_records();
    EXPECT_EQ((Lines{"I chmod -R 0771 /data/vendor/minidump",
                     "I Error: chmod -R 0771 /data/vendor/minidump failed",
                     "I chown -R root:system /data/vendor/minidump",
                     "I Error: chown -R root:system /data/vendor/minidump failed",
                     "I Preserved files: minidump_2,minidump_3"}),
              Lines(log.begin() + static_cast<std::ptrdiff_t>(records), log.end()));
}
