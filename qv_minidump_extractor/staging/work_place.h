#pragma once

// Makes this run's panic directory, panic_log_dir, with mode 0770 less the umask, or empties the
// one that is there. Returns 0 when it is there afterwards, 1 when it could not be made. Throws
// std::filesystem::filesystem_error when an existing one cannot be listed or holds something that
// cannot be removed singly, such as a directory with files.
int create_panic_folder();

// Removes the intermediate files of a run from the minidump directory, whatever the working
// directory: tmp, the header copy, the dump image, and what the selection directory holds, but not
// the selection directory itself or names in it that begin with ".". Logs each failure and goes on.
void work_place_cleanup();
