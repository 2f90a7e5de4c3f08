#include "logtree/panic_log.h"

#include <android-base/logging.h>
#include <cutils/properties.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "common/run_values.h"
#include "common/shell.h"
#include "logtree/type_directory.h"

namespace {

constexpr size_t kMaxCommandLength = 511;  // characters

}  // namespace

void copy_to_qv_log() {
    const int result = prepare_type_log_and_dir(kPanicLogType);
    if (result != 0) {
        // Keep: the message names the operation by this shorter name.
        LOG(ERROR) << log_type_label[kPanicLogType] << __func__
                   << ": prepare_type_log_dir failed, result: " << result;
        return;
    }
    copy_panic_log(kPanicLogType);
    clean_type_log_and_dir(kPanicLogType);
}

void copy_panic_log(core_log_type type) {
    if (reject_bad_log_type(type, __func__)) {
        return;
    }
    const std::string& new_log_path = log_type_table[type].new_log_path;
    if (new_log_path.empty()) {
        LOG(ERROR) << log_type_label[type] << __func__ << ": new_log_path not exist!";
        return;
    }
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(kLastDumpProperty, value, kPanicLogStem);
    const std::string directory = value;
    std::string command = "cp " + minidump_dir + "/" + directory + "/* " + new_log_path;
    // Keep: only the default directory has a fallback. Any other command that is too long is run
    // truncated.
    if (command.size() > kMaxCommandLength && directory == kPanicLogStem) {
        LOG(WARNING) << command << " exceed 512 length, using default path";
        command = "cp -r " + minidump_dir + "/" + kPanicLogStem + "/* " + new_log_path;
    }
    command.resize(std::min(command.size(), kMaxCommandLength));
    LOG(INFO) << log_type_label[type] << __func__ << ": " << command;
    run_command(command);
}
