#pragma once

#include <cstdint>
#include <filesystem>

// Deletes the oldest panic folders in `parent`, with all they hold, until `max` are left: folders
// whose names begin with "panic_log" or "last_kmsg", oldest by modification time. Writes to
// standard output and standard error, not to the log. Does nothing, with a line on standard error,
// when `parent` is no folder. Throws std::filesystem::filesystem_error on any other failure.
void LimitFolderNum(const std::filesystem::path& parent, uint64_t max);
