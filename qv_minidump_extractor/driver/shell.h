#pragma once

#include <string>

// Runs `command` in the platform's shell and waits until everything that the command started has
// ended, also in the background. Returns the shell's status as system() does: 0 when the command
// succeeded, any other number when it or its start failed.
int run_command(const std::string& command);
