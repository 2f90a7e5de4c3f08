// The minidump header and its region table. Every field is read from the header copy; region data
// is copied from the partition.
#pragma once

#include <cstdint>
#include <string>

// The header copy is a sequence of records: record 0 is the header, record k is region entry k.
inline constexpr int32_t kRecordSize = 64;  // bytes
inline constexpr int32_t kHeaderRecord = 0;

// A field of a record: its offset from the record's start and its size, in bytes. Numbers are
// little-endian.
struct Field {
    int32_t offset;
    int32_t size;
};

// The header.
inline constexpr Field kMagic = {0, 8};      // text; any content is accepted
inline constexpr Field kFlags = {12, 4};     // bit 0 of the first byte: the region table is set
inline constexpr Field kDumpSize = {36, 8};  // bytes, counted from the partition's start
inline constexpr Field kRegionCount = {52, 4};

// A region entry.
inline constexpr Field kRegionOffset = {4, 8};  // where the data begins in the partition, in bytes
inline constexpr Field kRegionSize = {12, 8};   // bytes of data
inline constexpr Field kRegionName = {36, 20};  // padded with zero bytes; the output file's name

// Returns when the region table of the header copy at `header_path` is set. Otherwise, also when
// the copy cannot be read, deletes the copy and ends the process with status 11.
void validate(const std::string& header_path);

// Returns the number in `field` of record `record` (0 or more) of the header copy at `header_path`,
// folded to 32 bits as unsigned_hex2dec does. Bytes past the end count as zeros. Returns 0, with an
// INFO line, when the copy cannot be opened.
uint32_t read_number(const std::string& header_path, int32_t record, const Field& field);

// Returns the name of region entry `section_num` (counted from 1) in the header copy at
// `header_path`, cut before its first zero byte: at most 20 bytes, unchecked. Empty, with an ERROR
// line, when the copy cannot be opened.
std::string read_region_name(const std::string& header_path, int32_t section_num);

// Copies the data of region entry `section_num` (counted from 1) of "header.img" in `directory` to
// a file of the region's name in "tmp" there. The third argument is ignored. Reports no error of
// its own: an entry that cannot be read counts as zeros, whose empty name writes no file. An offset
// that reads as 2 GiB or more gives a file of zeros. Throws std::bad_alloc for a size that reads as
// 2 GiB or more, or that the memory has no room for.
void get_md_by_section_num(int32_t section_num, const std::string& directory, const std::string&);
