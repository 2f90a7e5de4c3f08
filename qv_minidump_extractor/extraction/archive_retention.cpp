#include "extraction/archive_retention.h"

#include <android-base/logging.h>
#include <android-base/strings.h>
#include <cutils/properties.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <utility>
#include <vector>

#include "common/run_values.h"
#include "common/shell.h"

namespace {

// Do not raise it: three names of 35 characters do not fit into a property (91 characters).
constexpr size_t kMaxArchives = 2;

// Returns the names of the dump archives in `directory`, sorted. The time is in the name; the time
// of the file does not count.
std::vector<std::string> archive_names_in(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        std::string name = entry.path().filename().string();
        if (entry.is_regular_file() && android::base::StartsWith(name, kArchivePrefix)) {
            names.push_back(std::move(name));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Runs `command` in the shell and logs it, and its failure.
void run_logged(const std::string& command) {
    LOG(INFO) << command;
    if (run_command(command) != 0) {
        LOG(INFO) << "Error: " << command << " failed";
    }
}

}  // namespace

void check_minidump_num(const std::string& directory) {
    std::vector<std::string> names = archive_names_in(directory);
    while (names.size() > kMaxArchives) {
        const std::string path = directory + "/" + names.front();
        LOG(INFO) << "Removing file: " << path;
        std::filesystem::remove(path);
        names.erase(names.begin());
    }
    // Always the directory that other services collect from, whatever `directory` is.
    run_logged("chmod -R 0771 " + minidump_dir);
    run_logged("chown -R root:system " + minidump_dir);
    const std::string kept_names = android::base::Join(names, ',');
    LOG(INFO) << "Preserved files: " << kept_names;
    property_set("vendor.minidump.files", kept_names.c_str());
}
