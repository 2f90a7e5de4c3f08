// What a program of a virtual device finds out about it: the log, the properties, the files.
#pragma once

#include <string>

inline const std::string kProperties = "/dev/__properties__/";  // a file for each, and the journal

// Returns the file's content; empty when it cannot be read.
std::string read_file(const std::string& path);

// Writes the file, and makes missing folders. Throws std::filesystem::filesystem_error or
// std::ios_base::failure when it cannot.
void write_file(const std::string& path, const std::string& content = "");

// Makes the entries `names`, parted by blanks, below `folder`: folders where a name ends in "/",
// files that hold their own name elsewhere. Throws as write_file.
void make(const std::string& folder, const std::string& names);

// Returns every entry below `folder`, sorted and parted by blanks; folders end in "/".
std::string tree(const std::string& folder);

// Returns the records of the log, each with "; " behind: "S message", with the severity's letter,
// and for a record of another buffer than the system's the buffer's name in front; empties the log.
std::string take_log();

// Returns every property_set, each with "; " behind: "KEY=VALUE", KEY without its "vendor.", or
// "refused KEY=VALUE"; empties the journal.
std::string take_journal();

void replace_all(std::string& text, const std::string& from, const std::string& to);
