#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "driver/run_values.h"
#include "staging/folder_limit.h"
#include "staging/upload_files.h"
#include "staging/work_place.h"
#include "support.h"

namespace fs = std::filesystem;

namespace {

const std::string kPanic = kPlace + "/panic_log_T";
const std::string kRegions = kPlace + "/tmp/";
const std::string kSelection = kPlace + "/aop_dump";

class StagingTest : public DeviceTest {
  protected:
    void SetUp() override {
        DeviceTest::SetUp();
        panic_log_dir = kPanic;
    }
};

}  // namespace

TEST_F(StagingTest, MakesThePanicFolderOrEmptiesIt) {
    EXPECT_EQ(0, create_panic_folder());
    EXPECT_EQ(0770U, mode(kPanic));
    for (const char* file : {"last_kmsg.txt", "aop_dump.tar.gz", ".hidden"}) {
        write_file(kPanic + "/" + file);
    }
    fs::create_directory(kPanic + "/empty");
    fs::create_symlink("/data/missing", kPanic + "/link");
    EXPECT_EQ(0, create_panic_folder());
    EXPECT_EQ(Lines(), tree(kPanic));

    write_file(kPanic + "/folder/file");
    EXPECT_THROW(create_panic_folder(), fs::filesystem_error);
    EXPECT_TRUE(fs::exists(kPanic + "/folder/file"));

    fs::remove_all(kPanic);
    write_file(kPanic, "not a folder");
    EXPECT_EQ(1, create_panic_folder());
    fs::remove_all(kPlace);
    EXPECT_EQ(1, create_panic_folder());
    EXPECT_FALSE(fs::exists(kPlace));
    EXPECT_EQ((Lines{"I Created folder: " + kPanic, "I Folder already exists: " + kPanic,
                     "I Folder already exists: " + kPanic, "I Failed to create folder: " + kPanic,
                     "I Failed to create folder: " + kPanic}),
              log_records());
}

TEST_F(StagingTest, RemovesIntermediateFilesOfTheFixedFolderOnly) {
    for (const std::string& folder : {kPlace, std::string("/data/other")}) {
        for (const char* file : {"header.img", "minidump.bin", "tmp/region", "aop_dump/region",
                                 "aop_dump/folder/file", "aop_dump/.hidden", "minidump_1"}) {
            write_file(folder + "/" + file);
        }
    }
    work_dir = "/data/other";
    const Lines other = tree(work_dir);
    work_place_cleanup();
    work_place_cleanup();  // nothing left to remove, and no failure
    EXPECT_EQ((Lines{"aop_dump/", "aop_dump/.hidden", "minidump_1"}), tree(kPlace));
    EXPECT_EQ(other, tree(work_dir));
    EXPECT_EQ(Lines(), log_records());

    replace_tool("rm", "false");
    work_place_cleanup();
    EXPECT_EQ((Lines{"I Failed: rm -rf /data/vendor/minidump/tmp",
                     "I Failed: rm -rf /data/vendor/minidump/header.img",
                     "I Failed: rm -rf /data/vendor/minidump/minidump.bin",
                     "I Failed: rm -rf /data/vendor/minidump/aop_dump/*"}),
              log_records());
}

