#include "support.h"

#include <android-base/logging.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "driver/run_values.h"

namespace {

const std::string kTools = kScratch + "/bin/";
std::vector<std::string> mounted;

// Waits for all that a test started.
void settle() {
    static int lock = -1;  // whatever a test starts inherits it, and holds it to its end
    close(lock);
    lock = open("/tmp/lock", O_CREAT | O_RDWR, 0600);
    EXPECT_EQ(0, flock(lock, LOCK_EX));
}

void empty_folder(const std::string& path) {
    fs::create_directories(path);
    for (const auto& entry : fs::directory_iterator(path)) {
        fs::remove_all(entry);
    }
}

}  // namespace

// The tests put libfaketime before the sanitizer's library.
extern "C" const char* __asan_default_options() { return "verify_asan_link_order=0"; }

std::string files(const std::string& folder) { return abbreviated(tree(folder)); }

std::string log() { return abbreviated(take_log()); }

std::string journal() { return abbreviated(take_journal()); }

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string abbreviated(std::string text) {
    if (chown(kScratch.c_str(), 0, 1000) != 0) {  // an ordinary user's device has no such group
        replace_all(text, "I Error: chown -R root:system " + kPlace + " failed; ", "");
    }
    replace_all(text, kPlace, "@");
    replace_all(text, kPanicTree, "%");
    replace_all(text, kStamp, "T");
    return text;
}

int run_tool(const std::string& arguments, const std::string& time, const std::string& wrapper) {
    const char* emulator = getenv("EMULATOR");  // see host/virtual_device
    const std::string tool = (emulator == nullptr ? "" : std::string(emulator) + " ") +
                             "/vendor/bin/qv_minidump_extractor ";
    // Leaks cannot be looked for in a process that is traced.
    const std::string leaks = wrapper.empty() ? "" : ":detect_leaks=0";
    const std::string command =
            "TZ=XXX-3 ASAN_OPTIONS=verify_asan_link_order=0" + leaks + " NO_FAKE_STAT=1 " +
            "LD_PRELOAD='/usr/$LIB/faketime/libfaketime.so.1' FAKETIME_DONT_FAKE_MONOTONIC=1 " +
            "FAKETIME='2024-01-07 " + time + "' " + wrapper + " " + tool + arguments + " >" + kOut +
            " 2>" + kErr;
    const int status = system(command.c_str());
    if (WIFEXITED(status) && WEXITSTATUS(status) == 128 + SIGKILL) {
        kill(-1, SIGKILL);  // the tool's shells and their programs die with it
    }
    settle();
    const std::string err = read_file(kErr);
    EXPECT_FALSE(has(err, "Sanitizer") || has(err, "runtime error:")) << err;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void replace_tool(const std::string& name, const std::string& script) {
    fs::remove(kTools + name);
    if (!script.empty()) {
        write_file(kTools + name, "#!/bin/sh\n" + script + "\n");
        fs::permissions(kTools + name, fs::perms(0755));
    }
}

void mount_over(const std::string& path, const std::string& options, unsigned long flags) {
    EXPECT_EQ(0, mount("tmpfs", path.c_str(), "tmpfs", flags, options.c_str())) << path;
    mounted.push_back(path);
}

void unmount() {
    for (; !mounted.empty(); mounted.pop_back()) {
        EXPECT_EQ(0, umount2(mounted.back().c_str(), MNT_DETACH));
    }
}

std::string unpack(const std::string& archive) {
    settle();
    std::string folder = kScratch + "/unpacked";
    empty_folder(folder);
    EXPECT_EQ(0, system(("tar -xzf " + archive + " -C " + folder).c_str()));
    return folder;
}

void DeviceTest::SetUp() {
    ASSERT_TRUE(fs::exists("/system/bin/toybox")) << "not in a virtual device";
    unmount();
    for (const char* path : {"/data", "/mnt/vendor", "/dev/log", "/dev/__properties__"}) {
        empty_folder(path);
    }
    make(kPlace, "aop_dump/ tmp/");
    fs::create_directories(kTools);
    for (const auto& tool : fs::directory_iterator("/system/bin")) {
        fs::create_symlink(tool.path(), kTools + tool.path().filename().string());
    }
    setenv("PATH", kTools.c_str(), 1);
    fs::current_path("/data");
    umask(0);
    settle();
    work_dir = kPlace;
    static std::string name = "tests";
    static char* argv[] = {name.data(), nullptr};
    android::base::InitLogging(argv, android::base::LogdLogger(android::base::SYSTEM),
                               android::base::DefaultAborter);
}

void DeviceTest::crash(const std::string& image) {
    write_file(kPartition, image);
    image_ = image;
    extent_ = (get_number(image, 36, 4) | get_number(image, 40, 4)) / 4096 * 4096 + 4096;
}

bool DeviceTest::untouched() { return read_file(kPartition).substr(0, image_.size()) == image_; }

void DeviceTest::expect_erased() {
    const std::string rest = fs::is_block_file(kPartition) ? image_.substr(extent_) : "";
    const std::string content = read_file(kPartition).substr(0, image_.size());
    EXPECT_TRUE(std::string(extent_, '\0') + rest == content);
}

void DeviceTest::expect_archived(const std::string& archive) {
    const std::string folder = unpack(archive);
    EXPECT_EQ("minidump.bin", tree(folder));
    EXPECT_TRUE(image_.substr(0, extent_) == read_file(folder + "/minidump.bin"));
}
