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

namespace {

constexpr size_t kPartitionSize = size_t{1} << 20;  // bytes, when the dump is not larger

constexpr char kHelp[] =
        R"(usage: minidump_image make [--force] IMAGE [NAME=FILE]...
           writes these regions, or a sample crash, to a new file; --force replaces one
       minidump_image show IMAGE
           lists the regions. Scripts may read: in line 1, field 6 is the dump size,
           8 the region count, 10 the image size; from line 3 on, the first four fields
       minidump_image extract IMAGE DIRECTORY [NAME|ENTRY]...
           writes all regions, or those with a name or entry number, to new files; the
           name of an incomplete one gets ".truncated" at its end
IMAGE is a file or block device. show and extract also take a dump archive, which tar
unpacks to TMPDIR, by default /var/tmp. "--" ends the options.
exit status: 0  success
             1  something cannot be read or written, or a region is incomplete or missing
             2  wrong arguments
             3  inconsistent table; standard error says how
             4  the image contains no dump
)";

// Writes a file, which gets the name `path` when it is complete. If `replaces`, it replaces an old
// file; otherwise that is a failure. After a failure, reports it, leaves no file and returns false.
bool write_file(const std::string& path, const std::string& content, bool replaces) {
    // This is longer than the name of any region, so it is no region's file.
    const std::string part = path + "." + std::to_string(getpid()) + ".minidump_image.part";
    android::base::unique_fd file(
            open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
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

// Contract: the help says what scripts may read. scripts/bench does.
Status show(const std::string& path) {
    const Image image = open_image(path);
    std::printf("table set yes   dump size %ju   regions %ju   partition %ju bytes\n",
                image.dump_size, image.region_count, image.size);
    std::printf("%5s  %-20s  %12s  %12s\n", "entry", "name", "offset", "size");
    for (size_t i = 0; i < image.regions.size(); ++i) {
        const RegionEntry& region = image.regions[i];
        std::printf("%5zu  %-20s  %12ju  %12ju%s\n", i + 1, escaped(region.name).c_str(),
                    region.offset, region.size,
                    region.available < region.size ? "  (beyond the image)" : "");
    }
    if (image.status == kInconsistent) {
        warnx("%s", kHint);
    }
    return image.status;
}

// Writes region `index` to a new file in `directory`, as far as the image contains it. Returns
// whether that was all of it.
bool extract_region(const Image& image, size_t index, const std::string& directory) {
    const RegionEntry& region = image.regions[index];
    const std::string name = escaped(region.name);
    std::string content(region.available, '\0');
    const bool is_complete = region.available == region.size;
    if (region.available == 0) {
        warnx("%s: the image contains nothing of it", name.c_str());
        return is_complete;
    }
    if (!android::base::ReadFullyAtOffset(image.file, content.data(), content.size(),
                                          static_cast<off_t>(region.offset))) {
        warn("cannot read %s", name.c_str());
        return false;
    }
    const std::string path =
            directory + "/" + file_name(image.regions, index) + (is_complete ? "" : ".truncated");
    if (!write_file(path, content, false)) {
        return false;
    }
    std::printf("%s: %zu bytes to %s\n", name.c_str(), content.size(), path.c_str());
    return is_complete;
}

Status extract(const std::string& path, const std::string& directory,
               const std::set<std::string>& wanted) {
    Image image = open_image(path);
    const Status opened = image.status;
    // The "/." refuses a file.
    if ((mkdir(directory.c_str(), 0777) == -1 && errno != EEXIST) ||
        access((directory + "/.").c_str(), W_OK | X_OK) == -1) {
        err(kFailed, "cannot write to the directory %s", directory.c_str());
    }
    std::set<std::string> missing = wanted;
    size_t incomplete = 0;
    for (size_t i = 0; i < image.regions.size(); ++i) {
        const RegionEntry& region = image.regions[i];
        bool is_wanted = wanted.empty();
        for (const std::string& key : {region.name, escaped(region.name), std::to_string(i + 1)}) {
            is_wanted |= wanted.count(key) > 0;
            missing.erase(key);
        }
        if (is_wanted) {
            incomplete += region.available < region.size ? 1 : 0;
            image.status = extract_region(image, i, directory) ? image.status : kFailed;
        }
    }
    for (const std::string& key : missing) {
        warnx("no region has the name or entry number %s; \"show\" lists both", key.c_str());
        image.status = kFailed;
    }
    if (opened == kFailed) {
        warnx("every extracted file may be wrong, incomplete regions: %zu; get the archive again",
              incomplete);
    } else if (opened == kInconsistent) {
        warnx("%s", kHint);
    }
    return image.status;
}

Status make(const std::string& path, const std::vector<std::string>& arguments, bool force) {
    struct stat old = {};
    if (lstat(path.c_str(), &old) == 0 && !(force && S_ISREG(old.st_mode))) {
        errx(kFailed, "%s exists already (--force replaces a file, nothing else)", path.c_str());
    }
    std::vector<Region> regions;
    for (const std::string& argument : arguments) {
        const size_t name_size = argument.find('=');
        if (name_size == 0 || name_size > kMaxNameSize) {
            errx(kWrongArguments, "not NAME=FILE, NAME up to 20 bytes: %s", argument.c_str());
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
    bool help = false;
    for (int key = 0; (key = getopt_long(argc, argv, "h", options, nullptr)) != -1;) {
        if (key == '?') {
            return kWrongArguments;  // getopt_long has reported it
        }
        help |= key == 'h';
        force |= key == 'f';
    }
    const std::vector<std::string> arguments(argv + optind, argv + argc);
    const std::string command = arguments.empty() ? "" : arguments[0];
    Status status = kSuccess;
    if (help) {
        std::fputs(kHelp, stdout);
    } else if (command == "make" && arguments.size() >= 2) {
        status = make(arguments[1], {arguments.begin() + 2, arguments.end()}, force);
    } else if (command == "show" && arguments.size() == 2 && !force) {
        status = show(arguments[1]);
    } else if (command == "extract" && arguments.size() >= 3 && !force) {
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
