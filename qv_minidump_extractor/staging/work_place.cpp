#include "staging/work_place.h"

#include <android-base/logging.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "common/run_values.h"
#include "common/shell.h"

int create_panic_folder() {
    struct stat status = {};
    if (stat(panic_log_dir.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        if (mkdir(panic_log_dir.c_str(), 0770) != 0) {
            LOG(INFO) << "Failed to create folder: " << panic_log_dir;
            return 1;
        }
        LOG(INFO) << "Created folder: " << panic_log_dir;
        return 0;
    }
    LOG(INFO) << "Folder already exists: " << panic_log_dir;
    for (const auto& entry : std::filesystem::directory_iterator(panic_log_dir)) {
        std::filesystem::remove(entry.path());
    }
    return 0;
}

void work_place_cleanup() {
    const std::string rm = "rm -rf " + minidump_dir + "/";
    for (const std::string& command : {rm + kTmpDirectory, rm + kHeaderImage, rm + kDumpImage,
                                       rm + kSelectionDirectory + "/*"}) {
        if (run_command(command) != 0) {
            LOG(INFO) << "Failed: " << command;
        }
    }
}
