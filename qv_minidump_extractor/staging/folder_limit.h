#pragma once

#include <cstdint>
#include <filesystem>

// Deletes the oldest panic directories in `parent`, with everything in them, until `max` are left.
// A panic directory is one whose name begins with "panic_log" or "last_kmsg"; the oldest is the one
// modified first. Writes to standard output and standard error, not to the log. Does nothing, with
// a line on standard error, when `parent` is not a directory. Throws
// std::filesystem::filesystem_error on any other failure.
void LimitFolderNum(const std::filesystem::path& parent, uint64_t max);
