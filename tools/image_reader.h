// Reads the header and the table of a partition image, for minidump_image.
#pragma once

#include <android-base/unique_fd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "image_format.h"

// The exit statuses, from 0 on. Scripts depend on them.
enum Status { kSuccess, kFailed, kWrongArguments, kInconsistent, kNoDump };

// What to try when a file makes no sense as an image.
inline constexpr char kHint[] = "if it is packed in another way (zip, xz, ...), unpack it first";

// Where a region lies in an image.
struct RegionEntry {
    std::string name;    // up to kMaxNameSize bytes, any but zero
    uint64_t offset;     // bytes from the start of the image
    uint64_t size;       // bytes
    uint64_t available;  // bytes of it that the image contains, from its start on
};

struct Image {
    android::base::unique_fd file;
    uint64_t size = 0;                 // bytes
    uint64_t dump_size = 0;            // as in the header, bytes
    uint64_t region_count = 0;         // as in the header
    std::vector<RegionEntry> regions;  // those that a run can know and the image contains
    Status status = kSuccess;          // kFailed when its archive is damaged, or kInconsistent
};

// Opens the image `path`, a file or block device, and reads its header and table. A dump archive is
// unpacked to a temporary file first, as far as possible. Reports what is wrong on standard error.
// Exits with kFailed when the image cannot be read, and with kNoDump when it contains no dump.
Image open_image(const std::string& path);

// Returns a name from an image as it is safe to print: printable ASCII without spaces. Other bytes
// become "\x1b" and the like, and an empty name two quotation marks.
std::string escaped(const std::string& name);

// Returns the name of the file for region `index` (from 0 on): the region's own if that is safe and
// no other region has it, otherwise one that contains the entry number.
std::string file_name(const std::vector<RegionEntry>& regions, size_t index);
