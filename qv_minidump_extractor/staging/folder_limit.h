#pragma once

#include <cstdint>
#include <filesystem>

// Deletes the oldest panic directories in `parent`, with all they hold, until `max` are left:
// directories whose names begin with "panic_log" or "last_kmsg", oldest by modification time.
// Writes to standard output and standard error, not to the log. Does nothing, with a line on
// standard error, when `parent` is not a directory. Throws std::filesystem::filesystem_error on any
// other failure.
void LimitFolderNum(const std::filesystem::path& parent, uint64_t max);
