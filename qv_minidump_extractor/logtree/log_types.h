// The log types and the naming of log directories. /mnt/vendor/qv_log/ has room for a directory for
// each type, and each of these contains numbered, dated log directories and their archives.
//
// The functions of this subsystem throw std::filesystem::filesystem_error when a directory cannot
// be listed or a mode cannot be set, std::invalid_argument when the number in a log's name is
// empty, and std::out_of_range when it exceeds INT64_MAX. Nothing in the tool catches these, so
// they abort the run. Other failures are returned, logged or ignored.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

// The index of a log type. Operations reject kLogTypeCount and above.
using core_log_type = uint32_t;
inline constexpr core_log_type kPanicLogType = 4;
inline constexpr size_t kLogTypeCount = 5;  // boot, crash, rescue, ota, panic

inline constexpr int kBadLogType = -22;

struct LogTypeEntry {
    bool flag;               // part of the table; no operation reads it
    uint32_t max_log_count;  // logs kept, the newest one included
    int64_t new_log_count;   // the number of the next log
    std::string prefix;
    std::string log_dir;               // ends in "/"
    std::string new_log_path;          // the newest log directory, ending in "/"; empty at first
    std::string new_log_path_no_sign;  // the same without the "/"
};

// Filled before main; an array has one entry for each type.
extern const std::array<std::string, kLogTypeCount> log_type_name;  // no operation reads it
extern const std::array<std::string, kLogTypeCount> log_type_label;
extern const std::string qv_log_root;
extern const std::array<std::string, kLogTypeCount> log_type_prefix;
extern std::array<LogTypeEntry, kLogTypeCount> log_type_table;

// Returns true, after an ERROR line that begins with `operation`, when `type` is no log type; false
// otherwise.
bool reject_bad_log_type(core_log_type type, const char* operation);

// Sets the mode of `path` to 0770, if its status can be read and says that it exists.
void chang_to_qv_log_mod(const std::string& path);

// Makes the directory `path` and its parents, and sets its mode to 0770, also when it was there
// before. Returns 0 when `path` exists afterwards, which a plain file does unless `path` ends in
// "/"; 1 otherwise.
int qv_create_dir_str(const std::string& path);

// GetCurrentTimestamp, under the name that the log tree has for it.
std::string getCurrentTimeFormatted();

// Names and makes the next log directory of `type`. Records its paths in log_type_table even when
// it cannot be made. The name of a panic log ends in what follows the last "_" in
// kLastDumpProperty; if that is empty, and for every other type, it ends in the current time.
// Returns 0; 1 when the directory could not be made; kBadLogType.
int create_type_new_qv_log_dir(core_log_type type);
