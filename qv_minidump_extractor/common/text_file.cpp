#include "common/text_file.h"

#include <fstream>
#include <iostream>

bool writeStringToFile(const std::string& text, const std::string& path) {
    std::ofstream file(path, std::ios::app);
    if (!file.is_open()) {
        std::cerr << "Failed to open file: " << path << std::endl;
        return false;
    }
    // Keep: CR LF, not a plain line feed.
    file << text << "\r\n";
    file.close();
    return true;
}
