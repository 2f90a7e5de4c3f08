// The fixture of the tests that run inside host/virtual_device: a device, new for each test, on
// which the tool runs at its real paths.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "image_format.h"

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

inline const std::string kPartition = "/dev/block/by-name/logdump";
inline const std::string kMinidumpDir = "/data/vendor/minidump";
inline const std::string kTmpDir = kMinidumpDir + "/tmp";
inline const std::string kLogTree = "/mnt/vendor/qv_log/panic_log";

// What a run leaves at the usual time, 2024-01-07 09:05:03 in the device's time zone.
inline const std::string kArchive = kMinidumpDir + "/minidump_2024-01-07-09-05-03.tar.gz";
inline const std::string kPanicDir = kMinidumpDir + "/panic_log_2024-01-07-09-05-03";
inline const std::string kNewLog = kLogTree + "/QVpanic_0_2024-01-07-09-05-03";

// Return the content of the file; nothing when it cannot be read.
std::string read_file(const std::string& path);
Lines lines_of(const std::string& path);

// Writes the file, and makes missing directories.
void write_file(const std::string& path, const std::string& content);

// Makes `names` below `directory`: directories where a name ends in "/", else files that contain
// their own name.
void make_entries(const std::string& directory, const Lines& names);

// Returns every entry below `directory`, sorted; names of directories end in "/".
Lines entries_in(const std::string& directory);

// Runs a command in the device's shell. The test fails when it fails. A file system that it mounts
// from "test" is unmounted when the test ends.
void shell(const std::string& command);

// Puts a program called `name`, which runs `script`, before the device's own in PATH.
void replace_tool(const std::string& name, const std::string& script);

// Unpacks the tar.gz archive and returns the directory that then contains its members alone.
std::string unpack(const std::string& archive);

class DeviceTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Leaves a crash on the partition.
    void crash(const std::string& image = build_image(sample_regions(), 1 << 20));

    // Runs a shell command at the time `clock_`, as the device's init does: in a process group of
    // its own, which is killed when the command ends. Returns its exit status, or 128 and its
    // signal's number. Its output is then in `out_` and `err_`.
    int run(const std::string& command);
    int run_tool() { return run(tool()); }

    // Returns the shell command that starts the tool.
    static std::string tool(const std::string& arguments = "logdump " + kMinidumpDir);

    // Returns the records of the system's log buffer since the test began, such as "I message" with
    // the severity's letter, or "I" for an empty one. A record of another buffer is there as
    // host/logd.cpp wrote it.
    static Lines log();

    // Returns the calls of property_set since the test began, in order: "set KEY=VALUE" or "refused
    // KEY=VALUE".
    static Lines journal();

    bool partition_is_untouched();
    // Whether zeros cover the dump and its extra block, and nothing else.
    bool partition_is_erased();
    // Whether the archive contains minidump.bin alone, with what a run takes of the partition.
    bool dump_is_in(const std::string& archive = kArchive);

    std::string clock_ = "09:05:03";
    const std::string out_ = "/data/local/out";
    const std::string err_ = "/data/local/err";

  private:
    std::string image_;  // what crash() left
    size_t extent_ = 0;  // how many bytes of it a run takes and erases
};
