#include "image_reader.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <err.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

// Replaces a dump archive by the dump image in it, as far as that can be unpacked. tar and gzip
// report what is wrong with it.
void unpack(Image& image, const char* path) {
    const char* directory = std::getenv("TMPDIR");
    TemporaryFile file(directory ? directory : "/var/tmp");
    if (file.fd == -1) {
        err(kFailed, "cannot write %s (set TMPDIR to another directory)", file.path);
    }
    unlink(file.path);  // err() runs no destructor
    // As standard input, since tar looks for a file whose name contains a colon on another machine.
    const std::string command = "tar -xzOf - minidump.bin </dev/fd/" + std::to_string(image.file);
    FILE* const tar = popen(command.c_str(), "r");
    if (tar == nullptr) {
        err(kFailed, "cannot run tar");
    }
    char buffer[1 << 16];
    while (const size_t size = std::fread(buffer, 1, sizeof(buffer), tar)) {
        if (!android::base::WriteFully(file.fd, buffer, size)) {
            err(kFailed, "cannot unpack to %s (set TMPDIR to another directory)", file.path);
        }
    }
    if (pclose(tar) != 0) {
        warnx("tar did not unpack %s without error", path);
        image.status = kFailed;
    }
    image.file.reset(file.release());
}

}  // namespace

Image open_image(const std::string& path) {
    // Without O_CLOEXEC, since tar reads it, too. O_NONBLOCK: a fifo does not wait for a writer.
    Image image;
    image.file.reset(open(path.c_str(), O_RDONLY | O_NONBLOCK));
    struct stat info = {};
    if (image.file == -1 || fstat(image.file, &info) == -1) {
        err(kFailed, "cannot read %s", path.c_str());
    }
    if (!S_ISREG(info.st_mode) && !S_ISBLK(info.st_mode)) {
        errx(kFailed, "%s is neither a file nor a block device", path.c_str());
    }
    char magic[2] = {};
    if (pread(image.file, magic, 2, 0) == 2 && std::string(magic, 2) == "\x1f\x8b") {  // gzip's
        unpack(image, path.c_str());
    }
    image.size = static_cast<uint64_t>(lseek(image.file, 0, SEEK_END));
    std::string head(std::min(image.size, uint64_t{kTableSpace}), '\0');
    if (!android::base::ReadFullyAtOffset(image.file, head.data(), head.size(), 0)) {
        err(kFailed, "cannot read %s", path.c_str());
    }
    if (get_number(head, 0, 4) == 0xed26ff3a) {
        errx(kFailed, "%s is an Android sparse image: convert it with simg2img", path.c_str());
    }
    if (head.size() < kRecord || (get_number(head, 12, 1) & 1) == 0) {
        errx(image.status == kSuccess ? kNoDump : kFailed, "%s contains no dump; %s", path.c_str(),
             kHint);
    }
    image.dump_size = get_number(head, 36, 8);
    image.region_count = get_number(head, 52, 4);
    bool is_beyond = false;
    for (size_t k = 1; k <= image.region_count && (k + 1) * kRecord <= head.size(); ++k) {
        const size_t record = k * kRecord;
        const std::string name = head.substr(record + 36, kMaxNameSize);
        const uint64_t offset = get_number(head, record + 4, 8);
        const uint64_t size = get_number(head, record + 12, 8);
        const uint64_t available = std::min(size, image.size - std::min(offset, image.size));
        image.regions.push_back({name.substr(0, name.find('\0')), offset, size, available});
        is_beyond |= available < size;
    }
    const auto expect = [&image](bool is_met, const char* problem) {
        if (!is_met) {
            warnx("inconsistent table: %s", problem);
            image.status = image.status == kSuccess ? kInconsistent : image.status;
        }
    };
    expect(image.dump_size <= image.size, "the dump is larger than the image");
    expect(image.region_count > 0, "it contains no regions");
    expect(image.region_count == image.regions.size(), "it cannot contain that many regions");
    expect(!is_beyond, "regions extend beyond the end of the image");
    return image;
}

std::string escaped(const std::string& name) {
    std::string text = name.empty() ? "\"\"" : "";
    for (const char byte : name) {
        const bool is_safe = byte > ' ' && byte <= '~' && byte != '\\';
        text += is_safe ? std::string(1, byte)
                        : android::base::StringPrintf("\\x%02x", byte & 0xff);
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
