// One run: turns the minidump partition into files that engineers can collect, and erases it.
//
// Contract: the properties, which other services read, and the log lines with their severities, all
// in this order. Here and in staging/ a log line about an error is INFO, too. Almost no error stops
// the run.

#include <android-base/logging.h>
#include <android-base/unique_fd.h>
#include <cutils/properties.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "common/run_values.h"
#include "common/shell.h"
#include "common/text_file.h"
#include "common/timestamp.h"
#include "extraction/archive_retention.h"
#include "extraction/partition_access.h"
#include "extraction/region_table.h"
#include "extraction/restart_reason.h"
#include "logtree/panic_log.h"
#include "staging/folder_limit.h"
#include "staging/upload_files.h"
#include "staging/work_place.h"

namespace {

constexpr int kExitInvalidArguments = 22;
constexpr char kStatusProperty[] = "vendor.minidump.cp.status";
constexpr int32_t kBlockSize = 4096;   // bytes
constexpr int32_t kHeaderBlocks = 10;  // room for 639 region entries
constexpr uint64_t kMaxPanicDirectories = 2;

// Waits until no other run uses the partition, and keeps later ones waiting: one run would erase
// the dump while another still copies it. The kernel unlocks once this process and the keeper of
// its last command (common/shell.cpp) have both ended. A failure is ignored.
void lock_partition() {
    const int partition = open(logdump_partition_path.c_str(), O_RDONLY | O_CLOEXEC);
    flock(partition, LOCK_EX);
}

void name_and_publish_run() {
    current_timestamp = GetCurrentTimestamp();
    LOG(INFO) << "Current Timestamp: " << current_timestamp;
    panic_log_dir += "_" + current_timestamp;
    property_set(kLastDumpProperty, (std::string(kPanicLogStem) + "_" + current_timestamp).c_str());
    property_set("vendor.qv_dump.exist", "1");
}

void make_tmp_directory(const std::string& tmp_path) {
    struct stat status = {};
    if (stat(tmp_path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        LOG(INFO) << "Temp folder already exists: " << tmp_path;
    } else if (mkdir(tmp_path.c_str(), 0777) != 0) {
        LOG(INFO) << "Failed to create temp folder: " << tmp_path;
    } else {
        LOG(INFO) << "Created temp folder: " << tmp_path;
    }
}

// Regions and their list go to the minidump directory, and the regions are found by the header copy
// there. Later steps read them in the working directory. The two are normally the same; keep both.
void extract_regions(const std::string& header_path) {
    for (int32_t i = 0; i < md_region_count; ++i) {
        get_md_by_section_num(i + 1, minidump_dir, "");
        writeStringToFile(read_region_name(header_path, i + 1),
                          minidump_dir + "/" + kTmpDirectory + "/" + kDumpInfo);
    }
}

void archive_dump(const std::string& archive_name) {
    const std::string archive_path = work_dir + "/" + archive_name;
    const std::string command = "tar -zcvf " + archive_path + " -C " + work_dir + " " + kDumpImage;
    LOG(INFO) << command;
    if (run_command(command) != 0) {
        LOG(INFO) << "Compression failed.";
        return;
    }
    LOG(INFO) << "Compression completed successfully.";
    LOG(INFO) << "minidump save as " << archive_path;
    property_set("vendor.minidump.last_file", archive_name.c_str());
}

// Flushes the file, directory or device at `path` to storage. A failure is ignored.
void flush_to_storage(const std::string& path) {
    const android::base::unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    fsync(file);
}

// Zeroes the first `blocks` blocks of the partition. The first one, with the header, is flushed
// before the others are written: blocks reach storage in any order, and the next run would take an
// old header with half a dump for a whole dump.
void erase_dump(int32_t blocks) {
    dump_dd("/dev/zero", logdump_partition_path, kBlockSize, 1, 0);
    flush_to_storage(logdump_partition_path);
    dump_dd("/dev/zero", logdump_partition_path, kBlockSize, blocks, 0);
    flush_to_storage(logdump_partition_path);
}

}  // namespace

int main(int argc, char** argv) {
    // InitLogging takes from here what to log. A caller's value must not silence the log.
    setenv("ANDROID_LOG_TAGS", "*:d", 1);
    android::base::InitLogging(argv, android::base::LogdLogger(android::base::SYSTEM),
                               android::base::DefaultAborter);
    LOG(INFO) << "qv_minidump_extractor start!!";
    const auto start = std::chrono::steady_clock::now();
    if (argc < 2) {
        LOG(INFO) << "Invalid arguments.";
        return kExitInvalidArguments;
    }
    // Keep, without effect: the first argument is required, but not read.
    [[maybe_unused]] const std::string first_argument = argv[1];
    work_dir = argc == 2 ? "." : argv[2];
    lock_partition();

    const std::string header_path = work_dir + "/" + kHeaderImage;
    dump_dd(logdump_partition_path, header_path, kBlockSize, kHeaderBlocks, 0);
    validate(header_path);
    property_set(kStatusProperty, "running");
    name_and_publish_run();

    const uint32_t dump_size = read_number(header_path, kHeaderRecord, kDumpSize);
    LOG(INFO) << "dump size is " << dump_size;
    // Keep: one more than the number of whole blocks, also for a multiple of the block size.
    const auto dump_blocks = static_cast<int32_t>(dump_size / kBlockSize + 1);
    dump_dd(logdump_partition_path, work_dir + "/" + kDumpImage, kBlockSize, dump_blocks, 0);
    md_region_count = static_cast<int32_t>(read_number(header_path, kHeaderRecord, kRegionCount));
    make_tmp_directory(work_dir + "/" + kTmpDirectory);
    extract_regions(header_path);

    const std::string archive_name = kArchivePrefix + current_timestamp + ".tar.gz";
    archive_dump(archive_name);
    get_restart_info();
    copy_upload_files();
    check_minidump_num(work_dir);
    LimitFolderNum(minidump_dir, kMaxPanicDirectories);
    work_place_cleanup();

    // Flush the archive and its directory entry first: once the zeros reach storage, the archive is
    // the only copy. Keep: the erase also follows a failed archive. Losing that dump is accepted.
    flush_to_storage(work_dir + "/" + archive_name);
    flush_to_storage(work_dir);
    erase_dump(dump_blocks);
    // Keep: the log tree is not timed.
    const auto end = std::chrono::steady_clock::now();
    copy_to_qv_log();
    LOG(INFO) << "Time taken: "
              << std::chrono::duration_cast<std::chrono::milliseconds>(end - start).count()
              << " ms";
    property_set(kStatusProperty, "1");
    return 0;
}
