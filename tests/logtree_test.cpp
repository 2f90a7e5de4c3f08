#include <sys/stat.h>

#include <stdexcept>

#include "device_fixture.h"
#include "driver/timestamp.h"
#include "logtree/log_types.h"
#include "logtree/panic_log.h"
#include "logtree/retention.h"
#include "logtree/type_directory.h"

using namespace testing;

namespace {

const std::string kDir = kLogTree + "/";
const std::string kCopyRecord = "I [Panic]copy_panic_log: ";
const std::string kCopyPanicLog = "cp /data/vendor/minidump/panic_log/* ";
const std::string kLastDump = "/dev/__properties__/vendor.qv_dump.last_dump";

class LogtreeTest : public DeviceTest {
  protected:
    void SetUp() override {
        DeviceTest::SetUp();
        fs::create_directories(kDir);
        static const auto initial_table = log_type_table;
        log_type_table = initial_table;
    }
};

}  // namespace

TEST_F(LogtreeTest, RejectsWhatIsNoTypeOrHasNoOpenLog) {
    EXPECT_EQ(-22, create_type_new_qv_log_dir(5));
    EXPECT_EQ(-22, prepare_type_log_and_dir(5));
    clean_type_log_and_dir(4294967295);
    copy_panic_log(6);
    copy_panic_log(1);
    clean_type_log_and_dir(4);
    EXPECT_THAT(log(),
                ElementsAre("E create_type_new_qv_log_dir: error core_log_type: 5",
                            "E prepare_type_log_and_dir: error core_log_type: 5",
                            "E clean_type_log_and_dir: error core_log_type: 4294967295",
                            "E copy_panic_log: error core_log_type: 6",
                            "E [Crash]copy_panic_log: new_log_path not exist!",
                            "E [Panic]clean_type_log_and_dir: new_log_path_no_sign not exist!"));
}

TEST_F(LogtreeTest, MakesDirectoriesForOwnerAndGroup) {
    umask(0077);
    EXPECT_EQ(0, qv_create_dir_str("/data/a/"));
    EXPECT_EQ(fs::perms(0770), fs::status("/data/a").permissions());
    write_file("/data/file", "");
    EXPECT_EQ(0, qv_create_dir_str("/data/file"));  // something is there: that is all it asks
    EXPECT_EQ(1, qv_create_dir_str("/data/file/b"));
    fs::create_symlink("loop", "/data/loop");
    EXPECT_EQ(1, qv_create_dir_str("/data/loop"));
    EXPECT_THAT(log(), ElementsAre("I is create: /data/a/", "I is create: /data/file",
                                   "I Cannot create: /data/file/b errgeneric:20",
                                   "I Cannot create: /data/loop errgeneric:40"));
    EXPECT_NO_THROW(chang_to_qv_log_mod("/data/loop"));
    EXPECT_THROW(chang_to_qv_log_mod("/usr/lib"), fs::filesystem_error);  // is read-only
}

TEST_F(LogtreeTest, DatesAPanicLogFromTheClockWhenTheLastDumpHasNoDate) {
    for (const std::string property : {"panic", "panic_"}) {
        write_file(kLastDump, property);
        internal::CaptureStdout();
        const std::string before = kDir + "QVpanic_0_" + GetCurrentTimestamp() + "/";
        EXPECT_EQ(0, create_type_new_qv_log_dir(4));
        const std::string after = kDir + "QVpanic_0_" + GetCurrentTimestamp() + "/";
        EXPECT_THAT(log_type_table[4].new_log_path, AllOf(Ge(before), Le(after)));
        EXPECT_EQ("", internal::GetCapturedStdout());
    }
}

TEST_F(LogtreeTest, EndsByAnErrorAtANumberBeyond63Bits) {
    EXPECT_THROW(get_boot_count_by_file_name("QVpanic_9223372036854775808_t"), std::out_of_range);
}

TEST_F(LogtreeTest, CountsAndKeepsWellFormedNamesWhateverTheirOrder) {
    shell("mount -t tmpfs test " +
          kDir);  // lists in the order of making, or against it: a malformed name comes first
    make_entries(kDir, {"QVpanic_a", "QVpanic_10_t/", "QVpanic_9_t.tar.gz", "QVboot_99_t", ".x",
                        "QVpanic_x1_z"});
    EXPECT_EQ(11, get_new_qv_log_count(kDir, "QVpanic_"));
    EXPECT_THAT(log(),
                UnorderedElementsAre("E error file name QVpanic_a ret.size() 2",
                                     "E find file :QVpanic_10_t", "E find file :QVpanic_9_t.tar.gz",
                                     "E find file :QVboot_99_t", "E find file :.x",
                                     "E error file name QVpanic_x1_z ret.size() 3"));
    EXPECT_FALSE(remove_old_and_trash_file(0, kDir, "QVpanic_", 5));
    EXPECT_THAT(entries_in(kDir), ElementsAre(".x", "QVpanic_10_t.tar.gz", "QVpanic_9_t.tar.gz"));
}

