#include "extraction/partition_access.h"

#include <android-base/logging.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <memory>
#include <new>
#include <sstream>

namespace {

// Bytes that are read and written at a time: few system calls for a dump of 4096-byte blocks, and
// little memory. The benchmark compares it with dd.
constexpr size_t kBatchSize = size_t{256} * 1024;

// Bytes. Reads into and writes from a buffer at the start of a page were a tenth faster.
constexpr size_t kPageSize = 4096;

using File = std::unique_ptr<FILE, decltype(&std::fclose)>;
using Buffer = std::unique_ptr<void, decltype(&std::free)>;

// Returns `length` bytes at `position` of the open `file`; bytes that cannot be read are zero.
std::string read_bytes(std::ifstream& file, std::streampos position, int64_t length) {
    std::string bytes(static_cast<size_t>(length), '\0');
    file.seekg(static_cast<std::streamoff>(position), std::ios::beg);
    file.read(bytes.data(), length);
    return bytes;
}

// Returns the descriptor of `file`; -1, which fails every read and write, when it did not open.
int descriptor_of(const File& file) { return file ? fileno(file.get()) : -1; }

// Reads up to `size` bytes and returns how many came before the file ended or a read failed. The
// rest of `buffer` keeps its content.
size_t read_fully(int file, char* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t got = TEMP_FAILURE_RETRY(read(file, buffer + done, size - done));
        if (got <= 0) {
            break;
        }
        done += static_cast<size_t>(got);
    }
    return done;
}

// Writes `size` bytes. Returns whether all of them could be written.
bool write_fully(int file, const char* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t put = TEMP_FAILURE_RETRY(write(file, buffer + done, size - done));
        if (put <= 0) {
            return false;
        }
        done += static_cast<size_t>(put);
    }
    return true;
}

// Copies `count` blocks of `block_size` bytes (1 or more): whole blocks as they come, in batches;
// after the first short read, the block that came short, again and again. Ends early when a write
// fails.
void copy_blocks(int input, int output, size_t block_size, int32_t count) {
    const auto batch_blocks = static_cast<int32_t>(std::max<size_t>(kBatchSize / block_size, 1));
    const size_t batch_size = batch_blocks * block_size;
    // Zeros, so that an unreadable partition cannot pass for a dump by what happens to lie in
    // memory. Those of calloc take no memory until they are written over: a damaged block size, far
    // larger than the source, costs none.
    size_t space = batch_size + kPageSize;
    const Buffer memory(std::calloc(1, space), &std::free);
    if (!memory) {
        throw std::bad_alloc();
    }
    void* start = memory.get();
    char* const batch = static_cast<char*>(std::align(kPageSize, batch_size, start, space));
    const char* const last_of_batch = batch + batch_size - block_size;
    int32_t left = count;
    while (left > 0) {
        const size_t wanted = std::min(left, batch_blocks) * block_size;
        const size_t got = read_fully(input, batch, wanted);
        const size_t whole = got / block_size;
        if (!write_fully(output, batch, whole * block_size)) {
            return;
        }
        left -= static_cast<int32_t>(whole);
        if (got < wanted) {
            // The rest of this block stays as in the block before: the one in front of it or, for
            // the first of a batch, the last of the batch before, which is still in its place. A
            // batch of one block has just been read over the block before.
            char* const block = batch + whole * block_size;
            const char* const before = whole > 0 ? block - block_size : last_of_batch;
            const size_t fresh = got % block_size;
            if (before != block) {
                std::memcpy(block + fresh, before + fresh, block_size - fresh);
            }
            while (left > 0 && write_fully(output, block, block_size)) {
                --left;
            }
            return;
        }
    }
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
    std::ostringstream text;
    text << std::hex << std::setfill('0');
    for (const char byte : read_bytes(file, position, length)) {
        // Plain char is signed on some platforms and unsigned on others; the digits must not be.
        text << std::setw(2) << static_cast<unsigned int>(static_cast<unsigned char>(byte));
    }
    return text.str();
}

std::string byte_read_ascii_str(const std::string& path, std::streampos position, int64_t length) {
    std::ifstream file(path, std::ios::binary);
    if (file.fail()) {
        // ERROR here but INFO in read_raw, on purpose. Keep both.
        LOG(ERROR) << "Failed to open file: " << path;
        return "";
    }
    return read_bytes(file, position, length);
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
    File input(std::fopen(source.c_str(), "rb"), &std::fclose);
    File output(std::fopen(destination.c_str(), "wb"), &std::fclose);
    if (block_size < 0) {
        throw std::bad_alloc();
    }
    // A source that cannot be positioned, as with a negative skip, counts as unreadable.
    const bool in_place = lseek(descriptor_of(input), skip, SEEK_SET) >= 0;
    if (block_size > 0 && count > 0) {
        copy_blocks(in_place ? descriptor_of(input) : -1, descriptor_of(output),
                    static_cast<size_t>(block_size), count);
    }
    input.reset();
    output.reset();
}
