// Reads single fields of files and copies blocks between files and the partition. Knows nothing of
// the minidump format. Each call opens its files anew; positions are absolute, in bytes.
#pragma once

#include <cstdint>
#include <ios>
#include <string>

// Reads `length` bytes at `position` of the file at `path` into `buffer`. Reports nothing: when the
// file cannot be opened or ends early, every byte that was not read keeps its value, so callers
// preset what they test.
void byte_read_raw(const std::string& path, int32_t position, int32_t length,
                   unsigned char* buffer);

// The same routine under its name for text.
inline constexpr auto& byte_read_ascii = byte_read_raw;

// Returns `length` bytes at `position` of the file at `path` as hexadecimal text in file order: two
// lowercase digits a byte, "00" for a byte past the end. Returns an empty string, with an INFO
// line, when the file cannot be opened.
std::string read_raw(const std::string& path, std::streampos position, int32_t length);

// Returns exactly `length` bytes at `position` of the file at `path`, zero bytes included; bytes
// past the end are zero. Returns an empty string, with an ERROR line, when the file cannot be
// opened. Throws std::length_error on a negative length.
std::string byte_read_ascii_str(const std::string& path, std::streampos position, int64_t length);

// Returns the 32-bit number that the text of read_raw gives in little-endian order. Byte j goes to
// bit 8 * (j % 4), so the high half of an eight-byte field is ORed onto its low half. What is not
// hexadecimal, and all after it, counts as 0. Returns 0 for an empty text.
uint32_t unsigned_hex2dec(const std::string& text);

// Copies `count` blocks of `block_size` bytes from the file `source`, from byte `skip` on, to the
// file `destination`, which is created or truncated first. Copies none when `count` is below 1.
// Reports no error. A destination that can be written receives block_size * count bytes: each block
// is read over the one before and written whole, so a short read leaves the rest of the block as it
// was before (zeros in the first block). After a short read nothing more is read, and after a
// failed write nothing more is written. A source that cannot be opened, or a negative `skip`, gives
// zeros. Throws std::bad_alloc, with both files opened, when `block_size` is negative or there is
// no memory for a block.
void dump_dd(const std::string& source, const std::string& destination, int32_t block_size,
             int32_t count, int32_t skip);
