#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>

#include "driver/timestamp.h"
#include "logtree/log_types.h"
#include "logtree/panic_log.h"
#include "logtree/retention.h"
#include "logtree/type_log.h"
#include "support.h"

namespace fs = std::filesystem;

namespace {

const std::string kRoot = "/mnt/vendor/qv_log/";
const std::string kPanicDir = kRoot + "panic_log/";
const std::string kLastDump = "vendor.qv_dump.last_dump";
const std::string kLastPanicLog = "set vendor.qv_dump.last_panic_log=";

class LogtreeTest : public DeviceTest {
  protected:
    void SetUp() override {
        DeviceTest::SetUp();
        static const auto initial_table = log_type_table;
        log_type_table = initial_table;
        fs::create_directories(kPanicDir);
    }
};

// Makes each name an entry of the panic type's directory: an archive, or a directory with a file.
void fill_panic_dir(const Lines& names) {
    for (const std::string& name : names) {
        write_file(kPanicDir + name + (name.find(".tar.gz") == std::string::npos ? "/file" : ""));
    }
}

// The text of an error code: the category's name is the C++ library's own.
bool ends_in_error(const std::string& line, const std::string& before, int code) {
    return line == before + "generic:" + std::to_string(code) ||
           line == before + "system:" + std::to_string(code);
}

}  // namespace

TEST_F(LogtreeTest, HoldsTheTableOfTypes) {
    const struct {
        std::string name, label, prefix;
        bool flag;
        uint32_t max;
    } types[] = {{"boot", "[Boot]", "QVboot_", false, 10},
                 {"crash", "[Crash]", "QVcrash_", true, 5},
                 {"rescue", "[Rescue]", "QVrescue_", true, 5},
                 {"ota", "[Ota]", "QVota_", false, 5},
                 {"panic", "[Panic]", "QVpanic_", true, 5}};
    EXPECT_EQ(kRoot, qv_log_root);
    for (core_log_type type = 0; type < 5; ++type) {
        const LogTypeEntry& entry = log_type_table[type];
        EXPECT_EQ(types[type].name, log_type_name[type]);
        EXPECT_EQ(types[type].label, log_type_label[type]);
        EXPECT_EQ(types[type].prefix, log_type_prefix[type]);
        EXPECT_EQ(types[type].prefix, entry.prefix);
        EXPECT_EQ(types[type].flag, entry.flag);
        EXPECT_EQ(types[type].max, entry.max_log_count);
        EXPECT_EQ(0, entry.new_log_count);
        EXPECT_EQ(kRoot + types[type].name + "_log/", entry.log_dir);
        EXPECT_EQ("", entry.new_log_path + entry.new_log_path_no_sign);
    }
}

TEST_F(LogtreeTest, RejectsATypeBeyondTheTable) {
    EXPECT_EQ(-22, create_type_new_qv_log_dir(5));
    EXPECT_EQ(-22, prepare_type_log_and_dir(5));
    clean_type_log_and_dir(4294967295);
    copy_panic_log(6);
    EXPECT_EQ((Lines{"E create_type_new_qv_log_dir: error core_log_type: 5",
                     "E prepare_type_log_and_dir: error core_log_type: 5",
                     "E clean_type_log_and_dir: error core_log_type: 4294967295",
                     "E copy_panic_log: error core_log_type: 6"}),
              log_records());
}

TEST_F(LogtreeTest, MakesDirectoriesForOwnerAndGroup) {
    umask(0077);
    EXPECT_EQ(0, qv_create_dir_str(kRoot + "a/b/"));
    EXPECT_EQ(0770U, mode(kRoot + "a/b"));
    fs::permissions(kRoot + "a", fs::perms(0705));
    EXPECT_EQ(0, qv_create_dir_str(kRoot + "a"));
    EXPECT_EQ(0770U, mode(kRoot + "a"));
    write_file(kRoot + "file");
    EXPECT_EQ(0, qv_create_dir_str(kRoot + "file"));  // something is there: that is all it asks
    EXPECT_EQ(1, qv_create_dir_str(kRoot + "file/sub"));
    const Lines log = log_records();
    EXPECT_EQ((Lines{"I is create: " + kRoot + "a/b/", "I is create: " + kRoot + "a",
                     "I is create: " + kRoot + "file"}),
              Lines(log.begin(), log.end() - 1));
    EXPECT_TRUE(ends_in_error(log.back(), "I Cannot create: " + kRoot + "file/sub err", ENOTDIR))
            << log.back();
    chang_to_qv_log_mod(kRoot + "missing");
}

