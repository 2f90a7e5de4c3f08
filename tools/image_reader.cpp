#include "image_reader.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <archive.h>
#include <archive_entry.h>
#include <err.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

using android::base::StringPrintf;
using android::base::unique_fd;

namespace {

constexpr size_t kBlockSize = size_t{1} << 16;  // bytes that libarchive reads at a time

// Replaces a packed image by the first file in it, as far as that can be unpacked.
void unpack(Image& image, const char* path) {
    const std::shared_ptr<archive> reader(archive_read_new(), archive_read_free);
    archive* const packed = reader.get();
    // All these are known by their first bytes. A zip file can be known by its end, too, but an
    // image may end like one.
    archive_read_support_filter_gzip(packed);
    archive_read_support_filter_xz(packed);
    archive_read_support_filter_zstd(packed);
    archive_read_support_format_tar(packed);
    archive_read_support_format_zip_streamable(packed);
    archive_read_support_format_raw(packed);
    archive_read_support_format_empty(packed);
    lseek(image.file, 0, SEEK_SET);
    archive_read_open_fd(packed, image.file, kBlockSize);  // the next call repeats a failure
    archive_entry* entry = nullptr;
    int result = ARCHIVE_OK;
    do {
        result = archive_read_next_header(packed, &entry);
        if (result == ARCHIVE_EOF) {
            errx(kNoDump, "%s contains no dump", path);
        }
        if (result < ARCHIVE_WARN) {
            errx(kFailed, "cannot read %s: %s", path, archive_error_string(packed));
        }
    } while (archive_entry_filetype(entry) != AE_IFREG);
    const int filter = archive_filter_code(packed, 0);
    if (archive_format(packed) == ARCHIVE_FORMAT_RAW && filter == ARCHIVE_FILTER_NONE) {
        return;
    }

    const char* directory = std::getenv("TMPDIR");
    std::string name = StringPrintf("%s/minidump_image.XXXXXX", directory ? directory : "/var/tmp");
    unique_fd file(mkstemp(name.data()));
    if (file == -1) {
        err(kFailed, "cannot write %s", name.c_str());
    }
    unlink(name.c_str());
    result = archive_read_data_into_fd(packed, file);
    if (archive_errno(packed) == ENOSPC) {
        errx(kFailed, "no space to unpack %s: %s", path, name.c_str());
    }
    const off_t end = lseek(file, 0, SEEK_CUR);
    // libarchive does not write a hole at the end, nor compare gzip's checksum.
    const std::string test = "gzip -t </dev/fd/" + std::to_string(image.file);
    if (result != ARCHIVE_OK || ftruncate(file, end) == -1 ||
        (filter == ARCHIVE_FILTER_GZIP && std::system(test.c_str()) != 0)) {
        const char* error =
                result == ARCHIVE_OK ? "found damaged by gzip" : archive_error_string(packed);
        warnx("%s: %s; continuing with %jd unpacked bytes", path, error, end);
        image.status = kFailed;
    }
    image.file = std::move(file);
}

}  // namespace

Image open_image(const std::string& path) {
    // Without O_CLOEXEC, since gzip reads it, too.
    Image image{unique_fd(open(path.c_str(), O_RDONLY)), 0, 0, 0, {}, kSuccess};
    if (image.file == -1) {
        err(kFailed, "cannot read %s", path.c_str());
    }
    unpack(image, path.c_str());
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
        errx(image.status == kSuccess ? kNoDump : kFailed, "%s contains no dump", path.c_str());
    }
    image.dump_size = get_number(head, 36, 8);
    image.region_count = get_number(head, 52, 4);
    bool is_beyond = false;
    for (size_t k = 1; k <= image.region_count && (k + 1) * kRecord <= head.size(); ++k) {
        image.regions.push_back(read_entry(head, k));
        is_beyond |= available(image, image.regions.back()) < image.regions.back().size;
    }
    const auto expect = [&image](bool is_met, const char* problem) {
        if (!is_met) {
            warnx("inconsistent table: %s", problem);
            image.status = image.status == kSuccess ? kInconsistent : image.status;
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
