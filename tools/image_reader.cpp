#include "image_reader.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <err.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using android::base::StringPrintf;

namespace {

constexpr size_t kBlockSize = size_t{1} << 20;  // bytes that are read at once

// What is the matter with the image, and what to do next.
std::string problem;

// Says so last of all, however the program ends.
void report_problem() {
    std::fflush(stdout);
    if (!problem.empty()) {
        warnx("%s", problem.c_str());
    }
}

// Replaces a dump archive by the dump image in it, as far as that can be unpacked. Returns whether
// that went without error; tar and gzip report errors.
bool unpack(Image& image, const char* path) {
    const char* directory = std::getenv("TMPDIR");
    TemporaryFile file(directory && *directory ? directory : "/var/tmp");
    if (file.fd == -1) {
        err(kFailed, "cannot write %s (set TMPDIR to another directory)", file.path);
    }
    unlink(file.path);  // err() runs no destructor
    // As standard input, since tar looks for a file whose name contains a colon on another machine.
    const std::string input = " </dev/fd/" + std::to_string(image.file);
    FILE* const tar = popen(("tar -xzOf - minidump.bin" + input).c_str(), "r");
    if (tar == nullptr) {
        err(kFailed, "cannot run tar");
    }
    const bool shows_progress = isatty(STDERR_FILENO) == 1;
    std::string block(kBlockSize, '\0');
    uint64_t done = 0;
    while (const size_t size = std::fread(block.data(), 1, kBlockSize, tar)) {
        if (!android::base::WriteFully(file.fd, block.data(), size)) {
            err(kFailed, "cannot unpack to %s (set TMPDIR to another directory)", file.path);
        }
        done += size;
        if (shows_progress) {
            std::fprintf(stderr, "%ju MiB unpacked\r", done >> 20);
        }
    }
    std::fputs(shows_progress ? "\x1b[K" : "", stderr);  // clears the line
    const bool is_whole = pclose(tar) == 0;
    if (done == 0 && std::system(("gzip -t" + input).c_str()) == 0) {
        errx(kFailed, "%s is no dump archive: unpack it by hand (a panic log's with tar)", path);
    }
    image.file.reset(file.release());
    return is_whole;
}

// Reads header and table from `head`, the beginning of the image.
void read_table(Image& image, const std::string& head) {
    image.dump_size = get_number(head, 36, 8);
    image.region_count = get_number(head, 52, 4);
    const size_t records = std::min(head.size() / kRecord, image.region_count + 1);
    for (size_t at = kRecord; at < records * kRecord; at += kRecord) {
        const std::string name = head.substr(at + 36, kMaxNameSize);
        const uint64_t offset = get_number(head, at + 4, 8);
        const uint64_t size = get_number(head, at + 12, 8);
        const uint64_t available = std::min(size, image.size - std::min(offset, image.size));
        image.regions.push_back({name.substr(0, name.find('\0')), offset, size, available});
    }
}

// Returns what is the matter with the table, and what to do next; nothing if it is consistent. Only
// the first cause counts, since the others may follow from it.
std::string problem_of(const Image& image, const std::string& hint) {
    if (image.region_count >= kTableSpace / kRecord) {
        return StringPrintf("the table cannot contain %ju regions", image.region_count) + hint;
    }
    if (image.dump_size > image.size) {
        return StringPrintf("the image has %ju of the dump's %ju bytes: was it copied whole?",
                            image.size, image.dump_size);
    }
    const auto is_beyond = [](const RegionEntry& region) { return region.available < region.size; };
    if (image.regions.size() < image.region_count ||
        std::any_of(image.regions.begin(), image.regions.end(), is_beyond)) {
        return "the table is damaged: regions extend beyond the end of the image";
    }
    return image.regions.empty() ? "the table is set, but contains no regions" : "";
}

}  // namespace

Image open_image(const char* path) {
    std::atexit(report_problem);
    // Without O_CLOEXEC, since tar reads it, too. O_NONBLOCK: a fifo does not wait for a writer.
    Image image;
    image.file.reset(open(path, O_RDONLY | O_NONBLOCK));
    char magic[2] = {};
    if (image.file == -1 || pread(image.file, magic, sizeof(magic), 0) == -1) {
        err(kFailed, "cannot read %s", path);
    }
    const bool is_archive = std::string(magic, sizeof(magic)) == "\x1f\x8b";  // gzip's
    if (is_archive && !unpack(image, path)) {
        image.status = kFailed;
        problem = StringPrintf("%s is damaged: get it again", path);
    }
    image.size = static_cast<uint64_t>(lseek(image.file, 0, SEEK_END));
    std::string head(std::min(image.size, uint64_t{kTableSpace}), '\0');
    if (!android::base::ReadFullyAtOffset(image.file, head.data(), head.size(), 0)) {
        err(kFailed, "cannot read %s", path);
    }
    const bool may_be_packed = !is_archive && head.find_first_not_of('\0') != std::string::npos;
    const std::string hint = may_be_packed ? " (packed? unpack it first)" : "";
    const bool is_set = (get_number(head, 12, 1) & 1) == 1;
    if (!is_set && image.status == kSuccess) {
        errx(kNoDump, "%s contains no dump%s", path, hint.c_str());
    }
    read_table(image, head);
    if (image.status == kSuccess) {
        problem = problem_of(image, hint);
        image.status = problem.empty() ? kSuccess : kInconsistent;
    }
    return image;
}

bool copy_region(const Image& image, const RegionEntry& region, int output) {
    const std::string name = escaped(region.name);
    std::string block(kBlockSize, '\0');
    for (uint64_t done = 0; done < region.available; done += block.size()) {
        block.resize(std::min(region.available - done, uint64_t{kBlockSize}));
        const auto position = static_cast<off_t>(region.offset + done);
        if (!android::base::ReadFullyAtOffset(image.file, block.data(), block.size(), position) ||
            !android::base::WriteStringToFd(block, output)) {
            warn("cannot copy the region %s", name.c_str());
            return false;
        }
    }
    if (region.available < region.size) {
        warnx("%s: %ju of %ju bytes", name.c_str(), region.available, region.size);
    }
    return region.available == region.size;
}

std::string escaped(const std::string& name) {
    std::string text = name.empty() ? "\"\"" : "";
    for (const char byte : name) {
        const bool is_safe = byte > ' ' && byte <= '~' && std::strchr("\\/\"", byte) == nullptr &&
                             (!text.empty() || (byte != '.' && byte != '-'));
        text += is_safe ? std::string(1, byte) : StringPrintf("\\x%02x", byte & 0xff);
    }
    return text;
}

std::string file_name(const std::vector<RegionEntry>& regions, size_t index) {
    const std::string& name = regions[index].name;
    const auto same = [&name](const RegionEntry& region) { return region.name == name; };
    const bool is_unique = std::count_if(regions.begin(), regions.end(), same) == 1;
    // The prefix is longer than the name of any region.
    const std::string prefix = "region_of_table_entry_" + std::to_string(index + 1) + "_";
    return (is_unique && !android::base::EndsWith(name, kDamaged) ? "" : prefix) + escaped(name);
}
