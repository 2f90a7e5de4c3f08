// Makes and shows minidump partition images.

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "image_builder.h"

namespace {

constexpr size_t kPartitionSize = size_t{1024} * 1024;  // bytes, when the dump is not larger

constexpr char kUsage[] =
        "usage: minidump_image make IMAGE [NAME=FILE]...\n"
        "           writes an image with these regions; without any, a built-in sample crash\n"
        "       minidump_image show IMAGE\n"
        "           prints the header and the region table\n";

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    file.peek();
    if (!file && !file.eof()) {
        throw std::runtime_error("cannot read " + path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void make(const std::string& image_path, const std::vector<std::string>& arguments) {
    std::vector<Region> regions;
    for (const std::string& argument : arguments) {
        const size_t equals = argument.find('=');
        if (equals == 0 || equals > 20) {
            throw std::runtime_error("not NAME=FILE with a name of 1 to 20 bytes: " + argument);
        }
        regions.push_back({argument.substr(0, equals), read_file(argument.substr(equals + 1))});
    }
    const std::string image =
            build_image(regions.empty() ? sample_regions() : regions, kPartitionSize);
    std::ofstream file(image_path, std::ios::binary);
    file << image;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + image_path);
    }
}

void show(const std::string& image_path) {
    const std::string image = read_file(image_path);
    const uint64_t count = get_number(image, 52, 4);
    const uint64_t entries = image.size() / 64 - (image.size() >= 64 ? 1 : 0);
    std::printf("table set %s   dump size %llu   regions %llu   partition %zu bytes\n",
                (get_number(image, 12, 1) & 1) == 1 ? "yes" : "no",
                static_cast<unsigned long long>(get_number(image, 36, 8)),
                static_cast<unsigned long long>(count), image.size());
    std::printf("%5s  %-20s  %12s  %12s\n", "entry", "name", "offset", "size");
    for (uint64_t k = 1; k <= count && k <= entries; ++k) {
        const std::string name = image.substr(k * 64 + 36, 20);
        std::printf("%5llu  %-20s  %12llu  %12llu\n", static_cast<unsigned long long>(k),
                    name.c_str(), static_cast<unsigned long long>(get_number(image, k * 64 + 4, 8)),
                    static_cast<unsigned long long>(get_number(image, k * 64 + 12, 8)));
    }
    if (count > entries) {
        std::printf("the header counts more entries than the image holds\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    try {
        if (arguments.size() >= 2 && arguments[0] == "make") {
            make(arguments[1], {arguments.begin() + 2, arguments.end()});
        } else if (arguments.size() == 2 && arguments[0] == "show") {
            show(arguments[1]);
        } else {
            std::fputs(kUsage, stderr);
            return 2;
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "minidump_image: %s\n", error.what());
        return 1;
    }
    return 0;
}
