#include "support.h"

#include <android-base/logging.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "driver/run_values.h"

namespace fs = std::filesystem;

namespace {

const std::string kLog = "/dev/log/records";
const std::string kTools = kScratch + "/bin/";
const std::string kJournal = "/dev/__properties__/journal";

Lines lines_of(const std::string& path) {
    std::istringstream text(read_file(path));
    Lines lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
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

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_file(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content;
    EXPECT_TRUE(file.flush().good()) << path;
}

Lines tree(const std::string& directory) {
    Lines entries;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        entries.push_back(fs::relative(entry.path(), directory).string() +
                          (entry.is_directory() ? "/" : ""));
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

unsigned int mode(const std::string& path) {
    return static_cast<unsigned int>(fs::status(path).permissions());
}

Lines log_records() {
    Lines records = fs::exists(kLog) ? lines_of(kLog) : Lines();
    for (std::string& line : records) {
        std::istringstream fields(line);
        std::string buffer, date, time, process, severity, tag, message;
        fields >> buffer >> date >> time >> process >> severity >> tag;
        EXPECT_EQ("system", buffer) << line;
        EXPECT_TRUE(tag == "qv_minidump_extractor:" || tag == "tests:") << line;
        std::getline(fields, message);
        line = severity + message;
    }
    return records;
}

Lines repair_records() {
    const std::string command = "chown -R root:system " + kPlace;
    Lines records = {"I chmod -R 0771 " + kPlace, "I " + command};
    if (chown(kScratch.c_str(), 0, 1000) != 0) {
        records.push_back("I Error: " + command + " failed");
    }
    return records;
}

Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Lines journal() { return fs::exists(kJournal) ? lines_of(kJournal) : Lines(); }

bool has(const Lines& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

void set_property(const std::string& key, const std::string& value) {
    write_file("/dev/__properties__/" + key, value);
}

void replace_tool(const std::string& name, const std::string& script) {
    write_file(kTools + name, "#!/bin/sh\n" + script + "\n");
    fs::permissions(kTools + name, fs::perms(0755));
}

void settle() {
    while (waitpid(-1, nullptr, 0) > 0) {
    }
}

std::string unpack(const std::string& archive) {
    settle();
    std::string folder = kScratch + "/unpacked";
    empty_folder(folder);
    EXPECT_EQ(0, system(("tar -xzf " + archive + " -C " + folder).c_str()));
    return folder;
}

Mount::Mount(std::string path, const std::string& options, unsigned long flags)
    : path_(std::move(path)) {
    EXPECT_EQ(0, mount("tmpfs", path_.c_str(), "tmpfs", flags, options.c_str())) << path_;
}

Mount::~Mount() { EXPECT_EQ(0, umount2(path_.c_str(), MNT_DETACH)); }

Outcome run_tool(const Lines& arguments, const std::string& time) {
    const std::string tool =
            fs::read_symlink("/proc/self/exe").parent_path() / "qv_minidump_extractor";
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char*> argv{const_cast<char*>(tool.c_str())};
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        setenv("TZ", "XXX-3", 1);
        setenv("LD_PRELOAD", "/usr/$LIB/faketime/libfaketime.so.1", 1);
        setenv("FAKETIME", time.c_str(), 1);
        setenv("FAKETIME_DONT_FAKE_MONOTONIC", "1", 1);
        setenv("NO_FAKE_STAT", "1", 1);
        setenv("ASAN_OPTIONS", __asan_default_options(), 1);
        if (freopen((kScratch + "/out").c_str(), "w", stdout) != nullptr &&
            freopen((kScratch + "/err").c_str(), "w", stderr) != nullptr) {
            execv(tool.c_str(), argv.data());
        }
        _exit(126);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    settle();
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status),
            read_file(kScratch + "/out"), read_file(kScratch + "/err")};
}

void DeviceTest::SetUp() {
    for (const char* path : {"/data", "/mnt/vendor", "/dev/log", "/dev/__properties__"}) {
        empty_folder(path);
    }
    fs::create_directories(kPlace + "/aop_dump");
    fs::create_directory(kPlace + "/tmp");
    fs::create_directories(kScratch);
    fs::current_path("/data");
    setenv("PATH", (kTools + ":/system/bin").c_str(), 1);
    umask(0);
    EXPECT_EQ(0, prctl(PR_SET_CHILD_SUBREAPER, 1));
    work_dir = kPlace;
    static std::string name = "tests";
    static char* argv[] = {name.data(), nullptr};
    android::base::InitLogging(argv, android::base::LogdLogger(android::base::SYSTEM),
                               android::base::DefaultAborter);
}
