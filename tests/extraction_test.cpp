#include <sys/mman.h>
#include <sys/stat.h>

#include <fstream>
#include <random>
#include <stdexcept>
#include <thread>

#include "device_fixture.h"
#include "extraction/archive_retention.h"
#include "extraction/partition_access.h"
#include "extraction/restart_reason.h"

using namespace testing;

namespace {

using ExtractionTest = DeviceTest;

const std::string kFile = "/data/file";
const std::string kCopy = "/data/copy";

// What a copy of block after block leaves: each block is read over the one before.
std::string copied_by_blocks(const std::string& source, size_t block_size, int count, int skip) {
    std::string block(block_size, '\0');
    std::string copy;
    size_t at = skip < 0 ? source.size() : static_cast<size_t>(skip);
    for (int i = 0; i < count; ++i) {
        const std::string read = at < source.size() ? source.substr(at, block_size) : "";
        at = read.size() == block_size ? at + block_size : source.size();
        block.replace(0, read.size(), read);
        copy += block;
    }
    return copy;
}

}  // namespace

TEST_F(ExtractionTest, DecodesHexadecimalText) {
    EXPECT_EQ(0x0f01U, unsigned_hex2dec("01f"));
    EXPECT_EQ(0xab01feffU, unsigned_hex2dec("FFfe01aB"));
    EXPECT_EQ(0x80001003U, unsigned_hex2dec("0110000003000080"));  // the high half is ORed
    EXPECT_EQ(1U, unsigned_hex2dec("01zz0203"));                   // garbage blocks the rest
}

TEST_F(ExtractionTest, ReadsBytesAnywhereAndZerosPastTheEndOrTellsWhyNot) {
    write_file(kFile, std::string("ab\0\x7f\x80\xff", 6));
    EXPECT_EQ("007f80ff00", read_raw(kFile, 2, 5));
    EXPECT_EQ(std::string("b\0\x7f\x80\xff\0\0", 7), byte_read_ascii_str(kFile, 1, 7));
    EXPECT_THROW(byte_read_ascii_str(kFile, 0, -1), std::length_error);
    fs::resize_file(kFile, uintmax_t{5} << 30);
    std::ofstream(kFile, std::ios::app) << "tail";
    EXPECT_EQ("7461", read_raw(kFile, int64_t{5} << 30, 2));
    EXPECT_EQ("", read_raw("/data/missing", 0, 2));
    EXPECT_THAT(log(), ElementsAre("I Failed to open file: /data/missing"));
}

TEST_F(ExtractionTest, CopiesAsBlockAfterBlockWould) {
    std::mt19937 random(20240107);
    for (int i = 0; i < 120; ++i) {
        const int block_sizes[] = {1, 7, 512, 4096, 5000, 131073, 262143, 262144, 262145, 300000};
        const int block_size = block_sizes[random() % 10];
        size_t size = random() % 4 * 262144;
        size += random() % 3 * (block_size - 1);
        std::string source(size, '\0');
        std::generate(source.begin(), source.end(), [&random] { return char(random()); });
        const int count = int(random() % (1000000 / block_size + 3)) - 1;
        const int skips[] = {0, -1, int(random() % (size + 10))};
        const int skip = skips[i % 3];
        SCOPED_TRACE(testing::Message() << size << " bytes, block size " << block_size << ", count "
                                        << count << ", skip " << skip);
        write_file(kFile, source);
        dump_dd(source.empty() ? "/data/missing" : kFile, kCopy, block_size, count, skip);
        ASSERT_TRUE(copied_by_blocks(source, block_size, count, skip) == read_file(kCopy));
    }
}

TEST_F(ExtractionTest, CopyKeepsWhatCouldBeReadBeforeADeviceError) {
    // The process's own memory serves as a device: reading what is not mapped fails with EIO.
    void* const memory = mmap(reinterpret_cast<void*>(0x10000000), 8192, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    ASSERT_NE(MAP_FAILED, memory);
    const std::string readable = std::string(4096, 'a') + std::string(4096, 'b');
    readable.copy(static_cast<char*>(memory), readable.size());
    dump_dd("/proc/self/mem", kCopy, 5000, 2, 0x10000000);
    munmap(memory, 8192);
    EXPECT_EQ(copied_by_blocks(readable, 5000, 2, 0), read_file(kCopy));
}

TEST_F(ExtractionTest, CopyReadsNothingMoreAfterAShortRead) {
    write_file(kFile, std::string(5000, 's'));
    ASSERT_EQ(0, mkfifo(kCopy.c_str(), 0600));  // takes 64 KiB, then the copy waits for the reader
    std::string copy;
    std::thread reader([&copy] {
        std::ifstream fifo(kCopy);
        copy.push_back(static_cast<char>(fifo.get()));
        std::ofstream(kFile, std::ios::app) << std::string(1 << 20, 'n');
        copy.append(std::istreambuf_iterator<char>(fifo), {});
    });
    dump_dd(kFile, kCopy, 4096, 100, 0);
    reader.join();
    EXPECT_TRUE(copied_by_blocks(std::string(5000, 's'), 4096, 100, 0) == copy);
}

TEST_F(ExtractionTest, TriesToPublishTheFirstHundredBytesOfARestartReason) {
    write_file(kTmpDir + "/MD_RESTARTINFO.BIN", std::string(101, 'r'));
    get_restart_info();
    const std::string reason(100, 'r');
    EXPECT_THAT(log(), ElementsAre("I restart_info = " + reason));
    EXPECT_THAT(journal(), ElementsAre("refused vendor.restart_reason=" + reason));
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

TEST_F(ExtractionTest, PublishesThatNoArchiveIsKeptAlsoAfterFailedCommands) {
    replace_tool("chmod", "exit 3");
    replace_tool("chown", "exit 3");
    check_minidump_num(kMinidumpDir);
    EXPECT_THAT(log(),
                IsSupersetOf({"I Error: chmod -R 0771 /data/vendor/minidump failed",
                              "I Error: chown -R root:system /data/vendor/minidump failed"}));
    EXPECT_THAT(journal(), ElementsAre("set vendor.minidump.files="));
}

TEST_F(ExtractionTest, EndsByAnErrorWhenArchivesCannotBeListedOrDeleted) {
    EXPECT_THROW(check_minidump_num("/data/missing"), fs::filesystem_error);
    shell("mkdir /data/busy; mount -t tmpfs test /data/busy");
    make_entries("/data/busy", {"minidump_1", "minidump_2", "minidump_3"});
    shell("cd /data/busy; mount -o bind minidump_1 minidump_1");
    EXPECT_THROW(check_minidump_num("/data/busy"), fs::filesystem_error);
}
