#include "image_reader.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <err.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

using android::base::StringPrintf;
using android::base::unique_fd;

Image open_image(const std::string& path) {
    Image image{unique_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC)), 0, 0, 0, {}, kSuccess};
    if (image.file == -1) {
        err(kFailed, "cannot read %s", path.c_str());
    }
    const off_t end = lseek(image.file, 0, SEEK_END);
    image.size = static_cast<uint64_t>(end);
    std::string head(std::min(image.size, uint64_t{kTableSpace}), '\0');
    if (end == -1 || !android::base::ReadFullyAtOffset(image.file, head.data(), head.size(), 0)) {
        err(kFailed, "cannot read %s", path.c_str());
    }
    if (get_number(head, 0, 4) == 0xed26ff3a) {
        errx(kFailed, "%s is an Android sparse image: convert it with simg2img", path.c_str());
    }
    if ((get_number(head, 12, 1) & 1) == 0) {
        errx(kNoDump, "%s contains no dump", path.c_str());
    }
    image.dump_size = get_number(head, 36, 8);
    image.region_count = get_number(head, 52, 4);
    bool is_beyond = false;
    for (size_t k = 1; k <= image.region_count && (k + 1) * kRecord <= head.size(); ++k) {
        image.regions.push_back(read_entry(head, k));
        is_beyond |= available(image, image.regions.back()) < image.regions.back().size;
    }
    const auto expect = [&image](bool holds, const char* otherwise) {
        if (!holds) {
            warnx("inconsistent table: %s", otherwise);
            image.status = kInconsistent;
        }
    };
    expect(image.dump_size <= image.size, "the dump is larger than the image");
    expect(image.region_count == image.regions.size(), "it cannot contain that many regions");
    expect(!is_beyond, "regions extend beyond the end of the image");
    return image;
}

uint64_t available(const Image& image, const RegionEntry& region) {
    return std::min(region.size, image.size - std::min(region.offset, image.size));
}

std::string escaped(const std::string& name) {
    std::string text = name.empty() ? "\"\"" : "";
    for (const char byte : name) {
        const bool is_safe = byte > ' ' && byte <= '~' && byte != '\\';
        text += is_safe ? std::string(1, byte) : StringPrintf("\\x%02x", byte & 0xff);
    }
    return text;
}

std::string file_name(const std::vector<RegionEntry>& regions, size_t index) {
    const std::string& name = regions[index].name;
    std::string safe = escaped(name);
    std::replace(safe.begin(), safe.end(), '/', '_');
    const auto same = [&name](const RegionEntry& region) { return region.name == name; };
    if (safe == name && name != "." && name != ".." &&
        std::count_if(regions.begin(), regions.end(), same) == 1) {
        return name;
    }
    // Longer than the name of any region.
    return "region_of_table_entry_" + std::to_string(index + 1) + "_" + safe;
}
