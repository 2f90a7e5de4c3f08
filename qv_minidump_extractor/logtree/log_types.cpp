#include "logtree/log_types.h"

#include <android-base/logging.h>
#include <cutils/properties.h>

#include <filesystem>
#include <iostream>
#include <system_error>

#include "common/run_values.h"
#include "common/timestamp.h"

const std::array<std::string, kLogTypeCount> log_type_name = {"boot", "crash", "rescue", "ota",
                                                              "panic"};
const std::array<std::string, kLogTypeCount> log_type_label = {"[Boot]", "[Crash]", "[Rescue]",
                                                               "[Ota]", "[Panic]"};
const std::string qv_log_root = "/mnt/vendor/qv_log/";
const std::array<std::string, kLogTypeCount> log_type_prefix = {"QVboot_", "QVcrash_", "QVrescue_",
                                                                "QVota_", "QVpanic_"};
std::array<LogTypeEntry, kLogTypeCount> log_type_table = {{
        {false, 10, 0, log_type_prefix[0], qv_log_root + "boot_log/", "", ""},
        {true, 5, 0, log_type_prefix[1], qv_log_root + "crash_log/", "", ""},
        {true, 5, 0, log_type_prefix[2], qv_log_root + "rescue_log/", "", ""},
        {false, 5, 0, log_type_prefix[3], qv_log_root + "ota_log/", "", ""},
        {true, 5, 0, log_type_prefix[4], qv_log_root + "panic_log/", "", ""},
}};

namespace {

// Returns what follows the last "_" in the name of this run's panic directory, normally its time;
// empty when nothing does.
std::string panic_directory_time() {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(kLastDumpProperty, value, kPanicLogStem);
    const std::string name = value;
    const size_t last = name.rfind('_');
    if (last == std::string::npos || last + 1 == name.size()) {
        return "";
    }
    std::string time = name.substr(last + 1);
    std::cout << "Extracted date and time: " << time << std::endl;
    return time;
}

}  // namespace

bool reject_bad_log_type(core_log_type type, const char* operation) {
    if (type < kLogTypeCount) {
        return false;
    }
    LOG(ERROR) << operation << ": error core_log_type: " << type;
    return true;
}

void chang_to_qv_log_mod(const std::string& path) {
    std::error_code ignored;
    if (std::filesystem::exists(path, ignored)) {
        std::filesystem::permissions(path, std::filesystem::perms(0770));
    }
}

int qv_create_dir_str(const std::string& path) {
    std::error_code error;
    std::error_code ignored;
    if (!std::filesystem::create_directories(path, error) &&
        !std::filesystem::exists(path, ignored)) {
        LOG(INFO) << "Cannot create: " << path << " err" << error;
        return 1;
    }
    chang_to_qv_log_mod(path);
    LOG(INFO) << "is create: " << path;
    return 0;
}

std::string getCurrentTimeFormatted() { return GetCurrentTimestamp(); }

int create_type_new_qv_log_dir(core_log_type type) {
    if (reject_bad_log_type(type, __func__)) {
        return kBadLogType;
    }
    LogTypeEntry& entry = log_type_table[type];
    std::string time = type == kPanicLogType ? panic_directory_time() : "";
    if (time.empty()) {
        time = getCurrentTimeFormatted();
    }
    // Three parts separated by "_": the retention reads the number back from the second.
    entry.new_log_path_no_sign =
            entry.log_dir + entry.prefix + std::to_string(entry.new_log_count) + "_" + time;
    entry.new_log_path = entry.new_log_path_no_sign + "/";
    LOG(INFO) << log_type_label[type] << __func__ << ": new_log_path: " << entry.new_log_path;
    return qv_create_dir_str(entry.new_log_path);
}
