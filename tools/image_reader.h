// Reads header and table of a partition image, for minidump_image. What goes wrong is reported on
// standard error, and ends a call by a thrown Status.
#pragma once

#include <android-base/unique_fd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "image_format.h"

// The exit statuses, from 0 on; scripts tell images apart by them. One is thrown to give up, after
// the message.
enum Status { kSuccess, kFailed, kWrongArguments, kDoubtful, kNoDump, kPacked };

// Reports `otherwise` and throws `status`, unless the condition holds.
void require(bool holds, Status status, const std::string& otherwise);

// The same for a system call, with kFailed: the message also says why, by errno.
void check(bool succeeded, const std::string& otherwise);

// Opens the file at `path`, or throws kFailed.
android::base::unique_fd open_for_reading(const std::string& path);

struct Image {
    android::base::unique_fd file;
    uint64_t size;  // bytes
    uint64_t dump_size;
    uint64_t region_count;             // as the header has it
    std::vector<RegionEntry> regions;  // those that a run can know and the image holds
    Status status = kSuccess;          // or kDoubtful
};

// Opens an image, a file or a block device, and reads its header and table, no more. Reports what
// is doubtful about them. Throws kFailed when it cannot be read, kPacked when it begins like packed
// data, kNoDump when its table is not set.
Image open_image(const std::string& path);

// Returns a name from an image as it is safe to print: printable ASCII without spaces. Other bytes
// become "\x1b" and the like, a backslash "\\", and a name without bytes two quotation marks.
std::string escaped(const std::string& name);

// Returns "  (TEXT)" when the condition holds, otherwise nothing.
std::string remark(bool holds, const char* text);

// Returns remarks on why the name of region `index` cannot be a file's name; empty when it can.
std::string name_faults(const std::vector<RegionEntry>& regions, size_t index);
