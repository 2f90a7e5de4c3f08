#pragma once

// Makes this run's panic folder, panic_log_dir, with mode 0770 less the umask, or empties the one
// that is there. Returns 0 when it is there afterwards, 1 when it could not be made. Throws
// std::filesystem::filesystem_error when an existing one cannot be listed or holds something that
// cannot be removed singly, such as a sub-folder with files.
int create_panic_folder();

// Removes the intermediate files of a run from the minidump folder, whatever the working directory:
// tmp, the header copy, the dump image, and what the selection folder holds, but not the selection
// folder itself or names in it that begin with ".". Each failure is logged; the rest still runs.
void work_place_cleanup();
