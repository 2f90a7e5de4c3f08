#include "logtree/retention.h"

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>
#include <cutils/properties.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <system_error>
#include <vector>

#include "common/shell.h"
#include "logtree/log_types.h"

int64_t get_boot_count_by_file_name(const std::string& name) {
    const std::vector<std::string> parts = android::base::Split(name, "_");
    if (parts.size() == 3 && parts[1].find_first_not_of("0123456789") == std::string::npos) {
        // Keep: this throws for an empty part and for a number too large.
        return std::stoll(parts[1]);
    }
    LOG(ERROR) << "error file name " << name << " ret.size() " << parts.size();
    return -1;
}

int64_t get_new_qv_log_count(const std::string& dir, const std::string& prefix) {
    int64_t largest = -1;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        const std::string name = entry.path().filename().string();
        if (android::base::StartsWith(name, prefix)) {
            const int64_t number = get_boot_count_by_file_name(name);
            if (number < 0) {
                continue;
            }
            largest = std::max(largest, number);
        }
        // Keep: ERROR, though the line is routine.
        LOG(ERROR) << "find file :" << name;
    }
    // Saturate: INT64_MAX + 1 would overflow.
    return largest == std::numeric_limits<int64_t>::max() ? largest : largest + 1;
}

bool remove_old_and_trash_file(int64_t new_log_count, const std::string& dir,
                               const std::string& prefix, int32_t max_log_count) {
    const int64_t limit = new_log_count - max_log_count;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        const std::string name = entry.path().filename().string();
        const std::string path = dir + name;
        if (!android::base::StartsWith(name, prefix)) {
            if (name[0] != '.' && QVRemoveFile(path) != 0) {
                return true;
            }
            continue;
        }
        const int64_t number = get_boot_count_by_file_name(name);
        if (number < 0 || number <= limit) {
            if (QVRemoveFile(path) != 0) {
                return true;
            }
        } else if (name.find("tar") == std::string::npos) {
            // Keep: "tar" anywhere in a name counts as an archive. The tool's own names contain it
            // only in ".tar.gz".
            tar_and_delete_dir(path, true);
        }
    }
    return false;
}

int QVRemoveFile(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        LOG(ERROR) << "remove file not exist: " << path;
        return 0;
    }
    std::filesystem::remove_all(path, error);
    if (error) {
        LOG(ERROR) << "remove failed: " << path << error;
        return -1;
    }
    // Keep: ERROR, though nothing failed.
    LOG(ERROR) << "remove pass: " << path;
    return 0;
}

int tar_and_delete_dir(const std::string& path, bool remove_after) {
    const std::string archive = path + ".tar.gz";
    const std::string parent = android::base::Dirname(path);
    const std::string name = android::base::Basename(path);
    const std::string command = "tar -zcvf " + archive + " -C " + parent + " " + name;
    property_set("vendor.qv_dump.last_panic_log", name.c_str());
    // The line breaks are part of these messages.
    LOG(INFO) << command << "\n";
    if (run_command(command) != 0) {
        // Keep: the message names the parent, not the directory that failed.
        LOG(INFO) << parent << " save failed\n";
    } else {
        LOG(INFO) << parent << "/" << name << " save as " << archive << "\n";
    }
    if (remove_after) {
        QVRemoveFile(path);
    }
    chang_to_qv_log_mod(archive);
    return 0;
}
