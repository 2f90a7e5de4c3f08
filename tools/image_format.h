// The layout of a minidump partition image: builds images for the workstation, and reads numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

inline constexpr size_t kRecord = 64;         // bytes: the header, or a region entry
inline constexpr size_t kTableSpace = 40960;  // bytes: all that a run reads of header and table
inline constexpr size_t kMaxNameSize = 20;    // bytes

struct Region {
    std::string name;  // up to kMaxNameSize bytes; a longer one is truncated
    std::string content;
};

// Writes `value` into `image` at byte `offset`, little-endian in `size` bytes (1 to 8). The image
// must reach that far.
void put_number(std::string& image, size_t offset, size_t size, uint64_t value);

// Returns the little-endian number of `size` bytes (1 to 8) at byte `offset` of `image`; 0 for
// bytes past its end.
uint64_t get_number(const std::string& image, size_t offset, size_t size);

// Returns a valid partition image: header, region table, then the regions' data, up to
// `partition_size` bytes (at least the dump). Bytes of the table that no reader may depend on, and
// those behind the dump, are 0xa5.
std::string build_image(const std::vector<Region>& regions, size_t partition_size);

// Returns the regions of a plausible crash, with a kernel console and a restart record.
std::vector<Region> sample_regions();
