#include <unistd.h>

#include "device_fixture.h"

using namespace testing;

using RunTest = DeviceTest;

TEST_F(RunTest, DoesTheWholeJobInOrder) {
    std::string image = build_image({{"../tmp/load.cmm", "load.1"},
                                     {"md_KCONSOLE.BIN", "\1console\2"},
                                     {"md_A_NAME_OF_20_CHAR", ""},
                                     {"md_XBL_LOG.BIN", "log"},
                                     {"MD_RESTARTINFO.BIN", std::string(101, 'r')}},
                                    1 << 20);
    put_number(image, 36, 8, 0x8f00);                   // less than where the regions lie
    put_number(image, kRecord + 4, 8, 0xa00000008000);  // the high half is ORed: 0xa000
    put_number(image, kRecord + 12, 8, 0x600000004);    // and here 6
    put_number(image, 4 * kRecord + 4, 8, 0x80000000);  // and this gives zeros
    crash(image);
    fs::remove(kTmpDir);
    EXPECT_EQ(0, run_tool());
    EXPECT_TRUE(partition_is_erased());
    const Lines lines = lines_of(TESTS_DIRECTORY "/whole_run.txt");
    std::vector<Matcher<std::string>> expected(lines.begin(), lines.end());
    expected.push_back(MatchesRegex("I Time taken: [0-9]+ ms"));
    EXPECT_THAT(log(), ElementsAreArray(expected));
    EXPECT_THAT(lines_of("/dev/log/records"), Each(HasSubstr(" qv_minidump_extractor: ")));
    EXPECT_THAT(journal(),
                ElementsAre("set vendor.minidump.cp.status=running",
                            "set vendor.qv_dump.last_dump=panic_log_2024-01-07-09-05-03",
                            "set vendor.qv_dump.exist=1",
                            "set vendor.minidump.last_file=minidump_2024-01-07-09-05-03.tar.gz",
                            "refused vendor.restart_reason=" + std::string(100, 'r'),
                            "set vendor.minidump.files=minidump_2024-01-07-09-05-03.tar.gz",
                            "set vendor.qv_dump.last_panic_log=QVpanic_0_2024-01-07-09-05-03",
                            "set vendor.minidump.cp.status=1"));
    EXPECT_EQ("console\n", read_file(kNewLog + "/last_kmsg.txt"));
    const std::string selection = unpack(kNewLog + "/aop_dump.tar.gz") + "/aop_dump";
    EXPECT_THAT(lines_of(selection + "/dump_info.txt"),
                ElementsAre("../tmp/load.cmm\r", "md_KCONSOLE.BIN\r", "md_A_NAME_OF_20_CHAR\r",
                            "md_XBL_LOG.BIN\r", "MD_RESTARTINFO.BIN\r"));
    EXPECT_EQ("load.1", read_file(selection + "/load.cmm"));
    EXPECT_EQ(std::string(3, '\0'), read_file(selection + "/md_XBL_LOG.BIN"));
    EXPECT_THAT(read_file(out_), HasSubstr("\nExtracted date and time: 2024-01-07-09-05-03\nQV"));
}

TEST_F(RunTest, KeepsEveryLimitOverSevenCrashes) {
    for (const char second : std::string("1234567")) {
        clock_ = std::string("19:05:0") + second;
        crash();
        EXPECT_EQ(0, run_tool());
    }
    EXPECT_THAT(journal(), Contains("set vendor.minidump.files=minidump_2024-01-07-19-05-06.tar.gz,"
                                    "minidump_2024-01-07-19-05-07.tar.gz"));
    // The tool's own lines on standard output and those of its commands stay in order.
    EXPECT_THAT(read_file(out_), HasSubstr("/panic_log_2024-01-07-19-05-05\"\nQVpanic_5_2024"));
    EXPECT_THAT(entries_in(kLogTree),
                AllOf(SizeIs(8), Contains("QVpanic_2_2024-01-07-19-05-03.tar.gz"),
                      Contains("QVpanic_6_2024-01-07-19-05-07/last_kmsg.txt")));
}

