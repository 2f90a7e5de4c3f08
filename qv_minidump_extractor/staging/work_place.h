#pragma once

// Makes this run's panic directory, panic_log_dir, with mode 0770 less the umask, or empties the
// one that is there. Returns 0 when it is there afterwards, 1 when it could not be made. Throws
// std::filesystem::filesystem_error when an existing one cannot be listed, or when an entry cannot
// be removed, such as a directory that is not empty.
int create_panic_folder();

// Removes the intermediate files of a run from the minidump directory, whatever the working
// directory: tmp, the header copy, the dump image, and the contents of the selection directory
// except names that begin with ".". Logs each failure and goes on.
void work_place_cleanup();
