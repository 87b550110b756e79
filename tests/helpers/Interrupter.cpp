// Preloaded into a program, interrupts its system calls every millisecond, with a handler that does not restart them.

#include <signal.h>
#include <stdlib.h>
#include <sys/time.h>

namespace {

__attribute__((constructor)) void InterruptAllTheTime()
{
    unsetenv("LD_PRELOAD");  // what the program starts itself is left alone
    struct sigaction action = {};
    action.sa_handler = [](int /*signal*/) {};
    sigaction(SIGALRM, &action, nullptr);
    itimerval const timer = {{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace
