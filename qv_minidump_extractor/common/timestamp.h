#pragma once

#include <string>

// The shape of the times in names: local, to the second. A timestamp contains no "_", which
// separates the parts of names. Later ones sort later as text, unless the local clock is set back.
inline constexpr char kTimestampFormat[] = "%Y-%m-%d-%H-%M-%S";

// Returns the current local time in the shape of kTimestampFormat, such as 2024-03-05-14-07-09.
std::string GetCurrentTimestamp();
