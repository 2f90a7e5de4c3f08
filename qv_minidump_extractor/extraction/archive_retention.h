#pragma once

#include <string>

// Keeps the two dump archives in `directory` whose names sort last and deletes the others, sets
// mode and owner of the minidump directory and all in it, and publishes the kept names in
// vendor.minidump.files. Throws std::filesystem::filesystem_error when the directory cannot be
// listed or a file cannot be examined or deleted; nothing after that is done.
void check_minidump_num(const std::string& directory);
