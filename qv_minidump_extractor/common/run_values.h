// The values that a whole run shares. Only main writes them, before any reader is called.
#pragma once

#include <cstdint>
#include <string>

// The block device with the minidump.
extern const std::string logdump_partition_path;

// The working directory, as the command line names it: contains the header copy, the dump image,
// the tmp directory and the archive. Empty until main has read its arguments.
extern std::string work_dir;

// The number of region entries, as the header gives it; may be negative or larger than the table.
extern int32_t md_region_count;

// The minidump directory, which other services collect from, without a trailing "/". Several steps
// use it whatever the working directory is. The two are normally the same; do not derive one from
// the other.
extern const std::string minidump_dir;

// This run's panic directory; main appends "_" and the timestamp.
extern std::string panic_log_dir;

// This run's time, in the shape of GetCurrentTimestamp (common/timestamp.h).
extern std::string current_timestamp;

// Unused; a fixed name of the device.
extern const std::string vantix_dir;

// The start of panic directory names. Also the default of kLastDumpProperty.
inline constexpr char kPanicLogStem[] = "panic_log";

// The property that names this run's panic directory, without its parent. The log tree copies from
// that directory and takes the time from its name.
inline constexpr char kLastDumpProperty[] = "vendor.qv_dump.last_dump";

// Names of files and directories, and the start of archive names.
inline constexpr char kHeaderImage[] = "header.img";
inline constexpr char kDumpImage[] = "minidump.bin";
inline constexpr char kTmpDirectory[] = "tmp";
inline constexpr char kDumpInfo[] = "dump_info.txt";
inline constexpr char kSelectionDirectory[] = "aop_dump";
inline constexpr char kArchivePrefix[] = "minidump_";
