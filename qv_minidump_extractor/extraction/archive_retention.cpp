#include "extraction/archive_retention.h"

#include <android-base/logging.h>
#include <cutils/properties.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <utility>
#include <vector>

#include "driver/run_values.h"

namespace {

constexpr size_t kMaxArchives = 2;

// Runs `command` in the shell and logs it, and its failure.
void run_logged(const std::string& command) {
    LOG(INFO) << command;
    if (std::system(command.c_str()) != 0) {
        LOG(INFO) << "Error: " << command << " failed";
    }
}

}  // namespace

void check_minidump_num(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        std::string name = entry.path().filename().string();
        if (entry.is_regular_file() && name.rfind(kArchivePrefix, 0) == 0) {
            names.push_back(std::move(name));
        }
    }
    // By name and not by file time: the timestamp in the name says how old a dump is.
    std::sort(names.begin(), names.end());
    const size_t kept = std::min(names.size(), kMaxArchives);
    const auto first_kept = names.end() - static_cast<std::ptrdiff_t>(kept);
    for (auto name = names.begin(); name != first_kept; ++name) {
        const std::string path = directory + "/" + *name;
        LOG(INFO) << "Removing file: " << path;
        std::filesystem::remove(path);
    }

    std::string kept_names;
    for (auto name = first_kept; name != names.end(); ++name) {
        kept_names += *name + ",";
    }
    if (!kept_names.empty()) {
        kept_names.pop_back();
    }
    // The folder that other services collect from, whichever directory was pruned.
    run_logged("chmod -R 0771 " + minidump_dir);
    run_logged("chown -R root:system " + minidump_dir);
    LOG(INFO) << "Preserved files: " << kept_names;
    property_set("vendor.minidump.files", kept_names.c_str());
}
