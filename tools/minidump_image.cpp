// Makes, shows and extracts minidump partition images.

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>
#include <err.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "image_reader.h"

using android::base::StringPrintf;
using android::base::unique_fd;

namespace {

constexpr uint64_t kPartitionSize = uint64_t{1} << 20;  // bytes, when the dump is not larger
constexpr size_t kBufferSize = size_t{1} << 20;         // bytes that are copied at a time
constexpr uint64_t k2GiB = uint64_t{1} << 31;

constexpr char kHelp[] =
        R"(usage: minidump_image make [--force] IMAGE [NAME=FILE]...
           writes an image with these regions, or with a built-in sample crash, to a
           new file; --force replaces an old one
       minidump_image show IMAGE
           prints the header and the region table
       minidump_image extract IMAGE DIRECTORY [NAME]...
           writes all regions, or those named as "show" prints them, to new files; when
           a name is doubled or not safe for a file, to "region_of_table_entry_N_..."
exit status: 0 all is well; 1 something cannot be read or written, or a region is cut or
           missing; 2 wrong arguments; 3 doubtful table: its dump size or count exceeds
           the image, or its count the 639 entries that a run on a device can know;
           4 the image holds no dump; 5 gzip, zip, xz or Android sparse-image data
)";

// Writes to the file, which messages call `path`.
void write(int file, const std::string& path, const std::string& bytes) {
    check(android::base::WriteFully(file, bytes.data(), bytes.size()), "cannot write " + path);
}

void print(const std::string& text) { write(STDOUT_FILENO, "standard output", text); }

// Copies up to `most` bytes between two files, from where they stand, and returns how many there
// were. Messages call the files by their paths.
uint64_t copy(int from, const std::string& from_path, uint64_t most, int to,
              const std::string& to_path) {
    std::string buffer;
    uint64_t copied = 0;
    do {
        buffer.resize(std::min<uint64_t>(most - copied, kBufferSize));
        const ssize_t count = read(from, buffer.data(), buffer.size());
        check(count != -1, "cannot read " + from_path);
        buffer.resize(static_cast<size_t>(count));
        write(to, to_path, buffer);
        copied += buffer.size();
    } while (!buffer.empty());
    return copied;
}

// Makes the file `path` and has `fill` write it. What is there already, even a link, is left alone;
// a file that cannot be completed is removed.
void write_new_file(const std::string& path, const std::function<void(int)>& fill) {
    unique_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    check(file != -1, "cannot write " + path);
    try {
        fill(file);
        check(close(file.release()) == 0, "cannot write " + path);
    } catch (Status) {
        unlink(path.c_str());
        throw;
    }
}

// scripts/bench and scripts/demo read these lines: the header's values, the columns' names, then
// one line for each entry.
Status show(const std::string& image_path) {
    const Image image = open_image(image_path);
    std::string text =
            StringPrintf("table set yes   dump size %ju   regions %ju   partition %ju bytes\n",
                         image.dump_size, image.region_count, image.size);
    text += StringPrintf("%5s  %-20s  %12s  %12s\n", "entry", "name", "offset", "size");
    for (size_t i = 0; i < image.regions.size(); ++i) {
        const auto& [name, offset, size] = image.regions[i];
        const uint64_t rest = image.size - std::min(offset, image.size);
        const std::string remarks = remark(offset > image.size || size > rest, "beyond the image") +
                                    remark(offset >= k2GiB, "offset of 2 GiB or more") +
                                    remark(size >= k2GiB, "size of 2 GiB or more") +
                                    name_faults(image.regions, i);
        text += StringPrintf("%5zu  %-20s  %12ju  %12ju%s\n", i + 1, escaped(name).c_str(), offset,
                             size, remarks.c_str());
    }
    print(text);
    return image.status;
}

// Returns the name of the file for region `index`. One that is not the region's own is longer than
// the name of any region, so no other has it.
std::string file_name(const std::vector<RegionEntry>& regions, size_t index) {
    std::string name = regions[index].name;
    if (name_faults(regions, index).empty() && escaped(name) == name) {
        return name;
    }
    const auto is_unsafe = [](char byte) { return byte == '/' || escaped({byte}).size() > 1; };
    std::replace_if(name.begin(), name.end(), is_unsafe, '_');
    return "region_of_table_entry_" + std::to_string(index + 1) + "_" + name;
}

