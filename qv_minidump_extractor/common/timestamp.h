#pragma once

#include <string>

// Returns the current local time in the shape of kTimestampFormat, such as 2024-03-05-14-07-09.
std::string GetCurrentTimestamp();