TEST_F(LogtreeTest, DatesAPanicLogFromThePanicFolder) {
    const struct {
        std::string property, time;  // an empty time: the clock's
    } cases[] = {{"panic_log_2024-03-05-17-08-09", "2024-03-05-17-08-09"},
                 {"", "log"},
                 {"a_b_c", "c"},
                 {"panic_", ""},
                 {"panic", ""}};
    for (const auto& c : cases) {
        SetUp();
        set_property(kLastDump, c.property);
        log_type_table[4].new_log_count = 12;
        testing::internal::CaptureStdout();
        const std::string before = GetCurrentTimestamp();
        EXPECT_EQ(0, create_type_new_qv_log_dir(4));
        EXPECT_EQ(c.time.empty() ? "" : "Extracted date and time: " + c.time + "\n",
                  testing::internal::GetCapturedStdout());
        const std::string& path = log_type_table[4].new_log_path_no_sign;
        const std::string stem = kPanicDir + "QVpanic_12_";
        if (c.time.empty()) {
            EXPECT_LE(stem + before, path);
            EXPECT_GE(stem + GetCurrentTimestamp(), path);
        } else {
            EXPECT_EQ(stem + c.time, path);
        }
        EXPECT_EQ(path + "/", log_type_table[4].new_log_path);
        EXPECT_EQ(0770U, mode(path));
        EXPECT_EQ((Lines{"I [Panic]create_type_new_qv_log_dir: new_log_path: " + path + "/",
                         "I is create: " + path + "/"}),
                  log_records());
    }
    set_property(kLastDump, "panic_log_elsewhen");
    EXPECT_EQ(0, create_type_new_qv_log_dir(2));
    EXPECT_EQ(0U, log_type_table[2].new_log_path.find(kRoot + "rescue_log/QVrescue_0_" +
                                                      GetCurrentTimestamp().substr(0, 10)));
}

TEST_F(LogtreeTest, ReadsTheNumberBackFromAName) {
    const struct {
        std::string name;
        int64_t number;
        int pieces;
    } cases[] = {{"QVpanic_12_2024-03-05-17-08-09", 12, 3},
                 {"QVpanic_012_t.tar.gz", 12, 3},
                 {"QVpanic_9223372036854775807_t", 9223372036854775807, 3},
                 {"_7_", 7, 3},
                 {"QVpanic_3_a_b", -1, 4},
                 {"QVpanic_3_a_", -1, 4},
                 {"QVpanic_x_2024", -1, 3},
                 {"QVpanic_-1_t", -1, 3},
                 {"QVpanic_3", -1, 2},
                 {"", -1, 1}};
    for (const auto& c : cases) {
        const size_t records = log_records().size();
        EXPECT_EQ(c.number, get_boot_count_by_file_name(c.name)) << c.name;
        const Lines log = log_records();
        EXPECT_EQ(c.number < 0 ? Lines{"E error file name " + c.name + " ret.size() " +
                                       std::to_string(c.pieces)}
                               : Lines(),
                  Lines(log.begin() + static_cast<std::ptrdiff_t>(records), log.end()));
    }
    EXPECT_THROW(get_boot_count_by_file_name("QVpanic__t"), std::invalid_argument);
    EXPECT_THROW(get_boot_count_by_file_name("QVpanic_9223372036854775808_t"), std::out_of_range);
}

TEST_F(LogtreeTest, CountsOnFromTheLargestNumber) {
    EXPECT_EQ(0, get_new_qv_log_count(kPanicDir, "QVpanic_"));
    fill_panic_dir({"QVpanic_9_t.tar.gz", "QVpanic_10_t", "QVpanic_11_a_b", "QVboot_99_t", ".x"});
    EXPECT_EQ(11, get_new_qv_log_count(kPanicDir, "QVpanic_"));
    Lines log = log_records();
    std::sort(log.begin(), log.end());
    EXPECT_EQ((Lines{"E error file name QVpanic_11_a_b ret.size() 4", "E find file :.x",
                     "E find file :QVboot_99_t", "E find file :QVpanic_10_t",
                     "E find file :QVpanic_9_t.tar.gz"}),
              log);
    fs::remove(kPanicDir + ".x/file");
    fs::remove(kPanicDir + ".x");
    EXPECT_EQ(100, get_new_qv_log_count(kPanicDir, ""));
    EXPECT_THROW(get_new_qv_log_count(kRoot + "missing/", ""), fs::filesystem_error);
}

