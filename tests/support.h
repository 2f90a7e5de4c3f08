// What the tests share. They run inside a virtual device, on the tool's real paths.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "image_builder.h"

using Lines = std::vector<std::string>;

inline const std::string kPartition = "/dev/block/by-name/logdump";
inline const std::string kPlace = "/data/vendor/minidump";
inline const std::string kScratch = "/data/local/tmp";

std::string read_file(const std::string& path);
// Makes missing folders too.
void write_file(const std::string& path, const std::string& content = "");
// Every entry below `directory` in order of names, folders with a "/" behind them.
Lines tree(const std::string& directory);
// The permission bits of `path`.
unsigned int mode(const std::string& path);

// The log so far, a line for each record: its severity's letter, a blank, its message.
Lines log_records();
// The log lines of setting mode and owner of kPlace. An ordinary user's virtual device has no group
// to give files to, so there the second command fails.
Lines repair_records();
// Every property_set so far: "set KEY=VALUE" or "refused KEY=VALUE".
Lines journal();

Lines operator+(Lines left, const Lines& right);

struct Outcome {
    int status;  // the exit status, or minus the signal's number
    std::string out;
    std::string err;
};

// A time of day, and the text the tool makes of it.
inline const std::string kRunTime = "2024-01-07 09:05:03";
inline const std::string kRunStamp = "2024-01-07-09-05-03";

// Runs the tool in the current directory, in a time zone that is not UTC, with the clock at `time`.
Outcome run_tool(const Lines& arguments = {"logdump", kPlace}, const std::string& time = kRunTime);

// While it lives, a new file system lies over the folder `path`.
class Mount {
  public:
    explicit Mount(std::string path, const std::string& options = "", unsigned long flags = 0);
    ~Mount();

  private:
    std::string path_;
};

// Waits for all processes that a test started: the device's tar returns before the gzip that it
// started has written everything.
void settle();

// Unpacks a tar.gz archive and returns the folder that then holds its members alone.
std::string unpack(const std::string& archive);

// Sets a property without a line in the journal.
void set_property(const std::string& key, const std::string& value);

// Puts a program called `name`, which runs `script` in the shell, before the device's own.
void replace_tool(const std::string& name, const std::string& script);

bool has(const Lines& lines, const std::string& line);

// A new device for each test: empty folders, no property, no log.
class DeviceTest : public ::testing::Test {
  protected:
    void SetUp() override;
};