TEST_F(StagingTest, CopiesTheFileOfExactlyThatName) {
    for (const char* name : {"a.BIN.old", "xa.BIN", "a.bin", "a.BI", "quo\"te"}) {
        write_file(kRegions + name, name);
    }
    fs::create_directory(kRegions + "folder.BIN");
    fs::create_symlink(kRegions + "a.bin", kRegions + "link.BIN");
    fs::create_symlink("/data/missing", kRegions + "dangling.BIN");
    for (const char* name : {"a.BIN", "folder.BIN", "dangling.BIN", "missing", ""}) {
        EXPECT_EQ(1, copyFilesWithMatchingName(kRegions, kSelection, name)) << name;
    }
    EXPECT_EQ(Lines(), tree(kSelection));
    EXPECT_EQ(Lines(), log_records());

    write_file(kRegions + "a.BIN", "new");
    write_file(kSelection + "/a.BIN", "old and longer");
    for (const char* name : {"a.BIN", "link.BIN", "quo\"te"}) {
        EXPECT_EQ(0, copyFilesWithMatchingName(kRegions, kSelection, name)) << name;
    }
    EXPECT_EQ("new", read_file(kSelection + "/a.BIN"));
    EXPECT_EQ("a.bin", read_file(kSelection + "/link.BIN"));
    EXPECT_EQ((Lines{"I Copied file: \"a.BIN\"", "I Copied file: \"link.BIN\"",
                     "I Copied file: \"quo\\\"te\""}),
              log_records());

    EXPECT_EQ(1, copyFilesWithMatchingName("/data/missing", kSelection, "a.BIN"));
    EXPECT_EQ(1, copyFilesWithMatchingName(kRegions, "/data/missing", "a.BIN"));
    const Lines log = log_records();
    ASSERT_EQ(5U, log.size());
    EXPECT_EQ(0U, log[3].find("I Filesystem error: "));
    EXPECT_EQ(0U, log[4].find("I Filesystem error: "));
}

TEST_F(StagingTest, StagesConsoleTextAndTheSelection) {
    Lines selection = {"dump_info.txt", "md_TZ_DIAG.BIN"};
    for (int i = 0; i <= 15; ++i) {
        selection.push_back("md_MSGRAM" + std::to_string(i) + ".BIN");
    }
    selection = selection + Lines{"md_CODERAM.BIN",      "md_DATARAM.BIN",
                                  "md_XBL_LOG.BIN",      "md_UEFI_LOG.BIN",
                                  "md_encr_key_aes.BIN", "md_encr_key_iv.BIN",
                                  "md_encr_key_mac.BIN", "md_SHRDIMEM.BIN",
                                  "md_MEMDUMP.BIN",      "load.cmm"};
    ASSERT_EQ(28U, selection.size());
    const Lines others = {"md_MSGRAM16.BIN", "md_MSGRAM1.BIN.old", "md_MSGRAM01.BIN",
                          "load.cm",         "md_CPU_CTX0.BIN",    "MD_RESTARTINFO.BIN"};
    for (const std::string& name : selection + others) {
        write_file(kRegions + name, name);
    }
    write_file(kRegions + "md_KCONSOLE.BIN", std::string("\0\1first line\n\0\2second\0", 21));

    EXPECT_EQ(0, copy_upload_files());
    EXPECT_EQ((Lines{"aop_dump.tar.gz", "last_kmsg.txt"}), tree(kPanic));
    EXPECT_EQ("first line\nsecond\n", read_file(kPanic + "/last_kmsg.txt"));
    Lines log = {"I Created folder: " + kPanic,
                 "I strings md_KCONSOLE.BIN and save as " + kPanic + "/last_kmsg.txt"};
    for (const std::string& name : selection) {
        log.push_back("I Copied file: \"" + name + "\"");
    }
    log = log + Lines{"I tar -zcvf " + kPanic + "/aop_dump.tar.gz -C " + kPlace + " aop_dump",
                      "I aop_dump save as " + kPanic + "/aop_dump.tar.gz"};
    EXPECT_EQ(log, log_records());
    for (std::string& name : selection) {
        EXPECT_EQ(name, read_file(kSelection + "/" + name));
        name.insert(0, "aop_dump/");
    }
    selection.push_back("aop_dump/");
    std::sort(selection.begin(), selection.end());
    EXPECT_EQ(selection, tree(unpack(kPanic + "/aop_dump.tar.gz")));
}

