#include "image_format.h"

#include <algorithm>

// The layout is written out here a second time, apart from the tool's own table: an image that
// followed a slip in the tool's table would hide it from the tests.
constexpr uint64_t kAlignment = 4096;
constexpr char kUnread = '\xa5';

void put_number(std::string& image, size_t offset, size_t size, uint64_t value) {
    for (size_t i = 0; i < size; ++i) {
        image.at(offset + i) = static_cast<char>(value >> (8 * i));
    }
}

uint64_t get_number(const std::string& image, size_t offset, size_t size) {
    uint64_t value = 0;
    for (size_t i = 0; i < size && offset + i < image.size(); ++i) {
        value |= uint64_t{static_cast<unsigned char>(image[offset + i])} << (8 * i);
    }
    return value;
}

std::string build_image(const std::vector<Region>& regions, size_t partition_size) {
    const size_t table_size = (regions.size() + 1) * kRecord;
    std::string image(table_size, kUnread);
    image.resize(std::max(table_size, kTableSpace));
    image.replace(0, 8, "MINIDUMP");
    image[12] = '\x01';
    put_number(image, 52, 4, regions.size());
    size_t record = 0;
    for (const Region& region : regions) {
        record += kRecord;
        put_number(image, record + 4, 8, image.size());
        put_number(image, record + 12, 8, region.content.size());
        std::string name = region.name;
        name.resize(kMaxNameSize);
        image.replace(record + 36, kMaxNameSize, name);
        image += region.content;
        image.resize((image.size() + kAlignment - 1) / kAlignment * kAlignment);
    }
    put_number(image, 36, 8, image.size());
    image.resize(std::max(image.size(), partition_size), kUnread);
    return image;
}

std::vector<Region> sample_regions() {
    const std::string console =
            "\1\2[    0.000000] Booting Linux\n"
            "[   41.120774] Unable to handle kernel NULL pointer dereference\n"
            "[   41.120803] Kernel panic - not syncing: Fatal exception\n";
    const auto bytes_of = [](size_t size, char seed) {
        std::string bytes(size, '\0');
        std::generate(bytes.begin(), bytes.end(), [&seed] { return seed = seed * 5 + 1; });
        return bytes;
    };
    return {{"md_KCONSOLE.BIN", console},
            {"MD_RESTARTINFO.BIN", "kernel_panic" + std::string(88, '\0')},
            {"md_MSGRAM0.BIN", bytes_of(20480, 1)},
            {"md_CODERAM.BIN", bytes_of(65536, 3)},
            {"md_TZ_DIAG.BIN", bytes_of(8192, 5)},
            {"md_XBL_LOG.BIN", "text\n"},
            {"md_OTHER.BIN", bytes_of(2048, 7)},
            {"load.cmm", "text\n"}};
}
