#include <sys/stat.h>

#include <sstream>
#include <stdexcept>

#include "driver/timestamp.h"
#include "logtree/log_types.h"
#include "logtree/panic_log.h"
#include "logtree/retention.h"
#include "logtree/type_log.h"
#include "support.h"

namespace {

const std::string kDir = kPanicTree + "/";
const std::string kLastDump = kProperties + "vendor.qv_dump.last_dump";

class LogtreeTest : public DeviceTest {
  protected:
    void SetUp() override {
        DeviceTest::SetUp();
        static const auto initial_table = log_type_table;
        log_type_table = initial_table;
        fs::create_directories(kDir);
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
    EXPECT_EQ(expected("bad_types.txt"), log());
}

TEST_F(LogtreeTest, MakesDirectoriesForOwnerAndGroup) {
    umask(0077);
    EXPECT_EQ(0, qv_create_dir_str(kDir + "a/"));
    fs::permissions(kDir + "a", fs::perms(0705));
    EXPECT_EQ(0, qv_create_dir_str(kDir + "a"));
    EXPECT_EQ(fs::perms(0770), fs::status(kDir + "a").permissions());
    make(kDir, "file");
    EXPECT_EQ(0, qv_create_dir_str(kDir + "file"));  // something is there: that is all it asks
    EXPECT_EQ(1, qv_create_dir_str(kDir + "file/sub"));
    EXPECT_EQ(log(),
              "I is create: %/a/; I is create: %/a; I is create: %/file; "
              "I Cannot create: %/file/sub errgeneric:20; ");
}

TEST_F(LogtreeTest, DatesAPanicLogFromThePanicFolder) {
    const std::string now = GetCurrentTimestamp().substr(0, 13);
    const std::pair<std::string, std::string> cases[] = {
            {"", "log"}, {"a_b_c", "c"}, {"panic_", now}, {"panic", now}};
    for (const auto& [property, time] : cases) {
        SetUp();
        write_file(kLastDump, property);
        EXPECT_EQ(0, create_type_new_qv_log_dir(4));
        const std::string name = files(kDir);
        EXPECT_EQ(0U, name.find("QVpanic_0_" + time));
        EXPECT_EQ(log(), "I [Panic]create_type_new_qv_log_dir: new_log_path: %/" + name +
                                 "; I is create: %/" + name + "; ");
    }
}

TEST_F(LogtreeTest, ReadsTheNumberBackFromAName) {
    EXPECT_EQ(12, get_boot_count_by_file_name("QVpanic_012_2024-03-05-17-08-09.tar.gz"));
    EXPECT_EQ(INT64_MAX, get_boot_count_by_file_name("_9223372036854775807_"));
    EXPECT_EQ(-3, get_boot_count_by_file_name("a_3_b_") + get_boot_count_by_file_name("a_x3_b") +
                          get_boot_count_by_file_name("a_3"));
    EXPECT_EQ(log(),
              "E error file name a_3_b_ ret.size() 4; E error file name a_x3_b ret.size() 3; "
              "E error file name a_3 ret.size() 2; ");
    EXPECT_THROW(get_boot_count_by_file_name("QVpanic__t"), std::invalid_argument);
    EXPECT_THROW(get_boot_count_by_file_name("QVpanic_9223372036854775808_t"), std::out_of_range);
}

TEST_F(LogtreeTest, CountsOnFromTheLargestNumber) {
    EXPECT_EQ(0, get_new_qv_log_count(kDir, "QVpanic_"));
    make(kDir, "QVpanic_9_t.tar.gz QVpanic_10_t/ QVpanic_11_a_b/ QVboot_99_t .x");
    EXPECT_EQ(11, get_new_qv_log_count(kDir, "QVpanic_"));
    std::string records = log();
    for (const std::string name : {".x", "QVboot_99_t", "QVpanic_10_t", "QVpanic_9_t.tar.gz"}) {
        EXPECT_TRUE(has(records, "E find file :" + name + "; "));
        replace_all(records, "E find file :" + name + "; ", "");
    }
    EXPECT_EQ("E error file name QVpanic_11_a_b ret.size() 4; ", records);
}

TEST_F(LogtreeTest, PrunesOldLogsAndTrashAndPacksTheRest) {
    make(kDir,
         "QVpanic_2_t.tar.gz QVpanic_2_t/f QVpanic_3_t/f QVpanic_3_u.tar.gz QVpanic_x_t/ .trash/f "
         "QVpanic_4_t.tar.gz QVpanic_4_target/f QVpanic_9_t/f QVpanic_9_a_b.tar.gz qvpanic_9_t/f");
    EXPECT_FALSE(remove_old_and_trash_file(8, kDir, "QVpanic_", 5));
    EXPECT_EQ(files(kDir),
              ".trash/ .trash/f QVpanic_4_t.tar.gz QVpanic_4_target/ QVpanic_4_target/f "
              "QVpanic_9_t.tar.gz");
    EXPECT_EQ("QVpanic_9_t/ QVpanic_9_t/f", files(unpack(kDir + "QVpanic_9_t.tar.gz")));
    EXPECT_EQ("qv_dump.last_panic_log=QVpanic_9_t; ", journal());
    for (const std::string name : {"QVpanic_1_t", "trash"}) {  // a failed removal stops the walk
        SetUp();
        make(kDir, name + "/");
        mount_over(kDir + name);
        EXPECT_TRUE(remove_old_and_trash_file(8, kDir, "QVpanic_", 5));
        EXPECT_EQ("E remove failed: %/" + name + "generic:16; ", log());
    }
    EXPECT_EQ(0, QVRemoveFile(kDir + "missing"));
    EXPECT_EQ("E remove file not exist: %/missing; ", log());
}

TEST_F(LogtreeTest, PacksADirectoryBesideItself) {
    const std::string path = kDir + "QVpanic_1_t";
    const std::string tar = "I tar -zcvf %/QVpanic_1_t.tar.gz -C % QVpanic_1_t; I ; ";
    make(path, "file");
    EXPECT_EQ(0, tar_and_delete_dir(path, true));
    EXPECT_EQ(log(), tar + "I %/QVpanic_1_t save as %/QVpanic_1_t.tar.gz; I ; E remove pass: "
                           "%/QVpanic_1_t; ");
    EXPECT_EQ(fs::perms(0770), fs::status(path + ".tar.gz").permissions());
    fs::remove(path + ".tar.gz");
    make(path, "file");
    replace_tool("tar",
                 "cat " + kProperties + "vendor.qv_dump.last_panic_log >" + kOut + "; exit 1");
    EXPECT_EQ(0, tar_and_delete_dir(path, true));
    EXPECT_EQ(log(), tar + "I % save failed; I ; E remove pass: %/QVpanic_1_t; ");
    EXPECT_EQ("QVpanic_1_t", files(kDir) + read_file(kOut));
}

TEST_F(LogtreeTest, KeepsEachTypeAtItsLimit) {
    const std::string labels[] = {"[Boot]", "[Crash]", "[Rescue]", "[Ota]", "[Panic]"};
    for (core_log_type type = 0; type < 5; ++type) {
        const std::string name = log_type_name[type];
        EXPECT_EQ(type != 0 && type != 3, log_type_table[type].flag);
        for (int i = 0; i < 12; ++i) {
            EXPECT_EQ(0, prepare_type_log_and_dir(type));
            clean_type_log_and_dir(type);
        }
        EXPECT_TRUE(has(log(),
                        "; E " + labels[type] + "prepare_type_log_and_dir: new_log_count: 11; "));
        std::istringstream entries(files("/mnt/vendor/qv_log/" + name + "_log"));
        std::string numbers;
        for (std::string entry; entries >> entry;) {
            numbers += entry.substr(entry.find("QV" + name) + name.size() + 3, 2) +
                       (entry.back() == '/' ? "/ " : " ");
        }
        const std::string first = type == 0 ? "2_ 3_ 4_ 5_ 6_ " : type == 4 ? "11/ " : "";
        EXPECT_EQ("10 11 " + first + "7_ 8_ 9_ ", numbers);
    }
}

TEST_F(LogtreeTest, ReportsTheStepOfPreparationThatFailed) {
    const std::string prepare = "E [Panic]prepare_type_log_and_dir: ";
    const std::string result = "E [Panic]copy_to_qv_log: prepare_type_log_dir failed, result: -1; ";
    log_type_table[4].prefix = std::string(300, 'p');  // too long a name for a directory
    copy_to_qv_log();
    EXPECT_TRUE(has(log(), prepare + "create_new_qv_log_dir failed!; " + result));
    make(kDir, "trash/");
    mount_over(kDir + "trash");
    copy_to_qv_log();
    EXPECT_TRUE(has(log(), prepare + "remove_old_and_trash_file failed!, prefix: " +
                                   std::string(300, 'p') + " ,new_log_count: 0; " + result));
    EXPECT_EQ("trash/", files(kDir) + journal());
    unmount();
    fs::remove_all(kDir);
    write_file(kPanicTree);
    copy_to_qv_log();
    EXPECT_TRUE(has(log(), prepare + "qv_create_dir_str fail create: %/; " + result));
}

TEST_F(LogtreeTest, CutsALongCommandOrTakesTheDefaultFolder) {
    for (const std::string property : {"", "panic_log", "panic_x"}) {
        for (const size_t length : {511, 512, 600}) {
            SetUp();
            write_file(kLastDump, property);
            const std::string folder = kPlace + "/" + (property.empty() ? "panic_log" : property);
            make(folder, "file sub/file");
            std::string target =
                    "/mnt/vendor/" + std::string(200, 'a') + "/" + std::string(200, 'b') + "/";
            target.resize(length - folder.size() - 6, 'c');
            const std::string copy = "cp " + folder + "/* " + target;
            const bool fallback = length >= 512 && property != "panic_x";
            const std::string run = (fallback ? "cp -r " + copy.substr(3) : copy).substr(0, 511);
            fs::create_directories(run.substr(run.find("/mnt")));
            log_type_table[4].new_log_path = target;
            copy_panic_log(4);
            const std::string warning = "W " + copy + " exceed 512 length, using default path; ";
            EXPECT_EQ(log(), abbreviated((fallback ? warning : "") +
                                         "I [Panic]copy_panic_log: " + run + "; "));
            EXPECT_EQ(fallback ? "file sub/ sub/file" : "file",
                      files(run.substr(run.find("/mnt"))));
        }
    }
}
