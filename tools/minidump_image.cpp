// Makes, shows and extracts minidump partition images.

#include <android-base/file.h>
#include <android-base/strings.h>
#include <err.h>
#include <fcntl.h>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "image_reader.h"

using android::base::unique_fd;

namespace {

constexpr size_t kPartitionSize = size_t{1} << 20;  // bytes, when the dump is not larger

constexpr char kHelp[] =
        R"(usage: minidump_image make [--force] IMAGE [NAME=FILE]...
           writes an image with these regions, or a sample crash, to a new file;
           --force replaces an old file
       minidump_image show IMAGE
           prints fields separated by spaces. Line 1: field 6 is the dump size, 8 the
           region count, 10 the image size. From line 3 on, for each region: its entry
           number, name, offset and size, then any remarks
       minidump_image extract IMAGE DIRECTORY [NAME|ENTRY]...
           writes all regions, or those with a name or entry number as shown, to new
           files
IMAGE is a file or block device. show and extract also take a dump archive or other tar,
zip, gzip, xz or zstd file; they unpack its first file to TMPDIR, by default /var/tmp.
An interrupted make or extract can leave a file whose name ends in ".part".
exit status: 0  success
             1  something cannot be read or written, or a region is truncated or missing
             2  wrong arguments
             3  inconsistent table: the dump or a region extends beyond the image, or there
                are more regions than the 639 entries, or the image, have room for
             4  the image contains no dump
)";

// Writes a file, which gets the name `path` when it is complete. If `replaces`, it replaces an old
// file; otherwise that is a failure. After a failure, reports it, leaves no file and returns false.
bool write_file(const std::string& path, const std::string& content, bool replaces) {
    // This is longer than the name of any region, so it is no region's file.
    const std::string part = path + "." + std::to_string(getpid()) + ".minidump_image.part";
    unique_fd file(open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    const bool succeeded = file != -1 &&
                           android::base::WriteFully(file, content.data(), content.size()) &&
                           close(file.release()) == 0 &&
                           (replaces ? rename : link)(part.c_str(), path.c_str()) == 0;
    if (!succeeded) {
        warn("cannot write %s", path.c_str());
    }
    unlink(part.c_str());
    return succeeded;
}

// The help says what scripts may read; scripts/bench and scripts/demo do.
Status show(const std::string& path) {
    const Image image = open_image(path);
    std::printf("table set yes   dump size %ju   regions %ju   partition %ju bytes\n",
                image.dump_size, image.region_count, image.size);
    std::printf("%5s  %-20s  %12s  %12s\n", "entry", "name", "offset", "size");
    for (size_t i = 0; i < image.regions.size(); ++i) {
        const RegionEntry& region = image.regions[i];
        const std::string name = file_name(image.regions, i);
        std::printf("%5zu  %-20s  %12ju  %12ju%s%s\n", i + 1, escaped(region.name).c_str(),
                    region.offset, region.size,
                    available(image, region) < region.size ? "  (beyond the image)" : "",
                    name == region.name ? "" : ("  (extracted as " + name + ")").c_str());
    }
    return image.status;
}

// Writes region `index` to a new file in `directory`, as far as the image contains it. Returns
// whether that was all of it.
bool extract_region(const Image& image, size_t index, const std::string& directory) {
    const RegionEntry& region = image.regions[index];
    const std::string name = escaped(region.name);
    const std::string path = directory + "/" + file_name(image.regions, index);
    std::string content(available(image, region), '\0');
    if (!android::base::ReadFullyAtOffset(image.file, content.data(), content.size(),
                                          static_cast<off_t>(region.offset))) {
        warn("cannot read %s", name.c_str());
        return false;
    }
    if (!write_file(path, content, false)) {
        return false;
    }
    std::printf("%s: %zu bytes to %s%s\n", name.c_str(), content.size(), path.c_str(),
                content.size() < region.size ? ", truncated at the end of the image" : "");
    return content.size() == region.size;
}

Status extract(const std::string& path, const std::string& directory,
               const std::set<std::string>& wanted) {
    Image image = open_image(path);
    if (mkdir(directory.c_str(), 0777) == -1 && errno != EEXIST) {
        err(kFailed, "cannot make the directory %s", directory.c_str());
    }
    std::set<std::string> missing = wanted;
    for (size_t i = 0; i < image.regions.size(); ++i) {
        bool is_wanted = wanted.empty();
        for (const std::string& key : {escaped(image.regions[i].name), std::to_string(i + 1)}) {
            is_wanted |= wanted.count(key) > 0;
            missing.erase(key);
        }
        if (is_wanted && !extract_region(image, i, directory)) {
            image.status = kFailed;
        }
    }
    for (const std::string& key : missing) {
        warnx("no region has the name or entry number %s", key.c_str());
        image.status = kFailed;
    }
    return image.status;
}

Status make(const std::string& path, const std::vector<std::string>& arguments, bool force) {
    struct stat old {};
    if (lstat(path.c_str(), &old) == 0 && !(force && S_ISREG(old.st_mode))) {
        errx(kFailed, "%s exists already (--force replaces a file, nothing else)", path.c_str());
    }
    std::vector<Region> regions;
    for (const std::string& argument : arguments) {
        const size_t name_size = argument.find('=');
        if (name_size == 0 || name_size > kMaxNameSize) {
            errx(kWrongArguments, "not NAME=FILE with a NAME of 1 to 20 bytes: %s",
                 argument.c_str());
        }
        regions.push_back({argument.substr(0, name_size), ""});
        const std::string file = argument.substr(name_size + 1);
        if (!android::base::ReadFileToString(file, &regions.back().content, true)) {
            err(kFailed, "cannot read %s", file.c_str());
        }
    }
    const std::string image =
            build_image(regions.empty() ? sample_regions() : regions, kPartitionSize);
    return write_file(path, image, force) ? kSuccess : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
    const option options[] = {
            {"force", no_argument, nullptr, 'f'}, {"help", no_argument, nullptr, 'h'}, {}};
    bool force = false;
    for (int key = 0; (key = getopt_long(argc, argv, "h", options, nullptr)) != -1;) {
        if (key == 'h') {
            std::fputs(kHelp, stdout);
            return std::fflush(stdout) == 0 ? kSuccess : kFailed;
        }
        if (key != 'f') {
            return kWrongArguments;  // getopt_long has reported it
        }
        force = true;
    }
    const std::vector<std::string> arguments(argv + optind, argv + argc);
    const size_t count = arguments.size();
    const std::string command = count == 0 ? "" : arguments[0];
    Status status = kSuccess;
    if (command == "make" && count >= 2) {
        status = make(arguments[1], {arguments.begin() + 2, arguments.end()}, force);
    } else if (command == "show" && count == 2 && !force) {
        status = show(arguments[1]);
    } else if (command == "extract" && count >= 3 && !force) {
        status = extract(arguments[1], arguments[2], {arguments.begin() + 3, arguments.end()});
    } else {
        errx(kWrongArguments, "wrong arguments: %s; try --help",
             android::base::Join(std::vector(argv + 1, argv + argc), ' ').c_str());
    }
    if (std::fflush(stdout) != 0) {
        err(kFailed, "cannot write standard output");
    }
    return status;
}
