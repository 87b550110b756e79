// The program that ChildProcessTest starts. It writes what it has been given into the file that CHILD_REPORT names, each
// item with a zero byte behind it, and then does what its first argument says: nothing, "wait" or "stop".

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int MAX_DESCRIPTOR = 1024;
constexpr int MAX_SIGNAL = 31;
constexpr unsigned LONGEST_WAIT = 300;  // seconds, should the test not live to end this program
constexpr int NOT_TRACED = 99;

using Items = std::vector<std::string>;

void AddTexts(Items& items, char const* kind, char const* const* texts)
{
    for (; *texts != nullptr; ++texts)
        items.push_back(kind + std::string(*texts));
}

// Each open descriptor, with what it stands for.
void AddDescriptors(Items& items)
{
    for (int descriptor = 0; descriptor < MAX_DESCRIPTOR; ++descriptor) {
        std::string const number = std::to_string(descriptor);
        char target[PATH_MAX] = "";
        if (readlink(("/proc/self/fd/" + number).c_str(), target, sizeof(target) - 1) != -1)
            items.push_back("descriptor " + number + " " + target);
    }
}

void AddSignals(Items& items)
{
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    for (int number = 1; number <= MAX_SIGNAL; ++number) {
        struct sigaction action;
        sigaction(number, nullptr, &action);
        if (sigismember(&blocked, number) == 1)
            items.push_back("blocked " + std::to_string(number));
        if (action.sa_handler == SIG_IGN)
            items.push_back("ignored " + std::to_string(number));
    }
}

void Report(char const* path, Items const& items)
{
    std::FILE* const file = std::fopen(path, "w");
    if (file == nullptr)
        std::abort();
    for (std::string const& item : items)
        std::fwrite(item.c_str(), 1, item.size() + 1, file);
    std::fclose(file);
}

int Wait()
{
    alarm(LONGEST_WAIT);
    for (;;)
        pause();
}

// Shows the parent, which traces it from now on, that it has stopped.
int Stop()
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == -1)
        return NOT_TRACED;
    alarm(LONGEST_WAIT);
    return raise(SIGSTOP);
}

}  // namespace

int main(int argc, char** argv)
{
    if (char const* const path = std::getenv("CHILD_REPORT")) {
        Items items;
        AddDescriptors(items);
        AddSignals(items);
        AddTexts(items, "argument ", argv);
        AddTexts(items, "variable ", environ);
        Report(path, items);
    }
    std::string const order = argc > 1 ? argv[1] : "";
    return order == "wait" ? Wait() : order == "stop" ? Stop() : EXIT_SUCCESS;
}
