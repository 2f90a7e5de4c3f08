// What the tests share. They run inside a virtual device, on the tool's real paths.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "device.h"
#include "image_builder.h"

namespace fs = std::filesystem;

inline const std::string kPartition = "/dev/block/by-name/logdump";
inline const std::string kPlace = "/data/vendor/minidump";
inline const std::string kPanicTree = "/mnt/vendor/qv_log/panic_log";
inline const std::string kStamp = "2024-01-07-09-05-03";  // the tool's text of the usual run time

// Return `text`, and what host/device.h tells of files, log and properties, with "@" for kPlace,
// "%" for kPanicTree and "T" for kStamp.
std::string abbreviated(std::string text);
std::string files(const std::string& folder);
std::string log();
std::string journal();

// Returns the lines of a file beside this one, each with "; " behind: what is to be left.
std::string expected(const std::string& name);

// Runs the tool through `wrapper`, if there is one, and returns what run_at returns. Expects no
// report of a sanitizer.
int run_tool(const std::string& arguments = "logdump " + kPlace,
             const std::string& time = "09:05:03", const std::string& wrapper = "");

// A new device for each test, in its normal setting.
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
