// The property store of a virtual device: in /dev/__properties__, a file for each property contains
// its value, and "journal" a line for every property_set in order: "set KEY=VALUE", or "refused
// KEY=VALUE".

#include <cutils/properties.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

namespace {

const std::string kStore = "/dev/__properties__/";

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    std::ifstream file(kStore + key, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (text.empty() && default_value != nullptr) {
        text = default_value;
    }
    text.resize(std::min<size_t>(text.size(), PROPERTY_VALUE_MAX - 1));
    text.copy(value, text.size());
    value[text.size()] = '\0';
    return static_cast<int>(text.size());
}

int property_set(const char* key, const char* value) {
    const std::string text = value == nullptr ? "" : value;
    const bool set = text.size() < PROPERTY_VALUE_MAX &&
                     (std::ofstream(kStore + key, std::ios::binary) << text).flush().good();
    std::ofstream(kStore + "journal", std::ios::app)
            << (set ? "set " : "refused ") << key << "=" << text << "\n";
    return set ? 0 : -1;
}
