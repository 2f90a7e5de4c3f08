#include <chrono>

#include "common/run_values.h"
#include "device_fixture.h"
#include "staging/folder_limit.h"
#include "staging/upload_files.h"
#include "staging/work_place.h"

using namespace testing;

using StagingTest = DeviceTest;

TEST_F(StagingTest, RemovesIntermediateFilesAndReportsFailures) {
    make_entries(kMinidumpDir, {"header.img", "minidump.bin", "tmp/region", "aop_dump/region",
                                "aop_dump/d/", "aop_dump/.hidden", "minidump_1"});
    replace_tool("rm", "toybox rm \"$@\"; exit 1");  // removes, but fails
    work_place_cleanup();
    EXPECT_THAT(entries_in(kMinidumpDir),
                ElementsAre("aop_dump/", "aop_dump/.hidden", "minidump_1"));
    EXPECT_THAT(log(), ElementsAre("I Failed: rm -rf /data/vendor/minidump/tmp",
                                   "I Failed: rm -rf /data/vendor/minidump/header.img",
                                   "I Failed: rm -rf /data/vendor/minidump/minidump.bin",
                                   "I Failed: rm -rf /data/vendor/minidump/aop_dump/*"));
}

TEST_F(StagingTest, EmptiesAPanicDirectoryOrThrows) {
    make_entries(panic_log_dir, {"last_kmsg.txt", "empty/"});
    EXPECT_EQ(0, create_panic_folder());
    EXPECT_THAT(entries_in(panic_log_dir), IsEmpty());
    EXPECT_THAT(log(), ElementsAre("I Folder already exists: /data/vendor/minidump/panic_log"));
    make_entries(panic_log_dir, {"directory/file"});
    EXPECT_THROW(create_panic_folder(), fs::filesystem_error);
}

TEST_F(StagingTest, StagesNothingWithoutAPanicDirectory) {
    write_file(panic_log_dir, "a plain file");
    EXPECT_EQ(-1, copy_upload_files());
    EXPECT_THAT(log(), ElementsAre("I Failed to create folder: /data/vendor/minidump/panic_log",
                                   "I Failed create_panic_folder(), stop copy_upload_files()"));
}

TEST_F(StagingTest, CopiesExactlyTheSelectionInItsOrder) {
    const Lines selection = {
            "dump_info.txt",       "md_TZ_DIAG.BIN",  "md_MSGRAM0.BIN",      "md_MSGRAM1.BIN",
            "md_MSGRAM2.BIN",      "md_MSGRAM3.BIN",  "md_MSGRAM4.BIN",      "md_MSGRAM5.BIN",
            "md_MSGRAM6.BIN",      "md_MSGRAM7.BIN",  "md_MSGRAM8.BIN",      "md_MSGRAM9.BIN",
            "md_MSGRAM10.BIN",     "md_MSGRAM11.BIN", "md_MSGRAM12.BIN",     "md_MSGRAM13.BIN",
            "md_MSGRAM14.BIN",     "md_MSGRAM15.BIN", "md_CODERAM.BIN",      "md_DATARAM.BIN",
            "md_XBL_LOG.BIN",      "md_UEFI_LOG.BIN", "md_encr_key_aes.BIN", "md_encr_key_iv.BIN",
            "md_encr_key_mac.BIN", "md_SHRDIMEM.BIN", "md_MEMDUMP.BIN",      "load.cmm"};
    Lines copied;
    for (const std::string& name : selection) {
        copied.push_back("I Copied file: \"" + name + "\"");
    }
    work_dir = "/data/other";
    make_entries(work_dir + "/tmp", selection);
    make_entries(work_dir + "/tmp", {"load.cmm.old", "xload.cmm", "load.cm", "md_MSGRAM16.BIN"});
    fs::rename(work_dir + "/tmp/load.cmm", "/data/load.cmm");
    fs::create_symlink("/data/load.cmm", work_dir + "/tmp/load.cmm");
    write_file(work_dir + "/aop_dump/load.cmm", "an older and longer file");
    EXPECT_EQ(0, copy_upload_files());
    EXPECT_EQ(fs::perms(0770), fs::status(panic_log_dir).permissions());
    EXPECT_THAT(entries_in(work_dir + "/aop_dump"), UnorderedElementsAreArray(selection));
    EXPECT_EQ("load.cmm", read_file(work_dir + "/aop_dump/load.cmm"));
    const Lines records = log();  // two before the copies, and two after them
    EXPECT_EQ(copied, Lines(records.begin() + 2, records.end() - 2));
    EXPECT_EQ(1, copyFilesWithMatchingName("/data/missing", "/data", "a"));
    EXPECT_THAT(log().back(), StartsWith("I Filesystem error: "));
}

TEST_F(StagingTest, DeletesThePanicDirectoriesModifiedFirst) {
    const Lines oldest_first = {"old_panic_log", "panic_lo",   "last_kms",
                                "panic_log_9",   "last_kmsg2", "panic_log"};
    auto time = fs::file_time_type::clock::now();
    for (const std::string& name : oldest_first) {
        make_entries("/data/" + name, {"file"});
        time += std::chrono::milliseconds(1);
        fs::last_write_time("/data/" + name, time);
    }
    write_file("/data/panic_log_file", "");
    fs::create_symlink("old_panic_log", "/data/panic_log_link");
    internal::CaptureStdout();
    LimitFolderNum("/data", 1);
    EXPECT_EQ(
            "Deleted directory: \"/data/panic_log_link\"\n"
            "Deleted directory: \"/data/panic_log_9\"\n"
            "Deleted directory: \"/data/last_kmsg2\"\n",
            internal::GetCapturedStdout());
    EXPECT_FALSE(fs::exists("/data/panic_log_9"));
}

TEST_F(StagingTest, ThrowsWhenItCannotDeleteButReportsThatThereIsNoDirectory) {
    make_entries("/data", {"panic_log/"});
    shell("mount -t tmpfs test /data/panic_log");
    EXPECT_THROW(LimitFolderNum("/data", 0), fs::filesystem_error);
    write_file("/data/file", "");
    internal::CaptureStderr();
    LimitFolderNum("/data/file", 0);
    EXPECT_EQ("Path is not a directory or does not exist: \"/data/file\"\n",
              internal::GetCapturedStderr());
}
