#pragma once

#include <string>

// Runs `command` in the platform's shell and waits until everything that the command started has
// ended, also in the background. Returns 0 when all of it succeeded; any other number when
// something failed or could not be started.
int run_command(const std::string& command);
