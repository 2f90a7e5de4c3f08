#pragma once

#include <string>

// Appends `text` and a CR LF pair to the file at `path`, which is created if missing; its directory
// is not. Returns false, with a line on standard error, when the file cannot be opened; true
// otherwise, also when the write itself fails.
bool writeStringToFile(const std::string& text, const std::string& path);
