#include "common/timestamp.h"

#include <time.h>

#include <chrono>
#include <iomanip>
#include <sstream>

std::string GetCurrentTimestamp() {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local_time = {};
    localtime_r(&now, &local_time);
    std::ostringstream text;
    text << std::put_time(&local_time, "%Y-%m-%d-%H-%M-%S");
    return text.str();
}
