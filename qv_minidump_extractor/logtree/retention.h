// Counts, prunes and packs the logs in a type's directory: log directories and archives called
// prefix, number, "_", time. logtree/log_types.h says what is thrown.
#pragma once

#include <cstdint>
#include <string>

// Returns the number in the name of a log, or -1, with an ERROR line, when the name is not three
// parts separated by "_" with only digits in the second.
int64_t get_boot_count_by_file_name(const std::string& name);

// Returns the number for the next log in `dir`, which must exist: one more than the largest among
// the names that begin with `prefix` (all names when it is empty), at most INT64_MAX; 0 when there
// is none.
int64_t get_new_qv_log_count(const std::string& dir, const std::string& prefix);

// Prunes `dir` (ending in "/") for the log number `new_log_count`. Removes names that do not begin
// with `prefix`, except hidden ones, and logs with malformed names or numbers up to
// new_log_count - max_log_count; returns true as soon as one of these cannot be removed. Packs and
// removes the other logs, except names that contain "tar". Returns false at the end.
bool remove_old_and_trash_file(int64_t new_log_count, const std::string& dir,
                               const std::string& prefix, int32_t max_log_count);

// Removes `path` and everything below it. Returns 0 when it is gone or not found, -1 otherwise. A
// link that leads nowhere, or a path whose status cannot be read, counts as not found and stays.
int QVRemoveFile(const std::string& path);

// Packs the directory `path` (no trailing "/") into `path`.tar.gz, with mode 0770, and publishes
// its name in vendor.qv_dump.last_panic_log. With `remove_after` the directory is then removed,
// also when the archive failed. Returns 0.
int tar_and_delete_dir(const std::string& path, bool remove_after);
