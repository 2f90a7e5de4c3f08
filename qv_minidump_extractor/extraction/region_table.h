// The minidump header and its region table. Every field is read from the header copy; region data
// is copied from the partition.
#pragma once

#include <cstdint>
#include <string>

// The header copy is a sequence of records: record 0 is the header, record k is region entry k.
// Numbers are little-endian.
inline constexpr int32_t kRecordSize = 64;  // bytes

// Header fields: byte offsets in record 0, sizes in bytes.
inline constexpr int32_t kMagicSize = 8;     // text at offset 0; any content is accepted
inline constexpr int32_t kFlagsOffset = 12;  // bit 0 of the first byte: region table is set
inline constexpr int32_t kFlagsSize = 4;
inline constexpr int32_t kDumpSizeOffset = 36;  // bytes, counted from the partition's start
inline constexpr int32_t kDumpSizeSize = 8;
inline constexpr int32_t kRegionCountOffset = 52;
inline constexpr int32_t kRegionCountSize = 4;

// Region entry fields: byte offsets in the entry's record, sizes in bytes.
inline constexpr int32_t kRegionOffsetOffset = 4;  // where the data begins in the partition
inline constexpr int32_t kRegionOffsetSize = 8;
inline constexpr int32_t kRegionSizeOffset = 12;  // bytes of data
inline constexpr int32_t kRegionSizeSize = 8;
inline constexpr int32_t kRegionNameOffset = 36;  // padded with zero bytes; the output file's name
inline constexpr int32_t kRegionNameSize = 20;

// Returns when the region table of the header copy at `header_path` is set. Otherwise, also when
// the copy cannot be read, deletes the copy and ends the process with status 11.
void validate(const std::string& header_path);

// Returns the name of region entry `section_num` (counted from 1) in the header copy at
// `header_path`, cut before its first zero byte: at most 20 bytes, unchecked. Empty, with an ERROR
// line, when the copy cannot be opened.
std::string read_region_name(const std::string& header_path, int32_t section_num);

// Copies the data of region entry `section_num` (counted from 1) of "header.img" in `directory` to
// a file of the region's name in "tmp" there. The third argument is ignored. Reports no error of
// its own: an entry that cannot be read counts as zeros, whose empty name writes no file. Throws
// std::bad_alloc for a region of 2 GiB or more.
void get_md_by_section_num(int32_t section_num, const std::string& directory, const std::string&);
