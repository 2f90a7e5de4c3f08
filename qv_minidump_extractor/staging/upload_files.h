#pragma once

#include <string>

// Copies the regular file (or link to one) called exactly `name` from `source_dir` to
// `destination_dir`, over an older copy. The destination directory is not made. Returns 0 when a
// file was copied; 1 when there is none, or when a filesystem error was caught and logged.
int copyFilesWithMatchingName(const std::string& source_dir, const std::string& destination_dir,
                              const std::string& name);

// Fills this run's panic directory for upload: the kernel console's text, and an archive of the
// selected region files. Returns -1 when the directory could not be prepared; 0 otherwise, whatever
// failed later. Throws std::filesystem::filesystem_error when an old directory cannot be emptied.
int copy_upload_files();