TEST_F(StagingTest, StagesWhatItCan) {
    const std::string tar = "I tar -zcvf " + kPanic + "/aop_dump.tar.gz -C " + kPlace + " aop_dump";
    EXPECT_EQ(0, copy_upload_files());  // no region at all
    EXPECT_EQ((Lines{"aop_dump/"}), tree(unpack(kPanic + "/aop_dump.tar.gz")));
    EXPECT_EQ((Lines{"I Created folder: " + kPanic, "I strings md_KCONSOLE.BIN save failed",
                     "I dump_info.txt copy failed", tar,
                     "I aop_dump save as " + kPanic + "/aop_dump.tar.gz"}),
              log_records());

    SetUp();
    fs::remove(kSelection);
    write_file(kRegions + "dump_info.txt");
    write_file(kRegions + "load.cmm");
    EXPECT_EQ(0, copy_upload_files());
    Lines log = log_records();
    ASSERT_EQ(7U, log.size());
    EXPECT_EQ(0U, log[2].find("I Filesystem error: "));
    EXPECT_EQ("I dump_info.txt copy failed", log[3]);
    EXPECT_EQ(0U, log[4].find("I Filesystem error: "));
    EXPECT_EQ((Lines{tar, "I aop_dump save failed"}), Lines(log.end() - 2, log.end()));

    SetUp();
    fs::remove_all(kRegions);
    EXPECT_EQ(0, copy_upload_files());
    EXPECT_EQ(2U + 28U + 1U + 2U, log_records().size());

    SetUp();
    write_file(kPanic, "not a folder");
    EXPECT_EQ(-1, copy_upload_files());
    EXPECT_EQ((Lines{"I Failed to create folder: " + kPanic,
                     "I Failed create_panic_folder(), stop copy_upload_files()"}),
              log_records());
}

TEST_F(StagingTest, KeepsTheFoldersModifiedLast) {
    const struct {
        Lines oldest_first;
        uint64_t max;
        size_t deleted;
    } cases[] = {
            {{}, 2, 0},
            {{"panic_log_1", "last_kmsg2"}, 2, 0},
            {{"panic_log_1"}, 0, 1},
            {{"panic_log_9", "panic_log_1", "last_kmsg_5"}, 2, 1},
            {{"panic_log_b", "last_kmsg", "panic_log", "panic_log_a"}, 2, 2},
    };
    for (const auto& c : cases) {
        SetUp();
        Lines left = {"old_panic_log/", "panic_lo/", "panic_log_file"};
        write_file(kScratch + "/parent/panic_log_file");
        fs::create_directory(kScratch + "/parent/old_panic_log");
        fs::create_directory(kScratch + "/parent/panic_lo");
        std::string out;
        auto time = fs::file_time_type::clock::now();
        for (size_t i = 0; i < c.oldest_first.size(); ++i) {
            const std::string folder = kScratch + "/parent/" + c.oldest_first[i];
            write_file(folder + "/sub/file");
            fs::last_write_time(folder, time += std::chrono::nanoseconds(1000000));
            if (i < c.deleted) {
                out += "Deleted directory: \"" + folder + "\"\n";
            } else {
                const std::string& name = c.oldest_first[i];
                left = left + Lines{name + "/", name + "/sub/", name + "/sub/file"};
            }
        }
        std::sort(left.begin(), left.end());
        testing::internal::CaptureStdout();
        LimitFolderNum(kScratch + "/parent", c.max);
        EXPECT_EQ(out, testing::internal::GetCapturedStdout());
        EXPECT_EQ(left, tree(kScratch + "/parent"));
    }
}

TEST_F(StagingTest, LimitsFoldersOnlyInAFolder) {
    write_file(kScratch + "/file");
    fs::create_directories(kScratch + "/parent/panic_log_1");
    fs::create_directory_symlink("/data/vendor", kScratch + "/parent/panic_log_2");
    testing::internal::CaptureStdout();
    LimitFolderNum(kScratch + "/parent", 0);  // of a link, only the link goes
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(Lines(), tree(kScratch + "/parent"));
    EXPECT_TRUE(fs::exists(kPlace));

    testing::internal::CaptureStderr();
    LimitFolderNum(kScratch + "/file", 0);
    LimitFolderNum(kScratch + "/missing", 0);
    EXPECT_EQ("Path is not a directory or does not exist: \"" + kScratch +
                      "/file\"\nPath is not a directory or does not exist: \"" + kScratch +
                      "/missing\"\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ(Lines(), log_records());
}
