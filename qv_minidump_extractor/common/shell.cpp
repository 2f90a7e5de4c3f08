#include "common/shell.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace {

// Runs `command`, waits for everything that it started, and exits: with 0, or with 1 when the shell
// or an adopted process failed.
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
    // The caller may have left SIGCHLD ignored. Waiting would then return no status.
    std::signal(SIGCHLD, SIG_DFL);
    // The command runs under a child process, the keeper. Children that the caller left to this
    // process are not the keeper's, so nobody waits for them. system() makes its caller ignore
    // Ctrl-C. That is only the keeper: the run itself dies and does not go on to the erase.
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
