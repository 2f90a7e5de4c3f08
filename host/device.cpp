#include "device.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace fs = std::filesystem;

namespace {

const std::string kTools = kScratch + "/bin/";
std::vector<std::string> mounted;

void check(bool done, const std::string& what) {
    if (!done) {
        throw std::runtime_error("device: " + what + " failed");
    }
}

// Waits for all that this program started.
void settle() {
    static int lock = -1;  // whatever it starts inherits this, and holds it to its end
    close(lock);
    lock = open("/tmp/lock", O_CREAT | O_RDWR, 0600);
    check(flock(lock, LOCK_EX) == 0, "lock");
}

void empty_folder(const std::string& path) {
    fs::create_directories(path);
    for (const auto& entry : fs::directory_iterator(path)) {
        fs::remove_all(entry);
    }
}

std::string take(const std::string& path) {
    std::string text = read_file(path);
    fs::remove(path);
    return text;
}

}  // namespace

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_file(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    check((std::ofstream(path, std::ios::binary) << content).flush().good(), "write " + path);
}

void make(const std::string& folder, const std::string& names) {
    std::istringstream list(names);
    for (std::string name; list >> name;) {
        fs::create_directories(folder + "/" + name.substr(0, name.rfind('/') + 1));
        if (name.back() != '/') {
            write_file(folder + "/" + name, name);
        }
    }
}

std::string tree(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        names.push_back(entry.path().lexically_relative(folder).string() +
                        (entry.is_directory() ? "/" : ""));
    }
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : " ") + name;
    }
    return text;
}

void reset_device() {
    check(fs::exists("/system/bin/toybox"), "reset of what is no device");
    unmount();
    settle();
    for (const char* path : {"/data", "/mnt/vendor", "/dev/log", "/dev/__properties__"}) {
        empty_folder(path);
    }
    fs::create_directories(kTools);
    for (const auto& tool : fs::directory_iterator("/system/bin")) {
        fs::create_symlink(tool.path(), kTools + tool.path().filename().string());
    }
    setenv("PATH", kTools.c_str(), 1);
    fs::current_path("/data");
}

std::string program(const std::string& name) {
    const char* emulator = getenv("EMULATOR");  // see virtual_device
    return (emulator == nullptr ? "" : std::string(emulator) + " ") + "/vendor/bin/" + name;
}

int run_at(const std::string& time, const std::string& command) {
    const std::string clock =
            "TZ=XXX-3 NO_FAKE_STAT=1 FAKETIME_DONT_FAKE_MONOTONIC=1 FAKETIME='2024-01-07 " + time +
            "' LD_PRELOAD='/usr/$LIB/faketime/libfaketime.so.1' ";
    const int status = system((clock + command + " >" + kOut + " 2>" + kErr).c_str());
    if (WIFEXITED(status) && WEXITSTATUS(status) == 128 + SIGKILL) {
        kill(-1, SIGKILL);
    }
    settle();
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
    check(mount("tmpfs", path.c_str(), "tmpfs", flags, options.c_str()) == 0, "mount over " + path);
    mounted.push_back(path);
}

void unmount() {
    for (; !mounted.empty(); mounted.pop_back()) {
        check(umount2(mounted.back().c_str(), MNT_DETACH) == 0, "unmount of " + mounted.back());
    }
}

std::string unpack(const std::string& archive) {
    settle();
    std::string folder = kScratch + "/unpacked";
    empty_folder(folder);
    check(system(("tar -xzf " + archive + " -C " + folder).c_str()) == 0, "unpack " + archive);
    return folder;
}

std::string take_log() {
    std::istringstream records(take("/dev/log/records"));
    std::string text;
    for (std::string line; std::getline(records, line);) {
        std::istringstream fields(line);
        std::string buffer, date, time, process, severity, tag;
        fields >> buffer >> date >> time >> process >> severity >> tag;
        std::getline(fields, line);
        text += (buffer == "system" ? "" : buffer + " ") + severity + line + "; ";
    }
    return text;
}

std::string take_journal() {
    std::string text = take(kProperties + "journal");
    replace_all(text, "vendor.", "");
    replace_all(text, "set ", "");
    replace_all(text, "\n", "; ");
    return text;
}

std::vector<std::string> injections(const std::string& trace, const std::string& start,
                                    const std::string& name, const std::string& fault,
                                    size_t points) {
    std::istringstream lines(read_file(trace));
    std::map<std::string, int> seen;
    std::vector<std::string> calls, spread;
    bool begun = false;
    for (std::string line; std::getline(lines, line);) {
        const std::string call = line.substr(0, line.find('('));
        const int count = ++seen[call];
        begun = begun || has(line, start);
        if (begun && (name.empty() ? line[0] >= 'a' : call == name)) {
            calls.push_back(call + ":" + fault + ":when=" + std::to_string(count));
        }
    }
    for (size_t i = 0; i < points; ++i) {
        spread.push_back(calls.at((calls.size() - 1) * i / (points - 1)));
    }
    return spread;
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

size_t count(std::string text, const std::string& part) {
    const size_t size = text.size();
    replace_all(text, part, "");
    return (size - text.size()) / part.size();
}

void replace_all(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}
