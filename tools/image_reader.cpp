#include "image_reader.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <err.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

using android::base::StringPrintf;
using android::base::unique_fd;

void require(bool holds, Status status, const std::string& otherwise) {
    if (!holds) {
        warnx("%s", otherwise.c_str());
        throw status;
    }
}

void check(bool succeeded, const std::string& otherwise) {
    require(succeeded, kFailed, otherwise + ": " + std::strerror(errno));
}

unique_fd open_for_reading(const std::string& path) {
    unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    check(file != -1, "cannot read " + path);
    return file;
}

Image open_image(const std::string& path) {
    Image image{};
    image.file = open_for_reading(path);
    std::string head(kTableSpace, '\0');
    errno = 0;  // and so it stays when the image is merely shorter, with zeros behind its end
    check(android::base::ReadFullyAtOffset(image.file, head.data(), head.size(), 0) || errno == 0,
          "cannot read " + path);
    const std::pair<std::string, const char*> packed[] = {
            {"\x1f\x8b", "gzip data: unpack it first, with gzip -d"},
            {"PK\x03\x04", "zip data: unpack it first, with unzip"},
            {{"\xfd\x37zXZ\0", 6}, "xz data: unpack it first, with xz -d"},
            {"\x3a\xff\x26\xed", "an Android sparse image: convert it first, with simg2img"},
    };
    for (const auto& [magic, what] : packed) {
        require(head.compare(0, magic.size(), magic) != 0, kPacked, path + " looks like " + what);
    }
    require((get_number(head, 12, 1) & 1) == 1, kNoDump, path + ": this image holds no dump");
    image.size = static_cast<uint64_t>(lseek(image.file, 0, SEEK_END));  // of devices as well
    image.dump_size = get_number(head, 36, 8);
    image.region_count = get_number(head, 52, 4);
    const uint64_t records = std::min<uint64_t>(image.size, head.size()) / kRecord;
    for (size_t k = 1; k <= image.region_count && k < records; ++k) {
        image.regions.push_back(read_entry(head, k));
    }
    if (image.dump_size > image.size) {
        warnx("doubtful table: the dump size exceeds the image");
        image.status = kDoubtful;
    }
    if (image.region_count > image.regions.size()) {
        warnx("doubtful table: of its %ju regions, only the first %zu can be read",
              image.region_count, image.regions.size());
        image.status = kDoubtful;
    }
    return image;
}

std::string escaped(const std::string& name) {
    std::string text = name.empty() ? "\"\"" : "";
    for (const char byte : name) {
        if (byte > ' ' && byte <= '~' && byte != '\\') {
            text += byte;
        } else {
            text += byte == '\\' ? "\\\\" : StringPrintf("\\x%02x", byte & 0xff);
        }
    }
    return text;
}

std::string remark(bool holds, const char* text) {
    return holds ? std::string("  (") + text + ")" : "";
}

std::string name_faults(const std::vector<RegionEntry>& regions, size_t index) {
    const std::string& name = regions[index].name;
    const auto same = [&](const RegionEntry& region) { return region.name == name; };
    return remark(name.empty(), "empty name") +
           remark(name == "." || name == "..", "name of a directory") +
           remark(name.find('/') != std::string::npos, "name with \"/\"") +
           remark(std::count_if(regions.begin(), regions.end(), same) > 1, "doubled name");
}
