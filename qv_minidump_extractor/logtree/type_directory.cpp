#include "logtree/type_directory.h"

#include <android-base/logging.h>

#include "logtree/retention.h"

int prepare_type_log_and_dir(core_log_type type) {
    if (reject_bad_log_type(type, __func__)) {
        return kBadLogType;
    }
    LogTypeEntry& entry = log_type_table[type];
    const std::string& label = log_type_label[type];
    if (qv_create_dir_str(entry.log_dir) != 0) {
        LOG(ERROR) << label << __func__ << ": qv_create_dir_str fail create: " << entry.log_dir;
        return -1;
    }
    // Counted before the pruning, so that archives made there keep their numbers.
    entry.new_log_count = get_new_qv_log_count(entry.log_dir, entry.prefix);
    // Keep: ERROR, though the line is routine.
    LOG(ERROR) << label << __func__ << ": new_log_count: " << entry.new_log_count;
    if (remove_old_and_trash_file(entry.new_log_count, entry.log_dir, entry.prefix,
                                  static_cast<int32_t>(entry.max_log_count))) {
        LOG(ERROR) << label << __func__
                   << ": remove_old_and_trash_file failed!, prefix: " << entry.prefix
                   << " ,new_log_count: " << entry.new_log_count;
        return -1;
    }
    if (create_type_new_qv_log_dir(type) != 0) {
        // Keep: the message names the operation by this shorter name.
        LOG(ERROR) << label << __func__ << ": create_new_qv_log_dir failed!";
        return -1;
    }
    return 0;
}

void clean_type_log_and_dir(core_log_type type) {
    if (reject_bad_log_type(type, __func__)) {
        return;
    }
    const std::string& path = log_type_table[type].new_log_path_no_sign;
    if (path.empty()) {
        LOG(ERROR) << log_type_label[type] << __func__ << ": new_log_path_no_sign not exist!";
        return;
    }
    // The newest panic log is also kept unpacked.
    tar_and_delete_dir(path, type != kPanicLogType);
}
