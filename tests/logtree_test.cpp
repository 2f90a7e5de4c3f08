#include <sys/stat.h>

#include <stdexcept>

#include "device_fixture.h"
#include "logtree/log_types.h"
#include "logtree/panic_log.h"
#include "logtree/retention.h"
#include "logtree/type_directory.h"

using namespace testing;

namespace {

const std::string kDir = kLogTree + "/";
const std::string kLastDump = "/dev/__properties__/vendor.qv_dump.last_dump";

using LogtreeTest = DeviceTest;

}  // namespace

TEST_F(LogtreeTest, RejectsABadType) {
    EXPECT_EQ(-22, create_type_new_qv_log_dir(5));
    EXPECT_EQ(-22, prepare_type_log_and_dir(5));
    clean_type_log_and_dir(5);
    copy_panic_log(5);
    EXPECT_THAT(log(), ElementsAre("E create_type_new_qv_log_dir: error core_log_type: 5",
                                   "E prepare_type_log_and_dir: error core_log_type: 5",
                                   "E clean_type_log_and_dir: error core_log_type: 5",
                                   "E copy_panic_log: error core_log_type: 5"));
}

TEST_F(LogtreeTest, MakesDirectoriesThatOwnerAndGroupCanUse) {
    umask(0077);
    EXPECT_EQ(0, qv_create_dir_str("/data/a/"));
    EXPECT_EQ(fs::perms(0770), fs::status("/data/a").permissions());
    EXPECT_EQ(1, qv_create_dir_str("/dev/null/b"));
    EXPECT_THAT(log(),
                ElementsAre("I is create: /data/a/", "I Cannot create: /dev/null/b errgeneric:20"));
    EXPECT_THROW(chang_to_qv_log_mod("/usr/lib"), fs::filesystem_error);  // is read-only
}

TEST_F(LogtreeTest, CountsLogsThenRemovesOldOnesAndTrashAndPacksTheRest) {
    // A tmpfs lists entries in creation order or its reverse: the largest number is in the middle.
    shell("mkdir -p " + kDir + "; mount -t tmpfs test " + kDir);
    make_entries(kDir, {"QVpanic_a", "QVpanic_9_a_b", "QVpanic_9a_t", "QVboot_99_t/file",
                        ".hidden/file", "QVpanic_3_t.tar.gz", "QVpanic_008_t.tar.gz",
                        "QVpanic_6_t/file", "QVpanic_7_target/", "QVpanic_0_t.tar.gz"});
    EXPECT_EQ(9, get_new_qv_log_count(kDir, "QVpanic_"));
    EXPECT_THAT(log(), AllOf(SizeIs(10),
                             IsSupersetOf({"E error file name QVpanic_a ret.size() 2",
                                           "E error file name QVpanic_9_a_b ret.size() 4",
                                           "E error file name QVpanic_9a_t ret.size() 3",
                                           "E find file :.hidden", "E find file :QVpanic_6_t"})));
    EXPECT_FALSE(remove_old_and_trash_file(0, kDir, "QVpanic_", 5));
    EXPECT_FALSE(fs::exists(kDir + "QVpanic_a.tar.gz"));  // malformed, so removed and not packed
    EXPECT_TRUE(fs::exists(kDir + "QVpanic_0_t.tar.gz"));
    EXPECT_FALSE(remove_old_and_trash_file(8, kDir, "QVpanic_", 5));
    EXPECT_THAT(entries_in(kDir), ElementsAre(".hidden/", ".hidden/file", "QVpanic_008_t.tar.gz",
                                              "QVpanic_6_t.tar.gz", "QVpanic_7_target/"));
    EXPECT_THAT(entries_in(unpack(kDir + "QVpanic_6_t.tar.gz")),
                ElementsAre("QVpanic_6_t/", "QVpanic_6_t/file"));
}

TEST_F(LogtreeTest, KeepsTheLargestNumberButThrowsAtATooLargeOrEmptyOne) {
    EXPECT_THROW(get_boot_count_by_file_name("QVpanic_9223372036854775808_t"), std::out_of_range);
    make_entries(kDir, {"QVpanic_9223372036854775807_t"});
    EXPECT_EQ(INT64_MAX, get_new_qv_log_count(kDir, "QVpanic_"));
    make_entries(kDir, {"QVpanic__t/"});
    EXPECT_THROW(copy_to_qv_log(), std::invalid_argument);
}

TEST_F(LogtreeTest, ReportsALogOrTrashThatCannotBeRemoved) {
    make_entries(kDir, {"QVpanic_1_t/"});
    shell("mount -t tmpfs test " + kDir + "QVpanic_1_t");
    EXPECT_EQ(-1, QVRemoveFile(kDir + "QVpanic_1_t"));
    fs::create_symlink("missing", "/data/missing");
    EXPECT_EQ(0, QVRemoveFile("/data/missing"));
    EXPECT_THAT(log(), ElementsAre("E remove failed: " + kDir + "QVpanic_1_tgeneric:16",
                                   "E remove file not exist: /data/missing"));
    EXPECT_TRUE(remove_old_and_trash_file(8, kDir, "QVpanic_", 5));
}

TEST_F(LogtreeTest, RemovesADirectoryAlsoWhenItsPackingFails) {
    make_entries("/data", {"log/file"});
    replace_tool("tar", "cp /dev/__properties__/vendor.qv_dump.last_panic_log /data/seen; exit 1");
    EXPECT_EQ(0, tar_and_delete_dir("/data/log", true));
    EXPECT_THAT(log(), ElementsAre("I tar -zcvf /data/log.tar.gz -C /data log", "I",
                                   "I /data save failed", "I", "E remove pass: /data/log"));
    EXPECT_EQ("log", read_file("/data/seen"));  // set before the command runs
}

TEST_F(LogtreeTest, TruncatesALongCopyCommandAndWarnsOnlyOfTheDefaultDirectory) {
    replace_tool("cp", "echo cp \"$@\" >>/data/seen");
    log_type_table[4].new_log_path = std::string(475, '/');  // 512 characters in all
    copy_panic_log(4);
    write_file(kLastDump, "panic_dir");
    copy_panic_log(4);
    const std::string record = "I [Panic]copy_panic_log: ";
    EXPECT_THAT(log(),
                ElementsAre(ContainsRegex("^W cp /data/.*/ exceed 512 length, using default path$"),
                            StartsWith(record + "cp -r /data/vendor/minidump/panic_log/* /"),
                            StartsWith(record + "cp /data/vendor/minidump/panic_dir/* /")));
    EXPECT_THAT(lines_of("/data/seen"), AllOf(SizeIs(2), Each(SizeIs(511))));
}