// Writes a region to the new file `path`, as far as the image holds it.
void extract_region(const Image& image, const RegionEntry& region, const std::string& path) {
    const std::string name = escaped(region.name);
    const uint64_t start = std::min(region.offset, image.size);
    uint64_t size = 0;
    write_new_file(path, [&](int file) {
        lseek(image.file, static_cast<off_t>(start), SEEK_SET);
        size = copy(image.file, name, region.size, file, path);
    });
    print(StringPrintf("%s: %ju bytes to %s\n", name.c_str(), size, path.c_str()));
    require(size == region.size, kFailed, name + " is cut: the image ends before it does");
}

Status extract(const std::string& image_path, const std::string& directory,
               const std::vector<std::string>& names) {
    const Image image = open_image(image_path);
    const bool is_new = mkdir(directory.c_str(), 0777) == 0;
    check(is_new || (errno == EEXIST && access((directory + "/.").c_str(), F_OK) == 0),
          "cannot make " + directory);
    Status status = image.status;
    std::set<std::string> missing(names.begin(), names.end());
    for (size_t i = 0; i < image.regions.size(); ++i) {
        const RegionEntry& region = image.regions[i];
        missing.erase(escaped(region.name));
        if (names.empty() || std::count(names.begin(), names.end(), escaped(region.name)) > 0) {
            try {
                extract_region(image, region, directory + "/" + file_name(image.regions, i));
            } catch (Status fault) {
                status = fault;
            }
        }
    }
    for (const std::string& name : missing) {
        warnx("no region is called %s", name.c_str());
        status = kFailed;
    }
    return status;
}

// Writes an image of `regions` with the data of the FILE of each NAME=FILE.
void write_image(int image, const std::string& image_path, std::vector<RegionEntry> regions,
                 const std::vector<std::string>& arguments) {
    uint64_t end = kTableSpace;
    for (size_t i = 0; i < regions.size(); ++i) {
        const std::string path = arguments[i].substr(regions[i].name.size() + 1);
        lseek(image, static_cast<off_t>(end), SEEK_SET);
        const uint64_t size = copy(open_for_reading(path), path, UINT64_MAX, image, image_path);
        regions[i] = {regions[i].name, end, size};
        end = aligned(end + size);
    }
    // The table comes last: only now are all sizes known.
    lseek(image, 0, SEEK_SET);
    write(image, image_path, build_table(regions, end));
    const uint64_t partition_size = std::max(end, kPartitionSize);
    check(ftruncate(image, static_cast<off_t>(partition_size)) == 0, "cannot write " + image_path);
}

Status make(const std::string& image_path, const std::vector<std::string>& arguments, bool force) {
    require(arguments.size() <= kMaxRegions, kWrongArguments, "more than 639 regions");
    std::vector<RegionEntry> regions;
    for (const std::string& argument : arguments) {
        const size_t name_size = argument.find('=');
        require(name_size <= kMaxNameSize, kWrongArguments,
                "not NAME=FILE with a NAME of 1 to 20 bytes: " + argument);
        regions.push_back({argument.substr(0, name_size), 0, 0});
        const std::string faults = name_faults(regions, regions.size() - 1);
        require(faults.empty(), kWrongArguments, "cannot make " + argument + faults);
    }
    struct stat status {};
    require(lstat(image_path.c_str(), &status) == -1 || (force && S_ISREG(status.st_mode)), kFailed,
            image_path + " exists already (--force replaces a file, nothing else)");
    const std::string part = image_path + "." + std::to_string(getpid()) + ".part";
    write_new_file(part, [&](int file) {
        if (regions.empty()) {
            write(file, part, build_image(sample_regions(), kPartitionSize));
        } else {
            write_image(file, part, regions, arguments);
        }
        // Without --force, a file that has appeared in the meantime is not replaced either.
        check(renameat2(AT_FDCWD, part.c_str(), AT_FDCWD, image_path.c_str(),
                        force ? 0 : RENAME_NOREPLACE) == 0,
              "cannot write " + image_path);
    });
    return kSuccess;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const auto option = std::find(arguments.begin(), arguments.end(), "--force");
    const bool force = option != arguments.end();
    if (force) {
        arguments.erase(option);
    }
    const size_t count = arguments.size();
    const std::string command = count == 0 ? "" : arguments[0];
    try {
        if (std::count(arguments.begin(), arguments.end(), "--help") > 0) {
            print(kHelp);
            return kSuccess;
        }
        if (command == "make" && count >= 2) {
            return make(arguments[1], {arguments.begin() + 2, arguments.end()}, force);
        }
        if (command == "show" && count == 2 && !force) {
            return show(arguments[1]);
        }
        if (command == "extract" && count >= 3 && !force) {
            return extract(arguments[1], arguments[2], {arguments.begin() + 3, arguments.end()});
        }
    } catch (Status status) {
        return status;
    }
    std::fputs(kHelp, stderr);
    return kWrongArguments;
}
