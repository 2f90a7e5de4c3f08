#include "staging/folder_limit.h"

#include <android-base/strings.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "common/run_values.h"

namespace {

struct Candidate {
    std::filesystem::path path;
    std::filesystem::file_time_type time;
};

bool is_panic_directory_name(const std::string& name) {
    return android::base::StartsWith(name, kPanicLogStem) ||
           android::base::StartsWith(name, "last_kmsg");
}

}  // namespace

void LimitFolderNum(const std::filesystem::path& parent, uint64_t max) {
    if (!std::filesystem::is_directory(std::filesystem::status(parent))) {
        std::cerr << "Path is not a directory or does not exist: " << parent << std::endl;
        return;
    }
    std::vector<Candidate> directories;
    for (const auto& entry : std::filesystem::directory_iterator(parent)) {
        if (std::filesystem::is_directory(entry.status()) &&
            is_panic_directory_name(entry.path().filename().string())) {
            directories.push_back({entry.path(), std::filesystem::last_write_time(entry.path())});
        }
    }
    if (directories.size() <= max) {
        return;
    }
    // By modification time and not by the time in the name: this run's directory can go as well.
    std::sort(directories.begin(), directories.end(),
              [](const Candidate& a, const Candidate& b) { return a.time < b.time; });
    directories.resize(directories.size() - max);
    for (const Candidate& directory : directories) {
        std::filesystem::remove_all(directory.path);
        std::cout << "Deleted directory: " << directory.path << std::endl;
    }
}
