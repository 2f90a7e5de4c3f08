#pragma once

#include <string>

// Returns the current local time to the second, such as 2024-03-05-14-07-09. A timestamp contains
// no "_", which separates the parts of names. Later ones sort later as text, unless the local clock
// is set back.
std::string GetCurrentTimestamp();
