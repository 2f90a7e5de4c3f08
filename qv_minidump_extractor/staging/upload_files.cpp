#include "staging/upload_files.h"

#include <android-base/logging.h>

#include <filesystem>
#include <vector>

#include "common/run_values.h"
#include "common/shell.h"
#include "staging/work_place.h"

namespace {

constexpr int kMsgRams = 16;

// The region files that engineers want uploaded, under the names that the dump gives them.
std::vector<std::string> selected_regions() {
    std::vector<std::string> names = {"md_TZ_DIAG.BIN"};
    for (int i = 0; i < kMsgRams; ++i) {
        names.push_back("md_MSGRAM" + std::to_string(i) + ".BIN");
    }
    names.insert(names.end(),
                 {"md_CODERAM.BIN", "md_DATARAM.BIN", "md_XBL_LOG.BIN", "md_UEFI_LOG.BIN",
                  "md_encr_key_aes.BIN", "md_encr_key_iv.BIN", "md_encr_key_mac.BIN",
                  "md_SHRDIMEM.BIN", "md_MEMDUMP.BIN", "load.cmm"});
    return names;
}

int select_file(const std::string& name) {
    return copyFilesWithMatchingName(work_dir + "/" + kTmpDirectory,
                                     work_dir + "/" + kSelectionDirectory, name);
}

void save_console_text() {
    const std::string text_path = panic_log_dir + "/last_kmsg.txt";
    const std::string command =
            "strings " + work_dir + "/" + kTmpDirectory + "/md_KCONSOLE.BIN > " + text_path;
    if (run_command(command) != 0) {
        LOG(INFO) << "strings md_KCONSOLE.BIN save failed";
    } else {
        LOG(INFO) << "strings md_KCONSOLE.BIN and save as " << text_path;
    }
}

void save_selection() {
    const std::string archive_path = panic_log_dir + "/" + kSelectionDirectory + ".tar.gz";
    const std::string command =
            "tar -zcvf " + archive_path + " -C " + work_dir + " " + kSelectionDirectory;
    LOG(INFO) << command;
    if (run_command(command) != 0) {
        LOG(INFO) << "aop_dump save failed";
    } else {
        LOG(INFO) << "aop_dump save as " << archive_path;
    }
}

}  // namespace

int copyFilesWithMatchingName(const std::string& source_dir, const std::string& destination_dir,
                              const std::string& name) {
    try {
        for (const auto& entry : std::filesystem::directory_iterator(source_dir)) {
            if (!entry.is_regular_file() || entry.path().filename().string() != name) {
                continue;
            }
            std::filesystem::copy(entry.path(), destination_dir + "/" + name,
                                  std::filesystem::copy_options::overwrite_existing);
            LOG(INFO) << "Copied file: " << entry.path().filename();
            return 0;
        }
    } catch (const std::filesystem::filesystem_error& error) {
        LOG(INFO) << "Filesystem error: " << error.what();
    }
    return 1;
}

int copy_upload_files() {
    if (create_panic_folder() != 0) {
        LOG(INFO) << "Failed create_panic_folder(), stop copy_upload_files()";
        return -1;
    }
    save_console_text();
    if (select_file(kDumpInfo) != 0) {
        LOG(INFO) << "dump_info.txt copy failed";
    }
    // Not every dump contains every region, so a missing one is no failure.
    for (const std::string& name : selected_regions()) {
        select_file(name);
    }
    save_selection();
    return 0;
}
