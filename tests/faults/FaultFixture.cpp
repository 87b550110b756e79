#include "FaultFixture.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "FaultLog.h"
#include "Sweep.h"

namespace tovu { namespace test {

TemporaryDirectory const& FaultFolder()
{
    static TemporaryDirectory const folder;
    return folder;
}

namespace {

// Where the child leaves its text.
char* SharedText()
{
    static void* const page = mmap(nullptr, sizeof(Text), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return static_cast<char*>(page);
}

[[noreturn]] void RunAsChild(Run& run, std::function<void(Run&)> const& body, char* text)
{
    rlimit const noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    alarm(WATCHDOG_SECONDS);
    close(STDERR_FILENO);  // an exception that nobody catches is told there
    try {
        body(run);
    } catch (...) {
        DescribeCaught(run.out);
    }
    std::strcpy(text, run.out.Get());
    _exit(0);
}

}  // namespace

void RunInFork(Run& run, std::function<void(Run&)> const& body)
{
    char* const text = SharedText();
    text[0] = '\0';
    {
        FaultScope const none({Fault::NONE, Call::accept, 0, 0});
    }  // before the fork, so that both share what it counts
    FaultLog::AwaitSleep();
    pid_t const child = fork();
    ASSERT_NE(-1, child);
    if (child == 0)
        RunAsChild(run, body, text);

    int ended = 0;
    ASSERT_EQ(child, waitpid(child, &ended, 0));
    run.out << text;
    if (WIFSIGNALED(ended))
        run.out << "ended by signal" << WTERMSIG(ended);
}

}}  // namespace tovu::test