TEST_F(LogtreeTest, StaysAtTheLargestNumber) {
    make_entries(kDir, {"QVpanic_9223372036854775807_t.tar.gz", "QVpanic_9_t.tar.gz"});
    EXPECT_EQ(INT64_MAX, get_new_qv_log_count(kDir, "QVpanic_"));
    EXPECT_FALSE(remove_old_and_trash_file(INT64_MAX, kDir, "QVpanic_", 5));
    EXPECT_THAT(entries_in(kDir), ElementsAre("QVpanic_9223372036854775807_t.tar.gz"));
}

TEST_F(LogtreeTest, RemovesOldLogsAndTrashAndPacksNamesWithoutTar) {
    make_entries(kDir, {"QVpanic_2_t.tar.gz", "QVpanic_3_t/file", "QVpanic_x_t/", "QVpanic_9_a_b",
                        "qvpanic_9_t/file", "QVpanicx_9_t", ".hidden/file", "QVpanic_004_t.tar.gz",
                        "QVpanic_5_target/", "QVpanic_6_ta/file", "QVpanic_7_ar/"});
    EXPECT_FALSE(remove_old_and_trash_file(8, kDir, "QVpanic_", 5));
    EXPECT_THAT(entries_in(kDir),
                ElementsAre(".hidden/", ".hidden/file", "QVpanic_004_t.tar.gz", "QVpanic_5_target/",
                            "QVpanic_6_ta.tar.gz", "QVpanic_7_ar.tar.gz"));
    EXPECT_THAT(entries_in(unpack(kDir + "QVpanic_6_ta.tar.gz")),
                ElementsAre("QVpanic_6_ta/", "QVpanic_6_ta/file"));
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
    EXPECT_TRUE(remove_old_and_trash_file(8, kDir, "QVboot_", 5));
}

TEST_F(LogtreeTest, LosesADirectoryWhosePackingFails) {
    make_entries("/data", {"log/file"});
    replace_tool("tar", "cp /dev/__properties__/vendor.qv_dump.last_panic_log /data/seen; exit 1");
    EXPECT_EQ(0, tar_and_delete_dir("/data/log", true));
    EXPECT_THAT(log(), ElementsAre("I tar -zcvf /data/log.tar.gz -C /data log", "I ",
                                   "I /data save failed", "I ", "E remove pass: /data/log"));
    EXPECT_EQ("log", read_file("/data/seen"));  // set before the command runs
}

TEST_F(LogtreeTest, KnowsFiveTypes) {
    const std::string root = "/mnt/vendor/qv_log/";
    EXPECT_THAT(log_type_name, ElementsAre("boot", "crash", "rescue", "ota", "panic"));
    EXPECT_THAT(log_type_label, ElementsAre("[Boot]", "[Crash]", "[Rescue]", "[Ota]", "[Panic]"));
    EXPECT_THAT(log_type_table,
                ElementsAre(FieldsAre(false, 10, 0, "QVboot_", root + "boot_log/", "", ""),
                            FieldsAre(true, 5, 0, "QVcrash_", root + "crash_log/", "", ""),
                            FieldsAre(true, 5, 0, "QVrescue_", root + "rescue_log/", "", ""),
                            FieldsAre(false, 5, 0, "QVota_", root + "ota_log/", "", ""),
                            FieldsAre(true, 5, 0, "QVpanic_", root + "panic_log/", "", "")));
}

TEST_F(LogtreeTest, KeepsTenBootLogsAsArchives) {
    write_file(kLastDump, "panic_log_x");  // dates panic logs only
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(0, prepare_type_log_and_dir(0));
        clean_type_log_and_dir(0);
    }
    EXPECT_THAT(entries_in("/mnt/vendor/qv_log/boot_log"),
                AllOf(SizeIs(10), Each(AllOf(EndsWith(".tar.gz"), Not(HasSubstr("_x")))),
                      Contains(StartsWith("QVboot_2_"))));
}

TEST_F(LogtreeTest, CutsACopyCommandAt511Characters) {
    write_file(kLastDump, "panic_x");
    log_type_table[4].new_log_path = std::string(600, '/');
    copy_panic_log(4);
    EXPECT_THAT(log(),
                ElementsAre(AllOf(StartsWith(kCopyRecord + "cp /data/vendor/minidump/panic_x/* //"),
                                  SizeIs(kCopyRecord.size() + 511))));
}

TEST_F(LogtreeTest, WarnsOfADefaultCopyCommandOf512Characters) {
    log_type_table[4].new_log_path = std::string(512 - kCopyPanicLog.size(), '/');
    copy_panic_log(4);
    EXPECT_THAT(log(), ElementsAre(AllOf(StartsWith("W " + kCopyPanicLog),
                                         EndsWith("// exceed 512 length, using default path")),
                                   AllOf(StartsWith(kCopyRecord +
                                                    "cp -r /data/vendor/minidump/panic_log/* //"),
                                         SizeIs(kCopyRecord.size() + 511))));
}
