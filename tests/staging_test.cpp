#include <chrono>
#include <sstream>

#include "driver/run_values.h"
#include "staging/folder_limit.h"
#include "staging/upload_files.h"
#include "staging/work_place.h"
#include "support.h"

namespace {

using StagingTest = DeviceTest;

const std::string kRegions = kPlace + "/tmp";

}  // namespace

TEST_F(StagingTest, RemovesIntermediateFilesOfTheFixedFolderOnly) {
    work_dir = "/data/other";
    for (const std::string& folder : {kPlace, work_dir}) {
        make(folder,
             "header.img minidump.bin tmp/x aop_dump/x aop_dump/y/z aop_dump/.x minidump_1");
    }
    const std::string other = files(work_dir);
    work_place_cleanup();
    work_place_cleanup();  // nothing left to remove, and no failure
    EXPECT_EQ("aop_dump/ aop_dump/.x minidump_1", files(kPlace));
    EXPECT_EQ(other, files(work_dir) + log());
    replace_tool("rm", "exit 1");
    work_place_cleanup();
    EXPECT_EQ(log(),
              "I Failed: rm -rf @/tmp; I Failed: rm -rf @/header.img; "
              "I Failed: rm -rf @/minidump.bin; I Failed: rm -rf @/aop_dump/*; ");
}

TEST_F(StagingTest, StagesConsoleTextAndTheSelection) {
    std::string selection = "dump_info.txt md_TZ_DIAG.BIN";
    for (int i = 0; i <= 15; ++i) {
        selection += " md_MSGRAM" + std::to_string(i) + ".BIN";
    }
    selection +=
            " md_CODERAM.BIN md_DATARAM.BIN md_XBL_LOG.BIN md_UEFI_LOG.BIN md_encr_key_aes.BIN"
            " md_encr_key_iv.BIN md_encr_key_mac.BIN md_SHRDIMEM.BIN md_MEMDUMP.BIN load.cmm";
    make(kRegions, selection);
    const std::string sorted = files(kRegions);
    make(kRegions, "md_MSGRAM16.BIN md_MSGRAM1.BIN.old md_MSGRAM01.BIN load.cm md_CPU_CTX0.BIN");
    fs::rename(kRegions + "/load.cmm", kScratch + "/load.cmm");
    fs::create_symlink(kScratch + "/load.cmm", kRegions + "/load.cmm");
    write_file(kPlace + "/aop_dump/load.cmm", "old and longer");
    write_file(kRegions + "/md_KCONSOLE.BIN", std::string("\0\1first line\n\0\2second\0", 21));
    panic_log_dir = kPlace + "/panic_log_X";
    EXPECT_EQ(0, copy_upload_files());
    EXPECT_EQ(fs::perms(0770), fs::status(panic_log_dir).permissions());
    replace_all(selection, " ", "\"; I Copied file: \"");
    const std::string archive = "@/panic_log_X/aop_dump.tar.gz";
    EXPECT_EQ(log(),
              "I Created folder: @/panic_log_X; I strings md_KCONSOLE.BIN and save as "
              "@/panic_log_X/last_kmsg.txt; I Copied file: \"" +
                      selection + "\"; I tar -zcvf " + archive +
                      " -C @ aop_dump; I aop_dump save as " + archive + "; ");
    EXPECT_EQ("first line\nsecond\n", read_file(panic_log_dir + "/last_kmsg.txt"));
    const std::string unpacked = unpack(panic_log_dir + "/aop_dump.tar.gz") + "/aop_dump";
    EXPECT_EQ(sorted, files(unpacked));
    EXPECT_EQ("load.cmm", read_file(unpacked + "/load.cmm"));

    fs::remove(kRegions + "/dump_info.txt");  // a region that is a folder, parts of names
    make(kRegions, "quo\"te dump_info.txt/");
    for (const char* name : {"dump_info.txt", "md_MSGRAM1.BI", "d_MSGRAM1.BIN"}) {
        EXPECT_EQ(1, copyFilesWithMatchingName(kRegions, kPlace + "/aop_dump", name));
    }
    EXPECT_EQ(0, copyFilesWithMatchingName(kRegions, kPlace + "/aop_dump", "quo\"te"));
    EXPECT_EQ("I Copied file: \"quo\\\"te\"; ", log());
}

TEST_F(StagingTest, KeepsTheFoldersModifiedLast) {
    const std::string parent = kScratch + "/parent";
    const auto limit = [&](const std::string& oldest_first, uint64_t max) {
        fs::remove_all(parent);
        make(parent, "old_panic_log/ panic_lo/ panic_log_file");
        std::istringstream names(oldest_first);
        auto time = fs::file_time_type::clock::now();
        for (std::string name; names >> name;) {
            make(parent, name + "/f");
            fs::last_write_time(parent + "/" + name, time += std::chrono::milliseconds(1));
        }
        testing::internal::CaptureStdout();
        LimitFolderNum(parent, max);
        std::string out = testing::internal::GetCapturedStdout() + files(parent);
        replace_all(out, parent, "$");
        return out;
    };
    EXPECT_EQ(limit("panic_log_1", 1),
              "old_panic_log/ panic_lo/ panic_log_1/ panic_log_1/f panic_log_file");
    EXPECT_EQ(limit("panic_log_9 panic_log", 1),
              "Deleted directory: \"$/panic_log_9\"\n"
              "old_panic_log/ panic_lo/ panic_log/ panic_log/f panic_log_file");
    EXPECT_EQ(limit("panic_log_b last_kmsg_", 0),
              "Deleted directory: \"$/panic_log_b\"\n"
              "Deleted directory: \"$/last_kmsg_\"\nold_panic_log/ panic_lo/ panic_log_file");
    testing::internal::CaptureStderr();
    LimitFolderNum(parent + "/panic_log_file", 0);
    LimitFolderNum("/x", 0);
    std::string err = testing::internal::GetCapturedStderr();
    replace_all(err, "Path is not a directory or does not exist: ", "");
    EXPECT_EQ("\"" + parent + "/panic_log_file\"\n\"/x\"\n", err);
}
