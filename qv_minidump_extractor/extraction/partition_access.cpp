#include "extraction/partition_access.h"

#include <android-base/logging.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <memory>
#include <sstream>
#include <vector>

namespace {

// A dump is hundreds of megabytes in 4096-byte blocks. This many bytes at a time make system calls
// rare and still fit into the processor's cache.
constexpr std::streamsize kBufferSize = std::streamsize{256} * 1024;

// Reads up to `size` bytes into `buffer` and returns how many there were.
size_t read_available(std::ifstream& input, char* buffer, size_t size) {
    const std::streamoff start = input.tellg();
    input.read(buffer, static_cast<std::streamsize>(size));
    if (!input.bad() || start < 0) {
        return static_cast<size_t>(input.gcount());
    }
    // A device error: some libraries then count nothing, but the bytes before it were read.
    input.clear();
    const std::streamoff end = input.tellg();
    input.setstate(std::ios::badbit);
    return static_cast<size_t>(std::max<std::streamoff>(end - start, 0));
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
    file.seekg(static_cast<std::streamoff>(position), std::ios::beg);
    std::string bytes(static_cast<size_t>(length), '\0');
    file.read(bytes.data(), length);
    std::ostringstream text;
    text << std::hex << std::setfill('0');
    for (const char byte : bytes) {
        // Plain char is signed on some platforms and unsigned on others; the digits must not be.
        text << std::setw(2) << static_cast<unsigned int>(static_cast<unsigned char>(byte));
    }
    return text.str();
}

std::string byte_read_ascii_str(const std::string& path, std::streampos position, int64_t length) {
    std::ifstream file(path, std::ios::binary);
    if (file.fail()) {
        // ERROR here but INFO in read_raw: log readers tell the two apart by it. Keep both.
        LOG(ERROR) << "Failed to open file: " << path;
        return "";
    }
    std::vector<char> bytes(static_cast<size_t>(length), '\0');
    file.seekg(static_cast<std::streamoff>(position), std::ios::beg);
    file.read(bytes.data(), length);
    std::ostringstream text;
    for (const char byte : bytes) {
        text.put(byte);
    }
    return text.str();
}

uint32_t unsigned_hex2dec(const std::string& text) {
    uint32_t result = 0;
    unsigned int shift = 0;
    // One stream for all pairs: a pair that cannot be read stays in it and blocks the later ones.
    std::stringstream pairs;
    for (size_t i = 0; i < text.size(); i += 2) {
        pairs << text.substr(i, 2);
        uint32_t value = 0;
        pairs >> std::hex >> value;
        pairs.clear();
        // The fifth byte folds onto the first, and so on: 32 bits are all that a run works with.
        result |= value << (shift % 32);
        shift += 8;
    }
    return result;
}

void dump_dd(const std::string& source, const std::string& destination, int32_t block_size,
             int32_t count, int32_t skip) {
    // No larger than the copy, so that no more is read than is asked for.
    const std::streamsize buffer_size =
            std::clamp<std::streamsize>(int64_t{block_size} * count, 1, kBufferSize);
    const auto input_buffer = std::make_unique<char[]>(buffer_size);
    std::ifstream input;
    input.rdbuf()->pubsetbuf(input_buffer.get(), buffer_size);
    input.open(source, std::ios::binary);
    const auto output_buffer = std::make_unique<char[]>(buffer_size);
    std::ofstream output;
    output.rdbuf()->pubsetbuf(output_buffer.get(), buffer_size);
    output.open(destination, std::ios::binary);
    input.seekg(skip, std::ios::beg);

    // Small blocks are read and written a batch at a time. A negative block size must fail in the
    // allocation. Zeros, so that an unreadable partition cannot pass for a dump by what happens to
    // lie in memory.
    const auto block = static_cast<size_t>(block_size);
    const size_t batch =
            std::clamp<size_t>(kBufferSize / std::max<size_t>(block, 1), 1, std::max(count, 1));
    const size_t capacity = batch * block;
    std::unique_ptr<char[]> blocks(new char[capacity]());
    for (int64_t left = count; left > 0; left -= static_cast<int64_t>(batch)) {
        const size_t size = std::min(batch, static_cast<size_t>(left)) * block;
        // What a read leaves out is as the block before has it; before the batch's first block came
        // the last one of the batch before, which is still there.
        for (size_t at = read_available(input, blocks.get(), size); at < size;) {
            const size_t rest = block - at % block;
            const size_t before = (at < block ? capacity : 0) + at - block;
            std::memmove(&blocks[at], &blocks[before], rest);
            at += rest;
        }
        output.write(blocks.get(), static_cast<std::streamsize>(size));
    }
    blocks.reset();
    input.close();
    output.close();
}
