#pragma once

#include <string>

// Runs `command` in the platform's shell and waits until everything that it started has ended, also
// in the background. Returns 0 when the shell and every process that outlived its parent succeeded;
// any other number when one of them failed or the shell could not be started.
int run_command(const std::string& command);
