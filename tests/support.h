// What the tests share. They run inside a virtual device, on the tool's real paths.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "device_state.h"
#include "image_builder.h"

namespace fs = std::filesystem;

inline const std::string kPartition = "/dev/block/by-name/logdump";
inline const std::string kPlace = "/data/vendor/minidump";
inline const std::string kPanicTree = "/mnt/vendor/qv_log/panic_log";
inline const std::string kScratch = "/data/local/tmp";
inline const std::string kStamp = "2024-01-07-09-05-03";  // the tool's text of the usual run time

bool has(const std::string& text, const std::string& part);

// Return `text`, and what host/device_state.h tells, with "@" for kPlace, "%" for kPanicTree and
// "T" for kStamp.
std::string abbreviated(std::string text);
std::string files(const std::string& folder);
std::string log();
std::string journal();

// Runs the tool in the current directory through the shell, in a time zone that is not UTC, with
// the clock at `time` of 2024-01-07, and waits for all that it started. Returns its exit
// status, or 128 and the signal's number. A `wrapper` that kills it also kills the programs that it
// had started. Expects no report of a sanitizer.
int run_tool(const std::string& arguments = "logdump " + kPlace,
             const std::string& time = "09:05:03", const std::string& wrapper = "");
// What the last run wrote to standard output and standard error.
inline const std::string kOut = kScratch + "/out";
inline const std::string kErr = kScratch + "/err";

// Puts a program called `name`, which runs `script` in the shell, before the device's own; without
// a script, takes the device's own out of PATH.
void replace_tool(const std::string& name, const std::string& script = "");
// Puts a new file system over a folder, until the test's end or unmount().
void mount_over(const std::string& path, const std::string& options = "", unsigned long flags = 0);
void unmount();
// Unpacks a tar.gz archive and returns the folder that then holds its members alone. Waits first:
// the device's tar returns before the gzip that it started has written everything.
std::string unpack(const std::string& archive);

// A new device for each test: empty folders, no property, no log.
class DeviceTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override { unmount(); }
    // Leaves a crash on the partition.
    void crash(const std::string& image = build_image(sample_regions(), 1 << 20));
    bool untouched();
    // Expects zeros over the dump and its extra block. Behind them a block device is as it was; a
    // plain file that stands for one is cut there.
    void expect_erased();
    // Expects the archive to hold what a run takes of the partition, alone.
    void expect_archived(const std::string& archive);

    std::string image_;  // what crash() left
    size_t extent_ = 0;  // how many bytes of it a run takes and erases
};
