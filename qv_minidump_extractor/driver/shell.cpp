#include "driver/shell.h"

#include <sys/prctl.h>
#include <sys/wait.h>

#include <cstdlib>

int run_command(const std::string& command) {
    // The device's tar ends while the gzip that it started is still writing, and init kills what a
    // service leaves behind. Orphans therefore become children of this process, and it waits for
    // them. Do not leave this out: archives would be cut short.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const int status = std::system(command.c_str());
    while (wait(nullptr) > 0) {
    }
    return status;
}
