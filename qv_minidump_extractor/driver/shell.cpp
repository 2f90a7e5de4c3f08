#include "driver/shell.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace {

// Runs `command` and ends this process when all that it started has ended: with status 0, or 1
// when any of it failed.
[[noreturn]] void keep(const std::string& command) {
    // The device's tar ends while the gzip that it started is still writing, and does not look at
    // gzip's status. A subreaper adopts such orphans. Do not leave this out: archives would be
    // truncated, and failures of gzip would go unseen.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    bool failed = std::system(command.c_str()) != 0;
    int status = 0;
    while (wait(&status) > 0) {
        failed = failed || status != 0;
    }
    _exit(failed ? 1 : 0);
}

}  // namespace

int run_command(const std::string& command) {
    // A caller may ignore SIGCHLD, and then no status could be waited for.
    std::signal(SIGCHLD, SIG_DFL);
    // A process of its own, the keeper: it adopts no children of others, and it alone ignores
    // Ctrl-C, as system() does. The run itself then dies of Ctrl-C and does not go on to the erase.
    const pid_t keeper = fork();
    if (keeper == 0) {
        keep(command);
    }
    int status = -1;
    if (keeper > 0) {
        waitpid(keeper, &status, 0);
    }
    return status;
}