TEST_F(RunTest, NeedsAnArgument) {
    EXPECT_EQ(22, run(tool("")));
    EXPECT_THAT(log(), ElementsAre("I qv_minidump_extractor start!!", "I Invalid arguments."));
    EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(RunTest, EndsWithoutADump) {
    std::string image = build_image(sample_regions(), 1 << 20);
    put_number(image, 12, 4, 0xfffffffe);  // every flag but the one for the region table
    crash(image);
    EXPECT_EQ(11, run_tool());
    EXPECT_THAT(log(), ElementsAre("I qv_minidump_extractor start!!",
                                   "I minidump region header is not set."));
    EXPECT_THAT(journal(), IsEmpty());
    EXPECT_TRUE(partition_is_untouched());
    EXPECT_THAT(entries_in(kMinidumpDir), ElementsAre("aop_dump/", "tmp/"));
    crash();
    EXPECT_EQ(11, run(tool("logdump /data/missing")));
}

TEST_F(RunTest, TakesDumpSizeAndRegionCountAsTheyStand) {
    const std::tuple<uint64_t, uint64_t, size_t> headers[] = {
            // size, count, regions in the list
            {0, 0, 0},
            {8192, 2, 2},                          // whole blocks
            {4095, 0x80000001, 0},                 // a negative count
            {(uint64_t{1} << 44) + 0x2000, 2, 2},  // the high half folds
            {4096, 700, 700}};                     // a count beyond the table
    for (const auto& [dump_size, region_count, listed] : headers) {
        SCOPED_TRACE(dump_size);
        std::string image = build_image({{"a", "1"}, {"b", "2"}}, 1 << 20);
        put_number(image, 0, 8, 0);      // any magic text is accepted
        put_number(image, 12, 1, 0x81);  // and any other flag
        put_number(image, 36, 8, dump_size);
        put_number(image, 52, 4, region_count);
        crash(image);
        EXPECT_EQ(0, run_tool());
        EXPECT_TRUE(partition_is_erased());
        EXPECT_TRUE(dump_is_in(kArchive));
        const std::string selection = unpack(kPanicDir + "/aop_dump.tar.gz") + "/aop_dump";
        EXPECT_THAT(lines_of(selection + "/dump_info.txt"), SizeIs(listed));
    }
}

TEST_F(RunTest, PacksInAnyDirectoryButTakesRegionsFromTheFixedOne) {
    make_entries("/data/other", {"minidump_1", "minidump_2"});
    make_entries(kMinidumpDir, {"panic_log_1/", "panic_log_2/"});
    crash();
    write_file(kMinidumpDir + "/header.img", read_file(kPartition).substr(0, kTableSpace));
    fs::remove(kTmpDir);
    EXPECT_EQ(0, run("cd /data/other; " + tool("logdump")));
    EXPECT_THAT(entries_in("/data/other"),
                ElementsAre("header.img", "minidump.bin", "minidump_2",
                            "minidump_2024-01-07-09-05-03.tar.gz", "tmp/"));
    EXPECT_EQ(kTableSpace, fs::file_size("/data/other/header.img"));
    EXPECT_EQ(fs::perms(0777), fs::status("/data/other/tmp").permissions());
    EXPECT_THAT(log(), IsSupersetOf({"I Created temp folder: ./tmp",
                                     "E Failed to open file: ./tmp/MD_RESTARTINFO.BIN",
                                     "I strings md_KCONSOLE.BIN save failed",
                                     "I dump_info.txt copy failed", "I aop_dump save failed"}));
    EXPECT_THAT(read_file(out_), HasSubstr("Deleted directory: \"" + kMinidumpDir));
    EXPECT_THAT(read_file(err_), HasSubstr("Failed to open file: " + kTmpDir + "/dump_info.txt\n"));
}

struct Fault {
    const char* name;
    void (*inject)();
    Lines logged;
    bool packed = true;
};

class RunWithFault : public DeviceTest, public WithParamInterface<Fault> {};

const std::string kPrepare = "E [Panic]prepare_type_log_and_dir: ";
const std::string kNotPrepared = "E [Panic]copy_to_qv_log: prepare_type_log_dir failed, result: -1";

INSTANTIATE_TEST_SUITE_P(
        All, RunWithFault,
        Values(Fault{"GzipFailsAfterTarHasEnded",
                     [] { replace_tool("gzip", "cat >/dev/null; sleep 0.2; exit 1"); },
                     {"I Temp folder already exists: " + kTmpDir, "I Compression failed.",
                      "I aop_dump save failed"},
                     false},
               Fault{"TmpIsAFile",
                     [] { shell("cd " + kMinidumpDir + "; rmdir tmp; echo >tmp"); },
                     {"I Failed to create temp folder: " + kTmpDir, "I restart_info = "}},
               Fault{"ChmodFails",
                     [] { replace_tool("chmod", "exit 3"); },
                     {"I Error: chmod -R 0771 /data/vendor/minidump failed"}},
               Fault{"NoLogTree",
                     [] { shell("mount -t tmpfs -o ro test /mnt/vendor"); },
                     {kPrepare + "qv_create_dir_str fail create: " + kLogTree + "/", kNotPrepared}},
               Fault{"NoRoomInTheLogTree",
                     [] { shell("mount -t tmpfs -o nr_inodes=3 test /mnt/vendor"); },
                     {kPrepare + "create_new_qv_log_dir failed!", kNotPrepared}},
               Fault{"TrashCannotBeRemoved",
                     [] {
                         shell("cd /mnt/vendor; mkdir -p qv_log/panic_log/x; mount -t tmpfs test "
                               "qv_log/panic_log/x");
                     },
                     {kPrepare + "remove_old_and_trash_file failed!, prefix: QVpanic_ "
                                 ",new_log_count: 0",
                      kNotPrepared}}),
        [](const auto& test) { return test.param.name; });

TEST_P(RunWithFault, GoesOnToTheEnd) {
    crash();
    GetParam().inject();
    EXPECT_EQ(0, run_tool());
    EXPECT_THAT(log(), IsSupersetOf(GetParam().logged));
    EXPECT_THAT(log(), Not(Contains(HasSubstr("not exist!"))));
    EXPECT_EQ(GetParam().packed, fs::exists("/dev/__properties__/vendor.minidump.last_file"));
    EXPECT_THAT(journal(), Contains("set vendor.minidump.cp.status=1"));
    EXPECT_TRUE(partition_is_erased());
}

TEST_F(RunTest, PrunesThenCleansUpThenErasesThenFilesTheLog) {
    crash();
    make_entries(kMinidumpDir, {"panic_log_1/", "panic_log_2/"});
    for (const std::string name : {"tar", "strings", "chmod", "rm", "cp"}) {
        replace_tool(name, "echo " + name + " [$(head -c 8 " + kPartition + ")] $(ls " +
                                   kMinidumpDir + " | grep -c panic_log) >>/data/seen");
    }
    EXPECT_EQ(0, run_tool());
    EXPECT_THAT(lines_of("/data/seen"),  // the partition's first bytes, the panic directories
                ElementsAre("tar [MINIDUMP] 2", "strings [MINIDUMP] 3", "tar [MINIDUMP] 3",
                            "chmod [MINIDUMP] 3", "rm [MINIDUMP] 2", "rm [MINIDUMP] 2",
                            "rm [MINIDUMP] 2", "rm [MINIDUMP] 2", "cp [] 2", "tar [] 2"));
}

TEST_F(RunTest, AbortsAtARegionOf2GiBBeforeTheErase) {
    std::string image = build_image(sample_regions(), 1 << 20);
    put_number(image, kRecord + 12, 8, 0x80000000);
    put_number(image, 36, 8, 0x80000000);  // a dump of 2 GiB is taken, as far as there is room
    crash(image);
    EXPECT_EQ(128 + SIGABRT, run("trap '' XFSZ; ulimit -f 4096; exec " + tool()));  // 2 MiB
    EXPECT_EQ(2 << 20, fs::file_size(kMinidumpDir + "/minidump.bin"));
    EXPECT_TRUE(partition_is_untouched());
}

TEST_F(RunTest, WaitsForASlowGzipButNotForChildrenOfItsCaller) {
    crash();
    replace_tool("gzip", "(sleep 0.1 &); sleep 0.3; exec /system/bin/gzip \"$@\"");
    EXPECT_EQ(0, run("trap '' CHLD; (sleep 20; touch /data/waited) & exec " + tool()));
    EXPECT_FALSE(fs::exists("/data/waited"));
    EXPECT_THAT(log(), Contains("I Compression completed successfully."));
    EXPECT_TRUE(dump_is_in(kArchive));
    EXPECT_EQ(read_file(kPanicDir + "/aop_dump.tar.gz"), read_file(kNewLog + "/aop_dump.tar.gz"));
    EXPECT_THAT(entries_in(unpack(kNewLog + ".tar.gz")), SizeIs(3));
}

TEST_F(RunTest, DiesOfCtrlCBeforeTheErase) {
    crash();
    replace_tool("gzip", "kill -INT 0");  // to the run's process group, as a terminal does
    EXPECT_EQ(128 + SIGINT, run_tool());
    EXPECT_TRUE(partition_is_untouched());
}

TEST_F(RunTest, WaitsForAnotherRun) {
    crash();
    replace_tool("tar", "sleep 0.5; exec toybox tar \"$@\"");
    const std::string run_and_note = "(" + tool() + "; echo $? >>/data/statuses)";
    run(run_and_note + " & " + run_and_note + "; wait");
    EXPECT_THAT(lines_of("/data/statuses"), UnorderedElementsAre("0", "11"));
    EXPECT_TRUE(dump_is_in(kArchive));
}

TEST_F(RunTest, RunsAsInitStartsIt) {
    if (chown("/data", 0, 1000) != 0) {
        GTEST_SKIP() << "an ordinary user's virtual device has no group system";
    }
    // PATH names /vendor/bin, so the tools have to be there as well.
    shell("cp /vendor/bin/qv_minidump_extractor /data; mount -t tmpfs test /vendor/bin");
    shell("cp -a /data/qv_minidump_extractor /system/bin/* /vendor/bin");
    crash();
    write_file(kMinidumpDir + "/foreign", "another service's");
    ASSERT_EQ(0, chown((kMinidumpDir + "/foreign").c_str(), 2000, 2000));
    // init's umask, PATH, supplementary groups, capabilities, user, group and command.
    EXPECT_EQ(
            0,
            run("rc() { sed -n \"s/^ *$1 //p\" " DEVICE_DIRECTORY "/qv_minidump_extractor.rc; }; "
                "umask 077; export PATH=$(rc 'setenv PATH'); exec /usr/bin/setpriv --clear-groups "
                "--bounding-set=-all,+$(rc capabilities | sed 's/ /,+/g') --reuid $(rc user) "
                "--regid $(rc group) $(rc 'service qv_minidump_extractor') >/dev/null"));
    EXPECT_THAT(log(), Each(Not(ContainsRegex("[Ff]ail"))));
    shell("[ $(stat -c %a:%g " + kNewLog + ".tar.gz) = 770:1000 ]");  // 1000 is system
}
