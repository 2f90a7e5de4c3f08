// A virtual device, for a program inside it: its files, tools and clock, its log and properties.
// What cannot be done throws std::runtime_error or std::filesystem::filesystem_error.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

inline const std::string kScratch = "/data/local/tmp";
inline const std::string kProperties = "/dev/__properties__/";  // a file for each, and the journal

// Returns the file's content; empty when it cannot be read.
std::string read_file(const std::string& path);

// Writes the file, and makes missing folders.
void write_file(const std::string& path, const std::string& content = "");

// Makes the entries `names`, parted by blanks, below `folder`: folders where a name ends in "/",
// files that hold their own name elsewhere.
void make(const std::string& folder, const std::string& names);

// Returns every entry below `folder`, sorted and parted by blanks; folders end in "/".
std::string tree(const std::string& folder);

// Makes the device as new, the crash partition apart: nothing in its folders, no property, no log,
// the current directory /data, and its tools in PATH by links, so that a test can take some away.
void reset_device();

// Returns the shell's words for the program `name` of /vendor/bin.
std::string program(const std::string& name);

// Runs `command` in the shell, its clock at `time` of 2024-01-07 in a zone that is not UTC, and
// waits for all that it started. Returns its exit status, or 128 and the signal's number; when it
// was killed, what it had started is killed as well. Its output is then in kOut and kErr.
int run_at(const std::string& time, const std::string& command);
inline const std::string kOut = kScratch + "/out";
inline const std::string kErr = kScratch + "/err";

// Puts a program called `name`, which runs `script` in the shell, before the device's own; without
// a script, takes the device's own out of PATH.
void replace_tool(const std::string& name, const std::string& script = "");

// Puts a new file system over a folder, until unmount() or reset_device().
void mount_over(const std::string& path, const std::string& options = "", unsigned long flags = 0);
void unmount();

// Unpacks a tar.gz archive and returns the folder that then holds its members alone. Waits first:
// the device's tar returns before the gzip that it started has written everything.
std::string unpack(const std::string& archive);

// Returns the records of the log, each with "; " behind: "S message", with the severity's letter,
// and for a record of another buffer than the system's the buffer's name in front; empties the log.
std::string take_log();

// Returns every property_set, each with "; " behind: "KEY=VALUE", KEY without its "vendor.", or
// "refused KEY=VALUE"; empties the journal.
std::string take_journal();

// Reads strace's record of a program, `trace`, and returns `points` (2 or more) of its calls of
// `name` (all, when empty), evenly spread from the first that mentions `start` on: each as strace's
// words for injecting `fault` there, "NAME:FAULT:when=COUNT".
std::vector<std::string> injections(const std::string& trace, const std::string& start,
                                    const std::string& name, const std::string& fault,
                                    size_t points);

// Text helpers for all of these.
bool has(const std::string& text, const std::string& part);
size_t count(std::string text, const std::string& part);
void replace_all(std::string& text, const std::string& from, const std::string& to);
