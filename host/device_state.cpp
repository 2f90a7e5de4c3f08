#include "device_state.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string take(const std::string& path) {
    std::string text = read_file(path);
    fs::remove(path);
    return text;
}

}  // namespace

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_file(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file;
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file.open(path, std::ios::binary);
    (file << content).flush();
}

void make(const std::string& folder, const std::string& names) {
    std::istringstream list(names);
    for (std::string name; list >> name;) {
        fs::create_directories(folder + "/" + name.substr(0, name.rfind('/') + 1));
        if (name.back() != '/') {
            write_file(folder + "/" + name, name);
        }
    }
}

std::string tree(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        names.push_back(entry.path().lexically_relative(folder).string() +
                        (entry.is_directory() ? "/" : ""));
    }
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : " ") + name;
    }
    return text;
}

std::string take_log() {
    std::istringstream records(take("/dev/log/records"));
    std::string text;
    for (std::string line; std::getline(records, line);) {
        std::istringstream fields(line);
        std::string buffer, date, time, process, severity, tag;
        fields >> buffer >> date >> time >> process >> severity >> tag;
        std::getline(fields, line);
        text += (buffer == "system" ? "" : buffer + " ") + severity + line + "; ";
    }
    return text;
}

std::string take_journal() {
    std::string text = take(kProperties + "journal");
    replace_all(text, "vendor.", "");
    replace_all(text, "set ", "");
    replace_all(text, "\n", "; ");
    return text;
}

void replace_all(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}
