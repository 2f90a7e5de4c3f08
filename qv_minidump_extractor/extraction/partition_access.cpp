#include "extraction/partition_access.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <new>
#include <sstream>

namespace {

// In bytes. A stream's default buffer is smaller and costs a system call for each block; the
// benchmark compares the copy with dd.
constexpr size_t kStreamBufferSize = size_t{64} * 1024;

// Returns `length` bytes at `position` of the open `file`; bytes that cannot be read are zero.
std::string read_bytes(std::ifstream& file, std::streampos position, int64_t length) {
    std::string bytes(static_cast<size_t>(length), '\0');
    file.seekg(static_cast<std::streamoff>(position), std::ios::beg);
    file.read(bytes.data(), length);
    return bytes;
}

}  // namespace

void byte_read_raw(const std::string& path, int32_t position, int32_t length,
                   unsigned char* buffer) {
    std::ifstream file(path, std::ios::binary);
    file.seekg(position, std::ios::beg);
    file.read(reinterpret_cast<char*>(buffer), length);
}

std::string read_raw(const std::string& path, std::streampos position, int32_t length) {
    std::ifstream file(path, std::ios::binary);
    if (file.fail()) {
        LOG(INFO) << "Failed to open file: " << path;
        return "";
    }
    std::string text;
    for (const char byte : read_bytes(file, position, length)) {
        // Plain char is signed on some platforms and unsigned on others; the digits must not be.
        android::base::StringAppendF(&text, "%02x", static_cast<unsigned char>(byte));
    }
    return text;
}

std::string byte_read_ascii_str(const std::string& path, std::streampos position, int64_t length) {
    std::ifstream file(path, std::ios::binary);
    if (file.fail()) {
        // Keep: ERROR here, but INFO in read_raw.
        LOG(ERROR) << "Failed to open file: " << path;
        return "";
    }
    return read_bytes(file, position, length);
}

uint32_t unsigned_hex2dec(const std::string& text) {
    uint32_t result = 0;
    unsigned int shift = 0;
    // Keep one stream for all pairs: a pair that cannot be read stays in it, so that it and all
    // later ones count as 0.
    std::stringstream pairs;
    for (size_t i = 0; i < text.size(); i += 2) {
        pairs << text.substr(i, 2);
        uint32_t value = 0;
        pairs >> std::hex >> value;
        pairs.clear();
        // Keep: the shift wraps, so the fifth byte is ORed onto the first, and so on.
        result |= value << (shift % 32);
        shift += 8;
    }
    return result;
}

void dump_dd(const std::string& source, const std::string& destination, int32_t block_size,
             int32_t count, int32_t skip) {
    char input_buffer[kStreamBufferSize];
    char output_buffer[kStreamBufferSize];
    using File = std::unique_ptr<FILE, int (*)(FILE*)>;
    File input(std::fopen(source.c_str(), "rb"), &std::fclose);
    File output(std::fopen(destination.c_str(), "wb"), &std::fclose);
    if (block_size < 0) {
        throw std::bad_alloc();
    }
    const auto size = static_cast<size_t>(block_size);
    // Zeroed, so that stale heap never passes for dump data. calloc: pages that are never read into
    // take no memory, even when a damaged size is far beyond the source. For 0 bytes some C
    // libraries return nothing, which is no lack of memory.
    const std::unique_ptr<void, decltype(&std::free)> block(
            std::calloc(1, std::max(size, size_t{1})), &std::free);
    if (!block) {
        throw std::bad_alloc();
    }
    if (input) {
        std::setvbuf(input.get(), input_buffer, _IOFBF, sizeof(input_buffer));
    }
    if (output) {
        std::setvbuf(output.get(), output_buffer, _IOFBF, sizeof(output_buffer));
    }
    bool readable = input && std::fseek(input.get(), skip, SEEK_SET) == 0;
    bool writable = output != nullptr;
    for (int32_t i = 0; i < count && writable; ++i) {
        // Each block is read over the one before and written whole, however much was read.
        readable = readable && std::fread(block.get(), 1, size, input.get()) == size;
        writable = std::fwrite(block.get(), 1, size, output.get()) == size;
    }
    // Keep: the source is closed first, then the destination.
    input.reset();
    output.reset();
}
