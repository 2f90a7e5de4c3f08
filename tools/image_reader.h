// Reads partition images, for minidump_image.
#pragma once

#include <android-base/unique_fd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "image_format.h"

// The exit statuses, from 0 on. Scripts depend on them.
enum Status { kSuccess, kFailed, kWrongArguments, kInconsistent, kNoDump };

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
    std::vector<RegionEntry> regions;  // those whose entries a run reads and the image contains
    Status status = kSuccess;          // or kInconsistent; kFailed when its archive is damaged, so
                                       // that any byte may be wrong
};

// Opens the image `path`, a file or block device, and reads its header and table. A dump archive is
// unpacked to a temporary file first, as far as possible. Exits, with a message, with kFailed when
// the image cannot be read, and with kNoDump when it contains no dump. When it is damaged or
// inconsistent, the program's last message says how, and what to do next.
Image open_image(const char* path);

// Writes what the image contains of `region` to the open file `output`, in blocks of up to 1 MiB.
// Returns true when that is all of it; otherwise reports why not.
bool copy_region(const Image& image, const RegionEntry& region, int output);

// Returns a name from an image as it is safe to print and as a file's name: printable ASCII,
// without spaces, slashes, quotation marks, and a dot or dash at the start. Other bytes become
// "\x1b" and the like, and an empty name two quotation marks, so no two names become the same.
std::string escaped(const std::string& name);

// What the name of a file ends in while it is written, and for good when it may be wrong.
inline constexpr char kDamaged[] = ".damaged";

// Returns the name of the file for region `index` (from 0 on): escaped, and with the entry number
// before it when another region has the same name, or when it ends in kDamaged.
std::string file_name(const std::vector<RegionEntry>& regions, size_t index);