TEST_F(LogtreeTest, PrunesOldLogsAndTrashAndPacksTheRest) {
    fill_panic_dir({"QVpanic_2_t.tar.gz", "QVpanic_2_t", "QVpanic_3_t", "QVpanic_3_u.tar.gz",
                    "QVpanic_4_t.tar.gz", "QVpanic_4_target", "QVpanic_5_t", "QVpanic_9_t",
                    "QVpanic_x_t", "QVpanic_9_a_b.tar.gz", "QVboot_9_t", "qvpanic_9_t", ".trash"});
    write_file(kPanicDir + "QVpanic_9_t/data", "data");
    EXPECT_FALSE(remove_old_and_trash_file(8, kPanicDir, "QVpanic_", 5));
    EXPECT_EQ((Lines{".trash/", ".trash/file", "QVpanic_4_t.tar.gz", "QVpanic_4_target/",
                     "QVpanic_4_target/file", "QVpanic_5_t.tar.gz", "QVpanic_9_t.tar.gz"}),
              tree(kPanicDir));
    EXPECT_EQ("data", read_file(unpack(kPanicDir + "QVpanic_9_t.tar.gz") + "/QVpanic_9_t/data"));
    Lines names = journal();
    std::sort(names.begin(), names.end());
    EXPECT_EQ((Lines{kLastPanicLog + "QVpanic_5_t", kLastPanicLog + "QVpanic_9_t"}), names);
    EXPECT_EQ(0770U, mode(kPanicDir + "QVpanic_5_t.tar.gz"));

    for (const char* name : {"QVpanic_1_t", "trash"}) {  // a removal that fails stops the walk
        SetUp();
        fs::create_directory(kPanicDir + name);
        const Mount busy(kPanicDir + name);
        EXPECT_TRUE(remove_old_and_trash_file(8, kPanicDir, "QVpanic_", 5));
        ASSERT_EQ(1U, log_records().size());
        EXPECT_TRUE(ends_in_error(log_records()[0], "E remove failed: " + kPanicDir + name, EBUSY));
    }
}

TEST_F(LogtreeTest, RemovesAnything) {
    write_file(kRoot + "folder/sub/file");
    EXPECT_EQ(0, QVRemoveFile(kRoot + "folder"));
    EXPECT_EQ(0, QVRemoveFile(kRoot + "folder"));
    EXPECT_EQ((Lines{"panic_log/"}), tree(kRoot));
    EXPECT_EQ((Lines{"E remove pass: " + kRoot + "folder",
                     "E remove file not exist: " + kRoot + "folder"}),
              log_records());
}

TEST_F(LogtreeTest, PacksADirectoryBesideItself) {
    const std::string log = kPanicDir + "QVpanic_1_t";
    const std::string tar = "I tar -zcvf " + log + ".tar.gz -C " + kRoot + "panic_log QVpanic_1_t";
    const Lines success = {tar, "I ", "I " + log + " save as " + log + ".tar.gz", "I "};
    write_file(log + "/file");
    EXPECT_EQ(0, tar_and_delete_dir(log, false));
    EXPECT_EQ(success, log_records());
    EXPECT_TRUE(fs::exists(log + "/file"));
    EXPECT_EQ(0, tar_and_delete_dir(log, true));
    EXPECT_EQ((success + success + Lines{"E remove pass: " + log}), log_records());
    EXPECT_EQ((Lines{"QVpanic_1_t.tar.gz"}), tree(kPanicDir));
    EXPECT_EQ(0770U, mode(log + ".tar.gz"));

    SetUp();
    write_file(log + "/file");
    replace_tool("tar", "cat /dev/__properties__/vendor.qv_dump.last_panic_log > " + kScratch +
                                "/seen_by_tar; false");
    EXPECT_EQ(0, tar_and_delete_dir(log, true));
    EXPECT_EQ((Lines{tar, "I ", "I " + kRoot + "panic_log save failed", "I ",
                     "E remove pass: " + log}),
              log_records());
    EXPECT_EQ(Lines(), tree(kPanicDir));
    EXPECT_EQ("QVpanic_1_t", read_file(kScratch + "/seen_by_tar"));
}

