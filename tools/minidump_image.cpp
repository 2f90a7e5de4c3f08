// Shows, extracts and makes minidump partition images.

#include <android-base/file.h>
#include <err.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "image_reader.h"

namespace {

constexpr size_t kPartitionSize = size_t{1} << 20;  // bytes, when the dump is not larger

constexpr char kHelp[] =
        R"(usage: minidump_image show IMAGE
           lists the regions. Scripts may read the first four fields, from line 3 on
       minidump_image cat IMAGE NAME|ENTRY
           writes the region with this name or entry number to standard output
       minidump_image extract IMAGE DIRECTORY [NAME|ENTRY]...
           writes all regions, or these, to a new or empty directory. What is incomplete
           or may be wrong gets ".damaged" at the end of its name
       minidump_image make IMAGE [NAME=FILE]...
           writes these regions, or a sample crash, to a new image
IMAGE is a file or block device. All but make also take a dump archive, which tar unpacks
to TMPDIR, by default /var/tmp.
exit status: 0  success
             1  something cannot be read or written, or a region is incomplete or missing
             2  wrong arguments
             3  table and image do not agree; standard error says how
             4  the image contains no dump
)";

// Contract: the help says what scripts may read. scripts/bench does.
Status show(const Image& image) {
    std::printf("image %ju bytes, dump %ju bytes, %ju regions\n", image.size, image.dump_size,
                image.region_count);
    std::printf("%5s  %-20s  %12s  %12s\n", "entry", "name", "offset", "size");
    for (size_t i = 0; i < image.regions.size(); ++i) {
        const auto& [name, offset, size, available] = image.regions[i];
        std::printf("%5zu  %-20s  %12ju  %12ju%s\n", i + 1, escaped(name).c_str(), offset, size,
                    available < size ? "  (beyond the image)" : "");
    }
    return image.status;
}

// Returns the index of the region with the name `key`, as it is or as "show" prints it, or with
// that entry number. Exits with kFailed when there is none, or more than one.
size_t find_region(const Image& image, const std::string& key) {
    std::vector<size_t> found;
    for (size_t i = 0; i < image.regions.size(); ++i) {
        const std::string& name = image.regions[i].name;
        if (key == name || key == escaped(name) || key == std::to_string(i + 1)) {
            found.push_back(i);
        }
    }
    if (found.size() != 1) {
        errx(kFailed, "%zu regions are called %s; \"show\" lists all", found.size(), key.c_str());
    }
    return found[0];
}

Status cat(const Image& image, const std::string& key) {
    const RegionEntry& region = image.regions[find_region(image, key)];
    return copy_region(image, region, STDOUT_FILENO) ? image.status : kFailed;
}

// Writes region `index` to a file in `directory`, as far as the image contains it. Returns whether
// that is all of it. Exits with kFailed when the file cannot be made or closed.
bool extract_region(const Image& image, size_t index, const std::string& directory) {
    const std::string path = directory + "/" + file_name(image.regions, index);
    const std::string damaged = path + kDamaged;
    android::base::unique_fd file(
            open(damaged.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file == -1) {
        err(kFailed, "cannot write %s", damaged.c_str());
    }
    const bool is_complete = copy_region(image, image.regions[index], file);
    const bool is_right = is_complete && image.status != kFailed;
    if (close(file.release()) != 0 || (is_right && rename(damaged.c_str(), path.c_str()) != 0)) {
        err(kFailed, "cannot write %s", path.c_str());
    }
    return is_complete;
}

Status extract(const Image& image, const std::string& directory,
               const std::vector<std::string>& keys) {
    std::set<size_t> indices;
    for (size_t i = 0; keys.empty() && i < image.regions.size(); ++i) {
        indices.insert(i);
    }
    for (const std::string& key : keys) {
        indices.insert(find_region(image, key));
    }
    std::error_code error;
    std::filesystem::create_directory(directory, error);
    if (error || !std::filesystem::is_empty(directory, error)) {
        const std::string reason = error ? error.message() : "it is not empty";
        errx(kFailed, "cannot extract to %s: %s", directory.c_str(), reason.c_str());
    }
    bool is_complete = true;
    size_t absent = 0;
    for (const size_t index : indices) {
        const RegionEntry& region = image.regions[index];
        absent += region.available == 0 ? 1 : 0;
        is_complete &=
                region.available == 0 ? region.size == 0 : extract_region(image, index, directory);
    }
    if (absent > 0) {
        warnx("regions of which the image contains no byte: %zu", absent);
    }
    return is_complete ? image.status : kFailed;
}

Status make(const std::string& path, const std::vector<std::string>& arguments) {
    std::vector<Region> regions;
    for (const std::string& argument : arguments) {
        const size_t name_size = argument.find('=');
        if (name_size == 0 || name_size > kMaxNameSize) {
            errx(kWrongArguments, "not NAME=FILE, NAME up to 20 bytes: %s", argument.c_str());
        }
        regions.push_back({argument.substr(0, name_size), ""});
        std::string& content = regions.back().content;
        if (!android::base::ReadFileToString(argument.substr(name_size + 1), &content, true)) {
            err(kFailed, "cannot read %s", argument.c_str() + name_size + 1);
        }
    }
    if (access(path.c_str(), F_OK) == 0) {
        errx(kFailed, "%s exists already", path.c_str());
    }
    // A failed write leaves no file.
    if (!android::base::WriteStringToFile(
                build_image(regions.empty() ? sample_regions() : regions, kPartitionSize), path)) {
        err(kFailed, "cannot write %s", path.c_str());
    }
    return kSuccess;
}

}  // namespace

int main(int argc, char** argv) {
    // Open the standard descriptors that are closed: a file that got one of their numbers would
    // receive what is meant for them. For reading, so that lost output is noticed.
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
        descriptor = open("/dev/null", O_RDONLY);
    }
    const std::string command = argc > 1 ? argv[1] : "";
    Status status = kSuccess;
    if (command == "--help" || command == "-h") {
        std::fputs(kHelp, stdout);
    } else if (command == "show" && argc == 3) {
        status = show(open_image(argv[2]));
    } else if (command == "cat" && argc == 4) {
        status = cat(open_image(argv[2]), argv[3]);
    } else if (command == "extract" && argc >= 4) {
        status = extract(open_image(argv[2]), argv[3], {argv + 4, argv + argc});
    } else if (command == "make" && argc >= 3) {
        status = make(argv[2], {argv + 3, argv + argc});
    } else {
        errx(kWrongArguments, "wrong arguments; try --help");
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        err(kFailed, "cannot write standard output");
    }
    return status;
}
