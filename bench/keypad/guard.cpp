#include "bench/keypad/guard.h"

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

const int graceMsecs = 2000;

int statusOf(int wait)
{
    return WIFEXITED(wait) ? WEXITSTATUS(wait) : 128 + WTERMSIG(wait);
}

} // namespace

int runGuarded(char **arguments)
{
    setsid(); // an interrupt at the bench's terminal is for the bench
    // Of a child that is stopped or goes on there is nothing to be done, and nothing to be told.
    struct sigaction onlyItsEnd = {};
    onlyItsEnd.sa_handler = SIG_DFL;
    onlyItsEnd.sa_flags = SA_NOCLDSTOP;
    sigaction(SIGCHLD, &onlyItsEnd, nullptr);
    sigset_t childSignal;
    sigemptyset(&childSignal);
    sigaddset(&childSignal, SIGCHLD);
    sigprocmask(SIG_BLOCK, &childSignal, nullptr);
    const int childEnded = signalfd(-1, &childSignal, SFD_CLOEXEC);

    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        sigprocmask(SIG_UNBLOCK, &childSignal, nullptr);
        // An X server that looks for a free display complains about every one that is
        // taken.
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        execvp(arguments[0], arguments);
        _exit(127);
    }
    pollfd watched[] = {{childEnded, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    poll(watched, 2, -1);
    if (watched[0].revents == 0) {
        kill(child, SIGTERM);
        if (poll(watched, 1, graceMsecs) == 0)
            kill(child, SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return statusOf(status);
}