TEST_F(LogtreeTest, KeepsEachTypeAtItsLimit) {
    set_property(kLastDump, "panic_log_t");
    fs::remove_all(kRoot);
    for (core_log_type type = 0; type < kLogTypeCount; ++type) {
        const LogTypeEntry& entry = log_type_table[type];
        for (int64_t i = 0; i < 12; ++i) {
            EXPECT_EQ(0, prepare_type_log_and_dir(type));
            EXPECT_EQ(i, entry.new_log_count);
            write_file(entry.new_log_path + "file");
            clean_type_log_and_dir(type);
        }
        Lines numbers;
        for (const std::string& name : tree(entry.log_dir)) {
            numbers.push_back(name.substr(entry.prefix.size(), 2) +
                              (name.find(".tar.gz") == std::string::npos ? " kept" : ""));
        }
        const Lines fives = {"10", "11", "7_", "8_", "9_"};
        const Lines tens = {"10", "11", "2_", "3_", "4_", "5_", "6_", "7_", "8_", "9_"};
        const Lines panic = {"10", "11", "11 kept", "11 kept", "7_", "8_", "9_"};
        const Lines& expected = type == 0 ? tens : type == 4 ? panic : fives;
        std::sort(numbers.begin(), numbers.end());
        EXPECT_EQ(expected, numbers) << type;
        EXPECT_EQ(0770U, mode(entry.log_dir));
    }
}

TEST_F(LogtreeTest, ReportsTheStepOfPreparationThatFailed) {
    const std::string operation = "E [Panic]prepare_type_log_and_dir: ";
    const std::string result = "E [Panic]copy_to_qv_log: prepare_type_log_dir failed, result: -1";
    fs::remove(kPanicDir);
    write_file(kRoot + "panic_log");
    copy_to_qv_log();
    Lines log = log_records();
    ASSERT_EQ(3U, log.size());
    EXPECT_EQ((Lines{operation + "qv_create_dir_str fail create: " + kPanicDir, result}),
              Lines(log.begin() + 1, log.end()));

    SetUp();
    fs::create_directory(kPanicDir + "trash");
    {
        const Mount busy(kPanicDir + "trash");
        copy_to_qv_log();
    }
    log = log_records();
    ASSERT_EQ(6U, log.size());
    EXPECT_EQ(operation + "new_log_count: 0", log[2]);
    EXPECT_EQ((Lines{operation + "remove_old_and_trash_file failed!, prefix: QVpanic_ "
                                 ",new_log_count: 0",
                     result}),
              Lines(log.end() - 2, log.end()));

    SetUp();
    set_property(kLastDump, "_" + std::string(80, 'x') + "/missing/../y");
    write_file(kPanicDir + ".hidden");
    replace_tool("cp", "touch " + kScratch + "/copied");
    log_type_table[4].prefix = std::string(200, 'p');
    copy_to_qv_log();  // the new directory's name is too long
    log = log_records();
    EXPECT_EQ((Lines{operation + "create_new_qv_log_dir failed!", result}),
              Lines(log.end() - 2, log.end()));
    EXPECT_FALSE(fs::exists(kScratch + "/copied"));
    EXPECT_EQ(Lines(), journal());
}

TEST_F(LogtreeTest, NeedsAnOpenLogToCopyAndClean) {
    copy_panic_log(1);
    clean_type_log_and_dir(4);
    EXPECT_EQ((Lines{"E [Crash]copy_panic_log: new_log_path not exist!",
                     "E [Panic]clean_type_log_and_dir: new_log_path_no_sign not exist!"}),
              log_records());
    EXPECT_EQ(Lines(), tree(kPanicDir));
}

TEST_F(LogtreeTest, CutsALongCommandOrTakesTheDefaultFolder) {
    const struct {
        std::string folder;
        size_t length;
        bool fallback;
    } cases[] = {{"", 511, false},
                 {"", 512, true},
                 {"panic_log", 600, true},
                 {"panic_other", 511, false},
                 {"panic_other", 512, false},
                 {"panic_other", 600, false}};
    for (const auto& c : cases) {
        SetUp();
        set_property(kLastDump, c.folder);
        const std::string folder = c.folder.empty() ? "panic_log" : c.folder;
        write_file(kPlace + "/" + folder + "/file");
        write_file(kPlace + "/" + folder + "/sub/file");
        const std::string copy = "cp " + kPlace + "/" + folder + "/* ";
        std::string target = kRoot;
        target.resize(200, 'a');
        target += "/";
        target.resize(400, 'b');
        target += "/";
        target.resize(c.length - copy.size(), 'c');
        const std::string run = c.fallback ? "cp -r " + kPlace + "/panic_log/* " + target
                                           : (copy + target).substr(0, 511);
        fs::create_directories(run.substr(run.find("/mnt")));
        log_type_table[4].new_log_path = target;
        copy_panic_log(4);
        Lines log;
        if (c.fallback) {
            log.push_back("W " + copy + target + " exceed 512 length, using default path");
        }
        log.push_back("I [Panic]copy_panic_log: " + run.substr(0, 511));
        EXPECT_EQ(log, log_records());
        if (run.size() < 512) {
            EXPECT_EQ((Lines{"file"}), tree(run.substr(run.find("/mnt"))));
        }
    }
}
