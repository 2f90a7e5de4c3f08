#include "device_fixture.h"

#include <android-base/logging.h>
#include <android-base/strings.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>

#include "common/run_values.h"

using namespace testing;

const std::string kTools = "/data/local/bin/";

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Lines lines_of(const std::string& path) {
    Lines lines = android::base::Split(read_file(path), "\n");
    lines.pop_back();  // what follows the last line break
    return lines;
}

void write_file(const std::string& path, const std::string& content) {
    fs::create_directories(fs::absolute(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

void make_entries(const std::string& directory, const Lines& names) {
    for (const std::string& name : names) {
        if (name.back() == '/') {
            fs::create_directories(directory + "/" + name);
        } else {
            write_file(directory + "/" + name, name);
        }
    }
}

Lines entries_in(const std::string& directory) {
    Lines names;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        const std::string name = entry.path().lexically_relative(directory).string();
        names.push_back(entry.is_directory() ? name + "/" : name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

void shell(const std::string& command) { ASSERT_EQ(0, system(command.c_str())) << command; }

void replace_tool(const std::string& name, const std::string& script) {
    fs::remove(kTools + name);
    write_file(kTools + name, "#!/bin/sh\n" + script + "\n");
    fs::permissions(kTools + name, fs::perms(0755));
}

std::string unpack(const std::string& archive) {
    const std::string directory = "/data/local/unpacked";
    shell("toybox rm -rf " + directory + "; mkdir " + directory);
    shell("tar -xzf " + archive + " -C " + directory);
    return directory;
}

void DeviceTest::SetUp() {
    ASSERT_TRUE(fs::exists("/system/bin/toybox")) << "this is no virtual device";
    signal(SIGINT, SIG_DFL);  // a background job begins with Ctrl-C ignored
    setenv("PATH", "/data/local/bin:/system/bin", 1);
    setenv("TZ", "XXX-3", 1);  // not UTC
    shell("toybox rm -rf /data/* /mnt/vendor/* /dev/log/* /dev/__properties__/*");
    make_entries("/data", {"local/bin/", "vendor/minidump/aop_dump/", "vendor/minidump/tmp/"});
    replace_tool("chown", "exit 0");  // an ordinary user's device has no group system
    int subreaper = 0;
    if (prctl(PR_GET_CHILD_SUBREAPER, &subreaper) != 0) {
        // qemu has no child subreaper, so tar waits itself: its gzip has the pipe's other end.
        replace_tool("tar", "set -o pipefail; { toybox tar \"$@\" 2>&1 >&3 | cat >&2; } 3>&1");
    }
    umask(0);
    work_dir = kMinidumpDir;
    android::base::SetLogger(android::base::LogdLogger(android::base::SYSTEM));
}

void DeviceTest::TearDown() {
    shell("grep ^test /proc/mounts | cut -d ' ' -f 2 | sort -r | toybox xargs -r umount");
}

void DeviceTest::crash(const std::string& image) {
    write_file(kPartition, image);
    image_ = image;
    extent_ = (get_number(image, 36, 4) | get_number(image, 40, 4)) / 4096 * 4096 + 4096;
}

int DeviceTest::run(const std::string& command) {
    setenv("CLOCK", clock_.c_str(), 1);
    setenv("COMMAND", command.c_str(), 1);
    const int status = system(("sh " TESTS_DIRECTORY "/init.sh >" + out_ + " 2>" + err_).c_str());
    EXPECT_THAT(read_file(err_), Not(AnyOf(HasSubstr("Sanitizer"), HasSubstr("runtime error:"))));
    return WEXITSTATUS(status);
}

std::string DeviceTest::tool(const std::string& arguments) {
    return "/vendor/bin/qv_minidump_extractor " + arguments;
}

Lines DeviceTest::log() {
    static const std::regex head("^system [0-9-]{5} [0-9:]{8} [0-9]+ ([A-Z]) [^:]+:( $)?");
    Lines records = lines_of("/dev/log/records");
    for (std::string& record : records) {
        record = std::regex_replace(record, head, "$1");
    }
    return records;
}

Lines DeviceTest::journal() { return lines_of("/dev/__properties__/journal"); }

bool DeviceTest::partition_is_untouched() {
    return read_file(kPartition).substr(0, image_.size()) == image_;
}

bool DeviceTest::partition_is_erased() {
    const std::string zeros(extent_, '\0');
    const std::string now = read_file(kPartition);
    // A plain file ends with the zeros. A block device keeps what lies behind them.
    return fs::is_block_file(kPartition)
                   ? android::base::StartsWith(now, zeros + image_.substr(extent_))
                   : now == zeros;
}

bool DeviceTest::dump_is_in(const std::string& archive) {
    const std::string directory = unpack(archive);
    return entries_in(directory) == Lines{"minidump.bin"} &&
           read_file(directory + "/minidump.bin") == image_.substr(0, extent_);
}
